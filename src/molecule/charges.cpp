// Titration charges of proteins and nucleic acids: which atoms carry the
// charge of each ionisable group, and how much at a given pH.
#include "vorn/charges.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <sstream>
#include <string_view>
#include <tuple>

#include "vorn/error.hpp"

namespace vorn {
namespace {

// Positions of the groups in the table below.
enum GroupIndex : std::size_t { kAsp, kGlu, kHis, kCys, kTyr, kLys, kArg, kNTerm, kCTerm };

// Model pKa values of the ionisable groups of proteins, measured in blocked
// alanine pentapeptides (Ala-Ala-X-Ala-Ala, 25 C, 0.1 M KCl): Thurlkill,
// Grimsley, Scholtz & Pace (2006) Protein Sci 15:1214-1218.
const std::vector<IonisableGroup>& table() {
  static const std::vector<IonisableGroup> groups = {
      {"ASP", 3.67, true},  {"GLU", 4.25, true},         {"HIS", 6.54, false},
      {"CYS", 8.55, true},  {"TYR", 9.84, true},         {"LYS", 10.40, false},
      {"ARG", 12.3, false}, {"N-terminus", 8.00, false}, {"C-terminus", 3.67, true},
  };
  return groups;
}

// SG atoms closer than this are taken as disulfide-bonded (the bond is
// about 2.05 A).
constexpr double kDisulfideCutoff = 2.5;

// Phosphodiester groups are taken as fully ionised: their pKa (about 1) lies
// far below the pH range of interest.
constexpr double kPhosphateCharge = -1.0;

bool hydrogen(const Atom& atom) { return atom.element == "H" || atom.element == "D"; }

bool is_one_of(std::string_view name, std::initializer_list<std::string_view> names) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

bool is_histidine(std::string_view name) {
  return is_one_of(name, {"HIS", "HSD", "HSE", "HSP", "HID", "HIE", "HIP"});
}

bool is_nucleotide(std::string_view name) {
  return is_one_of(
      name, {"DA", "DC", "DG", "DT", "DU", "A", "C", "G", "U", "ADE", "CYT", "GUA", "THY", "URA"});
}

struct Residue {
  std::string name;
  std::string chain;
  std::vector<std::size_t> atoms;  // indices into the structure
};

// Residues by (chain, number, insertion code), in order of first appearance.
std::vector<Residue> residues_of(std::span<const Atom> atoms) {
  std::vector<Residue> residues;
  std::map<std::tuple<std::string, int, char>, std::size_t> index;
  for (std::size_t i = 0; i < atoms.size(); ++i) {
    const Atom& a = atoms[i];
    const auto [it, inserted] =
        index.try_emplace({a.chain, a.residue_number, a.insertion_code}, residues.size());
    if (inserted) residues.push_back({a.residue_name, a.chain, {}});
    residues[it->second].atoms.push_back(i);
  }
  return residues;
}

// An amino acid residue: one with an alpha carbon (a calcium ion, residue
// "CA", is not).
bool is_amino_acid(const Residue& residue, std::span<const Atom> atoms) {
  if (residue.name == "CA") return false;
  return std::any_of(residue.atoms.begin(), residue.atoms.end(),
                     [&](std::size_t i) { return atoms[i].name == "CA"; });
}

class Assigner {
 public:
  Assigner(std::span<const Atom> atoms, double ph) : atoms_(atoms), ph_(ph) {
    result_.charge.assign(atoms.size(), 0.0);
  }

  // Spreads `charge` evenly over the heavy atoms of `residue` named in
  // `carriers` (those that pass `keep`); the group counts when it has any.
  template <typename Keep>
  void add(const Residue& residue, std::initializer_list<std::string_view> carriers, double charge,
           Keep keep) {
    std::vector<std::size_t> present;
    for (const std::size_t i : residue.atoms) {
      const Atom& a = atoms_[i];
      if (!hydrogen(a) && is_one_of(a.name, carriers) && keep(i)) present.push_back(i);
    }
    if (present.empty()) return;
    for (const std::size_t i : present) {
      result_.charge[i] += charge / static_cast<double>(present.size());
    }
    result_.net_charge += charge;
    ++result_.charged_groups;
  }

  void add(const Residue& residue, std::initializer_list<std::string_view> carriers,
           GroupIndex group) {
    add(residue, carriers, group_charge(table()[group], ph_), [](std::size_t) { return true; });
  }

  AtomCharges take() { return std::move(result_); }

 private:
  std::span<const Atom> atoms_;
  double ph_;
  AtomCharges result_;
};

// True when the SG atom `i` lies within bonding distance of another SG.
bool in_disulfide(std::size_t i, std::span<const Atom> atoms, std::span<const std::size_t> sgs) {
  const Vec3& p = atoms[i].position;
  return std::any_of(sgs.begin(), sgs.end(), [&](std::size_t j) {
    if (j == i) return false;
    const Vec3& q = atoms[j].position;
    const double dx = p.x - q.x, dy = p.y - q.y, dz = p.z - q.z;
    return dx * dx + dy * dy + dz * dz < kDisulfideCutoff * kDisulfideCutoff;
  });
}

}  // namespace

std::span<const IonisableGroup> ionisable_groups() { return table(); }

double group_charge(const IonisableGroup& group, double ph) {
  return group.acid ? -1.0 / (1.0 + std::pow(10.0, group.pka - ph))
                    : 1.0 / (1.0 + std::pow(10.0, ph - group.pka));
}

AtomCharges titration_charges(std::span<const Atom> atoms, double ph) {
  if (!std::isfinite(ph) || ph < 0.0 || ph > 14.0) {
    std::ostringstream text;
    text << "pH must be between 0 and 14 (got " << ph << ")";
    throw Error(text.str());
  }
  const std::vector<Residue> residues = residues_of(atoms);

  std::vector<std::size_t> sulfurs;  // every heavy SG, whatever its residue
  for (std::size_t i = 0; i < atoms.size(); ++i) {
    if (atoms[i].name == "SG" && !hydrogen(atoms[i])) sulfurs.push_back(i);
  }

  // The first and last amino acid residue of each chain.
  std::map<std::string, std::pair<std::size_t, std::size_t>> termini;
  for (std::size_t r = 0; r < residues.size(); ++r) {
    if (!is_amino_acid(residues[r], atoms)) continue;
    const auto [it, inserted] = termini.try_emplace(residues[r].chain, r, r);
    if (!inserted) it->second.second = r;
  }

  Assigner assign(atoms, ph);
  for (const Residue& residue : residues) {
    const std::string& name = residue.name;
    if (name == "ASP") {
      assign.add(residue, {"OD1", "OD2"}, kAsp);
    } else if (name == "GLU") {
      assign.add(residue, {"OE1", "OE2"}, kGlu);
    } else if (is_histidine(name)) {
      assign.add(residue, {"ND1", "NE2"}, kHis);
    } else if (name == "LYS") {
      assign.add(residue, {"NZ"}, kLys);
    } else if (name == "ARG") {
      assign.add(residue, {"NE", "NH1", "NH2"}, kArg);
    } else if (name == "TYR") {
      assign.add(residue, {"OH"}, kTyr);
    } else if (name == "CYS") {
      assign.add(residue, {"SG"}, group_charge(table()[kCys], ph),
                 [&](std::size_t i) { return !in_disulfide(i, atoms, sulfurs); });
    } else if (is_nucleotide(name)) {
      assign.add(residue, {"OP1", "OP2", "O1P", "O2P"}, kPhosphateCharge,
                 [](std::size_t) { return true; });
    }
  }
  for (const auto& [chain, ends] : termini) {
    assign.add(residues[ends.first], {"N"}, kNTerm);
    // O and OXT of a carboxylate, or O alone where the file has no OXT (as
    // NMR files often do); CHARMM names them OT1 and OT2.
    assign.add(residues[ends.second], {"O", "OXT", "OT1", "OT2"}, kCTerm);
  }
  return assign.take();
}

}  // namespace vorn
