// The check of XTC and TRR frame headers, on frames written here word by
// word (big-endian XDR) after the layouts the check documents.
#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <sstream>
#include <string>

#include "io/gromacs_frame_headers.hpp"

namespace vorn::io {
namespace {

struct Xdr {
  std::string bytes;
  Xdr& i(std::int32_t v) {
    const auto u = static_cast<std::uint32_t>(v);
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>((u >> shift) & 0xFF);
    return *this;
  }
  Xdr& f(float v) { return i(std::bit_cast<std::int32_t>(v)); }
  Xdr& d(double v) {
    const auto u = std::bit_cast<std::uint64_t>(v);
    i(static_cast<std::int32_t>(u >> 32));
    return i(static_cast<std::int32_t>(u & 0xFFFFFFFFu));
  }
};

// An XTC frame: magic, atoms, step, time, box, atoms; up to nine atoms
// three floats each, more: precision, bounds, index, byte count, data.
std::string xtc_frame(int atoms, int compressed_bytes = 8) {
  Xdr x;
  x.i(1995).i(atoms).i(0).f(0.0f);
  for (int k = 0; k < 9; ++k) x.f(k % 4 == 0 ? 3.0f : 0.0f);
  x.i(atoms);
  if (atoms <= 9) {
    for (int k = 0; k < 3 * atoms; ++k) x.f(0.1f * static_cast<float>(k));
  } else {
    x.f(1000.0f).i(0).i(0).i(0).i(100).i(100).i(100).i(0).i(compressed_bytes);
    x.bytes += std::string(static_cast<std::size_t>((compressed_bytes + 3) / 4 * 4), '\x11');
  }
  return x.bytes;
}

// A TRR frame with a box and coordinates (velocities instead with
// `velocities_only`), reals of `real` bytes; `x_size` overrides the
// coordinates' section size.
std::string trr_frame(int atoms, int real = 4, bool velocities_only = false, int x_size = -1) {
  Xdr x;
  const std::string version = "GMX_trn_file";
  x.i(1993)
      .i(static_cast<std::int32_t>(version.size()) + 1)
      .i(static_cast<std::int32_t>(version.size()));
  x.bytes += version;  // 12 characters: no padding
  const int section = 3 * atoms * real;
  const int coordinates = velocities_only ? 0 : (x_size >= 0 ? x_size : section);
  const int velocities = velocities_only ? section : 0;
  for (const int size : {0, 0, 9 * real, 0, 0, 0, 0, coordinates, velocities, 0, atoms, 7, 0})
    x.i(size);
  const int reals = 2 + 9 + (coordinates + velocities) / real;
  for (int k = 0; k < reals; ++k) real == 4 ? x.f(1.0f) : x.d(1.0);
  if (coordinates % real != 0)
    x.bytes += std::string(static_cast<std::size_t>(coordinates % real), '\0');
  return x.bytes;
}

FrameScan scan(const std::string& bytes, TrajectoryFormat format) {
  std::istringstream in(bytes);
  return scan_frame_headers(in, bytes.size(), "test", format);
}

TEST(GromacsFrameHeaders, WholeXtcFrames) {
  const FrameScan s = scan(xtc_frame(3) + xtc_frame(3), TrajectoryFormat::Xtc);
  EXPECT_EQ(s.complete, 2);
  EXPECT_EQ(s.atoms, 3);
  EXPECT_EQ(s.damage, "");
  EXPECT_TRUE(s.bounds.empty());  // nine atoms or fewer: plain floats
  // 56 bytes of header and 12 per atom.
  EXPECT_EQ(xtc_frame(3).size(), 56u + 36u);
}

TEST(GromacsFrameHeaders, CompressedXtcFramesKeepTheirBounds) {
  const FrameScan s = scan(xtc_frame(12, 10) + xtc_frame(12, 8), TrajectoryFormat::Xtc);
  EXPECT_EQ(s.complete, 2);
  ASSERT_EQ(s.bounds.size(), 2u);
  EXPECT_EQ(s.bounds[0].precision, 1000.0f);
  EXPECT_EQ(s.bounds[1].high[2], 100);
  // More compressed bytes than 1.2 times three integers per atom (172 for
  // 12 atoms): refused before the library would read them.
  const FrameScan big = scan(xtc_frame(12) + xtc_frame(12, 173), TrajectoryFormat::Xtc);
  EXPECT_EQ(big.complete, 1);
  EXPECT_EQ(big.damage, "frame 2: invalid size of the compressed coordinates (corrupt?)");
}

TEST(GromacsFrameHeaders, DamageNamesTheFrame) {
  const std::string two = xtc_frame(3) + xtc_frame(3);
  const FrameScan cut = scan(two.substr(0, two.size() - 1), TrajectoryFormat::Xtc);
  EXPECT_EQ(cut.complete, 1);
  EXPECT_EQ(cut.damage, "frame 2: coordinates cut short (truncated?)");
  const FrameScan header = scan(two.substr(0, xtc_frame(3).size() + 20), TrajectoryFormat::Xtc);
  EXPECT_EQ(header.damage, "frame 2: header cut short (truncated?)");
  const FrameScan other = scan(xtc_frame(3) + xtc_frame(4), TrajectoryFormat::Xtc);
  EXPECT_EQ(other.complete, 1);
  EXPECT_EQ(other.damage, "frame 2: 4 atoms, frame 1 has 3");
  const FrameScan junk = scan(xtc_frame(3) + std::string(60, 'x'), TrajectoryFormat::Xtc);
  EXPECT_EQ(junk.damage, "frame 2: no XTC magic number where the frame starts (corrupt?)");
}

TEST(GromacsFrameHeaders, NotOfTheFormat) {
  EXPECT_THROW(scan(trr_frame(3), TrajectoryFormat::Xtc), InputError);
  try {
    scan(xtc_frame(3), TrajectoryFormat::Trr);
    FAIL();
  } catch (const InputError& e) {
    EXPECT_STREQ(e.what(), "test: not a TRR file (magic number 1995, expected 1993)");
  }
  const FrameScan empty = scan("", TrajectoryFormat::Xtc);
  EXPECT_EQ(empty.complete, 0);
  EXPECT_EQ(empty.damage, "");
}

TEST(GromacsTrrHeaders, SinglesDoublesAndFramesWithoutCoordinates) {
  const FrameScan s = scan(trr_frame(3) + trr_frame(3), TrajectoryFormat::Trr);
  EXPECT_EQ(s.complete, 2);
  EXPECT_EQ(s.atoms, 3);
  EXPECT_EQ(s.damage, "");
  EXPECT_EQ(scan(trr_frame(3, 8), TrajectoryFormat::Trr).complete, 1);
  // A frame of velocities only is passed over, not counted.
  const FrameScan v =
      scan(trr_frame(3) + trr_frame(3, 4, true) + trr_frame(3), TrajectoryFormat::Trr);
  EXPECT_EQ(v.complete, 2);
  EXPECT_EQ(v.damage, "");
  // Coordinates one real longer than three per atom.
  const FrameScan bad = scan(trr_frame(3) + trr_frame(3, 4, false, 40), TrajectoryFormat::Trr);
  EXPECT_EQ(bad.complete, 1);
  EXPECT_EQ(bad.damage, "frame 2: section sizes do not match the atom count (corrupt?)");
  const std::string two = trr_frame(3) + trr_frame(3);
  const FrameScan cut = scan(two.substr(0, two.size() - 4), TrajectoryFormat::Trr);
  EXPECT_EQ(cut.complete, 1);
  EXPECT_EQ(cut.damage, "frame 2: cut short (truncated?)");
}

}  // namespace
}  // namespace vorn::io
