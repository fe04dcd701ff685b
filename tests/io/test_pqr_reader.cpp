// The PQR reader and the transfer of PQR charges onto a structure: a file
// written by pdb2pqr for ubiquitin against its records read here without
// the reader, and small texts for each rule and error.
#include <gtest/gtest.h>
#include <unistd.h>
#include <zlib.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "io/pqr_reader.hpp"
#include "io/structure_reader.hpp"

namespace vorn::io {
namespace {

const std::string kDataDir = VORN_TEST_DATA_DIR;
const std::string kPqr = kDataDir + "/structures/ubq_1ubq_ph6.pqr";
const std::string k1ubq = kDataDir + "/raw/1UBQ_raw.pdb";

bool contains(const std::string& s, std::string_view part) {
  return s.find(part) != std::string::npos;
}

std::vector<PqrAtom> parse(std::string_view text) { return parse_pqr(text, "t.pqr"); }

std::string parse_error(std::string_view text) {
  try {
    parse(text);
  } catch (const InputError& e) {
    return e.what();
  }
  ADD_FAILURE() << "no InputError for:\n" << text;
  return {};
}

// An ATOM record of the file, split by the test itself.
struct Record {
  std::string chain, residue_name, name;
  int residue_number = 0;
  double x = 0, y = 0, z = 0, charge = 0, radius = 0;
};

std::vector<Record> records_of(const std::string& path) {
  std::vector<Record> records;
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind("ATOM", 0) != 0) continue;
    std::istringstream fields(line);
    std::string record, serial;
    Record r;
    fields >> record >> serial >> r.name >> r.residue_name >> r.chain >> r.residue_number >> r.x >>
        r.y >> r.z >> r.charge >> r.radius;
    EXPECT_FALSE(fields.fail()) << line;
    records.push_back(r);
  }
  return records;
}

std::vector<vorn::Atom> read_1ubq() {
  StructureReader reader(k1ubq);
  Model model;
  EXPECT_TRUE(reader.next(model));
  return model.atoms;
}

vorn::Atom make_atom(const std::string& chain, int number, const std::string& residue,
                     const std::string& name, vorn::Vec3 position = {}) {
  vorn::Atom a;
  a.chain = chain;
  a.residue_number = number;
  a.residue_name = residue;
  a.name = name;
  a.element = std::string(1, name[0]);
  a.position = position;
  return a;
}

std::string charges_error(const std::vector<vorn::Atom>& atoms, std::string_view text) {
  try {
    charges_from_pqr(atoms, parse(text), "t.pqr");
  } catch (const InputError& e) {
    return e.what();
  }
  ADD_FAILURE() << "no InputError for:\n" << text;
  return {};
}

// ---------------------------------------------------------------------------
// The file of pdb2pqr

TEST(PqrFile, ReadsEveryRecordOfTheUbiquitinFile) {
  const std::vector<Record> expected = records_of(kPqr);
  ASSERT_GT(expected.size(), 1000u);
  const std::vector<PqrAtom> atoms = read_pqr(kPqr);
  ASSERT_EQ(atoms.size(), expected.size());
  double net = 0.0;
  for (size_t i = 0; i < atoms.size(); ++i) {
    const PqrAtom& a = atoms[i];
    const Record& r = expected[i];
    EXPECT_EQ(a.chain, r.chain);
    EXPECT_EQ(a.residue_number, r.residue_number);
    EXPECT_EQ(a.insertion_code, ' ');
    EXPECT_EQ(a.residue_name, r.residue_name);
    EXPECT_EQ(a.name, r.name);
    EXPECT_EQ(a.position.x, r.x);
    EXPECT_EQ(a.position.y, r.y);
    EXPECT_EQ(a.position.z, r.z);
    EXPECT_EQ(a.charge, r.charge);
    EXPECT_EQ(a.radius, r.radius);
    EXPECT_EQ(a.line, static_cast<long>(i) + 1);  // the file holds ATOM lines only
    net += r.charge;
  }
  // AMBER charges of whole residues: the net charge is an integer.
  EXPECT_NEAR(net, std::round(net), 1e-6);
  double read_net = 0.0;
  for (const PqrAtom& a : atoms) read_net += a.charge;
  EXPECT_NEAR(read_net, net, 1e-9);
}

TEST(PqrFile, GzipIsReadAsItIs) {
  const std::string text = "ATOM 1 N ALA A 5 1.0 2.0 3.0 -0.25 1.8\n";
  const auto path =
      std::filesystem::temp_directory_path() / ("vorn_pqr_" + std::to_string(getpid()) + ".pqr.gz");
  gzFile f = gzopen(path.c_str(), "wb");
  ASSERT_NE(f, nullptr);
  ASSERT_EQ(gzwrite(f, text.data(), static_cast<unsigned>(text.size())),
            static_cast<int>(text.size()));
  gzclose(f);
  const std::vector<PqrAtom> atoms = read_pqr(path.string());
  std::filesystem::remove(path);
  ASSERT_EQ(atoms.size(), 1u);
  EXPECT_EQ(atoms[0].charge, -0.25);
  EXPECT_EQ(atoms[0].radius, 1.8);
}

TEST(PqrFile, MissingFileIsAnError) {
  try {
    read_pqr(kDataDir + "/no_such_file.pqr");
    ADD_FAILURE() << "no error";
  } catch (const InputError& e) {
    EXPECT_TRUE(contains(e.what(), "no_such_file.pqr: cannot open")) << e.what();
  }
}

// The charges onto the X-ray structure, which has no hydrogens: each
// hydrogen's charge lands on its heavy atom.
TEST(PqrCharges, HydrogensFoldOntoTheUbiquitinHeavyAtoms) {
  const std::vector<vorn::Atom> atoms = read_1ubq();
  const std::vector<Record> records = records_of(kPqr);
  const AtomCharges q = charges_from_pqr(atoms, read_pqr(kPqr), kPqr);
  ASSERT_EQ(q.charge.size(), atoms.size());

  // Per residue, the PQR total and the number of residues that carry one.
  std::map<int, double> residue_total;
  double net = 0.0;
  for (const Record& r : records) {
    residue_total[r.residue_number] += r.charge;
    net += r.charge;
  }
  int charged = 0;
  for (const auto& [number, total] : residue_total) charged += std::abs(total) > 0.5 ? 1 : 0;
  EXPECT_NEAR(q.net_charge, net, 1e-9);
  EXPECT_EQ(q.charged_groups, charged);
  // 5 Asp, 6 Glu, 7 Lys, 4 Arg and the two terminal residues; His 68 is
  // neutral at pH 6 in this file (17 atoms: one of HD1/HE2).
  EXPECT_EQ(charged, 24);

  std::map<int, double> structure_total;
  for (size_t i = 0; i < atoms.size(); ++i) {
    structure_total[atoms[i].residue_number] += q.charge[i];
  }
  for (const auto& [number, total] : residue_total) {
    EXPECT_NEAR(structure_total[number], total, 1e-9) << "residue " << number;
  }

  // Atoms with their hydrogens, added up from the file's records here.
  const auto record_charge = [&](int residue, const std::string& name) {
    for (const Record& r : records) {
      if (r.residue_number == residue && r.name == name) return r.charge;
    }
    ADD_FAILURE() << "no record " << name << " " << residue;
    return 0.0;
  };
  const auto structure_charge = [&](int residue, const std::string& name) {
    for (size_t i = 0; i < atoms.size(); ++i) {
      if (atoms[i].residue_number == residue && atoms[i].name == name) return q.charge[i];
    }
    ADD_FAILURE() << "no atom " << name << " " << residue;
    return 0.0;
  };
  const auto sum = [&](int residue, std::initializer_list<const char*> names) {
    double s = 0.0;
    for (const char* name : names) s += record_charge(residue, name);
    return s;
  };
  EXPECT_NEAR(structure_charge(6, "NZ"), sum(6, {"NZ", "HZ1", "HZ2", "HZ3"}), 1e-12);
  EXPECT_NEAR(structure_charge(2, "N"), sum(2, {"N", "H"}), 1e-12);
  EXPECT_NEAR(structure_charge(1, "N"), sum(1, {"N", "H", "H2", "H3"}), 1e-12);
  EXPECT_NEAR(structure_charge(59, "OH"), sum(59, {"OH", "HH"}), 1e-12);  // Tyr 59
  EXPECT_NEAR(structure_charge(21, "OD1"), record_charge(21, "OD1"), 1e-12);
  EXPECT_NEAR(structure_charge(76, "OXT"), record_charge(76, "OXT"), 1e-12);
  EXPECT_NEAR(structure_charge(42, "NH1"), sum(42, {"NH1", "HH11", "HH12"}), 1e-12);
}

// ---------------------------------------------------------------------------
// The layout, on small texts

TEST(PqrLayout, ChainOptionalInsertionCodesAndOtherRecords) {
  const auto atoms = parse(
      "REMARK   1 PQR file\n"
      "ATOM      1  N    ALA     5      1.000   2.000   3.000 -0.3000 1.8240\n"
      "ATOM      2  CA   ALA A  52A    -1.5    +2      3e1    0.1 1.9\n"
      "HETATM10001  ZN   ZN  B1000     0.0 0.0 0.0 2.0 1.1\n"
      "ATOM      3  CB   GLY -7 0 0 0 0 0\n"
      "TER\n"
      "END\n");
  ASSERT_EQ(atoms.size(), 4u);
  EXPECT_EQ(atoms[0].chain, "");
  EXPECT_EQ(atoms[0].residue_number, 5);
  EXPECT_EQ(atoms[0].residue_name, "ALA");
  EXPECT_EQ(atoms[0].name, "N");
  EXPECT_EQ(atoms[0].charge, -0.3);
  EXPECT_EQ(atoms[0].radius, 1.824);
  EXPECT_EQ(atoms[0].line, 2);
  EXPECT_EQ(atoms[1].chain, "A");
  EXPECT_EQ(atoms[1].residue_number, 52);
  EXPECT_EQ(atoms[1].insertion_code, 'A');
  EXPECT_EQ(atoms[1].position.x, -1.5);
  EXPECT_EQ(atoms[1].position.y, 2.0);
  EXPECT_EQ(atoms[1].position.z, 30.0);
  EXPECT_EQ(atoms[2].chain, "B");  // run together with its residue number
  EXPECT_EQ(atoms[2].residue_number, 1000);
  EXPECT_EQ(atoms[2].residue_name, "ZN");
  EXPECT_EQ(atoms[2].charge, 2.0);
  EXPECT_EQ(atoms[2].line, 4);
  EXPECT_EQ(atoms[3].residue_number, -7);
  EXPECT_EQ(atoms[3].line, 5);
}

TEST(PqrLayout, MalformedLinesNameFileAndLine) {
  const std::string good = "ATOM 1 N ALA A 5 1 2 3 0.1 1.5\n";
  EXPECT_EQ(parse_error(good + "ATOM 2 CA ALA A 5 1 2 3 0.1\n"),
            "t.pqr:2: found 10 fields with a chain ID, expected 11: record serial name resname "
            "[chain] resnum x y z charge radius (a field is missing)");
  EXPECT_EQ(parse_error(good + "ATOM 2 CA ALA A 5 1 2 3\n"),
            "t.pqr:2: found 9 field(s), expected 10 or 11: record serial name resname [chain] "
            "resnum x y z charge radius (coordinates run together? pdb2pqr --whitespace "
            "separates them)");
  const std::string run_together = parse_error(good + "ATOM 2 CA ALA 5 -100.123-200.456 3 0 1\n");
  EXPECT_TRUE(contains(run_together, "t.pqr:2: found 9 field(s)")) << run_together;
  EXPECT_TRUE(contains(run_together, "--whitespace")) << run_together;
  EXPECT_TRUE(contains(parse_error(good + "ATOM 2 CA ALA A 5 1 2 3 0.1 1.5 9\n"),
                       "t.pqr:2: found 12 field(s)"));
  EXPECT_EQ(parse_error("ATOM 1 N ALA A 5 1 two 3 0.1 1.5\n"),
            "t.pqr:1: y \"two\" (field 8) is not a finite number");
  EXPECT_EQ(parse_error(good + "ATOM 2 CA ALA A 5 1 2 3 nan 1.5\n"),
            "t.pqr:2: charge \"nan\" (field 10) is not a finite number");
  EXPECT_EQ(parse_error("ATOM 1 N ALA 5 1 2 3 0.1 inf\n"),
            "t.pqr:1: radius \"inf\" (field 10) is not a finite number");
  EXPECT_EQ(parse_error("ATOM 1 N ALA A 5 1 2 3 0.1 -1.5\n"),
            "t.pqr:1: radius \"-1.5\" is negative");
  EXPECT_EQ(parse_error("\n\nATOM 1 N ALA A 5x7 1 2 3 0.1 1.5\n"),
            "t.pqr:3: residue number \"5x7\" is not an integer (with an optional insertion code "
            "letter)");
  EXPECT_EQ(parse_error("ATOM one N ALA A 5 1 2 3 0.1 1.5\n"),
            "t.pqr:1: serial number \"one\" is not an integer");
  EXPECT_EQ(parse_error(good + "ATOM 2 CA ALA A 5 1 2 3 0.1 1.5\n" + good),
            "t.pqr:3: atom N of residue ALA 5 (chain A) appears twice (first at line 1)");
}

TEST(PqrLayout, NoAtomsIsAnError) {
  const std::string expected =
      "t.pqr: no ATOM or HETATM records, expected a PQR file (record serial name resname "
      "[chain] resnum x y z charge radius)";
  EXPECT_EQ(parse_error(""), expected);
  EXPECT_EQ(parse_error("REMARK nothing here\nTER\nEND\n"), expected);
  EXPECT_EQ(parse_error("ATOMS are missing\n"), expected);
}

// ---------------------------------------------------------------------------
// Charges onto a structure, on small texts

TEST(PqrCharges, MatchesByResidueAndNameAndLeavesTheRestAtZero) {
  std::vector<vorn::Atom> atoms = {
      make_atom("A", 5, "HIS", "N"),   make_atom("A", 5, "HIS", "HN"),
      make_atom("A", 5, "HIS", "NE2"), make_atom("A", 5, "HIS", "CB"),
      make_atom("A", 6, "ILE", "CD1"), make_atom("A", 6, "ILE", "OXT"),
  };
  const auto pqr = parse(
      "ATOM 1 N   HSP A 5 0 0 0 -0.5 1.8\n"
      "ATOM 2 H   HSP A 5 0 0 0  0.25 0.6\n"
      "ATOM 3 NE2 HSP A 5 0 0 0  0.125 1.8\n"
      "ATOM 4 CD  ILE A 6 0 0 0 -0.0625 1.9\n"
      "ATOM 5 OT2 ILE A 6 0 0 0 -0.75 1.6\n");
  const AtomCharges q = charges_from_pqr(atoms, pqr, "t.pqr");
  ASSERT_EQ(q.charge.size(), 6u);
  EXPECT_EQ(q.charge[0], -0.5);
  EXPECT_EQ(q.charge[1], 0.25);  // "H" for "HN"
  EXPECT_EQ(q.charge[2], 0.125);
  EXPECT_EQ(q.charge[3], 0.0);      // not in the PQR file
  EXPECT_EQ(q.charge[4], -0.0625);  // CHARMM's Ile "CD"
  EXPECT_EQ(q.charge[5], -0.75);    // CHARMM's "OT2"
  EXPECT_EQ(q.net_charge, -0.5 + 0.25 + 0.125 - 0.0625 - 0.75);
  EXPECT_EQ(q.charged_groups, 2);  // residue 5: -0.125, residue 6: -0.8125
}

TEST(PqrCharges, ChainsComparedOnlyWhereBothHaveThem) {
  const std::string no_chains = "ATOM 1 NZ LYS 7 0 0 0 1.0 1.8\n";
  const std::string chain_b = "ATOM 1 NZ LYS B 7 0 0 0 1.0 1.8\n";
  // A structure with chain A and a PQR file without chains.
  std::vector<vorn::Atom> atoms = {make_atom("A", 7, "LYS", "NZ")};
  EXPECT_EQ(charges_from_pqr(atoms, parse(no_chains), "t.pqr").charge[0], 1.0);
  // A structure without chains (the classic layout) and a PQR file with them.
  atoms = {make_atom("", 7, "LYS", "NZ")};
  EXPECT_EQ(charges_from_pqr(atoms, parse(chain_b), "t.pqr").charge[0], 1.0);
  // Both with chains: the chain must agree.
  atoms = {make_atom("A", 7, "LYS", "NZ"), make_atom("B", 7, "LYS", "NZ")};
  const AtomCharges q = charges_from_pqr(atoms, parse(chain_b), "t.pqr");
  EXPECT_EQ(q.charge[0], 0.0);
  EXPECT_EQ(q.charge[1], 1.0);
  EXPECT_EQ(q.charged_groups, 1);
  // Two chains, no chain IDs in the PQR file: which one is meant is unknown.
  EXPECT_EQ(charges_error(atoms, no_chains),
            "t.pqr:1: atom NZ of residue LYS 7 (no chain ID) fits atoms of several chains of the "
            "structure, and the PQR file has no chain IDs to tell them apart");
}

TEST(PqrCharges, HydrogensGoToTheNearestHeavyAtomOfTheirResidue) {
  const std::vector<vorn::Atom> atoms = {
      make_atom("A", 1, "SER", "CB", {0, 0, 0}), make_atom("A", 1, "SER", "OG", {1.4, 0, 0}),
      make_atom("A", 2, "GLY", "N", {0.5, 0, 0}),  // nearer to HB2, but of another residue
  };
  // PQR coordinates moved by (10, 0, 0) from the structure's: the distances
  // are taken between PQR atoms.
  const auto pqr = parse(
      "ATOM 1 CB  SER A 1 10.0 0 0 -0.1 1.9\n"
      "ATOM 2 OG  SER A 1 11.4 0 0 -0.6 1.7\n"
      "ATOM 3 HB2 SER A 1 9.5 0.9 0 0.1 1.3\n"
      "ATOM 4 HG  SER A 1 11.8 0.8 0 0.4 0.0\n"
      "ATOM 5 N   GLY A 2 9.5 1.5 0 -0.4 1.8\n"
      "ATOM 6 H   GLY A 2 9.5 2.5 0 0.4 0.6\n");
  const AtomCharges q = charges_from_pqr(atoms, pqr, "t.pqr");
  EXPECT_NEAR(q.charge[0], -0.1 + 0.1, 1e-15);
  EXPECT_NEAR(q.charge[1], -0.6 + 0.4, 1e-15);
  EXPECT_NEAR(q.charge[2], -0.4 + 0.4, 1e-15);
  EXPECT_NEAR(q.net_charge, -0.2, 1e-15);
  EXPECT_EQ(q.charged_groups, 1);
}

TEST(PqrCharges, WatersTheStructureLacksAreSkipped) {
  const std::vector<vorn::Atom> atoms = {make_atom("A", 1, "GLY", "N")};
  const AtomCharges q = charges_from_pqr(atoms,
                                         parse("ATOM 1 N GLY A 1 0 0 0 -0.4 1.8\n"
                                               "ATOM 2 O HOH W 101 5 5 5 -0.834 1.7\n"
                                               "ATOM 3 H1 HOH W 101 5 6 5 0.417 0\n"
                                               "ATOM 4 H2 HOH W 101 6 5 5 0.417 0\n"),
                                         "t.pqr");
  EXPECT_EQ(q.charge[0], -0.4);
  EXPECT_EQ(q.net_charge, -0.4);
}

TEST(PqrCharges, AtomsNotInTheStructureAreErrors) {
  const std::vector<vorn::Atom> atoms = {make_atom("A", 5, "ALA", "N"),
                                         make_atom("A", 5, "ALA", "CA")};
  EXPECT_EQ(charges_error(atoms,
                          "ATOM 1 N ALA A 5 0 0 0 -0.4 1.8\n"
                          "ATOM 2 CB ALA A 5 0 0 0 -0.2 1.9\n"),
            "t.pqr:2: atom CB of residue ALA 5 (chain A) is not in the structure");
  // A hydrogen of a residue the structure does not have.
  EXPECT_EQ(charges_error(atoms, "REMARK\nATOM 1 HA GLY A 6 0 0 0 0.1 1.1\n"),
            "t.pqr:2: atom HA of residue GLY 6 (chain A) is not in the structure");
  // Another chain, insertion code, or residue number.
  EXPECT_EQ(charges_error(atoms, "ATOM 1 N ALA B 5 0 0 0 -0.4 1.8\n"),
            "t.pqr:1: atom N of residue ALA 5 (chain B) is not in the structure");
  EXPECT_EQ(charges_error(atoms, "ATOM 1 N ALA A 5B 0 0 0 -0.4 1.8\n"),
            "t.pqr:1: atom N of residue ALA 5B (chain A) is not in the structure");
  // Two PQR atoms for one structure atom: "H" and "HN" both standing for HN.
  const std::vector<vorn::Atom> with_h = {make_atom("A", 5, "ALA", "N"),
                                          make_atom("A", 5, "ALA", "HN")};
  EXPECT_EQ(charges_error(with_h,
                          "ATOM 1 HN ALA A 5 0 0 0 0.2 1\n"
                          "ATOM 2 H ALA A 5 0 0 0 0.2 1\n"),
            "t.pqr:2: atom H of residue ALA 5 (chain A) is the structure's atom HN, as is the "
            "PQR atom of line 1");
}

TEST(PqrCharges, ErrorsOfTheRealFileNameItsLine) {
  // The ubiquitin file against the structure with residue 76 cut off.
  std::vector<vorn::Atom> atoms = read_1ubq();
  std::erase_if(atoms, [](const vorn::Atom& a) { return a.residue_number == 76; });
  size_t line = 0;
  {
    std::ifstream in(kPqr);
    std::string text;
    for (size_t n = 1; std::getline(in, text); ++n) {
      if (text.find(" GLY A  76 ") != std::string::npos) {
        line = n;
        break;
      }
    }
  }
  ASSERT_GT(line, 0u);
  try {
    charges_from_pqr(atoms, read_pqr(kPqr), kPqr);
    ADD_FAILURE() << "no error";
  } catch (const InputError& e) {
    EXPECT_EQ(std::string(e.what()), kPqr + ":" + std::to_string(line) +
                                         ": atom N of residue GLY 76 (chain A) is not in the "
                                         "structure");
  }
}

}  // namespace
}  // namespace vorn::io
