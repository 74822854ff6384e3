#include "modules/SystemReg.h"

#include <iterator>

namespace GenTL {
namespace {

using R = SystemReg;

constexpr unsigned long kText = 512;
constexpr unsigned long kNumber = 8;

// clang-format off
constexpr RegisterRow<SystemReg> kRegisters[] = {
    {0x0100, "TLID",                                        kText,   &R::GetTLID,                                        nullptr},
    {0x0200, "TLVendorName",                                kText,   &R::GetTLVendorName,                                nullptr},
    {0x0300, "TLModelName",                                 kText,   &R::GetTLModelName,                                 nullptr},
    {0x0400, "TLVersion",                                   kText,   &R::GetTLVersion,                                   nullptr},
    {0x0500, "TLFileName",                                  kText,   &R::GetTLFileName,                                  nullptr},
    {0x0600, "TLDisplayName",                               kText,   &R::GetTLDisplayName,                               nullptr},
    {0x0700, "TLPath",                                      kText,   &R::GetTLPath,                                      nullptr},
    {0x0800, "TLType_Reg",                                  kNumber, &R::GetTLType_Reg,                                  nullptr},
    {0x0900, "GenTLVersionMajor_Reg",                       kNumber, &R::GetGenTLVersionMajor_Reg,                       nullptr},
    {0x1000, "GenTLVersionMinor_Reg",                       kNumber, &R::GetGenTLVersionMinor_Reg,                       nullptr},
    {0x1100, "GenTLSFNCVersionMajor_Reg",                   kNumber, &R::GetGenTLSFNCVersionMajor_Reg,                   nullptr},
    {0x1200, "GenTLSFNCVersionMinor_Reg",                   kNumber, &R::GetGenTLSFNCVersionMinor_Reg,                   nullptr},
    {0x1300, "GenTLSFNCVersionSubMinor_Reg",                kNumber, &R::GetGenTLSFNCVersionSubMinor_Reg,                nullptr},
    {0x1400, "GevVersionMajor_Reg",                         kNumber, &R::GetGevVersionMajor_Reg,                         nullptr},
    {0x1500, "GevVersionMinor_Reg",                         kNumber, &R::GetGevVersionMinor_Reg,                         nullptr},
    {0x1600, "InterfaceUpdateList_Reg",                     kNumber, nullptr,                                            &R::SetInterfaceUpdateList_Reg},
    {0x1700, "InterfaceSelector_Reg",                       kNumber, &R::GetInterfaceSelector_Reg,                       &R::SetInterfaceSelector_Reg},
    {0x1702, "InterfaceSelector_Min_Reg",                   kNumber, &R::GetInterfaceSelector_Min_Reg,                   nullptr},
    {0x1703, "InterfaceSelector_Max_Reg",                   kNumber, &R::GetInterfaceSelector_Max_Reg,                   nullptr},
    {0x1800, "InterfaceID",                                 kText,   &R::GetInterfaceID,                                 nullptr},
    {0x1801, "InterfaceID_Available_Reg",                   kNumber, &R::GetInterfaceID_Available_Reg,                   nullptr},
    {0x1900, "GevInterfaceMACAddress_Reg",                  kNumber, &R::GetGevInterfaceMACAddress_Reg,                  nullptr},
    {0x1901, "GevInterfaceMACAddress_Available_Reg",        kNumber, &R::GetGevInterfaceMACAddress_Available_Reg,        nullptr},
    {0x2000, "GevInterfaceDefaultIPAddress_Reg",            kNumber, &R::GetGevInterfaceDefaultIPAddress_Reg,            nullptr},
    {0x2001, "GevInterfaceDefaultIPAddress_Available_Reg",  kNumber, &R::GetGevInterfaceDefaultIPAddress_Available_Reg,  nullptr},
    {0x2100, "GevInterfaceDefaultSubnetMask_Reg",           kNumber, &R::GetGevInterfaceDefaultSubnetMask_Reg,           nullptr},
    {0x2101, "GevInterfaceDefaultSubnetMask_Available_Reg", kNumber, &R::GetGevInterfaceDefaultSubnetMask_Available_Reg, nullptr},
    {0x4000, "ActionCommandFireCommand_Reg",                kNumber, nullptr,                                            &R::SetActionCommandFireCommand_Reg},
    {0x4200, "ActionCommandDeviceKey_Reg",                  kNumber, &R::GetActionCommandDeviceKey_Reg,                  &R::SetActionCommandDeviceKey_Reg},
    {0x4300, "ActionCommandGroupKey_Reg",                   kNumber, &R::GetActionCommandGroupKey_Reg,                   &R::SetActionCommandGroupKey_Reg},
    {0x4400, "ActionCommandGroupMask_Reg",                  kNumber, &R::GetActionCommandGroupMask_Reg,                  &R::SetActionCommandGroupMask_Reg},
    {0x4500, "ActionCommandTargetIP_Reg",                   kNumber, &R::GetActionCommandTargetIP_Reg,                   &R::SetActionCommandTargetIP_Reg},
    {0x4600, "ActionCommandExecuteTime_Reg",                kNumber, &R::GetActionCommandExecuteTime_Reg,                &R::SetActionCommandExecuteTime_Reg},
    {0x6000, "ThreadSelection_Reg",                         kNumber, &R::GetThreadSelection_Reg,                         &R::SetThreadSelection_Reg},
    {0x6100, "ThreadPriority_Reg",                          kNumber, &R::GetThreadPriority_Reg,                          &R::SetThreadPriority_Reg},
    {0x7000, "WriteDriverLogToFileCommand_Reg",             kNumber, nullptr,                                            &R::SetWriteDriverLogToFileCommand_Reg},
    {0x7010, "WriteDriverLogToFilePath_Reg",                256,     &R::GetWriteDriverLogToFilePath_Reg,                &R::SetWriteDriverLogToFilePath_Reg},
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
