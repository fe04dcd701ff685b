#include "driver/fatal.hpp"

#include <cstdarg>
#include <cstdio>

namespace vorn {

std::string format(const char* fmt, ...) {
  char small[512];
  va_list args;
  va_start(args, fmt);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): initialised by va_start above
  const int n = std::vsnprintf(small, sizeof small, fmt, args);
  va_end(args);
  if (n < 0) return {};
  if (static_cast<size_t>(n) < sizeof small) return std::string(small, static_cast<size_t>(n));
  std::string result(static_cast<size_t>(n), '\0');
  va_start(args, fmt);
  std::vsnprintf(result.data(), result.size() + 1, fmt, args);
  va_end(args);
  return result;
}

void fatal(std::string text, Stream stream, int status) {
  throw FatalError(std::move(text), stream, status);
}

void nerror(const std::string& error_text) {
  fatal("run-time error...\n" + error_text + "\n...now exiting to system...\n");
}

void nerror_datei(const std::string& error_txt) {
  fatal("run-time errror...\n'" + error_txt +
        "' - There is no such file!\n...now exiting to system...\n");
}

void nrerror(const std::string& error_text) {
  fatal("Numerical Recipes run-time error...\n" + error_text + "\n...now exiting to system...\n");
}

}  // namespace vorn
