// Potentials of a charged plane or cylinder in a 1:1 salt: closed forms for
// the plane and the linearised cylinder, a radial shooting solve for the
// Poisson-Boltzmann cylinder, and the tables the simulation interpolates.
#include "vorn/electrostatics.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "vorn/error.hpp"

namespace vorn {

namespace {

// CODATA 2018 (the first three exact by the SI definitions).
constexpr double kElementaryCharge = 1.602176634e-19;     // C
constexpr double kBoltzmann = 1.380649e-23;               // J/K
constexpr double kAvogadro = 6.02214076e23;               // 1/mol
constexpr double kVacuumPermittivity = 8.8541878128e-12;  // F/m
constexpr double kAngstromPerMetre = 1e10;
constexpr double kPi = 3.14159265358979323846;

// Validity of the permittivity fit (0..100 degrees C).
constexpr double kMinTemperature = 273.15;
constexpr double kMaxTemperature = 373.15;

// Surface charge density from e/nm^2 to e/A^2.
constexpr double kNm2PerA2 = 0.01;

// Table layout: the coarsest steps, the interpolation error aimed at
// (relative to psi(0)), the finest step allowed (in Debye lengths, to bound
// the table for absurd charges), where the table ends, and its size cap.
constexpr double kMaxStep = 0.05;
constexpr double kDebyeSteps = 200.0;
constexpr double kInterpolationError = 5e-6;
constexpr double kMinStepPerDebye = 1e-4;
constexpr double kTableCut = 1e-9;
constexpr std::size_t kMaxTableSize = std::size_t{1} << 24;

// e^x K_nu(x), nu = 0 or 1, x > 0. The standard function underflows for
// large x; there the asymptotic series (whose smallest term is about
// e^(-2x)) is exact to rounding.
double scaled_bessel_k(int nu, double x) {
  if (x < 30.0) {
    return std::cyl_bessel_k(static_cast<double>(nu), x) * std::exp(x);
  }
  const double mu = 4.0 * nu * nu;
  double term = 1.0;
  double sum = 1.0;
  for (int k = 1; k < 60; ++k) {
    const double odd = 2.0 * k - 1.0;
    term *= (mu - odd * odd) / (8.0 * k * x);
    sum += term;
    if (std::abs(term) < 1e-17 * std::abs(sum)) {
      break;
    }
  }
  return std::sqrt(kPi / (2.0 * x)) * sum;
}

// K0(kappa (a + h)) / K0(kappa (a + h0)) for h >= h0, without underflow.
double k0_ratio(double kappa, double radius, double h0, double h) {
  return std::exp(-kappa * (h - h0)) * scaled_bessel_k(0, kappa * (radius + h)) /
         scaled_bessel_k(0, kappa * (radius + h0));
}

// sinh and cosh from one expm1, accurate also for small |x|.
void sinh_cosh(double x, double& s, double& c) {
  const double em = std::expm1(x);
  const double e = em + 1.0;
  s = 0.5 * em * (em + 2.0) / e;
  c = 1.0 + 0.5 * em * em / e;
}

void require(bool condition, const std::string& message) {
  if (!condition) {
    throw Error(message);
  }
}

// The Poisson-Boltzmann cylinder for sigma > 0 (the solution is odd in
// sigma). psi(r) for r >= a satisfies psi'' + psi'/r = kappa^2 sinh(psi),
// psi'(a) = -4 pi lb sigma, psi -> 0 as r -> infinity.
//
// Beyond R = a + L (at least 15 Debye lengths) the linear potential, and
// so this one, is below 1e-7: there sinh(psi) - psi < 1e-21 and
// psi = p K0(kappa r) / K0(kappa R). The amplitude p
// is found by shooting inwards from R with classical Runge-Kutta: inwards
// the K0 solution grows and the I0 one decays, so the integration is
// stable and an error of the start only excites the decaying mode. The
// surface field -psi'(a) grows monotonically with p; it is matched to
// 4 pi lb sigma by Newton's method on p, the derivative coming from the
// variational equation integrated alongside, kept inside a bracket that
// shrinks on every step. By the maximum principle the Debye-Hueckel
// potential bounds the solution (0 < psi_PB <= psi_DH), which gives the
// first bracket (twice psi_DH(R), leaving room for the discretisation) and
// flags shots that run away (psi above psi_DH(0) + 1).
//
// The nodes are spaced c min(h + l0, 1/kappa, a + h) with l0 the smaller of
// the Debye and Gouy-Chapman lengths: logarithmic near a strongly charged
// surface, where psi varies on the scale h + l_GC, uniform in the far field.
class RadialSolution {
 public:
  RadialSolution(double sigma, double lb, double kappa, double radius)
      : kappa_(kappa), radius_(radius), sign_(sigma < 0.0 ? -1.0 : 1.0) {
    const double charge = std::abs(sigma);
    if (charge == 0.0) {
      zero_ = true;
      return;
    }
    const double linear_surface = cylinder_potential_linear(charge, lb, kappa, radius, 0.0);
    // Far below any nonlinearity: the linear potential is exact to rounding.
    if (linear_surface < 1e-9) {
      linear_ = true;
      lb_ = lb;
      charge_ = charge;
      return;
    }
    const double debye = 1.0 / kappa;
    const double far = std::max(15.0, std::log(linear_surface / 1e-7)) * debye;
    const double gouy_chapman = 1.0 / (2.0 * kPi * lb * charge);
    const double near = std::min({debye, gouy_chapman, radius});
    constexpr double kSpacing = 0.01;
    h_.push_back(0.0);
    while (h_.back() < far) {
      const double x = h_.back();
      const double d = kSpacing * std::min({x + near, debye, radius + x});
      h_.push_back(std::min(x + d, far));
    }
    psi_.assign(h_.size(), 0.0);
    slope_.assign(h_.size(), 0.0);
    far_log_slope_ = -kappa * scaled_bessel_k(1, kappa * (radius + far)) /
                     scaled_bessel_k(0, kappa * (radius + far));
    solve(4.0 * kPi * lb * charge, cylinder_potential_linear(charge, lb, kappa, radius, far),
          std::min(linear_surface + 1.0, 700.0), 2.0 * kPi * lb * charge / kappa);
    // psi'' at the nodes from the equation itself, for C2 interpolation.
    curvature_.resize(h_.size());
    for (std::size_t k = 0; k < h_.size(); ++k) {
      curvature_[k] = kappa * kappa * std::sinh(psi_[k]) - slope_[k] / (radius + h_[k]);
    }
  }

  double surface() const {
    if (zero_) {
      return 0.0;
    }
    return linear_ ? sign_ * cylinder_potential_linear(charge_, lb_, kappa_, radius_, 0.0)
                   : sign_ * psi_.front();
  }

  // psi(h) for h >= 0; `cursor` speeds up calls with increasing h.
  double at(double h, std::size_t& cursor) const {
    if (zero_) {
      return 0.0;
    }
    if (linear_) {
      return sign_ * cylinder_potential_linear(charge_, lb_, kappa_, radius_, h);
    }
    const std::size_t last = h_.size() - 1;
    if (h >= h_[last]) {
      return sign_ * psi_[last] * k0_ratio(kappa_, radius_, h_[last], h);
    }
    if (cursor >= last || h < h_[cursor]) {
      cursor = static_cast<std::size_t>(std::upper_bound(h_.begin(), h_.end(), h) - h_.begin());
      cursor = cursor == 0 ? 0 : cursor - 1;
    }
    while (h >= h_[cursor + 1]) {
      ++cursor;
    }
    // Quintic Hermite interpolation from the nodes' psi, psi' and psi'':
    // sixth order and twice continuously differentiable, like psi.
    const std::size_t k = cursor;
    const double d = h_[k + 1] - h_[k];
    const double t = (h - h_[k]) / d;
    const double t2 = t * t;
    const double t3 = t2 * t;
    const double t4 = t3 * t;
    const double t5 = t4 * t;
    const double value = (1.0 - 10.0 * t3 + 15.0 * t4 - 6.0 * t5) * psi_[k] +
                         (t - 6.0 * t3 + 8.0 * t4 - 3.0 * t5) * d * slope_[k] +
                         0.5 * (t2 - 3.0 * t3 + 3.0 * t4 - t5) * d * d * curvature_[k] +
                         0.5 * (t3 - 2.0 * t4 + t5) * d * d * curvature_[k + 1] +
                         (-4.0 * t3 + 7.0 * t4 - 3.0 * t5) * d * slope_[k + 1] +
                         (10.0 * t3 - 15.0 * t4 + 6.0 * t5) * psi_[k + 1];
    return sign_ * value;
  }

 private:
  struct State {
    double psi, slope, u, du;  // psi, psi', dpsi/dp, dpsi'/dp
  };

  State derivative(double r, const State& y) const {
    double s = 0.0;
    double c = 0.0;
    sinh_cosh(y.psi, s, c);
    const double k2 = kappa_ * kappa_;
    return {y.slope, k2 * s - y.slope / r, y.du, k2 * c * y.u - y.du / r};
  }

  static State axpy(const State& y, double a, const State& k) {
    return {y.psi + a * k.psi, y.slope + a * k.slope, y.u + a * k.u, y.du + a * k.du};
  }

  // Integrates from the far end with psi(R) = p to the surface, storing
  // psi and psi' at the nodes. False when the shot runs away (p too large).
  bool shoot(double p, double cap, double& field, double& dfield) {
    const std::size_t last = h_.size() - 1;
    State y{p, far_log_slope_ * p, 1.0, far_log_slope_};
    psi_[last] = y.psi;
    slope_[last] = y.slope;
    for (std::size_t k = last; k > 0; --k) {
      const double r = radius_ + h_[k];
      const double d = h_[k - 1] - h_[k];
      const State k1 = derivative(r, y);
      const State k2 = derivative(r + 0.5 * d, axpy(y, 0.5 * d, k1));
      const State k3 = derivative(r + 0.5 * d, axpy(y, 0.5 * d, k2));
      const State k4 = derivative(r + d, axpy(y, d, k3));
      y.psi += d / 6.0 * (k1.psi + 2.0 * k2.psi + 2.0 * k3.psi + k4.psi);
      y.slope += d / 6.0 * (k1.slope + 2.0 * k2.slope + 2.0 * k3.slope + k4.slope);
      y.u += d / 6.0 * (k1.u + 2.0 * k2.u + 2.0 * k3.u + k4.u);
      y.du += d / 6.0 * (k1.du + 2.0 * k2.du + 2.0 * k3.du + k4.du);
      if (!(std::abs(y.psi) <= cap) || !std::isfinite(y.slope) || !std::isfinite(y.du)) {
        return false;
      }
      psi_[k - 1] = y.psi;
      slope_[k - 1] = y.slope;
    }
    field = -y.slope;
    dfield = -y.du;
    return true;
  }

  // Newton's method on the far amplitude p for -psi'(a) = target; `plane`
  // is 2 pi lb sigma / kappa, for the starting guess.
  void solve(double target, double linear_far, double cap, double plane) {
    // Start from the linear far field scaled down as the Gouy-Chapman plane
    // scales its far field (4 tanh(psi0/4) against 2 s), a fair guess.
    double p = linear_far * std::min(1.0, 4.0 * std::tanh(0.5 * std::asinh(plane)) / (2.0 * plane));
    double low = 0.0;
    double high = 2.0 * linear_far;
    for (int iteration = 0; iteration < 200; ++iteration) {
      double field = 0.0;
      double dfield = 0.0;
      if (!shoot(p, cap, field, dfield)) {
        high = p;
        p = low > 0.0 ? std::sqrt(low * high) : 0.25 * high;
        continue;
      }
      const double mismatch = field - target;
      if (std::abs(mismatch) <= 1e-11 * target) {
        return;
      }
      if (mismatch > 0.0) {
        high = std::min(high, p);
      } else {
        low = std::max(low, p);
      }
      double next = dfield > 0.0 ? p - mismatch / dfield : std::numeric_limits<double>::quiet_NaN();
      if (!(next > low && next < high)) {
        next = low > 0.0 ? std::sqrt(low * high) : 0.25 * high;
      }
      if (std::abs(next - p) <= 4.0 * std::numeric_limits<double>::epsilon() * p ||
          high - low <= 1e-14 * high) {
        return;  // p is settled to rounding; the stored shot is the answer
      }
      p = next;
    }
    throw Error("The Poisson-Boltzmann potential of the cylinder did not converge");
  }

  double kappa_;
  double radius_;
  double sign_;
  bool zero_ = false;
  bool linear_ = false;
  double lb_ = 0.0;
  double charge_ = 0.0;
  double far_log_slope_ = 0.0;  // psi'/psi of K0 at the far end
  std::vector<double> h_;
  std::vector<double> psi_;
  std::vector<double> slope_;
  std::vector<double> curvature_;
};

void check_temperature(double temperature) {
  require(std::isfinite(temperature) && temperature >= kMinTemperature &&
              temperature <= kMaxTemperature,
          "The temperature must lie between 273.15 and 373.15 K (liquid water), not " +
              std::to_string(temperature) + " K");
}

}  // namespace

double water_permittivity(double temperature) {
  check_temperature(temperature);
  const double t = temperature - 273.15;
  return 87.740 - 0.40008 * t + 9.398e-4 * t * t - 1.410e-6 * t * t * t;
}

double bjerrum_length(double temperature) {
  const double eps = water_permittivity(temperature);
  return kElementaryCharge * kElementaryCharge /
         (4.0 * kPi * kVacuumPermittivity * eps * kBoltzmann * temperature) * kAngstromPerMetre;
}

double debye_length(double ionic_strength, double temperature) {
  require(std::isfinite(ionic_strength) && ionic_strength > 0.0,
          "The ionic strength must be positive, not " + std::to_string(ionic_strength) + " mol/l");
  const double eps = water_permittivity(temperature);
  const double per_cubic_metre = ionic_strength * 1000.0;  // mol/m^3
  return std::sqrt(eps * kVacuumPermittivity * kBoltzmann * temperature /
                   (2.0 * kAvogadro * kElementaryCharge * kElementaryCharge * per_cubic_metre)) *
         kAngstromPerMetre;
}

double plane_potential_linear(double sigma, double lb, double kappa, double h) {
  return 4.0 * kPi * lb * sigma / kappa * std::exp(-kappa * h);
}

double plane_potential_nonlinear(double sigma, double lb, double kappa, double h) {
  if (sigma == 0.0) {
    return 0.0;
  }
  // Grahame: sinh(psi0/2) = 2 pi lb sigma / kappa; psi = 4 artanh(g t) with
  // g = tanh(|psi0|/4), t = exp(-kappa h).
  const double psi0 = 2.0 * std::asinh(2.0 * kPi * lb * std::abs(sigma) / kappa);
  const double g = std::tanh(0.25 * psi0);
  const double t = std::exp(-kappa * h);
  double psi = 0.0;
  if (g * t < 0.5) {
    psi = 4.0 * std::atanh(g * t);
  } else {
    // Near a strongly charged surface g t is close to 1: form 1 - g t from
    // 1 - t and 1 - g, each without cancellation.
    const double one_minus_g = 2.0 / (std::exp(0.5 * psi0) + 1.0);
    const double one_minus_t = -std::expm1(-kappa * h);
    psi = 2.0 * std::log((1.0 + g * t) / (one_minus_t + one_minus_g * t));
  }
  return sigma < 0.0 ? -psi : psi;
}

double cylinder_potential_linear(double sigma, double lb, double kappa, double radius, double h) {
  return 4.0 * kPi * lb * sigma / kappa * std::exp(-kappa * h) *
         scaled_bessel_k(0, kappa * (radius + h)) / scaled_bessel_k(1, kappa * radius);
}

std::vector<double> cylinder_potential_nonlinear(double sigma, double lb, double kappa,
                                                 double radius, double step, int count) {
  require(std::isfinite(sigma), "The surface charge density must be finite");
  require(std::isfinite(lb) && lb > 0.0, "The Bjerrum length must be positive");
  require(std::isfinite(kappa) && kappa > 0.0, "The inverse Debye length must be positive");
  require(std::isfinite(radius) && radius > 0.0, "The cylinder radius must be positive");
  require(std::isfinite(step) && step > 0.0, "The step of the potential must be positive");
  require(count >= 0, "The number of potential values must not be negative");
  std::vector<double> values(static_cast<std::size_t>(count), 0.0);
  if (count == 0) {
    return values;
  }
  const RadialSolution solution(sigma, lb, kappa, radius);
  std::size_t cursor = 0;
  for (std::size_t i = 0; i < values.size(); ++i) {
    values[i] = solution.at(static_cast<double>(i) * step, cursor);
  }
  return values;
}

namespace {

// psi(i step) for i = 0, 1, ... up to and including the first value below
// `cut` in magnitude.
template <typename Potential>
std::vector<double> tabulate(double step, double cut, Potential&& potential) {
  std::vector<double> values;
  for (std::size_t i = 0;; ++i) {
    require(i < kMaxTableSize, "The table of the surface potential would be too large");
    const double value = potential(static_cast<double>(i) * step);
    require(std::isfinite(value), "The surface potential is not finite");
    values.push_back(value);
    if (std::abs(value) < cut) {
      return values;
    }
  }
}

}  // namespace

SurfacePotential::SurfacePotential(ObstacleShape shape, double radius,
                                   const ObstacleCharge& charge) {
  require(std::isfinite(charge.charge_density), "The surface charge density must be finite, not " +
                                                    std::to_string(charge.charge_density) +
                                                    " e/nm^2");
  const bool cylinder = shape == ObstacleShape::cylinder;
  if (cylinder) {
    require(std::isfinite(radius) && radius > 0.0,
            "The cylinder radius must be positive, not " + std::to_string(radius) + " A");
  }
  debye_ = debye_length(charge.ionic_strength, charge.temperature);
  const double lb = bjerrum_length(charge.temperature);
  const double kappa = 1.0 / debye_;
  const double sigma = charge.charge_density * kNm2PerA2;
  const bool linear = charge.potential == PotentialModel::linear;

  step_ = std::min(kMaxStep, debye_ / kDebyeSteps);
  inverse_step_ = 1.0 / step_;
  if (sigma == 0.0) {
    return;
  }

  // psi(0) and psi''(0) (from the equation at the surface, where
  // psi'(a) = -4 pi lb sigma), for a step that keeps the interpolation
  // error h^2 |psi''| / 8 within kInterpolationError |psi(0)|: psi'' is
  // largest in magnitude at the surface.
  std::optional<RadialSolution> radial;
  double psi0 = 0.0;
  if (!cylinder) {
    psi0 = linear ? plane_potential_linear(sigma, lb, kappa, 0.0)
                  : plane_potential_nonlinear(sigma, lb, kappa, 0.0);
  } else if (linear) {
    psi0 = cylinder_potential_linear(sigma, lb, kappa, radius, 0.0);
  } else {
    radial.emplace(sigma, lb, kappa, radius);
    psi0 = radial->surface();
  }
  double curvature = kappa * kappa * (linear ? psi0 : std::sinh(psi0));
  if (cylinder) {
    curvature += 4.0 * kPi * lb * sigma / radius;
  }
  const double fine = std::sqrt(8.0 * kInterpolationError * std::abs(psi0 / curvature));
  step_ = std::max(std::min(step_, fine), kMinStepPerDebye * debye_);
  inverse_step_ = 1.0 / step_;

  const double cut = kTableCut * std::max(1.0, std::abs(psi0));
  if (!cylinder) {
    values_ =
        linear ? tabulate(step_, cut,
                          [&](double h) { return plane_potential_linear(sigma, lb, kappa, h); })
               : tabulate(step_, cut,
                          [&](double h) { return plane_potential_nonlinear(sigma, lb, kappa, h); });
  } else if (linear) {
    values_ = tabulate(step_, cut, [&](double h) {
      return cylinder_potential_linear(sigma, lb, kappa, radius, h);
    });
  } else {
    std::size_t cursor = 0;
    values_ = tabulate(step_, cut, [&](double h) { return radial->at(h, cursor); });
  }
}

double SurfacePotential::operator()(double h) const {
  if (values_.empty()) {
    return 0.0;
  }
  if (h <= 0.0) {
    return values_.front();
  }
  const double x = h * inverse_step_;
  const double last = static_cast<double>(values_.size() - 1);
  if (!(x < last)) {
    return x == last ? values_.back() : 0.0;
  }
  const auto i = static_cast<std::size_t>(x);
  const double f = x - static_cast<double>(i);
  return values_[i] + f * (values_[i + 1] - values_[i]);
}

double SurfacePotential::range(double tolerance) const {
  for (std::size_t i = values_.size(); i > 0; --i) {
    if (std::abs(values_[i - 1]) >= tolerance) {
      return static_cast<double>(i) * step_;
    }
  }
  return 0.0;
}

}  // namespace vorn
