// STAR text through gemmi's CIF/STAR grammar, with the line of each loop
// value recorded by an action of our own beside gemmi's.
#include "io/star_document.hpp"

#include <cctype>
#include <charconv>
#include <utility>

#include "io/input_error.hpp"

#define USE_STD_SNPRINTF
#include <gemmi/cif.hpp>

namespace vorn::io::detail {
namespace {

namespace cif = gemmi::cif;
namespace pegtl = tao::pegtl;

// gemmi's document and, per loop in file order, the line of each value.
struct LinedDocument : cif::Document {
  std::vector<std::vector<long>> loop_lines;
};

// gemmi's actions, and the lines of the loop values beside them.
template <typename Rule>
struct LinedAction : cif::Action<Rule> {};

template <>
struct LinedAction<cif::rules::str_loop> {
  template <typename Input>
  static void apply(const Input& in, LinedDocument& out) {
    cif::Action<cif::rules::str_loop>::apply(in, out);
    out.loop_lines.emplace_back();
  }
};

template <>
struct LinedAction<cif::rules::loop_value> {
  template <typename Input>
  static void apply(const Input& in, LinedDocument& out) {
    cif::Action<cif::rules::loop_value>::apply(in, out);
    out.loop_lines.back().push_back(static_cast<long>(in.iterator().line));
  }
};

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

StarValue value_of(const std::string& raw) {
  if (cif::is_null(raw)) return std::nullopt;
  return cif::as_string(raw);
}

// gemmi's own failures read "NAME:LINE in data_BLOCK: what"; they become
// "NAME:LINE: what (data_BLOCK)".
InputError gemmi_failure(const std::string& name, const std::string& what) {
  const std::string prefix = name + ":";
  if (what.compare(0, prefix.size(), prefix) == 0) {
    const char* begin = what.c_str() + prefix.size();
    const char* end = what.c_str() + what.size();
    long line = 0;
    const auto [stop, ec] = std::from_chars(begin, end, line);
    if (ec == std::errc() && stop != begin) {
      std::string rest(stop);
      std::string block;
      if (rest.compare(0, 4, " in ") == 0) {
        const std::size_t colon = rest.find(": ");
        if (colon != std::string::npos) {
          block = rest.substr(4, colon - 4);
          rest.erase(0, colon);
        }
      }
      if (rest.compare(0, 2, ": ") == 0) rest.erase(0, 2);
      return InputError(name + ":" + std::to_string(line) + ": " + rest +
                        (block.empty() ? "" : " (" + block + ")"));
    }
    return InputError(what);
  }
  return InputError(name + ": " + what);
}

void add_loop(const cif::Loop& loop, long line, std::vector<long>& lines, StarFrame& frame) {
  StarLoop out;
  out.line = line;
  out.tags = loop.tags;
  out.values.reserve(loop.values.size());
  for (const std::string& raw : loop.values) out.values.push_back(value_of(raw));
  out.value_lines = std::move(lines);
  // Every value was seen by the action; a mismatch would be a fault here.
  if (out.value_lines.size() != out.values.size()) out.value_lines.assign(out.values.size(), line);
  frame.loops.push_back(std::move(out));
}

}  // namespace

std::string quote_frame_references(const std::string& text) {
  std::string out;
  out.reserve(text.size() + 64);
  const std::size_t n = text.size();
  std::size_t i = 0;
  bool line_start = true;
  while (i < n) {
    const char c = text[i];
    if (line_start && c == ';') {
      // A text field: up to a line that begins with ";".
      std::size_t end = i + 1;
      while (end < n) {
        const std::size_t newline = text.find('\n', end);
        if (newline == std::string::npos) {
          end = n;
          break;
        }
        end = newline + 1;
        if (end < n && text[end] == ';') {
          ++end;
          break;
        }
      }
      out.append(text, i, end - i);
      i = end;
      line_start = false;
      continue;
    }
    if (is_blank(c)) {
      out += c;
      line_start = c == '\n';
      ++i;
      continue;
    }
    line_start = false;
    std::size_t end = i;
    if (c == '#') {
      end = text.find('\n', i);
      if (end == std::string::npos) end = n;
    } else if (c == '\'' || c == '"') {
      // Closed by the same quote before a blank, "#" or the end (gemmi's
      // rule); an unclosed one runs to the end of the line.
      end = i + 1;
      while (end < n && text[end] != '\n') {
        if (text[end] == c && (end + 1 == n || is_blank(text[end + 1]) || text[end + 1] == '#')) {
          ++end;
          break;
        }
        ++end;
      }
    } else {
      while (end < n && !is_blank(text[end])) ++end;
      if (c == '$') {
        const std::string token = text.substr(i, end - i);
        const bool single = token.find('\'') == std::string::npos;
        const bool double_ = token.find('"') == std::string::npos;
        if (single || double_) {
          const char quote = single ? '\'' : '"';
          out += quote;
          out += token;
          out += quote;
          i = end;
          continue;
        }
      }
    }
    out.append(text, i, end - i);
    i = end;
  }
  return out;
}

StarDocument read_star(std::string text, const std::string& name) {
  LinedDocument document;
  document.source = name;
  {
    const std::string quoted = quote_frame_references(text);
    std::string().swap(text);
    try {
      pegtl::memory_input<> in(quoted.data(), quoted.size(), name);
      pegtl::parse<cif::rules::file, LinedAction, cif::Errors>(in, document);
      cif::check_for_missing_values(document);
      cif::check_for_duplicates(document);
    } catch (const pegtl::parse_error& e) {
      const long line = e.positions().empty() ? 0 : static_cast<long>(e.positions().front().line);
      throw InputError(name + ":" + std::to_string(line) + ": " + std::string(e.message()) +
                       " (STAR syntax)");
    } catch (const std::runtime_error& e) {
      throw gemmi_failure(name, e.what());
    }
  }
  StarDocument result;
  std::size_t loop_index = 0;
  StarFrame outside;  // loops outside frames: counted, not kept
  const auto take_loop = [&](const cif::Item& item, StarFrame& frame) {
    std::vector<long> lines;
    if (loop_index < document.loop_lines.size()) lines = std::move(document.loop_lines[loop_index]);
    ++loop_index;
    add_loop(item.loop, item.line_number, lines, frame);
  };
  for (const cif::Block& block : document.blocks) {
    for (const cif::Item& item : block.items) {
      if (item.type == cif::ItemType::Loop) {
        take_loop(item, outside);
        outside.loops.clear();
        continue;
      }
      if (item.type != cif::ItemType::Frame) continue;
      StarFrame frame;
      frame.name = item.frame.name;
      frame.line = item.line_number;
      for (const cif::Item& inner : item.frame.items) {
        if (inner.type == cif::ItemType::Pair) {
          frame.pairs.push_back({inner.pair[0], value_of(inner.pair[1]), inner.line_number});
        } else if (inner.type == cif::ItemType::Loop) {
          take_loop(inner, frame);
        }
      }
      result.frames.push_back(std::move(frame));
    }
  }
  return result;
}

}  // namespace vorn::io::detail
