/// The data stream that receives whole frames over a TCP connection.
#pragma once

#include "stream/BufferInHand.h"
#include "stream/DataStream.h"
#include "stream/StreamInfo.h"
#include "stream/StreamSettings.h"

#include <boost/thread/mutex.hpp>
#include <boost/thread/thread.hpp>

#include <atomic>
#include <cstdint>
#include <string>

namespace GenTL {

class Buffer;
class IHALGev;

/// Has the camera listen, connects to it, runs the grab thread and answers the transport's info commands.
/// There are no packets, no resend and no timers: a frame is as long as its buffer, and a stream without
/// free buffers lets the camera wait.
///
/// A frame's head is received ahead of the image. Memory of the stream's has the room for it; a consumer that
/// announces memory of its own must own TcpFrame::kHeaderSize bytes ahead of the address as well, and the
/// buffer's size counts them.
///
/// Owns: beside what DataStream owns, the stream HAL while open, and the grab thread from start to stop.
/// Borrows: IHALGev. Threads: the consumer's enter every public operation; the grab thread is GrabThread.
/// StopAcquisition and the destructor interrupt and join it. Locks: m_moveMutex, then a buffer's m_mutex,
/// then the queue mutexes, then m_announcedMutex. The mutex of m_bufferInHand is a leaf.
///
/// Revocation while the grab thread runs: the grab thread holds m_moveMutex from before it takes a buffer off
/// a queue until the buffer stands in another queue or in m_bufferInHand, and RevokeBuffer holds it
/// throughout. A buffer in hand is refused with GC_ERR_BUSY.
class DataStreamGevTCP : public DataStream
{
public:
    /// index is the stream's ID in decimal; accessMode is the device's: 3 control, 4 exclusive, else
    /// read-only. Throws as DataStream does.
    DataStreamGevTCP(IHALGev* pHal, void* device, void* parent, unsigned index, int accessMode);
    ~DataStreamGevTCP() override;

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
    /// Takes pHal over if it is a HALGvspTCP; otherwise the stream makes its own.
    int Open(IHALGvsp* pHal) override;
    /// GC_ERR_RESOURCE_IN_USE when closed already, or grabbing.
    int Close() override;
    bool IsOpen() const override;
    int AnnounceBuffer(void* pBuffer, std::size_t iSize, void* pPrivate, void** phBuffer) override;
    /// iSize is that of the image; the head's room comes on top. Reads the camera's geometry, with which
    /// every head is compared.
    int AllocAndAnnounceBuffer(std::size_t iSize, void* pPrivate, void** phBuffer) override;
    /// Marks the memory by a white band in the middle of the image: an image that doesn't fill it shows that.
    int QueueBuffer(void* hBuffer) override;
    int RevokeBuffer(void* hBuffer, void** ppBuffer, void** ppPrivate) override;
    int FlushQueue(int iOperation) override;
    int GetInfo(int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) const override;
    int GetBufferID(unsigned iIndex, void** phBuffer) const override;
    /// BUFFER_INFO_SIZE is without the head's room.
    int GetBufferInfo(
        void* hBuffer, int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) const override;
    /// The stream runs until it is stopped, whatever iNumToAcquire says; it only must not be 0. Once these
    /// arguments are in order the stream counts as grabbing even if the start fails, and must be stopped.
    int StartAcquisition(int iStartFlags, unsigned long iNumToAcquire) override;
    /// The stream is stopped even when the camera couldn't be told; the code of that is the result.
    int StopAcquisition(int iStopFlags) override;
    int GetBufferChunkData(void* hBuffer, S_SINGLE_CHUNK_DATA* pChunkData, std::size_t* piNumChunks) override;
    int GetParentDev(void** phDevice) const override;
    /// Waits up to iTimeout ms (at most 32 bits, or all ones for ever) for a frame to begin.
    int WaitForNextLeader(unsigned long iTimeout) override;
    int ResetWaitForNextLeader() override;
    /// Without effect on this transport.
    int SetupResendRetryParams(unsigned long iRetries,
                               double frameRate,
                               const char* sFirst,
                               const char* sSecond) override;
    int SetInfo(int iInfoCmd, int iType, const void* pBuffer, std::size_t iSize) override;

protected:
    bool IsBeingFilled(GenTLHandle* hBuffer) const override;
    char* AllocateMemory(std::size_t size) const override;
    void FreeMemory(char* pData) const override;

private:
    friend class TcpGrab;

    int CheckOpen(const char* function = __builtin_FUNCTION(), int line = __builtin_LINE()) const;
    int CheckStart(int iStartFlags, unsigned long iNumToAcquire) const;
    void CountFromZero();
    int StartHal(int iStartFlags);
    int StartGrabThread();
    void StopGrabThread();
    int ReadGeometry(Buffer& buffer) const;

    /// The body of the grab thread.
    void GrabThread();

    IHALGev* m_pHalGev;
    IHALGvsp* m_pHalGvsp = nullptr;  // a HALGvspTCP, owned; the state manager refers to the pointer
    boost::thread m_grabThread;
    StreamInfo m_streamInfo;
    StreamSettings m_settings{m_streamInfo, m_bufferHandlingMode};
    std::atomic<bool> m_isOpen{false};
    int m_accessMode;
    std::uint64_t m_retryParam = 0;
    double m_frameRate = 0.0;
    std::string m_firstRetryString;
    std::string m_secondRetryString;
    boost::mutex m_moveMutex;
    BufferInHand m_bufferInHand;
};

}  // namespace GenTL
