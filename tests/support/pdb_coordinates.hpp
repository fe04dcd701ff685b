// Test support: the coordinates of every model of a PDB file and the bytes
// of a file, read here without the project's readers.
#pragma once

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "vorn/structure.hpp"

namespace vorn::test {

// Every model's atom coordinates, from the free-format ATOM and HETATM
// records (their last three fields); a MODEL record starts a model.
inline std::vector<std::vector<Vec3>> pdb_model_coordinates(const std::string& path) {
  std::ifstream in(path);
  std::vector<std::vector<Vec3>> models;
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("MODEL", 0) == 0) models.emplace_back();
    if (line.rfind("ATOM", 0) != 0 && line.rfind("HETATM", 0) != 0) continue;
    if (models.empty()) models.emplace_back();
    std::istringstream fields(line);
    std::vector<std::string> t;
    for (std::string f; fields >> f;) t.push_back(f);
    const std::size_t n = t.size();
    models.back().push_back({std::stod(t[n - 3]), std::stod(t[n - 2]), std::stod(t[n - 1])});
  }
  return models;
}

inline std::string file_bytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

}  // namespace vorn::test
