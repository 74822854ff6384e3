/// The Device module of any transport.
#pragma once

#include "device/DeviceRegImpl.h"
#include "device/IDevice.h"
#include "modules/ModuleOf.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace GenTL {

class IDataStream;
class IMessageChannel;

/// Answers the general information and keeps the action command's fields; refuses what needs a real device.
/// DeviceGev is the only working kind.
///
/// Owns: the stream objects, the message channels, the register map. Threads: the consumer's. Locks: none.
class Device : public ModuleOf<IDevice>
{
public:
    Device();
    ~Device() override;

    int ReadPort(unsigned long iAddress, void* pBuffer, unsigned long* piSize) override;
    int WritePort(unsigned long iAddress, const void* pBuffer, unsigned long* piSize) override;
    int GetPortURL(char* sURL, unsigned long* piSize) const override;
    int RegisterEvent(int iEventID, void** phEvent) override;
    int UnregisterEvent(int iEventID) override;
    int GetNumPortURLs(unsigned int* piNumURLs) override;
    int GetPortURLInfo(
        unsigned int iURLIndex, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) override;
    int ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries) override;
    int WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries) override;

    int Open(int iOpenFlags, void* hOwn) override;
    int Close() override;
    int GetInfo(int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) override;
    int GetPort(void** phRemoteDevice) override;
    int GetNumDataStreams(unsigned int* piNumDataStreams) override;
    int GetDataStreamID(unsigned int iIndex, char* sDataStreamID, std::size_t* piSize) override;
    int OpenDataStream(const char* sDataStreamID, void** phDataStream) override;
    int GetParentIF(void** phIface) override;
    int SetInfo(int iInfoCmd, int iType, const void* pBuffer, std::size_t iSize) override;
    int SendActionCommand(unsigned int iDeviceKey,
                          unsigned int iGroupKey,
                          unsigned int iGroupMask,
                          unsigned long iActionTime) override;
    int OpenDataStream(const char* sDataStreamID, void** phDataStream, IHALGvsp* pHal) override;

    // The action command that the register map sends. A null pointer gives GC_ERR_INVALID_HANDLE with nothing
    // cached.
    int GetActionCommandDeviceKey(unsigned int* pValue) const;
    int SetActionCommandDeviceKey(const unsigned int* pValue);
    int GetActionCommandGroupKey(unsigned int* pValue) const;
    int SetActionCommandGroupKey(const unsigned int* pValue);
    int GetActionCommandGroupMask(unsigned int* pValue) const;
    int SetActionCommandGroupMask(const unsigned int* pValue);
    int GetActionCommandTargetIP(unsigned int* pValue) const;
    int SetActionCommandTargetIP(const unsigned int* pValue);
    int GetActionCommandExecuteTime(unsigned long* pValue) const;
    int SetActionCommandExecuteTime(const unsigned long* pValue);

protected:
    std::vector<std::unique_ptr<IDataStream>> m_streams;
    std::vector<std::unique_ptr<IMessageChannel>> m_messageChannels;
    std::string m_displayName;
    int m_accessStatus = 0;  // a DEVICE_ACCESS_STATUS value
    std::string m_userDefinedName;
    std::string m_serialNumber;
    std::uint64_t m_timestampFrequency = 0;  // ticks per second
    std::uint32_t m_actionDeviceKey = 0;
    std::uint32_t m_actionGroupKey = 0;
    std::uint32_t m_actionGroupMask = 0;
    std::uint32_t m_actionTargetIP = 0;
    std::uint64_t m_actionExecuteTime = 0;
    DeviceRegImpl m_deviceReg;
};

}  // namespace GenTL
