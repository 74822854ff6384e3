/// The grab thread with packet resend, fed by a scripted stream HAL: what it asks for, and what becomes of
/// the images.
#include "GrabTest.h"
#include "buffers/Buffer.h"
#include "stream/PacketTracking.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

using namespace GenTL;
using Clock = std::chrono::steady_clock;

namespace {

TEST(PacketBitmap, HasAnInclusiveBound)
{
    Buffer buffer;
    AllocatePacketBitmap(buffer, 12);
    EXPECT_EQ(2U, buffer.m_packetBitmapSize);
    for (const std::uint32_t id : {0U, 7U, 8U, 11U, 16U, 23U}) {
        EXPECT_FALSE(IsPacketReceived(buffer.m_pPacketBitmap, 2, id));
        SetPacketReceived(buffer.m_pPacketBitmap, 2, id);
        EXPECT_TRUE(IsPacketReceived(buffer.m_pPacketBitmap, 2, id));
    }
    for (const std::uint32_t id : {24U, 0xFFFFFFFFU}) {
        SetPacketReceived(buffer.m_pPacketBitmap, 2, id);
        EXPECT_FALSE(IsPacketReceived(buffer.m_pPacketBitmap, 2, id));
    }
    FreePacketBitmap(buffer);
    EXPECT_FALSE(IsPacketReceived(buffer.m_pPacketBitmap, buffer.m_packetBitmapSize, 0));
}

class ResendGrabTest : public Grab
{
protected:
    explicit ResendGrabTest(bool extended = false) : Grab(extended) { SetResend(true); }

    void SetResend(bool on) { Set(kResendEnable, INFO_DATATYPE_BOOL8, on); }
    std::string Asked() const { return control.Asked(); }

    static constexpr int kResendEnable = 1006;
    static constexpr int kMaxRequests = 1010;
};

struct LossCase
{
    const char* name;
    std::uint32_t maxRequests;
    const char *first, *asked, *then, *delivered, *atStop;
    std::uint64_t missedImages, missedPackets;
};

class ResendGrabWithLoss : public ResendGrabTest, public testing::WithParamInterface<LossCase>
{
};

TEST_P(ResendGrabWithLoss, AsksForWhatIsMissing)
{
    const LossCase& c = GetParam();
    constexpr std::uint64_t kBuffers = 5;
    Set(kMaxRequests, INFO_DATATYPE_UINT32, c.maxRequests);
    Start(kBuffers);
    Run(c.first);
    EXPECT_EQ(c.asked, Asked());
    Run(c.then);
    EXPECT_EQ(c.delivered, ReadAll());
    EXPECT_EQ(c.asked, Asked());
    Stop();
    EXPECT_EQ(c.atStop, ReadAll());
    EXPECT_EQ(c.missedImages, Info(kMissedImages));
    EXPECT_EQ(c.missedPackets, Info(kMissedPackets));
    EXPECT_EQ(kBuffers - buffersRead, Info(STREAM_INFO_NUM_QUEUED)) << "what isn't delivered is queued again";
    EXPECT_EQ(0U, Info(STREAM_INFO_NUM_UNDERRUN));
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Resend, ResendGrabWithLoss, testing::Values(
    LossCase{"AGap", 5, "1L 1:1-2 1:4-10 1T", "1:3-3", "1:3!", "1", "", 0, 0},
    LossCase{"TheBegin", 5, "1:4-10 1L 1:1-3", "1:0-3", "1T", "1", "", 0, 0},
    LossCase{"TheLeader", 5, "1* 2:1-10 2T", "2:0-0", "2L!", "1 2", "", 0, 0},
    LossCase{"TheEndBeforeTheTrailer", 5, "1L 1:1-8 1T", "1:9-10", "1:9-10!", "1", "", 0, 0},
    LossCase{"TheEnd", 5, "1L 1:1-7 2L", "1:8-11", "1:8-10! 1T! 2:1-10 2T", "1 2", "", 0, 0},
    LossCase{"NothingButTheOrderOfTwo", 5, "1L 1:1-5 2L 2:1 1:6-10 1T 2:2-10 2T", "1:6-11", "", "1 2", "", 0, 0},
    LossCase{"Duplicates", 5, "1L 1:1-3 1:2 1L 1:4-9 1:1 1:10 1T 1T 1:4", "", "", "1", "", 0, 0},
    // The command names the block in progress, whichever the gap is in.
    LossCase{"AGapInTheAnswer", 5, "1L 1:1-3 2L 1:6!", "1:4-11 2:4-5", "1:4-5! 1:7-10! 1T! 2:1-10 2T", "1 2", "",
             0, 0},
    LossCase{"TwoRequests", 2, "1L 1:2 1:4 1:6 1:8-10 1T", "1:1-1 1:3-3", "1:1! 1:3! 1:5! 1:7!", "1", "", 0, 0},
    LossCase{"NoRequest", 0, "1L 1:1-8 1:10 2*", "", "", "", "1~900 2", 0, 2},
    LossCase{"ByStatus", 5, "1L 1:1! 1:2? 1:3-10 1T", "1:2-2", "1:2?", "", "1~900", 0, 1},
    LossCase{"StaleBlocks", 5, "5* 4* 5T 3:1", "", "6*", "5 6", "", 4, 12 * 4},
    LossCase{"AtTheWrap", 5, "30000* 60000* 65535L 65535:1-2 65535:4-10 65535T 1L", "65535:3-3",
             "65535:3! 1:1-10 1T", "30000 60000 65535 1", "", 29999 + 29999 + 5534, 12 * (29999 + 29999 + 5534)},
    // A younger image waits for the older one, and goes out behind it.
    LossCase{"OfTheOldestOnly", 5, "1L 1:1-4 2* 3L", "1:5-11", "3:1", "", "1~400 2 3~100", 0, 7 + 10},
    LossCase{"TheLeaderUntilTheStop", 5, "1* 2:1-3", "2:0-0", "", "1", "", 0, 0}), kNameOf);
// clang-format on

TEST_F(ResendGrabTest, CutsAnImageThatDoesNotFit)
{
    AnnounceAndQueue();
    AnnounceAndQueue(550);
    AnnounceAndQueue(0);
    Start(0);
    Run("1* 2* 3*");
    EXPECT_EQ("1", Read(Next()));
    void* hCut = Next();
    EXPECT_EQ("2~550", Read(hCut));
    EXPECT_EQ(0U, WrongBytes(hCut, 2, 0, 550));
    EXPECT_TRUE(Of<bool>(hCut, BUFFER_INFO_DATA_LARGER_THAN_BUFFER));
    EXPECT_EQ("3~0", Read(Next()));
    EXPECT_EQ("", Asked());
}

TEST_F(ResendGrabTest, TakesUpABlockHalfWayWhenABufferComesBack)
{
    Start(1);
    Run("1* 2L 2:1-4");
    void* hBuffer = Next();
    EXPECT_EQ("1", Read(hBuffer));
    EXPECT_EQ(GC_ERR_SUCCESS, stream->QueueBuffer(hBuffer));
    Run("2:5-10 2T");
    EXPECT_EQ("2:0-4", Asked());
    Run("2L! 2:1-4!");
    EXPECT_EQ("2", ReadAll());
    // A block that found no buffer at all is a gap.
    Run("3* 4*");
    EXPECT_EQ(GC_ERR_SUCCESS, stream->QueueBuffer(hBuffer));
    Run("5*");
    EXPECT_EQ("5", ReadAll());
    ExpectCounters(2, 24, 0);
    EXPECT_EQ(0U, Info(STREAM_INFO_NUM_UNDERRUN));
}

TEST_F(ResendGrabTest, TellsOfAParsedLeaderOnly)
{
    Start();
    Run("1*");
    EXPECT_EQ(GC_ERR_SUCCESS, stream->WaitForNextLeader(20000));
    Run("2:1-3");
    EXPECT_EQ(GC_ERR_TIMEOUT, stream->WaitForNextLeader(1));
    Run("2L!");
    EXPECT_EQ(GC_ERR_SUCCESS, stream->WaitForNextLeader(0));
}

// In mode 1 a waiting image is taken out of circulation, until it is flushed back. Only where an earlier run
// without resend has marked the buffer as being filled it is used at once.
TEST_F(ResendGrabTest, TakesTheOldestOutInModeOne)
{
    SetMode(1);
    Start(2);
    Run("1* 2*");
    EXPECT_EQ(0U, Info(STREAM_INFO_NUM_QUEUED));
    EXPECT_EQ("2", ReadAll());
    EXPECT_EQ(GC_ERR_SUCCESS, stream->FlushQueue(ACQ_QUEUE_ALL_TO_INPUT));
    EXPECT_EQ(2U, Info(STREAM_INFO_NUM_QUEUED));
    Stop();

    SetResend(false);
    ASSERT_EQ(GC_ERR_SUCCESS, stream->StartAcquisition(0, 1));
    Run("1* 2*");
    Stop();
    SetResend(true);
    EXPECT_EQ(GC_ERR_SUCCESS, stream->FlushQueue(ACQ_QUEUE_ALL_TO_INPUT));
    ASSERT_EQ(GC_ERR_SUCCESS, stream->StartAcquisition(0, 1));
    Run("1* 2* 3*");
    EXPECT_EQ(1U, Info(STREAM_INFO_NUM_QUEUED));
    EXPECT_EQ("3", ReadAll());
}

TEST_F(ResendGrabTest, DeliversAtOnceWhatARunWithoutResendLeft)
{
    SetResend(false);
    Start(3);
    Run("1L 1:1-3");
    Stop();
    SetResend(true);
    ASSERT_EQ(GC_ERR_SUCCESS, stream->StartAcquisition(0, 1));
    EXPECT_EQ("1~300", Read(Next()));
    Run("1*");
    EXPECT_EQ("1", ReadAll());
    ExpectCounters(0, 8, 1);
}

TEST_F(ResendGrabTest, LosesABufferInCollectionToItsOwner)
{
    Start(3);
    // Revoked.
    void* hFirst = memories[0].hBuffer;
    Run("1L 1:1-2 1:4");
    Revoke(hFirst);
    Run("1:5-10 1T 1L! 1:1-4!");
    EXPECT_EQ("1", ReadAll());
    // Queued again: the next block takes it a second time.
    void* hThird = memories[2].hBuffer;
    Run("2L 2:1-2 2:4");
    EXPECT_EQ(GC_ERR_SUCCESS, stream->QueueBuffer(hThird));
    Run("3*");
    EXPECT_EQ("3", ReadAll());
    EXPECT_EQ(GC_ERR_SUCCESS, stream->QueueBuffer(hThird));
    Run("4L 4:1-2 4:4");
    EXPECT_EQ(GC_ERR_SUCCESS, stream->FlushQueue(ACQ_QUEUE_ALL_TO_INPUT));
    Run("4:3! 4:5-10 4T");
    EXPECT_EQ("4", ReadAll());
    EXPECT_EQ(1U, Info(STREAM_INFO_NUM_QUEUED)) << "it has left the input queue";
}

TEST_F(ResendGrabTest, SurvivesHostilePackets)
{
    hal->interPacketExpiry = 5;
    hal->bufferExpiry = 5;
    hal->resendRetries = 3;
    SurviveHostilePackets();
}

class ExtendedResendGrabTest : public ResendGrabTest
{
protected:
    ExtendedResendGrabTest() : ResendGrabTest(true) {}
};

TEST_F(ExtendedResendGrabTest, AsksAndSurvivesLikewise)
{
    Start();
    Run("1L 1:1-2 1:4-10 1T 1:3! 18446744073709551615:1");
    EXPECT_EQ("1:3-3x", Asked());
    EXPECT_EQ("1", ReadAll());
    Run("8000000000000000000L 8000000000000000000:1-9 8000000000000000001L");
    EXPECT_EQ("1:3-3x 8000000000000000000:10-11x", Asked());
    Stop();
    hal->interPacketExpiry = 5;
    hal->bufferExpiry = 5;
    SurviveHostilePackets();
}

/// Ticks at 150, 300, 450 ms after the first packet, expiry at 400.
class ResendGrabWithTimers : public ResendGrabTest
{
protected:
    ResendGrabWithTimers()
    {
        hal->interPacketExpiry = 150;
        hal->bufferExpiry = 400;
    }
};

TEST_F(ResendGrabWithTimers, RepeatARequestAndGiveUp)
{
    hal->resendRetries = 3;
    Start();
    const auto begin = Clock::now();
    Run("1L 1:1-2 1:4-10 1T 2*");
    EXPECT_TRUE(NothingWaits()) << "2 is whole, and waits for 1";
    EXPECT_EQ("1~900", Read(Next()));
    EXPECT_LE(std::chrono::milliseconds(400), Clock::now() - begin);
    EXPECT_EQ("2", Read(Next()));
    EXPECT_EQ("1:3-3 1:3-3 1:3-3 1:3-3", Asked()) << "once, and three repeats";
    ExpectCounters(0, 1, 1);
    Run("1:3! 3*");
    EXPECT_EQ("3", ReadAll()) << "an answer that is too late opens no image";
}

TEST_F(ResendGrabWithTimers, AskInSilence)
{
    Start();
    const auto begin = Clock::now();
    Run("1L 1:1-5");
    EXPECT_EQ("1~500", Read(Next()));
    EXPECT_LE(std::chrono::milliseconds(400), Clock::now() - begin);
    EXPECT_EQ("1:6-12 1:6-12", Asked()) << "at the second tick, and at the expiry";
    ExpectCounters(0, 6, 1);

    control.answer = [this](std::uint64_t, std::uint32_t) { Feed(Packets("2:6-10! 2T!")); };
    Run("2L 2:1-5");
    EXPECT_EQ("2", Read(Next()));
    EXPECT_EQ("1:6-12 1:6-12 2:6-12", Asked());
}

TEST_F(ResendGrabWithTimers, QueueAnImageWithoutLeaderAgain)
{
    Start();
    Run("1* 2:1-10 2T 3*");
    EXPECT_EQ("1", Read(Next()));
    EXPECT_EQ("3", Read(Next()));
    EXPECT_EQ("2:0-0", Asked());
    EXPECT_EQ(2U, Info(STREAM_INFO_NUM_QUEUED));
    ExpectCounters(1, 1, 0);
}

// A switch that is turned on while the other path runs has no effect on it.
TEST_F(ResendGrabWithTimers, AskNothingOnTheOtherPath)
{
    SetResend(false);
    Start();
    Run("1L 1:1-5");
    SetResend(true);
    EXPECT_EQ("1~500", Read(Next()));
    EXPECT_EQ("", Asked());
}

// Everything at once: loss and late answers, expiries, all flushes, and a consumer.
TEST_F(ResendGrabTest, SurvivesFlushesWhileItRuns)
{
    hal->interPacketExpiry = 2;
    hal->bufferExpiry = 5;
    hal->resendRetries = 2;
    std::atomic<unsigned> count{0};
    control.answer = [&](std::uint64_t block, std::uint32_t first) {
        if (++count % 3 != 0 && first >= 1 && first <= kPackets) {
            Feed({sender.Payload(block, first)});
        }
    };
    Start(8);
    std::atomic<bool> isDone{false};
    std::thread flusher([&] {
        for (int operation = 0; !isDone; operation = (operation + 1) % 5) {
            EXPECT_EQ(GC_ERR_SUCCESS, stream->FlushQueue(operation)) << operation;
            stream->FlushQueue(ACQ_QUEUE_UNQUEUED_TO_INPUT);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    std::mt19937 random(1);
    for (std::uint64_t block = 1; block <= 400; ++block) {
        std::vector<Bytes> image = sender.Image(block);
        image.erase(
            std::remove_if(image.begin(), image.end(), [&](const Bytes&) { return random() % 8 == 0; }),
            image.end());
        FeedAndAwait(image);
        void* hBuffer = nullptr;
        if (stream->WaitOnNewBuffer(&hBuffer, 0) == GC_ERR_SUCCESS) {
            stream->QueueBuffer(hBuffer);
        }
        if (block % 100 == 0) {
            SetMode(static_cast<std::int64_t>(block / 100 % 3));
        }
    }
    isDone = true;
    flusher.join();
    Stop();
    SetMode(0);
    EXPECT_EQ(GC_ERR_SUCCESS, stream->FlushQueue(ACQ_QUEUE_ALL_DISCARD));
    EXPECT_EQ(GC_ERR_SUCCESS, stream->FlushQueue(ACQ_QUEUE_ALL_TO_INPUT));
    ASSERT_EQ(GC_ERR_SUCCESS, stream->StartAcquisition(0, 1));
    Run("1*");
    EXPECT_EQ("1", ReadAll());
}

}  // namespace
