#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/kr/KRValue.h"
#include "platform/vo/Clock.h"
#include "platform/vo/Mutex.h"

namespace KR {

/// What a memory key holds, in the words of who publishes it:
///
///     KeyDescription::integer("BatteryLevel", "fifth of the charge").between(1, 5).emptyAs(-1)
struct KeyDescription {
    enum class Type { boolean, integer, number, text, list, any };

    std::string key;  ///< a "*" in it stands for any text
    Type type = Type::any;
    std::string meaning = {};  ///< with its unit
    /// All that it can hold beside the empty value; none when they cannot be counted.
    std::vector<KRValue> values = {};
    // Of a number that has bounds.
    std::optional<double> min = {};
    std::optional<double> max = {};
    /// What it holds while there is nothing to tell; invalid is a value like others here.
    std::optional<KRValue> empty = {};
    /// Of one that goes through all its values in their order, again and again: how long each
    /// lasts, the longest where they differ.
    std::optional<vo::Duration> step = {};

    static KeyDescription boolean(const std::string& key, const std::string& meaning);
    static KeyDescription integer(const std::string& key, const std::string& meaning);
    static KeyDescription number(const std::string& key, const std::string& meaning);
    static KeyDescription text(const std::string& key, const std::string& meaning);
    static KeyDescription list(const std::string& key, const std::string& meaning);
    KeyDescription& oneOf(std::vector<KRValue> all);
    KeyDescription& atLeast(double least);
    KeyDescription& between(double least, double most);
    KeyDescription& emptyAs(const KRValue& value);
    KeyDescription& stepping(vo::Duration longest);

    /// Whether `value` is one that the key can hold, as `==` in a condition sees it: an int equals
    /// a float, and a bool 0 or 1.
    bool canHold(const KRValue& value) const;
    /// "integer, 1 to 5", "text, \"Low\" or \"Full\"".
    std::string describeValues() const;
};

/// Name of a type, for people.
const char* keyTypeName(KeyDescription::Type type);

/// Which keys of shared memory there are, who publishes and who reads them. Modules add their own
/// when they are made; it forgets nothing. Thread-safe.
class KeyCatalogue {
public:
    struct Entry {
        /// As the first publisher described it; without any, the key alone.
        KeyDescription description;
        std::set<std::string> publishers;
        std::set<std::string> readers;
    };

    void addPublished(const KeyDescription& description, const std::string& publisher);
    void addRead(const std::string& key, const std::string& reader);

    /// In ascending order of key.
    std::vector<Entry> entries() const;
    /// The entry of a key, or the one that stands for it among others.
    std::optional<Entry> find(const std::string& key) const;
    /// Who publishes a key, where only one does; "" where nobody or several do.
    std::string onlyPublisher(const std::string& key) const;
    /// Grows whenever a publisher is added: what onlyPublisher() said before may not hold any more.
    std::uint64_t version() const { return version_; }

private:
    const Entry* entryOf(const std::string& key) const VO_REQUIRES(mutex_);

    std::atomic<std::uint64_t> version_{0};
    mutable vo::Mutex mutex_;
    std::map<std::string, Entry> entries_ VO_GUARDED_BY(mutex_);
};

}  // namespace KR
