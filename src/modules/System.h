/// The root of the module tree, behind the TL handle.
#pragma once

#include "frame/TLInfo.h"
#include "modules/ISystem.h"
#include "modules/ModuleOf.h"
#include "modules/SystemRegImpl.h"

#include <cstdint>
#include <string>
#include <vector>

namespace GenTL {

class IHALGev;

/// Owns the control layer from Open to Close, and the list of the host's interfaces; open interfaces live in
/// the registry.
///
/// Threads: the consumer's, which keeps its calls apart. Locks: none.
class System : public ModuleOf<ISystem>
{
public:
    /// A null pHal is made by Open. A given one is deleted as if it had been.
    explicit System(IHALGev* pHal);
    System();

    int Open() override;
    int Close() override;
    int GetInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) override;
    int GetNumInterfaces(unsigned int* piNumIfaces) override;
    int GetInterfaceID(unsigned int iIndex, char* sID, unsigned long* piSize) override;
    int GetInterfaceInfo(
        const char* sIfaceID, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) override;
    int OpenInterface(const char* sIfaceID, void* hSystem, void** phIface) override;
    int UpdateInterfaceList(bool* pbChanged, unsigned long iTimeout) override;

    int ReadPort(unsigned long iAddress, void* pBuffer, unsigned long* piSize) override;
    int WritePort(unsigned long iAddress, const void* pBuffer, unsigned long* piSize) override;
    int GetPortURL(char* sURL, unsigned long* piSize) const override;
    int GetNumPortURLs(unsigned int* piNumURLs) override;
    int ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries) override;
    int WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries) override;

    // The action command that the register map sends. A null pointer gives GC_ERR_INVALID_HANDLE.
    int GetActionCommandDeviceKey(unsigned int* pValue) const;
    int SetActionCommandDeviceKey(const unsigned int* pValue);
    int GetActionCommandGroupKey(unsigned int* pValue) const;
    int SetActionCommandGroupKey(const unsigned int* pValue);
    int GetActionCommandGroupMask(unsigned int* pValue) const;
    int SetActionCommandGroupMask(const unsigned int* pValue);
    int GetActionCommandTargetIP(unsigned int* pValue) const;
    int SetActionCommandTargetIP(const unsigned int* pValue);
    int GetActionCommandExecuteTime(unsigned long* pValue) const;
    int SetActionCommandExecuteTime(const unsigned long* pValue);

    /// Sends ACTION_CMD to targetIP (host order) on every running interface and waits for no acknowledge.
    /// executeTime in ticks of the camera's clock, 0 for at once.
    int SendActionCommand(unsigned int deviceKey,
                          unsigned int groupKey,
                          unsigned int groupMask,
                          unsigned int targetIP,
                          unsigned long executeTime) const;

    // There is no filter driver here: all give GC_ERR_NOT_IMPLEMENTED.
    int GetDriverLogFilename(std::string& fileName) const;
    int SetDriverLogFilename(const std::string& fileName);
    int WriteDriverLogToFile() const;

private:
    bool HasInterface(const std::string& id) const;

    IHALGev* m_pHal = nullptr;
    SystemRegImpl m_registerMap{this};
    TLInfo m_tlInfo;
    std::vector<std::string> m_interfaces;
    std::uint32_t m_actionDeviceKey = 0;
    std::uint32_t m_actionGroupKey = 0;
    std::uint32_t m_actionGroupMask = 0;
    std::uint32_t m_actionTargetIP = 0;
    std::uint64_t m_actionExecuteTime = 0;
};

}  // namespace GenTL
