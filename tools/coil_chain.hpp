// Disordered chains for tests and benchmarks: conformers of a polypeptide
// with ideal backbone geometry, backbone dihedrals drawn from a coil
// distribution per residue type, side chains in one standard rotamer, grown
// residue by residue with clashing residues redrawn. The choices and their
// sources are in docs/coil.md; the data tables are in coil_tables.cpp.
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "seeded_random.hpp"
#include "vorn/structure.hpp"

namespace vorn_tools::coil {

// Ideal backbone geometry, Engh & Huber (Acta Cryst. A47, 392-400, 1991):
// lengths in A, angles in degrees. The peptide bond is trans (omega 180).
inline constexpr double kBondNitrogenAlpha = 1.458;           // N-CA
inline constexpr double kBondAlphaCarbonyl = 1.525;           // CA-C
inline constexpr double kBondPeptide = 1.329;                 // C-N
inline constexpr double kBondCarbonylOxygen = 1.231;          // C=O (and C-OXT)
inline constexpr double kBondAlphaBeta = 1.530;               // CA-CB
inline constexpr double kAngleNitrogenAlphaCarbonyl = 111.2;  // N-CA-C
inline constexpr double kAngleAlphaCarbonylNitrogen = 116.2;  // CA-C-N
inline constexpr double kAngleCarbonylNitrogenAlpha = 121.7;  // C-N-CA
inline constexpr double kAngleAlphaCarbonylOxygen = 120.8;    // CA-C=O (and CA-C-OXT)
inline constexpr double kAngleCarbonylAlphaBeta = 110.1;      // C-CA-CB
inline constexpr double kOmega = 180.0;

// Geometry on vorn::Vec3, angles in degrees.
double distance(const vorn::Vec3& a, const vorn::Vec3& b);
// The angle a-b-c at b.
double bond_angle(const vorn::Vec3& a, const vorn::Vec3& b, const vorn::Vec3& c);
// The torsion a-b-c-d in (-180, 180] (IUPAC sign: clockwise positive seen
// along b->c).
double dihedral(const vorn::Vec3& a, const vorn::Vec3& b, const vorn::Vec3& c, const vorn::Vec3& d);
// An angle brought into (-180, 180].
double wrap_degrees(double angle);
// The point d with |cd| = bond, angle b-c-d = angle and torsion a-b-c-d =
// torsion. Throws std::invalid_argument when a, b, c are collinear.
vorn::Vec3 place_atom(const vorn::Vec3& a, const vorn::Vec3& b, const vorn::Vec3& c, double bond,
                      double angle, double torsion);

// One Gaussian basin of a coil distribution of (phi, psi), degrees.
struct Basin {
  std::string_view name;  // "beta", "PPII", "alphaR", "alphaL", ...
  double weight = 0.0;    // population; the weights of a class sum to 1
  double phi = 0.0;
  double psi = 0.0;
  double phi_sd = 0.0;
  double psi_sd = 0.0;
};

// The coil class of a residue: its basins and a name for the docs and tests.
struct CoilClass {
  std::string_view name;
  std::span<const Basin> basins;
};

// The class of `residue` (one-letter code) followed by `next` ('\0' at the
// end of the chain): glycine, proline, pre-proline (any other residue before
// a proline), or one of four classes of the other residues.
CoilClass coil_class(char residue, char next);
// Every class, for tests and docs.
std::span<const CoilClass> coil_classes();

struct Dihedrals {
  double phi = 0.0;
  double psi = 0.0;
  std::size_t basin = 0;  // index into the class's basins
};

// A basin drawn by its weight, then phi and psi as independent normal
// deviates about its centre, wrapped into (-180, 180].
Dihedrals draw_dihedrals(std::span<const Basin> basins, SeededRandom& random);

// One side-chain heavy atom placed from three atoms of the residue by
// internal coordinates: |c-atom| = bond, angle b-c-atom, torsion
// a-b-c-atom = chi[chi_index - 1] + torsion (chi_index 0: torsion alone).
// The atom is bonded to c.
struct SideChainAtom {
  std::string_view name;
  std::string_view element;
  std::string_view a, b, c;
  double bond = 0.0;
  double angle = 0.0;
  int chi_index = 0;
  double torsion = 0.0;
};

// A residue type: its side chain (after CB), the bonds that close rings,
// its rotamer and the angle N-CA-CB.
struct ResidueTemplate {
  char code = ' ';
  std::string_view name;  // three-letter PDB name
  bool has_beta = true;   // false for glycine
  double angle_nitrogen_alpha_beta = 110.5;
  std::span<const SideChainAtom> side_chain;
  std::span<const std::array<std::string_view, 2>> ring_closures;
  std::array<double, 4> chi{};  // the rotamer, degrees
};

// The template of a one-letter code, or nullptr for a letter that is not
// one of the 20 standard amino acids.
const ResidueTemplate* find_residue(char code);

// The torsion C-N-CA-CB of an L-amino acid (negative) that, with the ideal
// N-CA-C and the given N-CA-CB, makes C-CA-CB the ideal 110.1 degrees.
double beta_torsion(double angle_nitrogen_alpha_beta);

// The chi2 of a proline (from its chi1 and side-chain template) that closes
// the ring with CD-N at kBondProlineRing.
inline constexpr double kBondProlineRing = 1.473;
double proline_ring_chi2();

// Heavy atoms of a residue in a chain: backbone N CA C O, CB, side chain,
// and OXT on the last residue.
std::size_t heavy_atom_count(const ResidueTemplate& residue, bool last);

// Closest distances allowed between heavy atoms more than three bonds apart,
// A: the outer limits of the hard-sphere contacts of Ramachandran's steric
// maps (docs/coil.md). Sulfur counts as carbon.
struct ClashRule {
  double carbon_carbon = 3.0;
  double carbon_nitrogen = 2.8;
  double carbon_oxygen = 2.7;
  double polar_polar = 2.6;  // N or O with N or O
};

// The closest distance the rule allows between two elements ("C", "N", "O",
// "S").
double clash_distance(const ClashRule& rule, std::string_view element_a,
                      std::string_view element_b);

struct GrowthCounts {
  long residues_drawn = 0;  // every (phi, psi) drawn
  long backtracks = 0;
  long restarts = 0;
};

// Builds conformers of one sequence. The topology (atoms, bonds, the pairs
// excluded from the clash test) is made once; each conformer is grown from
// the random numbers alone, so a seed decides the conformers.
class CoilChainBuilder {
 public:
  // Throws std::invalid_argument for an empty sequence or a letter that is
  // not a standard amino acid.
  explicit CoilChainBuilder(std::string sequence, ClashRule rule = {});

  // The heavy atoms of one clash-free conformer, residues numbered from 1 in
  // chain A. Throws std::runtime_error when no clash-free chain is found.
  std::vector<vorn::Atom> build_heavy_atoms(SeededRandom& random);
  // The same with every hydrogen (vorn::add_hydrogens): NH3+ at the
  // N-terminus (NH2+ for proline), COO- at the C-terminus.
  std::vector<vorn::Atom> build(SeededRandom& random);

  const std::string& sequence() const { return sequence_; }
  const GrowthCounts& counts() const { return counts_; }
  // The proline ring's chi2 that closes CD-N at its ideal length.
  double proline_chi2() const { return proline_chi2_; }

 private:
  // Places the atoms that the residue's (phi, psi) decide: its C, O and
  // side chain, and N and CA of the next residue (OXT on the last).
  void place_residue(std::size_t residue, const Dihedrals& dihedrals);
  // Inserts those atoms into the cell list one by one; on the first clash
  // removes them again and returns false.
  bool insert_residue(std::size_t residue);
  // Removes the atoms inserted after the first `count`.
  void remove_to(std::size_t count);

  std::string sequence_;
  ClashRule rule_;
  std::vector<const ResidueTemplate*> residues_;
  std::vector<CoilClass> classes_;
  std::vector<std::size_t> first_atom_;     // per residue, then the atom count
  std::vector<vorn::Atom> atoms_;           // the heavy atoms; positions of the build under way
  std::vector<std::size_t> contact_class_;  // 0 C or S, 1 N, 2 O
  std::array<double, 9> limit_squared_{};   // by pair of contact classes
  // Per atom, the other atoms within three bonds, ascending.
  std::vector<std::vector<std::size_t>> excluded_;
  // Per side-chain atom (and CB, OXT): the atoms a, b, c it is placed from.
  std::vector<std::array<std::size_t, 3>> references_;
  // Per residue, the atoms its (phi, psi) place, in the order of insertion.
  std::vector<std::vector<std::size_t>> unit_atoms_;
  std::vector<double> beta_torsions_;  // per residue, C-N-CA-CB
  double proline_chi2_ = 0.0;
  // The cell list over the atoms inserted (in the order of `inserted_`):
  // cubes of the largest clash distance, keyed by packed integer coordinates.
  std::unordered_map<long long, std::vector<std::size_t>> cells_;
  std::vector<std::size_t> inserted_;
  std::vector<long long> atom_cell_;
  GrowthCounts counts_;
};

}  // namespace vorn_tools::coil
