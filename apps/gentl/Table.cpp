#include "gentl/Table.h"

#include <algorithm>
#include <utility>

namespace Tool {
namespace {

constexpr std::size_t kGap = 2;

/// Characters of a UTF-8 text: its bytes but for those that continue a character.
std::size_t Width(const std::string& text)
{
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

}  // namespace

Table::Table(std::vector<Align> columns, std::vector<std::string> header) : m_columns(std::move(columns))
{
    if (!header.empty()) {
        Add(std::move(header));
    }
}

void Table::Add(std::vector<std::string> row)
{
    row.resize(m_columns.size());
    m_rows.push_back(std::move(row));
}

void Table::Print(std::ostream& out, const std::string& indent) const
{
    std::vector<std::size_t> widths(m_columns.size(), 0);
    for (const auto& row : m_rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], Width(row[i]));
        }
    }
    for (const auto& row : m_rows) {
        std::string line = indent;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::string padding(widths[i] - Width(row[i]), ' ');
            line += m_columns[i] == Align::Left ? row[i] + padding : padding + row[i];
            line.append(kGap, ' ');
        }
        line.erase(line.find_last_not_of(' ') + 1);
        out << line << '\n';
    }
}

}  // namespace Tool
