// Numerical solvent-accessible surface: dot sets on the unit sphere built by
// subdividing an icosahedron, and the double cubic lattice method (one
// lattice sorts the atoms into cells so that only nearby spheres are
// compared, a second one sorts the unit dots so that only the dots near a
// neighbour are tested).
#include "molecule/nsc.hpp"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "core/fatal.hpp"

namespace vorn {

namespace {

// Line numbers that the error and warning blocks report; they identify the
// place of each message and stay fixed.
constexpr int kLineSafeAsin = 141;
constexpr int kLineCalloc = 151;
constexpr int kLineRealloc = 161;
constexpr int kLineDivarcAxis = 192;
constexpr int kLineDivarcVec1 = 196;
constexpr int kLineDivarcVec2 = 200;
constexpr int kLineArcFormula = 263;
constexpr int kLineArcTn = 290;
constexpr int kLineArcDiffer = 312;
constexpr int kLineDodFormula = 341;
constexpr int kLineDodTn = 402;
constexpr int kLineDodDiffer = 447;
constexpr int kLineMakeUnsp = 488;
constexpr int kLineNoAtoms = 603;
constexpr int kLineAllocArea = 612;
constexpr int kLineAllocDots = 615;
constexpr int kLineAllocCells = 641;
constexpr int kLineAllocNeighb = 660;
constexpr int kLineAllocBuried = 662;
constexpr int kLineReallocDots = 721;

constexpr double kFourPi = 12.566370614359172;
constexpr double kHalfPi = 1.5707963267948966;
constexpr double kAsinTol = 0.001;
// Squared lengths and axis lengths below this count as zero in divarc.
constexpr double kDivarcTol = 1e-9;
// Largest tessellation level: keeps the dot count of an absurd density at a
// few hundred thousand instead of exhausting memory (the count check reports
// that the density was not reached).
constexpr int kMaxTessLevel = 100;
// Upper bound of dot-lattice cells per axis accepted from a caller.
constexpr int kMaxCubus = 100;

// The cached dot set: the only state kept between calls. One per thread, so
// that surface calculations may run on several threads at once; each thread
// builds the same dots.
NscDotCache& cache() {
  thread_local NscDotCache g;
  return g;
}

struct FreeDeleter {
  void operator()(void* p) const { std::free(p); }
};
template <class T>
using CArray = std::unique_ptr<T[], FreeDeleter>;

// Zeroed array of n elements (at least one, so that an empty request is not
// mistaken for a failure); null after the reported failure.
template <class T>
CArray<T> calloc_array(const Log& log, int line, std::size_t n) {
  return CArray<T>(static_cast<T*>(mycalloc(log, kNscFile, line, n == 0 ? 1 : n, sizeof(T))));
}

using Vec3 = std::array<double, 3>;

// Tessellation level: the smallest tl >= 1 whose dot count reaches densit.
int tess_level(int densit, double per_level) {
  const double q = (densit - 2) / per_level;
  if (!(q > 1.0)) return 1;  // also densit <= 2: one level is the coarsest set
  const double tl = std::ceil(std::sqrt(q));
  return tl > kMaxTessLevel ? kMaxTessLevel : static_cast<int>(tl);
}

// Appends dots to xus and keeps the running count tn.
class DotSink {
 public:
  DotSink(std::vector<double>& xus, int n_dot, int line_tn, const Log& log)
      : xus_(xus), n_dot_(n_dot), line_tn_(line_tn), log_(log) {}
  void add(const Vec3& p) {
    if (tn_ >= n_dot_) {
      // Never written past the set; the count keeps running for the report.
      error(log_, line_tn_, kNscFile, "ico_dot: tn exceeds dimension of xus");
      ++tn_;
      return;
    }
    const std::size_t k = 3 * static_cast<std::size_t>(tn_);
    xus_[k] = p[0];
    xus_[k + 1] = p[1];
    xus_[k + 2] = p[2];
    ++tn_;
  }
  int tn() const { return tn_; }

 private:
  std::vector<double>& xus_;
  int n_dot_;
  int line_tn_;
  const Log& log_;
  int tn_ = 0;
};

Vec3 arc_point(const Vec3& a, const Vec3& b, int div1, int div2, const Log& log) {
  Vec3 r{};
  divarc(a[0], a[1], a[2], b[0], b[1], b[2], div1, div2, r[0], r[1], r[2], log);
  return r;
}

// Subdivides a spherical triangle net at level tl: the vertices, tl - 1
// points on every edge, and the (tl - 1)(tl - 2)/2 interior points of every
// triangle. An interior point with integer barycentric weights (a, b, c),
// a + b + c = tl, is reached along arcs from each of the three corners; the
// three results are averaged and projected back onto the sphere, which keeps
// the set symmetric under the triangle's symmetries.
void tessellate(const std::vector<Vec3>& vertices, const std::vector<std::pair<int, int>>& edges,
                const std::vector<std::array<int, 3>>& triangles, int tl, DotSink& sink,
                const Log& log) {
  for (const Vec3& v : vertices) sink.add(v);
  for (const auto& [i, j] : edges) {
    for (int k = 1; k < tl; ++k) sink.add(arc_point(vertices[i], vertices[j], k, tl, log));
  }
  for (const auto& t : triangles) {
    const Vec3& pa = vertices[t[0]];
    const Vec3& pb = vertices[t[1]];
    const Vec3& pc = vertices[t[2]];
    for (int b = 1; b <= tl - 2; ++b) {
      for (int c = 1; b + c <= tl - 1; ++c) {
        const int a = tl - b - c;
        int m = b + c;
        const Vec3 p1 =
            arc_point(arc_point(pa, pb, m, tl, log), arc_point(pa, pc, m, tl, log), c, m, log);
        m = a + c;
        const Vec3 p2 =
            arc_point(arc_point(pb, pa, m, tl, log), arc_point(pb, pc, m, tl, log), c, m, log);
        m = a + b;
        const Vec3 p3 =
            arc_point(arc_point(pc, pa, m, tl, log), arc_point(pc, pb, m, tl, log), b, m, log);
        Vec3 s{p1[0] + p2[0] + p3[0], p1[1] + p2[1] + p3[1], p1[2] + p2[2] + p3[2]};
        const double len = std::sqrt(s[0] * s[0] + s[1] * s[1] + s[2] * s[2]);
        s = {s[0] / len, s[1] / len, s[2] / len};
        sink.add(s);
      }
    }
  }
}

// The icosahedron as a net: vertices, its 30 edges and its 20 faces
// (adjacent vertices are those at the smallest angle, cosine 1/sqrt(5);
// all other pairs have a negative cosine).
struct Icosahedron {
  std::vector<Vec3> v;
  std::vector<std::pair<int, int>> edges;
  std::vector<std::array<int, 3>> faces;
};

Icosahedron make_icosahedron() {
  std::array<double, 36> xus{};
  icosaeder_vertices(xus);
  Icosahedron ico;
  for (int i = 0; i < 12; ++i) ico.v.push_back({xus[3 * i], xus[3 * i + 1], xus[3 * i + 2]});
  auto adjacent = [&](int i, int j) {
    const Vec3& a = ico.v[i];
    const Vec3& b = ico.v[j];
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2] > 0.2;
  };
  for (int i = 0; i < 12; ++i) {
    for (int j = i + 1; j < 12; ++j) {
      if (!adjacent(i, j)) continue;
      ico.edges.emplace_back(i, j);
      for (int k = j + 1; k < 12; ++k) {
        if (adjacent(i, k) && adjacent(j, k)) ico.faces.push_back({i, j, k});
      }
    }
  }
  return ico;
}

int cell_of(double v, int n) {
  if (!(v > 0.0)) return 0;
  if (v >= n) return n - 1;
  return static_cast<int>(v);
}

// Cell of a unit dot in the dot lattice of ico_cube cells per axis.
int dot_cell(double x, double y, double z, int ico_cube, double del_cube) {
  const int ix = cell_of((x + 1.0) / del_cube, ico_cube);
  const int iy = cell_of((y + 1.0) / del_cube, ico_cube);
  const int iz = cell_of((z + 1.0) / del_cube, ico_cube);
  return (ix * ico_cube + iy) * ico_cube + iz;
}

// Cube of dot-lattice cells that nsc_dclm asks for.
constexpr int kCubus = 4;

// Makes the cached dot set the one for densit, sorted into kCubus cells per
// axis; an identical request reuses the cache. Returns 0, or 1 when the set
// could not be built.
int prepare_dot_set(int densit, const Log& log) {
  const NscDotCache& g = cache();
  const int i_type = unsp_type(densit);
  if (g.last_unsp != -i_type || g.last_cubus != kCubus ||
      (densit != g.last_densit && densit != g.last_n_dot)) {
    int num_dot = 0;
    if (make_unsp(densit, -i_type, num_dot, kCubus, log) != 0) return 1;
  }
  return 0;
}

// The atom lattice: cells of edge 2 * rmax (rmax the largest radius), so
// that every sphere overlapping an atom's sphere has its centre in the 27
// cells around the atom's cell.
struct AtomLattice {
  double xmin = 0.0, ymin = 0.0, zmin = 0.0, edge = 1.0;
  int nx = 1, ny = 1, nz = 1;

  std::size_t cells() const { return static_cast<std::size_t>(nx) * ny * nz; }
  // Cell of a centre; coordinates outside the box (or NaN) go to the
  // nearest border cell.
  int cell(const double* p) const {
    const int ix = cell_of((p[0] - xmin) / edge, nx);
    const int iy = cell_of((p[1] - ymin) / edge, ny);
    const int iz = cell_of((p[2] - zmin) / edge, nz);
    return (iz * ny + iy) * nx + ix;
  }
};

AtomLattice atom_lattice(const double* co, const double* radius, std::size_t n_atoms) {
  double xmin = co[0], xmax = co[0], ymin = co[1], ymax = co[1], zmin = co[2], zmax = co[2];
  double rmax = radius[0];
  for (std::size_t i = 0; i < n_atoms; ++i) {
    const double x = co[3 * i], y = co[3 * i + 1], z = co[3 * i + 2];
    xmin = std::min(xmin, x);
    xmax = std::max(xmax, x);
    ymin = std::min(ymin, y);
    ymax = std::max(ymax, y);
    zmin = std::min(zmin, z);
    zmax = std::max(zmax, z);
    rmax = std::max(rmax, radius[i]);
  }
  const double ext[3] = {xmax - xmin, ymax - ymin, zmax - zmin};
  double edge = 2.0 * rmax;
  double cells[3] = {1.0, 1.0, 1.0};
  if (edge > 0.0) {
    auto count_cells = [&] {
      for (int a = 0; a < 3; ++a) {
        const double c = std::ceil(ext[a] / edge);
        cells[a] = c > 1.0 ? c : 1.0;
      }
    };
    count_cells();
    // A few atoms spread far apart would ask for a huge, nearly empty
    // lattice: the edge is enlarged instead (a larger edge keeps every
    // neighbour within the 27 cells).
    const double max_cells = 8.0 * static_cast<double>(n_atoms) + 64.0;
    while (cells[0] * cells[1] * cells[2] > max_cells) {
      edge *= 2.0;
      count_cells();
    }
  } else {
    edge = std::max({ext[0], ext[1], ext[2], 1.0});  // all radii zero: one cell
  }
  AtomLattice lat;
  lat.edge = edge;
  lat.nx = static_cast<int>(cells[0]);
  lat.ny = static_cast<int>(cells[1]);
  lat.nz = static_cast<int>(cells[2]);
  // Widen the box equally on both sides to exactly nx * ny * nz cells.
  lat.xmin = xmin - (lat.nx * edge - ext[0]) / 2.0;
  lat.ymin = ymin - (lat.ny * edge - ext[1]) / 2.0;
  lat.zmin = zmin - (lat.nz * edge - ext[2]) / 2.0;
  return lat;
}

// Dot-lattice cells (lo..hi per axis) that meet the cap a neighbour buries;
// false when it buries nothing.
bool cap_cells(const Neighb& nb, int ico_cube, double del_cube, int lo[3], int hi[3]) {
  const double d = std::sqrt(nb.x * nb.x + nb.y * nb.y + nb.z * nb.z);
  for (int a = 0; a < 3; ++a) {
    lo[a] = 0;
    hi[a] = ico_cube - 1;
  }
  if (d > 0.0) {
    // The cap u . n > t (n the unit direction, t = dot / d) lies within
    // the chord distance sqrt(2 - 2t) of n.
    const double t = nb.dot / d;
    if (t >= 1.0) return false;  // sphere j inside sphere i: buries nothing
    if (t > -1.0) {
      const double rho = std::sqrt(2.0 - 2.0 * t) + 1e-9;
      const double n[3] = {nb.x / d, nb.y / d, nb.z / d};
      for (int a = 0; a < 3; ++a) {
        lo[a] = cell_of((n[a] - rho + 1.0) / del_cube, ico_cube);
        hi[a] = cell_of((n[a] + rho + 1.0) / del_cube, ico_cube);
      }
    }
    return true;
  }
  // Concentric spheres: the dot test reads 0 > dot, true only when the
  // neighbour is the larger one; equal spheres leave each other free.
  return nb.dot < 0.0;
}

}  // namespace

const NscDotCache& nsc_dot_cache() { return cache(); }

void error(const Log& log, int line, const char* file, const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): initialised by va_start above
  const std::string text = vformat(fmt, args);
  va_end(args);
  // Despite its wording the block returns to the caller.
  log.warn(format("\n---> ERROR when executing line %i in file %s !\n", line, file) + text +
           "\n---> Execution stopped !\n\n");
}

void warning(const Log& log, int line, const char* file, const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): initialised by va_start above
  const std::string text = vformat(fmt, args);
  va_end(args);
  log.warn(format("\n---> WARNING : line %i in file %s\n", line, file) + text + " ...!\n\n");
  log.flush_now();
}

double safe_asin(double f, const Log& log) {
  if (std::fabs(f) < 1.0) return std::asin(f);
  // Kept as the program has it: only arguments just beyond 1 are reported,
  // larger ones pass silently; the result is +pi/2 for either sign.
  if (std::fabs(f) - 1.0 <= kAsinTol) {
    error(log, kLineSafeAsin, kNscFile, "ASIN : invalid argument %f", f);
  }
  return kHalfPi;
}

void* mycalloc(const Log& log, const char* filename, int linenr, std::size_t nelem,
               std::size_t elsize) {
  void* ptr = std::calloc(nelem, elsize);
  if (ptr == nullptr) {
    error(log, kLineCalloc, kNscFile, "CALLOC : failed in file %s at line %d", filename, linenr);
  }
  return ptr;
}

void* myrealloc(const Log& log, const char* filename, int linenr, void* ptr, std::size_t size) {
  void* result = std::realloc(ptr, size);
  if (result == nullptr) {
    // The old block stays valid and owned by the caller.
    error(log, kLineRealloc, kNscFile, "REALLOC : failed in file %s at line %d", filename, linenr);
  }
  return result;
}

void icosaeder_vertices(std::array<double, 36>& xus) {
  const double c72 = std::cos(72.0 * std::acos(-1.0) / 180.0);
  // Heights and horizontal radius of the two pentagons; rg^2 + rh^2 = 1.
  const double rh = std::sqrt(1.0 - 2.0 * c72) / (1.0 - c72);
  const double rg = c72 / (1.0 - c72);
  const double deg = std::acos(-1.0) / 180.0;
  xus[0] = 0.0;
  xus[1] = 0.0;
  xus[2] = 1.0;
  for (int k = 1; k <= 5; ++k) {
    const double phi = 72.0 * k * deg;
    xus[3 * k] = rh * std::cos(phi);
    xus[3 * k + 1] = rh * std::sin(phi);
    xus[3 * k + 2] = rg;
  }
  for (int k = 1; k <= 5; ++k) {
    const double phi = (72.0 * k - 36.0) * deg;
    xus[3 * (k + 5)] = rh * std::cos(phi);
    xus[3 * (k + 5) + 1] = rh * std::sin(phi);
    xus[3 * (k + 5) + 2] = -rg;
  }
  xus[33] = 0.0;
  xus[34] = 0.0;
  xus[35] = -1.0;
  // Project onto the unit sphere so that rounding leaves every vertex at
  // length 1 to machine precision.
  for (int k = 0; k < 12; ++k) {
    const double len = std::sqrt(xus[3 * k] * xus[3 * k] + xus[3 * k + 1] * xus[3 * k + 1] +
                                 xus[3 * k + 2] * xus[3 * k + 2]);
    for (int c = 0; c < 3; ++c) xus[3 * k + c] /= len;
  }
}

int divarc(double x1, double y1, double z1, double x2, double y2, double z2, int div1, int div2,
           double& xr, double& yr, double& zr, const Log& log) {
  const double xd = y1 * z2 - y2 * z1;
  const double yd = z1 * x2 - z2 * x1;
  const double zd = x1 * y2 - x2 * y1;
  const double dd = std::sqrt(xd * xd + yd * yd + zd * zd);
  const double d1 = x1 * x1 + y1 * y1 + z1 * z1;
  const double d2 = x2 * x2 + y2 * y2 + z2 * z2;
  int status = 0;
  if (dd < kDivarcTol) {
    error(log, kLineDivarcAxis, kNscFile, "divarc: rotation axis of length %f", dd);
    status = 1;
  }
  if (d1 < kDivarcTol) {
    error(log, kLineDivarcVec1, kNscFile, "divarc: vector 1 of sq.length %f", d1);
    status = 1;
  }
  if (d2 < kDivarcTol) {
    error(log, kLineDivarcVec2, kNscFile, "divarc: vector 2 of sq.length %f", d2);
    status = 1;
  }
  // Without an axis (or without a fraction) there is no rotation: the start
  // vector is returned unchanged rather than a division by zero.
  if (status != 0 || div2 == 0) {
    xr = x1;
    yr = y1;
    zr = z1;
    return status;
  }
  const double phi = safe_asin(dd / std::sqrt(d1 * d2), log) * div1 / div2;
  const double cphi = std::cos(phi);
  const double sphi = std::sin(phi);
  // Rotation of vector 1 about the unit axis n = (v1 x v2)/|v1 x v2|; v1 is
  // perpendicular to n, so v1 cos(phi) + (n x v1) sin(phi).
  const double xp = (yd * z1 - zd * y1) / dd;
  const double yp = (zd * x1 - xd * z1) / dd;
  const double zp = (xd * y1 - yd * x1) / dd;
  xr = x1 * cphi + xp * sphi;
  yr = y1 * cphi + yp * sphi;
  zr = z1 * cphi + zp * sphi;
  return 0;
}

int ico_dot_arc(int densit, std::vector<double>& xus, const Log& log) {
  const int tl = tess_level(densit, 10.0);
  const int n_dot = 10 * tl * tl + 2;
  if (n_dot < densit) {
    error(log, kLineArcFormula, kNscFile,
          "ico_dot_arc: error in formula for tessalation level (%d->%d, %d)", tl, n_dot, densit);
  }
  xus.assign(3 * static_cast<std::size_t>(n_dot), 0.0);
  const Icosahedron ico = make_icosahedron();
  DotSink sink(xus, n_dot, kLineArcTn, log);
  tessellate(ico.v, ico.edges, ico.faces, tl, sink, log);
  if (sink.tn() != n_dot) {
    error(log, kLineArcDiffer, kNscFile, "ico_dot: n_dot(%d) and tn(%d) differ", n_dot, sink.tn());
  }
  return n_dot;
}

int ico_dot_dod(int densit, std::vector<double>& xus, const Log& log) {
  const int tl = tess_level(densit, 30.0);
  const int n_dot = 30 * tl * tl + 2;
  if (n_dot < densit) {
    error(log, kLineDodFormula, kNscFile,
          "ico_dot_dod: error in formula for tessalation level (%d->%d, %d)", tl, n_dot, densit);
  }
  xus.assign(3 * static_cast<std::size_t>(n_dot), 0.0);
  const Icosahedron ico = make_icosahedron();

  // Net of 32 vertices: the 12 icosahedron vertices and the 20 face centres
  // (the dodecahedron vertices). Each pentagonal face of the dodecahedron is
  // split into five triangles around its icosahedron vertex: 60 nearly
  // equilateral triangles with 30 dodecahedron edges and 60 spokes.
  std::vector<Vec3> vertices = ico.v;
  for (const auto& f : ico.faces) {
    Vec3 s{};
    for (int c = 0; c < 3; ++c) s[c] = ico.v[f[0]][c] + ico.v[f[1]][c] + ico.v[f[2]][c];
    const double len = std::sqrt(s[0] * s[0] + s[1] * s[1] + s[2] * s[2]);
    vertices.push_back({s[0] / len, s[1] / len, s[2] / len});
  }
  const int n_faces = static_cast<int>(ico.faces.size());
  auto has = [&](int f, int v) {
    const auto& t = ico.faces[f];
    return t[0] == v || t[1] == v || t[2] == v;
  };
  std::vector<std::pair<int, int>> edges;
  std::vector<std::array<int, 3>> triangles;
  for (int f = 0; f < n_faces; ++f) {
    for (int c = 0; c < 3; ++c) edges.emplace_back(ico.faces[f][c], 12 + f);
  }
  for (const auto& [i, j] : ico.edges) {
    int f1 = -1;
    int f2 = -1;
    for (int f = 0; f < n_faces; ++f) {
      if (has(f, i) && has(f, j)) (f1 < 0 ? f1 : f2) = f;
    }
    if (f1 < 0 || f2 < 0) continue;  // cannot happen for the icosahedron
    edges.emplace_back(12 + f1, 12 + f2);
    triangles.push_back({i, 12 + f1, 12 + f2});
    triangles.push_back({j, 12 + f1, 12 + f2});
  }
  DotSink sink(xus, n_dot, kLineDodTn, log);
  tessellate(vertices, edges, triangles, tl, sink, log);
  if (sink.tn() != n_dot) {
    error(log, kLineDodDiffer, kNscFile, "ico_dot: n_dot(%d) and tn(%d) differ", n_dot, sink.tn());
  }
  return n_dot;
}

int unsp_type(int densit) {
  long long i1 = 1;
  while (10 * i1 * i1 + 2 < densit) ++i1;
  long long i2 = 1;
  while (30 * i2 * i2 + 2 < densit) ++i2;
  return 10 * i1 * i1 - 2 < 30 * i2 * i2 - 2 ? 10 : 9;
}

int make_unsp(int densit, int mode, int& num_dot, int cubus, const Log& log) {
  NscDotCache& g = cache();
  // Release the previous set; its record goes with it so that no later call
  // mistakes the empty cache for a valid one.
  g.xpunsp.clear();
  g.ico_wk.clear();
  g.n_dot = 0;
  g.ico_cube = 0;
  g.del_cube = 0.0;
  g.last_n_dot = g.last_densit = g.last_unsp = g.last_cubus = 0;

  const long long magnitude = mode < 0 ? -static_cast<long long>(mode) : mode;
  if (magnitude != 10 && magnitude != 9) {
    warning(log, kLineMakeUnsp, kNscFile, "make_unsp: mode %c%lld not allowed",
            mode < 0 ? '-' : '+', magnitude);
    return 1;
  }
  g.n_dot =
      magnitude == 10 ? ico_dot_arc(densit, g.xpunsp, log) : ico_dot_dod(densit, g.xpunsp, log);
  ++g.builds;
  g.last_n_dot = g.n_dot;
  g.last_densit = densit;
  g.last_unsp = mode;
  num_dot = g.n_dot;
  if (mode > 0) return 0;

  // Sort the dots into a lattice of ico_cube^3 cells over [-1, 1]^3.
  if (cubus > 0) {
    g.ico_cube = std::min(cubus, kMaxCubus);
  } else {
    int i = 1;
    while (2 * i * i * i < g.n_dot) ++i;
    g.ico_cube = std::max(i - 1, 1);  // at least one cell: avoids an empty lattice
  }
  g.del_cube = 2.0 / g.ico_cube;
  const int cube3 = g.cube3();
  g.ico_wk.assign(2 * static_cast<std::size_t>(cube3), 0);
  std::vector<int> cell(static_cast<std::size_t>(g.n_dot));
  for (int k = 0; k < g.n_dot; ++k) {
    const double* u = &g.xpunsp[3 * static_cast<std::size_t>(k)];
    cell[k] = dot_cell(u[0], u[1], u[2], g.ico_cube, g.del_cube);
    ++g.ico_wk[cell[k]];
  }
  int first = 0;
  for (int c = 0; c < cube3; ++c) {
    g.ico_wk[cube3 + c] = first;
    first += g.ico_wk[c];
  }
  std::vector<double> sorted(g.xpunsp.size());
  std::vector<int> next(g.ico_wk.begin() + cube3, g.ico_wk.end());
  for (int k = 0; k < g.n_dot; ++k) {
    const std::size_t to = 3 * static_cast<std::size_t>(next[cell[k]]++);
    std::copy_n(&g.xpunsp[3 * static_cast<std::size_t>(k)], 3, &sorted[to]);
  }
  g.xpunsp = std::move(sorted);
  g.last_cubus = g.ico_cube;
  return 0;
}

int nsc_dclm(const double* co, const double* radius, int nat, int densit, int mode,
             double& value_of_area, std::vector<double>* at_area, double* value_of_vol,
             std::vector<double>* lidots, int* nu_dots, const Log& log) {
  value_of_area = 0.0;
  if (prepare_dot_set(densit, log) != 0) return 1;
  const NscDotCache& g = cache();

  // A negative count is treated like an empty list.
  if (nat <= 0) {
    warning(log, kLineNoAtoms, kNscFile, "nsc_dclm: no surface atoms selected");
    return 1;
  }
  const std::size_t n_atoms = static_cast<std::size_t>(nat);
  const int n_dot = g.n_dot;
  const double* xus = g.xpunsp.data();
  const bool want_area = (mode & kNscAtomArea) != 0 && at_area != nullptr;
  const bool want_vol = (mode & kNscVolume) != 0 && value_of_vol != nullptr;
  const bool want_dots = (mode & kNscDots) != 0 && lidots != nullptr;

  CArray<double> atom_area;
  if (want_area) {
    atom_area = calloc_array<double>(log, kLineAllocArea, n_atoms);
    if (!atom_area) return 1;
  }
  CArray<double> dots;
  std::size_t dots_cap = 0;
  std::size_t dots_used = 0;
  if (want_dots) {
    dots_cap = std::max<std::size_t>(3 * n_atoms * static_cast<std::size_t>(n_dot) / 10, 3);
    dots = calloc_array<double>(log, kLineAllocDots, dots_cap);
    if (!dots) return 1;
  }

  const double area_per_dot = kFourPi / n_dot;

  // Mean of the centres: origin of the volume integral.
  double xs = 0.0, ys = 0.0, zs = 0.0;
  for (std::size_t i = 0; i < n_atoms; ++i) {
    xs += co[3 * i];
    ys += co[3 * i + 1];
    zs += co[3 * i + 2];
  }
  xs /= nat;
  ys /= nat;
  zs /= nat;

  const AtomLattice lattice = atom_lattice(co, radius, n_atoms);
  const int nx = lattice.nx, ny = lattice.ny, nz = lattice.nz;
  const std::size_t n_cells = lattice.cells();

  CArray<int> cell_start = calloc_array<int>(log, kLineAllocCells, n_cells + 1);
  CArray<int> atom_cell = calloc_array<int>(log, kLineAllocCells + 1, n_atoms);
  CArray<int> cell_atoms = calloc_array<int>(log, kLineAllocCells + 2, n_atoms);
  if (!cell_start || !atom_cell || !cell_atoms) return 1;
  for (std::size_t i = 0; i < n_atoms; ++i) {
    atom_cell[i] = lattice.cell(co + 3 * i);
    ++cell_start[atom_cell[i] + 1];
  }
  for (std::size_t c = 0; c < n_cells; ++c) cell_start[c + 1] += cell_start[c];
  {
    std::vector<int> fill(cell_start.get(), cell_start.get() + n_cells);
    for (std::size_t i = 0; i < n_atoms; ++i)
      cell_atoms[fill[atom_cell[i]]++] = static_cast<int>(i);
  }

  CArray<Neighb> wknb = calloc_array<Neighb>(log, kLineAllocNeighb, n_atoms);
  CArray<char> buried = calloc_array<char>(log, kLineAllocBuried, static_cast<std::size_t>(n_dot));
  if (!wknb || !buried) return 1;

  const int ico_cube = g.ico_cube;
  const double del_cube = g.del_cube;
  double area = 0.0;
  double vol = 0.0;
  for (std::size_t i = 0; i < n_atoms; ++i) {
    const double ri = radius[i];
    // A sphere without radius has no surface (and a negative radius none either).
    if (!(ri > 0.0)) continue;
    const double xi = co[3 * i], yi = co[3 * i + 1], zi = co[3 * i + 2];

    // Neighbours: overlapping spheres in the 27 cells around atom i.
    int nnb = 0;
    const int ci = atom_cell[i];
    const int cx = ci % nx, cy = (ci / nx) % ny, cz = ci / (nx * ny);
    for (int kz = std::max(cz - 1, 0); kz <= std::min(cz + 1, nz - 1); ++kz) {
      for (int ky = std::max(cy - 1, 0); ky <= std::min(cy + 1, ny - 1); ++ky) {
        for (int kx = std::max(cx - 1, 0); kx <= std::min(cx + 1, nx - 1); ++kx) {
          const int c = (kz * ny + ky) * nx + kx;
          for (int p = cell_start[c]; p < cell_start[c + 1]; ++p) {
            const std::size_t j = static_cast<std::size_t>(cell_atoms[p]);
            if (j == i) continue;
            const double rj = radius[j];
            const double dx = co[3 * j] - xi, dy = co[3 * j + 1] - yi, dz = co[3 * j + 2] - zi;
            const double dd = dx * dx + dy * dy + dz * dz;
            const double rr = ri + rj;
            if (dd < rr * rr) {
              // Dot u of atom i lies inside sphere j when u . d > dot.
              wknb[nnb++] = Neighb{dx, dy, dz, (dd + ri * ri - rj * rj) / (2.0 * ri)};
            }
          }
        }
      }
    }

    // Buried dots: for each neighbour only the dots of the dot-lattice cells
    // that meet the buried cap are tested.
    std::memset(buried.get(), 0, static_cast<std::size_t>(n_dot));
    int n_buried = 0;
    for (int k = 0; k < nnb && n_buried < n_dot; ++k) {
      const Neighb& nb = wknb[k];
      int lo[3], hi[3];
      if (!cap_cells(nb, ico_cube, del_cube, lo, hi)) continue;
      for (int ix = lo[0]; ix <= hi[0]; ++ix) {
        for (int iy = lo[1]; iy <= hi[1]; ++iy) {
          for (int iz = lo[2]; iz <= hi[2]; ++iz) {
            const int c = (ix * ico_cube + iy) * ico_cube + iz;
            const int first = g.ico_pt(c);
            const int last = first + g.ico_wk[c];
            // Branch-free: every dot of the cell is tested, and counted the
            // first time a neighbour buries it (the same set and count as
            // skipping the buried ones, without mispredicted branches).
            for (int p = first; p < last; ++p) {
              const double* u = xus + 3 * static_cast<std::size_t>(p);
              const char hit = u[0] * nb.x + u[1] * nb.y + u[2] * nb.z > nb.dot ? 1 : 0;
              n_buried += hit & (buried[p] ^ 1);
              buried[p] |= hit;
            }
          }
        }
      }
    }

    const int n_free = n_dot - n_buried;
    const double a_i = ri * ri * n_free * area_per_dot;
    area += a_i;
    if (want_area) atom_area[i] = a_i;
    if (n_free == 0 || (!want_vol && !want_dots)) continue;

    // Volume by the divergence theorem: V = 1/3 * sum over the free surface
    // of (p - origin) . normal * dA, with p = c_i + r_i u, normal u and
    // dA = r_i^2 * 4pi / n_dot.
    double vol_i = 0.0;
    const double ox = xi - xs, oy = yi - ys, oz = zi - zs;
    for (int p = 0; p < n_dot; ++p) {
      if (buried[p] != 0) continue;
      const double* u = xus + 3 * static_cast<std::size_t>(p);
      vol_i += u[0] * ox + u[1] * oy + u[2] * oz + ri;
      if (want_dots) {
        if (dots_used + 3 > dots_cap) {
          const std::size_t new_cap = 2 * dots_cap;
          void* grown =
              myrealloc(log, kNscFile, kLineReallocDots, dots.get(), new_cap * sizeof(double));
          if (grown == nullptr) return 1;  // the old block is released by its owner
          dots.release();
          dots.reset(static_cast<double*>(grown));
          dots_cap = new_cap;
        }
        dots[dots_used++] = xi + ri * u[0];
        dots[dots_used++] = yi + ri * u[1];
        dots[dots_used++] = zi + ri * u[2];
      }
    }
    vol += ri * ri * vol_i;
  }

  value_of_area = area;
  if (want_vol) *value_of_vol = vol * (kFourPi / (3.0 * n_dot));
  if (want_area) at_area->assign(atom_area.get(), atom_area.get() + n_atoms);
  if (want_dots) {
    lidots->assign(dots.get(), dots.get() + dots_used);
    if (nu_dots != nullptr) *nu_dots = static_cast<int>(dots_used / 3);
  }
  return 0;
}

// ---------------------------------------------------------------------------
// Exposure decisions (nsc_exposed_spheres).
//
// A sphere's decision depends only on its count of free dots, and only on
// whether that count reaches the smallest one the rule accepts. The dots are
// grouped into clusters of nearby dots, each with a centre and an angular
// radius. A neighbour whose cap holds a whole cluster with a margin buries
// all its dots without a test; a neighbour whose cap misses a cluster with a
// margin is never tested against its dots; every other (neighbour, dot) pair
// gets the dot test of nsc_dclm, expression for expression. Counting stops
// once the decision is certain.
//
// Why the result equals nsc_dclm's. nsc_dclm buries dot u by neighbour v
// (centre offset, threshold dot) when fl(u . v) > dot and u's dot-lattice
// cell lies in the neighbour's cell box. (1) The cone classifications below
// hold with a margin of kConeMargin radians between the cluster and the cap
// boundary; every rounding involved (unit vectors, cosines, the computed
// cluster radii) moves angles by less than 1e-7 rad, and a dot kConeMargin / 2
// inside (outside) the cap has u . v beyond dot by at least |v| 1e-9, while
// fl(u . v) is within 1e-15 |v| of u . v: the test result is certain.
// (2) For a cap with t = dot / d <= kBoxFreeCap the cell box never excludes a
// dot that passes the test: such a dot has |u - n| < sqrt(2 - 2t) + 2e-14
// (n = v / d; sqrt(2 - 2t) >= 0.14), which is 1e-9 inside the box half-width
// rho = sqrt(2 - 2t) + 1e-9, and the box limits and the dot's cell are
// computed by monotone roundings of the same quantities. Smaller caps keep
// their box, computed by cap_cells itself. (3) Neighbours of tiny or zero
// distance, or caps covering the whole sphere, are never classified: they are
// tested against every dot, with their box.

namespace {

// Margin of the cluster geometry (radians), far above its rounding errors.
constexpr double kConeMargin = 1e-4;
// Caps with a larger t keep the dot-lattice box of nsc_dclm.
constexpr double kBoxFreeCap = 0.99;
// Offsets shorter than this are not classified (their dot products could
// underflow).
constexpr double kTinyOffset = 1e-100;
// Caps with a smaller t (an aperture above 72 degrees) are classified first.
constexpr double kWideCap = 0.3;
// Dots per cluster: on average, and at most (a cluster's dots fit one mask).
constexpr int kClusterDots = 24;
constexpr int kMaxClusterDots = 32;
// Cell boxes are 64-bit masks over the dot lattice.
static_assert(kCubus * kCubus * kCubus <= 64);

// The cached dot set grouped into clusters.
struct DotClusters {
  long build = -1;         // dot-set build the clusters were made from
  std::vector<int> first;  // first dot of each cluster in ux, uy, uz (even)
  std::vector<int> size;   // dots of each cluster
  // The dots, bit for bit those of the cache; each cluster padded with a
  // zero vector to an even length (pairs of dots are tested together).
  std::vector<double> ux, uy, uz;
  std::vector<double> cx, cy, cz;  // unit centres
  // cos and sin of the angular radius plus the margin, and the cosine of the
  // radius plus twice the margin (-2 when that reaches pi: never classified).
  std::vector<double> cos_r, sin_r, guard;
  // Dots of each cluster per dot-lattice cell: entries cell_first[j] to
  // cell_first[j + 1] - 1 of cell / cell_mask.
  std::vector<int> cell_first, cell;
  std::vector<std::uint32_t> cell_mask;
  int count() const { return static_cast<int>(cx.size()); }
};

Vec3 unit_or(const Vec3& v, const Vec3& fallback) {
  const double len = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
  if (!(len > 0.0)) return fallback;
  return {v[0] / len, v[1] / len, v[2] / len};
}

double dot3(const Vec3& a, const double* b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

// Groups the cached dots: a few Lloyd iterations from evenly spread centres,
// clusters over kMaxClusterDots split, and the clusters put in a greedy
// nearest-neighbour tour so that consecutive clusters are close (a neighbour
// holding one cluster often holds the next).
const DotClusters& dot_clusters() {
  thread_local DotClusters cl;  // per thread, like the dot set it is made from
  const NscDotCache& g = cache();
  if (cl.build == g.builds) return cl;
  cl = DotClusters{};
  const int n_dot = g.n_dot;
  const double* xus = g.xpunsp.data();
  const int k_count = std::max(1, (n_dot + kClusterDots - 1) / kClusterDots);

  std::vector<Vec3> centre(static_cast<std::size_t>(k_count));
  const double golden = std::acos(-1.0) * (3.0 - std::sqrt(5.0));
  for (int k = 0; k < k_count; ++k) {
    const double z = 1.0 - (2.0 * k + 1.0) / k_count;
    const double r = std::sqrt(std::max(0.0, 1.0 - z * z));
    centre[k] = {r * std::cos(golden * k), r * std::sin(golden * k), z};
  }
  std::vector<int> owner(static_cast<std::size_t>(n_dot), 0);
  for (int iter = 0; iter < 4; ++iter) {
    std::vector<Vec3> sum(centre.size(), Vec3{0.0, 0.0, 0.0});
    for (int p = 0; p < n_dot; ++p) {
      const double* u = xus + 3 * static_cast<std::size_t>(p);
      int best = 0;
      double best_dot = dot3(centre[0], u);
      for (int k = 1; k < k_count; ++k) {
        const double c = dot3(centre[k], u);
        if (c > best_dot) {
          best_dot = c;
          best = k;
        }
      }
      owner[p] = best;
      for (int a = 0; a < 3; ++a) sum[best][a] += u[a];
    }
    if (iter == 3) break;
    for (int k = 0; k < k_count; ++k) centre[k] = unit_or(sum[k], centre[k]);
  }

  // Member lists, large ones split into chunks.
  std::vector<std::vector<int>> members(centre.size());
  for (int p = 0; p < n_dot; ++p) members[owner[p]].push_back(p);
  std::vector<std::vector<int>> groups;
  for (const std::vector<int>& m : members) {
    for (std::size_t a = 0; a < m.size(); a += kMaxClusterDots) {
      groups.emplace_back(
          m.begin() + static_cast<std::ptrdiff_t>(a),
          m.begin() + static_cast<std::ptrdiff_t>(std::min(m.size(), a + kMaxClusterDots)));
    }
  }
  std::vector<Vec3> gc;
  for (const std::vector<int>& m : groups) {
    Vec3 s{0.0, 0.0, 0.0};
    for (const int p : m) {
      for (int a = 0; a < 3; ++a) s[a] += xus[3 * static_cast<std::size_t>(p) + a];
    }
    const double* u0 = xus + 3 * static_cast<std::size_t>(m[0]);
    gc.push_back(unit_or(s, Vec3{u0[0], u0[1], u0[2]}));
  }

  // Greedy tour.
  const std::size_t n_groups = groups.size();
  std::vector<std::size_t> tour;
  std::vector<char> used(n_groups, 0);
  std::size_t cur = 0;
  for (std::size_t step = 0; step < n_groups; ++step) {
    tour.push_back(cur);
    used[cur] = 1;
    std::size_t next = cur;
    double best = -3.0;
    for (std::size_t k = 0; k < n_groups; ++k) {
      const double c = dot3(gc[cur], gc[k].data());
      if (used[k] == 0 && c > best) {
        best = c;
        next = k;
      }
    }
    cur = next;
  }

  // Cell of every dot in the sorted dot set.
  std::vector<int> dot_cell(static_cast<std::size_t>(n_dot), 0);
  for (int c = 0; c < g.cube3(); ++c) {
    for (int p = g.ico_pt(c); p < g.ico_pt(c) + g.ico_wk[c]; ++p) dot_cell[p] = c;
  }

  const double pi = std::acos(-1.0);
  cl.first.push_back(0);
  cl.cell_first.push_back(0);
  for (const std::size_t k : tour) {
    const std::vector<int>& m = groups[k];
    const Vec3& c = gc[k];
    double min_cos = 1.0;
    for (std::size_t q = 0; q < m.size(); ++q) {
      const double* u = xus + 3 * static_cast<std::size_t>(m[q]);
      cl.ux.push_back(u[0]);
      cl.uy.push_back(u[1]);
      cl.uz.push_back(u[2]);
      min_cos = std::min(min_cos, dot3(c, u));
      const int cell = dot_cell[m[q]];
      int e = cl.cell_first.back();
      while (e < static_cast<int>(cl.cell.size()) && cl.cell[e] != cell) ++e;
      if (e == static_cast<int>(cl.cell.size())) {
        cl.cell.push_back(cell);
        cl.cell_mask.push_back(0);
      }
      cl.cell_mask[e] |= std::uint32_t{1} << q;
    }
    cl.size.push_back(static_cast<int>(m.size()));
    if (m.size() % 2 != 0) {
      cl.ux.push_back(0.0);
      cl.uy.push_back(0.0);
      cl.uz.push_back(0.0);
    }
    cl.first.push_back(static_cast<int>(cl.ux.size()));
    cl.cell_first.push_back(static_cast<int>(cl.cell.size()));
    const double radius = std::acos(std::clamp(min_cos, -1.0, 1.0)) + kConeMargin;
    cl.cx.push_back(c[0]);
    cl.cy.push_back(c[1]);
    cl.cz.push_back(c[2]);
    cl.cos_r.push_back(std::cos(radius));
    cl.sin_r.push_back(std::sin(radius));
    cl.guard.push_back(radius + kConeMargin < pi ? std::cos(radius + kConeMargin) : -2.0);
  }
  cl.build = g.builds;
  return cl;
}

// Neighbours of every sphere on the atom lattice: the pairs the neighbour
// search of nsc_dclm finds (centres in adjacent cells, spheres overlapping),
// by the same overlap test. Sphere i's neighbours are atom[first[i]] to
// atom[first[i + 1] - 1].
struct NeighbourLists {
  std::vector<std::size_t> first;
  std::vector<int> atom;
};

NeighbourLists neighbour_lists(const double* co, const double* radius, std::size_t n_atoms) {
  const AtomLattice lat = atom_lattice(co, radius, n_atoms);
  const std::size_t n_cells = lat.cells();
  // Atoms sorted by cell, with their data contiguous.
  std::vector<int> cell_start(n_cells + 1, 0);
  std::vector<int> atom_cell(n_atoms);
  for (std::size_t i = 0; i < n_atoms; ++i) {
    atom_cell[i] = lat.cell(co + 3 * i);
    ++cell_start[atom_cell[i] + 1];
  }
  for (std::size_t c = 0; c < n_cells; ++c) cell_start[c + 1] += cell_start[c];
  std::vector<int> id(n_atoms);
  std::vector<double> sx(n_atoms), sy(n_atoms), sz(n_atoms), sr(n_atoms);
  {
    std::vector<int> fill(cell_start.begin(), cell_start.end() - 1);
    for (std::size_t i = 0; i < n_atoms; ++i) {
      const int p = fill[atom_cell[i]]++;
      id[p] = static_cast<int>(i);
      sx[p] = co[3 * i];
      sy[p] = co[3 * i + 1];
      sz[p] = co[3 * i + 2];
      sr[p] = radius[i];
    }
  }

  // Every pair once: each cell with itself and with the cells of its 27-cell
  // block that follow it (the block relation is symmetric). The overlap test
  // is symmetric too: the offset of j from i is exactly minus that of i from
  // j, and the radius sum does not depend on the order.
  std::vector<std::pair<int, int>> pairs;
  pairs.reserve(16 * n_atoms);
  std::vector<std::size_t> count(n_atoms + 1, 0);
  const int nx = lat.nx, ny = lat.ny, nz = lat.nz;
  for (int cz = 0; cz < nz; ++cz) {
    for (int cy = 0; cy < ny; ++cy) {
      for (int cx = 0; cx < nx; ++cx) {
        const int c = (cz * ny + cy) * nx + cx;
        if (cell_start[c] == cell_start[c + 1]) continue;
        // The cells of the 27-cell block that follow c, as runs of atoms:
        // along x the cells of a row are consecutive, so each row of the
        // block after c's own is one run.
        int run_begin[9];
        int run_end[9];
        int n_runs = 0;
        const int x_lo = std::max(cx - 1, 0);
        const int x_hi = std::min(cx + 1, nx - 1);
        for (int kz = std::max(cz - 1, 0); kz <= std::min(cz + 1, nz - 1); ++kz) {
          for (int ky = std::max(cy - 1, 0); ky <= std::min(cy + 1, ny - 1); ++ky) {
            const int row = (kz * ny + ky) * nx;
            if (row <= (cz * ny + cy) * nx) continue;  // c's own row: below
            run_begin[n_runs] = cell_start[row + x_lo];
            run_end[n_runs] = cell_start[row + x_hi + 1];
            ++n_runs;
          }
        }
        // The rest of c's own row: the cells of c and of those after it.
        const int row_end = cell_start[(cz * ny + cy) * nx + x_hi + 1];
        for (int p = cell_start[c]; p < cell_start[c + 1]; ++p) {
          const double xi = sx[p], yi = sy[p], zi = sz[p], ri = sr[p];
          const auto add = [&](int q) {
            pairs.emplace_back(id[p], id[q]);
            ++count[id[p] + 1];
            ++count[id[q] + 1];
          };
          // The overlap test of each q, two at a time where SSE2 serves (the
          // same operations in the same order).
          auto scan = [&](int q0, int q1) {
            int q = q0;
#if defined(__SSE2__)
            const __m128d vx = _mm_set1_pd(xi), vy = _mm_set1_pd(yi), vz = _mm_set1_pd(zi);
            const __m128d vr = _mm_set1_pd(ri);
            for (; q + 1 < q1; q += 2) {
              const __m128d dx = _mm_sub_pd(_mm_loadu_pd(&sx[q]), vx);
              const __m128d dy = _mm_sub_pd(_mm_loadu_pd(&sy[q]), vy);
              const __m128d dz = _mm_sub_pd(_mm_loadu_pd(&sz[q]), vz);
              const __m128d dd = _mm_add_pd(_mm_add_pd(_mm_mul_pd(dx, dx), _mm_mul_pd(dy, dy)),
                                            _mm_mul_pd(dz, dz));
              const __m128d rr = _mm_add_pd(vr, _mm_loadu_pd(&sr[q]));
              const int hit = _mm_movemask_pd(_mm_cmplt_pd(dd, _mm_mul_pd(rr, rr)));
              if ((hit & 1) != 0) add(q);
              if ((hit & 2) != 0) add(q + 1);
            }
#endif
            for (; q < q1; ++q) {
              const double dx = sx[q] - xi, dy = sy[q] - yi, dz = sz[q] - zi;
              const double dd = dx * dx + dy * dy + dz * dz;
              const double rr = ri + sr[q];
              if (dd < rr * rr) add(q);
            }
          };
          scan(p + 1, row_end);
          for (int r = 0; r < n_runs; ++r) scan(run_begin[r], run_end[r]);
        }
      }
    }
  }

  NeighbourLists lists;
  for (std::size_t i = 0; i < n_atoms; ++i) count[i + 1] += count[i];
  lists.atom.resize(count[n_atoms]);
  std::vector<std::size_t> fill(count.begin(), count.end() - 1);
  for (const auto& [i, j] : pairs) {
    lists.atom[fill[i]++] = j;
    lists.atom[fill[j]++] = i;
  }
  lists.first = std::move(count);
  return lists;
}

// The neighbours of one sphere that can bury dots, as parallel arrays.
struct CapSet {
  // Offset and threshold of the dot test.
  std::vector<double> x, y, z, dot;
  // Unit direction, t = dot / d and s = sqrt(1 - t^2) of classified caps;
  // unclassified ones have n = 0, t = -2 (never outside a cluster).
  std::vector<double> nx, ny, nz, t, s;
  // t where the cap may hold a cluster whole, else 2 (never).
  std::vector<double> t_hold;
  // Dot-lattice cells the cap may bury in (all bits: no restriction).
  std::vector<std::uint64_t> box;
  int size = 0;

  void swap(int a, int b) {
    for (std::vector<double>* v : {&x, &y, &z, &dot, &nx, &ny, &nz, &t, &s, &t_hold}) {
      std::swap((*v)[a], (*v)[b]);
    }
    std::swap(box[a], box[b]);
  }

  // Room for n caps and one neutral entry behind the last (caps are
  // classified in pairs).
  void reserve(std::size_t n) {
    for (std::vector<double>* v : {&x, &y, &z, &dot, &nx, &ny, &nz, &t, &s, &t_hold}) {
      v->resize(n + 1);
    }
    box.resize(n + 1);
  }
};

std::uint64_t box_mask(const int lo[3], const int hi[3], int ico_cube) {
  std::uint64_t mask = 0;
  for (int ix = lo[0]; ix <= hi[0]; ++ix) {
    for (int iy = lo[1]; iy <= hi[1]; ++iy) {
      for (int iz = lo[2]; iz <= hi[2]; ++iz) {
        mask |= std::uint64_t{1} << ((ix * ico_cube + iy) * ico_cube + iz);
      }
    }
  }
  return mask;
}

// Fills caps with the neighbours of sphere i that nsc_dclm does not skip:
// offset, threshold and the skip tests of cap_cells, expression for
// expression.
void collect_caps(const double* co, const double* radius, const NeighbourLists& lists,
                  std::size_t i, const NscDotCache& g, CapSet& caps) {
  const double xi = co[3 * i], yi = co[3 * i + 1], zi = co[3 * i + 2], ri = radius[i];
  int m = 0;
  for (std::size_t e = lists.first[i]; e < lists.first[i + 1]; ++e) {
    const std::size_t j = static_cast<std::size_t>(lists.atom[e]);
    const double rj = radius[j];
    const double dx = co[3 * j] - xi, dy = co[3 * j + 1] - yi, dz = co[3 * j + 2] - zi;
    const double dd = dx * dx + dy * dy + dz * dz;
    const double dot = (dd + ri * ri - rj * rj) / (2.0 * ri);
    const double d = std::sqrt(dx * dx + dy * dy + dz * dz);
    double t = -2.0, t_hold = 2.0, s = 0.0, nx = 0.0, ny = 0.0, nz = 0.0;
    std::uint64_t box = ~std::uint64_t{0};
    if (d > 0.0) {
      const double tc = dot / d;
      if (tc >= 1.0) continue;
      if (tc > -1.0) {
        const bool classified = d >= kTinyOffset;
        if (tc > kBoxFreeCap || !classified) {
          int lo[3], hi[3];
          cap_cells(Neighb{dx, dy, dz, dot}, g.ico_cube, g.del_cube, lo, hi);
          box = box_mask(lo, hi, g.ico_cube);
        }
        if (classified) {
          const double inv_d = 1.0 / d;
          t = tc;
          s = std::sqrt(1.0 - tc * tc);
          nx = dx * inv_d;
          ny = dy * inv_d;
          nz = dz * inv_d;
          if (tc <= kBoxFreeCap) t_hold = tc;
        }
      }
    } else if (!(dot < 0.0)) {
      continue;
    }
    caps.x[m] = dx;
    caps.y[m] = dy;
    caps.z[m] = dz;
    caps.dot[m] = dot;
    caps.nx[m] = nx;
    caps.ny[m] = ny;
    caps.nz[m] = nz;
    caps.t[m] = t;
    caps.s[m] = s;
    caps.t_hold[m] = t_hold;
    caps.box[m] = box;
    ++m;
  }
  caps.size = m;
  // Caps of wide aperture first: they hold most clusters, and the search
  // for a holding cap then ends early.
  int front = 0;
  for (int k = 0; k < m; ++k) {
    if (caps.t_hold[k] < kWideCap) caps.swap(k, front++);
  }
  // The neutral entry: holds nothing, is never a candidate.
  caps.nx[m] = caps.ny[m] = caps.nz[m] = caps.s[m] = 0.0;
  caps.t[m] = -2.0;
  caps.t_hold[m] = 2.0;
}

// Number of set bits.
int bit_count(std::uint32_t v) {
  v = v - ((v >> 1) & 0x55555555U);
  v = (v & 0x33333333U) + ((v >> 2) & 0x33333333U);
  v = (v + (v >> 4)) & 0x0F0F0F0FU;
  return static_cast<int>((v * 0x01010101U) >> 24);
}

// Dots of cluster j (mask bit q for its q-th dot) that cap k buries by the
// dot test of nsc_dclm, u . v > dot summed as (ux vx + uy vy) + uz vz.
std::uint32_t buried_in_cluster(const DotClusters& cl, int j, const CapSet& caps, int k) {
  const int first = cl.first[j];
  const int len = cl.size[j];
  const double* ux = cl.ux.data() + first;
  const double* uy = cl.uy.data() + first;
  const double* uz = cl.uz.data() + first;
  std::uint32_t mask = 0;
#if defined(__SSE2__)
  const __m128d x = _mm_set1_pd(caps.x[k]), y = _mm_set1_pd(caps.y[k]), z = _mm_set1_pd(caps.z[k]),
                dot = _mm_set1_pd(caps.dot[k]);
  for (int q = 0; q < len; q += 2) {
    const __m128d sum = _mm_add_pd(
        _mm_add_pd(_mm_mul_pd(_mm_loadu_pd(ux + q), x), _mm_mul_pd(_mm_loadu_pd(uy + q), y)),
        _mm_mul_pd(_mm_loadu_pd(uz + q), z));
    mask |= static_cast<std::uint32_t>(_mm_movemask_pd(_mm_cmpgt_pd(sum, dot))) << q;
  }
  if (len < 32) mask &= (std::uint32_t{1} << len) - 1;  // the padding dot
#else
  const double x = caps.x[k], y = caps.y[k], z = caps.z[k], dot = caps.dot[k];
  for (int q = 0; q < len; ++q) {
    mask |= static_cast<std::uint32_t>(ux[q] * x + uy[q] * y + uz[q] * z > dot) << q;
  }
#endif
  const std::uint64_t box = caps.box[k];
  if (box != ~std::uint64_t{0}) {
    std::uint32_t in_box = 0;
    for (int e = cl.cell_first[j]; e < cl.cell_first[j + 1]; ++e) {
      if (((box >> cl.cell[e]) & 1) != 0) in_box |= cl.cell_mask[e];
    }
    mask &= in_box;
  }
  return mask;
}

// Geometry of one cluster for the cap classification.
struct ClusterCone {
  double cx, cy, cz, cos_r, sin_r, guard;
};

// Cap k holds the cluster when its angle to the centre is below its aperture
// minus the cluster radius (cos(a - r) = t cos r + s sin r), and misses it
// when that angle exceeds the aperture plus the radius; the guards keep both
// angles within (0, pi). Bit k - k0 of hold and miss for caps k0 to k1 - 1
// (and the entry behind them when their count is odd).
void classify_caps(const CapSet& caps, const ClusterCone& c, int k0, int k1, unsigned& hold,
                   unsigned& miss) {
  hold = 0;
  miss = 0;
#if defined(__SSE2__)
  const __m128d cx = _mm_set1_pd(c.cx), cy = _mm_set1_pd(c.cy), cz = _mm_set1_pd(c.cz);
  const __m128d cos_r = _mm_set1_pd(c.cos_r), sin_r = _mm_set1_pd(c.sin_r);
  const __m128d guard = _mm_set1_pd(c.guard), minus_guard = _mm_set1_pd(-c.guard);
  for (int k = k0; k < k1; k += 2) {
    const __m128d cn = _mm_add_pd(_mm_add_pd(_mm_mul_pd(cx, _mm_loadu_pd(&caps.nx[k])),
                                             _mm_mul_pd(cy, _mm_loadu_pd(&caps.ny[k]))),
                                  _mm_mul_pd(cz, _mm_loadu_pd(&caps.nz[k])));
    const __m128d t = _mm_loadu_pd(&caps.t[k]);
    const __m128d tc = _mm_mul_pd(t, cos_r);
    const __m128d ss = _mm_mul_pd(_mm_loadu_pd(&caps.s[k]), sin_r);
    const __m128d h = _mm_and_pd(_mm_cmplt_pd(_mm_loadu_pd(&caps.t_hold[k]), guard),
                                 _mm_cmpgt_pd(cn, _mm_add_pd(tc, ss)));
    const __m128d ms =
        _mm_and_pd(_mm_cmpgt_pd(t, minus_guard), _mm_cmplt_pd(cn, _mm_sub_pd(tc, ss)));
    hold |= static_cast<unsigned>(_mm_movemask_pd(h)) << (k - k0);
    miss |= static_cast<unsigned>(_mm_movemask_pd(ms)) << (k - k0);
  }
#else
  for (int k = k0; k < k1; ++k) {
    const double cn = c.cx * caps.nx[k] + c.cy * caps.ny[k] + c.cz * caps.nz[k];
    const double tc = caps.t[k] * c.cos_r, ss = caps.s[k] * c.sin_r;
    hold |= static_cast<unsigned>((caps.t_hold[k] < c.guard) & (cn > tc + ss)) << (k - k0);
    miss |= static_cast<unsigned>((caps.t[k] > -c.guard) & (cn < tc - ss)) << (k - k0);
  }
#endif
}

// Whether cap k holds the cluster: the hold test of classify_caps for one
// cap, the same expressions.
bool holds(const CapSet& caps, const ClusterCone& c, int k) {
  const double cn = (c.cx * caps.nx[k] + c.cy * caps.ny[k]) + c.cz * caps.nz[k];
  return caps.t_hold[k] < c.guard && cn > caps.t[k] * c.cos_r + caps.s[k] * c.sin_r;
}

// Whether sphere i (its caps collected) has at least min_free free dots.
bool reaches_free_count(const DotClusters& cl, const CapSet& caps, int n_dot, int min_free,
                        std::vector<int>& candidates) {
  const int m = caps.size;
  const int max_buried = n_dot - min_free;
  int n_free = 0;
  int n_buried = 0;
  // The caps that held the last two held clusters (consecutive clusters lie
  // close together, so one of them often holds the next), each tried with
  // the cap behind it.
  int holder = 0, earlier = 0;
  for (int j = 0; j < cl.count(); ++j) {
    const int len = cl.size[j];
    const ClusterCone cone{cl.cx[j], cl.cy[j], cl.cz[j], cl.cos_r[j], cl.sin_r[j], cl.guard[j]};
    unsigned hold = 0, miss = 0;
    bool held = false;
    for (const int k : {holder, earlier}) {
      if (k < m && holds(caps, cone, k)) {
        if (k != holder) {
          earlier = holder;
          holder = k;
        }
        held = true;
        break;
      }
    }
    int n_cand = 0;
    for (int k0 = 0; k0 < m && !held; k0 += 8) {
      const int k1 = std::min(m, k0 + 8);
      classify_caps(caps, cone, k0, k1, hold, miss);
      if (hold != 0) {
        earlier = holder;
        holder = k0 + __builtin_ctz(hold);
        held = true;
        break;
      }
      for (int k = k0; k < k1; ++k) {
        candidates[n_cand] = k;
        n_cand += static_cast<int>(((miss >> (k - k0)) & 1) == 0);
      }
    }
    if (held) {
      n_buried += len;
      if (n_buried > max_buried) return false;
      continue;
    }
    const std::uint32_t all = len == 32 ? ~std::uint32_t{0} : (std::uint32_t{1} << len) - 1;
    std::uint32_t buried = 0;
    for (int e = 0; e < n_cand && buried != all; ++e) {
      buried |= buried_in_cluster(cl, j, caps, candidates[e]);
    }
    const int b = bit_count(buried);
    n_buried += b;
    n_free += len - b;
    if (n_buried > max_buried) return false;
    if (n_free >= min_free) return true;
  }
  return n_free >= min_free;
}

}  // namespace

int nsc_exposed_spheres(const double* co, const double* radius, int nat, int densit,
                        const NscAreaRule& rule, std::vector<char>& exposed, const Log& log) {
  exposed.clear();
  if (prepare_dot_set(densit, log) != 0) return 1;
  const NscDotCache& g = cache();
  if (nat <= 0) {
    warning(log, kLineNoAtoms, kNscFile, "nsc_dclm: no surface atoms selected");
    return 1;
  }
  const std::size_t n_atoms = static_cast<std::size_t>(nat);
  const int n_dot = g.n_dot;
  const double area_per_dot = kFourPi / n_dot;
  exposed.assign(n_atoms, 0);

  // Smallest free-dot count the rule accepts for each sphere: the area of
  // nsc_dclm, ri * ri * n_free * area_per_dot, does not decrease with n_free,
  // so the rule's answer switches once; n_dot + 1 when it never holds.
  std::vector<int> min_free(n_atoms, 0);
  int last_min_free = -1;
  for (std::size_t i = 0; i < n_atoms; ++i) {
    const double ri = radius[i];
    if (!(ri > 0.0)) {
      // No surface: nsc_dclm leaves the area at zero.
      exposed[i] = rule(i, 0.0) ? 1 : 0;
      continue;
    }
    // Spheres alike in radius and rule repeat the previous answer: checked
    // at its two ends before any search.
    auto holds = [&](int n_free) { return rule(i, ri * ri * n_free * area_per_dot); };
    if (last_min_free >= 0 && (last_min_free == 0 || !holds(last_min_free - 1)) &&
        (last_min_free > n_dot || holds(last_min_free))) {
      min_free[i] = last_min_free;
      continue;
    }
    int lo = 0, hi = n_dot + 1;
    while (lo < hi) {
      const int n_free = lo + (hi - lo) / 2;
      if (holds(n_free)) {
        hi = n_free;
      } else {
        lo = n_free + 1;
      }
    }
    min_free[i] = lo;
    last_min_free = lo;
  }

  const DotClusters& cl = dot_clusters();
  const NeighbourLists lists = neighbour_lists(co, radius, n_atoms);
  std::size_t max_caps = 0;
  for (std::size_t i = 0; i < n_atoms; ++i) {
    max_caps = std::max(max_caps, lists.first[i + 1] - lists.first[i]);
  }
  CapSet caps;
  caps.reserve(max_caps);
  std::vector<int> candidates(max_caps);
  for (std::size_t i = 0; i < n_atoms; ++i) {
    if (!(radius[i] > 0.0)) continue;
    if (min_free[i] == 0 || min_free[i] > n_dot) {
      exposed[i] = min_free[i] == 0 ? 1 : 0;
      continue;
    }
    collect_caps(co, radius, lists, i, g, caps);
    exposed[i] = reaches_free_count(cl, caps, n_dot, min_free[i], candidates) ? 1 : 0;
  }
  return 0;
}

}  // namespace vorn
