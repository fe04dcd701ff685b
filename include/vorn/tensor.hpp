// The alignment tensor: the five independent Saupe order-matrix elements and
// their principal-axis analysis.
#pragma once

#include <array>

namespace vorn {

// The five independent elements of the traceless symmetric Saupe matrix, in
// this order: Szz, Sxx - Syy, Sxy, Sxz, Syz.
using SaupeElements = std::array<double, 5>;

// Scale from the axial order-matrix component to Da(NH) in Hz.
inline constexpr double kDaNHScale = 21523.110491698444;

// The full 3 x 3 Saupe matrix of the five elements (row-major, x y z).
std::array<std::array<double, 3>, 3> saupe_matrix(const SaupeElements& saupe);

struct AlignmentTensor {
  SaupeElements saupe{};
  // Eigenvalues ordered by decreasing magnitude: Azz, Ayy, Axx.
  std::array<double, 3> eigenvalues{};
  // eigenvectors[k] is the unit principal axis of eigenvalues[k] (z, y, x),
  // as x, y, z components in the molecular frame.
  std::array<std::array<double, 3>, 3> eigenvectors{};
  double da = 0.0;          // axial component (Azz - (Axx + Ayy)/2) / 3
  double dr = 0.0;          // rhombic component (Axx - Ayy) / 3
  double da_hz = 0.0;       // Da scaled to the N-H coupling in Hz: da * kDaNHScale
  double rhombicity = 0.0;  // R = Dr/Da; 0 when Da is 0
  // Four equivalent orientations of the principal frame, each the z-y-z
  // Euler angles {alpha, beta, gamma} in degrees: the rotation
  // Rz(gamma) Ry(beta) Rz(alpha) has the x, y, z principal axes as columns,
  // for the four sign choices of the axes that keep a right-handed frame.
  std::array<std::array<double, 3>, 4> euler_deg{};
};

// Principal-axis analysis of a tensor. Throws vorn::Error for an element
// that is not finite or when the Jacobi diagonalisation does not converge in
// 50 sweeps.
AlignmentTensor analyze_tensor(const SaupeElements& saupe);

}  // namespace vorn
