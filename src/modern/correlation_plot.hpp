// Correlation plot of `vorn fit`: back-calculated against measured couplings,
// drawn with PLplot.
#pragma once

#include <string>
#include <vector>

namespace vorn::modern {

// One group of couplings drawn in one colour, e.g. the back-calculation of
// one coupling type, or a steric prediction.
struct PlotSeries {
  std::string label;
  std::vector<double> measured_hz;
  std::vector<double> calculated_hz;
};

struct PlotOptions {
  std::string title;
  std::string x_label = "measured (Hz)";
  std::string y_label = "back-calculated (Hz)";
  // Extra lines of the legend, e.g. "fit: r = 0.993, Q = 0.071".
  std::vector<std::string> legend_notes;
};

// Writes a scatter plot of calculated against measured: one marker per
// coupling, one colour per series, the diagonal y = x over identical square
// limits on both axes, and a legend with the series labels, their counts and
// the notes. The format follows the extension, case-insensitively: .svg,
// .pdf and .png (the last two need PLplot's cairo driver).
//
// Throws std::invalid_argument, before writing anything, when a series has
// measured and calculated values of different lengths or a value that is not
// finite. Throws std::runtime_error naming the file for an unknown extension,
// an output device PLplot does not offer, a file that cannot be written, or
// an error PLplot reports; no file is left behind then. PLplot writes nothing
// to standard output or standard error on success. Safe to call from several
// threads: the calls are serialised, and each one uses a stream of its own.
void write_correlation_plot(const std::string& path, const std::vector<PlotSeries>& series,
                            const PlotOptions& options);

}  // namespace vorn::modern
