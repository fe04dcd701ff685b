#include "classic/cmdline.hpp"

#include "core/fatal.hpp"

namespace vorn {

void legal_notice(FILE* out) {
  std::fprintf(out, "\n\n *------------------------------------------------------------------*");
  std::fprintf(out, "\n |             VORN                  (c) 2026 the VORN developers   |");
  std::fprintf(out, "\n *------------------------------------------------------------------*\n\n");
  std::fprintf(out, "\n\n");
}

int read_flags(int inputc, const char* const* input, int& flag_ok, int flags[kOptionSlots],
               FILE* flag_file[kOptionSlots]) {
  flag_ok = 0;
  int nroptions = 0;
  for (int i = 1; i < inputc; ++i) {
    const char* arg = input[i];
    if (arg[0] != '-') break;
    int entry = 0;
    const char* mode = "r";
    // The -A message carries a stray "n"; it is kept for compatibility.
    const char* open_error =
        "\n\nrun-time error:   unable to open file '%s'\nexiting to system...\n";
    switch (arg[1]) {
      case 'A':
        entry = 1;
        open_error = "\n\nnrun-time error:   unable to open file '%s'\nexiting to system...\n";
        break;
      case 'O':
        entry = 2;
        mode = "w";
        break;
      case 'D':
        entry = 3;
        break;
      default:
        fatal(format("\n\nrun-time error:   bad option: %s\nexiting to system...\n", arg));
    }
    flags[entry] = 1;
    flag_ok = 1;
    ++nroptions;
    const char* name = arg + 2;
    // A repeated option replaces the earlier file; the earlier one stays open.
    flag_file[entry] = std::fopen(name, mode);
    if (flag_file[entry] == nullptr) fatal(format(open_error, name));
  }
  return nroptions;
}

void Aufruf_Check(int noS_files, int noI_files, void (*error_out)(const std::string&), FILE* out) {
  if (noI_files == noS_files) return;
  std::fprintf(out, "\n==================================================\n");
  std::fprintf(out, "VORN is a program for predicting the magnitude and\n");
  std::fprintf(out, "orientation of a sterically induced alignment tensor\n");
  std::fprintf(out, "from a solute's three-dimensional shape\n");
  std::fprintf(out, "\n\nThere are three different modes:\n");
  std::fprintf(out, "\n- prediction of dipolar coupling tensor\n");
  std::fprintf(out, "  (no measured dipolar couplings are available)\n");
  std::fprintf(out, "   Usage:   VORN [pdb-file]\n");
  std::fprintf(out, "\n- prediction of dipolar coupling tensor and comparison\n");
  std::fprintf(out, "  of measured with predicted residual dipolar couplings\n");
  std::fprintf(out, "   Usage:   VORN -D[measured dipolar coupling-file] [pdb-file]\n");
  std::fprintf(out, "\n- advanced mode\n");
  std::fprintf(out, "  (allowing adjustment of various simulation parameters)\n");
  std::fprintf(out,
               "   Usage:   VORN -A[configuration file] -D[measured dipolar coupling-file] "
               "[pdb-file]\n");
  std::fprintf(out, "\n==================================================\n\n");
  error_out("\n");
}

}  // namespace vorn
