#include "modules/System.h"

#include "device/ProtectedDeviceRegistry.h"
#include "frame/Error.h"
#include "frame/GenTLHandle.h"
#include "gev/ActionCommand.h"
#include "gev/GvcpCommand.h"
#include "gev/HALGev.h"
#include "gev/UniqueFd.h"
#include "log/GLogger.h"
#include "modules/FileUtility.h"
#include "modules/InterfaceGev.h"
#include "xml/LocalXml.h"

#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <memory>

namespace GenTL {
namespace {

/// One access of a stack after the other, up to the first failure. The entries are packed and may be
/// unaligned, so each size makes a detour by a local.
template <typename Access>
int ForEachEntry(S_PORT_REGISTER_STACK_ENTRY* pEntries,
                 const unsigned long* piNumEntries,
                 Access access,
                 const char* function = __builtin_FUNCTION(),
                 int line = __builtin_LINE())
{
    if (pEntries == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "pEntries==nullptr", function, line);
    }
    if (piNumEntries == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "piNumEntries==nullptr", function, line);
    }
    for (unsigned long i = 0; i < *piNumEntries; ++i) {
        S_PORT_REGISTER_STACK_ENTRY& entry = pEntries[i];
        unsigned long size = entry.Size;
        const int code = access(entry.Address, entry.pBuffer, &size);
        entry.Size = size;
        if (code != GC_ERR_SUCCESS) {
            return Store(code);
        }
    }
    return GC_ERR_SUCCESS;
}

template <typename From, typename To>
int CopyField(const From* from, To* to)
{
    if (from == nullptr || to == nullptr) {
        return Store(GC_ERR_INVALID_HANDLE);
    }
    *to = *from;
    return GC_ERR_SUCCESS;
}

UniqueFd OpenUdpSocket(int protocol)
{
    return UniqueFd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, protocol));
}

bool Enable(const UniqueFd& descriptor, int option)
{
    const int on = 1;
    return setsockopt(descriptor.Get(), SOL_SOCKET, option, &on, sizeof on) == 0;
}

int LogAndStore(const char* text)
{
    GLogger::Error(text, GC_ERR_ERROR);
    return Store(GC_ERR_ERROR);
}

/// True for an adapter that can carry a broadcast now; its address is then in request.
bool IsServed(int descriptor, ifreq& request)
{
    if (ioctl(descriptor, SIOCGIFFLAGS, &request) != 0) {
        return false;
    }
    const int flags = request.ifr_flags;
    if ((flags & IFF_UP) == 0 || (flags & IFF_LOOPBACK) != 0 || (flags & IFF_RUNNING) == 0) {
        return false;
    }
    return ioctl(descriptor, SIOCGIFADDR, &request) == 0;
}

int SendFrom(const ifreq& request, const ActionCommand& command, const sockaddr_in& target)
{
    const UniqueFd descriptor = OpenUdpSocket(IPPROTO_UDP);
    if (descriptor.Get() < 0) {
        return LogAndStore("GenTL::System::SendActionCommand socket() failed");
    }
    if (!Enable(descriptor, SO_BROADCAST)) {
        return LogAndStore("GenTL::CommSocket Setting SO_BROADCAST Failed");
    }
    if (!Enable(descriptor, SO_REUSEADDR)) {
        return LogAndStore("GenTL::CommSocket Setting SO_REUSEADDR Failed");
    }
    if (bind(descriptor.Get(), &request.ifr_addr, sizeof request.ifr_addr) != 0) {
        return LogAndStore("GenTL::System::SendActionCommand bind() failed");
    }
    // Whether anybody is there to hear it isn't known anyway.
    sendto(descriptor.Get(), command.Data(), command.Size(), 0, reinterpret_cast<const sockaddr*>(&target),
           sizeof target);
    return GC_ERR_SUCCESS;
}

std::string ListOfInterfaces(const std::vector<std::string>& ids)
{
    if (ids.empty()) {
        return "\t\t\t\t\t  The list of interfaces is empty. No interfaces is connected this machine.";
    }
    std::string text = "\t\t\t\t\t  The list of interfaces has the following interface(s):\n";
    for (const std::string& id : ids) {
        text += "\t\t\t\t\t\t" + id + "\n";
    }
    return text;
}

}  // namespace

System::System(IHALGev* pHal) : m_pHal(pHal)
{
    m_tlInfo.name = GetGenTLFileName();
    m_tlInfo.pathname = GetGenTLFilePath();
    m_portInfo.id = m_tlInfo.id;
    m_portInfo.module = "TLSystem";
    m_portInfo.portName = "TLPort";
    m_urlInfo.schemaVersionMajor = 1;
}

System::System()
{
    m_tlInfo.displayName.clear();
}

int System::Open()
{
    if (m_pHal == nullptr) {
        m_pHal = new HALGev();
    }
    bool changed = false;
    const int code = UpdateInterfaceList(&changed, 1);
    if (code != GC_ERR_SUCCESS) {
        HALGev::Dispose(m_pHal);
        return AppendName(code);
    }
    return GC_ERR_SUCCESS;
}

int System::Close()
{
    int failed = GC_ERR_SUCCESS;
    for (const std::string& id : g_openedDevicesRegistry.AllInterfaceIDs()) {
        void* hIface = g_openedDevicesRegistry.PeekInterfaceEntry(id).handle;
        if (hIface == nullptr) {
            continue;
        }
        const int code = IFClose(hIface);
        if (code != GC_ERR_SUCCESS) {
            failed = Append(code, "while closing the system, the interface " + id + " failed to close.");
        }
    }
    HALGev::Dispose(m_pHal);
    return failed == GC_ERR_SUCCESS ? failed : AppendName(failed);
}

int System::GetInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize)
{
    bool isUnknown = false;
    return AnswerTLInfo(m_tlInfo, m_info, iInfoCmd, piType, pBuffer, piSize, isUnknown);
}

int System::GetNumInterfaces(unsigned int* piNumIfaces)
{
    if (piNumIfaces == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "piNumIfaces==nullptr");
    }
    *piNumIfaces = static_cast<unsigned int>(m_interfaces.size());
    return GC_ERR_SUCCESS;
}

int System::GetInterfaceID(unsigned int iIndex, char* sID, unsigned long* piSize)
{
    if (iIndex >= m_interfaces.size()) {
        return Raise(GC_ERR_INVALID_INDEX,
                     "interface index must between 0 <= and < " + std::to_string(m_interfaces.size()));
    }
    const std::string& id = m_interfaces[iIndex];
    return AnswerText({id.c_str(), id.size() + 1}, "idLen", "iSize", sID, piSize);
}

int System::GetInterfaceInfo(
    const char* sIfaceID, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize)
{
    if (sIfaceID == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "sIfaceID==nullptr");
    }
    const std::string id = sIfaceID;
    if (!HasInterface(id)) {
        return Raise(GC_ERR_INVALID_ID, id + " not found in the list of interfaces");
    }
    switch (iInfoCmd) {
        case INTERFACE_INFO_ID:
            return m_info.SetInfo(id, piType, pBuffer, piSize);
        case INTERFACE_INFO_DISPLAYNAME:
            return m_info.SetInfo(InterfaceGev::DisplayName(id), piType, pBuffer, piSize);
        case INTERFACE_INFO_TLTYPE:
            return m_info.SetInfo(m_portInfo.tlType, piType, pBuffer, piSize);
        case INTERFACE_INFO_GEV_MAC_ADDRESS:
        case INTERFACE_INFO_GEV_SUBNET_IP_ADDRESS:
        case INTERFACE_INFO_GEV_SUBNET_MASK:
            return Raise(
                GC_ERR_NOT_AVAILABLE,
                "the info is not available until the interface is open via GenTL::TLOpenInterface()");
        default:
            return Raise(
                GC_ERR_INVALID_INDEX,
                "iInfoCmd must be one of :\n"
                "GenTL::INTERFACE_INFO_ID, GenTL::INTERFACE_INFO_DISPLAYNAME, \n"
                "GenTL::INTERFACE_INFO_TLTYPE, GenTL::INTERFACE_INFO_GEV_MAC_ADDRESS, \n"
                "GenTL::INTERFACE_INFO_GEV_SUBNET_IP_ADDRESS, GenTL::INTERFACE_INFO_GEV_SUBNET_MASK");
    }
}

int System::OpenInterface(const char* sIfaceID, void* hSystem, void** phIface)
{
    if (sIfaceID == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "sIfaceID==nullptr");
    }
    if (phIface == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "phIface==nullptr");
    }
    const std::string id = sIfaceID;
    if (!HasInterface(id)) {
        return Raise(GC_ERR_INVALID_ID, "interface ID=" + id + " not found in the list of interfaces.\n" +
                                            ListOfInterfaces(m_interfaces));
    }
    void* adapterHandle = nullptr;
    if (const int code = m_pHal->OpenInterface(id, &adapterHandle); code != GC_ERR_SUCCESS) {
        return AppendName(code);
    }
    auto iface = std::make_unique<InterfaceGev>(m_pHal, hSystem, adapterHandle);
    iface->Open();
    AllocateHandle(phIface, static_cast<IInterface*>(iface.get()));
    const int code = g_openedDevicesRegistry.AddInterfaceEntry(id, *phIface);
    if (code != GC_ERR_SUCCESS) {
        // An interface that is open already. The address of the consumer's variable is no handle, so this
        // reports a second failure; handle record and adapter socket stay behind, and the socket takes the
        // answers to discovery from that of the open interface. Consumers know the answer in this form.
        iface.reset();
        AppendName(DeleteHandle(phIface));
        return AppendName(code);
    }
    iface.release();  // the handle's from here on; IFClose takes it back
    return GC_ERR_SUCCESS;
}

int System::UpdateInterfaceList(bool* pbChanged, unsigned long iTimeout)
{
    if (iTimeout == 0) {
        return Raise(GC_ERR_INVALID_PARAMETER, "input iTimeout==0");
    }
    std::vector<std::string> ids;
    if (const int code = m_pHal->GetInterfaces(ids); code != GC_ERR_SUCCESS) {
        GLogger::Error("GenTL::System::UpdateInterfaceList failed to update interface list", code);
        return AppendName(code);
    }
    if (pbChanged != nullptr) {
        *pbChanged = !std::is_permutation(ids.begin(), ids.end(), m_interfaces.begin(), m_interfaces.end());
    }
    m_interfaces.swap(ids);
    return GC_ERR_SUCCESS;
}

int System::ReadPort(unsigned long iAddress, void* pBuffer, unsigned long* piSize)
{
    return m_registerMap.DispatchRead(iAddress, pBuffer, piSize);
}

int System::WritePort(unsigned long iAddress, const void* pBuffer, unsigned long* piSize)
{
    return m_registerMap.DispatchWrite(iAddress, pBuffer, piSize);
}

int System::GetPortURL(char* sURL, unsigned long* piSize) const
{
    return AnswerLocalURL("SFNC_GenTLSystem_Reference_Version_1_0_0_Schema_1_1", kSystemXml.size(), sURL,
                          piSize);
}

int System::GetNumPortURLs(unsigned int* piNumURLs)
{
    return AnswerOneURL(piNumURLs);
}

int System::ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries)
{
    return ForEachEntry(pEntries, piNumEntries,
                        [this](unsigned long address, void* buffer, unsigned long* size) {
                            return ReadPort(address, buffer, size);
                        });
}

int System::WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries)
{
    return ForEachEntry(pEntries, piNumEntries,
                        [this](unsigned long address, void* buffer, unsigned long* size) {
                            return WritePort(address, buffer, size);
                        });
}

int System::GetActionCommandDeviceKey(unsigned int* pValue) const
{
    return CopyField(&m_actionDeviceKey, pValue);
}
int System::SetActionCommandDeviceKey(const unsigned int* pValue)
{
    return CopyField(pValue, &m_actionDeviceKey);
}
int System::GetActionCommandGroupKey(unsigned int* pValue) const
{
    return CopyField(&m_actionGroupKey, pValue);
}
int System::SetActionCommandGroupKey(const unsigned int* pValue)
{
    return CopyField(pValue, &m_actionGroupKey);
}
int System::GetActionCommandGroupMask(unsigned int* pValue) const
{
    return CopyField(&m_actionGroupMask, pValue);
}
int System::SetActionCommandGroupMask(const unsigned int* pValue)
{
    return CopyField(pValue, &m_actionGroupMask);
}
int System::GetActionCommandTargetIP(unsigned int* pValue) const
{
    return CopyField(&m_actionTargetIP, pValue);
}
int System::SetActionCommandTargetIP(const unsigned int* pValue)
{
    return CopyField(pValue, &m_actionTargetIP);
}

int System::GetActionCommandExecuteTime(unsigned long* pValue) const
{
    return CopyField(&m_actionExecuteTime, pValue);
}

int System::SetActionCommandExecuteTime(const unsigned long* pValue)
{
    return CopyField(pValue, &m_actionExecuteTime);
}

int System::SendActionCommand(unsigned int deviceKey,
                              unsigned int groupKey,
                              unsigned int groupMask,
                              unsigned int targetIP,
                              unsigned long executeTime) const
{
    const UniqueFd query = OpenUdpSocket(0);
    if (query.Get() < 0) {
        return Store(GC_ERR_ERROR);
    }
    ifreq requests[25];
    ifconf list{};
    list.ifc_len = sizeof requests;
    list.ifc_req = requests;
    if (ioctl(query.Get(), SIOCGIFCONF, &list) != 0) {
        return Store(GC_ERR_ERROR);
    }

    constexpr std::uint16_t kAnyRequestId = 0xFFFF;
    const ActionCommand command(kAnyRequestId, deviceKey, groupKey, groupMask, executeTime);
    sockaddr_in target{};
    target.sin_family = AF_INET;
    target.sin_port = htons(kGvcpPort);
    target.sin_addr.s_addr = htonl(targetIP);

    const std::size_t count = static_cast<std::size_t>(list.ifc_len) / sizeof(ifreq);
    for (std::size_t i = 0; i < count; ++i) {
        if (!IsServed(query.Get(), requests[i])) {
            continue;
        }
        if (const int code = SendFrom(requests[i], command, target); code != GC_ERR_SUCCESS) {
            return code;
        }
    }
    return GC_ERR_SUCCESS;
}

int System::GetDriverLogFilename(std::string&) const
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}
int System::SetDriverLogFilename(const std::string&)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}
int System::WriteDriverLogToFile() const
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

bool System::HasInterface(const std::string& id) const
{
    return std::find(m_interfaces.begin(), m_interfaces.end(), id) != m_interfaces.end();
}

}  // namespace GenTL
