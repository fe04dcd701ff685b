// `vorn fit` run as a program: its JSON, CSV and plots read back and checked
// against least-squares solutions, designs and statistics computed here from
// the atoms of the structure file, against the classic front end's SVD fit,
// and against each other across the options.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "capture.hpp"
#include "run_command.hpp"

namespace vorn {
namespace {

namespace fs = std::filesystem;
using json = nlohmann::json;
using test::data_path;
using Real = long double;
using Vec = std::array<Real, 3>;
using Row = std::array<Real, 5>;
using Elements = std::array<Real, 5>;

// ---------------------------------------------------------------------------
// Running the program.

using RunResult = test::CommandResult;

std::string quoted(const std::string& path) { return "'" + path + "'"; }

std::string temp_path(const std::string& name) {
  return (fs::temp_directory_path() / ("vorn_fit_test_" + std::to_string(::getpid()) + "_" + name))
      .string();
}

std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

// Runs `command` through the shell; stdout captured, stderr into a file.
RunResult run_shell(const std::string& command) {
  return test::run_command(command, temp_path("stderr.txt"));
}

RunResult run_vorn(const std::string& args) {
  return run_shell(std::string(VORN_BINARY) + " " + args);
}

json fit_json(const std::string& args) {
  const RunResult r = run_vorn("fit --format json " + args);
  EXPECT_EQ(r.status, 0) << args << "\n" << r.err;
  if (r.status != 0) return json::object();
  return json::parse(r.out);
}

const std::string kCif = data_path("raw/1d3z.cif");
const std::string kPdb10 = data_path("raw/1D3Z_raw_10models.pdb");
const std::string kDc = data_path("couplings/ubq_2mjb_t500_bicelleA.dc");
const std::string kMr = data_path("raw/2mjb_mr_rdc_section.mr");

// ---------------------------------------------------------------------------
// Independent arithmetic: atoms, dipolar constants, designs, least squares.

// The atoms of one model of a PDB file, read by fixed columns.
struct Residue {
  std::string name;
  std::map<std::string, Vec> atoms;
  std::map<std::string, std::string> elements;
};
using Model = std::map<int, Residue>;

std::string trim(const std::string& s) {
  const auto b = s.find_first_not_of(' ');
  if (b == std::string::npos) return "";
  return s.substr(b, s.find_last_not_of(' ') - b + 1);
}

std::vector<Model> read_pdb_models(const std::string& path) {
  std::vector<Model> models;
  std::ifstream in(path);
  bool inside = false;
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("MODEL", 0) == 0) {
      models.emplace_back();
      inside = true;
    } else if (line.rfind("ENDMDL", 0) == 0) {
      inside = false;
    } else if (inside && line.rfind("ATOM  ", 0) == 0) {
      Residue& r = models.back()[std::stoi(line.substr(22, 4))];
      r.name = trim(line.substr(17, 3));
      const std::string name = trim(line.substr(12, 4));
      r.atoms[name] = {std::stold(line.substr(30, 8)), std::stold(line.substr(38, 8)),
                       std::stold(line.substr(46, 8))};
      r.elements[name] = trim(line.substr(76, 2));
    }
  }
  return models;
}

const std::vector<Model>& ubiquitin_models() {
  static const std::vector<Model> models = read_pdb_models(kPdb10);
  return models;
}

Real gamma_of(const std::string& element) {
  if (element == "H") return 26.7522128e7L;
  if (element == "C") return 6.728284e7L;
  if (element == "N") return -2.71261804e7L;
  ADD_FAILURE() << "no gyromagnetic ratio for " << element;
  return 0;
}

// Dmax = -(mu0/4pi) g1 g2 hbar / (pi r^3), r in Angstrom.
Real dmax_hz(const std::string& e1, const std::string& e2, Real r_angstrom) {
  const Real r = r_angstrom * 1e-10L;
  return -1e-7L * gamma_of(e1) * gamma_of(e2) * 1.054571817e-34L / (acosl(-1.0L) * r * r * r);
}

// The Saupe matrix of the five elements (Szz, Sxx - Syy, Sxy, Sxz, Syz).
std::array<Vec, 3> matrix_of(const Elements& s) {
  return {{{-(s[0] - s[1]) / 2, s[2], s[3]}, {s[2], -(s[0] + s[1]) / 2, s[4]}, {s[3], s[4], s[0]}}};
}

Vec difference(const Vec& a, const Vec& b) { return {b[0] - a[0], b[1] - a[1], b[2] - a[2]}; }

Real norm(const Vec& v) { return sqrtl(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]); }

// The design row of D = dmax sum_ij S_ij c_i c_j: column k is D for the
// Saupe matrix of the k-th unit element.
Row design(const Vec& v, Real dmax) {
  const Real len = norm(v);
  const Vec c{v[0] / len, v[1] / len, v[2] / len};
  Row row{};
  for (int k = 0; k < 5; ++k) {
    Elements unit{};
    unit[k] = 1;
    const auto m = matrix_of(unit);
    Real sum = 0;
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) sum += m[i][j] * c[i] * c[j];
    row[k] = dmax * sum;
  }
  return row;
}

Real dot(const Row& a, const Elements& s) {
  Real sum = 0;
  for (int k = 0; k < 5; ++k) sum += a[k] * s[k];
  return sum;
}

// Least squares by the normal equations, Gaussian elimination with partial
// pivoting, rows weighted by w.
Elements least_squares(const std::vector<Row>& a, const std::vector<Real>& b,
                       const std::vector<Real>& w = {}) {
  Real n[5][6] = {};
  for (size_t r = 0; r < a.size(); ++r) {
    const Real weight = w.empty() ? 1 : w[r];
    for (int i = 0; i < 5; ++i) {
      for (int j = 0; j < 5; ++j) n[i][j] += weight * a[r][i] * a[r][j];
      n[i][5] += weight * a[r][i] * b[r];
    }
  }
  for (int col = 0; col < 5; ++col) {
    int pivot = col;
    for (int i = col + 1; i < 5; ++i)
      if (fabsl(n[i][col]) > fabsl(n[pivot][col])) pivot = i;
    for (int j = 0; j < 6; ++j) std::swap(n[col][j], n[pivot][j]);
    for (int i = col + 1; i < 5; ++i) {
      const Real f = n[i][col] / n[col][col];
      for (int j = col; j < 6; ++j) n[i][j] -= f * n[col][j];
    }
  }
  Elements s{};
  for (int i = 4; i >= 0; --i) {
    Real sum = n[i][5];
    for (int j = i + 1; j < 5; ++j) sum -= n[i][j] * s[j];
    s[i] = sum / n[i][i];
  }
  return s;
}

Elements saupe_of(const json& set) {
  Elements s{};
  const json& a = set.at("tensor").at("saupe");
  EXPECT_EQ(a.size(), 5u);
  for (int k = 0; k < 5 && k < static_cast<int>(a.size()); ++k) s[k] = a.at(k).get<double>();
  return s;
}

Real largest(const Elements& s) {
  Real m = 0;
  for (Real x : s) m = std::max(m, fabsl(x));
  return m;
}

void expect_same_elements(const Elements& got, const Elements& want, Real relative,
                          const std::string& what) {
  const Real scale = largest(want);
  for (int k = 0; k < 5; ++k) {
    EXPECT_LE(fabsl(got[k] - want[k]), relative * scale)
        << what << ": element " << k << " " << static_cast<double>(got[k]) << " against "
        << static_cast<double>(want[k]);
  }
}

// Eigenvalues of the Saupe matrix by the trigonometric formula for a
// traceless symmetric 3 x 3 matrix, ordered by decreasing magnitude.
std::array<Real, 3> eigenvalues_of(const Elements& s) {
  const auto m = matrix_of(s);
  const Real p2 = (m[0][0] * m[0][0] + m[1][1] * m[1][1] + m[2][2] * m[2][2] +
                   2 * (m[0][1] * m[0][1] + m[0][2] * m[0][2] + m[1][2] * m[1][2])) /
                  6;
  const Real p = sqrtl(p2);
  const Real det = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                   m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                   m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
  const Real half = std::clamp(det / (2 * p * p * p), -1.0L, 1.0L);
  const Real phi = acosl(half) / 3;
  const Real pi = acosl(-1.0L);
  std::array<Real, 3> e{2 * p * cosl(phi), 2 * p * cosl(phi + 2 * pi / 3),
                        2 * p * cosl(phi + 4 * pi / 3)};
  std::sort(e.begin(), e.end(), [](Real a, Real b) { return fabsl(a) > fabsl(b); });
  return e;
}

// The measured couplings of a classic file with their atoms: type 0 N-H of
// residue i, 1 CA-HA, 2 CA-C, 3 C(i-1)-N(i), 4 C(i-1)-H(i).
struct ClassicCoupling {
  int residue = 0;
  int type = 0;
  double value = 0;
};

std::vector<ClassicCoupling> read_classic(const std::string& path) {
  std::vector<ClassicCoupling> out;
  std::ifstream in(path);
  ClassicCoupling c;
  while (in >> c.residue >> c.value >> c.type)
    if (c.value < 1000.0) out.push_back(c);
  return out;
}

const char* const kTypeNames[5] = {"N-H", "CA-HA", "CA-C", "C-N", "C-HN"};

struct Pair {
  int res1;
  const char* atom1;
  const char* element1;
  int res2;
  const char* atom2;
  const char* element2;
  Real distance;
};

Pair pair_of(const ClassicCoupling& c) {
  const int i = c.residue;
  switch (c.type) {
    case 0:
      return {i, "N", "N", i, "H", "H", 1.02L};
    case 1:
      return {i, "CA", "C", i, "HA", "H", 1.09L};
    case 2:
      return {i, "CA", "C", i, "C", "C", 1.525L};
    case 3:
      return {i - 1, "C", "C", i, "N", "N", 1.329L};
    default:
      return {i - 1, "C", "C", i, "H", "H", 2.04L};
  }
}

Row classic_design(const Model& m, const ClassicCoupling& c, Real* dmax_out = nullptr) {
  const Pair p = pair_of(c);
  const Vec a = m.at(p.res1).atoms.at(p.atom1);
  const Vec b = m.at(p.res2).atoms.at(p.atom2);
  const Real dmax = dmax_hz(p.element1, p.element2, p.distance);
  if (dmax_out != nullptr) *dmax_out = dmax;
  return design(difference(a, b), dmax);
}

// The independent fit of the classic file on the models given (the design
// rows averaged over them).
Elements fit_classic(const std::vector<ClassicCoupling>& couplings,
                     const std::vector<const Model*>& models) {
  std::vector<Row> a;
  std::vector<Real> b;
  for (const ClassicCoupling& c : couplings) {
    Row mean{};
    for (const Model* m : models) {
      const Row r = classic_design(*m, c);
      for (int k = 0; k < 5; ++k) mean[k] += r[k] / models.size();
    }
    a.push_back(mean);
    b.push_back(c.value);
  }
  return least_squares(a, b);
}

// Quality figures of measured against calculated.
struct Figures {
  Real rmsd = 0, r = 0, q = 0, slope = 0;
};

Figures figures(const std::vector<Real>& x, const std::vector<Real>& y) {
  const Real n = x.size();
  Real mx = 0, my = 0;
  for (size_t i = 0; i < x.size(); ++i) mx += x[i] / n, my += y[i] / n;
  Real sxy = 0, sxx = 0, syy = 0, d2 = 0, o2 = 0;
  for (size_t i = 0; i < x.size(); ++i) {
    sxy += (x[i] - mx) * (y[i] - my);
    sxx += (x[i] - mx) * (x[i] - mx);
    syy += (y[i] - my) * (y[i] - my);
    d2 += (x[i] - y[i]) * (x[i] - y[i]);
    o2 += x[i] * x[i];
  }
  return {sqrtl(d2 / n), sxy / sqrtl(sxx * syy), sqrtl(d2 / o2), sxy / sxx};
}

// ---------------------------------------------------------------------------

TEST(FitCommand, UbiquitinIsTheIndependentLeastSquaresSolution) {
  const json doc = fit_json(quoted(kCif) + " " + quoted(kDc));
  ASSERT_EQ(doc.at("sets").size(), 1u);
  const json& set = doc["sets"][0];
  EXPECT_EQ(set.at("set"), "");
  EXPECT_EQ(set.at("models"), json::array({1}));
  EXPECT_FALSE(set.at("weighted").get<bool>());  // the classic file has no errors
  EXPECT_EQ(doc.at("input").at("couplings_format"), "classic");
  EXPECT_EQ(doc["input"].at("structure_format"), "mmCIF");

  const Model& model = ubiquitin_models().at(0);
  const std::vector<ClassicCoupling> couplings = read_classic(kDc);
  ASSERT_EQ(couplings.size(), 305u);
  ASSERT_EQ(set.at("n"), 305);
  const Elements mine = fit_classic(couplings, {&model});
  const Elements got = saupe_of(set);
  expect_same_elements(got, mine, 1e-9L, "Saupe elements");

  // Coupling by coupling: atoms, Dmax, the back-calculation; and the
  // statistics on the N-H scale.
  const Real dmax_nh = dmax_hz("N", "H", 1.02L);
  std::vector<Real> obs, calc;
  const json& rows = set.at("couplings");
  ASSERT_EQ(rows.size(), couplings.size());
  for (size_t i = 0; i < couplings.size(); ++i) {
    const ClassicCoupling& c = couplings[i];
    const json& row = rows[i];
    const Pair p = pair_of(c);
    SCOPED_TRACE(std::to_string(c.residue) + " type " + std::to_string(c.type));
    EXPECT_EQ(row.at("type"), kTypeNames[c.type]);
    EXPECT_EQ(row.at("residue1"), p.res1);
    EXPECT_EQ(row.at("residue2"), p.res2);
    EXPECT_EQ(row.at("atom1"), p.atom1);
    EXPECT_EQ(row.at("atom2"), p.atom2);
    EXPECT_EQ(row.at("measured_hz").get<double>(), c.value);
    EXPECT_TRUE(row.at("error_hz").is_null());
    EXPECT_EQ(row.at("line").get<int>(), static_cast<int>(i) + 1);
    Real dmax = 0;
    const Row d = classic_design(model, c, &dmax);
    EXPECT_NEAR(row.at("dmax_hz").get<double>(), static_cast<double>(dmax), 1e-9 * fabsl(dmax));
    EXPECT_NEAR(row.at("distance").get<double>(), static_cast<double>(p.distance), 1e-12);
    const Real back = dot(d, mine);
    EXPECT_NEAR(row.at("calculated_hz").get<double>(), static_cast<double>(back),
                1e-9 * fabsl(dmax) * largest(mine));
    EXPECT_NEAR(row.at("residual_hz").get<double>(),
                row["measured_hz"].get<double>() - row["calculated_hz"].get<double>(), 1e-12);
    obs.push_back(c.value * dmax_nh / dmax);
    calc.push_back(back * dmax_nh / dmax);
  }

  // Principal values, Da on the N-H scale, R and Q(Da) from them.
  const std::array<Real, 3> eig = eigenvalues_of(mine);
  for (int k = 0; k < 3; ++k) {
    EXPECT_NEAR(set["tensor"].at("eigenvalues").at(k).get<double>(), static_cast<double>(eig[k]),
                1e-9 * fabsl(eig[0]));
  }
  const Real aa = eig[0] / 2;  // traceless: (Azz - (Axx + Ayy)/2) / 3
  const Real rhombicity = 2 * (eig[2] - eig[1]) / (3 * eig[0]);
  EXPECT_NEAR(set["tensor"].at("aa").get<double>(), static_cast<double>(aa), 1e-9 * fabsl(aa));
  EXPECT_NEAR(set["tensor"].at("rhombicity").get<double>(), static_cast<double>(rhombicity), 1e-8);
  const Figures f = figures(obs, calc);
  const Real da_nh = dmax_nh * aa;
  const Real q_da = f.rmsd / sqrtl(2 * da_nh * da_nh * (4 + 3 * rhombicity * rhombicity) / 5);
  const json& quality = set.at("quality");
  EXPECT_EQ(quality.at("n"), 305);
  EXPECT_NEAR(quality.at("rmsd_hz").get<double>(), static_cast<double>(f.rmsd), 1e-9);
  EXPECT_NEAR(quality.at("r").get<double>(), static_cast<double>(f.r), 1e-9);
  EXPECT_NEAR(quality.at("q").get<double>(), static_cast<double>(f.q), 1e-9);
  EXPECT_NEAR(quality.at("q_da").get<double>(), static_cast<double>(q_da), 1e-9);
  EXPECT_EQ(quality.at("per_type").size(), 5u);
  for (int t = 0; t < 5; ++t) {
    int n = 0;
    for (const ClassicCoupling& c : couplings) n += c.type == t;
    EXPECT_EQ(quality["per_type"].at(kTypeNames[t]).at("n"), n);
  }

  const double da = set["tensor"].at("da_hz").get<double>();
  const double r = set["tensor"]["rhombicity"].get<double>();
  std::printf(
      "vorn fit 1d3z model 1: Da(NH) = %.4f Hz, R = %.4f, Q = %.4f, Q(Da) = %.4f, "
      "condition number %.3f\n",
      da, r, quality["q"].get<double>(), quality["q_da"].get<double>(),
      set["condition_number"].get<double>());
  // Da(NH) is reported on the classic scale, 21.52 kHz per unit of Aa.
  EXPECT_NEAR(da / static_cast<double>(aa), 21523.11, 0.01);
  EXPECT_GT(da, 9.5);
  EXPECT_LT(da, 9.75);
  EXPECT_GT(r, 0.14);
  EXPECT_LT(r, 0.18);
  EXPECT_GT(quality["q_da"].get<double>(), 0.05);
  EXPECT_LT(quality["q_da"].get<double>(), 0.09);
  EXPECT_LT(set["condition_number"].get<double>(), 5.0);
  EXPECT_FALSE(set["ill_conditioned"].get<bool>());
}

TEST(FitCommand, XrayStructureWithHydrogensAdded) {
  // 1UBQ has no hydrogen: the couplings of protons are not found unless
  // --add-hydrogens places them.
  const std::string xray = quoted(data_path("raw/1UBQ_raw.pdb"));
  const RunResult missing = run_vorn("fit " + xray + " " + quoted(kDc));
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.err.find("atom not found in model 1"), std::string::npos) << missing.err;
  EXPECT_NE(missing.err.find("the structure has no hydrogens: --add-hydrogens places them"),
            std::string::npos)
      << missing.err;

  const json lenient = fit_json("--lenient " + xray + " " + quoted(kDc));
  const json& without = lenient.at("sets").at(0);
  EXPECT_EQ(without.at("n"), 58 + 61);  // CA-C and C-N
  EXPECT_EQ(without.at("unresolved"), 305 - 58 - 61);
  EXPECT_FALSE(without["quality"]["per_type"].contains("CA-HA"));
  EXPECT_EQ(without.at("built_hydrogens"), 0);

  const json doc = fit_json("--add-hydrogens " + xray + " " + quoted(kDc));
  EXPECT_EQ(doc.at("settings").at("add_hydrogens"), true);
  const json& set = doc.at("sets").at(0);
  EXPECT_EQ(set.at("n"), 305);
  EXPECT_EQ(set.at("unresolved"), 0);
  EXPECT_EQ(set.at("built_hydrogens"), 630);
  EXPECT_EQ(set.at("unplaced_hydrogens"), 0);
  const json& alpha = set["quality"]["per_type"].at("CA-HA");
  EXPECT_EQ(alpha.at("n"), 62);
  const Real dmax_ch = dmax_hz("C", "H", 1.09L);
  for (const json& row : set.at("couplings")) {
    if (row.at("type") != "CA-HA") continue;
    EXPECT_EQ(row.at("distance").get<double>(), 1.09);
    EXPECT_NEAR(row.at("dmax_hz").get<double>(), static_cast<double>(dmax_ch),
                1e-9 * fabsl(dmax_ch));
  }
  // The X-ray structure with hydrogens placed describes the alignment the
  // NMR structure refined against these couplings does: Da and R close to
  // its own fit, the alpha protons within a quality factor of 0.3.
  const json nmr = fit_json(quoted(data_path("structures/ubq_1d3z_m1.pdb")) + " " + quoted(kDc));
  const double da = set["tensor"]["da_hz"].get<double>();
  const double da_nmr = nmr["sets"][0]["tensor"]["da_hz"].get<double>();
  std::printf(
      "vorn fit 1UBQ --add-hydrogens: Da(NH) = %.3f Hz (1D3Z: %.3f), R = %.3f (%.3f), "
      "Q = %.3f, Q(CA-HA) = %.3f\n",
      da, da_nmr, set["tensor"]["rhombicity"].get<double>(),
      nmr["sets"][0]["tensor"]["rhombicity"].get<double>(), set["quality"]["q"].get<double>(),
      alpha["q"].get<double>());
  EXPECT_NEAR(da, da_nmr, 0.1 * da_nmr);
  EXPECT_NEAR(set["tensor"]["rhombicity"].get<double>(),
              nmr["sets"][0]["tensor"]["rhombicity"].get<double>(), 0.05);
  EXPECT_LT(alpha.at("q").get<double>(), 0.3);
  const RunResult text = run_vorn("fit --add-hydrogens " + xray + " " + quoted(kDc));
  EXPECT_NE(text.out.find("  hydrogens placed from the heavy atoms (--add-hydrogens): 630\n"),
            std::string::npos);
}

TEST(FitCommand, AgreesWithTheClassicSvd) {
  const std::string dir = temp_path("classic");
  fs::create_directories(dir);
  const RunResult classic =
      run_shell("cd " + quoted(dir) + " && " + VORN_BINARY + " -A" +
                quoted(data_path("../../examples/bicelle.auto")) + " -D" + quoted(kDc) + " " +
                quoted(data_path("structures/ubq_1d3z_m1.pdb")));
  fs::remove_all(dir);
  ASSERT_EQ(classic.status, 0) << classic.err;
  std::istringstream lines(classic.out);
  std::string line;
  bool svd = false;
  double classic_da = std::nan(""), classic_r = std::nan("");
  while (std::getline(lines, line)) {
    if (trim(line) == "SVD") svd = true;
    if (!svd) continue;
    const auto da_at = line.find("Da(NH) =");
    if (da_at != std::string::npos && std::isnan(classic_da))
      classic_da = std::stod(line.substr(da_at + 8));
    const auto r_at = line.find("R = Dr/Da =");
    if (r_at != std::string::npos && std::isnan(classic_r))
      classic_r = std::stod(line.substr(r_at + 11));
  }
  ASSERT_TRUE(svd) << "no SVD section";
  ASSERT_FALSE(std::isnan(classic_da));
  ASSERT_FALSE(std::isnan(classic_r));

  const json doc = fit_json(quoted(kCif) + " " + quoted(kDc));
  const double da = doc["sets"][0]["tensor"]["da_hz"].get<double>();
  const double r = doc["sets"][0]["tensor"]["rhombicity"].get<double>();
  std::printf(
      "Da(NH): classic SVD %.3f Hz, vorn fit %.4f Hz;  R: classic SVD %.3f, vorn fit "
      "%.4f\n",
      classic_da, da, classic_r, r);
  EXPECT_NEAR(da, classic_da, 0.3);
  EXPECT_NEAR(r, classic_r, 0.02);
}

TEST(FitCommand, DepositedXplorSetsAndTheirSigns) {
  const json doc = fit_json(quoted(kCif) + " " + quoted(kMr));
  EXPECT_EQ(doc.at("input").at("couplings_format"), "xplor");
  std::vector<std::string> names;
  for (const json& s : doc.at("sets")) names.push_back(s.at("set"));
  EXPECT_EQ(names, (std::vector<std::string>{"500", "501", "503", "502"}));
  // The text report lists them in the same order.
  const RunResult text = run_vorn("fit " + quoted(kCif) + " " + quoted(kMr));
  ASSERT_EQ(text.status, 0);
  size_t at = 0;
  for (const std::string& name : names) {
    const size_t next = text.out.find("set " + name + ", model 1:", at);
    EXPECT_NE(next, std::string::npos) << name;
    if (next != std::string::npos) at = next;
  }

  // Set 500: the N-H and C-N values carry the opposite sign.
  ASSERT_GE(doc["sets"].size(), 1u);
  std::set<std::string> flagged;
  for (const json& c : doc["sets"][0].at("sign_check"))
    if (c.at("inverted").get<bool>()) flagged.insert(c.at("type"));
  EXPECT_EQ(flagged, (std::set<std::string>{"N-H", "C-N"}));
  EXPECT_TRUE(doc["sets"][0].at("signs_inverted").empty());  // not without --fix-sign

  // Fixed and restricted to the backbone types, it is the fit of the
  // corrected classic file.
  const json fixed = fit_json("--set 500 --fix-sign --types N-H,CA-HA,CA-C,C-N,C-HN " +
                              quoted(kCif) + " " + quoted(kMr));
  ASSERT_EQ(fixed.at("sets").size(), 1u);
  const json& s = fixed["sets"][0];
  EXPECT_EQ(s.at("set"), "500");
  EXPECT_EQ(s.at("n"), 305);
  EXPECT_EQ(s.at("signs_inverted"), json::array({"N-H", "C-N"}));
  const json dc = fit_json(quoted(kCif) + " " + quoted(kDc));
  expect_same_elements(saupe_of(s), saupe_of(dc["sets"][0]), 1e-9L, "fixed set 500 against .dc");
  for (const json& c : s.at("couplings")) {
    const std::string type = c.at("type");
    EXPECT_TRUE(type == "N-H" || type == "CA-HA" || type == "CA-C" || type == "C-N" ||
                type == "C-HN")
        << type;
  }
  std::printf("set 500 fixed: Da(NH) = %.4f Hz, R = %.4f, Q = %.4f\n",
              s["tensor"]["da_hz"].get<double>(), s["tensor"]["rhombicity"].get<double>(),
              s["quality"]["q"].get<double>());
}

TEST(FitCommand, ErrorBarsAreReproducibleForASeed) {
  const std::string files = quoted(kCif) + " " + quoted(kDc);
  for (const std::string method : {"montecarlo", "bootstrap"}) {
    SCOPED_TRACE(method);
    const std::string base = "fit --format json --errors " + method + " --samples 200 ";
    const RunResult a = run_vorn(base + "--seed 7 " + files);
    const RunResult b = run_vorn(base + "--seed 7 " + files);
    const RunResult c = run_vorn(base + "--seed 8 " + files);
    ASSERT_EQ(a.status, 0) << a.err;
    EXPECT_EQ(a.out, b.out);
    EXPECT_NE(a.out, c.out);
    const json doc = json::parse(a.out);
    const json& set = doc["sets"][0];
    const json& e = set.at("errors");
    ASSERT_TRUE(e.is_object());
    EXPECT_EQ(e.at("method"), method);
    EXPECT_EQ(e.at("samples"), 200);
    EXPECT_EQ(e.at("seed"), 7);
    EXPECT_GT(e.at("da_hz_sd").get<double>(), 0.0);
    EXPECT_GT(e.at("rhombicity_sd").get<double>(), 0.0);
    EXPECT_EQ(doc["settings"].at("errors"), method);
    int with_sd = 0;
    for (const json& row : set.at("couplings")) {
      if (!row.contains("calculated_sd_hz")) continue;
      ++with_sd;
      EXPECT_GT(row["calculated_sd_hz"].get<double>(), 0.0);
    }
    EXPECT_EQ(with_sd, set.at("n").get<int>());
    std::printf("%s: sd Da(NH) = %.4f Hz, sd R = %.5f\n", method.c_str(),
                e["da_hz_sd"].get<double>(), e["rhombicity_sd"].get<double>());
  }
  // Without error bars: none in the JSON.
  const json plain = fit_json(files);
  EXPECT_TRUE(plain["sets"][0].at("errors").is_null());
  EXPECT_FALSE(plain["sets"][0]["couplings"][0].contains("calculated_sd_hz"));
}

TEST(FitCommand, PerModelAndEnsemble) {
  const std::vector<ClassicCoupling> couplings = read_classic(kDc);
  const std::vector<Model>& models = ubiquitin_models();
  ASSERT_EQ(models.size(), 10u);

  const json per = fit_json("--per-model " + quoted(kCif) + " " + quoted(kDc));
  ASSERT_EQ(per.at("sets").size(), 10u);
  double low = 1e9, high = -1e9;
  for (int m = 0; m < 10; ++m) {
    const json& s = per["sets"][m];
    EXPECT_EQ(s.at("models"), json::array({m + 1}));
    expect_same_elements(saupe_of(s), fit_classic(couplings, {&models[m]}), 1e-9L,
                         "model " + std::to_string(m + 1));
    const double da = s["tensor"]["da_hz"].get<double>();
    low = std::min(low, da);
    high = std::max(high, da);
  }

  const json ens = fit_json("--ensemble " + quoted(kCif) + " " + quoted(kDc));
  ASSERT_EQ(ens.at("sets").size(), 1u);
  const json& e = ens["sets"][0];
  EXPECT_EQ(e.at("models"), json::array({1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
  EXPECT_EQ(ens["settings"].at("mode"), "ensemble");
  std::vector<const Model*> all;
  for (const Model& m : models) all.push_back(&m);
  expect_same_elements(saupe_of(e), fit_classic(couplings, all), 1e-9L, "ensemble");
  const double da = e["tensor"]["da_hz"].get<double>();
  std::printf("per-model Da(NH) %.4f .. %.4f Hz, ensemble (designs averaged) %.4f Hz\n", low, high,
              da);
  // Averaging the bond orientations over the models shortens the mean design
  // rows, so the ensemble tensor comes out somewhat larger than any single
  // model's; it stays within a few per cent of them.
  EXPECT_GT(da, low * 0.97);
  EXPECT_LT(da, high * 1.03);

  // Several models picked without a mode: an error naming the way out.
  const RunResult r = run_vorn("fit --models 1,2 " + quoted(kCif) + " " + quoted(kDc));
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_NE(r.err.find("several models"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("--per-model"), std::string::npos) << r.err;
  const json two = fit_json("--models 1,2 --per-model " + quoted(kCif) + " " + quoted(kDc));
  ASSERT_EQ(two.at("sets").size(), 2u);
  EXPECT_EQ(two["sets"][1].at("models"), json::array({2}));
  EXPECT_EQ(two["sets"][1]["tensor"], per["sets"][1]["tensor"]);
}

// The models stream through worker threads: the output does not depend on
// their number, for the ensemble, model by model, and the first model alone.
TEST(FitCommand, SameBytesForAnyNumberOfThreads) {
  for (const std::string mode : {"--ensemble --predict ", "--per-model --predict ", "--predict "}) {
    const std::string files = quoted(kPdb10) + " " + quoted(kDc);
    const RunResult one = run_vorn("fit --format json --threads 1 " + mode + files);
    ASSERT_EQ(one.status, 0) << one.err;
    ASSERT_TRUE(json::parse(one.out).contains("sets"));
    for (const char* threads : {"2", "3"}) {
      const RunResult many =
          run_vorn(std::string("fit --format json --threads ") + threads + " " + mode + files);
      EXPECT_EQ(many.status, 0) << many.err;
      EXPECT_EQ(many.out, one.out) << mode << threads << " threads";
    }
  }
}

TEST(FitCommand, StericPredictionBesideTheFit) {
  const json doc = fit_json("--predict " + quoted(kCif) + " " + quoted(kDc));
  const json& set = doc["sets"][0];
  const json& p = set.at("prediction");
  ASSERT_TRUE(p.is_object());
  ASSERT_TRUE(p.contains("slope"));
  ASSERT_TRUE(p.contains("axis_angle_deg"));
  const double r = p.at("r").get<double>();
  const double slope = p.at("slope").get<double>();
  const double angle = p.at("axis_angle_deg").get<double>();
  std::printf(
      "prediction against the data: r = %.4f, Q = %.4f, slope = %.4f, z axis %.2f deg "
      "from the fitted one; predicted Da(NH) = %.3f Hz, R = %.4f\n",
      r, p.at("q").get<double>(), slope, angle, p["tensor"]["da_hz"].get<double>(),
      p["tensor"]["rhombicity"].get<double>());
  EXPECT_GT(r, 0.9);
  EXPECT_LT(angle, 30.0);
  EXPECT_GE(angle, 0.0);

  // r, Q and slope recomputed from the couplings on the N-H scale.
  const Real dmax_nh = dmax_hz("N", "H", 1.02L);
  std::vector<Real> x, y;
  for (const json& c : set.at("couplings")) {
    ASSERT_TRUE(c.contains("predicted_hz"));
    const Real scale = dmax_nh / c.at("dmax_hz").get<double>();
    x.push_back(c.at("measured_hz").get<double>() * scale);
    y.push_back(c.at("predicted_hz").get<double>() * scale);
  }
  const Figures f = figures(x, y);
  EXPECT_NEAR(r, static_cast<double>(f.r), 1e-9);
  EXPECT_NEAR(p.at("q").get<double>(), static_cast<double>(f.q), 1e-9);
  EXPECT_NEAR(slope, static_cast<double>(f.slope), 1e-9);

  // The angle between the principal z axes of the two tensors.
  const json& a = set["tensor"]["eigenvectors"][0];
  const json& b = p["tensor"]["eigenvectors"][0];
  Real c = 0;
  for (int k = 0; k < 3; ++k) c += a[k].get<double>() * b[k].get<double>();
  EXPECT_NEAR(angle, static_cast<double>(acosl(std::min(1.0L, fabsl(c))) * 180 / acosl(-1.0L)),
              1e-6);
  // The fit itself does not change.
  const json plain = fit_json(quoted(kCif) + " " + quoted(kDc));
  EXPECT_EQ(plain["sets"][0]["tensor"], set["tensor"]);
}

TEST(FitCommand, ChargedPredictionBesideTheFit) {
  // Ubiquitin's Pf1 couplings of 2MJB against a Pf1 prediction of the two
  // first models of 1D3Z, coarse sampling for speed.
  const std::string pf1_dc = quoted(data_path("couplings/ubq_2mjb_t502_pf1.dc"));
  const std::string medium = "--medium pf1 --sampling 4,8,8 --models 1-2 ";
  const json doc = fit_json("--ensemble --predict " + medium + quoted(kCif) + " " + pf1_dc);
  const json& settings = doc.at("settings").at("prediction");
  EXPECT_EQ(settings.at("medium"), "pf1");
  EXPECT_EQ(settings.at("charge_density").get<double>(), -0.45);
  EXPECT_EQ(settings.at("obstacle_radius").get<double>(), 33.5);
  EXPECT_EQ(settings.at("charges"), "titration");
  EXPECT_EQ(settings.at("ph").get<double>(), 7.0);
  EXPECT_EQ(settings.at("sampling"), json::array({4, 8, 8}));

  // Per model: the charges and the elements of vorn predict on that model;
  // the prediction beside the fit is their mean.
  const RunResult predicted = run_vorn("predict --format json " + medium + quoted(kCif));
  ASSERT_EQ(predicted.status, 0) << predicted.err;
  const json models = json::parse(predicted.out).at("models");
  const json& p = doc.at("sets").at(0).at("prediction");
  ASSERT_EQ(p.at("charges").size(), 2u);
  std::array<double, 5> mean{};
  for (int k = 0; k < 2; ++k) {
    const json& c = p["charges"][k];
    EXPECT_EQ(c.at("model"), k + 1);
    EXPECT_EQ(c.at("net_charge").get<double>(), models[k].at("net_charge").get<double>());
    EXPECT_EQ(c.at("charged_groups"), models[k].at("charged_groups"));
    for (int j = 0; j < 5; ++j) mean[j] += models[k]["tensor"]["saupe"][j].get<double>() / 2;
  }
  for (int j = 0; j < 5; ++j)
    EXPECT_NEAR(p["tensor"]["saupe"][j].get<double>(), mean[j], 1e-15 + 1e-12 * std::fabs(mean[j]));

  // The text report names the medium and the charges of each model.
  const RunResult text =
      run_vorn("fit --ensemble --predict " + medium + quoted(kCif) + " " + pf1_dc);
  ASSERT_EQ(text.status, 0) << text.err;
  EXPECT_NE(text.out.find("prediction in pf1: obstacle 33.5 A, charge density -0.45 e/nm2, ionic "
                          "strength 0.15 M, 298.15 K, linear potential\n"),
            std::string::npos)
      << text.out;
  EXPECT_NE(text.out.find("  charged-obstacle prediction: Da(NH) = "), std::string::npos);
  EXPECT_NE(text.out.find("  charges of model 2: net "), std::string::npos);

  // An uncharged prediction reports as before: no medium in the settings,
  // no charges.
  const json steric =
      fit_json("--ensemble --predict --medium phage --sampling 4,8,8 --models 1-2 " + quoted(kCif) +
               " " + pf1_dc);
  EXPECT_FALSE(steric.at("settings").contains("prediction"));
  EXPECT_FALSE(steric["sets"][0].at("prediction").contains("charges"));
  // The phage's charge is what aligns ubiquitin in Pf1: the charged cylinder
  // follows the measured couplings far better than the steric one.
  const double charged_r = p.at("r").get<double>();
  const double steric_r = steric["sets"][0]["prediction"]["r"].get<double>();
  std::printf("Pf1 couplings against the prediction: charged pf1 r = %.3f, steric phage r = %.3f\n",
              charged_r, steric_r);
  EXPECT_GT(charged_r, steric_r + 0.2);
}

// The markers of an SVG plot.
int markers(const std::string& svg) {
  int n = 0;
  for (size_t at = svg.find("&#x25cf;"); at != std::string::npos; at = svg.find("&#x25cf;", at + 1))
    ++n;
  return n;
}

bool xmllint_accepts(const std::string& path) {
  const std::string command = std::string(VORN_XMLLINT) + " --noout " + quoted(path);
  const int status = std::system(command.c_str());
  return status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST(FitCommand, CorrelationPlots) {
  const std::string files = quoted(kCif) + " " + quoted(kDc);
  for (const bool predict : {false, true}) {
    SCOPED_TRACE(predict ? "with --predict" : "fit only");
    const std::string svg = temp_path(predict ? "p.svg" : "f.svg");
    const RunResult r = run_vorn("fit --format json --plot " + quoted(svg) +
                                 (predict ? " --predict " : " ") + files);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    const json doc = json::parse(r.out);
    const json& set = doc["sets"][0];
    const int couplings = static_cast<int>(set.at("couplings").size());
    const int series = static_cast<int>(set["quality"].at("per_type").size()) + (predict ? 1 : 0);
    EXPECT_EQ(couplings, 305);
    EXPECT_EQ(series, predict ? 6 : 5);
    ASSERT_TRUE(fs::exists(svg));
    EXPECT_TRUE(xmllint_accepts(svg));
    // One marker per coupling and series point, one legend sample per series.
    EXPECT_EQ(markers(read_file(svg)), (predict ? 2 : 1) * couplings + series);
    fs::remove(svg);
  }

  // Several sets: one file each, named by the set.
  const std::string base = temp_path("sets.svg");
  const RunResult r =
      run_vorn("fit --format json --plot " + quoted(base) + " " + quoted(kCif) + " " + quoted(kMr));
  ASSERT_EQ(r.status, 0) << r.err;
  const json doc = json::parse(r.out);
  for (const json& set : doc.at("sets")) {
    const std::string name = temp_path("sets_" + set.at("set").get<std::string>() + ".svg");
    ASSERT_TRUE(fs::exists(name)) << name;
    EXPECT_EQ(markers(read_file(name)),
              set.at("n").get<int>() + static_cast<int>(set["quality"]["per_type"].size()));
    fs::remove(name);
  }
  EXPECT_FALSE(fs::exists(base));

  // An extension no format has: exit 1, nothing written.
  const std::string out = temp_path("not_written.json");
  const std::string jpg = temp_path("x.jpg");
  const RunResult bad =
      run_vorn("fit --format json -o " + quoted(out) + " --plot " + quoted(jpg) + " " + files);
  EXPECT_EQ(bad.status, 1) << bad.err;
  EXPECT_EQ(bad.out, "");
  EXPECT_NE(bad.err.find("x.jpg"), std::string::npos) << bad.err;
  EXPECT_FALSE(fs::exists(out));
  EXPECT_FALSE(fs::exists(jpg));
  fs::remove(out);
  fs::remove(jpg);
}

std::vector<std::string> split_csv(const std::string& line) {
  std::vector<std::string> fields;
  std::string field;
  std::istringstream in(line);
  while (std::getline(in, field, ',')) fields.push_back(field);
  if (!line.empty() && line.back() == ',') fields.push_back("");
  return fields;
}

void expect_csv_is_json(const std::string& args) {
  SCOPED_TRACE(args);
  const RunResult csv = run_vorn("fit --format csv " + args);
  ASSERT_EQ(csv.status, 0) << csv.err;
  EXPECT_EQ(csv.out.find('"'), std::string::npos);  // nothing here needs quoting
  const json doc = fit_json(args);
  std::istringstream rows(csv.out);
  std::string line;
  std::getline(rows, line);
  EXPECT_EQ(line,
            "set,models,chain1,residue1,atom1,chain2,residue2,atom2,type,measured_hz,error_hz,"
            "calculated_hz,residual_hz,predicted_hz");
  int count = 0;
  for (const json& set : doc.at("sets")) {
    std::string models;
    for (const json& m : set.at("models"))
      models += (models.empty() ? "" : " ") + std::to_string(m.get<int>());
    for (const json& c : set.at("couplings")) {
      ++count;
      ASSERT_TRUE(std::getline(rows, line));
      const std::vector<std::string> f = split_csv(line);
      ASSERT_EQ(f.size(), 14u) << line;
      EXPECT_EQ(f[0], set.at("set").get<std::string>());
      EXPECT_EQ(f[1], models);
      EXPECT_EQ(f[2], c.at("chain1").get<std::string>());
      EXPECT_EQ(std::stoi(f[3]), c.at("residue1").get<int>());
      EXPECT_EQ(f[4], c.at("atom1").get<std::string>());
      EXPECT_EQ(f[5], c.at("chain2").get<std::string>());
      EXPECT_EQ(std::stoi(f[6]), c.at("residue2").get<int>());
      EXPECT_EQ(f[7], c.at("atom2").get<std::string>());
      EXPECT_EQ(f[8], c.at("type").get<std::string>());
      EXPECT_EQ(std::stod(f[9]), c.at("measured_hz").get<double>());
      if (c.at("error_hz").is_null()) {
        EXPECT_EQ(f[10], "");
      } else {
        EXPECT_EQ(std::stod(f[10]), c["error_hz"].get<double>());
      }
      EXPECT_EQ(std::stod(f[11]), c.at("calculated_hz").get<double>());
      EXPECT_EQ(std::stod(f[12]), c.at("residual_hz").get<double>());
      if (c.contains("predicted_hz")) {
        EXPECT_EQ(std::stod(f[13]), c["predicted_hz"].get<double>());
      } else {
        EXPECT_EQ(f[13], "");
      }
    }
  }
  EXPECT_FALSE(std::getline(rows, line)) << line;
  EXPECT_GT(count, 0);
}

TEST(FitCommand, CsvRowsAreTheJsonCouplings) {
  expect_csv_is_json(quoted(kCif) + " " + quoted(kMr));
  expect_csv_is_json("--predict " + quoted(kCif) + " " + quoted(kDc));
  expect_csv_is_json("--per-model --models 1,3 " + quoted(kCif) + " " + quoted(kDc));
}

TEST(FitCommand, DroppingOutliers) {
  // The measured couplings with one N-H value (residue 12) moved by 8 Hz,
  // ten times the rmsd of the N-H couplings of the fit.
  const std::string moved = temp_path("moved.dc");
  {
    std::ifstream in(kDc);
    std::ofstream out(moved);
    for (std::string line; std::getline(in, line);) {
      std::istringstream f(line);
      int res = 0, type = 0;
      double value = 0;
      if (f >> res >> value >> type && res == 12 && type == 0) {
        out << res << " " << value + 8.0 << " " << type << "\n";
      } else {
        out << line << "\n";
      }
    }
  }
  const std::string files = quoted(kCif) + " " + quoted(moved);
  const json kept = fit_json(files);
  const json dropped = fit_json("--drop-outliers " + files);
  const json& a = kept["sets"][0];
  const json& b = dropped["sets"][0];
  const size_t outliers = a.at("outliers").size();
  ASSERT_GT(outliers, 0u);
  bool moved_listed = false;
  for (const json& o : a["outliers"]) moved_listed |= o["residue2"] == 12 && o["type"] == "N-H";
  EXPECT_TRUE(moved_listed);
  EXPECT_FALSE(a.at("outliers_dropped").get<bool>());
  EXPECT_TRUE(b.at("outliers_dropped").get<bool>());
  EXPECT_EQ(b.at("outliers"), a.at("outliers"));
  EXPECT_EQ(b.at("n").get<size_t>(), a.at("n").get<size_t>() - outliers);
  EXPECT_EQ(b.at("couplings").size(), b["n"].get<size_t>());
  // The outliers: residual above 3 rmsd of the fit over the coupling's type
  // (no errors given), and gone from the refit.
  std::map<std::string, std::pair<Real, int>> per_type;
  for (const json& c : a["couplings"]) {
    auto& [d2, n] = per_type[c["type"].get<std::string>()];
    d2 += powl(c["residual_hz"].get<double>(), 2);
    ++n;
  }
  std::set<std::string> flagged;
  for (const json& c : a["couplings"]) {
    const std::string key =
        std::to_string(c["residue2"].get<int>()) + " " + c["type"].get<std::string>();
    const auto& [d2, n] = per_type[c["type"].get<std::string>()];
    if (fabsl(c["residual_hz"].get<double>()) > 3 * sqrtl(d2 / n)) flagged.insert(key);
  }
  std::set<std::string> listed;
  for (const json& o : a["outliers"])
    listed.insert(std::to_string(o["residue2"].get<int>()) + " " + o["type"].get<std::string>());
  EXPECT_EQ(listed, flagged);
  for (const json& c : b["couplings"]) {
    EXPECT_EQ(
        listed.count(std::to_string(c["residue2"].get<int>()) + " " + c["type"].get<std::string>()),
        0u);
  }
  std::printf("%zu outliers; Q %.4f -> %.4f after dropping them\n", outliers,
              a["quality"]["q"].get<double>(), b["quality"]["q"].get<double>());
  EXPECT_LT(b["quality"]["q"].get<double>(), a["quality"]["q"].get<double>());
}

// ---------------------------------------------------------------------------
// Hand-made coupling files on model 1 of ubiquitin.

struct HandCoupling {
  std::string chain;  // as written in the table ("-" for none)
  int res1;
  std::string atom1;  // as written
  int res2;
  std::string atom2;
  std::vector<std::string> protons2;  // the atoms atom2 stands for (pseudo-atoms)
  std::string type;                   // the label vorn gives it
  bool methyl_axis = false;
  Real standard = 0;  // 0: the structure's distance
};

std::vector<HandCoupling> hand_couplings() {
  std::vector<HandCoupling> c;
  for (int i : {2, 3, 4, 5, 6, 7, 12, 13, 14, 15, 17, 18, 20, 21, 22})
    c.push_back({i % 2 ? "A" : "-", i, "N", i, "H", {"H"}, "N-H", false, 1.02L});
  for (int i : {2, 3, 4, 5, 6, 7, 8, 9, 11, 12, 13, 14})
    c.push_back({"A", i, "CA", i, "HA", {"HA"}, "CA-HA", false, 1.09L});
  // Alanine 28 and 46: the methyl protons as a pseudo-atom, and the methyl
  // symmetry axis CB-CA on the C-H scale.
  for (int i : {28, 46}) {
    c.push_back({"A", i, "CB", i, "HB#", {"HB1", "HB2", "HB3"}, "CB-HB#", false, 1.09L});
    c.push_back({"A", i, "CB", i, "CA", {"CA"}, "methyl", true, 1.09L});
  }
  // Valine 26: one of its methyl groups through its pseudo-atom; methionine
  // 1: the CE-SD methyl axis.
  c.push_back({"A", 26, "CG1", 26, "HG1#", {"HG11", "HG12", "HG13"}, "CG1-HG1#", false, 1.09L});
  c.push_back({"-", 1, "CE", 1, "SD", {"SD"}, "methyl", true, 1.09L});
  // A pair without a standard length: the structure's distance.
  c.push_back({"A", 30, "N", 30, "CB", {"CB"}, "N-CB", false, 0});
  return c;
}

// The design of a hand-made coupling in model 1: the mean over the protons.
Row hand_design(const Model& m, const HandCoupling& c, Real* distance = nullptr) {
  const Residue& r1 = m.at(c.res1);
  const Residue& r2 = m.at(c.res2);
  const Vec a = r1.atoms.at(c.atom1);
  if (c.methyl_axis) {
    if (distance != nullptr) *distance = 1.09L;
    return design(difference(a, r2.atoms.at(c.atom2)), dmax_hz("C", "H", 1.09L));
  }
  Row mean{};
  for (const std::string& p : c.protons2) {
    const Vec b = r2.atoms.at(p);
    const Real length = c.standard > 0 ? c.standard : norm(difference(a, b));
    if (distance != nullptr) *distance = length;
    const Row one =
        design(difference(a, b), dmax_hz(r1.elements.at(c.atom1), r2.elements.at(p), length));
    for (int k = 0; k < 5; ++k) mean[k] += one[k] / c.protons2.size();
  }
  return mean;
}

// Checks a fitted set of the hand-made couplings: types, distances, and
// every back-calculated value against the design computed here with the
// fitted elements.
void expect_hand_set(const json& set, const std::vector<HandCoupling>& hand) {
  const Model& m = ubiquitin_models().at(0);
  const Elements s = saupe_of(set);
  const json& rows = set.at("couplings");
  ASSERT_EQ(rows.size(), hand.size());
  for (size_t i = 0; i < hand.size(); ++i) {
    SCOPED_TRACE(hand[i].atom1 + " " + std::to_string(hand[i].res1) + " " + hand[i].atom2);
    EXPECT_EQ(rows[i].at("type"), hand[i].type);
    EXPECT_EQ(rows[i].at("atom2"), hand[i].atom2);
    Real distance = 0;
    const Row d = hand_design(m, hand[i], &distance);
    EXPECT_NEAR(rows[i].at("distance").get<double>(), static_cast<double>(distance), 1e-9);
    const Real calc = dot(d, s);
    EXPECT_NEAR(rows[i].at("calculated_hz").get<double>(), static_cast<double>(calc),
                1e-9 * (fabsl(calc) + 1e-3));
  }
}

TEST(FitCommand, HandMadeTableWithPseudoAtomsAndMethylAxes) {
  const Model& m = ubiquitin_models().at(0);
  const std::vector<HandCoupling> hand = hand_couplings();
  // Values: exactly those of a known tensor (the fit of the classic file).
  const Elements truth = fit_classic(read_classic(kDc), {&m});
  const std::string path = temp_path("hand.tbl");
  {
    std::ofstream f(path);
    f << "# chain res atom chain res atom value error\n";
    for (const HandCoupling& c : hand) {
      char line[200];
      std::snprintf(line, sizeof line, "%s %d %s %s %d %s %.15Lg 0.5\n", c.chain.c_str(), c.res1,
                    c.atom1.c_str(), c.chain.c_str(), c.res2, c.atom2.c_str(),
                    dot(hand_design(m, c), truth));
      f << line;
    }
  }
  const json doc = fit_json(quoted(kCif) + " " + quoted(path));
  fs::remove(path);
  ASSERT_EQ(doc.at("sets").size(), 1u);
  EXPECT_EQ(doc["input"].at("couplings_format"), "table");
  const json& set = doc["sets"][0];
  EXPECT_TRUE(set.at("weighted").get<bool>());
  expect_hand_set(set, hand);
  // Exact data: the known tensor comes back.
  expect_same_elements(saupe_of(set), truth, 1e-9L, "hand-made table");

  // The pseudo-atom is the mean of its three C-H couplings, not one of them.
  const auto it = std::find_if(hand.begin(), hand.end(),
                               [](const HandCoupling& c) { return c.atom2 == "HB#"; });
  ASSERT_NE(it, hand.end());
  const HandCoupling& pseudo = *it;
  HandCoupling one = pseudo;
  one.protons2 = {"HB1"};
  const Real mean = dot(hand_design(m, pseudo), truth);
  const Real single = dot(hand_design(m, one), truth);
  std::printf("ALA 28 CB-HB#: mean of the three C-H couplings %.3f Hz (HB1 alone %.3f Hz)\n",
              static_cast<double>(mean), static_cast<double>(single));
  EXPECT_GT(fabsl(mean - single), 1.0L);
}

TEST(FitCommand, HandMadeXplorSetIsWeightedByItsErrors) {
  const Model& m = ubiquitin_models().at(0);
  const std::vector<HandCoupling> hand = hand_couplings();
  const Elements truth = fit_classic(read_classic(kDc), {&m});
  const std::string path = temp_path("hand.mr");
  std::vector<Row> a;
  std::vector<Real> b, w;
  {
    std::ofstream f(path);
    f << "! a hand-made set\n";
    for (size_t k = 0; k < hand.size(); ++k) {
      const HandCoupling& c = hand[k];
      const Row d = hand_design(m, c);
      // Values moved off the tensor by fixed amounts; errors of three sizes.
      const Real error = 0.4L + 0.3L * (k % 3);
      char numbers[64];
      std::snprintf(numbers, sizeof numbers, "%.12Lf %.3Lf", dot(d, truth) + 0.8L * sinl(k + 1.0L),
                    error);
      const std::string xplor_name = c.atom2 == "H" ? "HN" : c.atom2;
      f << "assign ( resid 600 and name OO )\n       ( resid 600 and name Z )\n"
        << "       ( resid 600 and name X )\n       ( resid 600 and name Y )\n"
        << "       ( resid " << c.res1 << " and name " << c.atom1 << " )\n"
        << "       ( resid " << c.res2 << " and name " << xplor_name << " ) " << numbers << "\n";
      a.push_back(d);
      b.push_back(std::stold(std::string(numbers)));
      w.push_back(1 / (error * error));
    }
  }
  const json weighted = fit_json(quoted(kCif) + " " + quoted(path));
  const json unweighted = fit_json("--unweighted " + quoted(kCif) + " " + quoted(path));
  fs::remove(path);
  ASSERT_EQ(weighted.at("sets").size(), 1u);
  ASSERT_EQ(unweighted.at("sets").size(), 1u);
  EXPECT_EQ(weighted["input"].at("couplings_format"), "xplor");
  const json& ws = weighted["sets"][0];
  const json& us = unweighted["sets"][0];
  EXPECT_EQ(ws.at("set"), "600");
  EXPECT_TRUE(ws.at("weighted").get<bool>());
  EXPECT_FALSE(us.at("weighted").get<bool>());
  EXPECT_TRUE(weighted["settings"].at("weighted").get<bool>());
  EXPECT_FALSE(unweighted["settings"].at("weighted").get<bool>());
  // HN is read as H.
  expect_hand_set(ws, hand);
  expect_hand_set(us, hand);
  expect_same_elements(saupe_of(ws), least_squares(a, b, w), 1e-9L, "weighted");
  expect_same_elements(saupe_of(us), least_squares(a, b), 1e-9L, "unweighted");
  // The weights matter here.
  EXPECT_NE(ws["tensor"]["saupe"], us["tensor"]["saupe"]);
}

// ---------------------------------------------------------------------------
// Conventions: bond lengths, methylene pseudo-atoms, one-sided restraints.

const std::string kPdb2mjb = data_path("structures/ubq_2mjb_m1.pdb");

Real figure(const json& quality, const char* name) { return quality.at(name).get<double>(); }

// --bond-lengths effective: the N-H constants at 1.041 A instead of 1.02 A,
// (1.02/1.041)^3 of the standard ones; every other coupling as before; the
// fit is the least-squares solution with those constants.
TEST(FitCommand, EffectiveLengthsScaleTheNHConstant) {
  const json standard = fit_json(quoted(kCif) + " " + quoted(kDc));
  const json effective = fit_json("--bond-lengths effective " + quoted(kCif) + " " + quoted(kDc));
  EXPECT_EQ(standard.at("settings").at("bond_lengths"), "standard");
  EXPECT_EQ(effective.at("settings").at("bond_lengths"), "effective");
  const Model& model = ubiquitin_models().at(0);
  const std::vector<ClassicCoupling> couplings = read_classic(kDc);
  const json& standard_rows = standard["sets"][0].at("couplings");
  const json& effective_rows = effective["sets"][0].at("couplings");
  ASSERT_EQ(standard_rows.size(), couplings.size());
  ASSERT_EQ(effective_rows.size(), couplings.size());
  const Real nh_scale = powl(1.02L / 1.041L, 3);
  std::vector<Row> a;
  std::vector<Real> b;
  for (size_t i = 0; i < couplings.size(); ++i) {
    const ClassicCoupling& c = couplings[i];
    SCOPED_TRACE(std::to_string(c.residue) + " type " + std::to_string(c.type));
    const Real scale = c.type == 0 ? nh_scale : 1.0L;
    Row d = classic_design(model, c);
    for (Real& x : d) x *= scale;
    a.push_back(d);
    b.push_back(c.value);
    EXPECT_NEAR(effective_rows[i].at("dmax_hz").get<double>() /
                    standard_rows[i].at("dmax_hz").get<double>(),
                static_cast<double>(scale), 1e-12);
    EXPECT_NEAR(effective_rows[i].at("distance").get<double>(),
                c.type == 0 ? 1.041 : static_cast<double>(pair_of(c).distance), 1e-12);
  }
  expect_same_elements(saupe_of(effective["sets"][0]), least_squares(a, b), 1e-9L,
                       "effective lengths");

  // The backbone data of 1d3z model 1: Q(Da) is 0.066 with the standard
  // lengths; the effective N-H length moves Q and Q(Da) by less than 0.005
  // overall, and brings the N-H couplings closer (N-H Q 0.099 -> 0.063).
  const json& qs = standard["sets"][0].at("quality");
  const json& qe = effective["sets"][0].at("quality");
  EXPECT_NEAR(figure(qs, "q"), 0.104, 0.002);
  EXPECT_NEAR(figure(qs, "q_da"), 0.066, 0.002);
  EXPECT_NEAR(figure(qe, "q"), 0.101, 0.002);
  EXPECT_NEAR(figure(qe, "q_da"), 0.064, 0.002);
  EXPECT_LT(fabsl(figure(qe, "q") - figure(qs, "q")), 0.005L);
  const json& nh_s = qs.at("per_type").at("N-H");
  const json& nh_e = qe.at("per_type").at("N-H");
  EXPECT_NEAR(figure(nh_s, "q"), 0.099, 0.002);
  EXPECT_NEAR(figure(nh_e, "q"), 0.063, 0.002);
  EXPECT_LT(figure(nh_e, "q"), figure(nh_s, "q"));
  std::printf(
      "1d3z m1, 305 couplings: Q %.4f, Q(Da) %.4f (standard); Q %.4f, Q(Da) %.4f (effective)\n",
      static_cast<double>(figure(qs, "q")), static_cast<double>(figure(qs, "q_da")),
      static_cast<double>(figure(qe, "q")), static_cast<double>(figure(qe, "q_da")));
}

// A coupling to a pseudo-atom of two protons is the sum of their couplings
// with --methylene sum (the default) and the mean with --methylene mean; a
// methyl's three protons are averaged either way.
TEST(FitCommand, MethyleneSumIsTwiceTheMean) {
  const Model& m = ubiquitin_models().at(0);
  std::vector<HandCoupling> hand = hand_couplings();
  hand.push_back({"A", 8, "CB", 8, "HB#", {"HB2", "HB3"}, "CB-HB#", false, 1.09L});
  hand.push_back({"A", 1, "CG", 1, "HG#", {"HG2", "HG3"}, "CG-HG#", false, 1.09L});
  hand.push_back({"-", 10, "CA", 10, "HA#", {"HA2", "HA3"}, "CA-HA#", false, 1.09L});
  hand.push_back({"A", 63, "CB", 63, "HB#", {"HB2", "HB3"}, "CB-HB#", false, 1.09L});
  const auto design_of = [&](const HandCoupling& c, bool sum) {
    Row d = hand_design(m, c);
    if (sum && c.protons2.size() == 2)
      for (Real& x : d) x *= 2;
    return d;
  };
  // Values: exactly those of a known tensor with the methylene couplings
  // summed.
  const Elements truth = fit_classic(read_classic(kDc), {&m});
  const std::string path = temp_path("methylene.tbl");
  std::vector<Real> values;
  {
    std::ofstream f(path);
    for (const HandCoupling& c : hand) {
      values.push_back(dot(design_of(c, true), truth));
      char line[200];
      std::snprintf(line, sizeof line, "%s %d %s %s %d %s %.15Lg\n", c.chain.c_str(), c.res1,
                    c.atom1.c_str(), c.chain.c_str(), c.res2, c.atom2.c_str(), values.back());
      f << line;
    }
  }
  const json sum = fit_json(quoted(kCif) + " " + quoted(path));
  const json mean = fit_json("--methylene mean " + quoted(kCif) + " " + quoted(path));
  fs::remove(path);
  EXPECT_EQ(sum.at("settings").at("methylene"), "sum");
  EXPECT_EQ(mean.at("settings").at("methylene"), "mean");
  const json& s = sum["sets"][0];
  const json& a = mean["sets"][0];
  ASSERT_EQ(s.at("couplings").size(), hand.size());
  ASSERT_EQ(a.at("couplings").size(), hand.size());
  // The sum reproduces the tensor the values came from; the mean is the
  // least-squares solution with half the methylene rows.
  expect_same_elements(saupe_of(s), truth, 1e-9L, "methylene sum");
  std::vector<Row> rows;
  for (const HandCoupling& c : hand) rows.push_back(design_of(c, false));
  expect_same_elements(saupe_of(a), least_squares(rows, values), 1e-9L, "methylene mean");

  const Real dmax_ch = dmax_hz("C", "H", 1.09L);
  int methylenes = 0;
  for (size_t i = 0; i < hand.size(); ++i) {
    const HandCoupling& c = hand[i];
    SCOPED_TRACE(c.atom1 + " " + std::to_string(c.res1) + " " + c.atom2);
    const bool two = c.protons2.size() == 2;
    methylenes += two;
    const json& rs = s["couplings"][i];
    const json& ra = a["couplings"][i];
    EXPECT_EQ(rs.at("type"), c.type);
    // The row doubles, and so does its constant.
    EXPECT_NEAR(rs.at("dmax_hz").get<double>() / ra.at("dmax_hz").get<double>(), two ? 2.0 : 1.0,
                1e-12);
    if (two) {
      EXPECT_NEAR(rs["dmax_hz"].get<double>(), static_cast<double>(2 * dmax_ch), 1e-6);
    }
    const Real calc_sum = dot(design_of(c, true), saupe_of(s));
    const Real calc_mean = dot(design_of(c, false), saupe_of(a));
    EXPECT_NEAR(rs.at("calculated_hz").get<double>(), static_cast<double>(calc_sum),
                1e-9 * (fabsl(calc_sum) + 1e-3));
    EXPECT_NEAR(ra.at("calculated_hz").get<double>(), static_cast<double>(calc_mean),
                1e-9 * (fabsl(calc_mean) + 1e-3));
  }
  EXPECT_EQ(methylenes, 4);
}

// X-PLOR restraints with the error columns "0 100" or "100 0" bound their
// coupling on one side only: left out by default, fitted as values without
// an error with --one-sided keep. Symmetric or narrow error columns are
// errors as before.
TEST(FitCommand, OneSidedRestraints) {
  const Model& m = ubiquitin_models().at(0);
  std::vector<HandCoupling> hand = hand_couplings();
  hand.resize(27);  // the N-H and CA-HA couplings
  const Elements truth = fit_classic(read_classic(kDc), {&m});
  const std::string path = temp_path("bounds.mr");
  std::vector<Row> a;
  std::vector<Real> b;
  std::set<size_t> bounded = {3, 9, 16, 22};
  {
    std::ofstream f(path);
    for (size_t k = 0; k < hand.size(); ++k) {
      const HandCoupling& c = hand[k];
      const Row d = hand_design(m, c);
      const Real exact = dot(d, truth);
      // A bound at half the coupling: met by the tensor, but not its value.
      const bool one_sided = bounded.count(k) > 0;
      const Real value = one_sided ? exact / 2 : exact;
      const char* columns = !one_sided  ? (k == 5 ? "0.3 0.6" : "0.5 0.5")
                            : value > 0 ? "0 100"
                                        : "100 0";
      char numbers[80];
      std::snprintf(numbers, sizeof numbers, "%.12Lf %s", value, columns);
      const std::string xplor_name = c.atom2 == "H" ? "HN" : c.atom2;
      f << "assign ( resid 600 and name OO )\n       ( resid 600 and name Z )\n"
        << "       ( resid 600 and name X )\n       ( resid 600 and name Y )\n"
        << "       ( resid " << c.res1 << " and name " << c.atom1 << " )\n"
        << "       ( resid " << c.res2 << " and name " << xplor_name << " ) " << numbers << "\n";
      a.push_back(d);
      b.push_back(std::stold(std::string(numbers)));
    }
  }
  const json skip = fit_json(quoted(kCif) + " " + quoted(path));
  const json keep = fit_json("--one-sided keep " + quoted(kCif) + " " + quoted(path));
  const RunResult text = run_vorn("fit " + quoted(kCif) + " " + quoted(path));
  fs::remove(path);
  EXPECT_EQ(skip.at("settings").at("one_sided"), "skip");
  EXPECT_EQ(keep.at("settings").at("one_sided"), "keep");
  const json& s = skip["sets"][0];
  const json& k = keep["sets"][0];

  // Left out: the exact values give back the tensor, weighted by their
  // errors.
  EXPECT_EQ(s.at("n").get<size_t>(), hand.size() - bounded.size());
  EXPECT_EQ(s.at("one_sided_skipped").get<size_t>(), bounded.size());
  EXPECT_TRUE(s.at("weighted").get<bool>());
  expect_same_elements(saupe_of(s), truth, 1e-9L, "one-sided left out");
  for (const json& c : s.at("couplings")) EXPECT_FALSE(c.at("one_sided").get<bool>());
  EXPECT_NE(text.out.find("4 one-sided restraints left out (--one-sided keep fits them)"),
            std::string::npos)
      << text.out;

  // Kept: the bounds are fitted as values, and with no error the fit is
  // unweighted: the plain least-squares solution of every row.
  EXPECT_EQ(k.at("n").get<size_t>(), hand.size());
  EXPECT_EQ(k.at("one_sided_skipped").get<size_t>(), 0u);
  EXPECT_FALSE(k.at("weighted").get<bool>());
  expect_same_elements(saupe_of(k), least_squares(a, b), 1e-9L, "one-sided kept");
  ASSERT_EQ(k.at("couplings").size(), hand.size());
  for (size_t i = 0; i < hand.size(); ++i) {
    const json& c = k["couplings"][i];
    SCOPED_TRACE(i);
    EXPECT_EQ(c.at("one_sided").get<bool>(), bounded.count(i) > 0);
    if (i == 5) {  // asymmetric but closed on both sides
      EXPECT_DOUBLE_EQ(c.at("error_hz").get<double>(), 0.3);
      EXPECT_DOUBLE_EQ(c.at("error_plus_hz").get<double>(), 0.6);
    }
    if (bounded.count(i) > 0) {
      const bool positive = c.at("measured_hz").get<double>() > 0;
      EXPECT_DOUBLE_EQ(c.at("error_hz").get<double>(), positive ? 0.0 : 100.0);
      EXPECT_DOUBLE_EQ(c.at("error_plus_hz").get<double>(), positive ? 100.0 : 0.0);
    }
  }
}

// The deposited 2MJB restraints of set 500 on model 1 of 2MJB, with signs
// fixed and outliers dropped: the figures with each convention (see
// docs/fit-conventions.md), and what they mean physically.
TEST(FitCommand, Deposited2mjbRestraintsWithTheirConventions) {
  const std::string files = quoted(kPdb2mjb) + " " + quoted(kMr);
  const std::string fixed = "--set 500 --fix-sign --drop-outliers ";
  const json after = fit_json(fixed + files);
  const json before = fit_json(fixed + "--methylene mean --one-sided keep " + files);
  const json effective = fit_json(fixed + "--bond-lengths effective " + files);
  const json mean = fit_json(fixed + "--methylene mean " + files);
  const json& s = after.at("sets").at(0);
  const json& p = before.at("sets").at(0);
  const json& e = effective.at("sets").at(0);
  const json& m = mean.at("sets").at(0);
  EXPECT_EQ(after.at("settings").at("methylene"), "sum");
  EXPECT_EQ(after.at("settings").at("one_sided"), "skip");
  EXPECT_EQ(after.at("settings").at("bond_lengths"), "standard");

  const auto expect_figures = [](const json& set, int n, double q, double q_da, double nh_q,
                                 double nh_q_da, double da, double r, const char* what) {
    SCOPED_TRACE(what);
    const json& quality = set.at("quality");
    const json& nh = quality.at("per_type").at("N-H");
    EXPECT_EQ(quality.at("n").get<int>(), n);
    EXPECT_NEAR(quality.at("q").get<double>(), q, 0.003);
    EXPECT_NEAR(quality.at("q_da").get<double>(), q_da, 0.003);
    EXPECT_NEAR(nh.at("q").get<double>(), nh_q, 0.003);
    EXPECT_NEAR(nh.at("q_da").get<double>(), nh_q_da, 0.003);
    EXPECT_NEAR(set.at("tensor").at("da_hz").get<double>(), da, 0.03);
    EXPECT_NEAR(set.at("tensor").at("rhombicity").get<double>(), r, 0.003);
    std::printf(
        "%s: n %d, Q %.4f, Q(Da) %.4f, N-H Q %.4f, N-H Q(Da) %.4f, Da(NH) %.3f Hz, R %.4f\n", what,
        quality["n"].get<int>(), quality["q"].get<double>(), quality["q_da"].get<double>(),
        nh["q"].get<double>(), nh["q_da"].get<double>(), set["tensor"]["da_hz"].get<double>(),
        set["tensor"]["rhombicity"].get<double>());
  };
  expect_figures(p, 483, 0.259, 0.160, 0.125, 0.077, 9.70, 0.139, "mean, one-sided kept");
  expect_figures(s, 393, 0.119, 0.075, 0.106, 0.067, 9.58, 0.162, "defaults");
  expect_figures(e, 393, 0.116, 0.073, 0.068, 0.045, 9.65, 0.162, "effective lengths");
  EXPECT_EQ(s.at("one_sided_skipped").get<int>(), 91);
  EXPECT_EQ(p.at("one_sided_skipped").get<int>(), 0);

  // Without the one-sided bounds and with the methylene sums the data fit
  // less than half as badly; every coupling left is two-sided.
  EXPECT_LT(s["quality"]["q"].get<double>(), 0.5 * p["quality"]["q"].get<double>());
  for (const json& c : s.at("couplings")) EXPECT_FALSE(c.at("one_sided").get<bool>());
  // The 21 two-sided CB-HB# couplings are sums: as sums they fit as well as
  // the backbone, as means four times worse.
  const json& sum_hb = s["quality"]["per_type"].at("CB-HB#");
  const json& mean_hb = m["quality"]["per_type"].at("CB-HB#");
  EXPECT_EQ(sum_hb.at("n").get<int>(), 21);
  EXPECT_LT(sum_hb.at("q").get<double>(), 0.1);
  EXPECT_GT(mean_hb.at("q").get<double>(), 0.4);
  // The two-sided methyl couplings, taken on the axis on the C-H scale.
  const json& methyl = s["quality"]["per_type"].at("methyl");
  EXPECT_EQ(methyl.at("n").get<int>(), 18);
  EXPECT_LT(methyl.at("q").get<double>(), 0.1);
  // N-H: below 0.11, and below 0.08 with the effective N-H length.
  EXPECT_LT(s["quality"]["per_type"]["N-H"]["q"].get<double>(), 0.11);
  EXPECT_LT(e["quality"]["per_type"]["N-H"]["q"].get<double>(), 0.08);

  // Only the methylene rows change with --methylene: the other constants
  // stay, those of CB-HB# double.
  ASSERT_EQ(s["couplings"].size(), m["couplings"].size() - 1);  // mean: no outlier
  std::map<long, double> mean_dmax;
  for (const json& c : m["couplings"]) mean_dmax[c["line"].get<long>()] = c["dmax_hz"];
  for (const json& c : s["couplings"]) {
    const double ratio = c["dmax_hz"].get<double>() / mean_dmax.at(c["line"].get<long>());
    EXPECT_DOUBLE_EQ(ratio, c["type"] == "CB-HB#" ? 2.0 : 1.0) << c["line"];
  }

  // The backbone alone has neither methylenes nor bounds: the options leave
  // its fit as it is.
  const std::string backbone = "--set 500 --fix-sign --types N-H,CA-HA,CA-C,C-N,C-HN ";
  const json plain = fit_json(backbone + files);
  const json other = fit_json(backbone + "--methylene mean --one-sided keep " + files);
  EXPECT_EQ(plain["sets"][0].at("n"), 305);
  EXPECT_EQ(plain["sets"][0].at("tensor").at("saupe"), other["sets"][0].at("tensor").at("saupe"));
}

}  // namespace
}  // namespace vorn
