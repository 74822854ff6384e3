/// The kind of buffer states that a state manager knows.
#pragma once

namespace GenTL {

/// Stands for the states of every stream. Owns nothing; what a state writes is in buffers/BufferFieldSets.h.
class BufferStateSetter
{
public:
    virtual ~BufferStateSetter() = default;
};

}  // namespace GenTL
