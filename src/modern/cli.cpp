#include "modern/cli.hpp"

#include <unistd.h>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "app/fit_command.hpp"
#include "app/predict_command.hpp"
#include "modern/fit_plot.hpp"
#include "modern/fit_report.hpp"
#include "modern/plot_support.hpp"
#include "modern/predict_pictures.hpp"
#include "modern/predict_report.hpp"
#include "modern/tensor_script.hpp"
#include "modern/version.hpp"
#include "vorn/error.hpp"

namespace vorn::modern {

using namespace vorn::app;  // the shared commands this front end presents

namespace {

constexpr int kBadInput = 1;
constexpr int kMisuse = 2;

const std::vector<std::string> kCommands = {"predict", "fit"};

// A finite number above zero. CLI11's PositiveNumber says the same with the
// whole range of double written out in digits.
const CLI::Validator kPositiveNumber(
    [](std::string& text) -> std::string {
      double value = 0.0;
      if (CLI::detail::lexical_cast(text, value) && std::isfinite(value) && value > 0.0) return {};
      return "expected a positive number, got '" + text + "'";
    },
    "POSITIVE");

// Writes the finished output to the file or to standard output.
void write_output(const std::string& text, const std::string& path) {
  if (path.empty() || path == "-") {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
    return;
  }
  std::ofstream out(path, std::ios::binary);
  if (!out) throw InputError(path + ": cannot open for writing");
  out << text;
  if (!out.flush()) throw InputError(path + ": write failed");
}

// A progress line on standard error when it is a terminal and the run has
// several models or takes longer than a second.
class Progress {
 public:
  explicit Progress(bool enabled) : enabled_(enabled && isatty(STDERR_FILENO) != 0) {}
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  void model_done(const std::string& file, int count) {
    if (!enabled_) return;
    const auto elapsed = std::chrono::steady_clock::now() - start_;
    if (count < 2 && elapsed < std::chrono::seconds(1)) return;
    std::fprintf(stderr, "\r%s: %d model%s predicted", file.c_str(), count, count == 1 ? "" : "s");
    std::fflush(stderr);
    shown_ = true;
  }
  ~Progress() {
    if (shown_) std::fputs("\n", stderr);
  }

 private:
  bool enabled_;
  bool shown_ = false;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// Option texts converted after parsing.
struct OptionText {
  std::string models, altloc, input_format, frames;
  std::string sampling = "9,18,18";
  std::string medium = "bicelle";
  std::string selection = "surface";
  std::string format = "text";
  double atom_radius = 0.0;
  // The charged obstacle: the defaults shown in the help; the options
  // given are told by their count.
  double charge_density = 0.0;
  double ionic_strength = ObstacleCharge{}.ionic_strength;
  double ph = PredictSettings{}.ph;
  double temperature = ObstacleCharge{}.temperature;
  double obstacle_radius = 0.0;
  std::string potential = potential_name(ObstacleCharge{}.potential);
  std::string charges;
};

void add_reading_options(CLI::App& cmd, PredictSettings& s, OptionText& t) {
  const char* group = "Reading the structure";
  cmd.add_option("--input-format", t.input_format, "pdb or cif (default: from the content)")
      ->group(group)
      ->check(CLI::IsMember({"pdb", "cif", "mmcif", "pdbx"}, CLI::ignore_case));
  cmd.add_option("--models", t.models, "models to use, e.g. 1,3-5 (default: all)")->group(group);
  cmd.add_option("--frames", t.frames, "frames of a trajectory FIRST:LAST[:STEP] (default: all)")
      ->group(group);
  cmd.add_option("--altloc", t.altloc, "alternate location to keep (default: highest occupancy)")
      ->group(group);
  cmd.add_flag("--hetatm", s.read.hetatm, "keep HETATM records other than water")->group(group);
  cmd.add_flag("--keep-hydrogens", s.read.keep_hydrogens,
               "hydrogens take part in the steric model (default: removed)")
      ->group(group);
  cmd.add_flag("--add-hydrogens", s.add_hydrogens,
               "place every missing hydrogen of the standard residues from the heavy atoms "
               "(steric model: as read hydrogens)")
      ->group(group);
  cmd.add_option("--chains", s.read.chains, "chains to read, e.g. A,B (default: all)")
      ->group(group);
  cmd.add_option("--exclude", s.read.exclude,
                 "atoms to leave out, gemmi selection syntax, e.g. '/*/A/70-76'")
      ->group(group);
}

// The obstacle's charge and the molecule's: values are checked after
// parsing (apply_medium_options), with the medium they go with.
void add_charge_options(CLI::App& cmd, OptionText& t, const char* group) {
  cmd.add_option("--charge-density", t.charge_density,
                 fmt::format("surface charge of the obstacle, e/nm^2 (default: 0, {:g} with pf1)",
                             kPf1ChargeDensity))
      ->group(group);
  cmd.add_option("--ionic-strength", t.ionic_strength, "1:1 salt, mol/l")
      ->group(group)
      ->capture_default_str();
  cmd.add_option("--ph", t.ph, "pH of the titration of the molecule's charges")
      ->group(group)
      ->capture_default_str();
  cmd.add_option("--temperature", t.temperature, "K")->group(group)->capture_default_str();
  Medium phage;
  phage.kind = MediumKind::phage;
  cmd.add_option(
         "--obstacle-radius", t.obstacle_radius,
         fmt::format("radius of the cylinder (phage, pf1), A (default: {:g} phage, {:g} pf1)",
                     phage.obstacle(), kPf1Radius))
      ->group(group)
      ->excludes("--obstacle-dimension");
  cmd.add_option("--potential", t.potential,
                 "linear (Debye-Hueckel) or nonlinear (Poisson-Boltzmann)")
      ->group(group)
      ->check(CLI::IsMember({"linear", "nonlinear"}))
      ->capture_default_str();
  cmd.add_option("--charges", t.charges,
                 "charges of the molecule from a PQR file (default: titration of its residues)")
      ->group(group)
      ->type_name("FILE.pqr");
}

void add_model_options(CLI::App& cmd, PredictSettings& s, OptionText& t, const char* group,
                       const char* charge_group) {
  cmd.add_option("--select", t.selection, "atoms of the steric model: surface, heavy or all")
      ->group(group)
      ->check(CLI::IsMember({"surface", "heavy", "all"}))
      ->capture_default_str();
  cmd.add_option("--medium", t.medium,
                 "bicelle, phage, bicelle+phage, or pf1 (the phage with Pf1's radius and charge)")
      ->group(group)
      ->check(CLI::IsMember({"bicelle", "phage", "bicelle+phage", "pf1"}))
      ->capture_default_str();
  cmd.add_option("--concentration", s.medium.concentration, "lipid or phage, g/ml")
      ->group(group)
      ->check(kPositiveNumber)
      ->capture_default_str();
  cmd.add_option("--molar-ratio", s.medium.molar_ratio, "long- to short-chain lipid (bicelles)")
      ->group(group)
      ->check(kPositiveNumber)
      ->capture_default_str();
  cmd.add_option("--obstacle-dimension", s.medium.obstacle_dimension,
                 "bicelle thickness or phage cylinder radius, A (default: 20 bicelle, 30 phage)")
      ->group(group)
      ->check(kPositiveNumber);
  add_charge_options(cmd, t, charge_group);
  cmd.add_option("--atom-radius", t.atom_radius,
                 "contact radius of an atom, A (default: 1.4 with surface, else 3.0)")
      ->group(group)
      ->check(kPositiveNumber);
  cmd.add_option("--grid-spacing", s.medium.grid_spacing, "step of the position grid, A")
      ->group(group)
      ->check(kPositiveNumber)
      ->capture_default_str();
  cmd.add_option("--order-parameter", s.medium.order_parameter, "scale of the predicted tensor")
      ->group(group)
      ->capture_default_str();
  cmd.add_option("--sampling", t.sampling, "orientation steps THETA,PHI,PSI")
      ->group(group)
      ->capture_default_str();
  cmd.add_option("--threads", s.threads, "worker threads (default: all cores)")
      ->group(group)
      ->check(CLI::Range(1, 1024));
}

void add_output_options(CLI::App& cmd, PredictSettings& s, OptionText& t) {
  const char* group = "Output";
  cmd.add_option("--format", t.format,
                 "text, json, csv, nef (NEF rdc restraint lists) or pipe (NMRPipe table)")
      ->group(group)
      ->check(CLI::IsMember({"text", "json", "csv", "nef", "pipe"}))
      ->capture_default_str();
  cmd.add_option("-o,--output", s.output_file, "output file (default: standard output)")
      ->group(group);
  cmd.add_flag("-q,--quiet", s.quiet, "no progress line")->group(group);
}

// "9,18,18" -> the three sampling counts, each at least 1.
Sampling parse_sampling(const std::string& text) {
  Sampling s;
  char extra = 0;
  if (std::sscanf(text.c_str(), "%d,%d,%d%c", &s.theta, &s.phi, &s.psi, &extra) != 3 ||
      s.theta < 1 || s.phi < 1 || s.psi < 1) {
    throw CLI::ValidationError(
        "--sampling",
        "expects three whole numbers of at least 1, e.g. 9,18,18 (got '" + text + "')");
  }
  return s;
}

// An option of the command line by its name in the bindings:
// "ionic_strength" -> "--ionic-strength".
std::string option_name(const std::string& name) {
  std::string text = "--" + name;
  std::replace(text.begin(), text.end(), '_', '-');
  return text;
}

// The medium and its charge from the options given.
void finish_medium(const CLI::App& cmd, const OptionText& t, PredictSettings& s) {
  MediumOptions m;
  m.medium = t.medium;
  const auto given = [&](const char* option) { return cmd.count(option) > 0; };
  if (given("--charge-density")) m.charge_density = t.charge_density;
  if (given("--ionic-strength")) m.ionic_strength = t.ionic_strength;
  if (given("--ph")) m.ph = t.ph;
  if (given("--temperature")) m.temperature = t.temperature;
  if (given("--obstacle-radius")) m.obstacle_radius = t.obstacle_radius;
  // Checked against the names by the option's IsMember.
  if (given("--potential")) m.potential = parse_potential(t.potential);
  if (given("--charges")) m.charges_file = t.charges;
  try {
    apply_medium_options(s, m, option_name);
  } catch (const OptionError& e) {
    throw CLI::ValidationError(option_name(e.option()), e.what());
  }
}

// True when options about the molecule's charges were given for a medium
// that has none.
bool charges_unused(const CLI::App& cmd, const PredictSettings& s) {
  if (is_charged(s.medium)) return false;
  for (const char* option :
       {"--charges", "--ph", "--ionic-strength", "--potential", "--temperature"})
    if (cmd.count(option) > 0) return true;
  return false;
}

// The parsed option texts into the settings; throws CLI::ValidationError.
void finish_options(const CLI::App& cmd, const OptionText& t, PredictSettings& s) {
  s.sampling = parse_sampling(t.sampling);
  if (!t.altloc.empty()) {
    if (t.altloc.size() != 1) {
      throw CLI::ValidationError("--altloc", "expects one character (got '" + t.altloc + "')");
    }
    s.read.altloc = t.altloc[0];
  }
  finish_medium(cmd, t, s);
  // Checked against the same names by the option's IsMember.
  s.selection = parse_selection(t.selection).value_or(Selection::surface);
  s.output_format = t.format == "json"   ? OutputFormat::json
                    : t.format == "csv"  ? OutputFormat::csv
                    : t.format == "nef"  ? OutputFormat::nef
                    : t.format == "pipe" ? OutputFormat::pipe
                                         : OutputFormat::text;
  if (cmd.count("--atom-radius") > 0) {
    s.atom_radius_given = true;
    s.medium.atom_radius = t.atom_radius;
  }
  if (!t.input_format.empty()) s.input_format = parse_format(t.input_format);
  if (!t.models.empty()) {
    try {
      s.read.models = parse_model_list(t.models);
    } catch (const InputError& e) {
      throw CLI::ValidationError("--models", e.what());
    }
  }
  // TOPOLOGY TRAJECTORY: the trajectory's frames are the models.
  if (s.files.size() == 2 && io::is_trajectory_file(s.files[1])) {
    s.read.trajectory = s.files[1];
    s.files.pop_back();
  }
  if (!t.frames.empty()) {
    if (s.read.trajectory.empty()) {
      throw CLI::ValidationError("--frames",
                                 "needs a trajectory (vorn predict TOPOLOGY TRAJECTORY)");
    }
    try {
      io::parse_frame_range(t.frames, s.read);
    } catch (const InputError& e) {
      throw CLI::ValidationError("--frames", e.what());
    }
  }
}

}  // namespace

Output::~Output() {
  if (file_ != nullptr && file_ != stdout) std::fclose(file_);
}

void Output::write(const std::string& text) {
  if (text.empty()) return;
  if (hold_) {
    held_ += text;
    return;
  }
  if (file_ == nullptr) {
    file_ = path_.empty() || path_ == "-" ? stdout : std::fopen(path_.c_str(), "wb");
    if (file_ == nullptr) throw InputError(path_ + ": cannot open for writing");
  }
  if (std::fwrite(text.data(), 1, text.size(), file_) != text.size()) {
    throw InputError((path_.empty() ? std::string("standard output") : path_) + ": write failed");
  }
}

void Output::finish() {
  if (hold_) {
    hold_ = false;
    write(std::exchange(held_, std::string()));
  }
  if (file_ != nullptr && std::fflush(file_) != 0) throw InputError(path_ + ": write failed");
}

// A stream of models allocates and frees the same working memory for every
// model. glibc returns freed memory at the top of a heap to the system once
// it exceeds 128 KiB and faults it in again for the next model, which costs
// a tenth of a large ensemble's run in page faults; keeping it (up to the
// program's peak, which does not grow with the number of models) avoids
// that.
void keep_freed_memory() {
#if defined(__GLIBC__)
  mallopt(M_TRIM_THRESHOLD, 256 << 20);
  mallopt(M_TOP_PAD, 16 << 20);
#endif
}

int run_predict_command(PredictSettings& s) {
  keep_freed_memory();
  // Every input must open before anything is written.
  for (const std::string& file : s.files) {
    std::ifstream probe(file, std::ios::binary);
    if (!probe) throw InputError(file + ": cannot open: " + std::strerror(errno));
  }
  // So is the PQR file, and it must fit the structures.
  prepare_charges(s, s.files);
  const int cores = std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
  const int threads = s.threads > 0 ? s.threads : cores;
  const PredictionContext context(s.sampling, threads);
  const ThreadPlan plan = plan_threads(context, threads);

  PredictPictures pictures(s, s.files.size());
  PredictReport report(s, s.files.size() > 1);
  Output out(s.output_file, !report.keeps_partial_output());
  Progress progress(!s.quiet);
  out.write(report.begin_all());
  for (std::size_t f = 0; f < s.files.size(); ++f) {
    const std::string& file = s.files[f];
    EnsembleAccumulator ensemble;
    bool begun = false;
    try {
      predict_stream(
          file, s, context, plan.workers, plan.per_prediction,
          [&](const std::string& format) {
            out.write(report.begin_file(file, format));
            begun = true;
          },
          [&](const ModelPrediction& m) { return report.model(m, file); },
          [&](const ModelPrediction& m, const std::string& text) {
            out.write(report.separator());
            out.write(text);
            ensemble.add(m);
            pictures.add(m);
            progress.model_done(file, ensemble.models());
          },
          [&] { return s.until_converged > 0.0 && ensemble.converged(s.until_converged); });
    } catch (const std::exception& e) {
      // Close the document so that what was written stays valid, then fail.
      if (begun && report.keeps_partial_output()) {
        out.write(report.end_file_with_error(e.what(), ensemble.models()));
        out.write(report.end_all());
        out.finish();
      }
      throw;
    }
    out.write(report.end_file(ensemble));
    pictures.end_file(f, file);
  }
  out.write(report.end_all());
  out.finish();
  return 0;
}

int run_fit_command(const FitSettings& s) {
  // A picture file without a format fails before the fit.
  if (!s.plot_file.empty()) plot::check_picture_path(s.plot_file, "correlation plot");
  if (!s.plot_sequence_file.empty())
    plot::check_picture_path(s.plot_sequence_file, "sequence plot");
  if (!s.plot_axes_file.empty()) plot::check_picture_path(s.plot_axes_file, "axes plot");
  if (!s.tensor_script_file.empty()) check_tensor_script_path(s.tensor_script_file);
  const FitResult result = run_fit(s);
  const std::string text = format_fit(result, s);
  if (!s.plot_file.empty()) write_fit_plots(result, s.plot_file);
  if (!s.plot_sequence_file.empty()) write_fit_sequence_plots(result, s.plot_sequence_file);
  if (!s.plot_axes_file.empty()) write_fit_axes_plots(result, s.plot_axes_file);
  if (!s.tensor_script_file.empty()) write_fit_tensor_scripts(result, s.tensor_script_file);
  write_output(text, s.common.output_file);
  return 0;
}

bool is_modern_command(std::string_view first) {
  if (first.rfind("--", 0) == 0) return true;
  for (const std::string& c : kCommands)
    if (first == c) return true;
  return false;
}

int run_cli(int argc, char** argv) {
  return run_cli(argc, argv, {run_predict_command, run_fit_command}, FrontEnd{});
}

int run_cli(int argc, char** argv, const CommandRunners& runners, const FrontEnd& front) {
  const std::string description =
      !front.description.empty()
          ? front.description
          : "VORN: steric alignment tensors and residual dipolar couplings of proteins and "
            "nucleic acids.\nThe classic interface, vorn [-A<auto>] [-D<couplings>] "
            "[-O<out>] <file>, works as before.";
  CLI::App app{description, front.program};
  app.set_version_flag("--version", front.program + " " + kVersion);
  app.require_subcommand(0, 1);
  app.fallthrough();

  PredictSettings predict_settings;
  OptionText predict_text;
  CLI::App* predict = app.add_subcommand(
      "predict", "Predict the alignment tensor and backbone couplings of every model");
  predict
      ->add_option("STRUCTURE", predict_settings.files,
                   "PDB, mmCIF or .gro file(s), PDB and mmCIF optionally gzipped; or a topology "
                   "(PDB, mmCIF or .gro) "
                   "and its trajectory (.dcd, .xtc or .trr)")
      ->required()
      ->type_name("FILE");
  add_reading_options(*predict, predict_settings, predict_text);
  add_model_options(*predict, predict_settings, predict_text, "Steric model", "Charged obstacle");
  add_output_options(*predict, predict_settings, predict_text);
  predict
      ->add_option("--plot-axes", predict_settings.plot_axes_file,
                   "principal axes of each model on the sphere: FILE.svg, .pdf or .png")
      ->group("Output");
  predict
      ->add_option("--tensor-script", predict_settings.tensor_script_file,
                   "principal axes of each model on the molecule: FILE.bild (ChimeraX) or .pml "
                   "(PyMOL)")
      ->group("Output");
  predict
      ->add_option("--until-converged", predict_settings.until_converged,
                   "stop reading a file's models once the block-averaging standard errors of Da "
                   "and of every coupling's mean are below TOL Hz (after at least 32 models)")
      ->type_name("TOL")
      ->check(kPositiveNumber)
      ->group("Ensemble");
  predict
      ->add_option("--window", predict_settings.window,
                   "predict each residue's couplings from the tensor of the N residues around it "
                   "(odd, at least 3; truncated at the chain's ends)")
      ->type_name("N")
      ->check(CLI::Validator(
          [](const std::string& text) -> std::string {
            int n = 0;
            char extra = 0;
            if (std::sscanf(text.c_str(), "%d%c", &n, &extra) != 1 || n < 3 || n % 2 == 0) {
              return "a window is an odd number of residues, at least 3 (got '" + text + "')";
            }
            return "";
          },
          "ODD>=3"))
      ->group("Ensemble");
  predict
      ->add_option("--plot-sequence", predict_settings.plot_sequence_file,
                   "predicted couplings along the sequence, a panel per type (ensembles: the "
                   "mean with its standard error): FILE.svg, .pdf or .png")
      ->group("Output");
  predict
      ->add_option_function<std::string>(
          "--plot-types",
          [&predict_settings](const std::string& list) {
            // One comma-separated value, so that the files after it stay
            // positional.
            for (std::size_t at = 0; at <= list.size();) {
              const std::size_t comma = std::min(list.find(',', at), list.size());
              const std::string type = list.substr(at, comma - at);
              if (type != "N-H" && type != "CA-HA" && type != "CA-C" && type != "C-N" &&
                  type != "C-HN") {
                throw CLI::ValidationError("--plot-types", "'" + type +
                                                               "' is not a coupling type (N-H, "
                                                               "CA-HA, CA-C, C-N, C-HN)");
              }
              predict_settings.plot_sequence_types.push_back(type);
              at = comma + 1;
            }
          },
          "the coupling types of --plot-sequence, e.g. N-H,CA-HA (default: all)")
      ->type_name("TYPES")
      ->group("Output");
  predict
      ->add_option("--plot-convergence", predict_settings.plot_convergence_file,
                   "running mean of the least converged coupling with its standard error band "
                   "against the number of models: FILE.svg, .pdf or .png")
      ->group("Output");

  FitSettings fit_settings;
  OptionText fit_text;
  std::string couplings_format, set, errors = "none";
  std::string bond_lengths = bond_lengths_name(fit_settings.bond_lengths);
  std::string methylene = methylene_name(fit_settings.methylene);
  std::string one_sided = one_sided_name(fit_settings.one_sided);
  bool per_model = false, ensemble = false, unweighted = false;
  CLI::App* fit = app.add_subcommand(
      "fit", "Fit the alignment tensor to measured couplings, with quality and error bars");
  std::vector<std::string> fit_files;
  fit->add_option("STRUCTURE [TRAJECTORY] COUPLINGS", fit_files,
                  "a PDB or mmCIF file, optionally gzipped, or a topology (PDB, mmCIF or .gro) "
                  "and its trajectory (.dcd, .xtc or .trr); then the measured couplings: "
                  "classic, X-PLOR/CNS restraints, a table, NEF, NMR-STAR or an NMRPipe table, "
                  "optionally gzipped")
      ->required()
      ->expected(2, 3)
      ->type_name("FILE");
  add_reading_options(*fit, fit_settings.common, fit_text);
  const char* couplings_group = "Couplings";
  fit->add_option("--couplings-format", couplings_format,
                  "classic, xplor, table, nef, nmrstar or pipe (default: by content)")
      ->group(couplings_group)
      ->check(CLI::IsMember({"classic", "dc", "xplor", "cns", "table", "nef", "nmrstar", "nmr-star",
                             "star", "pipe", "nmrpipe"},
                            CLI::ignore_case));
  fit->add_option("--set", set,
                  "coupling set: X-PLOR tensor residue (500), NEF list (peg_gel-1) or NMR-STAR "
                  "frame (default: every set)")
      ->group(couplings_group);
  fit->add_flag("--lenient", fit_settings.coupling_read.lenient,
                "skip bad lines and couplings whose atoms are missing, with a count")
      ->group(couplings_group);
  fit->add_option("--types", fit_settings.types,
                  "coupling types to fit, e.g. N-H,CA-HA,CA-C,C-N,C-HN (default: all)")
      ->group(couplings_group)
      ->delimiter(',');
  fit->add_option("--bond-lengths", bond_lengths,
                  "r of Dmax: standard (equilibrium), effective (N-H 1.041 A, the rest "
                  "standard) or structure")
      ->group(couplings_group)
      ->check(CLI::IsMember({"standard", "effective", "structure"}))
      ->capture_default_str();
  fit->add_option("--methylene", methylene,
                  "a coupling to two protons of a pseudo-atom (CB-HB#): the sum or the mean of "
                  "the two couplings")
      ->group(couplings_group)
      ->check(CLI::IsMember({"sum", "mean"}))
      ->capture_default_str();
  fit->add_option("--one-sided", one_sided,
                  "X-PLOR restraints bounded on one side only (error columns 0 100 or 100 0): "
                  "skip them, or keep them as values")
      ->group(couplings_group)
      ->check(CLI::IsMember({"skip", "keep"}))
      ->capture_default_str();
  const char* fit_group = "Fit";
  auto* per_model_flag =
      fit->add_flag("--per-model", per_model, "one tensor per model")->group(fit_group);
  fit->add_flag("--ensemble", ensemble, "one tensor for the models, couplings averaged over them")
      ->group(fit_group)
      ->excludes(per_model_flag);
  fit->add_flag("--unweighted", unweighted, "do not weight by the errors")->group(fit_group);
  fit->add_flag("--fix-sign", fit_settings.fix_sign,
                "invert the coupling types whose sign looks inverted, then fit")
      ->group(fit_group);
  fit->add_flag("--drop-outliers", fit_settings.drop_outliers,
                "refit without the couplings beyond 3 sigma")
      ->group(fit_group);
  fit->add_option("--errors", errors, "error bars: none, montecarlo or bootstrap")
      ->group(fit_group)
      ->check(CLI::IsMember({"none", "montecarlo", "bootstrap"}))
      ->capture_default_str();
  fit->add_option("--samples", fit_settings.samples, "samples of the error estimate")
      ->group(fit_group)
      ->check(CLI::Range(2, 10000000))
      ->capture_default_str();
  fit->add_option("--seed", fit_settings.seed, "seed of the error estimate")
      ->group(fit_group)
      ->capture_default_str();
  fit->add_flag("--predict", fit_settings.predict,
                "add the steric prediction (medium options below) beside the fit")
      ->group(fit_group);
  add_model_options(*fit, fit_settings.common, fit_text, "Steric prediction (--predict)",
                    "Charged obstacle (--predict)");
  add_output_options(*fit, fit_settings.common, fit_text);
  fit->add_option("--plot", fit_settings.plot_file, "correlation plot: FILE.svg, .pdf or .png")
      ->group("Output");
  fit->add_option("--plot-sequence", fit_settings.plot_sequence_file,
                  "couplings along the sequence: FILE.svg, .pdf or .png")
      ->group("Output");
  fit->add_option("--plot-axes", fit_settings.plot_axes_file,
                  "principal axes of the fit, samples and prediction on the sphere: FILE.svg, "
                  ".pdf or .png")
      ->group("Output");
  fit->add_option("--tensor-script", fit_settings.tensor_script_file,
                  "principal axes of the fit on the molecule: FILE.bild (ChimeraX) or .pml (PyMOL)")
      ->group("Output");

  try {
    app.parse(argc, argv);
    if (predict->parsed()) finish_options(*predict, predict_text, predict_settings);
    if (fit->parsed()) {
      // STRUCTURE COUPLINGS or TOPOLOGY TRAJECTORY COUPLINGS.
      fit_settings.structure = fit_files.front();
      fit_settings.couplings = fit_files.back();
      if (fit_files.size() == 3) {
        if (!io::is_trajectory_file(fit_files[1])) {
          throw CLI::ValidationError("TRAJECTORY",
                                     fit_files[1] + " is not a trajectory (.dcd, .xtc or .trr)");
        }
        fit_settings.common.read.trajectory = fit_files[1];
      } else if (io::is_trajectory_file(fit_files[1])) {
        throw CLI::ValidationError("COUPLINGS", "missing after the trajectory " + fit_files[1]);
      }
      finish_options(*fit, fit_text, fit_settings.common);
      fit_settings.mode = per_model  ? FitMode::per_model
                          : ensemble ? FitMode::ensemble
                                     : FitMode::single;
      fit_settings.weighted = !unweighted;
      fit_settings.bond_lengths = *parse_bond_lengths(bond_lengths);
      fit_settings.methylene = *parse_methylene(methylene);
      fit_settings.one_sided = *parse_one_sided(one_sided);
      if (errors == "montecarlo") fit_settings.errors = ErrorMethod::monte_carlo;
      if (errors == "bootstrap") fit_settings.errors = ErrorMethod::bootstrap;
      if (!couplings_format.empty()) {
        fit_settings.coupling_read.format = io::parse_coupling_format(couplings_format);
      }
      if (!set.empty()) fit_settings.coupling_read.set = set;
    }
  } catch (const CLI::ParseError& e) {
    std::ostringstream discard;
    const int status = front.print_messages ? app.exit(e) : app.exit(e, discard, discard);
    return status == 0 ? 0 : kMisuse;
  }
  const char* program = front.program.c_str();
  const bool unused = predict->parsed() ? charges_unused(*predict, predict_settings)
                                        : fit->parsed() && fit_settings.predict &&
                                              charges_unused(*fit, fit_settings.common);
  if (unused && front.print_messages) {
    std::fprintf(stderr,
                 "%s: warning: the molecule's charges have no effect with an uncharged obstacle "
                 "(use --medium pf1 or --charge-density)\n",
                 program);
  }
  if (!predict->parsed() && !fit->parsed()) {
    if (front.print_messages) {
      std::fprintf(stderr,
                   "%s: a command is required (predict, fit)\nRun with --help for more "
                   "information.\n",
                   program);
    }
    return kMisuse;
  }
  try {
    if (fit->parsed()) return runners.fit(fit_settings);
    return runners.predict(predict_settings);
  } catch (const InputError& e) {
    std::fprintf(stderr, "%s: %s\n", program, e.what());
    return kBadInput;
  } catch (const Error& e) {
    std::fprintf(stderr, "%s: %s\n", program, e.what());
    return kBadInput;
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "%s: out of memory\n", program);
    return kBadInput;
  } catch (const std::exception& e) {
    // Output files that cannot be written (plots), and the like.
    std::fprintf(stderr, "%s: %s\n", program, e.what());
    return kBadInput;
  }
}

}  // namespace vorn::modern
