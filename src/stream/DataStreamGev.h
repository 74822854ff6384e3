/// The data stream that receives GVSP over UDP.
#pragma once

#include "stream/GevStream.h"
#include "stream/LeaderSignal.h"

#include <boost/thread/mutex.hpp>

#include <cstdint>
#include <list>
#include <memory>
#include <mutex>

namespace GenTL {

class IHALGev;
class NoCopyGrab;
struct PacketResendRequest;

/// Opens the camera's stream channel, runs the grab thread and answers the transport's info commands.
///
/// Owns: beside what GevStream owns, the grab thread from start to stop, and, through StreamInfo, the timer
/// thread that the grab thread starts and joins. Borrows: IHALGev.
/// Threads: the consumer's enter every public operation; the grab thread is GrabThreadResend or, without
/// packet resend, GrabThreadNoCopy; the timer thread runs the handlers on m_ioService. StopAcquisition and
/// the destructor interrupt and join the grab thread. Locks: m_lifeMutex, m_inFlightMutex, then a buffer's
/// m_mutex, then its m_resendRequestsMutex, a request's m_mutex and m_resendRequestListMutex, or the queue
/// mutexes, then m_announcedMutex. The mutexes of m_pLeaderSeen and m_bufferInHand are leaves.
///
/// Revocation while the grab thread runs. A buffer is the grab thread's from the moment it leaves a queue
/// until it is handed off:
///
/// - The grab thread holds m_inFlightMutex from before it takes a buffer off a queue until the buffer stands
///   in m_inFlightBuffers or in another queue. With packet resend it touches buffers under m_inFlightMutex
///   only. Without, what it receives into is in m_bufferInHand as well, until it will touch the buffer and
///   its memory no more.
///
/// - RevokeBuffer answers GC_ERR_BUSY for a buffer in hand. One that was handed off while the grab thread
///   still receives into it, which the timer thread does, is recalled first: the grab thread lets go of it
///   and goes on elsewhere.
///
/// - RevokeBuffer holds m_inFlightMutex from before the buffer's mutex until the Buffer is gone, and takes
///   its handle out of m_inFlightBuffers. So a thread that holds m_inFlightMutex and finds a buffer in that
///   list or in hand never meets a freed one.
class DataStreamGev : public GevStream
{
public:
    /// index is the stream's ID in decimal; accessMode is the device's: 3 control, 4 exclusive, else
    /// read-only. Throws as DataStream does.
    DataStreamGev(IHALGev* pHal, void* device, void* parent, unsigned index, int accessMode);
    ~DataStreamGev() override;

    // IDataStream. What needs an open stream answers GC_ERR_INVALID_HANDLE on a closed one.
    /// Takes pHal over; with null the stream makes its own.
    int Open(IHALGvsp* pHal) override;
    int AllocAndAnnounceBuffer(std::size_t iSize, void* pPrivate, void** phBuffer) override;
    int QueueBuffer(void* hBuffer) override;
    int RevokeBuffer(void* hBuffer, void** ppBuffer, void** ppPrivate) override;
    int FlushQueue(int iOperation) override;
    int GetInfo(int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) const override;
    int GetBufferInfo(
        void* hBuffer, int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) const override;
    /// The stream runs until it is stopped, whatever iNumToAcquire says; it only must not be 0. Without
    /// memory for the thread's own buffer, of the size of the first one, std::bad_alloc leaves; the stream
    /// must be stopped then.
    int StartAcquisition(int iStartFlags, unsigned long iNumToAcquire) override;
    /// The stream is stopped even when the camera couldn't be told; the code of that is the result.
    int StopAcquisition(int iStopFlags) override;
    /// Waits up to iTimeout ms (at most 32 bits, or all ones for ever) for an image to begin.
    int WaitForNextLeader(unsigned long iTimeout) override;
    int ResetWaitForNextLeader() override;
    int SetInfo(int iInfoCmd, int iType, const void* pBuffer, std::size_t iSize) override;

protected:
    int CheckOpen(const char* function = __builtin_FUNCTION(), int line = __builtin_LINE()) const override;
    void EndLeaderWaits() override;
    void OnRevoke(GenTLHandle* hBuffer, Buffer& buffer) override;

private:
    friend class GrabCommon;
    friend class NoCopyGrab;
    friend class ResendGrab;
    friend class ResendRequests;

    int CheckStart(int iStartFlags, unsigned long iNumToAcquire) const;
    /// Opens the camera's channel and takes the measures that came out of it.
    int StartHal(int iStartFlags);
    int StartGrabThread();
    /// A buffer that was handed off while the grab thread still receives into it.
    bool IsLentAfterHandOff(void* hBuffer) const;

    // The bodies of the grab thread.
    static void GrabThreadNoCopy(NoCopyGrab& grab);
    void GrabThreadResend();

    std::list<GenTLHandle*> m_inFlightBuffers;  // images in collection, oldest first
    mutable boost::mutex m_inFlightMutex;       // guards m_inFlightBuffers
    std::shared_ptr<LeaderSignal> m_pLeaderSeen = std::make_shared<LeaderSignal>();  // who waits holds it
    std::list<PacketResendRequest*> m_resendRequestList;  // the open ones; their buffers own them
    std::mutex m_resendRequestListMutex;                  // guards m_resendRequestList
    std::uint64_t m_lastResendSerial = 0;                 // guarded by m_inFlightMutex
    std::uint64_t m_firstBufferSize = 0;  // bytes of the first announced buffer when acquisition started
};

}  // namespace GenTL
