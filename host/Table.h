#pragma once

#include <string>
#include <vector>

#include "host/Output.h"
#include "timeline/Text.h"

namespace KR {

/// Cells, already fit for a terminal (see printable()).
using TableRow = std::vector<std::string>;

/// Rows with as many cells each, as lines of text with aligned columns. Where they would be wider
/// than `width`, cells go on in the lines below: nothing is left out.
std::string tableText(const std::vector<TableRow>& rows, std::size_t width = outputWidth());

/// A text in lines of at most so many characters, broken at blanks; within a word, after a slash if
/// it can be, only where that is wider than a line. The blanks at which it is broken are gone.
std::vector<std::string> wrapped(const std::string& text, std::size_t width);

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
