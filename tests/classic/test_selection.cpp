// Tests of the atom selection: proton, residue and atom-type filters, the
// prompts, and the surface step.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "capture.hpp"
#include "classic/selection.hpp"
#include "core/fatal.hpp"

namespace vorn {
namespace {

using test::Capture;
using test::Input;

// Atoms 1..n with the given type and residue number; every other value is
// derived from the atom's original position, so that the pairing of the eight
// values can be checked after any compaction.
AtomArrays make_atoms(const std::vector<int>& types, const std::vector<int>& residues) {
  AtomArrays atoms;
  for (size_t k = 0; k < types.size(); ++k) {
    const int i = static_cast<int>(k) + 1;
    atoms.x[i] = i + 0.1;
    atoms.y[i] = i + 0.2;
    atoms.z[i] = i + 0.3;
    atoms.mass[i] = i * 1.5;
    atoms.atom[i] = types[k];
    atoms.aa[i] = 100 + i;
    atoms.atomno[i] = 1000 + i;
    atoms.res_nr[i] = residues[k];
  }
  return atoms;
}

// The atoms 1..count must be the original atoms `originals`, in this order,
// with all eight values of each.
void expect_atoms(const AtomArrays& atoms, int count, const std::vector<int>& originals,
                  const std::vector<int>& types, const std::vector<int>& residues) {
  ASSERT_EQ(count, static_cast<int>(originals.size()));
  for (int i = 1; i <= count; ++i) {
    const int o = originals[i - 1];
    EXPECT_EQ(atoms.x[i], o + 0.1) << i;
    EXPECT_EQ(atoms.y[i], o + 0.2) << i;
    EXPECT_EQ(atoms.z[i], o + 0.3) << i;
    EXPECT_EQ(atoms.mass[i], o * 1.5) << i;
    EXPECT_EQ(atoms.atom[i], types[o - 1]) << i;
    EXPECT_EQ(atoms.aa[i], 100 + o) << i;
    EXPECT_EQ(atoms.atomno[i], 1000 + o) << i;
    EXPECT_EQ(atoms.res_nr[i], residues[o - 1]) << i;
  }
}

std::vector<int> list(const std::vector<int>& entries) {
  std::vector<int> select(kSelectSlots + 1, 0);
  for (size_t k = 0; k < entries.size(); ++k) {
    select[k + 1] = entries[k];
  }
  return select;
}

// Types: C, the last heavy index, the first hydrogen index, HN, CA, a
// digit-first hydrogen, OXT, X, N.
const std::vector<int> kTypes = {1, 328, 329, 551, 114, 1000, -1, 0, 211};
const std::vector<int> kResidues = {1, 1, 2, 2, 3, 3, 4, 5, 5};

TEST(RemoveProtons, Keeps328AndRemoves329) {
  AtomArrays atoms = make_atoms(kTypes, kResidues);
  const int n = remove_protons(9, atoms);
  expect_atoms(atoms, n, {1, 2, 5, 7, 8, 9}, kTypes, kResidues);
}

TEST(RemoveProtons, EmptyAndNegativeCounts) {
  AtomArrays atoms = make_atoms(kTypes, kResidues);
  EXPECT_EQ(remove_protons(0, atoms), 0);
  EXPECT_EQ(remove_protons(-4, atoms), 0);
  expect_atoms(atoms, 9, {1, 2, 3, 4, 5, 6, 7, 8, 9}, kTypes, kResidues);
}

TEST(RemoveProtons, CountBeyondTheArraysIsBounded) {
  AtomArrays atoms;
  for (int i = 1; i < kAtomSlots; ++i) {
    atoms.atom[i] = i % 2 == 0 ? 329 : 1;
  }
  // Only 1..4999 are looked at: the 2500 odd indices are kept.
  EXPECT_EQ(remove_protons(1000000, atoms), 2500);
}

TEST(RemoveResidues, ListedResiduesAreRemovedInOrder) {
  AtomArrays atoms = make_atoms(kTypes, kResidues);
  const int n = remove_residues(9, atoms, 2, list({5, 2}));
  expect_atoms(atoms, n, {1, 2, 5, 6, 7}, kTypes, kResidues);
}

TEST(RemoveResidues, ResidueNumbersNotListPositionsAreCompared) {
  AtomArrays atoms = make_atoms(kTypes, kResidues);
  // Entry 1 is residue number 4, not the first residue of the list.
  const int n = remove_residues(9, atoms, 1, list({4}));
  expect_atoms(atoms, n, {1, 2, 3, 4, 5, 6, 8, 9}, kTypes, kResidues);
}

TEST(RemoveResidues, AbsentResidueKeepsEveryAtom) {
  AtomArrays atoms = make_atoms(kTypes, kResidues);
  const int n = remove_residues(9, atoms, 1, list({99}));
  expect_atoms(atoms, n, {1, 2, 3, 4, 5, 6, 7, 8, 9}, kTypes, kResidues);
}

TEST(RemoveResidues, EmptyListRemovesEveryAtom) {
  AtomArrays atoms = make_atoms(kTypes, kResidues);
  EXPECT_EQ(remove_residues(9, atoms, 0, list({})), 0);
}

TEST(RemoveResidues, CountBeyondTheListIsBounded) {
  AtomArrays atoms = make_atoms(kTypes, kResidues);
  const std::vector<int> short_list = {0, 3};  // one entry
  const int n = remove_residues(9, atoms, 400, short_list);
  expect_atoms(atoms, n, {1, 2, 3, 4, 7, 8, 9}, kTypes, kResidues);
  EXPECT_EQ(remove_residues(n, atoms, 5, std::vector<int>{}), 0);
}

TEST(SelectAtomtypes, ListedTypesAreKeptInOrder) {
  AtomArrays atoms = make_atoms(kTypes, kResidues);
  // Indices of the table: 211 N, 114 CA, -1 OXT; 2 occurs nowhere.
  const int n = select_atomtypes(9, atoms, 4, list({211, 114, -1, 2}));
  expect_atoms(atoms, n, {5, 7, 9}, kTypes, kResidues);
}

TEST(SelectAtomtypes, EmptyListRemovesEveryAtom) {
  AtomArrays atoms = make_atoms(kTypes, kResidues);
  EXPECT_EQ(select_atomtypes(9, atoms, 0, list({})), 0);
}

// A stand-in for the surface step that records its calls and drops the last
// atom, so that its result is visible.
struct SurfaceLog {
  int calls = 0;
  int count_seen = -1;
  int result = 0;
};
SurfaceLog surface_log;

int fake_surface(int& no_atom, AtomArrays& /*atoms*/, Io& /*io*/) {
  ++surface_log.calls;
  surface_log.count_seen = no_atom;
  if (no_atom > 0) {
    --no_atom;
  }
  return surface_log.result;
}

struct Outcome {
  int count;
  std::string out;
};

Outcome run_selection(const Settings& settings, const std::string& input, AtomArrays& atoms,
                      SurfaceStep surface = &fake_surface) {
  surface_log = SurfaceLog{};
  Input in(input);
  Capture out;
  Capture err;
  Io io{in.file(), out.file(), err.file()};
  const int count = select_atoms(9, atoms, settings, io, surface);
  EXPECT_EQ(err.str(), "");
  return {count, out.str()};
}

const char* const kResiduePrompts =
    "Number of residues which should be excluded: Residues which should be excluded: ";
const char* const kTypePrompts =
    "Number of atom types which should be taken into account: "
    "Indices for atom types which should be taken into account: ";

TEST(SelectAtoms, DefaultsRemoveProtonsThenTakeTheSurfaceWithoutPrompts) {
  AtomArrays atoms = make_atoms(kTypes, kResidues);
  const Settings settings;
  ASSERT_EQ(settings.H_flag, 0);
  ASSERT_EQ(settings.select_flag, 0);
  const Outcome r = run_selection(settings, "", atoms);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(surface_log.calls, 1);
  EXPECT_EQ(surface_log.count_seen, 6);
  // The surface step's count is the result.
  expect_atoms(atoms, r.count, {1, 2, 5, 7, 8}, kTypes, kResidues);
}

TEST(SelectAtoms, ProtonsKeptWhenAsked) {
  AtomArrays atoms = make_atoms(kTypes, kResidues);
  Settings settings;
  settings.H_flag = 1;
  settings.select_flag = 3;  // no selection at all
  const Outcome r = run_selection(settings, "", atoms);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(surface_log.calls, 0);
  expect_atoms(atoms, r.count, {1, 2, 3, 4, 5, 6, 7, 8, 9}, kTypes, kResidues);
}

TEST(SelectAtoms, OtherFlagOnlyRemovesProtons) {
  AtomArrays atoms = make_atoms(kTypes, kResidues);
  Settings settings;
  settings.select_flag = 7;
  const Outcome r = run_selection(settings, "1\n2\n", atoms);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(surface_log.calls, 0);
  expect_atoms(atoms, r.count, {1, 2, 5, 7, 8, 9}, kTypes, kResidues);
}

TEST(SelectAtoms, Flag1ExcludesResiduesWithEchoThenTakesTheSurface) {
  AtomArrays atoms = make_atoms(kTypes, kResidues);
  Settings settings;
  settings.select_flag = 1;
  const Outcome r = run_selection(settings, "2\n 5\n1\n", atoms);
  EXPECT_EQ(r.out, std::string(kResiduePrompts) + "5  1  \n");
  EXPECT_EQ(surface_log.calls, 1);
  EXPECT_EQ(surface_log.count_seen, 2);  // atoms 5 and 7 are left
  expect_atoms(atoms, r.count, {5}, kTypes, kResidues);
}

TEST(SelectAtoms, Flag2KeepsAtomTypesWithoutEchoOrSurface) {
  AtomArrays atoms = make_atoms(kTypes, kResidues);
  Settings settings;
  settings.select_flag = 2;
  const Outcome r = run_selection(settings, "3\n114 211 1\n", atoms);
  EXPECT_EQ(r.out, kTypePrompts);
  EXPECT_EQ(surface_log.calls, 0);
  expect_atoms(atoms, r.count, {1, 5, 9}, kTypes, kResidues);
}

TEST(SelectAtoms, Flag12ExcludesResiduesThenKeepsTypes) {
  AtomArrays atoms = make_atoms(kTypes, kResidues);
  Settings settings;
  settings.select_flag = 12;
  const Outcome r = run_selection(settings, "1\n5\n2 114 1", atoms);
  EXPECT_EQ(r.out, std::string(kResiduePrompts) + "5  \n" + kTypePrompts);
  EXPECT_EQ(surface_log.calls, 0);
  expect_atoms(atoms, r.count, {1, 5}, kTypes, kResidues);
}

TEST(SelectAtoms, EmptyExclusionListRemovesEverything) {
  AtomArrays atoms = make_atoms(kTypes, kResidues);
  Settings settings;
  settings.select_flag = 1;
  const Outcome r = run_selection(settings, "0\n", atoms);
  EXPECT_EQ(r.out, std::string(kResiduePrompts) + "\n");
  EXPECT_EQ(surface_log.calls, 1);
  EXPECT_EQ(surface_log.count_seen, 0);
  EXPECT_EQ(r.count, 0);
}

TEST(SelectAtoms, EmptyTypeListRemovesEverything) {
  AtomArrays atoms = make_atoms(kTypes, kResidues);
  Settings settings;
  settings.select_flag = 2;
  const Outcome r = run_selection(settings, "0\n", atoms);
  EXPECT_EQ(r.out, kTypePrompts);
  EXPECT_EQ(r.count, 0);
}

TEST(SelectAtoms, NegativeCountIsAnEmptyList) {
  AtomArrays atoms = make_atoms(kTypes, kResidues);
  Settings settings;
  settings.select_flag = 1;
  const Outcome r = run_selection(settings, "-3\n5 6 7\n", atoms);
  EXPECT_EQ(r.out, std::string(kResiduePrompts) + "\n");
  EXPECT_EQ(surface_log.count_seen, 0);
}

TEST(SelectAtoms, UnreadEntriesStayZero) {
  AtomArrays atoms = make_atoms(kTypes, kResidues);
  Settings settings;
  settings.select_flag = 1;
  const Outcome r = run_selection(settings, "3\n5 x 2\n", atoms);
  // "x" stops every later read: entries 2 and 3 keep their start value 0.
  EXPECT_EQ(r.out, std::string(kResiduePrompts) + "5  0  0  \n");
  EXPECT_EQ(surface_log.count_seen, 4);  // residue 5 removed: atoms 1, 2, 5, 7 are left
}

TEST(SelectAtoms, UnreadCountStaysZero) {
  AtomArrays atoms = make_atoms(kTypes, kResidues);
  Settings settings;
  settings.select_flag = 1;
  const Outcome r = run_selection(settings, "none\n", atoms);
  EXPECT_EQ(r.out, std::string(kResiduePrompts) + "\n");
  EXPECT_EQ(r.count, 0);
}

TEST(SelectAtoms, SecondListReusesTheFirstListsEntries) {
  AtomArrays atoms = make_atoms(kTypes, kResidues);
  Settings settings;
  settings.select_flag = 12;
  settings.H_flag = 1;
  // Residue list 99, 328; the type list's second entry cannot be read and
  // keeps 328 from the residue list.
  const Outcome r = run_selection(settings, "2\n99 328\n2\n114\n", atoms);
  EXPECT_EQ(r.out, std::string(kResiduePrompts) + "99  328  \n" + kTypePrompts);
  expect_atoms(atoms, r.count, {2, 5}, kTypes, kResidues);
}

TEST(SelectAtoms, SecondCountUnreadKeepsTheFirstCount) {
  AtomArrays atoms = make_atoms(kTypes, kResidues);
  Settings settings;
  settings.select_flag = 12;
  const Outcome r = run_selection(settings, "2\n99 114\n", atoms);
  // The type step reuses count 2 and the entries 99, 114.
  EXPECT_EQ(r.out, std::string(kResiduePrompts) + "99  114  \n" + kTypePrompts);
  expect_atoms(atoms, r.count, {5}, kTypes, kResidues);
}

TEST(SelectAtoms, FullListOf499IsAccepted) {
  AtomArrays atoms = make_atoms(kTypes, kResidues);
  Settings settings;
  settings.select_flag = 1;
  std::string input = "499\n";
  std::string echo;
  for (int k = 1; k <= 499; ++k) {
    input += std::to_string(k + 100) + " ";
    echo += std::to_string(k + 100) + "  ";
  }
  const Outcome r = run_selection(settings, input, atoms);
  EXPECT_EQ(r.out, std::string(kResiduePrompts) + echo + "\n");
  EXPECT_EQ(surface_log.count_seen, 6);
}

void expect_too_long(int select_flag, const std::string& input, const std::string& printed) {
  AtomArrays atoms = make_atoms(kTypes, kResidues);
  Settings settings;
  settings.select_flag = select_flag;
  surface_log = SurfaceLog{};
  Input in(input);
  Capture out;
  Io io{in.file(), out.file(), stderr};
  try {
    select_atoms(9, atoms, settings, io, &fake_surface);
    FAIL() << "no error";
  } catch (const FatalError& e) {
    EXPECT_EQ(e.text(),
              "run-time error...\nToo many selection entries (at most 499) ...\n"
              "...now exiting to system...\n");
    EXPECT_EQ(e.stream(), Stream::err);
    EXPECT_EQ(e.status(), 1);
  }
  EXPECT_EQ(out.str(), printed);
  EXPECT_EQ(surface_log.calls, 0);
}

TEST(SelectAtoms, OverLongListIsRejected) {
  expect_too_long(1, "500\n1 2 3\n", "Number of residues which should be excluded: ");
  expect_too_long(2, "2000000000\n", "Number of atom types which should be taken into account: ");
  expect_too_long(12, "1\n5\n600\n",
                  std::string(kResiduePrompts) + "5  \n" +
                      "Number of atom types which should be taken into account: ");
}

int failing_surface(int& /*no_atom*/, AtomArrays& /*atoms*/, Io& /*io*/) {
  ++surface_log.calls;
  return 1;
}

TEST(SelectAtoms, SurfaceFailureIsFatal) {
  AtomArrays atoms = make_atoms(kTypes, kResidues);
  const Settings settings;
  surface_log = SurfaceLog{};
  Input in("");
  Capture out;
  Io io{in.file(), out.file(), stderr};
  try {
    select_atoms(9, atoms, settings, io, &failing_surface);
    FAIL() << "no error";
  } catch (const FatalError& e) {
    EXPECT_EQ(e.text(), "run-time error...\nNSC error occured\n...now exiting to system...\n");
    EXPECT_EQ(e.stream(), Stream::err);
    EXPECT_EQ(e.status(), 1);
  }
  EXPECT_EQ(surface_log.calls, 1);
}

// The run's own surface method is not involved for flags 2 and 12.
TEST(SelectAtomsWithSurfaceMethod, Flags2And12NeverReachTheSurface) {
  for (const int flag : {2, 12}) {
    AtomArrays atoms = make_atoms(kTypes, kResidues);
    Settings settings;
    settings.select_flag = flag;
    const std::string input = flag == 2 ? "2 211 1" : "1 4 2 211 1";
    Input in(input);
    Capture out;
    Capture err;
    Io io{in.file(), out.file(), err.file()};
    const int n = select_atoms(9, atoms, settings, io);
    const std::string expected = flag == 2 ? std::string(kTypePrompts)
                                           : std::string(kResiduePrompts) + "4  \n" + kTypePrompts;
    EXPECT_EQ(out.str(), expected);
    EXPECT_EQ(err.str(), "");
    expect_atoms(atoms, n, {1, 9}, kTypes, kResidues);
  }
}

// With flag 1 the prompts and the echo come before anything the surface
// method may print.
TEST(SelectAtomsWithSurfaceMethod, Flag1PromptsBeforeTheSurface) {
  AtomArrays atoms = make_atoms(kTypes, kResidues);
  for (int i = 1; i <= 9; ++i) {
    atoms.x[i] = 20.0 * i;  // well apart
  }
  Settings settings;
  settings.select_flag = 1;
  Input in("1\n4\n");
  Capture out;
  Capture err;
  Io io{in.file(), out.file(), err.file()};
  const int n = select_atoms(9, atoms, settings, io);
  const std::string prefix = std::string(kResiduePrompts) + "4  \n";
  EXPECT_EQ(out.str().substr(0, prefix.size()), prefix);
  EXPECT_GE(n, 0);
  EXPECT_LE(n, 5);  // at most the 5 heavy atoms outside residue 4
}

}  // namespace
}  // namespace vorn
