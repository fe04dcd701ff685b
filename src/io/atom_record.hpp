// Fixed-column PDB atom records of atoms read from other formats, so that
// the frames of a trajectory go through the PDB reading rules whatever the
// topology's format (C++17: shared with the gemmi code).
#pragma once

#include <cstdio>
#include <string>

#include "io/input_error.hpp"

namespace vorn::io {

struct RecordAtom {
  bool hetatm = false;
  std::string name;
  char altloc = ' ';
  std::string residue_name;
  std::string chain;
  int residue_number = 0;
  char insertion_code = ' ';
  double occupancy = 1.0;
  double b_factor = 0.0;
  std::string element;  // blank: from the name
};

// Appends the record of `atom` (coordinates zero: the frames set them) and
// a line end. Throws InputError (without a location) for what PDB columns
// cannot hold.
inline void append_atom_record(const RecordAtom& atom, int serial, std::string& text) {
  if (atom.name.empty() || atom.name.size() > 4) {
    throw InputError("atom name \"" + atom.name + "\" does not fit a PDB record (1-4 characters)");
  }
  if (atom.residue_name.size() > 3) {
    throw InputError("residue name \"" + atom.residue_name +
                     "\" does not fit a PDB record (at most 3 characters)");
  }
  if (atom.chain.size() > 1) {
    throw InputError("chain name \"" + atom.chain + "\" does not fit a PDB record (1 character)");
  }
  if (atom.residue_number < -999 || atom.residue_number > 9999) {
    throw InputError("residue number " + std::to_string(atom.residue_number) +
                     " does not fit a PDB record (-999 to 9999)");
  }
  // Names of four characters or starting with a digit begin in column 13,
  // the others in column 14.
  const bool wide = atom.name.size() == 4 || (atom.name[0] >= '0' && atom.name[0] <= '9');
  char record[96];
  std::snprintf(record, sizeof record,
                "%-6s%5d %-4s%c%3s %1s%4d%c   %8.3f%8.3f%8.3f%6.2f%6.2f          %2s\n",
                atom.hetatm ? "HETATM" : "ATOM", serial % 100000,
                (wide ? atom.name : " " + atom.name).c_str(), atom.altloc,
                atom.residue_name.c_str(), atom.chain.c_str(), atom.residue_number,
                atom.insertion_code, 0.0, 0.0, 0.0, atom.occupancy, atom.b_factor,
                atom.element.c_str());
  text += record;
}

}  // namespace vorn::io
