// The fuzzing of one coupling format through parse_couplings: the first
// byte picks the options (bit 0: lenient, bit 1: keep the set `set_name`,
// bit 2: the format told from the content instead of given), the rest is
// the text. What is handed out must hold to the reader's promises.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>

#include "io/coupling_reader.hpp"

// What a reader hands out must hold to its promises: at least one set, each
// named once and not empty, finite values, errors finite and not negative,
// lines within the text, atoms named, and skipped lines only when asked to
// skip; a kept set is the one asked for.
inline void check_coupling_file(const vorn::io::CouplingFile& file,
                                const vorn::io::CouplingReadOptions& options, long lines) {
  if (file.sets.empty()) __builtin_trap();
  if (options.format && file.format != *options.format) __builtin_trap();
  if (options.set && file.sets.size() != 1) __builtin_trap();
  if (options.set && file.sets[0].name != *options.set && file.sets[0].framecode != *options.set) {
    __builtin_trap();
  }
  if (file.skipped_lines < 0 || (!options.lenient && file.skipped_lines != 0)) __builtin_trap();
  std::set<std::string> names;
  for (const vorn::io::CouplingSet& set : file.sets) {
    if (set.couplings.empty() || !names.insert(set.name).second) __builtin_trap();
    for (const vorn::io::MeasuredCoupling& c : set.couplings) {
      if (!std::isfinite(c.value_hz) || c.line < 1 || c.line > lines) __builtin_trap();
      if (c.error_hz && (!std::isfinite(*c.error_hz) || *c.error_hz < 0.0)) __builtin_trap();
      if (c.atom1.name.empty() || c.atom2.name.empty()) __builtin_trap();
    }
  }
}

inline int fuzz_coupling_format(const uint8_t* data, size_t size, vorn::io::CouplingFormat format,
                                const std::string& set_name) {
  if (size == 0) return 0;
  const uint8_t flags = data[0];
  const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
  vorn::io::CouplingReadOptions options;
  options.lenient = (flags & 1) != 0;
  if ((flags & 2) != 0) options.set = set_name;
  if ((flags & 4) == 0) options.format = format;
  const long lines = 1 + std::count(text.begin(), text.end(), '\n');
  try {
    const vorn::io::CouplingFile file = vorn::io::parse_couplings(text, "fuzz", options);
    check_coupling_file(file, options, lines);
  } catch (const vorn::io::InputError&) {
  }
  return 0;
}
