// Cost of one whole classic run (`vorn -A<auto file> <pdb>`) inside the
// process: auto file, coordinates, selection, grids, orientation sampling and
// element lists, simulation and report, the output discarded. bench_simulation
// times the simulation alone on tables made beforehand; the steps around it
// are paid once per run and count here. The start of the process itself
// (loader, libraries) is what bench/classic_single_run.sh adds.
//
// Cases: the pentamer with all atoms (protons kept, no surface step) sampled
// 36/72/72 on the wall and on the cylinder, and ubiquitin with the default
// settings; the thread count (VORN_THREADS) is in the name.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "classic/io.hpp"
#include "classic/run.hpp"
#include "simulation/predict_fast.hpp"

namespace {

std::string data(const std::string& name) { return std::string(VORN_DATA_DIR) + "/" + name; }

// An auto file with this text, removed at exit.
class AutoFile {
 public:
  explicit AutoFile(const std::string& text) {
    char name[] = "/tmp/vorn_bench_classic_XXXXXX";
    const int fd = mkstemp(name);
    if (fd < 0) throw std::runtime_error("cannot create an auto file");
    path_ = name;
    FILE* f = fdopen(fd, "w");
    std::fputs(text.c_str(), f);
    std::fclose(f);
  }
  ~AutoFile() { std::remove(path_.c_str()); }
  AutoFile(const AutoFile&) = delete;
  AutoFile& operator=(const AutoFile&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

void run_classic(benchmark::State& state, const std::string& auto_text, const std::string& pdb) {
  const std::string threads = std::to_string(state.range(0));
  setenv("VORN_THREADS", threads.c_str(), 1);
  const AutoFile file(auto_text);
  const std::string option = "-A" + file.path();
  const char* argv[] = {"vorn", option.c_str(), pdb.c_str(), nullptr};
  FILE* sink = std::fopen("/dev/null", "w");
  vorn::Io io;
  io.in = nullptr;
  io.out = sink;
  io.err = sink;
  for (auto _ : state) {
    if (vorn::run_and_report(3, argv, io) != 0) {
      state.SkipWithError("the classic run failed");
      break;
    }
  }
  std::fclose(sink);
  unsetenv("VORN_THREADS");
}

const char* const kPentamerAllAtoms =
    "DIGIT_BETA: 36\nDIGIT_ALPHA: 72\nDIGIT_GAMMA: 72\nSELECT_FLAG: 3\nPROTON_FLAG: 1\n";

void BM_ClassicPentamerAllAtomsWall(benchmark::State& state) {
  run_classic(state, std::string("ANISOTROPIC_MEDIUM: 1\n") + kPentamerAllAtoms,
              data("structures/pln_1zll_pentamer_m1.pdb"));
}
void BM_ClassicPentamerAllAtomsCylinder(benchmark::State& state) {
  run_classic(state, std::string("ANISOTROPIC_MEDIUM: 2\n") + kPentamerAllAtoms,
              data("structures/pln_1zll_pentamer_m1.pdb"));
}
void BM_ClassicExample(benchmark::State& state) {
  run_classic(state, "ANISOTROPIC_MEDIUM: 1\nLIPID_CONCENTRATION: 0.05\nPRINT_EIGEN: 2\n",
              data("structures/ubq_1d3z_m1.pdb"));
}

void thread_counts(benchmark::internal::Benchmark* b) {
  b->Arg(1)->Arg(2);
  const int cores = vorn::detail::default_thread_count();
  if (cores > 2) b->Arg(cores);
  b->Unit(benchmark::kMillisecond)->ArgName("threads")->UseRealTime();
}

BENCHMARK(BM_ClassicPentamerAllAtomsWall)->Apply(thread_counts);
BENCHMARK(BM_ClassicPentamerAllAtomsCylinder)->Apply(thread_counts);
BENCHMARK(BM_ClassicExample)->Apply(thread_counts);

}  // namespace
