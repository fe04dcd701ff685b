// Shared helpers of the fuzz targets.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "capture.hpp"

namespace vorn::fuzz {

// A stream that discards what is written to it.
inline FILE* sink() {
  static FILE* null_stream = std::fopen("/dev/null", "w");
  return null_stream;
}

// A read-only stream over the fuzzer's bytes.
inline test::Input bytes(const uint8_t* data, size_t size) {
  return test::Input(std::string(reinterpret_cast<const char*>(data), size));
}

// Writes the bytes to a per-process scratch file and returns its name.
inline std::string to_file(const uint8_t* data, size_t size, const char* tag) {
  const std::string name = "/tmp/vorn_fuzz_" + std::to_string(getpid()) + "_" + tag;
  FILE* f = std::fopen(name.c_str(), "wb");
  if (f != nullptr) {
    if (size > 0) std::fwrite(data, 1, size, f);
    std::fclose(f);
  }
  return name;
}

}  // namespace vorn::fuzz
