// Selection of the atoms that take part in the steric model.
#pragma once

#include <vector>

#include "classic/atoms.hpp"
#include "classic/io.hpp"
#include "classic/limits.hpp"
#include "vorn/settings.hpp"

namespace vorn {

// Applies the proton, residue, atom-type and surface filters that the
// settings ask for (prompting on io.in / io.out) and returns the atom count.
int select_atoms(int tot_no_atoms, AtomArrays& atoms, const Settings& settings, Io& io);

// Reduces the atoms 1..no_atom to the solvent-exposed ones (the library's
// surface rule); 0 on success, 1 when the surface method failed (after
// printing "error occured"; its report went to io.err).
int routine_calling_NSC(int& no_atom, AtomArrays& atoms, Io& io);

// The surface step: reduces atoms 1..no_atom in place, 0 on success.
using SurfaceStep = int (*)(int& no_atom, AtomArrays& atoms, Io& io);

// select_atoms with the surface step given explicitly (routine_calling_NSC in
// a run); lets the selection be exercised apart from the surface method.
int select_atoms(int tot_no_atoms, AtomArrays& atoms, const Settings& settings, Io& io,
                 SurfaceStep surface);

int remove_protons(int n, AtomArrays& atoms);
// select holds the listed numbers from index 1 to no_select.
int remove_residues(int n, AtomArrays& atoms, int no_select, const std::vector<int>& select);
int select_atomtypes(int n, AtomArrays& atoms, int no_select, const std::vector<int>& select);

}  // namespace vorn
