// The sequence plot written through PLplot: the SVG checked as XML and read
// back (one marker per value and kind, centred on its residue and value,
// the error bars, the labels and legend), the PDF and PNG signatures, and
// the errors.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "modern/sequence_plot.hpp"
#include "svg_shapes.hpp"
#include "temp_dir_test.hpp"

namespace vorn::modern {
namespace {

namespace fs = std::filesystem;
using test::Point;
using test::SvgPolyline;

// The colours of the kinds of values: black, Okabe-Ito blue and vermillion.
const std::string kBlack = "#000000";
const std::string kBlue = "#0072B2";
const std::string kVermillion = "#D55E00";

class SequencePlotTest : public test::TempDirTest {
 protected:
  SequencePlotTest() : TempDirTest("vorn_sequence_") {}
};

// N-H: 6 couplings, 3 with an error, fitted and predicted; CA-HA: 4
// couplings, fitted only.
std::vector<SequencePanel> two_panels() {
  SequencePanel nh;
  nh.label = "N-H";
  nh.residue = {2, 3, 5, 8, 9, 12};
  nh.measured_hz = {8.2, -8.3, -10.5, -6.5, 3.0, -7.4};
  nh.error_hz = {0.0, 1.5, 0.0, 2.0, 0.0, 0.5};
  nh.calculated_hz = {7.9, -8.0, -10.9, -6.0, 2.5, -7.0};
  nh.predicted_hz = {11.0, -12.0, -14.0, -9.0, 5.0, -10.0};
  SequencePanel caha;
  caha.label = "CA-HA";
  caha.residue = {1, 4, 6, 14};
  caha.measured_hz = {-16.4, 7.6, 26.3, 12.0};
  caha.calculated_hz = {-15.0, 8.0, 25.0, 13.5};
  return {nh, caha};
}

SequencePlotOptions sample_options() {
  SequencePlotOptions o;
  o.title = "ubiquitin #1";
  o.legend_notes = {"fit: r = 0.995, Q = 0.104"};
  return o;
}

std::vector<double> xs(const std::vector<SvgPolyline>& shapes) {
  std::vector<double> v;
  for (const SvgPolyline& s : shapes) v.push_back(s.centre().x);
  return v;
}

std::vector<double> ys(const std::vector<SvgPolyline>& shapes) {
  std::vector<double> v;
  for (const SvgPolyline& s : shapes) v.push_back(s.centre().y);
  return v;
}

TEST_F(SequencePlotTest, OneMarkerPerValueOfEachKind) {
  const std::string path = file("sequence.svg");
  write_sequence_plot(path, two_panels(), sample_options());
  EXPECT_TRUE(test::xmllint_accepts(VORN_XMLLINT, path));
  const auto lines = test::svg_polylines(test::read_text_file(path));
  // Measured: black discs of 16 corners; fit: blue rings; predicted:
  // vermillion triangles.
  EXPECT_EQ(test::filled_shapes(lines, kBlack, 16).size(), 10u);
  EXPECT_EQ(test::rings(lines, kBlue, 16).size(), 10u);
  EXPECT_EQ(test::filled_shapes(lines, kVermillion, 3).size(), 6u);
}

TEST_F(SequencePlotTest, MarkersAreCentredOnResidueAndValue) {
  const std::string path = file("sequence.svg");
  const std::vector<SequencePanel> panels = two_panels();
  write_sequence_plot(path, panels, sample_options());
  const auto lines = test::svg_polylines(test::read_text_file(path));
  // Drawn panel by panel in the order given.
  const auto discs = test::filled_shapes(lines, kBlack, 16);
  const auto circles = test::rings(lines, kBlue, 16);
  const auto triangles = test::filled_shapes(lines, kVermillion, 3);
  ASSERT_EQ(discs.size(), 10u);
  ASSERT_EQ(circles.size(), 10u);
  ASSERT_EQ(triangles.size(), 6u);

  // One residue axis for both panels; the markers of a coupling share it.
  std::vector<double> residues = panels[0].residue;
  residues.insert(residues.end(), panels[1].residue.begin(), panels[1].residue.end());
  const auto x = test::fit_line(residues, xs(discs));
  EXPECT_GT(x[1], 0.0);
  EXPECT_LT(x[2], 0.02);  // the SVG's coordinates have two decimals
  for (std::size_t i = 0; i < 10; ++i)
    EXPECT_NEAR(circles[i].centre().x, discs[i].centre().x, 0.02);
  for (std::size_t i = 0; i < 6; ++i)
    EXPECT_NEAR(triangles[i].centre().x, discs[i].centre().x, 0.02);

  // Each panel's values on one scale: the rings and triangles where the
  // line through the discs puts their values.
  const std::vector<SvgPolyline> nh_discs(discs.begin(), discs.begin() + 6);
  const std::vector<SvgPolyline> caha_discs(discs.begin() + 6, discs.end());
  const auto nh = test::fit_line(panels[0].measured_hz, ys(nh_discs));
  const auto caha = test::fit_line(panels[1].measured_hz, ys(caha_discs));
  EXPECT_GT(nh[1], 0.0);
  EXPECT_GT(caha[1], 0.0);
  EXPECT_LT(nh[2], 0.02);
  EXPECT_LT(caha[2], 0.02);
  for (std::size_t i = 0; i < 6; ++i) {
    EXPECT_NEAR(circles[i].centre().y, nh[0] + nh[1] * panels[0].calculated_hz[i], 0.02) << i;
    EXPECT_NEAR(triangles[i].centre().y, nh[0] + nh[1] * panels[0].predicted_hz[i], 0.03) << i;
  }
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_NEAR(circles[6 + i].centre().y, caha[0] + caha[1] * panels[1].calculated_hz[i], 0.02);
  }
  // The top panel is N-H.
  const std::vector<double> nh_y = ys(nh_discs);
  const std::vector<double> caha_y = ys(caha_discs);
  EXPECT_GT(*std::min_element(nh_y.begin(), nh_y.end()),
            *std::max_element(caha_y.begin(), caha_y.end()));
}

TEST_F(SequencePlotTest, ErrorBarsSpanTheErrors) {
  const std::string path = file("sequence.svg");
  const std::vector<SequencePanel> panels = two_panels();
  write_sequence_plot(path, panels, sample_options());
  const auto lines = test::svg_polylines(test::read_text_file(path));
  const auto discs = test::filled_shapes(lines, kBlack, 16);
  ASSERT_EQ(discs.size(), 10u);
  const auto nh = test::fit_line(panels[0].measured_hz, ys({discs.begin(), discs.begin() + 6}));
  // A vertical black line through the disc from value - error to value +
  // error, for each coupling with an error and for no other.
  int bars = 0;
  for (const SvgPolyline& l : lines) {
    if (l.filled() || l.stroke != kBlack || l.points.size() != 2) continue;
    if (l.points[0].x != l.points[1].x) continue;
    for (std::size_t i = 0; i < 6; ++i) {
      if (std::fabs(l.points[0].x - discs[i].centre().x) > 0.02) continue;
      const double lo = std::min(l.points[0].y, l.points[1].y);
      const double hi = std::max(l.points[0].y, l.points[1].y);
      // Not a tick of the frame: the line passes through the disc.
      if (!(lo < discs[i].centre().y && discs[i].centre().y < hi)) continue;
      const double e = panels[0].error_hz[i];
      EXPECT_GT(e, 0.0) << "a bar at coupling " << i;
      EXPECT_NEAR(lo, nh[0] + nh[1] * (panels[0].measured_hz[i] - e), 0.03);
      EXPECT_NEAR(hi, nh[0] + nh[1] * (panels[0].measured_hz[i] + e), 0.03);
      ++bars;
    }
  }
  EXPECT_EQ(bars, 3);
}

TEST_F(SequencePlotTest, LabelsTitleAndLegendAreTextOfTheSvg) {
  const std::string path = file("sequence.svg");
  write_sequence_plot(path, two_panels(), sample_options());
  const std::vector<std::string> texts = test::svg_texts(test::read_text_file(path));
  const auto count = [&](const std::string& s) {
    return std::count(texts.begin(), texts.end(), s);
  };
  EXPECT_EQ(count("N-H (Hz)"), 1);
  EXPECT_EQ(count("CA-HA (Hz)"), 1);
  EXPECT_EQ(count("residue"), 1);  // below the bottom panel only
  EXPECT_EQ(count("ubiquitin #1"), 1);
  EXPECT_EQ(count("measured \u00B1 error (n = 10)"), 1);
  EXPECT_EQ(count("fit"), 1);
  EXPECT_EQ(count("predicted"), 1);
  EXPECT_EQ(count("fit: r = 0.995, Q = 0.104"), 1);
  // One legend sample per kind: the glyphs of the markers' shapes.
  EXPECT_EQ(count(kMeasuredGlyph), 1);
  EXPECT_EQ(count(kCalculatedGlyph), 1);
  EXPECT_EQ(count(kPredictedGlyph), 1);
}

TEST_F(SequencePlotTest, KindsWithoutValuesHaveNoLegendEntry) {
  std::vector<SequencePanel> panels = two_panels();
  for (SequencePanel& p : panels) {
    p.predicted_hz.clear();
    p.error_hz.clear();
  }
  const std::string path = file("sequence.svg");
  write_sequence_plot(path, panels, {});
  const std::string svg = test::read_text_file(path);
  const std::vector<std::string> texts = test::svg_texts(svg);
  EXPECT_EQ(std::count(texts.begin(), texts.end(), "measured (n = 10)"), 1);
  EXPECT_EQ(std::count(texts.begin(), texts.end(), "predicted"), 0);
  EXPECT_EQ(std::count(texts.begin(), texts.end(), kPredictedGlyph), 0);
  const auto lines = test::svg_polylines(svg);
  EXPECT_EQ(test::filled_shapes(lines, kVermillion, 3).size(), 0u);
  EXPECT_EQ(test::filled_shapes(lines, kBlack, 16).size(), 10u);
}

TEST_F(SequencePlotTest, PdfAndPngCarryTheirSignatures) {
  write_sequence_plot(file("plot.pdf"), two_panels(), sample_options());
  write_sequence_plot(file("plot.PNG"), two_panels(), sample_options());
  const std::string pdf = test::read_text_file(file("plot.pdf"));
  const std::string png = test::read_text_file(file("plot.PNG"));
  EXPECT_EQ(pdf.substr(0, 5), "%PDF-");
  EXPECT_EQ(png.substr(0, 8), std::string("\x89PNG\r\n\x1a\n", 8));
}

TEST_F(SequencePlotTest, BadPanelsAreRejectedBeforeWriting) {
  EXPECT_THROW(write_sequence_plot(file("a.svg"), {}, {}), std::invalid_argument);
  std::vector<SequencePanel> panels = two_panels();
  panels[1].calculated_hz.pop_back();
  EXPECT_THROW(write_sequence_plot(file("b.svg"), panels, {}), std::invalid_argument);
  panels = two_panels();
  panels[0].measured_hz[2] = std::nan("");
  EXPECT_THROW(write_sequence_plot(file("c.svg"), panels, {}), std::invalid_argument);
  panels = two_panels();
  panels[0].error_hz[1] = -1.0;
  EXPECT_THROW(write_sequence_plot(file("d.svg"), panels, {}), std::invalid_argument);
  for (const char* name : {"a.svg", "b.svg", "c.svg", "d.svg"})
    EXPECT_FALSE(fs::exists(file(name)));
}

TEST_F(SequencePlotTest, UnknownExtensionThrowsWithTheFileName) {
  const std::string path = file("plot.jpg");
  try {
    write_sequence_plot(path, two_panels(), {});
    ADD_FAILURE() << "no exception";
  } catch (const std::runtime_error& e) {
    EXPECT_NE(std::string(e.what()).find(path), std::string::npos) << e.what();
  }
  EXPECT_FALSE(fs::exists(path));
}

}  // namespace
}  // namespace vorn::modern
