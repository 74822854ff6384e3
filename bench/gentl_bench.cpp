/// What the library adds to the work that the kernel does anyway. Compare a row with its ".floor".
#include "frame/GenTL.h"
#include "frame/GenTLHandle.h"
#include "gev/BigEndian.h"
#include "gev/HALGev.h"
#include "gev/Handles.h"
#include "stream/DataStreamGev.h"
#include "stream/GvspPacket.h"
#include "stream/HALGvsp.h"
#include "stream/StreamStartParams.h"

#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

using namespace GenTL;

namespace {

sockaddr_in Loopback(std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

int BoundSocket(sockaddr_in& address)
{
    const int s = socket(AF_INET, SOCK_DGRAM, 0);
    address = Loopback(0);
    bind(s, reinterpret_cast<sockaddr*>(&address), sizeof address);
    socklen_t size = sizeof address;
    getsockname(s, reinterpret_cast<sockaddr*>(&address), &size);
    return s;
}

/// Answers every READREG with 0x12345678.
class Responder
{
public:
    Responder() : m_socket(BoundSocket(m_address)), m_thread([this] { Serve(); }) {}
    ~Responder()
    {
        m_isStopped = true;
        sendto(m_socket, "", 0, 0, reinterpret_cast<sockaddr*>(&m_address), sizeof m_address);
        m_thread.join();
        close(m_socket);
    }
    std::uint16_t Port() const { return ntohs(m_address.sin_port); }

private:
    void Serve() const
    {
        while (!m_isStopped) {
            unsigned char command[64];
            sockaddr_in sender{};
            socklen_t size = sizeof sender;
            if (recvfrom(m_socket, command, sizeof command, 0, reinterpret_cast<sockaddr*>(&sender), &size) <
                12) {
                continue;
            }
            const unsigned char answer[] = {0,          0,          0,    0x81, 0,    4,
                                            command[6], command[7], 0x12, 0x34, 0x56, 0x78};
            sendto(m_socket, answer, sizeof answer, 0, reinterpret_cast<sockaddr*>(&sender), size);
        }
    }

    sockaddr_in m_address{};
    int m_socket;
    std::atomic<bool> m_isStopped{false};
    std::thread m_thread;
};

void ReadRegFloor(benchmark::State& state)
{
    Responder camera;
    sockaddr_in own{};
    const int s = BoundSocket(own);
    const sockaddr_in remote = Loopback(camera.Port());
    std::array<unsigned char, 12> packet = {0x42, 1, 0, 0x80, 0, 4, 0, 1};
    for (auto _ : state) {
        sendto(s, packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr*>(&remote), sizeof remote);
        std::array<unsigned char, 12> answer{};
        benchmark::DoNotOptimize(recv(s, answer.data(), answer.size(), 0));
    }
    close(s);
}
BENCHMARK(ReadRegFloor)->Name("ReadReg.floor")->UseRealTime();

void ReadReg(benchmark::State& state)
{
    Responder camera;
    HALGev* hal = new HALGev();
    DeviceHandle device;
    device.m_pSocket = std::make_unique<CommSocket>();
    device.m_pSocket->OpenAndBindSocket(Loopback(0), "127.0.0.1", camera.Port(), false, 1000);
    for (auto _ : state) {
        unsigned value = 0;
        hal->ReadReg(ToHandle(&device), 0x0A00, value);
        benchmark::DoNotOptimize(value);
    }
    device.m_pSocket->Close();
    IHALGev* given = hal;
    HALGev::Dispose(given);
}
BENCHMARK(ReadReg)->UseRealTime();

/// One payload packet of 9000 bytes from the kernel to memory by readv, as the grab thread does it.
void ReceivePacketFloor(benchmark::State& state)
{
    sockaddr_in address{};
    const int receiver = BoundSocket(address);
    const int sender = socket(AF_INET, SOCK_DGRAM, 0);
    static std::array<char, 8972> packet;
    static std::array<char, 8964> image;
    char header[8];
    for (auto _ : state) {
        sendto(sender, packet.data(), packet.size(), 0, reinterpret_cast<sockaddr*>(&address),
               sizeof address);
        const iovec places[] = {
            {header,       sizeof header},
            {image.data(), image.size() },
        };
        benchmark::DoNotOptimize(readv(receiver, places, 2));
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(image.size()));
    close(sender);
    close(receiver);
}
BENCHMARK(ReceivePacketFloor)->Name("Packet.floor");

/// What is done with a packet's header besides.
void ParsePacket(benchmark::State& state)
{
    char packet[kGvspParsedSpan] = {0, 0, 0, 1, 3, 0, 0, 1};
    ParsedGvspHeader header{};
    for (auto _ : state) {
        benchmark::DoNotOptimize(packet);
        GetPktHeaderInfo(packet, 10, 10, header);
        benchmark::DoNotOptimize(CompareBlockIds(header.m_blockId, 1, header.m_eiFlag != 0));
    }
}
BENCHMARK(ParsePacket)->Name("Packet.parse");

constexpr std::uint32_t kPacketSize = 9000;
constexpr std::size_t kDataBytes = kPacketSize - 36;
constexpr std::uint32_t kDataPackets = 234;  // 2 MB an image
constexpr std::size_t kImageBytes = kDataPackets * kDataBytes;

/// Hands out the packets of image after image as fast as they are taken, while the consumer keeps up. Its
/// copy stands for the kernel's.
class EndlessHal : public HALGvsp
{
public:
    int Start(IHALGev*, void*, StreamStartParams& params) override
    {
        params.m_packetSize = kPacketSize;
        params.m_bufferExpiry = 1000;
        return GC_ERR_SUCCESS;
    }
    int Stop(IHALGev*, void*, unsigned, int) override { return GC_ERR_SUCCESS; }
    int ConfigureExtendedId(IHALGev*, void*, bool, bool& extended) override
    {
        extended = false;
        return GC_ERR_SUCCESS;
    }
    int GetCameraPacketResendSupport(IHALGev*, void*, bool&) override { return GC_ERR_SUCCESS; }
    int GetNextPacket(char* packet, int size, int& length, unsigned long) override
    {
        if (!MayBegin()) {
            return GC_ERR_TIMEOUT;
        }
        const std::size_t info = PutHeader(packet);
        const bool isPayload = info == 0;
        const std::size_t bytes = isPayload ? kDataBytes : info;
        std::memcpy(packet + kGvspHeaderSize, isPayload ? m_data.data() : m_info.data(),
                    std::min(bytes, static_cast<std::size_t>(size) - kGvspHeaderSize));
        length = static_cast<int>(kGvspHeaderSize + bytes);
        return GC_ERR_SUCCESS;
    }
    int GetNextPacket(char* header,
                      int headerSize,
                      int& headerLength,
                      char* data,
                      int dataSize,
                      int& dataLength,
                      unsigned long) override
    {
        if (!MayBegin()) {
            return GC_ERR_TIMEOUT;
        }
        const std::size_t info = PutHeader(header);
        const std::size_t bytes = info == 0 ? kDataBytes : info;
        std::memcpy(data, info == 0 ? m_data.data() : m_info.data(),
                    std::min(bytes, static_cast<std::size_t>(dataSize)));
        headerLength = headerSize;
        dataLength = static_cast<int>(static_cast<std::size_t>(headerSize) + bytes);
        return GC_ERR_SUCCESS;
    }

    std::atomic<int> freeBuffers{0};

private:
    bool MayBegin()
    {
        if (m_id == 0 && freeBuffers <= 0) {
            std::this_thread::yield();
            return false;
        }
        freeBuffers -= m_id == 0 ? 1 : 0;
        return true;
    }
    /// Writes the next packet's header. Bytes of leader or trailer behind it, 0 of payload.
    std::size_t PutHeader(char* to)
    {
        const unsigned format = m_id == 0 ? kGvspLeader : m_id <= kDataPackets ? kGvspPayload : kGvspTrailer;
        auto* header = reinterpret_cast<unsigned char*>(to);
        Store16(header, 0);
        Store16(header + 2, m_block);
        Store32(header + 4, format << 24 | m_id);
        m_id = m_id == kDataPackets + 1 ? 0 : m_id + 1;
        m_block = m_id != 0 ? m_block : static_cast<std::uint16_t>(m_block == 65535 ? 1 : m_block + 1);
        return format == kGvspPayload ? 0 : kGvspLongestInfo;
    }

    std::array<char, kGvspLongestInfo> m_info{0, 0, 0, kGvspImage};
    std::array<char, kDataBytes> m_data{};
    std::uint16_t m_block = 1;
    std::uint32_t m_id = 0;
};

/// An image of 2 MB through a grab thread, from the stream HAL to the consumer and back.
void GrabImage(benchmark::State& state, bool resend)
{
    HALGev control;
    int token = 0;
    DataStreamGev stream(&control, &token, &token, 0, 3);
    auto* hal = new EndlessHal;
    stream.Open(hal);
    stream.SetInfo(STREAM_INFO_PACKET_RESEND_ENABLE, INFO_DATATYPE_BOOL8, &resend, sizeof resend);
    for (int i = 0; i < 4; ++i) {
        void* hBuffer = nullptr;
        stream.AllocAndAnnounceBuffer(kImageBytes, nullptr, &hBuffer);
        stream.QueueBuffer(hBuffer);
        ++hal->freeBuffers;
    }
    stream.StartAcquisition(ACQ_START_FLAGS_DEFAULT, 1);
    for (auto _ : state) {
        void* hBuffer = nullptr;
        stream.WaitOnNewBuffer(&hBuffer, GENTL_INFINITE);
        stream.QueueBuffer(hBuffer);
        ++hal->freeBuffers;
    }
    stream.StopAcquisition(ACQ_STOP_FLAGS_DEFAULT);
    stream.Close();
}

void GrabImageFloor(benchmark::State& state)
{
    std::vector<char> image(kImageBytes);
    const std::vector<char> packet(kDataBytes);
    for (auto _ : state) {
        for (std::size_t at = 0; at < kImageBytes; at += kDataBytes) {
            std::memcpy(image.data() + at, packet.data(), kDataBytes);
        }
        benchmark::ClobberMemory();
    }
}
BENCHMARK(GrabImageFloor)->Name("Image.floor")->UseRealTime();
BENCHMARK_CAPTURE(GrabImage, , false)->Name("Image.noCopy")->UseRealTime();
BENCHMARK_CAPTURE(GrabImage, , true)->Name("Image.resend")->UseRealTime();

void CheckedHandle(benchmark::State& state)
{
    void* h = nullptr;
    AllocateHandle(&h, nullptr);
    for (auto _ : state) {
        benchmark::DoNotOptimize(CheckHandle(h));
    }
    DeleteHandle(h);
}
BENCHMARK(CheckedHandle)->Name("Handle.check");

}  // namespace
