/// Tells a camera to send images and to stop.
#pragma once

#include "gentl/Camera.h"
#include "gentl/Description.h"
#include "gentl/GrabOptions.h"

#include <cstdint>
#include <optional>
#include <string>

namespace Tool {

/// Owns what it has read of the camera's description; borrows the camera and the options.
class AcquisitionControl
{
public:
    /// Reads the description. Throws Failure when that can't be done and the options don't make up for it.
    AcquisitionControl(Camera& camera, const GrabOptions& options);

    /// Bytes of one image with all that belongs to it. Throws Failure.
    std::uint64_t PayloadSize();
    /// Sets what has to be set before the stream starts. Throws Failure.
    void Prepare();
    /// By the registers of the options, or else by the description. Throw Failure.
    void Start();
    void Stop();

    /// A number that the camera counts, or nothing when it has no such feature.
    std::optional<std::int64_t> Count(const std::string& feature);

private:
    std::string LoadDescription();
    void Lock(bool isLocked);

    Camera& m_camera;
    const GrabOptions& m_options;
    std::optional<Description> m_description;
};

}  // namespace Tool
