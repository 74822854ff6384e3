#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace sim {

/// An open file descriptor; closes it.
class Descriptor
{
public:
    Descriptor() = default;
    explicit Descriptor(int fd) : m_fd(fd) {}
    Descriptor(Descriptor&& other) noexcept : m_fd(other.Release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        Reset(other.Release());
        return *this;
    }
    ~Descriptor() { Reset(); }

    int Get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }
    int Release();
    void Reset(int fd = -1);

private:
    int m_fd = -1;
};

/// Puts the calling thread into a network namespace, for good. Its sockets, and the processes that it starts,
/// belong there. \param netns file of the namespace; empty: stays. Throws std::system_error.
void EnterNamespace(const std::string& netns);

/// Runs `work` to its end on a thread of its own in the namespace; what `work` throws comes out of here.
void RunInNamespace(const std::string& netns, const std::function<void()>& work);

/// Puts the calling thread into a network namespace and back at the end of its scope.
class NamespaceScope
{
public:
    explicit NamespaceScope(const std::string& netns);
    ~NamespaceScope();
    NamespaceScope(const NamespaceScope&) = delete;
    NamespaceScope& operator=(const NamespaceScope&) = delete;

private:
    Descriptor m_before;
};

/// Two network namespaces, host and camera, joined by a cable (a veth pair) that carries from the start, each
/// with its loopback up.
///
/// Owns the namespaces, which have no name and leave nothing behind: they go when this object and the last
/// socket, thread and process in them have gone. Needs root or, as under `unshare --user --map-root-user
/// --net`, a user namespace in which the process may make network namespaces. The constructor throws
/// std::runtime_error or std::system_error.
class TestNet
{
public:
    struct Ends
    {
        std::string host = "192.168.77.1/24";
        std::string camera = "192.168.77.2/24";
        std::uint32_t hostMtu = 1500;
        std::uint32_t cameraMtu = 1500;
    };

    TestNet() : TestNet(Ends()) {}
    explicit TestNet(const Ends& ends);

    /// Files of the namespaces, of the form that setns, `nsenter --net=` and `Config::netns` take, valid in
    /// every process of this PID namespace while this object lives.
    const std::string& HostFile() const { return m_hostFile; }
    const std::string& CameraFile() const { return m_cameraFile; }
    /// The addresses without their prefix lengths.
    const std::string& HostAddress() const { return m_hostAddress; }
    const std::string& CameraAddress() const { return m_cameraAddress; }

    /// Runs a shell command in the host's or the camera's namespace; throws std::runtime_error if it fails.
    void RunOnHost(const std::string& command) const;
    void RunOnCamera(const std::string& command) const;

    /// Names of the ends of the cable.
    static constexpr const char* kHostInterface = "host0";
    static constexpr const char* kCameraInterface = "cam0";

private:
    Descriptor m_host;
    Descriptor m_camera;
    std::string m_hostFile;
    std::string m_cameraFile;
    std::string m_hostAddress;
    std::string m_cameraAddress;
};

}  // namespace sim
