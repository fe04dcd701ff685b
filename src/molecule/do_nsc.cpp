// Reduction of the atom list to its solvent-exposed atoms: every atom gets a
// van der Waals radius enlarged by a 1.4 A probe, the accessible area of
// each enlarged sphere is computed by nsc_dclm, and an atom is kept when that
// area exceeds half the area of its bare sphere.
#include <algorithm>
#include <cstddef>
#include <new>
#include <string>
#include <vector>

#include "driver/fatal.hpp"
#include "molecule/nsc.hpp"

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

}  // namespace

float get_radius(int atomtype) { return atomtype == 323 ? 1.8F : 1.4F; }

int routine_calling_NSC(int& no_atom, AtomArrays& atoms, Io& io) {
  // The count is bounded by the arrays: never read past their last slot.
  std::size_t slots =
      std::min({atoms.x.size(), atoms.y.size(), atoms.z.size(), atoms.mass.size(),
                atoms.atom.size(), atoms.aa.size(), atoms.atomno.size(), atoms.res_nr.size()});
  slots = slots > 0 ? slots - 1 : 0;
  const std::size_t n = no_atom <= 0 ? 0 : std::min(static_cast<std::size_t>(no_atom), slots);

  std::vector<double> coordinates = allocate<double>(3 * n, "coordinates");
  // Radii are written at 1..n and read at 0..n (see below): n + 1 entries,
  // position 0 stays 0.0.
  std::vector<double> radii = allocate<double>(n + 1, "radii");
  std::vector<int> atom_temp = allocate<int>(n + 1, "atom_temp");
  std::vector<int> aa_temp = allocate<int>(n + 1, "aa_temp");
  std::vector<int> atomno_temp = allocate<int>(n + 1, "atomno_temp");
  std::vector<int> res_nr_temp = allocate<int>(n + 1, "res_nr_temp");
  std::vector<double> x_temp = allocate<double>(n + 1, "x_temp");
  std::vector<double> y_temp = allocate<double>(n + 1, "y_temp");
  std::vector<double> z_temp = allocate<double>(n + 1, "z_temp");
  std::vector<double> mass_temp = allocate<double>(n + 1, "mass_temp");

  for (std::size_t i = 1; i <= n; ++i) {
    x_temp[i] = atoms.x[i];
    y_temp[i] = atoms.y[i];
    z_temp[i] = atoms.z[i];
    mass_temp[i] = atoms.mass[i];
    atom_temp[i] = atoms.atom[i];
    aa_temp[i] = atoms.aa[i];
    atomno_temp[i] = atoms.atomno[i];
    res_nr_temp[i] = atoms.res_nr[i];
    radii[i] = get_radius(atoms.atom[i]);
  }
  // Kept deliberately: the radii were stored at 1..n but are enlarged and
  // handed to the surface method at 0..n-1, so sphere k + 1 carries the
  // radius of atom k and the first sphere the probe alone (1.4 + 0.0).
  for (std::size_t k = 0; k < n; ++k) {
    coordinates[3 * k] = atoms.x[k + 1];
    coordinates[3 * k + 1] = atoms.y[k + 1];
    coordinates[3 * k + 2] = atoms.z[k + 1];
    radii[k] = kProbe + radii[k];
  }

  double area = 0.0;
  double volume = 0.0;
  std::vector<double> atomwise_area;
  if (nsc_dclm(coordinates.data(), radii.data(), static_cast<int>(n), kDensity, kMode, area,
               &atomwise_area, &volume, nullptr, nullptr, io) != 0) {
    std::fprintf(io.out, "error occured\n");
    return 1;
  }

  // Keep an atom whose accessible area exceeds half of its bare sphere's
  // area. Kept deliberately: radii[n] was never enlarged, so the last atom's
  // denominator uses its radius minus 1.4 (about zero for a 1.4 A atom: kept
  // whenever its area is positive, dropped when it is zero).
  int kept = 0;
  for (std::size_t i = 1; i <= n; ++i) {
    const double ratio =
        atomwise_area[i - 1] / ((radii[i] - kProbe) * 12.566370616 * (radii[i] - kProbe));
    if (ratio > 0.5) {
      ++kept;
      atoms.x[kept] = x_temp[i];
      atoms.y[kept] = y_temp[i];
      atoms.z[kept] = z_temp[i];
      atoms.mass[kept] = mass_temp[i];
      atoms.atom[kept] = atom_temp[i];
      atoms.aa[kept] = aa_temp[i];
      atoms.atomno[kept] = atomno_temp[i];
      atoms.res_nr[kept] = res_nr_temp[i];
    }
  }
  no_atom = kept;
  return 0;
}

}  // namespace vorn
