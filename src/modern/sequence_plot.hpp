// Couplings along the sequence: measured, calculated and predicted values
// against the residue number, one panel per coupling type, drawn with
// PLplot.
#pragma once

#include <string>
#include <vector>

namespace vorn::modern {

// The couplings of one type: one value per coupling in each vector that is
// not empty.
struct SequencePanel {
  std::string label;                  // e.g. "N-H"; the panel's y axis reads "N-H (Hz)"
  std::vector<double> residue;        // the x of each coupling
  std::vector<double> measured_hz;    // one per coupling
  std::vector<double> error_hz;       // empty, or one per coupling (0: no error bar)
  std::vector<double> calculated_hz;  // empty (none), or one per coupling
  std::vector<double> predicted_hz;   // empty (none), or one per coupling
};

struct SequencePlotOptions {
  std::string title;
  std::string measured_label = "measured";
  std::string calculated_label = "fit";
  std::string predicted_label = "predicted";
  std::vector<std::string> legend_notes;  // extra lines of the legend
};

// The legend's glyphs of the three kinds of values (UTF-8): a black disc
// for the measured values, a ring for the calculated ones, a triangle for
// the predicted ones. The markers of the panels have the same shapes, drawn
// as polygons centred on their points: in an SVG a disc is one polygon of
// 16 corners, a triangle one of 3, a ring one closed polyline of 17 points.
inline constexpr const char* kMeasuredGlyph = "\xE2\x97\x8F";    // U+25CF BLACK CIRCLE
inline constexpr const char* kCalculatedGlyph = "\xE2\x97\x8B";  // U+25CB WHITE CIRCLE
inline constexpr const char* kPredictedGlyph = "\xE2\x96\xB2";   // U+25B2 BLACK UP TRIANGLE

// Writes the panels one above the other over a common residue axis: the
// measured values with their error bars (where an error is above 0), the
// calculated and the predicted values each in a colour of its own, a grey
// line at 0 Hz, and one legend (a sample per kind of value present, with
// the notes). The format follows the extension, as for the correlation
// plot (.svg, .pdf, .png).
//
// Throws std::invalid_argument, before writing anything, for no panel, a
// panel whose vectors differ in length from its residues, or a value that
// is not finite (or an error below 0). Throws std::runtime_error naming the
// file as write_correlation_plot does.
void write_sequence_plot(const std::string& path, const std::vector<SequencePanel>& panels,
                         const SequencePlotOptions& options);

}  // namespace vorn::modern
