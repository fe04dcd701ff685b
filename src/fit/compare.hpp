// Predicted couplings and the comparison with measured ones.
#pragma once

#include <cstdio>

#include "couplings/dc_file.hpp"

namespace vorn {

double findD(double xIJ_temp, double yIJ_temp, double zIJ_temp, double diVal,
             const double saupe[5]);

void comp_meas_pred(const double saupe[5], int nodc, const CouplingArrays& couplings, FILE* out);

}  // namespace vorn
