/// A simulated camera on a cable of its own, as the tests on the wire use it.
#pragma once

#include "Consumer.h"
#include "sim/Camera.h"
#include "sim/Picture.h"
#include "sim/TestNet.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <memory>

inline constexpr const char* kSerial = "SIM000001";
inline constexpr int kMissedImages = 1002;
inline constexpr int kMissedPackets = 1003;

inline std::size_t Entries(const char* directory)
{
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(directory)) {
        ++count;
    }
    return count;
}

/// Host and camera on a cable; the test's own thread lives on the host.
class Bench
{
public:
    explicit Bench(unsigned mtu = 1500) : m_net(Ends(mtu)), m_onHost(m_net.HostFile())
    {
        config.address = m_net.CameraAddress();
        config.netns = m_net.CameraFile();
        config.receiverNet = m_net.HostFile();
        config.serialNumber = kSerial;
        config.pattern = sim::TestPattern::MovingNoise;
        config.frameRate = 0;
        config.packetDelay = 0;
    }

    sim::Camera& StartCamera()
    {
        m_camera = std::make_unique<sim::Camera>(config);
        m_camera->Start();
        return *m_camera;
    }
    const sim::TestNet& Net() const { return m_net; }

    sim::Config config;

private:
    static sim::TestNet::Ends Ends(unsigned mtu)
    {
        sim::TestNet::Ends ends;
        ends.hostMtu = mtu;
        ends.cameraMtu = mtu;
        return ends;
    }

    sim::TestNet m_net;
    sim::NamespaceScope m_onHost;
    std::unique_ptr<sim::Camera> m_camera;
};

inline void OpenUpToStream(
    Consumer& consumer, const Bench& bench, int buffers, std::size_t size, const char* stream = "0")
{
    consumer.OpenInterface(bench.Net().HostAddress());
    consumer.OpenCamera(kSerial);
    consumer.OpenStream(stream);
    consumer.Announce(buffers, size);
    consumer.QueueAll();
}

inline void EnableAutoPacketSize(const Consumer& consumer)
{
    Consumer::WriteMap(consumer.Stream(), 0x2100, 1);
}

inline void StartCameraAcquisition(Consumer& consumer)
{
    consumer.WriteRegister(sim::Feature::kAcquisitionStart, 1);
}
/// Images go out for the asking, so many at once. With one more for each that was fetched and queued again
/// there is always a free buffer, however slow the machine makes the consumer.
inline void StartTriggered(Consumer& consumer, sim::Camera& camera, unsigned images)
{
    consumer.WriteRegister(sim::Feature::kTriggerMode, 1);
    StartCameraAcquisition(consumer);
    camera.Trigger(images);
}
/// Before the start: an image is not given up before ms.
inline void ExpireAfter(const Consumer& consumer, unsigned long ms)
{
    Consumer::Check(GenTL::DSSetupResendRetryParams(consumer.Stream(), ms, 1000, "", ""), "retries");
}
inline void StopCameraAcquisition(Consumer& consumer)
{
    consumer.WriteRegister(sim::Feature::kAcquisitionStop, 1);
}

/// The next image, which is to be this block, whole, with every byte as the camera sends it.
inline void* NextWholeImage(Consumer& consumer, const sim::Camera& camera, std::uint64_t block)
{
    void* hBuffer = consumer.NextImage(10000);
    EXPECT_NE(nullptr, hBuffer) << "image " << block;
    if (hBuffer != nullptr) {
        EXPECT_EQ(block, consumer.BufferInfo<std::uint64_t>(hBuffer, GenTL::BUFFER_INFO_FRAMEID));
        EXPECT_FALSE(consumer.BufferInfo<bool>(hBuffer, GenTL::BUFFER_INFO_IS_INCOMPLETE))
            << "image " << block;
        const auto picture = camera.CurrentPicture();
        const auto filled = consumer.BufferInfo<std::uint64_t>(hBuffer, GenTL::BUFFER_INFO_SIZE_FILLED);
        EXPECT_EQ(picture->PayloadBytes(), filled);
        const void* data = consumer.BufferInfo<void*>(hBuffer, GenTL::BUFFER_INFO_BASE);
        EXPECT_EQ(sim::Picture::kNoMismatch, picture->FindMismatch(block, data, filled)) << "image " << block;
    }
    return hBuffer;
}
