#include "gentl/RegisterField.h"

#include "gentl/Failure.h"
#include "gentl/Numbers.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>

namespace Tool {
namespace {

std::uint64_t Mask(unsigned bits)
{
    return bits >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << bits) - 1;
}

std::uint64_t ReadRaw(IRegisterPort& port, const RegisterField& field)
{
    std::vector<std::uint8_t> bytes = port.Read(field.address, field.length);
    if (bytes.size() < field.length && (field.isBigEndian || bytes.empty())) {
        throw Failure("its register gave only " + std::to_string(bytes.size()) + " of " +
                      std::to_string(field.length) + " bytes");
    }
    bytes.resize(field.length);  // the upper bytes of a little-endian number are then 0
    if (!field.isBigEndian) {
        std::reverse(bytes.begin(), bytes.end());
    }
    std::uint64_t raw = 0;
    for (const std::uint8_t byte : bytes) {
        raw = raw << 8 | byte;
    }
    return raw;
}

void WriteRaw(IRegisterPort& port, const RegisterField& field, std::uint64_t raw)
{
    std::vector<std::uint8_t> bytes(field.length);
    for (std::uint8_t& byte : bytes) {
        byte = static_cast<std::uint8_t>(raw);
        raw >>= 8;
    }
    if (field.isBigEndian) {
        std::reverse(bytes.begin(), bytes.end());
    }
    port.Write(field.address, bytes);
}

template <typename To, typename From>
To SameBits(From from)
{
    static_assert(sizeof(To) == sizeof(From));
    To to;
    std::memcpy(&to, &from, sizeof to);
    return to;
}

bool IsSingle(const RegisterField& field)
{
    if (field.length != 4 && field.length != 8) {
        throw Failure("its register is " + std::to_string(field.length) +
                      " bytes long; a real number has 4 or 8");
    }
    return field.length == 4;
}

}  // namespace

std::int64_t ReadInteger(IRegisterPort& port, const RegisterField& field)
{
    const unsigned width = field.highBit - field.lowBit + 1;
    std::uint64_t value = ReadRaw(port, field) >> field.lowBit & Mask(width);
    if (field.isSigned && (value >> (width - 1) & 1) != 0) {
        value |= ~Mask(width);
    }
    return static_cast<std::int64_t>(value);
}

void WriteInteger(IRegisterPort& port, const RegisterField& field, std::int64_t value, bool canRead)
{
    const unsigned width = field.highBit - field.lowBit + 1;
    // Beyond the register's bits a value that fits has nothing but its sign.
    const std::int64_t rest = width >= 64 ? 0 : value >> (field.isSigned ? width - 1 : width);
    if (rest != 0 && !(field.isSigned && rest == -1)) {
        throw Failure("the value " + std::to_string(value) + " doesn't fit into its " +
                      std::to_string(width) + " bits");
    }
    std::uint64_t raw = static_cast<std::uint64_t>(value);
    if (width < field.length * 8) {
        const std::uint64_t mask = Mask(width) << field.lowBit;
        const std::uint64_t old = canRead ? ReadRaw(port, field) : 0;
        raw = (old & ~mask) | (raw << field.lowBit & mask);
    }
    WriteRaw(port, field, raw);
}

double ReadReal(IRegisterPort& port, const RegisterField& field)
{
    const bool isSingle = IsSingle(field);
    const std::uint64_t raw = ReadRaw(port, field);
    return isSingle ? static_cast<double>(SameBits<float>(static_cast<std::uint32_t>(raw)))
                    : SameBits<double>(raw);
}

void WriteReal(IRegisterPort& port, const RegisterField& field, double value)
{
    const bool isSingle = IsSingle(field);
    const double most = isSingle ? static_cast<double>(std::numeric_limits<float>::max())
                                 : std::numeric_limits<double>::max();
    if (!(std::fabs(value) <= most)) {
        throw Failure("the value " + RealText(value) + " doesn't fit into its " +
                      std::to_string(field.length * 8) + " bits");
    }
    WriteRaw(port, field,
             isSingle ? SameBits<std::uint32_t>(static_cast<float>(value)) : SameBits<std::uint64_t>(value));
}

}  // namespace Tool
