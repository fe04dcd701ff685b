// Auto file, interactive medium prompts and the derived medium parameters.
#pragma once

#include <cstdio>

#include "driver/cmdline.hpp"
#include "driver/io.hpp"
#include "driver/settings.hpp"

namespace vorn {

// Reads the auto file (flags[1] == 1, flag_file[1] open, closed here) or asks
// for medium and concentration on io.in; then applies the radius rule and
// the obstacle dimension of the medium.
void read_auto(Settings& settings, const int flags[kOptionSlots], FILE* flag_file[kOptionSlots],
               Io& io);

// Derives radius_bic, order_rel, step_out_length and the effective
// molar_ratio from concentration, molar_ratio and max_obs_dim.
void refine_bicelle(Settings& settings);

// Integer settings take auto-file values truncated toward zero.
int truncate_setting(double value);

}  // namespace vorn
