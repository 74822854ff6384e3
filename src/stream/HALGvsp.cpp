#include "stream/HALGvsp.h"

#include "frame/Error.h"
#include "gev/IHALGev.h"
#include "log/HLogger.h"
#include "log/localization.h"
#include "stream/GvspPacket.h"
#include "stream/StreamChannel.h"
#include "stream/StreamStartParams.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace GenTL {
namespace {

// Further bootstrap registers of the camera.
constexpr unsigned sk_addrGvcpCaps = 0x0934;
constexpr unsigned sk_addrTickFrequencyHigh = 0x093C;
constexpr unsigned sk_addrTickFrequencyLow = 0x0940;
constexpr unsigned sk_addrScps = 0x0D04;
constexpr unsigned sk_addrScpd = 0x0D08;
constexpr unsigned sk_addrScsp = 0x0D1C;

constexpr unsigned kGvcpCapsPacketResend = 0x00000004;
constexpr unsigned kScpsFireTestPacket = 0x80000000;
constexpr unsigned kScpsDoNotFragment = 0x40000000;
constexpr unsigned kScpsSizeMask = 0x0000FFFF;

constexpr const char* kMulticastGroup = "239.10.10.10";
constexpr int kTestPacketTimeoutMs = 100;
constexpr unsigned kAutoPacketSizes[] = {9000, 7500, 6000, 4500, 3000, 1500, 576};
constexpr std::uint32_t kLeastInterPacketExpiry = 40;

/// To the next lower integer, with everything out of range at the nearer end.
std::uint32_t Saturate(double value)
{
    constexpr double kMax = std::numeric_limits<std::uint32_t>::max();
    return std::isnan(value) ? 0 : static_cast<std::uint32_t>(std::clamp(value, 0.0, kMax));
}

/// The stream comes without the firewall datagram as well, where nothing stands in its way.
void TryTraverseFirewall(IHALGev* hal, void* device, const StreamHandle& stream, unsigned capabilities)
{
    constexpr FirewallTexts kTexts{"anonymous::TraverseFirewall WriteReg {0}",
                                   "anonymous::TraverseFirewall stream.m_pSocket->Send", false};
    if (TraverseFirewall(hal, device, *stream.m_pSocket, capabilities, sk_addrScsp, kTexts) !=
        GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGvsp::Start TraverseFirewall");
    }
}

/// Waits for a test packet of size bytes. Any datagram counts.
int ReceiveTestPacket(const StreamHandle& stream, unsigned size)
{
    std::vector<char> packet(size);
    int length = 0;
    return stream.m_pSocket->GetNextResult(packet.data(), static_cast<int>(size), length,
                                           kTestPacketTimeoutMs);
}

int FindPacketSize(IHALGev* hal,
                   void* device,
                   const StreamHandle& stream,
                   std::uint32_t& size,
                   const char* function = __builtin_FUNCTION())
{
    constexpr unsigned kFire = kScpsFireTestPacket | kScpsDoNotFragment;
    for (const unsigned candidate : kAutoPacketSizes) {
        if (const int code = hal->WriteReg(device, sk_addrScps, kFire | candidate); code != GC_ERR_SUCCESS) {
            return Append(code,
                          "auto packet size test sent a test packet to device but it failed. Sent packet "
                          "size was " +
                              std::to_string(candidate),
                          function);
        }
        if (ReceiveTestPacket(stream, candidate) != GC_ERR_SUCCESS) {
            continue;
        }
        size = candidate;
        const int code = hal->WriteReg(device, sk_addrScps, kScpsDoNotFragment | candidate);
        if (code != GC_ERR_SUCCESS) {
            LogRegister("failed to set the datastream register to the max packetsize of {0}", candidate);
            return AppendName(code, function);
        }
        return GC_ERR_SUCCESS;
    }
    return Raise(GC_ERR_ERROR, "failed to find a working packet size", function);
}

/// Has the camera send a packet of the size in use. The fire bit is the camera's to clear.
int TryPacketSize(IHALGev* hal,
                  void* device,
                  const StreamHandle& stream,
                  std::uint32_t size,
                  const char* function = __builtin_FUNCTION())
{
    const unsigned value = kScpsFireTestPacket | kScpsDoNotFragment | (size & kScpsSizeMask);
    if (const int code = hal->WriteReg(device, sk_addrScps, value); code != GC_ERR_SUCCESS) {
        return Append(code, "sending a test packet to device failed", function);
    }
    if (const int code = ReceiveTestPacket(stream, size); code != GC_ERR_SUCCESS) {
        return Append(code, "test packet failed. Could be because mtu is < than that of the device",
                      function);
    }
    return GC_ERR_SUCCESS;
}

int TestPacketSize(
    IHALGev* hal, void* device, const StreamHandle& stream, std::uint32_t& size, bool automatic)
{
    return automatic ? FindPacketSize(hal, device, stream, size) : TryPacketSize(hal, device, stream, size);
}

/// Three packet delays of the camera in ms, and never less than 40.
void CalculateInterPacketExpiry(IHALGev* hal, void* device, std::uint32_t* out)
{
    const auto read = [&](unsigned address) {
        unsigned value = 0;
        if (hal->ReadReg(device, address, value) != GC_ERR_SUCCESS) {
            LogRegister("GenTL::HALGvsp::Start(): ReadReg {0}", address);
            value = 0;
        }
        return static_cast<std::uint64_t>(value);
    };
    const std::uint64_t delay = read(sk_addrScpd);
    const std::uint64_t frequencyHigh = read(sk_addrTickFrequencyHigh);
    const std::uint64_t frequency = frequencyHigh << 32 | read(sk_addrTickFrequencyLow);
    *out = kLeastInterPacketExpiry;
    if (frequency != 0 && delay != 0) {
        const double ms = 1.0 / static_cast<double>(frequency) * 1000.0 * static_cast<double>(delay);
        const std::uint64_t threeDelays = 3 * static_cast<std::uint64_t>(ms);
        *out = std::max(kLeastInterPacketExpiry, static_cast<std::uint32_t>(threeDelays));
    }
}

/// How long an image may take altogether, and how many resend requests fit into that.
void CalculateBufferExpiry(StreamStartParams& params)
{
    if (params.m_retryParam != 0) {
        params.m_bufferExpiry =
            Saturate(static_cast<double>(params.m_retryParam) / params.m_frameRate * 1000.0);
    } else if (params.m_frameRate != 0.0) {
        params.m_bufferExpiry = Saturate(2 * (1.0 / params.m_frameRate * 1000.0));
    } else {
        params.m_bufferExpiry = 2 * params.m_interPacketExpiry;
    }
    const std::uint32_t interval = params.m_interPacketExpiry;
    params.m_resendRetries = std::max(1U, interval == 0 ? 0 : params.m_bufferExpiry / interval);
}

}  // namespace

int HALGvsp::Start(IHALGev* hal, void* device, StreamStartParams& params)
{
    if (hal == nullptr) {
        return StoreName(GC_ERR_INVALID_HANDLE);
    }
    unsigned scps = 0;
    const std::pair<unsigned, unsigned*> registers[] = {
        {sk_addrGvspCaps, &m_gvspCapabilities},
        {sk_addrScps,     &scps              },
    };
    for (const auto& [address, pValue] : registers) {
        if (const int code = hal->ReadReg(device, address, *pValue); code != GC_ERR_SUCCESS) {
            LogRegister("GenTL::HALGvsp::Start ReadReg {0}", address);
            return AppendName(code);
        }
    }
    params.m_packetSize = scps & kScpsSizeMask;
    const int code = params.m_multicastEnable ? StartMulticast(hal, device, params)
                                              : StartUnicast(hal, device, params, "");
    if (code != GC_ERR_SUCCESS) {
        return code;
    }
    if (GvspPayloadPerPacket(params.m_packetSize, GvspHeaderSize(params.m_extendedId)) == 0) {
        Stop(hal, device, params.m_packetSize, params.m_accessMode);
        return Raise(GC_ERR_INVALID_VALUE,
                     "packet size " + std::to_string(params.m_packetSize) + " leaves no room for image data");
    }
    CalculateInterPacketExpiry(hal, device, &params.m_interPacketExpiry);
    CalculateBufferExpiry(params);
    return GC_ERR_SUCCESS;
}

int HALGvsp::StartUnicast(
    IHALGev* hal, void* device, StreamStartParams& params, const char* portText, const char* function)
{
    if (!HasControl(params.m_accessMode)) {
        return StoreName(GC_ERR_RESOURCE_IN_USE, function);
    }
    OverlappedSocket& socket = *m_stream.m_pSocket;
    if (const int code = socket.OpenAndBindSocket(HostAddress(device)); code != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGvsp::Start OpenAndBindSocket");
        return AppendName(code, function);
    }
    const unsigned host = ntohl(socket.Address().sin_addr.s_addr);
    if (const int code = WriteDestination(hal, device, host, portText, function); code != GC_ERR_SUCCESS) {
        return code;
    }
    TryTraverseFirewall(hal, device, m_stream, m_gvspCapabilities);
    const int code = TestPacketSize(hal, device, m_stream, params.m_packetSize, params.m_autoPacketSize);
    if (code != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGvsp::Start TestPacketSize");
        Stop(hal, device, params.m_packetSize, params.m_accessMode);
        return Append(code, "GenTL::HALGvsp::Start TestPacketSize Failed with err: " + std::to_string(code),
                      function);
    }
    return GC_ERR_SUCCESS;
}

int HALGvsp::StartMulticast(IHALGev* hal, void* device, StreamStartParams& params, const char* function)
{
    in_addr group{};
    if (inet_pton(AF_INET, kMulticastGroup, &group) != 1) {
        HLogger::Error("GenTL::HALGvsp::Start error setting multicast address");
        return Raise(GC_ERR_RESOURCE_EXHAUSTED, "Error creating gvsp multicast address", function);
    }
    if (!HasControl(params.m_accessMode)) {
        return OpenMulticastListener(hal, device, group, function);
    }
    // The packet size is tried on a unicast path, before any listener sees a packet.
    const char* portText = "HALGvsp::Start :: Writing unicast port {0}";
    if (const int code = StartUnicast(hal, device, params, portText, function); code != GC_ERR_SUCCESS) {
        return code;
    }
    m_stream.m_pSocket->Close();
    if (const int code = OpenMulticastMaster(hal, device, group, function); code != GC_ERR_SUCCESS) {
        // The camera's channel is open towards the unicast port that is gone.
        Stop(hal, device, params.m_packetSize, params.m_accessMode);
        return code;
    }
    return GC_ERR_SUCCESS;
}

int HALGvsp::OpenMulticastMaster(IHALGev* hal, void* device, in_addr group, const char* function)
{
    OverlappedSocket& socket = *m_stream.m_pSocket;
    const int code =
        socket.OpenAndBindSocketForMulticast(HostAddress(device), static_cast<int>(group.s_addr));
    if (code != GC_ERR_SUCCESS) {
        return AppendName(code, function);
    }
    if (const int written = WriteDestination(hal, device, ntohl(group.s_addr), "", function);
        written != GC_ERR_SUCCESS) {
        return written;
    }
    TryTraverseFirewall(hal, device, m_stream, m_gvspCapabilities);
    return GC_ERR_SUCCESS;
}

int HALGvsp::OpenMulticastListener(IHALGev* hal, void* device, in_addr group, const char* function)
{
    unsigned port = 0;
    if (const int code = hal->ReadReg(device, sk_addrScp, port); code != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGvsp::Port ReadReg SCP");
        return AppendName(code, function);
    }
    const int code = m_stream.m_pSocket->OpenAndBindSocketForMulticastListening(
        HostAddress(device), static_cast<int>(group.s_addr), static_cast<std::uint16_t>(port));
    if (code != GC_ERR_SUCCESS) {
        return AppendName(code, function);
    }
    TryTraverseFirewall(hal, device, m_stream, m_gvspCapabilities);
    return GC_ERR_SUCCESS;
}

int HALGvsp::WriteDestination(
    IHALGev* hal, void* device, unsigned address, const char* portText, const char* function)
{
    OverlappedSocket& socket = *m_stream.m_pSocket;
    if (const int code = hal->WriteReg(device, sk_addrScda, address); code != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGvsp::Start WriteReg SCDA");
        socket.Close();
        return AppendName(code, function);
    }
    const unsigned port = ntohs(socket.Address().sin_port);
    if (*portText != '\0') {
        HLogger::Debug(loc::al(portText, {std::to_string(port).c_str()}).c_str());
    }
    if (const int code = hal->WriteReg(device, sk_addrScp, port); code != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGvsp::Start WriteReg SCP");
        socket.Close();
        return AppendName(code, function);
    }
    return GC_ERR_SUCCESS;
}

int HALGvsp::Stop(IHALGev* hal, void* device, unsigned, int accessMode)
{
    const int code = CloseChannel(hal, device, accessMode);
    if (code == GC_ERR_SUCCESS) {
        m_stream.m_pSocket->Close();
    }
    return code;
}

int HALGvsp::GetNextPacket(char* packet, int size, int& length, unsigned long timeout)
{
    return m_stream.m_pSocket->GetNextResult(packet, size, length, static_cast<int>(timeout));
}

int HALGvsp::GetNextPacket(char* header,
                           int headerSize,
                           int& headerLength,
                           char* data,
                           int dataSize,
                           int& dataLength,
                           unsigned long timeout)
{
    return m_stream.m_pSocket->GetNextResultNoCopy(header, headerSize, headerLength, data, dataSize,
                                                   dataLength, timeout);
}

DriverType HALGvsp::GetDriverType() const
{
    return m_driverType;
}

int HALGvsp::SetDriverType(DriverType type)
{
    if (type > kDriverTcp) {
        return StoreName(GC_ERR_INVALID_PARAMETER);
    }
    m_driverType = type;
    return GC_ERR_SUCCESS;
}

int HALGvsp::ConfigureExtendedId(IHALGev* hal, void* device, bool legacyRequested, bool& extended)
{
    return ReadExtendedId(hal, device, legacyRequested, m_gevVersion, m_gvspCapabilities, extended);
}

int HALGvsp::GetCameraPacketResendSupport(IHALGev* hal, void* device, bool& enable)
{
    if (hal == nullptr) {
        enable = false;
        return StoreName(GC_ERR_INVALID_HANDLE);
    }
    unsigned capabilities = 0;
    if (const int code = hal->ReadReg(device, sk_addrGvcpCaps, capabilities); code != GC_ERR_SUCCESS) {
        enable = false;
        LogRegister("GenTL::HALGvsp::GetCameraPacketResendSupport ReadReg sk_addrGvcpCaps = {0}",
                    sk_addrGvcpCaps);
        return AppendName(code);
    }
    if ((capabilities & kGvcpCapsPacketResend) == 0) {
        enable = false;
        HLogger::Info("GenTL::HALGvsp::GetCameraPacketResendSupport PACKETRESEND_CMD is not supported");
        return StoreName(GC_ERR_NOT_IMPLEMENTED);
    }
    return GC_ERR_SUCCESS;
}

int HALGvsp::SetupLwfDriverBuffers(unsigned)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int HALGvsp::QueueImageBufferInLwfDriver(GenTLHandle*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int HALGvsp::WaitForNextLeader(unsigned long)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int HALGvsp::ResetWaitForNextLeader()
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int HALGvsp::GetNextPacketLwf(char***, int&, unsigned long)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int HALGvsp::GetNextPacketLwfRingBuffer(char**, int&, unsigned long)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int HALGvsp::QueuePacketBufferLwf(LwfBuffer*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int HALGvsp::QueuePacketBufferLwfRingBuffer()
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

}  // namespace GenTL
