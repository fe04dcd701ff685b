// The prediction API on its own: contexts, thread counts, atom sets of any
// size, and the errors of invalid input.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "api_support.hpp"
#include "vorn/error.hpp"
#include "vorn/predict.hpp"
#include "vorn/tensor.hpp"

namespace vorn {
namespace {

using test::data_path;

std::vector<Vec3> ubiquitin_heavy() {
  return positions(
      test::without_hydrogens(test::read_token_atoms(data_path("structures/ubq_1d3z_m1.pdb"))));
}

// The message of the vorn::Error that f throws ("" when none is thrown).
template <typename F>
std::string error_of(F f) {
  try {
    f();
  } catch (const Error& e) {
    return e.what();
  }
  return "";
}

TEST(PredictionContext, DefaultSamplingHas1872Orientations) {
  // 9 theta bands with 3 9 14 17 18 17 14 9 3 phi steps, 18 psi steps each.
  const PredictionContext context;
  EXPECT_EQ(context.orientation_count(), (3 + 9 + 14 + 17 + 18 + 17 + 14 + 9 + 3) * 18);
  EXPECT_EQ(context.sampling().theta, 9);
}

TEST(PredictionContext, ThreadCountsGiveTheSameBits) {
  const std::vector<Vec3> atoms = ubiquitin_heavy();
  Medium m;
  m.atom_radius = 3.0;
  PredictionContext context({}, 1);
  const SaupeElements one = context.predict_saupe(atoms, m);
  context.set_threads(2);
  EXPECT_EQ(context.threads(), 2);
  const SaupeElements two = context.predict_saupe(atoms, m);
  const SaupeElements five = context.predict_saupe(atoms, m, 5);
  EXPECT_EQ(std::memcmp(one.data(), two.data(), sizeof one), 0);
  EXPECT_EQ(std::memcmp(one.data(), five.data(), sizeof one), 0);
  // A copy shares the tables and predicts the same.
  const PredictionContext copy = context;
  const SaupeElements copied = copy.predict_saupe(atoms, m);
  EXPECT_EQ(std::memcmp(one.data(), copied.data(), sizeof one), 0);
}

TEST(PredictionContext, UbiquitinAlignsAsAProlateRodInBicelles) {
  // Ubiquitin in bicelles: the order is positive along its long axis, Da(NH)
  // of a few Hz to tens of Hz (the classic reference run prints 13.2 Hz for
  // the surface atoms of this model), rhombicity within [0, 2/3].
  const AlignmentTensor t = PredictionContext().predict(ubiquitin_heavy(), Medium{});
  EXPECT_GT(std::fabs(t.da_hz), 3.0);
  EXPECT_LT(std::fabs(t.da_hz), 60.0);
  EXPECT_GE(t.rhombicity, 0.0);
  EXPECT_LE(t.rhombicity, 2.0 / 3.0 + 1e-12);
}

TEST(PredictionContext, TwentyThousandAtomsWithoutCapacityLimit) {
  // The 6267-atom complex four times over, side by side: 25 068 atoms, five
  // times the classic program's capacity. A coarse sampling keeps the test
  // short; the fine spacing gives a position grid of well over the classic
  // 1000 points.
  const std::vector<Atom> complex =
      test::read_token_atoms(data_path("structures/unc18_stx1_2xhe_xray.pdb"));
  ASSERT_EQ(complex.size(), 6267u);
  std::vector<Vec3> atoms;
  for (int copy = 0; copy < 4; ++copy) {
    for (const Atom& a : complex) {
      atoms.push_back({a.position.x + 90.0 * copy, a.position.y, a.position.z});
    }
  }
  ASSERT_EQ(atoms.size(), 25068u);
  Medium m;
  m.atom_radius = 3.0;
  m.grid_spacing = 0.1;
  // Grid points: (largest - smallest distance from the centre) / spacing.
  Vec3 c;
  for (const Vec3& p : atoms)
    c = {c.x + p.x / atoms.size(), c.y + p.y / atoms.size(), c.z + p.z / atoms.size()};
  double lo = 1e300;
  double hi = 0.0;
  for (const Vec3& p : atoms) {
    const double d = std::hypot(p.x - c.x, p.y - c.y, p.z - c.z);
    lo = std::min(lo, d);
    hi = std::max(hi, d);
  }
  ASSERT_GT((hi - lo) / m.grid_spacing, 1500.0);
  const PredictionContext context(Sampling{3, 6, 6});
  const SaupeElements s = context.predict_saupe(atoms, m);
  for (double e : s) EXPECT_TRUE(std::isfinite(e));
  // An elongated assembly aligns with its long (x) axis: the order along x
  // is positive, Sxx = -(Szz - (Sxx - Syy)) / 2.
  EXPECT_GT(-(s[0] - s[1]) / 2, 0.0);
}

TEST(PredictionContext, InvalidInputThrowsWithAMessage) {
  const std::vector<Vec3> atoms = ubiquitin_heavy();
  const PredictionContext context;
  EXPECT_NE(error_of([&] { context.predict_saupe({}, Medium{}); }).find("no atoms"),
            std::string::npos);

  std::vector<Vec3> nan_atoms = atoms;
  nan_atoms[17].y = std::numeric_limits<double>::quiet_NaN();
  EXPECT_NE(error_of([&] { context.predict_saupe(nan_atoms, Medium{}); }).find("not finite"),
            std::string::npos);
  std::vector<Vec3> inf_atoms = atoms;
  inf_atoms[0].z = std::numeric_limits<double>::infinity();
  EXPECT_NE(error_of([&] { context.predict_saupe(inf_atoms, Medium{}); }).find("atom 0"),
            std::string::npos);

  for (double spacing : {0.0, -0.5, std::numeric_limits<double>::quiet_NaN()}) {
    Medium m;
    m.grid_spacing = spacing;
    EXPECT_NE(error_of([&] { context.predict_saupe(atoms, m); }).find("grid spacing"),
              std::string::npos)
        << spacing;
  }
  Medium bad_radius;
  bad_radius.atom_radius = 0.0;
  EXPECT_NE(error_of([&] { context.predict_saupe(atoms, bad_radius); }).find("atom radius"),
            std::string::npos);
  Medium bad_concentration;
  bad_concentration.kind = MediumKind::phage;
  bad_concentration.concentration = -0.01;
  EXPECT_NE(
      error_of([&] { context.predict_saupe(atoms, bad_concentration); }).find("concentration"),
      std::string::npos);

  for (const Sampling& s : {Sampling{0, 18, 18}, Sampling{9, 0, 18}, Sampling{9, 18, -1}}) {
    EXPECT_NE(error_of([&] { PredictionContext{s}; }).find("sampling"), std::string::npos);
  }
  EXPECT_NE(error_of([&] {
              predict_saupe(atoms, Medium{}, Sampling{9, 18, 0});
            }).find("sampling"),
            std::string::npos);
}

TEST(PredictionContext, ListingsGoToTheLogOnlyWhenAskedFor) {
  std::string listing;
  Log quiet;
  quiet.listing = [&](std::string_view text) { listing += text; };
  const PredictionContext silent(Sampling{2, 4, 1}, 1, quiet);
  const std::vector<Vec3> atoms{{0, 0, 0}, {5, 0, 0}};
  silent.predict_saupe(atoms, Medium{});
  EXPECT_EQ(listing, "");

  Log debug = quiet;
  debug.debug = true;
  const PredictionContext talkative(Sampling{2, 4, 1}, 1, debug);
  EXPECT_NE(listing.find("digit_phi_opt"), std::string::npos);
  listing.clear();
  Medium phage;
  phage.kind = MediumKind::phage;
  talkative.predict_saupe(atoms, phage);
  EXPECT_NE(listing.find("@@ grid_setup"), std::string::npos);
}

TEST(AnalyzeTensor, AxialTensorAlongZ) {
  // Szz = 2e-3 alone: eigenvalues (2e-3, -1e-3, -1e-3), Da = 1e-3 (half of
  // Szz), Da(NH) = 1e-3 * 21523.11 Hz, R = 0, z axis first.
  const AlignmentTensor t = analyze_tensor({2e-3, 0, 0, 0, 0});
  EXPECT_DOUBLE_EQ(t.eigenvalues[0], 2e-3);
  EXPECT_DOUBLE_EQ(t.eigenvalues[1], -1e-3);
  EXPECT_DOUBLE_EQ(t.eigenvalues[2], -1e-3);
  EXPECT_DOUBLE_EQ(t.da, 1e-3);
  EXPECT_NEAR(t.da_hz, 21.523110491698444, 1e-12);
  EXPECT_DOUBLE_EQ(t.rhombicity, 0.0);
  EXPECT_DOUBLE_EQ(std::fabs(t.eigenvectors[0][2]), 1.0);
  // beta (the angle of the z axis from the frame's z) is 0 or 180 degrees.
  for (const auto& euler : t.euler_deg) {
    EXPECT_TRUE(std::fabs(euler[1]) < 1e-6 || std::fabs(euler[1] - 180.0) < 1e-6) << euler[1];
  }
}

TEST(AnalyzeTensor, EigenvectorsDiagonaliseTheMatrix) {
  const SaupeElements s{4e-4, -3e-4, 2e-4, -1.5e-4, 0.7e-4};
  const AlignmentTensor t = analyze_tensor(s);
  const auto m = saupe_matrix(s);
  for (int k = 0; k < 3; ++k) {
    for (int i = 0; i < 3; ++i) {
      double mv = 0.0;
      for (int j = 0; j < 3; ++j) mv += m[i][j] * t.eigenvectors[k][j];
      EXPECT_NEAR(mv, t.eigenvalues[k] * t.eigenvectors[k][i], 1e-15);
    }
  }
  EXPECT_GE(std::fabs(t.eigenvalues[0]), std::fabs(t.eigenvalues[1]));
  EXPECT_GE(std::fabs(t.eigenvalues[1]), std::fabs(t.eigenvalues[2]));
  // R = (Axx - Ayy) / (3 Da) by the definitions of Da and Dr.
  EXPECT_NEAR(t.rhombicity, (t.eigenvalues[2] - t.eigenvalues[1]) / 3.0 / t.da, 1e-12);
  // The trace of the matrix is 0.
  EXPECT_NEAR(m[0][0] + m[1][1] + m[2][2], 0.0, 1e-18);
}

TEST(AnalyzeTensor, NotANumberThrows) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_THROW(analyze_tensor({nan, 0, 0, 0, 0}), Error);
  EXPECT_THROW(analyze_tensor({0, 0, 0, std::numeric_limits<double>::infinity(), 0}), Error);
}

}  // namespace
}  // namespace vorn
