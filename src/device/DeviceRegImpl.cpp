#include "device/DeviceRegImpl.h"

#include "device/Device.h"
#include "frame/Error.h"
#include "modules/RegisterField.h"
#include "xml/LocalXml.h"

#include <cstdint>
#include <cstring>
#include <string>

namespace GenTL {
namespace {

constexpr int kEndianessMechanism = 1001;  // custom DEVICE_INFO command

}  // namespace

int DeviceRegImpl::GetDeviceID(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pDevice, DEVICE_INFO_ID, pBuffer, piSize);
}
int DeviceRegImpl::GetDeviceSerialNumber(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pDevice, DEVICE_INFO_SERIAL_NUMBER, pBuffer, piSize);
}
int DeviceRegImpl::GetDeviceUserID(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pDevice, DEVICE_INFO_USER_DEFINED_NAME, pBuffer, piSize);
}
int DeviceRegImpl::GetDeviceVendorName(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pDevice, DEVICE_INFO_VENDOR, pBuffer, piSize);
}
int DeviceRegImpl::GetDeviceModelName(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pDevice, DEVICE_INFO_MODEL, pBuffer, piSize);
}
int DeviceRegImpl::GetDeviceVersion(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pDevice, DEVICE_INFO_VERSION, pBuffer, piSize);
}
int DeviceRegImpl::GetDeviceType_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadValue(m_info, kGigEVision, pBuffer, piSize);
}
int DeviceRegImpl::GetDeviceDisplayName(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pDevice, DEVICE_INFO_DISPLAYNAME, pBuffer, piSize);
}

int DeviceRegImpl::GetDeviceAccessStatus_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pDevice, DEVICE_INFO_ACCESS_STATUS, pBuffer, piSize);
}

int DeviceRegImpl::SetDeviceAccessStatus_Reg(const void* pBuffer, unsigned long* piSize)
{
    return m_pDevice->SetInfo(DEVICE_INFO_ACCESS_STATUS, INFO_DATATYPE_INT32, pBuffer, *piSize);
}

int DeviceRegImpl::GetDeviceEndianessMechanism_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pDevice, kEndianessMechanism, pBuffer, piSize);
}

int DeviceRegImpl::SetDeviceEndianessMechanism_Reg(const void* pBuffer, unsigned long* piSize)
{
    return m_pDevice->SetInfo(kEndianessMechanism, INFO_DATATYPE_INT64, pBuffer, *piSize);
}

int DeviceRegImpl::GetGevDeviceIPAddress_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pDevice, DEVICE_INFO_GEV_IP_ADDRESS, pBuffer, piSize);
}
int DeviceRegImpl::GetGevDeviceSubnetMask_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pDevice, DEVICE_INFO_GEV_SUBNET_MASK, pBuffer, piSize);
}
int DeviceRegImpl::GetGevDeviceMACAddress_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pDevice, DEVICE_INFO_GEV_MAC_ADDRESS, pBuffer, piSize);
}
int DeviceRegImpl::GetGevDeviceGateway_Reg(void*, unsigned long*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}
int DeviceRegImpl::GetGevDeviceGateway_Available_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadValue(m_info, kNotAvailable, pBuffer, piSize);
}

int DeviceRegImpl::GetStreamSelector_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadValue(m_info, m_streamSelector, pBuffer, piSize);
}

int DeviceRegImpl::SetStreamSelector_Reg(const void* pBuffer, unsigned long* piSize)
{
    std::int32_t value = 0;
    if (*piSize < sizeof value) {
        return GC_ERR_BUFFER_TOO_SMALL;
    }
    unsigned int numStreams = 0;
    if (const int code = m_pDevice->GetNumDataStreams(&numStreams); code != GC_ERR_SUCCESS) {
        return code;
    }
    std::memcpy(&value, pBuffer, sizeof value);
    m_streamSelector = value;
    // As unsigned, so that a negative value is no stream.
    if (static_cast<unsigned long>(m_streamSelector) >= numStreams) {
        return GC_ERR_INVALID_INDEX;
    }
    *piSize = sizeof m_streamSelector;
    return GC_ERR_SUCCESS;
}

int DeviceRegImpl::GetStreamID(void* pBuffer, unsigned long* piSize)
{
    char id[kTextLength] = {};
    unsigned long size = sizeof id;
    const auto index = static_cast<unsigned int>(m_streamSelector);
    if (const int code = m_pDevice->GetDataStreamID(index, id, &size); code != GC_ERR_SUCCESS) {
        return code;
    }
    return ReadValue(m_info, std::string(id), pBuffer, piSize);
}

int DeviceRegImpl::GetStreamID_Available_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadValue(m_info, kNotAvailable, pBuffer, piSize);
}

int DeviceRegImpl::SetActionCommandFireCommand_Reg(const void*, unsigned long*)
{
    unsigned int deviceKey = 0;
    unsigned int groupKey = 0;
    unsigned int groupMask = 0;
    unsigned long executeTime = 0;
    m_pDevice->GetActionCommandDeviceKey(&deviceKey);
    m_pDevice->GetActionCommandGroupKey(&groupKey);
    m_pDevice->GetActionCommandGroupMask(&groupMask);
    m_pDevice->GetActionCommandExecuteTime(&executeTime);
    return m_pDevice->SendActionCommand(deviceKey, groupKey, groupMask, executeTime);
}

int DeviceRegImpl::GetActionCommandDeviceKey_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadField(*m_pDevice, &Device::GetActionCommandDeviceKey, pBuffer, piSize);
}
int DeviceRegImpl::SetActionCommandDeviceKey_Reg(const void* pBuffer, unsigned long* piSize)
{
    return WriteField(*m_pDevice, &Device::SetActionCommandDeviceKey, pBuffer, piSize);
}
int DeviceRegImpl::GetActionCommandGroupKey_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadField(*m_pDevice, &Device::GetActionCommandGroupKey, pBuffer, piSize);
}
int DeviceRegImpl::SetActionCommandGroupKey_Reg(const void* pBuffer, unsigned long* piSize)
{
    return WriteField(*m_pDevice, &Device::SetActionCommandGroupKey, pBuffer, piSize);
}
int DeviceRegImpl::GetActionCommandGroupMask_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadField(*m_pDevice, &Device::GetActionCommandGroupMask, pBuffer, piSize);
}
int DeviceRegImpl::SetActionCommandGroupMask_Reg(const void* pBuffer, unsigned long* piSize)
{
    return WriteField(*m_pDevice, &Device::SetActionCommandGroupMask, pBuffer, piSize);
}
int DeviceRegImpl::GetActionCommandExecuteTime_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadField(*m_pDevice, &Device::GetActionCommandExecuteTime, pBuffer, piSize);
}
int DeviceRegImpl::SetActionCommandExecuteTime_Reg(const void* pBuffer, unsigned long* piSize)
{
    return WriteField(*m_pDevice, &Device::SetActionCommandExecuteTime, pBuffer, piSize);
}

int DeviceRegImpl::GetLocalTLXML_Reg(void* pBuffer, unsigned long*)
{
    std::memcpy(pBuffer, kDeviceXml.data(), kDeviceXml.size());
    return GC_ERR_SUCCESS;
}

int DeviceRegImpl::GetActionCommandTargetIP_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadField(*m_pDevice, &Device::GetActionCommandTargetIP, pBuffer, piSize);
}
int DeviceRegImpl::SetActionCommandTargetIP_Reg(const void* pBuffer, unsigned long* piSize)
{
    return WriteField(*m_pDevice, &Device::SetActionCommandTargetIP, pBuffer, piSize);
}

}  // namespace GenTL
