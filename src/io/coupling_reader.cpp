// Readers of measured residual dipolar couplings: the classic layout, X-PLOR
// assign statements and the plain table, the choice of the format and the
// selection of a set (see coupling_reader.hpp). The NEF, NMR-STAR and
// NMRPipe readers have files of their own.
#include "io/coupling_reader.hpp"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <climits>
#include <cmath>
#include <map>
#include <system_error>
#include <utility>

#include "io/atom_names.hpp"
#include "io/coupling_formats.hpp"
#include "io/file_text.hpp"
#include "io/number_text.hpp"

namespace vorn::io {

namespace detail {

std::string shown(std::string_view s) {
  constexpr size_t kMaxShown = 40;
  std::string out(1, '"');
  out.append(s.substr(0, kMaxShown));
  out.append(s.size() > kMaxShown ? "...\"" : "\"");
  return out;
}

std::vector<std::string_view> split_fields(std::string_view line) {
  std::vector<std::string_view> fields;
  size_t i = 0;
  while (i < line.size()) {
    if (std::isspace(static_cast<unsigned char>(line[i])) != 0) {
      ++i;
      continue;
    }
    const size_t start = i;
    while (i < line.size() && std::isspace(static_cast<unsigned char>(line[i])) == 0) ++i;
    fields.push_back(line.substr(start, i - start));
  }
  return fields;
}

std::string lower_case(std::string_view s) {
  std::string out(s);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return out;
}

LoopColumns::LoopColumns(const StarLoop& loop) : loop_(loop) {
  for (std::size_t i = 0; i < loop.tags.size(); ++i) {
    const std::string tag = lower_case(loop.tags[i]);
    const std::size_t dot = tag.find('.');
    const std::string category = tag.substr(0, dot);
    if (i == 0) category_ = category;
    if (category != category_) category_.clear();
    if (dot != std::string::npos) columns_.try_emplace(tag.substr(dot + 1), i);
  }
}

std::optional<std::size_t> LoopColumns::find(std::string_view column) const {
  const auto it = columns_.find(lower_case(column));
  if (it == columns_.end()) return std::nullopt;
  return it->second;
}

std::optional<double> number_value(const StarValue& value, std::string_view column) {
  if (!value) return std::nullopt;
  const auto number = number_text::to_number(*value);
  if (!number) {
    throw BadValue{std::string(column) + " " + shown(*value) + " is not a number"};
  }
  return number;
}

std::optional<int> integer_value(const StarValue& value, std::string_view column) {
  if (!value) return std::nullopt;
  const auto number = number_text::to_int(*value);
  if (!number) {
    throw BadValue{std::string(column) + " " + shown(*value) + " is not an integer"};
  }
  return number;
}

}  // namespace detail

namespace {

using detail::CouplingCollector;
using detail::for_each_line;
using detail::shown;
using detail::split_fields;

using number_text::to_int;
using number_text::to_number;
using number_text::without_plus;

// A problem with one line or statement; turned into an InputError, or
// counted with `lenient`.
struct BadInput {
  long line;
  std::string what;
};

bool is_space(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

std::string lower(std::string_view s) {
  std::string out(s);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return out;
}

std::string_view trim(std::string_view s) {
  while (!s.empty() && is_space(s.front())) s.remove_prefix(1);
  while (!s.empty() && is_space(s.back())) s.remove_suffix(1);
  return s;
}

// The white-space separated fields of a line up to a "#" that starts a field
// (the rest of the line is a comment); "#" inside a field belongs to it.
std::vector<std::string_view> fields_before_comment(std::string_view line) {
  std::vector<std::string_view> fields;
  size_t i = 0;
  while (i < line.size()) {
    if (is_space(line[i])) {
      ++i;
      continue;
    }
    if (line[i] == '#') break;
    const size_t start = i;
    while (i < line.size() && !is_space(line[i])) ++i;
    fields.push_back(line.substr(start, i - start));
  }
  return fields;
}

// ---------------------------------------------------------------------------
// classic

struct ClassicPair {
  const char* name1;
  int offset1;  // residue of atom1 relative to the line's residue
  const char* name2;
};

// Types 0..4; type 5 has no atom pair.
constexpr ClassicPair kClassicPairs[] = {
    {"N", 0, "H"}, {"CA", 0, "HA"}, {"CA", 0, "C"}, {"C", -1, "N"}, {"C", -1, "H"}};
constexpr double kNotMeasuredHz = 1000.0;

// The coupling of one data line, or nullopt for a value marked not measured.
std::optional<MeasuredCoupling> classic_line(long number, const std::vector<std::string_view>& f) {
  if (f.size() < 3) {
    throw BadInput{number, "found " + std::to_string(f.size()) +
                               " field(s), expected three: residue number, coupling in Hz, "
                               "coupling type 0-4"};
  }
  const auto residue = to_int(f[0]);
  if (!residue) {
    throw BadInput{number, "residue number " + shown(f[0]) + " is not an integer"};
  }
  const auto value = to_number(f[1]);
  if (!value) throw BadInput{number, "coupling " + shown(f[1]) + " is not a number (Hz)"};
  const auto type = to_int(f[2]);
  if (!type) {
    throw BadInput{number, "coupling type " + shown(f[2]) + " is not an integer, expected 0-4"};
  }
  if (*type < 0 || *type > 5) {
    throw BadInput{number, "coupling type " + std::to_string(*type) + " is unknown, expected 0-4"};
  }
  if (*value >= kNotMeasuredHz) return std::nullopt;
  if (*type == 5) throw BadInput{number, "coupling type 5 names no atom pair, expected 0-4"};
  const ClassicPair& pair = kClassicPairs[*type];
  if (pair.offset1 < 0 && *residue == INT_MIN) {
    throw BadInput{number, "residue number " + shown(f[0]) + " has no preceding residue"};
  }
  MeasuredCoupling c;
  c.atom1 = {"", *residue + pair.offset1, pair.name1};
  c.atom2 = {"", *residue, pair.name2};
  c.value_hz = *value;
  c.line = number;
  return c;
}

// ---------------------------------------------------------------------------
// table

std::string table_chain(std::string_view field) {
  return field == "-" || field == "." ? std::string() : std::string(field);
}

MeasuredCoupling table_line(long number, const std::vector<std::string_view>& f) {
  if (f.size() != 7 && f.size() != 8) {
    throw BadInput{number, "found " + std::to_string(f.size()) +
                               " field(s), expected 7 or 8: chain1 res1 atom1 chain2 res2 "
                               "atom2 value [error]"};
  }
  MeasuredCoupling c;
  for (int k = 0; k < 2; ++k) {
    const std::string_view residue_field = f[3 * k + 1];
    const auto residue = to_int(residue_field);
    if (!residue) {
      throw BadInput{number, "residue number " + shown(residue_field) + " (field " +
                                 std::to_string(3 * k + 2) + ") is not an integer"};
    }
    CouplingAtom& atom = k == 0 ? c.atom1 : c.atom2;
    atom = {table_chain(f[3 * k]), *residue, std::string(f[3 * k + 2])};
  }
  const auto value = to_number(f[6]);
  if (!value) throw BadInput{number, "coupling " + shown(f[6]) + " (field 7) is not a number (Hz)"};
  c.value_hz = *value;
  if (f.size() == 8) {
    const auto error = to_number(f[7]);
    if (!error || *error < 0.0) {
      throw BadInput{number,
                     "error " + shown(f[7]) + " (field 8) is not a non-negative number (Hz)"};
    }
    c.error_hz = *error;
  }
  c.line = number;
  return c;
}

// ---------------------------------------------------------------------------
// X-PLOR

enum class TokenKind { word, open, close, bad };

struct Token {
  TokenKind kind;
  std::string_view text;  // a word (without its quotes), or what was wrong
  long line;
  bool quoted = false;
};

struct Tokens {
  std::vector<Token> tokens;
  std::optional<long> unclosed_brace;  // line of a "{" comment never closed
};

// Splits X-PLOR text into words and parentheses, dropping comments.
Tokens tokenize_xplor(std::string_view text) {
  Tokens out;
  long line = 1;
  size_t i = 0;
  const size_t n = text.size();
  const auto to_end_of_line = [&] {
    while (i < n && text[i] != '\n') ++i;
  };
  while (i < n) {
    const char c = text[i];
    if (c == '\n') {
      ++line;
      ++i;
    } else if (is_space(c)) {
      ++i;
    } else if (c == '!' || c == '#') {
      to_end_of_line();
    } else if (c == '{') {
      const long start_line = line;
      int depth = 0;
      for (; i < n; ++i) {
        if (text[i] == '{') {
          ++depth;
        } else if (text[i] == '}') {
          if (--depth == 0) break;
        } else if (text[i] == '\n') {
          ++line;
        }
      }
      if (i < n) {
        ++i;  // the closing brace
      } else {
        out.unclosed_brace = start_line;
      }
    } else if (c == '(' || c == ')') {
      out.tokens.push_back(
          {c == '(' ? TokenKind::open : TokenKind::close, text.substr(i, 1), line});
      ++i;
    } else if (c == '"') {
      const size_t close = text.find_first_of("\"\n", i + 1);
      if (close == std::string_view::npos || text[close] != '"') {
        out.tokens.push_back({TokenKind::bad, "a quote is not closed", line});
        to_end_of_line();
      } else {
        out.tokens.push_back({TokenKind::word, text.substr(i + 1, close - i - 1), line, true});
        i = close + 1;
      }
    } else {
      const size_t start = i;
      while (i < n && !is_space(text[i]) && text[i] != '(' && text[i] != ')' && text[i] != '!' &&
             text[i] != '"' && text[i] != '{') {
        ++i;
      }
      out.tokens.push_back({TokenKind::word, text.substr(start, i - start), line});
    }
  }
  return out;
}

// "assign" in any case, abbreviated to no fewer than four letters.
bool is_assign(const Token& t) {
  if (t.kind != TokenKind::word || t.quoted || t.text.size() < 4 || t.text.size() > 6) {
    return false;
  }
  return std::string_view("assign").substr(0, t.text.size()) == lower(t.text);
}

std::string token_for_message(const Token& t) {
  switch (t.kind) {
    case TokenKind::open:
      return "\"(\"";
    case TokenKind::close:
      return "\")\"";
    case TokenKind::bad:
      return std::string(t.text);
    case TokenKind::word:
      break;
  }
  return shown(t.text);
}

// What one selection names.
struct Selection {
  std::optional<int> residue;
  std::optional<std::string> name;
  std::optional<std::string> segid;
};

class AssignParser {
 public:
  AssignParser(const std::vector<Token>& tokens, size_t keyword)
      : tokens_(tokens), i_(keyword + 1), line_(tokens[keyword].line) {}

  // Reads the statement; `set` receives the tensor residue number.
  MeasuredCoupling parse(std::string& set) {
    Selection selections[6];
    for (int s = 0; s < 6; ++s) selections[s] = selection(s + 1);

    for (int s = 0; s < 4; ++s) {
      if (!selections[s].residue) {
        fail("tensor selection " + std::to_string(s + 1) +
             " names no residue, expected \"resid N and name ...\"");
      }
      if (*selections[s].residue != *selections[0].residue) {
        fail("tensor selections name residues " + std::to_string(*selections[0].residue) + " and " +
             std::to_string(*selections[s].residue) + ", expected one residue for OO, Z, X and Y");
      }
    }
    set = std::to_string(*selections[0].residue);

    MeasuredCoupling c;
    c.line = line_;
    for (int s = 4; s < 6; ++s) {
      const Selection& sel = selections[s];
      if (!sel.residue || !sel.name) {
        fail("selection " + std::to_string(s + 1) +
             " does not name one atom, expected \"resid N and name X\"");
      }
      CouplingAtom& atom = s == 4 ? c.atom1 : c.atom2;
      atom.chain = sel.segid.value_or("");
      atom.residue = *sel.residue;
      atom.name = pdb_atom_name(*sel.name);
    }

    const auto value = number_here();
    if (!value) {
      fail("found " + here() + " after the six selections, expected the coupling value (Hz)");
    }
    c.value_hz = *value;
    ++i_;
    if (const auto error = number_here()) {
      if (*error < 0.0) fail("error " + here() + " is negative, expected a value >= 0 (Hz)");
      c.error_hz = *error;
      ++i_;
      if (const auto plus = number_here()) {
        if (*plus < 0.0) fail("error " + here() + " is negative, expected a value >= 0 (Hz)");
        c.error_plus_hz = *plus;
        ++i_;
        if (number_here()) {
          fail("found a fourth number " + here() +
               " after the selections, expected the value and at most two error columns");
        }
      }
    }
    return c;
  }

  // The index of the first token after the statement.
  size_t end() const { return i_; }

 private:
  [[noreturn]] void fail(const std::string& what) const {
    throw BadInput{line_, "assign statement: " + what};
  }

  bool at_end() const { return i_ >= tokens_.size(); }

  std::string here() const {
    if (at_end()) return "the end of the file";
    const Token& t = tokens_[i_];
    std::string s = token_for_message(t);
    if (t.line != line_) s += " (line " + std::to_string(t.line) + ")";
    return s;
  }

  std::optional<double> number_here() const {
    if (at_end() || tokens_[i_].kind != TokenKind::word || tokens_[i_].quoted) return std::nullopt;
    return to_number(tokens_[i_].text);
  }

  // Selection `index` (1-6): "(" clauses ")". Inner parentheses are allowed
  // where they only group; what they hold is read as one list of clauses.
  Selection selection(int index) {
    const std::string which = "selection " + std::to_string(index) + " of 6";
    if (at_end() || tokens_[i_].kind != TokenKind::open) {
      fail("found " + here() + ", expected \"(\" to open " + which);
    }
    ++i_;
    std::vector<const Token*> words;
    int depth = 1;
    while (depth > 0) {
      if (at_end()) fail(which + " is not closed, expected \")\"");
      const Token& t = tokens_[i_];
      if (t.kind == TokenKind::bad) {
        fail(std::string(t.text) + " (line " + std::to_string(t.line) +
             "), expected a closing \" on the same line");
      }
      if (is_assign(t)) {
        fail(which + " is not closed before the next assign (line " + std::to_string(t.line) +
             "), expected \")\"");
      }
      if (t.kind == TokenKind::open) ++depth;
      if (t.kind == TokenKind::close) --depth;
      if (t.kind == TokenKind::word) words.push_back(&t);
      ++i_;
    }
    if (words.empty()) fail(which + " is empty, expected \"resid N and name X\"");

    Selection sel;
    size_t k = 0;
    while (true) {
      if (k + 1 >= words.size()) {
        fail(which + " ends after " + shown(words[k]->text) + ", expected a value after it");
      }
      const std::string key = words[k]->quoted ? std::string() : lower(words[k]->text);
      const std::string_view value = words[k + 1]->text;
      if (key == "resi" || key == "resid") {
        const auto residue = to_int(value);
        if (!residue) {
          fail("residue number " + shown(value) + " in " + which + " is not an integer");
        }
        set_once(sel.residue, *residue, "resid", which);
      } else if (key == "name") {
        if (value.empty()) fail("empty atom name in " + which + ", expected a name");
        set_once(sel.name, std::string(value), "name", which);
      } else if (key == "segi" || key == "segid") {
        set_once(sel.segid, std::string(trim(value)), "segid", which);
      } else {
        fail("found " + shown(words[k]->text) + " in " + which +
             ", expected resid, name or segid joined by \"and\"");
      }
      k += 2;
      if (k == words.size()) break;
      if (words[k]->quoted || lower(words[k]->text) != "and") {
        fail("found " + shown(words[k]->text) + " in " + which +
             ", expected \"and\" between resid, name and segid");
      }
      if (++k == words.size()) fail(which + " ends with \"and\", expected a clause after it");
    }
    return sel;
  }

  template <typename T>
  void set_once(std::optional<T>& slot, T value, const char* key, const std::string& which) {
    if (slot) fail(std::string(key) + " given twice in " + which);
    slot = std::move(value);
  }

  const std::vector<Token>& tokens_;
  size_t i_;
  long line_;
};

// ---------------------------------------------------------------------------

struct Reader {
  CouplingCollector& out;

  void bad(const BadInput& b) { out.bad(b.line, b.what); }
  void add(const std::string& set, MeasuredCoupling c) { out.add(set, std::move(c)); }

  void classic(std::string_view text) {
    for_each_line(text, [&](long number, std::string_view line) {
      const std::string_view content = trim(line);
      if (content.empty() || content.front() == '#') return;
      try {
        if (auto c = classic_line(number, split_fields(content))) add("", std::move(*c));
      } catch (const BadInput& b) {
        bad(b);
      }
    });
  }

  void table(std::string_view text) {
    for_each_line(text, [&](long number, std::string_view line) {
      const auto fields = fields_before_comment(line);
      if (fields.empty()) return;
      try {
        add("", table_line(number, fields));
      } catch (const BadInput& b) {
        bad(b);
      }
    });
  }

  void xplor(std::string_view text) {
    const Tokens tokens = tokenize_xplor(text);
    const std::vector<Token>& t = tokens.tokens;
    size_t i = 0;
    while (i < t.size()) {
      if (!is_assign(t[i])) {
        ++i;  // not part of an assign statement
        continue;
      }
      AssignParser parser(t, i);
      try {
        std::string set;
        MeasuredCoupling c = parser.parse(set);
        add(set, std::move(c));
        i = parser.end();
      } catch (const BadInput& b) {
        bad(b);
        ++i;  // look for the next assign after the keyword of the bad one
      }
    }
    if (tokens.unclosed_brace) {
      bad({*tokens.unclosed_brace,
           "a \"{\" comment is not closed, expected \"}\" before the end of the file"});
    }
  }
};

// The first field of the first line that holds one, outside "#" comments.
std::string_view first_field(std::string_view text) {
  std::string_view found;
  bool decided = false;
  for_each_line(text, [&](long, std::string_view line) {
    if (decided) return;
    const auto f = fields_before_comment(line);
    if (f.empty()) return;
    found = f.front();
    decided = true;
  });
  return found;
}

std::optional<CouplingFormat> detect(std::string_view text) {
  // STAR files open with a data block: NEF has its "save_nef_" frames,
  // NMR-STAR its _RDC or _RDC_constraint loops.
  if (lower(first_field(text).substr(0, 5)) == "data_") {
    if (text.find("save_nef_") != std::string_view::npos) return CouplingFormat::nef;
    if (text.find("_RDC") != std::string_view::npos) return CouplingFormat::nmrstar;
    return std::nullopt;
  }
  bool vars = false;
  for_each_line(text, [&](long, std::string_view line) {
    const auto f = split_fields(line);
    if (!f.empty() && f.front() == "VARS") vars = true;
  });
  if (vars) return CouplingFormat::pipe;
  for (const Token& t : tokenize_xplor(text).tokens) {
    if (is_assign(t)) return CouplingFormat::xplor;
  }
  // Only the first line holding data counts.
  bool decided = false;
  std::optional<CouplingFormat> found;
  for_each_line(text, [&](long, std::string_view line) {
    if (decided) return;
    const auto f = fields_before_comment(line);
    if (f.empty()) return;
    decided = true;
    if ((f.size() == 7 || f.size() == 8) && to_int(f[1]) && to_int(f[4])) {
      found = CouplingFormat::table;
    } else if (f.size() >= 3 && to_number(f[0]) && to_number(f[1]) && to_number(f[2])) {
      found = CouplingFormat::classic;
    }
  });
  return found;
}

}  // namespace

std::optional<CouplingFormat> parse_coupling_format(std::string_view name) {
  const std::string key = lower(name);
  if (key == "classic" || key == "dc") return CouplingFormat::classic;
  if (key == "xplor" || key == "cns") return CouplingFormat::xplor;
  if (key == "table") return CouplingFormat::table;
  if (key == "nef") return CouplingFormat::nef;
  if (key == "nmrstar" || key == "nmr-star" || key == "star") return CouplingFormat::nmrstar;
  if (key == "pipe" || key == "nmrpipe") return CouplingFormat::pipe;
  return std::nullopt;
}

std::string coupling_format_name(CouplingFormat format) {
  switch (format) {
    case CouplingFormat::classic:
      return "classic";
    case CouplingFormat::xplor:
      return "xplor";
    case CouplingFormat::table:
      return "table";
    case CouplingFormat::nef:
      return "nef";
    case CouplingFormat::nmrstar:
      return "nmrstar";
    case CouplingFormat::pipe:
      return "pipe";
  }
  return "unknown";
}

CouplingFile parse_couplings(std::string_view text, const std::string& name_for_messages,
                             const CouplingReadOptions& options) {
  const std::string& name = name_for_messages;
  const auto format = options.format ? options.format : detect(text);
  if (!format) {
    throw InputError("cannot tell the format of " + name +
                     " (use --couplings-format): expected a NEF file (data_ and save_nef_ "
                     "frames), an NMR-STAR file (data_ and _RDC loops), an NMRPipe table "
                     "(VARS line), X-PLOR assign statements, table lines \"chain1 res1 atom1 "
                     "chain2 res2 atom2 value [error]\" or classic lines \"resnum value type\"");
  }
  CouplingFile result;
  result.format = *format;
  CouplingCollector collector(name, options.lenient, result);
  Reader reader{collector};
  switch (*format) {
    case CouplingFormat::classic:
      reader.classic(text);
      break;
    case CouplingFormat::xplor:
      reader.xplor(text);
      break;
    case CouplingFormat::table:
      reader.table(text);
      break;
    case CouplingFormat::nef:
      detail::read_nef_couplings(text, collector);
      break;
    case CouplingFormat::nmrstar:
      detail::read_nmrstar_couplings(text, collector);
      break;
    case CouplingFormat::pipe:
      detail::read_pipe_couplings(text, collector);
      break;
  }
  if (result.sets.empty()) {
    std::string what = name + ": no couplings found";
    if (result.skipped_lines > 0) {
      what += " (" + std::to_string(result.skipped_lines) + " bad line(s) skipped)";
    }
    throw InputError(what + ", expected at least one in the " + coupling_format_name(*format) +
                     " format");
  }
  if (options.set) {
    // A NEF list answers to its full framecode too.
    const auto it = std::find_if(result.sets.begin(), result.sets.end(), [&](const CouplingSet& s) {
      return s.name == *options.set || (!s.framecode.empty() && s.framecode == *options.set);
    });
    if (it == result.sets.end()) {
      std::string names;
      for (const CouplingSet& s : result.sets) {
        names += (names.empty() ? "" : ", ") + (s.name.empty() ? "\"\"" : s.name);
      }
      if (*format == CouplingFormat::xplor || *format == CouplingFormat::nef ||
          *format == CouplingFormat::nmrstar) {
        throw InputError(name + ": no coupling set " + shown(*options.set) +
                         ", expected one of the sets in the file: " + names);
      }
      throw InputError(name + ": no coupling set " + shown(*options.set) + ", the " +
                       coupling_format_name(*format) +
                       " format holds one unnamed set (sets are tensor residues of X-PLOR "
                       "files and the lists of NEF and NMR-STAR files)");
    }
    CouplingSet kept = std::move(*it);
    result.sets.clear();
    result.sets.push_back(std::move(kept));
  }
  return result;
}

CouplingFile read_couplings(const std::string& path, const CouplingReadOptions& options) {
  const std::string text =
      read_file_text(path, "cannot open the coupling file, expected a readable file");
  return parse_couplings(text, path, options);
}

}  // namespace vorn::io
