// Test helpers: the atoms of a coordinate file in the reader's layout, with
// the atom type indices of the names that take part in couplings.
#pragma once

#include <cstdio>
#include <cstring>
#include <string>

#include "classic/atoms.hpp"

namespace vorn::test {

// Atom type indices of the atom name table for the coupled atoms; every
// other name gets an index no coupling type uses.
inline int coupling_atom_type(const char* name) {
  if (std::strcmp(name, "N") == 0) return 211;
  if (std::strcmp(name, "H") == 0 || std::strcmp(name, "HN") == 0) return 551;
  if (std::strcmp(name, "CA") == 0) return 114;
  if (std::strcmp(name, "HA") == 0) return 476;
  if (std::strcmp(name, "C") == 0) return 1;
  return 9999;
}

// Reads the ATOM records ("ATOM serial name residue resnum x y z") in file
// order into atoms[1..]; returns the count.
inline int read_atoms(const std::string& path, AtomArrays& atoms) {
  FILE* file = std::fopen(path.c_str(), "r");
  if (file == nullptr) return 0;
  char line[200];
  int count = 0;
  while (std::fgets(line, sizeof line, file) != nullptr) {
    int serial = 0;
    int resnum = 0;
    char name[16];
    char resname[16];
    double x = 0.0, y = 0.0, z = 0.0;
    if (std::sscanf(line, "ATOM %d %15s %15s %d %lf %lf %lf", &serial, name, resname, &resnum, &x,
                    &y, &z) != 7)
      continue;
    if (count + 1 >= static_cast<int>(atoms.x.size())) break;
    ++count;
    atoms.x[count] = x;
    atoms.y[count] = y;
    atoms.z[count] = z;
    atoms.atom[count] = coupling_atom_type(name);
    atoms.res_nr[count] = resnum;
    atoms.atomno[count] = serial;
  }
  std::fclose(file);
  return count;
}

}  // namespace vorn::test
