#include "vorn/structure.hpp"

#include <cmath>
#include <vector>

#include "molecule/surface.hpp"
#include "molecule/toppar.hpp"
#include "vorn/error.hpp"

namespace vorn {

std::vector<Vec3> positions(std::span<const Atom> atoms) {
  std::vector<Vec3> result;
  result.reserve(atoms.size());
  for (const Atom& atom : atoms) result.push_back(atom.position);
  return result;
}

bool is_hydrogen(const Atom& atom) { return atom.element == "H" || atom.element == "D"; }

std::vector<std::size_t> surface_atoms(std::span<const Atom> atoms) {
  std::vector<double> x, y, z;
  std::vector<int> types;
  x.reserve(atoms.size());
  y.reserve(atoms.size());
  z.reserve(atoms.size());
  types.reserve(atoms.size());
  for (const Atom& atom : atoms) {
    const Vec3& p = atom.position;
    if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) {
      throw Error("surface_atoms: atom " + atom.name + " of residue " +
                  std::to_string(atom.residue_number) + " has a coordinate that is not finite");
    }
    x.push_back(p.x);
    y.push_back(p.y);
    z.push_back(p.z);
    types.push_back(atom_type_index(atom.name));
  }
  std::vector<std::size_t> kept;
  if (surface_atom_indices(x, y, z, types, kept, Log{}) != 0) {
    throw Error("surface_atoms: the surface computation failed");
  }
  return kept;
}

}  // namespace vorn
