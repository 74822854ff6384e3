#include "channel/MessageChannel.h"

#include "buffers/HandleQueue.h"
#include "channel/MCBuffer.h"
#include "channel/RemoteDeviceEvent.h"
#include "frame/Error.h"
#include "frame/GenTLHandle.h"
#include "log/GLogger.h"

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/thread/lock_guard.hpp>
#include <boost/thread/lock_types.hpp>

#include <algorithm>
#include <iterator>
#include <string>

namespace GenTL {
namespace {

using AnnouncedLock = boost::lock_guard<boost::recursive_mutex>;
using QueueLock = boost::lock_guard<boost::mutex>;

/// How RegisterEvent and UnregisterEvent refuse an event type that message channels don't have.
struct EventRefusal
{
    int type;
    int registerCode;
    const char* registerText;
    int unregisterCode;
    const char* unregisterText;
};

// clang-format off
constexpr EventRefusal kEventRefusals[] = {
    {EVENT_ERROR,
     GC_ERR_NOT_IMPLEMENTED, "the EVENT_TYPE EVENT_ERROR is not implemented",
     GC_ERR_NOT_IMPLEMENTED, "the EVENT_TYPE EVENT_ERROR is not implemented"},
    {EVENT_NEW_BUFFER,
     GC_ERR_NOT_IMPLEMENTED, "the EVENT_TYPE EVENT_NEW_BUFFER is not implemented",
     GC_ERR_NOT_AVAILABLE,   "the EVENT_TYPE EVENT_NEW_BUFFER is not available"},
    {EVENT_FEATURE_INVALIDATE,
     GC_ERR_NOT_IMPLEMENTED, "the EVENT_TYPE EVENT_FEATURE_INVALIDATE is not implemented",
     GC_ERR_NOT_AVAILABLE,   "the EVENT_TYPE EVENT_FEATURE_INVALIDATE is not available"},
    {EVENT_FEATURE_CHANGE,
     GC_ERR_NOT_IMPLEMENTED, "the EVENT_TYPE EVENT_FEATURE_CHANGE is not implemented",
     GC_ERR_NOT_AVAILABLE,   "the EVENT_TYPE EVENT_FEATURE_CHANGE is not available"},
    {EVENT_MODULE,
     GC_ERR_NOT_IMPLEMENTED, "the EVENT_TYPE EVENT_MODULE is not implemented",
     GC_ERR_NOT_IMPLEMENTED, "the EVENT_TYPE EVENT_MODULE is not implemented"},
};
// clang-format on

constexpr const char* kUnknownEvent =
    "EVENT_TYPE must be one of :\n"
    "GenTL::EVENT_REMOTE_DEVICE, GenTL::EVENT_ERROR, GenTL::EVENT_MODULE, \n"
    "GenTL::EVENT_FEATURE_INVALIDATE, GenTL::EVENT_FEATURE_CHANGE, GenTL::EVENT_NEW_BUFFER";

const EventRefusal* FindRefusal(int type)
{
    const auto* found = std::find_if(std::begin(kEventRefusals), std::end(kEventRefusals),
                                     [type](const EventRefusal& refusal) { return refusal.type == type; });
    return found != std::end(kEventRefusals) ? found : nullptr;
}

/// Null, with the code and its error raised in the name of the caller, when hBuffer is none of a channel's.
MCBuffer* FindMCBuffer(void* hBuffer, int& code, const char* function = __builtin_FUNCTION())
{
    code = CheckHandle(hBuffer);
    if (code != GC_ERR_SUCCESS) {
        AppendName(code, function);
        return nullptr;
    }
    if (CastHandleToIBufferPtr(hBuffer) == nullptr) {
        code = Raise(GC_ERR_INVALID_HANDLE, "hBuffer is not a valid buffer type", function);
        return nullptr;
    }
    MCBuffer* pMCBuf = ToMCBuffer(hBuffer);
    if (pMCBuf == nullptr) {
        code = Raise(GC_ERR_INVALID_HANDLE, "pMCBuf is not a valid buffer type", function);
    }
    return pMCBuf;
}

int Refuse(const char* function = __builtin_FUNCTION(), int line = __builtin_LINE())
{
    return Raise(GC_ERR_NOT_IMPLEMENTED, "only GEV message channels are supported", function, line);
}

/// The end of a wait; what would lie beyond the clock's range counts as a hundred years.
boost::system_time Deadline(std::uint64_t timeoutMs)
{
    constexpr std::uint64_t kHundredYears = 100ULL * 365 * 24 * 3600 * 1000;
    return boost::posix_time::microsec_clock::universal_time() +
           boost::posix_time::milliseconds(static_cast<std::int64_t>(std::min(timeoutMs, kHundredYears)));
}

}  // namespace

MCBuffer* ToMCBuffer(void* hBuffer)
{
    return dynamic_cast<MCBuffer*>(CastHandleToIBufferPtr(hBuffer));
}

MessageChannel::MessageChannel()
{
    m_portInfo.tlType = "GEV";
    m_portInfo.module = "TLMessageChannel";
}

MessageChannel::~MessageChannel()
{
    if (m_pRemoteDeviceEvent != nullptr) {
        m_pRemoteDeviceEvent.reset();
        if (const int code = DeleteHandle(m_hRemoteDeviceEvent); code != GC_ERR_SUCCESS) {
            AppendName(code);
        }
    }
    for (GenTLHandle* hBuffer : m_announcedBuffers) {
        const std::unique_ptr<MCBuffer> pMCBuffer(ToMCBuffer(hBuffer));
        delete[] pMCBuffer->m_pData;
        DeleteHandle(hBuffer);
    }
}

int MessageChannel::ReadPort(unsigned long, void*, unsigned long*)
{
    return Refuse();
}
int MessageChannel::WritePort(unsigned long, const void*, unsigned long*)
{
    return Refuse();
}
int MessageChannel::GetPortURL(char*, unsigned long*) const
{
    return Refuse();
}
int MessageChannel::GetNumPortURLs(unsigned int*)
{
    return Refuse();
}
int MessageChannel::GetPortURLInfo(unsigned int, int, int*, void*, unsigned long*)
{
    return Refuse();
}
int MessageChannel::ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*)
{
    return Refuse();
}
int MessageChannel::WritePortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*)
{
    return Refuse();
}
int MessageChannel::StartListening()
{
    return Refuse();
}
int MessageChannel::StopListening()
{
    return Refuse();
}

int MessageChannel::Open(IHALGvmc*, bool)
{
    return GC_ERR_SUCCESS;
}
int MessageChannel::Close()
{
    return GC_ERR_SUCCESS;
}
bool MessageChannel::IsOpen() const
{
    return false;
}

int MessageChannel::RegisterEvent(int iEventID, void** phEvent)
{
    if (phEvent == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "phEvent == nullptr");
    }
    if (const EventRefusal* refusal = FindRefusal(iEventID)) {
        return Raise(refusal->registerCode, refusal->registerText);
    }
    if (iEventID != EVENT_REMOTE_DEVICE) {
        return Raise(GC_ERR_INVALID_INDEX, kUnknownEvent);
    }
    if (m_pRemoteDeviceEvent != nullptr) {
        return Raise(GC_ERR_RESOURCE_IN_USE, "an event is already registered on the message channel");
    }
    auto event = std::make_unique<RemoteDeviceEvent>(this);
    const int code = AllocateHandle(&m_hRemoteDeviceEvent, static_cast<IEvent*>(event.get()));
    if (code != GC_ERR_SUCCESS) {
        return AppendName(code);
    }
    m_pRemoteDeviceEvent = std::move(event);
    *phEvent = m_hRemoteDeviceEvent;
    return GC_ERR_SUCCESS;
}

int MessageChannel::UnregisterEvent(int iEventID)
{
    if (const EventRefusal* refusal = FindRefusal(iEventID)) {
        return Raise(refusal->unregisterCode, refusal->unregisterText);
    }
    if (iEventID != EVENT_REMOTE_DEVICE) {
        return Raise(GC_ERR_INVALID_INDEX, kUnknownEvent);
    }
    if (m_pRemoteDeviceEvent == nullptr) {
        // The words say the opposite of the test; consumers know them.
        return Raise(GC_ERR_RESOURCE_IN_USE, "m_pRemoteDeviceEvent != nullptr");
    }
    m_pRemoteDeviceEvent.reset();
    const int code = DeleteHandle(m_hRemoteDeviceEvent);
    m_hRemoteDeviceEvent = nullptr;
    return code == GC_ERR_SUCCESS ? code : AppendName(code);
}

int MessageChannel::AllocAndAnnounceBuffer(std::size_t iSize, void* pPrivate, void** phBuffer)
{
    if (phBuffer == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "phBuffer==nullptr");
    }
    if (m_isGrabbing) {
        return Raise(GC_ERR_BUSY, "acquisition engine is already started");
    }
    auto memory = std::make_unique<char[]>(iSize);
    auto buffer = std::make_unique<MCBuffer>();
    buffer->m_size = iSize;
    buffer->m_pUserPointer = pPrivate;
    void* hBuffer = nullptr;
    if (const int code = AllocateHandle(&hBuffer, buffer.get()); code != GC_ERR_SUCCESS) {
        return AppendName(code);
    }
    const AnnouncedLock lock(m_announcedMutex);
    m_announcedBuffers.push_back(static_cast<GenTLHandle*>(hBuffer));
    // The handle's from here on; RevokeBuffer takes them back.
    buffer.release()->m_pData = memory.release();
    *phBuffer = hBuffer;
    return GC_ERR_SUCCESS;
}

int MessageChannel::QueueBuffer(void* hBuffer)
{
    int code = GC_ERR_SUCCESS;
    MCBuffer* pMCBuf = FindMCBuffer(hBuffer, code);
    if (pMCBuf == nullptr) {
        return code;
    }
    const QueueLock lock(m_inputMutex);
    m_inputBuffers.push_back(static_cast<GenTLHandle*>(hBuffer));
    pMCBuf->m_sizeFilled = 0;
    m_inputCondition.notify_one();
    return GC_ERR_SUCCESS;
}

int MessageChannel::RevokeBuffer(void* hBuffer, void** ppPrivate)
{
    if (const int code = CheckHandle(hBuffer); code != GC_ERR_SUCCESS) {
        return Append(code, "hBuffer handle is of wrong type");
    }
    auto* handle = static_cast<GenTLHandle*>(hBuffer);
    if (IsInUse(handle)) {
        GLogger::Error("GenTL::MessageChannel::RevokeBuffer Buffer in use");
        return StoreName(GC_ERR_BUSY);
    }
    const std::unique_ptr<MCBuffer> pMCBuffer = Withdraw(handle);
    if (pMCBuffer == nullptr) {
        GLogger::Error("GenTL::MessageChannel::RevokeBuffer Buffer not found");
        return StoreName(GC_ERR_INVALID_HANDLE);
    }
    if (ppPrivate != nullptr) {
        *ppPrivate = pMCBuffer->m_pUserPointer;
    }
    delete[] pMCBuffer->m_pData;
    const int code = DeleteHandle(hBuffer);
    return code == GC_ERR_SUCCESS ? code : AppendName(code);
}

bool MessageChannel::IsInUse(const GenTLHandle* hBuffer) const
{
    {
        const QueueLock lock(m_inputMutex);
        if (hBuffer == m_hInHand || Contains(m_inputBuffers, hBuffer)) {
            return true;
        }
    }
    const QueueLock lock(m_outputMutex);
    return Contains(m_outputBuffers, hBuffer);
}

/// Takes the buffer out of the announced ones; null when it isn't there.
std::unique_ptr<MCBuffer> MessageChannel::Withdraw(GenTLHandle* hBuffer)
{
    const AnnouncedLock lock(m_announcedMutex);
    const auto found = std::find(m_announcedBuffers.begin(), m_announcedBuffers.end(), hBuffer);
    if (found == m_announcedBuffers.end()) {
        return nullptr;
    }
    m_announcedBuffers.erase(found);
    return std::unique_ptr<MCBuffer>(ToMCBuffer(hBuffer));
}

int MessageChannel::GetBufferID(unsigned iIndex, void** phBuffer) const
{
    if (phBuffer == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "phBuffer==nullptr");
    }
    const AnnouncedLock lock(m_announcedMutex);
    if (iIndex >= m_announcedBuffers.size()) {
        return Raise(GC_ERR_INVALID_INDEX, "iIndex >= m_announcedBuffers.size()");
    }
    *phBuffer = m_announcedBuffers[iIndex];
    return GC_ERR_SUCCESS;
}

int MessageChannel::GetBufferInfo(
    void* hBuffer, int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize)
{
    int code = GC_ERR_SUCCESS;
    const MCBuffer* pMCBuf = FindMCBuffer(hBuffer, code);
    if (pMCBuf == nullptr) {
        // Spelled so in the logs that users search.
        GLogger::Error("GenTL::MessageChannel::RevokeBuffer Buffer handle is of worng type");
        return code;
    }
    const auto answer = [&](auto value) { return m_info.SetInfo(value, piType, pBuffer, piSize); };
    switch (iInfoCmd) {
        case MC_BUFFER_INFO_BASE:
            return answer(pMCBuf->m_pData);
        case MC_BUFFER_INFO_SIZE:
            return answer(pMCBuf->m_size);
        case MC_BUFFER_INFO_USER_PTR:
            return answer(static_cast<char*>(pMCBuf->m_pUserPointer));
        case MC_BUFFER_INFO_TIMESTAMP:
            return answer(pMCBuf->m_timestamp);
        case MC_BUFFER_INFO_SIZE_FILLED:
            return answer(pMCBuf->m_sizeFilled);
        default:
            return StoreName(GC_ERR_INVALID_INDEX);
    }
}

int MessageChannel::Flush()
{
    {
        const QueueLock lock(m_inputMutex);
        ++m_numFlushes;
        m_inputBuffers.clear();
    }
    const QueueLock lock(m_outputMutex);
    m_outputBuffers.clear();
    return GC_ERR_SUCCESS;
}

int MessageChannel::GetInfo(int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) const
{
    const auto answer = [&](const auto& value) { return m_info.SetInfo(value, piType, pBuffer, piSize); };
    switch (iInfoCmd) {
        case MC_INFO_ID:
            return answer(m_portInfo.id);
        case MC_INFO_NUM_DELIVERED:
            return answer(m_numDelivered.load());
        case MC_INFO_NUM_UNDERRUN:
            return answer(m_numUnderrun);
        case MC_INFO_NUM_ANNOUNCED: {
            const AnnouncedLock lock(m_announcedMutex);
            return answer(m_announcedBuffers.size());
        }
        case MC_INFO_NUM_QUEUED: {
            const QueueLock lock(m_inputMutex);
            return answer(m_inputBuffers.size());
        }
        case MC_INFO_NUM_AWAIT_DELIVERY:
            return answer(NumAwaitDelivery());
        case MC_INFO_NUM_STARTED:
            return answer(m_numStarted);
        case MC_INFO_PAYLOAD_SIZE:
            return answer(m_payloadSize);
        case MC_INFO_IS_GRABBING:
            return answer(m_isGrabbing.load());
        case MC_INFO_TLTYPE:
            return answer(m_portInfo.tlType);
        case MC_INFO_BUF_ANNOUNCE_MIN:
            return answer(m_bufAnnounceMin);
        case MC_INFO_BUF_ALIGNMENT:
            return answer(m_bufAlignment);
        default:
            return Raise(GC_ERR_INVALID_INDEX,
                         "MC_INFO_CMD must be one of :\n"
                         "GenTL::MC_INFO_ID , GenTL::MC_INFO_NUM_DELIVERED, GenTL::MC_INFO_NUM_UNDERRUN, \n"
                         "GenTL::MC_INFO_NUM_ANNOUNCED, GenTL::MC_INFO_NUM_QUEUED, \n"
                         "GenTL::MC_INFO_NUM_AWAIT_DELIVERY, GenTL::MC_INFO_NUM_STARTED, \n"
                         "GenTL::MC_INFO_PAYLOAD_SIZE, GenTL::MC_INFO_IS_GRABBING, GenTL::MC_INFO_TLTYPE, \n"
                         "GenTL::MC_INFO_BUF_ANNOUNCE_MIN, GenTL::MC_INFO_BUF_ALIGNMENT");
    }
}

int MessageChannel::WaitOnNewBuffer(void** phBuffer, unsigned long iTimeout)
{
    constexpr unsigned long kTopBit = 1UL << 63;
    boost::unique_lock<boost::mutex> lock(m_outputMutex);
    if (m_outputBuffers.empty() && iTimeout != GENTL_INFINITE) {
        *phBuffer = nullptr;
        if ((iTimeout & kTopBit) != 0) {
            return StoreName(GC_ERR_INVALID_PARAMETER);
        }
        const boost::system_time deadline = Deadline(iTimeout);
        while (m_outputBuffers.empty()) {
            if (!m_outputCondition.timed_wait(lock, deadline) && m_outputBuffers.empty()) {
                return StoreName(m_killed.exchange(false) ? GC_ERR_ABORT : GC_ERR_TIMEOUT);
            }
        }
    }
    while (m_outputBuffers.empty()) {
        m_outputCondition.wait(lock);
    }
    *phBuffer = m_outputBuffers.front();
    m_outputBuffers.pop_front();
    ++m_numDelivered;
    return GC_ERR_SUCCESS;
}

int MessageChannel::KillWaitForNewBuffer()
{
    m_killed = true;
    m_outputCondition.notify_one();
    return GC_ERR_SUCCESS;
}

std::size_t MessageChannel::NumAwaitDelivery() const
{
    const QueueLock lock(m_outputMutex);
    return m_outputBuffers.size();
}

MCBuffer& MessageChannel::TakeFromInput()
{
    boost::unique_lock<boost::mutex> lock(m_inputMutex);
    while (m_inputBuffers.empty()) {
        m_inputCondition.wait(lock);
    }
    m_hInHand = m_inputBuffers.front();
    m_inputBuffers.pop_front();
    m_numFlushesAtTake = m_numFlushes;
    return *ToMCBuffer(m_hInHand);
}

void MessageChannel::ReturnToInput()
{
    const QueueLock lock(m_inputMutex);
    if (m_numFlushes == m_numFlushesAtTake) {
        m_inputBuffers.push_front(m_hInHand);
    }
    m_hInHand = nullptr;
}

/// The buffer stays in hand until it stands in the queue, so that it can't be revoked in between.
void MessageChannel::Deliver()
{
    {
        // A flush counts before it empties this queue: what comes in behind it is seen here.
        const QueueLock lock(m_outputMutex);
        if (m_numFlushes == m_numFlushesAtTake) {
            m_outputBuffers.push_back(m_hInHand);
        }
    }
    m_outputCondition.notify_one();
    LetGo();
}

void MessageChannel::LetGo()
{
    const QueueLock lock(m_inputMutex);
    m_hInHand = nullptr;
}

}  // namespace GenTL
