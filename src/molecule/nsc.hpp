// Solvent-accessible surface by the double cubic lattice method.
#pragma once

#include <cstdio>

#include "driver/io.hpp"
#include "molecule/atoms.hpp"

namespace vorn {

// Reduces the atoms 1..no_atom to the solvent-exposed ones; 0 on success,
// 1 when the surface method failed (after printing "error occured").
int routine_calling_NSC(int& no_atom, AtomArrays& atoms, Io& io);

// Van der Waals radius used for the surface: 1.8 for type 323, else 1.4.
float get_radius(int atomtype);

}  // namespace vorn
