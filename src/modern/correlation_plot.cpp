#include "modern/correlation_plot.hpp"

#include <plplot.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

#include "modern/plot_support.hpp"

namespace vorn::modern {
namespace {

using plot::LegendEntries;
using plot::plplot_text;
using plot::Rgb;

// Every marker, in the plot and in the legend, is this glyph (U+25CF BLACK
// CIRCLE) drawn by plstring; the SVG driver writes it as one text element.
constexpr const char* kMarker = "\xE2\x97\x8F";

// Colour map 0: background, frame and text, the diagonal, then the series.
constexpr PLINT kBackground = 0;
constexpr PLINT kForeground = 1;
constexpr PLINT kDiagonal = 2;
constexpr PLINT kFirstSeries = 3;

// Okabe-Ito colours, distinguishable with the common colour-vision
// deficiencies; further series get hues spread by the golden angle.
constexpr std::array<Rgb, 6> kSeriesColours{
    {{0, 114, 178}, {213, 94, 0}, {0, 158, 115}, {204, 121, 167}, {230, 159, 0}, {86, 180, 233}}};

Rgb series_colour(std::size_t index) {
  if (index < kSeriesColours.size()) return kSeriesColours[index];
  double r = 0, g = 0, b = 0;
  plhlsrgb(std::fmod(137.5 * static_cast<double>(index), 360.0), 0.45, 0.75, &r, &g, &b);
  return {static_cast<PLINT>(std::lround(255 * r)), static_cast<PLINT>(std::lround(255 * g)),
          static_cast<PLINT>(std::lround(255 * b))};
}

// Layout in millimetres. The plot is a square of fixed size; the page grows
// to the right with the legend.
constexpr PLFLT kPageHeightMm = 226.0;
constexpr PLFLT kLeftMm = 32.0;    // tick labels and the y label
constexpr PLFLT kBottomMm = 24.0;  // tick labels and the x label
constexpr PLFLT kSideMm = 184.0;   // the plot square
constexpr PLFLT kGapMm = 8.0;      // between the plot and the legend
constexpr PLFLT kRightMm = 8.0;
constexpr PLFLT kCharMm = 5.0;  // PLplot character height
constexpr PLFLT kLegendTextScale = 0.9;
// The legend sample column, as a fraction of the plot width.
constexpr PLFLT kLegendSampleWidth = 0.07;

// Identical limits for both axes, covering every point with a margin of 5 %
// of the span (1 Hz around a single value, [-1, 1] Hz without points).
std::pair<double, double> axis_limits(const std::vector<PlotSeries>& series) {
  double lo = INFINITY;
  double hi = -INFINITY;
  for (const PlotSeries& s : series) {
    for (double v : s.measured_hz) lo = std::min(lo, v), hi = std::max(hi, v);
    for (double v : s.calculated_hz) lo = std::min(lo, v), hi = std::max(hi, v);
  }
  if (lo > hi) return {-1.0, 1.0};
  const double margin = hi > lo ? 0.05 * (hi - lo) : 1.0;
  return {lo - margin, hi + margin};
}

void check_series(const std::vector<PlotSeries>& series) {
  for (const PlotSeries& s : series) {
    if (s.measured_hz.size() != s.calculated_hz.size()) {
      throw std::invalid_argument("correlation plot: series '" + s.label + "' has " +
                                  std::to_string(s.measured_hz.size()) + " measured and " +
                                  std::to_string(s.calculated_hz.size()) + " calculated values");
    }
    const auto finite = [](double v) { return std::isfinite(v); };
    if (!std::all_of(s.measured_hz.begin(), s.measured_hz.end(), finite) ||
        !std::all_of(s.calculated_hz.begin(), s.calculated_hz.end(), finite)) {
      throw std::invalid_argument("correlation plot: series '" + s.label +
                                  "' has a value that is not finite");
    }
  }
}

// What a plot shows, in the form PLplot takes.
struct Content {
  const std::vector<PlotSeries>& series;
  std::string title, x_label, y_label;
  LegendEntries legend;
};

Content content_of(const std::vector<PlotSeries>& series, const PlotOptions& options) {
  Content c{series,
            plplot_text(options.title),
            plplot_text(options.x_label),
            plplot_text(options.y_label),
            {}};
  for (std::size_t i = 0; i < series.size(); ++i) {
    c.legend.add(plplot_text(series[i].label) +
                     " (n = " + std::to_string(series[i].measured_hz.size()) + ")",
                 PL_LEGEND_SYMBOL, kFirstSeries + static_cast<PLINT>(i), kForeground, kMarker);
  }
  c.legend.add("y = x", PL_LEGEND_LINE, kDiagonal, kForeground, kMarker);
  for (const std::string& note : options.legend_notes) {
    c.legend.add(plplot_text(note), PL_LEGEND_NONE, kForeground, kForeground, kMarker);
  }
  return c;
}

// Draws the plot on the current stream, not yet initialised, on a page
// `page_width_mm` wide; returns the width of the legend box in millimetres.
PLFLT draw(const Content& content, PLFLT page_width_mm) {
  const std::vector<PlotSeries>& series = content.series;
  std::vector<Rgb> colours{{255, 255, 255}, {0, 0, 0}, {128, 128, 128}};
  for (std::size_t i = 0; i < std::max<std::size_t>(series.size(), 1); ++i) {
    colours.push_back(series_colour(i));
  }
  plot::begin_page(page_width_mm, kPageHeightMm, colours);
  plschr(kCharMm, 1.0);
  plsvpa(kLeftMm, kLeftMm + kSideMm, kBottomMm, kBottomMm + kSideMm);

  const auto [lo, hi] = axis_limits(series);
  plwind(lo, hi, lo, hi);
  plcol0(kForeground);
  plwidth(1.0);
  plbox("bcnst", 0.0, 0, "bcnstv", 0.0, 0);
  pllab(content.x_label.c_str(), content.y_label.c_str(), content.title.c_str());

  plcol0(kDiagonal);
  plwidth(1.5);
  const std::array<PLFLT, 2> diagonal{lo, hi};
  plline(2, diagonal.data(), diagonal.data());
  plwidth(1.0);

  for (std::size_t i = 0; i < series.size(); ++i) {
    const PlotSeries& s = series[i];
    if (s.measured_hz.empty()) continue;
    plcol0(kFirstSeries + static_cast<PLINT>(i));
    plstring(static_cast<PLINT>(s.measured_hz.size()), s.measured_hz.data(), s.calculated_hz.data(),
             kMarker);
  }

  return plot::draw_legend_right(content.legend, kGapMm, kSideMm, kLegendSampleWidth,
                                 kLegendTextScale, kBackground, kForeground);
}

}  // namespace

void write_correlation_plot(const std::string& path, const std::vector<PlotSeries>& series,
                            const PlotOptions& options) {
  check_series(series);
  const Content content = content_of(series, options);
  plot::write_picture(path, "correlation plot", {kLeftMm + kSideMm + kGapMm, kSideMm, kRightMm},
                      [&](PLFLT page_width_mm) { return draw(content, page_width_mm); });
}

}  // namespace vorn::modern
