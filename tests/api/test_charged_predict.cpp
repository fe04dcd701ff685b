// The charged-obstacle model through the public API: its limits and
// symmetries, its errors, and ubiquitin in Pf1 phage against the couplings
// measured in that medium.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "api_support.hpp"
#include "vorn/charges.hpp"
#include "vorn/couplings.hpp"
#include "vorn/error.hpp"
#include "vorn/fit.hpp"
#include "vorn/predict.hpp"
#include "vorn/tensor.hpp"

namespace vorn {
namespace {

using test::data_path;

struct Molecule {
  std::vector<Atom> atoms;
  std::vector<Vec3> steric;  // surface heavy atoms
  std::vector<PointCharge> charges;
  double net_charge = 0.0;
};

Molecule molecule(const std::string& file, double ph) {
  Molecule m;
  m.atoms = test::read_token_atoms(data_path(file));
  const std::vector<Atom> heavy = test::without_hydrogens(m.atoms);
  for (const std::size_t i : surface_atoms(heavy)) m.steric.push_back(heavy[i].position);
  const AtomCharges charges = titration_charges(m.atoms, ph);
  for (std::size_t i = 0; i < m.atoms.size(); ++i) {
    if (charges.charge[i] != 0.0) m.charges.push_back({m.atoms[i].position, charges.charge[i]});
  }
  m.net_charge = charges.net_charge;
  return m;
}

const Molecule& ubiquitin_2mjb() {
  static const Molecule m = molecule("structures/ubq_2mjb_m1.pdb", 6.0);
  return m;
}

Medium pf1(double concentration) {
  Medium m = pf1_medium();
  m.concentration = concentration;
  return m;
}

double largest(const SaupeElements& s) {
  double r = 0.0;
  for (const double v : s) r = std::max(r, std::fabs(v));
  return r;
}

using Mat = std::array<std::array<double, 3>, 3>;

Mat full(const SaupeElements& s) {
  const double xx = -0.5 * (s[0] - s[1]);
  const double yy = -0.5 * (s[0] + s[1]);
  return {{{xx, s[2], s[3]}, {s[2], yy, s[4]}, {s[3], s[4], s[0]}}};
}

TEST(ChargedPredict, UnchargedObstacleOrNoChargeGivesTheStericElements) {
  const Molecule& m = ubiquitin_2mjb();
  const PredictionContext context({}, 2);
  Medium steric = pf1(0.0135);
  steric.charge.reset();
  const SaupeElements expected = context.predict_saupe(m.steric, steric, 2);
  ASSERT_GT(largest(expected), 1e-5);
  Medium zero = pf1(0.0135);
  zero.charge->charge_density = 0.0;
  const std::vector<PointCharge> none;
  for (const SaupeElements& s : {context.predict_saupe(m.steric, m.charges, zero, 2),
                                 context.predict_saupe(m.steric, none, pf1(0.0135), 2)}) {
    for (int e = 0; e < 5; ++e) EXPECT_EQ(s[e], expected[e]) << e;
  }
}

TEST(ChargedPredict, InvertedChargesAndObstacleGiveTheSameTensor) {
  const Molecule& m = ubiquitin_2mjb();
  const PredictionContext context({}, 2);
  for (const PotentialModel model : {PotentialModel::linear, PotentialModel::nonlinear}) {
    Medium medium = pf1(0.0135);
    medium.charge->potential = model;
    const SaupeElements a = context.predict_saupe(m.steric, m.charges, medium, 2);
    std::vector<PointCharge> inverted = m.charges;
    for (PointCharge& c : inverted) c.charge = -c.charge;
    medium.charge->charge_density = -medium.charge->charge_density;
    const SaupeElements b = context.predict_saupe(m.steric, inverted, medium, 2);
    for (int e = 0; e < 5; ++e) EXPECT_NEAR(b[e], a[e], 1e-12 * largest(a)) << e;
  }
}

TEST(ChargedPredict, ThreadCountsGiveTheSameBits) {
  const Molecule& m = ubiquitin_2mjb();
  const PredictionContext context({}, 1);
  const SaupeElements one = context.predict_saupe(m.steric, m.charges, pf1(0.0135), 1);
  for (const int threads : {2, 5}) {
    const SaupeElements many = context.predict_saupe(m.steric, m.charges, pf1(0.0135), threads);
    for (int e = 0; e < 5; ++e) EXPECT_EQ(many[e], one[e]) << threads;
  }
}

// Rotating the molecule (atoms and charges) turns the tensor with it, up to
// the discreteness of the orientation sampling.
TEST(ChargedPredict, RotatingTheMoleculeRotatesTheTensor) {
  const Molecule& m = ubiquitin_2mjb();
  const double a = 0.9, b = -0.4;  // rotation about z by a, then about x by b
  const Mat rz{{{std::cos(a), -std::sin(a), 0}, {std::sin(a), std::cos(a), 0}, {0, 0, 1}}};
  const Mat rx{{{1, 0, 0}, {0, std::cos(b), -std::sin(b)}, {0, std::sin(b), std::cos(b)}}};
  Mat r{};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      for (int k = 0; k < 3; ++k) r[i][j] += rx[i][k] * rz[k][j];
  const auto turn = [&](const Vec3& v) {
    return Vec3{r[0][0] * v.x + r[0][1] * v.y + r[0][2] * v.z,
                r[1][0] * v.x + r[1][1] * v.y + r[1][2] * v.z,
                r[2][0] * v.x + r[2][1] * v.y + r[2][2] * v.z};
  };
  std::vector<Vec3> steric;
  for (const Vec3& v : m.steric) steric.push_back(turn(v));
  std::vector<PointCharge> charges;
  for (const PointCharge& c : m.charges) charges.push_back({turn(c.position), c.charge});
  const PredictionContext context({}, 2);
  const AlignmentTensor t0 =
      analyze_tensor(context.predict_saupe(m.steric, m.charges, pf1(0.0135), 2));
  const AlignmentTensor t1 = analyze_tensor(context.predict_saupe(steric, charges, pf1(0.0135), 2));
  EXPECT_NEAR(t1.da_hz, t0.da_hz, 0.03 * std::fabs(t0.da_hz));
  EXPECT_NEAR(t1.rhombicity, t0.rhombicity, 0.05);
  // The principal z axis of the turned molecule is the turned z axis.
  const auto& z0 = t0.eigenvectors[0];
  const Vec3 expected = turn({z0[0], z0[1], z0[2]});
  const auto& z1 = t1.eigenvectors[0];
  const double dot = std::fabs(expected.x * z1[0] + expected.y * z1[1] + expected.z * z1[2]);
  EXPECT_LT(std::acos(std::min(1.0, dot)) * 180.0 / M_PI, 5.0);
}

// The default sampling of the energy (nodes 3.5 per Debye length, cubic in
// between, tolerance 0.05 kT) against the energy at every position with a
// tolerance 500 times smaller: the same tensor within 0.5 %.
TEST(ChargedPredict, EnergySamplingAgreesWithTheEnergyAtEveryPosition) {
  const Molecule& m = ubiquitin_2mjb();
  const PredictionContext context({}, 2);
  for (const PotentialModel model : {PotentialModel::linear, PotentialModel::nonlinear}) {
    Medium fast = pf1(0.0135);
    fast.charge->potential = model;
    Medium plain = fast;
    plain.charge->nodes_per_debye_length = 0.0;
    plain.charge->energy_tolerance = 1e-4;
    const SaupeElements a = context.predict_saupe(m.steric, m.charges, fast, 2);
    const SaupeElements b = context.predict_saupe(m.steric, m.charges, plain, 2);
    for (int e = 0; e < 5; ++e) EXPECT_NEAR(a[e], b[e], 5e-3 * largest(b)) << e;
    EXPECT_NEAR(analyze_tensor(a).da_hz, analyze_tensor(b).da_hz,
                5e-3 * std::fabs(analyze_tensor(b).da_hz));
  }
}

TEST(ChargedPredict, InvalidSettingsThrow) {
  const Molecule& m = ubiquitin_2mjb();
  const PredictionContext context({3, 6, 6}, 1);
  Medium bad = pf1(0.0135);
  bad.charge->ionic_strength = -0.1;
  EXPECT_THROW(context.predict_saupe(m.steric, m.charges, bad, 1), Error);
  Medium combined = pf1(0.0135);
  combined.kind = MediumKind::bicelle_and_phage;
  EXPECT_THROW(context.predict_saupe(m.steric, m.charges, combined, 1), Error);
  std::vector<PointCharge> broken = m.charges;
  broken[0].charge = std::nan("");
  EXPECT_THROW(context.predict_saupe(m.steric, broken, pf1(0.0135), 1), Error);
  Medium no_tolerance = pf1(0.0135);
  no_tolerance.charge->energy_tolerance = 0.0;
  EXPECT_THROW(context.predict_saupe(m.steric, m.charges, no_tolerance, 1), Error);
}

// Ubiquitin in Pf1 (13.5 mg/ml, 0.15 M, pH 6.0) against the N-H and CA-HA
// couplings measured in that medium: the prediction correlates with them,
// has the fitted tensor's sign and magnitude within a factor 3, and its
// principal axis lies near the fitted one. The steric model alone does not.
struct Agreement {
  double r = 0.0, da = 0.0, fitted_da = 0.0, axis_deg = 0.0;
};

Agreement agreement(const Molecule& m, const SaupeElements& predicted) {
  std::map<std::pair<int, std::string>, Vec3> at;
  for (const Atom& a : m.atoms) at[{a.residue_number, a.name}] = a.position;
  std::ifstream in(data_path("couplings/ubq_2mjb_t502_pf1.dc"));
  std::string line;
  std::vector<FitRow> rows;
  std::vector<double> calculated;
  while (std::getline(in, line)) {
    std::istringstream f(line);
    int residue = 0, type = 0;
    double value = 0.0;
    if (!(f >> residue >> value >> type)) continue;
    const auto a = at.find({residue, type == 0 ? "N" : "CA"});
    const auto b = at.find({residue, type == 0 ? "H" : "HA"});
    if (a == at.end() || b == at.end()) continue;
    Vec3 d{b->second.x - a->second.x, b->second.y - a->second.y, b->second.z - a->second.z};
    const double n = std::sqrt(d.x * d.x + d.y * d.y + d.z * d.z);
    d = {d.x / n, d.y / n, d.z / n};
    const double dmax =
        type == 0 ? dipolar_constant_hz("N", "H", 1.02) : dipolar_constant_hz("C", "H", 1.09);
    FitRow row;
    row.design = coupling_design(d, dmax);
    row.value_hz = value;
    row.dmax_hz = dmax;
    row.type = type == 0 ? "N-H" : "CA-HA";
    rows.push_back(row);
    calculated.push_back(dipolar_coupling_hz(predicted, d, dmax));
  }
  EXPECT_EQ(rows.size(), 112u);
  double mx = 0, my = 0;
  const double n = static_cast<double>(rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    mx += calculated[i] / n;
    my += rows[i].value_hz / n;
  }
  double sxy = 0, sxx = 0, syy = 0;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    sxy += (calculated[i] - mx) * (rows[i].value_hz - my);
    sxx += (calculated[i] - mx) * (calculated[i] - mx);
    syy += (rows[i].value_hz - my) * (rows[i].value_hz - my);
  }
  const AlignmentTensor p = analyze_tensor(predicted);
  const AlignmentTensor f = analyze_tensor(fit_tensor(rows, false).saupe);
  const auto& a = p.eigenvectors[0];
  const auto& b = f.eigenvectors[0];
  const double dot = std::fabs(a[0] * b[0] + a[1] * b[1] + a[2] * b[2]);
  return {sxy / std::sqrt(sxx * syy), p.da_hz, f.da_hz,
          std::acos(std::min(1.0, dot)) * 180.0 / M_PI};
}

TEST(ChargedPredict, UbiquitinInPf1MatchesTheMeasuredCouplings) {
  const PredictionContext context({}, 2);
  for (const auto& [file, least_r] :
       {std::pair<std::string, double>{"structures/ubq_2mjb_m1.pdb", 0.65},
        std::pair<std::string, double>{"structures/ubq_1d3z_m1.pdb", 0.45}}) {
    const Molecule m = molecule(file, 6.0);
    const Agreement charged =
        agreement(m, context.predict_saupe(m.steric, m.charges, pf1(0.0135), 2));
    std::printf("%s: r %.3f Da %.2f (fitted %.2f) axis %.1f deg\n", file.c_str(), charged.r,
                charged.da, charged.fitted_da, charged.axis_deg);
    EXPECT_GE(charged.r, least_r) << file;
    EXPECT_LT(charged.da, 0.0) << file;
    EXPECT_LT(charged.fitted_da, 0.0) << file;
    EXPECT_LT(std::max(charged.da / charged.fitted_da, charged.fitted_da / charged.da), 3.0)
        << file;
    EXPECT_LT(charged.axis_deg, 25.0) << file;
    Medium steric = pf1(0.0135);
    steric.charge.reset();
    const Agreement shape = agreement(m, context.predict_saupe(m.steric, steric, 2));
    EXPECT_LT(shape.r, least_r) << file;
    EXPECT_GT(shape.axis_deg, 45.0) << file;
  }
}

}  // namespace
}  // namespace vorn
