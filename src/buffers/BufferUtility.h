/// Comparison of buffers, for consumers that link it.
#pragma once

#include "frame/GenTL.h"

#include <string>

namespace GenTL {

class Buffer;
class IBaseModule;
class IBuffer;
struct GenTLHandle;

/// Two null pointers are equal, a null and another are not. Threads: the caller keeps the buffers still.
class GENTL_API BufferUtility
{
public:
    /// The name of a BufferState.
    static std::string getStateAsStr(int state);

    /// All fields but the memory, the resend bookkeeping and the payload type's companions.
    static bool areEqualMemebers(const Buffer& a, const Buffer& b);
    static bool areEqualMemebers(const Buffer* a, const Buffer* b);
    static bool areEqualMemebers(const IBuffer* a, const IBuffer* b);
    static bool areEqualMemebers(const IBaseModule* a, const IBaseModule* b);
    static bool areEqualMemebers(const GenTLHandle* a, const GenTLHandle* b);

    /// The sizes and the bytes. Not symmetric: a's data size is held against b's filled size.
    static bool areEqualDataArray(const Buffer& a, const Buffer& b);
    static bool areEqualDataArray(const Buffer* a, const Buffer* b);
    static bool areEqualDataArray(const IBuffer* a, const IBuffer* b);
    static bool areEqualDataArray(const IBaseModule* a, const IBaseModule* b);
    static bool areEqualDataArray(const GenTLHandle* a, const GenTLHandle* b);

    /// Both of the above.
    static bool areEqual(const Buffer& a, const Buffer& b);
    static bool areEqual(const Buffer* a, const Buffer* b);
    static bool areEqual(const IBuffer* a, const IBuffer* b);
    static bool areEqual(const IBaseModule* a, const IBaseModule* b);
    static bool areEqual(const GenTLHandle* a, const GenTLHandle* b);
};

}  // namespace GenTL
