// Selection of the atoms that take part in the steric model: removal of the
// protons, of residues named at the terminal, restriction to atom types named
// at the terminal, and reduction to the solvent-exposed atoms.
#include "classic/selection.hpp"

#include <algorithm>
#include <cstdio>

#include "core/fatal.hpp"
#include "vorn/classic.hpp"

namespace vorn {

namespace {

// Highest atom index usable in all eight arrays (entry 0 is not used).
int last_slot(const AtomArrays& atoms) {
  const std::size_t size =
      std::min({atoms.x.size(), atoms.y.size(), atoms.z.size(), atoms.mass.size(),
                atoms.atom.size(), atoms.aa.size(), atoms.atomno.size(), atoms.res_nr.size()});
  return size == 0 ? 0 : static_cast<int>(std::min<std::size_t>(size - 1, kAtomSlots));
}

// Walks atoms 1..n in order and moves every atom that keep() accepts to the
// next index from 1, all eight values together; returns the number kept.
// Kept atoms never move up, so compacting in place gives the same arrays as
// filtering a saved copy. A count outside the arrays is bounded to them.
template <typename Keep>
int compact(int n, AtomArrays& atoms, Keep keep) {
  n = std::clamp(n, 0, last_slot(atoms));
  int kept = 0;
  for (int i = 1; i <= n; ++i) {
    if (!keep(i)) {
      continue;
    }
    ++kept;
    atoms.x[kept] = atoms.x[i];
    atoms.y[kept] = atoms.y[i];
    atoms.z[kept] = atoms.z[i];
    atoms.mass[kept] = atoms.mass[i];
    atoms.atom[kept] = atoms.atom[i];
    atoms.aa[kept] = atoms.aa[i];
    atoms.atomno[kept] = atoms.atomno[i];
    atoms.res_nr[kept] = atoms.res_nr[i];
  }
  return kept;
}

// Number of list entries that can be compared: no_select, bounded by the
// entries the list really has (1..size-1); a negative count lists nothing.
int usable_entries(int no_select, const std::vector<int>& select) {
  const int held = select.empty() ? 0 : static_cast<int>(select.size()) - 1;
  return std::clamp(no_select, 0, held);
}

// Prompts for a count and then for that many numbers, each read with "%d".
// Neither read is checked, as the program never did: a value that cannot be
// read leaves the count or the entry as it was. Only the list's capacity is
// guarded: a count above 499 ends the run (the list holds 499 entries), and a
// negative count lists nothing, which is what a negative count amounted to.
void read_selection(Io& io, const char* count_prompt, const char* list_prompt, int& no_select,
                    std::vector<int>& select) {
  std::fprintf(io.out, "%s", count_prompt);
  std::fflush(io.out);
  std::fscanf(io.in, "%d", &no_select);
  if (no_select > kSelectSlots) {
    nerror(format("Too many selection entries (at most %d) ...", kSelectSlots));
  }
  if (no_select < 0) {
    no_select = 0;
  }
  std::fprintf(io.out, "%s", list_prompt);
  std::fflush(io.out);
  for (int i = 1; i <= no_select; ++i) {
    std::fscanf(io.in, "%d", &select[i]);
  }
}

}  // namespace

int routine_calling_NSC(int& no_atom, AtomArrays& atoms, Io& io) {
  // The count is bounded by the arrays: never read past their last slot.
  const int n = std::clamp(no_atom, 0, last_slot(atoms));
  std::vector<Vec3> positions;
  std::vector<int> types;
  positions.reserve(static_cast<std::size_t>(n));
  types.reserve(static_cast<std::size_t>(n));
  for (int i = 1; i <= n; ++i) {
    positions.push_back({atoms.x[i], atoms.y[i], atoms.z[i]});
    types.push_back(atoms.atom[i]);
  }
  Log log;
  log.warning = [&io](std::string_view text) { std::fwrite(text.data(), 1, text.size(), io.err); };
  log.flush = [&io] {
    std::fflush(io.out);
    std::fflush(io.err);
  };
  std::vector<std::size_t> kept;
  if (!classic_surface_atoms(positions, types, kept, log)) {
    std::fprintf(io.out, "error occured\n");
    return 1;
  }
  // Keep the exposed atoms in order, all eight values together.
  std::size_t next = 0;
  no_atom = compact(n, atoms, [&](int i) {
    if (next < kept.size() && kept[next] == static_cast<std::size_t>(i - 1)) {
      ++next;
      return true;
    }
    return false;
  });
  return 0;
}

int remove_protons(int n, AtomArrays& atoms) {
  return compact(n, atoms, [&](int i) { return atoms.atom[i] <= kClassicHeavyAtomMaxIndex; });
}

int remove_residues(int n, AtomArrays& atoms, int no_select, const std::vector<int>& select) {
  const int entries = usable_entries(no_select, select);
  // ok is set once, not per atom: with an empty list it stays 0 and every
  // atom is removed, unlike select_atomtypes; the program has always done so.
  int ok = 0;
  return compact(n, atoms, [&](int i) {
    for (int j = 1; j <= entries; ++j) {
      if (atoms.res_nr[i] == select[j]) {
        ok = 0;
        break;
      }
      ok = 1;
    }
    return ok == 1;
  });
}

int select_atomtypes(int n, AtomArrays& atoms, int no_select, const std::vector<int>& select) {
  const int entries = usable_entries(no_select, select);
  return compact(n, atoms, [&](int i) {
    int ok = 0;
    for (int j = 1; j <= entries; ++j) {
      if (atoms.atom[i] == select[j]) {
        ok = 1;
        break;
      }
    }
    return ok == 1;
  });
}

int select_atoms(int tot_no_atoms, AtomArrays& atoms, const Settings& settings, Io& io) {
  return select_atoms(tot_no_atoms, atoms, settings, io, &routine_calling_NSC);
}

int select_atoms(int tot_no_atoms, AtomArrays& atoms, const Settings& settings, Io& io,
                 SurfaceStep surface) {
  // One list serves both prompts; entries start at 0.
  std::vector<int> select(kSelectSlots + 1, 0);
  int no_select = 0;

  int no_atoms = tot_no_atoms;
  if (settings.H_flag == 0) {
    no_atoms = remove_protons(no_atoms, atoms);
  }

  if (settings.select_flag == 1 || settings.select_flag == 12) {
    read_selection(io, "Number of residues which should be excluded: ",
                   "Residues which should be excluded: ", no_select, select);
    for (int i = 1; i <= no_select; ++i) {
      std::fprintf(io.out, "%d  ", select[i]);
    }
    std::fprintf(io.out, "\n");
    no_atoms = remove_residues(no_atoms, atoms, no_select, select);
  }

  if (settings.select_flag == 2 || settings.select_flag == 12) {
    read_selection(io, "Number of atom types which should be taken into account: ",
                   "Indices for atom types which should be taken into account: ", no_select,
                   select);
    no_atoms = select_atomtypes(no_atoms, atoms, no_select, select);
  }

  if (settings.select_flag == 0 || settings.select_flag == 1) {
    if (surface(no_atoms, atoms, io) != 0) {
      nerror("NSC error occured");
    }
  }
  return no_atoms;
}

}  // namespace vorn
