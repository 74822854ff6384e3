/// An event as the entry points see it.
#pragma once

#include "modules/IBaseModule.h"

#include <cstddef>
#include <cstdint>

namespace GenTL {

/// The Event functions, one to one.
class IEvent : public IBaseModule
{
public:
    virtual int GetData(void* pBuffer, std::size_t* piSize, std::uint64_t iTimeout) = 0;
    virtual int GetDataInfo(const void* pInBuffer,
                            std::size_t iInSize,
                            int iInfoCmd,
                            int* piType,
                            void* pOutBuffer,
                            std::size_t* piOutSize) const = 0;
    virtual int GetInfo(int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) = 0;
    virtual int Flush() const = 0;
    virtual int Kill() const = 0;
};

}  // namespace GenTL
