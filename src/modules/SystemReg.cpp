#include "modules/SystemReg.h"

#include <iterator>

namespace GenTL {
namespace {

using R = SystemReg;

// clang-format off
constexpr RegisterRow<SystemReg> kRegisters[] = {
    {0x0100, "TLID",                                        kTextLength,   &R::GetTLID,                                        nullptr},
    {0x0200, "TLVendorName",                                kTextLength,   &R::GetTLVendorName,                                nullptr},
    {0x0300, "TLModelName",                                 kTextLength,   &R::GetTLModelName,                                 nullptr},
    {0x0400, "TLVersion",                                   kTextLength,   &R::GetTLVersion,                                   nullptr},
    {0x0500, "TLFileName",                                  kTextLength,   &R::GetTLFileName,                                  nullptr},
    {0x0600, "TLDisplayName",                               kTextLength,   &R::GetTLDisplayName,                               nullptr},
    {0x0700, "TLPath",                                      kTextLength,   &R::GetTLPath,                                      nullptr},
    {0x0800, "TLType_Reg",                                  kNumberLength, &R::GetTLType_Reg,                                  nullptr},
    {0x0900, "GenTLVersionMajor_Reg",                       kNumberLength, &R::GetGenTLVersionMajor_Reg,                       nullptr},
    {0x1000, "GenTLVersionMinor_Reg",                       kNumberLength, &R::GetGenTLVersionMinor_Reg,                       nullptr},
    {0x1100, "GenTLSFNCVersionMajor_Reg",                   kNumberLength, &R::GetGenTLSFNCVersionMajor_Reg,                   nullptr},
    {0x1200, "GenTLSFNCVersionMinor_Reg",                   kNumberLength, &R::GetGenTLSFNCVersionMinor_Reg,                   nullptr},
    {0x1300, "GenTLSFNCVersionSubMinor_Reg",                kNumberLength, &R::GetGenTLSFNCVersionSubMinor_Reg,                nullptr},
    {0x1400, "GevVersionMajor_Reg",                         kNumberLength, &R::GetGevVersionMajor_Reg,                         nullptr},
    {0x1500, "GevVersionMinor_Reg",                         kNumberLength, &R::GetGevVersionMinor_Reg,                         nullptr},
    {0x1600, "InterfaceUpdateList_Reg",                     kNumberLength, nullptr,                                            &R::SetInterfaceUpdateList_Reg},
    {0x1700, "InterfaceSelector_Reg",                       kNumberLength, &R::GetInterfaceSelector_Reg,                       &R::SetInterfaceSelector_Reg},
    {0x1702, "InterfaceSelector_Min_Reg",                   kNumberLength, &R::GetInterfaceSelector_Min_Reg,                   nullptr},
    {0x1703, "InterfaceSelector_Max_Reg",                   kNumberLength, &R::GetInterfaceSelector_Max_Reg,                   nullptr},
    {0x1800, "InterfaceID",                                 kTextLength,   &R::GetInterfaceID,                                 nullptr},
    {0x1801, "InterfaceID_Available_Reg",                   kNumberLength, &R::GetInterfaceID_Available_Reg,                   nullptr},
    {0x1900, "GevInterfaceMACAddress_Reg",                  kNumberLength, &R::GetGevInterfaceMACAddress_Reg,                  nullptr},
    {0x1901, "GevInterfaceMACAddress_Available_Reg",        kNumberLength, &R::GetGevInterfaceMACAddress_Available_Reg,        nullptr},
    {0x2000, "GevInterfaceDefaultIPAddress_Reg",            kNumberLength, &R::GetGevInterfaceDefaultIPAddress_Reg,            nullptr},
    {0x2001, "GevInterfaceDefaultIPAddress_Available_Reg",  kNumberLength, &R::GetGevInterfaceDefaultIPAddress_Available_Reg,  nullptr},
    {0x2100, "GevInterfaceDefaultSubnetMask_Reg",           kNumberLength, &R::GetGevInterfaceDefaultSubnetMask_Reg,           nullptr},
    {0x2101, "GevInterfaceDefaultSubnetMask_Available_Reg", kNumberLength, &R::GetGevInterfaceDefaultSubnetMask_Available_Reg, nullptr},
    {0x4000, "ActionCommandFireCommand_Reg",                kNumberLength, nullptr,                                            &R::SetActionCommandFireCommand_Reg},
    {0x4200, "ActionCommandDeviceKey_Reg",                  kNumberLength, &R::GetActionCommandDeviceKey_Reg,                  &R::SetActionCommandDeviceKey_Reg},
    {0x4300, "ActionCommandGroupKey_Reg",                   kNumberLength, &R::GetActionCommandGroupKey_Reg,                   &R::SetActionCommandGroupKey_Reg},
    {0x4400, "ActionCommandGroupMask_Reg",                  kNumberLength, &R::GetActionCommandGroupMask_Reg,                  &R::SetActionCommandGroupMask_Reg},
    {0x4500, "ActionCommandTargetIP_Reg",                   kNumberLength, &R::GetActionCommandTargetIP_Reg,                   &R::SetActionCommandTargetIP_Reg},
    {0x4600, "ActionCommandExecuteTime_Reg",                kNumberLength, &R::GetActionCommandExecuteTime_Reg,                &R::SetActionCommandExecuteTime_Reg},
    {0x6000, "ThreadSelection_Reg",                         kNumberLength, &R::GetThreadSelection_Reg,                         &R::SetThreadSelection_Reg},
    {0x6100, "ThreadPriority_Reg",                          kNumberLength, &R::GetThreadPriority_Reg,                          &R::SetThreadPriority_Reg},
    {0x7000, "WriteDriverLogToFileCommand_Reg",             kNumberLength, nullptr,                                            &R::SetWriteDriverLogToFileCommand_Reg},
    {0x7010, "WriteDriverLogToFilePath_Reg",                256,           &R::GetWriteDriverLogToFilePath_Reg,                &R::SetWriteDriverLogToFilePath_Reg},
    // No register of the description, but the description itself: its length is in the port's URL.
    {0xF0F00000, "LocalTLXML_Reg", 0, &R::GetLocalTLXML_Reg, nullptr},
};
// clang-format on

}  // namespace

int SystemReg::DispatchRead(unsigned long address, void* pBuffer, unsigned long* piSize)
{
    return ReadRegister(*this, kRegisters, address, pBuffer, piSize);
}

int SystemReg::DispatchWrite(unsigned long address, const void* pBuffer, unsigned long* piSize)
{
    return WriteRegister(*this, kRegisters, address, pBuffer, piSize);
}

const RegisterRow<SystemReg>* SystemReg::Registers(std::size_t& count)
{
    count = std::size(kRegisters);
    return kRegisters;
}

}  // namespace GenTL
