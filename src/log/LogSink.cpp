#include "log/LogSink.h"

#include "log/GLogger.h"
#include "log/HLogger.h"
#include "log/LogChannel.h"
#include "log/LogRecord.h"

#include <mutex>

namespace GenTL {
namespace {

// Constant-initialised and trivially destroyed, so that a late log call of a worker finds them at exit too.
template <const LogSide& side>
INorvoLog* g_pLogger = nullptr;
template <const LogSide& side>
void (*g_pRelease)(INorvoLog*) = nullptr;
template <const LogSide& side>
std::mutex g_mtx;

using Lock = std::lock_guard<std::mutex>;

}  // namespace

template <const LogSide& side>
LogSink<side>::LogSink() : m_level(LogRecord::kInfo)
{
    const nlohmann::json config = LogRecord::ReadConfig();
    const LogChannel::Channel channel = LogChannel::Init();
    {
        const Lock lock(g_mtx<side>);
        if (g_pLogger<side> != nullptr) {
            // Left behind by a construction that failed on the configuration.
            g_pRelease<side>(g_pLogger<side>);
        }
        g_pLogger<side> = channel.log;
        g_pRelease<side> = channel.release;
    }
    m_port = LogRecord::Port(config, side.outPort);
    m_level = LogRecord::FilterLevel(config, side.level);
    if (channel.log == nullptr) {
        return;
    }
    const Lock lock(g_mtx<side>);
    channel.log->SetOutPort(m_port);
    for (std::size_t i = 0; i < side.numInPorts; ++i) {
        channel.log->AddInPort(LogRecord::Port(config, side.inPorts[i]));
    }
    // Last, so that a failed construction leaves no filter behind.
    channel.log->SetFilter(this);
}

template <const LogSide& side>
LogSink<side>::~LogSink()
{
    const Lock lock(g_mtx<side>);
    if (g_pLogger<side> != nullptr) {
        g_pLogger<side>->ClearOutPort(m_port);
        g_pRelease<side>(g_pLogger<side>);
        g_pLogger<side> = nullptr;
    }
}

template <const LogSide& side>
bool LogSink<side>::OnFilterOut(const char* record)
{
    return LogRecord::Passes(record, m_level);
}

// Each severity has the same three forms.
#define LOG_FORMS(Severity)                                               \
    template <const LogSide& side>                                        \
    void LogSink<side>::Severity(const char* userid, const char* message) \
    {                                                                     \
        Log(LogRecord::Make(LogRecord::k##Severity, userid, message));    \
    }                                                                     \
    template <const LogSide& side>                                        \
    void LogSink<side>::Severity(const char* message)                     \
    {                                                                     \
        Severity("", message);                                            \
    }                                                                     \
    template <const LogSide& side>                                        \
    void LogSink<side>::Severity(const char* text, int code)              \
    {                                                                     \
        Severity(LogRecord::WithCode(text, code).c_str());                \
    }
LOG_FORMS(Fatal)
LOG_FORMS(Error)
LOG_FORMS(Warn)
LOG_FORMS(Info)
LOG_FORMS(Debug)
LOG_FORMS(Verbose)
#undef LOG_FORMS

template <const LogSide& side>
void LogSink<side>::Log(const nlohmann::json& record)
{
    nlohmann::json copy = record;
    LogRecord::Stamp(copy, side.module);
    SendLog(copy);
}

template <const LogSide& side>
void LogSink<side>::SendLog(const nlohmann::json& record)
{
    const std::string text = LogRecord::Serialise(record);
    const Lock lock(g_mtx<side>);
    if (g_pLogger<side> != nullptr) {
        g_pLogger<side>->Send(text.c_str());
    }
}

template class LogSink<kGenTLSide>;
template class LogSink<kHalSide>;

}  // namespace GenTL
