#include "app/predict_command.hpp"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <sstream>
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

const char* potential_name(PotentialModel model) {
  switch (model) {
    case PotentialModel::linear:
      return "linear";
    case PotentialModel::nonlinear:
      return "nonlinear";
  }
  return "";
}

std::optional<PotentialModel> parse_potential(std::string_view name) {
  for (const PotentialModel m : {PotentialModel::linear, PotentialModel::nonlinear})
    if (name == potential_name(m)) return m;
  return std::nullopt;
}

namespace {

// A value as the messages show it: "-1", "15", "0.15", "nan".
std::string value_text(double value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

}  // namespace

void apply_medium_options(PredictSettings& s, const MediumOptions& o,
                          const std::function<std::string(const std::string&)>& name) {
  const bool pf1 = o.medium == "pf1";
  const std::optional<MediumKind> kind = pf1 ? MediumKind::phage : parse_medium(o.medium);
  if (!kind) {
    throw OptionError("medium",
                      "must be bicelle, phage, bicelle+phage or pf1 (got '" + o.medium + "')");
  }
  if (o.charge_density && !std::isfinite(*o.charge_density)) {
    throw OptionError("charge_density", "must be a finite number of e/nm^2 (got " +
                                            value_text(*o.charge_density) + ")");
  }
  if (o.ionic_strength && !(std::isfinite(*o.ionic_strength) && *o.ionic_strength > 0.0)) {
    throw OptionError("ionic_strength", "must be a positive number of mol/l (got " +
                                            value_text(*o.ionic_strength) + ")");
  }
  if (o.ph && !(*o.ph >= 0.0 && *o.ph <= 14.0)) {
    throw OptionError("ph", "must be 0 to 14 (got " + value_text(*o.ph) + ")");
  }
  if (o.temperature && !(*o.temperature >= 273.15 && *o.temperature <= 373.15)) {
    throw OptionError("temperature",
                      "must be 273.15 to 373.15 K (got " + value_text(*o.temperature) + ")");
  }
  if (o.obstacle_radius && !(std::isfinite(*o.obstacle_radius) && *o.obstacle_radius > 0.0)) {
    throw OptionError("obstacle_radius", "must be a positive number of Angstrom (got " +
                                             value_text(*o.obstacle_radius) + ")");
  }
  if (o.charge_density && *kind == MediumKind::bicelle_and_phage) {
    throw OptionError("charge_density",
                      "a charged obstacle needs " + name("medium") + " bicelle, phage or pf1");
  }
  if (o.obstacle_radius && *kind != MediumKind::phage) {
    throw OptionError("obstacle_radius", "applies to the cylinder (phage, pf1)");
  }
  if (o.obstacle_radius && s.medium.obstacle_dimension) {
    throw OptionError("obstacle_radius",
                      "is the cylinder's " + name("obstacle_dimension") + ": give one of them");
  }

  s.medium.kind = *kind;
  s.medium_label = pf1 ? "pf1" : "";
  std::optional<ObstacleCharge> charge;
  if (pf1) {
    const Medium preset = pf1_medium();
    charge = preset.charge;
    if (!s.medium.obstacle_dimension) s.medium.obstacle_dimension = preset.obstacle_dimension;
  }
  if (o.charge_density) {
    if (!charge) charge = ObstacleCharge{};
    charge->charge_density = *o.charge_density;
  }
  if (charge) {
    if (o.ionic_strength) charge->ionic_strength = *o.ionic_strength;
    if (o.temperature) charge->temperature = *o.temperature;
    if (o.potential) charge->potential = *o.potential;
    if (charge->charge_density == 0.0) charge.reset();
  }
  s.medium.charge = charge;
  if (o.obstacle_radius) s.medium.obstacle_dimension = *o.obstacle_radius;
  if (o.ph) s.ph = *o.ph;
  if (o.charges_file) s.charges_file = *o.charges_file;
}

bool is_charged(const Medium& medium) {
  return medium.charge && medium.charge->charge_density != 0.0;
}

std::string medium_label(const PredictSettings& settings) {
  return settings.medium_label.empty() ? medium_name(settings.medium.kind) : settings.medium_label;
}

void read_charges(PredictSettings& s) {
  if (!is_charged(s.medium) || s.charges_file.empty() || s.pqr_atoms) return;
  s.pqr_atoms = std::make_shared<const std::vector<io::PqrAtom>>(io::read_pqr(s.charges_file));
}

namespace {

// The charges of a model, with the model named in a message about them.
AtomCharges charges_of(std::span<const Atom> atoms, const PredictSettings& s, int model,
                       const std::string& path) {
  try {
    return model_charges(atoms, s);
  } catch (const InputError& e) {
    throw InputError(std::string(e.what()) + " (model " + std::to_string(model) + " of " + path +
                     ")");
  }
}

}  // namespace

void prepare_charges(PredictSettings& s, std::span<const std::string> structures) {
  read_charges(s);
  if (!s.pqr_atoms) return;
  // The models as the prediction reads them: every atom, all the models.
  ReadOptions read = s.read;
  read.keep_hydrogens = true;
  read.stride = 1;
  read.offset = 0;
  for (const std::string& path : structures) {
    StructureReader reader(path, read, s.input_format);
    Model model;
    if (reader.next(model)) charges_of(model.atoms, s, model.number, path);
  }
}

AtomCharges model_charges(std::span<const Atom> atoms, const PredictSettings& s) {
  if (s.charges_file.empty()) return titration_charges(atoms, s.ph);
  if (s.pqr_atoms) return io::charges_from_pqr(atoms, *s.pqr_atoms, s.charges_file);
  return io::charges_from_pqr(atoms, io::read_pqr(s.charges_file), s.charges_file);
}

ModelSaupe predict_model_saupe(std::span<const Vec3> steric, std::span<const Atom> atoms,
                               const PredictSettings& settings, const PredictionContext& context,
                               int threads, int model, const std::string& path) {
  const Medium medium = effective_medium(settings);
  ModelSaupe result;
  if (!is_charged(medium)) {
    result.saupe = context.predict_saupe(steric, medium, threads);
    return result;
  }
  const AtomCharges charges = charges_of(atoms, settings, model, path);
  if (charges.charge.size() != atoms.size()) {
    throw Error("predict: " + std::to_string(charges.charge.size()) + " charges for " +
                std::to_string(atoms.size()) + " atoms");
  }
  std::vector<PointCharge> points;
  for (std::size_t i = 0; i < atoms.size(); ++i) {
    if (charges.charge[i] != 0.0) points.push_back({atoms[i].position, charges.charge[i]});
  }
  result.saupe = context.predict_saupe(steric, points, medium, threads);
  result.net_charge = charges.net_charge;
  result.charged_groups = charges.charged_groups;
  return result;
}

std::vector<std::size_t> steric_atom_indices(const std::vector<Atom>& atoms,
                                             const PredictSettings& s) {
  const auto wanted = [&](const Atom& a) {
    return s.selection == Selection::all || s.read.keep_hydrogens || !is_hydrogen(a);
  };
  std::vector<std::size_t> kept;
  kept.reserve(atoms.size());
  for (std::size_t i = 0; i < atoms.size(); ++i) {
    if (wanted(atoms[i])) kept.push_back(i);
  }
  if (s.selection != Selection::surface) return kept;
  std::vector<Atom> candidates;
  candidates.reserve(kept.size());
  for (const std::size_t i : kept) candidates.push_back(atoms[i]);
  std::vector<std::size_t> surface;
  for (const std::size_t i : surface_atoms(candidates)) surface.push_back(kept[i]);
  return surface;
}

std::vector<Vec3> steric_atoms(const std::vector<Atom>& atoms, const PredictSettings& s) {
  std::vector<Vec3> positions;
  const std::vector<std::size_t> kept = steric_atom_indices(atoms, s);
  positions.reserve(kept.size());
  for (const std::size_t i : kept) positions.push_back(atoms[i].position);
  return positions;
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

std::optional<AddedHydrogens> placed_hydrogens(std::span<const Atom> atoms, bool add) {
  if (!add && has_hydrogens(atoms)) return std::nullopt;
  return add_hydrogens(atoms);
}

ModelCouplings backbone_couplings(std::span<const Atom> atoms,
                                  const std::optional<AddedHydrogens>& placed,
                                  const SaupeElements& saupe) {
  ModelCouplings result;
  using Key = std::tuple<std::string, int, char, std::string>;
  std::set<Key> built;
  if (placed) {
    for (std::size_t i : placed->added) {
      const Atom& h = placed->atoms[i];
      built.insert({h.chain, h.residue_number, h.insertion_code, h.name});
    }
    result.built_hydrogens = static_cast<int>(placed->added.size());
    result.unplaced_hydrogens = placed->unplaced;
  }
  const BackboneSites sites = placed ? backbone_sites(placed->atoms, false) : backbone_sites(atoms);
  if (!placed) result.built_hydrogens = sites.built_hydrogens;
  result.couplings.reserve(sites.sites.size());
  for (const CouplingSite& site : sites.sites) {
    PredictedCoupling c;
    c.site = site;
    if (placed && site.element2 == "H") {
      c.site.built_hydrogen =
          built.count({site.chain, site.residue_number, site.insertion_code, site.atom2}) > 0;
    }
    c.dmax_hz = dipolar_constant_hz(site.element1, site.element2, standard_distance(site.type));
    c.predicted_hz = dipolar_coupling_hz(saupe, site.vector, c.dmax_hz);
    result.couplings.push_back(std::move(c));
  }
  return result;
}

ModelPrediction predict_model(const Model& model, const PredictSettings& settings,
                              const PredictionContext& context, int threads,
                              const std::string& path) {
  // Hydrogens placed on request stand for read ones; placed because the
  // model has none, they serve the couplings alone.
  const std::optional<AddedHydrogens> placed =
      placed_hydrogens(model.atoms, settings.add_hydrogens);
  const std::vector<Atom>& model_atoms = settings.add_hydrogens ? placed->atoms : model.atoms;
  const std::vector<std::size_t> steric = steric_atom_indices(model_atoms, settings);
  std::vector<Vec3> atoms;
  atoms.reserve(steric.size());
  for (const std::size_t i : steric) atoms.push_back(model_atoms[i].position);
  if (atoms.empty()) {
    throw InputError(path + ": model " + std::to_string(model.number) +
                     " has no atom left after the selection");
  }
  ModelPrediction m;
  m.model = model.number;
  m.atoms_read = static_cast<int>(model.atoms.size());
  m.atoms_used = static_cast<int>(atoms.size());
  m.centre = mean_position(model.atoms);
  const ModelSaupe saupe =
      predict_model_saupe(atoms, model_atoms, settings, context, threads, model.number, path);
  m.tensor = analyze_tensor(saupe.saupe);
  m.net_charge = saupe.net_charge;
  m.charged_groups = saupe.charged_groups;
  ModelCouplings couplings = backbone_couplings(model.atoms, placed, m.tensor.saupe);
  m.couplings = std::move(couplings.couplings);
  if (settings.window > 0) {
    m.windows =
        predict_model_windows(model_atoms, steric, settings, context, threads, model.number, path);
    apply_windows(m.couplings, m.windows);
  }
  m.hydrogens_placed = placed.has_value();
  m.built_hydrogens = couplings.built_hydrogens;
  m.unplaced_hydrogens = couplings.unplaced_hydrogens;
  return m;
}

Vec3 mean_position(std::span<const Atom> atoms) {
  Vec3 sum;
  for (const Atom& a : atoms) {
    sum.x += a.position.x;
    sum.y += a.position.y;
    sum.z += a.position.z;
  }
  if (atoms.empty()) return sum;
  const double n = static_cast<double>(atoms.size());
  return {sum.x / n, sum.y / n, sum.z / n};
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
    const std::function<void(const ModelPrediction&, const std::string&)>& emit,
    const std::function<bool()>& done) {
  // Hydrogens are always read: the couplings need them; the selection
  // decides whether they enter the steric model.
  ReadOptions read = settings.read;
  read.keep_hydrogens = true;
  // A PQR file not read before is read once here, not once per model.
  std::optional<PredictSettings> with_charges;
  if (is_charged(settings.medium) && !settings.charges_file.empty() && !settings.pqr_atoms) {
    with_charges.emplace(settings);
    read_charges(*with_charges);
  }
  const PredictSettings& used = with_charges ? *with_charges : settings;
  StructureReader reader(path, read, settings.input_format);
  std::string format_name = reader.format_name();
  if (start) start(format_name);
  using Done = std::pair<ModelPrediction, std::string>;
  const long emitted = stream_in_order<Done>(
      reader, workers,
      [&](Model&& model) {
        Done result;
        result.first = predict_model(model, used, context, threads, path);
        if (format) result.second = format(result.first);
        return result;
      },
      [&](Done& result) {
        emit(result.first, result.second);
        return !(done && done());
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
  e.da_hz_se = da_.se();
  e.rhombicity_se = rhombicity_.se();
  e.da_effective_samples = da_.effective_samples();
  for (std::size_t i = 0; i < sites_.size(); ++i) {
    const BlockAverage& v = values_[i];
    e.couplings.push_back({sites_[i], static_cast<int>(v.count()), v.mean(), v.sd(), v.se()});
  }
  return e;
}

bool EnsembleAccumulator::converged(double tolerance) const {
  if (models_ < kMinConvergedModels || !(da_.se() < tolerance)) return false;
  for (const BlockAverage& v : values_)
    if (!(v.se() < tolerance)) return false;
  return true;
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
