// The convergence plot: the running mean with its standard error band, read
// back from the SVG (text, the band's polygon), and the errors.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "modern/convergence_plot.hpp"
#include "svg_shapes.hpp"
#include "temp_dir_test.hpp"

namespace vorn::modern {
namespace {

class ConvergencePlotTest : public test::TempDirTest {
 protected:
  ConvergencePlotTest() : TempDirTest("vorn_convergence_") {}
};

bool has_text(const std::vector<std::string>& texts, const std::string& wanted) {
  return std::find(texts.begin(), texts.end(), wanted) != texts.end();
}

// The band's colour (166, 206, 227): the band itself and the legend's box.
const std::string kBand = "#A6CEE3";

TEST_F(ConvergencePlotTest, TheMeanTheBandAndTheLegend) {
  const ConvergenceSeries four{"A 12 N-H", {1.0, 2.0, 3.0, 2.5}, {0.5, 0.5, 0.25, 0.25}};
  const std::string path = file("four.svg");
  write_convergence_plot(path, four, "convergence, test.pdb (bicelle)");
  EXPECT_TRUE(test::xmllint_accepts(VORN_XMLLINT, path));
  const std::string svg = test::read_text_file(path);
  const std::vector<std::string> texts = test::svg_texts(svg);
  EXPECT_TRUE(has_text(texts, "A 12 N-H: mean"));
  EXPECT_TRUE(has_text(texts, "standard error (block averaging)"));
  EXPECT_TRUE(has_text(texts, "convergence, test.pdb (bicelle)"));
  EXPECT_TRUE(has_text(texts, "running mean (Hz)"));
  // The band: mean + se forwards, mean - se backwards, 2n points; beside it
  // the legend's box of four corners.
  std::vector<std::size_t> sizes;
  for (const test::SvgPolyline& p : test::svg_polylines(svg))
    if (p.filled() && p.fill == kBand) sizes.push_back(p.corners().size());
  std::sort(sizes.begin(), sizes.end());
  EXPECT_EQ(sizes, (std::vector<std::size_t>{4, 8}));

  // One model: no band, the legend's box alone.
  const ConvergenceSeries one{"A 12 N-H", {1.0}, {0.0}};
  const std::string single = file("one.svg");
  write_convergence_plot(single, one, "convergence, test.pdb (bicelle)");
  EXPECT_TRUE(test::xmllint_accepts(VORN_XMLLINT, single));
  sizes.clear();
  for (const test::SvgPolyline& p : test::svg_polylines(test::read_text_file(single)))
    if (p.filled() && p.fill == kBand) sizes.push_back(p.corners().size());
  EXPECT_EQ(sizes, (std::vector<std::size_t>{4}));
}

TEST_F(ConvergencePlotTest, BadSeriesAndUnknownFormatsWriteNothing) {
  const std::string path = file("bad.svg");
  EXPECT_THROW(write_convergence_plot(path, {"x", {1.0, 2.0}, {0.1}}, "t"), std::invalid_argument);
  EXPECT_THROW(write_convergence_plot(path, {"x", {1.0, NAN}, {0.1, 0.1}}, "t"),
               std::invalid_argument);
  EXPECT_THROW(write_convergence_plot(path, {"x", {1.0, 2.0}, {0.1, INFINITY}}, "t"),
               std::invalid_argument);
  EXPECT_FALSE(std::filesystem::exists(path));
  const std::string text = file("plot.txt");
  EXPECT_THROW(write_convergence_plot(text, {"x", {1.0, 2.0}, {0.1, 0.1}}, "t"), std::exception);
  EXPECT_FALSE(std::filesystem::exists(text));
}

}  // namespace
}  // namespace vorn::modern
