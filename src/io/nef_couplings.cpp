// NEF coupling lists: the nef_rdc_restraint_list save frames (see
// coupling_reader.hpp).
#include <cmath>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "io/atom_names.hpp"
#include "io/coupling_formats.hpp"
#include "io/star_document.hpp"

namespace vorn::io::detail {
namespace {

constexpr std::string_view kListPrefix = "nef_rdc_restraint_list_";

struct Columns {
  std::size_t chain[2], sequence[2], atom[2], value;
  std::optional<std::size_t> uncertainty, weight, scale, restraint_id;
};

Columns columns_of(const LoopColumns& loop, const StarFrame& frame, long line,
                   const CouplingCollector& out) {
  const auto required = [&](const char* name) {
    const auto column = loop.find(name);
    if (!column) {
      out.fail(line, "the _nef_rdc_restraint loop of frame " + shown(frame.name) +
                         " has no column " + name + ", expected chain_code_1, sequence_code_1, " +
                         "atom_name_1, the same for _2, and target_value");
    }
    return *column;
  };
  Columns c{};
  for (int k = 0; k < 2; ++k) {
    const std::string n = std::to_string(k + 1);
    c.chain[k] = required(("chain_code_" + n).c_str());
    c.sequence[k] = required(("sequence_code_" + n).c_str());
    c.atom[k] = required(("atom_name_" + n).c_str());
  }
  c.value = required("target_value");
  c.uncertainty = loop.find("target_value_uncertainty");
  c.weight = loop.find("weight");
  c.scale = loop.find("scale");
  c.restraint_id = loop.find("restraint_id");
  return c;
}

// One row: the coupling, or nullopt for a row of weight 0. Throws BadValue.
std::optional<MeasuredCoupling> row_coupling(const LoopColumns& loop, const Columns& c,
                                             std::size_t row) {
  const auto value_at = [&](std::optional<std::size_t> column) -> const StarValue& {
    static const StarValue kNull;
    return column ? loop.at(row, *column) : kNull;
  };
  const std::optional<double> weight = number_value(value_at(c.weight), "weight");
  if (weight && *weight < 0.0) throw BadValue{"weight is negative, expected 0 or more"};
  if (weight && *weight == 0.0) return std::nullopt;

  MeasuredCoupling m;
  m.line = loop.line(row);
  for (int k = 0; k < 2; ++k) {
    const std::string n = std::to_string(k + 1);
    CouplingAtom& atom = k == 0 ? m.atom1 : m.atom2;
    const StarValue& chain = loop.at(row, c.chain[k]);
    atom.chain = chain ? *chain : std::string();
    const StarValue& sequence = loop.at(row, c.sequence[k]);
    const std::optional<int> residue = integer_value(sequence, "sequence_code_" + n);
    if (!residue) throw BadValue{"sequence_code_" + n + " is missing, expected a residue number"};
    atom.residue = *residue;
    const StarValue& name = loop.at(row, c.atom[k]);
    if (!name || name->empty()) throw BadValue{"atom_name_" + n + " is missing"};
    const std::optional<std::string> mapped = nef_atom_name(*name);
    if (!mapped) {
      throw BadValue{"atom_name_" + n + " " + shown(*name) +
                     " has a wildcard inside, expected one at the end (HB%, HG1%) or x/y "
                     "(HBx, HGy%)"};
    }
    atom.name = *mapped;
  }
  const std::optional<double> value = number_value(loop.at(row, c.value), "target_value");
  if (!value) throw BadValue{"target_value is missing, expected the coupling (Hz)"};
  m.value_hz = *value;
  const std::optional<double> error =
      number_value(value_at(c.uncertainty), "target_value_uncertainty");
  if (error && *error < 0.0) {
    throw BadValue{"target_value_uncertainty is negative, expected 0 or more (Hz)"};
  }
  m.error_hz = error;
  // The scale multiplies the target value. The real lists at hand carry
  // none or 1, so this reading of the field is ours: a value given on
  // another scale (a normalised coupling) is brought back to Hz.
  const std::optional<double> scale = number_value(value_at(c.scale), "scale");
  if (scale) {
    if (*scale == 0.0) throw BadValue{"scale is 0, expected a factor other than 0"};
    m.value_hz *= *scale;
    if (m.error_hz) *m.error_hz *= std::fabs(*scale);
  }
  return m;
}

void read_list(const StarFrame& frame, const StarLoop& star_loop, CouplingCollector& out) {
  std::string framecode = frame.name;
  for (const StarPair& pair : frame.pairs) {
    if (lower_case(pair.tag) == "_nef_rdc_restraint_list.sf_framecode" && pair.value) {
      framecode = *pair.value;
    }
  }
  const bool prefixed = framecode.size() > kListPrefix.size() &&
                        framecode.compare(0, kListPrefix.size(), kListPrefix) == 0;
  const std::string set = prefixed ? framecode.substr(kListPrefix.size()) : framecode;

  const LoopColumns loop(star_loop);
  const Columns c = columns_of(loop, frame, star_loop.line, out);
  struct Row {
    MeasuredCoupling coupling;
    std::string id;  // restraint_id; "" when none
  };
  std::vector<Row> rows;
  for (std::size_t r = 0; r < loop.rows(); ++r) {
    try {
      std::optional<MeasuredCoupling> m = row_coupling(loop, c, r);
      if (!m) continue;
      const StarValue id = c.restraint_id ? loop.at(r, *c.restraint_id) : StarValue();
      rows.push_back({std::move(*m), id ? *id : std::string()});
    } catch (const BadValue& b) {
      out.bad(loop.line(r), b.what);
    }
  }
  // Rows sharing a restraint_id are alternative atom pairs of one coupling,
  // which a fit cannot take.
  std::map<std::string, std::vector<long>> lines_of;
  for (const Row& row : rows) {
    if (!row.id.empty()) lines_of[row.id].push_back(row.coupling.line);
  }
  for (Row& row : rows) {
    const auto it = row.id.empty() ? lines_of.end() : lines_of.find(row.id);
    if (it != lines_of.end() && it->second.size() > 1) {
      const long other =
          it->second.front() == row.coupling.line ? it->second[1] : it->second.front();
      out.bad(row.coupling.line, "restraint_id " + shown(row.id) + " is also on line " +
                                     std::to_string(other) +
                                     ": alternative atom pairs of one coupling are not read, "
                                     "expected one row per restraint");
      continue;
    }
    out.add(set, std::move(row.coupling), framecode);
  }
}

}  // namespace

void read_nef_couplings(std::string_view text, CouplingCollector& out) {
  const StarDocument document = read_star(std::string(text), out.name());
  for (const StarFrame& frame : document.frames) {
    for (const StarLoop& loop : frame.loops) {
      if (LoopColumns(loop).category() == "_nef_rdc_restraint") read_list(frame, loop, out);
    }
  }
}

}  // namespace vorn::io::detail
