#include "modern/fit_plot.hpp"

#include <fmt/format.h>

#include "modern/correlation_plot.hpp"

namespace vorn::modern {

using namespace vorn::app;  // the shared commands this front end presents

namespace {

std::string plot_path(const std::string& path, const FitResult& result, const SetFit& set,
                      std::size_t index) {
  if (result.sets.size() == 1) return path;
  bool several_models = false;
  bool several_sets = false;
  for (const SetFit& other : result.sets) {
    several_models |= other.models != set.models;
    several_sets |= other.set != set.set;
  }
  std::string tag;
  if (several_sets) tag = set.set.empty() ? std::to_string(index + 1) : set.set;
  if (several_models && set.models.size() == 1) {
    tag += (tag.empty() ? "m" : "_m") + std::to_string(set.models[0]);
  }
  if (tag.empty()) tag = std::to_string(index + 1);
  const std::size_t dot = path.find_last_of('.');
  const std::size_t slash = path.find_last_of('/');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) {
    return path + "_" + tag;
  }
  return path.substr(0, dot) + "_" + tag + path.substr(dot);
}

}  // namespace

void write_fit_plots(const FitResult& result, const std::string& path) {
  for (std::size_t k = 0; k < result.sets.size(); ++k) {
    const SetFit& set = result.sets[k];
    std::vector<PlotSeries> series;
    for (const auto& [type, quality] : set.quality.per_type) {
      PlotSeries s;
      s.label = type;
      for (std::size_t i = 0; i < set.couplings.size(); ++i) {
        if (set.couplings[i].type != type) continue;
        s.measured_hz.push_back(set.couplings[i].row.value_hz);
        s.calculated_hz.push_back(set.fit.calculated_hz[i]);
      }
      series.push_back(std::move(s));
    }
    PlotOptions options;
    options.title = set.set.empty() ? "fit" : "set " + set.set;
    options.legend_notes.push_back(
        fmt::format("fit: r = {:.3f}, Q = {:.3f}", set.quality.overall.r, set.quality.overall.q));
    if (set.prediction) {
      PlotSeries predicted;
      predicted.label = "predicted";
      for (std::size_t i = 0; i < set.couplings.size(); ++i) {
        predicted.measured_hz.push_back(set.couplings[i].row.value_hz);
        predicted.calculated_hz.push_back(set.prediction->predicted_hz[i]);
      }
      series.push_back(std::move(predicted));
      options.legend_notes.push_back(
          fmt::format("predicted: r = {:.3f}, Q = {:.3f}", set.prediction->r, set.prediction->q));
    }
    write_correlation_plot(plot_path(path, result, set, k), series, options);
  }
}

}  // namespace vorn::modern
