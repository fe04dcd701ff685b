// Tests of the coordinate file reader.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "capture.hpp"
#include "classic/pdb_reader.hpp"
#include "core/fatal.hpp"

namespace vorn {
namespace {

using test::Capture;
using test::data_path;

// A private directory for the files written by one test.
class TempDir {
 public:
  TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "vorn_pdb_XXXXXX").string();
    const char* made = mkdtemp(pattern.data());
    EXPECT_NE(made, nullptr);
    path_ = pattern;
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  ~TempDir() { std::filesystem::remove_all(path_); }

  std::string write(const std::string& name, const std::string& text) const {
    std::string file = (path_ / name).string();
    std::ofstream(file, std::ios::binary) << text;
    return file;
  }

 private:
  std::filesystem::path path_;
};

struct Result {
  int count;
  std::string out;
};

Result read_text(const std::string& text, AtomArrays& atoms) {
  TempDir dir;
  const std::string file = dir.write("in.pdb", text);
  Capture out;
  const int count = reading_PDBfile(file.c_str(), atoms, out.file());
  return {count, out.str()};
}

// A record parsed independently of the reader, from a line whose first
// token is ATOM and which has no chain identifier.
struct Record {
  int serial = 0;
  std::string name;
  std::string residue;
  int resnum = 0;
  double x = 0, y = 0, z = 0;
};

std::vector<Record> atom_lines(const std::string& path) {
  std::ifstream in(path);
  std::vector<Record> records;
  for (std::string line; std::getline(in, line);) {
    std::istringstream fields(line);
    std::string keyword;
    if (!(fields >> keyword) || keyword != "ATOM") {
      continue;
    }
    Record r;
    fields >> r.serial >> r.name >> r.residue >> r.resnum >> r.x >> r.y >> r.z;
    EXPECT_FALSE(fields.fail()) << line;
    records.push_back(r);
  }
  return records;
}

std::string repeat(const std::string& text, int times) {
  std::string result;
  for (int i = 0; i < times; ++i) {
    result += text;
  }
  return result;
}

const std::string kDropped = "Lines with unknown entries in the PDB file are ignored!\n";

// n records of known names: serial i, residue number i, x = i.
std::string known_records(int n) {
  std::string text;
  for (int i = 1; i <= n; ++i) {
    text += "ATOM " + std::to_string(i) + " CA ALA " + std::to_string(i) + " " + std::to_string(i) +
            ".5 -1.25 2.0 1.00 0.00 C\n";
  }
  return text;
}

TEST(PdbReader, KnownRecordsAreStoredFromIndexOne) {
  AtomArrays atoms;
  const Result r = read_text(
      "HEADER    SOME PROTEIN\n"
      "REMARK 1 free text\n"
      "ATOM      7  N    MET     1    52.923   -90.016     8.509  1.00  0.00      N\n"
      "ATOM      8  CA   MET     1    51.653   -89.304     8.833\n"
      "ATOM      9  H    MET     2    -1.5      0.25      1e2\n"
      "END\n",
      atoms);
  EXPECT_EQ(r.count, 3);
  EXPECT_EQ(r.out, "");
  // Index 0 is never written.
  EXPECT_EQ(atoms.atom[0], 0);
  EXPECT_EQ(atoms.x[0], 0.0);
  EXPECT_EQ(atoms.atomno[0], 0);

  EXPECT_EQ(atoms.atom[1], 211);  // N
  EXPECT_EQ(atoms.aa[1], 171);    // MET, position 171 of the residue list
  EXPECT_EQ(atoms.mass[1], static_cast<double>(14.007F));
  EXPECT_EQ(atoms.atomno[1], 7);
  EXPECT_EQ(atoms.res_nr[1], 1);
  EXPECT_EQ(atoms.x[1], 52.923);
  EXPECT_EQ(atoms.y[1], -90.016);
  EXPECT_EQ(atoms.z[1], 8.509);

  EXPECT_EQ(atoms.atom[2], 114);  // CA
  EXPECT_EQ(atoms.mass[2], static_cast<double>(12.011F));
  EXPECT_EQ(atoms.atomno[2], 8);

  // Hydrogens are stored like any other atom.
  EXPECT_EQ(atoms.atom[3], 551);
  EXPECT_EQ(atoms.mass[3], static_cast<double>(1.008F));
  EXPECT_EQ(atoms.res_nr[3], 2);
  EXPECT_EQ(atoms.x[3], -1.5);
  EXPECT_EQ(atoms.y[3], 0.25);
  EXPECT_EQ(atoms.z[3], 100.0);
  EXPECT_EQ(atoms.atom[4], 0);
}

TEST(PdbReader, UnknownResidueIsDroppedAndTheNextRecordTakesItsIndex) {
  AtomArrays atoms;
  const Result r = read_text(
      "ATOM 1 N MET 1 1.0 2.0 3.0\n"
      "ATOM 2 CA XYZ 1 4.0 5.0 6.0\n"
      "ATOM 3 C MET 1 7.0 8.0 9.0\n"
      "END\n",
      atoms);
  EXPECT_EQ(r.count, 2);
  EXPECT_EQ(r.out, "There is a residue of unknown type: XYZ\n" + kDropped);
  EXPECT_EQ(atoms.atom[2], 1);  // C
  EXPECT_EQ(atoms.atomno[2], 3);
  EXPECT_EQ(atoms.x[2], 7.0);
}

TEST(PdbReader, BothLookupsReportAndTheMassIsNotAskedForDroppedRecords) {
  AtomArrays atoms;
  const Result r = read_text(
      "ATOM 1 HG3 XYZ 1 1.0 2.0 3.0\n"
      "ATOM 2 HG3 GLU 1 1.0 2.0 3.0\n"
      "ATOM 3 CA GLU 1 1.0 2.0 3.0\n"
      "END\n",
      atoms);
  EXPECT_EQ(r.count, 1);
  // One atom message per unknown atom: the type lookup's; return_mass only
  // runs for stored records.
  EXPECT_EQ(r.out,
            "There is a atom of unknown type: HG3\n"
            "There is a residue of unknown type: XYZ\n" +
                kDropped + "There is a atom of unknown type: HG3\n" + kDropped);
  EXPECT_EQ(atoms.atomno[1], 3);
}

TEST(PdbReader, MissingFileIsFatal) {
  AtomArrays atoms;
  TempDir dir;
  const std::string missing = dir.write("x", "") + "-absent.pdb";
  Capture out;
  try {
    reading_PDBfile(missing.c_str(), atoms, out.file());
    FAIL() << "no error";
  } catch (const FatalError& e) {
    EXPECT_EQ(e.text(), "run-time errror...\n'" + missing +
                            "' - There is no such file!\n...now exiting to system...\n");
    EXPECT_EQ(e.stream(), Stream::err);
    EXPECT_EQ(e.status(), 1);
  }
}

TEST(PdbReader, LargestMoleculeOf4998AtomsIsRead) {
  AtomArrays atoms;
  const Result r = read_text(known_records(4998) + "END\n", atoms);
  EXPECT_EQ(r.count, 4998);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(atoms.atomno[4998], 4998);
  EXPECT_EQ(atoms.res_nr[4998], 4998);
  EXPECT_EQ(atoms.x[4998], 4998.5);
  EXPECT_EQ(atoms.y[4998], -1.25);
}

void expect_too_many(const std::string& text) {
  AtomArrays atoms;
  try {
    read_text(text, atoms);
    FAIL() << "no error";
  } catch (const FatalError& e) {
    EXPECT_EQ(e.text(), "run-time error...\nToo many atoms ...\n...now exiting to system...\n");
    EXPECT_EQ(e.stream(), Stream::err);
    EXPECT_EQ(e.status(), 1);
  }
}

TEST(PdbReader, MoleculeOf4999AtomsIsTooLarge) { expect_too_many(known_records(4999) + "END\n"); }

TEST(PdbReader, MoleculeOfMoreAtomsIsTooLarge) {
  expect_too_many(known_records(6000) + "END\n");
  expect_too_many(known_records(5200));  // without END as well
}

TEST(PdbReader, DroppedRecordsDoNotCountTowardsTheLimit) {
  AtomArrays atoms;
  const Result r = read_text(
      "ATOM 1 HG3 ALA 1 0 0 0\n" + known_records(4998) + "ATOM 1 HG3 ALA 1 0 0 0\nEND\n", atoms);
  EXPECT_EQ(r.count, 4998);
  EXPECT_EQ(r.out, repeat("There is a atom of unknown type: HG3\n" + kDropped, 2));
}

TEST(PdbReader, RealLargeFileIsTooLarge) {
  AtomArrays atoms;
  Capture out;
  const std::string file = data_path("structures/unc18_stx1_2xhe_xray.pdb");
  EXPECT_THROW(reading_PDBfile(file.c_str(), atoms, out.file()), FatalError);
}

TEST(PdbReader, FileWithoutAtomGivesNoAtoms) {
  AtomArrays atoms;
  EXPECT_EQ(read_text("", atoms).count, 0);
  const Result r = read_text("HEADER nothing here\nHETATM 1 O HOH 1 1.0 2.0 3.0\nEND\n", atoms);
  EXPECT_EQ(r.count, 0);
  EXPECT_EQ(r.out, "");
}

TEST(PdbReader, FileWithoutEndStopsAtEndOfFile) {
  AtomArrays atoms;
  Result r = read_text("ATOM 1 N MET 1 1.0 2.0 3.0\nATOM 2 CA MET 1 4.0 5.0 6.0\n", atoms);
  EXPECT_EQ(r.count, 2);
  EXPECT_EQ(atoms.x[2], 4.0);
  // No line end after the last field either.
  r = read_text("ATOM 1 N MET 1 1.0 2.0 3.0", atoms);
  EXPECT_EQ(r.count, 1);
  EXPECT_EQ(atoms.z[1], 3.0);
}

TEST(PdbReader, AtomAsLastTokenStartsNoRecord) {
  AtomArrays atoms;
  const Result r = read_text("ATOM 1 N MET 1 1.0 2.0 3.0\nATOM\n", atoms);
  EXPECT_EQ(r.count, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(atoms.atom[2], 0);
}

TEST(PdbReader, RecordCutShortByEndOfFileKeepsThePreviousValues) {
  AtomArrays atoms;
  const Result r = read_text("ATOM 1 N MET 4 1.0 2.0 3.0\nATOM 2 CA", atoms);
  EXPECT_EQ(r.count, 2);
  EXPECT_EQ(atoms.atom[2], 114);
  EXPECT_EQ(atoms.aa[2], 171);  // residue name of the previous record
  EXPECT_EQ(atoms.atomno[2], 2);
  EXPECT_EQ(atoms.res_nr[2], 4);
  EXPECT_EQ(atoms.x[2], 1.0);
  EXPECT_EQ(atoms.z[2], 3.0);
}

TEST(PdbReader, OnlyTheBareEndTokenEndsReading) {
  AtomArrays atoms;
  const Result r = read_text(
      "MODEL 1\nATOM 1 N MET 1 1.0 2.0 3.0\nENDMDL\n"
      "MODEL 2\nATOM 2 N MET 1 4.0 5.0 6.0\nENDX END_ ENDMDL\n"
      "ATOM 3 CA MET 1 7.0 8.0 9.0\n"
      "END\n"
      "ATOM 4 C MET 1 0.0 0.0 0.0\nEND\n",
      atoms);
  EXPECT_EQ(r.count, 3);
  EXPECT_EQ(atoms.atomno[3], 3);
  EXPECT_EQ(atoms.atom[4], 0);
}

TEST(PdbReader, EndMayFollowOnTheSameLine) {
  AtomArrays atoms;
  const Result r =
      read_text("ATOM 1 N MET 1 1.0 2.0 3.0 1.00 END\nATOM 2 CA MET 1 4.0 5.0 6.0\n", atoms);
  EXPECT_EQ(r.count, 1);
}

TEST(PdbReader, LongTokensAreReadWhole) {
  AtomArrays atoms;
  const std::string long_name(5000, 'Q');
  const Result r =
      read_text("REMARK " + long_name + "\nATOM 1 " + long_name + " MET 1 1 2 3\n" + "ATOM 2 CA " +
                    long_name + " 1 1 2 3\nATOM 3 CA MET 1 1 2 3\n" + long_name + " END\n",
                atoms);
  EXPECT_EQ(r.count, 1);
  EXPECT_EQ(r.out, "There is a atom of unknown type: " + long_name + "\n" + kDropped +
                       "There is a residue of unknown type: " + long_name + "\n" + kDropped);
  EXPECT_EQ(atoms.atomno[1], 3);
}

TEST(PdbReader, ChainIdentifierMisreadsTheRecord) {
  AtomArrays atoms;
  // The residue number scan stops at the chain identifier: residue number and
  // coordinates keep the previous record's values, and the token scan goes
  // over the rest of the line.
  const Result r = read_text(
      "ATOM 1 N MET 5 1.0 2.0 3.0\n"
      "ATOM 2 CA ALA A 6 4.0 5.0 6.0 1.00 0.00 C\n"
      "ATOM 3 C GLY A 7 7.0 8.0 9.0 1.00 0.00 C\n"
      "END\n",
      atoms);
  EXPECT_EQ(r.count, 3);
  EXPECT_EQ(r.out, "");
  for (int i = 2; i <= 3; ++i) {
    EXPECT_EQ(atoms.atomno[i], i);
    EXPECT_EQ(atoms.res_nr[i], 5);
    EXPECT_EQ(atoms.x[i], 1.0);
    EXPECT_EQ(atoms.y[i], 2.0);
    EXPECT_EQ(atoms.z[i], 3.0);
  }
  EXPECT_EQ(atoms.atom[2], 114);
  EXPECT_EQ(atoms.aa[2], 35);  // ALA: the names before the identifier are read
  EXPECT_EQ(atoms.atom[3], 1);
}

TEST(PdbReader, ChainIdentifierFromTheFirstRecordPutsEveryAtomAtTheOrigin) {
  AtomArrays atoms;
  const Result r = read_text(
      "ATOM 1 N MET A 1 27.340 24.430 2.614 1.00 9.67 N\n"
      "ATOM 2 CA MET A 1 26.266 25.413 2.842 1.00 10.38 C\n"
      "END\n",
      atoms);
  EXPECT_EQ(r.count, 2);
  for (int i = 1; i <= 2; ++i) {
    EXPECT_EQ(atoms.atomno[i], i);
    EXPECT_EQ(atoms.res_nr[i], 0);
    EXPECT_EQ(atoms.x[i], 0.0);
    EXPECT_EQ(atoms.y[i], 0.0);
    EXPECT_EQ(atoms.z[i], 0.0);
  }
}

TEST(PdbReader, BareAtomWordInFreeTextStartsARecordWithEmptyNames) {
  AtomArrays atoms;
  const Result r = read_text(
      "REMARK 500 AN ATOM LOCATED WITHIN\n"
      "ATOM 1 N MET 1 1.0 2.0 3.0\n"
      "END\n",
      atoms);
  EXPECT_EQ(r.count, 1);
  EXPECT_EQ(r.out,
            "There is a atom of unknown type: \nThere is a residue of unknown type: \n" + kDropped);
}

TEST(PdbReader, RawStandardFileWithChainIdentifiers) {
  const std::string path = data_path("raw/1UBQ_raw.pdb");
  // Independent counts: ATOM records, and the bare word ATOM in other lines
  // (each starts a record whose serial cannot be read, so its names stay
  // empty and it is dropped).
  int records = 0;
  int words = 0;
  {
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) {
      std::istringstream tokens(line);
      std::string token;
      tokens >> token;
      if (token == "ATOM") {
        ++records;
        continue;
      }
      while (tokens >> token) {
        words += token == "ATOM" ? 1 : 0;
      }
    }
  }
  ASSERT_GT(records, 0);
  ASSERT_GT(words, 0);
  AtomArrays atoms;
  Capture out;
  const int count = reading_PDBfile(path.c_str(), atoms, out.file());
  EXPECT_EQ(count, records);
  EXPECT_EQ(out.str(), repeat("There is a atom of unknown type: \n"
                              "There is a residue of unknown type: \n" +
                                  kDropped,
                              words));
  for (int i = 1; i <= count; ++i) {
    EXPECT_EQ(atoms.atomno[i], i);
    EXPECT_EQ(atoms.res_nr[i], 0);
    EXPECT_EQ(atoms.x[i], 0.0);
    EXPECT_EQ(atoms.y[i], 0.0);
    EXPECT_EQ(atoms.z[i], 0.0);
  }
  EXPECT_EQ(atoms.atom[1], 211);
  EXPECT_EQ(atoms.atom[2], 114);
}

// Reads a data file and compares every stored atom with the ATOM lines whose
// names are known; the only unknown name in the ubiquitin files is HG3.
void expect_matches_file(const std::string& path, int expected_count) {
  const std::set<std::string> unknown = {"HG3"};
  std::vector<Record> kept;
  int dropped = 0;
  for (const Record& r : atom_lines(path)) {
    if (unknown.count(r.name) != 0) {
      ++dropped;
    } else {
      kept.push_back(r);
    }
  }
  ASSERT_EQ(static_cast<int>(kept.size()), expected_count);

  AtomArrays atoms;
  Capture out;
  const int count = reading_PDBfile(path.c_str(), atoms, out.file());
  ASSERT_EQ(count, static_cast<int>(kept.size()));
  EXPECT_EQ(out.str(), repeat("There is a atom of unknown type: HG3\n" + kDropped, dropped));
  for (int i = 1; i <= count; ++i) {
    const Record& r = kept[i - 1];
    ASSERT_EQ(atoms.atomno[i], r.serial) << i;
    ASSERT_EQ(atoms.res_nr[i], r.resnum) << i;
    ASSERT_EQ(atoms.x[i], r.x) << i;
    ASSERT_EQ(atoms.y[i], r.y) << i;
    ASSERT_EQ(atoms.z[i], r.z) << i;
    if (r.name == "N") {
      EXPECT_EQ(atoms.atom[i], 211);
    }
    if (r.name == "CA") {
      EXPECT_EQ(atoms.atom[i], 114);
    }
    if (r.name == "H") {
      EXPECT_EQ(atoms.atom[i], 551);
    }
    if (r.residue == "MET") {
      EXPECT_EQ(atoms.aa[i], 171);
    }
  }
}

TEST(PdbReader, UbiquitinModelOne) {
  // 1231 ATOM lines (data README) of which 27 carry HG3.
  expect_matches_file(data_path("structures/ubq_1d3z_m1.pdb"), 1204);
}

TEST(PdbReader, AllModelsUpToTheBareEndAreRead) {
  // Four models of 1204 known atoms each, separated by MODEL/ENDMDL.
  expect_matches_file(data_path("structures/ubq_1d3z_models1-4.pdb"), 4 * 1204);
}

}  // namespace
}  // namespace vorn
