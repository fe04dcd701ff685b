// The DCD reader and trajectories as models: the test trajectories hold the
// four models of the bundled ubiquitin ensemble (tools/make_trajectories.py).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "io/dcd_reader.hpp"
#include "io/structure_reader.hpp"
#include "pdb_coordinates.hpp"

namespace {

using vorn::Vec3;
using vorn::io::DcdReader;
using vorn::io::InputError;
using vorn::io::ReadOptions;
using vorn::io::StructureReader;

const std::string kData = VORN_TEST_DATA_DIR;
const std::string kPdb = kData + "/structures/ubq_1d3z_models1-4.pdb";
const std::string kDcd = kData + "/trajectories/ubq_1d3z_models1-4.dcd";
const std::string kDcdBig = kData + "/trajectories/ubq_1d3z_models1-4_be.dcd";

std::vector<std::vector<Vec3>> pdb_models() { return vorn::test::pdb_model_coordinates(kPdb); }

using vorn::test::file_bytes;

std::string write_temp(const std::string& name, const std::string& bytes) {
  const std::string path = (std::filesystem::temp_directory_path() / name).string();
  std::ofstream(path, std::ios::binary) << bytes;
  return path;
}

// Both byte orders give the PDB models' coordinates in Angstrom, to float
// precision: float32 holds values below 128 A within 4e-6 A.
void expect_models(const std::string& path, bool big_endian) {
  const auto models = pdb_models();
  ASSERT_EQ(models.size(), 4u);
  DcdReader reader(path);
  EXPECT_EQ(reader.big_endian(), big_endian);
  EXPECT_TRUE(reader.has_unit_cell());
  EXPECT_EQ(reader.atoms(), static_cast<int>(models[0].size()));
  EXPECT_EQ(reader.announced_frames(), 4);
  std::vector<Vec3> frame;
  for (const auto& model : models) {
    ASSERT_TRUE(reader.next(frame));
    ASSERT_EQ(frame.size(), model.size());
    for (std::size_t i = 0; i < model.size(); ++i) {
      EXPECT_NEAR(frame[i].x, model[i].x, 1e-5);
      EXPECT_NEAR(frame[i].y, model[i].y, 1e-5);
      EXPECT_NEAR(frame[i].z, model[i].z, 1e-5);
    }
  }
  EXPECT_FALSE(reader.next(frame));
  EXPECT_EQ(reader.frame(), 4);
}

TEST(DcdReader, LittleEndianFramesAreTheModels) { expect_models(kDcd, false); }
TEST(DcdReader, BigEndianFramesAreTheModels) { expect_models(kDcdBig, true); }

std::string error_of(const std::string& path) {
  try {
    DcdReader reader(path);
    std::vector<Vec3> frame;
    while (reader.next(frame)) {
    }
  } catch (const InputError& e) {
    return e.what();
  }
  return "";
}

TEST(DcdReader, TruncatedFileNamesTheFrame) {
  const std::string bytes = file_bytes(kDcd);
  // Four frames after the header, each a unit cell record (48 bytes) and
  // three coordinate records, with their markers.
  const std::size_t atoms = pdb_models()[0].size();
  const std::size_t frame = 56 + 3 * (4 * atoms + 8);
  const std::size_t header = bytes.size() - 4 * frame;
  // Inside frame 3's coordinates.
  const std::string cut = write_temp("vorn_cut.dcd", bytes.substr(0, header + 2 * frame + 100));
  EXPECT_NE(error_of(cut).find(cut + ": frame 3: "), std::string::npos) << error_of(cut);
  // At the end of frame 2: the header announces four.
  const std::string short2 = write_temp("vorn_short.dcd", bytes.substr(0, header + 2 * frame));
  const std::string what = error_of(short2);
  EXPECT_NE(what.find(short2 + ": frame 3: missing"), std::string::npos) << what;
  EXPECT_EQ(
      error_of(write_temp("vorn_head.dcd", bytes.substr(0, 50)))
          .rfind((std::filesystem::temp_directory_path() / "vorn_head.dcd").string() + ": ", 0),
      0u);
}

TEST(DcdReader, NotADcdFile) {
  EXPECT_NE(error_of(kPdb).find("not a DCD file"), std::string::npos);
}

ReadOptions trajectory(const std::string& path) {
  ReadOptions options;
  options.keep_hydrogens = true;
  options.trajectory = path;
  return options;
}

TEST(Trajectory, FramesAreModelsOfTheTopology) {
  StructureReader models(kPdb, [] {
    ReadOptions o;
    o.keep_hydrogens = true;
    return o;
  }());
  StructureReader frames(kPdb, trajectory(kDcdBig));
  EXPECT_EQ(frames.format_name(), "DCD");
  vorn::io::Model a, b;
  int count = 0;
  while (models.next(a)) {
    ASSERT_TRUE(frames.next(b));
    ++count;
    EXPECT_EQ(b.number, count);
    ASSERT_EQ(a.atoms.size(), b.atoms.size());
    for (std::size_t i = 0; i < a.atoms.size(); ++i) {
      EXPECT_EQ(a.atoms[i].name, b.atoms[i].name);
      // The same 3-decimal values back through the records.
      EXPECT_EQ(a.atoms[i].position.x, b.atoms[i].position.x);
      EXPECT_EQ(a.atoms[i].position.y, b.atoms[i].position.y);
      EXPECT_EQ(a.atoms[i].position.z, b.atoms[i].position.z);
    }
  }
  EXPECT_FALSE(frames.next(b));
  EXPECT_EQ(count, 4);
}

TEST(Trajectory, FrameSelectionAndShares) {
  ReadOptions options = trajectory(kDcd);
  vorn::io::parse_frame_range("2:4:2", options);
  StructureReader frames(kPdb, options);
  vorn::io::Model m;
  std::vector<int> numbers;
  while (frames.next(m)) numbers.push_back(m.number);
  EXPECT_EQ(numbers, (std::vector<int>{2, 4}));

  options = trajectory(kDcd);
  vorn::io::parse_frame_range("2:", options);
  options.stride = 2;
  options.offset = 1;
  StructureReader share(kPdb, options);
  numbers.clear();
  while (share.next(m)) numbers.push_back(m.number);
  EXPECT_EQ(numbers, (std::vector<int>{3}));

  EXPECT_THROW(vorn::io::parse_frame_range("3:2", options), InputError);
  EXPECT_THROW(vorn::io::parse_frame_range("0:2", options), InputError);
  EXPECT_THROW(vorn::io::parse_frame_range("2", options), InputError);
}

TEST(Trajectory, AtomCountMustMatchTheTopology) {
  const std::string other = kData + "/structures/dna_1lcd_duplex_m1.pdb";
  try {
    StructureReader frames(other, trajectory(kDcd));
    FAIL() << "no error";
  } catch (const InputError& e) {
    EXPECT_EQ(std::string(e.what()), kDcd + ": 1231 atoms, but the topology " + other + " has 492");
  }
}

}  // namespace
