// Local alignment windows through the public API: a window is the plain
// prediction of its fragment's atoms, bit for bit, with a window as long as
// the chain giving the whole chain's prediction in every medium.
#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <string>
#include <vector>

#include "api_support.hpp"
#include "vorn/charges.hpp"
#include "vorn/error.hpp"
#include "vorn/predict.hpp"
#include "vorn/windows.hpp"

namespace vorn {
namespace {

using test::data_path;

bool same_bits(const SaupeElements& a, const SaupeElements& b) {
  for (std::size_t k = 0; k < a.size(); ++k) {
    if (std::bit_cast<std::uint64_t>(a[k]) != std::bit_cast<std::uint64_t>(b[k])) return false;
  }
  return true;
}

// Ubiquitin (1D3Z model 1, residues 1..76): its surface heavy atoms with the
// residue index (number - 1) of each, and the titration charges of every
// atom at pH 6 with theirs.
struct Chain {
  std::vector<Atom> atoms;  // the surface heavy atoms
  std::vector<Vec3> positions;
  std::vector<int> residue;
  std::vector<PointCharge> charges;
  std::vector<int> charge_residue;
  int residue_count = 0;
  WindowChain view() const { return {positions, residue, residue_count, charges, charge_residue}; }
};

const Chain& ubiquitin() {
  static const Chain chain = [] {
    Chain c;
    const std::vector<Atom> all = test::read_token_atoms(data_path("structures/ubq_1d3z_m1.pdb"));
    const std::vector<Atom> heavy = test::without_hydrogens(all);
    for (const std::size_t i : surface_atoms(heavy)) {
      c.atoms.push_back(heavy[i]);
      c.positions.push_back(heavy[i].position);
      c.residue.push_back(heavy[i].residue_number - 1);
    }
    const AtomCharges charges = titration_charges(all, 6.0);
    for (std::size_t i = 0; i < all.size(); ++i) {
      if (charges.charge[i] == 0.0) continue;
      c.charges.push_back({all[i].position, charges.charge[i]});
      c.charge_residue.push_back(all[i].residue_number - 1);
    }
    c.residue_count = 76;
    return c;
  }();
  return chain;
}

// A coarse sampling keeps the tests quick; nothing here depends on it.
const PredictionContext& context() {
  static const PredictionContext c(Sampling{5, 9, 9}, 1);
  return c;
}

Medium cylinder() {
  Medium m;
  m.kind = MediumKind::phage;
  return m;
}

Medium combined() {
  Medium m;
  m.kind = MediumKind::bicelle_and_phage;
  return m;
}

// The plain prediction of the atoms (and charges) of residues first..last.
SaupeElements fragment_saupe(const Chain& c, int first, int last, const Medium& medium) {
  std::vector<Vec3> atoms;
  std::vector<PointCharge> charges;
  for (std::size_t k = 0; k < c.positions.size(); ++k) {
    if (c.residue[k] >= first && c.residue[k] <= last) atoms.push_back(c.positions[k]);
  }
  for (std::size_t k = 0; k < c.charges.size(); ++k) {
    if (c.charge_residue[k] >= first && c.charge_residue[k] <= last) {
      charges.push_back(c.charges[k]);
    }
  }
  return context().predict_saupe(atoms, charges, medium, 1);
}

TEST(WindowRange, CentredAndTruncatedAtTheEnds) {
  EXPECT_EQ(window_range(4, 5, 10).first, 2);
  EXPECT_EQ(window_range(4, 5, 10).last, 6);
  EXPECT_EQ(window_range(0, 5, 10).first, 0);
  EXPECT_EQ(window_range(0, 5, 10).last, 2);
  EXPECT_EQ(window_range(9, 5, 10).first, 7);
  EXPECT_EQ(window_range(9, 5, 10).last, 9);
  EXPECT_EQ(window_range(0, 15, 1).first, 0);
  EXPECT_EQ(window_range(0, 15, 1).last, 0);
  EXPECT_EQ(window_range(3, 3, 5).first, 2);
  EXPECT_EQ(window_range(3, 3, 5).last, 4);
}

TEST(CheckWindow, OddAndAtLeastThree) {
  EXPECT_NO_THROW(check_window(3));
  EXPECT_NO_THROW(check_window(21));
  EXPECT_THROW(check_window(1), Error);
  EXPECT_THROW(check_window(2), Error);
  EXPECT_THROW(check_window(4), Error);
  EXPECT_THROW(check_window(0), Error);
  EXPECT_THROW(check_window(-3), Error);
}

// A window longer than twice the chain covers it from every residue.
void expect_whole_chain(const Medium& medium) {
  const Chain& c = ubiquitin();
  const SaupeElements whole = context().predict_saupe(c.positions, c.charges, medium, 1);
  const std::vector<SaupeElements> windows =
      predict_windows(context(), c.view(), 2 * c.residue_count + 1, medium, 1);
  ASSERT_EQ(windows.size(), 76u);
  for (std::size_t i = 0; i < windows.size(); ++i) {
    EXPECT_TRUE(same_bits(windows[i], whole)) << "residue index " << i;
  }
  EXPECT_NE(whole[0], 0.0);
}

TEST(PredictWindows, AWindowAsLongAsTheChainIsTheWholeChainOnTheWall) {
  expect_whole_chain(Medium{});
}

TEST(PredictWindows, AWindowAsLongAsTheChainIsTheWholeChainInTheCylinder) {
  expect_whole_chain(cylinder());
}

TEST(PredictWindows, AWindowAsLongAsTheChainIsTheWholeChainInTheCombinedMedium) {
  expect_whole_chain(combined());
}

TEST(PredictWindows, AWindowAsLongAsTheChainIsTheWholeChainInChargedPf1) {
  expect_whole_chain(pf1_medium());
}

TEST(PredictWindows, TheWholeChainIsThePlainPredictionOfAllItsAtoms) {
  // Without charges the charged entry is the steric one; this ties the
  // windows to the two-argument prediction every caller knows.
  const Chain& c = ubiquitin();
  const WindowChain steric{c.positions, c.residue, c.residue_count, {}, {}};
  const std::vector<SaupeElements> windows = predict_windows(context(), steric, 153, Medium{}, 1);
  EXPECT_TRUE(same_bits(windows[40], context().predict_saupe(c.positions, Medium{}, 1)));
}

TEST(PredictWindows, EachWindowIsItsFragmentPredictedAlone) {
  const Chain& c = ubiquitin();
  for (const Medium& medium : {Medium{}, cylinder(), pf1_medium()}) {
    const std::vector<SaupeElements> w3 = predict_windows(context(), c.view(), 3, medium, 1);
    const std::vector<SaupeElements> w7 = predict_windows(context(), c.view(), 7, medium, 1);
    // Inside the chain, and truncated at either end.
    EXPECT_TRUE(same_bits(w3[10], fragment_saupe(c, 9, 11, medium)));
    EXPECT_TRUE(same_bits(w3[0], fragment_saupe(c, 0, 1, medium)));
    EXPECT_TRUE(same_bits(w3[75], fragment_saupe(c, 74, 75, medium)));
    EXPECT_TRUE(same_bits(w7[40], fragment_saupe(c, 37, 43, medium)));
    EXPECT_TRUE(same_bits(w7[1], fragment_saupe(c, 0, 4, medium)));
    EXPECT_TRUE(same_bits(w7[74], fragment_saupe(c, 71, 75, medium)));
    // Neighbouring windows hold different atoms, hence different tensors.
    EXPECT_FALSE(same_bits(w3[10], w3[11]));
  }
}

TEST(PredictWindows, TheThreadCountDoesNotChangeAnyBit) {
  const Chain& c = ubiquitin();
  const std::vector<SaupeElements> one = predict_windows(context(), c.view(), 9, Medium{}, 1);
  const std::vector<SaupeElements> three = predict_windows(context(), c.view(), 9, Medium{}, 3);
  ASSERT_EQ(one.size(), three.size());
  for (std::size_t i = 0; i < one.size(); ++i) EXPECT_TRUE(same_bits(one[i], three[i])) << i;
}

TEST(PredictWindows, ATinyChainByHand) {
  // Three residues of two atoms each: with a window of 3 the middle residue
  // sees all six atoms, the ends their own residue and the middle one.
  const std::vector<Vec3> positions = {{0, 0, 0},   {1.5, 0, 0}, {3, 1, 0},
                                       {4.5, 1, 0}, {6, 0, 1},   {7.5, 0, 1}};
  const std::vector<int> residue = {0, 0, 1, 1, 2, 2};
  const std::span<const Vec3> all(positions);
  const std::vector<SaupeElements> w =
      predict_windows(context(), {positions, residue, 3, {}, {}}, 3, Medium{}, 1);
  ASSERT_EQ(w.size(), 3u);
  EXPECT_TRUE(same_bits(w[1], context().predict_saupe(all, Medium{}, 1)));
  EXPECT_TRUE(same_bits(w[0], context().predict_saupe(all.first(4), Medium{}, 1)));
  EXPECT_TRUE(same_bits(w[2], context().predict_saupe(all.subspan(2), Medium{}, 1)));
}

TEST(PredictWindows, ChargesNeedNotBeSorted) {
  // Charges are placed by their residue index: the residues given last to
  // first (each residue's charges in their order) give the same bits.
  const Chain& c = ubiquitin();
  std::vector<PointCharge> charges;
  std::vector<int> residues;
  for (int r = c.residue_count - 1; r >= 0; --r) {
    for (std::size_t k = 0; k < c.charges.size(); ++k) {
      if (c.charge_residue[k] != r) continue;
      charges.push_back(c.charges[k]);
      residues.push_back(r);
    }
  }
  ASSERT_EQ(charges.size(), c.charges.size());
  ASSERT_NE(residues.front(), c.charge_residue.front());
  const WindowChain reversed{c.positions, c.residue, c.residue_count, charges, residues};
  const std::vector<SaupeElements> w = predict_windows(context(), reversed, 5, pf1_medium(), 1);
  EXPECT_TRUE(same_bits(w[30], fragment_saupe(c, 28, 32, pf1_medium())));
  EXPECT_TRUE(same_bits(w[0], fragment_saupe(c, 0, 2, pf1_medium())));
}

TEST(PredictWindows, BadInputThrows) {
  const std::vector<Vec3> positions = {{0, 0, 0}, {1.5, 0, 0}, {3, 1, 0}};
  const std::vector<int> residue = {0, 1, 1};
  const std::vector<int> decreasing = {1, 0, 1};
  const std::vector<int> beyond = {0, 1, 2};
  const std::vector<int> short_list = {0, 1};
  const Medium m;
  EXPECT_THROW(predict_windows(context(), {positions, residue, 2, {}, {}}, 4, m, 1), Error);
  EXPECT_THROW(predict_windows(context(), {positions, residue, 2, {}, {}}, 1, m, 1), Error);
  EXPECT_THROW(predict_windows(context(), {positions, decreasing, 2, {}, {}}, 3, m, 1), Error);
  EXPECT_THROW(predict_windows(context(), {positions, beyond, 2, {}, {}}, 3, m, 1), Error);
  EXPECT_THROW(predict_windows(context(), {positions, short_list, 2, {}, {}}, 3, m, 1), Error);
  EXPECT_THROW(predict_windows(context(), {positions, residue, 0, {}, {}}, 3, m, 1), Error);
  // Residues 3..9 hold no atom: the window of residue 6 is empty.
  try {
    predict_windows(context(), {positions, residue, 10, {}, {}}, 3, m, 1);
    ADD_FAILURE() << "an empty window was accepted";
  } catch (const Error& e) {
    EXPECT_NE(std::string(e.what()).find("holds no atom"), std::string::npos) << e.what();
  }
  const std::vector<PointCharge> charge = {{{0, 0, 0}, 1.0}};
  const std::vector<int> charge_beyond = {5};
  EXPECT_THROW(predict_windows(context(), {positions, residue, 2, charge, charge_beyond}, 3,
                               pf1_medium(), 1),
               Error);
  EXPECT_THROW(predict_windows(context(), {positions, residue, 2, charge, {}}, 3, pf1_medium(), 1),
               Error);
}

}  // namespace
}  // namespace vorn
