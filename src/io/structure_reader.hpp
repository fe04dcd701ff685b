// Reading of coordinate files (PDB and mmCIF, plain or gzip-compressed) into
// the engine's atom lists, one model at a time.
#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "io/input_error.hpp"
#include "vorn/structure.hpp"

namespace vorn::io {

enum class Format { Pdb, Mmcif };

// "pdb" or "cif"/"mmcif"/"pdbx" (any case); nullopt for anything else.
std::optional<Format> parse_format(std::string_view name);

// Which atoms of a file are read.
struct ReadOptions {
  std::optional<char> altloc;  // keep this conformer; default: highest occupancy
  bool hetatm = false;         // keep HETATM records other than water
  bool keep_hydrogens = false;
  std::vector<int> models;  // model numbers as in the file; empty = all
  std::string chains;       // "A,B"; empty = all
  std::string exclude;      // atoms to drop, gemmi selection syntax ("/*/A/70-76")
  // A share of the selected models: numbering the selected models 0, 1, 2,
  // ... in file order, only those at positions offset, offset + stride,
  // offset + 2 * stride, ... are handed out. The others are skipped without
  // being parsed (their records are not converted, so an error in them is
  // not seen). `stride` readers with offsets 0 .. stride - 1 together hand
  // out every selected model exactly once; a reader whose share is empty
  // ends without an error when the file has selected models. Requires
  // stride >= 1 and 0 <= offset < stride.
  int stride = 1;
  int offset = 0;
  // A trajectory (DCD, XTC or TRR) of the file: its frames are the models
  // (numbered 1, 2, ... in the trajectory), with the atoms of the file's
  // first model in the same order, whose coordinates they replace. The file
  // (the topology) is a PDB, mmCIF or GROMACS .gro file. Frames first, first + step,
  // ... up to last (0: the end) are selected.
  std::string trajectory;
  long first_frame = 1;
  long last_frame = 0;
  long frame_step = 1;
};

// One model of a file: its number (as in the file, or 1, 2, ... where the
// file has no model records) and its atoms in file order.
struct Model {
  int number = 0;
  std::vector<vorn::Atom> atoms;
};

// A model cut from its file but not yet parsed (see StructureReader::
// next_unparsed): the records of a PDB model, or the atoms of an mmCIF
// model (its document is parsed whole when the file is opened).
struct UnparsedModel {
  int number = 0;
  std::string records;            // PDB: ATOM, HETATM and TER records, one a line
  std::vector<long> lines;        // PDB: the file line of each record
  std::vector<vorn::Atom> atoms;  // mmCIF: the atoms, already read
  bool parsed = false;            // true for mmCIF
  std::vector<vorn::Vec3> frame;  // trajectory: the frame's coordinates, written into the
                                  // topology's records by parse()
};

// "1,3-5" -> {1, 3, 4, 5}. Numbers are positive, ranges ascending, and no
// number may appear twice. Throws InputError.
std::vector<int> parse_model_list(const std::string& text);

// The inverse of parse_model_list for ascending lists: {1,2,3,7} -> "1-3,7".
std::string format_model_list(std::span<const int> numbers);

// "first:last:step", "first:last" or "first:" (frames, 1-based; an empty
// last: to the end) into `options`. Throws InputError.
void parse_frame_range(const std::string& text, ReadOptions& options);

// True for the name of a trajectory file (".dcd", ".xtc", ".trr", any case).
bool is_trajectory_file(const std::string& path);

// Reads a coordinate file model by model. PDB files are streamed: only the
// current model's records are held in memory. The format comes from the
// file's first record, else from its extension (a trailing ".gz" ignored),
// unless it is given.
//
// Per model, in file order: waters are dropped; other HETATM records are kept
// only with `hetatm`; hydrogens (H, D) only with `keep_hydrogens`; of the
// alternate locations of an atom the one of highest occupancy (the first on
// ties) is kept, or the one named by `altloc` (atoms without alternate
// location are always kept); then the `chains` and `exclude` filters apply.
// A model left without atoms is an error. With a `stride` above 1 only the
// reader's share of the selected models is read (see ReadOptions).
class StructureReader {
 public:
  explicit StructureReader(const std::string& path, ReadOptions options = {},
                           std::optional<Format> format = {});
  ~StructureReader();
  StructureReader(StructureReader&&) noexcept;
  StructureReader& operator=(StructureReader&&) noexcept;
  StructureReader(const StructureReader&) = delete;
  StructureReader& operator=(const StructureReader&) = delete;

  // Fills `model` with the next selected model; false after the last one.
  bool next(Model& model);

  // next() in two halves, so that the models of a stream can be parsed on
  // several threads while one thread reads the file: next_unparsed() cuts
  // the next selected model from the file (errors of the file's layout are
  // thrown here), and parse() turns it into atoms by the reading rules
  // (errors of its records are thrown there). parse() may run on several
  // threads at once, beside next_unparsed().
  bool next_unparsed(UnparsedModel& model);
  Model parse(UnparsedModel&& model) const;

  Format format() const;
  std::string format_name() const;  // "PDB" or "mmCIF"; "DCD", "XTC" or "TRR" for a trajectory

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vorn::io
