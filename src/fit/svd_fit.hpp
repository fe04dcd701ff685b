// Fit of the alignment tensor to the measured couplings by singular value
// decomposition, as the classic program does it.
#pragma once

#include <span>
#include <vector>

#include "vorn/classic.hpp"

namespace vorn {

// Single-precision fit rows, used from index 0, one per usable coupling.
struct FitRows {
  std::vector<float> x1, y1, z1, x2, y2, z2, dc2, dcmax_val, error;
};

// Writes one row per coupling below 1000.0 Hz; returns the row count. The
// error of a row is nherror on the row's own scale.
int setup_svd(double nherror, std::span<const ClassicCoupling> couplings, FitRows& rows);

// Physical range of a fitted order matrix (row by row, 9 values): every
// diagonal element within [-0.5, 1.0] and the elements (y,x), (z,x), (z,y)
// within [-0.75, 0.75]; values on a bound pass.
bool order_in_range(const double order[9]);

// True when a back-calculated coupling lies strictly above dc + e or
// strictly below dc - e (both bounds formed in single precision).
bool outside_experimental_range(double predicted, float dc, float e);

// Fits the five Saupe elements to rows 0..m_all-1 into result (rows used,
// decomposition status, singularity, range check, the rows outside their
// experimental range, the elements); returns the rows used.
int svd_simple(int m_all, const FitRows& rows, ClassicSvdFit& result);

}  // namespace vorn
