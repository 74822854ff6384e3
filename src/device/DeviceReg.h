/// The register map of the Device module: what its port has at which address.
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
class DeviceReg
{
public:
    virtual ~DeviceReg() = default;

    virtual int GetDeviceID(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetDeviceSerialNumber(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetDeviceUserID(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetDeviceVendorName(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetDeviceModelName(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetDeviceVersion(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetDeviceType_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetDeviceDisplayName(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetDeviceAccessStatus_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetDeviceAccessStatus_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetDeviceEndianessMechanism_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetDeviceEndianessMechanism_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetGevDeviceIPAddress_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetGevDeviceSubnetMask_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetGevDeviceMACAddress_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetGevDeviceGateway_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetGevDeviceGateway_Available_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetStreamSelector_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetStreamSelector_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetStreamID(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetStreamID_Available_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetActionCommandFireCommand_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetActionCommandDeviceKey_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetActionCommandDeviceKey_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetActionCommandGroupKey_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetActionCommandGroupKey_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetActionCommandGroupMask_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetActionCommandGroupMask_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetActionCommandExecuteTime_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetActionCommandExecuteTime_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetLocalTLXML_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetActionCommandTargetIP_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetActionCommandTargetIP_Reg(const void* pBuffer, unsigned long* piSize) = 0;

    /// A null argument gives GC_ERR_INVALID_PARAMETER, an unknown address GC_ERR_INVALID_ADDRESS, a direction
    /// that the register doesn't have GC_ERR_ACCESS_DENIED; everything else comes from the accessor.
    int DispatchRead(unsigned long address, void* pBuffer, unsigned long* piSize);
    int DispatchWrite(unsigned long address, const void* pBuffer, unsigned long* piSize);

    /// The whole table.
    static const RegisterRow<DeviceReg>* Registers(std::size_t& count);
};

}  // namespace GenTL
