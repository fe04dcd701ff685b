// Predicted dipolar couplings of an alignment tensor and their comparison
// with the measured ones.
#include "fit/compare.hpp"

#include <cmath>
#include <cstdio>
#include <vector>

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

void comp_meas_pred(const double saupe[5], int nodc, const CouplingArrays& couplings, FILE* out) {
  const std::vector<int>& residue = couplings.dc_res;
  const std::vector<double>& dc = couplings.dc;
  const std::vector<int>& dcmax_ind = couplings.dcmax;

  // Single-precision working arrays, used from index 1, sized to the number
  // of couplings rather than a fixed 399 so that every coupling is compared.
  const int slots = static_cast<int>(dc.size()) - 1;
  const int count = nodc < 0 ? 0 : (nodc > slots ? slots : nodc);
  std::vector<float> predicted(count + 1, 0.0f);
  std::vector<float> dc_te(count + 1, 0.0f);
  std::vector<float> pred_te(count + 1, 0.0f);
  std::vector<float> sig_te(count + 1, 0.0f);

  std::fprintf(out,
               "\nComparison of predicted residual dipolar couplings with measured ones [Hz]\n");
  std::fprintf(out, "==========================================================================\n");
  // With fewer than three measured entries the statistics end the run below;
  // the heading must be out before that.
  std::fflush(out);

  for (int i = 1; i <= count; ++i) {
    const int type = dcmax_ind[i];
    const float diVal = static_cast<float>(maxDIPCOUP[type] * radiusInCubeDCTypes[type]);
    predicted[i] = static_cast<float>(
        findD(couplings.coor_x[i], couplings.coor_y[i], couplings.coor_z[i], diVal, saupe));
  }

  // Statistics on the N-H scale over the entries with a measured value.
  double diff_dc_sum = 0.0;
  double diff_dc_sum2 = 0.0;
  double sum_meas2 = 0.0;
  int k = 0;
  for (int i = 1; i <= count; ++i) {
    if (dc[i] < kNotMeasured) {
      const int type = dcmax_ind[i];
      k += 1;
      dc_te[k] = static_cast<float>(dc[i] / dcNORMFACTORS[type]);
      pred_te[k] = static_cast<float>(predicted[i] / dcNORMFACTORS[type]);
      sig_te[k] = 0.0f;
      sum_meas2 += dc_te[k] * dc_te[k];
      const float difference = pred_te[k] - dc_te[k];
      diff_dc_sum += difference;
      diff_dc_sum2 += difference * difference;
    }
  }
  const int nodc_meas = k;

  // Population spread of the differences about their mean: a constant offset
  // between prediction and measurement does not count (deliberate).
  [[maybe_unused]] const double diff_dc_mean = diff_dc_sum / nodc_meas;
  const double diff_dc_var = (diff_dc_sum2 - diff_dc_sum * diff_dc_sum / nodc_meas) / nodc_meas;
  const float rmsd = static_cast<float>(std::sqrt(diff_dc_var));
  double Q_dip = 0.0;
  if (sum_meas2 != 0.0) Q_dip = std::sqrt(diff_dc_sum2 / sum_meas2);

  // With fewer than three measured entries this ends the run through the
  // betacf error; no guard, by design.
  float r_stat = 0.0f;
  float prob_stat = 0.0f;
  float z_stat = 0.0f;
  pearsn(dc_te.data(), pred_te.data(), nodc_meas, r_stat, prob_stat, z_stat);

  std::fprintf(out, "[statistics over all dipolar couplings normalized to 1D(NH)]\n");
  std::fprintf(out, "rmsd: %.2f [Hz]   corr r = %.2f   Q = %.2f\n", rmsd, r_stat, Q_dip);

  float offset = 0.0f;
  float slope = 0.0f;
  float siga = 0.0f;
  float sigb = 0.0f;
  float chi2 = 0.0f;
  float q = 0.0f;
  fit(dc_te.data(), pred_te.data(), nodc_meas, sig_te.data(), 0, offset, slope, siga, sigb, chi2,
      q);
  std::fprintf(out, "linear regression:      ");
  std::fprintf(out, "offset:\t%.2f +/- %.2f [Hz]  slope: %.2f +/- %.2f\n", offset, siga, slope,
               sigb);
  std::fprintf(out, "\n");

  std::fprintf(out, "resid  [DC type]    predicted    measured     pred. - meas.\n");
  std::fprintf(out, "-----  ---------    ---------    --------     -------------\n");
  for (int i = 1; i <= count; ++i) {
    if (dc[i] >= kNotMeasured) {
      std::fprintf(out, "%d        [%d]        p: %8.2f   m:     --      diff:    --\n", residue[i],
                   dcmax_ind[i], predicted[i]);
    } else {
      std::fprintf(out, "%d        [%d]        p: %8.2f   m:%8.2f     diff:%7.2f\n", residue[i],
                   dcmax_ind[i], predicted[i], dc[i], predicted[i] - dc[i]);
    }
  }
}

}  // namespace vorn
