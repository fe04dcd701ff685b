// Least-squares fit of the Saupe elements to couplings of any kind, with
// quality figures, sign checks and error bars.
#include "vorn/fit.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <random>
#include <string>

#include "fit/dsvdc.hpp"
#include "vorn/couplings.hpp"
#include "vorn/error.hpp"
#include "vorn/statistics.hpp"

namespace vorn {

namespace {

constexpr int kUnknowns = 5;
constexpr double kPi = 3.14159265358979323846;

struct Svd {
  std::vector<double> u;  // n by 5, column-major
  double s[kUnknowns] = {};
  double v[kUnknowns * kUnknowns] = {};
  long n = 0;
};

// a: n by 5, row-major.
Svd decompose(const std::vector<DesignRow>& a) {
  Svd d;
  d.n = static_cast<long>(a.size());
  std::vector<double> x(a.size() * kUnknowns);
  for (std::size_t i = 0; i < a.size(); ++i)
    for (int j = 0; j < kUnknowns; ++j) x[i + j * a.size()] = a[i][j];
  d.u.assign(a.size() * kUnknowns, 0.0);
  std::vector<double> work(a.size());
  double e[kUnknowns] = {};
  integer ldx = d.n, n = d.n, p = kUnknowns, ldu = d.n, ldv = kUnknowns, job = 21, info = 0;
  dsvdc_(x.data(), &ldx, &n, &p, d.s, e, d.u.data(), &ldu, d.v, &ldv, work.data(), &job, &info);
  if (info != 0) throw Error("fit: the singular value decomposition did not converge");
  return d;
}

struct Solution {
  SaupeElements saupe{};
  double condition = 0.0;
};

// Weighted least squares of rows (already scaled) against values b.
Solution solve(const std::vector<DesignRow>& a, const std::vector<double>& b) {
  const Svd d = decompose(a);
  Solution out;
  const double smax = d.s[0];
  const double smin = d.s[kUnknowns - 1];
  if (!(smin > smax * 1e-12)) {
    throw Error("fit: the couplings do not determine the five tensor elements (rank below 5)");
  }
  double utb[kUnknowns] = {};
  for (int j = 0; j < kUnknowns; ++j) {
    double sum = 0.0;
    for (long i = 0; i < d.n; ++i) sum += d.u[i + j * d.n] * b[i];
    utb[j] = sum / d.s[j];
  }
  for (int k = 0; k < kUnknowns; ++k) {
    double sum = 0.0;
    for (int j = 0; j < kUnknowns; ++j) sum += d.v[k + j * kUnknowns] * utb[j];
    out.saupe[k] = sum;
  }
  out.condition = smax / smin;
  return out;
}

bool all_have_errors(std::span<const FitRow> rows) {
  return std::all_of(rows.begin(), rows.end(), [](const FitRow& r) { return r.error_hz > 0.0; });
}

double dot(const DesignRow& a, const SaupeElements& s) {
  double sum = 0.0;
  for (int j = 0; j < kUnknowns; ++j) sum += a[j] * s[j];
  return sum;
}

// The fit of rows with the values given separately (for perturbed data).
TensorFit fit_values(std::span<const FitRow> rows, std::span<const double> values, bool weighted) {
  if (rows.size() < kUnknowns) {
    throw Error("fit: at least 5 couplings are needed for the five tensor elements (got " +
                std::to_string(rows.size()) + ")");
  }
  TensorFit fit;
  fit.weighted = weighted && all_have_errors(rows);
  std::vector<DesignRow> a(rows.size());
  std::vector<DesignRow> shape(rows.size());
  std::vector<double> b(rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const FitRow& r = rows[i];
    const double w = fit.weighted ? 1.0 / r.error_hz : 1.0;
    for (int j = 0; j < kUnknowns; ++j) {
      if (!std::isfinite(r.design[j])) throw Error("fit: a coupling's design row is not finite");
      a[i][j] = r.design[j] * w;
      // Orientation alone: the row over |Dmax| (or over its own size).
      const double scale = r.dmax_hz != 0.0 ? std::fabs(r.dmax_hz) : 1.0;
      shape[i][j] = r.design[j] / scale * w;
    }
    if (!std::isfinite(values[i])) throw Error("fit: a measured value is not finite");
    b[i] = values[i] * w;
  }
  const Solution s = solve(a, b);
  fit.saupe = s.saupe;
  const Svd orientation = decompose(shape);
  fit.condition_number = orientation.s[0] / orientation.s[kUnknowns - 1];
  fit.ill_conditioned = !(fit.condition_number <= kIllConditioned);
  fit.tensor = analyze_tensor(fit.saupe);
  fit.calculated_hz.resize(rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i)
    fit.calculated_hz[i] = dot(rows[i].design, fit.saupe);
  return fit;
}

std::vector<double> values_of(std::span<const FitRow> rows) {
  std::vector<double> v;
  v.reserve(rows.size());
  for (const FitRow& r : rows) v.push_back(r.value_hz);
  return v;
}

Quality quality_of(const std::vector<double>& obs, const std::vector<double>& calc, double da_hz,
                   double rhombicity) {
  Quality q;
  q.n = static_cast<int>(obs.size());
  if (obs.empty()) return q;
  double d2 = 0.0, o2 = 0.0, mo = 0.0, mc = 0.0;
  for (std::size_t i = 0; i < obs.size(); ++i) {
    d2 += (obs[i] - calc[i]) * (obs[i] - calc[i]);
    o2 += obs[i] * obs[i];
    mo += obs[i];
    mc += calc[i];
  }
  const double n = static_cast<double>(obs.size());
  mo /= n;
  mc /= n;
  double sxy = 0.0, sxx = 0.0, syy = 0.0;
  for (std::size_t i = 0; i < obs.size(); ++i) {
    sxy += (obs[i] - mo) * (calc[i] - mc);
    sxx += (obs[i] - mo) * (obs[i] - mo);
    syy += (calc[i] - mc) * (calc[i] - mc);
  }
  q.rmsd_hz = std::sqrt(d2 / n);
  q.r = sxx > 0.0 && syy > 0.0 ? sxy / std::sqrt(sxx * syy) : 0.0;
  q.q = o2 > 0.0 ? std::sqrt(d2 / o2) : 0.0;
  const double norm = 2.0 * da_hz * da_hz * (4.0 + 3.0 * rhombicity * rhombicity) / 5.0;
  q.q_da = norm > 0.0 ? q.rmsd_hz / std::sqrt(norm) : 0.0;
  return q;
}

// Uniform deviates in [0, 1) and normal deviates (Box-Muller) from the
// 64-bit Mersenne twister, whose sequence the standard fixes.
class Deviates {
 public:
  explicit Deviates(std::uint64_t seed) : engine_(seed) {}
  double uniform() { return static_cast<double>(engine_() >> 11) * 0x1.0p-53; }
  double normal() {
    if (has_spare_) {
      has_spare_ = false;
      return spare_;
    }
    double u1 = 0.0;
    do u1 = uniform();
    while (u1 <= 0.0);
    const double u2 = uniform();
    const double radius = std::sqrt(-2.0 * std::log(u1));
    spare_ = radius * std::sin(2.0 * kPi * u2);
    has_spare_ = true;
    return radius * std::cos(2.0 * kPi * u2);
  }
  std::size_t index(std::size_t n) { return static_cast<std::size_t>(uniform() * n); }

 private:
  std::mt19937_64 engine_;
  double spare_ = 0.0;
  bool has_spare_ = false;
};

// a - b wrapped to (-180, 180].
double angle_difference(double a, double b) {
  double d = std::fmod(a - b, 360.0);
  if (d > 180.0) d -= 360.0;
  if (d <= -180.0) d += 360.0;
  return d;
}

}  // namespace

DesignRow coupling_design(const Vec3& vector, double dmax_hz) {
  const double length = std::sqrt(vector.x * vector.x + vector.y * vector.y + vector.z * vector.z);
  if (!(length > 0.0) || !std::isfinite(length)) {
    throw Error("coupling_design: the internuclear vector has no direction");
  }
  const double x = vector.x / length;
  const double y = vector.y / length;
  const double z = vector.z / length;
  // sum_ij S_ij c_i c_j with Sxx = -(Szz - (Sxx-Syy))/2, Syy = -(Szz + (Sxx-Syy))/2.
  return {dmax_hz * (1.5 * z * z - 0.5), dmax_hz * 0.5 * (x * x - y * y), dmax_hz * 2.0 * x * y,
          dmax_hz * 2.0 * x * z, dmax_hz * 2.0 * y * z};
}

TensorFit fit_tensor(std::span<const FitRow> rows, bool weighted) {
  const std::vector<double> values = values_of(rows);
  return fit_values(rows, values, weighted);
}

FitQuality fit_quality(std::span<const FitRow> rows, std::span<const double> calculated_hz,
                       const AlignmentTensor& tensor) {
  if (calculated_hz.size() != rows.size()) {
    throw Error("fit_quality: one calculated value per coupling is needed");
  }
  const double dmax_nh = dipolar_constant_hz("N", "H", 1.02);
  FitQuality result;
  std::vector<double> obs, calc;
  std::vector<std::string> types;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const double scale = rows[i].dmax_hz != 0.0 ? dmax_nh / rows[i].dmax_hz : 1.0;
    obs.push_back(rows[i].value_hz * scale);
    calc.push_back(calculated_hz[i] * scale);
    if (std::find(types.begin(), types.end(), rows[i].type) == types.end()) {
      types.push_back(rows[i].type);
    }
  }
  result.overall = quality_of(obs, calc, dmax_nh * tensor.da, tensor.rhombicity);
  for (const std::string& type : types) {
    std::vector<double> o, c;
    double dmax = 0.0;
    for (std::size_t i = 0; i < rows.size(); ++i) {
      if (rows[i].type != type) continue;
      o.push_back(rows[i].value_hz);
      c.push_back(calculated_hz[i]);
      dmax = rows[i].dmax_hz;
    }
    result.per_type.emplace_back(type, quality_of(o, c, dmax * tensor.da, tensor.rhombicity));
  }
  return result;
}

std::vector<SignCheck> check_signs(std::span<const FitRow> rows, bool weighted) {
  std::vector<std::string> types;
  for (const FitRow& r : rows)
    if (std::find(types.begin(), types.end(), r.type) == types.end()) types.push_back(r.type);
  // Q of the fit with the types of `mask` inverted; NaN when it fails.
  const auto q_of = [&](std::uint32_t mask) {
    std::vector<FitRow> flipped(rows.begin(), rows.end());
    for (FitRow& r : flipped) {
      const auto t = std::find(types.begin(), types.end(), r.type) - types.begin();
      if ((mask >> t) & 1U) r.value_hz = -r.value_hz;
    }
    try {
      const TensorFit f = fit_tensor(flipped, weighted);
      return fit_quality(flipped, f.calculated_hz, f.tensor).overall.q;
    } catch (const Error&) {
      return std::numeric_limits<double>::quiet_NaN();
    }
  };
  const double q_given = q_of(0);
  std::uint32_t best_mask = 0;
  double q_best = q_given;
  if (types.size() <= 12) {
    for (std::uint32_t mask = 1; mask < (1U << types.size()); ++mask) {
      const double q = q_of(mask);
      if (q < q_best) {
        q_best = q;
        best_mask = mask;
      }
    }
  } else {
    for (bool improved = true; improved;) {
      improved = false;
      for (std::size_t t = 0; t < types.size(); ++t) {
        const double q = q_of(best_mask ^ (1U << t));
        if (q < q_best) {
          q_best = q;
          best_mask ^= 1U << t;
          improved = true;
        }
      }
    }
  }
  const bool large = q_best < 0.5 * q_given && q_best <= q_given - 0.1;
  std::vector<SignCheck> checks;
  for (std::size_t t = 0; t < types.size(); ++t) {
    SignCheck c;
    c.type = types[t];
    for (const FitRow& r : rows) c.n += r.type == types[t] ? 1 : 0;
    c.q_as_given = q_given;
    c.q_inverted = t < 32 ? q_of(1U << t) : std::numeric_limits<double>::quiet_NaN();
    c.q_best = q_best;
    c.inverted_fits_better = large && ((best_mask >> t) & 1U) != 0;
    checks.push_back(c);
  }
  return checks;
}

std::vector<std::size_t> outliers(std::span<const FitRow> rows, const TensorFit& fit,
                                  double sigmas) {
  // Without an error of its own a coupling is measured against the rmsd of
  // its type (types differ in size by their Dmax).
  std::map<std::string, std::pair<double, int>> sums;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const double d = rows[i].value_hz - fit.calculated_hz[i];
    auto& [sum, n] = sums[rows[i].type];
    sum += d * d;
    ++n;
  }
  std::vector<std::size_t> found;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const auto& [sum, n] = sums[rows[i].type];
    const double sigma = rows[i].error_hz > 0.0 ? rows[i].error_hz : std::sqrt(sum / n);
    if (std::fabs(rows[i].value_hz - fit.calculated_hz[i]) > sigmas * sigma) found.push_back(i);
  }
  return found;
}

ErrorEstimate estimate_errors(std::span<const FitRow> rows, const TensorFit& fit,
                              ErrorMethod method, int samples, std::uint64_t seed, bool weighted,
                              bool keep_samples) {
  if (samples < 2) throw Error("error estimate: at least 2 samples are needed");
  ErrorEstimate e;
  e.method = method;
  e.samples = samples;
  if (keep_samples) e.sample_saupe.reserve(static_cast<std::size_t>(samples));
  Deviates random(seed);
  double rmsd = 0.0;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const double d = rows[i].value_hz - fit.calculated_hz[i];
    rmsd += d * d;
  }
  rmsd = std::sqrt(rmsd / static_cast<double>(rows.size()));

  RunningSpread da, r;
  RunningSpread angle[4][3];
  std::vector<RunningSpread> calc(rows.size());
  int done = 0;
  int failures = 0;
  while (done < samples) {
    TensorFit sample;
    try {
      if (method == ErrorMethod::monte_carlo) {
        std::vector<double> values(rows.size());
        for (std::size_t i = 0; i < rows.size(); ++i) {
          const double sigma = rows[i].error_hz > 0.0 ? rows[i].error_hz : rmsd;
          values[i] = rows[i].value_hz + sigma * random.normal();
        }
        sample = fit_values(rows, values, weighted);
      } else {
        std::vector<FitRow> drawn;
        drawn.reserve(rows.size());
        for (std::size_t i = 0; i < rows.size(); ++i)
          drawn.push_back(rows[random.index(rows.size())]);
        sample = fit_tensor(drawn, weighted);
      }
    } catch (const Error&) {
      // A draw that does not determine the tensor (bootstrap) is drawn anew.
      if (++failures > 10 * samples) throw Error("error estimate: too many degenerate samples");
      continue;
    }
    ++done;
    if (keep_samples) e.sample_saupe.push_back(sample.saupe);
    da.add(sample.tensor.da_hz);
    r.add(sample.tensor.rhombicity);
    for (int k = 0; k < 4; ++k) {
      // The sample's triple nearest to the best fit's triple k.
      const auto& best = fit.tensor.euler_deg[k];
      int nearest = 0;
      double nearest_distance = std::numeric_limits<double>::infinity();
      for (int m = 0; m < 4; ++m) {
        double distance = 0.0;
        for (int c = 0; c < 3; ++c) {
          const double d = angle_difference(sample.tensor.euler_deg[m][c], best[c]);
          distance += d * d;
        }
        if (distance < nearest_distance) {
          nearest_distance = distance;
          nearest = m;
        }
      }
      for (int c = 0; c < 3; ++c) {
        angle[k][c].add(angle_difference(sample.tensor.euler_deg[nearest][c], best[c]));
      }
    }
    for (std::size_t i = 0; i < rows.size(); ++i) {
      calc[i].add(dot(rows[i].design, sample.saupe));
    }
  }
  e.da_hz_sd = da.sd();
  e.rhombicity_sd = r.sd();
  for (int k = 0; k < 4; ++k)
    for (int c = 0; c < 3; ++c) e.euler_deg_sd[k][c] = angle[k][c].sd();
  e.calculated_sd_hz.resize(rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) e.calculated_sd_hz[i] = calc[i].sd();
  return e;
}

}  // namespace vorn
