// The windows of one model in the command layer: the surface atoms decided
// once on the whole molecule and taken per window, the charges of the
// window's residues, and each coupling from its own residue's window.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "app/predict_command.hpp"
#include "capture.hpp"
#include "vorn/charges.hpp"
#include "vorn/couplings.hpp"

namespace vorn::app {
namespace {

using test::data_path;

bool same_bits(const SaupeElements& a, const SaupeElements& b) {
  for (std::size_t k = 0; k < a.size(); ++k) {
    if (std::bit_cast<std::uint64_t>(a[k]) != std::bit_cast<std::uint64_t>(b[k])) return false;
  }
  return true;
}

Model ubiquitin() {
  ReadOptions read;
  read.keep_hydrogens = true;
  StructureReader reader(data_path("structures/ubq_1d3z_m1.pdb"), read, std::nullopt);
  Model m;
  EXPECT_TRUE(reader.next(m));
  return m;
}

const PredictionContext& context() {
  static const PredictionContext c(Sampling{5, 9, 9}, 1);
  return c;
}

// The surface heavy atoms of the whole model (as a list of atoms), found
// here with the library's surface rule.
std::vector<Atom> surface_of(const std::vector<Atom>& atoms) {
  std::vector<Atom> heavy;
  for (const Atom& a : atoms)
    if (!is_hydrogen(a)) heavy.push_back(a);
  std::vector<Atom> kept;
  for (const std::size_t i : surface_atoms(heavy)) kept.push_back(heavy[i]);
  return kept;
}

TEST(WindowPrediction, SurfaceAtomsAreTheWholeMoleculesInEachWindow) {
  const Model model = ubiquitin();
  PredictSettings settings;
  settings.window = 9;
  const ModelPrediction p = predict_model(model, settings, context(), 1, "ubq");
  ASSERT_EQ(p.windows.size(), 76u);
  const std::vector<Atom> surface = surface_of(model.atoms);
  for (const int centre : {1, 3, 40, 76}) {
    std::vector<Vec3> fragment;
    for (const Atom& a : surface) {
      if (a.residue_number >= centre - 4 && a.residue_number <= centre + 4) {
        fragment.push_back(a.position);
      }
    }
    const WindowTensor& w = p.windows[static_cast<std::size_t>(centre - 1)];
    EXPECT_EQ(w.residue_number, centre);
    EXPECT_EQ(w.first_residue_number, std::max(1, centre - 4));
    EXPECT_EQ(w.last_residue_number, std::min(76, centre + 4));
    EXPECT_EQ(w.atoms, static_cast<int>(fragment.size()));
    EXPECT_TRUE(same_bits(w.tensor.saupe, context().predict_saupe(fragment, Medium{}, 1)))
        << centre;
  }
}

TEST(WindowPrediction, EachCouplingUsesItsResiduesWindow) {
  const Model model = ubiquitin();
  PredictSettings settings;
  settings.window = 5;
  const ModelPrediction p = predict_model(model, settings, context(), 1, "ubq");
  int checked = 0;
  for (const PredictedCoupling& c : p.couplings) {
    const WindowTensor& w = p.windows[static_cast<std::size_t>(c.site.residue_number - 1)];
    ASSERT_EQ(w.residue_number, c.site.residue_number);
    // D = Dmax * sum_ij S_ij c_i c_j with the window's elements, computed
    // here from the five elements (Szz, Sxx-Syy, Sxy, Sxz, Syz).
    const SaupeElements& s = w.tensor.saupe;
    const double szz = s[0];
    const double sxx = (s[1] - szz) / 2.0;
    const double syy = -(s[1] + szz) / 2.0;
    const Vec3& v = c.site.vector;
    const double n = std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
    const double x = v.x / n, y = v.y / n, z = v.z / n;
    const double expected = c.dmax_hz * (sxx * x * x + syy * y * y + szz * z * z +
                                         2.0 * (s[2] * x * y + s[3] * x * z + s[4] * y * z));
    EXPECT_NEAR(c.predicted_hz, expected, 1e-9 * std::max(1.0, std::fabs(expected)))
        << c.site.residue_number << " " << c.site.type;
    ++checked;
  }
  EXPECT_GT(checked, 300);
}

TEST(WindowPrediction, ChargedWindowsCarryTheirResiduesCharges) {
  const Model model = ubiquitin();
  PredictSettings settings;
  settings.window = 7;
  settings.medium = pf1_medium();
  const ModelPrediction p = predict_model(model, settings, context(), 1, "ubq");
  const std::vector<Atom> surface = surface_of(model.atoms);
  const AtomCharges charges = titration_charges(model.atoms, settings.ph);
  const int centre = 30;
  std::vector<Vec3> fragment;
  for (const Atom& a : surface) {
    if (a.residue_number >= centre - 3 && a.residue_number <= centre + 3) {
      fragment.push_back(a.position);
    }
  }
  std::vector<PointCharge> own;
  for (std::size_t i = 0; i < model.atoms.size(); ++i) {
    const int r = model.atoms[i].residue_number;
    if (charges.charge[i] != 0.0 && r >= centre - 3 && r <= centre + 3) {
      own.push_back({model.atoms[i].position, charges.charge[i]});
    }
  }
  ASSERT_FALSE(own.empty());
  Medium medium = pf1_medium();
  medium.atom_radius = 1.4;
  EXPECT_TRUE(same_bits(p.windows[centre - 1].tensor.saupe,
                        context().predict_saupe(fragment, own, medium, 1)));
}

TEST(WindowPrediction, AWindowThatHoldsNoAtomIsAnInputError) {
  // Only residue 1 keeps atoms after excluding the others' records: the
  // window of residue 9 (5..13) is empty once residues 2..76 have none.
  Model model = ubiquitin();
  std::vector<Atom> kept;
  for (Atom a : model.atoms) {
    if (a.residue_number > 1 && is_hydrogen(a)) continue;
    if (a.residue_number > 1) a.name = "H" + a.name.substr(1);  // no longer heavy
    if (a.residue_number > 1) a.element = "H";
    kept.push_back(a);
  }
  model.atoms = kept;
  PredictSettings settings;
  settings.window = 3;
  settings.selection = Selection::heavy;
  try {
    predict_model(model, settings, context(), 1, "ubq.pdb");
    ADD_FAILURE() << "an empty window was accepted";
  } catch (const InputError& e) {
    const std::string text = e.what();
    EXPECT_NE(text.find("ubq.pdb: model"), std::string::npos) << text;
    EXPECT_NE(text.find("holds no atom"), std::string::npos) << text;
  }
}

}  // namespace
}  // namespace vorn::app
