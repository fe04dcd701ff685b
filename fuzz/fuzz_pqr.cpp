// Fuzzes the PQR reader through parse_pqr, the path read_pqr takes after
// reading the file, and the transfer of the charges onto a structure made of
// the PQR's own atoms (each must get its own charge back) and onto the same
// structure without hydrogens (their charges folded onto heavy atoms).
#include <cmath>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "io/pqr_reader.hpp"

namespace {

bool hydrogen_name(std::string_view name) {
  while (!name.empty() && name.front() >= '0' && name.front() <= '9') name.remove_prefix(1);
  return !name.empty() && name.front() == 'H';
}

vorn::Atom structure_atom(const vorn::io::PqrAtom& p) {
  vorn::Atom a;
  a.name = p.name;
  a.element = hydrogen_name(p.name) ? "H" : "C";
  a.residue_name = p.residue_name;
  a.residue_number = p.residue_number;
  a.insertion_code = p.insertion_code;
  a.chain = p.chain;
  a.position = p.position;
  return a;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  long lines = 1;
  for (const char c : text) lines += c == '\n' ? 1 : 0;
  std::vector<vorn::io::PqrAtom> pqr;
  try {
    pqr = vorn::io::parse_pqr(text, "fuzz");
  } catch (const vorn::io::InputError&) {
    return 0;
  }
  // What is handed out: at least one atom, each named once, finite numbers,
  // radii not negative, lines ascending within the text.
  if (pqr.empty()) __builtin_trap();
  std::set<std::tuple<std::string, int, char, std::string>> keys;
  long last_line = 0;
  for (const vorn::io::PqrAtom& a : pqr) {
    if (a.name.empty() || a.residue_name.empty()) __builtin_trap();
    if (!std::isfinite(a.position.x) || !std::isfinite(a.position.y) ||
        !std::isfinite(a.position.z) || !std::isfinite(a.charge) || !std::isfinite(a.radius) ||
        a.radius < 0.0) {
      __builtin_trap();
    }
    if (a.line <= last_line || a.line > lines) __builtin_trap();
    last_line = a.line;
    if (!keys.insert({a.chain, a.residue_number, a.insertion_code, a.name}).second) {
      __builtin_trap();
    }
  }

  std::vector<vorn::Atom> all;
  std::vector<vorn::Atom> heavy;
  for (const vorn::io::PqrAtom& a : pqr) {
    all.push_back(structure_atom(a));
    if (!hydrogen_name(a.name)) heavy.push_back(structure_atom(a));
  }
  try {
    const vorn::AtomCharges q = vorn::io::charges_from_pqr(all, pqr, "fuzz");
    if (q.charge.size() != pqr.size()) __builtin_trap();
    double net = 0.0;
    for (size_t i = 0; i < pqr.size(); ++i) {
      if (q.charge[i] != pqr[i].charge) __builtin_trap();
      net += pqr[i].charge;
    }
    if (!(q.net_charge == net || (std::isnan(net) && std::isnan(q.net_charge)))) __builtin_trap();
    if (q.charged_groups < 0 || static_cast<size_t>(q.charged_groups) > pqr.size()) {
      __builtin_trap();
    }
  } catch (const vorn::io::InputError&) {
    __builtin_trap();  // every atom is in the structure made of them
  }
  try {
    const vorn::AtomCharges q = vorn::io::charges_from_pqr(heavy, pqr, "fuzz");
    if (q.charge.size() != heavy.size() || q.charged_groups < 0) __builtin_trap();
  } catch (const vorn::io::InputError&) {
    // hydrogens of a residue without heavy atoms
  }
  return 0;
}
