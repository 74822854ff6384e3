/// What the HALs of the camera's channels share: the registers of stream channel 0, and the way to a channel.
#pragma once

#include <netinet/in.h>

#include <cstdint>

namespace GenTL {

class IHALGev;
class OverlappedSocket;

// Bootstrap registers of the camera. Only stream channel 0 is used.
inline constexpr unsigned sk_addrVersion = 0x0000;
inline constexpr unsigned sk_addrGvspCaps = 0x092C;
inline constexpr unsigned sk_addrGvspCofig = 0x0960;
inline constexpr unsigned sk_addrScp = 0x0D00;
inline constexpr unsigned sk_addrScda = 0x0D18;

/// True for the access modes in which the stream channel may be written: control and exclusive.
bool HasControl(int accessMode);

/// The adapter's address on the camera's network, and the camera's; the ports are those of the control
/// channel. device is a device handle.
sockaddr_in HostAddress(void* device);
sockaddr_in CameraAddress(void* device);

/// The log lines of a failed TraverseFirewall. readFailed has {0} for the register's address; with tellsCode
/// the code stands behind both.
struct FirewallTexts
{
    const char* readFailed;
    const char* sendFailed;
    bool tellsCode;
};

/// Sends a datagram to where packets will come from, so that a stateful firewall lets them in. The camera
/// tells its port in the register portAddress, if bit 31 of its capabilities says so.
/// GC_ERR_NOT_AVAILABLE, GC_ERR_INVALID_HANDLE, and what reading and sending give.
int TraverseFirewall(IHALGev* hal,
                     void* device,
                     OverlappedSocket& socket,
                     unsigned capabilities,
                     unsigned portAddress,
                     const FirewallTexts& texts);

/// Logs text with the register's address in decimal for {0}.
void LogRegister(const char* text, unsigned address);

/// Finds out which header form the camera sends. version and capabilities are read while they are 0.
int ReadExtendedId(IHALGev* hal,
                   void* device,
                   bool legacyRequested,
                   std::uint32_t& version,
                   std::uint32_t& capabilities,
                   bool& extended);

/// Writes SCP0 = 0 when access allows it. A camera that doesn't answer counts as closed.
int CloseChannel(IHALGev* hal, void* device, int accessMode);

}  // namespace GenTL
