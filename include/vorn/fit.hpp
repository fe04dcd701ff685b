// Least-squares fit of the alignment tensor to measured residual dipolar
// couplings, its quality, sign checks and error bars.
//
// Every coupling is one row D = design . saupe with the five Saupe elements
// (Szz, Sxx - Syy, Sxy, Sxz, Syz); coupling_design gives the row of an
// internuclear vector and its Dmax (vorn/couplings.hpp), and the mean of
// several rows describes a coupling averaged over an ensemble or over the
// protons of a methyl group.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "vorn/structure.hpp"
#include "vorn/tensor.hpp"

namespace vorn {

using DesignRow = std::array<double, 5>;

// The row of D = dmax_hz * sum_ij S_ij c_i c_j for the unit vector c of
// `vector`. A zero or non-finite vector throws vorn::Error.
DesignRow coupling_design(const Vec3& vector, double dmax_hz);

struct FitRow {
  DesignRow design{};
  double value_hz = 0.0;  // measured
  double error_hz = 0.0;  // measurement error; 0 when none is given
  double dmax_hz = 0.0;   // of the coupling's nuclei, for the N-H scale of the statistics
  std::string type;       // label of the per-type statistics, e.g. "N-H"
};

struct TensorFit {
  SaupeElements saupe{};
  AlignmentTensor tensor;
  std::vector<double> calculated_hz;  // one per row
  // Ratio of the largest to the smallest singular value of the design
  // matrix with each row divided by its |Dmax| (and by its error when
  // weighted): how evenly the bond orientations cover the sphere.
  double condition_number = 0.0;
  bool ill_conditioned = false;  // condition_number above kIllConditioned
  bool weighted = false;         // every row had an error above 0 and weighting was asked for
};

inline constexpr double kIllConditioned = 100.0;

// Least-squares Saupe elements (by singular value decomposition), weighted
// by 1/error^2 when `weighted` and every row has an error above 0. Throws
// vorn::Error with fewer than five rows, a row that is not finite, or a
// design of rank below five.
TensorFit fit_tensor(std::span<const FitRow> rows, bool weighted = true);

// Agreement of calculated with measured couplings.
struct Quality {
  int n = 0;
  double rmsd_hz = 0.0;  // root mean square of measured - calculated
  double r = 0.0;        // Pearson correlation
  double q = 0.0;        // rms(measured - calculated) / rms(measured)
  double q_da = 0.0;     // rms(measured - calculated) / sqrt(2 Da^2 (4 + 3 R^2) / 5)
};

// Per type in the type's own Hz (Da of the type: its Dmax times the axial
// component of `tensor`); overall with every coupling brought to the N-H
// scale (times Dmax(N-H, 1.02 A) / its own Dmax). Types in order of first
// appearance.
struct FitQuality {
  Quality overall;
  std::vector<std::pair<std::string, Quality>> per_type;
};
FitQuality fit_quality(std::span<const FitRow> rows, std::span<const double> calculated_hz,
                       const AlignmentTensor& tensor);

// Signs of the coupling types: Q of the fit with every type as given, with
// the couplings of one type inverted (the others as given), and the best of
// all combinations of inverted types (every combination is fitted; with more
// than 12 types, types are inverted one at a time while that lowers Q).
struct SignCheck {
  std::string type;
  int n = 0;
  double q_as_given = 0.0;
  double q_inverted = 0.0;
  double q_best = 0.0;  // Q of the best combination
  // This type is inverted in the best combination, and that combination
  // lowers Q by more than half of its value and by at least 0.1.
  bool inverted_fits_better = false;
};
std::vector<SignCheck> check_signs(std::span<const FitRow> rows, bool weighted = true);

// Rows whose residual exceeds `sigmas` standard deviations: the error of
// the row when given, else the rmsd of the fit over the row's type.
std::vector<std::size_t> outliers(std::span<const FitRow> rows, const TensorFit& fit,
                                  double sigmas = 3.0);

enum class ErrorMethod { monte_carlo, bootstrap };

struct ErrorEstimate {
  ErrorMethod method = ErrorMethod::monte_carlo;
  int samples = 0;
  double da_hz_sd = 0.0;
  double rhombicity_sd = 0.0;
  // Spread of each of the four Euler triples, degrees (differences taken
  // to the nearest equivalent angle of the best fit).
  std::array<std::array<double, 3>, 4> euler_deg_sd{};
  std::vector<double> calculated_sd_hz;  // one per row
  // The Saupe elements of every sample, in the order drawn; filled only
  // when asked for (their principal axes show the spread of the frame).
  std::vector<SaupeElements> sample_saupe;
};

// Refits `samples` perturbed data sets. Monte Carlo: every measured value
// moved by a normal deviate of its error (the rmsd of the fit when the rows
// have no errors); bootstrap: rows drawn with replacement. Deterministic for
// a seed on every platform (own generator and normal deviates).
// keep_samples: also return each sample's Saupe elements (sample_saupe).
ErrorEstimate estimate_errors(std::span<const FitRow> rows, const TensorFit& fit,
                              ErrorMethod method, int samples, std::uint64_t seed,
                              bool weighted = true, bool keep_samples = false);

}  // namespace vorn
