#include "channel/MessageChannelGev.h"

#include "channel/HALGvmc.h"
#include "channel/MCBuffer.h"
#include "frame/Error.h"
#include "frame/PortableUtil.h"
#include "gev/BigEndian.h"
#include "gev/SignalBlock.h"
#include "modules/ThreadPriority.h"
#include "modules/WorkerThread.h"

#include <boost/chrono/duration.hpp>
#include <boost/thread/lock_guard.hpp>

#include <algorithm>
#include <string>

namespace GenTL {
namespace {

constexpr unsigned long kReceiveTimeout = 200;          // ms; a stop waits as long at most
constexpr boost::chrono::milliseconds kRetryPause{10};  // after a failure that takes no time by itself

constexpr std::size_t kCommandOffset = 2;
constexpr int kCommandEnd = 4;
constexpr std::uint16_t kEventCmd = 0x00C0;
constexpr std::uint16_t kEventDataBit = 0x0002;  // EVENTDATA_CMD has it set, EVENT_CMD hasn't

bool IsEvent(const unsigned char* packet, int received)
{
    return received >= kCommandEnd && (Load16(packet + kCommandOffset) & ~kEventDataBit) == kEventCmd;
}

}  // namespace

MessageChannelGev::MessageChannelGev(IHALGev* pHal, void* device, unsigned index, int accessMode)
    : m_pHal(pHal), m_hDevice(device), m_accessMode(accessMode)
{
    m_portInfo.id = std::to_string(index);
    m_payloadSize = kEventSizeMax;
    m_bufAnnounceMin = 1;
    m_bufAlignment = 1;
}

MessageChannelGev::~MessageChannelGev()
{
    StopThread();
}

int MessageChannelGev::CheckOpen(const char* function, int line) const
{
    return m_isOpen ? static_cast<int>(GC_ERR_SUCCESS) : StoreName(GC_ERR_INVALID_HANDLE, function, line);
}

int MessageChannelGev::RefusePort(const char* function, int line) const
{
    return StoreName(m_isOpen ? GC_ERR_NOT_IMPLEMENTED : GC_ERR_INVALID_HANDLE, function, line);
}

int MessageChannelGev::ReadPort(unsigned long, void*, unsigned long*)
{
    return RefusePort();
}
int MessageChannelGev::WritePort(unsigned long, const void*, unsigned long*)
{
    return RefusePort();
}
int MessageChannelGev::GetPortURL(char*, unsigned long*) const
{
    return RefusePort();
}
int MessageChannelGev::GetPortInfo(int, int*, void*, unsigned long*)
{
    return RefusePort();
}
int MessageChannelGev::GetNumPortURLs(unsigned int*)
{
    return RefusePort();
}
int MessageChannelGev::GetPortURLInfo(unsigned int, int, int*, void*, unsigned long*)
{
    return RefusePort();
}
int MessageChannelGev::ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*)
{
    return RefusePort();
}
int MessageChannelGev::WritePortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*)
{
    return RefusePort();
}

int MessageChannelGev::RegisterEvent(int iEventID, void** phEvent)
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : MessageChannel::RegisterEvent(iEventID, phEvent);
}

int MessageChannelGev::UnregisterEvent(int iEventID)
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : MessageChannel::UnregisterEvent(iEventID);
}

int MessageChannelGev::Open(IHALGvmc* pHal, bool multicast)
{
    if (m_isOpen) {
        return Raise(GC_ERR_RESOURCE_IN_USE, "GEV message channel is already open");
    }
    if (pHal == nullptr) {
        m_pOwnHalGvmc = std::make_unique<HALGvmc>();
        pHal = m_pOwnHalGvmc.get();
    }
    m_pHalGvmc = pHal;
    m_multicast = multicast;
    m_isOpen = true;
    return GC_ERR_SUCCESS;
}

int MessageChannelGev::Close()
{
    if (!m_isOpen) {
        return Raise(GC_ERR_RESOURCE_IN_USE, "GEV message channel is not open");
    }
    StopThread();
    m_isOpen = false;
    if (m_pOwnHalGvmc == nullptr) {
        delete m_pHalGvmc;
    }
    m_pOwnHalGvmc.reset();
    m_pHalGvmc = nullptr;
    return GC_ERR_SUCCESS;
}

bool MessageChannelGev::IsOpen() const
{
    return m_isOpen;
}

int MessageChannelGev::AllocAndAnnounceBuffer(std::size_t iSize, void* pPrivate, void** phBuffer)
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : MessageChannel::AllocAndAnnounceBuffer(iSize, pPrivate, phBuffer);
}

int MessageChannelGev::QueueBuffer(void* hBuffer)
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : MessageChannel::QueueBuffer(hBuffer);
}

int MessageChannelGev::RevokeBuffer(void* hBuffer, void** ppPrivate)
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : MessageChannel::RevokeBuffer(hBuffer, ppPrivate);
}

int MessageChannelGev::GetBufferID(unsigned iIndex, void** phBuffer) const
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : MessageChannel::GetBufferID(iIndex, phBuffer);
}

int MessageChannelGev::GetBufferInfo(
    void* hBuffer, int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize)
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code
                                  : MessageChannel::GetBufferInfo(hBuffer, iInfoCmd, piType, pBuffer, piSize);
}

int MessageChannelGev::Flush()
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : MessageChannel::Flush();
}

int MessageChannelGev::GetInfo(int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) const
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : MessageChannel::GetInfo(iInfoCmd, piType, pBuffer, piSize);
}

int MessageChannelGev::StartListening()
{
    if (const int code = CheckOpen(); code != GC_ERR_SUCCESS) {
        return code;
    }
    if (m_isGrabbing) {
        return Raise(GC_ERR_RESOURCE_IN_USE, "acquisition engine is already started");
    }
    std::size_t announced = 0;
    {
        const boost::lock_guard<boost::recursive_mutex> lock(m_announcedMutex);
        announced = m_announcedBuffers.size();
    }
    if (announced < m_bufAnnounceMin) {
        // No blank after the count: consumers know the text so.
        return Raise(GC_ERR_INVALID_BUFFER, "the number of announced buffers is " +
                                                std::to_string(announced) + "which is less than " +
                                                std::to_string(m_bufAnnounceMin) + " --the minimum allowed");
    }
    if (const int code = m_pHalGvmc->Start(m_pHal, m_hDevice, m_multicast, m_accessMode);
        code != GC_ERR_SUCCESS) {
        return AppendName(code);
    }
    m_numDelivered = 0;
    m_numUnderrun = 0;
    m_isGrabbing = true;
    {
        const boost::lock_guard<boost::mutex> lock(m_inputMutex);
        m_numStarted = m_inputBuffers.size();
    }
    const SignalBlock noSignals;
    m_receiveThread = boost::thread([this] { GrabThread(); });
    return GC_ERR_SUCCESS;
}

int MessageChannelGev::StopListening()
{
    if (const int code = CheckOpen(); code != GC_ERR_SUCCESS) {
        return code;
    }
    if (!m_isGrabbing) {
        return Raise(GC_ERR_RESOURCE_IN_USE, "acquisition engine was not started");
    }
    StopThread();
    m_numStarted = 0;
    const int code = m_pHalGvmc->Stop(m_pHal, m_hDevice, m_accessMode);
    return code == GC_ERR_SUCCESS ? code : AppendName(code);
}

void MessageChannelGev::StopThread()
{
    // A start that failed half-way has no thread.
    if (m_receiveThread.joinable()) {
        const boost::this_thread::disable_interruption uninterrupted;
        m_receiveThread.interrupt();
        m_receiveThread.join();
        LetGo();
    }
    m_isGrabbing = false;
}

void MessageChannelGev::GrabThread()
{
    RunUntilInterrupted(ThreadPriority::m_priorityEventThread, [this] { ReceiveEvents(); });
}

void MessageChannelGev::ReceiveEvents()
{
    const auto packet = std::make_unique<unsigned char[]>(kEventSizeMax);
    for (;;) {
        boost::this_thread::interruption_point();
        ReceiveEvent(packet.get());
    }
}

void MessageChannelGev::ReceiveEvent(unsigned char* packet)
{
    MCBuffer& buffer = TakeFromInput();
    int received = 0;
    const int code =
        m_pHalGvmc->GetNextPacket(reinterpret_cast<char*>(packet), kEventSizeMax, received, kReceiveTimeout);
    if (code != GC_ERR_SUCCESS) {
        ReturnToInput();
        if (code != GC_ERR_TIMEOUT) {
            boost::this_thread::sleep_for(kRetryPause);
        }
        return;
    }
    if (!IsEvent(packet, received)) {
        LetGo();
        return;
    }
    const std::size_t filled = std::min<std::size_t>(static_cast<std::size_t>(received), buffer.m_size);
    memcpy_portable(buffer.m_pData, buffer.m_size, packet, filled);
    buffer.m_sizeFilled = filled;
    Deliver();
}

}  // namespace GenTL
