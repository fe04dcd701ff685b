// Parsing of the reading options given as text.
#include <algorithm>
#include <cctype>
#include <charconv>

#include "io/structure_reader.hpp"

namespace vorn::io {
namespace {

// Model numbers above this are refused, so that a range cannot ask for an
// unbounded list.
constexpr int kMaxModelNumber = 999999;

std::string_view trim(std::string_view s) {
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
  return s;
}

// A whole positive model number, or nullopt.
std::optional<int> to_model_number(std::string_view s) {
  int value = 0;
  const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), value);
  if (s.empty() || ec != std::errc() || end != s.data() + s.size()) return std::nullopt;
  return value;
}

}  // namespace

std::optional<Format> parse_format(std::string_view name) {
  std::string lower(name);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (lower == "pdb") return Format::Pdb;
  if (lower == "cif" || lower == "mmcif" || lower == "pdbx") return Format::Mmcif;
  return std::nullopt;
}

std::vector<int> parse_model_list(const std::string& text) {
  const auto fail = [&](const std::string& why) -> InputError {
    return InputError("invalid model list \"" + text + "\": " + why);
  };
  if (trim(text).empty()) throw fail("no model number");
  std::vector<int> numbers;
  std::string_view rest = text;
  while (true) {
    const size_t comma = rest.find(',');
    const std::string_view item = trim(rest.substr(0, comma));
    if (item.empty()) throw fail("empty item");
    const size_t dash = item.find('-');
    const auto first = to_model_number(trim(item.substr(0, dash)));
    const auto last =
        dash == std::string_view::npos ? first : to_model_number(trim(item.substr(dash + 1)));
    if (!first || !last)
      throw fail("\"" + std::string(item) + "\" is neither a number nor a range");
    if (*first < 1 || *last < 1) throw fail("model numbers start at 1");
    if (*first > kMaxModelNumber || *last > kMaxModelNumber) {
      throw fail("model numbers above " + std::to_string(kMaxModelNumber) + " are not supported");
    }
    if (*last < *first) throw fail("range \"" + std::string(item) + "\" is descending");
    for (int n = *first; n <= *last; ++n) numbers.push_back(n);
    if (comma == std::string_view::npos) break;
    rest.remove_prefix(comma + 1);
  }
  std::sort(numbers.begin(), numbers.end());
  const auto twice = std::adjacent_find(numbers.begin(), numbers.end());
  if (twice != numbers.end()) throw fail("model " + std::to_string(*twice) + " is listed twice");
  return numbers;
}

std::string format_model_list(std::span<const int> numbers) {
  std::string text;
  for (size_t i = 0; i < numbers.size();) {
    size_t j = i;
    while (j + 1 < numbers.size() && numbers[j + 1] == numbers[j] + 1) ++j;
    if (!text.empty()) text += ',';
    text += std::to_string(numbers[i]);
    if (j > i) text += '-' + std::to_string(numbers[j]);
    i = j + 1;
  }
  return text;
}

}  // namespace vorn::io
