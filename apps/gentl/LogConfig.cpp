#include "gentl/LogConfig.h"

#include "gentl/SampleLogConfig.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace Tool::LogConfig {
namespace {

constexpr char kInitCommand[] = "gentl log --init";

std::string WorkingDirectory()
{
    std::error_code error;
    const std::string path = std::filesystem::current_path(error).string();
    return error ? "the working directory" : path;
}

}  // namespace

bool Exists()
{
    std::error_code error;
    return std::filesystem::exists(kFileName, error);
}

void WriteSample()
{
    if (Exists()) {
        throw Failure(std::string(kFileName) + " exists already in " + WorkingDirectory(),
                      "It stays as it is; remove it first to get a new one.");
    }
    std::ofstream out(kFileName);
    out << kSampleLogConfig;
    out.close();
    if (!out) {
        throw Failure(std::string("can't write ") + kFileName + " in " + WorkingDirectory() + ": " +
                          std::strerror(errno),
                      "Change to a folder in which you may write.");
    }
}

std::vector<std::uint16_t> OutPorts()
{
    if (!Exists()) {
        throw Unusable("");
    }
    try {
        std::ifstream in(kFileName);
        const nlohmann::json ports = nlohmann::json::parse(in).at("ports");
        std::vector<std::uint16_t> result;
        for (const char* key : {"gentl_out", "hal_out"}) {
            const int port = ports.at(key).get<int>();
            if (port < 1 || port > 0xFFFF) {
                throw Unusable(std::string("\"") + key + "\" is no port number");
            }
            if (std::find(result.begin(), result.end(), port) == result.end()) {
                result.push_back(static_cast<std::uint16_t>(port));
            }
        }
        return result;
    } catch (const nlohmann::json::exception& error) {
        throw Unusable(error.what());
    }
}

Failure Unusable(const std::string& reason)
{
    if (!Exists()) {
        return Failure(std::string("there is no ") + kFileName + " in " + WorkingDirectory() +
                           ", and the producer needs it for its log",
                       std::string("Write a sample with: ") + kInitCommand);
    }
    return Failure(std::string("the producer can't use ") + kFileName + " in " + WorkingDirectory(),
                   std::string("Mend the file, or remove it and write a sample with: ") + kInitCommand,
                   reason);
}

}  // namespace Tool::LogConfig
