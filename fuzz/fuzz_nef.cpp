// Fuzzes the reader of NEF coupling lists (nef_rdc_restraint_list frames); see
// fuzz_coupling_checks.hpp for the options and the checks.
#include "fuzz_coupling_checks.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return fuzz_coupling_format(data, size, vorn::io::CouplingFormat::nef, "peg_gel-1");
}
