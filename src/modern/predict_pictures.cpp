#include "modern/predict_pictures.hpp"

#include <filesystem>

#include "modern/axes_plot.hpp"
#include "modern/fit_plot.hpp"
#include "modern/plot_support.hpp"

namespace vorn::modern {

PredictPictures::PredictPictures(const app::PredictSettings& settings, std::size_t files)
    : axes_path_(settings.plot_axes_file),
      script_path_(settings.tensor_script_file),
      medium_(app::medium_label(settings)),
      files_(files) {
  if (!axes_path_.empty()) plot::check_picture_path(axes_path_, "axes plot");
  if (!script_path_.empty()) check_tensor_script_path(script_path_);
}

void PredictPictures::add(const app::ModelPrediction& model) {
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
}

}  // namespace vorn::modern
