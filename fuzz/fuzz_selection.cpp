// Fuzzes the interactive selection prompts (residues to exclude, atom types
// to keep) on a small molecule; the first byte picks the selection mode.
#include <cstdint>

#include "classic/selection.hpp"
#include "core/fatal.hpp"
#include "fuzz_support.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  static const int modes[] = {1, 2, 12, 12};
  vorn::Settings settings;
  settings.select_flag = modes[data[0] % 4];
  settings.H_flag = (data[0] / 4) % 2;
  vorn::AtomArrays atoms;
  for (int i = 1; i <= 40; ++i) {
    atoms.x[i] = (i % 5) * 1.5;
    atoms.y[i] = (i % 7) * 1.5;
    atoms.z[i] = (i % 3) * 1.5;
    atoms.atom[i] = (i * 37) % 640;
    atoms.res_nr[i] = i / 4;
  }
  auto input = vorn::fuzz::bytes(data + 1, size - 1);
  vorn::Io io{input.file(), vorn::fuzz::sink(), vorn::fuzz::sink()};
  try {
    const int n = vorn::select_atoms(40, atoms, settings, io);
    if (n < 0 || n > 40) __builtin_trap();
  } catch (const vorn::FatalError&) {
  }
  return 0;
}
