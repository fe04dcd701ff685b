// `vorn predict`: steric prediction of the alignment tensor of every model of
// one or more structure files, with the predicted backbone couplings.
#pragma once

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "io/pqr_reader.hpp"
#include "io/structure_reader.hpp"
#include "vorn/charges.hpp"
#include "vorn/couplings.hpp"
#include "vorn/electrostatics.hpp"
#include "vorn/hydrogens.hpp"
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
// nef: NEF rdc restraint lists; pipe: an NMRPipe table.
enum class OutputFormat { text, json, csv, nef, pipe };

struct PredictSettings {
  std::vector<std::string> files;
  std::optional<Format> input_format;
  ReadOptions read;  // read.keep_hydrogens: hydrogens take part in the steric model
  // Every missing hydrogen of the standard residues is placed (add_hydrogens);
  // the hydrogens placed then stand for read ones (steric model with
  // keep_hydrogens or the "all" selection, charges, couplings).
  bool add_hydrogens = false;
  Selection selection = Selection::surface;
  Medium medium;
  // The medium's name in the reports: "pf1" for that preset; empty: the
  // name of medium.kind.
  std::string medium_label;
  bool atom_radius_given = false;  // else the classic rule: 1.4 surface, 3.0 otherwise
  // The molecule's charges, used with a charged medium: the titration of
  // every atom of the model at `ph`, or the charges of a PQR file.
  double ph = 7.0;
  std::string charges_file;  // PQR; empty: titration
  // The atoms of charges_file once read (read_charges), shared by copies of
  // the settings; read at the first model when not read before.
  std::shared_ptr<const std::vector<io::PqrAtom>> pqr_atoms;
  Sampling sampling;
  int threads = 0;
  OutputFormat output_format = OutputFormat::text;
  std::string output_file;  // empty: standard output
  bool quiet = false;
  std::string plot_axes_file;      // principal axes on the sphere (vorn predict)
  std::string tensor_script_file;  // principal axes on the molecule (vorn predict)
  // Above 0: a file's models are read only until the standard errors of Da
  // and of every coupling's mean are below this (Hz), from
  // kMinConvergedModels models on.
  double until_converged = 0.0;
  // The running mean and standard error of the coupling whose mean has the
  // largest standard error, against the number of models (vorn predict).
  std::string plot_convergence_file;
  // Each coupling's prediction (over an ensemble its mean, with its
  // standard error) against the residue number, a panel per type.
  std::string plot_sequence_file;
  std::vector<std::string> plot_sequence_types;  // the panels shown (every type when empty)
  // Above 0: local alignment windows of this many residues (odd, at least
  // 3): the couplings of each residue come from the tensor of its window.
  int window = 0;
};

// The fewest models a convergence test trusts: block averaging needs a few
// blocks of several models before its standard error means anything.
inline constexpr int kMinConvergedModels = 32;

struct PredictedCoupling {
  CouplingSite site;
  double dmax_hz = 0.0;
  double predicted_hz = 0.0;
};

// The tensor of the window centred on one residue (vorn predict --window).
struct WindowTensor {
  std::string chain;
  int residue_number = 0;
  char insertion_code = ' ';
  std::string residue_name;
  int first_residue_number = 0, last_residue_number = 0;  // the window's ends
  int atoms = 0;                                          // atoms in its steric model
  AlignmentTensor tensor;
};

struct ModelPrediction {
  int model = 0;
  int atoms_read = 0;  // atoms of the model after the reading rules, hydrogens included
  int atoms_used = 0;  // atoms in the steric model
  AlignmentTensor tensor;
  std::vector<PredictedCoupling> couplings;
  // Hydrogens placed: by add_hydrogens (with the settings' add_hydrogens, or
  // for the couplings of a model without any hydrogen), else the amide
  // hydrogens backbone_sites builds. Unplaced: missing hydrogens of known
  // residues that add_hydrogens could not place.
  bool hydrogens_placed = false;  // add_hydrogens ran
  int built_hydrogens = 0;
  int unplaced_hydrogens = 0;
  // With a charged medium: the molecule's net charge (e) and its charged
  // groups (AtomCharges); zero otherwise.
  double net_charge = 0.0;
  int charged_groups = 0;
  Vec3 centre;  // mean position of the atoms read (hydrogens included)
  // With a window: one tensor per residue of every chain, in chain order;
  // the couplings above then come from these, the tensor from the whole
  // molecule.
  std::vector<WindowTensor> windows;
};

struct EnsembleCoupling {
  CouplingSite site;  // of the first model that has it
  int models = 0;
  double mean_hz = 0.0;
  double sd_hz = 0.0;
  double se_hz = 0.0;  // of the mean, by block averaging (BlockAverage)
};

struct EnsembleSummary {
  int models = 0;
  double da_hz_mean = 0.0, da_hz_sd = 0.0;
  double rhombicity_mean = 0.0, rhombicity_sd = 0.0;
  // Standard errors of the means by block averaging, and the number of
  // independent models Da's series is worth.
  double da_hz_se = 0.0, rhombicity_se = 0.0;
  double da_effective_samples = 0.0;
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

// "linear", "nonlinear"; nothing for any other text.
const char* potential_name(PotentialModel model);
std::optional<PotentialModel> parse_potential(std::string_view name);

// The medium as the front ends take it: a name (bicelle, phage,
// bicelle+phage, or pf1: the phage with Pf1's radius and charge) and the
// options of a charged obstacle, each unset where not given (then the
// preset's value or the default of ObstacleCharge and PredictSettings).
struct MediumOptions {
  std::string medium = "bicelle";
  std::optional<double> charge_density;  // e/nm^2
  std::optional<double> ionic_strength;  // mol/l
  std::optional<double> ph;              // 0..14
  std::optional<double> temperature;     // K
  std::optional<PotentialModel> potential;
  std::optional<double> obstacle_radius;  // the cylinder's, Angstrom
  std::optional<std::string> charges_file;
};

// A bad medium option: `option` names it as the Python bindings do
// ("ionic_strength"); what() says what is wrong without the name.
class OptionError : public std::runtime_error {
 public:
  OptionError(std::string option, const std::string& message)
      : std::runtime_error(message), option_(std::move(option)) {}
  const std::string& option() const { return option_; }

 private:
  std::string option_;
};

// Sets the medium kind, the obstacle's charge, the radius, pH and charge
// source of `settings` (the other medium values are left as they are).
// A zero charge density leaves the medium uncharged. `name` turns an
// option's Python name into the front end's own for the messages ("--ph").
// Throws OptionError for an unknown medium or potential, a value out of
// range (charge density not finite, ionic strength not positive, pH
// outside 0..14, temperature outside 273.15..373.15 K, radius not
// positive), a charge with bicelle+phage, or a radius without a cylinder
// or beside an obstacle dimension already set.
void apply_medium_options(PredictSettings& settings, const MediumOptions& options,
                          const std::function<std::string(const std::string&)>& name);

// True when the medium's obstacle carries a charge (set and not zero).
bool is_charged(const Medium& medium);

// The medium's name in the reports: the label, else the kind's name.
std::string medium_label(const PredictSettings& settings);

// Reads the PQR file of the settings once, when the medium is charged and
// one is named (else does nothing). Throws InputError.
void read_charges(PredictSettings& settings);

// read_charges, then the charges matched against the first selected model
// of each of `structures`, so that a PQR file that does not fit them fails
// before anything is written. Throws InputError.
void prepare_charges(PredictSettings& settings, std::span<const std::string> structures);

// The charges of a model's atoms (all of them, hydrogens included) by the
// settings: the PQR file's, or the titration at the settings' pH. Throws
// InputError or vorn::Error.
AtomCharges model_charges(std::span<const Atom> atoms, const PredictSettings& settings);

// The Saupe elements of one model: the steric model of `steric` (its atoms
// by the selection rule), weighted with a charged medium by the energy of
// the charges of `atoms` (every atom of the model, same frame), with the
// molecule's net charge and charged groups then. `model` and `path` name
// the model in messages.
struct ModelSaupe {
  SaupeElements saupe{};
  double net_charge = 0.0;
  int charged_groups = 0;
};
ModelSaupe predict_model_saupe(std::span<const Vec3> steric, std::span<const Atom> atoms,
                               const PredictSettings& settings, const PredictionContext& context,
                               int threads, int model, const std::string& path);

// The hydrogens placed on a model's atoms (add_hydrogens): every missing one
// with `add_hydrogens`; without it, when the atoms hold no hydrogen at all
// (an X-ray structure), for the couplings alone. Nothing otherwise.
std::optional<AddedHydrogens> placed_hydrogens(std::span<const Atom> atoms, bool add_hydrogens);

// The backbone couplings of a model with a tensor, as `vorn predict`
// reports them: the sites of the atoms with the hydrogens placed where
// `placed` holds them (placed_hydrogens), else of `atoms` (with the amide
// hydrogens backbone_sites builds where they hold hydrogens but no amide
// H); each coupling at the standard distance of its type.
struct ModelCouplings {
  std::vector<PredictedCoupling> couplings;
  int built_hydrogens = 0;
  int unplaced_hydrogens = 0;
};
ModelCouplings backbone_couplings(std::span<const Atom> atoms,
                                  const std::optional<AddedHydrogens>& placed,
                                  const SaupeElements& saupe);

// The atoms of the steric model by the selection rule (hydrogens only with
// keep_hydrogens or the "all" selection; surface: the classic rule).
std::vector<Vec3> steric_atoms(const std::vector<Atom>& atoms, const PredictSettings& settings);
// The same as indices into `atoms`, in their order.
std::vector<std::size_t> steric_atom_indices(const std::vector<Atom>& atoms,
                                             const PredictSettings& settings);

// The local windows of settings.window residues over every chain of a model
// (window_prediction.cpp): `atoms` are the model's atoms (hydrogens placed
// where they stand for read ones), `steric` the indices of its steric
// model. A window holds the steric atoms of its residues, and with a
// charged medium the charges of its residues' atoms. Residues are counted
// in the order they appear in their chain. Throws InputError or vorn::Error.
std::vector<WindowTensor> predict_model_windows(const std::vector<Atom>& atoms,
                                                std::span<const std::size_t> steric,
                                                const PredictSettings& settings,
                                                const PredictionContext& context, int threads,
                                                int model, const std::string& path);

// Replaces the prediction of every coupling by that of its residue's window
// (matched by chain, residue number and insertion code). Throws vorn::Error
// for a coupling whose residue has no window.
void apply_windows(std::vector<PredictedCoupling>& couplings,
                   std::span<const WindowTensor> windows);

// The mean position of the atoms; the origin for none.
Vec3 mean_position(std::span<const Atom> atoms);

// The medium of the settings with the atom radius in effect.
Medium effective_medium(const PredictSettings& settings);

// The atom radius in effect for the settings.
double effective_atom_radius(const PredictSettings& settings);

// The prediction of one model with `threads` threads; `path` names the file
// in messages. Throws InputError or vorn::Error.
ModelPrediction predict_model(const Model& model, const PredictSettings& settings,
                              const PredictionContext& context, int threads,
                              const std::string& path);

// How a run spreads `threads` over its models: models in parallel, one
// thread each; a fine sampling (beyond a few thousand orientations) is
// rather split within each prediction, one model at a time.
struct ThreadPlan {
  int workers = 1;
  int per_prediction = 1;
};
ThreadPlan plan_threads(const PredictionContext& context, int threads);

// Runs work(model) for every model of `reader` on `workers` threads and
// emit(result) on the calling thread in file order, with a bounded number
// of models in flight: one thread cuts the models from the file, the
// workers parse them (the larger part of reading) and run `work`, so that
// all the work but the cutting spreads over the workers. emit returning
// false ends the stream early. A failure (a model that cannot be read or a
// work that throws) is thrown after every earlier model was emitted.
// Returns the number of results emitted.
template <class Result, class Work, class Emit>
long stream_in_order(StructureReader& reader, int workers, const Work& work, const Emit& emit);

// Predicts the models of a file through stream_in_order: the workers parse
// and predict each model (each prediction on `threads` threads) and run
// format() on the result, and emit() receives the predictions and their
// text on the calling thread in file order; start(format name) is called
// once the file is open, before any model. Only a few models are in memory
// at any time. A failure (a model that cannot be read or predicted) is
// thrown after every earlier model was emitted; a file with no selected
// model is an error. `done`, when given, is asked after each emit; true
// ends the stream there. Returns the format name ("PDB" or "mmCIF").
std::string predict_stream(
    const std::string& path, const PredictSettings& settings, const PredictionContext& context,
    int workers, int threads, const std::function<void(const std::string&)>& start,
    const std::function<std::string(const ModelPrediction&)>& format,
    const std::function<void(const ModelPrediction&, const std::string&)>& emit,
    const std::function<bool()>& done = {});

// The ensemble summary built model by model, in the order the models are
// added (the same bits for any number of threads or processes that deliver
// them in file order). Couplings are matched by chain, residue, insertion
// code, type and atoms, in order of first appearance.
class EnsembleAccumulator {
 public:
  void add(const ModelPrediction& model);
  int models() const { return models_; }
  EnsembleSummary summary() const;
  // True from kMinConvergedModels models on when the standard errors of Da
  // and of every coupling's mean are below `tolerance` (Hz).
  bool converged(double tolerance) const;

 private:
  using Key = std::tuple<std::string, int, char, std::string, std::string, std::string>;
  int models_ = 0;
  BlockAverage da_, rhombicity_;
  std::map<Key, std::size_t> index_;
  std::vector<CouplingSite> sites_;
  std::vector<BlockAverage> values_;
};

// Predicts every selected model of one file and keeps them all (for small
// files and the bindings); progress(k) is called after model k.
FilePrediction predict_file(const std::string& path, const PredictSettings& settings,
                            const PredictionContext& context,
                            const std::function<void(int)>& progress = {});

template <class Result, class Work, class Emit>
long stream_in_order(StructureReader& reader, int workers, const Work& work, const Emit& emit) {
  workers = std::max(workers, 1);
  // Models read ahead of the one emitted next: enough to keep every worker
  // busy, few enough that memory does not grow with the file.
  const long window = 4L * workers;

  // One model on its way: its result, or the failure.
  struct Slot {
    bool ready = false;
    std::optional<Result> result;
    std::exception_ptr error;
  };
  std::mutex mutex;
  std::condition_variable room;   // the reader waits for space in the window
  std::condition_variable ready;  // workers wait for a model
  std::condition_variable next;   // this thread waits for the next model in order
  std::map<long, Slot> slots;     // models read and not yet emitted, by order in the file
  std::deque<std::pair<long, UnparsedModel>> jobs;
  long next_emit = 0;
  long read_count = 0;
  bool reading_done = false;
  bool stop = false;
  std::exception_ptr read_error;

  std::thread reading([&] {
    try {
      for (;;) {
        {
          std::unique_lock lock(mutex);
          room.wait(lock, [&] { return stop || read_count - next_emit < window; });
          if (stop) break;
        }
        UnparsedModel model;
        if (!reader.next_unparsed(model)) break;
        std::lock_guard lock(mutex);
        slots[read_count];
        jobs.emplace_back(read_count, std::move(model));
        ++read_count;
        ready.notify_one();
      }
    } catch (...) {
      std::lock_guard lock(mutex);
      read_error = std::current_exception();
    }
    std::lock_guard lock(mutex);
    reading_done = true;
    ready.notify_all();
    next.notify_one();
  });

  std::vector<std::thread> pool;
  pool.reserve(static_cast<std::size_t>(workers));
  for (int w = 0; w < workers; ++w) {
    pool.emplace_back([&] {
      for (;;) {
        std::pair<long, UnparsedModel> job;
        {
          std::unique_lock lock(mutex);
          ready.wait(lock, [&] { return stop || !jobs.empty() || reading_done; });
          if (stop || (jobs.empty() && reading_done)) return;
          job = std::move(jobs.front());
          jobs.pop_front();
        }
        Slot done;
        try {
          done.result.emplace(work(reader.parse(std::move(job.second))));
        } catch (...) {
          done.error = std::current_exception();
        }
        done.ready = true;
        std::lock_guard lock(mutex);
        const bool awaited = job.first == next_emit;
        slots[job.first] = std::move(done);
        if (awaited) next.notify_one();
      }
    });
  }

  // Emit in file order on this thread; the first failure (a model that
  // cannot be parsed or worked, or the reader's) ends the stream after
  // every earlier model was emitted.
  std::exception_ptr failure;
  for (;;) {
    Slot slot;
    {
      std::unique_lock lock(mutex);
      next.wait(lock, [&] {
        const auto it = slots.find(next_emit);
        return (it != slots.end() && it->second.ready) || (reading_done && next_emit == read_count);
      });
      const auto it = slots.find(next_emit);
      if (it == slots.end()) {
        failure = read_error;
        break;
      }
      slot = std::move(it->second);
      slots.erase(it);
    }
    if (slot.error) {
      failure = slot.error;
      break;
    }
    bool more = true;
    try {
      more = emit(*slot.result);
    } catch (...) {
      failure = std::current_exception();
      break;
    }
    std::lock_guard lock(mutex);
    ++next_emit;
    room.notify_one();
    if (!more) break;
  }
  long emitted = 0;
  {
    std::lock_guard lock(mutex);
    stop = true;
    emitted = next_emit;
    room.notify_all();
    ready.notify_all();
  }
  reading.join();
  for (std::thread& t : pool) t.join();
  if (failure) std::rethrow_exception(failure);
  return emitted;
}

}  // namespace vorn::app
