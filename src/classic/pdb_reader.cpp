// Reader of the "ATOM" records of a coordinate file.
//
// The file is read as white-space separated tokens, not by column: after the
// token "ATOM" one field scan "%d %s %s %d %lf %lf %lf" takes serial number,
// atom name, residue name, residue number and x, y, z; a token scan then skips
// everything up to the next "ATOM" or the bare "END". The result of the field
// scan is not checked, so a record with a chain identifier stops the scan at
// the identifier and stores the values the previous record left behind.
#include "classic/pdb_reader.hpp"

#include <cstdlib>
#include <memory>
#include <string>

#include "classic/mzutil.hpp"
#include "core/fatal.hpp"
#include "vorn/classic.hpp"

namespace vorn {

int get_atom_type_index(const char* name, FILE* out) {
  const int index = classic_atom_type(name != nullptr ? name : "");
  if (index == kClassicUnknownName) {
    std::fprintf(out, "There is a atom of unknown type: %s\n", name != nullptr ? name : "");
  }
  return index;
}

int get_aa_index(const char* name, FILE* out) {
  const int index = classic_residue_type(name != nullptr ? name : "");
  if (index == kClassicUnknownName) {
    std::fprintf(out, "There is a residue of unknown type: %s\n", name != nullptr ? name : "");
  }
  return index;
}

float return_mass(const char* name, FILE* out) {
  const char* safe = name != nullptr ? name : "";
  if (classic_atom_type(safe) == kClassicUnknownName) {
    std::fprintf(out, "There is a atom of unknown type: %s\n", safe);
    return 0.0F;
  }
  return classic_atom_mass(safe);
}

namespace {

struct FileCloser {
  void operator()(FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

// Takes over a string allocated by a "%ms" conversion, if one was made.
void adopt(char*& allocated, std::string& target) {
  if (allocated != nullptr) {
    target = allocated;
    std::free(allocated);
    allocated = nullptr;
  }
}

// Reads the next white-space separated token ("%s" without a length limit).
// Returns false at end of file, leaving the token as it was.
bool next_token(FILE* file, std::string& token) {
  char* read = nullptr;
  const int got = std::fscanf(file, "%ms", &read);
  adopt(read, token);
  return got == 1;
}

// Skips tokens until one equals "ATOM" or, when stop_at_end is set, "END".
// Only the bare "END" counts: "ENDMDL" and the like are skipped. Returns false
// when the file ends first.
bool scan_to(FILE* file, std::string& token, bool stop_at_end) {
  while (next_token(file, token)) {
    if (token == "ATOM") {
      return true;
    }
    if (stop_at_end && token == "END") {
      return true;
    }
  }
  return false;
}

// Makes every array hold kAtomSlots entries, so that the indices up to
// kAtomLimit are always inside them.
void ensure_capacity(AtomArrays& atoms) {
  const auto grow = [](auto& array) {
    if (array.size() < static_cast<std::size_t>(kAtomSlots)) {
      array.resize(kAtomSlots);
    }
  };
  grow(atoms.x);
  grow(atoms.y);
  grow(atoms.z);
  grow(atoms.mass);
  grow(atoms.atom);
  grow(atoms.aa);
  grow(atoms.atomno);
  grow(atoms.res_nr);
}

}  // namespace

int reading_PDBfile(const char* dateiname, AtomArrays& atoms, FILE* out) {
  FilePtr pdbfile_ptr(DateiOeffnen(dateiname, "r"));
  FILE* const file = pdbfile_ptr.get();
  ensure_capacity(atoms);

  // The record's values persist from one record to the next: a field scan
  // that stops early leaves the previous record's values (0 and empty names
  // before the first record) in the fields it did not reach.
  std::string dummy;
  std::string atomtype;
  std::string residuetype;
  int atomno_te = 0;
  int res_nr_te = 0;
  double x_te = 0.0;
  double y_te = 0.0;
  double z_te = 0.0;

  // A file without "ATOM", or whose last record is not followed by "END",
  // ends the scans at end of file with the atoms stored so far (instead of
  // re-reading the last token forever).
  bool in_file = scan_to(file, dummy, false);

  int no_atoms = 0;
  while (in_file && dummy == "ATOM" && no_atoms < kAtomLimit) {
    char* atom_read = nullptr;
    char* residue_read = nullptr;
    // "%ms" is "%s" without a buffer limit: glibc allocates each token read.
    const int got = std::fscanf(file, "%d %ms %ms %d %lf %lf %lf", &atomno_te, &atom_read,
                                &residue_read, &res_nr_te, &x_te, &y_te, &z_te);
    adopt(atom_read, atomtype);
    adopt(residue_read, residuetype);
    // An "ATOM" that is the last token of the file starts no record.
    if (got == EOF) {
      break;
    }

    const int atom_te = get_atom_type_index(atomtype.c_str(), out);
    const int aa_te = get_aa_index(residuetype.c_str(), out);
    if (atom_te == kClassicUnknownName || aa_te == kClassicUnknownName) {
      std::fprintf(out, "Lines with unknown entries in the PDB file are ignored!\n");
    } else {
      ++no_atoms;
      atoms.atom[no_atoms] = atom_te;
      atoms.aa[no_atoms] = aa_te;
      atoms.mass[no_atoms] = return_mass(atomtype.c_str(), out);
      atoms.atomno[no_atoms] = atomno_te;
      atoms.res_nr[no_atoms] = res_nr_te;
      atoms.x[no_atoms] = x_te;
      atoms.y[no_atoms] = y_te;
      atoms.z[no_atoms] = z_te;
    }
    in_file = scan_to(file, dummy, true);
  }
  pdbfile_ptr.reset();

  // The test is on the stored count, so 4998 atoms is the largest molecule
  // that passes; kept as the program has always behaved.
  if (no_atoms == kAtomLimit) {
    nerror("Too many atoms ...");
  }
  return no_atoms;
}

}  // namespace vorn
