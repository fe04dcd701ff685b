#include "modern/predict_report.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string_view>
#include <type_traits>

#include "io/coupling_writer.hpp"
#include "modern/version.hpp"
#include "vorn/electrostatics.hpp"

namespace vorn::modern {

using namespace vorn::app;  // the shared commands this front end presents

namespace {

using json = nlohmann::ordered_json;

// Where the molecule's charges come from: "titration" or the PQR file.
std::string charges_source(const PredictSettings& s) {
  return s.charges_file.empty() ? "titration" : s.charges_file;
}

// The pH as the text shows it: "7.0", "6.5", "7.25".
std::string ph_text(double ph) {
  std::string text = fmt::format("{:g}", ph);
  if (text.find_first_of(".e") == std::string::npos) text += ".0";
  return text;
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

// The per-model records are the bulk of a large ensemble's output (tens of
// kilobytes a model, formatted on the worker threads); they are appended
// straight to one string instead of being built as a nlohmann document,
// which costs an allocation per value. The values print as nlohmann prints
// them where it matters to a reader: strings escaped by nlohmann itself,
// numbers as the shortest text that reads back to the same double
// (std::to_chars), with a fraction on whole numbers ("3.0"), null for a
// value that is not finite.
class JsonLine {
 public:
  explicit JsonLine(std::size_t reserve) { text_.reserve(reserve); }

  JsonLine& raw(std::string_view text) {
    text_ += text;
    return *this;
  }

  JsonLine& string(std::string_view s) {
    // Printable ASCII other than the quote and the backslash stands as it
    // is; anything else goes through nlohmann's escaping (which also
    // rejects text that is not UTF-8).
    const bool plain = std::all_of(
        s.begin(), s.end(), [](char c) { return c >= 0x20 && c <= 0x7e && c != '"' && c != '\\'; });
    if (!plain) return raw(nlohmann::ordered_json(std::string(s)).dump());
    text_ += '"';
    text_ += s;
    text_ += '"';
    return *this;
  }

  JsonLine& number(double v) {
    if (!std::isfinite(v)) return raw("null");
    char digits[64];
    char* end = std::to_chars(digits, digits + sizeof digits - 2, v).ptr;
    if (std::find_if(digits, end, [](char c) { return c == '.' || c == 'e'; }) == end) {
      *end++ = '.';
      *end++ = '0';
    }
    text_.append(digits, end);
    return *this;
  }

  JsonLine& integer(long v) {
    char digits[24];
    text_.append(digits, std::to_chars(digits, digits + sizeof digits, v).ptr);
    return *this;
  }

  JsonLine& boolean(bool v) { return raw(v ? "true" : "false"); }

  // An array of numbers, or of such arrays.
  template <class T, std::size_t N>
  JsonLine& numbers(const std::array<T, N>& values) {
    text_ += '[';
    for (std::size_t i = 0; i < N; ++i) {
      if (i > 0) text_ += ',';
      if constexpr (std::is_same_v<T, double>) {
        number(values[i]);
      } else {
        numbers(values[i]);
      }
    }
    text_ += ']';
    return *this;
  }

  std::string take() { return std::move(text_); }

 private:
  std::string text_;
};

std::string model_json(const ModelPrediction& m, bool charged) {
  JsonLine out(256 + 224 * m.couplings.size());
  const AlignmentTensor& t = m.tensor;
  out.raw("{\"model\":").integer(m.model);
  out.raw(",\"atoms_read\":").integer(m.atoms_read);
  out.raw(",\"atoms_used\":").integer(m.atoms_used);
  out.raw(",\"built_hydrogens\":").integer(m.built_hydrogens);
  out.raw(",\"unplaced_hydrogens\":").integer(m.unplaced_hydrogens);
  if (charged) {
    out.raw(",\"net_charge\":").number(m.net_charge);
    out.raw(",\"charged_groups\":").integer(m.charged_groups);
  }
  out.raw(",\"tensor\":{\"saupe\":").numbers(t.saupe);
  out.raw(",\"eigenvalues\":").numbers(t.eigenvalues);
  out.raw(",\"eigenvectors\":").numbers(t.eigenvectors);
  out.raw(",\"da_hz\":").number(t.da_hz);
  out.raw(",\"rhombicity\":").number(t.rhombicity);
  out.raw(",\"euler_deg\":").numbers(t.euler_deg);
  out.raw("},\"couplings\":[");
  bool first = true;
  for (const PredictedCoupling& c : m.couplings) {
    const CouplingSite& s = c.site;
    out.raw(first ? "{\"chain\":" : ",{\"chain\":").string(s.chain);
    out.raw(",\"residue\":").integer(s.residue_number);
    out.raw(",\"icode\":").string(icode_text(s.insertion_code));
    out.raw(",\"resname\":").string(s.residue_name);
    out.raw(",\"type\":").string(s.type);
    out.raw(",\"atom1\":").string(s.atom1);
    out.raw(",\"atom2\":").string(s.atom2);
    out.raw(",\"predicted_hz\":").number(c.predicted_hz);
    out.raw(",\"dmax_hz\":").number(c.dmax_hz);
    out.raw(",\"built_hydrogen\":").boolean(s.built_hydrogen).raw("}");
    first = false;
  }
  out.raw("]");
  if (!m.windows.empty()) {
    out.raw(",\"windows\":[");
    first = true;
    for (const WindowTensor& w : m.windows) {
      out.raw(first ? "{\"chain\":" : ",{\"chain\":").string(w.chain);
      out.raw(",\"residue\":").integer(w.residue_number);
      out.raw(",\"icode\":").string(icode_text(w.insertion_code));
      out.raw(",\"resname\":").string(w.residue_name);
      out.raw(",\"first_residue\":").integer(w.first_residue_number);
      out.raw(",\"last_residue\":").integer(w.last_residue_number);
      out.raw(",\"atoms_used\":").integer(w.atoms);
      out.raw(",\"saupe\":").numbers(w.tensor.saupe);
      out.raw(",\"da_hz\":").number(w.tensor.da_hz);
      out.raw(",\"rhombicity\":").number(w.tensor.rhombicity).raw("}");
      first = false;
    }
    out.raw("]");
  }
  out.raw("}");
  return out.take();
}

json ensemble_json(const EnsembleSummary& e) {
  json couplings = json::array();
  for (const EnsembleCoupling& c : e.couplings) {
    json j = site_json(c.site);
    j["models"] = c.models;
    j["predicted_hz_mean"] = c.mean_hz;
    j["predicted_hz_sd"] = c.sd_hz;
    j["predicted_hz_se"] = c.se_hz;
    couplings.push_back(std::move(j));
  }
  return {{"models", e.models},
          {"da_hz_mean", e.da_hz_mean},
          {"da_hz_sd", e.da_hz_sd},
          {"da_hz_se", e.da_hz_se},
          {"effective_samples", e.da_effective_samples},
          {"rhombicity_mean", e.rhombicity_mean},
          {"rhombicity_sd", e.rhombicity_sd},
          {"rhombicity_se", e.rhombicity_se},
          {"couplings", std::move(couplings)}};
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

// The ensemble's rows of the CSV table: model "ensemble", the mean in
// predicted_hz, then its sd, standard error and number of models; a first
// column `file` when not empty.
std::string ensemble_csv(const EnsembleSummary& e, const std::string& file) {
  std::string out;
  const std::string prefix = file.empty() ? "" : csv_field(file) + ",";
  for (const EnsembleCoupling& c : e.couplings) {
    const CouplingSite& s = c.site;
    out += prefix + fmt::format("ensemble,{},{},{},{},{},{},{},{},{},{},{}\n", csv_field(s.chain),
                                s.residue_number, csv_field(icode_text(s.insertion_code)),
                                csv_field(s.residue_name), s.type, csv_field(s.atom1),
                                csv_field(s.atom2), c.mean_hz, c.sd_hz, c.se_hz, c.models);
  }
  return out;
}

// The predicted couplings of a model as a list for the NEF and NMRPipe
// writers: atom1 in its own residue (the one before for C-N and C-HN).
io::CouplingList written_list(const ModelPrediction& m, const std::string& name) {
  io::CouplingList list;
  list.name = name;
  list.couplings.reserve(m.couplings.size());
  for (const PredictedCoupling& c : m.couplings) {
    const CouplingSite& s = c.site;
    io::WrittenCoupling w;
    w.atom1 = {s.chain, s.atom1_residue_number, s.atom1_insertion_code, s.atom1_residue_name,
               s.atom1};
    w.atom2 = {s.chain, s.residue_number, s.insertion_code, s.residue_name, s.atom2};
    w.value_hz = c.predicted_hz;
    list.couplings.push_back(std::move(w));
  }
  return list;
}

}  // namespace

json settings_json(const PredictSettings& s) {
  const Medium& m = s.medium;
  json j;
  j["medium"] = medium_label(s);
  j["concentration"] = m.concentration;
  j["molar_ratio"] = m.molar_ratio;
  j["obstacle_dimension"] = m.obstacle();
  j["atom_radius"] = effective_atom_radius(s);
  j["grid_spacing"] = m.grid_spacing;
  j["order_parameter"] = m.order_parameter;
  if (is_charged(m)) {
    const ObstacleCharge& c = *m.charge;
    if (m.kind == MediumKind::phage) j["obstacle_radius"] = m.obstacle();
    j["charge_density"] = c.charge_density;
    j["ionic_strength"] = c.ionic_strength;
    j["temperature"] = c.temperature;
    j["potential"] = potential_name(c.potential);
    j["debye_length"] = debye_length(c.ionic_strength, c.temperature);
    j["nodes_per_debye_length"] = c.nodes_per_debye_length;
    j["energy_tolerance"] = c.energy_tolerance;
    j["charges"] = charges_source(s);
    // The pH enters the titration only.
    if (s.charges_file.empty()) j["ph"] = s.ph;
  }
  j["sampling"] = {s.sampling.theta, s.sampling.phi, s.sampling.psi};
  j["select"] = selection_name(s.selection);
  j["keep_hydrogens"] = s.read.keep_hydrogens;
  j["add_hydrogens"] = s.add_hydrogens;
  j["hetatm"] = s.read.hetatm;
  j["altloc"] = s.read.altloc ? std::string(1, *s.read.altloc) : std::string();
  j["chains"] = s.read.chains;
  j["exclude"] = s.read.exclude;
  j["models"] = s.read.models;
  if (s.window > 0) j["window"] = s.window;
  return j;
}

std::string charges_text(const PredictSettings& s, double net_charge, int charged_groups) {
  return fmt::format("net {:.2f} e, {} charged groups ({})", net_charge, charged_groups,
                     s.charges_file.empty() ? "titration at pH " + ph_text(s.ph) : s.charges_file);
}

std::string medium_text(const PredictSettings& s) {
  const Medium& m = s.medium;
  if (!is_charged(m)) return "";
  const ObstacleCharge& c = *m.charge;
  return fmt::format("charge density {:g} e/nm2, ionic strength {:g} M, {:g} K, {} potential",
                     c.charge_density, c.ionic_strength, c.temperature,
                     potential_name(c.potential));
}

std::string icode_text(char icode) {
  return icode == ' ' || icode == '\0' ? "" : std::string(1, icode);
}

std::string PredictReport::begin_all() const {
  switch (settings_.output_format) {
    case OutputFormat::nef:
      return io::nef_begin("vorn_predict", kVersion);
    case OutputFormat::pipe:
      if (several_) {
        throw InputError(
            "--format pipe: an NMRPipe table holds one list of couplings, and several files "
            "were given (use --format nef)");
      }
      return "";
    case OutputFormat::json:
      return several_ ? "[\n" : "";
    case OutputFormat::csv:
      return std::string(several_ ? "file," : "") +
             "model,chain,residue,icode,resname,type,atom1,atom2,predicted_hz,predicted_hz_sd,"
             "predicted_hz_se,models\n";
    case OutputFormat::text:
      break;
  }
  return "";
}

std::string PredictReport::begin_file(const std::string& file, const std::string& format) {
  first_model_ = true;
  file_ = file;
  const bool first_file = files_begun_++ == 0;
  const Medium& m = settings_.medium;
  switch (settings_.output_format) {
    case OutputFormat::nef: {
      if (!several_) return "";
      // The file's name without its folder and extensions, made unique.
      std::string stem = std::filesystem::path(file).filename().string();
      stem = stem.substr(0, stem.find('.'));
      std::string prefix = io::nef_list_name(stem) + "_";
      for (const auto& [other, used] : list_prefix_) {
        if (used == prefix) prefix = io::nef_list_name(stem) + std::to_string(files_begun_) + "_";
      }
      list_prefix_[file] = prefix;
      return "";
    }
    case OutputFormat::pipe:
      return "";
    case OutputFormat::json: {
      json head;
      head["vorn_version"] = kVersion;
      head["input"] = {{"file", file}, {"format", format}};
      if (!settings_.read.trajectory.empty())
        head["input"]["trajectory"] = settings_.read.trajectory;
      head["settings"] = settings_json(settings_);
      head["models"] = json::array();
      // Everything up to the opening bracket of "models" ("[]}" less "]}").
      std::string text = head.dump();
      text.resize(text.size() - 2);
      return std::string(first_file ? "" : ",\n") + text;
    }
    case OutputFormat::csv:
      return "";
    case OutputFormat::text:
      break;
  }
  const std::string charge = medium_text(settings_);
  return fmt::format(
      "{}{}{} ({})\nmedium {} {:g} g/ml, molar ratio {:g}, obstacle {:g} A, {}atom radius {:g} A, "
      "grid {:g} A, sampling {},{},{}, order parameter {:g}, atoms: {}{}\n",
      first_file ? "" : "\n", file,
      settings_.read.trajectory.empty() ? "" : " with trajectory " + settings_.read.trajectory,
      format, medium_label(settings_), m.concentration, m.molar_ratio, m.obstacle(),
      charge.empty() ? "" : charge + ", ", effective_atom_radius(settings_), m.grid_spacing,
      settings_.sampling.theta, settings_.sampling.phi, settings_.sampling.psi, m.order_parameter,
      selection_name(settings_.selection),
      settings_.window > 0 ? fmt::format(", window {} residues", settings_.window) : "");
}

std::string PredictReport::model(const ModelPrediction& p, const std::string& file) const {
  switch (settings_.output_format) {
    case OutputFormat::nef: {
      const auto prefix = list_prefix_.find(file);
      return io::nef_rdc_list(written_list(p, (prefix == list_prefix_.end() ? "" : prefix->second) +
                                                  "model_" + std::to_string(p.model)));
    }
    case OutputFormat::pipe:
      return io::pipe_table(
          written_list(p, ""),
          {fmt::format("VORN {} predicted dipolar couplings of {}, model {}", kVersion, file,
                       p.model),
           fmt::format("medium {}, Da(NH) {:.3f} Hz, rhombicity {:.4f}", medium_label(settings_),
                       p.tensor.da_hz, p.tensor.rhombicity)});
    case OutputFormat::json:
      return model_json(p, is_charged(settings_.medium));
    case OutputFormat::csv: {
      std::string out;
      const std::string prefix = several_ ? csv_field(file) + "," : "";
      for (const PredictedCoupling& c : p.couplings) {
        const CouplingSite& s = c.site;
        out += prefix + fmt::format("{},{},{},{},{},{},{},{},{},,,\n", p.model, csv_field(s.chain),
                                    s.residue_number, csv_field(icode_text(s.insertion_code)),
                                    csv_field(s.residue_name), s.type, csv_field(s.atom1),
                                    csv_field(s.atom2), c.predicted_hz);
      }
      return out;
    }
    case OutputFormat::text:
      break;
  }
  const AlignmentTensor& t = p.tensor;
  std::string out =
      fmt::format("\nmodel {}: {} of {} atoms\n", p.model, p.atoms_used, p.atoms_read);
  if (is_charged(settings_.medium))
    out += "  charges: " + charges_text(settings_, p.net_charge, p.charged_groups) + "\n";
  out += fmt::format("  Saupe (Szz, Sxx-Syy, Sxy, Sxz, Syz): {:.6e} {:.6e} {:.6e} {:.6e} {:.6e}\n",
                     t.saupe[0], t.saupe[1], t.saupe[2], t.saupe[3], t.saupe[4]);
  out += fmt::format("  Da(NH) = {:.2f} Hz   R = {:.3f}\n", t.da_hz, t.rhombicity);
  out += fmt::format("  eigenvalues (zz, yy, xx): {:.6e} {:.6e} {:.6e}\n", t.eigenvalues[0],
                     t.eigenvalues[1], t.eigenvalues[2]);
  out += "  Euler angles (alpha, beta, gamma; deg):";
  for (const auto& e : t.euler_deg)
    out += fmt::format("  ({:.2f}, {:.2f}, {:.2f})", e[0], e[1], e[2]);
  out += "\n";
  const std::string unplaced =
      p.unplaced_hydrogens > 0
          ? fmt::format(" ({} not placed: heavy atoms missing)", p.unplaced_hydrogens)
          : std::string();
  if (settings_.add_hydrogens) {
    out += fmt::format("  hydrogens placed from the heavy atoms (--add-hydrogens): {}{}\n",
                       p.built_hydrogens, unplaced);
  } else if (p.hydrogens_placed) {
    out += fmt::format(
        "  no hydrogens in the structure: {} placed from the heavy atoms for the couplings{}\n",
        p.built_hydrogens, unplaced);
  } else if (p.built_hydrogens > 0) {
    out += fmt::format(
        "  no amide hydrogens in the structure: {} built on the C'-N-CA bisector at 1.02 A\n",
        p.built_hydrogens);
  }
  if (!p.windows.empty()) {
    out += fmt::format(
        "  couplings from windows of {} residues (the tensor above is the whole molecule's)\n",
        settings_.window);
    out += fmt::format("  {:<5} {:>6} {:<4} {:>11} {:>6} {:>10} {:>7}\n", "chain", "resid", "res",
                       "window", "atoms", "Da (Hz)", "R");
    for (const WindowTensor& w : p.windows) {
      out += fmt::format("  {:<5} {:>6} {:<4} {:>11} {:>6} {:>10.2f} {:>7.3f}\n", w.chain,
                         std::to_string(w.residue_number) + icode_text(w.insertion_code),
                         w.residue_name,
                         fmt::format("{}-{}", w.first_residue_number, w.last_residue_number),
                         w.atoms, w.tensor.da_hz, w.tensor.rhombicity);
    }
  }
  out += fmt::format("  {:<5} {:>6} {:<4} {:<6} {:<5} {:<5} {:>10}\n", "chain", "resid", "res",
                     "type", "atom1", "atom2", "D (Hz)");
  for (const PredictedCoupling& c : p.couplings) {
    const CouplingSite& st = c.site;
    out += fmt::format("  {:<5} {:>6} {:<4} {:<6} {:<5} {:<5} {:>10.2f}\n", st.chain,
                       std::to_string(st.residue_number) + icode_text(st.insertion_code),
                       st.residue_name, st.type, st.atom1, st.atom2, c.predicted_hz);
  }
  return out;
}

std::string PredictReport::separator() {
  const bool first = first_model_;
  first_model_ = false;
  if (settings_.output_format == OutputFormat::pipe && !first) {
    throw InputError("--format pipe: an NMRPipe table holds one list of couplings, and " + file_ +
                     " has more than one model (choose one with --models, or use --format nef)");
  }
  if (settings_.output_format != OutputFormat::json) return "";
  return first ? "\n" : ",\n";
}

bool PredictReport::keeps_partial_output() const {
  return settings_.output_format != OutputFormat::pipe;
}

std::string PredictReport::end_file(const EnsembleAccumulator& ensemble) const {
  switch (settings_.output_format) {
    case OutputFormat::nef:
    case OutputFormat::pipe:
      return "";
    case OutputFormat::json: {
      std::string out = "\n]";
      if (ensemble.models() > 1) {
        json e = ensemble_json(ensemble.summary());
        if (settings_.until_converged > 0.0) {
          e["converged"] = ensemble.converged(settings_.until_converged);
          e["tolerance_hz"] = settings_.until_converged;
        }
        out += ",\"ensemble\":" + e.dump();
      }
      return out + "}";
    }
    case OutputFormat::csv:
      return ensemble.models() > 1 ? ensemble_csv(ensemble.summary(), several_ ? file_ : "") : "";
    case OutputFormat::text:
      break;
  }
  if (ensemble.models() < 2) return "";
  const EnsembleSummary e = ensemble.summary();
  std::string out = fmt::format(
      "\nensemble of {} models: Da(NH) = {:.2f} +/- {:.2f} Hz   R = {:.3f} +/- {:.3f}\n", e.models,
      e.da_hz_mean, e.da_hz_sd, e.rhombicity_mean, e.rhombicity_sd);
  out += fmt::format(
      "standard error of the mean (block averaging): Da {:.3f} Hz ({:.1f} effective models)   "
      "R {:.4f}\n",
      e.da_hz_se, e.da_effective_samples, e.rhombicity_se);
  if (settings_.until_converged > 0.0) {
    out += ensemble.converged(settings_.until_converged)
               ? fmt::format("converged: every standard error below {:g} Hz after {} models\n",
                             settings_.until_converged, e.models)
               : fmt::format(
                     "not converged: standard errors not all below {:g} Hz after all {} "
                     "models\n",
                     settings_.until_converged, e.models);
  }
  out += fmt::format("  {:<5} {:>6} {:<4} {:<6} {:<5} {:<5} {:>10} {:>8} {:>8}\n", "chain", "resid",
                     "res", "type", "atom1", "atom2", "mean (Hz)", "sd", "se");
  for (const EnsembleCoupling& c : e.couplings) {
    const CouplingSite& st = c.site;
    out += fmt::format("  {:<5} {:>6} {:<4} {:<6} {:<5} {:<5} {:>10.2f} {:>8.2f} {:>8.3f}\n",
                       st.chain, std::to_string(st.residue_number) + icode_text(st.insertion_code),
                       st.residue_name, st.type, st.atom1, st.atom2, c.mean_hz, c.sd_hz, c.se_hz);
  }
  return out;
}

std::string PredictReport::end_file_with_error(const std::string& message,
                                               int models_written) const {
  if (settings_.output_format != OutputFormat::json) return "";
  const json error = {{"message", message}, {"models_written", models_written}};
  return "\n],\"error\":" + error.dump() + "}";
}

std::string PredictReport::end_all() const {
  if (settings_.output_format == OutputFormat::json) return several_ ? "\n]\n" : "\n";
  return "";
}

}  // namespace vorn::modern
