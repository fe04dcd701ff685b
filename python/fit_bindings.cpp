// The tensor fit of the Python module: vorn.fit and its FitResult, over the
// command's own code path (app::run_fit), so that both give the same numbers.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "app/fit_command.hpp"
#include "arguments.hpp"
#include "vorn/electrostatics.hpp"
#include "vorn/fit.hpp"
#include "vorn/tensor.hpp"

namespace py = pybind11;
using namespace pybind11::literals;

namespace vorn::python {

namespace {

// ---------------------------------------------------------------------------
// Fit

// One fitted set, converted to Python objects once.
struct FitResult {
  std::string set;
  std::vector<int> models;
  int n = 0;
  int unresolved = 0;
  int built_hydrogens = 0;
  int unplaced_hydrogens = 0;
  int one_sided_skipped = 0;
  AlignmentTensor tensor;
  double condition_number = 0.0;
  bool ill_conditioned = false;
  bool weighted = false;
  py::dict quality;
  py::object errors = py::none();
  py::list sign_check;
  std::vector<std::string> signs_inverted;
  py::list outliers;
  py::dict couplings;
  py::object prediction = py::none();
  std::string structure_format;
  std::string couplings_format;
  int skipped_lines = 0;
};

py::dict quality_dict(const vorn::Quality& q) {
  return py::dict("n"_a = q.n, "q"_a = q.q, "q_da"_a = q.q_da, "rmsd_hz"_a = q.rmsd_hz,
                  "r"_a = q.r);
}

const char* method_name(vorn::ErrorMethod m) {
  return m == vorn::ErrorMethod::monte_carlo ? "montecarlo" : "bootstrap";
}

FitResult convert_set(const vorn::app::SetFit& s, const vorn::app::FitResult& all,
                      const vorn::app::FitSettings& settings) {
  FitResult r;
  r.set = s.set;
  r.models = s.models;
  r.n = static_cast<int>(s.couplings.size());
  r.unresolved = s.unresolved;
  r.built_hydrogens = s.built_hydrogens;
  r.unplaced_hydrogens = s.unplaced_hydrogens;
  r.one_sided_skipped = s.one_sided_skipped;
  r.tensor = s.fit.tensor;
  r.condition_number = s.fit.condition_number;
  r.ill_conditioned = s.fit.ill_conditioned;
  r.weighted = s.fit.weighted;
  r.structure_format = all.structure_format;
  r.couplings_format = all.couplings_format;
  r.skipped_lines = all.skipped_lines;

  r.quality = quality_dict(s.quality.overall);
  py::dict per_type;
  for (const auto& [type, q] : s.quality.per_type) per_type[py::str(type)] = quality_dict(q);
  r.quality["per_type"] = per_type;

  if (s.errors) {
    const vorn::ErrorEstimate& e = *s.errors;
    r.errors = py::dict("method"_a = method_name(e.method), "samples"_a = e.samples,
                        "seed"_a = settings.seed, "da_hz_sd"_a = e.da_hz_sd,
                        "rhombicity_sd"_a = e.rhombicity_sd,
                        "euler_deg_sd"_a = matrix_array(e.euler_deg_sd),
                        "calculated_sd_hz"_a = vector_array(e.calculated_sd_hz));
  }
  for (const vorn::SignCheck& c : s.sign_check) {
    r.sign_check.append(py::dict("type"_a = c.type, "n"_a = c.n, "q_as_given"_a = c.q_as_given,
                                 "q_inverted"_a = c.q_inverted, "q_best"_a = c.q_best,
                                 "inverted"_a = c.inverted_fits_better));
  }
  r.signs_inverted = s.inverted_types;
  for (const vorn::app::ResolvedCoupling& c : s.outliers) {
    const vorn::io::MeasuredCoupling& m = c.measured;
    r.outliers.append(py::dict("chain1"_a = m.atom1.chain, "residue1"_a = m.atom1.residue,
                               "atom1"_a = m.atom1.name, "chain2"_a = m.atom2.chain,
                               "residue2"_a = m.atom2.residue, "atom2"_a = m.atom2.name,
                               "type"_a = c.type, "measured_hz"_a = m.value_hz, "line"_a = m.line));
  }

  // The couplings as columns: one list or array per field, all of length n.
  py::list chain1, atom1, chain2, atom2, type;
  std::vector<long> residue1, residue2, line;
  std::vector<double> measured, error, calculated, residual, dmax, distance;
  for (std::size_t i = 0; i < s.couplings.size(); ++i) {
    const vorn::app::ResolvedCoupling& c = s.couplings[i];
    const vorn::io::MeasuredCoupling& m = c.measured;
    chain1.append(m.atom1.chain);
    residue1.push_back(m.atom1.residue);
    atom1.append(m.atom1.name);
    chain2.append(m.atom2.chain);
    residue2.push_back(m.atom2.residue);
    atom2.append(m.atom2.name);
    type.append(c.type);
    measured.push_back(c.row.value_hz);
    error.push_back(error_or_nan(m.error_hz));
    calculated.push_back(s.fit.calculated_hz[i]);
    residual.push_back(c.row.value_hz - s.fit.calculated_hz[i]);
    dmax.push_back(c.row.dmax_hz);
    distance.push_back(c.distance);
    line.push_back(m.line);
  }
  py::dict& d = r.couplings;
  d["chain1"] = chain1;
  d["residue1"] = py::array(py::cast(residue1));
  d["atom1"] = atom1;
  d["chain2"] = chain2;
  d["residue2"] = py::array(py::cast(residue2));
  d["atom2"] = atom2;
  d["type"] = type;
  d["measured_hz"] = vector_array(measured);
  d["error_hz"] = vector_array(error);
  d["calculated_hz"] = vector_array(calculated);
  d["residual_hz"] = vector_array(residual);
  d["dmax_hz"] = vector_array(dmax);
  d["distance"] = vector_array(distance);
  d["line"] = py::array(py::cast(line));
  if (s.errors) d["calculated_sd_hz"] = vector_array(s.errors->calculated_sd_hz);
  if (s.prediction) d["predicted_hz"] = vector_array(s.prediction->predicted_hz);

  if (s.prediction) {
    const vorn::app::PredictionComparison& p = *s.prediction;
    py::dict prediction("tensor"_a = py::cast(p.tensor), "r"_a = p.r, "q"_a = p.q,
                        "slope"_a = p.slope, "axis_angle_deg"_a = p.axis_angle_deg,
                        "predicted_hz"_a = vector_array(p.predicted_hz));
    if (!p.charges.empty()) {
      py::list charges;
      for (const vorn::app::ModelCharge& c : p.charges) {
        charges.append(py::dict("model"_a = c.model, "net_charge"_a = c.net_charge,
                                "charged_groups"_a = c.charged_groups));
      }
      prediction["charges"] = charges;
    }
    r.prediction = prediction;
  }
  return r;
}

std::vector<std::string> parse_types(const py::object& types) {
  std::vector<std::string> list;
  if (types.is_none()) return list;
  if (py::isinstance<py::str>(types)) {
    const std::string text = types.cast<std::string>();
    std::size_t begin = 0;
    while (true) {
      const std::size_t comma = text.find(',', begin);
      const std::string item = text.substr(begin, comma - begin);
      if (!item.empty()) list.push_back(item);
      if (comma == std::string::npos) break;
      begin = comma + 1;
    }
    return list;
  }
  for (const py::handle item : types) {
    if (!py::isinstance<py::str>(item))
      throw py::type_error("types: expected coupling type names (str)");
    list.push_back(item.cast<std::string>());
  }
  return list;
}

std::vector<FitResult> fit(
    const py::object& structure_path, const py::object& couplings_path,
    const std::optional<std::string>& errors, int samples, const py::int_& seed,
    const std::optional<std::string>& set, const std::string& mode, const py::object& types,
    bool fix_sign, bool drop_outliers, bool unweighted, bool predict, const py::object& models,
    const std::optional<std::string>& couplings_format, bool lenient,
    const std::string& bond_lengths, const std::string& methylene, const std::string& one_sided,
    const std::string& select, const std::optional<std::string>& exclude, bool keep_hydrogens,
    const py::object& chains, const std::optional<std::string>& altloc, bool hetatm,
    const std::optional<std::string>& format, const std::string& medium, double concentration,
    double molar_ratio, const std::optional<double>& obstacle_dimension,
    const std::optional<double>& atom_radius, double grid_spacing, double order_parameter,
    const py::object& sampling, const std::optional<int>& threads,
    const std::optional<double>& charge_density, double ionic_strength, double ph,
    double temperature, const std::optional<std::string>& potential,
    const std::optional<double>& obstacle_radius, const py::object& charges, bool add_hydrogens,
    const py::object& trajectory, const std::optional<std::string>& frames) {
  vorn::app::FitSettings s;
  s.structure = path_text(structure_path);
  s.couplings = path_text(couplings_path);
  s.coupling_read = coupling_options(couplings_format, set, lenient);
  if (mode == "single") {
    s.mode = vorn::app::FitMode::single;
  } else if (mode == "per-model" || mode == "per_model") {
    s.mode = vorn::app::FitMode::per_model;
  } else if (mode == "ensemble") {
    s.mode = vorn::app::FitMode::ensemble;
  } else {
    throw py::value_error("mode must be 'single', 'per-model' or 'ensemble' (got '" + mode + "')");
  }
  s.weighted = !unweighted;
  const auto lengths = vorn::app::parse_bond_lengths(bond_lengths);
  if (!lengths) {
    throw py::value_error("bond_lengths must be 'standard', 'effective' or 'structure' (got '" +
                          bond_lengths + "')");
  }
  s.bond_lengths = *lengths;
  const auto pairs = vorn::app::parse_methylene(methylene);
  if (!pairs) throw py::value_error("methylene must be 'sum' or 'mean' (got '" + methylene + "')");
  s.methylene = *pairs;
  const auto bounds = vorn::app::parse_one_sided(one_sided);
  if (!bounds) {
    throw py::value_error("one_sided must be 'skip' or 'keep' (got '" + one_sided + "')");
  }
  s.one_sided = *bounds;
  s.types = parse_types(types);
  s.fix_sign = fix_sign;
  s.drop_outliers = drop_outliers;
  if (errors && *errors == "montecarlo") {
    s.errors = vorn::ErrorMethod::monte_carlo;
  } else if (errors && *errors == "bootstrap") {
    s.errors = vorn::ErrorMethod::bootstrap;
  } else if (errors && *errors != "none") {
    throw py::value_error("errors must be None, 'montecarlo' or 'bootstrap' (got '" + *errors +
                          "')");
  }
  if (samples < 2) throw py::value_error("samples must be at least 2");
  s.samples = samples;
  if (seed < py::int_(0)) throw py::value_error("seed must not be negative");
  s.seed = seed.cast<std::uint64_t>();
  s.predict = predict;

  vorn::app::PredictSettings& common = s.common;
  const MediumArguments medium_arguments{medium,      charge_density, ionic_strength,  ph,
                                         temperature, potential,      obstacle_radius, charges};
  common = predict_settings(medium_arguments, concentration, molar_ratio, obstacle_dimension,
                            atom_radius, grid_spacing, order_parameter, sampling, threads);
  common.read = read_options(models, exclude, keep_hydrogens, chains, altloc, hetatm);
  read_trajectory(trajectory, frames, common.read);
  common.input_format = parse_input_format(format);
  common.selection = parse_selection(select);
  common.add_hydrogens = add_hydrogens;

  require_readable(s.couplings);
  require_readable(s.structure);
  vorn::app::FitResult result;
  {
    py::gil_scoped_release release;
    result = vorn::app::run_fit(s);
  }
  std::vector<FitResult> sets;
  for (const vorn::app::SetFit& set_fit : result.sets)
    sets.push_back(convert_set(set_fit, result, s));
  return sets;
}

}  // namespace

void bind_fit(py::module_& m) {
  const ObstacleCharge charge_defaults;
  py::class_<FitResult>(
      m, "FitResult",
      R"doc(The fit of one coupling set (one per model with mode='per-model'), with the
fields of `vorn fit --format json`.
)doc")
      .def_readonly("set", &FitResult::set, "Name of the coupling set ('' for single-set files).")
      .def_readonly("models", &FitResult::models, "Model numbers the fit rests on.")
      .def_readonly("n", &FitResult::n, "Number of couplings fitted.")
      .def_readonly("unresolved", &FitResult::unresolved,
                    "Couplings whose atoms were not found, skipped with lenient=True.")
      .def_readonly("built_hydrogens", &FitResult::built_hydrogens,
                    "Hydrogens placed from the heavy atoms with add_hydrogens=True (in the first "
                    "of the models).")
      .def_readonly("unplaced_hydrogens", &FitResult::unplaced_hydrogens,
                    "Missing hydrogens that add_hydrogens=True could not place (heavy atoms "
                    "missing).")
      .def_readonly("one_sided_skipped", &FitResult::one_sided_skipped,
                    "Restraints bounded on one side only, left out with one_sided='skip'.")
      .def_readonly("tensor", &FitResult::tensor, "The fitted Tensor.")
      .def_readonly("condition_number", &FitResult::condition_number,
                    "Condition number of the scaled design matrix.")
      .def_readonly("ill_conditioned", &FitResult::ill_conditioned,
                    "True when the condition number exceeds 100: the bond orientations do not "
                    "cover the sphere well enough.")
      .def_readonly("weighted", &FitResult::weighted,
                    "Whether the rows were weighted by their errors.")
      .def_readonly("quality", &FitResult::quality,
                    "dict: n, q, q_da, rmsd_hz, r over all couplings (N-H scale) and per_type, "
                    "a dict of the same per coupling type.")
      .def_readonly("errors", &FitResult::errors,
                    "None, or with errors='montecarlo'/'bootstrap' a dict: method, samples, seed, "
                    "da_hz_sd, rhombicity_sd, euler_deg_sd (4 x 3 array) and calculated_sd_hz.")
      .def_readonly("sign_check", &FitResult::sign_check,
                    "One dict per coupling type: type, n, q_as_given, q_inverted, q_best, "
                    "inverted.")
      .def_readonly("signs_inverted", &FitResult::signs_inverted,
                    "Coupling types inverted before the fit (fix_sign=True).")
      .def_readonly("outliers", &FitResult::outliers,
                    "Couplings with a residual above 3 sigma (dicts with chain1, residue1, atom1, "
                    "chain2, residue2, atom2, type, measured_hz, line).")
      .def_readonly("couplings", &FitResult::couplings,
                    "The fitted couplings as columns (dict of lists and arrays of equal length): "
                    "chain1, residue1, atom1, chain2, residue2, atom2, type, measured_hz, "
                    "error_hz (NaN where absent), calculated_hz, residual_hz, dmax_hz, distance, "
                    "line; calculated_sd_hz with errors, predicted_hz with predict=True.")
      .def_property_readonly(
          "measured", [](const FitResult& r) { return r.couplings["measured_hz"]; },
          "Measured couplings, Hz (the column couplings['measured_hz']).")
      .def_property_readonly(
          "calculated", [](const FitResult& r) { return r.couplings["calculated_hz"]; },
          "Back-calculated couplings of the fitted tensor, Hz (couplings['calculated_hz']).")
      .def_readonly("prediction", &FitResult::prediction,
                    "None, or with predict=True a dict: tensor (the prediction, averaged over the "
                    "models), r, q, slope, axis_angle_deg and predicted_hz; in a charged medium "
                    "also charges, one dict per model: model, net_charge, charged_groups.")
      .def_readonly("structure_format", &FitResult::structure_format, "'PDB' or 'mmCIF'.")
      .def_readonly("couplings_format", &FitResult::couplings_format,
                    "'classic', 'xplor', 'table', 'nef', 'nmrstar' or 'pipe'.")
      .def_readonly("skipped_lines", &FitResult::skipped_lines,
                    "Bad lines of the coupling file skipped with lenient=True.")
      .def("__repr__", [](const FitResult& r) {
        return "<vorn.FitResult set '" + r.set + "': " + std::to_string(r.n) +
               " couplings, Da(NH) = " + fixed(r.tensor.da_hz, 3) +
               " Hz, R = " + fixed(r.tensor.rhombicity, 4) +
               ", Q = " + fixed(r.quality["q"].cast<double>(), 4) + ">";
      });

  m.def("fit", &fit, "structure"_a, "couplings"_a, py::kw_only(), "errors"_a = py::none(),
        "samples"_a = 1000, "seed"_a = 0, "set"_a = py::none(), "mode"_a = "single",
        "types"_a = py::none(), "fix_sign"_a = false, "drop_outliers"_a = false,
        "unweighted"_a = false, "predict"_a = false, "models"_a = py::none(),
        "couplings_format"_a = py::none(), "lenient"_a = false, "bond_lengths"_a = "standard",
        "methylene"_a = "sum", "one_sided"_a = "skip", "select"_a = "surface",
        "exclude"_a = py::none(), "keep_hydrogens"_a = false, "chains"_a = py::none(),
        "altloc"_a = py::none(), "hetatm"_a = false, "format"_a = py::none(),
        "medium"_a = "bicelle", "concentration"_a = 0.05, "molar_ratio"_a = 3.0,
        "obstacle_dimension"_a = py::none(), "atom_radius"_a = py::none(), "grid_spacing"_a = 0.5,
        "order_parameter"_a = 0.8, "sampling"_a = py::make_tuple(9, 18, 18),
        "threads"_a = py::none(), "charge_density"_a = py::none(),
        "ionic_strength"_a = charge_defaults.ionic_strength,
        "ph"_a = vorn::app::PredictSettings{}.ph, "temperature"_a = charge_defaults.temperature,
        "potential"_a = py::none(), "obstacle_radius"_a = py::none(), "charges"_a = py::none(),
        "add_hydrogens"_a = false, "trajectory"_a = py::none(), "frames"_a = py::none(),
        R"doc(Fit the alignment tensor to measured couplings, as `vorn fit` does (the same
code path), and return one FitResult per coupling set (per model and set
with mode="per-model").

structure, couplings  file names (str or os.PathLike)
trajectory, frames    a DCD, XTC or TRR file whose frames are the models of
                the topology `structure` (`vorn fit TOPOLOGY TRAJECTORY
                COUPLINGS`), and "first:last[:step]" of its frames
errors          None, "montecarlo" or "bootstrap": error bars from `samples`
                perturbed data sets, deterministic for a `seed`
set             fit only this set (X-PLOR tensor residue)
mode            "single" (first model), "per-model" or "ensemble" (one
                tensor, couplings averaged over the models)
types           fit only these coupling types, e.g. ["N-H", "CA-C"]
fix_sign        invert the types whose sign looks inverted, then fit
drop_outliers   refit without the couplings beyond 3 sigma
unweighted      do not weight by the errors
predict         add the steric prediction (medium ... threads, select)
models ... format         reading of the structure, as in read_structure
add_hydrogens   place every missing hydrogen of the standard residues from
                the heavy atoms before the couplings are resolved (`vorn fit
                --add-hydrogens`): couplings of protons of an X-ray structure
couplings_format, lenient reading of the couplings, as in read_couplings
bond_lengths    "standard", "effective" (N-H 1.041 A) or "structure"
methylene       "sum" or "mean" of the two couplings of a two-proton
                pseudo-atom (CB-HB#)
one_sided       "skip" or "keep" the X-PLOR restraints bounded on one side
                only (error columns 0 100 or 100 0)
medium ... charges        the model of predict=True, as in predict

Raises FileNotFoundError/OSError for a missing file, ValueError for bad
input (with FILE:LINE where a line is at fault).
)doc");
}

}  // namespace vorn::python
