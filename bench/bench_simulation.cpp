// Timing of the steric simulation (simulate_alignment3) in its fast form
// against the direct form, on inputs prepared by the same stages as a run.
//
// Each benchmark times the fast form with the thread count in its name; the
// direct form and the single-threaded fast form are timed once per case in
// the same process, and the counters report
//   direct_s    seconds of the direct form (one run),
//   fast1_s     seconds of the fast form with one thread (the fastest of a few),
//   speedup     direct_s / time of the fast form with the benchmark's threads,
//   scaling     fast1_s / time of the fast form with the benchmark's threads,
//   identical   1 when the fast form gave the same bits as the direct one.
// The fine-sampled cases run the direct form for minutes; select cases with
// --benchmark_filter (e.g. 'Example' or 'Pentamer.*Wall').
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "classic/atoms.hpp"
#include "classic/cmdline.hpp"
#include "classic/config.hpp"
#include "classic/io.hpp"
#include "classic/limits.hpp"
#include "classic/pdb_reader.hpp"
#include "classic/selection.hpp"
#include "simulation/frame.hpp"
#include "simulation/grid.hpp"
#include "simulation/orientation.hpp"
#include "simulation/predict_direct.hpp"
#include "simulation/predict_fast.hpp"
#include "vorn/settings.hpp"

namespace {

using Clock = std::chrono::steady_clock;

// Everything simulate_alignment3 receives in a run.
struct Inputs {
  vorn::Settings settings;
  vorn::AtomArrays atoms;
  int no_atoms = 0;
  vorn::Grid grid = vorn::Grid(vorn::kGridSlots, vorn::GridPoint{});
  vorn::Grid grid_ph = vorn::Grid(vorn::kGridSlots, vorn::GridPoint{});
  int t_pts = 0;
  int no_pt_ph = 0;
  int o_pts = 0;
  int no_add = 0;
  int no_add_ph = 0;
  vorn::OrientationTables tables;
  double saupe_dev[5] = {};
};

// The run's stages up to the simulation: auto file, medium parameters,
// coordinates, selection, frame, grid, orientations and lists.
std::unique_ptr<Inputs> prepare(const std::string& pdb, const std::string& auto_text) {
  auto in = std::make_unique<Inputs>();
  FILE* sink = std::fopen("/dev/null", "w");
  vorn::Io io;
  io.in = nullptr;
  io.out = sink;
  io.err = sink;
  int flags[vorn::kOptionSlots] = {};
  FILE* files[vorn::kOptionSlots] = {};
  std::string text = auto_text;
  flags[1] = 1;
  files[1] = fmemopen(text.data(), text.size(), "r");
  vorn::read_auto(in->settings, flags, files, io);
  vorn::refine_bicelle(in->settings);
  const vorn::Settings& s = in->settings;

  const int total = vorn::reading_PDBfile(pdb.c_str(), in->atoms, sink);
  in->no_atoms = vorn::select_atoms(total, in->atoms, s, io);
  double centre[4] = {};
  double max_radius = 0.0;
  double min_radius = 0.0;
  vorn::calculate_center_mass(in->no_atoms, in->atoms.x, in->atoms.y, in->atoms.z, in->atoms.mass,
                              centre);
  vorn::shift_coordinate_system(centre, in->no_atoms, in->atoms.x, in->atoms.y, in->atoms.z);
  vorn::calculate_extreme_length(in->no_atoms, in->atoms.x, in->atoms.y, in->atoms.z, max_radius,
                                 min_radius);
  double final_distance = 0.0;
  double final_distance_ph = 0.0;
  // The listings and warnings of the engine are dropped; the caps are the
  // classic program's.
  const vorn::Log quiet;
  in->t_pts = vorn::setup_model(s, s.concentration, s.ellipticity, min_radius + s.atom_radius,
                                max_radius + s.atom_radius, s.max_obs_dim, s.liquid_type,
                                s.grid_type, s.grid_spacing, in->grid, in->no_pt_ph, in->grid_ph,
                                final_distance, final_distance_ph, quiet, vorn::kGridSlots - 1);
  in->o_pts = vorn::grid_orientation_sampling(
      s, s.dig_theta, s.dig_phi, s.dig_psi, in->tables.eulerangle, quiet, vorn::kOrientationLimit);
  vorn::calculate_scaling(s, in->o_pts, final_distance, final_distance_ph, s.max_obs_dim,
                          in->no_add, in->no_add_ph);
  vorn::setup_lists(s, in->o_pts, in->tables, quiet);
  vorn::check_Saupe_uniformity(s, in->o_pts, in->tables, in->saupe_dev, quiet);
  std::fclose(sink);
  return in;
}

using Result = std::array<double, 5>;

// Byte for byte, deliberately: a -0.0 for a 0.0 would be a difference.
bool same_bytes(const Result& a, const Result& b) {
  return std::memcmp(a.data(), b.data(), sizeof(Result)) == 0;  // NOLINT(bugprone-*)
}

// Seconds of one simulation and its result; threads 0 runs the direct form.
double simulate(const Inputs& in, int threads, Result& result) {
  double saupe[5] = {};
  double weight[5] = {};
  const Clock::time_point start = Clock::now();
  if (threads == 0) {
    vorn::detail::simulate_alignment3_direct(in.settings, in.settings.max_obs_dim, in.no_atoms,
                                             in.no_add, in.no_add_ph, in.atoms.x, in.atoms.y,
                                             in.atoms.z, in.t_pts, in.no_pt_ph, in.o_pts, in.grid,
                                             in.grid_ph, in.tables, in.saupe_dev, saupe, weight);
  } else {
    vorn::detail::simulate_alignment3_fast(
        in.settings, in.settings.max_obs_dim, in.no_atoms, in.no_add, in.no_add_ph, in.atoms.x,
        in.atoms.y, in.atoms.z, in.t_pts, in.no_pt_ph, in.o_pts, in.grid, in.grid_ph, in.tables,
        in.saupe_dev, saupe, weight, threads);
  }
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  for (int e = 0; e < 5; ++e) result[e] = weight[e];
  return seconds;
}

// Prepared inputs and the reference timings of one case, made once.
struct Reference {
  std::unique_ptr<Inputs> inputs;
  double direct_s = 0.0;
  double fast1_s = 0.0;
  Result direct{};
};

Reference& reference(const std::string& name, const std::string& pdb,
                     const std::string& auto_text) {
  static std::map<std::string, Reference> cache;
  auto found = cache.find(name);
  if (found != cache.end()) return found->second;
  Reference& ref = cache[name];
  ref.inputs = prepare(pdb, auto_text);
  ref.direct_s = simulate(*ref.inputs, 0, ref.direct);
  // The fastest of a few single-threaded runs (the first one runs cold).
  Result fast{};
  double spent = 0.0;
  for (int run = 0; run < 10 && (run < 3 || spent < 0.5); ++run) {
    const double s = simulate(*ref.inputs, 1, fast);
    ref.fast1_s = run == 0 ? s : std::min(ref.fast1_s, s);
    spent += s;
  }
  return ref;
}

void run_case(benchmark::State& state, const std::string& name, const std::string& pdb,
              const std::string& auto_text) {
  const int threads = static_cast<int>(state.range(0));
  Reference& ref = reference(name, pdb, auto_text);
  Result result{};
  double seconds = 0.0;
  long long runs = 0;
  for (auto _ : state) {
    const double s = simulate(*ref.inputs, threads, result);
    state.SetIterationTime(s);
    seconds += s;
    runs += 1;
  }
  const double mean = runs > 0 ? seconds / runs : 0.0;
  state.counters["atoms"] = ref.inputs->no_atoms;
  state.counters["orientations"] = ref.inputs->o_pts;
  state.counters["direct_s"] = ref.direct_s;
  state.counters["fast1_s"] = ref.fast1_s;
  state.counters["speedup"] = mean > 0.0 ? ref.direct_s / mean : 0.0;
  state.counters["scaling"] = mean > 0.0 ? ref.fast1_s / mean : 0.0;
  state.counters["identical"] = same_bytes(result, ref.direct) ? 1 : 0;
}

std::string data(const std::string& name) { return std::string(VORN_DATA_DIR) + "/" + name; }

const char* const kFine = "DIGIT_BETA: 36\nDIGIT_ALPHA: 72\nDIGIT_GAMMA: 72\nPROTON_FLAG: 1\n";

std::string fine(const char* medium, const char* select) {
  return std::string(medium) + kFine + select;
}

constexpr const char* kWall = "ANISOTROPIC_MEDIUM: 1\n";
constexpr const char* kPhage = "ANISOTROPIC_MEDIUM: 2\n";
constexpr const char* kCombined = "ANISOTROPIC_MEDIUM: 1\nBICELLE_PHAGE: 1\n";
constexpr const char* kAllAtoms = "SELECT_FLAG: 3\n";
constexpr const char* kSurface = "SELECT_FLAG: 0\n";

void BM_Example(benchmark::State& state) {
  run_case(state, "example", data("structures/ubq_1d3z_m1.pdb"),
           "ANISOTROPIC_MEDIUM: 1\nLIPID_CONCENTRATION: 0.05\nPRINT_EIGEN: 2\n");
}

const std::string kPentamer = "structures/pln_1zll_pentamer_m1.pdb";

void BM_PentamerAllAtomsWall(benchmark::State& state) {
  run_case(state, "all-wall", data(kPentamer), fine(kWall, kAllAtoms));
}
void BM_PentamerAllAtomsPhage(benchmark::State& state) {
  run_case(state, "all-phage", data(kPentamer), fine(kPhage, kAllAtoms));
}
void BM_PentamerAllAtomsCombined(benchmark::State& state) {
  run_case(state, "all-combined", data(kPentamer), fine(kCombined, kAllAtoms));
}
void BM_PentamerSurfaceWall(benchmark::State& state) {
  run_case(state, "surface-wall", data(kPentamer), fine(kWall, kSurface));
}
void BM_PentamerSurfacePhage(benchmark::State& state) {
  run_case(state, "surface-phage", data(kPentamer), fine(kPhage, kSurface));
}
void BM_PentamerSurfaceCombined(benchmark::State& state) {
  run_case(state, "surface-combined", data(kPentamer), fine(kCombined, kSurface));
}

void thread_counts(benchmark::internal::Benchmark* b) {
  b->Arg(1)->Arg(2);
  const int cores = vorn::detail::default_thread_count();
  if (cores > 2) b->Arg(cores);
  b->UseManualTime()->Unit(benchmark::kMillisecond)->ArgName("threads");
}

BENCHMARK(BM_Example)->Apply(thread_counts);
BENCHMARK(BM_PentamerAllAtomsWall)->Apply(thread_counts);
BENCHMARK(BM_PentamerAllAtomsPhage)->Apply(thread_counts);
BENCHMARK(BM_PentamerAllAtomsCombined)->Apply(thread_counts);
BENCHMARK(BM_PentamerSurfaceWall)->Apply(thread_counts);
BENCHMARK(BM_PentamerSurfacePhage)->Apply(thread_counts);
BENCHMARK(BM_PentamerSurfaceCombined)->Apply(thread_counts);

}  // namespace
