/// Which interfaces and devices are open in this process.
#pragma once

#include <boost/thread/mutex.hpp>

#include <map>
#include <string>
#include <vector>

namespace GenTL {

/// Open interfaces with their handles, and on each the open devices. A device ID is unique over all
/// interfaces: the same camera seen through a second adapter can't be opened again. A row is not a proof of
/// life; nothing here closes or owns what it names.
///
/// Threads: any; answers are copies. Locks: the mutex, a leaf; errors are raised after its release.
class ProtectedDeviceRegistry
{
public:
    struct DeviceEntry
    {
        std::string id;
        void* handle = nullptr;
    };
    struct Entry
    {
        void* handle = nullptr;
        std::vector<DeviceEntry> devices;
    };

    ProtectedDeviceRegistry() = default;
    explicit ProtectedDeviceRegistry(const std::map<std::string, Entry>& entries);

    /// GC_ERR_RESOURCE_IN_USE when the interface is registered already.
    int AddInterfaceEntry(const std::string& interfaceId, void* const& handle);
    /// GC_ERR_INVALID_ID without its interface, GC_ERR_RESOURCE_IN_USE when the device is open on any.
    int AddDeviceEntry(const std::string& interfaceId, const std::string& deviceId, void* const& handle);
    /// An empty entry when there is none; Pop forgets it, an interface with its devices.
    Entry PeekInterfaceEntry(const std::string& interfaceId);
    Entry PopInterfaceEntry(const std::string& interfaceId);
    bool IsInterfaceAlreadyOpen(const std::string& interfaceId);
    DeviceEntry PeekDeviceEntry(const std::string& deviceId);
    DeviceEntry PopDeviceEntry(const std::string& deviceId);
    bool IsDeviceAlreadyOpen(const std::string& deviceId);
    /// In alphabetical order.
    std::vector<std::string> AllInterfaceIDs();

private:
    Entry GetInterfaceEntry_(const std::string& interfaceId, bool pop);
    DeviceEntry GetDeviceEntry_(const std::string& deviceId, bool pop);

    boost::mutex m_mutex;
    std::map<std::string, Entry> m_entries;
};

/// The one registry. Never destroyed: handles may be closed while the process ends.
extern ProtectedDeviceRegistry& g_openedDevicesRegistry;

}  // namespace GenTL
