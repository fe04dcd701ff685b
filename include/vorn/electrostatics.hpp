// Electrostatics of a charged obstacle in a 1:1 salt solution: the reduced
// potential psi = e*phi/kT of a uniformly charged plane or cylinder, in the
// linearised (Debye-Hueckel) or the full (Poisson-Boltzmann) theory, and the
// solution's screening lengths. Lengths are in Angstrom, the surface charge
// density in elementary charges per nm^2, the ionic strength in mol/l and
// the temperature in kelvin.
#pragma once

#include <vector>

namespace vorn {

enum class PotentialModel {
  linear,     // Debye-Hueckel: exponential (plane), K0/K1 (cylinder)
  nonlinear,  // Poisson-Boltzmann: Gouy-Chapman (plane), radial solve (cylinder)
};

// The charge of the obstacle and the solution around it.
struct ObstacleCharge {
  double charge_density = 0.0;   // sigma, e/nm^2 (negative for phage)
  double ionic_strength = 0.15;  // mol/l, 1:1 salt
  double temperature = 298.15;   // K
  PotentialModel potential = PotentialModel::linear;
  // Sampling of the energy over the positions (defaults chosen by
  // convergence, docs/electrostatics.md): it is computed exactly this many
  // times per Debye length and interpolated (cubic) in between, 0 for every
  // position; and once, for an orientation, every charge's |q psi| summed
  // stays below energy_tolerance (kT), the farther positions weigh 1.
  double nodes_per_debye_length = 3.5;
  double energy_tolerance = 0.05;
};

// Relative permittivity of water at `temperature` (K), Malmberg & Maryott
// (1956); throws vorn::Error outside 273.15..373.15 K.
double water_permittivity(double temperature);
// Bjerrum length e^2 / (4 pi eps0 eps_r kT) of water, Angstrom.
double bjerrum_length(double temperature);
// Debye screening length of a 1:1 salt of ionic strength I (mol/l), Angstrom;
// throws vorn::Error for I <= 0 or not finite.
double debye_length(double ionic_strength, double temperature);

enum class ObstacleShape { plane, cylinder };

// The reduced potential psi(h) at distance h >= 0 from the obstacle's
// surface (a plane, or a cylinder of radius `radius`), tabulated once for
// a parameter set on a uniform grid of h and interpolated; psi is taken as
// psi(0) for h < 0 and decays to 0 far away. The step is at most 0.05 A and
// debye/200, finer where the surface curvature of psi needs it for linear
// interpolation to stay within about 1e-5 of psi(0); the table ends at the
// first point where |psi| < 1e-9 max(1, |psi(0)|). A zero charge gives an
// empty table. Immutable once built.
class SurfacePotential {
 public:
  // Throws vorn::Error for a non-positive ionic strength, a temperature
  // outside 273.15..373.15 K, a radius that is not positive and finite
  // (cylinder; the plane ignores it), or a charge density that is not finite.
  SurfacePotential(ObstacleShape shape, double radius, const ObstacleCharge& charge);

  double operator()(double h) const;  // interpolated psi(h)
  double surface() const { return values_.empty() ? 0.0 : values_.front(); }
  double debye() const { return debye_; }
  // The distance beyond which |psi| stays below `tolerance`.
  double range(double tolerance) const;

  // The table: psi at h = i * step, i = 0 .. size-1 (0 beyond).
  double step() const { return step_; }
  double inverse_step() const { return inverse_step_; }  // 1 / step(), for lookups
  const std::vector<double>& values() const { return values_; }

 private:
  double step_ = 0.0;
  double inverse_step_ = 0.0;
  double debye_ = 0.0;
  std::vector<double> values_;
};

// Closed forms, for the tests and the tables. kappa = 1/debye length;
// lb = Bjerrum length; sigma in e/A^2 here.
double plane_potential_linear(double sigma, double lb, double kappa, double h);
double plane_potential_nonlinear(double sigma, double lb, double kappa, double h);
double cylinder_potential_linear(double sigma, double lb, double kappa, double radius, double h);
// The nonlinear cylinder: psi on h = i * step, i = 0 .. count-1, by a
// radial boundary-value solve of (1/r)(r psi')' = kappa^2 sinh(psi) with
// psi'(a) = -4 pi lb sigma and psi -> 0 far away. Throws vorn::Error for a
// non-positive lb, kappa, radius or step, a negative count, a sigma that is
// not finite, or a solve that does not converge.
std::vector<double> cylinder_potential_nonlinear(double sigma, double lb, double kappa,
                                                 double radius, double step, int count);

}  // namespace vorn
