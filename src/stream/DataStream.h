/// The data stream module: announced, queued and delivered buffers, whatever the transport.
#pragma once

#include "modules/ModuleOf.h"
#include "stream/IDataStream.h"
#include "stream/StreamRegImpl.h"

#include <boost/asio/io_service.hpp>
#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/recursive_mutex.hpp>

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

namespace GenTL {

class Buffer;
class NewBufferEvent;
class OpenedDataStreamGevStateManager;
struct GenTLHandle;

/// The buffer handling that all transports share. It knows nothing of packets.
///
/// Owns: the announced Buffers from announcement to revocation, their handles, the one new-buffer event, and
/// the register map.
/// Buffers that are still announced when the stream dies stay allocated: their memory may be the consumer's.
/// Borrows: the device handle and the parent device.
/// Threads: the consumer's enter every public operation; a transport's grab thread and timer thread work on
/// the queues. Locks: a buffer's m_mutex, then m_inputMutex and m_outputMutex, then m_announcedMutex. Whoever
/// needs both queues takes them together by boost::lock, so that no order between the two exists.
///
/// m_announcedMutex is recursive and last, so that it can be taken below all others. What several threads use
/// without a lock is atomic.
class DataStream : public ModuleOf<IDataStream>
{
public:
    /// device is the control channel's token for the camera, parent what GetParentDev answers. Throws
    /// std::logic_error, with GC_ERR_INVALID_HANDLE in the error cache, when one is null.
    DataStream(void* device, void* parent);
    DataStream(const DataStream&) = delete;
    DataStream& operator=(const DataStream&) = delete;
    ~DataStream() override;

    // Port. The transports answer what is left out or refused here.
    int GetPortURLInfo(
        unsigned int iURLIndex, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) override;
    /// Only EVENT_NEW_BUFFER exists, once per stream (GC_ERR_RESOURCE_IN_USE).
    int RegisterEvent(int iEventID, void** phEvent) override;
    int UnregisterEvent(int iEventID) override;

    // IDataStream.
    int Open(IHALGvsp* pHal) override;
    int Close() override;
    bool IsOpen() const override;

    /// iSize is in bytes and isn't checked. GC_ERR_BUSY while grabbing; GC_ERR_RESOURCE_IN_USE when pBuffer
    /// is announced on any stream of the process.
    int AnnounceBuffer(void* pBuffer, std::size_t iSize, void* pPrivate, void** phBuffer) override;
    /// The memory is the stream's, and freed when the buffer is revoked. Throws std::bad_alloc.
    int AllocAndAnnounceBuffer(std::size_t iSize, void* pPrivate, void** phBuffer) override;
    /// Puts the buffer at the end of the input queue, without a look whether it stands there already.
    /// GC_ERR_INVALID_HANDLE when it isn't announced on this stream.
    int QueueBuffer(void* hBuffer) override;
    /// GC_ERR_BUSY while the buffer is in a queue or being filled. GC_ERR_INVALID_BUFFER, with the buffer
    /// still announced, when ppBuffer asks for memory that is the stream's.
    int RevokeBuffer(void* hBuffer, void** ppBuffer, void** ppPrivate) override;
    int FlushQueue(int iOperation) override;
    int GetInfo(int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) const override;
    int GetBufferID(unsigned iIndex, void** phBuffer) const override;
    /// Reading BUFFER_INFO_NEW_DATA clears it; asking for its size doesn't.
    int GetBufferInfo(
        void* hBuffer, int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) const override;
    int StartAcquisition(int iStartFlags, unsigned long iNumToAcquire) override;
    int StopAcquisition(int iStopFlags) override;
    int GetBufferChunkData(void* hBuffer, S_SINGLE_CHUNK_DATA* pChunkData, std::size_t* piNumChunks) override;
    int GetParentDev(void** phDevice) const override;
    int WaitForNextLeader(unsigned long iTimeout) override;
    int ResetWaitForNextLeader() override;
    int SetupResendRetryParams(unsigned long iRetries,
                               double frameRate,
                               const char* sFirst,
                               const char* sSecond) override;
    int SetInfo(int iInfoCmd, int iType, const void* pBuffer, std::size_t iSize) override;

    /// Waits up to iTimeout ms, GENTL_INFINITE for ever, for a buffer in the output queue and takes it.
    /// GC_ERR_TIMEOUT, GC_ERR_INVALID_PARAMETER for other values with the top bit set; *phBuffer is null
    /// then.
    int WaitOnNewBuffer(void** phBuffer, unsigned long iTimeout) override;
    /// Marks a kill for the next EventGetData. A wait that runs already is not ended.
    int KillWaitForNewBuffer() override;

    // The flushes touch the buffers' flags without the buffers' own mutexes.
    int FlushQueue_ACQ_QUEUE_INPUT_TO_OUTPUT_() override;
    int FlushQueue_ACQ_QUEUE_OUTPUT_DISCARD_() override;
    int FlushQueue_ACQ_QUEUE_ALL_TO_INPUT_() override;
    int FlushQueue_ACQ_QUEUE_UNQUEUED_TO_INPUT_() override;
    int FlushQueue_ACQ_QUEUE_ALL_DISCARD_() override;

protected:
    friend class NewBufferEvent;

    /// True while a transport's thread writes into the buffer. Called with the buffer's mutex and both queue
    /// mutexes held.
    virtual bool IsBeingFilled(GenTLHandle* hBuffer) const;
    /// A buffer is revoked: the last moment at which it and its memory are there. Called with its mutex held.
    virtual void OnRevoke(GenTLHandle* hBuffer, Buffer& buffer);
    /// The memory of AllocAndAnnounceBuffer, zeroed: at least size bytes, which a transport may have stand
    /// inside a larger block. Throws std::bad_alloc.
    virtual char* AllocateMemory(std::size_t size) const;
    virtual void FreeMemory(char* pData) const;
    bool IsAnnounced(GenTLHandle* hBuffer) const;

    void* m_hDevice;
    void* m_pParentDevice;
    std::vector<GenTLHandle*> m_announcedBuffers;
    std::deque<GenTLHandle*> m_inputBuffers;
    std::deque<GenTLHandle*> m_outputBuffers;
    mutable boost::recursive_mutex m_announcedMutex;                   // guards m_announcedBuffers
    mutable boost::mutex m_inputMutex;                                 // guards m_inputBuffers
    mutable boost::mutex m_outputMutex;                                // guards m_outputBuffers
    std::unique_ptr<OpenedDataStreamGevStateManager> m_pStateManager;  // made by the transport
    boost::condition_variable m_inputCondition;
    boost::condition_variable m_outputCondition;
    NewBufferEvent* m_pNewBufferEvent = nullptr;
    void* m_hNewBufferEvent = nullptr;
    std::atomic<std::uint64_t> m_killCount{0};
    std::atomic<std::uint64_t> m_numDelivered{0};
    std::atomic<std::uint64_t> m_numUnderrun{0};
    std::atomic<std::uint64_t> m_numStarted{0};
    std::uint64_t m_payloadSize = 0;
    std::atomic<bool> m_isGrabbing{false};
    bool m_definesPayloadSize = false;
    std::uint64_t m_numChunksMax = 0;
    std::uint64_t m_bufAnnounceMin = 0;
    std::uint64_t m_bufAlignment = 0;
    std::atomic<std::int64_t> m_bufferHandlingMode{0};
    StreamRegImpl m_streamReg{this};
    std::uint64_t m_numInDriver = 0;
    boost::asio::io_service m_ioService;

private:
    int Announce(std::unique_ptr<Buffer> buffer, void** phBuffer);
    int Withdraw(GenTLHandle* hBuffer, const Buffer& buffer, bool wantsMemory);
    bool IsInInput(GenTLHandle* hBuffer) const;
    bool IsInOutput(GenTLHandle* hBuffer) const;
    /// Queues what is announced and stands in none of the given queues. True when the sizes add up in the
    /// end.
    bool QueueMissingLocked(bool countOutput);
};

}  // namespace GenTL
