// Magnitude, rhombicity and orientation report of an alignment tensor.
#pragma once

#include <cstdio>

namespace vorn {

// Axial (da) and rhombic (dr) components from the eigenvalues (Azz, Ayy,
// Axx). Always returns 0.
int pca_tensor(const double eigVal[3], double& da, double& dr);

// Prints Da(NH), R and the four Euler triples on out; the other arguments are
// accepted and not printed. Always returns 0.
int print_analyzation(const double saupe[5], const double eigVec[3][3], const double eigVal[3],
                      double da, double dr, const double psiList[8], const double thetaList[8],
                      const double phiList[8], const double alphalist[4], const double betalist[4],
                      const double gammalist[4], const double thetaGlist[4],
                      const double phiGlist[4], const double omegaGlist[4], FILE* out);

}  // namespace vorn
