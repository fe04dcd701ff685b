// Titration charges: the Henderson-Hasselbalch charge of one group against
// values worked out by hand, which atoms carry each group's charge on small
// molecules built here, and the net charge of ubiquitin against a sum made
// from its sequence.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <numeric>
#include <string>
#include <vector>

#include "io/structure_reader.hpp"
#include "vorn/charges.hpp"
#include "vorn/error.hpp"

namespace vorn {
namespace {

constexpr double kTol = 1e-12;

// The published pKa set (Thurlkill et al. 2006), written out here so that
// the table is checked against it rather than against itself.
const std::map<std::string, std::pair<double, bool>> kPublished = {
    {"ASP", {3.67, true}},  {"GLU", {4.25, true}},         {"HIS", {6.54, false}},
    {"CYS", {8.55, true}},  {"TYR", {9.84, true}},         {"LYS", {10.40, false}},
    {"ARG", {12.3, false}}, {"N-terminus", {8.00, false}}, {"C-terminus", {3.67, true}},
};

// The charge of an acid of `pka` at `ph`, and of a base.
double acid(double pka, double ph) { return -1.0 / (1.0 + std::pow(10.0, pka - ph)); }
double base(double pka, double ph) { return 1.0 / (1.0 + std::pow(10.0, ph - pka)); }

Atom make_atom(const std::string& chain, int number, const std::string& residue,
               const std::string& name, Vec3 position = {}, char insertion = ' ') {
  Atom a;
  a.name = name;
  a.element = std::string(1, name[0]);
  a.residue_name = residue;
  a.residue_number = number;
  a.insertion_code = insertion;
  a.chain = chain;
  a.position = position;
  return a;
}

// A residue with backbone N, CA, C, O (plus `more`), its atoms spaced along
// x so that no two SG atoms come near by accident.
void add_residue(std::vector<Atom>& atoms, const std::string& chain, int number,
                 const std::string& residue, const std::vector<std::string>& more = {},
                 char insertion = ' ') {
  std::vector<std::string> names = {"N", "CA", "C", "O", "H", "HA"};
  names.insert(names.end(), more.begin(), more.end());
  for (const std::string& name : names) {
    const double x = 10.0 * static_cast<double>(atoms.size());
    atoms.push_back(make_atom(chain, number, residue, name, {x, 0.0, 0.0}, insertion));
  }
}

// The charge of the atom `name` of residue `number` in `chain`.
double charge_of(const std::vector<Atom>& atoms, const AtomCharges& q, const std::string& chain,
                 int number, const std::string& name, char insertion = ' ') {
  for (std::size_t i = 0; i < atoms.size(); ++i) {
    if (atoms[i].chain == chain && atoms[i].residue_number == number &&
        atoms[i].insertion_code == insertion && atoms[i].name == name) {
      return q.charge[i];
    }
  }
  ADD_FAILURE() << "no atom " << name << " in residue " << number;
  return std::numeric_limits<double>::quiet_NaN();
}

double sum(const std::vector<double>& v) { return std::accumulate(v.begin(), v.end(), 0.0); }

const IonisableGroup& group(const std::string& name) {
  for (const IonisableGroup& g : ionisable_groups()) {
    if (g.name == name) return g;
  }
  ADD_FAILURE() << "no group " << name;
  static const IonisableGroup none;
  return none;
}

// ---------------------------------------------------------------------------

TEST(GroupCharge, HendersonHasselbalchByHand) {
  const IonisableGroup a{"acid", 7.0, true};
  const IonisableGroup b{"base", 7.0, false};
  // 10^(pKa - pH) = 1000, 10, 1, 0.1, 0.001 at pH 4, 6, 7, 8, 10.
  EXPECT_NEAR(group_charge(a, 4.0), -1.0 / 1001.0, kTol);
  EXPECT_NEAR(group_charge(a, 6.0), -1.0 / 11.0, kTol);
  EXPECT_NEAR(group_charge(a, 7.0), -0.5, kTol);
  EXPECT_NEAR(group_charge(a, 8.0), -10.0 / 11.0, kTol);
  EXPECT_NEAR(group_charge(a, 10.0), -1000.0 / 1001.0, kTol);
  EXPECT_NEAR(group_charge(b, 4.0), 1000.0 / 1001.0, kTol);
  EXPECT_NEAR(group_charge(b, 6.0), 10.0 / 11.0, kTol);
  EXPECT_NEAR(group_charge(b, 7.0), 0.5, kTol);
  EXPECT_NEAR(group_charge(b, 8.0), 1.0 / 11.0, kTol);
  EXPECT_NEAR(group_charge(b, 10.0), 1.0 / 1001.0, kTol);
}

TEST(GroupCharge, TableGroupsAtPh4_7_10) {
  // Asp (3.67): 10^(3.67 - 4) = 10^-0.33 = 0.467735; -1/1.467735.
  EXPECT_NEAR(group_charge(group("ASP"), 4.0), -1.0 / 1.4677351, 1e-7);
  // At pH 7 and 10, 10^-3.33 = 4.6774e-4 and 10^-6.33 = 4.6774e-7.
  EXPECT_NEAR(group_charge(group("ASP"), 7.0), -1.0 / 1.00046774, 1e-7);
  EXPECT_NEAR(group_charge(group("ASP"), 10.0), -1.0 / 1.00000046774, 1e-9);
  // Lys (10.40): 10^(4 - 10.4) = 3.981e-7, 10^-3.4 = 3.981e-4, 10^-0.4 = 0.398107.
  EXPECT_NEAR(group_charge(group("LYS"), 4.0), 1.0 / 1.0000003981, 1e-9);
  EXPECT_NEAR(group_charge(group("LYS"), 7.0), 1.0 / 1.0003981, 1e-7);
  EXPECT_NEAR(group_charge(group("LYS"), 10.0), 1.0 / 1.3981072, 1e-7);
  // His (6.54): 10^(4 - 6.54) = 10^-2.54 = 0.0028840, 10^0.46 = 2.8840315,
  // 10^3.46 = 2884.0315.
  EXPECT_NEAR(group_charge(group("HIS"), 4.0), 1.0 / 1.0028840, 1e-7);
  EXPECT_NEAR(group_charge(group("HIS"), 7.0), 1.0 / 3.8840315, 1e-7);
  EXPECT_NEAR(group_charge(group("HIS"), 10.0), 1.0 / 2885.0315, 1e-9);
  // A group at its own pKa is half charged.
  EXPECT_NEAR(group_charge(group("ASP"), 3.67), -0.5, kTol);
  EXPECT_NEAR(group_charge(group("N-terminus"), 8.0), 0.5, kTol);
}

TEST(IonisableGroups, TableIsThePublishedSet) {
  const auto groups = ionisable_groups();
  ASSERT_EQ(groups.size(), kPublished.size());
  for (const IonisableGroup& g : groups) {
    const auto it = kPublished.find(g.name);
    ASSERT_NE(it, kPublished.end()) << g.name;
    EXPECT_DOUBLE_EQ(g.pka, it->second.first) << g.name;
    EXPECT_EQ(g.acid, it->second.second) << g.name;
  }
}

// ---------------------------------------------------------------------------

// Gly 1, X 2, Gly 3 in chain A: the termini fall on the glycines.
std::vector<Atom> tripeptide(const std::string& residue, const std::vector<std::string>& side) {
  std::vector<Atom> atoms;
  add_residue(atoms, "A", 1, "GLY");
  add_residue(atoms, "A", 2, residue, side);
  add_residue(atoms, "A", 3, "GLY", {"OXT"});
  return atoms;
}

TEST(TitrationCharges, CarboxylateSpreadOverBothOxygens) {
  const auto atoms = tripeptide("ASP", {"CB", "CG", "OD1", "OD2", "HB2", "HB3"});
  const AtomCharges q = titration_charges(atoms, 3.67);
  EXPECT_NEAR(charge_of(atoms, q, "A", 2, "OD1"), -0.25, kTol);
  EXPECT_NEAR(charge_of(atoms, q, "A", 2, "OD2"), -0.25, kTol);
  for (const std::string name : {"N", "CA", "C", "O", "H", "HA", "CB", "CG", "HB2", "HB3"}) {
    EXPECT_EQ(charge_of(atoms, q, "A", 2, name), 0.0) << name;
  }
  EXPECT_EQ(q.charged_groups, 3);  // Asp and the two termini
  EXPECT_NEAR(q.net_charge, -0.5 + base(8.0, 3.67) + acid(3.67, 3.67), kTol);
  EXPECT_NEAR(sum(q.charge), q.net_charge, kTol);
}

TEST(TitrationCharges, EachSideChainOnItsAtoms) {
  const double ph = 7.0;
  struct Case {
    std::string residue;
    std::vector<std::string> carriers;
    double charge;
  };
  const std::vector<Case> cases = {
      {"GLU", {"OE1", "OE2"}, acid(4.25, ph)},
      {"HIS", {"ND1", "NE2"}, base(6.54, ph)},
      {"HSD", {"ND1", "NE2"}, base(6.54, ph)},
      {"HIP", {"ND1", "NE2"}, base(6.54, ph)},
      {"HIE", {"ND1", "NE2"}, base(6.54, ph)},
      {"LYS", {"NZ"}, base(10.40, ph)},
      {"ARG", {"NE", "NH1", "NH2"}, base(12.3, ph)},
      {"TYR", {"OH"}, acid(9.84, ph)},
      {"CYS", {"SG"}, acid(8.55, ph)},
  };
  for (const Case& c : cases) {
    std::vector<std::string> side = {"CB", "HB2"};
    side.insert(side.end(), c.carriers.begin(), c.carriers.end());
    const auto atoms = tripeptide(c.residue, side);
    const AtomCharges q = titration_charges(atoms, ph);
    for (const std::string& name : c.carriers) {
      EXPECT_NEAR(charge_of(atoms, q, "A", 2, name), c.charge / c.carriers.size(), kTol)
          << c.residue << " " << name;
    }
    EXPECT_EQ(charge_of(atoms, q, "A", 2, "CB"), 0.0) << c.residue;
    EXPECT_EQ(q.charged_groups, 3) << c.residue;
    EXPECT_NEAR(q.net_charge, c.charge + base(8.0, ph) + acid(3.67, ph), kTol) << c.residue;
  }
}

TEST(TitrationCharges, NeutralResiduesCarryNothing) {
  for (const std::string residue : {"ALA", "SER", "ASN", "GLN", "ASH", "CYX"}) {
    const auto atoms = tripeptide(residue, {"CB", "OG", "OD1", "OE1", "NE2", "SG"});
    const AtomCharges q = titration_charges(atoms, 7.0);
    EXPECT_EQ(q.charged_groups, 2) << residue;  // the termini only
    for (const std::string name : {"OG", "OD1", "OE1", "NE2", "SG"}) {
      EXPECT_EQ(charge_of(atoms, q, "A", 2, name), 0.0) << residue << " " << name;
    }
  }
}

TEST(TitrationCharges, GroupWithSomeCarriersMissing) {
  // Arg with NE only: the whole charge on NE. Asp without its oxygens: no
  // group.
  std::vector<Atom> atoms = tripeptide("ARG", {"CB", "CD", "NE"});
  add_residue(atoms, "B", 7, "ASP", {"CB", "CG"});
  add_residue(atoms, "B", 8, "ALA", {"CB"});
  const AtomCharges q = titration_charges(atoms, 7.0);
  EXPECT_NEAR(charge_of(atoms, q, "A", 2, "NE"), base(12.3, 7.0), kTol);
  EXPECT_EQ(charge_of(atoms, q, "B", 7, "CG"), 0.0);
  EXPECT_EQ(q.charged_groups, 5);  // Arg and two termini per chain
}

TEST(TitrationCharges, DisulfideCysteinesCarryNothing) {
  std::vector<Atom> atoms;
  add_residue(atoms, "A", 1, "GLY");
  add_residue(atoms, "A", 2, "CYS", {"CB"});
  atoms.push_back(make_atom("A", 2, "CYS", "SG", {100.0, 0.0, 0.0}));
  add_residue(atoms, "A", 3, "CYS", {"CB"});
  atoms.push_back(make_atom("A", 3, "CYS", "SG", {100.0, 2.04, 0.0}));  // bonded to 2
  add_residue(atoms, "A", 4, "CYS", {"CB"});
  atoms.push_back(make_atom("A", 4, "CYS", "SG", {100.0, -2.6, 0.0}));  // too far from 2
  add_residue(atoms, "A", 5, "GLY");
  const double ph = 8.55;
  const AtomCharges q = titration_charges(atoms, ph);
  EXPECT_EQ(charge_of(atoms, q, "A", 2, "SG"), 0.0);
  EXPECT_EQ(charge_of(atoms, q, "A", 3, "SG"), 0.0);
  EXPECT_NEAR(charge_of(atoms, q, "A", 4, "SG"), -0.5, kTol);
  EXPECT_EQ(q.charged_groups, 3);
}

TEST(TitrationCharges, TerminiOfEachChain) {
  const double ph = 7.0;
  std::vector<Atom> atoms;
  add_residue(atoms, "A", 1, "PRO", {"CB", "CG", "CD"});  // proline N-terminus
  add_residue(atoms, "A", 2, "ALA", {"CB"});
  add_residue(atoms, "A", 3, "GLY", {"OXT"});
  add_residue(atoms, "B", 10, "ALA", {"H1", "H2", "H3"});
  add_residue(atoms, "B", 11, "GLY");  // no OXT, as in many NMR files
  const AtomCharges q = titration_charges(atoms, ph);
  const double n_term = base(8.0, ph);
  const double c_term = acid(3.67, ph);
  EXPECT_NEAR(charge_of(atoms, q, "A", 1, "N"), n_term, kTol);
  EXPECT_EQ(charge_of(atoms, q, "A", 1, "O"), 0.0);
  EXPECT_EQ(charge_of(atoms, q, "A", 2, "N"), 0.0);
  EXPECT_EQ(charge_of(atoms, q, "A", 2, "O"), 0.0);
  EXPECT_NEAR(charge_of(atoms, q, "A", 3, "O"), c_term / 2, kTol);
  EXPECT_NEAR(charge_of(atoms, q, "A", 3, "OXT"), c_term / 2, kTol);
  EXPECT_EQ(charge_of(atoms, q, "A", 3, "N"), 0.0);
  EXPECT_NEAR(charge_of(atoms, q, "B", 10, "N"), n_term, kTol);
  for (const std::string name : {"H1", "H2", "H3", "H"}) {
    EXPECT_EQ(charge_of(atoms, q, "B", 10, name), 0.0) << name;
  }
  EXPECT_NEAR(charge_of(atoms, q, "B", 11, "O"), c_term, kTol);
  EXPECT_EQ(q.charged_groups, 4);
  EXPECT_NEAR(q.net_charge, 2 * (n_term + c_term), kTol);
  EXPECT_NEAR(sum(q.charge), q.net_charge, kTol);
}

TEST(TitrationCharges, TerminiSkipResiduesWithoutAlphaCarbon) {
  // A capping group before and a calcium ion and a water after the chain:
  // the termini are those of the amino acids.
  std::vector<Atom> atoms;
  atoms.push_back(make_atom("A", 0, "ACE", "C"));
  atoms.push_back(make_atom("A", 0, "ACE", "O"));
  add_residue(atoms, "A", 1, "ALA");
  add_residue(atoms, "A", 2, "ALA");
  atoms.push_back(make_atom("A", 3, "CA", "CA"));
  atoms.push_back(make_atom("A", 4, "HOH", "O"));
  const AtomCharges q = titration_charges(atoms, 7.0);
  EXPECT_NEAR(charge_of(atoms, q, "A", 1, "N"), base(8.0, 7.0), kTol);
  EXPECT_NEAR(charge_of(atoms, q, "A", 2, "O"), acid(3.67, 7.0), kTol);
  EXPECT_EQ(charge_of(atoms, q, "A", 0, "O"), 0.0);
  EXPECT_EQ(charge_of(atoms, q, "A", 3, "CA"), 0.0);
  EXPECT_EQ(charge_of(atoms, q, "A", 4, "O"), 0.0);
  EXPECT_EQ(q.charged_groups, 2);
}

TEST(TitrationCharges, InsertionCodesSeparateResidues) {
  std::vector<Atom> atoms;
  add_residue(atoms, "A", 51, "GLY");
  add_residue(atoms, "A", 52, "LYS", {"NZ"});
  add_residue(atoms, "A", 52, "LYS", {"NZ"}, 'A');
  add_residue(atoms, "A", 53, "GLY");
  const AtomCharges q = titration_charges(atoms, 7.0);
  EXPECT_NEAR(charge_of(atoms, q, "A", 52, "NZ"), base(10.40, 7.0), kTol);
  EXPECT_NEAR(charge_of(atoms, q, "A", 52, "NZ", 'A'), base(10.40, 7.0), kTol);
  EXPECT_EQ(q.charged_groups, 4);
}

TEST(TitrationCharges, NucleicAcidPhosphates) {
  std::vector<Atom> atoms;
  const auto nucleotide = [&](int number, const std::string& residue,
                              const std::vector<std::string>& names) {
    for (const std::string& name : names) atoms.push_back(make_atom("B", number, residue, name));
  };
  nucleotide(1, "DG", {"O5'", "C5'", "C4'", "O3'", "N9"});  // 5' end without phosphate
  nucleotide(2, "DC", {"P", "OP1", "OP2", "O5'", "C5'", "O3'"});
  nucleotide(3, "ADE", {"P", "O1P", "O2P", "O5'", "N9"});
  nucleotide(4, "U", {"P", "OP1", "OP2", "O5'", "O2'"});
  nucleotide(5, "THY", {"P", "O1P", "O5'"});  // one oxygen left in the file
  const AtomCharges q = titration_charges(atoms, 7.0);
  for (const std::string name : {"O5'", "C5'", "C4'", "O3'", "N9"}) {
    EXPECT_EQ(charge_of(atoms, q, "B", 1, name), 0.0) << name;
  }
  EXPECT_NEAR(charge_of(atoms, q, "B", 2, "OP1"), -0.5, kTol);
  EXPECT_NEAR(charge_of(atoms, q, "B", 2, "OP2"), -0.5, kTol);
  EXPECT_EQ(charge_of(atoms, q, "B", 2, "P"), 0.0);
  EXPECT_NEAR(charge_of(atoms, q, "B", 3, "O1P"), -0.5, kTol);
  EXPECT_NEAR(charge_of(atoms, q, "B", 3, "O2P"), -0.5, kTol);
  EXPECT_NEAR(charge_of(atoms, q, "B", 4, "OP2"), -0.5, kTol);
  EXPECT_NEAR(charge_of(atoms, q, "B", 5, "O1P"), -1.0, kTol);
  EXPECT_EQ(q.charged_groups, 4);
  EXPECT_NEAR(q.net_charge, -4.0, kTol);
  EXPECT_NEAR(sum(q.charge), -4.0, kTol);
  // Not titrated: the same at the ends of the pH range.
  EXPECT_NEAR(titration_charges(atoms, 0.0).net_charge, -4.0, kTol);
  EXPECT_NEAR(titration_charges(atoms, 14.0).net_charge, -4.0, kTol);
}

TEST(TitrationCharges, HydrogensNeverCarryCharge) {
  // An atom named like a carrier but of element H.
  auto atoms = tripeptide("LYS", {"NZ"});
  Atom h = make_atom("A", 2, "LYS", "NZ");
  h.element = "H";
  atoms.push_back(h);
  const AtomCharges q = titration_charges(atoms, 7.0);
  EXPECT_EQ(q.charge.back(), 0.0);
  EXPECT_NEAR(charge_of(atoms, q, "A", 2, "NZ"), base(10.40, 7.0), kTol);
}

TEST(TitrationCharges, EmptyStructure) {
  const AtomCharges q = titration_charges({}, 7.0);
  EXPECT_TRUE(q.charge.empty());
  EXPECT_EQ(q.net_charge, 0.0);
  EXPECT_EQ(q.charged_groups, 0);
}

TEST(TitrationCharges, PhOutsideTheRangeIsAnError) {
  const auto atoms = tripeptide("LYS", {"NZ"});
  const auto message = [&](double ph) -> std::string {
    try {
      titration_charges(atoms, ph);
    } catch (const Error& e) {
      return e.what();
    }
    ADD_FAILURE() << "no error for pH " << ph;
    return {};
  };
  EXPECT_EQ(message(14.5), "pH must be between 0 and 14 (got 14.5)");
  EXPECT_EQ(message(-0.1), "pH must be between 0 and 14 (got -0.1)");
  EXPECT_EQ(message(std::numeric_limits<double>::quiet_NaN()),
            "pH must be between 0 and 14 (got nan)");
  EXPECT_EQ(message(std::numeric_limits<double>::infinity()),
            "pH must be between 0 and 14 (got inf)");
  EXPECT_NO_THROW(titration_charges(atoms, 0.0));
  EXPECT_NO_THROW(titration_charges(atoms, 14.0));
}

// ---------------------------------------------------------------------------
// Ubiquitin (PDB 2MJB, model 1) at pH 6.

const std::string kUbiquitin =
    "MQIFVKTLTGKTITLEVEPSDTIENVKAKIQDKEGIPPDQQRLIFAGKQLEDGRTLSDYNIQKESTLHLVLRLRGG";

std::vector<Atom> read_ubiquitin(bool keep_hydrogens) {
  io::ReadOptions options;
  options.keep_hydrogens = keep_hydrogens;
  io::StructureReader reader(std::string(VORN_TEST_DATA_DIR) + "/structures/ubq_2mjb_m1.pdb",
                             options);
  io::Model model;
  EXPECT_TRUE(reader.next(model));
  return model.atoms;
}

TEST(TitrationCharges, UbiquitinNetChargeFromItsSequence) {
  const double ph = 6.0;
  ASSERT_EQ(kUbiquitin.size(), 76u);
  std::map<char, int> count;
  for (const char c : kUbiquitin) ++count[c];
  ASSERT_EQ(count['C'], 0);
  const double expected = count['D'] * acid(3.67, ph) + count['E'] * acid(4.25, ph) +
                          count['H'] * base(6.54, ph) + count['K'] * base(10.40, ph) +
                          count['R'] * base(12.3, ph) + count['Y'] * acid(9.84, ph) +
                          base(8.00, ph) + acid(3.67, ph);
  const int groups =
      count['D'] + count['E'] + count['H'] + count['K'] + count['R'] + count['Y'] + 2;

  // The file holds this sequence.
  const std::map<std::string, char> one_letter = {
      {"ALA", 'A'}, {"ARG", 'R'}, {"ASN", 'N'}, {"ASP", 'D'}, {"CYS", 'C'},
      {"GLN", 'Q'}, {"GLU", 'E'}, {"GLY", 'G'}, {"HIS", 'H'}, {"ILE", 'I'},
      {"LEU", 'L'}, {"LYS", 'K'}, {"MET", 'M'}, {"PHE", 'F'}, {"PRO", 'P'},
      {"SER", 'S'}, {"THR", 'T'}, {"TRP", 'W'}, {"TYR", 'Y'}, {"VAL", 'V'}};
  const std::vector<Atom> atoms = read_ubiquitin(false);
  std::string sequence;
  int last = 0;
  for (const Atom& a : atoms) {
    if (a.residue_number == last) continue;
    last = a.residue_number;
    sequence += one_letter.at(a.residue_name);
  }
  ASSERT_EQ(sequence, kUbiquitin);

  const AtomCharges q = titration_charges(atoms, ph);
  EXPECT_NEAR(q.net_charge, expected, 1e-9);
  EXPECT_NEAR(sum(q.charge), expected, 1e-9);
  EXPECT_EQ(q.charged_groups, groups);
  EXPECT_EQ(q.charge.size(), atoms.size());

  // With its hydrogens read as well, the same charges on the heavy atoms.
  const std::vector<Atom> with_h = read_ubiquitin(true);
  ASSERT_GT(with_h.size(), atoms.size());
  const AtomCharges qh = titration_charges(with_h, ph);
  EXPECT_NEAR(qh.net_charge, expected, 1e-9);
  EXPECT_EQ(qh.charged_groups, groups);
  for (std::size_t i = 0; i < with_h.size(); ++i) {
    if (with_h[i].element == "H") {
      EXPECT_EQ(qh.charge[i], 0.0) << with_h[i].name;
    }
  }
}

}  // namespace
}  // namespace vorn
