// Fuzzes the coordinate reader with arbitrary file contents.
#include <cstdint>

#include "classic/pdb_reader.hpp"
#include "core/fatal.hpp"
#include "fuzz_support.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static vorn::AtomArrays atoms;
  const std::string name = vorn::fuzz::to_file(data, size, "pdb");
  try {
    const int n = vorn::reading_PDBfile(name.c_str(), atoms, vorn::fuzz::sink());
    if (n < 0 || n >= vorn::kAtomLimit) __builtin_trap();
  } catch (const vorn::FatalError&) {
  }
  return 0;
}
