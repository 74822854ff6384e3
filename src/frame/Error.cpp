#include "frame/Error.h"

#include <cassert>
#include <utility>

namespace GenTL {
namespace {

struct CodeRow
{
    int code;
    const char* name;
    const char* message;
};

constexpr CodeRow kCodes[] = {
    {GC_ERR_SUCCESS,            "GenTL::GC_ERR_SUCCESS",            "Success treated as err"       },
    {GC_ERR_ERROR,              "GenTL::GC_ERR_ERROR",              "Generic error occurred"       },
    {GC_ERR_NOT_INITIALIZED,    "GenTL::GC_ERR_NOT_INITIALIZED",    "Not Initialized"              },
    {GC_ERR_NOT_IMPLEMENTED,    "GenTL::GC_ERR_NOT_IMPLEMENTED",    "Not Implemented"              },
    {GC_ERR_RESOURCE_IN_USE,    "GenTL::GC_ERR_RESOURCE_IN_USE",    "The Resource is in use"       },
    {GC_ERR_ACCESS_DENIED,      "GenTL::GC_ERR_ACCESS_DENIED",      "Access denied"                },
    {GC_ERR_INVALID_HANDLE,     "GenTL::GC_ERR_INVALID_HANDLE",     "Invalid Handle"               },
    {GC_ERR_INVALID_ID,         "GenTL::GC_ERR_INVALID_ID",         "Invalid Id"                   },
    {GC_ERR_NO_DATA,            "GenTL::GC_ERR_NO_DATA",            "No Data Available"            },
    {GC_ERR_INVALID_PARAMETER,  "GenTL::GC_ERR_INVALID_PARAMETER",  "Invalid Parameter"            },
    {GC_ERR_IO,                 "GenTL::GC_ERR_IO",                 "I//O Error occurred"          },
    {GC_ERR_TIMEOUT,            "GenTL::GC_ERR_TIMEOUT",            "Operation Timed Out"          },
    {GC_ERR_ABORT,              "GenTL::GC_ERR_ABORT",              "Operation Aborted"            },
    {GC_ERR_INVALID_BUFFER,     "GenTL::GC_ERR_INVALID_BUFFER",     "Invalid Buffer"               },
    {GC_ERR_NOT_AVAILABLE,      "GenTL::GC_ERR_NOT_AVAILABLE",      "Not Available"                },
    {GC_ERR_INVALID_ADDRESS,    "GenTL::GC_ERR_INVALID_ADDRESS",    "Address is invalid"           },
    {GC_ERR_BUFFER_TOO_SMALL,   "GenTL::GC_ERR_BUFFER_TOO_SMALL",   "Buffer is too small"          },
    {GC_ERR_INVALID_INDEX,      "GenTL::GC_ERR_INVALID_INDEX",      "Invalid index"                },
    {GC_ERR_PARSING_CHUNK_DATA, "GenTL::GC_ERR_PARSING_CHUNK_DATA", "Error parsing chunk data"     },
    {GC_ERR_INVALID_VALUE,      "GenTL::GC_ERR_INVALID_VALUE",      "Invalid value"                },
    {GC_ERR_RESOURCE_EXHAUSTED, "GenTL::GC_ERR_RESOURCE_EXHAUSTED", "Resources have been exhausted"},
    {GC_ERR_OUT_OF_MEMORY,      "GenTL::GC_ERR_OUT_OF_MEMORY",      "Out of memory"                },
    {GC_ERR_BUSY,               "GenTL::GC_ERR_BUSY",               "Busy"                         },
    {GC_ERR_CUSTOM_ID,          "GenTL::GC_ERR_CUSTOM_ID",          "Custom id err"                },
};

const CodeRow* FindCode(int code)
{
    for (const CodeRow& row : kCodes) {
        if (row.code == code) {
            return &row;
        }
    }
    return nullptr;
}

std::string GetMessageFromCode(int code)
{
    const CodeRow* row = FindCode(code);
    return row != nullptr ? row->message : "Unknown error code";
}

std::string GetErrCodeName(int code)
{
    const CodeRow* row = FindCode(code);
    return std::string(row != nullptr ? row->name : "::-::") + "(" + std::to_string(code) + ")";
}

}  // namespace

Error& Error::operator=(Error other) noexcept
{
    m_codes.swap(other.m_codes);
    m_messages.swap(other.m_messages);
    return *this;
}

int Error::Code() const
{
    return m_codes.empty() ? 0 : m_codes.back();
}

std::string Error::Message() const
{
    return m_messages.empty() ? std::string() : m_messages.back();
}

std::string Error::CodeName() const
{
    return GetErrCodeName(Code());
}

std::string Error::CodeDefaultMessage() const
{
    return GetMessageFromCode(Code());
}

int Error::PopError(int& code, std::string& codeName, std::string& message)
{
    if (m_codes.empty()) {
        return GC_ERR_NO_DATA;
    }
    code = Code();
    codeName = CodeName();
    message = Message();
    m_codes.pop_back();
    m_messages.pop_back();
    return GC_ERR_SUCCESS;
}

std::size_t Error::NumErrors() const
{
    assert(m_codes.size() == m_messages.size());
    return m_codes.size();
}

Error Error::GenerateError(int code, const std::string& message)
{
    Error e;
    AppendError(e, code, message);
    return e;
}

Error Error::GenerateError(int code)
{
    return GenerateError(code, GetMessageFromCode(code));
}

Error Error::GenerateSuccess()
{
    return GenerateError(GC_ERR_SUCCESS, "No Error");
}

Error& Error::AppendError(Error& e, int code, const std::string& message)
{
    e.m_codes.push_back(code);
    e.m_messages.push_back(message);
    return e;
}

Error& Error::AppendError(Error& e, int code)
{
    return AppendError(e, code, GetMessageFromCode(code));
}

std::atomic<ErrorCache*> ErrorCache::m_pCache{nullptr};

ErrorCache::ErrorCache(const ErrorCache& other)
{
    boost::mutex::scoped_lock lock(other.m_mutex);
    m_errors = other.m_errors;
}

ErrorCache& ErrorCache::operator=(const ErrorCache& other)
{
    ErrorCache copy(other);
    boost::mutex::scoped_lock lock(m_mutex);
    m_errors.swap(copy.m_errors);
    return *this;
}

ErrorCache* ErrorCache::GetErrorCache()
{
    ErrorCache* cache = m_pCache.load();
    if (cache != nullptr) {
        return cache;
    }
    auto* made = new ErrorCache();
    if (m_pCache.compare_exchange_strong(cache, made)) {
        return made;
    }
    delete made;
    return cache;
}

void ErrorCache::ReleaseErrorCache()
{
    // A worker of a device that was left open may hold the pointer: the errors go, the object stays.
    ErrorCache* cache = m_pCache.load();
    if (cache != nullptr) {
        boost::mutex::scoped_lock lock(cache->m_mutex);
        cache->m_errors.clear();
    }
}

bool ErrorCache::isIGNORABLEInStartOfErrorMSG(const std::string& text)
{
    constexpr std::string_view kMark = ":IGNORABLE:";
    return text.compare(0, kMark.size(), kMark) == 0;
}

int ErrorCache::Count() const
{
    boost::mutex::scoped_lock lock(m_mutex);
    return m_errors.count(boost::this_thread::get_id()) != 0 ? 1 : 0;
}

void ErrorCache::OverwriteCachedErrorWith(const Error& e)
{
    boost::mutex::scoped_lock lock(m_mutex);
    m_errors[boost::this_thread::get_id()] = e;
}

int ErrorCache::Peak(Error& out) const
{
    if (Count() == 0) {
        return GC_ERR_NO_DATA;
    }
    boost::mutex::scoped_lock lock(m_mutex);
    out = m_errors.at(boost::this_thread::get_id());
    return GC_ERR_SUCCESS;
}

int ErrorCache::Pop(Error& out)
{
    const int code = Peak(out);
    if (code == GC_ERR_SUCCESS) {
        Clear();
    }
    return code;
}

void ErrorCache::Clear()
{
    boost::mutex::scoped_lock lock(m_mutex);
    m_errors.erase(boost::this_thread::get_id());
}

std::string ErrorCodeName(int code)
{
    return GetErrCodeName(code);
}

std::string PrefixedText(const std::string& text, const char* function, int line)
{
    return std::string(function) + "():" + std::to_string(line) + ": " + text;
}

int StoreBare(int code, const std::string& text)
{
    ErrorCache::GetErrorCache()->OverwriteCachedErrorWith(Error::GenerateError(code, text));
    return code;
}

int Raise(int code, const std::string& text, const char* function, int line)
{
    if (ErrorCache::isIGNORABLEInStartOfErrorMSG(text)) {
        return GC_ERR_SUCCESS;
    }
    return StoreBare(code, PrefixedText(text, function, line));
}

int Append(int code, const std::string& text, const char* function, int line)
{
    ErrorCache* cache = ErrorCache::GetErrorCache();
    if (cache->Count() == 1) {
        Error e = Error::GenerateSuccess();
        cache->Pop(e);
        cache->OverwriteCachedErrorWith(Error::AppendError(e, code, PrefixedText(text, function, line)));
    } else if (!ErrorCache::isIGNORABLEInStartOfErrorMSG(text)) {
        StoreBare(code, PrefixedText(text, function, line));
    }
    return code;
}

int AppendName(int code, const char* function, int line)
{
    return Append(code, ErrorCodeName(code), function, line);
}

int Store(int code)
{
    const Error e = Error::GenerateError(code);
    ErrorCache::GetErrorCache()->OverwriteCachedErrorWith(e);
    return e.Code();
}

int AppendDefault(int code)
{
    ErrorCache* cache = ErrorCache::GetErrorCache();
    Error e;
    if (cache->Pop(e) != GC_ERR_SUCCESS) {
        return Store(code);
    }
    cache->OverwriteCachedErrorWith(Error::AppendError(e, code));
    return code;
}

int Store(int code, const std::string& text, const char* function, int line)
{
    return StoreBare(code, PrefixedText(text, function, line));
}

int StoreName(int code, const char* function, int line)
{
    return Store(code, ErrorCodeName(code), function, line);
}

}  // namespace GenTL
