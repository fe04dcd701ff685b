#include "driver/fatal.hpp"

#include <cstdarg>
#include <cstdio>
#include <vector>

namespace vorn {

std::string format(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  va_list copy;
  va_copy(copy, args);
  const int n = std::vsnprintf(nullptr, 0, fmt, copy);
  va_end(copy);
  std::string result;
  if (n > 0) {
    std::vector<char> buffer(static_cast<size_t>(n) + 1);
    std::vsnprintf(buffer.data(), buffer.size(), fmt, args);
    result.assign(buffer.data(), static_cast<size_t>(n));
  }
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
