// STAR text (NEF and NMR-STAR files) read through gemmi's CIF/STAR parser
// into plain structures, with the line of every loop row. Kept to C++17
// and free of gemmi types: the gemmi code is compiled on its own (see
// gemmi_models.hpp).
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace vorn::io::detail {

// A value as the file holds it, unquoted; nullopt for the null values "."
// and "?" (unquoted).
using StarValue = std::optional<std::string>;

struct StarLoop {
  long line = 0;                  // of "loop_"
  std::vector<std::string> tags;  // as written ("_nef_rdc_restraint.index")
  std::vector<StarValue> values;  // row after row
  std::vector<long> value_lines;  // the line each value starts on
  std::size_t rows() const { return tags.empty() ? 0 : values.size() / tags.size(); }
};

struct StarPair {
  std::string tag;
  StarValue value;
  long line = 0;
};

struct StarFrame {
  std::string name;  // after "save_"
  long line = 0;     // of "save_NAME"
  std::vector<StarPair> pairs;
  std::vector<StarLoop> loops;
};

// The save frames of every data block, in file order.
struct StarDocument {
  std::vector<StarFrame> frames;
};

// Parses STAR text. Unquoted values that begin with "$" (save-frame
// references, which the CIF grammar of gemmi rejects) are quoted first.
// Throws InputError "NAME:LINE: what was wrong".
StarDocument read_star(std::string text, const std::string& name);

// The text with every unquoted value beginning with "$" quoted; comments,
// quoted strings and text fields are left as they are, and so are the
// lines (characters are only added within a line).
std::string quote_frame_references(const std::string& text);

}  // namespace vorn::io::detail
