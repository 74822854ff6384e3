/// A control layer that answers what the test says, and notes what it was asked.
#pragma once

#include "frame/Error.h"
#include "gev/GvcpCommand.h"
#include "gev/HALGev.h"
#include "gev/Handles.h"

#include <algorithm>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <tuple>
#include <vector>

namespace GenTL {

using Devices = std::vector<std::tuple<std::string, unsigned>>;

/// What the control layer is to answer, and what it was asked. Outlives the layer, which the System deletes.
struct HalScript
{
    std::vector<std::string> interfaces = {"0000c0a80101", "00000a000001"};
    Devices devices = {
        {"CAM1", 1},
        {"CAM2", 2},
    };
    int interfacesCode = 0;
    int idCode = 0;
    int numbersCode = 0;
    int devicesCode = 0;
    int recordCode = 0;
    int serialCode = 0;
    int registerCode = 0;
    std::function<void()> duringDiscovery = [] {};
    std::map<std::string, int> closeCodes;

    std::deque<std::string> adapters;  // the handles are their addresses
    std::vector<std::string> closed;
    std::vector<std::string> openedDevices;
    std::deque<DeviceHandle> deviceHandles;
    int closedDevices = 0;
    long timeoutMs = 0;
    bool isDeleted = false;
};

/// HALGev answers what isn't scripted here, such as the identity of an open device.
class ScriptedHal : public HALGev
{
public:
    explicit ScriptedHal(HalScript& script) : m_script(script) {}
    ~ScriptedHal() override { m_script.isDeleted = true; }

    int GetInterfaces(std::vector<std::string>& ids) override
    {
        ids.insert(ids.end(), m_script.interfaces.begin(), m_script.interfaces.end());
        return m_script.interfacesCode;
    }
    int OpenInterface(const std::string& id, void** adapterHandle) override
    {
        *adapterHandle = &m_script.adapters.emplace_back(id);
        return 0;
    }
    int CloseInterface(void* adapterHandle) override
    {
        const std::string id = *static_cast<std::string*>(adapterHandle);
        m_script.closed.push_back(id);
        return m_script.closeCodes.count(id) != 0 ? Store(m_script.closeCodes[id]) : 0;
    }
    int GetInterfaceId(void* adapterHandle, std::string& id) override
    {
        id = *static_cast<std::string*>(adapterHandle);
        return m_script.idCode;
    }
    int GetDevices(void*, Devices& devices, long timeoutMs) override
    {
        m_script.timeoutMs = timeoutMs;
        m_script.duringDiscovery();
        devices.insert(devices.end(), m_script.devices.begin(), m_script.devices.end());
        return m_script.devicesCode;
    }
    int OpenDevice(void*, const std::string& deviceId, void** deviceHandle) override
    {
        m_script.openedDevices.push_back(deviceId);
        DeviceHandle& device = m_script.deviceHandles.emplace_back();
        std::copy(deviceId.begin(), deviceId.end(), device.m_record.begin() + RecordField::kSerialNumber);
        *deviceHandle = ToHandle(&device);
        return 0;
    }
    int CloseDevice(void*) override
    {
        ++m_script.closedDevices;
        return 0;
    }
    int ReadReg(void*, unsigned, unsigned&) override { return m_script.registerCode; }
    int SetDeviceTimeout(void*, int) override { return 0; }

    int GetMACAddress(void*, long& mac) override { return Number(mac, 0x0102030405FF); }
    int GetIPAddress(void*, long& ip) override { return Number(ip, 0xC0A80101); }
    int GetSubnetMask(void*, long& mask) override { return Number(mask, 0xFFFFFF00); }

    using Id = const std::string&;
    int GetModelName(void*, Id id, std::string& text) override { return Record(text, "model " + id); }
    int GetVendorName(void*, Id id, std::string& text) override { return Record(text, "vendor " + id); }
    int GetUserDefinedName(void*, Id id, std::string& text) override { return Record(text, "user " + id); }
    int GetDeviceVersion(void*, Id id, std::string& text) override { return Record(text, "version " + id); }
    int GetSerialNumber(void*, Id id, std::string& text) override
    {
        return m_script.serialCode != 0 ? m_script.serialCode : Record(text, "serial " + id);
    }
    int GetDevIPAddress(void*, Id, long& ip) override { return Record(ip, 0xC0A80105L); }
    int GetDevSubnetMask(void*, Id, long& mask) override { return Record(mask, 0xFFFF0000L); }
    int GetDevDefaultGateway(void*, Id, long& gateway) override { return Record(gateway, 0xC0A801FEL); }
    int GetDevMACAddress(void*, Id, long& mac) override { return Record(mac, 0xFFEEDDCCBBAAL); }
    int GetDevIpConfigDHCP(void*, Id, bool& isOn) override { return Record(isOn, true); }
    int GetDevIpConfigPersistentIp(void*, Id, bool& isOn) override { return Record(isOn, false); }
    int GetDevIpConfigLLA(void*, Id, bool& isOn) override { return Record(isOn, true); }

private:
    int Number(long& out, long value) const
    {
        out = value;
        return m_script.numbersCode;
    }
    template <typename T>
    int Record(T& out, const T& value) const
    {
        out = value;
        return m_script.recordCode;
    }

    HalScript& m_script;
};

}  // namespace GenTL
