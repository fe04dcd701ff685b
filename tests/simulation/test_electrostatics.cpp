// The potentials of a charged plane or cylinder against calculations made
// here: closed forms, the differential equations checked by finite
// differences, Bessel functions by quadrature, limits and literature values.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "vorn/electrostatics.hpp"
#include "vorn/error.hpp"

namespace vorn {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kRoomTemperature = 298.15;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

// K_nu(x) = integral_0^inf exp(-x cosh t) cosh(nu t) dt; the trapezoidal
// rule converges geometrically for this integrand.
double bessel_k_quadrature(double nu, double x) {
  const double dt = 0.01;
  double sum = 0.5 * std::exp(-x);
  for (int i = 1;; ++i) {
    const double t = i * dt;
    const double term = std::exp(-x * std::cosh(t)) * std::cosh(nu * t);
    sum += term;
    if (term < 1e-300 || term < 1e-18 * sum) {
      break;
    }
  }
  return sum * dt;
}

// Fourth-order central differences of a function of h.
template <typename F>
double first_derivative(F&& f, double h, double d) {
  return (-f(h + 2 * d) + 8 * f(h + d) - 8 * f(h - d) + f(h - 2 * d)) / (12 * d);
}
template <typename F>
double second_derivative(F&& f, double h, double d) {
  return (-f(h + 2 * d) + 16 * f(h + d) - 30 * f(h) + 16 * f(h - d) - f(h - 2 * d)) / (12 * d * d);
}
// Fourth-order one-sided difference at h = 0.
template <typename F>
double surface_derivative(F&& f, double d) {
  return (-25 * f(0.0) + 48 * f(d) - 36 * f(2 * d) + 16 * f(3 * d) - 3 * f(4 * d)) / (12 * d);
}
// The same on a sampled table v[i] = f(i d).
double table_first(const std::vector<double>& v, std::size_t i, double d) {
  return (-v[i + 2] + 8 * v[i + 1] - 8 * v[i - 1] + v[i - 2]) / (12 * d);
}
double table_second(const std::vector<double>& v, std::size_t i, double d) {
  return (-v[i + 2] + 16 * v[i + 1] - 30 * v[i] + 16 * v[i - 1] - v[i - 2]) / (12 * d * d);
}
double table_surface_derivative(const std::vector<double>& v, double d) {
  return (-25 * v[0] + 48 * v[1] - 36 * v[2] + 16 * v[3] - 3 * v[4]) / (12 * d);
}

// 1 / Debye length of a 1:1 salt at room temperature, 1/A.
double kappa_of(double ionic_strength) {
  return 1.0 / debye_length(ionic_strength, kRoomTemperature);
}

// ---------------------------------------------------------------------------
// Water and the screening lengths.
// ---------------------------------------------------------------------------

TEST(WaterPermittivity, MalmbergMaryottTableValues) {
  // Their table: 87.74 at 0 C, 78.30 at 25 C, 55.72 at 100 C.
  EXPECT_NEAR(water_permittivity(273.15), 87.74, 0.005);
  EXPECT_NEAR(water_permittivity(298.15), 78.30, 0.005);
  EXPECT_NEAR(water_permittivity(373.15), 55.72, 0.005);
  EXPECT_GT(water_permittivity(300.0), water_permittivity(310.0));
}

TEST(WaterPermittivity, OutsideLiquidWaterThrows) {
  for (const double t : {273.0, 373.5, 0.0, -10.0, kNaN, kInf}) {
    EXPECT_THROW(water_permittivity(t), Error) << t;
    EXPECT_THROW(bjerrum_length(t), Error) << t;
    EXPECT_THROW(debye_length(0.15, t), Error) << t;
  }
}

TEST(BjerrumLength, GaussianUnitsAgree) {
  // lb = e^2 / (eps_r k T) in Gaussian units: e = 1.602176634e-19 C times
  // c/10 in statcoulomb, k in erg/K, lengths in cm.
  const double e_esu = 1.602176634e-19 * 299792458.0 * 10.0;
  const double k_erg = 1.380649e-16;
  for (const double t : {278.15, 298.15, 310.15, 350.0}) {
    const double expected = e_esu * e_esu / (water_permittivity(t) * k_erg * t) * 1e8;
    // eps0 of CODATA 2018 differs from 1/(4 pi 1e-7 c^2) by 5.5e-10.
    EXPECT_NEAR(bjerrum_length(t) / expected, 1.0, 2e-9) << t;
  }
  // About 7.16 A in water at 25 C (eps_r = 78.30).
  EXPECT_NEAR(bjerrum_length(kRoomTemperature), 7.158, 0.002);
}

TEST(DebyeLength, TextbookValueAndBjerrumRelation) {
  const double debye = debye_length(0.15, kRoomTemperature);
  // 0.304 / sqrt(I) nm for a 1:1 salt at 25 C.
  EXPECT_NEAR(debye / (3.04 / std::sqrt(0.15)), 1.0, 0.005);
  EXPECT_NEAR(debye, 7.85, 0.02);
  // kappa^2 = 8 pi lb N_A c with c the salt concentration in 1/m^3.
  for (const double ionic : {0.01, 0.15, 1.0}) {
    for (const double t : {283.15, 298.15, 330.0}) {
      const double lb_m = bjerrum_length(t) * 1e-10;
      const double expected = 1e10 / std::sqrt(8.0 * kPi * lb_m * 6.02214076e23 * 1000.0 * ionic);
      EXPECT_NEAR(debye_length(ionic, t) / expected, 1.0, 1e-13) << ionic << " " << t;
    }
  }
  EXPECT_NEAR(debye_length(0.6, kRoomTemperature), debye / 2.0, 1e-12);
}

TEST(DebyeLength, BadIonicStrengthThrows) {
  for (const double ionic : {0.0, -0.15, kNaN, kInf}) {
    EXPECT_THROW(debye_length(ionic, kRoomTemperature), Error) << ionic;
  }
}

// ---------------------------------------------------------------------------
// The plane.
// ---------------------------------------------------------------------------

TEST(PlanePotential, DebyeHueckelEquationAndSurfaceField) {
  const double lb = bjerrum_length(kRoomTemperature);
  const double kappa = kappa_of(0.15);
  const double sigma = -0.0045;  // e/A^2
  const auto psi = [&](double h) { return plane_potential_linear(sigma, lb, kappa, h); };
  EXPECT_NEAR(psi(0.0), 4 * kPi * lb * sigma / kappa, 1e-13);
  EXPECT_NEAR(surface_derivative(psi, 1e-3), -4 * kPi * lb * sigma, 1e-9);
  for (const double h : {0.5, 3.0, 10.0, 40.0}) {
    const double second = second_derivative(psi, h, 1e-2);
    EXPECT_NEAR(second / (kappa * kappa * psi(h)), 1.0, 1e-8) << h;
  }
}

TEST(PlanePotential, GouyChapmanClosedForm) {
  const double lb = bjerrum_length(kRoomTemperature);
  const double kappa = kappa_of(0.15);
  for (const double sigma : {0.001, -0.0045, 0.02, -0.05}) {
    // Grahame's equation, then psi = 2 ln((1 + g e^(-kappa h)) / (1 - g e^(-kappa h))).
    const double psi0 = 2.0 * std::asinh(2 * kPi * lb * sigma / kappa);
    const double g = std::tanh(psi0 / 4.0);
    for (const double h : {0.0, 0.1, 1.0, 5.0, 20.0, 60.0}) {
      const double t = std::exp(-kappa * h);
      const double expected = 2.0 * std::log((1 + g * t) / (1 - g * t));
      EXPECT_NEAR(plane_potential_nonlinear(sigma, lb, kappa, h), expected,
                  1e-12 * std::abs(psi0) + 1e-14 * std::abs(expected))
          << sigma << " " << h;
    }
    // Far away psi -> 4 tanh(psi0/4) exp(-kappa h).
    const double far = 20.0 / kappa;
    EXPECT_NEAR(plane_potential_nonlinear(sigma, lb, kappa, far) / (4 * g * std::exp(-20.0)), 1.0,
                1e-9);
  }
}

TEST(PlanePotential, GouyChapmanSolvesPoissonBoltzmann) {
  const double lb = bjerrum_length(kRoomTemperature);
  const double kappa = kappa_of(0.15);
  for (const double sigma : {-0.0045, 0.02, -0.2}) {
    const auto psi = [&](double h) { return plane_potential_nonlinear(sigma, lb, kappa, h); };
    const double d = 1e-3;
    EXPECT_NEAR(surface_derivative(psi, d) / (-4 * kPi * lb * sigma), 1.0, 1e-7) << sigma;
    for (const double h : {0.05, 0.5, 2.0, 8.0, 30.0}) {
      const double p = psi(h);
      const double second = second_derivative(psi, h, d);
      EXPECT_NEAR(second / (kappa * kappa * std::sinh(p)), 1.0, 1e-6) << sigma << " " << h;
      // First integral of the planar equation: psi' = -2 kappa sinh(psi/2).
      EXPECT_NEAR(first_derivative(psi, h, d) / (-2 * kappa * std::sinh(p / 2)), 1.0, 1e-8)
          << sigma << " " << h;
    }
  }
}

TEST(PlanePotential, GouyChapmanLimits) {
  const double lb = bjerrum_length(kRoomTemperature);
  const double kappa = kappa_of(0.15);
  // Weak charge: Debye-Hueckel (relative difference of order psi0^2).
  const double weak = 1e-6;
  for (const double h : {0.0, 2.0, 10.0, 50.0}) {
    const double linear = plane_potential_linear(weak, lb, kappa, h);
    EXPECT_NEAR(plane_potential_nonlinear(weak, lb, kappa, h) / linear, 1.0, 1e-6) << h;
    EXPECT_EQ(plane_potential_nonlinear(-weak, lb, kappa, h),
              -plane_potential_nonlinear(weak, lb, kappa, h));
  }
  // Strong charge: screened more than linearly, same sign.
  for (const double h : {0.0, 2.0, 10.0, 50.0}) {
    const double nonlinear = plane_potential_nonlinear(-0.0045, lb, kappa, h);
    EXPECT_LT(nonlinear, 0.0);
    EXPECT_GT(nonlinear, plane_potential_linear(-0.0045, lb, kappa, h));
  }
  EXPECT_EQ(plane_potential_nonlinear(0.0, lb, kappa, 1.0), 0.0);
}

// ---------------------------------------------------------------------------
// The cylinder, linearised.
// ---------------------------------------------------------------------------

TEST(CylinderPotentialLinear, BesselFunctionsByQuadrature) {
  // Tabulated K0(1) = 0.42102443824070834, K1(1) = 0.60190723019723457
  // (Abramowitz & Stegun) check the quadrature first.
  EXPECT_NEAR(bessel_k_quadrature(0, 1.0), 0.42102443824070834, 1e-15);
  EXPECT_NEAR(bessel_k_quadrature(1, 1.0), 0.60190723019723457, 1e-15);
  for (const double ionic : {0.01, 0.15, 1.0}) {
    const double lb = bjerrum_length(kRoomTemperature);
    const double kappa = kappa_of(ionic);
    for (const double radius : {5.0, 33.5, 200.0}) {
      const double sigma = -0.0045;
      for (const double h : {0.0, 1.0, 7.0, 25.0}) {
        const double expected = 4 * kPi * lb * sigma / kappa *
                                bessel_k_quadrature(0, kappa * (radius + h)) /
                                bessel_k_quadrature(1, kappa * radius);
        EXPECT_NEAR(cylinder_potential_linear(sigma, lb, kappa, radius, h) / expected, 1.0, 1e-12)
            << ionic << " " << radius << " " << h;
      }
    }
  }
}

TEST(CylinderPotentialLinear, RadialEquationAndSurfaceField) {
  const double lb = bjerrum_length(kRoomTemperature);
  const double kappa = kappa_of(0.15);
  for (const double radius : {2.0, 33.5}) {
    const double sigma = 0.003;
    const auto psi = [&](double h) {
      return cylinder_potential_linear(sigma, lb, kappa, radius, h);
    };
    EXPECT_NEAR(surface_derivative(psi, 1e-3) / (-4 * kPi * lb * sigma), 1.0, 1e-8) << radius;
    for (const double h : {0.2, 3.0, 15.0, 40.0}) {
      const double r = radius + h;
      const double lhs = second_derivative(psi, h, 1e-2) + first_derivative(psi, h, 1e-2) / r;
      EXPECT_NEAR(lhs / (kappa * kappa * psi(h)), 1.0, 1e-7) << radius << " " << h;
    }
  }
}

TEST(CylinderPotentialLinear, WideCylinderIsAPlane) {
  const double lb = bjerrum_length(kRoomTemperature);
  const double kappa = kappa_of(0.15);
  const double radius = 1e4;  // kappa a ~ 1270: K0, K1 far below DBL_MIN * e^x
  const double sigma = -0.0045;
  for (const double h : {0.0, 5.0, 30.0, 100.0}) {
    const double cylinder = cylinder_potential_linear(sigma, lb, kappa, radius, h);
    const double plane = plane_potential_linear(sigma, lb, kappa, h);
    const double x1 = kappa * radius;
    // Leading corrections: K0/K1 at the surface, sqrt(a / (a + h)) away.
    EXPECT_NEAR(cylinder / plane, 1.0, 0.5 / x1 + 0.5 * h / radius) << h;
    // Large-argument expansions of K0 and K1 to second order.
    const double x2 = kappa * (radius + h);
    const double ratio = std::sqrt(radius / (radius + h)) *
                         (1 - 1 / (8 * x2) + 9 / (128 * x2 * x2)) /
                         (1 + 3 / (8 * x1) - 15 / (128 * x1 * x1));
    EXPECT_NEAR(cylinder / plane, ratio, 1e-9) << h;
  }
}

// ---------------------------------------------------------------------------
// The cylinder, Poisson-Boltzmann.
// ---------------------------------------------------------------------------

// Checks a sampled solution psi(i d) of psi'' + psi'/r = kappa^2 sinh psi
// with psi'(a) = -4 pi lb sigma: the residual relative to the terms'
// magnitudes and the surface field; returns the largest relative residual.
double check_radial_solution(const std::vector<double>& v, double d, double sigma, double lb,
                             double kappa, double radius, double tolerance) {
  EXPECT_NEAR(table_surface_derivative(v, d) / (-4 * kPi * lb * sigma), 1.0, tolerance);
  double worst = 0.0;
  for (std::size_t i = 2; i + 2 < v.size(); i += 7) {
    const double r = radius + static_cast<double>(i) * d;
    const double second = table_second(v, i, d);
    const double first = table_first(v, i, d) / r;
    const double source = kappa * kappa * std::sinh(v[i]);
    const double scale = std::abs(second) + std::abs(first) + std::abs(source);
    worst = std::max(worst, std::abs(second + first - source) / scale);
  }
  EXPECT_LT(worst, tolerance);
  return worst;
}

TEST(CylinderPotentialNonlinear, SolvesTheRadialEquation) {
  struct Case {
    double ionic, radius, sigma_nm2;
  };
  for (const Case c : {Case{0.15, 33.5, -0.45}, Case{0.15, 33.5, -0.33}, Case{0.15, 33.5, 2.0},
                       Case{0.15, 33.5, -2.0}, Case{0.15, 5.0, 2.0}, Case{0.15, 5.0, -2.0},
                       Case{0.01, 33.5, -2.0}, Case{0.01, 5.0, 0.45}, Case{1.0, 33.5, -2.0},
                       Case{1.0, 5.0, 2.0}, Case{0.15, 1.0, -0.45}}) {
    SCOPED_TRACE(testing::Message()
                 << "I " << c.ionic << " a " << c.radius << " sigma " << c.sigma_nm2);
    const double lb = bjerrum_length(kRoomTemperature);
    const double kappa = kappa_of(c.ionic);
    const double sigma = c.sigma_nm2 / 100.0;
    const double d = 0.02;
    const int count = static_cast<int>(25.0 / kappa / d);
    const std::vector<double> v =
        cylinder_potential_nonlinear(sigma, lb, kappa, c.radius, d, count);
    ASSERT_EQ(v.size(), static_cast<std::size_t>(count));
    check_radial_solution(v, d, sigma, lb, kappa, c.radius, 2e-6);
    // Same sign, decaying, and below the linear potential in magnitude
    // (maximum principle: sinh(psi) psi >= psi^2).
    for (std::size_t i = 0; i < v.size(); ++i) {
      const double h = static_cast<double>(i) * d;
      const double linear = cylinder_potential_linear(sigma, lb, kappa, c.radius, h);
      ASSERT_GT(v[i] * sigma, 0.0) << h;
      ASSERT_LT(std::abs(v[i]), std::abs(linear)) << h;
      if (i > 0) {
        ASSERT_LT(std::abs(v[i]), std::abs(v[i - 1])) << h;
      }
    }
    // Far away the solution is the decaying Bessel one, psi ~ C K0(kappa r).
    const auto far_amplitude = [&](double kappa_h) {
      const auto i = static_cast<std::size_t>(std::lround(kappa_h / kappa / d));
      const double h = static_cast<double>(i) * d;
      return v[i] / bessel_k_quadrature(0, kappa * (c.radius + h));
    };
    EXPECT_NEAR(far_amplitude(12.0) / far_amplitude(18.0), 1.0, 1e-6);
  }
}

TEST(CylinderPotentialNonlinear, WeakChargeIsLinear) {
  for (const double ionic : {0.01, 0.15, 1.0}) {
    const double lb = bjerrum_length(kRoomTemperature);
    const double kappa = kappa_of(ionic);
    for (const double radius : {5.0, 33.5}) {
      const double sigma = 1e-6;  // 1e-4 e/nm^2: psi0 ~ 1e-3
      const std::vector<double> v = cylinder_potential_nonlinear(sigma, lb, kappa, radius, 0.5, 80);
      const double psi0 = cylinder_potential_linear(sigma, lb, kappa, radius, 0.0);
      for (std::size_t i = 0; i < v.size(); ++i) {
        const double linear =
            cylinder_potential_linear(sigma, lb, kappa, radius, 0.5 * static_cast<double>(i));
        EXPECT_NEAR(v[i], linear, 1e-6 * psi0) << ionic << " " << radius << " " << i;
      }
    }
  }
}

TEST(CylinderPotentialNonlinear, WideCylinderIsGouyChapman) {
  const double lb = bjerrum_length(kRoomTemperature);
  const double kappa = kappa_of(0.15);
  for (const double sigma : {-0.0045, 0.02}) {
    const double d = 0.25;
    const std::vector<double> v = cylinder_potential_nonlinear(sigma, lb, kappa, 1e4, d, 200);
    const double psi0 = plane_potential_nonlinear(sigma, lb, kappa, 0.0);
    for (std::size_t i = 0; i < v.size(); ++i) {
      const double plane = plane_potential_nonlinear(sigma, lb, kappa, d * static_cast<double>(i));
      EXPECT_NEAR(v[i], plane, 1e-3 * std::abs(psi0)) << sigma << " " << i;
    }
  }
}

TEST(CylinderPotentialNonlinear, Pf1PhageIsScreenedBelowLinear) {
  // Pf1: radius 33.5 A, about -0.45 e/nm^2, 150 mM salt.
  const double lb = bjerrum_length(kRoomTemperature);
  const double kappa = kappa_of(0.15);
  const double sigma = -0.0045;
  const double linear = cylinder_potential_linear(sigma, lb, kappa, 33.5, 0.0);
  EXPECT_GT(linear, -3.0);
  EXPECT_LT(linear, -2.7);
  const std::vector<double> v = cylinder_potential_nonlinear(sigma, lb, kappa, 33.5, 0.05, 400);
  const std::vector<double> mirrored =
      cylinder_potential_nonlinear(-sigma, lb, kappa, 33.5, 0.05, 400);
  EXPECT_LT(v[0], 0.0);
  EXPECT_GT(v[0], linear);
  // The field of a curved surface spreads out: the cylinder's potential is
  // below the Gouy-Chapman plane's in magnitude.
  EXPECT_GT(v[0], plane_potential_nonlinear(sigma, lb, kappa, 0.0));
  for (std::size_t i = 0; i < v.size(); ++i) {
    EXPECT_EQ(mirrored[i], -v[i]) << i;
  }
}

TEST(CylinderPotentialNonlinear, Arguments) {
  const double lb = bjerrum_length(kRoomTemperature);
  const double kappa = kappa_of(0.15);
  EXPECT_TRUE(cylinder_potential_nonlinear(0.01, lb, kappa, 10.0, 0.1, 0).empty());
  for (const double value : cylinder_potential_nonlinear(0.0, lb, kappa, 10.0, 0.1, 20)) {
    EXPECT_EQ(value, 0.0);
  }
  EXPECT_THROW(cylinder_potential_nonlinear(kNaN, lb, kappa, 10.0, 0.1, 5), Error);
  EXPECT_THROW(cylinder_potential_nonlinear(0.01, 0.0, kappa, 10.0, 0.1, 5), Error);
  EXPECT_THROW(cylinder_potential_nonlinear(0.01, lb, -kappa, 10.0, 0.1, 5), Error);
  EXPECT_THROW(cylinder_potential_nonlinear(0.01, lb, kappa, 0.0, 0.1, 5), Error);
  EXPECT_THROW(cylinder_potential_nonlinear(0.01, lb, kappa, 10.0, 0.0, 5), Error);
  EXPECT_THROW(cylinder_potential_nonlinear(0.01, lb, kappa, 10.0, 0.1, -1), Error);
}

// ---------------------------------------------------------------------------
// The tables.
// ---------------------------------------------------------------------------

ObstacleCharge charge_of(double sigma_nm2, double ionic, PotentialModel model) {
  ObstacleCharge charge;
  charge.charge_density = sigma_nm2;
  charge.ionic_strength = ionic;
  charge.temperature = kRoomTemperature;
  charge.potential = model;
  return charge;
}

// Largest interpolation error at the midpoints of the table, relative to
// |psi(0)|, against `exact`.
template <typename F>
double midpoint_error(const SurfacePotential& potential, F&& exact) {
  const double step = potential.step();
  const double psi0 = std::abs(exact(0.0));
  double worst = 0.0;
  for (std::size_t i = 0; i + 1 < potential.values().size(); ++i) {
    const double h = (static_cast<double>(i) + 0.5) * step;
    worst = std::max(worst, std::abs(potential(h) - exact(h)) / psi0);
  }
  return worst;
}

TEST(SurfacePotential, PlaneTablesInterpolateTheClosedForms) {
  for (const double ionic : {0.01, 0.15, 1.0}) {
    const double lb = bjerrum_length(kRoomTemperature);
    const double kappa = kappa_of(ionic);
    for (const double sigma_nm2 : {-0.45, 2.0}) {
      const double sigma = sigma_nm2 / 100.0;
      const SurfacePotential linear(ObstacleShape::plane, 0.0,
                                    charge_of(sigma_nm2, ionic, PotentialModel::linear));
      EXPECT_NEAR(linear.surface(), 4 * kPi * lb * sigma / kappa, 1e-12);
      EXPECT_LE(linear.step(), 0.05);
      EXPECT_LE(linear.step(), 1.0 / kappa / 200.0 * (1 + 1e-12));
      EXPECT_LT(midpoint_error(
                    linear,
                    [&](double h) { return 4 * kPi * lb * sigma / kappa * std::exp(-kappa * h); }),
                1e-5);
      const SurfacePotential nonlinear(ObstacleShape::plane, 0.0,
                                       charge_of(sigma_nm2, ionic, PotentialModel::nonlinear));
      const double psi0 = 2.0 * std::asinh(2 * kPi * lb * sigma / kappa);
      EXPECT_NEAR(nonlinear.surface(), psi0, 1e-12);
      const double g = std::tanh(psi0 / 4);
      EXPECT_LT(midpoint_error(nonlinear,
                               [&](double h) {
                                 const double t = g * std::exp(-kappa * h);
                                 return 2.0 * std::log((1 + t) / (1 - t));
                               }),
                1e-5)
          << ionic << " " << sigma_nm2;
      EXPECT_NEAR(nonlinear.debye(), 1.0 / kappa, 1e-12);
    }
  }
}

TEST(SurfacePotential, CylinderTablesInterpolateTheSolutions) {
  for (const double ionic : {0.01, 0.15, 1.0}) {
    const double lb = bjerrum_length(kRoomTemperature);
    const double kappa = kappa_of(ionic);
    for (const double radius : {5.0, 33.5}) {
      for (const double sigma_nm2 : {-0.45, 2.0}) {
        SCOPED_TRACE(testing::Message()
                     << "I " << ionic << " a " << radius << " sigma " << sigma_nm2);
        const double sigma = sigma_nm2 / 100.0;
        const SurfacePotential linear(ObstacleShape::cylinder, radius,
                                      charge_of(sigma_nm2, ionic, PotentialModel::linear));
        EXPECT_LT(midpoint_error(linear,
                                 [&](double h) {
                                   return 4 * kPi * lb * sigma / kappa *
                                          bessel_k_quadrature(0, kappa * (radius + h)) /
                                          bessel_k_quadrature(1, kappa * radius);
                                 }),
                  1e-5);
        const SurfacePotential nonlinear(ObstacleShape::cylinder, radius,
                                         charge_of(sigma_nm2, ionic, PotentialModel::nonlinear));
        // The table holds the solution at its points; halfway between them
        // it interpolates the solution sampled twice as finely.
        const auto n = static_cast<int>(nonlinear.values().size());
        const std::vector<double> half =
            cylinder_potential_nonlinear(sigma, lb, kappa, radius, nonlinear.step() / 2, 2 * n);
        double worst = 0.0;
        for (int i = 0; i + 1 < n; ++i) {
          const double h = (i + 0.5) * nonlinear.step();
          worst = std::max(worst, std::abs(nonlinear(h) - half[2 * i + 1]));
          ASSERT_NEAR(nonlinear.values()[i], half[2 * i], 1e-12 * std::abs(half[0]));
        }
        EXPECT_LT(worst / std::abs(half[0]), 1e-5);
        // psi''(0) from the equation at the surface bounds the error of
        // linear interpolation near it: step^2 |psi''| / 8.
        const double psi0 = nonlinear.surface();
        const double curvature = kappa * kappa * std::sinh(psi0) + 4 * kPi * lb * sigma / radius;
        EXPECT_LT(nonlinear.step() * nonlinear.step() * std::abs(curvature) / 8.0,
                  1.01e-5 * std::abs(psi0));
      }
    }
  }
}

TEST(SurfacePotential, TableEndAndRange) {
  const double lb = bjerrum_length(kRoomTemperature);
  const double kappa = kappa_of(0.15);
  const double sigma_nm2 = -0.45;
  const SurfacePotential plane(ObstacleShape::plane, 0.0,
                               charge_of(sigma_nm2, 0.15, PotentialModel::linear));
  const double psi0 = 4 * kPi * lb * sigma_nm2 / 100.0 / kappa;
  const std::vector<double>& v = plane.values();
  const double cut = 1e-9 * std::max(1.0, std::abs(psi0));
  ASSERT_GE(v.size(), 2u);
  EXPECT_LT(std::abs(v.back()), cut);
  EXPECT_GE(std::abs(v[v.size() - 2]), cut);
  for (const double tolerance : {1e-2, 1e-4, 1e-7}) {
    // |psi0| exp(-kappa h) = tolerance.
    const double expected = std::log(std::abs(psi0) / tolerance) / kappa;
    const double range = plane.range(tolerance);
    EXPECT_GE(range, expected - 1e-9) << tolerance;
    EXPECT_LE(range, expected + plane.step() + 1e-9) << tolerance;
    for (int i = 0; i < 1500; ++i) {
      const double h = range + 0.013 * i;
      ASSERT_LT(std::abs(plane(h)), tolerance) << h;
    }
  }
  EXPECT_EQ(plane.range(10.0), 0.0);  // above |psi0|

  for (const PotentialModel model : {PotentialModel::linear, PotentialModel::nonlinear}) {
    const SurfacePotential cylinder(ObstacleShape::cylinder, 33.5,
                                    charge_of(sigma_nm2, 0.15, model));
    const std::vector<double>& w = cylinder.values();
    const double cylinder_cut = 1e-9 * std::max(1.0, std::abs(w.front()));
    EXPECT_LT(std::abs(w.back()), cylinder_cut);
    EXPECT_GE(std::abs(w[w.size() - 2]), cylinder_cut);
    const double range = cylinder.range(1e-3);
    const auto i = static_cast<std::size_t>(std::lround(range / cylinder.step()));
    EXPECT_LT(std::abs(w[i]), 1e-3);
    EXPECT_GE(std::abs(w[i - 1]), 1e-3);
  }
}

TEST(SurfacePotential, LookupOutsideAndAtThePoints) {
  const SurfacePotential potential(ObstacleShape::cylinder, 33.5,
                                   charge_of(-0.45, 0.15, PotentialModel::nonlinear));
  const std::vector<double>& v = potential.values();
  EXPECT_EQ(potential.surface(), v.front());
  EXPECT_EQ(potential(-1.0), v.front());
  EXPECT_EQ(potential(0.0), v.front());
  const double end = static_cast<double>(v.size() - 1) * potential.step();
  EXPECT_EQ(potential(end + potential.step()), 0.0);
  EXPECT_EQ(potential(1e9), 0.0);
  EXPECT_NEAR(potential.inverse_step() * potential.step(), 1.0, 1e-15);
  for (const std::size_t i : {std::size_t{1}, std::size_t{17}, v.size() / 2, v.size() - 2}) {
    EXPECT_NEAR(potential(static_cast<double>(i) * potential.step()), v[i],
                1e-12 * std::abs(v.front()))
        << i;
  }
  // Nonlinear screening lowers the potential of the same charge.
  const SurfacePotential linear(ObstacleShape::cylinder, 33.5,
                                charge_of(-0.45, 0.15, PotentialModel::linear));
  EXPECT_LT(linear.surface(), potential.surface());
  const SurfacePotential mirrored(ObstacleShape::cylinder, 33.5,
                                  charge_of(0.45, 0.15, PotentialModel::nonlinear));
  EXPECT_EQ(mirrored.surface(), -potential.surface());
}

TEST(SurfacePotential, ZeroChargeIsZero) {
  for (const ObstacleShape shape : {ObstacleShape::plane, ObstacleShape::cylinder}) {
    for (const PotentialModel model : {PotentialModel::linear, PotentialModel::nonlinear}) {
      const SurfacePotential potential(shape, 33.5, charge_of(0.0, 0.15, model));
      EXPECT_EQ(potential.surface(), 0.0);
      EXPECT_EQ(potential(0.0), 0.0);
      EXPECT_EQ(potential(3.0), 0.0);
      EXPECT_EQ(potential.range(1e-12), 0.0);
      EXPECT_GT(potential.step(), 0.0);
      EXPECT_NEAR(potential.debye(), debye_length(0.15, kRoomTemperature), 1e-12);
    }
  }
}

TEST(SurfacePotential, BadParametersThrow) {
  const auto model = PotentialModel::nonlinear;
  for (const double ionic : {0.0, -0.1, kNaN}) {
    EXPECT_THROW(SurfacePotential(ObstacleShape::plane, 0.0, charge_of(-0.45, ionic, model)),
                 Error);
  }
  for (const double temperature : {0.0, 250.0, 400.0, kNaN}) {
    ObstacleCharge charge = charge_of(-0.45, 0.15, model);
    charge.temperature = temperature;
    EXPECT_THROW(SurfacePotential(ObstacleShape::cylinder, 33.5, charge), Error);
  }
  for (const double radius : {0.0, -33.5, kNaN, kInf}) {
    EXPECT_THROW(SurfacePotential(ObstacleShape::cylinder, radius, charge_of(-0.45, 0.15, model)),
                 Error);
  }
  for (const double sigma : {kNaN, kInf, -kInf}) {
    EXPECT_THROW(SurfacePotential(ObstacleShape::plane, 0.0, charge_of(sigma, 0.15, model)), Error);
  }
  // The plane has no radius.
  EXPECT_NO_THROW(SurfacePotential(ObstacleShape::plane, 0.0, charge_of(-0.45, 0.15, model)));
  EXPECT_NO_THROW(SurfacePotential(ObstacleShape::plane, -1.0, charge_of(-0.45, 0.15, model)));
}

}  // namespace
}  // namespace vorn
