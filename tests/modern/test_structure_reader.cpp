// Structure reader: real PDB and mmCIF entries against independently parsed
// records, and small files written here for each reading rule.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "io/structure_reader.hpp"
#include "temp_dir_test.hpp"

// Options are written with designated initializers, leaving the other
// members at their defaults on purpose.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace vorn::io {
namespace {

namespace fs = std::filesystem;

std::string data_file(const std::string& name) {
  return std::string(VORN_TEST_DATA_DIR) + "/" + name;
}

std::vector<Model> read_models(const std::string& path, ReadOptions options = {},
                               std::optional<Format> format = {}) {
  StructureReader reader(path, std::move(options), format);
  std::vector<Model> models;
  Model model;
  while (reader.next(model)) models.push_back(model);
  return models;
}

std::string read_text(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// An atom as a test reads it from the text, without the reader.
struct PlainAtom {
  std::string name;
  std::string residue_name;
  int residue_number = 0;
  std::string chain;
  std::string element;
  double x = 0, y = 0, z = 0;
};

// ATOM records of a file in the classic layout: blank-separated
// "ATOM serial name resname resnum x y z", no chain.
std::vector<PlainAtom> classic_atoms(const std::string& path) {
  std::vector<PlainAtom> atoms;
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    std::string record;
    int serial = 0;
    PlainAtom a;
    if (!(fields >> record) || record != "ATOM") continue;
    fields >> serial >> a.name >> a.residue_name >> a.residue_number >> a.x >> a.y >> a.z;
    EXPECT_FALSE(fields.fail()) << line;
    atoms.push_back(a);
  }
  return atoms;
}

std::string column(const std::string& line, size_t from, size_t count) {
  if (from >= line.size()) return "";
  std::string s = line.substr(from, count);
  s.erase(0, s.find_first_not_of(' '));
  s.erase(s.find_last_not_of(' ') + 1);
  return s;
}

// ATOM records of one model (1-based position among the models) of a
// fixed-column PDB file.
std::vector<PlainAtom> pdb_atom_records(const std::string& path, int model_index = 1) {
  std::vector<PlainAtom> atoms;
  std::ifstream in(path);
  std::string line;
  int model = 1;
  while (std::getline(in, line)) {
    if (line.rfind("ENDMDL", 0) == 0) ++model;
    if (line.rfind("ATOM  ", 0) != 0 || model != model_index) continue;
    PlainAtom a;
    a.name = column(line, 12, 4);
    a.residue_name = column(line, 17, 3);
    a.chain = column(line, 21, 1);
    a.residue_number = std::stoi(column(line, 22, 4));
    a.x = std::stod(line.substr(30, 8));
    a.y = std::stod(line.substr(38, 8));
    a.z = std::stod(line.substr(46, 8));
    a.element = column(line, 76, 2);
    atoms.push_back(a);
  }
  return atoms;
}

bool plain_is_hydrogen(const PlainAtom& a) {
  if (!a.element.empty()) return a.element == "H" || a.element == "D";
  return a.name.find_first_not_of("0123456789") != std::string::npos &&
         a.name[a.name.find_first_not_of("0123456789")] == 'H';
}

std::vector<PlainAtom> heavy(std::vector<PlainAtom> atoms) {
  std::erase_if(atoms, plain_is_hydrogen);
  return atoms;
}

// Same names, residues and coordinates in the same order; the chain and the
// element where `expected` has them.
void expect_same_atoms(const std::vector<vorn::Atom>& got, const std::vector<PlainAtom>& expected) {
  ASSERT_EQ(got.size(), expected.size());
  for (size_t i = 0; i < got.size(); ++i) {
    SCOPED_TRACE("atom " + std::to_string(i));
    EXPECT_EQ(got[i].name, expected[i].name);
    EXPECT_EQ(got[i].residue_name, expected[i].residue_name);
    EXPECT_EQ(got[i].residue_number, expected[i].residue_number);
    if (!expected[i].chain.empty()) {
      EXPECT_EQ(got[i].chain, expected[i].chain);
    }
    if (!expected[i].element.empty()) {
      EXPECT_EQ(got[i].element, expected[i].element);
    }
    EXPECT_EQ(got[i].position.x, expected[i].x);
    EXPECT_EQ(got[i].position.y, expected[i].y);
    EXPECT_EQ(got[i].position.z, expected[i].z);
    if (::testing::Test::HasFailure()) return;
  }
}

void expect_identical(const std::vector<Model>& a, const std::vector<Model>& b) {
  ASSERT_EQ(a.size(), b.size());
  for (size_t m = 0; m < a.size(); ++m) {
    EXPECT_EQ(a[m].number, b[m].number);
    ASSERT_EQ(a[m].atoms.size(), b[m].atoms.size());
    for (size_t i = 0; i < a[m].atoms.size(); ++i) {
      const vorn::Atom& x = a[m].atoms[i];
      const vorn::Atom& y = b[m].atoms[i];
      ASSERT_TRUE(x.name == y.name && x.element == y.element && x.residue_name == y.residue_name &&
                  x.residue_number == y.residue_number && x.insertion_code == y.insertion_code &&
                  x.chain == y.chain && x.position.x == y.position.x &&
                  x.position.y == y.position.y && x.position.z == y.position.z)
          << "model " << a[m].number << " atom " << i << ": " << x.name << " / " << y.name;
    }
  }
}

// A fixed-column ATOM/HETATM record; an empty element leaves columns 77-78
// out, as older programs do.
std::string record(const char* type, int serial, const std::string& name,
                   const std::string& residue, char chain, int number, double x, double y, double z,
                   const std::string& element, char altloc = ' ', double occupancy = 1.0,
                   char icode = ' ') {
  const std::string padded = name.size() < 4 ? " " + name : name;
  char line[100];
  std::snprintf(line, sizeof line, "%-6s%5d %-4s%c%3s %c%4d%c   %8.3f%8.3f%8.3f%6.2f%6.2f", type,
                serial, padded.c_str(), altloc, residue.c_str(), chain, number, icode, x, y, z,
                occupancy, 10.0);
  std::string text = line;
  if (!element.empty()) text += "          " + std::string(element.size() < 2 ? " " : "") + element;
  return text + "\n";
}

std::string atom(int serial, const std::string& name, const std::string& residue, char chain,
                 int number, const std::string& element, char altloc = ' ', double occupancy = 1.0,
                 char icode = ' ') {
  return record("ATOM", serial, name, residue, chain, number, serial, 2.0 * serial, -1.5, element,
                altloc, occupancy, icode);
}

std::vector<std::string> names(const Model& model) {
  std::vector<std::string> out;
  for (const vorn::Atom& a : model.atoms) out.push_back(a.name);
  return out;
}

// Writes files into a directory of its own, removed after the test.
class ReaderTest : public test::TempDirTest {
 protected:
  ReaderTest() : TempDirTest("vorn_reader_") {}

  std::string write(const std::string& name, const std::string& text) const {
    std::string path = file(name);
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }

  std::string gzip(const std::string& name, const std::string& text) const {
    std::string path = file(name);
    gzFile f = gzopen(path.c_str(), "wb");
    EXPECT_NE(f, nullptr);
    EXPECT_EQ(gzwrite(f, text.data(), static_cast<unsigned>(text.size())),
              static_cast<int>(text.size()));
    gzclose(f);
    return path;
  }
};

// The message of the InputError that `f` throws ("" when none).
template <typename F>
std::string error_of(F f) {
  try {
    f();
  } catch (const InputError& e) {
    return e.what();
  }
  return "";
}

// --- real entries --------------------------------------------------------

TEST(RealEntries, MmcifHasTenModelsLikeThePdbFile) {
  const auto cif = read_models(data_file("raw/1d3z.cif"), {.keep_hydrogens = true});
  ASSERT_EQ(cif.size(), 10u);
  for (int m = 0; m < 10; ++m) EXPECT_EQ(cif[m].number, m + 1);
  const auto pdb = read_models(data_file("raw/1D3Z_raw_10models.pdb"), {.keep_hydrogens = true});
  expect_identical(cif, pdb);
}

TEST(RealEntries, PdbModelsEqualTheirAtomRecords) {
  const std::string path = data_file("raw/1D3Z_raw_10models.pdb");
  const auto models = read_models(path, {.keep_hydrogens = true});
  ASSERT_EQ(models.size(), 10u);
  for (int m : {1, 2, 10}) {
    SCOPED_TRACE("model " + std::to_string(m));
    const auto records = pdb_atom_records(path, m);
    EXPECT_EQ(records.size(), 1231u);
    expect_same_atoms(models[m - 1].atoms, records);
  }
}

TEST(RealEntries, HeavyAtomsOfModelOneEqualTheClassicFile) {
  const auto classic = heavy(classic_atoms(data_file("structures/ubq_1d3z_m1.pdb")));
  EXPECT_EQ(classic.size(), 602u);
  for (const char* file : {"raw/1d3z.cif", "raw/1D3Z_raw_10models.pdb"}) {
    SCOPED_TRACE(file);
    const auto models = read_models(data_file(file), {.models = {1}});
    ASSERT_EQ(models.size(), 1u);
    EXPECT_EQ(models[0].number, 1);
    expect_same_atoms(models[0].atoms, classic);
    for (const vorn::Atom& a : models[0].atoms) {
      ASSERT_EQ(a.chain, "A");
      ASSERT_EQ(a.insertion_code, ' ');
      ASSERT_TRUE(a.element == "C" || a.element == "N" || a.element == "O" || a.element == "S")
          << a.element;
    }
  }
}

TEST(RealEntries, BlankSeparatedRecordsAreReadByTheirTokens) {
  // The classic layout "ATOM serial name residue number x y z" (no chain, no
  // fixed columns): every atom, hydrogens included, with the coordinates of
  // its tokens; the element from the name.
  const std::string path = data_file("structures/ubq_1d3z_m1.pdb");
  const auto models = read_models(path, {.keep_hydrogens = true});
  ASSERT_EQ(models.size(), 1u);
  const auto expected = classic_atoms(path);
  EXPECT_EQ(expected.size(), 1231u);
  expect_same_atoms(models[0].atoms, expected);
  for (const vorn::Atom& a : models[0].atoms) {
    ASSERT_EQ(a.chain, "");
    ASSERT_EQ(a.element, a.name.substr(a.name.find_first_not_of("0123456789"), 1)) << a.name;
  }
}

TEST(RealEntries, XrayEntryWithoutWatersEqualsTheClassicFile) {
  const std::string path = data_file("raw/1UBQ_raw.pdb");
  const auto records = heavy(pdb_atom_records(path));
  EXPECT_EQ(records.size(), 602u);
  const std::string text = read_text(path);
  EXPECT_NE(text.find("HETATM"), std::string::npos);  // the waters the reader drops
  for (const bool hetatm : {false, true}) {
    const auto models = read_models(path, {.hetatm = hetatm});
    ASSERT_EQ(models.size(), 1u);
    EXPECT_EQ(models[0].number, 1);
    expect_same_atoms(models[0].atoms, records);
    for (const vorn::Atom& a : models[0].atoms) ASSERT_NE(a.residue_name, "HOH");
  }
  const auto models = read_models(path);
  expect_same_atoms(models[0].atoms, classic_atoms(data_file("structures/ubq_1ubq_xray.pdb")));
}

TEST(RealEntries, FormatNames) {
  EXPECT_EQ(StructureReader(data_file("raw/1d3z.cif")).format_name(), "mmCIF");
  EXPECT_EQ(StructureReader(data_file("raw/1UBQ_raw.pdb")).format(), Format::Pdb);
  EXPECT_EQ(parse_format("CIF"), Format::Mmcif);
  EXPECT_EQ(parse_format("pdb"), Format::Pdb);
  EXPECT_EQ(parse_format("xyz"), std::nullopt);
}

// The file is read model by model: a broken second model is found only after
// the first one has been handed out.
TEST_F(ReaderTest, StreamsModelByModel) {
  const std::string path = data_file("raw/1D3Z_raw_10models.pdb");
  StructureReader reader(path);
  Model model;
  for (int m = 1; m <= 10; ++m) {
    ASSERT_TRUE(reader.next(model));
    EXPECT_EQ(model.number, m);
    EXPECT_EQ(model.atoms.size(), 602u);
  }
  EXPECT_FALSE(reader.next(model));
  EXPECT_FALSE(reader.next(model));

  std::string text = atom(1, "N", "ALA", 'A', 1, "N") + atom(2, "CA", "ALA", 'A', 1, "C");
  text = "MODEL        1\n" + text + "ENDMDL\nMODEL        2\n" + text.substr(0, 40) + "\n";
  const std::string broken = write("broken.pdb", text);
  StructureReader partial(broken);
  ASSERT_TRUE(partial.next(model));
  EXPECT_EQ(model.atoms.size(), 2u);
  EXPECT_EQ(error_of([&] { partial.next(model); }).rfind(broken + ":6: ", 0), 0u);
}

// Models cut from the file on one thread and parsed on others (as the
// prediction stream does) are the models next() reads.
TEST(RealEntries, ModelsCutOnOneThreadAndParsedOnOthers) {
  for (const std::string name : {"raw/1D3Z_raw_10models.pdb", "raw/1d3z.cif"}) {
    const std::string path = data_file(name);
    const std::vector<Model> expected = read_models(path, {.keep_hydrogens = true});
    ASSERT_EQ(expected.size(), 10u) << name;
    StructureReader reader(path, {.keep_hydrogens = true});
    std::vector<UnparsedModel> unparsed;
    for (UnparsedModel u; reader.next_unparsed(u);) unparsed.push_back(std::move(u));
    ASSERT_EQ(unparsed.size(), 10u);
    EXPECT_EQ(unparsed[0].parsed, name.ends_with(".cif"));
    std::vector<Model> parsed(unparsed.size());
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
      threads.emplace_back([&, t] {
        for (int k = static_cast<int>(unparsed.size()) - 1 - t; k >= 0; k -= 3) {
          parsed[k] = reader.parse(std::move(unparsed[k]));
        }
      });
    }
    for (std::thread& t : threads) t.join();
    for (std::size_t k = 0; k < expected.size(); ++k) {
      EXPECT_EQ(parsed[k].number, expected[k].number);
      ASSERT_EQ(parsed[k].atoms.size(), expected[k].atoms.size()) << name << " model " << k + 1;
      for (std::size_t i = 0; i < expected[k].atoms.size(); ++i) {
        const Atom& a = parsed[k].atoms[i];
        const Atom& b = expected[k].atoms[i];
        EXPECT_TRUE(a.name == b.name && a.element == b.element && a.chain == b.chain &&
                    a.residue_name == b.residue_name && a.residue_number == b.residue_number &&
                    a.position.x == b.position.x && a.position.y == b.position.y &&
                    a.position.z == b.position.z)
            << name << " model " << k + 1 << " atom " << i;
      }
    }
  }
}

// Errors of the file's layout come from next_unparsed, errors of a model's
// records from parse, each naming the file line.
TEST_F(ReaderTest, LayoutErrorsWhenCutRecordErrorsWhenParsed) {
  const std::string ok = atom(1, "N", "ALA", 'A', 1, "N");
  const std::string bad_record =
      write("badrecord.pdb",
            "MODEL 1\n" + ok + "ENDMDL\nMODEL 2\n" + ok + "ATOM      2  CA  ALA A   1\nENDMDL\n");
  StructureReader reader(bad_record);
  UnparsedModel first, second;
  ASSERT_TRUE(reader.next_unparsed(first));
  ASSERT_TRUE(reader.next_unparsed(second));  // cut without looking at its records
  EXPECT_EQ(second.number, 2);
  EXPECT_EQ(reader.parse(std::move(first)).atoms.size(), 1u);
  EXPECT_EQ(error_of([&] { reader.parse(std::move(second)); }).rfind(bad_record + ":6: ", 0), 0u);

  const std::string cut = write("cut.pdb", "MODEL 1\n" + ok + "ENDMDL\nMODEL 2\n" + ok);
  StructureReader partial(cut);
  UnparsedModel model;
  ASSERT_TRUE(partial.next_unparsed(model));
  EXPECT_EQ(error_of([&] { partial.next_unparsed(model); }),
            cut + ":5: model 2 has no ENDMDL: the file ends inside it (truncated?)");
}

// Lines longer than the read buffer, carriage returns and a last line
// without a line end are read as lines; error lines count them.
TEST_F(ReaderTest, LongLinesAndLineEnds) {
  const std::string ok = atom(1, "N", "ALA", 'A', 1, "N");
  std::string crlf = ok;
  crlf.insert(crlf.size() - 1, "\r");
  const std::string remark = "REMARK " + std::string(200000, 'x') + "\n";
  const std::string path =
      write("long.pdb", remark + crlf + remark + atom(2, "CA", "ALA", 'A', 1, "C") + remark +
                            ok.substr(0, ok.size() - 1));  // no final line end
  const std::vector<Model> models = read_models(path);
  ASSERT_EQ(models.size(), 1u);
  ASSERT_EQ(models[0].atoms.size(), 3u);
  EXPECT_EQ(models[0].atoms[0].name, "N");
  EXPECT_EQ(models[0].atoms[1].name, "CA");
  EXPECT_EQ(models[0].atoms[2].element, "N");
  const std::string bad =
      write("longbad.pdb", remark + remark + ok + remark + "ATOM      2  CA  ALA A   1\r\n");
  EXPECT_EQ(error_of([&] { read_models(bad); }).rfind(bad + ":5: ", 0), 0u);
}

TEST_F(ReaderTest, GzipAndFormatDetection) {
  const std::string pdb = read_text(data_file("raw/1UBQ_raw.pdb"));
  const std::string cif = read_text(data_file("raw/1d3z.cif"));
  const auto plain_pdb = read_models(data_file("raw/1UBQ_raw.pdb"));
  const auto plain_cif = read_models(data_file("raw/1d3z.cif"), {.models = {1, 10}});
  ASSERT_EQ(plain_cif.size(), 2u);
  expect_identical(read_models(gzip("1ubq.pdb.gz", pdb)), plain_pdb);
  expect_identical(read_models(gzip("1d3z.cif.gz", cif), {.models = {1, 10}}), plain_cif);
  // Without a known extension the content decides.
  expect_identical(read_models(gzip("entry.gz", pdb)), plain_pdb);
  expect_identical(read_models(write("entry.txt", cif), {.models = {1, 10}}), plain_cif);
  // The extension decides where the first record is not one of either format.
  const std::string bare = "USER    written by hand\n" + atom(1, "N", "GLY", 'A', 1, "N");
  EXPECT_EQ(read_models(write("bare.ent", bare))[0].atoms.size(), 1u);
  const std::string unknown = write("bare.dat", bare);
  EXPECT_EQ(error_of([&] { read_models(unknown); }),
            unknown + ": unknown format (neither PDB nor mmCIF)");
  EXPECT_EQ(read_models(unknown, {}, Format::Pdb)[0].atoms.size(), 1u);
  // mmCIF read as PDB: its atom_site rows start with ATOM but have no columns.
  const std::string cif_path = data_file("raw/1d3z.cif");
  EXPECT_EQ(error_of([&] { read_models(cif_path, {}, Format::Pdb); }).rfind(cif_path + ":526: ", 0),
            0u);
}

// --- reading rules ---------------------------------------------------------

TEST_F(ReaderTest, AlternateLocations) {
  const std::string text = atom(1, "N", "SER", 'A', 1, "N") +             //
                           atom(2, "CA", "SER", 'A', 1, "C", 'A', 0.6) +  //
                           atom(3, "CA", "SER", 'A', 1, "C", 'B', 0.4) +  //
                           atom(4, "CB", "SER", 'A', 1, "C", 'A', 0.5) +  //
                           atom(5, "CB", "SER", 'A', 1, "C", 'B', 0.5) +  //
                           atom(6, "OG", "SER", 'A', 1, "O", 'A', 0.3) +  //
                           atom(7, "OG", "SER", 'A', 1, "O", 'B', 0.7) +  //
                           atom(8, "C", "SER", 'A', 1, "C");
  const std::string path = write("altloc.pdb", text);
  const auto best = read_models(path);
  EXPECT_EQ(names(best[0]), (std::vector<std::string>{"N", "CA", "CB", "OG", "C"}));
  EXPECT_EQ(best[0].atoms[1].position.x, 2.0);  // CA A (0.6 over 0.4)
  EXPECT_EQ(best[0].atoms[2].position.x, 4.0);  // CB A (tie: the first)
  EXPECT_EQ(best[0].atoms[3].position.x, 7.0);  // OG B (0.7 over 0.3), in OG's place
  const auto b = read_models(path, {.altloc = 'B'});
  EXPECT_EQ(names(b[0]), (std::vector<std::string>{"N", "CA", "CB", "OG", "C"}));
  EXPECT_EQ(b[0].atoms[1].position.x, 3.0);
  EXPECT_EQ(b[0].atoms[2].position.x, 5.0);
  EXPECT_EQ(b[0].atoms[3].position.x, 7.0);
  // Conformers listed residue-wise (all of A, then all of B) keep the order
  // of the atoms' first conformers.
  const std::string blocks = atom(1, "CA", "SER", 'A', 1, "C", 'A', 0.4) +  //
                             atom(2, "CB", "SER", 'A', 1, "C", 'A', 0.6) +  //
                             atom(3, "CA", "SER", 'A', 1, "C", 'B', 0.6) +  //
                             atom(4, "CB", "SER", 'A', 1, "C", 'B', 0.4);
  const auto mixed = read_models(write("blocks.pdb", blocks));
  EXPECT_EQ(names(mixed[0]), (std::vector<std::string>{"CA", "CB"}));
  EXPECT_EQ(mixed[0].atoms[0].position.x, 3.0);
  EXPECT_EQ(mixed[0].atoms[1].position.x, 2.0);
  // An altloc letter that an atom lacks drops that atom, not the others.
  const auto c =
      read_models(write("c.pdb", blocks + atom(5, "N", "SER", 'A', 1, "N")), {.altloc = 'C'});
  EXPECT_EQ(names(c[0]), (std::vector<std::string>{"N"}));
}

TEST_F(ReaderTest, HetatmWaterAndHydrogens) {
  const std::string text = atom(1, "N", "ALA", 'A', 1, "N") + atom(2, "H", "ALA", 'A', 1, "H") +
                           atom(3, "CA", "ALA", 'A', 1, "C") + atom(4, "D", "ALA", 'A', 1, "D") +
                           record("HETATM", 5, "C1", "LIG", 'A', 2, 1, 1, 1, "C") +
                           record("HETATM", 6, "H1", "LIG", 'A', 2, 1, 1, 1, "H") +
                           record("HETATM", 7, "O", "HOH", 'A', 3, 1, 1, 1, "O") +
                           record("ATOM", 8, "O", "WAT", 'A', 4, 1, 1, 1, "O") +
                           record("HETATM", 9, "O", "DOD", 'A', 5, 1, 1, 1, "O");
  const std::string path = write("het.pdb", text);
  EXPECT_EQ(names(read_models(path)[0]), (std::vector<std::string>{"N", "CA"}));
  EXPECT_EQ(names(read_models(path, {.hetatm = true})[0]),
            (std::vector<std::string>{"N", "CA", "C1"}));
  const auto all = read_models(path, {.hetatm = true, .keep_hydrogens = true});
  EXPECT_EQ(names(all[0]), (std::vector<std::string>{"N", "H", "CA", "D", "C1", "H1"}));
  EXPECT_EQ(all[0].atoms[3].element, "D");
  EXPECT_EQ(all[0].atoms[4].residue_name, "LIG");
}

TEST_F(ReaderTest, ElementsWithoutElementColumn) {
  const std::string text = atom(1, "N", "MET", 'A', 1, "") + atom(2, "CA", "MET", 'A', 1, "") +
                           atom(3, "HA", "MET", 'A', 1, "") + atom(4, "SD", "MET", 'A', 1, "") +
                           atom(5, "HG21", "THR", 'A', 2, "") + atom(6, "OG1", "THR", 'A', 2, "") +
                           atom(7, "CL", "CLX", 'A', 3, "Cl");
  const auto models = read_models(write("noelement.pdb", text), {.keep_hydrogens = true});
  std::vector<std::string> elements;
  for (const vorn::Atom& a : models[0].atoms) elements.push_back(a.element);
  EXPECT_EQ(elements, (std::vector<std::string>{"N", "C", "H", "S", "H", "O", "CL"}));
}

TEST_F(ReaderTest, InsertionCodesChainsAndExclude) {
  const std::string text = atom(1, "CA", "GLY", 'A', 51, "C") + atom(2, "CA", "ASP", 'A', 52, "C") +
                           atom(3, "CA", "GLU", 'A', 52, "C", ' ', 1.0, 'A') +
                           atom(4, "CA", "LYS", 'A', 53, "C") + "TER\n" +
                           atom(5, "CA", "DA", 'B', 1, "C") + atom(6, "OP1", "DA", 'B', 1, "O") +
                           atom(7, "CA", "DC", 'C', 1, "C");
  const std::string path = write("chains.pdb", text);
  const auto all = read_models(path);
  ASSERT_EQ(all[0].atoms.size(), 7u);
  EXPECT_EQ(all[0].atoms[1].residue_number, 52);
  EXPECT_EQ(all[0].atoms[1].insertion_code, ' ');
  EXPECT_EQ(all[0].atoms[2].residue_number, 52);
  EXPECT_EQ(all[0].atoms[2].insertion_code, 'A');
  EXPECT_EQ(all[0].atoms[2].residue_name, "GLU");
  EXPECT_EQ(all[0].atoms[5].name, "OP1");
  EXPECT_EQ(all[0].atoms[5].residue_name, "DA");
  EXPECT_EQ(all[0].atoms[6].chain, "C");

  const auto b = read_models(path, {.chains = "B"});
  EXPECT_EQ(names(b[0]), (std::vector<std::string>{"CA", "OP1"}));
  EXPECT_EQ(b[0].atoms[0].chain, "B");
  EXPECT_EQ(read_models(path, {.chains = "C, A"})[0].atoms.size(), 5u);
  EXPECT_NE(error_of([&] { read_models(path, {.chains = "D"}); }).find("model 1"),
            std::string::npos);
  EXPECT_NE(error_of([&] { read_models(path, {.chains = "A,"}); }).find("chain list"),
            std::string::npos);

  // Ranges compare insertion codes: 52-52 is residue 52 without one.
  const auto count_without = [&](const std::string& selection) {
    return read_models(path, {.exclude = selection})[0].atoms.size();
  };
  EXPECT_EQ(count_without("/*/A/52-52"), 6u);
  EXPECT_EQ(count_without("A/52"), 6u);  // a single residue, not 52 onwards
  EXPECT_EQ(count_without("A/52.A"), 6u);
  EXPECT_EQ(read_models(path, {.exclude = "A/52.A"})[0].atoms[2].residue_number, 53);
  EXPECT_EQ(count_without("A/52-53"), 4u);
  EXPECT_EQ(count_without("A/52-"), 4u);
  EXPECT_EQ(names(read_models(path, {.exclude = "/*/*/*/CA"})[0]),
            (std::vector<std::string>{"OP1"}));
  const std::string bad = error_of([&] { StructureReader(path, {.exclude = "/A/1("}); });
  EXPECT_NE(bad.find("exclude"), std::string::npos);
}

TEST_F(ReaderTest, NegativeResidueNumbers) {
  const std::string text = atom(1, "CA", "HIS", 'A', -3, "C") + atom(2, "CA", "MET", 'A', 0, "C") +
                           atom(3, "CA", "GLN", 'A', 1, "C");
  const auto models = read_models(write("tag.pdb", text), {.exclude = "A/0"});
  ASSERT_EQ(models[0].atoms.size(), 2u);
  EXPECT_EQ(models[0].atoms[0].residue_number, -3);
  EXPECT_EQ(models[0].atoms[1].residue_number, 1);
}

TEST(RealEntries, ExcludeResidueRange) {
  const std::string path = data_file("raw/1UBQ_raw.pdb");
  auto records = heavy(pdb_atom_records(path));
  std::erase_if(
      records, [](const PlainAtom& a) { return a.residue_number >= 70 && a.residue_number <= 76; });
  for (const char* selection : {"/*/A/70-76", "A/70-76", "70-"}) {
    SCOPED_TRACE(selection);
    expect_same_atoms(read_models(path, {.exclude = selection})[0].atoms, records);
  }
}

// --- models ------------------------------------------------------------------

TEST_F(ReaderTest, ModelNumbersAndSelection) {
  const std::string one = atom(1, "N", "ALA", 'A', 1, "N");
  const std::string two = one + atom(2, "CA", "ALA", 'A', 1, "C");
  const std::string numbered =
      write("numbered.pdb",
            "MODEL        5\n" + one + "ENDMDL\nMODEL        7\n" + two + "ENDMDL\nEND\n");
  auto models = read_models(numbered);
  ASSERT_EQ(models.size(), 2u);
  EXPECT_EQ(models[0].number, 5);
  EXPECT_EQ(models[1].number, 7);
  EXPECT_EQ(models[1].atoms.size(), 2u);
  models = read_models(numbered, {.models = {7}});
  ASSERT_EQ(models.size(), 1u);
  EXPECT_EQ(models[0].number, 7);
  const std::string unknown = error_of([&] { StructureReader(numbered, {.models = {1, 7}}); });
  EXPECT_EQ(unknown, numbered + ": no model 1 (the file has models 5,7)");

  // Frames separated by ENDMDL only, and a file without model records.
  models = read_models(write("frames.pdb", one + "ENDMDL\n" + two + "ENDMDL\n" + one));
  ASSERT_EQ(models.size(), 3u);
  EXPECT_EQ(models[2].number, 3);
  models = read_models(write("single.pdb", "HEADER    TEST\n" + two + "END\n" + one));
  ASSERT_EQ(models.size(), 1u);  // nothing after END is read
  EXPECT_EQ(models[0].number, 1);
  EXPECT_EQ(models[0].atoms.size(), 2u);

  // The model of an exclude selection is the file's model number.
  const std::string three = write("three.pdb", "MODEL 1\n" + two + "ENDMDL\nMODEL 2\n" + two +
                                                   "ENDMDL\nMODEL 3\n" + two + "ENDMDL\n");
  models = read_models(three, {.exclude = "/2/*/*/CA"});
  ASSERT_EQ(models.size(), 3u);
  EXPECT_EQ(models[0].atoms.size(), 2u);
  EXPECT_EQ(models[1].atoms.size(), 1u);
  EXPECT_EQ(models[2].atoms.size(), 2u);

  // mmCIF: a subset of the ten models, in file order.
  models = read_models(data_file("raw/1d3z.cif"), {.models = parse_model_list("9,2-3")});
  ASSERT_EQ(models.size(), 3u);
  EXPECT_EQ(models[0].number, 2);
  EXPECT_EQ(models[2].number, 9);
  const std::string cif_unknown =
      error_of([&] { StructureReader(data_file("raw/1d3z.cif"), {.models = {11}}); });
  EXPECT_NE(cif_unknown.find("no model 11 (the file has models 1-10)"), std::string::npos);
}

TEST(ModelList, Parsing) {
  EXPECT_EQ(parse_model_list("1,3-5"), (std::vector<int>{1, 3, 4, 5}));
  EXPECT_EQ(parse_model_list(" 7 , 2 - 3 "), (std::vector<int>{2, 3, 7}));
  EXPECT_EQ(parse_model_list("4"), (std::vector<int>{4}));
  for (const char* bad : {"", " ", "a", "1,,2", "1,", "5-3", "0", "-1", "3,3", "1-3,2", "1-2-3",
                          "2.5", "99999999999"}) {
    EXPECT_THROW(parse_model_list(bad), InputError) << bad;
  }
  EXPECT_NE(error_of([] { parse_model_list("1,x"); }).find("\"x\""), std::string::npos);
  const std::vector<int> numbers = {1, 2, 3, 5, 7, 8};
  EXPECT_EQ(format_model_list(numbers), "1-3,5,7-8");
  EXPECT_EQ(parse_model_list(format_model_list(numbers)), numbers);
}

// --- errors -------------------------------------------------------------------

TEST_F(ReaderTest, Errors) {
  const std::string missing = file("missing.pdb");
  EXPECT_EQ(error_of([&] { StructureReader{missing}; }).rfind(missing + ": cannot open", 0), 0u);
  EXPECT_NE(error_of([&] { StructureReader{dir().string()}; }).find("directory"),
            std::string::npos);

  const std::string ok = atom(1, "N", "ALA", 'A', 1, "N");
  const std::string water = record("HETATM", 2, "O", "HOH", 'A', 2, 1, 1, 1, "O");
  const std::string empty_model =
      write("empty.pdb", "MODEL 1\n" + ok + "ENDMDL\nMODEL 2\n" + water + "ENDMDL\n");
  EXPECT_EQ(read_models(empty_model, {.models = {1}}).size(), 1u);
  EXPECT_EQ(
      error_of([&] { read_models(empty_model); }).rfind(empty_model + ": model 2: no atoms", 0),
      0u);
  const std::string no_atoms = write("none.pdb", "HEADER    NOTHING\nEND\n");
  EXPECT_NE(error_of([&] { read_models(no_atoms); }).find("no ATOM or HETATM"), std::string::npos);
  EXPECT_NE(error_of([&] { read_models(write("empty.cif", "data_x\n")); }).find("no atoms"),
            std::string::npos);

  // Errors in records name the line of the file.
  const std::string short_line =
      write("short.pdb", "REMARK 1\n" + ok + "ATOM      2  CA  ALA A   1\n");
  EXPECT_EQ(error_of([&] { read_models(short_line); }).rfind(short_line + ":3: ", 0), 0u);
  const std::string open = write("open.pdb", "MODEL 1\n" + ok + "MODEL 2\n" + ok);
  EXPECT_EQ(error_of([&] { read_models(open); }),
            open + ":3: MODEL record inside model 1 (ENDMDL missing)");
  const std::string twice = write("twice.pdb", "MODEL 1\n" + ok + "ENDMDL\nMODEL 1\n" + ok);
  EXPECT_EQ(error_of([&] { read_models(twice); }), twice + ":4: model 1 appears twice");
  const std::string no_number = write("nonumber.pdb", "MODEL  x\n" + ok);
  EXPECT_EQ(error_of([&] { read_models(no_number); }).rfind(no_number + ":1: ", 0), 0u);
  const std::string nan =
      write("nan.pdb", record("ATOM", 1, "N", "ALA", 'A', 1, std::nan(""), 0, 0, "N"));
  EXPECT_NE(error_of([&] { read_models(nan); }).find("not a number"), std::string::npos);

  // A record that is neither fixed-column nor the blank-separated layout.
  const std::string garbled =
      write("garbled.pdb", ok + "ATOM      2  CA  ALA A   1      x.000   y.000   z.000\n");
  EXPECT_EQ(
      error_of([&] { read_models(garbled); }).rfind(garbled + ":2: neither a fixed-column", 0), 0u);

  // Whole numbers of _atom_site beyond the range of int are errors naming
  // the column and the loop's line; other categories are not read at all.
  const std::string loop =
      "data_x\n_struct_conf.pdbx_PDB_helix_length 99999999999999\nloop_\n_atom_site.group_PDB\n"
      "_atom_site.id\n_atom_site.type_symbol\n_atom_site.label_atom_id\n"
      "_atom_site.label_alt_id\n_atom_site.label_comp_id\n_atom_site.label_asym_id\n"
      "_atom_site.label_seq_id\n_atom_site.auth_seq_id\n_atom_site.Cartn_x\n"
      "_atom_site.Cartn_y\n_atom_site.Cartn_z\n_atom_site.occupancy\n"
      "_atom_site.B_iso_or_equiv\n_atom_site.pdbx_PDB_model_num\n";
  const auto row = [](const std::string& id, const std::string& seq, const std::string& auth) {
    return "ATOM " + id + " N N . ALA A " + seq + " " + auth + " 1.0 2.0 3.0 1.0 0.0 1\n";
  };
  const std::string fine =
      write("fine.cif", loop + row("1", "1", "1") + row("2", "2", "2147483647"));
  const std::vector<Model> in_range = read_models(fine);
  ASSERT_EQ(in_range.size(), 1u);
  ASSERT_EQ(in_range[0].atoms.size(), 2u);
  EXPECT_EQ(in_range[0].atoms[1].residue_number, 2147483647);
  const std::string big_seq = write("bigseq.cif", loop + row("1", "99999999999", "1"));
  EXPECT_EQ(error_of([&] { read_models(big_seq); }),
            big_seq +
                ":3: _atom_site.label_seq_id \"99999999999\" is out of range (the loop that "
                "starts here)");
  const std::string big_auth = write("bigauth.cif", loop + row("1", "1", "-2147483649A"));
  EXPECT_NE(error_of([&] { read_models(big_auth); }).find("_atom_site.auth_seq_id"),
            std::string::npos);
  const std::string big_id = write("bigid.cif", loop + row("000000000000012345678901", "1", "1"));
  EXPECT_NE(error_of([&] { read_models(big_id); }).find("_atom_site.id"), std::string::npos);

  // mmCIF syntax errors name the file and the line.
  const std::string bad_cif = write("bad.cif", "data_x\nloop_\n_atom_site.id\n'unterminated\n");
  EXPECT_EQ(error_of([&] { read_models(bad_cif); }).rfind(bad_cif + ":", 0), 0u);

  // A file cut inside a model opened by MODEL: the model and the last line.
  const std::string cut_model = write("cutmodel.pdb", "MODEL 1\n" + ok + "ENDMDL\nMODEL 2\n" + ok);
  EXPECT_EQ(error_of([&] { read_models(cut_model); }),
            cut_model + ":5: model 2 has no ENDMDL: the file ends inside it (truncated?)");

  // A truncated gzip stream.
  const std::string text = read_text(data_file("raw/1UBQ_raw.pdb"));
  const std::string gz = read_text(gzip("full.pdb.gz", text));
  const std::string cut = write("cut.pdb.gz", gz.substr(0, gz.size() / 2));
  EXPECT_NE(error_of([&] { read_models(cut); }).find(cut + ": read error"), std::string::npos);
  // Cut inside a model of an ensemble: the line and the model where the
  // stream stops, after the models before it were read.
  const std::string ten = read_text(data_file("raw/1D3Z_raw_10models.pdb"));
  const std::string gz10 = read_text(gzip("ten.pdb.gz", ten));
  const std::string cut10 = write("cut10.pdb.gz", gz10.substr(0, gz10.size() * 6 / 10));
  StructureReader reader(cut10);
  Model model;
  int read = 0;
  const std::string message = error_of([&] {
    while (reader.next(model)) ++read;
  });
  EXPECT_GE(read, 4);
  EXPECT_EQ(message.rfind(cut10 + ":", 0), 0u) << message;
  const std::string rest = message.substr(cut10.size() + 1);
  EXPECT_GT(std::stol(rest), 1000) << message;  // a line number
  EXPECT_NE(rest.find(": read error: "), std::string::npos) << message;
  EXPECT_EQ(rest.find(cut10), std::string::npos) << "the file named once: " << message;
  EXPECT_NE(rest.find("(model " + std::to_string(read + 1) + ")"), std::string::npos) << message;
}

TEST_F(ReaderTest, BlankSeparatedRecordsWithAChain) {
  // A chain identifier between residue name and number is taken as such.
  const std::string with_chain =
      write("chain.pdb", "ATOM 1 N MET A 1 -13.242 1.5 2.25\nATOM 2 CA MET A 1 -12 1 2\nEND\n");
  const auto chained = read_models(with_chain);
  ASSERT_EQ(chained.size(), 1u);
  ASSERT_EQ(chained[0].atoms.size(), 2u);
  EXPECT_EQ(chained[0].atoms[0].chain, "A");
  EXPECT_EQ(chained[0].atoms[0].residue_number, 1);
  EXPECT_EQ(chained[0].atoms[0].position.x, -13.242);
  EXPECT_EQ(chained[0].atoms[0].position.z, 2.25);
  EXPECT_EQ(chained[0].atoms[1].name, "CA");
  EXPECT_EQ(chained[0].atoms[1].element, "C");
}

// The models at positions offset, offset + stride, ... of a list.
std::vector<Model> every(const std::vector<Model>& models, int stride, int offset) {
  std::vector<Model> share;
  for (size_t i = static_cast<size_t>(offset); i < models.size(); i += static_cast<size_t>(stride))
    share.push_back(models[i]);
  return share;
}

TEST(RealEntries, SharesOfTheModelsPartitionThem) {
  for (const char* file : {"raw/1D3Z_raw_10models.pdb", "raw/1d3z.cif"}) {
    SCOPED_TRACE(file);
    const std::string path = data_file(file);
    const auto plain = read_models(path, {.keep_hydrogens = true});
    ASSERT_EQ(plain.size(), 10u);
    for (int stride = 1; stride <= 3; ++stride) {
      std::vector<int> seen;
      for (int offset = 0; offset < stride; ++offset) {
        SCOPED_TRACE("stride " + std::to_string(stride) + " offset " + std::to_string(offset));
        const auto share =
            read_models(path, {.keep_hydrogens = true, .stride = stride, .offset = offset});
        expect_identical(share, every(plain, stride, offset));
        for (const Model& m : share) seen.push_back(m.number);
      }
      // Every model in exactly one share.
      std::sort(seen.begin(), seen.end());
      EXPECT_EQ(seen, (std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
    }
    // Positions count among the selected models, not the file's.
    const std::vector<int> selected = {2, 3, 5, 8, 9};
    const auto chosen = read_models(path, {.keep_hydrogens = true, .models = selected});
    ASSERT_EQ(chosen.size(), 5u);
    for (int offset = 0; offset < 2; ++offset) {
      expect_identical(
          read_models(path,
                      {.keep_hydrogens = true, .models = selected, .stride = 2, .offset = offset}),
          every(chosen, 2, offset));
    }
    // An empty share ends without an error.
    EXPECT_TRUE(read_models(path, {.models = {4}, .stride = 2, .offset = 1}).empty());
  }
}

TEST_F(ReaderTest, SharesSkipTheOtherModelsUnparsed) {
  const std::string good = record("ATOM", 1, "CA", "ALA", 'A', 1, 1.0, 2.0, 3.0, "C");
  std::string bad = good;
  bad.replace(30, 8, "  x.yyy ");  // not a coordinate
  const std::string path = write("shares.pdb", "MODEL 1\n" + good + "ENDMDL\nMODEL 2\n" + bad +
                                                   "ENDMDL\nMODEL 3\n" + good + "ENDMDL\n");
  // The share without model 2 never parses it; the share with it fails.
  const auto first = read_models(path, {.stride = 2, .offset = 0});
  ASSERT_EQ(first.size(), 2u);
  EXPECT_EQ(first[0].number, 1);
  EXPECT_EQ(first[1].number, 3);
  EXPECT_NE(error_of([&] { read_models(path, {.stride = 2, .offset = 1}); }).find(path + ":5:"),
            std::string::npos);
  EXPECT_THROW(read_models(path, {.stride = 0}), InputError);
  EXPECT_THROW(read_models(path, {.stride = 2, .offset = 2}), InputError);
  EXPECT_THROW(read_models(path, {.stride = 2, .offset = -1}), InputError);
}

}  // namespace
}  // namespace vorn::io
