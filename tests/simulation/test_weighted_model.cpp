// The weighted (Boltzmann) alignment model against the steric model and
// against integrals computed here: zero energy gives the steric elements,
// one point charge at a charged wall gives the quadrature of its weights,
// a very large cylinder gives the wall.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "capture.hpp"
#include "simulation/electrostatic_interaction.hpp"
#include "simulation/model.hpp"
#include "simulation/weighted_model.hpp"
#include "vorn/classic.hpp"
#include "vorn/electrostatics.hpp"

namespace vorn {
namespace {

struct Atoms {
  std::vector<double> x{0.0}, y{0.0}, z{0.0};  // from index 1
  void add(double xi, double yi, double zi) {
    x.push_back(xi);
    y.push_back(yi);
    z.push_back(zi);
  }
  int count() const { return static_cast<int>(x.size()) - 1; }
};

Atoms ubiquitin_heavy() {
  Atoms a;
  std::ifstream in(test::data_path("structures/ubq_1d3z_m1.pdb"));
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream f(line);
    std::string record, name, residue;
    int serial = 0, number = 0;
    double x = 0, y = 0, z = 0;
    if (!(f >> record >> serial >> name >> residue >> number >> x >> y >> z)) continue;
    if (record == "ATOM" && name[0] != 'H') a.add(x, y, z);
  }
  return a;
}

Settings medium_settings(int liquid_type, double obstacle, double radius, int theta, int phi,
                         int psi) {
  Settings s;
  s.liquid_type = liquid_type;
  s.max_obs_dim = obstacle;
  s.atom_radius = radius;
  s.dig_theta = theta;
  s.dig_phi = phi;
  s.dig_psi = psi;
  s.concentration = 0.05;
  refine_bicelle(s);
  return s;
}

struct Prepared {
  Settings settings;
  Atoms atoms;
  Placement placement;
  Orientations orientations;
  Scaling scaling;
};

Prepared prepare(const Settings& settings, Atoms atoms) {
  Prepared r{settings, std::move(atoms), {}, {}, {}};
  const Log log;
  r.orientations = sample_orientations(settings, ClassicLimits{}, log);
  r.placement = place_molecule(settings, r.atoms.count(), r.atoms.x, r.atoms.y, r.atoms.z,
                               ClassicLimits{}, log);
  r.scaling = scaling_for(settings, r.placement, r.orientations.count);
  return r;
}

double largest(const double v[5]) {
  double m = 0.0;
  for (int e = 0; e < 5; ++e) m = std::max(m, std::fabs(v[e]));
  return m;
}

// An interaction that reaches far and adds nothing: the grid grows beyond
// the steric one, every weight stays exactly 1.
class NoEnergy : public detail::Interaction {
 public:
  double reach() const override { return 40.0; }
  std::unique_ptr<Scratch> scratch() const override { return std::make_unique<Scratch>(); }
  void add_energy(const detail::OrientationFrame&, std::span<const double>, double*,
                  Scratch&) const override {}
};

TEST(WeightedModel, ZeroEnergyGivesTheStericElements) {
  for (const int liquid : {1, 2}) {
    const Prepared r = prepare(medium_settings(liquid, liquid == 1 ? 20.0 : 30.0, 3.0, 9, 18, 18),
                               ubiquitin_heavy());
    double steric[5] = {};
    simulate_placed(r.settings, r.placement, r.orientations, r.scaling, r.atoms.count(), r.atoms.x,
                    r.atoms.y, r.atoms.z, 2, steric);
    ASSERT_GT(largest(steric), 1e-5);
    const NoEnergy none;
    for (const detail::Interaction* interaction :
         {static_cast<const detail::Interaction*>(nullptr),
          static_cast<const detail::Interaction*>(&none)}) {
      double weighted[5] = {};
      detail::simulate_weighted(r.settings, r.placement, r.orientations, r.scaling, r.atoms.count(),
                                r.atoms.x, r.atoms.y, r.atoms.z, interaction, 2, weighted);
      for (int e = 0; e < 5; ++e) {
        EXPECT_NEAR(weighted[e], steric[e], 1e-12 * largest(steric))
            << "medium " << liquid << " element " << e;
      }
    }
    // The reaching interaction extends the grid to 40 A from the surface.
    const detail::WeightedSums wide =
        detail::weighted_sums(r.settings, r.placement, r.orientations, r.scaling, r.atoms.count(),
                              r.atoms.x, r.atoms.y, r.atoms.z, &none, 1);
    const Grid& grid = liquid == 1 ? r.placement.grid : r.placement.grid_ph;
    const double first = grid[0][1] - r.settings.max_obs_dim;
    EXPECT_EQ(wide.positions,
              static_cast<int>(std::floor((40.0 - first) / r.settings.grid_spacing)) + 1);
    EXPECT_GT(wide.positions, (liquid == 1 ? r.placement.no_grid : r.placement.no_grid_ph) + 1);
    EXPECT_EQ(wide.excess, 0.0);
  }
}

TEST(WeightedModel, ThreadCountsGiveTheSameBits) {
  const Prepared r = prepare(medium_settings(2, 33.5, 3.0, 9, 18, 18), ubiquitin_heavy());
  ObstacleCharge c;
  c.charge_density = -0.4;
  const SurfacePotential potential(ObstacleShape::cylinder, 33.5, c);
  std::vector<PointCharge> charges;
  for (int i = 1; i <= r.atoms.count(); i += 23) {
    charges.push_back(
        PointCharge{Vec3{r.atoms.x[i], r.atoms.y[i], r.atoms.z[i]}, i % 2 == 0 ? 0.5 : -1.0});
  }
  const detail::ElectrostaticInteraction interaction(detail::obstacle_of(r.settings), potential,
                                                     charges, 1e-4);
  double one[5] = {};
  detail::simulate_weighted(r.settings, r.placement, r.orientations, r.scaling, r.atoms.count(),
                            r.atoms.x, r.atoms.y, r.atoms.z, &interaction, 1, one);
  for (const int threads : {2, 3, 7}) {
    double many[5] = {};
    detail::simulate_weighted(r.settings, r.placement, r.orientations, r.scaling, r.atoms.count(),
                              r.atoms.x, r.atoms.y, r.atoms.z, &interaction, threads, many);
    for (int e = 0; e < 5; ++e) EXPECT_EQ(one[e], many[e]) << threads << " threads";
  }
}

// One contact atom at the centre and a charge q at distance b along the
// molecule's z axis, in front of a wall of Debye-Hueckel potential
// psi(h) = psi0 exp(-kappa h). With the molecule's z axis at u (lab frame),
// the charge sits at h = g + b u_x and Szz is the mean of
// P2(u_z) = (3 u_z^2 - 1)/2, so per centre distance g the order elements
// are the integrals over the sphere of exp(-q psi(g + b u_x)) P2(u_z),
// done here by Gauss-Legendre quadrature in (u_x, azimuth).
TEST(WeightedModel, PointChargeAtAWallMatchesQuadrature) {
  Atoms one;
  one.add(0.0, 0.0, 0.0);
  const double radius = 3.0;
  const Prepared r = prepare(medium_settings(1, 20.0, radius, 36, 72, 72), one);
  ObstacleCharge c;
  c.charge_density = -0.2;
  c.ionic_strength = 0.1;
  const SurfacePotential potential(ObstacleShape::plane, 0.0, c);
  // b below the contact radius: the charge never reaches the wall.
  const double q = 2.0, b = 2.5;
  const detail::ElectrostaticInteraction interaction(detail::obstacle_of(r.settings), potential,
                                                     {{{0.0, 0.0, b}, q}}, 1e-6);
  const detail::WeightedSums sums = detail::weighted_sums(
      r.settings, r.placement, r.orientations, r.scaling, 1, one.x, one.y, one.z, &interaction, 2);

  // Independent closed form of the potential.
  const double lb = bjerrum_length(c.temperature);
  const double kappa = 1.0 / debye_length(c.ionic_strength, c.temperature);
  const double psi0 = 4.0 * M_PI * lb * (c.charge_density / 100.0) / kappa;
  // Gauss-Legendre nodes on [-1, 1] by Newton's method.
  const int nodes = 64;
  std::vector<double> t(nodes), wt(nodes);
  for (int i = 0; i < nodes; ++i) {
    double v = std::cos(M_PI * (i + 0.75) / (nodes + 0.5));
    for (int it = 0; it < 100; ++it) {
      double p0 = 1.0, p1 = v;
      for (int k = 2; k <= nodes; ++k) {
        const double p2 = ((2.0 * k - 1.0) * v * p1 - (k - 1.0) * p0) / k;
        p0 = p1;
        p1 = p2;
      }
      const double dp = nodes * (v * p1 - p0) / (v * v - 1.0);
      v -= p1 / dp;
      if (it > 5 && std::fabs(p1 / dp) < 1e-16) {
        wt[i] = 2.0 / ((1.0 - v * v) * dp * dp);
        break;
      }
      wt[i] = 2.0 / ((1.0 - v * v) * dp * dp);
    }
    t[i] = v;
  }
  // Position k of the grid: centre at g = d0 + k s from the surface (the
  // atom touches at g <= radius). Sum over positions out to where the
  // weight is 1 within 1e-12.
  const double d0 = r.placement.grid[0][1] - 20.0;
  const double s = r.settings.grid_spacing;
  double szz = 0.0, excess = 0.0;
  for (int k = 0;; ++k) {
    const double g = d0 + k * s;
    if (std::fabs(q * psi0) * std::exp(-kappa * (g - b)) < 1e-13) break;
    if (g <= radius) continue;
    double mean_w = 0.0, mean_wp2 = 0.0;
    for (int i = 0; i < nodes; ++i) {    // u_x
      for (int j = 0; j < nodes; ++j) {  // azimuth about x
        const double ux = t[i];
        const double phi = M_PI * (t[j] + 1.0);
        const double uz = std::sqrt(1.0 - ux * ux) * std::sin(phi);
        const double w = std::exp(-q * psi0 * std::exp(-kappa * (g + b * ux)));
        const double weight = wt[i] * wt[j] * M_PI / (4.0 * M_PI);
        mean_w += weight * w;
        mean_wp2 += weight * w * (1.5 * uz * uz - 0.5);
      }
    }
    szz += mean_wp2;
    excess += mean_w - 1.0;
  }
  EXPECT_NEAR(sums.excess, excess, 2e-3 * std::fabs(excess));
  ASSERT_GT(std::fabs(szz), 1e-3);
  EXPECT_NEAR(sums.sum[0], szz, 1e-2 * std::fabs(szz));
  // Axial about the molecule's z axis: the other elements vanish.
  for (int e = 1; e < 5; ++e) EXPECT_LT(std::fabs(sums.sum[e]), 2e-2 * std::fabs(szz)) << e;
}

// Far from its axis a cylinder of huge radius is a wall: the same sums
// (the volume element r/R is 1 within the molecule's size over R).
TEST(WeightedModel, HugeCylinderGivesTheWall) {
  const double big = 1.0e5;
  Atoms atoms = ubiquitin_heavy();
  const Prepared wall = prepare(medium_settings(1, 20.0, 3.0, 9, 18, 18), atoms);
  Settings cs = medium_settings(2, big, 3.0, 9, 18, 18);
  const Prepared cylinder = prepare(cs, atoms);
  ObstacleCharge c;
  c.charge_density = -0.3;
  const SurfacePotential plane(ObstacleShape::plane, 0.0, c);
  const SurfacePotential rod(ObstacleShape::cylinder, big, c);
  std::vector<PointCharge> charges;
  for (int i = 1; i <= wall.atoms.count(); i += 17) {
    charges.push_back(
        {{wall.atoms.x[i], wall.atoms.y[i], wall.atoms.z[i]}, i % 3 == 0 ? 1.0 : -1.0});
  }
  const detail::ElectrostaticInteraction at_wall(detail::obstacle_of(wall.settings), plane, charges,
                                                 1e-5);
  const detail::ElectrostaticInteraction at_rod(detail::obstacle_of(cylinder.settings), rod,
                                                charges, 1e-5);
  const detail::WeightedSums w = detail::weighted_sums(
      wall.settings, wall.placement, wall.orientations, wall.scaling, wall.atoms.count(),
      wall.atoms.x, wall.atoms.y, wall.atoms.z, &at_wall, 2);
  const detail::WeightedSums k = detail::weighted_sums(
      cylinder.settings, cylinder.placement, cylinder.orientations, cylinder.scaling,
      cylinder.atoms.count(), cylinder.atoms.x, cylinder.atoms.y, cylinder.atoms.z, &at_rod, 2);
  ASSERT_GT(largest(w.sum), 1e-3);
  for (int e = 0; e < 5; ++e) EXPECT_NEAR(k.sum[e], w.sum[e], 2e-3 * largest(w.sum)) << e;
  EXPECT_NEAR(k.excess, w.excess, 2e-3 * std::fabs(w.excess));
}

}  // namespace
}  // namespace vorn
