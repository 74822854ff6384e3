/// The part of the stream HAL that holds its socket.
#pragma once

#include "stream/OverlappedSocket.h"

#include <memory>

namespace GenTL {

struct StreamHandle
{
    std::unique_ptr<OverlappedSocket> m_pSocket = std::make_unique<OverlappedSocket>();
};

}  // namespace GenTL
