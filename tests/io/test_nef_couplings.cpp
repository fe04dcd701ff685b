// The NEF reader on excerpts of real files (counts, values, sets) and on
// small texts in the same layout (weights, scale, wildcards, errors).
// Expected counts are taken from the excerpts' text by a scan of their own.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "format_test_support.hpp"
#include "io/atom_names.hpp"
#include "io/coupling_reader.hpp"

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

const std::string kSgr145 = kFormats + "/SgR145_2kw5_rdc_excerpt.nef";
const std::string k2l9r = kFormats + "/2l9r_docr_rdc_excerpt.nef.gz";

// Rows of each _nef_rdc_restraint loop, by the frame's name after
// "save_nef_rdc_restraint_list_": the lines between the loop's last tag and
// stop_ (one row a line in these files).
std::map<std::string, int> rows_by_list(const std::string& text) {
  std::map<std::string, int> rows;
  std::string frame;
  bool in_tags = false, in_rows = false;
  for (const std::string& line : lines_of(text)) {
    const auto words = words_of(line);
    if (words.empty()) continue;
    const std::string& w = words.front();
    if (w.rfind("save_nef_rdc_restraint_list_", 0) == 0) {
      frame = w.substr(std::string("save_nef_rdc_restraint_list_").size());
    } else if (w.rfind("_nef_rdc_restraint.", 0) == 0) {
      in_tags = true;
    } else if (w == "stop_") {
      in_tags = in_rows = false;
    } else if (in_tags || in_rows) {
      in_tags = false;
      in_rows = true;
      ++rows[frame];
    }
  }
  return rows;
}

TEST(NefCouplings, EveryListOfTheRealFileWithItsCount) {
  const std::map<std::string, int> rows = rows_by_list(text_of(kSgr145));
  ASSERT_EQ(rows.size(), 2u);
  const CouplingFile file = read_couplings(kSgr145);
  EXPECT_EQ(file.format, CouplingFormat::nef);
  ASSERT_EQ(file.sets.size(), 2u);
  EXPECT_EQ(file.sets[0].name, "tbl_1");
  EXPECT_EQ(file.sets[0].framecode, "nef_rdc_restraint_list_tbl_1");
  EXPECT_EQ(file.sets[1].name, "tbl_2");
  EXPECT_EQ(static_cast<int>(file.sets[0].couplings.size()), rows.at("tbl_1"));
  EXPECT_EQ(static_cast<int>(file.sets[1].couplings.size()), rows.at("tbl_2"));
  EXPECT_EQ(file.skipped_lines, 0);
}

TEST(NefCouplings, ValuesAtomsAndLinesOfTheRealFile) {
  const std::string text = text_of(kSgr145);
  const CouplingFile file = read_couplings(kSgr145);
  // "1 1 . A 22 VAL N A 22 VAL HN 1.0 0.588 1.500", first row of tbl_1.
  const MeasuredCoupling& first = file.sets[0].couplings.front();
  expect_atom(first.atom1, "A", 22, "N");
  expect_atom(first.atom2, "A", 22, "H");  // HN as the file names it
  EXPECT_DOUBLE_EQ(first.value_hz, 0.588);
  ASSERT_TRUE(first.error_hz.has_value());
  EXPECT_DOUBLE_EQ(*first.error_hz, 1.5);
  EXPECT_EQ(first.line, line_starting(text, {"1", "1", ".", "A", "22", "VAL", "N"}));
  // "101 101 . A 196 GLU N A 196 GLU HN 1.0 -0.122 3.700", last row of tbl_2.
  const MeasuredCoupling& last = file.sets[1].couplings.back();
  expect_atom(last.atom1, "A", 196, "N");
  expect_atom(last.atom2, "A", 196, "H");
  EXPECT_DOUBLE_EQ(last.value_hz, -0.122);
  EXPECT_DOUBLE_EQ(*last.error_hz, 3.7);
  EXPECT_EQ(last.line, line_starting(text, {"101", "101", ".", "A", "196"}));
  EXPECT_GT(last.line, 0);
}

TEST(NefCouplings, GzipFileWithScaleAndLimitColumns) {
  const std::map<std::string, int> rows = rows_by_list(text_of(k2l9r));
  const CouplingFile file = read_couplings(k2l9r);
  EXPECT_EQ(file.format, CouplingFormat::nef);
  ASSERT_EQ(file.sets.size(), 2u);
  EXPECT_EQ(file.sets[0].name, "peg_gel-1");
  EXPECT_EQ(file.sets[1].name, "peg_gel-2");
  EXPECT_EQ(static_cast<int>(file.sets[0].couplings.size()), rows.at("peg_gel-1"));
  EXPECT_EQ(static_cast<int>(file.sets[1].couplings.size()), rows.at("peg_gel-2"));
  // "1 1 . A 11 MET H A 11 MET N 1 3.745 4 . . . . 1 false": scale 1.
  const MeasuredCoupling& c = file.sets[0].couplings.front();
  expect_atom(c.atom1, "A", 11, "H");
  expect_atom(c.atom2, "A", 11, "N");
  EXPECT_DOUBLE_EQ(c.value_hz, 3.745);
  EXPECT_DOUBLE_EQ(*c.error_hz, 4.0);
  // "18 18 . A 36 HIS H A 36 HIS N 1 -0.003 0.4 ...", in peg_gel-2.
  bool found = false;
  for (const MeasuredCoupling& m : file.sets[1].couplings) {
    if (m.atom1.residue == 36) {
      EXPECT_DOUBLE_EQ(m.value_hz, -0.003);
      EXPECT_DOUBLE_EQ(*m.error_hz, 0.4);
      found = true;
    }
  }
  EXPECT_TRUE(found);
}

TEST(NefCouplings, SetByNameOrFramecodeAndTheListOfSets) {
  CouplingReadOptions options;
  options.set = "peg_gel-2";
  CouplingFile file = read_couplings(k2l9r, options);
  ASSERT_EQ(file.sets.size(), 1u);
  EXPECT_EQ(file.sets[0].name, "peg_gel-2");
  options.set = "nef_rdc_restraint_list_peg_gel-1";
  file = read_couplings(k2l9r, options);
  ASSERT_EQ(file.sets.size(), 1u);
  EXPECT_EQ(file.sets[0].name, "peg_gel-1");
  options.set = "peg_gel-3";
  try {
    read_couplings(k2l9r, options);
    ADD_FAILURE() << "no error for an unknown set";
  } catch (const InputError& e) {
    EXPECT_TRUE(contains(e.what(), k2l9r + ": no coupling set \"peg_gel-3\"")) << e.what();
    EXPECT_TRUE(contains(e.what(), "peg_gel-1, peg_gel-2")) << e.what();
  }
}

// A list in the layout of the real files, with the rows given.
std::string nef_list(const std::string& rows, const std::string& extra_columns = "") {
  return "data_test\n"
         "save_nef_nmr_meta_data\n"
         "   _nef_nmr_meta_data.sf_category nef_nmr_meta_data\n"
         "save_\n"
         "save_nef_rdc_restraint_list_medium_a\n"
         "   _nef_rdc_restraint_list.sf_category nef_rdc_restraint_list\n"
         "   _nef_rdc_restraint_list.sf_framecode nef_rdc_restraint_list_medium_a\n"
         "   loop_\n"
         "      _nef_rdc_restraint.index\n"
         "      _nef_rdc_restraint.restraint_id\n"
         "      _nef_rdc_restraint.chain_code_1\n"
         "      _nef_rdc_restraint.sequence_code_1\n"
         "      _nef_rdc_restraint.residue_name_1\n"
         "      _nef_rdc_restraint.atom_name_1\n"
         "      _nef_rdc_restraint.chain_code_2\n"
         "      _nef_rdc_restraint.sequence_code_2\n"
         "      _nef_rdc_restraint.residue_name_2\n"
         "      _nef_rdc_restraint.atom_name_2\n"
         "      _nef_rdc_restraint.weight\n"
         "      _nef_rdc_restraint.target_value\n"
         "      _nef_rdc_restraint.target_value_uncertainty\n"
         "      _nef_rdc_restraint.scale\n" +
         extra_columns + "\n" + rows + "   stop_\nsave_\n";
}
// Line of the first row in nef_list without extra columns.
constexpr long kFirstRow = 24;

TEST(NefCouplings, WeightZeroIsLeftOutAndScaleMultiplies) {
  const std::string text = nef_list(
      "1 1 A 5 LYS N A 5 LYS H 1.0 -8.5 0.5 .\n"
      "2 2 A 6 THR N A 6 THR H 0 4.0 0.5 1\n"       // weight 0: left out
      "3 3 A 7 LEU CA A 7 LEU HA 2.0 1.25 0.5 2\n"  // scale 2
      "4 4 A 8 GLY N A 8 GLY H . 3.0 0.25 -1\n");   // scale -1, weight "." is 1
  const CouplingFile file = parse_couplings(text, "t.nef", {});
  EXPECT_EQ(file.format, CouplingFormat::nef);
  ASSERT_EQ(file.sets.size(), 1u);
  EXPECT_EQ(file.sets[0].name, "medium_a");
  const auto& c = file.sets[0].couplings;
  ASSERT_EQ(c.size(), 3u);
  EXPECT_EQ(c[0].atom1.residue, 5);
  EXPECT_DOUBLE_EQ(c[0].value_hz, -8.5);
  EXPECT_EQ(c[0].line, kFirstRow);
  EXPECT_EQ(c[1].atom1.residue, 7);
  EXPECT_DOUBLE_EQ(c[1].value_hz, 2.5);
  EXPECT_DOUBLE_EQ(*c[1].error_hz, 1.0);
  EXPECT_EQ(c[1].line, kFirstRow + 2);
  EXPECT_DOUBLE_EQ(c[2].value_hz, -3.0);
  EXPECT_DOUBLE_EQ(*c[2].error_hz, 0.25);
  EXPECT_EQ(file.skipped_lines, 0);
}

TEST(NefCouplings, WildcardsBecomePseudoAtoms) {
  const std::string text = nef_list(
      "1 1 A 10 LEU CB A 10 LEU HB% 1 20.0 . .\n"
      "2 2 A 11 VAL CG1 A 11 VAL HGx% 1 -3.0 . .\n"
      "3 3 A 12 SER CB A 12 SER HBy 1 11.0 . .\n"
      "4 4 A 13 ILE CG2 A 13 ILE HG2% 1 5.0 . .\n"
      "5 5 . 14 LYS CE . 14 LYS HE* 1 1.0 . .\n"
      "6 6 A 15 ALA CA A 15 ALA HA 1 2.0 . .\n");
  const CouplingFile file = parse_couplings(text, "t.nef", {});
  const auto& c = file.sets.at(0).couplings;
  ASSERT_EQ(c.size(), 6u);
  EXPECT_EQ(c[0].atom2.name, "HB#");
  EXPECT_EQ(c[1].atom2.name, "HG#");
  EXPECT_EQ(c[2].atom2.name, "HB#");
  EXPECT_EQ(c[3].atom2.name, "HG2#");
  EXPECT_EQ(c[4].atom2.name, "HE*");
  EXPECT_EQ(c[4].atom1.chain, "");  // "." is no chain
  EXPECT_EQ(c[5].atom2.name, "HA");
  EXPECT_FALSE(c[0].error_hz.has_value());
}

TEST(NefAtomNames, ReadAndWritten) {
  EXPECT_EQ(nef_atom_name("HB%"), "HB#");
  EXPECT_EQ(nef_atom_name("HGx%"), "HG#");
  EXPECT_EQ(nef_atom_name("HDy%"), "HD#");
  EXPECT_EQ(nef_atom_name("HBx"), "HB#");
  EXPECT_EQ(nef_atom_name("CGx"), "CG#");
  EXPECT_EQ(nef_atom_name("HB2"), "HB2");
  EXPECT_EQ(nef_atom_name("HN"), "H");
  EXPECT_EQ(nef_atom_name("HB*"), "HB*");
  EXPECT_FALSE(nef_atom_name("H%B").has_value());
  EXPECT_FALSE(nef_atom_name("%").has_value());
  EXPECT_FALSE(nef_atom_name("HBx2").has_value());
  EXPECT_FALSE(nef_atom_name("x").has_value());
  EXPECT_EQ(nef_written_name("HN"), "H");
  EXPECT_EQ(nef_written_name("HB#"), "HB%");
  EXPECT_EQ(nef_written_name("HB*"), "HB%");
  EXPECT_EQ(nef_written_name("QB"), "HB%");
  EXPECT_EQ(nef_written_name("CA"), "CA");
  // What the writer writes reads back to a name that matches the same atoms.
  for (const char* name : {"H", "N", "HA2", "HB#", "HG1#"}) {
    EXPECT_EQ(nef_atom_name(nef_written_name(name)), name);
  }
}

TEST(NefCouplings, BadRowsAreErrorsWithTheirLine) {
  const auto error = [](const std::string& rows, bool lenient = false) {
    return test::error_of(nef_list(rows), "t.nef", as(CouplingFormat::nef, lenient));
  };
  const std::string good = "1 1 A 5 LYS N A 5 LYS H 1 -8.5 0.5 .\n";
  const std::string row2 = "t.nef:" + std::to_string(kFirstRow + 1) + ": ";
  std::string e = error(good + "2 2 A 6 THR N A 6 THR H 1 abc 0.5 .\n");
  EXPECT_TRUE(contains(e, row2 + "target_value \"abc\" is not a number")) << e;
  e = error(good + "2 2 A 6A THR N A 6 THR H 1 1.0 0.5 .\n");
  EXPECT_TRUE(contains(e, row2 + "sequence_code_1 \"6A\" is not an integer")) << e;
  e = error(good + "2 2 A 6 THR N A 6 THR H%B 1 1.0 0.5 .\n");
  EXPECT_TRUE(contains(e, row2 + "atom_name_2 \"H%B\" has a wildcard inside")) << e;
  e = error(good + "2 2 A 6 THR N A 6 THR H 1 . 0.5 .\n");
  EXPECT_TRUE(contains(e, row2 + "target_value is missing")) << e;
  e = error(good + "2 2 A 6 THR N A 6 THR H -1 1.0 0.5 .\n");
  EXPECT_TRUE(contains(e, row2 + "weight is negative")) << e;
  e = error(good + "2 2 A 6 THR N A 6 THR H 1 1.0 -0.5 .\n");
  EXPECT_TRUE(contains(e, row2 + "target_value_uncertainty is negative")) << e;
  e = error(good + "2 2 A 6 THR N A 6 THR H 1 1.0 0.5 0\n");
  EXPECT_TRUE(contains(e, row2 + "scale is 0")) << e;
  // Two rows of one restraint: alternative atom pairs.
  e = error(good + "2 1 A 6 THR N A 6 THR H 1 1.0 0.5 .\n");
  EXPECT_TRUE(contains(e, "t.nef:" + std::to_string(kFirstRow) +
                              ": restraint_id \"1\" is also on line " +
                              std::to_string(kFirstRow + 1)))
      << e;
  // A row one value short: the loop's count of values is wrong.
  e = error(good + "2 2 A 6 THR N A 6 THR H 1 1.0 0.5\n");
  EXPECT_TRUE(contains(e, "t.nef:")) << e;
  EXPECT_TRUE(contains(e, "Wrong number of values in the loop")) << e;
  // An unclosed quote.
  e = error(good + "2 2 A 6 THR N A 6 'THR H 1 1.0 0.5 .\n");
  EXPECT_TRUE(contains(e, row2 + "unterminated 'string'")) << e;
}

TEST(NefCouplings, LenientSkipsAndCountsBadRows) {
  const std::string text = nef_list(
      "1 1 A 5 LYS N A 5 LYS H 1 -8.5 0.5 .\n"
      "2 2 A 6 THR N A 6 THR H 1 abc 0.5 .\n"
      "3 3 A 7 LEU N A 7 LEU H 1 2.0 0.5 .\n");
  const CouplingFile file = parse_couplings(text, "t.nef", as(CouplingFormat::nef, true));
  ASSERT_EQ(file.sets.size(), 1u);
  EXPECT_EQ(file.sets[0].couplings.size(), 2u);
  EXPECT_EQ(file.skipped_lines, 1);
}

TEST(NefCouplings, MissingColumnIsAnErrorAtTheLoop) {
  std::string text = nef_list("1 1 A 5 LYS N A 5 LYS H 1 -8.5 0.5 .\n");
  const std::string tag = "      _nef_rdc_restraint.target_value\n";
  text.replace(text.find(tag), tag.size(), "      _nef_rdc_restraint.other_value\n");
  const std::string e = test::error_of(text, "t.nef");
  EXPECT_TRUE(contains(e,
                       "t.nef:8: the _nef_rdc_restraint loop of frame "
                       "\"nef_rdc_restraint_list_medium_a\" has no column target_value"))
      << e;
}

TEST(NefCouplings, FileWithoutCouplingListsHasNoCouplings) {
  const std::string text =
      "data_x\nsave_nef_nmr_meta_data\n   _nef_nmr_meta_data.sf_category nef_nmr_meta_data\n"
      "save_\n";
  const std::string e = test::error_of(text, "t.nef");
  EXPECT_TRUE(contains(e, "t.nef: no couplings found")) << e;
  EXPECT_TRUE(contains(e, "nef format")) << e;
}

TEST(CouplingFormatName, ExchangeFormats) {
  EXPECT_EQ(parse_coupling_format("nef"), CouplingFormat::nef);
  EXPECT_EQ(parse_coupling_format("NMRSTAR"), CouplingFormat::nmrstar);
  EXPECT_EQ(parse_coupling_format("nmr-star"), CouplingFormat::nmrstar);
  EXPECT_EQ(parse_coupling_format("pipe"), CouplingFormat::pipe);
  EXPECT_EQ(parse_coupling_format("nmrpipe"), CouplingFormat::pipe);
  EXPECT_EQ(coupling_format_name(CouplingFormat::nef), "nef");
  EXPECT_EQ(coupling_format_name(CouplingFormat::nmrstar), "nmrstar");
  EXPECT_EQ(coupling_format_name(CouplingFormat::pipe), "pipe");
}

}  // namespace
}  // namespace vorn::io
