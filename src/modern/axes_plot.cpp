#include "modern/axes_plot.hpp"

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

constexpr double kPi = 3.14159265358979323846;
constexpr double kDegree = kPi / 180.0;

// Colour map 0: background, text, graticule, the map's outline, the x, y
// and z axes, then their tints for the samples.
constexpr PLINT kBackground = 0;
constexpr PLINT kForeground = 1;
constexpr PLINT kGraticule = 2;
constexpr PLINT kOutline = 3;
constexpr PLINT kFirstAxis = 4;
constexpr PLINT kFirstTint = 7;
// Okabe-Ito vermillion, bluish green and blue: red, green and blue for x,
// y and z, told apart with the common colour-vision deficiencies.
constexpr std::array<Rgb, 3> kAxisColours{{{213, 94, 0}, {0, 158, 115}, {0, 114, 178}}};
constexpr double kTint = 0.55;  // share of white in the samples' colours

std::vector<Rgb> colour_map() {
  std::vector<Rgb> colours{{255, 255, 255}, {0, 0, 0}, {200, 200, 200}, {90, 90, 90}};
  for (const Rgb& c : kAxisColours) colours.push_back(c);
  const auto tint = [](PLINT v) { return static_cast<PLINT>(std::lround(v + kTint * (255 - v))); };
  for (const Rgb& c : kAxisColours) colours.push_back({tint(c.r), tint(c.g), tint(c.b)});
  return colours;
}

// Layout in millimetres: the map (twice as wide as high, as the
// projection) with the title above it and the convention below; the legend
// on its right.
constexpr PLFLT kLeftMm = 8.0;
constexpr PLFLT kMapWidthMm = 250.0;
constexpr PLFLT kMapHeightMm = 125.0;
constexpr PLFLT kTopMm = 14.0;
constexpr PLFLT kBottomMm = 22.0;
constexpr PLFLT kGapMm = 8.0;
constexpr PLFLT kRightMm = 8.0;
constexpr PLFLT kCharMm = 4.0;
constexpr PLFLT kLabelScale = 0.8;  // graticule labels
constexpr PLFLT kMarkerMm = 3.6;
constexpr PLFLT kFitMarkerMm = 5.0;  // a ring around the samples
constexpr PLFLT kSampleMarkerMm = 1.6;
constexpr PLFLT kLegendTextScale = 0.9;
constexpr PLFLT kLegendSampleWidth = 0.025;
// The map's window in degrees: room on the left for the latitude labels,
// the same scale on both axes.
constexpr PLFLT kWindowLeft = -212.0, kWindowRight = 212.0;
constexpr PLFLT kWindowBottom = -106.0, kWindowTop = 106.0;
constexpr double kGraticuleStep = 30.0;

// Drawn bottom to top: samples, models, prediction, fit.
constexpr std::array<AxesSource, 4> kDrawingOrder{AxesSource::samples, AxesSource::models,
                                                  AxesSource::prediction, AxesSource::fit};

PLFLT marker_mm(AxesSource source) {
  return source == AxesSource::samples ? kSampleMarkerMm
         : source == AxesSource::fit   ? kFitMarkerMm
                                       : kMarkerMm;
}

std::string degrees(double value) {
  const long v = std::lround(value);
  // U+2212 MINUS SIGN, U+00B0 DEGREE SIGN.
  return (v < 0 ? "\u2212" : "") + std::to_string(std::labs(v)) + "\u00B0";
}

void check_series(const std::vector<AxesSeries>& series) {
  for (const AxesSeries& s : series) {
    for (const PrincipalAxes& axes : s.tensors) {
      for (const Direction& d : axes) {
        const double norm = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
        if (!std::isfinite(norm) || !(norm > 0.0)) {
          throw std::invalid_argument("axes plot: series '" + s.label +
                                      "' has an axis that is zero or not finite");
        }
      }
    }
  }
}

struct Content {
  const std::vector<AxesSeries>& series;
  std::string title;
  LegendEntries legend;
};

Content content_of(const std::vector<AxesSeries>& series, const AxesPlotOptions& options) {
  Content c{series, plplot_text(options.title), {}};
  const char* names[] = {"x axis", "y axis", "z axis"};
  for (PLINT k = 0; k < 3; ++k) {
    c.legend.add(names[k], PL_LEGEND_LINE, kFirstAxis + k, kForeground);
    c.legend.line_widths.back() = 5.0;
  }
  for (const AxesSource source :
       {AxesSource::fit, AxesSource::models, AxesSource::prediction, AxesSource::samples}) {
    for (const AxesSeries& s : series) {
      if (s.source != source || s.tensors.empty()) continue;
      c.legend.add(plplot_text(s.label) + " (n = " + std::to_string(s.tensors.size()) + ")",
                   PL_LEGEND_SYMBOL, kForeground, kForeground, axes_glyph(s.source),
                   std::max(marker_mm(s.source), 2.4) / kCharMm);
    }
  }
  for (const std::string& note : options.legend_notes) {
    c.legend.add(plplot_text(note), PL_LEGEND_NONE, kForeground, kForeground);
  }
  return c;
}

// The meridian of longitude `lambda` (degrees from the central one).
void draw_meridian(double lambda) {
  constexpr int kSteps = 90;
  std::vector<PLFLT> x, y;
  for (int i = 0; i <= kSteps; ++i) {
    const double phi = -90.0 + 180.0 * i / kSteps;
    x.push_back(lambda * std::cos(phi * kDegree));
    y.push_back(phi);
  }
  plline(static_cast<PLINT>(x.size()), x.data(), y.data());
}

void draw_graticule() {
  plwidth(0.8);
  plcol0(kGraticule);
  for (double phi = -90.0 + kGraticuleStep; phi < 90.0; phi += kGraticuleStep) {
    const double half = 180.0 * std::cos(phi * kDegree);
    const std::array<PLFLT, 2> x{-half, half};
    const std::array<PLFLT, 2> y{phi, phi};
    plline(2, x.data(), y.data());
  }
  for (double lambda = -180.0 + kGraticuleStep; lambda < 180.0; lambda += kGraticuleStep) {
    draw_meridian(lambda);
  }
  plwidth(1.2);
  plcol0(kOutline);
  draw_meridian(-180.0);
  draw_meridian(180.0);
  plwidth(1.0);

  // Latitudes on the left edge and at the poles; longitudes along the
  // equator, the outline's (+-180) on the right edge.
  plschr(kCharMm, kLabelScale);
  plcol0(kOutline);
  for (double phi = -90.0 + kGraticuleStep; phi < 90.0; phi += kGraticuleStep) {
    const double edge = -180.0 * std::cos(phi * kDegree);
    plptex(edge - 3.0, phi - 1.5, 1.0, 0.0, 1.0, degrees(phi).c_str());
  }
  plptex(0.0, 93.0, 1.0, 0.0, 0.5, degrees(90.0).c_str());
  plptex(0.0, -100.0, 1.0, 0.0, 0.5, degrees(-90.0).c_str());
  for (double lambda = -180.0 + kGraticuleStep; lambda < 180.0; lambda += kGraticuleStep) {
    plptex(lambda + 1.5, -7.0, 1.0, 0.0, 0.0, degrees(lambda).c_str());
  }
  plptex(183.0, -1.5, 1.0, 0.0, 0.0, "\u00B1180\u00B0");
  plschr(kCharMm, 1.0);
}

plot::MarkerShape marker_shape(AxesSource source) {
  switch (source) {
    case AxesSource::fit:
      return plot::MarkerShape::ring;
    case AxesSource::models:
      return plot::MarkerShape::diamond;
    case AxesSource::samples:
      return plot::MarkerShape::disc;
    case AxesSource::prediction:
      return plot::MarkerShape::triangle;
  }
  return plot::MarkerShape::disc;
}

void draw_series(const AxesSeries& s) {
  const bool samples = s.source == AxesSource::samples;
  plwidth(s.source == AxesSource::fit ? 2.0 : 1.0);
  for (int axis = 0; axis < 3; ++axis) {
    std::vector<PLFLT> x, y;
    for (const PrincipalAxes& axes : s.tensors) {
      const Direction& d = axes[axis];
      for (const double sign : {1.0, -1.0}) {
        const MapPoint p = sinusoidal_projection({sign * d[0], sign * d[1], sign * d[2]});
        x.push_back(p.x);
        y.push_back(p.y);
      }
    }
    plcol0((samples ? kFirstTint : kFirstAxis) + axis);
    plot::draw_markers(marker_shape(s.source), marker_mm(s.source), x, y);
  }
  plwidth(1.0);
}

PLFLT draw(const Content& content, PLFLT page_width_mm) {
  plot::begin_page(page_width_mm, kTopMm + kMapHeightMm + kBottomMm, colour_map());
  plschr(kCharMm, 1.0);
  plsvpa(kLeftMm, kLeftMm + kMapWidthMm, kBottomMm, kBottomMm + kMapHeightMm);
  plwind(kWindowLeft, kWindowRight, kWindowBottom, kWindowTop);
  draw_graticule();
  for (const AxesSource source : kDrawingOrder) {
    for (const AxesSeries& s : content.series) {
      if (s.source == source) draw_series(s);
    }
  }
  plcol0(kForeground);
  if (!content.title.empty()) plmtex("t", 1.5, 0.5, 0.5, content.title.c_str());
  plschr(kCharMm, kLabelScale);
  plmtex("b", 1.5, 0.0, 0.0,
         "Sanson\u2013Flamsteed (sinusoidal, equal-area) projection: x = \u03BB cos \u03C6, y = "
         "\u03C6, centred on \u03BB = 0");
  plmtex("b", 3.2, 0.0, 0.0,
         "\u03BB = atan2(y, x), \u03C6 = asin(z) of each principal axis in the structure's frame; "
         "both ends of each axis");
  plschr(kCharMm, 1.0);
  return plot::draw_legend_right(content.legend, kGapMm, kMapWidthMm, kLegendSampleWidth,
                                 kLegendTextScale, kBackground, kForeground);
}

}  // namespace

PrincipalAxes principal_axes(const AlignmentTensor& tensor) {
  return {tensor.eigenvectors[2], tensor.eigenvectors[1], tensor.eigenvectors[0]};
}

const char* axes_glyph(AxesSource source) {
  switch (source) {
    case AxesSource::fit:
      return "\xE2\x97\x8B";  // U+25CB WHITE CIRCLE
    case AxesSource::models:
      return "\xE2\x97\x86";  // U+25C6 BLACK DIAMOND
    case AxesSource::samples:
      return "\xE2\x97\x8F";  // U+25CF BLACK CIRCLE, small
    case AxesSource::prediction:
      return "\xE2\x96\xB2";  // U+25B2 BLACK UP-POINTING TRIANGLE
  }
  return "";
}

MapPoint sinusoidal_projection(const Direction& d, double central_longitude_deg) {
  const double norm = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
  const double phi = std::asin(std::clamp(d[2] / norm, -1.0, 1.0)) / kDegree;
  double lambda = std::atan2(d[1], d[0]) / kDegree - central_longitude_deg;
  lambda = std::fmod(lambda, 360.0);
  if (lambda > 180.0) lambda -= 360.0;
  if (lambda <= -180.0) lambda += 360.0;
  return {lambda * std::cos(phi * kDegree), phi};
}

void write_axes_plot(const std::string& path, const std::vector<AxesSeries>& series,
                     const AxesPlotOptions& options) {
  check_series(series);
  const Content content = content_of(series, options);
  plot::write_picture(path, "axes plot", {kLeftMm + kMapWidthMm + kGapMm, kMapWidthMm, kRightMm},
                      [&](PLFLT page_width_mm) { return draw(content, page_width_mm); });
}

}  // namespace vorn::modern
