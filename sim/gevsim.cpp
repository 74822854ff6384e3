#include "sim/Camera.h"
#include "sim/Network.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <ctime>
#include <exception>
#include <map>
#include <string>

namespace {

struct Options
{
    sim::Config config;
    sim::StreamFaults faults;
    sim::TcpFaults tcpFaults;
    std::string interface;
    std::string macAddress;
    double answerLoss = 0;
    std::uint32_t testEventMs = 0;
};

void AddPlaceAndIdentity(CLI::App& app, Options& options)
{
    sim::Config& config = options.config;
    app.add_option("--address", config.address,
                   "IPv4 address of the camera, which must stand on an interface");
    app.add_option("--interface", options.interface, "interface whose address the camera takes")
        ->excludes("--address");
    app.add_option("--netns", config.netns, "file of the network namespace to live in");
    app.add_option("--port", config.gvcpPort, "GVCP port")->capture_default_str();
    app.add_option("--mac", options.macAddress,
                   "MAC address as 12 hexadecimal digits; default: the interface's")
        ->check([](const std::string& text) {
            const bool good =
                text.size() == 12 && text.find_first_not_of("0123456789abcdefABCDEF") == text.npos;
            return good ? std::string() : "not 12 hexadecimal digits";
        });
    app.add_option("--vendor", config.vendor, "manufacturer name")->capture_default_str();
    app.add_option("--model", config.model, "model name")->capture_default_str();
    app.add_option("--serial", config.serialNumber, "serial number")->capture_default_str();
    app.add_option("--user-name", config.userName, "user-defined name");
    app.add_option("--heartbeat", config.heartbeatTimeout, "heartbeat time-out in ms")->capture_default_str();
}

void AddPicture(CLI::App& app, Options& options)
{
    const std::map<std::string, sim::PixelFormat> pixelFormats{
        {"Mono8",    sim::PixelFormat::Mono8   },
        {"Mono16",   sim::PixelFormat::Mono16  },
        {"BayerRG8", sim::PixelFormat::BayerRG8},
        {"RGB8",     sim::PixelFormat::RGB8    },
    };
    const std::map<std::string, sim::TestPattern> patterns{
        {"black", sim::TestPattern::Black      },
        {"rings", sim::TestPattern::MovingRings},
        {"noise", sim::TestPattern::MovingNoise},
    };
    const std::map<std::string, sim::ChunkMode> chunkModes{
        {"off",   sim::ChunkMode::Off           },
        {"image", sim::ChunkMode::ImageAndChunks},
        {"data",  sim::ChunkMode::ChunkData     },
    };
    sim::Config& config = options.config;
    app.add_option("--width", config.geometry.width, "columns")
        ->check(CLI::Range(1, 8192))
        ->capture_default_str();
    app.add_option("--height", config.geometry.height, "lines")
        ->check(CLI::Range(1, 8192))
        ->capture_default_str();
    app.add_option("--pixel-format", config.geometry.pixelFormat, "Mono8, Mono16, BayerRG8 or RGB8")
        ->transform(CLI::CheckedTransformer(pixelFormats, CLI::ignore_case));
    app.add_option("--pattern", config.pattern, "black, rings or noise")
        ->transform(CLI::CheckedTransformer(patterns, CLI::ignore_case));
    app.add_option("--chunks", config.chunkMode, "off, image (image with chunks) or data (chunk data)")
        ->transform(CLI::CheckedTransformer(chunkModes, CLI::ignore_case));
}

void AddStream(CLI::App& app, Options& options)
{
    sim::Config& config = options.config;
    app.add_option("--frame-rate", config.frameRate, "images a second; 0: as fast as they go")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    app.add_option("--frames", config.frameLimit, "images after which an acquisition ends; 0: no limit")
        ->capture_default_str();
    app.add_option("--packet-size", config.packetSize, "packet size until a receiver sets its own")
        ->check(CLI::Range(100, 65535))
        ->capture_default_str();
    app.add_option("--packet-delay", config.packetDelay, "nanoseconds between packets")
        ->capture_default_str();
    app.add_option(
        "--receiver-netns", config.receiverNet,
        "file of the receiver's network namespace: send only what its receive buffer has room for");
    app.add_flag("--extended-id", config.extendedId, "64-bit block ids");
}

void AddEvents(CLI::App& app, Options& options)
{
    app.add_flag("--events", options.config.eventNotifications, "all events on from the start");
    app.add_option("--event-data", options.config.eventDataSize, "bytes that come with an event")
        ->check(CLI::Range(0, 552))
        ->capture_default_str();
    app.add_option("--test-events", options.testEventMs, "ms between test events; 0: none of its own accord")
        ->check(CLI::Range(0, 3600000))
        ->capture_default_str();
}

void WaitForEnd(const sigset_t& signals, sim::Camera& camera, std::uint32_t testEventMs)
{
    if (testEventMs == 0) {
        int signal = 0;
        sigwait(&signals, &signal);
        return;
    }
    const timespec period{testEventMs / 1000, testEventMs % 1000 * 1000000L};
    while (sigtimedwait(&signals, nullptr, &period) < 0) {
        camera.SetRegister(sim::Feature::kTestEventGenerate, 1);
    }
}

void AddFaults(CLI::App& app, Options& options)
{
    sim::StreamFaults& faults = options.faults;
    const auto rate = [&app](const char* name, double& value, const char* what) {
        app.add_option(name, value, what)
            ->check(CLI::Range(0.0, 1.0))
            ->group("Faults, as probabilities from 0 to 1");
    };
    rate("--lose,--loss", faults.lose, "packets lost");
    rate("--duplicate", faults.duplicate, "packets sent twice");
    rate("--delay", faults.delay, "packets sent 20 ms late");
    rate("--reorder", faults.reorder, "packets sent behind the next three");
    rate("--truncate", faults.truncate, "packets cut short");
    rate("--bad-status", faults.badStatus, "packets with an error status");
    rate("--lose-answers", options.answerLoss, "answers to GVCP commands lost");
    app.add_option("--burst", faults.burst, "packets lost in a row")->check(CLI::Range(1, 1000));
    app.add_flag("--resends-too", faults.resendsToo, "resent packets meet the same faults");
    app.add_option("--seed", faults.seed, "seed of the faults")->capture_default_str();
}

void AddTcpFaults(CLI::App& app, Options& options)
{
    sim::TcpFaults& faults = options.tcpFaults;
    constexpr const char* kGroup = "Faults of the stream over TCP";
    const auto number = [&app](const char* name, auto& value, const char* what) {
        app.add_option(name, value, what)->group(kGroup);
    };
    app.add_flag("--tcp-refuse", faults.refuse, "nobody listens")->group(kGroup);
    number("--tcp-stall", faults.stallFrame, "stand still in the middle of the n-th frame of a connection");
    number("--tcp-stall-time", faults.stallMs, "for so many ms");
    number("--tcp-close", faults.closeFrame, "close the connection in the middle of its n-th frame");
    number("--tcp-width", faults.width, "columns that headers tell instead of the image's");
    number("--tcp-height", faults.height, "lines that headers tell instead of the image's");
    number("--tcp-piece", faults.pieceBytes, "send pieces of so many bytes");
    number("--tcp-piece-gap", faults.pieceGapUs, "with so many microseconds in between");
}

int Run(const Options& options)
{
    // Blocked in all threads, so that only the wait below gets them.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_BLOCK, &signals, nullptr);

    sim::Camera camera(options.config);
    camera.SetStreamFaults(options.faults);
    camera.SetTcpFaults(options.tcpFaults);
    camera.SetControlLossRate(options.answerLoss, options.faults.seed);
    camera.Start();
    std::printf("%s %s, serial number %s, listens at %s port %u\n", options.config.vendor.c_str(),
                options.config.model.c_str(), options.config.serialNumber.c_str(), camera.Address().c_str(),
                static_cast<unsigned>(options.config.gvcpPort));
    std::fflush(stdout);
    WaitForEnd(signals, camera, options.testEventMs);
    camera.Stop();
    const sim::Counters seen = camera.Seen();
    std::printf(
        "sent %llu images in %llu packets, %llu of them again, %llu lost by plan, %llu refused by the "
        "system\n",
        static_cast<unsigned long long>(seen.blocks), static_cast<unsigned long long>(seen.packets),
        static_cast<unsigned long long>(seen.resendPackets),
        static_cast<unsigned long long>(seen.packetsLost), static_cast<unsigned long long>(seen.sendErrors));
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app{"A simulated GigE Vision camera. Ends on SIGINT and SIGTERM."};
    Options options;
    options.config.address.clear();
    AddPlaceAndIdentity(app, options);
    AddPicture(app, options);
    AddStream(app, options);
    AddEvents(app, options);
    AddFaults(app, options);
    AddTcpFaults(app, options);
    CLI11_PARSE(app, argc, argv);
    try {
        if (!options.macAddress.empty()) {
            options.config.macAddress = std::stoull(options.macAddress, nullptr, 16);
        }
        if (options.config.address.empty()) {
            options.config.address = sim::AddressOfInterface(options.interface);
        }
        return Run(options);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "gevsim: %s\n", failure.what());
        return 1;
    }
}
