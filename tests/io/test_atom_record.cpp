// PDB atom records of topology atoms, and the coordinate formatting of
// trajectory frames against printf's own.
#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>

#include "io/atom_record.hpp"

namespace {

using vorn::io::append_atom_record;
using vorn::io::format_coordinate;
using vorn::io::InputError;
using vorn::io::RecordAtom;

std::string printf_text(double v) {
  char text[32];
  std::snprintf(text, sizeof text, "%8.3f", v);
  return text;
}

std::string fast_text(double v) {
  char out[8];
  format_coordinate(v, out);
  return {out, 8};
}

TEST(FormatCoordinate, EdgeValuesAsPrintf) {
  // Exact binary halves at the third decimal (1.0625, 2.0625, -0.0625 ...),
  // halves that are not exact (0.0005), signed zeros, the range's ends.
  for (const double v :
       {0.0,      -0.0,      -0.0001, 0.0004,  0.0005,   -0.0005,   1.0625,   2.0625,
        -0.0625,  0.4995,    52.923,  -90.016, 9999.999, 9999.9994, -999.999, -999.9994,
        123.4565, -123.4565, 1e-9,    -1e-9,   0.9995,   9.9995,    99.9995,  999.9995}) {
    EXPECT_EQ(fast_text(v), printf_text(v)) << v;
  }
}

TEST(FormatCoordinate, RandomValuesAsPrintf) {
  std::mt19937_64 random(7);
  std::uniform_real_distribution<double> wide(-999.9994, 9999.9994);
  std::uniform_real_distribution<double> narrow(-2.0, 2.0);
  for (int i = 0; i < 200000; ++i) {
    const double v = i % 2 == 0 ? wide(random) : narrow(random);
    ASSERT_EQ(fast_text(v), printf_text(v)) << v;
    // As trajectories give them: float nm times 10, and float A.
    const double from_nm = static_cast<double>(static_cast<float>(v / 10.0)) * 10.0;
    ASSERT_EQ(fast_text(from_nm), printf_text(from_nm)) << from_nm;
    const auto from_float = static_cast<double>(static_cast<float>(v));
    ASSERT_EQ(fast_text(from_float), printf_text(from_float)) << from_float;
  }
}

TEST(AtomRecord, ColumnsOfTheRecord) {
  RecordAtom a;
  a.name = "CA";
  a.residue_name = "MET";
  a.chain = "A";
  a.residue_number = 12;
  a.element = "C";
  std::string text;
  append_atom_record(a, 7, text);
  ASSERT_EQ(text.back(), '\n');
  ASSERT_GE(text.size(), 79u);
  EXPECT_EQ(text.substr(0, 6), "ATOM  ");
  EXPECT_EQ(text.substr(6, 5), "    7");
  EXPECT_EQ(text.substr(12, 4), " CA ");  // columns 13-16, name from 14
  EXPECT_EQ(text.substr(17, 3), "MET");
  EXPECT_EQ(text.substr(21, 1), "A");
  EXPECT_EQ(text.substr(22, 4), "  12");
  EXPECT_EQ(text.substr(30, 24), "   0.000   0.000   0.000");
  EXPECT_EQ(text.substr(54, 6), "  1.00");
  EXPECT_EQ(text.substr(76, 2), " C");
  a.name = "HD21";  // four characters from column 13
  a.hetatm = true;
  text.clear();
  append_atom_record(a, 100001, text);
  EXPECT_EQ(text.substr(0, 6), "HETATM");
  EXPECT_EQ(text.substr(6, 5), "    1");  // serial numbers wrap at 100000
  EXPECT_EQ(text.substr(12, 4), "HD21");
}

TEST(AtomRecord, WhatPdbColumnsCannotHold) {
  RecordAtom a;
  a.name = "CA";
  a.residue_name = "MET";
  std::string text;
  a.name = "CAXYZ";
  EXPECT_THROW(append_atom_record(a, 1, text), InputError);
  a.name = "CA";
  a.residue_name = "HISD";
  EXPECT_THROW(append_atom_record(a, 1, text), InputError);
  a.residue_name = "HIS";
  a.chain = "AB";
  EXPECT_THROW(append_atom_record(a, 1, text), InputError);
  a.chain = "A";
  a.residue_number = 10000;
  EXPECT_THROW(append_atom_record(a, 1, text), InputError);
  a.residue_number = -1000;
  EXPECT_THROW(append_atom_record(a, 1, text), InputError);
  EXPECT_TRUE(text.empty());
  a.residue_number = 9999;
  append_atom_record(a, 1, text);
  EXPECT_EQ(text.substr(22, 4), "9999");
}

}  // namespace
