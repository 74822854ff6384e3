#include "log/HLogger.h"

#include "log/LogChannel.h"
#include "log/LogRecord.h"

#include <mutex>

namespace GenTL {
namespace {

constexpr const char* kModule = "HAL";
constexpr const char* kInPorts[] = {"vesta_in", "zt_in"};

// Constant-initialised and trivially destroyed, so that a late log call of a worker finds them at exit too.
INorvoLog* g_pLogger = nullptr;
void (*g_pRelease)(INorvoLog*) = nullptr;
std::mutex g_mtx;

}  // namespace

HLogger::HLogger() : m_level(LogRecord::kInfo)
{
    const nlohmann::json config = LogRecord::ReadConfig();
    const LogChannel::Channel channel = LogChannel::Init();
    {
        const std::lock_guard<std::mutex> lock(g_mtx);
        if (g_pLogger != nullptr) {
            // Left behind by a construction that failed on the configuration.
            g_pRelease(g_pLogger);
        }
        g_pLogger = channel.log;
        g_pRelease = channel.release;
    }
    m_port = LogRecord::Port(config, "hal_out");
    m_level = LogRecord::FilterLevel(config, "hal");
    if (channel.log == nullptr) {
        return;
    }
    const std::lock_guard<std::mutex> lock(g_mtx);
    channel.log->SetOutPort(m_port);
    for (const char* port : kInPorts) {
        channel.log->AddInPort(LogRecord::Port(config, port));
    }
    // Last, so that a failed construction leaves no filter behind.
    channel.log->SetFilter(this);
}

HLogger::~HLogger()
{
    const std::lock_guard<std::mutex> lock(g_mtx);
    if (g_pLogger != nullptr) {
        g_pLogger->ClearOutPort(m_port);
        g_pRelease(g_pLogger);
        g_pLogger = nullptr;
    }
}

bool HLogger::OnFilterOut(const char* record)
{
    return LogRecord::Passes(record, m_level);
}

void HLogger::Fatal(const char* userid, const char* message)
{
    Log(LogRecord::Make(LogRecord::kFatal, userid, message));
}
void HLogger::Fatal(const char* message)
{
    Fatal("", message);
}
void HLogger::Fatal(const char* text, int code)
{
    Fatal(LogRecord::WithCode(text, code).c_str());
}

void HLogger::Error(const char* userid, const char* message)
{
    Log(LogRecord::Make(LogRecord::kError, userid, message));
}
void HLogger::Error(const char* message)
{
    Error("", message);
}
void HLogger::Error(const char* text, int code)
{
    Error(LogRecord::WithCode(text, code).c_str());
}

void HLogger::Warn(const char* userid, const char* message)
{
    Log(LogRecord::Make(LogRecord::kWarn, userid, message));
}
void HLogger::Warn(const char* message)
{
    Warn("", message);
}
void HLogger::Warn(const char* text, int code)
{
    Warn(LogRecord::WithCode(text, code).c_str());
}

void HLogger::Info(const char* userid, const char* message)
{
    Log(LogRecord::Make(LogRecord::kInfo, userid, message));
}
void HLogger::Info(const char* message)
{
    Info("", message);
}
void HLogger::Info(const char* text, int code)
{
    Info(LogRecord::WithCode(text, code).c_str());
}

void HLogger::Debug(const char* userid, const char* message)
{
    Log(LogRecord::Make(LogRecord::kDebug, userid, message));
}
void HLogger::Debug(const char* message)
{
    Debug("", message);
}
void HLogger::Debug(const char* text, int code)
{
    Debug(LogRecord::WithCode(text, code).c_str());
}

void HLogger::Verbose(const char* userid, const char* message)
{
    Log(LogRecord::Make(LogRecord::kVerbose, userid, message));
}
void HLogger::Verbose(const char* message)
{
    Verbose("", message);
}
void HLogger::Verbose(const char* text, int code)
{
    Verbose(LogRecord::WithCode(text, code).c_str());
}

void HLogger::Log(const nlohmann::json& record)
{
    nlohmann::json copy = record;
    LogRecord::Stamp(copy, kModule);
    SendLog(copy);
}

void HLogger::SendLog(const nlohmann::json& record)
{
    const std::string text = LogRecord::Serialise(record);
    const std::lock_guard<std::mutex> lock(g_mtx);
    if (g_pLogger != nullptr) {
        g_pLogger->Send(text.c_str());
    }
}

}  // namespace GenTL
