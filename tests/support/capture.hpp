// Test helpers: capture what a stage prints to a FILE*, and feed a FILE*
// from a string.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

namespace vorn::test {

class Capture {
 public:
  Capture() : file_(open_memstream(&buffer_, &length_)) {}
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;
  ~Capture() {
    std::fclose(file_);
    std::free(buffer_);
  }
  FILE* file() const { return file_; }
  std::string str() {
    std::fflush(file_);
    return std::string(buffer_, length_);
  }

 private:
  char* buffer_ = nullptr;
  size_t length_ = 0;
  FILE* file_;
};

// A read-only stream over a copy of the text.
class Input {
 public:
  explicit Input(std::string text) : text_(std::move(text)) {
    file_ =
        text_.empty() ? std::fopen("/dev/null", "r") : fmemopen(text_.data(), text_.size(), "r");
  }
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;
  ~Input() {
    if (file_ != nullptr) std::fclose(file_);
  }
  FILE* file() const { return file_; }
  // Hands the stream over to a callee that closes it.
  FILE* release() {
    FILE* f = file_;
    file_ = nullptr;
    return f;
  }

 private:
  std::string text_;
  FILE* file_;
};

#ifdef VORN_TEST_DATA_DIR
inline std::string data_path(const std::string& name) {
  return std::string(VORN_TEST_DATA_DIR) + "/" + name;
}
#endif

}  // namespace vorn::test
