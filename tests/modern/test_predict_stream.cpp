// The streaming pipeline of the predictions: file order, the same bits for
// any number of workers, failures after every earlier model, bounded work
// in flight.
#include <gtest/gtest.h>

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
