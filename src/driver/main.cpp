// vorn: prediction of the steric alignment tensor of a molecule.
#include <cstdio>
#include <cstdlib>

#include "driver/io.hpp"
#include "driver/run.hpp"

int main(int argc, char** argv) {
  vorn::Io io;
  const int status = vorn::run_and_report(argc, argv, io);
  std::fflush(stdout);
  std::exit(status);
}
