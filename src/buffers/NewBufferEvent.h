/// The event of a data stream: an image is ready.
#pragma once

#include "buffers/Event.h"

namespace GenTL {

class DataStream;

/// A view onto the stream, whose output queue is the event queue.
///
/// Owns: nothing. Threads: any of the consumer's. Locks: the stream's output mutex and
/// its announced mutex, each for moments.
class NewBufferEvent : public Event
{
public:
    explicit NewBufferEvent(DataStream* pDataStream);
    ~NewBufferEvent() override;

    /// Waits up to iTimeout ms, GENTL_INFINITE for ever, and writes the 16 bytes of S_EVENT_NEW_BUFFER. A
    /// null pBuffer asks for the size. GC_ERR_TIMEOUT; GC_ERR_ABORT once after a kill, without a wait;
    /// GC_ERR_INVALID_HANDLE when the buffer was revoked meanwhile.
    int GetData(void* pBuffer, std::size_t* piSize, std::uint64_t iTimeout) override;
    /// Fixed texts: an image event has no data of its own.
    int GetDataInfo(const void* pInBuffer,
                    std::size_t iInSize,
                    int iInfoCmd,
                    int* piType,
                    void* pOutBuffer,
                    std::size_t* piOutSize) const override;
    int GetInfo(int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) override;
    /// Discards the output queue.
    int Flush() const override;
    /// The next GetData gives GC_ERR_ABORT. A wait that runs already goes on.
    int Kill() const override;

private:
    bool ReadUserPointer(void* hBuffer, void*& pUserPointer) const;

    DataStream* m_pDataStream;
};

}  // namespace GenTL
