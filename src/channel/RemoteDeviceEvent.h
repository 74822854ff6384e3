/// The event of a message channel: the camera has told something.
#pragma once

#include "buffers/Event.h"

namespace GenTL {

class MessageChannel;

/// A view onto the channel, whose output queue is the event queue. The data are the camera's datagram from
/// its GVCP header on, as it came.
///
/// Owns: nothing. Threads: any of the consumer's, several may wait at once; all must be out before the event
/// is unregistered, and a kill doesn't free one that waits. Locks: the channel's, each for moments.
class RemoteDeviceEvent : public Event
{
public:
    explicit RemoteDeviceEvent(MessageChannel* pMessageChannel);
    ~RemoteDeviceEvent() override;

    /// Waits up to iTimeout ms, GENTL_INFINITE for ever. pBuffer must have room for 576 bytes however short
    /// the datagram (GC_ERR_BUFFER_TOO_SMALL, with the datagram still in the queue); a null one asks for that
    /// size. GC_ERR_TIMEOUT; GC_ERR_ABORT in its place once after a kill.
    int GetData(void* pBuffer, std::size_t* piSize, std::uint64_t iTimeout) override;
    /// Fixed texts: the consumer decodes the datagram.
    int GetDataInfo(const void* pInBuffer,
                    std::size_t iInSize,
                    int iInfoCmd,
                    int* piType,
                    void* pOutBuffer,
                    std::size_t* piOutSize) const override;
    int GetInfo(int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) override;
    /// Takes every buffer from the channel: no event comes any more until the consumer registers anew. A
    /// buffer that another thread holds inside GetData goes back all the same, and brings one event at a
    /// time.
    int Flush() const override;
    /// Ends no wait: a finite one that finds nothing gives GC_ERR_ABORT at its own time.
    int Kill() const override;

private:
    MessageChannel* m_pMessageChannel;
};

}  // namespace GenTL
