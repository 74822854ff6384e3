#include "gentl/RegisterAccess.h"

#include "gentl/Failure.h"
#include "gentl/Numbers.h"

#include <algorithm>

namespace Tool {
namespace {

constexpr std::uint64_t kDeviceMode = 0x0004;
constexpr std::size_t kWordSize = 4;

std::string AddressText(std::uint64_t address)
{
    return Format("0x%08llX", address);
}

}  // namespace

RegisterWrite ParseRegisterWrite(const std::string& text)
{
    const std::size_t sign = text.find('=');
    const std::int64_t address = ToInteger(text.substr(0, sign)).value_or(-1);
    const std::int64_t value = sign == std::string::npos ? -1 : ToInteger(text.substr(sign + 1)).value_or(-1);
    if (address < 0 || value < 0 || value > 0xFFFFFFFF) {
        throw Failure("\"" + text + "\" isn't a register's address, =, and a 32-bit value",
                      "Write numbers as 4096 or as 0x1000, such as 0x20014=1.");
    }
    return {static_cast<std::uint64_t>(address), static_cast<std::uint32_t>(value)};
}

RegisterAccess::RegisterAccess(const Producer& producer, GenTL::PORT_HANDLE hPort)
    : m_producer(producer), m_hPort(hPort)
{
}

std::vector<std::uint8_t> RegisterAccess::Read(std::uint64_t address, std::size_t size)
{
    std::vector<std::uint8_t> bytes(size);
    m_producer.Check(m_producer->GCReadPort(m_hPort, address, bytes.data(), &size), "GCReadPort",
                     "read " + std::to_string(bytes.size()) + " bytes at " + AddressText(address));
    bytes.resize(std::min(size, bytes.size()));
    return bytes;
}

void RegisterAccess::Write(std::uint64_t address, const std::vector<std::uint8_t>& bytes)
{
    std::size_t size = bytes.size();
    m_producer.Check(m_producer->GCWritePort(m_hPort, address, bytes.data(), &size), "GCWritePort",
                     "write " + std::to_string(bytes.size()) + " bytes at " + AddressText(address));
}

std::uint32_t RegisterAccess::ReadWord(std::uint64_t address)
{
    std::vector<std::uint8_t> bytes = ReadWordBytes(address);
    if (!IsBigEndian()) {
        std::reverse(bytes.begin(), bytes.end());
    }
    std::uint32_t value = 0;
    for (const std::uint8_t byte : bytes) {
        value = value << 8 | byte;
    }
    return value;
}

void RegisterAccess::WriteWord(std::uint64_t address, std::uint32_t value)
{
    std::vector<std::uint8_t> bytes(kWordSize);
    for (std::size_t i = 0; i < kWordSize; ++i) {
        bytes[kWordSize - 1 - i] = static_cast<std::uint8_t>(value >> 8 * i);
    }
    if (!IsBigEndian()) {
        std::reverse(bytes.begin(), bytes.end());
    }
    Write(address, bytes);
}

std::vector<std::uint8_t> RegisterAccess::ReadWordBytes(std::uint64_t address)
{
    std::vector<std::uint8_t> bytes = Read(address, kWordSize);
    if (bytes.size() < kWordSize) {
        throw Failure("the register at " + AddressText(address) + " gave only " +
                      std::to_string(bytes.size()) + " bytes");
    }
    return bytes;
}

bool RegisterAccess::IsBigEndian()
{
    if (!m_isBigEndian) {
        // The register's top bit says it. With the bit set the top byte comes first; with it clear, a byte
        // that comes first can't have it set either: it is then the top byte itself, or the one that names
        // the character set.
        m_isBigEndian = (ReadWordBytes(kDeviceMode).front() & 0x80) != 0;
    }
    return *m_isBigEndian;
}

}  // namespace Tool
