// The general least-squares fit: exactness on noise-free data, agreement
// with independent normal equations, error bars against repeated synthetic
// data, determinism, sign checks and outliers.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "api_support.hpp"
#include "vorn/couplings.hpp"
#include "vorn/error.hpp"
#include "vorn/fit.hpp"

namespace vorn {
namespace {

// The backbone couplings of ubiquitin model 1 (hydrogens from the file) as
// fit rows with zero values.
std::vector<FitRow> ubiquitin_rows() {
  const std::vector<Atom> atoms =
      test::read_token_atoms(test::data_path("structures/ubq_1d3z_m1.pdb"));
  std::vector<FitRow> rows;
  for (const CouplingSite& s : backbone_sites(atoms).sites) {
    FitRow r;
    r.dmax_hz = dipolar_constant_hz(s.element1, s.element2, standard_distance(s.type));
    r.design = coupling_design(s.vector, r.dmax_hz);
    r.type = s.type;
    rows.push_back(r);
  }
  return rows;
}

const SaupeElements kTrue{4.1e-4, -2.3e-4, 1.1e-4, -3.2e-4, 0.8e-4};

double dot(const DesignRow& a, const SaupeElements& s) {
  double sum = 0;
  for (int j = 0; j < 5; ++j) sum += a[j] * s[j];
  return sum;
}

std::vector<FitRow> synthetic(double sigma, std::uint64_t seed, double error_hz) {
  std::vector<FitRow> rows = ubiquitin_rows();
  std::mt19937_64 rng(seed);
  std::normal_distribution<double> noise(0.0, 1.0);
  for (FitRow& r : rows) {
    r.value_hz = dot(r.design, kTrue) + sigma * noise(rng);
    r.error_hz = error_hz;
  }
  return rows;
}

// Least squares by the normal equations in long double with Gaussian
// elimination: an independent solution.
SaupeElements normal_equations(const std::vector<FitRow>& rows, bool weighted) {
  long double m[5][6] = {};
  for (const FitRow& r : rows) {
    const long double w =
        weighted ? 1.0L / (static_cast<long double>(r.error_hz) * r.error_hz) : 1.0L;
    for (int i = 0; i < 5; ++i) {
      for (int j = 0; j < 5; ++j) m[i][j] += w * r.design[i] * r.design[j];
      m[i][5] += w * r.design[i] * r.value_hz;
    }
  }
  for (int c = 0; c < 5; ++c) {
    int pivot = c;
    for (int i = c + 1; i < 5; ++i)
      if (std::fabs(m[i][c]) > std::fabs(m[pivot][c])) pivot = i;
    for (int j = 0; j < 6; ++j) std::swap(m[c][j], m[pivot][j]);
    for (int i = 0; i < 5; ++i) {
      if (i == c) continue;
      const long double f = m[i][c] / m[c][c];
      for (int j = c; j < 6; ++j) m[i][j] -= f * m[c][j];
    }
  }
  SaupeElements s{};
  for (int i = 0; i < 5; ++i) s[i] = static_cast<double>(m[i][5] / m[i][i]);
  return s;
}

TEST(FitTensor, NoiseFreeDataGiveTheTensorBack) {
  const std::vector<FitRow> rows = synthetic(0.0, 1, 0.0);
  ASSERT_GT(rows.size(), 300u);
  const TensorFit fit = fit_tensor(rows);
  for (int j = 0; j < 5; ++j) EXPECT_NEAR(fit.saupe[j], kTrue[j], 1e-9 * 4.1e-4) << j;
  EXPECT_FALSE(fit.weighted);
  EXPECT_LT(fit.condition_number, 10.0);
  EXPECT_FALSE(fit.ill_conditioned);
  const FitQuality q = fit_quality(rows, fit.calculated_hz, fit.tensor);
  EXPECT_LT(q.overall.q, 1e-9);
  EXPECT_NEAR(q.overall.r, 1.0, 1e-12);
  EXPECT_EQ(q.per_type.size(), 5u);
  // Zero error, zero spread.
  const ErrorEstimate mc = estimate_errors(rows, fit, ErrorMethod::monte_carlo, 50, 3);
  EXPECT_LT(mc.da_hz_sd, 1e-9);
  EXPECT_LT(mc.rhombicity_sd, 1e-9);
  for (const auto& triple : mc.euler_deg_sd)
    for (double sd : triple) EXPECT_LT(sd, 1e-6);
  for (double sd : mc.calculated_sd_hz) EXPECT_LT(sd, 1e-9);
}

TEST(FitTensor, AgreesWithIndependentNormalEquations) {
  for (const bool weighted : {false, true}) {
    std::vector<FitRow> rows = synthetic(1.5, 7, 0.0);
    std::mt19937_64 rng(11);
    std::uniform_real_distribution<double> error(0.5, 3.0);
    for (FitRow& r : rows) r.error_hz = weighted ? error(rng) : 0.0;
    const TensorFit fit = fit_tensor(rows, weighted);
    EXPECT_EQ(fit.weighted, weighted);
    const SaupeElements expected = normal_equations(rows, weighted);
    for (int j = 0; j < 5; ++j) EXPECT_NEAR(fit.saupe[j], expected[j], 1e-9 * 4.1e-4) << j;
  }
}

TEST(FitTensor, MonteCarloSpreadMatchesRepeatedData) {
  // Noise of 2 Hz: the Monte Carlo spread of Da from one data set against
  // the spread of the fitted Da over 300 independent data sets.
  const double sigma = 2.0;
  std::vector<double> da;
  for (int k = 0; k < 300; ++k)
    da.push_back(fit_tensor(synthetic(sigma, 100 + k, sigma)).tensor.da_hz);
  double mean = 0, var = 0;
  for (double x : da) mean += x / da.size();
  for (double x : da) var += (x - mean) * (x - mean) / (da.size() - 1);
  const double repeated = std::sqrt(var);

  const std::vector<FitRow> rows = synthetic(sigma, 5, sigma);
  const TensorFit fit = fit_tensor(rows);
  const ErrorEstimate mc = estimate_errors(rows, fit, ErrorMethod::monte_carlo, 1000, 42);
  EXPECT_NEAR(mc.da_hz_sd / repeated, 1.0, 0.2) << mc.da_hz_sd << " vs " << repeated;
  const ErrorEstimate boot = estimate_errors(rows, fit, ErrorMethod::bootstrap, 1000, 42);
  EXPECT_NEAR(boot.da_hz_sd / repeated, 1.0, 0.2) << boot.da_hz_sd << " vs " << repeated;
  EXPECT_GT(mc.rhombicity_sd, 0.0);
  EXPECT_EQ(mc.calculated_sd_hz.size(), rows.size());
}

TEST(FitTensor, SameSeedSameNumbers) {
  const std::vector<FitRow> rows = synthetic(1.0, 9, 1.0);
  const TensorFit fit = fit_tensor(rows);
  for (const ErrorMethod m : {ErrorMethod::monte_carlo, ErrorMethod::bootstrap}) {
    const ErrorEstimate a = estimate_errors(rows, fit, m, 200, 123);
    const ErrorEstimate b = estimate_errors(rows, fit, m, 200, 123);
    const ErrorEstimate c = estimate_errors(rows, fit, m, 200, 124);
    EXPECT_EQ(std::memcmp(&a.da_hz_sd, &b.da_hz_sd, sizeof(double)), 0);
    EXPECT_EQ(a.calculated_sd_hz, b.calculated_sd_hz);
    EXPECT_NE(a.da_hz_sd, c.da_hz_sd);
  }
}

// Sample standard deviation (n - 1) by two passes over the values.
double two_pass_sd(const std::vector<double>& x) {
  double mean = 0;
  for (double v : x) mean += v / x.size();
  double var = 0;
  for (double v : x) var += (v - mean) * (v - mean) / (x.size() - 1);
  return std::sqrt(var);
}

TEST(FitTensor, KeptSamplesAreTheOnesTheSpreadsComeFrom) {
  const std::vector<FitRow> rows = synthetic(1.5, 31, 1.5);
  const TensorFit fit = fit_tensor(rows);
  for (const ErrorMethod m : {ErrorMethod::monte_carlo, ErrorMethod::bootstrap}) {
    const ErrorEstimate plain = estimate_errors(rows, fit, m, 150, 77);
    const ErrorEstimate kept = estimate_errors(rows, fit, m, 150, 77, true, true);
    EXPECT_TRUE(plain.sample_saupe.empty());
    ASSERT_EQ(kept.sample_saupe.size(), 150u);
    // Keeping them changes nothing else.
    EXPECT_EQ(std::memcmp(&plain.da_hz_sd, &kept.da_hz_sd, sizeof(double)), 0);
    EXPECT_EQ(std::memcmp(&plain.rhombicity_sd, &kept.rhombicity_sd, sizeof(double)), 0);
    EXPECT_EQ(plain.euler_deg_sd, kept.euler_deg_sd);
    EXPECT_EQ(plain.calculated_sd_hz, kept.calculated_sd_hz);
    // The reported spreads are those of the kept samples.
    std::vector<double> da, rh;
    for (const SaupeElements& s : kept.sample_saupe) {
      const AlignmentTensor t = analyze_tensor(s);
      da.push_back(t.da_hz);
      rh.push_back(t.rhombicity);
    }
    EXPECT_NEAR(two_pass_sd(da), kept.da_hz_sd, 1e-9 * kept.da_hz_sd);
    EXPECT_NEAR(two_pass_sd(rh), kept.rhombicity_sd, 1e-9 * kept.rhombicity_sd);
    for (std::size_t i = 0; i < rows.size(); i += 17) {
      std::vector<double> calc;
      for (const SaupeElements& s : kept.sample_saupe) calc.push_back(dot(rows[i].design, s));
      EXPECT_NEAR(two_pass_sd(calc), kept.calculated_sd_hz[i], 1e-9 * kept.calculated_sd_hz[i]);
    }
    // Perturbed fits scatter around the fit, not on it.
    EXPECT_NE(kept.sample_saupe.front(), kept.sample_saupe.back());
  }
}

TEST(FitTensor, SignCheckFindsTheInvertedType) {
  std::vector<FitRow> rows = synthetic(0.5, 21, 0.0);
  for (FitRow& r : rows)
    if (r.type == "N-H" || r.type == "C-N") r.value_hz = -r.value_hz;
  const std::vector<SignCheck> checks = check_signs(rows);
  ASSERT_EQ(checks.size(), 5u);
  // Exactly the two inverted types are flagged; the best combination is the
  // data with the right signs.
  const std::vector<FitRow> right = synthetic(0.5, 21, 0.0);
  const TensorFit right_fit = fit_tensor(right);
  const double q_right = fit_quality(right, right_fit.calculated_hz, right_fit.tensor).overall.q;
  for (const SignCheck& c : checks) {
    EXPECT_EQ(c.inverted_fits_better, c.type == "N-H" || c.type == "C-N") << c.type;
    EXPECT_GT(c.q_as_given, 2 * q_right);
    EXPECT_NEAR(c.q_best, q_right, 1e-12);
  }
  const auto nh =
      std::find_if(checks.begin(), checks.end(), [](auto& c) { return c.type == "N-H"; });
  EXPECT_LT(nh->q_inverted, nh->q_as_given);
  // The correct data: nothing is flagged.
  for (const SignCheck& c : check_signs(synthetic(0.5, 21, 0.0)))
    EXPECT_FALSE(c.inverted_fits_better);
}

TEST(FitTensor, OutliersAndErrors) {
  // Noise-free data with an error of 1 Hz given and one value 25 Hz off.
  std::vector<FitRow> rows = synthetic(0.0, 31, 1.0);
  rows[17].value_hz += 25.0;
  const TensorFit fit = fit_tensor(rows);
  const std::vector<std::size_t> found = outliers(rows, fit);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0], 17u);

  std::vector<FitRow> few(rows.begin(), rows.begin() + 4);
  EXPECT_THROW(fit_tensor(few), Error);
  // All vectors in the xy plane: Sxz, Syz and Szz apart from the rest are
  // not determined.
  std::vector<FitRow> flat;
  for (int k = 0; k < 20; ++k) {
    FitRow r;
    r.dmax_hz = 1000;
    r.design = coupling_design({std::cos(k * 0.3), std::sin(k * 0.3), 0.0}, 1000);
    r.value_hz = k;
    flat.push_back(r);
  }
  EXPECT_THROW(fit_tensor(flat), Error);
  EXPECT_THROW(coupling_design({0, 0, 0}, 1000), Error);
}

}  // namespace
}  // namespace vorn
