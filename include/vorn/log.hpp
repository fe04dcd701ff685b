// Where the library's side text goes. The library never writes to a stream
// or reads from one; the few things it has to say on the way (diagnostic
// listings when asked for, warnings of the surface method) are handed to the
// functions of a Log, as the caller decides. A default Log drops them.
#pragma once

#include <functional>
#include <string_view>

namespace vorn {

struct Log {
  // Listing text: the orientation and grid tables when `debug` is set.
  std::function<void(std::string_view)> listing;
  // Warnings and error reports of the numerical methods.
  std::function<void(std::string_view)> warning;
  // Called after a warning that the caller may want to see at once.
  std::function<void()> flush;
  // Asks for the diagnostic listings.
  bool debug = false;

  void list(std::string_view text) const {
    if (listing) listing(text);
  }
  void warn(std::string_view text) const {
    if (warning) warning(text);
  }
  void flush_now() const {
    if (flush) flush();
  }
};

}  // namespace vorn
