/// The control channel to GigE Vision cameras.
#pragma once

#include "gev/Handles.h"
#include "gev/IHALGev.h"

#include <mutex>

namespace GenTL {

/// GVCP over UDP: discovery, transactions with retries, and the few commands beside them.
///
/// Owns: the list of the host's interfaces. The handles that it makes belong to whoever opened them.
/// Threads: any, on the same handle too. The list of interfaces is not locked: the System module keeps
/// GetInterfaces and OpenInterface apart. GetDevices starts two readers and joins them.
/// Locks, outermost first: the process-wide discovery mutex, AdapterHandle::m_devicesMutex; a device's
/// transaction mutex, then its connection mutex or a request id mutex (an adapter's, then a device's);
/// m_lifeMutex and g_randomMutex are leaves. A transaction waits under its mutex, without limit when somebody
/// keeps sending foreign or pending answers to the port: such a host can hold up the heartbeat and the
/// closing of the device. Life: an object made by new is given up by Dispose. It then lives on until the last
/// of its device handles is closed, so that a device that outlasts its system still works and can be closed.
class HALGev : public IHALGev
{
public:
    HALGev() = default;
    HALGev(const HALGev&) = delete;
    HALGev& operator=(const HALGev&) = delete;
    /// Only for objects without open device handles; Dispose serves all.
    ~HALGev() override = default;

    /// Gives pHal up, at once or with its last device handle, and sets it to null. Null is allowed. Another
    /// implementation is deleted.
    static void Dispose(IHALGev*& pHal);

    int GetInterfaces(std::vector<std::string>& ids) override;
    int OpenInterface(const std::string& id, void** adapterHandle) override;
    int CloseInterface(void* adapterHandle) override;
    int GetDevices(void* adapterHandle,
                   std::vector<std::tuple<std::string, unsigned>>& devices,
                   long timeoutMs) override;
    int OpenDevice(void* adapterHandle, const std::string& deviceId, void** deviceHandle) override;
    int SetDeviceTimeout(void* deviceHandle, int ms) override;
    int CloseDevice(void* deviceHandle) override;

    int ReadReg(void* deviceHandle, unsigned address, unsigned& value) override;
    int WriteReg(void* deviceHandle, unsigned address, unsigned value) override;
    int ReadRegBlock(void* deviceHandle, unsigned address, unsigned* values, unsigned long count) override;
    int WriteRegBlock(void* deviceHandle,
                      unsigned address,
                      const unsigned* values,
                      unsigned long count) override;
    int ReadMem(void* deviceHandle, unsigned address, char* data, unsigned long size) override;
    int WriteMem(void* deviceHandle, unsigned address, const char* data, unsigned long size) override;

    int GetModelName(void* deviceHandle, std::string& text) override;
    int GetModelName(void* adapterHandle, const std::string& deviceId, std::string& text) override;
    int GetVendorName(void* deviceHandle, std::string& text) override;
    int GetVendorName(void* adapterHandle, const std::string& deviceId, std::string& text) override;
    int GetSerialNumber(void* deviceHandle, std::string& text) override;
    int GetSerialNumber(void* adapterHandle, const std::string& deviceId, std::string& text) override;
    int GetUserDefinedName(void* deviceHandle, std::string& text) override;
    int GetUserDefinedName(void* adapterHandle, const std::string& deviceId, std::string& text) override;
    int GetDeviceVersion(void* deviceHandle, std::string& text) override;
    int GetDeviceVersion(void* adapterHandle, const std::string& deviceId, std::string& text) override;

    int GetInterfaceId(void* adapterHandle, std::string& id) override;
    int GetMACAddress(void* adapterHandle, long& address) override;
    int GetIPAddress(void* adapterHandle, long& address) override;
    int GetSubnetMask(void* adapterHandle, long& mask) override;

    int GetDevMACAddress(void* adapterHandle, const std::string& deviceId, long& address) override;
    int GetDevIPAddress(void* adapterHandle, const std::string& deviceId, long& address) override;
    int GetDevSubnetMask(void* adapterHandle, const std::string& deviceId, long& mask) override;
    int GetDevMACAddress(void* deviceHandle, long& address) override;
    int GetDevSubnetMask(void* deviceHandle, long& mask) override;
    int GetDevIPAddress(void* deviceHandle, long& address) override;
    int GetDevDefaultGateway(void* deviceHandle, long& address) override;
    int GetDevIpConfigDHCP(void* deviceHandle, bool& isSet) override;
    int GetDevIpConfigPersistentIp(void* deviceHandle, bool& isSet) override;
    int GetDevIpConfigLLA(void* deviceHandle, bool& isSet) override;
    int GetDevDefaultGateway(void* adapterHandle, const std::string& deviceId, long& address) override;
    int GetDevIpConfigDHCP(void* adapterHandle, const std::string& deviceId, bool& isSet) override;
    int GetDevIpConfigPersistentIp(void* adapterHandle, const std::string& deviceId, bool& isSet) override;
    int GetDevIpConfigLLA(void* adapterHandle, const std::string& deviceId, bool& isSet) override;

    int GetPort(void* handle, unsigned short& port) override;
    int GetDevPort(void* handle, unsigned short& port) override;

    int ForceIP(void* adapterHandle,
                unsigned short macHigh,
                unsigned macLow,
                unsigned ip,
                unsigned subnet,
                unsigned gateway) override;
    int SendPacketResend(void* deviceHandle,
                         unsigned long blockId,
                         unsigned firstPacket,
                         unsigned lastPacket,
                         bool extendedId) override;

    int SetGvcpRetries(unsigned long retries) override;
    int GetGvcpRetries(unsigned long& retries) override;

    int IsConnected(void* adapterHandle, const std::string& deviceId, bool& isConnected) override;
    int IsConnected(void* deviceHandle, bool& isConnected) override;
    int SetConnected(void* deviceHandle, bool isConnected) override;
    int CloseSocket(void* handle) override;
    int SendActionCommand(void* deviceHandle,
                          unsigned deviceKey,
                          unsigned groupKey,
                          unsigned groupMask,
                          unsigned long actionTime) override;

private:
    std::vector<AdapterData> m_adapters;

    std::mutex m_lifeMutex;
    unsigned long m_openDevices = 0;
    bool m_isDisposed = false;
};

/// The GenTL code for a GigE Vision status word; GC_ERR_ERROR for one that isn't known.
int ToGCError(unsigned short status);

/// Reads discovery answers from one of the adapter's sockets for timeoutMs: the body of both readers of a
/// discovery.
void ProcessDiscoveryAck(AdapterHandle* adapter,
                         std::vector<std::tuple<std::string, unsigned>>& devices,
                         long timeoutMs,
                         bool useBroadcastSocket);

}  // namespace GenTL
