// The streaming pipeline of the predictions: file order, the same bits for
// any number of workers, failures after every earlier model, bounded work
// in flight.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "app/predict_command.hpp"
#include "capture.hpp"

namespace vorn::app {
namespace {

const std::string kBundle = test::data_path("raw/1D3Z_raw_10models.pdb");

struct Emitted {
  std::vector<int> models;
  std::vector<SaupeElements> saupe;
  std::vector<std::string> texts;
};

Emitted run(int workers, const std::string& path = kBundle) {
  PredictSettings settings;
  const PredictionContext context;
  Emitted e;
  predict_stream(
      path, settings, context, workers, 1, {},
      [](const ModelPrediction& m) { return "model " + std::to_string(m.model); },
      [&](const ModelPrediction& m, const std::string& text) {
        e.models.push_back(m.model);
        e.saupe.push_back(m.tensor.saupe);
        e.texts.push_back(text);
      });
  return e;
}

TEST(PredictStream, FileOrderAndTheSameBitsForAnyWorkerCount) {
  const Emitted one = run(1);
  ASSERT_EQ(one.models.size(), 10u);
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(one.models[i], i + 1);
    EXPECT_EQ(one.texts[i], "model " + std::to_string(i + 1));  // formatted by the workers
  }
  for (int workers : {2, 3, 7}) {
    const Emitted many = run(workers);
    EXPECT_EQ(many.models, one.models) << workers;
    EXPECT_EQ(many.texts, one.texts);
    for (int i = 0; i < 10; ++i) {
      EXPECT_EQ(std::memcmp(many.saupe[i].data(), one.saupe[i].data(), sizeof(SaupeElements)), 0);
    }
  }
}

TEST(PredictStream, EnsembleAccumulatedInOrderIsIndependentOfWorkers) {
  PredictSettings settings;
  const PredictionContext context;
  const auto summary = [&](int workers) {
    EnsembleAccumulator acc;
    predict_stream(kBundle, settings, context, workers, 1, {}, {},
                   [&](const ModelPrediction& m, const std::string&) { acc.add(m); });
    return acc.summary();
  };
  const EnsembleSummary a = summary(1);
  const EnsembleSummary b = summary(3);
  EXPECT_EQ(a.models, 10);
  EXPECT_EQ(std::memcmp(&a.da_hz_mean, &b.da_hz_mean, sizeof(double)), 0);
  EXPECT_EQ(std::memcmp(&a.da_hz_sd, &b.da_hz_sd, sizeof(double)), 0);
  ASSERT_EQ(a.couplings.size(), b.couplings.size());
  for (std::size_t i = 0; i < a.couplings.size(); ++i) {
    EXPECT_EQ(std::memcmp(&a.couplings[i].mean_hz, &b.couplings[i].mean_hz, sizeof(double)), 0);
  }
}

// A prediction holding couplings at the given sites (residue numbers of N-H
// couplings of chain A, and one of chain B with residue 1) with the values.
ModelPrediction with_couplings(const std::vector<std::pair<std::string, int>>& sites,
                               const std::vector<double>& values) {
  ModelPrediction m;
  for (std::size_t i = 0; i < sites.size(); ++i) {
    PredictedCoupling c;
    c.site.chain = sites[i].first;
    c.site.residue_number = sites[i].second;
    c.site.type = "N-H";
    c.site.atom1 = "N";
    c.site.atom2 = "H";
    c.predicted_hz = values[i];
    m.couplings.push_back(c);
  }
  return m;
}

TEST(PredictStream, EnsembleMatchesCouplingsBySiteWhateverTheirOrder) {
  EnsembleAccumulator acc;
  // The same sites in the same order, then swapped, then one missing and
  // one new in front, then an insertion code and another atom name on a
  // known residue (new sites both).
  acc.add(with_couplings({{"A", 1}, {"A", 2}, {"B", 1}}, {1.0, 10.0, 100.0}));
  acc.add(with_couplings({{"A", 1}, {"A", 2}, {"B", 1}}, {3.0, 20.0, 200.0}));
  acc.add(with_couplings({{"A", 2}, {"A", 1}, {"B", 1}}, {30.0, 5.0, 300.0}));
  acc.add(with_couplings({{"A", 7}, {"A", 1}}, {-1.0, 7.0}));
  ModelPrediction odd = with_couplings({{"A", 1}, {"A", 2}}, {50.0, 60.0});
  odd.couplings[0].site.insertion_code = 'B';
  odd.couplings[1].site.atom2 = "HN";
  acc.add(odd);
  const EnsembleSummary e = acc.summary();
  EXPECT_EQ(e.models, 5);
  ASSERT_EQ(e.couplings.size(), 6u);
  // In order of first appearance: A1, A2, B1, A7, A1 icode B, A2 N-HN.
  const int residues[] = {1, 2, 1, 7, 1, 2};
  const int counts[] = {4, 3, 3, 1, 1, 1};
  const double means[] = {4.0, 20.0, 200.0, -1.0, 50.0, 60.0};
  for (std::size_t i = 0; i < 6; ++i) {
    EXPECT_EQ(e.couplings[i].site.residue_number, residues[i]) << i;
    EXPECT_EQ(e.couplings[i].models, counts[i]) << i;
    EXPECT_DOUBLE_EQ(e.couplings[i].mean_hz, means[i]) << i;
  }
  EXPECT_EQ(e.couplings[2].site.chain, "B");
  EXPECT_EQ(e.couplings[4].site.insertion_code, 'B');
  EXPECT_EQ(e.couplings[5].site.atom2, "HN");
  // Sample SD of A1 over 1, 3, 5, 7: sqrt(20 / 3).
  EXPECT_NEAR(e.couplings[0].sd_hz, std::sqrt(20.0 / 3.0), 1e-12);
}

TEST(PredictStream, AFailingModelEndsTheStreamAfterEveryEarlierModel) {
  // Model 4 of the bundle with a coordinate field that is no number.
  std::ifstream in(kBundle);
  const std::string path = ::testing::TempDir() + "vorn_stream_bad.pdb";
  std::ofstream out(path);
  int model = 0;
  bool broken = false;
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("MODEL", 0) == 0) ++model;
    if (model == 4 && !broken && line.rfind("ATOM", 0) == 0) {
      line.replace(30, 8, "   x.000");
      broken = true;
    }
    out << line << "\n";
  }
  out.close();
  for (int workers : {1, 3}) {
    std::vector<int> emitted;
    std::string message;
    try {
      PredictSettings settings;
      const PredictionContext context;
      predict_stream(
          path, settings, context, workers, 1, {}, {},
          [&](const ModelPrediction& m, const std::string&) { emitted.push_back(m.model); });
    } catch (const std::exception& e) {
      message = e.what();
    }
    EXPECT_EQ(emitted, (std::vector<int>{1, 2, 3})) << workers;
    EXPECT_NE(message.find(path + ":"), std::string::npos) << message;
  }
}

}  // namespace
}  // namespace vorn::app
