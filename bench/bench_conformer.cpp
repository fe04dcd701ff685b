// Cost of each stage of `vorn predict` for one ubiquitin conformer (the ten
// models of 1D3Z), so that the throughput of an ensemble run can be traced
// to its parts: reading a model, the surface selection, the simulation with
// heavy atoms (atom radius 3.0) and with the surface atoms (1.4), the
// backbone couplings and the JSON text of the model. Each benchmark reports
// items_per_second = conformers per second of that stage on one thread.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "app/predict_command.hpp"
#include "io/structure_reader.hpp"
#include "modern/predict_report.hpp"
#include "vorn/couplings.hpp"
#include "vorn/predict.hpp"
#include "vorn/structure.hpp"

namespace {

const std::string kBundle = VORN_DATA_DIR "/raw/1D3Z_raw_10models.pdb";

struct Conformer {
  vorn::io::Model model;
  std::vector<vorn::Vec3> heavy, surface;
};

// The models of the bundle, hydrogens kept (the couplings need them), with
// their heavy atoms and surface atoms.
const std::vector<Conformer>& conformers() {
  static const std::vector<Conformer> all = [] {
    std::vector<Conformer> out;
    vorn::io::ReadOptions read;
    read.keep_hydrogens = true;
    vorn::io::StructureReader reader(kBundle, read);
    vorn::io::Model model;
    vorn::app::PredictSettings heavy, surface;
    heavy.selection = vorn::app::Selection::heavy;
    surface.selection = vorn::app::Selection::surface;
    while (reader.next(model)) {
      Conformer c;
      c.heavy = vorn::app::steric_atoms(model.atoms, heavy);
      c.surface = vorn::app::steric_atoms(model.atoms, surface);
      c.model = model;
      out.push_back(std::move(c));
    }
    return out;
  }();
  return all;
}

void BM_ReadModels(benchmark::State& state) {
  vorn::io::ReadOptions read;
  read.keep_hydrogens = true;
  long models = 0;
  for (auto _ : state) {
    vorn::io::StructureReader reader(kBundle, read);
    vorn::io::Model model;
    while (reader.next(model)) ++models;
    benchmark::DoNotOptimize(model.atoms.data());
  }
  state.SetItemsProcessed(models);
}

void BM_SurfaceSelection(benchmark::State& state) {
  const std::vector<Conformer>& all = conformers();
  std::vector<vorn::Atom> heavy_atoms;
  std::size_t k = 0;
  for (auto _ : state) {
    const Conformer& c = all[k++ % all.size()];
    heavy_atoms.clear();
    for (const vorn::Atom& a : c.model.atoms)
      if (!vorn::is_hydrogen(a)) heavy_atoms.push_back(a);
    benchmark::DoNotOptimize(vorn::surface_atoms(heavy_atoms));
  }
  state.SetItemsProcessed(static_cast<long>(k));
}

void predict(benchmark::State& state, bool surface) {
  const std::vector<Conformer>& all = conformers();
  const vorn::PredictionContext context({}, 1);
  vorn::Medium medium;
  medium.atom_radius = surface ? 1.4 : 3.0;
  std::size_t k = 0;
  for (auto _ : state) {
    const Conformer& c = all[k++ % all.size()];
    benchmark::DoNotOptimize(context.predict_saupe(surface ? c.surface : c.heavy, medium, 1));
  }
  state.SetItemsProcessed(static_cast<long>(k));
}

void BM_PredictHeavy(benchmark::State& state) { predict(state, false); }
void BM_PredictSurface(benchmark::State& state) { predict(state, true); }

void BM_BackboneCouplings(benchmark::State& state) {
  const std::vector<Conformer>& all = conformers();
  std::size_t k = 0;
  for (auto _ : state) {
    const Conformer& c = all[k++ % all.size()];
    benchmark::DoNotOptimize(vorn::backbone_sites(c.model.atoms));
  }
  state.SetItemsProcessed(static_cast<long>(k));
}

// The whole per-model work of a worker: prediction and JSON text.
void model_and_text(benchmark::State& state, vorn::app::Selection selection, bool text) {
  const std::vector<Conformer>& all = conformers();
  vorn::app::PredictSettings settings;
  settings.selection = selection;
  settings.output_format = vorn::app::OutputFormat::json;
  const vorn::PredictionContext context({}, 1);
  const vorn::modern::PredictReport report(settings, false);
  const vorn::app::ModelPrediction fixed =
      vorn::app::predict_model(all[0].model, settings, context, 1, kBundle);
  std::size_t k = 0;
  for (auto _ : state) {
    const Conformer& c = all[k++ % all.size()];
    if (text) {
      benchmark::DoNotOptimize(report.model(fixed, kBundle));
    } else {
      benchmark::DoNotOptimize(vorn::app::predict_model(c.model, settings, context, 1, kBundle));
    }
  }
  state.SetItemsProcessed(static_cast<long>(k));
}

void BM_ModelJson(benchmark::State& state) {
  model_and_text(state, vorn::app::Selection::heavy, true);
}
void BM_PredictModelHeavy(benchmark::State& state) {
  model_and_text(state, vorn::app::Selection::heavy, false);
}
void BM_PredictModelSurface(benchmark::State& state) {
  model_and_text(state, vorn::app::Selection::surface, false);
}

}  // namespace

BENCHMARK(BM_ReadModels)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SurfaceSelection)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PredictHeavy)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PredictSurface)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_BackboneCouplings)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ModelJson)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PredictModelHeavy)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PredictModelSurface)->Unit(benchmark::kMicrosecond);
