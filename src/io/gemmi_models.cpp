// Coordinate parsing through gemmi. All of the program's gemmi use is in
// this file: the headers are heavy to compile.
#include "io/gemmi_models.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <unordered_map>

#include "io/atom_record.hpp"
#include "io/input_error.hpp"

// gemmi formats numbers with stb_sprintf unless told to use snprintf; the
// reader never formats numbers, and this spares the stb dependency.
#define USE_STD_SNPRINTF
#include <gemmi/cif.hpp>
#include <gemmi/mmcif.hpp>
#include <gemmi/pdb.hpp>
#include <gemmi/select.hpp>

namespace vorn::io::detail {
namespace {

bool starts_with(const std::string& s, const std::string& prefix) {
  return s.compare(0, prefix.size(), prefix) == 0;
}

// A gemmi error with the file named; gemmi's PDB line numbers count the
// records it was given and become lines of the file.
InputError gemmi_error(const std::string& path, const std::string& what,
                       const std::vector<long>* lines = nullptr) {
  std::string message = what;
  std::replace(message.begin(), message.end(), '\n', ' ');
  while (!message.empty() && message.back() == ' ') message.pop_back();
  const std::string prefix = "Problem in line ";
  if (lines != nullptr && starts_with(message, prefix)) {
    size_t record = 0;
    const char* digits = message.c_str() + prefix.size();
    const auto [end, ec] = std::from_chars(digits, message.c_str() + message.size(), record);
    if (ec == std::errc() && record >= 1 && record <= lines->size()) {
      std::string rest(end);
      if (starts_with(rest, ": ")) rest.erase(0, 2);
      return InputError(path + ":" + std::to_string((*lines)[record - 1]) + ": " + rest);
    }
  }
  if (starts_with(message, path + ":")) return InputError(message);
  return InputError(path + ": " + message);
}

// Only the coordinates are read: the other categories of the block are
// dropped before gemmi builds the structure (their numbers need no check,
// and the structure builds faster).
void keep_atom_site_only(gemmi::cif::Block& block) {
  const auto atom_site = [](const gemmi::cif::Item& item) {
    if (item.type == gemmi::cif::ItemType::Pair) {
      return gemmi::istarts_with(item.pair[0], "_atom_site.");
    }
    return item.type == gemmi::cif::ItemType::Loop && !item.loop.tags.empty() &&
           gemmi::istarts_with(item.loop.tags.front(), "_atom_site.");
  };
  // Moved into a new list: an item moved by construction keeps its line
  // number (gemmi's assignment does not).
  std::vector<gemmi::cif::Item> kept;
  for (gemmi::cif::Item& item : block.items) {
    if (atom_site(item)) kept.push_back(std::move(item));
  }
  block.items = std::move(kept);
}

// gemmi reads the whole-number columns of _atom_site without a range check
// (a value beyond the range of int overflows); such a value is an error of
// the file. The text is that of the number gemmi reads: optional blanks and
// sign, then digits (an author residue number may end in an insertion
// code).
void check_atom_site_integers(gemmi::cif::Block& block, const std::string& path) {
  for (const char* tag : {"id", "label_seq_id", "auth_seq_id", "pdbx_formal_charge"}) {
    const std::string full = std::string("_atom_site.") + tag;
    const gemmi::cif::Column column = block.find_values(full);
    if (!column) continue;
    const int line = column.item() != nullptr ? column.item()->line_number : -1;
    for (const std::string& value : column) {
      std::size_t i = 0;
      while (i < value.size() && (value[i] == ' ' || value[i] == '\t')) ++i;
      if (i < value.size() && (value[i] == '-' || value[i] == '+')) ++i;
      while (i < value.size() && value[i] == '0') ++i;
      std::size_t digits = 0;
      std::int64_t magnitude = 0;
      for (; i < value.size() && value[i] >= '0' && value[i] <= '9'; ++i, ++digits) {
        if (digits < 12) magnitude = magnitude * 10 + (value[i] - '0');
      }
      if (digits > 10 || magnitude > std::numeric_limits<int>::max()) {
        std::string message = path;
        message += ":" + std::to_string(line) + ": ";
        message += full;
        message += " \"" + value;
        message += "\" is out of range (the loop that starts here)";
        throw InputError(message);
      }
    }
  }
}

}  // namespace

struct ModelConverter::Impl {
  std::string path;
  AtomRules rules;
  std::optional<gemmi::Selection> exclude;
  // mmCIF: the structure gemmi builds from the whole document (the text and
  // the document are released once it is built); each model's atoms are
  // released when the model has been converted.
  gemmi::Structure cif;

  std::string where(int number) const { return path + ": model " + std::to_string(number) + ": "; }

  // The atoms of a gemmi model that pass the reading rules, in file order,
  // handed to the sink; returns their number.
  std::size_t convert(const gemmi::Model& model, int number, const AtomSink& sink) const {
    std::size_t atoms = 0;
    std::vector<const gemmi::Atom*> kept;
    std::unordered_map<std::string, size_t> best;  // atom name -> its chosen conformer
    for (const gemmi::Chain& chain : model.chains) {
      if (!rules.chains.empty() &&
          std::find(rules.chains.begin(), rules.chains.end(), chain.name) == rules.chains.end()) {
        continue;
      }
      const bool chain_excluded = exclude && exclude->matches(model) && exclude->matches(chain);
      for (const gemmi::Residue& residue : chain.residues) {
        if (residue.is_water() || (residue.het_flag == 'H' && !rules.hetatm)) continue;
        if (!residue.seqid.num.has_value()) {
          throw InputError(where(number) + "residue " + residue.name + " of chain \"" + chain.name +
                           "\" has no residue number");
        }
        // Alternate locations: one conformer per atom name, placed where the
        // atom's first conformer is.
        kept.clear();
        if (rules.altloc) {
          for (const gemmi::Atom& atom : residue.atoms) {
            if (atom.altloc == '\0' || atom.altloc == *rules.altloc) kept.push_back(&atom);
          }
        } else {
          best.clear();
          for (size_t i = 0; i < residue.atoms.size(); ++i) {
            const gemmi::Atom& atom = residue.atoms[i];
            if (atom.altloc == '\0') continue;
            const auto [it, inserted] = best.try_emplace(atom.name, i);
            if (!inserted && atom.occ > residue.atoms[it->second].occ) it->second = i;
          }
          for (const gemmi::Atom& atom : residue.atoms) {
            if (atom.altloc == '\0') {
              kept.push_back(&atom);
            } else if (const auto it = best.find(atom.name); it != best.end()) {
              kept.push_back(&residue.atoms[it->second]);
              best.erase(it);  // the later conformers of this atom are skipped
            }
          }
        }
        const bool residue_excluded = chain_excluded && exclude->matches(residue);
        for (const gemmi::Atom* atom : kept) {
          if (atom->is_hydrogen() && !rules.keep_hydrogens) continue;
          if (residue_excluded && exclude->matches(*atom)) continue;
          if (!std::isfinite(atom->pos.x) || !std::isfinite(atom->pos.y) ||
              !std::isfinite(atom->pos.z)) {
            throw InputError(where(number) + "atom " + atom->name + " of residue " + residue.name +
                             " " + residue.seqid.str() + " has a coordinate that is not a number");
          }
          // Element names have one or two letters.
          const char* element = atom->element.name();
          char upper[3] = {};
          for (std::size_t c = 0; c < 2 && element[c] != '\0'; ++c) {
            upper[c] = gemmi::alpha_up(element[c]);
          }
          AtomView out;
          out.name = atom->name;
          out.element = upper;
          out.residue_name = residue.name;
          out.residue_number = *residue.seqid.num;
          out.insertion_code = residue.seqid.icode == '\0' ? ' ' : residue.seqid.icode;
          out.chain = chain.name;
          out.x = atom->pos.x;
          out.y = atom->pos.y;
          out.z = atom->pos.z;
          sink(out);
          ++atoms;
        }
      }
    }
    if (atoms == 0) {
      throw InputError(where(number) +
                       "no atoms left (waters, hydrogens, other HETATM records and the "
                       "chain, altloc and exclude choices are applied)");
    }
    return atoms;
  }
};

ModelConverter::ModelConverter(std::string path, AtomRules rules)
    : impl_(std::make_unique<Impl>()) {
  impl_->path = std::move(path);
  impl_->rules = std::move(rules);
  const std::string& text = impl_->rules.exclude;
  if (text.empty()) return;
  try {
    impl_->exclude.emplace(text);
  } catch (const std::exception& e) {
    throw InputError("invalid exclude selection \"" + text + "\": " + e.what());
  }
  // gemmi reads a residue number without a range ("A/52") as the open range
  // "52-"; a single number means that residue alone.
  gemmi::Selection& selection = *impl_->exclude;
  if (text.substr(0, text.find(';')).find('-') == std::string::npos &&
      !selection.from_seqid.empty() && selection.to_seqid.empty()) {
    selection.to_seqid = selection.from_seqid;
  }
}

ModelConverter::~ModelConverter() = default;
ModelConverter::ModelConverter(ModelConverter&&) noexcept = default;
ModelConverter& ModelConverter::operator=(ModelConverter&&) noexcept = default;

std::size_t ModelConverter::pdb_model(const std::string& records, const std::vector<long>& lines,
                                      int number, const AtomSink& sink) const {
  gemmi::Structure structure;
  try {
    structure = gemmi::read_pdb_from_memory(records.data(), records.size(), impl_->path);
  } catch (const std::exception& e) {
    throw gemmi_error(impl_->path, e.what(), &lines);
  }
  // Without MODEL records gemmi names the model "1"; a model number in the
  // exclude selection refers to the file's number.
  gemmi::Model& model = structure.models.front();
  model.name = std::to_string(number);
  return impl_->convert(model, number, sink);
}

std::vector<int> ModelConverter::load_mmcif(std::string text) {
  const std::string& path = impl_->path;
  try {
    gemmi::cif::Document document = gemmi::cif::read_memory(text.data(), text.size(), path.c_str());
    std::string().swap(text);
    if (document.blocks.empty()) throw InputError(path + ": no data block");
    keep_atom_site_only(document.blocks.front());
    check_atom_site_integers(document.blocks.front(), path);
    impl_->cif = gemmi::make_structure(document);
  } catch (const InputError&) {
    throw;
  } catch (const std::exception& e) {
    throw gemmi_error(path, e.what());
  }
  std::vector<int> numbers;
  for (const gemmi::Model& model : impl_->cif.models) {
    int number = 0;
    const char* end = model.name.data() + model.name.size();
    const auto [stop, ec] = std::from_chars(model.name.data(), end, number);
    if (ec != std::errc() || stop != end) {
      throw InputError(path + ": model number \"" + model.name + "\" is not a number");
    }
    if (std::find(numbers.begin(), numbers.end(), number) != numbers.end()) {
      throw InputError(path + ": model " + std::to_string(number) + " appears twice");
    }
    numbers.push_back(number);
  }
  return numbers;
}

std::size_t ModelConverter::mmcif_model(size_t index, const AtomSink& sink) {
  gemmi::Model& model = impl_->cif.models.at(index);
  const std::size_t atoms = impl_->convert(model, std::stoi(model.name), sink);
  std::vector<gemmi::Chain>().swap(model.chains);
  return atoms;
}

std::string ModelConverter::mmcif_topology_records() const {
  const std::string& path = impl_->path;
  if (impl_->cif.models.empty()) throw InputError(path + ": no atoms (no _atom_site records)");
  std::string text;
  int serial = 0;
  for (const gemmi::Chain& chain : impl_->cif.models.front().chains) {
    for (const gemmi::Residue& residue : chain.residues) {
      for (const gemmi::Atom& atom : residue.atoms) {
        RecordAtom a;
        a.hetatm = residue.het_flag == 'H';
        a.name = atom.name;
        a.altloc = atom.altloc == '\0' ? ' ' : atom.altloc;
        a.residue_name = residue.name;
        a.chain = chain.name;
        a.residue_number = residue.seqid.num.has_value() ? residue.seqid.num.value : 0;
        a.insertion_code = residue.seqid.icode;
        a.occupancy = atom.occ;
        a.b_factor = atom.b_iso;
        a.element = atom.element.uname();
        try {
          append_atom_record(a, ++serial, text);
        } catch (const InputError& e) {
          throw InputError(path + ": atom " + std::to_string(serial) + ": " + e.what());
        }
      }
    }
  }
  if (serial == 0) throw InputError(path + ": no atoms (no _atom_site records)");
  return text;
}

}  // namespace vorn::io::detail
