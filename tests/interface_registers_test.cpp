/// The register map behind the Interface module's port, over a scripted control layer.
#include "RegisterTest.h"
#include "ScriptedHal.h"
#include "modules/InterfaceGev.h"
#include "xml/LocalXml.h"

#include <gmock/gmock.h>

#include <utility>
#include <vector>

using namespace GenTL;
using testing::MatchesRegex;

namespace {

class InterfaceRegisters : public RegisterTest
{
protected:
    IBaseModule& Port() override { return static_cast<IInterface&>(m_interface); }

    HalScript m_script;
    ScriptedHal m_hal{m_script};
    std::string m_adapter = "0000c0a80101";
    InterfaceGev m_interface{&m_hal, nullptr, &m_adapter};
};

TEST_F(InterfaceRegisters, TellOfTheAdapter)
{
    ExpectText(0x0100, "0000c0a80101");
    ExpectText(0x0200, InterfaceGev::DisplayName("0000c0a80101"));
    Expect(0x0300, 0);
    Expect(0x0600, 0x0102030405FF);
    Expect(0x0800, 0xC0A80101);
    Expect(0x0900, 0xFFFFFF00);

    // One adapter has one address and no gateway of its own: the selectors are there to be refused.
    for (const unsigned long address : {0x0400ul, 0x0500ul, 0x0700ul}) {
        EXPECT_THAT(Read(address), MatchesRegex("-1003:8 GetGevInterface.*C_ERR_NOT_IMPLEMENTED.-1003."));
        Expect(address + 1, 0, 4);
    }
    for (const unsigned long address : {0x0400ul, 0x0700ul}) {
        EXPECT_THAT(Write(address, 0), MatchesRegex("-1003:8 SetGevInterface.*C_ERR_NOT_IMPLEMENTED.-1003."));
    }
    ExpectDescription("Interface", kInterfaceXml);
}

TEST_F(InterfaceRegisters, TellOfTheSelectedDevice)
{
    Expect(0x1103, 0, 4);
    EXPECT_EQ("-1017:8", Write(0x1100, 0)) << "there is none before a discovery";
    EXPECT_EQ("0:8", Write(0x1000, 0x77));
    EXPECT_EQ(100, m_script.timeoutMs);
    Expect(0x1102, 0, 4);
    Expect(0x1103, 1, 4);
    EXPECT_EQ("0:8", Write(0x1100, 0xFFFFFFFF00000001, 4)) << "the low half counts";
    for (const unsigned long refused : {2ul, 0xFFFFFFFFul, 0x80000000ul}) {
        EXPECT_EQ("-1017:8", Write(0x1100, refused));
    }
    EXPECT_EQ("-1016:3", Write(0x1100, 0, 3));
    Expect(0x1100, 1);

    const std::pair<unsigned long, std::string> texts[] = {
        {0x1200, "serial CAM2"},
        {0x1300, "vendor CAM2"},
        {0x1400, "model CAM2" },
        {0x1600, "serial CAM2"},
        {0x1700, "user CAM2"  },
    };
    for (const auto& [address, text] : texts) {
        ExpectText(address, text);
        Expect(address + 1, 1, 4);
    }
    EXPECT_THAT(Read(0x1500), MatchesRegex("-1003:8 .*DEVICE_INFO_ACCESS_STATUS is not implemented"));
    Expect(0x1501, 0, 4);
    Expect(0x1800, 0xC0A80105, 4);
    Expect(0x1900, 0xFFFF0000, 4);
    Expect(0x2000, 0xFFEEDDCCBBAA);

    // The second camera leaves, and nobody moves the selector.
    m_script.devices.pop_back();
    EXPECT_EQ("0:8", Write(0x1000, 0));
    Expect(0x1103, 0, 4);
    Expect(0x1100, 1);
    for (const unsigned long address :
         {0x1200ul, 0x1300ul, 0x1400ul, 0x1500ul, 0x1600ul, 0x1700ul, 0x1800ul, 0x1900ul, 0x2000ul}) {
        EXPECT_THAT(Read(address, 512), MatchesRegex("-1017:512 GetDeviceID.*")) << address;
        Expect(address + 1, 0, 4);
    }
    EXPECT_EQ("0:8", Write(0x1100, 0));
    ExpectText(0x1200, "serial CAM1");
}

TEST_F(InterfaceRegisters, OtherAccessesAreRefused)
{
    ExpectRefusals<InterfaceReg>();
}

}  // namespace
