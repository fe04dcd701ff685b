// The NEF and NMRPipe writers: what they write reads back through the
// readers to the same atoms and values.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "format_test_support.hpp"
#include "io/coupling_reader.hpp"
#include "io/coupling_writer.hpp"

namespace vorn::io {
namespace {

using test::as;
using test::contains;
using test::expect_atom;

CouplingList sample_list() {
  CouplingList list;
  list.name = "model_1";
  list.couplings = {
      {{"A", 2, ' ', "GLN", "N"}, {"A", 2, ' ', "GLN", "H"}, 22.636145285380966, std::nullopt},
      {{"A", 1, ' ', "MET", "C"}, {"A", 2, ' ', "GLN", "N"}, -1.0 / 3.0, 0.125},
      {{"A", 10, ' ', "LEU", "CB"}, {"A", 10, ' ', "LEU", "HB#"}, -1e-7, 2.5},
      {{"A", 12, ' ', "GLY", "CA"}, {"A", 12, ' ', "GLY", "HA2"}, 12345.678, std::nullopt},
  };
  return list;
}

TEST(NefWriter, ReadsBackToTheSameSitesAndValues) {
  const CouplingList list = sample_list();
  CouplingList second = list;
  second.name = "model_2";
  for (WrittenCoupling& c : second.couplings) c.value_hz *= -3.0;
  const std::string text =
      nef_begin("vorn test", "1.2.3") + nef_rdc_list(list) + nef_rdc_list(second);
  const CouplingFile file = parse_couplings(text, "w.nef", {});
  EXPECT_EQ(file.format, CouplingFormat::nef);
  ASSERT_EQ(file.sets.size(), 2u);
  EXPECT_EQ(file.sets[0].name, "model_1");
  EXPECT_EQ(file.sets[1].name, "model_2");
  for (std::size_t k = 0; k < 2; ++k) {
    const CouplingList& written = k == 0 ? list : second;
    const auto& read = file.sets[k].couplings;
    ASSERT_EQ(read.size(), written.couplings.size());
    for (std::size_t i = 0; i < read.size(); ++i) {
      const WrittenCoupling& w = written.couplings[i];
      expect_atom(read[i].atom1, w.atom1.chain, w.atom1.residue, w.atom1.name);
      expect_atom(read[i].atom2, w.atom2.chain, w.atom2.residue, w.atom2.name);
      EXPECT_EQ(read[i].value_hz, w.value_hz);  // exactly: the shortest exact text
      EXPECT_EQ(read[i].error_hz, w.error_hz);
    }
  }
  // The pseudo-atom in NEF's notation, the block named.
  EXPECT_TRUE(contains(text, " HB% ")) << text;
  EXPECT_TRUE(contains(text, "data_vorn_test\n")) << text;
}

TEST(NefWriter, ValuesThatNeedQuotesAndNoChain) {
  CouplingList list;
  list.name = "set 1/a";  // becomes set_1_a
  list.couplings = {{{"", 5, 'A', "_X", "N"}, {"", 5, ' ', "", "H"}, 1.5, std::nullopt}};
  const std::string text = nef_begin("b", "1") + nef_rdc_list(list);
  EXPECT_TRUE(contains(text, "save_nef_rdc_restraint_list_set_1_a\n")) << text;
  EXPECT_TRUE(contains(text, " . 5A '_X' N . 5 . H ")) << text;
  // The insertion code cannot be read back as a residue number.
  const std::string e = test::error_of(text, "w.nef");
  EXPECT_TRUE(contains(e, "sequence_code_1 \"5A\" is not an integer")) << e;
}

TEST(PipeWriter, ReadsBackToTheSameSitesAndValuesToTheMicrohertz) {
  CouplingList list = sample_list();
  for (WrittenCoupling& c : list.couplings) c.error_hz = c.error_hz.value_or(1.0);
  const std::string text = pipe_table(list, {"a remark", "another"});
  EXPECT_TRUE(contains(text, "REMARK a remark\nREMARK another\n")) << text;
  EXPECT_TRUE(
      contains(text, "VARS   RESID_I RESNAME_I ATOMNAME_I RESID_J RESNAME_J ATOMNAME_J D DD W"))
      << text;
  EXPECT_TRUE(contains(text, " HN ")) << text;  // the amide proton as NMRPipe names it
  const CouplingFile file = parse_couplings(text, "w.tab", {});
  EXPECT_EQ(file.format, CouplingFormat::pipe);
  const auto& read = file.sets.at(0).couplings;
  ASSERT_EQ(read.size(), list.couplings.size());
  for (std::size_t i = 0; i < read.size(); ++i) {
    const WrittenCoupling& w = list.couplings[i];
    // No chain column in the table.
    expect_atom(read[i].atom1, "", w.atom1.residue, w.atom1.name);
    expect_atom(read[i].atom2, "", w.atom2.residue, w.atom2.name);
    // Six decimals: within half of the last one.
    EXPECT_LE(std::fabs(read[i].value_hz - w.value_hz), 5e-7) << i;
    EXPECT_LE(std::fabs(*read[i].error_hz - *w.error_hz), 5e-7) << i;
  }
}

TEST(PipeWriter, WithoutErrorsNoDdColumn) {
  const std::string text = pipe_table(sample_list(), {});
  EXPECT_TRUE(contains(text, "ATOMNAME_J D W\n")) << text;
  const CouplingFile file = parse_couplings(text, "w.tab", as(CouplingFormat::pipe));
  for (const MeasuredCoupling& c : file.sets.at(0).couplings) EXPECT_FALSE(c.error_hz);
}

TEST(PipeWriter, ChainsAndInsertionCodesCannotBeWritten) {
  CouplingList list = sample_list();
  list.couplings[1].atom1.chain = "B";
  try {
    pipe_table(list, {});
    ADD_FAILURE() << "no error for two chains";
  } catch (const InputError& e) {
    EXPECT_TRUE(contains(e.what(), "the couplings are in chains A, B")) << e.what();
  }
  list = sample_list();
  list.couplings[0].atom2.insertion_code = 'B';
  try {
    pipe_table(list, {});
    ADD_FAILURE() << "no error for an insertion code";
  } catch (const InputError& e) {
    EXPECT_TRUE(contains(e.what(), "residue 2B cannot be written")) << e.what();
  }
}

}  // namespace
}  // namespace vorn::io
