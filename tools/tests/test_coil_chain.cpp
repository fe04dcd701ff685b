// Unit tests of the coil-chain generator: geometry by internal coordinates,
// the coil distributions and their sampling, the residue templates, and the
// chain growth (determinism, atom counts, ideal geometry, no clash).
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <numbers>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "coil_chain.hpp"
#include "vorn/structure.hpp"

namespace {

using vorn::Vec3;
using vorn_tools::SeededRandom;
using namespace vorn_tools::coil;

constexpr const char* kAllResidues = "ACDEFGHIKLMNPQRSTVWY";

TEST(CoilGeometry, WrapDegreesKeepsAnglesInTheHalfOpenRange) {
  EXPECT_DOUBLE_EQ(wrap_degrees(0.0), 0.0);
  EXPECT_DOUBLE_EQ(wrap_degrees(180.0), 180.0);
  EXPECT_DOUBLE_EQ(wrap_degrees(-180.0), 180.0);
  EXPECT_DOUBLE_EQ(wrap_degrees(540.0), 180.0);
  EXPECT_DOUBLE_EQ(wrap_degrees(-190.0), 170.0);
  EXPECT_DOUBLE_EQ(wrap_degrees(190.0), -170.0);
  EXPECT_DOUBLE_EQ(wrap_degrees(-720.5), -0.5);
}

TEST(CoilGeometry, MeasuresOfAHandMadeConfiguration) {
  const Vec3 a{0.0, 1.0, 0.0}, b{0.0, 0.0, 0.0}, c{1.0, 0.0, 0.0};
  EXPECT_DOUBLE_EQ(distance(a, c), std::sqrt(2.0));
  EXPECT_NEAR(bond_angle(a, b, c), 90.0, 1e-12);
  EXPECT_NEAR(bond_angle(Vec3{2.0, 0.0, 0.0}, b, c), 0.0, 1e-6);
  EXPECT_NEAR(dihedral(a, b, c, Vec3{1.0, 1.0, 0.0}), 0.0, 1e-12);
  EXPECT_NEAR(dihedral(a, b, c, Vec3{1.0, -1.0, 0.0}), 180.0, 1e-12);
  // IUPAC: seen along b->c, a (front) turns clockwise onto d (back) for a
  // positive torsion; with a on +y and d on +z that is +90.
  EXPECT_NEAR(dihedral(a, b, c, Vec3{1.0, 0.0, 1.0}), 90.0, 1e-12);
  EXPECT_NEAR(dihedral(a, b, c, Vec3{1.0, 0.0, -1.0}), -90.0, 1e-12);
}

TEST(CoilGeometry, PlaceAtomReproducesItsInternalCoordinates) {
  const Vec3 a{0.3, -1.2, 0.5}, b{1.1, 0.2, -0.4}, c{2.4, 0.1, 0.3};
  for (const double torsion : {-179.0, -120.0, -60.0, 0.0, 35.0, 90.0, 180.0}) {
    for (const double angle : {100.0, 109.5, 120.0, 150.0}) {
      const Vec3 d = place_atom(a, b, c, 1.53, angle, torsion);
      EXPECT_NEAR(distance(c, d), 1.53, 1e-12);
      EXPECT_NEAR(bond_angle(b, c, d), angle, 1e-9);
      EXPECT_NEAR(wrap_degrees(dihedral(a, b, c, d) - torsion), 0.0, 1e-9);
    }
  }
}

TEST(CoilGeometry, PlaceAtomRejectsCollinearReferences) {
  EXPECT_THROW(place_atom(Vec3{0, 0, 0}, Vec3{1, 0, 0}, Vec3{2, 0, 0}, 1.0, 110.0, 60.0),
               std::invalid_argument);
}

TEST(CoilGeometry, BetaTorsionGivesTheIdealAnglesAtTheAlphaCarbon) {
  // N, CA, C with the ideal N-CA-C angle, built here independently.
  const double t = kAngleNitrogenAlphaCarbonyl * std::numbers::pi / 180.0;
  const Vec3 n{0.0, 0.0, 0.0}, ca{kBondNitrogenAlpha, 0.0, 0.0};
  const Vec3 c{ca.x - kBondAlphaCarbonyl * std::cos(t), kBondAlphaCarbonyl * std::sin(t), 0.0};
  for (const double angle : {110.5, 103.0}) {
    const double torsion = beta_torsion(angle);
    // L-amino acids: C-N-CA-CB near -122 degrees.
    EXPECT_LT(torsion, -110.0);
    EXPECT_GT(torsion, -130.0);
    const Vec3 cb = place_atom(c, n, ca, kBondAlphaBeta, angle, torsion);
    EXPECT_NEAR(bond_angle(c, ca, cb), kAngleCarbonylAlphaBeta, 1e-9);
    EXPECT_NEAR(bond_angle(n, ca, cb), angle, 1e-9);
  }
}

TEST(CoilGeometry, ProlineRingClosesWithAnExoPucker) {
  const double chi2 = proline_ring_chi2();
  const ResidueTemplate& pro = *find_residue('P');
  EXPECT_LT(pro.chi[0], 0.0);  // C-gamma exo: chi1 negative, chi2 positive
  EXPECT_GT(chi2, 20.0);
  EXPECT_LT(chi2, 50.0);
  // Built here from the template: CD-N at the bond length, and the ring's
  // angles at N and CD near those of real prolines (112 and 104 degrees).
  const double t = kAngleNitrogenAlphaCarbonyl * std::numbers::pi / 180.0;
  const Vec3 n{0.0, 0.0, 0.0}, ca{kBondNitrogenAlpha, 0.0, 0.0};
  const Vec3 c{ca.x - kBondAlphaCarbonyl * std::cos(t), kBondAlphaCarbonyl * std::sin(t), 0.0};
  const Vec3 cb = place_atom(c, n, ca, kBondAlphaBeta, pro.angle_nitrogen_alpha_beta,
                             beta_torsion(pro.angle_nitrogen_alpha_beta));
  const SideChainAtom& g = pro.side_chain[0];
  const SideChainAtom& d = pro.side_chain[1];
  const Vec3 cg = place_atom(n, ca, cb, g.bond, g.angle, pro.chi[0]);
  const Vec3 cd = place_atom(ca, cb, cg, d.bond, d.angle, chi2);
  EXPECT_NEAR(distance(cd, n), kBondProlineRing, 1e-9);
  EXPECT_NEAR(bond_angle(ca, n, cd), 112.0, 2.0);
  EXPECT_NEAR(bond_angle(cg, cd, n), 104.0, 2.0);
}

TEST(CoilTemplates, TheTwentyAminoAcidsAndNothingElse) {
  std::set<std::string> names;
  for (const char* p = kAllResidues; *p != '\0'; ++p) {
    const ResidueTemplate* r = find_residue(*p);
    ASSERT_NE(r, nullptr) << *p;
    EXPECT_EQ(r->code, *p);
    names.insert(std::string(r->name));
  }
  EXPECT_EQ(names.size(), 20u);
  for (const char code : {'B', 'J', 'O', 'U', 'X', 'Z', 'a', '*', '-', ' '}) {
    EXPECT_EQ(find_residue(code), nullptr) << code;
  }
}

TEST(CoilTemplates, HeavyAtomCountsOfTheStandardResidues) {
  // Heavy atoms of the amino acids inside a chain, counted by hand.
  const std::map<char, std::size_t> expected{{'A', 5}, {'R', 11}, {'N', 8},  {'D', 8},  {'C', 6},
                                             {'Q', 9}, {'E', 9},  {'G', 4},  {'H', 10}, {'I', 8},
                                             {'L', 8}, {'K', 9},  {'M', 8},  {'F', 11}, {'P', 7},
                                             {'S', 6}, {'T', 7},  {'W', 14}, {'Y', 12}, {'V', 7}};
  for (const auto& [code, count] : expected) {
    EXPECT_EQ(heavy_atom_count(*find_residue(code), false), count) << code;
    EXPECT_EQ(heavy_atom_count(*find_residue(code), true), count + 1) << code;
  }
}

TEST(CoilDistribution, ClassesOfResidues) {
  EXPECT_EQ(coil_class('G', 'P').name, "glycine");
  EXPECT_EQ(coil_class('P', 'P').name, "proline");
  EXPECT_EQ(coil_class('A', 'P').name, "pre-proline");
  EXPECT_EQ(coil_class('A', '\0').name, "helix-favouring");
  EXPECT_EQ(coil_class('V', 'A').name, "branched-aromatic");
  EXPECT_EQ(coil_class('W', 'A').name, "branched-aromatic");
  EXPECT_EQ(coil_class('N', 'A').name, "asx");
  EXPECT_EQ(coil_class('S', 'A').name, "general");
  for (const CoilClass& cls : coil_classes()) {
    double sum = 0.0;
    for (const Basin& b : cls.basins) {
      sum += b.weight;
      EXPECT_GT(b.phi_sd, 0.0);
      EXPECT_GT(b.psi_sd, 0.0);
    }
    EXPECT_NEAR(sum, 1.0, 1e-12) << cls.name;
  }
  // Proline's phi is held near -65 degrees by its ring.
  for (const Basin& b : coil_class('P', 'A').basins) {
    EXPECT_DOUBLE_EQ(b.phi, -65.0);
    EXPECT_LE(b.phi_sd, 10.0);
  }
}

TEST(CoilDistribution, DrawsFollowTheBasinWeightsAndShapes) {
  constexpr int kDraws = 200000;
  SeededRandom random(2024);
  for (const CoilClass& cls : coil_classes()) {
    std::vector<double> count(cls.basins.size(), 0.0), sum_sin(cls.basins.size(), 0.0),
        sum_cos(cls.basins.size(), 0.0), sum_psi_sq(cls.basins.size(), 0.0);
    for (int k = 0; k < kDraws; ++k) {
      const Dihedrals d = draw_dihedrals(cls.basins, random);
      ASSERT_LT(d.basin, cls.basins.size());
      ASSERT_GT(d.phi, -180.0);
      ASSERT_LE(d.phi, 180.0);
      ASSERT_GT(d.psi, -180.0);
      ASSERT_LE(d.psi, 180.0);
      const Basin& b = cls.basins[d.basin];
      count[d.basin] += 1.0;
      const double rad = std::numbers::pi / 180.0;
      sum_sin[d.basin] += std::sin((d.phi - b.phi) * rad);
      sum_cos[d.basin] += std::cos((d.phi - b.phi) * rad);
      const double dpsi = wrap_degrees(d.psi - b.psi);
      sum_psi_sq[d.basin] += dpsi * dpsi;
    }
    for (std::size_t k = 0; k < cls.basins.size(); ++k) {
      const Basin& b = cls.basins[k];
      const double p = count[k] / kDraws;
      const double sigma = std::sqrt(b.weight * (1.0 - b.weight) / kDraws);
      EXPECT_NEAR(p, b.weight, 4.5 * sigma) << cls.name << " " << b.name;
      // The circular mean offset of phi from the centre is zero, and the
      // spread of psi about its centre is the basin's sd.
      const double offset = std::atan2(sum_sin[k], sum_cos[k]) * 180.0 / std::numbers::pi;
      EXPECT_NEAR(offset, 0.0, 5.0 * b.phi_sd / std::sqrt(count[k])) << cls.name << " " << b.name;
      const double sd = std::sqrt(sum_psi_sq[k] / count[k]);
      EXPECT_NEAR(sd, b.psi_sd, 5.0 * b.psi_sd / std::sqrt(2.0 * count[k]))
          << cls.name << " " << b.name;
    }
  }
}

TEST(CoilDistribution, SameSeedSameDraws) {
  SeededRandom one(99), two(99), other(100);
  bool differs = false;
  for (int k = 0; k < 1000; ++k) {
    const Dihedrals a = draw_dihedrals(coil_class('A', 'A').basins, one);
    const Dihedrals b = draw_dihedrals(coil_class('A', 'A').basins, two);
    const Dihedrals c = draw_dihedrals(coil_class('A', 'A').basins, other);
    EXPECT_EQ(a.phi, b.phi);
    EXPECT_EQ(a.psi, b.psi);
    EXPECT_EQ(a.basin, b.basin);
    differs = differs || a.phi != c.phi;
  }
  EXPECT_TRUE(differs);
}

TEST(CoilClash, DistancesOfTheRule) {
  const ClashRule rule;
  EXPECT_DOUBLE_EQ(clash_distance(rule, "C", "C"), 3.0);
  EXPECT_DOUBLE_EQ(clash_distance(rule, "S", "C"), 3.0);
  EXPECT_DOUBLE_EQ(clash_distance(rule, "C", "N"), 2.8);
  EXPECT_DOUBLE_EQ(clash_distance(rule, "O", "S"), 2.7);
  EXPECT_DOUBLE_EQ(clash_distance(rule, "N", "O"), 2.6);
  EXPECT_DOUBLE_EQ(clash_distance(rule, "O", "O"), 2.6);
}

TEST(CoilChain, RejectsLettersThatAreNotAminoAcids) {
  EXPECT_THROW(CoilChainBuilder(""), std::invalid_argument);
  try {
    CoilChainBuilder builder("ACXD");
    FAIL() << "no exception";
  } catch (const std::invalid_argument& e) {
    EXPECT_NE(std::string(e.what()).find("'X' at position 3"), std::string::npos) << e.what();
  }
  EXPECT_THROW(CoilChainBuilder("acd"), std::invalid_argument);
}

// Heavy atoms bonded by distance, as a reader would see them.
std::vector<std::vector<std::size_t>> bonds_by_distance(const std::vector<vorn::Atom>& atoms) {
  std::vector<std::vector<std::size_t>> bonded(atoms.size());
  for (std::size_t i = 0; i < atoms.size(); ++i) {
    for (std::size_t j = i + 1; j < atoms.size(); ++j) {
      const double cutoff = (atoms[i].element == "S" || atoms[j].element == "S") ? 2.0 : 1.9;
      if (distance(atoms[i].position, atoms[j].position) < cutoff) {
        bonded[i].push_back(j);
        bonded[j].push_back(i);
      }
    }
  }
  return bonded;
}

TEST(CoilChain, ConformersAreDeterministicIdealAndFreeOfClashes) {
  const std::string sequence = std::string(kAllResidues) + "GPAPS";
  CoilChainBuilder first(sequence), second(sequence);
  SeededRandom random_one(5), random_two(5);
  std::size_t expected_atoms = 0;
  for (std::size_t i = 0; i < sequence.size(); ++i) {
    expected_atoms += heavy_atom_count(*find_residue(sequence[i]), i + 1 == sequence.size());
  }
  const ClashRule rule;
  for (int model = 0; model < 20; ++model) {
    const std::vector<vorn::Atom> atoms = first.build_heavy_atoms(random_one);
    const std::vector<vorn::Atom> again = second.build_heavy_atoms(random_two);
    ASSERT_EQ(atoms.size(), expected_atoms);
    ASSERT_EQ(again.size(), atoms.size());
    for (std::size_t k = 0; k < atoms.size(); ++k) {
      ASSERT_EQ(atoms[k].position.x, again[k].position.x);
      ASSERT_EQ(atoms[k].position.y, again[k].position.y);
      ASSERT_EQ(atoms[k].position.z, again[k].position.z);
    }
    // Rings: Phe, Tyr, His, 2 of Trp, 3 Pro.
    const auto bonded = bonds_by_distance(atoms);
    std::size_t bonds = 0;
    for (const auto& list : bonded) bonds += list.size();
    EXPECT_EQ(bonds / 2, atoms.size() - 1 + 8);
    // Pairs more than three bonds apart keep their distance.
    for (std::size_t i = 0; i < atoms.size(); ++i) {
      std::vector<int> depth(atoms.size(), -1);
      std::vector<std::size_t> frontier{i};
      depth[i] = 0;
      for (int level = 1; level <= 3; ++level) {
        std::vector<std::size_t> next;
        for (const std::size_t a : frontier) {
          for (const std::size_t b : bonded[a]) {
            if (depth[b] < 0) {
              depth[b] = level;
              next.push_back(b);
            }
          }
        }
        frontier = next;
      }
      for (std::size_t j = i + 1; j < atoms.size(); ++j) {
        if (depth[j] >= 0) continue;
        const double limit = clash_distance(rule, atoms[i].element, atoms[j].element);
        EXPECT_GE(distance(atoms[i].position, atoms[j].position), limit)
            << atoms[i].name << atoms[i].residue_number << " " << atoms[j].name
            << atoms[j].residue_number;
      }
    }
    // Ideal peptide geometry and trans peptide bonds.
    for (std::size_t i = 0; i + 1 < atoms.size(); ++i) {
      if (atoms[i].name != "C" || atoms[i].residue_number == static_cast<int>(sequence.size())) {
        continue;
      }
      std::size_t n = i + 1;
      while (atoms[n].name != "N") ++n;
      const Vec3& c = atoms[i].position;
      const Vec3& ca = atoms[i - 1].position;
      EXPECT_NEAR(distance(c, atoms[n].position), kBondPeptide, 1e-9);
      EXPECT_NEAR(bond_angle(ca, c, atoms[n].position), kAngleAlphaCarbonylNitrogen, 1e-9);
      EXPECT_NEAR(std::abs(dihedral(ca, c, atoms[n].position, atoms[n + 1].position)), 180.0, 1e-9);
    }
  }
  SeededRandom other(6);
  const std::vector<vorn::Atom> different = first.build_heavy_atoms(other);
  EXPECT_NE(different.back().position.x, second.build_heavy_atoms(random_two).back().position.x);
}

TEST(CoilChain, HydrogensForTheCouplings) {
  const std::string sequence = "MPKGPA";
  CoilChainBuilder builder(sequence);
  SeededRandom random(3);
  const std::vector<vorn::Atom> atoms = builder.build(random);
  std::map<std::string, int> names;
  for (const vorn::Atom& atom : atoms) {
    if (atom.element == "H") ++names[atom.name + "/" + std::to_string(atom.residue_number)];
  }
  // Amide H on residues 3 (Lys), 4 (Gly) and 6 (Ala) only: 1 is the
  // N-terminus and 2 and 5 are prolines; NH3+ on the N-terminus.
  for (const int r : {3, 4, 6}) EXPECT_EQ(names["H/" + std::to_string(r)], 1) << r;
  for (const int r : {1, 2, 5}) EXPECT_EQ(names.count("H/" + std::to_string(r)), 0u) << r;
  for (const char* h : {"H1/1", "H2/1", "H3/1", "HA/1", "HA/2", "HA2/4", "HA3/4", "HA/6"}) {
    EXPECT_EQ(names[h], 1) << h;
  }
  for (const vorn::Atom& atom : atoms) EXPECT_EQ(atom.chain, "A");
}

}  // namespace
