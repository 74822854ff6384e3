#include "channel/HALGvmc.h"

#include "frame/Error.h"
#include "frame/GenTL.h"
#include "gev/IHALGev.h"
#include "log/HLogger.h"
#include "log/localization.h"
#include "stream/OverlappedSocket.h"
#include "stream/StreamChannel.h"

#include <arpa/inet.h>

#include <algorithm>
#include <climits>
#include <string>

namespace GenTL {
namespace {

// Bootstrap registers of the camera.
constexpr unsigned sk_addrGvmcCaps = 0x0930;
constexpr unsigned sk_addrMcp = 0x0B00;
constexpr unsigned sk_addrMcda = 0x0B10;
constexpr unsigned sk_addrMcsp = 0x0B1C;

constexpr const char* kMulticastGroup = "239.11.11.11";

constexpr FirewallTexts kFirewallTexts{"anonymous::TraverseFirewall WriteReg {0} with err",
                                       "anonymous::TraverseFirewall stream.m_pSocket->Send failed with err",
                                       true};

std::string RegisterText(const char* text, unsigned address)
{
    return loc::al(text, {std::to_string(address).c_str()});
}

int OpeningFailed(int code, const char* function)
{
    HLogger::Error("GenTL::HALGvmc::Start OpenAndBindSocket", code);
    return AppendName(code, function);
}

}  // namespace

int HALGvmc::Start(IHALGev* hal, void* device, bool multicast, int accessMode)
{
    if (hal == nullptr) {
        return StoreName(GC_ERR_INVALID_HANDLE);
    }
    unsigned capabilities = 0;
    if (const int code = hal->ReadReg(device, sk_addrGvmcCaps, capabilities); code != GC_ERR_SUCCESS) {
        HLogger::Error(RegisterText("GenTL::HALGvmc::Start ReadReg {0} with err", sk_addrGvmcCaps).c_str(),
                       code);
        return AppendName(code);
    }
    m_capabilities = capabilities;
    const int code =
        multicast ? StartMulticast(hal, device, accessMode) : StartUnicast(hal, device, accessMode);
    if (code != GC_ERR_SUCCESS) {
        return code;
    }
    // Events come without the firewall datagram as well, where nothing stands in their way.
    if (const int traversed =
            TraverseFirewall(hal, device, *m_handle.m_pSocket, m_capabilities, sk_addrMcsp, kFirewallTexts);
        traversed != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGvmc::Start TraverseFirewall", traversed);
    }
    return GC_ERR_SUCCESS;
}

int HALGvmc::StartUnicast(IHALGev* hal, void* device, int accessMode, const char* function)
{
    if (!HasControl(accessMode)) {
        HLogger::Error("GenTL::HALGvmc::Start unicast read-only failure", GC_ERR_RESOURCE_IN_USE);
        return StoreName(GC_ERR_RESOURCE_IN_USE, function);
    }
    OverlappedSocket& socket = *m_handle.m_pSocket;
    if (const int code = socket.OpenAndBindSocket(HostAddress(device)); code != GC_ERR_SUCCESS) {
        return OpeningFailed(code, function);
    }
    return WriteDestination(hal, device, ntohl(socket.Address().sin_addr.s_addr), function);
}

int HALGvmc::StartMulticast(IHALGev* hal, void* device, int accessMode, const char* function)
{
    in_addr group{};
    if (inet_pton(AF_INET, kMulticastGroup, &group) != 1) {
        HLogger::Error("GenTL::HALGvmc::Start error setting multicast address", GC_ERR_RESOURCE_EXHAUSTED);
        return Raise(GC_ERR_RESOURCE_EXHAUSTED, "Error creating gvmc multicast address", function);
    }
    if (!HasControl(accessMode)) {
        return OpenMulticastListener(hal, device, group, function);
    }
    const int code = m_handle.m_pSocket->OpenAndBindSocketForMulticast(HostAddress(device),
                                                                       static_cast<int>(group.s_addr));
    return code == GC_ERR_SUCCESS ? WriteDestination(hal, device, ntohl(group.s_addr), function)
                                  : OpeningFailed(code, function);
}

int HALGvmc::OpenMulticastListener(IHALGev* hal, void* device, in_addr group, const char* function)
{
    unsigned port = 0;
    if (const int code = hal->ReadReg(device, sk_addrMcp, port); code != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGvmc::Port ReadReg MCP", code);
        return AppendName(code, function);
    }
    const int code = m_handle.m_pSocket->OpenAndBindSocketForMulticastListening(
        HostAddress(device), static_cast<int>(group.s_addr), static_cast<std::uint16_t>(port));
    return code == GC_ERR_SUCCESS ? code : OpeningFailed(code, function);
}

int HALGvmc::WriteDestination(IHALGev* hal, void* device, unsigned address, const char* function)
{
    const struct
    {
        unsigned at;
        unsigned value;
        const char* log;
    } writes[] = {
        {sk_addrMcda, address,                                       "GenTL::HALGvmc::Start WriteReg MCDA"},
        {sk_addrMcp,  ntohs(m_handle.m_pSocket->Address().sin_port), "GenTL::HALGvmc::Start WriteReg MCP" },
    };
    for (const auto& write : writes) {
        if (const int code = hal->WriteReg(device, write.at, write.value); code != GC_ERR_SUCCESS) {
            HLogger::Error(write.log, code);
            m_handle.m_pSocket->Close();
            return AppendName(code, function);
        }
    }
    return GC_ERR_SUCCESS;
}

// Cameras and consumers know this stop as it is: it closes stream channel 0, in the words of the stream, and
// leaves the message channel's port.
int HALGvmc::Stop(IHALGev* hal, void* device, int)
{
    if (hal == nullptr) {
        return StoreName(GC_ERR_INVALID_HANDLE);
    }
    if (const int code = hal->WriteReg(device, sk_addrScp, 0); code != GC_ERR_SUCCESS) {
        const std::string text = RegisterText("GenTL::HALGvsp::Stop WriteReg {0} with err", sk_addrScp);
        if (code != GC_ERR_TIMEOUT) {
            HLogger::Error(text.c_str(), code);
            return AppendName(code);
        }
        HLogger::Warn(text.c_str(), code);
    }
    m_handle.m_pSocket->Close();
    return GC_ERR_SUCCESS;
}

int HALGvmc::GetNextPacket(char* packet, int size, int& received, unsigned long timeout)
{
    return m_handle.m_pSocket->GetNextResult(packet, size, received,
                                             static_cast<int>(std::min<unsigned long>(timeout, INT_MAX)));
}

}  // namespace GenTL
