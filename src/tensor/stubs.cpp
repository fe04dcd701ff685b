// Placeholder bodies until the stages are implemented; delete when done.
#include "tensor/analyze.hpp"

namespace vorn {
int analyzeSaupe(const double*, double (*)[3], double*, double&, double&, double*, double*,
                 double*, FILE*) {
  return 0;
}
void print_eigensystem(int, const double*, const double*, const double (*)[3], FILE*) {}
}  // namespace vorn
