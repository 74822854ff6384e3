/// The data stream that receives GVSP over UDP.
#pragma once

#include "stream/BufferInHand.h"
#include "stream/DataStream.h"
#include "stream/StreamInfo.h"
#include "stream/StreamSettings.h"

#include <boost/thread/thread.hpp>

#include <list>
#include <mutex>
#include <string>

namespace GenTL {

class IHALGev;
struct PacketResendRequest;

/// Opens the camera's stream channel, runs the grab thread and answers the transport's info commands.
///
/// Owns: beside what DataStream owns, the stream HAL while open, the grab thread from start to stop, and,
/// through StreamInfo, the timer thread that the grab thread starts and joins. Borrows: IHALGev.
/// Threads: the consumer's enter every public operation; the grab thread is GrabThreadResend or, without
/// packet resend, GrabThreadNoCopy; the timer thread runs the handlers on m_ioService. StopAcquisition and
/// the destructor interrupt and join the grab thread. Locks: m_inFlightMutex, then a buffer's m_mutex, then
/// its m_resendRequestsMutex, a request's m_mutex and m_resendRequestListMutex, or the queue mutexes, then
/// m_announcedMutex. m_leaderMutex and the mutex of m_bufferInHand are leaves.
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
class DataStreamGev : public DataStream
{
public:
    /// index is the stream's ID in decimal; accessMode is the device's: 3 control, 4 exclusive, else
    /// read-only. Throws as DataStream does.
    DataStreamGev(IHALGev* pHal, void* device, void* parent, unsigned index, int accessMode);
    ~DataStreamGev() override;

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
    /// Takes pHal over; with null the stream makes its own.
    int Open(IHALGvsp* pHal) override;
    /// GC_ERR_RESOURCE_IN_USE when closed already, or grabbing.
    int Close() override;
    bool IsOpen() const override;
    int AnnounceBuffer(void* pBuffer, std::size_t iSize, void* pPrivate, void** phBuffer) override;
    int AllocAndAnnounceBuffer(std::size_t iSize, void* pPrivate, void** phBuffer) override;
    int QueueBuffer(void* hBuffer) override;
    int RevokeBuffer(void* hBuffer, void** ppBuffer, void** ppPrivate) override;
    int FlushQueue(int iOperation) override;
    int GetInfo(int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) const override;
    int GetBufferID(unsigned iIndex, void** phBuffer) const override;
    int GetBufferInfo(
        void* hBuffer, int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) const override;
    /// The stream runs until it is stopped, whatever iNumToAcquire says; it only must not be 0.
    int StartAcquisition(int iStartFlags, unsigned long iNumToAcquire) override;
    /// The stream is stopped even when the camera couldn't be told; the code of that is the result.
    int StopAcquisition(int iStopFlags) override;
    int GetBufferChunkData(void* hBuffer, S_SINGLE_CHUNK_DATA* pChunkData, std::size_t* piNumChunks) override;
    int GetParentDev(void** phDevice) const override;
    /// Waits up to iTimeout ms (at most 32 bits, or all ones for ever) for an image to begin.
    int WaitForNextLeader(unsigned long iTimeout) override;
    int ResetWaitForNextLeader() override;
    /// Takes effect at the next start. frameRate is in frames per second.
    int SetupResendRetryParams(unsigned long iRetries,
                               double frameRate,
                               const char* sFirst,
                               const char* sSecond) override;
    int SetInfo(int iInfoCmd, int iType, const void* pBuffer, std::size_t iSize) override;

protected:
    bool IsBeingFilled(GenTLHandle* hBuffer) const override;
    void OnRevoke(GenTLHandle* hBuffer, Buffer& buffer) override;

private:
    friend class GrabCommon;
    friend class NoCopyGrab;
    friend class ResendGrab;
    friend class ResendRequests;

    int CheckOpen(const char* function = __builtin_FUNCTION(), int line = __builtin_LINE()) const;
    int CheckStart(int iStartFlags, unsigned long iNumToAcquire) const;
    /// Opens the camera's channel and takes the measures that came out of it.
    int StartHal(int iStartFlags);
    int StartGrabThread();
    void StopGrabThread();
    void ReleaseLeaderWaiters();
    /// A buffer that was handed off while the grab thread still receives into it.
    bool IsLentAfterHandOff(void* hBuffer) const;

    // The bodies of the grab thread.
    void GrabThreadNoCopy();
    void GrabThreadResend();

    IHALGev* m_pHalGev;
    IHALGvsp* m_pHalGvsp = nullptr;  // owned; the state manager refers to the pointer
    boost::thread m_grabThread;
    StreamInfo m_streamInfo;
    StreamSettings m_settings{m_streamInfo, m_bufferHandlingMode};
    std::atomic<bool> m_isOpen{false};
    std::list<GenTLHandle*> m_inFlightBuffers;  // images in collection, oldest first
    mutable boost::mutex m_inFlightMutex;       // guards m_inFlightBuffers
    int m_accessMode;
    boost::condition_variable m_leaderCondition;
    boost::mutex m_leaderMutex;  // guards m_leaderSeen
    bool m_leaderSeen = false;
    std::uint64_t m_retryParam = 0;
    double m_frameRate = 0.0;
    std::string m_firstRetryString;
    std::string m_secondRetryString;
    std::list<PacketResendRequest*> m_resendRequestList;  // the open ones; their buffers own them
    std::mutex m_resendRequestListMutex;                  // guards m_resendRequestList
    std::uint64_t m_lastResendSerial = 0;                 // guarded by m_inFlightMutex
    BufferInHand m_bufferInHand;
    std::uint64_t m_firstBufferSize = 0;  // bytes of the first announced buffer when acquisition started
};

}  // namespace GenTL
