#include "Consumer.h"

#include "LogConfigFile.h"

#include <arpa/inet.h>

#include <cstdio>
#include <stdexcept>

using namespace GenTL;

std::string Consumer::TakeError()
{
    int code = 0;
    std::size_t size = 0;
    if (GCGetLastError(&code, nullptr, &size) != GC_ERR_SUCCESS) {
        return "no error text";
    }
    std::string text(size, '\0');
    GCGetLastError(&code, text.data(), &size);
    return text.c_str();
}

void Consumer::Check(int code, const char* what)
{
    if (code != GC_ERR_SUCCESS) {
        throw std::runtime_error(std::string(what) + ": " + std::to_string(code) + "\n" + TakeError());
    }
}

Consumer::Consumer()
{
    WriteLogConfig();
    Check(GCInitLib(), "GCInitLib");
    Check(TLOpen(&m_hSystem), "TLOpen");
    Check(TLUpdateInterfaceList(m_hSystem, nullptr, 1), "TLUpdateInterfaceList");
}

Consumer::~Consumer()
{
    if (m_isStarted) {
        DSStopAcquisition(m_hStream, ACQ_STOP_FLAGS_DEFAULT);
    }
    CloseStream();
    CloseCamera();
    if (m_hInterface != nullptr) {
        IFClose(m_hInterface);
    }
    TLClose(m_hSystem);
    GCCloseLib();
}

void Consumer::OpenInterface(const std::string& hostAddress, std::uint64_t discoveryMs)
{
    in_addr address{};
    inet_pton(AF_INET, hostAddress.c_str(), &address);
    char id[16];
    snprintf(id, sizeof id, "0000%08x", ntohl(address.s_addr));
    Check(TLOpenInterface(m_hSystem, id, &m_hInterface), "TLOpenInterface");
    Check(IFUpdateDeviceList(m_hInterface, nullptr, discoveryMs), "IFUpdateDeviceList");
}

void Consumer::OpenCamera(const std::string& id, int flags)
{
    void* hDevice = nullptr;
    Check(IFOpenDevice(m_hInterface, id.c_str(), flags, &hDevice), "IFOpenDevice");
    m_hDevice = hDevice;
    Check(DevGetPort(m_hDevice, &m_hPort), "DevGetPort");
}

void Consumer::OpenStream(const char* id)
{
    Check(DevOpenDataStream(m_hDevice, id, &m_hStream), "DevOpenDataStream");
    Check(GCRegisterEvent(m_hStream, EVENT_NEW_BUFFER, &m_hEvent), "GCRegisterEvent");
}

void Consumer::Announce(int count, std::size_t size)
{
    for (int i = 0; i < count; ++i) {
        void* hBuffer = nullptr;
        Check(DSAllocAndAnnounceBuffer(m_hStream, size, nullptr, &hBuffer), "DSAllocAndAnnounceBuffer");
        m_buffers.push_back(hBuffer);
    }
}

void Consumer::QueueAll()
{
    for (void* hBuffer : m_buffers) {
        Queue(hBuffer);
    }
}

void Consumer::Queue(void* hBuffer)
{
    Check(DSQueueBuffer(m_hStream, hBuffer), "DSQueueBuffer");
}

void Consumer::Start()
{
    Check(DSStartAcquisition(m_hStream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE), "DSStartAcquisition");
    m_isStarted = true;
}

void Consumer::Stop()
{
    m_isStarted = false;
    Check(DSStopAcquisition(m_hStream, ACQ_STOP_FLAGS_DEFAULT), "DSStopAcquisition");
}

void Consumer::CloseStream()
{
    if (m_hStream == nullptr) {
        return;
    }
    GCUnregisterEvent(m_hStream, EVENT_NEW_BUFFER);
    DSFlushQueue(m_hStream, ACQ_QUEUE_ALL_DISCARD);
    for (void* hBuffer : m_buffers) {
        Check(DSRevokeBuffer(m_hStream, hBuffer, nullptr, nullptr), "DSRevokeBuffer");
    }
    m_buffers.clear();
    DSClose(m_hStream);
    m_hStream = nullptr;
}

void Consumer::CloseCamera()
{
    if (m_hDevice != nullptr) {
        DevClose(m_hDevice);
        m_hDevice = nullptr;
    }
}

// The camera's registers are big-endian, and the port hands them through as they lie there.
std::uint32_t Consumer::ReadRegister(std::uint64_t address)
{
    std::uint32_t value = 0;
    std::size_t size = sizeof value;
    Check(GCReadPort(m_hPort, address, &value, &size), "GCReadPort");
    return ntohl(value);
}

void Consumer::WriteRegister(std::uint64_t address, std::uint32_t value)
{
    const std::uint32_t wire = htonl(value);
    std::size_t size = sizeof wire;
    Check(GCWritePort(m_hPort, address, &wire, &size), "GCWritePort");
}

std::uint64_t Consumer::ReadMap(void* hPort, std::uint64_t address)
{
    std::uint64_t value = 0;
    std::size_t size = sizeof value;
    Check(GCReadPort(hPort, address, &value, &size), "GCReadPort");
    return value;
}

void Consumer::WriteMap(void* hPort, std::uint64_t address, std::uint64_t value)
{
    std::size_t size = sizeof value;
    Check(GCWritePort(hPort, address, &value, &size), "GCWritePort");
}

void* Consumer::NextImage(std::uint64_t timeoutMs)
{
    S_EVENT_NEW_BUFFER event{};
    std::size_t size = sizeof event;
    const int code = EventGetData(m_hEvent, &event, &size, timeoutMs);
    if (code == GC_ERR_TIMEOUT) {
        return nullptr;
    }
    Check(code, "EventGetData");
    return event.BufferHandle;
}
