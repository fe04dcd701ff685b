// Predicted dipolar couplings of an alignment tensor and their comparison
// with the measured ones.
#include "fit/compare.hpp"

#include <cmath>
#include <vector>

#include "couplings/classic_types.hpp"
#include "fit/nr_special.hpp"

namespace vorn {

namespace {

// A coupling of 1000.0 Hz or more marks an entry without a measured value.
constexpr double kNotMeasured = 1000.0;

}  // namespace

double findD(double xIJ_temp, double yIJ_temp, double zIJ_temp, double diVal,
             const double saupe[5]) {
  const double r = std::sqrt(xIJ_temp * xIJ_temp + yIJ_temp * yIJ_temp + zIJ_temp * zIJ_temp);
  double x = 0.0;
  double y = 0.0;
  double z = 0.0;
  // A zero vector (atoms not found) stays zero and predicts -0.5 Szz diVal.
  if (r != 0.0) {
    x = xIJ_temp / r;
    y = yIJ_temp / r;
    z = zIJ_temp / r;
  }
  const double c1 = (3.0 * (z * z) - 1.0) * 0.5;
  const double c2 = (x * x - y * y) * 0.5;
  const double c3 = 2.0 * x * y;
  const double c4 = 2.0 * x * z;
  const double c5 = 2.0 * y * z;
  const double dVal = c1 * saupe[0] + c2 * saupe[1] + c3 * saupe[2] + c4 * saupe[3] + c5 * saupe[4];
  return dVal * diVal;
}

ClassicComparison compare_couplings(const double saupe[5],
                                    std::span<const ClassicCoupling> couplings) {
  // Single-precision working arrays, used from index 1, sized to the number
  // of couplings so that every coupling is compared.
  const int count = static_cast<int>(couplings.size());
  std::vector<float> predicted(count + 1, 0.0f);
  std::vector<float> dc_te(count + 1, 0.0f);
  std::vector<float> pred_te(count + 1, 0.0f);
  std::vector<float> sig_te(count + 1, 0.0f);

  for (int i = 1; i <= count; ++i) {
    const ClassicCoupling& c = couplings[i - 1];
    const float diVal = static_cast<float>(maxDIPCOUP[c.type] * radiusInCubeDCTypes[c.type]);
    predicted[i] = static_cast<float>(findD(c.vector.x, c.vector.y, c.vector.z, diVal, saupe));
  }

  // Statistics on the N-H scale over the entries with a measured value.
  double diff_dc_sum = 0.0;
  double diff_dc_sum2 = 0.0;
  double sum_meas2 = 0.0;
  int k = 0;
  for (int i = 1; i <= count; ++i) {
    const ClassicCoupling& c = couplings[i - 1];
    if (c.value_hz < kNotMeasured) {
      k += 1;
      dc_te[k] = static_cast<float>(c.value_hz / dcNORMFACTORS[c.type]);
      pred_te[k] = static_cast<float>(predicted[i] / dcNORMFACTORS[c.type]);
      sig_te[k] = 0.0f;
      sum_meas2 += dc_te[k] * dc_te[k];
      const float difference = pred_te[k] - dc_te[k];
      diff_dc_sum += difference;
      diff_dc_sum2 += difference * difference;
    }
  }
  ClassicComparison result;
  result.measured = k;

  // Population spread of the differences about their mean: a constant offset
  // between prediction and measurement does not count (deliberate).
  const double diff_dc_var = (diff_dc_sum2 - diff_dc_sum * diff_dc_sum / k) / k;
  result.rmsd = static_cast<float>(std::sqrt(diff_dc_var));
  if (sum_meas2 != 0.0) result.q = std::sqrt(diff_dc_sum2 / sum_meas2);

  // With fewer than three measured entries this throws through the betacf
  // error; no guard, by design.
  float prob_stat = 0.0f;
  float z_stat = 0.0f;
  pearsn(dc_te.data(), pred_te.data(), k, result.r, prob_stat, z_stat);

  float chi2 = 0.0f;
  float q = 0.0f;
  fit(dc_te.data(), pred_te.data(), k, sig_te.data(), 0, result.offset, result.slope,
      result.offset_sd, result.slope_sd, chi2, q);

  result.predicted.assign(predicted.begin() + 1, predicted.end());
  return result;
}

}  // namespace vorn
