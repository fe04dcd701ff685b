// Reading of DCD trajectories (the CHARMM and NAMD layout): Fortran
// unformatted records framed by 4-byte length markers, in either byte order.
#pragma once

#include <cstdint>
#include <istream>
#include <memory>
#include <string>
#include <vector>

#include "io/trajectory_reader.hpp"

namespace vorn::io {

// Reads the frames of a DCD file one at a time. The byte order comes from
// the first record's marker (84, the header's length). CHARMM files (a
// nonzero version in the header's last control word) may carry a unit cell
// record before each frame and a fourth coordinate; both are skipped. Files
// with fixed atoms are refused. Coordinates are in Angstrom.
//
// Errors are InputError "NAME: what" for the header and "NAME: frame N:
// what" for frame N (1-based): a record cut short, a marker that does not
// match the record, or a file that ends before the frame count its header
// announces.
class DcdReader : public TrajectoryReader {
 public:
  explicit DcdReader(const std::string& path);
  // Reads from `in`; `name` names it in messages.
  DcdReader(std::unique_ptr<std::istream> in, std::string name);

  int atoms() const override { return atoms_; }
  // The frame count of the header (0 where the writer left it unset).
  long announced_frames() const { return announced_; }
  bool big_endian() const { return swap_ ? !native_big() : native_big(); }
  bool has_unit_cell() const { return unit_cell_; }
  // The number of the last frame read or skipped, 1-based; 0 before any.
  long frame() const override { return frame_; }

  // The next frame's coordinates into `positions` (resized to atoms());
  // false at the end of the file.
  bool next(std::vector<Vec3>& positions) override;
  // Passes over the next frame; false at the end of the file.
  bool skip() override;
  std::string format_name() const override { return "DCD"; }

 private:
  static bool native_big();
  bool frame_start();
  // Reads one record whose length must be `bytes` into `data` (skipped
  // where null); `what` names the record in messages.
  void record(std::size_t bytes, void* data, const char* what, bool in_frame);
  std::int32_t marker(const char* what, bool in_frame, bool allow_end);
  [[noreturn]] void fail(const std::string& what, bool in_frame) const;

  std::unique_ptr<std::istream> in_;
  std::string name_;
  bool swap_ = false;
  bool unit_cell_ = false;
  bool four_dims_ = false;
  int atoms_ = 0;
  long announced_ = 0;
  long frame_ = 0;
  std::vector<float> buffer_;
};

}  // namespace vorn::io
