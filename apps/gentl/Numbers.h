/// Numbers as descriptions and people write them.
#pragma once

#include <cstdint>
#include <string>

namespace Tool {

/// Decimal with a sign, or hexadecimal as 0x... Throws Failure for anything else.
std::int64_t ParseInteger(const std::string& text);
/// As ParseInteger, or with a decimal point and an exponent, whatever the language set. Throws Failure.
double ParseReal(const std::string& text);
/// The shortest text that gives the same number back; of a 32-bit number the shortest one for 32 bits.
std::string RealText(double value);
/// The nearest integer. Throws Failure for what 64 bits can't hold.
std::int64_t Rounded(double value);

}  // namespace Tool
