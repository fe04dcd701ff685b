#include "tensor/jacobi.hpp"

#include <cmath>

#include "core/fatal.hpp"

namespace vorn {

namespace {

// One plane-rotation step on the element pair (e1, e2).
inline void rotate(double& e1, double& e2, double s, double tau) {
  const double g = e1;
  const double h = e2;
  e1 = g - s * (h + g * tau);
  e2 = h + s * (g - h * tau);
}

}  // namespace

void saupe_matrix(const double saupe[5], double m[4][4]) {
  m[1][1] = -0.5 * (saupe[0] - saupe[1]);
  m[1][2] = saupe[2];
  m[1][3] = saupe[3];
  m[2][1] = saupe[2];
  m[2][2] = -0.5 * (saupe[0] + saupe[1]);
  m[2][3] = saupe[4];
  m[3][1] = saupe[3];
  m[3][2] = saupe[4];
  m[3][3] = saupe[0];
}

void jacobimz(double a[4][4], double d[4], double v[4][4], int& nrot) {
  constexpr int n = 3;
  double b[4] = {};
  double z[4] = {};
  for (int ip = 1; ip <= n; ++ip) {
    for (int iq = 1; iq <= n; ++iq) v[ip][iq] = 0.0;
    v[ip][ip] = 1.0;
  }
  for (int ip = 1; ip <= n; ++ip) {
    b[ip] = d[ip] = a[ip][ip];
    z[ip] = 0.0;
  }
  nrot = 0;
  for (int i = 1; i <= 50; ++i) {
    double sm = 0.0;
    for (int ip = 1; ip <= n - 1; ++ip) {
      for (int iq = ip + 1; iq <= n; ++iq) sm += std::fabs(a[ip][iq]);
    }
    if (sm == 0.0) return;
    const double tresh = (i < 4) ? 0.2 * sm / (n * n) : 0.0;
    for (int ip = 1; ip <= n - 1; ++ip) {
      for (int iq = ip + 1; iq <= n; ++iq) {
        const double g = 100.0 * std::fabs(a[ip][iq]);
        // Negligible off-diagonal element (in double precision): drop it.
        if (i > 4 && std::fabs(d[ip]) + g == std::fabs(d[ip]) &&
            std::fabs(d[iq]) + g == std::fabs(d[iq])) {
          a[ip][iq] = 0.0;
        } else if (std::fabs(a[ip][iq]) > tresh) {
          double h = d[iq] - d[ip];
          double t;
          if (std::fabs(h) + g == std::fabs(h)) {
            t = a[ip][iq] / h;
          } else {
            const double theta = 0.5 * h / a[ip][iq];
            t = 1.0 / (std::fabs(theta) + std::sqrt(1.0 + theta * theta));
            if (theta < 0.0) t = -t;
          }
          const double c = 1.0 / std::sqrt(1 + t * t);
          const double s = t * c;
          const double tau = s / (1.0 + c);
          h = t * a[ip][iq];
          z[ip] -= h;
          z[iq] += h;
          d[ip] -= h;
          d[iq] += h;
          a[ip][iq] = 0.0;
          for (int j = 1; j <= ip - 1; ++j) rotate(a[j][ip], a[j][iq], s, tau);
          for (int j = ip + 1; j <= iq - 1; ++j) rotate(a[ip][j], a[j][iq], s, tau);
          for (int j = iq + 1; j <= n; ++j) rotate(a[ip][j], a[iq][j], s, tau);
          for (int j = 1; j <= n; ++j) rotate(v[j][ip], v[j][iq], s, tau);
          ++nrot;
        }
      }
    }
    for (int ip = 1; ip <= n; ++ip) {
      b[ip] += z[ip];
      d[ip] = b[ip];
      z[ip] = 0.0;
    }
  }
  nrerror("Too many iterations in routine jacobi");
}

int sort_eigensystem(double eigVal[4], double eigVec[4][4]) {
  double d[4];
  double v[4][4];
  for (int i = 1; i <= 3; ++i) {
    d[i] = eigVal[i];
    for (int j = 1; j <= 3; ++j) v[i][j] = eigVec[i][j];
  }
  // Three strict compare-exchange steps on |d|: (1,2), (1,3), (2,3).
  const auto exchange = [&d, &v](int p, int q) {
    if (std::fabs(d[q]) > std::fabs(d[p])) {
      const double t = d[p];
      d[p] = d[q];
      d[q] = t;
      for (int i = 1; i <= 3; ++i) {
        const double c = v[i][p];
        v[i][p] = v[i][q];
        v[i][q] = c;
      }
    }
  };
  exchange(1, 2);
  exchange(1, 3);
  exchange(2, 3);
  for (int i = 1; i <= 3; ++i) {
    eigVal[i] = d[i];
    for (int j = 1; j <= 3; ++j) eigVec[i][j] = v[i][j];
  }
  return 0;
}

}  // namespace vorn
