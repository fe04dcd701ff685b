#include "modern/tensor_script.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace vorn::modern {
namespace {

enum class ScriptFormat { bild, pml };

constexpr double kShaftRadius = 0.25;  // Angstrom
constexpr double kHeadRadius = 0.6;
constexpr double kHeadLength = 2.5;  // at most ...
constexpr double kHeadShare = 0.4;   // ... and at most this share of the arrow
const char* const kAxisNames[3] = {"x", "y", "z"};

ScriptFormat format_of(const std::string& path) {
  std::string extension = std::filesystem::path(path).extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (extension == ".bild") return ScriptFormat::bild;
  if (extension == ".pml") return ScriptFormat::pml;
  throw std::runtime_error("tensor script '" + path + "': unknown extension '" + extension +
                           "' (the formats are .bild and .pml)");
}

// One arrow from the centre: its direction, length and colour.
struct Arrow {
  int axis = 0;  // 0 x, 1 y, 2 z
  Vec3 tip;
  Vec3 head_base;  // where the shaft ends and the head begins
  double length = 0.0;
};

// The arrows of a tensor: per axis x, y, z (eigenvalue not 0) the two
// directions, + then -.
std::vector<Arrow> arrows_of(const ScriptTensor& t) {
  const double largest = std::fabs(t.tensor.eigenvalues[0]);
  std::vector<Arrow> arrows;
  for (int axis = 0; axis < 3; ++axis) {
    // AlignmentTensor holds the axes z, y, x.
    const int k = 2 - axis;
    const double length = kLongestAxisLength * std::fabs(t.tensor.eigenvalues[k]) / largest;
    if (!(length > 0.0)) continue;
    const auto& e = t.tensor.eigenvectors[k];
    const double head = std::min(kHeadLength, kHeadShare * length);
    for (const double sign : {1.0, -1.0}) {
      Arrow a;
      a.axis = axis;
      a.length = length;
      const auto at = [&](double distance) {
        return Vec3{t.centre.x + sign * distance * e[0], t.centre.y + sign * distance * e[1],
                    t.centre.z + sign * distance * e[2]};
      };
      a.tip = at(length);
      a.head_base = at(length - head);
      arrows.push_back(a);
    }
  }
  return arrows;
}

std::string point(const Vec3& p) { return fmt::format("{:.9f} {:.9f} {:.9f}", p.x, p.y, p.z); }

std::string colour(int axis, const char* separator) {
  return fmt::format("{:.4f}{}{:.4f}{}{:.4f}", kAxisRgb[axis][0], separator, kAxisRgb[axis][1],
                     separator, kAxisRgb[axis][2]);
}

std::string describe(const ScriptTensor& t) {
  return fmt::format(
      "{}: centre {:.3f} {:.3f} {:.3f}; eigenvalues (zz, yy, xx) {:.6e} {:.6e} {:.6e}", t.name,
      t.centre.x, t.centre.y, t.centre.z, t.tensor.eigenvalues[0], t.tensor.eigenvalues[1],
      t.tensor.eigenvalues[2]);
}

const char* kConvention =
    "x red, y green, z blue, from the centre (mean of the atoms) both ways; half-length "
    "|eigenvalue| / |largest eigenvalue| x 15 A";

std::string bild(const std::vector<ScriptTensor>& tensors, const std::string& title) {
  std::string out = ".comment VORN: principal axes of the alignment tensor, " + title + "\n";
  out += std::string(".comment ") + kConvention + "\n";
  for (const ScriptTensor& t : tensors) {
    out += ".comment " + describe(t) + "\n";
    int current = -1;
    for (const Arrow& a : arrows_of(t)) {
      if (a.axis != current) {
        out += ".comment " + std::string(kAxisNames[a.axis]) + " axis\n";
        out += ".color " + colour(a.axis, " ") + "\n";
        current = a.axis;
      }
      const double shaft_share = 1.0 - std::min(kHeadLength, kHeadShare * a.length) / a.length;
      out += fmt::format(".arrow {} {} {:.3f} {:.3f} {:.6f}\n", point(t.centre), point(a.tip),
                         kShaftRadius, kHeadRadius, shaft_share);
    }
  }
  return out;
}

std::string pml(const std::vector<ScriptTensor>& tensors, const std::string& object,
                const std::string& title) {
  std::string out = "# VORN: principal axes of the alignment tensor, " + title + "\n";
  out += std::string("# ") + kConvention + "\n";
  out += "# one state of the object '" + object + "' per tensor\n";
  out += "python\nfrom pymol.cgo import *\nfrom pymol import cmd\n";
  for (std::size_t state = 0; state < tensors.size(); ++state) {
    const ScriptTensor& t = tensors[state];
    out += "# " + describe(t) + "\ncmd.load_cgo([\n";
    for (const Arrow& a : arrows_of(t)) {
      const std::string rgb = colour(a.axis, ", ");
      const auto comma = [](const Vec3& p) {
        return fmt::format("{:.9f}, {:.9f}, {:.9f}", p.x, p.y, p.z);
      };
      out += fmt::format("    CYLINDER, {}, {}, {:.3f}, {}, {},  # {} axis\n", comma(t.centre),
                         comma(a.head_base), kShaftRadius, rgb, rgb, kAxisNames[a.axis]);
      out += fmt::format("    CONE, {}, {}, {:.3f}, 0.0, {}, {}, 1.0, 0.0,\n", comma(a.head_base),
                         comma(a.tip), kHeadRadius, rgb, rgb);
    }
    out += fmt::format("], '{}', {})\n", object, state + 1);
  }
  out += "python end\n";
  return out;
}

}  // namespace

void check_tensor_script_path(const std::string& path) { format_of(path); }

void write_tensor_script(const std::string& path, const std::vector<ScriptTensor>& tensors,
                         const std::string& object, const std::string& title) {
  const ScriptFormat format = format_of(path);
  for (const ScriptTensor& t : tensors) {
    const auto& v = t.tensor.eigenvalues;
    if (!std::all_of(v.begin(), v.end(), [](double x) { return std::isfinite(x); }) ||
        !(std::fabs(v[0]) > 0.0)) {
      throw std::invalid_argument("tensor script: the tensor of " + t.name +
                                  " has no axis to draw (eigenvalues 0 or not finite)");
    }
  }
  const std::string text =
      format == ScriptFormat::bild ? bild(tensors, title) : pml(tensors, object, title);
  std::ofstream out(path, std::ios::binary);
  if (!out) throw std::runtime_error("tensor script '" + path + "': cannot open for writing");
  out << text;
  if (!out.flush()) throw std::runtime_error("tensor script '" + path + "': write failed");
}

}  // namespace vorn::modern
