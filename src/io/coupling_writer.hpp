// Couplings written for other programs: NEF rdc restraint lists and NMRPipe
// tables, in the layouts the readers of coupling_reader.hpp take back.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorn::io {

struct WrittenAtom {
  std::string chain;  // "" when none
  int residue = 0;
  char insertion_code = ' ';  // ' ' when none
  std::string residue_name;
  std::string name;  // as VORN names it (H, HB#)
};

struct WrittenCoupling {
  WrittenAtom atom1, atom2;
  double value_hz = 0.0;
  std::optional<double> error_hz;
};

struct CouplingList {
  std::string name;  // NEF: the framecode after "nef_rdc_restraint_list_"
  std::vector<WrittenCoupling> couplings;
};

// The start of a NEF file: the data block and the metadata frame, with the
// program's version and the time of writing.
std::string nef_begin(std::string_view block, std::string_view program_version);

// One nef_rdc_restraint_list frame: one row per coupling (weight 1, target
// value and uncertainty; "." for an error that is not known), chains "."
// when none, residue numbers with their insertion code, atom names as
// nef_written_name gives them (H for HN, HB% for HB#). Values are written
// as the shortest text that reads back to the same number.
std::string nef_rdc_list(const CouplingList& list);

// Text that can stand in a framecode: letters, digits and "_-.+" kept,
// anything else "_"; "couplings" when nothing is left.
std::string nef_list_name(std::string_view text);

// An NMRPipe table of one list: a REMARK line per remark, VARS RESID_I
// RESNAME_I ATOMNAME_I RESID_J RESNAME_J ATOMNAME_J D [DD] W with the
// matching FORMAT (DD when every coupling has an error), one row per
// coupling with values to 1e-6 Hz and weight 1, the amide proton named HN.
// Throws InputError when the list cannot be written so: couplings of more
// than one chain (the table names no chains) or an insertion code.
std::string pipe_table(const CouplingList& list, const std::vector<std::string>& remarks);

}  // namespace vorn::io
