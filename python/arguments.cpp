// The arguments of the Python functions: paths, options given as Python
// values and their checks, and conversions of results to NumPy arrays.
#include "arguments.hpp"

#include <pybind11/numpy.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <set>

#include "vorn/electrostatics.hpp"

namespace py = pybind11;

namespace vorn::python {

using app::Selection;

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

std::string icode_text(char icode) {
  return icode == ' ' || icode == '\0' ? std::string() : std::string(1, icode);
}

// ---------------------------------------------------------------------------
// Files

namespace {

[[noreturn]] void raise_os_error(int code, const std::string& path) {
  errno = code;
  // OSError picks its subclass from the code: FileNotFoundError,
  // PermissionError, IsADirectoryError.
  PyErr_SetFromErrnoWithFilename(PyExc_OSError, path.c_str());
  throw py::error_already_set();
}

}  // namespace

// A path given as str, bytes or os.PathLike.
std::string path_text(const py::object& path) {
  const py::object p = py::module_::import("os").attr("fspath")(path);
  return p.cast<std::string>();
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

double error_or_nan(const std::optional<double>& error) {
  return error ? *error : std::numeric_limits<double>::quiet_NaN();
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

std::string fixed(double value, int digits) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", digits, value);
  return text;
}

std::string shape_text(const py::array& a) {
  std::string text = "(";
  for (py::ssize_t k = 0; k < a.ndim(); ++k) {
    text += (k > 0 ? ", " : "") + std::to_string(a.shape(k));
  }
  return text + (a.ndim() == 1 ? ",)" : ")");
}

}  // namespace vorn::python
