// The modern command line: `vorn <command> [options]`.
#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "app/fit_command.hpp"
#include "app/predict_command.hpp"

namespace vorn::modern {

// True when a first argument selects the modern interface: a command name
// or anything starting with "--".
bool is_modern_command(std::string_view first_argument);

// Runs the modern command line; returns the exit status (0 success, 1 bad
// input, 2 misuse of the command line).
int run_cli(int argc, char** argv);

// What runs a command once its options are parsed; each returns the exit
// status and may throw (the exception is reported as bad input).
struct CommandRunners {
  std::function<int(app::PredictSettings&)> predict;
  std::function<int(const app::FitSettings&)> fit;
};

// How a front end built on this command line presents itself.
struct FrontEnd {
  std::string program = "vorn";  // in the help, the version and the messages
  std::string description;       // the help's first lines; empty: vorn's
  // False: help, version and misuse are not printed (the exit status is
  // the same), for the processes of a parallel run other than the first.
  bool print_messages = true;
};

// The command line of `vorn` with other runners: the same commands, options
// and checks, then runners.predict or runners.fit with the parsed settings.
// Returns the runner's status, 0 after --help or --version, 2 on misuse.
int run_cli(int argc, char** argv, const CommandRunners& runners, const FrontEnd& front);

// The runners of `vorn`: predict streams the models of each file through
// the threads and writes the report as it goes; fit writes its report (and
// the plots) at the end.
int run_predict_command(app::PredictSettings& settings);
int run_fit_command(const app::FitSettings& settings);

// Output written as it comes, to standard output or to a file opened at the
// first write (so that a run failing before any output leaves no file);
// with `hold`, kept until finish() (a run failing before leaves nothing).
// Throws io::InputError when the file cannot be opened or written.
class Output {
 public:
  explicit Output(std::string path, bool hold = false) : path_(std::move(path)), hold_(hold) {}
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;
  ~Output();
  void write(const std::string& text);
  void finish();  // flushes

 private:
  std::string path_;
  FILE* file_ = nullptr;
  bool hold_ = false;
  std::string held_;
};

}  // namespace vorn::modern
