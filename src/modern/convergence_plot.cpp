#include "modern/convergence_plot.hpp"

#include <plplot.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <vector>

#include "modern/plot_support.hpp"

namespace vorn::modern {

namespace {

constexpr PLINT kBackground = 0;
constexpr PLINT kForeground = 1;
constexpr PLINT kLine = 2;
constexpr PLINT kBand = 3;

constexpr PLFLT kPageHeightMm = 150.0;
constexpr PLFLT kLeftMm = 32.0;
constexpr PLFLT kBottomMm = 24.0;
constexpr PLFLT kWidthMm = 220.0;
constexpr PLFLT kHeightMm = 110.0;
constexpr PLFLT kGapMm = 8.0;
constexpr PLFLT kRightMm = 8.0;
constexpr PLFLT kCharMm = 5.0;

PLFLT draw(const ConvergenceSeries& s, const std::string& title, PLFLT page_width_mm) {
  plot::begin_page(page_width_mm, kPageHeightMm,
                   {{255, 255, 255}, {0, 0, 0}, {0, 114, 178}, {166, 206, 227}});
  plschr(kCharMm, 1.0);
  plsvpa(kLeftMm, kLeftMm + kWidthMm, kBottomMm, kBottomMm + kHeightMm);
  const std::size_t n = s.mean.size();
  std::vector<PLFLT> x(n), lo(n), hi(n);
  double y_lo = INFINITY, y_hi = -INFINITY;
  for (std::size_t i = 0; i < n; ++i) {
    x[i] = static_cast<double>(i + 1);
    lo[i] = s.mean[i] - s.error[i];
    hi[i] = s.mean[i] + s.error[i];
    y_lo = std::min(y_lo, lo[i]);
    y_hi = std::max(y_hi, hi[i]);
  }
  if (!(y_lo < y_hi)) y_lo -= 1.0, y_hi += 1.0;
  const double margin = 0.05 * (y_hi - y_lo);
  plwind(1.0, std::max(2.0, static_cast<double>(n)), y_lo - margin, y_hi + margin);
  // The band: mean + se forwards, mean - se backwards, one polygon.
  if (n > 1) {
    std::vector<PLFLT> bx(x), by(hi);
    for (std::size_t i = n; i-- > 0;) bx.push_back(x[i]), by.push_back(lo[i]);
    plcol0(kBand);
    plfill(static_cast<PLINT>(bx.size()), bx.data(), by.data());
  }
  plcol0(kLine);
  plwidth(1.5);
  plline(static_cast<PLINT>(n), x.data(), s.mean.data());
  plwidth(1.0);
  plcol0(kForeground);
  plbox("bcnst", 0.0, 0, "bcnstv", 0.0, 0);
  pllab("models", "running mean (Hz)", plot::plplot_text(title).c_str());
  plot::LegendEntries legend;
  legend.add(plot::plplot_text(s.label) + ": mean", PL_LEGEND_LINE, kLine, kForeground);
  legend.add("standard error (block averaging)", PL_LEGEND_COLOR_BOX, kBand, kForeground);
  return plot::draw_legend_right(legend, kGapMm, kWidthMm, 0.07, 0.9, kBackground, kForeground);
}

}  // namespace

void write_convergence_plot(const std::string& path, const ConvergenceSeries& series,
                            const std::string& title) {
  if (series.mean.size() != series.error.size())
    throw std::invalid_argument("convergence plot: means and errors of unequal length");
  const auto finite = [](double v) { return std::isfinite(v); };
  if (!std::all_of(series.mean.begin(), series.mean.end(), finite) ||
      !std::all_of(series.error.begin(), series.error.end(), finite))
    throw std::invalid_argument("convergence plot: a value that is not finite");
  plot::write_picture(path, "convergence plot", {kLeftMm + kWidthMm + kGapMm, 80.0, kRightMm},
                      [&](PLFLT page_width_mm) { return draw(series, title, page_width_mm); });
}

}  // namespace vorn::modern
