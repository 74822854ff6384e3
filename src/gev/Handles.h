/// What stands behind the opaque handles of the control channel.
#pragma once

#include "gev/CommSocket.h"

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>

#include <netinet/in.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace GenTL {

inline constexpr std::size_t kDiscoveryRecordSize = 248;

/// The payload of a discovery answer, verbatim.
using DiscoveryRecord = std::array<unsigned char, kDiscoveryRecordSize>;

/// One interface of the host.
struct AdapterData
{
    sockaddr_in m_address{};
    std::string m_interfaceId;
};

/// One answer to a discovery.
struct DeviceData
{
    sockaddr_in m_adapterAddress{};
    std::string m_deviceId;
    DiscoveryRecord m_record{};
};

/// The common head of the two handles. Made and destroyed as AdapterHandle or DeviceHandle only.
struct BaseHandle
{
    std::string m_id;
    std::unique_ptr<CommSocket> m_pSocket;
    /// The last GVCP request id issued.
    std::uint16_t m_requestId = 0;
    boost::mutex m_requestIdMutex;

protected:
    BaseHandle() = default;
    ~BaseHandle() = default;
};

/// An opened interface.
struct AdapterHandle : BaseHandle
{
    AdapterHandle() { m_requestId = 1; }

    sockaddr_in m_localAddress{};
    std::string m_interfaceId;
    std::vector<DeviceData> m_devices;
    /// Guards m_devices and the fields below.
    boost::mutex m_devicesMutex;
    /// Null, except during a discovery.
    std::unique_ptr<CommSocket> m_pBroadcastSocket;
    /// GetDevices calls that hold this handle, and whether CloseInterface waits for them.
    unsigned m_discoveries = 0;
    bool m_isClosing = false;
    boost::condition_variable m_discoveryEnded;
};

/// An opened camera.
struct DeviceHandle : BaseHandle
{
    DiscoveryRecord m_record{};
    /// Held for a whole register or memory transaction. Outside the next mutex and the request id's.
    boost::mutex m_transactionMutex;
    /// Guards the two fields below; held for a few instructions.
    boost::mutex m_connectionMutex;
    bool m_isConnected = false;
    std::uint64_t m_consecutiveTimeouts = 0;
};

// Handles cross the interface as void*, made from a BaseHandle* and taken back as one.
inline void* ToHandle(BaseHandle* base)
{
    return base;
}
inline BaseHandle* ToBase(void* handle)
{
    return static_cast<BaseHandle*>(handle);
}
inline AdapterHandle* ToAdapter(void* handle)
{
    return static_cast<AdapterHandle*>(ToBase(handle));
}
inline DeviceHandle* ToDevice(void* handle)
{
    return static_cast<DeviceHandle*>(ToBase(handle));
}

/// Issues the next request id of a handle: never 0.
std::uint16_t GetReqID(BaseHandle* handle);

}  // namespace GenTL
