// Timing of the surface-atom step (routine_calling_NSC) on the heavy atoms
// of a protein pentamer and on a synthetic cluster of 4998 atoms.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>

#include "classic/atoms.hpp"
#include "classic/io.hpp"
#include "classic/selection.hpp"

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

}  // namespace
