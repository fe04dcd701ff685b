#include "app/fit_command.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <map>
#include <thread>
#include <tuple>

#include "vorn/couplings.hpp"
#include "vorn/error.hpp"
#include "vorn/hydrogens.hpp"

namespace vorn::app {

namespace {

using io::InputError;

// The atoms of one model by chain and residue number, in file order.
class ModelIndex {
 public:
  explicit ModelIndex(const std::vector<Atom>& atoms) {
    for (const Atom& a : atoms) residues_[{a.chain, a.residue_number}].push_back(&a);
  }

  // The atoms of a residue; chain "" stands for any chain, which must then
  // be unique. Null when the residue is missing.
  const std::vector<const Atom*>* residue(const std::string& chain, int number,
                                          const std::string& where) const {
    if (!chain.empty()) {
      const auto it = residues_.find({chain, number});
      return it == residues_.end() ? nullptr : &it->second;
    }
    const std::vector<const Atom*>* found = nullptr;
    for (const auto& [key, atoms] : residues_) {
      if (key.second != number) continue;
      if (found != nullptr) {
        throw InputError(where + ": residue " + std::to_string(number) +
                         " is in several chains; name the chain");
      }
      found = &atoms;
    }
    return found;
  }

 private:
  std::map<std::pair<std::string, int>, std::vector<const Atom*>> residues_;
};

bool is_pseudo(const std::string& name) {
  return !name.empty() && (name.back() == '#' || name.back() == '*' || name[0] == 'Q');
}

// The atoms a name stands for in a residue: the atom itself, H for HN and
// HN for H, or the protons a pseudo-atom names (HB# or HB*: HB1, HB2, HB3,
// ...; QB: the same as HB#).
std::vector<const Atom*> match_atoms(const std::vector<const Atom*>& residue,
                                     const std::string& name) {
  std::vector<const Atom*> found;
  const auto exact = [&](const std::string& n) {
    for (const Atom* a : residue)
      if (a->name == n) return a;
    return static_cast<const Atom*>(nullptr);
  };
  if (!is_pseudo(name)) {
    const Atom* a = exact(name);
    if (a == nullptr && name == "H") a = exact("HN");
    if (a == nullptr && name == "HN") a = exact("H");
    if (a != nullptr) found.push_back(a);
    return found;
  }
  std::string prefix = name;
  if (prefix.back() == '#' || prefix.back() == '*') prefix.pop_back();
  if (prefix[0] == 'Q') prefix[0] = 'H';
  for (const Atom* a : residue) {
    if (a->name.size() <= prefix.size() || a->name.compare(0, prefix.size(), prefix) != 0) continue;
    const std::string rest = a->name.substr(prefix.size());
    if (std::all_of(rest.begin(), rest.end(),
                    [](char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; })) {
      found.push_back(a);
    }
  }
  return found;
}

std::string plain(const std::string& name) { return name == "HN" ? "H" : name; }

// The heavy atom a methyl carbon is bonded to, by residue; "" when `carbon`
// is not a methyl carbon of that residue.
std::string methyl_partner(const std::string& residue, const std::string& carbon) {
  static const std::map<std::pair<std::string, std::string>, std::string> kMethyls{
      {{"ALA", "CB"}, "CA"},   {{"VAL", "CG1"}, "CB"}, {{"VAL", "CG2"}, "CB"},
      {{"LEU", "CD1"}, "CG"},  {{"LEU", "CD2"}, "CG"}, {{"ILE", "CG2"}, "CB"},
      {{"ILE", "CD1"}, "CG1"}, {{"THR", "CG2"}, "CB"}, {{"MET", "CE"}, "SD"}};
  const auto it = kMethyls.find({residue, carbon});
  return it == kMethyls.end() ? std::string() : it->second;
}

// A methyl coupling given on the methyl group's symmetry axis: the methyl
// carbon first, then the heavy atom it is bonded to, in one residue. Its
// value is that of a C-H bond along the axis: the fast rotation scales it
// by P2(cos 109.47 deg) = -1/3 into the C-H coupling of each proton, so a
// measured methyl C-H coupling is given as -3 times its value (as the
// deposited 2MJB restraints are).
bool is_methyl_axis(const io::MeasuredCoupling& c, const std::string& residue_name) {
  return c.atom1.residue == c.atom2.residue &&
         methyl_partner(residue_name, c.atom1.name) == c.atom2.name;
}

// The backbone label of a pair, or "ATOM1-ATOM2" as written.
std::string type_of(const io::MeasuredCoupling& c) {
  const std::string a = plain(c.atom1.name);
  const std::string b = plain(c.atom2.name);
  const int d = c.atom2.residue - c.atom1.residue;
  const auto pair = [&](const char* x, const char* y) {
    return (a == x && b == y) || (a == y && b == x);
  };
  const bool alpha_h = (a == "CA" && (b == "HA" || b == "HA2" || b == "HA3")) ||
                       (b == "CA" && (a == "HA" || a == "HA2" || a == "HA3"));
  if (d == 0 && pair("N", "H")) return "N-H";
  if (d == 0 && alpha_h) return "CA-HA";
  if (d == 0 && pair("CA", "C")) return "CA-C";
  if ((d == 1 && a == "C" && b == "N") || (d == -1 && b == "C" && a == "N")) return "C-N";
  if ((d == 1 && a == "C" && b == "H") || (d == -1 && b == "C" && a == "H")) return "C-HN";
  return c.atom1.name + "-" + c.atom2.name;
}

double distance(const Vec3& a, const Vec3& b) {
  return std::sqrt((a.x - b.x) * (a.x - b.x) + (a.y - b.y) * (a.y - b.y) +
                   (a.z - b.z) * (a.z - b.z));
}

std::string describe(const io::CouplingAtom& a) {
  return (a.chain.empty() ? "" : a.chain + ":") + std::to_string(a.residue) + ":" + a.name;
}

// The design row of a coupling in one model, averaged over the atom pairs
// a pseudo-atom stands for (summed over the two of a methylene with
// Methylene::sum; dmax is then the sum of their constants). False when an
// atom is missing.
bool design_in_model(const ModelIndex& index, const io::MeasuredCoupling& c, const FitSettings& s,
                     const std::string& where, DesignRow& row, double& dmax, double& r) {
  const auto* res1 = index.residue(c.atom1.chain, c.atom1.residue, where);
  const auto* res2 = index.residue(c.atom2.chain, c.atom2.residue, where);
  if (res1 == nullptr || res2 == nullptr) return false;
  const std::vector<const Atom*> first = match_atoms(*res1, c.atom1.name);
  const std::vector<const Atom*> second = match_atoms(*res2, c.atom2.name);
  if (first.empty() || second.empty()) return false;
  if (is_methyl_axis(c, first[0]->residue_name)) {
    const Vec3 axis{second[0]->position.x - first[0]->position.x,
                    second[0]->position.y - first[0]->position.y,
                    second[0]->position.z - first[0]->position.z};
    dmax = dipolar_constant_hz("C", "H", 1.09);
    r = 1.09;
    row = coupling_design(axis, dmax);
    return true;
  }
  // The standard length with the atom of the earlier residue first.
  const int step = c.atom2.residue - c.atom1.residue;
  std::string earlier = plain(first[0]->name);
  std::string later = plain(second[0]->name);
  if (step < 0) std::swap(earlier, later);
  std::optional<double> standard;
  if (std::abs(step) <= 1 && s.bond_lengths == BondLengths::standard)
    standard = standard_length(earlier, later, std::abs(step) == 1);
  if (std::abs(step) <= 1 && s.bond_lengths == BondLengths::effective)
    standard = effective_length(earlier, later, std::abs(step) == 1);
  row = {};
  int pairs = 0;
  double dmax_sum = 0.0;
  for (const Atom* a : first) {
    for (const Atom* b : second) {
      const double length = standard ? *standard : distance(a->position, b->position);
      double d = 0.0;
      try {
        d = dipolar_constant_hz(a->element, b->element, length);
      } catch (const Error& e) {
        throw InputError(where + ": coupling " + a->name + " - " + b->name + ": " + e.what());
      }
      const Vec3 v{b->position.x - a->position.x, b->position.y - a->position.y,
                   b->position.z - a->position.z};
      const DesignRow one = coupling_design(v, d);
      for (int j = 0; j < 5; ++j) row[j] += one[j];
      if (pairs == 0) {
        dmax = d;
        r = length;
      }
      dmax_sum += d;
      ++pairs;
    }
  }
  const bool methylene = pairs == 2 && (is_pseudo(c.atom1.name) || is_pseudo(c.atom2.name));
  if (methylene && s.methylene == Methylene::sum) {
    dmax = dmax_sum;
    return true;
  }
  for (double& x : row) x /= pairs;
  return true;
}

std::vector<FitRow> rows_of(const std::vector<ResolvedCoupling>& couplings) {
  std::vector<FitRow> rows;
  rows.reserve(couplings.size());
  for (const ResolvedCoupling& c : couplings) rows.push_back(c.row);
  return rows;
}

double dot(const DesignRow& a, const SaupeElements& s) {
  double sum = 0.0;
  for (int j = 0; j < 5; ++j) sum += a[j] * s[j];
  return sum;
}

// Fit, sign check (and --fix-sign), outliers (and --drop-outliers), quality
// and error bars of one set.
void fit_set(SetFit& set, const FitSettings& s) {
  set.fit = fit_tensor(rows_of(set.couplings), s.weighted);
  set.sign_check = check_signs(rows_of(set.couplings), s.weighted);
  if (s.fix_sign) {
    for (const SignCheck& c : set.sign_check) {
      if (!c.inverted_fits_better) continue;
      set.inverted_types.push_back(c.type);
      for (ResolvedCoupling& r : set.couplings) {
        if (r.type != c.type) continue;
        r.row.value_hz = -r.row.value_hz;
        r.measured.value_hz = -r.measured.value_hz;
      }
    }
    if (!set.inverted_types.empty()) set.fit = fit_tensor(rows_of(set.couplings), s.weighted);
  }
  const std::vector<std::size_t> out = outliers(rows_of(set.couplings), set.fit);
  for (std::size_t i : out) set.outliers.push_back(set.couplings[i]);
  if (s.drop_outliers && !out.empty()) {
    std::vector<ResolvedCoupling> kept;
    for (std::size_t i = 0; i < set.couplings.size(); ++i)
      if (!std::binary_search(out.begin(), out.end(), i)) kept.push_back(set.couplings[i]);
    set.couplings = std::move(kept);
    set.fit = fit_tensor(rows_of(set.couplings), s.weighted);
  }
  const std::vector<FitRow> rows = rows_of(set.couplings);
  set.quality = fit_quality(rows, set.fit.calculated_hz, set.fit.tensor);
  if (s.errors) {
    set.errors = estimate_errors(rows, set.fit, *s.errors, s.samples, s.seed, s.weighted,
                                 !s.plot_axes_file.empty());
  }
}

// The steric prediction of the fitted models against the data.
PredictionComparison compare_prediction(const SetFit& set,
                                        const std::vector<SaupeElements>& predicted_saupe) {
  PredictionComparison p;
  const double n_models = static_cast<double>(predicted_saupe.size());
  for (const SaupeElements& s : predicted_saupe)
    for (int j = 0; j < 5; ++j) p.saupe[j] += s[j] / n_models;
  p.tensor = analyze_tensor(p.saupe);
  const double dmax_nh = dipolar_constant_hz("N", "H", 1.02);
  std::vector<double> x, y;
  for (const ResolvedCoupling& c : set.couplings) {
    double value = 0.0;
    for (std::size_t m = 0; m < predicted_saupe.size(); ++m)
      value += dot(c.model_rows[m], predicted_saupe[m]) / n_models;
    p.predicted_hz.push_back(value);
    const double scale = c.row.dmax_hz != 0.0 ? dmax_nh / c.row.dmax_hz : 1.0;
    x.push_back(c.row.value_hz * scale);
    y.push_back(value * scale);
  }
  double mx = 0, my = 0;
  for (std::size_t i = 0; i < x.size(); ++i) mx += x[i] / x.size(), my += y[i] / x.size();
  double sxy = 0, sxx = 0, syy = 0, d2 = 0, o2 = 0;
  for (std::size_t i = 0; i < x.size(); ++i) {
    sxy += (x[i] - mx) * (y[i] - my);
    sxx += (x[i] - mx) * (x[i] - mx);
    syy += (y[i] - my) * (y[i] - my);
    d2 += (x[i] - y[i]) * (x[i] - y[i]);
    o2 += x[i] * x[i];
  }
  p.r = sxx > 0 && syy > 0 ? sxy / std::sqrt(sxx * syy) : 0.0;
  p.q = o2 > 0 ? std::sqrt(d2 / o2) : 0.0;
  p.slope = sxx > 0 ? sxy / sxx : 0.0;
  const auto& a = set.fit.tensor.eigenvectors[0];
  const auto& b = p.tensor.eigenvectors[0];
  const double c = std::min(1.0, std::fabs(a[0] * b[0] + a[1] * b[1] + a[2] * b[2]));
  p.axis_angle_deg = std::acos(c) * 180.0 / 3.14159265358979323846;
  return p;
}

// A model's prediction with --predict.
struct ModelPredicted {
  SaupeElements saupe{};
  ModelCharge charge;  // with a charged medium
};

// Everything one group of models (one model, or the ensemble) contributes.
struct Group {
  std::vector<int> models;
  int built_hydrogens = 0, unplaced_hydrogens = 0;  // of the first model
  Vec3 centre_sum;                                  // of the models' mean atom positions
  std::vector<SaupeElements> predicted;             // one per model with --predict
  std::vector<ModelCharge> charges;                 // one per model with a charged medium
  // Per set, per coupling: the sum of the design rows over the models.
  std::vector<std::vector<ResolvedCoupling>> sets;
  std::vector<std::vector<bool>> present;  // coupling resolved in every model so far
};

bool names_proton(const std::string& name) {
  return !name.empty() && (name[0] == 'H' || name[0] == 'Q');
}

// The name of the residue an atom of a coupling is in; "" when the model
// has no such residue.
std::string residue_name(const std::vector<Atom>& atoms, const io::CouplingAtom& atom) {
  for (const Atom& a : atoms) {
    if (a.residue_number == atom.residue && (atom.chain.empty() || a.chain == atom.chain)) {
      return a.residue_name;
    }
  }
  return "";
}

// Adds a model's couplings (and its predicted tensor, with --predict) to the
// group; `centre` is the mean position of the atoms read, `placed` the
// hydrogens placed with --add-hydrogens (their atoms already in the model).
void add_model(Group& g, const io::Model& model, const io::CouplingFile& file, const FitSettings& s,
               const std::optional<ModelPredicted>& predicted, const Vec3& centre,
               const AddedHydrogens* placed) {
  if (g.models.empty() && placed != nullptr) {
    g.built_hydrogens = static_cast<int>(placed->added.size());
    g.unplaced_hydrogens = placed->unplaced;
  }
  g.models.push_back(model.number);
  g.centre_sum.x += centre.x;
  g.centre_sum.y += centre.y;
  g.centre_sum.z += centre.z;
  const ModelIndex index(model.atoms);
  if (g.sets.empty()) {
    g.sets.resize(file.sets.size());
    g.present.resize(file.sets.size());
    for (std::size_t k = 0; k < file.sets.size(); ++k) {
      for (const io::MeasuredCoupling& m : file.sets[k].couplings) {
        ResolvedCoupling r;
        r.measured = m;
        r.type = type_of(m);
        r.residue_name1 = residue_name(model.atoms, m.atom1);
        r.residue_name2 = residue_name(model.atoms, m.atom2);
        if (!r.residue_name1.empty() && is_methyl_axis(m, r.residue_name1)) r.type = "methyl";
        r.row.type = r.type;
        r.row.value_hz = m.value_hz;
        // A bound's open side is not an error.
        r.one_sided = is_one_sided(m);
        r.row.error_hz = r.one_sided ? 0.0 : m.error_hz.value_or(0.0);
        g.sets[k].push_back(std::move(r));
      }
      g.present[k].assign(g.sets[k].size(), true);
    }
  }
  for (std::size_t k = 0; k < g.sets.size(); ++k) {
    for (std::size_t i = 0; i < g.sets[k].size(); ++i) {
      ResolvedCoupling& r = g.sets[k][i];
      const std::string where = s.couplings + ":" + std::to_string(r.measured.line);
      DesignRow row{};
      double dmax = 0.0, length = 0.0;
      if (!design_in_model(index, r.measured, s, where, row, dmax, length)) {
        if (!s.coupling_read.lenient) {
          const bool no_protons =
              (names_proton(r.measured.atom1.name) || names_proton(r.measured.atom2.name)) &&
              !has_hydrogens(model.atoms);
          throw InputError(where + ": coupling " + describe(r.measured.atom1) + " - " +
                           describe(r.measured.atom2) + ": atom not found in model " +
                           std::to_string(model.number) + " of " + s.structure +
                           " (--lenient skips such couplings" +
                           (no_protons ? "; the structure has no hydrogens: --add-hydrogens "
                                         "places them"
                                       : "") +
                           ")");
        }
        g.present[k][i] = false;
        continue;
      }
      for (int j = 0; j < 5; ++j) r.row.design[j] += row[j];
      r.row.dmax_hz = dmax;
      r.distance = length;
      // Each model's own row is needed only to compare the models' own
      // predictions; without --predict memory stays flat over the models.
      if (predicted) r.model_rows.push_back(row);
    }
  }
  if (predicted) {
    g.predicted.push_back(predicted->saupe);
    if (is_charged(s.common.medium)) g.charges.push_back(predicted->charge);
  }
}

void finish_group(Group& g, const io::CouplingFile& file, const FitSettings& s, FitResult& result) {
  const double n = static_cast<double>(g.models.size());
  for (std::size_t k = 0; k < g.sets.size(); ++k) {
    SetFit set;
    set.set = file.sets[k].name;
    set.models = g.models;
    set.built_hydrogens = g.built_hydrogens;
    set.unplaced_hydrogens = g.unplaced_hydrogens;
    set.centre = {g.centre_sum.x / n, g.centre_sum.y / n, g.centre_sum.z / n};
    for (std::size_t i = 0; i < g.sets[k].size(); ++i) {
      if (!g.present[k][i]) {
        ++set.unresolved;
        continue;
      }
      ResolvedCoupling r = g.sets[k][i];
      if (!s.types.empty() && std::find(s.types.begin(), s.types.end(), r.type) == s.types.end()) {
        continue;
      }
      if (r.one_sided && s.one_sided == OneSided::skip) {
        ++set.one_sided_skipped;
        continue;
      }
      for (double& x : r.row.design) x /= n;
      set.couplings.push_back(std::move(r));
    }
    fit_set(set, s);
    if (!g.predicted.empty()) {
      set.prediction = compare_prediction(set, g.predicted);
      set.prediction->charges = g.charges;
    }
    result.sets.push_back(std::move(set));
  }
}

}  // namespace

std::optional<double> standard_length(const std::string& a, const std::string& b, bool previous) {
  const auto pair = [&](const char* x, const char* y) {
    return (a == x && b == y) || (a == y && b == x);
  };
  if (previous) {  // a in the residue before b's
    if (a == "C" && b == "N") return 1.329;
    if (a == "C" && b == "H") return 2.04;
    return std::nullopt;
  }
  if (pair("N", "H")) return 1.02;
  if (pair("CA", "C")) return 1.525;
  if (pair("N", "CA")) return 1.458;
  if (pair("CA", "CB")) return 1.53;
  // A heavy atom and a proton bonded to it: the proton's name continues the
  // heavy atom's (CA-HA, CB-HB2, CG2-HG21, NE2-HE21, C5'-H5').
  const auto bonded = [](const std::string& heavy, const std::string& h) {
    return heavy.size() >= 2 && h.size() >= 2 && h[0] == 'H' &&
           h.compare(1, heavy.size() - 1, heavy, 1) == 0;
  };
  for (const auto& [heavy, h] : {std::pair{a, b}, std::pair{b, a}}) {
    if (!bonded(heavy, h)) continue;
    if (heavy[0] == 'C') return 1.09;
    if (heavy[0] == 'N') return 1.02;
  }
  return std::nullopt;
}

std::optional<double> effective_length(const std::string& a, const std::string& b, bool previous) {
  const std::optional<double> standard = standard_length(a, b, previous);
  const bool nh =
      !a.empty() && !b.empty() && ((a[0] == 'N' && b[0] == 'H') || (a[0] == 'H' && b[0] == 'N'));
  if (standard && !previous && nh) return kEffectiveNHLength;
  return standard;
}

bool is_one_sided(const io::MeasuredCoupling& c) {
  if (!c.error_hz || !c.error_plus_hz) return false;
  const double minus = *c.error_hz;
  const double plus = *c.error_plus_hz;
  const double open = std::max(minus, plus);
  return std::min(minus, plus) == 0.0 && open > 0.0 && open >= std::fabs(c.value_hz);
}

const char* bond_lengths_name(BondLengths b) {
  switch (b) {
    case BondLengths::effective:
      return "effective";
    case BondLengths::structure:
      return "structure";
    case BondLengths::standard:
      break;
  }
  return "standard";
}

const char* methylene_name(Methylene m) { return m == Methylene::sum ? "sum" : "mean"; }

const char* one_sided_name(OneSided o) { return o == OneSided::skip ? "skip" : "keep"; }

std::optional<BondLengths> parse_bond_lengths(const std::string& name) {
  for (BondLengths b : {BondLengths::standard, BondLengths::effective, BondLengths::structure})
    if (name == bond_lengths_name(b)) return b;
  return std::nullopt;
}

std::optional<Methylene> parse_methylene(const std::string& name) {
  for (Methylene m : {Methylene::sum, Methylene::mean})
    if (name == methylene_name(m)) return m;
  return std::nullopt;
}

std::optional<OneSided> parse_one_sided(const std::string& name) {
  for (OneSided o : {OneSided::skip, OneSided::keep})
    if (name == one_sided_name(o)) return o;
  return std::nullopt;
}

FitResult run_fit(const FitSettings& s) {
  const io::CouplingFile file = io::read_couplings(s.couplings, s.coupling_read);
  FitResult result;
  result.couplings_format = io::coupling_format_name(file.format);
  result.skipped_lines = file.skipped_lines;

  io::ReadOptions read = s.common.read;
  read.keep_hydrogens = true;  // the couplings name protons
  io::StructureReader reader(s.structure, read, s.common.input_format);
  result.structure_format = reader.format_name();

  const int cores = std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
  const int threads = s.common.threads > 0 ? s.common.threads : cores;
  std::optional<PredictionContext> context;
  ThreadPlan plan{threads, 1};
  PredictSettings common = s.common;
  if (s.predict) {
    context.emplace(s.common.sampling, threads);
    plan = plan_threads(*context, threads);
    read_charges(common);
  }

  // The models stream through the workers (parsed there, and predicted with
  // --predict); their couplings are added in file order on this thread.
  struct Read {
    io::Model model;
    Vec3 centre;                           // of the atoms read
    std::optional<AddedHydrogens> placed;  // with --add-hydrogens (its atoms moved to the model)
    std::optional<ModelPredicted> predicted;
  };
  Group group;
  int models_read = 0;
  stream_in_order<Read>(
      reader, plan.workers,
      [&](io::Model&& model) {
        Read r;
        r.centre = mean_position(model.atoms);
        if (s.common.add_hydrogens) {
          r.placed = add_hydrogens(model.atoms);
          model.atoms = std::move(r.placed->atoms);
          r.placed->atoms.clear();
        }
        if (context) {
          const ModelSaupe p =
              predict_model_saupe(steric_atoms(model.atoms, common), model.atoms, common, *context,
                                  plan.per_prediction, model.number, s.structure);
          r.predicted = ModelPredicted{p.saupe, {model.number, p.net_charge, p.charged_groups}};
        }
        r.model = std::move(model);
        return r;
      },
      [&](Read& r) {
        ++models_read;
        if (s.mode == FitMode::single && models_read > 1) {
          if (!s.common.read.models.empty()) {
            throw InputError(s.structure +
                             ": several models selected; fit them with --per-model or --ensemble");
          }
          return false;  // one model: the first
        }
        add_model(group, r.model, file, s, r.predicted, r.centre, r.placed ? &*r.placed : nullptr);
        if (s.mode == FitMode::per_model) {
          finish_group(group, file, s, result);
          group = Group{};
        }
        return true;
      });
  if (!group.models.empty()) finish_group(group, file, s, result);
  return result;
}

}  // namespace vorn::app
