// Fuzzes the coupling reader and the internuclear vectors with arbitrary
// coupling files on a small fixed molecule.
#include <cstdint>

#include "classic/dc_file.hpp"
#include "core/fatal.hpp"
#include "fuzz_support.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static vorn::CouplingArrays couplings;
  static vorn::AtomArrays atoms = [] {
    vorn::AtomArrays a;
    const int types[] = {211, 551, 114, 476, 1};
    for (int i = 1; i <= 10; ++i) {
      a.x[i] = i;
      a.y[i] = 2.0 * i;
      a.z[i] = -i;
      a.atom[i] = types[(i - 1) % 5];
      a.res_nr[i] = 1 + (i - 1) / 5;
    }
    return a;
  }();
  auto input = vorn::fuzz::bytes(data, size);
  int flags[10] = {};
  FILE* files[10] = {};
  flags[3] = 1;
  files[3] = input.release();
  int dab_sign = 1;
  try {
    const int n = vorn::reading_DCfile(flags, files, couplings, dab_sign);
    if (n < 0 || n >= vorn::kCouplingLimit) __builtin_trap();
    vorn::reading_vectors(n, couplings, 10, atoms);
  } catch (const vorn::FatalError&) {
  }
  return 0;
}
