/// The values behind the System module's register map.
#pragma once

#include "frame/InfoUtility.h"
#include "modules/IndexSelector.h"
#include "modules/SystemReg.h"

#include <cstdint>

namespace GenTL {

class System;

/// Answers from a System, and keeps which interface and which kind of thread the consumer looks at.
///
/// The selector and the action command's fields refuse with bare codes; the thread registers cache their
/// errors.
///
/// Owns: the two selections. Borrows: the system, whose member this is. Threads: the consumer's, one at a
/// time. Locks: none.
class SystemRegImpl : public SystemReg
{
public:
    explicit SystemRegImpl(System* system) : m_pSystem(system) {}

    int GetTLID(void* pBuffer, unsigned long* piSize) override;
    int GetTLVendorName(void* pBuffer, unsigned long* piSize) override;
    int GetTLModelName(void* pBuffer, unsigned long* piSize) override;
    int GetTLVersion(void* pBuffer, unsigned long* piSize) override;
    int GetTLFileName(void* pBuffer, unsigned long* piSize) override;
    int GetTLDisplayName(void* pBuffer, unsigned long* piSize) override;
    int GetTLPath(void* pBuffer, unsigned long* piSize) override;
    int GetTLType_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetGenTLVersionMajor_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetGenTLVersionMinor_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetGenTLSFNCVersionMajor_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetGenTLSFNCVersionMinor_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetGenTLSFNCVersionSubMinor_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetGevVersionMajor_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetGevVersionMinor_Reg(void* pBuffer, unsigned long* piSize) override;
    int SetInterfaceUpdateList_Reg(const void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceSelector_Reg(void* pBuffer, unsigned long* piSize) override;
    int SetInterfaceSelector_Reg(const void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceSelector_Min_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceSelector_Max_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceID(void* pBuffer, unsigned long* piSize) override;
    int GetInterfaceID_Available_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetGevInterfaceMACAddress_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetGevInterfaceMACAddress_Available_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetGevInterfaceDefaultIPAddress_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetGevInterfaceDefaultIPAddress_Available_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetGevInterfaceDefaultSubnetMask_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetGevInterfaceDefaultSubnetMask_Available_Reg(void* pBuffer, unsigned long* piSize) override;
    int SetActionCommandFireCommand_Reg(const void* pBuffer, unsigned long* piSize) override;
    int GetActionCommandDeviceKey_Reg(void* pBuffer, unsigned long* piSize) override;
    int SetActionCommandDeviceKey_Reg(const void* pBuffer, unsigned long* piSize) override;
    int GetActionCommandGroupKey_Reg(void* pBuffer, unsigned long* piSize) override;
    int SetActionCommandGroupKey_Reg(const void* pBuffer, unsigned long* piSize) override;
    int GetActionCommandGroupMask_Reg(void* pBuffer, unsigned long* piSize) override;
    int SetActionCommandGroupMask_Reg(const void* pBuffer, unsigned long* piSize) override;
    int GetActionCommandTargetIP_Reg(void* pBuffer, unsigned long* piSize) override;
    int SetActionCommandTargetIP_Reg(const void* pBuffer, unsigned long* piSize) override;
    int GetActionCommandExecuteTime_Reg(void* pBuffer, unsigned long* piSize) override;
    int SetActionCommandExecuteTime_Reg(const void* pBuffer, unsigned long* piSize) override;
    int GetThreadSelection_Reg(void* pBuffer, unsigned long* piSize) override;
    int SetThreadSelection_Reg(const void* pBuffer, unsigned long* piSize) override;
    int GetThreadPriority_Reg(void* pBuffer, unsigned long* piSize) override;
    int SetThreadPriority_Reg(const void* pBuffer, unsigned long* piSize) override;
    int GetWriteDriverLogToFilePath_Reg(void* pBuffer, unsigned long* piSize) override;
    int SetWriteDriverLogToFilePath_Reg(const void* pBuffer, unsigned long* piSize) override;
    int SetWriteDriverLogToFileCommand_Reg(const void* pBuffer, unsigned long* piSize) override;
    int GetLocalTLXML_Reg(void* pBuffer, unsigned long* piSize) override;

private:
    /// What a closed interface can't tell.
    int SelectedInterfaceInfo(int command, void* pBuffer, unsigned long* piSize);

    System* m_pSystem;
    IndexSelector m_interfaceSelector;
    InfoUtility m_info;
    std::uint64_t m_threadSelection = 0;
};

}  // namespace GenTL
