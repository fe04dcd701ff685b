// The NMR-STAR reader on an excerpt of a real restraint file (with its "$"
// save-frame reference) and on small texts in the same layout.
#include <gtest/gtest.h>

#include <string>

#include "format_test_support.hpp"
#include "io/coupling_reader.hpp"
#include "io/star_document.hpp"

namespace vorn::io {
namespace {

using test::as;
using test::contains;
using test::expect_atom;
using test::kFormats;
using test::line_starting;
using test::lines_of;
using test::text_of;
using test::words_of;

const std::string k2kw5 = kFormats + "/2kw5_mr_rdc_excerpt.str.gz";

// The rows of the _RDC_constraint loop: lines after its last tag up to stop_.
int constraint_rows(const std::string& text) {
  int rows = 0;
  bool in_tags = false, in_rows = false;
  for (const std::string& line : lines_of(text)) {
    const auto words = words_of(line);
    if (words.empty()) continue;
    if (words.front().rfind("_RDC_constraint.", 0) == 0) {
      in_tags = true;
    } else if (words.front() == "stop_") {
      in_tags = in_rows = false;
    } else if (in_tags || in_rows) {
      in_tags = false;
      in_rows = true;
      ++rows;
    }
  }
  return rows;
}

TEST(NmrStarCouplings, TheRestraintFrameOfTheRealFile) {
  const std::string text = text_of(k2kw5);
  const int rows = constraint_rows(text);
  ASSERT_GT(rows, 0);
  const CouplingFile file = read_couplings(k2kw5);
  EXPECT_EQ(file.format, CouplingFormat::nmrstar);
  ASSERT_EQ(file.sets.size(), 1u);
  EXPECT_EQ(file.sets[0].name, "CNS/XPLOR_dipolar_coupling_5");
  EXPECT_EQ(static_cast<int>(file.sets[0].couplings.size()), rows);

  // Row 1: Seq_ID numbering N-H of VAL 22, author numbering HN then N
  // (chain "." in Auth_asym_ID), RDC_val 0.588, no error.
  const MeasuredCoupling& first = file.sets[0].couplings.front();
  expect_atom(first.atom1, "", 22, "H");
  expect_atom(first.atom2, "", 22, "N");
  EXPECT_DOUBLE_EQ(first.value_hz, 0.588);
  EXPECT_FALSE(first.error_hz.has_value());
  EXPECT_EQ(first.line, line_starting(text, {"1", ".", "1", "1", "22", "22", "VAL"}));
  // Row 11: CYS 45, -2.457.
  const MeasuredCoupling& c11 = file.sets[0].couplings[10];
  expect_atom(c11.atom1, "", 45, "H");
  EXPECT_DOUBLE_EQ(c11.value_hz, -2.457);
  EXPECT_EQ(c11.line, line_starting(text, {"11", ".", "1", "1", "45"}));
}

TEST(NmrStarCouplings, FrameReferenceOfLine109Survives) {
  const std::string text = text_of(k2kw5);
  const std::vector<std::string> lines = lines_of(text);
  ASSERT_GT(lines.size(), 109u);
  // The excerpt keeps the real file's line 109 with its unquoted reference.
  const auto words = words_of(lines[108]);
  ASSERT_GE(words.size(), 5u);
  EXPECT_EQ(words[4], "$Slr1183_protein");
  const std::string quoted = detail::quote_frame_references(text);
  EXPECT_EQ(lines_of(quoted).size(), lines.size());
  EXPECT_TRUE(contains(lines_of(quoted)[108], "'$Slr1183_protein'"));
  // The value reads back unquoted, in its frame and loop.
  const detail::StarDocument document = detail::read_star(text, "2kw5");
  bool found = false;
  for (const detail::StarFrame& frame : document.frames) {
    if (frame.name != "assembly") continue;
    for (const detail::StarLoop& loop : frame.loops) {
      for (std::size_t i = 0; i < loop.values.size(); ++i) {
        if (loop.values[i] == std::optional<std::string>("$Slr1183_protein")) {
          EXPECT_EQ(loop.value_lines[i], 109);
          found = true;
        }
      }
    }
  }
  EXPECT_TRUE(found);
}

TEST(StarText, OnlyUnquotedReferencesAreQuoted) {
  const std::string text =
      "data_x\n"
      "_a.b $ref # a comment with $word\n"
      "_a.c '$quoted already'\n"
      "_a.d \"it's\"\n"
      ";\n$in a text field\n;\n"
      "_a.e $it's\n";
  const std::string quoted = detail::quote_frame_references(text);
  EXPECT_EQ(quoted,
            "data_x\n"
            "_a.b '$ref' # a comment with $word\n"
            "_a.c '$quoted already'\n"
            "_a.d \"it's\"\n"
            ";\n$in a text field\n;\n"
            "_a.e \"$it's\"\n");
}

// A measured-couplings frame of an NMR-STAR entry: an _RDC loop, values in
// Val and Val_err, author numbering on some rows only.
const char* kRdcList =
    "data_entry\n"
    "save_RDC_list_1\n"
    "   _RDC_list.Sf_category RDCs\n"
    "   loop_\n"
    "      _RDC.ID\n"
    "      _RDC.Seq_ID_1\n"
    "      _RDC.Atom_ID_1\n"
    "      _RDC.Seq_ID_2\n"
    "      _RDC.Atom_ID_2\n"
    "      _RDC.Val\n"
    "      _RDC.Val_err\n"
    "      _RDC.Auth_asym_ID_1\n"
    "      _RDC.Auth_seq_ID_1\n"
    "      _RDC.Auth_atom_ID_1\n"
    "      _RDC.Auth_asym_ID_2\n"
    "      _RDC.Auth_seq_ID_2\n"
    "      _RDC.Auth_atom_ID_2\n"
    "\n"
    "      1 3 N 3 H -7.25 0.5 B 103 N B 103 H\n"
    "      2 4 N 4 H 2.5 . . . . . . .\n"
    "   stop_\n"
    "save_\n";

TEST(NmrStarCouplings, MeasuredListWithAuthorNumberingWhereGiven) {
  const CouplingFile file = parse_couplings(kRdcList, "e.str", {});
  EXPECT_EQ(file.format, CouplingFormat::nmrstar);
  ASSERT_EQ(file.sets.size(), 1u);
  EXPECT_EQ(file.sets[0].name, "RDC_list_1");
  const auto& c = file.sets[0].couplings;
  ASSERT_EQ(c.size(), 2u);
  expect_atom(c[0].atom1, "B", 103, "N");
  expect_atom(c[0].atom2, "B", 103, "H");
  EXPECT_DOUBLE_EQ(c[0].value_hz, -7.25);
  EXPECT_DOUBLE_EQ(*c[0].error_hz, 0.5);
  EXPECT_EQ(c[0].line, 19);
  expect_atom(c[1].atom1, "", 4, "N");
  expect_atom(c[1].atom2, "", 4, "H");
  EXPECT_FALSE(c[1].error_hz.has_value());
  EXPECT_EQ(c[1].line, 20);
}

TEST(NmrStarCouplings, UnknownSetListsTheFrames) {
  CouplingReadOptions options;
  options.set = "RDC_list_2";
  const std::string e = test::error_of(kRdcList, "e.str", options);
  EXPECT_TRUE(contains(e,
                       "e.str: no coupling set \"RDC_list_2\", expected one of the sets in the "
                       "file: RDC_list_1"))
      << e;
}

TEST(NmrStarCouplings, BadRowsAreErrorsWithTheirLine) {
  std::string text = kRdcList;
  text.replace(text.find("2.5 ."), 5, "x.5 .");
  std::string e = test::error_of(text, "e.str");
  EXPECT_TRUE(contains(e, "e.str:20: Val \"x.5\" is not a number")) << e;
  const CouplingFile lenient = parse_couplings(text, "e.str", as(CouplingFormat::nmrstar, true));
  EXPECT_EQ(lenient.sets.at(0).couplings.size(), 1u);
  EXPECT_EQ(lenient.skipped_lines, 1);

  text = kRdcList;
  text.replace(text.find("2 4 N 4 H"), 9, "2 . N 4 H");
  e = test::error_of(text, "e.str");
  EXPECT_TRUE(contains(e,
                       "e.str:20: atom 1 has neither Auth_seq_ID_1 and Auth_atom_ID_1 nor "
                       "Seq_ID_1 and Atom_ID_1"))
      << e;

  text = kRdcList;
  text.replace(text.find("_RDC.Val\n"), 9, "_RDC.Other\n");
  e = test::error_of(text, "e.str");
  EXPECT_TRUE(contains(e, "e.str:4: the _RDC loop of frame \"RDC_list_1\" has no value column"))
      << e;

  text = kRdcList;
  text.replace(text.find("save_\n"), 6, "");  // a frame never closed
  e = test::error_of(text, "e.str");
  EXPECT_TRUE(contains(e, "e.str:")) << e;
  EXPECT_TRUE(contains(e, "(STAR syntax)")) << e;
}

TEST(CouplingDetection, StarFilesByTheirContent) {
  EXPECT_EQ(parse_couplings(kRdcList, "e", {}).format, CouplingFormat::nmrstar);
  const std::string text = "# a comment\ndata_x\nsave_f\n_a.b 1\nsave_\n";
  const std::string e = test::error_of(text, "x.str");
  EXPECT_TRUE(contains(e, "cannot tell the format of x.str")) << e;
}

}  // namespace
}  // namespace vorn::io
