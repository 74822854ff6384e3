/// A network adapter with the GigE Vision cameras behind it.
#pragma once

#include "modules/Interface.h"

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>

namespace GenTL {

class IHALGev;

/// Finds cameras, tells what their discovery records say, gives them addresses and opens them.
///
/// Owns: the adapter handle until Close; a device is its handle's. Borrows: the control layer of System.
/// Threads: the consumer's, which keeps its calls apart; only Close may meet an UpdateDeviceList on another
/// thread, and waits for its end. Locks: m_updateMutex, a leaf.
class InterfaceGev : public Interface
{
public:
    /// parent is the TL handle. An adapter whose ID can't be told still makes a working interface.
    InterfaceGev(IHALGev* pHal, void* parent, void* adapterHandle);

    /// The display name of the interface with this ID.
    static std::string DisplayName(const std::string& id);

    int GetPortURL(char* sURL, unsigned long* piSize) const override;
    int GetNumPortURLs(unsigned int* piNumURLs) override;
    int ReadPort(unsigned long iAddress, void* pBuffer, unsigned long* piSize) override;
    int WritePort(unsigned long iAddress, const void* pBuffer, unsigned long* piSize) override;
    int RegisterEvent(int iEventID, void** phEvent) override;
    int UnregisterEvent(int iEventID) override;
    int GetPortURLInfo(
        unsigned int iURLIndex, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) override;
    int ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries) override;
    int WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries) override;

    int Open() override;
    int Close() override;
    /// DISCOVERY_CMD by broadcast; answers are gathered for the whole of iTimeout milliseconds.
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
    /// FORCEIP_CMD by broadcast. The device list keeps the old address until its next update.
    int ForceIp(unsigned long mac, unsigned int ip, unsigned int subnet, unsigned int gateway) override;

private:
    class RunningUpdate;

    int DeviceDisplayName(const std::string& deviceId, std::string& name) const;
    int OpenOnHandle(const std::string& deviceId,
                     int iOpenFlags,
                     void* deviceHandle,
                     void** phDevice,
                     void* hIface,
                     const char* function = __builtin_FUNCTION(),
                     int line = __builtin_LINE()) const;

    IHALGev* m_pHwInterface;
    void* m_hAdapter;
    void* m_parent;
    boost::mutex m_updateMutex;  // guards m_runningUpdates
    boost::condition_variable m_updateEnded;
    int m_runningUpdates = 0;
};

}  // namespace GenTL
