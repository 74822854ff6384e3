#include "modules/InterfaceGev.h"

#include "device/DeviceGev.h"
#include "device/ProtectedDeviceRegistry.h"
#include "frame/Error.h"
#include "frame/GenTLHandle.h"
#include "gev/IHALGev.h"
#include "log/GLogger.h"
#include "modules/FileUtility.h"
#include "xml/LocalXml.h"

#include <boost/thread/lock_guard.hpp>
#include <boost/thread/lock_types.hpp>
#include <boost/thread/thread.hpp>

#include <algorithm>
#include <iterator>
#include <limits>
#include <memory>
#include <utility>

namespace GenTL {
namespace {

using DeviceList = std::vector<std::tuple<std::string, unsigned int>>;

DeviceList Sorted(DeviceList list)
{
    std::sort(list.begin(), list.end());
    return list;
}

/// A new order is no change; a new address of a camera is one.
bool IsChanged(const DeviceList& now, const DeviceList& before)
{
    return Sorted(now) != Sorted(before);
}

std::string ListOfDevices(const DeviceList& devices)
{
    if (devices.empty()) {
        return "\t\t\t\t\t  The list of devices is empty. No devices is connected this interface.";
    }
    std::string text = "\t\t\t\t\t  The list of devices has the following device(s):\n";
    for (const auto& device : devices) {
        text += "\t\t\t\t\t\t" + std::get<0>(device) + "\n";
    }
    return text;
}

int RaiseNotImplemented(int code,
                        const std::string& name,
                        const char* function = __builtin_FUNCTION(),
                        int line = __builtin_LINE())
{
    return Raise(code, "GenTL::" + name + " is not implemented", function, line);
}

struct AdapterNumber
{
    int command;
    const char* name;
    int (IHALGev::*getter)(void*, long&);
};

constexpr AdapterNumber kAdapterNumbers[] = {
    {INTERFACE_INFO_GEV_MAC_ADDRESS,       "INTERFACE_INFO_GEV_MAC_ADDRESS",       &IHALGev::GetMACAddress},
    {INTERFACE_INFO_GEV_SUBNET_IP_ADDRESS, "INTERFACE_INFO_GEV_SUBNET_IP_ADDRESS", &IHALGev::GetIPAddress },
    {INTERFACE_INFO_GEV_SUBNET_MASK,       "INTERFACE_INFO_GEV_SUBNET_MASK",       &IHALGev::GetSubnetMask},
};

// What a discovery record tells, by the type of the answer.
template <typename Value>
struct RecordGetter
{
    int command;
    const char* name;
    int (IHALGev::*getter)(void*, const std::string&, Value&);
};

constexpr RecordGetter<std::string> kRecordTexts[] = {
    {DEVICE_INFO_ID,                "DEVICE_INFO_ID",                &IHALGev::GetSerialNumber   },
    {DEVICE_INFO_VENDOR,            "DEVICE_INFO_VENDOR",            &IHALGev::GetVendorName     },
    {DEVICE_INFO_MODEL,             "DEVICE_INFO_MODEL",             &IHALGev::GetModelName      },
    {DEVICE_INFO_USER_DEFINED_NAME, "DEVICE_INFO_USER_DEFINED_NAME", &IHALGev::GetUserDefinedName},
    {DEVICE_INFO_SERIAL_NUMBER,     "DEVICE_INFO_SERIAL_NUMBER",     &IHALGev::GetSerialNumber   },
    {DEVICE_INFO_VERSION,           "DEVICE_INFO_VERSION",           &IHALGev::GetDeviceVersion  },
};

/// Answered as unsigned 32-bit numbers.
constexpr RecordGetter<long> kRecordAddresses[] = {
    {DEVICE_INFO_GEV_IP_ADDRESS,      "DEVICE_INFO_GEV_IP_ADDRESS",      &IHALGev::GetDevIPAddress     },
    {DEVICE_INFO_GEV_SUBNET_MASK,     "DEVICE_INFO_GEV_SUBNET_MASK",     &IHALGev::GetDevSubnetMask    },
    {DEVICE_INFO_GEV_DEFAULT_GATEWAY, "DEVICE_INFO_GEV_DEFAULT_GATEWAY", &IHALGev::GetDevDefaultGateway},
};

/// Answered as 64-bit numbers.
constexpr RecordGetter<long> kRecordNumbers[] = {
    {DEVICE_INFO_GEV_MAC_ADDRESS, "DEVICE_INFO_GEV_MAC_ADDRESS", &IHALGev::GetDevMACAddress},
};

constexpr RecordGetter<bool> kRecordFlags[] = {
    {DEVICE_INFO_GEV_CONFIG_DHCP,          "DEVICE_INFO_GEV_CONFIG_DHCP",          &IHALGev::GetDevIpConfigDHCP},
    {DEVICE_INFO_GEV_CONFIG_PERSISTENT_IP, "DEVICE_INFO_GEV_CONFIG_PERSISTENT_IP",
     &IHALGev::GetDevIpConfigPersistentIp                                                                      },
    {DEVICE_INFO_GEV_CONFIG_LLA,           "DEVICE_INFO_GEV_CONFIG_LLA",           &IHALGev::GetDevIpConfigLLA },
    {DEVICE_INFO_IS_CONNECTED,             "DEVICE_INFO_IS_CONNECTED",             &IHALGev::IsConnected       },
};

template <typename Row, std::size_t size>
const Row* FindCommand(const Row (&rows)[size], int command)
{
    const auto* found = std::find_if(std::begin(rows), std::end(rows),
                                     [command](const Row& row) { return row.command == command; });
    return found != std::end(rows) ? found : nullptr;
}

}  // namespace

/// Keeps Close waiting while a discovery uses the adapter handle.
class InterfaceGev::RunningUpdate
{
public:
    explicit RunningUpdate(InterfaceGev& iface) : m_interface(iface)
    {
        const boost::lock_guard<boost::mutex> lock(m_interface.m_updateMutex);
        ++m_interface.m_runningUpdates;
    }
    RunningUpdate(const RunningUpdate&) = delete;
    RunningUpdate& operator=(const RunningUpdate&) = delete;
    ~RunningUpdate()
    {
        // Notified under the lock: the interface may be gone as soon as it is released.
        const boost::lock_guard<boost::mutex> lock(m_interface.m_updateMutex);
        --m_interface.m_runningUpdates;
        m_interface.m_updateEnded.notify_all();
    }

private:
    InterfaceGev& m_interface;
};

InterfaceGev::InterfaceGev(IHALGev* pHal, void* parent, void* adapterHandle)
    : m_pHwInterface(pHal), m_hAdapter(adapterHandle), m_parent(parent)
{
    std::string id;
    const int code = m_pHwInterface->GetInterfaceId(m_hAdapter, id);
    if (code == GC_ERR_SUCCESS) {
        m_portInfo.id = id;
        m_displayName = DisplayName(id);
    } else {
        GLogger::Error("GenTL::InterfaceGev::InterfaceGev failed set id", code);
        m_portInfo.id = "Failed to Get InterfaceId";
        m_displayName = "GigEInterface ( unknown MAC )";
    }
    m_urlInfo.schemaVersionMajor = 1;
}

std::string InterfaceGev::DisplayName(const std::string& id)
{
    return "GigE Interface ( MAC:" + id + " )";
}

int InterfaceGev::GetPortURL(char* sURL, unsigned long* piSize) const
{
    return AnswerLocalURL("SFNC_GenTLInterface_Reference_Version_1_0_0_Schema_1_1", kInterfaceXml.size(),
                          sURL, piSize);
}

int InterfaceGev::GetNumPortURLs(unsigned int* piNumURLs)
{
    return AnswerOneURL(piNumURLs);
}

int InterfaceGev::ReadPort(unsigned long iAddress, void* pBuffer, unsigned long* piSize)
{
    return m_registerMap.DispatchRead(iAddress, pBuffer, piSize);
}

int InterfaceGev::WritePort(unsigned long iAddress, const void* pBuffer, unsigned long* piSize)
{
    return m_registerMap.DispatchWrite(iAddress, pBuffer, piSize);
}

int InterfaceGev::RegisterEvent(int iEventID, void** phEvent)
{
    return BaseModule::RegisterEvent(iEventID, phEvent);
}
int InterfaceGev::UnregisterEvent(int iEventID)
{
    return BaseModule::UnregisterEvent(iEventID);
}

int InterfaceGev::GetPortURLInfo(
    unsigned int iURLIndex, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize)
{
    return BaseModule::GetPortURLInfo(iURLIndex, iInfoCmd, piType, pBuffer, piSize);
}

int InterfaceGev::ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries)
{
    return BaseModule::ReadPortStacked(pEntries, piNumEntries);
}

int InterfaceGev::WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries)
{
    return BaseModule::WritePortStacked(pEntries, piNumEntries);
}

int InterfaceGev::Open()
{
    return GC_ERR_SUCCESS;
}

int InterfaceGev::Close()
{
    {
        boost::unique_lock<boost::mutex> lock(m_updateMutex);
        const boost::this_thread::disable_interruption uninterrupted;
        while (m_runningUpdates > 0) {
            m_updateEnded.wait(lock);
        }
    }
    const int code = m_pHwInterface->CloseInterface(m_hAdapter);
    if (code != GC_ERR_SUCCESS) {
        AppendName(code);
    }
    if (!g_openedDevicesRegistry.PopInterfaceEntry(m_portInfo.id).devices.empty()) {
        KeepLibraryLoaded();  // their threads work on
    }
    return code == GC_ERR_SUCCESS ? code : AppendName(code);
}

int InterfaceGev::UpdateDeviceList(bool* pbChanged, unsigned long iTimeout)
{
    if (iTimeout == 0) {
        return Raise(GC_ERR_INVALID_PARAMETER, "input iTimeout==0");
    }
    const RunningUpdate running(*this);
    DeviceList devices;
    // An endless wait becomes the longest that the sockets know.
    constexpr unsigned long kLongestMs = std::numeric_limits<int>::max();
    const auto timeoutMs = static_cast<long>(std::min(iTimeout, kLongestMs));
    const int code = m_pHwInterface->GetDevices(m_hAdapter, devices, timeoutMs);
    if (code != GC_ERR_SUCCESS) {
        GLogger::Error("GenTL::InterfaceGev::UpdateDeviceList failed to update device list", code);
        return AppendName(code);
    }
    if (pbChanged != nullptr) {
        *pbChanged = IsChanged(devices, m_devices);
    }
    m_devices.swap(devices);
    return GC_ERR_SUCCESS;
}

int InterfaceGev::GetInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize)
{
    const AdapterNumber* number = FindCommand(kAdapterNumbers, iInfoCmd);
    if (number == nullptr) {
        return Interface::GetInfo(iInfoCmd, piType, pBuffer, piSize);
    }
    long value = 0;
    if (const int code = (m_pHwInterface->*number->getter)(m_hAdapter, value); code != GC_ERR_SUCCESS) {
        return RaiseNotImplemented(code, number->name);
    }
    return m_info.SetInfo(value, piType, pBuffer, piSize);
}

int InterfaceGev::GetParentTL(void** pParentTL) const
{
    if (pParentTL == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "pParentTL==nullptr");
    }
    *pParentTL = m_parent;
    return GC_ERR_SUCCESS;
}

int InterfaceGev::GetNumDevices(unsigned int* piNumDevices) const
{
    if (piNumDevices == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "piNumDevices==nullptr");
    }
    *piNumDevices = static_cast<unsigned int>(m_devices.size());
    return GC_ERR_SUCCESS;
}

int InterfaceGev::GetDeviceID(unsigned int iIndex, char* sID, unsigned long* piSize) const
{
    if (iIndex >= m_devices.size()) {
        // An empty list ends at -1.
        return Raise(GC_ERR_INVALID_INDEX, "iIndex==" + std::to_string(iIndex) +
                                               " is invalid; iIndex must be 0 <= iIndex <=" +
                                               std::to_string(static_cast<long>(m_devices.size()) - 1));
    }
    const std::string& id = std::get<0>(m_devices[iIndex]);
    return AnswerText({id.c_str(), id.size() + 1}, "idSize", "*piSize", sID, piSize);
}

int InterfaceGev::GetDeviceInfo(
    const char* sDeviceID, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) const
{
    if (sDeviceID == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "sDeviceID==nullptr");
    }
    const std::string id = sDeviceID;
    int code = GC_ERR_SUCCESS;
    const auto ask = [&](const auto& row, auto& value) {
        code = (m_pHwInterface->*row.getter)(m_hAdapter, id, value);
        return code == GC_ERR_SUCCESS;
    };
    const auto answer = [&](const auto& value) { return m_info.SetInfo(value, piType, pBuffer, piSize); };

    if (const auto* row = FindCommand(kRecordTexts, iInfoCmd)) {
        std::string value;
        return ask(*row, value) ? answer(value) : RaiseNotImplemented(code, row->name);
    }
    if (const auto* row = FindCommand(kRecordAddresses, iInfoCmd)) {
        long value = 0;
        return ask(*row, value) ? answer(static_cast<unsigned int>(value))
                                : RaiseNotImplemented(code, row->name);
    }
    if (const auto* row = FindCommand(kRecordNumbers, iInfoCmd)) {
        long value = 0;
        return ask(*row, value) ? answer(value) : RaiseNotImplemented(code, row->name);
    }
    if (const auto* row = FindCommand(kRecordFlags, iInfoCmd)) {
        bool value = false;
        return ask(*row, value) ? answer(value) : RaiseNotImplemented(code, row->name);
    }
    switch (iInfoCmd) {
        case DEVICE_INFO_TLTYPE:
            return answer(m_portInfo.tlType);
        case DEVICE_INFO_DISPLAYNAME: {
            std::string name;
            code = DeviceDisplayName(id, name);
            return code == GC_ERR_SUCCESS ? answer(name)
                                          : RaiseNotImplemented(code, "DEVICE_INFO_DISPLAYNAME");
        }
        // An open device answers these two.
        case DEVICE_INFO_ACCESS_STATUS:
            return RaiseNotImplemented(GC_ERR_NOT_IMPLEMENTED, "DEVICE_INFO_ACCESS_STATUS");
        case DEVICE_INFO_TIMESTAMP_FREQUENCY:
            return RaiseNotImplemented(GC_ERR_NOT_IMPLEMENTED, "DEVICE_INFO_TIMESTAMP_FREQUENCY");
        default:
            return Raise(
                GC_ERR_INVALID_INDEX,
                "iInfoCmd must be one of :\n"
                "GenTL::DEVICE_INFO_ID, GenTL::DEVICE_INFO_TLTYPE, GenTL::DEVICE_INFO_DISPLAYNAME, \n"
                "GenTL::DEVICE_INFO_MODEL, GenTL::DEVICE_INFO_VENDOR, GenTL::DEVICE_INFO_SERIAL_NUMBER, \n"
                "GenTL::DEVICE_INFO_ACCESS_STATUS, GenTL::DEVICE_INFO_USER_DEFINED_NAME, "
                "GenTL::DEVICE_INFO_VERSION, \n"
                "GenTL::DEVICE_INFO_TIMESTAMP_FREQUENCY, GenTL::DEVICE_INFO_GEV_MAC_ADDRESS, \n"
                "GenTL::DEVICE_INFO_GEV_SUBNET_MASK, GenTL::DEVICE_INFO_GEV_IP_ADDRESS, \n"
                "GenTL::DEVICE_INFO_GEV_DEFAULT_GATEWAY, GenTL::DEVICE_INFO_GEV_CONFIG_DHCP, \n"
                "GenTL::DEVICE_INFO_GEV_CONFIG_PERSISTENT_IP, GenTL::DEVICE_INFO_GEV_CONFIG_LLA, \n"
                "GenTL::DEVICE_INFO_IS_CONNECTED");
    }
}

int InterfaceGev::OpenDevice(const char* sDeviceID,
                             const int& iOpenFlags,
                             void** phDevice,
                             void* hIface) const
{
    if (sDeviceID == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "sDeviceID==nullptr");
    }
    if (phDevice == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "pDevHandle==nullptr");
    }
    const std::string id = sDeviceID;
    const auto refuse = [](int code, const std::string& text, int line = __builtin_LINE()) {
        GLogger::Error(("GenTL::InterfaceGev::OpenDevice " + text).c_str(), code);
        return Raise(code, text, "OpenDevice", line);
    };
    if (std::none_of(m_devices.begin(), m_devices.end(),
                     [&](const auto& device) { return std::get<0>(device) == id; })) {
        return refuse(GC_ERR_INVALID_ID,
                      "device ID=" + id + " not found in the list of devices.\n" + ListOfDevices(m_devices));
    }
    if (g_openedDevicesRegistry.IsDeviceAlreadyOpen(id)) {
        return refuse(GC_ERR_RESOURCE_IN_USE, "device ID=" + id + " is already open");
    }
    void* deviceHandle = nullptr;
    if (const int code = m_pHwInterface->OpenDevice(m_hAdapter, id, &deviceHandle); code != GC_ERR_SUCCESS) {
        GLogger::Error("GenTL::InterfaceGev::OpenDevice Failed calling  m_pHwInterface->OpenDevice with err",
                       code);
        return AppendName(code);
    }
    return OpenOnHandle(id, iOpenFlags, deviceHandle, phDevice, hIface);
}

int InterfaceGev::OpenOnHandle(const std::string& deviceId,
                               int iOpenFlags,
                               void* deviceHandle,
                               void** phDevice,
                               void* hIface,
                               const char* function,
                               int line) const
{
    constexpr const char* kOpenFailed =
        "GenTL::InterfaceGev::OpenDevice Failed calling m_pDevice->Open() with err";
    auto device = std::make_unique<DeviceGev>(m_pHwInterface, m_portInfo.id, hIface, deviceHandle);
    AllocateHandle(phDevice, static_cast<IDevice*>(device.get()));
    if (const int code = device->Open(iOpenFlags, *phDevice); code != GC_ERR_SUCCESS) {
        GLogger::Error(kOpenFailed, code);
        device.reset();
        if (const int deleted = DeleteHandle(*phDevice); deleted != GC_ERR_SUCCESS) {
            AppendName(deleted, function, line);
        }
        return AppendName(code, function, line);
    }
    device.release();  // the handle's from here on; DevClose takes it back

    const int code = g_openedDevicesRegistry.AddDeviceEntry(m_portInfo.id, deviceId, *phDevice);
    if (code != GC_ERR_SUCCESS) {
        // Another thread opened the same camera meanwhile, or the interface was closed. A device that closes
        // again leaves the consumer with success and a handle that every later call refuses.
        GLogger::Error(kOpenFailed, code);
        if (const int closed = DevClose(*phDevice); closed != GC_ERR_SUCCESS) {
            return Append(closed, kOpenFailed, function, line);
        }
    }
    return GC_ERR_SUCCESS;
}

int InterfaceGev::ForceIp(unsigned long mac, unsigned int ip, unsigned int subnet, unsigned int gateway)
{
    const std::pair<bool, const char*> missing[] = {
        {mac == 0,    "mac==0"   },
        {ip == 0,     "ip==0"    },
        {subnet == 0, "subnet==0"},
    };
    for (const auto& [isMissing, text] : missing) {
        if (isMissing) {
            return Raise(GC_ERR_INVALID_PARAMETER, text);
        }
    }
    const int code = m_pHwInterface->ForceIP(m_hAdapter, static_cast<unsigned short>(mac >> 32),
                                             static_cast<unsigned int>(mac), ip, subnet, gateway);
    if (code != GC_ERR_SUCCESS) {
        GLogger::Error("GenTL::InterfaceGev::ForceIp failed to update device ip", code);
        return AppendName(code);
    }
    return GC_ERR_SUCCESS;
}

int InterfaceGev::DeviceDisplayName(const std::string& deviceId, std::string& name) const
{
    std::string model;
    if (const int code = m_pHwInterface->GetModelName(m_hAdapter, deviceId, model); code != GC_ERR_SUCCESS) {
        return code;
    }
    std::string serial;
    if (const int code = m_pHwInterface->GetSerialNumber(m_hAdapter, deviceId, serial);
        code != GC_ERR_SUCCESS) {
        GLogger::Error("InterfaceGev::GetDeviceInfo coud not get serial number", code);
        serial = "Unknown Serial Number";
    }
    name = model + " ( " + serial + " ) ";
    return GC_ERR_SUCCESS;
}

}  // namespace GenTL
