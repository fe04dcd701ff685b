// The tensor scripts read back: a tensor built from a known rotation and
// known eigenvalues, its arrows along the rotation's columns from the
// centre, in proportion to the eigenvalues; PyMOL states; the errors.
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "modern/tensor_script.hpp"
#include "svg_shapes.hpp"
#include "temp_dir_test.hpp"
#include "tensor_script_reader.hpp"
#include "vorn/tensor.hpp"

namespace vorn::modern {
namespace {

namespace fs = std::filesystem;
using test::V3;

class TensorScriptTest : public test::TempDirTest {
 protected:
  TensorScriptTest() : TempDirTest("vorn_script_") {}
};

// The rotation Rz(a) Ry(b) Rz(c); its columns are the principal axes.
std::array<V3, 3> rotation(double a, double b, double c) {
  const auto mul = [](const std::array<V3, 3>& p, const std::array<V3, 3>& q) {
    std::array<V3, 3> r{};
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j)
        for (int k = 0; k < 3; ++k) r[i][j] += p[i][k] * q[k][j];
    return r;
  };
  const auto rz = [](double t) {
    return std::array<V3, 3>{V3{std::cos(t), -std::sin(t), 0}, V3{std::sin(t), std::cos(t), 0},
                             V3{0, 0, 1}};
  };
  const std::array<V3, 3> ry{V3{std::cos(b), 0, std::sin(b)}, V3{0, 1, 0},
                             V3{-std::sin(b), 0, std::cos(b)}};
  return mul(mul(rz(a), ry), rz(c));
}

struct Known {
  AlignmentTensor tensor;
  std::array<V3, 3> eigenvectors;  // z, y, x
  V3 eigenvalues;                  // zz, yy, xx
};

// S = R diag(xx, yy, zz) R^T with |zz| > |yy| > |xx| (traceless).
Known known_tensor(double xx, double yy, const std::array<V3, 3>& r) {
  const double zz = -xx - yy;
  const double d[3] = {xx, yy, zz};
  double s[3][3] = {};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      for (int k = 0; k < 3; ++k) s[i][j] += r[i][k] * d[k] * r[j][k];
  Known k;
  k.tensor = analyze_tensor({s[2][2], s[0][0] - s[1][1], s[0][1], s[0][2], s[1][2]});
  for (int axis = 0; axis < 3; ++axis) {
    k.eigenvectors[2 - axis] = {r[0][axis], r[1][axis], r[2][axis]};
  }
  k.eigenvalues = {zz, yy, xx};
  return k;
}

TEST_F(TensorScriptTest, BildArrowsFollowTheAxesFromTheCentre) {
  const Known k = known_tensor(-2.0e-4, -6.0e-4, rotation(0.4, 1.1, -0.7));
  const Vec3 centre{12.5, -3.25, 40.0};
  const std::string path = file("axes.bild");
  write_tensor_script(path, {{"model 1", centre, k.tensor}}, "vorn_fit", "fitted");
  const std::string text = test::read_text_file(path);
  const auto arrows = test::bild_arrows(text);
  EXPECT_EQ(arrows.size(), 6u);
  test::expect_tensor_arrows(arrows, {12.5, -3.25, 40.0}, k.eigenvectors, k.eigenvalues);
  // Red, green and blue: three colours, set once each.
  std::size_t colours = 0;
  for (std::size_t at = text.find(".color "); at != std::string::npos;
       at = text.find(".color ", at + 1))
    ++colours;
  EXPECT_EQ(colours, 3u);
}

TEST_F(TensorScriptTest, PymolStatesHoldOneTensorEach) {
  const Known a = known_tensor(1.0e-4, 5.0e-4, rotation(-0.2, 0.3, 2.0));
  const Known b = known_tensor(-3.0e-4, -4.0e-4, rotation(1.5, 2.5, 0.1));
  const std::string path = file("axes.PML");
  write_tensor_script(path, {{"model 1", {1, 2, 3}, a.tensor}, {"model 2", {-1, 0, 4}, b.tensor}},
                      "vorn_predict", "predicted");
  const auto arrows = test::pml_arrows(test::read_text_file(path), "vorn_predict");
  ASSERT_EQ(arrows.size(), 12u);
  std::vector<test::ScriptArrow> first, second;
  for (const auto& arrow : arrows) (arrow.state == 1 ? first : second).push_back(arrow);
  ASSERT_EQ(first.size(), 6u);
  ASSERT_EQ(second.size(), 6u);
  for (const auto& arrow : second) EXPECT_EQ(arrow.state, 2);
  test::expect_tensor_arrows(first, {1, 2, 3}, a.eigenvectors, a.eigenvalues);
  test::expect_tensor_arrows(second, {-1, 0, 4}, b.eigenvectors, b.eigenvalues);
}

TEST_F(TensorScriptTest, AnAxisOfEigenvalueZeroIsLeftOut) {
  // The writer draws the eigenvalues the tensor holds: here x's set to 0.
  Known k = known_tensor(-2.0e-4, -6.0e-4, rotation(0.9, 0.6, 0.3));
  k.tensor.eigenvalues[2] = 0.0;
  k.eigenvalues[2] = 0.0;
  const std::string path = file("axes.bild");
  write_tensor_script(path, {{"m", {0, 0, 0}, k.tensor}}, "o", "t");
  const auto arrows = test::bild_arrows(test::read_text_file(path));
  EXPECT_EQ(arrows.size(), 4u);
  test::expect_tensor_arrows(arrows, {0, 0, 0}, k.eigenvectors, k.eigenvalues);
}

TEST_F(TensorScriptTest, BadExtensionOrZeroTensorWritesNothing) {
  const Known k = known_tensor(-2.0e-4, -6.0e-4, rotation(0.4, 1.1, -0.7));
  const std::string path = file("axes.cxc");
  try {
    write_tensor_script(path, {{"m", {}, k.tensor}}, "o", "t");
    ADD_FAILURE() << "no exception";
  } catch (const std::runtime_error& e) {
    EXPECT_NE(std::string(e.what()).find(path), std::string::npos) << e.what();
  }
  EXPECT_FALSE(fs::exists(path));
  EXPECT_THROW(write_tensor_script(file("zero.bild"), {{"m", {}, analyze_tensor({0, 0, 0, 0, 0})}},
                                   "o", "t"),
               std::invalid_argument);
  EXPECT_FALSE(fs::exists(file("zero.bild")));
  EXPECT_THROW(write_tensor_script(file("no/such/dir/a.pml"), {{"m", {}, k.tensor}}, "o", "t"),
               std::runtime_error);
}

}  // namespace
}  // namespace vorn::modern
