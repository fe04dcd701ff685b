// Charges of a molecule's atoms for the electrostatic alignment model:
// formal charges of the ionisable groups at a given pH (Henderson-
// Hasselbalch with a table of model pKa values), spread over the atoms that
// carry them.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "vorn/structure.hpp"

namespace vorn {

// A point charge in elementary charges at a position in Angstrom.
struct PointCharge {
  Vec3 position;
  double charge = 0.0;
};

// Per-atom charges of a structure (same order as its atoms) with what the
// reports give: the net charge and the number of ionisable groups that
// contributed (those of which the structure has at least one of the atoms
// that carry their charge; the charge is spread over the atoms present).
struct AtomCharges {
  std::vector<double> charge;  // e, one per atom
  double net_charge = 0.0;
  int charged_groups = 0;
};

// One entry of the pKa table.
struct IonisableGroup {
  std::string name;  // "ASP", "N-terminus", "C-terminus", ...
  double pka = 0.0;  // model-compound value
  bool acid = true;  // charge -1 when deprotonated; else +1 when protonated
};

// The table in use (documented in docs/electrostatics.md with its source):
// the titrating groups of proteins. The phosphates of nucleic acids are not
// titrated: each carries -1 at any pH of the accepted range.
std::span<const IonisableGroup> ionisable_groups();

// The mean charge of one group at `ph`: -1/(1 + 10^(pKa - pH)) for an acid,
// +1/(1 + 10^(pH - pKa)) for a base.
double group_charge(const IonisableGroup& group, double ph);

// Charges of the ionisable groups of proteins (Asp, Glu, His, Lys, Arg,
// Cys, Tyr, chain termini) at `ph`, each spread evenly over its charged
// atoms (carboxylate oxygens, NZ, NE/NH1/NH2, ND1/NE2, SG, OH, N, O/OXT),
// and -1 per phosphate of DNA and RNA (over OP1/OP2, also O1P/O2P).
// Residues are told apart by (chain, residue number, insertion code); the
// termini are the N of the first and the O/OXT of the last residue with a
// CA atom in each chain (O alone where there is no OXT; CHARMM's OT1/OT2
// too). A Cys whose SG lies within 2.5 A of another SG is a disulfide and
// carries nothing; a nucleotide without OP1/OP2 (a 5' end without
// phosphate) neither. Hydrogens carry no charge. Throws vorn::Error for a
// pH that is not a number in 0..14.
AtomCharges titration_charges(std::span<const Atom> atoms, double ph);

}  // namespace vorn
