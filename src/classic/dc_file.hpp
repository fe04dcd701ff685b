// The classic file of measured dipolar couplings and the internuclear
// vectors taken from the classic atom arrays.
#pragma once

#include <cstdio>
#include <vector>

#include "classic/atoms.hpp"
#include "classic/limits.hpp"
#include "vorn/classic.hpp"

namespace vorn {

inline constexpr int kCouplingLimit = 4999;  // couplings at which the reader fails

// The coupling table of a run, used from index 1 (index 0 unused).
struct CouplingArrays {
  std::vector<int> dc_res, dcmax;
  std::vector<double> dc, coor_x, coor_y, coor_z;

  CouplingArrays()
      : dc_res(kAtomSlots),
        dcmax(kAtomSlots),
        dc(kAtomSlots),
        coor_x(kAtomSlots),
        coor_y(kAtomSlots),
        coor_z(kAtomSlots) {}
};

// Reads the -D file (flags[3] == 1, flag_file[3] open) to its end, closes it
// and returns the number of couplings; 0 without touching anything otherwise.
int reading_DCfile(const int* flags, FILE** flag_file, CouplingArrays& couplings, int& dab_sign);

// Fills the internuclear vectors of couplings 1..nodc from all atoms read.
void reading_vectors(int nodc, CouplingArrays& couplings, int noatoms, const AtomArrays& atoms);

// Couplings 1..nodc of the table as the engine takes them (0-based).
std::vector<ClassicCoupling> classic_couplings(int nodc, const CouplingArrays& couplings);

}  // namespace vorn
