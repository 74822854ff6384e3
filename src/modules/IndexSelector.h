/// The feature that says which entry of a list the features below it tell of.
#pragma once

#include <cstdint>

namespace GenTL {

/// An index that only a write checks: a list that shrinks leaves it where it was.
///
/// Owns: the index. Threads: the consumer's, one at a time. Locks: none.
class IndexSelector
{
public:
    const std::int64_t& Value() const { return m_value; }
    unsigned int Index() const { return static_cast<unsigned int>(m_value); }
    bool IsWithin(unsigned int count) const;
    /// The highest index of a list, but not below 0.
    static int Highest(unsigned int count);

    /// Takes the low 32 bits in pBuffer as a signed number. GC_ERR_BUFFER_TOO_SMALL for fewer than 4 bytes,
    /// GC_ERR_INVALID_INDEX outside the list; neither is cached, and the old index stays.
    int Write(const void* pBuffer, unsigned long* piSize, unsigned int count);

private:
    std::int64_t m_value = 0;
};

}  // namespace GenTL
