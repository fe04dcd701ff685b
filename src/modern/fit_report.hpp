// Output of `vorn fit`: text, JSON and CSV.
#pragma once

#include <string>

#include "app/fit_command.hpp"

namespace vorn::modern {

// The whole output as one string (nothing is written before the fits are
// done).
std::string format_fit(const app::FitResult& result, const app::FitSettings& settings);

}  // namespace vorn::modern
