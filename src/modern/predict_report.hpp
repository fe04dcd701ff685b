// Output of `vorn predict`, piece by piece so that it can be written while
// the models are predicted: text, JSON and CSV.
#pragma once

#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "app/predict_command.hpp"

namespace vorn::modern {

// The insertion code as text: "" when there is none.
std::string icode_text(char icode);

// The "settings" of the JSON report: the medium (with the obstacle's and
// the molecule's charges where the medium is charged), the sampling and
// the reading options.
nlohmann::ordered_json settings_json(const app::PredictSettings& settings);

// A model's charges in the text report: "net -1.95 e, 25 charged groups
// (titration at pH 7.0)", or the PQR file in parentheses.
std::string charges_text(const app::PredictSettings& settings, double net_charge,
                         int charged_groups);

// The obstacle's charge in the text report ("charge density -0.45 e/nm2,
// ionic strength 0.15 M, 298.15 K, linear potential"); "" when uncharged.
std::string medium_text(const app::PredictSettings& settings);

// One output document per input file. JSON: an object with the header
// members, "models" (one compact object per line), then "ensemble" (more
// than one model) or "error" (a failure after models were written); several
// files form an array of such objects. CSV: a header line, then one row per
// coupling (a first column "file" with several files), and after a file of
// several models one row per ensemble coupling, model "ensemble", its mean in
// predicted_hz and the appended columns predicted_hz_sd, predicted_hz_se and
// models (empty on the rows of a model). Text: a report per
// model, then the ensemble. NEF: one data block, one rdc restraint list per
// model ("model_1", or "FILE_model_1" with several files). Pipe: the NMRPipe
// table of the one model of the one file; a second file or model is an
// InputError (thrown by begin_all and separator).
class PredictReport {
 public:
  PredictReport(const app::PredictSettings& settings, bool several_files)
      : settings_(settings), several_(several_files) {}

  std::string begin_all() const;  // before the first file
  std::string begin_file(const std::string& file, const std::string& format);
  // Runs on the worker threads: the text of one model.
  std::string model(const app::ModelPrediction& m, const std::string& file) const;
  // Between the models already written.
  std::string separator();
  std::string end_file(const app::EnsembleAccumulator& ensemble) const;
  // Closes the document of the current file after a failure.
  std::string end_file_with_error(const std::string& message, int models_written) const;
  std::string end_all() const;
  // Whether what was written stays when a run fails part way: not for an
  // NMRPipe table, which is written whole or not at all.
  bool keeps_partial_output() const;

 private:
  const app::PredictSettings& settings_;
  bool several_;
  int files_begun_ = 0;
  bool first_model_ = true;
  std::string file_;  // the file begun last
  // NEF: the start of each file's list names, set in begin_file (before the
  // file's models are formatted on the worker threads).
  std::map<std::string, std::string> list_prefix_;
};

}  // namespace vorn::modern
