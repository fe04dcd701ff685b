// Building blocks of the steric alignment simulation and its plain, direct
// form: for each orientation, for each grid point, scan the atoms and stop at
// the first contact. The direct form is the reference that any faster
// contact test must reproduce bit for bit (the same allowed states, the same
// per-position sums in the same order).
#pragma once

#include <array>
#include <functional>
#include <vector>

#include "simulation/grid.hpp"
#include "simulation/orientation.hpp"
#include "vorn/settings.hpp"

namespace vorn::detail {

// Per-position results of one pass (wall or cylinder), index k = 0..last
// grid index: the five order elements (Szz, Sxx-Syy, Sxy, Sxz, Syz) summed
// over the allowed orientations in orientation order, and the number of
// allowed orientations.
struct PassSums {
  std::vector<std::array<double, 5>> saupe_dis;
  std::vector<int> total;
};

// Projections of the atoms 1..no_atoms onto the frame of orientation
// `angle` (degrees), each partial sum stored in single precision:
// x_temp[i] = x_axis . a, and y_temp, z_temp likewise when given (the
// cylinder needs them). Element 0 is not used.
void project_atoms(const EulerAngle& angle, int no_atoms, const std::vector<double>& x,
                   const std::vector<double>& y, const std::vector<double>& z,
                   std::vector<float>& x_temp, std::vector<float>* y_temp,
                   std::vector<float>* z_temp);

// pot_dist[k] = radius - (grid[k].x - max_obstruction) for k = 0..t_pts, in
// single precision: the projection at or below which an atom touches the
// wall when the centre sits at grid point k.
void wall_thresholds(double radius, double max_obstruction, int t_pts, const Grid& grid,
                     std::vector<float>& pot_dist);

// Contact test of one orientation against the wall: allowed[k] = 1 unless
// some atom has x_temp[i] <= pot_dist[k] (a NaN is no contact), k = 0..t_pts.
void wall_allowed(int no_atoms, const std::vector<float>& x_temp, int t_pts,
                  const std::vector<float>& pot_dist, std::vector<unsigned char>& allowed);

// Contact test of one orientation against the cylinder of radius
// radius2 - atom radius about the z axis: allowed[k] = 1 unless some atom
// has sqrt((x_temp + grid_ph[k].x)^2 + (y_temp + grid_ph[k].y)^2) <= radius2,
// k = 0..no_pt_ph.
void cylinder_allowed(int no_atoms, const std::vector<float>& x_temp,
                      const std::vector<float>& y_temp, int no_pt_ph, const Grid& grid_ph,
                      double radius2, std::vector<unsigned char>& allowed);

// Adds orientation m to the sums of every allowed position k = 0..last.
void accumulate(const OrientationTables& tables, int m, int last,
                const std::vector<unsigned char>& allowed, PassSums& sums);

// The two passes in their direct form. The working projections are passed
// in so that the caller owns (and has allocated) them.
PassSums wall_pass_direct(double radius, double max_obstruction, int no_atoms,
                          const std::vector<double>& x, const std::vector<double>& y,
                          const std::vector<double>& z, int t_pts, int o_pts, const Grid& grid,
                          const OrientationTables& tables, std::vector<float>& x_temp,
                          std::vector<float>& pot_dist);
PassSums cylinder_pass_direct(double radius2, int no_atoms, const std::vector<double>& x,
                              const std::vector<double>& y, const std::vector<double>& z,
                              int no_pt_ph, int o_pts, const Grid& grid_ph,
                              const OrientationTables& tables, std::vector<float>& x_temp,
                              std::vector<float>& y_temp, std::vector<float>& z_temp);

// From the pass sums to the result: per-position means less the sampling
// bias, the weights, the combination of the media and the scaling by the
// number of states. `wall` is read for liquid_type 1, `cylinder` for
// liquid_type 2 and for the combined medium; either may be null otherwise.
void combine_alignment(const Settings& settings, double max_obstruction, int no_add_orient,
                       int no_add_ph_orient, int o_pts, const Grid& grid_ph, const PassSums* wall,
                       const PassSums* cylinder, const double saupe_dev[5], double saupe_weight[5]);

// The frame of the whole simulation around the two passes: input checks,
// working storage, the choice of passes by medium, and the combination. The
// passes receive the working projections (owned here) and return their sums;
// `wall` gets (radius, max_obstruction, x_temp, pot_dist), `cylinder` gets
// (radius2, x_temp, y_temp, z_temp).
using WallPass = std::function<PassSums(double radius, double max_obstruction,
                                        std::vector<float>& x_temp, std::vector<float>& pot_dist)>;
using CylinderPass =
    std::function<PassSums(double radius2, std::vector<float>& x_temp, std::vector<float>& y_temp,
                           std::vector<float>& z_temp)>;
void simulate_with_passes(const Settings& settings, double max_obstruction, int no_atoms,
                          int no_add_orient, int no_add_ph_orient, const std::vector<double>& x,
                          const std::vector<double>& y, const std::vector<double>& z, int t_pts,
                          int no_pt_ph, int o_pts, const Grid& grid, const Grid& grid_ph,
                          const OrientationTables& tables, const double saupe_dev[5],
                          double saupe_weight[5], const WallPass& wall,
                          const CylinderPass& cylinder);

// simulate_alignment3 with the direct contact test.
void simulate_alignment3_direct(const Settings& settings, double max_obstruction, int no_atoms,
                                int no_add_orient, int no_add_ph_orient,
                                const std::vector<double>& x, const std::vector<double>& y,
                                const std::vector<double>& z, int t_pts, int no_pt_ph, int o_pts,
                                const Grid& grid, const Grid& grid_ph,
                                const OrientationTables& tables, const double saupe_dev[5],
                                double saupe[5], double saupe_weight[5]);

}  // namespace vorn::detail
