// Euler angles (z-y-z, degrees) of the principal frame of the alignment
// tensor, for the four sign-equivalent orientations of its axes.
#pragma once

namespace vorn {

// Four Euler triples from the sorted 1-based eigenvector matrix (columns z,
// y, x axis). mirror is accepted and not consulted. Always returns 0 (as
// get_euler does for every candidate).
int eigVec2euler(int mirror, const double eigVec[4][4], double alphalist[4], double betalist[4],
                 double gammalist[4]);

// The four candidate rotation matrices (columns Y x Z, sy*Y, sz*Z) from the
// 0-based eigenvector matrix; row n of the lists holds column 0, 1, 2 of
// candidate n. Returns the number of candidates (4).
int make_eigVecList(const double eigVec[3][3], double eigVecXlist[4][3], double eigVecYlist[4][3],
                    double eigVecZlist[4][3]);

// Stores the one candidate it is given as candidate n. Returns 1.
int mirror_solutions(int n, const double eigVec[3][3], double eigVecXlist[4][3],
                     double eigVecYlist[4][3], double eigVecZlist[4][3]);

// Columns 0, 1, 2 of eigVec into row n of the three lists. Returns 1, or 0
// (storing nothing) for n outside 0..3.
int add_eigVec_List(double eigVecXlist[4][3], double eigVecYlist[4][3], double eigVecZlist[4][3],
                    int n, const double eigVec[3][3]);

// product := column n x column m of the 0-based eigVec. Returns 1, or 0
// (product untouched) for a column index outside 0..2.
int cross_productM2(int n, int m, const double eigVec[3][3], double product[3]);

// Normalises the columns of the 1-based matrix m and extracts its Euler
// angles into w[1] (alpha), w[2] (beta), w[3] (gamma). Always returns 0.
int get_euler(const double m[4][4], double w[4]);

// Euler angles in degrees of the normalised 1-based rotation matrix m.
void inv_euler(const double m[4][4], double w[4]);

// Polar-angle form of the four orientations (degrees). Always returns 0.
int euler2polar(const double alphalist[4], const double betalist[4], const double gammalist[4],
                double thetaGlist[4], double phiGlist[4], double omegaGlist[4]);

}  // namespace vorn
