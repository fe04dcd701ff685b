// Reading of GROMACS .gro coordinate files: a title line, the atom count,
// one fixed-column line per atom, the box.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "io/input_error.hpp"
#include "vorn/structure.hpp"

namespace vorn::io {

struct GroAtom {
  int residue_number = 0;
  std::string residue_name;
  std::string name;
  Vec3 position;  // Angstrom
};

struct GroFile {
  std::string title;
  std::vector<GroAtom> atoms;
  std::array<Vec3, 3> box{};  // Angstrom; the three vectors
};

// Parses the text of a .gro file (the first frame where it holds several);
// `name` names it in messages. Columns: residue number (1-5), residue name
// (6-10), atom name (11-15), atom number (16-20, not used), then x, y, z in
// nm in fields whose width is the distance between their decimal points (8
// as GROMACS writes them), velocities ignored. Errors are InputError
// "NAME:LINE: what".
GroFile parse_gro(const std::string& text, const std::string& name);

// Reads and parses a .gro file.
GroFile read_gro(const std::string& path);

// True for a name ending in ".gro" (any case).
bool is_gro_file(const std::string& path);

}  // namespace vorn::io
