// vorn-make-ensemble: writes an N-model PDB file for tests and timings, in
// one of two modes.
//
//   vorn-make-ensemble --models N --seed S [--sigma A] [--input FILE] OUTPUT
//
// Each model is one structure (by default model 1 of the bundled ubiquitin
// NMR bundle) moved by a random rigid motion (a uniform random rotation about
// its centroid and a translation of up to 3 A per axis) and perturbed by
// Gaussian noise on every coordinate. The input is read with a plain
// fixed-column parse of the ATOM records of its first model: a generator of
// test data, not a reader for users' files.
//
//   vorn-make-ensemble --coil SEQUENCE --models N [--seed S] OUTPUT
//
// Each model is a disordered conformer of the chain of one-letter SEQUENCE
// with all its hydrogens (coil_chain.hpp, docs/coil.md).
//
// The output is a function of the seed alone: the random numbers come from
// std::mt19937_64 (its output fixed by the standard) through conversions
// written here, not through the library's distributions. An OUTPUT ending in
// .gz is written gzip-compressed.
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "coil_chain.hpp"
#include "ensemble_output.hpp"
#include "seeded_random.hpp"

#ifndef VORN_DEFAULT_ENSEMBLE_INPUT
#define VORN_DEFAULT_ENSEMBLE_INPUT "tests/data/raw/1D3Z_raw_10models.pdb"
#endif

namespace {

using vorn_tools::format_line;

constexpr double kMaxShift = 3.0;  // translation per axis, A

struct Options {
  long models = 0;
  std::uint64_t seed = 0;
  double sigma = 0.2;
  std::string input = VORN_DEFAULT_ENSEMBLE_INPUT;
  std::string output;
  std::string coil;  // the sequence of the coil mode; empty in the other
};

struct AtomRecord {
  std::string head;  // columns 1-30 of the ATOM record
  std::string tail;  // columns 55-76 (occupancy, B factor), blank-padded
  std::string element;
  std::array<double, 3> xyz;
};

[[noreturn]] void usage_error(const std::string& message) {
  std::fprintf(stderr,
               "vorn-make-ensemble: %s\n"
               "usage: vorn-make-ensemble --models N --seed S [--sigma A] [--input FILE] OUTPUT\n"
               "       vorn-make-ensemble --coil SEQUENCE --models N [--seed S] OUTPUT\n",
               message.c_str());
  std::exit(2);
}

long parse_count(const std::string& text) {
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || errno != 0 || value < 1 || value > 1000000) {
    usage_error("--models takes a whole number from 1 to 1000000, not '" + text + "'");
  }
  return value;
}

std::uint64_t parse_seed(const std::string& text) {
  char* end = nullptr;
  errno = 0;
  const unsigned long long value = std::strtoull(text.c_str(), &end, 10);
  if (text.empty() || text[0] == '-' || *end != '\0' || errno != 0) {
    usage_error("--seed takes a whole number from 0 to 2^64 - 1, not '" + text + "'");
  }
  return value;
}

double parse_sigma(const std::string& text) {
  char* end = nullptr;
  errno = 0;
  const double value = std::strtod(text.c_str(), &end);
  if (text.empty() || *end != '\0' || errno != 0 || !(value >= 0.0) || value > 10.0) {
    usage_error("--sigma takes a length from 0 to 10 A, not '" + text + "'");
  }
  return value;
}

Options parse_options(int argc, char** argv) {
  Options opt;
  bool have_models = false, have_seed = false, have_rigid_option = false;
  for (int k = 1; k < argc; ++k) {
    const std::string arg = argv[k];
    auto value = [&]() -> std::string {
      if (k + 1 >= argc) usage_error(arg + " needs a value");
      return argv[++k];
    };
    if (arg == "-h" || arg == "--help") {
      std::printf(
          "usage: vorn-make-ensemble --models N --seed S [--sigma A] [--input FILE] OUTPUT\n"
          "       vorn-make-ensemble --coil SEQUENCE --models N [--seed S] OUTPUT\n"
          "Writes N models of the first model of FILE (default %s), each rotated\n"
          "uniformly at random about its centroid, shifted by up to %.0f A per axis and\n"
          "perturbed by Gaussian noise of sigma A (default 0.2) per coordinate.\n"
          "With --coil: N disordered conformers of the chain of one-letter SEQUENCE (ideal\n"
          "geometry, coil-library backbone dihedrals, one rotamer per side chain, all\n"
          "hydrogens, no clashes; seed 0 unless given; docs/coil.md).\n"
          "OUTPUT ending in .gz is gzip-compressed. The same seed gives the same bytes.\n",
          VORN_DEFAULT_ENSEMBLE_INPUT, kMaxShift);
      std::exit(0);
    } else if (arg == "--models") {
      opt.models = parse_count(value());
      have_models = true;
    } else if (arg == "--seed") {
      opt.seed = parse_seed(value());
      have_seed = true;
    } else if (arg == "--sigma") {
      opt.sigma = parse_sigma(value());
      have_rigid_option = true;
    } else if (arg == "--input") {
      opt.input = value();
      have_rigid_option = true;
    } else if (arg == "--coil") {
      opt.coil = value();
      if (opt.coil.empty()) usage_error("--coil needs a sequence of one-letter codes");
    } else if (!arg.empty() && arg[0] == '-') {
      usage_error("unknown option " + arg);
    } else if (opt.output.empty()) {
      opt.output = arg;
    } else {
      usage_error("more than one output file");
    }
  }
  if (!have_models) usage_error("--models is required");
  if (!opt.coil.empty()) {
    if (have_rigid_option) usage_error("--sigma and --input do not apply to --coil");
  } else if (!have_seed) {
    usage_error("--seed is required");
  }
  if (opt.output.empty()) usage_error("no output file");
  return opt;
}

std::string columns(const std::string& line, std::size_t first, std::size_t count) {
  std::string field = first < line.size() ? line.substr(first, count) : std::string();
  field.resize(count, ' ');
  return field;
}

std::string trimmed(const std::string& s) {
  const std::size_t a = s.find_first_not_of(' ');
  if (a == std::string::npos) return "";
  return s.substr(a, s.find_last_not_of(' ') - a + 1);
}

// ATOM records of the first model: name and residue fields (columns 1-30)
// and occupancy/B factor (55-66) kept verbatim, coordinates from 31-38,
// 39-46, 47-54, the element from 77-78 (or, when blank, the first letter of
// the atom name).
std::vector<AtomRecord> read_first_model(const std::string& path) {
  std::ifstream in(path);
  if (!in) throw std::runtime_error("cannot open " + path);
  std::vector<AtomRecord> atoms;
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.rfind("ENDMDL", 0) == 0) break;
    if (line.rfind("ATOM  ", 0) != 0) continue;
    if (line.size() < 54) throw std::runtime_error("short ATOM record in " + path + ": " + line);
    AtomRecord a;
    a.head = line.substr(0, 30);
    a.tail = columns(line, 54, 22);
    for (int c = 0; c < 3; ++c) {
      const std::string field = line.substr(30 + 8 * static_cast<std::size_t>(c), 8);
      char* end = nullptr;
      a.xyz[c] = std::strtod(field.c_str(), &end);
      if (end == field.c_str() || !std::isfinite(a.xyz[c])) {
        throw std::runtime_error("bad coordinate in " + path + ": " + line);
      }
    }
    a.element = trimmed(columns(line, 76, 2));
    if (a.element.empty()) {
      const std::string name = trimmed(columns(line, 12, 4));
      for (const char ch : name) {
        if ((ch >= 'A' && ch <= 'Z') || (ch >= 'a' && ch <= 'z')) {
          a.element = std::string(1, ch);
          break;
        }
      }
    }
    atoms.push_back(a);
  }
  if (atoms.empty()) throw std::runtime_error("no ATOM records in " + path);
  return atoms;
}

void write_ensemble(const Options& opt, const std::vector<AtomRecord>& atoms) {
  std::array<double, 3> centroid{0.0, 0.0, 0.0};
  for (const AtomRecord& a : atoms) {
    for (int c = 0; c < 3; ++c) centroid[c] += a.xyz[c];
  }
  for (double& c : centroid) c /= static_cast<double>(atoms.size());

  vorn_tools::SeededRandom rng(opt.seed);
  vorn_tools::Output out(opt.output);
  out.write(format_line("REMARK   1 VORN-MAKE-ENSEMBLE MODELS %ld SEED %llu SIGMA %.4f\n",
                        opt.models, static_cast<unsigned long long>(opt.seed), opt.sigma));
  std::string block;
  for (long m = 1; m <= opt.models; ++m) {
    const std::array<double, 9> r = rng.rotation();
    double shift[3];
    for (double& s : shift) s = kMaxShift * rng.symmetric();
    block.clear();
    // Serials beyond the four columns of the record run on to the right, as
    // trajectory writers do.
    block += format_line("MODEL     %4ld\n", m);
    for (const AtomRecord& a : atoms) {
      const double p[3] = {a.xyz[0] - centroid[0], a.xyz[1] - centroid[1], a.xyz[2] - centroid[2]};
      double q[3];
      for (int row = 0; row < 3; ++row) {
        const double moved = r[3 * row] * p[0] + r[3 * row + 1] * p[1] + r[3 * row + 2] * p[2];
        q[row] = moved + centroid[row] + shift[row] + opt.sigma * rng.normal();
        // The eight columns of a coordinate hold -999.999 to 9999.999.
        if (!(q[row] > -999.9995 && q[row] < 9999.9995)) {
          throw std::runtime_error("a coordinate does not fit the PDB columns");
        }
      }
      block += a.head;
      block += format_line("%8.3f%8.3f%8.3f", q[0], q[1], q[2]);
      block += a.tail;
      block += format_line("%2s\n", a.element.c_str());
    }
    block += "ENDMDL\n";
    out.write(block);
  }
  out.write("END\n");
  out.close();
}

// One ATOM record: the name from column 13 when it has four characters,
// else from column 14.
std::string atom_record(int serial, const vorn::Atom& atom) {
  const vorn::Vec3& p = atom.position;
  for (const double v : {p.x, p.y, p.z}) {
    if (!(v > -999.9995 && v < 9999.9995)) {
      throw std::runtime_error("a coordinate does not fit the PDB columns");
    }
  }
  const std::string name = atom.name.size() < 4 ? " " + atom.name : atom.name;
  return format_line("ATOM  %5d %-4s %3s %1s%4d    %8.3f%8.3f%8.3f  1.00  0.00          %2s\n",
                     serial, name.c_str(), atom.residue_name.c_str(), atom.chain.c_str(),
                     atom.residue_number, p.x, p.y, p.z, atom.element.c_str());
}

void write_coil_ensemble(const Options& opt, vorn_tools::coil::CoilChainBuilder& builder) {
  vorn_tools::SeededRandom rng(opt.seed);
  vorn_tools::Output out(opt.output);
  out.write(format_line("REMARK   1 VORN-MAKE-ENSEMBLE COIL MODELS %ld SEED %llu RESIDUES %zu\n",
                        opt.models, static_cast<unsigned long long>(opt.seed),
                        builder.sequence().size()));
  std::string block;
  for (long m = 1; m <= opt.models; ++m) {
    const std::vector<vorn::Atom> atoms = builder.build(rng);
    block.clear();
    block += format_line("MODEL     %4ld\n", m);
    int serial = 0;
    for (const vorn::Atom& atom : atoms) block += atom_record(++serial, atom);
    block += "ENDMDL\n";
    out.write(block);
  }
  out.write("END\n");
  out.close();
}

}  // namespace

int main(int argc, char** argv) {
  const Options opt = parse_options(argc, argv);
  if (!opt.coil.empty()) {
    std::optional<vorn_tools::coil::CoilChainBuilder> builder;
    try {
      builder.emplace(opt.coil);
    } catch (const std::invalid_argument& e) {
      usage_error(std::string("--coil: ") + e.what());
    }
    try {
      write_coil_ensemble(opt, *builder);
    } catch (const std::exception& e) {
      std::remove(opt.output.c_str());
      std::fprintf(stderr, "vorn-make-ensemble: %s\n", e.what());
      return 1;
    }
    return 0;
  }
  try {
    const std::vector<AtomRecord> atoms = read_first_model(opt.input);
    write_ensemble(opt, atoms);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "vorn-make-ensemble: %s\n", e.what());
    return 1;
  }
  return 0;
}
