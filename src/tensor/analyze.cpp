#include "tensor/analyze.hpp"

#include "tensor/euler.hpp"
#include "tensor/jacobi.hpp"
#include "tensor/report.hpp"

namespace vorn {

int saupe2euler(const double saupe[5], double psiList[8], double thetaList[8], double phiList[8],
                double alphalist[4], double betalist[4], double gammalist[4], double eigenvec[3][3],
                double eigenvalue[3], FILE* out) {
  for (int i = 0; i < 8; ++i) psiList[i] = thetaList[i] = phiList[i] = 0.0;
  for (int i = 0; i < 4; ++i) alphalist[i] = betalist[i] = gammalist[i] = 0.0;

  double sMat[4][4] = {};
  saupe_matrix(saupe, sMat);
  double eigVal[4] = {};
  double eigVec[4][4] = {};
  int nrot = 0;
  jacobimz(sMat, eigVal, eigVec, nrot);
  report_step(sort_eigensystem(eigVal, eigVec), "sort_eigensystem", out);
  report_step(eigVec2euler(1, eigVec, alphalist, betalist, gammalist, out), "eigVec2euler", out);
  for (int i = 1; i <= 3; ++i) {
    for (int j = 1; j <= 3; ++j) eigenvec[i - 1][j - 1] = eigVec[i][j];
    eigenvalue[i - 1] = eigVal[i];
  }
  return 0;
}

int analyzeSaupe(const double saupe[5], double eigVec[3][3], double eigVal[3], double& da,
                 double& dr, double alphalist[4], double betalist[4], double gammalist[4],
                 FILE* out) {
  double psiList[8];
  double thetaList[8];
  double phiList[8];
  double thetaGlist[4] = {};
  double phiGlist[4] = {};
  double omegaGlist[4] = {};
  double da_in = 0.0;
  double dr_in = 0.0;
  report_step(saupe2euler(saupe, psiList, thetaList, phiList, alphalist, betalist, gammalist,
                          eigVec, eigVal, out),
              "saupe2euler", out);
  report_step(euler2polar(alphalist, betalist, gammalist, thetaGlist, phiGlist, omegaGlist),
              "euler2polar", out);
  report_step(pca_tensor(eigVal, da_in, dr_in), "pca_tensor", out);
  report_step(
      print_analyzation(saupe, eigVec, eigVal, da_in, dr_in, psiList, thetaList, phiList, alphalist,
                        betalist, gammalist, thetaGlist, phiGlist, omegaGlist, out),
      "print_analyzation", out);
  da = da_in;
  dr = dr_in;
  return 0;
}

}  // namespace vorn
