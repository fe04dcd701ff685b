// The energy of point charges near a charged cylinder and wall against the
// closed-form Debye-Hueckel potentials evaluated here, for the energy at
// every position and for the sampled energy (nodes and interpolation).
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "simulation/electrostatic_interaction.hpp"
#include "vorn/electrostatics.hpp"

namespace vorn {
namespace {

struct Case {
  detail::Obstacle obstacle;
  ObstacleShape shape;
};

// psi of the linearised theory, written here from its closed form:
// 4 pi lb sigma / kappa * K0(kappa r) / K1(kappa a) about a cylinder,
// 4 pi lb sigma / kappa * exp(-kappa h) at a plane.
double closed_form(const Case& c, double sigma_nm2, double h) {
  const double lb = bjerrum_length(298.15);
  const double kappa = 1.0 / debye_length(0.15, 298.15);
  const double scale = 4.0 * M_PI * lb * (sigma_nm2 / 100.0) / kappa;
  h = std::max(h, 0.0);
  if (c.shape == ObstacleShape::plane) return scale * std::exp(-kappa * h);
  const double a = c.obstacle.radius;
  return scale * std::cyl_bessel_k(0.0, kappa * (a + h)) / std::cyl_bessel_k(1.0, kappa * a);
}

TEST(ElectrostaticInteraction, EnergyIsTheSumOverChargesOfTheirPotential) {
  const double sigma = -0.45;
  ObstacleCharge charge;
  charge.charge_density = sigma;
  std::mt19937 random(7);
  std::uniform_real_distribution<double> coordinate(-10.0, 10.0), value(-1.0, 1.0);
  std::vector<PointCharge> charges;
  for (int i = 0; i < 40; ++i) {
    charges.push_back(
        {{coordinate(random), coordinate(random), coordinate(random)}, value(random)});
  }
  for (const Case& c : {Case{{detail::Obstacle::Shape::cylinder, 33.5}, ObstacleShape::cylinder},
                        Case{{detail::Obstacle::Shape::wall, 0.0}, ObstacleShape::plane}}) {
    const SurfacePotential potential(c.shape, c.obstacle.radius, charge);
    // Centre positions from 20 A (cylinder: from the axis 33.5 + 20) on,
    // 0.5 A apart.
    std::vector<double> centre;
    const double first = c.shape == ObstacleShape::cylinder ? 53.5 : 20.0;
    for (int k = 0; k < 120; ++k) centre.push_back(first + 0.5 * k);
    detail::ElectrostaticInteraction every(c.obstacle, potential, charges, 1e-9, 0.0);
    detail::ElectrostaticInteraction sampled(c.obstacle, potential, charges, 0.05,
                                             potential.debye() / 3.5);
    sampled.set_grid_step(0.5);
    auto s1 = every.scratch();
    auto s2 = sampled.scratch();
    for (int trial = 0; trial < 20; ++trial) {
      // A random orthonormal pair of axes.
      double x[3] = {value(random), value(random), value(random)};
      double nx = std::sqrt(x[0] * x[0] + x[1] * x[1] + x[2] * x[2]);
      for (double& v : x) v /= nx;
      double y[3] = {value(random), value(random), value(random)};
      const double d = x[0] * y[0] + x[1] * y[1] + x[2] * y[2];
      for (int i = 0; i < 3; ++i) y[i] -= d * x[i];
      const double ny = std::sqrt(y[0] * y[0] + y[1] * y[1] + y[2] * y[2]);
      for (double& v : y) v /= ny;
      detail::OrientationFrame frame;
      for (int i = 0; i < 3; ++i) {
        frame.x_axis[i] = x[i];
        frame.y_axis[i] = y[i];
      }
      std::vector<double> exact(centre.size(), 0.0), fine(centre.size(), 0.0),
          coarse(centre.size(), 0.0);
      for (std::size_t k = 0; k < centre.size(); ++k) {
        for (const PointCharge& q : charges) {
          const double p = x[0] * q.position.x + x[1] * q.position.y + x[2] * q.position.z;
          const double s = y[0] * q.position.x + y[1] * q.position.y + y[2] * q.position.z;
          const double h = c.shape == ObstacleShape::cylinder
                               ? std::hypot(centre[k] + p, s) - c.obstacle.radius
                               : centre[k] + p;
          exact[k] += q.charge * closed_form(c, sigma, h);
        }
      }
      every.add_energy(frame, centre, fine.data(), *s1);
      sampled.add_energy(frame, centre, coarse.data(), *s2);
      double largest = 0.0;
      for (const double u : exact) largest = std::max(largest, std::fabs(u));
      ASSERT_GT(largest, 0.1);
      for (std::size_t k = 0; k < centre.size(); ++k) {
        EXPECT_NEAR(fine[k], exact[k], 2e-4 * largest) << k;
        EXPECT_NEAR(coarse[k], exact[k], std::max(2e-3 * largest, 0.05)) << k;
      }
    }
  }
}

}  // namespace
}  // namespace vorn
