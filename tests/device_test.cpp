/// The Device module over a scripted camera: taking and giving up control, the heartbeat, the camera's own
/// port and what a device tells of itself.
#include "CameraRecord.h"
#include "LogConfigFile.h"
#include "LogListener.h"
#include "device/DeviceGev.h"
#include "device/DeviceRemoteGev.h"
#include "device/Heartbeat.h"
#include "device/ProtectedDeviceRegistry.h"
#include "frame/Error.h"
#include "frame/GenTLHandle.h"
#include "gev/HALGev.h"
#include "log/GLogger.h"
#include "modules/ThreadPriority.h"
#include "stream/IDataStream.h"

#include <boost/algorithm/string/join.hpp>
#include <boost/thread/thread.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <set>

using namespace GenTL;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;
using testing::StartsWith;

namespace {

constexpr unsigned kHeartbeat = 0x0938;
constexpr unsigned kNever = INT_MAX;  // as the time-out of a heartbeat that is not to beat again
constexpr int kRefused = GC_ERR_ACCESS_DENIED;

std::string Hex(unsigned value)
{
    char text[16];
    snprintf(text, sizeof text, "%04X", value);
    return text;
}

/// Register space with failures. Notes each access; those of the heartbeat in a list of their own.
class Camera : public HALGev
{
public:
    Camera() { m_handle.m_record = CameraRecord("S123"); }

    int ReadReg(void*, unsigned address, unsigned& value) override
    {
        const Access access(*this, address, "R " + Hex(address));
        const auto found = m_registers.find(address);
        if (m_unreadable.count(address) != 0 || found == m_registers.end()) {
            return Raise(kRefused, "transaction");
        }
        value = found->second;
        return 0;
    }
    int WriteReg(void*, unsigned address, unsigned value) override
    {
        const Access access(*this, address, "W " + Hex(address) + "=" + Hex(value));
        if (m_unwritable.count(address) != 0) {
            return Raise(kRefused, "transaction");
        }
        m_registers[address] = value;
        return 0;
    }
    int ReadRegBlock(void*, unsigned address, unsigned* values, unsigned long count) override
    {
        for (unsigned i = 0; i < count; ++i) {
            if (const int code = ReadReg(nullptr, address + 4 * i, values[i]); code != 0) {
                return code;
            }
        }
        return 0;
    }
    int WriteRegBlock(void*, unsigned address, const unsigned* values, unsigned long count) override
    {
        const auto* bytes = reinterpret_cast<const char*>(values);
        m_written.append(bytes, bytes + 4 * count);
        return Memory("B", address, count);
    }
    int ReadMem(void*, unsigned address, char* data, unsigned long size) override
    {
        for (unsigned i = 0; i < size; ++i) {
            data[i] = m_text.empty() ? static_cast<char>(address + i) : i < m_text.size() ? m_text[i] : '\0';
        }
        return Memory("M", address, size);
    }
    int WriteMem(void*, unsigned address, const char* data, unsigned long size) override
    {
        m_written.append(data, data + size);
        return Memory("N", address, size);
    }
    int SetDeviceTimeout(void*, int ms) override
    {
        m_accesses.push_back("T " + std::to_string(ms));
        return m_timeoutCode;
    }
    int SetConnected(void* device, bool isConnected) override
    {
        return m_connectCode != 0 ? m_connectCode : HALGev::SetConnected(device, isConnected);
    }
    int CloseDevice(void*) override
    {
        m_accesses.push_back("close");
        return m_closeCode;
    }

    /// Waits for `count` more accesses of the heartbeat and gives all since.
    /// From the first beat on.
    std::vector<std::string> Beats(std::size_t count)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        EXPECT_TRUE(
            m_beaten.wait_for(lock, std::chrono::seconds(20), [&] { return m_beats.size() >= count; }));
        return m_beats;
    }
    std::vector<std::string> NextBeats(std::size_t count)
    {
        Locked([this] { m_beats.clear(); });
        return Beats(count);
    }
    void Locked(const std::function<void()>& change)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        change();
    }

    DeviceHandle m_handle;
    std::map<unsigned, unsigned> m_registers = {
        {0x0004, 0     },
        {0x0934, 0x20  },
        {0x0938, kNever},
        {0x093C, 1     },
        {0x0940, 2     },
        {0x0954, 0x11  },
        {0x0958, 500   },
        {0x0A00, 0     },
        {0x0D04, 0     },
    };
    std::set<unsigned> m_unreadable;  // registers and memory
    std::set<unsigned> m_unwritable;
    std::string m_text;     // what all memory holds; by default each byte its address
    std::string m_written;  // to memory and by register blocks
    int m_connectCode = 0;
    int m_timeoutCode = 0;
    int m_closeCode = 0;
    std::vector<std::string> m_accesses;
    std::vector<std::string> m_beats;

private:
    struct Access
    {
        Access(Camera& camera, unsigned address, const std::string& text) : m_lock(camera.m_mutex)
        {
            (address == kHeartbeat ? camera.m_beats : camera.m_accesses).push_back(text);
            camera.m_beaten.notify_all();
        }
        std::lock_guard<std::mutex> m_lock;
    };
    int Memory(const char* kind, unsigned address, unsigned long count)
    {
        m_accesses.push_back(kind + (" " + Hex(address)) + "+" + std::to_string(count));
        return m_unreadable.count(address) != 0 ? Raise(GC_ERR_TIMEOUT, "transaction") : 0;
    }

    std::mutex m_mutex;
    std::condition_variable m_beaten;
};

class DeviceTest : public testing::Test
{
protected:
    void SetUp() override
    {
        WriteLogConfig(m_listener.Port(), 600);
        m_log = std::make_unique<GLogger>();
        ErrorCache::GetErrorCache()->Clear();
        Make();
    }
    void TearDown() override
    {
        if (m_device != nullptr) {
            m_device->Close();
        }
        m_device.reset();
        m_log.reset();
    }
    void Make()
    {
        m_device =
            std::make_unique<DeviceGev>(m_camera.get(), "if", &m_parent, ToHandle(&m_camera->m_handle));
    }
    int Open(int flags) { return m_device->Open(flags, &m_parent); }

    std::vector<std::string> Accesses() { return std::exchange(m_camera->m_accesses, {}); }
    /// The messages logged since the last call.
    std::vector<std::string> Logged() const
    {
        std::vector<std::string> messages;
        for (std::string text; !(text = m_listener.NextMessage()).empty();) {
            messages.push_back(text);
        }
        return messages;
    }
    static std::string NewestError()
    {
        Error e;
        ErrorCache::GetErrorCache()->Peak(e);
        return e.Message();
    }
    template <typename T>
    T Info(int command, int expectedType)
    {
        T value{};
        int type = 0;
        std::size_t size = sizeof value;
        EXPECT_EQ(0, m_device->GetInfo(command, &type, &value, &size)) << command;
        EXPECT_EQ(expectedType, type) << command;
        EXPECT_EQ(sizeof value, size) << command;
        return value;
    }
    std::string Text(int command)
    {
        char text[600];
        int type = 0;
        std::size_t size = sizeof text;
        EXPECT_EQ(0, m_device->GetInfo(command, &type, text, &size)) << command;
        return text;
    }
    RemoteDeviceGev Port(unsigned capabilities = 0, long mechanism = 0, long access = 2)
    {
        return {m_camera.get(), ToHandle(&m_camera->m_handle), capabilities, mechanism, PortInfo(), access};
    }

    LogListener m_listener;
    std::unique_ptr<GLogger> m_log;
    int m_parent = 0;
    std::unique_ptr<Camera> m_camera = std::make_unique<Camera>();
    std::unique_ptr<DeviceGev> m_device;
};

// ---- Opening

TEST_F(DeviceTest, FlagsDecideOnControlAndStatus)
{
    struct Case
    {
        int flags;
        unsigned ccp;
        const char* write;  // to CCP
        int status;
    };
    const Case cases[] = {
        {DEVICE_ACCESS_UNKNOWN,   0,       nullptr,        DEVICE_ACCESS_STATUS_READONLY },
        {DEVICE_ACCESS_READONLY,  3,       nullptr,        DEVICE_ACCESS_STATUS_READONLY },
        {DEVICE_ACCESS_CONTROL,   3,       "W 0A00=0002",  DEVICE_ACCESS_STATUS_READWRITE},
        {DEVICE_ACCESS_EXCLUSIVE, 0x10004, "W 0A00=10007", DEVICE_ACCESS_STATUS_READWRITE},
    };
    for (const Case& row : cases) {
        m_camera->m_registers[0x0A00] = row.ccp;
        m_camera->m_beats.clear();
        Make();
        Accesses();
        ASSERT_EQ(0, Open(row.flags));
        const bool controls = row.write != nullptr;
        const std::vector<std::string> taken = {"R 0A00", controls ? row.write : ""};
        std::vector<std::string> expected = {"R 093C",      "R 0940", "R 0934", "R 0954",
                                             "W 0954=0013", "R 0958", "T 500"};
        expected.insert(expected.begin(), taken.begin(), controls ? taken.end() : taken.begin());
        m_camera->m_registers[0x0954] = 0x11;
        EXPECT_EQ(expected, Accesses()) << row.flags;
        EXPECT_EQ(row.status, Info<int>(DEVICE_INFO_ACCESS_STATUS, INFO_DATATYPE_INT32));
        EXPECT_EQ(controls, Info<bool>(DEVICE_INFO_IS_CONNECTED, INFO_DATATYPE_BOOL8));
        EXPECT_EQ(0x100000002u, Info<unsigned long>(DEVICE_INFO_TIMESTAMP_FREQUENCY, INFO_DATATYPE_UINT64));
        EXPECT_EQ(0, m_device->Close());
        EXPECT_LE(m_camera->m_beats.size(), controls ? 1u : 0u);
        m_camera->HALGev::SetConnected(ToHandle(&m_camera->m_handle), false);
    }
    EXPECT_THAT(Logged(), IsEmpty());
    Make();
    Accesses();
    for (const int flags : {-1, 5}) {
        EXPECT_EQ(GC_ERR_INVALID_PARAMETER, Open(flags));
    }
    EXPECT_THAT(Accesses(), IsEmpty());
}

// 0, or what no socket takes, would wait for ever or fail a camera that is taken already.
TEST_F(DeviceTest, SocketTimeoutIsTheCamerasPendingTimeout)
{
    struct Case
    {
        std::map<unsigned, unsigned> registers;
        std::set<unsigned> unreadable;
        std::set<unsigned> unwritable;
        std::vector<std::string> expected;
    };
    const Case cases[] = {
        {{},                                  {0x0954}, {},       {"R 0954", "W 0954=0002", "R 0958", "T 500"}},
        {{},                                  {},       {0x0954}, {"R 0954", "W 0954=0013", "R 0958", "T 500"}},
        {{{0x0934, 0}},                       {0x0958}, {},       {"R 0958", "T 200"}                         },
        {{{0x0934, 0}, {0x0958, 0}},          {},       {},       {"R 0958", "T 200"}                         },
        {{{0x0934, 0}, {0x0958, 0xFFFFFFFF}}, {},       {},       {"R 0958", "T 2147483647"}                  },
    };
    for (const Case& row : cases) {
        m_device.reset();
        m_camera = std::make_unique<Camera>();
        for (const auto& [address, value] : row.registers) {
            m_camera->m_registers[address] = value;
        }
        m_camera->m_unreadable = row.unreadable;
        m_camera->m_unwritable = row.unwritable;
        Make();
        EXPECT_EQ(0, Open(DEVICE_ACCESS_READONLY));
        auto accesses = Accesses();
        accesses.erase(accesses.begin(), accesses.begin() + 3);
        EXPECT_EQ(row.expected, accesses);
    }
    EXPECT_THAT(Logged(), ElementsAre("DeviceGev::Open reading sk_gvcpConfigAddress failed with: -1005",
                                      "DeviceGev::Open writing sk_gvcpConfigAddress failed with: -1005",
                                      "DeviceGev::Open reading sk_pendingTimeoutAddress failed with: -1005"));
}

TEST_F(DeviceTest, TickFrequencyIsNotNeeded)
{
    m_camera->m_unreadable = {0x093C};
    EXPECT_EQ(0, Open(DEVICE_ACCESS_READONLY));
    EXPECT_THAT(Accesses(), Not(Contains("R 0940")));
    EXPECT_EQ(0u, Info<unsigned long>(DEVICE_INFO_TIMESTAMP_FREQUENCY, INFO_DATATYPE_UINT64));
    EXPECT_THAT(NewestError(), EndsWith(": IGNORABLE: field to get tick frequency"));
    EXPECT_THAT(Logged(), ElementsAre("anonymous::GetTimestampTickFrequency ReadReg  failed with: -1005",
                                      "DeviceGev::Open GetTimestampTickFrequency failed with: -1005"));
}

struct FailedOpen
{
    const char* name;
    void (*arrange)(Camera&);
    int code;
    const char* log;
    const char* text;
    bool keepsHeartbeat;
};

class DeviceFailedOpen : public DeviceTest, public testing::WithParamInterface<FailedOpen>
{
};

// What owns the camera by then stays, everything else goes: no socket may leak with each refused open.
TEST_P(DeviceFailedOpen, LeavesOnlyARunningHeartbeat)
{
    m_camera->m_registers[kHeartbeat] = 2;
    GetParam().arrange(*m_camera);
    EXPECT_EQ(GetParam().code, Open(DEVICE_ACCESS_CONTROL));
    EXPECT_THAT(NewestError(), AllOf(HasSubstr("Open():"), EndsWith(GetParam().text)));
    EXPECT_THAT(Logged(), Contains(GetParam().log + (": " + std::to_string(GetParam().code))));
    unsigned count = 1;
    EXPECT_EQ(0, m_device->GetNumDataStreams(&count));
    EXPECT_EQ(0u, count);
    m_log.reset();  // the heartbeat that stays has nobody to tell

    Accesses();
    m_device.reset();
    if (!GetParam().keepsHeartbeat) {
        EXPECT_THAT(Accesses(), ElementsAre("close"));
        return;
    }
    EXPECT_THAT(Accesses(), IsEmpty());
    EXPECT_EQ(2u, m_camera->m_registers[0x0A00]);
    EXPECT_THAT(m_camera->NextBeats(4), Contains("W 0938=0002"));
    m_camera->Locked([this] { m_camera->m_registers[kHeartbeat] = kNever; });
    static auto& kept = *new std::vector<std::unique_ptr<Camera>>();  // its thread outlives the test
    kept.push_back(std::move(m_camera));
}

INSTANTIATE_TEST_SUITE_P(
    Device,
    DeviceFailedOpen,
    testing::Values(FailedOpen{"CcpRead", [](Camera& c) { c.m_unreadable = {0x0A00}; }, kRefused,
                               "DeviceGev::Open ReadReg address  0x0A00 failed with",
                               ": failed to read CCP (0x0A00) register", false},
                    FailedOpen{"CcpWrite", [](Camera& c) { c.m_unwritable = {0x0A00}; }, kRefused,
                               "DeviceGev::Open WriteReg address  0x0A00 failed with",
                               ": failed to write to CCP (0x0A00) register", false},
                    FailedOpen{"SetConnected", [](Camera& c) { c.m_connectCode = GC_ERR_INVALID_HANDLE; },
                               GC_ERR_INVALID_HANDLE, "DeviceGev::Open SetConnected failed with",
                               ": failed to set the device state to connected", true},
                    FailedOpen{"Capability", [](Camera& c) { c.m_unreadable = {0x0934}; }, kRefused,
                               "DeviceGev::Open reading sk_gvcpCapabilityAddress failed with",
                               ": failed to read GVCP Capability (0x0934) register", true},
                    FailedOpen{"Timeout", [](Camera& c) { c.m_timeoutCode = GC_ERR_IO; }, GC_ERR_IO,
                               "DeviceGev::Open ConfigureDeviceTimeout failed with",
                               ": GenTL::GC_ERR_IO(-1010)", true}),
    [](const auto& row) { return row.param.name; });

TEST_F(DeviceTest, StreamThatCannotBeMadeFailsTheOpen)
{
    m_device = std::make_unique<DeviceGev>(m_camera.get(), "if", &m_parent, nullptr);
    Accesses();
    EXPECT_EQ(GC_ERR_OUT_OF_MEMORY, Open(DEVICE_ACCESS_CONTROL));
    EXPECT_THAT(NewestError(), EndsWith(": failed to initialize streams"));
    const auto logged = Logged();
    EXPECT_THAT(logged, Contains(StartsWith("DeviceGev::Open exception creating stream = ")));
    EXPECT_THAT(logged, Contains("DeviceGev::Open get multi-cast state failed with: -1021"));
    EXPECT_THAT(Accesses(), IsEmpty());
}

// ---- Closing

TEST_F(DeviceTest, CloseGoesOnWhateverFails)
{
    struct Case
    {
        std::set<unsigned> unreadable;
        std::set<unsigned> unwritable;
        int closeCode;
        int result;
        const char* write;
    };
    const Case cases[] = {
        {{},       {},       0,         0,         "W 0A00=0104"},
        {{0x0A00}, {},       0,         0,         "W 0A00=0000"},
        {{},       {0x0A00}, GC_ERR_IO, kRefused,  "W 0A00=0104"},
        {{},       {},       GC_ERR_IO, GC_ERR_IO, "W 0A00=0104"},
    };
    for (const Case& row : cases) {
        g_openedDevicesRegistry.AddInterfaceEntry("if", &m_parent);
        m_camera->m_registers[0x0A00] = 0x0104;
        Make();
        ASSERT_EQ(0, Open(DEVICE_ACCESS_EXCLUSIVE));
        ASSERT_EQ(0, g_openedDevicesRegistry.AddDeviceEntry("if", "S123", &m_parent));
        void* hPort = nullptr;
        void* hSecond = nullptr;
        void* hStream = nullptr;
        ASSERT_EQ(0, m_device->GetPort(&hPort));
        ASSERT_EQ(0, m_device->GetPort(&hSecond));
        ASSERT_EQ(0, m_device->OpenDataStream("0", &hStream));
        m_camera->Locked([&] {
            m_camera->m_unreadable = row.unreadable;
            m_camera->m_unwritable = row.unwritable;
        });
        m_camera->m_closeCode = row.closeCode;
        Accesses();
        EXPECT_EQ(row.result, m_device->Close());
        EXPECT_THAT(Accesses(), ElementsAre("R 0A00", row.write, "close"));
        EXPECT_FALSE(g_openedDevicesRegistry.IsDeviceAlreadyOpen("S123"));
        for (void* handle : {hPort, hSecond, hStream}) {
            EXPECT_TRUE(CheckHandle(handle) != 0 || CastHandle(handle) == nullptr) << "names what is gone";
        }
        m_camera->m_unreadable.clear();
        m_camera->m_unwritable.clear();
        m_camera->m_closeCode = 0;
        g_openedDevicesRegistry.PopInterfaceEntry("if");
    }
    EXPECT_THAT(Logged(), ElementsAre("DeviceGev::Close ReadReg address 0x0A00 failed with: -1005",
                                      "DeviceGev::Close WriteReg address 0x0A00 failed with: -1005"));
}

// ---- Heartbeat

class HeartbeatTest : public DeviceTest
{
protected:
    void Start(unsigned timeoutMs)
    {
        m_camera->m_registers[kHeartbeat] = timeoutMs;
        m_thread = boost::thread([this] { HeartbeatThread(m_camera.get(), nullptr, m_run); });
    }
    void TearDown() override
    {
        m_thread.interrupt();
        EXPECT_TRUE(!m_thread.joinable() || m_thread.try_join_for(boost::chrono::seconds(20)));
        DeviceTest::TearDown();
    }

    bool m_run = true;
    boost::thread m_thread;
};

TEST_F(HeartbeatTest, WritesWhatItReadsAtHalfTheTimeout)
{
    const auto start = std::chrono::steady_clock::now();
    Start(200);
    EXPECT_THAT(m_camera->Beats(3), ElementsAre("R 0938", "R 0938", "W 0938=00C8"));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(99));
    m_camera->Locked([this] { m_camera->m_registers[kHeartbeat] = 3; });
    EXPECT_THAT(m_camera->NextBeats(4), Contains("W 0938=0003"));
}

// A camera that was unplugged is served again when it comes back; a register that can't be read is not
// written.
TEST_F(HeartbeatTest, OutlivesFailures)
{
    ThreadPriority::m_priorityHeartbeatThread = 99;  // none there is
    Start(4);
    m_camera->NextBeats(2);
    m_camera->Locked([this] { m_camera->m_unreadable = {kHeartbeat}; });
    m_camera->NextBeats(1);  // may have begun before
    EXPECT_THAT(m_camera->NextBeats(4), Each(std::string("R 0938")));
    m_camera->Locked([this] {
        m_camera->m_unreadable.clear();
        m_camera->m_unwritable = {kHeartbeat};
    });
    EXPECT_THAT(m_camera->NextBeats(6), Contains("W 0938=0004"));
    m_camera->Locked([this] { m_camera->m_unwritable.clear(); });
    EXPECT_THAT(m_camera->NextBeats(4), Contains("W 0938=0004"));
    EXPECT_THAT(Logged(), IsSupersetOf({"anonymous::HeartbeatThread ReadReg  failed with : -1005: -1005",
                                        "anonymous::HeartbeatThread WriteReg  failed with: -1005"}));
    ThreadPriority::m_priorityHeartbeatThread = 1;
}

TEST_F(HeartbeatTest, EndsWithoutTheFirstRead)
{
    m_camera->m_unreadable = {kHeartbeat};
    Start(4);
    EXPECT_TRUE(m_thread.try_join_for(boost::chrono::seconds(20)));
    EXPECT_THAT(m_camera->m_beats, ElementsAre("R 0938"));
    EXPECT_THAT(Logged(), ElementsAre("anonymous::HeartbeatThread ReadReg  failed with: -1005: -1005"));
}

// With nothing to sleep for, an interruption must be seen all the same, or closing would wait for ever.
TEST_F(HeartbeatTest, WithoutTimeoutStillStops)
{
    Start(0);
    m_camera->NextBeats(100);
}

// ---- What the device tells

// What the registers answer too is looked at there.
TEST_F(DeviceTest, AnswersWhatTheDiscoveryRecordHolds)
{
    EXPECT_EQ(0xC0A80164, Info<long>(DEVICE_INFO_GEV_IP_ADDRESS, INFO_DATATYPE_INT64));
    EXPECT_EQ(0xFC0182030405u, Info<unsigned long>(DEVICE_INFO_GEV_MAC_ADDRESS, INFO_DATATYPE_UINT64));
    EXPECT_EQ(0xC0A80101, Info<unsigned>(DEVICE_INFO_GEV_DEFAULT_GATEWAY, INFO_DATATYPE_UINT32));
    EXPECT_TRUE(Info<bool>(DEVICE_INFO_GEV_CONFIG_DHCP, INFO_DATATYPE_BOOL8));
    EXPECT_FALSE(Info<bool>(DEVICE_INFO_GEV_CONFIG_PERSISTENT_IP, INFO_DATATYPE_BOOL8));
    EXPECT_TRUE(Info<bool>(DEVICE_INFO_GEV_CONFIG_LLA, INFO_DATATYPE_BOOL8));
    int type = 0;
    std::size_t size = 0;
    EXPECT_EQ(GC_ERR_INVALID_INDEX, m_device->GetInfo(1010, &type, nullptr, &size));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, m_device->SetActionCommandDeviceKey(nullptr));

    m_device = std::make_unique<DeviceGev>(m_camera.get(), "if", &m_parent, nullptr);
    std::vector<std::string> texts;
    for (const int command :
         {DEVICE_INFO_ID, DEVICE_INFO_VENDOR, DEVICE_INFO_MODEL, DEVICE_INFO_TLTYPE, DEVICE_INFO_DISPLAYNAME,
          DEVICE_INFO_USER_DEFINED_NAME, DEVICE_INFO_SERIAL_NUMBER, DEVICE_INFO_VERSION}) {
        texts.push_back(Text(command));
    }
    EXPECT_THAT(texts,
                ElementsAre("Unknown Device ID", "Unknown Vendor Name", "Unknown Model Name", "GEV",
                            "Unknown Model Name ( Unknown Serial Number ) ", "Unknown User Defined Name",
                            "Unknown Serial Number", "Unknown Device Version"));
    EXPECT_THAT(Logged(), ElementsAre("DeviceGev::DeviceGev could not get model name: -1006",
                                      "DeviceGev::DeviceGev could not get vendor name: -1006",
                                      "DeviceGev::DeviceGev could not get serial number: -1006",
                                      "DeviceGev::DeviceGev could not get user defined name: -1006",
                                      "DeviceGev::DeviceGev could not get version: -1006"));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, m_device->GetInfo(DEVICE_INFO_IS_CONNECTED, &type, nullptr, &size));
}

TEST_F(DeviceTest, StreamsGoByTheirNumber)
{
    ASSERT_EQ(0, Open(DEVICE_ACCESS_READONLY));
    char id[2] = {};
    std::size_t size = 1;
    EXPECT_EQ(GC_ERR_BUFFER_TOO_SMALL, m_device->GetDataStreamID(0, id, &size));
    EXPECT_EQ(1u, size);
    EXPECT_EQ(0, m_device->GetDataStreamID(0, nullptr, &size));
    EXPECT_EQ(2u, size);
    for (const unsigned index : {0u, 1u}) {
        EXPECT_EQ(0, m_device->GetDataStreamID(index, id, &size));
        EXPECT_EQ(std::to_string(index), id);
    }
    EXPECT_EQ(GC_ERR_INVALID_INDEX, m_device->GetDataStreamID(2, id, &size));

    void* hStream = nullptr;
    for (const char* wrong : {"", "x0", "-0", " 0", "+0", "2", "4294967296", "99999999999999999999"}) {
        EXPECT_EQ(GC_ERR_INVALID_ID, m_device->OpenDataStream(wrong, &hStream)) << wrong;
        EXPECT_THAT(NewestError(), EndsWith(std::string(": ") + wrong + " is not a valid ID"));
    }
    EXPECT_EQ(nullptr, hStream);
    for (const char* right : {"0x", "1x"}) {
        ASSERT_EQ(0, m_device->OpenDataStream(right, &hStream));
        void* hDevice = nullptr;
        EXPECT_EQ(0, dynamic_cast<IDataStream&>(*CastHandle(hStream)).GetParentDev(&hDevice));
        EXPECT_EQ(&m_parent, hDevice);
        EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, m_device->OpenDataStream(right, &hStream));
    }
}

TEST_F(DeviceTest, NullArgumentsAreRefused)
{
    ASSERT_EQ(0, Open(DEVICE_ACCESS_READONLY));
    RemoteDeviceGev port = Port();
    void* handle = nullptr;
    std::size_t size = 4;
    const int codes[] = {
        m_device->GetPort(nullptr),
        m_device->GetParentIF(nullptr),
        m_device->GetNumDataStreams(nullptr),
        m_device->GetDataStreamID(0, nullptr, nullptr),
        m_device->OpenDataStream(nullptr, &handle),
        m_device->OpenDataStream("0", nullptr),
        port.ReadPort(0, nullptr, &size),
        port.ReadPort(0, &size, nullptr),
        port.WritePort(0, nullptr, &size),
        port.WritePort(0, &size, nullptr),
        port.GetPortURL(nullptr, nullptr),
        port.GetNumPortURLs(nullptr),
    };
    EXPECT_THAT(codes, Each(GC_ERR_INVALID_PARAMETER));
}

// ---- The camera's port

TEST_F(DeviceTest, TransfersAreCutToWhatACommandCarries)
{
    struct Case
    {
        unsigned capabilities;  // 2: the camera takes WRITEMEM
        long mechanism;
        unsigned long address;
        unsigned long size;
        const char* reads;
        const char* writes;
        unsigned long written;
    };
    const Case cases[] = {
        {0, 1, 0x1000,     1073, "M 1000+536, M 1218+536, M 1430+1", "N 1000+536, N 1218+536, N 1430+1", 1073},
        {0, 1, 0x1000,     1072, "M 1000+536, M 1218+536",           "N 1000+536, N 1218+536",           1072},
        {0, 1, 0x1000,     0,    "M 1000+0",                         "N 1000+0",                         0   },
        {0, 1, 0xFFFFFFFF, 1,    "M FFFFFFFF+1",                     "N FFFFFFFF+1",                     1   },
        {2, 0, 0x1001,     537,  "M 1001+536, M 1219+1",             "N 1001+536, N 1219+1",             537 },
        {0, 0, 0x1000,     6,    "M 1000+6",                         "B 1000+1",                         4   },
        {0, 0, 0x1000,     600,  "M 1000+536, M 1218+64",            "B 1000+67, B 110C+67, B 1218+16",  600 },
    };
    const auto accesses = [this] { return boost::algorithm::join(Accesses(), ", "); };
    for (const Case& row : cases) {
        RemoteDeviceGev port = Port(row.capabilities, row.mechanism);
        std::vector<char> memory(row.size + 1);  // an odd address: nothing may assume alignment
        char* bytes = memory.data() + 1;
        unsigned long size = row.size;
        Accesses();
        EXPECT_EQ(0, port.ReadPort(row.address, bytes, &size));
        EXPECT_EQ(row.reads, accesses());
        m_camera->m_written.clear();
        EXPECT_EQ(0, port.WritePort(row.address, bytes, &size));
        EXPECT_EQ(row.writes, accesses());
        EXPECT_EQ(std::string(bytes, row.written), m_camera->m_written);
        for (unsigned long i = 0; i < row.size; ++i) {
            ASSERT_EQ(static_cast<char>(row.address + i), bytes[i]);
        }
        EXPECT_EQ(row.size, size);
    }
}

TEST_F(DeviceTest, FourBytesAreARegisterInTheCamerasOrder)
{
    for (const auto& [deviceMode, inMemory] :
         {std::pair(0x00000001u, 0x11223344u), std::pair(0x80000000u, 0x44332211u)}) {
        m_camera->m_registers[0x0004] = deviceMode;
        m_camera->m_registers[0xA000] = 0x11223344;
        RemoteDeviceGev port = Port(2);
        char bytes[5];
        std::size_t size = 4;
        EXPECT_EQ(0, port.ReadPort(0xA000, bytes + 1, &size));
        unsigned value = 0;
        std::memcpy(&value, bytes + 1, sizeof value);
        EXPECT_EQ(inMemory, value);
        m_camera->m_registers[0xA000] = 0;
        EXPECT_EQ(0, port.WritePort(0xA000, bytes + 1, &size));
        EXPECT_EQ(0x11223344u, m_camera->m_registers[0xA000]);
    }
}

TEST_F(DeviceTest, PortRefusesWhatHasNoPlaceOrNoState)
{
    char bytes[2000] = {};
    const std::pair<unsigned long, std::size_t> places[] = {
        {0x100000000, 4       },
        {0x100000A00, 8       },
        {0xFFFFFFFF,  2       },
        {0xFFFFFE00,  2000    },
        {ULONG_MAX,   4       },
        {0x1000,      SIZE_MAX},
    };
    for (const long mechanism : {0, 1}) {
        for (auto [address, size] : places) {
            RemoteDeviceGev port = Port(0, mechanism);
            Accesses();
            EXPECT_EQ(GC_ERR_INVALID_ADDRESS, port.ReadPort(address, bytes, &size)) << address;
            EXPECT_EQ(GC_ERR_INVALID_ADDRESS, port.WritePort(address, bytes, &size)) << address;
            EXPECT_THAT(Accesses(), IsEmpty());
        }
    }
    std::size_t size = 1073;
    RemoteDeviceGev port = Port(0, 1);
    m_camera->m_unreadable = {0x1218};
    Accesses();
    EXPECT_EQ(GC_ERR_TIMEOUT, port.ReadPort(0x1000, bytes, &size));
    EXPECT_THAT(Accesses(), ElementsAre("M 1000+536", "M 1218+536"));
    EXPECT_EQ(1073u, size);

    port.SetEndianessMechanism(2);
    EXPECT_EQ(GC_ERR_INVALID_ID, port.ReadPort(0, bytes, &size));
    EXPECT_EQ(GC_ERR_INVALID_ID, port.WritePort(0, bytes, &size));
    EXPECT_THAT(NewestError(), EndsWith(": m_endiannessMechanism is not set to a valid value"));
    port.SetAccessStatus(0);
    EXPECT_EQ(GC_ERR_ABORT, port.ReadPort(0, bytes, &size));
    EXPECT_EQ(GC_ERR_ABORT, port.WritePort(0, bytes, &size));
    EXPECT_EQ(GC_ERR_NOT_AVAILABLE, port.RegisterEvent(EVENT_REMOTE_DEVICE, nullptr));
    EXPECT_EQ(GC_ERR_NOT_AVAILABLE, port.ReadPortStacked(nullptr, nullptr));
    EXPECT_THAT(Logged(),
                ElementsAre("RemoteDeviceGev::ReadPort  m_endiannessMechanism is not set to valid value",
                            "RemoteDeviceGev::WritePort  m_endiannessMechanism is not set to valid value"));
}

TEST_F(DeviceTest, PortDescriptionComesFromTheDevice)
{
    m_camera->m_registers[0x0D04] = 0x20000000;
    ASSERT_EQ(0, Open(DEVICE_ACCESS_READONLY));
    void* hPort = nullptr;
    ASSERT_EQ(0, m_device->GetPort(&hPort));
    const auto text = [&](auto& module, int command) {
        char value[100] = {};
        int type = 0;
        std::size_t size = sizeof value;
        EXPECT_EQ(0, module.GetPortInfo(command, &type, value, &size));
        return type == INFO_DATATYPE_BOOL8 ? std::to_string(value[0]) : std::string(value);
    };
    IBaseModule& port = *CastHandle(hPort);
    EXPECT_EQ("S123", text(port, PORT_INFO_ID));
    EXPECT_EQ("Device", text(port, PORT_INFO_MODULE));
    EXPECT_EQ("Device", text(port, PORT_INFO_PORTNAME));
    EXPECT_EQ("1", text(port, PORT_INFO_BIG_ENDIAN));
    EXPECT_EQ("0", text(port, PORT_INFO_LITTLE_ENDIAN));
    EXPECT_EQ("TLDevice", text(*m_device, PORT_INFO_MODULE));
    EXPECT_EQ("DevicePort", text(*m_device, PORT_INFO_PORTNAME));
}

// The consumer's buffer is exactly as large as told, so that a byte too many is seen.
TEST_F(DeviceTest, UrlEndsInTwoNulsHoweverLongItIs)
{
    RemoteDeviceGev port = Port();
    for (const std::size_t length : {0, 536, 600}) {
        m_camera->m_text = std::string(length, 'u') + (length == 0 ? std::string(1, '\0') : "");
        const std::size_t needed = std::min<std::size_t>(length, 536) + 2;
        std::size_t size = 0;
        EXPECT_EQ(0, port.GetPortURL(nullptr, &size));
        EXPECT_EQ(needed, size);
        std::vector<char> url(needed, 'x');
        EXPECT_EQ(0, port.GetPortURL(url.data(), &size));
        EXPECT_EQ(std::string(needed - 2, 'u') + std::string(2, '\0'), std::string(url.begin(), url.end()));
        Accesses();
        size = needed - 1;
        EXPECT_EQ(GC_ERR_BUFFER_TOO_SMALL, port.GetPortURL(url.data(), &size));
        EXPECT_EQ(needed - 1, size);
        EXPECT_THAT(Accesses(), ElementsAre("M 0200+536"));
    }
    std::size_t size = 0;
    m_camera->m_unreadable = {0x0200};
    EXPECT_EQ(0, port.GetPortURL(nullptr, &size));
    EXPECT_THAT(Accesses(), ElementsAre("M 0200+536", "M 0400+536"));
    m_camera->m_unreadable = {0x0200, 0x0400};
    EXPECT_EQ(GC_ERR_TIMEOUT, port.GetPortURL(nullptr, &size));
}

TEST_F(DeviceTest, ManifestEntriesAreThoseThatWereRead)
{
    constexpr unsigned kManifest = 0x04000000;
    RemoteDeviceGev without = Port();
    unsigned count = 1;
    EXPECT_EQ(0, without.GetNumPortURLs(&count));
    EXPECT_EQ(0u, count);

    RemoteDeviceGev port = Port(kManifest);
    int type = 0;
    std::size_t size = 0;
    EXPECT_EQ(GC_ERR_INVALID_INDEX, port.GetPortURLInfo(0, URL_INFO_URL, &type, nullptr, &size));
    for (unsigned word = 0x9000; word < 0x9208; word += 4) {
        m_camera->m_registers[word] = 0xFFFFFFFF;
    }
    m_camera->m_registers[0x9010] = 1u << 26 | 2u << 20 | 3u << 14 | 4u << 8 | 5u << 2 | 3;
    m_camera->m_registers[0x9014] = 0x8000F000;
    ASSERT_EQ(0, port.GetNumPortURLs(&count));
    EXPECT_EQ(63u, count);
    const auto number = [&](int command) {
        long value = 0;
        size = sizeof value;
        EXPECT_EQ(0, port.GetPortURLInfo(1, command, &type, &value, &size)) << command;
        return value;
    };
    std::vector<long> versions;
    for (const int command : {URL_INFO_FILE_VER_MAJOR, URL_INFO_FILE_VER_MINOR, URL_INFO_FILE_VER_SUBMINOR,
                              URL_INFO_SCHEMA_VER_MAJOR, URL_INFO_SCHEMA_VER_MINOR}) {
        versions.push_back(number(command));
    }
    EXPECT_THAT(versions, ElementsAre(1, 2, 3, 4, 5));
    EXPECT_EQ(0, number(URL_INFO_SCHEME));
    EXPECT_EQ(INFO_DATATYPE_INT32, type);
    EXPECT_EQ(0x8000F000, number(URL_INFO_FILE_REGISTER_ADDRESS));
    EXPECT_EQ(INFO_DATATYPE_UINT64, type);
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, port.GetPortURLInfo(1, URL_INFO_FILE_SIZE, &type, nullptr, &size));
    EXPECT_EQ(GC_ERR_INVALID_INDEX, port.GetPortURLInfo(1, URL_INFO_CUSTOM_ID, &type, nullptr, &size));
    EXPECT_EQ(GC_ERR_INVALID_INDEX, port.GetPortURLInfo(63, URL_INFO_URL, &type, nullptr, &size));

    m_camera->m_text = "Local:a.xml";
    Accesses();
    EXPECT_EQ(0, port.GetPortURLInfo(1, URL_INFO_URL, &type, nullptr, &size));
    EXPECT_EQ(13u, size);
    EXPECT_EQ(0, port.GetPortURLInfo(62, URL_INFO_URL, &type, nullptr, &size));
    EXPECT_THAT(Accesses(), ElementsAre("M 8000F000+536", "M FFFFFFFF+536"));

    m_camera->m_unreadable = {0x9008};
    EXPECT_EQ(kRefused, port.GetNumPortURLs(&count));
    EXPECT_EQ(63u, count);
}

TEST_F(DeviceTest, HasNoEventButTheCameras)
{
    ASSERT_EQ(0, Open(DEVICE_ACCESS_READONLY));
    void* hEvent = nullptr;
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, m_device->RegisterEvent(EVENT_NEW_BUFFER, &hEvent));
    EXPECT_THAT(NewestError(), EndsWith(": only EVENT_REMOTE_DEVICE is implemented"));
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, m_device->UnregisterEvent(EVENT_NEW_BUFFER));
    EXPECT_THAT(NewestError(), EndsWith(": only GenTL::EVENT_REMOTE_DEVICE is implemented"));
}

}  // namespace
