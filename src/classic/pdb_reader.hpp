// Reader of the "ATOM" records of a coordinate file.
#pragma once

#include <cstdio>

#include "classic/atoms.hpp"

namespace vorn {

inline constexpr int kAtomLimit = 4999;  // stored atoms at which the reader fails

// Atom type index of an atom name (first match), or -999 with the
// "There is a atom of unknown type" notice on out.
int get_atom_type_index(const char* name, FILE* out);
// Residue type index 1..269, or -999 with the unknown-residue notice on out.
int get_aa_index(const char* name, FILE* out);
// Mass of an atom name by the blocks of the atom list, or 0.0 with the notice.
float return_mass(const char* name, FILE* out);

// Reads the atoms into the arrays from index 1 and returns their number.
// Notices go to out; fatal conditions throw FatalError.
int reading_PDBfile(const char* dateiname, AtomArrays& atoms, FILE* out);

}  // namespace vorn
