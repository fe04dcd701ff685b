// The run sequence as a whole, in process: which sections a run prints.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "capture.hpp"
#include "classic/run.hpp"

namespace vorn {
namespace {

using test::Capture;
using test::Input;

// Three residues with amide, alpha and carbonyl atoms; small orientation
// sampling so that a run takes milliseconds.
const char* kMolecule =
    "ATOM 1 N MET 1 0.000 0.000 0.000\n"
    "ATOM 2 H MET 1 0.000 1.010 0.000\n"
    "ATOM 3 CA MET 1 1.458 -0.300 0.200\n"
    "ATOM 4 HA MET 1 1.700 -1.300 -0.200\n"
    "ATOM 5 C MET 1 2.300 0.800 -0.400\n"
    "ATOM 6 N GLN 2 3.600 0.500 -0.300\n"
    "ATOM 7 H GLN 2 3.900 -0.400 0.100\n"
    "ATOM 8 CA GLN 2 4.600 1.500 -0.700\n"
    "ATOM 9 HA GLN 2 4.300 2.500 -0.300\n"
    "ATOM 10 C GLN 2 6.000 1.100 -0.200\n"
    "ATOM 11 N ILE 3 6.900 2.000 0.100\n"
    "ATOM 12 H ILE 3 6.600 2.900 -0.300\n"
    "ATOM 13 CA ILE 3 8.300 1.800 0.500\n"
    "ATOM 14 HA ILE 3 8.600 0.800 0.200\n"
    "ATOM 15 C ILE 3 9.100 2.900 -0.200\n"
    "END\n";

class RunSequence : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/vorn_runXXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
    write("mol.pdb", kMolecule);
    write("small.auto", "SELECT_FLAG: 3\nDIGIT_BETA: 4\nDIGIT_ALPHA: 8\nDIGIT_GAMMA: 8\n");
  }
  void TearDown() override {
    for (const std::string& name : written_) std::remove((dir_ + "/" + name).c_str());
    rmdir(dir_.c_str());
  }
  void write(const std::string& name, const std::string& text) {
    FILE* f = std::fopen((dir_ + "/" + name).c_str(), "w");
    ASSERT_NE(f, nullptr);
    std::fputs(text.c_str(), f);
    std::fclose(f);
    written_.push_back(name);
  }
  int run(const std::vector<std::string>& args) {
    std::vector<std::string> full{"vorn"};
    for (const std::string& a : args) full.push_back(a);
    std::vector<const char*> argv;
    for (const std::string& a : full) argv.push_back(a.c_str());
    Input in("");
    Capture out;
    Capture err;
    Io io{in.file(), out.file(), err.file()};
    const int status = run_and_report(static_cast<int>(argv.size()), argv.data(), io);
    out_ = out.str();
    err_ = err.str();
    return status;
  }
  std::string path(const std::string& name) const { return dir_ + "/" + name; }

  std::string dir_;
  std::vector<std::string> written_;
  std::string out_;
  std::string err_;
};

TEST_F(RunSequence, WithoutCouplingsTheReportEndsTheOutput) {
  EXPECT_EQ(run({"-A" + path("small.auto"), path("mol.pdb")}), 0);
  EXPECT_EQ(err_, "");
  EXPECT_NE(out_.find("\nSimulation\n==========\n"), std::string::npos);
  EXPECT_EQ(out_.find("Comparison of predicted"), std::string::npos);
  EXPECT_EQ(out_.find("SVD"), std::string::npos);
  const std::string tail = "\ngamma   :  ";
  const size_t at = out_.rfind(tail);
  ASSERT_NE(at, std::string::npos);
  // The gamma line is the last line of the output, followed by "\n\n".
  EXPECT_EQ(out_.find('\n', at + 1), out_.size() - 2);
}

TEST_F(RunSequence, FiveUsableCouplingsGiveTheComparisonButNoFit) {
  // Six lines, one of them without a measured value (1000.0 Hz).
  write("five.dc", "1 5.0 0\n2 -3.0 0\n3 4.0 0\n2 1.5 1\n3 -2.5 1\n1 1000.0 1\n");
  EXPECT_EQ(run({"-A" + path("small.auto"), "-D" + path("five.dc"), path("mol.pdb")}), 0);
  EXPECT_EQ(err_, "");
  EXPECT_NE(out_.find("Comparison of predicted residual dipolar couplings"), std::string::npos);
  EXPECT_NE(out_.find("1        [1]        p: "), std::string::npos);
  EXPECT_NE(out_.find("m:     --      diff:    --\n"), std::string::npos);
  EXPECT_EQ(out_.find("\n\nSVD\n"), std::string::npos);
}

TEST_F(RunSequence, SixUsableCouplingsAddTheFitSection) {
  write("six.dc", "1 5.0 0\n2 -3.0 0\n3 4.0 0\n2 1.5 1\n3 -2.5 1\n1 0.8 1\n");
  EXPECT_EQ(run({"-A" + path("small.auto"), "-D" + path("six.dc"), path("mol.pdb")}), 0);
  EXPECT_EQ(err_, "");
  const size_t svd = out_.find("\n\nSVD\n===\n# of DC: 6\n");
  ASSERT_NE(svd, std::string::npos);
  // The fitted tensor gets its own report and comparison.
  EXPECT_NE(out_.find("Magnitude of alignment tensor", svd), std::string::npos);
  EXPECT_NE(out_.find("Comparison of predicted residual dipolar couplings", svd),
            std::string::npos);
  EXPECT_EQ(out_.find("Comparison of predicted"), out_.rfind("Comparison of predicted", svd));
}

TEST_F(RunSequence, OutputFileIsCreatedAndStaysEmpty) {
  EXPECT_EQ(run({"-O" + path("result.out"), "-A" + path("small.auto"), path("mol.pdb")}), 0);
  written_.push_back("result.out");
  FILE* f = std::fopen(path("result.out").c_str(), "r");
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(std::fgetc(f), EOF);
  std::fclose(f);
}

TEST_F(RunSequence, FatalErrorGivesItsTextAndStatus) {
  EXPECT_EQ(run({"-A" + path("small.auto"), path("missing.pdb")}), 1);
  EXPECT_EQ(err_, "run-time errror...\n'" + path("missing.pdb") +
                      "' - There is no such file!\n...now exiting to system...\n");
}

}  // namespace
}  // namespace vorn
