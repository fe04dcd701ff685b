// The gemmi side of the structure reader: atom records and mmCIF documents to
// atoms under the reading rules. Kept to C++17: clang 14 cannot compile
// gemmi's CIF document with libstdc++ 12 in C++20 mode.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorn::io::detail {

// One atom as the converter hands it out; the views are valid during the
// call that receives them.
struct AtomView {
  std::string_view name;
  std::string_view element;  // upper case
  std::string_view residue_name;
  int residue_number = 0;
  char insertion_code = ' ';
  std::string_view chain;
  double x = 0.0;
  double y = 0.0;
  double z = 0.0;
};

// Receives the atoms of a model in file order.
using AtomSink = std::function<void(const AtomView&)>;

struct AtomRules {
  std::optional<char> altloc;
  bool hetatm = false;
  bool keep_hydrogens = false;
  std::vector<std::string> chains;  // empty = all
  std::string exclude;              // gemmi selection; empty = none
};

// Turns the models of one file into atoms. Errors are InputError naming the
// file (and the line for PDB records).
class ModelConverter {
 public:
  ModelConverter(std::string path, AtomRules rules);
  ~ModelConverter();
  ModelConverter(ModelConverter&&) noexcept;
  ModelConverter& operator=(ModelConverter&&) noexcept;

  // One PDB model given as its ATOM/HETATM/TER records, one a line;
  // lines[i] is the file line of record i. Returns the number of atoms
  // handed to `sink`. May run on several threads at once.
  std::size_t pdb_model(const std::string& records, const std::vector<long>& lines, int number,
                        const AtomSink& sink) const;

  // Parses a whole mmCIF text (released here) and returns its model
  // numbers in file order.
  std::vector<int> load_mmcif(std::string text);
  // The atoms of the index-th mmCIF model; its gemmi data are released.
  std::size_t mmcif_model(size_t index, const AtomSink& sink);
  // Every atom of the first mmCIF model (the reading rules not applied) as
  // fixed-column PDB records, one a line, with zero coordinates: the
  // topology of a trajectory. Throws InputError for a model PDB records
  // cannot hold.
  std::string mmcif_topology_records() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vorn::io::detail
