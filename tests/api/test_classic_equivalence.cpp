// The library API against the classic run: for the same atoms and the same
// medium the API's Saupe elements are the classic run's, bit for bit. The
// classic side goes through the classic front end's own steps (auto file,
// coordinate reader, selection with its surface step, prediction with the
// classic capacities), the API side through token-parsed atoms, the API's
// surface rule and a shared prediction context.
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "api_support.hpp"
#include "classic/config.hpp"
#include "classic/limits.hpp"
#include "classic/pdb_reader.hpp"
#include "classic/selection.hpp"
#include "vorn/classic.hpp"
#include "vorn/predict.hpp"

namespace vorn {
namespace {

using test::Capture;
using test::data_path;
using test::Input;

struct Case {
  const char* name;
  const char* file;
  std::string auto_file;  // the classic settings
  Medium medium;          // the same medium for the API
  Sampling sampling;
  bool surface;  // API side: surface selection (else all heavy atoms)
};

Medium medium(MediumKind kind, double concentration, double radius, double spacing,
              double molar_ratio = 3.0) {
  Medium m;
  m.kind = kind;
  m.concentration = concentration;
  m.atom_radius = radius;
  m.grid_spacing = spacing;
  m.molar_ratio = molar_ratio;
  return m;
}

// The selected atoms and the predicted elements of the classic run.
struct ClassicResult {
  std::vector<Vec3> positions;
  SaupeElements saupe{};
};

ClassicResult classic_run(const Case& c) {
  Settings settings;
  Input auto_text(c.auto_file);
  int flags[kOptionSlots] = {};
  FILE* files[kOptionSlots] = {};
  flags[1] = 1;
  files[1] = auto_text.release();  // read_auto closes it
  Capture out;
  Capture err;
  Input in("");
  Io io{in.file(), out.file(), err.file()};
  read_auto(settings, flags, files, io);
  refine_bicelle(settings);

  AtomArrays atoms;
  const int total = reading_PDBfile(data_path(c.file).c_str(), atoms, out.file());
  const int n = select_atoms(total, atoms, settings, io);
  ClassicResult result;
  for (int i = 1; i <= n; ++i) result.positions.push_back({atoms.x[i], atoms.y[i], atoms.z[i]});
  ClassicLimits limits;
  limits.max_grid_index = kGridSlots - 1;
  limits.orientation_limit = kOrientationLimit;
  result.saupe = classic_predict(settings, result.positions, limits);
  return result;
}

// The atoms the classic reader keeps (names in its tables), without
// hydrogens, optionally reduced to the surface by the API's rule.
std::vector<Vec3> api_atoms(const Case& c) {
  std::vector<Atom> kept;
  for (const Atom& a : test::read_token_atoms(data_path(c.file))) {
    if (classic_atom_type(a.name) == kClassicUnknownName ||
        classic_residue_type(a.residue_name) == kClassicUnknownName) {
      continue;
    }
    if (!is_hydrogen(a)) kept.push_back(a);
  }
  if (!c.surface) return positions(kept);
  std::vector<Atom> surface;
  for (std::size_t i : surface_atoms(kept)) surface.push_back(kept[i]);
  return positions(surface);
}

bool same_bits(const std::vector<Vec3>& a, const std::vector<Vec3>& b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(Vec3)) == 0;
}

std::vector<Case> cases() {
  const Sampling standard{};
  const Sampling coarse{6, 12, 12};
  return {
      {"ubq_bicelle_default", "structures/ubq_1d3z_m1.pdb", "ANISOTROPIC_MEDIUM: 1\n",
       medium(MediumKind::bicelle, 0.05, 1.4, 0.5), standard, true},
      {"ubq_phage", "structures/ubq_1d3z_m1.pdb",
       "ANISOTROPIC_MEDIUM: 2\nLIPID_CONCENTRATION: 0.02\n",
       medium(MediumKind::phage, 0.02, 1.4, 0.5), standard, true},
      {"ubq_combined_heavy", "structures/ubq_1d3z_m1.pdb",
       "ANISOTROPIC_MEDIUM: 1\nBICELLE_PHAGE: 1\nMOLAR_RATIO: 3.2\nSELECT_FLAG: 3\n",
       medium(MediumKind::bicelle_and_phage, 0.05, 3.0, 0.5, 3.2), standard, false},
      {"ubq_xray_heavy_coarse", "structures/ubq_1ubq_xray.pdb",
       "SELECT_FLAG: 3\nATOM_RADIUS: 2.5\nGRID_SPACING: 1.0\nDIGIT_BETA: 6\nDIGIT_ALPHA: "
       "12\nDIGIT_GAMMA: 12\n",
       medium(MediumKind::bicelle, 0.05, 2.5, 1.0), coarse, false},
      {"ubq_bicelle_concentrated", "structures/ubq_1d3z_m1.pdb",
       "LIPID_CONCENTRATION: 0.15\nGRID_SPACING: 0.4\n",
       medium(MediumKind::bicelle, 0.15, 1.4, 0.4), standard, true},
      {"pentamer_bicelle", "structures/pln_1zll_pentamer_m1.pdb", "ANISOTROPIC_MEDIUM: 1\n",
       medium(MediumKind::bicelle, 0.05, 1.4, 0.5), standard, true},
      {"pentamer_phage_heavy", "structures/pln_1zll_pentamer_m1.pdb",
       "ANISOTROPIC_MEDIUM: 2\nSELECT_FLAG: 3\n", medium(MediumKind::phage, 0.05, 3.0, 0.5),
       standard, false},
  };
}

TEST(ApiClassicEquivalence, SameAtomsSameSaupeBits) {
  for (const Case& c : cases()) {
    SCOPED_TRACE(c.name);
    const ClassicResult classic = classic_run(c);
    const std::vector<Vec3> atoms = api_atoms(c);
    ASSERT_GT(atoms.size(), 50u);
    ASSERT_TRUE(same_bits(atoms, classic.positions))
        << "API selection " << atoms.size() << " atoms, classic " << classic.positions.size();

    const PredictionContext context(c.sampling);
    const SaupeElements api = context.predict_saupe(atoms, c.medium);
    EXPECT_EQ(std::memcmp(api.data(), classic.saupe.data(), sizeof api), 0)
        << api[0] << " " << classic.saupe[0];
    // A real, non-zero tensor.
    EXPECT_NE(api[0], 0.0);
  }
}

TEST(ApiClassicEquivalence, OneContextServesManyStructuresAndThreadCounts) {
  // The context's orientation tables are built once; predictions of several
  // structures and thread counts through it equal fresh single predictions.
  const std::vector<Case> all = cases();
  const PredictionContext context;
  for (const Case& c : {all[0], all[5]}) {
    SCOPED_TRACE(c.name);
    const std::vector<Vec3> atoms = api_atoms(c);
    const SaupeElements fresh = predict_saupe(atoms, c.medium, c.sampling, 1);
    for (int threads : {1, 2, 3}) {
      const SaupeElements again = context.predict_saupe(atoms, c.medium, threads);
      EXPECT_EQ(std::memcmp(fresh.data(), again.data(), sizeof fresh), 0) << threads;
    }
  }
}

}  // namespace
}  // namespace vorn
