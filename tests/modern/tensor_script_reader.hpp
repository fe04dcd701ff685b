// Reading back the tensor scripts: the arrows of a ChimeraX BILD file and
// of the CGO objects of a PyMOL script, and checking them against a tensor.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace vorn::test {

using V3 = std::array<double, 3>;

// One arrow: from `start` to `tip`, in colour `rgb`; `state` the PyMOL
// state (1 in a BILD file).
struct ScriptArrow {
  V3 start{}, tip{};
  V3 rgb{};
  int state = 1;
};

inline std::vector<double> numbers(const std::string& text) {
  std::vector<double> v;
  std::istringstream in(text);
  for (std::string word; in >> word;) v.push_back(std::stod(word));
  return v;
}

// ".color r g b" then ".arrow x1 y1 z1 x2 y2 z2 r1 r2 rho" lines; other
// lines must be ".comment" lines.
inline std::vector<ScriptArrow> bild_arrows(const std::string& text) {
  std::vector<ScriptArrow> arrows;
  V3 colour{-1, -1, -1};
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    if (line.rfind(".color ", 0) == 0) {
      const std::vector<double> v = numbers(line.substr(7));
      EXPECT_EQ(v.size(), 3u) << line;
      if (v.size() == 3) colour = {v[0], v[1], v[2]};
    } else if (line.rfind(".arrow ", 0) == 0) {
      const std::vector<double> v = numbers(line.substr(7));
      EXPECT_EQ(v.size(), 9u) << line;
      if (v.size() != 9) continue;
      EXPECT_GT(v[6], 0.0);                           // shaft radius
      EXPECT_GT(v[7], v[6]);                          // head wider than the shaft
      EXPECT_TRUE(v[8] > 0.0 && v[8] < 1.0) << line;  // shaft's share
      arrows.push_back({{v[0], v[1], v[2]}, {v[3], v[4], v[5]}, colour, 1});
    } else {
      EXPECT_EQ(line.rfind(".comment ", 0), 0u) << line;
    }
  }
  return arrows;
}

// The `cmd.load_cgo([...], 'object', state)` calls of a PyMOL script's
// python block: each CYLINDER (shaft) followed by its CONE (head) is an
// arrow from the shaft's start to the head's tip.
inline std::vector<ScriptArrow> pml_arrows(const std::string& text, const std::string& object) {
  std::vector<ScriptArrow> arrows;
  EXPECT_NE(text.find("\npython\nfrom pymol.cgo import *\n"), std::string::npos);
  EXPECT_NE(text.find("\npython end\n"), std::string::npos);
  for (std::size_t at = text.find("cmd.load_cgo(["); at != std::string::npos;
       at = text.find("cmd.load_cgo([", at + 1)) {
    const std::size_t close = text.find("], '", at);
    std::string body = text.substr(at + 14, close - at - 14);
    // Comments to the line's end, then commas, go.
    std::string plain;
    bool comment = false;
    for (char c : body) {
      if (c == '#') comment = true;
      if (c == '\n') comment = false;
      if (!comment) plain += c == ',' ? ' ' : c;
    }
    const std::size_t name_end = text.find('\'', close + 4);
    EXPECT_EQ(text.substr(close + 4, name_end - close - 4), object);
    const int state = std::stoi(text.substr(name_end + 2));
    std::istringstream in(plain);
    std::vector<std::pair<std::string, std::vector<double>>> items;
    for (std::string word; in >> word;) {
      if (word == "CYLINDER" || word == "CONE") {
        items.push_back({word, {}});
      } else {
        items.back().second.push_back(std::stod(word));
      }
    }
    for (std::size_t i = 0; i + 1 < items.size(); i += 2) {
      const auto& [kind, cylinder] = items[i];
      const auto& [next, cone] = items[i + 1];
      EXPECT_EQ(kind, "CYLINDER");
      EXPECT_EQ(next, "CONE");
      EXPECT_EQ(cylinder.size(), 13u);
      EXPECT_EQ(cone.size(), 16u);
      if (cylinder.size() != 13 || cone.size() != 16) continue;
      // The head starts where the shaft ends.
      for (int k = 0; k < 3; ++k) EXPECT_EQ(cylinder[3 + k], cone[k]);
      arrows.push_back({{cylinder[0], cylinder[1], cylinder[2]},
                        {cone[3], cone[4], cone[5]},
                        {cylinder[7], cylinder[8], cylinder[9]},
                        state});
    }
  }
  return arrows;
}

// The axis an arrow's colour names: 0 x (red), 1 y (green), 2 z (blue).
inline int axis_of(const V3& rgb) {
  if (rgb[0] > rgb[1] && rgb[0] > rgb[2]) return 0;
  if (rgb[1] > rgb[0] && rgb[1] > rgb[2]) return 1;
  return 2;
}

// Checks the arrows of one tensor: two per axis whose eigenvalue is not 0,
// opposite, from `centre`, along the eigenvector (`eigenvectors` z, y, x
// as the JSON and AlignmentTensor give them) within 1e-6, each
// 15 |eigenvalue| / |largest| long.
inline void expect_tensor_arrows(const std::vector<ScriptArrow>& arrows, const V3& centre,
                                 const std::array<V3, 3>& eigenvectors, const V3& eigenvalues) {
  std::map<int, std::vector<const ScriptArrow*>> by_axis;
  for (const ScriptArrow& a : arrows) by_axis[axis_of(a.rgb)].push_back(&a);
  for (int axis = 0; axis < 3; ++axis) {
    SCOPED_TRACE("axis " + std::string(1, "xyz"[axis]));
    const int k = 2 - axis;  // the eigenvector and eigenvalue of the axis
    const double largest =
        std::max({std::fabs(eigenvalues[0]), std::fabs(eigenvalues[1]), std::fabs(eigenvalues[2])});
    const double expected_length = 15.0 * std::fabs(eigenvalues[k]) / largest;
    if (eigenvalues[k] == 0.0) {
      EXPECT_EQ(by_axis.count(axis), 0u);
      continue;
    }
    ASSERT_EQ(by_axis[axis].size(), 2u);
    V3 directions[2];
    for (int end = 0; end < 2; ++end) {
      const ScriptArrow& a = *by_axis[axis][end];
      for (int c = 0; c < 3; ++c) EXPECT_NEAR(a.start[c], centre[c], 1e-6);
      V3 d{};
      double length = 0;
      for (int c = 0; c < 3; ++c) {
        d[c] = a.tip[c] - a.start[c];
        length += d[c] * d[c];
      }
      length = std::sqrt(length);
      EXPECT_NEAR(length, expected_length, 1e-6);
      for (double& x : d) x /= length;
      directions[end] = d;
      // Along the eigenvector, either way.
      const V3& e = eigenvectors[k];
      const double sign = d[0] * e[0] + d[1] * e[1] + d[2] * e[2] > 0 ? 1.0 : -1.0;
      for (int c = 0; c < 3; ++c) EXPECT_NEAR(d[c], sign * e[c], 1e-6);
    }
    // Both ways.
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(directions[0][c], -directions[1][c], 1e-9);
  }
}

}  // namespace vorn::test
