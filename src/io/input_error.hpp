// The error of the structure reader (C++17, shared with the gemmi code).
#pragma once

#include <stdexcept>

namespace vorn::io {

// A problem with an input file or a reading option. The message names the
// file, and the line where it is known ("1abc.pdb:57: ...").
class InputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace vorn::io
