#include "app/predict_command.hpp"

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
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
  const auto wanted = [&](const Atom& a) {
    return s.selection == Selection::all || s.read.keep_hydrogens || !is_hydrogen(a);
  };
  if (s.selection != Selection::surface) {
    std::vector<Vec3> kept;
    kept.reserve(atoms.size());
    for (const Atom& a : atoms) {
      if (wanted(a)) kept.push_back(a.position);
    }
    return kept;
  }
  std::vector<Atom> kept;
  kept.reserve(atoms.size());
  for (const Atom& a : atoms) {
    if (wanted(a)) kept.push_back(a);
  }
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

ThreadPlan plan_threads(const PredictionContext& context, int threads) {
  threads = std::max(threads, 1);
  if (context.orientation_count() >= 8192) return {1, threads};
  return {threads, 1};
}

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
  using Done = std::pair<ModelPrediction, std::string>;
  const long emitted = stream_in_order<Done>(
      reader, workers,
      [&](Model&& model) {
        Done done;
        done.first = predict_model(model, settings, context, threads, path);
        if (format) done.second = format(done.first);
        return done;
      },
      [&](Done& done) {
        emit(done.first, done.second);
        return true;
      });
  if (emitted == 0) throw InputError(path + ": no model selected");
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
