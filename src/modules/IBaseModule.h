/// The port that every module has.
#pragma once

#include "frame/GenTL.h"

namespace GenTL {

/// The port operations, one to one the GC functions on a module's handle; arguments and answers as there.
/// Every module is deleted by whoever closes it.
class IBaseModule
{
public:
    IBaseModule() = default;
    IBaseModule(const IBaseModule&) = delete;
    IBaseModule& operator=(const IBaseModule&) = delete;
    /// Detaches the handles that still name this module: they are refused from here on.
    virtual ~IBaseModule();

    virtual int ReadPort(unsigned long iAddress, void* pBuffer, unsigned long* piSize) = 0;
    virtual int WritePort(unsigned long iAddress, const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetPortURL(char* sURL, unsigned long* piSize) const = 0;
    virtual int GetPortInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) = 0;
    virtual int RegisterEvent(int iEventID, void** phEvent) = 0;
    virtual int UnregisterEvent(int iEventID) = 0;
    virtual int GetNumPortURLs(unsigned int* piNumURLs) = 0;
    virtual int GetPortURLInfo(
        unsigned int iURLIndex, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) = 0;
    virtual int ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries) = 0;
    virtual int WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries) = 0;
};

}  // namespace GenTL
