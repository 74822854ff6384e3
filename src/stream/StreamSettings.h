/// The info commands about a stream's settings and statistics, the same for all transports.
#pragma once

#include "frame/InfoUtility.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace GenTL {

struct StreamInfo;

/// What becomes of images that the consumer hasn't fetched when there is a new one.
enum BufferHandlingMode : std::int64_t {
    kOldestFirst = 0,
    kOldestFirstOverwrite = 1,
    kNewestOnly = 2,
};

/// Owns: nothing. Borrows: the stream's StreamInfo and its buffer handling mode, which it changes as
/// atomics. Threads: any. Locks: none.
class StreamSettings
{
public:
    StreamSettings(StreamInfo& stream, std::atomic<std::int64_t>& handlingMode)
        : m_stream(stream), m_handlingMode(handlingMode)
    {
    }

    /// The command's result; none when it is no command of these.
    std::optional<int> GetInfo(int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) const;
    /// Settings act at the next start. GC_ERR_INVALID_INDEX on an unknown handling mode.
    std::optional<int> SetInfo(int iInfoCmd, int iType, const void* pBuffer, std::size_t iSize);

private:
    StreamInfo& m_stream;
    std::atomic<std::int64_t>& m_handlingMode;
    InfoUtility m_info;
};

}  // namespace GenTL
