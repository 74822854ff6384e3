/// The Interface module of any transport: what all refuse or answer alike.
#pragma once

#include "modules/IInterface.h"
#include "modules/InterfaceRegImpl.h"
#include "modules/ModuleOf.h"

#include <string>
#include <tuple>
#include <vector>

namespace GenTL {

/// Answers the general information and refuses everything else; InterfaceGev is the only working kind.
///
/// Owns: the list of cameras of the last discovery: device ID, and address in network byte order. Threads:
/// the consumer's, which keeps its calls apart. Locks: none.
class Interface : public ModuleOf<IInterface>
{
public:
    Interface();

    int ReadPort(unsigned long iAddress, void* pBuffer, unsigned long* piSize) override;
    int WritePort(unsigned long iAddress, const void* pBuffer, unsigned long* piSize) override;
    int GetPortURL(char* sURL, unsigned long* piSize) const override;
    int RegisterEvent(int iEventID, void** phEvent) override;
    int UnregisterEvent(int iEventID) override;
    int GetNumPortURLs(unsigned int* piNumURLs) override;
    int GetPortURLInfo(
        unsigned int iURLIndex, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) override;
    int ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries) override;
    int WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries) override;

    int Open() override;
    int Close() override;
    int UpdateDeviceList(bool* pbChanged, unsigned long iTimeout) override;
    int GetInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) override;
    int GetParentTL(void** pParentTL) const override;
    int GetNumDevices(unsigned int* piNumDevices) const override;
    int GetDeviceID(unsigned int iIndex, char* sID, unsigned long* piSize) const override;
    int GetDeviceInfo(const char* sDeviceID,
                      int iInfoCmd,
                      int* piType,
                      void* pBuffer,
                      unsigned long* piSize) const override;
    int OpenDevice(const char* sDeviceID,
                   const int& iOpenFlags,
                   void** phDevice,
                   void* hIface) const override;
    int ForceIp(unsigned long mac, unsigned int ip, unsigned int subnet, unsigned int gateway) override;

protected:
    std::vector<std::tuple<std::string, unsigned int>> m_devices;
    std::string m_displayName;
    InterfaceRegImpl m_registerMap{this};
};

}  // namespace GenTL
