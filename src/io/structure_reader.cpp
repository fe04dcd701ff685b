// File access, format detection and model streaming of the structure reader;
// the records are parsed by gemmi in gemmi_models.cpp.
#include "io/structure_reader.hpp"

#include <zlib.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <functional>
#include <set>
#include <sstream>

#include "io/atom_record.hpp"
#include "io/gemmi_models.hpp"
#include "io/gro_reader.hpp"
#include "io/trajectory_reader.hpp"

namespace vorn::io {
namespace {

// The coordinates of a .gro file read as a structure: one frame of its own
// topology.
class GroCoordinates : public TrajectoryReader {
 public:
  explicit GroCoordinates(const GroFile& gro) {
    for (const GroAtom& a : gro.atoms) positions_.push_back(a.position);
  }
  int atoms() const override { return static_cast<int>(positions_.size()); }
  long frame() const override { return frame_; }
  bool next(std::vector<Vec3>& positions) override {
    if (frame_ > 0) return false;
    positions = positions_;
    frame_ = 1;
    return true;
  }
  bool skip() override {
    if (frame_ > 0) return false;
    frame_ = 1;
    return true;
  }
  std::string format_name() const override { return "GRO"; }

 private:
  std::vector<Vec3> positions_;
  long frame_ = 0;
};

// Characters of a PDB line that are kept; gemmi looks at the first 120.
constexpr size_t kLineLimit = 128;

InputError error_at(const std::string& path, long line, const std::string& what) {
  return InputError(path + ":" + std::to_string(line) + ": " + what);
}

struct GzClose {
  void operator()(gzFile f) const { gzclose(f); }
};

// A file read through zlib, which passes files that are not compressed
// through unchanged.
class InputFile {
 public:
  explicit InputFile(const std::string& path) : path_(path) {
    std::error_code ec;
    if (std::filesystem::is_directory(path, ec)) throw InputError(path + ": is a directory");
    errno = 0;
    file_.reset(gzopen(path.c_str(), "rb"));
    if (!file_) {
      throw InputError(path +
                       ": cannot open: " + (errno != 0 ? std::strerror(errno) : "out of memory"));
    }
  }

  // Reads up to `size` bytes; 0 at the end. Throws on read and gzip errors
  // (a truncated gzip stream included).
  size_t read(char* data, size_t size) {
    const int n = gzread(file_.get(), data, static_cast<unsigned>(size));
    int code = Z_OK;
    const char* message = gzerror(file_.get(), &code);
    if (n < 0 || (code != Z_OK && code != Z_STREAM_END)) {
      std::string what = code == Z_ERRNO ? std::strerror(errno) : std::string(message);
      // zlib names the file in front of its own message.
      if (what.rfind(path_ + ": ", 0) == 0) what.erase(0, path_.size() + 2);
      throw InputError(path_ + ": read error: " + what);
    }
    return static_cast<size_t>(n);
  }

  // The whole (uncompressed) content.
  std::string read_all() {
    std::string text;
    char buffer[1 << 16];
    while (const size_t n = read(buffer, sizeof buffer)) text.append(buffer, n);
    return text;
  }

 private:
  std::string path_;
  std::unique_ptr<gzFile_s, GzClose> file_;
};

// The lines of a file, without line ends; each cut to kLineLimit characters.
class LineReader {
 public:
  explicit LineReader(const std::string& path) : file_(path) {}

  // The next line, valid until the next call: a view into the read buffer
  // when the line lies whole in it (the common case: no copy), else the
  // line gathered across buffer refills.
  bool next(std::string_view& line) {
    carry_.clear();
    bool any = false;
    while (true) {
      if (begin_ == end_) {
        begin_ = 0;
        end_ = file_.read(buffer_.data(), buffer_.size());
        if (end_ == 0) break;
      }
      any = true;
      const char* start = buffer_.data() + begin_;
      const auto* newline = static_cast<const char*>(std::memchr(start, '\n', end_ - begin_));
      const size_t n = newline != nullptr ? static_cast<size_t>(newline - start) : end_ - begin_;
      if (newline != nullptr && carry_.empty()) {
        begin_ += n + 1;
        return finish(std::string_view(start, std::min(n, kLineLimit)), line);
      }
      if (carry_.size() < kLineLimit) carry_.append(start, std::min(n, kLineLimit - carry_.size()));
      begin_ += n;
      if (newline != nullptr) {
        ++begin_;
        break;
      }
    }
    if (!any) return false;
    return finish(carry_, line);
  }

  long number() const { return number_; }

 private:
  bool finish(std::string_view text, std::string_view& line) {
    if (!text.empty() && text.back() == '\r') text.remove_suffix(1);
    line = text;
    ++number_;
    return true;
  }

  InputFile file_;
  std::vector<char> buffer_ = std::vector<char>(1 << 16);
  std::string carry_;
  size_t begin_ = 0;
  size_t end_ = 0;
  long number_ = 0;
};

// The record tests of gemmi's PDB reader, so that the records cut out here
// are those gemmi reads: the record name's first four characters, ignoring
// case; a three-letter name ("TER", "END") is followed by a blank, a control
// character or punctuation, or nothing.
bool is_record(std::string_view line, std::string_view name) {
  for (size_t i = 0; i < 4 && i < name.size(); ++i) {
    const char c = i < line.size() ? line[i] : '\0';
    if ((c & ~0x20) != (name[i] & ~0x20)) return false;
  }
  if (name.size() == 3) return line.size() < 4 || (line[3] & ~0x2f) == 0;
  return true;
}

bool is_atom_record(std::string_view line) {
  return is_record(line, "ATOM") || is_record(line, "HETATM");
}

// True for a field that holds one number and blanks around it.
bool is_number_field(std::string_view field) {
  while (!field.empty() && field.front() == ' ') field.remove_prefix(1);
  while (!field.empty() && field.back() == ' ') field.remove_suffix(1);
  // The form of nearly every coordinate, [-]digits.digits, is a number
  // without further ado; anything else is left to from_chars.
  {
    size_t i = !field.empty() && field[0] == '-' ? 1 : 0;
    const auto digits = [&] {
      const size_t first = i;
      while (i < field.size() && field[i] >= '0' && field[i] <= '9') ++i;
      return i > first;
    };
    if (digits() && i < field.size() && field[i] == '.' && (++i, digits()) && i == field.size()) {
      return true;
    }
  }
  double value = 0.0;
  const auto [end, ec] = std::from_chars(field.data(), field.data() + field.size(), value);
  return !field.empty() && ec == std::errc() && end == field.data() + field.size();
}

// The atom records of one model of a PDB file.
struct PdbChunk {
  int number = 0;
  std::string text;         // ATOM, HETATM and TER records, one a line
  std::vector<long> lines;  // the file line of each record of `text`
};

// Cuts a PDB file into models at MODEL/ENDMDL records, reading it line by
// line, so that one model at a time is in memory. Only the atom records are
// kept: nothing in the header changes the atoms. Atom records outside
// MODEL/ENDMDL form models numbered on from the previous one (1 for the
// first), as in single-model files and in trajectories without MODEL records.
class PdbSplitter {
 public:
  explicit PdbSplitter(const std::string& path) : path_(path), in_(path) {}

  // Reads up to the end of the next model; its records are stored only when
  // keep(number) is true. False when no model is left.
  bool next(PdbChunk& chunk, const std::function<bool(int)>& keep) {
    chunk.text.clear();
    chunk.lines.clear();
    bool open = false;
    bool kept = false;
    bool by_record = false;  // opened by a MODEL record: must end with ENDMDL or END
    const auto start = [&](int number) {
      if (!seen_.insert(number).second) {
        throw error_at(path_, in_.number(), "model " + std::to_string(number) + " appears twice");
      }
      chunk.number = last_number_ = number;
      open = true;
      kept = keep(number);
    };
    std::string_view line;
    const auto next_line = [&] {
      try {
        return in_.next(line);
      } catch (const InputError& e) {
        // A file that cannot be read on (a truncated gzip stream) inside a
        // model: the line and the model where it stops.
        if (!open) throw;
        std::string what = e.what();
        if (what.rfind(path_ + ": ", 0) == 0) what.erase(0, path_.size() + 2);
        throw error_at(path_, in_.number() + 1,
                       what + " (model " + std::to_string(chunk.number) + ")");
      }
    };
    while (!ended_ && next_line()) {
      const bool atom = is_atom_record(line);
      if (atom || (open && is_record(line, "TER"))) {
        if (!open) start(last_number_ + 1);
        if (kept) {
          try {
            if (atom) {
              append_fixed_column_record(line, chunk.text);
            } else {
              chunk.text += line;
            }
          } catch (const InputError& e) {
            throw InputError(std::string(e.what()) + " (model " + std::to_string(chunk.number) +
                             ")");
          }
          chunk.text += '\n';
          chunk.lines.push_back(in_.number());
        }
      } else if (is_record(line, "MODEL")) {
        if (open) {
          throw error_at(
              path_, in_.number(),
              "MODEL record inside model " + std::to_string(chunk.number) + " (ENDMDL missing)");
        }
        start(model_number(line));
        by_record = true;
      } else if (is_record(line, "ENDMDL")) {
        if (open) return true;
      } else if (is_record(line, "END")) {
        ended_ = true;
      }
    }
    // A model opened by MODEL that the file leaves without ENDMDL or END was
    // cut off; one without MODEL records is complete at the end of the file.
    if (open && by_record && !ended_) {
      throw error_at(path_, in_.number(),
                     "model " + std::to_string(chunk.number) +
                         " has no ENDMDL: the file ends inside it (truncated?)");
    }
    return open;
  }

 private:
  int model_number(std::string_view line) const {
    std::string_view rest(line);
    rest.remove_prefix(std::min<size_t>(rest.size(), 6));
    while (!rest.empty() && std::isspace(static_cast<unsigned char>(rest.front())))
      rest.remove_prefix(1);
    while (!rest.empty() && std::isspace(static_cast<unsigned char>(rest.back())))
      rest.remove_suffix(1);
    int number = 0;
    const auto [end, ec] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
    if (rest.empty() || ec != std::errc() || end != rest.data() + rest.size()) {
      throw error_at(path_, in_.number(), "MODEL record without a valid model number");
    }
    return number;
  }

  // gemmi reads the coordinates from columns 31-54. A record whose three
  // fields there hold one number each is a fixed-column record and passes as
  // it is. Otherwise the record is taken as blank-separated tokens, the
  // layout older programs write: ATOM serial name residue [chain] number x y
  // z [...]; it is rewritten in fixed columns with the same coordinate text
  // (so the numbers read are those of the tokens, bit for bit) and the
  // element from the name's first letter. Anything else is an error. The
  // record is appended to `text`.
  void append_fixed_column_record(std::string_view line, std::string& text) const {
    bool fixed = line.size() >= 54;
    for (size_t column = 30; fixed && column < 54; column += 8) {
      fixed = is_number_field(line.substr(column, 8));
    }
    if (fixed || (line.size() < 54 && !has_tokens(line))) {
      text += line;
      return;
    }
    std::vector<std::string> t;
    std::istringstream fields{std::string(line)};
    for (std::string token; fields >> token;) t.push_back(token);
    const auto is_integer = [](const std::string& text) {
      int value = 0;
      const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
      return ec == std::errc() && end == text.data() + text.size();
    };
    size_t at = 4;  // residue number
    std::string chain;
    if (t.size() >= 9 && !is_integer(t[4]) && is_integer(t[5])) {
      chain = t[4];
      at = 5;
    }
    const bool usable = t.size() >= at + 4 && is_integer(t[1]) && is_integer(t[at]) &&
                        t[2].size() <= 4 && t[3].size() <= 3 && chain.size() <= 1 &&
                        t[at].size() <= 4;
    bool numbers = usable;
    for (size_t i = at + 1; numbers && i <= at + 3; ++i) {
      numbers = t[i].size() <= 8 && is_number_field(t[i]);
    }
    if (!numbers) {
      throw error_at(path_, in_.number(),
                     "neither a fixed-column PDB record nor 'ATOM serial name residue [chain] "
                     "number x y z'");
    }
    const std::string& name = t[2];
    std::string element;
    for (char c : name) {
      if (std::isalpha(static_cast<unsigned char>(c))) {
        element = std::string(1, static_cast<char>(std::toupper(static_cast<unsigned char>(c))));
        break;
      }
    }
    // Names of four characters or starting with a digit begin in column 13,
    // the others in column 14, as in the archive's files.
    const bool wide = name.size() == 4 || std::isdigit(static_cast<unsigned char>(name[0]));
    char record[81];
    std::snprintf(record, sizeof record,
                  "%-6s%5.5s %-4s %3s %1s%4s    %8s%8s%8s  1.00  0.00          %2s",
                  t[0].substr(0, 6).c_str(), t[1].substr(0, 5).c_str(),
                  (wide ? name : " " + name).c_str(), t[3].c_str(), chain.c_str(), t[at].c_str(),
                  t[at + 1].c_str(), t[at + 2].c_str(), t[at + 3].c_str(), element.c_str());
    text += record;
  }

  static bool has_tokens(std::string_view line) {
    std::istringstream fields{std::string(line)};
    int count = 0;
    for (std::string token; fields >> token;) ++count;
    return count >= 8;
  }

  std::string path_;
  LineReader in_;
  std::set<int> seen_;
  int last_number_ = 0;
  bool ended_ = false;
};

// The file format from the first significant line: mmCIF starts with a data
// block, PDB with one of its record names.
std::optional<Format> format_from_content(const std::string& path) {
  static const std::set<std::string> kPdbRecords = {
      "HEADER", "OBSLTE", "TITLE",  "SPLIT",  "CAVEAT", "COMPND", "SOURCE", "KEYWDS", "EXPDTA",
      "NUMMDL", "MDLTYP", "AUTHOR", "REVDAT", "SPRSDE", "JRNL",   "REMARK", "DBREF",  "DBREF1",
      "DBREF2", "SEQADV", "SEQRES", "MODRES", "HET",    "HETNAM", "HETSYN", "FORMUL", "HELIX",
      "SHEET",  "SSBOND", "LINK",   "CISPEP", "SITE",   "CRYST1", "ORIGX1", "SCALE1", "MTRIX1",
      "MODEL",  "ATOM",   "ANISOU", "TER",    "HETATM", "ENDMDL", "CONECT", "MASTER", "END"};
  LineReader in(path);
  std::string_view view;
  while (in.next(view)) {
    const std::string line(view);
    const size_t first = line.find_first_not_of(" \t");
    if (first == std::string::npos || line[first] == '#') continue;
    std::string start = line.substr(first, 5);
    std::transform(start.begin(), start.end(), start.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (start == "data_") {
      return Format::Mmcif;
    }
    const std::string word = line.substr(0, line.find_first_of(" \t"));
    if (kPdbRecords.count(word) != 0) return Format::Pdb;
    return std::nullopt;
  }
  return std::nullopt;
}

std::optional<Format> format_from_extension(std::string path) {
  std::transform(path.begin(), path.end(), path.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (path.ends_with(".gz")) path.resize(path.size() - 3);
  const std::string extension = std::filesystem::path(path).extension().string();
  if (extension == ".pdb" || extension == ".ent") return Format::Pdb;
  if (extension == ".cif" || extension == ".mmcif" || extension == ".mcif") return Format::Mmcif;
  return std::nullopt;
}

std::vector<std::string> split_chain_list(const std::string& text) {
  std::vector<std::string> chains;
  if (text.empty()) return chains;
  size_t begin = 0;
  while (true) {
    const size_t comma = text.find(',', begin);
    std::string item = text.substr(begin, comma - begin);
    item.erase(0, item.find_first_not_of(' '));
    item.erase(item.find_last_not_of(' ') + 1);
    if (item.empty()) throw InputError("invalid chain list \"" + text + "\": empty item");
    chains.push_back(item);
    if (comma == std::string::npos) break;
    begin = comma + 1;
  }
  return chains;
}

}  // namespace

struct StructureReader::Impl {
  std::string path;
  ReadOptions options;
  Format format = Format::Pdb;
  std::optional<detail::ModelConverter> converter;
  bool any_selected = false;  // a selected model was met, handed out or not
  long position = 0;          // selected models met so far

  std::optional<PdbSplitter> pdb;  // PDB: the models not read yet
  PdbChunk chunk;

  std::vector<int> cif_numbers;  // mmCIF: the model numbers in file order
  size_t cif_next = 0;

  // A trajectory: its frames in place of the coordinates of the file's
  // first model (its records, and where each atom record starts). mmCIF
  // and .gro topologies are turned into PDB records first.
  std::unique_ptr<TrajectoryReader> trajectory;
  bool gro_topology = false;
  PdbChunk topology;
  std::vector<size_t> atom_records;
  std::vector<Vec3> frame;

  void open_trajectory() {
    if (!options.models.empty()) {
      throw InputError(path + (options.trajectory.empty()
                                   ? ": a .gro file is one model: models cannot be selected"
                                   : ": models cannot be selected with a trajectory (frames can)"));
    }
    if (gro_topology) {
      const GroFile gro = read_gro(path);
      // A .gro file alone is a structure: its own coordinates, one model.
      if (options.trajectory.empty()) trajectory = std::make_unique<GroCoordinates>(gro);
      for (size_t i = 0; i < gro.atoms.size(); ++i) {
        const GroAtom& g = gro.atoms[i];
        RecordAtom a;
        a.name = g.name;
        a.residue_name = g.residue_name;
        a.residue_number = g.residue_number;
        try {
          append_atom_record(a, static_cast<int>(i + 1), topology.text);
        } catch (const InputError& e) {
          throw error_at(path, static_cast<long>(i + 3), e.what());
        }
        topology.lines.push_back(static_cast<long>(i + 3));
      }
    } else if (format == Format::Mmcif) {
      converter->load_mmcif(InputFile(path).read_all());
      topology.text = converter->mmcif_topology_records();
      // Records numbered in order: an mmCIF line is not a record.
      const auto records = std::count(topology.text.begin(), topology.text.end(), '\n');
      for (long i = 1; i <= records; ++i) topology.lines.push_back(i);
    } else {
      PdbSplitter split(path);
      if (!split.next(topology, [](int) { return true; })) {
        throw InputError(path + ": no atoms (no ATOM or HETATM records)");
      }
    }
    size_t begin = 0;
    for (size_t i = 0; begin < topology.text.size(); ++i) {
      const size_t end = topology.text.find('\n', begin);
      const std::string_view line(topology.text.data() + begin, end - begin);
      if (is_atom_record(line)) {
        if (line.size() < 54) {
          throw error_at(path, topology.lines[i], "atom record without coordinates");
        }
        atom_records.push_back(begin);
      }
      begin = end + 1;
    }
    if (!trajectory) trajectory = vorn::io::open_trajectory(options.trajectory);
    if (static_cast<size_t>(trajectory->atoms()) != atom_records.size()) {
      throw InputError(options.trajectory + ": " + std::to_string(trajectory->atoms()) +
                       " atoms, but the topology " + path + " has " +
                       std::to_string(atom_records.size()));
    }
  }

  bool next_frame(UnparsedModel& out) {
    for (;;) {
      const long number = trajectory->frame() + 1;
      if (options.last_frame > 0 && number > options.last_frame) return false;
      const bool selected =
          number >= options.first_frame && (number - options.first_frame) % options.frame_step == 0;
      bool ours = false;
      if (selected) {
        any_selected = true;
        ours = next_is_ours();
        ++position;
      }
      if (!ours) {
        if (!trajectory->skip()) return false;
        continue;
      }
      if (!trajectory->next(frame)) return false;
      out.number = static_cast<int>(number);
      out.parsed = false;
      out.atoms.clear();
      out.records.clear();
      out.lines.clear();
      // The records are written in parse(), on the thread that parses.
      std::swap(out.frame, frame);
      return true;
    }
  }

  // The topology's records with the coordinates of a frame, at the PDB's own
  // precision, so that the reading rules apply to a frame as to any model.
  void frame_records(UnparsedModel& model) const {
    model.records = topology.text;
    model.lines = topology.lines;
    for (size_t i = 0; i < atom_records.size(); ++i) {
      const Vec3& p = model.frame[i];
      for (const double v : {p.x, p.y, p.z}) {
        if (!(v > -999.9995 && v < 9999.9995)) {
          throw InputError((options.trajectory.empty() ? path : options.trajectory) + ": frame " +
                           std::to_string(model.number) + ": coordinate " + std::to_string(v) +
                           " of atom " + std::to_string(i + 1) + " outside the PDB range");
        }
      }
      char* field = model.records.data() + atom_records[i] + 30;
      format_coordinate(p.x, field);
      format_coordinate(p.y, field + 8);
      format_coordinate(p.z, field + 16);
    }
  }

  bool wanted(int number) const {
    return options.models.empty() ||
           std::binary_search(options.models.begin(), options.models.end(), number);
  }

  // True when the next selected model belongs to this reader's share.
  bool next_is_ours() const { return position % options.stride == options.offset; }

  void check_models_present(std::vector<int> in_file) const {
    std::sort(in_file.begin(), in_file.end());
    for (const int number : options.models) {
      if (!std::binary_search(in_file.begin(), in_file.end(), number)) {
        throw InputError(
            path + ": no model " + std::to_string(number) + " (the file has " +
            (in_file.empty() ? std::string("no models") : "models " + format_model_list(in_file)) +
            ")");
      }
    }
  }

  void open_pdb() {
    if (!options.models.empty()) {
      // One pass over the file first, so that an unknown model number is
      // reported before any model is read.
      PdbSplitter scan(path);
      std::vector<int> numbers;
      PdbChunk skipped;
      while (scan.next(skipped, [](int) { return false; })) numbers.push_back(skipped.number);
      check_models_present(numbers);
    }
    pdb.emplace(path);
  }

  bool next_pdb(UnparsedModel& out) {
    // Only the models handed out keep their records; the splitter skips the
    // others line by line.
    const auto keep = [this](int number) { return wanted(number) && next_is_ours(); };
    for (;;) {
      if (!pdb->next(chunk, keep)) return false;
      if (!wanted(chunk.number)) continue;
      any_selected = true;
      const bool ours = next_is_ours();
      ++position;
      if (ours) break;
    }
    out.number = chunk.number;
    out.parsed = false;
    out.atoms.clear();
    std::swap(out.records, chunk.text);
    std::swap(out.lines, chunk.lines);
    return true;
  }

  bool next_mmcif(UnparsedModel& out) {
    while (cif_next < cif_numbers.size()) {
      const size_t index = cif_next++;
      if (!wanted(cif_numbers[index])) continue;
      any_selected = true;
      const bool ours = next_is_ours();
      ++position;
      if (!ours) continue;  // not converted
      out.number = cif_numbers[index];
      out.parsed = true;
      out.records.clear();
      out.lines.clear();
      out.atoms.clear();
      converter->mmcif_model(index, append_to(out.atoms));
      return true;
    }
    return false;
  }

  // A sink that appends the converter's atoms to `atoms`.
  static detail::AtomSink append_to(std::vector<vorn::Atom>& atoms) {
    return [&atoms](const detail::AtomView& a) {
      atoms.push_back({std::string(a.name), std::string(a.element), std::string(a.residue_name),
                       a.residue_number, a.insertion_code, std::string(a.chain),
                       vorn::Vec3{a.x, a.y, a.z}});
    };
  }
};

StructureReader::StructureReader(const std::string& path, ReadOptions options,
                                 std::optional<Format> format)
    : impl_(std::make_unique<Impl>()) {
  Impl& d = *impl_;
  d.path = path;
  d.options = std::move(options);
  if (d.options.stride < 1 || d.options.offset < 0 || d.options.offset >= d.options.stride) {
    throw InputError(path + ": invalid share of the models (stride " +
                     std::to_string(d.options.stride) + ", offset " +
                     std::to_string(d.options.offset) + ")");
  }
  std::sort(d.options.models.begin(), d.options.models.end());
  detail::AtomRules rules;
  rules.altloc = d.options.altloc;
  rules.hetatm = d.options.hetatm;
  rules.keep_hydrogens = d.options.keep_hydrogens;
  rules.chains = split_chain_list(d.options.chains);
  rules.exclude = d.options.exclude;
  d.converter.emplace(path, std::move(rules));
  // A .gro file becomes PDB records: a trajectory's topology, or alone a
  // structure of one model (its own coordinates as the one frame).
  d.gro_topology = !format && is_gro_file(path);
  if (d.gro_topology) format = Format::Pdb;
  if (!format) format = format_from_content(path);
  if (!format) format = format_from_extension(path);
  if (!format) throw InputError(path + ": unknown format (neither PDB nor mmCIF)");
  d.format = *format;
  if (!d.options.trajectory.empty() || d.gro_topology) {
    d.open_trajectory();
  } else if (d.format == Format::Pdb) {
    d.open_pdb();
  } else {
    d.cif_numbers = d.converter->load_mmcif(InputFile(path).read_all());
    d.check_models_present(d.cif_numbers);
  }
}

StructureReader::~StructureReader() = default;
StructureReader::StructureReader(StructureReader&&) noexcept = default;
StructureReader& StructureReader::operator=(StructureReader&&) noexcept = default;

bool StructureReader::next(Model& model) {
  UnparsedModel unparsed;
  if (!next_unparsed(unparsed)) return false;
  model = parse(std::move(unparsed));
  return true;
}

Model StructureReader::parse(UnparsedModel&& unparsed) const {
  Model model;
  model.number = unparsed.number;
  if (unparsed.parsed) {
    model.atoms = std::move(unparsed.atoms);
    return model;
  }
  const Impl& d = *impl_;
  if (d.trajectory) d.frame_records(unparsed);
  try {
    // About one atom per record.
    model.atoms.reserve(unparsed.lines.size());
    d.converter->pdb_model(unparsed.records, unparsed.lines, unparsed.number,
                           Impl::append_to(model.atoms));
  } catch (const InputError& e) {
    throw InputError(std::string(e.what()) + " (model " + std::to_string(unparsed.number) + ")");
  }
  return model;
}

bool StructureReader::next_unparsed(UnparsedModel& model) {
  Impl& d = *impl_;
  if (d.trajectory) return d.next_frame(model);
  const bool got = d.format == Format::Pdb ? d.next_pdb(model) : d.next_mmcif(model);
  if (!got && !d.any_selected) {
    throw InputError(d.path + ": no atoms (no " +
                     (d.format == Format::Pdb ? "ATOM or HETATM records" : "_atom_site records") +
                     ")");
  }
  return got;
}

Format StructureReader::format() const { return impl_->format; }

std::string StructureReader::format_name() const {
  if (impl_->trajectory) return impl_->trajectory->format_name();
  return impl_->format == Format::Pdb ? "PDB" : "mmCIF";
}

void parse_frame_range(const std::string& text, ReadOptions& options) {
  const auto invalid = [&](const std::string& why) {
    return InputError("invalid frame range \"" + text + "\": " + why +
                      " (expected first:last[:step])");
  };
  std::vector<std::string> parts;
  size_t begin = 0;
  for (;;) {
    const size_t colon = text.find(':', begin);
    parts.push_back(text.substr(begin, colon - begin));
    if (colon == std::string::npos) break;
    begin = colon + 1;
  }
  if (parts.size() < 2 || parts.size() > 3) throw invalid("two or three fields");
  const auto number = [&](const std::string& field, long empty) {
    if (field.empty()) return empty;
    long value = 0;
    const auto [end, ec] = std::from_chars(field.data(), field.data() + field.size(), value);
    if (ec != std::errc() || end != field.data() + field.size() || value < 1) {
      throw invalid("\"" + field + "\" is not a positive number");
    }
    return value;
  };
  options.first_frame = number(parts[0], 1);
  options.last_frame = number(parts[1], 0);
  options.frame_step = parts.size() == 3 ? number(parts[2], 1) : 1;
  if (options.last_frame > 0 && options.last_frame < options.first_frame) {
    throw invalid("last before first");
  }
}

bool is_trajectory_file(const std::string& path) {
  TrajectoryFormat format{};
  return trajectory_format_of(path, format);
}

}  // namespace vorn::io
