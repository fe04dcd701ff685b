// The principal axes of alignment tensors drawn on the molecule: a ChimeraX
// BILD file or a PyMOL script, in the structure's own frame.
#pragma once

#include <string>
#include <vector>

#include "vorn/structure.hpp"
#include "vorn/tensor.hpp"

namespace vorn::modern {

// The half-length of the z axis (the largest |eigenvalue|), Angstrom; the x
// and y axes are shorter in proportion to their |eigenvalues|.
inline constexpr double kLongestAxisLength = 15.0;

// Colours of the x, y and z axes (red, green, blue; the Okabe-Ito
// vermillion, bluish green and blue of the axes plot), 0..1.
inline constexpr double kAxisRgb[3][3] = {{213 / 255.0, 94 / 255.0, 0.0},
                                          {0.0, 158 / 255.0, 115 / 255.0},
                                          {0.0, 114 / 255.0, 178 / 255.0}};

struct ScriptTensor {
  std::string name;  // in the comments, e.g. "model 3"
  Vec3 centre;       // where the axes start: the molecule's centre
  AlignmentTensor tensor;
};

// Writes the three principal axes of each tensor as arrows from its centre
// in both directions, each arrow |eigenvalue| / |largest eigenvalue| times
// kLongestAxisLength long: x red, y green, z blue. By the extension,
// case-insensitively:
//  .bild  ChimeraX BILD: per axis a ".color r g b" line and two ".arrow x1
//         y1 z1 x2 y2 z2 r1 r2 rho" lines (centre to tip; shaft radius,
//         head radius, shaft share of the length); every tensor in the one
//         file, ".comment" lines naming them.
//  .pml   PyMOL script: a Python block that loads a CGO object `object`
//         (CYLINDER shafts, CONE heads), one state per tensor, so that the
//         states follow those of a multi-model structure.
// An axis of eigenvalue 0 is left out. Throws, before writing anything,
// std::runtime_error naming the file for an unknown extension and
// std::invalid_argument for a tensor whose eigenvalues are all 0 or not
// finite; std::runtime_error naming the file when it cannot be written.
void write_tensor_script(const std::string& path, const std::vector<ScriptTensor>& tensors,
                         const std::string& object, const std::string& title);

// Throws std::runtime_error naming the file when its extension is neither
// .bild nor .pml.
void check_tensor_script_path(const std::string& path);

}  // namespace vorn::modern
