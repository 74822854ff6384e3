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
#include <cstring>

using namespace GenTL;
using testing::ElementsAre;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

constexpr unsigned long kXml = 0xF0F00000;
constexpr unsigned long kRest = 0xEEEEEEEE00000000;  // an answer of 4 bytes where 8 were asked for

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

TEST_F(DeviceRegisters, TextsFillTheWholeRegister)
{
    std::vector<std::string> texts;
    for (const unsigned long address : {0x0100, 0x0200, 0x0300, 0x0400, 0x0500, 0x0700, 0x1000, 0x1900}) {
        EXPECT_THAT(Read(address, 1), StartsWith("-1016:1 SetInfo():")) << address;
        EXPECT_EQ(std::string(8, '\xEE'), m_bytes);
        const std::string outcome = Read(address, 512);
        texts.emplace_back(m_bytes.c_str());
        EXPECT_EQ("0:" + std::to_string(texts.back().size() + 1), outcome) << address;
        EXPECT_EQ(texts.back() + std::string(512 - texts.back().size(), '\0'), m_bytes);
    }
    EXPECT_THAT(texts, ElementsAre("S123", "S123", "Left", "Vendor", "Model", "2.1", "Model ( S123 ) ", "0"));
}

TEST_F(DeviceRegisters, NumbersTakeWhatTheirTypeNeeds)
{
    std::vector<unsigned long> values;
    for (const unsigned long address :
         {0x0900, 0x1100, 0x1200, 0x1400, 0x1500, 0x1600, 0x1701, 0x1800, 0x1901}) {
        const std::string outcome = Read(address, 8);
        values.push_back(Number());
        const unsigned long needed = Number() >= kRest ? 4 : 8;
        EXPECT_EQ("0:" + std::to_string(needed), outcome) << address;
        EXPECT_THAT(Read(address, needed - 1), StartsWith("-1016:")) << address;
        EXPECT_EQ(std::string(8, '\xEE'), m_bytes);
    }
    EXPECT_THAT(values, ElementsAre(0, kRest | 2, 0, 0xC0A80164, kRest | 0xFFFFFF00, 0xFC0182030405, kRest, 0,
                                    kRest));
}

TEST_F(DeviceRegisters, OnlyExactAddressesInTheRightDirectionAnswer)
{
    for (const unsigned long address :
         {0x0ul, 0x0600ul, 0x0800ul, 0x1300ul, 0x2000ul, 0x4500ul, 0x0101ul, kXml + 1, 0x1F0F00000ul}) {
        EXPECT_EQ("-1015:8 default", Read(address, 8)) << address;
        EXPECT_EQ("-1015:8 default", Write(address, 0, 8)) << address;
    }
    for (const unsigned long address :
         {0x0100ul, 0x0200ul, 0x0300ul, 0x0400ul, 0x0500ul, 0x0700ul, 0x0900ul, 0x1000ul, 0x1400ul, 0x1500ul,
          0x1600ul, 0x1700ul, 0x1701ul, 0x1900ul, 0x1901ul, kXml}) {
        EXPECT_EQ("-1005:8 default", Write(address, 0, 8)) << address;
    }
    EXPECT_EQ("-1005:8 default", Read(0x4000, 8));
    EXPECT_THAT(Read(0x1700, 8), MatchesRegex("-1003:8 GetGevDeviceGateway_Reg..:[0-9]+: "
                                              "GenTL::GC_ERR_NOT_IMPLEMENTED.-1003."));
    unsigned long size = 8;
    for (unsigned long* piSize : {&size, static_cast<unsigned long*>(nullptr)}) {
        char* pBuffer = piSize == nullptr ? m_bytes.data() : nullptr;
        EXPECT_EQ("-1009:8 default", Outcome(m_device.ReadPort(0, pBuffer, piSize), 8));
        EXPECT_EQ("-1009:8 default", Outcome(m_device.WritePort(0, pBuffer, piSize), 8));
    }
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, m_device.GetPortURLInfo(0, URL_INFO_URL, nullptr, nullptr, nullptr));
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, m_device.ReadPortStacked(nullptr, nullptr));
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, m_device.WritePortStacked(nullptr, nullptr));
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, m_device.RegisterEvent(EVENT_REMOTE_DEVICE, nullptr));
    EXPECT_EQ(GC_ERR_NOT_AVAILABLE, m_device.UnregisterEvent(EVENT_REMOTE_DEVICE));
}

TEST_F(DeviceRegisters, DescriptionIsAsLongAsTheUrlSays)
{
    unsigned long size = 200;
    char url[200];
    ASSERT_EQ(0, m_device.GetPortURL(url, &size));
    ASSERT_EQ(
        1, sscanf(url, "local:SFNC_GenTLDevice_Reference_Version_1_0_0_Schema_1_1.xml;F0F00000;%lX?", &size));
    EXPECT_STREQ("?SchemaVersion=1.0.0", strchr(url, '?'));
    EXPECT_EQ("0:" + std::to_string(size + 1), Read(kXml, size + 1));
    EXPECT_EQ(std::string(kDeviceXml) + '\xEE', m_bytes);
}

// A selector that is refused stays all the same, and the streams have no names until it is set right.
TEST_F(DeviceRegisters, StreamSelectorStaysWhereItWasPut)
{
    unsigned numStreams = 0;
    ASSERT_EQ(0, m_device.GetNumDataStreams(&numStreams));
    for (const int wrong : {static_cast<int>(numStreams), -1, INT_MIN}) {
        EXPECT_EQ("-1017:4", Write(0x1800, static_cast<unsigned>(wrong), 4));
        EXPECT_EQ("0:8", Read(0x1800, 8));
        EXPECT_EQ(wrong, static_cast<long>(Number()));
        EXPECT_THAT(Read(0x1900, 512), StartsWith("-1017:512 GetDataStreamID():"));
    }
    EXPECT_EQ("-1016:3", Write(0x1800, 0, 3));
    EXPECT_EQ("0:8", Write(0x1800, numStreams - 1, 4));
    EXPECT_EQ("0:2", Read(0x1900, 512));
    EXPECT_EQ(std::to_string(numStreams - 1), m_bytes.c_str());
}

TEST_F(DeviceRegisters, MechanismReachesTheCamerasPort)
{
    void* hPort = nullptr;
    ASSERT_EQ(0, m_device.GetPort(&hPort));
    for (const unsigned long mechanism : {1, 0}) {
        EXPECT_EQ("-1013:7 default", Write(0x1200, 1 - mechanism, 7));
        EXPECT_EQ("0:8", Write(0x1200, mechanism, 8));
        Read(0x1200, 8);
        EXPECT_EQ(mechanism, Number());
        unsigned long size = 4;
        EXPECT_EQ(0, CastHandle(hPort)->ReadPort(0x0A00, m_bytes.data(), &size));
        EXPECT_EQ(mechanism == 1 ? "ReadMem" : "ReadReg", m_camera.m_latest);
    }
    EXPECT_EQ("0:4", Write(0x1100, 1, 4));
    EXPECT_EQ("0:4", Read(0x1100, 4));
    EXPECT_EQ(DEVICE_ACCESS_STATUS_READONLY, static_cast<int>(Number()));
}

TEST_F(DeviceRegisters, ActionCommandGoesOutWithTheStoredKeys)
{
    EXPECT_EQ("0:0", Write(0x4000, 5, 0));
    EXPECT_EQ("Action 0 0 0 0", m_camera.m_latest);
    for (const unsigned long address : {0x4200, 0x4300, 0x4400, 0x4600}) {
        const unsigned long length = address == 0x4600 ? 8 : 4;
        const unsigned long value = 0xA1B2C3D4E5F60000 + address;
        EXPECT_EQ("-1016:" + std::to_string(length - 1), Write(address, 7, length - 1));
        EXPECT_EQ("-1016:" + std::to_string(length - 1), Read(address, length - 1));
        EXPECT_EQ("0:8", Write(address, value, 8));
        EXPECT_EQ("0:8", Read(address, 8));
        EXPECT_EQ(length == 8 ? value : kRest | (value & UINT_MAX), Number());
    }
    m_camera.m_code = GC_ERR_TIMEOUT;
    EXPECT_EQ("-1011:8", Write(0x4000, 0, 8));
    EXPECT_EQ("Action E5F64200 E5F64300 E5F64400 A1B2C3D4E5F64600", m_camera.m_latest);
}

}  // namespace
