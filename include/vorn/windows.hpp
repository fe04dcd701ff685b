// Local alignment windows: for a flexible chain the couplings of residue i
// are predicted from the alignment of the fragment of residues
// i - (N-1)/2 .. i + (N-1)/2 (truncated at the chain's ends), with the
// fragment's own atoms only, instead of from the whole molecule.
//
//   vorn::WindowChain chain{positions, residue_of_atom, residue_count};
//   std::vector<vorn::SaupeElements> s = vorn::predict_windows(context, chain, 15, medium);
//   // s[i]: the Saupe elements of the window centred on residue i
//
// Every window is predicted exactly as predict_saupe predicts its atoms
// (the same bits): a window that covers the whole chain gives the
// whole-chain prediction. The windows share the context (orientations and
// their frame axes, obstacle potentials), the chain's atoms (each window
// is a contiguous slice of them, no copy), and the caller's per-molecule
// work (atom selection, charges); docs/windows.md.
#pragma once

#include <span>
#include <vector>

#include "vorn/charges.hpp"
#include "vorn/predict.hpp"
#include "vorn/structure.hpp"
#include "vorn/tensor.hpp"

namespace vorn {

// The atoms of one chain. `residue[k]` is the 0-based position in the chain
// of the residue of atom k (0 .. residue_count - 1); atoms come grouped by
// residue in chain order, so `residue` never decreases. `charge_residue`
// likewise places each charge (used with a charged medium; the charges need
// not be sorted).
struct WindowChain {
  std::span<const Vec3> positions;
  std::span<const int> residue;
  int residue_count = 0;
  std::span<const PointCharge> charges;
  std::span<const int> charge_residue;
};

// The residues first .. last (inclusive) of the window of `window` residues
// centred on residue i of a chain of `residue_count` residues, truncated at
// the chain's ends.
struct WindowRange {
  int first = 0;
  int last = 0;
};
WindowRange window_range(int i, int window, int residue_count);

// Throws vorn::Error unless window is odd and at least 3.
void check_window(int window);

// The Saupe elements of the window centred on each residue 0 .. residue_count-1
// of `chain`, with `threads` workers over the windows (0: the context's
// count; the result does not depend on it). Throws vorn::Error for a bad
// window, residue indices out of range or decreasing, sizes that do not
// match, a window that holds no atom, and whatever predict_saupe throws.
std::vector<SaupeElements> predict_windows(const PredictionContext& context,
                                           const WindowChain& chain, int window,
                                           const Medium& medium, int threads = 0);

}  // namespace vorn
