/// Numbers as descriptions and people write them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace Tool {

/// Decimal with a sign, or hexadecimal as 0x..., of which all 64 bits may be set; nothing for anything else.
std::optional<std::int64_t> ToInteger(const std::string& text);
/// As ToInteger, but throws Failure.
std::int64_t ParseInteger(const std::string& text);
/// As ParseInteger, or with a decimal point and an exponent, whatever the language set. Throws Failure.
double ParseReal(const std::string& text);
/// The shortest text that gives the same number back; of a 32-bit number the shortest one for 32 bits.
std::string RealText(double value);
/// The nearest integer. Throws Failure for what 64 bits can't hold.
std::int64_t Rounded(double value);

/// The value in a printf format for unsigned long long, up to 31 characters.
std::string Format(const char* format, std::uint64_t value);
/// Such as 192.168.1.1, of the lower 32 bits.
std::string IpText(std::uint64_t address);
/// Such as 00:11:1C:00:00:01, of the lower 48 bits.
std::string MacText(std::uint64_t address);

}  // namespace Tool
