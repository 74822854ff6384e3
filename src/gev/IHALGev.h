/// The control layer as the modules see it.
#pragma once

#include <string>
#include <tuple>
#include <vector>

namespace GenTL {

/// Every operation gives 0 or a GenTL code. A void* is an adapter handle in what concerns interfaces and
/// device lists, a device handle in what concerns a camera; a null one gives GC_ERR_INVALID_HANDLE.
/// Addresses, masks and values are in host order, times in milliseconds.
class IHALGev
{
public:
    IHALGev() = default;
    IHALGev(const IHALGev&) = delete;
    IHALGev& operator=(const IHALGev&) = delete;
    virtual ~IHALGev() = default;

    /// Appends the IDs of the host's IPv4 interfaces.
    virtual int GetInterfaces(std::vector<std::string>& ids) = 0;
    virtual int OpenInterface(const std::string& id, void** adapterHandle) = 0;
    /// Ends a discovery that runs on another thread.
    virtual int CloseInterface(void* adapterHandle) = 0;
    /// DISCOVERY_CMD. Gathers answers for the whole time-out and appends (device ID, address in network
    /// order).
    virtual int GetDevices(void* adapterHandle,
                           std::vector<std::tuple<std::string, unsigned int>>& devices,
                           long timeoutMs) = 0;
    /// GC_ERR_INVALID_ID when the last discovery didn't find the camera. Sends nothing to it.
    virtual int OpenDevice(void* adapterHandle, const std::string& deviceId, void** deviceHandle) = 0;
    /// Replaces the time that one try of a register access waits.
    virtual int SetDeviceTimeout(void* deviceHandle, int timeoutMs) = 0;
    virtual int CloseDevice(void* deviceHandle) = 0;

    /// READREG_CMD. A success may leave value as it was: start it at 0.
    virtual int ReadReg(void* deviceHandle, unsigned int address, unsigned int& value) = 0;
    /// WRITEREG_CMD.
    virtual int WriteReg(void* deviceHandle, unsigned int address, unsigned int value) = 0;
    /// READREG_CMD of at most 136 consecutive registers.
    virtual int ReadRegBlock(void* deviceHandle,
                             unsigned int address,
                             unsigned int* values,
                             unsigned long count) = 0;
    /// WRITEREG_CMD of at most 68 consecutive registers. The values go out byte for byte as they lie in
    /// memory.
    virtual int WriteRegBlock(void* deviceHandle,
                              unsigned int address,
                              const unsigned int* values,
                              unsigned long count) = 0;
    /// READMEM_CMD of at most 536 bytes.
    virtual int ReadMem(void* deviceHandle, unsigned int address, char* data, unsigned long size) = 0;
    /// WRITEMEM_CMD of at most 536 bytes, padded with zeros to a multiple of 4.
    virtual int WriteMem(void* deviceHandle, unsigned int address, const char* data, unsigned long size) = 0;

    // From the discovery record.
    virtual int GetModelName(void* deviceHandle, std::string& name) = 0;
    virtual int GetModelName(void* adapterHandle, const std::string& deviceId, std::string& name) = 0;
    virtual int GetVendorName(void* deviceHandle, std::string& name) = 0;
    virtual int GetVendorName(void* adapterHandle, const std::string& deviceId, std::string& name) = 0;
    virtual int GetSerialNumber(void* deviceHandle, std::string& number) = 0;
    virtual int GetSerialNumber(void* adapterHandle, const std::string& deviceId, std::string& number) = 0;
    virtual int GetUserDefinedName(void* deviceHandle, std::string& name) = 0;
    virtual int GetUserDefinedName(void* adapterHandle, const std::string& deviceId, std::string& name) = 0;
    virtual int GetDeviceVersion(void* deviceHandle, std::string& version) = 0;
    virtual int GetDeviceVersion(void* adapterHandle, const std::string& deviceId, std::string& version) = 0;

    // Of the adapter.
    virtual int GetInterfaceId(void* adapterHandle, std::string& id) = 0;
    virtual int GetMACAddress(void* adapterHandle, long& mac) = 0;
    virtual int GetIPAddress(void* adapterHandle, long& ip) = 0;
    virtual int GetSubnetMask(void* adapterHandle, long& mask) = 0;

    // From the discovery record.
    virtual int GetDevMACAddress(void* adapterHandle, const std::string& deviceId, long& mac) = 0;
    virtual int GetDevIPAddress(void* adapterHandle, const std::string& deviceId, long& ip) = 0;
    virtual int GetDevSubnetMask(void* adapterHandle, const std::string& deviceId, long& mask) = 0;
    virtual int GetDevMACAddress(void* deviceHandle, long& mac) = 0;
    virtual int GetDevSubnetMask(void* deviceHandle, long& mask) = 0;
    virtual int GetDevIPAddress(void* deviceHandle, long& ip) = 0;
    virtual int GetDevDefaultGateway(void* deviceHandle, long& gateway) = 0;
    // On a device handle the three flags are looked for in the field's most significant byte.
    virtual int GetDevIpConfigDHCP(void* deviceHandle, bool& isOn) = 0;
    virtual int GetDevIpConfigPersistentIp(void* deviceHandle, bool& isOn) = 0;
    virtual int GetDevIpConfigLLA(void* deviceHandle, bool& isOn) = 0;
    virtual int GetDevDefaultGateway(void* adapterHandle, const std::string& deviceId, long& gateway) = 0;
    virtual int GetDevIpConfigDHCP(void* adapterHandle, const std::string& deviceId, bool& isOn) = 0;
    virtual int GetDevIpConfigPersistentIp(void* adapterHandle, const std::string& deviceId, bool& isOn) = 0;
    virtual int GetDevIpConfigLLA(void* adapterHandle, const std::string& deviceId, bool& isOn) = 0;

    // The local and the remote port of either handle's socket.
    virtual int GetPort(void* handle, unsigned short& port) = 0;
    virtual int GetDevPort(void* handle, unsigned short& port) = 0;

    /// FORCEIP_CMD to the camera with this MAC address. Not to be run beside a discovery on the same adapter.
    virtual int ForceIP(void* adapterHandle,
                        unsigned short macHigh,
                        unsigned int macLow,
                        unsigned int ip,
                        unsigned int subnet,
                        unsigned int gateway) = 0;
    /// PACKETRESEND_CMD; waits for no answer. Without extendedId the block ID is cut to 16 bits.
    virtual int SendPacketResend(void* deviceHandle,
                                 unsigned long blockId,
                                 unsigned int firstPacket,
                                 unsigned int lastPacket,
                                 bool extendedId) = 0;
    /// How often a register or memory access is repeated after a time-out; process-wide.
    virtual int SetGvcpRetries(unsigned long retries) = 0;
    virtual int GetGvcpRetries(unsigned long& retries) = 0;
    /// Always GC_ERR_NOT_AVAILABLE: only an opened camera is watched.
    virtual int IsConnected(void* adapterHandle, const std::string& deviceId, bool& isConnected) = 0;
    /// False after a failed send or three receive time-outs in a row; only SetConnected makes it true.
    virtual int IsConnected(void* deviceHandle, bool& isConnected) = 0;
    virtual int SetConnected(void* deviceHandle, bool isConnected) = 0;
    /// Closes the handle's socket; the handle stays.
    virtual int CloseSocket(void* handle) = 0;
    /// ACTION_CMD to this camera. The device's time-out stays at 2000 ms afterwards.
    virtual int SendActionCommand(void* deviceHandle,
                                  unsigned int deviceKey,
                                  unsigned int groupKey,
                                  unsigned int groupMask,
                                  unsigned long actionTime) = 0;
};

}  // namespace GenTL
