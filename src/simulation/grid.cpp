#include "simulation/grid.hpp"

#include <cmath>
#include <limits>

#include "core/fatal.hpp"

namespace vorn {

namespace {

// Highest grid index trunc(length / spacing), kept in double precision so
// that a value no int can hold is caught before it becomes a count.
double grid_steps(double length, double spacing) { return std::trunc(length / spacing); }

// The highest index of a one-dimensional grid: at most the caller's cap
// (and an int). A count that is not a number or negative (which only an
// empty atom set produces) cannot describe a grid.
int checked_last_index(double steps, int max_index) {
  if (std::isnan(steps) || steps < 0.0) {
    nerror("No grid points ...");
  }
  if (steps > max_index || steps > std::numeric_limits<int>::max() - 1) {
    nerror("Too many grid points ...");
  }
  return static_cast<int>(steps);
}

// The grid holds at least the points 0..last.
void ensure_slots(Grid& grid, int last) {
  if (grid.size() < static_cast<std::size_t>(last) + 1) {
    grid.resize(static_cast<std::size_t>(last) + 1, GridPoint{});
  }
}

// Two-dimensional sheet, filled from index 1; the simulation does not use it
// (it runs for the one-dimensional grid only), so the sheet is counted in
// full while only the points that fit the grid as given are stored.
int make_sheet(double s_l_ratio, double max_protein_length, double max_obstruction, double spacing,
               Grid& grid) {
  const double A = max_obstruction * s_l_ratio + max_protein_length;
  const double B = max_obstruction + max_protein_length;
  const double steps_a = grid_steps(A, spacing);
  const double steps_b = grid_steps(B, spacing);
  if (std::isnan(steps_a) || std::isnan(steps_b)) {
    nerror("No grid points ...");
  }
  if (steps_a < 0.0 || steps_b < 0.0) {
    return 0;  // an empty loop: no points
  }
  // The count must stay an int.
  if ((steps_a + 1.0) * (steps_b + 1.0) > 2147483647.0) {
    nerror("Too many grid points ...");
  }
  const int nA = static_cast<int>(steps_a);
  const int nB = static_cast<int>(steps_b);
  const std::size_t slots = grid.size();
  int no_pt = 0;
  for (int i = 0; i <= nA; ++i) {
    for (int j = 0; j <= nB; ++j) {
      no_pt += 1;
      if (static_cast<std::size_t>(no_pt) < slots) {
        grid[no_pt][1] = A - i * spacing;
        grid[no_pt][2] = B - j * spacing;
        grid[no_pt][3] = 0.0;
      }
    }
  }
  return no_pt;
}

// Points (d0 + i*spacing, 0, 0) for i = 0..last.
void fill_line(double d0, double spacing, int last, Grid& grid) {
  for (int i = 0; i <= last; ++i) {
    grid[i][1] = d0 + i * spacing;
    grid[i][2] = 0.0;
    grid[i][3] = 0.0;
  }
}

}  // namespace

int setup_model(const Settings& settings, double /*conc_ratio*/, double s_l_ratio,
                double min_protein_length, double max_protein_length, double max_obstruction,
                int liquid_flag, int grid_flag, double spacing, Grid& grid, int& no_pt_ph,
                Grid& grid_ph, double& final_distance, double& final_distance_ph, const Log& log,
                int max_grid_index) {
  return make_grid(settings, s_l_ratio, min_protein_length, max_protein_length, max_obstruction,
                   grid_flag, liquid_flag, spacing, grid, no_pt_ph, grid_ph, final_distance,
                   final_distance_ph, log, max_grid_index);
}

int make_grid(const Settings& settings, double s_l_ratio, double min_protein_length,
              double max_protein_length, double max_obstruction, int grid_flag, int liquid_flag,
              double spacing, Grid& grid, int& no_pt_ph, Grid& grid_ph, double& final_distance,
              double& final_distance_ph, const Log& log, int max_grid_index) {
  if (grid_flag == 1) {
    return make_sheet(s_l_ratio, max_protein_length, max_obstruction, spacing, grid);
  }
  // Any grid type other than 1 and 2, and any medium other than 1 and 2,
  // builds nothing: the count is 0 and the outputs stay as they are.
  if (grid_flag != 2) {
    return 0;
  }

  const double d0 = min_protein_length + max_obstruction;
  const double length = max_protein_length - min_protein_length;
  const bool bicelle = liquid_flag == 1;
  const bool phage = liquid_flag == 2 || (liquid_flag == 1 && settings.bic_phage == 1.0);

  int t_pts = 0;  // phage alone: no wall grid, count 0
  if (bicelle) {
    const int n = checked_last_index(grid_steps(length, spacing), max_grid_index);
    ensure_slots(grid, n);
    fill_line(d0, spacing, n, grid);
    final_distance = grid[n][1];
    t_pts = n;
  }
  if (phage) {
    const int m = checked_last_index(grid_steps(length, spacing), max_grid_index);
    ensure_slots(grid_ph, m);
    fill_line(d0, spacing, m, grid_ph);
    if (settings.debug != 0) {
      for (int i = 0; i <= m; ++i) {
        log.list(format("@@ grid_setup  pt[%d]:  %.1f    %.1f    %.1f\n", i, grid_ph[i][1],
                        grid_ph[i][2], grid_ph[i][3]));
      }
    }
    // The final distance is taken from the wall grid, which equals the
    // cylinder grid whenever both are built. Phage alone has no wall grid:
    // the cylinder grid's own last point is used.
    final_distance_ph = bicelle ? grid[m][1] : grid_ph[m][1];
    no_pt_ph = m;
  }
  return t_pts;
}

}  // namespace vorn
