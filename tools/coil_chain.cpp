// Growing coil conformers: geometry by internal coordinates, the clash test
// on a cell list, residue-by-residue growth with backtracking (docs/coil.md).
#include "coil_chain.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <stdexcept>
#include <string>
#include <utility>

#include "vorn/hydrogens.hpp"

namespace vorn_tools::coil {
namespace {

using vorn::Vec3;

constexpr double kDegree = std::numbers::pi / 180.0;
// Draws of one residue before the growth backs up, and how far it backs up.
constexpr int kTriesPerResidue = 20;
constexpr std::size_t kBacktrackResidues = 3;
constexpr int kMaxRestarts = 100;

Vec3 operator-(const Vec3& a, const Vec3& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
Vec3 operator+(const Vec3& a, const Vec3& b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
Vec3 operator*(double s, const Vec3& a) { return {s * a.x, s * a.y, s * a.z}; }
double dot(const Vec3& a, const Vec3& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
Vec3 cross(const Vec3& a, const Vec3& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
double norm(const Vec3& a) { return std::sqrt(dot(a, a)); }

// N, CA, C of a residue in a fixed frame, for the one-off solutions below.
struct Frame {
  Vec3 n, ca, c;
};
Frame ideal_frame() {
  const double t = kAngleNitrogenAlphaCarbonyl * kDegree;
  const Vec3 ca{kBondNitrogenAlpha, 0.0, 0.0};
  return {{0.0, 0.0, 0.0}, ca, ca + kBondAlphaCarbonyl * Vec3{-std::cos(t), std::sin(t), 0.0}};
}

// A root of f in [low, high] by bisection; f(low) and f(high) differ in sign.
template <typename Function>
double bisect(Function f, double low, double high) {
  double f_low = f(low);
  if ((f_low > 0.0) == (f(high) > 0.0)) throw std::logic_error("bisection without a sign change");
  for (int k = 0; k < 200; ++k) {
    const double mid = 0.5 * (low + high);
    const double f_mid = f(mid);
    if ((f_mid > 0.0) == (f_low > 0.0)) {
      low = mid;
      f_low = f_mid;
    } else {
      high = mid;
    }
  }
  return 0.5 * (low + high);
}

long long cell_key(const Vec3& p, double size) {
  const auto index = [size](double v) {
    return static_cast<long long>(std::floor(v / size)) + (1LL << 20);
  };
  return (index(p.x) << 42) | (index(p.y) << 21) | index(p.z);
}

}  // namespace

double clash_distance(const ClashRule& rule, std::string_view element_a,
                      std::string_view element_b) {
  const bool polar_a = element_a == "N" || element_a == "O";
  const bool polar_b = element_b == "N" || element_b == "O";
  if (polar_a && polar_b) return rule.polar_polar;
  if (!polar_a && !polar_b) return rule.carbon_carbon;
  const std::string_view polar = polar_a ? element_a : element_b;
  return polar == "N" ? rule.carbon_nitrogen : rule.carbon_oxygen;
}

double distance(const Vec3& a, const Vec3& b) { return norm(a - b); }

double bond_angle(const Vec3& a, const Vec3& b, const Vec3& c) {
  const Vec3 u = a - b, v = c - b;
  const double cosine = dot(u, v) / (norm(u) * norm(v));
  return std::acos(std::clamp(cosine, -1.0, 1.0)) / kDegree;
}

double dihedral(const Vec3& a, const Vec3& b, const Vec3& c, const Vec3& d) {
  const Vec3 b1 = c - b;
  const Vec3 axis = (1.0 / norm(b1)) * b1;
  const Vec3 u = a - b, w0 = d - c;
  const Vec3 v = u - dot(u, axis) * axis;
  const Vec3 w = w0 - dot(w0, axis) * axis;
  return wrap_degrees(std::atan2(dot(cross(axis, v), w), dot(v, w)) / kDegree);
}

double wrap_degrees(double angle) {
  double wrapped = std::fmod(angle, 360.0);
  if (wrapped <= -180.0) wrapped += 360.0;
  if (wrapped > 180.0) wrapped -= 360.0;
  return wrapped;
}

Vec3 place_atom(const Vec3& a, const Vec3& b, const Vec3& c, double bond, double angle,
                double torsion) {
  const Vec3 bc = c - b;
  const Vec3 normal = cross(b - a, bc);
  const double normal_length = norm(normal), bc_length = norm(bc);
  if (!(normal_length > 1e-12 * bc_length * norm(b - a))) {
    throw std::invalid_argument("place_atom: the three reference atoms are collinear");
  }
  const Vec3 x = (1.0 / bc_length) * bc;
  const Vec3 z = (1.0 / normal_length) * normal;
  const Vec3 y = cross(z, x);
  const double theta = angle * kDegree, phi = torsion * kDegree;
  const double along = -bond * std::cos(theta);
  const double across = bond * std::sin(theta);
  return c + along * x + (across * std::cos(phi)) * y + (across * std::sin(phi)) * z;
}

Dihedrals draw_dihedrals(std::span<const Basin> basins, SeededRandom& random) {
  const double u = random.uniform();
  std::size_t k = 0;
  double cumulative = basins[0].weight;
  while (u >= cumulative && k + 1 < basins.size()) cumulative += basins[++k].weight;
  const Basin& basin = basins[k];
  Dihedrals d;
  d.basin = k;
  d.phi = wrap_degrees(basin.phi + basin.phi_sd * random.normal());
  d.psi = wrap_degrees(basin.psi + basin.psi_sd * random.normal());
  return d;
}

double beta_torsion(double angle_nitrogen_alpha_beta) {
  const Frame f = ideal_frame();
  return bisect(
      [&](double t) {
        const Vec3 cb = place_atom(f.c, f.n, f.ca, kBondAlphaBeta, angle_nitrogen_alpha_beta, t);
        return bond_angle(f.c, f.ca, cb) - kAngleCarbonylAlphaBeta;
      },
      -180.0, 0.0);
}

double proline_ring_chi2() {
  const ResidueTemplate& pro = *find_residue('P');
  const Frame f = ideal_frame();
  const Vec3 cb = place_atom(f.c, f.n, f.ca, kBondAlphaBeta, pro.angle_nitrogen_alpha_beta,
                             beta_torsion(pro.angle_nitrogen_alpha_beta));
  const SideChainAtom& g = pro.side_chain[0];
  const SideChainAtom& d = pro.side_chain[1];
  const Vec3 cg = place_atom(f.n, f.ca, cb, g.bond, g.angle, pro.chi[0]);
  const auto gap = [&](double chi2) {
    return distance(place_atom(f.ca, cb, cg, d.bond, d.angle, chi2), f.n) - kBondProlineRing;
  };
  // CD-N has one minimum in chi2 and reaches the bond length on either side
  // of it; the pucker's ring (chi2 of the opposite sign to chi1, C-gamma exo
  // for a negative chi1) is the root past the minimum away from chi1.
  int closest = -90;  // degrees
  for (int chi2 = -90; chi2 <= 90; ++chi2) {
    if (gap(chi2) < gap(closest)) closest = chi2;
  }
  if (gap(closest) > 0.0) throw std::logic_error("the proline template cannot close its ring");
  const int step = pro.chi[0] < 0.0 ? 1 : -1;
  for (int end = closest + step; std::abs(end) <= 90; end += step) {
    if (gap(end) > 0.0) return bisect(gap, closest, end);
  }
  throw std::logic_error("the proline template cannot close its ring");
}

std::size_t heavy_atom_count(const ResidueTemplate& residue, bool last) {
  return 4 + (residue.has_beta ? 1 : 0) + residue.side_chain.size() + (last ? 1 : 0);
}

CoilChainBuilder::CoilChainBuilder(std::string sequence, ClashRule rule)
    : sequence_(std::move(sequence)), rule_(rule) {
  if (sequence_.empty()) throw std::invalid_argument("the sequence is empty");
  for (std::size_t i = 0; i < sequence_.size(); ++i) {
    const ResidueTemplate* residue = find_residue(sequence_[i]);
    if (residue == nullptr) {
      std::string message = "'";
      message += sequence_[i];
      message += "' at position ";
      message += std::to_string(i + 1);
      message +=
          " of the sequence is not the one-letter code of one of the 20 standard amino acids "
          "(ACDEFGHIKLMNPQRSTVWY)";
      throw std::invalid_argument(message);
    }
    residues_.push_back(residue);
  }
  const std::size_t n = residues_.size();
  for (std::size_t i = 0; i < n; ++i) {
    classes_.push_back(coil_class(sequence_[i], i + 1 < n ? sequence_[i + 1] : '\0'));
  }
  proline_chi2_ = proline_ring_chi2();
  constexpr std::string_view kClassElements[3] = {"C", "N", "O"};
  for (std::size_t a = 0; a < 3; ++a) {
    for (std::size_t b = 0; b < 3; ++b) {
      const double limit = clash_distance(rule_, kClassElements[a], kClassElements[b]);
      limit_squared_[3 * a + b] = limit * limit;
    }
  }
  for (const ResidueTemplate* r : residues_) {
    beta_torsions_.push_back(r->has_beta ? beta_torsion(r->angle_nitrogen_alpha_beta) : 0.0);
  }

  // Atoms, references and bonds.
  std::vector<std::pair<std::size_t, std::size_t>> bonds;
  for (std::size_t i = 0; i < n; ++i) {
    const ResidueTemplate& r = *residues_[i];
    const std::size_t base = atoms_.size();
    first_atom_.push_back(base);
    std::vector<std::string_view> names;
    const auto add = [&](std::string_view name, std::string_view element) {
      vorn::Atom atom;
      atom.name = std::string(name);
      atom.element = std::string(element);
      atom.residue_name = std::string(r.name);
      atom.residue_number = static_cast<int>(i + 1);
      atom.chain.push_back('A');  // not = "A": that trips a spurious -Wrestrict of GCC 12
      atoms_.push_back(atom);
      contact_class_.push_back(element == "N" ? 1U : element == "O" ? 2U : 0U);
      references_.push_back({0, 0, 0});
      names.push_back(name);
    };
    const auto local = [&](std::string_view name) {
      const auto it = std::find(names.begin(), names.end(), name);
      if (it == names.end()) throw std::logic_error("template atom without its reference");
      return base + static_cast<std::size_t>(it - names.begin());
    };
    add("N", "N");
    add("CA", "C");
    add("C", "C");
    add("O", "O");
    bonds.push_back({base, base + 1});
    bonds.push_back({base + 1, base + 2});
    bonds.push_back({base + 2, base + 3});
    if (i > 0) bonds.push_back({first_atom_[i - 1] + 2, base});
    if (r.has_beta) {
      add("CB", "C");
      bonds.push_back({base + 1, base + 4});
    }
    for (const SideChainAtom& s : r.side_chain) {
      const std::array<std::size_t, 3> refs{local(s.a), local(s.b), local(s.c)};
      add(s.name, s.element);
      references_.back() = refs;
      bonds.push_back({refs[2], atoms_.size() - 1});
    }
    for (const auto& closure : r.ring_closures)
      bonds.push_back({local(closure[0]), local(closure[1])});
    if (i + 1 == n) {
      add("OXT", "O");
      bonds.push_back({base + 2, atoms_.size() - 1});
    }
  }
  first_atom_.push_back(atoms_.size());

  // Pairs within three bonds: a breadth-first walk of depth 3 from each atom.
  const std::size_t count = atoms_.size();
  std::vector<std::vector<std::size_t>> neighbours(count);
  for (const auto& [a, b] : bonds) {
    neighbours[a].push_back(b);
    neighbours[b].push_back(a);
  }
  excluded_.resize(count);
  std::vector<int> depth(count, -1);
  for (std::size_t start = 0; start < count; ++start) {
    std::vector<std::size_t> reached{start}, frontier{start};
    depth[start] = 0;
    for (int level = 1; level <= 3; ++level) {
      std::vector<std::size_t> next;
      for (const std::size_t a : frontier) {
        for (const std::size_t b : neighbours[a]) {
          if (depth[b] < 0) {
            depth[b] = level;
            next.push_back(b);
            reached.push_back(b);
          }
        }
      }
      frontier = std::move(next);
    }
    for (const std::size_t a : reached) {
      if (a != start) excluded_[start].push_back(a);
      depth[a] = -1;
    }
    std::sort(excluded_[start].begin(), excluded_[start].end());
  }
  atom_cell_.assign(count, 0);
  unit_atoms_.resize(n);
  for (std::size_t i = 0; i < n; ++i) {
    std::vector<std::size_t>& unit = unit_atoms_[i];
    if (i == 0) unit = {0, 1};
    for (std::size_t a = first_atom_[i] + 2; a < first_atom_[i + 1]; ++a) unit.push_back(a);
    if (i + 1 < n) {
      unit.push_back(first_atom_[i + 1]);
      unit.push_back(first_atom_[i + 1] + 1);
    }
  }
}

void CoilChainBuilder::place_residue(std::size_t i, const Dihedrals& d) {
  const ResidueTemplate& r = *residues_[i];
  const std::size_t base = first_atom_[i];
  const auto at = [this](std::size_t k) -> Vec3& { return atoms_[k].position; };
  if (i == 0) {
    const Frame f = ideal_frame();
    at(base) = f.n;
    at(base + 1) = f.ca;
    at(base + 2) = f.c;
  } else {
    const std::size_t prev = first_atom_[i - 1];
    at(base + 2) = place_atom(at(prev + 2), at(base), at(base + 1), kBondAlphaCarbonyl,
                              kAngleNitrogenAlphaCarbonyl, d.phi);
  }
  const Vec3 n = at(base), ca = at(base + 1), c = at(base + 2);
  at(base + 3) =
      place_atom(n, ca, c, kBondCarbonylOxygen, kAngleAlphaCarbonylOxygen, d.psi + 180.0);
  std::size_t k = base + 4;
  if (r.has_beta) {
    at(k++) = place_atom(c, n, ca, kBondAlphaBeta, r.angle_nitrogen_alpha_beta, beta_torsions_[i]);
  }
  for (const SideChainAtom& s : r.side_chain) {
    double torsion = s.torsion;
    if (s.chi_index > 0) {
      const double chi =
          (r.code == 'P' && s.chi_index == 2) ? proline_chi2_ : r.chi[s.chi_index - 1];
      torsion += chi;
    }
    const auto& refs = references_[k];
    at(k) = place_atom(at(refs[0]), at(refs[1]), at(refs[2]), s.bond, s.angle, torsion);
    ++k;
  }
  if (i + 1 == residues_.size()) {
    at(k) = place_atom(n, ca, c, kBondCarbonylOxygen, kAngleAlphaCarbonylOxygen, d.psi);
  } else {
    const std::size_t next = first_atom_[i + 1];
    at(next) = place_atom(n, ca, c, kBondPeptide, kAngleAlphaCarbonylNitrogen, d.psi);
    at(next + 1) =
        place_atom(ca, c, at(next), kBondNitrogenAlpha, kAngleCarbonylNitrogenAlpha, kOmega);
  }
}

bool CoilChainBuilder::insert_residue(std::size_t i) {
  const double size = std::sqrt(*std::max_element(limit_squared_.begin(), limit_squared_.end()));
  const long long offsets[3] = {-1, 0, 1};
  const std::size_t start = inserted_.size();
  for (const std::size_t a : unit_atoms_[i]) {
    const Vec3& p = atoms_[a].position;
    const long long key = cell_key(p, size);
    const std::vector<std::size_t>& excluded = excluded_[a];
    for (const long long dx : offsets) {
      for (const long long dy : offsets) {
        for (const long long dz : offsets) {
          const auto it = cells_.find(key + (dx << 42) + (dy << 21) + dz);
          if (it == cells_.end()) continue;
          for (const std::size_t b : it->second) {
            const Vec3 d = p - atoms_[b].position;
            const double d2 = dot(d, d);
            const double limit = limit_squared_[3 * contact_class_[a] + contact_class_[b]];
            if (d2 < limit && !std::binary_search(excluded.begin(), excluded.end(), b)) {
              remove_to(start);
              return false;
            }
          }
        }
      }
    }
    cells_[key].push_back(a);
    atom_cell_[a] = key;
    inserted_.push_back(a);
  }
  return true;
}

void CoilChainBuilder::remove_to(std::size_t count) {
  while (inserted_.size() > count) {
    cells_[atom_cell_[inserted_.back()]].pop_back();
    inserted_.pop_back();
  }
}

std::vector<vorn::Atom> CoilChainBuilder::build_heavy_atoms(SeededRandom& random) {
  const std::size_t n = residues_.size();
  const long max_backtracks = 50 * static_cast<long>(n) + 100;
  for (int restart = 0;; ++restart) {
    remove_to(0);
    std::vector<int> tries(n, 0);
    // The number of atoms inserted before each residue's.
    std::vector<std::size_t> unit_start(n, 0);
    long backtracks = 0;
    std::size_t i = 0;
    while (i < n && backtracks <= max_backtracks) {
      const Dihedrals d = draw_dihedrals(classes_[i].basins, random);
      ++counts_.residues_drawn;
      place_residue(i, d);
      unit_start[i] = inserted_.size();
      if (insert_residue(i)) {
        ++i;
        continue;
      }
      if (++tries[i] < kTriesPerResidue) continue;
      const std::size_t back = std::min(i, kBacktrackResidues);
      std::fill(tries.begin() + static_cast<long>(i - back),
                tries.begin() + static_cast<long>(i) + 1, 0);
      i -= back;
      remove_to(unit_start[i]);
      ++backtracks;
      ++counts_.backtracks;
    }
    if (i == n) return atoms_;
    ++counts_.restarts;
    if (restart + 1 >= kMaxRestarts) {
      throw std::runtime_error("no clash-free conformer of the " + std::to_string(n) +
                               "-residue chain found in " + std::to_string(kMaxRestarts) +
                               " attempts");
    }
  }
}

std::vector<vorn::Atom> CoilChainBuilder::build(SeededRandom& random) {
  vorn::AddedHydrogens added = vorn::add_hydrogens(build_heavy_atoms(random));
  if (added.unplaced != 0 || added.unknown_residues != 0) {
    throw std::logic_error("hydrogens of the coil chain left unplaced");
  }
  return std::move(added.atoms);
}

}  // namespace vorn_tools::coil
