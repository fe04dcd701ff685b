// PQR files: the reader of their atom records and the transfer of their
// charges onto a structure's atoms (see pqr_reader.hpp).
#include "io/pqr_reader.hpp"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <tuple>

#include "io/coupling_formats.hpp"
#include "io/file_text.hpp"
#include "io/number_text.hpp"

namespace vorn::io {
namespace {

using detail::shown;
using detail::split_fields;
using number_text::to_int;
using number_text::to_number;
using number_text::without_plus;

[[noreturn]] void fail(const std::string& path, long line, const std::string& what) {
  throw InputError(path + ":" + std::to_string(line) + ": " + what);
}

bool is_space(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

bool is_digit(char c) { return c >= '0' && c <= '9'; }

bool is_letter(char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; }

// "52" or "52A": the number and the insertion code.
std::optional<std::pair<int, char>> residue_number(std::string_view s) {
  char insertion = ' ';
  if (!s.empty() && is_letter(s.back())) {
    insertion = s.back();
    s.remove_suffix(1);
  }
  const auto number = to_int(s);
  if (!number) return std::nullopt;
  return std::pair{*number, insertion};
}

// "ATOM", "HETATM", or one of them run together with its serial
// ("HETATM10001"): the record name; "" for any other record.
std::string_view atom_record(std::string_view field) {
  for (const std::string_view name : {std::string_view("ATOM"), std::string_view("HETATM")}) {
    if (field.substr(0, name.size()) != name) continue;
    const std::string_view rest = field.substr(name.size());
    if (std::all_of(rest.begin(), rest.end(), is_digit)) return name;
  }
  return {};
}

std::string residue_label(const PqrAtom& a) {
  std::string label = a.residue_name + " " + std::to_string(a.residue_number);
  if (a.insertion_code != ' ') label += a.insertion_code;
  label += a.chain.empty() ? std::string(" (no chain ID)") : " (chain " + a.chain + ")";
  return label;
}

constexpr const char* kLayout = "record serial name resname [chain] resnum x y z charge radius";

// One atom record from its fields.
PqrAtom parse_record(std::vector<std::string_view> f, long number, const std::string& path) {
  // A serial run together with HETATM: split, so that the fields count as
  // in every other record.
  std::string_view serial_glued;
  if (f[0].size() > atom_record(f[0]).size()) {
    serial_glued = f[0].substr(atom_record(f[0]).size());
    f.insert(f.begin() + 1, serial_glued);
    f[0] = f[0].substr(0, f[0].size() - serial_glued.size());
  }
  PqrAtom a;
  a.line = number;
  size_t resnum_field = 0;
  if (f.size() == 11) {
    a.chain = std::string(f[4]);
    resnum_field = 5;
  } else if (f.size() == 10) {
    resnum_field = 4;
    // A chain letter run together with a 4-digit residue number.
    if (f[4].size() > 1 && is_letter(f[4][0]) && residue_number(f[4].substr(1))) {
      a.chain = std::string(1, f[4][0]);
      f[4].remove_prefix(1);
    } else if (!residue_number(f[4]) && residue_number(f[5])) {
      fail(path, number,
           "found 10 fields with a chain ID, expected 11: " + std::string(kLayout) +
               " (a field is missing)");
    }
  } else {
    std::string what =
        "found " + std::to_string(f.size()) + " field(s), expected 10 or 11: " + kLayout;
    if (f.size() < 10) what += " (coordinates run together? pdb2pqr --whitespace separates them)";
    fail(path, number, what);
  }
  if (!to_int(f[1])) {
    fail(path, number, "serial number " + shown(f[1]) + " is not an integer");
  }
  a.name = std::string(f[2]);
  a.residue_name = std::string(f[3]);
  const auto resnum = residue_number(f[resnum_field]);
  if (!resnum) {
    fail(path, number,
         "residue number " + shown(f[resnum_field]) +
             " is not an integer (with an optional insertion code letter)");
  }
  std::tie(a.residue_number, a.insertion_code) = *resnum;
  const char* names[] = {"x", "y", "z", "charge", "radius"};
  double values[5] = {};
  for (size_t k = 0; k < 5; ++k) {
    const std::string_view field = f[resnum_field + 1 + k];
    const auto value = to_number(field);
    if (!value) {
      fail(path, number,
           std::string(names[k]) + " " + shown(field) + " (field " +
               std::to_string(resnum_field + 2 + k) + ") is not a finite number");
    }
    values[k] = *value;
  }
  a.position = {values[0], values[1], values[2]};
  a.charge = values[3];
  a.radius = values[4];
  if (a.radius < 0.0) fail(path, number, "radius " + shown(f.back()) + " is negative");
  return a;
}

// ---------------------------------------------------------------------------
// Charges onto a structure

using ResidueKey = std::tuple<std::string, int, char>;
using AtomKey = std::tuple<std::string, int, char, std::string>;

constexpr size_t kAmbiguous = std::numeric_limits<size_t>::max();

// Residues whose summed charge is below this are counted as neutral.
constexpr double kNeutral = 1e-3;

bool pqr_hydrogen(std::string_view name) {
  while (!name.empty() && is_digit(name.front())) name.remove_prefix(1);
  return !name.empty() && name.front() == 'H';
}

bool structure_hydrogen(const vorn::Atom& a) { return a.element == "H" || a.element == "D"; }

bool is_water(std::string_view residue) {
  return residue == "HOH" || residue == "WAT" || residue == "SOL" || residue == "TIP3" ||
         residue == "DOD";
}

// The names that pdb2pqr's naming schemes may give an atom in place of the
// PDB one, and the other way round.
std::vector<std::string> other_names(const PqrAtom& a) {
  if (a.name == "H") return {"HN"};
  if (a.name == "HN") return {"H"};
  if (a.name == "OT1") return {"O"};
  if (a.name == "O") return {"OT1"};
  if (a.name == "OT2") return {"OXT"};
  if (a.name == "OXT") return {"OT2"};
  if (a.residue_name == "ILE" && a.name == "CD") return {"CD1"};
  if (a.residue_name == "ILE" && a.name == "CD1") return {"CD"};
  return {};
}

double distance2(const vorn::Vec3& p, const vorn::Vec3& q) {
  const double dx = p.x - q.x, dy = p.y - q.y, dz = p.z - q.z;
  return dx * dx + dy * dy + dz * dz;
}

}  // namespace

std::vector<PqrAtom> parse_pqr(std::string_view text, const std::string& name_for_messages) {
  const std::string& path = name_for_messages;
  std::vector<PqrAtom> atoms;
  std::map<AtomKey, long> first_line;
  long number = 0;
  size_t start = 0;
  while (start < text.size()) {
    const size_t end = std::min(text.find('\n', start), text.size());
    const std::string_view line = text.substr(start, end - start);
    start = end + 1;
    ++number;
    const std::vector<std::string_view> fields = split_fields(line);
    if (fields.empty() || atom_record(fields[0]).empty()) continue;
    PqrAtom a = parse_record(fields, number, path);
    const auto [it, inserted] = first_line.try_emplace(
        AtomKey{a.chain, a.residue_number, a.insertion_code, a.name}, number);
    if (!inserted) {
      fail(path, number,
           "atom " + a.name + " of residue " + residue_label(a) + " appears twice (first at line " +
               std::to_string(it->second) + ")");
    }
    atoms.push_back(std::move(a));
  }
  if (atoms.empty()) {
    throw InputError(path + ": no ATOM or HETATM records, expected a PQR file (" + kLayout + ")");
  }
  return atoms;
}

std::vector<PqrAtom> read_pqr(const std::string& path) {
  return parse_pqr(read_file_text(path), path);
}

vorn::AtomCharges charges_from_pqr(std::span<const vorn::Atom> atoms,
                                   const std::vector<PqrAtom>& pqr, const std::string& path) {
  const bool structure_chains =
      std::any_of(atoms.begin(), atoms.end(), [](const vorn::Atom& a) { return !a.chain.empty(); });
  const bool pqr_chains =
      std::any_of(pqr.begin(), pqr.end(), [](const PqrAtom& a) { return !a.chain.empty(); });
  const bool by_chain = structure_chains && pqr_chains;
  const auto chain_of = [&](const std::string& chain) { return by_chain ? chain : std::string(); };

  // Structure atoms by name, and the heavy atoms of each residue (keys
  // without chains where chains are not compared).
  std::map<AtomKey, size_t> by_name;
  std::map<ResidueKey, std::vector<size_t>> heavy;
  std::set<ResidueKey> residues;
  // The residue of each atom, numbered, chains always told apart.
  std::map<ResidueKey, size_t> residue_index;
  std::vector<size_t> residue_of(atoms.size());
  for (size_t i = 0; i < atoms.size(); ++i) {
    const vorn::Atom& a = atoms[i];
    const ResidueKey residue{chain_of(a.chain), a.residue_number, a.insertion_code};
    residues.insert(residue);
    residue_of[i] = residue_index
                        .try_emplace(ResidueKey{a.chain, a.residue_number, a.insertion_code},
                                     residue_index.size())
                        .first->second;
    const auto [it, inserted] = by_name.try_emplace(
        AtomKey{chain_of(a.chain), a.residue_number, a.insertion_code, a.name}, i);
    // The same name in one residue of two chains when chains are not
    // compared; a name repeated within one residue keeps its first atom.
    if (!inserted && it->second != kAmbiguous && atoms[it->second].chain != a.chain) {
      it->second = kAmbiguous;
    }
    if (!structure_hydrogen(a)) heavy[residue].push_back(i);
  }

  vorn::AtomCharges result;
  result.charge.assign(atoms.size(), 0.0);
  std::vector<long> matched_line(atoms.size(), 0);
  // Per PQR atom: the structure atom it matched, if any.
  std::vector<std::optional<size_t>> match(pqr.size());
  std::vector<size_t> unmatched_hydrogens;

  const auto not_in_structure = [&](const PqrAtom& a) {
    fail(path, a.line,
         "atom " + a.name + " of residue " + residue_label(a) + " is not in the structure");
  };

  for (size_t k = 0; k < pqr.size(); ++k) {
    const PqrAtom& a = pqr[k];
    const auto find = [&](const std::string& name) -> std::optional<size_t> {
      const auto it =
          by_name.find(AtomKey{chain_of(a.chain), a.residue_number, a.insertion_code, name});
      if (it == by_name.end()) return std::nullopt;
      return it->second;
    };
    std::optional<size_t> i = find(a.name);
    if (!i) {
      for (const std::string& other : other_names(a)) {
        if ((i = find(other))) break;
      }
    }
    if (!i) {
      const bool residue_there =
          residues.count(ResidueKey{chain_of(a.chain), a.residue_number, a.insertion_code}) > 0;
      if (pqr_hydrogen(a.name) && residue_there) {
        unmatched_hydrogens.push_back(k);
        continue;
      }
      if (is_water(a.residue_name) && !residue_there) continue;
      not_in_structure(a);
    }
    if (*i == kAmbiguous) {
      fail(path, a.line,
           "atom " + a.name + " of residue " + residue_label(a) +
               " fits atoms of several chains of the structure, and the PQR file has no chain "
               "IDs to tell them apart");
    }
    if (matched_line[*i] != 0) {
      fail(path, a.line,
           "atom " + a.name + " of residue " + residue_label(a) + " is the structure's atom " +
               atoms[*i].name + ", as is the PQR atom of line " + std::to_string(matched_line[*i]));
    }
    matched_line[*i] = a.line;
    match[k] = *i;
    result.charge[*i] += a.charge;
  }

  // Each hydrogen left onto the nearest heavy atom of its residue: measured
  // between PQR atoms where the residue's heavy atoms are in the PQR file,
  // else to the structure's heavy atoms.
  std::map<ResidueKey, std::vector<size_t>> matched_heavy;  // PQR atoms
  for (size_t k = 0; k < pqr.size(); ++k) {
    if (match[k] && !structure_hydrogen(atoms[*match[k]])) {
      const PqrAtom& a = pqr[k];
      matched_heavy[ResidueKey{chain_of(a.chain), a.residue_number, a.insertion_code}].push_back(k);
    }
  }
  for (const size_t k : unmatched_hydrogens) {
    const PqrAtom& h = pqr[k];
    const ResidueKey residue{chain_of(h.chain), h.residue_number, h.insertion_code};
    std::optional<size_t> nearest;
    double best = std::numeric_limits<double>::infinity();
    if (const auto it = matched_heavy.find(residue); it != matched_heavy.end()) {
      for (const size_t m : it->second) {
        const double d = distance2(h.position, pqr[m].position);
        if (d < best) {
          best = d;
          nearest = *match[m];
        }
      }
    } else if (const auto jt = heavy.find(residue); jt != heavy.end()) {
      for (const size_t i : jt->second) {
        const double d = distance2(h.position, atoms[i].position);
        if (d < best) {
          best = d;
          nearest = i;
        }
      }
    }
    if (!nearest) not_in_structure(h);  // the residue has hydrogens only
    result.charge[*nearest] += h.charge;
  }

  std::vector<double> residue_charge(residue_index.size(), 0.0);
  for (size_t i = 0; i < atoms.size(); ++i) {
    result.net_charge += result.charge[i];
    residue_charge[residue_of[i]] += result.charge[i];
  }
  result.charged_groups =
      static_cast<int>(std::count_if(residue_charge.begin(), residue_charge.end(),
                                     [](double q) { return std::abs(q) > kNeutral; }));
  return result;
}

}  // namespace vorn::io
