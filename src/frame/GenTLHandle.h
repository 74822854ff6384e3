/// The record behind every handle that a consumer holds, and the functions around it.
#pragma once

#include "frame/GenTL.h"

#include <cstdint>

namespace GenTL {

class Buffer;
class IBaseModule;
class IBuffer;

/// Marks a live record; in memory the bytes "OVRON" and three zeros.
inline constexpr std::uint64_t kHandleTag = 0x4E4F52564F;

/// A tag and a module. Owns nothing: whoever closes a module deletes module and handle.
/// Written once at creation and read without synchronisation; closing a handle in use is the consumer's
/// fault.
struct GenTLHandle
{
    std::uint64_t tag;
    IBaseModule* module;
};

/// Makes a record for module and stores its address in *phHandle. Always 0.
GENTL_API int AllocateHandle(void** phHandle, IBaseModule* module);
/// 0, or GC_ERR_INVALID_HANDLE with an error stored. Reads eight bytes through h.
GENTL_API int CheckHandle(void* h);
/// The module of a valid handle; null when the module is gone. A bad handle ends the process.
GENTL_API IBaseModule* CastHandleToIBasePtr(void* h);
/// The same under the name that the entry points use.
GENTL_API IBaseModule* CastHandle(void* h);
/// The module as a buffer, or null when it is none.
GENTL_API IBuffer* CastHandleToIBufferPtr(void* h);
GENTL_API Buffer* CastHandleToBufferPtr(void* h);
/// Clears the tag and frees the record. GC_ERR_INVALID_HANDLE, with nothing freed, on a foreign pointer.
GENTL_API int DeleteHandle(void* h);

/// Detaches every record from a module that is being destroyed, so that a handle that outlives its module
/// is answered with GC_ERR_INVALID_HANDLE.
void ForgetModule(const IBaseModule* module);

}  // namespace GenTL
