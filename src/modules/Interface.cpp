#include "modules/Interface.h"

#include "frame/Error.h"

namespace GenTL {
namespace {

int Refuse(const char* function = __builtin_FUNCTION(), int line = __builtin_LINE())
{
    return Raise(GC_ERR_NOT_IMPLEMENTED, "only GEV interfaces are supported", function, line);
}

}  // namespace

Interface::Interface()
{
    m_portInfo.module = "TLInterface";
    m_portInfo.portName = "InterfacePort";
}

int Interface::ReadPort(unsigned long, void*, unsigned long*)
{
    return Refuse();
}
int Interface::WritePort(unsigned long, const void*, unsigned long*)
{
    return Refuse();
}
int Interface::GetPortURL(char*, unsigned long*) const
{
    return Refuse();
}
int Interface::RegisterEvent(int, void**)
{
    return Refuse();
}
int Interface::UnregisterEvent(int)
{
    return Refuse();
}
int Interface::GetNumPortURLs(unsigned int*)
{
    return Refuse();
}
int Interface::GetPortURLInfo(unsigned int, int, int*, void*, unsigned long*)
{
    return Refuse();
}
int Interface::ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*)
{
    return Refuse();
}
int Interface::WritePortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*)
{
    return Refuse();
}
int Interface::Open()
{
    return Refuse();
}
int Interface::Close()
{
    return Refuse();
}
int Interface::UpdateDeviceList(bool*, unsigned long)
{
    return Refuse();
}
int Interface::GetParentTL(void**) const
{
    return Refuse();
}
int Interface::GetNumDevices(unsigned int*) const
{
    return Refuse();
}
int Interface::GetDeviceID(unsigned int, char*, unsigned long*) const
{
    return Refuse();
}
int Interface::GetDeviceInfo(const char*, int, int*, void*, unsigned long*) const
{
    return Refuse();
}
int Interface::OpenDevice(const char*, const int&, void**, void*) const
{
    return Refuse();
}
int Interface::ForceIp(unsigned long, unsigned int, unsigned int, unsigned int)
{
    return Refuse();
}

int Interface::GetInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize)
{
    switch (iInfoCmd) {
        case INTERFACE_INFO_ID:
            return m_info.SetInfo(m_portInfo.id, piType, pBuffer, piSize);
        case INTERFACE_INFO_DISPLAYNAME:
            return m_info.SetInfo(m_displayName, piType, pBuffer, piSize);
        case INTERFACE_INFO_TLTYPE:
            return m_info.SetInfo(m_portInfo.tlType, piType, pBuffer, piSize);
        default:
            return Raise(
                GC_ERR_INVALID_INDEX,
                "iInfoCmd must be one of :\n"
                "GenTL::INTERFACE_INFO_ID, GenTL::INTERFACE_INFO_TLTYPE, \n"
                "GenTL::INTERFACE_INFO_DISPLAYNAME, GenTL::INTERFACE_INFO_GEV_MAC_ADDRESS, \n"
                "GenTL::INTERFACE_INFO_GEV_SUBNET_IP_ADDRESS, GenTL::INTERFACE_INFO_GEV_SUBNET_MASK");
    }
}

}  // namespace GenTL
