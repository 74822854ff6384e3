/// The register map of the Interface module: what its port has at which address.
#pragma once

#include "modules/RegisterMap.h"

#include <cstddef>

namespace GenTL {

/// Finds the accessor of an address; the values come from the implementation.
///
/// Every accessor answers 0 or a GC_ERR_ code. On entry *piSize is the room in pBuffer, or the length of what
/// it holds, in bytes. Numbers are little-endian; an accessor may move fewer bytes than the register is long.
///
/// Owns: nothing. Threads: the consumer's, one at a time. Locks: none.
class InterfaceReg
{
public:
    virtual ~InterfaceReg() = default;

    virtual int GetInterfaceID(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceDisplayName(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceType_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetGevInterfaceGatewaySelector_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetGevInterfaceGatewaySelector_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetGevInterfaceGatewaySelector_Available_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetGevInterfaceGateway_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetGevInterfaceGateway_Available_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetGevInterfaceMACAddress_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetGevInterfaceSubnetSelector_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetGevInterfaceSubnetSelector_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetGevInterfaceSubnetSelector_Available_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetGevInterfaceSubnetIPAddress_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetGevInterfaceSubnetMask_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetInterfaceDeviceUpdateList_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceDeviceSelector_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetInterfaceDeviceSelector_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceDeviceSelector_Min_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceDeviceSelector_Max_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceDeviceID(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceDeviceID_Available_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceDeviceVendorName(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceDeviceVendorName_Available_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceDeviceModelName(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceDeviceModelName_Available_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceDeviceAccessStatus_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceDeviceAccessStatus_Available_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceDeviceSerialNumber(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceDeviceSerialNumber_Available_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceDeviceUserID(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceDeviceUserID_Available_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceGevDeviceIPAddress_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceGevDeviceIPAddress_Available_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceGevDeviceSubnetMask_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceGevDeviceSubnetMask_Available_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceGevDeviceMACAddress_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceGevDeviceMACAddress_Available_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetLocalTLXML_Reg(void* pBuffer, unsigned long* piSize) = 0;

    /// A null argument gives GC_ERR_INVALID_PARAMETER, an unknown address GC_ERR_INVALID_ADDRESS, a direction
    /// that the register doesn't have GC_ERR_ACCESS_DENIED; everything else comes from the accessor.
    int DispatchRead(unsigned long address, void* pBuffer, unsigned long* piSize);
    int DispatchWrite(unsigned long address, const void* pBuffer, unsigned long* piSize);

    /// The whole table.
    static const RegisterRow<InterfaceReg>* Registers(std::size_t& count);
};

}  // namespace GenTL
