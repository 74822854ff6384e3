/// The kinds of stream HAL.
#pragma once

namespace GenTL {

/// The underlying type is fixed, so that a value out of the list can be refused where it comes in.
enum DriverType : unsigned {
    kDriverNone = 0,
    kDriverUdpSocket = 1,
    kDriverLwf = 2,  // a filter driver that receives into queued image buffers; no HAL here is of this kind
    kDriverTcp = 3,
};

}  // namespace GenTL
