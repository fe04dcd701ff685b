// Backbone coupling sites: which couplings exist, chain breaks, and the
// amide hydrogens built where a structure has none.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "vorn/couplings.hpp"

namespace vorn {
namespace {

Atom atom(const std::string& chain, int resnum, const std::string& resname, const std::string& name,
          Vec3 p, char icode = ' ') {
  Atom a;
  a.chain = chain;
  a.residue_number = resnum;
  a.insertion_code = icode;
  a.residue_name = resname;
  a.name = name;
  a.element = name.substr(0, 1);
  a.position = p;
  return a;
}

// Three residues along x: backbone N, CA, C per residue with peptide bonds
// of 1.33 A between C(i-1) and N(i), in the xy plane.
std::vector<Atom> tripeptide(const std::string& second = "ALA", double gap = 0.0) {
  std::vector<Atom> atoms;
  const char* names[3] = {"SER", second.c_str(), "GLY"};
  double x = 0.0;
  for (int r = 0; r < 3; ++r) {
    if (r == 2) x += gap;
    atoms.push_back(atom("A", r + 1, names[r], "N", {x, 0.0, 0.0}));
    atoms.push_back(atom("A", r + 1, names[r], "CA", {x + 1.0, 1.0, 0.0}));
    atoms.push_back(atom("A", r + 1, names[r], "C", {x + 2.2, 0.3, 0.0}));
    x += 3.3;  // N(i+1) 1.1 A beyond C(i) along x, 0.3 below: |C-N| = 1.14 A
  }
  return atoms;
}

double distance(const Vec3& a, const Vec3& b) {
  return std::sqrt((a.x - b.x) * (a.x - b.x) + (a.y - b.y) * (a.y - b.y) +
                   (a.z - b.z) * (a.z - b.z));
}

std::vector<std::string> types_of(const BackboneSites& b, int residue) {
  std::vector<std::string> t;
  for (const CouplingSite& s : b.sites)
    if (s.residue_number == residue) t.push_back(s.type + ":" + s.atom1 + "-" + s.atom2);
  return t;
}

TEST(BackboneSites, BuildsAmideHydrogensOnTheExternalBisector) {
  const std::vector<Atom> atoms = tripeptide();
  const BackboneSites b = backbone_sites(atoms);
  // Residues 2 and 3 have a bonded C' before them; residue 1 does not.
  EXPECT_EQ(b.built_hydrogens, 2);
  EXPECT_EQ(types_of(b, 1), (std::vector<std::string>{"CA-C:CA-C"}));
  EXPECT_EQ(types_of(b, 2),
            (std::vector<std::string>{"N-H:N-H", "CA-C:CA-C", "C-N:C-N", "C-HN:C-H"}));
  for (const CouplingSite& s : b.sites) {
    if (s.type != "N-H" || s.residue_number != 2) continue;
    EXPECT_TRUE(s.built_hydrogen);
    const Vec3 n = atoms[3].position;
    const Vec3 ca = atoms[4].position;
    const Vec3 c_prev = atoms[2].position;
    const Vec3 h{n.x + s.vector.x, n.y + s.vector.y, n.z + s.vector.z};
    EXPECT_NEAR(distance(n, h), 1.02, 1e-12);
    // Equal angles H-N-C' and H-N-CA, both above 90 degrees (external).
    const auto angle = [&](const Vec3& a) {
      const double d =
          (h.x - n.x) * (a.x - n.x) + (h.y - n.y) * (a.y - n.y) + (h.z - n.z) * (a.z - n.z);
      return std::acos(d / (distance(h, n) * distance(a, n)));
    };
    EXPECT_NEAR(angle(c_prev), angle(ca), 1e-12);
    EXPECT_GT(angle(ca), std::acos(-0.0));
    EXPECT_NEAR(h.z, 0.0, 1e-12);  // in the plane of the three atoms
  }
}

TEST(BackboneSites, ProlineGetsNoHydrogenAndAChainBreakNoPeptideCouplings) {
  const BackboneSites pro = backbone_sites(tripeptide("PRO"));
  EXPECT_EQ(pro.built_hydrogens, 1);  // residue 3 only
  EXPECT_EQ(types_of(pro, 2), (std::vector<std::string>{"CA-C:CA-C", "C-N:C-N"}));

  // Residue 3 moved 2 A further: C'(2)-N(3) is 3.1 A, a chain break.
  const BackboneSites broken = backbone_sites(tripeptide("ALA", 2.0));
  EXPECT_EQ(types_of(broken, 3), (std::vector<std::string>{"CA-C:CA-C"}));
  // A different chain is never the preceding residue.
  std::vector<Atom> two_chains = tripeptide();
  for (int i = 6; i < 9; ++i) two_chains[i].chain = "B";
  EXPECT_EQ(types_of(backbone_sites(two_chains), 3), (std::vector<std::string>{"CA-C:CA-C"}));
}

TEST(BackboneSites, ExistingHydrogensAreUsedAndNothingIsBuilt) {
  std::vector<Atom> atoms = tripeptide();
  atoms.push_back(atom("A", 3, "GLY", "HA2", {7.6, 1.9, 0.5}));
  atoms.push_back(atom("A", 3, "GLY", "HA3", {7.6, 1.9, -0.5}));
  // An amide hydrogen on residue 2 only ("HN", the X-PLOR name).
  atoms.insert(atoms.begin() + 6, atom("A", 2, "ALA", "HN", {3.0, -1.0, 0.0}));
  atoms.insert(atoms.begin() + 7, atom("A", 2, "ALA", "HA", {4.0, 2.0, 0.0}));
  const BackboneSites b = backbone_sites(atoms);
  EXPECT_EQ(b.built_hydrogens, 0);
  EXPECT_EQ(types_of(b, 2), (std::vector<std::string>{"N-H:N-HN", "CA-HA:CA-HA", "CA-C:CA-C",
                                                      "C-N:C-N", "C-HN:C-HN"}));
  // Glycine: both alpha protons; residue 3 has no amide hydrogen.
  EXPECT_EQ(types_of(b, 3),
            (std::vector<std::string>{"CA-HA:CA-HA2", "CA-HA:CA-HA3", "CA-C:CA-C", "C-N:C-N"}));
  // Building can be switched off.
  EXPECT_EQ(backbone_sites(tripeptide(), false).built_hydrogens, 0);
}

TEST(BackboneSites, InsertionCodesSeparateResidues) {
  std::vector<Atom> atoms = tripeptide();
  for (int i = 3; i < 6; ++i) {
    atoms[i].residue_number = 1;
    atoms[i].insertion_code = 'A';
  }
  const BackboneSites b = backbone_sites(atoms);
  int with_icode = 0;
  for (const CouplingSite& s : b.sites) with_icode += s.insertion_code == 'A' ? 1 : 0;
  EXPECT_EQ(with_icode, 4);  // N-H, CA-C, C-N, C-HN of residue 1A
}

TEST(BackboneSites, StandardDistances) {
  EXPECT_DOUBLE_EQ(standard_distance("N-H"), 1.02);
  EXPECT_DOUBLE_EQ(standard_distance("CA-HA"), 1.09);
  EXPECT_DOUBLE_EQ(standard_distance("CA-C"), 1.525);
  EXPECT_DOUBLE_EQ(standard_distance("C-N"), 1.329);
  EXPECT_DOUBLE_EQ(standard_distance("C-HN"), 2.04);
}

}  // namespace
}  // namespace vorn
