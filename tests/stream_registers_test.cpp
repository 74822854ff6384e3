/// The register map behind the DataStream module's port.
#include "LogListener.h"
#include "RegisterTest.h"
#include "frame/Error.h"
#include "gev/HALGev.h"
#include "log/GLogger.h"
#include "stream/DataStreamGev.h"
#include "xml/LocalXml.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

using namespace GenTL;
using testing::MatchesRegex;

namespace {

// clang-format off
/// What the stream below answers, and how many bytes of it.
constexpr struct { unsigned long address, value, size; } kValues[] = {
    {0x0200, 0, 8},  {0x0300, 6, 8},    {0x0400, 2, 8},    {0x0500, 11, 8},        {0x0600, 12, 8},   {0x0700, 13, 8},
    {0x0800, 4, 8},  {0x0900, 2, 8},    {0x1000, 6, 8},    {0x1100, 1ul << 40, 8}, {0x1200, 0, 1},    {0x1300, 15, 8},
    {0x1400, 16, 8}, {0x1500, 1002, 8}, {0x1600, 1003, 8}, {0x1700, 1004, 8},      {0x1800, 1005, 8}, {0x1900, 0, 1},
    {0x2100, 0, 1},  {0x2300, 5, 4},    {0x2400, 0, 1},
};
/// Of a switch any byte but 0 is on, and only the first byte counts.
constexpr struct { unsigned long address, value, kept, size; } kWrites[] = {
    {0x0400, 1, 1, 8}, {0x2300, 0x700000003, 3, 4},
    {0x1900, 2, 1, 1}, {0x2100, 0xFF, 1, 1}, {0x2400, 1, 1, 1}, {0x2400, 0x100, 0, 1},
};
/// What a grabbing stream has and keeps, and how it refuses another value.
constexpr struct { unsigned long address, value, size; const char* words; } kRefusals[] = {
    {0x0400, 0, 8, "SetStreamBufferHandlingMode_Reg failed, unable to set buffer handling mode"},
    {0x1900, 0, 1, "SetStreamPacketResendEnable_Reg failed, unable to modify packet resend control"},
    {0x2100, 0, 1, "SetAutoNegotiatePacketSize_Reg failed, unable to modify auto packet size control"},
    {0x2300, 5, 4, "SetStreamMaxNumResendRequestsPerImage_Reg failed, "
                   "unable to modify maximum number of resend requests per image"},
};
// clang-format on

/// Every counter has a value of its own; those of the transport are their info commands.
class Stream : public DataStreamGev
{
public:
    explicit Stream(HALGev* control) : DataStreamGev(control, this, this, 7, 3)
    {
        m_announcedBuffers.resize(6), m_inputBuffers.resize(4), m_outputBuffers.resize(2);
        m_bufAnnounceMin = 11, m_numDelivered = 12, m_numUnderrun = 13, m_numStarted = 14;
        m_payloadSize = 1ul << 40, m_numChunksMax = 15, m_bufAlignment = 16;
    }
    int GetInfo(int command, int* type, void* buffer, std::size_t* size) const override
    {
        return command > STREAM_INFO_BUFFER_HANDLING_MODE && command < STREAM_INFO_PACKET_RESEND_ENABLE
                   ? m_info.SetInfo(static_cast<unsigned long>(command), type, buffer, size)
                   : DataStreamGev::GetInfo(command, type, buffer, size);
    }
    using DataStreamGev::m_isGrabbing;
};

class StreamRegisters : public RegisterTest
{
protected:
    void SetUp() override
    {
        WriteLogConfig(m_listener.Port(), 200);
        m_log = std::make_unique<GLogger>();
        ASSERT_EQ(0, m_stream.Open(nullptr));
        ErrorCache::GetErrorCache()->Clear();
    }
    IBaseModule& Port() override { return static_cast<IDataStream&>(m_stream); }

    LogListener m_listener;
    std::unique_ptr<GLogger> m_log;
    HALGev m_control;
    Stream m_stream{&m_control};
};

TEST_F(StreamRegisters, AnswerAsManyBytesAsTheirTypeHas)
{
    EXPECT_EQ("0:8", Write(0x0400, 2));
    for (const auto& row : kValues) {
        Expect(row.address, row.value, row.size);
    }
    ExpectText(0x0100, "7");
    ExpectDescription("DataStream", kStreamXml);
    ExpectRefusals<StreamReg>("-1005");
}

TEST_F(StreamRegisters, SettingsKeepWhatFits)
{
    for (const auto& row : kWrites) {
        EXPECT_EQ("0:8", Write(row.address, row.value)) << row.address;
        Expect(row.address, row.kept, row.size);
        EXPECT_EQ("-1013:" + std::to_string(row.size - 1) + " default", Write(row.address, 0, row.size - 1));
        Expect(row.address, row.kept, row.size);
    }
    EXPECT_THAT(Write(0x0400, 3), MatchesRegex("-1017:8 SetInfo.*GC_ERR_INVALID_INDEX.-1017."));
    EXPECT_THAT(Write(0x0400, ~0ul), MatchesRegex("-1017:8 SetInfo.*"));
    Expect(0x0400, 1, 8);
}

// Multicast is only looked at by a start.
TEST_F(StreamRegisters, OtherSettingsNeedAnOpenStreamThatIsStopped)
{
    m_stream.m_isGrabbing = true;
    Expect(0x1200, 1, 1);
    for (const auto& row : kRefusals) {
        EXPECT_EQ("-1004:8", Write(row.address, 1));
        EXPECT_EQ(std::string("StreamRegImpl::") + row.words + " while streaming: -1004",
                  m_listener.NextMessage());
        Expect(row.address, row.value, row.size);
    }
    EXPECT_EQ("0:8", Write(0x2400, 1));
    Expect(0x2400, 1, 1);
    m_stream.m_isGrabbing = false;
    EXPECT_EQ(0, m_stream.Close());
    EXPECT_THAT(Write(0x0400, 1), MatchesRegex("-1006:8 .*: DataStream is not open"));
    Expect(0x0400, 0, 8);
}

}  // namespace
