// The principal axes of alignment tensors on a map of the sphere: the
// Sanson-Flamsteed (sinusoidal, equal-area) projection, drawn with PLplot.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "vorn/tensor.hpp"

namespace vorn::modern {

using Direction = std::array<double, 3>;
// The x, y and z principal axes of one tensor, unit vectors in the
// molecular frame (x: the smallest |eigenvalue|, z: the largest).
using PrincipalAxes = std::array<Direction, 3>;

// The axes of a tensor in x, y, z order (AlignmentTensor holds them z, y, x).
PrincipalAxes principal_axes(const AlignmentTensor& tensor);

// Where a set of tensors comes from; each source has a marker of its own.
enum class AxesSource {
  fit,         // a fitted tensor
  models,      // one tensor per model of an ensemble
  samples,     // Monte Carlo or bootstrap samples of a fit
  prediction,  // a predicted tensor
};

// The glyph of a source in the legend (UTF-8): fit a ring, models a
// diamond, samples a small disc, prediction a triangle. The markers on the
// map have the same shapes, drawn as polygons centred on their points: in
// an SVG a ring is one closed polyline of 17 points, a disc, triangle or
// diamond one polygon of 16, 3 or 4 corners.
const char* axes_glyph(AxesSource source);

struct AxesSeries {
  AxesSource source = AxesSource::fit;
  std::string label;  // in the legend, followed by the number of tensors
  std::vector<PrincipalAxes> tensors;
};

struct AxesPlotOptions {
  std::string title;
  std::vector<std::string> legend_notes;  // extra lines of the legend
};

// A point of the map in degrees: x = (lambda - lambda0) cos(phi), y = phi,
// with the longitude lambda = atan2(y, x) (lambda - lambda0 taken in
// (-180, 180]) and the latitude phi = asin(z) of the direction (any
// length; normalised here). x lies in [-180, 180], y in [-90, 90].
struct MapPoint {
  double x = 0.0;
  double y = 0.0;
};
MapPoint sinusoidal_projection(const Direction& direction, double central_longitude_deg = 0.0);

// Writes the map: both ends of every axis of every tensor (two markers per
// axis), the x, y and z axes in three colours (vermillion, bluish green,
// blue; the samples in lighter tints of them), one marker shape per
// source, over a graticule of 30 degrees with its latitudes and
// longitudes labelled; the convention below the map; a legend with the
// axis colours, the sources (label and count) and the notes. Drawn in
// the order samples, models, prediction, fit (the fit on top). The format
// follows the extension, as for the correlation plot (.svg, .pdf, .png).
//
// Throws std::invalid_argument, before writing anything, for an axis that
// is zero or not finite. Throws std::runtime_error naming the file as
// write_correlation_plot does.
void write_axes_plot(const std::string& path, const std::vector<AxesSeries>& series,
                     const AxesPlotOptions& options);

}  // namespace vorn::modern
