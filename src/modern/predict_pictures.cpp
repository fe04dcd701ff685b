#include "modern/predict_pictures.hpp"

#include <filesystem>

#include "modern/axes_plot.hpp"
#include "modern/convergence_plot.hpp"
#include "modern/fit_plot.hpp"
#include "modern/plot_support.hpp"
#include "vorn/statistics.hpp"

namespace vorn::modern {

PredictPictures::PredictPictures(const app::PredictSettings& settings, std::size_t files)
    : axes_path_(settings.plot_axes_file),
      script_path_(settings.tensor_script_file),
      convergence_path_(settings.plot_convergence_file),
      medium_(app::medium_label(settings)),
      files_(files) {
  if (!axes_path_.empty()) plot::check_picture_path(axes_path_, "axes plot");
  if (!script_path_.empty()) check_tensor_script_path(script_path_);
  if (!convergence_path_.empty()) plot::check_picture_path(convergence_path_, "convergence plot");
}

void PredictPictures::add(const app::ModelPrediction& model) {
  if (!convergence_path_.empty()) {
    for (const app::PredictedCoupling& c : model.couplings) {
      const CouplingSite& s = c.site;
      std::string name = s.chain + " " + std::to_string(s.residue_number);
      if (s.insertion_code != ' ' && s.insertion_code != '\0') name += s.insertion_code;
      name += " " + s.atom1 + "-" + s.atom2;  // glycine's CA-HA2 and CA-HA3 apart
      const auto [it, added] = coupling_index_.try_emplace(name, coupling_names_.size());
      if (added) {
        coupling_names_.push_back(name);
        coupling_values_.emplace_back();
      }
      coupling_values_[it->second].push_back(static_cast<float>(c.predicted_hz));
    }
  }
  if (axes_path_.empty() && script_path_.empty()) return;
  models_.push_back({"model " + std::to_string(model.model), model.centre, model.tensor});
}

void PredictPictures::end_file(std::size_t index, const std::string& file) {
  const auto path_of = [&](const std::string& path) {
    return files_ > 1 ? tagged_path(path, std::to_string(index + 1)) : path;
  };
  const std::string name = std::filesystem::path(file).filename().string();
  if (!axes_path_.empty() && !models_.empty()) {
    AxesSeries series;
    series.source = models_.size() > 1 ? AxesSource::models : AxesSource::prediction;
    series.label =
        models_.size() > 1 ? "prediction of each model" : "prediction, " + models_[0].name;
    for (const ScriptTensor& m : models_) series.tensors.push_back(principal_axes(m.tensor));
    AxesPlotOptions options;
    options.title = "principal axes, " + name + " (" + medium_ + ")";
    write_axes_plot(path_of(axes_path_), {series}, options);
  }
  if (!script_path_.empty() && !models_.empty()) {
    write_tensor_script(path_of(script_path_), models_, "vorn_predict",
                        "predicted, " + name + " (" + medium_ + ")");
  }
  models_.clear();
  if (!convergence_path_.empty() && !coupling_values_.empty()) {
    // The coupling whose mean is least certain at the end.
    std::size_t worst = 0;
    double worst_se = -1.0;
    for (std::size_t i = 0; i < coupling_values_.size(); ++i) {
      BlockAverage block;
      for (float v : coupling_values_[i]) block.add(v);
      if (block.se() > worst_se) worst = i, worst_se = block.se();
    }
    ConvergenceSeries series;
    series.label = coupling_names_[worst];
    BlockAverage block;
    for (float v : coupling_values_[worst]) {
      block.add(v);
      series.mean.push_back(block.mean());
      series.error.push_back(block.se());
    }
    write_convergence_plot(path_of(convergence_path_), series,
                           "convergence, " + name + " (" + medium_ + ")");
  }
  coupling_index_.clear();
  coupling_names_.clear();
  coupling_values_.clear();
}

}  // namespace vorn::modern
