#include "frame/Error.h"
#include "gev/ActionCommand.h"
#include "gev/HALGev.h"
#include "gev/RecordText.h"
#include "gev/SideCommand.h"
#include "gev/UniqueFd.h"
#include "log/HLogger.h"

#include <boost/thread/lock_guard.hpp>

#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace GenTL {
namespace {

constexpr std::uint32_t kConfigPersistentIp = 0x1;
constexpr std::uint32_t kConfigDhcp = 0x2;
constexpr std::uint32_t kConfigLla = 0x4;

constexpr SideCommand kAction{
    "SendActionCommand",
    Gvcp::kActionCmd + 1,
    "GenTL::HALGev::SendActionCommand Failed",
    "GenTL::HALGev::SendActionCommand SetTimeout Failed setting timeout {0}",
    "GenTL::HALGev::SendActionCommand Receive Failed",
    "GenTL::HALGev::SendActionCommand Ack is invalid",
    "GenTL::HALGev::SendActionCommand Ack is invalid: ",
};

/// A record, or the code that tells why there is none.
struct Lookup
{
    int code = GC_ERR_SUCCESS;
    DiscoveryRecord record{};
};

Lookup RecordOf(void* deviceHandle)
{
    if (deviceHandle == nullptr) {
        return {Store(GC_ERR_INVALID_HANDLE)};
    }
    return {GC_ERR_SUCCESS, ToDevice(deviceHandle)->m_record};
}

Lookup RecordOf(void* adapterHandle, const std::string& deviceId)
{
    if (adapterHandle == nullptr) {
        return {Store(GC_ERR_INVALID_HANDLE)};
    }
    AdapterHandle& adapter = *ToAdapter(adapterHandle);
    const boost::lock_guard<boost::mutex> lock(adapter.m_devicesMutex);
    const auto row = std::find_if(adapter.m_devices.begin(), adapter.m_devices.end(),
                                  [&](const DeviceData& d) { return d.m_deviceId == deviceId; });
    if (row == adapter.m_devices.end()) {
        return {Store(GC_ERR_INVALID_ID)};
    }
    return {GC_ERR_SUCCESS, row->m_record};
}

int TextField(const Lookup& found, std::size_t offset, std::string& text)
{
    if (found.code == GC_ERR_SUCCESS) {
        text = RecordText(found.record, offset);
    }
    return found.code;
}

int NumberField(const Lookup& found, std::size_t offset, long& value)
{
    if (found.code == GC_ERR_SUCCESS) {
        value = Load32(&found.record[offset]);
    }
    return found.code;
}

int MacField(const Lookup& found, long& address)
{
    if (found.code == GC_ERR_SUCCESS) {
        const std::uint64_t high = Load16(&found.record[RecordField::kMacHigh]);
        address = static_cast<long>(high << 32 | Load32(&found.record[RecordField::kMacLow]));
    }
    return found.code;
}

/// Tests the field's value.
int ConfigField(const Lookup& found, std::uint32_t mask, bool& isSet)
{
    if (found.code == GC_ERR_SUCCESS) {
        isSet = (Load32(&found.record[RecordField::kIpConfig]) & mask) != 0;
    }
    return found.code;
}

/// Tests the field as it lies in memory, whatever the host's byte order makes of it.
int StoredConfigField(const Lookup& found, std::uint32_t mask, bool& isSet)
{
    if (found.code == GC_ERR_SUCCESS) {
        std::uint32_t stored = 0;
        std::memcpy(&stored, &found.record[RecordField::kIpConfig], sizeof stored);
        isSet = (stored & mask) != 0;
    }
    return found.code;
}

using AddressList = std::unique_ptr<ifaddrs, void (*)(ifaddrs*)>;

AddressList HostAddresses()
{
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        list = nullptr;
    }
    return {list, freeifaddrs};
}

sockaddr_in ToInet(const sockaddr& address)
{
    sockaddr_in inet{};
    std::memcpy(&inet, &address, sizeof inet);
    return inet;
}

/// The host's entry for the adapter's address; null when it is gone.
const ifaddrs* EntryOf(const AddressList& list, const AdapterHandle& adapter)
{
    for (const ifaddrs* entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET &&
            ToInet(*entry->ifa_addr).sin_addr.s_addr == adapter.m_localAddress.sin_addr.s_addr) {
            return entry;
        }
    }
    return nullptr;
}

}  // namespace

int HALGev::GetModelName(void* deviceHandle, std::string& text)
{
    return TextField(RecordOf(deviceHandle), RecordField::kModelName, text);
}

int HALGev::GetModelName(void* adapterHandle, const std::string& deviceId, std::string& text)
{
    return TextField(RecordOf(adapterHandle, deviceId), RecordField::kModelName, text);
}

int HALGev::GetVendorName(void* deviceHandle, std::string& text)
{
    return TextField(RecordOf(deviceHandle), RecordField::kVendorName, text);
}

int HALGev::GetVendorName(void* adapterHandle, const std::string& deviceId, std::string& text)
{
    return TextField(RecordOf(adapterHandle, deviceId), RecordField::kVendorName, text);
}

int HALGev::GetSerialNumber(void* deviceHandle, std::string& text)
{
    return TextField(RecordOf(deviceHandle), RecordField::kSerialNumber, text);
}

int HALGev::GetSerialNumber(void* adapterHandle, const std::string& deviceId, std::string& text)
{
    return TextField(RecordOf(adapterHandle, deviceId), RecordField::kSerialNumber, text);
}

int HALGev::GetUserDefinedName(void* deviceHandle, std::string& text)
{
    return TextField(RecordOf(deviceHandle), RecordField::kUserDefinedName, text);
}

int HALGev::GetUserDefinedName(void* adapterHandle, const std::string& deviceId, std::string& text)
{
    return TextField(RecordOf(adapterHandle, deviceId), RecordField::kUserDefinedName, text);
}

int HALGev::GetDeviceVersion(void* deviceHandle, std::string& text)
{
    return TextField(RecordOf(deviceHandle), RecordField::kDeviceVersion, text);
}

int HALGev::GetDeviceVersion(void* adapterHandle, const std::string& deviceId, std::string& text)
{
    return TextField(RecordOf(adapterHandle, deviceId), RecordField::kDeviceVersion, text);
}

int HALGev::GetInterfaceId(void* adapterHandle, std::string& id)
{
    if (adapterHandle == nullptr) {
        return Store(GC_ERR_INVALID_HANDLE);
    }
    id = ToAdapter(adapterHandle)->m_interfaceId;
    return GC_ERR_SUCCESS;
}

int HALGev::GetMACAddress(void* adapterHandle, long& address)
{
    if (adapterHandle == nullptr) {
        return Store(GC_ERR_INVALID_HANDLE);
    }
    const AddressList list = HostAddresses();
    const ifaddrs* const entry = EntryOf(list, *ToAdapter(adapterHandle));
    if (entry == nullptr) {
        return Store(GC_ERR_ERROR);
    }
    ifreq request{};
    std::strncpy(request.ifr_name, entry->ifa_name, sizeof request.ifr_name - 1);
    const UniqueFd descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (ioctl(descriptor.Get(), SIOCGIFHWADDR, &request) != 0) {
        return Store(GC_ERR_IO);
    }
    unsigned char bytes[8] = {};
    std::memcpy(bytes + 2, request.ifr_hwaddr.sa_data, 6);
    address = static_cast<long>(Load64(bytes));
    return GC_ERR_SUCCESS;
}

int HALGev::GetIPAddress(void* adapterHandle, long& address)
{
    if (adapterHandle == nullptr) {
        return Store(GC_ERR_INVALID_HANDLE);
    }
    address = ntohl(ToAdapter(adapterHandle)->m_localAddress.sin_addr.s_addr);
    return GC_ERR_SUCCESS;
}

int HALGev::GetSubnetMask(void* adapterHandle, long& mask)
{
    if (adapterHandle == nullptr) {
        return Store(GC_ERR_INVALID_HANDLE);
    }
    const AddressList list = HostAddresses();
    const ifaddrs* const entry = EntryOf(list, *ToAdapter(adapterHandle));
    if (entry == nullptr || entry->ifa_netmask == nullptr) {
        return Store(GC_ERR_ERROR);
    }
    mask = ntohl(ToInet(*entry->ifa_netmask).sin_addr.s_addr);
    return GC_ERR_SUCCESS;
}

int HALGev::GetDevMACAddress(void* adapterHandle, const std::string& deviceId, long& address)
{
    return MacField(RecordOf(adapterHandle, deviceId), address);
}

int HALGev::GetDevIPAddress(void* adapterHandle, const std::string& deviceId, long& address)
{
    return NumberField(RecordOf(adapterHandle, deviceId), RecordField::kIpAddress, address);
}

int HALGev::GetDevSubnetMask(void* adapterHandle, const std::string& deviceId, long& mask)
{
    return NumberField(RecordOf(adapterHandle, deviceId), RecordField::kSubnetMask, mask);
}

int HALGev::GetDevMACAddress(void* deviceHandle, long& address)
{
    return MacField(RecordOf(deviceHandle), address);
}

int HALGev::GetDevSubnetMask(void* deviceHandle, long& mask)
{
    return NumberField(RecordOf(deviceHandle), RecordField::kSubnetMask, mask);
}

int HALGev::GetDevIPAddress(void* deviceHandle, long& address)
{
    return NumberField(RecordOf(deviceHandle), RecordField::kIpAddress, address);
}

int HALGev::GetDevDefaultGateway(void* deviceHandle, long& address)
{
    return NumberField(RecordOf(deviceHandle), RecordField::kDefaultGateway, address);
}

int HALGev::GetDevIpConfigDHCP(void* deviceHandle, bool& isSet)
{
    return StoredConfigField(RecordOf(deviceHandle), kConfigDhcp, isSet);
}

int HALGev::GetDevIpConfigPersistentIp(void* deviceHandle, bool& isSet)
{
    return StoredConfigField(RecordOf(deviceHandle), kConfigPersistentIp, isSet);
}

int HALGev::GetDevIpConfigLLA(void* deviceHandle, bool& isSet)
{
    return StoredConfigField(RecordOf(deviceHandle), kConfigLla, isSet);
}

int HALGev::GetDevDefaultGateway(void* adapterHandle, const std::string& deviceId, long& address)
{
    return NumberField(RecordOf(adapterHandle, deviceId), RecordField::kDefaultGateway, address);
}

int HALGev::GetDevIpConfigDHCP(void* adapterHandle, const std::string& deviceId, bool& isSet)
{
    return ConfigField(RecordOf(adapterHandle, deviceId), kConfigDhcp, isSet);
}

int HALGev::GetDevIpConfigPersistentIp(void* adapterHandle, const std::string& deviceId, bool& isSet)
{
    return ConfigField(RecordOf(adapterHandle, deviceId), kConfigPersistentIp, isSet);
}

int HALGev::GetDevIpConfigLLA(void* adapterHandle, const std::string& deviceId, bool& isSet)
{
    return ConfigField(RecordOf(adapterHandle, deviceId), kConfigLla, isSet);
}

int HALGev::SendPacketResend(
    void* deviceHandle, unsigned long blockId, unsigned firstPacket, unsigned lastPacket, bool extendedId)
{
    if (deviceHandle == nullptr) {
        return Store(GC_ERR_INVALID_HANDLE);
    }
    DeviceHandle& device = *ToDevice(deviceHandle);
    // The stream channel index, at 8, is 0: there is one channel in use.
    const std::size_t length = extendedId ? 20 : 12;
    GvcpCommand command(Gvcp::kPacketResendCmd, extendedId ? Gvcp::kFlagExtendedId : std::uint8_t{0}, length,
                        GetReqID(&device), Gvcp::kHeaderSize + length);
    if (!extendedId) {
        command.Put16(10, static_cast<std::uint16_t>(blockId));
    }
    command.Put32(12, firstPacket);
    command.Put32(16, lastPacket);
    if (extendedId) {
        command.Put64(20, blockId);
    }
    const int code = device.m_pSocket->Send(command.Data(), static_cast<int>(command.Size()));
    if (code != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGev::SendPacketResend Failed", code);
        Append(code, "GenTL::HALGev::SendPacketResend failed: " + std::to_string(code));
    }
    return code;
}

int HALGev::SendActionCommand(
    void* deviceHandle, unsigned deviceKey, unsigned groupKey, unsigned groupMask, unsigned long actionTime)
{
    if (deviceHandle == nullptr) {
        return Store(GC_ERR_INVALID_HANDLE);
    }
    DeviceHandle& device = *ToDevice(deviceHandle);
    const ActionCommand command(GetReqID(&device), deviceKey, groupKey, groupMask, actionTime);
    return RunSideCommand(*device.m_pSocket, kAction, command);
}

}  // namespace GenTL
