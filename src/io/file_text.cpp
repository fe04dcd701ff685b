#include "io/file_text.hpp"

#include <zlib.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>
#include <vector>

#include "io/input_error.hpp"

namespace vorn::io {
namespace {

struct GzClose {
  void operator()(gzFile f) const { gzclose(f); }
};

}  // namespace

std::string read_file_text(const std::string& path, const std::string& cannot_open) {
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec)) throw InputError(path + ": is a directory");
  errno = 0;
  const std::unique_ptr<gzFile_s, GzClose> file(gzopen(path.c_str(), "rb"));
  if (!file) {
    if (!cannot_open.empty()) throw InputError(path + ": " + cannot_open);
    throw InputError(path +
                     ": cannot open: " + (errno != 0 ? std::strerror(errno) : "out of memory"));
  }
  std::string text;
  std::vector<char> buffer(1 << 16);
  while (true) {
    const int n = gzread(file.get(), buffer.data(), static_cast<unsigned>(buffer.size()));
    int code = Z_OK;
    const char* message = gzerror(file.get(), &code);
    if (n < 0 || (code != Z_OK && code != Z_STREAM_END)) {
      std::string what = code == Z_ERRNO ? std::strerror(errno) : std::string(message);
      // zlib names the file in front of its own message.
      if (what.rfind(path + ": ", 0) == 0) what.erase(0, path.size() + 2);
      std::string message = path;
      message += ": read error: ";
      message += what;
      throw InputError(message);
    }
    if (n == 0) break;
    text.append(buffer.data(), static_cast<size_t>(n));
  }
  return text;
}

}  // namespace vorn::io
