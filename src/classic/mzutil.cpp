#include "classic/mzutil.hpp"

#include <cmath>
#include <cstring>

#include "core/fatal.hpp"

namespace vorn {

FILE* DateiOeffnen(const char* dateiname, const char* access) {
  FILE* file = std::fopen(dateiname, access);
  if (file == nullptr) nerror_datei(dateiname);
  return file;
}

void KontrollMeldung(const char* error_txt, FILE* out) { std::fprintf(out, "%s\n", error_txt); }

void KontrollMeldung_Lesen(const char* error_txt, FILE* out) {
  std::fprintf(out, "'%s' is being read in...\n", error_txt);
}

int Gleich(const char* L, const char* Mit) { return std::strcmp(L, Mit) == 0 ? 1 : 0; }

double dot_product(const double a[4], const double b[4]) {
  return a[1] * b[1] + a[2] * b[2] + a[3] * b[3];
}

double norm_vector(const double a[4]) { return std::sqrt(dot_product(a, a)); }

}  // namespace vorn
