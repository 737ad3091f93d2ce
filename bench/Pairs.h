#pragma once

#include <cstddef>
#include <random>
#include <string>
#include <vector>

namespace bench {

/// The workload "pairs": rules of two terms, `'k'=="Low" && !'asleep'`, over a quarter as many
/// keys. Rule i reads key i modulo the number of keys.
struct Pairs {
    explicit Pairs(std::size_t rules) : ruleCount(rules), keyCount(rules / 4 < 4 ? 4 : rules / 4)
    {
        for (std::size_t i = 0; i < keyCount; ++i)
            keys.push_back("Sense/Zone" + std::to_string(i));
    }

    const std::string& keyOf(std::size_t rule) const { return keys[rule % keyCount]; }
    std::string condition(std::size_t rule) const
    {
        return "'" + keyOf(rule) + "'==\"Low\" && !'" + kAsleep + "'";
    }

    static constexpr const char* kAsleep = "Nimbra/Asleep";
    std::size_t ruleCount;
    std::size_t keyCount;
    std::vector<std::string> keys;
};

/// Which key changes next: each as likely as the others, or one of four; every key alternates
/// between "Low" and "High".
class PairChanges {
public:
    enum class Choice { uniform, hot };

    PairChanges(const Pairs& pairs, Choice choice) : isLow_(pairs.keyCount)
    {
        // The hot ones lie apart.
        const std::size_t step = choice == Choice::hot ? pairs.keyCount / 4 : 1;
        std::uniform_int_distribution<std::size_t> any(
            0, choice == Choice::hot ? 3 : pairs.keyCount - 1);
        std::mt19937_64 random(20240611);
        for (std::size_t& key : keys_)
            key = any(random) * step;
    }

    struct Change {
        std::size_t key;
        bool low;
    };
    Change next()
    {
        const std::size_t key = keys_[next_++ % kLength];
        isLow_[key] = static_cast<char>(!isLow_[key]);
        return {key, isLow_[key] != 0};
    }

private:
    static constexpr std::size_t kLength = 1 << 16;
    std::vector<std::size_t> keys_ = std::vector<std::size_t>(kLength);
    std::vector<char> isLow_;
    std::size_t next_ = 0;
};

}  // namespace bench
