#include "sim/Registers.h"

#include "sim/Bytes.h"
#include "sim/Description.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace sim {
namespace {

using namespace Bootstrap;

constexpr std::size_t kUrlBytes = 512;
constexpr std::uint32_t kManifestEntries = 2;
constexpr std::uint32_t kEvents = 4;
constexpr std::uint32_t kMaxEventData = 552;

std::uint32_t FloatBits(double value)
{
    const float single = static_cast<float>(value);
    std::uint32_t bits = 0;
    std::memcpy(&bits, &single, sizeof bits);
    return bits;
}

double FloatValue(std::uint32_t bits)
{
    float single = 0;
    std::memcpy(&single, &bits, sizeof single);
    return static_cast<double>(single);
}

bool IsGeometry(std::uint32_t address)
{
    switch (address) {
        case Feature::kWidth:
        case Feature::kHeight:
        case Feature::kPixelFormat:
        case Feature::kOffsetX:
        case Feature::kOffsetY:
        case Feature::kTestPattern:
        case Feature::kChunkModeActive:
        case Feature::kChunkForm:
            return true;
        default:
            return false;
    }
}

}  // namespace

Registers::Registers(const Config& config)
    : m_isBigEndian(config.bigEndian),
      m_tickFrequency(config.tickFrequency),
      m_maxWidth(config.maxWidth),
      m_maxHeight(config.maxHeight),
      m_description(MakeDescription(config))
{
    struct Area
    {
        std::uint32_t address;
        std::uint32_t size;
        Access access;
        bool isText = false;
    };
    constexpr Access kRead = Access::ReadOnly;
    constexpr Access kReadWrite = Access::ReadWrite;
    constexpr Access kWrite = Access::WriteOnly;
    static constexpr std::array kAreas{
        Area{kVersion,                       0x14,          kRead                         },
        Area{kIpConfiguration,               4,             kReadWrite                    },
        Area{0x0018,                         0x30,          kRead                         }, // address, mask, gateway
        Area{kVendor,                        0xA0,          kRead,                          true},
        Area{kUserName,                              16,                                   kReadWrite,                                  true},
        Area{kFirstUrl,                          kUrlBytes,                                       kRead,                            true},
        Area{kSecondUrl,                         kUrlBytes,kRead,true},
        Area{kInterfaces,0x4C,          kRead                                     },
        Area{0x064C,                    4,                                 kReadWrite                                                }, // persistent address
        Area{0x0650,                         12,                  kRead     },
        Area{0x065C,                         4,            kReadWrite                   }, // persistent mask
        Area{0x0660,                         12,             kRead                     },
        Area{0x066C,                         4,            kReadWrite                        }, // persistent gateway
        Area{kLinkSpeed,                         4,             kRead                     },
        Area{kMessageChannels,                     12,         kRead                     }, // with stream channels, action signals
        Area{kActionDeviceKey,               4,      kWrite                      },
        Area{kActiveLinks,               4,             kRead                               },
        Area{kGvspCapability,                   12,                 kRead                             }, // with message channel and GVCP
        Area{kHeartbeatTimeout,                4,         kReadWrite                 },
        Area{kTickFrequencyHigh,              8,           kRead                      },
        Area{kTimestampControl,             4,            kWrite                          },
        Area{kTimestampHigh,              8,              kRead                          },
        Area{0x0950,                 4,                kReadWrite                           }, // discovery acknowledge delay
        Area{kGvcpConfiguration,                         4,                     kReadWrite                         },
        Area{kPendingTimeout,             4, kRead},
        Area{kGvspConfiguration,                4,                kReadWrite                                        },
        Area{kControlPrivilege,             4,          kReadWrite              },
        Area{kPrimaryPort,              4,              kRead                        },
        Area{kPrimaryAddress,                   4,                  kRead                             },
        Area{kMessagePort,                4,          kReadWrite                 },
        Area{kMessageAddress,                   12,                kReadWrite                          }, // destination, time-out, retries
        Area{kMessageSourcePort,                4,         kRead             },
        Area{kStreamPort,             12,          kReadWrite                          }, // with packet size and delay
        Area{kStreamAddress,                    4,                   kReadWrite                             },
        Area{kStreamSourcePort,                 4,          kRead           },
        Area{kManifest,              512,          kRead                         },
        Area{kActionGroupKey,                      8,                   kReadWrite                                  }, // with mask
        Area{Feature::kWidth,                12,       kReadWrite        }, // with height, pixel format
        Area{Feature::kPayloadSize,                4,            kRead                         },
        Area{Feature::kAcquisitionMode,          4,       kReadWrite                    },
        Area{Feature::kAcquisitionStart,      8,         kWrite                      }, // with stop
        Area{Feature::kAcquisitionFrameRate,     24,            kReadWrite                           }, // up to the trigger mode
        Area{Feature::kEventSelector, 8,        kReadWrite                }, // and data size
        Area{Feature::kTestEventGenerate,        4,                    kWrite                                },
        Area{Feature::kEventNotification,    16,         kReadWrite             },
        Area{Feature::kTriggerSoftware,    4,            kWrite                       },
        Area{Feature::kWidthMax,      8,               kRead                           }, // with height
        Area{Feature::kOffsetX,             8,                    kReadWrite                              }, // and y
        Area{Feature::kAcquisitionStatus,              20,              kRead              }, // with sensor size, resend counts
        Area{Feature::kTcpWidth,    4,  kRead             },
        Area{Feature::kTcpHeight,             4,                      kRead                                             },
        Area{Feature::kTcpOffsetX,            4,            kRead               },
        Area{Feature::kTcpOffsetY,           4,            kRead                         },
        Area{Feature::kTcpPixelFormat,           4,             kRead                          },
    };
    for (const Area& area : kAreas) {
        m_regions[area.address] = {area.access, area.isText, std::vector<std::uint8_t>(area.size)};
    }
    std::vector<std::uint8_t> file(m_description.begin(), m_description.end());
    file.resize((file.size() + 3) / 4 * 4);
    m_regions[kDescriptionAddress] = {kRead, true, std::move(file)};
    FillBootstrap(config);
    FillFeatures(config);
}

void Registers::FillBootstrap(const Config& config)
{
    SetValue(kVersion, config.gevVersion);
    SetValue(kDeviceMode, (config.bigEndian ? 0x80000000u : 0u) | 1u);  // text in UTF-8
    SetValue(kSupportedIpConfiguration, 0x80000007u);
    SetValue(kIpConfiguration, config.ipConfiguration);
    SetValue(kGateway, config.gateway);
    SetText(kVendor, config.vendor.substr(0, 32));
    SetText(kModel, config.model.substr(0, 32));
    SetText(kDeviceVersion, config.deviceVersion.substr(0, 32));
    SetText(kManufacturerInfo, config.manufacturerInfo.substr(0, 48));
    SetText(kSerialNumber, config.serialNumber.substr(0, 16));
    SetText(kUserName, config.userName.substr(0, 16));
    std::array<char, 80> url{};
    std::snprintf(url.data(), url.size(), "Local:gevsim.xml;%X;%zX?SchemaVersion=1.1.0", kDescriptionAddress,
                  m_description.size());
    SetText(kFirstUrl, url.data());
    SetText(kSecondUrl, url.data());
    SetValue(kInterfaces, 1);
    SetValue(kLinkSpeed, 1000);
    SetValue(kMessageChannels, 1);
    SetValue(kStreamChannels, 1);
    SetValue(kActionSignals, 1);
    SetValue(kActionDeviceKey, config.actionDeviceKey);
    SetValue(kActiveLinks, 1);
    SetValue(kGvspCapability, config.gvspCapabilities);
    SetValue(kGvmcCapability, config.gvmcCapabilities);
    SetValue(kGvcpCapability, config.gvcpCapabilities);
    SetValue(kHeartbeatTimeout, config.heartbeatTimeout);
    SetValue(kTickFrequencyHigh, static_cast<std::uint32_t>(config.tickFrequency >> 32));
    SetValue(kTickFrequencyLow, static_cast<std::uint32_t>(config.tickFrequency));
    SetValue(kPendingTimeout, config.pendingTimeout);
    SetValue(kGvspConfiguration, config.extendedId ? kExtendedId : 0);
    SetValue(kStreamPacketSize, config.packetSize | kDoNotFragment);
    SetValue(kStreamPacketDelay, config.packetDelay);
    SetValue(kActionGroupKey, config.actionGroupKey);
    SetValue(kActionGroupMask, config.actionGroupMask);
    if ((config.gvspCapabilities & GvspCap::kSourcePort) == 0) {
        m_regions.erase(kStreamSourcePort);
    }
    if ((config.gvmcCapabilities & GvmcCap::kSourcePort) == 0) {
        m_regions.erase(kMessageSourcePort);
    }
    if ((config.gvcpCapabilities & GvcpCap::kManifest) == 0) {
        m_regions.erase(kManifest);
        return;
    }
    // A 64-bit count in the top 6 bits, then per document file version 1.0.0, schema 1.1 and its URL
    // register.
    SetValue(kManifest, kManifestEntries << 26);
    for (std::uint32_t entry = 0; entry < kManifestEntries; ++entry) {
        SetValue(kManifest + 8 + 8 * entry, (1u << 26) | (1u << 8) | (1u << 2));
        SetValue(kManifest + 12 + 8 * entry, entry == 0 ? kFirstUrl : kSecondUrl);
    }
}

void Registers::FillFeatures(const Config& config)
{
    SetValue(Feature::kWidth, config.geometry.width);
    SetValue(Feature::kHeight, config.geometry.height);
    SetValue(Feature::kPixelFormat, static_cast<std::uint32_t>(config.geometry.pixelFormat));
    SetValue(Feature::kAcquisitionFrameRate, FloatBits(config.frameRate));
    SetValue(Feature::kAcquisitionFrameCount, 1);
    SetValue(Feature::kTestPattern, static_cast<std::uint32_t>(config.pattern));
    SetValue(Feature::kChunkModeActive, config.chunkMode != ChunkMode::Off);
    SetValue(Feature::kChunkForm, config.chunkMode == ChunkMode::ChunkData);
    SetValue(Feature::kSensorWidth, config.maxWidth);
    SetValue(Feature::kSensorHeight, config.maxHeight);
    SetValue(Feature::kEventDataSize, config.eventDataSize);
    for (std::uint32_t event = 0; event < kEvents; ++event) {
        SetValue(Feature::kEventNotification + 4 * event, config.eventNotifications);
    }
    UpdatePayloadSize();
}

void Registers::SetText(std::uint32_t address, const std::string& text)
{
    const Place place = Find(address);
    if (place.pRegion == nullptr) {
        throw std::out_of_range("no register at this address");
    }
    std::copy(text.begin(), text.end(), place.pRegion->bytes.begin() + place.offset);
}

void Registers::UpdatePayloadSize()
{
    Geometry geometry;
    geometry.pixelFormat = static_cast<PixelFormat>(Value(Feature::kPixelFormat));
    geometry.width = Value(Feature::kWidth);
    geometry.height = Value(Feature::kHeight);
    const std::size_t chunks = Value(Feature::kChunkModeActive) != 0 ? Picture::kChunkTailBytes : 0;
    SetValue(Feature::kPayloadSize, static_cast<std::uint32_t>(geometry.ImageBytes() + chunks));
    SetValue(Feature::kWidthMax, m_maxWidth - Value(Feature::kOffsetX));
    SetValue(Feature::kHeightMax, m_maxHeight - Value(Feature::kOffsetY));
    SetValue(Feature::kTcpWidth, geometry.width);
    SetValue(Feature::kTcpHeight, geometry.height);
    SetValue(Feature::kTcpOffsetX, Value(Feature::kOffsetX));
    SetValue(Feature::kTcpOffsetY, Value(Feature::kOffsetY));
    SetValue(Feature::kTcpPixelFormat, Value(Feature::kPixelFormat));
}

Registers::Place Registers::Find(std::uint32_t address) const
{
    auto it = m_regions.upper_bound(address);
    if (it == m_regions.begin()) {
        return {};
    }
    --it;
    const std::uint32_t offset = address - it->first;
    return offset < it->second.bytes.size() ? Place{&it->second, offset} : Place{};
}

std::uint32_t Registers::Value(std::uint32_t address) const
{
    const Place place = Find(address & ~3u);
    return place.pRegion == nullptr ? 0 : Get32(&place.pRegion->bytes[place.offset]);
}

void Registers::SetValue(std::uint32_t address, std::uint32_t value)
{
    const Place place = Find(address & ~3u);
    if (place.pRegion != nullptr) {
        Put32(&place.pRegion->bytes[place.offset], value);
    }
}

std::uint16_t Registers::ReadMemory(std::uint32_t address, std::uint8_t* pTo, std::uint32_t size) const
{
    if (address % 4 != 0 || size % 4 != 0) {
        return Status::kBadAlignment;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (std::uint32_t done = 0; done < size; done += 4) {
        const Place place = Find(address + done);
        if (place.pRegion == nullptr) {
            return Status::kInvalidAddress;
        }
        if (place.pRegion->access == Access::WriteOnly) {
            return Status::kAccessDenied;
        }
        std::memcpy(pTo + done, &place.pRegion->bytes[place.offset], 4);
        if (!place.pRegion->isText && !m_isBigEndian) {
            std::reverse(pTo + done, pTo + done + 4);
        }
    }
    return Status::kSuccess;
}

std::uint16_t Registers::ReadRegister(std::uint32_t address, std::uint32_t& value) const
{
    std::array<std::uint8_t, 4> bytes{};
    const std::uint16_t status = ReadMemory(address, bytes.data(), 4);
    if (status == Status::kSuccess) {
        value = Get(address);
    }
    return status;
}

std::uint16_t Registers::WriteWord(std::uint32_t address, const std::uint8_t* pFrom)
{
    std::array<std::uint8_t, 4> bytes{pFrom[0], pFrom[1], pFrom[2], pFrom[3]};
    if (!m_isBigEndian) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const Place place = Find(address);
        if (place.pRegion != nullptr && !place.pRegion->isText) {
            std::reverse(bytes.begin(), bytes.end());
        }
    }
    return WriteRegister(address, Get32(bytes.data()));
}

std::uint16_t Registers::WriteRegister(std::uint32_t address, std::uint32_t value)
{
    return Store(address, value, true);
}

std::uint16_t Registers::Force(std::uint32_t address, std::uint32_t value)
{
    return Store(address, value, false);
}

std::uint32_t Registers::Get(std::uint32_t address) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return Value(address);
}

void Registers::Set(std::uint32_t address, std::uint32_t value)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    SetValue(address, value);
}

/// Says whether a writable register takes a value now.
std::uint16_t Registers::Judge(std::uint32_t address, std::uint32_t value) const
{
    if (IsGeometry(address) && Value(Feature::kAcquisitionStatus) != 0) {
        return Status::kBusy;
    }
    const auto between = [value](std::uint32_t low, std::uint32_t high) {
        return value >= low && value <= high ? Status::kSuccess : Status::kInvalidParameter;
    };
    switch (address) {
        case Feature::kWidth:
            return between(1, Value(Feature::kWidthMax));
        case Feature::kHeight:
            return between(1, Value(Feature::kHeightMax));
        case Feature::kOffsetX:
            return between(0, m_maxWidth - Value(Feature::kWidth));
        case Feature::kOffsetY:
            return between(0, m_maxHeight - Value(Feature::kHeight));
        case Feature::kPixelFormat:
            return IsPixelFormat(value) ? Status::kSuccess : Status::kInvalidParameter;
        case Feature::kAcquisitionMode:
        case Feature::kTestPattern:
            return between(0, 2);
        case Feature::kChunkModeActive:
        case Feature::kChunkForm:
        case Feature::kTriggerMode:
        case Feature::kEventNotification:
        case Feature::kEventNotification + 4:
        case Feature::kEventNotification + 8:
        case Feature::kEventNotification + 12:
            return between(0, 1);
        case Feature::kEventSelector:
            return between(0, kEvents - 1);
        case Feature::kEventDataSize:
            return between(0, kMaxEventData);
        case Feature::kAcquisitionFrameRate:
            return FloatValue(value) >= 0 ? Status::kSuccess : Status::kInvalidParameter;
        default:
            return Status::kSuccess;
    }
}

std::uint16_t Registers::Store(std::uint32_t address, std::uint32_t value, bool checkAccess)
{
    if (address % 4 != 0) {
        return Status::kBadAlignment;
    }
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const Place place = Find(address);
        if (place.pRegion == nullptr) {
            return Status::kInvalidAddress;
        }
        if (checkAccess && place.pRegion->access == Access::ReadOnly) {
            return Status::kWriteProtect;
        }
        const std::uint16_t status = Judge(address, value);
        if (status != Status::kSuccess) {
            return status;
        }
        // The order to send a test packet is carried out and forgotten.
        SetValue(address, address == kStreamPacketSize ? value & ~kFireTestPacket : value);
        if (address == kTimestampControl) {
            ControlTimestamp(value);
        } else if (IsGeometry(address)) {
            UpdatePayloadSize();
        }
    }
    if (m_effect) {
        m_effect(address, value);
    }
    return Status::kSuccess;
}

void Registers::ControlTimestamp(std::uint32_t value)
{
    if ((value & 1u) != 0) {
        m_clockStart = std::chrono::steady_clock::now();
    }
    if ((value & 2u) != 0) {
        const std::uint64_t ticks = ElapsedTicks();
        SetValue(kTimestampHigh, static_cast<std::uint32_t>(ticks >> 32));
        SetValue(kTimestampLow, static_cast<std::uint32_t>(ticks));
    }
}

std::uint64_t Registers::Ticks() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return ElapsedTicks();
}

std::uint64_t Registers::ElapsedTicks() const
{
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - m_clockStart;
    return static_cast<std::uint64_t>(elapsed.count() * static_cast<double>(m_tickFrequency));
}

bool Registers::ExtendedId() const
{
    if ((Get(kGvspCapability) & GvspCap::kBlockId16Bit) == 0) {
        return Get(kVersion) >= 0x00020000;
    }
    return (Get(kGvspConfiguration) & kExtendedId) != 0;
}

std::chrono::nanoseconds Registers::FramePeriod() const
{
    constexpr double kDay = 24 * 3600;
    const double rate = FloatValue(Get(Feature::kAcquisitionFrameRate));
    const std::chrono::duration<double> period(rate > 0 ? std::min(1 / rate, kDay) : 0);
    return std::chrono::duration_cast<std::chrono::nanoseconds>(period);
}

}  // namespace sim
