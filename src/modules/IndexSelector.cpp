#include "modules/IndexSelector.h"

#include "frame/GenTL.h"

#include <algorithm>
#include <cstring>

namespace GenTL {

bool IndexSelector::IsWithin(unsigned int count) const
{
    return m_value >= 0 && m_value < static_cast<std::int64_t>(count);
}

int IndexSelector::Highest(unsigned int count)
{
    return std::max(static_cast<int>(count) - 1, 0);
}

int IndexSelector::Write(const void* pBuffer, unsigned long* piSize, unsigned int count)
{
    std::int32_t value = 0;
    if (*piSize < sizeof value) {
        return GC_ERR_BUFFER_TOO_SMALL;
    }
    std::memcpy(&value, pBuffer, sizeof value);
    if (value < 0 || static_cast<unsigned int>(value) >= count) {
        return GC_ERR_INVALID_INDEX;
    }
    m_value = value;
    *piSize = sizeof m_value;
    return GC_ERR_SUCCESS;
}

}  // namespace GenTL
