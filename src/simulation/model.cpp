#include "simulation/model.hpp"

#include <cmath>

#include "simulation/frame.hpp"
#include "simulation/predict.hpp"
#include "simulation/predict_fast.hpp"

namespace vorn {

void refine_bicelle(Settings& s) {
  const double mol_DHPC_free = 5.0;  // free short-chain lipid, mM
  const double mw_DMPC = 677.94;     // g/mol
  const double mw_DHPC = 453.51;     // g/mol
  const double pi = 3.141592654;
  const double pi2 = 9.869604403666765;
  const double LZahl = 6.022e23;  // Avogadro's number, kept for reference
  (void)LZahl;

  const double mol_DHPC = s.concentration * 1000 / (s.molar_ratio * mw_DMPC + mw_DHPC);
  const double mol_DMPC = s.molar_ratio * mol_DHPC;
  const double wv_DHPC = mol_DHPC * mw_DHPC;
  const double wv_DMPC = mol_DMPC * mw_DMPC;
  const double concentration_DMPC = wv_DMPC / 1000;
  const double concentration_DHPC = wv_DHPC / 1000;
  (void)concentration_DMPC;
  (void)concentration_DHPC;
  const double molar_ratio_eff = mol_DMPC / (mol_DHPC - mol_DHPC_free / 1000);
  const double wv_bic = (mol_DMPC * mw_DMPC + (mol_DHPC - mol_DHPC_free / 1000) * mw_DHPC) / 1000;
  s.radius_bic =
      (std::sqrt(8.0 / molar_ratio_eff + pi2) + pi) * (s.max_obs_dim * 0.5 * molar_ratio_eff);
  const double volume_bic = (2 * pi * s.radius_bic * s.radius_bic * s.max_obs_dim +
                             s.radius_bic * pi2 * s.max_obs_dim * s.max_obs_dim) *
                            1e-24;
  const double no_bic_mil = wv_bic / volume_bic;
  const double cube_bic = 1e24 / no_bic_mil;
  (void)cube_bic;
  s.step_out_length = s.max_obs_dim / wv_bic;
  s.order_rel = (pi * s.radius_bic) / (4.0 * (pi * s.radius_bic + 2 * s.max_obs_dim));
  s.molar_ratio = molar_ratio_eff;
}

Placement place_molecule(const Settings& settings, int n, std::vector<double>& x,
                         std::vector<double>& y, std::vector<double>& z,
                         const ClassicLimits& limits, const Log& log) {
  const std::vector<double> no_masses;  // the centre is the plain mean
  double center[4] = {};
  double max_radius = 0.0;
  double min_radius = 0.0;
  calculate_center_mass(n, x, y, z, no_masses, center);
  shift_coordinate_system(center, n, x, y, z);
  calculate_extreme_length(n, x, y, z, max_radius, min_radius);

  Placement p;
  p.no_grid = setup_model(settings, settings.concentration, settings.ellipticity,
                          min_radius + settings.atom_radius, max_radius + settings.atom_radius,
                          settings.max_obs_dim, settings.liquid_type, settings.grid_type,
                          settings.grid_spacing, p.grid, p.no_grid_ph, p.grid_ph, p.max_abstand,
                          p.max_abstand_ph, log, limits.max_grid_index);
  return p;
}

Orientations sample_angles(const Settings& settings, const ClassicLimits& limits, const Log& log) {
  Orientations o;
  o.count =
      grid_orientation_sampling(settings, settings.dig_theta, settings.dig_phi, settings.dig_psi,
                                o.tables.eulerangle, log, limits.orientation_limit);
  return o;
}

void build_lists(const Settings& settings, Orientations& o, const Log& log) {
  setup_lists(settings, o.count, o.tables, log);
  check_Saupe_uniformity(settings, o.count, o.tables, o.saupe_dev, log);
}

Orientations sample_orientations(const Settings& settings, const ClassicLimits& limits,
                                 const Log& log) {
  Orientations o = sample_angles(settings, limits, log);
  build_lists(settings, o, log);
  // These orientations serve many structures: their frame axes are worth
  // storing once (a single prediction computes them on its workers).
  detail::fill_frame_axes(o.tables, o.count);
  return o;
}

Scaling scaling_for(const Settings& settings, const Placement& placement, int orientations) {
  Scaling s;
  calculate_scaling(settings, orientations, placement.max_abstand, placement.max_abstand_ph,
                    settings.max_obs_dim, s.free_orient, s.free_orient_ph);
  return s;
}

void simulate_placed(const Settings& settings, const Placement& placement,
                     const Orientations& orientations, const Scaling& scaling, int n,
                     const std::vector<double>& x, const std::vector<double>& y,
                     const std::vector<double>& z, int threads, double saupe_weight[5]) {
  double saupe[5] = {};
  simulate_alignment3(settings, settings.max_obs_dim, n, scaling.free_orient,
                      scaling.free_orient_ph, x, y, z, placement.no_grid, placement.no_grid_ph,
                      orientations.count, placement.grid, placement.grid_ph, orientations.tables,
                      orientations.saupe_dev, saupe, saupe_weight, threads);
  for (int i = 0; i < 5; ++i) saupe_weight[i] *= settings.order_parameter;
}

void predict_settings(const Settings& settings, int n, std::vector<double>& x,
                      std::vector<double>& y, std::vector<double>& z, const ClassicLimits& limits,
                      const Log& log, int threads, double saupe_weight[5]) {
  const Placement placement = place_molecule(settings, n, x, y, z, limits, log);
  Orientations orientations = sample_angles(settings, limits, log);
  const Scaling scaling = scaling_for(settings, placement, orientations.count);
  build_lists(settings, orientations, log);
  simulate_placed(settings, placement, orientations, scaling, n, x, y, z, threads, saupe_weight);
}

}  // namespace vorn
