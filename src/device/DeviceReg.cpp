#include "device/DeviceReg.h"

#include <iterator>

namespace GenTL {
namespace {

using R = DeviceReg;

// clang-format off
constexpr RegisterRow<DeviceReg> kRegisters[] = {
    {0x0100, "DeviceID",                        kTextLength,   &R::GetDeviceID,                       nullptr},
    {0x0200, "DeviceSerialNumber",              kTextLength,   &R::GetDeviceSerialNumber,             nullptr},
    {0x0300, "DeviceUserID",                    kTextLength,   &R::GetDeviceUserID,                   nullptr},
    {0x0400, "DeviceVendorName",                kTextLength,   &R::GetDeviceVendorName,               nullptr},
    {0x0500, "DeviceModelName",                 kTextLength,   &R::GetDeviceModelName,                nullptr},
    {0x0700, "DeviceVersion",                   kTextLength,   &R::GetDeviceVersion,                  nullptr},
    {0x0900, "DeviceType_Reg",                  kNumberLength, &R::GetDeviceType_Reg,                 nullptr},
    {0x1000, "DeviceDisplayName",               kTextLength,   &R::GetDeviceDisplayName,              nullptr},
    {0x1100, "DeviceAccessStatus_Reg",          kNumberLength, &R::GetDeviceAccessStatus_Reg,         &R::SetDeviceAccessStatus_Reg},
    {0x1200, "DeviceEndianessMechanism_Reg",    kNumberLength, &R::GetDeviceEndianessMechanism_Reg,   &R::SetDeviceEndianessMechanism_Reg},
    {0x1400, "GevDeviceIPAddress_Reg",          kNumberLength, &R::GetGevDeviceIPAddress_Reg,         nullptr},
    {0x1500, "GevDeviceSubnetMask_Reg",         kNumberLength, &R::GetGevDeviceSubnetMask_Reg,        nullptr},
    {0x1600, "GevDeviceMACAddress_Reg",         kNumberLength, &R::GetGevDeviceMACAddress_Reg,        nullptr},
    {0x1700, "GevDeviceGateway_Reg",            kNumberLength, &R::GetGevDeviceGateway_Reg,           nullptr},
    {0x1701, "GevDeviceGateway_Available_Reg",  kNumberLength, &R::GetGevDeviceGateway_Available_Reg, nullptr},
    {0x1800, "StreamSelector_Reg",              kNumberLength, &R::GetStreamSelector_Reg,             &R::SetStreamSelector_Reg},
    {0x1900, "StreamID",                        kTextLength,   &R::GetStreamID,                       nullptr},
    {0x1901, "StreamID_Available_Reg",          kNumberLength, &R::GetStreamID_Available_Reg,         nullptr},
    {0x4000, "ActionCommandFireCommand_Reg",    kNumberLength, nullptr,                               &R::SetActionCommandFireCommand_Reg},
    {0x4200, "ActionCommandDeviceKey_Reg",      kNumberLength, &R::GetActionCommandDeviceKey_Reg,     &R::SetActionCommandDeviceKey_Reg},
    {0x4300, "ActionCommandGroupKey_Reg",       kNumberLength, &R::GetActionCommandGroupKey_Reg,      &R::SetActionCommandGroupKey_Reg},
    {0x4400, "ActionCommandGroupMask_Reg",      kNumberLength, &R::GetActionCommandGroupMask_Reg,     &R::SetActionCommandGroupMask_Reg},
    {0x4600, "ActionCommandExecuteTime_Reg",    kNumberLength, &R::GetActionCommandExecuteTime_Reg,   &R::SetActionCommandExecuteTime_Reg},
    // No register of the description, but the description itself: its length is in the port's URL.
    {0xF0F00000, "LocalTLXML_Reg",              0,             &R::GetLocalTLXML_Reg,                 nullptr},
};
// clang-format on

}  // namespace

int DeviceReg::DispatchRead(unsigned long address, void* pBuffer, unsigned long* piSize)
{
    return ReadRegister(*this, kRegisters, address, pBuffer, piSize);
}

int DeviceReg::DispatchWrite(unsigned long address, const void* pBuffer, unsigned long* piSize)
{
    return WriteRegister(*this, kRegisters, address, pBuffer, piSize);
}

const RegisterRow<DeviceReg>* DeviceReg::Registers(std::size_t& count)
{
    count = std::size(kRegisters);
    return kRegisters;
}

}  // namespace GenTL
