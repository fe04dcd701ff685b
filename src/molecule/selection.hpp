// Selection of the atoms that take part in the steric model.
#pragma once

#include <vector>

#include "driver/io.hpp"
#include "driver/settings.hpp"
#include "molecule/atoms.hpp"

namespace vorn {

// Applies the proton, residue, atom-type and surface filters that the
// settings ask for (prompting on io.in / io.out) and returns the atom count.
int select_atoms(int tot_no_atoms, AtomArrays& atoms, const Settings& settings, Io& io);

int remove_protons(int n, AtomArrays& atoms);
// select holds the listed numbers from index 1 to no_select.
int remove_residues(int n, AtomArrays& atoms, int no_select, const std::vector<int>& select);
int select_atomtypes(int n, AtomArrays& atoms, int no_select, const std::vector<int>& select);

}  // namespace vorn
