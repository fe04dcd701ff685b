// Test helpers: the couplings of a coupling file with their internuclear
// vectors from a coordinate file, read here on their own (the classic readers
// belong to the classic front end).
#pragma once

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "vorn/classic.hpp"

namespace vorn::test {

struct PdbAtom {
  std::string name;
  int residue = 0;
  Vec3 position;
};

// The ATOM records ("ATOM serial name residue resnum x y z") in file order.
inline std::vector<PdbAtom> read_pdb_atoms(const std::string& path) {
  std::vector<PdbAtom> atoms;
  FILE* file = std::fopen(path.c_str(), "r");
  if (file == nullptr) return atoms;
  char line[200];
  while (std::fgets(line, sizeof line, file) != nullptr) {
    int serial = 0;
    char name[16];
    char resname[16];
    PdbAtom atom;
    if (std::sscanf(line, "ATOM %d %15s %15s %d %lf %lf %lf", &serial, name, resname, &atom.residue,
                    &atom.position.x, &atom.position.y, &atom.position.z) != 7)
      continue;
    atom.name = name;
    atoms.push_back(atom);
  }
  std::fclose(file);
  return atoms;
}

// Position of the first atom of the residue with one of the two names.
inline std::optional<Vec3> find_atom(const std::vector<PdbAtom>& atoms, int residue,
                                     const std::string& name,
                                     const std::string& other_name = std::string()) {
  for (const PdbAtom& a : atoms) {
    if (a.residue == residue && (a.name == name || (!other_name.empty() && a.name == other_name)))
      return a.position;
  }
  return std::nullopt;
}

// The couplings of a coupling file ("residue value type" per line) with the
// vector from the second atom of the pair to the first: 0 N-H, 1 CA-HA,
// 2 CA-C, 3 C(i-1)-N, 4 C(i-1)-H (the amide proton named "H" or "HN"). A
// pair with a missing atom keeps the zero vector.
inline std::vector<ClassicCoupling> read_couplings(const std::string& dc_path,
                                                   const std::vector<PdbAtom>& atoms) {
  std::vector<ClassicCoupling> couplings;
  FILE* file = std::fopen(dc_path.c_str(), "r");
  if (file == nullptr) return couplings;
  char line[200];
  while (std::fgets(line, sizeof line, file) != nullptr) {
    ClassicCoupling c;
    if (std::sscanf(line, "%d %lf %d", &c.residue, &c.value_hz, &c.type) != 3) continue;
    std::optional<Vec3> first;
    std::optional<Vec3> second;
    switch (c.type) {
      case 0:
        first = find_atom(atoms, c.residue, "N");
        second = find_atom(atoms, c.residue, "H", "HN");
        break;
      case 1:
        first = find_atom(atoms, c.residue, "CA");
        second = find_atom(atoms, c.residue, "HA");
        break;
      case 2:
        first = find_atom(atoms, c.residue, "CA");
        second = find_atom(atoms, c.residue, "C");
        break;
      case 3:
        first = find_atom(atoms, c.residue - 1, "C");
        second = find_atom(atoms, c.residue, "N");
        break;
      case 4:
        first = find_atom(atoms, c.residue - 1, "C");
        second = find_atom(atoms, c.residue, "H", "HN");
        break;
      default:
        break;
    }
    if (first && second) {
      c.vector = {first->x - second->x, first->y - second->y, first->z - second->z};
    }
    couplings.push_back(c);
  }
  std::fclose(file);
  return couplings;
}

}  // namespace vorn::test
