// Reading of measured residual dipolar couplings: the classic "resnum value
// type" file, X-PLOR/CNS assign statements (several alignment media in one
// file), a plain table naming both atoms, and the exchange formats of the
// field: NEF, NMR-STAR and NMRPipe tables. Files may be gzip-compressed.
//
// classic  One coupling per line: "resnum value type", white-space
//          separated. The type gives the atom pair, both atoms of residue i
//          unless noted: 0 N-H, 1 CA-HA, 2 CA-C, 3 C(i-1)-N(i), 4 C(i-1)-H(i);
//          type 5 has no atom pair and is an error. A value of 1000.0 Hz or
//          more marks a coupling that was not measured: such lines (of any
//          type 0-5) are left out without notice, the layout's own
//          convention. Fields after the third are ignored, as the classic
//          front end ignores them. Empty lines and lines whose first
//          non-blank character is "#" are skipped. Chains are ""
//          (unspecified).
//
// xplor    "assign" statements (any case, abbreviated down to "assi") of six
//          parenthesised selections, the value, then one or two optional
//          numbers: the error (error_hz), and the second error column of the
//          potentials that bound the coupling to value - error .. value +
//          error_plus (error_plus_hz); a third number is an error. The first
//          four selections are the tensor axis atoms (OO, Z, X, Y) and must
//          name one residue: its number names the set ("500"). The fifth and
//          sixth select the coupled atoms with "resid N and name X
//          [and segid S]" in any order (keywords in any case, "resi" and
//          "segi" accepted, redundant inner parentheses allowed); the segid,
//          quoted or not and trimmed, is the chain. Statements may span
//          lines; a coupling carries the line of its "assign". Comments: "!"
//          to the end of the line, "#" to the end of the line where it starts
//          a word (inside a word, as in "HB#", it is part of the name), and
//          "{ ... }" blocks (nested braces counted); none of them inside
//          double quotes. Everything outside assign statements (set ... end,
//          sani/dipo headers, nres=, class, force, potential, coefficients,
//          end) is skipped. Atom names are upper-cased and the unambiguous
//          X-PLOR names mapped to PDB ones: HN -> H, OT1 -> O, OT2 -> OXT.
//          Pseudo-atoms (HB#, HG2#, QB, HB*) are kept as written.
//
// table    One coupling per line: "chain1 res1 atom1 chain2 res2 atom2 value
//          [error]", white-space separated. A chain of "-" or "." means none
//          (""). "#" starting a field comments out the rest of the line
//          (whole-line or trailing comments); names such as "HB#" are kept.
//          Atom names are taken as written.
//
// nef      The nef_rdc_restraint_list save frames, one set per frame, named by
//          the framecode after "nef_rdc_restraint_list_" ("peg_gel-1"; the
//          full framecode is accepted by `set` too). Columns of the
//          _nef_rdc_restraint loop: chain_code_1, sequence_code_1 (an
//          integer), atom_name_1, the same for _2, target_value; optional
//          target_value_uncertainty (the error), weight and scale; others are
//          ignored. A row of weight 0 is left out; otherwise the weight is
//          not used. The value (and its error, by the magnitude) is multiplied
//          by the scale. Chain "." is "". Atom names go through nef_atom_name
//          (atom_names.hpp): HN -> H, HB% -> HB#, HBx -> HB#. Rows sharing a
//          restraint_id (alternative atom pairs) are an error.
//
// nmrstar  The _RDC_constraint loops (restraint files, the PDB's
//          *_nmr-data.str) and the _RDC loops (measured lists) of NMR-STAR
//          v3 save frames, one set per frame, named by the frame
//          ("CNS/XPLOR_dipolar_coupling_5"). Each atom by author numbering
//          (Auth_seq_ID_n, Auth_atom_ID_n, chain Auth_asym_ID_n) when the row
//          has it, else Seq_ID_n and Atom_ID_n (chain ""). Value RDC_val (Val
//          in _RDC loops), error RDC_val_err (Val_err), multiplied by
//          RDC_val_scale_factor where given. Atom names as the X-PLOR ones.
//          Unquoted "$" save-frame references are read as text.
//
// pipe     An NMRPipe table: the VARS line names the columns of the data
//          rows (RESID_I ATOMNAME_I RESID_J ATOMNAME_J D required; DD the
//          error, W the weight, RESNAME_I/J and others read and not used);
//          a FORMAT line, if any, must have as many entries. REMARK, DATA,
//          NULLVALUE and NULLSTRING lines and empty lines are skipped. W 0
//          leaves a row out. Atom names as the X-PLOR ones (HN -> H).
//
// Errors (numbers that are not numbers, missing or surplus fields, an
// unknown coupling type, a malformed assign statement, an unclosed "{"
// comment) throw InputError "FILE:LINE: what was wrong, what was expected".
// With `lenient` such a line or statement is skipped and counted in
// skipped_lines instead. Values and errors must be finite, errors not
// negative. A file without any coupling is an error in every mode. Couplings
// listed twice are kept twice, in file order.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "io/input_error.hpp"

namespace vorn::io {

// One atom of a coupled pair. chain "" means any or unspecified.
struct CouplingAtom {
  std::string chain;
  int residue = 0;
  std::string name;
};

struct MeasuredCoupling {
  CouplingAtom atom1, atom2;
  double value_hz = 0.0;
  std::optional<double> error_hz;       // absent when the file gives none
  std::optional<double> error_plus_hz;  // X-PLOR's second error column, when given
  long line = 0;                        // line in the file (of the "assign" for X-PLOR)
};

// The couplings of one alignment medium. name: the tensor residue number of
// X-PLOR files ("500"), the list of NEF ("peg_gel-1") and NMR-STAR files;
// "" for the layouts that hold a single set.
struct CouplingSet {
  std::string name;
  std::vector<MeasuredCoupling> couplings;
  std::string framecode;  // NEF: the list's full framecode; else ""
};

enum class CouplingFormat { classic, xplor, table, nef, nmrstar, pipe };

struct CouplingReadOptions {
  std::optional<CouplingFormat> format;  // unset: told from the content
  std::optional<std::string> set;        // keep only this set; default: all
  bool lenient = false;                  // skip and count bad lines instead of failing
};

struct CouplingFile {
  CouplingFormat format = CouplingFormat::classic;
  std::vector<CouplingSet> sets;  // in order of first appearance in the file
  int skipped_lines = 0;          // bad lines or statements skipped with `lenient`
};

// Reads a coupling file, plain or gzip-compressed. Without options.format
// the layout is told from the content: a first field "data_..." means NEF
// when "save_nef_" follows, NMR-STAR when "_RDC" does; a line starting with
// VARS an NMRPipe table; an assign keyword outside comments X-PLOR; else the
// first line holding data decides: 7 or 8 fields with integers in fields 2
// and 5 mean a table, three leading numbers the classic layout. options.set
// keeps one set of an X-PLOR, NEF or NMR-STAR file (a name the file lacks is
// an error listing the sets it has); for the single-set layouts only "" is
// accepted. Throws InputError.
CouplingFile read_couplings(const std::string& path, const CouplingReadOptions& options = {});

// The same reading for text already in memory; name_for_messages stands for
// the file name in the messages.
CouplingFile parse_couplings(std::string_view text, const std::string& name_for_messages,
                             const CouplingReadOptions& options);

// "classic" or "dc", "xplor" or "cns", "table", "nef", "nmrstar" (or
// "nmr-star", "star"), "pipe" or "nmrpipe" (any case); nullopt otherwise.
std::optional<CouplingFormat> parse_coupling_format(std::string_view name);

// "classic", "xplor", "table", "nef", "nmrstar" or "pipe".
std::string coupling_format_name(CouplingFormat format);

}  // namespace vorn::io
