#include "io/coupling_writer.hpp"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <set>

#include "io/atom_names.hpp"
#include "io/input_error.hpp"

namespace vorn::io {
namespace {

// The shortest text that reads back to the same double.
std::string shortest(double v) {
  char digits[32];
  return std::string(digits, std::to_chars(digits, digits + sizeof digits, v).ptr);
}

bool starts_with_keyword(std::string_view text) {
  std::string head(text.substr(0, 7));
  std::transform(head.begin(), head.end(), head.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  for (const char* keyword : {"data_", "save_", "loop_", "stop_", "global_"}) {
    if (head.rfind(keyword, 0) == 0) return true;
  }
  return false;
}

// A STAR value: "." for empty text, quoted where bare text would be read
// otherwise (blanks, a leading quote, "_", "#", "$", ";", "[", "]", a
// keyword, or "." and "?", which are null).
std::string star_value(std::string_view text) {
  if (text.empty()) return ".";
  const bool blank = text.find_first_of(" \t\r\n") != std::string_view::npos;
  const bool special = std::string_view("_#$'\";[]").find(text.front()) != std::string_view::npos;
  const bool null = text == "." || text == "?";
  if (!blank && !special && !null && !starts_with_keyword(text)) return std::string(text);
  const char quote = text.find('\'') == std::string_view::npos ? '\'' : '"';
  return quote + std::string(text) + quote;
}

std::string sequence_code(const WrittenAtom& a) {
  std::string code = std::to_string(a.residue);
  if (a.insertion_code != ' ' && a.insertion_code != '\0') code += a.insertion_code;
  return code;
}

// printf into a string: the table's rows are what its FORMAT line says.
template <typename... Args>
std::string printed(const char* format, Args... args) {
  const int size = std::snprintf(nullptr, 0, format, args...);
  std::string text(static_cast<std::size_t>(std::max(size, 0)) + 1, '\0');
  std::snprintf(text.data(), text.size(), format, args...);
  text.pop_back();
  return text;
}

std::string utc_now() {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
  return text;
}

}  // namespace

std::string nef_begin(std::string_view block, std::string_view program_version) {
  const std::string date = utc_now();
  std::string out = "data_" + nef_list_name(block) + "\n\n";
  out += "save_nef_nmr_meta_data\n";
  out += "   _nef_nmr_meta_data.sf_category      nef_nmr_meta_data\n";
  out += "   _nef_nmr_meta_data.sf_framecode     nef_nmr_meta_data\n";
  out += "   _nef_nmr_meta_data.format_name      nmr_exchange_format\n";
  out += "   _nef_nmr_meta_data.format_version   1.1\n";
  out += "   _nef_nmr_meta_data.program_name     VORN\n";
  out += "   _nef_nmr_meta_data.program_version  " + star_value(program_version) + "\n";
  out += "   _nef_nmr_meta_data.creation_date    " + date + "\n";
  out +=
      "   _nef_nmr_meta_data.uuid             VORN-" + date + "-" + std::to_string(getpid()) + "\n";
  out += "save_\n";
  return out;
}

std::string nef_list_name(std::string_view text) {
  std::string out;
  for (const char c : text) {
    const bool keep = std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-' ||
                      c == '.' || c == '+';
    out += keep ? c : '_';
  }
  return out.empty() ? "couplings" : out;
}

std::string nef_rdc_list(const CouplingList& list) {
  const std::string framecode = "nef_rdc_restraint_list_" + nef_list_name(list.name);
  std::string out = "\nsave_" + framecode + "\n";
  out += "   _nef_rdc_restraint_list.sf_category       nef_rdc_restraint_list\n";
  out += "   _nef_rdc_restraint_list.sf_framecode      " + framecode + "\n";
  out += "   _nef_rdc_restraint_list.potential_type    .\n";
  out += "   _nef_rdc_restraint_list.restraint_origin  .\n\n";
  out += "   loop_\n";
  for (const char* tag :
       {"index", "restraint_id", "restraint_combination_id", "chain_code_1", "sequence_code_1",
        "residue_name_1", "atom_name_1", "chain_code_2", "sequence_code_2", "residue_name_2",
        "atom_name_2", "weight", "target_value", "target_value_uncertainty"}) {
    out += "      _nef_rdc_restraint.";
    out += tag;
    out += '\n';
  }
  out += '\n';
  long index = 0;
  for (const WrittenCoupling& c : list.couplings) {
    const std::string number = std::to_string(++index);
    std::vector<std::string> fields{number, number, "."};
    for (const WrittenAtom* a : {&c.atom1, &c.atom2}) {
      fields.push_back(star_value(a->chain));
      fields.push_back(sequence_code(*a));
      fields.push_back(star_value(a->residue_name));
      fields.push_back(star_value(nef_written_name(a->name)));
    }
    fields.push_back("1.0");
    fields.push_back(shortest(c.value_hz));
    fields.push_back(c.error_hz ? shortest(*c.error_hz) : ".");
    out += "     ";
    for (const std::string& field : fields) {
      out += ' ';
      out += field;
    }
    out += '\n';
  }
  out += "   stop_\n";
  out += "save_\n";
  return out;
}

std::string pipe_table(const CouplingList& list, const std::vector<std::string>& remarks) {
  std::set<std::string> chains;
  bool errors = !list.couplings.empty();
  for (const WrittenCoupling& c : list.couplings) {
    for (const WrittenAtom* a : {&c.atom1, &c.atom2}) {
      chains.insert(a->chain);
      if (a->insertion_code != ' ' && a->insertion_code != '\0') {
        throw InputError("an NMRPipe table has no insertion codes: residue " + sequence_code(*a) +
                         " cannot be written (use --format nef)");
      }
    }
    if (!c.error_hz) errors = false;
  }
  if (chains.size() > 1) {
    std::string names;
    for (const std::string& chain : chains) {
      names += (names.empty() ? "" : ", ") + (chain.empty() ? std::string("none") : chain);
    }
    throw InputError("an NMRPipe table names no chains, and the couplings are in chains " + names +
                     " (choose one with --chains, or use --format nef)");
  }
  std::string out;
  for (const std::string& remark : remarks) out += "REMARK " + remark + "\n";
  if (!remarks.empty()) out += "\n";
  out += errors ? "VARS   RESID_I RESNAME_I ATOMNAME_I RESID_J RESNAME_J ATOMNAME_J D DD W\n"
                : "VARS   RESID_I RESNAME_I ATOMNAME_I RESID_J RESNAME_J ATOMNAME_J D W\n";
  out += errors ? "FORMAT %5d %6s %6s %5d %6s %6s %11.6f %11.6f %4.2f\n\n"
                : "FORMAT %5d %6s %6s %5d %6s %6s %11.6f %4.2f\n\n";
  for (const WrittenCoupling& c : list.couplings) {
    const auto name = [](const WrittenAtom& a) {
      return pdb_atom_name(a.name) == "H" ? std::string("HN") : a.name;
    };
    const auto residue = [](const WrittenAtom& a) {
      return a.residue_name.empty() ? std::string("UNK") : a.residue_name;
    };
    if (errors) {
      out += printed("%5d %6s %6s %5d %6s %6s %11.6f %11.6f %4.2f\n", c.atom1.residue,
                     residue(c.atom1).c_str(), name(c.atom1).c_str(), c.atom2.residue,
                     residue(c.atom2).c_str(), name(c.atom2).c_str(), c.value_hz, *c.error_hz, 1.0);
    } else {
      out += printed("%5d %6s %6s %5d %6s %6s %11.6f %4.2f\n", c.atom1.residue,
                     residue(c.atom1).c_str(), name(c.atom1).c_str(), c.atom2.residue,
                     residue(c.atom2).c_str(), name(c.atom2).c_str(), c.value_hz, 1.0);
    }
  }
  return out;
}

}  // namespace vorn::io
