#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "capture.hpp"
#include "core/fatal.hpp"
#include "simulation/orientation.hpp"
#include "vorn/settings.hpp"

namespace vorn {
namespace {

using test::Capture;

// The classic program's orientation limit (the engine has none of its own).
constexpr int kClassicOrientationLimit = 279999;

// A log whose listings go to `out`.
Log listing_to(FILE* out) {
  Log log;
  log.listing = [out](std::string_view text) { std::fwrite(text.data(), 1, text.size(), out); };
  return log;
}

constexpr double kPi = 3.141592654;

using Mat = std::array<std::array<double, 3>, 3>;

Mat multiply(const Mat& a, const Mat& b) {
  Mat c{};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      for (int k = 0; k < 3; ++k) {
        c[i][j] += a[i][k] * b[k][j];
      }
    }
  }
  return c;
}

// Elementary rotations of coordinates (frame rotations), built by hand.
Mat rot_z(double a) {
  return Mat{{{std::cos(a), std::sin(a), 0.0}, {-std::sin(a), std::cos(a), 0.0}, {0.0, 0.0, 1.0}}};
}
Mat rot_y(double a) {
  return Mat{{{std::cos(a), 0.0, -std::sin(a)}, {0.0, 1.0, 0.0}, {std::sin(a), 0.0, std::cos(a)}}};
}
// z-y-z convention: R = Rz(psi) Ry(theta) Rz(phi).
Mat euler(double theta, double phi, double psi) {
  return multiply(rot_z(psi), multiply(rot_y(theta), rot_z(phi)));
}

std::string fatal_text(const std::function<void()>& call, Stream stream = Stream::err) {
  try {
    call();
  } catch (const FatalError& e) {
    EXPECT_EQ(e.stream(), stream);
    EXPECT_EQ(e.status(), 1);
    return e.text();
  }
  return "<no fatal error>";
}

int sample(const Settings& s, int dt, int dp, int ds, std::vector<EulerAngle>& angle,
           std::string* printed = nullptr,
           int orientation_limit = std::numeric_limits<int>::max()) {
  Capture out;
  const int n =
      grid_orientation_sampling(s, dt, dp, ds, angle, listing_to(out.file()), orientation_limit);
  if (printed != nullptr) {
    *printed = out.str();
  }
  return n;
}

TEST(OrientationSampling, DefaultsGive1872Orientations) {
  const Settings s;
  std::vector<EulerAngle> angle;
  std::string printed;
  const int n = sample(s, 9, 18, 18, angle, &printed);
  ASSERT_EQ(n, 1872);
  EXPECT_EQ(angle.size(), 1873u);  // index 0 unused
  EXPECT_EQ(printed, "");          // debug off prints nothing
  EXPECT_EQ(angle[1][1], 10.0);
  EXPECT_EQ(angle[1][2], 0.0);
  EXPECT_EQ(angle[1][3], 0.0);
  EXPECT_DOUBLE_EQ(angle[1872][1], 170.0);
  EXPECT_DOUBLE_EQ(angle[1872][2], 240.0);
  EXPECT_DOUBLE_EQ(angle[1872][3], 340.0);

  // Phi steps per theta band follow sin(theta) * 18, rounded.
  const int counts[9] = {3, 9, 14, 17, 18, 17, 14, 9, 3};
  int m = 0;
  for (int band = 0; band < 9; ++band) {
    const double theta = 20.0 * band + 10.0;
    for (int j = 0; j < counts[band]; ++j) {
      for (int k = 0; k < 18; ++k) {
        ++m;
        EXPECT_NEAR(angle[m][1], theta, 1e-12) << m;
        EXPECT_NEAR(angle[m][2], j * (360.0 / counts[band]), 1e-12) << m;
        EXPECT_NEAR(angle[m][3], k * 20.0, 1e-12) << m;
      }
    }
  }
  EXPECT_EQ(m, 1872);
}

TEST(OrientationSampling, DebugPrintsEachBand) {
  Settings s;
  s.debug = 1;
  std::vector<EulerAngle> angle;
  std::string printed;
  sample(s, 9, 18, 18, angle, &printed);
  EXPECT_EQ(printed,
            "digit_phi_opt: 3    inc_phi_opt: 120.0\n"
            "digit_phi_opt: 9    inc_phi_opt: 40.0\n"
            "digit_phi_opt: 14    inc_phi_opt: 25.7\n"
            "digit_phi_opt: 17    inc_phi_opt: 21.2\n"
            "digit_phi_opt: 18    inc_phi_opt: 20.0\n"
            "digit_phi_opt: 17    inc_phi_opt: 21.2\n"
            "digit_phi_opt: 14    inc_phi_opt: 25.7\n"
            "digit_phi_opt: 9    inc_phi_opt: 40.0\n"
            "digit_phi_opt: 3    inc_phi_opt: 120.0\n");
}

TEST(OrientationSampling, SingleThetaBandIsTheEquator) {
  const Settings s;
  std::vector<EulerAngle> angle;
  const int n = sample(s, 1, 7, 2, angle);
  ASSERT_EQ(n, 14);
  for (int m = 1; m <= 14; ++m) {
    EXPECT_EQ(angle[m][1], 90.0);
    const int j = (m - 1) / 2;  // phi step index
    EXPECT_EQ(angle[m][2], j * (360.0 / 7));
    EXPECT_EQ(angle[m][3], ((m - 1) % 2) * 180.0);
  }
}

TEST(OrientationSampling, FloatingIncrements) {
  // 180 / 7 and 360 / 11 are not integers: the increments are real numbers.
  const Settings s;
  std::vector<EulerAngle> angle;
  const int n = sample(s, 7, 10, 11, angle);
  ASSERT_GT(n, 0);
  const double inc_theta = 180.0 / 7;
  EXPECT_EQ(angle[1][1], 0 * inc_theta + inc_theta / 2);
  EXPECT_EQ(angle[2][3], 360.0 / 11);
  EXPECT_EQ(angle[n][1], 6 * inc_theta + inc_theta / 2);
}

TEST(OrientationSampling, BandWithoutPhiStepsContributesNothing) {
  Settings s;
  s.debug = 1;
  std::vector<EulerAngle> angle;
  std::string printed;
  // sin(45 deg) * 0 = 0 steps in both bands.
  EXPECT_EQ(sample(s, 2, 0, 5, angle, &printed), 0);
  EXPECT_EQ(printed,
            "digit_phi_opt: 0    inc_phi_opt: inf\n"
            "digit_phi_opt: 0    inc_phi_opt: inf\n");
  EXPECT_EQ(angle.size(), 1u);
  // No theta bands at all.
  EXPECT_EQ(sample(s, 0, 18, 18, angle, &printed), 0);
  EXPECT_EQ(printed, "");
}

TEST(PhiStepCount, HalfGoesDownAboveHalfGoesUp) {
  EXPECT_EQ(phi_step_count(2.5), 2);
  EXPECT_EQ(phi_step_count(2.5000000001), 3);
  EXPECT_EQ(phi_step_count(2.4999999), 2);
  EXPECT_EQ(phi_step_count(3.0), 3);
  EXPECT_EQ(phi_step_count(0.5), 0);
  EXPECT_EQ(phi_step_count(0.51), 1);
  EXPECT_EQ(phi_step_count(17.9), 18);
}

TEST(OrientationSampling, LimitStopsBeforeStoringIndex279999) {
  // The classic limit, given explicitly.
  const Settings s;
  const int limit = kClassicOrientationLimit;
  std::vector<EulerAngle> angle;
  // One theta band (90 deg), one phi step: digit_psi orientations.
  EXPECT_EQ(sample(s, 1, 1, 279998, angle, nullptr, limit), 279998);
  EXPECT_EQ(angle.size(), 279999u);
  EXPECT_EQ(angle[279998][3], 279997 * (360.0 / 279998));

  const std::string text =
      "run-time error...\nToo many requested orientations ...\n...now exiting to system...\n";
  EXPECT_EQ(fatal_text([&] { sample(s, 1, 1, 279999, angle, nullptr, limit); }), text);
  EXPECT_EQ(angle.size(), 279999u);  // entry 279999 was never stored
  EXPECT_EQ(fatal_text([&] { sample(s, 1, 2, 140000, angle, nullptr, limit); }), text);
  EXPECT_EQ(sample(s, 1, 2, 139999, angle, nullptr, limit), 279998);
}

TEST(OrientationSampling, WithoutALimitEveryOrientationIsStored) {
  const Settings s;
  std::vector<EulerAngle> angle;
  // Beyond the classic limit: all of them.
  EXPECT_EQ(sample(s, 1, 1, 279999, angle), 279999);
  EXPECT_EQ(angle.size(), 280000u);
  EXPECT_EQ(angle[279999][3], 279998 * (360.0 / 279999));
  EXPECT_EQ(sample(s, 1, 2, 140000, angle), 280000);
  // A limit of the caller's own: the sampling fails when the count reaches it.
  const std::string text =
      "run-time error...\nToo many requested orientations ...\n...now exiting to system...\n";
  EXPECT_EQ(sample(s, 1, 1, 9, angle, nullptr, 10), 9);
  EXPECT_EQ(fatal_text([&] { sample(s, 1, 1, 10, angle, nullptr, 10); }), text);
  EXPECT_EQ(angle.size(), 10u);  // entry 10 was never stored
}

TEST(RotateVector, IsRzPsiRyThetaRzPhi) {
  const double angles[][3] = {{0.3, 1.1, -2.0}, {2.5, -0.4, 0.9}, {0.0, 0.0, 0.0}, {3.0, 6.0, 1.0}};
  for (const auto& a : angles) {
    const Mat r = euler(a[0], a[1], a[2]);
    const double v[4] = {0.0, 1.5, -2.0, 0.75};
    double out[4] = {};
    rotate_vector(a[0], a[1], a[2], v, out);
    for (int row = 0; row < 3; ++row) {
      const double expected = r[row][0] * v[1] + r[row][1] * v[2] + r[row][2] * v[3];
      EXPECT_NEAR(out[row + 1], expected, 1e-14);
    }
    // A rotation keeps lengths.
    EXPECT_NEAR(out[1] * out[1] + out[2] * out[2] + out[3] * out[3],
                v[1] * v[1] + v[2] * v[2] + v[3] * v[3], 1e-13);
  }
}

TEST(RotateVector, PhiAloneTurnsAboutZ) {
  // theta = psi = 0: a frame rotation about z by phi: (1,0,0) -> (cos, -sin, 0).
  const double v[4] = {0.0, 1.0, 0.0, 0.0};
  double out[4] = {};
  rotate_vector(0.0, 0.5, 0.0, v, out);
  EXPECT_DOUBLE_EQ(out[1], std::cos(0.5));
  EXPECT_DOUBLE_EQ(out[2], -std::sin(0.5));
  EXPECT_EQ(out[3], 0.0);
}

TEST(RotateCoorsystem, AxesAreTheColumnsOfTheRotation) {
  const double theta = 1.2;
  const double phi = -0.7;
  const double psi = 2.9;
  double xa[4] = {};
  double ya[4] = {};
  double za[4] = {};
  rotate_coorsystem(theta, phi, psi, xa, ya, za);
  const Mat r = euler(theta, phi, psi);
  for (int row = 0; row < 3; ++row) {
    EXPECT_NEAR(xa[row + 1], r[row][0], 1e-15);
    EXPECT_NEAR(ya[row + 1], r[row][1], 1e-15);
    EXPECT_NEAR(za[row + 1], r[row][2], 1e-15);
  }
  const double ex[4] = {0.0, 1.0, 0.0, 0.0};
  double rx[4] = {};
  rotate_vector(theta, phi, psi, ex, rx);
  for (int c = 1; c <= 3; ++c) {
    EXPECT_EQ(xa[c], rx[c]);
  }
}

TEST(OrderElements, FromTheZComponentsOfTheAxes) {
  const double along[4] = {0.0, 0.0, 0.0, 1.0};
  const double across[4] = {0.0, 1.0, 0.0, 0.0};
  const double half[4] = {0.0, 0.3, 0.1, 0.5};
  const double minus[4] = {0.0, 0.0, 0.0, -0.4};
  EXPECT_EQ(Szz(along), 1.0);
  EXPECT_EQ(Szz(across), -0.5);
  EXPECT_DOUBLE_EQ(Sxx(half), (3 * 0.25 - 1) / 2);
  EXPECT_DOUBLE_EQ(Syy(minus), (3 * 0.16 - 1) / 2);
  EXPECT_DOUBLE_EQ(Sxy(half, minus), 1.5 * 0.5 * -0.4);
  EXPECT_DOUBLE_EQ(Sxz(minus, half), 1.5 * -0.4 * 0.5);
  EXPECT_DOUBLE_EQ(Syz(along, minus), -0.6);
}

TEST(SetupLists, ElementsOfTheDefaultOrientations) {
  const Settings s;
  OrientationTables t;
  const int n = sample(s, 9, 18, 18, t.eulerangle);
  Capture out;
  setup_lists(s, n, t, listing_to(out.file()));  // the trace test passes for all of them
  EXPECT_EQ(out.str(), "");
  ASSERT_EQ(t.szz_orient.size(), static_cast<size_t>(n + 1));
  for (int i = 1; i <= n; ++i) {
    const double th = t.eulerangle[i][1] * kPi / 180;
    const double ph = t.eulerangle[i][2] * kPi / 180;
    // The z components of the rotated axes: row 3 of the rotation.
    const double zx = std::sin(th) * std::cos(ph);
    const double zy = std::sin(th) * std::sin(ph);
    const double zz = std::cos(th);
    EXPECT_NEAR(t.szz_orient[i], 1.5 * zz * zz - 0.5, 1e-15) << i;
    EXPECT_NEAR(t.sxx_yy_orient[i], 1.5 * (zx * zx - zy * zy), 1e-15) << i;
    EXPECT_NEAR(t.sxy_orient[i], 1.5 * zx * zy, 1e-15) << i;
    EXPECT_NEAR(t.sxz_orient[i], 1.5 * zx * zz, 1e-15) << i;
    EXPECT_NEAR(t.syz_orient[i], 1.5 * zy * zz, 1e-15) << i;
  }
}

TEST(SetupLists, DebugPrintsAnglesAxesAndElements) {
  Settings s;
  s.debug = 1;
  OrientationTables t;
  t.eulerangle = {EulerAngle{}, EulerAngle{0.0, 0.0, 0.0, 0.0}};
  Capture out;
  setup_lists(s, 1, t, listing_to(out.file()));
  EXPECT_EQ(out.str(),
            "1 theta/phi/psi:  0.00   0.00   0.00\n"
            "1.000000e+00  0.000000e+00  0.000000e+00  \n"
            "0.000000e+00  1.000000e+00  0.000000e+00  \n"
            "0.000000e+00  0.000000e+00  1.000000e+00  \n"
            "Szz: 1.000000e+00 0.000000e+00 0.000000e+00 0.000000e+00 0.000000e+00\n");
}

TEST(TraceTest, PositiveExcessEndsTheRunOnStandardOutput) {
  EXPECT_EQ(fatal_text([] { check_traceless(7, 0.5, 0.5, -1.0 + 2e-15); }, Stream::out),
            "Saupe matrix not traceless ...\n"
            "7: sum = 1.998401e-15   5.000000e-01   5.000000e-01   -1.000000e+00\n");
  EXPECT_EQ(fatal_text([] { check_traceless(1, 1.0, 0.0, 0.0); }, Stream::out),
            "Saupe matrix not traceless ...\n"
            "1: sum = 1.000000e+00   1.000000e+00   0.000000e+00   0.000000e+00\n");
}

TEST(TraceTest, NegativeOrTinySumsPass) {
  EXPECT_NO_THROW(check_traceless(1, -0.5, -0.5, 0.0));  // -1: one-sided test
  EXPECT_NO_THROW(check_traceless(2, -10.0, 0.0, 0.0));
  EXPECT_NO_THROW(check_traceless(3, 1e-15, 0.0, 0.0));  // not above 1e-15
  EXPECT_NO_THROW(check_traceless(4, 0.0, 0.0, 0.0));
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_NO_THROW(check_traceless(5, nan, 0.0, 0.0));
}

TEST(SetupLists, TablesSizedToTheOrientations) {
  const Settings s;
  OrientationTables t;
  const int n = sample(s, 2, 2, 3, t.eulerangle);
  Capture out;
  setup_lists(s, n, t, listing_to(out.file()));
  EXPECT_EQ(t.sxy_orient.size(), static_cast<size_t>(n + 1));
  EXPECT_EQ(t.eulerangle.size(), static_cast<size_t>(n + 1));
  // Asking for more orientations than the table holds is refused.
  EXPECT_EQ(
      fatal_text([&] { setup_lists(s, n + 1, t, listing_to(out.file())); }),
      "run-time error...\nToo many requested orientations ...\n...now exiting to system...\n");
}

TEST(SaupeUniformity, MeansOfTheLists) {
  const Settings s;
  OrientationTables t;
  t.szz_orient = {99.0, 1.0, 2.0, 4.0};
  t.sxx_yy_orient = {99.0, -1.0, 0.5, 0.5};
  t.sxy_orient = {99.0, 0.0, 0.0, 3.0};
  t.sxz_orient = {99.0, 0.25, 0.25, 0.25};
  t.syz_orient = {99.0, -3.0, 0.0, 0.0};
  double saupe[5] = {};
  Capture out;
  check_Saupe_uniformity(s, 3, t, saupe, listing_to(out.file()));
  EXPECT_EQ(saupe[0], 7.0 / 3);
  EXPECT_EQ(saupe[1], 0.0);
  EXPECT_EQ(saupe[2], 1.0);
  EXPECT_EQ(saupe[3], 0.25);
  EXPECT_EQ(saupe[4], -1.0);
  EXPECT_EQ(out.str(), "");
}

TEST(SaupeUniformity, DebugPrintsEachChangeOfSxy) {
  Settings s;
  s.debug = 1;
  OrientationTables t;
  t.szz_orient = {0.0, 0.0, 0.0, 0.0, 0.0};
  t.sxx_yy_orient = t.szz_orient;
  t.sxz_orient = t.szz_orient;
  t.syz_orient = t.szz_orient;
  t.sxy_orient = {0.0, 0.0, 0.5, 0.5, -0.25};
  double saupe[5] = {};
  Capture out;
  check_Saupe_uniformity(s, 4, t, saupe, listing_to(out.file()));
  EXPECT_EQ(out.str(), "2   0.50000\n4  -0.25000\n");
  EXPECT_EQ(saupe[2], 0.1875);
}

TEST(SaupeUniformity, DefaultSamplingBias) {
  const Settings s;
  OrientationTables t;
  const int n = sample(s, 9, 18, 18, t.eulerangle);
  Capture out;
  setup_lists(s, n, t, listing_to(out.file()));
  double saupe[5] = {};
  check_Saupe_uniformity(s, n, t, saupe, listing_to(out.file()));
  // Independent means of the closed-form elements.
  double mean[5] = {};
  for (int i = 1; i <= n; ++i) {
    const double th = t.eulerangle[i][1] * kPi / 180;
    const double ph = t.eulerangle[i][2] * kPi / 180;
    const double zx = std::sin(th) * std::cos(ph);
    const double zy = std::sin(th) * std::sin(ph);
    const double zz = std::cos(th);
    mean[0] += (1.5 * zz * zz - 0.5) / n;
    mean[1] += 1.5 * (zx * zx - zy * zy) / n;
    mean[2] += 1.5 * zx * zy / n;
    mean[3] += 1.5 * zx * zz / n;
    mean[4] += 1.5 * zy * zz / n;
  }
  for (int e = 0; e < 5; ++e) {
    EXPECT_NEAR(saupe[e], mean[e], 1e-13) << e;
  }
  // The sampling is nearly isotropic: every bias is small.
  for (int e = 0; e < 5; ++e) {
    EXPECT_LT(std::fabs(saupe[e]), 0.02) << e;
  }
}

TEST(CalculateScaling, WallCountsPositionsOutToTheFreeDistance) {
  Settings s;
  s.step_out_length = 100.0;
  int no_pt = -1;
  int no_pt_ph = -1;
  calculate_scaling(s, 1872, 40.25, 0.0, 20.0, no_pt, no_pt_ph);
  EXPECT_EQ(no_pt, 119);  // trunc(59.75 / 0.5) = trunc(119.5)
  EXPECT_EQ(no_pt_ph, 0);
  // Without the medium step the length is 0 and the count negative,
  // truncated toward zero: trunc(-80.5) = -80.
  s.step_out_length = 0.0;
  calculate_scaling(s, 1872, 40.25, 0.0, 20.0, no_pt, no_pt_ph);
  EXPECT_EQ(no_pt, -80);
}

TEST(CalculateScaling, PhageUsesSinglePrecisionDensity) {
  Settings s;
  s.liquid_type = 2;
  s.max_obs_dim = 30.0;
  s.concentration = 0.05;
  int no_pt = -1;
  int no_pt_ph = -1;
  calculate_scaling(s, 1872, 0.0, 0.0, 30.0, no_pt, no_pt_ph);
  // end_dist = 30 / sqrt(0.05 / 1.46) = 162.11: a = trunc(132.11 / 0.5) = 264,
  // b = 264 + (0.5 / 30) * 264 * 265 / 2 = 264 + 583.
  EXPECT_EQ(no_pt_ph, 847);
  EXPECT_EQ(no_pt, 0);

  // 0.144075 g/ml: with the single-precision density 1.4600000381469727,
  // end_dist = 95.5000006 and a = 131; with 1.46 in double it would be
  // 95.4999993 and a = 130.
  s.concentration = 0.144075;
  const double end_float = 30.0 / std::sqrt(0.144075 / 1.4600000381469727);
  const double end_double = 30.0 / std::sqrt(0.144075 / 1.46);
  ASSERT_GT(end_float, 95.5);
  ASSERT_LT(end_double, 95.5);
  calculate_scaling(s, 1872, 0.0, 0.0, 30.0, no_pt, no_pt_ph);
  // a = 131: b = trunc(131 + 131 * 132 / 120) = trunc(131 + 144.1) = 275.
  EXPECT_EQ(no_pt_ph, 275);
}

TEST(CalculateScaling, PhageSumEvaluatedLeftToRight) {
  Settings s;
  s.liquid_type = 2;
  s.max_obs_dim = 30.0;
  s.concentration = 0.01265;  // end_dist = 322.29: a = trunc(292.29 / 0.5) = 584
  int no_pt = -1;
  int no_pt_ph = -1;
  calculate_scaling(s, 1, 0.0, 0.0, 30.0, no_pt, no_pt_ph);
  // Exactly, 584 * 585 / 120 = 2847; evaluated as ((0.5 / 30) * 584) * 585 / 2
  // in double it is just below, 2846.9999999999995, and truncates to 3430.
  const double a = 584;
  const double left_to_right = ((0.5 / 30.0) * a) * (a + 1) / 2;
  ASSERT_LT(left_to_right, 2847.0);
  EXPECT_EQ(no_pt_ph, 3430);
}

TEST(CalculateScaling, UnhandledCasesGiveZero) {
  Settings s;
  s.step_out_length = 100.0;
  s.grid_type = 1;
  int no_pt = -1;
  int no_pt_ph = -1;
  calculate_scaling(s, 1872, 40.0, 40.0, 20.0, no_pt, no_pt_ph);
  EXPECT_EQ(no_pt, 0);
  EXPECT_EQ(no_pt_ph, 0);
  s.grid_type = 2;
  s.liquid_type = 3;
  no_pt = no_pt_ph = -1;
  calculate_scaling(s, 1872, 40.0, 40.0, 20.0, no_pt, no_pt_ph);
  EXPECT_EQ(no_pt, 0);
  EXPECT_EQ(no_pt_ph, 0);
}

TEST(CalculateScaling, CountsNoIntCanHoldAreRejected) {
  Settings s;
  s.step_out_length = 100.0;
  s.grid_spacing = 0.0;
  int no_pt = 0;
  int no_pt_ph = 0;
  const std::string text =
      "run-time error...\nNumber of free positions out of range ...\n...now exiting to system...\n";
  EXPECT_EQ(fatal_text([&] { calculate_scaling(s, 1, 40.0, 0.0, 20.0, no_pt, no_pt_ph); }), text);
  s.liquid_type = 2;
  s.concentration = 0.0;  // end_dist infinite
  s.grid_spacing = 0.5;
  EXPECT_EQ(fatal_text([&] { calculate_scaling(s, 1, 40.0, 0.0, 30.0, no_pt, no_pt_ph); }), text);
}

}  // namespace
}  // namespace vorn
