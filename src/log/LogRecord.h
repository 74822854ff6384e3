/// The JSON side of the log sinks: records and their configuration.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>

namespace GenTL::LogRecord {

/// Severities; a lower number is more severe.
enum Level { kFatal = 100, kError = 200, kWarn = 300, kInfo = 400, kDebug = 500, kVerbose = 600 };

/// "text: code".
std::string WithCode(const char* text, int code);

nlohmann::json Make(Level level, const char* userid, const char* message);
/// Sets the module's name and the time: milliseconds since the Unix epoch, as text.
void Stamp(nlohmann::json& record, const char* module);
/// Compact text; bytes that are no UTF-8 are replaced, since texts may come from a camera.
std::string Serialise(const nlohmann::json& record);
/// True when the record's level is at most limit. Throws the JSON library's exception on a text that is no
/// record.
bool Passes(const char* recordText, int limit);

/// The content of "norvo_log.conf" in the working directory; null when it can't be opened. Throws the JSON
/// library's exception when it can't be parsed.
nlohmann::json ReadConfig();
/// "ports" / key. Throws std::logic_error when it is no port number.
std::uint16_t Port(const nlohmann::json& config, const char* key);
/// "levels" / key; a float is cut to an integer. Throws std::logic_error when it is no number.
int FilterLevel(const nlohmann::json& config, const char* key);

}  // namespace GenTL::LogRecord
