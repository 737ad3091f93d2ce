#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace KR {

/// Sorts ids of conditions, of which a change gives none, a few, or thousands close to each other.
/// These are marked in a table of bits. With boost::sort::spreadsort in its place a change that
/// flips 10,000 conditions takes 2.0 times as long, with std::sort 4.6 times.
///
/// Not synchronised: a part of ConditionNetwork.
class IdSorter {
public:
    /// In ascending order. None of them is there twice.
    void sort(std::vector<unsigned>& ids)
    {
        if (!std::is_sorted(ids.begin(), ids.end()))
            sortUnsorted(ids);
    }

private:
    void sortUnsorted(std::vector<unsigned>& ids);

    std::vector<std::uint64_t> marks_;  ///< a bit an id; kept for its storage
};

}  // namespace KR
