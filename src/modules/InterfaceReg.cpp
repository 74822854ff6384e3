#include "modules/InterfaceReg.h"

#include <iterator>

namespace GenTL {
namespace {

using R = InterfaceReg;

// clang-format off
constexpr RegisterRow<InterfaceReg> kRegisters[] = {
    {0x0100, "InterfaceID",                                kTextLength,   &R::GetInterfaceID,                                nullptr},
    {0x0200, "InterfaceDisplayName",                       kTextLength,   &R::GetInterfaceDisplayName,                       nullptr},
    {0x0300, "InterfaceType_Reg",                          kNumberLength, &R::GetInterfaceType_Reg,                          nullptr},
    {0x0400, "GevInterfaceGatewaySelector_Reg",            kNumberLength, &R::GetGevInterfaceGatewaySelector_Reg,            &R::SetGevInterfaceGatewaySelector_Reg},
    {0x0401, "GevInterfaceGatewaySelector_Available_Reg",  kNumberLength, &R::GetGevInterfaceGatewaySelector_Available_Reg,  nullptr},
    {0x0500, "GevInterfaceGateway_Reg",                    kNumberLength, &R::GetGevInterfaceGateway_Reg,                    nullptr},
    {0x0501, "GevInterfaceGateway_Available_Reg",          kNumberLength, &R::GetGevInterfaceGateway_Available_Reg,          nullptr},
    {0x0600, "GevInterfaceMACAddress_Reg",                 kNumberLength, &R::GetGevInterfaceMACAddress_Reg,                 nullptr},
    {0x0700, "GevInterfaceSubnetSelector_Reg",             kNumberLength, &R::GetGevInterfaceSubnetSelector_Reg,             &R::SetGevInterfaceSubnetSelector_Reg},
    {0x0701, "GevInterfaceSubnetSelector_Available_Reg",   kNumberLength, &R::GetGevInterfaceSubnetSelector_Available_Reg,   nullptr},
    {0x0800, "GevInterfaceSubnetIPAddress_Reg",            kNumberLength, &R::GetGevInterfaceSubnetIPAddress_Reg,            nullptr},
    {0x0900, "GevInterfaceSubnetMask_Reg",                 kNumberLength, &R::GetGevInterfaceSubnetMask_Reg,                 nullptr},
    {0x1000, "InterfaceDeviceUpdateList_Reg",              kNumberLength, nullptr,                                           &R::SetInterfaceDeviceUpdateList_Reg},
    {0x1100, "InterfaceDeviceSelector_Reg",                kNumberLength, &R::GetInterfaceDeviceSelector_Reg,                &R::SetInterfaceDeviceSelector_Reg},
    {0x1102, "InterfaceDeviceSelector_Min_Reg",            kNumberLength, &R::GetInterfaceDeviceSelector_Min_Reg,            nullptr},
    {0x1103, "InterfaceDeviceSelector_Max_Reg",            kNumberLength, &R::GetInterfaceDeviceSelector_Max_Reg,            nullptr},
    {0x1200, "InterfaceDeviceID",                          kTextLength,   &R::GetInterfaceDeviceID,                          nullptr},
    {0x1201, "InterfaceDeviceID_Available_Reg",            kNumberLength, &R::GetInterfaceDeviceID_Available_Reg,            nullptr},
    {0x1300, "InterfaceDeviceVendorName",                  kTextLength,   &R::GetInterfaceDeviceVendorName,                  nullptr},
    {0x1301, "InterfaceDeviceVendorName_Available_Reg",    kNumberLength, &R::GetInterfaceDeviceVendorName_Available_Reg,    nullptr},
    {0x1400, "InterfaceDeviceModelName",                   kTextLength,   &R::GetInterfaceDeviceModelName,                   nullptr},
    {0x1401, "InterfaceDeviceModelName_Available_Reg",     kNumberLength, &R::GetInterfaceDeviceModelName_Available_Reg,     nullptr},
    {0x1500, "InterfaceDeviceAccessStatus_Reg",            kNumberLength, &R::GetInterfaceDeviceAccessStatus_Reg,            nullptr},
    {0x1501, "InterfaceDeviceAccessStatus_Available_Reg",  kNumberLength, &R::GetInterfaceDeviceAccessStatus_Available_Reg,  nullptr},
    {0x1600, "InterfaceDeviceSerialNumber",                kTextLength,   &R::GetInterfaceDeviceSerialNumber,                nullptr},
    {0x1601, "InterfaceDeviceSerialNumber_Available_Reg",  kNumberLength, &R::GetInterfaceDeviceSerialNumber_Available_Reg,  nullptr},
    {0x1700, "InterfaceDeviceUserID",                      kTextLength,   &R::GetInterfaceDeviceUserID,                      nullptr},
    {0x1701, "InterfaceDeviceUserID_Available_Reg",        kNumberLength, &R::GetInterfaceDeviceUserID_Available_Reg,        nullptr},
    {0x1800, "InterfaceGevDeviceIPAddress_Reg",            kNumberLength, &R::GetInterfaceGevDeviceIPAddress_Reg,            nullptr},
    {0x1801, "InterfaceGevDeviceIPAddress_Available_Reg",  kNumberLength, &R::GetInterfaceGevDeviceIPAddress_Available_Reg,  nullptr},
    {0x1900, "InterfaceGevDeviceSubnetMask_Reg",           kNumberLength, &R::GetInterfaceGevDeviceSubnetMask_Reg,           nullptr},
    {0x1901, "InterfaceGevDeviceSubnetMask_Available_Reg", kNumberLength, &R::GetInterfaceGevDeviceSubnetMask_Available_Reg, nullptr},
    {0x2000, "InterfaceGevDeviceMACAddress_Reg",           kNumberLength, &R::GetInterfaceGevDeviceMACAddress_Reg,           nullptr},
    {0x2001, "InterfaceGevDeviceMACAddress_Available_Reg", kNumberLength, &R::GetInterfaceGevDeviceMACAddress_Available_Reg, nullptr},
    // No register of the description, but the description itself: its length is in the port's URL.
    {0xF0F00000, "LocalTLXML_Reg", 0, &R::GetLocalTLXML_Reg, nullptr},
};
// clang-format on

}  // namespace

int InterfaceReg::DispatchRead(unsigned long address, void* pBuffer, unsigned long* piSize)
{
    return ReadRegister(*this, kRegisters, address, pBuffer, piSize);
}

int InterfaceReg::DispatchWrite(unsigned long address, const void* pBuffer, unsigned long* piSize)
{
    return WriteRegister(*this, kRegisters, address, pBuffer, piSize);
}

const RegisterRow<InterfaceReg>* InterfaceReg::Registers(std::size_t& count)
{
    count = std::size(kRegisters);
    return kRegisters;
}

}  // namespace GenTL
