#include "classic/config.hpp"

#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>

#include "core/fatal.hpp"

namespace vorn {

int truncate_setting(double value) {
  // Truncation toward zero. A value that no int can hold (NaN, infinities,
  // magnitudes beyond the int range) has no defined conversion; it is clamped
  // to the nearest int (NaN gives 0) so that a hand-edited file cannot make
  // the conversion undefined.
  if (std::isnan(value)) return 0;
  if (value >= 2147483647.0) return INT_MAX;
  if (value <= -2147483648.0) return INT_MIN;
  return static_cast<int>(value);
}

namespace {

// Stores one key and value; returns false for an unknown key.
bool apply_setting(Settings& s, const std::string& key, double value) {
  if (key == "ANISOTROPIC_MEDIUM:") {
    s.liquid_type = truncate_setting(value);
  } else if (key == "BICELLE_PHAGE:") {
    s.bic_phage = value;
  } else if (key == "MOLAR_RATIO:") {
    s.molar_ratio = value;
  } else if (key == "GRID_TYPE:") {
    s.grid_type = truncate_setting(value);
  } else if (key == "GRID_SPACING:") {
    s.grid_spacing = value;
  } else if (key == "DIGIT_BETA:") {  // the angle keys are crossed on purpose
    s.dig_theta = truncate_setting(value);
  } else if (key == "DIGIT_ALPHA:") {
    s.dig_phi = truncate_setting(value);
  } else if (key == "DIGIT_GAMMA:") {
    s.dig_psi = truncate_setting(value);
  } else if (key == "LIPID_CONCENTRATION:") {
    s.concentration = value;
  } else if (key == "ATOM_RADIUS:") {
    s.atom_radius = value;
  } else if (key == "SELECT_FLAG:") {
    s.select_flag = truncate_setting(value);
  } else if (key == "PROTON_FLAG:") {
    s.H_flag = truncate_setting(value);
  } else if (key == "ROTATE_FLAG:") {
    s.rotate_ok = value;
  } else if (key == "NHerror:") {
    s.nherror = value;
  } else if (key == "PRINT_EIGEN:") {
    s.pr_eigen = truncate_setting(value);
  } else {
    return false;
  }
  return true;
}

void read_auto_file(Settings& settings, FILE* file, FILE* err) {
  // The key and the value survive from line to line: a line that does not
  // scan re-applies what the previous scan left (an empty line repeats the
  // previous key and value). The key is held in full rather than in a
  // 50-character buffer; a longer token cannot match any key and is simply
  // reported as unknown.
  std::string flagname;
  double flagvalue = 0.0;
  char line[100];
  while (std::fgets(line, sizeof line, file) != nullptr) {
    char* token = nullptr;
    double value = flagvalue;
    const int scanned = std::sscanf(line, "%ms %lf", &token, &value);
    if (token != nullptr) {
      flagname = token;
      std::free(token);
    }
    if (scanned >= 2) flagvalue = value;
    if (scanned != 2) {
      std::fprintf(err, "Error: Input data in auto file have wrong format\n");
      std::fprintf(err, "Line:%s", line);
    }
    if (!apply_setting(settings, flagname, flagvalue)) {
      std::fprintf(err, "Error: Wrong input parameter in auto file");
    }
  }
  std::fclose(file);
}

}  // namespace

void read_auto(Settings& settings, const int flags[kOptionSlots], FILE* flag_file[kOptionSlots],
               Io& io) {
  if (flags[1] == 1) {
    read_auto_file(settings, flag_file[1], io.err);
    flag_file[1] = nullptr;
  } else {
    std::fprintf(io.out, "bicelle (1) or phage (2): ");
    std::fflush(io.out);
    // An unreadable answer leaves the setting as it was.
    if (std::fscanf(io.in, "%d", &settings.liquid_type) != 1) {
      // nothing read: the default stays
    }
    if (settings.liquid_type != 1 && settings.liquid_type != 2) {
      nerror("Either 1 (bicelle) or 2 (phage) must be selected...");
    }
    std::fprintf(io.out, "total lipid/phage concentration [g/ml]: ");
    std::fflush(io.out);
    if (std::fscanf(io.in, "%lf", &settings.concentration) != 1) {
      // nothing read: the default stays
    }
  }

  // Surface selection modes work with the probe radius.
  if (settings.select_flag == 0 || settings.select_flag == 1) settings.atom_radius = 1.4;

  if (settings.liquid_type == 1) {
    settings.max_obs_dim = 20.0;
  } else if (settings.liquid_type == 2) {
    settings.max_obs_dim = 30.0;
  }
}

}  // namespace vorn
