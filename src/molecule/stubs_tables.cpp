// Placeholder bodies until the stages are implemented; delete when done.
#include "molecule/nsc.hpp"
#include "molecule/pdb_reader.hpp"
#include "molecule/selection.hpp"
#include "molecule/toppar.hpp"

namespace vorn {
int get_atom_type_index(const char*, FILE*) { return 0; }
int get_aa_index(const char*, FILE*) { return 0; }
float return_mass(const char*, FILE*) { return 0.0F; }
int reading_PDBfile(const char*, AtomArrays&, FILE*) { return 0; }
int select_atoms(int tot, AtomArrays&, const Settings&, Io&) { return tot; }
int remove_protons(int n, AtomArrays&) { return n; }
int remove_residues(int n, AtomArrays&, int, const std::vector<int>&) { return n; }
int select_atomtypes(int n, AtomArrays&, int, const std::vector<int>&) { return n; }
}  // namespace vorn
