/// The registers of the camera behind the port of an open device.
#pragma once

#include "gentl/IRegisterPort.h"
#include "gentl/Producer.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Tool {

/// A 32-bit register and what goes into it.
struct RegisterWrite
{
    std::uint64_t address;
    std::uint32_t value;
};

/// Reads "ADDRESS=VALUE", each decimal or hexadecimal with 0x. Throws Failure.
RegisterWrite ParseRegisterWrite(const std::string& text);

/// Borrows the producer and the port.
class RegisterAccess : public IRegisterPort
{
public:
    RegisterAccess(const Producer& producer, GenTL::PORT_HANDLE hPort);

    std::vector<std::uint8_t> Read(std::uint64_t address, std::size_t size) override;
    void Write(std::uint64_t address, const std::vector<std::uint8_t>& bytes) override;

    /// A 32-bit register in the byte order that the camera's device mode names. Both throw Failure.
    std::uint32_t ReadWord(std::uint64_t address);
    void WriteWord(std::uint64_t address, std::uint32_t value);

private:
    std::vector<std::uint8_t> ReadWordBytes(std::uint64_t address);
    bool IsBigEndian();

    const Producer& m_producer;
    GenTL::PORT_HANDLE m_hPort;
    std::optional<bool> m_isBigEndian;
};

}  // namespace Tool
