#include "gentl/AcquisitionControl.h"

#include "gentl/DescriptionSource.h"
#include "gentl/Failure.h"
#include "gentl/Files.h"
#include "gentl/Note.h"
#include "gentl/Unzip.h"

#include <vector>

namespace Tool {
namespace {

constexpr std::uint64_t kStreamPacketSize = 0x0D04;
constexpr std::uint32_t kFireTestPacket = 0x80000000;
constexpr std::uint32_t kSizeBits = 0x0000FFFF;

/// A feature that the camera can do without doesn't end the run, but never fails unseen.
template <typename Action>
void Try(Action action)
{
    try {
        action();
    } catch (const Failure& failure) {
        Note(failure.Report() + "\n  going on without");
    }
}

void WriteAll(RegisterAccess& registers, const std::vector<RegisterWrite>& writes)
{
    for (const RegisterWrite& write : writes) {
        registers.WriteWord(write.address, write.value);
    }
}

}  // namespace

AcquisitionControl::AcquisitionControl(Camera& camera, const GrabOptions& options)
    : m_camera(camera), m_options(options)
{
    try {
        m_description.emplace(LoadDescription(), m_camera.Registers());
    } catch (const Failure& failure) {
        if (m_options.payloadSize == 0 || m_options.startRegisters.empty()) {
            throw;
        }
        Note(failure.Report() + "\n  going on with --payload-size and --start-register");
    }
}

std::string AcquisitionControl::LoadDescription()
{
    std::string text;
    if (!m_options.saveDescription.empty()) {
        text = m_camera.FetchDescription();
        WriteFile(m_options.saveDescription, text.data(), text.size());
    }
    if (!m_options.descriptionFile.empty()) {
        text = ReadFile(m_options.descriptionFile);
    } else if (text.empty()) {
        text = m_camera.FetchDescription();
    }
    return Unzipped(text);
}

std::uint64_t AcquisitionControl::PayloadSize()
{
    if (m_options.payloadSize != 0) {
        return m_options.payloadSize;
    }
    std::int64_t size = 0;
    try {
        size = m_description->GetInteger("PayloadSize");
    } catch (const Failure& failure) {
        const std::string hint = failure.Hint().empty()
                                     ? "Give the size of an image in bytes with --payload-size."
                                     : failure.Hint();
        throw Failure(failure.what(), hint, failure.Details());
    }
    if (size <= 0) {
        throw Failure("the camera says that its images have " + std::to_string(size) + " bytes",
                      "Set up its image size, or give the size of an image in bytes with --payload-size.");
    }
    return static_cast<std::uint64_t>(size);
}

void AcquisitionControl::Prepare()
{
    if (m_options.packetSize != 0) {
        RegisterAccess& registers = m_camera.Registers();
        const std::uint32_t flags = registers.ReadWord(kStreamPacketSize) & ~(kSizeBits | kFireTestPacket);
        registers.WriteWord(kStreamPacketSize, flags | m_options.packetSize);
    }
    if (m_description && m_options.startRegisters.empty() && m_description->Has("AcquisitionMode")) {
        Try([this] { m_description->SetEnumeration("AcquisitionMode", "Continuous"); });
    }
}

void AcquisitionControl::Start()
{
    if (!m_options.startRegisters.empty()) {
        WriteAll(m_camera.Registers(), m_options.startRegisters);
        return;
    }
    Lock(true);
    try {
        m_description->Execute("AcquisitionStart");
    } catch (const Failure& failure) {
        const std::string hint =
            failure.Hint().empty()
                ? "Name the register that starts this camera with --start-register, and the "
                  "one that stops it with --stop-register."
                : failure.Hint();
        throw Failure(failure.what(), hint, failure.Details());
    }
}

void AcquisitionControl::Stop()
{
    if (!m_options.stopRegisters.empty()) {
        WriteAll(m_camera.Registers(), m_options.stopRegisters);
    } else if (m_description && m_description->Has("AcquisitionStop")) {
        m_description->Execute("AcquisitionStop");
    } else {
        Note("nothing says how to stop this camera: only its stream is closed; see --stop-register");
    }
    if (m_options.startRegisters.empty()) {
        Lock(false);
    }
}

std::optional<std::int64_t> AcquisitionControl::Count(const std::string& feature)
{
    if (!m_description || !m_description->Has(feature)) {
        return std::nullopt;
    }
    return m_description->GetInteger(feature);
}

void AcquisitionControl::Lock(bool isLocked)
{
    if (m_description && m_description->Has("TLParamsLocked")) {
        Try([this, isLocked] { m_description->SetInteger("TLParamsLocked", isLocked ? 1 : 0); });
    }
}

}  // namespace Tool
