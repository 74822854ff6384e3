/// A number that several threads read and write without a lock.
#pragma once

#include <atomic>

namespace GenTL {

/// Each access is whole and orders nothing else; changes by an operator are not atomic, so they need one
/// writer or a lock. Costs what a plain field costs.
template <typename T>
class Relaxed
{
public:
    Relaxed(T value = T())
        : m_value(value) {}  // NOLINT(google-explicit-constructor): reads like a plain field
    Relaxed(const Relaxed& other) : m_value(T(other)) {}
    Relaxed& operator=(const Relaxed& other) { return *this = T(other); }
    Relaxed& operator=(T value)
    {
        m_value.store(value, std::memory_order_relaxed);
        return *this;
    }
    operator T() const
    {
        return m_value.load(std::memory_order_relaxed);
    }  // NOLINT(google-explicit-constructor)

    Relaxed& operator+=(T change) { return *this = static_cast<T>(T(*this) + change); }
    Relaxed& operator-=(T change) { return *this = static_cast<T>(T(*this) - change); }
    /// Atomic, with the value before as the answer.
    T exchange(T value) { return m_value.exchange(value, std::memory_order_relaxed); }

private:
    std::atomic<T> m_value;
};

}  // namespace GenTL
