#include "simulation/electrostatic_interaction.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace vorn::detail {

namespace {

struct ProjectionScratch : Interaction::Scratch {
  std::vector<double> p, s, node;
  std::vector<float> pf, s2f, index;
};

}  // namespace

ElectrostaticInteraction::ElectrostaticInteraction(const Obstacle& obstacle,
                                                   const SurfacePotential& potential,
                                                   std::vector<PointCharge> charges,
                                                   double tolerance, double node_spacing)
    : obstacle_(obstacle), potential_(potential), node_spacing_(node_spacing) {
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
  tolerance_ = tolerance;
  for (const double q : q_) abs_q_.push_back(std::fabs(q));
  // The potential resampled at kTablePointsPerDebyeLength points per Debye
  // length, each with its slope to the next (linear interpolation within
  // 1e-4 of psi), small enough to stay in the first-level cache; padded with
  // zeros, so that an index clamped to the last entry reads 0 (beyond the
  // potential's range).
  const double range = potential_.values().size() * potential_.step();
  const double step = potential_.debye() / kTablePointsPerDebyeLength;
  const auto points = range > 0.0 ? static_cast<std::size_t>(std::ceil(range / step)) + 1 : 0;
  std::vector<double> values(points);
  for (std::size_t j = 0; j < points; ++j) values[j] = potential_(static_cast<double>(j) * step);
  values.push_back(0.0);
  values.push_back(0.0);
  table_.resize(values.size());
  for (std::size_t j = 0; j < values.size(); ++j) {
    table_[j] = {values[j], j + 1 < values.size() ? values[j + 1] - values[j] : 0.0};
  }
  inverse_step_ = 1.0 / step;
}

void ElectrostaticInteraction::set_grid_step(double step) {
  stride_ = step > 0.0 && node_spacing_ > step ? static_cast<int>(node_spacing_ / step) : 1;
}

std::unique_ptr<Interaction::Scratch> ElectrostaticInteraction::scratch() const {
  auto s = std::make_unique<ProjectionScratch>();
  s->p.resize(q_.size());
  s->s.resize(q_.size());
  s->index.resize(q_.size());
  s->pf.resize(q_.size());
  s->s2f.resize(q_.size());
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
  const std::array<double, 2>* table = table_.data();
  const double top = static_cast<double>(table_.size() - 1);
  const double inverse_step = inverse_step_;
  const bool cylinder = obstacle_.shape == Obstacle::Shape::cylinder;
  const double radius = obstacle_.radius;
  const double* q = q_.data();
  const double* aq = abs_q_.data();
  for (std::size_t i = 0; i < n; ++i) {
    w.pf[i] = static_cast<float>(w.p[i]);
    w.s2f[i] = static_cast<float>(w.s[i] * w.s[i]);
  }
  const float* pf = w.pf.data();
  const float* s2f = w.s2f.data();
  const float topf = static_cast<float>(top);
  const float inverse_stepf = static_cast<float>(inverse_step);
  const float radiusf = static_cast<float>(radius);
  // The energy at centre distance c and, in `bound`, the same sum with
  // |q|: psi has one sign, so |bound| bounds the energy here and at every
  // farther position (each charge then lies farther out, where |psi| is
  // smaller).
  float* index = w.index.data();
  const auto energy_at = [&](double c, double& bound) {
    // Table coordinates of every charge first, in single precision (a loop
    // the compiler vectorises four wide, square roots included; the distance
    // is then good to about 1e-5 A, the table to 1e-4 of psi), then the
    // lookups.
    if (cylinder) {
      const float cf = static_cast<float>(c);
      for (std::size_t i = 0; i < n; ++i) {
        const float dx = cf + pf[i];
        const float h = std::sqrt(dx * dx + s2f[i]) - radiusf;
        index[i] = std::min(std::max(h * inverse_stepf, 0.0f), topf);
      }
    } else {
      const float cf = static_cast<float>(c);
      for (std::size_t i = 0; i < n; ++i) {
        index[i] = std::min(std::max((cf + pf[i]) * inverse_stepf, 0.0f), topf);
      }
    }
    // Two partial sums each (even and odd charges), for two independent
    // chains of additions.
    const auto psi_at = [&](std::size_t i) {
      const double t = index[i];
      const auto j = static_cast<std::size_t>(index[i]);
      return table[j][0] + (t - static_cast<double>(j)) * table[j][1];
    };
    double u0 = 0.0, u1 = 0.0, b0 = 0.0, b1 = 0.0;
    std::size_t i = 0;
    for (; i + 1 < n; i += 2) {
      const double v0 = psi_at(i);
      const double v1 = psi_at(i + 1);
      u0 += q[i] * v0;
      b0 += aq[i] * v0;
      u1 += q[i + 1] * v1;
      b1 += aq[i + 1] * v1;
    }
    if (i < n) {
      const double v0 = psi_at(i);
      u0 += q[i] * v0;
      b0 += aq[i] * v0;
    }
    bound = b0 + b1;
    return u0 + u1;
  };
  const int positions = static_cast<int>(centre.size());
  const int stride = stride_;
  const int nodes = positions > 0 ? (positions - 1 + stride - 1) / stride + 1 : 0;
  double bound = 0.0;
  if (stride <= 1 || nodes < 4) {
    for (int k = 0; k < positions; ++k) {
      energy[k] += energy_at(centre[k], bound);
      if (std::fabs(bound) < tolerance_) break;
    }
    return;
  }
  // The energy is a smooth function of the centre's distance on the scale of
  // the Debye length: exact at every stride-th position (the grid is
  // uniform), cubic through the four nearest of those in between.
  const double step = centre[1] - centre[0];
  w.node.resize(static_cast<std::size_t>(nodes));
  bool negligible = false;
  for (int j = 0; j < nodes; ++j) {
    double& u = w.node[static_cast<std::size_t>(j)];
    u = negligible ? 0.0 : energy_at(centre[0] + j * stride * step, bound);
    negligible = negligible || std::fabs(bound) < tolerance_;
  }
  for (int k = 0; k < positions; ++k) {
    const int j = k / stride;
    if (k == j * stride) {
      energy[k] += w.node[static_cast<std::size_t>(j)];
      continue;
    }
    const int j0 = std::clamp(j - 1, 0, nodes - 4);
    const double t = static_cast<double>(k) / stride - j0;  // in 0..3
    const double* u = w.node.data() + j0;
    // Lagrange weights of nodes 0, 1, 2, 3 at t.
    const double l0 = -(t - 1.0) * (t - 2.0) * (t - 3.0) / 6.0;
    const double l1 = t * (t - 2.0) * (t - 3.0) / 2.0;
    const double l2 = -t * (t - 1.0) * (t - 3.0) / 2.0;
    const double l3 = t * (t - 1.0) * (t - 2.0) / 6.0;
    energy[k] += l0 * u[0] + l1 * u[1] + l2 * u[2] + l3 * u[3];
  }
}

}  // namespace vorn::detail
