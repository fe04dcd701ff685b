// Physical checks of the steric simulation that do not rely on the code's own
// numbers: symmetry, covariance under rotation, limiting shapes.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "capture.hpp"
#include "simulation/frame.hpp"
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
using Mat = std::array<std::array<double, 3>, 3>;
using Vec = std::array<double, 3>;

// ---------------------------------------------------------------------------
// Small independent tools: molecule, PDB heavy atoms, symmetric eigensolver.
// ---------------------------------------------------------------------------

struct Molecule {
  std::vector<double> x{0.0}, y{0.0}, z{0.0}, mass{0.0};
  void add(double xi, double yi, double zi) {
    x.push_back(xi);
    y.push_back(yi);
    z.push_back(zi);
    mass.push_back(12.0);
  }
  int count() const { return static_cast<int>(x.size()) - 1; }
};

// Heavy atoms of the ATOM records: "ATOM serial name resname resnum x y z";
// hydrogens are the names that start with H (or a digit and H).
Molecule read_heavy_atoms(const std::string& path) {
  Molecule mol;
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    std::string record, name, residue;
    int serial = 0, resnum = 0;
    double x = 0, y = 0, z = 0;
    if (!(fields >> record >> serial >> name >> residue >> resnum >> x >> y >> z)) {
      continue;
    }
    if (record != "ATOM") {
      continue;
    }
    const char first = name[0];
    const bool hydrogen =
        first == 'H' || (std::isdigit(first) && name.size() > 1 && name[1] == 'H');
    if (!hydrogen) {
      mol.add(x, y, z);
    }
  }
  return mol;
}

Mat matmul(const Mat& a, const Mat& b) {
  Mat c{};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      for (int k = 0; k < 3; ++k) {
        c[i][j] += a[i][k] * b[k][j];
      }
    }
  }
  return c;
}

Mat transpose(const Mat& a) {
  Mat t{};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      t[i][j] = a[j][i];
    }
  }
  return t;
}

// Active rotation about a unit axis by an angle (right hand).
Mat axis_rotation(Vec axis, double angle) {
  const double n = std::sqrt(axis[0] * axis[0] + axis[1] * axis[1] + axis[2] * axis[2]);
  for (double& a : axis) {
    a /= n;
  }
  const double c = std::cos(angle), s = std::sin(angle), t = 1 - c;
  const double x = axis[0], y = axis[1], z = axis[2];
  return Mat{{{t * x * x + c, t * x * y - s * z, t * x * z + s * y},
              {t * x * y + s * z, t * y * y + c, t * y * z - s * x},
              {t * x * z - s * y, t * y * z + s * x, t * z * z + c}}};
}

Molecule rotated(const Molecule& mol, const Mat& q) {
  Molecule r;
  for (int i = 1; i <= mol.count(); ++i) {
    const Vec a{mol.x[i], mol.y[i], mol.z[i]};
    r.add(q[0][0] * a[0] + q[0][1] * a[1] + q[0][2] * a[2],
          q[1][0] * a[0] + q[1][1] * a[1] + q[1][2] * a[2],
          q[2][0] * a[0] + q[2][1] * a[1] + q[2][2] * a[2]);
  }
  return r;
}

// The full symmetric order matrix of the five elements (Szz, Sxx-Syy, Sxy,
// Sxz, Syz), traceless.
Mat full_matrix(const std::array<double, 5>& s) {
  const double xx = -0.5 * (s[0] - s[1]);
  const double yy = -0.5 * (s[0] + s[1]);
  return Mat{{{xx, s[2], s[3]}, {s[2], yy, s[4]}, {s[3], s[4], s[0]}}};
}

struct Eigen {
  std::array<double, 3> value;  // ordered by decreasing magnitude: Azz, Ayy, Axx
  std::array<Vec, 3> vector;    // unit eigenvectors in the same order
  double da() const { return value[0] / 2; }
  double rhombicity() const { return ((value[2] - value[1]) / 3) / da(); }
};

// Cyclic Jacobi rotations for a real symmetric 3x3 matrix.
Eigen eigen(Mat a) {
  Mat v{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
  for (int sweep = 0; sweep < 100; ++sweep) {
    const double off = std::fabs(a[0][1]) + std::fabs(a[0][2]) + std::fabs(a[1][2]);
    if (off < 1e-300) {
      break;
    }
    for (int p = 0; p < 2; ++p) {
      for (int q = p + 1; q < 3; ++q) {
        if (a[p][q] == 0.0) {
          continue;
        }
        const double theta = (a[q][q] - a[p][p]) / (2 * a[p][q]);
        const double t =
            (theta >= 0 ? 1.0 : -1.0) / (std::fabs(theta) + std::sqrt(theta * theta + 1));
        const double c = 1 / std::sqrt(t * t + 1), s = t * c;
        for (int k = 0; k < 3; ++k) {  // A <- A J
          const double akp = a[k][p], akq = a[k][q];
          a[k][p] = c * akp - s * akq;
          a[k][q] = s * akp + c * akq;
        }
        for (int k = 0; k < 3; ++k) {  // A <- J^T A
          const double apk = a[p][k], aqk = a[q][k];
          a[p][k] = c * apk - s * aqk;
          a[q][k] = s * apk + c * aqk;
        }
        for (int k = 0; k < 3; ++k) {  // V <- V J
          const double vkp = v[k][p], vkq = v[k][q];
          v[k][p] = c * vkp - s * vkq;
          v[k][q] = s * vkp + c * vkq;
        }
      }
    }
  }
  std::array<int, 3> order{0, 1, 2};
  std::sort(order.begin(), order.end(),
            [&](int i, int j) { return std::fabs(a[i][i]) > std::fabs(a[j][j]); });
  Eigen e{};
  for (int r = 0; r < 3; ++r) {
    e.value[r] = a[order[r]][order[r]];
    for (int k = 0; k < 3; ++k) {
      e.vector[r][k] = v[k][order[r]];
    }
  }
  return e;
}

// Angle in degrees between two axes (directions without sign).
double axis_angle(const Vec& a, const Vec& b) {
  const double dot = std::fabs(a[0] * b[0] + a[1] * b[1] + a[2] * b[2]);
  return std::acos(std::min(1.0, dot)) * 180.0 / std::acos(-1.0);
}

Vec apply(const Mat& q, const Vec& v) {
  return Vec{q[0][0] * v[0] + q[0][1] * v[1] + q[0][2] * v[2],
             q[1][0] * v[0] + q[1][1] * v[1] + q[1][2] * v[2],
             q[2][0] * v[0] + q[2][1] * v[1] + q[2][2] * v[2]};
}

TEST(TestTools, JacobiSolvesAKnownMatrix) {
  // Eigenvalues 3, -2, -1 on axes rotated by a known rotation.
  const Mat q = axis_rotation({1, 2, 3}, 0.7);
  const Mat d{{{-1, 0, 0}, {0, -2, 0}, {0, 0, 3}}};
  const Eigen e = eigen(matmul(q, matmul(d, transpose(q))));
  EXPECT_NEAR(e.value[0], 3.0, 1e-12);
  EXPECT_NEAR(e.value[1], -2.0, 1e-12);
  EXPECT_NEAR(e.value[2], -1.0, 1e-12);
  EXPECT_LT(axis_angle(e.vector[0], apply(q, {0, 0, 1})), 1e-6);
  EXPECT_LT(axis_angle(e.vector[1], apply(q, {0, 1, 0})), 1e-6);
  EXPECT_NEAR(e.rhombicity(), ((-1.0 + 2.0) / 3) / 1.5, 1e-12);
}

// ---------------------------------------------------------------------------
// The run sequence in miniature: frame, grid, sampling, simulation.
// ---------------------------------------------------------------------------

// Medium parameters of a bicelle or phage sample, from the lipid
// composition (free short-chain lipid 5 mM; molar masses 677.94, 453.51).
void medium(Settings& s) {
  const double pi = 3.141592654;
  const double mol_DHPC = s.concentration * 1000 / (s.molar_ratio * 677.94 + 453.51);
  const double mol_DMPC = s.molar_ratio * mol_DHPC;
  const double ratio = mol_DMPC / (mol_DHPC - 0.005);
  const double wv_bic = (mol_DMPC * 677.94 + (mol_DHPC - 0.005) * 453.51) / 1000;
  const double pi2 = 9.869604403666765;
  const double radius = (std::sqrt(8.0 / ratio + pi2) + pi) * (s.max_obs_dim * 0.5 * ratio);
  s.step_out_length = s.max_obs_dim / wv_bic;
  s.order_rel = (pi * radius) / (4.0 * (pi * radius + 2 * s.max_obs_dim));
  s.molar_ratio = ratio;
}

Settings bicelle() {
  Settings s;
  s.liquid_type = 1;
  s.max_obs_dim = 20.0;
  s.concentration = 0.05;
  medium(s);
  return s;
}

Settings phage() {
  Settings s;
  s.liquid_type = 2;
  s.max_obs_dim = 30.0;
  s.concentration = 0.05;
  medium(s);
  return s;
}

struct Sampled {
  OrientationTables tables;
  int o_pts = 0;
  double saupe_dev[5] = {};
};

const Sampled& sampled(int dt, int dp, int ds) {
  static std::map<std::tuple<int, int, int>, Sampled> cache;
  const auto key = std::make_tuple(dt, dp, ds);
  auto it = cache.find(key);
  if (it == cache.end()) {
    Sampled smp;
    const Settings s;
    const Log log;  // the listings are not looked at
    smp.o_pts = grid_orientation_sampling(s, dt, dp, ds, smp.tables.eulerangle, log);
    setup_lists(s, smp.o_pts, smp.tables, log);
    check_Saupe_uniformity(s, smp.o_pts, smp.tables, smp.saupe_dev, log);
    it = cache.emplace(key, std::move(smp)).first;
  }
  return it->second;
}

std::array<double, 5> predict(const Settings& s, Molecule mol, int dt = 9, int dp = 18, int ds = 18,
                              bool centre = true) {
  const int n = mol.count();
  if (centre) {
    double c[4] = {};
    calculate_center_mass(n, mol.x, mol.y, mol.z, mol.mass, c);
    shift_coordinate_system(c, n, mol.x, mol.y, mol.z);
  }
  double max_r = 0.0, min_r = 0.0;
  calculate_extreme_length(n, mol.x, mol.y, mol.z, max_r, min_r);
  Grid grid(kGridSlots, GridPoint{});
  Grid grid_ph(kGridSlots, GridPoint{});
  int no_pt_ph = 0;
  double fd = 0.0, fd_ph = 0.0;
  const Log log;  // the listings are not looked at
  const int t_pts = setup_model(s, s.concentration, s.ellipticity, min_r + s.atom_radius,
                                max_r + s.atom_radius, s.max_obs_dim, s.liquid_type, s.grid_type,
                                s.grid_spacing, grid, no_pt_ph, grid_ph, fd, fd_ph, log);
  const Sampled& smp = sampled(dt, dp, ds);
  int no_free = 0, no_ph_free = 0;
  calculate_scaling(s, smp.o_pts, fd, fd_ph, s.max_obs_dim, no_free, no_ph_free);
  double saupe[5] = {};
  std::array<double, 5> w{};
  simulate_alignment3(s, s.max_obs_dim, n, no_free, no_ph_free, mol.x, mol.y, mol.z, t_pts,
                      no_pt_ph, smp.o_pts, grid, grid_ph, smp.tables, smp.saupe_dev, saupe,
                      w.data());
  return w;
}

const Molecule& ubiquitin() {
  static const Molecule mol = read_heavy_atoms(test::data_path("structures/ubq_1d3z_m1.pdb"));
  return mol;
}

double max_abs(const Mat& m) {
  double r = 0.0;
  for (const auto& row : m) {
    for (double v : row) {
      r = std::max(r, std::fabs(v));
    }
  }
  return r;
}

// ---------------------------------------------------------------------------

TEST(Physics, UbiquitinHasItsHeavyAtoms) { EXPECT_EQ(ubiquitin().count(), 602); }

TEST(Physics, SphereAveragesToTheSamplingBias) {
  // A single atom at the centre: every orientation is equally allowed at a
  // position, so the allowed average is the sampling's own mean, and the
  // result is zero once that bias is taken off.
  Molecule atom;
  atom.add(0.0, 0.0, 0.0);
  const Sampled& smp = sampled(9, 18, 18);
  // Wall at 20 A, radius 3: contact for centre positions up to 23 A.
  const std::vector<double> xs = {22.0, 23.0, 23.5, 30.0};
  Grid grid(kGridSlots, GridPoint{});
  for (size_t k = 0; k < xs.size(); ++k) {
    grid[k][1] = xs[k];
  }
  std::vector<float> x_temp(2), pot_dist(4);
  const detail::PassSums sums = detail::wall_pass_direct(
      3.0, 20.0, 1, atom.x, atom.y, atom.z, 3, smp.o_pts, grid, smp.tables, x_temp, pot_dist);
  EXPECT_EQ(sums.total[0], 0);
  EXPECT_EQ(sums.total[1], 0);  // touching the wall counts as contact
  for (int k = 2; k < 4; ++k) {
    ASSERT_EQ(sums.total[k], smp.o_pts);
    for (int e = 0; e < 5; ++e) {
      EXPECT_EQ(sums.saupe_dis[k][e] / smp.o_pts, smp.saupe_dev[e]);
    }
  }
  Settings s = bicelle();
  s.atom_radius = 3.0;
  for (const int liquid : {1, 2}) {
    s.liquid_type = liquid;
    double saupe[5] = {};
    double w[5] = {1, 1, 1, 1, 1};
    simulate_alignment3(s, 20.0, 1, 10, 10, atom.x, atom.y, atom.z, 3, 3, smp.o_pts, grid, grid,
                        smp.tables, smp.saupe_dev, saupe, w);
    for (int e = 0; e < 5; ++e) {
      EXPECT_EQ(w[e], 0.0) << liquid << " " << e;
    }
  }
  // Through the whole sequence (a single grid point that touches).
  for (const Settings& medium_settings : {bicelle(), phage()}) {
    Molecule off_centre;
    off_centre.add(4.0, -7.0, 1.5);
    const std::array<double, 5> w = predict(medium_settings, off_centre);
    for (int e = 0; e < 5; ++e) {
      EXPECT_EQ(w[e], 0.0);
    }
  }
}

// The order matrix of the molecule turned by q is q S q^T; for turns that map
// the frame axes onto each other the sampling differs only by the grid.
void expect_covariant(const Settings& s, const Mat& q, double tolerance, int dt, int dp, int ds) {
  const std::array<double, 5> w0 = predict(s, ubiquitin(), dt, dp, ds);
  const std::array<double, 5> w1 = predict(s, rotated(ubiquitin(), q), dt, dp, ds);
  const Mat expected = matmul(q, matmul(full_matrix(w0), transpose(q)));
  const Mat got = full_matrix(w1);
  const double scale = max_abs(expected);
  ASSERT_GT(scale, 1e-5);
  double worst = 0.0;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      EXPECT_NEAR(got[i][j], expected[i][j], tolerance * scale) << i << j;
      worst = std::max(worst, std::fabs(got[i][j] - expected[i][j]) / scale);
    }
  }
  std::printf("quarter turn: worst relative deviation %.4f\n", worst);
}

TEST(Physics, QuarterTurnsPermuteTheTensor) {
  const Mat about_z{{{0, -1, 0}, {1, 0, 0}, {0, 0, 1}}};  // x -> y, y -> -x
  const Mat about_x{{{1, 0, 0}, {0, 0, -1}, {0, 1, 0}}};  // y -> z, z -> -y
  const Mat about_y{{{0, 0, 1}, {0, 1, 0}, {-1, 0, 0}}};  // z -> x, x -> -z
  for (const Settings& s : {bicelle(), phage()}) {
    expect_covariant(s, about_z, 0.08, 9, 18, 18);
    expect_covariant(s, about_x, 0.08, 9, 18, 18);
    expect_covariant(s, about_y, 0.08, 9, 18, 18);
  }
}

TEST(Physics, RodIsAxiallySymmetricAlongItsAxis) {
  for (int axis = 0; axis < 3; ++axis) {
    Molecule rod;
    for (int i = -10; i <= 10; ++i) {
      Vec p{0.0, 0.0, 0.0};
      p[axis] = 1.5 * i;
      rod.add(p[0], p[1], p[2]);
    }
    Vec direction{0.0, 0.0, 0.0};
    direction[axis] = 1.0;
    double sign[2] = {};
    int m = 0;
    for (const Settings& s : {bicelle(), phage()}) {
      const Eigen e = eigen(full_matrix(predict(s, rod)));
      EXPECT_LT(axis_angle(e.vector[0], direction), 2.0) << axis;
      EXPECT_LT(std::fabs(e.rhombicity()), 0.05) << axis;
      sign[m++] = e.value[0];
    }
    // A rod lies along the wall's plane and along the cylinder: the same sign.
    EXPECT_GT(sign[0], 0.0);
    EXPECT_GT(sign[1], 0.0);
  }
}

TEST(Physics, AtomOrderDoesNotMatter) {
  Molecule mol = ubiquitin();
  double c[4] = {};
  calculate_center_mass(mol.count(), mol.x, mol.y, mol.z, mol.mass, c);
  shift_coordinate_system(c, mol.count(), mol.x, mol.y, mol.z);
  std::vector<int> order(mol.count());
  for (int i = 0; i < mol.count(); ++i) {
    order[i] = i + 1;
  }
  std::mt19937 rng(12345);
  std::shuffle(order.begin(), order.end(), rng);
  Molecule shuffled;
  for (const int i : order) {
    shuffled.add(mol.x[i], mol.y[i], mol.z[i]);
  }
  for (const Settings& s : {bicelle(), phage()}) {
    const std::array<double, 5> a = predict(s, mol, 9, 18, 18, false);
    const std::array<double, 5> b = predict(s, shuffled, 9, 18, 18, false);
    for (int e = 0; e < 5; ++e) {
      EXPECT_EQ(a[e], b[e]) << e;
    }
    EXPECT_NE(a[0], 0.0);
  }
}

TEST(Physics, RigidRotationTurnsThePrediction) {
  const Mat q = matmul(axis_rotation({0.3, -0.5, 0.8}, 1.234), axis_rotation({1, 0, 0}, 0.4));
  for (const Settings& s : {bicelle(), phage()}) {
    const Eigen e0 = eigen(full_matrix(predict(s, ubiquitin(), 9, 18, 18)));
    const Eigen e1 = eigen(full_matrix(predict(s, rotated(ubiquitin(), q), 9, 18, 18)));
    std::printf("Da %g %g  R %g %g  axes %g %g %g\n", e0.da(), e1.da(), e0.rhombicity(),
                e1.rhombicity(), axis_angle(e1.vector[0], apply(q, e0.vector[0])),
                axis_angle(e1.vector[1], apply(q, e0.vector[1])),
                axis_angle(e1.vector[2], apply(q, e0.vector[2])));
    EXPECT_NEAR(e1.da(), e0.da(), 0.02 * std::fabs(e0.da()));
    EXPECT_NEAR(e1.rhombicity(), e0.rhombicity(), 0.03);
    EXPECT_LT(axis_angle(e1.vector[0], apply(q, e0.vector[0])), 3.0);
    EXPECT_LT(axis_angle(e1.vector[1], apply(q, e0.vector[1])), 5.0);
    EXPECT_LT(axis_angle(e1.vector[2], apply(q, e0.vector[2])), 5.0);
  }
}

// The X-ray structure of ubiquitin (602 heavy atoms), bicelle at 0.05 g/ml,
// atom radius 2.5 A, grid spacing 1.0 A, DIGIT (12, 24, 24), scaled by the
// order parameter 0.8: the order matrix as printed ("%e") by an independent
// implementation of the same rules.
TEST(Physics, MatchesAnIndependentImplementation) {
  Settings s;
  s.atom_radius = 2.5;
  s.grid_spacing = 1.0;
  medium(s);
  const Molecule xray = read_heavy_atoms(test::data_path("structures/ubq_1ubq_xray.pdb"));
  ASSERT_EQ(xray.count(), 602);
  const std::array<double, 5> w = predict(s, xray, 12, 24, 24);
  const Mat m = full_matrix({w[0] * 0.8, w[1] * 0.8, w[2] * 0.8, w[3] * 0.8, w[4] * 0.8});
  const char* expected[3][3] = {{"-1.943278e-04", "3.325749e-04", "7.181710e-04"},
                                {"3.325749e-04", "-2.617957e-04", "4.394025e-04"},
                                {"7.181710e-04", "4.394025e-04", "4.561235e-04"}};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      char printed[32];
      std::snprintf(printed, sizeof printed, "%e", m[i][j]);
      EXPECT_STREQ(printed, expected[i][j]) << i << j;
    }
  }
}

// Not a check: reports how long the direct simulation takes on ubiquitin
// with the default sampling (1872 orientations, 0.5 A grid).
TEST(Physics, TimingOfUbiquitinDefaults) {
  sampled(9, 18, 18);
  for (const Settings& medium_settings : {bicelle(), phage()}) {
    Settings s = medium_settings;
    for (const double radius : {3.0, 1.4}) {
      s.atom_radius = radius;
      const auto start = std::chrono::steady_clock::now();
      const std::array<double, 5> w = predict(s, ubiquitin());
      const double seconds =
          std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
      std::printf("medium %d, %d heavy atoms, atom radius %.1f: %.3f s (Szz %.6g)\n", s.liquid_type,
                  ubiquitin().count(), radius, seconds, w[0]);
      EXPECT_NE(w[0], 0.0);
    }
  }
}

}  // namespace
}  // namespace vorn
