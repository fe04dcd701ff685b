// The pictures of `vorn predict`: the principal axes of every model on the
// sphere and on the molecule, the couplings along the sequence and the
// convergence of the ensemble mean, one file of each per input file.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "app/predict_command.hpp"
#include "modern/tensor_script.hpp"

namespace vorn::modern {

class PredictPictures {
 public:
  // The files to write (empty: none); `files` input files (with several,
  // "_<n>" for the n-th goes before the extension). Throws
  // std::runtime_error naming a file whose extension has no format, before
  // anything is predicted.
  PredictPictures(const app::PredictSettings& settings, std::size_t files);

  // A model of the current file, in file order.
  void add(const app::ModelPrediction& model);
  // Writes the pictures of the models added since the last call (input
  // file `index`, 0-based) and forgets them.
  void end_file(std::size_t index, const std::string& file);

 private:
  // A coupling's type and residue, for the sequence plot.
  struct CouplingPlace {
    std::string chain;
    std::string type;
    int residue = 0;
  };
  void write_sequence(const std::string& path, const std::string& name) const;

  std::string axes_path_, script_path_, convergence_path_, sequence_path_;
  std::string medium_;
  int window_ = 0;
  std::vector<std::string> sequence_types_;
  std::size_t files_;
  std::vector<ScriptTensor> models_;
  // Each coupling's value in every model, for the convergence and sequence
  // plots (single precision: a plot needs no more), by order of first
  // appearance.
  std::map<std::string, std::size_t> coupling_index_;
  std::vector<std::string> coupling_names_;
  std::vector<CouplingPlace> coupling_places_;
  std::vector<std::vector<float>> coupling_values_;
};

}  // namespace vorn::modern
