// The running mean of one ensemble value against the number of models, with
// the band of its standard error: whether the ensemble has converged.
#pragma once

#include <string>
#include <vector>

namespace vorn::modern {

struct ConvergenceSeries {
  std::string label;          // the value's name in the legend ("A 12 N-H")
  std::vector<double> mean;   // the running mean after 1, 2, ... models
  std::vector<double> error;  // its standard error at each
};

// Writes the picture into `path` (.svg, .pdf or .png). Throws
// std::invalid_argument for series of unequal length or values that are
// not finite, std::runtime_error as plot::write_picture.
void write_convergence_plot(const std::string& path, const ConvergenceSeries& series,
                            const std::string& title);

}  // namespace vorn::modern
