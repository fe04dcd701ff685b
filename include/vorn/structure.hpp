// Atoms of a molecule as the engine takes them: coordinates with the names
// that identify them. Containers are 0-based and hold any number of atoms.
#pragma once

#include <array>
#include <span>
#include <string>
#include <vector>

namespace vorn {

// A point or vector in Angstrom.
struct Vec3 {
  double x = 0.0;
  double y = 0.0;
  double z = 0.0;
};

// One atom. Names follow the PDB conventions (atom "CA", "OP1"; residue
// "ALA", "DA", "U"); the element is its symbol ("C", "N", "H"), upper case.
struct Atom {
  std::string name;
  std::string element;
  std::string residue_name;
  int residue_number = 0;
  char insertion_code = ' ';  // ' ' when there is none
  std::string chain;
  Vec3 position;
};

// The coordinates of a list of atoms, in the same order.
std::vector<Vec3> positions(std::span<const Atom> atoms);

// True for hydrogen and deuterium (element "H" or "D").
bool is_hydrogen(const Atom& atom);

// Indices (into `atoms`, ascending) of the solvent-exposed atoms by the
// classic rule: each atom is a sphere of its van der Waals radius (1.8 A for
// the atom type the classic tables give that radius, 1.4 A otherwise)
// enlarged by a 1.4 A probe, the accessible surface is sampled by the double
// cubic lattice method with about 700 dots per sphere, and an atom is kept
// when its accessible area exceeds half of its bare sphere's area. The
// classic rule's two deliberate quirks are kept (the radii enter the surface
// method shifted by one atom, and the last atom's bare area is that of its
// radius minus the probe), so the atoms kept are exactly those the classic
// program keeps for the same atoms in the same order. Hydrogens are not
// removed here. Throws std::invalid_argument for non-finite coordinates.
std::vector<std::size_t> surface_atoms(std::span<const Atom> atoms);

}  // namespace vorn
