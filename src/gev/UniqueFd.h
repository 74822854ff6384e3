/// A file descriptor with an owner.
#pragma once

#include <unistd.h>

#include <utility>

namespace GenTL {

/// Closes its descriptor at the end; -1 is none.
class UniqueFd
{
public:
    explicit UniqueFd(int descriptor = -1) : m_descriptor(descriptor) {}
    UniqueFd(UniqueFd&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    UniqueFd& operator=(UniqueFd&&) = delete;
    ~UniqueFd()
    {
        if (m_descriptor >= 0) {
            close(m_descriptor);
        }
    }

    int Get() const { return m_descriptor; }

private:
    int m_descriptor;
};

}  // namespace GenTL
