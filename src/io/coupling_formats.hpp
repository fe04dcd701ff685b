// The readers of the coupling formats behind read_couplings, and what they
// share: the collection of the sets and the handling of bad rows.
#pragma once

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "io/coupling_reader.hpp"
#include "io/star_document.hpp"

namespace vorn::io::detail {

// Collects the couplings of a file by set, in order of first appearance.
class CouplingCollector {
 public:
  CouplingCollector(const std::string& name, bool lenient, CouplingFile& file)
      : name_(name), lenient_(lenient), file_(file) {}

  const std::string& name() const { return name_; }

  // InputError "NAME:LINE: what".
  [[noreturn]] void fail(long line, const std::string& what) const {
    throw InputError(name_ + ":" + std::to_string(line) + ": " + what);
  }

  // A bad line or row: fails, or is counted with `lenient`.
  void bad(long line, const std::string& what) {
    if (!lenient_) fail(line, what);
    ++file_.skipped_lines;
  }

  // framecode: the NEF save frame's full code, kept with a new set.
  void add(const std::string& set, MeasuredCoupling c, const std::string& framecode = {}) {
    const auto [it, inserted] = index_.try_emplace(set, file_.sets.size());
    if (inserted) file_.sets.push_back({set, {}, framecode});
    file_.sets[it->second].couplings.push_back(std::move(c));
  }

 private:
  const std::string& name_;
  bool lenient_;
  CouplingFile& file_;
  std::map<std::string, std::size_t> index_;
};

// A token for a message: quoted, and shortened when long.
std::string shown(std::string_view s);

std::string lower_case(std::string_view s);

// The lines of a text, numbered from 1.
template <typename Visit>
void for_each_line(std::string_view text, Visit visit) {
  long number = 0;
  std::size_t start = 0;
  while (start < text.size()) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    visit(++number, text.substr(start, end - start));
    start = end + 1;
  }
}

// The white-space separated fields of a line.
std::vector<std::string_view> split_fields(std::string_view line);

// The columns of a STAR loop by their names after the category
// ("chain_code_1" of "_nef_rdc_restraint.chain_code_1"), in any case.
class LoopColumns {
 public:
  explicit LoopColumns(const StarLoop& loop);

  // The category of the loop in lower case ("_nef_rdc_restraint"); "" when
  // the tags name several.
  const std::string& category() const { return category_; }
  std::optional<std::size_t> find(std::string_view column) const;
  std::size_t rows() const { return loop_.rows(); }
  const StarValue& at(std::size_t row, std::size_t column) const {
    return loop_.values[row * loop_.tags.size() + column];
  }
  // The line of the row's first value.
  long line(std::size_t row) const { return loop_.value_lines[row * loop_.tags.size()]; }

 private:
  const StarLoop& loop_;
  std::string category_;
  std::map<std::string, std::size_t> columns_;  // lower-case name -> index
};

// A number of a loop row: nullopt for a null value; throws BadValue for text
// that is not a finite number.
struct BadValue {
  std::string what;
};
std::optional<double> number_value(const StarValue& value, std::string_view column);
std::optional<int> integer_value(const StarValue& value, std::string_view column);

// NEF: the nef_rdc_restraint_list frames (nef_couplings.cpp).
void read_nef_couplings(std::string_view text, CouplingCollector& out);
// NMR-STAR: the _RDC and _RDC_constraint loops (nmrstar_couplings.cpp).
void read_nmrstar_couplings(std::string_view text, CouplingCollector& out);
// NMRPipe tables (nmrpipe_couplings.cpp).
void read_pipe_couplings(std::string_view text, CouplingCollector& out);

}  // namespace vorn::io::detail
