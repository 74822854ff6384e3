/// An open camera.
#pragma once

#include "gentl/Discovery.h"
#include "gentl/RegisterAccess.h"

#include <optional>
#include <string>

namespace Tool {

/// Owns the camera's handle. Borrows the producer and the interface behind which the camera is.
class Camera
{
public:
    /// Opens with control, so that no other program can change the camera, unless told otherwise. Throws
    /// Failure.
    Camera(const Producer& producer,
           const CameraInfo& info,
           GenTL::DEVICE_ACCESS_FLAGS access = GenTL::DEVICE_ACCESS_CONTROL);

    GenTL::DEV_HANDLE Device() const { return m_hDevice.get(); }
    GenTL::PORT_HANDLE Port() const { return m_hPort; }
    RegisterAccess& Registers() { return *m_registers; }
    /// What the camera itself has as its description, perhaps zipped. Throws Failure.
    std::string FetchDescription();
    /// False when the producer says that it has lost the camera.
    bool IsConnected() const;

private:
    const Producer& m_producer;
    Handle m_hDevice;
    GenTL::PORT_HANDLE m_hPort = nullptr;
    std::optional<RegisterAccess> m_registers;
};

}  // namespace Tool
