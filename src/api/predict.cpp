#include "vorn/predict.hpp"

#include <cmath>
#include <new>
#include <string>
#include <vector>

#include "simulation/model.hpp"
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
};

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
  if (positions.empty()) throw Error("predict: no atoms");
  check_medium(medium);
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
  const Settings settings = settings_for(medium, impl_->sampling, impl_->log.debug);
  double saupe[5] = {};
  try {
    const Placement placement =
        place_molecule(settings, static_cast<int>(n), x, y, z, ClassicLimits{}, impl_->log);
    const Scaling scaling = scaling_for(settings, placement, impl_->orientations.count);
    simulate_placed(settings, placement, impl_->orientations, scaling, static_cast<int>(n), x, y, z,
                    threads, saupe);
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
