#include "core/fatal.hpp"

#include <cstdarg>
#include <cstdio>

namespace vorn {

std::string vformat(const char* fmt, va_list args) {
  char small[512];
  va_list copy;
  va_copy(copy, args);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): initialised by va_copy above
  const int n = std::vsnprintf(small, sizeof small, fmt, copy);
  va_end(copy);
  if (n < 0) return {};
  if (static_cast<size_t>(n) < sizeof small) return std::string(small, static_cast<size_t>(n));
  std::string result(static_cast<size_t>(n), '\0');
  std::vsnprintf(result.data(), result.size() + 1, fmt, args);
  return result;
}

std::string format(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): initialised by va_start above
  std::string result = vformat(fmt, args);
  va_end(args);
  return result;
}

namespace {

// The text as one line: line feeds become blanks, blanks at either end go.
std::string one_line(std::string text) {
  for (char& c : text)
    if (c == '\n') c = ' ';
  const auto first = text.find_first_not_of(' ');
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

}  // namespace

void fatal(std::string text, Stream stream, int status) {
  std::string message = one_line(text);
  throw Error(message, std::move(text), stream, status);
}

void nerror(const std::string& error_text) {
  throw Error(one_line(error_text),
              "run-time error...\n" + error_text + "\n...now exiting to system...\n", Stream::err,
              1);
}

void nerror_datei(const std::string& error_txt) {
  throw Error(error_txt + ": no such file",
              "run-time errror...\n'" + error_txt +
                  "' - There is no such file!\n...now exiting to system...\n",
              Stream::err, 1);
}

void nrerror(const std::string& error_text) {
  throw Error(
      one_line(error_text),
      "Numerical Recipes run-time error...\n" + error_text + "\n...now exiting to system...\n",
      Stream::err, 1);
}

}  // namespace vorn
