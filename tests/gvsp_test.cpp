/// From datagrams to delivered images: the packet parsers, and the grab thread fed by a scripted stream HAL.
#include "GrabTest.h"
#include "buffers/Buffer.h"
#include "frame/GenTL.h"
#include "stream/GrabCommon.h"
#include "stream/GvspPacket.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

using namespace GenTL;

namespace {

/// A packet as the parsers want it: followed by zeros up to what they may read.
std::vector<char> Readable(const Bytes& packet)
{
    std::vector<char> readable(packet.begin(), packet.end());
    readable.resize(std::max(readable.size(), kGvspParsedSpan));
    return readable;
}

ParsedGvspHeader HeaderOf(const std::vector<char>& packet)
{
    ParsedGvspHeader header{};
    EXPECT_EQ(GC_ERR_SUCCESS, GetPktHeaderInfo(packet.data(), 10, 10, header));
    return header;
}

// Reference packets, byte by byte.
// clang-format off
const Bytes kStandardLeader = {
    0x00, 0x00, 0x12, 0x34, 0x01, 0x00, 0x00, 0x00,                          // status, block, format 1, id 0
    0x00, 0x00, 0x00, 0x01,                                                  // field info, payload type 1
    0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08,                          // timestamp
    0x01, 0x10, 0x00, 0x07,                                                  // 16 bits per pixel
    0x00, 0x00, 0x02, 0x80, 0x00, 0x00, 0x01, 0xE0,                          // 640 x 480
    0x00, 0x00, 0x00, 0x10, 0x00, 0x00, 0x00, 0x20, 0x00, 0x03, 0x00, 0x04,  // offsets, paddings
};
const Bytes kExtendedPayload = {
    0x01, 0x00, 0x00, 0x00, 0x83, 0x00, 0x00, 0x00,                          // status 0x0100, format 3
    0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x80, 0x00, 0x00, 0x02,  // block, id
};
const Bytes kStandardTrailer = {
    0x00, 0x00, 0xFF, 0xFF, 0x02, 0xAB, 0xCD, 0xEF,                          // block 65535, id 0xABCDEF
    0x00, 0x00, 0x00, 0x01,
    0x00, 0x00, 0x00, 0x04, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x7B,  // size_y 4, chunks 256, layout 123
};
// clang-format on

TEST(GvspHeader, ReadsBothForms)
{
    const auto readsAs = [](const Bytes& packet, const ParsedGvspHeader& expected) {
        const ParsedGvspHeader header = HeaderOf(Readable(packet));
        return std::memcmp(&header, &expected, sizeof header) == 0;
    };
    EXPECT_TRUE(readsAs(kExtendedPayload, {0x100, 0, 1, 3, 0x80000002, 0x1122334455667788}));
    EXPECT_TRUE(readsAs(kStandardTrailer, {0, 0xFFFF, 0, 2, 0xABCDEF, 0xFFFF}));
    ParsedGvspHeader header{};
    EXPECT_EQ(GC_ERR_INVALID_BUFFER, GetPktHeaderInfo(nullptr, 10, 10, header));
    EXPECT_EQ(GC_ERR_INVALID_BUFFER, GetPktHeaderInfo(Readable(kStandardLeader).data(), 10, 0, header));
}

constexpr std::uint64_t kMax = ~std::uint64_t{0};

TEST(BlockIds, HaveAnOrderADistanceAndASuccessorAcrossTheWrap)
{
    EXPECT_EQ(BlockOrder::Older, CompareBlockIds(1, 32767, false)) << "32766 back";
    EXPECT_EQ(BlockOrder::Newer, CompareBlockIds(1, 32768, false)) << "32767 back";
    EXPECT_EQ(BlockOrder::Newer, CompareBlockIds(1, 65535, false)) << "the wrap";
    EXPECT_EQ(BlockOrder::Newer, CompareBlockIds(32769, 1, false));
    EXPECT_EQ(BlockOrder::Older, CompareBlockIds(32770, 1, false));
    EXPECT_EQ(BlockOrder::Newer, CompareBlockIds(32770, 1, true));
    EXPECT_EQ(BlockOrder::Newer, CompareBlockIds(kMax / 2, kMax - 1, true));
    EXPECT_EQ(BlockOrder::Older, CompareBlockIds(kMax / 2, kMax - 2, true));

    EXPECT_EQ(1U, DiffBlockId(1, 65535, false));
    EXPECT_EQ(1U, DiffBlockId(1, kMax, true));
    EXPECT_EQ(kMax - 1, DiffBlockId(1, 2, true));
    EXPECT_EQ(1U, NextBlockId(65535, false));
    EXPECT_EQ(65536U, NextBlockId(65535, true));
    EXPECT_EQ(1U, NextBlockId(kMax, true));
}

class Parsers : public testing::Test
{
protected:
    int Leader(const Bytes& packet)
    {
        const std::vector<char> readable = Readable(packet);
        return ParseGVSPLeader(stream, readable.data(), buffer, HeaderOf(readable));
    }

    StreamInfo stream;
    Buffer buffer;
};

TEST_F(Parsers, StoreAnImageLeader)
{
    buffer.m_packetsRemaining = 5;
    ASSERT_EQ(GC_ERR_SUCCESS, Leader(kStandardLeader));
    EXPECT_EQ(1U, stream.m_payloadType);
    EXPECT_EQ(0x0102030405060708U, buffer.m_timestamp);
    EXPECT_EQ(0x01100007U, buffer.m_pixelFormat);
    EXPECT_EQ(640U, buffer.m_width);
    EXPECT_EQ(480U, buffer.m_height);
    EXPECT_EQ(16U, buffer.m_xOffset);
    EXPECT_EQ(32U, buffer.m_yOffset);
    EXPECT_EQ(3U, buffer.m_xPadding);
    EXPECT_EQ(4U, buffer.m_yPadding);
    EXPECT_EQ(640U * 480U * 2U, buffer.m_dataSize);
    EXPECT_TRUE(buffer.m_leaderReceived);
    EXPECT_EQ(4, buffer.m_packetsRemaining);
}

TEST_F(Parsers, GiveAZeroTimestampTheHostsTime)
{
    Bytes leader = kStandardLeader;
    std::fill_n(leader.begin() + 12, 8, static_cast<unsigned char>(0));
    ASSERT_EQ(GC_ERR_SUCCESS, Leader(leader));
    const auto now = std::chrono::system_clock::now().time_since_epoch().count();
    EXPECT_NEAR(static_cast<double>(now), static_cast<double>(buffer.m_timestamp), 60e9);
}

TEST_F(Parsers, ReadATrailerByTheLastLeadersType)
{
    const struct
    {
        std::uint16_t type;
        std::uint64_t chunkLength, layout, dataSize;
    } cases[] = {
        {kGvspImage,           0,   0,   77 },
        {kGvspImageWithChunks, 256, 123, 256},
        {kGvspChunkData,       4,   123, 4  }, // keeps the layout
    };
    buffer.m_dataSize = 77;
    for (const auto& c : cases) {
        stream.m_payloadType = c.type;
        const std::vector<char> readable = Readable(kStandardTrailer);
        bool complete = false;
        EXPECT_EQ(GC_ERR_SUCCESS,
                  ParseGVSPTrailer(stream, readable.data(), buffer, complete, HeaderOf(readable)));
        EXPECT_TRUE(complete);
        EXPECT_EQ(c.chunkLength, buffer.m_deliveredChunkPayloadSize);
        EXPECT_EQ(c.layout, buffer.m_chunkLayoutId);
        EXPECT_EQ(c.dataSize, buffer.m_dataSize);
        EXPECT_EQ(c.type != kGvspImage, buffer.m_containsChunkData);
    }
}

TEST_F(Parsers, TranslatePayloadTypes)
{
    const struct
    {
        std::uint16_t gvsp;
        std::uint64_t type;
        bool imagePresent, chunks;
    } cases[] = {
        {4,      4,      true,  true },
        {9,      10,     true,  false},
        {0x4001, 0x4001, true,  true },
        {0x4006, 0,      false, true },
        {0x8000, 9,      false, false},
    };
    for (const auto& c : cases) {
        Buffer translated;
        stream.m_payloadType = c.gvsp;
        UpdateBufferInfoResend(stream, translated);
        EXPECT_EQ(c.type, translated.m_payloadType) << c.gvsp;
        EXPECT_EQ(c.imagePresent, translated.m_imagePresent) << c.gvsp;
        EXPECT_EQ(c.chunks, translated.m_containsChunkData) << c.gvsp;
    }
}

TEST_F(Grab, TellsOfAnImage)
{
    Start();
    Run("1*");
    void* hBuffer = Next();
    EXPECT_EQ("1", Read(hBuffer));
    EXPECT_EQ(kImageSize, Of(hBuffer, BUFFER_INFO_SIZE_FILLED));
    EXPECT_EQ(10U, Of(hBuffer, BUFFER_INFO_DELIVERED_IMAGEHEIGHT));
    EXPECT_EQ(1001U, Of(hBuffer, BUFFER_INFO_TIMESTAMP));
    EXPECT_TRUE(Of<bool>(hBuffer, BUFFER_INFO_NEW_DATA));
    EXPECT_EQ(GC_ERR_SUCCESS, stream->WaitForNextLeader(0));
    ExpectCounters(0, 0, 0);
}

/// What the wire makes of the second of three images, and what the consumer sees of them. An image is the
/// leader, packets 1 to 10 and the trailer.
struct WireCase
{
    const char *name, *second, *delivered;
    std::uint64_t missedImages, missedPackets, incompleteImages;
};

class GrabOverABadWire : public Grab, public testing::WithParamInterface<WireCase>
{
};

TEST_P(GrabOverABadWire, CountsWhatIsMissingAndStaysInStep)
{
    const WireCase& c = GetParam();
    Start();
    Run(std::string("1* ") + c.second + " 3*");
    EXPECT_EQ(c.delivered, ReadAll());
    ExpectCounters(c.missedImages, c.missedPackets, c.incompleteImages);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Wire, GrabOverABadWire, testing::Values(
    WireCase{"FirstPacketLost", "2L 2:2-10 2T", "1 2~900 3", 0, 1, 1},
    WireCase{"LastPacketLost", "2L 2:1-9 2T", "1 2~900 3", 0, 1, 1},
    WireCase{"EndLost", "2L 2:1-9", "1 2~900 3", 0, 2, 1},
    WireCase{"TrailerLost", "2L 2:1-10", "1 2 3", 0, 1, 0},
    WireCase{"LeaderLost", "2:1-10 2T", "1 3", 1, 1, 0},
    WireCase{"AllLost", "", "1 3", 1, 12, 0},
    WireCase{"PacketTwice", "2L 2:1-4 2:4-10 2T", "1 2~1000 3", 0, 0, 0},
    WireCase{"TrailerTwice", "2* 2T", "1 2 3", 0, 0, 0},
    WireCase{"SecondPacketLast", "2L 2:1 2:3-10 2:2 2T", "1 2 3", 0, 0, 0},
    WireCase{"LeaderSecond", "2:1 2L 2:2-10 2T", "1 2 3", 0, 0, 0},
    WireCase{"LeaderBehindThePackets", "2:1-10 2L 2T", "1 2 3", 0, 0, 0},
    WireCase{"PacketBehindTheTrailer", "2L 2:1-4 2:6-10 2T 2:5", "1 2~900 3", 0, 1, 1},
    WireCase{"BadStatus", "2L 2:1-2 2:3? 2:4-10 2T", "1 2~900 3", 0, 1, 1},
    WireCase{"ResentStatus", "2L 2:1-2 2:3! 2:4-10 2T", "1 2~900 3", 0, 1, 1},
    WireCase{"UnknownFormat", "2L 2:1-2 2:3@4=7 2:4-10 2T", "1 2~900 3", 0, 1, 1},
    WireCase{"PacketIdZero", "2L 2:1-2 2:3@7=0 2:4-10 2T", "1 2~900 3", 0, 1, 1},
    WireCase{"PacketOfAnOlderBlock", "2L 2:1-2 1:3 2:4-10 2T", "1 2~900 3", 0, 1, 1},
    WireCase{"UnsupportedLeader", "2L@11=5 2:1-10 2T", "1 3", 1, 1, 0},
    WireCase{"OtherHeightInTheTrailer", "2L 2:1-10 2T@15=9", "1 2 3", 0, 0, 0},
    WireCase{"Runts", "2:5/0 2:5/7 2L 2:1-5 2:6/0 2:6/7 2:6-10 2T", "1 2 3", 0, 0, 0}), kNameOf);
// clang-format on

TEST_F(Grab, FollowsSixteenBitIdsAcrossTheWrap)
{
    Start(8);
    Run("500* 30000* 60000* 65534* 65535* 1* 2*");
    EXPECT_EQ("500 30000 60000 65534 65535 1 2", ReadAll());
    EXPECT_EQ(499U + 29499U + 29999U + 5533U, Info(kMissedImages));
}

TEST_F(Grab, TakesAnImageSmallerThanItsBufferAsPacketsLost)
{
    AnnounceAndQueue(2 * kImageSize);
    Start(0);
    Run("1*");
    EXPECT_EQ("1", ReadAll());
    ExpectCounters(0, 10, 0);
}

// The second buffer ends in the middle of packet 6; bytes behind it are guarded.
TEST_F(Grab, CutsAnImageAtTheEndOfASmallerBuffer)
{
    for (const bool answersTooSmall : {false, true}) {
        hal->answersTooSmall = answersTooSmall;
        void* hLarge = AnnounceAndQueue();
        void* hSmall = AnnounceAndQueue(550);
        Start(0);
        Run("1* 2*");
        EXPECT_EQ("1 2~550", ReadAll());
        EXPECT_EQ(0U, WrongBytes(hSmall, 2, 0, 550));
        EXPECT_TRUE(Of<bool>(hSmall, BUFFER_INFO_DATA_LARGER_THAN_BUFFER));
        Stop();
        Revoke(hLarge);
        Revoke(hSmall);
    }
}

TEST_F(Grab, CutsAnImageLargerThanTheRunWasLaidOutFor)
{
    Start(2);
    Feed(sender.Image(1, 15));
    Run("2*");
    void* hBuffer = Next();
    EXPECT_EQ(0U, WrongBytes(hBuffer, 1));
    EXPECT_TRUE(Of<bool>(hBuffer, BUFFER_INFO_DATA_LARGER_THAN_BUFFER));
    EXPECT_TRUE(IsIncomplete(hBuffer));
    EXPECT_EQ("2", ReadAll());
}

// The last packet has 10 bytes; the trailer and the next leader, longer than that, come in its place.
TEST_F(Grab, KeepsWhatComesInPlaceOfAShortRestAndTheRestThatComesEarly)
{
    for (int i = 0; i < 3; ++i) {
        AnnounceAndQueue(910);
    }
    Start(0);
    Run("1L 1:1-9 2L 2:1-9 2:10/18 2T");
    EXPECT_EQ("1~900", Read(Next()));
    void* hBuffer = Next();
    EXPECT_EQ(2U, FrameId(hBuffer));
    EXPECT_EQ(kPerPacket, Of(hBuffer, BUFFER_INFO_WIDTH));
    EXPECT_EQ(10U, Of(hBuffer, BUFFER_INFO_HEIGHT));
    EXPECT_EQ(0U, WrongBytes(hBuffer, 2, 0, 910));
    Run("3L 3:1-8 3:10/18 3:9 3T");
    hBuffer = Next();
    EXPECT_EQ(0U, WrongBytes(hBuffer, 3, 0, 910));
    EXPECT_FALSE(Of<bool>(hBuffer, BUFFER_INFO_DATA_LARGER_THAN_BUFFER));
}

TEST_F(Grab, SurvivesHostilePackets)
{
    SurviveHostilePackets();
}

// Of a packet size that leaves no room for data everything is dropped.
TEST_F(Grab, DropsEverythingWithoutRoom)
{
    hal->packetSize = 36;
    Start();
    Run("1*");
    Stop();
}

TEST_F(Grab, CountsAnUnderrunAndStaysInStep)
{
    Start(1);
    Run("1* 2*");
    void* hBuffer = Next();
    EXPECT_EQ("1", Read(hBuffer));
    EXPECT_EQ(1U, Info(STREAM_INFO_NUM_UNDERRUN));
    // The spare has the image to come already: the buffer rescues it at its end.
    EXPECT_EQ(GC_ERR_SUCCESS, stream->QueueBuffer(hBuffer));
    Run("3*");
    EXPECT_EQ("3", ReadAll());
    EXPECT_EQ(1U, Info(STREAM_INFO_NUM_UNDERRUN));
    EXPECT_EQ(1U, Info(kMissedImages)) << "block 2, by the gap";
}

TEST_F(Grab, RescuesIntoASmallerBuffer)
{
    AnnounceAndQueue();
    void* hSmall = Announce(300);
    Start(0);
    Run("1*");
    EXPECT_EQ(GC_ERR_SUCCESS, stream->QueueBuffer(hSmall));
    Run("2*");
    EXPECT_EQ("1", Read(Next()));
    EXPECT_EQ(hSmall, Next());
    EXPECT_EQ(0U, WrongBytes(hSmall, 2, 0, 300));
    EXPECT_TRUE(IsIncomplete(hSmall));
    EXPECT_TRUE(Of<bool>(hSmall, BUFFER_INFO_DATA_LARGER_THAN_BUFFER));
}

TEST_F(Grab, KeepsTheNewestImageInModesOneAndTwo)
{
    for (const int mode : {1, 2}) {
        SetMode(mode);
        Start(mode == 1 ? 2 : 1);
        Run("1* 2* 3* 4* 5*");
        EXPECT_EQ("5", ReadAll()) << "another buffer waits for block 6";
        EXPECT_EQ(0U, Info(STREAM_INFO_NUM_UNDERRUN));
        EXPECT_EQ(1U, Info(STREAM_INFO_NUM_DELIVERED));
        Stop();
        EXPECT_EQ(GC_ERR_SUCCESS, stream->FlushQueue(ACQ_QUEUE_ALL_TO_INPUT));
    }
}

class GrabWithTimers : public Grab
{
protected:
    GrabWithTimers()
    {
        hal->interPacketExpiry = 100;
        hal->bufferExpiry = 150;
    }
};

TEST_F(GrabWithTimers, DeliverAnImageThatFallsSilent)
{
    Start();
    Run("1L 1:1-5");
    EXPECT_EQ("1~500", Read(Next()));
    ExpectCounters(0, 6, 1);
    Run("2*");
    EXPECT_EQ("2", ReadAll());
    ExpectCounters(0, 6, 1);
}

TEST_F(GrabWithTimers, WaitForAnImageThatIsSlow)
{
    hal->interPacketExpiry = 400;
    hal->bufferExpiry = 1;
    Start();
    for (const Bytes& datagram : sender.Image(1)) {
        Feed({datagram});
        std::this_thread::sleep_for(std::chrono::milliseconds(80));
    }
    EXPECT_FALSE(IsIncomplete(Next()));
}

// The grab thread still receives into the buffer, which its owner takes back meanwhile.
TEST_F(GrabWithTimers, LetGoOfABufferThatIsRevoked)
{
    Start(2);
    for (std::uint64_t block = 1; block <= 4; ++block) {
        const std::string name = std::to_string(block);
        Feed(Packets(name + "L " + name + ":1-5"));
        void* hBuffer = Next();
        EXPECT_EQ(name + "~500", Read(hBuffer));
        if (block == 4) {
            Revoke(hBuffer);
        } else {
            EXPECT_EQ(GC_ERR_SUCCESS, stream->QueueBuffer(hBuffer));
        }
        Feed(Packets(name + ":6-10 " + name + "T"));
    }
    hal->AwaitDrained();
    EXPECT_EQ(0U, Info(STREAM_INFO_NUM_UNDERRUN));
    Run("5*");
    EXPECT_EQ("5", ReadAll());
}

TEST_F(Grab, RefusesToRevokeTheBufferBeingFilled)
{
    void* hBuffer = AnnounceAndQueue();
    Start(1);
    Run("1L 1:1");
    EXPECT_EQ(GC_ERR_BUSY, stream->RevokeBuffer(hBuffer, nullptr, nullptr));
    Stop();
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, stream->RevokeBuffer(nullptr, nullptr, nullptr));
    Revoke(hBuffer);
    ASSERT_EQ(GC_ERR_SUCCESS, stream->StartAcquisition(0, 1));
    Run("1*");
    EXPECT_EQ("1", ReadAll());
    ExpectCounters(0, 0, 0);
}

// An image in collection at stop is handed off ahead of the first of the next run, and is no gap before that.
TEST_F(Grab, DeliversTheLeftoverOfTheRunBefore)
{
    Start(3);
    Run("1* 2L 2:1-5");
    Next();
    Stop();
    EXPECT_TRUE(NothingWaits());
    ASSERT_EQ(GC_ERR_SUCCESS, stream->StartAcquisition(0, 1));
    Run("1*");
    EXPECT_EQ("2~500 1", ReadAll());
    EXPECT_EQ(0U, Info(kMissedImages));
}

// Flushed back, the leftover is void: it stands in the input queue once and comes back with a new image only.
TEST_F(Grab, ForgetsALeftoverThatWasFlushedToTheInputQueue)
{
    for (const bool withLeader : {true, false}) {
        Start(withLeader ? 2 : 0);
        if (withLeader) {
            Run("1L 1:1");
        }
        Stop();
        EXPECT_EQ(GC_ERR_SUCCESS, stream->FlushQueue(ACQ_QUEUE_ALL_TO_INPUT));
        ASSERT_EQ(GC_ERR_SUCCESS, stream->StartAcquisition(0, 1));
        for (std::uint64_t block = 1; block <= 4; ++block) {
            FeedAndAwait(sender.Image(block));
            void* hBuffer = Next();
            EXPECT_EQ(std::to_string(block), Read(hBuffer));
            EXPECT_TRUE(NothingWaits());
            EXPECT_EQ(GC_ERR_SUCCESS, stream->QueueBuffer(hBuffer));
            EXPECT_EQ(1U, Info(STREAM_INFO_NUM_QUEUED)) << "the other one is being filled";
        }
        ExpectCounters(0, 0, 0);
        Stop();
    }
}

// The header size is settled by the first run of a process: this one is the first of its.
class ExtendedGrab : public Grab
{
public:
    ExtendedGrab() : Grab(true) {}

    void TestBody() override
    {
        Start(7);
        std::string all;
        // To the middle, to near the end, and over it.
        for (const std::uint64_t block :
             {std::uint64_t{1}, kMax / 2 - 10, kMax - 20, kMax - 1, kMax, std::uint64_t{1}}) {
            const std::string name = std::to_string(block);
            Run(name + ":1 " + name + "L " + name + ":3 " + name + ":2 " + name + ":4/19 " + name + ":4-10 " +
                name + "T");
            all += (all.empty() ? "" : " ") + name;
        }
        EXPECT_EQ(all, ReadAll());
        Stop();
        SurviveHostilePackets();
    }
};

void RunExtendedGrab()
{
    ExtendedGrab().TestBody();
    std::exit(testing::Test::HasFailure() ? 1 : 0);
}

TEST(ExtendedGrabDeathTest, DeliversImagesAcrossTheWrapAndSurvivesHostilePackets)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(RunExtendedGrab(), testing::ExitedWithCode(0), "");
}

}  // namespace
