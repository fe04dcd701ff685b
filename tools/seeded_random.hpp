// Random numbers for the test-data generators: the 64-bit Mersenne twister
// (its output fixed by the C++ standard) through conversions written here, not
// through the library's distributions, whose algorithms differ between
// standard libraries. The same seed gives the same uniform numbers everywhere
// (the normal deviates also go through std::sqrt and std::log).
#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <random>

namespace vorn_tools {

class SeededRandom {
 public:
  explicit SeededRandom(std::uint64_t seed) : engine_(seed) {}

  // Uniform in [0, 1): the top 53 bits.
  double uniform() { return static_cast<double>(engine_() >> 11) * 0x1.0p-53; }
  // Uniform in [-1, 1).
  double symmetric() { return 2.0 * uniform() - 1.0; }

  // Standard normal deviate: the polar form of the Box-Muller transform,
  // whose second deviate is kept for the next call.
  double normal() {
    if (has_spare_) {
      has_spare_ = false;
      return spare_;
    }
    double u = 0.0, v = 0.0, s = 0.0;
    do {
      u = symmetric();
      v = symmetric();
      s = u * u + v * v;
    } while (s >= 1.0 || s == 0.0);
    const double f = std::sqrt(-2.0 * std::log(s) / s);
    spare_ = v * f;
    has_spare_ = true;
    return u * f;
  }

  // Rotation matrix of a uniformly distributed unit quaternion: a point
  // uniform in the unit 4-ball (by rejection) projected onto the sphere.
  std::array<double, 9> rotation() {
    double q[4];
    double n2 = 0.0;
    do {
      n2 = 0.0;
      for (double& c : q) {
        c = symmetric();
        n2 += c * c;
      }
    } while (n2 > 1.0 || n2 < 1e-6);
    const double n = std::sqrt(n2);
    const double w = q[0] / n, x = q[1] / n, y = q[2] / n, z = q[3] / n;
    return {1.0 - 2.0 * (y * y + z * z), 2.0 * (x * y - w * z),       2.0 * (x * z + w * y),
            2.0 * (x * y + w * z),       1.0 - 2.0 * (x * x + z * z), 2.0 * (y * z - w * x),
            2.0 * (x * z - w * y),       2.0 * (y * z + w * x),       1.0 - 2.0 * (x * x + y * y)};
  }

 private:
  std::mt19937_64 engine_;
  double spare_ = 0.0;
  bool has_spare_ = false;
};

}  // namespace vorn_tools
