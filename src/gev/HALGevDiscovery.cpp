#include "frame/Error.h"
#include "gev/GvcpCommand.h"
#include "gev/HALGev.h"
#include "gev/RecordText.h"
#include "gev/SideCommand.h"
#include "gev/SignalBlock.h"
#include "gev/UniqueFd.h"
#include "log/HLogger.h"
#include "log/LogUnlessMemoryIsShort.h"
#include "log/localization.h"

#include <boost/thread/lock_guard.hpp>
#include <boost/thread/scoped_thread.hpp>
#include <boost/thread/thread.hpp>
#include <boost/timer/timer.hpp>

#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <limits>
#include <mutex>
#include <new>
#include <utility>

namespace GenTL {
namespace {

constexpr const char* kBroadcastAddress = "255.255.255.255";
constexpr int kFirstTimeoutMs = 200;
constexpr std::size_t kPlainIdLength = 12;
constexpr std::size_t kAnswerSize = 256;
static_assert(Gvcp::kHeaderSize + kDiscoveryRecordSize == kAnswerSize);

constexpr SideCommand kForceIp{
    "ForceIP",
    Gvcp::kForceIpCmd + 1,
    "GenTL::HALGev::ForceIP Send Failed",
    "GenTL::HALGev::ForceIp SetTimeout Failed setting timout {0}",
    "GenTL::HALGev::ForceIp Receie Failed",
    "GenTL::HALGev::ForceIp Ack is invalid",
    "GenTL::HALGev::ForceIp Ack is invalid: ",
};

/// The addresses that the kernel lists, in its order. False, with errno set, when it doesn't.
bool QueryAddresses(int descriptor, std::vector<ifreq>& requests)
{
    static_assert(sizeof(ifreq) == 40);
    ifconf query{};
    if (ioctl(descriptor, SIOCGIFCONF, &query) != 0) {
        return false;
    }
    // One entry more than needed: with a null buffer the kernel would just tell the size again.
    const std::size_t count = static_cast<std::size_t>(query.ifc_len) / sizeof(ifreq);
    requests.resize(count + 1);
    query.ifc_len = static_cast<int>(count * sizeof(ifreq));
    query.ifc_req = requests.data();
    if (ioctl(descriptor, SIOCGIFCONF, &query) != 0) {
        return false;
    }
    requests.resize(std::min(count, static_cast<std::size_t>(query.ifc_len) / sizeof(ifreq)));
    return true;
}

/// 12 hexadecimal digits: the port (0) and the address, in wire order.
std::string PlainInterfaceId(const sockaddr& address)
{
    std::string id;
    for (std::size_t i = 0; i < kPlainIdLength / 2; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(address.sa_data[i]));
        id += digits;
    }
    return id;
}

/// Tells interfaces of the same address apart: the next ones get ":1", ":2" and so on.
std::string UniqueInterfaceId(const std::string& plainId, const std::vector<AdapterData>& adapters)
{
    const auto last = std::find_if(adapters.rbegin(), adapters.rend(), [&](const AdapterData& adapter) {
        return adapter.m_interfaceId.compare(0, kPlainIdLength, plainId) == 0;
    });
    if (last == adapters.rend()) {
        return plainId;
    }
    if (last->m_interfaceId.size() == kPlainIdLength) {
        return plainId + ":1";
    }
    return plainId + ":" + std::to_string(std::stoi(last->m_interfaceId.substr(kPlainIdLength + 1)) + 1);
}

std::unique_ptr<AdapterHandle> MakeAdapterHandle()
{
    auto adapter = std::make_unique<AdapterHandle>();
    adapter->m_pSocket = std::make_unique<CommSocket>();
    return adapter;
}

int ClampToInt(long ms)
{
    return ms < 0 || ms > std::numeric_limits<int>::max() ? std::numeric_limits<int>::max()
                                                          : static_cast<int>(std::max(ms, 1L));
}

/// One discovery: the only one in the process, and holds its adapter handle against CloseInterface.
class Discovery
{
public:
    explicit Discovery(AdapterHandle& adapter) : m_adapter(adapter)
    {
        {
            const boost::lock_guard<boost::mutex> lock(m_adapter.m_devicesMutex);
            ++m_adapter.m_discoveries;
        }
        m_turn = std::unique_lock<std::mutex>(OneAtATime());
    }
    Discovery(const Discovery&) = delete;
    Discovery& operator=(const Discovery&) = delete;
    ~Discovery()
    {
        // Notified under the lock: CloseInterface frees the handle as soon as it gets it.
        const boost::lock_guard<boost::mutex> lock(m_adapter.m_devicesMutex);
        m_adapter.m_pBroadcastSocket.reset();
        --m_adapter.m_discoveries;
        m_adapter.m_discoveryEnded.notify_all();
    }

    /// False when the interface is being closed.
    bool HandOver(std::unique_ptr<CommSocket> broadcastSocket)
    {
        const boost::lock_guard<boost::mutex> lock(m_adapter.m_devicesMutex);
        m_adapter.m_pBroadcastSocket = std::move(broadcastSocket);
        return !m_adapter.m_isClosing;
    }

    void ForgetDevices()
    {
        const boost::lock_guard<boost::mutex> lock(m_adapter.m_devicesMutex);
        m_adapter.m_devices.clear();
    }

private:
    static std::mutex& OneAtATime()
    {
        static std::mutex mutex;
        return mutex;
    }

    AdapterHandle& m_adapter;
    std::unique_lock<std::mutex> m_turn;
};

/// The body of a reader.
void ReadDiscoveryAcks(AdapterHandle* adapter,
                       std::vector<std::tuple<std::string, unsigned>>& devices,
                       long timeoutMs,
                       bool useBroadcastSocket)
{
    try {
        ProcessDiscoveryAck(adapter, devices, timeoutMs, useBroadcastSocket);
    } catch (const std::exception& e) {
        LogUnlessMemoryIsShort(e.what());
    }
}

}  // namespace

int HALGev::GetInterfaces(std::vector<std::string>& ids)
{
    const UniqueFd descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (descriptor.Get() < 0) {
        HLogger::Error("GenTL::HALGev::GetInterfaces could't create socket", errno);
        return Store(GC_ERR_ERROR);
    }
    std::vector<ifreq> requests;
    if (!QueryAddresses(descriptor.Get(), requests)) {
        HLogger::Error("GenTL::HALGev::GetInterfaces could't get socket conf", errno);
        return Store(GC_ERR_ERROR);
    }

    m_adapters.clear();
    for (const ifreq& request : requests) {
        AdapterData adapter;
        std::memcpy(&adapter.m_address, &request.ifr_addr, sizeof adapter.m_address);
        if (adapter.m_address.sin_addr.s_addr == htonl(INADDR_LOOPBACK)) {
            continue;
        }
        adapter.m_interfaceId = UniqueInterfaceId(PlainInterfaceId(request.ifr_addr), m_adapters);
        m_adapters.push_back(adapter);
        ids.push_back(adapter.m_interfaceId);
    }
    return GC_ERR_SUCCESS;
}

int HALGev::OpenInterface(const std::string& id, void** adapterHandle)
{
    const auto row = std::find_if(m_adapters.begin(), m_adapters.end(),
                                  [&](const AdapterData& data) { return data.m_interfaceId == id; });
    if (row == m_adapters.end()) {
        return Store(GC_ERR_INVALID_ID);
    }

    std::unique_ptr<AdapterHandle> adapter;
    try {
        adapter = MakeAdapterHandle();
    } catch (const std::bad_alloc& e) {
        HLogger::Error(loc::al("GenTL::HALGev::OpenInterface bad_alloc caught: {0}", {e.what()}).c_str());
        return Store(GC_ERR_OUT_OF_MEMORY);
    }
    const int code = adapter->m_pSocket->OpenAndBindSocket(row->m_address, kBroadcastAddress, kGvcpPort, true,
                                                           kFirstTimeoutMs);
    if (code != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGev::OpenInterface failed to open and bind socket", code);
        // The default message joins the socket's error as it is, without a prefix.
        ErrorCache* const cache = ErrorCache::GetErrorCache();
        Error e;
        if (cache->Count() == 1) {
            cache->Pop(e);
        }
        cache->OverwriteCachedErrorWith(Error::AppendError(e, GC_ERR_IO));
        return GC_ERR_IO;
    }
    adapter->m_id = id;
    adapter->m_localAddress = row->m_address;
    adapter->m_interfaceId = id;
    *adapterHandle = ToHandle(adapter.release());
    return GC_ERR_SUCCESS;
}

int HALGev::CloseInterface(void* adapterHandle)
{
    if (adapterHandle == nullptr) {
        return Store(GC_ERR_INVALID_HANDLE);
    }
    const std::unique_ptr<AdapterHandle> adapter(ToAdapter(adapterHandle));
    const boost::this_thread::disable_interruption noInterruption;
    boost::unique_lock<boost::mutex> lock(adapter->m_devicesMutex);
    adapter->m_isClosing = true;
    if (adapter->m_pBroadcastSocket) {
        adapter->m_pBroadcastSocket->Close();
    }
    const int code = adapter->m_pSocket->Close();
    adapter->m_discoveryEnded.wait(lock, [&] { return adapter->m_discoveries == 0; });
    lock.unlock();
    return code;
}

int HALGev::GetDevices(void* adapterHandle,
                       std::vector<std::tuple<std::string, unsigned>>& devices,
                       long timeoutMs)
{
    if (adapterHandle == nullptr) {
        return Store(GC_ERR_INVALID_HANDLE);
    }
    AdapterHandle& adapter = *ToAdapter(adapterHandle);
    Discovery discovery(adapter);
    const int timeout = ClampToInt(timeoutMs);

    // Shares the port of the adapter's socket, and hears the cameras that answer by broadcast: a socket bound
    // to one address doesn't.
    sockaddr_in any{};
    any.sin_addr.s_addr = htonl(INADDR_ANY);
    auto broadcastSocket = std::make_unique<CommSocket>();
    int code = broadcastSocket->OpenAndBindSocket(any, kBroadcastAddress, kGvcpPort, true, timeout);
    if (code != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGev::GetDevices Failed to set up broadcast socket.", code);
        return code;
    }
    if (!discovery.HandOver(std::move(broadcastSocket))) {
        return Store(GC_ERR_INVALID_HANDLE);
    }

    const GvcpCommand command(Gvcp::kDiscoveryCmd, Gvcp::kFlagAck | Gvcp::kFlagBroadcastAck, 0,
                              GetReqID(&adapter), Gvcp::kHeaderSize);
    code = adapter.m_pSocket->Send(command.Data(), static_cast<int>(command.Size()));
    if (code != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGev::GetDevices Send Failed", code);
        return code;
    }
    int previous = 0;
    code = adapter.m_pSocket->SetTimeout(timeout, previous);
    if (code != GC_ERR_SUCCESS) {
        HLogger::Error(loc::al("GenTL::HALGev::GetDevices SetTimeout Failed setting timeout {0}",
                               {std::to_string(timeout).c_str()})
                           .c_str(),
                       code);
        return code;
    }

    // After the send: answers wait in the sockets' queues, and a failed send keeps the old list.
    discovery.ForgetDevices();
    {
        const boost::this_thread::disable_interruption noInterruption;
        boost::scoped_thread<> direct;
        boost::scoped_thread<> broadcast;
        // The readers inherit the block; the consumer's thread, which waits for them, gets its signals.
        const SignalBlock noSignals;
        direct =
            boost::scoped_thread<>(ReadDiscoveryAcks, &adapter, boost::ref(devices), long{timeout}, false);
        broadcast =
            boost::scoped_thread<>(ReadDiscoveryAcks, &adapter, boost::ref(devices), long{timeout}, true);
    }

    int discoveryTimeout = 0;
    code = adapter.m_pSocket->SetTimeout(previous, discoveryTimeout);
    if (code != GC_ERR_SUCCESS) {
        HLogger::Error(loc::al("GenTL::HALGev::GetDevices SetTimeout Failed setting timout {0}",
                               {std::to_string(previous).c_str()})
                           .c_str(),
                       code);
    }
    return GC_ERR_SUCCESS;
}

void ProcessDiscoveryAck(AdapterHandle* adapter,
                         std::vector<std::tuple<std::string, unsigned>>& devices,
                         long timeoutMs,
                         bool useBroadcastSocket)
{
    // Not cleared between datagrams: a short one keeps what the previous one left behind it.
    std::array<unsigned char, kAnswerSize> answer{};
    CommSocket& socket = useBroadcastSocket ? *adapter->m_pBroadcastSocket : *adapter->m_pSocket;
    const boost::timer::cpu_timer timer;
    for (;;) {
        int code = socket.Receive(reinterpret_cast<char*>(answer.data()), kAnswerSize, true);
        if (code != GC_ERR_SUCCESS) {
            HLogger::Error("GenTL::HALGev::GetDevices Receive Failed", code);
            return;
        }

        // Whatever arrives counts as an answer.
        DeviceData row;
        row.m_adapterAddress = adapter->m_localAddress;
        std::copy_n(answer.begin() + Gvcp::kHeaderSize, row.m_record.size(), row.m_record.begin());
        row.m_deviceId = RecordText(row.m_record, RecordField::kSerialNumber);
        unsigned address = 0;
        std::memcpy(&address, &row.m_record[RecordField::kIpAddress], sizeof address);
        {
            const boost::lock_guard<boost::mutex> lock(adapter->m_devicesMutex);
            adapter->m_devices.push_back(row);
            devices.emplace_back(row.m_deviceId, address);
        }

        const long remaining = timeoutMs - static_cast<long>(timer.elapsed().wall / 1000000);
        if (remaining < 1) {
            return;
        }
        int previous = 0;
        code = socket.SetTimeout(ClampToInt(remaining), previous);
        if (code != GC_ERR_SUCCESS) {
            HLogger::Error(loc::al("GenTL::HALGev::GetDevices SetTimeout Failed setting timout {0}",
                                   {std::to_string(remaining).c_str()})
                               .c_str(),
                           code);
        }
    }
}

int HALGev::ForceIP(void* adapterHandle,
                    unsigned short macHigh,
                    unsigned macLow,
                    unsigned ip,
                    unsigned subnet,
                    unsigned gateway)
{
    if (adapterHandle == nullptr) {
        return Store(GC_ERR_INVALID_HANDLE);
    }
    AdapterHandle& adapter = *ToAdapter(adapterHandle);
    // The length field stays 0 although 56 bytes follow.
    GvcpCommand command(Gvcp::kForceIpCmd, Gvcp::kFlagAck | Gvcp::kFlagBroadcastAck, 0, GetReqID(&adapter),
                        64);
    command.Put16(10, macHigh);
    command.Put32(12, macLow);
    command.Put32(28, ip);
    command.Put32(44, subnet);
    command.Put32(60, gateway);
    return RunSideCommand(*adapter.m_pSocket, kForceIp, command);
}

}  // namespace GenTL
