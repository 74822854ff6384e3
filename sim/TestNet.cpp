#include "sim/TestNet.h"

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace sim {
namespace {

// That of the calling thread, not of the process.
constexpr const char* kOwnNamespace = "/proc/thread-self/ns/net";

[[noreturn]] void ThrowErrno(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

Descriptor OpenNamespace(const std::string& netns)
{
    Descriptor file(open(netns.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) {
        ThrowErrno(netns);
    }
    return file;
}

void Enter(const Descriptor& netns, const std::string& name)
{
    if (setns(netns.Get(), CLONE_NEWNET) != 0) {
        ThrowErrno("setns " + name);
    }
}

void Shell(const std::string& command)
{
    if (std::system(command.c_str()) != 0) {
        throw std::runtime_error("failed: " + command);
    }
}

/// Makes a namespace and hands out the only thing that keeps it.
Descriptor MakeNamespace()
{
    Descriptor made;
    RunInNamespace("", [&made] {
        if (unshare(CLONE_NEWNET) != 0) {
            ThrowErrno("unshare");
        }
        made = OpenNamespace(kOwnNamespace);
    });
    return made;
}

std::string FileOf(const Descriptor& netns)
{
    return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(netns.Get());
}

void RunShellIn(const std::string& netns, const std::string& command)
{
    RunInNamespace(netns, [&command] { Shell(command); });
}

std::string SetUp(const std::string& interface, const std::string& address, std::uint32_t mtu)
{
    return "ip link set lo up && ip address add " + address + " dev " + interface + " && ip link set " +
           interface + " mtu " + std::to_string(mtu) + " up";
}

/// An end that is up drops what it is to send until the kernel has noticed, some time later, that the other
/// is up.
std::string AwaitCable(const std::string& interface)
{
    return "for i in $(seq 250); do ip link show dev " + interface +
           " | grep -q 'state UP' && exit 0; sleep 0.02; done; exit 1";
}

}  // namespace

int Descriptor::Release()
{
    const int fd = m_fd;
    m_fd = -1;
    return fd;
}

void Descriptor::Reset(int fd)
{
    if (m_fd >= 0) {
        close(m_fd);
    }
    m_fd = fd;
}

void EnterNamespace(const std::string& netns)
{
    if (!netns.empty()) {
        Enter(OpenNamespace(netns), netns);
    }
}

void RunInNamespace(const std::string& netns, const std::function<void()>& work)
{
    std::exception_ptr failure;
    std::thread([&] {
        try {
            EnterNamespace(netns);
            work();
        } catch (...) {
            failure = std::current_exception();
        }
    }).join();
    if (failure) {
        std::rethrow_exception(failure);
    }
}

NamespaceScope::NamespaceScope(const std::string& netns) : m_before(OpenNamespace(kOwnNamespace))
{
    EnterNamespace(netns);
}

NamespaceScope::~NamespaceScope()
{
    if (setns(m_before.Get(), CLONE_NEWNET) != 0) {
        std::abort();  // to go on in the wrong network would make nonsense of whatever is tested
    }
}

TestNet::TestNet(const Ends& ends)
    : m_host(MakeNamespace()),
      m_camera(MakeNamespace()),
      m_hostFile(FileOf(m_host)),
      m_cameraFile(FileOf(m_camera)),
      m_hostAddress(ends.host.substr(0, ends.host.find('/'))),
      m_cameraAddress(ends.camera.substr(0, ends.camera.find('/')))
{
    RunOnHost(std::string("ip link add ") + kHostInterface + " type veth peer name " + kCameraInterface +
              " netns " + m_cameraFile);
    RunOnHost(SetUp(kHostInterface, ends.host, ends.hostMtu));
    RunOnCamera(SetUp(kCameraInterface, ends.camera, ends.cameraMtu));
    RunOnHost(AwaitCable(kHostInterface));
    RunOnCamera(AwaitCable(kCameraInterface));
}

void TestNet::RunOnHost(const std::string& command) const
{
    RunShellIn(m_hostFile, command);
}

void TestNet::RunOnCamera(const std::string& command) const
{
    RunShellIn(m_cameraFile, command);
}

}  // namespace sim
