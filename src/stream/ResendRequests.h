/// The requests for lost packets: what is asked for, how often, and until when.
#pragma once

#include <boost/system/error_code.hpp>

#include <cstdint>

namespace GenTL {

class Buffer;
class DataStreamGev;
struct PacketResendRequest;

/// Three things make the stream ask, all together m_maxResendRequests times per image: a gap before a packet,
/// the missing end of an image when the next one begins, and silence. What is asked for in the first two ways
/// is repeated each m_resendRetryInterval until it has come or m_resendRetries are used up.
///
/// Owns: nothing; a view of the stream that costs nothing to make. Threads: the grab thread asks and books,
/// the timer thread asks and repeats, the thread that revokes a buffer cancels. Locks: m_inFlightMutex is
/// held by the caller of all ...Locked, and by that of those that take a buffer its m_mutex too; then come
/// m_resendRequestsMutex, a request's m_mutex, m_resendRequestListMutex.
class ResendRequests
{
public:
    explicit ResendRequests(DataStreamGev& stream) : m_stream(stream) {}

    bool MayAskLocked(const Buffer& buffer) const;
    /// Asks for packets of the current block, and goes on asking. Both ids are inclusive.
    void AskForRangeLocked(Buffer& buffer, std::uint32_t first, std::uint32_t last);
    /// Silence: asks once for all that hasn't come of the buffer's own block, up to behind the trailer.
    /// Nothing happens when the switch is off, the trailer was there, or the requests are used up; what
    /// names the handler in the log.
    void AskForRestLocked(Buffer& buffer, const char* what);
    /// A packet has come late. Ends the first request that has all its packets now.
    void BookLocked(Buffer& buffer, std::uint32_t packetId);
    /// The image has ended: no request repeats any more.
    void CancelAllLocked(Buffer& buffer);

private:
    static void PacketResendRequestTimerExpiryHandler(const boost::system::error_code& error,
                                                      DataStreamGev& stream,
                                                      std::uint64_t serial);

    void ArmRepeatLocked(PacketResendRequest& request);
    void SendLocked(const PacketResendRequest& request);
    PacketResendRequest* FindInFlightLocked(std::uint64_t serial);
    void UnlistLocked(PacketResendRequest* pRequest);

    DataStreamGev& m_stream;
};

}  // namespace GenTL
