#include "modern/fit_plot.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>

#include "modern/axes_plot.hpp"
#include "modern/correlation_plot.hpp"
#include "modern/sequence_plot.hpp"
#include "modern/tensor_script.hpp"

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
  return tagged_path(path, tag);
}

// "model 1", "models 1-10", "models 1,3,5-7".
std::string models_text(const std::vector<int>& models) {
  std::string text = models.size() == 1 ? "model " : "models ";
  for (std::size_t i = 0; i < models.size();) {
    std::size_t j = i;
    while (j + 1 < models.size() && models[j + 1] == models[j] + 1) ++j;
    if (i > 0) text += ',';
    text += std::to_string(models[i]);
    if (j > i) {
      text += '-';
      text += std::to_string(models[j]);
    }
    i = j + 1;
  }
  return text;
}

std::string set_title(const SetFit& set) {
  return (set.set.empty() ? std::string() : "set " + set.set + ", ") + models_text(set.models);
}

// The fits of each set name, in order of first appearance.
std::vector<std::vector<const SetFit*>> fits_by_set(const FitResult& result) {
  std::vector<std::vector<const SetFit*>> groups;
  for (const SetFit& set : result.sets) {
    const auto same = [&](const std::vector<const SetFit*>& g) { return g[0]->set == set.set; };
    const auto it = std::find_if(groups.begin(), groups.end(), same);
    if (it == groups.end()) {
      groups.push_back({&set});
    } else {
      it->push_back(&set);
    }
  }
  return groups;
}

std::string set_path(const std::string& path, const std::vector<std::vector<const SetFit*>>& groups,
                     std::size_t index) {
  if (groups.size() == 1) return path;
  const std::string& name = groups[index][0]->set;
  return tagged_path(path, name.empty() ? std::to_string(index + 1) : name);
}

std::vector<int> all_models(const std::vector<const SetFit*>& fits) {
  std::vector<int> models;
  for (const SetFit* f : fits) models.insert(models.end(), f->models.begin(), f->models.end());
  return models;
}

// A PyMOL object name: letters, digits and '_'.
std::string object_name(const std::string& text) {
  std::string name;
  for (char c : text) name += std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
  return name;
}

}  // namespace

std::string tagged_path(const std::string& path, const std::string& tag) {
  const std::size_t dot = path.find_last_of('.');
  const std::size_t slash = path.find_last_of('/');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) {
    return path + "_" + tag;
  }
  return path.substr(0, dot) + "_" + tag + path.substr(dot);
}

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

void write_fit_sequence_plots(const FitResult& result, const std::string& path) {
  for (std::size_t k = 0; k < result.sets.size(); ++k) {
    const SetFit& set = result.sets[k];
    bool several_chains = false;
    for (const ResolvedCoupling& c : set.couplings) {
      several_chains |= c.measured.atom2.chain != set.couplings.front().measured.atom2.chain;
    }
    // Panels by type in the order of the quality figures, then by chain.
    std::vector<std::pair<std::string, std::string>> keys;  // chain, type
    std::vector<SequencePanel> panels;
    for (const auto& [type, quality] : set.quality.per_type) {
      for (std::size_t i = 0; i < set.couplings.size(); ++i) {
        const ResolvedCoupling& c = set.couplings[i];
        if (c.type != type) continue;
        const std::string chain = several_chains ? c.measured.atom2.chain : std::string();
        auto key = std::find(keys.begin(), keys.end(), std::pair{chain, type});
        if (key == keys.end()) {
          keys.emplace_back(chain, type);
          SequencePanel panel;
          panel.label = several_chains ? (chain.empty() ? "-" : chain) + ": " + type : type;
          panels.push_back(std::move(panel));
          key = keys.end() - 1;
        }
        SequencePanel& panel = panels[static_cast<std::size_t>(key - keys.begin())];
        panel.residue.push_back(std::max(c.measured.atom1.residue, c.measured.atom2.residue));
        panel.measured_hz.push_back(c.row.value_hz);
        panel.error_hz.push_back(c.row.error_hz);
        panel.calculated_hz.push_back(set.fit.calculated_hz[i]);
        if (set.prediction) panel.predicted_hz.push_back(set.prediction->predicted_hz[i]);
      }
    }
    SequencePlotOptions options;
    options.title = "couplings along the sequence, " + set_title(set);
    options.legend_notes.push_back(
        fmt::format("fit: r = {:.3f}, Q = {:.3f}", set.quality.overall.r, set.quality.overall.q));
    if (set.prediction) {
      options.legend_notes.push_back(
          fmt::format("predicted: r = {:.3f}, Q = {:.3f}", set.prediction->r, set.prediction->q));
    }
    write_sequence_plot(plot_path(path, result, set, k), panels, options);
  }
}

void write_fit_axes_plots(const FitResult& result, const std::string& path) {
  const auto groups = fits_by_set(result);
  for (std::size_t g = 0; g < groups.size(); ++g) {
    const std::vector<const SetFit*>& fits = groups[g];
    const bool per_model = fits.size() > 1;
    AxesSeries fitted{per_model ? AxesSource::models : AxesSource::fit,
                      per_model ? "fit of each model" : "fit",
                      {}};
    AxesSeries samples{AxesSource::samples, "", {}};
    AxesSeries predicted{
        AxesSource::prediction, per_model ? "prediction of each model" : "prediction", {}};
    for (const SetFit* f : fits) {
      fitted.tensors.push_back(principal_axes(f->fit.tensor));
      if (f->errors) {
        samples.label = f->errors->method == ErrorMethod::monte_carlo ? "Monte Carlo samples"
                                                                      : "bootstrap samples";
        for (const SaupeElements& s : f->errors->sample_saupe) {
          samples.tensors.push_back(principal_axes(analyze_tensor(s)));
        }
      }
      if (f->prediction) predicted.tensors.push_back(principal_axes(f->prediction->tensor));
    }
    AxesPlotOptions options;
    const SetFit& first = *fits[0];
    options.title = "principal axes, " +
                    (first.set.empty() ? std::string() : "set " + first.set + ", ") +
                    models_text(all_models(fits));
    if (!per_model) {
      options.legend_notes.push_back(fmt::format("fit: Da(NH) = {:.2f} Hz, R = {:.3f}",
                                                 first.fit.tensor.da_hz,
                                                 first.fit.tensor.rhombicity));
      if (first.prediction) {
        options.legend_notes.push_back(fmt::format("prediction: Da(NH) = {:.2f} Hz, R = {:.3f}",
                                                   first.prediction->tensor.da_hz,
                                                   first.prediction->tensor.rhombicity));
        options.legend_notes.push_back(
            fmt::format("z axes {:.1f}\u00B0 apart", first.prediction->axis_angle_deg));
      }
    }
    write_axes_plot(set_path(path, groups, g), {samples, fitted, predicted}, options);
  }
}

void write_fit_tensor_scripts(const FitResult& result, const std::string& path) {
  const auto groups = fits_by_set(result);
  for (std::size_t g = 0; g < groups.size(); ++g) {
    std::vector<ScriptTensor> tensors;
    for (const SetFit* f : groups[g]) tensors.push_back({set_title(*f), f->centre, f->fit.tensor});
    const std::string& set = groups[g][0]->set;
    write_tensor_script(set_path(path, groups, g), tensors,
                        object_name(set.empty() ? "vorn_fit" : "vorn_fit_" + set),
                        "fitted" + (set.empty() ? std::string() : ", set " + set));
  }
}

}  // namespace vorn::modern
