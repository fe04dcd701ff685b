#include "modern/plot_support.hpp"

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

namespace vorn::modern::plot {
namespace {

// PLplot keeps its streams, driver table and current stream in globals.
std::mutex plplot_mutex;

std::string picture_error(const std::string& what, const std::string& path,
                          const std::string& message) {
  return what + " '" + path + "': " + message;
}

// The PLplot device for the extension of `path`.
std::string device_for(const std::string& path, const std::string& what) {
  std::string extension = std::filesystem::path(path).extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  // The SVG driver of PLplot itself writes text as text elements; the cairo
  // one would outline it.
  if (extension == ".svg") return "svg";
  if (extension == ".pdf") return "pdfcairo";
  if (extension == ".png") return "pngcairo";
  throw std::runtime_error(picture_error(
      what, path, "unknown extension '" + extension + "' (the formats are .svg, .pdf and .png)"));
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

// A PLplot stream of its own for one picture: created on construction,
// ended on destruction (which also closes the output file), with the stream
// current before restored. PLplot reports errors into `error_message`
// instead of printing them.
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

// Draws with `device` into `file` on a stream of its own; returns the
// legend width in millimetres. Throws std::runtime_error with PLplot's
// message when PLplot reports an error.
PLFLT render(const std::string& device, const std::string& file,
             const std::function<PLFLT(PLFLT)>& draw, PLFLT page_width_mm) {
  Stream stream;
  plsdev(device.c_str());
  plsfnam(file.c_str());
  const PLFLT legend_mm = draw(page_width_mm);
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

std::string plplot_text(const std::string& text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (char c : text) {
    escaped += c;
    if (c == '#') escaped += '#';
  }
  return escaped;
}

void begin_page(PLFLT width_mm, PLFLT height_mm, const std::vector<Rgb>& colours) {
  plspause(0);
  plspage(0, 0, static_cast<PLINT>(std::lround(width_mm * kUnitsPerMm)),
          static_cast<PLINT>(std::lround(height_mm * kUnitsPerMm)), 0, 0);
  plscmap0n(static_cast<PLINT>(colours.size()));
  for (std::size_t i = 0; i < colours.size(); ++i) {
    plscol0(static_cast<PLINT>(i), colours[i].r, colours[i].g, colours[i].b);
  }
  plinit();
  pladv(0);
}

void draw_markers(MarkerShape shape, PLFLT size_mm, const std::vector<PLFLT>& x,
                  const std::vector<PLFLT>& y) {
  // World units per millimetre from the viewport (normalised subpage
  // coordinates), the subpage (millimetres) and the window.
  PLFLT page_x0 = 0, page_x1 = 0, page_y0 = 0, page_y1 = 0;
  PLFLT vp_x0 = 0, vp_x1 = 0, vp_y0 = 0, vp_y1 = 0;
  PLFLT w_x0 = 0, w_x1 = 0, w_y0 = 0, w_y1 = 0;
  plgspa(&page_x0, &page_x1, &page_y0, &page_y1);
  plgvpd(&vp_x0, &vp_x1, &vp_y0, &vp_y1);
  plgvpw(&w_x0, &w_x1, &w_y0, &w_y1);
  const PLFLT per_mm_x = (w_x1 - w_x0) / ((vp_x1 - vp_x0) * (page_x1 - page_x0));
  const PLFLT per_mm_y = (w_y1 - w_y0) / ((vp_y1 - vp_y0) * (page_y1 - page_y0));
  // Corners on a unit circle, the first at the top.
  std::vector<std::pair<PLFLT, PLFLT>> corners;
  const auto polygon = [&](int n, PLFLT radius) {
    for (int k = 0; k < n; ++k) {
      const PLFLT a = 2.0 * 3.14159265358979323846 * k / n;
      corners.emplace_back(radius * std::sin(a), radius * std::cos(a));
    }
  };
  switch (shape) {
    case MarkerShape::disc:
    case MarkerShape::ring:
      polygon(16, 0.5);
      break;
    case MarkerShape::triangle:
      // Centred on its centroid, its width size_mm.
      polygon(3, 0.5 / std::sin(3.14159265358979323846 / 3.0));
      break;
    case MarkerShape::diamond:
      polygon(4, 0.5);
      break;
  }
  if (shape == MarkerShape::ring) corners.push_back(corners.front());
  std::vector<PLFLT> px(corners.size()), py(corners.size());
  for (std::size_t i = 0; i < x.size() && i < y.size(); ++i) {
    for (std::size_t k = 0; k < corners.size(); ++k) {
      px[k] = x[i] + corners[k].first * size_mm * per_mm_x;
      py[k] = y[i] + corners[k].second * size_mm * per_mm_y;
    }
    if (shape == MarkerShape::ring) {
      plline(static_cast<PLINT>(px.size()), px.data(), py.data());
    } else {
      plfill(static_cast<PLINT>(px.size()), px.data(), py.data());
    }
  }
}

void LegendEntries::add(std::string text, PLINT option, PLINT colour, PLINT text_colour,
                        const char* symbol, PLFLT symbol_scale) {
  texts.push_back(std::move(text));
  options.push_back(option);
  text_colours.push_back(text_colour);
  line_colours.push_back(colour);
  line_styles.push_back(1);
  line_widths.push_back(1.5);
  symbol_colours.push_back(colour);
  symbol_numbers.push_back(1);
  symbol_scales.push_back(symbol_scale);
  symbols.push_back(symbol);
  box_colours.push_back(colour);
  box_patterns.push_back(0);
  box_scales.push_back(1.0);
  box_line_widths.push_back(1.0);
}

PLFLT draw_legend_right(const LegendEntries& legend, PLFLT gap_mm, PLFLT viewport_width_mm,
                        PLFLT sample_width, PLFLT text_scale, PLINT background, PLINT frame) {
  std::vector<const char*> texts;
  for (const std::string& text : legend.texts) texts.push_back(text.c_str());
  // Returned in normalised viewport coordinates.
  PLFLT legend_width = 0, legend_height = 0;
  pllegend(&legend_width, &legend_height, PL_LEGEND_BACKGROUND | PL_LEGEND_BOUNDING_BOX,
           PL_POSITION_OUTSIDE | PL_POSITION_RIGHT, gap_mm / viewport_width_mm, 0.0, sample_width,
           background, frame, 1, 0, 0, static_cast<PLINT>(texts.size()), legend.options.data(), 1.0,
           text_scale, 2.0, 0.0, legend.text_colours.data(), texts.data(),
           legend.box_colours.data(), legend.box_patterns.data(), legend.box_scales.data(),
           legend.box_line_widths.data(), legend.line_colours.data(), legend.line_styles.data(),
           legend.line_widths.data(), legend.symbol_colours.data(), legend.symbol_scales.data(),
           legend.symbol_numbers.data(), legend.symbols.data());
  return legend_width * viewport_width_mm;
}

void check_picture_path(const std::string& path, const std::string& what) {
  device_for(path, what);
}

void write_picture(const std::string& path, const std::string& what, const PageWidth& width,
                   const std::function<PLFLT(PLFLT page_width_mm)>& draw) {
  const std::string device = device_for(path, what);

  const std::lock_guard<std::mutex> lock(plplot_mutex);
  if (!device_available(device)) {
    throw std::runtime_error(picture_error(
        what, path,
        "PLplot offers no output device '" + device +
            "' here (.pdf and .png need PLplot's cairo driver, plplot-driver-cairo)"));
  }
  // PLplot retries a file it cannot open and then ends the process, so the
  // file is opened here first. Opening it also truncates it.
  if (std::FILE* probe = std::fopen(path.c_str(), "wb")) {
    std::fclose(probe);
  } else {
    throw std::runtime_error(picture_error(
        what, path, std::string("cannot open the file for writing: ") + std::strerror(errno)));
  }
  try {
    const PLFLT legend_mm =
        render(device, "/dev/null", draw, width.fixed_mm + width.trial_legend_mm);
    render(device, path, draw, width.fixed_mm + std::max(legend_mm, PLFLT{0}) + width.right_mm);
  } catch (const std::exception& e) {
    std::remove(path.c_str());
    throw std::runtime_error(picture_error(what, path, e.what()));
  }
}

}  // namespace vorn::modern::plot
