// The fast simulation against the direct one: every per-position sum and
// count, and the final result, must be the same bits, for every input and
// every thread count. Plus the helpers the fast form rests on.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "capture.hpp"
#include "simulation/grid.hpp"
#include "simulation/orientation.hpp"
#include "simulation/predict.hpp"
#include "simulation/predict_direct.hpp"
#include "simulation/predict_fast.hpp"
#include "vorn/settings.hpp"

namespace vorn {
namespace {

using detail::PassSums;
// Grid points the classic program stores (indices 0..999); the engine's
// grids have no fixed size.
constexpr int kGridSlots = 1000;

constexpr double kPi = 3.141592654;
const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();
const int kThreadCounts[] = {1, 2, 3, 8};

struct Molecule {
  std::vector<double> x{0.0}, y{0.0}, z{0.0};
  void add(double xi, double yi, double zi) {
    x.push_back(xi);
    y.push_back(yi);
    z.push_back(zi);
  }
  int count() const { return static_cast<int>(x.size()) - 1; }
};

// Atoms spread through an ellipsoid with half-axes a, b, c, centred.
Molecule random_molecule(std::mt19937_64& rng, int n, double a, double b, double c) {
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  Molecule mol;
  while (mol.count() < n) {
    const double p = u(rng), q = u(rng), r = u(rng);
    if (p * p + q * q + r * r > 1.0) continue;
    mol.add(a * p, b * q, c * r);
  }
  return mol;
}

// Heavy atoms of the ATOM records, centred on their mean.
Molecule read_heavy_atoms(const std::string& path) {
  Molecule mol;
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    std::string record, name, residue;
    int serial = 0, resnum = 0;
    double x = 0, y = 0, z = 0;
    if (!(fields >> record >> serial >> name >> residue >> resnum >> x >> y >> z)) continue;
    if (record != "ATOM") continue;
    if (name[0] == 'H' || (std::isdigit(static_cast<unsigned char>(name[0])) && name[1] == 'H')) {
      continue;
    }
    mol.add(x, y, z);
  }
  double c[3] = {};
  for (int i = 1; i <= mol.count(); ++i) {
    c[0] += mol.x[i];
    c[1] += mol.y[i];
    c[2] += mol.z[i];
  }
  for (int i = 1; i <= mol.count(); ++i) {
    mol.x[i] -= c[0] / mol.count();
    mol.y[i] -= c[1] / mol.count();
    mol.z[i] -= c[2] / mol.count();
  }
  return mol;
}

Grid line_grid(const std::vector<double>& xs, double y = 0.0) {
  Grid grid(kGridSlots, GridPoint{});
  for (size_t k = 0; k < xs.size(); ++k) grid[k] = GridPoint{0.0, xs[k], y, 0.0};
  return grid;
}

// Points d0 + i * spacing, i = 0..last, as the grid setup makes them.
std::vector<double> positions(double d0, double spacing, int last) {
  std::vector<double> xs;
  for (int i = 0; i <= last; ++i) xs.push_back(d0 + i * spacing);
  return xs;
}

struct Sampling {
  OrientationTables tables;
  int o_pts = 0;
  double saupe_dev[5] = {};
};

Sampling sampling(int dt, int dp, int ds) {
  Settings s;
  Sampling r;
  const Log log;  // the listings are not looked at
  r.o_pts = grid_orientation_sampling(s, dt, dp, ds, r.tables.eulerangle, log);
  setup_lists(s, r.o_pts, r.tables, log);
  check_Saupe_uniformity(s, r.o_pts, r.tables, r.saupe_dev, log);
  return r;
}

// Orientations at arbitrary angles (not on any sampling grid).
Sampling random_angles(std::mt19937_64& rng, int n) {
  std::uniform_real_distribution<double> theta(0.0, 180.0), turn(0.0, 360.0);
  Settings s;
  Sampling r;
  r.tables.eulerangle = {EulerAngle{}};
  for (int m = 0; m < n; ++m) {
    r.tables.eulerangle.push_back(EulerAngle{0.0, theta(rng), turn(rng), turn(rng)});
  }
  r.o_pts = n;
  const Log log;  // the listings are not looked at
  setup_lists(s, r.o_pts, r.tables, log);
  check_Saupe_uniformity(s, r.o_pts, r.tables, r.saupe_dev, log);
  return r;
}

// The tables with the frame axes of every orientation stored, as a
// prediction context keeps them.
OrientationTables tables_with_frame_axes(const Sampling& smp) {
  OrientationTables tables = smp.tables;
  detail::fill_frame_axes(tables, smp.o_pts);
  return tables;
}

// Byte for byte, deliberately: -0.0 and 0.0 differ, and so would two NaNs
// of different payload.
bool same_bytes(const void* a, const void* b, size_t bytes) {
  return std::memcmp(a, b, bytes) == 0;  // NOLINT(bugprone-suspicious-memory-comparison)
}

bool same_bits(const PassSums& a, const PassSums& b) {
  return a.saupe_dis.size() == b.saupe_dis.size() && a.total.size() == b.total.size() &&
         same_bytes(a.saupe_dis.data(), b.saupe_dis.data(),
                    a.saupe_dis.size() * sizeof(a.saupe_dis[0])) &&
         same_bytes(a.total.data(), b.total.data(), a.total.size() * sizeof(int));
}

// Number of (position, orientation) states allowed: a check that a case
// is not trivially all-allowed or all-clashing.
long long states(const PassSums& sums) {
  long long n = 0;
  for (const int t : sums.total) n += t;
  return n;
}

// The wall pass, direct and fast with every thread count, compared bitwise;
// returns the direct sums.
PassSums check_wall(const Molecule& mol, double radius, double max_obstruction, int t_pts,
                    const Grid& grid, const Sampling& smp, const std::string& what) {
  std::vector<float> x_temp(mol.count() + 1), pot_direct(t_pts + 1), pot_fast(t_pts + 1);
  PassSums direct =
      detail::wall_pass_direct(radius, max_obstruction, mol.count(), mol.x, mol.y, mol.z, t_pts,
                               smp.o_pts, grid, smp.tables, x_temp, pot_direct);
  const OrientationTables with_axes = tables_with_frame_axes(smp);
  for (const OrientationTables* tables : {&smp.tables, &with_axes}) {
    for (const int threads : kThreadCounts) {
      const PassSums fast =
          detail::wall_pass_fast(radius, max_obstruction, mol.count(), mol.x, mol.y, mol.z, t_pts,
                                 smp.o_pts, grid, *tables, pot_fast, threads);
      EXPECT_TRUE(same_bits(direct, fast))
          << what << ", " << threads << " threads, stored axes " << (tables == &with_axes);
      EXPECT_TRUE(same_bytes(pot_direct.data(), pot_fast.data(), pot_fast.size() * sizeof(float)))
          << what;
    }
  }
  return direct;
}

PassSums check_cylinder(const Molecule& mol, double radius2, int no_pt_ph, const Grid& grid_ph,
                        const Sampling& smp, const std::string& what) {
  std::vector<float> xt(mol.count() + 1), yt(mol.count() + 1), zt(mol.count() + 1);
  PassSums direct =
      detail::cylinder_pass_direct(radius2, mol.count(), mol.x, mol.y, mol.z, no_pt_ph, smp.o_pts,
                                   grid_ph, smp.tables, xt, yt, zt);
  const OrientationTables with_axes = tables_with_frame_axes(smp);
  for (const OrientationTables* tables : {&smp.tables, &with_axes}) {
    for (const int threads : kThreadCounts) {
      const PassSums fast =
          detail::cylinder_pass_fast(radius2, mol.count(), mol.x, mol.y, mol.z, no_pt_ph, smp.o_pts,
                                     grid_ph, *tables, threads);
      EXPECT_TRUE(same_bits(direct, fast))
          << what << ", " << threads << " threads, stored axes " << (tables == &with_axes);
    }
  }
  return direct;
}

// The whole simulation, direct and fast, compared bitwise on the result.
void check_simulation(const Settings& s, const Molecule& mol, int t_pts, int no_pt_ph,
                      const Grid& grid, const Grid& grid_ph, const Sampling& smp,
                      const std::string& what) {
  double saupe[5] = {};
  double direct[5] = {-1, -2, -3, -4, -5};
  detail::simulate_alignment3_direct(s, s.max_obs_dim, mol.count(), 7, 11, mol.x, mol.y, mol.z,
                                     t_pts, no_pt_ph, smp.o_pts, grid, grid_ph, smp.tables,
                                     smp.saupe_dev, saupe, direct);
  const OrientationTables with_axes = tables_with_frame_axes(smp);
  for (const OrientationTables* tables : {&smp.tables, &with_axes}) {
    for (const int threads : kThreadCounts) {
      double fast[5] = {-1, -2, -3, -4, -5};
      detail::simulate_alignment3_fast(s, s.max_obs_dim, mol.count(), 7, 11, mol.x, mol.y, mol.z,
                                       t_pts, no_pt_ph, smp.o_pts, grid, grid_ph, *tables,
                                       smp.saupe_dev, saupe, fast, threads);
      EXPECT_TRUE(same_bytes(direct, fast, sizeof direct))
          << what << ", " << threads << " threads, stored axes " << (tables == &with_axes);
    }
  }
  // The public entry takes the fast form and the thread count from the
  // environment.
  double entry[5] = {-1, -2, -3, -4, -5};
  simulate_alignment3(s, s.max_obs_dim, mol.count(), 7, 11, mol.x, mol.y, mol.z, t_pts, no_pt_ph,
                      smp.o_pts, grid, grid_ph, smp.tables, smp.saupe_dev, saupe, entry);
  EXPECT_TRUE(same_bytes(direct, entry, sizeof direct)) << what;
}

// The grid a run would build for this molecule: from min + radius to
// max + radius beyond the obstacle surface.
struct RunGrid {
  int last = 0;
  Grid grid;
};

RunGrid run_grid(const Molecule& mol, double radius, double max_obstruction, double spacing) {
  double lo = kInf, hi = 0.0;
  for (int i = 1; i <= mol.count(); ++i) {
    const double d = std::sqrt(mol.x[i] * mol.x[i] + mol.y[i] * mol.y[i] + mol.z[i] * mol.z[i]);
    lo = std::min(lo, d);
    hi = std::max(hi, d);
  }
  RunGrid g;
  g.last = static_cast<int>((hi - lo) / spacing);
  g.grid = line_grid(positions(lo + radius + max_obstruction, spacing, g.last));
  return g;
}

// ---------------------------------------------------------------------------
// Random molecules, realistic grids, both media
// ---------------------------------------------------------------------------

TEST(FastEquivalence, RandomMoleculesOnBothObstacles) {
  std::mt19937_64 rng(20240611);
  const Sampling smp = sampling(5, 10, 6);
  const struct {
    int atoms;
    double a, b, c;
  } shapes[] = {{1, 8, 8, 8},     {2, 10, 3, 3},       {5, 6, 6, 6},
                {40, 12, 12, 12}, {300, 15, 15, 15},   {300, 35, 6, 6},
                {800, 20, 14, 9}, {60, 0.5, 0.5, 0.5}, {3000, 30, 22, 16}};
  for (const auto& shape : shapes) {
    const Molecule mol = random_molecule(rng, shape.atoms, shape.a, shape.b, shape.c);
    const std::string what = std::to_string(shape.atoms) + " atoms";
    const RunGrid wall = run_grid(mol, 3.0, 20.0, 0.5);
    const PassSums w = check_wall(mol, 3.0, 20.0, wall.last, wall.grid, smp, what + " wall");
    const RunGrid cyl = run_grid(mol, 3.0, 30.0, 0.5);
    const PassSums c = check_cylinder(mol, 33.0, cyl.last, cyl.grid, smp, what + " cylinder");
    // Each case of some extent has allowed and clashing states (a single
    // atom never reaches the wall of its own grid; a speck of 0.5 A touches
    // at its only position in every orientation).
    if (shape.atoms < 5 || shape.a < 1.0) continue;
    EXPECT_GT(states(w), 0) << what;
    EXPECT_LT(states(w), static_cast<long long>(smp.o_pts) * (wall.last + 1)) << what;
    EXPECT_GT(states(c), 0) << what;
    EXPECT_LT(states(c), static_cast<long long>(smp.o_pts) * (cyl.last + 1)) << what;
  }
}

TEST(FastEquivalence, ArbitraryAnglesAndRadii) {
  std::mt19937_64 rng(7);
  const Sampling smp = random_angles(rng, 300);
  std::uniform_real_distribution<double> radius(0.5, 6.0), obstacle(5.0, 40.0);
  for (int trial = 0; trial < 6; ++trial) {
    const Molecule mol = random_molecule(rng, 150, 18, 11, 7);
    const double r = radius(rng);
    const double obs = obstacle(rng);
    const RunGrid g = run_grid(mol, r, obs, 0.37);
    check_wall(mol, r, obs, g.last, g.grid, smp, "trial " + std::to_string(trial));
    check_cylinder(mol, obs + r, g.last, g.grid, smp, "trial " + std::to_string(trial));
  }
}

TEST(FastEquivalence, ProteinHeavyAtomsWithTheDefaultSampling) {
  const Molecule mol = read_heavy_atoms(test::data_path("structures/ubq_1d3z_m1.pdb"));
  ASSERT_GT(mol.count(), 500);
  const Sampling smp = sampling(9, 18, 18);
  ASSERT_EQ(smp.o_pts, 1872);
  const RunGrid wall = run_grid(mol, 3.0, 20.0, 0.5);
  check_wall(mol, 3.0, 20.0, wall.last, wall.grid, smp, "ubiquitin wall");
  const RunGrid cyl = run_grid(mol, 3.0, 30.0, 0.5);
  check_cylinder(mol, 33.0, cyl.last, cyl.grid, smp, "ubiquitin cylinder");
}

TEST(FastEquivalence, WholeSimulationInEveryMedium) {
  std::mt19937_64 rng(99);
  const Molecule mol = random_molecule(rng, 250, 16, 12, 9);
  const Sampling smp = sampling(6, 12, 8);
  const RunGrid g = run_grid(mol, 3.0, 30.0, 0.5);
  Settings s;
  s.max_obs_dim = 20.0;
  check_simulation(s, mol, g.last, 0, g.grid, line_grid({}), smp, "bicelle");
  s.liquid_type = 2;
  s.max_obs_dim = 30.0;
  check_simulation(s, mol, 0, g.last, line_grid({}), g.grid, smp, "phage");
  s.liquid_type = 1;
  s.bic_phage = 1.0;
  s.max_obs_dim = 20.0;
  const RunGrid w = run_grid(mol, 3.0, 20.0, 0.5);
  check_simulation(s, mol, w.last, w.last, w.grid, w.grid, smp, "combined");
  s.scale_down_ok = 0;
  check_simulation(s, mol, w.last, w.last, w.grid, w.grid, smp, "combined, no scaling");
}

// ---------------------------------------------------------------------------
// Atoms exactly at the contact distance
// ---------------------------------------------------------------------------

// Projections of all atoms in orientation m, as the direct form makes them.
void project(const Molecule& mol, const Sampling& smp, int m, std::vector<float>& xt,
             std::vector<float>& yt) {
  xt.assign(mol.count() + 1, 0.0f);
  yt.assign(mol.count() + 1, 0.0f);
  detail::project_atoms(smp.tables.eulerangle[m], mol.count(), mol.x, mol.y, mol.z, xt, &yt,
                        nullptr);
}

TEST(FastEquivalence, WallThresholdEqualToTheLowestProjection) {
  std::mt19937_64 rng(31);
  const Molecule mol = random_molecule(rng, 120, 14, 10, 8);
  const Sampling smp = sampling(4, 8, 5);
  const double radius = 3.0, obs = 20.0;
  int exercised = 0;
  for (int m = 1; m <= smp.o_pts; m += 7) {
    std::vector<float> xt, yt;
    project(mol, smp, m, xt, yt);
    const float lowest = *std::min_element(xt.begin() + 1, xt.end());
    // A grid point whose threshold radius - (x - obs) is `target` in single
    // precision: found among the doubles next to the exact answer.
    auto grid_x = [&](float target) {
      double x = obs + radius - target;
      for (int step = 0; step < 64 && static_cast<float>(radius - (x - obs)) != target; ++step) {
        x = std::nextafter(x, static_cast<float>(radius - (x - obs)) < target ? -kInf : kInf);
      }
      return x;
    };
    const double x = grid_x(lowest);
    ASSERT_EQ(static_cast<float>(radius - (x - obs)), lowest) << m;
    // The point itself, a point whose threshold is the next float below
    // (free), and points well inside and well beyond.
    const double beyond = grid_x(std::nextafter(lowest, -std::numeric_limits<float>::infinity()));
    ASSERT_LT(static_cast<float>(radius - (beyond - obs)), lowest) << m;
    const Grid grid = line_grid({x - 1.0, x, beyond, x + 5.0});
    std::vector<float> x_temp(mol.count() + 1), pot(4);
    const PassSums direct = detail::wall_pass_direct(radius, obs, mol.count(), mol.x, mol.y, mol.z,
                                                     3, smp.o_pts, grid, smp.tables, x_temp, pot);
    EXPECT_EQ(pot[1], lowest);
    EXPECT_LT(pot[2], lowest);
    // Orientation m alone on this grid: contact at the threshold, free just
    // beyond it.
    std::vector<unsigned char> allowed(4);
    detail::wall_allowed(mol.count(), xt, 3, pot, allowed);
    EXPECT_EQ(allowed[1], 0);
    EXPECT_EQ(allowed[2], 1);
    exercised += 1;
    check_wall(mol, radius, obs, 3, grid, smp, "equality, orientation " + std::to_string(m));
    (void)direct;
  }
  EXPECT_GT(exercised, 10);
}

TEST(FastEquivalence, CylinderRadiusEqualToTheNearestDistance) {
  std::mt19937_64 rng(37);
  const Molecule mol = random_molecule(rng, 90, 12, 9, 9);
  const Sampling smp = sampling(4, 8, 5);
  const RunGrid g = run_grid(mol, 3.0, 30.0, 0.5);
  int exercised = 0;
  for (int m = 1; m <= smp.o_pts; m += 11) {
    std::vector<float> xt, yt;
    project(mol, smp, m, xt, yt);
    for (const int k : {0, g.last / 3, g.last / 2}) {
      // radius2 set to the distance of the nearest atom at position k, as
      // the direct formula computes it: that atom touches there exactly.
      double radius2 = kInf;
      for (int i = 1; i <= mol.count(); ++i) {
        const double dx = xt[i] + g.grid[k][1];
        const double dy = yt[i] + g.grid[k][2];
        radius2 = std::min(radius2, std::sqrt(dx * dx + dy * dy));
      }
      std::vector<unsigned char> allowed(g.last + 1);
      detail::cylinder_allowed(mol.count(), xt, yt, g.last, g.grid, radius2, allowed);
      EXPECT_EQ(allowed[k], 0);
      detail::cylinder_allowed(mol.count(), xt, yt, g.last, g.grid, std::nextafter(radius2, 0.0),
                               allowed);
      EXPECT_EQ(allowed[k], 1);
      exercised += 1;
      check_cylinder(mol, radius2, g.last, g.grid, smp, "equality at " + std::to_string(k));
      check_cylinder(mol, std::nextafter(radius2, 0.0), g.last, g.grid, smp, "just below");
    }
  }
  EXPECT_GT(exercised, 10);
}

TEST(FastEquivalence, SingleAtomOnTheAxisAndOnTheWall) {
  // One atom at (-2, 0, 0) and the identity orientation: x_temp = -2,
  // pot_dist = 1 - (23 - 20) = -2: contact at equality.
  Molecule mol;
  mol.add(-2.0, 0.0, 0.0);
  Settings s;
  Sampling smp;
  smp.tables.eulerangle = {EulerAngle{}, EulerAngle{0.0, 0.0, 0.0, 0.0},
                           EulerAngle{0.0, 90.0, 0.0, 0.0}};
  smp.o_pts = 2;
  const Log log;  // the listings are not looked at
  setup_lists(s, 2, smp.tables, log);
  // At 23.000001 the threshold is -2.000001 in single precision: free.
  const PassSums w =
      check_wall(mol, 1.0, 20.0, 2, line_grid({23.0, 23.000001, 30.0}), smp, "single atom");
  EXPECT_EQ(w.total[0], 1);  // the first orientation touches, the second does not
  EXPECT_EQ(w.total[1], 2);
  EXPECT_EQ(w.total[2], 2);
  // Cylinder of radius2 2.5: the atom at x = -2 with the centre at 4.5 lies
  // exactly 2.5 from the axis.
  const PassSums c = check_cylinder(mol, 2.5, 2, line_grid({4.5, std::nextafter(4.5, kInf), 9.0}),
                                    smp, "single atom cylinder");
  EXPECT_EQ(c.total[0], 1);
}

// ---------------------------------------------------------------------------
// Atoms and grids outside the bounded tests
// ---------------------------------------------------------------------------

TEST(FastEquivalence, NotANumberInfiniteAndHugeCoordinates) {
  std::mt19937_64 rng(5);
  const Sampling smp = sampling(4, 8, 6);
  Molecule base = random_molecule(rng, 80, 10, 10, 10);
  const RunGrid g = run_grid(base, 3.0, 20.0, 0.5);
  const std::vector<std::array<double, 3>> odd = {
      {kNaN, 1.0, 2.0}, {3.0, kNaN, kNaN}, {kInf, 0.0, 0.0},     {-kInf, 1.0, 1.0},
      {1e7, -2e7, 5.0}, {-3e30, 1.0, 1.0}, {2.0, 1e300, -1e300}, {1e-310, -1e-320, 0.0}};
  for (size_t j = 0; j < odd.size(); ++j) {
    Molecule mol = base;
    // Put the odd atom first, in the middle and last.
    for (const size_t at : {size_t{1}, mol.x.size() / 2, mol.x.size()}) {
      Molecule m2 = mol;
      m2.x.insert(m2.x.begin() + at, odd[j][0]);
      m2.y.insert(m2.y.begin() + at, odd[j][1]);
      m2.z.insert(m2.z.begin() + at, odd[j][2]);
      const std::string what = "odd atom " + std::to_string(j) + " at " + std::to_string(at);
      check_wall(m2, 3.0, 20.0, g.last, g.grid, smp, what);
      check_cylinder(m2, 33.0, g.last, line_grid(positions(g.grid[0][1] + 10.0, 0.5, g.last)), smp,
                     what);
    }
  }
  // Every atom not a number: nothing ever touches, not even an infinite
  // threshold (an infinite atom radius). No atoms at all: the same.
  Molecule nan_mol;
  for (int i = 0; i < 20; ++i) nan_mol.add(kNaN, kNaN, kNaN);
  const PassSums w = check_wall(nan_mol, 3.0, 20.0, g.last, g.grid, smp, "all NaN");
  EXPECT_EQ(states(w), static_cast<long long>(smp.o_pts) * (g.last + 1));
  const PassSums w_inf = check_wall(nan_mol, kInf, 20.0, g.last, g.grid, smp, "all NaN, inf");
  EXPECT_EQ(states(w_inf), static_cast<long long>(smp.o_pts) * (g.last + 1));
  check_wall(Molecule(), kInf, 20.0, g.last, g.grid, smp, "no atoms, inf");
  check_cylinder(nan_mol, 33.0, g.last, g.grid, smp, "all NaN");
  check_cylinder(nan_mol, kInf, g.last, g.grid, smp, "all NaN, inf");
  // Infinite atoms touch an infinite threshold.
  Molecule inf_mol = nan_mol;
  inf_mol.add(-kInf, kInf, 1.0);
  check_wall(inf_mol, kInf, 20.0, g.last, g.grid, smp, "infinite atom, inf");
  check_wall(inf_mol, 3.0, 20.0, g.last, g.grid, smp, "infinite atom");
}

TEST(FastEquivalence, FarAtomAloneTouchesTheCylinder) {
  // An atom two million Angstrom out (kept outside the bounded groups) at
  // (-2e6, 0, 0), beside a small cluster at the centre; in the identity
  // orientation it projects to exactly (-2e6, 0). Positions 2e6 - 5 + k / 2:
  // with radius2 = 3 it touches from k = 4 (distance 3 exactly) to k = 16
  // (3 exactly again), and nothing else does.
  std::mt19937_64 rng(47);
  Molecule mol = random_molecule(rng, 40, 8, 8, 8);
  mol.add(-2e6, 0.0, 0.0);
  Settings s;
  Sampling smp;
  smp.tables.eulerangle = {EulerAngle{}, EulerAngle{0.0, 0.0, 0.0, 0.0},
                           EulerAngle{0.0, 33.0, 10.0, 20.0}, EulerAngle{0.0, 0.0, 0.0, 0.0}};
  smp.o_pts = 3;
  const Log log;  // the listings are not looked at
  setup_lists(s, 3, smp.tables, log);
  const Grid g = line_grid(positions(2e6 - 5.0, 0.5, 20));
  const PassSums c = check_cylinder(mol, 3.0, 20, g, smp, "far atom");
  for (int k = 0; k <= 20; ++k) {
    EXPECT_EQ(c.total[k], k >= 4 && k <= 16 ? 1 : 3) << k;
  }
  // And against the wall, where it is the lowest projection.
  const PassSums w = check_wall(mol, 3.0, 20.0, 20, line_grid(positions(2e6 + 18.0, 0.5, 20)), smp,
                                "far atom wall");
  EXPECT_EQ(w.total[0], 1);
}

TEST(FastEquivalence, NoAtomsTinyAndLargeGrids) {
  std::mt19937_64 rng(11);
  const Sampling smp = sampling(3, 6, 4);
  const Molecule none;
  const Grid one = line_grid({25.0});
  check_wall(none, 3.0, 20.0, 0, one, smp, "no atoms");
  check_cylinder(none, 33.0, 0, one, smp, "no atoms");
  const Molecule mol = random_molecule(rng, 60, 9, 7, 5);
  check_wall(mol, 3.0, 20.0, 0, one, smp, "one position");
  check_cylinder(mol, 33.0, 0, line_grid({38.0}), smp, "one position");
  // 1000 positions (the classic grid capacity), 0.02 A apart.
  const Grid large = line_grid(positions(21.0, 0.02, kGridSlots - 1));
  const PassSums w = check_wall(mol, 3.0, 20.0, kGridSlots - 1, large, smp, "1000 positions");
  EXPECT_GT(states(w), 0);
  const Grid large_ph = line_grid(positions(31.0, 0.02, kGridSlots - 1));
  check_cylinder(mol, 33.0, kGridSlots - 1, large_ph, smp, "1000 positions");
  // Spacing below single-precision resolution: runs of equal thresholds.
  const Grid ties = line_grid(positions(27.0, 1e-7, 200));
  check_wall(mol, 3.0, 20.0, 200, ties, smp, "tied thresholds");
  check_cylinder(mol, 33.0, 200, line_grid(positions(37.0, 1e-7, 200)), smp, "tied positions");
}

TEST(FastEquivalence, GridsInAnyOrderAndOffAxis) {
  std::mt19937_64 rng(13);
  const Sampling smp = sampling(4, 8, 6);
  const Molecule mol = random_molecule(rng, 100, 12, 8, 8);
  std::vector<double> xs = positions(21.0, 0.5, 60);
  std::shuffle(xs.begin(), xs.end(), rng);
  check_wall(mol, 3.0, 20.0, 60, line_grid(xs), smp, "shuffled wall grid");
  for (double& x : xs) x += 10.0;
  check_cylinder(mol, 33.0, 60, line_grid(xs), smp, "shuffled cylinder grid");
  // A constant offset in y, and a y that changes along the grid.
  check_cylinder(mol, 33.0, 60, line_grid(positions(31.0, 0.5, 60), 7.5), smp, "y offset");
  Grid wavy = line_grid(positions(31.0, 0.5, 60));
  for (int k = 0; k <= 60; ++k) wavy[k][2] = 5.0 * std::sin(k * 0.3);
  check_cylinder(mol, 33.0, 60, wavy, smp, "y varying");
  // Not-a-number and infinite grid points.
  Grid odd = line_grid(positions(21.0, 0.5, 60));
  odd[10][1] = kNaN;
  odd[20][1] = kInf;
  odd[30][1] = -kInf;
  check_wall(mol, 3.0, 20.0, 60, odd, smp, "odd wall grid");
  for (int k = 0; k <= 60; ++k) odd[k][1] += 10.0;
  check_cylinder(mol, 33.0, 60, odd, smp, "odd cylinder grid");
  // A grid that turns back toward the obstacle.
  std::vector<double> back = positions(45.0, -0.5, 40);
  check_wall(mol, 3.0, 20.0, 40, line_grid(back), smp, "descending wall grid");
  check_cylinder(mol, 33.0, 40, line_grid(back), smp, "descending cylinder grid");
}

TEST(FastEquivalence, UnusualRadii) {
  std::mt19937_64 rng(17);
  const Sampling smp = sampling(4, 8, 6);
  const Molecule mol = random_molecule(rng, 70, 10, 8, 6);
  const Grid g = line_grid(positions(0.0, 0.5, 80));
  for (const double radius2 : {0.0, 1e-300, 0.25, 5.0, 1e200, -3.0, kNaN, kInf, -kInf}) {
    check_cylinder(mol, radius2, 80, g, smp, "radius2 " + std::to_string(radius2));
  }
  for (const double radius : {-50.0, 0.0, 1e9, kNaN, kInf}) {
    check_wall(mol, radius, 20.0, 80, g, smp, "radius " + std::to_string(radius));
  }
  // An atom exactly on the axis with radius2 0: touches at distance 0 only.
  Molecule centre;
  centre.add(0.0, 0.0, 0.0);
  const PassSums c = check_cylinder(centre, 0.0, 2, line_grid({-1.0, 0.0, 1.0}), smp, "on axis");
  EXPECT_EQ(c.total[1], 0);
  EXPECT_EQ(c.total[0], smp.o_pts);
}

TEST(FastEquivalence, ElongatedMoleculesPassingBesideTheCylinder) {
  // Long thin rods whose ends can lie beyond the axis while the rest passes
  // beside the cylinder: allowed positions need not form a single run.
  std::mt19937_64 rng(23);
  const Sampling smp = random_angles(rng, 400);
  for (int trial = 0; trial < 4; ++trial) {
    Molecule rod;
    std::uniform_real_distribution<double> jitter(-0.5, 0.5);
    for (int i = 0; i <= 200; ++i) {
      rod.add(-60.0 + 0.6 * i + jitter(rng), jitter(rng), jitter(rng));
    }
    rod.add(-40.0, 25.0, 0.0);  // a side arm
    const Grid g = line_grid(positions(5.0 + trial, 0.5, 200));
    const PassSums c =
        check_cylinder(rod, 4.0 + trial, 200, g, smp, "rod " + std::to_string(trial));
    // Some orientation has allowed positions split by a clash.
    bool split = false;
    std::vector<float> xt, yt;
    std::vector<unsigned char> allowed(201);
    for (int m = 1; m <= smp.o_pts && !split; ++m) {
      project(rod, smp, m, xt, yt);
      detail::cylinder_allowed(rod.count(), xt, yt, 200, g, 4.0 + trial, allowed);
      int runs = 0;
      for (int k = 0; k <= 200; ++k) runs += allowed[k] != 0 && (k == 0 || allowed[k - 1] == 0);
      split = runs > 1;
    }
    EXPECT_TRUE(split) << trial;
    (void)c;
  }
}

// ---------------------------------------------------------------------------
// Helpers of the fast form
// ---------------------------------------------------------------------------

TEST(FastHelpers, FrameAxesAreThoseOfTheDirectForm) {
  std::mt19937_64 rng(3);
  std::uniform_real_distribution<double> angle(-400.0, 400.0);
  for (int trial = 0; trial < 2000; ++trial) {
    const EulerAngle a{0.0, angle(rng), angle(rng), angle(rng)};
    double x1[4] = {}, y1[4] = {}, z1[4] = {}, x2[4] = {}, y2[4] = {};
    const double t = a[1] * kPi / 180, p = a[2] * kPi / 180, q = a[3] * kPi / 180;
    rotate_coorsystem(-t, -q, -p, x1, y1, z1);
    detail::atom_frame_axes(a, x2, y2);
    EXPECT_TRUE(same_bytes(x1 + 1, x2 + 1, 3 * sizeof(double)));
    EXPECT_TRUE(same_bytes(y1 + 1, y2 + 1, 3 * sizeof(double)));
    // rotate_coorsystem's axes are those of rotate_vector on the unit
    // vectors, bit for bit.
    const double e1[4] = {0, 1, 0, 0};
    double r[4] = {};
    rotate_vector(-t, -q, -p, e1, r);
    EXPECT_TRUE(same_bytes(r + 1, x1 + 1, 3 * sizeof(double)));
  }
}

TEST(FastHelpers, SquaredDistanceLimitIsTheLastSquareWithinTheRadius) {
  std::mt19937_64 rng(19);
  std::uniform_real_distribution<double> exponent(-300.0, 300.0), mantissa(1.0, 10.0);
  std::vector<double> radii = {0.0,
                               1.0,
                               2.0,
                               2.5,
                               33.0,
                               3.0,
                               1e-320,
                               1e154,
                               1e200,
                               std::numeric_limits<double>::max(),
                               std::numeric_limits<double>::denorm_min()};
  for (int i = 0; i < 3000; ++i) radii.push_back(mantissa(rng) * std::pow(10.0, exponent(rng)));
  for (const double r : radii) {
    const double t = detail::squared_distance_limit(r);
    EXPECT_LE(std::sqrt(t), r) << r;
    const double up = std::nextafter(t, kInf);
    EXPECT_TRUE(std::isinf(up) || std::sqrt(up) > r) << r;
  }
  EXPECT_EQ(detail::squared_distance_limit(0.0), 0.0);
  // By hand: the doubles next to 2 are 2 and 2 + 2^-51. sqrt(4 + 2^-50) =
  // 2 sqrt(1 + 2^-52) = 2 + 2^-52 - (tiny), just below their midpoint: it
  // rounds to 2. sqrt(4 + 2^-49) = 2 + 2^-51 - (tiny), above the midpoint:
  // it rounds up. So the limit for 2 is one unit above 2 * 2.
  EXPECT_EQ(detail::squared_distance_limit(2.0), 4.0 + 0x1p-50);
}

TEST(FastHelpers, AtomTreeHoldsEveryAtomOnceWithinItsBounds) {
  std::mt19937_64 rng(29);
  Molecule mol = random_molecule(rng, 1000, 30, 12, 8);
  mol.add(kNaN, 0, 0);
  mol.add(2e6, 0, 0);
  const detail::AtomTree t = detail::build_atom_tree(mol.count(), mol.x, mol.y, mol.z);
  EXPECT_EQ(t.ox.size(), 2u);
  ASSERT_EQ(t.x.size(), 1000u);
  ASSERT_GT(t.nodes(), 0);
  EXPECT_EQ(t.begin[0], 0);
  EXPECT_EQ(t.end[0], 1000);
  std::vector<double> a(t.x), b(mol.x.begin() + 1, mol.x.begin() + 1001);
  std::sort(a.begin(), a.end());
  std::sort(b.begin(), b.end());
  EXPECT_EQ(a, b);
  int leaves = 0;
  for (int n = 0; n < t.nodes(); ++n) {
    for (int i = t.begin[n]; i < t.end[n]; ++i) {
      const double dx = t.x[i] - t.cx[n], dy = t.y[i] - t.cy[n], dz = t.z[i] - t.cz[n];
      EXPECT_LE(std::sqrt(dx * dx + dy * dy + dz * dz), t.reach[n]);
    }
    if (t.second[n] == 0) {
      leaves += 1;
      EXPECT_LE(t.end[n] - t.begin[n], 16);
      EXPECT_GT(t.end[n] - t.begin[n], 0);
    } else {
      // The two subgroups split the group.
      EXPECT_EQ(t.begin[n + 1], t.begin[n]);
      EXPECT_EQ(t.end[n + 1], t.begin[t.second[n]]);
      EXPECT_EQ(t.end[t.second[n]], t.end[n]);
    }
  }
  EXPECT_EQ(leaves, (1000 + 15) / 16);
}

TEST(FastHelpers, AtomTreeBlocksAreTheLargestGroupsOfAtMost64Leaves) {
  std::mt19937_64 rng(31);
  for (const int atoms : {1, 17, 1000, 1024, 1025, 2100, 5000}) {
    const Molecule mol = random_molecule(rng, atoms, 40, 25, 15);
    const detail::AtomTree t = detail::build_atom_tree(mol.count(), mol.x, mol.y, mol.z);
    const std::string what = std::to_string(atoms) + " atoms";
    const int leaves = static_cast<int>(t.leaf.size());
    ASSERT_EQ(leaves, (atoms + 15) / 16) << what;
    // One zero beyond the last leaf, for pairwise loads.
    for (const std::vector<double>* v :
         {&t.leaf_cx, &t.leaf_cy, &t.leaf_cz, &t.leaf_reach, &t.leaf_error}) {
      ASSERT_EQ(v->size(), static_cast<std::size_t>(leaves) + 1) << what;
      EXPECT_EQ(v->back(), 0.0) << what;
    }
    ASSERT_EQ(t.block_leaf.size(), t.block_node.size() + 1) << what;
    EXPECT_EQ(t.block_leaf.front(), 0) << what;
    EXPECT_EQ(t.block_leaf.back(), leaves) << what;
    for (std::size_t b = 0; b < t.block_node.size(); ++b) {
      const int n = t.block_node[b];
      const int first = t.block_leaf[b];
      const int last = t.block_leaf[b + 1] - 1;
      ASSERT_LE(first, last) << what;
      EXPECT_LE(last - first + 1, detail::AtomTree::kMaxBlockLeaves) << what;
      // The block's group holds exactly the atoms of its leaves.
      EXPECT_EQ(t.begin[n], t.begin[t.leaf[first]]) << what << ", block " << b;
      EXPECT_EQ(t.end[n], t.end[t.leaf[last]]) << what << ", block " << b;
    }
    // As few blocks as groups of at most 64 leaves allow: a single one
    // for a tree that small, else more than one.
    if (leaves <= detail::AtomTree::kMaxBlockLeaves) {
      EXPECT_EQ(t.block_node.size(), 1u) << what;
    } else {
      EXPECT_GT(t.block_node.size(), 1u) << what;
    }
  }
}

TEST(FastHelpers, LowestProjectionIsTheMinimumOfTheDirectProjections) {
  std::mt19937_64 rng(41);
  Molecule mol = random_molecule(rng, 500, 20, 15, 10);
  mol.add(kNaN, 1.0, 1.0);
  const detail::AtomTree t = detail::build_atom_tree(mol.count(), mol.x, mol.y, mol.z);
  const Sampling smp = random_angles(rng, 500);
  for (int m = 1; m <= smp.o_pts; ++m) {
    std::vector<float> xt, yt;
    project(mol, smp, m, xt, yt);
    float lowest = kInf;
    for (int i = 1; i <= mol.count(); ++i) {
      if (xt[i] < lowest) lowest = xt[i];
    }
    double x_axis[4] = {}, y_axis[4] = {};
    detail::atom_frame_axes(smp.tables.eulerangle[m], x_axis, y_axis);
    EXPECT_EQ(detail::lowest_projection(t, x_axis), lowest) << m;
  }
  const detail::AtomTree empty = detail::build_atom_tree(0, mol.x, mol.y, mol.z);
  const double axis[4] = {0, 1, 0, 0};
  EXPECT_TRUE(std::isnan(detail::lowest_projection(empty, axis)));
  Molecule nan_mol;
  nan_mol.add(kNaN, 0.0, 0.0);
  const detail::AtomTree nan_tree = detail::build_atom_tree(1, nan_mol.x, nan_mol.y, nan_mol.z);
  EXPECT_TRUE(std::isnan(detail::lowest_projection(nan_tree, axis)));
  Molecule inf_mol;
  inf_mol.add(kInf, 0.0, 0.0);
  inf_mol.add(kNaN, 0.0, 0.0);
  const detail::AtomTree inf_tree = detail::build_atom_tree(2, inf_mol.x, inf_mol.y, inf_mol.z);
  EXPECT_EQ(detail::lowest_projection(inf_tree, axis), std::numeric_limits<float>::infinity());
}

TEST(FastHelpers, StoredFrameAxesAreTheComputedOnes) {
  std::mt19937_64 rng(43);
  const Sampling smp = random_angles(rng, 300);
  const OrientationTables tables = tables_with_frame_axes(smp);
  ASSERT_EQ(tables.frame_axes.size(), static_cast<std::size_t>(smp.o_pts) + 1);
  TrigMemo memo;
  for (int m = 1; m <= smp.o_pts; ++m) {
    double x_axis[4] = {}, y_axis[4] = {};
    detail::atom_frame_axes(smp.tables.eulerangle[m], x_axis, y_axis);
    double x_stored[4] = {}, y_stored[4] = {};
    detail::frame_axes_of(tables, m, x_stored, y_stored, memo);
    EXPECT_TRUE(same_bytes(x_axis + 1, x_stored + 1, 3 * sizeof(double))) << m;
    EXPECT_TRUE(same_bytes(y_axis + 1, y_stored + 1, 3 * sizeof(double))) << m;
    // Without stored axes they are computed.
    double x_computed[4] = {}, y_computed[4] = {};
    detail::frame_axes_of(smp.tables, m, x_computed, y_computed, memo);
    EXPECT_TRUE(same_bytes(x_axis + 1, x_computed + 1, 3 * sizeof(double))) << m;
    EXPECT_TRUE(same_bytes(y_axis + 1, y_computed + 1, 3 * sizeof(double))) << m;
  }
}

// partition_point over the thresholds with the exact lowest projection: what
// leading_contacts must give.
int contacts_by_minimum(const detail::AtomTree& t, const double x_axis[4],
                        const std::vector<float>& pot) {
  const float lowest = detail::lowest_projection(t, x_axis);
  return static_cast<int>(
      std::partition_point(pot.begin(), pot.end(), [lowest](float p) { return lowest <= p; }) -
      pot.begin());
}

TEST(FastHelpers, LeadingContactsCountTheThresholdsAtOrAboveTheLowestProjection) {
  std::mt19937_64 rng(47);
  const Sampling smp = random_angles(rng, 400);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  for (const int atoms : {1, 7, 16, 17, 300, 602, 1500, 4500}) {
    Molecule mol = random_molecule(rng, atoms, 18, 14, 11);
    const detail::AtomTree t = detail::build_atom_tree(mol.count(), mol.x, mol.y, mol.z);
    detail::ContactHint carried;  // handed on from orientation to orientation
    int checked = 0, inside = 0;
    for (int m = 1; m <= smp.o_pts; ++m) {
      double x_axis[4] = {}, y_axis[4] = {};
      detail::atom_frame_axes(smp.tables.eulerangle[m], x_axis, y_axis);
      const float lowest = detail::lowest_projection(t, x_axis);
      // Thresholds falling by a spacing from above the molecule to below
      // it, some of them the lowest projection itself or its neighbours in
      // single precision, some repeated.
      std::vector<float> pot;
      const double spacing = 0.05 + 0.6 * u(rng);
      for (double p = 25.0; p > -25.0; p -= spacing) pot.push_back(static_cast<float>(p));
      const std::size_t at = static_cast<std::size_t>(u(rng) * pot.size());
      switch (m % 4) {
        case 0:
          pot.insert(pot.begin() + static_cast<std::ptrdiff_t>(at), 1, lowest);
          break;
        case 1:
          pot.insert(pot.begin() + static_cast<std::ptrdiff_t>(at),
                     {std::nextafter(lowest, 1e9F), lowest, lowest, std::nextafter(lowest, -1e9F)});
          break;
        default:
          break;
      }
      std::sort(pot.begin(), pot.end(), std::greater<>());
      const int expected = contacts_by_minimum(t, x_axis, pot);
      const int positions = static_cast<int>(pot.size());
      detail::ContactHint fresh;
      EXPECT_EQ(detail::leading_contacts(t, x_axis, pot.data(), positions, fresh), expected)
          << atoms << " atoms, orientation " << m;
      EXPECT_EQ(fresh.contacts, expected);
      EXPECT_EQ(detail::leading_contacts(t, x_axis, pot.data(), positions, carried), expected)
          << atoms << " atoms, orientation " << m << " (carried hint)";
      // Any leaf or none, any count to start from (beyond both ends too).
      for (int trial = 0; trial < 4; ++trial) {
        detail::ContactHint odd;
        odd.leaf = static_cast<int>(u(rng) * (t.nodes() + 4)) - 2;
        odd.contacts = static_cast<int>(u(rng) * (positions + 6)) - 3;
        if (trial == 0) odd.contacts = expected;
        if (trial == 1) odd.contacts = expected + (m % 2 == 0 ? 1 : -1);
        EXPECT_EQ(detail::leading_contacts(t, x_axis, pot.data(), positions, odd), expected)
            << atoms << " atoms, orientation " << m << " (hint " << odd.leaf << ", " << odd.contacts
            << ")";
      }
      // Fewer thresholds, all above or all below the molecule, and none.
      for (const int first : {0, 1, positions / 2, positions - 1, positions}) {
        const std::vector<float> part(pot.begin() + first, pot.end());
        detail::ContactHint h = carried;
        EXPECT_EQ(
            detail::leading_contacts(t, x_axis, part.data(), static_cast<int>(part.size()), h),
            contacts_by_minimum(t, x_axis, part));
      }
      checked += 1;
      inside += expected > 0 && expected < positions ? 1 : 0;
    }
    EXPECT_EQ(checked, smp.o_pts);
    EXPECT_GT(inside, smp.o_pts / 2) << "the thresholds should mostly cut the molecule";
  }
  // Atoms kept out of the tree (not-a-number, huge): the minimum decides.
  Molecule odd = random_molecule(rng, 50, 10, 10, 10);
  odd.add(kNaN, 0.0, 0.0);
  odd.add(3.0e7, 1.0, 1.0);
  const detail::AtomTree t = detail::build_atom_tree(odd.count(), odd.x, odd.y, odd.z);
  std::vector<float> pot;
  for (double p = 4.0e7; p > -4.0e7; p -= 1.0e6) pot.push_back(static_cast<float>(p));
  for (int m = 1; m <= 50; ++m) {
    double x_axis[4] = {}, y_axis[4] = {};
    detail::atom_frame_axes(smp.tables.eulerangle[m], x_axis, y_axis);
    detail::ContactHint h;
    h.contacts = m;
    EXPECT_EQ(detail::leading_contacts(t, x_axis, pot.data(), static_cast<int>(pot.size()), h),
              contacts_by_minimum(t, x_axis, pot));
  }
  // No atoms: nothing touches.
  const detail::AtomTree empty = detail::build_atom_tree(0, odd.x, odd.y, odd.z);
  const double axis[4] = {0, 1, 0, 0};
  detail::ContactHint h{3, 7};
  EXPECT_EQ(detail::leading_contacts(empty, axis, pot.data(), static_cast<int>(pot.size()), h), 0);
}

TEST(FastHelpers, ThreadCountFromTheEnvironment) {
  EXPECT_EQ(detail::parse_thread_count("4", 9), 4);
  EXPECT_EQ(detail::parse_thread_count(" 2 ", 9), 2);
  EXPECT_EQ(detail::parse_thread_count("1024", 9), 1024);
  for (const char* bad : {"", "0", "-3", "1025", "2x", "x2", "2.5", "99999999999999999999"}) {
    EXPECT_EQ(detail::parse_thread_count(bad, 9), 9) << bad;
  }
  EXPECT_EQ(detail::parse_thread_count(nullptr, 9), 9);
  EXPECT_GE(detail::default_thread_count(), 1);

  ::setenv("VORN_THREADS", "3", 1);
  EXPECT_EQ(detail::simulation_threads(), 3);
  ::setenv("VORN_THREADS", "many", 1);
  EXPECT_EQ(detail::simulation_threads(), detail::default_thread_count());
  ::unsetenv("VORN_THREADS");
  EXPECT_EQ(detail::simulation_threads(), detail::default_thread_count());

  EXPECT_EQ(detail::useful_threads(1872, 8), 1);
  EXPECT_EQ(detail::useful_threads(0, 8), 1);
  EXPECT_EQ(detail::useful_threads(119088, 2), 2);
  EXPECT_EQ(detail::useful_threads(119088, 64), 119088 / 4096);
  EXPECT_EQ(detail::useful_threads(279998, 1), 1);

  EXPECT_FALSE(detail::direct_simulation_requested());
  ::setenv("VORN_SIMULATION", "direct", 1);
  EXPECT_TRUE(detail::direct_simulation_requested());
  ::setenv("VORN_SIMULATION", "fast", 1);
  EXPECT_EQ(detail::useful_threads(1872, 8), 1);
  EXPECT_EQ(detail::useful_threads(0, 8), 1);
  EXPECT_EQ(detail::useful_threads(119088, 2), 2);
  EXPECT_EQ(detail::useful_threads(119088, 64), 119088 / 4096);
  EXPECT_EQ(detail::useful_threads(279998, 1), 1);

  EXPECT_FALSE(detail::direct_simulation_requested());
  ::unsetenv("VORN_SIMULATION");
}

TEST(FastHelpers, PublicEntryGivesTheSameBitsInBothForms) {
  std::mt19937_64 rng(43);
  const Molecule mol = random_molecule(rng, 120, 12, 10, 8);
  const Sampling smp = sampling(5, 10, 6);
  const RunGrid g = run_grid(mol, 3.0, 20.0, 0.5);
  Settings s;
  s.bic_phage = 1.0;
  double saupe[5] = {};
  double fast[5] = {}, direct[5] = {};
  ::setenv("VORN_THREADS", "2", 1);
  simulate_alignment3(s, 20.0, mol.count(), 4, 9, mol.x, mol.y, mol.z, g.last, g.last, smp.o_pts,
                      g.grid, g.grid, smp.tables, smp.saupe_dev, saupe, fast);
  ::setenv("VORN_SIMULATION", "direct", 1);
  simulate_alignment3(s, 20.0, mol.count(), 4, 9, mol.x, mol.y, mol.z, g.last, g.last, smp.o_pts,
                      g.grid, g.grid, smp.tables, smp.saupe_dev, saupe, direct);
  ::unsetenv("VORN_SIMULATION");
  ::unsetenv("VORN_THREADS");
  EXPECT_TRUE(same_bytes(fast, direct, sizeof fast));
  EXPECT_TRUE(std::isfinite(fast[0]));
}

}  // namespace
}  // namespace vorn
