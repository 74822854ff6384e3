#pragma once

#include "sim/Camera.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace sim {

/// GVCP status codes that the camera answers.
namespace Status {
inline constexpr std::uint16_t kSuccess = 0x0000;
inline constexpr std::uint16_t kPacketResend = 0x0100;
inline constexpr std::uint16_t kNotImplemented = 0x8001;
inline constexpr std::uint16_t kInvalidParameter = 0x8002;
inline constexpr std::uint16_t kInvalidAddress = 0x8003;
inline constexpr std::uint16_t kWriteProtect = 0x8004;
inline constexpr std::uint16_t kBadAlignment = 0x8005;
inline constexpr std::uint16_t kAccessDenied = 0x8006;
inline constexpr std::uint16_t kBusy = 0x8007;
inline constexpr std::uint16_t kPacketUnavailable = 0x800C;
inline constexpr std::uint16_t kInvalidHeader = 0x800E;
inline constexpr std::uint16_t kActionLate = 0x8016;
}  // namespace Status

/// Bootstrap registers with a meaning to the camera.
namespace Bootstrap {
inline constexpr std::uint32_t kVersion = 0x0000;
inline constexpr std::uint32_t kDeviceMode = 0x0004;
inline constexpr std::uint32_t kMacHigh = 0x0008;
inline constexpr std::uint32_t kMacLow = 0x000C;
inline constexpr std::uint32_t kSupportedIpConfiguration = 0x0010;
inline constexpr std::uint32_t kIpConfiguration = 0x0014;
inline constexpr std::uint32_t kIpAddress = 0x0024;
inline constexpr std::uint32_t kSubnetMask = 0x0034;
inline constexpr std::uint32_t kGateway = 0x0044;
inline constexpr std::uint32_t kVendor = 0x0048;
inline constexpr std::uint32_t kModel = 0x0068;
inline constexpr std::uint32_t kDeviceVersion = 0x0088;
inline constexpr std::uint32_t kManufacturerInfo = 0x00A8;
inline constexpr std::uint32_t kSerialNumber = 0x00D8;
inline constexpr std::uint32_t kUserName = 0x00E8;
inline constexpr std::uint32_t kDiscoveryBytes =
    0x00F8;  ///< the front of the map is the body of DISCOVERY_ACK
inline constexpr std::uint32_t kFirstUrl = 0x0200;
inline constexpr std::uint32_t kSecondUrl = 0x0400;
inline constexpr std::uint32_t kInterfaces = 0x0600;
inline constexpr std::uint32_t kLinkSpeed = 0x0670;
inline constexpr std::uint32_t kMessageChannels = 0x0900;
inline constexpr std::uint32_t kStreamChannels = 0x0904;
inline constexpr std::uint32_t kActionSignals = 0x0908;
inline constexpr std::uint32_t kActionDeviceKey = 0x090C;
inline constexpr std::uint32_t kActiveLinks = 0x0910;
inline constexpr std::uint32_t kGvspCapability = 0x092C;
inline constexpr std::uint32_t kGvmcCapability = 0x0930;
inline constexpr std::uint32_t kGvcpCapability = 0x0934;
inline constexpr std::uint32_t kHeartbeatTimeout = 0x0938;
inline constexpr std::uint32_t kTickFrequencyHigh = 0x093C;
inline constexpr std::uint32_t kTickFrequencyLow = 0x0940;
inline constexpr std::uint32_t kTimestampControl = 0x0944;
inline constexpr std::uint32_t kTimestampHigh = 0x0948;
inline constexpr std::uint32_t kTimestampLow = 0x094C;
inline constexpr std::uint32_t kGvcpConfiguration = 0x0954;
inline constexpr std::uint32_t kPendingTimeout = 0x0958;
inline constexpr std::uint32_t kGvspConfiguration = 0x0960;
inline constexpr std::uint32_t kControlPrivilege = 0x0A00;
inline constexpr std::uint32_t kPrimaryPort = 0x0A04;
inline constexpr std::uint32_t kPrimaryAddress = 0x0A14;
inline constexpr std::uint32_t kMessagePort = 0x0B00;
inline constexpr std::uint32_t kMessageAddress = 0x0B10;
inline constexpr std::uint32_t kMessageTimeout = 0x0B14;  ///< ms; 0: no acknowledge is asked for
inline constexpr std::uint32_t kMessageRetries = 0x0B18;
inline constexpr std::uint32_t kMessageSourcePort = 0x0B1C;
inline constexpr std::uint32_t kStreamPort = 0x0D00;
inline constexpr std::uint32_t kStreamPacketSize = 0x0D04;
inline constexpr std::uint32_t kStreamPacketDelay = 0x0D08;
inline constexpr std::uint32_t kStreamAddress = 0x0D18;
inline constexpr std::uint32_t kStreamSourcePort = 0x0D1C;
inline constexpr std::uint32_t kManifest = 0x9000;
inline constexpr std::uint32_t kActionGroupKey = 0x9800;
inline constexpr std::uint32_t kActionGroupMask = 0x9804;

inline constexpr std::uint32_t kExclusiveAccess = 0x00000001;  ///< in kControlPrivilege
inline constexpr std::uint32_t kControlAccess = 0x00000002;
inline constexpr std::uint32_t kFireTestPacket = 0x80000000;  ///< in kStreamPacketSize
inline constexpr std::uint32_t kDoNotFragment = 0x40000000;
inline constexpr std::uint32_t kExtendedId = 0x40000000;    ///< in kGvspConfiguration
inline constexpr std::uint32_t kHeartbeatOff = 0x00000001;  ///< in kGvcpConfiguration
inline constexpr std::uint32_t kUnconditionalAction = 0x00000008;
inline constexpr std::uint16_t kTcpPort = 58243;  ///< in kStreamPort: to listen there instead of sending GVSP
}  // namespace Bootstrap

/// Where the description lies.
inline constexpr std::uint32_t kDescriptionAddress = 0x00100000;

/// The register space: the bootstrap registers, the manifest, the camera's features and its description, as
/// one sparse memory in wire order. It knows what may be written when, and keeps dependent registers right;
/// what else a write does is told to the effect.
///
/// Threads: any, under one lock, a leaf. The effect runs on the writing thread without that lock.
class Registers
{
public:
    using Effect = std::function<void(std::uint32_t address, std::uint32_t value)>;

    explicit Registers(const Config& config);
    void SetEffect(Effect effect) { m_effect = std::move(effect); }

    /// READMEM. \param size a multiple of 4, as is the address \return a GVCP status, as do all below
    std::uint16_t ReadMemory(std::uint32_t address, std::uint8_t* pTo, std::uint32_t size) const;
    std::uint16_t ReadRegister(std::uint32_t address, std::uint32_t& value) const;
    std::uint16_t WriteRegister(std::uint32_t address, std::uint32_t value);
    /// One word of a WRITEMEM. \param pFrom 4 bytes as they came
    std::uint16_t WriteWord(std::uint32_t address, const std::uint8_t* pFrom);

    /// Past access control, without an effect: the value as it stands, 0 where there is none.
    std::uint32_t Get(std::uint32_t address) const;
    void Set(std::uint32_t address, std::uint32_t value);
    /// Past access control, with the effect.
    std::uint16_t Force(std::uint32_t address, std::uint32_t value);

    const std::string& Description() const { return m_description; }
    /// The camera's clock.
    std::uint64_t Ticks() const;
    std::uint64_t TickFrequency() const { return m_tickFrequency; }
    /// The header form of the stream.
    bool ExtendedId() const;
    /// Between two images; 0 as fast as they go, and a day at most, however slow the rate that the host
    /// wrote.
    std::chrono::nanoseconds FramePeriod() const;

private:
    enum class Access { ReadOnly, ReadWrite, WriteOnly };

    struct Region
    {
        Access access = Access::ReadOnly;
        bool isText = false;
        std::vector<std::uint8_t> bytes;
    };
    struct Place
    {
        Region* pRegion = nullptr;
        std::uint32_t offset = 0;
    };

    void FillBootstrap(const Config& config);
    void FillFeatures(const Config& config);
    void SetText(std::uint32_t address, const std::string& text);
    void UpdatePayloadSize();
    std::uint16_t Judge(std::uint32_t address, std::uint32_t value) const;
    std::uint16_t Store(std::uint32_t address, std::uint32_t value, bool checkAccess);
    void ControlTimestamp(std::uint32_t value);

    /// With m_mutex held, as for all below; a null region where there is none.
    Place Find(std::uint32_t address) const;
    std::uint32_t Value(std::uint32_t address) const;
    void SetValue(std::uint32_t address, std::uint32_t value);
    std::uint64_t ElapsedTicks() const;

    const bool m_isBigEndian;
    const std::uint64_t m_tickFrequency;
    const std::uint32_t m_maxWidth;
    const std::uint32_t m_maxHeight;
    const std::string m_description;
    Effect m_effect;
    mutable std::mutex m_mutex;
    mutable std::map<std::uint32_t, Region> m_regions;
    std::chrono::steady_clock::time_point m_clockStart = std::chrono::steady_clock::now();
};

}  // namespace sim
