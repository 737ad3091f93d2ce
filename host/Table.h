#pragma once

#include <string>
#include <vector>

#include "host/Text.h"

namespace KR {

/// Cells, already fit for a terminal (see printable()).
using TableRow = std::vector<std::string>;

/// Rows with as many cells each, as lines of text with aligned columns.
std::string tableText(const std::vector<TableRow>& rows);

/// Texts from outside, fit for a terminal, with commas between; `none` where there are none.
template <class Texts>
std::string listText(const Texts& texts, const std::string& none = "-")
{
    std::string result;
    for (const std::string& text : texts)
        result += (result.empty() ? "" : ", ") + printable(text);
    return result.empty() ? none : result;
}

}  // namespace KR
