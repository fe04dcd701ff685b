// Solvent-accessible surface by the double cubic lattice method.
#pragma once

#include <array>
#include <cstddef>
#include <cstdio>
#include <functional>
#include <vector>

#include "vorn/log.hpp"

namespace vorn {

// ---------------------------------------------------------------------------
// Surface method (nsc).

// Bits of the mode argument of nsc_dclm.
inline constexpr int kNscDots = 1;      // return the free surface dots
inline constexpr int kNscVolume = 2;    // return the enclosed volume
inline constexpr int kNscAtomArea = 4;  // return the per-atom areas

// Source name that error() and warning() report for the surface method.
inline constexpr const char* kNscFile = "nsc.c";

// Neighbour of the current atom: position relative to it and the threshold of
// the buried-dot test (a unit dot u is buried when u . (x, y, z) > dot).
struct Neighb {
  double x, y, z, dot;
};

// Accessible surface of nat spheres (co: 3 coordinates per sphere, radius:
// one radius per sphere, both from index 0) with about densit dots per
// sphere. The total area is always returned; mode bits ask for more:
// kNscDots fills lidots (3 doubles per free dot) and nu_dots, kNscVolume
// fills value_of_vol, kNscAtomArea fills at_area (nat areas). An output whose
// pointer is null is skipped. Returns 0 on success, 1 on failure.
int nsc_dclm(const double* co, const double* radius, int nat, int densit, int mode,
             double& value_of_area, std::vector<double>* at_area, double* value_of_vol,
             std::vector<double>* lidots, int* nu_dots, const Log& log);

// Rule deciding from a sphere's accessible area whether the sphere counts as
// exposed: rule(sphere, area). It must be false below some area and true at
// and above it (non-decreasing in the area) for every sphere.
using NscAreaRule = std::function<bool(std::size_t sphere, double area)>;

// Decision form of the per-sphere areas of nsc_dclm: exposed[i] is 1 when
// rule(i, area_i) holds, area_i being bit for bit the area nsc_dclm returns
// for sphere i with the same arguments, else 0. The areas themselves are not
// computed: each sphere's dots are examined only until the decision is
// certain. Same dot set, messages and return value as nsc_dclm (0, or 1
// after the report of an empty list or a failed dot set). Allocation failure
// throws std::bad_alloc.
int nsc_exposed_spheres(const double* co, const double* radius, int nat, int densit,
                        const NscAreaRule& rule, std::vector<char>& exposed, const Log& log);

// Generator code for a requested density: 10 (icosahedron arcs) or 9
// (icosahedron completed to a dodecahedron), whichever needs fewer dots.
int unsp_type(int densit);

// Builds the cached unit-sphere dot set with generator |mode| (9 or 10);
// for a negative mode the dots are also sorted into cubus cells per axis
// (cubus <= 0: chosen from the dot count). Stores the dot count in num_dot.
// Returns 0, or 1 with a warning for an unknown mode.
int make_unsp(int densit, int mode, int& num_dot, int cubus, const Log& log);

// Unit-sphere dot sets: xus receives 3 doubles per dot; the dot count
// (10*tl^2+2 or 30*tl^2+2) is returned.
int ico_dot_arc(int densit, std::vector<double>& xus, const Log& log);
int ico_dot_dod(int densit, std::vector<double>& xus, const Log& log);

// The 12 vertices of the unit icosahedron, 3 doubles each.
void icosaeder_vertices(std::array<double, 36>& xus);

// Point at fraction div1/div2 of the great-circle arc from vector 1 to
// vector 2 (same length as vector 1). Returns 0, or 1 after reporting a
// degenerate input (the result is then vector 1 unchanged).
int divarc(double x1, double y1, double z1, double x2, double y2, double z2, int div1, int div2,
           double& xr, double& yr, double& zr, const Log& log);

// Arcsine of f for |f| < 1; pi/2 otherwise (reported when |f| - 1 <= 0.001).
double safe_asin(double f, const Log& log);

// Error and warning blocks of the surface method, handed to log.warn.
// Neither stops the computation; warning also asks the log to flush.
void error(const Log& log, int line, const char* file, const char* fmt, ...)
    __attribute__((format(printf, 4, 5)));
void warning(const Log& log, int line, const char* file, const char* fmt, ...)
    __attribute__((format(printf, 4, 5)));

// Zeroed allocation and reallocation (release with std::free); a failure is
// reported through error() naming the caller's file and line, and gives null.
void* mycalloc(const Log& log, const char* filename, int linenr, std::size_t nelem,
               std::size_t elsize);
void* myrealloc(const Log& log, const char* filename, int linenr, void* ptr, std::size_t size);

// Read-only view of the cached dot set (the only state kept between calls; one
// per thread).
struct NscDotCache {
  std::vector<double> xpunsp;  // unit dots, 3 doubles each
  int n_dot = 0;
  int ico_cube = 0;         // dot-lattice cells per axis (sorted sets)
  double del_cube = 0.0;    // cell edge on the cube [-1, 1]^3
  std::vector<int> ico_wk;  // dots per cell, then (from ico_cube^3 on) first dot per cell
  int last_n_dot = 0, last_densit = 0, last_unsp = 0, last_cubus = 0;
  long builds = 0;  // number of dot sets generated so far
  // Index of the first dot of a cell (ico_pt, stored behind ico_wk).
  int ico_pt(int cell) const {
    return ico_wk[static_cast<std::size_t>(cube3()) + static_cast<std::size_t>(cell)];
  }
  int cube3() const { return ico_cube * ico_cube * ico_cube; }
};
const NscDotCache& nsc_dot_cache();

}  // namespace vorn
