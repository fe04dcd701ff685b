// `vorn fit`: measured couplings against a structure: a physically scaled
// least-squares tensor with quality figures, sign checks, outliers, error
// bars, and the steric prediction beside it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "app/predict_command.hpp"
#include "io/coupling_reader.hpp"
#include "io/structure_reader.hpp"
#include "vorn/fit.hpp"

namespace vorn::app {

enum class FitMode { single, per_model, ensemble };

// The internuclear distance r of each coupling's Dmax.
enum class BondLengths {
  standard,   // equilibrium lengths (standard_length)
  effective,  // N-H bonds at kEffectiveNHLength, the rest standard (effective_length)
  structure,  // the structure's own distances
};

// The effective N-H length of dipolar couplings, which takes in the bond's
// fast vibration and libration: 1.041 A (Ottiger & Bax 1998, J. Am. Chem.
// Soc. 120, 12334).
inline constexpr double kEffectiveNHLength = 1.041;

// A coupling to a pseudo-atom that stands for two protons (a methylene's
// HB#, HG#, ...): the one splitting of the group is the sum of the two C-H
// couplings (the outer lines of the multiplet are 2J + D1 + D2 apart), or
// their mean.
enum class Methylene { sum, mean };

// Restraints bounded on one side only: an X-PLOR statement whose error
// columns leave one side of the value open (one column 0, the other at
// least |value|, as "0 100" or "100 0"). skip leaves them out of the fit;
// keep fits them as if they were measured values (without an error).
enum class OneSided { skip, keep };

const char* bond_lengths_name(BondLengths b);
const char* methylene_name(Methylene m);
const char* one_sided_name(OneSided o);
std::optional<BondLengths> parse_bond_lengths(const std::string& name);
std::optional<Methylene> parse_methylene(const std::string& name);
std::optional<OneSided> parse_one_sided(const std::string& name);

struct FitSettings {
  std::string structure;
  std::string couplings;
  io::CouplingReadOptions coupling_read;
  FitMode mode = FitMode::single;
  bool weighted = true;
  BondLengths bond_lengths = BondLengths::standard;
  Methylene methylene = Methylene::sum;
  OneSided one_sided = OneSided::skip;
  std::vector<std::string> types;  // fit only these coupling types (all when empty)
  bool fix_sign = false;
  bool drop_outliers = false;
  std::optional<ErrorMethod> errors;
  int samples = 1000;
  std::uint64_t seed = 0;
  bool predict = false;
  // Reading options (with add_hydrogens: every missing hydrogen placed
  // before the couplings are resolved), the steric model of --predict,
  // output format and file.
  PredictSettings common;
  std::string plot_file;           // correlation plot
  std::string plot_sequence_file;  // couplings along the sequence
  std::string plot_axes_file;      // principal axes on the sphere (keeps the error samples)
  std::string tensor_script_file;  // principal axes on the molecule (BILD or PyMOL)
};

// One coupling of a set resolved against the structure.
struct ResolvedCoupling {
  io::MeasuredCoupling measured;
  std::string residue_name1, residue_name2;  // of the structure's residues ("" when not found)
  std::string type;                   // "N-H", "CA-HA", "CA-C", "C-N", "C-HN" or "ATOM1-ATOM2"
  FitRow row;                         // design (averaged over models and pseudo-atom protons)
  double distance = 0.0;              // Angstrom, the one Dmax was taken at
  bool one_sided = false;             // a bound on one side only (OneSided)
  std::vector<DesignRow> model_rows;  // per model, for the prediction (ensemble)
};

// The charge of one model of a prediction in a charged medium.
struct ModelCharge {
  int model = 0;
  double net_charge = 0.0;  // e
  int charged_groups = 0;
};

struct PredictionComparison {
  SaupeElements saupe{};
  AlignmentTensor tensor;
  std::vector<double> predicted_hz;  // one per coupling
  double r = 0.0, q = 0.0, slope = 0.0;
  double axis_angle_deg = 0.0;       // between the predicted and fitted principal z axes
  std::vector<ModelCharge> charges;  // per model, with a charged medium
};

struct SetFit {
  std::string set;
  std::vector<int> models;                  // the models the fit rests on
  std::vector<ResolvedCoupling> couplings;  // as fitted (after --drop-outliers)
  TensorFit fit;
  FitQuality quality;
  std::vector<SignCheck> sign_check;
  std::vector<std::string> inverted_types;  // applied with --fix-sign
  std::vector<ResolvedCoupling> outliers;   // above 3 sigma (dropped with --drop-outliers)
  std::optional<ErrorEstimate> errors;
  std::optional<PredictionComparison> prediction;
  int unresolved = 0;         // couplings skipped with --lenient
  int one_sided_skipped = 0;  // one-sided restraints left out (OneSided::skip)
  // Hydrogens placed with --add-hydrogens (common.add_hydrogens), and those
  // that could not be (heavy atoms missing), in the first of the models.
  int built_hydrogens = 0;
  int unplaced_hydrogens = 0;
  // Mean position of the atoms read (hydrogens included, not those placed
  // with --add-hydrogens) of each model the fit rests on, averaged over
  // those models: the molecule's centre.
  Vec3 centre;
};

struct FitResult {
  std::string structure_format;
  std::string couplings_format;
  int skipped_lines = 0;
  std::vector<SetFit> sets;
};

FitResult run_fit(const FitSettings& settings);

// The standard internuclear distance of an atom pair (same residue, or atom1
// in the residue before atom2's when previous is set), or nothing where the
// structure's distance is taken.
std::optional<double> standard_length(const std::string& name1, const std::string& name2,
                                      bool previous);

// The same with an N-H bond at kEffectiveNHLength.
std::optional<double> effective_length(const std::string& name1, const std::string& name2,
                                       bool previous);

// A restraint that bounds its coupling on one side only (OneSided).
bool is_one_sided(const io::MeasuredCoupling& c);

}  // namespace vorn::app
