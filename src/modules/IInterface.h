/// One network adapter of the host.
#pragma once

#include "modules/IBaseModule.h"

namespace GenTL {

/// The IF functions, one to one.
class IInterface : public IBaseModule
{
public:
    virtual int Open() = 0;
    /// Leaves the interface's devices open: the consumer closes them first.
    virtual int Close() = 0;
    /// Gathers cameras for iTimeout milliseconds.
    virtual int UpdateDeviceList(bool* pbChanged, unsigned long iTimeout) = 0;
    virtual int GetInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetParentTL(void** pParentTL) const = 0;
    virtual int GetNumDevices(unsigned int* piNumDevices) const = 0;
    virtual int GetDeviceID(unsigned int iIndex, char* sID, unsigned long* piSize) const = 0;
    virtual int GetDeviceInfo(
        const char* sDeviceID, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) const = 0;
    /// hIface becomes the device's parent.
    virtual int OpenDevice(const char* sDeviceID,
                           const int& iOpenFlags,
                           void** phDevice,
                           void* hIface) const = 0;
    /// Gives the camera with this MAC address (48 bits) another address; all in host order.
    virtual int ForceIp(unsigned long mac, unsigned int ip, unsigned int subnet, unsigned int gateway) = 0;
};

}  // namespace GenTL
