// Selection of the solvent-exposed atoms: every atom gets a
// van der Waals radius enlarged by a 1.4 A probe, the accessible area of
// each enlarged sphere is measured with the double cubic lattice method, and
// an atom is kept when that area exceeds half the area of its bare sphere.
// The selection asks nsc_exposed_spheres for the decisions alone; the
// reference form computes every area with nsc_dclm and compares them.
#include <algorithm>
#include <cstddef>
#include <new>
#include <string>
#include <vector>

#include "core/fatal.hpp"
#include "molecule/nsc.hpp"
#include "molecule/surface.hpp"

namespace vorn {

namespace {

constexpr double kProbe = 1.4;
constexpr int kDensity = 700;
constexpr int kMode = kNscVolume | kNscAtomArea;

// Working storage; an allocation failure ends the run.
template <class T>
std::vector<T> allocate(std::size_t n, const char* name) {
  try {
    return std::vector<T>(n);
  } catch (const std::bad_alloc&) {
    nrerror(std::string("allocation failure for ") + name);
  }
}

// Centres (3 per sphere) and radii of the spheres handed to the surface
// method, with the selection's rule on their areas.
struct Spheres {
  std::size_t n = 0;
  std::vector<double> coordinates;
  std::vector<double> radii;

  // Kept deliberately: the last atom's denominator uses radii[n], which was
  // never enlarged: its radius minus 1.4, about zero for a 1.4 A atom, so it
  // is kept whenever its area is positive and dropped when it is zero.
  bool exposed(std::size_t k, double area) const {
    return area / ((radii[k + 1] - kProbe) * 12.566370616 * (radii[k + 1] - kProbe)) > 0.5;
  }
};

Spheres make_spheres(std::span<const double> x, std::span<const double> y,
                     std::span<const double> z, std::span<const int> types) {
  Spheres s;
  s.n = std::min({x.size(), y.size(), z.size(), types.size()});
  const std::size_t n = s.n;
  s.coordinates = allocate<double>(3 * n, "coordinates");
  // Radii are written at 1..n and read at 0..n (see below): n + 1 entries,
  // position 0 stays 0.0.
  s.radii = allocate<double>(n + 1, "radii");
  for (std::size_t i = 1; i <= n; ++i) s.radii[i] = get_radius(types[i - 1]);
  // Kept deliberately: the radii were stored at 1..n but are enlarged and
  // handed to the surface method at 0..n-1, so sphere k + 1 carries the
  // radius of atom k and the first sphere the probe alone (1.4 + 0.0).
  for (std::size_t k = 0; k < n; ++k) {
    s.coordinates[3 * k] = x[k];
    s.coordinates[3 * k + 1] = y[k];
    s.coordinates[3 * k + 2] = z[k];
    s.radii[k] = kProbe + s.radii[k];
  }
  return s;
}

}  // namespace

float get_radius(int atomtype) { return atomtype == 323 ? 1.8F : 1.4F; }

int surface_atom_indices(std::span<const double> x, std::span<const double> y,
                         std::span<const double> z, std::span<const int> types,
                         std::vector<std::size_t>& kept, const Log& log) {
  kept.clear();
  const Spheres s = make_spheres(x, y, z, types);
  std::vector<char> exposed;
  try {
    if (nsc_exposed_spheres(
            s.coordinates.data(), s.radii.data(), static_cast<int>(s.n), kDensity,
            [&s](std::size_t k, double area) { return s.exposed(k, area); }, exposed, log) != 0) {
      return 1;
    }
  } catch (const std::bad_alloc&) {
    nrerror("allocation failure for the surface selection");
  }
  for (std::size_t k = 0; k < s.n; ++k) {
    if (exposed[k] != 0) kept.push_back(k);
  }
  return 0;
}

int surface_atom_indices_reference(std::span<const double> x, std::span<const double> y,
                                   std::span<const double> z, std::span<const int> types,
                                   std::vector<std::size_t>& kept, const Log& log) {
  kept.clear();
  const Spheres s = make_spheres(x, y, z, types);
  double area = 0.0;
  double volume = 0.0;
  std::vector<double> atomwise_area;
  if (nsc_dclm(s.coordinates.data(), s.radii.data(), static_cast<int>(s.n), kDensity, kMode, area,
               &atomwise_area, &volume, nullptr, nullptr, log) != 0) {
    return 1;
  }
  // Keep an atom whose accessible area exceeds half of its bare sphere's
  // area.
  for (std::size_t k = 0; k < s.n; ++k) {
    if (s.exposed(k, atomwise_area[k])) kept.push_back(k);
  }
  return 0;
}

}  // namespace vorn
