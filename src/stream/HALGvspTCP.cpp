#include "stream/HALGvspTCP.h"

#include "frame/Error.h"
#include "gev/IHALGev.h"
#include "log/HLogger.h"
#include "stream/StreamChannel.h"
#include "stream/StreamStartParams.h"

#include <arpa/inet.h>

#include <algorithm>
#include <climits>

namespace GenTL {
namespace {

constexpr std::uint16_t kServerPort = 58243;

int Refuse(const char* log, const char* text, const char* function = __builtin_FUNCTION())
{
    HLogger::Error(log, GC_ERR_NOT_IMPLEMENTED);
    return Raise(GC_ERR_NOT_IMPLEMENTED, text, function);
}

}  // namespace

std::atomic<std::uint32_t> HALGvspTCP::m_capabilities{0};
std::atomic<std::uint32_t> HALGvspTCP::m_gevVersion{0};

int HALGvspTCP::Start(IHALGev* hal, void* device, StreamStartParams& params)
{
    if (hal == nullptr) {
        return StoreName(GC_ERR_INVALID_HANDLE);
    }
    unsigned capabilities = 0;
    if (const int code = hal->ReadReg(device, sk_addrGvspCaps, capabilities); code != GC_ERR_SUCCESS) {
        LogRegister("GenTL::HALGvsp::Start ReadReg {0}", sk_addrGvspCaps);
        return AppendName(code);
    }
    m_capabilities = capabilities;
    if (!HasControl(params.m_accessMode)) {
        return StoreName(GC_ERR_RESOURCE_IN_USE);
    }
    if (const int code = WriteDestination(hal, device); code != GC_ERR_SUCCESS) {
        return AppendName(code);
    }
    if (const int code = m_socket.OpenAndConnectSocket(m_serverAddress); code != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGvsp::Start OpenAndConnectSocket", code);
        m_socket.Close();
        return AppendName(code);
    }
    return GC_ERR_SUCCESS;
}

/// Tells the camera who will come. Writing the port is what makes it listen.
int HALGvspTCP::WriteDestination(IHALGev* hal, void* device)
{
    if (const int code = GetHostAddrTCP(device, m_hostAddress); code != GC_ERR_SUCCESS) {
        return AppendName(code);
    }
    const unsigned host = ntohl(m_hostAddress.sin_addr.s_addr);
    if (const int code = hal->WriteReg(device, sk_addrScda, host); code != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGvsp::Start WriteReg SCDA");
        return AppendName(code);
    }
    m_socket.m_onFirstBytes = [this] { _signalNextLeader(); };
    if (const int code = GetServerAddrTCP(device, m_serverAddress); code != GC_ERR_SUCCESS) {
        return AppendName(code);
    }
    m_serverAddress.sin_port = htons(kServerPort);
    if (const int code = hal->WriteReg(device, sk_addrScp, kServerPort); code != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGvsp::Start WriteReg SCP");
        return AppendName(code);
    }
    return GC_ERR_SUCCESS;
}

int HALGvspTCP::Stop(IHALGev* hal, void* device, unsigned, int accessMode)
{
    const int code = CloseChannel(hal, device, accessMode);
    if (code == GC_ERR_SUCCESS) {
        m_socket.Close();
    }
    _signalNextLeader();  // no leader comes any more, and nobody is to wait for it
    return code;
}

int HALGvspTCP::GetNextPacket(char*, int, int&, unsigned long)
{
    return Refuse("GenTL::HALGvspTCP::GetNextPacket Failed",
                  "GenTL::HALGvspTCP::GetNextPacket Failed : Function not implemented for TCP");
}

int HALGvspTCP::GetNextPacket(char* header,
                              int headerSize,
                              int& headerLength,
                              char* data,
                              int dataSize,
                              int& dataLength,
                              unsigned long timeout)
{
    headerLength = headerSize;
    const auto headerBytes = static_cast<unsigned long>(std::max(headerSize, 0));
    const int timeoutMs = static_cast<int>(std::min<unsigned long>(timeout, INT_MAX));
    return m_socket.GetNextResult(data, dataSize, dataLength, header, headerBytes, timeoutMs);
}

DriverType HALGvspTCP::GetDriverType() const
{
    return kDriverTcp;
}

int HALGvspTCP::SetDriverType(DriverType type)
{
    if (type != kDriverTcp) {
        HLogger::Error("GenTL::HALGvspTCP::SetDriverType Failed", GC_ERR_INVALID_PARAMETER);
        return Raise(GC_ERR_INVALID_PARAMETER,
                     "GenTL::HALGvspTCP::SetDriverType Failed : Cannot set drivertype other than TCP");
    }
    return GC_ERR_SUCCESS;
}

int HALGvspTCP::ConfigureExtendedId(IHALGev* hal, void* device, bool legacyRequested, bool& extended)
{
    std::uint32_t version = m_gevVersion;
    std::uint32_t capabilities = m_capabilities;
    const int code = ReadExtendedId(hal, device, legacyRequested, version, capabilities, extended);
    m_gevVersion = version;
    m_capabilities = capabilities;
    return code;
}

int HALGvspTCP::GetCameraPacketResendSupport(IHALGev*, void*, bool&)
{
    return Refuse(
        "GenTL::HALGvspTCP::GetCameraPacketResendSupport Failed",
        "GenTL::HALGvspTCP::GetCameraPacketResendSupport Failed : Function not implemented for TCP");
}

int HALGvspTCP::SetupLwfDriverBuffers(unsigned)
{
    return Refuse("GenTL::HALGvspTCP::SetupLwfDriverBuffers Failed",
                  "GenTL::HALGvspTCP::SetupLwfDriverBuffers Failed : Function not implemented for TCP");
}

int HALGvspTCP::QueueImageBufferInLwfDriver(GenTLHandle*)
{
    return Refuse("GenTL::HALGvspTCP::QueueImageBufferInLwfDriver Failed",
                  "GenTL::HALGvspTCP::QueueImageBufferInLwfDriver Failed : Function not implemented for TCP");
}

int HALGvspTCP::WaitForNextLeader(unsigned long timeout)
{
    return m_nextLeaderSeen.Wait(timeout);
}

int HALGvspTCP::ResetWaitForNextLeader()
{
    m_nextLeaderSeen.Reset();
    return GC_ERR_SUCCESS;
}

void HALGvspTCP::_signalNextLeader()
{
    m_nextLeaderSeen.Signal();
}

void HALGvspTCP::EndLeaderWaits()
{
    m_nextLeaderSeen.End();
}

int HALGvspTCP::GetServerAddrTCP(void* device, sockaddr_in& address)
{
    if (device == nullptr) {
        return StoreName(GC_ERR_INVALID_HANDLE);
    }
    address = CameraAddress(device);
    return GC_ERR_SUCCESS;
}

int HALGvspTCP::GetHostAddrTCP(void* device, sockaddr_in& address)
{
    if (device == nullptr) {
        return StoreName(GC_ERR_INVALID_HANDLE);
    }
    address = HostAddress(device);
    return GC_ERR_SUCCESS;
}

int HALGvspTCP::GetNextPacketLwf(char***, int&, unsigned long)
{
    return Refuse("GenTL::HALGvspTCP::GetNextPacketLwf Failed",
                  "GenTL::HALGvspTCP::GetNextPacketLwf Failed : Function not implemented for TCP");
}

int HALGvspTCP::GetNextPacketLwfRingBuffer(char**, int&, unsigned long)
{
    return Refuse("GenTL::HALGvspTCP::GetNextPacketLwfRingBuffer Failed",
                  "GenTL::HALGvspTCP::GetNextPacketLwfRingBuffer Failed : Function not implemented for TCP");
}

int HALGvspTCP::QueuePacketBufferLwf(LwfBuffer*)
{
    return Refuse("GenTL::HALGvspTCP::QueuePacketBufferLwf Failed",
                  "GenTL::HALGvspTCP::QueuePacketBufferLwf Failed : Function not implemented for TCP");
}

int HALGvspTCP::QueuePacketBufferLwfRingBuffer()
{
    return Refuse(
        "GenTL::HALGvspTCP::QueuePacketBufferLwfRingBuffer Failed",
        "GenTL::HALGvspTCP::QueuePacketBufferLwfRingBuffer Failed : Function not implemented for TCP");
}

}  // namespace GenTL
