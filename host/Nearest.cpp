#include "host/Nearest.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace KR {

namespace {

/// A longer text is no slip of the pen, and comparing two of them takes the product of their sizes.
constexpr std::size_t kMaxTextBytes = 200;

/// Insertions, deletions and replacements of bytes that turn one text into the other (Levenshtein's
/// distance, row by row); `bound` when there are as many or more.
std::size_t editDistance(const std::string& a, const std::string& b, std::size_t bound)
{
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i);
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t replaced = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            diagonal = std::exchange(row[j], std::min({replaced, row[j] + 1, row[j - 1] + 1}));
        }
        if (*std::min_element(row.begin(), row.end()) >= bound)
            return bound;
    }
    return std::min(row.back(), bound);
}

}  // namespace

std::string nearestText(const std::string& text, const std::vector<std::string>& candidates)
{
    if (text.empty() || text.size() > kMaxTextBytes)
        return {};
    std::string nearest;
    std::size_t least = std::min(text.size(), std::max<std::size_t>(2, text.size() / 5) + 1);
    for (const std::string& candidate : candidates) {
        const std::size_t shorter = std::min(text.size(), candidate.size());
        if (std::max(text.size(), candidate.size()) - shorter >= least)
            continue;
        const std::size_t distance = editDistance(text, candidate, least);
        if (distance < least) {
            least = distance;
            nearest = candidate;
        }
    }
    return nearest;
}

std::string didYouMean(const std::string& text, const std::vector<std::string>& candidates)
{
    const std::string nearest = nearestText(text, candidates);
    return nearest.empty() ? nearest : "; did you mean '" + nearest + "'?";
}

}  // namespace KR
