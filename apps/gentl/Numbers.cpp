#include "gentl/Numbers.h"

#include "gentl/Failure.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>

namespace Tool {
namespace {

bool IsHex(const std::string& text)
{
    return text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
}

bool IsRead(const std::string& text, const std::from_chars_result& result)
{
    return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

Failure Unreadable(const std::string& text, const char* kind)
{
    return Failure("\"" + text.substr(0, 80) + "\" is no " + kind);
}

/// std::from_chars takes no plus sign.
const char* BehindPlus(const std::string& text)
{
    return text.data() + (text.size() > 1 && text[0] == '+' && text[1] != '-' ? 1 : 0);
}

}  // namespace

std::optional<std::int64_t> ToInteger(const std::string& text)
{
    const char* end = text.data() + text.size();
    std::uint64_t bits = 0;
    std::int64_t value = 0;
    if (IsHex(text)) {
        const bool isRead = IsRead(text, std::from_chars(text.data() + 2, end, bits, 16));
        return isRead ? std::optional(static_cast<std::int64_t>(bits)) : std::nullopt;
    }
    return IsRead(text, std::from_chars(BehindPlus(text), end, value)) ? std::optional(value) : std::nullopt;
}

std::int64_t ParseInteger(const std::string& text)
{
    if (const std::optional<std::int64_t> value = ToInteger(text)) {
        return *value;
    }
    throw Unreadable(text, "integer");
}

double ParseReal(const std::string& text)
{
    if (IsHex(text)) {
        return static_cast<double>(ParseInteger(text));
    }
    double value = 0;
    if (!IsRead(text, std::from_chars(BehindPlus(text), text.data() + text.size(), value))) {
        throw Unreadable(text, "number");
    }
    return value;
}

std::string RealText(double value)
{
    const double size = std::fabs(value);
    const bool isPlain = size == 0 || (size >= 1e-4 && size < 1e15);
    const std::chars_format format = isPlain ? std::chars_format::fixed : std::chars_format::general;
    char text[64];
    char* const end = text + sizeof text;
    if (size <= static_cast<double>(std::numeric_limits<float>::max()) &&
        static_cast<double>(static_cast<float>(value)) == value) {
        return std::string(text, std::to_chars(text, end, static_cast<float>(value), format).ptr);
    }
    return std::string(text, std::to_chars(text, end, value, format).ptr);
}

std::int64_t Rounded(double value)
{
    constexpr double kBeyond = 9223372036854775808.0;
    if (!(value >= -kBeyond && value < kBeyond)) {
        throw Failure("the value " + RealText(value) + " is no 64-bit integer");
    }
    return std::llround(value);
}

std::string Format(const char* format, std::uint64_t value)
{
    char text[32];
    std::snprintf(text, sizeof text, format, static_cast<unsigned long long>(value));
    return text;
}

std::string IpText(std::uint64_t address)
{
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        text += (text.empty() ? "" : ".") + std::to_string(address >> shift & 0xFF);
    }
    return text;
}

std::string MacText(std::uint64_t address)
{
    std::string text;
    for (int shift = 40; shift >= 0; shift -= 8) {
        text += (text.empty() ? "" : ":") + Format("%02llX", address >> shift & 0xFF);
    }
    return text;
}

}  // namespace Tool
