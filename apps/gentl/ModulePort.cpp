#include "gentl/ModulePort.h"

#include "gentl/DescriptionSource.h"
#include "gentl/Failure.h"

namespace Tool {
namespace {

const InterfaceInfo& ChooseInterface(const std::vector<InterfaceInfo>& interfaces, const ModuleChoice& choice)
{
    if (choice.interface.empty() && interfaces.size() == 1) {
        return interfaces.front();
    }
    const GenTL::IF_HANDLE wanted =
        choice.interface.empty() ? ChooseCamera(interfaces, choice.camera).hInterface : nullptr;
    for (const InterfaceInfo& interface : interfaces) {
        if (choice.interface.empty()
                ? interface.handle.get() == wanted
                : interface.id == choice.interface || interface.name == choice.interface) {
            return interface;
        }
    }
    throw Failure("there is no interface " + choice.interface, "\"gentl list\" shows what there is.");
}

}  // namespace

ModulePort::ModulePort(const Producer& producer, const ModuleChoice& choice)
    : m_producer(producer), m_hSystem(OpenSystem(producer)), m_hPort(Open(choice))
{
    m_registers.emplace(m_producer, m_hPort);
}

GenTL::PORT_HANDLE ModulePort::Open(const ModuleChoice& choice)
{
    if (choice.module == "tl") {
        return m_hSystem.get();
    }
    m_interfaces = Discover(m_producer, m_hSystem.get(), choice.discoveryMilliseconds);
    if (choice.module == "if") {
        return ChooseInterface(m_interfaces, choice).handle.get();
    }
    m_camera.emplace(m_producer, ChooseCamera(m_interfaces, choice.camera),
                     choice.forWriting ? GenTL::DEVICE_ACCESS_CONTROL : GenTL::DEVICE_ACCESS_READONLY);
    if (choice.module == "dev") {
        return m_camera->Device();
    }
    return choice.module == "ds" ? OpenStream() : m_camera->Port();
}

GenTL::PORT_HANDLE ModulePort::OpenStream()
{
    const GenTL::DEV_HANDLE hDevice = m_camera->Device();
    const std::string id = m_producer.Id(
        "DevGetDataStreamID", "ask for the camera's stream",
        [&](char* text, auto* size) { return m_producer->DevGetDataStreamID(hDevice, 0, text, size); });
    GenTL::DS_HANDLE hStream = nullptr;
    m_producer.Check(m_producer->DevOpenDataStream(hDevice, id.c_str(), &hStream), "DevOpenDataStream",
                     "open the camera's stream");
    m_hStream = Handle(hStream, m_producer->DSClose);
    return hStream;
}

std::string ModulePort::FetchDescription()
{
    return ReadDescription(m_producer, m_hPort, *m_registers);
}

}  // namespace Tool
