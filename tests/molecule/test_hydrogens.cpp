// Hydrogens placed from the heavy atoms: the deposited hydrogens of the NMR
// ensemble 1D3Z (ubiquitin) and of a DNA and an RNA entry removed and
// rebuilt, compared name by name (bond directions, and the couplings of a
// fixed tensor); the geometry of every hydrogen placed against the
// standard lengths and angles; no clash in the X-ray structure 1UBQ; the
// rules for hydrogens already present, missing heavy atoms, chain breaks,
// termini, disulfides and unknown residues.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <functional>
#include <map>
#include <numbers>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "io/structure_reader.hpp"
#include "vorn/couplings.hpp"
#include "vorn/error.hpp"
#include "vorn/hydrogens.hpp"
#include "vorn/tensor.hpp"

namespace vorn {
namespace {

std::string data_path(const std::string& name) {
  return std::string(VORN_TEST_DATA_DIR) + "/" + name;
}

std::vector<io::Model> read_models(const std::string& name) {
  io::ReadOptions options;
  options.keep_hydrogens = true;
  io::StructureReader reader(data_path(name), options);
  std::vector<io::Model> models;
  io::Model m;
  while (reader.next(m)) models.push_back(m);
  return models;
}

bool hydrogen(const Atom& a) { return a.element == "H" || a.element == "D"; }

std::vector<Atom> heavy_atoms(const std::vector<Atom>& atoms) {
  std::vector<Atom> kept;
  for (const Atom& a : atoms)
    if (!hydrogen(a)) kept.push_back(a);
  return kept;
}

Vec3 minus(const Vec3& a, const Vec3& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
double dot(const Vec3& a, const Vec3& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
double norm(const Vec3& v) { return std::sqrt(dot(v, v)); }
Vec3 cross(const Vec3& a, const Vec3& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
double degrees(double radians) { return radians * 180.0 / std::numbers::pi; }
double angle_between(const Vec3& a, const Vec3& b) {
  return degrees(std::acos(std::clamp(dot(a, b) / (norm(a) * norm(b)), -1.0, 1.0)));
}
// The angle a-b-c, degrees.
double angle(const Vec3& a, const Vec3& b, const Vec3& c) {
  return angle_between(minus(a, b), minus(c, b));
}
// The torsion a-b-c-d, degrees, by the IUPAC sign convention.
double torsion(const Vec3& a, const Vec3& b, const Vec3& c, const Vec3& d) {
  const Vec3 b1 = minus(b, a), b2 = minus(c, b), b3 = minus(d, c);
  const Vec3 n1 = cross(b1, b2), n2 = cross(b2, b3);
  const double y = dot(cross(n1, n2), b2) / norm(b2);
  return degrees(std::atan2(y, dot(n1, n2)));
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  const std::size_t n = v.size();
  return n % 2 == 1 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
}
// Nearest-rank percentile.
double percentile(std::vector<double> v, double p) {
  std::sort(v.begin(), v.end());
  const auto rank = static_cast<std::size_t>(std::ceil(p / 100.0 * static_cast<double>(v.size())));
  return v[std::max<std::size_t>(rank, 1) - 1];
}
double rms(const std::vector<double>& v) {
  double s = 0.0;
  for (double x : v) s += x * x;
  return std::sqrt(s / static_cast<double>(v.size()));
}

using Key = std::tuple<std::string, int, char, std::string>;  // chain, residue, icode, name
Key key_of(const Atom& a) { return {a.chain, a.residue_number, a.insertion_code, a.name}; }

std::map<Key, const Atom*> by_key(const std::vector<Atom>& atoms) {
  std::map<Key, const Atom*> map;
  for (const Atom& a : atoms) map.emplace(key_of(a), &a);
  return map;
}

// The heavy atom of the same residue nearest to a hydrogen: its parent.
const Atom* parent_of(const Atom& h, const std::vector<Atom>& atoms) {
  const Atom* best = nullptr;
  double best_d = 1e9;
  for (const Atom& a : atoms) {
    if (hydrogen(a) || a.chain != h.chain || a.residue_number != h.residue_number ||
        a.insertion_code != h.insertion_code) {
      continue;
    }
    const double d = norm(minus(a.position, h.position));
    if (d < best_d) best_d = d, best = &a;
  }
  return best;
}

bool is_methyl_proton(const std::string& residue, const std::string& name) {
  static const std::set<std::pair<std::string, std::string>> kMethyls = {
      {"ALA", "HB"},  {"VAL", "HG1"}, {"VAL", "HG2"}, {"LEU", "HD1"}, {"LEU", "HD2"},
      {"ILE", "HG2"}, {"ILE", "HD1"}, {"THR", "HG2"}, {"MET", "HE"},  {"DT", "H7"}};
  return name.size() >= 3 && kMethyls.count({residue, name.substr(0, name.size() - 1)}) > 0;
}

// The Saupe elements (Szz, Sxx - Syy, Sxy, Sxz, Syz) of a tensor with
// Da(NH) `da_hz`, rhombicity `r` and principal axes rotated by z-y-z Euler
// angles (degrees).
SaupeElements saupe_of(double da_hz, double r, double alpha, double beta, double gamma) {
  const double szz = 2.0 * da_hz / kDaNHScale;
  const double dr = r * szz / 2.0;
  const double principal[3] = {(-szz + 3.0 * dr) / 2.0, (-szz - 3.0 * dr) / 2.0, szz};
  const auto rz = [](double t) {
    const double c = std::cos(t), s = std::sin(t);
    return std::array<std::array<double, 3>, 3>{{{c, -s, 0}, {s, c, 0}, {0, 0, 1}}};
  };
  const auto ry = [](double t) {
    const double c = std::cos(t), s = std::sin(t);
    return std::array<std::array<double, 3>, 3>{{{c, 0, s}, {0, 1, 0}, {-s, 0, c}}};
  };
  const auto mul = [](const auto& a, const auto& b) {
    std::array<std::array<double, 3>, 3> m{};
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j)
        for (int k = 0; k < 3; ++k) m[i][j] += a[i][k] * b[k][j];
    return m;
  };
  const double to_rad = std::numbers::pi / 180.0;
  const auto rot = mul(mul(rz(alpha * to_rad), ry(beta * to_rad)), rz(gamma * to_rad));
  double s[3][3] = {};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      for (int k = 0; k < 3; ++k) s[i][j] += rot[i][k] * principal[k] * rot[j][k];
  return {s[2][2], s[0][0] - s[1][1], s[0][1], s[0][2], s[1][2]};
}

// The deposited and rebuilt hydrogens of one category, over all models.
struct Comparison {
  std::vector<double> angles;       // between the X-H bond vectors, degrees
  std::vector<double> coupling_hz;  // rebuilt minus deposited coupling
  void print(const char* what) const {
    std::printf("%-28s n = %5zu  angle median %5.2f  95th %6.2f deg  coupling rmsd %6.3f Hz\n",
                what, angles.size(), median(angles), percentile(angles, 95.0), rms(coupling_hz));
  }
};

// Methyl and ammonium groups turn freely: their protons are compared with
// the rebuilt ones under the cyclic renaming (H1 H2 H3 -> H2 H3 H1 ...) that
// fits best, which keeps the PDB's order of the names around the axis.
bool rotating_group(const Atom& h, const Atom& parent) {
  return is_methyl_proton(h.residue_name, h.name) ||
         (h.residue_name == "LYS" && parent.name == "NZ") || h.name == "H1" || h.name == "H2" ||
         h.name == "H3";
}

// ---------------------------------------------------------------------------
// 1D3Z: ten NMR models with every hydrogen deposited.

class Ubiquitin1D3Z : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    models_ = new std::vector<io::Model>(read_models("raw/1D3Z_raw_10models.pdb"));
  }
  static void TearDownTestSuite() {
    delete models_;
    models_ = nullptr;
  }
  static std::vector<io::Model>* models_;
};
std::vector<io::Model>* Ubiquitin1D3Z::models_ = nullptr;

TEST_F(Ubiquitin1D3Z, RebuiltHydrogensMatchTheDepositedOnes) {
  ASSERT_EQ(models_->size(), 10u);
  // Da(NH) 10 Hz, R 0.3, an arbitrary orientation; Dmax at the standard
  // lengths, so that the couplings compare directions only.
  const SaupeElements saupe = saupe_of(10.0, 0.3, 40.0, 65.0, -110.0);
  const AlignmentTensor check = analyze_tensor(saupe);
  ASSERT_NEAR(check.da_hz, 10.0, 1e-9);
  ASSERT_NEAR(check.rhombicity, 0.3, 1e-9);
  const double dmax_ch = dipolar_constant_hz("C", "H", 1.09);
  const double dmax_nh = dipolar_constant_hz("N", "H", 1.02);

  Comparison ca_ha, cb_hb, side_ch, methyl, methyl_mean, amide, planar_nh, ammonium, hydroxyl;
  for (const io::Model& model : *models_) {
    SCOPED_TRACE("model " + std::to_string(model.number));
    const AddedHydrogens rebuilt = add_hydrogens(heavy_atoms(model.atoms));
    EXPECT_EQ(rebuilt.unplaced, 0);
    EXPECT_EQ(rebuilt.incomplete_residues, 0);
    EXPECT_EQ(rebuilt.unknown_residues, 0);
    const auto built = by_key(rebuilt.atoms);
    const auto deposited = by_key(model.atoms);
    // Every deposited hydrogen is rebuilt under its name; the only one
    // rebuilt beyond them is HE2 of His 68 (the deposited model has the HD1
    // tautomer; both are placed).
    std::set<Key> extra;
    for (std::size_t i : rebuilt.added) extra.insert(key_of(rebuilt.atoms[i]));
    // Rotating groups by parent: (deposited, rebuilt) bond vectors in name order.
    std::map<Key, std::vector<std::pair<Vec3, Vec3>>> groups;
    for (const Atom& h : model.atoms) {
      if (!hydrogen(h)) continue;
      const auto it = built.find(key_of(h));
      ASSERT_NE(it, built.end()) << h.residue_name << h.residue_number << " " << h.name;
      extra.erase(key_of(h));
      const Atom* parent = parent_of(h, model.atoms);
      ASSERT_NE(parent, nullptr);
      const Atom& b = *it->second;
      EXPECT_EQ(parent_of(b, rebuilt.atoms)->name, parent->name) << h.name;
      const Vec3 v_dep = minus(h.position, parent->position);
      const Vec3 v_built = minus(b.position, deposited.at(key_of(*parent))->position);
      if (rotating_group(h, *parent)) {
        groups[key_of(*parent)].emplace_back(v_dep, v_built);
        continue;
      }
      // No coupling of hydroxyl protons (17O is not observed): a zero Dmax.
      const double dmax = parent->element == "N" ? dmax_nh : parent->element == "C" ? dmax_ch : 0.0;
      const double a = angle_between(v_dep, v_built);
      const double dd =
          dipolar_coupling_hz(saupe, v_built, dmax) - dipolar_coupling_hz(saupe, v_dep, dmax);
      std::vector<Comparison*> into;
      if (parent->name == "CA") {
        into = {&ca_ha};
      } else if (parent->name == "CB" && parent->element == "C") {
        into = {&cb_hb, &side_ch};
      } else if (parent->element == "C") {
        into = {&side_ch};
      } else if (parent->name == "N") {
        into = {&amide};
      } else if (parent->element == "N") {
        into = {&planar_nh};
      } else {
        into = {&hydroxyl};
      }
      for (Comparison* c : into) {
        c->angles.push_back(a);
        c->coupling_hz.push_back(dd);
      }
    }
    ASSERT_EQ(extra.size(), 1u);
    EXPECT_EQ(std::get<1>(*extra.begin()), 68);
    EXPECT_EQ(std::get<3>(*extra.begin()), "HE2");

    for (const auto& [parent, pairs] : groups) {
      ASSERT_EQ(pairs.size(), 3u);
      const bool is_methyl = std::get<3>(parent)[0] == 'C';
      const double dmax = is_methyl ? dmax_ch : dmax_nh;
      // The best cyclic renaming; every proton then lies within the 60
      // degrees of turn that separate staggered from eclipsed (56 degrees
      // between the bond vectors).
      double best_sum = 1e9;
      int best = 0;
      for (int shift = 0; shift < 3; ++shift) {
        double sum = 0.0;
        for (int i = 0; i < 3; ++i)
          sum += angle_between(pairs[i].first, pairs[(i + shift) % 3].second);
        if (sum < best_sum) best_sum = sum, best = shift;
      }
      double mean_dep = 0.0, mean_built = 0.0;
      for (int i = 0; i < 3; ++i) {
        const Vec3& dep = pairs[i].first;
        const Vec3& b = pairs[(i + best) % 3].second;
        const double a = angle_between(dep, b);
        EXPECT_LT(a, 57.0) << std::get<1>(parent) << " " << std::get<3>(parent);
        const double d_dep = dipolar_coupling_hz(saupe, dep, dmax);
        const double d_built = dipolar_coupling_hz(saupe, b, dmax);
        mean_dep += d_dep / 3.0;
        mean_built += d_built / 3.0;
        Comparison& c = is_methyl ? methyl : ammonium;
        c.angles.push_back(a);
        c.coupling_hz.push_back(d_built - d_dep);
      }
      if (is_methyl) {
        methyl_mean.angles.push_back(0.0);
        methyl_mean.coupling_hz.push_back(mean_built - mean_dep);
      }
    }
  }
  std::printf("1D3Z, 10 models: rebuilt against deposited hydrogens, Da(NH) 10 Hz, R 0.3\n");
  ca_ha.print("CA-HA");
  cb_hb.print("CB-HB (methine, methylene)");
  side_ch.print("side-chain CH (no methyl)");
  methyl.print("methyl CH (best turn)");
  std::printf("%-28s n = %5zu  coupling rmsd %6.3f Hz\n", "methyl, mean of 3 protons",
              methyl_mean.coupling_hz.size(), rms(methyl_mean.coupling_hz));
  amide.print("amide N-H");
  planar_nh.print("NH, NH2 of side chains");
  ammonium.print("NH3+ (best turn)");
  std::printf("%-28s n = %5zu  angle median %5.2f  95th %6.2f deg\n", "OH (one choice)",
              hydroxyl.angles.size(), median(hydroxyl.angles), percentile(hydroxyl.angles, 95.0));

  EXPECT_EQ(ca_ha.angles.size(), 10u * (76 + 6));  // glycines 10, 35, 47, 53, 75, 76
  EXPECT_LT(median(ca_ha.angles), 3.0);
  EXPECT_LT(percentile(ca_ha.angles, 95.0), 8.0);
  EXPECT_LT(median(cb_hb.angles), 3.0);
  EXPECT_LT(percentile(cb_hb.angles, 95.0), 8.0);
  EXPECT_LT(percentile(side_ch.angles, 95.0), 8.0);
  EXPECT_LT(percentile(amide.angles, 95.0), 8.0);
  EXPECT_LT(percentile(planar_nh.angles, 95.0), 8.0);
  EXPECT_LT(rms(ca_ha.coupling_hz), 2.0);
  EXPECT_LT(rms(amide.coupling_hz), 2.0);
  EXPECT_LT(rms(side_ch.coupling_hz), 2.0);
  EXPECT_LT(rms(methyl_mean.coupling_hz), 2.0);
}

// ---------------------------------------------------------------------------
// The geometry of the hydrogens placed on X-ray structures.

// The heavy atoms bonded to an atom: those of its residue, and C'/N of the
// neighbours, within 1.9 A (2.1 A for sulfur).
std::vector<const Atom*> bonded_heavy(const Atom& atom, const std::vector<Atom>& atoms) {
  std::vector<const Atom*> result;
  for (const Atom& a : atoms) {
    if (&a == &atom || hydrogen(a)) continue;
    const double cutoff = a.element == "S" || atom.element == "S" ? 2.1 : 1.9;
    if (norm(minus(a.position, atom.position)) < cutoff) result.push_back(&a);
  }
  return result;
}

// The template's angles checked on every hydrogen placed: the lengths; at
// an sp3 atom H-X-H tetrahedral, Y-X-H tetrahedral for one heavy neighbour
// Y (methyl, NH3+, hydroxyl; 96 degrees on sulfur), equal for CH and CH2;
// at an sp2 atom the H in the plane of the heavy atoms, on the external
// bisector (one H) or at 120 degrees (NH2). Returns the Y-X-H angles that
// the heavy atoms decide (CH, CH2), and the H-to-heavy-atom contacts below
// 1.5 A other than the parent's.
struct Checked {
  std::vector<double> free_yxh;  // degrees
  std::vector<std::string> contacts;
  int hydrogens = 0;
};

Checked check_geometry(const std::vector<Atom>& heavy) {
  const AddedHydrogens result = add_hydrogens(heavy);
  Checked c;
  std::map<const Atom*, std::vector<const Atom*>> on_parent;
  for (std::size_t i : result.added) {
    const Atom& h = result.atoms[i];
    EXPECT_EQ(h.element, "H");
    const Atom* parent = parent_of(h, result.atoms);
    on_parent[parent].push_back(&h);
    ++c.hydrogens;
    const double standard = parent->element == "C"   ? 1.09
                            : parent->element == "N" ? 1.02
                            : parent->element == "O" ? 0.96
                                                     : 1.34;
    EXPECT_NEAR(norm(minus(h.position, parent->position)), standard, 1e-9)
        << h.residue_number << " " << h.name;
    for (const Atom& a : result.atoms) {
      if (hydrogen(a) || &a == parent) continue;
      const double d = norm(minus(a.position, h.position));
      if (d >= 1.5) continue;
      c.contacts.push_back(h.residue_name + std::to_string(h.residue_number) + " " + h.name +
                           " - " + a.residue_name + std::to_string(a.residue_number) + " " +
                           a.name);
      // Only where the heavy atoms themselves are that close: no placement
      // from them could do better.
      EXPECT_LT(norm(minus(a.position, parent->position)), 2.5) << c.contacts.back();
    }
  }
  constexpr double kExact = 1e-6;  // degrees
  for (const auto& [parent, hs] : on_parent) {
    const std::vector<const Atom*> y = bonded_heavy(*parent, result.atoms);
    const std::string where =
        parent->residue_name + std::to_string(parent->residue_number) + " " + parent->name;
    SCOPED_TRACE(where);
    const Vec3& p = parent->position;
    const auto yxh = [&](std::size_t k, const Atom* h) {
      return angle(y[k]->position, p, h->position);
    };
    const std::size_t n_h = static_cast<std::size_t>(
        parent->element == "N" && y.size() == 1 && hs.size() == 2 ? 2 : hs.size());
    const bool planar = (y.size() == 2 && n_h == 1 && parent->element != "O") ||
                        (y.size() == 1 && n_h == 2 && parent->element == "N");
    for (std::size_t i = 0; i < hs.size(); ++i) {
      for (std::size_t j = i + 1; j < hs.size(); ++j) {
        EXPECT_NEAR(angle(hs[i]->position, p, hs[j]->position),
                    planar ? kTrigonalAngle : kTetrahedralAngle, kExact);
      }
      if (planar && y.size() == 2) {
        EXPECT_NEAR(yxh(0, hs[i]), yxh(1, hs[i]), kExact);
        const Vec3 normal = cross(minus(y[0]->position, p), minus(y[1]->position, p));
        EXPECT_NEAR(angle_between(normal, minus(hs[i]->position, p)), 90.0, kExact);
      } else if (planar) {
        EXPECT_NEAR(yxh(0, hs[i]), kTrigonalAngle, kExact);
        // In the plane of the heavy atom and one of its other substituents.
        bool in_plane = false;
        for (const Atom* b : bonded_heavy(*y[0], result.atoms)) {
          if (b == parent) continue;
          const double t = std::fabs(torsion(b->position, y[0]->position, p, hs[i]->position));
          if (t < kExact || t > 180.0 - kExact) in_plane = true;
        }
        EXPECT_TRUE(in_plane) << hs[i]->name;
      } else if (y.size() == 1) {
        EXPECT_NEAR(yxh(0, hs[i]), parent->element == "S" ? kThiolAngle : kTetrahedralAngle,
                    kExact);
      } else if (y.size() == 2) {
        EXPECT_NEAR(yxh(0, hs[i]), yxh(1, hs[i]), kExact);
        c.free_yxh.push_back(yxh(0, hs[i]));
      } else if (y.size() != 3u) {
        ADD_FAILURE() << y.size() << " heavy neighbours";
      } else {
        EXPECT_NEAR(yxh(0, hs[i]), yxh(1, hs[i]), kExact);
        EXPECT_NEAR(yxh(0, hs[i]), yxh(2, hs[i]), kExact);
        c.free_yxh.push_back(yxh(0, hs[i]));
      }
    }
  }
  return c;
}

void print_free_angles(const char* what, const Checked& c) {
  std::vector<double> off;
  for (double a : c.free_yxh) off.push_back(std::fabs(a - kTetrahedralAngle));
  std::printf(
      "%s: %d hydrogens; Y-X-H of CH and CH2 off the tetrahedral angle by median %.2f, "
      "95th %.2f, max %.2f deg; %zu contacts below 1.5 A\n",
      what, c.hydrogens, median(off), percentile(off, 95.0),
      *std::max_element(off.begin(), off.end()), c.contacts.size());
  for (const std::string& contact : c.contacts) std::printf("  %s\n", contact.c_str());
}

TEST(Hydrogens, GeometryOnXrayStructures) {
  // 1UBQ: one contact below 1.5 A, HG2 of Arg 72 and its own O, whose CG
  // the deposited model puts 2.38 A from that O.
  for (const char* file : {"raw/1UBQ_raw.pdb", "structures/unc18_stx1_2xhe_xray.pdb"}) {
    SCOPED_TRACE(file);
    const std::vector<io::Model> models = read_models(file);
    ASSERT_EQ(models.size(), 1u);
    ASSERT_FALSE(has_hydrogens(models[0].atoms));
    const Checked c = check_geometry(models[0].atoms);
    print_free_angles(file, c);
  }
}

TEST_F(Ubiquitin1D3Z, GeometryOnTheNmrModels) {
  // Heavy atoms refined with ideal bond angles: the Y-X-H angles left to
  // them stay near the tetrahedral angle.
  for (const io::Model& model : *models_) {
    const Checked c = check_geometry(heavy_atoms(model.atoms));
    EXPECT_TRUE(c.contacts.empty());
    for (double a : c.free_yxh) EXPECT_NEAR(a, kTetrahedralAngle, 3.0);
    if (model.number == 1) print_free_angles("1D3Z model 1", c);
  }
}

// ---------------------------------------------------------------------------
// Names: every residue of a structure gets the PDB's hydrogens.

// The hydrogens of the standard amino acids inside a chain, as the PDB's
// chemical component definitions name them (less the N-terminal H2 and the
// carboxyl HXT), written out here.
const std::map<std::string, std::set<std::string>> kAminoAcidHydrogens = {
    {"ALA", {"H", "HA", "HB1", "HB2", "HB3"}},
    {"ARG",
     {"H", "HA", "HB2", "HB3", "HG2", "HG3", "HD2", "HD3", "HE", "HH11", "HH12", "HH21", "HH22"}},
    {"ASN", {"H", "HA", "HB2", "HB3", "HD21", "HD22"}},
    {"ASP", {"H", "HA", "HB2", "HB3"}},
    {"CYS", {"H", "HA", "HB2", "HB3", "HG"}},
    {"GLN", {"H", "HA", "HB2", "HB3", "HG2", "HG3", "HE21", "HE22"}},
    {"GLU", {"H", "HA", "HB2", "HB3", "HG2", "HG3"}},
    {"GLY", {"H", "HA2", "HA3"}},
    {"HIS", {"H", "HA", "HB2", "HB3", "HD1", "HD2", "HE1", "HE2"}},
    {"ILE", {"H", "HA", "HB", "HG12", "HG13", "HG21", "HG22", "HG23", "HD11", "HD12", "HD13"}},
    {"LEU", {"H", "HA", "HB2", "HB3", "HG", "HD11", "HD12", "HD13", "HD21", "HD22", "HD23"}},
    {"LYS",
     {"H", "HA", "HB2", "HB3", "HG2", "HG3", "HD2", "HD3", "HE2", "HE3", "HZ1", "HZ2", "HZ3"}},
    {"MET", {"H", "HA", "HB2", "HB3", "HG2", "HG3", "HE1", "HE2", "HE3"}},
    {"PHE", {"H", "HA", "HB2", "HB3", "HD1", "HD2", "HE1", "HE2", "HZ"}},
    {"PRO", {"HA", "HB2", "HB3", "HG2", "HG3", "HD2", "HD3"}},
    {"SER", {"H", "HA", "HB2", "HB3", "HG"}},
    {"THR", {"H", "HA", "HB", "HG1", "HG21", "HG22", "HG23"}},
    {"TRP", {"H", "HA", "HB2", "HB3", "HD1", "HE1", "HE3", "HZ2", "HZ3", "HH2"}},
    {"TYR", {"H", "HA", "HB2", "HB3", "HD1", "HD2", "HE1", "HE2", "HH"}},
    {"VAL", {"H", "HA", "HB", "HG11", "HG12", "HG13", "HG21", "HG22", "HG23"}},
};

// The names added to each residue, by (chain, number, insertion code).
std::map<std::tuple<std::string, int, char>, std::set<std::string>> added_names(
    const AddedHydrogens& result) {
  std::map<std::tuple<std::string, int, char>, std::set<std::string>> names;
  for (std::size_t i : result.added) {
    const Atom& h = result.atoms[i];
    names[{h.chain, h.residue_number, h.insertion_code}].insert(h.name);
  }
  return names;
}

TEST(Hydrogens, EveryAminoAcidGetsThePdbNames) {
  // Unc18 and syntaxin (2XHE): all twenty amino acids, without hydrogens.
  const std::vector<io::Model> models = read_models("structures/unc18_stx1_2xhe_xray.pdb");
  const std::vector<Atom>& atoms = models.at(0).atoms;
  const AddedHydrogens result = add_hydrogens(atoms);
  const auto names = added_names(result);
  std::set<std::string> seen;
  int residues = 0, missing = 0;
  bool first = true;
  for (std::size_t i = 0; i < atoms.size(); ++i) {
    if (i > 0 && atoms[i].residue_number == atoms[i - 1].residue_number) continue;
    const Atom& a = atoms[i];
    const auto it = kAminoAcidHydrogens.find(a.residue_name);
    ASSERT_NE(it, kAminoAcidHydrogens.end()) << a.residue_name;
    std::set<std::string> want = it->second;
    if (first) {  // NH3+
      want.erase("H");
      want.insert({"H1", "H2", "H3"});
      first = false;
    }
    const auto got = names.find({a.chain, a.residue_number, a.insertion_code});
    const std::set<std::string> none;
    const std::set<std::string>& have = got == names.end() ? none : got->second;
    for (const std::string& name : have) EXPECT_EQ(want.count(name), 1u) << name;
    for (const std::string& name : want) missing += have.count(name) == 0 ? 1 : 0;
    if (have == want) {
      seen.insert(a.residue_name);
      ++residues;
    }
  }
  std::printf("2XHE: %d residues with the full set of names; unplaced %d in %d residues\n",
              residues, result.unplaced, result.incomplete_residues);
  EXPECT_EQ(seen.size(), 20u);
  // The others miss heavy atoms (side chains cut short in the deposited
  // model, the residue after a gap): what they lack is counted as unplaced.
  EXPECT_EQ(missing, result.unplaced);
  EXPECT_EQ(result.unknown_residues, 0);
}

TEST(Hydrogens, AmideHydrogensAreThoseOfTheBackboneSites) {
  // The same rule as backbone_sites' built amide H, to the last bit.
  const std::vector<io::Model> models = read_models("raw/1UBQ_raw.pdb");
  const std::vector<Atom>& atoms = models.at(0).atoms;
  const AddedHydrogens result = add_hydrogens(atoms);
  const auto built = by_key(result.atoms);
  const BackboneSites sites = backbone_sites(atoms);
  int compared = 0;
  for (const CouplingSite& site : sites.sites) {
    if (site.type != "N-H") continue;
    ASSERT_TRUE(site.built_hydrogen);
    const Atom* h = built.at({site.chain, site.residue_number, site.insertion_code, "H"});
    const Atom* n = built.at({site.chain, site.residue_number, site.insertion_code, "N"});
    const Vec3 v = minus(h->position, n->position);
    EXPECT_EQ(v.x, site.vector.x);
    EXPECT_EQ(v.y, site.vector.y);
    EXPECT_EQ(v.z, site.vector.z);
    ++compared;
  }
  EXPECT_EQ(compared, 72);  // 76 residues less Met 1 and the prolines 19, 37, 38
}

// ---------------------------------------------------------------------------
// Nucleic acids.

TEST(Hydrogens, DnaDuplexExchangeableHydrogens) {
  // 1LCD (model 1, the two strands numbered 1-11 and 12-22 without chain
  // identifiers) has its amino, imino and terminal hydroxyl protons.
  const std::vector<io::Model> models = read_models("structures/dna_1lcd_duplex_m1_pdbnames.pdb");
  const std::vector<Atom>& atoms = models.at(0).atoms;
  const AddedHydrogens result = add_hydrogens(heavy_atoms(atoms));
  EXPECT_EQ(result.unplaced, 0);
  EXPECT_EQ(result.unknown_residues, 0);
  const auto built = by_key(result.atoms);
  std::vector<double> base_nh;
  int hydroxyls = 0;
  for (const Atom& h : atoms) {
    if (!hydrogen(h)) continue;
    const auto it = built.find(key_of(h));
    ASSERT_NE(it, built.end()) << h.residue_number << " " << h.name;
    const Atom* parent = parent_of(h, atoms);
    EXPECT_EQ(parent_of(*it->second, result.atoms)->name, parent->name);
    const double a = angle_between(minus(h.position, parent->position),
                                   minus(it->second->position, parent->position));
    if (parent->element == "N") {
      base_nh.push_back(a);
    } else {
      ++hydroxyls;  // HO5', HO3': one choice of torsion
    }
  }
  std::printf("1LCD: %zu amino and imino protons, angle median %.2f, max %.2f deg\n",
              base_nh.size(), median(base_nh), *std::max_element(base_nh.begin(), base_nh.end()));
  EXPECT_EQ(hydroxyls, 4);  // HO5' and HO3' of each strand
  // The deposited amino groups are not all planar (up to 35 degrees off
  // the plane of the base); a swapped name would be 120 degrees off.
  for (double a : base_nh) EXPECT_LT(a, 45.0);

  // The full set of each nucleotide.
  const std::map<std::string, std::set<std::string>> kNucleotide = {
      {"DA", {"H5'", "H5''", "H4'", "H3'", "H2'", "H2''", "H1'", "H8", "H2", "H61", "H62"}},
      {"DC", {"H5'", "H5''", "H4'", "H3'", "H2'", "H2''", "H1'", "H41", "H42", "H5", "H6"}},
      {"DG", {"H5'", "H5''", "H4'", "H3'", "H2'", "H2''", "H1'", "H8", "H1", "H21", "H22"}},
      {"DT", {"H5'", "H5''", "H4'", "H3'", "H2'", "H2''", "H1'", "H3", "H6", "H71", "H72", "H73"}},
  };
  for (const auto& [key, names] : added_names(result)) {
    const int number = std::get<1>(key);
    std::string residue;
    for (const Atom& a : atoms)
      if (a.residue_number == number) residue = a.residue_name;
    std::set<std::string> want = kNucleotide.at(residue);
    if (number == 1 || number == 12) want.insert("HO5'");
    if (number == 11 || number == 22) want.insert("HO3'");
    EXPECT_EQ(names, want) << residue << number;
  }
}

TEST(Hydrogens, RnaSugarAndBaseHydrogens) {
  // 6TPH (chain B, model 1) with every hydrogen, residue names of the older
  // convention (ADE, CYT, GUA, URA) renamed here. Its amino protons are
  // named the other way round from 1LCD's (H41 trans to N3); only the
  // carbon-bound ones and the imino protons are compared.
  std::vector<Atom> atoms = read_models("structures/rna_6tph_chainB_m1.pdb").at(0).atoms;
  const std::map<std::string, std::string> kNames = {
      {"ADE", "A"}, {"CYT", "C"}, {"GUA", "G"}, {"URA", "U"}};
  for (Atom& a : atoms) a.residue_name = kNames.at(a.residue_name);
  const AddedHydrogens result = add_hydrogens(heavy_atoms(atoms));
  EXPECT_EQ(result.unplaced, 0);
  const auto built = by_key(result.atoms);
  std::set<Key> extra;
  for (std::size_t i : result.added) extra.insert(key_of(result.atoms[i]));
  Comparison sugar, base;
  for (const Atom& h : atoms) {
    if (!hydrogen(h)) continue;
    const auto it = built.find(key_of(h));
    ASSERT_NE(it, built.end()) << h.residue_number << " " << h.name;
    extra.erase(key_of(h));
    const Atom* parent = parent_of(h, atoms);
    if (parent->element == "O" || (parent->element == "N" && h.name.size() == 3)) continue;
    const double a = angle_between(minus(h.position, parent->position),
                                   minus(it->second->position, parent->position));
    (h.name.back() == '\'' ? sugar : base).angles.push_back(a);
  }
  std::printf(
      "6TPH: sugar CH %zu, angle median %.2f, 95th %.2f; base CH and NH %zu, median "
      "%.2f, 95th %.2f deg\n",
      sugar.angles.size(), median(sugar.angles), percentile(sugar.angles, 95.0), base.angles.size(),
      median(base.angles), percentile(base.angles, 95.0));
  // The deposited hydrogens stray from the standard geometry (their base
  // CH from the in-plane bisector by 5 degrees on average, up to 22); a
  // swapped H5'/H5'' or H2'/O2' would be more than 100 degrees off.
  for (const Comparison* c : {&sugar, &base})
    for (double a : c->angles) EXPECT_LT(a, 30.0);
  // Beyond the deposited ones: the terminal hydroxyls.
  std::set<std::string> extra_names;
  for (const Key& k : extra) extra_names.insert(std::get<3>(k));
  EXPECT_EQ(extra_names, (std::set<std::string>{"HO5'", "HO3'"}));
  EXPECT_EQ(extra.size(), 2u);
}

// ---------------------------------------------------------------------------
// The rules, on model 1 of 1D3Z and variants of it.

std::vector<Atom> without(const std::vector<Atom>& atoms,
                          const std::function<bool(const Atom&)>& drop) {
  std::vector<Atom> kept;
  for (const Atom& a : atoms)
    if (!drop(a)) kept.push_back(a);
  return kept;
}

std::vector<std::string> names_of(const AddedHydrogens& result, int residue) {
  std::vector<std::string> names;
  for (std::size_t i : result.added)
    if (result.atoms[i].residue_number == residue) names.push_back(result.atoms[i].name);
  return names;
}

bool same_atom(const Atom& a, const Atom& b) {
  return a.name == b.name && a.element == b.element && a.residue_name == b.residue_name &&
         a.residue_number == b.residue_number && a.insertion_code == b.insertion_code &&
         a.chain == b.chain && a.position.x == b.position.x && a.position.y == b.position.y &&
         a.position.z == b.position.z;
}

TEST_F(Ubiquitin1D3Z, HydrogensPresentAreKept) {
  const std::vector<Atom>& full = models_->at(0).atoms;
  // Complete (His 68 has its HD1): nothing is added, nothing moves.
  const AddedHydrogens complete = add_hydrogens(full);
  EXPECT_TRUE(complete.added.empty());
  ASSERT_EQ(complete.atoms.size(), full.size());
  for (std::size_t i = 0; i < full.size(); ++i) EXPECT_TRUE(same_atom(complete.atoms[i], full[i]));

  // Without the alpha protons: those alone come back, where the rebuild
  // from the heavy atoms puts them, each after its residue's atoms.
  const std::vector<Atom> no_ha =
      without(full, [](const Atom& a) { return a.name == "HA" || a.name == "HA2"; });
  const AddedHydrogens partial = add_hydrogens(no_ha);
  const AddedHydrogens from_heavy = add_hydrogens(heavy_atoms(full));
  const auto rebuilt = by_key(from_heavy.atoms);
  EXPECT_EQ(partial.added.size(), 76u);  // 70 HA, and HA2 of the six glycines
  for (std::size_t i : partial.added) {
    const Atom& h = partial.atoms[i];
    EXPECT_TRUE(h.name == "HA" || h.name == "HA2") << h.name;
    EXPECT_TRUE(same_atom(h, *rebuilt.at(key_of(h))));
    EXPECT_EQ(partial.atoms[i - 1].residue_number, h.residue_number);
    if (i + 1 < partial.atoms.size()) {
      EXPECT_NE(partial.atoms[i + 1].residue_number, h.residue_number);
    }
  }
  // The atoms given keep their order.
  std::vector<Atom> given;
  for (std::size_t i = 0, k = 0; i < partial.atoms.size(); ++i) {
    if (k < partial.added.size() && partial.added[k] == i) {
      ++k;
      continue;
    }
    given.push_back(partial.atoms[i]);
  }
  ASSERT_EQ(given.size(), no_ha.size());
  for (std::size_t i = 0; i < given.size(); ++i) EXPECT_TRUE(same_atom(given[i], no_ha[i]));
}

TEST_F(Ubiquitin1D3Z, HydrogensUnderOtherNamesAreKept) {
  std::vector<Atom> atoms = models_->at(0).atoms;
  for (Atom& a : atoms) {
    if (a.name == "H") a.name = "HN";  // X-PLOR's amide proton
    if (a.residue_number == 6 && (a.name == "HB2" || a.name == "HB3"))
      a.name = a.name == "HB2" ? "1HB" : "2HB";  // the names of PDB format 2
  }
  EXPECT_TRUE(add_hydrogens(atoms).added.empty());
}

TEST_F(Ubiquitin1D3Z, MissingHeavyAtomsLeaveTheirHydrogensOut) {
  const std::vector<Atom> heavy = heavy_atoms(models_->at(0).atoms);
  // Lys 6 without CB: HA (oriented by CB), HB2, HB3 (on it) and HG2, HG3
  // (oriented by it) cannot be placed; HD2 ... HZ3 can.
  const AddedHydrogens result = add_hydrogens(
      without(heavy, [](const Atom& a) { return a.residue_number == 6 && a.name == "CB"; }));
  EXPECT_EQ(result.unplaced, 5);
  EXPECT_EQ(result.incomplete_residues, 1);
  EXPECT_EQ(names_of(result, 6),
            (std::vector<std::string>{"H", "HD2", "HD3", "HE2", "HE3", "HZ1", "HZ2", "HZ3"}));
  EXPECT_EQ(result.added.size(), add_hydrogens(heavy).added.size() - 5);
}

TEST_F(Ubiquitin1D3Z, ChainStartsAndGaps) {
  const std::vector<Atom> heavy = heavy_atoms(models_->at(0).atoms);
  // Met 1 is the chain's start: NH3+, staggered about N-CA with H1 anti to
  // C', then H2 and H3 in the PDB's turn.
  {
    const AddedHydrogens result = add_hydrogens(heavy);
    const auto atoms = by_key(result.atoms);
    const auto at = [&](const char* name) { return atoms.at({"A", 1, ' ', name})->position; };
    EXPECT_EQ(names_of(result, 1).front(), "H1");
    EXPECT_NEAR(std::fabs(torsion(at("C"), at("CA"), at("N"), at("H1"))), 180.0, 1e-6);
    EXPECT_NEAR(torsion(at("C"), at("CA"), at("N"), at("H2")), 60.0, 1e-6);
    EXPECT_NEAR(torsion(at("C"), at("CA"), at("N"), at("H3")), -60.0, 1e-6);
    EXPECT_EQ(atoms.count({"A", 2, ' ', "H1"}), 0u);
  }
  // Gly 10 missing: Gly 11 is not a chain's start (its number does not
  // follow 9), and its amide H has no C'(i-1) to be placed from.
  {
    const AddedHydrogens result =
        add_hydrogens(without(heavy, [](const Atom& a) { return a.residue_number == 10; }));
    EXPECT_EQ(result.unplaced, 1);
    EXPECT_EQ(result.incomplete_residues, 1);
    const std::vector<std::string> names = names_of(result, 11);
    EXPECT_EQ(std::count(names.begin(), names.end(), "H"), 0);
    EXPECT_EQ(std::count(names.begin(), names.end(), "H1"), 0);
  }
  // Starting at Pro 19: NH2+ (H2, H3), tetrahedral.
  {
    const AddedHydrogens result =
        add_hydrogens(without(heavy, [](const Atom& a) { return a.residue_number < 19; }));
    const std::vector<std::string> names = names_of(result, 19);
    EXPECT_EQ(std::vector<std::string>(names.begin(), names.begin() + 2),
              (std::vector<std::string>{"H2", "H3"}));
    EXPECT_EQ(std::count(names.begin(), names.end(), "H"), 0);
    const auto atoms = by_key(result.atoms);
    const auto at = [&](const char* name) { return atoms.at({"A", 19, ' ', name})->position; };
    EXPECT_NEAR(angle(at("H2"), at("N"), at("H3")), kTetrahedralAngle, 1e-6);
  }
  // A second copy of the chain after the first, moved away: a chain's
  // start under another chain identifier, or numbered on (77...) in the
  // same chain; numbered with a jump (101...) in the same chain, residues
  // are missing before it.
  for (const auto& [chain, offset, starts] :
       {std::tuple{"B", 0, true}, std::tuple{"A", 76, true}, std::tuple{"A", 100, false}}) {
    std::vector<Atom> two = heavy;
    for (Atom a : heavy) {
      a.chain = chain;
      a.residue_number += offset;
      a.position.x += 100.0;
      two.push_back(a);
    }
    const AddedHydrogens result = add_hydrogens(two);
    const std::vector<std::string> names = names_of(result, 1 + offset);
    const bool h1 = std::count(names.begin(), names.end(), "H1") == (offset == 0 ? 2 : 1);
    EXPECT_EQ(h1, starts) << chain << offset;
    EXPECT_EQ(result.unplaced, starts ? 0 : 1) << chain << offset;  // the amide H of 101
  }
}

TEST_F(Ubiquitin1D3Z, Histidine) {
  const std::vector<Atom> heavy = heavy_atoms(models_->at(0).atoms);
  const auto ring_nh = [](const AddedHydrogens& r) {
    std::vector<std::string> names = names_of(r, 68);
    std::erase_if(names, [](const std::string& n) { return n != "HD1" && n != "HE2"; });
    return names;
  };
  EXPECT_EQ(ring_nh(add_hydrogens(heavy)), (std::vector<std::string>{"HD1", "HE2"}));
  // One tautomer given: kept, the other N not protonated.
  for (const char* given : {"HD1", "HE2"}) {
    std::vector<Atom> atoms = heavy;
    const AddedHydrogens both = add_hydrogens(heavy);
    for (std::size_t i : both.added) {
      if (both.atoms[i].residue_number != 68 || both.atoms[i].name != given) continue;
      const auto after = std::find_if(atoms.begin(), atoms.end(),
                                      [](const Atom& a) { return a.residue_number == 69; });
      atoms.insert(after, both.atoms[i]);
    }
    EXPECT_TRUE(ring_nh(add_hydrogens(atoms)).empty()) << given;
  }
}

TEST_F(Ubiquitin1D3Z, ThiolsAndDisulfides) {
  // Ser 20 and Ser 57 as cysteines (SG where OG is: the geometry rules do
  // not depend on the bond length).
  std::vector<Atom> atoms = heavy_atoms(models_->at(0).atoms);
  for (Atom& a : atoms) {
    if (a.residue_number != 20 && a.residue_number != 57) continue;
    a.residue_name = "CYS";
    if (a.name == "OG") a.name = "SG", a.element = "S";
  }
  const auto find = [](const std::vector<Atom>& list, int residue, const char* name) {
    for (const Atom& a : list)
      if (a.residue_number == residue && a.name == name) return &a;
    return static_cast<const Atom*>(nullptr);
  };
  {
    const AddedHydrogens result = add_hydrogens(atoms);
    for (int residue : {20, 57}) {
      const Atom* hg = find(result.atoms, residue, "HG");
      ASSERT_NE(hg, nullptr);
      const Vec3 sg = find(result.atoms, residue, "SG")->position;
      const Vec3 cb = find(result.atoms, residue, "CB")->position;
      const Vec3 ca = find(result.atoms, residue, "CA")->position;
      EXPECT_NEAR(norm(minus(hg->position, sg)), 1.34, 1e-9);
      EXPECT_NEAR(angle(cb, sg, hg->position), kThiolAngle, 1e-6);
      EXPECT_NEAR(std::fabs(torsion(ca, cb, sg, hg->position)), 180.0, 1e-6);
    }
  }
  // The SG of 57 moved to 2.05 A of that of 20: a disulfide, no HG.
  for (Atom& a : atoms) {
    if (a.residue_number == 57 && a.name == "SG") {
      a.position = find(atoms, 20, "SG")->position;
      a.position.x += 2.05;
    }
  }
  const AddedHydrogens bridged = add_hydrogens(atoms);
  EXPECT_EQ(find(bridged.atoms, 20, "HG"), nullptr);
  EXPECT_EQ(find(bridged.atoms, 57, "HG"), nullptr);
  EXPECT_NE(find(bridged.atoms, 57, "HB3"), nullptr);
  EXPECT_EQ(bridged.unplaced, 0);
}

TEST_F(Ubiquitin1D3Z, StaggeredGroupsAndHydroxyls) {
  const AddedHydrogens result = add_hydrogens(heavy_atoms(models_->at(0).atoms));
  const auto atoms = by_key(result.atoms);
  const auto at = [&](int residue, const char* name) {
    return atoms.at({"A", residue, ' ', name})->position;
  };
  // Ala 28: HB1 anti to N, HB2 at +60, HB3 at -60 (the PDB's turn).
  EXPECT_NEAR(std::fabs(torsion(at(28, "N"), at(28, "CA"), at(28, "CB"), at(28, "HB1"))), 180.0,
              1e-6);
  EXPECT_NEAR(torsion(at(28, "N"), at(28, "CA"), at(28, "CB"), at(28, "HB2")), 60.0, 1e-6);
  EXPECT_NEAR(torsion(at(28, "N"), at(28, "CA"), at(28, "CB"), at(28, "HB3")), -60.0, 1e-6);
  // Lys 6: HZ1 anti to CD.
  EXPECT_NEAR(std::fabs(torsion(at(6, "CD"), at(6, "CE"), at(6, "NZ"), at(6, "HZ1"))), 180.0, 1e-6);
  // Ser 20, Thr 7: the hydroxyl H anti to CA.
  EXPECT_NEAR(std::fabs(torsion(at(20, "CA"), at(20, "CB"), at(20, "OG"), at(20, "HG"))), 180.0,
              1e-6);
  EXPECT_NEAR(std::fabs(torsion(at(7, "CA"), at(7, "CB"), at(7, "OG1"), at(7, "HG1"))), 180.0,
              1e-6);
  // Tyr 59: HH in the ring plane, anti to CE2, cis to CE1 (as far as the
  // ring is planar).
  EXPECT_NEAR(std::fabs(torsion(at(59, "CE2"), at(59, "CZ"), at(59, "OH"), at(59, "HH"))), 180.0,
              1e-6);
  EXPECT_NEAR(torsion(at(59, "CE1"), at(59, "CZ"), at(59, "OH"), at(59, "HH")), 0.0, 1.0);
  EXPECT_NEAR(norm(minus(at(59, "HH"), at(59, "OH"))), 0.96, 1e-9);
}

TEST(Hydrogens, UnknownResiduesAndEdgeCases) {
  EXPECT_TRUE(add_hydrogens({}).atoms.empty());
  Atom ligand;
  ligand.name = "C1";
  ligand.element = "C";
  ligand.residue_name = "LIG";
  ligand.residue_number = 900;
  ligand.chain = "A";
  const std::vector<Atom> atoms = {ligand};
  const AddedHydrogens result = add_hydrogens(atoms);
  EXPECT_EQ(result.unknown_residues, 1);
  EXPECT_TRUE(result.added.empty());
  ASSERT_EQ(result.atoms.size(), 1u);
  EXPECT_TRUE(same_atom(result.atoms[0], ligand));
  // An alanine of CA alone: nothing can be placed, all is counted.
  Atom ca = ligand;
  ca.name = "CA";
  ca.residue_name = "ALA";
  const AddedHydrogens alone = add_hydrogens(std::vector<Atom>{ca});
  EXPECT_EQ(alone.unplaced, 7);  // H1 H2 H3 HA HB1 HB2 HB3
  EXPECT_EQ(alone.incomplete_residues, 1);
  EXPECT_TRUE(alone.added.empty());
  Atom bad = ca;
  bad.position.y = std::nan("");
  EXPECT_THROW(add_hydrogens(std::vector<Atom>{bad}), Error);
  EXPECT_FALSE(has_hydrogens(atoms));
  Atom d = ca;
  d.element = "D";
  EXPECT_TRUE(has_hydrogens(std::vector<Atom>{ca, d}));
}

}  // namespace
}  // namespace vorn
