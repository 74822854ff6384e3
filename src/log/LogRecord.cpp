#include "log/LogRecord.h"

#include <chrono>
#include <cmath>
#include <fstream>
#include <limits>
#include <stdexcept>

namespace GenTL::LogRecord {
namespace {

using nlohmann::json;

const char* NotNull(const char* text)
{
    return text != nullptr ? text : "";
}

/// The value at section / key, or null: a const json must not be indexed by a key that it lacks.
json Find(const json& config, const char* section, const char* key)
{
    if (config.is_object() && config.contains(section)) {
        const json& inner = config.at(section);
        if (inner.is_object() && inner.contains(key)) {
            return inner.at(key);
        }
    }
    return nullptr;
}

/// An integer or a float, cut and clamped to int. A bool is no number here.
int ToInt(const json& value)
{
    constexpr double kMin = std::numeric_limits<int>::min();
    constexpr double kMax = std::numeric_limits<int>::max();
    if (!value.is_number()) {
        throw std::logic_error(std::string("cannot cast ") + value.type_name() + " to int");
    }
    const double number = value.get<double>();
    return std::isnan(number) ? 0 : static_cast<int>(std::fmin(std::fmax(number, kMin), kMax));
}

}  // namespace

std::string WithCode(const char* text, int code)
{
    return std::string(NotNull(text)) + ": " + std::to_string(code);
}

json Make(Level level, const char* userid, const char* message)
{
    return {
        {"level",   static_cast<int>(level)},
        {"message", NotNull(message)       },
        {"userid",  NotNull(userid)        },
    };
}

void Stamp(json& record, const char* module)
{
    using std::chrono::duration_cast;
    using std::chrono::milliseconds;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    record["module"] = module;
    record["timestamp"] = std::to_string(duration_cast<milliseconds>(now).count());
}

std::string Serialise(const json& record)
{
    return record.dump(-1, ' ', false, json::error_handler_t::replace);
}

bool Passes(const char* recordText, int limit)
{
    return limit >= ToInt(json::parse(recordText).at("level"));
}

json ReadConfig()
{
    std::ifstream in("norvo_log.conf");
    if (!in.is_open()) {
        return nullptr;
    }
    std::string text;
    for (std::string line; std::getline(in, line);) {
        text += line;
    }
    return json::parse(text);
}

std::uint16_t Port(const json& config, const char* key)
{
    const json value = Find(config, "ports", key);
    if (!value.is_number_integer() || value < 0 || value > std::numeric_limits<std::uint16_t>::max()) {
        throw std::logic_error(std::string("\"ports\" / \"") + key + "\" in norvo_log.conf: cannot cast " +
                               value.type_name() + " to a port number");
    }
    return value.get<std::uint16_t>();
}

int FilterLevel(const json& config, const char* key)
{
    return ToInt(Find(config, "levels", key));
}

}  // namespace GenTL::LogRecord
