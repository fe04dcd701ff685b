// Atom-name, residue-name and mass tables.
#pragma once

#include <cstdio>

namespace vorn {

inline constexpr int kUnknownName = -999;
inline constexpr int kHeavyAtomMaxIndex = 328;  // hydrogens have larger indices
inline constexpr int kAtomListSize = 633;
inline constexpr int kResidueListSize = 269;

// Atom type index of an atom name (first match), or -999 with the
// "There is a atom of unknown type" notice on out.
int get_atom_type_index(const char* name, FILE* out);
// Residue type index 1..269, or -999 with the unknown-residue notice on out.
int get_aa_index(const char* name, FILE* out);
// Mass of an atom name by the blocks of the atom list, or 0.0 with the notice.
float return_mass(const char* name, FILE* out);

}  // namespace vorn
