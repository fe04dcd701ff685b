// The .gro reader: fixed columns, nm to A, the box, and its errors.
#include <gtest/gtest.h>

#include <string>

#include "io/gro_reader.hpp"

namespace {

using vorn::io::InputError;
using vorn::io::parse_gro;

// Two atoms as GROMACS writes them (%5d%-5s%5s%5d%8.3f%8.3f%8.3f).
const std::string kTwo =
    "two atoms\n"
    "    2\n"
    "    1MET      N    1   5.292  -9.002   0.851\n"
    "   12ALA     CA    2   0.100   0.000 -10.250\n"
    "   3.00000   4.00000   5.00000\n";

TEST(GroReader, ColumnsAndUnits) {
  const auto gro = parse_gro(kTwo, "two.gro");
  EXPECT_EQ(gro.title, "two atoms");
  ASSERT_EQ(gro.atoms.size(), 2u);
  EXPECT_EQ(gro.atoms[0].residue_number, 1);
  EXPECT_EQ(gro.atoms[0].residue_name, "MET");
  EXPECT_EQ(gro.atoms[0].name, "N");
  EXPECT_DOUBLE_EQ(gro.atoms[0].position.x, 52.92);
  EXPECT_DOUBLE_EQ(gro.atoms[0].position.y, -90.02);
  EXPECT_EQ(gro.atoms[1].residue_number, 12);
  EXPECT_EQ(gro.atoms[1].name, "CA");
  EXPECT_DOUBLE_EQ(gro.atoms[1].position.z, -102.5);
  EXPECT_DOUBLE_EQ(gro.box[0].x, 30.0);
  EXPECT_DOUBLE_EQ(gro.box[1].y, 40.0);
  EXPECT_DOUBLE_EQ(gro.box[2].z, 50.0);
  EXPECT_EQ(gro.box[0].y, 0.0);
}

TEST(GroReader, WiderCoordinatesVelocitiesAndTriclinicBox) {
  // Width 10 (four decimals), velocities after the positions; a box of
  // nine numbers: v1(x) v2(y) v3(z) v1(y) v1(z) v2(x) v2(z) v3(x) v3(y).
  const std::string text =
      "t\n1\n    1SOL     OW    1    1.2500   -0.5000    2.0000  0.1000  0.2000  0.3000\n"
      " 1 2 3 0 0 0.5 0 0.25 0.75\n";
  const auto gro = parse_gro(text, "w.gro");
  ASSERT_EQ(gro.atoms.size(), 1u);
  EXPECT_DOUBLE_EQ(gro.atoms[0].position.x, 12.5);
  EXPECT_DOUBLE_EQ(gro.atoms[0].position.y, -5.0);
  EXPECT_DOUBLE_EQ(gro.atoms[0].position.z, 20.0);
  EXPECT_DOUBLE_EQ(gro.box[1].x, 5.0);
  EXPECT_DOUBLE_EQ(gro.box[2].x, 2.5);
  EXPECT_DOUBLE_EQ(gro.box[2].y, 7.5);
  EXPECT_DOUBLE_EQ(gro.box[2].z, 30.0);
}

std::string error_of(const std::string& text) {
  try {
    parse_gro(text, "bad.gro");
  } catch (const InputError& e) {
    return e.what();
  }
  return "";
}

TEST(GroReader, ErrorsNameTheLine) {
  EXPECT_EQ(error_of(""), "bad.gro: empty file (no title line)");
  EXPECT_EQ(error_of("t\n"), "bad.gro:2: the atom count is missing (truncated?)");
  EXPECT_EQ(error_of("t\nx\n"), "bad.gro:2: \"x\" is not a positive atom count");
  EXPECT_EQ(error_of("t\n0\n"), "bad.gro:2: \"0\" is not a positive atom count");
  // Cut after the first atom; the box missing.
  const std::string first = kTwo.substr(0, kTwo.find("   12ALA"));
  EXPECT_EQ(error_of(first), "bad.gro:4: the file ends after 1 of 2 atoms (truncated?)");
  const std::string no_box = kTwo.substr(0, kTwo.find("   3.000"));
  EXPECT_EQ(error_of(no_box), "bad.gro:5: the box line is missing (truncated?)");
  EXPECT_EQ(error_of("t\n1\n    1MET      N\n1 1 1\n"),
            "bad.gro:3: atom line too short for its fixed columns");
  EXPECT_EQ(error_of("t\n1\n    xMET      N    1   5.292  -9.002   0.851\n1 1 1\n"),
            "bad.gro:3: residue number \"    x\" is not a number");
  EXPECT_EQ(error_of("t\n1\n    1MET      N    1   5.292  -9.0x2   0.851\n1 1 1\n"),
            "bad.gro:3: coordinate \"  -9.0x2\" is not a number");
  EXPECT_EQ(error_of("t\n1\n    1MET      N    1   5.292  -9.002   0.851\n1 1\n"),
            "bad.gro:4: the box line holds 2 numbers (3 or 9 expected)");
  EXPECT_EQ(error_of("t\n1\n    1MET           1   5.292  -9.002   0.851\n1 1 1\n"),
            "bad.gro:3: no atom name in columns 11-15");
}

TEST(GroReader, FileNames) {
  EXPECT_TRUE(vorn::io::is_gro_file("a/b.GRO"));
  EXPECT_FALSE(vorn::io::is_gro_file("a.pdb"));
  EXPECT_THROW(vorn::io::read_gro("/nonexistent.gro"), InputError);
}

}  // namespace
