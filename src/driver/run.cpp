#include "driver/run.hpp"

#include <array>
#include <cstdio>
#include <memory>
#include <vector>

#include "couplings/dc_file.hpp"
#include "driver/cmdline.hpp"
#include "driver/config.hpp"
#include "driver/fatal.hpp"
#include "driver/settings.hpp"
#include "fit/compare.hpp"
#include "fit/svd_fit.hpp"
#include "molecule/atoms.hpp"
#include "molecule/pdb_reader.hpp"
#include "molecule/selection.hpp"
#include "simulation/frame.hpp"
#include "simulation/grid.hpp"
#include "simulation/orientation.hpp"
#include "simulation/predict.hpp"
#include "tensor/analyze.hpp"

namespace vorn {

namespace {

// The files opened for the options stay open for the whole run and are
// closed when it ends, however it ends.
struct OptionFiles {
  std::array<FILE*, kOptionSlots> files{};
  ~OptionFiles() {
    for (FILE* f : files)
      if (f != nullptr) std::fclose(f);
  }
};

[[noreturn]] void usage_error(const std::string& text) { nerror(text); }

// Analysis of one tensor and its report.
void analyse_and_report(const Settings& settings, const double saupe[5], FILE* out) {
  double eigVec[3][3] = {};
  double eigVal[3] = {};
  double da = 0.0;
  double dr = 0.0;
  double alphalist[4] = {};
  double betalist[4] = {};
  double gammalist[4] = {};
  if (analyzeSaupe(saupe, eigVec, eigVal, da, dr, alphalist, betalist, gammalist, out) != 0) {
    std::fprintf(out, "analyzeSaupe: error occured\n");
  }
  print_eigensystem(settings.pr_eigen, saupe, eigVal, eigVec, out);
}

}  // namespace

int run(int argc, const char* const* argv, Io& io) {
  Settings settings;

  legal_notice(io.out);

  int option_ok = 0;
  int option_flags[kOptionSlots] = {};
  OptionFiles option_file;
  const int no_options = read_flags(argc, argv, option_ok, option_flags, option_file.files.data());
  Aufruf_Check(2, argc - no_options, usage_error, io.out);

  read_auto(settings, option_flags, option_file.files.data(), io);
  refine_bicelle(settings);

  AtomArrays atoms;
  const int tot_no_of_atoms = reading_PDBfile(argv[no_options + 1], atoms, io.out);

  CouplingArrays couplings;
  int dab_sign = 1;
  const int no_of_dcs = reading_DCfile(option_flags, option_file.files.data(), couplings, dab_sign);
  reading_vectors(no_of_dcs, couplings, tot_no_of_atoms, atoms);

  const int no_of_atoms = select_atoms(tot_no_of_atoms, atoms, settings, io);

  double center_of_mass_xray[4] = {};
  double max_radius = 0.0;
  double min_radius = 0.0;
  calculate_center_mass(no_of_atoms, atoms.x, atoms.y, atoms.z, atoms.mass, center_of_mass_xray);
  shift_coordinate_system(center_of_mass_xray, no_of_atoms, atoms.x, atoms.y, atoms.z);
  calculate_extreme_length(no_of_atoms, atoms.x, atoms.y, atoms.z, max_radius, min_radius);

  Grid model_grid(kGridSlots, GridPoint{});
  Grid model_grid_ph(kGridSlots, GridPoint{});
  int no_of_grid_ph_pts = 0;
  double max_abstand = 0.0;
  double max_abstand_ph = 0.0;
  const int no_of_grid_points = setup_model(
      settings, settings.concentration, settings.ellipticity, min_radius + settings.atom_radius,
      max_radius + settings.atom_radius, settings.max_obs_dim, settings.liquid_type,
      settings.grid_type, settings.grid_spacing, model_grid, no_of_grid_ph_pts, model_grid_ph,
      max_abstand, max_abstand_ph, io.out);

  OrientationTables tables;
  const int no_of_angle_pts = grid_orientation_sampling(
      settings, settings.dig_theta, settings.dig_phi, settings.dig_psi, tables.eulerangle, io.out);

  int no_free_orient = 0;
  int no_ph_free_orient = 0;
  calculate_scaling(settings, no_of_angle_pts, max_abstand, max_abstand_ph, settings.max_obs_dim,
                    no_free_orient, no_ph_free_orient);
  setup_lists(settings, no_of_angle_pts, tables, io.out);
  double saupe_dev[5] = {};
  check_Saupe_uniformity(settings, no_of_angle_pts, tables, saupe_dev, io.out);

  double saupe[5] = {};
  double saupe_weight[5] = {};
  simulate_alignment3(settings, settings.max_obs_dim, no_of_atoms, no_free_orient,
                      no_ph_free_orient, atoms.x, atoms.y, atoms.z, no_of_grid_points,
                      no_of_grid_ph_pts, no_of_angle_pts, model_grid, model_grid_ph, tables,
                      saupe_dev, saupe, saupe_weight);
  for (double& element : saupe_weight) element *= settings.order_parameter;

  std::fprintf(io.out, "\nSimulation\n");
  std::fprintf(io.out, "==========\n");
  analyse_and_report(settings, saupe_weight, io.out);

  if (option_flags[3] == 1) {
    comp_meas_pred(saupe_weight, no_of_dcs, couplings, io.out);
    FitRows rows;
    const int nodc_svd = setup_svd(settings, no_of_dcs, couplings, rows);
    // Five free elements: the fit needs at least six usable couplings.
    if (nodc_svd > 5) {
      std::fprintf(io.out, "\n\nSVD\n");
      std::fprintf(io.out, "===\n");
      double saupe_svd[5] = {};
      svd_simple(nodc_svd, rows, saupe_svd, io.out);
      analyse_and_report(settings, saupe_svd, io.out);
      comp_meas_pred(saupe_svd, no_of_dcs, couplings, io.out);
    }
  }
  return 0;
}

int run_and_report(int argc, const char* const* argv, Io& io) {
  try {
    return run(argc, argv, io);
  } catch (const FatalError& error) {
    std::fflush(io.out);
    FILE* stream = error.stream() == Stream::out ? io.out : io.err;
    std::fputs(error.text().c_str(), stream);
    std::fflush(stream);
    return error.status();
  }
}

}  // namespace vorn
