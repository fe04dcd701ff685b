#include "simulation/weighted_model.hpp"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <memory>

#include "simulation/parallel.hpp"
#include "simulation/predict_fast.hpp"
#include "vorn/error.hpp"

namespace vorn::detail {

namespace {

// Weight rows of one block of orientations take at most this many bytes.
constexpr std::size_t kBlockBytes = std::size_t{8} << 20;
constexpr int kChunk = 8;

// The density of phage (g/ml) by which the classic model turns a
// concentration into the cell radius.
constexpr float kPhageDensity = 1.46f;

}  // namespace

Obstacle obstacle_of(const Settings& settings) {
  Obstacle o;
  o.shape = settings.liquid_type == 2 ? Obstacle::Shape::cylinder : Obstacle::Shape::wall;
  o.radius = settings.max_obs_dim;
  return o;
}

WeightedSums weighted_sums(const Settings& settings, const Placement& placement,
                           const Orientations& orientations, const Scaling& scaling, int n,
                           const std::vector<double>& x, const std::vector<double>& y,
                           const std::vector<double>& z, const Interaction* interaction,
                           int threads) {
  const bool cylinder = settings.liquid_type == 2;
  if (!cylinder && settings.liquid_type != 1) {
    throw Error("predict: the weighted model needs a wall or a cylinder");
  }
  const double max_obs = settings.max_obs_dim;
  const double spacing = settings.grid_spacing;
  const int o_pts = orientations.count;
  const OrientationTables& tables = orientations.tables;
  const AtomTree atoms = build_atom_tree(n, x, y, z);

  // Contact positions: the steric grid. Beyond its last point no atom
  // touches; the grid goes on with the same step while an interaction
  // reaches, but not past the medium's cell (the free states the steric
  // model counts up to the cell's edge).
  const Grid& grid = cylinder ? placement.grid_ph : placement.grid;
  const int last = cylinder ? placement.no_grid_ph : placement.no_grid;
  const ContactRows contact =
      cylinder
          ? ContactRows::cylinder(atoms, max_obs + settings.atom_radius, n, x, y, z, last, grid)
          : ContactRows::wall(atoms, settings.atom_radius, max_obs, last, grid);
  const int steric = contact.positions();
  const double d0 = steric > 0 ? grid[0][1] : 0.0;
  int positions = steric;
  if (interaction != nullptr && steric > 0) {
    const double reach = interaction->reach();
    const double edge = cylinder
                            ? max_obs / std::sqrt(settings.concentration / kPhageDensity) - max_obs
                            : d0 - max_obs + (last + scaling.free_orient) * spacing;
    // Both grids hold the centre's distance from the wall's reference plane
    // or the cylinder's axis, max_obs beyond the surface.
    const double limit = std::min(reach, edge);
    while (d0 + positions * spacing - max_obs <= limit) ++positions;
  }
  // centre[k]: distance of the centre from the wall's surface or from the
  // cylinder's axis.
  std::vector<double> centre(static_cast<std::size_t>(positions));
  for (int k = 0; k < positions; ++k) {
    const double at = k < steric ? grid[k][1] : d0 + k * spacing;
    centre[k] = cylinder ? at : at - max_obs;
  }

  std::vector<double> W(static_cast<std::size_t>(positions), 0.0);
  std::vector<double> S[5];
  for (auto& s : S) s.assign(static_cast<std::size_t>(positions), 0.0);
  std::vector<long long> T(static_cast<std::size_t>(positions), 0);

  threads = std::max(threads, 1);
  std::vector<ContactRows::ScratchPtr> contact_scratch;
  std::vector<std::unique_ptr<Interaction::Scratch>> interaction_scratch;
  for (int t = 0; t < threads; ++t) {
    contact_scratch.push_back(contact.scratch());
    if (interaction != nullptr) interaction_scratch.push_back(interaction->scratch());
  }
  std::atomic<bool> overflow{false};

  if (positions > 0 && o_pts > 0) {
    const int block = static_cast<int>(std::clamp<std::size_t>(
        kBlockBytes / (sizeof(double) * static_cast<std::size_t>(positions)), 1,
        static_cast<std::size_t>(o_pts)));
    std::vector<double> weights(static_cast<std::size_t>(block) * positions);
    std::vector<unsigned char> allowed_rows(static_cast<std::size_t>(block) * positions);
    for (int m0 = 1; m0 <= o_pts; m0 += block) {
      const int count = std::min(block, o_pts - m0 + 1);
      std::atomic<int> next{0};
      const int parts = std::max(1, std::min(threads, (count + kChunk - 1) / kChunk));
      parallel_parts(parts, [&](int part) {
        std::vector<double> energy(static_cast<std::size_t>(positions));
        while (true) {
          const int r0 = next.fetch_add(kChunk, std::memory_order_relaxed);
          if (r0 >= count) break;
          for (int r = r0; r < std::min(r0 + kChunk, count); ++r) {
            const int m = m0 + r;
            unsigned char* allowed = allowed_rows.data() + static_cast<std::size_t>(r) * positions;
            double* w = weights.data() + static_cast<std::size_t>(r) * positions;
            contact.row(*contact_scratch[part], tables, m, allowed);
            std::memset(allowed + steric, 1, static_cast<std::size_t>(positions - steric));
            if (interaction == nullptr) {
              for (int k = 0; k < positions; ++k) w[k] = allowed[k] != 0 ? 1.0 : 0.0;
              continue;
            }
            double x_axis[4] = {};
            double y_axis[4] = {};
            TrigMemo memo;
            frame_axes_of(tables, m, x_axis, y_axis, memo);
            OrientationFrame frame;
            for (int i = 0; i < 3; ++i) {
              frame.x_axis[i] = x_axis[i + 1];
              frame.y_axis[i] = y_axis[i + 1];
            }
            std::fill(energy.begin(), energy.end(), 0.0);
            // Positions before the first free one weigh 0 whatever their
            // energy.
            int first = 0;
            while (first < positions && allowed[first] == 0) ++first;
            interaction->add_energy(frame, std::span<const double>(centre).subspan(first),
                                    energy.data() + first, *interaction_scratch[part]);
            bool finite = true;
            for (int k = 0; k < positions; ++k) {
              const double e = energy[k] == 0.0 ? 1.0 : std::exp(-energy[k]);
              finite = finite && std::isfinite(e);
              w[k] = allowed[k] != 0 ? e : 0.0;
            }
            if (!finite) overflow.store(true, std::memory_order_relaxed);
          }
        }
      });
      if (overflow.load()) {
        throw Error(
            "predict: the electrostatic energy of the molecule at the obstacle is too large for "
            "its Boltzmann weight (charges or charge density too large)");
      }
      // Each position summed in orientation order, whatever the threads.
      const int ranges = std::min(threads, positions);
      parallel_parts(ranges, [&](int part) {
        const int lo = static_cast<int>(static_cast<long long>(positions) * part / ranges);
        const int hi = static_cast<int>(static_cast<long long>(positions) * (part + 1) / ranges);
        for (int r = 0; r < count; ++r) {
          const int m = m0 + r;
          const double v[5] = {tables.szz_orient[m], tables.sxx_yy_orient[m], tables.sxy_orient[m],
                               tables.sxz_orient[m], tables.syz_orient[m]};
          const double* w = weights.data() + static_cast<std::size_t>(r) * positions;
          const unsigned char* allowed =
              allowed_rows.data() + static_cast<std::size_t>(r) * positions;
          for (int k = lo; k < hi; ++k) {
            if (allowed[k] == 0) continue;
            W[k] += w[k];
            T[k] += 1;
            for (int e = 0; e < 5; ++e) S[e][k] += w[k] * v[e];
          }
        }
      });
    }
  }

  // Per-position means less the sampling bias, weighted by the position's
  // share of states (and, about a cylinder, by its distance from the axis
  // in radii: the cylindrical volume element), as the steric model weights
  // its allowed states; the number of states grows by what the weights add
  // over the plain count.
  WeightedSums result;
  result.positions = positions;
  double* sum = result.sum;
  double& excess = result.excess;
  long long total = 0;
  for (int k = 0; k < positions; ++k) {
    const double geometry = cylinder ? centre[k] / max_obs : 1.0;
    if (k < steric) total += T[k];
    excess += geometry * ((W[k] - static_cast<double>(T[k])) / o_pts);
  }
  for (int e = 0; e < 5; ++e) {
    for (int k = 0; k < positions; ++k) {
      if (!(W[k] > 0.0)) continue;
      const double mean = S[e][k] / W[k] - orientations.saupe_dev[e];
      double term = W[k] / o_pts * mean;
      if (cylinder) term = term * centre[k] / max_obs;
      sum[e] += term;
    }
  }
  result.states = (cylinder ? static_cast<double>(scaling.free_orient_ph)
                            : static_cast<double>(total / o_pts + scaling.free_orient)) +
                  excess;
  return result;
}

void simulate_weighted(const Settings& settings, const Placement& placement,
                       const Orientations& orientations, const Scaling& scaling, int n,
                       const std::vector<double>& x, const std::vector<double>& y,
                       const std::vector<double>& z, const Interaction* interaction, int threads,
                       double saupe_weight[5]) {
  const WeightedSums r =
      weighted_sums(settings, placement, orientations, scaling, n, x, y, z, interaction, threads);
  for (int e = 0; e < 5; ++e) {
    saupe_weight[e] = r.sum[e] / r.states * settings.order_parameter;
  }
}

}  // namespace vorn::detail
