#include "driver/config.hpp"

#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>

#include "driver/fatal.hpp"

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

void refine_bicelle(Settings& s) {
  const double mol_DHPC_free = 5.0;  // free short-chain lipid, mM
  const double mw_DMPC = 677.94;     // g/mol
  const double mw_DHPC = 453.51;     // g/mol
  const double pi = 3.141592654;
  const double pi2 = 9.869604403666765;
  const double LZahl = 6.022e23;  // Avogadro's number, kept for reference
  (void)LZahl;

  const double mol_DHPC = s.concentration * 1000 / (s.molar_ratio * mw_DMPC + mw_DHPC);
  const double mol_DMPC = s.molar_ratio * mol_DHPC;
  const double wv_DHPC = mol_DHPC * mw_DHPC;
  const double wv_DMPC = mol_DMPC * mw_DMPC;
  const double concentration_DMPC = wv_DMPC / 1000;
  const double concentration_DHPC = wv_DHPC / 1000;
  (void)concentration_DMPC;
  (void)concentration_DHPC;
  const double molar_ratio_eff = mol_DMPC / (mol_DHPC - mol_DHPC_free / 1000);
  const double wv_bic = (mol_DMPC * mw_DMPC + (mol_DHPC - mol_DHPC_free / 1000) * mw_DHPC) / 1000;
  s.radius_bic =
      (std::sqrt(8.0 / molar_ratio_eff + pi2) + pi) * (s.max_obs_dim * 0.5 * molar_ratio_eff);
  const double volume_bic = (2 * pi * s.radius_bic * s.radius_bic * s.max_obs_dim +
                             s.radius_bic * pi2 * s.max_obs_dim * s.max_obs_dim) *
                            1e-24;
  const double no_bic_mil = wv_bic / volume_bic;
  const double cube_bic = 1e24 / no_bic_mil;
  (void)cube_bic;
  s.step_out_length = s.max_obs_dim / wv_bic;
  s.order_rel = (pi * s.radius_bic) / (4.0 * (pi * s.radius_bic + 2 * s.max_obs_dim));
  s.molar_ratio = molar_ratio_eff;
}

}  // namespace vorn
