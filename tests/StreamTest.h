/// What the tests of data streams have in common.
#pragma once

#include "frame/Error.h"
#include "gev/HALGev.h"
#include "stream/IDataStream.h"

#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <string>
#include <vector>

namespace GenTL {

inline std::string LastMessage()
{
    Error e;
    ErrorCache::GetErrorCache()->Peak(e);
    return e.Message();
}

/// All messages of the thread, oldest first and without line numbers; takes them off.
inline std::string TakeMessages()
{
    Error e;
    std::string messages, name, text;
    ErrorCache::GetErrorCache()->Pop(e);
    for (int code = 0; e.PopError(code, name, text) == 0;) {
        text = std::regex_replace(text, std::regex(R"(\(\):\d+)"), "");
        messages = text + (messages.empty() ? "" : "; ") + messages;
    }
    return messages;
}

template <typename T = std::uint64_t>
T InfoOf(const IDataStream& stream, int command)
{
    T value{};
    std::size_t size = sizeof value;
    int type = 0;
    EXPECT_EQ(GC_ERR_SUCCESS, stream.GetInfo(command, &type, &value, &size)) << command;
    return value;
}
template <typename T = std::uint64_t>
T InfoOf(const IDataStream& stream, void* hBuffer, int command)
{
    T value{};
    std::size_t size = sizeof value;
    int type = 0;
    EXPECT_EQ(GC_ERR_SUCCESS, stream.GetBufferInfo(hBuffer, command, &type, &value, &size)) << command;
    return value;
}

/// Stops what runs, revokes the buffers and closes.
inline void End(IDataStream& stream, const std::vector<void*>& buffers)
{
    if (InfoOf<bool>(stream, STREAM_INFO_IS_GRABBING)) {
        EXPECT_EQ(GC_ERR_SUCCESS, stream.StopAcquisition(0)) << LastMessage();
    }
    stream.FlushQueue(ACQ_QUEUE_ALL_DISCARD);
    for (void* hBuffer : buffers) {
        EXPECT_EQ(GC_ERR_SUCCESS, stream.RevokeBuffer(hBuffer, nullptr, nullptr)) << LastMessage();
    }
    EXPECT_EQ(GC_ERR_SUCCESS, stream.Close());
}

/// A camera that is but its registers.
class RegisterHal : public HALGev
{
public:
    int ReadReg(void*, unsigned address, unsigned& value) override
    {
        if (failing.count(address) != 0) {
            return failing[address];
        }
        value = registers[address];
        return GC_ERR_SUCCESS;
    }

    std::map<unsigned, unsigned> registers;
    std::map<unsigned, int> failing;  // with the code of each
};

}  // namespace GenTL
