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

using namespace GenTL;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
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
        return Note("R " + Hex(address), "", [&] { value = m_registers[address]; });
    }
    int WriteReg(void*, unsigned address, unsigned value) override
    {
        return Note("W " + Hex(address), "=" + Hex(value), [&] { m_registers[address] = value; });
    }
    int ReadRegBlock(void*, unsigned address, unsigned* values, unsigned long count) override
    {
        int code = 0;
        for (unsigned i = 0; i < count && code == 0; ++i) {
            code = ReadReg(nullptr, address + 4 * i, values[i]);
        }
        return code;
    }
    int WriteRegBlock(void*, unsigned address, const unsigned* values, unsigned long count) override
    {
        const auto* bytes = reinterpret_cast<const char*>(values);
        m_written.append(bytes, bytes + 4 * count);
        return Note("B " + Hex(address), "+" + std::to_string(count));
    }
    int ReadMem(void*, unsigned address, char* data, unsigned long size) override
    {
        for (unsigned i = 0; i < size; ++i) {
            data[i] = m_text.empty() ? static_cast<char>(address + i) : i < m_text.size() ? m_text[i] : '\0';
        }
        return Note("M " + Hex(address), "+" + std::to_string(size));
    }
    int WriteMem(void*, unsigned address, const char* data, unsigned long size) override
    {
        m_written.append(data, data + size);
        return Note("N " + Hex(address), "+" + std::to_string(size));
    }
    int SetDeviceTimeout(void*, int ms) override { return Note("T", " " + std::to_string(ms)); }
    int SetConnected(void* device, bool isConnected) override
    {
        const int code = Note("connect");
        return code != 0 ? code : HALGev::SetConnected(device, isConnected);
    }
    int CloseDevice(void*) override { return Note("close"); }

    /// Waits for `count` accesses of the heartbeat from the first on, and gives all.
    std::vector<std::string> Beats(std::size_t count)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        EXPECT_TRUE(
            m_beaten.wait_for(lock, std::chrono::seconds(20), [&] { return m_beats.size() >= count; }));
        return m_beats;
    }
    /// From now on.
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
        {0x0934, 0x20  },
        {0x0938, kNever},
        {0x093C, 1     },
        {0x0940, 2     },
        {0x0954, 0x11  },
        {0x0958, 500   },
    };
    std::map<std::string, int> m_failing;  // access without its value or size: the answer
    std::string m_text;                    // what all memory holds; by default each byte its address
    std::string m_written;                 // to memory and by register blocks
    std::vector<std::string> m_accesses;
    std::vector<std::string> m_beats;

private:
    int Note(const std::string& access,
             const std::string& value = "",
             const std::function<void()>& perform = nullptr)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const bool isBeat = access == "R 0938" || access == "W 0938";
        (isBeat ? m_beats : m_accesses).push_back(access + value);
        m_beaten.notify_all();
        if (m_failing.count(access) != 0) {
            return Raise(m_failing[access], "transaction");
        }
        if (perform) {
            perform();
        }
        return 0;
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
        Renew();
    }
    void TearDown() override
    {
        if (m_device != nullptr) {
            m_device->Close();
        }
        m_device.reset();
        m_log.reset();
    }
    /// A new camera, and its device.
    void Renew()
    {
        m_device.reset();
        m_camera = std::make_unique<Camera>();
        m_device =
            std::make_unique<DeviceGev>(m_camera.get(), "if", &m_parent, ToHandle(&m_camera->m_handle));
    }
    int Open(int flags) { return m_device->Open(flags, &m_parent); }

    /// All since the last call but the heartbeat's.
    std::string Accesses() { return boost::algorithm::join(std::exchange(m_camera->m_accesses, {}), ", "); }
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
    RemoteDeviceGev Port(unsigned capabilities = 0, long mechanism = 0, long access = 2)
    {
        return {m_camera.get(), ToHandle(&m_camera->m_handle), capabilities, mechanism, PortInfo(), access};
    }

    LogListener m_listener;
    std::unique_ptr<GLogger> m_log;
    int m_parent = 0;
    std::unique_ptr<Camera> m_camera;
    std::unique_ptr<DeviceGev> m_device;
};

// ---- Opening

TEST_F(DeviceTest, FlagsDecideOnControlAndStatus)
{
    const struct
    {
        int flags;
        unsigned ccp;
        std::string taken;
        int status;
    } cases[] = {
        {DEVICE_ACCESS_UNKNOWN,   0,       "",                                DEVICE_ACCESS_STATUS_READONLY },
        {DEVICE_ACCESS_READONLY,  3,       "",                                DEVICE_ACCESS_STATUS_READONLY },
        {DEVICE_ACCESS_CONTROL,   3,       "R 0A00, W 0A00=0002, connect, ",  DEVICE_ACCESS_STATUS_READWRITE},
        {DEVICE_ACCESS_EXCLUSIVE, 0x10004, "R 0A00, W 0A00=10007, connect, ", DEVICE_ACCESS_STATUS_READWRITE},
    };
    for (const auto& row : cases) {
        Renew();
        m_camera->m_registers[0x0A00] = row.ccp;
        ASSERT_EQ(0, Open(row.flags));
        const bool controls = !row.taken.empty();
        EXPECT_EQ(row.taken + "R 093C, R 0940, R 0934, R 0954, W 0954=0013, R 0958, T 500", Accesses());
        EXPECT_EQ(row.status, Info<int>(DEVICE_INFO_ACCESS_STATUS, INFO_DATATYPE_INT32));
        EXPECT_EQ(controls, Info<bool>(DEVICE_INFO_IS_CONNECTED, INFO_DATATYPE_BOOL8));
        EXPECT_EQ(0x100000002u, Info<unsigned long>(DEVICE_INFO_TIMESTAMP_FREQUENCY, INFO_DATATYPE_UINT64));
        EXPECT_EQ(0, m_device->Close());
        EXPECT_LE(m_camera->m_beats.size(), controls ? 1u : 0u);
    }
    EXPECT_THAT(Logged(), IsEmpty());
    Renew();
    for (const int flags : {-1, 5}) {
        EXPECT_EQ(GC_ERR_INVALID_PARAMETER, Open(flags));
    }
    EXPECT_EQ("", Accesses());
}

// A time-out of 0, or one that no socket takes, would wait for ever or fail a camera that is taken already.
TEST_F(DeviceTest, OpensWithoutRegistersThatItDoesNotNeed)
{
    const struct
    {
        const char* failing;
        std::map<unsigned, unsigned> registers;
        const char* accesses;
    } cases[] = {
        {"R 093C", {},                                  "R 093C, R 0934, R 0954, W 0954=0013, R 0958, T 500"        },
        {"R 0954", {},                                  "R 093C, R 0940, R 0934, R 0954, W 0954=0002, R 0958, T 500"},
        {"W 0954", {},                                  "R 093C, R 0940, R 0934, R 0954, W 0954=0013, R 0958, T 500"},
        {"R 0958", {{0x0934, 0}},                       "R 093C, R 0940, R 0934, R 0958, T 200"                     },
        {"",       {{0x0934, 0}, {0x0958, 0}},          "R 093C, R 0940, R 0934, R 0958, T 200"                     },
        {"",       {{0x0934, 0}, {0x0958, 0xFFFFFFFF}}, "R 093C, R 0940, R 0934, R 0958, T 2147483647"              },
    };
    for (const auto& row : cases) {
        Renew();
        for (const auto& [address, value] : row.registers) {
            m_camera->m_registers[address] = value;
        }
        m_camera->m_failing[row.failing] = kRefused;
        EXPECT_EQ(0, Open(DEVICE_ACCESS_READONLY));
        EXPECT_EQ(row.accesses, Accesses());
    }
    EXPECT_THAT(Logged(), ElementsAre("anonymous::GetTimestampTickFrequency ReadReg  failed with: -1005",
                                      "DeviceGev::Open GetTimestampTickFrequency failed with: -1005",
                                      "DeviceGev::Open reading sk_gvcpConfigAddress failed with: -1005",
                                      "DeviceGev::Open writing sk_gvcpConfigAddress failed with: -1005",
                                      "DeviceGev::Open reading sk_pendingTimeoutAddress failed with: -1005"));
}

// What owns the camera by then stays, everything else goes: no socket may leak with each refused open.
TEST_F(DeviceTest, FailedOpenLeavesOnlyARunningHeartbeat)
{
    const struct
    {
        const char* failing;
        int code;
        const char* text;
        bool keepsHeartbeat;
    } cases[] = {
        {"R 0A00",  kRefused,  ": failed to read CCP (0x0A00) register",             false},
        {"W 0A00",  kRefused,  ": failed to write to CCP (0x0A00) register",         false},
        {"connect", GC_ERR_IO, ": failed to set the device state to connected",      true },
        {"R 0934",  kRefused,  ": failed to read GVCP Capability (0x0934) register", true },
        {"T",       GC_ERR_IO, ": GenTL::GC_ERR_IO(-1010)",                          true },
    };
    for (const auto& row : cases) {
        Renew();
        m_camera->m_registers[kHeartbeat] = 2;
        m_camera->m_failing[row.failing] = row.code;
        EXPECT_EQ(row.code, Open(DEVICE_ACCESS_CONTROL));
        EXPECT_THAT(NewestError(), AllOf(HasSubstr("Open():"), EndsWith(row.text)));
        unsigned count = 1;
        EXPECT_EQ(0, m_device->GetNumDataStreams(&count));
        EXPECT_EQ(0u, count);

        Accesses();
        m_device.reset();
        EXPECT_EQ(row.keepsHeartbeat ? "" : "close", Accesses());
        if (row.keepsHeartbeat) {
            EXPECT_EQ(2u, m_camera->m_registers[0x0A00]);
            EXPECT_THAT(m_camera->NextBeats(4), Contains("W 0938=0002"));
            m_camera->Locked([this] { m_camera->m_registers[kHeartbeat] = kNever; });
            static auto& kept = *new std::vector<std::unique_ptr<Camera>>();  // its thread outlives the test
            kept.push_back(std::move(m_camera));
        }
    }
    EXPECT_THAT(Logged(), IsSupersetOf({"DeviceGev::Open ReadReg address  0x0A00 failed with: -1005",
                                        "DeviceGev::Open ConfigureDeviceTimeout failed with: -1010"}));
}

TEST_F(DeviceTest, StreamThatCannotBeMadeFailsTheOpen)
{
    m_device = std::make_unique<DeviceGev>(m_camera.get(), "if", &m_parent, nullptr);
    Accesses();
    EXPECT_EQ(GC_ERR_OUT_OF_MEMORY, Open(DEVICE_ACCESS_CONTROL));
    EXPECT_THAT(NewestError(), EndsWith(": failed to initialize streams"));
    const auto logged = Logged();
    EXPECT_THAT(logged, Contains(StartsWith("DeviceGev::Open exception creating stream = ")));
    EXPECT_THAT(logged, Contains("DeviceGev::Open get multi-cast state failed with: -1021"));
    EXPECT_EQ("", Accesses());
}

// ---- Closing

TEST_F(DeviceTest, CloseGoesOnWhateverFails)
{
    const struct
    {
        std::map<std::string, int> failing;
        int result;
        std::string write;
    } cases[] = {
        {{},                                           0,         "W 0A00=0104"},
        {{{"R 0A00", kRefused}},                       0,         "W 0A00=0000"},
        {{{"W 0A00", kRefused}, {"close", GC_ERR_IO}}, kRefused,  "W 0A00=0104"},
        {{{"close", GC_ERR_IO}},                       GC_ERR_IO, "W 0A00=0104"},
    };
    for (const auto& row : cases) {
        g_openedDevicesRegistry.AddInterfaceEntry("if", &m_parent);
        Renew();
        m_camera->m_registers[0x0A00] = 0x0104;
        ASSERT_EQ(0, Open(DEVICE_ACCESS_EXCLUSIVE));
        ASSERT_EQ(0, g_openedDevicesRegistry.AddDeviceEntry("if", "S123", &m_parent));
        void* handles[3] = {};
        ASSERT_EQ(0, m_device->GetPort(&handles[0]));
        ASSERT_EQ(0, m_device->GetPort(&handles[1]));
        ASSERT_EQ(0, m_device->OpenDataStream("0", &handles[2]));
        m_camera->Locked([&] { m_camera->m_failing = row.failing; });
        Accesses();
        EXPECT_EQ(row.result, m_device->Close());
        EXPECT_EQ("R 0A00, " + row.write + ", close", Accesses());
        EXPECT_FALSE(g_openedDevicesRegistry.IsDeviceAlreadyOpen("S123"));
        for (void* handle : handles) {
            EXPECT_TRUE(CheckHandle(handle) != 0 || CastHandle(handle) == nullptr) << "names what is gone";
        }
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
    m_camera->Locked([this] { m_camera->m_failing["R 0938"] = kRefused; });
    m_camera->NextBeats(1);  // may have begun before
    EXPECT_THAT(m_camera->NextBeats(4), Each(std::string("R 0938")));
    m_camera->Locked([this] {
        m_camera->m_failing.clear();
        m_camera->m_failing["W 0938"] = kRefused;
    });
    EXPECT_THAT(m_camera->NextBeats(6), Contains("W 0938=0004"));
    EXPECT_THAT(m_camera->NextBeats(4), Contains("W 0938=0004")) << "after a failed write";
    EXPECT_THAT(Logged(), IsSupersetOf({"anonymous::HeartbeatThread ReadReg  failed with : -1005: -1005",
                                        "anonymous::HeartbeatThread WriteReg  failed with: -1005"}));
    ThreadPriority::m_priorityHeartbeatThread = 1;
}

TEST_F(HeartbeatTest, EndsWithoutTheFirstRead)
{
    m_camera->m_failing["R 0938"] = kRefused;
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
    char text[60];
    size = sizeof text;
    EXPECT_EQ(0, m_device->GetInfo(DEVICE_INFO_DISPLAYNAME, &type, text, &size));
    EXPECT_STREQ("Unknown Model Name ( Unknown Serial Number ) ", text);
    EXPECT_THAT(Logged(), Contains("DeviceGev::DeviceGev could not get user defined name: -1006"));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, m_device->GetInfo(DEVICE_INFO_IS_CONNECTED, &type, nullptr, &size));
}

TEST_F(DeviceTest, StreamsGoByTheirNumber)
{
    ASSERT_EQ(0, Open(DEVICE_ACCESS_READONLY));
    char id[2] = {};
    std::size_t size = 1;
    EXPECT_EQ(GC_ERR_BUFFER_TOO_SMALL, m_device->GetDataStreamID(0, id, &size));
    EXPECT_EQ(0, m_device->GetDataStreamID(1, nullptr, &size));
    EXPECT_EQ(2u, size);
    EXPECT_EQ(GC_ERR_INVALID_INDEX, m_device->GetDataStreamID(2, id, &size));

    void* hStream = nullptr;
    for (const char* wrong : {"", "x0", "-0", " 0", "2", "4294967296", "99999999999999999999"}) {
        EXPECT_EQ(GC_ERR_INVALID_ID, m_device->OpenDataStream(wrong, &hStream)) << wrong;
        EXPECT_THAT(NewestError(), EndsWith(std::string(": ") + wrong + " is not a valid ID"));
    }
    EXPECT_EQ(nullptr, hStream);
    for (const char* right : {"0x", "1x"}) {
        ASSERT_EQ(0, m_device->OpenDataStream(right, &hStream));
        EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, m_device->OpenDataStream(right, &hStream));
    }
}

TEST_F(DeviceTest, NullArgumentsAndOtherEventsAreRefused)
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
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, m_device->RegisterEvent(EVENT_NEW_BUFFER, &handle));
    EXPECT_THAT(NewestError(), EndsWith(": only EVENT_REMOTE_DEVICE is implemented"));
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, m_device->UnregisterEvent(EVENT_NEW_BUFFER));
    EXPECT_THAT(NewestError(), EndsWith(": only GenTL::EVENT_REMOTE_DEVICE is implemented"));
}

// ---- The camera's port

TEST_F(DeviceTest, TransfersAreCutToWhatACommandCarries)
{
    const struct
    {
        unsigned capabilities;  // 2: the camera takes WRITEMEM
        long mechanism;
        unsigned long address;
        unsigned long size;
        const char* reads;
        const char* writes;
        unsigned long written;
    } cases[] = {
        {0, 1, 0x1000,     1073, "M 1000+536, M 1218+536, M 1430+1", "N 1000+536, N 1218+536, N 1430+1", 1073},
        {0, 1, 0x1000,     1072, "M 1000+536, M 1218+536",           "N 1000+536, N 1218+536",           1072},
        {0, 1, 0x1000,     0,    "M 1000+0",                         "N 1000+0",                         0   },
        {0, 1, 0xFFFFFFFF, 1,    "M FFFFFFFF+1",                     "N FFFFFFFF+1",                     1   },
        {2, 0, 0x1001,     537,  "M 1001+536, M 1219+1",             "N 1001+536, N 1219+1",             537 },
        {0, 0, 0x1000,     6,    "M 1000+6",                         "B 1000+1",                         4   },
        {0, 0, 0x1000,     600,  "M 1000+536, M 1218+64",            "B 1000+67, B 110C+67, B 1218+16",  600 },
    };
    for (const auto& row : cases) {
        RemoteDeviceGev port = Port(row.capabilities, row.mechanism);
        std::vector<char> memory(row.size + 1);  // an odd address: nothing may assume alignment
        char* bytes = memory.data() + 1;
        unsigned long size = row.size;
        Accesses();
        EXPECT_EQ(0, port.ReadPort(row.address, bytes, &size));
        EXPECT_EQ(row.reads, Accesses());
        m_camera->m_written.clear();
        EXPECT_EQ(0, port.WritePort(row.address, bytes, &size));
        EXPECT_EQ(row.writes, Accesses());
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
            EXPECT_EQ("", Accesses());
        }
    }
    std::size_t size = 1073;
    RemoteDeviceGev port = Port(0, 1);
    m_camera->m_failing["M 1218"] = GC_ERR_TIMEOUT;
    Accesses();
    EXPECT_EQ(GC_ERR_TIMEOUT, port.ReadPort(0x1000, bytes, &size));
    EXPECT_EQ("M 1000+536, M 1218+536", Accesses());
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
                Contains("RemoteDeviceGev::ReadPort  m_endiannessMechanism is not set to valid value"));
}

TEST_F(DeviceTest, PortDescriptionComesFromTheDevice)
{
    m_camera->m_registers[0x0D04] = 0x20000000;
    ASSERT_EQ(0, Open(DEVICE_ACCESS_READONLY));
    void* hPort = nullptr;
    ASSERT_EQ(0, m_device->GetPort(&hPort));
    char text[8];
    int type = 0;
    std::size_t size = 0;
    for (const auto& [command, expected] :
         {std::pair(PORT_INFO_ID, "S123"), std::pair(PORT_INFO_MODULE, "Device"),
          std::pair(PORT_INFO_PORTNAME, "Device")}) {
        size = sizeof text;
        EXPECT_EQ(0, CastHandle(hPort)->GetPortInfo(command, &type, text, &size));
        EXPECT_STREQ(expected, text);
    }
    bool isBigEndian = false;
    size = sizeof isBigEndian;
    EXPECT_EQ(0, CastHandle(hPort)->GetPortInfo(PORT_INFO_BIG_ENDIAN, &type, &isBigEndian, &size));
    EXPECT_TRUE(isBigEndian);
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
        EXPECT_EQ("M 0200+536", Accesses());
    }
    std::size_t size = 0;
    m_camera->m_failing["M 0200"] = GC_ERR_TIMEOUT;
    EXPECT_EQ(0, port.GetPortURL(nullptr, &size));
    EXPECT_EQ("M 0200+536, M 0400+536", Accesses());
    m_camera->m_failing["M 0400"] = GC_ERR_TIMEOUT;
    EXPECT_EQ(GC_ERR_TIMEOUT, port.GetPortURL(nullptr, &size));
}

TEST_F(DeviceTest, ManifestEntriesAreThoseThatWereRead)
{
    RemoteDeviceGev port = Port(0x04000000);
    int type = 0;
    std::size_t size = 0;
    EXPECT_EQ(GC_ERR_INVALID_INDEX, port.GetPortURLInfo(0, URL_INFO_URL, &type, nullptr, &size));
    for (unsigned word = 0x9000; word < 0x9208; word += 4) {
        m_camera->m_registers[word] = 0xFFFFFFFF;
    }
    m_camera->m_registers[0x9010] = 1u << 26 | 2u << 20 | 3u << 14 | 4u << 8 | 5u << 2 | 3;
    m_camera->m_registers[0x9014] = 0x8000F000;
    unsigned count = 1;
    EXPECT_EQ(0, Port().GetNumPortURLs(&count));
    EXPECT_EQ(0u, count) << "without the capability";
    ASSERT_EQ(0, port.GetNumPortURLs(&count));
    EXPECT_EQ(63u, count);
    std::vector<long> numbers;
    for (const int command : {URL_INFO_FILE_VER_MAJOR, URL_INFO_FILE_VER_MINOR, URL_INFO_FILE_VER_SUBMINOR,
                              URL_INFO_SCHEMA_VER_MAJOR, URL_INFO_SCHEMA_VER_MINOR, URL_INFO_SCHEME,
                              URL_INFO_FILE_REGISTER_ADDRESS}) {
        size = sizeof(long);
        EXPECT_EQ(0, port.GetPortURLInfo(1, command, &type, &numbers.emplace_back(), &size)) << command;
    }
    EXPECT_THAT(numbers, ElementsAre(1, 2, 3, 4, 5, 0, 0x8000F000));
    EXPECT_EQ(INFO_DATATYPE_UINT64, type);
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, port.GetPortURLInfo(1, URL_INFO_FILE_SIZE, &type, nullptr, &size));
    EXPECT_EQ(GC_ERR_INVALID_INDEX, port.GetPortURLInfo(63, URL_INFO_URL, &type, nullptr, &size));

    m_camera->m_text = "Local:a.xml";
    Accesses();
    EXPECT_EQ(0, port.GetPortURLInfo(1, URL_INFO_URL, &type, nullptr, &size));
    EXPECT_EQ(13u, size);
    EXPECT_EQ(0, port.GetPortURLInfo(62, URL_INFO_URL, &type, nullptr, &size));
    EXPECT_EQ("M 8000F000+536, M FFFFFFFF+536", Accesses());

    m_camera->m_failing["R 9008"] = kRefused;
    EXPECT_EQ(kRefused, port.GetNumPortURLs(&count));
    EXPECT_EQ(63u, count);
}

}  // namespace
