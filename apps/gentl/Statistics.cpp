#include "gentl/Statistics.h"

namespace Tool {
namespace {

/// The count of a 16-bit camera goes from this to 1.
constexpr std::int64_t kLast16BitId = 0xFFFF;

/// How far id is ahead of last; negative when it lies behind.
std::int64_t Distance(std::uint64_t last, std::uint64_t id)
{
    const auto distance = static_cast<std::int64_t>(id - last);
    const bool isWrapped = last <= kLast16BitId && distance < -kLast16BitId / 2;
    return isWrapped ? distance + kLast16BitId : distance;
}

}  // namespace

void Statistics::Count(const Image& image, Clock::time_point now)
{
    if (image.id != 0) {
        const std::int64_t distance = Distance(m_lastId, image.id);
        if (distance > 0) {
            m_lost += static_cast<std::uint64_t>(distance) - 1;
            m_lastId = image.id;
        } else if (m_lost > 0) {
            --m_lost;
        }
    }
    if (m_images == 0) {
        m_first = now;
    } else {
        m_bytesAfterFirst += image.sizeFilled;
    }
    m_last = now;
    ++m_images;
    m_incomplete += image.isIncomplete ? 1 : 0;
}

std::optional<double> Statistics::FrameRate() const
{
    return PerSecond(static_cast<double>(m_images) - 1);
}

std::optional<double> Statistics::BytesPerSecond() const
{
    return PerSecond(static_cast<double>(m_bytesAfterFirst));
}

std::optional<double> Statistics::PerSecond(double amount) const
{
    const double seconds = std::chrono::duration<double>(m_last - m_first).count();
    if (m_images < 2 || seconds <= 0) {
        return std::nullopt;
    }
    return amount / seconds;
}

}  // namespace Tool
