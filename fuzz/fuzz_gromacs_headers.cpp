// Fuzzes the check of XTC and TRR frame headers that comes before the
// GROMACS library reads a file (the library itself is not fuzzed here: it
// ends the process on what the check exists to stop). Any input, read as
// either format, gives a count of whole frames with their atoms, or fails
// with InputError.
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "io/gromacs_frame_headers.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  for (const auto format : {vorn::io::TrajectoryFormat::Xtc, vorn::io::TrajectoryFormat::Trr}) {
    std::istringstream in(bytes);
    try {
      const vorn::io::FrameScan scan = vorn::io::scan_frame_headers(in, size, "fuzz", format);
      if (scan.complete < 0) std::abort();
      if (scan.complete > 0 && scan.atoms <= 0) std::abort();
      if (!scan.damage.empty() && scan.damage.rfind("frame ", 0) != 0) std::abort();
      // Every whole XTC frame of more than nine atoms has its bounds.
      if (format == vorn::io::TrajectoryFormat::Xtc && scan.atoms > 9 &&
          scan.bounds.size() < static_cast<std::size_t>(scan.complete))
        std::abort();
    } catch (const vorn::io::InputError&) {
    }
  }
  return 0;
}
