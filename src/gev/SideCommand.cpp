#include "gev/SideCommand.h"

#include "frame/Error.h"
#include "gev/CommSocket.h"
#include "gev/GvcpCommand.h"
#include "gev/PendingTimeout.h"
#include "log/HLogger.h"
#include "log/localization.h"

#include <string>

namespace GenTL {
namespace {

constexpr int kTimeoutMs = 2000;
/// An acknowledge has 8 bytes; the time of a PENDING_ACK stands behind them.
constexpr int kReplySize = 12;

int ReportInvalidAck(const SideCommand& row, const GvcpAck::Header& ack)
{
    const std::string details =
        ", ACK = " + std::to_string(ack.m_acknowledge) + ", status = " + std::to_string(ack.m_status) +
        ", ack_id = " + std::to_string(ack.m_ackId) + ", length = " + std::to_string(ack.m_length);
    HLogger::Error(row.ackInvalid, GC_ERR_INVALID_VALUE);
    HLogger::Error(details.c_str());
    return Raise(GC_ERR_INVALID_VALUE, row.errorText + std::to_string(GC_ERR_INVALID_VALUE) + " : " + details,
                 row.name);
}

}  // namespace

int RunSideCommand(CommSocket& socket, const SideCommand& row, const GvcpCommand& command)
{
    int code = socket.Send(command.Data(), static_cast<int>(command.Size()));
    if (code != GC_ERR_SUCCESS) {
        HLogger::Error(row.sendFailed, code);
        return code;
    }
    int previous = 0;
    code = socket.SetTimeout(kTimeoutMs, previous);
    if (code != GC_ERR_SUCCESS) {
        HLogger::Error(loc::al(row.timeoutFailed, {std::to_string(kTimeoutMs).c_str()}).c_str(), code);
        return code;
    }

    PendingTimeout pending(socket);
    for (;;) {
        unsigned char reply[kReplySize] = {};
        code = socket.Receive(reinterpret_cast<char*>(reply), kReplySize, false);
        if (code != GC_ERR_SUCCESS) {
            HLogger::Error(row.receiveFailed, code);
            return code;
        }
        const GvcpAck::Header ack(reply);
        if (ack.m_acknowledge == Gvcp::kPendingAck) {
            pending.Apply(reply);
            continue;
        }
        if (ack.m_acknowledge == row.ackCode && ack.m_status == 0 && ack.m_ackId == command.RequestId() &&
            ack.m_length == 0) {
            pending.Restore();
            return GC_ERR_SUCCESS;
        }
        return ReportInvalidAck(row, ack);
    }
}

}  // namespace GenTL
