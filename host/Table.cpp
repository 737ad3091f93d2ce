#include "host/Table.h"

#include <algorithm>
#include <numeric>

namespace KR {

namespace {

constexpr std::size_t kGap = 2;
/// A column that is no wider is not worth breaking.
constexpr std::size_t kNarrow = 16;
/// A column is no narrower than this, however narrow the terminal.
constexpr std::size_t kMinWidth = 4;

std::string withoutBlanksAtItsEnd(std::string text)
{
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

/// What stays together in a line: up to a blank, which belongs to it.
std::vector<std::string> wordsOf(const std::string& text)
{
    std::vector<std::string> words(1);
    for (const char c : text) {
        words.back() += c;
        if (c == ' ')
            words.emplace_back();
    }
    return words;
}

std::size_t widthOf(const std::string& text)
{
    return displayWidth(withoutBlanksAtItsEnd(text));
}

/// Takes a line's worth off a word in UTF-8 that is wider: up to the last slash, if it has one
/// there.
std::string takeLine(std::string& word, std::size_t width)
{
    std::size_t end = 0;
    while (end < word.size() && displayWidth(word.substr(0, end + 1)) <= width)
        ++end;
    const std::size_t slash = word.rfind('/', end - 1);
    if (slash != std::string::npos)
        end = slash + 1;
    std::string line = word.substr(0, end);
    word.erase(0, end);
    return line;
}

struct Column {
    std::size_t natural = 0;  ///< as wide as its widest cell
    std::size_t word = 0;     ///< as wide as its widest word
    std::size_t width = 0;
};

std::size_t widthOf(const std::vector<Column>& columns)
{
    return std::accumulate(
        columns.begin(), columns.end(), kGap * (columns.size() - 1),
        [](std::size_t sum, const Column& column) { return sum + column.width; });
}

std::vector<Column> columnsOf(const std::vector<TableRow>& rows)
{
    std::vector<Column> columns(rows.front().size());
    for (const TableRow& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            columns[i].natural = std::max(columns[i].natural, displayWidth(row[i]));
            for (const std::string& word : wordsOf(row[i]))
                columns[i].word = std::max(columns[i].word, widthOf(word));
        }
    }
    for (Column& column : columns)
        if (column.natural <= kNarrow)
            column.word = column.natural;
    return columns;
}

/// Each column gets the width of its widest word; where that is too much, the widest give way. Of
/// what is left, the columns that need the least more get it, and the one that needs the most the
/// rest.
void fit(std::vector<Column>& columns, std::size_t width)
{
    std::vector<Column*> byNeed;
    for (Column& column : columns) {
        column.width = column.word;
        byNeed.push_back(&column);
    }
    while (widthOf(columns) > width) {
        Column& widest = **std::max_element(
            byNeed.begin(), byNeed.end(),
            [](const Column* a, const Column* b) { return a->width < b->width; });
        if (widest.width <= kMinWidth)
            return;
        --widest.width;
    }
    const auto need = [](const Column* column) { return column->natural - column->width; };
    std::stable_sort(byNeed.begin(), byNeed.end(),
                     [&](const Column* a, const Column* b) { return need(a) < need(b); });
    for (Column* column : byNeed) {
        const std::size_t rest = width - widthOf(columns);
        if (need(column) <= rest)
            column->width = column->natural;
        else if (column == byNeed.back())
            column->width += rest;
    }
}

std::string rowText(const TableRow& row, const std::vector<Column>& columns)
{
    std::vector<std::vector<std::string>> cells;
    std::size_t height = 0;
    for (std::size_t i = 0; i < row.size(); ++i) {
        cells.push_back(wrapped(row[i], columns[i].width));
        height = std::max(height, cells.back().size());
    }
    std::string text;
    for (std::size_t line = 0; line < height; ++line) {
        std::string shown;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::string part = line < cells[i].size() ? cells[i][line] : std::string();
            shown += part + std::string(columns[i].width - displayWidth(part) + kGap, ' ');
        }
        text += withoutBlanksAtItsEnd(shown) + "\n";
    }
    return text;
}

}  // namespace

std::vector<std::string> wrapped(const std::string& text, std::size_t width)
{
    std::vector<std::string> lines(1);
    for (std::string word : wordsOf(text)) {
        if (widthOf(lines.back() + word) > width && !lines.back().empty())
            lines.emplace_back();
        while (widthOf(word) > width) {
            lines.back() = takeLine(word, width);
            lines.emplace_back();
        }
        lines.back() += word;
    }
    for (std::string& line : lines)
        line = withoutBlanksAtItsEnd(line);
    return lines;
}

std::string tableText(const std::vector<TableRow>& rows, std::size_t width)
{
    if (rows.empty())
        return {};
    std::vector<Column> columns = columnsOf(rows);
    fit(columns, width);
    std::string text;
    for (const TableRow& row : rows)
        text += rowText(row, columns);
    return text;
}

}  // namespace KR
