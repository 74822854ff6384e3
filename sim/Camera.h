#pragma once

#include "sim/FaultPlan.h"
#include "sim/Picture.h"
#include "sim/TcpFaults.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace sim {

/// When DISCOVERY_ACK (and FORCEIP_ACK) are broadcast instead of being sent to the asker.
enum class AnswerByBroadcast {
    Never,
    WhenAllowed,  ///< the command carries the flag 0x10
};

/// GVCP Capability bits (register 0x0934) that change what the camera does.
namespace GvcpCap {
inline constexpr std::uint32_t kConcatenation = 0x00000001;
inline constexpr std::uint32_t kWriteMem = 0x00000002;
inline constexpr std::uint32_t kPacketResend = 0x00000004;
inline constexpr std::uint32_t kPendingAck = 0x00000020;
inline constexpr std::uint32_t kAction = 0x00000040;
inline constexpr std::uint32_t kScheduledAction = 0x00020000;
inline constexpr std::uint32_t kUnconditionalAction = 0x00100000;
inline constexpr std::uint32_t kTestData = 0x02000000;
inline constexpr std::uint32_t kManifest = 0x04000000;
inline constexpr std::uint32_t kHeartbeatDisable = 0x20000000;
inline constexpr std::uint32_t kSerialNumber = 0x40000000;
inline constexpr std::uint32_t kUserName = 0x80000000;
inline constexpr std::uint32_t kAll = kConcatenation | kWriteMem | kPacketResend | kPendingAck | kAction |
                                      kScheduledAction | kUnconditionalAction | kTestData | kManifest |
                                      kHeartbeatDisable | kSerialNumber | kUserName;
}  // namespace GvcpCap

/// GVSP Capability bits (register 0x092C).
namespace GvspCap {
inline constexpr std::uint32_t kSourcePort = 0x80000000;  ///< SCSP can be read
inline constexpr std::uint32_t kBlockId16Bit =
    0x40000000;  ///< the header form can be chosen in register 0x0960
}  // namespace GvspCap

/// Message Channel Capability bits (register 0x0930).
namespace GvmcCap {
inline constexpr std::uint32_t kSourcePort = 0x80000000;  ///< MCSP can be read
}  // namespace GvmcCap

/// All that a camera is made from. Times in ms unless the name says otherwise.
///
/// With the defaults an image is small and its packets are spread out so far that a receiver with a receive
/// buffer of 208 KiB can stand still for 50 ms and loses nothing. Who wants more sets `receiverNet`.
struct Config
{
    // Place on the network. The address must stand on an interface of the namespace.
    std::string address = "127.0.0.1";
    std::string netns;  ///< file of a network namespace to live in; empty: that of Start's caller
    std::uint16_t gvcpPort = 3956;
    std::uint64_t macAddress = 0;                ///< 0: that of the interface
    std::uint32_t gateway = 0;                   ///< host order
    std::uint32_t ipConfiguration = 0x00000005;  ///< current: persistent IP 1, DHCP 2, LLA 4
    AnswerByBroadcast answerByBroadcast = AnswerByBroadcast::Never;
    bool applyForceIp = true;  ///< take the forced address (needs the right to set it); else only acknowledge

    // Identity.
    std::string vendor = "Norvo Imaging Inc";
    std::string model = "gevsim";
    std::string deviceVersion = "1.0.0";
    std::string manufacturerInfo = "simulated camera";
    std::string serialNumber = "SIM000001";
    std::string userName;

    // Control channel.
    std::uint32_t gevVersion = 0x00020000;  ///< register 0x0000, major in the high half
    std::uint32_t gvcpCapabilities = GvcpCap::kAll;
    std::uint32_t gvspCapabilities = GvspCap::kSourcePort | GvspCap::kBlockId16Bit;
    bool bigEndian = true;  ///< Device Mode bit 0x80000000: integer registers read through READMEM
    std::uint32_t heartbeatTimeout = 3000;
    std::uint32_t minHeartbeatTimeout = 500;  ///< lower register values are kept, but count as this
    std::uint32_t pendingTimeout = 200;
    std::uint64_t tickFrequency = 1000000000;
    std::uint32_t gvmcCapabilities = GvmcCap::kSourcePort;
    std::uint32_t actionDeviceKey = 0;
    std::uint32_t actionGroupKey = 1;
    std::uint32_t actionGroupMask = 0xFFFFFFFF;

    // Events.
    bool eventNotifications = false;  ///< initial state of all
    std::uint32_t eventDataSize = 0;  ///< bytes that come with an event; 0: none, in the form without data

    // Stream.
    Geometry geometry;
    std::uint32_t maxWidth = 8192;
    std::uint32_t maxHeight = 8192;
    TestPattern pattern = TestPattern::MovingRings;
    ChunkMode chunkMode = ChunkMode::Off;
    bool extendedId = false;       ///< initial bit 0x40000000 of register 0x0960; see GvspCap::kBlockId16Bit
    double frameRate = 10;         ///< images per second; 0: as fast as they go
    std::uint64_t frameLimit = 0;  ///< blocks that one AcquisitionStart sends at most; 0: no limit
    std::uint32_t packetSize = 1500;     ///< initial SCPS, IP and UDP headers included
    std::uint32_t packetDelay = 600000;  ///< initial SCPD, in timestamp ticks
    std::uint64_t firstBlockId = 1;      ///< of each opening of the stream channel
    bool zeroTimestamp = false;          ///< leaders carry timestamp 0
    std::uint32_t storedBlocks = 8;      ///< blocks that a resend can still reach

    /// Paces stream and events by the receiver's queue, so that no datagram is lost but by the plan. Either
    /// the file of the receiver's network namespace, or a directory with its `udp` and `snmp`, such as
    /// "/proc/<tid>/net". Empty: the stream is paced by SCPD alone, events by nothing.
    std::string receiverNet;
};

/// What the camera saw and did since it was made.
struct Counters
{
    std::uint64_t discoveries = 0;
    std::uint64_t forceIps = 0;
    std::uint64_t readRegs = 0;  ///< commands, not registers; likewise below
    std::uint64_t writeRegs = 0;
    std::uint64_t readMems = 0;
    std::uint64_t writeMems = 0;
    std::uint64_t actions = 0;      ///< actions carried out
    std::uint64_t badCommands = 0;  ///< datagrams that are no GVCP command, and commands unknown or malformed
    std::uint64_t refused = 0;      ///< commands answered with a status other than success
    std::uint64_t repeated =
        0;  ///< commands recognised as a repeat and answered without being carried out again
    std::uint64_t answers = 0;  ///< acknowledges sent
    std::uint64_t answersLost = 0;
    std::uint64_t pendingAcks = 0;
    std::uint64_t controlTaken = 0;
    std::uint64_t heartbeatsLost = 0;  ///< control ended by the heartbeat time-out
    std::uint64_t resendCommands = 0;
    std::uint64_t resendPackets = 0;      ///< packets sent again
    std::uint64_t resendUnavailable = 0;  ///< packets asked for that are gone
    std::uint64_t firewallDatagrams = 0;  ///< datagrams at the stream's source port
    std::uint64_t testPackets = 0;
    std::uint64_t connections = 0;  ///< hosts that connected for a stream over TCP
    std::uint64_t blocks = 0;       ///< blocks and frames sent to their end
    std::uint64_t packets = 0;      ///< stream datagrams given to the kernel, resends included
    std::uint64_t bytes = 0;        ///< GVSP bytes of these, and those of frames
    std::uint64_t sendErrors = 0;   ///< stream datagrams that the kernel refused
    std::uint64_t packetsLost = 0;  ///< by the plan; likewise below
    std::uint64_t packetsDuplicated = 0;
    std::uint64_t packetsDelayed = 0;
    std::uint64_t packetsReordered = 0;
    std::uint64_t packetsTruncated = 0;
    std::uint64_t packetsBadStatus = 0;
    std::uint64_t watchTimeouts =
        0;                     ///< the receiver's queue stayed full for so long that the stream went on
    std::uint64_t events = 0;  ///< sent, repetitions not counted
    std::uint64_t eventsRepeated = 0;  ///< datagrams sent again for want of an acknowledge
    std::uint64_t eventAcks = 0;
    std::uint64_t messageFirewallDatagrams = 0;  ///< at the message channel's source port
};

/// One PACKETRESEND_CMD as it came.
struct ResendRequest
{
    std::uint64_t blockId = 0;
    std::uint32_t firstPacket = 0;
    std::uint32_t lastPacket = 0;
    bool extended = false;
};

/// A GigE Vision camera made of software, on real UDP sockets.
///
/// Owns: its registers, its sockets and five threads, for GVCP, GVSP, the stream over TCP, events and the
/// datagrams of firewalls, from Start to Stop. Threads: any thread may call any operation, but Start and Stop
/// must not run beside each other.
class Camera
{
public:
    explicit Camera(const Config& config);
    ~Camera();  ///< stops
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    /// Binds the sockets and starts the threads. Throws std::system_error or std::runtime_error, and leaves
    /// nothing running then.
    void Start();
    /// Ends the threads and closes the sockets; registers and counters stay. A second call does nothing.
    void Stop();

    Counters Seen() const;
    /// PACKETRESEND_CMDs in the order they came, the last 4096 at most.
    std::vector<ResendRequest> Resends() const;
    /// True while someone holds control, by CCP.
    bool IsControlled() const;
    /// True while images go out: channel open and acquisition running.
    bool IsStreaming() const;
    /// The address in force, which FORCEIP may have changed.
    std::string Address() const;

    /// The register as it stands, past all access control; 0 where there is none.
    std::uint32_t Register(std::uint32_t address) const;
    /// Stores a 32-bit value past access control, read-only registers included, with the effects that a write
    /// over the wire has. \return a GVCP status
    std::uint16_t SetRegister(std::uint32_t address, std::uint32_t value);
    /// The description as it is served through the URL registers.
    std::string Description() const;
    /// The payloads of the run in progress or, while nothing runs, of the next one.
    std::shared_ptr<const Picture> CurrentPicture() const;

    void SetStreamFaults(const StreamFaults& faults);
    void SetTcpFaults(const TcpFaults& faults);
    void AddControlFault(const ControlFault& fault);
    void SetControlLossRate(double rate, std::uint64_t seed = 1);
    void ClearFaults();

    /// Unplugs the cable: nothing is heard and nothing goes out, while time and heartbeat go on.
    void GoSilent(bool silent);
    /// Unplugs, and plugs in again after so many ms.
    void SilentFor(std::uint32_t ms);

    /// With TriggerMode on: lets so many images go.
    void Trigger(std::uint32_t images = 1);
    /// Sends bytes as they are to the stream's destination, from the stream's source port.
    void SendStreamDatagram(const void* pData, std::size_t size);
    /// Sends bytes as they are to the message channel's destination, from its source port.
    void SendMessageDatagram(const void* pData, std::size_t size);
    /// The datagrams of the events sent, in order and without repetitions, the last 16384 at most.
    std::vector<std::vector<std::uint8_t>> Events() const;
    /// Sends bytes as they are from the GVCP port to whoever holds control.
    void SendControlDatagram(const void* pData, std::size_t size);

    struct Impl;

private:
    std::unique_ptr<Impl> m_pImpl;
};

/// Addresses of the camera's own features, as its description names them.
namespace Feature {
inline constexpr std::uint32_t kWidth = 0x00020000;
inline constexpr std::uint32_t kHeight = 0x00020004;
inline constexpr std::uint32_t kPixelFormat = 0x00020008;
inline constexpr std::uint32_t kPayloadSize = 0x0002000C;
inline constexpr std::uint32_t kAcquisitionMode = 0x00020010;  ///< 0 Continuous, 1 SingleFrame, 2 MultiFrame
inline constexpr std::uint32_t kAcquisitionStart = 0x00020014;
inline constexpr std::uint32_t kAcquisitionStop = 0x00020018;
inline constexpr std::uint32_t kAcquisitionFrameRate = 0x0002001C;  ///< IEEE single, images per second
inline constexpr std::uint32_t kAcquisitionFrameCount = 0x00020020;
inline constexpr std::uint32_t kTestPattern = 0x00020024;
inline constexpr std::uint32_t kChunkModeActive = 0x00020028;
inline constexpr std::uint32_t kChunkForm = 0x0002002C;  ///< 0 image with chunks, 1 chunk data
inline constexpr std::uint32_t kTriggerMode = 0x00020030;
inline constexpr std::uint32_t kTriggerSoftware = 0x00020034;
inline constexpr std::uint32_t kWidthMax = 0x00020038;
inline constexpr std::uint32_t kHeightMax = 0x0002003C;
inline constexpr std::uint32_t kOffsetX = 0x00020040;
inline constexpr std::uint32_t kOffsetY = 0x00020044;
inline constexpr std::uint32_t kAcquisitionStatus = 0x00020048;
inline constexpr std::uint32_t kSensorWidth = 0x0002004C;
inline constexpr std::uint32_t kSensorHeight = 0x00020050;
inline constexpr std::uint32_t kResendRequestCount = 0x00020054;  ///< PACKETRESEND_CMDs that were heard
inline constexpr std::uint32_t kResentPacketCount = 0x00020058;   ///< packets sent again
inline constexpr std::uint32_t kEventSelector = 0x00020080;       ///< see the enumeration Event
inline constexpr std::uint32_t kEventDataSize = 0x00020084;
inline constexpr std::uint32_t kTestEventGenerate = 0x00020088;  ///< sends as many test events in a row
inline constexpr std::uint32_t kEventNotification = 0x000200A0;  ///< one word per event: 0 off, 1 on
// The geometry again, where hosts of the stream over TCP read it.
inline constexpr std::uint32_t kTcpWidth = 0x10400000;
inline constexpr std::uint32_t kTcpHeight = 0x10400014;
inline constexpr std::uint32_t kTcpOffsetX = 0x10400028;
inline constexpr std::uint32_t kTcpOffsetY = 0x1040003C;
inline constexpr std::uint32_t kTcpPixelFormat = 0x10400060;
}  // namespace Feature

}  // namespace sim
