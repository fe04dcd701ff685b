// Singular value decomposition by Householder reduction to upper bidiagonal
// form followed by implicitly shifted QR iterations on the bidiagonal
// (Golub-Kahan), in the LINPACK calling style, with the BLAS level 1 kernels
// it needs.
#include "fit/dsvdc.hpp"

#include <algorithm>
#include <cmath>

namespace vorn {

namespace {

// Offset of the k-th (0-based) element of a strided BLAS vector of n
// elements; a negative stride walks the storage backwards.
inline integer at(integer k, integer n, integer inc) {
  return inc >= 0 ? k * inc : (n - 1 - k) * (-inc);
}

}  // namespace

double d_sign(double* a, double* b) {
  const double magnitude = std::fabs(*a);
  return *b >= 0.0 ? magnitude : -magnitude;
}

void daxpy_(integer* n, double* da, double* dx, integer* incx, double* dy, integer* incy) {
  if (*n <= 0 || *da == 0.0) return;
  for (integer k = 0; k < *n; ++k) dy[at(k, *n, *incy)] += *da * dx[at(k, *n, *incx)];
}

double ddot_(integer* n, double* dx, integer* incx, double* dy, integer* incy) {
  double sum = 0.0;
  for (integer k = 0; k < *n; ++k) sum += dx[at(k, *n, *incx)] * dy[at(k, *n, *incy)];
  return sum;
}

double dnrm2_(integer* n, double* x, integer* incx) {
  if (*n < 1 || *incx < 1) return 0.0;
  if (*n == 1) return std::fabs(x[0]);
  // Sum of squares relative to the largest magnitude seen so far.
  double scale = 0.0;
  double ssq = 1.0;
  for (integer k = 0; k < *n; ++k) {
    const double value = x[k * *incx];
    if (value != 0.0) {
      const double absxi = std::fabs(value);
      if (scale < absxi) {
        const double ratio = scale / absxi;
        ssq = 1.0 + ssq * (ratio * ratio);
        scale = absxi;
      } else {
        const double ratio = absxi / scale;
        ssq += ratio * ratio;
      }
    }
  }
  return scale * std::sqrt(ssq);
}

void drot_(integer* n, double* dx, integer* incx, double* dy, integer* incy, double* c, double* s) {
  for (integer k = 0; k < *n; ++k) {
    double& xk = dx[at(k, *n, *incx)];
    double& yk = dy[at(k, *n, *incy)];
    const double temp = *c * xk + *s * yk;
    yk = *c * yk - *s * xk;
    xk = temp;
  }
}

void drotg_(double* da, double* db, double* c, double* s) {
  const double a = *da;
  const double b = *db;
  const double roe = std::fabs(a) > std::fabs(b) ? a : b;
  const double scale = std::fabs(a) + std::fabs(b);
  double r;
  double z;
  if (scale == 0.0) {
    *c = 1.0;
    *s = 0.0;
    r = 0.0;
    z = 0.0;
  } else {
    const double as = a / scale;
    const double bs = b / scale;
    r = scale * std::sqrt(as * as + bs * bs);
    r = (roe >= 0.0 ? 1.0 : -1.0) * r;
    *c = a / r;
    *s = b / r;
    z = 1.0;
    if (std::fabs(a) > std::fabs(b)) z = *s;
    if (std::fabs(b) >= std::fabs(a) && *c != 0.0) z = 1.0 / *c;
  }
  *da = r;
  *db = z;
}

void dscal_(integer* n, double* da, double* dx, integer* incx) {
  if (*n <= 0 || *incx <= 0) return;
  for (integer k = 0; k < *n; ++k) dx[k * *incx] *= *da;
}

void dswap_(integer* n, double* dx, integer* incx, double* dy, integer* incy) {
  for (integer k = 0; k < *n; ++k) std::swap(dx[at(k, *n, *incx)], dy[at(k, *n, *incy)]);
}

void dsvdc_(double* x, integer* ldx, integer* n, integer* p, double* s, double* e, double* u,
            integer* ldu, double* v, integer* ldv, double* work, integer* job, integer* info) {
  const integer nn = *n;
  const integer pp = *p;
  const integer lx = *ldx;
  const integer lu_dim = *ldu;
  const integer lv_dim = *ldv;
  constexpr integer kMaxit = 30;  // QR sweeps allowed per singular value
  integer one = 1;

  // 1-based element access.
  auto X = [&](integer i, integer j) -> double& { return x[(i - 1) + (j - 1) * lx]; };
  auto U = [&](integer i, integer j) -> double& { return u[(i - 1) + (j - 1) * lu_dim]; };
  auto V = [&](integer i, integer j) -> double& { return v[(i - 1) + (j - 1) * lv_dim]; };
  auto S = [&](integer i) -> double& { return s[i - 1]; };
  auto E = [&](integer i) -> double& { return e[i - 1]; };
  auto W = [&](integer i) -> double& { return work[i - 1]; };

  // Thin wrappers taking values.
  auto nrm2 = [&](integer count, double* vec) { return dnrm2_(&count, vec, &one); };
  auto dot = [&](integer count, double* a, double* b) { return ddot_(&count, a, &one, b, &one); };
  auto axpy = [&](integer count, double alpha, double* a, double* b) {
    daxpy_(&count, &alpha, a, &one, b, &one);
  };
  auto scal = [&](integer count, double alpha, double* a) { dscal_(&count, &alpha, a, &one); };
  auto rot = [&](integer count, double* a, double* b, double c, double sn) {
    drot_(&count, a, &one, b, &one, &c, &sn);
  };
  auto swap = [&](integer count, double* a, double* b) { dswap_(&count, a, &one, b, &one); };
  auto sign = [](double a, double b) { return d_sign(&a, &b); };

  const integer ncu_full = nn;
  const bool wantu = (*job % 100) / 10 != 0;
  const integer ncu = (*job % 100) / 10 > 1 ? std::min(nn, pp) : ncu_full;
  const bool wantv = *job % 10 != 0;

  *info = 0;

  // Householder reduction to bidiagonal form: the diagonal goes to s, the
  // superdiagonal to e.
  const integer nct = std::min(nn - 1, pp);
  const integer nrt = std::max<integer>(0, std::min(pp - 2, nn));
  const integer lu = std::max(nct, nrt);
  for (integer l = 1; l <= lu; ++l) {
    const integer lp1 = l + 1;
    if (l <= nct) {
      // Transformation for column l; its norm becomes the diagonal element.
      S(l) = nrm2(nn - l + 1, &X(l, l));
      if (S(l) != 0.0) {
        if (X(l, l) != 0.0) S(l) = sign(S(l), X(l, l));
        scal(nn - l + 1, 1.0 / S(l), &X(l, l));
        X(l, l) = 1.0 + X(l, l);
      }
      S(l) = -S(l);
    }
    for (integer j = lp1; j <= pp; ++j) {
      if (l <= nct && S(l) != 0.0) {
        const double t = -dot(nn - l + 1, &X(l, l), &X(l, j)) / X(l, l);
        axpy(nn - l + 1, t, &X(l, l), &X(l, j));
      }
      // Row l of the transformed matrix, for the row transformation below.
      E(j) = X(l, j);
    }
    if (wantu && l <= nct) {
      for (integer i = l; i <= nn; ++i) U(i, l) = X(i, l);
    }
    if (l <= nrt) {
      // Transformation for row l; its norm becomes the superdiagonal element.
      E(l) = nrm2(pp - l, &E(lp1));
      if (E(l) != 0.0) {
        if (E(lp1) != 0.0) E(l) = sign(E(l), E(lp1));
        scal(pp - l, 1.0 / E(l), &E(lp1));
        E(lp1) = 1.0 + E(lp1);
      }
      E(l) = -E(l);
      if (lp1 <= nn && E(l) != 0.0) {
        for (integer i = lp1; i <= nn; ++i) W(i) = 0.0;
        for (integer j = lp1; j <= pp; ++j) axpy(nn - l, E(j), &X(lp1, j), &W(lp1));
        for (integer j = lp1; j <= pp; ++j) axpy(nn - l, -E(j) / E(lp1), &W(lp1), &X(lp1, j));
      }
      if (wantv) {
        for (integer i = lp1; i <= pp; ++i) V(i, l) = E(i);
      }
    }
  }

  // The final bidiagonal matrix of order m.
  integer m = std::min(pp, nn + 1);
  const integer nctp1 = nct + 1;
  const integer nrtp1 = nrt + 1;
  if (nct < pp) S(nctp1) = X(nctp1, nctp1);
  if (nn < m) S(m) = 0.0;
  if (nrtp1 < m) E(nrtp1) = X(nrtp1, m);
  E(m) = 0.0;

  // Accumulate the left transformations.
  if (wantu) {
    for (integer j = nctp1; j <= ncu; ++j) {
      for (integer i = 1; i <= nn; ++i) U(i, j) = 0.0;
      U(j, j) = 1.0;
    }
    for (integer ll = 1; ll <= nct; ++ll) {
      const integer l = nct - ll + 1;
      if (S(l) != 0.0) {
        for (integer j = l + 1; j <= ncu; ++j) {
          const double t = -dot(nn - l + 1, &U(l, l), &U(l, j)) / U(l, l);
          axpy(nn - l + 1, t, &U(l, l), &U(l, j));
        }
        scal(nn - l + 1, -1.0, &U(l, l));
        U(l, l) = 1.0 + U(l, l);
        for (integer i = 1; i <= l - 1; ++i) U(i, l) = 0.0;
      } else {
        for (integer i = 1; i <= nn; ++i) U(i, l) = 0.0;
        U(l, l) = 1.0;
      }
    }
  }

  // Accumulate the right transformations.
  if (wantv) {
    for (integer ll = 1; ll <= pp; ++ll) {
      const integer l = pp - ll + 1;
      const integer lp1 = l + 1;
      if (l <= nrt && E(l) != 0.0) {
        for (integer j = lp1; j <= pp; ++j) {
          const double t = -dot(pp - l, &V(lp1, l), &V(lp1, j)) / V(lp1, l);
          axpy(pp - l, t, &V(lp1, l), &V(lp1, j));
        }
      }
      for (integer i = 1; i <= pp; ++i) V(i, l) = 0.0;
      V(l, l) = 1.0;
    }
  }

  // QR iterations on the bidiagonal s (diagonal), e (superdiagonal). The
  // negligibility tests compare test + |element| == test, so an element that
  // is not a number is never negligible: a NaN matrix sweeps until the
  // iteration limit and reports the last singular value in info.
  const integer mm = m;
  integer iter = 0;
  while (m != 0) {
    if (iter >= kMaxit) {
      *info = m;
      break;
    }

    // Find the largest l < m with a negligible e(l) (l = 0 if none).
    integer l = 0;
    for (integer ll = 1; ll <= m; ++ll) {
      l = m - ll;
      if (l == 0) break;
      const double test = std::fabs(S(l)) + std::fabs(S(l + 1));
      const double ztest = test + std::fabs(E(l));
      if (ztest == test) {
        E(l) = 0.0;
        break;
      }
    }

    int kase;
    if (l == m - 1) {
      kase = 4;  // s(m) has converged
    } else {
      // Look for a negligible diagonal element between l+1 and m.
      const integer lp1 = l + 1;
      const integer mp1 = m + 1;
      integer ls = l;
      for (integer lls = lp1; lls <= mp1; ++lls) {
        ls = m - lls + lp1;
        if (ls == l) break;
        double test = 0.0;
        if (ls != m) test += std::fabs(E(ls));
        if (ls != l + 1) test += std::fabs(E(ls - 1));
        const double ztest = test + std::fabs(S(ls));
        if (ztest == test) {
          S(ls) = 0.0;
          break;
        }
      }
      if (ls == l) {
        kase = 3;  // a QR sweep on rows l+1..m
      } else if (ls == m) {
        kase = 1;  // s(m) negligible: deflate
      } else {
        kase = 2;  // s(ls) negligible: split
        l = ls;
      }
    }
    l = l + 1;

    switch (kase) {
      case 1: {
        // Chase e(m-1) up and out with rotations from the right.
        const integer mm1 = m - 1;
        double f = E(m - 1);
        E(m - 1) = 0.0;
        for (integer kk = l; kk <= mm1; ++kk) {
          const integer k = mm1 - kk + l;
          double t1 = S(k);
          double cs = 0.0;
          double sn = 0.0;
          drotg_(&t1, &f, &cs, &sn);
          S(k) = t1;
          if (k != l) {
            f = -sn * E(k - 1);
            E(k - 1) = cs * E(k - 1);
          }
          if (wantv) rot(pp, &V(1, k), &V(1, m), cs, sn);
        }
        break;
      }
      case 2: {
        // Chase e(l-1) to the right with rotations from the left.
        double f = E(l - 1);
        E(l - 1) = 0.0;
        for (integer k = l; k <= m; ++k) {
          double t1 = S(k);
          double cs = 0.0;
          double sn = 0.0;
          drotg_(&t1, &f, &cs, &sn);
          S(k) = t1;
          f = -sn * E(k);
          E(k) = cs * E(k);
          if (wantu) rot(nn, &U(1, k), &U(1, l - 1), cs, sn);
        }
        break;
      }
      case 3: {
        // Shift: the eigenvalue of the trailing 2 by 2 block of B B^T that is
        // closer to s(m)^2, computed on scaled values.
        const double scale = std::max({std::fabs(S(m)), std::fabs(S(m - 1)), std::fabs(E(m - 1)),
                                       std::fabs(S(l)), std::fabs(E(l))});
        const double sm = S(m) / scale;
        const double smm1 = S(m - 1) / scale;
        const double emm1 = E(m - 1) / scale;
        const double sl = S(l) / scale;
        const double el = E(l) / scale;
        const double b = ((smm1 + sm) * (smm1 - sm) + emm1 * emm1) / 2.0;
        const double c = (sm * emm1) * (sm * emm1);
        double shift = 0.0;
        if (b != 0.0 || c != 0.0) {
          shift = std::sqrt(b * b + c);
          if (b < 0.0) shift = -shift;
          shift = c / (b + shift);
        }
        double f = (sl + sm) * (sl - sm) + shift;
        double g = sl * el;

        // Chase the bulge down the bidiagonal.
        const integer mm1 = m - 1;
        for (integer k = l; k <= mm1; ++k) {
          double cs = 0.0;
          double sn = 0.0;
          drotg_(&f, &g, &cs, &sn);
          if (k != l) E(k - 1) = f;
          f = cs * S(k) + sn * E(k);
          E(k) = cs * E(k) - sn * S(k);
          g = sn * S(k + 1);
          S(k + 1) = cs * S(k + 1);
          if (wantv) rot(pp, &V(1, k), &V(1, k + 1), cs, sn);
          drotg_(&f, &g, &cs, &sn);
          S(k) = f;
          f = cs * E(k) + sn * S(k + 1);
          S(k + 1) = -sn * E(k) + cs * S(k + 1);
          g = sn * E(k + 1);
          E(k + 1) = cs * E(k + 1);
          if (wantu && k < nn) rot(nn, &U(1, k), &U(1, k + 1), cs, sn);
        }
        E(m - 1) = f;
        iter = iter + 1;
        break;
      }
      default: {
        // Convergence: make the singular value non-negative and move it into
        // descending order.
        if (S(l) < 0.0) {
          S(l) = -S(l);
          if (wantv) scal(pp, -1.0, &V(1, l));
        }
        while (l != mm) {
          if (S(l) >= S(l + 1)) break;
          std::swap(S(l), S(l + 1));
          if (wantv && l < pp) swap(pp, &V(1, l), &V(1, l + 1));
          if (wantu && l < nn) swap(nn, &U(1, l), &U(1, l + 1));
          l = l + 1;
        }
        iter = 0;
        m = m - 1;
        break;
      }
    }
  }
}

}  // namespace vorn
