#include "modern/fit_report.hpp"

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <set>

#include "io/coupling_writer.hpp"
#include "modern/predict_report.hpp"
#include "modern/version.hpp"

namespace vorn::modern {

using namespace vorn::app;  // the shared commands this front end presents

namespace {

using json = nlohmann::ordered_json;

const char* method_name(ErrorMethod m) {
  return m == ErrorMethod::monte_carlo ? "montecarlo" : "bootstrap";
}

json tensor_json(const AlignmentTensor& t) {
  json eigenvectors = json::array();
  for (const auto& v : t.eigenvectors) eigenvectors.push_back(v);
  json euler = json::array();
  for (const auto& e : t.euler_deg) euler.push_back(e);
  json matrix = json::array();
  for (const auto& row : saupe_matrix(t.saupe)) matrix.push_back(row);
  return {{"saupe", t.saupe},
          {"saupe_matrix", matrix},
          {"eigenvalues", t.eigenvalues},
          {"eigenvectors", eigenvectors},
          {"da_hz", t.da_hz},
          {"rhombicity", t.rhombicity},
          {"euler_deg", euler}};
}

json quality_json(const Quality& q) {
  return {{"n", q.n}, {"q", q.q}, {"q_da", q.q_da}, {"rmsd_hz", q.rmsd_hz}, {"r", q.r}};
}

json coupling_keys(const ResolvedCoupling& c) {
  const io::MeasuredCoupling& m = c.measured;
  return {{"chain1", m.atom1.chain}, {"residue1", m.atom1.residue}, {"atom1", m.atom1.name},
          {"chain2", m.atom2.chain}, {"residue2", m.atom2.residue}, {"atom2", m.atom2.name},
          {"type", c.type}};
}

// Aa and Ar: the axial and rhombic order components (Da and Dr over the
// N-H scale), as alignment tools report them.
json set_json(const SetFit& s, const FitSettings& settings) {
  json j;
  j["set"] = s.set;
  j["models"] = s.models;
  j["n"] = s.couplings.size();
  j["unresolved"] = s.unresolved;
  j["built_hydrogens"] = s.built_hydrogens;
  j["unplaced_hydrogens"] = s.unplaced_hydrogens;
  j["one_sided_skipped"] = s.one_sided_skipped;
  json tensor = tensor_json(s.fit.tensor);
  tensor["aa"] = s.fit.tensor.da;
  tensor["ar"] = s.fit.tensor.dr;
  j["tensor"] = std::move(tensor);
  j["condition_number"] = s.fit.condition_number;
  j["ill_conditioned"] = s.fit.ill_conditioned;
  j["weighted"] = s.fit.weighted;
  json quality = quality_json(s.quality.overall);
  json per_type = json::object();
  for (const auto& [type, q] : s.quality.per_type) per_type[type] = quality_json(q);
  quality["per_type"] = std::move(per_type);
  j["quality"] = std::move(quality);
  if (s.errors) {
    json euler = json::array();
    for (const auto& e : s.errors->euler_deg_sd) euler.push_back(e);
    j["errors"] = {{"method", method_name(s.errors->method)},
                   {"samples", s.errors->samples},
                   {"seed", settings.seed},
                   {"da_hz_sd", s.errors->da_hz_sd},
                   {"rhombicity_sd", s.errors->rhombicity_sd},
                   {"euler_deg_sd", euler}};
  } else {
    j["errors"] = nullptr;
  }
  json signs = json::array();
  for (const SignCheck& c : s.sign_check) {
    signs.push_back({{"type", c.type},
                     {"n", c.n},
                     {"q_as_given", c.q_as_given},
                     {"q_inverted", c.q_inverted},
                     {"q_best", c.q_best},
                     {"inverted", c.inverted_fits_better}});
  }
  j["sign_check"] = std::move(signs);
  j["signs_inverted"] = s.inverted_types;
  json outliers = json::array();
  for (const ResolvedCoupling& c : s.outliers) {
    json o = coupling_keys(c);
    o["measured_hz"] = c.measured.value_hz;
    outliers.push_back(std::move(o));
  }
  j["outliers"] = std::move(outliers);
  j["outliers_dropped"] = settings.drop_outliers;
  json couplings = json::array();
  for (std::size_t i = 0; i < s.couplings.size(); ++i) {
    const ResolvedCoupling& c = s.couplings[i];
    json o = coupling_keys(c);
    o["measured_hz"] = c.row.value_hz;
    o["error_hz"] = c.measured.error_hz ? json(*c.measured.error_hz) : json(nullptr);
    o["error_plus_hz"] = c.measured.error_plus_hz ? json(*c.measured.error_plus_hz) : json(nullptr);
    o["one_sided"] = c.one_sided;
    o["calculated_hz"] = s.fit.calculated_hz[i];
    o["residual_hz"] = c.row.value_hz - s.fit.calculated_hz[i];
    o["dmax_hz"] = c.row.dmax_hz;
    o["distance"] = c.distance;
    if (s.errors) o["calculated_sd_hz"] = s.errors->calculated_sd_hz[i];
    if (s.prediction) o["predicted_hz"] = s.prediction->predicted_hz[i];
    o["line"] = c.measured.line;
    couplings.push_back(std::move(o));
  }
  j["couplings"] = std::move(couplings);
  if (s.prediction) {
    const PredictionComparison& p = *s.prediction;
    j["prediction"] = {{"tensor", tensor_json(p.tensor)},
                       {"r", p.r},
                       {"q", p.q},
                       {"slope", p.slope},
                       {"axis_angle_deg", p.axis_angle_deg}};
    if (!p.charges.empty()) {
      json charges = json::array();
      for (const ModelCharge& c : p.charges) {
        charges.push_back({{"model", c.model},
                           {"net_charge", c.net_charge},
                           {"charged_groups", c.charged_groups}});
      }
      j["prediction"]["charges"] = std::move(charges);
    }
  } else {
    j["prediction"] = nullptr;
  }
  return j;
}

std::string format_json(const FitResult& r, const FitSettings& s) {
  json doc;
  doc["vorn_version"] = kVersion;
  doc["input"] = {{"structure", s.structure},
                  {"structure_format", r.structure_format},
                  {"couplings", s.couplings},
                  {"couplings_format", r.couplings_format},
                  {"skipped_lines", r.skipped_lines}};
  if (!s.common.read.trajectory.empty()) doc["input"]["trajectory"] = s.common.read.trajectory;
  doc["settings"] = {{"mode", s.mode == FitMode::ensemble    ? "ensemble"
                              : s.mode == FitMode::per_model ? "per-model"
                                                             : "single"},
                     {"weighted", s.weighted},
                     {"bond_lengths", bond_lengths_name(s.bond_lengths)},
                     {"methylene", methylene_name(s.methylene)},
                     {"one_sided", one_sided_name(s.one_sided)},
                     {"add_hydrogens", s.common.add_hydrogens},
                     {"fix_sign", s.fix_sign},
                     {"drop_outliers", s.drop_outliers},
                     {"errors", s.errors ? method_name(*s.errors) : "none"},
                     {"samples", s.samples},
                     {"seed", s.seed}};
  // The medium of a charged prediction (an uncharged one is described by
  // the command line alone, as before).
  if (s.predict && is_charged(s.common.medium))
    doc["settings"]["prediction"] = settings_json(s.common);
  json sets = json::array();
  for (const SetFit& set : r.sets) sets.push_back(set_json(set, s));
  doc["sets"] = std::move(sets);
  return doc.dump(2) + "\n";
}

std::string csv_field(const std::string& text) {
  if (text.find_first_of(",\" ") == std::string::npos) return text;
  std::string q = "\"";
  for (char c : text) {
    if (c == '"') q += '"';
    q += c;
  }
  return q + "\"";
}

std::string format_csv(const FitResult& r) {
  std::string out =
      "set,models,chain1,residue1,atom1,chain2,residue2,atom2,type,measured_hz,error_hz,"
      "calculated_hz,residual_hz,predicted_hz\n";
  for (const SetFit& s : r.sets) {
    std::string models;
    for (int m : s.models) models += (models.empty() ? "" : " ") + std::to_string(m);
    for (std::size_t i = 0; i < s.couplings.size(); ++i) {
      const ResolvedCoupling& c = s.couplings[i];
      const io::MeasuredCoupling& m = c.measured;
      out += fmt::format(
          "{},{},{},{},{},{},{},{},{},{},{},{},{},{}\n", csv_field(s.set), csv_field(models),
          csv_field(m.atom1.chain), m.atom1.residue, csv_field(m.atom1.name),
          csv_field(m.atom2.chain), m.atom2.residue, csv_field(m.atom2.name), csv_field(c.type),
          c.row.value_hz, m.error_hz ? fmt::format("{}", *m.error_hz) : std::string(),
          s.fit.calculated_hz[i], c.row.value_hz - s.fit.calculated_hz[i],
          s.prediction ? fmt::format("{}", s.prediction->predicted_hz[i]) : std::string());
    }
  }
  return out;
}

std::string format_quality(const Quality& q) {
  return fmt::format("n = {:3d}  rmsd = {:7.3f} Hz  r = {:6.3f}  Q = {:6.3f}  Q(Da) = {:6.3f}", q.n,
                     q.rmsd_hz, q.r, q.q, q.q_da);
}

std::string format_text(const FitResult& r, const FitSettings& settings) {
  const std::string& trajectory = settings.common.read.trajectory;
  std::string out =
      fmt::format("{}{} ({}) with couplings {} ({})\n", settings.structure,
                  trajectory.empty() ? std::string() : " with trajectory " + trajectory,
                  r.structure_format, settings.couplings, r.couplings_format);
  if (r.skipped_lines > 0)
    out += fmt::format("skipped {} bad line(s) (--lenient)\n", r.skipped_lines);
  const bool charged = settings.predict && is_charged(settings.common.medium);
  if (charged) {
    const Medium& m = settings.common.medium;
    out += fmt::format("prediction in {}: obstacle {:g} A, {}\n", medium_label(settings.common),
                       m.obstacle(), medium_text(settings.common));
  }
  for (const SetFit& s : r.sets) {
    const AlignmentTensor& t = s.fit.tensor;
    std::string models;
    for (int m : s.models) models += (models.empty() ? "" : ",") + std::to_string(m);
    out += fmt::format(
        "\nset {}, model{} {}: {} couplings fitted{}{}{}\n", s.set.empty() ? "-" : s.set,
        s.models.size() > 1 ? "s" : "", models, s.couplings.size(),
        s.fit.weighted ? " (weighted by their errors)" : "",
        s.unresolved > 0 ? fmt::format(", {} not found and skipped", s.unresolved) : std::string(),
        s.one_sided_skipped > 0
            ? fmt::format(", {} one-sided restraints left out (--one-sided keep fits them)",
                          s.one_sided_skipped)
            : std::string());
    if (settings.common.add_hydrogens) {
      out += fmt::format(
          "  hydrogens placed from the heavy atoms (--add-hydrogens): {}{}\n", s.built_hydrogens,
          s.unplaced_hydrogens > 0
              ? fmt::format(" ({} not placed: heavy atoms missing)", s.unplaced_hydrogens)
              : std::string());
    }
    out += "  Saupe matrix (x, y, z):\n";
    for (const auto& row : saupe_matrix(t.saupe))
      out += fmt::format("    {:13.6e} {:13.6e} {:13.6e}\n", row[0], row[1], row[2]);
    out += fmt::format("  eigenvalues (zz, yy, xx): {:.6e} {:.6e} {:.6e}\n", t.eigenvalues[0],
                       t.eigenvalues[1], t.eigenvalues[2]);
    out += fmt::format("  Da(NH) = {:.3f} Hz   R = {:.4f}   Aa = {:.4e}   Ar = {:.4e}", t.da_hz,
                       t.rhombicity, t.da, t.dr);
    if (s.errors) {
      out += fmt::format("\n  errors ({}, {} samples): sd Da(NH) = {:.3f} Hz, sd R = {:.4f}",
                         method_name(s.errors->method), s.errors->samples, s.errors->da_hz_sd,
                         s.errors->rhombicity_sd);
    }
    out += "\n  Euler angles (alpha, beta, gamma; deg):";
    for (int k = 0; k < 4; ++k) {
      const auto& e = t.euler_deg[k];
      out += fmt::format("  ({:.2f}, {:.2f}, {:.2f})", e[0], e[1], e[2]);
      if (s.errors) {
        const auto& d = s.errors->euler_deg_sd[k];
        out += fmt::format(" +/- ({:.2f}, {:.2f}, {:.2f})", d[0], d[1], d[2]);
      }
    }
    out += fmt::format("\n  condition number {:.2f}{}\n", s.fit.condition_number,
                       s.fit.ill_conditioned
                           ? "  WARNING: ill-conditioned: the bond orientations do not cover "
                             "the sphere well enough, the tensor is poorly determined"
                           : "");
    out += "  quality, all (N-H scale): " + format_quality(s.quality.overall) + "\n";
    for (const auto& [type, q] : s.quality.per_type)
      out += fmt::format("    {:<10} {}\n", type, format_quality(q));
    out += "  sign check (Q as given / this type inverted / best combination):\n";
    for (const SignCheck& c : s.sign_check) {
      out += fmt::format("    {:<10} {:6.3f} / {:6.3f} / {:6.3f}{}\n", c.type, c.q_as_given,
                         c.q_inverted, c.q_best,
                         c.inverted_fits_better ? "   <- sign looks inverted" : "");
    }
    if (!s.inverted_types.empty()) {
      std::string list;
      for (const std::string& t2 : s.inverted_types) list += (list.empty() ? "" : ", ") + t2;
      out += "  signs inverted before the fit (--fix-sign): " + list + "\n";
    }
    if (!s.outliers.empty()) {
      out += fmt::format("  outliers (residual above 3 sigma){}:\n",
                         settings.drop_outliers ? ", dropped and refitted" : "");
      for (const ResolvedCoupling& c : s.outliers) {
        out += fmt::format("    {} {} {} - {} {} {}  {:.3f} Hz (line {})\n", c.measured.atom1.chain,
                           c.measured.atom1.residue, c.measured.atom1.name, c.measured.atom2.chain,
                           c.measured.atom2.residue, c.measured.atom2.name, c.measured.value_hz,
                           c.measured.line);
      }
    }
    if (s.prediction) {
      const PredictionComparison& p = *s.prediction;
      out += fmt::format(
          "  {} prediction: Da(NH) = {:.3f} Hz  R = {:.4f};  against the data r = {:.3f}  Q "
          "= {:.3f}  slope = {:.3f};  z axis {:.1f} deg from the fitted one\n",
          charged ? "charged-obstacle" : "steric", p.tensor.da_hz, p.tensor.rhombicity, p.r, p.q,
          p.slope, p.axis_angle_deg);
      for (const ModelCharge& c : p.charges) {
        out += fmt::format("  charges of model {}: {}\n", c.model,
                           charges_text(settings.common, c.net_charge, c.charged_groups));
      }
    }
    out += fmt::format("  {:<5} {:>5} {:<5} {:<5} {:>5} {:<5} {:<8} {:>9} {:>9} {:>9}{}\n", "chain",
                       "resid", "atom", "chain", "resid", "atom", "type", "measured", "calc",
                       "residual", s.prediction ? "  predicted" : "");
    for (std::size_t i = 0; i < s.couplings.size(); ++i) {
      const ResolvedCoupling& c = s.couplings[i];
      const io::MeasuredCoupling& m = c.measured;
      out += fmt::format("  {:<5} {:>5} {:<5} {:<5} {:>5} {:<5} {:<8} {:9.3f} {:9.3f} {:9.3f}",
                         m.atom1.chain, m.atom1.residue, m.atom1.name, m.atom2.chain,
                         m.atom2.residue, m.atom2.name, c.type, c.row.value_hz,
                         s.fit.calculated_hz[i], c.row.value_hz - s.fit.calculated_hz[i]);
      if (s.prediction) out += fmt::format("  {:9.3f}", s.prediction->predicted_hz[i]);
      out += "\n";
    }
  }
  return out;
}

// The back-calculated couplings of each fit as a list for the NEF and
// NMRPipe writers: the measured atoms with the structure's residue names,
// the calculated value and, with error estimates, its standard deviation.
// Lists are named by their set ("couplings" for an unnamed one), with the
// model for --per-model, and made unique.
std::vector<io::CouplingList> written_lists(const FitResult& r, const FitSettings& s) {
  std::vector<io::CouplingList> lists;
  std::set<std::string> names;
  for (const SetFit& set : r.sets) {
    io::CouplingList list;
    std::string name = io::nef_list_name(set.set);
    if (s.mode == FitMode::per_model && !set.models.empty()) {
      name += "_model_" + std::to_string(set.models.front());
    }
    list.name = name;
    for (int k = 2; !names.insert(list.name).second; ++k)
      list.name = name + "_" + std::to_string(k);
    for (std::size_t i = 0; i < set.couplings.size(); ++i) {
      const ResolvedCoupling& c = set.couplings[i];
      const io::MeasuredCoupling& m = c.measured;
      io::WrittenCoupling w;
      w.atom1 = {m.atom1.chain, m.atom1.residue, ' ', c.residue_name1, m.atom1.name};
      w.atom2 = {m.atom2.chain, m.atom2.residue, ' ', c.residue_name2, m.atom2.name};
      w.value_hz = set.fit.calculated_hz[i];
      if (set.errors) w.error_hz = set.errors->calculated_sd_hz[i];
      list.couplings.push_back(std::move(w));
    }
    lists.push_back(std::move(list));
  }
  return lists;
}

std::string format_nef(const FitResult& r, const FitSettings& s) {
  std::string out = io::nef_begin("vorn_fit", kVersion);
  for (const io::CouplingList& list : written_lists(r, s)) out += io::nef_rdc_list(list);
  return out;
}

std::string format_pipe(const FitResult& r, const FitSettings& s) {
  if (r.sets.size() != 1) {
    throw InputError(fmt::format(
        "--format pipe: an NMRPipe table holds one list of couplings, and the fit gives {} (one "
        "per set{}; choose one with --set{}, or use --format nef)",
        r.sets.size(), s.mode == FitMode::per_model ? " and model" : "",
        s.mode == FitMode::per_model ? " and --models" : ""));
  }
  const SetFit& set = r.sets.front();
  std::string models;
  for (int m : set.models) {
    if (!models.empty()) models += ',';
    models += std::to_string(m);
  }
  return io::pipe_table(
      written_lists(r, s).front(),
      {fmt::format("VORN {} back-calculated dipolar couplings: {} fitted to {}{}, model{} {}",
                   kVersion, s.couplings, s.structure,
                   set.set.empty() ? "" : " (set " + set.set + ")",
                   set.models.size() > 1 ? "s" : "", models),
       fmt::format("Da(NH) {:.3f} Hz, rhombicity {:.4f}, Q {:.3f}", set.fit.tensor.da_hz,
                   set.fit.tensor.rhombicity, set.quality.overall.q)});
}

}  // namespace

std::string format_fit(const FitResult& result, const FitSettings& settings) {
  switch (settings.common.output_format) {
    case OutputFormat::nef:
      return format_nef(result, settings);
    case OutputFormat::pipe:
      return format_pipe(result, settings);
    case OutputFormat::json:
      return format_json(result, settings);
    case OutputFormat::csv:
      return format_csv(result);
    case OutputFormat::text:
      break;
  }
  return format_text(result, settings);
}

}  // namespace vorn::modern
