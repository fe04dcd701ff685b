// Constants of the five classic coupling types (0 N-H, 1 CA-HA, 2 CA-C,
// 3 C(i-1)-N, 4 C(i-1)-H) and of a sixth kind that carries constants only.
#pragma once

namespace vorn {

inline constexpr int kDcTypes = 6;

extern const double dcNORMFACTORS[kDcTypes];
extern const double maxDIPCOUP[kDcTypes];
extern const double radiusInCubeDCTypes[kDcTypes];

}  // namespace vorn
