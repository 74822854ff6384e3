/// The values behind the Interface module's register map.
#pragma once

#include "frame/InfoUtility.h"
#include "modules/IndexSelector.h"
#include "modules/InterfaceReg.h"

namespace GenTL {

class Interface;

/// Answers from an Interface, and keeps which of its devices the consumer looks at.
///
/// Owns: the selection. Borrows: the interface, whose member this is. Threads: the consumer's, one at a time.
/// Locks: none.
class InterfaceRegImpl : public InterfaceReg
{
public:
    explicit InterfaceRegImpl(Interface* pInterface) : m_pInterface(pInterface) {}

    int GetInterfaceID(void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceDisplayName(void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceType_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetGevInterfaceGatewaySelector_Reg(void* pBuffer, unsigned long* piSize) override;
    int SetGevInterfaceGatewaySelector_Reg(const void* pBuffer, unsigned long* piSize) override;
    int GetGevInterfaceGatewaySelector_Available_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetGevInterfaceGateway_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetGevInterfaceGateway_Available_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetGevInterfaceMACAddress_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetGevInterfaceSubnetSelector_Reg(void* pBuffer, unsigned long* piSize) override;
    int SetGevInterfaceSubnetSelector_Reg(const void* pBuffer, unsigned long* piSize) override;
    int GetGevInterfaceSubnetSelector_Available_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetGevInterfaceSubnetIPAddress_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetGevInterfaceSubnetMask_Reg(void* pBuffer, unsigned long* piSize) override;
    int SetInterfaceDeviceUpdateList_Reg(const void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceDeviceSelector_Reg(void* pBuffer, unsigned long* piSize) override;
    int SetInterfaceDeviceSelector_Reg(const void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceDeviceSelector_Min_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceDeviceSelector_Max_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceDeviceID(void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceDeviceID_Available_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceDeviceVendorName(void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceDeviceVendorName_Available_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceDeviceModelName(void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceDeviceModelName_Available_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceDeviceAccessStatus_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceDeviceAccessStatus_Available_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceDeviceSerialNumber(void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceDeviceSerialNumber_Available_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceDeviceUserID(void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceDeviceUserID_Available_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceGevDeviceIPAddress_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceGevDeviceIPAddress_Available_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceGevDeviceSubnetMask_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceGevDeviceSubnetMask_Available_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceGevDeviceMACAddress_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceGevDeviceMACAddress_Available_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetLocalTLXML_Reg(void* pBuffer, unsigned long* piSize) override;

private:
    int SelectedDeviceInfo(int command, void* pBuffer, unsigned long* piSize);
    int AnswerIsDeviceSelected(void* pBuffer, unsigned long* piSize) const;

    Interface* m_pInterface;
    IndexSelector m_deviceSelector;
    InfoUtility m_info;
};

}  // namespace GenTL
