#include "device/DeviceGev.h"

#include "channel/MessageChannelGev.h"
#include "device/DeviceRemoteGev.h"
#include "device/Heartbeat.h"
#include "device/ProtectedDeviceRegistry.h"
#include "frame/Error.h"
#include "frame/GenTLHandle.h"
#include "gev/IHALGev.h"
#include "gev/SignalBlock.h"
#include "log/GLogger.h"
#include "log/localization.h"
#include "modules/FileUtility.h"
#include "stream/DataStreamGev.h"
#include "stream/DataStreamGevTCP.h"
#include "xml/LocalXml.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <exception>

namespace GenTL {
namespace {

// Bootstrap registers.
constexpr unsigned int kTickFrequencyHighAddress = 0x093C;
constexpr unsigned int kTickFrequencyLowAddress = 0x0940;
constexpr unsigned int sk_gvcpCapabilityAddress = 0x0934;
constexpr unsigned int sk_gvcpConfigAddress = 0x0954;
constexpr unsigned int sk_pendingTimeoutAddress = 0x0958;
constexpr unsigned int kCcpAddress = 0x0A00;

// Their bits.
constexpr unsigned int kCcpExclusive = 0x00000001;
constexpr unsigned int kCcpControl = 0x00000002;
constexpr unsigned int kCapabilityPendingAck = 0x00000020;
constexpr unsigned int kConfigPendingAckEnable = 0x00000002;

constexpr int kEventBuffers = 100;  // of a message channel
constexpr unsigned int kDefaultPendingTimeoutMs = 200;
constexpr int kEndianessMechanism = 1001;  // custom DEVICE_INFO command
constexpr unsigned int kTransports = 2;    // a stream each: UDP, TCP

bool TakesControl(int iOpenFlags)
{
    return iOpenFlags == DEVICE_ACCESS_CONTROL || iOpenFlags == DEVICE_ACCESS_EXCLUSIVE;
}

/// What a discovery record tells of the camera, with what stands in for it when it can't be had.
struct Identity
{
    int (IHALGev::*getter)(void*, std::string&);
    const char* log;
    const char* unknown;
};

constexpr Identity kModel = {&IHALGev::GetModelName, "DeviceGev::DeviceGev could not get model name",
                             "Unknown Model Name"};
constexpr Identity kVendor = {&IHALGev::GetVendorName, "DeviceGev::DeviceGev could not get vendor name",
                              "Unknown Vendor Name"};
constexpr Identity kSerialNumber = {
    &IHALGev::GetSerialNumber, "DeviceGev::DeviceGev could not get serial number", "Unknown Serial Number"};
constexpr Identity kUserDefinedName = {&IHALGev::GetUserDefinedName,
                                       "DeviceGev::DeviceGev could not get user defined name",
                                       "Unknown User Defined Name"};
constexpr Identity kVersion = {&IHALGev::GetDeviceVersion, "DeviceGev::DeviceGev could not get version",
                               "Unknown Device Version"};

struct Number
{
    int command;
    int (IHALGev::*getter)(void*, long&);
    int type;
};

constexpr Number kNumbers[] = {
    {DEVICE_INFO_GEV_IP_ADDRESS,      &IHALGev::GetDevIPAddress,      INFO_DATATYPE_INT64 },
    {DEVICE_INFO_GEV_SUBNET_MASK,     &IHALGev::GetDevSubnetMask,     INFO_DATATYPE_UINT32},
    {DEVICE_INFO_GEV_MAC_ADDRESS,     &IHALGev::GetDevMACAddress,     INFO_DATATYPE_UINT64},
    {DEVICE_INFO_GEV_DEFAULT_GATEWAY, &IHALGev::GetDevDefaultGateway, INFO_DATATYPE_UINT32},
};

struct Flag
{
    int command;
    int (IHALGev::*getter)(void*, bool&);
};

constexpr Flag kFlags[] = {
    {DEVICE_INFO_GEV_CONFIG_DHCP,          &IHALGev::GetDevIpConfigDHCP        },
    {DEVICE_INFO_GEV_CONFIG_PERSISTENT_IP, &IHALGev::GetDevIpConfigPersistentIp},
    {DEVICE_INFO_GEV_CONFIG_LLA,           &IHALGev::GetDevIpConfigLLA         },
    {DEVICE_INFO_IS_CONNECTED,             &IHALGev::IsConnected               },
};

template <typename Row, std::size_t size>
const Row* FindCommand(const Row (&rows)[size], int command)
{
    const auto* found = std::find_if(std::begin(rows), std::end(rows),
                                     [command](const Row& row) { return row.command == command; });
    return found != std::end(rows) ? found : nullptr;
}

int LogException(const char* text, const std::exception& e, int code)
{
    GLogger::Error(loc::al(text, {e.what()}).c_str(), code);
    return code;
}

/// Makes a module and adds it to the list. Logs which of the two failed.
template <typename Module, typename Make>
int AddModule(std::vector<std::unique_ptr<Module>>& list, Make make)
{
    std::unique_ptr<Module> module;
    try {
        module = make();
    } catch (const std::exception& e) {
        return LogException("DeviceGev::Open exception creating stream = {0}", e, GC_ERR_OUT_OF_MEMORY);
    }
    try {
        list.push_back(std::move(module));
    } catch (const std::exception& e) {
        return LogException("DeviceGev::Open exception inserting stream = {0}", e, GC_ERR_INVALID_INDEX);
    }
    return GC_ERR_SUCCESS;
}

int BeginListening(IMessageChannel& channel, bool multicast, void** phEvent)
{
    if (const int code = channel.Open(nullptr, multicast); code != GC_ERR_SUCCESS) {
        return code;
    }
    for (int i = 0; i < kEventBuffers; ++i) {
        void* hBuffer = nullptr;
        if (const int code = channel.AllocAndAnnounceBuffer(kEventSizeMax, nullptr, &hBuffer);
            code != GC_ERR_SUCCESS) {
            return code;
        }
        if (const int code = channel.QueueBuffer(hBuffer); code != GC_ERR_SUCCESS) {
            return code;
        }
    }
    const int code = channel.RegisterEvent(EVENT_REMOTE_DEVICE, phEvent);
    return code == GC_ERR_SUCCESS ? channel.StartListening() : code;
}

/// Ends at the first buffer that can't be revoked: a consumer still in EventGetData may have queued it again.
int RevokeBuffers(IMessageChannel& channel)
{
    for (;;) {
        std::uint64_t announced = 0;
        std::size_t size = sizeof announced;
        int type = 0;
        if (const int code = channel.GetInfo(MC_INFO_NUM_ANNOUNCED, &type, &announced, &size);
            code != GC_ERR_SUCCESS) {
            GLogger::Error("MessageChannel::GetInfo failed with error", code);
            return code;
        }
        if (announced == 0) {
            return GC_ERR_SUCCESS;
        }
        void* hBuffer = nullptr;
        if (const int code = channel.GetBufferID(0, &hBuffer); code != GC_ERR_SUCCESS) {
            return code;
        }
        if (const int code = channel.RevokeBuffer(hBuffer, nullptr); code != GC_ERR_SUCCESS) {
            return code;
        }
    }
}

/// Undoes BeginListening as far as it came. All steps run; the first failure is the result, and its error the
/// cached one.
int EndListening(IMessageChannel& channel)
{
    int first = GC_ERR_SUCCESS;
    Error failure;
    const auto note = [&](int code) {
        if (code != GC_ERR_SUCCESS && first == GC_ERR_SUCCESS) {
            first = code;
            ErrorCache::GetErrorCache()->Peak(failure);
        }
    };
    note(channel.StopListening());
    note(channel.Flush());
    note(RevokeBuffers(channel));
    note(channel.UnregisterEvent(EVENT_REMOTE_DEVICE));
    note(channel.Close());
    if (first != GC_ERR_SUCCESS) {
        ErrorCache::GetErrorCache()->OverwriteCachedErrorWith(failure);
    }
    return first;
}

}  // namespace

DeviceGev::DeviceGev(IHALGev* hal, const std::string& interfaceId, void* parent, void* deviceHandle)
    : m_pHal(hal), m_hParent(parent), m_hDevice(deviceHandle), m_interfaceId(interfaceId)
{
    ReadIdentity();
    m_portInfo.module = "TLDevice";
    m_portInfo.portName = "DevicePort";
    m_displayName = m_portInfo.model + " ( " + m_serialNumber + " ) ";
    m_urlInfo.schemaVersionMajor = 1;
}

DeviceGev::~DeviceGev()
{
    DeleteStreams();
    DeleteMessageChannels();
    if (m_heartbeatThread.joinable()) {
        m_heartbeatThread.detach();
        KeepLibraryLoaded();
    } else if (!m_isClosed) {
        m_pHal->CloseDevice(m_hDevice);
    }
}

void DeviceGev::ReadIdentity()
{
    const auto read = [this](const Identity& identity, std::string& text) {
        const int code = (m_pHal->*identity.getter)(m_hDevice, text);
        if (code != GC_ERR_SUCCESS) {
            GLogger::Error(identity.log, code);
            text = identity.unknown;
        }
        return code == GC_ERR_SUCCESS;
    };
    read(kModel, m_portInfo.model);
    read(kVendor, m_portInfo.vendor);
    m_portInfo.id = read(kSerialNumber, m_serialNumber) ? m_serialNumber : "Unknown Device ID";
    read(kUserDefinedName, m_userDefinedName);
    read(kVersion, m_portInfo.version);
}

int DeviceGev::ReadPort(unsigned long iAddress, void* pBuffer, unsigned long* piSize)
{
    return m_deviceReg.DispatchRead(iAddress, pBuffer, piSize);
}

int DeviceGev::WritePort(unsigned long iAddress, const void* pBuffer, unsigned long* piSize)
{
    return m_deviceReg.DispatchWrite(iAddress, pBuffer, piSize);
}

int DeviceGev::GetPortURL(char* sURL, unsigned long* piSize) const
{
    return AnswerLocalURL("SFNC_GenTLDevice_Reference_Version_1_0_0_Schema_1_1", kDeviceXml.size(), sURL,
                          piSize);
}

int DeviceGev::GetNumPortURLs(unsigned int* piNumURLs)
{
    return AnswerOneURL(piNumURLs);
}

int DeviceGev::GetPortURLInfo(unsigned int, int, int*, void*, unsigned long*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int DeviceGev::ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int DeviceGev::WritePortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int DeviceGev::RegisterEvent(int iEventID, void** phEvent)
{
    if (iEventID != EVENT_REMOTE_DEVICE) {
        return Raise(GC_ERR_NOT_IMPLEMENTED, "only EVENT_REMOTE_DEVICE is implemented");
    }
    if (m_messageChannels.empty()) {
        return Raise(GC_ERR_NOT_AVAILABLE, "message channels size==0");
    }
    IMessageChannel& channel = *m_messageChannels.front();
    if (channel.IsOpen()) {
        return Raise(GC_ERR_RESOURCE_IN_USE, "message channel 0 is already open");
    }
    void* hEvent = nullptr;
    int code = GC_ERR_ERROR;
    try {
        code = BeginListening(channel, IsMulticast(), phEvent != nullptr ? &hEvent : nullptr);
    } catch (...) {
        EndListening(channel);
        throw;
    }
    if (code != GC_ERR_SUCCESS) {
        // What the way back has to say is not what the consumer needs to know.
        Error failure;
        ErrorCache::GetErrorCache()->Peak(failure);
        EndListening(channel);
        ErrorCache::GetErrorCache()->OverwriteCachedErrorWith(failure);
        return AppendName(code);
    }
    if (phEvent != nullptr) {  // or the channel would have failed
        *phEvent = hEvent;
    }
    return GC_ERR_SUCCESS;
}

/// A stream that can't tell isn't set to multicast.
bool DeviceGev::IsMulticast() const
{
    bool multicast = false;
    std::size_t size = sizeof multicast;
    int type = 0;
    const int code = m_streams.front()->GetInfo(STREAM_INFO_MULTICAST_ENABLE, &type, &multicast, &size);
    return code == GC_ERR_SUCCESS && multicast;
}

int DeviceGev::UnregisterEvent(int iEventID)
{
    if (iEventID != EVENT_REMOTE_DEVICE) {
        return Raise(GC_ERR_NOT_IMPLEMENTED, "only GenTL::EVENT_REMOTE_DEVICE is implemented");
    }
    if (m_messageChannels.empty()) {
        return Raise(GC_ERR_NOT_AVAILABLE, "no message channels were found");
    }
    IMessageChannel& channel = *m_messageChannels.front();
    if (!channel.IsOpen()) {
        return Raise(GC_ERR_NOT_INITIALIZED, "the message channel 0 is not open");
    }
    const int code = EndListening(channel);
    return code == GC_ERR_SUCCESS ? code : AppendName(code);
}

int DeviceGev::Open(int iOpenFlags, void* hOwn)
{
    if (iOpenFlags < DEVICE_ACCESS_UNKNOWN || iOpenFlags > DEVICE_ACCESS_EXCLUSIVE) {
        return Raise(GC_ERR_INVALID_PARAMETER,
                     "device can be opened with one of the following flags only:\n"
                     "GenTL::DEVICE_ACCESS_UNKNOWN, GenTL::DEVICE_ACCESS_NONE, \n"
                     "GenTL::DEVICE_ACCESS_READONLY, GenTL::DEVICE_ACCESS_CONTROL, \n"
                     "GenTL::DEVICE_ACCESS_EXCLUSIVE");
    }
    if (const int code = InitializeStreams(hOwn, iOpenFlags); code != GC_ERR_SUCCESS) {
        return FailOpen("DeviceGev::Open get multi-cast state failed with", code,
                        "failed to initialize streams");
    }
    if (const int code = InitializeMessageChannels(iOpenFlags); code != GC_ERR_SUCCESS) {
        return FailOpen("DeviceGev::Open failed to initialize message channels", code,
                        "failed to initialize message channels");
    }
    if (TakesControl(iOpenFlags)) {
        if (const int code = TakeControl(iOpenFlags); code != GC_ERR_SUCCESS) {
            return code;
        }
    } else {
        m_accessStatus = DEVICE_ACCESS_STATUS_READONLY;
    }
    if (const int code = ReadTimestampTickFrequency(); code != GC_ERR_SUCCESS) {
        GLogger::Error("DeviceGev::Open GetTimestampTickFrequency failed with", code);
        Append(code, "IGNORABLE: field to get tick frequency");
    }
    unsigned int capabilities = 0;
    if (const int code = m_pHal->ReadReg(m_hDevice, sk_gvcpCapabilityAddress, capabilities);
        code != GC_ERR_SUCCESS) {
        return FailOpen("DeviceGev::Open reading sk_gvcpCapabilityAddress failed with", code,
                        "failed to read GVCP Capability (0x0934) register");
    }
    m_capabilities = capabilities;
    if (const int code = ConfigureDeviceTimeout(); code != GC_ERR_SUCCESS) {
        return FailOpen("DeviceGev::Open ConfigureDeviceTimeout failed with", code,
                        ErrorCodeName(code).c_str());
    }
    return GC_ERR_SUCCESS;
}

/// What was done to the camera stays done.
int DeviceGev::FailOpen(const char* log, int code, const char* text, int line)
{
    DeleteStreams();
    DeleteMessageChannels();
    GLogger::Error(log, code);
    return Append(code, text, "Open", line);
}

int DeviceGev::InitializeStreams(void* hOwn, int iOpenFlags)
{
    int code = GC_ERR_SUCCESS;
    try {
        m_streams.reserve(kTransports);
        for (unsigned int index = 0; index < kTransports && code == GC_ERR_SUCCESS; ++index) {
            code = AddStream(hOwn, index, iOpenFlags);
        }
    } catch (const std::exception& e) {
        code = LogException("DeviceGev::Open exception caught while initializing streams = {0}", e,
                            GC_ERR_ERROR);
    }
    if (code != GC_ERR_SUCCESS) {
        DeleteStreams();
        Append(code, "failed to create a DataStreamGev instance");
    }
    return code;
}

int DeviceGev::AddStream(void* hOwn, unsigned int index, int iOpenFlags)
{
    return AddModule(m_streams, [&]() -> std::unique_ptr<IDataStream> {
        if (index == 0) {
            return std::make_unique<DataStreamGev>(m_pHal, m_hDevice, hOwn, index, iOpenFlags);
        }
        return std::make_unique<DataStreamGevTCP>(m_pHal, m_hDevice, hOwn, index, iOpenFlags);
    });
}

int DeviceGev::InitializeMessageChannels(int iOpenFlags)
{
    int code = GC_ERR_SUCCESS;
    try {
        code = AddModule(m_messageChannels, [&] {
            return std::make_unique<MessageChannelGev>(m_pHal, m_hDevice, 0, iOpenFlags);
        });
    } catch (const std::exception& e) {
        code = LogException("DeviceGev::Open exception caught while initializing message channels = {0}", e,
                            GC_ERR_ERROR);
    }
    if (code != GC_ERR_SUCCESS) {
        DeleteMessageChannels();
        Append(code, "failed to create a MessageChannelGev instance");
    }
    return code;
}

int DeviceGev::TakeControl(int iOpenFlags)
{
    unsigned int ccp = 0;
    if (const int code = m_pHal->ReadReg(m_hDevice, kCcpAddress, ccp); code != GC_ERR_SUCCESS) {
        return FailOpen("DeviceGev::Open ReadReg address  0x0A00 failed with", code,
                        "failed to read CCP (0x0A00) register");
    }
    m_accessStatus = DEVICE_ACCESS_STATUS_READWRITE;
    ccp = (ccp & ~kCcpExclusive) | kCcpControl;
    if (iOpenFlags == DEVICE_ACCESS_EXCLUSIVE) {
        ccp |= kCcpExclusive;
    }
    if (const int code = m_pHal->WriteReg(m_hDevice, kCcpAddress, ccp); code != GC_ERR_SUCCESS) {
        return FailOpen("DeviceGev::Open WriteReg address  0x0A00 failed with", code,
                        "failed to write to CCP (0x0A00) register");
    }
    StartHeartbeat();
    if (const int code = m_pHal->SetConnected(m_hDevice, true); code != GC_ERR_SUCCESS) {
        return FailOpen("DeviceGev::Open SetConnected failed with", code,
                        "failed to set the device state to connected");
    }
    return GC_ERR_SUCCESS;
}

int DeviceGev::ReadTimestampTickFrequency()
{
    constexpr const char* kLog = "anonymous::GetTimestampTickFrequency ReadReg  failed with";
    unsigned int high = 0;
    if (const int code = m_pHal->ReadReg(m_hDevice, kTickFrequencyHighAddress, high);
        code != GC_ERR_SUCCESS) {
        GLogger::Error(kLog, code);
        return Append(code, ":IGNORABLE:failed to write to Timestamp Tick Frequency (0x093C) register",
                      "GetTimestampTickFrequency");
    }
    unsigned int low = 0;
    if (const int code = m_pHal->ReadReg(m_hDevice, kTickFrequencyLowAddress, low); code != GC_ERR_SUCCESS) {
        GLogger::Error(kLog, code);
        return Append(code, ":IGNORABLE:failed to read Timestamp Tick Frequency (0x0940) register",
                      "GetTimestampTickFrequency");
    }
    m_timestampFrequency = static_cast<std::uint64_t>(high) << 32 | low;
    return GC_ERR_SUCCESS;
}

int DeviceGev::ConfigureDeviceTimeout()
{
    if ((m_capabilities & kCapabilityPendingAck) != 0) {
        unsigned int config = 0;
        if (const int code = m_pHal->ReadReg(m_hDevice, sk_gvcpConfigAddress, config);
            code != GC_ERR_SUCCESS) {
            GLogger::Error("DeviceGev::Open reading sk_gvcpConfigAddress failed with", code);
            config = 0;
        }
        if (const int code =
                m_pHal->WriteReg(m_hDevice, sk_gvcpConfigAddress, config | kConfigPendingAckEnable);
            code != GC_ERR_SUCCESS) {
            GLogger::Error("DeviceGev::Open writing sk_gvcpConfigAddress failed with", code);
        }
    }
    unsigned int timeoutMs = 0;
    if (const int code = m_pHal->ReadReg(m_hDevice, sk_pendingTimeoutAddress, timeoutMs);
        code != GC_ERR_SUCCESS) {
        GLogger::Error("DeviceGev::Open reading sk_pendingTimeoutAddress failed with", code);
        timeoutMs = 0;
    }
    if (timeoutMs == 0) {
        timeoutMs = kDefaultPendingTimeoutMs;  // 0 would wait for ever
    }
    const int code =
        m_pHal->SetDeviceTimeout(m_hDevice, static_cast<int>(std::min<unsigned>(timeoutMs, INT_MAX)));
    if (code != GC_ERR_SUCCESS) {
        GLogger::Error("DeviceGev::Open failed setting timeout with err", code);
        AppendName(code);
    }
    return code;
}

int DeviceGev::Close()
{
    DeleteStreams();
    DeleteMessageChannels();
    StopHeartbeat();
    const int released = m_accessStatus == DEVICE_ACCESS_STATUS_READWRITE ? GiveUpControl() : GC_ERR_SUCCESS;
    if (m_pRemoteDevice != nullptr) {
        m_pRemoteDevice.reset();
        if (m_hRemoteDevice != nullptr) {  // or there was no memory for the handle
            if (const int code = DeleteHandle(m_hRemoteDevice); code != GC_ERR_SUCCESS) {
                AppendName(code);
            }
        }
    }
    const bool isFirst = !std::exchange(m_isClosed, true);
    const int closed = isFirst ? m_pHal->CloseDevice(m_hDevice) : GC_ERR_SUCCESS;
    if (closed != GC_ERR_SUCCESS) {
        AppendName(closed);
    }
    g_openedDevicesRegistry.PopDeviceEntry(m_portInfo.id);
    const int code = released != GC_ERR_SUCCESS ? released : closed;
    return code == GC_ERR_SUCCESS ? code : AppendName(code);
}

void DeviceGev::DeleteStreams()
{
    while (!m_streams.empty()) {
        m_streams.pop_back();
    }
}

void DeviceGev::DeleteMessageChannels()
{
    while (!m_messageChannels.empty()) {
        m_messageChannels.pop_back();
    }
}

void DeviceGev::StartHeartbeat()
{
    m_isHeartbeatStarted = true;
    const SignalBlock noSignals;
    // The thread's own flag: clearing the module's doesn't reach it, the interruption ends it.
    m_heartbeatThread = boost::thread([hal = m_pHal, deviceHandle = m_hDevice, run = true]() mutable {
        HeartbeatThread(hal, deviceHandle, run);
    });
}

void DeviceGev::StopHeartbeat()
{
    if (!m_isHeartbeatStarted) {
        return;
    }
    m_isHeartbeatStarted = false;
    const boost::this_thread::disable_interruption uninterrupted;
    m_heartbeatThread.interrupt();
    m_heartbeatThread.join();
}

/// The code of the write, which goes out after a failed read too.
int DeviceGev::GiveUpControl()
{
    unsigned int ccp = 0;
    if (const int code = m_pHal->ReadReg(m_hDevice, kCcpAddress, ccp); code != GC_ERR_SUCCESS) {
        GLogger::Error("DeviceGev::Close ReadReg address 0x0A00 failed with", code);
        ccp = 0;
    }
    const int code = m_pHal->WriteReg(m_hDevice, kCcpAddress, ccp & ~(kCcpExclusive | kCcpControl));
    if (code != GC_ERR_SUCCESS) {
        GLogger::Error("DeviceGev::Close WriteReg address 0x0A00 failed with", code);
    }
    return code;
}

int DeviceGev::GetInfo(int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize)
{
    const auto answer = [&](auto value) { return m_info.SetInfo(value, piType, pBuffer, piSize); };
    if (iInfoCmd == kEndianessMechanism) {
        return answer(m_endianessMechanism.load());
    }
    if (const Number* number = FindCommand(kNumbers, iInfoCmd)) {
        long value = 0;
        if (const int code = (m_pHal->*number->getter)(m_hDevice, value); code != GC_ERR_SUCCESS) {
            return AppendName(code);
        }
        switch (number->type) {
            case INFO_DATATYPE_UINT32:
                return answer(static_cast<unsigned int>(value));
            case INFO_DATATYPE_UINT64:
                return answer(static_cast<unsigned long>(value));
            default:
                return answer(value);
        }
    }
    if (const Flag* flag = FindCommand(kFlags, iInfoCmd)) {
        bool value = false;
        const int code = (m_pHal->*flag->getter)(m_hDevice, value);
        return code == GC_ERR_SUCCESS ? answer(value) : AppendName(code);
    }
    return Device::GetInfo(iInfoCmd, piType, pBuffer, piSize);
}

int DeviceGev::SetInfo(int iInfoCmd, int iType, const void* pBuffer, std::size_t iSize)
{
    switch (iInfoCmd) {
        case kEndianessMechanism: {
            long mechanism = 0;
            if (const int code = m_info.GetInfo(iType, pBuffer, iSize, mechanism); code != GC_ERR_SUCCESS) {
                return code;
            }
            m_endianessMechanism = mechanism;
            if (m_pRemoteDevice != nullptr) {
                m_pRemoteDevice->SetEndianessMechanism(mechanism);
            }
            return GC_ERR_SUCCESS;
        }
        case DEVICE_INFO_ACCESS_STATUS:
            return GC_ERR_SUCCESS;  // taken, and without effect
        default:
            return Device::SetInfo(iInfoCmd, iType, pBuffer, iSize);
    }
}

int DeviceGev::GetPort(void** phRemoteDevice)
{
    if (phRemoteDevice == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "phRemoteDevice==nullptr");
    }
    if (m_pRemoteDevice == nullptr) {
        m_pRemoteDevice = std::make_unique<RemoteDeviceGev>(m_pHal, m_hDevice, m_capabilities,
                                                            m_endianessMechanism, m_portInfo, m_accessStatus);
    }
    // Earlier handles stay valid as long as the port.
    if (const int code = AllocateHandle(&m_hRemoteDevice, m_pRemoteDevice.get()); code != GC_ERR_SUCCESS) {
        return AppendName(code);
    }
    *phRemoteDevice = m_hRemoteDevice;
    return GC_ERR_SUCCESS;
}

int DeviceGev::GetNumDataStreams(unsigned int* piNumDataStreams)
{
    if (piNumDataStreams == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "piNumDataStreams==nullptr");
    }
    *piNumDataStreams = static_cast<unsigned int>(m_streams.size());
    return GC_ERR_SUCCESS;
}

int DeviceGev::GetDataStreamID(unsigned int iIndex, char* sDataStreamID, std::size_t* piSize)
{
    if (iIndex >= m_streams.size()) {
        return Raise(GC_ERR_INVALID_INDEX, "iIndex >= m_streams.size()");
    }
    if (piSize == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "piSize==nullptr");
    }
    const std::string id = std::to_string(iIndex);
    const std::size_t needed = id.size() + 1;
    if (sDataStreamID != nullptr) {
        if (*piSize < needed) {
            return Raise(GC_ERR_BUFFER_TOO_SMALL, "*piSize < minBufferSize");
        }
        std::memcpy(sDataStreamID, id.c_str(), needed);
    }
    *piSize = needed;
    return GC_ERR_SUCCESS;
}

int DeviceGev::OpenDataStream(const char* sDataStreamID, void** phDataStream)
{
    return OpenDataStream(sDataStreamID, phDataStream, nullptr);
}

int DeviceGev::OpenDataStream(const char* sDataStreamID, void** phDataStream, IHALGvsp* pHal)
{
    if (sDataStreamID == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "sDataStreamID==nullptr");
    }
    if (phDataStream == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "phDataStream==nullptr");
    }
    const bool isNumber = std::isdigit(static_cast<unsigned char>(sDataStreamID[0])) != 0;
    const auto index = isNumber ? static_cast<std::size_t>(std::strtol(sDataStreamID, nullptr, 10)) : 0;
    if (!isNumber || index >= m_streams.size()) {
        return Raise(GC_ERR_INVALID_ID, std::string(sDataStreamID) + " is not a valid ID");
    }
    IDataStream& stream = *m_streams[index];
    if (const int code = stream.Open(pHal); code != GC_ERR_SUCCESS) {
        return AppendName(code);
    }
    const int code = AllocateHandle(phDataStream, &stream);
    return code == GC_ERR_SUCCESS ? code : AppendName(code);
}

int DeviceGev::GetParentIF(void** phIface)
{
    if (phIface == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "phIface==nullptr");
    }
    *phIface = m_hParent;
    return GC_ERR_SUCCESS;
}

int DeviceGev::SendActionCommand(unsigned int iDeviceKey,
                                 unsigned int iGroupKey,
                                 unsigned int iGroupMask,
                                 unsigned long iActionTime)
{
    return m_pHal->SendActionCommand(m_hDevice, iDeviceKey, iGroupKey, iGroupMask, iActionTime);
}

}  // namespace GenTL
