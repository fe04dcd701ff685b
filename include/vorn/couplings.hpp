// Residual dipolar couplings from an alignment tensor, in Hz with the
// physical sign:
//
//   D = Dmax * sum_ij S_ij c_i c_j,   Dmax = -(mu0/4pi) g1 g2 hbar / (pi r^3)
//
// with S the Saupe matrix, c the unit vector between the two nuclei and g1,
// g2 their gyromagnetic ratios. With the axial component Da of S this gives
// the familiar D = Da(3 cos^2 theta - 1) + ... with Da = Dmax Szz / 2 at
// the principal frame; Dmax(N-H, 1.02 A) is about +23 kHz (the negative
// 15N ratio makes it positive), Dmax(C-H, 1.09 A) about -46.7 kHz.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "vorn/structure.hpp"
#include "vorn/tensor.hpp"

namespace vorn {

// Gyromagnetic ratio in rad s^-1 T^-1 of the NMR isotope of an element:
// H (1H), D (2H), C (13C), N (15N), P (31P), F (19F). Throws vorn::Error for
// any other symbol.
double gyromagnetic_ratio(std::string_view element);

// Dmax in Hz for two elements at `distance` Angstrom (> 0).
double dipolar_constant_hz(std::string_view element1, std::string_view element2, double distance);

// D in Hz for the internuclear vector `vector` (any length; only its
// direction counts) and Dmax. A zero vector throws vorn::Error.
double dipolar_coupling_hz(const SaupeElements& saupe, const Vec3& vector, double dmax_hz);

// ---------------------------------------------------------------------------
// The five backbone couplings of a protein residue i: "N-H" (N-H of i),
// "CA-HA" (CA-HA of i; HA2 and HA3 for glycine), "CA-C" (CA-C' of i), "C-N"
// (C' of i-1 to N of i) and "C-HN" (C' of i-1 to H of i).

struct CouplingSite {
  std::string chain;
  int residue_number = 0;
  char insertion_code = ' ';
  std::string residue_name;
  std::string type;          // "N-H", "CA-HA", "CA-C", "C-N" or "C-HN"
  std::string atom1, atom2;  // atom names as in the structure ("C" of i-1 for C-N, C-HN)
  std::string element1, element2;
  Vec3 vector;                  // position of atom2 minus position of atom1
  bool built_hydrogen = false;  // atom2 (H) was built, not read
  // The residue of atom1: the one above, or the one before for C-N, C-HN.
  int atom1_residue_number = 0;
  char atom1_insertion_code = ' ';
  std::string atom1_residue_name;
};

// The standard internuclear distance of a backbone coupling type, Angstrom:
// N-H 1.02, CA-HA 1.09, CA-C 1.525, C-N 1.329, C-HN 2.04 (through N).
double standard_distance(std::string_view type);

struct BackboneSites {
  std::vector<CouplingSite> sites;  // in residue order, types in the order above
  int built_hydrogens = 0;          // amide hydrogens placed by the rule below
};

// Every backbone coupling whose atoms exist. Residues are runs of atoms with
// the same chain, number and insertion code, in the order given; residue
// i-1 is the one before in the same chain, and only when its C' lies within
// 2.0 A of N(i) (a chain break otherwise). An amide hydrogen is "H" or "HN".
// When the atoms hold no amide hydrogen at all (an X-ray structure, or
// hydrogens removed) and build_amide_hydrogens is set, each residue but
// proline with N, CA and a bonded C'(i-1) gets one on the external bisector
// of the C'(i-1)-N-CA angle at 1.02 A from N.
BackboneSites backbone_sites(std::span<const Atom> atoms, bool build_amide_hydrogens = true);

}  // namespace vorn
