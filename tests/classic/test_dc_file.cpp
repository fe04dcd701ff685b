// Reading the file of measured dipolar couplings: parsing, the sign of the
// extreme normalised coupling, the fatal cases and the per-type constants.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "capture.hpp"
#include "classic/dc_file.hpp"
#include "core/fatal.hpp"
#include "couplings/classic_types.hpp"

namespace vorn {
namespace {

struct DcRead {
  int count = -1;
  int dab_sign = 0;
  CouplingArrays couplings;
  bool closed = false;
};

// Runs reading_DCfile on the text as the -D file.
DcRead read_text(const std::string& text) {
  DcRead result;
  test::Input input(text);
  int flags[10] = {0, 0, 0, 1, 0, 0, 0, 0, 0, 0};
  FILE* files[10] = {};
  files[3] = input.release();
  result.dab_sign = 7;
  result.count = reading_DCfile(flags, files, result.couplings, result.dab_sign);
  result.closed = files[3] == nullptr;
  return result;
}

// Runs reading_DCfile expecting a fatal error; returns it.
FatalError read_fatal(const std::string& text) {
  test::Input input(text);
  int flags[10] = {0, 0, 0, 1, 0, 0, 0, 0, 0, 0};
  FILE* files[10] = {};
  files[3] = input.release();
  CouplingArrays couplings;
  int dab_sign = 1;
  try {
    reading_DCfile(flags, files, couplings, dab_sign);
  } catch (const FatalError& error) {
    EXPECT_EQ(files[3], nullptr) << "the file is closed before the error";
    return error;
  }
  ADD_FAILURE() << "no fatal error";
  return FatalError("", "", Stream::out, 0);
}

const std::string kFormatError =
    "Error: Input data in file with measured dipolar couplings have wrong format\n";
const std::string kTypeError =
    "Error: DC type must be 0 to 5 in file with measured dipolar couplings\n";
const std::string kTooMany =
    "run-time error...\nToo many measured dipolar couplings ...\n...now exiting to system...\n";

TEST(DcConstants, TablesHoldThePerTypeConstants) {
  const double norm[6] = {1.0,
                          -0.4991227672784314,
                          -5.0231625890264935,
                          8.249400137058982,
                          -3.1549944012289135,
                          -1.0900591012398613};
  const double dip[6] = {24350.5172875806,  -60421.00068816512, -15196.281506272859,
                         6124.316236257224, -60421.00068816512, -240236.22638553267};
  const double radius[6] = {0.883887196732027,   0.7136902116828648,  0.28196192632863554,
                            0.42601516310913484, 0.11290639162336669, 0.08218952905399854};
  for (int t = 0; t < kDcTypes; ++t) {
    EXPECT_EQ(dcNORMFACTORS[t], norm[t]) << t;
    EXPECT_EQ(maxDIPCOUP[t], dip[t]) << t;
    EXPECT_EQ(radiusInCubeDCTypes[t], radius[t]) << t;
  }
}

TEST(ReadingDcFile, WithoutTheOptionNothingIsRead) {
  test::Input input("12 -7.35 0\n");
  int flags[10] = {0, 1, 1, 0, 0, 0, 0, 0, 0, 0};
  FILE* files[10] = {};
  files[3] = input.file();
  CouplingArrays couplings;
  couplings.dc[1] = 42.0;
  int dab_sign = 5;
  EXPECT_EQ(reading_DCfile(flags, files, couplings, dab_sign), 0);
  EXPECT_EQ(dab_sign, 5);
  EXPECT_EQ(couplings.dc[1], 42.0);
  EXPECT_EQ(files[3], input.file()) << "the file is neither read nor closed";
  char line[32];
  ASSERT_NE(std::fgets(line, sizeof line, input.file()), nullptr);
  EXPECT_STREQ(line, "12 -7.35 0\n");
}

TEST(ReadingDcFile, EmptyFileGivesNoCouplingAndPositiveSign) {
  const DcRead r = read_text("");
  EXPECT_EQ(r.count, 0);
  EXPECT_EQ(r.dab_sign, 1);
  EXPECT_TRUE(r.closed);
}

TEST(ReadingDcFile, StoresRawValuesFromIndexOne) {
  const DcRead r = read_text("12 -7.35 0\n13 4.5 1\n14   -0.25\t2\n15 1.0 3\n16 2 4\n17 3.5 5\n");
  ASSERT_EQ(r.count, 6);
  EXPECT_EQ(r.couplings.dc_res[1], 12);
  EXPECT_EQ(r.couplings.dc[1], -7.35);
  EXPECT_EQ(r.couplings.dcmax[1], 0);
  EXPECT_EQ(r.couplings.dc_res[3], 14);
  EXPECT_EQ(r.couplings.dc[3], -0.25);  // stored as read, not normalised
  EXPECT_EQ(r.couplings.dcmax[3], 2);
  EXPECT_EQ(r.couplings.dc[5], 2.0);
  EXPECT_EQ(r.couplings.dcmax[6], 5);
  EXPECT_EQ(r.couplings.dc_res[0], 0) << "index 0 is not used";
  EXPECT_TRUE(r.closed);
}

TEST(ReadingDcFile, AllPositiveNormalisedCouplingsGivePlusOne) {
  // Type 1 has a negative factor: -2.0 Hz is +4.007 on the N-H scale.
  EXPECT_EQ(read_text("1 3.0 0\n2 -2.0 1\n3 0.5 0\n").dab_sign, 1);
}

TEST(ReadingDcFile, LargerNegativeExtremeGivesMinusOne) {
  EXPECT_EQ(read_text("1 3.0 0\n2 -5.0 0\n").dab_sign, -1);
  // 4.0 Hz of type 1 is -8.014 normalised, beyond the +5.0 of the N-H line.
  EXPECT_EQ(read_text("1 5.0 0\n2 4.0 1\n").dab_sign, -1);
  // The raw values alone would say otherwise: -6.0 Hz of type 2 is only
  // +1.19 normalised, so +3.0 is the extreme.
  EXPECT_EQ(read_text("1 3.0 0\n2 -6.0 2\n").dab_sign, 1);
}

TEST(ReadingDcFile, EqualMagnitudesGivePlusOne) {
  EXPECT_EQ(read_text("1 -5.0 0\n2 5.0 0\n").dab_sign, 1);
  // A single coupling is both extremes, whatever its sign.
  EXPECT_EQ(read_text("1 -2.5 0\n").dab_sign, 1);
}

TEST(ReadingDcFile, TextAfterTheThirdNumberIsIgnored) {
  const DcRead r = read_text("12 -7.35 0 extra words 99\n13 1.5 2# note\n");
  ASSERT_EQ(r.count, 2);
  EXPECT_EQ(r.couplings.dc_res[1], 12);
  EXPECT_EQ(r.couplings.dc[1], -7.35);
  EXPECT_EQ(r.couplings.dcmax[1], 0);
  EXPECT_EQ(r.couplings.dcmax[2], 2);
}

TEST(ReadingDcFile, LineWithTwoNumbersIsFatal) {
  const FatalError e = read_fatal("12 -7.35 0\n13 4.5\n14 1.0 0\n");
  EXPECT_EQ(e.text(), kFormatError + "Line:13 4.5\n");
  EXPECT_EQ(e.stream(), Stream::err);
  EXPECT_EQ(e.status(), 1);
}

TEST(ReadingDcFile, BlankLineIsFatal) {
  const FatalError e = read_fatal("12 -7.35 0\n\n");
  EXPECT_EQ(e.text(), kFormatError + "Line:\n");
  EXPECT_EQ(e.status(), 1);
}

TEST(ReadingDcFile, LastLineWithoutNewlineIsShownAsRead) {
  const FatalError e = read_fatal("12 x 0");
  EXPECT_EQ(e.text(), kFormatError + "Line:12 x 0");
}

TEST(ReadingDcFile, LinesAreReadInPiecesOf99Characters) {
  // The first 99 characters parse; the rest of the line is a piece of its
  // own, holds only blanks and is rejected.
  const std::string head = "5 1.25 0";
  const std::string line = head + std::string(99 - head.size() + 3, ' ') + "\n";
  const FatalError e = read_fatal(line);
  EXPECT_EQ(e.text(), kFormatError + "Line:   \n");
}

TEST(ReadingDcFile, TypeOutsideTheTablesIsFatal) {
  FatalError e = read_fatal("1 2.0 0\n2 3.0 6\n");
  EXPECT_EQ(e.text(), kTypeError + "Line:2 3.0 6\n");
  EXPECT_EQ(e.stream(), Stream::err);
  EXPECT_EQ(e.status(), 1);
  e = read_fatal("2 3.0 -1\n");
  EXPECT_EQ(e.text(), kTypeError + "Line:2 3.0 -1\n");
}

std::string lines(int n) {
  std::string text;
  for (int i = 1; i <= n; ++i) text += std::to_string(i) + " 1.5 0\n";
  return text;
}

TEST(ReadingDcFile, FileOf4998CouplingsIsAccepted) {
  const DcRead r = read_text(lines(4998));
  EXPECT_EQ(r.count, 4998);
  EXPECT_EQ(r.couplings.dc_res[4998], 4998);
}

TEST(ReadingDcFile, ExactlyFourThousandNineHundredNinetyNineIsFatal) {
  const FatalError e = read_fatal(lines(4999));
  EXPECT_EQ(e.text(), kTooMany);
  EXPECT_EQ(e.stream(), Stream::err);
  EXPECT_EQ(e.status(), 1);
}

TEST(ReadingDcFile, LongerFilesAreRejectedWithoutOverrun) {
  EXPECT_EQ(read_fatal(lines(5000)).text(), kTooMany);
  EXPECT_EQ(read_fatal(lines(6000)).text(), kTooMany);
}

TEST(ReadingDcFile, SmallerStorageIsNeverOverrun) {
  test::Input input(lines(20));
  int flags[10] = {0, 0, 0, 1, 0, 0, 0, 0, 0, 0};
  FILE* files[10] = {};
  files[3] = input.release();
  CouplingArrays couplings;
  for (auto* v : {&couplings.dc_res, &couplings.dcmax}) v->resize(10);
  for (auto* v : {&couplings.dc, &couplings.coor_x, &couplings.coor_y, &couplings.coor_z})
    v->resize(10);
  int dab_sign = 1;
  try {
    reading_DCfile(flags, files, couplings, dab_sign);
    FAIL() << "no fatal error";
  } catch (const FatalError& error) {
    EXPECT_EQ(error.text(), kTooMany);
  }
}

}  // namespace
}  // namespace vorn
