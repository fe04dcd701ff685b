// Output of the test-data generators: a plain file, or gzip when the path
// ends in .gz, and printf-style formatting of one record.
#pragma once

#include <zlib.h>

#include <cstdarg>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <string_view>

namespace vorn_tools {

class Output {
 public:
  explicit Output(const std::string& path) {
    const bool gz = path.size() > 3 && path.compare(path.size() - 3, 3, ".gz") == 0;
    if (gz) {
      gz_ = gzopen(path.c_str(), "wb");
      if (gz_ == nullptr) throw std::runtime_error("cannot write " + path);
    } else {
      file_ = std::fopen(path.c_str(), "wb");
      if (file_ == nullptr) throw std::runtime_error("cannot write " + path);
    }
  }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;
  ~Output() {
    if (gz_ != nullptr) gzclose(gz_);
    if (file_ != nullptr) std::fclose(file_);
  }

  void write(std::string_view text) {
    if (gz_ != nullptr) {
      if (!text.empty() && gzwrite(gz_, text.data(), static_cast<unsigned>(text.size())) !=
                               static_cast<int>(text.size())) {
        throw std::runtime_error("gzip write failed");
      }
    } else if (std::fwrite(text.data(), 1, text.size(), file_) != text.size()) {
      throw std::runtime_error("write failed");
    }
  }

  // Flushes and closes; reports a failure that only shows at the end.
  void close() {
    if (gz_ != nullptr) {
      const int status = gzclose(gz_);
      gz_ = nullptr;
      if (status != Z_OK) throw std::runtime_error("gzip close failed");
    }
    if (file_ != nullptr) {
      const int status = std::fclose(file_);
      file_ = nullptr;
      if (status != 0) throw std::runtime_error("close failed");
    }
  }

 private:
  gzFile gz_ = nullptr;
  FILE* file_ = nullptr;
};

inline std::string format_line(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
inline std::string format_line(const char* fmt, ...) {
  char buffer[160];
  va_list args;
  va_start(args, fmt);
  const int n = std::vsnprintf(buffer, sizeof buffer, fmt, args);
  va_end(args);
  if (n < 0 || n >= static_cast<int>(sizeof buffer)) throw std::runtime_error("record too long");
  return std::string(buffer, static_cast<std::size_t>(n));
}

}  // namespace vorn_tools
