// The classic program's own computations, for front ends that reproduce it
// byte for byte: its name tables, its surface rule on classic atom types, its
// prediction driven by the classic settings (medium codes, grid types and the
// combined-medium flag included), and its comparison and fit of the five
// classic coupling types. New code should prefer the general API
// (vorn/predict.hpp, vorn/couplings.hpp); these give the same bits where
// both apply.
#pragma once

#include <array>
#include <cstddef>
#include <limits>
#include <span>
#include <string_view>
#include <vector>

#include "vorn/log.hpp"
#include "vorn/settings.hpp"
#include "vorn/structure.hpp"
#include "vorn/tensor.hpp"

namespace vorn {

// ---------------------------------------------------------------------------
// Name tables.

inline constexpr int kClassicUnknownName = -999;
inline constexpr int kClassicHeavyAtomMaxIndex = 328;  // larger indices are protons

// Atom type index of an atom name (first match of the 633 names), or
// kClassicUnknownName.
int classic_atom_type(std::string_view name);
// Residue type index 1..269, or kClassicUnknownName.
int classic_residue_type(std::string_view name);
// Mass of an atom name by the blocks of the atom list, or 0.0 when unknown.
float classic_atom_mass(std::string_view name);

// ---------------------------------------------------------------------------
// Surface rule (see surface_atoms in vorn/structure.hpp) on positions and
// classic atom types. Returns false when the surface method failed; its
// report went to log.warn.
bool classic_surface_atoms(std::span<const Vec3> positions, std::span<const int> atom_types,
                           std::vector<std::size_t>& kept, const Log& log = {});

// ---------------------------------------------------------------------------
// Prediction.

// Completes the bicelle settings from concentration, molar ratio and
// obstacle dimension: effective molar ratio, bicelle radius, mean free
// distance (step_out_length) and the relative order.
void refine_bicelle(Settings& settings);

// Optional caps a caller may put on the work of one prediction; each is
// checked at the point where the classic program checked its capacity, and
// exceeding it throws vorn::Error with the classic text. The defaults cap
// nothing.
struct ClassicLimits {
  // Highest index of a line grid ("Too many grid points ...").
  int max_grid_index = std::numeric_limits<int>::max();
  // Orientation count at which sampling fails ("Too many requested
  // orientations ...").
  int orientation_limit = std::numeric_limits<int>::max();
};

// The steric prediction as the classic program runs it on the selected
// atoms: centre, grids, orientation sampling, simulation, scaled by the
// order parameter. Listings (debug) and warnings go to log.
SaupeElements classic_predict(const Settings& settings, std::span<const Vec3> positions,
                              const ClassicLimits& limits = {}, const Log& log = {});

// analyze_tensor without its check of the elements: what the classic
// program reports for elements that are not finite (the Jacobi method may
// then fail, throwing vorn::Error, or pass the values on).
AlignmentTensor classic_analyze_tensor(const SaupeElements& saupe);

// ---------------------------------------------------------------------------
// The five classic coupling types: 0 N-H, 1 CA-HA, 2 CA-C', 3 C'(i-1)-N(i),
// 4 C'(i-1)-HN(i); 5 carries the constants of a sixth kind only.

inline constexpr int kClassicCouplingTypes = 6;
// Divisor that brings a coupling of each type onto the N-H scale.
double classic_norm_factor(int type);
// Coupling constant of each type times its inverse cube of the distance (Hz):
// the factor a unit-vector projection is multiplied with.
double classic_coupling_scale(int type);

// A coupling of the classic file: a value of 1000.0 Hz or more marks an
// entry without a measured value.
struct ClassicCoupling {
  int residue = 0;
  double value_hz = 0.0;
  int type = 0;
  Vec3 vector;  // internuclear vector from the structure (zero when missing)
};

// Back-calculated value of a coupling of the classic kind: the projection of
// the unit vector (a zero vector stays zero) on the tensor times `scale`.
double classic_back_calculate(const SaupeElements& saupe, const Vec3& vector, double scale);

// Comparison statistics on the N-H scale (single precision where the
// classic report prints them).
struct ClassicComparison {
  std::vector<float> predicted;  // one per coupling, Hz
  int measured = 0;              // couplings with a measured value
  float rmsd = 0.0f;             // population spread of the differences
  float r = 0.0f;                // Pearson correlation
  double q = 0.0;                // rms difference / rms measured
  float offset = 0.0f, offset_sd = 0.0f, slope = 0.0f, slope_sd = 0.0f;
};
// Throws vorn::Error (from the correlation's incomplete beta function) with
// fewer than three measured couplings.
ClassicComparison classic_compare(const SaupeElements& saupe,
                                  std::span<const ClassicCoupling> couplings);

// The classic SVD fit: single-precision rows of the measured couplings,
// LINPACK decomposition, singular values below 1e-6 of the largest dropped.
struct ClassicSvdFit {
  struct Outside {
    int row = 0;
    double measured = 0.0;  // as a double
    float dc = 0.0f, upper = 0.0f, lower = 0.0f;
    double back_calculated = 0.0;
  };
  int rows = 0;                  // couplings used
  long info = 0;                 // non-zero: the decomposition failed
  bool singular = false;         // more singular values dropped than expected
  bool order_in_range = false;   // the fitted order matrix is physical
  std::vector<Outside> outside;  // rows outside dc +/- error (when in range)
  SaupeElements saupe{};
};
ClassicSvdFit classic_svd_fit(std::span<const ClassicCoupling> couplings, double nh_error_hz);

}  // namespace vorn
