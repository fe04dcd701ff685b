// Steric prediction of the alignment tensor: the molecule is placed at a grid
// of distances from the obstacle (a bicelle wall, a phage cylinder, or both)
// and in a grid of orientations; every state in which an atom touches the
// obstacle is discarded and the Saupe order matrix is averaged over the
// allowed states.
//
//   vorn::PredictionContext context;                  // default sampling
//   vorn::SaupeElements s = context.predict_saupe(positions, vorn::Medium{});
//   vorn::AlignmentTensor t = vorn::analyze_tensor(s);
#pragma once

#include <memory>
#include <optional>
#include <span>

#include "vorn/charges.hpp"
#include "vorn/electrostatics.hpp"
#include "vorn/log.hpp"
#include "vorn/structure.hpp"
#include "vorn/tensor.hpp"

namespace vorn {

enum class MediumKind {
  bicelle,            // planar wall (bicelles)
  phage,              // cylinder (filamentous phage)
  bicelle_and_phage,  // wall with the cylinder term subtracted
};

// The aligning medium and the model's resolution. Defaults are those of the
// classic program with its default (surface) atom selection.
struct Medium {
  MediumKind kind = MediumKind::bicelle;
  double concentration = 0.05;  // g/ml of lipid or phage
  double molar_ratio = 3.0;     // long- to short-chain lipid (bicelles)
  // Thickness of the bicelle wall or radius of the phage cylinder, Angstrom; unset:
  // 20 for the wall (also the combined medium), 30 for the phage.
  std::optional<double> obstacle_dimension;
  // Contact distance of an atom centre, Angstrom: 1.4 goes with the surface
  // selection (the classic rule); the classic program uses 3.0 for every
  // other selection.
  double atom_radius = 1.4;
  double grid_spacing = 0.5;     // distance step of the position grid, Angstrom
  double order_parameter = 0.8;  // scales the predicted elements
  // The obstacle's surface charge and the solution (unset: uncharged, the
  // steric model alone). Used with the wall or the cylinder, not with the
  // combined medium.
  std::optional<ObstacleCharge> charge;

  // The obstacle dimension in effect.
  double obstacle() const {
    return obstacle_dimension ? *obstacle_dimension : (kind == MediumKind::phage ? 30.0 : 20.0);
  }
};

// Filamentous phage Pf1 as a charged cylinder (docs/electrostatics.md):
// radius 33.5 A; surface charge density from the charges of one coat
// protein subunit and its nucleotide over the subunit's 2.9 A rise.
inline constexpr double kPf1Radius = 33.5;
inline constexpr double kPf1ChargeDensity = -0.45;
// The phage medium with Pf1's radius and charge.
Medium pf1_medium();

// Orientation sampling: theta bands over 0..180 degrees, phi steps per band
// scaled by sin(theta), psi steps over 360 degrees.
struct Sampling {
  int theta = 9;
  int phi = 18;
  int psi = 18;
};

// Everything that depends on the sampling alone (the orientations, their
// rotation trigonometry and order elements), built once and reused for any
// number of structures and media. Immutable once built: predictions on one
// context may run from several threads at once.
class PredictionContext {
 public:
  // threads: workers of each prediction; 0 takes VORN_THREADS when set to a
  // valid count, else the cores. log receives listings (when log.debug) and
  // warnings. Throws vorn::Error for a sampling with a count below 1.
  explicit PredictionContext(const Sampling& sampling = {}, int threads = 0, Log log = {});
  ~PredictionContext();
  PredictionContext(const PredictionContext&);
  PredictionContext& operator=(const PredictionContext&);
  PredictionContext(PredictionContext&&) noexcept;
  PredictionContext& operator=(PredictionContext&&) noexcept;

  const Sampling& sampling() const;
  int orientation_count() const;
  int threads() const;
  void set_threads(int threads);

  // The five Saupe elements for atoms at `positions` (Angstrom, any frame:
  // the centre is moved to the origin). Throws vorn::Error for no atoms, a
  // coordinate that is not finite, or a medium value out of range (spacing,
  // radius, concentration, molar ratio or obstacle dimension not positive).
  SaupeElements predict_saupe(std::span<const Vec3> positions, const Medium& medium) const;
  // The same with the thread count of this call.
  SaupeElements predict_saupe(std::span<const Vec3> positions, const Medium& medium,
                              int threads) const;
  // The same for a molecule with charges (positions in the frame of
  // `positions`; the list may hold only the charged atoms): with a charged
  // medium every state is weighted by exp(-U/kT) of the charges' energy in
  // the obstacle's potential; with an uncharged medium, or no charge, the
  // result is the steric one. Throws vorn::Error as above, and for a
  // charged combined medium, a charge that is not finite, or energies too
  // large for their weights.
  SaupeElements predict_saupe(std::span<const Vec3> positions, std::span<const PointCharge> charges,
                              const Medium& medium, int threads) const;
  // predict_saupe followed by analyze_tensor.
  AlignmentTensor predict(std::span<const Vec3> positions, const Medium& medium) const;

 private:
  struct Impl;
  std::shared_ptr<const Impl> impl_;
  int threads_ = 0;
};

// One prediction with a context of its own.
SaupeElements predict_saupe(std::span<const Vec3> positions, const Medium& medium = {},
                            const Sampling& sampling = {}, int threads = 0);

}  // namespace vorn
