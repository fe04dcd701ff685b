// Structures built from atom tables and coordinate arrays (what the package's
// Python layer makes of MDAnalysis atom groups and trajectories), and the
// ensemble summary of `vorn predict` accumulated model by model.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "app/predict_command.hpp"
#include "arguments.hpp"
#include "structure.hpp"
#include "vorn/structure.hpp"
#include "vorn/tensor.hpp"

namespace py = pybind11;
using namespace pybind11::literals;

namespace vorn::python {

namespace {

// A single-precision coordinate as the trajectory reader of `vorn predict`
// takes a frame's coordinate: written with three decimals (the PDB's
// 0.001 A) and read back, so that both give the same double.
double at_pdb_precision(float value) {
  char text[64];
  const int length = std::snprintf(text, sizeof text, "%.3f", static_cast<double>(value));
  double result = 0.0;
  std::from_chars(text, text + length, result);
  return result;
}

// The rows of an (n, 3) array of coordinates: float64 as they are, float32
// at 0.001 A; other dtypes raise TypeError, other shapes and values that are
// not finite ValueError. `atoms`, when not 0, is the number of rows required.
std::vector<Vec3> coordinate_rows(const py::array& array, const std::string& what,
                                  std::size_t atoms) {
  const bool single = array.dtype().is(py::dtype::of<float>());
  if (!single && !array.dtype().is(py::dtype::of<double>())) {
    throw py::type_error(what + ": expected a float64 (or float32) array, got dtype " +
                         std::string(py::str(array.dtype())));
  }
  if (array.ndim() != 2 || array.shape(1) != 3 || array.shape(0) == 0) {
    throw py::value_error(what +
                          ": expected an array of shape (n_atoms, 3) with n_atoms > 0, got " +
                          "shape " + shape_text(array));
  }
  const auto n = static_cast<std::size_t>(array.shape(0));
  if (atoms != 0 && n != atoms) {
    throw py::value_error(what + ": " + std::to_string(n) + " atoms, and the structure has " +
                          std::to_string(atoms) + " (every atom read, hydrogens included)");
  }
  std::vector<Vec3> rows(n);
  const auto fill = [&](const auto* data, auto convert) {
    for (std::size_t i = 0; i < n; ++i) {
      rows[i] = {convert(data[3 * i]), convert(data[3 * i + 1]), convert(data[3 * i + 2])};
    }
  };
  if (single) {
    const auto c = py::array_t<float, py::array::c_style | py::array::forcecast>::ensure(array);
    if (!c) throw py::error_already_set();
    fill(c.data(), at_pdb_precision);
  } else {
    const auto c = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(array);
    if (!c) throw py::error_already_set();
    fill(c.data(), [](double v) { return v; });
  }
  for (std::size_t i = 0; i < n; ++i) {
    if (!std::isfinite(rows[i].x) || !std::isfinite(rows[i].y) || !std::isfinite(rows[i].z)) {
      throw py::value_error(what + ": atom " + std::to_string(i) +
                            " has a coordinate that is not a finite number");
    }
  }
  return rows;
}

app::Selection selection_of(const std::string& text) {
  if (const auto s = app::parse_selection(text)) return *s;
  throw py::value_error("select must be 'surface', 'heavy' or 'all' (got '" + text + "')");
}

// The steric model of a structure's atoms, chosen without the GIL.
void select_steric(Structure& s) {
  py::gil_scoped_release release;
  s.steric = app::steric_atoms(s.atoms, selection_settings(s.selection, s.keep_hydrogens));
}

template <class T>
void require_length(const std::vector<T>& table, std::size_t n, const char* name) {
  if (table.size() != n) {
    throw py::value_error(std::string(name) + ": " + std::to_string(table.size()) +
                          " entries for " + std::to_string(n) + " atoms");
  }
}

// Raises the ValueError of atom i ("atom 3 (CA): ...").
[[noreturn]] void atom_error(std::size_t i, const std::string& name, const std::string& what) {
  std::string text = "atom " + std::to_string(i);
  if (!name.empty()) text += " (" + name + ")";
  throw py::value_error(text + ": " + what);
}

StructurePtr from_atoms(const std::vector<std::string>& names,
                        const std::vector<std::string>& elements,
                        const std::vector<std::string>& residue_names,
                        const std::vector<long long>& residue_numbers,
                        const std::vector<std::string>& chains, const py::array& coordinates,
                        const std::optional<std::vector<std::string>>& insertion_codes,
                        const std::string& select, bool keep_hydrogens, int model,
                        const std::string& file) {
  auto s = std::make_shared<Structure>();
  s->selection = selection_of(select);
  const std::vector<Vec3> rows = coordinate_rows(coordinates, "coordinates", 0);
  const std::size_t n = rows.size();
  require_length(names, n, "names");
  require_length(elements, n, "elements");
  require_length(residue_names, n, "residue_names");
  require_length(residue_numbers, n, "residue_numbers");
  require_length(chains, n, "chains");
  if (insertion_codes) require_length(*insertion_codes, n, "insertion_codes");
  s->file = file;
  s->model = model;
  s->keep_hydrogens = keep_hydrogens;
  s->atoms.resize(n);
  for (std::size_t i = 0; i < n; ++i) {
    Atom& a = s->atoms[i];
    if (names[i].empty()) atom_error(i, "", "empty atom name");
    if (elements[i].empty()) atom_error(i, names[i], "empty element");
    if (residue_numbers[i] < std::numeric_limits<int>::min() ||
        residue_numbers[i] > std::numeric_limits<int>::max()) {
      atom_error(i, names[i],
                 "residue number " + std::to_string(residue_numbers[i]) + " out of range");
    }
    a.name = names[i];
    a.element = elements[i];
    for (char& c : a.element) {
      if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    a.residue_name = residue_names[i];
    a.residue_number = static_cast<int>(residue_numbers[i]);
    a.chain = chains[i];
    if (insertion_codes) {
      const std::string& code = (*insertion_codes)[i];
      if (code.size() > 1) {
        atom_error(i, names[i], "insertion code '" + code + "' is longer than one character");
      }
      a.insertion_code = code.empty() ? ' ' : code[0];
    }
    a.position = rows[i];
  }
  select_steric(*s);
  return s;
}

StructurePtr with_coordinates(const Structure& topology, const py::array& coordinates,
                              const std::optional<int>& model) {
  auto s = std::make_shared<Structure>(topology);
  const std::vector<Vec3> rows = coordinate_rows(coordinates, "coordinates", topology.atoms.size());
  for (std::size_t i = 0; i < rows.size(); ++i) s->atoms[i].position = rows[i];
  if (model) s->model = *model;
  select_steric(*s);
  return s;
}

std::string icode_text(char icode) {
  return icode == ' ' || icode == '\0' ? std::string() : std::string(1, icode);
}

// The ensemble summary of `vorn predict`, fed one model (a Structure and its
// predicted tensor) at a time in model order.
class Ensemble {
 public:
  void add(const Structure& s, const AlignmentTensor& tensor, bool add_hydrogens) {
    py::gil_scoped_release release;
    app::ModelPrediction m;
    m.model = s.model;
    m.tensor = tensor;
    m.couplings = app::backbone_couplings(s.atoms, app::placed_hydrogens(s.atoms, add_hydrogens),
                                          tensor.saupe)
                      .couplings;
    accumulator_.add(m);
  }

  int models() const { return accumulator_.models(); }

  bool converged(double tolerance) const {
    if (!(tolerance > 0.0) || !std::isfinite(tolerance)) {
      throw py::value_error("tolerance must be a positive number of Hz");
    }
    return accumulator_.converged(tolerance);
  }

  py::dict summary() const {
    const app::EnsembleSummary e = accumulator_.summary();
    py::list couplings;
    for (const app::EnsembleCoupling& c : e.couplings) {
      const CouplingSite& s = c.site;
      couplings.append(py::dict("chain"_a = s.chain, "residue"_a = s.residue_number,
                                "icode"_a = icode_text(s.insertion_code),
                                "resname"_a = s.residue_name, "type"_a = s.type,
                                "atom1"_a = s.atom1, "atom2"_a = s.atom2, "models"_a = c.models,
                                "predicted_hz_mean"_a = c.mean_hz, "predicted_hz_sd"_a = c.sd_hz,
                                "predicted_hz_se"_a = c.se_hz));
    }
    return py::dict("models"_a = e.models, "da_hz_mean"_a = e.da_hz_mean, "da_hz_sd"_a = e.da_hz_sd,
                    "da_hz_se"_a = e.da_hz_se, "effective_samples"_a = e.da_effective_samples,
                    "rhombicity_mean"_a = e.rhombicity_mean, "rhombicity_sd"_a = e.rhombicity_sd,
                    "rhombicity_se"_a = e.rhombicity_se, "couplings"_a = couplings);
  }

 private:
  app::EnsembleAccumulator accumulator_;
};

}  // namespace

void bind_models_and_ensembles(py::module_& m) {
  auto structure = py::reinterpret_borrow<py::class_<Structure, StructurePtr>>(m.attr("Structure"));
  structure.def_static("from_atoms", &from_atoms, "names"_a, "elements"_a, "residue_names"_a,
                       "residue_numbers"_a, "chains"_a, "coordinates"_a,
                       "insertion_codes"_a = py::none(), "select"_a = "surface",
                       "keep_hydrogens"_a = false, "model"_a = 1, "file"_a = "",
                       R"doc(A Structure from per-atom tables, as a file would give them: one model.

names, elements, residue_names, residue_numbers, chains
        one entry per atom (sequences of str; residue numbers int); elements
        are symbols ("C", "H", "ZN"), taken upper case
coordinates
        float64 array of shape (n_atoms, 3), Angstrom, taken as given; a
        float32 array is taken at 0.001 A (written with three decimals and
        read back), as `vorn predict` takes the frames of a trajectory
insertion_codes  None (none), or '' or one character per atom
select, keep_hydrogens  the steric model, as in read_structure
model   the model number reported; file  a name for messages

All atoms are kept, in the order given (no water or HETATM rule: choose the
atoms beforehand). Raises ValueError for tables of another length, a shape
other than (n, 3) or a coordinate that is not finite, TypeError for
coordinates of another dtype.
)doc");
  structure.def("with_coordinates", &with_coordinates, "coordinates"_a, "model"_a = py::none(),
                R"doc(A copy of this Structure with every atom at new coordinates (one frame of
a trajectory over this topology), its steric model selected again.

coordinates  array of shape (len(structure), 3): every atom read, hydrogens
             included, in the order of all_coordinates; float64 as given,
             float32 at 0.001 A (see Structure.from_atoms)
model        the model number of the copy (None: this one's)
)doc");

  py::class_<Ensemble>(m, "EnsembleAccumulator",
                       R"doc(The ensemble summary of `vorn predict` built model by model: add each
model's Structure with its predicted Tensor in model order, then read
summary(). The values equal those of `vorn predict --format json` ("ensemble")
for the same models, to the bit.
)doc")
      .def(py::init<>())
      .def("add", &Ensemble::add, "structure"_a, "tensor"_a, "add_hydrogens"_a = false,
           "Add one model: its backbone couplings are predicted with `tensor` as "
           "vorn.predict_couplings does (add_hydrogens as there).")
      .def_property_readonly("models", &Ensemble::models, "Number of models added.")
      .def("converged", &Ensemble::converged, "tolerance"_a,
           "True from 32 models on when the block-averaging standard errors of Da and of every "
           "coupling's mean are below `tolerance` Hz (`vorn predict --until-converged`).")
      .def("summary", &Ensemble::summary,
           R"doc(dict: models, da_hz_mean, da_hz_sd, da_hz_se, effective_samples,
rhombicity_mean, rhombicity_sd, rhombicity_se and couplings, one dict per
coupling (chain, residue, icode, resname, type, atom1, atom2, models,
predicted_hz_mean, predicted_hz_sd, predicted_hz_se). The _se values are
standard errors of the means by block averaging; effective_samples is
var/se^2 of Da.)doc");
}

}  // namespace vorn::python
