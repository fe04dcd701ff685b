// Analysis of an alignment tensor: diagonalisation, ordering, Euler angles
// of the principal frame and the report.
#pragma once

#include <cstdio>

namespace vorn {

// Five Saupe elements (Szz, Sxx-Syy, Sxy, Sxz, Syz) in, eigensystem
// (0-based; eigenvectors as columns, rows x, y, z), magnitude, rhombicity and
// the four equivalent Euler triples out; prints the report on out.
int analyzeSaupe(const double saupe[5], double eigVec[3][3], double eigVal[3], double& da,
                 double& dr, double alphalist[4], double betalist[4], double gammalist[4],
                 FILE* out);

void print_eigensystem(int flag, const double saupe[5], const double eigVal[3],
                       const double eigVec[3][3], FILE* out);

}  // namespace vorn
