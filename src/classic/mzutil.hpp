// Small general utilities of the driver.
#pragma once

#include <cstdio>

namespace vorn {

// Opens a file or ends the run with the "no such file" block.
FILE* DateiOeffnen(const char* dateiname, const char* access);

void KontrollMeldung(const char* error_txt, FILE* out);
void KontrollMeldung_Lesen(const char* error_txt, FILE* out);
int Gleich(const char* L, const char* Mit);
double dot_product(const double a[4], const double b[4]);
double norm_vector(const double a[4]);

}  // namespace vorn
