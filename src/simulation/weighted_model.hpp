// The modern alignment model: the molecule's states (centre at a distance
// from the obstacle, orientation) are weighted by exp(-U/kT) of its
// interactions, 0 in contact, and the Saupe elements are the weighted
// average over the states of the medium's cell, with the bulk solution
// (weight 1, isotropic) as reference. With no interaction every allowed
// state weighs exactly 1 and the result is the steric model's.
#pragma once

#include <vector>

#include "simulation/interaction.hpp"
#include "simulation/model.hpp"

namespace vorn::detail {

// The weighted sums of the model before the division: the five elements
// summed over the positions (each the position's mean less the sampling
// bias, times its share of states and its volume element) and the number
// of states they are spread over.
struct WeightedSums {
  double sum[5] = {};
  double states = 0.0;
  double excess = 0.0;  // what the weights add to the plain count of states
  int positions = 0;    // grid positions, the electrostatic extension included
};
WeightedSums weighted_sums(const Settings& settings, const Placement& placement,
                           const Orientations& orientations, const Scaling& scaling, int n,
                           const std::vector<double>& x, const std::vector<double>& y,
                           const std::vector<double>& z, const Interaction* interaction,
                           int threads);

// The Saupe elements (scaled by the order parameter) of the atoms 1..n of
// x, y, z, centred as place_molecule leaves them, for a wall (liquid_type 1)
// or a cylinder (liquid_type 2); `interaction` may be null (contact alone).
// threads >= 1; the result does not depend on it. Throws vorn::Error when
// a weight overflows.
void simulate_weighted(const Settings& settings, const Placement& placement,
                       const Orientations& orientations, const Scaling& scaling, int n,
                       const std::vector<double>& x, const std::vector<double>& y,
                       const std::vector<double>& z, const Interaction* interaction, int threads,
                       double saupe_weight[5]);

// The obstacle of a medium's settings.
Obstacle obstacle_of(const Settings& settings);

}  // namespace vorn::detail
