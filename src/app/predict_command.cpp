#include "app/predict_command.hpp"

#include <cmath>
#include <map>
#include <string>
#include <tuple>

#include "vorn/error.hpp"

namespace vorn::app {

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

namespace {

double mean(const std::vector<double>& v) {
  double sum = 0.0;
  for (double x : v) sum += x;
  return v.empty() ? 0.0 : sum / static_cast<double>(v.size());
}

double sample_sd(const std::vector<double>& v, double m) {
  if (v.size() < 2) return 0.0;
  double sum = 0.0;
  for (double x : v) sum += (x - m) * (x - m);
  return std::sqrt(sum / static_cast<double>(v.size() - 1));
}

}  // namespace

double effective_atom_radius(const PredictSettings& settings) {
  if (settings.atom_radius_given) return settings.medium.atom_radius;
  return settings.selection == Selection::surface ? 1.4 : 3.0;
}

FilePrediction predict_file(const std::string& path, const PredictSettings& settings,
                            const PredictionContext& context,
                            const std::function<void(int)>& progress) {
  // Hydrogens are always read: the couplings need them; the selection
  // decides whether they enter the steric model.
  ReadOptions read = settings.read;
  read.keep_hydrogens = true;
  StructureReader reader(path, read, settings.input_format);

  const Medium medium = effective_medium(settings);

  FilePrediction result;
  result.file = path;
  result.format = reader.format_name();
  Model model;
  while (reader.next(model)) {
    const std::vector<Vec3> atoms = steric_atoms(model.atoms, settings);
    if (atoms.empty()) {
      throw InputError(path + ": model " + std::to_string(model.number) +
                       " has no atom left after the selection");
    }
    ModelPrediction m;
    m.model = model.number;
    m.atoms_read = static_cast<int>(model.atoms.size());
    m.atoms_used = static_cast<int>(atoms.size());
    m.tensor = analyze_tensor(context.predict_saupe(atoms, medium));
    const BackboneSites sites = backbone_sites(model.atoms);
    m.built_hydrogens = sites.built_hydrogens;
    for (const CouplingSite& site : sites.sites) {
      PredictedCoupling c;
      c.site = site;
      c.dmax_hz = dipolar_constant_hz(site.element1, site.element2, standard_distance(site.type));
      c.predicted_hz = dipolar_coupling_hz(m.tensor.saupe, site.vector, c.dmax_hz);
      m.couplings.push_back(std::move(c));
    }
    result.models.push_back(std::move(m));
    if (progress) progress(static_cast<int>(result.models.size()));
  }
  if (result.models.empty()) throw InputError(path + ": no model selected");
  if (result.models.size() > 1) result.ensemble = summarise(result.models);
  return result;
}

EnsembleSummary summarise(const std::vector<ModelPrediction>& models) {
  EnsembleSummary e;
  e.models = static_cast<int>(models.size());
  std::vector<double> da, r;
  for (const ModelPrediction& m : models) {
    da.push_back(m.tensor.da_hz);
    r.push_back(m.tensor.rhombicity);
  }
  e.da_hz_mean = mean(da);
  e.da_hz_sd = sample_sd(da, e.da_hz_mean);
  e.rhombicity_mean = mean(r);
  e.rhombicity_sd = sample_sd(r, e.rhombicity_mean);

  // Couplings matched by residue, type and atoms, in order of first
  // appearance; the values are summed in model order.
  using Key = std::tuple<std::string, int, char, std::string, std::string, std::string>;
  std::map<Key, std::size_t> index;
  std::vector<std::vector<double>> values;
  for (const ModelPrediction& m : models) {
    for (const PredictedCoupling& c : m.couplings) {
      const CouplingSite& s = c.site;
      const Key key{s.chain, s.residue_number, s.insertion_code, s.type, s.atom1, s.atom2};
      auto [it, added] = index.try_emplace(key, e.couplings.size());
      if (added) {
        e.couplings.push_back({s, 0, 0.0, 0.0});
        values.emplace_back();
      }
      values[it->second].push_back(c.predicted_hz);
    }
  }
  for (std::size_t i = 0; i < e.couplings.size(); ++i) {
    e.couplings[i].models = static_cast<int>(values[i].size());
    e.couplings[i].mean_hz = mean(values[i]);
    e.couplings[i].sd_hz = sample_sd(values[i], e.couplings[i].mean_hz);
  }
  return e;
}

}  // namespace vorn::app
