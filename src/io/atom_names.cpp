#include "io/atom_names.hpp"

#include <algorithm>
#include <cctype>

namespace vorn::io {

std::string pdb_atom_name(std::string_view name) {
  std::string out(name);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  if (out == "HN") return "H";
  if (out == "OT1") return "O";
  if (out == "OT2") return "OXT";
  return out;
}

std::optional<std::string> nef_atom_name(std::string_view name) {
  const std::size_t stereo = name.find_first_of("xy");
  if (stereo != std::string_view::npos) {
    const std::string_view rest = name.substr(stereo + 1);
    if (stereo == 0 || (!rest.empty() && rest != "%")) return std::nullopt;
    name = name.substr(0, stereo);
    if (name.find_first_of("%*") != std::string_view::npos) return std::nullopt;
    return pdb_atom_name(name) + "#";
  }
  const std::size_t wildcard = name.find_first_of("%*");
  if (wildcard == std::string_view::npos) return pdb_atom_name(name);
  if (wildcard == 0 || wildcard + 1 != name.size()) return std::nullopt;
  return pdb_atom_name(name.substr(0, wildcard)) + (name.back() == '%' ? "#" : "*");
}

std::string nef_written_name(std::string_view name) {
  std::string out = pdb_atom_name(name);
  if (out.size() > 1 && out.front() == 'Q') {
    out.front() = 'H';
    out += '%';
    return out;
  }
  if (out.size() > 1 && (out.back() == '#' || out.back() == '*')) out.back() = '%';
  return out;
}

}  // namespace vorn::io
