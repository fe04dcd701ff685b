// vorn: prediction of the steric alignment tensor of a molecule. A first
// argument that names a command or starts with "--" selects the modern
// command line; every other command line is the classic one.
#include <cstdio>
#include <cstdlib>

#include "classic/io.hpp"
#include "classic/run.hpp"
#include "modern/cli.hpp"

int main(int argc, char** argv) {
  if (argc > 1 && vorn::modern::is_modern_command(argv[1])) {
    const int status = vorn::modern::run_cli(argc, argv);
    std::fflush(stdout);
    return status;
  }
  vorn::Io io;
  const int status = vorn::run_and_report(argc, argv, io);
  std::fflush(stdout);
  std::exit(status);
}
