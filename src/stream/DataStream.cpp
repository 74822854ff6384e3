#include "stream/DataStream.h"

#include "buffers/Buffer.h"
#include "buffers/HandleQueue.h"
#include "buffers/NewBufferEvent.h"
#include "buffers/OpenedDataStreamGevStateManager.h"
#include "device/ProtectedSet.h"
#include "frame/Error.h"
#include "frame/GenTLHandle.h"
#include "log/GLogger.h"

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/thread/lock_algorithms.hpp>
#include <boost/thread/lock_guard.hpp>
#include <boost/thread/lock_types.hpp>

#include <algorithm>
#include <stdexcept>
#include <string>

namespace GenTL {
namespace {

using BufferLock = boost::unique_lock<boost::recursive_mutex>;
using AnnouncedLock = boost::lock_guard<boost::recursive_mutex>;
using QueueLock = boost::lock_guard<boost::mutex>;

/// Both queues at once. The library takes them in either order, so the locks are taken without one.
class BothQueuesLock
{
public:
    BothQueuesLock(boost::mutex& input, boost::mutex& output)
        : m_input(input, boost::defer_lock), m_output(output, boost::defer_lock)
    {
        boost::lock(m_input, m_output);
    }

private:
    boost::unique_lock<boost::mutex> m_input;
    boost::unique_lock<boost::mutex> m_output;
};

/// Where an info command's value goes, with the type made explicit.
struct InfoAnswer
{
    int String(const std::string& value) const { return info.SetInfo(value, piType, pBuffer, piSize); }
    int U64(std::uint64_t value) const { return info.SetInfo(value, piType, pBuffer, piSize); }
    int I32(std::int32_t value) const { return info.SetInfo(value, piType, pBuffer, piSize); }
    int Bool(bool value) const { return info.SetInfo(value, piType, pBuffer, piSize); }
    int Pointer(void* value) const
    {
        return info.SetInfo(static_cast<char*>(value), piType, pBuffer, piSize);
    }

    const InfoUtility& info;
    int* piType;
    void* pBuffer;
    std::size_t* piSize;
};

/// The payload types for which a buffer command has an answer.
enum class Payload {
    Any,
    Image,
    Chunks,
    File,
};

bool Has(Payload needed, std::uint64_t payloadType)
{
    constexpr std::uint64_t kChunkBit = 0x4000;
    switch (needed) {
        case Payload::Image:
            return (payloadType & ~kChunkBit) == PAYLOAD_TYPE_IMAGE;
        case Payload::Chunks:
            return payloadType == (kChunkBit | PAYLOAD_TYPE_IMAGE) || payloadType == PAYLOAD_TYPE_CHUNK_DATA;
        case Payload::File:
            return payloadType == PAYLOAD_TYPE_FILE;
        case Payload::Any:
            break;
    }
    return true;
}

/// Reading the flag clears it, once the consumer really has the value.
int AnswerNewData(Buffer& buffer, const InfoAnswer& to)
{
    const int code = to.Bool(buffer.m_newData);
    if (code == GC_ERR_SUCCESS && to.pBuffer != nullptr) {
        buffer.m_newData = false;
    }
    return code;
}

int AnswerFrameId(Buffer& buffer, const InfoAnswer& to)
{
    return buffer.m_frameId != 0 ? to.U64(buffer.m_frameId)
                                 : StoreName(GC_ERR_NOT_AVAILABLE, "GetBufferInfo");
}

struct BufferInfoRow
{
    int command;
    Payload needs;
    int (*answer)(Buffer& buffer, const InfoAnswer& to);
};

// clang-format off
constexpr BufferInfoRow kBufferInfo[] = {
    {BUFFER_INFO_BASE,                       Payload::Any,    [](Buffer& b, const InfoAnswer& to) { return to.Pointer(b.m_pData); }},
    {BUFFER_INFO_SIZE,                       Payload::Any,    [](Buffer& b, const InfoAnswer& to) { return to.U64(b.m_size); }},
    {BUFFER_INFO_USER_PTR,                   Payload::Any,    [](Buffer& b, const InfoAnswer& to) { return to.Pointer(b.m_pUserPointer); }},
    {BUFFER_INFO_TIMESTAMP,                  Payload::Any,    [](Buffer& b, const InfoAnswer& to) { return to.U64(b.m_timestamp); }},
    {BUFFER_INFO_NEW_DATA,                   Payload::Any,    AnswerNewData},
    {BUFFER_INFO_IS_QUEUED,                  Payload::Any,    [](Buffer& b, const InfoAnswer& to) { return to.Bool(b.m_isQueued); }},
    {BUFFER_INFO_IS_ACQUIRING,               Payload::Any,    [](Buffer& b, const InfoAnswer& to) { return to.Bool(b.m_isAcquiring); }},
    {BUFFER_INFO_IS_INCOMPLETE,              Payload::Any,    [](Buffer& b, const InfoAnswer& to) { return to.Bool(b.m_isIncomplete); }},
    {BUFFER_INFO_SIZE_FILLED,                Payload::Any,    [](Buffer& b, const InfoAnswer& to) { return to.U64(b.m_sizeFilled); }},
    {BUFFER_INFO_WIDTH,                      Payload::Image,  [](Buffer& b, const InfoAnswer& to) { return to.U64(b.m_width); }},
    {BUFFER_INFO_HEIGHT,                     Payload::Image,  [](Buffer& b, const InfoAnswer& to) { return to.U64(b.m_height); }},
    {BUFFER_INFO_XOFFSET,                    Payload::Image,  [](Buffer& b, const InfoAnswer& to) { return to.U64(b.m_xOffset); }},
    {BUFFER_INFO_YOFFSET,                    Payload::Image,  [](Buffer& b, const InfoAnswer& to) { return to.U64(b.m_yOffset); }},
    {BUFFER_INFO_XPADDING,                   Payload::Image,  [](Buffer& b, const InfoAnswer& to) { return to.U64(b.m_xPadding); }},
    {BUFFER_INFO_YPADDING,                   Payload::Image,  [](Buffer& b, const InfoAnswer& to) { return to.U64(b.m_yPadding); }},
    {BUFFER_INFO_FRAMEID,                    Payload::Any,    AnswerFrameId},
    {BUFFER_INFO_IMAGEPRESENT,               Payload::Image,  [](Buffer& b, const InfoAnswer& to) { return to.Bool(b.m_imagePresent); }},
    {BUFFER_INFO_IMAGEOFFSET,                Payload::Image,  [](Buffer& b, const InfoAnswer& to) { return to.U64(b.m_imageOffset); }},
    {BUFFER_INFO_PAYLOADTYPE,                Payload::Any,    [](Buffer& b, const InfoAnswer& to) { return to.U64(b.m_payloadType); }},
    {BUFFER_INFO_PIXELFORMAT,                Payload::Image,  [](Buffer& b, const InfoAnswer& to) { return to.U64(b.m_pixelFormat); }},
    {BUFFER_INFO_PIXELFORMAT_NAMESPACE,      Payload::Image,  [](Buffer& b, const InfoAnswer& to) { return to.U64(b.m_pixelFormatNamespace); }},
    {BUFFER_INFO_DELIVERED_IMAGEHEIGHT,      Payload::Image,  [](Buffer& b, const InfoAnswer& to) { return to.U64(b.m_deliveredImageHeight); }},
    {BUFFER_INFO_DELIVERED_CHUNKPAYLOADSIZE, Payload::Chunks, [](Buffer& b, const InfoAnswer& to) { return to.U64(b.m_deliveredChunkPayloadSize); }},
    {BUFFER_INFO_CHUNKLAYOUTID,              Payload::Chunks, [](Buffer& b, const InfoAnswer& to) { return to.U64(b.m_chunkLayoutId); }},
    {BUFFER_INFO_FILENAME,                   Payload::File,   [](Buffer& b, const InfoAnswer& to) { return to.String(b.m_fileName); }},
    {BUFFER_INFO_PIXEL_ENDIANNESS,           Payload::Image,  [](Buffer& b, const InfoAnswer& to) { return to.I32(b.m_pixelEndianness); }},
    {BUFFER_INFO_DATA_SIZE,                  Payload::Any,    [](Buffer& b, const InfoAnswer& to) { return to.U64(b.m_dataSize); }},
    {BUFFER_INFO_TIMESTAMP_NS,               Payload::Any,    [](Buffer& b, const InfoAnswer& to) { return to.U64(b.m_timestamp); }},
    {BUFFER_INFO_DATA_LARGER_THAN_BUFFER,    Payload::Any,    [](Buffer& b, const InfoAnswer& to) { return to.Bool(b.m_dataLargerThanBuffer); }},
    {BUFFER_INFO_CONTAINS_CHUNKDATA,         Payload::Any,    [](Buffer& b, const InfoAnswer& to) { return to.Bool(b.m_containsChunkData); }},
};
// clang-format on

/// Why a buffer can't be revoked.
struct Refusal
{
    int code;
    const char* log;
    const char* text;
};

constexpr Refusal kInInput{GC_ERR_BUSY, "GenTL::DataStream::RevokeBuffer Buffer still in input buffers",
                           "Buffer still in input buffers"};
constexpr Refusal kInOutput{GC_ERR_BUSY, "GenTL::DataStream::RevokeBuffer Buffer still in output buffers",
                            "Buffer still in output buffers"};
// The words say the opposite of the test; consumers know them.
constexpr Refusal kStillQueued{
    GC_ERR_BUSY, "GenTL::DataStream::RevokeBuffer Buffer has to be requeued before it is revoked",
    "buffer must be queued via GenTL::DSQueueBuffer() before revoking it"};
constexpr Refusal kBeingFilled{GC_ERR_BUSY, "GenTL::DataStream::RevokeBuffer Buffer is being filled",
                               "Buffer is being filled"};
constexpr Refusal kNotAnnounced{GC_ERR_INVALID_HANDLE,
                                "GenTL::DataStream::RevokeBuffer Buffer was not announced",
                                "buffer was not found in announced buffers"};
constexpr Refusal kSystemAllocated{GC_ERR_INVALID_BUFFER,
                                   "GenTL::DataStream::RevokeBuffer Cannot return system allocated buffer.",
                                   "GenTL Consumer cannot request a revoked system allocated buffer"};

/// How RegisterEvent and UnregisterEvent refuse an event type that streams don't have.
struct EventRefusal
{
    int type;
    int code;
    const char* registerText;
    const char* unregisterText;
};

// clang-format off
constexpr EventRefusal kEventRefusals[] = {
    {EVENT_ERROR, GC_ERR_NOT_IMPLEMENTED,
     "the EVENT_TYPE EVENT_ERROR is not implemented",
     "the EVENT_TYPE EVENT_ERROR is not implemented"},
    {EVENT_FEATURE_INVALIDATE, GC_ERR_NOT_AVAILABLE,
     "the EVENT_TYPE EVENT_FEATURE_INVALIDATE is not available",
     "the EVENT_TYPE EVENT_FEATURE_INVALIDATE is not implemented"},
    {EVENT_FEATURE_CHANGE, GC_ERR_NOT_AVAILABLE,
     "the EVENT_TYPE EVENT_FEATURE_CHANGE is not available",
     "the EVENT_TYPE EVENT_FEATURE_CHANGE is not implemented"},
    {EVENT_REMOTE_DEVICE, GC_ERR_NOT_AVAILABLE,
     "the EVENT_TYPE EVENT_REMOTE_DEVICE is not available",
     "the EVENT_TYPE EVENT_REMOTE_DEVICE is not implemented"},
    {EVENT_MODULE, GC_ERR_NOT_IMPLEMENTED,
     "the EVENT_TYPE EVENT_MODULE is not implemented",
     "the EVENT_TYPE EVENT_MODULE is not implemented"},
};
// clang-format on

constexpr const char* kUnknownEvent =
    "EVENT_TYPE must be one of :\n"
    "GenTL::EVENT_ERROR, GenTL::EVENT_MODULE, GenTL::EVENT_FEATURE_INVALIDATE, \n"
    "GenTL::EVENT_FEATURE_CHANGE, GenTL::EVENT_REMOTE_DEVICE, GenTL::EVENT_NEW_BUFFER";

/// The buffer of a valid handle; null when it is a handle of something else.
Buffer* ToBuffer(void* hBuffer)
{
    return CastHandleToBufferPtr(hBuffer);
}

void MarkQueued(Buffer& buffer)
{
    buffer.m_newData = false;
    buffer.m_isAcquiring = false;
    buffer.m_isQueued = true;
    buffer.m_sizeFilled = 0;
}

/// A buffer as an announcement makes it, without its memory.
std::unique_ptr<Buffer> MakeBuffer(std::size_t size, void* pPrivate, boost::asio::io_service& service)
{
    auto buffer = std::make_unique<Buffer>();
    buffer->m_size = size;
    buffer->m_pUserPointer = pPrivate;
    buffer->m_isIncomplete = true;
    buffer->m_pixelEndianness = PIXELENDIANNESS_LITTLE;
    buffer->m_pixelFormatNamespace = PIXELFORMAT_NAMESPACE_PFNC_32BIT;
    buffer->m_state = IN_USER;
    buffer->m_pNextPacketTimer = new boost::asio::deadline_timer(service);
    buffer->m_pBufferExpiryTimer = new boost::asio::deadline_timer(service);
    return buffer;
}

/// The handlers of waiting timers still run, and find that they are of no buffer any more.
void FreeTimers(Buffer& buffer)
{
    for (boost::asio::deadline_timer** ppTimer : {&buffer.m_pNextPacketTimer, &buffer.m_pBufferExpiryTimer}) {
        if (*ppTimer != nullptr) {
            (*ppTimer)->cancel();
            delete *ppTimer;
            *ppTimer = nullptr;
        }
    }
}

int Refuse(const Refusal& refusal)
{
    GLogger::Error(refusal.log);
    return Raise(refusal.code, refusal.text, "RevokeBuffer");
}

/// A command that asks for what the buffer's payload type doesn't have.
bool IsPayloadCommand(int iInfoCmd)
{
    return (iInfoCmd >= BUFFER_INFO_WIDTH && iInfoCmd <= BUFFER_INFO_YPADDING) ||
           (iInfoCmd >= BUFFER_INFO_IMAGEPRESENT && iInfoCmd <= BUFFER_INFO_IMAGEOFFSET) ||
           (iInfoCmd >= BUFFER_INFO_PIXELFORMAT && iInfoCmd <= BUFFER_INFO_PIXEL_ENDIANNESS);
}

/// The end of a wait; what would lie beyond the clock's range counts as a hundred years.
boost::system_time Deadline(std::uint64_t timeoutMs)
{
    constexpr std::uint64_t kHundredYears = 100ULL * 365 * 24 * 3600 * 1000;
    return boost::posix_time::microsec_clock::universal_time() +
           boost::posix_time::milliseconds(static_cast<std::int64_t>(std::min(timeoutMs, kHundredYears)));
}

}  // namespace

DataStream::DataStream(void* device, void* parent) : m_hDevice(device), m_pParentDevice(parent)
{
    if (device == nullptr || parent == nullptr) {
        constexpr const char* kText = "DataStream parent device is null";
        Raise(GC_ERR_INVALID_HANDLE, kText);
        throw std::logic_error(kText);
    }
    m_portInfo.id.clear();
    m_portInfo.module = "TLDataStream";
    m_portInfo.portName = "StreamPort";
}

DataStream::~DataStream()
{
    // The consumer's event handle outlives the event and is refused from here on.
    delete m_pNewBufferEvent;
    m_ioService.stop();
}

int DataStream::GetPortURLInfo(unsigned int, int, int*, void*, unsigned long*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int DataStream::RegisterEvent(int iEventID, void** phEvent)
{
    if (phEvent == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "phEvent == nullptr");
    }
    for (const EventRefusal& refusal : kEventRefusals) {
        if (refusal.type == iEventID) {
            return Raise(refusal.code, refusal.registerText);
        }
    }
    if (iEventID != EVENT_NEW_BUFFER) {
        return Raise(GC_ERR_INVALID_INDEX, kUnknownEvent);
    }
    if (m_pNewBufferEvent != nullptr) {
        return Raise(GC_ERR_RESOURCE_IN_USE, "an event is already registered for the data stream");
    }
    auto event = std::make_unique<NewBufferEvent>(this);
    const int code = AllocateHandle(&m_hNewBufferEvent, static_cast<IEvent*>(event.get()));
    if (code != GC_ERR_SUCCESS) {
        return AppendName(code);
    }
    m_pNewBufferEvent = event.release();
    *phEvent = m_hNewBufferEvent;
    return GC_ERR_SUCCESS;
}

int DataStream::UnregisterEvent(int iEventID)
{
    for (const EventRefusal& refusal : kEventRefusals) {
        if (refusal.type == iEventID) {
            return Raise(refusal.code, refusal.unregisterText);
        }
    }
    if (iEventID != EVENT_NEW_BUFFER) {
        return Raise(GC_ERR_INVALID_INDEX, kUnknownEvent);
    }
    if (m_pNewBufferEvent == nullptr) {
        return Raise(GC_ERR_NOT_INITIALIZED,
                     "m_pNewBufferEvent == nullptr when EVENT_TYPE is EVENT_NEW_BUFFER");
    }
    delete m_pNewBufferEvent;
    m_pNewBufferEvent = nullptr;
    const int code = DeleteHandle(m_hNewBufferEvent);
    m_hNewBufferEvent = nullptr;
    return code == GC_ERR_SUCCESS ? code : AppendName(code);
}

int DataStream::Open(IHALGvsp*)
{
    return GC_ERR_SUCCESS;
}

int DataStream::Close()
{
    return GC_ERR_SUCCESS;
}

bool DataStream::IsOpen() const
{
    return false;
}

int DataStream::AnnounceBuffer(void* pBuffer, std::size_t iSize, void* pPrivate, void** phBuffer)
{
    if (phBuffer == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "phBuffer==nullptr");
    }
    if (pBuffer == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "pBuffer==nullptr");
    }
    if (m_isGrabbing) {
        return Raise(GC_ERR_BUSY, "acquisition engine is already grabbing");
    }
    auto buffer = MakeBuffer(iSize, pPrivate, m_ioService);
    buffer->m_pData = pBuffer;
    buffer->m_userAllocated = true;
    if (!g_userBuffersProtectedSet.AddToSet(pBuffer)) {
        FreeTimers(*buffer);
        return StoreName(GC_ERR_RESOURCE_IN_USE);
    }
    const int code = Announce(std::move(buffer), phBuffer);
    return code == GC_ERR_SUCCESS ? code : AppendName(code);
}

int DataStream::AllocAndAnnounceBuffer(std::size_t iSize, void* pPrivate, void** phBuffer)
{
    if (phBuffer == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "phBuffer==nullptr");
    }
    if (m_isGrabbing) {
        return Raise(GC_ERR_BUSY, "acquisition engine is already grabbing");
    }
    const auto free = [this](char* pData) { FreeMemory(pData); };
    std::unique_ptr<char, decltype(free)> memory(AllocateMemory(iSize), free);
    auto buffer = MakeBuffer(iSize, pPrivate, m_ioService);
    buffer->m_pData = memory.release();
    buffer->m_userAllocated = false;
    const int code = Announce(std::move(buffer), phBuffer);
    return code == GC_ERR_SUCCESS ? code : AppendName(code);
}

int DataStream::Announce(std::unique_ptr<Buffer> buffer, void** phBuffer)
{
    void* hBuffer = nullptr;
    const int code = AllocateHandle(&hBuffer, static_cast<IBuffer*>(buffer.get()));
    if (code != GC_ERR_SUCCESS) {
        return code;
    }
    const AnnouncedLock lock(m_announcedMutex);
    m_announcedBuffers.push_back(static_cast<GenTLHandle*>(hBuffer));
    buffer.release();  // the handle's from here on; RevokeBuffer takes it back
    *phBuffer = hBuffer;
    return GC_ERR_SUCCESS;
}

int DataStream::QueueBuffer(void* hBuffer)
{
    if (const int code = CheckHandle(hBuffer); code != GC_ERR_SUCCESS) {
        GLogger::Error("GenTL::DataStream::QueueBuffer Buffer handle is not valid GenTL handle");
        return AppendName(code);
    }
    if (CastHandleToIBufferPtr(hBuffer) == nullptr) {
        return Raise(GC_ERR_INVALID_HANDLE, "pIBuffer==nullptr");
    }
    Buffer* pBuffer = ToBuffer(hBuffer);
    if (pBuffer == nullptr) {
        return Raise(GC_ERR_INVALID_HANDLE, "pBuffer==nullptr");
    }
    auto* handle = static_cast<GenTLHandle*>(hBuffer);
    if (!IsAnnounced(handle)) {
        // Another stream could free it while this one fills it.
        return Raise(GC_ERR_INVALID_HANDLE, "buffer was not found in announced buffers");
    }
    const BufferLock bufferLock(pBuffer->m_mutex);
    const QueueLock inputLock(m_inputMutex);
    m_inputBuffers.push_back(handle);
    MarkQueued(*pBuffer);
    m_inputCondition.notify_one();
    return GC_ERR_SUCCESS;
}

int DataStream::RevokeBuffer(void* hBuffer, void** ppBuffer, void** ppPrivate)
{
    if (const int code = CheckHandle(hBuffer); code != GC_ERR_SUCCESS) {
        GLogger::Error("GenTL::DataStream::RevokeBuffer Buffer handle is not valid GenTL handle");
        return AppendName(code);
    }
    Buffer* pAnnounced = ToBuffer(hBuffer);
    if (pAnnounced == nullptr) {
        GLogger::Error("GenTL::DataStream::RevokeBuffer Buffer handle is of wrong type");
        return StoreName(GC_ERR_INVALID_HANDLE);
    }
    BufferLock bufferLock(pAnnounced->m_mutex);
    const bool wantsMemory = ppBuffer != nullptr;
    const int code = Withdraw(static_cast<GenTLHandle*>(hBuffer), *pAnnounced, wantsMemory);
    if (code != GC_ERR_SUCCESS) {
        return code;
    }
    OnRevoke(static_cast<GenTLHandle*>(hBuffer), *pAnnounced);
    bufferLock.unlock();
    const std::unique_ptr<Buffer> pBuffer(pAnnounced);  // nobody else reaches it any more
    FreeTimers(*pBuffer);
    if (pBuffer->m_userAllocated) {
        const int removed = g_userBuffersProtectedSet.RemoveFromSet(pBuffer->m_pData);
        if (removed != GC_ERR_SUCCESS) {
            return AppendName(removed);
        }
    } else {
        FreeMemory(static_cast<char*>(pBuffer->m_pData));
    }
    if (wantsMemory) {
        *ppBuffer = pBuffer->m_pData;
    }
    if (ppPrivate != nullptr) {
        *ppPrivate = pBuffer->m_pUserPointer;
    }
    const int deleted = DeleteHandle(hBuffer);
    return deleted == GC_ERR_SUCCESS ? deleted : AppendName(deleted);
}

/// Takes a buffer that may be revoked out of the announced ones. Expects the buffer's mutex. All queues are
/// held to the end: no flush of another thread brings the buffer back in between.
int DataStream::Withdraw(GenTLHandle* hBuffer, const Buffer& buffer, bool wantsMemory)
{
    const BothQueuesLock queues(m_inputMutex, m_outputMutex);
    if (IsInInput(hBuffer)) {
        return Refuse(kInInput);
    }
    if (IsInOutput(hBuffer)) {
        return Refuse(kInOutput);
    }
    if (IsBeingFilled(hBuffer)) {
        return Refuse(kBeingFilled);
    }
    if (buffer.m_isQueued) {
        return Refuse(kStillQueued);
    }
    const AnnouncedLock announced(m_announcedMutex);
    if (!IsAnnounced(hBuffer)) {
        return Refuse(kNotAnnounced);
    }
    if (wantsMemory && !buffer.m_userAllocated) {
        return Refuse(kSystemAllocated);
    }
    // Every entry: a move from the consumer back to the announced buffers adds one.
    m_announcedBuffers.erase(std::remove(m_announcedBuffers.begin(), m_announcedBuffers.end(), hBuffer),
                             m_announcedBuffers.end());
    return GC_ERR_SUCCESS;
}

int DataStream::FlushQueue(int iOperation)
{
    switch (iOperation) {
        case ACQ_QUEUE_INPUT_TO_OUTPUT:
            return FlushQueue_ACQ_QUEUE_INPUT_TO_OUTPUT_();
        case ACQ_QUEUE_OUTPUT_DISCARD:
            return FlushQueue_ACQ_QUEUE_OUTPUT_DISCARD_();
        case ACQ_QUEUE_ALL_TO_INPUT:
            return FlushQueue_ACQ_QUEUE_ALL_TO_INPUT_();
        case ACQ_QUEUE_UNQUEUED_TO_INPUT:
            return FlushQueue_ACQ_QUEUE_UNQUEUED_TO_INPUT_();
        case ACQ_QUEUE_ALL_DISCARD:
            return FlushQueue_ACQ_QUEUE_ALL_DISCARD_();
        default:
            return Raise(GC_ERR_INVALID_INDEX,
                         "ACQ_QUEUE_TYPE must be one of :\n"
                         "GenTL::ACQ_QUEUE_INPUT_TO_OUTPUT, GenTL::ACQ_QUEUE_OUTPUT_DISCARD, "
                         "GenTL::ACQ_QUEUE_ALL_TO_INPUT, \n"
                         "GenTL::ACQ_QUEUE_UNQUEUED_TO_INPUT, GenTL::ACQ_QUEUE_ALL_DISCARD");
    }
}

int DataStream::FlushQueue_ACQ_QUEUE_INPUT_TO_OUTPUT_()
{
    const BothQueuesLock queues(m_inputMutex, m_outputMutex);
    while (!m_inputBuffers.empty()) {
        GenTLHandle* hBuffer = m_inputBuffers.front();
        m_inputBuffers.pop_front();
        ToBuffer(hBuffer)->m_isQueued = false;
        m_outputBuffers.push_back(hBuffer);
    }
    return GC_ERR_SUCCESS;
}

int DataStream::FlushQueue_ACQ_QUEUE_OUTPUT_DISCARD_()
{
    const QueueLock outputLock(m_outputMutex);
    m_outputBuffers.clear();
    return GC_ERR_SUCCESS;
}

int DataStream::FlushQueue_ACQ_QUEUE_ALL_TO_INPUT_()
{
    {
        const QueueLock outputLock(m_outputMutex);
        m_outputBuffers.clear();
    }
    bool addsUp = false;
    {
        const QueueLock inputLock(m_inputMutex);
        const AnnouncedLock announced(m_announcedMutex);
        addsUp = QueueMissingLocked(false);
    }
    if (!addsUp) {
        GLogger::Error("GenTL::DataStream::FlushQueue missing buffers");
        return Raise(GC_ERR_ERROR, "GenTL::DataStream::FlushQueue missing buffers");
    }
    return GC_ERR_SUCCESS;
}

int DataStream::FlushQueue_ACQ_QUEUE_UNQUEUED_TO_INPUT_()
{
    bool addsUp = false;
    {
        const BothQueuesLock queues(m_inputMutex, m_outputMutex);
        const AnnouncedLock announced(m_announcedMutex);
        addsUp = QueueMissingLocked(true);
    }
    if (!addsUp) {
        GLogger::Warn("GenTL::DataStream::FlushQueue missing buffers");
    }
    return GC_ERR_SUCCESS;
}

int DataStream::FlushQueue_ACQ_QUEUE_ALL_DISCARD_()
{
    const auto discard = [](std::deque<GenTLHandle*>& queue) {
        for (GenTLHandle* hBuffer : queue) {
            Buffer& buffer = *ToBuffer(hBuffer);
            buffer.m_isQueued = false;
            buffer.m_newData = false;
        }
        queue.clear();
    };
    {
        const QueueLock inputLock(m_inputMutex);
        discard(m_inputBuffers);
    }
    const QueueLock outputLock(m_outputMutex);
    discard(m_outputBuffers);
    return GC_ERR_SUCCESS;
}

bool DataStream::QueueMissingLocked(bool countOutput)
{
    const auto addsUp = [&] {
        return m_inputBuffers.size() + (countOutput ? m_outputBuffers.size() : 0) ==
               m_announcedBuffers.size();
    };
    for (GenTLHandle* hBuffer : m_announcedBuffers) {
        if (addsUp()) {
            return true;
        }
        if (IsInInput(hBuffer) || (countOutput && IsInOutput(hBuffer))) {
            continue;
        }
        m_inputBuffers.push_back(hBuffer);
        MarkQueued(*ToBuffer(hBuffer));
        m_inputCondition.notify_one();
    }
    return addsUp();
}

int DataStream::GetInfo(int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) const
{
    const InfoAnswer to{m_info, piType, pBuffer, piSize};
    switch (iInfoCmd) {
        case STREAM_INFO_ID:
            return to.String(m_portInfo.id);
        case STREAM_INFO_NUM_DELIVERED:
            return to.U64(m_numDelivered);
        case STREAM_INFO_NUM_UNDERRUN:
            return to.U64(m_numUnderrun);
        case STREAM_INFO_NUM_ANNOUNCED: {
            const AnnouncedLock lock(m_announcedMutex);
            return to.U64(m_announcedBuffers.size());
        }
        case STREAM_INFO_NUM_QUEUED: {
            const QueueLock lock(m_inputMutex);
            return to.U64(m_inputBuffers.size() + m_numInDriver);
        }
        case STREAM_INFO_NUM_AWAIT_DELIVERY: {
            const QueueLock lock(m_outputMutex);
            return to.U64(m_outputBuffers.size());
        }
        case STREAM_INFO_NUM_STARTED:
            return to.U64(m_numStarted);
        case STREAM_INFO_PAYLOAD_SIZE:
            return to.U64(m_payloadSize);
        case STREAM_INFO_IS_GRABBING:
            return to.Bool(m_isGrabbing);
        case STREAM_INFO_DEFINES_PAYLOADSIZE:
            return to.Bool(m_definesPayloadSize);
        case STREAM_INFO_TLTYPE:
            return to.String(m_portInfo.tlType);
        case STREAM_INFO_NUM_CHUNKS_MAX:
            return to.U64(m_numChunksMax);
        case STREAM_INFO_BUF_ANNOUNCE_MIN:
            return to.U64(m_bufAnnounceMin);
        case STREAM_INFO_BUF_ALIGNMENT:
            return to.U64(m_bufAlignment);
        default:
            return Raise(
                GC_ERR_INVALID_INDEX,
                "STREAM_INFO_CMD must be one of :\n"
                "GenTL::STREAM_INFO_ID, GenTL::STREAM_INFO_NUM_DELIVERED, GenTL::STREAM_INFO_NUM_UNDERRUN, \n"
                "GenTL::STREAM_INFO_NUM_ANNOUNCED, GenTL::STREAM_INFO_NUM_QUEUED, "
                "GenTL::STREAM_INFO_NUM_AWAIT_DELIVERY, \n"
                "GenTL::STREAM_INFO_NUM_STARTED, GenTL::STREAM_INFO_PAYLOAD_SIZE, "
                "GenTL::STREAM_INFO_IS_GRABBING, \n"
                "GenTL::STREAM_INFO_DEFINES_PAYLOADSIZE, GenTL::STREAM_INFO_TLTYPE, "
                "GenTL::STREAM_INFO_NUM_CHUNKS_MAX, \n"
                "GenTL::STREAM_INFO_BUF_ANNOUNCE_MIN, GenTL::STREAM_INFO_BUF_ALIGNMENT, \n"
                "GenTL::STREAM_INFO_BUFFER_HANDLING_MODE, GenTL::STREAM_INFO_MISSED_IMAGE_COUNT, \n"
                "GenTL::STREAM_INFO_MISSED_PACKET_COUNT, GenTL::STREAM_INFO_TOTAL_MISSED_IMAGE_COUNT, \n"
                "GenTL::STREAM_INFO_TOTAL_INCOMPLETE_IMAGE_COUNT, GenTL::STREAM_INFO_PACKET_RESEND_ENABLE, \n"
                "GenTL::STREAM_INFO_AUTO_PACKET_SIZE_ENABLE, GenTL::STREAM_INFO_MAX_RESEND_REQUESTS, \n"
                "GenTL::STREAM_INFO_MULTICAST_ENABLE");
    }
}

int DataStream::GetBufferID(unsigned iIndex, void** phBuffer) const
{
    if (phBuffer == nullptr) {
        return StoreName(GC_ERR_INVALID_PARAMETER);
    }
    const AnnouncedLock lock(m_announcedMutex);
    if (iIndex >= m_announcedBuffers.size()) {
        return StoreName(GC_ERR_INVALID_INDEX);
    }
    *phBuffer = m_announcedBuffers[iIndex];
    return GC_ERR_SUCCESS;
}

int DataStream::GetBufferInfo(
    void* hBuffer, int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) const
{
    if (const int code = CheckHandle(hBuffer); code != GC_ERR_SUCCESS) {
        GLogger::Error("GenTL::DataStream::GetBufferInfo Buffer handle is not valid GenTL handle");
        return AppendName(code);
    }
    Buffer* pBuf = ToBuffer(hBuffer);
    if (pBuf == nullptr) {
        GLogger::Error("GenTL::DataStream::GetBufferInfo Buffer handle is of wrong type");
        return Raise(GC_ERR_INVALID_HANDLE, "pIBuffer==nullptr || pBuf==nullptr");
    }
    {
        // What a thread is writing at this moment is read as a whole.
        const BufferLock barrier(pBuf->m_mutex);
    }
    const InfoAnswer to{m_info, piType, pBuffer, piSize};
    if (iInfoCmd == BUFFER_INFO_TLTYPE) {
        return to.String(m_portInfo.tlType);
    }
    const auto* row =
        std::find_if(std::begin(kBufferInfo), std::end(kBufferInfo), [&](const BufferInfoRow& info) {
            return info.command == iInfoCmd && Has(info.needs, pBuf->m_payloadType);
        });
    if (row != std::end(kBufferInfo)) {
        return row->answer(*pBuf, to);
    }
    if (IsPayloadCommand(iInfoCmd)) {
        return Raise(GC_ERR_NOT_AVAILABLE, "URL_INFO_CMD URL_INFO_FILE_VER_MAJOR is not available");
    }
    return StoreName(GC_ERR_INVALID_INDEX);
}

int DataStream::GetParentDev(void** phDevice) const
{
    if (phDevice == nullptr) {
        return StoreName(GC_ERR_INVALID_PARAMETER);
    }
    if (m_pParentDevice == nullptr) {
        return StoreName(GC_ERR_INVALID_HANDLE);
    }
    *phDevice = m_pParentDevice;
    return GC_ERR_SUCCESS;
}

int DataStream::StartAcquisition(int, unsigned long)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}
int DataStream::StopAcquisition(int)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}
int DataStream::WaitForNextLeader(unsigned long)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}
int DataStream::ResetWaitForNextLeader()
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}
int DataStream::SetInfo(int, int, const void*, std::size_t)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int DataStream::GetBufferChunkData(void*, S_SINGLE_CHUNK_DATA*, std::size_t*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int DataStream::SetupResendRetryParams(unsigned long, double, const char*, const char*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int DataStream::WaitOnNewBuffer(void** phBuffer, unsigned long iTimeout)
{
    constexpr unsigned long kTopBit = 1UL << 63;
    boost::unique_lock<boost::mutex> lock(m_outputMutex);
    m_killCount = 0;
    if (m_outputBuffers.empty() && iTimeout != GENTL_INFINITE) {
        *phBuffer = nullptr;
        if ((iTimeout & kTopBit) != 0) {
            return StoreName(GC_ERR_INVALID_PARAMETER);
        }
        const boost::system_time deadline = Deadline(iTimeout);
        while (m_outputBuffers.empty()) {
            if (!m_outputCondition.timed_wait(lock, deadline) && m_outputBuffers.empty()) {
                return StoreName(GC_ERR_TIMEOUT);
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

int DataStream::KillWaitForNewBuffer()
{
    m_outputCondition.notify_one();
    ++m_killCount;
    return GC_ERR_SUCCESS;
}

void DataStream::OnRevoke(GenTLHandle*, Buffer&) {}

bool DataStream::IsBeingFilled(GenTLHandle*) const
{
    return false;
}

char* DataStream::AllocateMemory(std::size_t size) const
{
    return new char[size]();
}

void DataStream::FreeMemory(char* pData) const
{
    delete[] pData;
}

bool DataStream::IsAnnounced(GenTLHandle* hBuffer) const
{
    const AnnouncedLock lock(m_announcedMutex);
    return Contains(m_announcedBuffers, hBuffer);
}

bool DataStream::IsInInput(GenTLHandle* hBuffer) const
{
    return Contains(m_inputBuffers, hBuffer);
}
bool DataStream::IsInOutput(GenTLHandle* hBuffer) const
{
    return Contains(m_outputBuffers, hBuffer);
}

}  // namespace GenTL
