/// A GenTL Producer loaded at run time.
#pragma once

#include "gentl/GenTLApi.h"
#include "gentl/InfoValue.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Tool {

/// Owns the loaded library and its life from GCInitLib to GCCloseLib; whatever was opened through it must be
/// closed before. Usable from any thread; error stacks belong to the thread on which the failing call was
/// made.
class Producer
{
public:
    /// Loads the library with its symbols kept to itself, resolves the functions and initialises it. Throws
    /// Failure.
    explicit Producer(const std::filesystem::path& library);
    ~Producer();
    Producer(const Producer&) = delete;
    Producer& operator=(const Producer&) = delete;

    const GenTLApi* operator->() const { return &m_api; }

    /// Throws Failure with the thread's error stack when code is not success. task completes "can't ...".
    void Check(GenTL::GC_ERROR code, const char* function, const std::string& task) const;
    /// The calling thread's error stack, which is consumed; empty when there is none.
    std::string TakeErrorStack() const;

    /// Runs ask(INFO_DATATYPE*, void* buffer, size_t* size) and gives its answer, or nothing when it fails.
    template <typename Ask>
    std::optional<InfoValue> Info(Ask ask) const
    {
        GenTL::INFO_DATATYPE type = GenTL::INFO_DATATYPE_UNKNOWN;
        std::size_t size = 0;
        if (ask(&type, nullptr, &size) == GenTL::GC_ERR_SUCCESS) {
            std::vector<char> bytes(size);
            if (ask(&type, bytes.data(), &size) == GenTL::GC_ERR_SUCCESS) {
                bytes.resize(std::min(size, bytes.size()));
                return InfoValue(type, std::move(bytes));
            }
        }
        TakeErrorStack();  // or it would stand in the report of a later failure
        return std::nullopt;
    }

    /// Runs ask(char* buffer, size_t* size) and gives its text up to the terminator. Throws Failure.
    template <typename Ask>
    std::string Id(const char* function, const std::string& task, Ask ask) const
    {
        std::size_t size = 0;
        Check(ask(nullptr, &size), function, task);
        std::string text(size, '\0');
        Check(ask(text.data(), &size), function, task);
        return text.substr(0, text.find('\0'));
    }

private:
    struct CloseLibrary
    {
        void operator()(void* library) const;
    };

    std::unique_ptr<void, CloseLibrary> m_library;
    GenTLApi m_api;
};

}  // namespace Tool
