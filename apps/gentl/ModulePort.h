/// The port of one module of the tree, with all that must be open to reach it.
#pragma once

#include "gentl/Camera.h"
#include "gentl/Discovery.h"
#include "gentl/RegisterAccess.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Tool {

/// Which module's features are meant, and how it is found.
struct ModuleChoice
{
    std::string module = "camera";  ///< tl, if, dev, ds or camera
    std::string camera;             ///< as for ChooseCamera
    std::string interface;          ///< ID or name; empty: the one with the camera
    std::uint64_t discoveryMilliseconds = 1000;
    bool forWriting = false;  ///< opens the camera with control
};

/// Owns the handles from the system down to the module. Borrows the producer.
class ModulePort
{
public:
    /// Opens what is needed, looking for cameras unless the system is meant. Throws Failure.
    ModulePort(const Producer& producer, const ModuleChoice& choice);

    IRegisterPort& Registers() { return *m_registers; }
    /// The module's description as it has it, perhaps zipped. Throws Failure.
    std::string FetchDescription();

private:
    GenTL::PORT_HANDLE Open(const ModuleChoice& choice);
    GenTL::PORT_HANDLE OpenStream();

    const Producer& m_producer;
    Handle m_hSystem;
    std::vector<InterfaceInfo> m_interfaces;
    std::optional<Camera> m_camera;
    Handle m_hStream{nullptr, nullptr};
    GenTL::PORT_HANDLE m_hPort;
    std::optional<RegisterAccess> m_registers;
};

}  // namespace Tool
