#include "app/predict_command.hpp"

#include <cmath>
#include <condition_variable>
#include <deque>
#include <exception>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <tuple>

#include "vorn/error.hpp"

namespace vorn::app {

const char* selection_name(Selection selection) {
  switch (selection) {
    case Selection::surface:
      return "surface";
    case Selection::heavy:
      return "heavy";
    case Selection::all:
      return "all";
  }
  return "";
}

std::optional<Selection> parse_selection(std::string_view name) {
  for (const Selection s : {Selection::surface, Selection::heavy, Selection::all})
    if (name == selection_name(s)) return s;
  return std::nullopt;
}

const char* medium_name(MediumKind kind) {
  switch (kind) {
    case MediumKind::bicelle:
      return "bicelle";
    case MediumKind::phage:
      return "phage";
    case MediumKind::bicelle_and_phage:
      return "bicelle+phage";
  }
  return "";
}

std::optional<MediumKind> parse_medium(std::string_view name) {
  for (const MediumKind k : {MediumKind::bicelle, MediumKind::phage, MediumKind::bicelle_and_phage})
    if (name == medium_name(k)) return k;
  return std::nullopt;
}

std::vector<Vec3> steric_atoms(const std::vector<Atom>& atoms, const PredictSettings& s) {
  std::vector<Atom> kept;
  for (const Atom& a : atoms) {
    if (s.selection == Selection::all || s.read.keep_hydrogens || !is_hydrogen(a)) {
      kept.push_back(a);
    }
  }
  if (s.selection != Selection::surface) return positions(kept);
  std::vector<Vec3> surface;
  for (std::size_t i : surface_atoms(kept)) surface.push_back(kept[i].position);
  return surface;
}

Medium effective_medium(const PredictSettings& settings) {
  Medium medium = settings.medium;
  medium.atom_radius = effective_atom_radius(settings);
  return medium;
}

double effective_atom_radius(const PredictSettings& settings) {
  if (settings.atom_radius_given) return settings.medium.atom_radius;
  return settings.selection == Selection::surface ? 1.4 : 3.0;
}

ModelPrediction predict_model(const Model& model, const PredictSettings& settings,
                              const PredictionContext& context, int threads,
                              const std::string& path) {
  const std::vector<Vec3> atoms = steric_atoms(model.atoms, settings);
  if (atoms.empty()) {
    throw InputError(path + ": model " + std::to_string(model.number) +
                     " has no atom left after the selection");
  }
  ModelPrediction m;
  m.model = model.number;
  m.atoms_read = static_cast<int>(model.atoms.size());
  m.atoms_used = static_cast<int>(atoms.size());
  m.tensor = analyze_tensor(context.predict_saupe(atoms, effective_medium(settings), threads));
  const BackboneSites sites = backbone_sites(model.atoms);
  m.built_hydrogens = sites.built_hydrogens;
  m.couplings.reserve(sites.sites.size());
  for (const CouplingSite& site : sites.sites) {
    PredictedCoupling c;
    c.site = site;
    c.dmax_hz = dipolar_constant_hz(site.element1, site.element2, standard_distance(site.type));
    c.predicted_hz = dipolar_coupling_hz(m.tensor.saupe, site.vector, c.dmax_hz);
    m.couplings.push_back(std::move(c));
  }
  return m;
}

namespace {

// One model on its way through the pipeline.
struct Slot {
  bool ready = false;
  ModelPrediction prediction;
  std::string text;
  std::exception_ptr error;
};

}  // namespace

std::string predict_stream(
    const std::string& path, const PredictSettings& settings, const PredictionContext& context,
    int workers, int threads, const std::function<void(const std::string&)>& start,
    const std::function<std::string(const ModelPrediction&)>& format,
    const std::function<void(const ModelPrediction&, const std::string&)>& emit) {
  // Hydrogens are always read: the couplings need them; the selection
  // decides whether they enter the steric model.
  ReadOptions read = settings.read;
  read.keep_hydrogens = true;
  StructureReader reader(path, read, settings.input_format);
  std::string format_name = reader.format_name();
  if (start) start(format_name);
  workers = std::max(workers, 1);
  // Models read ahead of the one emitted next: enough to keep every worker
  // busy, few enough that memory does not grow with the file.
  const long window = 4L * workers;

  // The reading thread only cuts the models from the file; the workers parse
  // them (the larger part of reading), predict and format, so that all of
  // the work but the cutting spreads over the workers.
  std::mutex mutex;
  std::condition_variable room;   // the reader waits for space in the window
  std::condition_variable work;   // workers wait for a model
  std::condition_variable ready;  // this thread waits for the next model in order
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
        work.notify_one();
      }
    } catch (...) {
      std::lock_guard lock(mutex);
      read_error = std::current_exception();
    }
    std::lock_guard lock(mutex);
    reading_done = true;
    work.notify_all();
    ready.notify_one();
  });

  std::vector<std::thread> pool;
  pool.reserve(static_cast<std::size_t>(workers));
  for (int w = 0; w < workers; ++w) {
    pool.emplace_back([&] {
      for (;;) {
        std::pair<long, UnparsedModel> job;
        {
          std::unique_lock lock(mutex);
          work.wait(lock, [&] { return stop || !jobs.empty() || reading_done; });
          if (stop || (jobs.empty() && reading_done)) return;
          job = std::move(jobs.front());
          jobs.pop_front();
        }
        Slot done;
        try {
          const Model model = reader.parse(std::move(job.second));
          done.prediction = predict_model(model, settings, context, threads, path);
          if (format) done.text = format(done.prediction);
        } catch (...) {
          done.error = std::current_exception();
        }
        done.ready = true;
        std::lock_guard lock(mutex);
        const bool next = job.first == next_emit;
        slots[job.first] = std::move(done);
        if (next) ready.notify_one();
      }
    });
  }

  // Emit in file order on this thread; the first failure (a model that
  // cannot be parsed or predicted, or the reader's) ends the stream after
  // every earlier model was emitted.
  std::exception_ptr failure;
  for (;;) {
    Slot slot;
    {
      std::unique_lock lock(mutex);
      ready.wait(lock, [&] {
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
    try {
      emit(slot.prediction, slot.text);
    } catch (...) {
      failure = std::current_exception();
      break;
    }
    std::lock_guard lock(mutex);
    ++next_emit;
    room.notify_one();
  }
  {
    std::lock_guard lock(mutex);
    stop = true;
    room.notify_all();
    work.notify_all();
  }
  reading.join();
  for (std::thread& t : pool) t.join();
  if (failure) std::rethrow_exception(failure);
  if (next_emit == 0) throw InputError(path + ": no model selected");
  return format_name;
}

void EnsembleAccumulator::add(const ModelPrediction& m) {
  ++models_;
  da_.add(m.tensor.da_hz);
  rhombicity_.add(m.tensor.rhombicity);
  for (std::size_t i = 0; i < m.couplings.size(); ++i) {
    const PredictedCoupling& c = m.couplings[i];
    const CouplingSite& s = c.site;
    // The models of an ensemble list the same sites in the same order: the
    // i-th site is usually the i-th one met before, found without a lookup.
    if (i < sites_.size()) {
      const CouplingSite& known = sites_[i];
      if (known.residue_number == s.residue_number && known.insertion_code == s.insertion_code &&
          known.chain == s.chain && known.type == s.type && known.atom1 == s.atom1 &&
          known.atom2 == s.atom2) {
        values_[i].add(c.predicted_hz);
        continue;
      }
    }
    const Key key{s.chain, s.residue_number, s.insertion_code, s.type, s.atom1, s.atom2};
    auto [it, added] = index_.try_emplace(key, sites_.size());
    if (added) {
      sites_.push_back(s);
      values_.emplace_back();
    }
    values_[it->second].add(c.predicted_hz);
  }
}

EnsembleSummary EnsembleAccumulator::summary() const {
  EnsembleSummary e;
  e.models = models_;
  e.da_hz_mean = da_.mean();
  e.da_hz_sd = da_.sd();
  e.rhombicity_mean = rhombicity_.mean();
  e.rhombicity_sd = rhombicity_.sd();
  for (std::size_t i = 0; i < sites_.size(); ++i) {
    e.couplings.push_back({sites_[i], values_[i].count(), values_[i].mean(), values_[i].sd()});
  }
  return e;
}

FilePrediction predict_file(const std::string& path, const PredictSettings& settings,
                            const PredictionContext& context,
                            const std::function<void(int)>& progress) {
  FilePrediction result;
  result.file = path;
  EnsembleAccumulator ensemble;
  result.format = predict_stream(path, settings, context, std::max(settings.threads, 1), 1, {}, {},
                                 [&](const ModelPrediction& m, const std::string&) {
                                   ensemble.add(m);
                                   result.models.push_back(m);
                                   if (progress) progress(static_cast<int>(result.models.size()));
                                 });
  if (result.models.size() > 1) result.ensemble = ensemble.summary();
  return result;
}

}  // namespace vorn::app
