// Obstacle model: the grid of positions of the molecule's centre.
#pragma once

#include <array>
#include <cstdio>
#include <vector>

#include "driver/settings.hpp"

namespace vorn {

// Elements 1..3 hold x, y, z in Angstrom; element 0 is unused.
using GridPoint = std::array<double, 4>;
using Grid = std::vector<GridPoint>;  // kGridSlots points, used from index 0

int setup_model(const Settings& settings, double conc_ratio, double s_l_ratio,
                double min_protein_length, double max_protein_length, double max_obstruction,
                int liquid_flag, int grid_flag, double spacing, Grid& grid, int& no_pt_ph,
                Grid& grid_ph, double& final_distance, double& final_distance_ph, FILE* out);

int make_grid(const Settings& settings, double s_l_ratio, double min_protein_length,
              double max_protein_length, double max_obstruction, int grid_flag, int liquid_flag,
              double spacing, Grid& grid, int& no_pt_ph, Grid& grid_ph, double& final_distance,
              double& final_distance_ph, FILE* out);

}  // namespace vorn
