// vorn predict --window: the couplings of each residue from the tensor of
// the window of residues around it.
#include <algorithm>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "app/predict_command.hpp"
#include "vorn/error.hpp"
#include "vorn/windows.hpp"

namespace vorn::app {

namespace {

// A residue of a model: its chain, number and insertion code.
using ResidueKey = std::tuple<std::string, int, char>;

ResidueKey residue_key(const std::string& chain, int number, char icode) {
  return {chain, number, icode};
}

// One chain's residues in the order they appear, with its steric atoms and
// charges placed on them.
struct ChainAtoms {
  std::string name;
  std::vector<const Atom*> residues;                // the first atom of each residue
  std::vector<std::pair<int, std::size_t>> steric;  // (residue, atom index)
  std::vector<PointCharge> charges;
  std::vector<int> charge_residue;
};

}  // namespace

std::vector<WindowTensor> predict_model_windows(const std::vector<Atom>& atoms,
                                                std::span<const std::size_t> steric,
                                                const PredictSettings& settings,
                                                const PredictionContext& context, int threads,
                                                int model, const std::string& path) {
  check_window(settings.window);
  std::vector<ChainAtoms> chains;
  std::map<std::string, std::size_t> chain_index;
  std::map<ResidueKey, int> residue_index;
  std::vector<std::pair<std::size_t, int>> place(atoms.size());  // (chain, residue) of each atom
  for (std::size_t i = 0; i < atoms.size(); ++i) {
    const Atom& a = atoms[i];
    auto [c, new_chain] = chain_index.try_emplace(a.chain, chains.size());
    if (new_chain) chains.push_back({a.chain, {}, {}, {}, {}});
    ChainAtoms& chain = chains[c->second];
    auto [r, new_residue] =
        residue_index.try_emplace(residue_key(a.chain, a.residue_number, a.insertion_code),
                                  static_cast<int>(chain.residues.size()));
    if (new_residue) chain.residues.push_back(&a);
    place[i] = {c->second, r->second};
  }
  for (const std::size_t i : steric) {
    chains[place[i].first].steric.emplace_back(place[i].second, i);
  }
  const Medium medium = effective_medium(settings);
  if (is_charged(medium)) {
    AtomCharges charges;
    try {
      charges = model_charges(atoms, settings);
    } catch (const InputError& e) {
      throw InputError(std::string(e.what()) + " (model " + std::to_string(model) + " of " + path +
                       ")");
    }
    for (std::size_t i = 0; i < atoms.size(); ++i) {
      if (charges.charge[i] == 0.0) continue;
      ChainAtoms& chain = chains[place[i].first];
      chain.charges.push_back({atoms[i].position, charges.charge[i]});
      chain.charge_residue.push_back(place[i].second);
    }
  }

  std::vector<WindowTensor> result;
  for (ChainAtoms& chain : chains) {
    // Grouped by residue, in the atoms' order within each residue.
    std::stable_sort(chain.steric.begin(), chain.steric.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<Vec3> positions;
    std::vector<int> residue;
    positions.reserve(chain.steric.size());
    residue.reserve(chain.steric.size());
    for (const auto& [r, i] : chain.steric) {
      positions.push_back(atoms[i].position);
      residue.push_back(r);
    }
    const int count = static_cast<int>(chain.residues.size());
    std::vector<SaupeElements> saupe;
    try {
      saupe =
          predict_windows(context, {positions, residue, count, chain.charges, chain.charge_residue},
                          settings.window, medium, threads);
    } catch (const Error& e) {
      throw InputError(path + ": model " + std::to_string(model) + ", chain '" + chain.name +
                       "': " + e.what());
    }
    std::vector<int> atoms_of(static_cast<std::size_t>(count) + 1, 0);
    for (const int r : residue) ++atoms_of[static_cast<std::size_t>(r) + 1];
    for (int r = 0; r < count; ++r) atoms_of[r + 1] += atoms_of[r];
    for (int i = 0; i < count; ++i) {
      const WindowRange w = window_range(i, settings.window, count);
      const Atom& a = *chain.residues[i];
      WindowTensor t;
      t.chain = chain.name;
      t.residue_number = a.residue_number;
      t.insertion_code = a.insertion_code;
      t.residue_name = a.residue_name;
      t.first_residue_number = chain.residues[w.first]->residue_number;
      t.last_residue_number = chain.residues[w.last]->residue_number;
      t.atoms = atoms_of[w.last + 1] - atoms_of[w.first];
      t.tensor = analyze_tensor(saupe[i]);
      result.push_back(std::move(t));
    }
  }
  return result;
}

void apply_windows(std::vector<PredictedCoupling>& couplings,
                   std::span<const WindowTensor> windows) {
  std::map<ResidueKey, const WindowTensor*> by_residue;
  for (const WindowTensor& w : windows) {
    by_residue.emplace(residue_key(w.chain, w.residue_number, w.insertion_code), &w);
  }
  for (PredictedCoupling& c : couplings) {
    const CouplingSite& s = c.site;
    const auto it = by_residue.find(residue_key(s.chain, s.residue_number, s.insertion_code));
    if (it == by_residue.end()) {
      throw Error("predict: no window for residue " + std::to_string(s.residue_number) +
                  " of chain '" + s.chain + "'");
    }
    c.predicted_hz = dipolar_coupling_hz(it->second->tensor.saupe, s.vector, c.dmax_hz);
  }
}

}  // namespace vorn::app
