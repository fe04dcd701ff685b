#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "capture.hpp"
#include "classic/cmdline.hpp"
#include "core/fatal.hpp"

namespace vorn {
namespace {

using test::Capture;

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start <= text.size()) {
    const size_t end = text.find('\n', start);
    if (end == std::string::npos) {
      lines.push_back(text.substr(start));
      break;
    }
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

TEST(Banner, ThreeFramedLinesOfSixtyNineCharacters) {
  Capture out;
  legal_notice(out.file());
  const std::string text = out.str();
  const std::string frame = " *" + std::string(66, '-') + "*";
  ASSERT_EQ(text.substr(0, 2), "\n\n");
  const auto lines = lines_of(text);
  // "", "", frame, notice, frame, "", "", "", then the next output.
  ASSERT_EQ(lines.size(), 9U);
  EXPECT_EQ(lines[2], frame);
  EXPECT_EQ(lines[4], frame);
  EXPECT_EQ(lines[3].size(), 69U);
  EXPECT_EQ(lines[3].substr(0, 19), " |             VORN");
  EXPECT_EQ(lines[3].substr(66), "  |");
  EXPECT_NE(lines[3].find("VORN developers"), std::string::npos);
  EXPECT_EQ(lines[5], "");
  EXPECT_EQ(lines[6], "");
  EXPECT_EQ(lines[7], "");
  EXPECT_EQ(lines[8], "");
}

class ReadFlags : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/vorn_flagsXXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
    existing_ = dir_ + "/exists.txt";
    FILE* f = std::fopen(existing_.c_str(), "w");
    std::fputs("x\n", f);
    std::fclose(f);
  }
  void TearDown() override {
    for (FILE*& f : files_)
      if (f != nullptr) std::fclose(f);
    std::remove(existing_.c_str());
    std::remove((dir_ + "/out.txt").c_str());
    rmdir(dir_.c_str());
  }
  int call(const std::vector<std::string>& args) {
    std::vector<const char*> argv;
    for (const auto& a : args) argv.push_back(a.c_str());
    return read_flags(static_cast<int>(argv.size()), argv.data(), flag_ok_, flags_, files_);
  }
  std::string dir_;
  std::string existing_;
  int flag_ok_ = -1;
  int flags_[kOptionSlots] = {};
  FILE* files_[kOptionSlots] = {};
};

TEST_F(ReadFlags, NoOptions) {
  EXPECT_EQ(call({"vorn", "mol.pdb"}), 0);
  EXPECT_EQ(flag_ok_, 0);
  for (int flag : flags_) EXPECT_EQ(flag, 0);
}

TEST_F(ReadFlags, AllThreeOptionsOpenTheirFiles) {
  const std::string out_name = dir_ + "/out.txt";
  EXPECT_EQ(call({"vorn", "-A" + existing_, "-O" + out_name, "-D" + existing_, "mol.pdb"}), 3);
  EXPECT_EQ(flag_ok_, 1);
  EXPECT_EQ(flags_[1], 1);
  EXPECT_EQ(flags_[2], 1);
  EXPECT_EQ(flags_[3], 1);
  EXPECT_NE(files_[1], nullptr);
  EXPECT_NE(files_[2], nullptr);
  EXPECT_NE(files_[3], nullptr);
  EXPECT_EQ(access(out_name.c_str(), F_OK), 0);
}

TEST_F(ReadFlags, ParsingStopsAtTheFirstArgumentWithoutDash) {
  EXPECT_EQ(call({"vorn", "mol.pdb", "-D" + existing_}), 0);
  EXPECT_EQ(flags_[3], 0);
}

TEST_F(ReadFlags, OptionGivenTwiceCountsTwice) {
  EXPECT_EQ(call({"vorn", "-D" + existing_, "-D" + existing_, "mol.pdb"}), 2);
  EXPECT_EQ(flags_[3], 1);
}

TEST_F(ReadFlags, BadOptionQuotesTheWholeArgument) {
  try {
    call({"vorn", "-Qfile", "mol.pdb"});
    FAIL() << "no error";
  } catch (const FatalError& e) {
    EXPECT_EQ(e.text(), "\n\nrun-time error:   bad option: -Qfile\nexiting to system...\n");
    EXPECT_EQ(e.stream(), Stream::err);
    EXPECT_EQ(e.status(), 1);
  }
}

TEST_F(ReadFlags, MissingDcFile) {
  try {
    call({"vorn", "-D" + dir_ + "/none.dc", "mol.pdb"});
    FAIL() << "no error";
  } catch (const FatalError& e) {
    EXPECT_EQ(e.text(), "\n\nrun-time error:   unable to open file '" + dir_ +
                            "/none.dc'\nexiting to system...\n");
    EXPECT_EQ(e.status(), 1);
  }
}

TEST_F(ReadFlags, MissingAutoFileHasTheStrayN) {
  try {
    call({"vorn", "-A" + dir_ + "/none.auto", "mol.pdb"});
    FAIL() << "no error";
  } catch (const FatalError& e) {
    EXPECT_EQ(e.text(), "\n\nnrun-time error:   unable to open file '" + dir_ +
                            "/none.auto'\nexiting to system...\n");
  }
}

TEST_F(ReadFlags, BareLetterOpensTheEmptyName) {
  try {
    call({"vorn", "-D", "mol.pdb"});
    FAIL() << "no error";
  } catch (const FatalError& e) {
    EXPECT_EQ(e.text(), "\n\nrun-time error:   unable to open file ''\nexiting to system...\n");
  }
}

TEST_F(ReadFlags, OutputFileInUnwritableDirectory) {
  try {
    call({"vorn", "-O/nonexistent-dir/x.out", "mol.pdb"});
    FAIL() << "no error";
  } catch (const FatalError& e) {
    EXPECT_EQ(e.text(),
              "\n\nrun-time error:   unable to open file '/nonexistent-dir/x.out'\n"
              "exiting to system...\n");
  }
}

[[noreturn]] void throwing_nerror(const std::string& text) { nerror(text); }

TEST(AufrufCheck, ReturnsWhenCountsAgree) {
  Capture out;
  Aufruf_Check(2, 2, throwing_nerror, out.file());
  EXPECT_EQ(out.str(), "");
}

TEST(AufrufCheck, UsageTextThenNerrorWithBareLineFeed) {
  Capture out;
  try {
    Aufruf_Check(2, 1, throwing_nerror, out.file());
    FAIL() << "no error";
  } catch (const FatalError& e) {
    EXPECT_EQ(e.text(), "run-time error...\n\n\n...now exiting to system...\n");
    EXPECT_EQ(e.status(), 1);
  }
  const auto lines = lines_of(out.str());
  ASSERT_GE(lines.size(), 22U);
  EXPECT_EQ(lines[0], "");
  EXPECT_EQ(lines[1], std::string(50, '='));
  EXPECT_EQ(lines[2], "VORN is a program for predicting the magnitude and");
  EXPECT_EQ(lines[11], "   Usage:   VORN [pdb-file]");
  EXPECT_EQ(lines[15], "   Usage:   VORN -D[measured dipolar coupling-file] [pdb-file]");
  EXPECT_EQ(lines[19],
            "   Usage:   VORN -A[configuration file] -D[measured dipolar coupling-file] "
            "[pdb-file]");
  EXPECT_EQ(out.str().substr(out.str().size() - 53), "\n" + std::string(50, '=') + "\n\n");
}

TEST(FatalUtilities, Nerror) {
  try {
    nerror("Too many atoms ...");
    FAIL();
  } catch (const FatalError& e) {
    EXPECT_EQ(e.text(), "run-time error...\nToo many atoms ...\n...now exiting to system...\n");
    EXPECT_EQ(e.stream(), Stream::err);
    EXPECT_EQ(e.status(), 1);
  }
}

TEST(FatalUtilities, NerrorDateiHasThreeRs) {
  try {
    nerror_datei("x.pdb");
    FAIL();
  } catch (const FatalError& e) {
    EXPECT_EQ(
        e.text(),
        "run-time errror...\n'x.pdb' - There is no such file!\n...now exiting to system...\n");
  }
}

TEST(FatalUtilities, Nrerror) {
  try {
    nrerror("Too many iterations in routine jacobi");
    FAIL();
  } catch (const FatalError& e) {
    EXPECT_EQ(e.text(),
              "Numerical Recipes run-time error...\nToo many iterations in routine jacobi\n"
              "...now exiting to system...\n");
    EXPECT_EQ(e.status(), 1);
  }
}

TEST(FatalUtilities, DateiOeffnen) {
  FILE* f = DateiOeffnen("/dev/null", "r");
  ASSERT_NE(f, nullptr);
  std::fclose(f);
  EXPECT_THROW(DateiOeffnen("/nonexistent/file.pdb", "r"), FatalError);
}

}  // namespace
}  // namespace vorn
