// The correlation plot written through PLplot: the SVG checked as XML and
// read back (markers per colour, legend text), the PDF and PNG signatures,
// and the errors.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "modern/correlation_plot.hpp"
#include "svg_shapes.hpp"
#include "temp_dir_test.hpp"

namespace vorn::modern {
namespace {

namespace fs = std::filesystem;

// The marker glyph of the plot, U+25CF BLACK CIRCLE.
const std::string kMarker = "\xE2\x97\x8F";

// A fresh directory per test, removed afterwards.
class CorrelationPlotTest : public test::TempDirTest {
 protected:
  CorrelationPlotTest() : TempDirTest("vorn_plot_") {}
};

std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

// xmllint's verdict on the file: true when it is well-formed XML.
bool xmllint_accepts(const std::string& path) {
  const std::string command = std::string(VORN_XMLLINT) + " --noout '" + path + "'";
  const int status = std::system(command.c_str());
  return status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Character data of an element's content: inner tags dropped, character and
// the predefined entity references decoded to UTF-8.
std::string decode_content(const std::string& xml) {
  std::string out;
  for (std::size_t i = 0; i < xml.size();) {
    if (xml[i] == '<') {
      const std::size_t end = xml.find('>', i);
      i = end == std::string::npos ? xml.size() : end + 1;
    } else if (xml[i] == '&') {
      const std::size_t end = xml.find(';', i);
      const std::string ref = xml.substr(i + 1, end - i - 1);
      if (ref.rfind("#x", 0) == 0) {
        test::append_utf8(out, static_cast<std::uint32_t>(std::stoul(ref.substr(2), nullptr, 16)));
      } else if (ref.rfind('#', 0) == 0) {
        test::append_utf8(out, static_cast<std::uint32_t>(std::stoul(ref.substr(1))));
      } else {
        static const std::map<std::string, char> named{
            {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};
        out += named.at(ref);
      }
      i = end + 1;
    } else {
      out += xml[i++];
    }
  }
  return out;
}

struct TextElement {
  std::string fill;  // the fill attribute, the colour of the glyphs
  std::string text;  // the decoded content
};

// Every <text> element of the SVG, in document order.
std::vector<TextElement> text_elements(const std::string& svg) {
  std::vector<TextElement> elements;
  for (std::size_t at = svg.find("<text"); at != std::string::npos;
       at = svg.find("<text", at + 1)) {
    const std::size_t open_end = svg.find('>', at);
    const std::size_t close = svg.find("</text>", open_end);
    if (open_end == std::string::npos || close == std::string::npos) break;
    const std::string tag = svg.substr(at, open_end - at);
    TextElement e;
    if (const std::size_t f = tag.find(" fill=\""); f != std::string::npos) {
      const std::size_t begin = f + 7;
      e.fill = tag.substr(begin, tag.find('"', begin) - begin);
    }
    e.text = decode_content(svg.substr(open_end + 1, close - open_end - 1));
    elements.push_back(e);
  }
  return elements;
}

// Marker glyphs per colour: one per point plus the sample in the legend.
std::map<std::string, int> markers_by_colour(const std::string& svg) {
  std::map<std::string, int> counts;
  for (const TextElement& e : text_elements(svg)) {
    if (e.text == kMarker) ++counts[e.fill];
  }
  return counts;
}

int total(const std::map<std::string, int>& counts) {
  int n = 0;
  for (const auto& [colour, count] : counts) n += count;
  return n;
}

std::multiset<int> count_values(const std::map<std::string, int>& counts) {
  std::multiset<int> values;
  for (const auto& [colour, count] : counts) values.insert(count);
  return values;
}

PlotSeries make_series(const std::string& label, int n, double offset) {
  PlotSeries s;
  s.label = label;
  for (int i = 0; i < n; ++i) {
    const double measured = -20.0 + 6.5 * i + offset;
    s.measured_hz.push_back(measured);
    s.calculated_hz.push_back(0.9 * measured + 1.5 * ((i % 3) - 1));
  }
  return s;
}

std::vector<PlotSeries> three_series() {
  return {make_series("N-H", 7, 0.0), make_series("Ca-Ha & C'-N <bb>", 5, 3.0),
          make_series("predicted", 4, -4.0)};
}

PlotOptions sample_options() {
  PlotOptions o;
  o.title = "ubiquitin, medium #1";
  o.legend_notes = {"fit: r = 0.993, Q = 0.071", "predicted: r = 0.871"};
  return o;
}

TEST_F(CorrelationPlotTest, SvgIsWellFormedWithOneMarkerPerPointInOneColourPerSeries) {
  const std::string path = file("plot.svg");
  write_correlation_plot(path, three_series(), sample_options());
  EXPECT_TRUE(xmllint_accepts(path));
  const auto markers = markers_by_colour(read_file(path));
  // 7, 5 and 4 points, each series in a colour of its own, each with one
  // more marker in the legend.
  EXPECT_EQ(markers.size(), 3u);
  EXPECT_EQ(count_values(markers), (std::multiset<int>{8, 6, 5}));
  EXPECT_EQ(total(markers), 16 + 3);
}

TEST_F(CorrelationPlotTest, OneMorePointIsOneMoreMarkerOfItsSeriesColour) {
  std::vector<PlotSeries> series = three_series();
  write_correlation_plot(file("before.svg"), series, sample_options());
  series[1].measured_hz.push_back(11.0);
  series[1].calculated_hz.push_back(-7.0);
  write_correlation_plot(file("after.svg"), series, sample_options());
  auto before = markers_by_colour(read_file(file("before.svg")));
  const auto after = markers_by_colour(read_file(file("after.svg")));
  EXPECT_EQ(total(after), total(before) + 1);
  ASSERT_EQ(before.size(), after.size());
  int changed = 0;
  for (const auto& [colour, count] : after) {
    ASSERT_EQ(before.count(colour), 1u) << colour;
    if (count != before[colour]) {
      ++changed;
      EXPECT_EQ(count, before[colour] + 1);
      EXPECT_EQ(count, 6 + 1);  // the second series, now 6 points, and its legend sample
    }
  }
  EXPECT_EQ(changed, 1);
}

TEST_F(CorrelationPlotTest, LegendTitleAndAxisLabelsAreTextOfTheSvg) {
  const std::string path = file("plot.svg");
  write_correlation_plot(path, three_series(), sample_options());
  std::vector<std::string> texts;
  for (const TextElement& e : text_elements(read_file(path))) texts.push_back(e.text);
  const auto has = [&](const std::string& s) {
    return std::find(texts.begin(), texts.end(), s) != texts.end();
  };
  EXPECT_TRUE(has("N-H (n = 7)"));
  EXPECT_TRUE(has("Ca-Ha & C'-N <bb> (n = 5)"));
  EXPECT_TRUE(has("predicted (n = 4)"));
  EXPECT_TRUE(has("fit: r = 0.993, Q = 0.071"));
  EXPECT_TRUE(has("predicted: r = 0.871"));
  EXPECT_TRUE(has("y = x"));
  EXPECT_TRUE(has("ubiquitin, medium #1"));  // '#' drawn as itself
  EXPECT_TRUE(has("measured (Hz)"));
  EXPECT_TRUE(has("back-calculated (Hz)"));
}

TEST_F(CorrelationPlotTest, TwoPlotsInARowAreBothCompleteAndEqual) {
  write_correlation_plot(file("first.svg"), three_series(), sample_options());
  write_correlation_plot(file("second.svg"), three_series(), sample_options());
  const std::string first = read_file(file("first.svg"));
  const std::string second = read_file(file("second.svg"));
  EXPECT_TRUE(xmllint_accepts(file("first.svg")));
  EXPECT_TRUE(xmllint_accepts(file("second.svg")));
  EXPECT_EQ(total(markers_by_colour(first)), 19);
  EXPECT_EQ(first, second);
}

TEST_F(CorrelationPlotTest, PlotsFromSeveralThreadsAreAllComplete) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([this, t] {
      write_correlation_plot(file("t" + std::to_string(t) + ".svg"), three_series(),
                             sample_options());
    });
  }
  for (std::thread& t : threads) t.join();
  for (int t = 0; t < 4; ++t) {
    const std::string path = file("t" + std::to_string(t) + ".svg");
    EXPECT_TRUE(xmllint_accepts(path)) << path;
    EXPECT_EQ(total(markers_by_colour(read_file(path))), 19) << path;
  }
}

TEST_F(CorrelationPlotTest, PdfAndPngCarryTheirSignatures) {
  write_correlation_plot(file("plot.pdf"), three_series(), sample_options());
  write_correlation_plot(file("plot.PNG"), three_series(), sample_options());
  const std::string pdf = read_file(file("plot.pdf"));
  const std::string png = read_file(file("plot.PNG"));
  EXPECT_EQ(pdf.substr(0, 5), "%PDF-");
  EXPECT_NE(pdf.find("%%EOF"), std::string::npos);
  EXPECT_EQ(png.substr(0, 8), std::string("\x89PNG\r\n\x1a\n", 8));
  EXPECT_NE(png.find("IEND"), std::string::npos);
}

TEST_F(CorrelationPlotTest, NothingIsPrintedOnSuccess) {
  for (const std::string name : {"quiet.svg", "quiet.pdf", "quiet.png"}) {
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    write_correlation_plot(file(name), three_series(), sample_options());
    const std::string out = ::testing::internal::GetCapturedStdout();
    const std::string err = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(out, "") << name;
    EXPECT_EQ(err, "") << name;
    EXPECT_GT(fs::file_size(file(name)), 0u) << name;
  }
}

TEST_F(CorrelationPlotTest, SeriesWithoutPointsAndAnEmptyPlotAreDrawn) {
  std::vector<PlotSeries> series = three_series();
  series.push_back({"empty", {}, {}});
  write_correlation_plot(file("some.svg"), series, {});
  EXPECT_TRUE(xmllint_accepts(file("some.svg")));
  // The empty series shows only its legend sample.
  EXPECT_EQ(total(markers_by_colour(read_file(file("some.svg")))), 16 + 4);
  write_correlation_plot(file("none.svg"), {}, {});
  EXPECT_TRUE(xmllint_accepts(file("none.svg")));
  EXPECT_EQ(total(markers_by_colour(read_file(file("none.svg")))), 0);
}

// The message of the runtime_error `call` throws; "" when it throws none.
template <typename F>
std::string runtime_error_of(F call) {
  try {
    call();
  } catch (const std::runtime_error& e) {
    return e.what();
  }
  return "";
}

TEST_F(CorrelationPlotTest, UnknownExtensionThrowsWithTheFileName) {
  for (const std::string name : {"plot.jpg", "plot", "plot.svg.txt"}) {
    const std::string path = file(name);
    const std::string message =
        runtime_error_of([&] { write_correlation_plot(path, three_series(), {}); });
    EXPECT_NE(message.find(path), std::string::npos) << message;
    EXPECT_NE(message.find("extension"), std::string::npos) << message;
    EXPECT_FALSE(fs::exists(path)) << path;
  }
}

TEST_F(CorrelationPlotTest, UnwritablePathThrowsWithTheFileName) {
  const std::string missing_dir = file("no/such/dir/plot.svg");
  std::string message =
      runtime_error_of([&] { write_correlation_plot(missing_dir, three_series(), {}); });
  EXPECT_NE(message.find(missing_dir), std::string::npos) << message;

  const std::string directory = file("a_directory.png");
  fs::create_directory(directory);
  message = runtime_error_of([&] { write_correlation_plot(directory, three_series(), {}); });
  EXPECT_NE(message.find(directory), std::string::npos) << message;
  EXPECT_TRUE(fs::is_directory(directory));
}

TEST_F(CorrelationPlotTest, InconsistentOrNonFiniteSeriesAreRejectedBeforeWriting) {
  std::vector<PlotSeries> series = three_series();
  series[2].calculated_hz.pop_back();
  EXPECT_THROW(write_correlation_plot(file("a.svg"), series, {}), std::invalid_argument);
  EXPECT_FALSE(fs::exists(file("a.svg")));
  series = three_series();
  series[0].measured_hz[3] = std::nan("");
  EXPECT_THROW(write_correlation_plot(file("b.svg"), series, {}), std::invalid_argument);
  EXPECT_FALSE(fs::exists(file("b.svg")));
}

}  // namespace
}  // namespace vorn::modern
