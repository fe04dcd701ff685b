// The steric alignment simulation.
#pragma once

#include <cstdio>
#include <vector>

#include "simulation/grid.hpp"
#include "simulation/orientation.hpp"
#include "vorn/settings.hpp"

namespace vorn {

// threads <= 0: VORN_THREADS when it holds a valid count, else the cores.
void simulate_alignment3(const Settings& settings, double max_obstruction, int no_atoms,
                         int no_add_orient, int no_add_ph_orient, const std::vector<double>& x,
                         const std::vector<double>& y, const std::vector<double>& z, int t_pts,
                         int no_pt_ph, int o_pts, const Grid& grid, const Grid& grid_ph,
                         const OrientationTables& tables, const double saupe_dev[5],
                         double saupe[5], double saupe_weight[5], int threads = 0);

}  // namespace vorn
