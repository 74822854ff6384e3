/// The acknowledged commands that are tried once: FORCEIP and ACTION.
#pragma once

#include <cstdint>

namespace GenTL {

class CommSocket;
class GvcpCommand;

/// A command's acknowledge code and the words of its failures.
struct SideCommand
{
    const char* name;
    std::uint16_t ackCode;
    const char* sendFailed;
    const char* timeoutFailed;
    const char* receiveFailed;
    const char* ackInvalid;
    const char* errorText;
};

/// Sends command and judges the first answer that isn't a PENDING_ACK, whomever it was meant for. The
/// socket's time-out is 2000 ms from the send on, and stays so. GC_ERR_INVALID_VALUE for anything but the
/// good acknowledge, else the socket's code.
int RunSideCommand(CommSocket& socket, const SideCommand& row, const GvcpCommand& command);

}  // namespace GenTL
