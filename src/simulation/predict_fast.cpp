#include "simulation/predict_fast.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "core/fatal.hpp"
#include "simulation/parallel.hpp"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace vorn::detail {

namespace {

// The ten-digit value of pi used throughout the simulation.
constexpr double kPi = 3.141592654;

// Atoms per leaf group: few enough that a leaf near the obstacle holds few
// atoms that need testing, enough that the bounds cost little next to the
// atoms they spare.
constexpr int kLeafSize = 16;

// Room for the groups a depth-first walk of the tree keeps pending: one
// more than the depth, and a median split gives a depth of at most
// log2(atoms / kLeafSize) + 2, far below this for any atom count an int
// can hold.
constexpr int kMaxDepth = 64;

// Coordinates up to this size (Angstrom) go into the tree; the rounding
// bounds below hold for them with a wide margin. Others (not-a-number, infinite,
// absurdly large) are tested at every orientation without a bound.
constexpr double kModerateCoordinate = 1.0e6;

// Grid coordinates up to this size keep every rounding bound of the
// cylinder far from overflow; other grids take the direct test.
constexpr double kModerateGrid = 1.0e15;

// Relative widening of every bound: many orders of magnitude above the
// double rounding it has to cover (about 1e-16 per operation).
constexpr double kWiden = 1.0e-9;

// Contact rows of one block of orientations take at most this many bytes;
// the block size follows from the number of positions, so memory stays
// bounded whatever the number of orientations.
constexpr std::size_t kBlockBytes = std::size_t{4} << 20;

// Orientations handed to a worker at a time.
constexpr int kChunk = 16;

// Positions per range of the summing step: a whole cache line of doubles,
// so that no two workers write the same line.
constexpr int kPositionAlign = 8;

// The projection of one atom onto one frame axis, each partial sum stored
// back in single precision: the same operations in the same order as
// project_atoms.
inline float project(double d1, double d2, double d3, double x, double y, double z) {
  float sum = 0.0f;
  sum = static_cast<float>(sum + d1 * x);
  sum = static_cast<float>(sum + d2 * y);
  sum = static_cast<float>(sum + d3 * z);
  return sum;
}

bool moderate(double v) { return std::fabs(v) <= kModerateCoordinate; }  // false for NaN

// Appends the group of the atoms idx[lo..hi) and, below it, its subgroups
// (median splits along the longest extent at a whole number of leaves, so
// that all leaves but the last of a group are full); returns its index.
int build_group(std::vector<int>& idx, int lo, int hi, const std::vector<double>& x,
                const std::vector<double>& y, const std::vector<double>& z, AtomTree& t) {
  const int n = t.nodes();
  double low[3] = {x[idx[lo]], y[idx[lo]], z[idx[lo]]};
  double high[3] = {low[0], low[1], low[2]};
  for (int j = lo + 1; j < hi; ++j) {
    const double c[3] = {x[idx[j]], y[idx[j]], z[idx[j]]};
    for (int a = 0; a < 3; ++a) {
      low[a] = std::min(low[a], c[a]);
      high[a] = std::max(high[a], c[a]);
    }
  }
  const double cx = 0.5 * (low[0] + high[0]);
  const double cy = 0.5 * (low[1] + high[1]);
  const double cz = 0.5 * (low[2] + high[2]);
  // The largest distance, as the square root of the largest square (sqrt is
  // correctly rounded and so keeps the order: the same value).
  double radius2 = 0.0;
  double size = 0.0;
  for (int j = lo; j < hi; ++j) {
    const int i = idx[j];
    const double dx = x[i] - cx;
    const double dy = y[i] - cy;
    const double dz = z[i] - cz;
    radius2 = std::max(radius2, dx * dx + dy * dy + dz * dz);
    size = std::max(size, std::fabs(x[i]) + std::fabs(y[i]) + std::fabs(z[i]));
  }
  const double radius = std::sqrt(radius2);
  t.begin.push_back(lo);
  t.end.push_back(hi);
  t.second.push_back(0);
  t.cx.push_back(cx);
  t.cy.push_back(cy);
  t.cz.push_back(cz);
  // The distance above carries a relative rounding of a few 1e-16.
  t.reach.push_back(radius * (1.0 + kWiden) + kWiden);
  // A projection rounds three partial sums, each at most about `size` in
  // magnitude, to single precision (2^-24 each), and its products and sums
  // in double: 2^-20 * size covers that several times over, together with
  // the centre's own projection and the arithmetic of the bounds.
  t.error.push_back(size * 0x1p-20 + 1.0e-12);
  if (hi - lo <= kLeafSize) {
    t.leaf.push_back(n);
    t.leaf_cx.push_back(cx);
    t.leaf_cy.push_back(cy);
    t.leaf_cz.push_back(cz);
    t.leaf_reach.push_back(t.reach.back());
    t.leaf_error.push_back(t.error.back());
    return n;
  }
  int axis = 0;
  for (int a = 1; a < 3; ++a) {
    if (high[a] - low[a] > high[axis] - low[axis]) axis = a;
  }
  const std::vector<double>& coord = axis == 0 ? x : (axis == 1 ? y : z);
  const int leaves = (hi - lo + kLeafSize - 1) / kLeafSize;
  const int mid = lo + leaves / 2 * kLeafSize;
  std::nth_element(idx.begin() + lo, idx.begin() + mid, idx.begin() + hi, [&coord](int a, int b) {
    return coord[a] < coord[b] || (coord[a] == coord[b] && a < b);
  });
  build_group(idx, lo, mid, x, y, z, t);
  const int second = build_group(idx, mid, hi, x, y, z, t);
  t.second[n] = second;
  return n;
}

// Appends the blocks of group n, whose leaves start at leaf number `first`;
// returns the number of its leaves. All leaves of a group but its last are
// full, so the count follows from the number of atoms.
int add_blocks(AtomTree& t, int n, int first) {
  const int leaves = (t.end[n] - t.begin[n] + kLeafSize - 1) / kLeafSize;
  if (leaves <= AtomTree::kMaxBlockLeaves) {
    t.block_node.push_back(n);
    t.block_leaf.push_back(first);
    return leaves;
  }
  const int in_first = add_blocks(t, n + 1, first);
  return in_first + add_blocks(t, t.second[n], first + in_first);
}

// One contiguous run [begin, end) of allowed positions, or end < 0 when the
// allowed positions of the row do not form a single run.
struct RowRun {
  int begin = 0;
  int end = -1;
};

RowRun single_run(const unsigned char* row, int positions) {
  int k = 0;
  while (k < positions && row[k] == 0) ++k;
  const int begin = k;
  while (k < positions && row[k] != 0) ++k;
  const int end = k;
  while (k < positions && row[k] == 0) ++k;
  if (k < positions) {
    return RowRun{0, -1};
  }
  return RowRun{begin, end};
}

// Per-worker storage, sized before the workers start so that no worker
// allocates.
// Aligned to a cache line: each worker writes its own workspace per orientation.
struct alignas(64) Workspace {
  int hint = -1;             // wall: leaf of the last minimum
  ContactHint contact_hint;  // wall: the same, and the last count of contacts
  TrigMemo trig;             // angles of the last orientation
  // Cylinder: per group, for the orientation `current`, the centre's
  // projections, the radius that holds the projections of its atoms and the
  // squared distance within which one of them may touch; per leaf the exact
  // projections of its atoms.
  unsigned current = 0;
  std::vector<unsigned> stamp, projected;
  std::vector<double> pc, qc, rho, limit;
  std::vector<float> X, Y;
  std::vector<float> oX, oY;          // projections of the atoms outside the tree
  std::vector<unsigned char> olive;   // ... and whether they can touch at all
  std::vector<float> x_temp, y_temp;  // direct test of irregular cylinder grids
  std::vector<unsigned char> allowed;
};

bool is_leaf(const AtomTree& t, int n) { return t.second[n] == 0; }

// The lowest of `start` and the projections of the atoms of leaf n onto the
// axis (d1, d2, d3), the projections into a buffer first (a loop the
// compiler vectorises), then compared in atom order.
float leaf_lowest(const AtomTree& t, int n, double d1, double d2, double d3, float start) {
  const int b0 = t.begin[n];
  const int count = t.end[n] - b0;
  const double* x = t.x.data() + b0;
  const double* y = t.y.data() + b0;
  const double* z = t.z.data() + b0;
  float v[kLeafSize];
  for (int j = 0; j < count; ++j) {
    v[j] = project(d1, d2, d3, x[j], y[j], z[j]);
  }
  float low = start;
  for (int j = 0; j < count; ++j) {
    low = v[j] < low ? v[j] : low;
  }
  return low;
}

// The lowest projection, as lowest_projection. `hint` names a leaf to scan
// first (the one that held the minimum of a neighbouring orientation, which
// makes the bounds prune at once) and receives the leaf that holds it now;
// any leaf gives the same result.
float lowest_projection_with(const AtomTree& t, const double x_axis[4], int& hint) {
  const double d1 = x_axis[1];
  const double d2 = x_axis[2];
  const double d3 = x_axis[3];
  float lowest = std::numeric_limits<float>::infinity();
  // Not-a-number compares false and never becomes the minimum, as it never
  // touches the wall.
  bool any = false;
  for (std::size_t i = 0; i < t.ox.size(); ++i) {
    const float v = project(d1, d2, d3, t.ox[i], t.oy[i], t.oz[i]);
    lowest = v < lowest ? v : lowest;
    any = any || !std::isnan(v);
  }
  if (t.nodes() == 0) {
    // Without any projection that is a number nothing touches, not even a
    // threshold of +infinity.
    return any ? lowest : std::numeric_limits<float>::quiet_NaN();
  }
  // The projections of a leaf; true when they lower the minimum.
  auto scan = [&](int n) {
    const float low = leaf_lowest(t, n, d1, d2, d3, lowest);
    const bool lower = low < lowest;
    lowest = low;
    return lower;
  };
  int holder = -1;
  if (hint >= 0 && hint < t.nodes() && is_leaf(t, hint) && scan(hint)) holder = hint;
  // Every projection of group n is at least its centre's projection less
  // |axis| * reach (Cauchy-Schwarz) less the single-precision rounding.
  const double norm = std::sqrt(d1 * d1 + d2 * d2 + d3 * d3) * (1.0 + kWiden);
  auto bound = [&](int n) {
    return (d1 * t.cx[n] + d2 * t.cy[n] + d3 * t.cz[n]) - (norm * t.reach[n] + t.error[n]);
  };
  // Depth first, the lower bound first; a group whose bound is not below
  // the minimum so far cannot lower it. Each step replaces a group by its
  // two subgroups, so the pending list never outgrows the tree's depth.
  int pending_group[kMaxDepth];
  double pending_bound[kMaxDepth];
  int top = 0;
  pending_group[top] = 0;
  pending_bound[top] = bound(0);
  ++top;
  while (top > 0) {
    --top;
    const int n = pending_group[top];
    if (!(pending_bound[top] < lowest)) continue;
    if (is_leaf(t, n)) {
      if (n != holder && scan(n)) holder = n;
      continue;
    }
    const int first = n + 1;
    const int second = t.second[n];
    const double b1 = bound(first);
    const double b2 = bound(second);
    const bool first_lower = b1 <= b2;
    pending_group[top] = first_lower ? second : first;
    pending_bound[top] = first_lower ? b2 : b1;
    pending_group[top + 1] = first_lower ? first : second;
    pending_bound[top + 1] = first_lower ? b1 : b2;
    top += 2;
  }
  hint = holder;
  return lowest;
}

}  // namespace

// Only the interval between two thresholds that holds the minimum matters,
// so the search asks whether any atom reaches the next threshold below the
// lowest projection found so far; a leaf whose bound stays above it is
// skipped, which prunes more than the search for the exact minimum can.
// With that target the leaves worth a scan are few: the bound of a block
// (a group of up to 64 leaves) rules out most blocks at once, and within the
// others a pass over the bounds of all their leaves (a loop the compiler
// vectorises) finds them faster than a walk down the tree.
int leading_contacts(const AtomTree& t, const double x_axis[4], const float* pot, int positions,
                     ContactHint& hint) {
  const auto contact_of = [](float v) { return [v](float p) { return v <= p; }; };
  // The count for a lowest projection v: the first k with !(v <= pot[k]),
  // searched outwards from `guess` in doubling steps, then by bisection
  // (neighbouring orientations have near counts).
  const auto count_from = [&](float v, int guess) {
    // The contacts (v <= pot[k]) are a leading run; its length A is found
    // in [lo, hi].
    const auto contact = [&](int k) { return v <= pot[k]; };
    const int g = std::clamp(guess, 0, positions);
    int lo = 0;
    int hi = positions;
    if (g < positions && contact(g)) {
      lo = g + 1;
      for (int step = 1;; step *= 2) {
        const int probe = g + step;
        if (probe >= positions) break;
        if (!contact(probe)) {
          hi = probe;
          break;
        }
        lo = probe + 1;
      }
    } else {
      hi = g;
      for (int step = 1;; step *= 2) {
        const int probe = g - step;
        if (probe < 0) break;
        if (contact(probe)) {
          lo = probe + 1;
          break;
        }
        hi = probe;
      }
    }
    return static_cast<int>(std::partition_point(pot + lo, pot + hi, contact_of(v)) - pot);
  };
  if (!t.ox.empty() || t.nodes() == 0) {
    const float lowest = lowest_projection_with(t, x_axis, hint.leaf);
    return hint.contacts = count_from(lowest, hint.contacts);
  }
  const double d1 = x_axis[1];
  const double d2 = x_axis[2];
  const double d3 = x_axis[3];
  const float none = std::numeric_limits<float>::infinity();
  int holder = -1;
  float lowest = std::numeric_limits<float>::infinity();
  if (hint.leaf >= 0 && hint.leaf < t.nodes() && is_leaf(t, hint.leaf)) {
    lowest = leaf_lowest(t, hint.leaf, d1, d2, d3, none);
    holder = hint.leaf;
  }
  int contacts = count_from(lowest, hint.contacts);
  // Atoms reaching `target` touch at one more position.
  double target = contacts < positions ? pot[contacts] : 0.0;
  // Every projection of a leaf is at least its centre's projection less
  // |axis| * reach (Cauchy-Schwarz) less the single-precision rounding.
  const double norm = std::sqrt(d1 * d1 + d2 * d2 + d3 * d3) * (1.0 + kWiden);
  // Block by block: the block's bound, then the bounds of its leaves at
  // once, a mask of the leaves that may reach the target, then those leaves
  // alone. The target only falls, so a block or leaf left out stays out.
  constexpr int kBlock = AtomTree::kMaxBlockLeaves;
  static_assert(kBlock <= 64, "one bit per leaf of a block");
  alignas(16) double bound[kBlock];
  const int blocks = static_cast<int>(t.block_node.size());
  for (int b = 0; b < blocks && contacts < positions; ++b) {
    const int group = t.block_node[static_cast<std::size_t>(b)];
    const double group_bound = (d1 * t.cx[group] + d2 * t.cy[group] + d3 * t.cz[group]) -
                               (norm * t.reach[group] + t.error[group]);
    if (!(group_bound <= target)) continue;
    const int l0 = t.block_leaf[static_cast<std::size_t>(b)];
    const int count = t.block_leaf[static_cast<std::size_t>(b) + 1] - l0;
    const double* cx = t.leaf_cx.data() + l0;
    const double* cy = t.leaf_cy.data() + l0;
    const double* cz = t.leaf_cz.data() + l0;
    const double* reach = t.leaf_reach.data() + l0;
    const double* error = t.leaf_error.data() + l0;
    std::uint64_t candidates = 0;
#if defined(__SSE2__)
    // The leaf arrays hold an entry beyond the last leaf (see build_atom_tree).
    const __m128d vd1 = _mm_set1_pd(d1), vd2 = _mm_set1_pd(d2), vd3 = _mm_set1_pd(d3);
    const __m128d vnorm = _mm_set1_pd(norm), vtarget = _mm_set1_pd(target);
    for (int j = 0; j < count; j += 2) {
      const __m128d centre = _mm_add_pd(
          _mm_add_pd(_mm_mul_pd(vd1, _mm_loadu_pd(cx + j)), _mm_mul_pd(vd2, _mm_loadu_pd(cy + j))),
          _mm_mul_pd(vd3, _mm_loadu_pd(cz + j)));
      const __m128d b = _mm_sub_pd(
          centre, _mm_add_pd(_mm_mul_pd(vnorm, _mm_loadu_pd(reach + j)), _mm_loadu_pd(error + j)));
      _mm_store_pd(bound + j, b);
      candidates |= static_cast<std::uint64_t>(_mm_movemask_pd(_mm_cmple_pd(b, vtarget))) << j;
    }
    if (count < kBlock) candidates &= (std::uint64_t{1} << count) - 1;
#else
    for (int j = 0; j < count; ++j) {
      bound[j] = (d1 * cx[j] + d2 * cy[j] + d3 * cz[j]) - (norm * reach[j] + error[j]);
      candidates |= static_cast<std::uint64_t>(bound[j] <= target) << j;
    }
#endif
    while (candidates != 0) {
      const int j = __builtin_ctzll(candidates);
      candidates &= candidates - 1;
      if (!(bound[j] <= target)) continue;
      const int n = t.leaf[static_cast<std::size_t>(l0) + static_cast<std::size_t>(j)];
      if (n == holder) continue;
      const float low = leaf_lowest(t, n, d1, d2, d3, none);
      if (low <= target) {
        lowest = low;
        holder = n;
        // The minimum fell: the count grows from where it stood.
        while (contacts < positions && lowest <= pot[contacts]) ++contacts;
        if (contacts == positions) break;
        target = pot[contacts];
      }
    }
  }
  hint.leaf = holder;
  hint.contacts = contacts;
  return contacts;
}

namespace {

// Grid of the cylinder pass with what the bounded test needs.
struct CylinderGrid {
  int positions = 0;
  double radius2 = 0.0;
  double limit = 0.0;  // squared_distance_limit(radius2)
  std::vector<double> gx, gy;
  bool bounded = false;  // grid non-decreasing in x, constant y, moderate; radius finite >= 0
};

CylinderGrid cylinder_grid(double radius2, int no_pt_ph, const Grid& grid_ph) {
  CylinderGrid g;
  g.positions = std::max(no_pt_ph + 1, 0);
  g.radius2 = radius2;
  g.gx.resize(static_cast<std::size_t>(g.positions));
  g.gy.resize(static_cast<std::size_t>(g.positions));
  bool regular = std::isfinite(radius2) && radius2 >= 0.0;
  for (int k = 0; k < g.positions; ++k) {
    g.gx[k] = grid_ph[k][1];
    g.gy[k] = grid_ph[k][2];
    regular = regular && std::fabs(g.gx[k]) <= kModerateGrid &&
              std::fabs(g.gy[k]) <= kModerateGrid && g.gy[k] == g.gy[0] &&
              (k == 0 || g.gx[k] >= g.gx[k - 1]);
  }
  g.bounded = regular;
  g.limit = regular ? squared_distance_limit(radius2) : 0.0;
  return g;
}

// Contact rows of the cylinder for one orientation, by the bounded test.
class CylinderRows {
 public:
  CylinderRows(const AtomTree& atoms, const CylinderGrid& grid, Workspace& w)
      : t_(atoms), g_(grid), w_(w) {}

  void row(const OrientationTables& tables, int m, unsigned char* allowed) {
    double x_axis[4] = {};
    double y_axis[4] = {};
    frame_axes_of(tables, m, x_axis, y_axis, w_.trig);
    d_[0] = x_axis[1];
    d_[1] = x_axis[2];
    d_[2] = x_axis[3];
    e_[0] = y_axis[1];
    e_[1] = y_axis[2];
    e_[2] = y_axis[3];
    w_.current += 1;
    prepare();

    std::memset(allowed, 1, static_cast<std::size_t>(g_.positions));
    int k = 0;
    while (k < g_.positions) {
      float wx = 0.0f;
      float wy = 0.0f;
      if (find_contact(k, wx, wy)) {
        const int after = last_contact(wx, wy, k) + 1;
        std::memset(allowed + k, 0, static_cast<std::size_t>(after - k));
        k = after;
      } else {
        if (free_beyond(k)) break;
        k += 1;
      }
    }
  }

 private:
  // The direct test of one atom at position k.
  bool touches(float X, float Y, int k) const {
    const double dx = X + g_.gx[k];
    const double dy = Y + g_.gy[k];
    return dx * dx + dy * dy <= g_.limit;
  }

  void prepare() {
    for (std::size_t i = 0; i < t_.ox.size(); ++i) {
      const float X = project(d_[0], d_[1], d_[2], t_.ox[i], t_.oy[i], t_.oz[i]);
      const float Y = project(e_[0], e_[1], e_[2], t_.ox[i], t_.oy[i], t_.oz[i]);
      w_.oX[i] = X;
      w_.oY[i] = Y;
      // An infinite or undefined projection gives an infinite or undefined
      // distance at every (finite) grid point: never a contact.
      w_.olive[i] = std::isfinite(X) && std::isfinite(Y) ? 1 : 0;
    }
    // The two rows of the frame form a map of norm at most `norm_` (bounded
    // through its Gram matrix).
    const double dd = d_[0] * d_[0] + d_[1] * d_[1] + d_[2] * d_[2];
    const double ee = e_[0] * e_[0] + e_[1] * e_[1] + e_[2] * e_[2];
    const double de = d_[0] * e_[0] + d_[1] * e_[1] + d_[2] * e_[2];
    norm_ = std::sqrt(std::max(dd, ee) + std::fabs(de)) * (1.0 + kWiden);
    // A contact needs a true distance of at most radius2 plus rounding.
    reach_limit_ = g_.radius2 * (1.0 + kWiden) + kWiden;
  }

  // Centre projections of group n for this orientation: the projections
  // (X, Y) of its atoms lie within rho of (pc, qc), and one of them can
  // touch at a grid point only if the centre, moved there, lies within
  // sqrt(limit) of the axis.
  void group(int n) {
    if (w_.stamp[n] == w_.current) return;
    w_.stamp[n] = w_.current;
    const double cx = t_.cx[n];
    const double cy = t_.cy[n];
    const double cz = t_.cz[n];
    w_.pc[n] = d_[0] * cx + d_[1] * cy + d_[2] * cz;
    w_.qc[n] = e_[0] * cx + e_[1] * cy + e_[2] * cz;
    w_.rho[n] = norm_ * t_.reach[n] + 2.0 * t_.error[n];
    const double l = reach_limit_ + w_.rho[n];
    w_.limit[n] = l * l * (1.0 + kWiden);
  }

  void project_leaf(int n) {
    if (w_.projected[n] == w_.current) return;
    w_.projected[n] = w_.current;
    const double d1 = d_[0], d2 = d_[1], d3 = d_[2];
    const double e1 = e_[0], e2 = e_[1], e3 = e_[2];
    const double* x = t_.x.data();
    const double* y = t_.y.data();
    const double* z = t_.z.data();
    float* X = w_.X.data();
    float* Y = w_.Y.data();
    for (int i = t_.begin[n]; i < t_.end[n]; ++i) {
      X[i] = project(d1, d2, d3, x[i], y[i], z[i]);
      Y[i] = project(e1, e2, e3, x[i], y[i], z[i]);
    }
  }

  // An atom of leaf n that touches at position k, if any: the one that
  // reaches furthest along the grid by the plain geometry (a choice that
  // only saves work; the tests that follow are exact).
  bool leaf_contact(int n, int k, float& wx, float& wy) {
    project_leaf(n);
    const float* X = w_.X.data();
    const float* Y = w_.Y.data();
    const double g = g_.gx[k];
    const double gy = g_.gy[k];
    const double limit = g_.limit;
    const int b = t_.begin[n];
    const int count = t_.end[n] - b;
    // Squared distances first, a loop the compiler vectorises; they are the
    // direct formula's own values.
    double s[kLeafSize];
    for (int j = 0; j < count; ++j) {
      const double dx = X[b + j] + g;
      const double dy = Y[b + j] + gy;
      s[j] = dx * dx + dy * dy;
    }
    bool hit = false;
    for (int j = 0; j < count; ++j) {
      hit = hit || s[j] <= limit;
    }
    if (!hit) return false;
    const double r2 = g_.radius2 * g_.radius2;
    bool found = false;
    double best = 0.0;
    for (int j = 0; j < count; ++j) {
      if (!(s[j] <= limit)) continue;
      const double dy = Y[b + j] + gy;
      const double ahead = -static_cast<double>(X[b + j]) + std::sqrt(std::max(0.0, r2 - dy * dy));
      if (!found || ahead > best) {
        found = true;
        best = ahead;
        wx = X[b + j];
        wy = Y[b + j];
      }
    }
    return true;
  }

  bool find_contact(int k, float& wx, float& wy) {
    for (std::size_t i = 0; i < w_.oX.size(); ++i) {
      if (w_.olive[i] != 0 && touches(w_.oX[i], w_.oY[i], k)) {
        wx = w_.oX[i];
        wy = w_.oY[i];
        return true;
      }
    }
    if (t_.nodes() == 0) return false;
    const double g = g_.gx[k];
    const double gy = g_.gy[k];
    int stack[kMaxDepth];
    int top = 0;
    stack[top++] = 0;
    // Depth first, the group nearer the axis side first: its atoms are the
    // likeliest to touch, and to stay in contact longest.
    while (top > 0) {
      const int n = stack[--top];
      group(n);
      const double px = w_.pc[n] + g;
      const double py = w_.qc[n] + gy;
      if (px * px + py * py > w_.limit[n]) continue;
      if (is_leaf(t_, n)) {
        if (leaf_contact(n, k, wx, wy)) return true;
        continue;
      }
      const int first = n + 1;
      const int second = t_.second[n];
      group(first);
      group(second);
      const bool first_nearer = w_.pc[first] - w_.rho[first] <= w_.pc[second] - w_.rho[second];
      stack[top++] = first_nearer ? second : first;
      stack[top++] = first_nearer ? first : second;
    }
    return false;
  }

  // The atom (wx, wy) touches at k; its contact positions are one run, so
  // touching at k and at j means touching everywhere between. Returns the
  // last position of the run, found by doubling steps and bisection.
  int last_contact(float wx, float wy, int k) const {
    int lo = k;
    int hi = g_.positions;
    int step = 1;
    while (true) {
      const int j = lo + step;
      if (j >= g_.positions) break;
      if (touches(wx, wy, j)) {
        lo = j;
        step *= 2;
      } else {
        hi = j;
        break;
      }
    }
    while (hi - lo > 1) {
      const int mid = lo + (hi - lo) / 2;
      if (touches(wx, wy, mid)) {
        lo = mid;
      } else {
        hi = mid;
      }
    }
    return lo;
  }

  // Position k is free. When every atom's x distance from the axis,
  // fl(X + g), is non-negative there, it only grows along the grid while y
  // stays, so no later position can touch either.
  bool free_beyond(int k) {
    const double g = g_.gx[k];
    for (std::size_t i = 0; i < w_.oX.size(); ++i) {
      if (w_.olive[i] != 0 && !(w_.oX[i] + g >= 0.0)) return false;
    }
    if (t_.nodes() == 0) return true;
    int stack[kMaxDepth];
    int top = 0;
    stack[top++] = 0;
    while (top > 0) {
      const int n = stack[--top];
      group(n);
      const double pc = w_.pc[n];
      const double rho = w_.rho[n];
      // Every X of the group is at least pc - rho; the margin covers the
      // rounding of this test.
      if ((pc + g) - rho >= kWiden * (std::fabs(pc) + std::fabs(g) + rho)) continue;
      if (is_leaf(t_, n)) {
        project_leaf(n);
        for (int i = t_.begin[n]; i < t_.end[n]; ++i) {
          if (w_.X[i] + g < 0.0) return false;
        }
        continue;
      }
      stack[top++] = t_.second[n];
      stack[top++] = n + 1;
    }
    return true;
  }

  const AtomTree& t_;
  const CylinderGrid& g_;
  Workspace& w_;
  double d_[3] = {};
  double e_[3] = {};
  double norm_ = 0.0;
  double reach_limit_ = 0.0;
};

// Per-position sums, one array per element.
struct ColumnSums {
  std::vector<double> e[5];
  std::vector<int> total;
};

// Adds v to sum[k] for k = b..e-1; a loop the compiler vectorises.
void add_range(double* __restrict sum, double v, int b, int e) {
  for (int k = b; k < e; ++k) {
    sum[k] += v;
  }
}

void count_range(int* __restrict total, int b, int e) {
  for (int k = b; k < e; ++k) {
    total[k] += 1;
  }
}

// Adds v to sum[k] where row[k] is set, k = b..e-1. The unset entries keep
// their value exactly (the selection is made after the addition).
void add_masked(double* __restrict sum, double v, const unsigned char* __restrict row, int b,
                int e) {
  for (int k = b; k < e; ++k) {
    const double added = sum[k] + v;
    sum[k] = row[k] != 0 ? added : sum[k];
  }
}

void count_masked(int* __restrict total, const unsigned char* __restrict row, int b, int e) {
  for (int k = b; k < e; ++k) {
    total[k] += row[k] != 0 ? 1 : 0;
  }
}

// Sums the rows of orientations m0 .. m0+count-1 into positions lo..hi-1,
// orientation by orientation.
void add_rows(const OrientationTables& tables, int m0, int count, const unsigned char* rows,
              const RowRun* runs, int positions, int lo, int hi, ColumnSums& sums) {
  double* column[5] = {sums.e[0].data(), sums.e[1].data(), sums.e[2].data(), sums.e[3].data(),
                       sums.e[4].data()};
  int* total = sums.total.data();
  for (int r = 0; r < count; ++r) {
    const int m = m0 + r;
    const double v[5] = {tables.szz_orient[m], tables.sxx_yy_orient[m], tables.sxy_orient[m],
                         tables.sxz_orient[m], tables.syz_orient[m]};
    const RowRun run = runs[r];
    if (run.end >= 0) {
      const int b = std::max(run.begin, lo);
      const int e = std::min(run.end, hi);
      for (int c = 0; c < 5; ++c) add_range(column[c], v[c], b, e);
      count_range(total, b, e);
    } else {
      const unsigned char* row = rows + static_cast<std::size_t>(r) * positions;
      for (int c = 0; c < 5; ++c) add_masked(column[c], v[c], row, lo, hi);
      count_masked(total, row, lo, hi);
    }
  }
}

// One pass over all orientations: row(workspace, m, allowed) decides the
// allowed positions 0..last of orientation m and returns them as one run, or
// fills the flags `allowed` and returns a run with end < 0.
template <class RowFn>
PassSums run_pass(int last, int o_pts, const OrientationTables& tables, int threads,
                  std::vector<Workspace>& work, const RowFn& row) {
  const int positions = std::max(last + 1, 0);
  ColumnSums columns;
  for (std::vector<double>& column : columns.e) {
    column.assign(static_cast<std::size_t>(positions), 0.0);
  }
  columns.total.assign(static_cast<std::size_t>(positions), 0);

  if (positions > 0 && o_pts > 0) {
    const int block = static_cast<int>(std::clamp<std::size_t>(
        kBlockBytes / static_cast<std::size_t>(positions), 1, static_cast<std::size_t>(o_pts)));
    // Left uninitialised: a row is written before it is read, and rows
    // that are single runs are never written (nor their pages touched).
    const std::unique_ptr<unsigned char[]> rows(
        new unsigned char[static_cast<std::size_t>(block) * positions]);
    std::vector<RowRun> runs(static_cast<std::size_t>(block));
    // Every range reads the block's orientations once more, so ranges cost;
    // one per worker would leave the others waiting on a slow one. Two per
    // worker measured best (2 threads: 1.57x wall, 1.82x cylinder).
    const int lines = (positions + kPositionAlign - 1) / kPositionAlign;
    const int ranges = threads == 1 ? 1 : std::min(lines, 2 * threads);
    const int span = (lines + ranges - 1) / ranges * kPositionAlign;
    for (int m0 = 1; m0 <= o_pts; m0 += block) {
      const int count = std::min(block, o_pts - m0 + 1);
      std::atomic<int> next{0};
      const int parts = std::max(1, std::min(threads, (count + kChunk - 1) / kChunk));
      parallel_parts(parts, [&](int part) {
        Workspace& w = work[static_cast<std::size_t>(part)];
        while (true) {
          const int r0 = next.fetch_add(kChunk, std::memory_order_relaxed);
          if (r0 >= count) break;
          const int r1 = std::min(r0 + kChunk, count);
          for (int r = r0; r < r1; ++r) {
            unsigned char* allowed = rows.get() + static_cast<std::size_t>(r) * positions;
            runs[static_cast<std::size_t>(r)] = row(w, m0 + r, allowed);
          }
        }
      });
      // Each position is summed by one worker, in orientation order; the
      // ranges of positions are handed out as workers come free.
      std::atomic<int> next_range{0};
      parallel_parts(std::min(threads, ranges), [&](int) {
        while (true) {
          const int range = next_range.fetch_add(1, std::memory_order_relaxed);
          if (range >= ranges) break;
          const int lo = std::min(range * span, positions);
          const int hi = std::min(lo + span, positions);
          add_rows(tables, m0, count, rows.get(), runs.data(), positions, lo, hi, columns);
        }
      });
    }
  }

  PassSums sums;
  sums.saupe_dis.resize(static_cast<std::size_t>(positions));
  sums.total = columns.total;
  for (int k = 0; k < positions; ++k) {
    for (int e = 0; e < 5; ++e) {
      sums.saupe_dis[k][e] = columns.e[e][k];
    }
  }
  return sums;
}

int worker_count(int threads) { return std::clamp(threads, 1, kMaxThreads); }

PassSums wall_pass_on(const AtomTree& atoms, double radius, double max_obstruction, int t_pts,
                      int o_pts, const Grid& grid, const OrientationTables& tables,
                      std::vector<float>& pot_dist, int threads) {
  wall_thresholds(radius, max_obstruction, t_pts, grid, pot_dist);
  threads = worker_count(threads);
  std::vector<Workspace> work(static_cast<std::size_t>(threads));
  const float* pot = pot_dist.data();
  const int positions = std::max(t_pts + 1, 0);
  // The thresholds fall along a grid of rising distances; checked on the
  // single-precision values themselves (no not-a-number, none above its
  // predecessor), else each position is compared on its own.
  bool descending = true;
  for (int k = 0; k < positions; ++k) {
    descending = descending && !std::isnan(pot[k]) && (k == 0 || pot[k] <= pot[k - 1]);
  }
  return run_pass(
      t_pts, o_pts, tables, threads, work, [&](Workspace& w, int m, unsigned char* allowed) {
        double x_axis[4] = {};
        double y_axis[4] = {};
        frame_axes_of(tables, m, x_axis, y_axis, w.trig);
        // Some atom is at or below pot_dist[k] exactly when the
        // lowest one is.
        if (descending) {
          // Contact holds on a leading part of the grid and
          // the allowed positions are the rest.
          return RowRun{leading_contacts(atoms, x_axis, pot, positions, w.contact_hint), positions};
        }
        const float lowest = lowest_projection_with(atoms, x_axis, w.hint);
        for (int k = 0; k < positions; ++k) {
          allowed[k] = lowest <= pot[k] ? 0 : 1;
        }
        return single_run(allowed, positions);
      });
}

// Sizes a workspace for the cylinder's contact rows of these atoms.
void size_cylinder_workspace(Workspace& w, const AtomTree& atoms, const CylinderGrid& geometry,
                             int no_atoms) {
  const std::size_t nodes = static_cast<std::size_t>(atoms.nodes());
  if (geometry.bounded) {
    w.X.resize(atoms.x.size());
    w.Y.resize(atoms.x.size());
    w.stamp.assign(nodes, 0);
    w.projected.assign(nodes, 0);
    w.pc.resize(nodes);
    w.qc.resize(nodes);
    w.rho.resize(nodes);
    w.limit.resize(nodes);
    w.oX.resize(atoms.ox.size());
    w.oY.resize(atoms.ox.size());
    w.olive.resize(atoms.ox.size());
  } else {
    w.x_temp.resize(static_cast<std::size_t>(std::max(no_atoms, 0)) + 1);
    w.y_temp.resize(static_cast<std::size_t>(std::max(no_atoms, 0)) + 1);
    w.allowed.resize(static_cast<std::size_t>(std::max(geometry.positions, 0)));
  }
}

PassSums cylinder_pass_on(const AtomTree& atoms, double radius2, int no_atoms,
                          const std::vector<double>& x, const std::vector<double>& y,
                          const std::vector<double>& z, int no_pt_ph, int o_pts,
                          const Grid& grid_ph, const OrientationTables& tables, int threads) {
  threads = worker_count(threads);
  const CylinderGrid geometry = cylinder_grid(radius2, no_pt_ph, grid_ph);
  std::vector<Workspace> work(static_cast<std::size_t>(threads));
  for (Workspace& w : work) size_cylinder_workspace(w, atoms, geometry, no_atoms);
  return run_pass(
      no_pt_ph, o_pts, tables, threads, work, [&](Workspace& w, int m, unsigned char* allowed) {
        if (geometry.bounded) {
          CylinderRows(atoms, geometry, w).row(tables, m, allowed);
          return single_run(allowed, geometry.positions);
        }
        // A grid or radius outside the bounded test's reach: the
        // direct test, orientation by orientation.
        project_atoms(tables.eulerangle[m], no_atoms, x, y, z, w.x_temp, &w.y_temp, nullptr);
        cylinder_allowed(no_atoms, w.x_temp, w.y_temp, no_pt_ph, grid_ph, radius2, w.allowed);
        std::memcpy(allowed, w.allowed.data(), w.allowed.size());
        return single_run(allowed, geometry.positions);
      });
}

// The fast passes allocate their own working storage; running out of
// memory there is reported like the working projections it replaces.
template <class Fn>
PassSums with_allocation_check(const Fn& fn) {
  try {
    return fn();
  } catch (const std::bad_alloc&) {
    nrerror("allocation failure for x_temp");
  } catch (const std::length_error&) {
    nrerror("allocation failure for x_temp");
  }
}

}  // namespace

int parse_thread_count(const char* text, int fallback) {
  if (text == nullptr) return fallback;
  errno = 0;
  char* end = nullptr;
  const long value = std::strtol(text, &end, 10);
  if (end == text || errno == ERANGE) return fallback;
  while (*end == ' ' || *end == '\t' || *end == '\n') ++end;
  if (*end != '\0' || value < 1 || value > kMaxThreads) return fallback;
  return static_cast<int>(value);
}

int default_thread_count() {
  const unsigned cores = std::thread::hardware_concurrency();
  return cores == 0 ? 1 : static_cast<int>(std::min<unsigned>(cores, kMaxThreads));
}

int simulation_threads() {
  return parse_thread_count(std::getenv("VORN_THREADS"), default_thread_count());
}

int useful_threads(int o_pts, int threads) {
  return std::clamp(std::min(threads, o_pts / kOrientationsPerThread), 1, kMaxThreads);
}

bool direct_simulation_requested() {
  const char* mode = std::getenv("VORN_SIMULATION");
  return mode != nullptr && std::strcmp(mode, "direct") == 0;
}

double squared_distance_limit(double radius2) {
  double t = radius2 * radius2;
  if (std::isinf(t)) t = DBL_MAX;
  // sqrt(fl(r*r)) is within an ulp or two of r: a few steps at most.
  while (!(std::sqrt(t) <= radius2)) {
    t = std::nextafter(t, 0.0);
  }
  while (true) {
    const double up = std::nextafter(t, std::numeric_limits<double>::infinity());
    if (std::isinf(up) || !(std::sqrt(up) <= radius2)) break;
    t = up;
  }
  return t;
}

void atom_frame_axes(const EulerAngle& angle, double x_axis[4], double y_axis[4]) {
  TrigMemo memo;
  atom_frame_axes(angle, x_axis, y_axis, memo);
}

void atom_frame_axes(const EulerAngle& angle, double x_axis[4], double y_axis[4], TrigMemo& memo) {
  const double theta = angle[1] * kPi / 180;
  const double phi = angle[2] * kPi / 180;
  const double psi = angle[3] * kPi / 180;
  // rotate_coorsystem(-theta, -psi, -phi) turns the three unit vectors by
  // one matrix; the z axis is not needed.
  double Dreh_M[4][4] = {};
  rotation_matrix(-theta, -psi, -phi, Dreh_M, memo);
  const double x_axis_xray[4] = {0.0, 1.0, 0.0, 0.0};
  const double y_axis_xray[4] = {0.0, 0.0, 1.0, 0.0};
  apply_rotation(Dreh_M, x_axis_xray, x_axis);
  apply_rotation(Dreh_M, y_axis_xray, y_axis);
}

void fill_frame_axes(OrientationTables& tables, int o_pts) {
  const int count = std::max(o_pts, 0);
  tables.frame_axes.assign(static_cast<std::size_t>(count) + 1, {});
  TrigMemo memo;
  for (int m = 1; m <= count; ++m) {
    double x_axis[4] = {};
    double y_axis[4] = {};
    atom_frame_axes(tables.eulerangle[static_cast<std::size_t>(m)], x_axis, y_axis, memo);
    tables.frame_axes[static_cast<std::size_t>(m)] = {x_axis[1], x_axis[2], x_axis[3],
                                                      y_axis[1], y_axis[2], y_axis[3]};
  }
}

void frame_axes_of(const OrientationTables& tables, int m, double x_axis[4], double y_axis[4],
                   TrigMemo& memo) {
  if (m >= 1 && static_cast<std::size_t>(m) < tables.frame_axes.size()) {
    const std::array<double, 6>& a = tables.frame_axes[static_cast<std::size_t>(m)];
    std::copy(a.begin(), a.begin() + 3, x_axis + 1);
    std::copy(a.begin() + 3, a.end(), y_axis + 1);
    return;
  }
  atom_frame_axes(tables.eulerangle[static_cast<std::size_t>(m)], x_axis, y_axis, memo);
}

AtomTree build_atom_tree(int no_atoms, const std::vector<double>& x, const std::vector<double>& y,
                         const std::vector<double>& z) {
  AtomTree t;
  std::vector<int> idx;
  idx.reserve(static_cast<std::size_t>(std::max(no_atoms, 0)));
  for (int i = 1; i <= no_atoms; ++i) {
    if (moderate(x[i]) && moderate(y[i]) && moderate(z[i])) {
      idx.push_back(i);
    } else {
      t.ox.push_back(x[i]);
      t.oy.push_back(y[i]);
      t.oz.push_back(z[i]);
    }
  }
  if (idx.empty()) return t;
  // A group per leaf and one above every two: fewer than twice the leaves.
  const std::size_t groups = 2 * (idx.size() / kLeafSize + 1);
  for (std::vector<int>* v : {&t.begin, &t.end, &t.second}) v->reserve(groups);
  for (std::vector<double>* v : {&t.cx, &t.cy, &t.cz, &t.reach, &t.error}) v->reserve(groups);
  build_group(idx, 0, static_cast<int>(idx.size()), x, y, z, t);
  const int leaves = add_blocks(t, 0, 0);
  t.block_leaf.push_back(leaves);
  for (std::vector<double>* v :
       {&t.leaf_cx, &t.leaf_cy, &t.leaf_cz, &t.leaf_reach, &t.leaf_error}) {
    v->push_back(0.0);
  }
  t.x.reserve(idx.size());
  t.y.reserve(idx.size());
  t.z.reserve(idx.size());
  for (const int i : idx) {
    t.x.push_back(x[i]);
    t.y.push_back(y[i]);
    t.z.push_back(z[i]);
  }
  return t;
}

float lowest_projection(const AtomTree& atoms, const double x_axis[4]) {
  int hint = -1;
  return lowest_projection_with(atoms, x_axis, hint);
}

PassSums wall_pass_fast(double radius, double max_obstruction, int no_atoms,
                        const std::vector<double>& x, const std::vector<double>& y,
                        const std::vector<double>& z, int t_pts, int o_pts, const Grid& grid,
                        const OrientationTables& tables, std::vector<float>& pot_dist,
                        int threads) {
  return with_allocation_check([&] {
    const AtomTree atoms = build_atom_tree(no_atoms, x, y, z);
    return wall_pass_on(atoms, radius, max_obstruction, t_pts, o_pts, grid, tables, pot_dist,
                        threads);
  });
}

PassSums cylinder_pass_fast(double radius2, int no_atoms, const std::vector<double>& x,
                            const std::vector<double>& y, const std::vector<double>& z,
                            int no_pt_ph, int o_pts, const Grid& grid_ph,
                            const OrientationTables& tables, int threads) {
  return with_allocation_check([&] {
    const AtomTree atoms = build_atom_tree(no_atoms, x, y, z);
    return cylinder_pass_on(atoms, radius2, no_atoms, x, y, z, no_pt_ph, o_pts, grid_ph, tables,
                            threads);
  });
}

void simulate_alignment3_fast(const Settings& settings, double max_obstruction, int no_atoms,
                              int no_add_orient, int no_add_ph_orient, const std::vector<double>& x,
                              const std::vector<double>& y, const std::vector<double>& z, int t_pts,
                              int no_pt_ph, int o_pts, const Grid& grid, const Grid& grid_ph,
                              const OrientationTables& tables, const double saupe_dev[5],
                              double /*saupe*/[5], double saupe_weight[5], int threads) {
  // Built once, after the input checks, for whichever passes run.
  std::optional<AtomTree> atoms;
  auto tree = [&]() -> const AtomTree& {
    if (!atoms) atoms = build_atom_tree(no_atoms, x, y, z);
    return *atoms;
  };
  simulate_with_passes(
      settings, max_obstruction, no_atoms, no_add_orient, no_add_ph_orient, x, y, z, t_pts,
      no_pt_ph, o_pts, grid, grid_ph, tables, saupe_dev, saupe_weight,
      [&](double radius, double obstruction, std::vector<float>& /*x_temp*/,
          std::vector<float>& pot_dist) {
        return with_allocation_check([&] {
          return wall_pass_on(tree(), radius, obstruction, t_pts, o_pts, grid, tables, pot_dist,
                              threads);
        });
      },
      [&](double radius2, std::vector<float>& /*x_temp*/, std::vector<float>& /*y_temp*/,
          std::vector<float>& /*z_temp*/) {
        return with_allocation_check([&] {
          return cylinder_pass_on(tree(), radius2, no_atoms, x, y, z, no_pt_ph, o_pts, grid_ph,
                                  tables, threads);
        });
      });
}

struct ContactRows::Scratch {
  Workspace w;
};

struct ContactRows::Impl {
  const AtomTree* atoms = nullptr;
  bool cylinder = false;
  int positions = 0;
  // Wall
  std::vector<float> pot_dist;
  bool descending = true;
  // Cylinder
  CylinderGrid geometry;
  int no_atoms = 0;
  int no_pt_ph = 0;
  const std::vector<double>* x = nullptr;
  const std::vector<double>* y = nullptr;
  const std::vector<double>* z = nullptr;
  const Grid* grid_ph = nullptr;
};

ContactRows::ContactRows(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
ContactRows::ContactRows(ContactRows&&) noexcept = default;
ContactRows& ContactRows::operator=(ContactRows&&) noexcept = default;
ContactRows::~ContactRows() = default;

ContactRows ContactRows::wall(const AtomTree& atoms, double radius, double max_obstruction,
                              int t_pts, const Grid& grid) {
  auto impl = std::make_unique<Impl>();
  impl->atoms = &atoms;
  impl->positions = std::max(t_pts + 1, 0);
  impl->pot_dist.resize(static_cast<std::size_t>(impl->positions));
  wall_thresholds(radius, max_obstruction, t_pts, grid, impl->pot_dist);
  const float* pot = impl->pot_dist.data();
  for (int k = 0; k < impl->positions; ++k) {
    impl->descending = impl->descending && !std::isnan(pot[k]) && (k == 0 || pot[k] <= pot[k - 1]);
  }
  return ContactRows(std::move(impl));
}

ContactRows ContactRows::cylinder(const AtomTree& atoms, double radius2, int no_atoms,
                                  const std::vector<double>& x, const std::vector<double>& y,
                                  const std::vector<double>& z, int no_pt_ph, const Grid& grid_ph) {
  auto impl = std::make_unique<Impl>();
  impl->atoms = &atoms;
  impl->cylinder = true;
  impl->geometry = cylinder_grid(radius2, no_pt_ph, grid_ph);
  impl->positions = impl->geometry.positions;
  impl->no_atoms = no_atoms;
  impl->no_pt_ph = no_pt_ph;
  impl->x = &x;
  impl->y = &y;
  impl->z = &z;
  impl->grid_ph = &grid_ph;
  return ContactRows(std::move(impl));
}

int ContactRows::positions() const { return impl_->positions; }

void ContactRows::ScratchDeleter::operator()(Scratch* scratch) const { delete scratch; }

ContactRows::ScratchPtr ContactRows::scratch() const {
  ScratchPtr s(new Scratch);
  if (impl_->cylinder)
    size_cylinder_workspace(s->w, *impl_->atoms, impl_->geometry, impl_->no_atoms);
  return s;
}

void ContactRows::row(Scratch& scratch, const OrientationTables& tables, int m,
                      unsigned char* allowed) const {
  const Impl& c = *impl_;
  Workspace& w = scratch.w;
  if (c.cylinder) {
    if (c.geometry.bounded) {
      CylinderRows(*c.atoms, c.geometry, w).row(tables, m, allowed);
      return;
    }
    project_atoms(tables.eulerangle[m], c.no_atoms, *c.x, *c.y, *c.z, w.x_temp, &w.y_temp, nullptr);
    cylinder_allowed(c.no_atoms, w.x_temp, w.y_temp, c.no_pt_ph, *c.grid_ph, c.geometry.radius2,
                     w.allowed);
    std::memcpy(allowed, w.allowed.data(), w.allowed.size());
    return;
  }
  double x_axis[4] = {};
  double y_axis[4] = {};
  frame_axes_of(tables, m, x_axis, y_axis, w.trig);
  const float* pot = c.pot_dist.data();
  if (c.descending) {
    const int contacts = leading_contacts(*c.atoms, x_axis, pot, c.positions, w.contact_hint);
    std::memset(allowed, 0, static_cast<std::size_t>(contacts));
    std::memset(allowed + contacts, 1, static_cast<std::size_t>(c.positions - contacts));
    return;
  }
  const float lowest = lowest_projection_with(*c.atoms, x_axis, w.hint);
  for (int k = 0; k < c.positions; ++k) {
    allowed[k] = lowest <= pot[k] ? 0 : 1;
  }
}

}  // namespace vorn::detail
