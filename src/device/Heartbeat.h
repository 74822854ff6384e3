/// Keeps control of a camera while the consumer is silent.
#pragma once

namespace GenTL {

class IHALGev;

/// The body of the heartbeat thread: reads the camera's heartbeat time-out (register 0x0938) and writes it
/// back, twice in each such time, until run is false or the thread is interrupted. No failure ends it but
/// that of the first read. Doesn't throw anything but the interruption.
void HeartbeatThread(IHALGev* hal, void* deviceHandle, bool& run);

}  // namespace GenTL
