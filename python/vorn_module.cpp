// The compiled part of the Python package `vorn`: structure and coupling
// reading, steric prediction, back-calculated couplings and the tensor fit,
// over the same shared readers (src/io) and commands (src/app) as the
// command line, so that both give the same numbers for the same input.
//
// Every long computation runs with the GIL released; inputs are copied into
// C++ containers before and results converted to Python objects after.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "app/fit_command.hpp"
#include "app/predict_command.hpp"
#include "io/coupling_reader.hpp"
#include "io/structure_reader.hpp"
#include "structure.hpp"
#include "vorn/couplings.hpp"
#include "vorn/error.hpp"
#include "vorn/fit.hpp"
#include "vorn/predict.hpp"
#include "vorn/structure.hpp"
#include "vorn/tensor.hpp"

namespace py = pybind11;
using namespace pybind11::literals;

namespace {

using vorn::AlignmentTensor;
using vorn::Atom;
using vorn::Vec3;
using vorn::app::Selection;

// ---------------------------------------------------------------------------
// Conversions to NumPy

py::array_t<double> points_array(std::span<const Vec3> points) {
  py::array_t<double> a({static_cast<py::ssize_t>(points.size()), py::ssize_t{3}});
  auto r = a.mutable_unchecked<2>();
  for (std::size_t i = 0; i < points.size(); ++i) {
    const auto k = static_cast<py::ssize_t>(i);
    r(k, 0) = points[i].x;
    r(k, 1) = points[i].y;
    r(k, 2) = points[i].z;
  }
  return a;
}

py::array_t<double> vector_array(std::span<const double> values) {
  py::array_t<double> a(static_cast<py::ssize_t>(values.size()));
  auto r = a.mutable_unchecked<1>();
  for (std::size_t i = 0; i < values.size(); ++i) r(static_cast<py::ssize_t>(i)) = values[i];
  return a;
}

template <std::size_t R, std::size_t C>
py::array_t<double> matrix_array(const std::array<std::array<double, C>, R>& m) {
  py::array_t<double> a({static_cast<py::ssize_t>(R), static_cast<py::ssize_t>(C)});
  auto r = a.mutable_unchecked<2>();
  for (std::size_t i = 0; i < R; ++i)
    for (std::size_t j = 0; j < C; ++j)
      r(static_cast<py::ssize_t>(i), static_cast<py::ssize_t>(j)) = m[i][j];
  return a;
}

std::string icode_text(char icode) {
  return icode == ' ' || icode == '\0' ? std::string() : std::string(1, icode);
}

// ---------------------------------------------------------------------------
// Files

// A path given as str, bytes or os.PathLike.
std::string path_text(const py::object& path) {
  const py::object p = py::module_::import("os").attr("fspath")(path);
  return p.cast<std::string>();
}

[[noreturn]] void raise_os_error(int code, const std::string& path) {
  errno = code;
  // OSError picks its subclass from the code: FileNotFoundError,
  // PermissionError, IsADirectoryError.
  PyErr_SetFromErrnoWithFilename(PyExc_OSError, path.c_str());
  throw py::error_already_set();
}

// Raises the OSError of a file that does not exist or cannot be read, before
// the readers turn the same problem into an input error.
void require_readable(const std::string& path) {
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec)) raise_os_error(EISDIR, path);
  errno = 0;
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) raise_os_error(errno != 0 ? errno : EIO, path);
  std::fclose(f);
}

// ---------------------------------------------------------------------------
// Options given as Python values

Selection parse_selection(const std::string& text) {
  if (const auto s = vorn::app::parse_selection(text)) return *s;
  throw py::value_error("select must be 'surface', 'heavy' or 'all' (got '" + text + "')");
}

// The medium and the charged obstacle as keyword arguments (None where
// the argument's default is the preset's or the model's own).
struct MediumArguments {
  std::string medium = "bicelle";
  std::optional<double> charge_density;
  double ionic_strength = vorn::ObstacleCharge{}.ionic_strength;
  double ph = vorn::app::PredictSettings{}.ph;
  double temperature = vorn::ObstacleCharge{}.temperature;
  std::optional<std::string> potential;
  std::optional<double> obstacle_radius;
  py::object charges = py::none();  // a PQR file
};

// Applies the medium arguments to the settings with the checks of the
// command line; raises ValueError naming the argument.
void apply_medium(vorn::app::PredictSettings& s, const MediumArguments& a) {
  vorn::app::MediumOptions o;
  o.medium = a.medium;
  o.charge_density = a.charge_density;
  o.ionic_strength = a.ionic_strength;
  o.ph = a.ph;
  o.temperature = a.temperature;
  if (a.potential) {
    o.potential = vorn::app::parse_potential(*a.potential);
    if (!o.potential) {
      throw py::value_error("potential must be 'linear' or 'nonlinear' (got '" + *a.potential +
                            "')");
    }
  }
  o.obstacle_radius = a.obstacle_radius;
  if (!a.charges.is_none()) o.charges_file = path_text(a.charges);
  try {
    vorn::app::apply_medium_options(s, o, [](const std::string& name) { return name; });
  } catch (const vorn::app::OptionError& e) {
    throw py::value_error(e.option() + ": " + e.what());
  }
  if (s.charges_file.empty()) return;
  if (!vorn::app::is_charged(s.medium)) {
    if (PyErr_WarnEx(PyExc_UserWarning,
                     "the molecule's charges have no effect with an uncharged obstacle (use "
                     "medium='pf1' or charge_density)",
                     1) != 0) {
      throw py::error_already_set();
    }
    return;
  }
  require_readable(s.charges_file);
}

// None, one model number, a list such as "1,3-5", or an iterable of numbers.
std::vector<int> parse_models(const py::object& models) {
  if (models.is_none()) return {};
  if (py::isinstance<py::str>(models))
    return vorn::io::parse_model_list(models.cast<std::string>());
  std::vector<int> numbers;
  if (py::isinstance<py::int_>(models)) {
    numbers.push_back(models.cast<int>());
  } else if (py::isinstance<py::iterable>(models)) {
    for (const py::handle item : models) {
      if (!py::isinstance<py::int_>(item)) {
        throw py::type_error("models: expected model numbers (int), got " +
                             std::string(py::str(py::type::of(item).attr("__name__"))));
      }
      numbers.push_back(item.cast<int>());
    }
  } else {
    throw py::type_error("models: expected None, an int, a list of ints or a text such as '1,3-5'");
  }
  std::set<int> seen;
  for (const int n : numbers) {
    if (n < 1)
      throw py::value_error("models: model numbers start at 1 (got " + std::to_string(n) + ")");
    if (!seen.insert(n).second) {
      throw py::value_error("models: model " + std::to_string(n) + " is listed twice");
    }
  }
  return {seen.begin(), seen.end()};
}

// None, "A,B" or an iterable of chain names.
std::string parse_chains(const py::object& chains) {
  if (chains.is_none()) return {};
  if (py::isinstance<py::str>(chains)) return chains.cast<std::string>();
  std::string list;
  for (const py::handle item : chains) {
    if (!py::isinstance<py::str>(item)) throw py::type_error("chains: expected chain names (str)");
    list += (list.empty() ? "" : ",") + item.cast<std::string>();
  }
  return list;
}

std::optional<vorn::io::Format> parse_input_format(const std::optional<std::string>& format) {
  if (!format) return std::nullopt;
  const auto f = vorn::io::parse_format(*format);
  if (!f) throw py::value_error("format must be 'pdb' or 'cif' (got '" + *format + "')");
  return f;
}

vorn::io::ReadOptions read_options(const py::object& models,
                                   const std::optional<std::string>& exclude, bool keep_hydrogens,
                                   const py::object& chains,
                                   const std::optional<std::string>& altloc, bool hetatm) {
  vorn::io::ReadOptions read;
  read.models = parse_models(models);
  if (exclude) read.exclude = *exclude;
  read.keep_hydrogens = keep_hydrogens;
  read.chains = parse_chains(chains);
  if (altloc) {
    if (altloc->size() != 1) {
      throw py::value_error("altloc expects one character (got '" + *altloc + "')");
    }
    read.altloc = (*altloc)[0];
  }
  read.hetatm = hetatm;
  return read;
}

vorn::Sampling parse_sampling(const py::object& sampling) {
  const char* expected = "sampling expects three whole numbers (theta, phi, psi), e.g. (9, 18, 18)";
  if (!py::isinstance<py::sequence>(sampling) || py::isinstance<py::str>(sampling) ||
      py::len(sampling) != 3) {
    throw py::value_error(expected);
  }
  int counts[3];
  for (int k = 0; k < 3; ++k) {
    const py::object item = sampling[py::int_(k)];
    if (!py::isinstance<py::int_>(item)) throw py::value_error(expected);
    counts[k] = item.cast<int>();
  }
  return {counts[0], counts[1], counts[2]};
}

int parse_threads(const std::optional<int>& threads) {
  if (!threads) return 0;
  if (*threads < 1 || *threads > 1024) {
    throw py::value_error("threads must be 1 to 1024 (or None for all cores)");
  }
  return *threads;
}

// The medium of the Python arguments, before the atom radius rule.
vorn::app::PredictSettings predict_settings(const MediumArguments& medium, double concentration,
                                            double molar_ratio,
                                            const std::optional<double>& obstacle_dimension,
                                            const std::optional<double>& atom_radius,
                                            double grid_spacing, double order_parameter,
                                            const py::object& sampling,
                                            const std::optional<int>& threads) {
  vorn::app::PredictSettings s;
  s.medium.concentration = concentration;
  s.medium.molar_ratio = molar_ratio;
  s.medium.obstacle_dimension = obstacle_dimension;
  apply_medium(s, medium);
  if (atom_radius) {
    s.atom_radius_given = true;
    s.medium.atom_radius = *atom_radius;
  }
  s.medium.grid_spacing = grid_spacing;
  s.medium.order_parameter = order_parameter;
  s.sampling = parse_sampling(sampling);
  s.threads = parse_threads(threads);
  return s;
}

// ---------------------------------------------------------------------------
// Structures

using vorn::python::selection_settings;
using vorn::python::Structure;
using vorn::python::StructurePtr;

// A trajectory (and its frames) whose frames are the models of the topology
// read, as `vorn predict TOPOLOGY TRAJECTORY --frames ...`.
void read_trajectory(const py::object& trajectory, const std::optional<std::string>& frames,
                     vorn::io::ReadOptions& read) {
  if (!trajectory.is_none()) {
    read.trajectory = path_text(trajectory);
    require_readable(read.trajectory);
  }
  if (frames) {
    if (read.trajectory.empty()) throw py::value_error("frames needs a trajectory");
    vorn::io::parse_frame_range(*frames, read);
  }
}

std::vector<StructurePtr> read_structure(
    const py::object& path_object, const py::object& models, const std::string& select,
    const std::optional<std::string>& exclude, bool keep_hydrogens, const py::object& chains,
    const std::optional<std::string>& altloc, bool hetatm, const std::optional<std::string>& format,
    const py::object& trajectory, const std::optional<std::string>& frames) {
  const std::string path = path_text(path_object);
  const Selection selection = parse_selection(select);
  // Hydrogens are always read, as `vorn predict` reads them: the couplings
  // need them; keep_hydrogens decides whether they enter the steric model.
  vorn::io::ReadOptions read = read_options(models, exclude, true, chains, altloc, hetatm);
  const std::optional<vorn::io::Format> input_format = parse_input_format(format);
  require_readable(path);
  read_trajectory(trajectory, frames, read);
  const vorn::app::PredictSettings settings = selection_settings(selection, keep_hydrogens);

  std::vector<StructurePtr> result;
  {
    py::gil_scoped_release release;
    vorn::io::StructureReader reader(path, read, input_format);
    vorn::io::Model model;
    while (reader.next(model)) {
      auto s = std::make_shared<Structure>();
      s->file = path;
      s->format = reader.format_name();
      s->model = model.number;
      s->selection = selection;
      s->keep_hydrogens = keep_hydrogens;
      s->steric = vorn::app::steric_atoms(model.atoms, settings);
      s->atoms = std::move(model.atoms);
      result.push_back(std::move(s));
    }
  }
  if (result.empty()) throw vorn::io::InputError(path + ": no model selected");
  return result;
}

template <typename Field>
py::list atom_strings(const Structure& s, Field field) {
  py::list list;
  for (const Atom& a : s.atoms) list.append(py::str(field(a)));
  return list;
}

std::vector<Vec3> atom_positions(const Structure& s) { return vorn::positions(s.atoms); }

// The backbone couplings of a structure with a tensor, as `vorn predict`
// computes them (hydrogens placed as there).
py::list predict_couplings(const Structure& s, const AlignmentTensor& tensor, bool add_hydrogens) {
  std::vector<vorn::app::PredictedCoupling> couplings;
  {
    py::gil_scoped_release release;
    couplings = vorn::app::backbone_couplings(
                    s.atoms, vorn::app::placed_hydrogens(s.atoms, add_hydrogens), tensor.saupe)
                    .couplings;
  }
  py::list list;
  for (const vorn::app::PredictedCoupling& c : couplings) {
    const vorn::CouplingSite& site = c.site;
    list.append(py::dict("chain"_a = site.chain, "residue"_a = site.residue_number,
                         "icode"_a = icode_text(site.insertion_code),
                         "resname"_a = site.residue_name, "type"_a = site.type,
                         "atom1"_a = site.atom1, "atom2"_a = site.atom2,
                         "predicted_hz"_a = c.predicted_hz, "dmax_hz"_a = c.dmax_hz,
                         "built_hydrogen"_a = site.built_hydrogen));
  }
  return list;
}

// ---------------------------------------------------------------------------
// Prediction

std::string type_name(const py::handle& object) {
  return py::str(py::type::of(object).attr("__name__"));
}

std::string shape_text(const py::array& a) {
  std::string text = "(";
  for (py::ssize_t k = 0; k < a.ndim(); ++k) {
    text += (k > 0 ? ", " : "") + std::to_string(a.shape(k));
  }
  return text + (a.ndim() == 1 ? ",)" : ")");
}

// Coordinates of a float64 array of shape (n, 3) or (m, n, 3) in C order
// (any strides accepted: a copy is made where needed).
std::vector<Vec3> array_points(const py::array& array, const std::string& what) {
  if (!array.dtype().is(py::dtype::of<double>())) {
    throw py::type_error(what + ": expected a float64 array, got dtype " +
                         std::string(py::str(array.dtype())) +
                         " (convert with numpy.asarray(x, dtype=numpy.float64))");
  }
  const auto c = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(array);
  if (!c) throw py::error_already_set();
  const double* data = c.data();
  const auto n = static_cast<std::size_t>(c.size() / 3);
  std::vector<Vec3> points(n);
  for (std::size_t i = 0; i < n; ++i) points[i] = {data[3 * i], data[3 * i + 1], data[3 * i + 2]};
  return points;
}

// One structure to predict.
struct Job {
  StructurePtr structure;                    // keeps the atoms alive without the GIL
  std::vector<Vec3> points;                  // coordinates given as an array
  std::optional<Selection> reselect;         // a selection other than the structure's own
  Selection selection = Selection::surface;  // for the atom radius rule
  std::string label;                         // prefix of error messages for lists
};

const char* kExpectedInput =
    "expected a Structure, a list of Structures or a float64 NumPy array of shape (n_atoms, 3) "
    "or (n_models, n_atoms, 3)";

Job array_job(const py::array& array, const std::string& what) {
  if (array.ndim() != 2 || array.shape(1) != 3) {
    throw py::value_error(what + ": expected a float64 array of shape (n_atoms, 3), got shape " +
                          shape_text(array));
  }
  Job job;
  job.points = array_points(array, what);
  return job;
}

Job structure_job(const StructurePtr& s, const std::optional<std::string>& select) {
  Job job;
  job.structure = s;
  job.selection = select ? parse_selection(*select) : s->selection;
  if (job.selection != s->selection) job.reselect = job.selection;
  return job;
}

// A tensor predicted in a charged medium, with the molecule's charge.
struct ChargedTensor : AlignmentTensor {
  double net_charge = 0.0;
  int charged_groups = 0;
};

py::object predict(const py::object& input, const std::string& medium, double concentration,
                   double molar_ratio, const std::optional<double>& obstacle_dimension,
                   const std::optional<double>& atom_radius, double grid_spacing,
                   double order_parameter, const py::object& sampling,
                   const std::optional<std::string>& select, const std::optional<int>& threads,
                   const std::optional<double>& charge_density, double ionic_strength, double ph,
                   double temperature, const std::optional<std::string>& potential,
                   const std::optional<double>& obstacle_radius, const py::object& charges,
                   bool add_hydrogens) {
  const MediumArguments medium_arguments{medium,      charge_density, ionic_strength,  ph,
                                         temperature, potential,      obstacle_radius, charges};
  vorn::app::PredictSettings settings =
      predict_settings(medium_arguments, concentration, molar_ratio, obstacle_dimension,
                       atom_radius, grid_spacing, order_parameter, sampling, threads);
  settings.add_hydrogens = add_hydrogens;
  const bool charged = vorn::app::is_charged(settings.medium);
  const Selection array_selection = select ? parse_selection(*select) : Selection::surface;

  std::vector<Job> jobs;
  bool several = true;
  if (py::isinstance<Structure>(input)) {
    jobs.push_back(structure_job(input.cast<StructurePtr>(), select));
    several = false;
  } else if (py::isinstance<py::array>(input)) {
    const auto array = py::reinterpret_borrow<py::array>(input);
    if (array.ndim() == 2) {
      jobs.push_back(array_job(array, "coordinates"));
      several = false;
    } else if (array.ndim() == 3 && array.shape(2) == 3) {
      const std::vector<Vec3> all = array_points(array, "coordinates");
      const auto per_model = static_cast<std::size_t>(array.shape(1));
      for (py::ssize_t m = 0; m < array.shape(0); ++m) {
        Job job;
        job.label = "coordinates[" + std::to_string(m) + "]";
        const auto first = all.begin() + static_cast<std::ptrdiff_t>(m * per_model);
        job.points.assign(first, first + static_cast<std::ptrdiff_t>(per_model));
        jobs.push_back(std::move(job));
      }
    } else {
      throw py::value_error(std::string("coordinates: ") + kExpectedInput + ", got shape " +
                            shape_text(array));
    }
    for (Job& job : jobs) job.selection = array_selection;
  } else if (py::isinstance<py::list>(input) || py::isinstance<py::tuple>(input)) {
    std::size_t k = 0;
    for (const py::handle item : input) {
      const std::string what = "item " + std::to_string(k);
      if (py::isinstance<Structure>(item)) {
        jobs.push_back(structure_job(item.cast<StructurePtr>(), select));
      } else if (py::isinstance<py::array>(item)) {
        jobs.push_back(array_job(py::reinterpret_borrow<py::array>(item), what));
        jobs.back().selection = array_selection;
      } else {
        throw py::type_error(what +
                             ": expected a Structure or a float64 array of shape (n_atoms, "
                             "3), got " +
                             type_name(item));
      }
      jobs.back().label = what;
      ++k;
    }
  } else {
    throw py::type_error(std::string(kExpectedInput) + ", got " + type_name(input));
  }
  if (charged || add_hydrogens) {
    for (const Job& job : jobs) {
      if (job.structure) continue;
      if (add_hydrogens) {
        throw py::value_error(
            (job.label.empty() ? std::string("coordinates") : job.label) +
            ": an array holds no residues to place hydrogens on; add_hydrogens needs "
            "Structures (vorn.read_structure)");
      }
      throw py::value_error(
          (job.label.empty() ? std::string("coordinates") : job.label) +
          ": an array holds no residues to take charges from; a charged medium needs "
          "Structures (vorn.read_structure)");
    }
  }

  std::vector<ChargedTensor> tensors;
  {
    py::gil_scoped_release release;
    vorn::app::read_charges(settings);
    const vorn::PredictionContext context(settings.sampling, settings.threads);
    for (Job& job : jobs) {
      settings.selection = job.selection;
      std::span<const Vec3> points = job.points;
      // The structure's atoms, or with add_hydrogens those with every
      // missing hydrogen placed (then selected as read hydrogens are).
      std::optional<vorn::AddedHydrogens> placed;
      if (job.structure) {
        if (add_hydrogens) {
          placed = vorn::add_hydrogens(job.structure->atoms);
          job.points = vorn::app::steric_atoms(
              placed->atoms, selection_settings(job.selection, job.structure->keep_hydrogens));
          points = job.points;
        } else if (job.reselect) {
          job.points = vorn::app::steric_atoms(
              job.structure->atoms,
              selection_settings(*job.reselect, job.structure->keep_hydrogens));
          points = job.points;
        } else {
          points = job.structure->steric;
        }
        if (points.empty()) {
          throw vorn::io::InputError(job.structure->file + ": model " +
                                     std::to_string(job.structure->model) +
                                     " has no atom left after the selection");
        }
      }
      try {
        ChargedTensor t;
        if (job.structure) {
          const vorn::app::ModelSaupe p = vorn::app::predict_model_saupe(
              points, placed ? placed->atoms : job.structure->atoms, settings, context,
              context.threads(), job.structure->model, job.structure->file);
          static_cast<AlignmentTensor&>(t) = vorn::analyze_tensor(p.saupe);
          t.net_charge = p.net_charge;
          t.charged_groups = p.charged_groups;
        } else {
          static_cast<AlignmentTensor&>(t) = vorn::analyze_tensor(
              context.predict_saupe(points, vorn::app::effective_medium(settings)));
        }
        tensors.push_back(std::move(t));
      } catch (const vorn::Error& e) {
        if (job.label.empty()) throw;
        throw vorn::Error(job.label + ": " + e.what());
      }
    }
  }
  // A Tensor in an uncharged medium, a ChargedTensor in a charged one.
  const auto result = [&](const ChargedTensor& t) {
    return charged ? py::cast(t) : py::cast(static_cast<const AlignmentTensor&>(t));
  };
  if (!several) return result(tensors.front());
  py::list list;
  for (const ChargedTensor& t : tensors) list.append(result(t));
  return list;
}

// The local windows of one Structure (vorn predict --window): the model's
// tensor, the tensor of every residue's window and the windowed couplings.
py::dict window_result(const vorn::app::ModelPrediction& m) {
  py::list windows;
  for (const vorn::app::WindowTensor& w : m.windows) {
    windows.append(py::dict("chain"_a = w.chain, "residue"_a = w.residue_number,
                            "icode"_a = icode_text(w.insertion_code), "resname"_a = w.residue_name,
                            "first_residue"_a = w.first_residue_number,
                            "last_residue"_a = w.last_residue_number, "atoms_used"_a = w.atoms,
                            "tensor"_a = py::cast(w.tensor)));
  }
  py::list couplings;
  for (const vorn::app::PredictedCoupling& c : m.couplings) {
    const vorn::CouplingSite& site = c.site;
    couplings.append(py::dict("chain"_a = site.chain, "residue"_a = site.residue_number,
                              "icode"_a = icode_text(site.insertion_code),
                              "resname"_a = site.residue_name, "type"_a = site.type,
                              "atom1"_a = site.atom1, "atom2"_a = site.atom2,
                              "predicted_hz"_a = c.predicted_hz, "dmax_hz"_a = c.dmax_hz,
                              "built_hydrogen"_a = site.built_hydrogen));
  }
  return py::dict("model"_a = m.model, "tensor"_a = py::cast(m.tensor), "windows"_a = windows,
                  "couplings"_a = couplings);
}

py::object predict_windows(
    const py::object& input, int window, const std::string& medium, double concentration,
    double molar_ratio, const std::optional<double>& obstacle_dimension,
    const std::optional<double>& atom_radius, double grid_spacing, double order_parameter,
    const py::object& sampling, const std::optional<std::string>& select,
    const std::optional<int>& threads, const std::optional<double>& charge_density,
    double ionic_strength, double ph, double temperature,
    const std::optional<std::string>& potential, const std::optional<double>& obstacle_radius,
    const py::object& charges, bool add_hydrogens) {
  if (window < 3 || window % 2 == 0) {
    throw py::value_error("window: must be an odd number of residues, at least 3 (got " +
                          std::to_string(window) + ")");
  }
  const MediumArguments medium_arguments{medium,      charge_density, ionic_strength,  ph,
                                         temperature, potential,      obstacle_radius, charges};
  vorn::app::PredictSettings settings =
      predict_settings(medium_arguments, concentration, molar_ratio, obstacle_dimension,
                       atom_radius, grid_spacing, order_parameter, sampling, threads);
  settings.add_hydrogens = add_hydrogens;
  settings.window = window;
  std::vector<StructurePtr> structures;
  const bool several = !py::isinstance<Structure>(input);
  if (!several) {
    structures.push_back(input.cast<StructurePtr>());
  } else if (py::isinstance<py::list>(input) || py::isinstance<py::tuple>(input)) {
    std::size_t k = 0;
    for (const py::handle item : input) {
      if (!py::isinstance<Structure>(item)) {
        throw py::type_error("item " + std::to_string(k) +
                             ": expected a Structure (windows need residues), got " +
                             type_name(item));
      }
      structures.push_back(item.cast<StructurePtr>());
      ++k;
    }
  } else {
    throw py::type_error(
        "expected a Structure or a list of Structures (windows need residues), got " +
        type_name(input));
  }
  std::vector<vorn::app::ModelPrediction> predictions;
  {
    py::gil_scoped_release release;
    vorn::app::read_charges(settings);
    const vorn::PredictionContext context(settings.sampling, settings.threads);
    for (const StructurePtr& s : structures) {
      settings.selection = select ? parse_selection(*select) : s->selection;
      settings.read.keep_hydrogens = s->keep_hydrogens;
      const vorn::io::Model model{s->model, s->atoms};
      predictions.push_back(
          vorn::app::predict_model(model, settings, context, context.threads(), s->file));
    }
  }
  if (!several) return window_result(predictions.front());
  py::list list;
  for (const vorn::app::ModelPrediction& m : predictions) list.append(window_result(m));
  return list;
}

// ---------------------------------------------------------------------------
// Measured couplings

struct CouplingSet {
  std::string name;
  std::string format;
  int skipped_lines = 0;
  std::vector<vorn::io::MeasuredCoupling> couplings;
};

double error_or_nan(const std::optional<double>& error) {
  return error ? *error : std::numeric_limits<double>::quiet_NaN();
}

py::list coupling_dicts(const CouplingSet& set) {
  py::list list;
  for (const vorn::io::MeasuredCoupling& c : set.couplings) {
    list.append(py::dict(
        "chain1"_a = c.atom1.chain, "residue1"_a = c.atom1.residue, "atom1"_a = c.atom1.name,
        "chain2"_a = c.atom2.chain, "residue2"_a = c.atom2.residue, "atom2"_a = c.atom2.name,
        "value_hz"_a = c.value_hz, "error_hz"_a = error_or_nan(c.error_hz), "line"_a = c.line));
  }
  return list;
}

vorn::io::CouplingReadOptions coupling_options(const std::optional<std::string>& format,
                                               const std::optional<std::string>& set,
                                               bool lenient) {
  vorn::io::CouplingReadOptions options;
  if (format) {
    options.format = vorn::io::parse_coupling_format(*format);
    if (!options.format) {
      throw py::value_error(
          "format must be 'classic', 'xplor', 'table', 'nef', 'nmrstar' or 'pipe' (got '" +
          *format + "')");
    }
  }
  options.set = set;
  options.lenient = lenient;
  return options;
}

std::vector<CouplingSet> read_couplings(const py::object& path_object,
                                        const std::optional<std::string>& format,
                                        const std::optional<std::string>& set, bool lenient) {
  const std::string path = path_text(path_object);
  const vorn::io::CouplingReadOptions options = coupling_options(format, set, lenient);
  require_readable(path);
  vorn::io::CouplingFile file;
  {
    py::gil_scoped_release release;
    file = vorn::io::read_couplings(path, options);
  }
  std::vector<CouplingSet> sets;
  for (vorn::io::CouplingSet& s : file.sets) {
    sets.push_back({s.name, vorn::io::coupling_format_name(file.format), file.skipped_lines,
                    std::move(s.couplings)});
  }
  return sets;
}

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

std::string fixed(double value, int digits) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", digits, value);
  return text;
}

}  // namespace

PYBIND11_MODULE(_vorn, m) {
  // Classes and functions present themselves as members of the package
  // `vorn`, which re-exports them; the signatures in the docstrings then read
  // "vorn.Tensor" rather than the name of this extension.
  m.attr("__module__") = "vorn";
  m.doc() = "Compiled part of the vorn package; use `import vorn`.";
  m.attr("__version__") = VORN_VERSION;

  py::register_exception_translator([](std::exception_ptr p) {
    try {
      if (p) std::rethrow_exception(p);
    } catch (const vorn::io::InputError& e) {
      PyErr_SetString(PyExc_ValueError, e.what());
    } catch (const vorn::Error& e) {
      PyErr_SetString(PyExc_ValueError, e.what());
    }
  });

  py::class_<AlignmentTensor>(
      m, "Tensor", R"doc(An alignment tensor: the five Saupe order-matrix elements and their
principal-axis analysis, as `vorn predict --format json` reports them.

Tensor(saupe) analyses five elements given in the order Szz, Sxx - Syy,
Sxy, Sxz, Syz; vorn.predict and vorn.fit return Tensor objects. Array
attributes are new NumPy float64 arrays on every access.
)doc")
      .def(py::init([](const std::array<double, 5>& saupe) {
             py::gil_scoped_release release;
             return vorn::analyze_tensor(saupe);
           }),
           "saupe"_a,
           "Analyse the five Saupe elements (Szz, Sxx - Syy, Sxy, Sxz, Syz). Raises ValueError "
           "for an element that is not finite.")
      .def_property_readonly(
          "saupe", [](const AlignmentTensor& t) { return vector_array(t.saupe); },
          "The five Saupe elements Szz, Sxx - Syy, Sxy, Sxz, Syz (shape (5,)).")
      .def_property_readonly(
          "saupe_matrix",
          [](const AlignmentTensor& t) { return matrix_array(vorn::saupe_matrix(t.saupe)); },
          "The full traceless symmetric 3 x 3 Saupe matrix (rows and columns x, y, z).")
      .def_property_readonly(
          "eigenvalues", [](const AlignmentTensor& t) { return vector_array(t.eigenvalues); },
          "Eigenvalues by decreasing magnitude: Azz, Ayy, Axx (shape (3,)).")
      .def_property_readonly(
          "eigenvectors", [](const AlignmentTensor& t) { return matrix_array(t.eigenvectors); },
          "Principal axes as rows (z, y, x), each with its x, y, z components in the molecular "
          "frame (shape (3, 3)); row k belongs to eigenvalues[k].")
      .def_readonly("da", &AlignmentTensor::da, "Axial component (Azz - (Axx + Ayy)/2) / 3.")
      .def_readonly("dr", &AlignmentTensor::dr, "Rhombic component (Axx - Ayy) / 3.")
      .def_readonly("da_hz", &AlignmentTensor::da_hz, "Da scaled to the N-H coupling, Hz.")
      .def_readonly("rhombicity", &AlignmentTensor::rhombicity, "R = Dr/Da (0 when Da is 0).")
      .def_property_readonly(
          "euler_deg", [](const AlignmentTensor& t) { return matrix_array(t.euler_deg); },
          "The four equivalent orientations of the principal frame as z-y-z Euler angles "
          "(alpha, beta, gamma) in degrees (shape (4, 3)).")
      .def("__repr__", [](const AlignmentTensor& t) {
        return "vorn.Tensor(da_hz=" + fixed(t.da_hz, 4) + ", rhombicity=" + fixed(t.rhombicity, 4) +
               ")";
      });

  py::class_<ChargedTensor, AlignmentTensor>(
      m, "ChargedTensor", R"doc(An alignment tensor predicted in a charged medium (vorn.predict with
medium="pf1" or a charge_density): a Tensor with the charge of the molecule
that was weighed in the obstacle's potential.
)doc")
      .def_readonly("net_charge", &ChargedTensor::net_charge,
                    "Net charge of the molecule, e (the titration's or the PQR file's).")
      .def_readonly("charged_groups", &ChargedTensor::charged_groups,
                    "Number of charged groups (ionisable groups found by the titration, or "
                    "residues carrying charge in the PQR file).")
      .def("__repr__", [](const ChargedTensor& t) {
        return "vorn.ChargedTensor(da_hz=" + fixed(t.da_hz, 4) +
               ", rhombicity=" + fixed(t.rhombicity, 4) + ", net_charge=" + fixed(t.net_charge, 2) +
               ")";
      });

  py::class_<Structure, std::shared_ptr<Structure>>(
      m, "Structure", R"doc(One model of a coordinate file, as vorn.read_structure returns it.

Every atom read is kept (hydrogens included: the backbone couplings need
them); `coordinates` are those of the atoms of the steric model, chosen by
the selection given to read_structure exactly as `vorn predict` chooses
them. The per-atom tables (names, elements, ...) describe all atoms, in
file order, in the same order as all_coordinates.
)doc")
      .def_readonly("model", &Structure::model,
                    "Model number as in the file (1, 2, ... where "
                    "the file has no model records).")
      .def_readonly("file", &Structure::file,
                    "Path of the file read; for Structure.from_atoms the name given (an atom "
                    "group's file, else its type's name).")
      .def_readonly("format", &Structure::format,
                    "'PDB' or 'mmCIF'; 'DCD', 'XTC' or 'TRR' for a trajectory's frames; '' for a "
                    "Structure built from atom tables.")
      .def_property_readonly(
          "select", [](const Structure& s) { return vorn::app::selection_name(s.selection); },
          "Selection of the steric model: 'surface', 'heavy' or 'all'.")
      .def_readonly("keep_hydrogens", &Structure::keep_hydrogens,
                    "Whether hydrogens take part in the steric model.")
      .def_property_readonly(
          "coordinates", [](const Structure& s) { return points_array(s.steric); },
          "Coordinates of the atoms of the steric model, Angstrom: a new float64 array of shape "
          "(n, 3).")
      .def_property_readonly(
          "all_coordinates", [](const Structure& s) { return points_array(atom_positions(s)); },
          "Coordinates of every atom read (hydrogens included), Angstrom: a new float64 array of "
          "shape (n_atoms, 3).")
      .def_property_readonly(
          "names",
          [](const Structure& s) { return atom_strings(s, [](const Atom& a) { return a.name; }); },
          "Atom names of all atoms (list of str).")
      .def_property_readonly(
          "elements",
          [](const Structure& s) {
            return atom_strings(s, [](const Atom& a) { return a.element; });
          },
          "Element symbols of all atoms, upper case (list of str).")
      .def_property_readonly(
          "residue_names",
          [](const Structure& s) {
            return atom_strings(s, [](const Atom& a) { return a.residue_name; });
          },
          "Residue names of all atoms (list of str).")
      .def_property_readonly(
          "residue_numbers",
          [](const Structure& s) {
            std::vector<long> numbers;
            for (const Atom& a : s.atoms) numbers.push_back(a.residue_number);
            return py::array(py::cast(numbers));
          },
          "Residue numbers of all atoms (int64 array of shape (n_atoms,)).")
      .def_property_readonly(
          "chains",
          [](const Structure& s) { return atom_strings(s, [](const Atom& a) { return a.chain; }); },
          "Chain names of all atoms (list of str).")
      .def_property_readonly(
          "insertion_codes",
          [](const Structure& s) {
            return atom_strings(s, [](const Atom& a) { return icode_text(a.insertion_code); });
          },
          "Insertion codes of all atoms, '' where there is none (list of str).")
      .def(
          "predict_couplings",
          [](const Structure& s, const AlignmentTensor& tensor, bool add_hydrogens) {
            return predict_couplings(s, tensor, add_hydrogens);
          },
          "tensor"_a, "add_hydrogens"_a = false,
          "Backbone couplings of this model with `tensor`; see vorn.predict_couplings.")
      .def(
          "__len__", [](const Structure& s) { return s.atoms.size(); },
          "Number of atoms read (hydrogens included).")
      .def("__repr__", [](const Structure& s) {
        return "<vorn.Structure model " + std::to_string(s.model) + " of '" + s.file +
               "': " + std::to_string(s.atoms.size()) + " atoms, " +
               std::to_string(s.steric.size()) + " in the steric model (" +
               vorn::app::selection_name(s.selection) + ")>";
      });

  py::class_<CouplingSet>(
      m, "CouplingSet", R"doc(The measured couplings of one alignment medium, as vorn.read_couplings
returns them.
)doc")
      .def_readonly("name", &CouplingSet::name,
                    "Set name: the tensor residue number of X-PLOR files ('500'), the list of "
                    "NEF files ('peg_gel-1') or the frame of NMR-STAR files; '' for the "
                    "layouts holding a single set.")
      .def_readonly("format", &CouplingSet::format,
                    "Layout of the file: 'classic', 'xplor', 'table', 'nef', 'nmrstar' or "
                    "'pipe'.")
      .def_readonly("skipped_lines", &CouplingSet::skipped_lines,
                    "Bad lines or statements of the file skipped with lenient=True.")
      .def_property_readonly("couplings", &coupling_dicts,
                             "One dict per coupling, in file order: chain1, residue1, atom1, "
                             "chain2, residue2, atom2, value_hz, error_hz (NaN when the file "
                             "gives none) and line.")
      .def_property_readonly(
          "value_hz",
          [](const CouplingSet& s) {
            std::vector<double> v;
            for (const auto& c : s.couplings) v.push_back(c.value_hz);
            return vector_array(v);
          },
          "Measured values, Hz (float64 array).")
      .def_property_readonly(
          "error_hz",
          [](const CouplingSet& s) {
            std::vector<double> v;
            for (const auto& c : s.couplings) v.push_back(error_or_nan(c.error_hz));
            return vector_array(v);
          },
          "Measurement errors, Hz, NaN where absent (float64 array).")
      .def("__len__", [](const CouplingSet& s) { return s.couplings.size(); })
      .def("__repr__", [](const CouplingSet& s) {
        return "<vorn.CouplingSet '" + s.name + "' (" + s.format +
               "): " + std::to_string(s.couplings.size()) + " couplings>";
      });

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

  m.def("read_structure", &read_structure, "path"_a, "models"_a = py::none(),
        "select"_a = "surface", "exclude"_a = py::none(), "keep_hydrogens"_a = false,
        "chains"_a = py::none(), "altloc"_a = py::none(), "hetatm"_a = false,
        "format"_a = py::none(), "trajectory"_a = py::none(), "frames"_a = py::none(),
        R"doc(Read a PDB or mmCIF file (plain or gzipped) into one Structure per model.

path            file name (str or os.PathLike)
models          None (all), a model number, a list of numbers or a text such
                as "1,3-5"; numbers as in the file
select          atoms of the steric model: "surface" (the solvent-exposed
                atoms by the classic rule), "heavy" or "all"
exclude         atoms to leave out, gemmi selection syntax ("/*/A/70-76")
keep_hydrogens  hydrogens take part in the steric model (they are always
                read: the couplings need them)
chains          None (all), "A,B" or a list of chain names
altloc          alternate location to keep (default: highest occupancy)
hetatm          keep HETATM records other than water
format          "pdb" or "cif" (default: from the content, then the name)
trajectory      a DCD, XTC or TRR file whose frames are the models of the
                file's first model (the topology: PDB, mmCIF or GROMACS .gro);
                frame N is model N
frames          "first:last[:step]" of the trajectory (default: all)

The atoms are read and selected exactly as `vorn predict` reads them.
Raises FileNotFoundError/OSError for a missing or unreadable file and
ValueError for a bad file or option.
)doc");

  const vorn::ObstacleCharge charge_defaults;
  m.def("predict", &predict, "structure_or_coordinates"_a, "medium"_a = "bicelle",
        "concentration"_a = 0.05, "molar_ratio"_a = 3.0, "obstacle_dimension"_a = py::none(),
        "atom_radius"_a = py::none(), "grid_spacing"_a = 0.5, "order_parameter"_a = 0.8,
        "sampling"_a = py::make_tuple(9, 18, 18), "select"_a = py::none(), "threads"_a = py::none(),
        "charge_density"_a = py::none(), "ionic_strength"_a = charge_defaults.ionic_strength,
        "ph"_a = vorn::app::PredictSettings{}.ph, "temperature"_a = charge_defaults.temperature,
        "potential"_a = py::none(), "obstacle_radius"_a = py::none(), "charges"_a = py::none(),
        "add_hydrogens"_a = false,
        R"doc(Predict the alignment tensor, as `vorn predict` does.

structure_or_coordinates
    a Structure (its steric-model coordinates are used), a float64 NumPy
    array of shape (n_atoms, 3) taken as the atoms of the steric model, or
    several models: a list of Structures and/or (n, 3) arrays, or an array
    of shape (n_models, n_atoms, 3). One model gives one Tensor, several a
    list of Tensors. Arrays of any strides are accepted; other dtypes raise
    TypeError, other shapes ValueError.
medium              "bicelle", "phage", "bicelle+phage", or "pf1": the phage
                    with Pf1's radius and surface charge
concentration       lipid or phage, g/ml
molar_ratio         long- to short-chain lipid (bicelles)
obstacle_dimension  bicelle thickness or phage diameter, Angstrom
                    (None: 20 for the bicelle wall, 30 for the phage)
atom_radius         contact radius of an atom, Angstrom (None: the classic
                    rule, 1.4 with the surface selection, else 3.0)
grid_spacing        step of the position grid, Angstrom
order_parameter     scale of the predicted tensor
sampling            orientation steps (theta, phi, psi)
select              None: a Structure's own selection, "surface" for arrays
                    (only the atom radius rule depends on it there); for a
                    Structure another selection re-selects its atoms
threads             worker threads (None: VORN_THREADS or all cores); the
                    result does not depend on it
add_hydrogens       place every missing hydrogen of the standard residues
                    from the heavy atoms (`vorn predict --add-hydrogens`);
                    they enter the steric model as read hydrogens do (with
                    the Structure's keep_hydrogens or select="all").
                    Structures only.

A charged obstacle (medium="pf1", or charge_density with "bicelle" or
"phage") weighs every state by the energy of the molecule's charges in the
obstacle's potential; the molecule must then be given as Structures.
charge_density      surface charge of the obstacle, e/nm^2 (None: 0, or
                    Pf1's with "pf1"); 0 leaves the obstacle uncharged
ionic_strength      1:1 salt, mol/l (> 0)
ph                  pH of the titration of the molecule's residues (0..14)
temperature         K (273.15..373.15)
potential           "linear" (Debye-Hueckel) or "nonlinear" (Poisson-
                    Boltzmann); None: linear
obstacle_radius     radius of the cylinder ("phage", "pf1"), Angstrom
charges             a PQR file whose charges replace the titration

In a charged medium the result is a ChargedTensor (a Tensor with the
molecule's net_charge and charged_groups). Bad values raise ValueError.

The orientation tables are built once per call; the models are predicted
one after the other, each on all worker threads, with the GIL released.
)doc");

  m.def("predict_windows", &predict_windows, "structure"_a, "window"_a, "medium"_a = "bicelle",
        "concentration"_a = 0.05, "molar_ratio"_a = 3.0, "obstacle_dimension"_a = py::none(),
        "atom_radius"_a = py::none(), "grid_spacing"_a = 0.5, "order_parameter"_a = 0.8,
        "sampling"_a = py::make_tuple(9, 18, 18), "select"_a = py::none(), "threads"_a = py::none(),
        "charge_density"_a = py::none(), "ionic_strength"_a = charge_defaults.ionic_strength,
        "ph"_a = vorn::app::PredictSettings{}.ph, "temperature"_a = charge_defaults.temperature,
        "potential"_a = py::none(), "obstacle_radius"_a = py::none(), "charges"_a = py::none(),
        "add_hydrogens"_a = false,
        R"doc(Local alignment windows, as `vorn predict --window N` (docs/windows.md).

For every residue i of every chain of a Structure, the tensor of the
residues i-(N-1)/2 .. i+(N-1)/2 of its chain (truncated at the chain's ends,
the window's own atoms only) predicts residue i's couplings. window: N, odd,
at least 3. The other arguments are those of vorn.predict.

Returns a dict per Structure (a list of them for a list): model, tensor
(the whole molecule's Tensor), windows (a dict per residue: chain, residue,
icode, resname, first_residue, last_residue, atoms_used, tensor) and
couplings (as vorn.predict_couplings, each from its residue's window).
)doc");

  m.def(
      "predict_couplings",
      [](const Structure& s, const AlignmentTensor& tensor, bool add_hydrogens) {
        return predict_couplings(s, tensor, add_hydrogens);
      },
      "structure"_a, "tensor"_a, "add_hydrogens"_a = false,
      R"doc(The backbone residual dipolar couplings of a Structure with a Tensor, as
`vorn predict` reports them: one dict per coupling with chain, residue,
icode, resname, type ("N-H", "CA-HA", "CA-C", "C-N", "C-HN"), atom1, atom2,
predicted_hz, dmax_hz (at the standard distance of the type) and
built_hydrogen (the proton was placed from the heavy atoms, not read).

A structure without any hydrogen (an X-ray structure) gets its hydrogens
placed from the heavy atoms for the couplings; add_hydrogens=True places
every missing one also where the structure has some (docs/hydrogens.md).
)doc");

  m.def("read_couplings", &read_couplings, "path"_a, "format"_a = py::none(), "set"_a = py::none(),
        "lenient"_a = false,
        R"doc(Read measured couplings: the classic "resnum value type" layout, X-PLOR/CNS
assign statements (several sets), a table naming both atoms, NEF coupling
lists, NMR-STAR _RDC/_RDC_constraint frames or an NMRPipe table; plain or
gzipped.

format   "classic", "xplor", "table", "nef", "nmrstar" or "pipe" (default:
         told from the content)
set      keep only this set (X-PLOR tensor residue "500", NEF list
         "peg_gel-1" or its framecode, NMR-STAR frame name)
lenient  skip bad lines, counted in skipped_lines, instead of failing

Returns a list of CouplingSet, in order of first appearance. Raises
ValueError "FILE:LINE: ..." for a bad line, FileNotFoundError/OSError for a
missing or unreadable file.
)doc");

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

  vorn::python::bind_models_and_ensembles(m);

  py::delattr(m, "__module__");
}
