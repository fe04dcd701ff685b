#include "vorn/windows.hpp"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <string>

#include "simulation/parallel.hpp"
#include "simulation/predict_fast.hpp"
#include "vorn/error.hpp"

namespace vorn {

WindowRange window_range(int i, int window, int residue_count) {
  const int half = (window - 1) / 2;
  return {std::max(0, i - half), std::min(residue_count - 1, i + half)};
}

void check_window(int window) {
  if (window < 3 || window % 2 == 0) {
    throw Error("predict: a window must be an odd number of residues, at least 3 (got " +
                std::to_string(window) + ")");
  }
}

namespace {

void check_chain(const WindowChain& chain) {
  if (chain.residue_count < 1) throw Error("predict: a window chain needs at least one residue");
  if (chain.residue.size() != chain.positions.size()) {
    throw Error("predict: " + std::to_string(chain.residue.size()) + " residue indices for " +
                std::to_string(chain.positions.size()) + " atoms");
  }
  if (chain.charge_residue.size() != chain.charges.size()) {
    throw Error("predict: " + std::to_string(chain.charge_residue.size()) +
                " residue indices for " + std::to_string(chain.charges.size()) + " charges");
  }
  const auto out_of_range = [&](int r) { return r < 0 || r >= chain.residue_count; };
  for (std::size_t k = 0; k < chain.residue.size(); ++k) {
    if (out_of_range(chain.residue[k])) {
      throw Error("predict: atom " + std::to_string(k) + " has residue index " +
                  std::to_string(chain.residue[k]) + ", outside 0.." +
                  std::to_string(chain.residue_count - 1));
    }
    if (k > 0 && chain.residue[k] < chain.residue[k - 1]) {
      throw Error(
          "predict: the atoms of a window chain must come grouped by residue in chain "
          "order (atom " +
          std::to_string(k) + " goes back to residue index " + std::to_string(chain.residue[k]) +
          ")");
    }
  }
  for (const int r : chain.charge_residue) {
    if (out_of_range(r)) {
      throw Error("predict: a charge has residue index " + std::to_string(r) + ", outside 0.." +
                  std::to_string(chain.residue_count - 1));
    }
  }
}

}  // namespace

std::vector<SaupeElements> predict_windows(const PredictionContext& context,
                                           const WindowChain& chain, int window,
                                           const Medium& medium, int threads) {
  check_window(window);
  check_chain(chain);
  const int residues = chain.residue_count;
  // Atoms of residue r: begin[r] .. begin[r+1]-1 (the atoms are grouped),
  // so each window is one contiguous slice of the chain's atoms.
  std::vector<std::size_t> begin(static_cast<std::size_t>(residues) + 1, 0);
  for (const int r : chain.residue) ++begin[static_cast<std::size_t>(r) + 1];
  for (int r = 0; r < residues; ++r) begin[r + 1] += begin[r];
  for (int i = 0; i < residues; ++i) {
    const WindowRange w = window_range(i, window, residues);
    if (begin[w.first] == begin[w.last + 1]) {
      throw Error("predict: the window of residues " + std::to_string(w.first) + ".." +
                  std::to_string(w.last) + " (0-based) holds no atom");
    }
  }
  // Charges in chain order, for the same slicing.
  std::vector<PointCharge> charges;
  std::vector<std::size_t> charge_begin(static_cast<std::size_t>(residues) + 1, 0);
  if (!chain.charges.empty()) {
    std::vector<std::size_t> order(chain.charges.size());
    for (std::size_t k = 0; k < order.size(); ++k) order[k] = k;
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
      return chain.charge_residue[a] < chain.charge_residue[b];
    });
    charges.reserve(order.size());
    for (const std::size_t k : order) charges.push_back(chain.charges[k]);
    for (const int r : chain.charge_residue) ++charge_begin[static_cast<std::size_t>(r) + 1];
    for (int r = 0; r < residues; ++r) charge_begin[r + 1] += charge_begin[r];
  }

  std::vector<SaupeElements> result(static_cast<std::size_t>(residues));
  const auto predict_one = [&](int i) {
    const WindowRange w = window_range(i, window, residues);
    const std::span<const Vec3> atoms =
        chain.positions.subspan(begin[w.first], begin[w.last + 1] - begin[w.first]);
    const std::span<const PointCharge> own = std::span<const PointCharge>(charges).subspan(
        charge_begin[w.first], charge_begin[w.last + 1] - charge_begin[w.first]);
    result[i] = context.predict_saupe(atoms, own, medium, 1);
  };
  int workers = threads > 0 ? threads : context.threads();
  if (workers <= 0) workers = detail::simulation_threads();
  workers = std::clamp(workers, 1, residues);
  if (workers == 1) {
    for (int i = 0; i < residues; ++i) predict_one(i);
    return result;
  }
  // Windows go to the workers one at a time; each result has its own slot.
  std::atomic<int> next{0};
  std::mutex failure_mutex;
  std::exception_ptr failure;
  detail::parallel_parts(workers, [&](int) {
    for (int i = next++; i < residues; i = next++) {
      try {
        predict_one(i);
      } catch (...) {
        const std::lock_guard<std::mutex> lock(failure_mutex);
        if (!failure) failure = std::current_exception();
        next = residues;
      }
    }
  });
  if (failure) std::rethrow_exception(failure);
  return result;
}

}  // namespace vorn
