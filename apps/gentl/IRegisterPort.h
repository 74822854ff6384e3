/// A space of registers, addressed by the byte.
#pragma once

#include <cstdint>
#include <vector>

namespace Tool {

class IRegisterPort
{
public:
    virtual ~IRegisterPort() = default;
    // Both move bytes in the order of the register's memory, or throw Failure.

    /// May give fewer bytes than asked for: a register of the library's own modules answers with the size of
    /// its value, whatever the length in the module's description.
    virtual std::vector<std::uint8_t> Read(std::uint64_t address, std::size_t size) = 0;
    /// Moves all bytes.
    virtual void Write(std::uint64_t address, const std::vector<std::uint8_t>& bytes) = 0;
};

}  // namespace Tool
