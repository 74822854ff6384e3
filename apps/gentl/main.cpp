/// A GenTL Consumer for the command line: lists cameras, grabs images, shows events, sets features, shows the
/// log.
#include "gentl/Events.h"
#include "gentl/ExitCode.h"
#include "gentl/Failure.h"
#include "gentl/Features.h"
#include "gentl/Grab.h"
#include "gentl/Interrupt.h"
#include "gentl/List.h"
#include "gentl/Log.h"
#include "gentl/Note.h"
#include "gentl/Producer.h"
#include "gentl/ProducerPath.h"

#include <CLI/CLI.hpp>

#include <exception>
#include <string>
#include <vector>

namespace {

constexpr char kExitCodes[] =
    "Exit codes: 0 done, 1 failed, 2 wrong command line, 3 images incomplete or lost, 130 interrupted.";

struct CommandLine
{
    std::string producer;
    std::uint64_t discoveryMilliseconds = 1000;
    Tool::GrabOptions grab;
    std::vector<std::string> startRegisters;
    std::vector<std::string> stopRegisters;
    Tool::EventsOptions events;
    bool initLog = false;
    Tool::ModuleChoice module;
    std::vector<std::string> requests;
    std::string xmlFile;
};

void AddProducer(CLI::App& command, CommandLine& line)
{
    command
        .add_option("--producer", line.producer,
                    "GenTL Producer to load: a path, or a name in the folders of GENICAM_GENTL64_PATH; else "
                    "the library that belongs to this program")
        ->type_name("FILE");
    command
        .add_option("--discovery-time", line.discoveryMilliseconds,
                    "Wait so long for cameras to answer, per interface")
        ->type_name("MS")
        ->check(CLI::Range(1, 60000))
        ->capture_default_str();
}

void AddGrab(CLI::App& command, CommandLine& line)
{
    Tool::GrabOptions& grab = line.grab;
    command.add_option("-c,--camera", grab.camera,
                       "Serial number, user name, IP, MAC or model; needed if there are several");
    command.add_option("--stream", grab.stream, "Stream to receive by: 0 over UDP, 1 over TCP")
        ->capture_default_str();
    command.add_option("-n,--count", grab.count, "Images to receive; 0: until Ctrl-C")->capture_default_str();
    command.add_option("-o,--output", grab.folder, "Write the images to this folder, as PNG")
        ->type_name("DIR");
    command.add_flag("--raw", grab.isRaw, "Write the bytes as they come instead of PNG")->needs("--output");
    command
        .add_option("--start-register", line.startRegisters,
                    "Start the camera by writing the value V to the 32-bit register A; may be repeated")
        ->type_name("A=V")
        ->allow_extra_args(false);
    command.add_option("--stop-register", line.stopRegisters, "Stop the camera likewise")
        ->type_name("A=V")
        ->allow_extra_args(false);
    command
        .add_option("--payload-size", grab.payloadSize, "Size of an image, instead of what the camera says")
        ->type_name("BYTES");
    command
        .add_option("--packet-size", grab.packetSize,
                    "Size of the camera's packets, IP and UDP headers included; stays set in the camera")
        ->type_name("BYTES")
        ->check(CLI::Range(46, 65535));
    command
        .add_option("--description", grab.descriptionFile, "Read the camera's description from this XML file")
        ->type_name("FILE")
        ->check(CLI::ExistingFile);
    command
        .add_option("--save-description", grab.saveDescription, "Save the camera's own description, as it is")
        ->type_name("FILE");
    command.add_flag("--resend", grab.resend, "Have packets that get lost on the way sent again");
    command.add_option("--buffers", grab.buffers, "Number of image buffers")->check(CLI::Range(1, 100000));
    command.add_option("--timeout", grab.imageMilliseconds, "Fail after so long without an image; 0: never")
        ->type_name("MS")
        ->capture_default_str();
}

void AddEvents(CLI::App& command, CommandLine& line)
{
    Tool::EventsOptions& events = line.events;
    command.add_option("-c,--camera", events.camera,
                       "Serial number, user name, IP, MAC or model; needed if there are several");
    command.add_option("-n,--count", events.count, "Events to wait for; 0: until Ctrl-C")
        ->capture_default_str();
    command
        .add_option("--timeout", events.eventMilliseconds, "Fail after so long without an event; 0: never")
        ->type_name("MS")
        ->capture_default_str();
    command
        .add_option("settings", events.settings,
                    "Features to write in this order before waiting, such as EventSelector=ExposureEnd "
                    "EventNotification=On; a command runs with any value")
        ->type_name("NAME=VALUE");
}

void AddModule(CLI::App& command, CommandLine& line)
{
    command
        .add_option("-m,--module", line.module.module,
                    "System (tl), interface (if), device (dev) or stream (ds) of the producer, or the camera")
        ->check(CLI::IsMember({"tl", "if", "dev", "ds", "camera"}))
        ->capture_default_str();
    command.add_option("-c,--camera", line.module.camera,
                       "Serial number, user name, IP, MAC or model; needed if there are several");
    command.add_option("-i,--interface", line.module.interface,
                       "ID or name of the interface; else the one with the camera");
}

int Perform(const CLI::App& app, CommandLine& line)
{
    if (app.got_subcommand("log")) {
        return line.initLog ? Tool::InitLog() : Tool::ShowLog();
    }
    if (app.got_subcommand("list")) {
        return Tool::List(Tool::Producer(Tool::FindProducer(line.producer)), line.discoveryMilliseconds);
    }
    if (app.got_subcommand("events")) {
        line.events.discoveryMilliseconds = line.discoveryMilliseconds;
        Tool::Interrupt::Catch();
        return Tool::Events(Tool::Producer(Tool::FindProducer(line.producer)), line.events);
    }
    line.module.discoveryMilliseconds = line.discoveryMilliseconds;
    if (app.got_subcommand("features")) {
        return Tool::Features(Tool::Producer(Tool::FindProducer(line.producer)), line.module, line.requests);
    }
    if (app.got_subcommand("xml")) {
        return Tool::SaveXml(Tool::Producer(Tool::FindProducer(line.producer)), line.module, line.xmlFile);
    }
    line.grab.discoveryMilliseconds = line.discoveryMilliseconds;
    for (const std::string& text : line.startRegisters) {
        line.grab.startRegisters.push_back(Tool::ParseRegisterWrite(text));
    }
    for (const std::string& text : line.stopRegisters) {
        line.grab.stopRegisters.push_back(Tool::ParseRegisterWrite(text));
    }
    Tool::Interrupt::Catch();
    return Tool::Grab(Tool::Producer(Tool::FindProducer(line.producer)), line.grab);
}

}  // namespace

int main(int argc, char** argv)
{
    CommandLine line;
    CLI::App app(
        "Lists GigE Vision cameras, grabs images, shows events, sets features and shows the log of a GenTL "
        "Producer.",
        "gentl");
    app.footer(kExitCodes);
    app.require_subcommand(1);
    CLI::App& list = *app.add_subcommand("list", "List network interfaces and the cameras behind them");
    AddProducer(list, line);
    CLI::App& grab = *app.add_subcommand("grab", "Receive images from a camera");
    AddProducer(grab, line);
    AddGrab(grab, line);
    CLI::App& events = *app.add_subcommand("events", "Show the events of a camera as they come");
    AddProducer(events, line);
    AddEvents(events, line);
    CLI::App& features = *app.add_subcommand("features", "Show or change the features of a module");
    AddProducer(features, line);
    AddModule(features, line);
    features
        .add_option("requests", line.requests,
                    "Features to show (NAME) or to write and show (NAME=VALUE; a command runs with any "
                    "value), in this order; none: show all")
        ->type_name("NAME[=VALUE]");
    CLI::App& xml = *app.add_subcommand("xml", "Save the description of a module");
    AddProducer(xml, line);
    AddModule(xml, line);
    xml.add_option("file", line.xmlFile, "Where to")->required()->type_name("FILE");
    CLI::App& log = *app.add_subcommand("log", "Show the log records of producers on this host");
    log.add_flag("--init", line.initLog, "Write a sample of norvo_log.conf into the working directory");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? Tool::ExitCode::kDone : Tool::ExitCode::kUsage;
    }
    try {
        return Perform(app, line);
    } catch (const Tool::Failure& failure) {
        Tool::Note(failure.Report());
    } catch (const std::exception& error) {
        Tool::Note(error.what());
    }
    return Tool::ExitCode::kFailed;
}
