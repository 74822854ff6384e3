#include "log/localization.h"

#include <boost/thread/mutex.hpp>

#include <map>

namespace loc {
namespace {

constexpr const char* kNoCatalogue = "fail impl here";

struct Impl
{
    boost::mutex mutex;
    std::map<std::string, std::string> texts;
};

Impl* g_pImpl = nullptr;

}  // namespace

std::string al(const char* format, std::initializer_list<const char*> args)
{
    if (g_pImpl != nullptr) {
        throw kNoCatalogue;
    }
    std::string text = format;
    int index = 0;
    for (const char* arg : args) {
        const std::string placeholder = "{" + std::to_string(index++) + "}";
        for (auto at = text.find(placeholder); at != std::string::npos; at = text.find(placeholder)) {
            text.replace(at, placeholder.size(), arg);
        }
    }
    return text;
}

std::string al(const char* format)
{
    return al(format, {});
}

void init(const char* /*file*/, int /*language*/)
{
    g_pImpl = new Impl();
    try {
        throw kNoCatalogue;
    } catch (const char*) {
        close();
    }
}

void close()
{
    if (g_pImpl != nullptr) {
        g_pImpl->texts.clear();
        delete g_pImpl;
        g_pImpl = nullptr;
    }
}

}  // namespace loc
