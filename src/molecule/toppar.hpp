// Atom-name, residue-name and mass tables.
#pragma once

#include <string_view>

namespace vorn {

inline constexpr int kUnknownName = -999;
inline constexpr int kHeavyAtomMaxIndex = 328;  // hydrogens have larger indices
inline constexpr int kAtomListSize = 633;
inline constexpr int kResidueListSize = 269;

// Atom type index of an atom name (first match), or kUnknownName.
int atom_type_index(std::string_view name);
// Residue type index 1..269, or kUnknownName.
int residue_type_index(std::string_view name);
// Mass of an atom name by the blocks of the atom list, or 0.0 when unknown.
float atom_type_mass(std::string_view name);

}  // namespace vorn
