// The settings of the classic program, every field with its classic name
// and default: built-in defaults, overridden once by an auto file or the
// prompts, completed by refine_bicelle (see vorn/classic.hpp) and read-only
// afterwards. The modern API describes the same model with Medium and
// Sampling (vorn/predict.hpp); these settings also reach the classic
// program's edge cases (medium codes, grid types, the combined-medium flag).
#pragma once

namespace vorn {

struct Settings {
  int liquid_type = 1;     // 1 bicelle, 2 phage
  double bic_phage = 0.0;  // 1.0: wall corrected by a cylinder term
  int grid_type = 2;
  double concentration = 0.05;  // g/ml
  double ellipticity = 1.0;
  double max_obs_dim = 20.0;  // obstacle dimension, Angstrom
  double grid_spacing = 0.5;  // Angstrom
  double medium_dist_max = 8000.0;
  double molar_ratio = 3.0;
  double order_parameter = 0.8;
  int select_flag = 0;
  int refine_ok = 1;
  int scale_down_ok = 1;
  int mode = 0;
  int H_flag = 0;  // 0: protons are removed
  double rotate_ok = 0.0;
  double atom_radius = 3.0;  // Angstrom
  double radius_bic = 200.0;
  double order_rel = 0.25;
  int pr_eigen = 0;
  int dig_theta = 9;
  int dig_phi = 18;
  int dig_psi = 18;
  double nherror = 1.5;  // Hz
  int debug = 0;
  double step_out_length = 0.0;
};

}  // namespace vorn
