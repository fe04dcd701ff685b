// `vorn predict`: steric prediction of the alignment tensor of every model of
// one or more structure files, with the predicted backbone couplings.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "io/structure_reader.hpp"
#include "vorn/couplings.hpp"
#include "vorn/predict.hpp"
#include "vorn/tensor.hpp"

namespace vorn::app {

using io::Format;
using io::InputError;
using io::Model;
using io::ReadOptions;
using io::StructureReader;
using io::parse_format;
using io::parse_model_list;

enum class Selection { surface, heavy, all };
enum class OutputFormat { text, json, csv };

struct PredictSettings {
  std::vector<std::string> files;
  std::optional<Format> input_format;
  ReadOptions read;  // read.keep_hydrogens: hydrogens take part in the steric model
  Selection selection = Selection::surface;
  Medium medium;
  bool atom_radius_given = false;  // else the classic rule: 1.4 surface, 3.0 otherwise
  Sampling sampling;
  int threads = 0;
  OutputFormat output_format = OutputFormat::text;
  std::string output_file;  // empty: standard output
  bool quiet = false;
};

struct PredictedCoupling {
  CouplingSite site;
  double dmax_hz = 0.0;
  double predicted_hz = 0.0;
};

struct ModelPrediction {
  int model = 0;
  int atoms_read = 0;  // atoms of the model after the reading rules, hydrogens included
  int atoms_used = 0;  // atoms in the steric model
  AlignmentTensor tensor;
  std::vector<PredictedCoupling> couplings;
  int built_hydrogens = 0;
};

struct EnsembleCoupling {
  CouplingSite site;  // of the first model that has it
  int models = 0;
  double mean_hz = 0.0;
  double sd_hz = 0.0;
};

struct EnsembleSummary {
  int models = 0;
  double da_hz_mean = 0.0, da_hz_sd = 0.0;
  double rhombicity_mean = 0.0, rhombicity_sd = 0.0;
  std::vector<EnsembleCoupling> couplings;
};

struct FilePrediction {
  std::string file;
  std::string format;  // "PDB" or "mmCIF"
  std::vector<ModelPrediction> models;
  std::optional<EnsembleSummary> ensemble;  // with more than one model
};

// The atoms of the steric model by the selection rule (hydrogens only with
// keep_hydrogens or the "all" selection; surface: the classic rule).
std::vector<Vec3> steric_atoms(const std::vector<Atom>& atoms, const PredictSettings& settings);

// The medium of the settings with the atom radius in effect.
Medium effective_medium(const PredictSettings& settings);

// The atom radius in effect for the settings.
double effective_atom_radius(const PredictSettings& settings);

// Predicts every selected model of one file, one model at a time; progress(k)
// is called after model k (1-based count). Throws InputError or vorn::Error.
FilePrediction predict_file(const std::string& path, const PredictSettings& settings,
                            const PredictionContext& context,
                            const std::function<void(int)>& progress = {});

// Mean and sample standard deviation (n - 1; 0 for one model) over models.
EnsembleSummary summarise(const std::vector<ModelPrediction>& models);

}  // namespace vorn::app
