// Fuzzes the structure reader with arbitrary file contents. The first byte
// picks the format (bit 0: PDB or mmCIF) and the rules (bit 1: HETATM, bit 2:
// hydrogens, bit 3: altloc A); the rest is the file, read through the same
// path as any other file.
#include <cmath>
#include <cstdint>

#include "fuzz_support.hpp"
#include "io/structure_reader.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const uint8_t flags = data[0];
  const std::string name = vorn::fuzz::to_file(data + 1, size - 1, "structure");
  vorn::io::ReadOptions options;
  options.hetatm = (flags & 2) != 0;
  options.keep_hydrogens = (flags & 4) != 0;
  if ((flags & 8) != 0) options.altloc = 'A';
  const auto format = (flags & 1) != 0 ? vorn::io::Format::Mmcif : vorn::io::Format::Pdb;
  try {
    vorn::io::StructureReader reader(name, options, format);
    vorn::io::Model model;
    while (reader.next(model)) {
      // A model handed out has atoms, all with finite coordinates.
      if (model.atoms.empty()) __builtin_trap();
      for (const vorn::Atom& atom : model.atoms) {
        if (!std::isfinite(atom.position.x) || !std::isfinite(atom.position.y) ||
            !std::isfinite(atom.position.z)) {
          __builtin_trap();
        }
      }
    }
  } catch (const vorn::io::InputError&) {
  }
  return 0;
}
