// Timing of the surface-atom step (routine_calling_NSC) on the heavy atoms
// of a protein pentamer and on a synthetic cluster of 4998 atoms; and of the
// engine's selection (surface_atom_indices) against its reference form from
// the full areas (surface_atom_indices_reference) on ubiquitin, the pentamer
// and a 6267-atom complex, with the speed-up measured in the same run.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <string>
#include <vector>

#include "classic/atoms.hpp"
#include "classic/io.hpp"
#include "classic/selection.hpp"
#include "molecule/surface.hpp"
#include "molecule/toppar.hpp"

namespace {

// Heavy atoms of the ATOM records (names starting with H, or a digit then H,
// are hydrogens); a small local reader keeps the benchmark self-contained.
int read_heavy_atoms(const std::string& path, vorn::AtomArrays& atoms) {
  std::ifstream in(path);
  std::string line;
  int n = 0;
  while (std::getline(in, line) && n < vorn::kAtomSlots - 1) {
    if (line.rfind("ATOM", 0) != 0) continue;
    int serial = 0, res_nr = 0;
    char name[16] = {0}, res[16] = {0};
    double x = 0, y = 0, z = 0;
    if (std::sscanf(line.c_str(), "ATOM %d %15s %15s %d %lf %lf %lf", &serial, name, res, &res_nr,
                    &x, &y, &z) != 7) {
      continue;
    }
    if (name[0] == 'H' || (name[0] >= '0' && name[0] <= '9' && name[1] == 'H')) continue;
    ++n;
    atoms.x[n] = x;
    atoms.y[n] = y;
    atoms.z[n] = z;
    atoms.mass[n] = 12.0;
    atoms.atom[n] = 1;
    atoms.aa[n] = 1;
    atoms.atomno[n] = serial;
    atoms.res_nr[n] = res_nr;
  }
  return n;
}

// 4998 atoms on a jittered cubic lattice of 2.6 A: about one atom per
// 17.6 A^3, the packing density of protein heavy atoms.
int synthetic_cluster(vorn::AtomArrays& atoms) {
  std::uint64_t state = 12345;
  auto jitter = [&state] {
    state = state * 6364136223846793005ULL + 1442695040888963407ULL;
    return (static_cast<double>(state >> 11) / 9007199254740992.0 - 0.5) * 0.8;
  };
  int n = 0;
  for (int i = 0; i < 18 && n < 4998; ++i) {
    for (int j = 0; j < 17 && n < 4998; ++j) {
      for (int k = 0; k < 17 && n < 4998; ++k) {
        ++n;
        atoms.x[n] = 2.6 * i + jitter();
        atoms.y[n] = 2.6 * j + jitter();
        atoms.z[n] = 2.6 * k + jitter();
        atoms.atom[n] = (n % 97 == 0) ? 323 : 1;
        atoms.atomno[n] = n;
      }
    }
  }
  return n;
}

void run_surface(benchmark::State& state, const vorn::AtomArrays& input, int n_input) {
  FILE* sink = std::fopen("/dev/null", "w");
  vorn::Io io;
  io.out = sink;
  io.err = sink;
  int kept = 0;
  for (auto _ : state) {
    vorn::AtomArrays atoms = input;
    int n = n_input;
    if (vorn::routine_calling_NSC(n, atoms, io) != 0) state.SkipWithError("surface step failed");
    kept = n;
    benchmark::DoNotOptimize(atoms.x.data());
  }
  std::fclose(sink);
  state.counters["atoms"] = n_input;
  state.counters["kept"] = kept;
}

void BM_SurfacePentamerHeavyAtoms(benchmark::State& state) {
  vorn::AtomArrays input;
  const int n =
      read_heavy_atoms(std::string(VORN_DATA_DIR) + "/structures/pln_1zll_pentamer_m1.pdb", input);
  if (n == 0) {
    state.SkipWithError("no atoms read");
    return;
  }
  run_surface(state, input, n);
}
BENCHMARK(BM_SurfacePentamerHeavyAtoms)->Unit(benchmark::kMillisecond);

void BM_SurfaceSyntheticCluster4998(benchmark::State& state) {
  vorn::AtomArrays input;
  const int n = synthetic_cluster(input);
  run_surface(state, input, n);
}
BENCHMARK(BM_SurfaceSyntheticCluster4998)->Unit(benchmark::kMillisecond);

// ---------------------------------------------------------------------------
// The engine's selection, decisions alone against full areas.

struct EngineInput {
  std::vector<double> x, y, z;
  std::vector<int> types;
};

std::string trim(const std::string& s) {
  const std::size_t a = s.find_first_not_of(' ');
  if (a == std::string::npos) return "";
  return s.substr(a, s.find_last_not_of(' ') - a + 1);
}

// Heavy atoms of the first model of a fixed-column PDB file (coordinates in
// columns 31-54, name in 13-16, element in 77-78).
EngineInput first_model_heavy_atoms(const std::string& path) {
  EngineInput in;
  std::ifstream file(path);
  std::string line;
  while (std::getline(file, line)) {
    if (line.rfind("ENDMDL", 0) == 0) break;
    if (line.rfind("ATOM", 0) != 0 || line.size() < 78) continue;
    if (trim(line.substr(76, 2)) == "H") continue;
    in.x.push_back(std::stod(line.substr(30, 8)));
    in.y.push_back(std::stod(line.substr(38, 8)));
    in.z.push_back(std::stod(line.substr(46, 8)));
    in.types.push_back(vorn::atom_type_index(trim(line.substr(12, 4))));
  }
  return in;
}

// ATOM records of the blank-separated layout, hydrogens left out.
EngineInput blank_separated_heavy_atoms(const std::string& path) {
  EngineInput in;
  std::ifstream file(path);
  std::string line;
  while (std::getline(file, line)) {
    if (line.rfind("ATOM", 0) != 0) continue;
    int serial = 0, res_nr = 0;
    char name[16] = {0}, res[16] = {0};
    double x = 0, y = 0, z = 0;
    if (std::sscanf(line.c_str(), "ATOM %d %15s %15s %d %lf %lf %lf", &serial, name, res, &res_nr,
                    &x, &y, &z) != 7) {
      continue;
    }
    if (name[0] == 'H' || (name[0] >= '0' && name[0] <= '9' && name[1] == 'H')) continue;
    in.x.push_back(x);
    in.y.push_back(y);
    in.z.push_back(z);
    in.types.push_back(vorn::atom_type_index(name));
  }
  return in;
}

enum class Structure { kUbiquitin, kPentamer, kComplex };

const EngineInput& engine_input(Structure s) {
  static const EngineInput ubiquitin =
      first_model_heavy_atoms(std::string(VORN_DATA_DIR) + "/raw/1D3Z_raw_10models.pdb");
  static const EngineInput pentamer = blank_separated_heavy_atoms(
      std::string(VORN_DATA_DIR) + "/structures/pln_1zll_pentamer_m1.pdb");
  static const EngineInput complex = blank_separated_heavy_atoms(
      std::string(VORN_DATA_DIR) + "/structures/unc18_stx1_2xhe_xray.pdb");
  return s == Structure::kUbiquitin ? ubiquitin : s == Structure::kPentamer ? pentamer : complex;
}

using SelectFn = int (*)(std::span<const double>, std::span<const double>, std::span<const double>,
                         std::span<const int>, std::vector<std::size_t>&, const vorn::Log&);

void BM_EngineSelection(benchmark::State& state, Structure s, SelectFn select) {
  const EngineInput& in = engine_input(s);
  if (in.x.empty()) {
    state.SkipWithError("no atoms read");
    return;
  }
  std::vector<std::size_t> kept;
  for (auto _ : state) {
    if (select(in.x, in.y, in.z, in.types, kept, vorn::Log{}) != 0) {
      state.SkipWithError("surface selection failed");
    }
    benchmark::DoNotOptimize(kept.data());
  }
  state.counters["atoms"] = static_cast<double>(in.x.size());
  state.counters["kept"] = static_cast<double>(kept.size());
}

// Both forms in alternation within one benchmark: their mean processor
// times (less disturbed than wall time on a shared machine) and the ratio
// speedup = reference / decisions, after checking that they keep the same
// atoms.
void BM_EngineSelectionSpeedup(benchmark::State& state, Structure s) {
  const EngineInput& in = engine_input(s);
  if (in.x.empty()) {
    state.SkipWithError("no atoms read");
    return;
  }
  std::vector<std::size_t> kept_ref, kept_fast;
  std::clock_t ref_ticks = 0, fast_ticks = 0;
  for (auto _ : state) {
    const std::clock_t t0 = std::clock();
    const int status_ref =
        vorn::surface_atom_indices_reference(in.x, in.y, in.z, in.types, kept_ref, vorn::Log{});
    const std::clock_t t1 = std::clock();
    const int status_fast =
        vorn::surface_atom_indices(in.x, in.y, in.z, in.types, kept_fast, vorn::Log{});
    const std::clock_t t2 = std::clock();
    ref_ticks += t1 - t0;
    fast_ticks += t2 - t1;
    if (status_ref != 0 || status_fast != 0 || kept_ref != kept_fast) {
      state.SkipWithError("the two forms disagree");
      return;
    }
  }
  const double n = static_cast<double>(state.iterations());
  const double ms_per_tick = 1e3 / CLOCKS_PER_SEC;
  state.counters["atoms"] = static_cast<double>(in.x.size());
  state.counters["kept"] = static_cast<double>(kept_fast.size());
  state.counters["reference_cpu_ms"] = ms_per_tick * static_cast<double>(ref_ticks) / n;
  state.counters["decisions_cpu_ms"] = ms_per_tick * static_cast<double>(fast_ticks) / n;
  state.counters["speedup"] = static_cast<double>(ref_ticks) / static_cast<double>(fast_ticks);
}

BENCHMARK_CAPTURE(BM_EngineSelection, ubiquitin_reference, Structure::kUbiquitin,
                  &vorn::surface_atom_indices_reference)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_EngineSelection, ubiquitin_decisions, Structure::kUbiquitin,
                  &vorn::surface_atom_indices)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_EngineSelection, pentamer_reference, Structure::kPentamer,
                  &vorn::surface_atom_indices_reference)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_EngineSelection, pentamer_decisions, Structure::kPentamer,
                  &vorn::surface_atom_indices)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_EngineSelection, complex_reference, Structure::kComplex,
                  &vorn::surface_atom_indices_reference)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_EngineSelection, complex_decisions, Structure::kComplex,
                  &vorn::surface_atom_indices)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_EngineSelectionSpeedup, ubiquitin, Structure::kUbiquitin)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_EngineSelectionSpeedup, pentamer, Structure::kPentamer)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_EngineSelectionSpeedup, complex, Structure::kComplex)
    ->Unit(benchmark::kMillisecond);

}  // namespace
