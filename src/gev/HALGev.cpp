#include "gev/HALGev.h"

#include "frame/Error.h"
#include "gev/GvcpCommand.h"
#include "log/HLogger.h"
#include "log/localization.h"

#include <boost/thread/lock_guard.hpp>

#include <arpa/inet.h>

#include <algorithm>
#include <new>
#include <utility>

namespace GenTL {
namespace {

constexpr int kFirstTimeoutMs = 200;

/// The camera's current address as text.
std::string AddressText(const DiscoveryRecord& record)
{
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &record[RecordField::kIpAddress], text, sizeof text);
    return text;
}

std::unique_ptr<DeviceHandle> MakeDeviceHandle()
{
    auto device = std::make_unique<DeviceHandle>();
    device->m_pSocket = std::make_unique<CommSocket>();
    return device;
}

/// The device's ids go on from where the adapter's stopped.
void TakeOverRequestId(AdapterHandle& adapter, DeviceHandle& device)
{
    const boost::lock_guard<boost::mutex> adapterLock(adapter.m_requestIdMutex);
    const boost::lock_guard<boost::mutex> deviceLock(device.m_requestIdMutex);
    device.m_requestId = adapter.m_requestId;
}

}  // namespace

std::uint16_t GetReqID(BaseHandle* handle)
{
    const boost::lock_guard<boost::mutex> lock(handle->m_requestIdMutex);
    if (++handle->m_requestId == 0) {
        ++handle->m_requestId;
    }
    return handle->m_requestId;
}

void HALGev::Dispose(IHALGev*& pHal)
{
    IHALGev* const given = std::exchange(pHal, nullptr);
    if (auto* const hal = dynamic_cast<HALGev*>(given)) {
        const std::lock_guard<std::mutex> lock(hal->m_lifeMutex);
        hal->m_isDisposed = true;
        if (hal->m_openDevices != 0) {
            return;
        }
    }
    delete given;
}

int HALGev::OpenDevice(void* adapterHandle, const std::string& deviceId, void** deviceHandle)
{
    if (adapterHandle == nullptr) {
        return Store(GC_ERR_INVALID_HANDLE);
    }
    AdapterHandle& adapter = *ToAdapter(adapterHandle);
    DeviceData row;
    {
        const boost::lock_guard<boost::mutex> lock(adapter.m_devicesMutex);
        const auto found = std::find_if(adapter.m_devices.begin(), adapter.m_devices.end(),
                                        [&](const DeviceData& data) { return data.m_deviceId == deviceId; });
        if (found == adapter.m_devices.end()) {
            return Store(GC_ERR_INVALID_ID);
        }
        row = *found;
    }

    std::unique_ptr<DeviceHandle> device;
    try {
        device = MakeDeviceHandle();
    } catch (const std::bad_alloc& e) {
        HLogger::Error(loc::al("GenTL::HALGev::OpenDevice bad_alloc caught: {0}", {e.what()}).c_str());
        return Store(GC_ERR_OUT_OF_MEMORY);
    }
    const int code = device->m_pSocket->OpenAndBindSocket(row.m_adapterAddress, AddressText(row.m_record),
                                                          kGvcpPort, false, kFirstTimeoutMs);
    if (code != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGev::OpenDevice failed to open and bind socket", code);
        return Append(GC_ERR_IO,
                      "GenTL::HALGev::OpenDevice failed to open and bind socket: " + std::to_string(code));
    }
    device->m_id = deviceId;
    device->m_record = row.m_record;
    TakeOverRequestId(adapter, *device);
    {
        const std::lock_guard<std::mutex> lock(m_lifeMutex);
        ++m_openDevices;
    }
    *deviceHandle = ToHandle(device.release());
    return GC_ERR_SUCCESS;
}

int HALGev::CloseDevice(void* deviceHandle)
{
    if (deviceHandle == nullptr) {
        return Store(GC_ERR_INVALID_HANDLE);
    }
    const std::unique_ptr<DeviceHandle> device(ToDevice(deviceHandle));
    const int code = device->m_pSocket->Close();
    bool isLastOfDisposed = false;
    {
        const std::lock_guard<std::mutex> lock(m_lifeMutex);
        isLastOfDisposed = --m_openDevices == 0 && m_isDisposed;
    }
    if (isLastOfDisposed) {
        delete this;
    }
    return code;
}

int HALGev::SetDeviceTimeout(void* deviceHandle, int ms)
{
    if (deviceHandle == nullptr) {
        return Store(GC_ERR_INVALID_HANDLE);
    }
    int previous = 0;
    const int code = ToDevice(deviceHandle)->m_pSocket->SetTimeout(ms, previous);
    if (code != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGev::SetDeviceTimeout failed", code);
    }
    return code;
}

int HALGev::GetPort(void* handle, unsigned short& port)
{
    if (handle == nullptr) {
        return Store(GC_ERR_INVALID_HANDLE);
    }
    port = ntohs(ToBase(handle)->m_pSocket->LocalAddress().sin_port);
    return GC_ERR_SUCCESS;
}

int HALGev::GetDevPort(void* handle, unsigned short& port)
{
    if (handle == nullptr) {
        return Store(GC_ERR_INVALID_HANDLE);
    }
    port = ntohs(ToBase(handle)->m_pSocket->RemoteAddress().sin_port);
    return GC_ERR_SUCCESS;
}

int HALGev::IsConnected(void* adapterHandle, const std::string& /*deviceId*/, bool& /*isConnected*/)
{
    return Store(adapterHandle == nullptr ? GC_ERR_INVALID_HANDLE : GC_ERR_NOT_AVAILABLE);
}

int HALGev::IsConnected(void* deviceHandle, bool& isConnected)
{
    if (deviceHandle == nullptr) {
        return Store(GC_ERR_INVALID_HANDLE);
    }
    DeviceHandle& device = *ToDevice(deviceHandle);
    const boost::lock_guard<boost::mutex> lock(device.m_connectionMutex);
    isConnected = device.m_isConnected;
    return GC_ERR_SUCCESS;
}

int HALGev::SetConnected(void* deviceHandle, bool isConnected)
{
    if (deviceHandle == nullptr) {
        return Store(GC_ERR_INVALID_HANDLE);
    }
    DeviceHandle& device = *ToDevice(deviceHandle);
    const boost::lock_guard<boost::mutex> lock(device.m_connectionMutex);
    device.m_isConnected = isConnected;
    return GC_ERR_SUCCESS;
}

int HALGev::CloseSocket(void* handle)
{
    if (handle == nullptr) {
        return Store(GC_ERR_INVALID_HANDLE);
    }
    return ToBase(handle)->m_pSocket->Close();
}

}  // namespace GenTL
