/// What the registers of all modules answer with: a field of the module, one of its info values, or a value.
#pragma once

#include "frame/GenTL.h"
#include "frame/InfoUtility.h"

#include <cstring>

namespace GenTL {

// The consumer's buffer may be unaligned, so the fields are copied by way of a local. Both leave the size as
// given. GC_ERR_INVALID_HANDLE on a null pointer, GC_ERR_BUFFER_TOO_SMALL below the field's bytes.

inline int CheckField(const void* pBuffer, const unsigned long* piSize, unsigned long fieldSize)
{
    if (pBuffer == nullptr || piSize == nullptr) {
        return GC_ERR_INVALID_HANDLE;
    }
    return *piSize < fieldSize ? GC_ERR_BUFFER_TOO_SMALL : GC_ERR_SUCCESS;
}

template <typename Module, typename Field>
int ReadField(const Module& module,
              int (Module::*get)(Field*) const,
              void* pBuffer,
              const unsigned long* piSize)
{
    if (const int code = CheckField(pBuffer, piSize, sizeof(Field)); code != GC_ERR_SUCCESS) {
        return code;
    }
    Field value = 0;
    const int code = (module.*get)(&value);
    std::memcpy(pBuffer, &value, sizeof value);
    return code;
}

template <typename Module, typename Field>
int WriteField(Module& module,
               int (Module::*set)(const Field*),
               const void* pBuffer,
               const unsigned long* piSize)
{
    if (const int code = CheckField(pBuffer, piSize, sizeof(Field)); code != GC_ERR_SUCCESS) {
        return code;
    }
    Field value = 0;
    std::memcpy(&value, pBuffer, sizeof value);
    return (module.*set)(&value);
}

/// The module's answer to an info command.
template <typename Module>
int ReadInfo(Module& module, int command, void* pBuffer, unsigned long* piSize)
{
    int type = 0;
    return module.GetInfo(command, &type, pBuffer, piSize);
}

/// The value's type is one of those that InfoUtility has an overload for.
template <typename Value>
int ReadValue(const InfoUtility& info, const Value& value, void* pBuffer, unsigned long* piSize)
{
    int type = 0;
    return info.SetInfo(value, &type, pBuffer, piSize);
}

// Values of several maps.
inline constexpr long kGigEVision = 0;
inline constexpr int kNotAvailable = 0;

}  // namespace GenTL
