// The pictures of `vorn fit` and `vorn predict` run as a program: the SVG
// maps and sequence plots read back against the JSON of the same run (one
// marker per coupling, sample, model and axis end, where the values and
// eigenvectors put them), the BILD and PyMOL scripts against the JSON's
// eigenvectors and eigenvalues and the mean of the atoms read here from the
// PDB file, the file names with several sets or files, and the errors.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "capture.hpp"
#include "run_command.hpp"
#include "svg_shapes.hpp"
#include "temp_dir_test.hpp"
#include "tensor_script_reader.hpp"

namespace vorn {
namespace {

namespace fs = std::filesystem;
using json = nlohmann::ordered_json;  // the order of the per-type figures is the panels'
using test::data_path;
using test::SvgPolyline;
using test::V3;

constexpr double kPi = 3.14159265358979323846;

const std::string kPdb10 = data_path("raw/1D3Z_raw_10models.pdb");
const std::string kDc = data_path("couplings/ubq_2mjb_t500_bicelleA.dc");
const std::string kMr = data_path("raw/2mjb_mr_rdc_section.mr");

// Colours: the x, y, z axes and their tints (samples); the sequence plot's
// measured (black), fitted (blue) and predicted (vermillion) values.
const std::string kAxis[3] = {"#D55E00", "#009E73", "#0072B2"};
const std::string kTint[3] = {"#ECB78C", "#8CD3C0", "#8CC0DC"};
const std::string kBlack = "#000000";
const std::string kBlue = "#0072B2";
const std::string kVermillion = "#D55E00";

using RunResult = test::CommandResult;

std::string quoted(const std::string& path) { return "'" + path + "'"; }

// A fresh directory per test, removed afterwards.
class PictureCommand : public test::TempDirTest {
 protected:
  PictureCommand() : TempDirTest("vorn_pictures_") {}

  RunResult run_vorn(const std::string& args) const {
    return test::run_command(std::string(VORN_BINARY) + " " + args, file("stderr.txt"));
  }

  json run_json(const std::string& args) const {
    const RunResult r = run_vorn(args + " --format json");
    EXPECT_EQ(r.status, 0) << args << "\n" << r.err;
    EXPECT_EQ(r.err, "") << args;
    if (r.status != 0) return json::object();
    return json::parse(r.out);
  }
};

// The mean position of the atoms of model `number` of a PDB file: every
// ATOM and HETATM record, read by columns.
V3 mean_atom(const std::string& path, int number) {
  std::ifstream in(path);
  int model = 0;
  long double sum[3] = {0, 0, 0};
  long n = 0;
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("MODEL", 0) == 0) model = std::stoi(line.substr(10));
    if (model != number || (line.rfind("ATOM  ", 0) != 0 && line.rfind("HETATM", 0) != 0)) continue;
    for (int c = 0; c < 3; ++c) sum[c] += std::stold(line.substr(30 + 8 * c, 8));
    ++n;
  }
  EXPECT_GT(n, 0) << path << " model " << number;
  return {static_cast<double>(sum[0] / n), static_cast<double>(sum[1] / n),
          static_cast<double>(sum[2] / n)};
}

std::array<V3, 3> eigenvectors_of(const json& tensor) {
  std::array<V3, 3> e{};
  for (int k = 0; k < 3; ++k)
    for (int c = 0; c < 3; ++c) e[k][c] = tensor.at("eigenvectors").at(k).at(c).get<double>();
  return e;
}

V3 eigenvalues_of(const json& tensor) {
  V3 v{};
  for (int k = 0; k < 3; ++k) v[k] = tensor.at("eigenvalues").at(k).get<double>();
  return v;
}

// Map points of both ends of axis `axis` (0 x, 1 y, 2 z) of a tensor, +
// end first: longitude atan2(y, x), latitude asin(z), x = lon cos(lat).
std::array<test::Point, 2> map_points(const json& tensor, int axis) {
  const V3 d = eigenvectors_of(tensor)[2 - axis];
  std::array<test::Point, 2> p;
  for (int end = 0; end < 2; ++end) {
    const double s = end == 0 ? 1.0 : -1.0;
    const double lon = std::atan2(s * d[1], s * d[0]) * 180 / kPi;
    const double lat = std::asin(s * d[2]) * 180 / kPi;
    p[end] = {lon * std::cos(lat * kPi / 180), lat};
  }
  return p;
}

// Collects marker centres against their expected map points, and checks
// at the end that one linear map, the same scale across and up, takes
// every map point to its marker.
struct MapCheck {
  std::vector<double> map_x, map_y, svg_x, svg_y;

  // The markers of `tensors` (in drawing order) for each axis.
  void add(const std::vector<json>& tensors, const std::vector<SvgPolyline>* drawn) {
    for (int axis = 0; axis < 3; ++axis) {
      ASSERT_EQ(drawn[axis].size(), 2 * tensors.size()) << "axis " << axis;
      for (std::size_t t = 0; t < tensors.size(); ++t) {
        const auto points = map_points(tensors[t], axis);
        for (int end = 0; end < 2; ++end) {
          map_x.push_back(points[end].x);
          map_y.push_back(points[end].y);
          svg_x.push_back(drawn[axis][2 * t + end].centre().x);
          svg_y.push_back(drawn[axis][2 * t + end].centre().y);
        }
      }
    }
  }
  void expect_one_scale() const {
    ASSERT_GE(map_x.size(), 2u);
    const auto x = test::fit_line(map_x, svg_x);
    const auto y = test::fit_line(map_y, svg_y);
    EXPECT_LT(x[2], 0.02);
    EXPECT_LT(y[2], 0.02);
    EXPECT_NEAR(y[1] / x[1], 1.0, 1e-3);
  }
};

// The markers of each axis in `colours` of a shape: rings, or filled
// shapes of `corners` corners.
void shapes_per_axis(const std::vector<SvgPolyline>& lines, const std::string* colours, bool ring,
                     std::size_t corners, std::vector<SvgPolyline> out[3]) {
  for (int axis = 0; axis < 3; ++axis) {
    out[axis] = ring ? test::rings(lines, colours[axis], corners)
                     : test::filled_shapes(lines, colours[axis], corners);
  }
}

// ---------------------------------------------------------------------------
// vorn fit --plot-sequence

// Expected markers of the sequence plot: the couplings of the JSON set by
// type in the order of the per-type quality, each at the residue of its
// later atom.
struct SequenceExpectation {
  std::vector<std::string> types;  // one per panel
  std::vector<std::vector<const json*>> couplings;
};

SequenceExpectation expected_panels(const json& set) {
  SequenceExpectation e;
  for (const auto& [type, quality] : set.at("quality").at("per_type").items()) {
    e.types.push_back(type);
    e.couplings.emplace_back();
    for (const json& c : set.at("couplings"))
      if (c.at("type") == type) e.couplings.back().push_back(&c);
  }
  return e;
}

TEST_F(PictureCommand, SequencePlotHasEveryCouplingWhereItsValuesAre) {
  const std::string svg = file("sequence.svg");
  const json doc = run_json("fit --predict --plot-sequence " + quoted(svg) + " " + quoted(kPdb10) +
                            " " + quoted(kDc));
  ASSERT_TRUE(fs::exists(svg));
  EXPECT_TRUE(test::xmllint_accepts(VORN_XMLLINT, svg));
  const json& set = doc.at("sets").at(0);
  const std::size_t n = set.at("couplings").size();
  EXPECT_EQ(n, 305u);
  const std::string text = test::read_text_file(svg);
  const auto lines = test::svg_polylines(text);
  const auto discs = test::filled_shapes(lines, kBlack, 16);
  const auto circles = test::rings(lines, kBlue, 16);
  const auto triangles = test::filled_shapes(lines, kVermillion, 3);
  ASSERT_EQ(discs.size(), n);
  ASSERT_EQ(circles.size(), n);
  ASSERT_EQ(triangles.size(), n);

  // A panel per type, labelled; the markers panel by panel.
  const SequenceExpectation e = expected_panels(set);
  EXPECT_EQ(e.types.size(), 5u);
  const std::vector<std::string> texts = test::svg_texts(text);
  for (const std::string& type : e.types) {
    EXPECT_EQ(std::count(texts.begin(), texts.end(), type + " (Hz)"), 1) << type;
  }
  std::vector<double> residues, x;
  std::size_t at = 0;
  for (std::size_t p = 0; p < e.types.size(); ++p) {
    SCOPED_TRACE(e.types[p]);
    std::vector<double> measured, y;
    for (const json* c : e.couplings[p]) {
      residues.push_back(std::max(c->at("residue1").get<int>(), c->at("residue2").get<int>()));
      x.push_back(discs[at + measured.size()].centre().x);
      measured.push_back(c->at("measured_hz").get<double>());
      y.push_back(discs[at + y.size()].centre().y);
    }
    const auto line = test::fit_line(measured, y);
    EXPECT_GT(line[1], 0.0);
    EXPECT_LT(line[2], 0.02);
    for (std::size_t i = 0; i < e.couplings[p].size(); ++i) {
      const json& c = *e.couplings[p][i];
      EXPECT_NEAR(circles[at + i].centre().y,
                  line[0] + line[1] * c.at("calculated_hz").get<double>(), 0.03);
      EXPECT_NEAR(triangles[at + i].centre().y,
                  line[0] + line[1] * c.at("predicted_hz").get<double>(), 0.03);
      EXPECT_NEAR(circles[at + i].centre().x, discs[at + i].centre().x, 0.02);
    }
    at += e.couplings[p].size();
  }
  const auto along = test::fit_line(residues, x);
  EXPECT_GT(along[1], 0.0);
  EXPECT_LT(along[2], 0.02);
}

TEST_F(PictureCommand, SequencePlotShowsTheErrorsOfTheFile) {
  // The first 16 N-H couplings of the classic file as a table, every other
  // one with an error.
  const std::string table = file("nh.tbl");
  int with_error = 0, rows = 0;
  {
    std::ifstream in(kDc);
    std::ofstream out(table);
    for (std::string line; std::getline(in, line) && rows < 16;) {
      std::istringstream f(line);
      int residue = 0, type = -1;
      double value = 0;
      if (!(f >> residue >> value >> type) || type != 0) continue;
      out << "- " << residue << " N - " << residue << " H " << value;
      if (rows % 2 == 0) {
        out << " " << 0.5 + 0.1 * rows;
        ++with_error;
      }
      out << "\n";
      ++rows;
    }
  }
  const std::string svg = file("errors.svg");
  const json doc =
      run_json("fit --plot-sequence " + quoted(svg) + " " + quoted(kPdb10) + " " + quoted(table));
  const json& couplings = doc.at("sets").at(0).at("couplings");
  ASSERT_EQ(couplings.size(), 16u);
  const auto lines = test::svg_polylines(test::read_text_file(svg));
  const auto discs = test::filled_shapes(lines, kBlack, 16);
  ASSERT_EQ(discs.size(), 16u);
  std::vector<double> measured, y;
  for (std::size_t i = 0; i < 16; ++i) {
    measured.push_back(couplings[i].at("measured_hz").get<double>());
    y.push_back(discs[i].centre().y);
  }
  const auto scale = test::fit_line(measured, y);
  // One vertical black line through each disc with an error, from value -
  // error to value + error.
  int bars = 0;
  for (const SvgPolyline& l : lines) {
    if (l.filled() || l.stroke != kBlack || l.points.size() != 2 || l.points[0].x != l.points[1].x)
      continue;
    const double lo = std::min(l.points[0].y, l.points[1].y);
    const double hi = std::max(l.points[0].y, l.points[1].y);
    for (std::size_t i = 0; i < 16; ++i) {
      const test::Point c = discs[i].centre();
      if (std::fabs(l.points[0].x - c.x) > 0.02 || !(lo < c.y && c.y < hi)) continue;
      ASSERT_FALSE(couplings[i].at("error_hz").is_null()) << i;
      const double e = couplings[i]["error_hz"].get<double>();
      EXPECT_NEAR(lo, scale[0] + scale[1] * (measured[i] - e), 0.03);
      EXPECT_NEAR(hi, scale[0] + scale[1] * (measured[i] + e), 0.03);
      ++bars;
    }
  }
  EXPECT_EQ(bars, with_error);
  const std::vector<std::string> texts = test::svg_texts(test::read_text_file(svg));
  EXPECT_EQ(std::count(texts.begin(), texts.end(), "measured \u00B1 error (n = 16)"), 1);
}

// ---------------------------------------------------------------------------
// vorn fit --plot-axes

TEST_F(PictureCommand, AxesMapOfFitSamplesAndPrediction) {
  const std::string svg = file("axes.svg");
  const std::string args = "fit --errors bootstrap --samples 30 --seed 7 --predict " +
                           quoted(kPdb10) + " " + quoted(kDc);
  const json doc = run_json(args + " --plot-axes " + quoted(svg));
  ASSERT_TRUE(fs::exists(svg));
  EXPECT_TRUE(test::xmllint_accepts(VORN_XMLLINT, svg));
  // Keeping the samples for the map changes no result.
  EXPECT_EQ(run_json(args), doc);

  const json& set = doc.at("sets").at(0);
  const auto lines = test::svg_polylines(test::read_text_file(svg));
  std::vector<SvgPolyline> fit[3], samples[3], predicted[3], models[3];
  shapes_per_axis(lines, kAxis, true, 16, fit);
  shapes_per_axis(lines, kTint, false, 16, samples);
  shapes_per_axis(lines, kAxis, false, 3, predicted);
  shapes_per_axis(lines, kAxis, false, 4, models);
  MapCheck check;
  check.add({set.at("tensor")}, fit);
  check.add({set.at("prediction").at("tensor")}, predicted);
  check.expect_one_scale();
  for (int axis = 0; axis < 3; ++axis) {
    EXPECT_EQ(samples[axis].size(), 60u);  // both ends of 30 samples
    EXPECT_EQ(models[axis].size(), 0u);
    // The samples scatter about the fit's ends (by about a degree).
    for (const SvgPolyline& s : samples[axis]) {
      double nearest = 1e9;
      for (const SvgPolyline& f : fit[axis]) {
        nearest =
            std::min(nearest, std::hypot(s.centre().x - f.centre().x, s.centre().y - f.centre().y));
      }
      EXPECT_LT(nearest, 10.0);  // points: 6 degrees
    }
  }
  const std::vector<std::string> texts = test::svg_texts(test::read_text_file(svg));
  for (const char* entry : {"fit (n = 1)", "bootstrap samples (n = 30)", "prediction (n = 1)"}) {
    EXPECT_EQ(std::count(texts.begin(), texts.end(), entry), 1) << entry;
  }
}

TEST_F(PictureCommand, AxesMapOfEachModelsFit) {
  const std::string svg = file("models.svg");
  const json doc = run_json("fit --per-model --models 1-3 --errors montecarlo --samples 5 " +
                            quoted(kPdb10) + " " + quoted(kDc) + " --plot-axes " + quoted(svg));
  const json& sets = doc.at("sets");
  ASSERT_EQ(sets.size(), 3u);
  const auto lines = test::svg_polylines(test::read_text_file(svg));
  std::vector<SvgPolyline> fit[3], samples[3], models[3];
  shapes_per_axis(lines, kAxis, true, 16, fit);
  shapes_per_axis(lines, kTint, false, 16, samples);
  shapes_per_axis(lines, kAxis, false, 4, models);
  MapCheck check;
  check.add({sets[0].at("tensor"), sets[1].at("tensor"), sets[2].at("tensor")}, models);
  check.expect_one_scale();
  for (int axis = 0; axis < 3; ++axis) {
    EXPECT_EQ(fit[axis].size(), 0u);
    EXPECT_EQ(samples[axis].size(), 30u);  // 5 samples of each of 3 fits, both ends
  }
}

TEST_F(PictureCommand, SeveralSetsGiveAFileEach) {
  const std::string base = file("sets.svg");
  const std::string script = file("sets.bild");
  const json doc =
      run_json("fit --fix-sign --plot-axes " + quoted(base) + " --tensor-script " + quoted(script) +
               " " + quoted(data_path("raw/1d3z.cif")) + " " + quoted(kMr));
  ASSERT_EQ(doc.at("sets").size(), 4u);
  EXPECT_FALSE(fs::exists(base));
  EXPECT_FALSE(fs::exists(script));
  for (const json& set : doc.at("sets")) {
    const std::string name = set.at("set").get<std::string>();
    const std::string svg = file("sets_" + name + ".svg");
    ASSERT_TRUE(fs::exists(svg)) << svg;
    const auto lines = test::svg_polylines(test::read_text_file(svg));
    std::vector<SvgPolyline> fit[3];
    shapes_per_axis(lines, kAxis, true, 16, fit);
    MapCheck check;
    check.add({set.at("tensor")}, fit);
    check.expect_one_scale();
    const std::string bild = file("sets_" + name + ".bild");
    ASSERT_TRUE(fs::exists(bild)) << bild;
    test::expect_tensor_arrows(test::bild_arrows(test::read_text_file(bild)), mean_atom(kPdb10, 1),
                               eigenvectors_of(set.at("tensor")), eigenvalues_of(set.at("tensor")));
  }
}

// ---------------------------------------------------------------------------
// vorn fit --tensor-script

TEST_F(PictureCommand, FittedTensorOnTheMolecule) {
  for (const char* name : {"fit.bild", "fit.pml"}) {
    SCOPED_TRACE(name);
    const std::string path = file(name);
    const json doc =
        run_json("fit --tensor-script " + quoted(path) + " " + quoted(kPdb10) + " " + quoted(kDc));
    const json& tensor = doc.at("sets").at(0).at("tensor");
    const std::string text = test::read_text_file(path);
    const auto arrows =
        path.back() == 'd' ? test::bild_arrows(text) : test::pml_arrows(text, "vorn_fit");
    EXPECT_EQ(arrows.size(), 6u);
    test::expect_tensor_arrows(arrows, mean_atom(kPdb10, 1), eigenvectors_of(tensor),
                               eigenvalues_of(tensor));
  }
}

TEST_F(PictureCommand, EachModelsFittedTensorIsAState) {
  const std::string path = file("models.pml");
  const json doc = run_json("fit --per-model --models 2,5,9 --tensor-script " + quoted(path) + " " +
                            quoted(kPdb10) + " " + quoted(kDc));
  const json& sets = doc.at("sets");
  ASSERT_EQ(sets.size(), 3u);
  const auto arrows = test::pml_arrows(test::read_text_file(path), "vorn_fit");
  ASSERT_EQ(arrows.size(), 18u);
  for (int state = 1; state <= 3; ++state) {
    SCOPED_TRACE(state);
    std::vector<test::ScriptArrow> of_state;
    for (const auto& a : arrows)
      if (a.state == state) of_state.push_back(a);
    const json& set = sets[state - 1];
    const int model = set.at("models").at(0).get<int>();
    test::expect_tensor_arrows(of_state, mean_atom(kPdb10, model),
                               eigenvectors_of(set.at("tensor")), eigenvalues_of(set.at("tensor")));
  }
}

// ---------------------------------------------------------------------------
// vorn predict --plot-axes, --tensor-script

TEST_F(PictureCommand, PredictedModelsOnTheMapAndTheMolecule) {
  const std::string svg = file("predicted.svg");
  const std::string pml = file("predicted.pml");
  const json doc = run_json("predict -q --models 1,4,6,7 --plot-axes " + quoted(svg) +
                            " --tensor-script " + quoted(pml) + " " + quoted(kPdb10));
  const json& models = doc.at("models");
  ASSERT_EQ(models.size(), 4u);
  ASSERT_TRUE(fs::exists(svg));
  EXPECT_TRUE(test::xmllint_accepts(VORN_XMLLINT, svg));
  const auto lines = test::svg_polylines(test::read_text_file(svg));
  std::vector<SvgPolyline> diamonds[3], triangles[3];
  shapes_per_axis(lines, kAxis, false, 4, diamonds);
  shapes_per_axis(lines, kAxis, false, 3, triangles);
  std::vector<json> tensors;
  for (const json& m : models) tensors.push_back(m.at("tensor"));
  MapCheck check;
  check.add(tensors, diamonds);
  check.expect_one_scale();
  for (int axis = 0; axis < 3; ++axis) EXPECT_EQ(triangles[axis].size(), 0u);

  const auto arrows = test::pml_arrows(test::read_text_file(pml), "vorn_predict");
  ASSERT_EQ(arrows.size(), 24u);
  for (int state = 1; state <= 4; ++state) {
    SCOPED_TRACE(state);
    std::vector<test::ScriptArrow> of_state;
    for (const auto& a : arrows)
      if (a.state == state) of_state.push_back(a);
    const json& m = models[state - 1];
    test::expect_tensor_arrows(of_state, mean_atom(kPdb10, m.at("model").get<int>()),
                               eigenvectors_of(m.at("tensor")), eigenvalues_of(m.at("tensor")));
  }
}

TEST_F(PictureCommand, OnePredictedModelAndSeveralFiles) {
  const std::string svg = file("one.svg");
  const std::string bild = file("one.bild");
  const std::string m1 = data_path("structures/ubq_1d3z_m1.pdb");
  const json docs =
      run_json("predict -q --plot-axes " + quoted(svg) + " --tensor-script " + quoted(bild) + " " +
               quoted(kPdb10) + " " + quoted(m1) + " --models 1");
  // A file's pictures each: "_1" and "_2" before the extension.
  ASSERT_TRUE(docs.is_array());
  ASSERT_EQ(docs.size(), 2u);
  EXPECT_FALSE(fs::exists(svg));
  EXPECT_FALSE(fs::exists(bild));
  // The first file: model 1 alone, a triangle at each end of each axis.
  ASSERT_EQ(docs[0].at("models").size(), 1u);
  const json& model = docs[0].at("models").at(0);
  EXPECT_EQ(model.at("model"), 1);
  const auto lines = test::svg_polylines(test::read_text_file(file("one_1.svg")));
  std::vector<SvgPolyline> triangles[3];
  shapes_per_axis(lines, kAxis, false, 3, triangles);
  MapCheck check;
  check.add({model.at("tensor")}, triangles);
  check.expect_one_scale();
  test::expect_tensor_arrows(test::bild_arrows(test::read_text_file(file("one_1.bild"))),
                             mean_atom(kPdb10, 1), eigenvectors_of(model.at("tensor")),
                             eigenvalues_of(model.at("tensor")));
  EXPECT_TRUE(fs::exists(file("one_2.svg")));
  EXPECT_TRUE(fs::exists(file("one_2.bild")));
}

// ---------------------------------------------------------------------------
// vorn predict --plot-sequence

// The discs of a predicted sequence plot against the JSON: one per coupling
// of the types shown, on a line of the mean (or the one model's value) and
// of the residue; with several models a vertical bar of mean -/+ standard
// error through each.
TEST_F(PictureCommand, PredictedCouplingsAlongTheSequence) {
  const std::string svg = file("predicted_sequence.svg");
  const json doc = run_json("predict -q --sampling 4,8,8 --plot-sequence " + quoted(svg) +
                            " --plot-types N-H,CA-C " + quoted(kPdb10));
  ASSERT_TRUE(fs::exists(svg));
  EXPECT_TRUE(test::xmllint_accepts(VORN_XMLLINT, svg));
  std::vector<const json*> shown[2];
  for (const json& c : doc.at("ensemble").at("couplings")) {
    if (c.at("type") == "N-H") shown[0].push_back(&c);
    if (c.at("type") == "CA-C") shown[1].push_back(&c);
  }
  // The ensemble's order is the first model's: N-H is the first of the two
  // types to appear (residue 1 has CA-C but no N-H: it comes first).
  const std::size_t first = shown[0].front() < shown[1].front() ? 0 : 1;
  const std::string text = test::read_text_file(svg);
  const auto lines = test::svg_polylines(text);
  const auto discs = test::filled_shapes(lines, kBlack, 16);
  ASSERT_EQ(discs.size(), shown[0].size() + shown[1].size());
  const std::vector<std::string> texts = test::svg_texts(text);
  EXPECT_EQ(std::count(texts.begin(), texts.end(), "N-H (Hz)"), 1);
  EXPECT_EQ(std::count(texts.begin(), texts.end(), "CA-C (Hz)"), 1);
  EXPECT_EQ(std::count(texts.begin(), texts.end(), "CA-HA (Hz)"), 0);
  EXPECT_EQ(std::count(texts.begin(), texts.end(),
                       "mean of 10 models \u00B1 error (n = " + std::to_string(discs.size()) + ")"),
            1);
  std::size_t at = 0;
  for (std::size_t panel : {first, 1 - first}) {
    SCOPED_TRACE(panel);
    std::vector<double> mean, y, residue, x;
    for (std::size_t i = 0; i < shown[panel].size(); ++i) {
      mean.push_back(shown[panel][i]->at("predicted_hz_mean").get<double>());
      residue.push_back(shown[panel][i]->at("residue").get<double>());
      y.push_back(discs[at + i].centre().y);
      x.push_back(discs[at + i].centre().x);
    }
    const auto scale = test::fit_line(mean, y);
    EXPECT_GT(scale[1], 0.0);
    EXPECT_LT(scale[2], 0.02);
    EXPECT_LT(test::fit_line(residue, x)[2], 0.02);
    // Every disc has its bar: a vertical black line through it from mean -
    // se to mean + se (tick marks on the axes are vertical lines too; a
    // disc's centre, the mean of its rounded corners, can be 0.02 off).
    int bars = 0;
    for (std::size_t i = 0; i < shown[panel].size(); ++i) {
      const test::Point c = discs[at + i].centre();
      const double se = shown[panel][i]->at("predicted_hz_se").get<double>();
      const double want_lo = scale[0] + scale[1] * (mean[i] - se);
      const double want_hi = scale[0] + scale[1] * (mean[i] + se);
      for (const SvgPolyline& l : lines) {
        if (l.filled() || l.stroke != kBlack || l.points.size() != 2 ||
            std::fabs(l.points[0].x - c.x) > 0.05 || l.points[0].x != l.points[1].x)
          continue;
        const double lo = std::min(l.points[0].y, l.points[1].y);
        const double hi = std::max(l.points[0].y, l.points[1].y);
        if (std::fabs(lo - want_lo) < 0.03 && std::fabs(hi - want_hi) < 0.03) {
          ++bars;
          break;
        }
      }
    }
    EXPECT_EQ(bars, static_cast<int>(shown[panel].size()));
    at += shown[panel].size();
  }
}

TEST_F(PictureCommand, OnePredictedModelAlongTheSequenceHasNoBars) {
  const std::string svg = file("one_model.svg");
  const json doc = run_json("predict -q --sampling 4,8,8 --models 2 --plot-sequence " +
                            quoted(svg) + " --plot-types N-H " + quoted(kPdb10));
  const json& couplings = doc.at("models").at(0).at("couplings");
  std::vector<double> value, y;
  const auto lines = test::svg_polylines(test::read_text_file(svg));
  const auto discs = test::filled_shapes(lines, kBlack, 16);
  for (const json& c : couplings) {
    if (c.at("type") != "N-H") continue;
    value.push_back(c.at("predicted_hz").get<double>());
    y.push_back(discs.at(value.size() - 1).centre().y);
  }
  ASSERT_EQ(discs.size(), value.size());
  EXPECT_LT(test::fit_line(value, y)[2], 0.02);
  for (const SvgPolyline& l : lines) {
    if (l.filled() || l.stroke != kBlack || l.points.size() != 2 || l.points[0].x != l.points[1].x)
      continue;
    // No bar through a disc (tick marks on the axes are vertical lines too).
    const double lo = std::min(l.points[0].y, l.points[1].y);
    const double hi = std::max(l.points[0].y, l.points[1].y);
    for (const auto& d : discs) {
      const test::Point c = d.centre();
      EXPECT_FALSE(std::fabs(l.points[0].x - c.x) <= 0.05 && lo < c.y && c.y < hi);
    }
  }
  const std::vector<std::string> texts = test::svg_texts(test::read_text_file(svg));
  EXPECT_EQ(std::count(texts.begin(), texts.end(),
                       "predicted (n = " + std::to_string(value.size()) + ")"),
            1);
}

TEST_F(PictureCommand, PredictedCouplingsOfSeveralChainsHaveAPanelEach) {
  // Model 1 of the ubiquitin bundle as chain A and, 60 A along x, as chain B.
  const std::string dimer = file("dimer.pdb");
  {
    std::ifstream in(kPdb10);
    std::vector<std::string> atoms;
    for (std::string line; std::getline(in, line) && line.rfind("ENDMDL", 0) != 0;)
      if (line.rfind("ATOM  ", 0) == 0) atoms.push_back(line);
    ASSERT_FALSE(atoms.empty());
    std::ofstream out(dimer);
    for (const char chain : {'A', 'B'}) {
      for (std::string line : atoms) {
        line[21] = chain;
        if (chain == 'B') {
          char field[16];
          std::snprintf(field, sizeof field, "%8.3f", std::stod(line.substr(30, 8)) + 60.0);
          line.replace(30, 8, field);
        }
        out << line << "\n";
      }
    }
  }
  const std::string svg = file("chains.svg");
  const json doc = run_json("predict -q --sampling 4,8,8 --plot-sequence " + quoted(svg) +
                            " --plot-types N-H " + quoted(dimer));
  std::map<std::string, int> per_chain;
  for (const json& c : doc.at("models").at(0).at("couplings"))
    if (c.at("type") == "N-H") ++per_chain[c.at("chain").get<std::string>()];
  ASSERT_EQ(per_chain.size(), 2u);
  const std::string text = test::read_text_file(svg);
  const std::vector<std::string> texts = test::svg_texts(text);
  int total = 0;
  for (const auto& [chain, n] : per_chain) {
    EXPECT_EQ(std::count(texts.begin(), texts.end(), chain + ": N-H (Hz)"), 1) << chain;
    total += n;
  }
  EXPECT_EQ(test::filled_shapes(test::svg_polylines(text), kBlack, 16).size(),
            static_cast<std::size_t>(total));
}

TEST_F(PictureCommand, APictureFileOfNoFormatFailsBeforeAnyOutput) {
  const std::string out = file("out.json");
  for (const std::string& args :
       {"fit -o " + quoted(out) + " --plot-axes " + quoted(file("x.jpg")) + " " + quoted(kPdb10) +
            " " + quoted(kDc),
        "fit -o " + quoted(out) + " --plot-sequence " + quoted(file("x.eps")) + " " +
            quoted(kPdb10) + " " + quoted(kDc),
        "fit -o " + quoted(out) + " --tensor-script " + quoted(file("x.cxc")) + " " +
            quoted(kPdb10) + " " + quoted(kDc),
        "predict -o " + quoted(out) + " --plot-axes " + quoted(file("x")) + " " + quoted(kPdb10),
        "predict -o " + quoted(out) + " --tensor-script " + quoted(file("x.py")) + " " +
            quoted(kPdb10),
        "predict -o " + quoted(out) + " --plot-sequence " + quoted(file("x.gif")) + " " +
            quoted(kPdb10)}) {
    SCOPED_TRACE(args);
    const RunResult r = run_vorn(args);
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find(file("x")), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("extension"), std::string::npos) << r.err;
    EXPECT_FALSE(fs::exists(out));
  }
  for (const char* name : {"x.jpg", "x.eps", "x.cxc", "x", "x.py", "x.gif"})
    EXPECT_FALSE(fs::exists(file(name)));
}

}  // namespace
}  // namespace vorn
