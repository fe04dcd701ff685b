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

namespace vorn::io {
namespace {

constexpr std::int32_t kXtcMagic = 1995;
constexpr std::int32_t kTrrMagic = 1993;
constexpr double kAngstromPerNm = 10.0;

// Big-endian (XDR) words of a file, for the check of its frame headers.
class XdrFile {
 public:
  explicit XdrFile(const std::string& path) : in_(path, std::ios::binary) {
    std::error_code ec;
    if (std::filesystem::is_directory(path, ec)) throw InputError(path + ": is a directory");
    if (!in_) throw InputError(path + ": cannot open: " + std::strerror(errno));
    size_ = std::filesystem::file_size(path, ec);
    if (ec) throw InputError(path + ": cannot open: " + ec.message());
  }

  std::uint64_t size() const { return size_; }
  std::uint64_t position() const { return position_; }
  std::uint64_t left() const { return size_ - position_; }

  // The next 4-byte word; the caller checks left() first.
  std::uint32_t word() {
    unsigned char b[4] = {};
    in_.read(reinterpret_cast<char*>(b), 4);
    position_ += 4;
    return (std::uint32_t{b[0]} << 24) | (std::uint32_t{b[1]} << 16) | (std::uint32_t{b[2]} << 8) |
           b[3];
  }
  std::int32_t integer() { return static_cast<std::int32_t>(word()); }

  void skip(std::uint64_t bytes) {
    position_ += bytes;
    in_.seekg(static_cast<std::streamoff>(position_));
  }

 private:
  std::ifstream in_;
  std::uint64_t size_ = 0;
  std::uint64_t position_ = 0;
};

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

std::string frame_text(long number) { return "frame " + std::to_string(number) + ": "; }

// Checks the header of every XTC frame and passes over its coordinates:
// magic, atoms, step, time, box (9 floats), atoms again; for more than nine
// atoms precision, 6 bounds, a small index and the byte count of the
// compressed data (padded to 4), else 3 floats per atom.
FrameScan scan_xtc(const std::string& path) {
  XdrFile file(path);
  FrameScan scan;
  for (long n = 1; file.left() > 0; ++n) {
    const auto damaged = [&](const std::string& what) {
      scan.damage = frame_text(n) + what;
      return scan;
    };
    if (file.left() < 56) return damaged("header cut short (truncated?)");
    const std::int32_t magic = file.integer();
    if (magic != kXtcMagic) {
      if (n == 1) {
        throw InputError(path + ": not an XTC file (magic number " + std::to_string(magic) +
                         ", expected 1995)");
      }
      return damaged("no XTC magic number where the frame starts (corrupt?)");
    }
    const std::int32_t atoms = file.integer();
    file.skip(4 + 4 + 36);  // step, time, box
    const std::int32_t again = file.integer();
    if (atoms <= 0 || again != atoms) {
      return damaged("invalid atom count " + std::to_string(atoms) + " (corrupt?)");
    }
    if (n > 1 && atoms != scan.atoms) {
      return damaged(std::to_string(atoms) + " atoms, frame 1 has " + std::to_string(scan.atoms));
    }
    scan.atoms = atoms;
    std::uint64_t payload = 12 * static_cast<std::uint64_t>(atoms);
    if (atoms > 9) {
      if (file.left() < 36) return damaged("header cut short (truncated?)");
      CompressedBounds b;
      b.precision = std::bit_cast<float>(file.word());
      for (std::int32_t& v : b.low) v = file.integer();
      for (std::int32_t& v : b.high) v = file.integer();
      file.skip(4);  // small index
      const std::int32_t bytes = file.integer();
      if (!(b.precision > 0.0f) || b.low[0] > b.high[0] || b.low[1] > b.high[1] ||
          b.low[2] > b.high[2]) {
        return damaged("invalid precision or bounds of the coordinates (corrupt?)");
      }
      // No more than the library's decoder allocates for the frame (1.2
      // times three integers per atom, as its writer does).
      if (bytes < 0 || bytes > 12 * static_cast<std::int64_t>(atoms) * 6 / 5) {
        return damaged("invalid size of the compressed coordinates (corrupt?)");
      }
      scan.bounds.push_back(b);
      payload = (static_cast<std::uint64_t>(bytes) + 3) / 4 * 4;
    }
    if (file.left() < payload) return damaged("coordinates cut short (truncated?)");
    file.skip(payload);
    scan.complete = n;
  }
  return scan;
}

// Checks the header of every TRR frame: magic, the version string, 13
// integers (sizes of the sections, atoms, step, energies), time and lambda
// in the frame's precision; then passes over its box, virial, pressure,
// coordinates, velocities and forces. Only frames with coordinates count.
FrameScan scan_trr(const std::string& path) {
  XdrFile file(path);
  FrameScan scan;
  long counted = 0;
  for (long read = 1; file.left() > 0; ++read) {
    const auto damaged = [&](const std::string& what) {
      scan.damage = frame_text(counted + 1) + what;
      return scan;
    };
    if (file.left() < 12) return damaged("header cut short (truncated?)");
    const std::int32_t magic = file.integer();
    if (magic != kTrrMagic) {
      if (read == 1) {
        throw InputError(path + ": not a TRR file (magic number " + std::to_string(magic) +
                         ", expected 1993)");
      }
      return damaged("no TRR magic number where the frame starts (corrupt?)");
    }
    file.skip(4);  // the version's length with its terminator
    const std::int32_t length = file.integer();
    if (length < 0 || length > 128) return damaged("invalid version string (corrupt?)");
    const std::uint64_t padded = (static_cast<std::uint64_t>(length) + 3) / 4 * 4;
    if (file.left() < padded + 13 * 4) return damaged("header cut short (truncated?)");
    file.skip(padded);
    std::int32_t size[13];
    for (std::int32_t& s : size) s = file.integer();
    const auto [ir, energy, box, virial, pressure, topology, symmetry, x, v, f, atoms, step,
                energies] = size;
    (void)step;
    (void)energies;
    if (ir != 0 || energy != 0 || topology != 0 || symmetry != 0) {
      return damaged("sections of a run input in the frame are not supported");
    }
    if (atoms <= 0) return damaged("invalid atom count " + std::to_string(atoms) + " (corrupt?)");
    // The precision of the reals: 4 or 8 bytes, from the first section.
    const std::int64_t per_atom = 3 * static_cast<std::int64_t>(atoms);
    std::int64_t real = 0;
    if (box != 0) {
      real = box / 9;
    } else if (x != 0) {
      real = x / per_atom;
    } else if (v != 0) {
      real = v / per_atom;
    } else if (f != 0) {
      real = f / per_atom;
    }
    const auto fits = [&](std::int64_t section, std::int64_t count) {
      return section == 0 || section == count * real;
    };
    if ((real != 4 && real != 8) || !fits(box, 9) || !fits(virial, 9) || !fits(pressure, 9) ||
        !fits(x, per_atom) || !fits(v, per_atom) || !fits(f, per_atom)) {
      return damaged("section sizes do not match the atom count (corrupt?)");
    }
    const std::uint64_t payload = 2 * static_cast<std::uint64_t>(real) + box + virial + pressure +
                                  static_cast<std::uint64_t>(x) + v + f;
    if (file.left() < payload) return damaged("cut short (truncated?)");
    file.skip(payload);
    if (x == 0) continue;
    if (counted > 0 && atoms != scan.atoms) {
      return damaged(std::to_string(atoms) + " atoms, frame 1 has " + std::to_string(scan.atoms));
    }
    scan.atoms = atoms;
    scan.complete = ++counted;
  }
  return scan;
}

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
  d.scan = format == TrajectoryFormat::Trr ? scan_trr(path) : scan_xtc(path);
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
