// Fuzzes the DCD reader from memory: any input either reads whole, each
// frame with the header's atom count, or fails with InputError.
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "io/dcd_reader.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto in =
      std::make_unique<std::istringstream>(std::string(reinterpret_cast<const char*>(data), size));
  try {
    vorn::io::DcdReader reader(std::move(in), "fuzz.dcd");
    std::vector<vorn::Vec3> frame;
    long frames = 0;
    // Alternate reading and skipping: both must follow the same layout.
    while (frames % 2 == 0 ? reader.next(frame) : reader.skip()) {
      ++frames;
      if (reader.frame() != frames) std::abort();
      if (frames % 2 == 1 && frame.size() != static_cast<size_t>(reader.atoms())) std::abort();
    }
  } catch (const vorn::io::InputError&) {
  }
  return 0;
}
