// Output of `vorn predict`: text, JSON and CSV.
#pragma once

#include <string>
#include <vector>

#include "app/predict_command.hpp"

namespace vorn::modern {

// The whole output for the predicted files, as one string: nothing is
// written before every model has been predicted, so a failure leaves no
// partial document.
std::string format_predictions(const std::vector<app::FilePrediction>& files,
                               const app::PredictSettings& settings);

// The insertion code as text: "" when there is none.
std::string icode_text(char icode);

}  // namespace vorn::modern
