#pragma once

#include <map>
#include <string>

#include "platform/kr/KRMemory.h"

namespace KR {

/// Writes keys of shared memory when they are to hold something else than what it wrote last. Used
/// by one thread at a time. Memory outlives it.
class ChangedKeys {
public:
    explicit ChangedKeys(KRMemory& memory) : memory_(memory) {}

    /// True when it was written.
    bool write(const std::string& key, const KRValue& value)
    {
        const auto [last, isNew] = last_.try_emplace(key, value);
        if (!isNew && last->second == value)
            return false;
        last->second = value;
        memory_.raiseEvent(key, value);
        return true;
    }
    /// Blanks a key that will not be written again, or not soon.
    void blank(const std::string& key)
    {
        if (last_.erase(key) > 0)
            memory_.raiseEvent(key, KRValue());
    }

private:
    KRMemory& memory_;
    std::map<std::string, KRValue> last_;
};

}  // namespace KR
