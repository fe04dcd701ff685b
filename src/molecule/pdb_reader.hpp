// Reader of the "ATOM" records of a coordinate file.
#pragma once

#include <cstdio>

#include "molecule/atoms.hpp"

namespace vorn {

inline constexpr int kAtomLimit = 4999;  // stored atoms at which the reader fails

// Reads the atoms into the arrays from index 1 and returns their number.
// Notices go to out; fatal conditions throw FatalError.
int reading_PDBfile(const char* dateiname, AtomArrays& atoms, FILE* out);

}  // namespace vorn
