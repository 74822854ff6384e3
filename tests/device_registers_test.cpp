/// The register map behind the Device module's own port, over a scripted camera.
#include "CameraRecord.h"
#include "RegisterTest.h"
#include "device/DeviceGev.h"
#include "frame/Error.h"
#include "frame/GenTLHandle.h"
#include "gev/HALGev.h"
#include "xml/LocalXml.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <utility>

using namespace GenTL;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

// clang-format off
/// What the device below answers, and how many bytes of it.
constexpr struct { unsigned long address, value, size; } kValues[] = {
    {0x0900, 0, 8}, {0x1100, 2, 4}, {0x1200, 0, 8}, {0x1400, 0xC0A80164, 8}, {0x1500, 0xFFFFFF00, 4},
    {0x1600, 0xFC0182030405, 8}, {0x1701, 0, 4}, {0x1800, 0, 8}, {0x1901, 0, 4},
};
// clang-format on

/// All registers are 0. Notes how one was reached, or what action was sent.
class Camera : public HALGev
{
public:
    Camera() { m_handle.m_record = CameraRecord("S123"); }
    int ReadReg(void*, unsigned, unsigned&) override { return Note("ReadReg"); }
    int ReadMem(void*, unsigned, char*, unsigned long) override { return Note("ReadMem"); }
    int SetDeviceTimeout(void*, int) override { return 0; }
    int CloseDevice(void*) override { return 0; }
    int SendActionCommand(void*, unsigned device, unsigned group, unsigned mask, unsigned long time) override
    {
        char text[80];
        snprintf(text, sizeof text, "Action %X %X %X %lX", device, group, mask, time);
        return Note(text);
    }
    int Note(const char* text)
    {
        m_latest = text;
        return m_code;
    }

    DeviceHandle m_handle;
    std::string m_latest;
    int m_code = 0;
};

class DeviceRegisters : public RegisterTest
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(0, m_device.Open(DEVICE_ACCESS_READONLY, &m_parent));
        ErrorCache::GetErrorCache()->Clear();
    }
    void TearDown() override { m_device.Close(); }

    IBaseModule& Port() override { return static_cast<IDevice&>(m_device); }

    int m_parent = 0;
    Camera m_camera;
    DeviceGev m_device{&m_camera, "if", &m_parent, ToHandle(&m_camera.m_handle)};
};

TEST_F(DeviceRegisters, TellOfTheCamera)
{
    for (const auto& row : kValues) {
        Expect(row.address, row.value, row.size);
    }
    // clang-format off
    const std::pair<unsigned long, const char*> texts[] = {
        {0x0100, "S123"}, {0x0200, "S123"}, {0x0300, "Left"}, {0x0400, "Vendor"}, {0x0500, "Model"}, {0x0700, "2.1"},
        {0x1000, "Model ( S123 ) "}, {0x1900, "0"},
    };
    // clang-format on
    for (const auto& [address, text] : texts) {
        ExpectText(address, text);
    }
    ExpectDescription("Device", kDeviceXml);
}

TEST_F(DeviceRegisters, OtherAccessesAreRefused)
{
    ExpectRefusals<DeviceReg>();
    for (const unsigned long described : {0x0600ul, 0x0800ul, 0x1300ul, 0x2000ul}) {
        EXPECT_EQ("-1015:8 default", Read(described)) << described;
    }
    EXPECT_THAT(Read(0x1700), MatchesRegex("-1003:8 GetGevDeviceGateway_Reg..:[0-9]+: "
                                           "GenTL::GC_ERR_NOT_IMPLEMENTED.-1003."));
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, m_device.GetPortURLInfo(0, URL_INFO_URL, nullptr, nullptr, nullptr));
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, m_device.ReadPortStacked(nullptr, nullptr));
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, m_device.WritePortStacked(nullptr, nullptr));
}

// A selector that is refused stays all the same, and the streams have no names until it is set right.
TEST_F(DeviceRegisters, StreamSelectorStaysWhereItWasPut)
{
    unsigned numStreams = 0;
    ASSERT_EQ(0, m_device.GetNumDataStreams(&numStreams));
    for (const int wrong : {static_cast<int>(numStreams), -1, INT_MIN}) {
        EXPECT_EQ("-1017:4", Write(0x1800, static_cast<unsigned>(wrong), 4));
        Expect(0x1800, static_cast<unsigned long>(wrong));
        EXPECT_THAT(Read(0x1900, 512), StartsWith("-1017:512 GetDataStreamID():"));
    }
    EXPECT_EQ("-1016:3", Write(0x1800, 0, 3));
    EXPECT_EQ("0:8", Write(0x1800, numStreams - 1, 4));
    ExpectText(0x1900, std::to_string(numStreams - 1));
}

TEST_F(DeviceRegisters, MechanismReachesTheCamerasPort)
{
    void* hPort = nullptr;
    ASSERT_EQ(0, m_device.GetPort(&hPort));
    for (const unsigned long mechanism : {1, 0}) {
        EXPECT_EQ("-1013:7 default", Write(0x1200, 1 - mechanism, 7));
        EXPECT_EQ("0:8", Write(0x1200, mechanism, 8));
        Expect(0x1200, mechanism);
        unsigned long size = 4;
        EXPECT_EQ(0, CastHandle(hPort)->ReadPort(0x0A00, m_bytes.data(), &size));
        EXPECT_EQ(mechanism == 1 ? "ReadMem" : "ReadReg", m_camera.m_latest);
    }
    EXPECT_EQ("0:4", Write(0x1100, 1, 4));
    Expect(0x1100, DEVICE_ACCESS_STATUS_READONLY, 4);
}

TEST_F(DeviceRegisters, ActionCommandGoesOutWithTheStoredKeys)
{
    EXPECT_EQ("0:0", Write(0x4000, 5, 0));
    EXPECT_EQ("Action 0 0 0 0", m_camera.m_latest);
    for (const unsigned long address : {0x4200, 0x4300, 0x4400, 0x4600}) {
        ExpectActionField(address, 0xA1B2C3D4E5F60000 + address, address == 0x4600 ? 8 : 4);
    }
    m_camera.m_code = GC_ERR_TIMEOUT;
    EXPECT_EQ("-1011:8", Write(0x4000, 0, 8));
    EXPECT_EQ("Action E5F64200 E5F64300 E5F64400 A1B2C3D4E5F64600", m_camera.m_latest);
}

}  // namespace
