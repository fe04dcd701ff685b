// The per-model JSON record of `vorn predict`: read back with nlohmann and
// compared, value by value and bit by bit, with a document built here with
// nlohmann from the same prediction.
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <exception>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "app/predict_command.hpp"
#include "modern/predict_report.hpp"

namespace vorn::modern {
namespace {

using json = nlohmann::ordered_json;
using app::ModelPrediction;
using app::PredictedCoupling;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kSubnormalMin = 4.9e-324;

// The JSON of one model as PredictReport writes it.
std::string model_text(const ModelPrediction& m) {
  app::PredictSettings settings;
  settings.output_format = app::OutputFormat::json;
  const PredictReport report(settings, false);
  return report.model(m, "input.pdb");
}

// A number as nlohmann writes it: null when it is not finite.
json number(double value) { return std::isfinite(value) ? json(value) : json(nullptr); }

template <std::size_t N>
json numbers(const std::array<double, N>& values) {
  json a = json::array();
  for (double v : values) a.push_back(number(v));
  return a;
}

template <std::size_t N, std::size_t M>
json numbers(const std::array<std::array<double, M>, N>& rows) {
  json a = json::array();
  for (const auto& row : rows) a.push_back(numbers(row));
  return a;
}

std::string icode(char c) { return c == ' ' || c == '\0' ? std::string() : std::string(1, c); }

// The record built as a nlohmann document, members in the order of the output.
json expected_json(const ModelPrediction& m) {
  const AlignmentTensor& t = m.tensor;
  json j;
  j["model"] = m.model;
  j["atoms_read"] = m.atoms_read;
  j["atoms_used"] = m.atoms_used;
  j["built_hydrogens"] = m.built_hydrogens;
  j["unplaced_hydrogens"] = m.unplaced_hydrogens;
  json tensor;
  tensor["saupe"] = numbers(t.saupe);
  tensor["eigenvalues"] = numbers(t.eigenvalues);
  tensor["eigenvectors"] = numbers(t.eigenvectors);
  tensor["da_hz"] = number(t.da_hz);
  tensor["rhombicity"] = number(t.rhombicity);
  tensor["euler_deg"] = numbers(t.euler_deg);
  j["tensor"] = tensor;
  json couplings = json::array();
  for (const PredictedCoupling& c : m.couplings) {
    json k;
    k["chain"] = c.site.chain;
    k["residue"] = c.site.residue_number;
    k["icode"] = icode(c.site.insertion_code);
    k["resname"] = c.site.residue_name;
    k["type"] = c.site.type;
    k["atom1"] = c.site.atom1;
    k["atom2"] = c.site.atom2;
    k["predicted_hz"] = number(c.predicted_hz);
    k["dmax_hz"] = number(c.dmax_hz);
    k["built_hydrogen"] = c.site.built_hydrogen;
    couplings.push_back(k);
  }
  j["couplings"] = couplings;
  return j;
}

// Stricter than ==: the same member order, a float where a float is expected
// (not an integer of the same value) and the same bits for every float
// (== takes -0.0 for 0.0).
void expect_same(const json& actual, const json& expected, const std::string& path = "$") {
  if (expected.is_number_float() || actual.is_number_float()) {
    ASSERT_TRUE(actual.is_number_float()) << path << ": " << actual.dump();
    ASSERT_TRUE(expected.is_number_float()) << path << ": " << expected.dump();
    EXPECT_EQ(std::bit_cast<std::uint64_t>(actual.get<double>()),
              std::bit_cast<std::uint64_t>(expected.get<double>()))
        << path << ": " << actual.dump() << " vs " << expected.dump();
    return;
  }
  if (expected.is_object()) {
    ASSERT_TRUE(actual.is_object()) << path;
    ASSERT_EQ(actual.size(), expected.size()) << path << ": " << actual.dump();
    auto a = actual.items().begin();
    for (const auto& e : expected.items()) {
      ASSERT_EQ(a.key(), e.key()) << path;
      expect_same(a.value(), e.value(), path + "." + e.key());
      ++a;
    }
    return;
  }
  if (expected.is_array()) {
    ASSERT_TRUE(actual.is_array()) << path;
    ASSERT_EQ(actual.size(), expected.size()) << path;
    for (std::size_t i = 0; i < expected.size(); ++i)
      expect_same(actual[i], expected[i], path + "[" + std::to_string(i) + "]");
    return;
  }
  // Integers (signed or not), strings, booleans, null.
  EXPECT_EQ(actual, expected) << path;
  EXPECT_EQ(actual.is_number(), expected.is_number()) << path;
}

PredictedCoupling coupling(std::string chain, int residue, char insertion_code, std::string resname,
                           std::string type, std::string atom1, std::string atom2, double dmax_hz,
                           double predicted_hz, bool built) {
  PredictedCoupling c;
  c.site.chain = std::move(chain);
  c.site.residue_number = residue;
  c.site.insertion_code = insertion_code;
  c.site.residue_name = std::move(resname);
  c.site.type = std::move(type);
  c.site.atom1 = std::move(atom1);
  c.site.atom2 = std::move(atom2);
  c.site.built_hydrogen = built;
  c.dmax_hz = dmax_hz;
  c.predicted_hz = predicted_hz;
  return c;
}

// A prediction full of doubles that are easy to print wrongly.
ModelPrediction awkward_model() {
  ModelPrediction m;
  m.model = 7;
  m.atoms_read = 1234;
  m.atoms_used = 567;
  m.built_hydrogens = 2;
  m.unplaced_hydrogens = 3;
  AlignmentTensor& t = m.tensor;
  t.saupe = {0.1, 1e-300, -2.5e-7, 123456789.125, 3.0};
  t.eigenvalues = {1e21, kSubnormalMin, -0.0};
  t.eigenvectors = {
      {{0.0, -1.0, 1e16}, {0.7071067811865476, 1.0 / 3.0, -1e-5}, {2.0, 5e-324, 1e15}}};
  t.da_hz = 3.0;
  t.rhombicity = 0.6666666666666666;
  t.euler_deg = {{{-180.0, 90.0, 45.5},
                  {0.30000000000000004, 1.7976931348623157e308, -2.2250738585072014e-308},
                  {359.99999999999994, -0.0, 12.0},
                  {1e-7, 100.0, -1e22}}};
  m.couplings = {
      coupling("A", 42, 'A', "ALA", "N-H", "N", "H", -21523.0, 0.1, true),
      coupling("B", -3, ' ', "GLY", "CA-HA", "CA", "HA2", 45367.0, -2.5e-7, false),
      coupling("A", 1000, 'Z', "PRO", "C-HN", "C", "H", 3.0, -0.0, true),
  };
  return m;
}

// The comparison itself tells apart what == does not.
TEST(PredictReportJson, ComparisonIsStrict) {
  EXPECT_FATAL_FAILURE(expect_same(json(0), json(0.0)), "is_number_float");
  EXPECT_NONFATAL_FAILURE(expect_same(json(0.0), json(-0.0)), "-0.0");
  EXPECT_NONFATAL_FAILURE(expect_same(json(0.1), json(0.1 + 1e-17)), "0.1");
  EXPECT_FATAL_FAILURE(
      expect_same(json::parse(R"({"b":1,"a":2})"), json::parse(R"({"a":2,"b":1})")), "a.key()");
  EXPECT_NONFATAL_FAILURE(expect_same(json("x"), json("y")), "$");
}

TEST(PredictReportJson, ReadsBackAsTheDocumentBuiltFromThePrediction) {
  const ModelPrediction m = awkward_model();
  const std::string text = model_text(m);
  const json actual = json::parse(text);
  const json expected = expected_json(m);
  EXPECT_EQ(actual, expected);
  expect_same(actual, expected);

  // A few values checked here without the comparison above.
  const double neg_zero = actual["tensor"]["eigenvalues"][2].get<double>();
  const double minus_zero = -0.0;
  EXPECT_EQ(std::memcmp(&neg_zero, &minus_zero, sizeof(double)), 0) << text;
  EXPECT_TRUE(std::signbit(neg_zero));
  const double subnormal = actual["tensor"]["eigenvalues"][1].get<double>();
  EXPECT_EQ(std::bit_cast<std::uint64_t>(subnormal), std::uint64_t{1});
  EXPECT_EQ(std::bit_cast<std::uint64_t>(actual["tensor"]["saupe"][0].get<double>()),
            std::bit_cast<std::uint64_t>(0.1));
  EXPECT_EQ(actual["tensor"]["saupe"][3].get<double>(), 123456789.125);
  EXPECT_EQ(actual["tensor"]["eigenvalues"][0].get<double>(), 1e21);
  EXPECT_EQ(actual["tensor"]["euler_deg"][1][1].get<double>(), std::numeric_limits<double>::max());
  EXPECT_TRUE(std::signbit(actual["couplings"][2]["predicted_hz"].get<double>()));

  // Members by name, as a reader finds them.
  ASSERT_EQ(actual["couplings"].size(), 3u);
  EXPECT_EQ(actual["couplings"][0]["icode"], "A");
  EXPECT_EQ(actual["couplings"][1]["icode"], "");
  EXPECT_EQ(actual["couplings"][1]["residue"], -3);
  EXPECT_EQ(actual["couplings"][0]["built_hydrogen"], true);
  EXPECT_EQ(actual["couplings"][1]["built_hydrogen"], false);
  EXPECT_EQ(actual["couplings"][1]["atom2"], "HA2");
  EXPECT_EQ(actual["model"], 7);
  EXPECT_EQ(actual["built_hydrogens"], 2);
  EXPECT_EQ(actual["unplaced_hydrogens"], 3);
}

TEST(PredictReportJson, WholeNumbersKeepAFraction) {
  const ModelPrediction m = awkward_model();
  const std::string text = model_text(m);
  EXPECT_NE(text.find("\"da_hz\":3.0,"), std::string::npos) << text;
  EXPECT_NE(text.find("\"dmax_hz\":3.0,"), std::string::npos) << text;
  EXPECT_NE(text.find("\"predicted_hz\":-0.0,"), std::string::npos) << text;
  EXPECT_NE(text.find("\"dmax_hz\":-21523.0,"), std::string::npos) << text;
  EXPECT_NE(text.find("[-180.0,90.0,45.5]"), std::string::npos) << text;
  // Every double of the record is a float to a reader, none an integer.
  const json actual = json::parse(text);
  for (const auto& v : actual["tensor"]["saupe"]) EXPECT_TRUE(v.is_number_float()) << v;
  for (const auto& row : actual["tensor"]["eigenvectors"])
    for (const auto& v : row) EXPECT_TRUE(v.is_number_float()) << v;
  for (const auto& c : actual["couplings"]) {
    EXPECT_TRUE(c["dmax_hz"].is_number_float()) << c;
    EXPECT_TRUE(c["predicted_hz"].is_number_float()) << c;
    EXPECT_TRUE(c["residue"].is_number_integer()) << c;
  }
  EXPECT_TRUE(actual["model"].is_number_integer());
}

TEST(PredictReportJson, ValuesThatAreNotFiniteAreNull) {
  ModelPrediction m = awkward_model();
  m.tensor.saupe[1] = kNaN;
  m.tensor.da_hz = kInf;
  m.tensor.rhombicity = -kInf;
  m.tensor.eigenvectors[2][0] = kNaN;
  m.tensor.euler_deg[3][2] = kInf;
  m.couplings[0].predicted_hz = kNaN;
  m.couplings[1].dmax_hz = -kInf;
  const std::string text = model_text(m);
  json actual;
  ASSERT_NO_THROW(actual = json::parse(text)) << text;
  EXPECT_TRUE(actual["tensor"]["saupe"][1].is_null());
  EXPECT_TRUE(actual["tensor"]["da_hz"].is_null());
  EXPECT_TRUE(actual["tensor"]["rhombicity"].is_null());
  EXPECT_TRUE(actual["tensor"]["eigenvectors"][2][0].is_null());
  EXPECT_TRUE(actual["tensor"]["euler_deg"][3][2].is_null());
  EXPECT_TRUE(actual["couplings"][0]["predicted_hz"].is_null());
  EXPECT_TRUE(actual["couplings"][1]["dmax_hz"].is_null());
  EXPECT_NE(text.find("\"da_hz\":null,\"rhombicity\":null,"), std::string::npos) << text;
  EXPECT_EQ(text.find("nan"), std::string::npos) << text;
  EXPECT_EQ(text.find("inf"), std::string::npos) << text;
  // The same as nlohmann writes a document that holds the values themselves.
  json raw = expected_json(m);
  raw["tensor"]["saupe"][1] = kNaN;
  raw["tensor"]["da_hz"] = kInf;
  raw["tensor"]["rhombicity"] = -kInf;
  raw["tensor"]["eigenvectors"][2][0] = kNaN;
  raw["tensor"]["euler_deg"][3][2] = kInf;
  raw["couplings"][0]["predicted_hz"] = kNaN;
  raw["couplings"][1]["dmax_hz"] = -kInf;
  expect_same(actual, json::parse(raw.dump()));
  expect_same(actual, expected_json(m));
}

TEST(PredictReportJson, StringsAreEscapedAndReadBackUnchanged) {
  ModelPrediction m = awkward_model();
  m.couplings[0].site.chain = "A\"B";
  m.couplings[0].site.residue_name = "AL\\A";
  m.couplings[1].site.chain = "X\tY\x01Z\x1f";
  m.couplings[1].site.residue_name = "caf\xc3\xa9";  // "café" in UTF-8
  m.couplings[2].site.atom1 = "C\nD";
  m.couplings[2].site.insertion_code = '"';
  m.couplings[2].site.type = "\x7f";  // DEL: a legal character in a JSON string
  const std::string text = model_text(m);
  json actual;
  ASSERT_NO_THROW(actual = json::parse(text)) << text;
  EXPECT_EQ(actual["couplings"][0]["chain"], "A\"B");
  EXPECT_EQ(actual["couplings"][0]["resname"], "AL\\A");
  EXPECT_EQ(actual["couplings"][1]["chain"], "X\tY\x01Z\x1f");
  EXPECT_EQ(actual["couplings"][1]["resname"], "caf\xc3\xa9");
  EXPECT_EQ(actual["couplings"][2]["atom1"], "C\nD");
  EXPECT_EQ(actual["couplings"][2]["icode"], "\"");
  EXPECT_EQ(actual["couplings"][2]["type"], "\x7f");
  expect_same(actual, expected_json(m));
  // Escapes, not raw control characters.
  EXPECT_NE(text.find("\"X\\tY\\u0001Z\\u001f\""), std::string::npos) << text;
  EXPECT_EQ(text.find('\t'), std::string::npos);
  EXPECT_EQ(text.find('\x01'), std::string::npos);
}

TEST(PredictReportJson, TextThatIsNotUtf8Throws) {
  for (const std::string bad : {"\xff", "A\xc3", "\xc3(", "\xed\xa0\x80"}) {
    ModelPrediction m = awkward_model();
    m.couplings[1].site.residue_name = bad;
    try {
      const std::string text = model_text(m);
      ADD_FAILURE() << "no exception for a name of " << bad.size() << " bytes; wrote " << text;
    } catch (const nlohmann::json::type_error& e) {
      EXPECT_EQ(e.id, 316) << e.what();
    } catch (const std::exception& e) {
      ADD_FAILURE() << "not nlohmann's type_error: " << e.what();
    }
  }
  // The insertion code is a byte of its own: one that is not ASCII is not
  // UTF-8 either.
  ModelPrediction m = awkward_model();
  m.couplings[0].site.insertion_code = '\xe9';
  EXPECT_THROW(model_text(m), std::exception);
}

TEST(PredictReportJson, OneLinePerModel) {
  ModelPrediction m = awkward_model();
  m.couplings[2].site.atom1 = "C\nD\r";
  const std::string text = model_text(m);
  EXPECT_EQ(text.find('\n'), std::string::npos) << text;
  EXPECT_EQ(text.find('\r'), std::string::npos) << text;
  EXPECT_EQ(text.front(), '{');
  EXPECT_EQ(text.back(), '}');
  EXPECT_TRUE(json::accept(text)) << text;
}

TEST(PredictReportJson, NoCouplingsIsAnEmptyArray) {
  ModelPrediction m = awkward_model();
  m.couplings.clear();
  const std::string text = model_text(m);
  EXPECT_NE(text.find("\"couplings\":[]}"), std::string::npos) << text;
  EXPECT_EQ(text.find('\n'), std::string::npos) << text;
  const json actual = json::parse(text);
  ASSERT_TRUE(actual["couplings"].is_array());
  EXPECT_TRUE(actual["couplings"].empty());
  expect_same(actual, expected_json(m));
}

TEST(PredictReportJson, DefaultPredictionReadsBack) {
  const ModelPrediction m;  // all zero: every double prints as 0.0
  const std::string text = model_text(m);
  EXPECT_NE(text.find("\"saupe\":[0.0,0.0,0.0,0.0,0.0]"), std::string::npos) << text;
  expect_same(json::parse(text), expected_json(m));
}

}  // namespace
}  // namespace vorn::modern
