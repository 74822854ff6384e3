/// The simulated camera over real sockets, by datagrams that are written out byte by byte in both directions.
#include "Hex.h"
#include "sim/Camera.h"
#include "sim/TestNet.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* kCameraAddress = "127.77.0.2";
constexpr const char* kHostAddress = "127.77.0.1";

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// One UDP socket of a host.
class Host
{
public:
    explicit Host(std::uint16_t port = 0)
        : m_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)), m_camera(Place(kCameraAddress, 3956))
    {
        const sockaddr_in own = Place(kHostAddress, port);
        EXPECT_EQ(0, bind(m_socket.Get(), reinterpret_cast<const sockaddr*>(&own), sizeof own));
    }

    void Send(const Bytes& datagram) const
    {
        sendto(m_socket.Get(), datagram.data(), datagram.size(), 0,
               reinterpret_cast<const sockaddr*>(&m_camera), sizeof m_camera);
    }

    /// The next datagram, empty when none comes in time.
    Bytes Receive(int ms = 2000) const
    {
        const timeval time{ms / 1000, (ms % 1000) * 1000};
        setsockopt(m_socket.Get(), SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
        Bytes datagram(65536);
        const ssize_t got = recv(m_socket.Get(), datagram.data(), datagram.size(), 0);
        datagram.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
        return datagram;
    }

    Bytes Ask(const Bytes& command) const
    {
        Send(command);
        return Receive();
    }

    /// Writes a register. \return the status of the answer
    unsigned Write(const std::string& address, const std::string& value)
    {
        const Bytes answer = Ask(Hex("4201 0082 0008" + NextId() + address + value));
        return answer.size() < 8 ? 0xFFFFu : static_cast<unsigned>(answer[0] << 8 | answer[1]);
    }
    /// Reads a register. \return the whole answer but for its id
    Bytes Read(const std::string& address)
    {
        Bytes answer = Ask(Hex("4201 0080 0004" + NextId() + address));
        if (answer.size() >= 8) {
            answer.erase(answer.begin() + 6, answer.begin() + 8);
        }
        return answer;
    }

private:
    static sockaddr_in Place(const char* pAddress, std::uint16_t port)
    {
        sockaddr_in place = {};
        place.sin_family = AF_INET;
        place.sin_port = htons(port);
        inet_pton(AF_INET, pAddress, &place.sin_addr);
        return place;
    }
    std::string NextId()
    {
        char text[5];
        std::snprintf(text, sizeof text, "%04X", ++m_id);
        return text;
    }

    sim::Descriptor m_socket;
    sockaddr_in m_camera;
    unsigned m_id = 0x1000;
};

const std::string kPrivilege = "00000A00";
const std::string kStreamPort = "00000D00";
const std::string kControl = "00000002";
const std::string kNone = "00000000";

sim::Config SmallCamera()
{
    sim::Config config;
    config.address = kCameraAddress;
    config.geometry.width = 16;
    config.geometry.height = 8;
    config.pattern = sim::TestPattern::MovingNoise;
    config.packetSize = 100;
    config.packetDelay = 0;
    config.frameRate = 0;
    config.zeroTimestamp = true;
    config.applyForceIp = false;  // the interface is the host's own loopback
    return config;
}

class SimTest : public testing::Test
{
protected:
    sim::Camera& Start()
    {
        m_pCamera = std::make_unique<sim::Camera>(m_config);
        m_pCamera->Start();
        return *m_pCamera;
    }
    void TakeControl() { ASSERT_EQ(0u, m_host.Write(kPrivilege, kControl)); }
    /// With control taken: points the stream at m_stream.
    void OpenStream()
    {
        TakeControl();
        ASSERT_EQ(0u, m_host.Write("00000D18", "7F4D0001"));
        ASSERT_EQ(0u, m_host.Write(kStreamPort, "00004321"));
    }
    void StartAcquisition() { ASSERT_EQ(0u, m_host.Write("00020014", "00000001")); }

    sim::Config m_config = SmallCamera();
    std::unique_ptr<sim::Camera> m_pCamera;
    Host m_host;
    Host m_stream{0x4321};
};

// ---- Control channel

TEST_F(SimTest, CommandsAreAnsweredToTheByte)
{
    struct Exchange
    {
        const char *command, *answer;  ///< without an answer none comes
    };
    const auto expectAnswers = [this](const std::vector<Exchange>& exchanges) {
        for (const auto& [command, answer] : exchanges) {
            const Bytes expected = Hex(answer);
            m_host.Send(Hex(command));
            EXPECT_EQ(expected, m_host.Receive(expected.empty() ? 150 : 2000)) << command;
        }
    };
    m_config.macAddress = 0x020000000001;
    Start();
    const std::string noAddresses = "00000000 00000000 00000000 00000000";
    const std::string forceIp = " 0A000002 00000000 00000000 00000000 FF000000" + noAddresses;
    const std::string forceOwn =
        "4211 0004 0000 000B 0000 0200 00000001 00000000 00000000 00000000" + forceIp;
    const std::string forceOther =
        "4211 0004 0000 000C 0000 0200 00000002 00000000 00000000 00000000" + forceIp;
    expectAnswers({
        {"4201 0080 000C FFFF 00000938 00000940 00020000", "0000 0081 000C FFFF 00000BB8 3B9ACA00 00000010"},
        {"4201 0080 0008 0002 00000000 0000FFF0",          "8003 0081 0004 0002 00020000"                  },
        {"4201 0080 0004 0003 00000002",                   "8005 0081 0000 0003"                           },
        {"4201 0084 0008 0004 00000068 0000 0008",         "0000 0085 000C 0004 00000068 67657673 696D0000"},
        {"4201 0084 0008 0004 000000F4 0000 0008",         "8003 0085 0000 0004"                           },
        {"4201 0084 0008 0004 00000068 0000 0006",         "8005 0085 0000 0004"                           },
        {"4201 0084 0008 0004 00000200 0000 021C",         "8002 0085 0000 0004"                           },
        {"4201 0042 0000 0009",                            "8001 0043 0000 0009"                           },
        {"4301 0080 0004 0009 00000000",                   ""                                              },
        {"4201 0080 0008 0009 00000000",                   ""                                              },
        {"4201 0080 00",                                   ""                                              },
        {forceOther.c_str(),                               ""                                              },
    });
    TakeControl();
    expectAnswers({
        {"4201 0082 0010 0006 00020000 00000008 00020004 00000004",         "0000 0083 0004 0006 0000 0002"},
        {"4201 0082 0010 0006 00020000 00000008 0002000C 00000004",         "8004 0083 0004 0006 0000 0001"},
        {"4201 0082 0008 0006 00020000 00000000",                           "8002 0083 0004 0006 0000 0000"},
        {"4201 0086 000C 0007 000000E8 4C696E65 20370000",                  "0000 0087 0004 0007 0000 0008"},
        {"4201 0086 0008 0007 00000048 41424344",                           "8004 0087 0004 0007 0000 0000"},
        {"4200 0082 0008 0008 00020000 00000008",                           ""                             },
        {"4201 0100 0000 000A 00000000 00000001 00000001",                  "0000 0101 0000 000A"          },
        {"4281 0100 0000 000A 00000000 00000001 00000001 0000000000000001", "8016 0101 0000 000A"          },
        {"4201 0100 0000 000A 00000001 00000001 00000001",                  ""                             },
        {forceOwn.c_str(),                                                  "8006 0005 0000 000B"          }, // its length field may be 0
        {"4201 0082 0008 0010 00020014 00000001",                           "0000 0083 0004 0010 0000 0001"},
        {"4201 0082 0008 0011 00020000 00000010",                           "8007 0083 0004 0011 0000 0000"}, // it runs
    });
}

TEST_F(SimTest, LittleEndianMemoryTurnsRegistersButNotTexts)
{
    m_config.bigEndian = false;
    Start();
    EXPECT_EQ(Hex("0000 0085 0008 0001 00020000 10000000"),
              m_host.Ask(Hex("4201 0084 0008 0001 00020000 0000 0004")));
    EXPECT_EQ(Hex("0000 0085 0008 0002 00000068 67657673"),
              m_host.Ask(Hex("4201 0084 0008 0002 00000068 0000 0004")));
    EXPECT_EQ(Hex("0000 0081 0004 00000010"), m_host.Read("00020000"));
}

TEST_F(SimTest, DescriptionIsServedWhereTheUrlsSay)
{
    const std::string description = Start().Description();
    char url[80];
    std::snprintf(url, sizeof url, "Local:gevsim.xml;100000;%zX?SchemaVersion=1.1.0", description.size());
    const Bytes answer = m_host.Ask(Hex("4201 0084 0008 0001 00000200 0000 0218"));
    ASSERT_EQ(548u, answer.size());
    EXPECT_STREQ(url, reinterpret_cast<const char*>(&answer[12]));
    EXPECT_EQ(Hex("0000 0081 0018 0002  08000000 00000000 04000104 00000200 04000104 00000400"),
              m_host.Ask(Hex("4201 0080 0018 0002  00009000 00009004 00009008 0000900C 00009010 00009014")));
    const Bytes front = m_host.Ask(Hex("4201 0084 0008 0003 00100000 0000 0010"));
    EXPECT_EQ(Bytes(description.begin(), description.begin() + 16), Bytes(front.begin() + 12, front.end()));
}

TEST_F(SimTest, SecondHostIsRefusedUntilTheFirstLetsGo)
{
    sim::Camera& camera = Start();
    Host other;
    TakeControl();
    EXPECT_EQ(0x8006u, other.Write(kPrivilege, kControl));
    EXPECT_EQ(0x8006u, other.Write("00020000", "00000008"));
    EXPECT_EQ(Hex("0000 0081 0004 00000002"), other.Read(kPrivilege));

    EXPECT_EQ(0u, m_host.Write(kPrivilege, "00000001"));  // exclusive: others don't even read
    EXPECT_EQ(Hex("8006 0081 0000"), other.Read(kPrivilege));

    EXPECT_EQ(0u, m_host.Write(kPrivilege, kNone));
    EXPECT_FALSE(camera.IsControlled());
    EXPECT_EQ(0u, other.Write(kPrivilege, kControl));
    EXPECT_EQ(0x8006u, m_host.Write("00020000", "00000008"));
}

TEST_F(SimTest, ControlEndsWhenItsHolderFallsSilent)
{
    m_config.heartbeatTimeout = 300;
    m_config.minHeartbeatTimeout = 100;
    sim::Camera& camera = Start();
    OpenStream();
    for (int i = 0; i < 200 && camera.IsControlled(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_FALSE(camera.IsControlled());
    EXPECT_EQ(0u, camera.Register(0x0D00));
    EXPECT_EQ(1u, camera.Seen().heartbeatsLost);
    EXPECT_EQ(0x8006u, m_host.Write("00020000", "00000008"));
}

TEST_F(SimTest, AnswersMeetTheirFaults)
{
    sim::Camera& camera = Start();
    const Bytes command = Hex("4201 0080 0004 0020 00000000");
    const Bytes answer = Hex("0000 0081 0004 0020 00020000");
    const std::pair<sim::AnswerFault, std::vector<Bytes>> cases[] = {
        {sim::AnswerFault::Lose,      {}                                                     },
        {sim::AnswerFault::Late,      {answer}                                               },
        {sim::AnswerFault::Stale,     {Hex("0000 0081 0004 001F 00020000"), answer}          },
        {sim::AnswerFault::Duplicate, {answer, answer}                                       },
        {sim::AnswerFault::Pending,
         {Hex("0000 0089 0004 0020 0000 0050"), Hex("0000 0089 0004 0020 0000 0050"), answer}},
        {sim::AnswerFault::Status,    {Hex("8FFF 0081 0000 0020")}                           },
        {sim::AnswerFault::WrongAck,  {Hex("0000 0001 0004 0020 00020000")}                  },
        {sim::AnswerFault::Truncate,  {Hex("0000 0081")}                                     },
    };
    sim::ControlFault fault;
    fault.ms = 80;
    fault.count = 2;
    fault.spacingMs = 20;
    for (const auto& [kind, expected] : cases) {
        fault.fault = kind;
        camera.AddControlFault(fault);
        const Host host;  // its own, so that no command passes for a repeated one
        host.Send(command);
        std::vector<Bytes> arriving;
        for (Bytes next = host.Receive(250); !next.empty(); next = host.Receive(250)) {
            arriving.push_back(next);
        }
        EXPECT_EQ(expected, arriving) << static_cast<int>(kind);
    }
}

TEST_F(SimTest, RepeatedCommandIsAnsweredAgainButNotDoneAgain)
{
    sim::Camera& camera = Start();
    TakeControl();
    const Bytes write = Hex("4201 0082 0008 0030 00020000 00000008");
    sim::ControlFault lost;
    lost.command = 0x0082;
    camera.AddControlFault(lost);
    m_host.Send(write);
    EXPECT_THAT(m_host.Receive(100), IsEmpty());
    camera.SetRegister(sim::Feature::kWidth, 12);
    EXPECT_EQ(Hex("0000 0083 0004 0030 0000 0001"), m_host.Ask(write));
    EXPECT_EQ(12u, camera.Register(sim::Feature::kWidth));
    EXPECT_EQ(1u, camera.Seen().repeated);
}

// ---- Stream

TEST_F(SimTest, BlocksAreSentToTheByte)
{
    const std::string image = "0000000000000000 01080001 00000010 00000008 00000003 00000000 00000000";
    const struct
    {
        sim::ChunkMode chunks;
        std::string leader;
        unsigned payloadPackets;
        std::string trailer;
    } forms[] = {
        {sim::ChunkMode::Off,            "0000 0001" + image,          2, "0000 0001 00000008"                  },
        {sim::ChunkMode::ImageAndChunks, "0000 4001" + image,          3, "0000 4001 00000008 00000098 00000001"},
        {sim::ChunkMode::ChunkData,      "0000 0004 0000000000000000", 3, "0000 0004 00000098 00000001"         },
    };
    for (const auto& form : forms) {
        SCOPED_TRACE(form.trailer);
        m_config.chunkMode = form.chunks;
        m_config.firstBlockId = 0xFFFE;
        m_pCamera.reset();  // its port is the next one's
        sim::Camera& camera = Start();
        EXPECT_EQ(0u, camera.SetRegister(sim::Feature::kOffsetX, 3));
        EXPECT_EQ(0u, camera.SetRegister(sim::Feature::kAcquisitionMode, 1));
        OpenStream();
        StartAcquisition();

        const auto header = [](const std::string& format, unsigned packet) {
            return Hex("0000 FFFE 0" + format + "0000 0" + std::to_string(packet));
        };
        Bytes payload;
        for (std::size_t i = 0; i < 128; ++i) {
            payload.push_back(
                sim::PatternByte(m_config.geometry, m_config.pattern, m_config.firstBlockId, i));
        }
        if (form.chunks != sim::ChunkMode::Off) {
            payload = payload + Hex("00000001 00000080 000000000000FFFE 00000002 00000008");
        }
        EXPECT_EQ(header("1", 0) + Hex(form.leader), m_stream.Receive());
        auto from = payload.begin();
        for (unsigned id = 1; id <= form.payloadPackets; ++id) {
            const auto to = from + std::min<std::ptrdiff_t>(64, payload.end() - from);
            EXPECT_EQ(header("3", id) + Bytes(from, to), m_stream.Receive());
            from = to;
        }
        EXPECT_EQ(payload.end(), from);
        EXPECT_EQ(header("2", form.payloadPackets + 1) + Hex(form.trailer), m_stream.Receive());
        EXPECT_THAT(m_stream.Receive(100), IsEmpty());
        EXPECT_EQ(1u, camera.Seen().blocks);
        EXPECT_FALSE(camera.IsStreaming());
    }
}

TEST_F(SimTest, BlockIdsSkipZeroAndResendsComeFromTheStore)
{
    m_config.firstBlockId = 0xFFFF;
    m_config.frameLimit = 3;
    m_config.storedBlocks = 2;
    sim::Camera& camera = Start();
    OpenStream();
    StartAcquisition();
    std::vector<unsigned> blocks;
    std::map<std::pair<unsigned, unsigned>, Bytes> sent;
    for (int i = 0; i < 12; ++i) {
        const Bytes packet = m_stream.Receive();
        ASSERT_LE(8u, packet.size());
        blocks.push_back(static_cast<unsigned>(packet[2] << 8 | packet[3]));
        sent[{blocks.back(), packet[7]}] = packet;
    }
    EXPECT_THAT(blocks, ElementsAre(0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 1, 1, 1, 1, 2, 2, 2, 2));
    const auto marked = [&sent](unsigned block, unsigned packet) {
        Bytes again = sent[{block, packet}];
        again[0] = 0x01;
        return again;
    };
    m_host.Send(Hex("4200 0040 000C 0040  0000 0001 00000002 00FFFFFF"));  // to the end
    EXPECT_EQ(marked(1, 2), m_stream.Receive());
    EXPECT_EQ(marked(1, 3), m_stream.Receive());
    m_host.Send(Hex("4210 0040 0014 0041  0000 0000 00000000 00000001 0000000000000002"));
    EXPECT_EQ(marked(2, 0), m_stream.Receive());
    EXPECT_EQ(marked(2, 1), m_stream.Receive());
    m_host.Send(Hex("4200 0040 000C 0042  0000 FFFF 00000001 00000001"));  // gone
    EXPECT_EQ(Hex("800C FFFF 03000001"), m_stream.Receive());
    EXPECT_THAT(m_stream.Receive(100), IsEmpty());
    EXPECT_EQ(3u, camera.Resends().size());
}

TEST_F(SimTest, PlanDecidesTheSameInEveryRun)
{
    m_config.frameLimit = 1;
    m_config.geometry.height = 40;  // 10 payload packets
    sim::StreamFaults faults;
    using sim::PacketFault;
    const std::pair<PacketFault, std::uint32_t> plan[] = {
        {PacketFault::Lose,      1},
        {PacketFault::Duplicate, 2},
        {PacketFault::Delay,     3},
        {PacketFault::Reorder,   4},
        {PacketFault::Truncate,  8},
        {PacketFault::Status,    9},
    };
    for (const auto& [fault, packet] : plan) {
        faults.rules.push_back({fault, 0, packet, packet});
    }
    sim::Camera& camera = Start();
    camera.SetStreamFaults(faults);
    OpenStream();
    StartAcquisition();
    std::vector<unsigned> ids;
    for (Bytes packet = m_stream.Receive(); packet.size() >= 8; packet = m_stream.Receive(200)) {
        ids.push_back(packet[7]);
        EXPECT_EQ(packet[7] == 8 ? 30u : (packet[7] == 0 ? 44u : (packet[7] == 11 ? 16u : 72u)),
                  packet.size());
        EXPECT_EQ(packet[7] == 9 ? 0x80 : 0, packet[0]);
    }
    EXPECT_THAT(ids, ElementsAre(0, 2, 2, 5, 6, 7, 4, 8, 9, 10, 11, 3));
    EXPECT_EQ(1u, camera.Seen().packetsLost);

    sim::StreamFaults dice;
    dice.lose = 0.25;
    int lost = 0;
    for (std::uint32_t packet = 0; packet < 10000; ++packet) {
        lost += dice.Decide(7, packet) == sim::PacketFault::Lose;
    }
    EXPECT_NEAR(2500, lost, 150);
}

}  // namespace
