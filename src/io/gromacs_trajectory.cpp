#include "io/gromacs_trajectory.hpp"

#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>

#include "gromacs/fileio/oenv.h"
#include "gromacs/fileio/trxio.h"
#include "gromacs/trajectory/trajectoryframe.h"
#include "io/gromacs_frame_headers.hpp"

namespace vorn::io {
namespace {

constexpr double kAngstromPerNm = 10.0;

// The library prints its TRR version once per process, at the first TRR
// frame header it reads; that line is kept off standard error (the file
// descriptor is pointed at /dev/null for that read, on the thread that opens
// the file).
std::mutex trr_first_read;
bool trr_read_before = false;

}  // namespace

struct GromacsTrajectoryReader::Impl {
  std::string path;
  TrajectoryFormat format = TrajectoryFormat::Xtc;
  FrameScan scan;
  long frame = 0;
  gmx_output_env_t* environment = nullptr;
  t_trxstatus* status = nullptr;
  t_trxframe data{};
  std::array<Vec3, 3> box{};
  double resolution = 0.0;
  // The first frame is read when the file is opened (on the thread that
  // opens it, before any other reads it), and handed out by the first read().
  bool first_pending = false;
  bool first_ok = false;

  // Reads the next frame into `data`; false where the file has no more
  // whole frames (an error where it is damaged there).
  bool read() {
    if (frame == scan.complete) {
      if (!scan.damage.empty()) throw InputError(path + ": " + scan.damage);
      return false;
    }
    bool ok = first_ok;
    if (first_pending) {
      first_pending = false;
    } else {
      ok = read_next_frame(environment, status, &data);
    }
    ++frame;
    if (!ok || data.not_ok != 0 || !data.bX || data.natoms != scan.atoms) {
      throw InputError(path + ": " + frame_text(frame) +
                       "the coordinates cannot be read (corrupt?)");
    }
    if (data.bBox) {
      for (int i = 0; i < 3; ++i) {
        box[i] = {data.box[i][0] * kAngstromPerNm, data.box[i][1] * kAngstromPerNm,
                  data.box[i][2] * kAngstromPerNm};
      }
    } else {
      box = {};
    }
    resolution = data.bPrec && data.prec > 0 ? kAngstromPerNm / data.prec : 0.0;
    return true;
  }

  // The decoded coordinates of a compressed XTC frame within the bounds of
  // its header (one unit of slack for the rounding): decoded garbage is
  // refused.
  void check_bounds() const {
    if (scan.bounds.empty()) return;
    const CompressedBounds& b = scan.bounds.at(static_cast<std::size_t>(frame - 1));
    for (int i = 0; i < data.natoms; ++i) {
      for (int k = 0; k < 3; ++k) {
        const double scaled = std::round(static_cast<double>(data.x[i][k]) * b.precision);
        if (!(scaled >= b.low[k] - 1.0 && scaled <= b.high[k] + 1.0)) {
          throw InputError(path + ": " + frame_text(frame) + "coordinate of atom " +
                           std::to_string(i + 1) +
                           " outside the bounds of the frame's header (corrupt?)");
        }
      }
    }
  }

  bool first_read() {
    if (format != TrajectoryFormat::Trr) {
      return read_first_frame(environment, &status, path.c_str(), &data, TRX_NEED_X);
    }
    const std::lock_guard<std::mutex> lock(trr_first_read);
    if (trr_read_before) {
      return read_first_frame(environment, &status, path.c_str(), &data, TRX_NEED_X);
    }
    std::fflush(stderr);
    const int saved = dup(STDERR_FILENO);
    FILE* sink = std::fopen("/dev/null", "w");
    if (saved >= 0 && sink != nullptr) dup2(fileno(sink), STDERR_FILENO);
    const bool ok = read_first_frame(environment, &status, path.c_str(), &data, TRX_NEED_X);
    std::fflush(stderr);
    if (saved >= 0 && sink != nullptr) dup2(saved, STDERR_FILENO);
    if (saved >= 0) close(saved);
    if (sink != nullptr) std::fclose(sink);
    trr_read_before = true;
    return ok;
  }
};

GromacsTrajectoryReader::GromacsTrajectoryReader(const std::string& path, TrajectoryFormat format)
    : impl_(std::make_unique<Impl>()) {
  Impl& d = *impl_;
  d.path = path;
  d.format = format;
  d.scan = scan_frame_headers(path, format);
  if (d.scan.complete == 0) {
    throw InputError(path + ": " + (d.scan.damage.empty() ? "no frames" : d.scan.damage));
  }
  output_env_init_default(&d.environment);
  d.first_ok = d.first_read();
  d.first_pending = true;
}

GromacsTrajectoryReader::~GromacsTrajectoryReader() {
  Impl& d = *impl_;
  if (d.status != nullptr) {
    close_trx(d.status);
    done_frame(&d.data);
  }
  if (d.environment != nullptr) output_env_done(d.environment);
}

int GromacsTrajectoryReader::atoms() const { return impl_->scan.atoms; }
long GromacsTrajectoryReader::frame() const { return impl_->frame; }
long GromacsTrajectoryReader::complete_frames() const { return impl_->scan.complete; }
const std::array<Vec3, 3>& GromacsTrajectoryReader::box() const { return impl_->box; }
double GromacsTrajectoryReader::resolution() const { return impl_->resolution; }

std::string GromacsTrajectoryReader::format_name() const {
  return impl_->format == TrajectoryFormat::Trr ? "TRR" : "XTC";
}

bool GromacsTrajectoryReader::next(std::vector<Vec3>& positions) {
  Impl& d = *impl_;
  if (!d.read()) return false;
  const auto n = static_cast<std::size_t>(d.scan.atoms);
  d.check_bounds();
  positions.resize(n);
  for (std::size_t i = 0; i < n; ++i) {
    const auto& x = d.data.x[i];
    positions[i] = {x[0] * kAngstromPerNm, x[1] * kAngstromPerNm, x[2] * kAngstromPerNm};
  }
  return true;
}

// The library decodes every frame it passes; skipping is reading.
bool GromacsTrajectoryReader::skip() { return impl_->read(); }

}  // namespace vorn::io
