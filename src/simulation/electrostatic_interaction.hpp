// Electrostatic energy of the molecule's charges in the potential of a
// charged obstacle: U/kT = sum_i q_i psi(h_i), with psi the obstacle's
// reduced potential and h_i the distance of charge i from its surface (the
// molecule as test charges: its own field and dielectric boundary are
// neglected).
#pragma once

#include <array>
#include <vector>

#include "simulation/interaction.hpp"
#include "vorn/charges.hpp"
#include "vorn/electrostatics.hpp"

namespace vorn::detail {

class ElectrostaticInteraction : public Interaction {
 public:
  // charges: positions in the centred molecular frame; `tolerance` (kT):
  // the energy below which a position counts as out of reach;
  // `node_spacing` (A): the energy is computed exactly at positions about
  // this far apart and interpolated (cubic) in between; 0: at every
  // position.
  ElectrostaticInteraction(const Obstacle& obstacle, const SurfacePotential& potential,
                           std::vector<PointCharge> charges, double tolerance,
                           double node_spacing = 0.0);
  // Sets the grid step, from which the node stride follows.
  void set_grid_step(double step);

  double reach() const override { return reach_; }
  std::unique_ptr<Scratch> scratch() const override;
  void add_energy(const OrientationFrame& frame, std::span<const double> centre, double* energy,
                  Scratch& scratch) const override;

 private:
  Obstacle obstacle_;
  const SurfacePotential& potential_;
  std::vector<double> qx_, qy_, qz_, q_, abs_q_;
  static constexpr double kTablePointsPerDebyeLength = 40.0;
  std::vector<std::array<double, 2>> table_;  // psi and its step to the next entry
  double inverse_step_ = 0.0;
  double tolerance_ = 0.0;
  double reach_ = 0.0;
  double node_spacing_ = 0.0;
  int stride_ = 1;
};

}  // namespace vorn::detail
