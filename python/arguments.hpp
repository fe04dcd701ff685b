// What the compiled parts of the Python module share: the reading of
// paths and of options given as Python values (raising ValueError,
// TypeError or OSError as Python users expect) and conversions of results
// to NumPy arrays.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "app/predict_command.hpp"
#include "io/coupling_reader.hpp"
#include "io/structure_reader.hpp"
#include "vorn/electrostatics.hpp"
#include "vorn/structure.hpp"

namespace vorn::python {

// Conversions to NumPy.
pybind11::array_t<double> points_array(std::span<const Vec3> points);
pybind11::array_t<double> vector_array(std::span<const double> values);
template <std::size_t R, std::size_t C>
pybind11::array_t<double> matrix_array(const std::array<std::array<double, C>, R>& m) {
  pybind11::array_t<double> a(
      {static_cast<pybind11::ssize_t>(R), static_cast<pybind11::ssize_t>(C)});
  auto r = a.mutable_unchecked<2>();
  for (std::size_t i = 0; i < R; ++i)
    for (std::size_t j = 0; j < C; ++j)
      r(static_cast<pybind11::ssize_t>(i), static_cast<pybind11::ssize_t>(j)) = m[i][j];
  return a;
}

std::string icode_text(char icode);
// "(m, n, 3)": the shape of an array, for messages.
std::string shape_text(const pybind11::array& a);
// Fixed-point text of a value, for the classes' reprs.
std::string fixed(double value, int digits);

// A path given as str, bytes or os.PathLike.
std::string path_text(const pybind11::object& path);
// Raises the OSError of a file that does not exist or cannot be read, before
// the readers turn the same problem into an input error.
void require_readable(const std::string& path);

app::Selection parse_selection(const std::string& text);

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
  pybind11::object charges = pybind11::none();  // a PQR file
};

// Applies the medium arguments to the settings with the checks of the
// command line; raises ValueError naming the argument.
void apply_medium(app::PredictSettings& s, const MediumArguments& a);

// None, one model number, a list such as "1,3-5", or an iterable of numbers.
std::vector<int> parse_models(const pybind11::object& models);
// None, "A,B" or an iterable of chain names.
std::string parse_chains(const pybind11::object& chains);
std::optional<io::Format> parse_input_format(const std::optional<std::string>& format);
io::ReadOptions read_options(const pybind11::object& models,
                             const std::optional<std::string>& exclude, bool keep_hydrogens,
                             const pybind11::object& chains,
                             const std::optional<std::string>& altloc, bool hetatm);
// A trajectory (and its frames) whose frames are the models of the topology
// read, as `vorn predict TOPOLOGY TRAJECTORY --frames ...`.
void read_trajectory(const pybind11::object& trajectory, const std::optional<std::string>& frames,
                     io::ReadOptions& read);
Sampling parse_sampling(const pybind11::object& sampling);
int parse_threads(const std::optional<int>& threads);
// The medium of the Python arguments, before the atom radius rule.
app::PredictSettings predict_settings(const MediumArguments& medium, double concentration,
                                      double molar_ratio,
                                      const std::optional<double>& obstacle_dimension,
                                      const std::optional<double>& atom_radius, double grid_spacing,
                                      double order_parameter, const pybind11::object& sampling,
                                      const std::optional<int>& threads);

double error_or_nan(const std::optional<double>& error);
io::CouplingReadOptions coupling_options(const std::optional<std::string>& format,
                                         const std::optional<std::string>& set, bool lenient);

// Adds the class FitResult and the function fit to the module, whose Tensor
// class is registered already (fit_bindings.cpp).
void bind_fit(pybind11::module_& m);

}  // namespace vorn::python
