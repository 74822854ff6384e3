#include "frame/PortableUtil.h"

#include <string.h>

#include <cstdio>

namespace GenTL {

int memcpy_portable(void* dst, std::size_t /*dstSize*/, const void* src, std::size_t count)
{
    if (count != 0) {
        memcpy(dst, src, count);
    }
    return 0;
}

int itoa_portable(int value, char* dst, std::size_t /*dstSize*/, int /*radix*/)
{
    return sprintf(dst, "%d", value);
}

std::size_t strnlen_portable(const char* text, std::size_t maxLength)
{
    return strnlen(text, maxLength);
}

}  // namespace GenTL
