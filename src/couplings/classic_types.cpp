#include "couplings/classic_types.hpp"

namespace vorn {

// Divisor that brings a coupling of each type onto the N-H scale.
const double dcNORMFACTORS[kDcTypes] = {1.0,
                                        -0.4991227672784314,
                                        -5.0231625890264935,
                                        8.249400137058982,
                                        -3.1549944012289135,
                                        -1.0900591012398613};
// Dipolar coupling constant of each type, Hz.
const double maxDIPCOUP[kDcTypes] = {24350.5172875806,  -60421.00068816512, -15196.281506272859,
                                     6124.316236257224, -60421.00068816512, -240236.22638553267};
// Factor multiplied with maxDIPCOUP wherever the latter is used.
const double radiusInCubeDCTypes[kDcTypes] = {0.883887196732027,   0.7136902116828648,
                                              0.28196192632863554, 0.42601516310913484,
                                              0.11290639162336669, 0.08218952905399854};

}  // namespace vorn
