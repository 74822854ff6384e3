/// A GenTL consumer for tests, on the library's functions.
#pragma once

#include "frame/GenTL.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// Opens the tree down to a stream step by step, and closes what is open in reverse order. A step that fails
/// throws std::runtime_error with the error stack. Lives in the network namespace of the thread that calls.
class Consumer
{
public:
    Consumer();
    Consumer(const Consumer&) = delete;
    Consumer& operator=(const Consumer&) = delete;
    ~Consumer();

    /// By the host's address on it; then finds the cameras behind it.
    void OpenInterface(const std::string& hostAddress, std::uint64_t discoveryMs = 300);
    void OpenCamera(const std::string& id, int flags = GenTL::DEVICE_ACCESS_CONTROL);
    /// By its ID: "0" over UDP, "1" over TCP.
    void OpenStream(const char* id = "0");
    /// Memory of the library's.
    void Announce(int count, std::size_t size);
    void QueueAll();
    void Start();
    void Stop();
    void CloseStream();
    void CloseCamera();

    std::uint32_t ReadRegister(std::uint64_t address);
    void WriteRegister(std::uint64_t address, std::uint32_t value);

    /// A register of a module's own map, through its port.
    static std::uint64_t ReadMap(void* hPort, std::uint64_t address);
    static void WriteMap(void* hPort, std::uint64_t address, std::uint64_t value);

    /// The next image, null after the time-out.
    void* NextImage(std::uint64_t timeoutMs);
    void Queue(void* hBuffer);

    template <typename T>
    T BufferInfo(void* hBuffer, int command) const
    {
        return Info<T>([&](int* type, void* value, std::size_t* size) {
            return GenTL::DSGetBufferInfo(m_hStream, hBuffer, command, type, value, size);
        });
    }
    template <typename T>
    T StreamInfo(int command) const
    {
        return Info<T>([&](int* type, void* value, std::size_t* size) {
            return GenTL::DSGetInfo(m_hStream, command, type, value, size);
        });
    }
    template <typename T>
    T DeviceInfo(int command) const
    {
        return Info<T>([&](int* type, void* value, std::size_t* size) {
            return GenTL::DevGetInfo(m_hDevice, command, type, value, size);
        });
    }

    void* System() const { return m_hSystem; }
    void* Interface() const { return m_hInterface; }
    void* Device() const { return m_hDevice; }
    void* Port() const { return m_hPort; }
    void* Stream() const { return m_hStream; }
    const std::vector<void*>& Buffers() const { return m_buffers; }

    /// The error stack of this thread, which is then gone.
    static std::string TakeError();
    /// Throws with the error stack when code isn't 0.
    static void Check(int code, const char* what);

private:
    template <typename T, typename Getter>
    static T Info(Getter get)
    {
        T value{};
        std::size_t size = sizeof value;
        int type = 0;
        Check(get(&type, &value, &size), "info");
        return value;
    }

    void* m_hSystem = nullptr;
    void* m_hInterface = nullptr;
    void* m_hDevice = nullptr;
    void* m_hPort = nullptr;
    void* m_hStream = nullptr;
    void* m_hEvent = nullptr;
    bool m_isStarted = false;
    std::vector<void*> m_buffers;
};
