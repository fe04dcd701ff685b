#include "simulation/frame.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "core/fatal.hpp"

namespace vorn {

namespace {

// Atom arrays are used from index 1; a count beyond what the arrays hold is
// a caller error and must not read or write past them.
void check_atom_count(int count, const std::vector<double>& x, const std::vector<double>& y,
                      const std::vector<double>& z) {
  const std::size_t slots = std::min({x.size(), y.size(), z.size()});
  if (count > 0 && static_cast<std::size_t>(count) >= slots) {
    nerror("Too many atoms ...");
  }
}

}  // namespace

double calculate_center_mass(int no_of_masses, const std::vector<double>& x,
                             const std::vector<double>& y, const std::vector<double>& z,
                             const std::vector<double>& /*mass*/, double center_of_mass[4]) {
  check_atom_count(no_of_masses, x, y, z);
  // Every atom counts 1.0 whatever its mass: the centre is the geometric
  // mean of the coordinates, kept so for compatibility despite the name.
  double mass_sum = 0.0;
  double sum_x = 0.0;
  double sum_y = 0.0;
  double sum_z = 0.0;
  for (int i = 1; i <= no_of_masses; ++i) {
    sum_x += x[i];
    sum_y += y[i];
    sum_z += z[i];
    mass_sum += 1.0;
  }
  // No atoms: 0/0, passed on as it is.
  center_of_mass[1] = sum_x / mass_sum;
  center_of_mass[2] = sum_y / mass_sum;
  center_of_mass[3] = sum_z / mass_sum;
  return mass_sum;
}

void shift_coordinate_system(const double new_origin[4], int no_atoms, std::vector<double>& x,
                             std::vector<double>& y, std::vector<double>& z) {
  check_atom_count(no_atoms, x, y, z);
  for (int i = 1; i <= no_atoms; ++i) {
    x[i] -= new_origin[1];
    y[i] -= new_origin[2];
    z[i] -= new_origin[3];
  }
}

void calculate_extreme_length(int no_atoms, const std::vector<double>& x,
                              const std::vector<double>& y, const std::vector<double>& z,
                              double& max_distance, double& min_distance) {
  check_atom_count(no_atoms, x, y, z);
  double max_dist = 0.0;
  // Start value of the minimum (squared, A^2): an atom set lying wholly
  // beyond sqrt(100000) A of its centre reports that cap.
  double min_dist = 100000.0;
  for (int i = 1; i <= no_atoms; ++i) {
    const double distance = x[i] * x[i] + y[i] * y[i] + z[i] * z[i];
    if (distance > max_dist) {
      max_dist = distance;
    }
    if (distance < min_dist) {
      min_dist = distance;
    }
  }
  max_distance = std::sqrt(max_dist);
  min_distance = std::sqrt(min_dist);
}

}  // namespace vorn
