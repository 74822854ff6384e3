/// Thin wrappers that read alike on all platforms.
#pragma once

#include <cstddef>

namespace GenTL {

/// Copies count bytes and returns 0. dstSize is not looked at: the caller answers for the room.
int memcpy_portable(void* dst, std::size_t dstSize, const void* src, std::size_t count);

/// Writes value in decimal, terminated, and returns the number of characters. dstSize and radix are not
/// looked at.
int itoa_portable(int value, char* dst, std::size_t dstSize, int radix);

/// The length of text, at most maxLength.
std::size_t strnlen_portable(const char* text, std::size_t maxLength);

}  // namespace GenTL
