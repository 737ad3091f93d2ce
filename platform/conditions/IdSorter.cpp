#include "platform/conditions/IdSorter.h"

#include <cstddef>

namespace KR {

namespace {

/// As many ids are sorted by comparing them; more of them are marked in a table of bits.
constexpr std::size_t kMaxCompared = 64;
/// The table is used where it has at most as many bits an id.
constexpr std::size_t kMaxBitsPerId = 256;

}  // namespace

void IdSorter::sortUnsorted(std::vector<unsigned>& ids)
{
    const auto [least, greatest] = std::minmax_element(ids.begin(), ids.end());
    const std::size_t base = *least;
    const std::size_t bits = *greatest - base + 1;
    if (ids.size() <= kMaxCompared || bits > ids.size() * kMaxBitsPerId) {
        std::sort(ids.begin(), ids.end());
        return;
    }
    marks_.assign(bits / 64 + 1, 0);
    for (const unsigned id : ids)
        marks_[(id - base) / 64] |= std::uint64_t{1} << ((id - base) % 64);
    auto out = ids.begin();
    for (std::size_t word = 0; word < marks_.size(); ++word)
        for (std::uint64_t left = marks_[word]; left != 0; left &= left - 1)
            *out++ = static_cast<unsigned>(base + word * 64 +
                                           static_cast<std::size_t>(__builtin_ctzll(left)));
}

}  // namespace KR
