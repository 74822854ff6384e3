/// What the streams of a camera have in common, whether images come over UDP or over TCP.
#pragma once

#include "stream/BufferInHand.h"
#include "stream/DataStream.h"
#include "stream/StreamInfo.h"
#include "stream/StreamSettings.h"
#include "stream/StreamStartParams.h"

#include <boost/thread/mutex.hpp>
#include <boost/thread/thread.hpp>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace GenTL {

class IHALGev;

/// The module's port, the open check in front of what DataStream does, and what a start needs.
///
/// Owns: beside what DataStream owns, the stream HAL while open. The grab thread is the transport's, whose
/// destructor ends it. Borrows: IHALGev. Threads and locks: as told at the transports; the outermost lock is
/// m_lifeMutex, held through an opening, a start, a stop and a closing.
class GevStream : public DataStream
{
public:
    /// index is the stream's ID in decimal; accessMode is the device's: 3 control, 4 exclusive, else
    /// read-only. Throws as DataStream does.
    GevStream(IHALGev* pHal, void* device, void* parent, unsigned index, int accessMode);
    ~GevStream() override;

    // Port.
    int ReadPort(unsigned long iAddress, void* pBuffer, unsigned long* piSize) override;
    int WritePort(unsigned long iAddress, const void* pBuffer, unsigned long* piSize) override;
    int GetPortURL(char* sURL, unsigned long* piSize) const override;
    int GetPortInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) override;
    int RegisterEvent(int iEventID, void** phEvent) override;
    int UnregisterEvent(int iEventID) override;
    int GetNumPortURLs(unsigned int* piNumURLs) override;
    int GetPortURLInfo(
        unsigned int iURLIndex, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) override;

    // IDataStream. What needs an open stream answers GC_ERR_INVALID_HANDLE on a closed one.
    /// GC_ERR_RESOURCE_IN_USE when closed already, or grabbing. Waits for the end of a start or stop that
    /// another thread has under way.
    int Close() override;
    bool IsOpen() const override;
    int AnnounceBuffer(void* pBuffer, std::size_t iSize, void* pPrivate, void** phBuffer) override;
    int GetBufferID(unsigned iIndex, void** phBuffer) const override;
    int GetBufferChunkData(void* hBuffer, S_SINGLE_CHUNK_DATA* pChunkData, std::size_t* piNumChunks) override;
    int GetParentDev(void** phDevice) const override;
    /// Takes effect at the next start, over UDP. frameRate is in frames per second.
    int SetupResendRetryParams(unsigned long iRetries,
                               double frameRate,
                               const char* sFirst,
                               const char* sSecond) override;

protected:
    bool IsBeingFilled(GenTLHandle* hBuffer) const override;

    /// 0, or GC_ERR_INVALID_HANDLE in the transport's words.
    virtual int CheckOpen(const char* function = __builtin_FUNCTION(), int line = __builtin_LINE()) const = 0;
    /// Takes pHal over; null gives up what there was.
    void SetHal(IHALGvsp* pHal);
    /// The stream closes: sends away who waits for a leader.
    virtual void EndLeaderWaits() = 0;
    std::size_t NumAnnounced() const;
    /// Bytes of the first announced buffer, which decides for all; 0 without one.
    std::uint64_t FirstBufferSize() const;
    /// What the stream's settings say. bufferSize is in bytes.
    StreamStartParams MakeStartParams(std::uint64_t bufferSize) const;
    /// Raises in the name of the caller.
    static int CheckStopFlags(int iStopFlags, const char* function = __builtin_FUNCTION());
    /// The statistics of a run that begins.
    void CountFromZero();
    /// Interrupts and joins. Needs the whole object: the thread's end queues buffers.
    void StopGrabThread();

    static constexpr unsigned long kGvcpRetries = 3;

    boost::mutex m_lifeMutex;  // one open, start, stop or close at a time
    IHALGev* m_pHalGev;
    // Read and replaced atomically: a call that waits in the HAL keeps it alive beyond a close.
    std::shared_ptr<IHALGvsp> m_pOwnHalGvsp;
    IHALGvsp* m_pHalGvsp = nullptr;  // the same; the state manager refers to the pointer
    boost::thread m_grabThread;
    StreamInfo m_streamInfo;
    StreamSettings m_settings{m_streamInfo, m_bufferHandlingMode};
    std::atomic<bool> m_isOpen{false};
    int m_accessMode;
    std::uint64_t m_retryParam = 0;
    double m_frameRate = 0.0;
    std::string m_firstRetryString;
    std::string m_secondRetryString;
    BufferInHand m_bufferInHand;
};

}  // namespace GenTL
