// Drives the whole run sequence on a small molecule and a few couplings with
// a fuzzed auto file. Orientation and grid settings are bounded so that one
// input runs in milliseconds; everything else is as the input says.
#include <cstdint>
#include <string>

#include "classic/run.hpp"
#include "fuzz_support.hpp"

namespace {

const char* kMolecule =
    "ATOM 1 N MET 1 0.0 0.0 0.0\n"
    "ATOM 2 H MET 1 0.0 1.0 0.0\n"
    "ATOM 3 CA MET 1 1.4 -0.5 0.2\n"
    "ATOM 4 HA MET 1 1.6 -1.4 -0.3\n"
    "ATOM 5 C MET 1 2.4 0.6 0.1\n"
    "ATOM 6 N GLN 2 3.6 0.2 0.4\n"
    "ATOM 7 H GLN 2 3.8 -0.7 0.8\n"
    "ATOM 8 CA GLN 2 4.7 1.1 0.3\n"
    "ATOM 9 HA GLN 2 4.5 2.0 0.9\n"
    "ATOM 10 C GLN 2 6.0 0.5 0.8\n"
    "ATOM 11 N ILE 3 7.1 1.2 0.5\n"
    "ATOM 12 H ILE 3 7.0 2.1 0.1\n"
    "ATOM 13 CA ILE 3 8.4 0.7 0.9\n"
    "ATOM 14 CB ILE 3 9.4 1.8 0.6\n"
    "END\n";

const char* kCouplings =
    "1 3.5 0\n2 -4.1 0\n3 6.2 0\n1 1.1 1\n2 -2.3 1\n2 0.7 2\n3 1.9 3\n3 -0.8 4\n2 1000.0 0\n";

void write(const std::string& name, const std::string& text) {
  FILE* f = std::fopen(name.c_str(), "w");
  std::fputs(text.c_str(), f);
  std::fclose(f);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string tag = "/tmp/vorn_fuzz_run_" + std::to_string(getpid());
  static bool written = false;
  if (!written) {
    write(tag + ".pdb", kMolecule);
    write(tag + ".dc", kCouplings);
    written = true;
  }
  // The fuzzed auto file, then caps that keep one run short: later lines win.
  std::string text(reinterpret_cast<const char*>(data), size);
  text += "\nDIGIT_BETA: 3\nDIGIT_ALPHA: 4\nDIGIT_GAMMA: 4\n";
  write(tag + ".auto", text);
  const std::string a = "-A" + tag + ".auto";
  const std::string d = "-D" + tag + ".dc";
  const std::string pdb = tag + ".pdb";
  const char* argv[] = {"vorn", a.c_str(), d.c_str(), pdb.c_str(), nullptr};
  vorn::test::Input stdin_bytes("");
  vorn::Io io{stdin_bytes.file(), vorn::fuzz::sink(), vorn::fuzz::sink()};
  const int status = vorn::run_and_report(4, argv, io);
  if (status != 0 && status != 1) __builtin_trap();
  return 0;
}
