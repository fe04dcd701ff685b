// Reading back what PLplot's SVG driver writes: the polylines (lines, and
// filled shapes with a fill colour) and the text of the text elements.
#pragma once

#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace vorn::test {

inline std::string read_text_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

// xmllint's verdict on the file: true when it is well-formed XML.
inline bool xmllint_accepts(const std::string& xmllint, const std::string& path) {
  const std::string command = xmllint + " --noout '" + path + "'";
  const int status = std::system(command.c_str());
  return status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

struct Point {
  double x = 0, y = 0;
};

// One <polyline>: its stroke and fill colours ("none" for a line) and its
// points in the SVG's own coordinates (y up, under the driver's flip).
struct SvgPolyline {
  std::string stroke, fill;
  std::vector<Point> points;

  bool filled() const { return fill != "none"; }
  // The corners of a closed shape (the last point repeating the first is
  // not one); all the points of an open line.
  std::vector<Point> corners() const {
    std::vector<Point> c = points;
    if (c.size() > 1 && c.front().x == c.back().x && c.front().y == c.back().y) c.pop_back();
    return c;
  }
  bool closed() const { return corners().size() + 1 == points.size(); }
  Point centre() const {
    Point m;
    const std::vector<Point> c = corners();
    for (const Point& p : c) m.x += p.x / c.size(), m.y += p.y / c.size();
    return m;
  }
};

// The value of attribute `name` of a tag ("" when it has none).
inline std::string attribute(const std::string& tag, const std::string& name) {
  const std::string key = name + "=\"";
  for (std::size_t at = tag.find(key); at != std::string::npos; at = tag.find(key, at + 1)) {
    if (at == 0 || std::isspace(static_cast<unsigned char>(tag[at - 1])) == 0) continue;
    const std::size_t begin = at + key.size();
    return tag.substr(begin, tag.find('"', begin) - begin);
  }
  return "";
}

inline std::vector<SvgPolyline> svg_polylines(const std::string& svg) {
  std::vector<SvgPolyline> lines;
  for (std::size_t at = svg.find("<polyline"); at != std::string::npos;
       at = svg.find("<polyline", at + 1)) {
    const std::size_t end = svg.find("/>", at);
    const std::string tag = svg.substr(at, end - at);
    SvgPolyline p;
    p.stroke = attribute(tag, "stroke");
    p.fill = attribute(tag, "fill");
    std::istringstream points(attribute(tag, "points"));
    for (std::string pair; points >> pair;) {
      const std::size_t comma = pair.find(',');
      p.points.push_back({std::stod(pair.substr(0, comma)), std::stod(pair.substr(comma + 1))});
    }
    lines.push_back(std::move(p));
  }
  return lines;
}

// Filled shapes of `corners` corners in colour `fill`.
inline std::vector<SvgPolyline> filled_shapes(const std::vector<SvgPolyline>& lines,
                                              const std::string& fill, std::size_t corners) {
  std::vector<SvgPolyline> found;
  for (const SvgPolyline& p : lines)
    if (p.filled() && p.fill == fill && p.closed() && p.corners().size() == corners)
      found.push_back(p);
  return found;
}

// Closed lines (rings) of `corners` corners in colour `stroke`.
inline std::vector<SvgPolyline> rings(const std::vector<SvgPolyline>& lines,
                                      const std::string& stroke, std::size_t corners) {
  std::vector<SvgPolyline> found;
  for (const SvgPolyline& p : lines)
    if (!p.filled() && p.stroke == stroke && p.closed() && p.corners().size() == corners)
      found.push_back(p);
  return found;
}

inline void append_utf8(std::string& out, std::uint32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

// The decoded content of every <text> element, in document order.
inline std::vector<std::string> svg_texts(const std::string& svg) {
  std::vector<std::string> texts;
  for (std::size_t at = svg.find("<text"); at != std::string::npos;
       at = svg.find("<text", at + 1)) {
    const std::size_t open_end = svg.find('>', at);
    const std::size_t close = svg.find("</text>", open_end);
    if (open_end == std::string::npos || close == std::string::npos) break;
    const std::string xml = svg.substr(open_end + 1, close - open_end - 1);
    std::string out;
    for (std::size_t i = 0; i < xml.size();) {
      if (xml[i] == '<') {
        i = xml.find('>', i) + 1;
      } else if (xml.compare(i, 3, "&#x") == 0) {
        const std::size_t end = xml.find(';', i);
        append_utf8(out, static_cast<std::uint32_t>(
                             std::stoul(xml.substr(i + 3, end - i - 3), nullptr, 16)));
        i = end + 1;
      } else if (xml[i] == '&') {
        const std::size_t end = xml.find(';', i);
        static const std::map<std::string, char> named{
            {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};
        out += named.at(xml.substr(i + 1, end - i - 1));
        i = end + 1;
      } else {
        out += xml[i++];
      }
    }
    texts.push_back(out);
  }
  return texts;
}

// Least-squares line v = a + b u; returns {a, b, largest |residual|}.
inline std::array<double, 3> fit_line(const std::vector<double>& u, const std::vector<double>& v) {
  const double n = static_cast<double>(u.size());
  double mu = 0, mv = 0;
  for (std::size_t i = 0; i < u.size(); ++i) mu += u[i] / n, mv += v[i] / n;
  double suv = 0, suu = 0;
  for (std::size_t i = 0; i < u.size(); ++i) {
    suv += (u[i] - mu) * (v[i] - mv);
    suu += (u[i] - mu) * (u[i] - mu);
  }
  const double b = suv / suu;
  const double a = mv - b * mu;
  double worst = 0;
  for (std::size_t i = 0; i < u.size(); ++i)
    worst = std::max(worst, std::fabs(v[i] - a - b * u[i]));
  return {a, b, worst};
}

}  // namespace vorn::test
