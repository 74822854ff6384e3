/// The message channel's layer over UDP: the camera's channel registers and the socket that events come in
/// by.
#pragma once

#include "channel/IHALGvmc.h"
#include "channel/MCHandle.h"

#include <netinet/in.h>

#include <cstdint>

namespace GenTL {

/// Owns: the socket, open from Start to Stop.
/// Threads: the consumer's calls Start and Stop; between them the receive thread alone calls GetNextPacket.
/// Locks: none.
class HALGvmc : public IHALGvmc
{
public:
    HALGvmc() = default;

    /// Tells the camera where to send: to this host or, with multicast, to the group of all message channels.
    /// A reader of a multicast channel writes nothing and listens at the port that the controlling
    /// application has set; without multicast it is refused with GC_ERR_RESOURCE_IN_USE. After a failure the
    /// socket is closed.
    int Start(IHALGev* hal, void* device, bool multicast, int accessMode) override;
    /// Closes the camera's stream channel 0, whatever the access; the message channel's own port stays as it
    /// is. A time-out of that doesn't count as a failure; after any other the socket stays open.
    int Stop(IHALGev* hal, void* device, int accessMode) override;
    int GetNextPacket(char* packet, int size, int& received, unsigned long timeout) override;

private:
    // The steps of Start raise in its name, which is function.
    int StartUnicast(IHALGev* hal, void* device, int accessMode, const char* function = __builtin_FUNCTION());
    int StartMulticast(IHALGev* hal,
                       void* device,
                       int accessMode,
                       const char* function = __builtin_FUNCTION());
    int OpenMulticastListener(IHALGev* hal, void* device, in_addr group, const char* function);
    /// address is in host order; the port is the socket's. Closes the socket when that fails.
    int WriteDestination(IHALGev* hal, void* device, unsigned address, const char* function);

    std::uint32_t m_capabilities = 0;  // register 0x0930
    MCHandle m_handle;
};

}  // namespace GenTL
