/// A stream fed by a scripted stream HAL, and the datagrams to feed it with.
#pragma once

#include "frame/GenTL.h"
#include "gev/HALGev.h"
#include "stream/DataStreamGev.h"
#include "stream/HALGvsp.h"
#include "stream/StreamStartParams.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace GenTL {

using Bytes = std::vector<unsigned char>;

/// A stream HAL that hands out datagrams as a socket does, overhang cut off.
class ScriptedHal : public HALGvsp
{
public:
    std::uint32_t packetSize = 0;
    std::uint32_t interPacketExpiry = 60000;
    std::uint32_t bufferExpiry = 60000;
    std::uint32_t resendRetries = 0;
    bool extended = false;
    bool answersTooSmall = false;  // as no socket does

    void Feed(const std::vector<Bytes>& datagrams)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_datagrams.insert(m_datagrams.end(), datagrams.begin(), datagrams.end());
        m_changed.notify_all();
    }
    /// Returns when everything has been received and worked on.
    void AwaitDrained()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        const bool drained = m_changed.wait_for(lock, std::chrono::seconds(20),
                                                [this] { return m_datagrams.empty() && m_isWaiting; });
        EXPECT_TRUE(drained);
    }

    int Start(IHALGev*, void*, StreamStartParams& params) override
    {
        params.m_packetSize = packetSize;
        params.m_interPacketExpiry = interPacketExpiry;
        params.m_bufferExpiry = bufferExpiry;
        params.m_resendRetries = resendRetries;
        return GC_ERR_SUCCESS;
    }
    int Stop(IHALGev*, void*, unsigned, int) override { return GC_ERR_SUCCESS; }
    int GetNextPacket(char* packet, int size, int& length, unsigned long timeout) override
    {
        int none = 0;
        return GetNextPacket(nullptr, 0, none, packet, size, length, timeout);
    }
    int GetNextPacket(char* header,
                      int headerSize,
                      int& headerLength,
                      char* data,
                      int dataSize,
                      int& dataLength,
                      unsigned long timeout) override
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_isWaiting = true;
        m_changed.notify_all();
        const bool came = m_changed.wait_for(lock, std::chrono::milliseconds(timeout),
                                             [this] { return !m_datagrams.empty(); });
        m_isWaiting = false;
        if (!came) {
            return GC_ERR_TIMEOUT;
        }
        const Bytes datagram = std::move(m_datagrams.front());
        m_datagrams.pop_front();
        lock.unlock();

        const std::size_t inHeader = std::min(datagram.size(), static_cast<std::size_t>(headerSize));
        const std::size_t behind = datagram.size() - inHeader;
        const std::size_t inData = std::min(behind, static_cast<std::size_t>(dataSize));
        std::copy_n(datagram.begin(), inHeader, header);
        std::copy_n(datagram.begin() + static_cast<std::ptrdiff_t>(inHeader), inData, data);
        headerLength = static_cast<int>(inHeader);
        const bool isCut = inData < behind;
        dataLength = static_cast<int>(isCut && !answersTooSmall ? inHeader + inData : datagram.size());
        return isCut && answersTooSmall ? GC_ERR_BUFFER_TOO_SMALL : GC_ERR_SUCCESS;
    }
    int ConfigureExtendedId(IHALGev*, void*, bool, bool& isExtended) override
    {
        isExtended = extended;
        return GC_ERR_SUCCESS;
    }
    int GetCameraPacketResendSupport(IHALGev*, void*, bool&) override { return GC_ERR_SUCCESS; }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Bytes> m_datagrams;
    bool m_isWaiting = false;
};

inline constexpr std::size_t kPerPacket = 100;
inline constexpr std::size_t kImageSize = 1000;
inline constexpr std::uint32_t kPackets = 10;
inline constexpr unsigned char kGuard = 0xEE;

/// The sender's side, with an encoding of its own.
class Sender
{
public:
    explicit Sender(bool extended) : m_extended(extended) {}

    static void Put(Bytes& to, std::uint64_t value, int size)
    {
        for (int shift = 8 * (size - 1); shift >= 0; shift -= 8) {
            to.push_back(static_cast<unsigned char>(value >> shift));
        }
    }
    Bytes Header(unsigned format, std::uint64_t block, std::uint32_t id, unsigned status = 0) const
    {
        Bytes packet;
        Put(packet, status, 2);
        Put(packet, m_extended ? 0 : block, 2);
        Put(packet, m_extended ? 0x80U | format : format, 1);
        Put(packet, m_extended ? 0 : id, 3);
        if (m_extended) {
            Put(packet, block, 8);
            Put(packet, id, 4);
        }
        return packet;
    }
    /// An 8-bit image of 100 columns.
    Bytes Leader(std::uint64_t block, std::size_t size = kImageSize) const
    {
        Bytes packet = Header(1, block, 0);
        Put(packet, 1, 4);
        Put(packet, 1000 + block, 8);
        Put(packet, 0x01080001, 4);
        Put(packet, kPerPacket, 4);
        Put(packet, size / kPerPacket, 4);
        packet.resize(packet.size() + 12);  // offsets and paddings
        return packet;
    }
    Bytes Payload(std::uint64_t block, std::uint32_t id, std::size_t size = kPerPacket) const
    {
        Bytes packet = Header(3, block, id);
        for (std::size_t i = 0; i < size; ++i) {
            packet.push_back(ByteOf(block, (id - 1) * kPerPacket + i));
        }
        return packet;
    }
    Bytes Trailer(std::uint64_t block, std::uint32_t sizeY = kPackets, std::uint32_t id = kPackets + 1) const
    {
        Bytes packet = Header(2, block, id);
        Put(packet, 1, 4);
        Put(packet, sizeY, 4);
        return packet;
    }
    std::vector<Bytes> Image(std::uint64_t block, std::uint32_t packets = kPackets) const
    {
        std::vector<Bytes> image{Leader(block, packets * kPerPacket)};
        for (std::uint32_t id = 1; id <= packets; ++id) {
            image.push_back(Payload(block, id));
        }
        image.push_back(Trailer(block, packets, packets + 1));
        return image;
    }
    static unsigned char ByteOf(std::uint64_t block, std::size_t position)
    {
        return static_cast<unsigned char>(block * 31 + position * 7 + position / 251);
    }

private:
    bool m_extended;
};

/// A control channel that only notes which packets are asked for, and lets the camera answer at once.
class AskedHal : public HALGev
{
public:
    int SendPacketResend(void*, unsigned long block, unsigned first, unsigned last, bool isExtended) override
    {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_asked += (m_asked.empty() ? "" : " ") + std::to_string(block) + ":" + std::to_string(first) +
                       "-" + std::to_string(last) + (isExtended ? "x" : "");
        }
        if (answer) {
            answer(block, first);
        }
        return GC_ERR_SUCCESS;
    }
    /// As "block:first-last ...", an "x" behind those in extended form.
    std::string Asked() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_asked;
    }

    std::function<void(std::uint64_t block, std::uint32_t first)> answer;

private:
    mutable std::mutex m_mutex;
    std::string m_asked;
};

inline constexpr auto kNameOf = [](const auto& row) { return std::string(row.param.name); };

/// A stream on a scripted HAL. Buffers are user memory between guard bytes. The header size of the process is
/// that of the first run, so everything here is in standard form; extended runs get a process of their own.
class Grab : public testing::Test
{
protected:
    explicit Grab(bool extended = false) : sender(extended)
    {
        hal = new ScriptedHal;
        hal->extended = extended;
        hal->packetSize = static_cast<std::uint32_t>(28 + (extended ? 20 : 8) + kPerPacket);
        stream = std::make_unique<DataStreamGev>(&control, &control, &control, 0, 3);
        EXPECT_EQ(GC_ERR_SUCCESS, stream->Open(hal));
    }
    ~Grab() override
    {
        if (Info<bool>(STREAM_INFO_IS_GRABBING)) {
            EXPECT_EQ(GC_ERR_SUCCESS, stream->StopAcquisition(0));
        }
        stream->FlushQueue(ACQ_QUEUE_ALL_DISCARD);
        for (const Memory& memory : memories) {
            if (memory.hBuffer != nullptr) {
                Revoke(memory.hBuffer);
            }
        }
        EXPECT_EQ(GC_ERR_SUCCESS, stream->Close());
    }

    void* Announce(std::size_t size = kImageSize)
    {
        memories.push_back({Bytes(size + kGuardSize, kGuard), nullptr});
        auto& [bytes, hBuffer] = memories.back();
        EXPECT_EQ(GC_ERR_SUCCESS, stream->AnnounceBuffer(bytes.data(), size, nullptr, &hBuffer));
        return hBuffer;
    }
    void* AnnounceAndQueue(std::size_t size = kImageSize)
    {
        void* hBuffer = Announce(size);
        EXPECT_EQ(GC_ERR_SUCCESS, stream->QueueBuffer(hBuffer));
        return hBuffer;
    }
    void Start(int buffers = 4)
    {
        for (int i = 0; i < buffers; ++i) {
            AnnounceAndQueue();
        }
        ASSERT_EQ(GC_ERR_SUCCESS, stream->StartAcquisition(0, 1));
    }
    void Stop() { ASSERT_EQ(GC_ERR_SUCCESS, stream->StopAcquisition(0)); }
    /// The memory goes with the buffer.
    void Revoke(void* hBuffer)
    {
        EXPECT_EQ(GC_ERR_SUCCESS, stream->RevokeBuffer(hBuffer, nullptr, nullptr));
        const auto isItsMemory = [hBuffer](const Memory& memory) { return memory.hBuffer == hBuffer; };
        Memory& memory = *std::find_if(memories.begin(), memories.end(), isItsMemory);
        EXPECT_EQ(Bytes(kGuardSize, kGuard), Bytes(memory.bytes.end() - kGuardSize, memory.bytes.end()))
            << "bytes behind the buffer were written";
        memory = Memory{};
    }
    /// Scripts name packets by block and place, "3L" the leader of block 3, "3:5" and "3:5-7" its payload,
    /// "3T" the trailer, "3*" all of it; "!" behind marks them as resent, "?" as failed, "@4=7" sets their
    /// byte 4 to 7, "/7" cuts them to 7 bytes.
    std::vector<Bytes> Packets(const std::string& script) const
    {
        std::vector<Bytes> packets;
        std::istringstream words(script);
        for (std::string word; words >> word;) {
            AppendPackets(word, packets);
        }
        return packets;
    }
    void Feed(const std::vector<Bytes>& datagrams) { hal->Feed(datagrams); }
    void FeedAndAwait(const std::vector<Bytes>& datagrams)
    {
        hal->Feed(datagrams);
        hal->AwaitDrained();
    }
    void Run(const std::string& script) { FeedAndAwait(Packets(script)); }
    void* Next()
    {
        void* hBuffer = nullptr;
        EXPECT_EQ(GC_ERR_SUCCESS, stream->WaitOnNewBuffer(&hBuffer, 20000));
        return hBuffer;
    }
    /// A delivered image, as "block" when it is whole, else "block~bytes".
    std::string Read(void* hBuffer) const
    {
        const std::uint64_t block = FrameId(hBuffer);
        if (!IsIncomplete(hBuffer)) {
            EXPECT_EQ(0U, WrongBytes(hBuffer, block));
            return std::to_string(block);
        }
        const std::uint64_t filled = Of(hBuffer, BUFFER_INFO_SIZE_FILLED);
        EXPECT_GE(kImageSize - std::min(filled, kImageSize), WrongBytes(hBuffer, block));
        return std::to_string(block) + "~" + std::to_string(filled);
    }
    /// All that waits.
    std::string ReadAll()
    {
        std::string all;
        void* hBuffer = nullptr;
        while (stream->WaitOnNewBuffer(&hBuffer, 0) == GC_ERR_SUCCESS) {
            all += (all.empty() ? "" : " ") + Read(hBuffer);
            ++buffersRead;
        }
        return all;
    }
    bool NothingWaits() const { return Info(STREAM_INFO_NUM_AWAIT_DELIVERY) == 0; }

    template <typename T = std::uint64_t>
    T Info(int command) const
    {
        T value{};
        std::size_t size = sizeof value;
        int type = 0;
        EXPECT_EQ(GC_ERR_SUCCESS, stream->GetInfo(command, &type, &value, &size)) << command;
        return value;
    }
    template <typename T = std::uint64_t>
    T Of(void* hBuffer, int command) const
    {
        T value{};
        std::size_t size = sizeof value;
        int type = 0;
        EXPECT_EQ(GC_ERR_SUCCESS, stream->GetBufferInfo(hBuffer, command, &type, &value, &size)) << command;
        return value;
    }
    bool IsIncomplete(void* hBuffer) const { return Of<bool>(hBuffer, BUFFER_INFO_IS_INCOMPLETE); }
    std::uint64_t FrameId(void* hBuffer) const { return Of(hBuffer, BUFFER_INFO_FRAMEID); }
    /// Bytes of [from, to) that aren't those of the block.
    std::size_t WrongBytes(void* hBuffer,
                           std::uint64_t block,
                           std::size_t from = 0,
                           std::size_t to = kImageSize) const
    {
        const auto* bytes = static_cast<const unsigned char*>(Of<void*>(hBuffer, BUFFER_INFO_BASE));
        std::size_t wrong = 0;
        for (std::size_t i = from; i < to; ++i) {
            wrong += bytes[i] != Sender::ByteOf(block, i) ? 1 : 0;
        }
        return wrong;
    }
    void ExpectCounters(std::uint64_t missedImages,
                        std::uint64_t missedPackets,
                        std::uint64_t incomplete) const
    {
        EXPECT_EQ(missedImages, Info(kMissedImages));
        EXPECT_EQ(missedPackets, Info(kMissedPackets));
        EXPECT_EQ(0U, Info(kTotalMissedImages));
        EXPECT_EQ(incomplete, Info(kTotalIncompleteImages));
    }

    template <typename T>
    void Set(int command, int type, T value)
    {
        EXPECT_EQ(GC_ERR_SUCCESS, stream->SetInfo(command, type, &value, sizeof value));
    }
    void SetMode(std::int64_t mode) { Set(kHandlingMode, INFO_DATATYPE_INT64, mode); }
    /// Packets of all kinds in both forms, cut short, with extreme ids and lengths: nothing outside the
    /// buffers is touched, and the next run is in step.
    void SurviveHostilePackets();

    static constexpr int kHandlingMode = 1001;
    static constexpr int kMissedImages = 1002;
    static constexpr int kMissedPackets = 1003;
    static constexpr int kTotalMissedImages = 1004;
    static constexpr int kTotalIncompleteImages = 1005;
    static constexpr std::ptrdiff_t kGuardSize = 4096;

    struct Memory
    {
        Bytes bytes;
        void* hBuffer = nullptr;
    };

    void AppendPackets(const std::string& word, std::vector<Bytes>& packets) const
    {
        std::istringstream parts(word);
        std::uint64_t block = 0;
        char kind = 0;
        parts >> block >> kind;
        std::size_t first = kind == 'T' ? kPackets + 1 : 0;
        std::size_t last = kind == 'L' ? 0 : kPackets + 1;
        if (kind == ':') {
            parts >> first;
            last = first;
            if (parts.peek() == '-') {
                parts.ignore() >> last;
            }
        }
        char mark = 0, equals = 0;
        std::size_t number = 0;  // a place in the packet, or its size
        unsigned value = 0;
        parts >> mark >> number >> equals >> value;
        const std::vector<Bytes> image = sender.Image(block);
        for (std::size_t i = first; i <= last; ++i) {
            Bytes& packet = packets.emplace_back(image[i]);
            if (mark == '/') {
                packet.resize(number);
            } else if (mark != 0) {
                const unsigned status = mark == '!' ? 0x01 : 0x80;
                packet[number] = static_cast<unsigned char>(mark == '@' ? value : status);
            }
        }
    }

    AskedHal control;
    ScriptedHal* hal = nullptr;  // the stream's
    std::unique_ptr<DataStreamGev> stream;
    Sender sender;
    std::deque<Memory> memories;
    std::uint64_t buffersRead = 0;
};

inline void Grab::SurviveHostilePackets()
{
    const std::uint32_t ids[] = {0, 1, 2, 9, 10, 11, 12, 1000, 0x7FFFFF, 0xFFFFFF, 0xFFFFFFFF};
    const Sender forms[] = {sender, Sender(!hal->extended)};
    std::mt19937 random(1);
    const auto below = [&random](std::size_t end) { return static_cast<std::size_t>(random() % end); };
    const auto packet = [&](std::uint64_t block) {
        const Sender& form = forms[below(10) == 0 ? 1 : 0];
        const std::uint32_t id = ids[below(std::size(ids))];
        switch (below(6)) {
            case 0:
                return form.Leader(block);
            case 1:
                return form.Trailer(block, kPackets, id);
            case 2:
                return form.Header(static_cast<unsigned>(below(16)), block, id);
            default:
                return form.Payload(block, std::max(id, 1U), below(3 * kPerPacket));
        }
    };
    AnnounceAndQueue(kImageSize);
    AnnounceAndQueue(1);
    AnnounceAndQueue(2 * kImageSize + 1);
    Start(2);
    for (std::uint64_t block = 1; block <= 300; ++block) {
        std::vector<Bytes> datagrams;
        for (int i = 0; i < 20; ++i) {
            datagrams.push_back(packet(block));
            if (below(3) == 0) {
                datagrams.back().resize(below(datagrams.back().size() + 1));
            }
        }
        Feed(datagrams);
        void* hBuffer = nullptr;
        while (stream->WaitOnNewBuffer(&hBuffer, 0) == GC_ERR_SUCCESS) {
            EXPECT_EQ(GC_ERR_SUCCESS, stream->QueueBuffer(hBuffer));
        }
    }
    hal->AwaitDrained();
    Stop();
    EXPECT_EQ(GC_ERR_SUCCESS, stream->FlushQueue(ACQ_QUEUE_ALL_TO_INPUT));
    ASSERT_EQ(GC_ERR_SUCCESS, stream->StartAcquisition(0, 1));
    Run("1*");
    EXPECT_EQ(1U, FrameId(Next()));
}

}  // namespace GenTL
