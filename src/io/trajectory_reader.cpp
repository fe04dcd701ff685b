#include "io/trajectory_reader.hpp"

#include <algorithm>
#include <cctype>

#include "io/dcd_reader.hpp"
#include "io/gromacs_trajectory.hpp"

namespace vorn::io {

bool trajectory_format_of(const std::string& path, TrajectoryFormat& format) {
  std::string lower = path;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (lower.ends_with(".dcd")) {
    format = TrajectoryFormat::Dcd;
  } else if (lower.ends_with(".xtc")) {
    format = TrajectoryFormat::Xtc;
  } else if (lower.ends_with(".trr")) {
    format = TrajectoryFormat::Trr;
  } else {
    return false;
  }
  return true;
}

std::unique_ptr<TrajectoryReader> open_trajectory(const std::string& path) {
  TrajectoryFormat format{};
  if (!trajectory_format_of(path, format)) {
    throw InputError(path + ": unknown trajectory format (expected .dcd, .xtc or .trr)");
  }
  if (format == TrajectoryFormat::Dcd) return std::make_unique<DcdReader>(path);
  return std::make_unique<GromacsTrajectoryReader>(path, format);
}

}  // namespace vorn::io
