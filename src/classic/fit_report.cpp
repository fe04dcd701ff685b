#include "classic/fit_report.hpp"

#include <vector>

namespace vorn {

void comp_meas_pred(const double saupe[5], int nodc, const CouplingArrays& couplings, FILE* out) {
  const std::vector<ClassicCoupling> list = classic_couplings(nodc, couplings);

  std::fprintf(out,
               "\nComparison of predicted residual dipolar couplings with measured ones [Hz]\n");
  std::fprintf(out, "==========================================================================\n");
  // With fewer than three measured entries the statistics end the run below;
  // the heading must be out before that.
  std::fflush(out);

  const ClassicComparison c =
      classic_compare({saupe[0], saupe[1], saupe[2], saupe[3], saupe[4]}, list);

  std::fprintf(out, "[statistics over all dipolar couplings normalized to 1D(NH)]\n");
  std::fprintf(out, "rmsd: %.2f [Hz]   corr r = %.2f   Q = %.2f\n", c.rmsd, c.r, c.q);
  std::fprintf(out, "linear regression:      ");
  std::fprintf(out, "offset:\t%.2f +/- %.2f [Hz]  slope: %.2f +/- %.2f\n", c.offset, c.offset_sd,
               c.slope, c.slope_sd);
  std::fprintf(out, "\n");

  std::fprintf(out, "resid  [DC type]    predicted    measured     pred. - meas.\n");
  std::fprintf(out, "-----  ---------    ---------    --------     -------------\n");
  for (std::size_t i = 0; i < list.size(); ++i) {
    const ClassicCoupling& m = list[i];
    // A value of 1000.0 Hz or more marks an entry without a measured value.
    if (m.value_hz >= 1000.0) {
      std::fprintf(out, "%d        [%d]        p: %8.2f   m:     --      diff:    --\n", m.residue,
                   m.type, c.predicted[i]);
    } else {
      std::fprintf(out, "%d        [%d]        p: %8.2f   m:%8.2f     diff:%7.2f\n", m.residue,
                   m.type, c.predicted[i], m.value_hz, c.predicted[i] - m.value_hz);
    }
  }
}

void print_svd_fit(const ClassicSvdFit& fit, FILE* out) {
  std::fprintf(out, "# of DC: %ld\n", static_cast<long>(fit.rows));
  if (fit.info != 0) std::fprintf(out, "svd barfed, info %ld\n", fit.info);
  if (fit.singular) std::fprintf(out, " the a matrix is singular above expactation\n");
  if (fit.order_in_range) {
    std::fprintf(out, "Predicted residual dipolar couplings not within the experimental range:\n");
    // The two '>' are printed whatever the side of the violation.
    for (const ClassicSvdFit::Outside& o : fit.outside) {
      std::fprintf(out, "%ld: %f  %f  %f  >  %f  >  %f\n", static_cast<long>(o.row), o.measured,
                   o.dc, o.upper, o.back_calculated, o.lower);
    }
  }
}

}  // namespace vorn
