#include "gentl/InfoValue.h"

#include "gentl/Note.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Tool {
namespace {

template <typename T>
std::optional<std::uint64_t> Load(const std::vector<char>& bytes)
{
    if (bytes.size() < sizeof(T)) {
        return std::nullopt;
    }
    T value{};
    std::memcpy(&value, bytes.data(), sizeof value);
    return static_cast<std::uint64_t>(value);
}

}  // namespace

InfoValue::InfoValue(GenTL::INFO_DATATYPE type, std::vector<char> bytes)
    : m_type(type), m_bytes(std::move(bytes))
{
}

std::optional<std::string> InfoValue::Text() const
{
    if (m_type != GenTL::INFO_DATATYPE_STRING) {
        return std::nullopt;
    }
    return Printable(std::string(m_bytes.begin(), std::find(m_bytes.begin(), m_bytes.end(), '\0')));
}

std::optional<std::uint64_t> InfoValue::Number() const
{
    switch (m_type) {
        case GenTL::INFO_DATATYPE_BOOL8:
            return Load<std::uint8_t>(m_bytes);
        case GenTL::INFO_DATATYPE_INT16:
            return Load<std::int16_t>(m_bytes);
        case GenTL::INFO_DATATYPE_UINT16:
            return Load<std::uint16_t>(m_bytes);
        case GenTL::INFO_DATATYPE_INT32:
            return Load<std::int32_t>(m_bytes);
        case GenTL::INFO_DATATYPE_UINT32:
            return Load<std::uint32_t>(m_bytes);
        case GenTL::INFO_DATATYPE_INT64:
        case GenTL::INFO_DATATYPE_PTRDIFF:
            return Load<std::int64_t>(m_bytes);
        case GenTL::INFO_DATATYPE_UINT64:
        case GenTL::INFO_DATATYPE_SIZET:
        case GenTL::INFO_DATATYPE_PTR:
            return Load<std::uint64_t>(m_bytes);
        default:
            return std::nullopt;
    }
}

}  // namespace Tool
