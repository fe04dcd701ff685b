#include "io/gro_reader.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>

namespace vorn::io {
namespace {

constexpr double kAngstromPerNm = 10.0;

std::string_view trimmed(std::string_view s) {
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
  return s;
}

bool parse_number(std::string_view field, double& value) {
  field = trimmed(field);
  if (!field.empty() && field.front() == '+') field.remove_prefix(1);
  const auto [end, ec] = std::from_chars(field.data(), field.data() + field.size(), value);
  return !field.empty() && ec == std::errc() && end == field.data() + field.size() &&
         std::isfinite(value);
}

bool parse_integer(std::string_view field, long& value) {
  field = trimmed(field);
  const auto [end, ec] = std::from_chars(field.data(), field.data() + field.size(), value);
  return !field.empty() && ec == std::errc() && end == field.data() + field.size();
}

// The lines of a text, without line ends (a trailing "\r" dropped).
class Lines {
 public:
  explicit Lines(const std::string& text) : text_(text) {}
  bool next(std::string_view& line) {
    if (at_ >= text_.size()) return false;
    const size_t end = std::min(text_.find('\n', at_), text_.size());
    line = std::string_view(text_).substr(at_, end - at_);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    at_ = end + 1;
    ++number_;
    return true;
  }
  long number() const { return number_; }

 private:
  const std::string& text_;
  size_t at_ = 0;
  long number_ = 0;
};

}  // namespace

GroFile parse_gro(const std::string& text, const std::string& name) {
  Lines lines(text);
  const auto fail = [&](long line, const std::string& what) {
    return InputError(name + ":" + std::to_string(line) + ": " + what);
  };
  GroFile gro;
  std::string_view line;
  if (!lines.next(line)) throw InputError(name + ": empty file (no title line)");
  gro.title = std::string(trimmed(line));
  if (!lines.next(line)) throw fail(2, "the atom count is missing (truncated?)");
  long count = 0;
  if (!parse_integer(line, count) || count <= 0) {
    throw fail(2, "\"" + std::string(trimmed(line)) + "\" is not a positive atom count");
  }
  // Sized by what the text can hold, not by the count it announces.
  gro.atoms.reserve(std::min<size_t>(static_cast<size_t>(count), text.size() / 21 + 1));
  int width = 0;
  for (long i = 0; i < count; ++i) {
    if (!lines.next(line)) {
      throw fail(lines.number() + 1, "the file ends after " + std::to_string(i) + " of " +
                                         std::to_string(count) + " atoms (truncated?)");
    }
    const long at = lines.number();
    if (line.size() < 21) throw fail(at, "atom line too short for its fixed columns");
    if (width == 0) {
      // The coordinates' width: the distance between the first two decimal
      // points from column 21.
      const size_t first = line.find('.', 20);
      const size_t second = first == std::string_view::npos ? first : line.find('.', first + 1);
      if (second == std::string_view::npos || second - first < 2 || second - first > 20) {
        throw fail(at, "no coordinates in columns 21 onwards");
      }
      width = static_cast<int>(second - first);
    }
    if (line.size() < 20 + 3 * static_cast<size_t>(width)) {
      throw fail(at, "atom line too short for three coordinates of width " + std::to_string(width));
    }
    GroAtom atom;
    long residue = 0;
    if (!parse_integer(line.substr(0, 5), residue)) {
      throw fail(at, "residue number \"" + std::string(line.substr(0, 5)) + "\" is not a number");
    }
    atom.residue_number = static_cast<int>(residue);
    atom.residue_name = std::string(trimmed(line.substr(5, 5)));
    atom.name = std::string(trimmed(line.substr(10, 5)));
    if (atom.residue_name.empty()) throw fail(at, "no residue name in columns 6-10");
    if (atom.name.empty()) throw fail(at, "no atom name in columns 11-15");
    double xyz[3];
    for (int k = 0; k < 3; ++k) {
      const std::string_view field = line.substr(20 + static_cast<size_t>(k * width), width);
      if (!parse_number(field, xyz[k])) {
        throw fail(at, "coordinate \"" + std::string(field) + "\" is not a number");
      }
    }
    atom.position = {xyz[0] * kAngstromPerNm, xyz[1] * kAngstromPerNm, xyz[2] * kAngstromPerNm};
    gro.atoms.push_back(std::move(atom));
  }
  // The box: v1(x) v2(y) v3(z) [v1(y) v1(z) v2(x) v2(z) v3(x) v3(y)].
  if (!lines.next(line)) throw fail(lines.number() + 1, "the box line is missing (truncated?)");
  std::vector<double> values;
  {
    std::string_view rest = line;
    for (;;) {
      rest = trimmed(rest);
      if (rest.empty()) break;
      size_t end = 0;
      while (end < rest.size() && !std::isspace(static_cast<unsigned char>(rest[end]))) ++end;
      double v = 0.0;
      if (!parse_number(rest.substr(0, end), v)) {
        throw fail(lines.number(),
                   "box value \"" + std::string(rest.substr(0, end)) + "\" is not a number");
      }
      values.push_back(v * kAngstromPerNm);
      rest.remove_prefix(end);
    }
  }
  if (values.size() != 3 && values.size() != 9) {
    throw fail(lines.number(), "the box line holds " + std::to_string(values.size()) +
                                   " numbers (3 or 9 expected)");
  }
  values.resize(9, 0.0);
  gro.box = {Vec3{values[0], values[3], values[4]}, Vec3{values[5], values[1], values[6]},
             Vec3{values[7], values[8], values[2]}};
  return gro;
}

GroFile read_gro(const std::string& path) {
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec)) throw InputError(path + ": is a directory");
  std::ifstream in(path, std::ios::binary);
  if (!in) throw InputError(path + ": cannot open: " + std::strerror(errno));
  const std::string text{std::istreambuf_iterator<char>(in), {}};
  return parse_gro(text, path);
}

bool is_gro_file(const std::string& path) {
  std::string lower = path;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower.ends_with(".gro");
}

}  // namespace vorn::io
