#include "gentl/Camera.h"

#include "gentl/DescriptionSource.h"

namespace Tool {
namespace {

Handle OpenDevice(const Producer& producer, const CameraInfo& info, GenTL::DEVICE_ACCESS_FLAGS access)
{
    GenTL::DEV_HANDLE hDevice = nullptr;
    producer.Check(producer->IFOpenDevice(info.hInterface, info.id.c_str(), access, &hDevice), "IFOpenDevice",
                   "open the camera " + info.id);
    return Handle(hDevice, producer->DevClose);
}

}  // namespace

Camera::Camera(const Producer& producer, const CameraInfo& info, GenTL::DEVICE_ACCESS_FLAGS access)
    : m_producer(producer), m_hDevice(OpenDevice(producer, info, access))
{
    m_producer.Check(m_producer->DevGetPort(m_hDevice.get(), &m_hPort), "DevGetPort",
                     "get at the camera's registers");
    m_registers.emplace(m_producer, m_hPort);
}

std::string Camera::FetchDescription()
{
    return ReadDescription(m_producer, m_hPort, *m_registers);
}

bool Camera::IsConnected() const
{
    const auto value = m_producer.Info([this](auto* type, void* buffer, auto* size) {
        return m_producer->DevGetInfo(m_hDevice.get(), GenTL::DEVICE_INFO_IS_CONNECTED, type, buffer, size);
    });
    return !value || value->Number().value_or(1) != 0;  // other producers need not know the question
}

}  // namespace Tool
