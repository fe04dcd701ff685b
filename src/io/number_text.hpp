// Numbers in the text of the coupling and charge files.
#pragma once

#include <charconv>
#include <cmath>
#include <optional>
#include <string_view>
#include <system_error>

namespace vorn::io::number_text {

// from_chars takes no leading "+"; one is allowed here before a digit or ".".
inline std::string_view without_plus(std::string_view s) {
  if (s.size() > 1 && s.front() == '+' && s[1] != '+' && s[1] != '-') s.remove_prefix(1);
  return s;
}

inline std::optional<int> to_int(std::string_view s) {
  s = without_plus(s);
  int value = 0;
  const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), value);
  if (s.empty() || ec != std::errc() || end != s.data() + s.size()) return std::nullopt;
  return value;
}

// A finite number written in full; nullopt otherwise (also for "nan", "inf").
inline std::optional<double> to_number(std::string_view s) {
  s = without_plus(s);
  double value = 0.0;
  const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), value);
  if (s.empty() || ec != std::errc() || end != s.data() + s.size() || !std::isfinite(value)) {
    return std::nullopt;
  }
  return value;
}

}  // namespace vorn::io::number_text
