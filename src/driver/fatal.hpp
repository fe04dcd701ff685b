// Fatal conditions of every stage travel as one exception type that carries
// the exact text to print, the stream it belongs to and the exit status.
// Only main prints it and ends the process.
#pragma once

#include <exception>
#include <string>

namespace vorn {

enum class Stream { out, err };

class FatalError : public std::exception {
 public:
  FatalError(std::string text, Stream stream, int status)
      : text_(std::move(text)), stream_(stream), status_(status) {}
  const char* what() const noexcept override { return text_.c_str(); }
  const std::string& text() const noexcept { return text_; }
  Stream stream() const noexcept { return stream_; }
  int status() const noexcept { return status_; }

 private:
  std::string text_;
  Stream stream_;
  int status_;
};

// Ends the run: "run-time error...", the text, "...now exiting to system...".
[[noreturn]] void nerror(const std::string& error_text);
// Ends the run with the "no such file" block for a file name.
[[noreturn]] void nerror_datei(const std::string& error_txt);
// Fatal numerical error: "Numerical Recipes run-time error...", the text,
// "...now exiting to system...".
[[noreturn]] void nrerror(const std::string& error_text);
// Any other fatal text, printed as it stands.
[[noreturn]] void fatal(std::string text, Stream stream = Stream::err, int status = 1);

// printf-style formatting into a std::string (C formatting, byte for byte).
std::string format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

}  // namespace vorn
