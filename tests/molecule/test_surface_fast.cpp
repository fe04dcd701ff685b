// The surface-atom selection from decisions alone (surface_atom_indices,
// built on nsc_exposed_spheres) against the selection from the full areas of
// nsc_dclm (surface_atom_indices_reference): the same kept indices, return
// values and messages on real structures, random clouds and degenerate sets;
// and nsc_exposed_spheres against the areas of nsc_dclm under other radii,
// rules and densities.
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

#include "capture.hpp"
#include "molecule/nsc.hpp"
#include "molecule/surface.hpp"
#include "molecule/toppar.hpp"

namespace vorn {
namespace {

using test::Capture;

struct Atoms {
  std::vector<double> x, y, z;
  std::vector<int> types;
  std::size_t size() const { return x.size(); }
  void add(double px, double py, double pz, int type) {
    x.push_back(px);
    y.push_back(py);
    z.push_back(pz);
    types.push_back(type);
  }
};

std::string trim(const std::string& s) {
  const std::size_t a = s.find_first_not_of(' ');
  if (a == std::string::npos) return "";
  const std::size_t b = s.find_last_not_of(' ');
  return s.substr(a, b - a + 1);
}

// Models of a fixed-column PDB file: coordinates in columns 31-38, 39-46 and
// 47-54, the atom name in 13-16, the element in 77-78.
std::vector<Atoms> read_fixed_models(const std::string& path, bool with_hydrogens) {
  std::vector<Atoms> models;
  std::ifstream in(path);
  std::string line;
  Atoms current;
  bool open = false;
  while (std::getline(in, line)) {
    if (line.rfind("MODEL", 0) == 0) {
      current = Atoms{};
      open = true;
    } else if (line.rfind("ENDMDL", 0) == 0) {
      models.push_back(current);
      open = false;
    } else if (line.rfind("ATOM", 0) == 0 && line.size() >= 78) {
      if (!with_hydrogens && trim(line.substr(76, 2)) == "H") continue;
      current.add(std::stod(line.substr(30, 8)), std::stod(line.substr(38, 8)),
                  std::stod(line.substr(46, 8)), atom_type_index(trim(line.substr(12, 4))));
    }
  }
  if (open) models.push_back(current);
  return models;
}

// ATOM records in the blank-separated layout
// `ATOM serial name resname resnum x y z`; hydrogens are the names starting
// with H or with a digit then H.
Atoms read_blank_separated(const std::string& path, bool with_hydrogens) {
  Atoms atoms;
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind("ATOM", 0) != 0) continue;
    int serial = 0, res_nr = 0;
    char name[16] = {0}, res[16] = {0};
    double x = 0, y = 0, z = 0;
    if (std::sscanf(line.c_str(), "ATOM %d %15s %15s %d %lf %lf %lf", &serial, name, res, &res_nr,
                    &x, &y, &z) != 7) {
      continue;
    }
    const bool hydrogen = name[0] == 'H' || (name[0] >= '0' && name[0] <= '9' && name[1] == 'H');
    if (hydrogen && !with_hydrogens) continue;
    atoms.add(x, y, z, atom_type_index(name));
  }
  return atoms;
}

Log capture_log(Capture& out, Capture& err) {
  Log log;
  log.listing = [f = out.file()](std::string_view t) { std::fwrite(t.data(), 1, t.size(), f); };
  log.warning = [f = err.file()](std::string_view t) { std::fwrite(t.data(), 1, t.size(), f); };
  return log;
}

struct Selection {
  int status = -1;
  std::vector<std::size_t> kept;
  std::string out, err;
};

Selection run_fast(const Atoms& a) {
  Capture out, err;
  Selection s;
  s.kept = {12345};  // cleared by the call
  s.status = surface_atom_indices(a.x, a.y, a.z, a.types, s.kept, capture_log(out, err));
  s.out = out.str();
  s.err = err.str();
  return s;
}

Selection run_reference(const Atoms& a) {
  Capture out, err;
  Selection s;
  s.kept = {12345};
  s.status = surface_atom_indices_reference(a.x, a.y, a.z, a.types, s.kept, capture_log(out, err));
  s.out = out.str();
  s.err = err.str();
  return s;
}

// Both selections agree; returns the number of kept atoms.
std::size_t expect_same_selection(const Atoms& a, const std::string& what) {
  const Selection ref = run_reference(a);
  const Selection fast = run_fast(a);
  EXPECT_EQ(fast.status, ref.status) << what;
  EXPECT_EQ(fast.kept, ref.kept) << what;
  EXPECT_EQ(fast.out, ref.out) << what;
  EXPECT_EQ(fast.err, ref.err) << what;
  return ref.kept.size();
}

// Deterministic generator (SplitMix64) for the random inputs.
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}
  std::uint64_t next() {
    std::uint64_t z = (state_ += 0x9e3779b97f4a7c15ULL);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    return z ^ (z >> 31);
  }
  double uniform() { return static_cast<double>(next() >> 11) * 0x1.0p-53; }  // [0, 1)
  double uniform(double lo, double hi) { return lo + (hi - lo) * uniform(); }
  int type() { return next() % 7 == 0 ? 323 : 1; }

 private:
  std::uint64_t state_;
};

// ---------------------------------------------------------------------------
// Real structures.

TEST(SurfaceFast, EveryModelOfTheNmrBundleHeavyAtoms) {
  const std::vector<Atoms> models =
      read_fixed_models(test::data_path("raw/1D3Z_raw_10models.pdb"), false);
  ASSERT_EQ(models.size(), 10u);
  for (std::size_t m = 0; m < models.size(); ++m) {
    ASSERT_EQ(models[m].size(), 602u);
    const std::size_t kept = expect_same_selection(models[m], "model " + std::to_string(m + 1));
    // A real protein: part of its atoms are buried, part exposed.
    EXPECT_GT(kept, 100u);
    EXPECT_LT(kept, 400u);
  }
}

TEST(SurfaceFast, EveryModelOfTheNmrBundleWithHydrogens) {
  const std::vector<Atoms> models =
      read_fixed_models(test::data_path("raw/1D3Z_raw_10models.pdb"), true);
  ASSERT_EQ(models.size(), 10u);
  for (std::size_t m = 0; m < models.size(); ++m) {
    ASSERT_GT(models[m].size(), 1200u);
    expect_same_selection(models[m], "model " + std::to_string(m + 1));
  }
}

TEST(SurfaceFast, PentamerRnaAndComplex) {
  const struct {
    const char* file;
    std::size_t heavy;
  } cases[] = {{"structures/pln_1zll_pentamer_m1.pdb", 2110},
               {"structures/rna_6tph_chainB_m1.pdb", 0},
               {"structures/unc18_stx1_2xhe_xray.pdb", 0}};
  for (const auto& c : cases) {
    for (const bool with_h : {false, true}) {
      const Atoms atoms = read_blank_separated(test::data_path(c.file), with_h);
      ASSERT_GT(atoms.size(), 400u) << c.file;
      if (!with_h && c.heavy != 0) {
        EXPECT_EQ(atoms.size(), c.heavy);
      }
      expect_same_selection(atoms, std::string(c.file) + (with_h ? " with H" : " heavy"));
    }
  }
}

TEST(SurfaceFast, ComplexHasItsFullAtomCount) {
  const Atoms atoms =
      read_blank_separated(test::data_path("structures/unc18_stx1_2xhe_xray.pdb"), true);
  EXPECT_EQ(atoms.size(), 6267u);
}

// ---------------------------------------------------------------------------
// Random clouds, from isolated atoms to far denser than any molecule.

TEST(SurfaceFast, RandomCloudsOfVariousDensities) {
  Random rng(20240611);
  const double spacings[] = {8.0, 4.0, 2.6, 2.0, 1.5, 1.0, 0.6, 0.3};
  for (const double a : spacings) {
    for (int rep = 0; rep < 3; ++rep) {
      const int n = 50 + static_cast<int>(rng.next() % 400);
      const double side = a * std::cbrt(static_cast<double>(n));
      Atoms atoms;
      for (int i = 0; i < n; ++i) {
        atoms.add(rng.uniform(0, side), rng.uniform(0, side), rng.uniform(0, side), rng.type());
      }
      expect_same_selection(atoms, "spacing " + std::to_string(a) + " n " + std::to_string(n));
    }
  }
}

// Flat and elongated clouds: lattices of very different shapes.
TEST(SurfaceFast, RandomSlabsAndRods) {
  Random rng(77);
  for (int rep = 0; rep < 6; ++rep) {
    Atoms slab, rod;
    for (int i = 0; i < 300; ++i) {
      slab.add(rng.uniform(0, 40), rng.uniform(0, 40), rng.uniform(0, 2), rng.type());
      rod.add(rng.uniform(0, 3), rng.uniform(0, 3), rng.uniform(0, 200), rng.type());
    }
    expect_same_selection(slab, "slab " + std::to_string(rep));
    expect_same_selection(rod, "rod " + std::to_string(rep));
  }
}

// Atoms on a lattice along the dot directions: offsets parallel to the
// coordinate axes and diagonals, at distances where a neighbour's cap is
// tiny, exactly touching, or just overlapping.
TEST(SurfaceFast, LatticeAlignedNearTangentNeighbours) {
  for (const double spacing : {5.6, 5.6 - 1e-12, 5.59, 5.0, 4.2, 3.2 + 2.8 - 1e-9, 2.8, 1.0}) {
    Atoms atoms;
    for (int i = 0; i < 5; ++i) {
      for (int j = 0; j < 5; ++j) {
        for (int k = 0; k < 5; ++k) atoms.add(spacing * i, spacing * j, spacing * k, 1);
      }
    }
    // A second shape: atoms along a body diagonal and an axis.
    for (int i = 1; i <= 6; ++i) atoms.add(100.0 + spacing * i, 100.0, 100.0, i % 3 == 0 ? 323 : 1);
    const double diag = spacing / std::sqrt(3.0);
    for (int i = 1; i <= 6; ++i) atoms.add(-100.0 + diag * i, diag * i, diag * i, 1);
    expect_same_selection(atoms, "spacing " + std::to_string(spacing));
  }
}

// Pairs at random directions, at distances within a few ulps of the sum of
// the radii (tiny caps, t close to 1).
TEST(SurfaceFast, RandomNearTangentPairs) {
  Random rng(5);
  Atoms atoms;
  for (int i = 0; i < 200; ++i) {
    const double cx = 40.0 * (i % 10), cy = 40.0 * (i / 10), cz = 0.0;
    double ux = rng.uniform(-1, 1), uy = rng.uniform(-1, 1), uz = rng.uniform(-1, 1);
    const double len = std::sqrt(ux * ux + uy * uy + uz * uz);
    ux /= len;
    uy /= len;
    uz /= len;
    // Spheres of 2.8 A: centres 5.6 A apart less a tiny gap.
    const double gap = std::ldexp(1.0, -static_cast<int>(rng.next() % 50));
    const double d = 5.6 - gap;
    atoms.add(cx, cy, cz, 1);
    atoms.add(cx + d * ux, cy + d * uy, cz + d * uz, 1);
    atoms.add(cx - d * uy, cy + d * ux, cz, 1);
  }
  expect_same_selection(atoms, "near-tangent pairs");
}

// ---------------------------------------------------------------------------
// Degenerate sets.

TEST(SurfaceFast, EmptyListFailsWithTheSameMessage) {
  const Atoms none;
  const Selection ref = run_reference(none);
  const Selection fast = run_fast(none);
  EXPECT_EQ(ref.status, 1);
  EXPECT_EQ(fast.status, 1);
  EXPECT_TRUE(fast.kept.empty());
  EXPECT_EQ(fast.err, ref.err);
  EXPECT_NE(fast.err.find("nsc_dclm: no surface atoms selected"), std::string::npos);
}

TEST(SurfaceFast, SingleAtomAndSmallSets) {
  for (const int type : {1, 323}) {
    Atoms one;
    one.add(1.0, 2.0, 3.0, type);
    EXPECT_EQ(expect_same_selection(one, "single atom"), 1u);
    Atoms two = one;
    two.add(1.5, 2.0, 3.0, type);
    expect_same_selection(two, "two atoms");
    Atoms far = one;
    far.add(100.0, 2.0, 3.0, 1);
    expect_same_selection(far, "two distant atoms");
  }
}

TEST(SurfaceFast, CoincidentAtoms) {
  // All atoms at one point, with both radii: concentric spheres.
  for (const int n : {2, 3, 10, 40}) {
    Atoms same;
    for (int i = 0; i < n; ++i) same.add(5.0, 5.0, 5.0, i % 3 == 1 ? 323 : 1);
    expect_same_selection(same, "coincident " + std::to_string(n));
  }
  // Duplicated atoms inside a cloud.
  Random rng(11);
  Atoms cloud;
  for (int i = 0; i < 120; ++i) {
    const double x = rng.uniform(0, 15), y = rng.uniform(0, 15), z = rng.uniform(0, 15);
    const int copies = 1 + static_cast<int>(rng.next() % 3);
    for (int c = 0; c < copies; ++c) cloud.add(x, y, z, rng.type());
  }
  expect_same_selection(cloud, "cloud with duplicates");
  // Offsets so small that their squares underflow.
  Atoms tiny;
  tiny.add(0.0, 0.0, 0.0, 1);
  tiny.add(1e-170, 0.0, 0.0, 323);
  tiny.add(0.0, 1e-200, 1e-300, 1);
  tiny.add(2.0, 0.0, 0.0, 1);
  tiny.add(2.0, 3e-160, 0.0, 323);
  expect_same_selection(tiny, "underflowing offsets");
}

// The quirks of the selection: the first sphere carries the probe alone, the
// radius of type 323 goes to the next sphere, the last denominator is about
// zero (1.4 A) or not (1.8 A).
TEST(SurfaceFast, RadiusShiftAndLastDenominator) {
  Random rng(3);
  for (int rep = 0; rep < 20; ++rep) {
    Atoms atoms;
    const int n = 2 + static_cast<int>(rng.next() % 12);
    for (int i = 0; i < n; ++i) {
      atoms.add(rng.uniform(0, 4), rng.uniform(0, 4), rng.uniform(0, 4), rng.type());
    }
    atoms.types.back() = rep % 2 == 0 ? 323 : 1;
    expect_same_selection(atoms, "small cluster " + std::to_string(rep));
  }
}

TEST(SurfaceFast, HugeCoordinates) {
  Random rng(9);
  for (const double scale : {1e6, 1e12, 1e15, 1e100, 1e300}) {
    Atoms atoms;
    for (int i = 0; i < 60; ++i) {
      const double base = scale * (i % 4);
      atoms.add(base + rng.uniform(0, 8), rng.uniform(0, 8) - base, rng.uniform(0, 8), rng.type());
    }
    expect_same_selection(atoms, "scale " + std::to_string(scale));
  }
  Atoms extreme;
  extreme.add(1.7e308, 0.0, 0.0, 1);
  extreme.add(-1.7e308, 0.0, 0.0, 1);
  extreme.add(0.0, 0.0, 0.0, 1);
  extreme.add(1.0, 0.0, 0.0, 1);
  expect_same_selection(extreme, "coordinates near the largest double");
}

TEST(SurfaceFast, NonFiniteCoordinates) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  Random rng(13);
  for (const double bad : {nan, inf, -inf}) {
    for (const int where : {0, 7, 29}) {
      Atoms atoms;
      for (int i = 0; i < 30; ++i) {
        atoms.add(rng.uniform(0, 10), rng.uniform(0, 10), rng.uniform(0, 10), rng.type());
      }
      atoms.x[where] = bad;
      atoms.z[(where + 3) % 30] = bad;
      expect_same_selection(atoms, "non-finite at " + std::to_string(where));
    }
  }
}

// ---------------------------------------------------------------------------
// nsc_exposed_spheres against the areas of nsc_dclm, with radii and rules
// other than the selection's.

std::vector<double> reference_areas(const std::vector<double>& co, const std::vector<double>& r,
                                    int densit) {
  double area = 0.0;
  std::vector<double> at_area;
  EXPECT_EQ(nsc_dclm(co.data(), r.data(), static_cast<int>(r.size()), densit, kNscAtomArea, area,
                     &at_area, nullptr, nullptr, nullptr, Log{}),
            0);
  return at_area;
}

TEST(SurfaceFastSpheres, ThresholdRulesAtSeveralDensities) {
  Random rng(21);
  for (const int densit : {30, 300, 700, 1500}) {
    for (int rep = 0; rep < 4; ++rep) {
      const std::size_t n = 150;
      std::vector<double> co, r;
      for (std::size_t i = 0; i < n; ++i) {
        for (int a = 0; a < 3; ++a) co.push_back(rng.uniform(0, 14));
        // Mostly ordinary radii, some zero or negative (no surface).
        const double pick = rng.uniform();
        r.push_back(pick < 0.05 ? 0.0 : pick < 0.08 ? -1.0 : rng.uniform(0.5, 3.5));
      }
      const std::vector<double> areas = reference_areas(co, r, densit);
      ASSERT_EQ(areas.size(), n);
      // Per-sphere thresholds on the area, including ones met exactly.
      std::vector<double> threshold(n);
      for (std::size_t i = 0; i < n; ++i) {
        const double pick = rng.uniform();
        threshold[i] = pick < 0.2   ? areas[i]
                       : pick < 0.3 ? -1.0
                                    : rng.uniform(0.0, 4.0 * 3.1416 * 3.5 * 3.5);
      }
      for (const bool strict : {false, true}) {
        const NscAreaRule rule = [&](std::size_t i, double area) {
          return strict ? area > threshold[i] : area >= threshold[i];
        };
        std::vector<char> exposed;
        ASSERT_EQ(nsc_exposed_spheres(co.data(), r.data(), static_cast<int>(n), densit, rule,
                                      exposed, Log{}),
                  0);
        ASSERT_EQ(exposed.size(), n);
        int disagreements = 0;
        for (std::size_t i = 0; i < n; ++i) {
          disagreements += (exposed[i] != 0) != rule(i, areas[i]) ? 1 : 0;
        }
        EXPECT_EQ(disagreements, 0) << "density " << densit << " rep " << rep;
      }
    }
  }
}

// Whether sphere 0 of the two keeps every dot free, by nsc_dclm and by the
// decision at exactly the full area.
void expect_full_area_both_ways(const std::vector<double>& co, const std::vector<double>& r) {
  const std::vector<double> areas = reference_areas(co, r, 700);
  const int n_dot = nsc_dot_cache().n_dot;
  const double full = r[0] * r[0] * n_dot * (12.566370614359172 / n_dot);
  ASSERT_EQ(areas[0], full);
  std::vector<char> exposed;
  ASSERT_EQ(nsc_exposed_spheres(
                co.data(), r.data(), 2, 700,
                [&](std::size_t i, double area) { return i == 0 ? area >= full : false; }, exposed,
                Log{}),
            0);
  EXPECT_EQ(exposed[0], 1);
}

// Caps so small that rounding decides. (1) t one ulp below 1: the dot
// (0, 0, 1) passes the dot test of the neighbour, but lies in a dot-lattice
// cell (x = 0 starts cell 2) outside the neighbour's cell box (its x range
// ends 1e-10 below 0, in cell 1), so nsc_dclm leaves it free. (2) t rounds
// to 1: nsc_dclm skips the neighbour although its dot test would bury
// (0, 0, 1).
TEST(SurfaceFastSpheres, RoundingAtTinyCapsFollowsTheReference) {
  {
    const std::vector<double> co = {0.0, 0.0, 0.0, -1.6e-8, 0.0, 1.0};
    const std::vector<double> r = {2.0, 1.0000000000000002};
    const double dx = co[3], dy = co[4], dz = co[5];
    const double dd = dx * dx + dy * dy + dz * dz;
    const double d = std::sqrt(dd);
    const double dot = (dd + r[0] * r[0] - r[1] * r[1]) / (2.0 * r[0]);
    ASSERT_LT(dot / d, 1.0);
    ASSERT_GT(0.0 * dx + 0.0 * dy + 1.0 * dz, dot);
    expect_full_area_both_ways(co, r);
  }
  {
    // The neighbour sits at a dot u of the set (offset u, so the dot test
    // reads u . u > dot), inside sphere 0 and nearly touching it there; its
    // radius is searched ulp by ulp.
    (void)reference_areas({0.0, 0.0, 0.0}, {1.0}, 700);
    const NscDotCache& g = nsc_dot_cache();
    bool found = false;
    for (int p = 0; p < g.n_dot && !found; ++p) {
      const double* u = &g.xpunsp[3 * static_cast<std::size_t>(p)];
      const double dd = u[0] * u[0] + u[1] * u[1] + u[2] * u[2];
      const double d = std::sqrt(dd);
      double rj = 2.0 - d;
      for (int k = 0; k < 3; ++k) rj = std::nextafter(rj, 0.0);
      for (int k = 0; k < 8 && !found; ++k, rj = std::nextafter(rj, 4.0)) {
        const double dot = (dd + 2.0 * 2.0 - rj * rj) / (2.0 * 2.0);
        if (dot / d >= 1.0 && u[0] * u[0] + u[1] * u[1] + u[2] * u[2] > dot) {
          found = true;
          expect_full_area_both_ways({0.0, 0.0, 0.0, u[0], u[1], u[2]}, {2.0, rj});
        }
      }
    }
    EXPECT_TRUE(found);
  }
}

// Offsets far below an angstrom but with normal squares: caps computed from
// tiny distances.
TEST(SurfaceFastSpheres, TinyOffsets) {
  for (const double tiny : {1e-50, 1e-120, 1e-150, 1e-160}) {
    const std::vector<double> co = {0.0, 0.0, 0.0, tiny, 0.0, 0.0, 0.0, tiny, 0.0, 3.0, 0.0, 0.0};
    const std::vector<double> r = {2.8, 2.8, 2.8, 2.8};
    const std::vector<double> areas = reference_areas(co, r, 700);
    for (std::size_t k = 0; k < r.size(); ++k) {
      std::vector<char> exposed;
      ASSERT_EQ(nsc_exposed_spheres(
                    co.data(), r.data(), 4, 700,
                    [&](std::size_t i, double area) { return area >= areas[i]; }, exposed, Log{}),
                0);
      EXPECT_EQ(exposed, (std::vector<char>{1, 1, 1, 1})) << tiny;
      ASSERT_EQ(nsc_exposed_spheres(
                    co.data(), r.data(), 4, 700,
                    [&](std::size_t i, double area) { return area > areas[i]; }, exposed, Log{}),
                0);
      EXPECT_EQ(exposed, (std::vector<char>{0, 0, 0, 0})) << tiny;
    }
  }
}

TEST(SurfaceFastSpheres, UsesTheSameCachedDotSet) {
  const std::vector<double> co = {0, 0, 0, 2, 0, 0};
  const std::vector<double> r = {2.8, 2.8};
  (void)reference_areas(co, r, 700);
  const long builds = nsc_dot_cache().builds;
  std::vector<char> exposed;
  const NscAreaRule any = [](std::size_t, double area) { return area > 0.0; };
  ASSERT_EQ(nsc_exposed_spheres(co.data(), r.data(), 2, 700, any, exposed, Log{}), 0);
  EXPECT_EQ(nsc_dot_cache().builds, builds);
  EXPECT_EQ(exposed, (std::vector<char>{1, 1}));
  // Another density rebuilds the set, as nsc_dclm does.
  ASSERT_EQ(nsc_exposed_spheres(co.data(), r.data(), 2, 200, any, exposed, Log{}), 0);
  EXPECT_EQ(nsc_dot_cache().builds, builds + 1);
  EXPECT_EQ(nsc_dot_cache().last_densit, 200);
}

TEST(SurfaceFastSpheres, RuleThatNeverOrAlwaysHolds) {
  const std::vector<double> co = {0, 0, 0, 1, 0, 0, 0, 30, 0};
  const std::vector<double> r = {2.8, 2.8, 1.4};
  std::vector<char> exposed;
  ASSERT_EQ(
      nsc_exposed_spheres(
          co.data(), r.data(), 3, 700, [](std::size_t, double) { return false; }, exposed, Log{}),
      0);
  EXPECT_EQ(exposed, (std::vector<char>{0, 0, 0}));
  ASSERT_EQ(
      nsc_exposed_spheres(
          co.data(), r.data(), 3, 700, [](std::size_t, double) { return true; }, exposed, Log{}),
      0);
  EXPECT_EQ(exposed, (std::vector<char>{1, 1, 1}));
}

}  // namespace
}  // namespace vorn
