/// What a move between a stream's collections writes into the buffer, by the place that it ends in.
#pragma once

#include "buffers/Buffer.h"

namespace GenTL {

inline void SetToInput(Buffer& buffer)
{
    buffer.m_isAcquiring = false;
    buffer.m_newData = false;
    buffer.m_isQueued = true;
    buffer.m_sizeFilled = 0;
    buffer.m_dataSize = 0;
    buffer.m_state.store(IN_INPUT);
}

/// m_newData is left to whoever has filled the buffer.
inline void SetToOutput(Buffer& buffer)
{
    buffer.m_isAcquiring = false;
    buffer.m_isQueued = true;
    buffer.m_state.store(IN_OUTPUT);
}

inline void SetToDiscard(Buffer& buffer)
{
    buffer.m_isQueued = false;
    buffer.m_isAcquiring = false;
    buffer.m_sizeFilled = 0;
    buffer.m_state.store(IN_DISCARDED);
}

inline void SetToUser(Buffer& buffer)
{
    buffer.m_isQueued = false;
    buffer.m_isAcquiring = false;
    buffer.m_state.store(IN_USER);
}

/// Forgets the last fill, all but its bitmap.
inline void ForgetFill(Buffer& buffer)
{
    buffer.m_imagePresent = false;
    buffer.m_containsChunkData = false;
    buffer.m_dataLargerThanBuffer = false;
    buffer.m_trailerReceived = false;
    buffer.m_leaderReceived = false;
    buffer.m_nextPacketTimerDone = false;
    buffer.m_isAcquiring = true;
    buffer.m_isIncomplete = true;
    buffer.m_sizeFilled = 0;
    buffer.m_frameId = 0;
    buffer.m_bytesReceived = 0;
    buffer.m_nextExpectedPacketId = 0;
    buffer.m_resendRequestCount = 0;
    buffer.m_packetsRemaining = 0;
}

/// Whoever owns the bitmap of the last fill frees it first: here the pointer is dropped.
inline void SetToAcquiring(Buffer& buffer)
{
    ForgetFill(buffer);
    buffer.m_isQueued = true;
    buffer.m_pPacketBitmap = nullptr;
    buffer.m_packetBitmapSize = 0;
    buffer.m_state.store(IN_ACQUIRING);
}

inline void SetToDriver(Buffer& buffer)
{
    buffer.m_isAcquiring = false;
    buffer.m_isQueued = true;
    buffer.m_state.store(IN_DRIVER);
    buffer.m_newData = false;
}

}  // namespace GenTL
