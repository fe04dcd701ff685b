#include "vorn/predict.hpp"

#include <cmath>
#include <map>
#include <mutex>
#include <new>
#include <string>
#include <tuple>
#include <vector>

#include "simulation/electrostatic_interaction.hpp"
#include "simulation/frame.hpp"
#include "simulation/model.hpp"
#include "simulation/predict_fast.hpp"
#include "simulation/weighted_model.hpp"
#include "vorn/classic.hpp"
#include "vorn/error.hpp"

namespace vorn {

namespace {

// The classic settings that describe a medium and a sampling.
Settings settings_for(const Medium& medium, const Sampling& sampling, bool debug) {
  Settings s;
  s.liquid_type = medium.kind == MediumKind::phage ? 2 : 1;
  s.bic_phage = medium.kind == MediumKind::bicelle_and_phage ? 1.0 : 0.0;
  s.grid_type = 2;
  s.concentration = medium.concentration;
  s.molar_ratio = medium.molar_ratio;
  s.max_obs_dim = medium.obstacle();
  s.atom_radius = medium.atom_radius;
  s.grid_spacing = medium.grid_spacing;
  s.order_parameter = medium.order_parameter;
  s.dig_theta = sampling.theta;
  s.dig_phi = sampling.phi;
  s.dig_psi = sampling.psi;
  s.debug = debug ? 1 : 0;
  refine_bicelle(s);
  return s;
}

void check_positive(double value, const char* what) {
  if (!(std::isfinite(value) && value > 0.0)) {
    throw Error(std::string("predict: the ") + what + " must be a positive number (got " +
                std::to_string(value) + ")");
  }
}

void check_medium(const Medium& medium) {
  check_positive(medium.concentration, "concentration");
  check_positive(medium.molar_ratio, "molar ratio");
  check_positive(medium.obstacle(), "obstacle dimension");
  check_positive(medium.atom_radius, "atom radius");
  check_positive(medium.grid_spacing, "grid spacing");
  if (!std::isfinite(medium.order_parameter)) {
    throw Error("predict: the order parameter must be a finite number");
  }
}

void check_charge(const Medium& medium) {
  if (!medium.charge) return;
  const ObstacleCharge& c = *medium.charge;
  if (!std::isfinite(c.charge_density)) {
    throw Error("predict: the charge density must be a finite number");
  }
  if (!(std::isfinite(c.ionic_strength) && c.ionic_strength > 0.0)) {
    throw Error("predict: the ionic strength must be a positive number (got " +
                std::to_string(c.ionic_strength) + ")");
  }
  if (!(std::isfinite(c.energy_tolerance) && c.energy_tolerance > 0.0) ||
      !(std::isfinite(c.nodes_per_debye_length) && c.nodes_per_debye_length >= 0.0)) {
    throw Error(
        "predict: the electrostatic sampling needs a positive energy tolerance and a "
        "non-negative number of nodes per Debye length");
  }
  if (c.charge_density != 0.0 && medium.kind == MediumKind::bicelle_and_phage) {
    throw Error("predict: a charged obstacle needs the wall or the cylinder alone");
  }
}

void check_sampling(const Sampling& sampling) {
  if (sampling.theta < 1 || sampling.phi < 1 || sampling.psi < 1) {
    throw Error("predict: every sampling count (theta, phi, psi) must be at least 1 (got " +
                std::to_string(sampling.theta) + "," + std::to_string(sampling.phi) + "," +
                std::to_string(sampling.psi) + ")");
  }
}

}  // namespace

struct PredictionContext::Impl {
  Sampling sampling;
  Log log;
  Orientations orientations;

  // Obstacle potentials, built once per parameter set (the nonlinear
  // cylinder is a numerical solve) and shared by every prediction.
  using PotentialKey = std::tuple<int, double, double, double, double, int>;
  mutable std::mutex potentials_mutex;
  mutable std::map<PotentialKey, std::shared_ptr<const SurfacePotential>> potentials;

  std::shared_ptr<const SurfacePotential> potential(ObstacleShape shape, double radius,
                                                    const ObstacleCharge& c) const {
    const PotentialKey key{static_cast<int>(shape), radius,        c.charge_density,
                           c.ionic_strength,        c.temperature, static_cast<int>(c.potential)};
    {
      const std::lock_guard<std::mutex> lock(potentials_mutex);
      const auto it = potentials.find(key);
      if (it != potentials.end()) return it->second;
    }
    auto built = std::make_shared<const SurfacePotential>(shape, radius, c);
    const std::lock_guard<std::mutex> lock(potentials_mutex);
    return potentials.emplace(key, std::move(built)).first->second;
  }
};

Medium pf1_medium() {
  Medium m;
  m.kind = MediumKind::phage;
  m.obstacle_dimension = kPf1Radius;
  m.charge = ObstacleCharge{};
  m.charge->charge_density = kPf1ChargeDensity;
  return m;
}

PredictionContext::PredictionContext(const Sampling& sampling, int threads, Log log)
    : threads_(threads) {
  check_sampling(sampling);
  auto impl = std::make_shared<Impl>();
  impl->sampling = sampling;
  impl->log = std::move(log);
  try {
    impl->orientations = sample_orientations(settings_for(Medium{}, sampling, impl->log.debug),
                                             ClassicLimits{}, impl->log);
  } catch (const std::bad_alloc&) {
    throw Error("predict: not enough memory for the orientations of this sampling");
  } catch (const std::length_error&) {
    throw Error("predict: not enough memory for the orientations of this sampling");
  }
  if (impl->orientations.count < 1) {
    throw Error("predict: the sampling gives no orientation");
  }
  impl_ = std::move(impl);
}

PredictionContext::~PredictionContext() = default;
PredictionContext::PredictionContext(const PredictionContext&) = default;
PredictionContext& PredictionContext::operator=(const PredictionContext&) = default;
PredictionContext::PredictionContext(PredictionContext&&) noexcept = default;
PredictionContext& PredictionContext::operator=(PredictionContext&&) noexcept = default;

const Sampling& PredictionContext::sampling() const { return impl_->sampling; }
int PredictionContext::orientation_count() const { return impl_->orientations.count; }
int PredictionContext::threads() const { return threads_; }
void PredictionContext::set_threads(int threads) { threads_ = threads; }

SaupeElements PredictionContext::predict_saupe(std::span<const Vec3> positions,
                                               const Medium& medium) const {
  return predict_saupe(positions, medium, threads_);
}

SaupeElements PredictionContext::predict_saupe(std::span<const Vec3> positions,
                                               const Medium& medium, int threads) const {
  return predict_saupe(positions, {}, medium, threads);
}

SaupeElements PredictionContext::predict_saupe(std::span<const Vec3> positions,
                                               std::span<const PointCharge> charges,
                                               const Medium& medium, int threads) const {
  if (positions.empty()) throw Error("predict: no atoms");
  check_medium(medium);
  check_charge(medium);
  // Atoms from index 1, as the simulation takes them.
  const std::size_t n = positions.size();
  std::vector<double> x(n + 1), y(n + 1), z(n + 1);
  for (std::size_t i = 0; i < n; ++i) {
    const Vec3& p = positions[i];
    if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) {
      throw Error("predict: atom " + std::to_string(i) + " has a coordinate that is not finite");
    }
    x[i + 1] = p.x;
    y[i + 1] = p.y;
    z[i + 1] = p.z;
  }
  if (n > static_cast<std::size_t>(std::numeric_limits<int>::max() - 1)) {
    throw Error("predict: too many atoms for one prediction");
  }
  bool charged = medium.charge && medium.charge->charge_density != 0.0;
  bool any_charge = false;
  for (const PointCharge& c : charges) {
    if (!std::isfinite(c.charge) || !std::isfinite(c.position.x) || !std::isfinite(c.position.y) ||
        !std::isfinite(c.position.z)) {
      throw Error("predict: a charge or its position is not finite");
    }
    any_charge = any_charge || c.charge != 0.0;
  }
  charged = charged && any_charge;

  const Settings settings = settings_for(medium, impl_->sampling, impl_->log.debug);
  double saupe[5] = {};
  try {
    // The charges move with the atoms to the atoms' centre.
    double center[4] = {};
    if (charged) calculate_center_mass(static_cast<int>(n), x, y, z, {}, center);
    const Placement placement =
        place_molecule(settings, static_cast<int>(n), x, y, z, ClassicLimits{}, impl_->log);
    const Scaling scaling = scaling_for(settings, placement, impl_->orientations.count);
    const int workers = threads > 0 ? threads : detail::simulation_threads();
    if (!charged) {
      simulate_placed(settings, placement, impl_->orientations, scaling, static_cast<int>(n), x, y,
                      z, threads, saupe);
    } else {
      const detail::Obstacle obstacle = detail::obstacle_of(settings);
      const auto potential = impl_->potential(obstacle.shape == detail::Obstacle::Shape::cylinder
                                                  ? ObstacleShape::cylinder
                                                  : ObstacleShape::plane,
                                              obstacle.radius, *medium.charge);
      std::vector<PointCharge> centred;
      centred.reserve(charges.size());
      for (const PointCharge& c : charges) {
        if (c.charge == 0.0) continue;
        centred.push_back(
            {{c.position.x - center[1], c.position.y - center[2], c.position.z - center[3]},
             c.charge});
      }
      const ObstacleCharge& c = *medium.charge;
      detail::ElectrostaticInteraction interaction(
          obstacle, *potential, std::move(centred), c.energy_tolerance,
          c.nodes_per_debye_length > 0 ? potential->debye() / c.nodes_per_debye_length : 0.0);
      interaction.set_grid_step(medium.grid_spacing);
      detail::simulate_weighted(settings, placement, impl_->orientations, scaling,
                                static_cast<int>(n), x, y, z, &interaction, workers, saupe);
    }
  } catch (const std::bad_alloc&) {
    throw Error("predict: not enough memory for the position grid (grid spacing too small?)");
  } catch (const std::length_error&) {
    throw Error("predict: not enough memory for the position grid (grid spacing too small?)");
  }
  return {saupe[0], saupe[1], saupe[2], saupe[3], saupe[4]};
}

AlignmentTensor PredictionContext::predict(std::span<const Vec3> positions,
                                           const Medium& medium) const {
  return analyze_tensor(predict_saupe(positions, medium));
}

SaupeElements predict_saupe(std::span<const Vec3> positions, const Medium& medium,
                            const Sampling& sampling, int threads) {
  return PredictionContext(sampling, threads).predict_saupe(positions, medium);
}

}  // namespace vorn
