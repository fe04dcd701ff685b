// The correlation plots of `vorn fit`.
#pragma once

#include <string>

#include "app/fit_command.hpp"

namespace vorn::modern {

// One plot per fitted set (and model): measured against back-calculated per
// coupling type, and against the steric prediction when there is one. With
// several fits the set name (and model) goes before the extension:
// plot.svg -> plot_500.svg, plot_500_m2.svg.
void write_fit_plots(const app::FitResult& result, const std::string& path);

}  // namespace vorn::modern
