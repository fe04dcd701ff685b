// The frames of a trajectory, one at a time, whatever its format: DCD (read
// here), XTC and TRR (through the GROMACS library).
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "io/input_error.hpp"
#include "vorn/structure.hpp"

namespace vorn::io {

enum class TrajectoryFormat { Dcd, Xtc, Trr };

// The format of a trajectory file name (".dcd", ".xtc", ".trr", any case);
// false for anything else.
bool trajectory_format_of(const std::string& path, TrajectoryFormat& format);

// Reads the frames of a trajectory in order. Coordinates are in Angstrom.
// Errors are InputError "NAME: what" for the file's header and "NAME: frame
// N: what" for frame N (1-based).
class TrajectoryReader {
 public:
  virtual ~TrajectoryReader() = default;

  virtual int atoms() const = 0;
  // The number of the last frame read or skipped, 1-based; 0 before any.
  virtual long frame() const = 0;
  // The next frame's coordinates into `positions` (resized to atoms());
  // false at the end of the file.
  virtual bool next(std::vector<Vec3>& positions) = 0;
  // Passes over the next frame; false at the end of the file.
  virtual bool skip() = 0;
  virtual std::string format_name() const = 0;
};

// Opens a trajectory of the format its name tells.
std::unique_ptr<TrajectoryReader> open_trajectory(const std::string& path);

}  // namespace vorn::io
