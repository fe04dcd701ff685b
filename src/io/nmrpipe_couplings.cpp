// NMRPipe tables of couplings: VARS names the columns, FORMAT their printf
// formats, then one row per coupling (see coupling_reader.hpp).
#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "io/atom_names.hpp"
#include "io/coupling_formats.hpp"
#include "io/number_text.hpp"

namespace vorn::io::detail {
namespace {

using number_text::to_int;
using number_text::to_number;

constexpr const char* kRequired[] = {"RESID_I", "ATOMNAME_I", "RESID_J", "ATOMNAME_J", "D"};

struct Table {
  std::vector<std::string> vars;
  long vars_line = 0;
  std::size_t resid[2] = {}, atom[2] = {}, value = 0;
  std::optional<std::size_t> error, weight;
};

std::optional<std::size_t> column(const Table& t, std::string_view name) {
  const auto it = std::find(t.vars.begin(), t.vars.end(), name);
  if (it == t.vars.end()) return std::nullopt;
  return static_cast<std::size_t>(it - t.vars.begin());
}

// The row's coupling, or nullopt for a row of weight 0. Throws BadValue.
std::optional<MeasuredCoupling> row_coupling(const Table& t,
                                             const std::vector<std::string_view>& f) {
  const auto number = [&](std::size_t i) {
    const auto v = to_number(f[i]);
    if (!v) throw BadValue{t.vars[i] + " " + shown(f[i]) + " is not a number"};
    return *v;
  };
  if (t.weight) {
    const double w = number(*t.weight);
    if (w < 0.0) throw BadValue{"W " + shown(f[*t.weight]) + " is negative, expected 0 or more"};
    if (w == 0.0) return std::nullopt;
  }
  MeasuredCoupling c;
  for (int k = 0; k < 2; ++k) {
    CouplingAtom& atom = k == 0 ? c.atom1 : c.atom2;
    const auto residue = to_int(f[t.resid[k]]);
    if (!residue) {
      throw BadValue{t.vars[t.resid[k]] + " " + shown(f[t.resid[k]]) + " is not an integer"};
    }
    atom.residue = *residue;
    atom.name = pdb_atom_name(f[t.atom[k]]);
  }
  c.value_hz = number(t.value);
  if (t.error) {
    const double e = number(*t.error);
    if (e < 0.0) throw BadValue{"DD " + shown(f[*t.error]) + " is negative, expected 0 or more"};
    c.error_hz = e;
  }
  return c;
}

}  // namespace

void read_pipe_couplings(std::string_view text, CouplingCollector& out) {
  Table t;
  std::optional<std::pair<std::size_t, long>> format;  // entries and line of FORMAT
  const auto check_format = [&] {
    if (format && !t.vars.empty() && format->first != t.vars.size()) {
      out.fail(format->second, "FORMAT has " + std::to_string(format->first) +
                                   " entries, expected " + std::to_string(t.vars.size()) +
                                   " as VARS (line " + std::to_string(t.vars_line) + ") names");
    }
  };
  for_each_line(text, [&](long number, std::string_view line) {
    const std::vector<std::string_view> f = split_fields(line);
    if (f.empty()) return;
    const std::string_view key = f.front();
    if (key == "REMARK" || key == "DATA" || key == "NULLVALUE" || key == "NULLSTRING") return;
    if (key == "VARS") {
      if (!t.vars.empty()) {
        out.fail(number, "a second VARS line (the first is line " + std::to_string(t.vars_line) +
                             "), expected one table per file");
      }
      for (std::size_t i = 1; i < f.size(); ++i) {
        if (std::find(t.vars.begin(), t.vars.end(), f[i]) != t.vars.end()) {
          out.fail(number, "VARS names " + shown(f[i]) + " twice");
        }
        t.vars.emplace_back(f[i]);
      }
      t.vars_line = number;
      for (const char* name : kRequired) {
        if (!column(t, name)) {
          out.fail(number, std::string("VARS names no ") + name +
                               " column, expected RESID_I ATOMNAME_I RESID_J ATOMNAME_J D "
                               "(and DD, W, RESNAME_I, RESNAME_J)");
        }
      }
      t.resid[0] = *column(t, "RESID_I");
      t.atom[0] = *column(t, "ATOMNAME_I");
      t.resid[1] = *column(t, "RESID_J");
      t.atom[1] = *column(t, "ATOMNAME_J");
      t.value = *column(t, "D");
      t.error = column(t, "DD");
      t.weight = column(t, "W");
      check_format();
      return;
    }
    if (key == "FORMAT") {
      if (format) out.fail(number, "a second FORMAT line, expected one table per file");
      format.emplace(f.size() - 1, number);
      check_format();
      return;
    }
    if (t.vars.empty()) {
      out.fail(number, "found " + shown(key) +
                           " before the VARS line, expected VARS naming the columns first");
    }
    if (f.size() != t.vars.size()) {
      out.bad(number, "found " + std::to_string(f.size()) + " field(s), expected " +
                          std::to_string(t.vars.size()) + " as VARS (line " +
                          std::to_string(t.vars_line) + ") names");
      return;
    }
    try {
      if (auto c = row_coupling(t, f)) {
        c->line = number;
        out.add("", std::move(*c));
      }
    } catch (const BadValue& b) {
      out.bad(number, b.what);
    }
  });
}

}  // namespace vorn::io::detail
