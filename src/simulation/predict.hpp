// The steric alignment simulation.
#pragma once

#include <cstdio>
#include <vector>

#include "driver/settings.hpp"
#include "simulation/grid.hpp"
#include "simulation/orientation.hpp"

namespace vorn {

void simulate_alignment3(const Settings& settings, double max_obstruction, int no_atoms,
                         int no_add_orient, int no_add_ph_orient, const std::vector<double>& x,
                         const std::vector<double>& y, const std::vector<double>& z, int t_pts,
                         int no_pt_ph, int o_pts, const Grid& grid, const Grid& grid_ph,
                         const OrientationTables& tables, const double saupe_dev[5],
                         double saupe[5], double saupe_weight[5]);

}  // namespace vorn
