// Test helpers for the library API: structures read by a plain parse of the
// token layout "ATOM serial name residue resnum x y z" (no chain column).
#pragma once

#include <cctype>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "capture.hpp"
#include "vorn/structure.hpp"

namespace vorn::test {

// The element of a PDB atom name: its first letter (digits skipped).
inline std::string element_of(const std::string& name) {
  for (char c : name)
    if (std::isalpha(static_cast<unsigned char>(c))) return std::string(1, c);
  return {};
}

// Every ATOM record of a classic-layout file, up to the first END line.
inline std::vector<Atom> read_token_atoms(const std::string& path) {
  std::ifstream in(path);
  std::vector<Atom> atoms;
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    std::string record;
    fields >> record;
    if (record == "END") break;
    if (record != "ATOM") continue;
    Atom a;
    int serial = 0;
    fields >> serial >> a.name >> a.residue_name >> a.residue_number >> a.position.x >>
        a.position.y >> a.position.z;
    a.element = element_of(a.name);
    atoms.push_back(a);
  }
  return atoms;
}

inline std::vector<Atom> without_hydrogens(const std::vector<Atom>& atoms) {
  std::vector<Atom> heavy;
  for (const Atom& a : atoms)
    if (!is_hydrogen(a)) heavy.push_back(a);
  return heavy;
}

}  // namespace vorn::test
