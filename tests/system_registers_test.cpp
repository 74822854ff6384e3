/// The register map behind the System module's port.
#include "RegisterTest.h"
#include "ScriptedHal.h"
#include "frame/Error.h"
#include "modules/FileUtility.h"
#include "modules/System.h"
#include "modules/ThreadPriority.h"
#include "sim/TestNet.h"
#include "xml/LocalXml.h"

#include <gmock/gmock.h>

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

using namespace GenTL;
using testing::MatchesRegex;

namespace {

// clang-format off
/// What a System with two interfaces answers, and how many bytes of it.
constexpr struct { unsigned long address, value, size; } kValues[] = {
    {0x0800, 0, 8}, {0x0900, 1, 4}, {0x1000, 5, 4}, {0x1100, 1, 8}, {0x1200, 1, 8}, {0x1300, 1, 8}, {0x1400, 2, 8},
    {0x1500, 0, 8}, {0x1700, 0, 8}, {0x1702, 0, 4}, {0x1703, 1, 4}, {0x1801, 1, 4}, {0x1901, 0, 4}, {0x2001, 0, 4},
    {0x2101, 0, 4}, {0x6000, 0, 8}, {0x6100, 1, 8},
};
// clang-format on

class SystemRegisters : public RegisterTest
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(0, m_system.Open());
        ErrorCache::GetErrorCache()->Clear();
    }
    void TearDown() override { m_system.Close(); }
    IBaseModule& Port() override { return static_cast<ISystem&>(m_system); }

    HalScript m_hal;
    System m_system{new ScriptedHal(m_hal)};
};

TEST_F(SystemRegisters, TellOfTheProducer)
{
    for (const auto& row : kValues) {
        Expect(row.address, row.value, row.size);
    }
    // clang-format off
    const std::pair<unsigned long, std::string> texts[] = {
        {0x0100, "NORVO_GenTL_1_5"}, {0x0200, "Norvo Imaging Inc"}, {0x0300, "GenTL Producer"}, {0x0400, "0.1.43.0"},
        {0x0500, GetGenTLFileName()}, {0x0600, "Norvo Imaging Inc GenTL Module"}, {0x0700, GetGenTLFilePath()},
        {0x1800, "0000c0a80101"},
    };
    // clang-format on
    for (const auto& [address, text] : texts) {
        ExpectText(address, text);
    }
    ExpectDescription("System", kSystemXml);
}

TEST_F(SystemRegisters, OtherAccessesAreRefused)
{
    ExpectRefusals<SystemReg>();
    // There is no driver.
    EXPECT_EQ("-1003:8", Write(0x7000, 1));
    EXPECT_EQ("-1003:8", Write(0x7010, 1));
    EXPECT_EQ("-1003:256", Read(0x7010, 256));
}

TEST_F(SystemRegisters, SelectorStaysWithinTheListItWasSetFor)
{
    EXPECT_EQ("0:8", Write(0x1700, 0xFFFFFFFF00000001, 4)) << "the low half counts";
    for (const unsigned long refused : {2ul, 0xFFFFFFFFul, 0x80000000ul}) {
        EXPECT_EQ("-1017:8", Write(0x1700, refused));
    }
    EXPECT_EQ("-1016:3", Write(0x1700, 0, 3));
    Expect(0x1700, 1);
    EXPECT_EQ("0:13", Read(0x1800, 512));
    EXPECT_STREQ("00000a000001", m_bytes.c_str());
    for (const unsigned long address : {0x1900ul, 0x2000ul, 0x2100ul}) {
        EXPECT_THAT(Read(address), MatchesRegex("-1014:8 GetInterfaceInfo.*")) << address;
    }

    // The list shrinks; nobody moves the selector.
    m_hal.interfaces.clear();
    EXPECT_EQ("0:8", Write(0x1600, 0));
    Expect(0x1700, 1);
    Expect(0x1703, 0, 4);
    Expect(0x1801, 0, 4);
    EXPECT_EQ("-1017:8", Write(0x1700, 0));
    EXPECT_THAT(Read(0x1800, 512), MatchesRegex("-1017:512 GetInterfaceID.*"));
    EXPECT_THAT(Read(0x1900), MatchesRegex("-1017:8 GetInterfaceID.*"));
}

TEST_F(SystemRegisters, ThreadPrioritiesAreKeptByKind)
{
    using P = ThreadPriority;
    std::atomic<long>* const kinds[] = {&P::m_priorityGrabThread, &P::m_priorityEventThread,
                                        &P::m_priorityHeartbeatThread};
    for (const unsigned long kind : {0ul, 1ul, 2ul}) {
        EXPECT_EQ("0:8", Write(0x6000, kind));
        EXPECT_EQ("0:8", Write(0x6100, 3 - kind));
        EXPECT_EQ("-1019:8 default", Write(0x6000, kind == 0 ? 3 : ~0ul));
        EXPECT_EQ("-1019:8 default", Write(0x6100, kind == 0 ? 4 : ~0ul));
        for (const unsigned long address : {0x6000ul, 0x6100ul}) {
            EXPECT_EQ("-1016:7 default", Read(address, 7));
            EXPECT_EQ("-1016:7 default", Write(address, 0, 7));
        }
        Expect(0x6000, kind);
        Expect(0x6100, 3 - kind);
        EXPECT_EQ(3 - static_cast<long>(kind), kinds[kind]->exchange(1));
    }
}

TEST_F(SystemRegisters, ActionCommandIsSentAsWritten)
{
    unsigned long value = 0x8182838401020304;
    for (const unsigned long address : {0x4200ul, 0x4300ul, 0x4400ul}) {
        ExpectActionField(address, value++, 4);
    }
    ExpectActionField(0x4500, 0xFFFFFFFF, 4);
    ExpectActionField(0x4600, value, 8);

    const sim::TestNet net;
    // The kernel reports a new cable a moment after its ends are up, and an adapter that isn't running is
    // left out.
    net.RunOnHost(std::string("for i in $(seq 100); do ip link show ") + sim::TestNet::kHostInterface +
                  " | grep -q 'state UP' && exit 0; sleep 0.02; done; exit 1");
    sim::Descriptor camera;
    sim::RunInNamespace(net.CameraFile(), [&] {
        camera.Reset(socket(AF_INET, SOCK_DGRAM, 0));
        const timeval patience{2, 0};
        setsockopt(camera.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        const sockaddr_in address{AF_INET, htons(kGvcpPort), {}, {}};
        ASSERT_EQ(0, bind(camera.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address));
    });
    const std::string keys("\x01\x02\x03\x04\x01\x02\x03\x05\x01\x02\x03\x06", 12);
    const std::string commands[] = {
        std::string("\x42\x81\x01\x00\x00\x00\xFF\xFF", 8) + keys + "\x81\x82\x83\x84\x01\x02\x03\x07",
        std::string("\x42\x01\x01\x00\x00\x00\xFF\xFF", 8) + keys,
    };
    for (const std::string& command : commands) {
        sim::RunInNamespace(net.HostFile(), [&] { EXPECT_EQ("0:8", Write(0x4000, 0)); });
        char datagram[64];
        const ssize_t size = recv(camera.Get(), datagram, sizeof datagram, 0);
        ASSERT_GT(size, 0);
        EXPECT_EQ(command, std::string(datagram, static_cast<std::size_t>(size)));
        // The next one goes to one camera, at once.
        Write(0x4500, ntohl(inet_addr(net.CameraAddress().c_str())));
        Write(0x4600, 0);
    }
}

}  // namespace
