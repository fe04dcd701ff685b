// Molecular frame: centre, shift and extreme lengths of the selected atoms.
#pragma once

#include <vector>

namespace vorn {

// Plain geometric mean of the atoms 1..n into center[1..3]; returns n as a
// double. The masses are accepted and not read.
double calculate_center_mass(int no_of_masses, const std::vector<double>& x,
                             const std::vector<double>& y, const std::vector<double>& z,
                             const std::vector<double>& mass, double center_of_mass[4]);
void shift_coordinate_system(const double new_origin[4], int no_atoms, std::vector<double>& x,
                             std::vector<double>& y, std::vector<double>& z);
void calculate_extreme_length(int no_atoms, const std::vector<double>& x,
                              const std::vector<double>& y, const std::vector<double>& z,
                              double& max_distance, double& min_distance);

}  // namespace vorn
