// The check of an XTC or TRR file's frame headers that comes before the
// GROMACS library reads the file: the library ends the process on a
// malformed header, so VORN reads the headers itself first.
#pragma once

#include <cstdint>
#include <istream>
#include <string>
#include <vector>

#include "io/trajectory_reader.hpp"

namespace vorn::io {

// What the check of a file's frame headers found: the frames it holds whole
// and, where it does not end cleanly after them, what is wrong with the next.
// The bounds an XTC frame's header gives its compressed coordinates: every
// coordinate times the precision, rounded, lies within them.
struct CompressedBounds {
  float precision = 0.0f;
  std::int32_t low[3] = {};
  std::int32_t high[3] = {};
};

struct FrameScan {
  long complete = 0;
  int atoms = 0;
  std::string damage;                    // "frame N: what"; empty for a clean end
  std::vector<CompressedBounds> bounds;  // XTC of more than nine atoms: per frame
};

// "frame N: ", the start of a message about frame N (1-based).
std::string frame_text(long number);

// Checks every frame header of the XTC or TRR data of `size` bytes in `in`
// (`path` names it in messages): the frames it holds whole, their atoms
// and, where it does not end cleanly after them, what is wrong with the
// next. Throws InputError where the first frame is not of the format.
FrameScan scan_frame_headers(std::istream& in, std::uint64_t size, const std::string& path,
                             TrajectoryFormat format);
// The same of a file; also InputError where it cannot be opened.
FrameScan scan_frame_headers(const std::string& path, TrajectoryFormat format);

}  // namespace vorn::io
