/// The message channel's layer as the message channel module sees it.
#pragma once

namespace GenTL {

class IHALGev;

/// Opens the camera's message channel and receives its datagrams. Operations return 0 or a GenTL code; device
/// is the control channel's device handle; time-outs are milliseconds.
class IHALGvmc
{
public:
    IHALGvmc() = default;
    IHALGvmc(const IHALGvmc&) = delete;
    IHALGvmc& operator=(const IHALGvmc&) = delete;
    virtual ~IHALGvmc() = default;

    /// accessMode is a DEVICE_ACCESS value.
    virtual int Start(IHALGev* hal, void* device, bool multicast, int accessMode) = 0;
    virtual int Stop(IHALGev* hal, void* device, int accessMode) = 0;
    /// Receives one datagram of at most size bytes; what goes beyond is lost. GC_ERR_TIMEOUT when none comes.
    virtual int GetNextPacket(char* packet, int size, int& received, unsigned long timeout) = 0;
};

}  // namespace GenTL
