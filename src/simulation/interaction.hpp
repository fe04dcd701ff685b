// The terms of the modern alignment model beyond contact: each state of the
// molecule (its centre at a distance from the obstacle, an orientation) gets
// the Boltzmann weight exp(-U/kT) of the energy U of its interactions with
// the obstacle; a state with an atom in contact has weight 0 as before.
// A new interaction is one class derived from Interaction (its own file).
#pragma once

#include <memory>
#include <span>

namespace vorn::detail {

// Shape of the obstacle. Positions are distances of the molecule's centre
// from the wall's surface (wall) or from the cylinder's axis (cylinder).
struct Obstacle {
  enum class Shape { wall, cylinder } shape = Shape::wall;
  double radius = 0.0;  // cylinder radius, Angstrom
};

// One orientation of the molecule: the laboratory x and y axes in the
// molecule's frame (the wall normal is x; the cylinder axis is z), so an atom
// at a (molecular frame, centred) sits at (x_axis . a, y_axis . a) relative
// to the centre.
struct OrientationFrame {
  double x_axis[3] = {};
  double y_axis[3] = {};
};

class Interaction {
 public:
  virtual ~Interaction() = default;

  // The largest distance of the molecule's centre from the obstacle's
  // surface at which some orientation still has an energy of note.
  virtual double reach() const = 0;

  // Per-thread working storage of add_energy.
  struct Scratch {
    virtual ~Scratch() = default;
  };
  virtual std::unique_ptr<Scratch> scratch() const = 0;

  // energy[k] += U(frame, centre[k]) / kT for k = 0 .. centre.size()-1.
  virtual void add_energy(const OrientationFrame& frame, std::span<const double> centre,
                          double* energy, Scratch& scratch) const = 0;
};

}  // namespace vorn::detail
