// Auto file, interactive medium prompts and the derived medium parameters.
#pragma once

#include <cstdio>

#include "classic/cmdline.hpp"
#include "classic/io.hpp"
#include "vorn/classic.hpp"
#include "vorn/settings.hpp"

namespace vorn {

// Reads the auto file (flags[1] == 1, flag_file[1] open, closed here) or asks
// for medium and concentration on io.in; then applies the radius rule and
// the obstacle dimension of the medium.
void read_auto(Settings& settings, const int flags[kOptionSlots], FILE* flag_file[kOptionSlots],
               Io& io);

// refine_bicelle (the bicelle completion of the settings) is part of the
// library: vorn/classic.hpp.

// Integer settings take auto-file values truncated toward zero.
int truncate_setting(double value);

}  // namespace vorn
