#include "simulation/orientation.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

#include "core/fatal.hpp"

namespace vorn {

namespace {

// The ten-digit value of pi used throughout the simulation.
constexpr double kPi = 3.141592654;

// Number of phi steps of a theta band (degrees): sin(theta) * digit_phi.
int phi_steps(double theta, int digit_phi) {
  return phi_step_count(std::sin(theta * kPi / 180) * digit_phi);
}

// A real number that must become a count, truncated toward zero; a value
// that no int can hold (not a number, or out of range) ends the run rather
// than being converted with undefined result.
int truncated_count(double value) {
  const double t = std::trunc(value);
  if (!(t >= std::numeric_limits<int>::min() && t <= std::numeric_limits<int>::max())) {
    nerror("Number of free positions out of range ...");
  }
  return static_cast<int>(t);
}

// The element lists and the table are used from index 1; a count beyond
// what they hold is a caller error and must not read past them.
void check_orientation_count(int no_pt, std::size_t slots) {
  if (no_pt > 0 && static_cast<std::size_t>(no_pt) >= slots) {
    nerror("Too many requested orientations ...");
  }
}

}  // namespace

int phi_step_count(double temp2) {
  // Rounded to the nearest integer; a fraction of exactly 0.5 goes down,
  // deliberately.
  return static_cast<int>(std::fmod(temp2, 1.0) > 0.5 ? std::ceil(temp2) : std::floor(temp2));
}

int grid_orientation_sampling(const Settings& settings, int digit_theta, int digit_phi,
                              int digit_psi, std::vector<EulerAngle>& angle, const Log& log,
                              int orientation_limit) {
  const double inc_theta = 180.0 / digit_theta;
  const double inc_psi = 360.0 / digit_psi;
  const double off_theta = inc_theta / 2;

  // Size the table to what the sampling needs (at most up to the limit).
  long long needed = 0;
  for (int i = 0; i < digit_theta && needed < orientation_limit; ++i) {
    const double theta = i * inc_theta + off_theta;
    needed +=
        static_cast<long long>(std::max(phi_steps(theta, digit_phi), 0)) * std::max(digit_psi, 0);
  }
  angle.assign(1, EulerAngle{});
  angle.reserve(static_cast<std::size_t>(std::min<long long>(needed, orientation_limit)) + 1);

  int m = 0;
  for (int i = 0; i < digit_theta; ++i) {
    const double theta = i * inc_theta + off_theta;
    const int digit_phi_opt = phi_steps(theta, digit_phi);
    // A band without phi steps gives an infinite increment, only printed.
    const double inc_phi_opt = 360.0 / digit_phi_opt;
    if (settings.debug != 0) {
      log.list(format("digit_phi_opt: %d    inc_phi_opt: %.1f\n", digit_phi_opt, inc_phi_opt));
    }
    for (int j = 0; j < digit_phi_opt; ++j) {
      for (int k = 0; k < digit_psi; ++k) {
        m += 1;
        if (m == orientation_limit) {
          nerror("Too many requested orientations ...");
        }
        angle.push_back(EulerAngle{0.0, theta, j * inc_phi_opt, k * inc_psi});
      }
    }
  }
  return m;
}

void calculate_scaling(const Settings& settings, int /*no_angles*/, double final_distance,
                       double /*final_distance_ph*/, double /*max_obstruction*/, int& no_pt,
                       int& no_pt_ph) {
  // Outputs of a medium or grid type that is not handled are 0.
  no_pt = 0;
  no_pt_ph = 0;
  if (settings.grid_type != 2) {
    return;
  }
  if (settings.liquid_type == 1) {
    // Positions between the last grid point and the mean free distance,
    // all of whose orientations are free.
    no_pt = truncated_count((settings.step_out_length - final_distance) / settings.grid_spacing);
  } else if (settings.liquid_type == 2) {
    // Phage particle density in g/ml, a single-precision constant.
    const float density = 1.46f;
    const double end_dist = settings.max_obs_dim / std::sqrt(settings.concentration / density);
    const int a = truncated_count((end_dist - settings.max_obs_dim) / settings.grid_spacing);
    // Positions out to end_dist, each weighted by its distance from the
    // cylinder axis in units of the cylinder radius; a + 1 is formed in
    // double so that no int can overflow.
    const double ad = a;
    no_pt_ph =
        truncated_count(ad + (settings.grid_spacing / settings.max_obs_dim) * ad * (ad + 1) / 2);
  }
}

// One out-of-line routine computes every cosine and sine of the rotations,
// so that a value taken from the memo is the one a fresh call would give.
[[gnu::noinline]] void angle_cos_sin(double angle, double& c, double& s) {
  c = std::cos(angle);
  s = std::sin(angle);
}

void TrigMemo::cos_sin(int slot, double angle, double& c, double& s) {
  const std::uint64_t bits = std::bit_cast<std::uint64_t>(angle);
  if (!valid_[slot] || bits_[slot] != bits) {
    angle_cos_sin(angle, c_[slot], s_[slot]);
    bits_[slot] = bits;
    valid_[slot] = true;
  }
  c = c_[slot];
  s = s_[slot];
}

namespace {

// R = Rz(psi) * Ry(theta) * Rz(phi), acting on coordinates, from the
// cosines and sines of the three angles.
void rotation_matrix_of(double ct, double st, double cf, double sf, double cp, double sp,
                        double Dreh_M[4][4]) {
  Dreh_M[1][1] = cp * ct * cf - sp * sf;
  Dreh_M[1][2] = cp * ct * sf + sp * cf;
  Dreh_M[1][3] = -cp * st;
  Dreh_M[2][1] = -sp * ct * cf - cp * sf;
  Dreh_M[2][2] = -sp * ct * sf + cp * cf;
  Dreh_M[2][3] = sp * st;
  Dreh_M[3][1] = st * cf;
  Dreh_M[3][2] = st * sf;
  Dreh_M[3][3] = ct;
}

}  // namespace

void rotation_matrix(double theta, double phi, double psi, double Dreh_M[4][4]) {
  double ct, st, cf, sf, cp, sp;
  angle_cos_sin(theta, ct, st);
  angle_cos_sin(phi, cf, sf);
  angle_cos_sin(psi, cp, sp);
  rotation_matrix_of(ct, st, cf, sf, cp, sp, Dreh_M);
}

void rotation_matrix(double theta, double phi, double psi, double Dreh_M[4][4], TrigMemo& memo) {
  double ct, st, cf, sf, cp, sp;
  memo.cos_sin(0, theta, ct, st);
  memo.cos_sin(1, phi, cf, sf);
  memo.cos_sin(2, psi, cp, sp);
  rotation_matrix_of(ct, st, cf, sf, cp, sp, Dreh_M);
}

void apply_rotation(const double Dreh_M[4][4], const double input_vector[4],
                    double rotated_vector[4]) {
  for (int r = 1; r <= 3; ++r) {
    double sum = 0.0;
    for (int c = 1; c <= 3; ++c) {
      sum += Dreh_M[r][c] * input_vector[c];
    }
    rotated_vector[r] = sum;
  }
}

void rotate_vector(double theta, double phi, double psi, const double input_vector[4],
                   double rotated_vector[4]) {
  double Dreh_M[4][4] = {};
  rotation_matrix(theta, phi, psi, Dreh_M);
  apply_rotation(Dreh_M, input_vector, rotated_vector);
}

void rotate_coorsystem(double theta, double phi, double psi, double x_axis_tensor[4],
                       double y_axis_tensor[4], double z_axis_tensor[4]) {
  const double x_axis_xray[4] = {0.0, 1.0, 0.0, 0.0};
  const double y_axis_xray[4] = {0.0, 0.0, 1.0, 0.0};
  const double z_axis_xray[4] = {0.0, 0.0, 0.0, 1.0};
  // rotate_vector for each axis, with the matrix evaluated once.
  double Dreh_M[4][4] = {};
  rotation_matrix(theta, phi, psi, Dreh_M);
  apply_rotation(Dreh_M, x_axis_xray, x_axis_tensor);
  apply_rotation(Dreh_M, y_axis_xray, y_axis_tensor);
  apply_rotation(Dreh_M, z_axis_xray, z_axis_tensor);
}

// The z component of a frame axis is its cosine with the laboratory z axis,
// the direction of alignment.
double Szz(const double tensor_zaxis[4]) {
  return (3.0 * (tensor_zaxis[3] * tensor_zaxis[3]) - 1.0) / 2.0;
}
double Sxx(const double tensor_xaxis[4]) {
  return (3.0 * (tensor_xaxis[3] * tensor_xaxis[3]) - 1.0) / 2.0;
}
double Syy(const double tensor_yaxis[4]) {
  return (3.0 * (tensor_yaxis[3] * tensor_yaxis[3]) - 1.0) / 2.0;
}
double Sxy(const double tensor_xaxis[4], const double tensor_yaxis[4]) {
  return 1.5 * tensor_xaxis[3] * tensor_yaxis[3];
}
double Sxz(const double tensor_xaxis[4], const double tensor_zaxis[4]) {
  return 1.5 * tensor_xaxis[3] * tensor_zaxis[3];
}
double Syz(const double tensor_yaxis[4], const double tensor_zaxis[4]) {
  return 1.5 * tensor_yaxis[3] * tensor_zaxis[3];
}

void check_traceless(int i, double sxx, double syy, double szz) {
  // One-sided on purpose: only a positive excess over round-off fails.
  const double test = sxx + syy + szz;
  if (test > 1e-15) {
    fatal("Saupe matrix not traceless ...\n" +
              format("%d: sum = %e   %e   %e   %e\n", i, test, sxx, syy, szz),
          Stream::out, 1);
  }
}

void setup_lists(const Settings& settings, int no_pt, OrientationTables& tables, const Log& log) {
  check_orientation_count(no_pt, tables.eulerangle.size());
  const std::size_t slots = static_cast<std::size_t>(std::max(no_pt, 0)) + 1;
  tables.szz_orient.assign(slots, 0.0);
  tables.sxx_yy_orient.assign(slots, 0.0);
  tables.sxy_orient.assign(slots, 0.0);
  tables.sxz_orient.assign(slots, 0.0);
  tables.syz_orient.assign(slots, 0.0);

  double tensor_xaxis[4] = {};
  double tensor_yaxis[4] = {};
  double tensor_zaxis[4] = {};
  const double x_axis_xray[4] = {0.0, 1.0, 0.0, 0.0};
  const double y_axis_xray[4] = {0.0, 0.0, 1.0, 0.0};
  const double z_axis_xray[4] = {0.0, 0.0, 0.0, 1.0};
  TrigMemo memo;
  for (int i = 1; i <= no_pt; ++i) {
    const EulerAngle& angle = tables.eulerangle[i];
    const double theta = angle[1] * kPi / 180;
    const double phi = angle[2] * kPi / 180;
    const double psi = angle[3] * kPi / 180;
    if (settings.debug != 0) {
      log.list(format("%d theta/phi/psi:  %.2f   %.2f   %.2f\n", i, angle[1], angle[2], angle[3]));
    }
    // rotate_coorsystem, with the trigonometry of repeated angles reused.
    double Dreh_M[4][4] = {};
    rotation_matrix(theta, phi, psi, Dreh_M, memo);
    apply_rotation(Dreh_M, x_axis_xray, tensor_xaxis);
    apply_rotation(Dreh_M, y_axis_xray, tensor_yaxis);
    apply_rotation(Dreh_M, z_axis_xray, tensor_zaxis);
    if (settings.debug != 0) {
      for (const double* axis : {tensor_xaxis, tensor_yaxis, tensor_zaxis}) {
        for (int c = 1; c <= 3; ++c) {
          log.list(format("%e  ", axis[c]));
        }
        log.list("\n");
      }
    }
    const double sxx = Sxx(tensor_xaxis);
    const double syy = Syy(tensor_yaxis);
    tables.szz_orient[i] = Szz(tensor_zaxis);
    tables.sxx_yy_orient[i] = sxx - syy;
    tables.sxy_orient[i] = Sxy(tensor_xaxis, tensor_yaxis);
    tables.sxz_orient[i] = Sxz(tensor_xaxis, tensor_zaxis);
    tables.syz_orient[i] = Syz(tensor_yaxis, tensor_zaxis);

    check_traceless(i, sxx, syy, tables.szz_orient[i]);
    if (settings.debug != 0) {
      log.list(format("Szz: %e %e %e %e %e\n", tables.szz_orient[i], tables.sxx_yy_orient[i],
                      tables.sxy_orient[i], tables.sxz_orient[i], tables.syz_orient[i]));
    }
  }
}

void check_Saupe_uniformity(const Settings& settings, int no_pt, const OrientationTables& tables,
                            double saupe[5], const Log& log) {
  check_orientation_count(no_pt, std::min({tables.szz_orient.size(), tables.sxx_yy_orient.size(),
                                           tables.sxy_orient.size(), tables.sxz_orient.size(),
                                           tables.syz_orient.size()}));
  double sum[5] = {};
  double sxy_old = 0.0;
  for (int i = 1; i <= no_pt; ++i) {
    sum[0] += tables.szz_orient[i];
    sum[1] += tables.sxx_yy_orient[i];
    sum[2] += tables.sxy_orient[i];
    sum[3] += tables.sxz_orient[i];
    sum[4] += tables.syz_orient[i];
    if (settings.debug != 0 && tables.sxy_orient[i] != sxy_old) {
      log.list(format("%d  %8.5f\n", i, tables.sxy_orient[i]));
      sxy_old = tables.sxy_orient[i];
    }
  }
  // No orientations: 0/0, passed on as it is.
  for (int e = 0; e < 5; ++e) {
    saupe[e] = sum[e] / no_pt;
  }
}

}  // namespace vorn
