// Statistical special functions (log-gamma, incomplete beta and gamma
// functions) and the correlation and straight-line fit built on them. Single
// precision at the interfaces; vectors are used from index 1.
#pragma once

namespace vorn {

// ln Gamma(xx) for xx > 0 (Lanczos approximation).
float gammln(float xx);
// Regularised incomplete beta function I_x(a, b).
float betai(float a, float b, float x);
// Continued fraction for betai (modified Lentz method).
float betacf(float a, float b, float x);
// Regularised upper incomplete gamma function Q(a, x).
float gammq(float a, float x);
// P(a, x) by its series; gln receives ln Gamma(a).
void gser(float& gamser, float a, float x, float& gln);
// Q(a, x) by its continued fraction; gln receives ln Gamma(a).
void gcf(float& gammcf, float a, float x, float& gln);

// Pearson's r of x[1..n] and y[1..n], the probability of Student's t and
// Fisher's z.
void pearsn(const float x[], const float y[], int n, float& r, float& prob, float& z);
// Least-squares line y = a + b x over 1..ndata; weighted by 1/sig^2 when
// mwt is not 0.
void fit(const float x[], const float y[], int ndata, const float sig[], int mwt, float& a,
         float& b, float& siga, float& sigb, float& chi2, float& q);

// Square through a single-precision temporary: the argument is narrowed to
// float, 0 gives exactly 0, otherwise the float product is widened. The
// numerical routines share this precision on purpose.
inline double sqr_float(double value) {
  const float t = static_cast<float>(value);
  return t == 0.0f ? 0.0 : static_cast<double>(t * t);
}

}  // namespace vorn
