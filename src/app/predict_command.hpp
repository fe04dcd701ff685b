// `vorn predict`: steric prediction of the alignment tensor of every model of
// one or more structure files, with the predicted backbone couplings.
#pragma once

#include <cmath>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "io/structure_reader.hpp"
#include "vorn/couplings.hpp"
#include "vorn/predict.hpp"
#include "vorn/statistics.hpp"
#include "vorn/tensor.hpp"

namespace vorn::app {

using io::Format;
using io::InputError;
using io::Model;
using io::parse_format;
using io::parse_model_list;
using io::ReadOptions;
using io::StructureReader;
using io::UnparsedModel;

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

// The names of the command line and the outputs: "surface", "heavy", "all";
// "bicelle", "phage", "bicelle+phage". The parsers give nothing for any
// other text.
const char* selection_name(Selection selection);
std::optional<Selection> parse_selection(std::string_view name);
const char* medium_name(MediumKind kind);
std::optional<MediumKind> parse_medium(std::string_view name);

// The atoms of the steric model by the selection rule (hydrogens only with
// keep_hydrogens or the "all" selection; surface: the classic rule).
std::vector<Vec3> steric_atoms(const std::vector<Atom>& atoms, const PredictSettings& settings);

// The medium of the settings with the atom radius in effect.
Medium effective_medium(const PredictSettings& settings);

// The atom radius in effect for the settings.
double effective_atom_radius(const PredictSettings& settings);

// The prediction of one model with `threads` threads; `path` names the file
// in messages. Throws InputError or vorn::Error.
ModelPrediction predict_model(const Model& model, const PredictSettings& settings,
                              const PredictionContext& context, int threads,
                              const std::string& path);

// Streams the models of a file through `workers` threads: one thread reads
// the models, the workers predict them (each prediction on `threads`
// threads) and
// run format() on the result, and emit() receives the predictions and their
// text on the calling thread in file order; start(format name) is called
// once the file is open, before any model. Only a few models are in memory
// at any time. A failure (a model that cannot be read or predicted) is
// thrown after every earlier model was emitted. Returns the format name
// ("PDB" or "mmCIF").
std::string predict_stream(
    const std::string& path, const PredictSettings& settings, const PredictionContext& context,
    int workers, int threads, const std::function<void(const std::string&)>& start,
    const std::function<std::string(const ModelPrediction&)>& format,
    const std::function<void(const ModelPrediction&, const std::string&)>& emit);

// The ensemble summary built model by model, in the order the models are
// added (the same bits for any number of threads or processes that deliver
// them in file order). Couplings are matched by chain, residue, insertion
// code, type and atoms, in order of first appearance.
class EnsembleAccumulator {
 public:
  void add(const ModelPrediction& model);
  int models() const { return models_; }
  EnsembleSummary summary() const;

 private:
  using Key = std::tuple<std::string, int, char, std::string, std::string, std::string>;
  int models_ = 0;
  RunningSpread da_, rhombicity_;
  std::map<Key, std::size_t> index_;
  std::vector<CouplingSite> sites_;
  std::vector<RunningSpread> values_;
};

// Predicts every selected model of one file and keeps them all (for small
// files and the bindings); progress(k) is called after model k.
FilePrediction predict_file(const std::string& path, const PredictSettings& settings,
                            const PredictionContext& context,
                            const std::function<void(int)>& progress = {});

}  // namespace vorn::app
