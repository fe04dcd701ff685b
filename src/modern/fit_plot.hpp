// The pictures of `vorn fit`: correlation and sequence plots, the principal
// axes on the sphere, and the axes on the molecule.
#pragma once

#include <string>

#include "app/fit_command.hpp"

namespace vorn::modern {

// One plot per fitted set (and model): measured against back-calculated per
// coupling type, and against the steric prediction when there is one. With
// several fits the set name (and model) goes before the extension:
// plot.svg -> plot_500.svg, plot_500_m2.svg.
void write_fit_plots(const app::FitResult& result, const std::string& path);

// One plot per fitted set (and model), named as the correlation plots: the
// couplings along the sequence, a panel per coupling type (per chain and
// type with several chains), at the residue of the later atom (i for
// C'(i-1)-N(i)); measured with their errors, back-calculated and, with
// --predict, predicted.
void write_fit_sequence_plots(const app::FitResult& result, const std::string& path);

// One map per set (the set name before the extension with several sets):
// the principal axes of the fit (of each model's fit with --per-model),
// of the error estimate's samples (kept by run_fit when plot_axes_file is
// set) and of the prediction.
void write_fit_axes_plots(const app::FitResult& result, const std::string& path);

// One script per set (named as the maps): the fitted tensor's axes at the
// molecule's centre, one tensor per model with --per-model.
void write_fit_tensor_scripts(const app::FitResult& result, const std::string& path);

// `path` with "_<tag>" before its extension (or at its end without one).
std::string tagged_path(const std::string& path, const std::string& tag);

}  // namespace vorn::modern
