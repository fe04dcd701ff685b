// Fuzzes the auto-file reader and the derived medium parameters.
#include <cstdint>

#include "classic/config.hpp"
#include "core/fatal.hpp"
#include "fuzz_support.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto input = vorn::fuzz::bytes(data, size);
  vorn::Settings settings;
  int flags[vorn::kOptionSlots] = {};
  FILE* files[vorn::kOptionSlots] = {};
  flags[1] = 1;
  files[1] = input.release();
  vorn::Io io{nullptr, vorn::fuzz::sink(), vorn::fuzz::sink()};
  try {
    vorn::read_auto(settings, flags, files, io);
    vorn::refine_bicelle(settings);
  } catch (const vorn::FatalError&) {
  }
  return 0;
}
