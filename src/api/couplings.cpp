#include "vorn/couplings.hpp"

#include <cmath>
#include <string>

#include "vorn/error.hpp"
#include "vorn/fit.hpp"

namespace vorn {

namespace {

constexpr double kMu0Over4Pi = 1e-7;       // T^2 m^3 J^-1
constexpr double kHbar = 1.054571817e-34;  // J s (CODATA 2018)
constexpr double kPi = 3.14159265358979323846;

}  // namespace

double gyromagnetic_ratio(std::string_view element) {
  // rad s^-1 T^-1 (IUPAC recommendations 2001).
  if (element == "H") return 26.7522128e7;
  if (element == "D") return 4.10662791e7;
  if (element == "C") return 6.728284e7;
  if (element == "N") return -2.71261804e7;
  if (element == "P") return 10.8394e7;
  if (element == "F") return 25.18148e7;
  throw Error("no NMR isotope known for element '" + std::string(element) + "'");
}

double dipolar_constant_hz(std::string_view element1, std::string_view element2, double distance) {
  if (!(std::isfinite(distance) && distance > 0.0)) {
    throw Error("dipolar_constant_hz: the distance must be a positive number");
  }
  const double r = distance * 1e-10;
  return -kMu0Over4Pi * gyromagnetic_ratio(element1) * gyromagnetic_ratio(element2) * kHbar /
         (kPi * r * r * r);
}

double dipolar_coupling_hz(const SaupeElements& saupe, const Vec3& vector, double dmax_hz) {
  const DesignRow row = coupling_design(vector, dmax_hz);
  double sum = 0.0;
  for (int j = 0; j < 5; ++j) sum += row[j] * saupe[j];
  return sum;
}

}  // namespace vorn
