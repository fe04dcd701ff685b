// Obstacle model: the grid of positions of the molecule's centre.
#pragma once

#include <array>
#include <limits>
#include <vector>

#include "vorn/log.hpp"
#include "vorn/settings.hpp"

namespace vorn {

// Elements 1..3 hold x, y, z in Angstrom; element 0 is unused.
using GridPoint = std::array<double, 4>;
using Grid = std::vector<GridPoint>;  // used from index 0, grown as needed

// The line grid (type 2) of the medium: points 0..n of the wall grid (n is
// returned) and 0..no_pt_ph of the cylinder grid, grown as needed; a highest
// index above max_grid_index throws "Too many grid points ...". The sheet
// (type 1) is counted in full and stored as far as `grid` already holds.
int setup_model(const Settings& settings, double conc_ratio, double s_l_ratio,
                double min_protein_length, double max_protein_length, double max_obstruction,
                int liquid_flag, int grid_flag, double spacing, Grid& grid, int& no_pt_ph,
                Grid& grid_ph, double& final_distance, double& final_distance_ph, const Log& log,
                int max_grid_index = std::numeric_limits<int>::max());

int make_grid(const Settings& settings, double s_l_ratio, double min_protein_length,
              double max_protein_length, double max_obstruction, int grid_flag, int liquid_flag,
              double spacing, Grid& grid, int& no_pt_ph, Grid& grid_ph, double& final_distance,
              double& final_distance_ph, const Log& log,
              int max_grid_index = std::numeric_limits<int>::max());

}  // namespace vorn
