// The one exception type of the library. Every function of the API reports
// invalid input and numerical failure by throwing vorn::Error; what() is a
// plain one-line message.
#pragma once

#include <stdexcept>
#include <string>

namespace vorn {

class Error : public std::runtime_error {
 public:
  // Where the classic command line prints an error's text.
  enum class Stream { out, err };

  // A plain message; the classic text is the message and a line feed.
  explicit Error(const std::string& message)
      : std::runtime_error(message), text_(message + "\n"), stream_(Stream::err), status_(1) {}

  // A message with the exact text, stream and exit status under which the
  // classic command line reports it.
  Error(const std::string& message, std::string text, Stream stream, int status)
      : std::runtime_error(message), text_(std::move(text)), stream_(stream), status_(status) {}

  const std::string& text() const noexcept { return text_; }
  Stream stream() const noexcept { return stream_; }
  int status() const noexcept { return status_; }

 private:
  std::string text_;
  Stream stream_;
  int status_;
};

}  // namespace vorn
