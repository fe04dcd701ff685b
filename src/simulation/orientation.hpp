// Orientation sampling, rotation convention and per-orientation order
// elements.
#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <vector>

#include "vorn/log.hpp"
#include "vorn/settings.hpp"

namespace vorn {

// Euler angles (theta, phi, psi) in degrees in elements 1..3.
using EulerAngle = std::array<double, 4>;

// The orientation table and the five per-orientation element lists, all
// used from index 1 (index 0 unused), one entry per sampled orientation.
struct OrientationTables {
  std::vector<EulerAngle> eulerangle;
  std::vector<double> szz_orient, sxx_yy_orient, sxy_orient, sxz_orient, syz_orient;
  // Elements 1..3 of the x and y axes of each orientation's atom frame, as
  // {x1, x2, x3, y1, y2, y3}, from index 1 when filled (by sample_orientations, so
  // that a context computes them once for all its structures); empty, the
  // simulation computes them per orientation, with the same bits.
  std::vector<std::array<double, 6>> frame_axes;
};

// Phi steps of a theta band from temp2 = sin(theta) * digit_phi: the
// nearest integer, a fraction of exactly 0.5 rounding down.
int phi_step_count(double temp2);

int grid_orientation_sampling(const Settings& settings, int digit_theta, int digit_phi,
                              int digit_psi, std::vector<EulerAngle>& angle, const Log& log,
                              int orientation_limit = std::numeric_limits<int>::max());

void calculate_scaling(const Settings& settings, int no_angles, double final_distance,
                       double final_distance_ph, double max_obstruction, int& no_pt, int& no_pt_ph);

// Angles in radians; vectors use elements 1..3.
// rotate_vector is rotation_matrix followed by apply_rotation; the two halves
// are exposed so that a caller turning several vectors by one orientation
// evaluates the trigonometry once and still gets the same bits.
void rotation_matrix(double theta, double phi, double psi, double Dreh_M[4][4]);

// The cosine and sine of an angle (radians), as every rotation takes them.
void angle_cos_sin(double angle, double& c, double& s);

// The cosine and sine of the last angle seen in each of three slots, reused
// when the same angle (bit for bit) comes again: the orientations of a
// sampling share their theta and phi over long runs.
class TrigMemo {
 public:
  void cos_sin(int slot, double angle, double& c, double& s);

 private:
  std::uint64_t bits_[3] = {};
  double c_[3] = {};
  double s_[3] = {};
  bool valid_[3] = {};
};

// rotation_matrix with theta, phi and psi in slots 0, 1 and 2 of the memo.
void rotation_matrix(double theta, double phi, double psi, double Dreh_M[4][4], TrigMemo& memo);
void apply_rotation(const double Dreh_M[4][4], const double input_vector[4],
                    double rotated_vector[4]);
void rotate_vector(double theta, double phi, double psi, const double input_vector[4],
                   double rotated_vector[4]);
void rotate_coorsystem(double theta, double phi, double psi, double x_axis_tensor[4],
                       double y_axis_tensor[4], double z_axis_tensor[4]);

double Szz(const double tensor_zaxis[4]);
double Sxx(const double tensor_xaxis[4]);
double Syy(const double tensor_yaxis[4]);
double Sxy(const double tensor_xaxis[4], const double tensor_yaxis[4]);
double Sxz(const double tensor_xaxis[4], const double tensor_zaxis[4]);
double Syz(const double tensor_yaxis[4], const double tensor_zaxis[4]);

// Trace test of orientation i: a sum Sxx + Syy + Szz above 1e-15 ends the
// run with status 1 and its two lines on standard output; a negative sum of
// any size passes.
void check_traceless(int i, double sxx, double syy, double szz);

// Fills the five lists of the tables for orientations 1..no_pt (resizing
// them); the failed trace test throws with its lines on standard output.
void setup_lists(const Settings& settings, int no_pt, OrientationTables& tables, const Log& log);

void check_Saupe_uniformity(const Settings& settings, int no_pt, const OrientationTables& tables,
                            double saupe[5], const Log& log);

}  // namespace vorn
