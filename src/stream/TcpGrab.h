/// The grab path of the TCP stream: a frame goes from the socket straight into its buffer.
#pragma once

#include "stream/TcpFrame.h"

#include <array>

namespace GenTL {

class Buffer;
class DataStreamGevTCP;
struct GenTLHandle;

/// One run of the grab thread. Frames have no mark at which one could find the next: the place in the byte
/// stream is kept by reading exactly a buffer's size for each, and a read that failed in the middle of a
/// frame shifts all later ones. The comparison of their heads with the camera's geometry tells.
///
/// Owns: nothing. Borrows: the stream. Threads: everything is the grab thread. It ends by interruption.
/// Locks: m_moveMutex, then the mutex of the buffer in hand, then the queue mutexes. None is held while
/// receiving.
class TcpGrab
{
public:
    explicit TcpGrab(DataStreamGevTCP& stream) : m_stream(stream) {}
    TcpGrab(const TcpGrab&) = delete;
    TcpGrab& operator=(const TcpGrab&) = delete;

    /// Grabs images until the thread is interrupted. Doesn't throw.
    void Run();

private:
    void GrabImages();
    /// False when no input buffer has come for a while.
    bool AwaitInput();
    bool TakeBuffer();
    /// False when the connection failed.
    bool ReceiveFrame();
    void ReadHeader();
    /// With the handling mode for it, the images that nobody has fetched give way to this one.
    void HandOff();
    void CompleteLocked();
    /// The thread has nothing to do with the buffer from here on.
    void PutDown();

    DataStreamGevTCP& m_stream;
    GenTLHandle* m_hBuffer = nullptr;
    Buffer* m_pBuffer = nullptr;
    std::array<char, TcpFrame::kHeaderSize> m_header{};
    int m_received = 0;  // bytes of the frame, head included
};

}  // namespace GenTL
