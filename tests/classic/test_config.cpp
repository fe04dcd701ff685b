#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "capture.hpp"
#include "classic/config.hpp"
#include "core/fatal.hpp"
#include "vorn/settings.hpp"

namespace vorn {
namespace {

using test::Capture;
using test::Input;

struct AutoRun {
  Settings settings;
  std::string err;
  std::string out;
};

AutoRun run_auto(const std::string& text) {
  AutoRun result;
  Input file(text);
  int flags[kOptionSlots] = {};
  FILE* files[kOptionSlots] = {};
  flags[1] = 1;
  files[1] = file.release();  // read_auto closes it
  Capture out;
  Capture err;
  Input in("");
  Io io{in.file(), out.file(), err.file()};
  read_auto(result.settings, flags, files, io);
  result.err = err.str();
  result.out = out.str();
  return result;
}

TEST(Settings, Defaults) {
  const Settings s;
  EXPECT_EQ(s.liquid_type, 1);
  EXPECT_EQ(s.bic_phage, 0.0);
  EXPECT_EQ(s.grid_type, 2);
  EXPECT_EQ(s.concentration, 0.05);
  EXPECT_EQ(s.ellipticity, 1.0);
  EXPECT_EQ(s.max_obs_dim, 20.0);
  EXPECT_EQ(s.grid_spacing, 0.5);
  EXPECT_EQ(s.medium_dist_max, 8000.0);
  EXPECT_EQ(s.molar_ratio, 3.0);
  EXPECT_EQ(s.order_parameter, 0.8);
  EXPECT_EQ(s.select_flag, 0);
  EXPECT_EQ(s.refine_ok, 1);
  EXPECT_EQ(s.scale_down_ok, 1);
  EXPECT_EQ(s.mode, 0);
  EXPECT_EQ(s.H_flag, 0);
  EXPECT_EQ(s.rotate_ok, 0.0);
  EXPECT_EQ(s.atom_radius, 3.0);
  EXPECT_EQ(s.radius_bic, 200.0);
  EXPECT_EQ(s.order_rel, 0.25);
  EXPECT_EQ(s.pr_eigen, 0);
  EXPECT_EQ(s.dig_theta, 9);
  EXPECT_EQ(s.dig_phi, 18);
  EXPECT_EQ(s.dig_psi, 18);
  EXPECT_EQ(s.nherror, 1.5);
  EXPECT_EQ(s.debug, 0);
  EXPECT_EQ(s.step_out_length, 0.0);
}

TEST(ReadAuto, EveryKeySetsItsSetting) {
  const auto r = run_auto(
      "ANISOTROPIC_MEDIUM: 2\nBICELLE_PHAGE: 1.0\nMOLAR_RATIO: 3.5\nGRID_TYPE: 1\n"
      "GRID_SPACING: 0.25\nDIGIT_BETA: 12\nDIGIT_ALPHA: 24\nDIGIT_GAMMA: 30\n"
      "LIPID_CONCENTRATION: 0.07\nATOM_RADIUS: 2.0\nSELECT_FLAG: 3\nPROTON_FLAG: 1\n"
      "ROTATE_FLAG: 1.5\nNHerror: 2.5\nPRINT_EIGEN: 2\n");
  const Settings& s = r.settings;
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(s.liquid_type, 2);
  EXPECT_EQ(s.bic_phage, 1.0);
  EXPECT_EQ(s.molar_ratio, 3.5);
  EXPECT_EQ(s.grid_type, 1);
  EXPECT_EQ(s.grid_spacing, 0.25);
  EXPECT_EQ(s.dig_theta, 12);  // the angle keys are crossed
  EXPECT_EQ(s.dig_phi, 24);
  EXPECT_EQ(s.dig_psi, 30);
  EXPECT_EQ(s.concentration, 0.07);
  EXPECT_EQ(s.atom_radius, 2.0);
  EXPECT_EQ(s.select_flag, 3);
  EXPECT_EQ(s.H_flag, 1);
  EXPECT_EQ(s.rotate_ok, 1.5);
  EXPECT_EQ(s.nherror, 2.5);
  EXPECT_EQ(s.pr_eigen, 2);
  EXPECT_EQ(s.max_obs_dim, 30.0);
}

TEST(ReadAuto, DigitBetaSetsTheta) {
  const auto r = run_auto("DIGIT_BETA: 12\n");
  EXPECT_EQ(r.settings.dig_theta, 12);
  EXPECT_EQ(r.settings.dig_phi, 18);
  EXPECT_EQ(r.settings.dig_psi, 18);
}

TEST(ReadAuto, IntegerSettingsAreTruncatedTowardZero) {
  EXPECT_EQ(run_auto("GRID_TYPE: 1.99\n").settings.grid_type, 1);
  EXPECT_EQ(run_auto("GRID_TYPE: 2.9\n").settings.grid_type, 2);
  EXPECT_EQ(run_auto("PRINT_EIGEN: -1.5\n").settings.pr_eigen, -1);
}

TEST(ReadAuto, OutOfRangeIntegerValuesAreClamped) {
  EXPECT_EQ(run_auto("DIGIT_BETA: 1e30\n").settings.dig_theta, 2147483647);
  EXPECT_EQ(run_auto("DIGIT_BETA: -1e30\n").settings.dig_theta, -2147483647 - 1);
  EXPECT_EQ(run_auto("DIGIT_BETA: nan\n").settings.dig_theta, 0);
}

TEST(ReadAuto, RadiusRuleOverridesWithSurfaceSelection) {
  EXPECT_EQ(run_auto("ATOM_RADIUS: 2.0\n").settings.atom_radius, 1.4);
  EXPECT_EQ(run_auto("ATOM_RADIUS: 2.0\nSELECT_FLAG: 1\n").settings.atom_radius, 1.4);
  EXPECT_EQ(run_auto("ATOM_RADIUS: 2.0\nSELECT_FLAG: 2\n").settings.atom_radius, 2.0);
  EXPECT_EQ(run_auto("SELECT_FLAG: 2\n").settings.atom_radius, 3.0);
}

TEST(ReadAuto, MediumSetsObstacleDimension) {
  EXPECT_EQ(run_auto("ANISOTROPIC_MEDIUM: 2\n").settings.max_obs_dim, 30.0);
  EXPECT_EQ(run_auto("ANISOTROPIC_MEDIUM: 1\n").settings.max_obs_dim, 20.0);
  const auto five = run_auto("ANISOTROPIC_MEDIUM: 5\n");
  EXPECT_EQ(five.settings.liquid_type, 5);
  EXPECT_EQ(five.settings.max_obs_dim, 20.0);
  EXPECT_EQ(five.err, "");
}

TEST(ReadAuto, WrongFormatLineKeepsThePreviousValue) {
  const auto r = run_auto("GRID_SPACING: 1.0\nDIGIT_BETA: abc\n");
  EXPECT_EQ(r.err, "Error: Input data in auto file have wrong format\nLine:DIGIT_BETA: abc\n");
  // The key of the malformed line takes the previous line's value.
  EXPECT_EQ(r.settings.dig_theta, 1);
  EXPECT_EQ(r.settings.grid_spacing, 1.0);
}

TEST(ReadAuto, EmptyLineRepeatsThePreviousKeyAndValue) {
  const auto r = run_auto("MOLAR_RATIO: 2.0\n\nGRID_SPACING: 1.0\n");
  EXPECT_EQ(r.err, "Error: Input data in auto file have wrong format\nLine:\n");
  EXPECT_EQ(r.settings.molar_ratio, 2.0);
  EXPECT_EQ(r.settings.grid_spacing, 1.0);
}

TEST(ReadAuto, MalformedFirstLineStartsFromEmptyKeyAndZero) {
  const auto r = run_auto("\n");
  EXPECT_EQ(r.err,
            "Error: Input data in auto file have wrong format\nLine:\n"
            "Error: Wrong input parameter in auto file");
}

TEST(ReadAuto, UnknownKeysRunTogetherWithoutLineFeed) {
  const auto r = run_auto("FOO: 1\ngrid_spacing: 2\nGRID_SPACING 3\n");
  EXPECT_EQ(r.err,
            "Error: Wrong input parameter in auto fileError: Wrong input parameter in auto file"
            "Error: Wrong input parameter in auto file");
  EXPECT_EQ(r.settings.grid_spacing, 0.5);
}

TEST(ReadAuto, LongLineIsReadInPiecesOfNinetyNine) {
  // 99 characters of padding, then a key on the remainder of the same line.
  const std::string pad = "PAD:" + std::string(94, ' ') + "1";
  ASSERT_EQ(pad.size(), 99U);
  const auto r = run_auto(pad + "GRID_SPACING: 0.75\n");
  EXPECT_EQ(r.err, "Error: Wrong input parameter in auto file");
  EXPECT_EQ(r.settings.grid_spacing, 0.75);
}

TEST(ReadAuto, OverlongKeyIsUnknownAndSafe) {
  const auto r = run_auto(std::string(90, 'K') + " 1\n");
  EXPECT_EQ(r.err, "Error: Wrong input parameter in auto file");
}

TEST(ReadAuto, TrailingTextIsIgnored) {
  const auto r = run_auto("GRID_SPACING: 1.5 trailing words\n");
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.settings.grid_spacing, 1.5);
}

TEST(ReadAuto, NoValueRangeChecks) {
  const auto r = run_auto("ANISOTROPIC_MEDIUM: -3\nGRID_SPACING: -1\n");
  EXPECT_EQ(r.settings.liquid_type, -3);
  EXPECT_EQ(r.settings.grid_spacing, -1.0);
}

Settings prompt(const std::string& typed, std::string* printed) {
  Settings s;
  int flags[kOptionSlots] = {};
  FILE* files[kOptionSlots] = {};
  Input in(typed);
  Capture out;
  Capture err;
  Io io{in.file(), out.file(), err.file()};
  try {
    read_auto(s, flags, files, io);
  } catch (...) {
    *printed = out.str();
    throw;
  }
  *printed = out.str();
  return s;
}

TEST(Prompts, BicelleAndConcentration) {
  std::string printed;
  const Settings s = prompt("1\n0.07\n", &printed);
  EXPECT_EQ(printed, "bicelle (1) or phage (2): total lipid/phage concentration [g/ml]: ");
  EXPECT_EQ(s.liquid_type, 1);
  EXPECT_EQ(s.concentration, 0.07);
  EXPECT_EQ(s.max_obs_dim, 20.0);
  EXPECT_EQ(s.atom_radius, 1.4);  // default selection uses the surface
}

TEST(Prompts, Phage) {
  std::string printed;
  const Settings s = prompt("2 0.02", &printed);
  EXPECT_EQ(s.liquid_type, 2);
  EXPECT_EQ(s.concentration, 0.02);
  EXPECT_EQ(s.max_obs_dim, 30.0);
}

TEST(Prompts, MediumThreeIsFatal) {
  std::string printed;
  try {
    prompt("3\n0.05\n", &printed);
    FAIL() << "no error";
  } catch (const FatalError& e) {
    EXPECT_EQ(e.text(),
              "run-time error...\nEither 1 (bicelle) or 2 (phage) must be selected...\n"
              "...now exiting to system...\n");
    EXPECT_EQ(e.status(), 1);
  }
  EXPECT_EQ(printed, "bicelle (1) or phage (2): ");
}

TEST(Prompts, UnreadableAnswersKeepTheDefaults) {
  std::string printed;
  const Settings s = prompt("", &printed);
  EXPECT_EQ(s.liquid_type, 1);
  EXPECT_EQ(s.concentration, 0.05);
}

TEST(RefineBicelle, DefaultsFollowTheFormulas) {
  Settings s;
  refine_bicelle(s);
  // Independent evaluation of the bicelle geometry for 0.05 g/ml, q = 3.
  const long double mol_dhpc = 50.0L / (3.0L * 677.94L + 453.51L);
  const long double mol_dmpc = 3.0L * mol_dhpc;
  const long double q_eff = mol_dmpc / (mol_dhpc - 0.005L);
  const long double wv_bic = (mol_dmpc * 677.94L + (mol_dhpc - 0.005L) * 453.51L) / 1000.0L;
  const long double pi = 3.141592654L;
  const long double radius = (std::sqrt(8.0L / q_eff + pi * pi) + pi) * (20.0L * 0.5L * q_eff);
  EXPECT_NEAR(mol_dhpc, 50.0L / 2487.33L, 1e-15L);
  EXPECT_NEAR(s.molar_ratio, static_cast<double>(q_eff), 1e-12);
  EXPECT_NEAR(s.radius_bic, static_cast<double>(radius), 1e-9);
  EXPECT_NEAR(s.step_out_length, static_cast<double>(20.0L / wv_bic), 1e-9);
  EXPECT_NEAR(s.order_rel, static_cast<double>(pi * radius / (4.0L * (pi * radius + 40.0L))),
              1e-14);
  // Plausibility: 5 mM free DHPC raises q_eff to about 4; a disc of about 260 A.
  EXPECT_GT(s.molar_ratio, 3.9);
  EXPECT_LT(s.molar_ratio, 4.1);
  EXPECT_GT(s.radius_bic, 200.0);
  EXPECT_LT(s.radius_bic, 300.0);
  EXPECT_GT(s.order_rel, 0.2);
  EXPECT_LT(s.order_rel, 0.25);
}

TEST(RefineBicelle, PhageUsesItsObstacleDimension) {
  Settings s;
  s.liquid_type = 2;
  s.max_obs_dim = 30.0;
  s.concentration = 0.02;
  refine_bicelle(s);
  const double mol_dhpc = 0.02 * 1000 / (3.0 * 677.94 + 453.51);
  const double wv_bic = (3.0 * mol_dhpc * 677.94 + (mol_dhpc - 5.0 / 1000) * 453.51) / 1000;
  EXPECT_DOUBLE_EQ(s.step_out_length, 30.0 / wv_bic);
}

TEST(RefineBicelle, ZeroConcentrationIsNotGuarded) {
  Settings s;
  s.concentration = 0.0;
  refine_bicelle(s);
  EXPECT_FALSE(std::isfinite(s.step_out_length) && std::isfinite(s.molar_ratio) &&
               s.molar_ratio > 0);
}

}  // namespace
}  // namespace vorn
