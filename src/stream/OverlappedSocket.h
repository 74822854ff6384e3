/// The UDP socket that images and camera events come in by.
#pragma once

#include <netinet/in.h>

namespace GenTL {

/// Blocking datagram reads with a time-out, plain or scattered. It has nothing of overlapped I/O but the
/// name.
///
/// Owns: the descriptor and the multicast membership; an open socket is closed before it is opened anew.
/// Threads: one reader; Send comes from the thread that opened it. Locks: none, but the ports that successive
/// sockets of the process try first are shared under a mutex of their own.
class OverlappedSocket
{
public:
    OverlappedSocket() = default;
    OverlappedSocket(const OverlappedSocket&) = delete;
    OverlappedSocket& operator=(const OverlappedSocket&) = delete;
    virtual ~OverlappedSocket();

    /// Binds to the address and the first free port from 49152 up. GC_ERR_RESOURCE_EXHAUSTED.
    virtual int OpenAndBindSocket(sockaddr_in address);
    /// Binds to a random port of the dynamic range and joins the group, which is in network order.
    virtual int OpenAndBindSocketForMulticast(sockaddr_in address, int group);
    /// As the former with a given port, in host order, that any number of listeners share.
    virtual int OpenAndBindSocketForMulticastListening(sockaddr_in address, int group, unsigned short port);
    virtual int Send(const char* data, int length, sockaddr_in destination);
    /// Receives one datagram within timeoutMs. GC_ERR_TIMEOUT, GC_ERR_IO.
    virtual int GetNextResult(char* buffer, int size, int& length, int timeoutMs);
    /// Receives one datagram into two places. dataLength counts all bytes received, the header's too;
    /// headerLength at most headerSize. What goes beyond both places is lost.
    virtual int GetNextResultNoCopy(char* header,
                                    int headerSize,
                                    int& headerLength,
                                    char* data,
                                    int dataSize,
                                    int& dataLength,
                                    unsigned long timeoutMs);
    virtual int Close();
    /// The receive time-out of the reads to come; 0 waits without limit.
    virtual int SetTimeout(int ms);

    /// Where the socket is bound, in network order.
    const sockaddr_in& Address() const { return m_address; }

private:
    // These raise in the name of the operation that calls them.
    int OpenUdp(const sockaddr_in& address, const char* function = __builtin_FUNCTION());
    int Bind(const sockaddr_in& address) const;
    int ShareAddress(const char* function = __builtin_FUNCTION());
    /// 0 or the system's error.
    int JoinGroup(int group);
    int SetUpReading(const char* sizeText, const char* function = __builtin_FUNCTION());

    sockaddr_in m_address{};
    bool m_isMulticastMember = false;
    ip_mreq m_multicastRequest{};
    int m_timeoutMs = 0;
    int m_socket = -1;
};

}  // namespace GenTL
