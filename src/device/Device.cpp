#include "device/Device.h"

#include "channel/IMessageChannel.h"
#include "frame/Error.h"
#include "stream/IDataStream.h"

namespace GenTL {
namespace {

int Refuse(const char* function = __builtin_FUNCTION(), int line = __builtin_LINE())
{
    return Raise(GC_ERR_NOT_IMPLEMENTED, "only GEV devices are supported", function, line);
}

template <typename From, typename To>
int CopyField(const From* from, To* to)
{
    if (from == nullptr || to == nullptr) {
        return GC_ERR_INVALID_HANDLE;
    }
    *to = *from;
    return GC_ERR_SUCCESS;
}

}  // namespace

Device::Device() : m_deviceReg(this) {}
Device::~Device() = default;

int Device::ReadPort(unsigned long, void*, unsigned long*)
{
    return Refuse();
}
int Device::WritePort(unsigned long, const void*, unsigned long*)
{
    return Refuse();
}
int Device::GetPortURL(char*, unsigned long*) const
{
    return Refuse();
}
int Device::RegisterEvent(int, void**)
{
    return Refuse();
}
int Device::UnregisterEvent(int)
{
    return Refuse();
}
int Device::GetNumPortURLs(unsigned int*)
{
    return Refuse();
}
int Device::GetPortURLInfo(unsigned int, int, int*, void*, unsigned long*)
{
    return Refuse();
}
int Device::ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*)
{
    return Refuse();
}
int Device::WritePortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*)
{
    return Refuse();
}
int Device::Open(int, void*)
{
    return Refuse();
}
int Device::Close()
{
    return Refuse();
}
int Device::GetPort(void**)
{
    return Refuse();
}
int Device::GetNumDataStreams(unsigned int*)
{
    return Refuse();
}
int Device::GetDataStreamID(unsigned int, char*, std::size_t*)
{
    return Refuse();
}
int Device::OpenDataStream(const char*, void**)
{
    return Refuse();
}
int Device::GetParentIF(void**)
{
    return Refuse();
}
int Device::SetInfo(int, int, const void*, std::size_t)
{
    return Refuse();
}
int Device::SendActionCommand(unsigned int, unsigned int, unsigned int, unsigned long)
{
    return Refuse();
}
int Device::OpenDataStream(const char*, void**, IHALGvsp*)
{
    return Refuse();
}

int Device::GetInfo(int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize)
{
    const auto answer = [&](const auto& value) { return m_info.SetInfo(value, piType, pBuffer, piSize); };
    switch (iInfoCmd) {
        case DEVICE_INFO_ID:
            return answer(m_portInfo.id);
        case DEVICE_INFO_VENDOR:
            return answer(m_portInfo.vendor);
        case DEVICE_INFO_MODEL:
            return answer(m_portInfo.model);
        case DEVICE_INFO_TLTYPE:
            return answer(m_portInfo.tlType);
        case DEVICE_INFO_DISPLAYNAME:
            return answer(m_displayName);
        case DEVICE_INFO_ACCESS_STATUS:
            return answer(m_accessStatus);
        case DEVICE_INFO_USER_DEFINED_NAME:
            return answer(m_userDefinedName);
        case DEVICE_INFO_SERIAL_NUMBER:
            return answer(m_serialNumber);
        case DEVICE_INFO_VERSION:
            return answer(m_portInfo.version);
        case DEVICE_INFO_TIMESTAMP_FREQUENCY:
            return answer(m_timestampFrequency);
        default:
            return Raise(GC_ERR_INVALID_INDEX,
                         "iInfoCmd must be one of :\n"
                         "GenTL::DEVICE_INFO_ID, GenTL::DEVICE_INFO_TLTYPE, \n"
                         "GenTL::DEVICE_INFO_DISPLAYNAME, GenTL::DEVICE_INFO_MODEL, \n"
                         "GenTL::DEVICE_INFO_VENDOR, GenTL::DEVICE_INFO_SERIAL_NUMBER, \n"
                         "GenTL::DEVICE_INFO_ACCESS_STATUS, GenTL::DEVICE_INFO_USER_DEFINED_NAME, \n"
                         "GenTL::DEVICE_INFO_VERSION, GenTL::DEVICE_INFO_TIMESTAMP_FREQUENCY");
    }
}

int Device::GetActionCommandDeviceKey(unsigned int* pValue) const
{
    return CopyField(&m_actionDeviceKey, pValue);
}
int Device::SetActionCommandDeviceKey(const unsigned int* pValue)
{
    return CopyField(pValue, &m_actionDeviceKey);
}
int Device::GetActionCommandGroupKey(unsigned int* pValue) const
{
    return CopyField(&m_actionGroupKey, pValue);
}
int Device::SetActionCommandGroupKey(const unsigned int* pValue)
{
    return CopyField(pValue, &m_actionGroupKey);
}
int Device::GetActionCommandGroupMask(unsigned int* pValue) const
{
    return CopyField(&m_actionGroupMask, pValue);
}
int Device::SetActionCommandGroupMask(const unsigned int* pValue)
{
    return CopyField(pValue, &m_actionGroupMask);
}
int Device::GetActionCommandTargetIP(unsigned int* pValue) const
{
    return CopyField(&m_actionTargetIP, pValue);
}
int Device::SetActionCommandTargetIP(const unsigned int* pValue)
{
    return CopyField(pValue, &m_actionTargetIP);
}

int Device::GetActionCommandExecuteTime(unsigned long* pValue) const
{
    return CopyField(&m_actionExecuteTime, pValue);
}

int Device::SetActionCommandExecuteTime(const unsigned long* pValue)
{
    return CopyField(pValue, &m_actionExecuteTime);
}

}  // namespace GenTL
