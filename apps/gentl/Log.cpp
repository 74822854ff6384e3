#include "gentl/Log.h"

#include "gentl/ExitCode.h"
#include "gentl/Interrupt.h"
#include "gentl/LogConfig.h"
#include "gentl/LogReceiver.h"
#include "gentl/Note.h"

#include <iostream>

namespace Tool {

int ShowLog()
{
    const std::vector<std::uint16_t> ports = LogConfig::OutPorts();
    LogReceiver receiver(ports);
    std::string list;
    for (const std::uint16_t port : ports) {
        list += ' ' + std::to_string(port);
    }
    Interrupt::Catch();
    Note("waiting for log records at UDP ports" + list + "; Ctrl-C ends");
    receiver.Run([](const std::string& record) {
        std::cout << Printable(FormatLogRecord(record), kLayout) << std::endl;
    });
    return ExitCode::kDone;
}

int InitLog()
{
    LogConfig::WriteSample();
    std::cout << LogConfig::kFileName << " written\n";
    return ExitCode::kDone;
}

}  // namespace Tool
