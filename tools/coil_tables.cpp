// The data of the coil chains: per-class (phi, psi) basins, side-chain
// internal coordinates and rotamers. docs/coil.md gives the sources and the
// reasoning behind each number.
#include <array>
#include <span>
#include <string_view>

#include "coil_chain.hpp"

namespace vorn_tools::coil {
namespace {

// (phi, psi) basins, degrees: name, weight, phi, psi, sd phi, sd psi. The
// centres and widths are those of the coil regions of the Ramachandran map;
// the weights are rounded populations in the range reported by coil
// libraries (docs/coil.md).
constexpr Basin kGeneral[] = {
    {"beta", 0.30, -120.0, 130.0, 20.0, 20.0},
    {"PPII", 0.30, -70.0, 145.0, 12.0, 15.0},
    {"alphaR", 0.35, -65.0, -40.0, 12.0, 15.0},
    {"alphaL", 0.05, 60.0, 40.0, 12.0, 15.0},
};
// Ala, Leu, Met, Glu, Gln, Lys, Arg: more alpha-R.
constexpr Basin kHelixFavouring[] = {
    {"beta", 0.25, -120.0, 130.0, 20.0, 20.0},
    {"PPII", 0.30, -70.0, 145.0, 12.0, 15.0},
    {"alphaR", 0.42, -65.0, -40.0, 12.0, 15.0},
    {"alphaL", 0.03, 60.0, 40.0, 12.0, 15.0},
};
// Val, Ile, Thr (beta-branched), Phe, Tyr, Trp (aromatic): more beta.
constexpr Basin kBranchedAromatic[] = {
    {"beta", 0.45, -120.0, 130.0, 20.0, 20.0},
    {"PPII", 0.25, -70.0, 145.0, 12.0, 15.0},
    {"alphaR", 0.28, -65.0, -40.0, 12.0, 15.0},
    {"alphaL", 0.02, 60.0, 40.0, 12.0, 15.0},
};
// Asn, Asp: more alpha-L.
constexpr Basin kAsx[] = {
    {"beta", 0.25, -120.0, 130.0, 20.0, 20.0},
    {"PPII", 0.25, -70.0, 145.0, 12.0, 15.0},
    {"alphaR", 0.38, -65.0, -40.0, 12.0, 15.0},
    {"alphaL", 0.12, 60.0, 40.0, 12.0, 15.0},
};
// A residue before a proline (not Gly, not Pro): alpha-R suppressed.
constexpr Basin kPreProline[] = {
    {"beta", 0.40, -120.0, 130.0, 20.0, 20.0},
    {"PPII", 0.45, -70.0, 145.0, 12.0, 15.0},
    {"alphaR", 0.12, -65.0, -40.0, 12.0, 15.0},
    {"alphaL", 0.03, 60.0, 40.0, 12.0, 15.0},
};
// Proline: phi held by the ring near -65.
constexpr Basin kProline[] = {
    {"PPII", 0.60, -65.0, 145.0, 8.0, 15.0},
    {"alphaR", 0.40, -65.0, -35.0, 8.0, 15.0},
};
// Glycine: the map is symmetric under (phi, psi) -> (-phi, -psi).
constexpr Basin kGlycine[] = {
    {"beta", 0.26, 180.0, 180.0, 20.0, 20.0},  {"PPII", 0.15, -75.0, 150.0, 15.0, 15.0},
    {"PPII'", 0.15, 75.0, -150.0, 15.0, 15.0}, {"alphaR", 0.22, -65.0, -35.0, 12.0, 15.0},
    {"alphaL", 0.22, 65.0, 35.0, 12.0, 15.0},
};

constexpr CoilClass kClasses[] = {
    {"general", kGeneral},
    {"helix-favouring", kHelixFavouring},
    {"branched-aromatic", kBranchedAromatic},
    {"asx", kAsx},
    {"pre-proline", kPreProline},
    {"proline", kProline},
    {"glycine", kGlycine},
};

// Side chains. Columns: name, element, a, b, c, bond, angle b-c-atom,
// chi index, torsion offset. Lengths and angles are standard values close
// to Engh & Huber (1991); a ring atom's torsion is 0 or 180.
using S = SideChainAtom;
constexpr S kSer[] = {{"OG", "O", "N", "CA", "CB", 1.417, 111.1, 1, 0.0}};
constexpr S kCys[] = {{"SG", "S", "N", "CA", "CB", 1.808, 114.0, 1, 0.0}};
constexpr S kThr[] = {{"OG1", "O", "N", "CA", "CB", 1.433, 109.6, 1, 0.0},
                      {"CG2", "C", "N", "CA", "CB", 1.521, 110.5, 1, -120.0}};
constexpr S kVal[] = {{"CG1", "C", "N", "CA", "CB", 1.521, 110.5, 1, 0.0},
                      {"CG2", "C", "N", "CA", "CB", 1.521, 110.5, 1, 120.0}};
constexpr S kLeu[] = {{"CG", "C", "N", "CA", "CB", 1.530, 116.3, 1, 0.0},
                      {"CD1", "C", "CA", "CB", "CG", 1.521, 110.5, 2, 0.0},
                      {"CD2", "C", "CA", "CB", "CG", 1.521, 110.5, 2, 120.0}};
constexpr S kIle[] = {{"CG1", "C", "N", "CA", "CB", 1.530, 110.4, 1, 0.0},
                      {"CG2", "C", "N", "CA", "CB", 1.521, 110.5, 1, -120.0},
                      {"CD1", "C", "CA", "CB", "CG1", 1.513, 113.8, 2, 0.0}};
constexpr S kMet[] = {{"CG", "C", "N", "CA", "CB", 1.520, 114.1, 1, 0.0},
                      {"SD", "S", "CA", "CB", "CG", 1.803, 112.7, 2, 0.0},
                      {"CE", "C", "CB", "CG", "SD", 1.791, 100.9, 3, 0.0}};
constexpr S kPro[] = {{"CG", "C", "N", "CA", "CB", 1.495, 104.5, 1, 0.0},
                      {"CD", "C", "CA", "CB", "CG", 1.507, 106.1, 2, 0.0}};
constexpr S kPhe[] = {{"CG", "C", "N", "CA", "CB", 1.502, 113.8, 1, 0.0},
                      {"CD1", "C", "CA", "CB", "CG", 1.389, 120.7, 2, 0.0},
                      {"CD2", "C", "CA", "CB", "CG", 1.389, 120.7, 2, 180.0},
                      {"CE1", "C", "CB", "CG", "CD1", 1.382, 120.7, 0, 180.0},
                      {"CE2", "C", "CB", "CG", "CD2", 1.382, 120.7, 0, 180.0},
                      {"CZ", "C", "CG", "CD1", "CE1", 1.382, 120.0, 0, 0.0}};
constexpr S kTyr[] = {{"CG", "C", "N", "CA", "CB", 1.512, 113.9, 1, 0.0},
                      {"CD1", "C", "CA", "CB", "CG", 1.389, 120.8, 2, 0.0},
                      {"CD2", "C", "CA", "CB", "CG", 1.389, 120.8, 2, 180.0},
                      {"CE1", "C", "CB", "CG", "CD1", 1.382, 121.2, 0, 180.0},
                      {"CE2", "C", "CB", "CG", "CD2", 1.382, 121.2, 0, 180.0},
                      {"CZ", "C", "CG", "CD1", "CE1", 1.378, 119.6, 0, 0.0},
                      {"OH", "O", "CD1", "CE1", "CZ", 1.376, 119.9, 0, 180.0}};
constexpr S kTrp[] = {{"CG", "C", "N", "CA", "CB", 1.498, 113.6, 1, 0.0},
                      {"CD1", "C", "CA", "CB", "CG", 1.365, 126.9, 2, 0.0},
                      {"CD2", "C", "CA", "CB", "CG", 1.433, 126.8, 2, 180.0},
                      {"NE1", "N", "CB", "CG", "CD1", 1.374, 110.2, 0, 180.0},
                      {"CE2", "C", "CB", "CG", "CD2", 1.409, 107.2, 0, 180.0},
                      {"CE3", "C", "CB", "CG", "CD2", 1.398, 133.9, 0, 0.0},
                      {"CZ2", "C", "CG", "CD2", "CE2", 1.394, 122.4, 0, 180.0},
                      {"CZ3", "C", "CG", "CD2", "CE3", 1.382, 118.6, 0, 180.0},
                      {"CH2", "C", "CD2", "CE2", "CZ2", 1.368, 117.5, 0, 0.0}};
constexpr S kHis[] = {{"CG", "C", "N", "CA", "CB", 1.497, 113.8, 1, 0.0},
                      {"ND1", "N", "CA", "CB", "CG", 1.378, 122.7, 2, 0.0},
                      {"CD2", "C", "CA", "CB", "CG", 1.354, 131.0, 2, 180.0},
                      {"CE1", "C", "CB", "CG", "ND1", 1.321, 109.0, 0, 180.0},
                      {"NE2", "N", "CB", "CG", "CD2", 1.374, 107.0, 0, 180.0}};
constexpr S kAsp[] = {{"CG", "C", "N", "CA", "CB", 1.516, 112.6, 1, 0.0},
                      {"OD1", "O", "CA", "CB", "CG", 1.249, 118.4, 2, 0.0},
                      {"OD2", "O", "CA", "CB", "CG", 1.249, 118.4, 2, 180.0}};
constexpr S kAsn[] = {{"CG", "C", "N", "CA", "CB", 1.516, 112.6, 1, 0.0},
                      {"OD1", "O", "CA", "CB", "CG", 1.231, 120.8, 2, 0.0},
                      {"ND2", "N", "CA", "CB", "CG", 1.328, 116.4, 2, 180.0}};
constexpr S kGlu[] = {{"CG", "C", "N", "CA", "CB", 1.520, 114.1, 1, 0.0},
                      {"CD", "C", "CA", "CB", "CG", 1.516, 112.6, 2, 0.0},
                      {"OE1", "O", "CB", "CG", "CD", 1.249, 118.4, 3, 0.0},
                      {"OE2", "O", "CB", "CG", "CD", 1.249, 118.4, 3, 180.0}};
constexpr S kGln[] = {{"CG", "C", "N", "CA", "CB", 1.520, 114.1, 1, 0.0},
                      {"CD", "C", "CA", "CB", "CG", 1.516, 112.6, 2, 0.0},
                      {"OE1", "O", "CB", "CG", "CD", 1.231, 120.8, 3, 0.0},
                      {"NE2", "N", "CB", "CG", "CD", 1.328, 116.4, 3, 180.0}};
constexpr S kLys[] = {{"CG", "C", "N", "CA", "CB", 1.520, 114.1, 1, 0.0},
                      {"CD", "C", "CA", "CB", "CG", 1.520, 111.3, 2, 0.0},
                      {"CE", "C", "CB", "CG", "CD", 1.520, 111.3, 3, 0.0},
                      {"NZ", "N", "CG", "CD", "CE", 1.489, 111.9, 4, 0.0}};
constexpr S kArg[] = {{"CG", "C", "N", "CA", "CB", 1.520, 114.1, 1, 0.0},
                      {"CD", "C", "CA", "CB", "CG", 1.520, 111.3, 2, 0.0},
                      {"NE", "N", "CB", "CG", "CD", 1.460, 112.0, 3, 0.0},
                      {"CZ", "C", "CG", "CD", "NE", 1.329, 124.2, 4, 0.0},
                      {"NH1", "N", "CD", "NE", "CZ", 1.326, 120.0, 0, 0.0},
                      {"NH2", "N", "CD", "NE", "CZ", 1.326, 120.0, 0, 180.0}};

using Closure = std::array<std::string_view, 2>;
constexpr Closure kProClosures[] = {{"CD", "N"}};
constexpr Closure kPhenylClosures[] = {{"CE2", "CZ"}};
constexpr Closure kTrpClosures[] = {{"NE1", "CE2"}, {"CZ3", "CH2"}};
constexpr Closure kHisClosures[] = {{"CE1", "NE2"}};

// Rotamers: the most common rotamer of each residue in the penultimate
// rotamer library (Lovell et al., Proteins 40, 389-408, 2000), chi1..chi4 in
// degrees. Proline's chi2 is solved for ring closure by the builder.
const ResidueTemplate kResidues[] = {
    {'A', "ALA", true, 110.5, {}, {}, {}},
    {'C', "CYS", true, 110.5, kCys, {}, {-65.0}},
    {'D', "ASP", true, 110.5, kAsp, {}, {-70.0, -15.0}},
    {'E', "GLU", true, 110.5, kGlu, {}, {-65.0, 180.0, -10.0}},
    {'F', "PHE", true, 110.5, kPhe, kPhenylClosures, {-65.0, -85.0}},
    {'G', "GLY", false, 0.0, {}, {}, {}},
    {'H', "HIS", true, 110.5, kHis, kHisClosures, {-65.0, -70.0}},
    {'I', "ILE", true, 110.5, kIle, {}, {-65.0, 170.0}},
    {'K', "LYS", true, 110.5, kLys, {}, {-65.0, 180.0, 180.0, 180.0}},
    {'L', "LEU", true, 110.5, kLeu, {}, {-65.0, 175.0}},
    {'M', "MET", true, 110.5, kMet, {}, {-65.0, 180.0, -70.0}},
    {'N', "ASN", true, 110.5, kAsn, {}, {-65.0, -20.0}},
    {'P', "PRO", true, 103.0, kPro, kProClosures, {-30.0}},
    {'Q', "GLN", true, 110.5, kGln, {}, {-65.0, 180.0, -25.0}},
    {'R', "ARG", true, 110.5, kArg, {}, {-65.0, 180.0, 180.0, 180.0}},
    {'S', "SER", true, 110.5, kSer, {}, {64.0}},
    {'T', "THR", true, 110.5, kThr, {}, {59.0}},
    {'V', "VAL", true, 110.5, kVal, {}, {175.0}},
    {'W', "TRP", true, 110.5, kTrp, kTrpClosures, {-65.0, 95.0}},
    {'Y', "TYR", true, 110.5, kTyr, kPhenylClosures, {-65.0, -85.0}},
};

}  // namespace

CoilClass coil_class(char residue, char next) {
  if (residue == 'G') return kClasses[6];
  if (residue == 'P') return kClasses[5];
  if (next == 'P') return kClasses[4];
  switch (residue) {
    case 'A':
    case 'L':
    case 'M':
    case 'E':
    case 'Q':
    case 'K':
    case 'R':
      return kClasses[1];
    case 'V':
    case 'I':
    case 'T':
    case 'F':
    case 'Y':
    case 'W':
      return kClasses[2];
    case 'N':
    case 'D':
      return kClasses[3];
    default:
      return kClasses[0];
  }
}

std::span<const CoilClass> coil_classes() { return kClasses; }

const ResidueTemplate* find_residue(char code) {
  for (const ResidueTemplate& r : kResidues) {
    if (r.code == code) return &r;
  }
  return nullptr;
}

}  // namespace vorn_tools::coil
