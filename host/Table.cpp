#include "host/Table.h"

#include <algorithm>

namespace KR {

std::string tableText(const std::vector<TableRow>& rows)
{
    std::vector<std::size_t> widths(rows.empty() ? 0 : rows.front().size());
    for (const TableRow& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], displayWidth(row[i]));
    }
    std::string text;
    for (const TableRow& row : rows) {
        for (std::size_t i = 0; i + 1 < row.size(); ++i)
            text += row[i] + std::string(widths[i] - displayWidth(row[i]) + 2, ' ');
        text += row.back();
        text.erase(text.find_last_not_of(' ') + 1);
        text += "\n";
    }
    return text;
}

}  // namespace KR
