#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "core/fatal.hpp"
#include "simulation/frame.hpp"

namespace vorn {
namespace {

// Arrays used from index 1, element 0 set to a value that must never be read.
struct Atoms {
  std::vector<double> x{1e9}, y{1e9}, z{1e9}, mass{1e9};
  void add(double xi, double yi, double zi, double mi = 12.011) {
    x.push_back(xi);
    y.push_back(yi);
    z.push_back(zi);
    mass.push_back(mi);
  }
  int count() const { return static_cast<int>(x.size()) - 1; }
};

TEST(CenterMass, PlainMeanWhateverTheMasses) {
  Atoms light;
  light.add(0.0, 0.0, 0.0, 1.0);
  light.add(4.0, 6.0, -2.0, 1.0);
  Atoms heavy;
  heavy.add(0.0, 0.0, 0.0, 1.0);
  heavy.add(4.0, 6.0, -2.0, 200.0);
  double c_light[4] = {};
  double c_heavy[4] = {};
  EXPECT_EQ(calculate_center_mass(2, light.x, light.y, light.z, light.mass, c_light), 2.0);
  EXPECT_EQ(calculate_center_mass(2, heavy.x, heavy.y, heavy.z, heavy.mass, c_heavy), 2.0);
  EXPECT_EQ(c_heavy[1], 2.0);
  EXPECT_EQ(c_heavy[2], 3.0);
  EXPECT_EQ(c_heavy[3], -1.0);
  for (int c = 1; c <= 3; ++c) {
    EXPECT_EQ(c_light[c], c_heavy[c]);
  }
}

TEST(CenterMass, ReturnsTheNumberOfAtomsAndSumsInOrder) {
  Atoms atoms;
  atoms.add(0.1, 1.0, 3.0);
  atoms.add(0.2, 2.0, 4.0);
  atoms.add(0.3, 3.0, 5.0);
  double c[4] = {};
  EXPECT_EQ(calculate_center_mass(3, atoms.x, atoms.y, atoms.z, atoms.mass, c), 3.0);
  EXPECT_EQ(c[1], ((0.0 + 0.1) + 0.2 + 0.3) / 3.0);
  EXPECT_EQ(c[2], 2.0);
  EXPECT_EQ(c[3], 4.0);
}

TEST(CenterMass, NoAtomsGivesNotANumber) {
  Atoms atoms;
  double c[4] = {};
  EXPECT_EQ(calculate_center_mass(0, atoms.x, atoms.y, atoms.z, atoms.mass, c), 0.0);
  EXPECT_TRUE(std::isnan(c[1]));
  EXPECT_TRUE(std::isnan(c[2]));
  EXPECT_TRUE(std::isnan(c[3]));
}

TEST(CenterMass, CountBeyondTheArraysIsRejected) {
  Atoms atoms;
  atoms.add(1.0, 2.0, 3.0);
  double c[4] = {};
  EXPECT_THROW(calculate_center_mass(2, atoms.x, atoms.y, atoms.z, atoms.mass, c), FatalError);
}

TEST(Shift, SubtractsTheOriginFromEveryAtom) {
  Atoms atoms;
  atoms.add(1.0, 2.0, 3.0);
  atoms.add(-1.0, 0.5, 10.0);
  const double origin[4] = {99.0, 1.0, -2.0, 0.5};
  shift_coordinate_system(origin, 2, atoms.x, atoms.y, atoms.z);
  EXPECT_EQ(atoms.x[1], 0.0);
  EXPECT_EQ(atoms.y[1], 4.0);
  EXPECT_EQ(atoms.z[1], 2.5);
  EXPECT_EQ(atoms.x[2], -2.0);
  EXPECT_EQ(atoms.y[2], 2.5);
  EXPECT_EQ(atoms.z[2], 9.5);
  EXPECT_EQ(atoms.x[0], 1e9);  // element 0 untouched
}

TEST(Frame, SingleAtomCentredHasBothDistancesZero) {
  Atoms atoms;
  atoms.add(12.5, -3.25, 7.0, 32.06);
  double c[4] = {};
  calculate_center_mass(1, atoms.x, atoms.y, atoms.z, atoms.mass, c);
  EXPECT_EQ(c[1], 12.5);
  EXPECT_EQ(c[2], -3.25);
  EXPECT_EQ(c[3], 7.0);
  shift_coordinate_system(c, 1, atoms.x, atoms.y, atoms.z);
  double max_d = -1.0;
  double min_d = -1.0;
  calculate_extreme_length(1, atoms.x, atoms.y, atoms.z, max_d, min_d);
  EXPECT_EQ(max_d, 0.0);
  EXPECT_EQ(min_d, 0.0);
}

TEST(ExtremeLength, LargestAndSmallestDistance) {
  Atoms atoms;
  atoms.add(3.0, 4.0, 0.0);   // 5
  atoms.add(0.0, 0.0, -2.0);  // 2
  atoms.add(2.0, 3.0, 6.0);   // 7
  double max_d = 0.0;
  double min_d = 0.0;
  calculate_extreme_length(3, atoms.x, atoms.y, atoms.z, max_d, min_d);
  EXPECT_EQ(max_d, 7.0);
  EXPECT_EQ(min_d, 2.0);
}

TEST(ExtremeLength, AtomsBeyondTheCapReportTheCap) {
  // Every atom farther than sqrt(100000) = 316.23 A from the centre.
  Atoms atoms;
  atoms.add(400.0, 0.0, 0.0);
  atoms.add(-400.0, 0.0, 0.0);
  atoms.add(0.0, 0.0, 317.0);
  double max_d = 0.0;
  double min_d = 0.0;
  calculate_extreme_length(3, atoms.x, atoms.y, atoms.z, max_d, min_d);
  EXPECT_EQ(max_d, 400.0);
  EXPECT_EQ(min_d, std::sqrt(100000.0));
  EXPECT_NEAR(min_d, 316.23, 0.005);
}

TEST(ExtremeLength, AtomJustInsideTheCapIsTaken) {
  Atoms atoms;
  atoms.add(316.0, 0.0, 0.0);
  atoms.add(500.0, 0.0, 0.0);
  double max_d = 0.0;
  double min_d = 0.0;
  calculate_extreme_length(2, atoms.x, atoms.y, atoms.z, max_d, min_d);
  EXPECT_EQ(min_d, 316.0);
  EXPECT_EQ(max_d, 500.0);
}

TEST(ExtremeLength, NoAtomsLeavesTheStartValues) {
  Atoms atoms;
  double max_d = -1.0;
  double min_d = -1.0;
  calculate_extreme_length(0, atoms.x, atoms.y, atoms.z, max_d, min_d);
  EXPECT_EQ(max_d, 0.0);
  EXPECT_EQ(min_d, std::sqrt(100000.0));
}

}  // namespace
}  // namespace vorn
