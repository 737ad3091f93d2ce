#pragma once

#include <string>
#include <vector>

namespace KR {

/// The candidate that somebody who wrote `text` may have meant; "" when none is near.
std::string nearestText(const std::string& text, const std::vector<std::string>& candidates);

/// "; did you mean 'candidate'?", or "".
std::string didYouMean(const std::string& text, const std::vector<std::string>& candidates);

}  // namespace KR
