#include "simulation/predict_direct.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <new>
#include <stdexcept>

#include "core/fatal.hpp"

namespace vorn::detail {

namespace {

// The ten-digit value of pi used throughout the simulation.
constexpr double kPi = 3.141592654;

std::size_t slots_for(int last_index) {
  return static_cast<std::size_t>(std::max(last_index, -1) + 1);
}

PassSums empty_sums(int last) {
  PassSums sums;
  sums.saupe_dis.assign(slots_for(last), std::array<double, 5>{});
  sums.total.assign(slots_for(last), 0);
  return sums;
}

// Working arrays of the simulation; a failed allocation is a numerical
// fatal error naming the array.
void allocate(std::vector<float>& array, int entries, const char* name) {
  try {
    array.assign(static_cast<std::size_t>(std::max(entries, 0)), 0.0f);
  } catch (const std::bad_alloc&) {
    nrerror(std::string("allocation failure for ") + name);
  } catch (const std::length_error&) {
    nrerror(std::string("allocation failure for ") + name);
  }
}

// Grid indices 0..last must exist in the grid (the per-position tables are
// sized to it).
void check_grid_index(int last, const Grid& grid) {
  if (last >= 0 && static_cast<std::size_t>(last) >= grid.size()) {
    nerror("Too many grid points ...");
  }
}

void check_inputs(int no_atoms, const std::vector<double>& x, const std::vector<double>& y,
                  const std::vector<double>& z, int o_pts, const OrientationTables& tables) {
  const std::size_t atom_slots = std::min({x.size(), y.size(), z.size()});
  if (no_atoms > 0 && static_cast<std::size_t>(no_atoms) >= atom_slots) {
    nerror("Too many atoms ...");
  }
  const std::size_t orientation_slots =
      std::min({tables.eulerangle.size(), tables.szz_orient.size(), tables.sxx_yy_orient.size(),
                tables.sxy_orient.size(), tables.sxz_orient.size(), tables.syz_orient.size()});
  if (o_pts > 0 && static_cast<std::size_t>(o_pts) >= orientation_slots) {
    nerror("Too many requested orientations ...");
  }
}

// Per-position means less the sampling bias; a position without any
// allowed orientation contributes zero.
std::vector<std::array<double, 5>> position_means(const PassSums& sums, const double saupe_dev[5]) {
  std::vector<std::array<double, 5>> saupe_dis = sums.saupe_dis;
  for (int e = 0; e < 5; ++e) {
    for (std::size_t k = 0; k < saupe_dis.size(); ++k) {
      if (sums.total[k] < 1) {
        saupe_dis[k][e] = 0.0;
      } else {
        saupe_dis[k][e] = saupe_dis[k][e] / sums.total[k] - saupe_dev[e];
      }
    }
  }
  return saupe_dis;
}

}  // namespace

void project_atoms(const EulerAngle& angle, int no_atoms, const std::vector<double>& x,
                   const std::vector<double>& y, const std::vector<double>& z,
                   std::vector<float>& x_temp, std::vector<float>* y_temp,
                   std::vector<float>* z_temp) {
  const double theta = angle[1] * kPi / 180;
  const double phi = angle[2] * kPi / 180;
  const double psi = angle[3] * kPi / 180;
  // The atoms are turned by R(theta, phi, psi) = Rz(psi) Ry(theta) Rz(phi),
  // the rotation whose frame axes give the orientation's order elements.
  // The columns of the inverse rotation are needed; the inverse of a z-y-z
  // rotation negates the angles and exchanges phi and psi.
  double x_axis_tensor[4] = {};
  double y_axis_tensor[4] = {};
  double z_axis_tensor[4] = {};
  rotate_coorsystem(-theta, -psi, -phi, x_axis_tensor, y_axis_tensor, z_axis_tensor);
  double Dreh_m[4][4] = {};
  for (int j = 1; j <= 3; ++j) {
    Dreh_m[j][1] = x_axis_tensor[j];
    Dreh_m[j][2] = y_axis_tensor[j];
    Dreh_m[j][3] = z_axis_tensor[j];
  }
  // Each partial sum is stored back in single precision.
  for (int i = 1; i <= no_atoms; ++i) {
    float sum = 0.0f;
    sum = static_cast<float>(sum + Dreh_m[1][1] * x[i]);
    sum = static_cast<float>(sum + Dreh_m[2][1] * y[i]);
    sum = static_cast<float>(sum + Dreh_m[3][1] * z[i]);
    x_temp[i] = sum;
  }
  if (y_temp != nullptr) {
    for (int i = 1; i <= no_atoms; ++i) {
      float sum = 0.0f;
      sum = static_cast<float>(sum + Dreh_m[1][2] * x[i]);
      sum = static_cast<float>(sum + Dreh_m[2][2] * y[i]);
      sum = static_cast<float>(sum + Dreh_m[3][2] * z[i]);
      (*y_temp)[i] = sum;
    }
  }
  if (z_temp != nullptr) {
    for (int i = 1; i <= no_atoms; ++i) {
      float sum = 0.0f;
      sum = static_cast<float>(sum + Dreh_m[1][3] * x[i]);
      sum = static_cast<float>(sum + Dreh_m[2][3] * y[i]);
      sum = static_cast<float>(sum + Dreh_m[3][3] * z[i]);
      (*z_temp)[i] = sum;
    }
  }
}

void wall_thresholds(double radius, double max_obstruction, int t_pts, const Grid& grid,
                     std::vector<float>& pot_dist) {
  for (int k = 0; k <= t_pts; ++k) {
    pot_dist[k] = static_cast<float>(radius - (grid[k][1] - max_obstruction));
  }
}

void wall_allowed(int no_atoms, const std::vector<float>& x_temp, int t_pts,
                  const std::vector<float>& pot_dist, std::vector<unsigned char>& allowed) {
  for (int k = 0; k <= t_pts; ++k) {
    unsigned char orientation_flag = 1;
    for (int i = 1; i <= no_atoms; ++i) {
      // At or within the atom radius of the wall surface is a contact; an
      // unordered comparison (NaN) is not.
      if (x_temp[i] <= pot_dist[k]) {
        orientation_flag = 0;
        break;
      }
    }
    allowed[k] = orientation_flag;
  }
}

void cylinder_allowed(int no_atoms, const std::vector<float>& x_temp,
                      const std::vector<float>& y_temp, int no_pt_ph, const Grid& grid_ph,
                      double radius2, std::vector<unsigned char>& allowed) {
  for (int k = 0; k <= no_pt_ph; ++k) {
    unsigned char orientation_flag = 1;
    for (int i = 1; i <= no_atoms; ++i) {
      const double dx = x_temp[i] + grid_ph[k][1];
      const double dy = y_temp[i] + grid_ph[k][2];
      if (std::sqrt(dx * dx + dy * dy) <= radius2) {
        orientation_flag = 0;
        break;
      }
    }
    allowed[k] = orientation_flag;
  }
}

void accumulate(const OrientationTables& tables, int m, int last,
                const std::vector<unsigned char>& allowed, PassSums& sums) {
  for (int k = 0; k <= last; ++k) {
    if (allowed[k] == 0) {
      continue;
    }
    std::array<double, 5>& row = sums.saupe_dis[k];
    row[0] += tables.szz_orient[m];
    row[1] += tables.sxx_yy_orient[m];
    row[2] += tables.sxy_orient[m];
    row[3] += tables.sxz_orient[m];
    row[4] += tables.syz_orient[m];
    sums.total[k] += 1;
  }
}

PassSums wall_pass_direct(double radius, double max_obstruction, int no_atoms,
                          const std::vector<double>& x, const std::vector<double>& y,
                          const std::vector<double>& z, int t_pts, int o_pts, const Grid& grid,
                          const OrientationTables& tables, std::vector<float>& x_temp,
                          std::vector<float>& pot_dist) {
  wall_thresholds(radius, max_obstruction, t_pts, grid, pot_dist);
  PassSums sums = empty_sums(t_pts);
  std::vector<unsigned char> allowed(slots_for(t_pts), 0);
  for (int m = 1; m <= o_pts; ++m) {
    project_atoms(tables.eulerangle[m], no_atoms, x, y, z, x_temp, nullptr, nullptr);
    wall_allowed(no_atoms, x_temp, t_pts, pot_dist, allowed);
    accumulate(tables, m, t_pts, allowed, sums);
  }
  return sums;
}

PassSums cylinder_pass_direct(double radius2, int no_atoms, const std::vector<double>& x,
                              const std::vector<double>& y, const std::vector<double>& z,
                              int no_pt_ph, int o_pts, const Grid& grid_ph,
                              const OrientationTables& tables, std::vector<float>& x_temp,
                              std::vector<float>& y_temp, std::vector<float>& z_temp) {
  PassSums sums = empty_sums(no_pt_ph);
  std::vector<unsigned char> allowed(slots_for(no_pt_ph), 0);
  for (int m = 1; m <= o_pts; ++m) {
    project_atoms(tables.eulerangle[m], no_atoms, x, y, z, x_temp, &y_temp, &z_temp);
    cylinder_allowed(no_atoms, x_temp, y_temp, no_pt_ph, grid_ph, radius2, allowed);
    accumulate(tables, m, no_pt_ph, allowed, sums);
  }
  return sums;
}

void combine_alignment(const Settings& settings, double max_obstruction, int no_add_orient,
                       int no_add_ph_orient, int o_pts, const Grid& grid_ph, const PassSums* wall,
                       const PassSums* cylinder, const double saupe_dev[5],
                       double saupe_weight[5]) {
  // The wall's state count is divided by the number of orientations as
  // integers; no orientations leaves nothing to average over.
  if (o_pts == 0 && settings.liquid_type != 2) {
    nerror("No orientations sampled ...");
  }

  double saupe_bic_weight[5] = {};
  double saupe_ph_weight[5] = {};
  int no_ok_pts_bic = 0;
  int no_ok_pts_ph = 0;
  long long total_bic = 0;
  long long total_ph = 0;

  if (settings.liquid_type == 1 && wall != nullptr) {
    const std::vector<std::array<double, 5>> saupe_dis = position_means(*wall, saupe_dev);
    for (std::size_t k = 0; k < saupe_dis.size(); ++k) {
      if (wall->total[k] != 0) {
        no_ok_pts_bic += 1;
      }
      total_bic += wall->total[k];
    }
    for (int e = 0; e < 5; ++e) {
      for (std::size_t k = 0; k < saupe_dis.size(); ++k) {
        saupe_bic_weight[e] += static_cast<double>(wall->total[k]) / o_pts * saupe_dis[k][e];
      }
    }
  }
  const bool combined = settings.liquid_type == 1 && settings.bic_phage == 1.0;
  if ((settings.liquid_type == 2 || combined) && cylinder != nullptr) {
    const std::vector<std::array<double, 5>> saupe_dis = position_means(*cylinder, saupe_dev);
    for (std::size_t k = 0; k < saupe_dis.size(); ++k) {
      if (cylinder->total[k] != 0) {
        no_ok_pts_ph += 1;
      }
      total_ph += cylinder->total[k];
    }
    (void)total_ph;  // kept for diagnostics, not used further
    // Each position weighted by its distance from the cylinder axis in
    // units of the cylinder radius (the cylindrical volume element).
    for (int e = 0; e < 5; ++e) {
      for (std::size_t k = 0; k < saupe_dis.size(); ++k) {
        saupe_ph_weight[e] += static_cast<double>(cylinder->total[k]) / o_pts * saupe_dis[k][e] *
                              grid_ph[k][1] / max_obstruction;
      }
    }
  }

  if (combined) {
    if (no_ok_pts_ph == 0) {
      nerror("No allowed position in the phage grid ...");
    }
    // The cylinder term is subtracted from the wall's, deliberately.
    for (int e = 0; e < 5; ++e) {
      saupe_weight[e] =
          (1 / (1 / settings.molar_ratio + 1)) *
          (saupe_bic_weight[e] - (1 / settings.molar_ratio) *
                                     (static_cast<double>(no_ok_pts_bic) / no_ok_pts_ph) *
                                     settings.order_rel * saupe_ph_weight[e]);
    }
  } else if (settings.liquid_type == 1) {
    for (int e = 0; e < 5; ++e) {
      saupe_weight[e] = saupe_bic_weight[e];
    }
  } else if (settings.liquid_type == 2) {
    for (int e = 0; e < 5; ++e) {
      saupe_weight[e] = saupe_ph_weight[e];
    }
  }

  // Spread over all states, the free ones beyond the grid included. In the
  // combined medium the cylinder's counts do not enter.
  const double scale_fac = settings.scale_down_ok != 0 ? 1.0 : 0.0;
  const long long total_orient =
      settings.liquid_type == 2 ? no_add_ph_orient : total_bic / o_pts + no_add_orient;
  // With scale_down_ok 0 the divisor is 0: non-finite results, kept so.
  for (int e = 0; e < 5; ++e) {
    saupe_weight[e] = saupe_weight[e] / (static_cast<double>(total_orient) * scale_fac);
  }
}

void simulate_with_passes(const Settings& settings, double max_obstruction, int no_atoms,
                          int no_add_orient, int no_add_ph_orient, const std::vector<double>& x,
                          const std::vector<double>& y, const std::vector<double>& z, int t_pts,
                          int no_pt_ph, int o_pts, const Grid& grid, const Grid& grid_ph,
                          const OrientationTables& tables, const double saupe_dev[5],
                          double saupe_weight[5], const WallPass& wall_pass_fn,
                          const CylinderPass& cylinder_pass_fn) {
  check_inputs(no_atoms, x, y, z, o_pts, tables);
  std::vector<float> x_temp;
  std::vector<float> y_temp;
  std::vector<float> z_temp;
  std::vector<float> pot_dist;
  allocate(x_temp, no_atoms + 1, "x_temp");
  allocate(y_temp, no_atoms + 1, "y_temp");
  allocate(z_temp, no_atoms + 1, "z_temp");
  allocate(pot_dist, t_pts + 1, "pot_dist");

  const double radius = settings.atom_radius;
  if (settings.grid_type != 2) {
    return;  // saupe_weight stays as the caller set it
  }

  const bool wall_pass = settings.liquid_type == 1;
  const bool cylinder_pass =
      settings.liquid_type == 2 || (settings.liquid_type == 1 && settings.bic_phage == 1.0);
  PassSums wall;
  PassSums cylinder;
  if (wall_pass) {
    check_grid_index(t_pts, grid);
    wall = wall_pass_fn(radius, max_obstruction, x_temp, pot_dist);
  }
  if (cylinder_pass) {
    check_grid_index(no_pt_ph, grid_ph);
    const double radius2 = max_obstruction + radius;
    cylinder = cylinder_pass_fn(radius2, x_temp, y_temp, z_temp);
  }
  combine_alignment(settings, max_obstruction, no_add_orient, no_add_ph_orient, o_pts, grid_ph,
                    wall_pass ? &wall : nullptr, cylinder_pass ? &cylinder : nullptr, saupe_dev,
                    saupe_weight);
}

void simulate_alignment3_direct(const Settings& settings, double max_obstruction, int no_atoms,
                                int no_add_orient, int no_add_ph_orient,
                                const std::vector<double>& x, const std::vector<double>& y,
                                const std::vector<double>& z, int t_pts, int no_pt_ph, int o_pts,
                                const Grid& grid, const Grid& grid_ph,
                                const OrientationTables& tables, const double saupe_dev[5],
                                double /*saupe*/[5], double saupe_weight[5]) {
  simulate_with_passes(
      settings, max_obstruction, no_atoms, no_add_orient, no_add_ph_orient, x, y, z, t_pts,
      no_pt_ph, o_pts, grid, grid_ph, tables, saupe_dev, saupe_weight,
      [&](double radius, double obstruction, std::vector<float>& x_temp,
          std::vector<float>& pot_dist) {
        return wall_pass_direct(radius, obstruction, no_atoms, x, y, z, t_pts, o_pts, grid, tables,
                                x_temp, pot_dist);
      },
      [&](double radius2, std::vector<float>& x_temp, std::vector<float>& y_temp,
          std::vector<float>& z_temp) {
        return cylinder_pass_direct(radius2, no_atoms, x, y, z, no_pt_ph, o_pts, grid_ph, tables,
                                    x_temp, y_temp, z_temp);
      });
}

}  // namespace vorn::detail
