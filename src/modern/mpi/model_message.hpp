// The messages of vorn-mpi: a predicted model, with its formatted text, as
// bytes that another process turns back into the same values.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "app/predict_command.hpp"

namespace vorn::mpi {

// A model as the first process receives it from another: the text that
// PredictReport::model made of it, and the prediction itself for the
// ensemble summary.
struct ModelMessage {
  std::string text;
  app::ModelPrediction prediction;
};

// Thrown by decode_model for bytes that are not an encoded model.
class MessageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Every member of the prediction (numbers as their bits, strings with their
// length) and the text. The processes of a run share one architecture, so
// numbers travel in the machine's own byte order.
std::string encode_model(const app::ModelPrediction& prediction, const std::string& text);

// The inverse of encode_model; throws MessageError for truncated or
// trailing bytes.
ModelMessage decode_model(std::string_view bytes);

}  // namespace vorn::mpi
