// Hydrogens of the standard residues placed from their heavy atoms: one
// table of hydrogen groups (names, the atom they hang on, the geometry, the
// atoms that orient them) for all residues, and one placement rule per
// geometry.
#include "vorn/hydrogens.hpp"

#include <algorithm>
#include <cmath>
#include <map>
#include <numbers>
#include <string>
#include <string_view>

#include "vorn/error.hpp"

namespace vorn {
namespace {

// How a group of hydrogens is placed on its parent atom P from the
// reference atoms a, b, c (u_x: the unit vector from P towards x).
enum class Shape {
  // One H of an sp3 CH: at the same angle to a, b and c, on the side away
  // from them. With the three heavy-atom angles equal this is the direction
  // opposite u_a + u_b + u_c; where they differ (X-ray structures) it keeps
  // the three Y-X-H angles equal rather than letting them spread.
  tetrahedral_one,
  // Two H of an sp3 CH2 with neighbours a and b: in the plane that bisects
  // a-P-b, H-P-H at the tetrahedral angle, symmetric about the external
  // bisector of a-P-b. Seen from the first name, the turn from a to b
  // around P is clockwise: with a the neighbour nearer the backbone (or
  // lower in the nucleotide numbering) this is the PDB's (IUPAC) naming,
  // HB2/HB3, HA2/HA3, H5'/H5''.
  tetrahedral_two,
  // One or three H on P, whose neighbour a is bonded to b: the angle a-P-H
  // tetrahedral (96 degrees on sulfur), the torsion b-a-P-H 180 degrees for
  // the first name, 60 and -60 for the second and third (staggered; the
  // PDB names a methyl's protons in this turn).
  staggered,
  // One H of an sp2 atom (aromatic CH, amide NH, ring NH): in the plane of
  // a-P-b on the external bisector of the angle.
  planar_one,
  // Two H of a planar NH2 on a, which is bonded to b: in the plane of b, a
  // and P at 120 degrees from a; the first cis to b, the second trans.
  planar_two,
};

// When a group applies.
enum class Where {
  always,
  // The amide H: where C' of the residue before is bonded to N. Not at a
  // chain's start; after a chain break it cannot be placed.
  amide,
  // The first residue of its chain: NH3+ (proline: NH2+).
  n_terminus,
  // A cysteine's HG: not when SG is in a disulfide.
  free_thiol,
  // A histidine ring NH: unless the residue has one of HD1 and HE2.
  histidine,
  // HO5': the first residue of its chain, without a 5' phosphate.
  five_prime,
  // HO3': the last residue of its chain.
  three_prime,
};

struct Group {
  std::string_view residues;  // the residues it belongs to
  std::string_view names;     // of the hydrogens, in the order of the shape
  std::string_view parent;    // the atom they hang on
  Shape shape;
  std::string_view references;  // a b (c); "-C": C' of the residue before
  Where where = Where::always;
};

constexpr std::string_view kAminoNotPro =
    "ALA ARG ASN ASP CYS GLN GLU GLY HIS ILE LEU LYS MET PHE SER THR TRP TYR VAL";
constexpr std::string_view kNucleotides = "DA DC DG DT A C G U";

// Every hydrogen group of the standard residues, in the order the
// hydrogens are added to a residue.
constexpr Group kGroups[] = {
    // Backbone.
    {kAminoNotPro, "H", "N", Shape::planar_one, "-C CA", Where::amide},
    {kAminoNotPro, "H1 H2 H3", "N", Shape::staggered, "CA C", Where::n_terminus},
    {"PRO", "H2 H3", "N", Shape::tetrahedral_two, "CA CD", Where::n_terminus},
    {"ALA ARG ASN ASP CYS GLN GLU HIS ILE LEU LYS MET PHE PRO SER THR TRP TYR VAL", "HA", "CA",
     Shape::tetrahedral_one, "N C CB"},
    {"GLY", "HA2 HA3", "CA", Shape::tetrahedral_two, "N C"},
    // Beta.
    {"ARG ASN ASP GLN GLU HIS LEU LYS MET PHE PRO TRP TYR", "HB2 HB3", "CB", Shape::tetrahedral_two,
     "CA CG"},
    {"CYS", "HB2 HB3", "CB", Shape::tetrahedral_two, "CA SG"},
    {"SER", "HB2 HB3", "CB", Shape::tetrahedral_two, "CA OG"},
    {"ILE VAL", "HB", "CB", Shape::tetrahedral_one, "CA CG1 CG2"},
    {"THR", "HB", "CB", Shape::tetrahedral_one, "CA OG1 CG2"},
    {"ALA", "HB1 HB2 HB3", "CB", Shape::staggered, "CA N"},
    // Gamma.
    {"ARG GLN GLU LYS PRO", "HG2 HG3", "CG", Shape::tetrahedral_two, "CB CD"},
    {"MET", "HG2 HG3", "CG", Shape::tetrahedral_two, "CB SD"},
    {"LEU", "HG", "CG", Shape::tetrahedral_one, "CB CD1 CD2"},
    {"ILE", "HG12 HG13", "CG1", Shape::tetrahedral_two, "CB CD1"},
    {"ILE THR", "HG21 HG22 HG23", "CG2", Shape::staggered, "CB CA"},
    {"VAL", "HG11 HG12 HG13", "CG1", Shape::staggered, "CB CA"},
    {"VAL", "HG21 HG22 HG23", "CG2", Shape::staggered, "CB CA"},
    {"SER", "HG", "OG", Shape::staggered, "CB CA"},
    {"THR", "HG1", "OG1", Shape::staggered, "CB CA"},
    {"CYS", "HG", "SG", Shape::staggered, "CB CA", Where::free_thiol},
    // Delta.
    {"ARG", "HD2 HD3", "CD", Shape::tetrahedral_two, "CG NE"},
    {"LYS", "HD2 HD3", "CD", Shape::tetrahedral_two, "CG CE"},
    {"PRO", "HD2 HD3", "CD", Shape::tetrahedral_two, "CG N"},
    {"ILE", "HD11 HD12 HD13", "CD1", Shape::staggered, "CG1 CB"},
    {"LEU", "HD11 HD12 HD13", "CD1", Shape::staggered, "CG CB"},
    {"LEU", "HD21 HD22 HD23", "CD2", Shape::staggered, "CG CB"},
    {"ASN", "HD21 HD22", "ND2", Shape::planar_two, "CG CB"},
    {"HIS", "HD1", "ND1", Shape::planar_one, "CG CE1", Where::histidine},
    {"HIS", "HD2", "CD2", Shape::planar_one, "CG NE2"},
    {"PHE TYR", "HD1", "CD1", Shape::planar_one, "CG CE1"},
    {"PHE TYR", "HD2", "CD2", Shape::planar_one, "CG CE2"},
    {"TRP", "HD1", "CD1", Shape::planar_one, "CG NE1"},
    // Epsilon and beyond.
    {"LYS", "HE2 HE3", "CE", Shape::tetrahedral_two, "CD NZ"},
    {"MET", "HE1 HE2 HE3", "CE", Shape::staggered, "SD CG"},
    {"ARG", "HE", "NE", Shape::planar_one, "CD CZ"},
    {"GLN", "HE21 HE22", "NE2", Shape::planar_two, "CD CG"},
    {"HIS", "HE1", "CE1", Shape::planar_one, "ND1 NE2"},
    {"HIS", "HE2", "NE2", Shape::planar_one, "CD2 CE1", Where::histidine},
    {"PHE TYR", "HE1", "CE1", Shape::planar_one, "CD1 CZ"},
    {"PHE TYR", "HE2", "CE2", Shape::planar_one, "CD2 CZ"},
    {"TRP", "HE1", "NE1", Shape::planar_one, "CD1 CE2"},
    {"TRP", "HE3", "CE3", Shape::planar_one, "CD2 CZ3"},
    {"PHE", "HZ", "CZ", Shape::planar_one, "CE1 CE2"},
    {"TRP", "HZ2", "CZ2", Shape::planar_one, "CE2 CH2"},
    {"TRP", "HZ3", "CZ3", Shape::planar_one, "CE3 CH2"},
    {"LYS", "HZ1 HZ2 HZ3", "NZ", Shape::staggered, "CE CD"},
    {"TRP", "HH2", "CH2", Shape::planar_one, "CZ2 CZ3"},
    {"TYR", "HH", "OH", Shape::staggered, "CZ CE2"},
    {"ARG", "HH11 HH12", "NH1", Shape::planar_two, "CZ NE"},
    {"ARG", "HH21 HH22", "NH2", Shape::planar_two, "CZ NE"},
    // Sugars. H2'' of DNA takes the place of RNA's O2'.
    {kNucleotides, "HO5'", "O5'", Shape::staggered, "C5' C4'", Where::five_prime},
    {kNucleotides, "H5' H5''", "C5'", Shape::tetrahedral_two, "C4' O5'"},
    {kNucleotides, "H4'", "C4'", Shape::tetrahedral_one, "C3' O4' C5'"},
    {kNucleotides, "H3'", "C3'", Shape::tetrahedral_one, "C2' C4' O3'"},
    {kNucleotides, "HO3'", "O3'", Shape::staggered, "C3' C4'", Where::three_prime},
    // H2' on the side of the base, as in RNA.
    {"DA DC DG DT", "H2' H2''", "C2'", Shape::tetrahedral_two, "C3' C1'"},
    {"A C G U", "H2'", "C2'", Shape::tetrahedral_one, "C1' C3' O2'"},
    {"A C G U", "HO2'", "O2'", Shape::staggered, "C2' C3'"},
    {"DA DG A G", "H1'", "C1'", Shape::tetrahedral_one, "O4' C2' N9"},
    {"DC DT C U", "H1'", "C1'", Shape::tetrahedral_one, "O4' C2' N1"},
    // Bases. The amino protons are named from the Watson-Crick edge: H61,
    // H21, H41 cis to N1, N1, N3.
    {"DA DG A G", "H8", "C8", Shape::planar_one, "N7 N9"},
    {"DA A", "H2", "C2", Shape::planar_one, "N1 N3"},
    {"DA A", "H61 H62", "N6", Shape::planar_two, "C6 N1"},
    {"DG G", "H1", "N1", Shape::planar_one, "C2 C6"},
    {"DG G", "H21 H22", "N2", Shape::planar_two, "C2 N1"},
    {"DC C", "H41 H42", "N4", Shape::planar_two, "C4 N3"},
    {"DT U", "H3", "N3", Shape::planar_one, "C2 C4"},
    {"DC C U", "H5", "C5", Shape::planar_one, "C4 C6"},
    {"DC DT C U", "H6", "C6", Shape::planar_one, "C5 N1"},
    {"DT", "H71 H72 H73", "C7", Shape::staggered, "C5 C4"},
};

// C'(i-1) farther from N(i), or P(i+1) from O3'(i): a chain break.
constexpr double kLinkMax = 2.0;
// SG atoms closer than this form a disulfide (the bond is about 2.05 A).
constexpr double kDisulfideCutoff = 2.5;
// A hydrogen of the structure closer than this to a group's parent counts
// as one of the group's (whatever its name).
constexpr double kBondedHydrogen = 1.3;
constexpr double kBondedHydrogenOnSulfur = 1.5;

std::vector<std::string_view> words(std::string_view text) {
  std::vector<std::string_view> result;
  std::size_t i = 0;
  while (i < text.size()) {
    while (i < text.size() && text[i] == ' ') ++i;
    const std::size_t start = i;
    while (i < text.size() && text[i] != ' ') ++i;
    if (i > start) result.push_back(text.substr(start, i - start));
  }
  return result;
}

// A group with its names and references split.
struct Prepared {
  const Group* group = nullptr;
  std::vector<std::string_view> names, references;
};

// The groups of each residue name, in table order.
const std::map<std::string, std::vector<Prepared>, std::less<>>& groups_by_residue() {
  static const auto table = [] {
    std::map<std::string, std::vector<Prepared>, std::less<>> map;
    for (const Group& g : kGroups) {
      const Prepared prepared{&g, words(g.names), words(g.references)};
      for (std::string_view residue : words(g.residues))
        map[std::string(residue)].push_back(prepared);
    }
    return map;
  }();
  return table;
}

Vec3 minus(const Vec3& a, const Vec3& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
Vec3 plus(const Vec3& a, const Vec3& b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
Vec3 scaled(const Vec3& v, double s) { return {v.x * s, v.y * s, v.z * s}; }
double dot(const Vec3& a, const Vec3& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
Vec3 cross(const Vec3& a, const Vec3& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
double norm(const Vec3& v) { return std::sqrt(dot(v, v)); }
double distance(const Vec3& a, const Vec3& b) { return norm(minus(a, b)); }

// Below this length a direction is undefined (atoms on top of each other,
// or collinear where a plane is needed).
constexpr double kDegenerate = 1e-6;

bool unit(const Vec3& v, Vec3& u) {
  const double n = norm(v);
  if (!(n > kDegenerate)) return false;
  u = {v.x / n, v.y / n, v.z / n};
  return true;
}

double radians(double degrees) { return degrees * std::numbers::pi / 180.0; }

// The point at `length` from c with the angle b-c-d `angle` and the torsion
// a-b-c-d `torsion` (radians).
bool place_by_torsion(const Vec3& a, const Vec3& b, const Vec3& c, double length, double angle,
                      double torsion, Vec3& d) {
  Vec3 bc, n;
  if (!unit(minus(c, b), bc) || !unit(cross(minus(b, a), bc), n)) return false;
  const Vec3 m = cross(n, bc);
  const Vec3 local{-length * std::cos(angle), length * std::sin(angle) * std::cos(torsion),
                   length * std::sin(angle) * std::sin(torsion)};
  d = plus(c, plus(scaled(bc, local.x), plus(scaled(m, local.y), scaled(n, local.z))));
  return true;
}

double bond_length(std::string_view parent) {
  switch (parent.front()) {
    case 'N':
      return kNitrogenHydrogenLength;
    case 'O':
      return kOxygenHydrogenLength;
    case 'S':
      return kSulfurHydrogenLength;
    default:
      return kCarbonHydrogenLength;
  }
}

// The positions of a group's hydrogens, in the order of its names; false
// where the geometry is degenerate.
bool place(const Group& g, std::size_t count, const Vec3& p, const std::vector<Vec3>& r,
           std::vector<Vec3>& out) {
  const double length = bond_length(g.parent);
  out.clear();
  switch (g.shape) {
    case Shape::tetrahedral_one: {
      // The normal of the plane through the tips of u_a, u_b, u_c, away
      // from the neighbours: the H makes the same angle with all three.
      Vec3 ua, ub, uc, axis;
      if (!unit(minus(r[0], p), ua) || !unit(minus(r[1], p), ub) || !unit(minus(r[2], p), uc) ||
          !unit(cross(minus(ub, ua), minus(uc, ua)), axis)) {
        return false;
      }
      if (dot(axis, plus(ua, plus(ub, uc))) > 0.0) axis = scaled(axis, -1.0);
      out.push_back(plus(p, scaled(axis, length)));
      return true;
    }
    case Shape::tetrahedral_two: {
      Vec3 ua, ub, bisector, normal;
      if (!unit(minus(r[0], p), ua) || !unit(minus(r[1], p), ub) ||
          !unit(scaled(plus(ua, ub), -1.0), bisector) || !unit(cross(ua, ub), normal)) {
        return false;
      }
      const double half = radians(kTetrahedralAngle) / 2.0;
      const Vec3 along = scaled(bisector, length * std::cos(half));
      const Vec3 across = scaled(normal, length * std::sin(half));
      out.push_back(plus(p, minus(along, across)));
      out.push_back(plus(p, plus(along, across)));
      return true;
    }
    case Shape::staggered: {
      const double angle = radians(g.parent.front() == 'S' ? kThiolAngle : kTetrahedralAngle);
      constexpr double kTorsions[] = {180.0, 60.0, -60.0};
      for (std::size_t k = 0; k < count; ++k) {
        Vec3 h;
        if (!place_by_torsion(r[1], r[0], p, length, angle, radians(kTorsions[k]), h)) return false;
        out.push_back(h);
      }
      return true;
    }
    case Shape::planar_one: {
      // As backbone_sites builds the amide H, to the last bit.
      Vec3 from_a, from_b, bisector;
      if (!unit(minus(p, r[0]), from_a) || !unit(minus(p, r[1]), from_b) ||
          !unit(Vec3{from_a.x + from_b.x, from_a.y + from_b.y, from_a.z + from_b.z}, bisector)) {
        return false;
      }
      out.push_back(
          {p.x + length * bisector.x, p.y + length * bisector.y, p.z + length * bisector.z});
      return true;
    }
    case Shape::planar_two: {
      const double angle = radians(kTrigonalAngle);
      for (const double torsion : {0.0, std::numbers::pi}) {
        Vec3 h;
        if (!place_by_torsion(r[1], r[0], p, length, angle, torsion, h)) return false;
        out.push_back(h);
      }
      return true;
    }
  }
  return false;
}

bool is_h(const Atom& a) { return a.element == "H" || a.element == "D"; }

bool same_residue(const Atom& a, const Atom& b) {
  return a.chain == b.chain && a.residue_number == b.residue_number &&
         a.insertion_code == b.insertion_code;
}

struct Run {
  std::size_t begin = 0, end = 0;  // atoms [begin, end)
};

class ResidueAtoms {
 public:
  ResidueAtoms(std::span<const Atom> atoms, Run run) : atoms_(atoms), run_(run) {}
  const Atom* find(std::string_view name) const {
    for (std::size_t i = run_.begin; i < run_.end; ++i)
      if (atoms_[i].name == name) return &atoms_[i];
    return nullptr;
  }
  // A hydrogen by its name, the amide H also as "HN".
  bool has_hydrogen(std::string_view name) const {
    return find(name) != nullptr || (name == "H" && find("HN") != nullptr);
  }
  int hydrogens_bonded_to(const Atom& parent) const {
    const double cutoff = parent.name.front() == 'S' ? kBondedHydrogenOnSulfur : kBondedHydrogen;
    int n = 0;
    for (std::size_t i = run_.begin; i < run_.end; ++i)
      if (is_h(atoms_[i]) && distance(atoms_[i].position, parent.position) < cutoff) ++n;
    return n;
  }
  const Atom& first() const { return atoms_[run_.begin]; }
  std::span<const Atom> all() const { return atoms_.subspan(run_.begin, run_.end - run_.begin); }

 private:
  std::span<const Atom> atoms_;
  Run run_;
};

// Whether a group applies to a residue: yes, no, or it should but cannot
// be placed (a chain break).
enum class Applies { yes, no, unplaceable };

}  // namespace

bool has_hydrogens(std::span<const Atom> atoms) {
  return std::any_of(atoms.begin(), atoms.end(), is_h);
}

AddedHydrogens add_hydrogens(std::span<const Atom> atoms) {
  for (const Atom& a : atoms) {
    const Vec3& p = a.position;
    if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) {
      throw Error("add_hydrogens: atom " + a.name + " of residue " +
                  std::to_string(a.residue_number) + " has a coordinate that is not finite");
    }
  }
  std::vector<Run> runs;
  for (std::size_t i = 0; i < atoms.size(); ++i) {
    if (runs.empty() || !same_residue(atoms[runs.back().begin], atoms[i])) {
      runs.push_back({i, i + 1});
    } else {
      runs.back().end = i + 1;
    }
  }
  std::vector<const Atom*> sulfurs;
  for (const Atom& a : atoms)
    if (a.name == "SG" && !is_h(a)) sulfurs.push_back(&a);

  // How each residue follows the one before: bonded to it (C'-N of a
  // peptide, O3'-P of a nucleic acid), starting a chain, or after a gap.
  // A residue not bonded to the one before starts a chain where the chain
  // identifier changes, or where its number follows the one before (files
  // without chain identifiers, where chains follow each other); otherwise
  // residues are missing before it.
  const std::size_t n_runs = runs.size();
  std::vector<const Atom*> previous_c(n_runs, nullptr);
  std::vector<char> linked(n_runs, 0), starts_chain(n_runs, 0);
  for (std::size_t k = 0; k < n_runs; ++k) {
    const Atom& here = atoms[runs[k].begin];
    if (k == 0 || atoms[runs[k - 1].begin].chain != here.chain) {
      starts_chain[k] = 1;
      continue;
    }
    const ResidueAtoms before(atoms, runs[k - 1]), residue(atoms, runs[k]);
    const auto bonded = [](const Atom* a, const Atom* b) {
      return a != nullptr && b != nullptr && distance(a->position, b->position) <= kLinkMax;
    };
    if (bonded(before.find("C"), residue.find("N"))) {
      previous_c[k] = before.find("C");
      linked[k] = 1;
    } else if (bonded(before.find("O3'"), residue.find("P"))) {
      linked[k] = 1;
    } else {
      const Atom& last = before.first();
      starts_chain[k] = here.residue_number == last.residue_number + 1 ||
                        here.residue_number == last.residue_number;
    }
  }

  AddedHydrogens result;
  result.atoms.reserve(atoms.size() * 2);
  const auto& table = groups_by_residue();
  std::vector<Vec3> references, placed;
  for (std::size_t k = 0; k < n_runs; ++k) {
    const ResidueAtoms residue(atoms, runs[k]);
    const Atom& first = residue.first();
    for (const Atom& a : residue.all()) result.atoms.push_back(a);
    const auto found = table.find(first.residue_name);
    if (found == table.end()) {
      ++result.unknown_residues;
      continue;
    }
    const bool chain_start = starts_chain[k] != 0;
    const bool chain_end = k + 1 == n_runs || starts_chain[k + 1] != 0;
    const auto applies = [&](Where where) {
      switch (where) {
        case Where::always:
          return Applies::yes;
        case Where::amide:
          if (chain_start) return Applies::no;
          return previous_c[k] != nullptr ? Applies::yes : Applies::unplaceable;
        case Where::n_terminus:
          return chain_start ? Applies::yes : Applies::no;
        case Where::free_thiol: {
          const Atom* sg = residue.find("SG");
          if (sg == nullptr) return Applies::yes;  // then counted as unplaced
          for (const Atom* other : sulfurs) {
            if (other != sg && distance(other->position, sg->position) < kDisulfideCutoff)
              return Applies::no;
          }
          return Applies::yes;
        }
        case Where::histidine:
          return residue.find("HD1") != nullptr || residue.find("HE2") != nullptr ? Applies::no
                                                                                  : Applies::yes;
        case Where::five_prime:
          if (residue.find("P") != nullptr) return Applies::no;
          return chain_start ? Applies::yes : Applies::unplaceable;
        case Where::three_prime:
          if (chain_end) return Applies::yes;
          return linked[k + 1] != 0 ? Applies::no : Applies::unplaceable;
      }
      return Applies::no;
    };

    int unplaced = 0;
    for (const Prepared& prepared : found->second) {
      const Group* g = prepared.group;
      const Applies state = applies(g->where);
      if (state == Applies::no) continue;
      const std::vector<std::string_view>& names = prepared.names;
      std::vector<std::size_t> missing;  // positions in `names`
      for (std::size_t i = 0; i < names.size(); ++i)
        if (!residue.has_hydrogen(names[i])) missing.push_back(i);
      if (missing.empty()) continue;
      const Atom* parent = residue.find(g->parent);
      if (parent != nullptr &&
          residue.hydrogens_bonded_to(*parent) >= static_cast<int>(names.size())) {
        continue;  // all there, under other names
      }
      bool complete = state == Applies::yes && parent != nullptr;
      references.clear();
      for (std::string_view ref : prepared.references) {
        if (!complete) break;
        const Atom* atom = ref == "-C" ? previous_c[k] : residue.find(ref);
        if (atom == nullptr) {
          complete = false;
        } else {
          references.push_back(atom->position);
        }
      }
      if (!complete || !place(*g, names.size(), parent->position, references, placed)) {
        unplaced += static_cast<int>(missing.size());
        continue;
      }
      for (std::size_t i : missing) {
        Atom h = *parent;
        h.name = std::string(names[i]);
        h.element = "H";
        h.position = placed[i];
        result.added.push_back(result.atoms.size());
        result.atoms.push_back(std::move(h));
      }
    }
    if (unplaced > 0) {
      result.unplaced += unplaced;
      ++result.incomplete_residues;
    }
  }
  return result;
}

}  // namespace vorn
