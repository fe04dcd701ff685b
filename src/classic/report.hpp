// Classic report of an alignment tensor.
#pragma once

#include <cstdio>

namespace vorn {

// Prints Da(NH), R and the four Euler triples on out. Always returns 0.
int print_analyzation(double da, double dr, const double alphalist[4], const double betalist[4],
                      const double gammalist[4], FILE* out);

}  // namespace vorn
