#include "platform/kr/FeedPump.h"

#include <atomic>
#include <utility>
#include <vector>

#include "platform/kr/KRMemory.h"
#include "platform/vo/Executor.h"

namespace KR {

struct FeedPump::State {
    // Constant after construction.
    KRMemory* memory = nullptr;
    std::shared_ptr<vo::Executor> executor;
    Handler handler;
    std::shared_ptr<MemoryFeed> feed;
    // Synchronised by itself.
    std::atomic<bool> closed{false};
    // Of the executor's task alone.
    std::vector<MemoryChange> batch;

    void handOn();
};

// One batch a wake is enough: what arrives after take() finds the queue empty and wakes again.
void FeedPump::State::handOn()
{
    memory->take(*feed, batch);
    for (const MemoryChange& change : batch) {
        if (closed)
            break;
        handler(change);
    }
    batch.clear();
}

FeedPump::FeedPump(KRMemory& memory, vo::Clock& clock, const std::string& name, Handler handler)
    : state_(std::make_shared<State>())
{
    state_->memory = &memory;
    state_->executor = clock.makeExecutor(name, vo::Clock::Threading::shared);
    state_->handler = std::move(handler);
    const std::weak_ptr<State> weak = state_;
    state_->feed = std::make_shared<MemoryFeed>([weak] {
        const auto state = weak.lock();
        if (!state)
            return;
        state->executor->post([weak] {
            if (const auto running = weak.lock())
                running->handOn();
        });
    });
}

FeedPump::~FeedPump()
{
    state_->closed = true;
    state_->executor->close();
}

// What was appended has posted its own task before this one.
void FeedPump::post(std::function<void()> task)
{
    state_->executor->post(std::move(task));
}

const std::shared_ptr<MemoryFeed>& FeedPump::feed() const
{
    return state_->feed;
}

}  // namespace KR
