// Statistical special functions in single precision. The variables are
// float and the literal constants double, so mixed expressions are evaluated
// in double and narrowed on assignment, as the classic C routines do; the
// mathematical functions are always the double ones (a float argument is
// widened), never float overloads.
#include "fit/nr_special.hpp"

#include <cmath>

#include "core/fatal.hpp"

namespace vorn {

namespace {

double c_log(double v) { return std::log(v); }
double c_exp(double v) { return std::exp(v); }
double c_sqrt(double v) { return std::sqrt(v); }
double c_fabs(double v) { return std::fabs(v); }

constexpr int kBetacfMaxit = 100;
constexpr double kBetacfEps = 3.0e-7;
constexpr int kGammaItmax = 100;
constexpr double kGammaEps = 3.0e-7;
constexpr double kFpmin = 1.0e-30;
constexpr double kTiny = 1.0e-20;

}  // namespace

float gammln(float xx) {
  static const double cof[6] = {76.18009172947146,  -86.50532032941678,   24.01409824083091,
                                -1.231739572450155, 0.001208650973866179, -5.395239384953e-06};
  double x = xx;
  double y = x;
  double tmp = x + 5.5;
  tmp -= (x + 0.5) * c_log(tmp);
  double ser = 1.000000000190015;
  for (int j = 0; j <= 5; ++j) {
    y = y + 1;
    ser += cof[j] / y;
  }
  return static_cast<float>(-tmp + c_log(2.5066282746310007 * ser / x));
}

float betai(float a, float b, float x) {
  if (x < 0.0 || x > 1.0) nrerror("Bad x in routine betai");
  float bt;
  if (x == 0.0 || x == 1.0) {
    bt = 0.0f;
  } else {
    bt = static_cast<float>(
        c_exp(gammln(a + b) - gammln(a) - gammln(b) + a * c_log(x) + b * c_log(1.0 - x)));
  }
  if (x < (a + 1.0) / (a + b + 2.0)) return bt * betacf(a, b, x) / a;
  return static_cast<float>(1.0 - bt * betacf(b, a, static_cast<float>(1.0 - x)) / b);
}

float betacf(float a, float b, float x) {
  const float qab = a + b;
  const float qap = static_cast<float>(a + 1.0);
  const float qam = static_cast<float>(a - 1.0);
  float c = 1.0f;
  float d = static_cast<float>(1.0 - qab * x / qap);
  if (c_fabs(d) < kFpmin) d = static_cast<float>(kFpmin);
  d = static_cast<float>(1.0 / d);
  float h = d;
  int m = 1;
  for (; m <= kBetacfMaxit; ++m) {
    const int m2 = 2 * m;
    float aa = m * (b - m) * x / ((qam + m2) * (a + m2));
    d = static_cast<float>(1.0 + aa * d);
    if (c_fabs(d) < kFpmin) d = static_cast<float>(kFpmin);
    c = static_cast<float>(1.0 + aa / c);
    if (c_fabs(c) < kFpmin) c = static_cast<float>(kFpmin);
    d = static_cast<float>(1.0 / d);
    h = h * d * c;
    aa = -(a + m) * (qab + m) * x / ((a + m2) * (qap + m2));
    d = static_cast<float>(1.0 + aa * d);
    if (c_fabs(d) < kFpmin) d = static_cast<float>(kFpmin);
    c = static_cast<float>(1.0 + aa / c);
    if (c_fabs(c) < kFpmin) c = static_cast<float>(kFpmin);
    d = static_cast<float>(1.0 / d);
    const float del = d * c;
    h = h * del;
    // A NaN argument never meets this test and ends in the error below.
    if (c_fabs(del - 1.0) < kBetacfEps) break;
  }
  if (m > kBetacfMaxit) nrerror("a or b too big, or MAXIT too small in betacf");
  return h;
}

float gammq(float a, float x) {
  if (x < 0.0 || a <= 0.0) nrerror("Invalid arguments in routine gammq");
  float gln = 0.0f;
  if (x < (a + 1.0)) {
    float gamser = 0.0f;
    gser(gamser, a, x, gln);
    return static_cast<float>(1.0 - gamser);
  }
  float gammcf = 0.0f;
  gcf(gammcf, a, x, gln);
  return gammcf;
}

void gser(float& gamser, float a, float x, float& gln) {
  gln = gammln(a);
  if (x <= 0.0) {
    if (x < 0.0) nrerror("x less than 0 in routine gser");
    gamser = 0.0f;
    return;
  }
  float ap = a;
  float del = static_cast<float>(1.0 / a);
  float sum = del;
  for (int n = 1; n <= kGammaItmax; ++n) {
    ap = ap + 1;
    del = del * x / ap;
    sum = sum + del;
    if (c_fabs(del) < c_fabs(sum) * kGammaEps) {
      gamser = static_cast<float>(sum * c_exp(-x + a * c_log(x) - gln));
      return;
    }
  }
  nrerror("a too large, ITMAX too small in routine gser");
}

void gcf(float& gammcf, float a, float x, float& gln) {
  gln = gammln(a);
  float b = static_cast<float>(x + 1.0 - a);
  float c = static_cast<float>(1.0 / kFpmin);
  float d = static_cast<float>(1.0 / b);
  float h = d;
  int i = 1;
  for (; i <= kGammaItmax; ++i) {
    const float an = -i * (i - a);
    b = static_cast<float>(b + 2.0);
    d = an * d + b;
    if (c_fabs(d) < kFpmin) d = static_cast<float>(kFpmin);
    c = b + an / c;
    if (c_fabs(c) < kFpmin) c = static_cast<float>(kFpmin);
    d = static_cast<float>(1.0 / d);
    const float del = d * c;
    h = h * del;
    if (c_fabs(del - 1.0) < kGammaEps) break;
  }
  if (i > kGammaItmax) nrerror("a too large, ITMAX too small in gcf");
  gammcf = static_cast<float>(c_exp(-x + a * c_log(x) - gln) * h);
}

void pearsn(const float x[], const float y[], int n, float& r, float& prob, float& z) {
  float ax = 0.0f;
  float ay = 0.0f;
  for (int j = 1; j <= n; ++j) {
    ax += x[j];
    ay += y[j];
  }
  // n is a signed count: with fewer than three points df = n - 2 is at most
  // 0 and the t argument below becomes NaN (see betacf).
  ax /= n;
  ay /= n;
  float sxx = 0.0f;
  float syy = 0.0f;
  float sxy = 0.0f;
  for (int j = 1; j <= n; ++j) {
    const float xt = x[j] - ax;
    const float yt = y[j] - ay;
    sxx += xt * xt;
    syy += yt * yt;
    sxy += xt * yt;
  }
  r = static_cast<float>(sxy / (c_sqrt(sxx * syy) + kTiny));
  z = static_cast<float>(0.5 * c_log((1.0 + r + kTiny) / (1.0 - r + kTiny)));
  const float df = static_cast<float>(n - 2);
  const float t = static_cast<float>(r * c_sqrt(df / ((1.0 - r + kTiny) * (1.0 + r + kTiny))));
  prob = betai(static_cast<float>(0.5 * df), 0.5f, df / (df + t * t));
}

void fit(const float x[], const float y[], int ndata, const float sig[], int mwt, float& a,
         float& b, float& siga, float& sigb, float& chi2, float& q) {
  float sx = 0.0f;
  float sy = 0.0f;
  float st2 = 0.0f;
  float ss;
  b = 0.0f;
  if (mwt != 0) {
    ss = 0.0f;
    for (int i = 1; i <= ndata; ++i) {
      const float wt = static_cast<float>(1.0 / sqr_float(sig[i]));
      ss += wt;
      sx += x[i] * wt;
      sy += y[i] * wt;
    }
  } else {
    for (int i = 1; i <= ndata; ++i) {
      sx += x[i];
      sy += y[i];
    }
    ss = static_cast<float>(ndata);
  }
  const float sxoss = sx / ss;
  if (mwt != 0) {
    for (int i = 1; i <= ndata; ++i) {
      const float t = (x[i] - sxoss) / sig[i];
      st2 += t * t;
      b += t * y[i] / sig[i];
    }
  } else {
    for (int i = 1; i <= ndata; ++i) {
      const float t = x[i] - sxoss;
      st2 += t * t;
      b += t * y[i];
    }
  }
  b /= st2;
  a = (sy - sx * b) / ss;
  siga = static_cast<float>(c_sqrt((1.0 + sx * sx / (ss * st2)) / ss));
  sigb = static_cast<float>(c_sqrt(1.0 / st2));
  chi2 = 0.0f;
  q = 1.0f;
  if (mwt == 0) {
    for (int i = 1; i <= ndata; ++i)
      chi2 = static_cast<float>(chi2 + sqr_float(y[i] - a - b * x[i]));
    const float sigdat = static_cast<float>(c_sqrt(chi2 / (ndata - 2)));
    siga *= sigdat;
    sigb *= sigdat;
  } else {
    for (int i = 1; i <= ndata; ++i)
      chi2 = static_cast<float>(chi2 + sqr_float((y[i] - a - b * x[i]) / sig[i]));
    q = gammq(static_cast<float>(0.5 * (ndata - 2)), static_cast<float>(0.5 * chi2));
  }
}

}  // namespace vorn
