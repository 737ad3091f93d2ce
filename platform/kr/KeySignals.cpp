#include "platform/kr/KeySignals.h"

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "platform/kr/KRMemory.h"
#include "platform/vo/Mutex.h"
#include "platform/vo/ServiceObject.h"
#include "platform/vo/Signal.h"

namespace KR {

namespace {

struct KeySignal {
    explicit KeySignal(const std::string& key)
        : object(std::make_shared<vo::ServiceObject>("KRMemory/subscriber/" + key))
    {
        object->signal("signal", signal);
    }
    ~KeySignal() { object->close(); }
    KeySignal(const KeySignal&) = delete;
    KeySignal& operator=(const KeySignal&) = delete;

    vo::Signal<KRValue> signal;
    const std::shared_ptr<vo::ServiceObject> object;
};

}  // namespace

struct KeySignals::Table {
    void deliver(const MemoryChange& change)
    {
        std::shared_ptr<KeySignal> key;
        {
            const vo::Lock lock(mutex);
            key = keys[change.tag];
        }
        key->signal(change.value);
    }

    // Comes before the memory's own lock.
    vo::Mutex mutex;
    std::unordered_map<std::string, std::uint32_t> tags VO_GUARDED_BY(mutex);
    std::vector<std::shared_ptr<KeySignal>> keys VO_GUARDED_BY(mutex);  ///< by tag
};

KeySignals::KeySignals(KRMemory& memory, vo::Clock& clock)
    : memory_(memory),
      table_(std::make_shared<Table>()),
      pump_(memory, clock, "KRMemory signals",
            [table = table_](const MemoryChange& change) { table->deliver(change); })
{
}

KeySignals::~KeySignals() = default;

vo::AnyObject KeySignals::subscriber(const std::string& key)
{
    const vo::Lock lock(table_->mutex);
    const auto known = table_->tags.find(key);
    if (known != table_->tags.end())
        return vo::AnyObject(table_->keys[known->second]->object);
    const auto tag = static_cast<std::uint32_t>(table_->keys.size());
    table_->keys.push_back(std::make_shared<KeySignal>(key));
    table_->tags.emplace(key, tag);
    memory_.watch(pump_.feed(), {{key, tag}});
    return vo::AnyObject(table_->keys[tag]->object);
}

}  // namespace KR
