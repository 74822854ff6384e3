/// A log sink: log calls in, JSON records out.
#pragma once

#include "log/INorvoLog.h"

#include <nlohmann/json_fwd.hpp>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace GenTL {

/// What tells the sinks of the library's two sides apart: a name, and keys of the configuration.
struct LogSide
{
    const char* module;
    const char* level;
    const char* outPort;
    const char* inPorts[3];
    std::size_t numInPorts;
};

/// Turns log calls into JSON records on one channel per side and process.
///
/// Owns: the channel while it lives, from GCInitLib to GCCloseLib. Threads: any thread logs; a record without
/// a channel is dropped and no log call fails towards its caller. Locks: a mutex per side around the send, a
/// leaf.
template <const LogSide& side>
class LogSink : public IFilterOutFn
{
public:
    /// Reads "norvo_log.conf" and attaches to the log channel. Throws std::logic_error when the file or one
    /// of its values is missing, and the JSON library's exception when the file can't be parsed.
    LogSink();
    LogSink(const LogSink&) = delete;
    LogSink& operator=(const LogSink&) = delete;
    ~LogSink() override;

    bool OnFilterOut(const char* record) override;

    static void Fatal(const char* userid, const char* message);
    static void Fatal(const char* message);
    static void Fatal(const char* text, int code);
    static void Error(const char* userid, const char* message);
    static void Error(const char* message);
    static void Error(const char* text, int code);
    static void Warn(const char* userid, const char* message);
    static void Warn(const char* message);
    static void Warn(const char* text, int code);
    static void Info(const char* userid, const char* message);
    static void Info(const char* message);
    static void Info(const char* text, int code);
    static void Debug(const char* userid, const char* message);
    static void Debug(const char* message);
    static void Debug(const char* text, int code);
    static void Verbose(const char* userid, const char* message);
    static void Verbose(const char* message);
    static void Verbose(const char* text, int code);

    static void Log(const nlohmann::json& record);
    static void SendLog(const nlohmann::json& record);

private:
    std::uint16_t m_port = 0;
    std::atomic<int> m_level;
};

}  // namespace GenTL
