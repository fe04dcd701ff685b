// Fixed-column PDB atom records of atoms read from other formats, so that
// the frames of a trajectory go through the PDB reading rules whatever the
// topology's format (C++17: shared with the gemmi code).
#pragma once

#include <cmath>
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

// Writes `value` as printf's "%8.3f" does into out[0..7] (no terminator),
// for -999.9995 < value < 9999.9995; a fast path for the coordinates of
// trajectory frames. The rounding is printf's (of the exact binary value)
// wherever value * 1000 is not within 1e-6 of a half; there printf itself
// decides.
inline void format_coordinate(double value, char* out) {
  const double scaled = value * 1000.0;
  const double below = std::floor(scaled);
  if (std::abs(scaled - below - 0.5) < 1e-6) {
    char text[32];
    std::snprintf(text, sizeof text, "%8.3f", value);
    for (int i = 0; i < 8; ++i) out[i] = text[i];
    return;
  }
  const bool negative = std::signbit(value);
  auto digits = static_cast<long>(std::abs(scaled - below < 0.5 ? below : below + 1.0));
  // Right to left: three decimals, the point, the integer digits, the sign,
  // blanks.
  int at = 7;
  for (int i = 0; i < 3; ++i, digits /= 10) out[at--] = static_cast<char>('0' + digits % 10);
  out[at--] = '.';
  do {
    out[at--] = static_cast<char>('0' + digits % 10);
    digits /= 10;
  } while (digits > 0);
  if (negative) out[at--] = '-';
  while (at >= 0) out[at--] = ' ';
}

}  // namespace vorn::io
