// The run sequence of one VORN invocation.
#pragma once

#include "classic/io.hpp"

namespace vorn {

// Walks the whole run sequence on the arguments and returns the exit status
// of a completed run (0). Fatal conditions throw FatalError.
int run(int argc, const char* const* argv, Io& io);

// Runs and turns a FatalError into its message and status: the one place
// where fatal messages are printed. Used by main and by in-process tests.
int run_and_report(int argc, const char* const* argv, Io& io);

}  // namespace vorn
