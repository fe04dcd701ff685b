// `vorn predict` run as a program: its JSON read back and checked key by key
// against the classic run's own steps, the library and independent
// arithmetic; the other formats and options against the JSON.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "capture.hpp"
#include "classic/config.hpp"
#include "classic/limits.hpp"
#include "classic/pdb_reader.hpp"
#include "classic/selection.hpp"
#include "run_command.hpp"
#include "vorn/charges.hpp"
#include "vorn/classic.hpp"
#include "vorn/predict.hpp"
#include "vorn/statistics.hpp"
#include "vorn/tensor.hpp"

namespace vorn {
namespace {

using json = nlohmann::json;
using test::data_path;

using RunResult = test::CommandResult;

// Runs vorn with the arguments (a shell word list) and captures stdout.
RunResult run_vorn(const std::string& args) {
  return test::run_command(std::string(VORN_BINARY) + " " + args);
}

json predict_json(const std::string& args) {
  const RunResult r = run_vorn("predict --format json " + args);
  EXPECT_EQ(r.status, 0) << args;
  return json::parse(r.out);
}

SaupeElements saupe_of(const json& model) {
  SaupeElements s{};
  const json& a = model.at("tensor").at("saupe");
  EXPECT_EQ(a.size(), 5u);
  for (int i = 0; i < 5; ++i) s[i] = a.at(i).get<double>();
  return s;
}

bool same_bits(const SaupeElements& a, const SaupeElements& b) {
  return std::memcmp(a.data(), b.data(), sizeof a) == 0;
}

// The classic run's elements for a classic-layout file and an auto file:
// auto file, reader, selection, prediction with the classic capacities.
SaupeElements classic_saupe(const std::string& file, const std::string& auto_text) {
  Settings settings;
  test::Input auto_file(auto_text);
  int flags[kOptionSlots] = {};
  FILE* files[kOptionSlots] = {};
  flags[1] = 1;
  files[1] = auto_file.release();
  test::Capture out, err;
  test::Input in("");
  Io io{in.file(), out.file(), err.file()};
  read_auto(settings, flags, files, io);
  refine_bicelle(settings);
  AtomArrays atoms;
  const int total = reading_PDBfile(data_path(file).c_str(), atoms, out.file());
  const int n = select_atoms(total, atoms, settings, io);
  std::vector<Vec3> positions;
  for (int i = 1; i <= n; ++i) positions.push_back({atoms.x[i], atoms.y[i], atoms.z[i]});
  ClassicLimits limits;
  limits.max_grid_index = kGridSlots - 1;
  limits.orientation_limit = kOrientationLimit;
  return classic_predict(settings, positions, limits);
}

std::string quoted(const std::string& path) { return "'" + path + "'"; }

std::string temp_path(const std::string& name) {
  return (std::filesystem::temp_directory_path() /
          ("vorn_predict_test_" + std::to_string(getpid()) + "_" + name))
      .string();
}

std::string gzip_copy(const std::string& from, const std::string& name) {
  std::ifstream in(from, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  const std::string path = temp_path(name);
  gzFile f = gzopen(path.c_str(), "wb");
  const std::string s = text.str();
  gzwrite(f, s.data(), static_cast<unsigned>(s.size()));
  gzclose(f);
  return path;
}

const std::string kUbq = quoted(data_path("structures/ubq_1d3z_m1.pdb"));
const std::string kUbqRaw = quoted(data_path("raw/1UBQ_raw.pdb"));
const std::string kBundleCif = quoted(data_path("raw/1d3z.cif"));

TEST(PredictCommand, DefaultRunIsTheClassicRunInBicelles) {
  const json doc = predict_json(kUbq);
  const SaupeElements classic = classic_saupe("structures/ubq_1d3z_m1.pdb",
                                              "ANISOTROPIC_MEDIUM: 1\nLIPID_CONCENTRATION: 0.05\n");
  ASSERT_EQ(doc.at("models").size(), 1u);
  EXPECT_TRUE(same_bits(saupe_of(doc["models"][0]), classic));
  // The classic reference report of this run prints Da(NH) = 13.2 Hz and
  // R = 0.210.
  EXPECT_NEAR(doc["models"][0]["tensor"]["da_hz"].get<double>(), 13.2, 0.05);
  EXPECT_NEAR(doc["models"][0]["tensor"]["rhombicity"].get<double>(), 0.210, 0.0005);
}

TEST(PredictCommand, JsonKeyByKey) {
  const json doc = predict_json(kUbq);
  EXPECT_EQ(doc.at("vorn_version").get<std::string>(), "2.0.0");
  EXPECT_EQ(doc.at("input").at("file").get<std::string>(), data_path("structures/ubq_1d3z_m1.pdb"));
  EXPECT_EQ(doc["input"].at("format").get<std::string>(), "PDB");
  const json& s = doc.at("settings");
  EXPECT_EQ(s.at("medium"), "bicelle");
  EXPECT_EQ(s.at("concentration"), 0.05);
  EXPECT_EQ(s.at("molar_ratio"), 3.0);
  EXPECT_EQ(s.at("obstacle_dimension"), 20.0);
  EXPECT_EQ(s.at("atom_radius"), 1.4);
  EXPECT_EQ(s.at("grid_spacing"), 0.5);
  EXPECT_EQ(s.at("order_parameter"), 0.8);
  EXPECT_EQ(s.at("sampling"), json::array({9, 18, 18}));
  EXPECT_EQ(s.at("select"), "surface");
  EXPECT_FALSE(doc.contains("ensemble"));

  const json& m = doc.at("models").at(0);
  EXPECT_EQ(m.at("model"), 1);
  EXPECT_EQ(m.at("atoms_used"), 162);  // the surface atoms of the classic run
  EXPECT_EQ(m.at("atoms_read"), 1231);
  EXPECT_EQ(m.at("built_hydrogens"), 0);
  const json& t = m.at("tensor");
  const AlignmentTensor expected = analyze_tensor(saupe_of(m));
  for (int k = 0; k < 3; ++k) {
    EXPECT_EQ(t.at("eigenvalues").at(k).get<double>(), expected.eigenvalues[k]);
    for (int c = 0; c < 3; ++c)
      EXPECT_EQ(t.at("eigenvectors").at(k).at(c).get<double>(), expected.eigenvectors[k][c]);
  }
  EXPECT_EQ(t.at("da_hz").get<double>(), expected.da_hz);
  EXPECT_EQ(t.at("rhombicity").get<double>(), expected.rhombicity);
  ASSERT_EQ(t.at("euler_deg").size(), 4u);
  for (int k = 0; k < 4; ++k)
    for (int c = 0; c < 3; ++c)
      EXPECT_EQ(t["euler_deg"][k].at(c).get<double>(), expected.euler_deg[k][c]);

  // Every coupling recomputed from the atoms of the file: the vector
  // between the named atoms, the Saupe matrix written out, and
  // Dmax = -(mu0/4pi) g1 g2 hbar / (pi r^3) with the standard distances.
  std::map<std::pair<int, std::string>, Vec3> where;
  std::ifstream in(data_path("structures/ubq_1d3z_m1.pdb"));
  for (std::string line; std::getline(in, line);) {
    std::istringstream f(line);
    std::string rec, name, res;
    int serial = 0, resnum = 0;
    Vec3 p;
    if (f >> rec && rec == "ATOM" && f >> serial >> name >> res >> resnum >> p.x >> p.y >> p.z)
      where[{resnum, name}] = p;
  }
  const SaupeElements sv = saupe_of(m);
  const double S[3][3] = {{-(sv[0] - sv[1]) / 2, sv[2], sv[3]},
                          {sv[2], -(sv[0] + sv[1]) / 2, sv[4]},
                          {sv[3], sv[4], sv[0]}};
  const std::map<std::string, double> gamma{
      {"H", 26.7522128e7}, {"C", 6.728284e7}, {"N", -2.71261804e7}};
  const std::map<std::string, double> r{
      {"N-H", 1.02}, {"CA-HA", 1.09}, {"CA-C", 1.525}, {"C-N", 1.329}, {"C-HN", 2.04}};
  std::map<std::string, int> count;
  for (const json& c : m.at("couplings")) {
    const std::string type = c.at("type");
    const int res = c.at("residue");
    ++count[type];
    EXPECT_EQ(c.at("chain"), "");
    EXPECT_EQ(c.at("icode"), "");
    const bool previous = type == "C-N" || type == "C-HN";
    const Vec3 a = where.at({previous ? res - 1 : res, c.at("atom1")});
    const Vec3 b = where.at({res, c.at("atom2")});
    double v[3] = {b.x - a.x, b.y - a.y, b.z - a.z};
    const double len = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    double proj = 0.0;
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) proj += S[i][j] * v[i] * v[j] / (len * len);
    const std::string e1 = c.at("atom1").get<std::string>().substr(0, 1);
    const std::string e2 = c.at("atom2").get<std::string>().substr(0, 1);
    const double rr = r.at(type) * 1e-10;
    const double dmax =
        -1e-7 * gamma.at(e1) * gamma.at(e2) * 1.054571817e-34 / (M_PI * rr * rr * rr);
    EXPECT_NEAR(c.at("predicted_hz").get<double>(), dmax * proj, 1e-9 * std::fabs(dmax));
  }
  // Ubiquitin: 76 residues, prolines 19, 37, 38 have no amide proton, Met1
  // has NH3+ (H1-H3), glycines 10, 35, 47, 53, 75, 76 have two alpha protons.
  EXPECT_EQ(count["N-H"], 72);
  EXPECT_EQ(count["CA-HA"], 76 + 6);
  EXPECT_EQ(count["CA-C"], 76);
  EXPECT_EQ(count["C-N"], 75);
  EXPECT_EQ(count["C-HN"], 72);
}

TEST(PredictCommand, ArchiveFilesGiveTheClassicTensors) {
  // 1UBQ as deposited (chain identifiers, waters) is the classic run on the
  // converted X-ray file; the mmCIF bundle's model 1 is the classic run on
  // the converted model 1.
  const json raw = predict_json(kUbqRaw);
  EXPECT_TRUE(same_bits(saupe_of(raw["models"][0]),
                        classic_saupe("structures/ubq_1ubq_xray.pdb", "ANISOTROPIC_MEDIUM: 1\n")));
  EXPECT_GT(raw["models"][0]["built_hydrogens"].get<int>(), 60);

  const json bundle = predict_json(kBundleCif);
  ASSERT_EQ(bundle.at("models").size(), 10u);
  EXPECT_EQ(bundle["input"]["format"], "mmCIF");
  for (int i = 0; i < 10; ++i) EXPECT_EQ(bundle["models"][i]["model"], i + 1);
  EXPECT_TRUE(same_bits(saupe_of(bundle["models"][0]),
                        classic_saupe("structures/ubq_1d3z_m1.pdb", "ANISOTROPIC_MEDIUM: 1\n")));
  // The PDB form of the same bundle: the same tensors, model by model.
  const json pdb = predict_json(quoted(data_path("raw/1D3Z_raw_10models.pdb")));
  for (int i = 0; i < 10; ++i)
    EXPECT_TRUE(same_bits(saupe_of(pdb["models"][i]), saupe_of(bundle["models"][i])));
}

TEST(PredictCommand, EnsembleSummaryAndMeasuredCouplings) {
  const json doc = predict_json(kBundleCif);
  const json& e = doc.at("ensemble");
  EXPECT_EQ(e.at("models"), 10);
  std::vector<double> da;
  for (const json& m : doc["models"]) da.push_back(m["tensor"]["da_hz"]);
  double mean = 0, sd = 0;
  for (double x : da) mean += x / 10;
  for (double x : da) sd += (x - mean) * (x - mean) / 9;
  EXPECT_NEAR(e.at("da_hz_mean").get<double>(), mean, 1e-12);
  EXPECT_NEAR(e.at("da_hz_sd").get<double>(), std::sqrt(sd), 1e-12);
  EXPECT_TRUE(e.contains("rhombicity_mean") && e.contains("rhombicity_sd"));

  // Ensemble couplings: each the mean of the models' own values.
  std::map<std::string, std::vector<double>> per_key;
  for (const json& m : doc["models"])
    for (const json& c : m["couplings"])
      per_key[c["type"].get<std::string>() + std::to_string(c["residue"].get<int>()) +
              c["atom2"].get<std::string>()]
          .push_back(c["predicted_hz"]);
  for (const json& c : e.at("couplings")) {
    const auto& v =
        per_key.at(c["type"].get<std::string>() + std::to_string(c["residue"].get<int>()) +
                   c["atom2"].get<std::string>());
    double s = 0;
    for (double x : v) s += x;
    EXPECT_NEAR(c.at("predicted_hz_mean").get<double>(), s / v.size(), 1e-9);
    EXPECT_EQ(c.at("models").get<int>(), static_cast<int>(v.size()));
    EXPECT_TRUE(c.contains("predicted_hz_sd"));
  }

  // Against the measured N-H couplings in bicelles: r, Q, slope.
  std::map<int, double> measured;
  std::ifstream in(data_path("couplings/ubq_2mjb_t500_bicelleA_nh.dc"));
  int res = 0, type = 0;
  double value = 0;
  while (in >> res >> value >> type)
    if (type == 0) measured[res] = value;
  const auto stats = [&](const json& couplings, const char* key) {
    std::vector<double> x, y;
    for (const json& c : couplings) {
      if (c["type"] != "N-H" || !measured.count(c["residue"].get<int>())) continue;
      x.push_back(measured[c["residue"].get<int>()]);
      y.push_back(c[key].get<double>());
    }
    const double n = x.size();
    double mx = 0, my = 0;
    for (size_t i = 0; i < x.size(); ++i) mx += x[i] / n, my += y[i] / n;
    double sxy = 0, sxx = 0, syy = 0, d2 = 0, m2 = 0;
    for (size_t i = 0; i < x.size(); ++i) {
      sxy += (x[i] - mx) * (y[i] - my);
      sxx += (x[i] - mx) * (x[i] - mx);
      syy += (y[i] - my) * (y[i] - my);
      d2 += (y[i] - x[i]) * (y[i] - x[i]);
      m2 += x[i] * x[i];
    }
    std::printf("%s: %zu N-H couplings, r = %.3f, Q = %.3f, slope = %.3f\n", key, x.size(),
                sxy / std::sqrt(sxx * syy), std::sqrt(d2 / m2), sxy / sxx);
    return sxy / std::sqrt(sxx * syy);
  };
  EXPECT_GT(stats(doc["models"][0]["couplings"], "predicted_hz"), 0.95);
  EXPECT_GT(stats(e["couplings"], "predicted_hz_mean"), 0.93);
}

TEST(PredictCommand, GzipCsvTextAndOutputFile) {
  const RunResult plain = run_vorn("predict --format csv " + kBundleCif);
  const RunResult gz =
      run_vorn("predict --format csv " + quoted(gzip_copy(data_path("raw/1d3z.cif"), "b.cif.gz")));
  ASSERT_EQ(plain.status, 0);
  EXPECT_EQ(gz.out, plain.out);
  const RunResult pdb_gz =
      run_vorn("predict --format csv " +
               quoted(gzip_copy(data_path("raw/1D3Z_raw_10models.pdb"), "b.pdb.gz")));
  EXPECT_EQ(pdb_gz.out, plain.out);

  // CSV: the header, then one row per coupling of the JSON, same values.
  const json doc = predict_json(kBundleCif);
  std::istringstream rows(plain.out);
  std::string line;
  std::getline(rows, line);
  EXPECT_EQ(line,
            "model,chain,residue,icode,resname,type,atom1,atom2,predicted_hz,predicted_hz_sd,"
            "predicted_hz_se,models");
  for (const json& m : doc["models"]) {
    for (const json& c : m["couplings"]) {
      ASSERT_TRUE(std::getline(rows, line));
      std::ostringstream start;
      start << m["model"].get<int>() << "," << c["chain"].get<std::string>() << ","
            << c["residue"].get<int>() << ",," << c["resname"].get<std::string>() << ","
            << c["type"].get<std::string>() << "," << c["atom1"].get<std::string>() << ","
            << c["atom2"].get<std::string>() << ",";
      ASSERT_EQ(line.rfind(start.str(), 0), 0u) << line;
      EXPECT_EQ(std::stod(line.substr(start.str().size())), c["predicted_hz"].get<double>());
      EXPECT_TRUE(line.ends_with(",,,")) << line;  // no ensemble columns on a model's row
    }
  }
  // Then the ensemble's rows (CsvEnsembleRowsAreTheJsonEnsemble).
  std::size_t ensemble_rows = 0;
  while (std::getline(rows, line)) {
    EXPECT_EQ(line.rfind("ensemble,", 0), 0u) << line;
    ++ensemble_rows;
  }
  EXPECT_EQ(ensemble_rows, doc["ensemble"]["couplings"].size());

  // -o writes what standard output would show.
  const std::string file = temp_path("out.json");
  const RunResult to_file = run_vorn("predict --format json -o " + quoted(file) + " " + kUbq);
  EXPECT_EQ(to_file.status, 0);
  EXPECT_EQ(to_file.out, "");
  std::ifstream written(file);
  std::stringstream text;
  text << written.rdbuf();
  EXPECT_EQ(text.str(), run_vorn("predict --format json " + kUbq).out);

  // Text: the report per model and the ensemble.
  const RunResult report = run_vorn("predict " + kBundleCif);
  EXPECT_NE(report.out.find("model 10:"), std::string::npos);
  EXPECT_NE(report.out.find("ensemble of 10 models: Da(NH) = "), std::string::npos);
  const RunResult xray = run_vorn("predict " + kUbqRaw);
  EXPECT_NE(xray.out.find("no hydrogens in the structure: 630 placed from the heavy atoms for the "
                          "couplings\n"),
            std::string::npos);
}

TEST(PredictCommand, UntilConvergedStopsWhereTheStandardErrorsFallBelowTheTolerance) {
  const int n = 100;
  const std::string file = temp_path("converge.pdb");
  ASSERT_EQ(std::system((std::string(MAKE_ENSEMBLE) + " --models " + std::to_string(n) +
                         " --seed 5 " + quoted(file) + " >/dev/null 2>&1")
                            .c_str()),
            0);
  const json all = predict_json(quoted(file));
  const json& e = all.at("ensemble");
  EXPECT_EQ(e.at("models").get<int>(), n);
  for (const char* key : {"da_hz_se", "rhombicity_se", "effective_samples"})
    EXPECT_TRUE(e.contains(key)) << key;
  EXPECT_FALSE(e.contains("converged"));
  double largest_se = e.at("da_hz_se").get<double>();
  for (const json& c : e.at("couplings")) {
    ASSERT_TRUE(c.contains("predicted_hz_se"));
    largest_se = std::max(largest_se, c.at("predicted_hz_se").get<double>());
  }

  // A tolerance no error reaches: all models are read, not converged.
  const json tiny = predict_json("--until-converged 1e-9 " + quoted(file));
  EXPECT_EQ(tiny.at("ensemble").at("models").get<int>(), n);
  EXPECT_FALSE(tiny.at("ensemble").at("converged").get<bool>());
  EXPECT_EQ(tiny.at("models").size(), static_cast<std::size_t>(n));

  // A tolerance every error meets at once: the minimum of 32 models.
  const json loose = predict_json("--until-converged 1000 " + quoted(file));
  EXPECT_EQ(loose.at("ensemble").at("models").get<int>(), 32);
  EXPECT_TRUE(loose.at("ensemble").at("converged").get<bool>());
  EXPECT_EQ(loose.at("models").size(), 32u);

  // Between: the first prefix of the models (from 32 on) whose Da and
  // couplings all have block-averaging errors below the tolerance, from the
  // full run's per-model values.
  const double tolerance = std::stod(std::to_string(1.3 * largest_se));
  std::map<std::string, vorn::BlockAverage> series;
  vorn::BlockAverage da;
  int expected = n;
  for (int k = 0; k < n; ++k) {
    const json& m = all.at("models").at(static_cast<std::size_t>(k));
    da.add(m.at("tensor").at("da_hz").get<double>());
    for (const json& c : m.at("couplings"))
      series[c["chain"].get<std::string>() + std::to_string(c["residue"].get<int>()) +
             c["atom1"].get<std::string>() + c["atom2"].get<std::string>()]
          .add(c["predicted_hz"].get<double>());
    bool below = k + 1 >= 32 && da.se() < tolerance;
    for (const auto& [key, s] : series) below = below && s.se() < tolerance;
    if (below) {
      expected = k + 1;
      break;
    }
  }
  ASSERT_LT(expected, n);
  ASSERT_GT(expected, 32);
  const std::string tol = std::to_string(tolerance);
  const json middle = predict_json("--until-converged " + tol + " " + quoted(file));
  EXPECT_EQ(middle.at("ensemble").at("models").get<int>(), expected);
  EXPECT_TRUE(middle.at("ensemble").at("converged").get<bool>());
  const RunResult text = run_vorn("predict --until-converged " + tol + " " + quoted(file));
  EXPECT_NE(text.out.find("ensemble of " + std::to_string(expected) + " models"),
            std::string::npos);
  EXPECT_NE(text.out.find("converged: every standard error below"), std::string::npos);

  // The convergence plot: one picture, the least certain coupling named.
  const std::string svg = temp_path("convergence.svg");
  EXPECT_EQ(
      run_vorn("predict --quiet --plot-convergence " + quoted(svg) + " " + quoted(file)).status, 0);
  std::ifstream picture(svg);
  std::stringstream drawn;
  drawn << picture.rdbuf();
  EXPECT_NE(drawn.str().find("<svg"), std::string::npos);
  // The standard error band and the legend's box: two shapes filled in the
  // band's colour.
  std::size_t band_fills = 0;
  for (std::size_t at = drawn.str().find("fill=\"#A6CEE3\""); at != std::string::npos;
       at = drawn.str().find("fill=\"#A6CEE3\"", at + 1))
    ++band_fills;
  EXPECT_EQ(band_fills, 2u);
  std::filesystem::remove(svg);
  std::filesystem::remove(file);
}

TEST(PredictCommand, PlotConvergenceOfSeveralFilesNumbersThePictures) {
  const std::string four = quoted(data_path("structures/ubq_1d3z_models1-4.pdb"));
  const std::string svg = temp_path("conv.svg");
  const RunResult run = run_vorn("predict -q --sampling 4,8,8 --plot-convergence " + quoted(svg) +
                                 " " + four + " " + kBundleCif);
  EXPECT_EQ(run.status, 0);
  EXPECT_FALSE(std::filesystem::exists(svg));
  for (const char* n : {"1", "2"}) {
    const std::string numbered = temp_path(std::string("conv_") + n + ".svg");
    std::ifstream picture(numbered);
    std::stringstream drawn;
    drawn << picture.rdbuf();
    EXPECT_NE(drawn.str().find("<svg"), std::string::npos) << numbered;
    std::filesystem::remove(numbered);
  }
}

// Splits a CSV line whose fields hold no quotes.
std::vector<std::string> csv_fields(const std::string& line) {
  std::vector<std::string> fields;
  std::size_t begin = 0;
  for (;;) {
    const std::size_t comma = line.find(',', begin);
    fields.push_back(line.substr(begin, comma - begin));
    if (comma == std::string::npos) return fields;
    begin = comma + 1;
  }
}

// The ensemble rows of the CSV table against the JSON "ensemble": the same
// couplings in the same order, mean, sd, standard error and model count.
void expect_csv_ensemble_is_json(const std::string& csv_text, const json& ensemble,
                                 const std::string& file_column) {
  std::istringstream rows(csv_text);
  std::string line;
  std::size_t k = 0;
  const json& couplings = ensemble.at("couplings");
  while (std::getline(rows, line)) {
    std::vector<std::string> f = csv_fields(line);
    if (!file_column.empty()) {
      if (f[0] != file_column) continue;
      f.erase(f.begin());
    }
    if (f[0] != "ensemble") continue;
    ASSERT_EQ(f.size(), 12u) << line;
    ASSERT_LT(k, couplings.size());
    const json& c = couplings[k++];
    EXPECT_EQ(f[1], c["chain"].get<std::string>());
    EXPECT_EQ(std::stoi(f[2]), c["residue"].get<int>());
    EXPECT_EQ(f[3], c["icode"].get<std::string>());
    EXPECT_EQ(f[4], c["resname"].get<std::string>());
    EXPECT_EQ(f[5], c["type"].get<std::string>());
    EXPECT_EQ(f[6], c["atom1"].get<std::string>());
    EXPECT_EQ(f[7], c["atom2"].get<std::string>());
    EXPECT_EQ(std::stod(f[8]), c["predicted_hz_mean"].get<double>()) << line;
    EXPECT_EQ(std::stod(f[9]), c["predicted_hz_sd"].get<double>()) << line;
    EXPECT_EQ(std::stod(f[10]), c["predicted_hz_se"].get<double>()) << line;
    EXPECT_EQ(std::stoi(f[11]), c["models"].get<int>()) << line;
  }
  EXPECT_EQ(k, couplings.size());
}

TEST(PredictCommand, CsvEnsembleRowsAreTheJsonEnsemble) {
  const std::string fast = "--sampling 4,8,8 ";
  const std::string four = quoted(data_path("structures/ubq_1d3z_models1-4.pdb"));
  const json doc = predict_json(fast + four);
  const RunResult csv = run_vorn("predict -q --format csv " + fast + four);
  ASSERT_EQ(csv.status, 0);
  expect_csv_ensemble_is_json(csv.out, doc.at("ensemble"), "");
  // The ensemble rows come last, after every model's rows.
  const std::size_t first_ensemble = csv.out.find("\nensemble,");
  ASSERT_NE(first_ensemble, std::string::npos);
  EXPECT_EQ(csv.out.find("\n4,", first_ensemble), std::string::npos);

  // Several files: the rows of each file's ensemble after its models, with
  // the file column; a file of one model has none.
  const std::string tmp_four = temp_path("four.pdb");
  std::filesystem::copy_file(data_path("structures/ubq_1d3z_models1-4.pdb"), tmp_four,
                             std::filesystem::copy_options::overwrite_existing);
  const RunResult both =
      run_vorn("predict -q --format csv " + fast + quoted(tmp_four) + " " + kUbq);
  ASSERT_EQ(both.status, 0);
  expect_csv_ensemble_is_json(both.out, doc.at("ensemble"), tmp_four);
  EXPECT_EQ(both.out.find(kUbq.substr(1, kUbq.size() - 2) + ",ensemble,"), std::string::npos);
  const RunResult one = run_vorn("predict -q --format csv " + fast + kUbq);
  EXPECT_EQ(one.out.find("ensemble"), std::string::npos);
  std::filesystem::remove(tmp_four);
}

TEST(PredictCommand, TextEnsembleShowsTheJsonStandardErrors) {
  const std::string fast = "--sampling 4,8,8 ";
  const std::string four = quoted(data_path("structures/ubq_1d3z_models1-4.pdb"));
  const json e = predict_json(fast + four).at("ensemble");
  const RunResult text = run_vorn("predict -q " + fast + four);
  ASSERT_EQ(text.status, 0);
  char line[256];
  std::snprintf(
      line, sizeof line,
      "standard error of the mean (block averaging): Da %.3f Hz (%.1f effective models)   "
      "R %.4f\n",
      e.at("da_hz_se").get<double>(), e.at("effective_samples").get<double>(),
      e.at("rhombicity_se").get<double>());
  EXPECT_NE(text.out.find(line), std::string::npos) << line;
  // Each coupling's row ends with its mean, sd and standard error.
  const std::size_t table = text.out.find("mean (Hz)");
  ASSERT_NE(table, std::string::npos);
  std::istringstream rows(text.out.substr(text.out.find('\n', table) + 1));
  std::string row;
  for (const json& c : e.at("couplings")) {
    ASSERT_TRUE(std::getline(rows, row));
    std::snprintf(line, sizeof line, " %10.2f %8.2f %8.3f", c.at("predicted_hz_mean").get<double>(),
                  c.at("predicted_hz_sd").get<double>(), c.at("predicted_hz_se").get<double>());
    EXPECT_TRUE(row.ends_with(line)) << row << " | " << line;
  }
}

TEST(PredictCommand, HydrogensOfAnXrayStructure) {
  // 1UBQ has no hydrogen: they are placed for the couplings, as many as the
  // 629 of 1D3Z's models (the same heavy atoms) and HE2 of His 68, whose
  // deposited tautomer has HD1 alone.
  const std::string fast = "--sampling 6,12,12 ";
  const json plain = predict_json(fast + kUbqRaw);
  const json& m = plain.at("models").at(0);
  EXPECT_EQ(m.at("built_hydrogens"), 630);
  EXPECT_EQ(m.at("unplaced_hydrogens"), 0);
  EXPECT_EQ(m.at("atoms_read"), 602);
  std::map<std::string, int> count;
  for (const json& c : m.at("couplings")) {
    ++count[c.at("type").get<std::string>()];
    EXPECT_EQ(c.at("built_hydrogen").get<bool>(), c.at("atom2").get<std::string>()[0] == 'H');
  }
  EXPECT_EQ(count["CA-HA"], 76 + 6);
  EXPECT_EQ(count["N-H"], 72);
  EXPECT_EQ(count["C-HN"], 72);

  // --add-hydrogens: the same hydrogens, which enter the steric model only
  // with --select all or --keep-hydrogens.
  const json added = predict_json("--add-hydrogens " + fast + kUbqRaw);
  EXPECT_TRUE(same_bits(saupe_of(added["models"][0]), saupe_of(m)));
  EXPECT_EQ(added["models"][0]["couplings"], m["couplings"]);
  EXPECT_EQ(added.at("settings").at("add_hydrogens"), true);
  EXPECT_EQ(predict_json("--select all " + fast + kUbqRaw)["models"][0]["atoms_used"], 602);
  const json all = predict_json("--add-hydrogens --select all " + fast + kUbqRaw);
  EXPECT_EQ(all["models"][0]["atoms_used"], 602 + 630);
  const json kept =
      predict_json("--add-hydrogens --keep-hydrogens --select heavy " + fast + kUbqRaw);
  EXPECT_EQ(kept["models"][0]["atoms_used"], 602 + 630);
  EXPECT_TRUE(same_bits(saupe_of(kept["models"][0]), saupe_of(all["models"][0])));
  EXPECT_FALSE(same_bits(saupe_of(all["models"][0]), saupe_of(m)));
  const RunResult text = run_vorn("predict --add-hydrogens " + fast + kUbqRaw);
  EXPECT_NE(text.out.find("  hydrogens placed from the heavy atoms (--add-hydrogens): 630\n"),
            std::string::npos);

  // A structure with its hydrogens (His 68 with HD1 alone): nothing to add;
  // without its alpha protons, those come back (70: the glycines' HA2 and
  // HA3 are not named HA) and enter the steric model with the read ones.
  const std::string hydrogens = "--keep-hydrogens --select heavy ";
  const json nmr = predict_json("--add-hydrogens " + hydrogens + fast + kUbq);
  EXPECT_EQ(nmr["models"][0]["built_hydrogens"], 0);
  EXPECT_EQ(nmr["models"][0]["atoms_used"], 1231);
  const json no_ha =
      predict_json("--add-hydrogens --exclude '/*/*/*/HA' " + hydrogens + fast + kUbq);
  EXPECT_EQ(no_ha["models"][0]["atoms_read"], 1231 - 70);
  EXPECT_EQ(no_ha["models"][0]["built_hydrogens"], 70);
  EXPECT_EQ(no_ha["models"][0]["atoms_used"], 1231);
  const json nmr_plain = predict_json(fast + kUbq);
  EXPECT_EQ(nmr_plain["models"][0]["built_hydrogens"], 0);
  EXPECT_TRUE(same_bits(saupe_of(predict_json("--add-hydrogens " + fast + kUbq)["models"][0]),
                        saupe_of(nmr_plain["models"][0])));
}

TEST(PredictCommand, MediumAndSamplingOptionsAreTheClassicSettings) {
  struct Case {
    std::string options, auto_text;
  };
  for (const Case& c : std::vector<Case>{
           {"--medium phage --concentration 0.02",
            "ANISOTROPIC_MEDIUM: 2\nLIPID_CONCENTRATION: 0.02\n"},
           {"--medium bicelle+phage --molar-ratio 3.2 --select heavy",
            "BICELLE_PHAGE: 1\nMOLAR_RATIO: 3.2\nSELECT_FLAG: 3\n"},
           {"--select heavy --atom-radius 2.5 --grid-spacing 1.0 --sampling 6,12,12",
            "SELECT_FLAG: 3\nATOM_RADIUS: 2.5\nGRID_SPACING: 1.0\nDIGIT_BETA: 6\nDIGIT_ALPHA: "
            "12\nDIGIT_GAMMA: 12\n"},
       }) {
    SCOPED_TRACE(c.options);
    const json doc = predict_json(c.options + " " + kUbq);
    EXPECT_TRUE(same_bits(saupe_of(doc["models"][0]),
                          classic_saupe("structures/ubq_1d3z_m1.pdb", c.auto_text)));
  }
}

TEST(PredictCommand, ReadingOptions) {
  const json all = predict_json(kBundleCif);
  // --models picks models; their tensors are those of the full run.
  const json some = predict_json("--models 2,4-5 " + kBundleCif);
  ASSERT_EQ(some["models"].size(), 3u);
  const int picked[3] = {2, 4, 5};
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(some["models"][i]["model"], picked[i]);
    EXPECT_TRUE(same_bits(saupe_of(some["models"][i]), saupe_of(all["models"][picked[i] - 1])));
  }
  EXPECT_EQ(some["ensemble"]["models"], 3);
  // Threads change nothing.
  EXPECT_EQ(run_vorn("predict --format json --threads 1 --models 1 " + kBundleCif).out,
            run_vorn("predict --format json --threads 2 --models 1 " + kBundleCif).out);
  // Hydrogens in the steric model: every atom is used.
  const json h = predict_json("--keep-hydrogens --select heavy --models 1 " + kBundleCif);
  EXPECT_EQ(h["models"][0]["atoms_used"], 1231);
  const json heavy = predict_json("--select heavy --models 1 " + kBundleCif);
  EXPECT_EQ(heavy["models"][0]["atoms_used"], 602);
  const json every = predict_json("--select all --models 1 " + kBundleCif);
  EXPECT_EQ(every["models"][0]["atoms_used"], 1231);
  // --exclude drops the flexible tail from the structure.
  const json tail = predict_json("--select heavy --exclude '/*/A/72-76' --models 1 " + kBundleCif);
  EXPECT_LT(tail["models"][0]["atoms_used"].get<int>(), 602);
  for (const json& c : tail["models"][0]["couplings"]) EXPECT_LT(c["residue"].get<int>(), 72);
  // --chains A is the whole protein here.
  EXPECT_EQ(predict_json("--chains A --models 1 " + kBundleCif)["models"][0]["tensor"],
            all["models"][0]["tensor"]);
}

TEST(PredictCommand, AltlocAndHetatmOnAHandMadeFile) {
  // Two residues; CA of residue 2 in conformers A (0.3) and B (0.7); a
  // ligand and a water.
  const std::string path = temp_path("alt.pdb");
  std::ofstream f(path);
  const auto rec = [&](const char* kind, int serial, const char* name, char alt, const char* res,
                       int num, double x, double y, double z, double occ, const char* el) {
    char line[100];
    std::snprintf(line, sizeof line,
                  "%-6s%5d %-4s%c%3s A%4d    %8.3f%8.3f%8.3f%6.2f%6.2f          %2s\n", kind,
                  serial, name, alt, res, num, x, y, z, occ, 0.0, el);
    f << line;
  };
  rec("ATOM", 1, " N  ", ' ', "ALA", 1, 0, 0, 0, 1, "N");
  rec("ATOM", 2, " CA ", ' ', "ALA", 1, 1.4, 0.5, 0, 1, "C");
  rec("ATOM", 3, " C  ", ' ', "ALA", 1, 2.5, -0.3, 0, 1, "C");
  rec("ATOM", 4, " N  ", ' ', "GLY", 2, 3.7, 0.2, 0, 1, "N");
  rec("ATOM", 5, " CA ", 'A', "GLY", 2, 4.9, -0.6, 0.3, 0.3, "C");
  rec("ATOM", 6, " CA ", 'B', "GLY", 2, 4.9, -0.6, -9.3, 0.7, "C");
  rec("ATOM", 7, " C  ", ' ', "GLY", 2, 6.2, 0.1, 0, 1, "C");
  rec("HETATM", 8, " C1 ", ' ', "LIG", 3, 9, 9, 9, 1, "C");
  rec("HETATM", 9, " O  ", ' ', "HOH", 4, 12, 12, 12, 1, "O");
  f.close();
  const json by_occupancy = predict_json("--select heavy " + quoted(path));
  const json altloc_a = predict_json("--select heavy --altloc A " + quoted(path));
  const json hetatm = predict_json("--select heavy --hetatm " + quoted(path));
  EXPECT_EQ(by_occupancy["models"][0]["atoms_used"], 6);  // no ligand, no water
  EXPECT_EQ(hetatm["models"][0]["atoms_used"], 7);        // the ligand, still no water
  // The CA-C vector of residue 2 comes from conformer B, or A when asked.
  const auto ca_c_z = [](const json& doc) {
    for (const json& c : doc["models"][0]["couplings"])
      if (c["type"] == "CA-C" && c["residue"] == 2) return c["predicted_hz"].get<double>();
    return std::nan("");
  };
  EXPECT_NE(ca_c_z(by_occupancy), ca_c_z(altloc_a));
  EXPECT_NE(saupe_of(by_occupancy["models"][0]), saupe_of(altloc_a["models"][0]));
  // No hydrogen in the file: those that can be are placed for the couplings,
  // H1 H2 H3 of Ala 1 and H, HA2, HA3 of Gly 2; the alanine's HA and HB1-3
  // hang on or are oriented by its missing CB.
  EXPECT_EQ(by_occupancy["models"][0]["built_hydrogens"], 6);
  EXPECT_EQ(by_occupancy["models"][0]["unplaced_hydrogens"], 4);
}

// ---------------------------------------------------------------------------
// A charged obstacle.

const std::string kUbq2mjb = quoted(data_path("structures/ubq_2mjb_m1.pdb"));
const std::string kFast = "--sampling 4,8,8 ";

std::string read_text(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

struct FullRun {
  std::string out, err;
  int status = -1;
};

// Runs vorn with the arguments and captures both streams.
FullRun run_full(const std::string& args) {
  const std::string err_file = temp_path("stderr.txt");
  const RunResult r = [&] {
    const std::string command = std::string(VORN_BINARY) + " " + args + " 2>" + quoted(err_file);
    RunResult run;
    FILE* pipe = popen(command.c_str(), "r");
    char buffer[65536];
    size_t n = 0;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) run.out.append(buffer, n);
    const int raw = pclose(pipe);
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    return run;
  }();
  FullRun full{r.out, read_text(err_file), r.status};
  std::filesystem::remove(err_file);
  return full;
}

// The titration of a protein written out here: the residues of the file
// (whitespace-separated ATOM records of one chain), each ionisable side
// chain and both termini with its Henderson-Hasselbalch charge at `ph`
// from the model pKa of the table.
struct Titration {
  double net = 0.0;
  int groups = 0;
};

Titration titrate_by_hand(const std::string& path, double ph) {
  std::map<int, std::string> residues;
  std::ifstream in(path);
  for (std::string line; std::getline(in, line);) {
    std::istringstream f(line);
    std::string rec, name, res;
    int serial = 0, resnum = 0;
    if (f >> rec && rec == "ATOM" && f >> serial >> name >> res >> resnum) residues[resnum] = res;
  }
  std::map<std::string, double> pka;
  std::map<std::string, bool> acid;
  for (const IonisableGroup& g : ionisable_groups()) {
    pka[g.name] = g.pka;
    acid[g.name] = g.acid;
  }
  const auto charge = [&](const std::string& group) {
    const double ratio = std::pow(10.0, acid.at(group) ? pka.at(group) - ph : ph - pka.at(group));
    return (acid.at(group) ? -1.0 : 1.0) / (1.0 + ratio);
  };
  Titration t;
  for (const auto& [number, name] : residues) {
    if (pka.count(name) == 0) continue;
    t.net += charge(name);
    ++t.groups;
  }
  t.net += charge("N-terminus") + charge("C-terminus");
  t.groups += 2;
  return t;
}

TEST(PredictCommand, Pf1RecordsItsSettingsAndTheTitrationCharge) {
  const json doc = predict_json("--medium pf1 " + kFast + kUbq2mjb);
  const json& s = doc.at("settings");
  EXPECT_EQ(s.at("medium"), "pf1");
  EXPECT_EQ(s.at("obstacle_radius").get<double>(), kPf1Radius);
  EXPECT_EQ(s.at("obstacle_dimension").get<double>(), kPf1Radius);
  EXPECT_EQ(s.at("charge_density").get<double>(), kPf1ChargeDensity);
  EXPECT_EQ(s.at("ionic_strength").get<double>(), 0.15);
  EXPECT_EQ(s.at("ph").get<double>(), 7.0);
  EXPECT_EQ(s.at("temperature").get<double>(), 298.15);
  EXPECT_EQ(s.at("potential"), "linear");
  EXPECT_EQ(s.at("charges"), "titration");
  // 0.15 M of 1:1 salt in water at 25 C screens over about 7.85 A
  // (0.304 nm / sqrt(I/M)).
  EXPECT_NEAR(s.at("debye_length").get<double>(), 3.04 / std::sqrt(0.15), 0.05);
  // The sampling of the energy in effect.
  EXPECT_EQ(s.at("nodes_per_debye_length").get<double>(), ObstacleCharge{}.nodes_per_debye_length);
  EXPECT_EQ(s.at("energy_tolerance").get<double>(), ObstacleCharge{}.energy_tolerance);

  // Ubiquitin's ionisable groups counted from the file.
  const Titration expected = titrate_by_hand(data_path("structures/ubq_2mjb_m1.pdb"), 7.0);
  // 7 Lys, 4 Arg, 5 Asp, 6 Glu, His 68, Tyr 59 and the two termini.
  EXPECT_EQ(expected.groups, 26);
  const json& m = doc.at("models").at(0);
  EXPECT_NEAR(m.at("net_charge").get<double>(), expected.net, 1e-9);
  EXPECT_EQ(m.at("charged_groups").get<int>(), expected.groups);

  // The charges change the tensor: the same cylinder without them differs.
  const json steric = predict_json("--medium phage --obstacle-dimension 33.5 " + kFast + kUbq2mjb);
  EXPECT_FALSE(same_bits(saupe_of(m), saupe_of(steric.at("models").at(0))));
  EXPECT_FALSE(steric.at("models").at(0).contains("net_charge"));

  // The text report: the medium's charge in the header, the charges per model.
  const RunResult text = run_vorn("predict --medium pf1 --ph 6 " + kFast + kUbq2mjb);
  ASSERT_EQ(text.status, 0);
  EXPECT_NE(text.out.find("medium pf1 0.05 g/ml, molar ratio 3, obstacle 33.5 A, charge density "
                          "-0.45 e/nm2, ionic strength 0.15 M, 298.15 K, linear potential, "),
            std::string::npos)
      << text.out;
  const Titration at6 = titrate_by_hand(data_path("structures/ubq_2mjb_m1.pdb"), 6.0);
  char line[128];
  std::snprintf(line, sizeof line,
                "\n  charges: net %.2f e, %d charged groups (titration at pH 6.0)\n", at6.net,
                at6.groups);
  EXPECT_NE(text.out.find(line), std::string::npos) << line << text.out;
}

TEST(PredictCommand, OptionsOfTheChargedObstacle) {
  const json base = predict_json("--medium pf1 " + kFast + kUbq2mjb);
  // Each option is recorded and changes the prediction.
  for (const std::string option :
       {"--charge-density -0.3", "--ionic-strength 0.05", "--ph 5", "--temperature 310",
        "--obstacle-radius 30", "--potential nonlinear"}) {
    SCOPED_TRACE(option);
    const json doc = predict_json("--medium pf1 " + option + " " + kFast + kUbq2mjb);
    const std::string key = option.substr(2, option.find(' ') - 2);
    std::string json_key = key;
    std::replace(json_key.begin(), json_key.end(), '-', '_');
    const std::string value = option.substr(option.find(' ') + 1);
    if (json_key == "potential") {
      EXPECT_EQ(doc["settings"].at("potential"), value);
    } else {
      EXPECT_EQ(doc["settings"].at(json_key).get<double>(), std::stod(value));
    }
    EXPECT_FALSE(same_bits(saupe_of(doc["models"][0]), saupe_of(base["models"][0])));
  }
  // A charged bicelle wall: no cylinder radius.
  const json wall = predict_json("--medium bicelle --charge-density -0.2 " + kFast + kUbq2mjb);
  EXPECT_EQ(wall["settings"].at("medium"), "bicelle");
  EXPECT_EQ(wall["settings"].at("charge_density").get<double>(), -0.2);
  EXPECT_FALSE(wall["settings"].contains("obstacle_radius"));
  EXPECT_TRUE(wall["models"][0].contains("net_charge"));
  // The threads change nothing.
  EXPECT_EQ(run_vorn("predict --format json --threads 1 --medium pf1 " + kFast + kUbq2mjb).out,
            run_vorn("predict --format json --threads 2 --medium pf1 " + kFast + kUbq2mjb).out);
}

TEST(PredictCommand, UnchargedObstaclesAreTheStericModel) {
  // Without a charge density, phage is the steric cylinder as before: the
  // classic run's elements and the settings of an uncharged run, no more.
  const RunResult phage_run = run_vorn("predict --format json --medium phage " + kUbq);
  ASSERT_EQ(phage_run.status, 0);
  const json phage = json::parse(phage_run.out);
  EXPECT_TRUE(same_bits(saupe_of(phage["models"][0]),
                        classic_saupe("structures/ubq_1d3z_m1.pdb", "ANISOTROPIC_MEDIUM: 2\n")));
  std::vector<std::string> keys;
  const auto ordered = nlohmann::ordered_json::parse(phage_run.out);
  for (const auto& [key, value] : ordered.at("settings").items()) keys.push_back(key);
  EXPECT_EQ(keys, (std::vector<std::string>{
                      "medium", "concentration", "molar_ratio", "obstacle_dimension", "atom_radius",
                      "grid_spacing", "order_parameter", "sampling", "select", "keep_hydrogens",
                      "add_hydrogens", "hetatm", "altloc", "chains", "exclude", "models"}));
  EXPECT_FALSE(phage["models"][0].contains("net_charge"));
  // A zero charge density is no charge: the same bytes.
  for (const std::string medium : {"phage", "bicelle"}) {
    SCOPED_TRACE(medium);
    for (const std::string format : {"json", "text", "csv"}) {
      const RunResult plain =
          run_vorn("predict --format " + format + " --medium " + medium + " " + kFast + kUbq);
      const RunResult zero = run_vorn("predict --format " + format + " --medium " + medium +
                                      " --charge-density 0 " + kFast + kUbq);
      EXPECT_EQ(plain.status, 0);
      EXPECT_EQ(zero.out, plain.out);
    }
  }
  // pf1 with its charge taken away is the steric cylinder of its radius.
  const json pf1_zero = predict_json("--medium pf1 --charge-density 0 " + kFast + kUbq);
  const json cylinder = predict_json("--medium phage --obstacle-dimension 33.5 " + kFast + kUbq);
  EXPECT_TRUE(same_bits(saupe_of(pf1_zero["models"][0]), saupe_of(cylinder["models"][0])));
  EXPECT_EQ(pf1_zero["settings"].at("medium"), "pf1");
}

TEST(PredictCommand, ChargeOptionsWithAnUnchargedObstacleWarnOnce) {
  const std::string pqr = quoted(data_path("structures/ubq_1ubq_ph6.pqr"));
  struct Case {
    std::string medium, options;
  };
  for (const Case& c : std::vector<Case>{
           {"", "--ph 6"},
           {"", "--charges " + pqr},
           {"", "--ionic-strength 0.3 --temperature 300 --potential nonlinear"},
           {"--medium phage ", "--ph 5 --charges " + pqr},
           {"--medium pf1 --charge-density 0 ", "--ph 5 --ionic-strength 0.05"},
       }) {
    SCOPED_TRACE(c.medium + c.options);
    const FullRun plain = run_full("predict --format json " + c.medium + kFast + kUbq);
    const FullRun r =
        run_full("predict --format json " + c.medium + c.options + " " + kFast + kUbq);
    EXPECT_EQ(plain.err, "");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err,
              "vorn: warning: the molecule's charges have no effect with an uncharged obstacle "
              "(use --medium pf1 or --charge-density)\n");
    EXPECT_EQ(r.out, plain.out);
  }
}

// The charges of a PQR file: their sum over the file, waters aside.
double pqr_total(const std::string& path) {
  double total = 0.0;
  std::ifstream in(path);
  for (std::string line; std::getline(in, line);) {
    std::istringstream f(line);
    std::string rec;
    if (!(f >> rec) || (rec != "ATOM" && rec != "HETATM")) continue;
    std::vector<std::string> fields;
    for (std::string field; f >> field;) fields.push_back(field);
    EXPECT_GE(fields.size(), 9u) << line;
    if (fields.size() >= 9) total += std::stod(fields[fields.size() - 2]);
  }
  return total;
}

TEST(PredictCommand, ChargesFromAPqrFile) {
  const std::string pqr = data_path("structures/ubq_1ubq_ph6.pqr");
  const std::string xray = quoted(data_path("structures/ubq_1ubq_xray.pdb"));
  const json doc = predict_json("--medium pf1 --charges " + quoted(pqr) + " " + kFast + xray);
  EXPECT_EQ(doc["settings"].at("charges"), pqr);
  EXPECT_FALSE(doc["settings"].contains("ph"));  // no titration
  // Every charge of the file lands on the structure (those of hydrogens the
  // structure lacks on their heavy atoms): the net charge is the file's.
  EXPECT_NEAR(doc["models"][0].at("net_charge").get<double>(), pqr_total(pqr), 1e-9);
  // It is not the titration's.
  const json titrated = predict_json("--medium pf1 --ph 6 " + kFast + xray);
  EXPECT_FALSE(same_bits(saupe_of(doc["models"][0]), saupe_of(titrated["models"][0])));
  const RunResult text =
      run_vorn("predict --medium pf1 --charges " + quoted(pqr) + " " + kFast + xray);
  EXPECT_NE(text.out.find("charged groups (" + pqr + ")\n"), std::string::npos) << text.out;
}

TEST(PredictCommand, APqrFileThatDoesNotFitFailsBeforeAnyOutput) {
  const std::string pqr = quoted(data_path("structures/ubq_1ubq_ph6.pqr"));
  const std::string dna = quoted(data_path("structures/dna_1lcd_duplex_m1.pdb"));
  for (const std::string format : {"json", "text", "csv"}) {
    SCOPED_TRACE(format);
    const std::string out = temp_path("mismatch." + format);
    const FullRun r = run_full("predict --medium pf1 --format " + format + " -o " + quoted(out) +
                               " --charges " + pqr + " " + kFast + dna);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_FALSE(std::filesystem::exists(out));
    // One line: the PQR file and line, then the structure and model.
    EXPECT_EQ(r.err.rfind("vorn: " + data_path("structures/ubq_1ubq_ph6.pqr") + ":", 0), 0u)
        << r.err;
    EXPECT_NE(r.err.find("is not in the structure"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("(model 1 of " + data_path("structures/dna_1lcd_duplex_m1.pdb") + ")\n"),
              std::string::npos)
        << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1);
  }
  // A missing PQR file: the same.
  const FullRun missing =
      run_full("predict --medium pf1 --charges " + quoted(temp_path("none.pqr")) + " " + kUbq);
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.out, "");
  EXPECT_NE(missing.err.find("none.pqr"), std::string::npos);
}

}  // namespace
}  // namespace vorn
