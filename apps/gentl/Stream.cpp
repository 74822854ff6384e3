#include "gentl/Stream.h"

#include "gentl/Description.h"
#include "gentl/DescriptionSource.h"
#include "gentl/Failure.h"
#include "gentl/RegisterAccess.h"
#include "gentl/Unzip.h"

#include <algorithm>
#include <cstring>

namespace Tool {
namespace {

Handle OpenStream(const Producer& producer, GenTL::DEV_HANDLE hDevice, std::uint32_t index)
{
    std::uint32_t count = 0;
    producer.Check(producer->DevGetNumDataStreams(hDevice, &count), "DevGetNumDataStreams",
                   "count the camera's streams");
    if (index >= count) {
        throw Failure(count == 0 ? "the camera has no image stream"
                                 : "the camera has no stream " + std::to_string(index));
    }
    const std::string id = producer.Id(
        "DevGetDataStreamID", "ask for the stream's ID",
        [&](char* text, auto* size) { return producer->DevGetDataStreamID(hDevice, index, text, size); });
    GenTL::DS_HANDLE hStream = nullptr;
    producer.Check(producer->DevOpenDataStream(hDevice, id.c_str(), &hStream), "DevOpenDataStream",
                   "open the camera's stream " + id);
    return Handle(hStream, producer->DSClose);
}

}  // namespace

Stream::Stream(const Producer& producer, GenTL::DEV_HANDLE hDevice, std::uint32_t index)
    : m_producer(producer), m_hStream(OpenStream(producer, hDevice, index)), m_isTcp(index != 0)
{
    m_producer.Check(m_producer->GCRegisterEvent(m_hStream.get(), GenTL::EVENT_NEW_BUFFER, &m_hEvent),
                     "GCRegisterEvent", "register for new images");
}

Stream::~Stream()
{
    // Each step is tried, whatever became of those before it: the camera may be gone.
    if (m_isRunning) {
        m_producer->DSStopAcquisition(m_hStream.get(), GenTL::ACQ_STOP_FLAGS_DEFAULT);
    }
    m_producer->GCUnregisterEvent(m_hStream.get(), GenTL::EVENT_NEW_BUFFER);
    m_producer->DSFlushQueue(m_hStream.get(), GenTL::ACQ_QUEUE_ALL_DISCARD);
    for (const GenTL::BUFFER_HANDLE hBuffer : m_buffers) {
        m_producer->DSRevokeBuffer(m_hStream.get(), hBuffer, nullptr, nullptr);
    }
}

std::optional<std::uint64_t> Stream::OwnPayloadSize() const
{
    if (Number(GenTL::STREAM_INFO_DEFINES_PAYLOADSIZE) == 0) {
        return std::nullopt;
    }
    return Number(GenTL::STREAM_INFO_PAYLOAD_SIZE);
}

std::uint64_t Stream::FewestBuffers() const
{
    return std::max<std::uint64_t>(1, Number(GenTL::STREAM_INFO_BUF_ANNOUNCE_MIN));
}

void Stream::Announce(std::uint64_t count, std::uint64_t size)
{
    m_buffers.reserve(count);
    for (std::uint64_t i = 0; i < count; ++i) {
        GenTL::BUFFER_HANDLE hBuffer = nullptr;
        m_producer.Check(m_producer->DSAllocAndAnnounceBuffer(m_hStream.get(), size, nullptr, &hBuffer),
                         "DSAllocAndAnnounceBuffer",
                         "announce a buffer of " + std::to_string(size) + " bytes");
        m_buffers.push_back(hBuffer);
        Queue(hBuffer);
    }
}

void Stream::EnableResend()
{
    RegisterAccess registers(m_producer, m_hStream.get());
    Description description(Unzipped(ReadDescription(m_producer, m_hStream.get(), registers)), registers);
    description.SetBoolean("StreamPacketResendEnable", true);
}

void Stream::Start()
{
    m_isRunning = true;  // a stream whose start failed may have to be stopped, too
    m_producer.Check(
        m_producer->DSStartAcquisition(m_hStream.get(), GenTL::ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE),
        "DSStartAcquisition", "start the stream");
}

void Stream::Stop()
{
    m_isRunning = false;
    m_producer.Check(m_producer->DSStopAcquisition(m_hStream.get(), GenTL::ACQ_STOP_FLAGS_DEFAULT),
                     "DSStopAcquisition", "stop the stream");
}

GenTL::BUFFER_HANDLE Stream::Wait(std::uint64_t milliseconds)
{
    GenTL::EVENT_NEW_BUFFER_DATA data{};
    std::size_t size = sizeof data;
    const GenTL::GC_ERROR code = m_producer->EventGetData(m_hEvent, &data, &size, milliseconds);
    if (code == GenTL::GC_ERR_TIMEOUT) {
        m_producer.TakeErrorStack();  // or it would stand in the report of a later failure
        return nullptr;
    }
    m_producer.Check(code, "EventGetData", "wait for an image");
    return data.BufferHandle;
}

void Stream::Queue(GenTL::BUFFER_HANDLE hBuffer)
{
    m_producer.Check(m_producer->DSQueueBuffer(m_hStream.get(), hBuffer), "DSQueueBuffer",
                     "hand a buffer to the stream");
}

Image Stream::Look(GenTL::BUFFER_HANDLE hBuffer) const
{
    const auto number = [&](GenTL::BUFFER_INFO_CMD command) { return Number(hBuffer, command).value_or(0); };
    Image image;
    const std::uint64_t offset = number(GenTL::BUFFER_INFO_IMAGEOFFSET);
    const std::uint64_t size = number(GenTL::BUFFER_INFO_SIZE);
    const std::uint64_t bits = number(GenTL::BUFFER_INFO_BASE);
    const std::uint8_t* base = nullptr;
    std::memcpy(&base, &bits, sizeof base);
    if (base != nullptr && offset <= size) {
        image.pData = base + offset;
        image.memorySize = size - offset;
    }
    image.sizeFilled = number(GenTL::BUFFER_INFO_SIZE_FILLED);
    image.width = number(GenTL::BUFFER_INFO_WIDTH);
    image.height = number(GenTL::BUFFER_INFO_HEIGHT);
    image.linePadding = number(GenTL::BUFFER_INFO_XPADDING);
    image.pixelFormat = number(GenTL::BUFFER_INFO_PIXELFORMAT);
    image.isIncomplete = number(GenTL::BUFFER_INFO_IS_INCOMPLETE) != 0;
    // Over TCP the head of an incomplete image may be anything, as the stream may be out of step.
    image.id = m_isTcp && image.isIncomplete ? 0 : number(GenTL::BUFFER_INFO_FRAMEID);
    image.isTooLarge = number(GenTL::BUFFER_INFO_DATA_LARGER_THAN_BUFFER) != 0;
    return image;
}

std::uint64_t Stream::Underruns() const
{
    return Number(GenTL::STREAM_INFO_NUM_UNDERRUN);
}

bool Stream::Resends() const
{
    return Number(GenTL::STREAM_INFO_PACKET_RESEND_ENABLE) != 0;
}

std::uint64_t Stream::MissedPackets() const
{
    return Number(GenTL::STREAM_INFO_MISSED_PACKET_COUNT);
}

std::uint64_t Stream::MissedImages() const
{
    return Number(GenTL::STREAM_INFO_MISSED_IMAGE_COUNT);
}

std::uint64_t Stream::IncompleteImages() const
{
    return Number(GenTL::STREAM_INFO_TOTAL_INCOMPLETE_IMAGE_COUNT);
}

std::uint64_t Stream::Number(GenTL::STREAM_INFO_CMD command) const
{
    const auto value = m_producer.Info([&](auto* type, void* buffer, auto* size) {
        return m_producer->DSGetInfo(m_hStream.get(), command, type, buffer, size);
    });
    return value ? value->Number().value_or(0) : 0;
}

std::optional<std::uint64_t> Stream::Number(GenTL::BUFFER_HANDLE hBuffer,
                                            GenTL::BUFFER_INFO_CMD command) const
{
    const auto value = m_producer.Info([&](auto* type, void* buffer, auto* size) {
        return m_producer->DSGetBufferInfo(m_hStream.get(), hBuffer, command, type, buffer, size);
    });
    return value ? value->Number() : std::nullopt;
}

}  // namespace Tool
