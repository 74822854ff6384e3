/// A table of text with aligned columns.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace Tool {

class Table
{
public:
    enum class Align { Left, Right };

    /// One column per alignment. Without a header the table has none.
    explicit Table(std::vector<Align> columns, std::vector<std::string> header = {});

    /// Missing cells are empty, surplus ones are dropped.
    void Add(std::vector<std::string> row);
    void Print(std::ostream& out, const std::string& indent = {}) const;

private:
    std::vector<Align> m_columns;
    std::vector<std::vector<std::string>> m_rows;
};

}  // namespace Tool
