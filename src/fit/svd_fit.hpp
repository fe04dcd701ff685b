// Fit of the alignment tensor to the measured couplings by singular value
// decomposition.
#pragma once

#include <cstdio>
#include <vector>

#include "couplings/dc_file.hpp"
#include "driver/settings.hpp"

namespace vorn {

// Single-precision fit rows, used from index 0, one per usable coupling.
struct FitRows {
  std::vector<float> x1, y1, z1, x2, y2, z2, dc2, dcmax_val, error;
};

// Writes one row per coupling below 1000.0 Hz; returns the row count.
int setup_svd(const Settings& settings, int no_dcs, const CouplingArrays& couplings, FitRows& rows);

// Physical range of a fitted order matrix (row by row, 9 values): every
// diagonal element within [-0.5, 1.0] and the elements (y,x), (z,x), (z,y)
// within [-0.75, 0.75]; values on a bound pass.
bool order_in_range(const double order[9]);

// True when a back-calculated coupling lies strictly above dc + e or
// strictly below dc - e (both bounds formed in single precision).
bool outside_experimental_range(double predicted, float dc, float e);

// Fits the five Saupe elements to rows 0..m_all-1; returns the rows used.
int svd_simple(int m_all, const FitRows& rows, double saupe[5], FILE* out);

}  // namespace vorn
