#include "io/gromacs_frame_headers.hpp"

#include <bit>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace vorn::io {
namespace {

constexpr std::int32_t kXtcMagic = 1995;
constexpr std::int32_t kTrrMagic = 1993;

// Big-endian (XDR) words of a stream of known size, for the check of its
// frame headers.
class XdrFile {
 public:
  XdrFile(std::istream& in, std::uint64_t size) : in_(in), size_(size) {}

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
  std::istream& in_;
  std::uint64_t size_ = 0;
  std::uint64_t position_ = 0;
};

// Checks the header of every XTC frame and passes over its coordinates:
// magic, atoms, step, time, box (9 floats), atoms again; for more than nine
// atoms precision, 6 bounds, a small index and the byte count of the
// compressed data (padded to 4), else 3 floats per atom.
FrameScan scan_xtc(std::istream& in, std::uint64_t size, const std::string& path) {
  XdrFile file(in, size);
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
FrameScan scan_trr(std::istream& in, std::uint64_t size, const std::string& path) {
  XdrFile file(in, size);
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

}  // namespace

std::string frame_text(long number) { return "frame " + std::to_string(number) + ": "; }

FrameScan scan_frame_headers(std::istream& in, std::uint64_t size, const std::string& path,
                             TrajectoryFormat format) {
  return format == TrajectoryFormat::Trr ? scan_trr(in, size, path) : scan_xtc(in, size, path);
}

FrameScan scan_frame_headers(const std::string& path, TrajectoryFormat format) {
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec)) throw InputError(path + ": is a directory");
  std::ifstream in(path, std::ios::binary);
  if (!in) throw InputError(path + ": cannot open: " + std::strerror(errno));
  const std::uint64_t size = std::filesystem::file_size(path, ec);
  if (ec) throw InputError(path + ": cannot open: " + ec.message());
  return scan_frame_headers(in, size, path, format);
}

}  // namespace vorn::io
