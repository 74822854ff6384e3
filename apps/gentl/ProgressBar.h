/// One line on a terminal that shows how far a run has come.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace Tool {

/// Draws on the standard error stream, and only when that is a terminal. The destructor clears the line.
class ProgressBar
{
public:
    /// A total of 0 stands for a run without end: the line then has no bar.
    explicit ProgressBar(std::uint64_t total);
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    /// Redraws at most ten times a second.
    void Show(std::uint64_t done, const std::string& remark);

private:
    std::uint64_t m_total;
    bool m_isTerminal;
    std::chrono::steady_clock::time_point m_nextDraw;
};

}  // namespace Tool
