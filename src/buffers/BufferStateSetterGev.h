/// The kind of buffer states that the state manager of a GigE Vision stream knows.
#pragma once

#include "buffers/BufferStateSetter.h"

namespace GenTL {

/// Stands for the states of every stream and the one in the driver. Owns nothing.
class BufferStateSetterGev : public BufferStateSetter
{
};

}  // namespace GenTL
