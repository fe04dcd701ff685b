// `vorn predict --window N` run as a program: windows as long as the chain
// give the whole-molecule couplings, each window is its fragment predicted
// alone, windows never cross chains, the ensemble averages the windowed
// couplings, and bad windows are refused.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
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

using json = nlohmann::json;
using test::data_path;

using RunResult = test::CommandResult;

RunResult run_vorn(const std::string& args) {
  return test::run_command(std::string(VORN_BINARY) + " " + args);
}

json predict_json(const std::string& args) {
  const RunResult r = run_vorn("predict --format json -q " + args);
  EXPECT_EQ(r.status, 0) << args;
  return json::parse(r.out);
}

std::string quoted(const std::string& path) { return "'" + path + "'"; }

std::string temp_path(const std::string& name) {
  return (std::filesystem::temp_directory_path() /
          ("vorn_window_test_" + std::to_string(getpid()) + "_" + name))
      .string();
}

// The ATOM records of 1UBQ (chain A, residues 1..76).
std::vector<std::string> ubiquitin_atom_lines() {
  std::ifstream in(data_path("raw/1UBQ_raw.pdb"));
  std::vector<std::string> lines;
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind("ATOM  ", 0) == 0) lines.push_back(line);
  }
  return lines;
}

int residue_of(const std::string& line) { return std::stoi(line.substr(22, 4)); }

std::string with_chain(std::string line, char chain) {
  line[21] = chain;
  return line;
}

void write_lines(const std::string& path, const std::vector<std::string>& lines) {
  std::ofstream out(path);
  for (const std::string& l : lines) out << l << "\n";
  out << "END\n";
}

// Couplings by chain, residue, type, in the order of the output.
std::map<std::string, double> couplings_of(const json& model) {
  std::map<std::string, double> c;
  for (const json& j : model.at("couplings")) {
    c[j.at("chain").get<std::string>() + ":" + std::to_string(j.at("residue").get<int>()) + ":" +
      j.at("type").get<std::string>() + ":" + j.at("atom1").get<std::string>() + "-" +
      j.at("atom2").get<std::string>()] = j.at("predicted_hz").get<double>();
  }
  return c;
}

const std::string kUbq = quoted(data_path("structures/ubq_1d3z_m1.pdb"));

TEST(PredictWindows, AWindowAsLongAsTheChainGivesTheWholeMoleculesCouplings) {
  for (const std::string medium : {"bicelle", "phage", "pf1"}) {
    std::string options = "--medium ";
    options += medium;
    options += " --sampling 5,9,9 ";
    const json plain = predict_json(options + kUbq);
    options += "--window 153 ";
    const json windowed = predict_json(options + kUbq);
    const json& p = plain.at("models").at(0);
    const json& w = windowed.at("models").at(0);
    EXPECT_EQ(windowed.at("settings").at("window").get<int>(), 153);
    EXPECT_FALSE(plain.at("settings").contains("window"));
    // Every window holds the whole chain: its elements are the molecule's.
    ASSERT_EQ(w.at("windows").size(), 76u) << medium;
    for (const json& window : w.at("windows")) {
      EXPECT_EQ(window.at("saupe"), p.at("tensor").at("saupe")) << medium;
      EXPECT_EQ(window.at("atoms_used"), p.at("atoms_used"));
      EXPECT_EQ(window.at("first_residue").get<int>(), 1);
      EXPECT_EQ(window.at("last_residue").get<int>(), 76);
    }
    EXPECT_EQ(w.at("tensor"), p.at("tensor"));
    const auto pc = couplings_of(p);
    const auto wc = couplings_of(w);
    ASSERT_EQ(pc.size(), wc.size());
    ASSERT_GT(pc.size(), 200u);
    for (const auto& [key, value] : pc) EXPECT_EQ(wc.at(key), value) << medium << " " << key;
  }
}

TEST(PredictWindows, WindowsStayInTheirChainAndEachIsItsFragmentAlone) {
  // Two copies of ubiquitin, chains A and B, B moved 60 A away.
  std::vector<std::string> lines = ubiquitin_atom_lines();
  const std::size_t n = lines.size();
  for (std::size_t i = 0; i < n; ++i) {
    std::string b = with_chain(lines[i], 'B');
    const double x = std::stod(b.substr(30, 8)) + 60.0;
    char field[16];
    std::snprintf(field, sizeof field, "%8.3f", x);
    b.replace(30, 8, field);
    lines.push_back(b);
  }
  const std::string dimer = temp_path("dimer.pdb");
  write_lines(dimer, lines);
  const json doc = predict_json("--select heavy --sampling 5,9,9 --window 5 " + quoted(dimer));
  const json& windows = doc.at("models").at(0).at("windows");
  ASSERT_EQ(windows.size(), 152u);
  // Heavy atoms per chain and residue, counted here from the records.
  std::map<std::pair<char, int>, int> heavy;
  for (const std::string& l : lines) ++heavy[{l[21], residue_of(l)}];
  for (const json& w : windows) {
    const char chain = w.at("chain").get<std::string>().at(0);
    const int r = w.at("residue").get<int>();
    const int first = std::max(1, r - 2);
    const int last = std::min(76, r + 2);
    EXPECT_EQ(w.at("first_residue").get<int>(), first);
    EXPECT_EQ(w.at("last_residue").get<int>(), last);
    int atoms = 0;
    for (int k = first; k <= last; ++k) atoms += heavy[{chain, k}];
    EXPECT_EQ(w.at("atoms_used").get<int>(), atoms) << chain << r;
  }
  // The window of B 76 (truncated) and of B 30, each against a file of its
  // fragment's records alone.
  for (const int centre : {30, 76}) {
    std::vector<std::string> fragment;
    for (const std::string& l : lines) {
      if (l[21] == 'B' && residue_of(l) >= centre - 2 && residue_of(l) <= centre + 2) {
        fragment.push_back(l);
      }
    }
    const std::string path = temp_path("fragment.pdb");
    write_lines(path, fragment);
    const json alone = predict_json("--select heavy --sampling 5,9,9 " + quoted(path));
    std::filesystem::remove(path);
    const json* found = nullptr;
    for (const json& w : windows) {
      if (w.at("chain") == "B" && w.at("residue").get<int>() == centre) found = &w;
    }
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->at("saupe"), alone.at("models").at(0).at("tensor").at("saupe")) << centre;
    // Its N-H coupling is that tensor's, not the molecule's.
    const auto wc = couplings_of(doc.at("models").at(0));
    const auto ac = couplings_of(alone.at("models").at(0));
    const std::string key = "B:" + std::to_string(centre) + ":N-H:N-H";
    EXPECT_EQ(wc.at(key), ac.at(key));
  }
  std::filesystem::remove(dimer);
}

TEST(PredictWindows, TheEnsembleAveragesTheWindowedCouplings) {
  const json doc = predict_json("--sampling 5,9,9 --window 5 " +
                                quoted(data_path("structures/ubq_1d3z_models1-4.pdb")));
  const json& models = doc.at("models");
  ASSERT_EQ(models.size(), 4u);
  std::map<std::string, double> sum;
  for (const json& m : models) {
    for (const auto& [key, value] : couplings_of(m)) sum[key] += value;
  }
  const json& e = doc.at("ensemble");
  int checked = 0;
  for (const json& c : e.at("couplings")) {
    const std::string key =
        c.at("chain").get<std::string>() + ":" + std::to_string(c.at("residue").get<int>()) + ":" +
        c.at("type").get<std::string>() + ":" + c.at("atom1").get<std::string>() + "-" +
        c.at("atom2").get<std::string>();
    EXPECT_NEAR(c.at("predicted_hz_mean").get<double>(), sum.at(key) / 4.0, 1e-9) << key;
    EXPECT_TRUE(c.contains("predicted_hz_se"));
    ++checked;
  }
  EXPECT_GT(checked, 200);
}

TEST(PredictWindows, TextAndCsvCarryTheWindowedCouplings) {
  const RunResult text = run_vorn("predict -q --sampling 5,9,9 --window 7 " + kUbq);
  ASSERT_EQ(text.status, 0);
  EXPECT_NE(text.out.find("window 7 residues"), std::string::npos);
  EXPECT_NE(text.out.find("couplings from windows of 7 residues"), std::string::npos);
  const RunResult csv = run_vorn("predict -q --format csv --sampling 5,9,9 --window 7 " + kUbq);
  ASSERT_EQ(csv.status, 0);
  const json doc = predict_json("--sampling 5,9,9 --window 7 " + kUbq);
  // The CSV's values are the JSON's couplings, line by line.
  std::istringstream lines(csv.out);
  std::string line;
  std::getline(lines, line);
  std::size_t k = 0;
  const json& couplings = doc.at("models").at(0).at("couplings");
  while (std::getline(lines, line)) {
    ASSERT_LT(k, couplings.size());
    // predicted_hz: the ninth column (sd, se and models follow, empty on a
    // model's rows).
    std::vector<std::string> fields;
    std::istringstream row(line);
    for (std::string f; std::getline(row, f, ',');) fields.push_back(f);
    ASSERT_GE(fields.size(), 9u) << line;
    const double value = std::stod(fields[8]);
    EXPECT_DOUBLE_EQ(value, couplings.at(k).at("predicted_hz").get<double>());
    ++k;
  }
  EXPECT_EQ(k, couplings.size());
}

TEST(PredictWindows, BadWindowsAreRefusedBeforeAnyOutput) {
  for (const std::string bad : {"4", "1", "0", "-3", "x", "3.5"}) {
    std::string args = "predict --window ";
    args += bad;
    args += " ";
    const RunResult r = run_vorn(args + kUbq);
    EXPECT_EQ(r.status, 2) << bad;
    EXPECT_TRUE(r.out.empty()) << bad;
  }
}

}  // namespace
}  // namespace vorn
