// Fuzzes the readers of measured couplings through parse_couplings, the path
// read_couplings takes after reading the file. The first byte picks the
// format (bits 0-1: X-PLOR, table, classic, told from the content) and the
// options (bit 2: lenient, bit 3: keep set "500"); the rest is the text.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>

#include "io/coupling_reader.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const uint8_t flags = data[0];
  const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
  vorn::io::CouplingReadOptions options;
  switch (flags & 3) {
    case 0:
      options.format = vorn::io::CouplingFormat::xplor;
      break;
    case 1:
      options.format = vorn::io::CouplingFormat::table;
      break;
    case 2:
      options.format = vorn::io::CouplingFormat::classic;
      break;
    default:
      break;
  }
  options.lenient = (flags & 4) != 0;
  if ((flags & 8) != 0) options.set = "500";
  const long lines = 1 + std::count(text.begin(), text.end(), '\n');
  try {
    const vorn::io::CouplingFile file = vorn::io::parse_couplings(text, "fuzz", options);
    // What is handed out: at least one set, each named once and not empty,
    // finite values, errors finite and not negative, lines within the text,
    // and skipped lines only when asked to skip.
    if (file.sets.empty()) __builtin_trap();
    if (options.format && file.format != *options.format) __builtin_trap();
    if (options.set && (file.sets.size() != 1 || file.sets[0].name != *options.set)) {
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
  } catch (const vorn::io::InputError&) {
  }
  return 0;
}
