// The readers of measured couplings: the classic layout, X-PLOR assign
// statements and the table, on small hand-written texts and on real files.
// Expected values are read off the texts and files by hand.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

#include "io/coupling_reader.hpp"

namespace vorn::io {
namespace {

const std::string kDataDir = VORN_TEST_DATA_DIR;
const std::string k2mjb = kDataDir + "/raw/2mjb_mr_rdc_section.mr";
const std::string kClassic500 = kDataDir + "/couplings/ubq_2mjb_t500_bicelleA.dc";

CouplingReadOptions with_format(CouplingFormat format, bool lenient = false) {
  CouplingReadOptions options;
  options.format = format;
  options.lenient = lenient;
  return options;
}

CouplingFile parse(std::string_view text, const CouplingReadOptions& options = {}) {
  return parse_couplings(text, "t.txt", options);
}

// The message of the InputError the text raises; a test failure if none.
std::string error_of(std::string_view text, const CouplingReadOptions& options = {}) {
  try {
    parse(text, options);
  } catch (const InputError& e) {
    return e.what();
  }
  ADD_FAILURE() << "no InputError for:\n" << text;
  return {};
}

bool contains(const std::string& s, std::string_view part) {
  return s.find(part) != std::string::npos;
}

void expect_atom(const CouplingAtom& atom, const std::string& chain, int residue,
                 const std::string& name) {
  EXPECT_EQ(atom.chain, chain);
  EXPECT_EQ(atom.residue, residue);
  EXPECT_EQ(atom.name, name);
}

std::string file_text(const std::string& path) {
  std::ifstream in(path);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

// ---------------------------------------------------------------------------
// Names of the formats

TEST(CouplingFormatName, ParsesAndNames) {
  EXPECT_EQ(parse_coupling_format("classic"), CouplingFormat::classic);
  EXPECT_EQ(parse_coupling_format("dc"), CouplingFormat::classic);
  EXPECT_EQ(parse_coupling_format("xplor"), CouplingFormat::xplor);
  EXPECT_EQ(parse_coupling_format("CNS"), CouplingFormat::xplor);
  EXPECT_EQ(parse_coupling_format("Table"), CouplingFormat::table);
  EXPECT_FALSE(parse_coupling_format("pdb").has_value());
  EXPECT_FALSE(parse_coupling_format("").has_value());
  EXPECT_EQ(coupling_format_name(CouplingFormat::classic), "classic");
  EXPECT_EQ(coupling_format_name(CouplingFormat::xplor), "xplor");
  EXPECT_EQ(coupling_format_name(CouplingFormat::table), "table");
}

// ---------------------------------------------------------------------------
// classic

TEST(ClassicCouplings, EachTypeGivesItsAtomPair) {
  const std::string text =
      "2 8.17 0\n"
      "# a comment line\n"
      "\n"
      "3 -1.5 1\n"
      "  4   2.25\t2\n"
      "5 -0.5 3\n"
      "6 1.75 4\n";
  const CouplingFile file = parse(text, with_format(CouplingFormat::classic));
  EXPECT_EQ(file.format, CouplingFormat::classic);
  EXPECT_EQ(file.skipped_lines, 0);
  ASSERT_EQ(file.sets.size(), 1u);
  EXPECT_EQ(file.sets[0].name, "");
  const auto& c = file.sets[0].couplings;
  ASSERT_EQ(c.size(), 5u);
  expect_atom(c[0].atom1, "", 2, "N");
  expect_atom(c[0].atom2, "", 2, "H");
  EXPECT_DOUBLE_EQ(c[0].value_hz, 8.17);
  EXPECT_FALSE(c[0].error_hz.has_value());
  EXPECT_EQ(c[0].line, 1);
  expect_atom(c[1].atom1, "", 3, "CA");
  expect_atom(c[1].atom2, "", 3, "HA");
  EXPECT_DOUBLE_EQ(c[1].value_hz, -1.5);
  EXPECT_EQ(c[1].line, 4);
  expect_atom(c[2].atom1, "", 4, "CA");
  expect_atom(c[2].atom2, "", 4, "C");
  EXPECT_DOUBLE_EQ(c[2].value_hz, 2.25);
  EXPECT_EQ(c[2].line, 5);
  // Types 3 and 4: C' of the residue before.
  expect_atom(c[3].atom1, "", 4, "C");
  expect_atom(c[3].atom2, "", 5, "N");
  EXPECT_DOUBLE_EQ(c[3].value_hz, -0.5);
  EXPECT_EQ(c[3].line, 6);
  expect_atom(c[4].atom1, "", 5, "C");
  expect_atom(c[4].atom2, "", 6, "H");
  EXPECT_DOUBLE_EQ(c[4].value_hz, 1.75);
  EXPECT_EQ(c[4].line, 7);
}

TEST(ClassicCouplings, ValuesOf1000OrMoreAreNotMeasured) {
  const std::string text =
      "2 1000.0 0\n"
      "3 1500 1\n"
      "4 999.99 0\n"
      "5 1000 5\n"  // not measured: its type does not matter
      "6 -1000 0\n";
  const CouplingFile file = parse(text, with_format(CouplingFormat::classic));
  EXPECT_EQ(file.skipped_lines, 0);
  ASSERT_EQ(file.sets.size(), 1u);
  const auto& c = file.sets[0].couplings;
  ASSERT_EQ(c.size(), 2u);
  EXPECT_EQ(c[0].atom1.residue, 4);
  EXPECT_DOUBLE_EQ(c[0].value_hz, 999.99);
  EXPECT_EQ(c[0].line, 3);
  EXPECT_EQ(c[1].atom1.residue, 6);
  EXPECT_DOUBLE_EQ(c[1].value_hz, -1000.0);
  EXPECT_EQ(c[1].line, 5);
}

TEST(ClassicCouplings, FieldsAfterTheThirdAreIgnored) {
  const CouplingFile file =
      parse("7 3.5 0 extra notes 12\n8 +2 1\n", with_format(CouplingFormat::classic));
  const auto& c = file.sets.at(0).couplings;
  ASSERT_EQ(c.size(), 2u);
  EXPECT_EQ(c[0].atom1.residue, 7);
  EXPECT_DOUBLE_EQ(c[0].value_hz, 3.5);
  EXPECT_EQ(c[1].atom2.name, "HA");
  EXPECT_DOUBLE_EQ(c[1].value_hz, 2.0);
}

TEST(ClassicCouplings, ErrorsNameTheLine) {
  const auto options = with_format(CouplingFormat::classic);
  std::string e = error_of("2 1.0 0\n\n3 1.0\n", options);
  EXPECT_TRUE(contains(e, "t.txt:3: found 2 field(s), expected three")) << e;
  e = error_of("2 1.0 0\n3 1.0 0.5\n", options);
  EXPECT_TRUE(contains(e, "t.txt:2: coupling type \"0.5\" is not an integer, expected 0-4")) << e;
  e = error_of("3 1.0 6\n", options);
  EXPECT_TRUE(contains(e, "t.txt:1: coupling type 6 is unknown, expected 0-4")) << e;
  e = error_of("3 1.0 -1\n", options);
  EXPECT_TRUE(contains(e, "t.txt:1: coupling type -1 is unknown")) << e;
  e = error_of("2 1.0 0\n3 1.0 5\n", options);
  EXPECT_TRUE(contains(e, "t.txt:2: coupling type 5 names no atom pair, expected 0-4")) << e;
  e = error_of("A12 1.0 0\n", options);
  EXPECT_TRUE(contains(e, "t.txt:1: residue number \"A12\" is not an integer")) << e;
  e = error_of("1 0 0\n2 x 0\n", options);
  EXPECT_TRUE(contains(e, "t.txt:2: coupling \"x\" is not a number (Hz)")) << e;
  e = error_of("2 nan 0\n", options);
  EXPECT_TRUE(contains(e, "t.txt:1: coupling \"nan\" is not a number")) << e;
  e = error_of("-2147483648 1.0 3\n", options);
  EXPECT_TRUE(contains(e, "t.txt:1: residue number \"-2147483648\" has no preceding residue")) << e;
}

TEST(ClassicCouplings, LenientSkipsAndCountsBadLines) {
  const std::string text =
      "2 1.0 0\n"
      "3 1.0 5\n"  // no atom pair
      "4 x 0\n"
      "5 2.0\n"
      "6 3.0 1\n"
      "7 2000 5\n";  // not measured: omitted, not counted
  const CouplingFile file = parse(text, with_format(CouplingFormat::classic, true));
  EXPECT_EQ(file.skipped_lines, 3);
  const auto& c = file.sets.at(0).couplings;
  ASSERT_EQ(c.size(), 2u);
  EXPECT_EQ(c[0].line, 1);
  EXPECT_EQ(c[1].line, 5);
  expect_atom(c[1].atom1, "", 6, "CA");
}

TEST(ClassicCouplings, RealFileOfTensor500) {
  // The file: 305 lines "resnum value type", none blank, no value >= 1000;
  // types 0..4 on 63, 62, 58, 61, 61 lines.
  const CouplingFile file = read_couplings(kClassic500);
  EXPECT_EQ(file.format, CouplingFormat::classic);
  EXPECT_EQ(file.skipped_lines, 0);
  ASSERT_EQ(file.sets.size(), 1u);
  const auto& c = file.sets[0].couplings;
  ASSERT_EQ(c.size(), 305u);

  // The count by a plain scan of the text: lines that hold anything.
  const std::string text = file_text(kClassic500);
  size_t lines_with_data = 0;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines_with_data += line.empty() ? 0 : 1;
  EXPECT_EQ(c.size(), lines_with_data);

  int per_type[5] = {0, 0, 0, 0, 0};
  for (const MeasuredCoupling& m : c) {
    const std::string pair = m.atom1.name + "-" + m.atom2.name;
    if (pair == "N-H") ++per_type[0];
    if (pair == "CA-HA") ++per_type[1];
    if (pair == "CA-C") ++per_type[2];
    if (pair == "C-N") ++per_type[3];
    if (pair == "C-H") ++per_type[4];
  }
  EXPECT_EQ(per_type[0], 63);
  EXPECT_EQ(per_type[1], 62);
  EXPECT_EQ(per_type[2], 58);
  EXPECT_EQ(per_type[3], 61);
  EXPECT_EQ(per_type[4], 61);

  // Line 1 "2 8.1700 0", line 184 "2 -0.8160 3", line 305 "70 1.2610 4".
  expect_atom(c[0].atom1, "", 2, "N");
  expect_atom(c[0].atom2, "", 2, "H");
  EXPECT_DOUBLE_EQ(c[0].value_hz, 8.17);
  EXPECT_EQ(c[0].line, 1);
  expect_atom(c[183].atom1, "", 1, "C");
  expect_atom(c[183].atom2, "", 2, "N");
  EXPECT_DOUBLE_EQ(c[183].value_hz, -0.816);
  EXPECT_EQ(c[183].line, 184);
  expect_atom(c[304].atom1, "", 69, "C");
  expect_atom(c[304].atom2, "", 70, "H");
  EXPECT_DOUBLE_EQ(c[304].value_hz, 1.261);
  EXPECT_EQ(c[304].line, 305);
}

// ---------------------------------------------------------------------------
// table

TEST(TableCouplings, ChainsCommentsAndErrors) {
  const std::string text =
      "# chain1 res1 atom1 chain2 res2 atom2 value error\n"
      "A 2 N A 2 H -8.17 0.5\n"
      "- 3 N . 3 H 8.271   # trailing comment\n"
      "\n"
      "B 10 CB B 10 HB# 12.5 1\n"
      "   # indented comment\n"
      "- -4 C - 5 N +0.25 0\n";
  const CouplingFile file = parse(text, with_format(CouplingFormat::table));
  EXPECT_EQ(file.format, CouplingFormat::table);
  EXPECT_EQ(file.skipped_lines, 0);
  ASSERT_EQ(file.sets.size(), 1u);
  EXPECT_EQ(file.sets[0].name, "");
  const auto& c = file.sets[0].couplings;
  ASSERT_EQ(c.size(), 4u);
  expect_atom(c[0].atom1, "A", 2, "N");
  expect_atom(c[0].atom2, "A", 2, "H");
  EXPECT_DOUBLE_EQ(c[0].value_hz, -8.17);
  ASSERT_TRUE(c[0].error_hz.has_value());
  EXPECT_DOUBLE_EQ(*c[0].error_hz, 0.5);
  EXPECT_EQ(c[0].line, 2);
  expect_atom(c[1].atom1, "", 3, "N");
  expect_atom(c[1].atom2, "", 3, "H");
  EXPECT_DOUBLE_EQ(c[1].value_hz, 8.271);
  EXPECT_FALSE(c[1].error_hz.has_value());
  EXPECT_EQ(c[1].line, 3);
  expect_atom(c[2].atom1, "B", 10, "CB");
  expect_atom(c[2].atom2, "B", 10, "HB#");
  EXPECT_DOUBLE_EQ(c[2].value_hz, 12.5);
  EXPECT_DOUBLE_EQ(c[2].error_hz.value_or(-1.0), 1.0);
  EXPECT_EQ(c[2].line, 5);
  expect_atom(c[3].atom1, "", -4, "C");
  expect_atom(c[3].atom2, "", 5, "N");
  EXPECT_DOUBLE_EQ(c[3].value_hz, 0.25);
  EXPECT_DOUBLE_EQ(c[3].error_hz.value_or(-1.0), 0.0);
  EXPECT_EQ(c[3].line, 7);
}

TEST(TableCouplings, ErrorsNameTheLine) {
  const auto options = with_format(CouplingFormat::table);
  std::string e = error_of("A 2 N A 2 H 1.0\nA 2 N A 2 1.0\n", options);
  EXPECT_TRUE(contains(e, "t.txt:2: found 6 field(s), expected 7 or 8")) << e;
  e = error_of("# header\nA 2 N A 2 H 1.0 0.1 9\n", options);
  EXPECT_TRUE(contains(e, "t.txt:2: found 9 field(s), expected 7 or 8")) << e;
  e = error_of("A 2A N A 2 H 1.0\n", options);
  EXPECT_TRUE(contains(e, "t.txt:1: residue number \"2A\" (field 2) is not an integer")) << e;
  e = error_of("A 2 N A x H 1.0\n", options);
  EXPECT_TRUE(contains(e, "t.txt:1: residue number \"x\" (field 5) is not an integer")) << e;
  e = error_of("\n\nA 2 N A 2 H abc\n", options);
  EXPECT_TRUE(contains(e, "t.txt:3: coupling \"abc\" (field 7) is not a number (Hz)")) << e;
  e = error_of("A 2 N A 2 H 1.0 -0.5\n", options);
  EXPECT_TRUE(contains(e, "t.txt:1: error \"-0.5\" (field 8) is not a non-negative number")) << e;
  e = error_of("A 2 N A 2 H 1.0 inf\n", options);
  EXPECT_TRUE(contains(e, "t.txt:1: error \"inf\" (field 8)")) << e;
}

TEST(TableCouplings, LenientSkipsAndCountsBadLines) {
  const std::string text =
      "A 2 N A 2 H 1.0\n"
      "A 2 N A 2 1.0\n"
      "A 3 N A 3 H x\n"
      "A 4 N A 4 H 2.0 0.1\n";
  const CouplingFile file = parse(text, with_format(CouplingFormat::table, true));
  EXPECT_EQ(file.skipped_lines, 2);
  const auto& c = file.sets.at(0).couplings;
  ASSERT_EQ(c.size(), 2u);
  EXPECT_EQ(c[0].line, 1);
  EXPECT_EQ(c[1].line, 4);
  EXPECT_EQ(c[1].atom1.residue, 4);
}

// ---------------------------------------------------------------------------
// X-PLOR

// The four tensor selections of residue `r`.
std::string tensor(int r) {
  const std::string s = std::to_string(r);
  return "(resid " + s + " and name OO) (resid " + s + " and name Z) (resid " + s +
         " and name X) (resid " + s + " and name Y)";
}

TEST(XplorCouplings, StatementsAcrossLinesCommentsAndAbbreviations) {
  const std::string text =
      "set echo off end             ! line 1\n"
      "DIPO\n"
      "  nres=500\n"
      "  class medium1\n"
      "  force 1.0\n"
      "  potential harmonic\n"
      "  coefficients 0.0 10.0 0.5\n"
      "ASSI ( resid 500 and name OO ) ( resid 500 and name Z )\n"  // line 8
      "     ( resid 500 and name X ) ( resid 500 and name Y )\n"
      "     ( segid \"A\" and resid 2 and name N )     ! amide N\n"
      "     ( resid 2 and name hn and segid A ) -8.17 0.5 0.7\n"
      "assign " +
      tensor(500) +
      " (resid 3 and name C) (resid 4 and name OT1) 1.5 # end\n"  // line 12
      "{ { nested } still a comment:\n"
      "  assign " +
      tensor(500) +
      " (resid 9 and name N) (resid 9 and name HN) 2.0 }\n"
      "!assign " +
      tensor(500) +
      " (resid 10 and name N) (resid 10 and name HN) 2.0\n"
      "assig ((resid 501) and (name OO)) (RESI 501 AND NAME Z)\n"  // line 16
      " (resid 501 and name X) (resid 501 and name Y)\n"
      " (RESID 7 AND NAME CB) (resid 7 and name HB#)\n"
      " 3.25\n"
      " 2.0\n"
      "end\n"
      "assign " +
      tensor(500) + " (resid 5 and name C) (resid 5 and name OT2) -2e-1 0.3\n";  // line 22
  const CouplingFile file = parse(text);
  EXPECT_EQ(file.format, CouplingFormat::xplor);
  EXPECT_EQ(file.skipped_lines, 0);
  ASSERT_EQ(file.sets.size(), 2u);
  EXPECT_EQ(file.sets[0].name, "500");
  EXPECT_EQ(file.sets[1].name, "501");

  const auto& a = file.sets[0].couplings;
  ASSERT_EQ(a.size(), 3u);
  expect_atom(a[0].atom1, "A", 2, "N");
  expect_atom(a[0].atom2, "A", 2, "H");  // HN -> H, case folded
  EXPECT_DOUBLE_EQ(a[0].value_hz, -8.17);
  EXPECT_DOUBLE_EQ(a[0].error_hz.value_or(-1.0), 0.5);       // the first error column
  EXPECT_DOUBLE_EQ(a[0].error_plus_hz.value_or(-1.0), 0.7);  // and the second
  EXPECT_EQ(a[0].line, 8);
  expect_atom(a[1].atom1, "", 3, "C");
  expect_atom(a[1].atom2, "", 4, "O");  // OT1 -> O
  EXPECT_DOUBLE_EQ(a[1].value_hz, 1.5);
  EXPECT_FALSE(a[1].error_hz.has_value());
  EXPECT_FALSE(a[1].error_plus_hz.has_value());
  EXPECT_EQ(a[1].line, 12);
  expect_atom(a[2].atom1, "", 5, "C");
  expect_atom(a[2].atom2, "", 5, "OXT");  // OT2 -> OXT
  EXPECT_DOUBLE_EQ(a[2].value_hz, -0.2);
  EXPECT_DOUBLE_EQ(a[2].error_hz.value_or(-1.0), 0.3);
  EXPECT_FALSE(a[2].error_plus_hz.has_value());
  EXPECT_EQ(a[2].line, 22);

  const auto& b = file.sets[1].couplings;
  ASSERT_EQ(b.size(), 1u);
  expect_atom(b[0].atom1, "", 7, "CB");
  expect_atom(b[0].atom2, "", 7, "HB#");  // a pseudo-atom, "#" inside the name
  EXPECT_DOUBLE_EQ(b[0].value_hz, 3.25);
  EXPECT_DOUBLE_EQ(b[0].error_hz.value_or(-1.0), 2.0);
  EXPECT_EQ(b[0].line, 16);
}

TEST(XplorCouplings, NamesAndChains) {
  const std::string text =
      "assign " + tensor(600) +
      " (resid 1 and name hb*) (resid 1 and name qb) 1.0\n"
      "assign " +
      tensor(600) +
      " (resid 2 and name HG2#) (resid 2 and name HA1) 2.0\n"
      "assign " +
      tensor(600) +
      " (name N and resid 3 and segid \"  B \") (segi C and resid 3 and name HN) 3.0\n"
      "assign " +
      tensor(600) + " (resid 4 and name \"N\" and segid \"\") (resid 4 and name H) 4.0\n";
  const CouplingFile file = parse(text, with_format(CouplingFormat::xplor));
  ASSERT_EQ(file.sets.size(), 1u);
  EXPECT_EQ(file.sets[0].name, "600");
  const auto& c = file.sets[0].couplings;
  ASSERT_EQ(c.size(), 4u);
  expect_atom(c[0].atom1, "", 1, "HB*");
  expect_atom(c[0].atom2, "", 1, "QB");
  expect_atom(c[1].atom1, "", 2, "HG2#");
  expect_atom(c[1].atom2, "", 2, "HA1");  // no mapping where it would be a guess
  expect_atom(c[2].atom1, "B", 3, "N");   // quoted segid, trimmed
  expect_atom(c[2].atom2, "C", 3, "H");
  expect_atom(c[3].atom1, "", 4, "N");  // an empty segid is no chain
  expect_atom(c[3].atom2, "", 4, "H");
  EXPECT_EQ(c[3].line, 4);
}

TEST(XplorCouplings, CommentCharactersInsideQuotesAreText) {
  const std::string text = "assign " + tensor(500) +
                           " (resid 1 and name N and segid \"A!#\") (resid 1 and name H) 1.0\n";
  const CouplingFile file = parse(text, with_format(CouplingFormat::xplor));
  const auto& c = file.sets.at(0).couplings;
  ASSERT_EQ(c.size(), 1u);
  EXPECT_EQ(c[0].atom1.chain, "A!#");
  EXPECT_DOUBLE_EQ(c[0].value_hz, 1.0);
}

TEST(XplorCouplings, ErrorsNameTheLineOfTheAssign) {
  const auto xplor = with_format(CouplingFormat::xplor);
  const std::string good =
      "assign " + tensor(500) + " (resid 1 and name N) (resid 1 and name H) 1.0\n";
  std::string e;

  // Five selections only.
  e = error_of(good + "\nassign " + tensor(500) + "\n (resid 2 and name N) -8.17\n", xplor);
  EXPECT_TRUE(contains(e,
                       "t.txt:3: assign statement: found \"-8.17\" (line 4), expected \"(\" "
                       "to open selection 6 of 6"))
      << e;
  // A selection left open before the next statement.
  e = error_of("assign " + tensor(500) + " (resid 2 and name N (resid 2 and name H) 1.0\n" + good,
               xplor);
  EXPECT_TRUE(contains(e,
                       "t.txt:1: assign statement: selection 5 of 6 is not closed before the "
                       "next assign (line 2), expected \")\""))
      << e;
  // ... and at the end of the file.
  e = error_of(good + "assign " + tensor(500) + " (resid 2 and name N) (resid 2 and name H\n",
               xplor);
  EXPECT_TRUE(contains(e,
                       "t.txt:2: assign statement: selection 6 of 6 is not closed, expected "
                       "\")\""))
      << e;
  // A closing parenthesis too many.
  e = error_of("assign " + tensor(500) + " (resid 2 and name N)) (resid 2 and name H) 1.0\n",
               xplor);
  EXPECT_TRUE(contains(e,
                       "t.txt:1: assign statement: found \")\", expected \"(\" to open "
                       "selection 6 of 6"))
      << e;
  // Missing value.
  e = error_of("assign " + tensor(500) + " (resid 2 and name N) (resid 2 and name H)\nend\n",
               xplor);
  EXPECT_TRUE(contains(e,
                       "t.txt:1: assign statement: found \"end\" (line 2) after the six "
                       "selections, expected the coupling value (Hz)"))
      << e;
  e = error_of("assign " + tensor(500) + " (resid 2 and name N) (resid 2 and name H)", xplor);
  EXPECT_TRUE(contains(e,
                       "t.txt:1: assign statement: found the end of the file after the six "
                       "selections"))
      << e;
  // Non-numeric value.
  e = error_of(good + good + "assign " + tensor(500) +
                   " (resid 2 and name N) (resid 2 and name H) abc 0.1\n",
               xplor);
  EXPECT_TRUE(contains(e, "t.txt:3: assign statement: found \"abc\" after the six selections"))
      << e;
  // Four numbers.
  e = error_of("assign " + tensor(500) + " (resid 2 and name N) (resid 2 and name H) 1 2 3 4\n",
               xplor);
  EXPECT_TRUE(contains(e, "t.txt:1: assign statement: found a fourth number \"4\"")) << e;
  // Negative error.
  e = error_of("assign " + tensor(500) + " (resid 2 and name N) (resid 2 and name H) 1 -2\n",
               xplor);
  EXPECT_TRUE(contains(e, "t.txt:1: assign statement: error \"-2\" is negative")) << e;
  e = error_of("assign " + tensor(500) + " (resid 2 and name N) (resid 2 and name H) 1 0 -3\n",
               xplor);
  EXPECT_TRUE(contains(e, "t.txt:1: assign statement: error \"-3\" is negative")) << e;
  // A selection that is not "resid and name".
  e = error_of("assign " + tensor(500) + " (resid 2 or name N) (resid 2 and name H) 1.0\n", xplor);
  EXPECT_TRUE(contains(e,
                       "t.txt:1: assign statement: found \"or\" in selection 5 of 6, expected "
                       "\"and\""))
      << e;
  e = error_of("assign " + tensor(500) + " (resname ALA and name N) (resid 2 and name H) 1.0\n",
               xplor);
  EXPECT_TRUE(contains(e, "found \"resname\" in selection 5 of 6, expected resid, name or segid"))
      << e;
  e = error_of("assign " + tensor(500) + " (resid 2) (resid 2 and name H) 1.0\n", xplor);
  EXPECT_TRUE(contains(e, "t.txt:1: assign statement: selection 5 does not name one atom")) << e;
  e = error_of("assign " + tensor(500) + " (resid 2 and name N and) (resid 2 and name H) 1\n",
               xplor);
  EXPECT_TRUE(contains(e, "selection 5 of 6 ends with \"and\"")) << e;
  e = error_of("assign " + tensor(500) + " (resid 2 and name) (resid 2 and name H) 1\n", xplor);
  EXPECT_TRUE(contains(e, "selection 5 of 6 ends after \"name\", expected a value")) << e;
  e = error_of("assign " + tensor(500) + " (resid 2 and name N) () 1\n", xplor);
  EXPECT_TRUE(contains(e, "selection 6 of 6 is empty")) << e;
  e = error_of("assign " + tensor(500) + " (resid 2x and name N) (resid 2 and name H) 1\n", xplor);
  EXPECT_TRUE(contains(e, "residue number \"2x\" in selection 5 of 6 is not an integer")) << e;
  e = error_of(
      "assign " + tensor(500) + " (resid 2 and name N and resid 3) (resid 2 and name H) 1\n",
      xplor);
  EXPECT_TRUE(contains(e, "resid given twice in selection 5 of 6")) << e;
  // Tensor selections of two residues, or without one.
  e = error_of(
      "assign (resid 500 and name OO) (resid 500 and name Z) (resid 501 and name X)"
      " (resid 500 and name Y) (resid 2 and name N) (resid 2 and name H) 1\n",
      xplor);
  EXPECT_TRUE(contains(e,
                       "t.txt:1: assign statement: tensor selections name residues 500 and "
                       "501, expected one residue"))
      << e;
  e = error_of(
      "assign (name OO) (resid 500 and name Z) (resid 500 and name X)"
      " (resid 500 and name Y) (resid 2 and name N) (resid 2 and name H) 1\n",
      xplor);
  EXPECT_TRUE(contains(e, "tensor selection 1 names no residue")) << e;
  // An unclosed quote inside a statement.
  e = error_of("assign " + tensor(500) + " (resid 2 and name N and segid \"A)\n" +
                   " (resid 2 and name H) 1\n",
               xplor);
  EXPECT_TRUE(contains(e, "t.txt:1: assign statement: a quote is not closed (line 1)")) << e;
  // An unclosed brace comment.
  e = error_of(good + "\n{ the rest\n" + good, xplor);
  EXPECT_TRUE(contains(e, "t.txt:3: a \"{\" comment is not closed, expected \"}\"")) << e;
}

TEST(XplorCouplings, LenientSkipsAndCountsBadStatements) {
  const std::string text =
      "assign " + tensor(500) +
      " (resid 1 and name N) (resid 1 and name HN) 1.0\n"  // line 1: good
      "assign " +
      tensor(500) +
      " (resid 2 and name N (resid 2 and name HN) 2.0\n"  // line 2: unclosed selection
      "assign " +
      tensor(500) +
      " (resid 3 and name N) (resid 3 and name HN) 3.0\n"  // line 3: good
      "assign " +
      tensor(501) +
      " (resid 4 and name N) (resid 4 and name HN) x\n"  // line 4: no value
      "assign " +
      tensor(501) + " (resid 5 and name N) (resid 5 and name HN) 5.0 0.5\n";  // line 5: good
  const CouplingFile file = parse(text, with_format(CouplingFormat::xplor, true));
  EXPECT_EQ(file.skipped_lines, 2);
  ASSERT_EQ(file.sets.size(), 2u);
  ASSERT_EQ(file.sets[0].couplings.size(), 2u);
  EXPECT_EQ(file.sets[0].couplings[0].line, 1);
  EXPECT_EQ(file.sets[0].couplings[1].line, 3);
  EXPECT_DOUBLE_EQ(file.sets[0].couplings[1].value_hz, 3.0);
  ASSERT_EQ(file.sets[1].couplings.size(), 1u);
  EXPECT_EQ(file.sets[1].couplings[0].line, 5);

  // An unclosed brace comment is skipped and counted as well.
  const std::string unclosed = "assign " + tensor(500) +
                               " (resid 1 and name N) (resid 1 and name HN) 1.0\n{\n" + "assign " +
                               tensor(500) + " (resid 2 and name N) (resid 2 and name HN) 1.0\n";
  const CouplingFile partial = parse(unclosed, with_format(CouplingFormat::xplor, true));
  EXPECT_EQ(partial.skipped_lines, 1);
  EXPECT_EQ(partial.sets.at(0).couplings.size(), 1u);
}

TEST(XplorCouplings, SetOptionKeepsOneSet) {
  const std::string text = "assign " + tensor(501) +
                           " (resid 1 and name N) (resid 1 and name HN) 1.0\n"
                           "assign " +
                           tensor(500) +
                           " (resid 2 and name N) (resid 2 and name HN) 2.0\n"
                           "assign " +
                           tensor(501) + " (resid 3 and name N) (resid 3 and name HN) 3.0\n";
  const CouplingFile all = parse(text);
  ASSERT_EQ(all.sets.size(), 2u);
  EXPECT_EQ(all.sets[0].name, "501");  // order of first appearance
  EXPECT_EQ(all.sets[0].couplings.size(), 2u);
  EXPECT_EQ(all.sets[1].name, "500");

  CouplingReadOptions options;
  options.set = "500";
  const CouplingFile one = parse(text, options);
  ASSERT_EQ(one.sets.size(), 1u);
  EXPECT_EQ(one.sets[0].name, "500");
  ASSERT_EQ(one.sets[0].couplings.size(), 1u);
  EXPECT_EQ(one.sets[0].couplings[0].atom1.residue, 2);

  options.set = "502";
  const std::string e = error_of(text, options);
  EXPECT_TRUE(contains(e,
                       "t.txt: no coupling set \"502\", expected one of the sets in the file: "
                       "501, 500"))
      << e;
}

// ---------------------------------------------------------------------------
// The 2MJB restraint file: four media as tensor residues 500-503.

// Counted in the file by hand (grep/awk): lines starting "assign" per
// tensor residue: 500: 491, 501: 456, 503: 238, 502: 112. Of these, set 500
// has 2 commented out with "!" (resid 71, 72 CA-CB) and 4 inside "{ }"
// blocks, set 501 has 5 inside "{ }" blocks.
TEST(XplorCouplings, Real2mjbFile) {
  const CouplingFile file = read_couplings(k2mjb);
  EXPECT_EQ(file.format, CouplingFormat::xplor);
  EXPECT_EQ(file.skipped_lines, 0);
  ASSERT_EQ(file.sets.size(), 4u);
  EXPECT_EQ(file.sets[0].name, "500");
  EXPECT_EQ(file.sets[1].name, "501");
  EXPECT_EQ(file.sets[2].name, "503");
  EXPECT_EQ(file.sets[3].name, "502");
  EXPECT_EQ(file.sets[0].couplings.size(), 485u);
  EXPECT_EQ(file.sets[1].couplings.size(), 451u);
  EXPECT_EQ(file.sets[2].couplings.size(), 238u);
  EXPECT_EQ(file.sets[3].couplings.size(), 112u);

  // A plain scan: lines that start with "assign", less those inside a
  // "{" ... "}" block (the braces stand alone on their lines here).
  const std::string text = file_text(k2mjb);
  std::istringstream in(text);
  size_t assigns = 0;
  bool in_braces = false;
  for (std::string line; std::getline(in, line);) {
    if (line.rfind('{', 0) == 0) in_braces = true;
    if (line.rfind('}', 0) == 0) in_braces = false;
    if (!in_braces && line.rfind("assign", 0) == 0) ++assigns;
  }
  size_t total = 0;
  for (const CouplingSet& s : file.sets) total += s.couplings.size();
  EXPECT_EQ(total, assigns);
  EXPECT_EQ(total, 1286u);

  // First and last coupling of each set.
  struct Atom {
    int residue;
    const char* name;
  };
  struct Expected {
    size_t set;
    size_t index;
    long line;
    Atom atom1, atom2;
    double value;
    double error_plus;  // the second error column
  };
  const Expected expected[] = {
      {0, 0, 2, {2, "N"}, {2, "H"}, -8.17, 0.0},
      {0, 484, 4309, {70, "CG2"}, {70, "CB"}, 8.206, 100.0},
      {1, 0, 4318, {2, "N"}, {2, "H"}, -15.524, 0.0},
      {1, 450, 8427, {70, "CG2"}, {70, "CB"}, 10.962, 100.0},
      {2, 0, 8436, {4, "N"}, {4, "H"}, -3.07, 0.0},
      {2, 237, 9862, {71, "CA"}, {71, "HA"}, 50.01, 0.0},
      {3, 0, 9871, {2, "N"}, {2, "H"}, -11.822, 0.0},
      {3, 111, 10538, {71, "CA"}, {71, "HA"}, 49.85848, 0.0},
  };
  for (const Expected& x : expected) {
    SCOPED_TRACE("set " + file.sets[x.set].name + " line " + std::to_string(x.line));
    const MeasuredCoupling& c = file.sets[x.set].couplings.at(x.index);
    EXPECT_EQ(c.line, x.line);
    expect_atom(c.atom1, "", x.atom1.residue, x.atom1.name);
    expect_atom(c.atom2, "", x.atom2.residue, x.atom2.name);
    EXPECT_DOUBLE_EQ(c.value_hz, x.value);
    EXPECT_DOUBLE_EQ(c.error_hz.value_or(-1.0), 0.0);
    EXPECT_DOUBLE_EQ(c.error_plus_hz.value_or(-1.0), x.error_plus);
  }

  // Line 510: HN of 2 to C of 1, 1.6080; line 3059: CE-SD of 1, -21.6620
  // with the error columns "100.0000 0.0000".
  const auto& s500 = file.sets[0].couplings;
  const auto at_line = [&](long line) -> const MeasuredCoupling* {
    for (const MeasuredCoupling& c : s500) {
      if (c.line == line) return &c;
    }
    return nullptr;
  };
  const MeasuredCoupling* hn_c = at_line(510);
  ASSERT_NE(hn_c, nullptr);
  expect_atom(hn_c->atom1, "", 2, "H");
  expect_atom(hn_c->atom2, "", 1, "C");
  EXPECT_DOUBLE_EQ(hn_c->value_hz, 1.608);
  const MeasuredCoupling* ce_sd = at_line(3059);
  ASSERT_NE(ce_sd, nullptr);
  expect_atom(ce_sd->atom1, "", 1, "CE");
  expect_atom(ce_sd->atom2, "", 1, "SD");
  EXPECT_DOUBLE_EQ(ce_sd->value_hz, -21.662);
  EXPECT_DOUBLE_EQ(ce_sd->error_hz.value_or(-1.0), 100.0);
  EXPECT_DOUBLE_EQ(ce_sd->error_plus_hz.value_or(-1.0), 0.0);
  // Line 3183: CB-HB# of 8, 10.5070 with "0.0000 100.0000": a lower bound.
  const MeasuredCoupling* hb = at_line(3183);
  ASSERT_NE(hb, nullptr);
  expect_atom(hb->atom2, "", 8, "HB#");
  EXPECT_DOUBLE_EQ(hb->value_hz, 10.507);
  EXPECT_DOUBLE_EQ(hb->error_hz.value_or(-1.0), 0.0);
  EXPECT_DOUBLE_EQ(hb->error_plus_hz.value_or(-1.0), 100.0);

  // The commented-out statements are absent: the glycine HA# couplings in
  // braces, and CA-CB of 71 and 72 behind "!".
  for (const CouplingSet& s : file.sets) {
    for (const MeasuredCoupling& c : s.couplings) {
      EXPECT_NE(c.atom2.name, "HA#") << "line " << c.line;
      EXPECT_FALSE(c.atom1.name == "CA" && c.atom2.name == "CB" && c.atom1.residue >= 71)
          << "line " << c.line;
      EXPECT_NE(c.atom1.name, "HN");
      EXPECT_NE(c.atom2.name, "HN");
    }
  }
}

TEST(XplorCouplings, Real2mjbSetOption) {
  CouplingReadOptions options;
  options.set = "500";
  const CouplingFile file = read_couplings(k2mjb, options);
  ASSERT_EQ(file.sets.size(), 1u);
  EXPECT_EQ(file.sets[0].name, "500");
  EXPECT_EQ(file.sets[0].couplings.size(), 485u);

  options.set = "504";
  try {
    read_couplings(k2mjb, options);
    ADD_FAILURE() << "no error for an unknown set";
  } catch (const InputError& e) {
    const std::string message = e.what();
    EXPECT_TRUE(contains(message, k2mjb + ": no coupling set \"504\", expected one of the sets "
                                          "in the file: 500, 501, 503, 502"))
        << message;
  }
}

// The C'(i-1)-HN(i) couplings of tensor 500 are the type 4 lines of the
// classic file made from it (that type kept its sign there).
TEST(XplorCouplings, Real2mjbAgreesWithTheClassicFileOfTensor500) {
  CouplingReadOptions options;
  options.set = "500";
  const CouplingFile xplor = read_couplings(k2mjb, options);
  const CouplingFile classic = read_couplings(kClassic500);
  int compared = 0;
  for (const MeasuredCoupling& c : classic.sets.at(0).couplings) {
    if (c.atom2.name != "H" || c.atom1.name != "C") continue;
    int found = 0;
    for (const MeasuredCoupling& x : xplor.sets.at(0).couplings) {
      if (x.atom1.name == "H" && x.atom1.residue == c.atom2.residue && x.atom2.name == "C" &&
          x.atom2.residue == c.atom1.residue) {
        ++found;
        EXPECT_DOUBLE_EQ(x.value_hz, c.value_hz) << "classic line " << c.line;
      }
    }
    EXPECT_EQ(found, 1) << "classic line " << c.line;
    ++compared;
  }
  EXPECT_EQ(compared, 61);
}

// ---------------------------------------------------------------------------
// Telling the format, and whole-file errors

TEST(CouplingDetection, TellsEachFormat) {
  EXPECT_EQ(parse("! header\n\n" + std::string("ASSI ") + tensor(500) +
                  " (resid 1 and name N) (resid 1 and name HN) 1.0\n")
                .format,
            CouplingFormat::xplor);
  EXPECT_EQ(parse("# chain1 res1 ...\n\nA 2 N A 2 H 1.0\n").format, CouplingFormat::table);
  EXPECT_EQ(parse("- 2 N - 2 H 1.0 0.2  # note\n").format, CouplingFormat::table);
  EXPECT_EQ(parse("\n# comment\n2 1.0 0\n3 2.0 1\n").format, CouplingFormat::classic);
  // An assign keyword in a comment does not make a file X-PLOR.
  EXPECT_EQ(parse("# assign\n2 1.0 0 ! assign\n3 2.0 0 {assign}\n").format,
            CouplingFormat::classic);
  EXPECT_EQ(parse("A 2 N A 2 H 1.0 # assign\n").format, CouplingFormat::table);
}

TEST(CouplingDetection, UndetectableFormat) {
  for (const char* text :
       {"", "\n# only comments\n", "hello world\n2 1.0 0\n", "2 1.0\n", "A B N A 2 H 1.0\n"}) {
    const std::string e = error_of(text);
    EXPECT_TRUE(contains(e, "cannot tell the format of t.txt (use --couplings-format)")) << e;
  }
}

TEST(CouplingDetection, ExplicitFormatOverridesTheContent) {
  // Table-like text read as classic: the line has three leading numbers.
  const CouplingFile file = parse("2 1.0 0 x 5 y 3.0\n", with_format(CouplingFormat::classic));
  EXPECT_EQ(file.format, CouplingFormat::classic);
  EXPECT_EQ(file.sets.at(0).couplings.size(), 1u);
}

TEST(CouplingFileErrors, NoCouplings) {
  std::string e = error_of("\n", with_format(CouplingFormat::classic));
  EXPECT_TRUE(contains(e, "t.txt: no couplings found, expected at least one in the classic format"))
      << e;
  e = error_of("2 1000 0\n", with_format(CouplingFormat::classic));
  EXPECT_TRUE(contains(e, "t.txt: no couplings found")) << e;
  e = error_of("set echo off end\n", with_format(CouplingFormat::xplor));
  EXPECT_TRUE(contains(e, "t.txt: no couplings found, expected at least one in the xplor format"))
      << e;
  e = error_of("A 2 N\n", with_format(CouplingFormat::table, true));
  EXPECT_TRUE(contains(e, "t.txt: no couplings found (1 bad line(s) skipped)")) << e;
}

TEST(CouplingFileErrors, SetNameForSingleSetFormats) {
  CouplingReadOptions options;
  options.set = "500";
  const std::string e = error_of("2 1.0 0\n", options);
  EXPECT_TRUE(contains(e,
                       "t.txt: no coupling set \"500\", the classic format holds one unnamed "
                       "set"))
      << e;
  options.set = "";
  EXPECT_EQ(parse("2 1.0 0\n", options).sets.size(), 1u);
}

TEST(CouplingFileErrors, MissingFile) {
  const std::string path = kDataDir + "/couplings/no_such_file.dc";
  try {
    read_couplings(path);
    ADD_FAILURE() << "no error for a missing file";
  } catch (const InputError& e) {
    EXPECT_TRUE(contains(e.what(), path + ": cannot open the coupling file")) << e.what();
  }
}

}  // namespace
}  // namespace vorn::io
