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

#include "fuzz_coupling_checks.hpp"

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
    check_coupling_file(file, options, lines);
  } catch (const vorn::io::InputError&) {
  }
  return 0;
}
