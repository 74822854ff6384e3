/// The receive time-out while a camera asks for patience.
#pragma once

namespace GenTL {

class CommSocket;

/// Lengthens a socket's time-out as PENDING_ACK says and can set it back. Borrows the socket. Not locked: it
/// lives in one wait for an acknowledge.
class PendingTimeout
{
public:
    explicit PendingTimeout(CommSocket& socket) : m_socket(socket) {}

    /// Applies the time of a PENDING_ACK datagram of at least 12 bytes, whoever sent it; other datagrams and
    /// a time of 0, which would wait for ever, change nothing.
    void Apply(const unsigned char* datagram);
    /// Sets the time-out back to the one before the first Apply.
    void Restore();

private:
    CommSocket& m_socket;
    /// 0 is none.
    int m_saved = 0;
};

}  // namespace GenTL
