// Output of `vorn fit`: text, JSON and CSV.
#pragma once

#include <string>

#include "modern/fit_command.hpp"

namespace vorn::modern {

// The whole output as one string (nothing is written before the fits are
// done).
std::string format_fit(const FitResult& result, const FitSettings& settings);

}  // namespace vorn::modern
