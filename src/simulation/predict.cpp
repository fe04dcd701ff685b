#include "simulation/predict.hpp"

#include "simulation/predict_direct.hpp"
#include "simulation/predict_fast.hpp"

namespace vorn {

void simulate_alignment3(const Settings& settings, double max_obstruction, int no_atoms,
                         int no_add_orient, int no_add_ph_orient, const std::vector<double>& x,
                         const std::vector<double>& y, const std::vector<double>& z, int t_pts,
                         int no_pt_ph, int o_pts, const Grid& grid, const Grid& grid_ph,
                         const OrientationTables& tables, const double saupe_dev[5],
                         double saupe[5], double saupe_weight[5], int threads) {
  // Both forms give the same bits; VORN_SIMULATION=direct runs the plain
  // one for timing, VORN_THREADS sets the workers of the fast one.
  if (detail::direct_simulation_requested()) {
    detail::simulate_alignment3_direct(settings, max_obstruction, no_atoms, no_add_orient,
                                       no_add_ph_orient, x, y, z, t_pts, no_pt_ph, o_pts, grid,
                                       grid_ph, tables, saupe_dev, saupe, saupe_weight);
    return;
  }
  detail::simulate_alignment3_fast(
      settings, max_obstruction, no_atoms, no_add_orient, no_add_ph_orient, x, y, z, t_pts,
      no_pt_ph, o_pts, grid, grid_ph, tables, saupe_dev, saupe, saupe_weight,
      detail::useful_threads(o_pts, threads > 0 ? threads : detail::simulation_threads()));
}

}  // namespace vorn
