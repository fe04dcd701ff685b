// Atom names of the coupling files turned into the names VORN matches
// against a structure: PDB names, and pseudo-atoms that end in "#" or "*"
// (or begin with "Q") for the protons whose names continue the rest with
// digits ("HB#": HB1, HB2, HB3; "QB" the same). One mapping for every
// reader, and its inverse for the NEF writer.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vorn::io {

// Upper-cased, with the X-PLOR names that have a single PDB equivalent
// mapped: HN -> H, OT1 -> O, OT2 -> OXT. Pseudo-atoms are kept as written.
std::string pdb_atom_name(std::string_view name);

// A NEF atom name. "%" at the end (any digits) becomes "#" (HB% -> HB#,
// HG1% -> HG1#), "*" at the end is kept. The stereo-partner names that NEF
// writes with "x" or "y" where the assignment is not stereospecific (HBx,
// HGy%, CDx) name one of two partners without saying which: they become the
// pseudo-atom of both (HB#, HG#, CD#), so the coupling is taken as the mean
// over both partners. The rest goes through pdb_atom_name (HN -> H).
// nullopt for a name with a wildcard elsewhere than at the end, or nothing
// before it.
std::optional<std::string> nef_atom_name(std::string_view name);

// A name of VORN's as NEF writes it: "H" for HN, pseudo-atoms with "%"
// (HB# and HB* -> HB%, QB -> HB%).
std::string nef_written_name(std::string_view name);

}  // namespace vorn::io
