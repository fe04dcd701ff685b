// Banner, command-line options, argument check and the file utilities.
#pragma once

#include <cstdio>
#include <string>

#include "classic/mzutil.hpp"

namespace vorn {

inline constexpr int kOptionSlots = 10;  // entry 1: -A, 2: -O, 3: -D

void legal_notice(FILE* out);

// Parses the options in front of the coordinate file and opens their files.
// Returns the number of options recognised; flag_ok becomes 1 when there was one.
int read_flags(int inputc, const char* const* input, int& flag_ok, int flags[kOptionSlots],
               FILE* flag_file[kOptionSlots]);

// Returns only when noI_files equals noS_files; otherwise prints the usage
// text on out and calls error_out with a bare line feed.
void Aufruf_Check(int noS_files, int noI_files, void (*error_out)(const std::string&), FILE* out);

}  // namespace vorn
