// `vorn predict` and `vorn fit` with --format nef and pipe, run as a
// program: what they write reads back through VORN's coupling reader to
// the couplings and values of their JSON reports.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "io/coupling_reader.hpp"
#include "run_command.hpp"

namespace vorn {
namespace {

namespace fs = std::filesystem;
using json = nlohmann::json;

const std::string kData = VORN_TEST_DATA_DIR;
const std::string kModel1 = kData + "/structures/ubq_1d3z_m1.pdb";
const std::string kModels = kData + "/structures/ubq_1d3z_models1-4.pdb";
const std::string kXplor = kData + "/raw/2mjb_mr_rdc_section.mr";
// A coarse orientation sampling: the test is about the files, not the tensor.
const std::string kSampling = " -q --sampling 3,6,6 ";

using RunResult = test::CommandResult;

std::string temp_path(const std::string& name) {
  return (fs::temp_directory_path() /
          ("vorn_exchange_test_" + std::to_string(::getpid()) + "_" + name))
      .string();
}

RunResult run_vorn(const std::string& args) {
  return test::run_command(std::string(VORN_BINARY) + " " + args, temp_path("stderr.txt"));
}

// Runs vorn writing to a file and reads that file back as couplings.
io::CouplingFile written_and_read(const std::string& args, const std::string& name) {
  const std::string path = temp_path(name);
  const RunResult r = run_vorn(args + " -o '" + path + "'");
  EXPECT_EQ(r.status, 0) << r.err;
  io::CouplingFile file = io::read_couplings(path);
  fs::remove(path);
  return file;
}

json json_of(const std::string& args) {
  const RunResult r = run_vorn(args);
  EXPECT_EQ(r.status, 0) << r.err;
  return json::parse(r.out);
}

// The atoms of a predicted coupling of the JSON report: atom1 in the
// residue before for C-N and C-HN.
void expect_predicted_site(const io::MeasuredCoupling& read, const json& c) {
  const int residue = c["residue"].get<int>();
  const std::string type = c["type"].get<std::string>();
  const int residue1 = type == "C-N" || type == "C-HN" ? residue - 1 : residue;
  EXPECT_EQ(read.atom1.residue, residue1) << c;
  EXPECT_EQ(read.atom1.name, c["atom1"].get<std::string>()) << c;
  EXPECT_EQ(read.atom2.residue, residue) << c;
  EXPECT_EQ(read.atom2.name, c["atom2"].get<std::string>()) << c;
  EXPECT_EQ(read.atom1.chain, c["chain"].get<std::string>()) << c;
}

TEST(CouplingExchange, PredictNefOneListPerModelExactValues) {
  const json report = json_of("predict --format json" + kSampling + "'" + kModels + "'");
  const io::CouplingFile file =
      written_and_read("predict --format nef" + kSampling + "'" + kModels + "'", "models.nef");
  EXPECT_EQ(file.format, io::CouplingFormat::nef);
  const json& models = report["models"];
  ASSERT_EQ(file.sets.size(), models.size());
  ASSERT_EQ(models.size(), 4u);
  for (std::size_t k = 0; k < models.size(); ++k) {
    EXPECT_EQ(file.sets[k].name, "model_" + std::to_string(models[k]["model"].get<int>()));
    const json& couplings = models[k]["couplings"];
    const auto& read = file.sets[k].couplings;
    ASSERT_EQ(read.size(), couplings.size());
    for (std::size_t i = 0; i < read.size(); ++i) {
      expect_predicted_site(read[i], couplings[i]);
      EXPECT_EQ(read[i].value_hz, couplings[i]["predicted_hz"].get<double>()) << i;
      EXPECT_FALSE(read[i].error_hz.has_value());
    }
  }
}

TEST(CouplingExchange, PredictPipeOneModel) {
  const json report = json_of("predict --format json" + kSampling + "'" + kModel1 + "'");
  const io::CouplingFile file =
      written_and_read("predict --format pipe" + kSampling + "'" + kModel1 + "'", "model.tab");
  EXPECT_EQ(file.format, io::CouplingFormat::pipe);
  const json& couplings = report["models"][0]["couplings"];
  const auto& read = file.sets.at(0).couplings;
  ASSERT_EQ(read.size(), couplings.size());
  for (std::size_t i = 0; i < read.size(); ++i) {
    expect_predicted_site(read[i], couplings[i]);
    // Six decimals in the table.
    EXPECT_LE(std::fabs(read[i].value_hz - couplings[i]["predicted_hz"].get<double>()), 5e-7);
  }
}

TEST(CouplingExchange, PredictPipeRefusesSeveralModelsAndWritesNothing) {
  const std::string path = temp_path("refused.tab");
  const RunResult r =
      run_vorn("predict --format pipe" + kSampling + "'" + kModels + "' -o '" + path + "'");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("more than one model (choose one with --models"), std::string::npos)
      << r.err;
  EXPECT_FALSE(fs::exists(path));
  // One model chosen: a table.
  const io::CouplingFile file = written_and_read(
      "predict --format pipe --models 3" + kSampling + "'" + kModels + "'", "model3.tab");
  EXPECT_GT(file.sets.at(0).couplings.size(), 0u);
}

TEST(CouplingExchange, FitNefBackCalculatedPerSetExactValues) {
  const json report = json_of("fit --format json '" + kModel1 + "' '" + kXplor + "'");
  const io::CouplingFile file =
      written_and_read("fit --format nef '" + kModel1 + "' '" + kXplor + "'", "fit.nef");
  const json& sets = report["sets"];
  ASSERT_EQ(file.sets.size(), sets.size());
  for (std::size_t k = 0; k < sets.size(); ++k) {
    EXPECT_EQ(file.sets[k].name, sets[k]["set"].get<std::string>());
    const json& couplings = sets[k]["couplings"];
    const auto& read = file.sets[k].couplings;
    ASSERT_EQ(read.size(), couplings.size());
    for (std::size_t i = 0; i < read.size(); ++i) {
      const json& c = couplings[i];
      EXPECT_EQ(read[i].atom1.residue, c["residue1"].get<int>());
      EXPECT_EQ(read[i].atom1.name, c["atom1"].get<std::string>());
      EXPECT_EQ(read[i].atom2.residue, c["residue2"].get<int>());
      EXPECT_EQ(read[i].atom2.name, c["atom2"].get<std::string>());
      EXPECT_EQ(read[i].value_hz, c["calculated_hz"].get<double>());
    }
  }
}

TEST(CouplingExchange, FitOfItsOwnBackCalculatedCouplingsLeavesNoResidual) {
  const std::string path = temp_path("own.nef");
  const RunResult r =
      run_vorn("fit --format nef '" + kModel1 + "' '" + kXplor + "' -o '" + path + "'");
  ASSERT_EQ(r.status, 0) << r.err;
  const json first = json_of("fit --format json --set 500 '" + kModel1 + "' '" + kXplor + "'");
  const json again = json_of("fit --format json --set 500 '" + kModel1 + "' '" + path + "'");
  fs::remove(path);
  EXPECT_EQ(again["input"]["couplings_format"], "nef");
  EXPECT_LT(again["sets"][0]["quality"]["rmsd_hz"].get<double>(), 1e-9);
  EXPECT_NEAR(again["sets"][0]["tensor"]["da_hz"].get<double>(),
              first["sets"][0]["tensor"]["da_hz"].get<double>(), 1e-9);
}

TEST(CouplingExchange, FitPipeOneSetWithErrors) {
  const std::string args =
      "--set 500 --errors montecarlo --samples 50 --seed 7 '" + kModel1 + "' '" + kXplor + "'";
  const json report = json_of("fit --format json " + args);
  const io::CouplingFile file = written_and_read("fit --format pipe " + args, "fit.tab");
  const json& couplings = report["sets"][0]["couplings"];
  const auto& read = file.sets.at(0).couplings;
  ASSERT_EQ(read.size(), couplings.size());
  for (std::size_t i = 0; i < read.size(); ++i) {
    EXPECT_LE(std::fabs(read[i].value_hz - couplings[i]["calculated_hz"].get<double>()), 5e-7);
    ASSERT_TRUE(read[i].error_hz.has_value());
    EXPECT_LE(std::fabs(*read[i].error_hz - couplings[i]["calculated_sd_hz"].get<double>()), 5e-7);
  }
  // All four sets do not fit one table.
  const RunResult r = run_vorn("fit --format pipe '" + kModel1 + "' '" + kXplor + "'");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("the fit gives 4 (one per set; choose one with --set"), std::string::npos)
      << r.err;
}

// The exchange formats as input of the fit: the NMRPipe table written from
// the classic N-H file fits to the same tensor.
TEST(CouplingExchange, FitReadsThePipeTableAsTheClassicFile) {
  const json classic = json_of("fit --format json '" + kModel1 + "' '" + kData +
                               "/couplings/ubq_2mjb_t500_bicelleA_nh.dc'");
  const json table =
      json_of("fit --format json '" + kModel1 + "' '" + kData + "/formats/ubq_2mjb_t500_nh.tab'");
  EXPECT_EQ(table["input"]["couplings_format"], "pipe");
  const json& a = classic["sets"][0];
  const json& b = table["sets"][0];
  EXPECT_EQ(a["n"], b["n"]);
  // The table's uniform errors weigh every coupling alike, as no errors do.
  EXPECT_NEAR(a["tensor"]["da_hz"].get<double>(), b["tensor"]["da_hz"].get<double>(), 1e-9);
  EXPECT_NEAR(a["tensor"]["rhombicity"].get<double>(), b["tensor"]["rhombicity"].get<double>(),
              1e-9);
}

}  // namespace
}  // namespace vorn
