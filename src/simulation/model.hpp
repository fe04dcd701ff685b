// The prediction of one structure as the classic run performs it, from the
// completed settings and the selected atoms to the scaled Saupe elements.
#pragma once

#include <vector>

#include "simulation/grid.hpp"
#include "simulation/orientation.hpp"
#include "vorn/classic.hpp"
#include "vorn/log.hpp"
#include "vorn/settings.hpp"

namespace vorn {

// The molecule placed in its own frame with the position grids of the
// medium.
struct Placement {
  Grid grid, grid_ph;
  int no_grid = 0, no_grid_ph = 0;
  double max_abstand = 0.0, max_abstand_ph = 0.0;
};

// The sampled orientations with their element lists and mean elements; they
// depend on the sampling alone, so one set serves any number of structures.
struct Orientations {
  OrientationTables tables;
  int count = 0;
  double saupe_dev[5] = {};
};

// Shifts atoms 1..n of x, y, z (index 0 unused) to their centre and builds
// the grids for their extreme lengths.
Placement place_molecule(const Settings& settings, int n, std::vector<double>& x,
                         std::vector<double>& y, std::vector<double>& z,
                         const ClassicLimits& limits, const Log& log);

// Orientation sampling alone (angles and count).
Orientations sample_angles(const Settings& settings, const ClassicLimits& limits, const Log& log);
// The element lists of the sampled orientations and their means.
void build_lists(const Settings& settings, Orientations& orientations, const Log& log);
// sample_angles followed by build_lists, with the frame axes of every
// orientation stored for reuse.
Orientations sample_orientations(const Settings& settings, const ClassicLimits& limits,
                                 const Log& log);

// Free positions beyond the grids, all of whose orientations are allowed.
struct Scaling {
  int free_orient = 0;
  int free_orient_ph = 0;
};
Scaling scaling_for(const Settings& settings, const Placement& placement, int orientations);

// Simulation and order parameter for the placed atoms; threads <= 0 takes
// VORN_THREADS or the core count.
void simulate_placed(const Settings& settings, const Placement& placement,
                     const Orientations& orientations, const Scaling& scaling, int n,
                     const std::vector<double>& x, const std::vector<double>& y,
                     const std::vector<double>& z, int threads, double saupe_weight[5]);

// The steps in the classic run's order: grids, sampling, scaling, element
// lists, simulation (as their listings and errors appear).
void predict_settings(const Settings& settings, int n, std::vector<double>& x,
                      std::vector<double>& y, std::vector<double>& z, const ClassicLimits& limits,
                      const Log& log, int threads, double saupe_weight[5]);

}  // namespace vorn
