#pragma once

#include <string>
#include <vector>

namespace KR {

/// The candidate that somebody who wrote `text` may have meant: the nearest, the first of several;
/// "" when none is near. Near is what two insertions, deletions and replacements of bytes make of
/// it, or one for every five bytes of a long text, and fewer than a short one has bytes.
std::string nearestText(const std::string& text, const std::vector<std::string>& candidates);

/// "; did you mean 'candidate'?", or "".
std::string didYouMean(const std::string& text, const std::vector<std::string>& candidates);

}  // namespace KR
