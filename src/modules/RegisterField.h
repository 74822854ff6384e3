/// A module's field as a register: the module's getter or setter behind a consumer's buffer.
#pragma once

#include "frame/GenTL.h"

#include <cstring>

namespace GenTL {

// The consumer's buffer may be unaligned, so the fields are copied by way of a local. Both leave the size as
// given. GC_ERR_INVALID_HANDLE on a null pointer, GC_ERR_BUFFER_TOO_SMALL below the field's bytes.

template <typename Module, typename Field>
int ReadField(const Module& module,
              int (Module::*get)(Field*) const,
              void* pBuffer,
              const unsigned long* piSize)
{
    if (pBuffer == nullptr || piSize == nullptr) {
        return GC_ERR_INVALID_HANDLE;
    }
    if (*piSize < sizeof(Field)) {
        return GC_ERR_BUFFER_TOO_SMALL;
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
    if (pBuffer == nullptr || piSize == nullptr) {
        return GC_ERR_INVALID_HANDLE;
    }
    if (*piSize < sizeof(Field)) {
        return GC_ERR_BUFFER_TOO_SMALL;
    }
    Field value = 0;
    std::memcpy(&value, pBuffer, sizeof value);
    return (module.*set)(&value);
}

}  // namespace GenTL
