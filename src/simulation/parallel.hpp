// Fork-join helper of the simulation's threaded loops.
#pragma once

#include <system_error>
#include <thread>
#include <vector>

namespace vorn::detail {

// Runs fn(0) .. fn(parts-1), parts 1.. on threads of their own. A part
// whose thread cannot be started runs here instead; every part runs once.
template <class Fn>
void parallel_parts(int parts, const Fn& fn) {
  if (parts <= 1) {
    fn(0);
    return;
  }
  std::vector<std::thread> pool;
  pool.reserve(static_cast<std::size_t>(parts - 1));
  for (int p = 1; p < parts; ++p) {
    try {
      pool.emplace_back([&fn, p] { fn(p); });
    } catch (const std::system_error&) {
      fn(p);
    }
  }
  fn(0);
  for (std::thread& t : pool) {
    t.join();
  }
}

}  // namespace vorn::detail
