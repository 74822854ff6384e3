/// A range of packets that the camera was asked to send again.
#pragma once

#include <boost/asio/deadline_timer.hpp>

#include <cstdint>
#include <memory>
#include <mutex>

namespace GenTL {

class Buffer;

/// Stands in its buffer's m_resendRequests, which owns it, and in the stream's m_resendRequestList, by which
/// a handler of its timer learns that it still exists.
struct PacketResendRequest
{
    std::uint64_t m_serial = 0;  // never used twice: an address may be
    Buffer* m_pBuffer = nullptr;
    std::uint64_t m_blockId = 0;
    std::uint32_t m_firstPacketId = 0;
    std::uint32_t m_lastPacketId = 0;  // inclusive
    bool m_extendedId = false;         // form of the command
    std::uint32_t m_remaining = 0;     // packets of the range that haven't come
    std::uint32_t m_retriesLeft = 0;
    std::unique_ptr<boost::asio::deadline_timer> m_pTimer;  // repeats the command
    std::mutex m_mutex;                                     // guards the record
};

}  // namespace GenTL
