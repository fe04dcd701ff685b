// Placeholder bodies until the stages are implemented; delete when done.
#include "simulation/frame.hpp"
#include "simulation/grid.hpp"
#include "simulation/orientation.hpp"
#include "simulation/predict.hpp"

namespace vorn {
double calculate_center_mass(int, const std::vector<double>&, const std::vector<double>&,
                             const std::vector<double>&, const std::vector<double>&, double*) {
  return 0.0;
}
void shift_coordinate_system(const double*, int, std::vector<double>&, std::vector<double>&,
                             std::vector<double>&) {}
void calculate_extreme_length(int, const std::vector<double>&, const std::vector<double>&,
                              const std::vector<double>&, double&, double&) {}
int setup_model(const Settings&, double, double, double, double, double, int, int, double, Grid&,
                int&, Grid&, double&, double&, FILE*) {
  return 0;
}
int grid_orientation_sampling(const Settings&, int, int, int, std::vector<EulerAngle>&, FILE*) {
  return 0;
}
void calculate_scaling(const Settings&, int, double, double, double, int&, int&) {}
void setup_lists(const Settings&, int, OrientationTables&, FILE*) {}
void check_Saupe_uniformity(const Settings&, int, const OrientationTables&, double*, FILE*) {}
void simulate_alignment3(const Settings&, double, int, int, int, const std::vector<double>&,
                         const std::vector<double>&, const std::vector<double>&, int, int, int,
                         const Grid&, const Grid&, const OrientationTables&, const double*,
                         double*, double*) {}
}  // namespace vorn
