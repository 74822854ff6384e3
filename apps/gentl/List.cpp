#include "gentl/List.h"

#include "gentl/Discovery.h"
#include "gentl/ExitCode.h"
#include "gentl/Failure.h"
#include "gentl/Note.h"
#include "gentl/Table.h"

#include <iostream>

namespace Tool {
namespace {

void PrintCameras(const InterfaceInfo& interface)
{
    using Align = Table::Align;
    Table table(std::vector<Align>(6, Align::Left),
                {"vendor", "model", "serial number", "user name", "IP", "MAC"});
    for (const CameraInfo& camera : interface.cameras) {
        table.Add({camera.vendor, camera.model, camera.serialNumber, camera.userName, camera.ip, camera.mac});
    }
    table.Print(std::cout, "    ");
}

}  // namespace

int List(const Producer& producer, std::uint64_t discoveryMilliseconds)
{
    const Handle hSystem = OpenSystem(producer);
    std::size_t cameras = 0;
    const std::vector<InterfaceInfo> interfaces = Discover(producer, hSystem.get(), discoveryMilliseconds);
    for (const InterfaceInfo& interface : interfaces) {
        std::cout << interface.name << (interface.ip.empty() ? "" : ", IP " + interface.ip)
                  << (interface.mac.empty() ? "" : ", MAC " + interface.mac) << '\n';
        if (!interface.failure.empty()) {
            std::cout << "    can't be searched\n";
        } else if (interface.cameras.empty()) {
            std::cout << "    no camera\n";
        } else {
            PrintCameras(interface);
        }
        cameras += interface.cameras.size();
    }
    std::cout << std::flush;
    if (cameras == 0) {
        ChooseCamera(interfaces, {});  // which tells why, and what can be done
    }
    for (const InterfaceInfo& interface : interfaces) {
        if (!interface.failure.empty()) {
            Note(interface.failure);
        }
    }
    return ExitCode::kDone;
}

}  // namespace Tool
