/// The log sink of the hardware-abstraction side.
#pragma once

#include "log/INorvoLog.h"

#include <nlohmann/json_fwd.hpp>

#include <atomic>
#include <cstdint>

namespace GenTL {

/// Turns log calls into JSON records on one channel per process.
///
/// Owns: the channel while it lives, from GCInitLib to GCCloseLib. Threads: any thread logs; a record without
/// a channel is dropped and no log call fails towards its caller. Locks: g_mtx around the send, a leaf.
class HLogger : public IFilterOutFn
{
public:
    /// Reads "norvo_log.conf" and attaches to the log channel. Throws std::logic_error when the file or one
    /// of its values is missing, and the JSON library's exception when the file can't be parsed.
    HLogger();
    HLogger(const HLogger&) = delete;
    HLogger& operator=(const HLogger&) = delete;
    ~HLogger() override;

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
