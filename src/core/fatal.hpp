// Building the errors of the engine: each carries a plain message for the
// library's callers and the exact text, stream and exit status under which
// the classic command line reports it.
#pragma once

#include <cstdarg>
#include <string>

#include "vorn/error.hpp"

namespace vorn {

using FatalError = Error;
using Stream = Error::Stream;

// "run-time error...", the text, "...now exiting to system...".
[[noreturn]] void nerror(const std::string& error_text);
// The "no such file" block for a file name.
[[noreturn]] void nerror_datei(const std::string& error_txt);
// Fatal numerical error: "Numerical Recipes run-time error...", the text,
// "...now exiting to system...".
[[noreturn]] void nrerror(const std::string& error_text);
// Any other fatal text, printed as it stands; the message is the text
// without its line feeds.
[[noreturn]] void fatal(std::string text, Stream stream = Stream::err, int status = 1);

// printf-style formatting into a std::string (C formatting, byte for byte).
std::string format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
std::string vformat(const char* fmt, va_list args) __attribute__((format(printf, 1, 0)));

}  // namespace vorn
