// Backbone coupling sites of protein residues.
#include <cmath>
#include <optional>
#include <string>

#include "vorn/couplings.hpp"
#include "vorn/error.hpp"

namespace vorn {

namespace {

constexpr double kPeptideBondMax = 2.0;  // C'(i-1)-N(i) farther apart: a chain break
constexpr double kAmideHydrogenDistance = 1.02;

struct Residue {
  std::size_t begin = 0, end = 0;  // atoms [begin, end)
};

bool same_residue(const Atom& a, const Atom& b) {
  return a.chain == b.chain && a.residue_number == b.residue_number &&
         a.insertion_code == b.insertion_code;
}

Vec3 minus(const Vec3& a, const Vec3& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
double norm(const Vec3& v) { return std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z); }
Vec3 unit(const Vec3& v) {
  const double n = norm(v);
  return {v.x / n, v.y / n, v.z / n};
}

class ResidueView {
 public:
  ResidueView(std::span<const Atom> atoms, Residue r) : atoms_(atoms), r_(r) {}
  const Atom* find(std::string_view name) const {
    for (std::size_t i = r_.begin; i < r_.end; ++i)
      if (atoms_[i].name == name) return &atoms_[i];
    return nullptr;
  }
  const Atom* amide_hydrogen() const {
    const Atom* h = find("H");
    return h != nullptr ? h : find("HN");
  }
  const Atom& first() const { return atoms_[r_.begin]; }

 private:
  std::span<const Atom> atoms_;
  Residue r_;
};

CouplingSite site(const Atom& residue_atom, const char* type, const Atom& a1, const Atom& a2) {
  CouplingSite s;
  s.chain = residue_atom.chain;
  s.residue_number = residue_atom.residue_number;
  s.insertion_code = residue_atom.insertion_code;
  s.residue_name = residue_atom.residue_name;
  s.type = type;
  s.atom1 = a1.name;
  s.atom1_residue_number = a1.residue_number;
  s.atom1_insertion_code = a1.insertion_code;
  s.atom1_residue_name = a1.residue_name;
  s.atom2 = a2.name;
  s.element1 = a1.element;
  s.element2 = a2.element;
  s.vector = minus(a2.position, a1.position);
  return s;
}

}  // namespace

double standard_distance(std::string_view type) {
  if (type == "N-H") return 1.02;
  if (type == "CA-HA") return 1.09;
  if (type == "CA-C") return 1.525;
  if (type == "C-N") return 1.329;
  if (type == "C-HN") return 2.04;
  throw Error("no standard distance for coupling type '" + std::string(type) + "'");
}

BackboneSites backbone_sites(std::span<const Atom> atoms, bool build_amide_hydrogens) {
  std::vector<Residue> residues;
  for (std::size_t i = 0; i < atoms.size(); ++i) {
    if (residues.empty() || !same_residue(atoms[residues.back().begin], atoms[i])) {
      residues.push_back({i, i + 1});
    } else {
      residues.back().end = i + 1;
    }
  }
  bool any_amide_hydrogen = false;
  for (const Residue& r : residues) {
    if (ResidueView(atoms, r).amide_hydrogen() != nullptr) any_amide_hydrogen = true;
  }
  const bool build = build_amide_hydrogens && !any_amide_hydrogen;

  BackboneSites result;
  for (std::size_t k = 0; k < residues.size(); ++k) {
    const ResidueView res(atoms, residues[k]);
    const Atom& first = res.first();
    const Atom* n = res.find("N");
    const Atom* ca = res.find("CA");
    const Atom* c = res.find("C");
    // C' of the preceding residue when it is bonded to this N.
    const Atom* c_prev = nullptr;
    if (k > 0 && n != nullptr) {
      const ResidueView prev(atoms, residues[k - 1]);
      const Atom* pc = prev.find("C");
      if (pc != nullptr && prev.first().chain == first.chain &&
          norm(minus(n->position, pc->position)) <= kPeptideBondMax) {
        c_prev = pc;
      }
    }
    const Atom* h = res.amide_hydrogen();
    std::optional<Atom> built;
    if (h == nullptr && build && n != nullptr && ca != nullptr && c_prev != nullptr &&
        first.residue_name != "PRO") {
      // External bisector: away from both bonded atoms, in their plane.
      const Vec3 from_c = unit(minus(n->position, c_prev->position));
      const Vec3 from_ca = unit(minus(n->position, ca->position));
      const Vec3 bisector =
          unit(Vec3{from_c.x + from_ca.x, from_c.y + from_ca.y, from_c.z + from_ca.z});
      Atom hydrogen = *n;
      hydrogen.name = "H";
      hydrogen.element = "H";
      hydrogen.position = {n->position.x + kAmideHydrogenDistance * bisector.x,
                           n->position.y + kAmideHydrogenDistance * bisector.y,
                           n->position.z + kAmideHydrogenDistance * bisector.z};
      built = hydrogen;
      h = &*built;
      ++result.built_hydrogens;
    }

    if (n != nullptr && h != nullptr) {
      result.sites.push_back(site(first, "N-H", *n, *h));
      result.sites.back().built_hydrogen = built.has_value();
    }
    if (ca != nullptr) {
      static const std::vector<std::string> kGlycine{"HA2", "HA3"};
      static const std::vector<std::string> kOthers{"HA"};
      for (const std::string& name : first.residue_name == "GLY" ? kGlycine : kOthers) {
        if (const Atom* ha = res.find(name)) result.sites.push_back(site(first, "CA-HA", *ca, *ha));
      }
      if (c != nullptr) result.sites.push_back(site(first, "CA-C", *ca, *c));
    }
    if (c_prev != nullptr) {
      result.sites.push_back(site(first, "C-N", *c_prev, *n));
      if (h != nullptr) {
        result.sites.push_back(site(first, "C-HN", *c_prev, *h));
        result.sites.back().built_hydrogen = built.has_value();
      }
    }
  }
  return result;
}

}  // namespace vorn
