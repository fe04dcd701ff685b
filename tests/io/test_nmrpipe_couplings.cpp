// The NMRPipe table reader on a table written in that layout for the tests
// and on small texts.
#include <gtest/gtest.h>

#include <string>

#include "format_test_support.hpp"
#include "io/coupling_reader.hpp"
#include "io/number_text.hpp"

namespace vorn::io {
namespace {

using test::as;
using test::contains;
using test::expect_atom;
using test::kFormats;
using test::lines_of;
using test::text_of;
using test::words_of;

const std::string kTable = kFormats + "/ubq_2mjb_t500_nh.tab";

TEST(PipeCouplings, TheTableWithItsCount) {
  const std::string text = text_of(kTable);
  // Data rows: lines whose first word is a residue number.
  int rows = 0;
  long first_row = 0;
  const auto lines = lines_of(text);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const auto words = words_of(lines[i]);
    if (!words.empty() && number_text::to_int(words.front())) {
      if (rows++ == 0) first_row = static_cast<long>(i + 1);
    }
  }
  const CouplingFile file = read_couplings(kTable);
  EXPECT_EQ(file.format, CouplingFormat::pipe);
  ASSERT_EQ(file.sets.size(), 1u);
  EXPECT_EQ(file.sets[0].name, "");
  const auto& c = file.sets[0].couplings;
  EXPECT_EQ(static_cast<int>(c.size()), rows);
  // "2 GLN N 2 GLN HN 8.170 1.000 1.00"
  expect_atom(c[0].atom1, "", 2, "N");
  expect_atom(c[0].atom2, "", 2, "H");
  EXPECT_DOUBLE_EQ(c[0].value_hz, 8.17);
  EXPECT_DOUBLE_EQ(*c[0].error_hz, 1.0);
  EXPECT_EQ(c[0].line, first_row);
}

// The same couplings as the classic N-H file the table was written from.
TEST(PipeCouplings, SameCouplingsAsTheClassicFile) {
  const CouplingFile table = read_couplings(kTable);
  const CouplingFile classic =
      read_couplings(std::string(VORN_TEST_DATA_DIR) + "/couplings/ubq_2mjb_t500_bicelleA_nh.dc");
  const auto& a = table.sets.at(0).couplings;
  const auto& b = classic.sets.at(0).couplings;
  ASSERT_EQ(a.size(), b.size());
  for (std::size_t i = 0; i < a.size(); ++i) {
    EXPECT_EQ(a[i].atom1.residue, b[i].atom1.residue);
    EXPECT_EQ(a[i].atom1.name, b[i].atom1.name);
    EXPECT_EQ(a[i].atom2.name, b[i].atom2.name);
    EXPECT_DOUBLE_EQ(a[i].value_hz, b[i].value_hz);
  }
}

const std::string kHeader =
    "REMARK test\n"
    "VARS RESID_I RESNAME_I ATOMNAME_I RESID_J RESNAME_J ATOMNAME_J D DD W\n"
    "FORMAT %5d %6s %6s %5d %6s %6s %9.3f %9.3f %.2f\n"
    "\n";

TEST(PipeCouplings, WeightZeroLeavesARowOut) {
  const std::string text = kHeader +
                           "3 ILE N 3 ILE HN -8.271 1.0 1.00\n"
                           "4 PHE N 4 PHE HN -10.489 1.0 0.00\n"
                           "5 VAL CA 5 VAL HA 9.5 0.5 2.00\n";
  const CouplingFile file = parse_couplings(text, "t.tab", {});
  EXPECT_EQ(file.format, CouplingFormat::pipe);
  const auto& c = file.sets.at(0).couplings;
  ASSERT_EQ(c.size(), 2u);
  EXPECT_EQ(c[0].atom1.residue, 3);
  expect_atom(c[1].atom1, "", 5, "CA");
  expect_atom(c[1].atom2, "", 5, "HA");
  EXPECT_DOUBLE_EQ(c[1].value_hz, 9.5);
  EXPECT_EQ(c[1].line, 7);
}

TEST(PipeCouplings, ColumnsInAnyOrderAndOptionalOnes) {
  const std::string text =
      "VARS D ATOMNAME_J RESID_J ATOMNAME_I RESID_I\n"
      "1.5 H 7 N 7\n";
  const CouplingFile file = parse_couplings(text, "t.tab", {});
  const auto& c = file.sets.at(0).couplings;
  ASSERT_EQ(c.size(), 1u);
  expect_atom(c[0].atom1, "", 7, "N");
  expect_atom(c[0].atom2, "", 7, "H");
  EXPECT_DOUBLE_EQ(c[0].value_hz, 1.5);
  EXPECT_FALSE(c[0].error_hz.has_value());
}

TEST(PipeCouplings, BadLinesAreErrorsWithTheirLine) {
  const auto error = [](const std::string& text) {
    return test::error_of(text, "t.tab", as(CouplingFormat::pipe));
  };
  std::string e = error(kHeader + "3 ILE N 3 ILE HN -8.271 1.0\n");
  EXPECT_TRUE(contains(e, "t.tab:5: found 8 field(s), expected 9 as VARS (line 2) names")) << e;
  e = error(kHeader + "3 ILE N 3 ILE HN abc 1.0 1.00\n");
  EXPECT_TRUE(contains(e, "t.tab:5: D \"abc\" is not a number")) << e;
  e = error(kHeader + "3.5 ILE N 3 ILE HN 1.0 1.0 1.00\n");
  EXPECT_TRUE(contains(e, "t.tab:5: RESID_I \"3.5\" is not an integer")) << e;
  e = error(kHeader + "3 ILE N 3 ILE HN 1.0 -1.0 1.00\n");
  EXPECT_TRUE(contains(e, "t.tab:5: DD \"-1.0\" is negative")) << e;
  e = error("VARS RESID_I ATOMNAME_I RESID_J ATOMNAME_J\n");
  EXPECT_TRUE(contains(e, "t.tab:1: VARS names no D column")) << e;
  e = error("VARS RESID_I ATOMNAME_I RESID_J ATOMNAME_J D\nFORMAT %d %s %d %s\n");
  EXPECT_TRUE(contains(e, "t.tab:2: FORMAT has 4 entries, expected 5")) << e;
  e = error("3 N 3 H 1.0\nVARS RESID_I ATOMNAME_I RESID_J ATOMNAME_J D\n");
  EXPECT_TRUE(contains(e, "t.tab:1: found \"3\" before the VARS line")) << e;
  e = error(kHeader + "VARS RESID_I ATOMNAME_I RESID_J ATOMNAME_J D\n");
  EXPECT_TRUE(contains(e, "t.tab:5: a second VARS line (the first is line 2)")) << e;

  const CouplingFile lenient =
      parse_couplings(kHeader + "3 ILE N 3 ILE HN abc 1.0 1.00\n4 PHE N 4 PHE HN 2.0 1.0 1.00\n",
                      "t.tab", as(CouplingFormat::pipe, true));
  EXPECT_EQ(lenient.sets.at(0).couplings.size(), 1u);
  EXPECT_EQ(lenient.skipped_lines, 1);
}

TEST(PipeCouplings, OneUnnamedSet) {
  CouplingReadOptions options;
  options.set = "500";
  const std::string e = test::error_of(text_of(kTable), "t.tab", options);
  EXPECT_TRUE(contains(e, "t.tab: no coupling set \"500\", the pipe format holds one unnamed set"))
      << e;
  options.set = "";
  EXPECT_EQ(read_couplings(kTable, options).sets.size(), 1u);
}

}  // namespace
}  // namespace vorn::io
