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

#include "app/predict_command.hpp"
#include "arguments.hpp"
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

using namespace vorn::python;  // NOLINT(google-build-using-namespace): the module's shared parts
using vorn::AlignmentTensor;
using vorn::Atom;
using vorn::Vec3;
using vorn::app::Selection;

// ---------------------------------------------------------------------------
// Structures

using vorn::python::selection_settings;
using vorn::python::Structure;
using vorn::python::StructurePtr;

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
      .def_readonly(
          "format", &Structure::format,
          "'PDB', 'mmCIF' or 'GRO'; 'DCD', 'XTC' or 'TRR' for a trajectory's frames; '' for a "
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

  vorn::python::bind_fit(m);

  vorn::python::bind_models_and_ensembles(m);

  py::delattr(m, "__module__");
}
