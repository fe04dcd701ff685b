// XTC and TRR trajectories through the GROMACS library, and topologies in
// the three formats: the test trajectories hold the four models of the
// bundled ubiquitin ensemble (tools/make_trajectories.py); small files with
// known numbers are written here in the formats' XDR layout.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "io/gromacs_trajectory.hpp"
#include "io/structure_reader.hpp"
#include "pdb_coordinates.hpp"
#include "temp_dir_test.hpp"

namespace {

using vorn::Vec3;
using vorn::io::GromacsTrajectoryReader;
using vorn::io::InputError;
using vorn::io::ReadOptions;
using vorn::io::StructureReader;
using vorn::io::TrajectoryFormat;

const std::string kData = VORN_TEST_DATA_DIR;
const std::string kPdb = kData + "/structures/ubq_1d3z_models1-4.pdb";
const std::string kXtc = kData + "/trajectories/ubq_1d3z_models1-4.xtc";
const std::string kTrr = kData + "/trajectories/ubq_1d3z_models1-4.trr";
const std::string kGro = kData + "/trajectories/ubq_1d3z_m1.gro";
const std::string kCif = kData + "/raw/1d3z.cif";

std::vector<std::vector<Vec3>> pdb_models() { return vorn::test::pdb_model_coordinates(kPdb); }

using vorn::test::file_bytes;

// The tests that write files, each in a directory of its own.
class GromacsFiles : public vorn::test::TempDirTest {
 protected:
  GromacsFiles() : TempDirTest("vorn_gromacs_") {}
  std::string write_temp(const std::string& name, const std::string& bytes) const {
    std::string path = file(name);
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }
};

// XDR: big-endian 4-byte words.
void put(std::string& out, std::uint32_t v) {
  for (int shift = 24; shift >= 0; shift -= 8) out += static_cast<char>((v >> shift) & 0xff);
}
void put_int(std::string& out, std::int32_t v) { put(out, static_cast<std::uint32_t>(v)); }
void put_float(std::string& out, float v) { put(out, std::bit_cast<std::uint32_t>(v)); }

// An XTC frame of at most nine atoms (stored as plain floats, nm).
std::string xtc_frame(const std::vector<Vec3>& nm, float box_nm) {
  std::string f;
  put_int(f, 1995);
  put_int(f, static_cast<std::int32_t>(nm.size()));
  put_int(f, 0);       // step
  put_float(f, 0.0f);  // time
  for (int i = 0; i < 9; ++i) put_float(f, i % 4 == 0 ? box_nm : 0.0f);
  put_int(f, static_cast<std::int32_t>(nm.size()));
  for (const Vec3& p : nm) {
    put_float(f, static_cast<float>(p.x));
    put_float(f, static_cast<float>(p.y));
    put_float(f, static_cast<float>(p.z));
  }
  return f;
}

// A single-precision TRR frame with box and coordinates (nm).
std::string trr_frame(const std::vector<Vec3>& nm, float box_nm) {
  std::string f;
  put_int(f, 1993);
  put_int(f, 13);
  put_int(f, 12);
  f += "GMX_trn_file";
  const auto atoms = static_cast<std::int32_t>(nm.size());
  const std::int32_t sizes[13] = {0, 0, 36, 0, 0, 0, 0, 12 * atoms, 0, 0, atoms, 0, 0};
  for (const std::int32_t s : sizes) put_int(f, s);
  put_float(f, 0.0f);  // time
  put_float(f, 0.0f);  // lambda
  for (int i = 0; i < 9; ++i) put_float(f, i % 4 == 0 ? box_nm : 0.0f);
  for (const Vec3& p : nm) {
    put_float(f, static_cast<float>(p.x));
    put_float(f, static_cast<float>(p.y));
    put_float(f, static_cast<float>(p.z));
  }
  return f;
}

// A double-precision TRR frame with box and coordinates (nm), velocities
// too: 8-byte reals throughout.
std::string trr_double_frame(const std::vector<Vec3>& nm, double box_nm) {
  std::string f;
  const auto put_double = [&f](double v) {
    const auto bits = std::bit_cast<std::uint64_t>(v);
    put(f, static_cast<std::uint32_t>(bits >> 32));
    put(f, static_cast<std::uint32_t>(bits & 0xffffffffu));
  };
  put_int(f, 1993);
  put_int(f, 13);
  put_int(f, 12);
  f += "GMX_trn_file";
  const auto atoms = static_cast<std::int32_t>(nm.size());
  const std::int32_t sizes[13] = {0, 0, 72, 0, 0, 0, 0, 24 * atoms, 24 * atoms, 0, atoms, 0, 0};
  for (const std::int32_t s : sizes) put_int(f, s);
  put_double(0.0);  // time
  put_double(0.0);  // lambda
  for (int i = 0; i < 9; ++i) put_double(i % 4 == 0 ? box_nm : 0.0);
  for (const Vec3& p : nm) {
    put_double(p.x);
    put_double(p.y);
    put_double(p.z);
  }
  for (std::size_t i = 0; i < 3 * nm.size(); ++i) put_double(0.5);  // velocities
  return f;
}

std::string error_of(const std::string& path, TrajectoryFormat format) {
  try {
    GromacsTrajectoryReader reader(path, format);
    std::vector<Vec3> frame;
    while (reader.next(frame)) {
    }
  } catch (const InputError& e) {
    return e.what();
  }
  return "";
}

// The bundled frames against the PDB models. XTC keeps 0.001 nm (its
// precision of 1000 per nm): 0.01 A, so within 0.005 A after rounding, plus
// float32 rounding of values below 10 nm (5e-7 nm). TRR keeps float32 nm:
// within 1e-5 A.
void expect_models(const std::string& path, TrajectoryFormat format, double tolerance) {
  const auto models = pdb_models();
  ASSERT_EQ(models.size(), 4u);
  GromacsTrajectoryReader reader(path, format);
  EXPECT_EQ(reader.atoms(), 1231);
  EXPECT_EQ(reader.complete_frames(), 4);
  std::vector<Vec3> frame;
  double worst = 0.0;
  for (const auto& model : models) {
    ASSERT_TRUE(reader.next(frame));
    ASSERT_EQ(frame.size(), model.size());
    for (std::size_t i = 0; i < model.size(); ++i) {
      worst = std::max({worst, std::abs(frame[i].x - model[i].x), std::abs(frame[i].y - model[i].y),
                        std::abs(frame[i].z - model[i].z)});
    }
    // 100 x 110 x 120 A, written by MDAnalysis in nm.
    EXPECT_NEAR(reader.box()[0].x, 100.0, 1e-4);
    EXPECT_NEAR(reader.box()[1].y, 110.0, 1e-4);
    EXPECT_NEAR(reader.box()[2].z, 120.0, 1e-4);
    EXPECT_EQ(reader.box()[0].y, 0.0);
  }
  EXPECT_LE(worst, tolerance);
  EXPECT_GT(worst, 0.0);  // the formats are not exact
  EXPECT_FALSE(reader.next(frame));
  EXPECT_EQ(reader.frame(), 4);
}

TEST(GromacsTrajectory, XtcFramesAreTheModelsWithinItsPrecision) {
  expect_models(kXtc, TrajectoryFormat::Xtc, 0.005 + 1e-5);
  GromacsTrajectoryReader reader(kXtc, TrajectoryFormat::Xtc);
  std::vector<Vec3> frame;
  ASSERT_TRUE(reader.next(frame));
  EXPECT_DOUBLE_EQ(reader.resolution(), 0.01);
  EXPECT_EQ(reader.format_name(), "XTC");
}

TEST(GromacsTrajectory, TrrFramesAreTheModelsToFloatPrecision) {
  expect_models(kTrr, TrajectoryFormat::Trr, 1e-5);
  GromacsTrajectoryReader reader(kTrr, TrajectoryFormat::Trr);
  EXPECT_EQ(reader.format_name(), "TRR");
  std::vector<Vec3> frame;
  ASSERT_TRUE(reader.next(frame));
  EXPECT_EQ(reader.resolution(), 0.0);
}

// Numbers chosen exact in float: nm become A (times 10).
TEST_F(GromacsFiles, UnitsAndBoxOfSmallFiles) {
  const std::vector<Vec3> first = {{0.5, -1.25, 2.0}, {0.125, 0.0, -0.75}};
  const std::vector<Vec3> second = {{1.5, 1.0, 0.25}, {-2.5, 3.0, 4.0}};
  for (const auto format : {TrajectoryFormat::Xtc, TrajectoryFormat::Trr}) {
    const bool xtc = format == TrajectoryFormat::Xtc;
    const auto frame = xtc ? xtc_frame : trr_frame;
    const std::string path = write_temp(xtc ? "vorn_small.xtc" : "vorn_small.trr",
                                        frame(first, 3.0f) + frame(second, 4.5f));
    GromacsTrajectoryReader reader(path, format);
    EXPECT_EQ(reader.atoms(), 2);
    EXPECT_EQ(reader.complete_frames(), 2);
    std::vector<Vec3> read;
    ASSERT_TRUE(reader.next(read));
    ASSERT_EQ(read.size(), 2u);
    EXPECT_DOUBLE_EQ(read[0].x, 5.0);
    EXPECT_DOUBLE_EQ(read[0].y, -12.5);
    EXPECT_DOUBLE_EQ(read[1].z, -7.5);
    EXPECT_DOUBLE_EQ(reader.box()[0].x, 30.0);
    EXPECT_DOUBLE_EQ(reader.box()[2].z, 30.0);
    ASSERT_TRUE(reader.skip());
    EXPECT_EQ(reader.frame(), 2);
    EXPECT_DOUBLE_EQ(reader.box()[1].y, 45.0);
    EXPECT_FALSE(reader.next(read));
  }
}

// The library is single precision: a double TRR frame arrives as floats.
TEST_F(GromacsFiles, DoublePrecisionTrrWithVelocities) {
  const std::vector<Vec3> nm = {{0.1234567, -2.5, 3.0}, {1.0, 2.0, 0.0009765625}};
  const std::string path =
      write_temp("vorn_double.trr", trr_double_frame(nm, 6.5) + trr_double_frame(nm, 7.0));
  GromacsTrajectoryReader reader(path, TrajectoryFormat::Trr);
  EXPECT_EQ(reader.complete_frames(), 2);
  std::vector<Vec3> read;
  ASSERT_TRUE(reader.next(read));
  ASSERT_EQ(read.size(), 2u);
  EXPECT_DOUBLE_EQ(read[0].x, static_cast<double>(0.1234567f) * 10.0);
  EXPECT_DOUBLE_EQ(read[0].y, -25.0);
  EXPECT_DOUBLE_EQ(read[1].z, 0.009765625);
  EXPECT_DOUBLE_EQ(reader.box()[1].y, 65.0);
  ASSERT_TRUE(reader.next(read));
  EXPECT_DOUBLE_EQ(reader.box()[2].z, 70.0);
  EXPECT_FALSE(reader.next(read));
}

TEST_F(GromacsFiles, TruncatedFilesNameTheFrame) {
  // XTC: cut inside frame 4's compressed coordinates; inside frame 1's
  // header (56 bytes, then 36 of the compressed layout).
  const std::string xtc = file_bytes(kXtc);
  const std::string cut = write_temp("vorn_cut.xtc", xtc.substr(0, xtc.size() - 10));
  EXPECT_EQ(error_of(cut, TrajectoryFormat::Xtc),
            cut + ": frame 4: coordinates cut short (truncated?)");
  const std::string head = write_temp("vorn_head.xtc", xtc.substr(0, 60));
  EXPECT_EQ(error_of(head, TrajectoryFormat::Xtc),
            head + ": frame 1: header cut short (truncated?)");
  // TRR: four frames of equal size; cut inside frame 3.
  const std::string trr = file_bytes(kTrr);
  ASSERT_EQ(trr.size() % 4, 0u);
  const std::size_t frame = trr.size() / 4;
  const std::string cut3 = write_temp("vorn_cut.trr", trr.substr(0, 2 * frame + 100));
  EXPECT_EQ(error_of(cut3, TrajectoryFormat::Trr), cut3 + ": frame 3: cut short (truncated?)");
  // The frames before the damage are read first.
  GromacsTrajectoryReader reader(cut3, TrajectoryFormat::Trr);
  std::vector<Vec3> read;
  EXPECT_TRUE(reader.next(read));
  EXPECT_TRUE(reader.next(read));
  EXPECT_THROW(reader.next(read), InputError);
  // Neither format counts its frames: a file cut between frames is whole.
  const std::string two = write_temp("vorn_two.trr", trr.substr(0, 2 * frame));
  GromacsTrajectoryReader shorter(two, TrajectoryFormat::Trr);
  EXPECT_EQ(shorter.complete_frames(), 2);
}

TEST_F(GromacsFiles, BadFilesAreRefusedBeforeTheLibrarySeesThem) {
  const std::string garbage = write_temp("vorn_garbage.xtc", std::string(500, 'x'));
  EXPECT_EQ(error_of(garbage, TrajectoryFormat::Xtc),
            garbage + ": not an XTC file (magic number 2021161080, expected 1995)");
  const std::string pdb_as_trr = write_temp("vorn_text.trr", file_bytes(kPdb).substr(0, 4000));
  EXPECT_NE(error_of(pdb_as_trr, TrajectoryFormat::Trr).find(": not a TRR file (magic number "),
            std::string::npos);
  const std::string empty = write_temp("vorn_empty.xtc", "");
  EXPECT_EQ(error_of(empty, TrajectoryFormat::Xtc), empty + ": no frames");
  EXPECT_NE(error_of("/nonexistent/x.xtc", TrajectoryFormat::Xtc).find("cannot open"),
            std::string::npos);
  // A second frame whose atom count differs from the first's.
  const std::vector<Vec3> one = {{0.1, 0.2, 0.3}};
  const std::vector<Vec3> two = {{0.1, 0.2, 0.3}, {0.4, 0.5, 0.6}};
  const std::string mixed =
      write_temp("vorn_mixed.trr", trr_frame(one, 1.0f) + trr_frame(two, 1.0f));
  EXPECT_EQ(error_of(mixed, TrajectoryFormat::Trr), mixed + ": frame 2: 2 atoms, frame 1 has 1");
  // A broken magic number after a good frame.
  std::string broken = xtc_frame(one, 1.0f) + xtc_frame(one, 1.0f);
  broken[broken.size() / 2 + 3] = 7;
  const std::string bad2 = write_temp("vorn_bad2.xtc", broken);
  EXPECT_EQ(error_of(bad2, TrajectoryFormat::Xtc),
            bad2 + ": frame 2: no XTC magic number where the frame starts (corrupt?)");
}

// Compressed XTC coordinates changed behind a sound header: the decoded
// values fall outside the bounds the header gives, and the frame is refused.
TEST_F(GromacsFiles, DecodedXtcFrameOutsideItsBoundsIsRefused) {
  std::string xtc = file_bytes(kXtc);
  // Frame 1: 92 bytes of header, then its compressed block (byte count at
  // offset 88), padded to 4.
  const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(xtc[at]); };
  const std::size_t count = (std::size_t{byte(88)} << 24) | (std::size_t{byte(89)} << 16) |
                            (std::size_t{byte(90)} << 8) | byte(91);
  const std::size_t second = 92 + (count + 3) / 4 * 4;
  for (std::size_t k = second + 92 + 124; k < second + 92 + 134; ++k) xtc[k] ^= 0x5a;
  const std::string bad = write_temp("vorn_flipped.xtc", xtc);
  const std::string what = error_of(bad, TrajectoryFormat::Xtc);
  EXPECT_EQ(what.rfind(bad + ": frame 2: coordinate of atom ", 0), 0u) << what;
  EXPECT_NE(what.find(" outside the bounds of the frame's header (corrupt?)"), std::string::npos);
}

ReadOptions trajectory(const std::string& path) {
  ReadOptions options;
  options.keep_hydrogens = true;
  options.trajectory = path;
  return options;
}

std::vector<vorn::io::Model> read_all(const std::string& topology, const ReadOptions& options) {
  StructureReader reader(topology, options);
  std::vector<vorn::io::Model> models;
  vorn::io::Model m;
  while (reader.next(m)) models.push_back(m);
  return models;
}

// TRR frames go through the topology's records at 0.001 A: the PDB models'
// own values, for each topology format; names, residues and order kept.
TEST(Trajectory, TopologiesInEachFormatGiveTheModels) {
  ReadOptions plain;
  plain.keep_hydrogens = true;
  const auto models = read_all(kPdb, plain);
  ASSERT_EQ(models.size(), 4u);
  for (const std::string& topology : {kPdb, kCif, kGro}) {
    SCOPED_TRACE(topology);
    const auto frames = read_all(topology, trajectory(kTrr));
    ASSERT_EQ(frames.size(), 4u);
    for (std::size_t m = 0; m < 4; ++m) {
      EXPECT_EQ(frames[m].number, static_cast<int>(m + 1));
      ASSERT_EQ(frames[m].atoms.size(), models[m].atoms.size());
      for (std::size_t i = 0; i < frames[m].atoms.size(); ++i) {
        const vorn::Atom& a = models[m].atoms[i];
        const vorn::Atom& b = frames[m].atoms[i];
        EXPECT_EQ(a.name, b.name);
        EXPECT_EQ(a.element, b.element);
        EXPECT_EQ(a.residue_name, b.residue_name);
        EXPECT_EQ(a.residue_number, b.residue_number);
        EXPECT_EQ(a.position.x, b.position.x);
        EXPECT_EQ(a.position.y, b.position.y);
        EXPECT_EQ(a.position.z, b.position.z);
      }
    }
  }
}

TEST(Trajectory, XtcFramesWithinTheirPrecision) {
  ReadOptions plain;
  plain.keep_hydrogens = true;
  const auto models = read_all(kPdb, plain);
  ReadOptions options = trajectory(kXtc);
  vorn::io::parse_frame_range("2:4:2", options);
  StructureReader reader(kGro, options);
  EXPECT_EQ(reader.format_name(), "XTC");
  vorn::io::Model m;
  std::vector<int> numbers;
  while (reader.next(m)) {
    numbers.push_back(m.number);
    const auto& model = models[static_cast<std::size_t>(m.number - 1)];
    ASSERT_EQ(m.atoms.size(), model.atoms.size());
    for (std::size_t i = 0; i < m.atoms.size(); ++i) {
      EXPECT_NEAR(m.atoms[i].position.x, model.atoms[i].position.x, 0.0051);
      EXPECT_NEAR(m.atoms[i].position.z, model.atoms[i].position.z, 0.0051);
    }
  }
  EXPECT_EQ(numbers, (std::vector<int>{2, 4}));
}

TEST(Trajectory, SharesOfXtcFramesCoverEachOnce) {
  std::vector<int> all;
  for (int offset = 0; offset < 3; ++offset) {
    ReadOptions options = trajectory(kXtc);
    options.stride = 3;
    options.offset = offset;
    for (const auto& m : read_all(kPdb, options)) all.push_back(m.number);
  }
  std::sort(all.begin(), all.end());
  EXPECT_EQ(all, (std::vector<int>{1, 2, 3, 4}));
}

TEST(Trajectory, AtomCountMismatchNamesBothFiles) {
  const std::string other = kData + "/structures/dna_1lcd_duplex_m1.pdb";
  try {
    StructureReader frames(other, trajectory(kXtc));
    FAIL() << "no error";
  } catch (const InputError& e) {
    EXPECT_EQ(std::string(e.what()), kXtc + ": 1231 atoms, but the topology " + other + " has 492");
  }
}

TEST_F(GromacsFiles, TruncatedTrajectoryAfterTheFramesBeforeIt) {
  const std::string xtc = file_bytes(kXtc);
  const std::string cut = write_temp("vorn_cut_models.xtc", xtc.substr(0, xtc.size() - 10));
  StructureReader reader(kPdb, trajectory(cut));
  vorn::io::Model m;
  int read = 0;
  try {
    while (reader.next(m)) ++read;
    FAIL() << "no error";
  } catch (const InputError& e) {
    EXPECT_EQ(std::string(e.what()), cut + ": frame 4: coordinates cut short (truncated?)");
  }
  EXPECT_EQ(read, 3);
}

}  // namespace
