#include "modules/InterfaceRegImpl.h"

#include "frame/Error.h"
#include "modules/Interface.h"
#include "modules/RegisterField.h"
#include "xml/LocalXml.h"

#include <cstring>

namespace GenTL {
namespace {

constexpr unsigned long kDiscoveryMs = 100;

}  // namespace

int InterfaceRegImpl::SelectedDeviceInfo(int command, void* pBuffer, unsigned long* piSize)
{
    char id[kTextLength] = {};
    unsigned long size = sizeof id;
    const int code = m_pInterface->GetDeviceID(m_deviceSelector.Index(), id, &size);
    if (code != GC_ERR_SUCCESS) {
        return code;
    }
    int type = 0;
    return m_pInterface->GetDeviceInfo(id, command, &type, pBuffer, piSize);
}

int InterfaceRegImpl::AnswerIsDeviceSelected(void* pBuffer, unsigned long* piSize) const
{
    unsigned int count = 0;
    const bool selected =
        m_pInterface->GetNumDevices(&count) == GC_ERR_SUCCESS && m_deviceSelector.IsWithin(count);
    return ReadValue(m_info, static_cast<int>(selected), pBuffer, piSize);
}

int InterfaceRegImpl::GetInterfaceID(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pInterface, INTERFACE_INFO_ID, pBuffer, piSize);
}

int InterfaceRegImpl::GetInterfaceDisplayName(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pInterface, INTERFACE_INFO_DISPLAYNAME, pBuffer, piSize);
}

int InterfaceRegImpl::GetInterfaceType_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadValue(m_info, kGigEVision, pBuffer, piSize);
}

int InterfaceRegImpl::GetGevInterfaceGatewaySelector_Reg(void*, unsigned long*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int InterfaceRegImpl::SetGevInterfaceGatewaySelector_Reg(const void*, unsigned long*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int InterfaceRegImpl::GetGevInterfaceGatewaySelector_Available_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadValue(m_info, kNotAvailable, pBuffer, piSize);
}

int InterfaceRegImpl::GetGevInterfaceGateway_Reg(void*, unsigned long*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int InterfaceRegImpl::GetGevInterfaceGateway_Available_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadValue(m_info, kNotAvailable, pBuffer, piSize);
}

int InterfaceRegImpl::GetGevInterfaceMACAddress_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pInterface, INTERFACE_INFO_GEV_MAC_ADDRESS, pBuffer, piSize);
}

int InterfaceRegImpl::GetGevInterfaceSubnetSelector_Reg(void*, unsigned long*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int InterfaceRegImpl::SetGevInterfaceSubnetSelector_Reg(const void*, unsigned long*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int InterfaceRegImpl::GetGevInterfaceSubnetSelector_Available_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadValue(m_info, kNotAvailable, pBuffer, piSize);
}

int InterfaceRegImpl::GetGevInterfaceSubnetIPAddress_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pInterface, INTERFACE_INFO_GEV_SUBNET_IP_ADDRESS, pBuffer, piSize);
}

int InterfaceRegImpl::GetGevInterfaceSubnetMask_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pInterface, INTERFACE_INFO_GEV_SUBNET_MASK, pBuffer, piSize);
}

int InterfaceRegImpl::SetInterfaceDeviceUpdateList_Reg(const void*, unsigned long*)
{
    bool changed = false;
    return m_pInterface->UpdateDeviceList(&changed, kDiscoveryMs);
}

int InterfaceRegImpl::GetInterfaceDeviceSelector_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadValue(m_info, long{m_deviceSelector.Value()}, pBuffer, piSize);
}

int InterfaceRegImpl::SetInterfaceDeviceSelector_Reg(const void* pBuffer, unsigned long* piSize)
{
    unsigned int count = 0;
    if (const int code = m_pInterface->GetNumDevices(&count); code != GC_ERR_SUCCESS) {
        return code;
    }
    return m_deviceSelector.Write(pBuffer, piSize, count);
}

int InterfaceRegImpl::GetInterfaceDeviceSelector_Min_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadValue(m_info, 0, pBuffer, piSize);
}

int InterfaceRegImpl::GetInterfaceDeviceSelector_Max_Reg(void* pBuffer, unsigned long* piSize)
{
    unsigned int count = 0;
    if (const int code = m_pInterface->GetNumDevices(&count); code != GC_ERR_SUCCESS) {
        return code;
    }
    return ReadValue(m_info, IndexSelector::Highest(count), pBuffer, piSize);
}

int InterfaceRegImpl::GetInterfaceDeviceID(void* pBuffer, unsigned long* piSize)
{
    return SelectedDeviceInfo(DEVICE_INFO_ID, pBuffer, piSize);
}

int InterfaceRegImpl::GetInterfaceDeviceID_Available_Reg(void* pBuffer, unsigned long* piSize)
{
    return AnswerIsDeviceSelected(pBuffer, piSize);
}

int InterfaceRegImpl::GetInterfaceDeviceVendorName(void* pBuffer, unsigned long* piSize)
{
    return SelectedDeviceInfo(DEVICE_INFO_VENDOR, pBuffer, piSize);
}

int InterfaceRegImpl::GetInterfaceDeviceVendorName_Available_Reg(void* pBuffer, unsigned long* piSize)
{
    return AnswerIsDeviceSelected(pBuffer, piSize);
}

int InterfaceRegImpl::GetInterfaceDeviceModelName(void* pBuffer, unsigned long* piSize)
{
    return SelectedDeviceInfo(DEVICE_INFO_MODEL, pBuffer, piSize);
}

int InterfaceRegImpl::GetInterfaceDeviceModelName_Available_Reg(void* pBuffer, unsigned long* piSize)
{
    return AnswerIsDeviceSelected(pBuffer, piSize);
}

int InterfaceRegImpl::GetInterfaceDeviceAccessStatus_Reg(void* pBuffer, unsigned long* piSize)
{
    return SelectedDeviceInfo(DEVICE_INFO_ACCESS_STATUS, pBuffer, piSize);
}

int InterfaceRegImpl::GetInterfaceDeviceAccessStatus_Available_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadValue(m_info, kNotAvailable, pBuffer, piSize);
}

int InterfaceRegImpl::GetInterfaceDeviceSerialNumber(void* pBuffer, unsigned long* piSize)
{
    return SelectedDeviceInfo(DEVICE_INFO_SERIAL_NUMBER, pBuffer, piSize);
}

int InterfaceRegImpl::GetInterfaceDeviceSerialNumber_Available_Reg(void* pBuffer, unsigned long* piSize)
{
    return AnswerIsDeviceSelected(pBuffer, piSize);
}

int InterfaceRegImpl::GetInterfaceDeviceUserID(void* pBuffer, unsigned long* piSize)
{
    return SelectedDeviceInfo(DEVICE_INFO_USER_DEFINED_NAME, pBuffer, piSize);
}

int InterfaceRegImpl::GetInterfaceDeviceUserID_Available_Reg(void* pBuffer, unsigned long* piSize)
{
    return AnswerIsDeviceSelected(pBuffer, piSize);
}

int InterfaceRegImpl::GetInterfaceGevDeviceIPAddress_Reg(void* pBuffer, unsigned long* piSize)
{
    return SelectedDeviceInfo(DEVICE_INFO_GEV_IP_ADDRESS, pBuffer, piSize);
}

int InterfaceRegImpl::GetInterfaceGevDeviceIPAddress_Available_Reg(void* pBuffer, unsigned long* piSize)
{
    return AnswerIsDeviceSelected(pBuffer, piSize);
}

int InterfaceRegImpl::GetInterfaceGevDeviceSubnetMask_Reg(void* pBuffer, unsigned long* piSize)
{
    return SelectedDeviceInfo(DEVICE_INFO_GEV_SUBNET_MASK, pBuffer, piSize);
}

int InterfaceRegImpl::GetInterfaceGevDeviceSubnetMask_Available_Reg(void* pBuffer, unsigned long* piSize)
{
    return AnswerIsDeviceSelected(pBuffer, piSize);
}

int InterfaceRegImpl::GetInterfaceGevDeviceMACAddress_Reg(void* pBuffer, unsigned long* piSize)
{
    return SelectedDeviceInfo(DEVICE_INFO_GEV_MAC_ADDRESS, pBuffer, piSize);
}

int InterfaceRegImpl::GetInterfaceGevDeviceMACAddress_Available_Reg(void* pBuffer, unsigned long* piSize)
{
    return AnswerIsDeviceSelected(pBuffer, piSize);
}

int InterfaceRegImpl::GetLocalTLXML_Reg(void* pBuffer, unsigned long*)
{
    std::memcpy(pBuffer, kInterfaceXml.data(), kInterfaceXml.size());
    return GC_ERR_SUCCESS;
}

}  // namespace GenTL
