/// The UDP socket under every control-channel exchange.
#pragma once

#include <netinet/in.h>

#include <memory>
#include <string>

namespace GenTL {

class UniqueFd;

/// A blocking IPv4 UDP socket with a fixed remote end and a receive time-out.
///
/// Owns: its descriptor, until Close and the end of the calls that still use it. Threads: any; one reader at
/// a time by the users' rules. Locks: none. Close may come from another thread: it wakes a blocked Receive,
/// which then fails, and the descriptor's number is not free for others before that call has ended.
class CommSocket
{
public:
    CommSocket();
    CommSocket(const CommSocket&) = delete;
    CommSocket& operator=(const CommSocket&) = delete;
    virtual ~CommSocket();

    /// Opens the socket, and binds it to local at the first free port from one that all sockets of the
    /// process begin at. local's port is ignored. A broadcast socket may share its port with others.
    /// GC_ERR_RESOURCE_EXHAUSTED, GC_ERR_ABORT; a failure leaves no descriptor behind.
    virtual int OpenAndBindSocket(sockaddr_in local,
                                  const std::string& remoteIp,
                                  unsigned short remotePort,
                                  bool broadcast,
                                  int timeoutMs);
    /// Replaces the receive time-out; previousMs is the one before, as the kernel rounded it. GC_ERR_ABORT.
    /// 0 waits for ever, a negative value is refused by the kernel: pass a positive one.
    virtual int SetTimeout(int timeoutMs, int& previousMs);
    /// Sends one datagram to the remote end. GC_ERR_IO.
    virtual int Send(const char* data, int length);
    /// Takes one datagram of at most length bytes from anybody; how many came is not told. GC_ERR_TIMEOUT
    /// (not put in the error cache when quiet), GC_ERR_BUSY.
    virtual int Receive(char* buffer, int length, bool quiet);
    /// Always 0, a second time too.
    virtual int Close();

    const sockaddr_in& LocalAddress() const { return m_local; }
    const sockaddr_in& RemoteAddress() const { return m_remote; }

private:
    bool BindToFreePort(int descriptor);

    sockaddr_in m_local{};
    sockaddr_in m_remote{};
    // Read and replaced atomically; each call holds its own reference while it runs.
    std::shared_ptr<const UniqueFd> m_pDescriptor;
};

}  // namespace GenTL
