// NMR-STAR v3 coupling lists: the _RDC_constraint loops of restraint files
// and the _RDC loops of measured lists (see coupling_reader.hpp).
#include <cmath>
#include <optional>
#include <string>

#include "io/atom_names.hpp"
#include "io/coupling_formats.hpp"
#include "io/star_document.hpp"

namespace vorn::io::detail {
namespace {

// The columns of one atom: author numbering and the sequence numbering.
struct AtomColumns {
  std::optional<std::size_t> auth_seq, auth_atom, auth_asym, seq, atom;
};

struct Columns {
  AtomColumns atom[2];
  std::size_t value = 0;
  std::optional<std::size_t> error, scale;
  std::string value_name, error_name;
};

// The first of the names the loop has.
std::optional<std::size_t> either(const LoopColumns& loop, const char* a, const char* b,
                                  std::string* found = nullptr) {
  for (const char* name : {a, b}) {
    if (const auto column = loop.find(name)) {
      if (found != nullptr) *found = name;
      return column;
    }
  }
  return std::nullopt;
}

Columns columns_of(const LoopColumns& loop, const StarFrame& frame, const StarLoop& star_loop,
                   const CouplingCollector& out) {
  const std::string where = "the " +
                            star_loop.tags.front().substr(0, star_loop.tags.front().find('.')) +
                            " loop of frame " + shown(frame.name);
  Columns c;
  for (int k = 0; k < 2; ++k) {
    const std::string n = std::to_string(k + 1);
    AtomColumns& a = c.atom[k];
    a.auth_seq = loop.find("Auth_seq_ID_" + n);
    a.auth_atom = loop.find("Auth_atom_ID_" + n);
    a.auth_asym = loop.find("Auth_asym_ID_" + n);
    a.seq = loop.find("Seq_ID_" + n);
    a.atom = loop.find("Atom_ID_" + n);
    if (!(a.auth_seq && a.auth_atom) && !(a.seq && a.atom)) {
      out.fail(star_loop.line, where + " names no atom " + n + ", expected Auth_seq_ID_" + n +
                                   " and Auth_atom_ID_" + n + ", or Seq_ID_" + n + " and Atom_ID_" +
                                   n);
    }
  }
  // _RDC_constraint loops name the value RDC_val; _RDC loops Val.
  const auto value = either(loop, "RDC_val", "Val", &c.value_name);
  if (!value) out.fail(star_loop.line, where + " has no value column, expected RDC_val (or Val)");
  c.value = *value;
  c.error = either(loop, "RDC_val_err", "Val_err", &c.error_name);
  c.scale = loop.find("RDC_val_scale_factor");
  return c;
}

CouplingAtom row_atom(const LoopColumns& loop, const AtomColumns& a, std::size_t row, int k) {
  const std::string n = std::to_string(k + 1);
  const auto value = [&](std::optional<std::size_t> column) -> const StarValue& {
    static const StarValue kNull;
    return column ? loop.at(row, *column) : kNull;
  };
  CouplingAtom atom;
  // Author numbering where the row has it: it is the numbering of the
  // coordinates deposited with the restraints.
  if (value(a.auth_seq) && value(a.auth_atom)) {
    const std::optional<int> residue = integer_value(value(a.auth_seq), "Auth_seq_ID_" + n);
    const StarValue& chain = value(a.auth_asym);
    atom.chain = chain ? *chain : std::string();
    atom.residue = *residue;
    atom.name = pdb_atom_name(*value(a.auth_atom));
  } else if (value(a.seq) && value(a.atom)) {
    atom.residue = *integer_value(value(a.seq), "Seq_ID_" + n);
    atom.name = pdb_atom_name(*value(a.atom));
  } else {
    throw BadValue{"atom " + n + " has neither Auth_seq_ID_" + n + " and Auth_atom_ID_" + n +
                   " nor Seq_ID_" + n + " and Atom_ID_" + n};
  }
  if (atom.name.empty()) throw BadValue{"atom " + n + " has an empty name"};
  return atom;
}

MeasuredCoupling row_coupling(const LoopColumns& loop, const Columns& c, std::size_t row) {
  MeasuredCoupling m;
  m.line = loop.line(row);
  m.atom1 = row_atom(loop, c.atom[0], row, 0);
  m.atom2 = row_atom(loop, c.atom[1], row, 1);
  const std::optional<double> value = number_value(loop.at(row, c.value), c.value_name);
  if (!value) throw BadValue{c.value_name + " is missing, expected the coupling (Hz)"};
  m.value_hz = *value;
  if (c.error) {
    m.error_hz = number_value(loop.at(row, *c.error), c.error_name);
    if (m.error_hz && *m.error_hz < 0.0) {
      throw BadValue{c.error_name + " is negative, expected 0 or more (Hz)"};
    }
  }
  if (c.scale) {
    const std::optional<double> scale =
        number_value(loop.at(row, *c.scale), "RDC_val_scale_factor");
    if (scale) {
      if (*scale == 0.0)
        throw BadValue{"RDC_val_scale_factor is 0, expected a factor other than 0"};
      m.value_hz *= *scale;
      if (m.error_hz) *m.error_hz *= std::fabs(*scale);
    }
  }
  return m;
}

}  // namespace

void read_nmrstar_couplings(std::string_view text, CouplingCollector& out) {
  const StarDocument document = read_star(std::string(text), out.name());
  for (const StarFrame& frame : document.frames) {
    for (const StarLoop& star_loop : frame.loops) {
      const LoopColumns loop(star_loop);
      if (loop.category() != "_rdc_constraint" && loop.category() != "_rdc") continue;
      const Columns c = columns_of(loop, frame, star_loop, out);
      for (std::size_t r = 0; r < loop.rows(); ++r) {
        try {
          out.add(frame.name, row_coupling(loop, c, r));
        } catch (const BadValue& b) {
          out.bad(loop.line(r), b.what);
        }
      }
    }
  }
}

}  // namespace vorn::io::detail
