// Reading of PQR files (atoms with charges and radii, as pdb2pqr writes
// them) and the transfer of their charges onto the atoms of a structure.
//
// Layout: ATOM and HETATM records of white-space separated fields
//
//   record serial name resname [chain] resnum x y z charge radius
//
// (pdb2pqr --whitespace; without it, coordinates of 8 characters run
// together and the line is an error). The chain ID is optional; a residue
// number may carry an insertion code letter ("52A"), and a chain letter run
// together with a 4-digit residue number ("A1000") is split. Other records
// (REMARK, TER, END, ...) are skipped. Coordinates, charge and radius are
// finite numbers, the radius not negative. Gzip-compressed files are read
// as they are. Errors throw InputError "FILE:LINE: what was wrong": a line
// with the wrong number of fields, a field that is not a number, an atom
// given twice, and a file without any atom.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "io/input_error.hpp"
#include "vorn/charges.hpp"
#include "vorn/structure.hpp"

namespace vorn::io {

struct PqrAtom {
  std::string chain;  // "" when the record has none
  int residue_number = 0;
  char insertion_code = ' ';  // ' ' when there is none
  std::string residue_name;
  std::string name;
  vorn::Vec3 position;  // Angstrom
  double charge = 0.0;  // e
  double radius = 0.0;  // Angstrom
  long line = 0;        // line in the file
};

// The atoms of a PQR file, in file order. Throws InputError.
std::vector<PqrAtom> read_pqr(const std::string& path);

// The same reading for text already in memory; name_for_messages stands for
// the file name in the messages.
std::vector<PqrAtom> parse_pqr(std::string_view text, const std::string& name_for_messages);

// The charges of `pqr` on the atoms of a structure. Each structure atom gets
// the charge of the PQR atom with the same residue number, insertion code
// and atom name, and the same chain where both the structure and the PQR
// file name chains (else chains are not compared; a PQR atom that then fits
// atoms of several chains is an error). Residue names are not compared, so
// pdb2pqr's renamings (HIS to HSD/HSE/HSP/HID/HIE/HIP, CYX, ASH, ...) do not
// matter; atom names "H" and "HN" (the amide hydrogen), "O"/"OT1",
// "OXT"/"OT2" and, in Ile, "CD1"/"CD" stand for each other where the
// structure lacks the name itself. Structure atoms without a PQR atom get 0.
//
// A PQR hydrogen (a name starting with H after any digits) that matches no
// structure atom, as when the structure has no hydrogens, adds its charge to
// the heavy atom of the same residue nearest to it by the PQR coordinates,
// so that the total is kept. Waters (HOH, WAT, SOL, TIP3, DOD) that the
// structure lacks are skipped: they are neutral. Any other PQR atom that is
// not in the structure is an error "FILE:LINE: atom NAME of residue RESNAME
// NUM (chain C) is not in the structure", with `path` for FILE.
//
// net_charge is the sum of the charges; charged_groups the number of
// residues whose charges add up to more than 0.001 e in magnitude (the
// charges of pdb2pqr carry four decimals).
vorn::AtomCharges charges_from_pqr(std::span<const vorn::Atom> atoms,
                                   const std::vector<PqrAtom>& pqr, const std::string& path);

}  // namespace vorn::io
