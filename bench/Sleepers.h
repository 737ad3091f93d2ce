#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "bench/Harness.h"

namespace bench {

using Steady = std::chrono::steady_clock;

/// The least that a message to another thread can cost: a chain of threads, each pinned to a core,
/// asleep on a condition variable, and woken by the one before.
class Sleepers {
public:
    explicit Sleepers(const std::vector<unsigned>& cores)
    {
        for (std::size_t i = 0; i < cores.size(); ++i)
            sleepers_.push_back(std::make_unique<Sleeper>());
        for (std::size_t i = 0; i < cores.size(); ++i)
            sleepers_[i]->thread = std::thread([this, i, core = cores[i]] {
                pinToCore(core);
                run(i);
            });
    }
    ~Sleepers()
    {
        for (const auto& sleeper : sleepers_) {
            {
                const std::lock_guard lock(sleeper->mutex);
                sleeper->ended = true;
            }
            sleeper->wake.notify_one();
            sleeper->thread.join();
        }
    }
    Sleepers(const Sleepers&) = delete;
    Sleepers& operator=(const Sleepers&) = delete;

    /// Wakes the first; `atEnd` is called by the last.
    void send(const std::function<void()>& atEnd)
    {
        atEnd_ = atEnd;
        sendTo(0);
    }

private:
    struct Sleeper {
        std::mutex mutex;
        std::condition_variable wake;
        bool called = false;
        bool ended = false;
        std::thread thread;
    };

    void sendTo(std::size_t i)
    {
        {
            const std::lock_guard lock(sleepers_[i]->mutex);
            sleepers_[i]->called = true;
        }
        sleepers_[i]->wake.notify_one();
    }
    void run(std::size_t i)
    {
        Sleeper& self = *sleepers_[i];
        for (;;) {
            {
                std::unique_lock lock(self.mutex);
                self.wake.wait(lock, [&] { return self.called || self.ended; });
                if (self.ended)
                    return;
                self.called = false;
            }
            if (i + 1 < sleepers_.size())
                sendTo(i + 1);
            else
                atEnd_();
        }
    }

    std::function<void()> atEnd_;
    std::vector<std::unique_ptr<Sleeper>> sleepers_;
};

}  // namespace bench
