// Least-squares fit of the five independent order-matrix elements to the
// measured couplings through a singular value decomposition.
#include "fit/svd_fit.hpp"

#include <cmath>
#include <cstdlib>
#include <new>
#include <vector>

#include "core/fatal.hpp"
#include "couplings/classic_types.hpp"
#include "fit/dsvdc.hpp"
#include "fit/nr_special.hpp"

namespace vorn {

namespace {

constexpr double kNotMeasured = 1000.0;  // couplings at or above it have no value
constexpr int kUnknowns = 5;             // Syy, Szz, Sxy, Sxz, Syz

// A working buffer of n doubles; an allocation failure is fatal with the
// buffer's own message.
std::vector<double> allocate(size_t n, const char* message) {
  try {
    return std::vector<double>(n, 0.0);
  } catch (const std::bad_alloc&) {
    nrerror(message);
  }
}

}  // namespace

bool order_in_range(const double order[9]) {
  bool ok = true;
  for (int d = 0; d < 3; ++d) {
    const double diagonal = order[4 * d];
    if (diagonal < -0.5 || diagonal > 1.0) ok = false;
  }
  for (int index : {3, 6, 7}) {
    if (order[index] < -0.75 || order[index] > 0.75) ok = false;
  }
  return ok;
}

bool outside_experimental_range(double predicted, float dc, float e) {
  const float upper = dc + e;
  const float lower = dc - e;
  return predicted > upper || predicted < lower;
}

int setup_svd(double nherror, std::span<const ClassicCoupling> couplings, FitRows& rows) {
  rows = FitRows{};
  int m = 0;
  for (const ClassicCoupling& c : couplings) {
    // Strictly below 1000.0: larger values and NaN are left out.
    if (!(c.value_hz < kNotMeasured)) continue;
    const int type = c.type;
    rows.x1.push_back(static_cast<float>(c.vector.x));
    rows.y1.push_back(static_cast<float>(c.vector.y));
    rows.z1.push_back(static_cast<float>(c.vector.z));
    rows.x2.push_back(0.0f);
    rows.y2.push_back(0.0f);
    rows.z2.push_back(0.0f);
    rows.dc2.push_back(static_cast<float>(c.value_hz));
    rows.dcmax_val.push_back(static_cast<float>(maxDIPCOUP[type] * radiusInCubeDCTypes[type]));
    rows.error.push_back(static_cast<float>(std::fabs(nherror / dcNORMFACTORS[type])));
    ++m;
  }
  return m;
}

int svd_simple(int m_all, const FitRows& rows, ClassicSvdFit& result) {
  result = ClassicSvdFit{};
  // Never read past the rows that exist.
  int m = m_all;
  if (m > static_cast<int>(rows.dc2.size())) m = static_cast<int>(rows.dc2.size());
  if (m < 0) m = 0;
  const size_t rows_n = static_cast<size_t>(m);

  // Buffers sized to the row count (the m by 5 product of the rebuild needs
  // 5 m values in work_loc).
  std::vector<double> a = allocate(kUnknowns * rows_n, "allocation failure for a");
  std::vector<double> u = allocate(kUnknowns * rows_n, "allocation failure for u");
  std::vector<double> v = allocate(kUnknowns * kUnknowns, "allocation failure for v");
  std::vector<double> w = allocate(kUnknowns, "allocation failure for w");
  std::vector<double> x = allocate(kUnknowns, "allocation failure for x");
  std::vector<double> work_loc =
      allocate(kUnknowns * (rows_n > 1 ? rows_n : 1), "allocation failure for work_loc");
  std::vector<double> error = allocate(kUnknowns, "allocation failure for error");
  std::vector<double> dip = allocate(rows_n, "allocation failure for dip");
  std::vector<double> b = allocate(rows_n, "allocation failure for b");
  std::vector<double> order = allocate(9, "allocation failure for order");

  // Every row starts accepted; the compaction keeps the accepted rows in
  // order (all of them: the fit runs once and nothing clears a flag before).
  std::vector<int> dip_ok(rows_n, 1);
  std::vector<int> no(rows_n, 0);
  const std::vector<float> x1_temp(rows.x1.begin(), rows.x1.begin() + m);
  const std::vector<float> y1_temp(rows.y1.begin(), rows.y1.begin() + m);
  const std::vector<float> z1_temp(rows.z1.begin(), rows.z1.begin() + m);
  const std::vector<float> x2_temp(rows.x2.begin(), rows.x2.begin() + m);
  const std::vector<float> y2_temp(rows.y2.begin(), rows.y2.begin() + m);
  const std::vector<float> z2_temp(rows.z2.begin(), rows.z2.begin() + m);
  const std::vector<float> dc_temp(rows.dc2.begin(), rows.dc2.begin() + m);
  const std::vector<float> t_temp(rows.dcmax_val.begin(), rows.dcmax_val.begin() + m);
  const std::vector<float> e_temp(rows.error.begin(), rows.error.begin() + m);
  std::vector<float> x1(rows_n), y1(rows_n), z1(rows_n), x2(rows_n), y2(rows_n), z2(rows_n),
      dc(rows_n), t(rows_n), e(rows_n);
  int kept = 0;
  for (int i = 0; i < m; ++i) {
    if (dip_ok[i] != 1) continue;
    x1[kept] = x1_temp[i];
    y1[kept] = y1_temp[i];
    z1[kept] = z1_temp[i];
    x2[kept] = x2_temp[i];
    y2[kept] = y2_temp[i];
    z2[kept] = z2_temp[i];
    dc[kept] = dc_temp[i];
    t[kept] = t_temp[i];
    e[kept] = e_temp[i];
    ++kept;
  }
  m = kept;
  result.rows = m;
  for (int i = 0; i < m; ++i) dip_ok[i] = 1;

  // Design matrix, column-major with leading dimension m. The squares go
  // through a single-precision temporary, as in the numerical routines.
  std::vector<double> length(rows_n), l3(rows_n);
  std::vector<double> coord(3 * rows_n);
  for (int i = 0; i < m; ++i) {
    const double cx = static_cast<double>(x1[i]) - static_cast<double>(x2[i]);
    const double cy = static_cast<double>(y1[i]) - static_cast<double>(y2[i]);
    const double cz = static_cast<double>(z1[i]) - static_cast<double>(z2[i]);
    coord[3 * i] = cx;
    coord[3 * i + 1] = cy;
    coord[3 * i + 2] = cz;
    length[i] = std::sqrt(sqr_float(cx) + sqr_float(cy) + sqr_float(cz));
    l3[i] = length[i] * length[i] * length[i];  // not used further
    // A zero vector gives 0/0: the row is NaN and the decomposition fails.
    const double d1 = cx / length[i];
    const double d2 = cy / length[i];
    const double d3 = cz / length[i];
    a[i + 0 * rows_n] = sqr_float(d2) - sqr_float(d1);
    a[i + 1 * rows_n] = sqr_float(d3) - sqr_float(d1);
    a[i + 2 * rows_n] = 2.0 * d1 * d2;
    a[i + 3 * rows_n] = 2.0 * d1 * d3;
    a[i + 4 * rows_n] = 2.0 * d2 * d3;
  }

  // A = U diag(w) V^T (job 21: the first five left vectors and V). With no
  // row at all there is nothing to decompose: every singular value stays 0
  // and the minimum-norm solution below is the zero tensor.
  if (m > 0) {
    integer ldx = m;
    integer n = m;
    integer p = kUnknowns;
    integer ldu = m;
    integer ldv = kUnknowns;
    integer job = 21;
    integer info = 0;
    dsvdc_(a.data(), &ldx, &n, &p, w.data(), error.data(), u.data(), &ldu, v.data(), &ldv,
           work_loc.data(), &job, &info);
    result.info = static_cast<long>(info);
  }

  // Rebuild the design matrix that the decomposition destroyed.
  for (int j = 0; j < kUnknowns; ++j)
    for (int i = 0; i < m; ++i) work_loc[i + j * rows_n] = u[i + j * rows_n] * w[j];
  for (size_t i = 0; i < kUnknowns * rows_n; ++i) a[i] = 0.0;
  for (int i = 0; i < m; ++i)
    for (int k = 0; k < kUnknowns; ++k)
      for (int j = 0; j < kUnknowns; ++j)
        a[i + k * rows_n] += work_loc[i + j * rows_n] * v[k + j * kUnknowns];

  // Discard singular values below 1e-6 of the largest, invert the others.
  double wmax = 0.0;
  for (int j = 0; j < kUnknowns; ++j)
    if (w[j] > wmax) wmax = w[j];
  const double wmin = wmax * 1.0e-6;
  for (int j = 0; j < kUnknowns; ++j)
    if (w[j] < wmin) w[j] = 0.0;
  for (int j = 0; j < kUnknowns; ++j)
    if (w[j] != 0.0) w[j] = 1.0 / w[j];
  int sing = 0;
  for (int j = 0; j < kUnknowns; ++j)
    if (w[j] == 0.0) ++sing;
  // Compared with the difference between rows and unknowns, as it always was.
  result.singular = std::abs(kUnknowns - m) < sing;

  // Right-hand side in units of each row's maximal coupling.
  for (int i = 0; i < m; ++i) no[i] = 0;
  for (int i = 0; i < m; ++i) {
    dip[i] = dc[i];
    b[i] = dip[i] / t[i];
  }

  // x = V diag(1/w) U^T b.
  for (int j = 0; j < kUnknowns; ++j) {
    double sum = 0.0;
    for (int i = 0; i < m; ++i) sum += u[i + j * rows_n] * b[i];
    work_loc[j] = sum;
    work_loc[j] *= w[j];
  }
  for (int k = 0; k < kUnknowns; ++k) {
    double sum = 0.0;
    for (int j = 0; j < kUnknowns; ++j) sum += v[k + j * kUnknowns] * work_loc[j];
    x[k] = sum;
  }

  // Full order matrix, row by row; Sxx follows from the zero trace.
  order[0] = -x[0] - x[1];
  order[1] = x[2];
  order[2] = x[3];
  order[3] = x[2];
  order[4] = x[0];
  order[5] = x[4];
  order[6] = x[3];
  order[7] = x[4];
  order[8] = x[1];

  int ok_k = order_in_range(order.data()) ? 1 : 0;
  result.order_in_range = ok_k == 1;

  if (ok_k == 1) {
    // Back-calculated couplings in Hz, listed when outside dc +/- e.
    for (int i = 0; i < m; ++i) {
      double sum = 0.0;
      for (int j = 0; j < kUnknowns; ++j) sum += a[i + j * rows_n] * x[j];
      work_loc[i] = sum * t[i];
    }
    for (int i = 0; i < m; ++i) {
      if (outside_experimental_range(work_loc[i], dc[i], e[i])) {
        ok_k = 0;  // NOLINT(clang-analyzer-deadcode.DeadStores): the fit runs once
        no[i] += 1;
        // The two '>' are printed whatever the side of the violation.
        const float upper = dc[i] + e[i];
        const float lower = dc[i] - e[i];
        result.outside.push_back({i, dip[i], dc[i], upper, lower, work_loc[i]});
        dip_ok[i] = 0;
      }
    }
  }

  result.saupe = {order[8], order[0] - order[4], order[1], order[2], order[5]};
  return m;
}

}  // namespace vorn
