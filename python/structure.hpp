// The Python package's Structure (one model: its atoms and the atoms of the
// steric model) and what the compiled parts of the module share about it.
#pragma once

#include <pybind11/pybind11.h>

#include <memory>
#include <string>
#include <vector>

#include "app/predict_command.hpp"
#include "vorn/structure.hpp"

namespace vorn::python {

// One model: every atom read (hydrogens included, as the couplings need
// them) and the atoms of the steric model by the selection rule.
struct Structure {
  std::string file;
  std::string format;  // "PDB" or "mmCIF"; "" when built from atom tables
  int model = 0;
  std::vector<Atom> atoms;
  app::Selection selection = app::Selection::surface;
  bool keep_hydrogens = false;
  std::vector<Vec3> steric;
};

using StructurePtr = std::shared_ptr<Structure>;

inline app::PredictSettings selection_settings(app::Selection selection, bool keep_hydrogens) {
  app::PredictSettings s;
  s.selection = selection;
  s.read.keep_hydrogens = keep_hydrogens;
  return s;
}

// Adds Structure.from_atoms, Structure.with_coordinates and the class
// EnsembleAccumulator to the module, whose Structure and Tensor classes are
// registered already (model_bindings.cpp).
void bind_models_and_ensembles(pybind11::module_& m);

}  // namespace vorn::python
