// Analysis of an alignment tensor with its classic report: Da(NH), R, the
// Euler angles and, on request, the eigensystem.
#pragma once

#include <cstdio>

namespace vorn {

// Prints "<routine>: error occured\n" on out when status is non-zero; the
// tensor chain reports failed sub-steps this way and carries on.
void report_step(int status, const char* routine, FILE* out);

// Five Saupe elements (Szz, Sxx-Syy, Sxy, Sxz, Syz) in, eigensystem
// (0-based; eigenvectors as columns, rows x, y, z), magnitude, rhombicity and
// the four equivalent Euler triples out; prints the report on out. Returns 0.
int analyzeSaupe(const double saupe[5], double eigVec[3][3], double eigVal[3], double& da,
                 double& dr, double alphalist[4], double betalist[4], double gammalist[4],
                 FILE* out);

void print_eigensystem(int flag, const double saupe[5], const double eigVal[3],
                       const double eigVec[3][3], FILE* out);

}  // namespace vorn
