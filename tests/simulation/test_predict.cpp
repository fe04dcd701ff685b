// Hand-computed cases of the steric simulation and its edge cases.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "capture.hpp"
#include "core/fatal.hpp"
#include "simulation/grid.hpp"
#include "simulation/orientation.hpp"
#include "simulation/predict.hpp"
#include "simulation/predict_direct.hpp"
#include "vorn/settings.hpp"

namespace vorn {
namespace {

// Grid points the classic program stores (indices 0..999); the engine's
// grids have no fixed size.
constexpr int kGridSlots = 1000;

constexpr double kPi = 3.141592654;
const double kNaN = std::numeric_limits<double>::quiet_NaN();

struct Molecule {
  std::vector<double> x{0.0}, y{0.0}, z{0.0};
  void add(double xi, double yi, double zi) {
    x.push_back(xi);
    y.push_back(yi);
    z.push_back(zi);
  }
  int count() const { return static_cast<int>(x.size()) - 1; }
};

Grid line_grid(const std::vector<double>& xs) {
  Grid grid(kGridSlots, GridPoint{});
  for (size_t k = 0; k < xs.size(); ++k) {
    grid[k] = GridPoint{0.0, xs[k], 0.0, 0.0};
  }
  return grid;
}

struct Sampling {
  OrientationTables tables;
  int o_pts = 0;
  double saupe_dev[5] = {};
};

Sampling sampling(const Settings& s, int dt, int dp, int ds) {
  Sampling r;
  const Log log;  // the listings are not looked at
  r.o_pts = grid_orientation_sampling(s, dt, dp, ds, r.tables.eulerangle, log);
  setup_lists(s, r.o_pts, r.tables, log);
  check_Saupe_uniformity(s, r.o_pts, r.tables, r.saupe_dev, log);
  return r;
}

Sampling table(const Settings& s, const std::vector<EulerAngle>& angles) {
  Sampling r;
  r.tables.eulerangle = {EulerAngle{}};
  for (const EulerAngle& a : angles) {
    r.tables.eulerangle.push_back(a);
  }
  r.o_pts = static_cast<int>(angles.size());
  const Log log;  // the listings are not looked at
  setup_lists(s, r.o_pts, r.tables, log);
  check_Saupe_uniformity(s, r.o_pts, r.tables, r.saupe_dev, log);
  return r;
}

std::string fatal_text(const std::function<void()>& call) {
  try {
    call();
  } catch (const FatalError& e) {
    EXPECT_EQ(e.stream(), Stream::err);
    EXPECT_EQ(e.status(), 1);
    return e.text();
  }
  return "<no fatal error>";
}

std::string run_error(const std::string& text) {
  return "run-time error...\n" + text + "\n...now exiting to system...\n";
}

// ---------------------------------------------------------------------------
// A two-atom molecule, a1 = (3, 0, 0) and a2 = (0, 0, 1), in the six
// orientations of DIGIT (2, 4, 1): theta 45 and 135 deg, phi 0, 120, 240 deg
// (sin 45 * 4 = 2.83 rounds to 3 steps), psi 0.
//
// With psi = 0 the molecule is turned by Ry(theta) Rz(phi), whose first row is
// (cos t cos p, cos t sin p, -sin t): the projections on the wall normal are
// 3 cos t cos p for a1 and -sin t = -0.707 for a2:
//   m1 (45, 0):    2.121, -0.707   lowest -0.707
//   m2 (45, 120): -1.061, -0.707   lowest -1.061
//   m3 (45, 240): -1.061, -0.707   lowest -1.061
//   m4 (135, 0):  -2.121, -0.707   lowest -2.121
//   m5 (135, 120): 1.061, -0.707   lowest -0.707
//   m6 (135, 240): 1.061, -0.707   lowest -0.707
// The order elements follow from the z components (sin t cos p, sin t sin p,
// cos t) of the rotated axes: Szz = 0.25 everywhere, Sxx-Syy = 0.75 cos 2p,
// Sxy = 0.375 sin 2p, Sxz = +-0.75 cos p, Syz = +-0.75 sin p (+ for 45 deg).
// The ten-digit pi of the angle conversion moves the program's values from
// these exact-angle ones by about 1e-10, hence the 1e-9 tolerances.
// ---------------------------------------------------------------------------

struct HandCase {
  Settings s;
  Molecule mol;
  Sampling smp;
  HandCase() {
    s.atom_radius = 1.0;
    s.max_obs_dim = 20.0;
    mol.add(3.0, 0.0, 0.0);
    mol.add(0.0, 0.0, 1.0);
    smp = sampling(s, 2, 4, 1);
  }
};

// The five elements of orientation m (1..6) by hand.
std::array<double, 5> hand_elements(int m) {
  const double p = ((m - 1) % 3) * 120.0 * std::acos(-1.0) / 180.0;
  const double sign = m <= 3 ? 1.0 : -1.0;
  return {0.25, 0.75 * std::cos(2 * p), 0.375 * std::sin(2 * p), sign * 0.75 * std::cos(p),
          sign * 0.75 * std::sin(p)};
}

TEST(HandCase, SamplingAndElements) {
  HandCase h;
  ASSERT_EQ(h.smp.o_pts, 6);
  const double thetas[6] = {45, 45, 45, 135, 135, 135};
  const double phis[6] = {0, 120, 240, 0, 120, 240};
  for (int m = 1; m <= 6; ++m) {
    EXPECT_DOUBLE_EQ(h.smp.tables.eulerangle[m][1], thetas[m - 1]);
    EXPECT_DOUBLE_EQ(h.smp.tables.eulerangle[m][2], phis[m - 1]);
    EXPECT_EQ(h.smp.tables.eulerangle[m][3], 0.0);
    const std::array<double, 5> e = hand_elements(m);
    EXPECT_NEAR(h.smp.tables.szz_orient[m], e[0], 1e-9) << m;
    EXPECT_NEAR(h.smp.tables.sxx_yy_orient[m], e[1], 1e-9) << m;
    EXPECT_NEAR(h.smp.tables.sxy_orient[m], e[2], 1e-9) << m;
    EXPECT_NEAR(h.smp.tables.sxz_orient[m], e[3], 1e-9) << m;
    EXPECT_NEAR(h.smp.tables.syz_orient[m], e[4], 1e-9) << m;
  }
  // Sampling bias: only Szz is off zero.
  EXPECT_NEAR(h.smp.saupe_dev[0], 0.25, 1e-9);
  for (int e = 1; e < 5; ++e) {
    EXPECT_NEAR(h.smp.saupe_dev[e], 0.0, 1e-9);
  }
}

TEST(HandCase, ProjectionsOnTheWallNormal) {
  HandCase h;
  const double lowest[6] = {-0.7071, -1.0607, -1.0607, -2.1213, -0.7071, -0.7071};
  const double a1[6] = {2.1213, -1.0607, -1.0607, -2.1213, 1.0607, 1.0607};
  std::vector<float> x_temp(3);
  for (int m = 1; m <= 6; ++m) {
    detail::project_atoms(h.smp.tables.eulerangle[m], 2, h.mol.x, h.mol.y, h.mol.z, x_temp, nullptr,
                          nullptr);
    EXPECT_NEAR(x_temp[1], a1[m - 1], 1e-4) << m;
    EXPECT_NEAR(x_temp[2], -0.7071, 1e-4) << m;
    EXPECT_NEAR(std::min(x_temp[1], x_temp[2]), lowest[m - 1], 1e-4) << m;
  }
}

// Wall positions with thresholds pot_dist = 1 - (x - 20) = -2.5, -1.5, -0.9,
// -0.5: allowed orientations {all}, {all but m4}, {m1, m5, m6}, {}.
const std::vector<double> kWallX = {23.5, 22.5, 21.9, 21.5};
const std::vector<std::vector<int>> kWallAllowed = {
    {1, 2, 3, 4, 5, 6}, {1, 2, 3, 5, 6}, {1, 5, 6}, {}};

// The per-position counts and sums of the wall's allowed states, against
// the elements of the allowed orientations added up by hand.
template <class Sums>
void expect_wall_sums(const Sums& sums) {
  for (int k = 0; k < 4; ++k) {
    EXPECT_EQ(sums.total[k], static_cast<int>(kWallAllowed[k].size())) << k;
    std::array<double, 5> expected{};
    for (const int m : kWallAllowed[k]) {
      const std::array<double, 5> e = hand_elements(m);
      for (int c = 0; c < 5; ++c) {
        expected[c] += e[c];
      }
    }
    for (int c = 0; c < 5; ++c) {
      EXPECT_NEAR(sums.saupe_dis[k][c], expected[c], 1e-9) << k << c;
    }
  }
}

TEST(HandCase, WallPassSumsPerPosition) {
  HandCase h;
  const Grid grid = line_grid(kWallX);
  std::vector<float> x_temp(3);
  std::vector<float> pot_dist(4);
  const detail::PassSums sums = detail::wall_pass_direct(1.0, 20.0, 2, h.mol.x, h.mol.y, h.mol.z, 3,
                                                         6, grid, h.smp.tables, x_temp, pot_dist);
  EXPECT_FLOAT_EQ(pot_dist[0], -2.5f);
  EXPECT_FLOAT_EQ(pot_dist[2], -0.9f);
  ASSERT_EQ(sums.total.size(), 4u);
  expect_wall_sums(sums);
  // By hand: position 1 sums Sxx-Syy to -0.75 and Sxz to 0.75; position 2
  // sums Sxz to 1.5.
  EXPECT_NEAR(sums.saupe_dis[1][1], -0.75, 1e-9);
  EXPECT_NEAR(sums.saupe_dis[1][3], 0.75, 1e-9);
  EXPECT_NEAR(sums.saupe_dis[2][3], 1.5, 1e-9);
}

TEST(HandCase, WallResult) {
  HandCase h;
  const Grid grid = line_grid(kWallX);
  const Grid grid_ph = line_grid({});
  double saupe[5] = {};
  double w[5] = {9, 9, 9, 9, 9};
  simulate_alignment3(h.s, 20.0, 2, 3, 0, h.mol.x, h.mol.y, h.mol.z, 3, 0, 6, grid, grid_ph,
                      h.smp.tables, h.smp.saupe_dev, saupe, w);
  // Means less bias: position 0 zero; position 1 (5 states) Sxx-Syy -0.15,
  // Sxz 0.15; position 2 (3 states) Sxz 0.5. Weighted by states / 6:
  // Sxx-Syy = 5/6 * -0.15 = -0.125, Sxz = 5/6 * 0.15 + 3/6 * 0.5 = 0.375.
  // States: 6 + 5 + 3 + 0 = 14; 14 / 6 = 2 as integers, plus 3 free: 5.
  EXPECT_NEAR(w[0], 0.0, 1e-9);
  EXPECT_NEAR(w[1], -0.025, 1e-9);
  EXPECT_NEAR(w[2], 0.0, 1e-9);
  EXPECT_NEAR(w[3], 0.075, 1e-9);
  EXPECT_NEAR(w[4], 0.0, 1e-9);
  for (int e = 0; e < 5; ++e) {
    EXPECT_EQ(saupe[e], 0.0);  // accepted, not used
  }
}

TEST(HandCase, AllClashPositionChangesNothing) {
  HandCase h;
  const Grid grid_ph = line_grid({});
  double saupe[5] = {};
  double with[5] = {};
  double without[5] = {};
  simulate_alignment3(h.s, 20.0, 2, 3, 0, h.mol.x, h.mol.y, h.mol.z, 3, 0, 6, line_grid(kWallX),
                      grid_ph, h.smp.tables, h.smp.saupe_dev, saupe, with);
  simulate_alignment3(h.s, 20.0, 2, 3, 0, h.mol.x, h.mol.y, h.mol.z, 2, 0, 6,
                      line_grid({23.5, 22.5, 21.9}), grid_ph, h.smp.tables, h.smp.saupe_dev, saupe,
                      without);
  for (int e = 0; e < 5; ++e) {
    EXPECT_EQ(with[e], without[e]) << e;
  }
}

// Cylinder positions (x, 0): the atoms lie at distances sqrt((x_temp + x)^2 +
// y_temp^2) from the axis, y_temp = -3 sin p for a1 and 0 for a2. With radius2
// = 21: x = 23.5 allows all; 22.5 all but m4 (a1 at 20.38); 21.8 only m1,
// m5, m6 (m2, m3: sqrt(20.74^2 + 2.60^2) = 20.90); 21.5 none (a2 at 20.79).
const std::vector<double> kCylX = {23.5, 22.5, 21.8, 21.5};

TEST(HandCase, CylinderPassSumsPerPosition) {
  HandCase h;
  const Grid grid_ph = line_grid(kCylX);
  std::vector<float> xt(3), yt(3), zt(3);
  const detail::PassSums sums = detail::cylinder_pass_direct(21.0, 2, h.mol.x, h.mol.y, h.mol.z, 3,
                                                             6, grid_ph, h.smp.tables, xt, yt, zt);
  expect_wall_sums(sums);
}

TEST(HandCase, PhageResult) {
  HandCase h;
  h.s.liquid_type = 2;
  double saupe[5] = {};
  double w[5] = {};
  simulate_alignment3(h.s, 20.0, 2, 999, 4, h.mol.x, h.mol.y, h.mol.z, 0, 3, 6, line_grid({}),
                      line_grid(kCylX), h.smp.tables, h.smp.saupe_dev, saupe, w);
  // Weighted by states / 6 and by x / 20:
  // Sxx-Syy = 5/6 * -0.15 * 22.5/20 = -0.140625,
  // Sxz = 5/6 * 0.15 * 22.5/20 + 3/6 * 0.5 * 21.8/20 = 0.140625 + 0.2725;
  // divided by the 4 free phage states (the wall's 999 do not enter).
  EXPECT_NEAR(w[0], 0.0, 1e-9);
  EXPECT_NEAR(w[1], -0.140625 / 4, 1e-9);
  EXPECT_NEAR(w[2], 0.0, 1e-9);
  EXPECT_NEAR(w[3], 0.413125 / 4, 1e-9);
  EXPECT_NEAR(w[4], 0.0, 1e-9);
}

TEST(HandCase, CombinedMediumSubtractsTheCylinderTerm) {
  HandCase h;
  h.s.bic_phage = 1.0;
  h.s.molar_ratio = 3.0;
  h.s.order_rel = 0.25;
  double saupe[5] = {};
  double w[5] = {};
  // Cylinder positions 23.5, 22.5, 21.5: 6, 5 and 0 states, two positions
  // in use; the wall has three positions in use.
  simulate_alignment3(h.s, 20.0, 2, 3, 777, h.mol.x, h.mol.y, h.mol.z, 3, 2, 6, line_grid(kWallX),
                      line_grid({23.5, 22.5, 21.5}), h.smp.tables, h.smp.saupe_dev, saupe, w);
  // Cylinder: Sxx-Syy -0.140625, Sxz 0.140625. Wall: -0.125 and 0.375.
  // (1 / (1/3 + 1)) * (wall - (1/3) * (3/2) * 0.25 * cylinder)
  //   = 0.75 * (wall - 0.125 * cylinder), divided by 14 / 6 + 3 = 5.
  EXPECT_NEAR(w[1], 0.75 * (-0.125 + 0.125 * 0.140625) / 5, 1e-9);
  EXPECT_NEAR(w[3], 0.75 * (0.375 - 0.125 * 0.140625) / 5, 1e-9);
  EXPECT_NEAR(w[1], -0.01611328125, 1e-9);
  EXPECT_NEAR(w[3], 0.05361328125, 1e-9);
  EXPECT_NEAR(w[0], 0.0, 1e-9);
  EXPECT_NEAR(w[2], 0.0, 1e-9);
  EXPECT_NEAR(w[4], 0.0, 1e-9);
}

TEST(HandCase, AlmostOneRunsTheWallAlone) {
  HandCase h;
  h.s.bic_phage = 0.9999999;
  double saupe[5] = {};
  double w[5] = {};
  // A cylinder grid index no table can hold: the cylinder pass must not run.
  simulate_alignment3(h.s, 20.0, 2, 3, 0, h.mol.x, h.mol.y, h.mol.z, 3, 5000, 6, line_grid(kWallX),
                      line_grid({}), h.smp.tables, h.smp.saupe_dev, saupe, w);
  EXPECT_NEAR(w[1], -0.025, 1e-9);
  EXPECT_NEAR(w[3], 0.075, 1e-9);
  // Exactly 1.0: both passes, and the oversized cylinder grid is refused.
  h.s.bic_phage = 1.0;
  EXPECT_EQ(fatal_text([&] {
              simulate_alignment3(h.s, 20.0, 2, 3, 0, h.mol.x, h.mol.y, h.mol.z, 3, 5000, 6,
                                  line_grid(kWallX), line_grid({}), h.smp.tables, h.smp.saupe_dev,
                                  saupe, w);
            }),
            run_error("Too many grid points ..."));
}

TEST(HandCase, NoScalingGivesNonFiniteResults) {
  HandCase h;
  h.s.scale_down_ok = 0;
  double saupe[5] = {};
  double w[5] = {};
  simulate_alignment3(h.s, 20.0, 2, 3, 0, h.mol.x, h.mol.y, h.mol.z, 3, 0, 6, line_grid(kWallX),
                      line_grid({}), h.smp.tables, h.smp.saupe_dev, saupe, w);
  for (int e = 0; e < 5; ++e) {
    EXPECT_FALSE(std::isfinite(w[e])) << e;
  }
  EXPECT_TRUE(std::isinf(w[1]));
  EXPECT_LT(w[1], 0.0);
  EXPECT_TRUE(std::isinf(w[3]));
  EXPECT_GT(w[3], 0.0);
}

TEST(Simulate, OtherGridTypeLeavesTheResultAsSet) {
  HandCase h;
  h.s.grid_type = 1;
  double saupe[5] = {};
  double w[5] = {1, 2, 3, 4, 5};
  simulate_alignment3(h.s, 20.0, 2, 3, 0, h.mol.x, h.mol.y, h.mol.z, 3, 0, 0, line_grid(kWallX),
                      line_grid({}), h.smp.tables, h.smp.saupe_dev, saupe, w);
  for (int e = 0; e < 5; ++e) {
    EXPECT_EQ(w[e], e + 1.0);
  }
}

TEST(Simulate, OtherMediumScalesTheResultAsSet) {
  // Neither pass runs and no combination rule applies: the caller's values
  // are divided by 0 / 6 + 2 states.
  HandCase h;
  h.s.liquid_type = 5;
  double saupe[5] = {};
  double w[5] = {1, 2, 3, 4, 5};
  simulate_alignment3(h.s, 20.0, 2, 2, 0, h.mol.x, h.mol.y, h.mol.z, 3, 0, 6, line_grid(kWallX),
                      line_grid({}), h.smp.tables, h.smp.saupe_dev, saupe, w);
  for (int e = 0; e < 5; ++e) {
    EXPECT_EQ(w[e], (e + 1.0) / 2);
  }
}

TEST(Simulate, DivisionsByZeroAreGuarded) {
  HandCase h;
  double saupe[5] = {};
  double w[5] = {};
  EXPECT_EQ(fatal_text([&] {
              simulate_alignment3(h.s, 20.0, 2, 3, 0, h.mol.x, h.mol.y, h.mol.z, 3, 0, 0,
                                  line_grid(kWallX), line_grid({}), h.smp.tables, h.smp.saupe_dev,
                                  saupe, w);
            }),
            run_error("No orientations sampled ..."));
  // Phage alone divides by the free phage states only: no orientations
  // give a not-a-number result, not an error.
  h.s.liquid_type = 2;
  EXPECT_NO_THROW(simulate_alignment3(h.s, 20.0, 2, 3, 4, h.mol.x, h.mol.y, h.mol.z, 0, 3, 0,
                                      line_grid({}), line_grid(kCylX), h.smp.tables,
                                      h.smp.saupe_dev, saupe, w));
  for (int e = 0; e < 5; ++e) {
    EXPECT_TRUE(std::isnan(w[e]));
  }
  // Combined medium with every cylinder position clashing.
  h.s.liquid_type = 1;
  h.s.bic_phage = 1.0;
  EXPECT_EQ(fatal_text([&] {
              simulate_alignment3(h.s, 20.0, 2, 3, 0, h.mol.x, h.mol.y, h.mol.z, 3, 0, 6,
                                  line_grid(kWallX), line_grid({21.5}), h.smp.tables,
                                  h.smp.saupe_dev, saupe, w);
            }),
            run_error("No allowed position in the phage grid ..."));
}

TEST(Simulate, CountsBeyondTheArraysAreRefused) {
  HandCase h;
  double saupe[5] = {};
  double w[5] = {};
  EXPECT_EQ(fatal_text([&] {
              simulate_alignment3(h.s, 20.0, 3, 3, 0, h.mol.x, h.mol.y, h.mol.z, 3, 0, 6,
                                  line_grid(kWallX), line_grid({}), h.smp.tables, h.smp.saupe_dev,
                                  saupe, w);
            }),
            run_error("Too many atoms ..."));
  EXPECT_EQ(fatal_text([&] {
              simulate_alignment3(h.s, 20.0, 2, 3, 0, h.mol.x, h.mol.y, h.mol.z, 1000, 0, 6,
                                  line_grid(kWallX), line_grid({}), h.smp.tables, h.smp.saupe_dev,
                                  saupe, w);
            }),
            run_error("Too many grid points ..."));
  EXPECT_EQ(fatal_text([&] {
              simulate_alignment3(h.s, 20.0, 2, 3, 0, h.mol.x, h.mol.y, h.mol.z, 3, 0, 7,
                                  line_grid(kWallX), line_grid({}), h.smp.tables, h.smp.saupe_dev,
                                  saupe, w);
            }),
            run_error("Too many requested orientations ..."));
}

// ---------------------------------------------------------------------------
// Contact tests
// ---------------------------------------------------------------------------

TEST(Contact, EqualityIsContact) {
  // x_temp = -2 exactly against pot_dist = 1 - (23 - 20) = -2.
  Settings s;
  s.atom_radius = 1.0;
  Molecule mol;
  mol.add(-2.0, 0.0, 0.0);
  const Sampling smp = table(s, {EulerAngle{0.0, 0.0, 0.0, 0.0}});
  std::vector<float> x_temp(2);
  std::vector<float> pot_dist(2);
  const detail::PassSums sums =
      detail::wall_pass_direct(1.0, 20.0, 1, mol.x, mol.y, mol.z, 1, 1, line_grid({23.0, 23.0001}),
                               smp.tables, x_temp, pot_dist);
  EXPECT_EQ(x_temp[1], -2.0f);
  EXPECT_EQ(pot_dist[0], -2.0f);
  EXPECT_EQ(sums.total[0], 0);  // at the threshold: contact
  EXPECT_EQ(sums.total[1], 1);  // just beyond: free

  std::vector<unsigned char> allowed(3, 9);
  const std::vector<float> xt = {0.0f, 1.5f, -0.25f};
  detail::wall_allowed(2, xt, 2, std::vector<float>{-0.25f, -0.2500001f, -1.0f}, allowed);
  EXPECT_EQ(allowed[0], 0);
  EXPECT_EQ(allowed[1], 1);
  EXPECT_EQ(allowed[2], 1);
}

TEST(Contact, CylinderEqualityIsContact) {
  // Atom at (3, 4) from the centre placed at (0, 0): distance 5 = radius2.
  const std::vector<float> xt = {0.0f, 3.0f};
  const std::vector<float> yt = {0.0f, 4.0f};
  Grid grid(kGridSlots, GridPoint{});
  grid[1] = GridPoint{0.0, 1e-6, 0.0, 0.0};
  std::vector<unsigned char> allowed(2, 9);
  detail::cylinder_allowed(1, xt, yt, 1, grid, 5.0, allowed);
  EXPECT_EQ(allowed[0], 0);
  EXPECT_EQ(allowed[1], 1);
}

TEST(Contact, NotANumberIsNoContact) {
  const std::vector<float> xt = {0.0f, std::numeric_limits<float>::quiet_NaN(), 10.0f};
  std::vector<unsigned char> allowed(1, 9);
  detail::wall_allowed(2, xt, 0, std::vector<float>{0.0f}, allowed);
  EXPECT_EQ(allowed[0], 1);
  const std::vector<float> yt = {0.0f, 0.0f, 0.0f};
  Grid grid(kGridSlots, GridPoint{});
  grid[0] = GridPoint{0.0, 30.0, 0.0, 0.0};
  detail::cylinder_allowed(2, xt, yt, 0, grid, 25.0, allowed);
  EXPECT_EQ(allowed[0], 1);

  // Through the whole pass: a NaN atom never blocks an orientation.
  Settings s;
  Molecule mol;
  mol.add(kNaN, 0.0, 0.0);
  const Sampling smp = sampling(s, 3, 6, 3);
  std::vector<float> x_temp(2);
  std::vector<float> pot_dist(1);
  const detail::PassSums sums =
      detail::wall_pass_direct(3.0, 20.0, 1, mol.x, mol.y, mol.z, 0, smp.o_pts, line_grid({0.0}),
                               smp.tables, x_temp, pot_dist);
  EXPECT_EQ(sums.total[0], smp.o_pts);
}

TEST(Contact, PositionWhereEveryOrientationClashes) {
  HandCase h;
  std::vector<float> x_temp(3);
  std::vector<float> pot_dist(1);
  const detail::PassSums sums =
      detail::wall_pass_direct(1.0, 20.0, 2, h.mol.x, h.mol.y, h.mol.z, 0, 6, line_grid({21.5}),
                               h.smp.tables, x_temp, pot_dist);
  EXPECT_EQ(sums.total[0], 0);
  for (int e = 0; e < 5; ++e) {
    EXPECT_EQ(sums.saupe_dis[0][e], 0.0);
  }
  double w[5] = {};
  detail::combine_alignment(h.s, 20.0, 1, 0, 6, line_grid({}), &sums, nullptr, h.smp.saupe_dev, w);
  for (int e = 0; e < 5; ++e) {
    EXPECT_EQ(w[e], 0.0);
  }
  // Not counted as a position in use: the combined medium sees 1 wall
  // position (the first) out of two.
  Settings s = h.s;
  s.bic_phage = 1.0;
  s.molar_ratio = 1.0;
  s.order_rel = 1.0;
  detail::PassSums wall;
  wall.saupe_dis = {{0.0, 0.0, 0.0, 0.0, 0.0}, {1.5, 0.0, 0.0, 0.0, 0.0}};
  wall.total = {0, 6};
  detail::PassSums cyl;
  cyl.saupe_dis = {{7.5, 0.0, 0.0, 0.0, 0.0}};
  cyl.total = {6};
  const double dev[5] = {0.25, 0.0, 0.0, 0.0, 0.0};
  const Grid grid_ph = line_grid({20.0});
  detail::combine_alignment(s, 20.0, 0, 0, 6, grid_ph, &wall, &cyl, dev, w);
  // Wall: the used position averages 1.5 / 6 = 0.25, the bias: term 0.
  // Cylinder: 7.5 / 6 - 0.25 = 1, weight 6/6 * 20/20: term 1.
  // 1 / (1/1 + 1) * (0 - (1/1) * (1 used wall position / 1) * 1 * 1) = -0.5,
  // divided by 6 / 6 + 0 states. Counting the clashing position would give -1.
  EXPECT_DOUBLE_EQ(w[0], -0.5);
}

// ---------------------------------------------------------------------------
// Projections
// ---------------------------------------------------------------------------

using Mat = std::array<std::array<double, 3>, 3>;

Mat euler_matrix(double t, double p, double q) {
  // R = Rz(psi) Ry(theta) Rz(phi), written out by hand.
  const double ct = std::cos(t), st = std::sin(t), cp = std::cos(p), sp = std::sin(p),
               cq = std::cos(q), sq = std::sin(q);
  Mat r{};
  r[0] = {cq * ct * cp - sq * sp, cq * ct * sp + sq * cp, -cq * st};
  r[1] = {-sq * ct * cp - cq * sp, -sq * ct * sp + cq * cp, sq * st};
  r[2] = {st * cp, st * sp, ct};
  return r;
}

TEST(Projection, AtomsTurnedByTheOrientationWithSinglePrecisionPartialSums) {
  // Large coordinates that nearly cancel make the single-precision partial
  // sums differ from the rounded double sum by whole units, far above the
  // round-off of the rotation itself.
  Molecule mol;
  mol.add(16777215.3, -16777213.9, 12345.6);
  mol.add(-8388607.7, 8388609.1, -4194303.3);
  const EulerAngle angle{0.0, 30.0, 40.0, 50.0};
  const Mat r = euler_matrix(30.0 * kPi / 180, 40.0 * kPi / 180, 50.0 * kPi / 180);
  std::vector<float> xt(3), yt(3), zt(3);
  detail::project_atoms(angle, 2, mol.x, mol.y, mol.z, xt, &yt, &zt);
  std::vector<float>* out[3] = {&xt, &yt, &zt};
  int differs = 0;
  for (int row = 0; row < 3; ++row) {
    for (int i = 1; i <= 2; ++i) {
      // Rotated atom R a, component by component, each partial sum in float.
      float sum = 0.0f;
      sum = static_cast<float>(sum + r[row][0] * mol.x[i]);
      sum = static_cast<float>(sum + r[row][1] * mol.y[i]);
      sum = static_cast<float>(sum + r[row][2] * mol.z[i]);
      EXPECT_EQ((*out[row])[i], sum) << row << " " << i;
      const float rounded_once =
          static_cast<float>(r[row][0] * mol.x[i] + r[row][1] * mol.y[i] + r[row][2] * mol.z[i]);
      if (rounded_once != sum) {
        ++differs;
      }
    }
  }
  EXPECT_GT(differs, 0);  // the case does tell the two roundings apart
}

TEST(Projection, WithoutYAndZOnlyXIsWritten) {
  Molecule mol;
  mol.add(1.0, 2.0, 3.0);
  std::vector<float> xt(2, 99.0f);
  detail::project_atoms(EulerAngle{0.0, 0.0, 0.0, 0.0}, 1, mol.x, mol.y, mol.z, xt, nullptr,
                        nullptr);
  EXPECT_EQ(xt[1], 1.0f);
  EXPECT_EQ(xt[0], 99.0f);
}

TEST(Projection, ThresholdsInSinglePrecision) {
  std::vector<float> pot_dist(2);
  detail::wall_thresholds(3.0, 20.0, 1, line_grid({23.1, 40.7}), pot_dist);
  EXPECT_EQ(pot_dist[0], static_cast<float>(3.0 - (23.1 - 20.0)));
  EXPECT_EQ(pot_dist[1], static_cast<float>(3.0 - (40.7 - 20.0)));
}

}  // namespace
}  // namespace vorn
