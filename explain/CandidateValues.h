#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/conditions/ConditionParser.h"
#include "platform/conditions/ConditionPart.h"
#include "platform/kr/KeyCatalogue.h"

namespace KR {

/// The values of keys that could make a difference to a condition: those that a key is compared
/// with, those next to them, what keys that it is compared with hold, and the values that the
/// catalogue says that it has. Values that a key cannot have by its description are left out. In
/// the order in which a person would try them.
class CandidateValues {
public:
    /// Most that are tried of one key.
    static constexpr std::size_t kMost = 24;

    /// `catalogue` may be null; `condition` says what `expression` amounts to now.
    CandidateValues(const Expression& expression, const ConditionPart& condition,
                    const KeyCatalogue* catalogue);

    /// Of a key that the condition reads.
    const std::vector<KRValue>& of(const std::string& key) const { return values_.at(key); }
    const std::map<std::string, std::vector<KRValue>>& all() const { return values_; }

private:
    void collect(const Expression& expression, const ConditionPart& part);
    void addCompared(const std::string& key, const KRValue& literal);
    void addNeighbours(const std::string& key);
    void addAround(const std::string& key, std::string text);
    void addDescribed(const std::string& key, const KRValue& now, const KeyCatalogue* catalogue);
    void add(const std::string& key, const KRValue& value);

    std::map<std::string, std::vector<KRValue>> values_;
    std::map<std::string, std::vector<KRValue>> literals_;
    std::map<std::string, std::vector<std::string>> compared_;  ///< keys with one another
};

}  // namespace KR
