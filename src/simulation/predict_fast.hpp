// The fast form of the steric simulation. It decides exactly the same
// allowed states as the direct form and adds them in the same order, so
// every per-position sum, every count and the result are the same bits; it
// only avoids work that cannot change a decision:
//
// - Atoms are arranged in a tree of nested spatial groups, each with a
//   bounding sphere and a bound on the single-precision rounding of its
//   projections. Per orientation a group whose bound shows that none of its
//   atoms can decide a contact is skipped; the atoms of the others are
//   projected exactly as in the direct form and tested with the direct
//   formula.
// - Wall: an orientation touches the wall at position k exactly when its
//   smallest projection is at or below pot_dist[k], so only that minimum is
//   needed (not-a-number projections never touch and are left out of it).
// - Cylinder: for one atom the positions in contact form one contiguous run
//   of the grid (the rounded distance first falls, then rises along a grid of
//   non-decreasing x at fixed y), so one contact found at a position extends
//   along that atom's run by a few exact tests; once a position is free and
//   every atom lies on the far side of the axis, all further positions are
//   free as well.
// - Orientations are processed in blocks: the contact rows of a block are
//   computed in parallel over orientations, then summed in parallel over
//   positions, each position in orientation order. The thread count does not
//   enter any sum.
#pragma once

#include <memory>
#include <vector>

#include "simulation/predict_direct.hpp"

namespace vorn::detail {

inline constexpr int kMaxThreads = 1024;

// A whole number 1..kMaxThreads in `text` (surrounding blanks allowed);
// anything else (null, empty, zero, negative, trailing characters, out of
// range) gives `fallback`.
int parse_thread_count(const char* text, int fallback);

// The available cores (std::thread::hardware_concurrency), at least 1.
int default_thread_count();

// Threads of the simulation: VORN_THREADS when it holds a valid count, else
// the available cores.
int simulation_threads();

// The workers worth starting for o_pts orientations: at most `threads`, and
// one per kOrientationsPerThread orientations, since starting a thread costs
// more than a small sampling takes.
inline constexpr int kOrientationsPerThread = 4096;
int useful_threads(int o_pts, int threads);

// True when VORN_SIMULATION is "direct": a diagnostic switch that runs the
// direct form, for timing it against the fast one.
bool direct_simulation_requested();

// The largest double s for which std::sqrt(s) <= radius2, for a finite
// non-negative radius2: the direct test sqrt(dx*dx + dy*dy) <= radius2 is
// then exactly dx*dx + dy*dy <= limit (sqrt is correctly rounded, hence
// non-decreasing).
double squared_distance_limit(double radius2);

// Elements 1..3 of the x and y axes of the atom frame of `angle`, the same
// bits as rotate_coorsystem(-theta, -psi, -phi) gives (see project_atoms).
void atom_frame_axes(const EulerAngle& angle, double x_axis[4], double y_axis[4]);
// The same, reusing the trigonometry of angles repeated from the last call.
void atom_frame_axes(const EulerAngle& angle, double x_axis[4], double y_axis[4], TrigMemo& memo);

// Fills tables.frame_axes for orientations 1..o_pts.
void fill_frame_axes(OrientationTables& tables, int o_pts);

// The frame axes of orientation m: from tables.frame_axes when filled, else
// computed (the same bits either way).
void frame_axes_of(const OrientationTables& tables, int m, double x_axis[4], double y_axis[4],
                   TrigMemo& memo);

// Atoms arranged for the contact tests. Atoms with finite coordinates of
// moderate size form a binary tree of nested groups (median splits along the
// longest extent, leaves of a few atoms), each group with a centre, a radius
// that holds all its atoms and a bound on the single-precision rounding of
// their projections. The other atoms (not-a-number, infinite or huge
// coordinates) are kept apart and tested at every orientation.
struct AtomTree {
  std::vector<double> x, y, z;     // tree atoms, each group contiguous
  std::vector<int> begin, end;     // group n holds atoms begin[n] .. end[n]-1
  std::vector<int> second;         // second subgroup of n (the first is n+1); 0 for a leaf
  std::vector<double> cx, cy, cz;  // a centre per group
  std::vector<double> reach;       // at least the distance of any of its atoms from the centre
  std::vector<double> error;       // at least the rounding of any of its projections
  std::vector<double> ox, oy, oz;  // atoms tested without a bound
  // The leaf groups in tree order, with their centres and bounds (these
  // five arrays padded with a zero beyond the last leaf, for pairwise loads
  // from any leaf on).
  std::vector<int> leaf;
  std::vector<double> leaf_cx, leaf_cy, leaf_cz, leaf_reach, leaf_error;
  // The largest groups of at most kMaxBlockLeaves leaves, in tree order:
  // block b is group block_node[b] and holds the leaves block_leaf[b] ..
  // block_leaf[b+1]-1 (one entry more than blocks).
  static constexpr int kMaxBlockLeaves = 64;
  std::vector<int> block_node, block_leaf;
  int nodes() const { return static_cast<int>(cx.size()); }
};

AtomTree build_atom_tree(int no_atoms, const std::vector<double>& x, const std::vector<double>& y,
                         const std::vector<double>& z);

// Smallest single-precision projection onto the x axis of the frame
// (elements 1..3 of x_axis) over all atoms, computed exactly as the direct
// form projects; not-a-number projections are left out, and without any
// other projection the result is not-a-number (it touches no threshold).
float lowest_projection(const AtomTree& atoms, const double x_axis[4]);

// Where the search of leading_contacts starts: a leaf to look at first and
// a count of contacts to search outwards from (those of a neighbouring
// orientation; any values are accepted).
struct ContactHint {
  int leaf = -1;
  int contacts = 0;
};

// The number of leading thresholds of pot[0 .. positions) at or above the
// lowest projection, for thresholds that never rise and hold no
// not-a-number: the same as partition_point(pot, pot + positions,
// [lowest](float p) { return lowest <= p; }) with lowest_projection's
// value. `hint` receives the leaf that held the lowest projection found and
// the count.
int leading_contacts(const AtomTree& atoms, const double x_axis[4], const float* pot, int positions,
                     ContactHint& hint);

// The two passes in their fast form, with `threads` workers (at least 1).
// pot_dist receives the wall thresholds as in the direct form.
PassSums wall_pass_fast(double radius, double max_obstruction, int no_atoms,
                        const std::vector<double>& x, const std::vector<double>& y,
                        const std::vector<double>& z, int t_pts, int o_pts, const Grid& grid,
                        const OrientationTables& tables, std::vector<float>& pot_dist, int threads);
PassSums cylinder_pass_fast(double radius2, int no_atoms, const std::vector<double>& x,
                            const std::vector<double>& y, const std::vector<double>& z,
                            int no_pt_ph, int o_pts, const Grid& grid_ph,
                            const OrientationTables& tables, int threads);

// The allowed positions of single orientations, decided by the same tests
// and with the same bits as the fast passes (so a model that weights the
// allowed states reproduces the steric sums exactly when every weight is 1).
// One Scratch per thread; row() may run concurrently on distinct scratches.
class ContactRows {
 public:
  struct Scratch;
  struct ScratchDeleter {
    void operator()(Scratch* scratch) const;
  };
  using ScratchPtr = std::unique_ptr<Scratch, ScratchDeleter>;
  // Wall at pot_dist thresholds of grid points 0..t_pts.
  static ContactRows wall(const AtomTree& atoms, double radius, double max_obstruction, int t_pts,
                          const Grid& grid);
  // Cylinder of radius radius2 - atom radius about the z axis, grid points
  // 0..no_pt_ph; x, y, z (from index 1) serve irregular grids.
  static ContactRows cylinder(const AtomTree& atoms, double radius2, int no_atoms,
                              const std::vector<double>& x, const std::vector<double>& y,
                              const std::vector<double>& z, int no_pt_ph, const Grid& grid_ph);
  ContactRows(ContactRows&&) noexcept;
  ContactRows& operator=(ContactRows&&) noexcept;
  ~ContactRows();

  int positions() const;
  ScratchPtr scratch() const;
  // allowed[k] = 1 where orientation m is free of contact at position k,
  // k = 0 .. positions()-1, else 0.
  void row(Scratch& scratch, const OrientationTables& tables, int m, unsigned char* allowed) const;

 private:
  struct Impl;
  explicit ContactRows(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

// simulate_alignment3 with the fast contact test and `threads` workers.
void simulate_alignment3_fast(const Settings& settings, double max_obstruction, int no_atoms,
                              int no_add_orient, int no_add_ph_orient, const std::vector<double>& x,
                              const std::vector<double>& y, const std::vector<double>& z, int t_pts,
                              int no_pt_ph, int o_pts, const Grid& grid, const Grid& grid_ph,
                              const OrientationTables& tables, const double saupe_dev[5],
                              double saupe[5], double saupe_weight[5], int threads);

}  // namespace vorn::detail
