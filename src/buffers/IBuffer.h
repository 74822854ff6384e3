/// An image buffer as the entry points see it.
#pragma once

#include "modules/IBaseModule.h"

namespace GenTL {

/// Has no operations of its own: a buffer is asked through its stream.
class IBuffer : public IBaseModule
{
};

}  // namespace GenTL
