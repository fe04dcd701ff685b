#include "io/dcd_reader.hpp"

#include <bit>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace vorn::io {
namespace {

std::uint32_t byte_swap(std::uint32_t v) {
  return (v >> 24) | ((v >> 8) & 0xff00u) | ((v << 8) & 0xff0000u) | (v << 24);
}

}  // namespace

bool DcdReader::native_big() { return std::endian::native == std::endian::big; }

DcdReader::DcdReader(const std::string& path) : name_(path) {
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec)) throw InputError(path + ": is a directory");
  auto file = std::make_unique<std::ifstream>(path, std::ios::binary);
  if (!*file) throw InputError(path + ": cannot open: " + std::strerror(errno));
  in_ = std::move(file);
  *this = DcdReader(std::move(in_), path);
}

DcdReader::DcdReader(std::unique_ptr<std::istream> in, std::string name)
    : in_(std::move(in)), name_(std::move(name)) {
  // The header: "CORD" and 20 control words, 84 bytes; its marker fixes the
  // byte order.
  unsigned char first[4];
  if (!in_->read(reinterpret_cast<char*>(first), 4)) {
    fail("not a DCD file (too short for its header)", false);
  }
  std::uint32_t length = 0;
  std::memcpy(&length, first, 4);
  if (length != 84) {
    if (byte_swap(length) != 84) {
      fail("not a DCD file (the first record is not the 84-byte header)", false);
    }
    swap_ = true;
  }
  char header[84];
  if (!in_->read(header, 84)) fail("header cut short", false);
  if (marker("header", false, false) != 84) fail("header: record markers do not match", false);
  if (std::memcmp(header, "CORD", 4) != 0) fail("header does not start with CORD", false);
  std::int32_t control[20];
  std::memcpy(control, header + 4, sizeof control);
  if (swap_) {
    for (std::int32_t& c : control)
      c = static_cast<std::int32_t>(byte_swap(static_cast<std::uint32_t>(c)));
  }
  announced_ = control[0] > 0 ? control[0] : 0;
  const bool charmm = control[19] != 0;
  unit_cell_ = charmm && control[10] != 0;
  four_dims_ = charmm && control[11] != 0;
  if (control[8] != 0) {
    fail("fixed atoms (" + std::to_string(control[8]) + ") are not supported", false);
  }
  // The title: a count and that many 80-character lines.
  const std::int32_t title_bytes = marker("title", false, false);
  if (title_bytes < 4) fail("title record too short", false);
  std::int32_t lines = 0;
  if (!in_->read(reinterpret_cast<char*>(&lines), 4)) fail("title cut short", false);
  if (swap_) lines = static_cast<std::int32_t>(byte_swap(static_cast<std::uint32_t>(lines)));
  if (lines < 0 || static_cast<long>(lines) * 80 + 4 != title_bytes) {
    fail("title record of " + std::to_string(title_bytes) + " bytes for " + std::to_string(lines) +
             " lines",
         false);
  }
  if (!in_->ignore(title_bytes - 4) || in_->gcount() != title_bytes - 4) {
    fail("title cut short", false);
  }
  if (marker("title", false, false) != title_bytes) {
    fail("title: record markers do not match", false);
  }
  std::int32_t atoms = 0;
  record(4, &atoms, "atom count", false);
  if (swap_) atoms = static_cast<std::int32_t>(byte_swap(static_cast<std::uint32_t>(atoms)));
  if (atoms <= 0) fail("atom count " + std::to_string(atoms) + " is not positive", false);
  atoms_ = atoms;
}

void DcdReader::fail(const std::string& what, bool in_frame) const {
  throw InputError(name_ + ": " + (in_frame ? "frame " + std::to_string(frame_) + ": " : "") +
                   what);
}

std::int32_t DcdReader::marker(const char* what, bool in_frame, bool allow_end) {
  std::uint32_t value = 0;
  in_->read(reinterpret_cast<char*>(&value), 4);
  const std::streamsize got = in_->gcount();
  if (got == 0 && allow_end) return -1;
  if (got != 4) fail(std::string(what) + ": file cut short (truncated?)", in_frame);
  if (swap_) value = byte_swap(value);
  if (value > 0x7fffffffu) fail(std::string(what) + ": invalid record length", in_frame);
  return static_cast<std::int32_t>(value);
}

void DcdReader::record(std::size_t bytes, void* data, const char* what, bool in_frame) {
  const std::int32_t length = marker(what, in_frame, false);
  if (static_cast<std::size_t>(length) != bytes) {
    fail(std::string(what) + ": record of " + std::to_string(length) + " bytes, expected " +
             std::to_string(bytes),
         in_frame);
  }
  if (data != nullptr) {
    in_->read(static_cast<char*>(data), static_cast<std::streamsize>(bytes));
  } else {
    in_->ignore(static_cast<std::streamsize>(bytes));
  }
  if (static_cast<std::size_t>(in_->gcount()) != bytes) {
    fail(std::string(what) + ": file cut short (truncated?)", in_frame);
  }
  if (marker(what, in_frame, false) != length) {
    fail(std::string(what) + ": record markers do not match", in_frame);
  }
}

// Starts the next frame: false at a clean end of the file. The unit cell
// record, where present, is read past.
bool DcdReader::frame_start() {
  if (in_->peek() == std::char_traits<char>::eof()) {
    if (announced_ > frame_) {
      ++frame_;
      fail("missing: the header announces " + std::to_string(announced_) + " frames (truncated?)",
           true);
    }
    return false;
  }
  ++frame_;
  if (unit_cell_) record(48, nullptr, "unit cell", true);
  return true;
}

bool DcdReader::next(std::vector<Vec3>& positions) {
  if (!frame_start()) return false;
  const auto n = static_cast<std::size_t>(atoms_);
  // The first record's length is checked before the buffer grows, so that
  // a false atom count does not allocate beyond what the file holds.
  const std::int32_t length = marker("X", true, false);
  if (static_cast<std::size_t>(length) != 4 * n) {
    fail("X: record of " + std::to_string(length) + " bytes, expected " + std::to_string(4 * n),
         true);
  }
  buffer_.resize(3 * n);
  in_->read(reinterpret_cast<char*>(buffer_.data()), static_cast<std::streamsize>(4 * n));
  if (static_cast<std::size_t>(in_->gcount()) != 4 * n)
    fail("X: file cut short (truncated?)", true);
  if (marker("X", true, false) != length) fail("X: record markers do not match", true);
  record(4 * n, buffer_.data() + n, "Y", true);
  record(4 * n, buffer_.data() + 2 * n, "Z", true);
  if (four_dims_) record(4 * n, nullptr, "fourth coordinate", true);
  if (swap_) {
    for (float& v : buffer_) v = std::bit_cast<float>(byte_swap(std::bit_cast<std::uint32_t>(v)));
  }
  positions.resize(n);
  for (std::size_t i = 0; i < n; ++i) {
    positions[i] = {buffer_[i], buffer_[n + i], buffer_[2 * n + i]};
  }
  return true;
}

bool DcdReader::skip() {
  if (!frame_start()) return false;
  const auto bytes = 4 * static_cast<std::size_t>(atoms_);
  record(bytes, nullptr, "X", true);
  record(bytes, nullptr, "Y", true);
  record(bytes, nullptr, "Z", true);
  if (four_dims_) record(bytes, nullptr, "fourth coordinate", true);
  return true;
}

}  // namespace vorn::io
