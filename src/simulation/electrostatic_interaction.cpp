#include "simulation/electrostatic_interaction.hpp"

#include <algorithm>
#include <cmath>

namespace vorn::detail {

namespace {

struct ProjectionScratch : Interaction::Scratch {
  std::vector<double> p, s;
};

}  // namespace

ElectrostaticInteraction::ElectrostaticInteraction(const Obstacle& obstacle,
                                                   const SurfacePotential& potential,
                                                   std::vector<PointCharge> charges,
                                                   double tolerance)
    : obstacle_(obstacle), potential_(potential) {
  double total = 0.0;
  double farthest = 0.0;
  for (const PointCharge& c : charges) {
    if (c.charge == 0.0) continue;
    qx_.push_back(c.position.x);
    qy_.push_back(c.position.y);
    qz_.push_back(c.position.z);
    q_.push_back(c.charge);
    total += std::fabs(c.charge);
    farthest =
        std::max(farthest, std::sqrt(c.position.x * c.position.x + c.position.y * c.position.y +
                                     c.position.z * c.position.z));
  }
  // Every charge is at least (centre distance - farthest) from the surface,
  // where |psi| is largest; beyond reach the whole energy is below
  // `tolerance`.
  reach_ = total > 0.0 && potential_.surface() != 0.0
               ? potential_.range(tolerance / total) + farthest
               : 0.0;
}

std::unique_ptr<Interaction::Scratch> ElectrostaticInteraction::scratch() const {
  auto s = std::make_unique<ProjectionScratch>();
  s->p.resize(q_.size());
  s->s.resize(q_.size());
  return s;
}

void ElectrostaticInteraction::add_energy(const OrientationFrame& frame,
                                          std::span<const double> centre, double* energy,
                                          Scratch& scratch) const {
  auto& w = static_cast<ProjectionScratch&>(scratch);
  const std::size_t n = q_.size();
  const double* X = frame.x_axis;
  const double* Y = frame.y_axis;
  for (std::size_t i = 0; i < n; ++i) {
    w.p[i] = X[0] * qx_[i] + X[1] * qy_[i] + X[2] * qz_[i];
    w.s[i] = Y[0] * qx_[i] + Y[1] * qy_[i] + Y[2] * qz_[i];
  }
  const std::vector<double>& table = potential_.values();
  const double inverse_step = 1.0 / potential_.step();
  const double top = static_cast<double>(table.size()) - 1.0;
  const auto psi = [&](double h) {
    const double t = std::max(h * inverse_step, 0.0);
    if (!(t < top)) return 0.0;
    const auto j = static_cast<std::size_t>(t);
    const double f = t - static_cast<double>(j);
    return table[j] + f * (table[j + 1] - table[j]);
  };
  const bool cylinder = obstacle_.shape == Obstacle::Shape::cylinder;
  const double radius = obstacle_.radius;
  for (std::size_t k = 0; k < centre.size(); ++k) {
    const double c = centre[k];
    double u = 0.0;
    if (cylinder) {
      for (std::size_t i = 0; i < n; ++i) {
        const double dx = c + w.p[i];
        u += q_[i] * psi(std::sqrt(dx * dx + w.s[i] * w.s[i]) - radius);
      }
    } else {
      for (std::size_t i = 0; i < n; ++i) u += q_[i] * psi(c + w.p[i]);
    }
    energy[k] += u;
  }
}

}  // namespace vorn::detail
