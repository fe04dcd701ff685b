// The three standard streams of a run. Every stage prints to and reads from
// the streams it is given, so that tests can capture them.
#pragma once

#include <cstdio>

namespace vorn {

struct Io {
  FILE* in = stdin;
  FILE* out = stdout;
  FILE* err = stderr;
};

}  // namespace vorn
