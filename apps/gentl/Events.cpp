#include "gentl/Events.h"

#include "gentl/Camera.h"
#include "gentl/Description.h"
#include "gentl/Discovery.h"
#include "gentl/ExitCode.h"
#include "gentl/Failure.h"
#include "gentl/Features.h"
#include "gentl/Interrupt.h"
#include "gentl/Numbers.h"
#include "gentl/Unzip.h"

#include <algorithm>
#include <chrono>
#include <iostream>

namespace Tool {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint64_t kPollMilliseconds = 100;

// A datagram: the header, then events of one of two sizes. Offsets in the datagram, and in an event.
constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kFlags = 1;
constexpr std::size_t kCommand = 2;
constexpr std::uint8_t kExtendedIds = 0x10;
constexpr std::uint64_t kEventCommand = 0x00C0;
constexpr std::uint64_t kEventDataCommand = 0x00C2;
constexpr std::size_t kStandardSize = 16;
constexpr std::size_t kExtendedSize = 24;
constexpr std::size_t kIdentifier = 2;
constexpr std::size_t kStreamChannel = 4;
constexpr std::size_t kBlockId = 6;
constexpr std::size_t kExtendedBlockId = 8;
constexpr std::size_t kTimestampSize = 8;  // at the end of the event
constexpr std::uint64_t kNoStream = 0xFFFF;

std::uint64_t Field(const Bytes& bytes, std::size_t offset, std::size_t size)
{
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < size; ++i) {
        value = value << 8 | bytes[offset + i];
    }
    return value;
}

/// Rows of 16 bytes, each behind the offset of its first in the data.
std::string HexRows(const Bytes& bytes, std::size_t begin)
{
    constexpr std::size_t kPerRow = 16;
    std::string rows;
    for (std::size_t i = begin; i < bytes.size(); ++i) {
        const bool isFirst = (i - begin) % kPerRow == 0;
        rows += isFirst ? Format("    %03llx ", i - begin) : "";
        rows += Format(" %02llx", bytes[i]);
        rows += (i - begin) % kPerRow == kPerRow - 1 || i + 1 == bytes.size() ? "\n" : "";
    }
    return rows;
}

std::string EventLine(const Bytes& bytes, std::size_t at, bool isExtended)
{
    const std::uint64_t stream = Field(bytes, at + kStreamChannel, 2);
    const std::uint64_t block =
        isExtended ? Field(bytes, at + kExtendedBlockId, 8) : Field(bytes, at + kBlockId, 2);
    const std::size_t size = isExtended ? kExtendedSize : kStandardSize;
    return Format("  id 0x%04llX", Field(bytes, at + kIdentifier, 2)) + "  stream " +
           (stream == kNoStream ? "-" : std::to_string(stream)) + "  block " + std::to_string(block) +
           "  timestamp " + std::to_string(Field(bytes, at + size - kTimestampSize, kTimestampSize)) + '\n';
}

/// The camera's events, registered for as long as this lives.
class EventQueue
{
public:
    EventQueue(const Producer& producer, GenTL::DEV_HANDLE hDevice) : m_producer(producer), m_hDevice(hDevice)
    {
        m_producer.Check(m_producer->GCRegisterEvent(m_hDevice, GenTL::EVENT_REMOTE_DEVICE, &m_hEvent),
                         "GCRegisterEvent", "register for the camera's events");
        const auto size = m_producer.Info([this](auto* type, void* buffer, auto* bytes) {
            return m_producer->EventGetInfo(m_hEvent, GenTL::EVENT_SIZE_MAX, type, buffer, bytes);
        });
        m_sizeMax = size ? size->Number().value_or(kUsualSizeMax) : kUsualSizeMax;
    }
    ~EventQueue() { m_producer->GCUnregisterEvent(m_hDevice, GenTL::EVENT_REMOTE_DEVICE); }
    EventQueue(const EventQueue&) = delete;
    EventQueue& operator=(const EventQueue&) = delete;

    /// The next event, empty when none came in time. Throws Failure.
    Bytes Wait(std::uint64_t milliseconds)
    {
        Bytes datagram(m_sizeMax);
        std::size_t size = datagram.size();
        const GenTL::GC_ERROR code = m_producer->EventGetData(m_hEvent, datagram.data(), &size, milliseconds);
        if (code == GenTL::GC_ERR_TIMEOUT) {
            m_producer.TakeErrorStack();  // or it would stand in the report of a later failure
            return {};
        }
        m_producer.Check(code, "EventGetData", "wait for an event");
        datagram.resize(std::min(size, datagram.size()));
        return datagram;
    }

private:
    static constexpr std::uint64_t kUsualSizeMax = 576;

    const Producer& m_producer;
    GenTL::DEV_HANDLE m_hDevice;
    GenTL::EVENT_HANDLE m_hEvent = nullptr;
    std::size_t m_sizeMax = 0;
};

void WriteSettings(Camera& camera, const std::vector<std::string>& settings)
{
    if (settings.empty()) {
        return;
    }
    Description description(Unzipped(camera.FetchDescription()), camera.Registers());
    for (const std::string& setting : settings) {
        const std::size_t equals = setting.find('=');
        const std::string feature = setting.substr(0, equals);
        if (equals == std::string::npos || !description.Has(feature)) {
            throw Failure("\"" + setting + "\" isn't a feature of the camera, =, and a value",
                          "\"gentl features\" shows what there is.");
        }
        WriteFeature(description, feature, setting.substr(equals + 1));
    }
}

}  // namespace

std::string EventText(const Bytes& datagram)
{
    const auto size = datagram.size();
    const std::uint64_t command = size >= kHeaderSize ? Field(datagram, kCommand, 2) : 0;
    const bool isExtended = size >= kHeaderSize && (datagram[kFlags] & kExtendedIds) != 0;
    const std::size_t eventSize = isExtended ? kExtendedSize : kStandardSize;
    const bool hasData = command == kEventDataCommand;
    if ((command != kEventCommand && !hasData) || size < kHeaderSize + eventSize) {
        return "not an event, " + std::to_string(size) + " bytes\n" + HexRows(datagram, 0);
    }
    std::string text;
    std::size_t at = kHeaderSize;
    do {
        text += (hasData ? "EVENTDATA" : "EVENT    ") + EventLine(datagram, at, isExtended);
        at += eventSize;
    } while (!hasData && size - at >= eventSize);
    return text + HexRows(datagram, at);
}

int Events(const Producer& producer, const EventsOptions& options)
{
    using Clock = std::chrono::steady_clock;
    const Handle hSystem = OpenSystem(producer);
    const std::vector<InterfaceInfo> interfaces =
        Discover(producer, hSystem.get(), options.discoveryMilliseconds);
    Camera camera(producer, ChooseCamera(interfaces, options.camera));
    EventQueue events(producer, camera.Device());
    WriteSettings(camera, options.settings);
    std::uint64_t count = 0;
    Clock::time_point lastSign = Clock::now();
    while ((options.count == 0 || count < options.count) && !Interrupt::Requested()) {
        const Bytes datagram = events.Wait(kPollMilliseconds);
        if (!datagram.empty()) {
            std::cout << EventText(datagram) << std::flush;
            lastSign = Clock::now();
            ++count;
        } else if (options.eventMilliseconds != 0 &&
                   Clock::now() - lastSign >= std::chrono::milliseconds(options.eventMilliseconds)) {
            throw Failure("no event came for " + std::to_string(options.eventMilliseconds) + " ms",
                          camera.IsConnected()
                              ? "Perhaps the camera's events are off: EventSelector and EventNotification "
                                "switch them. Or a firewall drops its UDP datagrams."
                              : "The camera doesn't answer any more: check its power and cable.");
        }
    }
    return options.count == 0 || count == options.count ? ExitCode::kDone : ExitCode::kInterrupted;
}

}  // namespace Tool
