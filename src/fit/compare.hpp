// Predicted couplings of the classic kinds and their comparison with the
// measured ones.
#pragma once

#include <span>

#include "vorn/classic.hpp"

namespace vorn {

double findD(double xIJ_temp, double yIJ_temp, double zIJ_temp, double diVal,
             const double saupe[5]);

// Predicted couplings and the statistics on the N-H scale over the measured
// ones (fewer than three measured couplings throw from the correlation).
ClassicComparison compare_couplings(const double saupe[5],
                                    std::span<const ClassicCoupling> couplings);

}  // namespace vorn
