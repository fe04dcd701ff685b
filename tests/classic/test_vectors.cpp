// Internuclear vectors of the couplings taken from the atoms read.
#include <gtest/gtest.h>

#include <initializer_list>

#include "classic/dc_file.hpp"

namespace vorn {
namespace {

// Atom type indices of the atom name table.
constexpr int N = 211;
constexpr int H = 551;
constexpr int CA = 114;
constexpr int HA = 476;
constexpr int C = 1;
constexpr int O = 7;  // any other type

struct Molecule {
  AtomArrays atoms;
  int count = 0;
  void add(int residue, int type, double x, double y, double z) {
    ++count;
    atoms.res_nr[count] = residue;
    atoms.atom[count] = type;
    atoms.x[count] = x;
    atoms.y[count] = y;
    atoms.z[count] = z;
  }
};

struct Couplings {
  CouplingArrays c;
  int count = 0;
  void add(int residue, int type) {
    ++count;
    c.dc_res[count] = residue;
    c.dcmax[count] = type;
  }
};

// Two residues with distinct, easily told apart coordinates:
// residue r atom coordinates are (100 r + k, 10 k, -k) for the k-th atom.
Molecule two_residues() {
  Molecule m;
  for (int r = 1; r <= 2; ++r) {
    int k = 0;
    for (int type : {N, CA, C, O, H, HA}) {
      ++k;
      m.add(r, type, 100.0 * r + k, 10.0 * k, -1.0 * k);
    }
  }
  return m;
}

// Coordinates of the k-th atom of residue r in two_residues().
void expect_vector(const CouplingArrays& c, int i, int r1, int k1, int r2, int k2) {
  EXPECT_DOUBLE_EQ(c.coor_x[i], (100.0 * r1 + k1) - (100.0 * r2 + k2)) << "coupling " << i;
  EXPECT_DOUBLE_EQ(c.coor_y[i], 10.0 * k1 - 10.0 * k2) << "coupling " << i;
  EXPECT_DOUBLE_EQ(c.coor_z[i], -1.0 * k1 + 1.0 * k2) << "coupling " << i;
}

// Positions in two_residues(): N 1, CA 2, C 3, O 4, H 5, HA 6.
TEST(ReadingVectors, EachTypeTakesItsAtomPairFirstMinusSecond) {
  const Molecule m = two_residues();
  Couplings cp;
  cp.add(2, 0);  // N(2) - H(2)
  cp.add(2, 1);  // CA(2) - HA(2)
  cp.add(2, 2);  // CA(2) - C(2)
  cp.add(2, 3);  // C(1) - N(2)
  cp.add(2, 4);  // C(1) - H(2)
  cp.add(1, 0);  // N(1) - H(1)
  reading_vectors(cp.count, cp.c, m.count, m.atoms);
  expect_vector(cp.c, 1, 2, 1, 2, 5);
  expect_vector(cp.c, 2, 2, 2, 2, 6);
  expect_vector(cp.c, 3, 2, 2, 2, 3);
  expect_vector(cp.c, 4, 1, 3, 2, 1);
  expect_vector(cp.c, 5, 1, 3, 2, 5);
  expect_vector(cp.c, 6, 1, 1, 1, 5);
}

TEST(ReadingVectors, FirstResidueTypeThreeAndFourReuseThePreviousFirstAtom) {
  const Molecule m = two_residues();
  Couplings cp;
  cp.add(2, 1);  // leaves x1 = CA(2)
  cp.add(1, 3);  // no C in residue 0: CA(2) - N(1)
  cp.add(1, 4);  // CA(2) - H(1)
  reading_vectors(cp.count, cp.c, m.count, m.atoms);
  expect_vector(cp.c, 2, 2, 2, 1, 1);
  expect_vector(cp.c, 3, 2, 2, 1, 5);
}

TEST(ReadingVectors, VeryFirstCouplingWithoutFirstAtomUsesTheOrigin) {
  const Molecule m = two_residues();
  Couplings cp;
  cp.add(1, 3);
  reading_vectors(cp.count, cp.c, m.count, m.atoms);
  EXPECT_DOUBLE_EQ(cp.c.coor_x[1], -101.0);
  EXPECT_DOUBLE_EQ(cp.c.coor_y[1], -10.0);
  EXPECT_DOUBLE_EQ(cp.c.coor_z[1], 1.0);
}

TEST(ReadingVectors, FirstAtomAfterTheSecondInTheFileIsNotSeen) {
  Molecule m;
  m.add(1, N, 1.0, 2.0, 3.0);
  m.add(1, H, 1.5, 2.0, 3.0);
  m.add(2, H, 10.0, 0.0, 0.0);  // stands before its N
  m.add(2, N, 11.0, 0.0, 0.0);
  Couplings cp;
  cp.add(1, 0);
  cp.add(2, 0);
  reading_vectors(cp.count, cp.c, m.count, m.atoms);
  EXPECT_DOUBLE_EQ(cp.c.coor_x[1], -0.5);
  // N(1) is still in x1 when H(2) stops the scan.
  EXPECT_DOUBLE_EQ(cp.c.coor_x[2], 1.0 - 10.0);
  EXPECT_DOUBLE_EQ(cp.c.coor_y[2], 2.0);
  EXPECT_DOUBLE_EQ(cp.c.coor_z[2], 3.0);
}

TEST(ReadingVectors, MissingSecondAtomLeavesTheVectorUnwritten) {
  const Molecule m = two_residues();
  Couplings cp;
  cp.add(3, 0);  // no residue 3
  cp.add(1, 0);
  // The caller's arrays start at zero; a marker shows that nothing is written.
  EXPECT_EQ(CouplingArrays().coor_x[1], 0.0);
  cp.c.coor_x[1] = 7.0;
  cp.c.coor_y[1] = 8.0;
  cp.c.coor_z[1] = 9.0;
  reading_vectors(cp.count, cp.c, m.count, m.atoms);
  EXPECT_EQ(cp.c.coor_x[1], 7.0);
  EXPECT_EQ(cp.c.coor_y[1], 8.0);
  EXPECT_EQ(cp.c.coor_z[1], 9.0);
  expect_vector(cp.c, 2, 1, 1, 1, 5);
}

TEST(ReadingVectors, MissingFirstAtomReusesTheLastOne) {
  Molecule m = two_residues();
  m.add(3, H, 0.0, 0.0, 0.0);  // residue 3 has no N
  Couplings cp;
  cp.add(2, 0);
  cp.add(3, 0);
  reading_vectors(cp.count, cp.c, m.count, m.atoms);
  // x1 = N(2) = (201, 10, -1).
  EXPECT_DOUBLE_EQ(cp.c.coor_x[2], 201.0);
  EXPECT_DOUBLE_EQ(cp.c.coor_y[2], 10.0);
  EXPECT_DOUBLE_EQ(cp.c.coor_z[2], -1.0);
}

TEST(ReadingVectors, TypeFiveKeepsThePairOfThePreviousCoupling) {
  const Molecule m = two_residues();
  Couplings cp;
  cp.add(1, 2);  // CA - C
  cp.add(2, 5);  // still CA - C, offset 0
  cp.add(2, 3);  // C(i-1) - N
  cp.add(2, 5);  // still C(1) - N(2), offset 1
  reading_vectors(cp.count, cp.c, m.count, m.atoms);
  expect_vector(cp.c, 2, 2, 2, 2, 3);
  expect_vector(cp.c, 4, 1, 3, 2, 1);
}

TEST(ReadingVectors, FirstCouplingOfTypeFiveLooksForAtomTypeZero) {
  Molecule m;
  m.add(4, N, 9.0, 9.0, 9.0);
  m.add(4, 0, 1.0, 2.0, 3.0);  // an atom whose type index is 0
  Couplings cp;
  cp.add(4, 5);
  cp.c.coor_x[1] = 5.0;
  cp.c.coor_y[1] = 5.0;
  cp.c.coor_z[1] = 5.0;
  reading_vectors(cp.count, cp.c, m.count, m.atoms);
  // Pair (0, 0), offset 0: the atom is first and second atom at once, so
  // x1 is set just before the scan stops on it.
  EXPECT_EQ(cp.c.coor_x[1], 0.0);
  EXPECT_EQ(cp.c.coor_y[1], 0.0);
  EXPECT_EQ(cp.c.coor_z[1], 0.0);
}

TEST(ReadingVectors, NoCouplingsTouchNothing) {
  const Molecule m = two_residues();
  Couplings cp;
  cp.c.coor_x[1] = 5.0;
  reading_vectors(0, cp.c, m.count, m.atoms);
  EXPECT_EQ(cp.c.coor_x[1], 5.0);
}

}  // namespace
}  // namespace vorn
