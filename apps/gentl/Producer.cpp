#include "gentl/Producer.h"

#include "gentl/Failure.h"
#include "gentl/LogConfig.h"

#include <dlfcn.h>

#include <algorithm>
#include <exception>

namespace Tool {
namespace {

std::string LoaderMessage()
{
    const char* text = ::dlerror();
    return text != nullptr ? text : "no reason given";
}

template <typename Function>
void Resolve(void* library, const char* name, Function& function)
{
    function = reinterpret_cast<Function>(::dlsym(library, name));
    if (function == nullptr) {
        throw Failure(std::string("the library lacks the function ") + name,
                      "Name a GenTL Producer with --producer.", LoaderMessage());
    }
}

}  // namespace

void Producer::CloseLibrary::operator()(void* library) const
{
    ::dlclose(library);
}

// A thread may hold state that a producer cleans up when the thread ends: the code for it stays mapped.
Producer::Producer(const std::filesystem::path& library)
    : m_library(::dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE))
{
    if (m_library == nullptr) {
        throw Failure("can't load the producer " + library.string(), "Name another one with --producer.",
                      LoaderMessage());
    }
#define TOOL_RESOLVE(name) Resolve(m_library.get(), #name, m_api.name);
    TOOL_GENTL_FUNCTIONS(TOOL_RESOLVE)
#undef TOOL_RESOLVE

    try {
        Check(m_api.GCInitLib(), "GCInitLib", "initialise the producer " + library.string());
    } catch (const Failure&) {
        throw;
    } catch (const std::exception& error) {
        // The producer answers an unusable log configuration by an exception; it is told as any other
        // failure.
        throw LogConfig::Unusable(error.what());
    }
}

Producer::~Producer()
{
    m_api.GCCloseLib();
}

void Producer::Check(GenTL::GC_ERROR code, const char* function, const std::string& task) const
{
    if (code != GenTL::GC_ERR_SUCCESS) {
        throw Failure("can't " + task + ": " + function + " gave " + CodeText(code), HintFor(function, code),
                      TakeErrorStack());
    }
}

std::string Producer::TakeErrorStack() const
{
    GenTL::GC_ERROR code = GenTL::GC_ERR_SUCCESS;
    std::size_t size = 0;
    if (m_api.GCGetLastError(&code, nullptr, &size) != GenTL::GC_ERR_SUCCESS ||
        code == GenTL::GC_ERR_SUCCESS) {
        return {};
    }
    std::string text(size, '\0');
    if (m_api.GCGetLastError(&code, text.data(), &size) != GenTL::GC_ERR_SUCCESS) {
        return {};
    }
    text.resize(std::min(text.size(), text.find('\0')));
    return text;
}

}  // namespace Tool
