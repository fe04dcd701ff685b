// Fuzzes the .gro reader from memory: any input either parses, every atom
// with a residue name, an atom name and finite coordinates, or fails with
// InputError.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "io/gro_reader.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    const vorn::io::GroFile gro = vorn::io::parse_gro(text, "fuzz.gro");
    if (gro.atoms.empty()) std::abort();
    for (const vorn::io::GroAtom& atom : gro.atoms) {
      if (atom.name.empty() || atom.residue_name.empty()) std::abort();
      if (!std::isfinite(atom.position.x) || !std::isfinite(atom.position.y) ||
          !std::isfinite(atom.position.z)) {
        std::abort();
      }
    }
  } catch (const vorn::io::InputError&) {
  }
  return 0;
}
