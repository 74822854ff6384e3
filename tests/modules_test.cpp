/// The module tree over a scripted control layer: ports, System, Interface, and the record of what is open.
#include "LogConfigFile.h"
#include "ScriptedHal.h"
#include "device/ProtectedDeviceRegistry.h"
#include "frame/Error.h"
#include "frame/GenTLHandle.h"
#include "modules/FileUtility.h"
#include "modules/InterfaceGev.h"
#include "modules/System.h"
#include "modules/ThreadPriority.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <pthread.h>
#include <sched.h>

#include <climits>
#include <future>
#include <thread>
#include <type_traits>

using namespace GenTL;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

namespace {

// ---- Errors and info answers

struct Line
{
    int code;
    std::string text;
};

/// The thread's error stack, newest first, and forgets it.
std::vector<Line> TakeStack()
{
    Error e;
    ErrorCache::GetErrorCache()->Pop(e);
    std::vector<Line> lines(e.NumErrors());
    std::string name;
    for (Line& line : lines) {
        e.PopError(line.code, name, line.text);
    }
    return lines;
}

/// The call has just failed with this one line, raised in the name of function.
void ExpectRaised(int code, int answered, const std::string& function, const std::string& text)
{
    SCOPED_TRACE(text);
    EXPECT_EQ(code, answered);
    const std::vector<Line> stack = TakeStack();
    ASSERT_THAT(stack, SizeIs(1));
    EXPECT_EQ(code, stack[0].code);
    EXPECT_THAT(stack[0].text, StartsWith(function + "():"));
    EXPECT_THAT(stack[0].text, EndsWith(": " + text));
}

/// A text or a number, in the info type that goes with T.
template <typename Get, typename T>
void ExpectInfo(Get get, int command, const T& value)
{
    constexpr int kType = std::is_same_v<T, int>        ? INFO_DATATYPE_INT32
                          : std::is_same_v<T, unsigned> ? INFO_DATATYPE_UINT32
                          : std::is_same_v<T, long>     ? INFO_DATATYPE_INT64
                          : std::is_same_v<T, bool>     ? INFO_DATATYPE_BOOL8
                                                        : INFO_DATATYPE_STRING;
    std::string expected;
    if constexpr (kType == INFO_DATATYPE_STRING) {
        expected = value + std::string(1, '\0');
    } else {
        expected.assign(reinterpret_cast<const char*>(&value), sizeof value);
    }
    int type = -1;
    std::string bytes(200, 'x');
    unsigned long size = bytes.size();
    EXPECT_EQ(0, get(command, &type, bytes.data(), &size)) << command;
    EXPECT_EQ(kType, type) << command;
    EXPECT_EQ(expected, bytes.substr(0, size)) << command;
}

// ---- The tree

class Modules : public testing::Test
{
protected:
    void SetUp() override
    {
        WriteLogConfig();
        ASSERT_EQ(0, GCInitLib());
        m_system = new System(new ScriptedHal(m_hal));
        AllocateHandle(&m_hTL, static_cast<ISystem*>(m_system));
        ASSERT_EQ(0, m_system->Open());
    }
    void TearDown() override
    {
        CloseSystem();
        GCCloseLib();
    }
    int CloseSystem()
    {
        if (m_system == nullptr) {
            return 0;
        }
        const int code = m_system->Close();
        delete std::exchange(m_system, nullptr);
        DeleteHandle(m_hTL);
        return code;
    }
    void* OpenInterface(std::size_t index = 0)
    {
        void* hIface = nullptr;
        EXPECT_EQ(0, m_system->OpenInterface(m_hal.interfaces[index].c_str(), m_hTL, &hIface));
        return hIface;
    }
    static InterfaceGev& ToInterface(void* hIface)
    {
        return dynamic_cast<InterfaceGev&>(*CastHandle(hIface));
    }

    HalScript m_hal;
    System* m_system = nullptr;
    void* m_hTL = nullptr;
};

TEST_F(Modules, PortsDescribeThemselves)
{
    void* hPort = m_hTL;
    const auto get = [&](int command, int* type, void* buffer, unsigned long* size) {
        return GCGetPortInfo(hPort, command, type, buffer, size);
    };
    const char* const texts[] = {"NORVO_GenTL_1_5", "Norvo Imaging Inc", "GenTL Producer", "GEV", "TLSystem"};
    for (int command = PORT_INFO_ID; command <= PORT_INFO_MODULE; ++command) {
        ExpectInfo(get, command, texts[command]);
    }
    const bool flags[] = {true, false, true, true, false, false};
    for (int i = 0; i < 6; ++i) {
        ExpectInfo(get, PORT_INFO_LITTLE_ENDIAN + i, flags[i]);
    }
    ExpectInfo(get, PORT_INFO_VERSION, "0.1.43.0");
    ExpectInfo(get, PORT_INFO_PORTNAME, "TLPort");
    EXPECT_EQ(GC_ERR_INVALID_INDEX, get(13, nullptr, nullptr, nullptr));

    hPort = OpenInterface();
    ExpectInfo(get, PORT_INFO_ID, "0000c0a80101");
    ExpectInfo(get, PORT_INFO_MODULE, "TLInterface");
    ExpectInfo(get, PORT_INFO_PORTNAME, "InterfacePort");
}

// As far as sizes go the URL ends in two NULs, and nothing is written behind them.
TEST_F(Modules, UrlEndsInTwoNulsAndInfosTellItAndTheSchema)
{
    unsigned long size = 0;
    ASSERT_EQ(0, m_system->GetPortURL(nullptr, &size));
    std::string url(size + 1, 'x');
    unsigned long less = size - 1;
    ExpectRaised(
        GC_ERR_BUFFER_TOO_SMALL, m_system->GetPortURL(url.data(), &less), "GetPortURL",
        "*piSize=" + std::to_string(size - 1) + " < len=" + std::to_string(size) + ". iSize must be >= len");
    EXPECT_EQ(size - 1, less);
    ASSERT_EQ(0, m_system->GetPortURL(url.data(), &size));
    EXPECT_EQ(url.size() - 1, size);
    EXPECT_THAT(url, EndsWith(std::string("=1.0.0\0\0x", 9)));

    const auto get = [&](int command, int* type, void* buffer, unsigned long* bytes) {
        return m_system->GetPortURLInfo(0, command, type, buffer, bytes);
    };
    ExpectInfo(get, URL_INFO_SCHEMA_VER_MAJOR, 1);
    ExpectInfo(get, URL_INFO_SCHEMA_VER_MINOR, 0);
    ExpectInfo(get, URL_INFO_URL, url.substr(0, size - 1));
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, get(URL_INFO_URL, nullptr, url.data(), &size));
    ExpectRaised(GC_ERR_NOT_IMPLEMENTED, get(URL_INFO_FILE_SIZE, nullptr, nullptr, nullptr), "GetPortURLInfo",
                 "URL_INFO_CMD URL_INFO_FILE_SIZE is not implemented");
    EXPECT_EQ(GC_ERR_INVALID_INDEX, get(11, nullptr, nullptr, nullptr));
    EXPECT_EQ(GC_ERR_INVALID_INDEX, m_system->GetPortURLInfo(1, URL_INFO_URL, nullptr, nullptr, &size));
}

TEST_F(Modules, StackedAccessStopsAtTheFirstFailure)
{
    constexpr unsigned long kSelector = 0x1700;
    for (const auto stacked : {GCWritePortStacked, GCReadPortStacked}) {
        char data[3][16] = {"\1", "", ""};
        // The published entry is packed: a consumer's need not be aligned.
        char room[1 + 3 * sizeof(S_PORT_REGISTER_STACK_ENTRY)];
        auto* entries = reinterpret_cast<S_PORT_REGISTER_STACK_ENTRY*>(room + 1);
        for (unsigned i = 0; i < 3; ++i) {
            entries[i] = {i == 1 ? 0x1UL : kSelector, data[i], 16};
        }
        unsigned long count = 3;
        EXPECT_EQ(GC_ERR_INVALID_ADDRESS, stacked(m_hTL, entries, &count));
        EXPECT_EQ(3U, count);
        EXPECT_THAT(TakeStack(), SizeIs(1));
        const unsigned long sizes[] = {entries[0].Size, entries[1].Size, entries[2].Size};
        EXPECT_THAT(sizes, ElementsAre(8, 16, 16));
        EXPECT_EQ(1, data[0][0]) << "read as written; the third entry would have written 0";
        EXPECT_EQ(0, data[2][0]);

        for (count = 0; count < 2; ++count) {
            EXPECT_EQ(0, stacked(m_hTL, entries, &count));
        }
        EXPECT_EQ(GC_ERR_INVALID_PARAMETER, stacked(m_hTL, nullptr, &count));
        EXPECT_EQ(GC_ERR_INVALID_PARAMETER, stacked(m_hTL, entries, nullptr));
    }
}

TEST_F(Modules, NullArgumentsAreRefused)
{
    InterfaceGev& iface = ToInterface(OpenInterface());
    ASSERT_EQ(0, iface.UpdateDeviceList(nullptr, 1));
    void* handle = nullptr;
    const char* id = m_hal.interfaces[0].c_str();
    unsigned long size = 0;
    const int codes[] = {
        m_system->GetNumInterfaces(nullptr),
        m_system->GetInterfaceID(0, nullptr, nullptr),
        m_system->GetInterfaceInfo(nullptr, 0, nullptr, nullptr, &size),
        m_system->OpenInterface(nullptr, m_hTL, &handle),
        m_system->OpenInterface(id, m_hTL, nullptr),
        m_system->UpdateInterfaceList(nullptr, 0),
        m_system->GetNumPortURLs(nullptr),
        m_system->GetPortURL(nullptr, nullptr),
        iface.GetParentTL(nullptr),
        iface.GetNumDevices(nullptr),
        iface.GetDeviceInfo(nullptr, 0, nullptr, nullptr, &size),
        iface.OpenDevice(nullptr, 3, &handle, nullptr),
        iface.UpdateDeviceList(nullptr, 0),
        iface.ForceIp(0, 1, 1, 1),
        iface.ForceIp(1, 0, 1, 1),
        iface.ForceIp(1, 1, 0, 1),
    };
    EXPECT_THAT(codes, Each(GC_ERR_INVALID_PARAMETER));
    ExpectRaised(GC_ERR_INVALID_PARAMETER, iface.OpenDevice("CAM1", 3, nullptr, nullptr), "OpenDevice",
                 "pDevHandle==nullptr");
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, m_system->GetActionCommandDeviceKey(nullptr));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, m_system->SetActionCommandExecuteTime(nullptr));
}

TEST_F(Modules, InterfacesAreFoundByIndexAndId)
{
    const auto getSystem = [&](int command, int* type, void* buffer, unsigned long* size) {
        return m_system->GetInterfaceInfo("00000a000001", command, type, buffer, size);
    };
    ExpectInfo(getSystem, INTERFACE_INFO_DISPLAYNAME, "GigE Interface ( MAC:00000a000001 )");
    ExpectInfo(getSystem, INTERFACE_INFO_TLTYPE, "GEV");
    EXPECT_EQ(GC_ERR_INVALID_INDEX, getSystem(3, nullptr, nullptr, nullptr));
    EXPECT_EQ(GC_ERR_INVALID_ID, m_system->GetInterfaceInfo("0000", 0, nullptr, nullptr, nullptr));

    std::string id(14, 'x');
    unsigned long size = 12;
    ExpectRaised(GC_ERR_BUFFER_TOO_SMALL, m_system->GetInterfaceID(1, id.data(), &size), "GetInterfaceID",
                 "*piSize=12 < idLen=13. iSize must be >= idLen");
    size = 14;
    EXPECT_EQ(0, m_system->GetInterfaceID(1, id.data(), &size));
    EXPECT_EQ(13U, size);
    EXPECT_EQ(std::string("00000a000001\0x", 14), id);
    ExpectRaised(GC_ERR_INVALID_INDEX, m_system->GetInterfaceID(2, nullptr, nullptr), "GetInterfaceID",
                 "interface index must between 0 <= and < 2");

    void* hIface = nullptr;
    ExpectRaised(GC_ERR_INVALID_ID, m_system->OpenInterface("nic", m_hTL, &hIface), "OpenInterface",
                 "interface ID=nic not found in the list of interfaces.\n"
                 "\t\t\t\t\t  The list of interfaces has the following interface(s):\n"
                 "\t\t\t\t\t\t0000c0a80101\n\t\t\t\t\t\t00000a000001\n");
    EXPECT_THAT(m_hal.adapters, IsEmpty());

    InterfaceGev& iface = ToInterface(OpenInterface(1));
    void* parent = nullptr;
    EXPECT_EQ(0, iface.GetParentTL(&parent));
    EXPECT_EQ(m_hTL, parent);
    m_hal.numbersCode = GC_ERR_IO;
    ExpectRaised(GC_ERR_IO, iface.GetInfo(INTERFACE_INFO_GEV_SUBNET_MASK, nullptr, nullptr, nullptr),
                 "GetInfo", "GenTL::INTERFACE_INFO_GEV_SUBNET_MASK is not implemented");
}

TEST_F(Modules, InterfaceListChangesByContentNotByOrder)
{
    const std::pair<std::vector<std::string>, bool> updates[] = {
        {{"00000a000001", "0000c0a80101"}, false},
        {{"00000a000001", "00000a000001"}, true },
        {{},                               true },
    };
    bool isChanged = false;
    for (const auto& [interfaces, isExpected] : updates) {
        m_hal.interfaces = interfaces;
        EXPECT_EQ(0, m_system->UpdateInterfaceList(&isChanged, GENTL_INFINITE));
        EXPECT_EQ(isExpected, isChanged);
    }
    void* hIface = nullptr;
    EXPECT_EQ(GC_ERR_INVALID_ID, m_system->OpenInterface("00000a000001", m_hTL, &hIface));
    EXPECT_THAT(TakeStack()[0].text,
                EndsWith("The list of interfaces is empty. No interfaces is connected this machine."));

    // A failure changes nothing.
    m_hal.interfaces = {"nic"};
    m_hal.interfacesCode = GC_ERR_ERROR;
    isChanged = false;
    EXPECT_EQ(GC_ERR_ERROR, m_system->UpdateInterfaceList(&isChanged, 1));
    EXPECT_FALSE(isChanged);
    unsigned count = 7;
    EXPECT_EQ(0, m_system->GetNumInterfaces(&count));
    EXPECT_EQ(0U, count);
}

TEST_F(Modules, FailedSystemGivesTheControlLayerUp)
{
    HalScript hal;
    hal.interfacesCode = GC_ERR_ERROR;
    System system(new ScriptedHal(hal));
    EXPECT_EQ(GC_ERR_ERROR, system.Open());
    EXPECT_TRUE(hal.isDeleted);
}

TEST_F(Modules, SecondOpenLeavesTheFirstInterfaceAlone)
{
    void* hFirst = OpenInterface();
    void* hSecond = nullptr;
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, m_system->OpenInterface(m_hal.interfaces[0].c_str(), m_hTL, &hSecond));
    const std::vector<Line> stack = TakeStack();
    ASSERT_THAT(stack, SizeIs(3));
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, stack[0].code);
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, stack[1].code);
    EXPECT_EQ("received a non-GenTLHandle*; hHandle was not freed", stack[2].text);

    EXPECT_EQ(hFirst, g_openedDevicesRegistry.PeekInterfaceEntry("0000c0a80101").handle);
    EXPECT_THAT(m_hal.closed, IsEmpty());
    // The stale result has lost its module; the first handle works, and its close lets the next one in.
    unsigned count = 0;
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, IFGetNumDevices(hSecond, &count));
    EXPECT_EQ(0, IFGetNumDevices(hFirst, &count));
    EXPECT_EQ(0, IFClose(hFirst));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, IFGetNumDevices(hFirst, &count));
    EXPECT_NE(nullptr, OpenInterface());
}

TEST_F(Modules, SystemClosesWhatIsOpenWhateverFails)
{
    m_hal.interfaces = {"a", "b", "c"};
    ASSERT_EQ(0, m_system->UpdateInterfaceList(nullptr, 1));
    for (std::size_t i = 0; i < 3; ++i) {
        OpenInterface(i);
    }
    m_hal.closeCodes = {
        {"a", GC_ERR_IO     },
        {"b", GC_ERR_TIMEOUT},
    };
    EXPECT_EQ(GC_ERR_TIMEOUT, CloseSystem());
    EXPECT_THAT(m_hal.closed, ElementsAre("a", "b", "c"));
    EXPECT_TRUE(m_hal.isDeleted);
    EXPECT_THAT(g_openedDevicesRegistry.AllInterfaceIDs(), IsEmpty());
    const std::vector<Line> stack = TakeStack();
    ASSERT_GE(stack.size(), 2U);
    EXPECT_EQ(GC_ERR_TIMEOUT, stack[0].code);
    EXPECT_THAT(stack[1].text, EndsWith("while closing the system, the interface b failed to close."));
}

TEST_F(Modules, DeviceListFollowsDiscoveryAndLeavesOpenDevicesAlone)
{
    InterfaceGev& iface = ToInterface(OpenInterface());
    char id[6] = "xxxxx";
    unsigned long size = sizeof id;
    ExpectRaised(GC_ERR_INVALID_INDEX, iface.GetDeviceID(0, id, &size), "GetDeviceID",
                 "iIndex==0 is invalid; iIndex must be 0 <= iIndex <=-1");

    const std::pair<Devices, bool> updates[] = {
        {{{"CAM1", 1}, {"CAM2", 2}}, true },
        {{{"CAM2", 2}, {"CAM1", 1}}, false},
        {{{"CAM2", 2}, {"CAM1", 3}}, true },
        {{{"CAM1", 3}},              true },
    };
    int device = 0;
    ASSERT_EQ(0, g_openedDevicesRegistry.AddDeviceEntry("0000c0a80101", "CAM2", &device));
    bool isChanged = false;
    for (const auto& [devices, isExpected] : updates) {
        m_hal.devices = devices;
        ASSERT_EQ(0, iface.UpdateDeviceList(&isChanged, 50));
        EXPECT_EQ(isExpected, isChanged);
    }
    EXPECT_EQ(50, m_hal.timeoutMs);
    ASSERT_EQ(0, iface.UpdateDeviceList(nullptr, GENTL_INFINITE));
    EXPECT_EQ(INT_MAX, m_hal.timeoutMs);
    // The camera that went away stays open.
    EXPECT_EQ(&device, g_openedDevicesRegistry.PeekDeviceEntry("CAM2").handle);

    m_hal.devices = {};
    m_hal.devicesCode = GC_ERR_IO;
    EXPECT_EQ(GC_ERR_IO, iface.UpdateDeviceList(nullptr, 50));
    unsigned count = 0;
    EXPECT_EQ(0, iface.GetNumDevices(&count));
    EXPECT_EQ(1U, count);

    size = 4;
    ExpectRaised(GC_ERR_BUFFER_TOO_SMALL, iface.GetDeviceID(0, id, &size), "GetDeviceID",
                 "*piSize=4 < idSize=5. *piSize must be >= idSize");
    size = sizeof id;
    EXPECT_EQ(0, iface.GetDeviceID(0, id, &size));
    EXPECT_EQ(5U, size);
    EXPECT_STREQ("CAM1", id);
}

TEST_F(Modules, CloseWaitsForARunningUpdate)
{
    void* hIface = OpenInterface();
    std::promise<void> isRunning;
    std::promise<void> mayEnd;
    m_hal.duringDiscovery = [&] {
        isRunning.set_value();
        mayEnd.get_future().wait();
    };
    InterfaceGev& iface = ToInterface(hIface);
    auto update = std::async(std::launch::async, [&] { return iface.UpdateDeviceList(nullptr, 1); });
    isRunning.get_future().wait();
    auto close = std::async(std::launch::async, [&] { return IFClose(hIface); });
    EXPECT_EQ(std::future_status::timeout, close.wait_for(std::chrono::milliseconds(100)));
    EXPECT_THAT(m_hal.closed, IsEmpty());
    mayEnd.set_value();
    EXPECT_EQ(0, update.get());
    EXPECT_EQ(0, close.get());
    EXPECT_THAT(m_hal.closed, SizeIs(1));
}

TEST_F(Modules, DeviceInfoComesFromTheRecord)
{
    InterfaceGev& iface = ToInterface(OpenInterface());
    const auto get = [&](int command, int* type, void* buffer, unsigned long* size) {
        return iface.GetDeviceInfo("CAM1", command, type, buffer, size);
    };
    ExpectInfo(get, DEVICE_INFO_TLTYPE, "GEV");
    ExpectInfo(get, DEVICE_INFO_DISPLAYNAME, "model CAM1 ( serial CAM1 ) ");
    ExpectInfo(get, DEVICE_INFO_VERSION, "version CAM1");
    ExpectInfo(get, DEVICE_INFO_GEV_MAC_ADDRESS, 0xFFEEDDCCBBAA);
    ExpectInfo(get, DEVICE_INFO_GEV_DEFAULT_GATEWAY, 0xC0A801FE);
    ExpectInfo(get, DEVICE_INFO_GEV_CONFIG_DHCP, true);
    ExpectInfo(get, DEVICE_INFO_GEV_CONFIG_PERSISTENT_IP, false);
    ExpectInfo(get, DEVICE_INFO_GEV_CONFIG_LLA, true);
    m_hal.serialCode = GC_ERR_INVALID_ID;
    ExpectInfo(get, DEVICE_INFO_DISPLAYNAME, "model CAM1 ( Unknown Serial Number ) ");
    m_hal.recordCode = GC_ERR_INVALID_ID;
    ExpectRaised(GC_ERR_INVALID_ID, get(DEVICE_INFO_ID, nullptr, nullptr, nullptr), "GetDeviceInfo",
                 "GenTL::DEVICE_INFO_ID is not implemented");
    EXPECT_EQ(GC_ERR_INVALID_ID, get(DEVICE_INFO_DISPLAYNAME, nullptr, nullptr, nullptr));
    EXPECT_EQ(GC_ERR_INVALID_ID, get(DEVICE_INFO_GEV_MAC_ADDRESS, nullptr, nullptr, nullptr));
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, get(DEVICE_INFO_ACCESS_STATUS, nullptr, nullptr, nullptr));
    EXPECT_EQ(GC_ERR_NOT_AVAILABLE, get(DEVICE_INFO_IS_CONNECTED, nullptr, nullptr, nullptr));
    EXPECT_EQ(GC_ERR_INVALID_INDEX, get(1001, nullptr, nullptr, nullptr));
}

TEST_F(Modules, DevicesOpenOnceAndOnlyWhenListed)
{
    InterfaceGev& iface = ToInterface(OpenInterface());
    void* hDevice = nullptr;
    ExpectRaised(GC_ERR_INVALID_ID, iface.OpenDevice("CAM1", DEVICE_ACCESS_CONTROL, &hDevice, nullptr),
                 "OpenDevice",
                 "device ID=CAM1 not found in the list of devices.\n"
                 "\t\t\t\t\t  The list of devices is empty. No devices is connected this interface.");
    ASSERT_EQ(0, iface.UpdateDeviceList(nullptr, 1));
    ExpectRaised(GC_ERR_INVALID_ID, iface.OpenDevice("CAM", DEVICE_ACCESS_CONTROL, &hDevice, nullptr),
                 "OpenDevice",
                 "device ID=CAM not found in the list of devices.\n"
                 "\t\t\t\t\t  The list of devices has the following device(s):\n"
                 "\t\t\t\t\t\tCAM1\n\t\t\t\t\t\tCAM2\n");
    // Open through whichever interface.
    int device = 0;
    OpenInterface(1);
    ASSERT_EQ(0, g_openedDevicesRegistry.AddDeviceEntry("00000a000001", "CAM2", &device));
    ExpectRaised(GC_ERR_RESOURCE_IN_USE, iface.OpenDevice("CAM2", DEVICE_ACCESS_CONTROL, &hDevice, nullptr),
                 "OpenDevice", "device ID=CAM2 is already open");
    EXPECT_THAT(m_hal.openedDevices, IsEmpty());

    // A device that fails to open leaves no handle and no row.
    m_hal.registerCode = GC_ERR_TIMEOUT;
    EXPECT_EQ(GC_ERR_TIMEOUT, iface.OpenDevice("CAM1", DEVICE_ACCESS_READONLY, &hDevice, nullptr));
    EXPECT_THAT(m_hal.openedDevices, ElementsAre("CAM1"));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, CheckHandle(hDevice));
    EXPECT_FALSE(g_openedDevicesRegistry.IsDeviceAlreadyOpen("CAM1"));
}

TEST_F(Modules, AnOpenDeviceOutlivesItsInterface)
{
    void* hIface = OpenInterface();
    ASSERT_EQ(0, ToInterface(hIface).UpdateDeviceList(nullptr, 1));
    void* hDevice = nullptr;
    ASSERT_EQ(0, IFOpenDevice(hIface, "CAM1", DEVICE_ACCESS_READONLY, &hDevice));
    EXPECT_EQ(hDevice, g_openedDevicesRegistry.PeekDeviceEntry("CAM1").handle);
    void* parent = nullptr;
    EXPECT_EQ(0, DevGetParentIF(hDevice, &parent));
    EXPECT_EQ(hIface, parent);
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, IFOpenDevice(hIface, "CAM1", DEVICE_ACCESS_READONLY, &parent));

    EXPECT_EQ(0, IFClose(hIface));
    EXPECT_EQ(0, m_hal.closedDevices);
    EXPECT_EQ(0, DevClose(hDevice));
    EXPECT_EQ(1, m_hal.closedDevices);

    // Closed while it opens: the interface has lost its row, and so the device doesn't stay.
    hIface = OpenInterface();
    ASSERT_EQ(0, ToInterface(hIface).UpdateDeviceList(nullptr, 1));
    g_openedDevicesRegistry.PopInterfaceEntry("0000c0a80101");
    EXPECT_EQ(0, IFOpenDevice(hIface, "CAM1", DEVICE_ACCESS_READONLY, &hDevice));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, DevClose(hDevice));
    EXPECT_EQ(2, m_hal.closedDevices);
    EXPECT_EQ(0, IFClose(hIface));
}

TEST_F(Modules, AnUnnamedInterfaceWorksAndABareOneRefuses)
{
    m_hal.idCode = GC_ERR_INVALID_HANDLE;
    InterfaceGev& iface = ToInterface(OpenInterface());
    const auto get = [&](int command, int* type, void* buffer, unsigned long* size) {
        return iface.GetInfo(command, type, buffer, size);
    };
    ExpectInfo(get, INTERFACE_INFO_ID, "Failed to Get InterfaceId");
    ExpectInfo(get, INTERFACE_INFO_DISPLAYNAME, "GigEInterface ( unknown MAC )");
    g_openedDevicesRegistry.PopInterfaceEntry("0000c0a80101");
    delete &iface;
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, Interface().Close());
}

// ---- What is open

TEST(Registry, KnowsEachDeviceOnceWhicheverItsInterface)
{
    ProtectedDeviceRegistry registry;
    int a = 0, b = 0, cam = 0;
    EXPECT_EQ(0, registry.AddInterfaceEntry("B", &b));
    EXPECT_EQ(0, registry.AddInterfaceEntry("A", &a));
    EXPECT_EQ(0, registry.AddDeviceEntry("A", "CAM", &cam));
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, registry.AddDeviceEntry("B", "CAM", &cam));
    EXPECT_EQ(nullptr, registry.PopDeviceEntry("CA").handle);
    EXPECT_EQ(&cam, registry.PopDeviceEntry("CAM").handle);
    EXPECT_EQ(0, registry.AddDeviceEntry("B", "CAM", &cam));
    EXPECT_THAT(registry.PopInterfaceEntry("B").devices, SizeIs(1));
    EXPECT_FALSE(registry.IsDeviceAlreadyOpen("CAM"));
}

// ---- The host

TEST(ThreadPriorities, SetThePolicyOfTheCaller)
{
    const int policies[] = {SCHED_IDLE, SCHED_OTHER, SCHED_BATCH, SCHED_RR};
    for (long value = 0; value < 4; ++value) {
        std::thread([value, policy = policies[value]] {
            const int code = ThreadPriority::ApplyThreadPrioritySetting(value);
            int now = -1;
            sched_param parameters{};
            ASSERT_EQ(0, pthread_getschedparam(pthread_self(), &now, &parameters));
            // The last needs a privilege; without it the thread stays as it was.
            EXPECT_TRUE(code == 0 || (value == 3 && code == GC_ERR_IO)) << code;
            EXPECT_EQ(code == 0 ? policy : SCHED_OTHER, now);
            EXPECT_EQ(code == 0 && value == 3 ? 20 : 0, parameters.sched_priority);
        }).join();
    }
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, ThreadPriority::ApplyThreadPrioritySetting(4));
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, ThreadPriority::ApplyThreadPrioritySetting(-1));
}

TEST(PortUrlOfAFile, TellsTheSizeItNeeds)
{
    const std::string url = "file:" + GetGenTLDirPath() + "xml/a.xml?SchemaVersion=1.0.0";
    std::vector<char> text(url.size() + 3, 'x');
    size_t size = 0;
    EXPECT_EQ(GC_ERR_BUFFER_TOO_SMALL, GetGenTLPortURL("a.xml", text.data(), &size));
    EXPECT_EQ(url.size() + 1, size);
    EXPECT_EQ('x', text[0]);
    size = url.size() + 2;
    EXPECT_EQ(0, GetGenTLPortURL("a.xml", text.data(), &size));
    EXPECT_EQ(url.size() + 1, size);
    EXPECT_EQ(url + '\0' + '\0' + 'x', std::string(text.begin(), text.end()));
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, GetGenTLPortURL("a.xml", nullptr, nullptr));
}

}  // namespace
