/// The wire records of the control channel.
#pragma once

#include "gev/BigEndian.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace GenTL {

inline constexpr unsigned short kGvcpPort = 3956;

/// Command codes; an acknowledge has the code of its command plus 1.
namespace Gvcp {
inline constexpr std::uint16_t kDiscoveryCmd = 0x0002;
inline constexpr std::uint16_t kForceIpCmd = 0x0004;
inline constexpr std::uint16_t kPacketResendCmd = 0x0040;
inline constexpr std::uint16_t kReadRegCmd = 0x0080;
inline constexpr std::uint16_t kWriteRegCmd = 0x0082;
inline constexpr std::uint16_t kReadMemCmd = 0x0084;
inline constexpr std::uint16_t kWriteMemCmd = 0x0086;
inline constexpr std::uint16_t kPendingAck = 0x0089;
inline constexpr std::uint16_t kActionCmd = 0x0100;

inline constexpr std::uint8_t kKey = 0x42;
inline constexpr std::uint8_t kFlagAck = 0x01;
inline constexpr std::uint8_t kFlagBroadcastAck = 0x10;
inline constexpr std::uint8_t kFlagExtendedId = 0x10;
inline constexpr std::uint8_t kFlagActionTime = 0x80;

inline constexpr std::size_t kHeaderSize = 8;
/// The room of the command and reply buffers.
inline constexpr std::size_t kBufferSize = 552;
/// The most bytes that one READMEM or WRITEMEM carries.
inline constexpr std::size_t kMaxMemory = 536;
}  // namespace Gvcp

/// Offsets in an acknowledge.
namespace GvcpAck {
inline constexpr std::size_t kStatus = 0;
inline constexpr std::size_t kAcknowledge = 2;
inline constexpr std::size_t kLength = 4;
inline constexpr std::size_t kAckId = 6;
inline constexpr std::size_t kPendingTime = 10;
inline constexpr std::size_t kRegisters = 8;
inline constexpr std::size_t kMemory = 12;

/// The four header words.
struct Header
{
    explicit Header(const unsigned char* datagram)
        : m_status(Load16(datagram + kStatus)),
          m_acknowledge(Load16(datagram + kAcknowledge)),
          m_length(Load16(datagram + kLength)),
          m_ackId(Load16(datagram + kAckId))
    {
    }

    std::uint16_t m_status;
    std::uint16_t m_acknowledge;
    std::uint16_t m_length;
    std::uint16_t m_ackId;
};
}  // namespace GvcpAck

/// Offsets in a discovery record.
namespace RecordField {
inline constexpr std::size_t kMacHigh = 10;
inline constexpr std::size_t kMacLow = 12;
inline constexpr std::size_t kIpConfig = 20;
inline constexpr std::size_t kIpAddress = 36;
inline constexpr std::size_t kSubnetMask = 52;
inline constexpr std::size_t kDefaultGateway = 68;
inline constexpr std::size_t kVendorName = 72;
inline constexpr std::size_t kModelName = 104;
inline constexpr std::size_t kDeviceVersion = 136;
inline constexpr std::size_t kSerialNumber = 216;
inline constexpr std::size_t kUserDefinedName = 232;
}  // namespace RecordField

/// A command under construction in a fixed, zeroed buffer. Offsets count from the start of the datagram and
/// are to lie in Size(); what would lie outside is not written.
class GvcpCommand
{
public:
    /// length is the header field, which FORCEIP and ACTION leave at 0; size the whole datagram.
    GvcpCommand(
        std::uint16_t code, std::uint8_t flags, std::size_t length, std::uint16_t requestId, std::size_t size)
        : m_size(size < Gvcp::kBufferSize ? size : Gvcp::kBufferSize)
    {
        m_bytes[0] = Gvcp::kKey;
        m_bytes[1] = flags;
        Store16(&m_bytes[2], code);
        Store16(&m_bytes[4], static_cast<std::uint16_t>(length));
        Store16(&m_bytes[6], requestId);
    }

    void Put16(std::size_t offset, std::uint16_t value)
    {
        if (Fits(offset, sizeof value)) {
            Store16(&m_bytes[offset], value);
        }
    }
    void Put32(std::size_t offset, std::uint32_t value)
    {
        if (Fits(offset, sizeof value)) {
            Store32(&m_bytes[offset], value);
        }
    }
    void Put64(std::size_t offset, std::uint64_t value)
    {
        if (Fits(offset, sizeof value)) {
            Store64(&m_bytes[offset], value);
        }
    }
    /// Copies bytes as they lie in memory.
    void PutBytes(std::size_t offset, const void* source, std::size_t count)
    {
        if (count != 0 && Fits(offset, count)) {
            std::memcpy(&m_bytes[offset], source, count);
        }
    }

    const char* Data() const { return reinterpret_cast<const char*>(m_bytes.data()); }
    std::size_t Size() const { return m_size; }
    std::uint16_t RequestId() const { return Load16(&m_bytes[6]); }

private:
    bool Fits(std::size_t offset, std::size_t count) const
    {
        return offset <= m_size && count <= m_size - offset;
    }

    std::array<unsigned char, Gvcp::kBufferSize> m_bytes{};
    std::size_t m_size;
};

}  // namespace GenTL
