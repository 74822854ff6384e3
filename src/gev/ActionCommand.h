/// The ACTION command, for one camera or for all of a network.
#pragma once

#include "gev/GvcpCommand.h"

namespace GenTL {

/// 20 bytes, or 28 with an action time; a time of 0 means now. The length field stays 0.
class ActionCommand : public GvcpCommand
{
public:
    ActionCommand(std::uint16_t requestId,
                  std::uint32_t deviceKey,
                  std::uint32_t groupKey,
                  std::uint32_t groupMask,
                  std::uint64_t actionTime)
        : GvcpCommand(Gvcp::kActionCmd,
                      actionTime != 0 ? Gvcp::kFlagAck | Gvcp::kFlagActionTime : Gvcp::kFlagAck,
                      0,
                      requestId,
                      actionTime != 0 ? 28 : 20)
    {
        Put32(8, deviceKey);
        Put32(12, groupKey);
        Put32(16, groupMask);
        // Falls outside the short form.
        Put64(20, actionTime);
    }
};

}  // namespace GenTL
