// Reading of GROMACS trajectories (XTC and TRR) through the GROMACS library.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "io/trajectory_reader.hpp"

namespace vorn::io {

// Reads the frames of an XTC or TRR file (the format from `format`, as the
// library takes it from the extension). Coordinates and box are converted
// from nm to Angstrom. TRR frames without coordinates are passed over and
// not counted.
//
// The library ends the process on a malformed frame header and warns on
// standard error at a truncated frame, so the file's frame headers are
// checked here first (magic numbers, atom counts, sizes against the file's
// length), and the library is only given frames that passed: a file cut
// short or a broken header is an InputError naming the frame, raised when
// the reading reaches that frame. The compressed coordinates of an XTC
// frame are not checked before the library decodes them; a frame whose
// compressed data are corrupt but whose header and length are sound is
// reported as unreadable, after the library's own warning.
class GromacsTrajectoryReader : public TrajectoryReader {
 public:
  GromacsTrajectoryReader(const std::string& path, TrajectoryFormat format);
  ~GromacsTrajectoryReader() override;
  GromacsTrajectoryReader(const GromacsTrajectoryReader&) = delete;
  GromacsTrajectoryReader& operator=(const GromacsTrajectoryReader&) = delete;

  int atoms() const override;
  long frame() const override;
  bool next(std::vector<Vec3>& positions) override;
  bool skip() override;
  std::string format_name() const override;

  // The frames the file holds whole (before any damage).
  long complete_frames() const;
  // The box of the last frame read, three vectors in Angstrom (zero where
  // the frame has none).
  const std::array<Vec3, 3>& box() const;
  // XTC: the coordinates' resolution in Angstrom (0.01 at the usual
  // precision of 1000 per nm); 0 for TRR.
  double resolution() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vorn::io
