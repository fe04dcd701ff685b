// Measured dipolar couplings, the per-type constants and the internuclear
// vectors taken from the structure.
#pragma once

#include <cstdio>
#include <vector>

#include "driver/io.hpp"
#include "driver/settings.hpp"
#include "molecule/atoms.hpp"

namespace vorn {

inline constexpr int kDcTypes = 6;
inline constexpr int kCouplingLimit = 4999;  // couplings at which the reader fails

// Per DC type (0 N-H, 1 CA-HA, 2 CA-C, 3 C(i-1)-N, 4 C(i-1)-H, 5 constants only).
extern const double dcNORMFACTORS[kDcTypes];
extern const double maxDIPCOUP[kDcTypes];
extern const double radiusInCubeDCTypes[kDcTypes];

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

}  // namespace vorn
