#include "device/ProtectedDeviceRegistry.h"

#include "frame/Error.h"

#include <boost/thread/lock_guard.hpp>

#include <algorithm>

namespace GenTL {
namespace {

using Lock = boost::lock_guard<boost::mutex>;

auto FindDevice(std::vector<ProtectedDeviceRegistry::DeviceEntry>& devices, const std::string& deviceId)
{
    return std::find_if(devices.begin(), devices.end(),
                        [&](const auto& device) { return device.id == deviceId; });
}

}  // namespace

ProtectedDeviceRegistry& g_openedDevicesRegistry = *new ProtectedDeviceRegistry();

ProtectedDeviceRegistry::ProtectedDeviceRegistry(const std::map<std::string, Entry>& entries)
{
    const Lock lock(m_mutex);
    m_entries = entries;
}

int ProtectedDeviceRegistry::AddInterfaceEntry(const std::string& interfaceId, void* const& handle)
{
    {
        const Lock lock(m_mutex);
        if (m_entries.emplace(interfaceId, Entry{handle, {}}).second) {
            return GC_ERR_SUCCESS;
        }
    }
    return Raise(GC_ERR_RESOURCE_IN_USE, "interface ID=" + interfaceId + " is already open");
}

int ProtectedDeviceRegistry::AddDeviceEntry(const std::string& interfaceId,
                                            const std::string& deviceId,
                                            void* const& handle)
{
    bool isOpen = false;
    {
        const Lock lock(m_mutex);
        const auto found = m_entries.find(interfaceId);
        if (found != m_entries.end()) {
            isOpen = std::any_of(m_entries.begin(), m_entries.end(), [&](auto& row) {
                return FindDevice(row.second.devices, deviceId) != row.second.devices.end();
            });
            if (!isOpen) {
                found->second.devices.push_back({deviceId, handle});
                return GC_ERR_SUCCESS;
            }
        }
    }
    return isOpen ? Raise(GC_ERR_RESOURCE_IN_USE, "device ID=" + deviceId + " is already open")
                  : Raise(GC_ERR_INVALID_ID,
                          "interface ID=" + interfaceId + " not found in the registry of opened interfaces");
}

ProtectedDeviceRegistry::Entry ProtectedDeviceRegistry::PeekInterfaceEntry(const std::string& interfaceId)
{
    return GetInterfaceEntry_(interfaceId, false);
}

ProtectedDeviceRegistry::Entry ProtectedDeviceRegistry::PopInterfaceEntry(const std::string& interfaceId)
{
    return GetInterfaceEntry_(interfaceId, true);
}

bool ProtectedDeviceRegistry::IsInterfaceAlreadyOpen(const std::string& interfaceId)
{
    return PeekInterfaceEntry(interfaceId).handle != nullptr;
}

ProtectedDeviceRegistry::DeviceEntry ProtectedDeviceRegistry::PeekDeviceEntry(const std::string& deviceId)
{
    return GetDeviceEntry_(deviceId, false);
}

ProtectedDeviceRegistry::DeviceEntry ProtectedDeviceRegistry::PopDeviceEntry(const std::string& deviceId)
{
    return GetDeviceEntry_(deviceId, true);
}

bool ProtectedDeviceRegistry::IsDeviceAlreadyOpen(const std::string& deviceId)
{
    return PeekDeviceEntry(deviceId).handle != nullptr;
}

std::vector<std::string> ProtectedDeviceRegistry::AllInterfaceIDs()
{
    const Lock lock(m_mutex);
    std::vector<std::string> ids;
    for (const auto& [id, entry] : m_entries) {
        ids.push_back(id);
    }
    return ids;
}

ProtectedDeviceRegistry::Entry ProtectedDeviceRegistry::GetInterfaceEntry_(const std::string& interfaceId,
                                                                           bool pop)
{
    const Lock lock(m_mutex);
    const auto found = m_entries.find(interfaceId);
    if (found == m_entries.end()) {
        return {};
    }
    Entry entry = found->second;
    if (pop) {
        m_entries.erase(found);
    }
    return entry;
}

ProtectedDeviceRegistry::DeviceEntry ProtectedDeviceRegistry::GetDeviceEntry_(const std::string& deviceId,
                                                                              bool pop)
{
    const Lock lock(m_mutex);
    for (auto& [id, entry] : m_entries) {
        const auto found = FindDevice(entry.devices, deviceId);
        if (found != entry.devices.end()) {
            DeviceEntry device = *found;
            if (pop) {
                entry.devices.erase(found);
            }
            return device;
        }
    }
    return {};
}

}  // namespace GenTL
