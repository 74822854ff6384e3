/// The TCP connection that images come in by.
#pragma once

#include <netinet/in.h>

#include <functional>
#include <memory>

namespace GenTL {

class UniqueFd;

/// Blocking reads of a fixed number of bytes, each system call of which waits up to a time-out.
///
/// Owns: the descriptor, until Close and the end of the read that still uses it. Threads: one reader; Close
/// may come from another thread and ends a read that blocks. Locks: none.
class TCPSocket
{
public:
    TCPSocket() = default;
    TCPSocket(const TCPSocket&) = delete;
    TCPSocket& operator=(const TCPSocket&) = delete;
    virtual ~TCPSocket();

    /// Connects to address, which is in network order, as long as the system tries; the receive time-out is
    /// 200 ms then. GC_ERR_IO, GC_ERR_ABORT.
    virtual int OpenAndConnectSocket(sockaddr_in address);
    /// Reads exactly dataSize bytes, then copies the first headerSize of them to header; what data doesn't
    /// fill of header is 0. GC_ERR_TIMEOUT after timeoutMs without a byte, GC_ERR_IO, GC_ERR_ABORT; the bytes
    /// that came until then are lost. A peer that closed is waited for without end: by a short sleep each
    /// time, until Close or an interruption of the thread, which leaves as boost::thread_interrupted.
    virtual int GetNextResult(
        char* data, int dataSize, int& received, char* header, unsigned long headerSize, int timeoutMs);
    /// Always 0, a second time too.
    virtual int Close();
    /// The receive time-out of the reads to come; 0 waits without limit. GC_ERR_ABORT.
    virtual int SetTimeout(int ms);

    /// Called after the first system call of each GetNextResult that didn't fail. Must not be empty then.
    std::function<void()> m_onFirstBytes;

private:
    int m_timeoutMs = 0;
    // Read and replaced atomically; a read holds its own reference while it runs.
    std::shared_ptr<const UniqueFd> m_socket;
};

}  // namespace GenTL
