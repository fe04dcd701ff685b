// Capacities of the classic program; each keeps its observable limit. The
// engine has none of its own: the classic front end checks these.
#pragma once

namespace vorn {

inline constexpr int kAtomSlots = 5000;           // atom and coupling arrays, used from index 1
inline constexpr int kGridSlots = 1000;           // position grid points, used from index 0
inline constexpr int kOrientationLimit = 279999;  // orientation index at which sampling fails
inline constexpr int kSelectSlots = 499;          // selection list entries, used from index 1

}  // namespace vorn
