/// The error stack that GCGetLastError hands out, and the three actions that fill it.
#pragma once

#include "frame/GenTL.h"

#include <boost/thread/mutex.hpp>
#include <boost/thread/thread.hpp>

#include <atomic>
#include <deque>
#include <map>
#include <string>
#include <string_view>

namespace GenTL {

/// A stack of (code, message) pairs, oldest first. A value: copies are deep.
class Error
{
public:
    Error() = default;
    Error(const Error& other) = default;
    Error(Error&& other) = default;
    Error& operator=(Error other) noexcept;
    virtual ~Error() = default;

    /// The newest code; 0 on an empty stack.
    virtual int Code() const;
    /// The newest message; empty on an empty stack.
    virtual std::string Message() const;
    /// The printed name of Code(), such as "GenTL::GC_ERR_INVALID_ID(-1007)".
    virtual std::string CodeName() const;
    /// The default message of Code().
    virtual std::string CodeDefaultMessage() const;
    /// Takes the newest entry off the stack. GC_ERR_NO_DATA, with nothing written, when there is none.
    virtual int PopError(int& code, std::string& codeName, std::string& message);
    virtual std::size_t NumErrors() const;

    static Error GenerateError(int code, const std::string& message);
    static Error GenerateError(int code);
    static Error GenerateSuccess();
    static Error& AppendError(Error& e, int code, const std::string& message);
    static Error& AppendError(Error& e, int code);

private:
    std::deque<int> m_codes;
    std::deque<std::string> m_messages;
};

/// At most one Error per thread, process-wide.
///
/// Threads: every thread that calls into the library, and its workers. Locks: the map's mutex, a leaf, held
/// inside single operations only. ReleaseErrorCache retires an instance instead of freeing it, so that a
/// worker that fails while the library closes never meets freed memory.
class ErrorCache
{
public:
    ErrorCache() = default;
    ErrorCache(const ErrorCache& other);
    ErrorCache& operator=(const ErrorCache& other);
    virtual ~ErrorCache() = default;

    static ErrorCache* GetErrorCache();
    /// Forgets the errors of all threads.
    static void ReleaseErrorCache();
    static bool isIGNORABLEInStartOfErrorMSG(const std::string& text);

    /// 1 when the calling thread has an entry, else 0.
    int Count() const;
    /// Replaces the calling thread's entry.
    void OverwriteCachedErrorWith(const Error& e);
    /// Copies the calling thread's entry; GC_ERR_NO_DATA when there is none.
    int Peak(Error& out) const;
    /// As Peak, and removes the entry.
    int Pop(Error& out);
    void Clear();

private:
    static std::atomic<ErrorCache*> m_pCache;

    mutable boost::mutex m_mutex;
    std::map<boost::thread::id, Error> m_errors;
};

/// The printed name of a code, such as "GenTL::GC_ERR_IO(-1010)"; "::-::(code)" when it has none.
std::string ErrorCodeName(int code);

/// Raise: replaces the thread's error by (code, prefixed text) and returns the code. A text that begins
/// with ":IGNORABLE:" changes nothing and returns 0: the caller goes on as if nothing had failed.
int Raise(int code,
          const std::string& text,
          const char* function = __builtin_FUNCTION(),
          int line = __builtin_LINE());

/// Append: adds (code, prefixed text) to the thread's stack and returns the code. With no stack an
/// unmarked text begins one, a marked text is dropped.
int Append(int code,
           const std::string& text,
           const char* function = __builtin_FUNCTION(),
           int line = __builtin_LINE());

/// Append with the code's name as the text.
int AppendName(int code, const char* function = __builtin_FUNCTION(), int line = __builtin_LINE());

/// Store: replaces the thread's error by the code and its default message, without prefix.
int Store(int code);

/// Append with the code's default message, without prefix; stores it when the thread has no stack.
int AppendDefault(int code);

/// Store with a text of its own, which gets the prefix; the mark ":IGNORABLE:" is not looked at.
int Store(int code,
          const std::string& text,
          const char* function = __builtin_FUNCTION(),
          int line = __builtin_LINE());

/// Store with the code's name as the prefixed text.
int StoreName(int code, const char* function = __builtin_FUNCTION(), int line = __builtin_LINE());

/// Replaces the thread's error by (code, text) as it stands, without prefix.
int StoreBare(int code, const std::string& text);

/// The form in which a text is stored: "<function>():<line>: <text>".
std::string PrefixedText(const std::string& text, const char* function, int line);

}  // namespace GenTL
