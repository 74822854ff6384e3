#include "gentl/Grab.h"

#include "gentl/AcquisitionControl.h"
#include "gentl/Camera.h"
#include "gentl/Discovery.h"
#include "gentl/ExitCode.h"
#include "gentl/Failure.h"
#include "gentl/ImageSaver.h"
#include "gentl/ImageWriter.h"
#include "gentl/Interrupt.h"
#include "gentl/Note.h"
#include "gentl/PixelFormat.h"
#include "gentl/ProgressBar.h"
#include "gentl/Statistics.h"
#include "gentl/Stream.h"
#include "gentl/Table.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <optional>

namespace Tool {
namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kPollMilliseconds = 100;
constexpr std::uint64_t kBufferMemory = 512u << 20;
constexpr std::uint64_t kFewBuffers = 4;
constexpr std::uint64_t kManyBuffers = 64;
constexpr std::uint64_t kLargestPayload = std::uint64_t{1} << 32;

/// Room for the whole run if it is short: then a slow disk costs no image.
std::uint64_t BufferCount(const GrabOptions& options, std::uint64_t payloadSize)
{
    if (options.buffers != 0) {
        return options.buffers;
    }
    const std::uint64_t wanted = options.count == 0 ? kManyBuffers : options.count;
    return std::clamp(std::min(wanted, kBufferMemory / payloadSize), kFewBuffers, kManyBuffers);
}

std::string Rate(std::optional<double> value, double unit, const char* name)
{
    if (!value) {
        return "-";
    }
    char text[48];
    std::snprintf(text, sizeof text, "%.1f %s", *value / unit, name);
    return text;
}

/// The camera and its stream, running from construction on. Stop ends both; without it the destructor does,
/// for a failure that is reported already.
class Run
{
public:
    Run(Stream& stream, AcquisitionControl& control) : m_stream(stream), m_control(control)
    {
        m_stream.Start();
        try {
            m_control.Start();
        } catch (...) {
            End();
            throw;
        }
    }

    ~Run() { End(); }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    void Stop()
    {
        m_isRunning = false;
        std::exception_ptr failure;
        try {
            m_control.Stop();
        } catch (const Failure&) {
            failure = std::current_exception();  // the stream has to be stopped all the same
        }
        m_stream.Stop();
        if (failure != nullptr) {
            std::rethrow_exception(failure);
        }
    }

private:
    void End()
    {
        if (m_isRunning) {
            try {
                Stop();
            } catch (const Failure& failure) {
                Note(failure.Report());
            }
        }
    }

    Stream& m_stream;
    AcquisitionControl& m_control;
    bool m_isRunning = true;
};

/// Writes an image to its file. An incomplete one may lack what a picture needs; that is told and no failure.
void WriteImage(const GrabOptions& options, const Image& image, std::uint64_t number)
{
    char name[48];
    std::snprintf(name, sizeof name, "image_%06llu%s.%s", static_cast<unsigned long long>(number),
                  image.isIncomplete ? "_incomplete" : "", options.isRaw ? "raw" : "png");
    const fs::path path = fs::path(options.folder) / name;
    try {
        options.isRaw ? WriteRaw(path, image) : WritePng(path, image);
    } catch (const Failure& failure) {
        if (!image.isIncomplete) {
            throw;
        }
        Note("image " + std::to_string(number) + " is incomplete and isn't written: " + failure.what());
    }
}

Failure NoImage(const Camera& camera, const GrabOptions& options)
{
    const std::string what = "no image came for " + std::to_string(options.imageMilliseconds) + " ms";
    if (!camera.IsConnected()) {
        return Failure(what + " and the camera doesn't answer any more", "Check its power and cable.");
    }
    if (options.stream != 0) {
        return Failure(what,
                       "Perhaps the camera waits for a trigger, or it has closed the connection. For slow "
                       "cameras there is --timeout.");
    }
    return Failure(
        what,
        "Perhaps the camera waits for a trigger, or a firewall drops its UDP datagrams, or they don't fit "
        "the network path (see --packet-size). For slow cameras there is --timeout.");
}

/// What became of lost packets. Only the camera knows what it was asked for; not every one tells.
class ResendReport
{
public:
    ResendReport(Stream& stream, AcquisitionControl& control)
        : m_stream(stream), m_control(control), m_requestsBefore(Requests()), m_packetsBefore(Packets())
    {
    }

    void Print() const
    {
        using Align = Table::Align;
        Table table({Align::Left, Align::Right});
        table.Add({"resend requests", Since(m_requestsBefore, Requests())});
        table.Add({"packets sent again", Since(m_packetsBefore, Packets())});
        table.Add({"packets missing", std::to_string(m_stream.MissedPackets())});
        table.Add({"images missing", std::to_string(m_stream.MissedImages())});
        table.Add({"images incomplete", std::to_string(m_stream.IncompleteImages())});
        table.Print(std::cout);
    }

private:
    using Count = std::optional<std::int64_t>;

    Count Requests() const { return m_control.Count("ResendRequestCount"); }
    Count Packets() const { return m_control.Count("ResentPacketCount"); }
    static std::string Since(Count before, Count now)
    {
        if (!before || !now) {
            return "not told by the camera";
        }
        // Unsigned on the way, for a camera may tell any two numbers.
        const std::uint64_t more = static_cast<std::uint64_t>(*now) - static_cast<std::uint64_t>(*before);
        return std::to_string(static_cast<std::int64_t>(more));
    }

    Stream& m_stream;
    AcquisitionControl& m_control;
    Count m_requestsBefore;
    Count m_packetsBefore;
};

/// Receives until all images are there or the user has enough.
class Reception
{
public:
    Reception(const Camera& camera, Stream& stream, const GrabOptions& options)
        : m_camera(camera), m_stream(stream), m_options(options)
    {
        if (!options.folder.empty()) {
            m_saver.emplace(
                [&options](const Image& image, std::uint64_t number) { WriteImage(options, image, number); },
                [&stream](void* hBuffer) { stream.Queue(hBuffer); });
        }
    }

    /// Throws Failure.
    void Receive()
    {
        ProgressBar bar(m_options.count);
        Statistics::Clock::time_point lastSign = Statistics::Clock::now();
        while (!IsComplete() && !Interrupt::Requested()) {
            const GenTL::BUFFER_HANDLE hBuffer = m_stream.Wait(kPollMilliseconds);
            const Statistics::Clock::time_point now = Statistics::Clock::now();
            if (hBuffer != nullptr) {
                lastSign = now;
                Take(hBuffer, now);
            } else if (m_options.imageMilliseconds != 0 &&
                       now - lastSign >= std::chrono::milliseconds(m_options.imageMilliseconds)) {
                throw NoImage(m_camera, m_options);
            }
            bar.Show(m_statistics.Images(), Remark());
        }
        m_underruns = m_stream.Underruns();
    }

    /// Waits until all images are in their files. Throws Failure.
    void FinishWriting()
    {
        if (m_saver) {
            m_saver->Finish();
        }
    }

    bool HasBegun() const { return m_statistics.Images() != 0; }

    int Code() const
    {
        if (!IsComplete() && m_options.count != 0) {
            return ExitCode::kInterrupted;
        }
        const bool isWhole = m_statistics.Incomplete() == 0 && m_statistics.Lost() == 0;
        return isWhole ? ExitCode::kDone : ExitCode::kDamaged;
    }

    void Print() const
    {
        using Align = Table::Align;
        Table table({Align::Left, Align::Right});
        table.Add({"images", std::to_string(m_statistics.Images())});
        table.Add({"incomplete", std::to_string(m_statistics.Incomplete())});
        table.Add({"lost", std::to_string(m_statistics.Lost())});
        if (Starved() != 0) {
            table.Add({"  for want of a free buffer", std::to_string(Starved())});
        }
        table.Add({"frame rate", Rate(m_statistics.FrameRate(), 1, "/s")});
        table.Add({"data rate", Rate(m_statistics.BytesPerSecond(), 1e6, "MB/s")});
        if (m_picture.width != 0) {
            table.Add({"picture", std::to_string(m_picture.width) + " x " + std::to_string(m_picture.height) +
                                      " " + PixelFormatName(m_picture.pixelFormat)});
        }
        table.Print(std::cout);
    }

    /// What helps against damage, if there is any.
    void Advise() const
    {
        if (Starved() != 0) {
            Note("images came when no buffer was free: more --buffers or a faster disk would help");
        }
        if (m_options.stream != 0) {
            if (m_statistics.Incomplete() != 0) {
                Note("images weren't of the size and geometry that the camera told before the start");
            }
        } else if (m_areTooLarge) {
            Note("images were larger than their buffers: see --payload-size");
        } else if (m_statistics.Incomplete() != 0 || m_statistics.Lost() > Starved()) {
            Note(std::string("packets were lost on the way: ") +
                 (m_options.resend ? "" : "--resend has the camera send them again; ") +
                 "larger socket buffers (sysctl net.core.rmem_default), a delay between the camera's packets "
                 "or a lower frame rate would help");
        }
    }

private:
    /// Lost images that found no buffer.
    std::uint64_t Starved() const { return std::min(m_underruns, m_statistics.Lost()); }

    bool IsComplete() const { return m_options.count != 0 && m_statistics.Images() >= m_options.count; }

    void Take(GenTL::BUFFER_HANDLE hBuffer, Statistics::Clock::time_point now)
    {
        const Image image = m_stream.Look(hBuffer);
        m_statistics.Count(image, now);
        m_areTooLarge = m_areTooLarge || image.isTooLarge;
        if (!image.isIncomplete) {
            m_picture = image;
        }
        if (m_saver) {
            m_saver->Save(image, m_statistics.Images(), hBuffer);
        } else {
            m_stream.Queue(hBuffer);
        }
    }

    std::string Remark() const
    {
        std::string text = Rate(m_statistics.FrameRate(), 1, "/s");
        if (m_statistics.Incomplete() != 0) {
            text += "  " + std::to_string(m_statistics.Incomplete()) + " incomplete";
        }
        if (m_statistics.Lost() != 0) {
            text += "  " + std::to_string(m_statistics.Lost()) + " lost";
        }
        return text;
    }

    const Camera& m_camera;
    Stream& m_stream;
    const GrabOptions& m_options;
    Statistics m_statistics;
    std::uint64_t m_underruns = 0;
    bool m_areTooLarge = false;
    Image m_picture;
    std::optional<ImageSaver> m_saver;
};

void MakeFolder(const std::string& folder)
{
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        throw Failure("can't make the folder " + folder + ": " + error.message());
    }
}

void PrepareBuffers(Stream& stream, AcquisitionControl& control, const GrabOptions& options)
{
    const std::optional<std::uint64_t> own = stream.OwnPayloadSize();
    const std::uint64_t size = own ? *own : control.PayloadSize();
    if (size == 0 || size > kLargestPayload) {
        throw Failure("an image of " + std::to_string(size) + " bytes can't be received",
                      "Give the right size of an image in bytes with --payload-size.");
    }
    stream.Announce(std::max(BufferCount(options, size), stream.FewestBuffers()), size);
}

}  // namespace

int Grab(const Producer& producer, const GrabOptions& options)
{
    if (!options.folder.empty()) {
        MakeFolder(options.folder);
    }
    const Handle hSystem = OpenSystem(producer);
    const std::vector<InterfaceInfo> interfaces =
        Discover(producer, hSystem.get(), options.discoveryMilliseconds);
    const CameraInfo& info = ChooseCamera(interfaces, options.camera);
    std::cout << "camera " << info.vendor << ' ' << info.model << ", serial number " << info.serialNumber
              << ", " << info.ip << std::endl;

    Camera camera(producer, info);
    AcquisitionControl control(camera, options);
    control.Prepare();
    Stream stream(producer, camera.Device(), options.stream);
    PrepareBuffers(stream, control, options);
    std::optional<ResendReport> resends;
    if (options.resend) {
        stream.EnableResend();
        resends.emplace(stream, control);
    }

    Reception reception(camera, stream, options);
    try {
        Run run(stream, control);
        if (options.resend && !stream.Resends()) {
            Note("this camera sends no packet again");
        }
        reception.Receive();
        run.Stop();
        reception.FinishWriting();
    } catch (const Failure&) {
        if (reception.HasBegun()) {
            reception.Print();
        }
        throw;
    }
    reception.Print();
    if (resends) {
        resends->Print();
    }
    reception.Advise();
    return reception.Code();
}

}  // namespace Tool
