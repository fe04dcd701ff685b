#include "modern/predict_pictures.hpp"

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "modern/axes_plot.hpp"
#include "modern/convergence_plot.hpp"
#include "modern/fit_plot.hpp"
#include "modern/plot_support.hpp"
#include "modern/sequence_plot.hpp"
#include "vorn/statistics.hpp"

namespace vorn::modern {

PredictPictures::PredictPictures(const app::PredictSettings& settings, std::size_t files)
    : axes_path_(settings.plot_axes_file),
      script_path_(settings.tensor_script_file),
      convergence_path_(settings.plot_convergence_file),
      sequence_path_(settings.plot_sequence_file),
      medium_(app::medium_label(settings)),
      window_(settings.window),
      sequence_types_(settings.plot_sequence_types),
      files_(files) {
  if (!axes_path_.empty()) plot::check_picture_path(axes_path_, "axes plot");
  if (!script_path_.empty()) check_tensor_script_path(script_path_);
  if (!convergence_path_.empty()) plot::check_picture_path(convergence_path_, "convergence plot");
  if (!sequence_path_.empty()) plot::check_picture_path(sequence_path_, "sequence plot");
}

void PredictPictures::add(const app::ModelPrediction& model) {
  if (!convergence_path_.empty() || !sequence_path_.empty()) {
    for (const app::PredictedCoupling& c : model.couplings) {
      const CouplingSite& s = c.site;
      std::string name = s.chain + " " + std::to_string(s.residue_number);
      if (s.insertion_code != ' ' && s.insertion_code != '\0') name += s.insertion_code;
      name += " " + s.atom1 + "-" + s.atom2;  // glycine's CA-HA2 and CA-HA3 apart
      const auto [it, added] = coupling_index_.try_emplace(name, coupling_names_.size());
      if (added) {
        coupling_names_.push_back(name);
        coupling_places_.push_back({s.chain, s.type, s.residue_number});
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
  if (!sequence_path_.empty() && !coupling_values_.empty())
    write_sequence(path_of(sequence_path_), name);
  coupling_index_.clear();
  coupling_names_.clear();
  coupling_places_.clear();
  coupling_values_.clear();
}

void PredictPictures::write_sequence(const std::string& path, const std::string& name) const {
  // A panel per type (per chain and type with several chains, as the fit's
  // plot), in the order they first appear; each coupling's mean over the
  // models that have it, with its block-averaging standard error where
  // there are several.
  std::vector<SequencePanel> panels;
  std::map<std::string, std::size_t> panel_of;
  std::size_t most_models = 0;
  const bool several_chains =
      std::any_of(coupling_places_.begin(), coupling_places_.end(),
                  [&](const CouplingPlace& p) { return p.chain != coupling_places_[0].chain; });
  for (std::size_t i = 0; i < coupling_values_.size(); ++i) {
    if (!sequence_types_.empty() && std::find(sequence_types_.begin(), sequence_types_.end(),
                                              coupling_places_[i].type) == sequence_types_.end()) {
      continue;
    }
    const CouplingPlace& place = coupling_places_[i];
    const std::string label =
        several_chains ? (place.chain.empty() ? "-" : place.chain) + ": " + place.type : place.type;
    const auto [it, added] = panel_of.try_emplace(label, panels.size());
    if (added) panels.push_back({label, {}, {}, {}, {}, {}});
    SequencePanel& panel = panels[it->second];
    BlockAverage block;
    for (float v : coupling_values_[i]) block.add(v);
    panel.residue.push_back(coupling_places_[i].residue);
    panel.measured_hz.push_back(block.mean());
    panel.error_hz.push_back(coupling_values_[i].size() > 1 ? block.se() : 0.0);
    most_models = std::max(most_models, coupling_values_[i].size());
  }
  SequencePlotOptions options;
  options.title = "predicted couplings, " + name + " (" + medium_ +
                  (window_ > 0 ? ", windows of " + std::to_string(window_) + " residues" : "") +
                  ")";
  if (panels.empty()) {
    throw std::runtime_error(path +
                             ": none of the couplings predicted is of the types of --plot-types");
  }
  options.measured_label =
      most_models > 1 ? "mean of " + std::to_string(most_models) + " models" : "predicted";
  if (most_models > 1) options.legend_notes.push_back("error: block-averaging standard error");
  write_sequence_plot(path, panels, options);
}

}  // namespace vorn::modern
