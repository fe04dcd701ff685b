// Tests of the solvent-accessible surface: dot sets, the double cubic lattice
// method against analytic geometry, the utilities with their messages, and
// the surface-atom selection with its two kept quirks.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "capture.hpp"
#include "core/fatal.hpp"
#include "molecule/nsc.hpp"
#include "molecule/surface.hpp"

// The allocation-failure tests ask for impossible sizes on purpose; under
// AddressSanitizer the allocator must then return null instead of aborting.
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }

namespace vorn {
namespace {

using test::Capture;

const double kPi = std::acos(-1.0);

// A log whose listings go to `out`, whose warnings go to `err` and whose
// flush flushes both, as the classic program's streams take them.
Log stream_log(FILE* out, FILE* err) {
  Log log;
  log.listing = [out](std::string_view text) { std::fwrite(text.data(), 1, text.size(), out); };
  log.warning = [err](std::string_view text) { std::fwrite(text.data(), 1, text.size(), err); };
  log.flush = [out, err] {
    std::fflush(out);
    std::fflush(err);
  };
  return log;
}

struct Streams {
  Capture out;
  Capture err;
  Log log = stream_log(out.file(), err.file());
};

std::string error_block(int line, const std::string& message) {
  return "\n---> ERROR when executing line " + std::to_string(line) + " in file nsc.c !\n" +
         message + "\n---> Execution stopped !\n\n";
}

std::string warning_block(int line, const std::string& message) {
  return "\n---> WARNING : line " + std::to_string(line) + " in file nsc.c\n" + message +
         " ...!\n\n";
}

using Vec3 = std::array<double, 3>;

double dot3(const Vec3& a, const Vec3& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

Vec3 unit(Vec3 v) {
  const double len = std::sqrt(dot3(v, v));
  return {v[0] / len, v[1] / len, v[2] / len};
}

// Evenly spread points on the unit sphere (golden-angle spiral), an
// independent dot set for brute-force reference areas.
std::vector<Vec3> fibonacci_sphere(int n) {
  std::vector<Vec3> p;
  const double golden = kPi * (3.0 - std::sqrt(5.0));
  for (int k = 0; k < n; ++k) {
    const double z = 1.0 - (2.0 * k + 1.0) / n;
    const double r = std::sqrt(1.0 - z * z);
    p.push_back({r * std::cos(golden * k), r * std::sin(golden * k), z});
  }
  return p;
}

// Brute-force accessible area of every sphere: a point of sphere i is free
// when it lies outside every other sphere.
std::vector<double> brute_force_areas(const std::vector<Vec3>& c, const std::vector<double>& r,
                                      int n_points) {
  const std::vector<Vec3> pts = fibonacci_sphere(n_points);
  const size_t n = c.size();
  std::vector<double> area(n, 0.0);
  for (size_t i = 0; i < n; ++i) {
    std::vector<size_t> nb;
    for (size_t j = 0; j < n; ++j) {
      if (j == i) continue;
      const Vec3 d{c[j][0] - c[i][0], c[j][1] - c[i][1], c[j][2] - c[i][2]};
      if (dot3(d, d) < (r[i] + r[j]) * (r[i] + r[j])) nb.push_back(j);
    }
    int free = 0;
    for (const Vec3& u : pts) {
      const Vec3 p{c[i][0] + r[i] * u[0], c[i][1] + r[i] * u[1], c[i][2] + r[i] * u[2]};
      bool inside = false;
      for (size_t j : nb) {
        const Vec3 d{p[0] - c[j][0], p[1] - c[j][1], p[2] - c[j][2]};
        if (dot3(d, d) < r[j] * r[j]) {
          inside = true;
          break;
        }
      }
      if (!inside) ++free;
    }
    area[i] = 4.0 * kPi * r[i] * r[i] * free / n_points;
  }
  return area;
}

struct SurfaceResult {
  int status = -1;
  double area = 0.0, volume = 0.0;
  std::vector<double> at_area;
  std::vector<double> dots;
  int nu_dots = -1;
};

SurfaceResult surface(const std::vector<Vec3>& c, const std::vector<double>& r, int densit,
                      const Log& log) {
  std::vector<double> co;
  for (const Vec3& p : c) co.insert(co.end(), p.begin(), p.end());
  SurfaceResult s;
  s.status = nsc_dclm(co.data(), r.data(), static_cast<int>(c.size()), densit,
                      kNscDots | kNscVolume | kNscAtomArea, s.area, &s.at_area, &s.volume, &s.dots,
                      &s.nu_dots, log);
  return s;
}

// ---------------------------------------------------------------------------
// Utilities.

TEST(NscSafeAsin, JustAboveOneIsReportedAndGivesHalfPi) {
  Streams s;
  EXPECT_EQ(safe_asin(1.0005, s.log), 1.5707963267948966);
  EXPECT_EQ(s.err.str(), error_block(141, "ASIN : invalid argument 1.000500"));
  EXPECT_EQ(s.out.str(), "");
}

TEST(NscSafeAsin, FarAboveOneIsSilent) {
  Streams s;
  EXPECT_EQ(safe_asin(1.5, s.log), 1.5707963267948966);
  EXPECT_EQ(safe_asin(-3.0, s.log), 1.5707963267948966);
  EXPECT_EQ(s.err.str(), "");
}

TEST(NscSafeAsin, MinusOneGivesPositiveHalfPiWithReport) {
  Streams s;
  EXPECT_EQ(safe_asin(-1.0, s.log), 1.5707963267948966);
  EXPECT_EQ(s.err.str(), error_block(141, "ASIN : invalid argument -1.000000"));
}

TEST(NscSafeAsin, ExactlyOneIsReported) {
  Streams s;
  EXPECT_EQ(safe_asin(1.0, s.log), 1.5707963267948966);
  EXPECT_EQ(s.err.str(), error_block(141, "ASIN : invalid argument 1.000000"));
}

TEST(NscSafeAsin, InsideTheRangeIsTheArcsine) {
  Streams s;
  EXPECT_DOUBLE_EQ(safe_asin(0.5, s.log), kPi / 6.0);
  EXPECT_DOUBLE_EQ(safe_asin(-0.5, s.log), -kPi / 6.0);
  EXPECT_DOUBLE_EQ(safe_asin(0.9999, s.log), std::asin(0.9999));
  EXPECT_EQ(s.err.str(), "");
}

TEST(NscMessages, ErrorBlockReturnsToCaller) {
  Streams s;
  error(s.log, 42, "nsc.c", "value %d and %s", 7, "text");
  error(s.log, 43, "other.c", "second");
  EXPECT_EQ(s.err.str(), error_block(42, "value 7 and text") +
                             "\n---> ERROR when executing line 43 in file other.c !\nsecond"
                             "\n---> Execution stopped !\n\n");
  EXPECT_EQ(s.out.str(), "");
}

TEST(NscMessages, WarningBlockText) {
  Streams s;
  warning(s.log, 488, "nsc.c", "make_unsp: mode %c%d not allowed", '+', 3);
  EXPECT_EQ(s.err.str(), warning_block(488, "make_unsp: mode +3 not allowed"));
  EXPECT_EQ(s.out.str(), "");
}

std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

TEST(NscMessages, WarningFlushesBothStreams) {
  char out_name[] = "/tmp/nsc_out_XXXXXX";
  char err_name[] = "/tmp/nsc_err_XXXXXX";
  const int fd_out = mkstemp(out_name);
  const int fd_err = mkstemp(err_name);
  ASSERT_GE(fd_out, 0);
  ASSERT_GE(fd_err, 0);
  FILE* out = fdopen(fd_out, "w");
  FILE* err = fdopen(fd_err, "w");
  static char out_buf[1 << 16];
  static char err_buf[1 << 16];
  std::setvbuf(out, out_buf, _IOFBF, sizeof out_buf);
  std::setvbuf(err, err_buf, _IOFBF, sizeof err_buf);
  const Log log = stream_log(out, err);
  std::fprintf(out, "pending report\n");
  error(log, 1, "nsc.c", "not flushed");
  // Fully buffered: nothing has reached the files yet.
  EXPECT_EQ(slurp(out_name), "");
  EXPECT_EQ(slurp(err_name), "");
  warning(log, 603, "nsc.c", "nsc_dclm: no surface atoms selected");
  EXPECT_EQ(slurp(out_name), "pending report\n");
  EXPECT_EQ(slurp(err_name), error_block(1, "not flushed") +
                                 warning_block(603, "nsc_dclm: no surface atoms selected"));
  std::fclose(out);
  std::fclose(err);
  std::remove(out_name);
  std::remove(err_name);
}

TEST(NscAlloc, MycallocGivesZeroedMemory) {
  Streams s;
  auto* p = static_cast<double*>(mycalloc(s.log, "do_nsc.c", 10, 100, sizeof(double)));
  ASSERT_NE(p, nullptr);
  for (int k = 0; k < 100; ++k) EXPECT_EQ(p[k], 0.0);
  std::free(p);
  EXPECT_EQ(s.err.str(), "");
}

TEST(NscAlloc, MycallocFailureIsReportedWithCallerPlace) {
  Streams s;
  void* p = mycalloc(s.log, "caller.c", 77, std::numeric_limits<size_t>::max() / 4, 16);
  EXPECT_EQ(p, nullptr);
  EXPECT_EQ(s.err.str(), error_block(151, "CALLOC : failed in file caller.c at line 77"));
}

TEST(NscAlloc, MyreallocKeepsContentAndReportsFailure) {
  Streams s;
  auto* p = static_cast<int*>(mycalloc(s.log, "x.c", 1, 4, sizeof(int)));
  ASSERT_NE(p, nullptr);
  for (int k = 0; k < 4; ++k) p[k] = k + 1;
  auto* q = static_cast<int*>(myrealloc(s.log, "x.c", 2, p, 1000 * sizeof(int)));
  ASSERT_NE(q, nullptr);
  for (int k = 0; k < 4; ++k) EXPECT_EQ(q[k], k + 1);
  EXPECT_EQ(s.err.str(), "");
  void* r = myrealloc(s.log, "y.c", 99, q, std::numeric_limits<size_t>::max() / 2);
  EXPECT_EQ(r, nullptr);
  EXPECT_EQ(s.err.str(), error_block(161, "REALLOC : failed in file y.c at line 99"));
  EXPECT_EQ(q[3], 4);  // the old block is untouched and still ours
  std::free(q);
}

// ---------------------------------------------------------------------------
// Icosahedron, arcs and dot sets.

TEST(NscIcosahedron, TwelveUnitVerticesInTheClassicOrientation) {
  std::array<double, 36> v{};
  icosaeder_vertices(v);
  const double c72 = std::cos(72.0 * kPi / 180.0);
  const double rg = c72 / (1.0 - c72);
  const double rh = std::sqrt(1.0 - 2.0 * c72) / (1.0 - c72);
  EXPECT_NEAR(rg * rg + rh * rh, 1.0, 1e-14);
  EXPECT_NEAR(v[0], 0.0, 1e-15);
  EXPECT_NEAR(v[1], 0.0, 1e-15);
  EXPECT_NEAR(v[2], 1.0, 1e-15);
  EXPECT_NEAR(v[35], -1.0, 1e-15);
  for (int k = 1; k <= 5; ++k) {
    EXPECT_NEAR(v[3 * k], rh * std::cos(72.0 * k * kPi / 180.0), 1e-14);
    EXPECT_NEAR(v[3 * k + 1], rh * std::sin(72.0 * k * kPi / 180.0), 1e-14);
    EXPECT_NEAR(v[3 * k + 2], rg, 1e-14);
    EXPECT_NEAR(v[3 * (k + 5)], rh * std::cos((72.0 * k - 36.0) * kPi / 180.0), 1e-14);
    EXPECT_NEAR(v[3 * (k + 5) + 1], rh * std::sin((72.0 * k - 36.0) * kPi / 180.0), 1e-14);
    EXPECT_NEAR(v[3 * (k + 5) + 2], -rg, 1e-14);
  }
  for (int i = 0; i < 12; ++i) {
    const Vec3 a{v[3 * i], v[3 * i + 1], v[3 * i + 2]};
    EXPECT_NEAR(dot3(a, a), 1.0, 1e-14);
    // Every vertex has exactly five nearest neighbours, at cos = 1/sqrt(5).
    int near = 0;
    for (int j = 0; j < 12; ++j) {
      const Vec3 b{v[3 * j], v[3 * j + 1], v[3 * j + 2]};
      if (j != i && std::fabs(dot3(a, b) - 1.0 / std::sqrt(5.0)) < 1e-12) ++near;
    }
    EXPECT_EQ(near, 5) << "vertex " << i;
  }
}

TEST(NscDivarc, PointsOnTheGreatCircleArc) {
  Streams s;
  const double c60 = 0.5, s60 = std::sqrt(3.0) / 2.0;
  double x = 0, y = 0, z = 0;
  EXPECT_EQ(divarc(1, 0, 0, c60, s60, 0, 1, 2, x, y, z, s.log), 0);
  EXPECT_NEAR(x, std::cos(kPi / 6.0), 1e-14);
  EXPECT_NEAR(y, std::sin(kPi / 6.0), 1e-14);
  EXPECT_NEAR(z, 0.0, 1e-15);
  EXPECT_EQ(divarc(1, 0, 0, c60, s60, 0, 1, 3, x, y, z, s.log), 0);
  EXPECT_NEAR(x, std::cos(kPi / 9.0), 1e-14);
  EXPECT_NEAR(y, std::sin(kPi / 9.0), 1e-14);
  EXPECT_EQ(divarc(1, 0, 0, c60, s60, 0, 3, 3, x, y, z, s.log), 0);
  EXPECT_NEAR(x, c60, 1e-14);
  EXPECT_NEAR(y, s60, 1e-14);
  // Out of the xy plane: fraction 1/4 of the arc from z to a 45-degree vector
  // in the xz plane keeps the length of the first vector (2).
  EXPECT_EQ(divarc(0, 0, 2, 1, 0, 1, 1, 4, x, y, z, s.log), 0);
  EXPECT_NEAR(x, 2.0 * std::sin(kPi / 16.0), 1e-14);
  EXPECT_NEAR(y, 0.0, 1e-15);
  EXPECT_NEAR(z, 2.0 * std::cos(kPi / 16.0), 1e-14);
  EXPECT_EQ(s.err.str(), "");
}

TEST(NscDivarc, DegenerateInputsAreReported) {
  Streams s;
  double x = 0, y = 0, z = 0;
  EXPECT_EQ(divarc(1, 0, 0, 2, 0, 0, 1, 2, x, y, z, s.log), 1);
  EXPECT_EQ(s.err.str(), error_block(192, "divarc: rotation axis of length 0.000000"));
  EXPECT_EQ(x, 1.0);
  EXPECT_EQ(y, 0.0);
  Streams t;
  EXPECT_EQ(divarc(0, 0, 0, 0, 1, 0, 1, 2, x, y, z, t.log), 1);
  EXPECT_EQ(t.err.str(), error_block(192, "divarc: rotation axis of length 0.000000") +
                             error_block(196, "divarc: vector 1 of sq.length 0.000000"));
  Streams u;
  EXPECT_EQ(divarc(0, 1, 0, 0, 0, 0, 1, 2, x, y, z, u.log), 1);
  EXPECT_EQ(u.err.str(), error_block(192, "divarc: rotation axis of length 0.000000") +
                             error_block(200, "divarc: vector 2 of sq.length 0.000000"));
  EXPECT_EQ(y, 1.0);
}

TEST(NscDotSets, GeneratorChoice) {
  // i1: smallest i with 10i^2+2 >= d; i2: smallest i with 30i^2+2 >= d.
  EXPECT_EQ(unsp_type(700), 9);   // i1 = 9 (812), i2 = 5 (752)
  EXPECT_EQ(unsp_type(12), 10);   // 12 vs 32
  EXPECT_EQ(unsp_type(42), 10);   // 42 vs 122
  EXPECT_EQ(unsp_type(30), 9);    // 42 vs 32
  EXPECT_EQ(unsp_type(92), 10);   // 92 vs 122
  EXPECT_EQ(unsp_type(100), 9);   // 162 vs 122
  EXPECT_EQ(unsp_type(300), 10);  // 362 vs 482
}

// Checks shared by both generators: the count, unit length, centroid at the
// origin, distinct and evenly spread dots.
void check_dot_set(const std::vector<double>& xus, int n, const std::string& what) {
  SCOPED_TRACE(what);
  ASSERT_EQ(xus.size(), 3u * n);
  std::vector<Vec3> d;
  Vec3 mean{0, 0, 0};
  for (int k = 0; k < n; ++k) {
    const Vec3 u{xus[3 * k], xus[3 * k + 1], xus[3 * k + 2]};
    EXPECT_NEAR(dot3(u, u), 1.0, 1e-12);
    for (int c = 0; c < 3; ++c) mean[c] += u[c] / n;
    d.push_back(u);
  }
  EXPECT_NEAR(mean[0], 0.0, 1e-12);
  EXPECT_NEAR(mean[1], 0.0, 1e-12);
  EXPECT_NEAR(mean[2], 0.0, 1e-12);
  // Nearest-neighbour distances against the mean spacing sqrt(4 pi / n): no
  // duplicates or crowding, and no holes.
  const double spacing = std::sqrt(4.0 * kPi / n);
  double nn_min = 10.0, nn_max = 0.0;
  for (int i = 0; i < n; ++i) {
    double best = 10.0;
    for (int j = 0; j < n; ++j) {
      if (j == i) continue;
      const Vec3 e{d[i][0] - d[j][0], d[i][1] - d[j][1], d[i][2] - d[j][2]};
      best = std::min(best, std::sqrt(dot3(e, e)));
    }
    nn_min = std::min(nn_min, best);
    nn_max = std::max(nn_max, best);
  }
  EXPECT_GT(nn_min, 0.95 * spacing);
  EXPECT_LT(nn_max, 1.15 * spacing);
  // Any hemisphere holds about half of the dots.
  const std::vector<Vec3> dirs = {unit({1, 2, 3}), unit({-0.3, 0.1, 0.9}), unit({0.7, -0.7, 0.1})};
  for (const Vec3& v : dirs) {
    int up = 0;
    for (const Vec3& u : d) up += dot3(u, v) > 0.0 ? 1 : 0;
    EXPECT_NEAR(static_cast<double>(up) / n, 0.5, n < 100 ? 0.1 : 0.03);
  }
}

TEST(NscDotSets, ArcGeneratorCounts) {
  // tl = ceil(sqrt((d - 2) / 10)), n = 10 tl^2 + 2.
  const std::vector<std::pair<int, int>> cases = {{12, 12},   {42, 42},     {43, 92},    {100, 162},
                                                  {700, 812}, {1000, 1002}, {5000, 5292}};
  for (const auto& [densit, expected] : cases) {
    Streams s;
    std::vector<double> xus;
    EXPECT_EQ(ico_dot_arc(densit, xus, s.log), expected);
    check_dot_set(xus, expected, "arc " + std::to_string(densit));
    EXPECT_EQ(s.err.str(), "");
  }
}

TEST(NscDotSets, DodecahedronGeneratorCounts) {
  // tl = ceil(sqrt((d - 2) / 30)), n = 30 tl^2 + 2; 700 gives 752.
  const std::vector<std::pair<int, int>> cases = {{32, 32},   {122, 122},   {123, 272},
                                                  {700, 752}, {1000, 1082}, {5000, 5072}};
  for (const auto& [densit, expected] : cases) {
    Streams s;
    std::vector<double> xus;
    EXPECT_EQ(ico_dot_dod(densit, xus, s.log), expected);
    check_dot_set(xus, expected, "dod " + std::to_string(densit));
    EXPECT_EQ(s.err.str(), "");
  }
}

TEST(NscDotSets, DensityBeyondTheLargestLevelIsReported) {
  Streams s;
  std::vector<double> xus;
  EXPECT_EQ(ico_dot_arc(200000, xus, s.log), 100002);
  EXPECT_EQ(s.err.str(),
            error_block(263,
                        "ico_dot_arc: error in formula for tessalation level (100->100002, "
                        "200000)"));
  Streams t;
  EXPECT_EQ(ico_dot_dod(400000, xus, t.log), 300002);
  EXPECT_EQ(t.err.str(),
            error_block(341,
                        "ico_dot_dod: error in formula for tessalation level (100->300002, "
                        "400000)"));
}

TEST(NscDotSets, MakeUnspRejectsUnknownModes) {
  Streams s;
  int num = -1;
  EXPECT_EQ(make_unsp(700, 7, num, 4, s.log), 1);
  EXPECT_EQ(make_unsp(700, -8, num, 4, s.log), 1);
  EXPECT_EQ(num, -1);
  EXPECT_EQ(s.err.str(), warning_block(488, "make_unsp: mode +7 not allowed") +
                             warning_block(488, "make_unsp: mode -8 not allowed"));
  EXPECT_EQ(nsc_dot_cache().last_n_dot, 0);
  EXPECT_EQ(nsc_dot_cache().n_dot, 0);
}

TEST(NscDotSets, MakeUnspSortsTheDotsIntoCells) {
  Streams s;
  int num = 0;
  ASSERT_EQ(make_unsp(700, -9, num, 4, s.log), 0);
  EXPECT_EQ(num, 752);
  const NscDotCache& g = nsc_dot_cache();
  EXPECT_EQ(g.n_dot, 752);
  EXPECT_EQ(g.ico_cube, 4);
  EXPECT_DOUBLE_EQ(g.del_cube, 0.5);
  EXPECT_EQ(g.last_n_dot, 752);
  EXPECT_EQ(g.last_densit, 700);
  EXPECT_EQ(g.last_unsp, -9);
  EXPECT_EQ(g.last_cubus, 4);
  // Every cell's dots are contiguous, in cell order, and lie in that cell.
  int total = 0;
  for (int c = 0; c < 64; ++c) {
    EXPECT_EQ(g.ico_pt(c), total);
    const int ix = c / 16, iy = (c / 4) % 4, iz = c % 4;
    for (int p = g.ico_pt(c); p < g.ico_pt(c) + g.ico_wk[c]; ++p) {
      const double* u = &g.xpunsp[3 * p];
      EXPECT_GE(u[0], -1.0 + 0.5 * ix - 1e-12);
      EXPECT_LE(u[0], -1.0 + 0.5 * (ix + 1) + 1e-12);
      EXPECT_GE(u[1], -1.0 + 0.5 * iy - 1e-12);
      EXPECT_LE(u[1], -1.0 + 0.5 * (iy + 1) + 1e-12);
      EXPECT_GE(u[2], -1.0 + 0.5 * iz - 1e-12);
      EXPECT_LE(u[2], -1.0 + 0.5 * (iz + 1) + 1e-12);
    }
    total += g.ico_wk[c];
  }
  EXPECT_EQ(total, 752);
  // Sorting permutes the set: same dots as the generator gives.
  std::vector<double> raw;
  ico_dot_dod(700, raw, s.log);
  std::vector<std::array<double, 3>> a, b;
  for (int k = 0; k < 752; ++k) {
    a.push_back({raw[3 * k], raw[3 * k + 1], raw[3 * k + 2]});
    b.push_back({g.xpunsp[3 * k], g.xpunsp[3 * k + 1], g.xpunsp[3 * k + 2]});
  }
  std::sort(a.begin(), a.end());
  std::sort(b.begin(), b.end());
  EXPECT_EQ(a, b);
  EXPECT_EQ(s.err.str(), "");
}

TEST(NscDotSets, MakeUnspChoosesTheCellCount) {
  Streams s;
  int num = 0;
  // 812 dots: the smallest i with 2 i^3 >= 812 is 8, so 7 cells per axis.
  ASSERT_EQ(make_unsp(700, -10, num, 0, s.log), 0);
  EXPECT_EQ(num, 812);
  EXPECT_EQ(nsc_dot_cache().ico_cube, 7);
  // Unsorted set: no lattice.
  ASSERT_EQ(make_unsp(42, 10, num, 0, s.log), 0);
  EXPECT_EQ(num, 42);
  EXPECT_EQ(nsc_dot_cache().last_unsp, 10);
  EXPECT_TRUE(nsc_dot_cache().ico_wk.empty());
}

TEST(NscDotSets, RepeatedCallsReuseTheCachedSet) {
  Streams s;
  int num = 0;
  ASSERT_EQ(make_unsp(300, -10, num, 4, s.log), 0);  // some other set first
  const std::vector<Vec3> c = {{0, 0, 0}};
  const std::vector<double> r = {1.0};
  const long before = nsc_dot_cache().builds;
  EXPECT_EQ(surface(c, r, 700, s.log).status, 0);
  EXPECT_EQ(nsc_dot_cache().builds, before + 1);
  EXPECT_EQ(nsc_dot_cache().n_dot, 752);
  const std::vector<double> first = nsc_dot_cache().xpunsp;
  EXPECT_EQ(surface(c, r, 700, s.log).status, 0);
  EXPECT_EQ(nsc_dot_cache().builds, before + 1);
  // A density equal to the cached dot count also reuses the set.
  EXPECT_EQ(surface(c, r, 752, s.log).status, 0);
  EXPECT_EQ(nsc_dot_cache().builds, before + 1);
  EXPECT_EQ(nsc_dot_cache().xpunsp, first);
  // Another density rebuilds it.
  EXPECT_EQ(surface(c, r, 300, s.log).status, 0);
  EXPECT_EQ(nsc_dot_cache().builds, before + 2);
  EXPECT_EQ(nsc_dot_cache().n_dot, 362);
  EXPECT_EQ(s.err.str(), "");
}

// ---------------------------------------------------------------------------
// Surface method against analytic geometry.

TEST(NscSurface, NoAtomsIsAWarningAndAFailure) {
  Streams s;
  double area = -1.0;
  EXPECT_EQ(nsc_dclm(nullptr, nullptr, 0, 700, 6, area, nullptr, nullptr, nullptr, nullptr, s.log),
            1);
  EXPECT_EQ(s.err.str(), warning_block(603, "nsc_dclm: no surface atoms selected"));
  EXPECT_EQ(s.out.str(), "");
}

TEST(NscSurface, IsolatedSphere) {
  for (int densit : {700, 3000}) {
    Streams s;
    const double r = 2.3;
    const SurfaceResult res = surface({{1.5, -2.0, 7.25}}, {r}, densit, s.log);
    ASSERT_EQ(res.status, 0);
    EXPECT_NEAR(res.area, 4.0 * kPi * r * r, 1e-9);
    ASSERT_EQ(res.at_area.size(), 1u);
    EXPECT_NEAR(res.at_area[0], 4.0 * kPi * r * r, 1e-9);
    EXPECT_NEAR(res.volume, 4.0 / 3.0 * kPi * r * r * r, 1e-9);
    EXPECT_EQ(res.nu_dots, nsc_dot_cache().n_dot);
    for (int k = 0; k < res.nu_dots; ++k) {
      const Vec3 d{res.dots[3 * k] - 1.5, res.dots[3 * k + 1] + 2.0, res.dots[3 * k + 2] - 7.25};
      EXPECT_NEAR(std::sqrt(dot3(d, d)), r, 1e-12);
    }
    EXPECT_EQ(s.err.str(), "");
  }
}

// Two overlapping spheres: each loses the cap that lies inside the other,
// of area 2 pi r h with h = r - a and a the distance from the centre to the
// plane of the intersection circle.
TEST(NscSurface, TwoSpheresLoseTheAnalyticCaps) {
  const double r1 = 2.0, r2 = 1.5, d = 2.5;
  const double a1 = (d * d + r1 * r1 - r2 * r2) / (2.0 * d);
  const double a2 = (d * d + r2 * r2 - r1 * r1) / (2.0 * d);
  const double area1 = 4.0 * kPi * r1 * r1 - 2.0 * kPi * r1 * (r1 - a1);
  const double area2 = 4.0 * kPi * r2 * r2 - 2.0 * kPi * r2 * (r2 - a2);
  const double lens = kPi * (r1 + r2 - d) * (r1 + r2 - d) *
                      (d * d + 2.0 * d * (r1 + r2) - 3.0 * (r1 - r2) * (r1 - r2)) / (12.0 * d);
  const double volume = 4.0 / 3.0 * kPi * (r1 * r1 * r1 + r2 * r2 * r2) - lens;
  const std::vector<Vec3> directions = {
      {1, 0, 0}, {0, 0, 1}, unit({1, 1, 1}), unit({-0.2, 0.9, -0.4})};
  // Tolerances: at 752 dots a dot stands for 0.53 % of the sphere; the cap
  // rims cut through a few dozen dots. At 5072 dots the error shrinks.
  for (const auto& [densit, tol] : {std::pair{700, 0.015}, std::pair{5000, 0.004}}) {
    for (const Vec3& n : directions) {
      SCOPED_TRACE("densit " + std::to_string(densit) + " direction " + std::to_string(n[0]) + " " +
                   std::to_string(n[1]) + " " + std::to_string(n[2]));
      Streams s;
      const Vec3 c1{0.3, -1.0, 2.0};
      const Vec3 c2{c1[0] + d * n[0], c1[1] + d * n[1], c1[2] + d * n[2]};
      const SurfaceResult res = surface({c1, c2}, {r1, r2}, densit, s.log);
      ASSERT_EQ(res.status, 0);
      EXPECT_NEAR(res.at_area[0], area1, tol * 4.0 * kPi * r1 * r1);
      EXPECT_NEAR(res.at_area[1], area2, tol * 4.0 * kPi * r2 * r2);
      EXPECT_NEAR(res.area, res.at_area[0] + res.at_area[1], 1e-9);
      EXPECT_NEAR(res.volume, volume, 2.0 * tol * volume);
      // Returned dots lie on their sphere and outside the other one.
      for (int k = 0; k < res.nu_dots; ++k) {
        const Vec3 p{res.dots[3 * k], res.dots[3 * k + 1], res.dots[3 * k + 2]};
        const Vec3 e1{p[0] - c1[0], p[1] - c1[1], p[2] - c1[2]};
        const Vec3 e2{p[0] - c2[0], p[1] - c2[1], p[2] - c2[2]};
        const double l1 = std::sqrt(dot3(e1, e1)), l2 = std::sqrt(dot3(e2, e2));
        EXPECT_TRUE((std::fabs(l1 - r1) < 1e-9 && l2 >= r2 - 1e-9) ||
                    (std::fabs(l2 - r2) < 1e-9 && l1 >= r1 - 1e-9));
      }
      const double per_dot = 4.0 * kPi / nsc_dot_cache().n_dot;
      EXPECT_NEAR(res.nu_dots,
                  res.at_area[0] / (r1 * r1 * per_dot) + res.at_area[1] / (r2 * r2 * per_dot),
                  1e-6);
    }
  }
}

TEST(NscSurface, AtomInsideALargerSphereHasNoArea) {
  Streams s;
  const SurfaceResult res = surface({{0, 0, 0}, {0.5, 0.2, -0.1}}, {3.0, 1.0}, 700, s.log);
  ASSERT_EQ(res.status, 0);
  EXPECT_NEAR(res.at_area[0], 4.0 * kPi * 9.0, 1e-9);
  EXPECT_EQ(res.at_area[1], 0.0);
  EXPECT_NEAR(res.volume, 4.0 / 3.0 * kPi * 27.0, 0.01 * 4.0 / 3.0 * kPi * 27.0);
}

// A sphere of radius 1 with six neighbours of radius 1.6 at 1.2 along the
// axes: a point u of the sphere is at most sqrt(2.44 - 2.4/sqrt(3)) = 1.03
// from the neighbour on its largest axis component, so every point is buried.
TEST(NscSurface, AtomBuriedByItsNeighbours) {
  Streams s;
  std::vector<Vec3> c = {{0, 0, 0}};
  std::vector<double> r = {1.0};
  for (int a = 0; a < 3; ++a) {
    for (double sign : {-1.0, 1.0}) {
      Vec3 p{0, 0, 0};
      p[a] = 1.2 * sign;
      c.push_back(p);
      r.push_back(1.6);
    }
  }
  const SurfaceResult res = surface(c, r, 700, s.log);
  ASSERT_EQ(res.status, 0);
  EXPECT_EQ(res.at_area[0], 0.0);
  for (int k = 1; k <= 6; ++k) EXPECT_GT(res.at_area[k], 0.0);
}

// ---------------------------------------------------------------------------
// Selection of the surface atoms (the engine's part of the classic surface
// step; the classic arrays and their compaction are tested with the classic
// front end).

TEST(NscDriver, RadiusRule) {
  EXPECT_EQ(get_radius(323), 1.8F);
  EXPECT_EQ(get_radius(322), 1.4F);
  EXPECT_EQ(get_radius(324), 1.4F);
  EXPECT_EQ(get_radius(1), 1.4F);
  EXPECT_EQ(get_radius(551), 1.4F);
  EXPECT_EQ(get_radius(-999), 1.4F);
}

struct Atom {
  double x, y, z;
  int type = 1;
};

// Runs the selection on the atoms of the list (one entry per atom).
int select_surface(const std::vector<Atom>& list, std::vector<std::size_t>& kept, const Log& log) {
  std::vector<double> x, y, z;
  std::vector<int> types;
  for (const Atom& a : list) {
    x.push_back(a.x);
    y.push_back(a.y);
    z.push_back(a.z);
    types.push_back(a.type);
  }
  return surface_atom_indices(x, y, z, types, kept, log);
}

// The kept indices are the 1-based list positions `originals`, in order.
void expect_kept(const std::vector<std::size_t>& kept, const std::vector<int>& originals) {
  std::vector<std::size_t> expected;
  for (const int o : originals) expected.push_back(static_cast<std::size_t>(o - 1));
  EXPECT_EQ(kept, expected);
}

TEST(NscDriver, EmptyListFails) {
  Streams s;
  std::vector<std::size_t> kept = {7};  // cleared by the call
  EXPECT_EQ(select_surface({}, kept, s.log), 1);
  EXPECT_TRUE(kept.empty());
  EXPECT_EQ(s.err.str(), warning_block(603, "nsc_dclm: no surface atoms selected"));
  // The "error occured" line is the classic front end's (tested there).
  EXPECT_EQ(s.out.str(), "");
}

TEST(NscDriver, SingleIsolatedAtomIsKeptThroughTheZeroDenominator) {
  Streams s;
  const std::vector<Atom> list = {{3.0, 4.0, 5.0, 114}};
  std::vector<std::size_t> kept;
  EXPECT_EQ(select_surface(list, kept, s.log), 0);
  expect_kept(kept, {1});
  EXPECT_EQ(s.out.str(), "");
  EXPECT_EQ(s.err.str(), "");
}

// Cluster: atom 1 far away, then six outer atoms at 2 A along the axes
// around a middle atom at the origin, which stands after the first
// n_outer_before outer atoms. With spheres of 2.8 A the middle atom is
// buried: a point of it is at most sqrt(7.84 - 11.2/sqrt(3) + 4) = 2.32 A
// from the neighbour on its largest axis component. Each outer atom keeps at
// least the cap facing away (u_x > 0.5 for the +x atom: 24.6 A^2, more than
// half of 4 pi 1.4^2 = 24.6 A^2).
std::vector<Atom> cluster(size_t n_outer_before) {
  std::vector<Atom> outer;
  for (int a = 0; a < 3; ++a) {
    for (double sign : {1.0, -1.0}) {
      Atom p{0, 0, 0, 1};
      (a == 0 ? p.x : a == 1 ? p.y : p.z) = 2.0 * sign;
      outer.push_back(p);
    }
  }
  std::vector<Atom> list = {{40.0, 40.0, 40.0, 1}};
  for (size_t k = 0; k < outer.size(); ++k) {
    if (k == n_outer_before) list.push_back({0.0, 0.0, 0.0, 1});
    list.push_back(outer[k]);
  }
  if (n_outer_before >= outer.size()) list.push_back({0.0, 0.0, 0.0, 1});
  return list;
}

TEST(NscDriver, BuriedAtomIsDroppedAndOrderKept) {
  Streams s;
  const std::vector<Atom> list = cluster(2);  // atoms: far, outer, outer, middle, 4 outer
  ASSERT_EQ(list.size(), 8u);
  std::vector<std::size_t> kept;
  EXPECT_EQ(select_surface(list, kept, s.log), 0);
  expect_kept(kept, {1, 2, 3, 5, 6, 7, 8});
  EXPECT_EQ(s.err.str(), "");
}

TEST(NscDriver, BuriedLastAtomIsDropped) {
  Streams s;
  const std::vector<Atom> list = cluster(6);  // the middle atom comes last
  ASSERT_EQ(list.size(), 8u);
  std::vector<std::size_t> kept;
  EXPECT_EQ(select_surface(list, kept, s.log), 0);
  expect_kept(kept, {1, 2, 3, 4, 5, 6, 7});
}

// The first sphere is the probe alone (1.4 A): next to a 2.8 A sphere at
// 2 A, points u of it with 4 + 5.6 u_x + 1.96 < 7.84 (u_x < 0.336, 67 % of
// the sphere) are buried, so its ratio is 0.33 and atom 1 is dropped; with a
// 2.8 A sphere it would keep 68 % of 98.5 A^2 and stay.
TEST(NscDriver, FirstSphereCarriesOnlyTheProbe) {
  Streams s;
  const std::vector<Atom> list = {{2.0, 0.0, 0.0, 1}, {0.0, 0.0, 0.0, 1}, {30.0, 0.0, 0.0, 1}};
  std::vector<std::size_t> kept;
  EXPECT_EQ(select_surface(list, kept, s.log), 0);
  expect_kept(kept, {2, 3});
}

// Atom 2 has type 323 (1.8 A): its radius goes to sphere 3, which becomes
// 3.2 A. Atom 4 sits 0.3 A from atom 3, so its 2.8 A sphere lies wholly
// inside sphere 3 (0.3 + 2.8 < 3.2) and atom 4 is dropped; without the shift
// the two 2.8 A spheres would each keep about half their area.
TEST(NscDriver, RadiusGoesToTheNextSphere) {
  Streams s;
  const std::vector<Atom> list = {{-30.0, 0.0, 0.0, 1},
                                  {30.0, 0.0, 0.0, 323},
                                  {0.0, 0.0, 0.0, 1},
                                  {0.3, 0.0, 0.0, 1},
                                  {0.0, 30.0, 0.0, 1}};
  std::vector<std::size_t> kept;
  EXPECT_EQ(select_surface(list, kept, s.log), 0);
  expect_kept(kept, {1, 2, 3, 5});
  // Control: the same geometry without the type-323 atom keeps atom 4.
  std::vector<Atom> control = list;
  control[1].type = 1;
  EXPECT_EQ(select_surface(control, kept, s.log), 0);
  expect_kept(kept, {1, 2, 3, 4, 5});
}

// The denominator of an atom other than the last is 4 pi r^2 of its own
// radius: 1.8 A for type 323. Atom 2 (a 2.8 A sphere at the origin) has two
// 2.8 A neighbours at +-0.93 A along x; a point u of it is inside one of
// them when |u_x| > 0.93 / 5.6, so only the band |u_x| <= 0.166 is free:
// 2 pi 2.8 0.93 = 16.4 A^2. That is more than half of 4 pi 1.4^2 (12.3 A^2)
// and less than half of 4 pi 1.8^2 (20.4 A^2). Atom 3 (far away) receives
// the radius of atom 2, so the type of atom 2 does not change its own sphere.
TEST(NscDriver, DenominatorUsesTheAtomsOwnRadius) {
  const std::vector<Atom> base = {{-40.0, 0.0, 0.0, 1}, {0.0, 0.0, 0.0, 1},   {0.0, 0.0, 40.0, 1},
                                  {0.93, 0.0, 0.0, 1},  {-0.93, 0.0, 0.0, 1}, {0.0, 40.0, 0.0, 1}};
  Streams s;
  std::vector<std::size_t> kept;
  EXPECT_EQ(select_surface(base, kept, s.log), 0);
  expect_kept(kept, {1, 2, 3, 4, 5, 6});
  std::vector<Atom> heavy = base;
  heavy[1].type = 323;
  EXPECT_EQ(select_surface(heavy, kept, s.log), 0);
  expect_kept(kept, {1, 3, 4, 5, 6});
  EXPECT_EQ(s.err.str(), "");
}

// The engine has no atom capacity of its own (the classic front end bounds
// its count by its arrays, tested there): 6000 isolated atoms, more than the
// classic arrays hold, are all taken and all kept.
TEST(NscDriver, NoFixedAtomCapacity) {
  Streams s;
  std::vector<Atom> list;
  for (int i = 1; i <= 6000; ++i) {
    list.push_back({10.0 * (i % 20), 10.0 * ((i / 20) % 20), 10.0 * (i / 400), 1});
  }
  std::vector<std::size_t> kept;
  EXPECT_EQ(select_surface(list, kept, s.log), 0);
  ASSERT_EQ(kept.size(), 6000u);
  for (std::size_t k = 0; k < kept.size(); ++k) EXPECT_EQ(kept[k], k);
  EXPECT_EQ(s.err.str(), "");
}

// The count is that of the shortest of the four lists: nothing past any of
// them is read.
TEST(NscDriver, CountIsBoundedByTheShortestList) {
  Streams s;
  const std::vector<double> x = {0.0, 30.0, 60.0, 90.0};
  const std::vector<double> y = {0.0, 0.0, 0.0, 0.0};
  const std::vector<double> z = {0.0, 0.0, 0.0};
  const std::vector<int> types = {1, 1, 1, 1};
  std::vector<std::size_t> kept;
  EXPECT_EQ(surface_atom_indices(x, y, z, types, kept, s.log), 0);
  expect_kept(kept, {1, 2, 3});
  EXPECT_EQ(surface_atom_indices(x, y, std::span<const double>(x).first(2),
                                 std::span<const int>(types).first(1), kept, s.log),
            0);
  expect_kept(kept, {1});
  EXPECT_EQ(s.err.str(), "");
}

// ---------------------------------------------------------------------------
// A real protein: ubiquitin heavy atoms.

struct PdbAtom {
  std::string name;
  int serial, res_nr;
  Vec3 p;
};

// Minimal reader of the ATOM records of the test structure; hydrogens
// (names starting with H, or a digit followed by H) are left out.
std::vector<PdbAtom> read_heavy_atoms(const std::string& path) {
  std::vector<PdbAtom> atoms;
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind("ATOM", 0) != 0) continue;
    char name[16] = {0}, res[16] = {0};
    PdbAtom a;
    if (std::sscanf(line.c_str(), "ATOM %d %15s %15s %d %lf %lf %lf", &a.serial, name, res,
                    &a.res_nr, &a.p[0], &a.p[1], &a.p[2]) != 7) {
      continue;
    }
    a.name = name;
    const bool hydrogen =
        a.name[0] == 'H' || (a.name.size() > 1 && std::isdigit(a.name[0]) && a.name[1] == 'H');
    if (!hydrogen) atoms.push_back(a);
  }
  return atoms;
}

TEST(NscSurface, AgreesWithBruteForceOnAProtein) {
  const std::vector<PdbAtom> pdb = read_heavy_atoms(test::data_path("structures/ubq_1d3z_m1.pdb"));
  ASSERT_EQ(pdb.size(), 602u);
  std::vector<Vec3> c;
  std::vector<double> r;
  for (const PdbAtom& a : pdb) {
    c.push_back(a.p);
    r.push_back(2.8);
  }
  Streams s;
  const SurfaceResult res = surface(c, r, 700, s.log);
  ASSERT_EQ(res.status, 0);
  const std::vector<double> ref = brute_force_areas(c, r, 5000);
  double total_ref = 0.0, worst = 0.0;
  for (size_t i = 0; i < c.size(); ++i) {
    total_ref += ref[i];
    worst = std::max(worst, std::fabs(res.at_area[i] - ref[i]));
  }
  std::printf("[ ubiquitin ] total area %.1f A^2 (brute force %.1f), worst atom %.2f A^2\n",
              res.area, total_ref, worst);
  EXPECT_NEAR(res.area, total_ref, 0.005 * total_ref);
  // One dot of a 2.8 A sphere is 0.13 A^2 at 752 dots; rims of many caps
  // cross each sphere, so a few percent of the 98.5 A^2 sphere.
  EXPECT_LT(worst, 0.05 * 4.0 * kPi * 2.8 * 2.8);
}

TEST(NscDriver, UbiquitinHeavyAtomsAgainstAnIndependentCount) {
  const std::vector<PdbAtom> pdb = read_heavy_atoms(test::data_path("structures/ubq_1d3z_m1.pdb"));
  ASSERT_EQ(pdb.size(), 602u);
  const int n = static_cast<int>(pdb.size());
  std::vector<Atom> list;
  for (const PdbAtom& a : pdb) list.push_back({a.p[0], a.p[1], a.p[2], a.name == "MG" ? 323 : 1});
  std::vector<std::size_t> kept_indices;
  Streams s;
  ASSERT_EQ(select_surface(list, kept_indices, s.log), 0);
  const int kept = static_cast<int>(kept_indices.size());
  EXPECT_EQ(s.out.str(), "");
  EXPECT_EQ(s.err.str(), "");

  // Independent count: the same spheres (sphere k carries 1.4 plus the
  // radius of atom k - 1, the first one 1.4 alone), areas from 5000
  // Fibonacci points per sphere, ratio against 4 pi r^2 of the atom's own
  // radius; the last atom's denominator is zero, so it counts when its area
  // is positive.
  auto radius_of = [&](int k) { return list[k].type == 323 ? 1.8 : 1.4; };
  std::vector<Vec3> c;
  std::vector<double> r;
  for (int k = 0; k < n; ++k) {
    c.push_back({list[k].x, list[k].y, list[k].z});
    r.push_back(1.4 + (k == 0 ? 0.0 : radius_of(k - 1)));
  }
  const std::vector<double> area = brute_force_areas(c, r, 5000);
  int independent = 0, borderline = 0, mismatched_clear = 0;
  std::vector<int> expected_kept;
  for (int k = 0; k < n; ++k) {
    const double denom = 4.0 * kPi * radius_of(k) * radius_of(k);
    const double ratio = area[k] / denom;
    const bool keep = k == n - 1 ? area[k] > 0.0 : ratio > 0.5;
    if (keep) {
      ++independent;
      expected_kept.push_back(k + 1);
    }
    const bool near_half = k != n - 1 && std::fabs(ratio - 0.5) < 0.05;
    borderline += near_half ? 1 : 0;
    // Is atom k + 1 in the program's kept list?
    bool in_result = false;
    for (const std::size_t i : kept_indices)
      in_result = in_result || i == static_cast<std::size_t>(k);
    if (!near_half && in_result != keep) ++mismatched_clear;
  }
  std::printf("[ ubiquitin ] heavy atoms %d, kept %d, independent count %d, borderline %d\n", n,
              kept, independent, borderline);
  EXPECT_EQ(mismatched_clear, 0);
  EXPECT_LE(std::abs(kept - independent), 3);
  // Order preserved: the kept indices increase.
  for (int i = 1; i < kept; ++i) EXPECT_GT(kept_indices[i], kept_indices[i - 1]);
}

}  // namespace
}  // namespace vorn
