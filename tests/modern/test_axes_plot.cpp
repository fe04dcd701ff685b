// The map of principal axes: the projection against values worked out by
// hand, and the SVG read back (two markers per axis and tensor in the
// axis's colour and the source's shape, each where the projection puts its
// direction, on one scale for both map coordinates; graticule labels,
// convention and legend), the PDF and PNG signatures, and the errors.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "modern/axes_plot.hpp"
#include "svg_shapes.hpp"
#include "temp_dir_test.hpp"

namespace vorn::modern {
namespace {

namespace fs = std::filesystem;
using test::SvgPolyline;

constexpr double kPi = 3.14159265358979323846;

// The axis colours (Okabe-Ito vermillion, bluish green, blue) and their
// tints with 55 % white for the samples, as #RRGGBB.
const std::string kAxis[3] = {"#D55E00", "#009E73", "#0072B2"};
const std::string kTint[3] = {"#ECB78C", "#8CD3C0", "#8CC0DC"};

class AxesPlotTest : public test::TempDirTest {
 protected:
  AxesPlotTest() : TempDirTest("vorn_axes_") {}
};

TEST(SinusoidalProjection, PointsWorkedOutByHand) {
  const auto near = [](const MapPoint& p, double x, double y) {
    EXPECT_NEAR(p.x, x, 1e-12);
    EXPECT_NEAR(p.y, y, 1e-12);
  };
  near(sinusoidal_projection({1, 0, 0}), 0, 0);
  near(sinusoidal_projection({0, 1, 0}), 90, 0);
  near(sinusoidal_projection({0, -2, 0}), -90, 0);  // any length
  near(sinusoidal_projection({-1, 0, 0}), 180, 0);
  near(sinusoidal_projection({0, 0, 1}), 0, 90);
  near(sinusoidal_projection({0, 0, -3}), 0, -90);
  // Longitude 45, latitude 45: x = 45 cos 45.
  near(sinusoidal_projection({0.5, 0.5, std::sqrt(0.5)}), 45 * std::sqrt(0.5), 45);
  // Longitude -120, latitude -30: x = -120 cos 30.
  near(sinusoidal_projection({-std::sqrt(3.0) / 4, -0.75, -0.5}), -60 * std::sqrt(3.0), -30);
  // Centred on longitude 90: y is at 0, -y at 180, x at -90.
  near(sinusoidal_projection({0, 1, 0}, 90), 0, 0);
  near(sinusoidal_projection({0, -1, 0}, 90), 180, 0);
  near(sinusoidal_projection({1, 0, 0}, 90), -90, 0);
}

TEST(SinusoidalProjection, EqualAreasStayEqual) {
  // The band between two latitudes, over a longitude span, maps to an area
  // proportional to its area on the sphere (the projection is equal-area):
  // a band near the pole and one at the equator of equal spherical area.
  const auto map_area = [](double lat0, double lat1) {
    // The image of lambda in [0, 60] between the latitudes: the integral of
    // 60 cos(phi) dphi, by the trapezoid rule on the projected points.
    double area = 0;
    constexpr int kSteps = 2000;
    for (int i = 0; i < kSteps; ++i) {
      const double a = lat0 + (lat1 - lat0) * i / kSteps;
      const double b = lat0 + (lat1 - lat0) * (i + 1) / kSteps;
      const auto width = [](double lat) {
        const double phi = lat * kPi / 180;
        return sinusoidal_projection(
                   {std::cos(phi) * 0.5, std::cos(phi) * std::sqrt(0.75), std::sin(phi)})
            .x;  // longitude 60
      };
      area += 0.5 * (width(a) + width(b)) * (b - a);
    }
    return area;
  };
  const auto sphere_area = [](double lat0, double lat1) {
    return std::sin(lat1 * kPi / 180) - std::sin(lat0 * kPi / 180);
  };
  const double polar = map_area(60, 90), equatorial = map_area(0, 30);
  EXPECT_NEAR(polar / equatorial, sphere_area(60, 90) / sphere_area(0, 30), 1e-6);
}

// A frame rotated by `a` about z, then by `b` about the new x: columns x,
// y, z of the rotation.
PrincipalAxes frame(double a, double b) {
  const double ca = std::cos(a), sa = std::sin(a), cb = std::cos(b), sb = std::sin(b);
  // R = Rz(a) Rx(b)
  const double r[3][3] = {{ca, -sa * cb, sa * sb}, {sa, ca * cb, -ca * sb}, {0, sb, cb}};
  return {Direction{r[0][0], r[1][0], r[2][0]}, Direction{r[0][1], r[1][1], r[2][1]},
          Direction{r[0][2], r[1][2], r[2][2]}};
}

// fit 1 tensor, samples 5, prediction 1, models 3.
std::vector<AxesSeries> four_sources() {
  AxesSeries fit{AxesSource::fit, "fit", {frame(0.3, 0.4)}};
  AxesSeries samples{AxesSource::samples, "bootstrap samples", {}};
  for (int k = 0; k < 5; ++k) samples.tensors.push_back(frame(0.3 + 0.02 * k, 0.4 - 0.015 * k));
  AxesSeries prediction{AxesSource::prediction, "prediction", {frame(0.5, 0.55)}};
  AxesSeries models{AxesSource::models, "models", {}};
  for (int k = 0; k < 3; ++k) models.tensors.push_back(frame(-0.7 + 0.1 * k, 1.0 + 0.05 * k));
  return {fit, samples, prediction, models};
}

// The markers of one source and axis as drawn: rings (fit), tinted discs
// (samples), triangles (prediction), diamonds (models).
std::vector<SvgPolyline> markers(const std::vector<SvgPolyline>& lines, AxesSource source,
                                 int axis) {
  switch (source) {
    case AxesSource::fit:
      return test::rings(lines, kAxis[axis], 16);
    case AxesSource::samples:
      return test::filled_shapes(lines, kTint[axis], 16);
    case AxesSource::prediction:
      return test::filled_shapes(lines, kAxis[axis], 3);
    case AxesSource::models:
      return test::filled_shapes(lines, kAxis[axis], 4);
  }
  return {};
}

TEST_F(AxesPlotTest, BothEndsOfEveryAxisInItsColourAndShape) {
  const std::string path = file("axes.svg");
  const std::vector<AxesSeries> series = four_sources();
  write_axes_plot(path, series, {"axes", {}});
  EXPECT_TRUE(test::xmllint_accepts(VORN_XMLLINT, path));
  const auto lines = test::svg_polylines(test::read_text_file(path));
  for (const AxesSeries& s : series) {
    for (int axis = 0; axis < 3; ++axis) {
      EXPECT_EQ(markers(lines, s.source, axis).size(), 2 * s.tensors.size())
          << s.label << ", axis " << axis;
    }
  }
}

TEST_F(AxesPlotTest, MarkersSitWhereTheProjectionPutsThemOnOneScale) {
  const std::string path = file("axes.svg");
  const std::vector<AxesSeries> series = four_sources();
  write_axes_plot(path, series, {});
  const auto lines = test::svg_polylines(test::read_text_file(path));
  // Every marker against the map point of its direction (the +, then the -
  // end, tensor by tensor), the longitude and latitude worked out here.
  std::vector<double> map_x, map_y, svg_x, svg_y;
  for (const AxesSeries& s : series) {
    for (int axis = 0; axis < 3; ++axis) {
      const auto drawn = markers(lines, s.source, axis);
      ASSERT_EQ(drawn.size(), 2 * s.tensors.size());
      for (std::size_t t = 0; t < s.tensors.size(); ++t) {
        for (int end = 0; end < 2; ++end) {
          const Direction& d = s.tensors[t][axis];
          const double sign = end == 0 ? 1.0 : -1.0;
          const double lon = std::atan2(sign * d[1], sign * d[0]) * 180 / kPi;
          const double lat = std::asin(sign * d[2]) * 180 / kPi;
          map_x.push_back(lon * std::cos(lat * kPi / 180));
          map_y.push_back(lat);
          svg_x.push_back(drawn[2 * t + end].centre().x);
          svg_y.push_back(drawn[2 * t + end].centre().y);
        }
      }
    }
  }
  const auto x = test::fit_line(map_x, svg_x);
  const auto y = test::fit_line(map_y, svg_y);
  EXPECT_LT(x[2], 0.02);
  EXPECT_LT(y[2], 0.02);
  EXPECT_GT(x[1], 0.0);
  EXPECT_NEAR(y[1] / x[1], 1.0, 1e-3);  // a degree is as long across as up
}

TEST_F(AxesPlotTest, GraticuleConventionAndLegendAreTextOfTheSvg) {
  const std::string path = file("axes.svg");
  write_axes_plot(path, four_sources(), {"set #500", {"z axes 5.3\u00B0 apart"}});
  const std::vector<std::string> texts = test::svg_texts(test::read_text_file(path));
  const auto has = [&](const std::string& s) {
    return std::find(texts.begin(), texts.end(), s) != texts.end();
  };
  for (const char* latitude : {"90\u00B0", "60\u00B0", "30\u00B0", "0\u00B0", "\u221230\u00B0",
                               "\u221260\u00B0", "\u221290\u00B0"}) {
    EXPECT_TRUE(has(latitude)) << latitude;
  }
  for (const char* longitude :
       {"\u2212150\u00B0", "\u221290\u00B0", "30\u00B0", "120\u00B0", "\u00B1180\u00B0"}) {
    EXPECT_TRUE(has(longitude)) << longitude;
  }
  EXPECT_TRUE(has("set #500"));
  const auto contains = [&](const std::string& s) {
    return std::any_of(texts.begin(), texts.end(),
                       [&](const std::string& t) { return t.find(s) != std::string::npos; });
  };
  EXPECT_TRUE(contains("Sanson\u2013Flamsteed (sinusoidal, equal-area) projection"));
  EXPECT_TRUE(contains("\u03BB = atan2(y, x), \u03C6 = asin(z)"));
  for (const char* entry :
       {"x axis", "y axis", "z axis", "fit (n = 1)", "bootstrap samples (n = 5)",
        "prediction (n = 1)", "models (n = 3)", "z axes 5.3\u00B0 apart"}) {
    EXPECT_TRUE(has(entry)) << entry;
  }
  for (AxesSource s :
       {AxesSource::fit, AxesSource::samples, AxesSource::prediction, AxesSource::models}) {
    EXPECT_EQ(std::count(texts.begin(), texts.end(), std::string(axes_glyph(s))), 1);
  }
}

TEST_F(AxesPlotTest, EmptySeriesHaveNoLegendEntry) {
  std::vector<AxesSeries> series = four_sources();
  series[1].tensors.clear();
  write_axes_plot(file("axes.svg"), series, {});
  const std::string svg = test::read_text_file(file("axes.svg"));
  const std::vector<std::string> texts = test::svg_texts(svg);
  EXPECT_EQ(std::count(texts.begin(), texts.end(), "bootstrap samples (n = 0)"), 0);
  EXPECT_EQ(test::filled_shapes(test::svg_polylines(svg), kTint[0], 16).size(), 0u);
}

TEST_F(AxesPlotTest, PdfAndPngCarryTheirSignatures) {
  write_axes_plot(file("axes.pdf"), four_sources(), {});
  write_axes_plot(file("axes.png"), four_sources(), {});
  EXPECT_EQ(test::read_text_file(file("axes.pdf")).substr(0, 5), "%PDF-");
  EXPECT_EQ(test::read_text_file(file("axes.png")).substr(0, 8),
            std::string("\x89PNG\r\n\x1a\n", 8));
}

TEST_F(AxesPlotTest, AZeroOrNonFiniteAxisIsRejectedBeforeWriting) {
  std::vector<AxesSeries> series = four_sources();
  series[2].tensors[0][1] = {0, 0, 0};
  EXPECT_THROW(write_axes_plot(file("a.svg"), series, {}), std::invalid_argument);
  series = four_sources();
  series[0].tensors[0][2][0] = std::nan("");
  EXPECT_THROW(write_axes_plot(file("b.svg"), series, {}), std::invalid_argument);
  EXPECT_FALSE(fs::exists(file("a.svg")));
  EXPECT_FALSE(fs::exists(file("b.svg")));
  EXPECT_THROW(write_axes_plot(file("c.eps"), four_sources(), {}), std::runtime_error);
  EXPECT_FALSE(fs::exists(file("c.eps")));
}

}  // namespace
}  // namespace vorn::modern
