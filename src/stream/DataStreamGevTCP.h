/// The data stream that receives whole frames over a TCP connection.
#pragma once

#include "stream/GevStream.h"

#include <boost/thread/mutex.hpp>

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
/// Owns: beside what GevStream owns, the grab thread from start to stop.
/// Borrows: IHALGev. Threads: the consumer's enter every public operation; the grab thread is GrabThread.
/// StopAcquisition and the destructor interrupt and join it. Locks: m_lifeMutex, m_moveMutex, then a buffer's
/// m_mutex, then the queue mutexes, then m_announcedMutex. The mutex of m_bufferInHand is a leaf.
///
/// Revocation while the grab thread runs: the grab thread holds m_moveMutex from before it takes a buffer off
/// a queue until the buffer stands in another queue or in m_bufferInHand, and RevokeBuffer holds it
/// throughout. A buffer in hand is refused with GC_ERR_BUSY.
class DataStreamGevTCP : public GevStream
{
public:
    /// index is the stream's ID in decimal; accessMode is the device's: 3 control, 4 exclusive, else
    /// read-only. Throws as DataStream does.
    DataStreamGevTCP(IHALGev* pHal, void* device, void* parent, unsigned index, int accessMode);
    ~DataStreamGevTCP() override;

    // IDataStream. What needs an open stream answers GC_ERR_INVALID_HANDLE on a closed one.
    /// Takes pHal over if it is a HALGvspTCP; otherwise the stream makes its own.
    int Open(IHALGvsp* pHal) override;
    /// iSize is that of the image; the head's room comes on top. Reads the camera's geometry, with which
    /// every head is compared.
    int AllocAndAnnounceBuffer(std::size_t iSize, void* pPrivate, void** phBuffer) override;
    /// Marks the memory by a white band in the middle of the image: an image that doesn't fill it shows that.
    int QueueBuffer(void* hBuffer) override;
    int RevokeBuffer(void* hBuffer, void** ppBuffer, void** ppPrivate) override;
    int FlushQueue(int iOperation) override;
    int GetInfo(int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) const override;
    /// BUFFER_INFO_SIZE is without the head's room.
    int GetBufferInfo(
        void* hBuffer, int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) const override;
    /// The stream runs until it is stopped, whatever iNumToAcquire says; it only must not be 0. Once these
    /// arguments are in order the stream counts as grabbing even if the start fails, and must be stopped. A
    /// stop by another thread waits for the end of the start, and so of the attempt to connect.
    int StartAcquisition(int iStartFlags, unsigned long iNumToAcquire) override;
    /// The stream is stopped even when the camera couldn't be told; the code of that is the result.
    int StopAcquisition(int iStopFlags) override;
    /// Waits up to iTimeout ms (at most 32 bits, or all ones for ever) for a frame to begin.
    int WaitForNextLeader(unsigned long iTimeout) override;
    int ResetWaitForNextLeader() override;
    int SetInfo(int iInfoCmd, int iType, const void* pBuffer, std::size_t iSize) override;

protected:
    int CheckOpen(const char* function = __builtin_FUNCTION(), int line = __builtin_LINE()) const override;
    void EndLeaderWaits() override;
    char* AllocateMemory(std::size_t size) const override;
    void FreeMemory(char* pData) const override;

private:
    friend class TcpGrab;

    int CheckStart(int iStartFlags, unsigned long iNumToAcquire) const;
    int StartHal(int iStartFlags);
    int StartGrabThread();
    int ReadGeometry(Buffer& buffer) const;

    /// The body of the grab thread.
    void GrabThread();

    boost::mutex m_moveMutex;
};

}  // namespace GenTL
