#include "frame/Error.h"
#include "gev/GvcpCommand.h"
#include "gev/HALGev.h"
#include "gev/PendingTimeout.h"
#include "log/HLogger.h"
#include "log/localization.h"

#include <boost/thread/lock_guard.hpp>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>

namespace GenTL {
namespace {

/// What sets one register or memory operation apart from the others.
struct Operation
{
    const char* name;
    std::uint16_t command;
    /// False: any reply is taken for the answer.
    bool comparesId;
    /// Of a bad reply with the right acknowledge code, usually one of the right length gives the mapped
    /// status and one of another length GC_ERR_INVALID_BUFFER. True: the other way round.
    bool isLengthSenseReversed;
    const char* sendFailed;
    const char* receiveFailed;
    const char* ackInvalid;
    const char* idMismatch;
    const char* errorText;
    /// Joins the error of a failed send.
    const char* sendNote;
};

constexpr Operation kReadReg{
    "ReadReg",
    Gvcp::kReadRegCmd,
    true,
    true,
    "GenTL::HALGev::ReadReg Send Failed",
    "GenTL::HALGev::ReadReg Receive Failed",
    "GenTL::HALGev::ReadReg Ack is invalid",
    "GenTL::HALGev::ReadReg Ack is invalid: reqID Sent: {0}, reqID Recv: {1}",
    "GenTL::HALGev::ReadReg Ack is invalid: ",
    nullptr,
};

constexpr Operation kWriteReg{
    "WriteReg",
    Gvcp::kWriteRegCmd,
    true,
    false,
    "GenTL::HALGev::WriteReg Send Failed",
    "GenTL::HALGev::WriteReg Receive Failed",
    "GenTL::HALGev::WriteReg Ack is invalid",
    "GenTL::HALGev::WriteReg Ack is invalid: reqID Sent {0}, reqID Recv {1}",
    "GenTL::HALGev::WriteReg Ack is invalid: ",
    ":IGNORABLE: failed to send WRITEREG_CMD; device is marked as disconnected",
};

constexpr Operation kReadRegBlock{
    "ReadRegBlock",
    Gvcp::kReadRegCmd,
    true,
    false,
    "GenTL::HALGev::ReadRegBlock Send Failed",
    "GenTL::HALGev::ReadRegBlock Receive Failed",
    "GenTL::HALGev::ReadRegBlock Ack is invalid",
    "GenTL::HALGev::ReadRegBlock Ack is invalid: reqID Sent: {0}, reqID Recv: {1}",
    "GenTL::HALGev::ReadRegBlock Ack is invalid: ",
    nullptr,
};

constexpr Operation kWriteRegBlock{
    "WriteRegBlock",
    Gvcp::kWriteRegCmd,
    false,
    false,
    "GenTL::HALGev::WriteRegBlock Send Failed",
    "GenTL::HALGev::WriteRegBlock Receive Failed",
    "GenTL::HALGev::WriteRegBlock Ack is invalid",
    nullptr,
    "GenTL::HALGev::WriteRegBlock is invalid: ",
    nullptr,
};

constexpr Operation kReadMem{
    "ReadMem",
    Gvcp::kReadMemCmd,
    true,
    false,
    "GenTL::HALGev::ReadMem Send Failed",
    "GenTL::HALGev::ReadMem Receive Failed",
    "GenTL::HALGev::ReadMem Ack is invalid",
    "GenTL::HALGev::ReadReg Ack is invalid: reqID Sent: {0}, reqID Recv: {1}",
    "GenTL::HALGev::ReadMem Ack is invalid: ",
    nullptr,
};

constexpr Operation kWriteMem{
    "WriteMem",
    Gvcp::kWriteMemCmd,
    true,
    false,
    "GenTL::HALGev::WriteMem Send Failed",
    "GenTL::HALGev::WriteMem Ack Receive Failed",
    "GenTL::HALGev::WriteMem Ack Ack is invalid",
    "GenTL::HALGev::WriteMem Ack is invalid: reqID Sent: {0}, reqID Recv: {1}",
    "GenTL::HALGev::WriteMem is invalid: ",
    nullptr,
};

struct StatusRow
{
    std::uint16_t status;
    int code;
};

constexpr StatusRow kStatusCodes[] = {
    {0x0000, GC_ERR_SUCCESS          }, // SUCCESS
    {0x0100, GC_ERR_CUSTOM_ID        }, // PACKET_RESEND
    {0x8001, GC_ERR_NOT_IMPLEMENTED  }, // NOT_IMPLEMENTED
    {0x8002, GC_ERR_INVALID_PARAMETER}, // INVALID_PARAMETER
    {0x8003, GC_ERR_INVALID_ADDRESS  }, // INVALID_ADDRESS
    {0x8004, GC_ERR_ACCESS_DENIED    }, // WRITE_PROTECT
    {0x8005, GC_ERR_INVALID_ADDRESS  }, // BAD_ALIGNMENT
    {0x8006, GC_ERR_ACCESS_DENIED    }, // ACCESS_DENIED
    {0x8007, GC_ERR_BUSY             }, // BUSY
    {0x8008, GC_ERR_CUSTOM_ID        }, // LOCAL_PROBLEM
    {0x8009, GC_ERR_CUSTOM_ID        }, // MSG_MISMATCH
    {0x800A, GC_ERR_CUSTOM_ID        }, // INVALID_PROTOCOL
    {0x800B, GC_ERR_NO_DATA          }, // NO_MSG
    {0x800C, GC_ERR_NOT_AVAILABLE    }, // PACKET_UNAVAILABLE
    {0x800D, GC_ERR_CUSTOM_ID        }, // DATA_OVERRUN
    {0x800E, GC_ERR_INVALID_PARAMETER}, // INVALID_HEADER
    {0x8010, GC_ERR_NOT_AVAILABLE    }, // PACKET_NOT_YET_AVAILABLE
    {0x8011, GC_ERR_OUT_OF_MEMORY    }, // PACKET_AND_PREV_REMOVED_FROM_MEMORY
    {0x8012, GC_ERR_OUT_OF_MEMORY    }, // PACKET_REMOVED_FROM_MEMORY
    {0x8013, GC_ERR_CUSTOM_ID        }, // NO_REF_TIME
    {0x8014, GC_ERR_NOT_AVAILABLE    }, // PACKET_TEMPORARILY_UNAVAILABLE
    {0x8015, GC_ERR_BUFFER_TOO_SMALL }, // OVERFLOW
    {0x8016, GC_ERR_TIMEOUT          }, // ACTION_LATE
    {0x8FFF, GC_ERR_ERROR            }, // ERROR
};

/// A reply to a command of the right sequence with another acknowledge code; of the custom range.
constexpr int kForeignAcknowledge = -9998;
/// A camera counts as lost when more time-outs than this come in a row.
constexpr std::uint64_t kToleratedTimeouts = 2;

std::atomic<unsigned long> g_retries{3};

struct Reply
{
    std::size_t size;
    std::size_t goodLength;
    std::array<unsigned char, Gvcp::kBufferSize> bytes{};
    bool isGood = false;
};

void MarkDisconnected(DeviceHandle& device)
{
    const boost::lock_guard<boost::mutex> lock(device.m_connectionMutex);
    device.m_isConnected = false;
}

void CountTimeout(DeviceHandle& device)
{
    const boost::lock_guard<boost::mutex> lock(device.m_connectionMutex);
    if (++device.m_consecutiveTimeouts > kToleratedTimeouts) {
        device.m_isConnected = false;
    }
}

void ForgetTimeouts(DeviceHandle& device)
{
    const boost::lock_guard<boost::mutex> lock(device.m_connectionMutex);
    device.m_consecutiveTimeouts = 0;
}

std::string Details(unsigned address, const GvcpAck::Header& ack)
{
    char text[128];
    std::snprintf(text, sizeof text, "address: 0x%x, ACK = 0x%x, status = 0x%x, ack_id = 0x%x, length = 0x%x",
                  address, static_cast<unsigned>(ack.m_acknowledge), static_cast<unsigned>(ack.m_status),
                  static_cast<unsigned>(ack.m_ackId), static_cast<unsigned>(ack.m_length));
    return text;
}

int CodeOfBadReply(const Operation& operation, const GvcpAck::Header& ack, std::size_t goodLength)
{
    if (ack.m_acknowledge != operation.command + 1) {
        return kForeignAcknowledge;
    }
    const bool isLengthRight = ack.m_length == goodLength;
    return isLengthRight != operation.isLengthSenseReversed ? ToGCError(ack.m_status)
                                                            : static_cast<int>(GC_ERR_INVALID_BUFFER);
}

/// One attempt's wait. Late answers to earlier commands are dropped, and the wait begins anew with each
/// datagram.
int AwaitReply(DeviceHandle& device,
               const Operation& operation,
               unsigned address,
               std::uint16_t requestId,
               Reply& reply,
               PendingTimeout& pending,
               std::string& details)
{
    for (;;) {
        // A datagram shorter than expected then ends in zeros, and an empty one can't match: no id is 0.
        std::fill_n(reply.bytes.begin(), reply.size, static_cast<unsigned char>(0));
        const int code = device.m_pSocket->Receive(reinterpret_cast<char*>(reply.bytes.data()),
                                                   static_cast<int>(reply.size), false);
        if (code != GC_ERR_SUCCESS) {
            if (code == GC_ERR_TIMEOUT) {
                CountTimeout(device);
            }
            HLogger::Error(operation.receiveFailed, code);
            return code;
        }
        ForgetTimeouts(device);
        pending.Apply(reply.bytes.data());

        const GvcpAck::Header ack(reply.bytes.data());
        const bool isMatch = !operation.comparesId || ack.m_ackId == requestId;
        if (ack.m_acknowledge == Gvcp::kPendingAck && isMatch) {
            continue;
        }
        reply.isGood = ack.m_acknowledge == operation.command + 1 && isMatch && ack.m_status == 0 &&
                       ack.m_length == reply.goodLength;
        if (reply.isGood) {
            return GC_ERR_SUCCESS;
        }
        details = Details(address, ack);
        HLogger::Error(operation.ackInvalid, GC_ERR_INVALID_VALUE);
        HLogger::Error(details.c_str());
        if (isMatch) {
            return CodeOfBadReply(operation, ack, reply.goodLength);
        }
        HLogger::Error(loc::al(operation.idMismatch,
                               {std::to_string(requestId).c_str(), std::to_string(ack.m_ackId).c_str()})
                           .c_str());
    }
}

/// Sends command until it is answered or the retries are used up. Expects the transaction mutex. Only a
/// time-out, or a status that maps to one, is tried again, under the same request id.
int Transact(DeviceHandle& device,
             const Operation& operation,
             const GvcpCommand& command,
             unsigned address,
             Reply& reply)
{
    std::string details;
    int code = GC_ERR_SUCCESS;
    for (unsigned long attempt = 0;; ++attempt) {
        code = device.m_pSocket->Send(command.Data(), static_cast<int>(command.Size()));
        if (code == GC_ERR_SUCCESS) {
            PendingTimeout pending(*device.m_pSocket);
            code = AwaitReply(device, operation, address, command.RequestId(), reply, pending, details);
            pending.Restore();
        } else {
            MarkDisconnected(device);
            HLogger::Error(operation.sendFailed, code);
            if (operation.sendNote != nullptr) {
                Append(code, operation.sendNote, operation.name);
            }
        }
        if (code != GC_ERR_TIMEOUT || attempt >= g_retries) {
            break;
        }
    }
    if (code == GC_ERR_SUCCESS) {
        return code;
    }
    return Raise(code, operation.errorText + std::to_string(GC_ERR_INVALID_VALUE) + " : " + details,
                 operation.name);
}

constexpr std::size_t RoundUp(unsigned long size)
{
    return (size + 3) / 4 * 4;
}

}  // namespace

int ToGCError(unsigned short status)
{
    const auto* row =
        std::find_if(std::begin(kStatusCodes), std::end(kStatusCodes),
                     [status](const StatusRow& candidate) { return candidate.status == status; });
    return row != std::end(kStatusCodes) ? row->code : static_cast<int>(GC_ERR_ERROR);
}

int HALGev::ReadReg(void* deviceHandle, unsigned address, unsigned& value)
{
    if (deviceHandle == nullptr) {
        return Store(GC_ERR_INVALID_HANDLE);
    }
    DeviceHandle& device = *ToDevice(deviceHandle);
    const boost::lock_guard<boost::mutex> lock(device.m_transactionMutex);

    GvcpCommand command(Gvcp::kReadRegCmd, Gvcp::kFlagAck, 4, GetReqID(&device), 12);
    command.Put32(8, address);
    Reply reply{12, 4};
    const int code = Transact(device, kReadReg, command, address, reply);
    if (reply.isGood) {
        value = Load32(&reply.bytes[GvcpAck::kRegisters]);
    }
    return code;
}

int HALGev::WriteReg(void* deviceHandle, unsigned address, unsigned value)
{
    if (deviceHandle == nullptr) {
        return Store(GC_ERR_INVALID_HANDLE, "failed to cast hDevice to DeviceHandle*");
    }
    DeviceHandle& device = *ToDevice(deviceHandle);
    const boost::lock_guard<boost::mutex> lock(device.m_transactionMutex);

    GvcpCommand command(Gvcp::kWriteRegCmd, Gvcp::kFlagAck, 8, GetReqID(&device), 16);
    command.Put32(8, address);
    command.Put32(12, value);
    Reply reply{12, 4};
    return Transact(device, kWriteReg, command, address, reply);
}

int HALGev::ReadRegBlock(void* deviceHandle, unsigned address, unsigned* values, unsigned long count)
{
    if (deviceHandle == nullptr) {
        return Store(GC_ERR_INVALID_HANDLE);
    }
    DeviceHandle& device = *ToDevice(deviceHandle);
    const boost::lock_guard<boost::mutex> lock(device.m_transactionMutex);
    if (count > (Gvcp::kBufferSize - Gvcp::kHeaderSize) / 4) {
        return Store(GC_ERR_INVALID_PARAMETER);
    }

    const std::size_t size = Gvcp::kHeaderSize + 4 * count;
    GvcpCommand command(Gvcp::kReadRegCmd, Gvcp::kFlagAck, 4 * count, GetReqID(&device), size);
    for (unsigned i = 0; i < count; ++i) {
        command.Put32(8 + std::size_t{4} * i, address + 4 * i);
    }
    Reply reply{size, 4 * count};
    const int code = Transact(device, kReadRegBlock, command, address, reply);
    if (reply.isGood) {
        for (std::size_t i = 0; i < count; ++i) {
            values[i] = Load32(&reply.bytes[GvcpAck::kRegisters] + 4 * i);
        }
    }
    return code;
}

int HALGev::WriteRegBlock(void* deviceHandle, unsigned address, const unsigned* values, unsigned long count)
{
    if (deviceHandle == nullptr) {
        return Store(GC_ERR_INVALID_HANDLE);
    }
    DeviceHandle& device = *ToDevice(deviceHandle);
    const boost::lock_guard<boost::mutex> lock(device.m_transactionMutex);
    if (count > (Gvcp::kBufferSize - Gvcp::kHeaderSize) / 8) {
        return Store(GC_ERR_INVALID_PARAMETER);
    }

    GvcpCommand command(Gvcp::kWriteRegCmd, Gvcp::kFlagAck, 8 * count, GetReqID(&device),
                        Gvcp::kHeaderSize + 8 * count);
    for (unsigned i = 0; i < count; ++i) {
        command.Put32(8 + std::size_t{8} * i, address + 4 * i);
        // As the caller holds them: it has put them in the camera's order already.
        command.PutBytes(12 + std::size_t{8} * i, &values[i], sizeof values[i]);
    }
    Reply reply{12, 4};
    return Transact(device, kWriteRegBlock, command, address, reply);
}

int HALGev::ReadMem(void* deviceHandle, unsigned address, char* data, unsigned long size)
{
    if (deviceHandle == nullptr) {
        return Store(GC_ERR_INVALID_HANDLE);
    }
    DeviceHandle& device = *ToDevice(deviceHandle);
    const boost::lock_guard<boost::mutex> lock(device.m_transactionMutex);
    if (size > Gvcp::kMaxMemory) {
        return Store(GC_ERR_INVALID_PARAMETER);
    }

    const std::size_t rounded = RoundUp(size);
    GvcpCommand command(Gvcp::kReadMemCmd, Gvcp::kFlagAck, 8, GetReqID(&device), 16);
    command.Put32(8, address);
    command.Put16(14, static_cast<std::uint16_t>(rounded));
    Reply reply{12 + rounded, rounded + 4};
    const int code = Transact(device, kReadMem, command, address, reply);
    if (reply.isGood) {
        std::copy_n(reply.bytes.begin() + GvcpAck::kMemory, size, data);
    }
    return code;
}

int HALGev::WriteMem(void* deviceHandle, unsigned address, const char* data, unsigned long size)
{
    if (deviceHandle == nullptr) {
        return Store(GC_ERR_INVALID_HANDLE);
    }
    DeviceHandle& device = *ToDevice(deviceHandle);
    const boost::lock_guard<boost::mutex> lock(device.m_transactionMutex);
    if (size > Gvcp::kMaxMemory) {
        return Store(GC_ERR_INVALID_PARAMETER);
    }

    const std::size_t rounded = RoundUp(size);
    GvcpCommand command(Gvcp::kWriteMemCmd, Gvcp::kFlagAck, 4 + rounded, GetReqID(&device), 12 + rounded);
    command.Put32(8, address);
    command.PutBytes(12, data, size);
    Reply reply{12, 4};
    return Transact(device, kWriteMem, command, address, reply);
}

int HALGev::SetGvcpRetries(unsigned long retries)
{
    g_retries = retries;
    return GC_ERR_SUCCESS;
}

int HALGev::GetGvcpRetries(unsigned long& retries)
{
    retries = g_retries;
    return GC_ERR_SUCCESS;
}

}  // namespace GenTL
