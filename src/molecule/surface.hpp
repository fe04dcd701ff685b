// Selection of the solvent-exposed atoms by the classic rule.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "vorn/log.hpp"

namespace vorn {

// Van der Waals radius used for the surface: 1.8 for type 323, else 1.4.
float get_radius(int atomtype);

// Indices (0-based, ascending) into kept of the atoms (coordinates x, y, z
// and classic atom types, one entry per atom) whose accessible area exceeds
// half of their bare sphere's area. Returns 0, or 1 when the surface method
// failed (its report went to log). Allocation failure throws vorn::Error.
// Only the decisions are computed: each atom's surface dots are examined
// until its decision is certain.
int surface_atom_indices(std::span<const double> x, std::span<const double> y,
                         std::span<const double> z, std::span<const int> types,
                         std::vector<std::size_t>& kept, const Log& log);

// The same selection from the full per-atom areas of the surface method
// (with its volume): the same kept indices, messages and return value;
// several times slower.
int surface_atom_indices_reference(std::span<const double> x, std::span<const double> y,
                                   std::span<const double> z, std::span<const int> types,
                                   std::vector<std::size_t>& kept, const Log& log);

}  // namespace vorn
