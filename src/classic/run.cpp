#include "classic/run.hpp"

#include <array>
#include <cstdio>
#include <memory>
#include <vector>

#include "classic/analyze.hpp"
#include "classic/atoms.hpp"
#include "classic/cmdline.hpp"
#include "classic/config.hpp"
#include "classic/dc_file.hpp"
#include "classic/fit_report.hpp"
#include "classic/limits.hpp"
#include "classic/pdb_reader.hpp"
#include "classic/selection.hpp"
#include "core/fatal.hpp"
#include "vorn/classic.hpp"
#include "vorn/settings.hpp"

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

  // The prediction on the selected atoms, with this program's capacities:
  // at most kGridSlots grid points and fewer than kOrientationLimit
  // orientations. Listings go to standard output as they come.
  std::vector<Vec3> positions;
  positions.reserve(static_cast<std::size_t>(std::max(no_of_atoms, 0)));
  for (int i = 1; i <= no_of_atoms; ++i) positions.push_back({atoms.x[i], atoms.y[i], atoms.z[i]});
  ClassicLimits limits;
  limits.max_grid_index = kGridSlots - 1;
  limits.orientation_limit = kOrientationLimit;
  Log log;
  log.listing = [&io](std::string_view text) { std::fwrite(text.data(), 1, text.size(), io.out); };
  log.warning = [&io](std::string_view text) { std::fwrite(text.data(), 1, text.size(), io.err); };
  const SaupeElements predicted = classic_predict(settings, positions, limits, log);
  double saupe_weight[5] = {predicted[0], predicted[1], predicted[2], predicted[3], predicted[4]};

  std::fprintf(io.out, "\nSimulation\n");
  std::fprintf(io.out, "==========\n");
  analyse_and_report(settings, saupe_weight, io.out);

  if (option_flags[3] == 1) {
    comp_meas_pred(saupe_weight, no_of_dcs, couplings, io.out);
    const std::vector<ClassicCoupling> measured = classic_couplings(no_of_dcs, couplings);
    int usable = 0;
    for (const ClassicCoupling& c : measured) usable += c.value_hz < 1000.0 ? 1 : 0;
    // Five free elements: the fit needs at least six usable couplings.
    if (usable > 5) {
      std::fprintf(io.out, "\n\nSVD\n");
      std::fprintf(io.out, "===\n");
      const ClassicSvdFit fit = classic_svd_fit(measured, settings.nherror);
      print_svd_fit(fit, io.out);
      double saupe_svd[5] = {fit.saupe[0], fit.saupe[1], fit.saupe[2], fit.saupe[3], fit.saupe[4]};
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
