#include "modern/correlation_plot.hpp"

#include <plplot.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

// Under LeakSanitizer: fontconfig, which the cairo driver loads through
// pango, keeps its configuration and font caches for the life of the
// process and never frees them; those are not leaks of this program.
#if defined(__SANITIZE_ADDRESS__)
#define VORN_PLOT_LSAN_HOOK 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VORN_PLOT_LSAN_HOOK 1
#endif
#endif
#ifdef VORN_PLOT_LSAN_HOOK
extern "C" const char* __lsan_default_suppressions() { return "leak:libfontconfig.so\n"; }
#endif

namespace vorn::modern {
namespace {

// PLplot keeps its streams, driver table and current stream in globals.
std::mutex plplot_mutex;

// Every marker, in the plot and in the legend, is this glyph (U+25CF BLACK
// CIRCLE) drawn by plstring; the SVG driver writes it as one text element.
constexpr const char* kMarker = "\xE2\x97\x8F";

// Colour map 0: background, frame and text, the diagonal, then the series.
constexpr PLINT kBackground = 0;
constexpr PLINT kForeground = 1;
constexpr PLINT kDiagonal = 2;
constexpr PLINT kFirstSeries = 3;

struct Rgb {
  PLINT r, g, b;
};
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

// Layout in millimetres. PLplot's file devices take the page size in units
// of 1/72 inch (points; pixels of the PNG). The plot is a square of fixed
// size; the page grows to the right with the legend.
constexpr PLFLT kUnitsPerMm = 72.0 / 25.4;
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

std::string plot_error(const std::string& path, const std::string& what) {
  return "correlation plot '" + path + "': " + what;
}

// The PLplot device for the extension of `path`.
std::string device_for(const std::string& path) {
  std::string extension = std::filesystem::path(path).extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  // The SVG driver of PLplot itself writes text as text elements; the cairo
  // one would outline it.
  if (extension == ".svg") return "svg";
  if (extension == ".pdf") return "pdfcairo";
  if (extension == ".png") return "pngcairo";
  throw std::runtime_error(plot_error(
      path, "unknown extension '" + extension + "' (the formats are .svg, .pdf and .png)"));
}

bool device_available(const std::string& device) {
  // plgDevs fills caller-owned arrays of up to *count entries with pointers
  // into PLplot's own driver table.
  constexpr int kCapacity = 256;
  std::array<const char*, kCapacity> menu{};
  std::array<const char*, kCapacity> names{};
  const char** menu_ptr = menu.data();
  const char** names_ptr = names.data();
  int count = kCapacity;
  plgDevs(&menu_ptr, &names_ptr, &count);
  for (int i = 0; i < count && i < kCapacity; ++i) {
    if (names[i] != nullptr && device == names[i]) return true;
  }
  return false;
}

// PLplot reads '#' as the start of an escape sequence; "##" is a literal '#'.
std::string plplot_text(const std::string& text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (char c : text) {
    escaped += c;
    if (c == '#') escaped += '#';
  }
  return escaped;
}

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

// A PLplot stream of its own for one plot: created on construction, ended on
// destruction (which also closes the output file), with the stream current
// before restored. PLplot reports errors into `error_message` instead of
// printing them.
class Stream {
 public:
  Stream() {
    plgstrm(&previous_);
    plmkstrm(&stream_);
    if (stream_ < 0) throw std::runtime_error("no free PLplot stream");
    plsError(&error_code_, error_message_.data());
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
  ~Stream() {
    plsstrm(stream_);
    plend1();
    plsstrm(previous_);
  }
  bool failed() const { return error_code_ != 0; }
  std::string error() const { return error_message_.data(); }

 private:
  PLINT previous_ = 0;
  PLINT stream_ = -1;
  PLINT error_code_ = 0;
  // plabort writes a fixed header plus the message into this buffer.
  std::array<char, 4096> error_message_{};
};

struct LegendEntries {
  std::vector<std::string> texts;
  std::vector<PLINT> options, text_colours, line_colours, line_styles, symbol_colours,
      symbol_numbers, box_colours, box_patterns;
  std::vector<PLFLT> line_widths, symbol_scales, box_scales, box_line_widths;
  std::vector<const char*> symbols;

  void add(std::string text, PLINT option, PLINT colour) {
    texts.push_back(std::move(text));
    options.push_back(option);
    text_colours.push_back(kForeground);
    line_colours.push_back(colour);
    line_styles.push_back(1);
    line_widths.push_back(1.5);
    symbol_colours.push_back(colour);
    symbol_numbers.push_back(1);
    symbol_scales.push_back(1.0);
    symbols.push_back(kMarker);
    box_colours.push_back(colour);
    box_patterns.push_back(0);
    box_scales.push_back(1.0);
    box_line_widths.push_back(1.0);
  }
};

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
                 PL_LEGEND_SYMBOL, kFirstSeries + static_cast<PLINT>(i));
  }
  c.legend.add("y = x", PL_LEGEND_LINE, kDiagonal);
  for (const std::string& note : options.legend_notes) {
    c.legend.add(plplot_text(note), PL_LEGEND_NONE, kForeground);
  }
  return c;
}

// Draws the plot on the current stream, not yet initialised, on a page
// `page_width_mm` wide; returns the width of the legend box in millimetres.
PLFLT draw(const Content& content, PLFLT page_width_mm) {
  const std::vector<PlotSeries>& series = content.series;
  plspause(0);
  plspage(0, 0, static_cast<PLINT>(std::lround(page_width_mm * kUnitsPerMm)),
          static_cast<PLINT>(std::lround(kPageHeightMm * kUnitsPerMm)), 0, 0);
  plscmap0n(kFirstSeries + static_cast<PLINT>(std::max<std::size_t>(series.size(), 1)));
  plscol0(kBackground, 255, 255, 255);
  plscol0(kForeground, 0, 0, 0);
  plscol0(kDiagonal, 128, 128, 128);
  for (std::size_t i = 0; i < series.size(); ++i) {
    const Rgb c = series_colour(i);
    plscol0(kFirstSeries + static_cast<PLINT>(i), c.r, c.g, c.b);
  }
  plinit();
  pladv(0);
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

  const LegendEntries& legend = content.legend;
  std::vector<const char*> texts;
  for (const std::string& text : legend.texts) texts.push_back(text.c_str());
  // Returned in normalised viewport coordinates.
  PLFLT legend_width = 0, legend_height = 0;
  pllegend(&legend_width, &legend_height, PL_LEGEND_BACKGROUND | PL_LEGEND_BOUNDING_BOX,
           PL_POSITION_OUTSIDE | PL_POSITION_RIGHT, kGapMm / kSideMm, 0.0, kLegendSampleWidth,
           kBackground, kForeground, 1, 0, 0, static_cast<PLINT>(texts.size()),
           legend.options.data(), 1.0, kLegendTextScale, 2.0, 0.0, legend.text_colours.data(),
           texts.data(), legend.box_colours.data(), legend.box_patterns.data(),
           legend.box_scales.data(), legend.box_line_widths.data(), legend.line_colours.data(),
           legend.line_styles.data(), legend.line_widths.data(), legend.symbol_colours.data(),
           legend.symbol_scales.data(), legend.symbol_numbers.data(), legend.symbols.data());
  return legend_width * kSideMm;
}

// Draws the plot with `device` into `file` on a stream of its own; returns
// the legend width in millimetres. Throws std::runtime_error with PLplot's
// message when PLplot reports an error.
PLFLT render(const std::string& device, const std::string& file, const Content& content,
             PLFLT page_width_mm) {
  Stream stream;
  plsdev(device.c_str());
  plsfnam(file.c_str());
  const PLFLT legend_mm = draw(content, page_width_mm);
  if (stream.failed()) {
    // Drop the banner and blank lines PLplot puts around its message.
    std::string error = stream.error();
    const std::string banner = "*** PLPLOT ERROR, ABORTING OPERATION ***";
    if (const auto at = error.find(banner); at != std::string::npos) {
      error.erase(0, at + banner.size());
    }
    const auto first = error.find_first_not_of(" \n");
    const auto last = error.find_last_not_of(" \n");
    error =
        first == std::string::npos ? "unspecified error" : error.substr(first, last - first + 1);
    throw std::runtime_error("PLplot: " + error);
  }
  return legend_mm;
}

}  // namespace

void write_correlation_plot(const std::string& path, const std::vector<PlotSeries>& series,
                            const PlotOptions& options) {
  check_series(series);
  const std::string device = device_for(path);

  const std::lock_guard<std::mutex> lock(plplot_mutex);
  if (!device_available(device)) {
    throw std::runtime_error(plot_error(
        path, "PLplot offers no output device '" + device +
                  "' here (.pdf and .png need PLplot's cairo driver, plplot-driver-cairo)"));
  }
  // PLplot retries a file it cannot open and then ends the process, so the
  // file is opened here first. Opening it also truncates it.
  if (std::FILE* probe = std::fopen(path.c_str(), "wb")) {
    std::fclose(probe);
  } else {
    throw std::runtime_error(
        plot_error(path, std::string("cannot open the file for writing: ") + std::strerror(errno)));
  }

  // PLplot sizes the legend only while drawing it, with the device's own
  // text metrics: a first pass into /dev/null measures it, the second draws
  // on a page just wide enough.
  try {
    const Content content = content_of(series, options);
    const PLFLT plot_mm = kLeftMm + kSideMm + kGapMm;
    const PLFLT legend_mm = render(device, "/dev/null", content, plot_mm + kSideMm);
    render(device, path, content, plot_mm + std::max(legend_mm, PLFLT{0}) + kRightMm);
  } catch (const std::exception& e) {
    std::remove(path.c_str());
    throw std::runtime_error(plot_error(path, e.what()));
  }
}

}  // namespace vorn::modern
