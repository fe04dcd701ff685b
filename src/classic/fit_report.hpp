// Classic reports of the comparison with measured couplings and of the SVD
// fit.
#pragma once

#include <cstdio>

#include "classic/dc_file.hpp"
#include "vorn/classic.hpp"

namespace vorn {

// Heading, statistics, regression and the per-coupling listing of the
// comparison of the tensor with couplings 1..nodc.
void comp_meas_pred(const double saupe[5], int nodc, const CouplingArrays& couplings, FILE* out);

// What the SVD fit prints: the row count, a failed decomposition, a
// singular design and the couplings outside their experimental range.
void print_svd_fit(const ClassicSvdFit& fit, FILE* out);

}  // namespace vorn
