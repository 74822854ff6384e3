/// What the stream HALs share: the registers of the camera's stream channel 0 and the accesses to them.
#pragma once

#include <netinet/in.h>

#include <cstdint>

namespace GenTL {

class IHALGev;

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
