#include "gentl/ProgressBar.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>

namespace Tool {
namespace {

constexpr std::uint64_t kWidth = 32;
constexpr std::chrono::milliseconds kInterval(100);
constexpr char kClearLine[] = "\r\x1b[K";

}  // namespace

ProgressBar::ProgressBar(std::uint64_t total) : m_total(total), m_isTerminal(::isatty(STDERR_FILENO) == 1) {}

ProgressBar::~ProgressBar()
{
    if (m_isTerminal) {
        std::cerr << kClearLine << std::flush;
    }
}

void ProgressBar::Show(std::uint64_t done, const std::string& remark)
{
    const auto now = std::chrono::steady_clock::now();
    if (!m_isTerminal || now < m_nextDraw) {
        return;
    }
    m_nextDraw = now + kInterval;
    std::string line = kClearLine;
    if (m_total != 0) {
        const std::uint64_t filled = std::min(done, m_total) * kWidth / m_total;
        line += '[' + std::string(filled, '#') + std::string(kWidth - filled, '.') + "] " +
                std::to_string(done) + '/' + std::to_string(m_total);
    } else {
        line += std::to_string(done) + " images";
    }
    std::cerr << line << "  " << remark << std::flush;
}

}  // namespace Tool
