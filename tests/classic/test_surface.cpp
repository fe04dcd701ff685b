// The classic surface step: routine_calling_NSC reduces the classic atom
// arrays to the solvent-exposed atoms in place (all eight values of an atom
// move together), bounds the count by the arrays, and reports a failed
// surface method with "error occured" on standard output after the method's
// own block on standard error.
#include <gtest/gtest.h>

#include <array>
#include <cctype>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "capture.hpp"
#include "classic/selection.hpp"
#include "molecule/surface.hpp"

namespace vorn {
namespace {

using test::Capture;

struct Streams {
  Capture out;
  Capture err;
  Io io;
  Streams() {
    io.out = out.file();
    io.err = err.file();
  }
};

std::string warning_block(int line, const std::string& message) {
  return "\n---> WARNING : line " + std::to_string(line) + " in file nsc.c\n" + message +
         " ...!\n\n";
}

using Vec3 = std::array<double, 3>;

struct Atom {
  double x, y, z;
  int type = 1;
};

// Atoms 1..n at the given places; the other values identify the atom, so
// that the pairing of all eight values can be checked after compaction.
AtomArrays make_atoms(const std::vector<Atom>& list) {
  AtomArrays atoms;
  for (size_t k = 0; k < list.size(); ++k) {
    const size_t i = k + 1;
    atoms.x[i] = list[k].x;
    atoms.y[i] = list[k].y;
    atoms.z[i] = list[k].z;
    atoms.mass[i] = 10.0 + static_cast<double>(i);
    atoms.atom[i] = list[k].type;
    atoms.aa[i] = 200 + static_cast<int>(i);
    atoms.atomno[i] = 1000 + static_cast<int>(i);
    atoms.res_nr[i] = 50 + static_cast<int>(i);
  }
  return atoms;
}

void expect_kept(const AtomArrays& atoms, int count, const std::vector<Atom>& list,
                 const std::vector<int>& originals) {
  ASSERT_EQ(count, static_cast<int>(originals.size()));
  for (size_t k = 0; k < originals.size(); ++k) {
    const size_t i = k + 1;
    const int o = originals[k];
    SCOPED_TRACE("kept atom " + std::to_string(i) + " (original " + std::to_string(o) + ")");
    EXPECT_EQ(atoms.x[i], list[o - 1].x);
    EXPECT_EQ(atoms.y[i], list[o - 1].y);
    EXPECT_EQ(atoms.z[i], list[o - 1].z);
    EXPECT_EQ(atoms.mass[i], 10.0 + o);
    EXPECT_EQ(atoms.atom[i], list[o - 1].type);
    EXPECT_EQ(atoms.aa[i], 200 + o);
    EXPECT_EQ(atoms.atomno[i], 1000 + o);
    EXPECT_EQ(atoms.res_nr[i], 50 + o);
  }
}

TEST(ClassicSurface, EmptyListFails) {
  Streams s;
  AtomArrays atoms;
  int n = 0;
  EXPECT_EQ(routine_calling_NSC(n, atoms, s.io), 1);
  EXPECT_EQ(n, 0);
  EXPECT_EQ(s.err.str(), warning_block(603, "nsc_dclm: no surface atoms selected"));
  EXPECT_EQ(s.out.str(), "error occured\n");
}

TEST(ClassicSurface, SingleIsolatedAtomIsKeptThroughTheZeroDenominator) {
  Streams s;
  const std::vector<Atom> list = {{3.0, 4.0, 5.0, 114}};
  AtomArrays atoms = make_atoms(list);
  int n = 1;
  EXPECT_EQ(routine_calling_NSC(n, atoms, s.io), 0);
  expect_kept(atoms, n, list, {1});
  EXPECT_EQ(s.out.str(), "");
  EXPECT_EQ(s.err.str(), "");
}

// Cluster: atom 1 far away, then six outer atoms at 2 A along the axes
// around a middle atom at the origin, which stands after the first
// n_outer_before outer atoms. With spheres of 2.8 A the middle atom is
// buried: a point of it is at most sqrt(7.84 - 11.2/sqrt(3) + 4) = 2.32 A
// from the neighbour on its largest axis component. Each outer atom keeps at
// least the cap facing away (u_x > 0.5 for the +x atom: 24.6 A^2, more than
// half of 4 pi 1.4^2 = 24.6 A^2).
std::vector<Atom> cluster(size_t n_outer_before) {
  std::vector<Atom> outer;
  for (int a = 0; a < 3; ++a) {
    for (double sign : {1.0, -1.0}) {
      Atom p{0, 0, 0, 1};
      (a == 0 ? p.x : a == 1 ? p.y : p.z) = 2.0 * sign;
      outer.push_back(p);
    }
  }
  std::vector<Atom> list = {{40.0, 40.0, 40.0, 1}};
  for (size_t k = 0; k < outer.size(); ++k) {
    if (k == n_outer_before) list.push_back({0.0, 0.0, 0.0, 1});
    list.push_back(outer[k]);
  }
  if (n_outer_before >= outer.size()) list.push_back({0.0, 0.0, 0.0, 1});
  return list;
}

TEST(ClassicSurface, BuriedAtomIsDroppedAndOrderKept) {
  Streams s;
  const std::vector<Atom> list = cluster(2);  // atoms: far, outer, outer, middle, 4 outer
  AtomArrays atoms = make_atoms(list);
  int n = static_cast<int>(list.size());
  ASSERT_EQ(n, 8);
  EXPECT_EQ(routine_calling_NSC(n, atoms, s.io), 0);
  expect_kept(atoms, n, list, {1, 2, 3, 5, 6, 7, 8});
  EXPECT_EQ(s.err.str(), "");
}

TEST(ClassicSurface, BuriedLastAtomIsDropped) {
  Streams s;
  const std::vector<Atom> list = cluster(6);  // the middle atom comes last
  AtomArrays atoms = make_atoms(list);
  int n = 8;
  EXPECT_EQ(routine_calling_NSC(n, atoms, s.io), 0);
  expect_kept(atoms, n, list, {1, 2, 3, 4, 5, 6, 7});
}

// The first sphere is the probe alone (1.4 A): next to a 2.8 A sphere at
// 2 A, points u of it with 4 + 5.6 u_x + 1.96 < 7.84 (u_x < 0.336, 67 % of
// the sphere) are buried, so its ratio is 0.33 and atom 1 is dropped; with a
// 2.8 A sphere it would keep 68 % of 98.5 A^2 and stay.
TEST(ClassicSurface, FirstSphereCarriesOnlyTheProbe) {
  Streams s;
  const std::vector<Atom> list = {{2.0, 0.0, 0.0, 1}, {0.0, 0.0, 0.0, 1}, {30.0, 0.0, 0.0, 1}};
  AtomArrays atoms = make_atoms(list);
  int n = 3;
  EXPECT_EQ(routine_calling_NSC(n, atoms, s.io), 0);
  expect_kept(atoms, n, list, {2, 3});
}

// Atom 2 has type 323 (1.8 A): its radius goes to sphere 3, which becomes
// 3.2 A. Atom 4 sits 0.3 A from atom 3, so its 2.8 A sphere lies wholly
// inside sphere 3 (0.3 + 2.8 < 3.2) and atom 4 is dropped; without the shift
// the two 2.8 A spheres would each keep about half their area.
TEST(ClassicSurface, RadiusGoesToTheNextSphere) {
  Streams s;
  const std::vector<Atom> list = {{-30.0, 0.0, 0.0, 1},
                                  {30.0, 0.0, 0.0, 323},
                                  {0.0, 0.0, 0.0, 1},
                                  {0.3, 0.0, 0.0, 1},
                                  {0.0, 30.0, 0.0, 1}};
  AtomArrays atoms = make_atoms(list);
  int n = 5;
  EXPECT_EQ(routine_calling_NSC(n, atoms, s.io), 0);
  expect_kept(atoms, n, list, {1, 2, 3, 5});
  // Control: the same geometry without the type-323 atom keeps atom 4.
  std::vector<Atom> control = list;
  control[1].type = 1;
  AtomArrays atoms2 = make_atoms(control);
  n = 5;
  EXPECT_EQ(routine_calling_NSC(n, atoms2, s.io), 0);
  expect_kept(atoms2, n, control, {1, 2, 3, 4, 5});
}

// The denominator of an atom other than the last is 4 pi r^2 of its own
// radius: 1.8 A for type 323. Atom 2 (a 2.8 A sphere at the origin) has two
// 2.8 A neighbours at +-0.93 A along x; a point u of it is inside one of
// them when |u_x| > 0.93 / 5.6, so only the band |u_x| <= 0.166 is free:
// 2 pi 2.8 0.93 = 16.4 A^2. That is more than half of 4 pi 1.4^2 (12.3 A^2)
// and less than half of 4 pi 1.8^2 (20.4 A^2). Atom 3 (far away) receives
// the radius of atom 2, so the type of atom 2 does not change its own sphere.
TEST(ClassicSurface, DenominatorUsesTheAtomsOwnRadius) {
  const std::vector<Atom> base = {{-40.0, 0.0, 0.0, 1}, {0.0, 0.0, 0.0, 1},   {0.0, 0.0, 40.0, 1},
                                  {0.93, 0.0, 0.0, 1},  {-0.93, 0.0, 0.0, 1}, {0.0, 40.0, 0.0, 1}};
  Streams s;
  AtomArrays atoms = make_atoms(base);
  int n = 6;
  EXPECT_EQ(routine_calling_NSC(n, atoms, s.io), 0);
  expect_kept(atoms, n, base, {1, 2, 3, 4, 5, 6});
  std::vector<Atom> heavy = base;
  heavy[1].type = 323;
  AtomArrays atoms2 = make_atoms(heavy);
  n = 6;
  EXPECT_EQ(routine_calling_NSC(n, atoms2, s.io), 0);
  expect_kept(atoms2, n, heavy, {1, 3, 4, 5, 6});
  EXPECT_EQ(s.err.str(), "");
}

TEST(ClassicSurface, CountBeyondTheArraysIsBounded) {
  Streams s;
  AtomArrays atoms;
  // Atoms 1..4999 on a 10 A grid: all isolated.
  for (int i = 1; i < kAtomSlots; ++i) {
    atoms.x[i] = 10.0 * (i % 20);
    atoms.y[i] = 10.0 * ((i / 20) % 20);
    atoms.z[i] = 10.0 * (i / 400);
    atoms.atomno[i] = i;
  }
  int n = 100000;
  EXPECT_EQ(routine_calling_NSC(n, atoms, s.io), 0);
  EXPECT_EQ(n, kAtomSlots - 1);  // all isolated: all kept, none read past slot 4999
}

struct PdbAtom {
  std::string name;
  int serial, res_nr;
  Vec3 p;
};

// Minimal reader of the ATOM records of the test structure; hydrogens
// (names starting with H, or a digit followed by H) are left out.
std::vector<PdbAtom> read_heavy_atoms(const std::string& path) {
  std::vector<PdbAtom> atoms;
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind("ATOM", 0) != 0) continue;
    char name[16] = {0}, res[16] = {0};
    PdbAtom a;
    if (std::sscanf(line.c_str(), "ATOM %d %15s %15s %d %lf %lf %lf", &a.serial, name, res,
                    &a.res_nr, &a.p[0], &a.p[1], &a.p[2]) != 7) {
      continue;
    }
    a.name = name;
    const bool hydrogen =
        a.name[0] == 'H' || (a.name.size() > 1 && std::isdigit(a.name[0]) && a.name[1] == 'H');
    if (!hydrogen) atoms.push_back(a);
  }
  return atoms;
}

// The classic step keeps exactly the atoms that the engine's surface rule
// selects, in order, with all eight values of each atom.
TEST(ClassicSurface, UbiquitinHeavyAtomsAsTheEngineSelects) {
  const std::vector<PdbAtom> pdb = read_heavy_atoms(test::data_path("structures/ubq_1d3z_m1.pdb"));
  ASSERT_EQ(pdb.size(), 602u);
  const int n = static_cast<int>(pdb.size());
  std::vector<Atom> list;
  for (const PdbAtom& a : pdb) list.push_back({a.p[0], a.p[1], a.p[2], a.name == "MG" ? 323 : 1});
  AtomArrays atoms = make_atoms(list);
  int kept = n;
  Streams s;
  ASSERT_EQ(routine_calling_NSC(kept, atoms, s.io), 0);
  EXPECT_EQ(s.out.str(), "");
  EXPECT_EQ(s.err.str(), "");

  std::vector<double> x, y, z;
  std::vector<int> types;
  for (const Atom& a : list) {
    x.push_back(a.x);
    y.push_back(a.y);
    z.push_back(a.z);
    types.push_back(a.type);
  }
  std::vector<std::size_t> engine;
  ASSERT_EQ(surface_atom_indices(x, y, z, types, engine, Log{}), 0);
  std::vector<int> originals;
  for (const std::size_t k : engine) originals.push_back(static_cast<int>(k) + 1);
  EXPECT_GT(kept, 0);
  EXPECT_LT(kept, n);
  expect_kept(atoms, kept, list, originals);
}

}  // namespace
}  // namespace vorn
