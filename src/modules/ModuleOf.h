/// Joins a module's interface with the default answers of the port.
#pragma once

#include "modules/BaseModule.h"

namespace GenTL {

/// A module has two IBaseModule parts, that of its interface, which handles hold, and that of BaseModule.
/// The overriders here serve both, so that a module overrides only what it answers itself.
template <typename Interface>
class ModuleOf : public Interface, public BaseModule
{
public:
    int ReadPort(unsigned long iAddress, void* pBuffer, unsigned long* piSize) override
    {
        return BaseModule::ReadPort(iAddress, pBuffer, piSize);
    }
    int WritePort(unsigned long iAddress, const void* pBuffer, unsigned long* piSize) override
    {
        return BaseModule::WritePort(iAddress, pBuffer, piSize);
    }
    int GetPortURL(char* sURL, unsigned long* piSize) const override
    {
        return BaseModule::GetPortURL(sURL, piSize);
    }
    int GetPortInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) override
    {
        return BaseModule::GetPortInfo(iInfoCmd, piType, pBuffer, piSize);
    }
    int RegisterEvent(int iEventID, void** phEvent) override
    {
        return BaseModule::RegisterEvent(iEventID, phEvent);
    }
    int UnregisterEvent(int iEventID) override { return BaseModule::UnregisterEvent(iEventID); }
    int GetNumPortURLs(unsigned int* piNumURLs) override { return BaseModule::GetNumPortURLs(piNumURLs); }
    int GetPortURLInfo(
        unsigned int iURLIndex, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) override
    {
        return BaseModule::GetPortURLInfo(iURLIndex, iInfoCmd, piType, pBuffer, piSize);
    }
    int ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries) override
    {
        return BaseModule::ReadPortStacked(pEntries, piNumEntries);
    }
    int WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries) override
    {
        return BaseModule::WritePortStacked(pEntries, piNumEntries);
    }

protected:
    using BaseModule::BaseModule;
    ~ModuleOf() override = default;
};

}  // namespace GenTL
