/// What the library adds to the work that the kernel does anyway. Compare a row with its ".floor".
#include "frame/GenTL.h"
#include "frame/GenTLHandle.h"
#include "gev/HALGev.h"
#include "gev/Handles.h"
#include "stream/GvspPacket.h"

#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <thread>

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
