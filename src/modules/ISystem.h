/// The root of the module tree.
#pragma once

#include "modules/IBaseModule.h"

namespace GenTL {

/// The TL functions, one to one.
class ISystem : public IBaseModule
{
public:
    virtual int Open() = 0;
    /// Closes the interfaces that are still open, but no device.
    virtual int Close() = 0;
    virtual int GetInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetNumInterfaces(unsigned int* piNumIfaces) = 0;
    virtual int GetInterfaceID(unsigned int iIndex, char* sID, unsigned long* piSize) = 0;
    virtual int GetInterfaceInfo(
        const char* sIfaceID, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) = 0;
    /// hSystem becomes the interface's parent.
    virtual int OpenInterface(const char* sIfaceID, void* hSystem, void** phIface) = 0;
    /// Milliseconds; any value but 0 is taken, and none is waited for.
    virtual int UpdateInterfaceList(bool* pbChanged, unsigned long iTimeout) = 0;
};

}  // namespace GenTL
