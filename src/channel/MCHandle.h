/// The part of the message channel's HAL that holds its socket.
#pragma once

#include "stream/OverlappedSocket.h"

#include <memory>

namespace GenTL {

struct MCHandle
{
    std::unique_ptr<OverlappedSocket> m_pSocket = std::make_unique<OverlappedSocket>();
};

}  // namespace GenTL
