// What the tests of the exchange-format readers share: the text of a file
// (gzip or plain, through zlib as the readers do not), its lines, and the
// message of the InputError a text raises.
#pragma once

#include <gtest/gtest.h>
#include <zlib.h>

#include <string>
#include <string_view>
#include <vector>

#include "io/coupling_reader.hpp"

namespace vorn::io::test {

inline const std::string kFormats = std::string(VORN_TEST_DATA_DIR) + "/formats";

// The content of a file, uncompressed when it is gzip.
inline std::string text_of(const std::string& path) {
  gzFile f = gzopen(path.c_str(), "rb");
  if (f == nullptr) {
    ADD_FAILURE() << "cannot open " << path;
    return {};
  }
  std::string text;
  char buffer[4096];
  int n = 0;
  while ((n = gzread(f, buffer, sizeof buffer)) > 0) text.append(buffer, static_cast<size_t>(n));
  gzclose(f);
  return text;
}

inline std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  while (start < text.size()) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

inline std::vector<std::string> words_of(const std::string& line) {
  std::vector<std::string> words;
  std::size_t i = 0;
  while (i < line.size()) {
    if (line[i] == ' ' || line[i] == '\t' || line[i] == '\r') {
      ++i;
      continue;
    }
    const std::size_t start = i;
    while (i < line.size() && line[i] != ' ' && line[i] != '\t' && line[i] != '\r') ++i;
    words.push_back(line.substr(start, i - start));
  }
  return words;
}

// The number (from 1) of the first line that holds all the words in this
// order as its first words; 0 when none does.
inline long line_starting(const std::string& text, const std::vector<std::string>& first) {
  const std::vector<std::string> lines = lines_of(text);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const std::vector<std::string> words = words_of(lines[i]);
    if (words.size() >= first.size() && std::equal(first.begin(), first.end(), words.begin())) {
      return static_cast<long>(i + 1);
    }
  }
  return 0;
}

inline std::string error_of(std::string_view text, const std::string& name,
                            const CouplingReadOptions& options = {}) {
  try {
    parse_couplings(text, name, options);
  } catch (const InputError& e) {
    return e.what();
  }
  ADD_FAILURE() << "no InputError for:\n" << text;
  return {};
}

inline bool contains(const std::string& s, std::string_view part) {
  return s.find(part) != std::string::npos;
}

inline CouplingReadOptions as(CouplingFormat format, bool lenient = false) {
  CouplingReadOptions options;
  options.format = format;
  options.lenient = lenient;
  return options;
}

inline void expect_atom(const CouplingAtom& atom, const std::string& chain, int residue,
                        const std::string& name) {
  EXPECT_EQ(atom.chain, chain);
  EXPECT_EQ(atom.residue, residue);
  EXPECT_EQ(atom.name, name);
}

}  // namespace vorn::io::test
