// Special functions and the statistics routines, checked against closed
// forms and against independent long double computations.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "core/fatal.hpp"
#include "fit/nr_special.hpp"

namespace vorn {
namespace {

constexpr double kFloatRel = 2e-6;  // a few units of single precision

std::string nr_block(const std::string& message) {
  return "Numerical Recipes run-time error...\n" + message + "\n...now exiting to system...\n";
}

template <class F>
void expect_nrerror(F&& call, const std::string& message) {
  try {
    call();
    ADD_FAILURE() << "no error for " << message;
  } catch (const FatalError& error) {
    EXPECT_EQ(error.text(), nr_block(message));
    EXPECT_EQ(error.stream(), Stream::err);
    EXPECT_EQ(error.status(), 1);
  }
}

// Regularised incomplete beta by composite Simpson integration of
// t^(a-1) (1-t)^(b-1) in long double; for a >= 1, b >= 1 or x away from 1.
long double beta_integral(long double a, long double b, long double x) {
  auto f = [&](long double t) {
    if (t <= 0.0L) return a == 1.0L ? 1.0L : 0.0L;
    return std::pow(t, a - 1.0L) * std::pow(1.0L - t, b - 1.0L);
  };
  const int n = 200000;
  auto simpson = [&](long double hi) {
    const long double h = hi / n;
    long double sum = f(0.0L) + f(hi);
    for (int i = 1; i < n; ++i) sum += f(i * h) * (i % 2 == 1 ? 4.0L : 2.0L);
    return sum * h / 3.0L;
  };
  const long double log_beta = std::lgamma(a) + std::lgamma(b) - std::lgamma(a + b);
  return simpson(x) / std::exp(log_beta);
}

// I_x(a, b) for integer a, b: binomial tail.
long double beta_binomial(int a, int b, long double x) {
  const int n = a + b - 1;
  long double sum = 0.0L;
  for (int j = a; j <= n; ++j) {
    long double binom = 1.0L;
    for (int k = 1; k <= j; ++k) binom = binom * (n - j + k) / k;
    sum += binom * std::pow(x, j) * std::pow(1.0L - x, n - j);
  }
  return sum;
}

// Q(n, x) for integer n: e^-x sum_{k<n} x^k / k!.
long double gamma_q_integer(int n, long double x) {
  long double term = 1.0L;
  long double sum = 0.0L;
  for (int k = 0; k < n; ++k) {
    sum += term;
    term = term * x / (k + 1);
  }
  return std::exp(-x) * sum;
}

TEST(Gammln, KnownValues) {
  EXPECT_NEAR(gammln(1.0f), 0.0f, 1e-6);
  EXPECT_NEAR(gammln(2.0f), 0.0f, 1e-6);
  const double ln_sqrt_pi = 0.5 * std::log(3.14159265358979323846);
  EXPECT_NEAR(gammln(0.5f), ln_sqrt_pi, ln_sqrt_pi * kFloatRel);
}

TEST(Gammln, AgreesWithLongDoubleLogGamma) {
  for (float xx : {0.1f, 0.5f, 0.75f, 1.5f, 3.0f, 7.25f, 10.0f, 33.3f, 150.0f, 1000.0f}) {
    const long double expected = std::lgamma(static_cast<long double>(xx));
    const double tolerance = std::max(1e-6, std::fabs(static_cast<double>(expected)) * kFloatRel);
    EXPECT_NEAR(gammln(xx), static_cast<double>(expected), tolerance) << xx;
  }
  // Integers: ln((n-1)!).
  EXPECT_NEAR(gammln(5.0f), std::log(24.0), std::log(24.0) * kFloatRel);
}

TEST(Betai, EndPointsAreExact) {
  for (float a : {0.5f, 1.0f, 3.5f}) {
    for (float b : {0.5f, 2.0f}) {
      EXPECT_EQ(betai(a, b, 0.0f), 0.0f);
      EXPECT_EQ(betai(a, b, 1.0f), 1.0f);
    }
  }
}

TEST(Betai, OutsideTheUnitIntervalIsFatal) {
  expect_nrerror([] { betai(1.0f, 1.0f, -1e-6f); }, "Bad x in routine betai");
  expect_nrerror([] { betai(1.0f, 1.0f, 1.0f + 1e-6f); }, "Bad x in routine betai");
}

TEST(Betai, ClosedForms) {
  for (float x : {0.01f, 0.2f, 0.5f, 0.77f, 0.99f}) {
    EXPECT_NEAR(betai(1.0f, 1.0f, x), x, 1e-6) << x;
    for (float a : {0.5f, 2.0f, 3.5f}) {
      const double expected = std::pow(static_cast<double>(x), static_cast<double>(a));
      EXPECT_NEAR(betai(a, 1.0f, x), expected, 2e-6 + expected * 1e-5) << a << " " << x;
    }
    const double one_b = 1.0 - std::pow(1.0 - x, 3.0);
    EXPECT_NEAR(betai(1.0f, 3.0f, x), one_b, 2e-6 + one_b * 1e-5) << x;
  }
}

TEST(Betai, IntegerParametersAgainstBinomialTails) {
  for (int a : {1, 2, 5, 9}) {
    for (int b : {1, 3, 6}) {
      for (float x : {0.05f, 0.3f, 0.6f, 0.95f}) {
        const double expected = static_cast<double>(beta_binomial(a, b, x));
        EXPECT_NEAR(betai(static_cast<float>(a), static_cast<float>(b), x), expected,
                    2e-6 + expected * 1e-5)
            << a << " " << b << " " << x;
      }
    }
  }
}

TEST(Betai, StudentParametersAgainstNumericalIntegration) {
  // The form used for the significance of a correlation: a = df / 2, b = 1/2.
  for (float a : {1.0f, 2.5f, 10.0f}) {
    for (float x : {0.1f, 0.4f, 0.8f}) {
      const double expected = static_cast<double>(beta_integral(a, 0.5L, x));
      EXPECT_NEAR(betai(a, 0.5f, x), expected, 2e-6 + expected * 1e-5) << a << " " << x;
    }
  }
}

TEST(Betacf, NotANumberNeverConverges) {
  expect_nrerror([] { betacf(0.5f, 0.5f, std::nanf("")); },
                 "a or b too big, or MAXIT too small in betacf");
  expect_nrerror([] { betai(-0.5f, 0.5f, std::nanf("")); },
                 "a or b too big, or MAXIT too small in betacf");
}

TEST(Betacf, HugeParametersExhaustTheIterations) {
  expect_nrerror([] { betacf(1e6f, 1e6f, 0.5f); }, "a or b too big, or MAXIT too small in betacf");
}

TEST(Gammq, ExponentialCaseOnBothBranches) {
  // Q(1, x) = exp(-x); x < 2 takes the series, x >= 2 the continued fraction.
  for (float x : {0.0f, 0.1f, 0.9f, 1.99f, 2.0f, 3.5f, 10.0f, 30.0f}) {
    const double expected = std::exp(-static_cast<double>(x));
    EXPECT_NEAR(gammq(1.0f, x), expected, 1e-7 + expected * 1e-5) << x;
  }
}

TEST(Gammq, IntegerOrderAgainstPoissonSums) {
  for (int n : {2, 3, 7, 20}) {
    for (float x : {0.5f, 2.0f, 6.5f, 15.0f, 40.0f}) {
      const double expected = static_cast<double>(gamma_q_integer(n, x));
      EXPECT_NEAR(gammq(static_cast<float>(n), x), expected, 1e-7 + expected * 1e-5)
          << n << " " << x;
    }
  }
}

TEST(Gammq, HalfIntegerOrderAgainstErfc) {
  // Q(1/2, x) = erfc(sqrt(x)).
  for (float x : {0.2f, 1.0f, 1.6f, 4.0f}) {
    const double expected = std::erfc(std::sqrt(static_cast<double>(x)));
    EXPECT_NEAR(gammq(0.5f, x), expected, 1e-7 + expected * 1e-5) << x;
  }
}

TEST(Gammq, InvalidArgumentsAreFatal) {
  expect_nrerror([] { gammq(1.0f, -0.5f); }, "Invalid arguments in routine gammq");
  expect_nrerror([] { gammq(0.0f, 1.0f); }, "Invalid arguments in routine gammq");
}

TEST(Gser, SeriesAndItsLimits) {
  float gamser = -1.0f;
  float gln = -1.0f;
  gser(gamser, 3.0f, 0.0f, gln);
  EXPECT_EQ(gamser, 0.0f);
  EXPECT_NEAR(gln, std::log(2.0), 1e-6);
  gser(gamser, 2.0f, 1.5f, gln);
  const double p = 1.0 - static_cast<double>(gamma_q_integer(2, 1.5L));
  EXPECT_NEAR(gamser, p, p * 1e-5);
  expect_nrerror(
      [] {
        float g = 0.0f, l = 0.0f;
        gser(g, 1.0f, -1.0f, l);
      },
      "x less than 0 in routine gser");
  expect_nrerror(
      [] {
        float g = 0.0f, l = 0.0f;
        gser(g, 1e4f, 1e4f, l);
      },
      "a too large, ITMAX too small in routine gser");
}

TEST(Gcf, ContinuedFractionAndItsLimit) {
  float gammcf = -1.0f;
  float gln = -1.0f;
  gcf(gammcf, 3.0f, 5.0f, gln);
  const double q = static_cast<double>(gamma_q_integer(3, 5.0L));
  EXPECT_NEAR(gammcf, q, q * 1e-5);
  EXPECT_NEAR(gln, std::log(2.0), 1e-6);
  expect_nrerror(
      [] {
        float g = 0.0f, l = 0.0f;
        gcf(g, 1e5f, 1e5f + 1.0f, l);
      },
      "a too large, ITMAX too small in gcf");
}

TEST(Pearsn, CorrelationOfKnownData) {
  const float x[] = {0.0f, 1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f};
  const float y[] = {0.0f, 2.1f, 3.9f, 6.2f, 7.8f, 10.1f, 12.0f};
  const int n = 6;
  // Independent double computation of r.
  double mx = 0, my = 0;
  for (int i = 1; i <= n; ++i) {
    mx += x[i];
    my += y[i];
  }
  mx /= n;
  my /= n;
  double sxx = 0, syy = 0, sxy = 0;
  for (int i = 1; i <= n; ++i) {
    sxx += (x[i] - mx) * (x[i] - mx);
    syy += (y[i] - my) * (y[i] - my);
    sxy += (x[i] - mx) * (y[i] - my);
  }
  const double r_expected = sxy / std::sqrt(sxx * syy);
  float r = 0, prob = 0, z = 0;
  pearsn(x, y, n, r, prob, z);
  EXPECT_NEAR(r, r_expected, 1e-6);
  EXPECT_NEAR(z, std::atanh(r_expected), 1e-3);
  // Two-sided Student probability for df = 4: I_{df/(df+t^2)}(2, 1/2).
  const double df = n - 2;
  const double t = r_expected * std::sqrt(df / (1 - r_expected * r_expected));
  const double p_expected = static_cast<double>(beta_integral(2.0L, 0.5L, df / (df + t * t)));
  EXPECT_NEAR(prob, p_expected, 1e-3 * p_expected + 1e-9);
}

TEST(Pearsn, OneDegreeOfFreedomIsCauchy) {
  const float x[] = {0.0f, 1.0f, 2.0f, 4.0f};
  const float y[] = {0.0f, 1.0f, 3.0f, 3.5f};
  float r = 0, prob = 0, z = 0;
  pearsn(x, y, 3, r, prob, z);
  const double rr = r;
  const double t = rr * std::sqrt(1.0 / (1.0 - rr * rr));
  const double expected = 1.0 - 2.0 / 3.14159265358979323846 * std::atan(std::fabs(t));
  EXPECT_NEAR(prob, expected, 1e-5);
}

TEST(Pearsn, PerfectCorrelationStaysFinite) {
  const float x[] = {0.0f, 1.0f, 2.0f, 3.0f, 4.0f};
  const float y[] = {0.0f, 2.0f, 4.0f, 6.0f, 8.0f};
  float r = 0, prob = 1, z = 0;
  pearsn(x, y, 4, r, prob, z);
  EXPECT_FLOAT_EQ(r, 1.0f);
  EXPECT_TRUE(std::isfinite(z));
  EXPECT_NEAR(prob, 0.0f, 1e-6);
}

TEST(Pearsn, FewerThanThreePointsEndInTheBetacfError) {
  const float x[] = {0.0f, 1.0f, 2.0f};
  const float y[] = {0.0f, 3.0f, 5.0f};
  for (int n : {0, 1, 2}) {
    expect_nrerror(
        [&] {
          float r = 0, prob = 0, z = 0;
          pearsn(x, y, n, r, prob, z);
        },
        "a or b too big, or MAXIT too small in betacf");
  }
}

// Independent unweighted straight-line fit in double.
struct Line {
  double a, b, siga, sigb, chi2;
};
Line line_fit(const std::vector<double>& x, const std::vector<double>& y) {
  const int n = static_cast<int>(x.size());
  double sx = 0, sy = 0;
  for (int i = 0; i < n; ++i) {
    sx += x[i];
    sy += y[i];
  }
  const double mx = sx / n;
  double sxx = 0, sxy = 0;
  for (int i = 0; i < n; ++i) {
    sxx += (x[i] - mx) * (x[i] - mx);
    sxy += (x[i] - mx) * y[i];
  }
  Line l{};
  l.b = sxy / sxx;
  l.a = (sy - sx * l.b) / n;
  for (int i = 0; i < n; ++i) l.chi2 += std::pow(y[i] - l.a - l.b * x[i], 2);
  const double s2 = l.chi2 / (n - 2);
  l.sigb = std::sqrt(s2 / sxx);
  l.siga = std::sqrt(s2 * (1.0 / n + mx * mx / sxx));
  return l;
}

TEST(Fit, ExactLineHasNoScatter) {
  const float x[] = {0.0f, -1.0f, 0.0f, 1.0f, 2.0f, 3.0f};
  float y[6] = {};
  for (int i = 1; i <= 5; ++i) y[i] = 2.0f + 3.0f * x[i];
  const float sig[6] = {};
  float a, b, siga, sigb, chi2, q;
  fit(x, y, 5, sig, 0, a, b, siga, sigb, chi2, q);
  EXPECT_FLOAT_EQ(a, 2.0f);
  EXPECT_FLOAT_EQ(b, 3.0f);
  EXPECT_EQ(chi2, 0.0f);
  EXPECT_EQ(siga, 0.0f);
  EXPECT_EQ(sigb, 0.0f);
  EXPECT_EQ(q, 1.0f);
}

TEST(Fit, UnweightedAgainstDoubleComputation) {
  std::vector<double> xs, ys;
  std::vector<float> x = {0.0f}, y = {0.0f}, sig = {0.0f};
  for (int i = 0; i < 12; ++i) {
    const float xi = 0.7f * i - 3.0f;
    const float yi = 1.5f - 0.8f * xi + 0.3f * std::sin(1.7f * i);
    x.push_back(xi);
    y.push_back(yi);
    sig.push_back(0.0f);
    xs.push_back(xi);
    ys.push_back(yi);
  }
  const Line l = line_fit(xs, ys);
  float a, b, siga, sigb, chi2, q;
  fit(x.data(), y.data(), 12, sig.data(), 0, a, b, siga, sigb, chi2, q);
  EXPECT_NEAR(a, l.a, 1e-5);
  EXPECT_NEAR(b, l.b, 1e-5);
  EXPECT_NEAR(siga, l.siga, 1e-5 * l.siga + 1e-7);
  EXPECT_NEAR(sigb, l.sigb, 1e-5 * l.sigb + 1e-7);
  EXPECT_NEAR(chi2, l.chi2, 1e-5 * l.chi2 + 1e-7);
  EXPECT_EQ(q, 1.0f);
}

TEST(Fit, WeightedBranch) {
  // Equal uncertainties 0.5: same line, chi2 scaled by 1/0.25, standard errors
  // from the weights alone, q from the chi-square distribution.
  std::vector<double> xs, ys;
  std::vector<float> x = {0.0f}, y = {0.0f}, sig = {0.0f};
  const int n = 10;  // n - 2 = 8: q = Q(4, chi2 / 2) has a closed form
  for (int i = 0; i < n; ++i) {
    const float xi = static_cast<float>(i);
    const float yi = 4.0f + 0.5f * xi + 0.4f * std::cos(2.3f * i);
    x.push_back(xi);
    y.push_back(yi);
    sig.push_back(0.5f);
    xs.push_back(xi);
    ys.push_back(yi);
  }
  const Line l = line_fit(xs, ys);
  float a, b, siga, sigb, chi2, q;
  fit(x.data(), y.data(), n, sig.data(), 1, a, b, siga, sigb, chi2, q);
  EXPECT_NEAR(a, l.a, 1e-5);
  EXPECT_NEAR(b, l.b, 1e-5);
  const double chi2_expected = l.chi2 / 0.25;
  EXPECT_NEAR(chi2, chi2_expected, 1e-5 * chi2_expected);
  double sxx = 0, mx = 0;
  for (double v : xs) mx += v / n;
  for (double v : xs) sxx += (v - mx) * (v - mx);
  EXPECT_NEAR(sigb, std::sqrt(0.25 / sxx), 1e-6);
  EXPECT_NEAR(siga, std::sqrt(0.25 * (1.0 / n + mx * mx / sxx)), 1e-6);
  const double q_expected = static_cast<double>(gamma_q_integer(4, 0.5L * chi2_expected));
  EXPECT_NEAR(q, q_expected, 1e-5 * q_expected + 1e-7);
}

TEST(SqrFloat, SquaresThroughSinglePrecision) {
  EXPECT_EQ(sqr_float(0.0), 0.0);
  EXPECT_EQ(sqr_float(-0.0), 0.0);
  EXPECT_FALSE(std::signbit(sqr_float(-0.0)));
  const double v = 0.1;
  const float f = static_cast<float>(v);
  EXPECT_EQ(sqr_float(v), static_cast<double>(f * f));
  EXPECT_NE(sqr_float(v), v * v);
  EXPECT_TRUE(std::isnan(sqr_float(std::nan(""))));
}

}  // namespace
}  // namespace vorn
