/// From datagrams to delivered images: the packet parsers, and the grab thread fed by a scripted stream HAL.
#include "GrabTest.h"
#include "buffers/Buffer.h"
#include "frame/GenTL.h"
#include "frame/GenTLHandle.h"
#include "stream/GrabCommon.h"
#include "stream/GvspPacket.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <random>
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
const Bytes kExtendedLeader = {
    0x00, 0x00, 0xAB, 0xCD, 0x81, 0xFF, 0xFF, 0xFF,                          // status, flags, EI and format 1
    0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x00, 0x00, 0x00, 0x00,  // block, id 0
    0x00, 0x00, 0x40, 0x01,                                                  // image with chunks
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x09,
    0x01, 0x08, 0x00, 0x01,
    0x00, 0x00, 0x00, 0x08, 0x00, 0x00, 0x00, 0x04,
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
};
const Bytes kExtendedPayload = {
    0x01, 0x00, 0x00, 0x00, 0x83, 0x00, 0x00, 0x00,                          // status 0x0100, format 3
    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x80, 0x00, 0x00, 0x02,
};
const Bytes kStandardTrailer = {
    0x00, 0x00, 0xFF, 0xFF, 0x02, 0xAB, 0xCD, 0xEF,                          // block 65535, id 0xABCDEF
    0x00, 0x00, 0x00, 0x01,
    0x00, 0x00, 0x00, 0x04, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x7B,  // size_y 4, chunks 256, layout 123
};
// clang-format on

TEST(GvspHeader, ReadsBothForms)
{
    const struct
    {
        const char* name;
        const Bytes& packet;
        ParsedGvspHeader expected;
    } cases[] = {
        {"standard leader",  kStandardLeader,  {0, 0x1234, 0, 1, 0, 0x1234}                   },
        {"extended leader",  kExtendedLeader,  {0, 0xABCD, 1, 1, 0, 0x1122334455667788}       },
        {"extended payload", kExtendedPayload, {0x100, 0, 1, 3, 0x80000002, ~std::uint64_t{0}}},
        {"standard trailer", kStandardTrailer, {0, 0xFFFF, 0, 2, 0xABCDEF, 0xFFFF}            },
    };
    for (const auto& c : cases) {
        const ParsedGvspHeader header = HeaderOf(Readable(c.packet));
        EXPECT_EQ(0, std::memcmp(&header, &c.expected, sizeof header)) << c.name;
    }
    ParsedGvspHeader header{};
    EXPECT_EQ(GC_ERR_INVALID_BUFFER, GetPktHeaderInfo(nullptr, 10, 10, header));
    EXPECT_EQ(GC_ERR_INVALID_BUFFER, GetPktHeaderInfo(Readable(kStandardLeader).data(), 10, 0, header));
}

constexpr std::uint64_t kMax = ~std::uint64_t{0};

TEST(BlockIds, AreOrderedAcrossTheWrap)
{
    const struct
    {
        std::uint64_t packet, current;
        bool extended;
        BlockOrder order;
    } cases[] = {
        {8,        7,        false, BlockOrder::Newer},
        {6,        7,        false, BlockOrder::Older},
        {1,        32767,    false, BlockOrder::Older}, // 32766 back
        {1,        32768,    false, BlockOrder::Newer}, // 32767 back
        {1,        65535,    false, BlockOrder::Newer}, // the wrap
        {32769,    1,        false, BlockOrder::Newer},
        {32770,    1,        false, BlockOrder::Older},
        {32770,    1,        true,  BlockOrder::Newer},
        {kMax / 2, kMax - 1, true,  BlockOrder::Newer},
        {kMax / 2, kMax - 2, true,  BlockOrder::Older},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.order, CompareBlockIds(c.packet, c.current, c.extended))
            << c.packet << " after " << c.current << (c.extended ? ", 64 bit" : ", 16 bit");
    }
}

TEST(BlockIds, HaveADistanceAndASuccessorAcrossTheWrap)
{
    EXPECT_EQ(3U, DiffBlockId(10, 7, false));
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
    int Trailer(const Bytes& packet)
    {
        const std::vector<char> readable = Readable(packet);
        return ParseGVSPTrailer(stream, readable.data(), buffer, complete, HeaderOf(readable));
    }

    StreamInfo stream;
    Buffer buffer;
    bool complete = false;
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
    Bytes leader = kExtendedLeader;
    leader[31] = 0;
    ASSERT_EQ(GC_ERR_SUCCESS, Leader(leader));
    const auto now = std::chrono::system_clock::now().time_since_epoch().count();
    EXPECT_NEAR(static_cast<double>(now), static_cast<double>(buffer.m_timestamp), 60e9);
}

TEST_F(Parsers, RefuseOtherPayloadTypesAndStoreNothing)
{
    Bytes leader = kStandardLeader;
    leader[11] = 2;
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, Leader(leader));
    EXPECT_FALSE(buffer.m_leaderReceived);
    EXPECT_EQ(0U, stream.m_payloadType);
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, Trailer(kStandardTrailer)) << "without any leader";
    EXPECT_FALSE(buffer.m_trailerReceived);
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
        complete = false;
        EXPECT_EQ(GC_ERR_SUCCESS, Trailer(kStandardTrailer));
        EXPECT_TRUE(complete);
        EXPECT_EQ(c.chunkLength, buffer.m_deliveredChunkPayloadSize);
        EXPECT_EQ(c.layout, buffer.m_chunkLayoutId);
        EXPECT_EQ(c.dataSize, buffer.m_dataSize);
        EXPECT_EQ(c.type != kGvspImage, buffer.m_containsChunkData);
    }
    stream.m_packetResendEnable = true;
    complete = false;
    EXPECT_EQ(GC_ERR_SUCCESS, Trailer(kStandardTrailer));
    EXPECT_FALSE(complete) << "with resend on, packets may still follow";
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

TEST_F(Grab, DeliversImagesInOrderByteForByte)
{
    Start();
    for (std::uint64_t block = 1; block <= 20; ++block) {
        Feed(sender.Image(block));
        void* hBuffer = Next();
        EXPECT_EQ(block, FrameId(hBuffer));
        EXPECT_EQ(0U, WrongBytes(hBuffer, block));
        EXPECT_FALSE(IsIncomplete(hBuffer));
        EXPECT_EQ(kImageSize, Of(hBuffer, BUFFER_INFO_SIZE_FILLED));
        EXPECT_EQ(10U, Of(hBuffer, BUFFER_INFO_DELIVERED_IMAGEHEIGHT));
        EXPECT_EQ(1000 + block, Of(hBuffer, BUFFER_INFO_TIMESTAMP));
        EXPECT_TRUE(Of<bool>(hBuffer, BUFFER_INFO_NEW_DATA));
        EXPECT_EQ(GC_ERR_SUCCESS, stream->WaitForNextLeader(0));
        EXPECT_EQ(GC_ERR_SUCCESS, stream->QueueBuffer(hBuffer));
    }
    ExpectCounters(0, 0, 0);
    EXPECT_EQ(20U, Info(STREAM_INFO_NUM_DELIVERED));
}

using Image = std::vector<Bytes>;
using Position = std::ptrdiff_t;
const Sender kStandard(false);

/// What the consumer sees of the middle one of three images.
struct Outcome
{
    bool isDelivered, isIncomplete;
    std::uint64_t filled, wrongBytes;  // wrongBytes at most
    std::uint64_t missedImages, missedPackets, incompleteImages;
};
constexpr Outcome kWhole{true, false, 1000, 0, 0, 0, 0};
constexpr Outcome kOnePacketShort{true, true, 900, 100, 0, 1, 1};
constexpr Outcome kNoLeader{false, false, 0, 0, 1, 1, 0};

/// What the wire does to it. An image is the leader, packets 1 to 10 and the trailer.
struct WireCase
{
    const char* name;
    std::function<void(Image&)> fault;
    Outcome outcome;
};

std::ostream& operator<<(std::ostream& out, const WireCase& c)
{
    return out << c.name;
}

std::function<void(Image&)> Lose(Position first, Position end)
{
    return [=](Image& image) { image.erase(image.begin() + first, image.begin() + end); };
}

std::function<void(Image&)> Repeat(Position index)
{
    return [=](Image& image) { image.insert(image.begin() + index, Bytes(image.begin()[index])); };
}

std::function<void(Image&)> MoveBack(Position from, Position to)
{
    return [=](Image& i) { std::rotate(i.begin() + from, i.begin() + from + 1, i.begin() + to + 1); };
}

std::function<void(Image&)> Spoil(Position packet, Position byte, unsigned char value)
{
    return [=](Image& image) { image.begin()[packet].begin()[byte] = value; };
}

void InsertRunts(Image& image)
{
    for (std::size_t length = 0; length < 8; ++length) {
        Bytes runt = kStandard.Payload(2, 5);
        runt.resize(length);
        image.insert(image.begin(), runt);
        image.insert(image.end() - 5, runt);
    }
}

class GrabOverABadWire : public Grab, public testing::WithParamInterface<WireCase>
{
};

TEST_P(GrabOverABadWire, CountsWhatIsMissingAndStaysInStep)
{
    const Outcome& expected = GetParam().outcome;
    Start();
    Image damaged = sender.Image(2);
    GetParam().fault(damaged);
    Feed(sender.Image(1));
    Feed(damaged);
    Feed(sender.Image(3));
    EXPECT_EQ(1U, FrameId(Next()));
    if (expected.isDelivered) {
        void* hBuffer = Next();
        EXPECT_EQ(2U, FrameId(hBuffer));
        EXPECT_EQ(expected.isIncomplete, IsIncomplete(hBuffer));
        EXPECT_EQ(expected.filled, Of(hBuffer, BUFFER_INFO_SIZE_FILLED));
        EXPECT_LE(WrongBytes(hBuffer, 2), expected.wrongBytes);
    }
    void* hLast = Next();
    EXPECT_EQ(3U, FrameId(hLast));
    EXPECT_EQ(0U, WrongBytes(hLast, 3));
    EXPECT_FALSE(IsIncomplete(hLast));
    ExpectCounters(expected.missedImages, expected.missedPackets, expected.incompleteImages);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Wire, GrabOverABadWire, testing::Values(
    WireCase{"FirstPacketLost",         Lose(1, 2),        kOnePacketShort},
    WireCase{"LastPacketLost",          Lose(10, 11),      kOnePacketShort},
    WireCase{"EndLost",                 Lose(10, 12),      {true, true, 900, 100, 0, 2, 1}},
    WireCase{"TrailerLost",             Lose(11, 12),      {true, false, 1000, 0, 0, 1, 0}},
    WireCase{"LeaderLost",              Lose(0, 1),        kNoLeader},
    WireCase{"AllLost",                 Lose(0, 12),       {false, false, 0, 0, 1, 12, 0}},
    WireCase{"PacketTwice",             Repeat(4),         {true, true, 1100, 0, 0, 0, 0}},
    WireCase{"TrailerTwice",            Repeat(11),        kWhole},
    WireCase{"SecondPacketLast",        MoveBack(2, 10),   kWhole},
    WireCase{"LeaderSecond",            MoveBack(0, 1),    kWhole},
    WireCase{"LeaderBehindThePackets",  MoveBack(0, 10),   kWhole},
    WireCase{"PacketBehindTheTrailer",  MoveBack(5, 11),   kOnePacketShort},
    WireCase{"BadStatus",               Spoil(3, 1, 1),    kOnePacketShort},
    WireCase{"ResentStatus",            Spoil(3, 0, 1),    kOnePacketShort},
    WireCase{"UnknownFormat",           Spoil(3, 4, 7),    kOnePacketShort},
    WireCase{"PacketIdZero",            Spoil(3, 7, 0),    kOnePacketShort},
    WireCase{"PacketOfAnOlderBlock",    Spoil(3, 3, 1),    kOnePacketShort},
    WireCase{"UnsupportedLeader",       Spoil(0, 11, 5),   kNoLeader},
    WireCase{"OtherHeightInTheTrailer", Spoil(11, 15, 9),  kWhole},
    WireCase{"Runts",                   InsertRunts,       kWhole}),
    [](const testing::TestParamInfo<WireCase>& row) { return std::string(row.param.name); });
// clang-format on

TEST_F(Grab, FollowsSixteenBitIdsAcrossTheWrap)
{
    Start();
    std::uint64_t last = 0;
    std::uint64_t missed = 0;
    for (const std::uint64_t block : {500U, 30000U, 60000U, 65534U, 65535U, 1U, 2U}) {
        Feed(sender.Image(block));
        void* hBuffer = Next();
        EXPECT_EQ(block, FrameId(hBuffer));
        EXPECT_EQ(0U, WrongBytes(hBuffer, block));
        missed += DiffBlockId(block, last, false) - 1;
        last = block;
        EXPECT_EQ(missed, Info(kMissedImages));
        stream->QueueBuffer(hBuffer);
    }
}

TEST_F(Grab, TakesAnImageSmallerThanItsBufferAsPacketsLost)
{
    AnnounceAndQueue(2 * kImageSize);
    Start(0);
    Feed(sender.Image(1));
    void* hBuffer = Next();
    EXPECT_EQ(0U, WrongBytes(hBuffer, 1));
    EXPECT_FALSE(IsIncomplete(hBuffer));
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
        Feed(sender.Image(1));
        EXPECT_EQ(hLarge, Next());
        Feed(sender.Image(2));
        EXPECT_EQ(hSmall, Next());
        EXPECT_EQ(0U, WrongBytes(hSmall, 2, 0, 550));
        EXPECT_EQ(550U, Of(hSmall, BUFFER_INFO_SIZE_FILLED));
        EXPECT_TRUE(IsIncomplete(hSmall));
        EXPECT_EQ(answersTooSmall, Of<bool>(hSmall, BUFFER_INFO_DATA_LARGER_THAN_BUFFER));
        Stop();
        Revoke(hLarge);
        Revoke(hSmall);
    }
}

TEST_F(Grab, CutsAnImageLargerThanTheRunWasLaidOutFor)
{
    Start(2);
    Feed(sender.Image(1, 15));
    Feed(sender.Image(2));
    void* hBuffer = Next();
    EXPECT_EQ(0U, WrongBytes(hBuffer, 1));
    EXPECT_TRUE(Of<bool>(hBuffer, BUFFER_INFO_DATA_LARGER_THAN_BUFFER));
    EXPECT_TRUE(IsIncomplete(hBuffer));
    void* hNext = Next();
    EXPECT_EQ(2U, FrameId(hNext));
    EXPECT_EQ(0U, WrongBytes(hNext, 2));
}

// The last packet has 10 bytes; the trailer and the next leader, longer than that, come in its place.
TEST_F(Grab, KeepsALeaderWholeThatComesInPlaceOfAShortRest)
{
    AnnounceAndQueue(910);
    AnnounceAndQueue(910);
    Start(0);
    std::vector<Bytes> image = sender.Image(1);
    image.resize(10);  // leader and nine packets
    Feed(image);
    image = sender.Image(2);
    image[10].resize(8 + 10);
    Feed(image);
    EXPECT_EQ(1U, FrameId(Next()));
    void* hBuffer = Next();
    EXPECT_EQ(2U, FrameId(hBuffer));
    EXPECT_EQ(kPerPacket, Of(hBuffer, BUFFER_INFO_WIDTH));
    EXPECT_EQ(10U, Of(hBuffer, BUFFER_INFO_HEIGHT));
    EXPECT_EQ(0U, WrongBytes(hBuffer, 2, 0, 910));
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
    FeedAndAwait(sender.Image(1));
    Stop();
}

TEST_F(Grab, CountsAnUnderrunAndStaysInStep)
{
    Start(1);
    FeedAndAwait(sender.Image(1));
    FeedAndAwait(sender.Image(2));
    void* hBuffer = Next();
    EXPECT_EQ(1U, FrameId(hBuffer));
    EXPECT_EQ(1U, Info(STREAM_INFO_NUM_UNDERRUN));
    // The spare has the image to come already: the buffer rescues it at its end.
    EXPECT_EQ(GC_ERR_SUCCESS, stream->QueueBuffer(hBuffer));
    Feed(sender.Image(3));
    EXPECT_EQ(hBuffer, Next());
    EXPECT_EQ(3U, FrameId(hBuffer));
    EXPECT_EQ(0U, WrongBytes(hBuffer, 3));
    EXPECT_EQ(1U, Info(STREAM_INFO_NUM_UNDERRUN));
    EXPECT_EQ(1U, Info(kMissedImages)) << "block 2, by the gap";
}

TEST_F(Grab, RescuesIntoASmallerBuffer)
{
    void* hSmall = nullptr;
    AnnounceAndQueue();
    hSmall = Announce(300);
    Start(0);
    FeedAndAwait(sender.Image(1));
    EXPECT_EQ(GC_ERR_SUCCESS, stream->QueueBuffer(hSmall));
    Feed(sender.Image(2));
    EXPECT_EQ(1U, FrameId(Next()));
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
        for (std::uint64_t block = 1; block <= 5; ++block) {
            FeedAndAwait(sender.Image(block));
        }
        EXPECT_EQ(5U, FrameId(Next())) << "another buffer waits for block 6";
        EXPECT_TRUE(NothingWaits());
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
    std::vector<Bytes> image = sender.Image(1);
    image.resize(6);  // leader and five packets
    Feed(image);
    void* hBuffer = Next();
    EXPECT_EQ(1U, FrameId(hBuffer));
    EXPECT_TRUE(IsIncomplete(hBuffer));
    EXPECT_EQ(500U, Of(hBuffer, BUFFER_INFO_SIZE_FILLED));
    ExpectCounters(0, 6, 1);
    Feed(sender.Image(2));
    EXPECT_EQ(2U, FrameId(Next()));
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
        std::vector<Bytes> image = sender.Image(block);
        const std::vector<Bytes> rest(image.begin() + 6, image.end());
        image.resize(6);
        Feed(image);
        void* hBuffer = Next();
        EXPECT_EQ(block, FrameId(hBuffer));
        if (block == 4) {
            Revoke(hBuffer);
        } else {
            EXPECT_EQ(GC_ERR_SUCCESS, stream->QueueBuffer(hBuffer));
        }
        Feed(rest);
    }
    hal->AwaitDrained();
    EXPECT_EQ(0U, Info(STREAM_INFO_NUM_UNDERRUN));
    Feed(sender.Image(5));
    void* hBuffer = Next();
    EXPECT_EQ(5U, FrameId(hBuffer));
    EXPECT_EQ(0U, WrongBytes(hBuffer, 5));
}

TEST_F(Grab, RefusesToRevokeTheBufferBeingFilled)
{
    void* hBuffer = AnnounceAndQueue();
    Start(1);
    FeedAndAwait({sender.Leader(1), sender.Payload(1, 1)});
    EXPECT_EQ(GC_ERR_BUSY, stream->RevokeBuffer(hBuffer, nullptr, nullptr));
    Stop();
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, stream->RevokeBuffer(nullptr, nullptr, nullptr));
    Revoke(hBuffer);
    ASSERT_EQ(GC_ERR_SUCCESS, stream->StartAcquisition(0, 1));
    Feed(sender.Image(1));
    EXPECT_EQ(1U, FrameId(Next()));
    ExpectCounters(0, 0, 0);
}

// An image in collection at stop is handed off ahead of the first of the next run, and is no gap before that.
TEST_F(Grab, DeliversTheLeftoverOfTheRunBefore)
{
    Start(3);
    Feed(sender.Image(1));
    Next();
    std::vector<Bytes> image = sender.Image(2);
    image.resize(6);
    FeedAndAwait(image);
    Stop();
    EXPECT_TRUE(NothingWaits());
    ASSERT_EQ(GC_ERR_SUCCESS, stream->StartAcquisition(0, 1));
    FeedAndAwait(sender.Image(1));
    void* hLeftover = Next();
    EXPECT_EQ(2U, FrameId(hLeftover));
    EXPECT_TRUE(IsIncomplete(hLeftover));
    EXPECT_EQ(500U, Of(hLeftover, BUFFER_INFO_SIZE_FILLED));
    EXPECT_EQ(1U, FrameId(Next()));
    EXPECT_EQ(0U, Info(kMissedImages));
}

// Flushed back, the leftover is void: it stands in the input queue once and comes back with a new image only.
TEST_F(Grab, ForgetsALeftoverThatWasFlushedToTheInputQueue)
{
    for (const bool withLeader : {true, false}) {
        Start(withLeader ? 2 : 0);
        if (withLeader) {
            FeedAndAwait({sender.Leader(1), sender.Payload(1, 1)});
        }
        Stop();
        EXPECT_EQ(GC_ERR_SUCCESS, stream->FlushQueue(ACQ_QUEUE_ALL_TO_INPUT));
        ASSERT_EQ(GC_ERR_SUCCESS, stream->StartAcquisition(0, 1));
        for (std::uint64_t block = 1; block <= 4; ++block) {
            FeedAndAwait(sender.Image(block));
            void* hBuffer = Next();
            EXPECT_EQ(block, FrameId(hBuffer));
            EXPECT_EQ(0U, WrongBytes(hBuffer, block));
            EXPECT_TRUE(NothingWaits());
            EXPECT_EQ(GC_ERR_SUCCESS, stream->QueueBuffer(hBuffer));
            EXPECT_EQ(1U, Info(STREAM_INFO_NUM_QUEUED)) << "the other one is being filled";
        }
        ExpectCounters(0, 0, 0);
        Stop();
    }
}

TEST_F(Grab, StartsAndStopsManyTimesWithoutAPacket)
{
    Start(3);
    for (int i = 0; i < 10; ++i) {
        Stop();
        ASSERT_EQ(GC_ERR_SUCCESS, stream->StartAcquisition(0, 1));
    }
}

// The header size is settled by the first run of a process: these runs are the first of theirs.
class ExtendedGrab : public Grab
{
public:
    ExtendedGrab() : Grab(true) {}
    void TestBody() override {}

    void ReceiveImagesAcrossTheWrap()
    {
        Start();
        // To the middle, to near the end, and over it.
        for (const std::uint64_t block :
             {std::uint64_t{1}, kMax / 2 - 10, kMax - 20, kMax - 1, kMax, std::uint64_t{1}}) {
            std::vector<Bytes> image = sender.Image(block);
            std::swap(image[3], image[4]);
            std::swap(image[0], image[1]);
            image.insert(image.begin() + 5, Bytes(image[5].begin(), image[5].begin() + 19));
            Feed(image);
            void* hBuffer = Next();
            EXPECT_EQ(block, FrameId(hBuffer));
            EXPECT_EQ(0U, WrongBytes(hBuffer, block));
            EXPECT_FALSE(IsIncomplete(hBuffer));
            EXPECT_EQ(GC_ERR_SUCCESS, stream->QueueBuffer(hBuffer));
        }
    }

    static void RunAlone(void (ExtendedGrab::*run)())
    {
        {
            ExtendedGrab grab;
            (grab.*run)();
        }
        std::exit(testing::Test::HasFailure() ? 1 : 0);
    }
    void RunHostile() { SurviveHostilePackets(); }
};

TEST(ExtendedGrabDeathTest, DeliversImagesAcrossTheWrapAndSurvivesHostilePackets)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(ExtendedGrab::RunAlone(&ExtendedGrab::ReceiveImagesAcrossTheWrap), testing::ExitedWithCode(0),
                "");
    EXPECT_EXIT(ExtendedGrab::RunAlone(&ExtendedGrab::RunHostile), testing::ExitedWithCode(0), "");
}

}  // namespace
