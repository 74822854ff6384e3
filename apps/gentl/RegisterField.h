/// A register, or some bits of one, and the number in it.
#pragma once

#include "gentl/IRegisterPort.h"

#include <cstdint>

namespace Tool {

struct RegisterField
{
    std::uint64_t address;
    std::size_t length;  ///< bytes, 1 to 8; of a real number 4 or 8
    bool isBigEndian;
    bool isSigned;
    unsigned lowBit;  ///< of the value, counted from its least significant one
    unsigned highBit;
};

/// All throw Failure: as the port does, and for a value that the field can't hold.
std::int64_t ReadInteger(IRegisterPort& port, const RegisterField& field);
/// Keeps the bits beside the field when canRead is true, and clears them otherwise.
void WriteInteger(IRegisterPort& port, const RegisterField& field, std::int64_t value, bool canRead);
/// The whole register as IEEE 754 number.
double ReadReal(IRegisterPort& port, const RegisterField& field);
void WriteReal(IRegisterPort& port, const RegisterField& field, double value);

}  // namespace Tool
