#include "gentl/Discovery.h"

#include "gentl/Failure.h"
#include "gentl/Numbers.h"

#include <strings.h>

#include <algorithm>
#include <optional>

namespace Tool {
namespace {

constexpr std::uint64_t kInterfaceListMilliseconds = 1000;

std::string TextOf(const std::optional<InfoValue>& value)
{
    return value ? value->Text().value_or(std::string()) : std::string();
}

/// Empty when the producer doesn't know the address.
std::string AddressOf(const std::optional<InfoValue>& value, std::string (*text)(std::uint64_t))
{
    const std::uint64_t address = value ? value->Number().value_or(0) : 0;
    return address == 0 ? std::string() : text(address);
}

CameraInfo DescribeCamera(const Producer& producer, GenTL::IF_HANDLE hInterface, const std::string& id)
{
    const auto ask = [&](GenTL::DEVICE_INFO_CMD command) {
        return producer.Info([&](auto* type, void* buffer, auto* size) {
            return producer->IFGetDeviceInfo(hInterface, id.c_str(), command, type, buffer, size);
        });
    };
    CameraInfo camera;
    camera.hInterface = hInterface;
    camera.id = id;
    camera.vendor = TextOf(ask(GenTL::DEVICE_INFO_VENDOR));
    camera.model = TextOf(ask(GenTL::DEVICE_INFO_MODEL));
    camera.serialNumber = TextOf(ask(GenTL::DEVICE_INFO_SERIAL_NUMBER));
    camera.userName = TextOf(ask(GenTL::DEVICE_INFO_USER_DEFINED_NAME));
    camera.ip = AddressOf(ask(GenTL::DEVICE_INFO_GEV_IP_ADDRESS), IpText);
    camera.mac = AddressOf(ask(GenTL::DEVICE_INFO_GEV_MAC_ADDRESS), MacText);
    return camera;
}

void DescribeInterface(const Producer& producer, GenTL::IF_HANDLE hInterface, InterfaceInfo& interface)
{
    const auto ask = [&](GenTL::INTERFACE_INFO_CMD command) {
        return producer.Info([&](auto* type, void* buffer, auto* size) {
            return producer->IFGetInfo(hInterface, command, type, buffer, size);
        });
    };
    interface.name = TextOf(ask(GenTL::INTERFACE_INFO_DISPLAYNAME));
    interface.ip = AddressOf(ask(GenTL::INTERFACE_INFO_GEV_SUBNET_IP_ADDRESS), IpText);
    interface.mac = AddressOf(ask(GenTL::INTERFACE_INFO_GEV_MAC_ADDRESS), MacText);
}

Handle OpenInterface(const Producer& producer, GenTL::TL_HANDLE hSystem, const std::string& id)
{
    GenTL::IF_HANDLE hInterface = nullptr;
    producer.Check(producer->TLOpenInterface(hSystem, id.c_str(), &hInterface), "TLOpenInterface",
                   "open the interface " + id);
    return Handle(hInterface, producer->IFClose);
}

void FindCameras(const Producer& producer, GenTL::IF_HANDLE hInterface, std::uint64_t milliseconds)
{
    producer.Check(producer->IFUpdateDeviceList(hInterface, nullptr, milliseconds), "IFUpdateDeviceList",
                   "look for cameras");
}

InterfaceInfo Search(const Producer& producer,
                     GenTL::TL_HANDLE hSystem,
                     const std::string& id,
                     std::uint64_t milliseconds)
{
    InterfaceInfo interface;
    interface.id = id;
    interface.name = id;
    try {
        interface.handle = OpenInterface(producer, hSystem, id);
        const GenTL::IF_HANDLE hInterface = interface.handle.get();
        DescribeInterface(producer, hInterface, interface);
        FindCameras(producer, hInterface, milliseconds);
        std::uint32_t count = 0;
        producer.Check(producer->IFGetNumDevices(hInterface, &count), "IFGetNumDevices", "count the cameras");
        for (std::uint32_t i = 0; i < count; ++i) {
            const std::string camera = producer.Id(
                "IFGetDeviceID", "ask for a camera's ID",
                [&](char* text, auto* size) { return producer->IFGetDeviceID(hInterface, i, text, size); });
            interface.cameras.push_back(DescribeCamera(producer, hInterface, camera));
        }
    } catch (const Failure& failure) {
        interface.failure = failure.Report();
    }
    return interface;
}

bool Matches(const CameraInfo& camera, const std::string& wanted)
{
    const std::string* fields[] = {&camera.id, &camera.serialNumber, &camera.userName,
                                   &camera.ip, &camera.mac,          &camera.model};
    return std::any_of(std::begin(fields), std::end(fields), [&wanted](const std::string* field) {
        return ::strcasecmp(field->c_str(), wanted.c_str()) == 0;
    });
}

/// A camera that two interfaces see is one.
bool IsSame(const CameraInfo& a, const CameraInfo& b)
{
    return a.id == b.id && a.mac == b.mac;
}

std::string LineOf(const CameraInfo& camera)
{
    return camera.model + ", serial number " + camera.serialNumber + ", " + camera.ip;
}

}  // namespace

Handle OpenSystem(const Producer& producer)
{
    GenTL::TL_HANDLE hSystem = nullptr;
    producer.Check(producer->TLOpen(&hSystem), "TLOpen", "open the producer's system module");
    return Handle(hSystem, producer->TLClose);
}

std::vector<InterfaceInfo> Discover(const Producer& producer,
                                    GenTL::TL_HANDLE hSystem,
                                    std::uint64_t milliseconds)
{
    producer.Check(producer->TLUpdateInterfaceList(hSystem, nullptr, kInterfaceListMilliseconds),
                   "TLUpdateInterfaceList", "list the network interfaces");
    std::uint32_t count = 0;
    producer.Check(producer->TLGetNumInterfaces(hSystem, &count), "TLGetNumInterfaces",
                   "count the network interfaces");
    std::vector<InterfaceInfo> interfaces;
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::string id = producer.Id(
            "TLGetInterfaceID", "ask for an interface's ID",
            [&](char* text, auto* size) { return producer->TLGetInterfaceID(hSystem, i, text, size); });
        interfaces.push_back(Search(producer, hSystem, id, milliseconds));
    }
    return interfaces;
}

const CameraInfo& ChooseCamera(const std::vector<InterfaceInfo>& interfaces, const std::string& wanted)
{
    if (interfaces.empty()) {
        throw Failure("the producer sees no network interface",
                      "Bring one up and give it an address (`ip addr`), and try `gentl list`.");
    }
    std::vector<const CameraInfo*> matches;
    std::string present;
    std::string failures;
    for (const InterfaceInfo& interface : interfaces) {
        failures += interface.failure.empty() ? "" : interface.failure + "\n";
        for (const CameraInfo& camera : interface.cameras) {
            present += LineOf(camera) + "\n";
            const bool isKnown =
                std::any_of(matches.begin(), matches.end(),
                            [&camera](const CameraInfo* match) { return IsSame(*match, camera); });
            if (!isKnown && (wanted.empty() || Matches(camera, wanted))) {
                matches.push_back(&camera);
            }
        }
    }
    if (matches.empty()) {
        throw Failure(
            wanted.empty() || present.empty() ? "no camera answered" : "no camera answers to " + wanted,
            present.empty() ? "Check the camera's power and cable, that host and camera have addresses in "
                              "one subnet, and that the firewall passes UDP port 3956; a longer "
                              "--discovery-time may help too."
                            : "Name one of these by its serial number, user name, IP or MAC address.",
            present + failures);
    }
    if (matches.size() > 1) {
        throw Failure(wanted.empty() ? "there are several cameras" : "several cameras answer to " + wanted,
                      "Name one with -c by its serial number, user name, IP or MAC address.", present);
    }
    return *matches.front();
}

}  // namespace Tool
