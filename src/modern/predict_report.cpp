#include "modern/predict_report.hpp"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "modern/version.hpp"

namespace vorn::modern {

using namespace vorn::app;  // the shared commands this front end presents

namespace {

using json = nlohmann::ordered_json;

const char* medium_name(MediumKind kind) {
  switch (kind) {
    case MediumKind::bicelle:
      return "bicelle";
    case MediumKind::phage:
      return "phage";
    case MediumKind::bicelle_and_phage:
      return "bicelle+phage";
  }
  return "";
}

const char* selection_name(Selection s) {
  switch (s) {
    case Selection::surface:
      return "surface";
    case Selection::heavy:
      return "heavy";
    case Selection::all:
      return "all";
  }
  return "";
}

json settings_json(const PredictSettings& s) {
  const Medium& m = s.medium;
  json j;
  j["medium"] = medium_name(m.kind);
  j["concentration"] = m.concentration;
  j["molar_ratio"] = m.molar_ratio;
  j["obstacle_dimension"] = m.obstacle();
  j["atom_radius"] = effective_atom_radius(s);
  j["grid_spacing"] = m.grid_spacing;
  j["order_parameter"] = m.order_parameter;
  j["sampling"] = {s.sampling.theta, s.sampling.phi, s.sampling.psi};
  j["select"] = selection_name(s.selection);
  j["keep_hydrogens"] = s.read.keep_hydrogens;
  j["hetatm"] = s.read.hetatm;
  j["altloc"] = s.read.altloc ? std::string(1, *s.read.altloc) : std::string();
  j["chains"] = s.read.chains;
  j["exclude"] = s.read.exclude;
  j["models"] = s.read.models;
  return j;
}

json tensor_json(const AlignmentTensor& t) {
  json eigenvectors = json::array();
  for (const auto& v : t.eigenvectors) eigenvectors.push_back(v);
  json euler = json::array();
  for (const auto& e : t.euler_deg) euler.push_back(e);
  return {{"saupe", t.saupe}, {"eigenvalues", t.eigenvalues}, {"eigenvectors", eigenvectors},
          {"da_hz", t.da_hz}, {"rhombicity", t.rhombicity},   {"euler_deg", euler}};
}

json site_json(const CouplingSite& s) {
  return {{"chain", s.chain},
          {"residue", s.residue_number},
          {"icode", icode_text(s.insertion_code)},
          {"resname", s.residue_name},
          {"type", s.type},
          {"atom1", s.atom1},
          {"atom2", s.atom2}};
}

json file_json(const FilePrediction& f, const PredictSettings& settings) {
  json doc;
  doc["vorn_version"] = kVersion;
  doc["input"] = {{"file", f.file}, {"format", f.format}};
  doc["settings"] = settings_json(settings);
  json models = json::array();
  for (const ModelPrediction& m : f.models) {
    json couplings = json::array();
    for (const PredictedCoupling& c : m.couplings) {
      json j = site_json(c.site);
      j["predicted_hz"] = c.predicted_hz;
      j["dmax_hz"] = c.dmax_hz;
      j["built_hydrogen"] = c.site.built_hydrogen;
      couplings.push_back(std::move(j));
    }
    models.push_back({{"model", m.model},
                      {"atoms_read", m.atoms_read},
                      {"atoms_used", m.atoms_used},
                      {"built_hydrogens", m.built_hydrogens},
                      {"tensor", tensor_json(m.tensor)},
                      {"couplings", std::move(couplings)}});
  }
  doc["models"] = std::move(models);
  if (f.ensemble) {
    const EnsembleSummary& e = *f.ensemble;
    json couplings = json::array();
    for (const EnsembleCoupling& c : e.couplings) {
      json j = site_json(c.site);
      j["models"] = c.models;
      j["predicted_hz_mean"] = c.mean_hz;
      j["predicted_hz_sd"] = c.sd_hz;
      couplings.push_back(std::move(j));
    }
    doc["ensemble"] = {{"models", e.models},
                       {"da_hz_mean", e.da_hz_mean},
                       {"da_hz_sd", e.da_hz_sd},
                       {"rhombicity_mean", e.rhombicity_mean},
                       {"rhombicity_sd", e.rhombicity_sd},
                       {"couplings", std::move(couplings)}};
  }
  return doc;
}

std::string format_json(const std::vector<FilePrediction>& files, const PredictSettings& s) {
  if (files.size() == 1) return file_json(files[0], s).dump(2) + "\n";
  json all = json::array();
  for (const FilePrediction& f : files) all.push_back(file_json(f, s));
  return all.dump(2) + "\n";
}

// A CSV field, quoted when it holds a comma, a quote or a blank.
std::string csv_field(const std::string& text) {
  if (text.find_first_of(",\" ") == std::string::npos) return text;
  std::string quoted = "\"";
  for (char c : text) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + "\"";
}

std::string format_csv(const std::vector<FilePrediction>& files) {
  // With several files a first column names the file of each row.
  const bool several = files.size() > 1;
  std::string out = several ? "file," : "";
  out += "model,chain,residue,icode,resname,type,atom1,atom2,predicted_hz\n";
  for (const FilePrediction& f : files) {
    for (const ModelPrediction& m : f.models) {
      for (const PredictedCoupling& c : m.couplings) {
        const CouplingSite& s = c.site;
        if (several) out += csv_field(f.file) + ",";
        out += fmt::format("{},{},{},{},{},{},{},{},{}\n", m.model, csv_field(s.chain),
                           s.residue_number, csv_field(icode_text(s.insertion_code)),
                           csv_field(s.residue_name), s.type, csv_field(s.atom1),
                           csv_field(s.atom2), c.predicted_hz);
      }
    }
  }
  return out;
}

std::string format_text(const std::vector<FilePrediction>& files, const PredictSettings& s) {
  std::string out;
  const Medium& m = s.medium;
  for (const FilePrediction& f : files) {
    out += fmt::format("{} ({}): {} model(s)\n", f.file, f.format, f.models.size());
    out += fmt::format(
        "medium {} {:g} g/ml, molar ratio {:g}, obstacle {:g} A, atom radius {:g} A, grid "
        "{:g} A, sampling {},{},{}, order parameter {:g}, atoms: {}\n",
        medium_name(m.kind), m.concentration, m.molar_ratio, m.obstacle(), effective_atom_radius(s),
        m.grid_spacing, s.sampling.theta, s.sampling.phi, s.sampling.psi, m.order_parameter,
        selection_name(s.selection));
    for (const ModelPrediction& p : f.models) {
      const AlignmentTensor& t = p.tensor;
      out += fmt::format("\nmodel {}: {} of {} atoms\n", p.model, p.atoms_used, p.atoms_read);
      out +=
          fmt::format("  Saupe (Szz, Sxx-Syy, Sxy, Sxz, Syz): {:.6e} {:.6e} {:.6e} {:.6e} {:.6e}\n",
                      t.saupe[0], t.saupe[1], t.saupe[2], t.saupe[3], t.saupe[4]);
      out += fmt::format("  Da(NH) = {:.2f} Hz   R = {:.3f}\n", t.da_hz, t.rhombicity);
      out += fmt::format("  eigenvalues (zz, yy, xx): {:.6e} {:.6e} {:.6e}\n", t.eigenvalues[0],
                         t.eigenvalues[1], t.eigenvalues[2]);
      out += "  Euler angles (alpha, beta, gamma; deg):";
      for (const auto& e : t.euler_deg)
        out += fmt::format("  ({:.2f}, {:.2f}, {:.2f})", e[0], e[1], e[2]);
      out += "\n";
      if (p.built_hydrogens > 0) {
        out += fmt::format(
            "  no amide hydrogens in the structure: {} built on the C'-N-CA bisector at 1.02 A\n",
            p.built_hydrogens);
      }
      out += fmt::format("  {:<5} {:>6} {:<4} {:<6} {:<5} {:<5} {:>10}\n", "chain", "resid", "res",
                         "type", "atom1", "atom2", "D (Hz)");
      for (const PredictedCoupling& c : p.couplings) {
        const CouplingSite& st = c.site;
        out += fmt::format("  {:<5} {:>6} {:<4} {:<6} {:<5} {:<5} {:>10.2f}\n", st.chain,
                           std::to_string(st.residue_number) + icode_text(st.insertion_code),
                           st.residue_name, st.type, st.atom1, st.atom2, c.predicted_hz);
      }
    }
    if (f.ensemble) {
      const EnsembleSummary& e = *f.ensemble;
      out += fmt::format(
          "\nensemble of {} models: Da(NH) = {:.2f} +/- {:.2f} Hz   R = {:.3f} +/- {:.3f}\n",
          e.models, e.da_hz_mean, e.da_hz_sd, e.rhombicity_mean, e.rhombicity_sd);
      out += fmt::format("  {:<5} {:>6} {:<4} {:<6} {:<5} {:<5} {:>10} {:>8}\n", "chain", "resid",
                         "res", "type", "atom1", "atom2", "mean (Hz)", "sd");
      for (const EnsembleCoupling& c : e.couplings) {
        const CouplingSite& st = c.site;
        out += fmt::format("  {:<5} {:>6} {:<4} {:<6} {:<5} {:<5} {:>10.2f} {:>8.2f}\n", st.chain,
                           std::to_string(st.residue_number) + icode_text(st.insertion_code),
                           st.residue_name, st.type, st.atom1, st.atom2, c.mean_hz, c.sd_hz);
      }
    }
  }
  return out;
}

}  // namespace

std::string icode_text(char icode) {
  return icode == ' ' || icode == '\0' ? "" : std::string(1, icode);
}

std::string format_predictions(const std::vector<FilePrediction>& files,
                               const PredictSettings& settings) {
  switch (settings.output_format) {
    case OutputFormat::json:
      return format_json(files, settings);
    case OutputFormat::csv:
      return format_csv(files);
    case OutputFormat::text:
      break;
  }
  return format_text(files, settings);
}

}  // namespace vorn::modern
