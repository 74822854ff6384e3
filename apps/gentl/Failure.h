/// What the tool tells its user when something can't be done.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace Tool {

/// what() says what went wrong in one line; Details() holds the producer's error stack, Hint() what to do
/// about it.
class Failure : public std::runtime_error
{
public:
    explicit Failure(const std::string& what, std::string hint = {}, std::string details = {});

    const std::string& Details() const { return m_details; }
    const std::string& Hint() const { return m_hint; }
    /// The message with the details indented below it and the hint at the end.
    std::string Report() const;

private:
    std::string m_hint;
    std::string m_details;
};

/// "GC_ERR_TIMEOUT (-1011)", or the bare number for a code that the interface does not name.
std::string CodeText(std::int32_t code);
/// What a user can do about this code from this function; empty when nothing useful is known.
std::string HintFor(const char* function, std::int32_t code);

}  // namespace Tool
