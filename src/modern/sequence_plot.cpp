#include "modern/sequence_plot.hpp"

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

// Colour map 0.
constexpr PLINT kBackground = 0;
constexpr PLINT kForeground = 1;
constexpr PLINT kZeroLine = 2;
constexpr PLINT kCalculated = 3;
constexpr PLINT kPredicted = 4;
// White, black, grey, then the Okabe-Ito blue and vermillion of the
// correlation plot's first two series.
const std::vector<plot::Rgb> kColours{
    {255, 255, 255}, {0, 0, 0}, {190, 190, 190}, {0, 114, 178}, {213, 94, 0}};

// Layout in millimetres: the panels one above the other, the legend on the
// right of the top one; the page grows downwards with the panels and to
// the right with the legend.
constexpr PLFLT kLeftMm = 30.0;    // tick labels and the y labels
constexpr PLFLT kWidthMm = 250.0;  // the panels
constexpr PLFLT kPanelMm = 52.0;
constexpr PLFLT kPanelGapMm = 6.0;
constexpr PLFLT kTopMm = 14.0;     // the title
constexpr PLFLT kBottomMm = 22.0;  // tick labels and the x label
constexpr PLFLT kGapMm = 8.0;      // between the panels and the legend
constexpr PLFLT kRightMm = 8.0;
constexpr PLFLT kCharMm = 4.0;  // text
// Marker sizes: the ring of a calculated value around the disc of a
// measured one it matches.
constexpr PLFLT kMeasuredMm = 2.4;
constexpr PLFLT kCalculatedMm = 3.4;
constexpr PLFLT kPredictedMm = 3.0;
constexpr PLFLT kLegendTextScale = 0.9;
constexpr PLFLT kLegendSampleWidth = 0.025;  // of the panel width

void check_panels(const std::vector<SequencePanel>& panels) {
  if (panels.empty()) throw std::invalid_argument("sequence plot: no couplings to draw");
  const auto finite = [](const std::vector<double>& v) {
    return std::all_of(v.begin(), v.end(), [](double x) { return std::isfinite(x); });
  };
  for (const SequencePanel& p : panels) {
    const std::size_t n = p.residue.size();
    const auto fits = [n](const std::vector<double>& v, bool optional) {
      return v.size() == n || (optional && v.empty());
    };
    if (!fits(p.measured_hz, false) || !fits(p.error_hz, true) || !fits(p.calculated_hz, true) ||
        !fits(p.predicted_hz, true)) {
      throw std::invalid_argument("sequence plot: panel '" + p.label +
                                  "' has values of different counts");
    }
    if (!finite(p.residue) || !finite(p.measured_hz) || !finite(p.error_hz) ||
        !finite(p.calculated_hz) || !finite(p.predicted_hz) ||
        std::any_of(p.error_hz.begin(), p.error_hz.end(), [](double e) { return e < 0.0; })) {
      throw std::invalid_argument("sequence plot: panel '" + p.label +
                                  "' has a value that is not finite or an error below 0");
    }
  }
}

// Limits with a margin of 5 % of the span (1 around a single value,
// [-1, 1] without values).
std::pair<double, double> with_margin(double lo, double hi, double fraction) {
  if (lo > hi) return {-1.0, 1.0};
  const double margin = hi > lo ? fraction * (hi - lo) : 1.0;
  return {lo - margin, hi + margin};
}

std::pair<double, double> residue_limits(const std::vector<SequencePanel>& panels) {
  double lo = INFINITY, hi = -INFINITY;
  for (const SequencePanel& p : panels) {
    for (double r : p.residue) lo = std::min(lo, r), hi = std::max(hi, r);
  }
  if (lo > hi) return {0.0, 1.0};
  return {lo - 1.0, hi + 1.0};
}

std::pair<double, double> value_limits(const SequencePanel& p) {
  double lo = INFINITY, hi = -INFINITY;
  for (std::size_t i = 0; i < p.residue.size(); ++i) {
    const double e = p.error_hz.empty() ? 0.0 : p.error_hz[i];
    lo = std::min(lo, p.measured_hz[i] - e);
    hi = std::max(hi, p.measured_hz[i] + e);
  }
  for (double v : p.calculated_hz) lo = std::min(lo, v), hi = std::max(hi, v);
  for (double v : p.predicted_hz) lo = std::min(lo, v), hi = std::max(hi, v);
  return with_margin(lo, hi, 0.08);
}

struct Content {
  const std::vector<SequencePanel>& panels;
  std::string title;
  std::vector<std::string> y_labels;
  LegendEntries legend;
};

Content content_of(const std::vector<SequencePanel>& panels, const SequencePlotOptions& options) {
  Content c{panels, plplot_text(options.title), {}, {}};
  std::size_t n = 0;
  bool errors = false, calculated = false, predicted = false;
  for (const SequencePanel& p : panels) {
    c.y_labels.push_back(plplot_text(p.label) + " (Hz)");
    n += p.residue.size();
    errors |= std::any_of(p.error_hz.begin(), p.error_hz.end(), [](double e) { return e > 0.0; });
    calculated |= !p.calculated_hz.empty();
    predicted |= !p.predicted_hz.empty();
  }
  const std::string count = " (n = " + std::to_string(n) + ")";
  c.legend.add(plplot_text(options.measured_label) + (errors ? " \u00B1 error" : "") + count,
               PL_LEGEND_SYMBOL, kForeground, kForeground, kMeasuredGlyph, 0.7);
  if (calculated) {
    c.legend.add(plplot_text(options.calculated_label), PL_LEGEND_SYMBOL, kCalculated, kForeground,
                 kCalculatedGlyph);
  }
  if (predicted) {
    c.legend.add(plplot_text(options.predicted_label), PL_LEGEND_SYMBOL, kPredicted, kForeground,
                 kPredictedGlyph, 0.8);
  }
  for (const std::string& note : options.legend_notes) {
    c.legend.add(plplot_text(note), PL_LEGEND_NONE, kForeground, kForeground);
  }
  return c;
}

PLFLT page_height(std::size_t panels) {
  return kTopMm + kBottomMm + static_cast<PLFLT>(panels) * kPanelMm +
         static_cast<PLFLT>(panels - 1) * kPanelGapMm;
}

// The viewport of panel k (0 at the top).
void panel_viewport(std::size_t k, std::size_t panels) {
  const PLFLT top = page_height(panels) - kTopMm - static_cast<PLFLT>(k) * (kPanelMm + kPanelGapMm);
  plsvpa(kLeftMm, kLeftMm + kWidthMm, top - kPanelMm, top);
}

void draw_values(PLINT colour, plot::MarkerShape shape, PLFLT size_mm, const std::vector<double>& x,
                 const std::vector<double>& y) {
  if (y.empty()) return;
  plcol0(colour);
  plot::draw_markers(shape, size_mm, x, y);
}

void draw_panel(const Content& content, std::size_t k, std::pair<double, double> residues) {
  const SequencePanel& p = content.panels[k];
  const std::size_t count = content.panels.size();
  panel_viewport(k, count);
  const auto [lo, hi] = value_limits(p);
  plwind(residues.first, residues.second, lo, hi);
  plschr(kCharMm, 1.0);
  plcol0(kForeground);
  plwidth(1.0);
  const bool bottom = k + 1 == count;
  plbox(bottom ? "bcnst" : "bcst", 0.0, 0, "bcnstv", 0.0, 0);
  plmtex("l", 5.0, 0.5, 0.5, content.y_labels[k].c_str());
  if (k == 0 && !content.title.empty()) plmtex("t", 1.5, 0.5, 0.5, content.title.c_str());
  if (bottom) plmtex("b", 3.2, 0.5, 0.5, "residue");

  if (lo < 0.0 && hi > 0.0) {
    // Solid: PLplot draws a dashed line as one short line per dash.
    plcol0(kZeroLine);
    const std::array<PLFLT, 2> x{residues.first, residues.second};
    const std::array<PLFLT, 2> y{0.0, 0.0};
    plline(2, x.data(), y.data());
  }
  // Error bars first, under the markers.
  std::vector<PLFLT> bar_x, bar_lo, bar_hi;
  for (std::size_t i = 0; i < p.error_hz.size(); ++i) {
    if (!(p.error_hz[i] > 0.0)) continue;
    bar_x.push_back(p.residue[i]);
    bar_lo.push_back(p.measured_hz[i] - p.error_hz[i]);
    bar_hi.push_back(p.measured_hz[i] + p.error_hz[i]);
  }
  if (!bar_x.empty()) {
    plcol0(kForeground);
    plerry(static_cast<PLINT>(bar_x.size()), bar_x.data(), bar_lo.data(), bar_hi.data());
  }
  // Predicted under measured, calculated rings on top.
  draw_values(kPredicted, plot::MarkerShape::triangle, kPredictedMm, p.residue, p.predicted_hz);
  draw_values(kForeground, plot::MarkerShape::disc, kMeasuredMm, p.residue, p.measured_hz);
  plwidth(1.5);
  draw_values(kCalculated, plot::MarkerShape::ring, kCalculatedMm, p.residue, p.calculated_hz);
  plwidth(1.0);
}

PLFLT draw(const Content& content, PLFLT page_width_mm) {
  const std::size_t count = content.panels.size();
  plot::begin_page(page_width_mm, page_height(count), kColours);
  const auto residues = residue_limits(content.panels);
  for (std::size_t k = 0; k < count; ++k) draw_panel(content, k, residues);
  // The legend beside the top panel, centred on it.
  panel_viewport(0, count);
  plwind(0.0, 1.0, 0.0, 1.0);
  plschr(kCharMm, 1.0);
  return plot::draw_legend_right(content.legend, kGapMm, kWidthMm, kLegendSampleWidth,
                                 kLegendTextScale, kBackground, kForeground);
}

}  // namespace

void write_sequence_plot(const std::string& path, const std::vector<SequencePanel>& panels,
                         const SequencePlotOptions& options) {
  check_panels(panels);
  const Content content = content_of(panels, options);
  plot::write_picture(path, "sequence plot", {kLeftMm + kWidthMm + kGapMm, kWidthMm, kRightMm},
                      [&](PLFLT page_width_mm) { return draw(content, page_width_mm); });
}

}  // namespace vorn::modern
