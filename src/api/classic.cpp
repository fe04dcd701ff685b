#include "vorn/classic.hpp"

#include <string>
#include <vector>

#include "couplings/classic_types.hpp"
#include "fit/compare.hpp"
#include "fit/svd_fit.hpp"
#include "molecule/surface.hpp"
#include "molecule/toppar.hpp"
#include "simulation/model.hpp"
#include "vorn/error.hpp"

namespace vorn {

int classic_atom_type(std::string_view name) { return atom_type_index(name); }
int classic_residue_type(std::string_view name) { return residue_type_index(name); }
float classic_atom_mass(std::string_view name) { return atom_type_mass(name); }

bool classic_surface_atoms(std::span<const Vec3> positions, std::span<const int> atom_types,
                           std::vector<std::size_t>& kept, const Log& log) {
  std::vector<double> x, y, z;
  for (const Vec3& p : positions) {
    x.push_back(p.x);
    y.push_back(p.y);
    z.push_back(p.z);
  }
  return surface_atom_indices(x, y, z, atom_types, kept, log) == 0;
}

SaupeElements classic_predict(const Settings& settings, std::span<const Vec3> positions,
                              const ClassicLimits& limits, const Log& log) {
  // Atoms from index 1, as the simulation takes them.
  const std::size_t n = positions.size();
  std::vector<double> x(n + 1), y(n + 1), z(n + 1);
  for (std::size_t i = 0; i < n; ++i) {
    x[i + 1] = positions[i].x;
    y[i + 1] = positions[i].y;
    z[i + 1] = positions[i].z;
  }
  double saupe_weight[5] = {};
  predict_settings(settings, static_cast<int>(n), x, y, z, limits, log, 0, saupe_weight);
  return {saupe_weight[0], saupe_weight[1], saupe_weight[2], saupe_weight[3], saupe_weight[4]};
}

namespace {

void check_type(int type) {
  if (type < 0 || type >= kDcTypes) {
    throw Error("classic coupling type " + std::to_string(type) + " is not one of 0 to 5");
  }
}

void check_types(std::span<const ClassicCoupling> couplings) {
  for (const ClassicCoupling& c : couplings) check_type(c.type);
}

}  // namespace

double classic_norm_factor(int type) {
  check_type(type);
  return dcNORMFACTORS[type];
}

double classic_coupling_scale(int type) {
  check_type(type);
  return maxDIPCOUP[type] * radiusInCubeDCTypes[type];
}

double classic_back_calculate(const SaupeElements& saupe, const Vec3& vector, double scale) {
  return findD(vector.x, vector.y, vector.z, scale, saupe.data());
}

ClassicComparison classic_compare(const SaupeElements& saupe,
                                  std::span<const ClassicCoupling> couplings) {
  check_types(couplings);
  return compare_couplings(saupe.data(), couplings);
}

ClassicSvdFit classic_svd_fit(std::span<const ClassicCoupling> couplings, double nh_error_hz) {
  check_types(couplings);
  FitRows rows;
  const int m = setup_svd(nh_error_hz, couplings, rows);
  ClassicSvdFit result;
  svd_simple(m, rows, result);
  return result;
}

}  // namespace vorn
