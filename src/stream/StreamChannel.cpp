#include "stream/StreamChannel.h"

#include "frame/Error.h"
#include "gev/Handles.h"
#include "gev/IHALGev.h"
#include "log/HLogger.h"
#include "log/localization.h"
#include "stream/OverlappedSocket.h"

#include <arpa/inet.h>

#include <string>

namespace GenTL {
namespace {

constexpr unsigned kGvspCapsLegacyId = 0x40000000;
constexpr unsigned kGvspConfigExtendedId = 0x40000000;
constexpr unsigned kCapsSourcePortReadable = 0x80000000;

constexpr int kAccessControl = 3;
constexpr int kAccessExclusive = 4;

}  // namespace

bool HasControl(int accessMode)
{
    return accessMode == kAccessControl || accessMode == kAccessExclusive;
}

sockaddr_in HostAddress(void* device)
{
    return ToDevice(device)->m_pSocket->LocalAddress();
}

sockaddr_in CameraAddress(void* device)
{
    return ToDevice(device)->m_pSocket->RemoteAddress();
}

int TraverseFirewall(IHALGev* hal,
                     void* device,
                     OverlappedSocket& socket,
                     unsigned capabilities,
                     unsigned portAddress,
                     const FirewallTexts& texts)
{
    const auto log = [&texts](const char* text, int code) {
        texts.tellsCode ? HLogger::Error(text, code) : HLogger::Error(text);
    };
    if ((capabilities & kCapsSourcePortReadable) == 0) {
        return GC_ERR_NOT_AVAILABLE;
    }
    if (device == nullptr) {
        return StoreName(GC_ERR_INVALID_HANDLE);
    }
    unsigned port = 0;
    if (const int code = hal->ReadReg(device, portAddress, port); code != GC_ERR_SUCCESS) {
        log(loc::al(texts.readFailed, {std::to_string(portAddress).c_str()}).c_str(), code);
        return AppendName(code);
    }
    sockaddr_in camera = CameraAddress(device);
    camera.sin_port = htons(static_cast<std::uint16_t>(port));
    constexpr char kNothing[4] = {};
    if (const int code = socket.Send(kNothing, sizeof kNothing, camera); code != GC_ERR_SUCCESS) {
        log(texts.sendFailed, code);
        return AppendName(code);
    }
    return GC_ERR_SUCCESS;
}

void LogRegister(const char* text, unsigned address)
{
    HLogger::Error(loc::al(text, {std::to_string(address).c_str()}).c_str());
}

int ReadExtendedId(IHALGev* hal,
                   void* device,
                   bool legacyRequested,
                   std::uint32_t& version,
                   std::uint32_t& capabilities,
                   bool& extended)
{
    constexpr const char* kFunction = "ConfigureExtendedId";
    if (hal == nullptr) {
        return StoreName(GC_ERR_INVALID_HANDLE, kFunction);
    }
    struct Kept
    {
        std::uint32_t& value;
        unsigned address;
        const char* text;
    };
    const Kept registers[] = {
        {version,      sk_addrVersion,  "GenTL::HALGvsp::ConfigureExtendedId ReadReg m_gevVersion = {0}"   },
        {capabilities, sk_addrGvspCaps, "GenTL::HALGvsp::ConfigureExtendedId ReadReg sk_addrGvspCaps = {0}"},
    };
    for (const Kept& kept : registers) {
        if (kept.value != 0) {
            continue;
        }
        if (const int code = hal->ReadReg(device, kept.address, kept.value); code != GC_ERR_SUCCESS) {
            LogRegister(kept.text, kept.address);
            return AppendName(code, kFunction);
        }
    }
    const bool offersLegacyId = (capabilities & kGvspCapsLegacyId) != 0;
    extended = version >> 16 >= 2 && !(legacyRequested && offersLegacyId);
    if (!offersLegacyId) {
        return GC_ERR_SUCCESS;
    }
    // The register is never written here: what the camera has in it decides.
    unsigned configuration = 0;
    if (const int code = hal->ReadReg(device, sk_addrGvspCofig, configuration); code != GC_ERR_SUCCESS) {
        LogRegister("GenTL::HALGvsp::ConfigureExtendedId ReadReg sk_addrGvspCofig = {0}", sk_addrGvspCofig);
        return AppendName(code, kFunction);
    }
    extended = (configuration & kGvspConfigExtendedId) != 0;
    return GC_ERR_SUCCESS;
}

int CloseChannel(IHALGev* hal, void* device, int accessMode)
{
    constexpr const char* kFunction = "Stop";
    if (hal == nullptr) {
        return StoreName(GC_ERR_INVALID_HANDLE, kFunction);
    }
    if (!HasControl(accessMode)) {
        return GC_ERR_SUCCESS;
    }
    const int code = hal->WriteReg(device, sk_addrScp, 0);
    if (code == GC_ERR_TIMEOUT) {
        // The camera may be gone, and the stream must stop all the same.
        HLogger::Error("GenTL::HALGvsp::Stop WriteReg Timed out SCP");
        return GC_ERR_SUCCESS;
    }
    if (code != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGvsp::Stop WriteReg SCP");
        return AppendName(code, kFunction);
    }
    return GC_ERR_SUCCESS;
}

}  // namespace GenTL
