// What the PLplot pictures share: the output format by extension, one
// stream per picture with PLplot's errors caught, the page sized to its
// legend, the legend entries and the text escapes.
#pragma once

#include <plplot.h>

#include <functional>
#include <string>
#include <vector>

namespace vorn::modern::plot {

// PLplot's file devices take the page size in units of 1/72 inch (points;
// pixels of the PNG).
inline constexpr PLFLT kUnitsPerMm = 72.0 / 25.4;

struct Rgb {
  PLINT r, g, b;
};

// PLplot reads '#' as the start of an escape sequence; "##" is a literal '#'.
std::string plplot_text(const std::string& text);

// Sets the page (millimetres), no pause between pages, colour map 0 to
// `colours` (index 0 the background), then starts the page.
void begin_page(PLFLT width_mm, PLFLT height_mm, const std::vector<Rgb>& colours);

// Markers drawn as polygons, centred exactly on their points in every
// format (text glyphs are placed by the renderer's font metrics, a
// millimetre or so off). In an SVG: a disc, triangle or diamond is one
// filled polygon of 16, 3 or 4 corners; a ring one closed line of 17
// points.
enum class MarkerShape { disc, ring, triangle, diamond };

// Draws the markers, `size_mm` across, at the points (world coordinates of
// the current viewport and window) in the current colour.
void draw_markers(MarkerShape shape, PLFLT size_mm, const std::vector<PLFLT>& x,
                  const std::vector<PLFLT>& y);

// Entries of a legend in the arrays pllegend takes.
struct LegendEntries {
  std::vector<std::string> texts;
  std::vector<PLINT> options, text_colours, line_colours, line_styles, symbol_colours,
      symbol_numbers, box_colours, box_patterns;
  std::vector<PLFLT> line_widths, symbol_scales, box_scales, box_line_widths;
  std::vector<const char*> symbols;

  // An entry drawn in `colour` with text in `text_colour`; `symbol` is the
  // glyph of a PL_LEGEND_SYMBOL entry, drawn at `symbol_scale`.
  void add(std::string text, PLINT option, PLINT colour, PLINT text_colour, const char* symbol = "",
           PLFLT symbol_scale = 1.0);
};

// Draws the legend outside the viewport, on its right, `gap_mm` from it
// (the viewport `viewport_width_mm` wide), centred on the viewport's
// height, `sample_width` of the viewport wide samples, on a background with
// a frame; returns the legend's width in millimetres.
PLFLT draw_legend_right(const LegendEntries& legend, PLFLT gap_mm, PLFLT viewport_width_mm,
                        PLFLT sample_width, PLFLT text_scale, PLINT background, PLINT frame);

// How wide a page is: the part left of the legend (plot and gap), the
// legend as the first pass measures it, and a margin on the right. The
// first pass draws on a page `fixed_mm + trial_legend_mm` wide.
struct PageWidth {
  PLFLT fixed_mm = 0;
  PLFLT trial_legend_mm = 0;
  PLFLT right_mm = 0;
};

// Draws one picture into `path`, in the format of its extension (.svg,
// .pdf, .png, case-insensitively). `draw` draws everything on a stream of
// its own, device and file already set, on a page of the width it is given
// (millimetres), and returns the legend's width in millimetres. PLplot
// sizes a legend only while drawing it, with the device's own text
// metrics: a first pass into /dev/null measures it, the second draws on a
// page just wide enough.
//
// Throws std::runtime_error "<what> '<path>': ..." for an unknown
// extension, an output device PLplot does not offer, a file that cannot be
// written, or an error PLplot reports; no file is left behind then. The
// calls of every picture are serialised (PLplot keeps its state in
// globals).
void write_picture(const std::string& path, const std::string& what, const PageWidth& width,
                   const std::function<PLFLT(PLFLT page_width_mm)>& draw);

// Throws as write_picture does when `path` has no extension of a format,
// before anything is drawn.
void check_picture_path(const std::string& path, const std::string& what);

}  // namespace vorn::modern::plot
