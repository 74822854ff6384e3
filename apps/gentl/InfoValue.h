/// The typed answer of a GetInfo function.
#pragma once

#include "frame/GenTL.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Tool {

class InfoValue
{
public:
    InfoValue(GenTL::INFO_DATATYPE type, std::vector<char> bytes);

    /// The text of a string answer up to its terminator, with what could upset a terminal replaced by dots;
    /// nothing for other types.
    std::optional<std::string> Text() const;
    /// The value of an integer, bool or pointer answer, sign-extended; nothing for other types.
    std::optional<std::uint64_t> Number() const;

private:
    GenTL::INFO_DATATYPE m_type;
    std::vector<char> m_bytes;
};

}  // namespace Tool
