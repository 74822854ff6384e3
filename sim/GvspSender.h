#pragma once

#include "sim/Camera.h"
#include "sim/EventSender.h"
#include "sim/ReceiverWatch.h"
#include "sim/Registers.h"
#include "sim/Tally.h"

#include <netinet/in.h>
#include <sys/uio.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace sim {

/// Stream channel 0: turns pictures into GVSP packets and sends them as the registers say, keeps the last
/// blocks for resends, and meets the faults of the plan.
///
/// Owns the stream socket and one thread, which sends blocks, resends and delayed packets, from Start to
/// Stop. Threads: any for the public operations. Lock order: m_mutex or m_pictureMutex, then those of
/// EventSender, Registers and Tally.
class GvspSender
{
public:
    GvspSender(
        const Config& config, Registers& registers, EventSender& events, Tally& tally, const Cable& cable);
    ~GvspSender() { Stop(); }

    /// \param socket bound to the camera's address
    void Start(Descriptor socket);
    void Stop();
    /// Takes another socket; only while the channel is closed.
    void SetSocket(Descriptor socket);

    /// To be called when the registers of the stream channel have changed.
    void UpdateChannel();
    /// Sends one test packet of the register's packet size.
    void FireTestPacket();
    void StartAcquisition();
    void StopAcquisition();
    /// For the channel over TCP: takes the next image of the acquisition, false while none may go.
    bool TakeImage();
    void Trigger(std::uint32_t images);
    void Resend(const ResendRequest& request);
    void SetFaults(const StreamFaults& faults);
    void SendRaw(const void* pData, std::size_t size);

    bool IsStreaming() const;
    std::vector<ResendRequest> Resends() const;
    std::shared_ptr<const Picture> CurrentPicture() const;

private:
    using Clock = std::chrono::steady_clock;

    /// All that the packets of a block are made from, at any later time too.
    struct Block
    {
        std::uint64_t id = 0;
        std::uint64_t timestamp = 0;
        std::shared_ptr<const Picture> pPicture;
        Picture::ChunkTail tail{};
        std::uint32_t offsetX = 0;
        std::uint32_t offsetY = 0;
        bool extended = false;
        std::size_t dataBytes = 0;  ///< of a full payload packet
        std::uint32_t payloadPackets = 0;
        std::map<std::uint32_t, std::uint32_t> resends;  ///< packet id to number of resends

        std::uint32_t TrailerId() const { return payloadPackets + 1; }
    };
    /// One packet, laid out to be sent: its head, and pieces of the picture and the chunk tail.
    struct Wire
    {
        std::array<std::uint8_t, 56> head{};
        std::array<iovec, 3> pieces{};
        std::size_t pieceCount = 0;
        std::size_t bytes = 0;

        void Append(const void* pData, std::size_t size);
        void Truncate(std::size_t size);
    };
    struct Delayed
    {
        Clock::time_point due;
        std::shared_ptr<Block> pBlock;
        std::uint32_t packetId = 0;
    };

    void Run();
    bool IsReady() const;
    void EndAcquisition();
    bool ServeAside(std::unique_lock<std::mutex>& lock);
    void SendNextBlock(std::unique_lock<std::mutex>& lock);
    std::shared_ptr<Block> MakeBlock(std::uint64_t id) const;
    std::uint64_t IdAfter(std::uint64_t id) const;
    void ServeResend(const ResendRequest& request);
    void CountIn(std::uint32_t address);
    std::shared_ptr<Block> FindBlock(std::uint64_t id) const;

    static void Compose(const Block& block, std::uint32_t packetId, std::uint16_t status, Wire& wire);
    static std::size_t ComposeHeader(const Block& block,
                                     std::uint32_t packetId,
                                     std::uint8_t format,
                                     std::uint16_t status,
                                     std::uint8_t* pTo);
    void LayOut(const std::shared_ptr<Block>& pBlock, const StreamFaults& faults);
    void Transmit(const std::vector<Wire*>& wires, bool spaced);
    std::size_t WaitForReceiver();
    std::size_t WaitForSlot(std::chrono::nanoseconds gap);
    void SendBatch(Wire* const* ppWires, std::size_t count);
    bool SendOne(const void* pData, std::size_t size);
    sockaddr_in Destination() const;

    const Config m_config;
    Registers& m_registers;
    EventSender& m_events;
    Tally& m_tally;
    const Cable& m_cable;
    Descriptor m_socket;
    std::thread m_thread;

    // The thread's own.
    std::unique_ptr<ReceiverWatch> m_pWatch;
    std::vector<Wire> m_wires;
    std::vector<Wire*> m_order;
    Clock::time_point m_nextSlot;

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_stop = false;
    bool m_isOpen = false;
    std::uint64_t m_opening = 0;  ///< goes up with each opening and closing of the channel
    bool m_isAcquiring = false;
    std::uint64_t m_imagesLeft = 0;
    std::uint32_t m_triggers = 0;
    std::uint64_t m_nextBlockId = 1;
    Clock::time_point m_nextImage;
    StreamFaults m_faults;
    std::deque<ResendRequest> m_resendQueue;
    std::deque<ResendRequest> m_resendLog;
    std::deque<std::shared_ptr<Block>> m_stored;
    std::vector<Delayed> m_delayed;

    mutable std::mutex m_pictureMutex;
    mutable std::shared_ptr<const Picture> m_pPicture;
};

}  // namespace sim
