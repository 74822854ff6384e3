/// The register map of the System module: what its port has at which address.
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
class SystemReg
{
public:
    virtual ~SystemReg() = default;

    virtual int GetTLID(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetTLVendorName(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetTLModelName(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetTLVersion(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetTLFileName(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetTLDisplayName(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetTLPath(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetTLType_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetGenTLVersionMajor_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetGenTLVersionMinor_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetGenTLSFNCVersionMajor_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetGenTLSFNCVersionMinor_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetGenTLSFNCVersionSubMinor_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetGevVersionMajor_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetGevVersionMinor_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetInterfaceUpdateList_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceSelector_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetInterfaceSelector_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceSelector_Min_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceSelector_Max_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceID(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetInterfaceID_Available_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetGevInterfaceMACAddress_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetGevInterfaceMACAddress_Available_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetGevInterfaceDefaultIPAddress_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetGevInterfaceDefaultIPAddress_Available_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetGevInterfaceDefaultSubnetMask_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetGevInterfaceDefaultSubnetMask_Available_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetActionCommandFireCommand_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetActionCommandDeviceKey_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetActionCommandDeviceKey_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetActionCommandGroupKey_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetActionCommandGroupKey_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetActionCommandGroupMask_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetActionCommandGroupMask_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetActionCommandTargetIP_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetActionCommandTargetIP_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetActionCommandExecuteTime_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetActionCommandExecuteTime_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetThreadSelection_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetThreadSelection_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetThreadPriority_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetThreadPriority_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetWriteDriverLogToFilePath_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetWriteDriverLogToFilePath_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetWriteDriverLogToFileCommand_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetLocalTLXML_Reg(void* pBuffer, unsigned long* piSize) = 0;

    /// A null argument gives GC_ERR_INVALID_PARAMETER, an unknown address GC_ERR_INVALID_ADDRESS, a direction
    /// that the register doesn't have GC_ERR_ACCESS_DENIED; everything else comes from the accessor.
    int DispatchRead(unsigned long address, void* pBuffer, unsigned long* piSize);
    int DispatchWrite(unsigned long address, const void* pBuffer, unsigned long* piSize);

    /// The whole table.
    static const RegisterRow<SystemReg>* Registers(std::size_t& count);
};

}  // namespace GenTL
