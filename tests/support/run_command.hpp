// Test support: a command run through the shell, its output captured.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace vorn::test {

struct CommandResult {
  std::string out, err;
  int status = -1;  // the exit status; -1 when the command did not exit
};

// Runs `command` through the shell with its standard output captured. Its
// standard error goes to `err_file`, read back into `err` and removed, or is
// discarded when `err_file` is empty.
inline CommandResult run_command(const std::string& command, const std::string& err_file = {}) {
  CommandResult r;
  const std::string redirect = err_file.empty() ? " 2>/dev/null" : " 2>'" + err_file + "'";
  FILE* pipe = popen((command + redirect).c_str(), "r");
  if (pipe == nullptr) return r;
  char buffer[65536];
  std::size_t n = 0;
  while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) r.out.append(buffer, n);
  const int raw = pclose(pipe);
  r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  if (!err_file.empty()) {
    std::ifstream in(err_file, std::ios::binary);
    r.err.assign(std::istreambuf_iterator<char>(in), {});
    in.close();
    std::filesystem::remove(err_file);
  }
  return r;
}

}  // namespace vorn::test
