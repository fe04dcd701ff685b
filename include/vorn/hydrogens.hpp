// Hydrogens of the standard residues placed from their heavy atoms with
// standard bond lengths and angles: for structures that lack them (X-ray
// structures), or lack some. The geometry, the lengths and their sources and
// the validation against deposited hydrogens are in docs/hydrogens.md.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "vorn/structure.hpp"

namespace vorn {

// Bond lengths of the hydrogens placed, Angstrom.
inline constexpr double kCarbonHydrogenLength = 1.09;
inline constexpr double kNitrogenHydrogenLength = 1.02;
inline constexpr double kOxygenHydrogenLength = 0.96;
inline constexpr double kSulfurHydrogenLength = 1.34;

// The tetrahedral angle, degrees: H-X-H of CH2, CH3 and NH3+, and X-Y-H of
// a methyl, ammonium or hydroxyl hydrogen (Y the heavy atom it hangs on).
inline constexpr double kTetrahedralAngle = 109.4712206;
// C-S-H of a cysteine thiol, degrees.
inline constexpr double kThiolAngle = 96.0;
// X-N-H of a planar NH2 (amide side chains, arginine, base amino groups).
inline constexpr double kTrigonalAngle = 120.0;

struct AddedHydrogens {
  // The atoms given, in their order, with each residue's added hydrogens
  // after its own atoms (a residue stays one run of atoms).
  std::vector<Atom> atoms;
  // Indices into `atoms` of the hydrogens placed here, ascending.
  std::vector<std::size_t> added;
  // Hydrogens of known residues missing from the atoms that could not be
  // placed (a heavy atom they hang on or are oriented by is missing; an
  // amide N after a chain break has no C'(i-1)), and the residues they
  // belong to.
  int unplaced = 0;
  int incomplete_residues = 0;
  // Residues without a template (ligands, modified residues): left as given.
  int unknown_residues = 0;
};

// Every missing hydrogen of the standard amino acids (the 20, with the
// N-terminal NH3+, or NH2+ of proline as H2/H3) and nucleotides (DA DC DG DT
// A C G U, with HO5' and HO3' at the chain ends) placed from the heavy
// atoms, named by the PDB (version 3) convention; docs/hydrogens.md gives
// the geometry of each kind of group.
//
// Residues are runs of atoms with the same chain, number and insertion
// code, as backbone_sites takes them. A residue is bonded to the one before
// when C'(i-1) lies within 2.0 A of N(i), or O3'(i-1) of P(i). One that is
// not starts a chain when it is the first of its chain identifier or its
// number follows the one before (chains written without identifiers);
// otherwise residues are missing before it, and its amide H (or HO5')
// cannot be placed.
//
// Hydrogens present are kept and not placed again: by name ("HN" stands for
// the amide H), and a group whose parent already carries as many hydrogens
// (within 1.3 A, 1.5 A on sulfur) under any names. Choices where the heavy
// atoms do not decide: histidine gets both HD1 and HE2 unless the residue
// has one of them; Asp, Glu and the C-terminus stay deprotonated; a
// cysteine whose SG lies within 2.5 A of another SG gets no HG; hydroxyl and
// thiol hydrogens point anti to the next heavy atom along the chain
// (tyrosine's HH in the ring plane, anti to CE2); methyl and ammonium
// groups are staggered, the first proton anti. Throws vorn::Error for an
// atom with a coordinate that is not finite.
AddedHydrogens add_hydrogens(std::span<const Atom> atoms);

// True when any atom is a hydrogen (is_hydrogen).
bool has_hydrogens(std::span<const Atom> atoms);

}  // namespace vorn
