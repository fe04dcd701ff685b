// The parallel atom arrays of a run, used from index 1 (index 0 unused).
#pragma once

#include <vector>

#include "classic/limits.hpp"

namespace vorn {

struct AtomArrays {
  std::vector<double> x, y, z, mass;
  std::vector<int> atom, aa, atomno, res_nr;

  AtomArrays()
      : x(kAtomSlots),
        y(kAtomSlots),
        z(kAtomSlots),
        mass(kAtomSlots),
        atom(kAtomSlots),
        aa(kAtomSlots),
        atomno(kAtomSlots),
        res_nr(kAtomSlots) {}
};

}  // namespace vorn
