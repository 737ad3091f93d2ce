#pragma once

#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "platform/vo/Clock.h"
#include "platform/vo/Executor.h"

namespace bench {

/// The machine's time, and executors whose tasks wait until somebody has them run: what the
/// platform does without any hand-off between threads. For one thread; tasks with a delay are
/// dropped.
class OneThreadClock : public vo::Clock {
public:
    vo::TimePoint now() const override
    {
        return std::chrono::floor<vo::Duration>(std::chrono::system_clock::now());
    }
    vo::Duration uptime() const override
    {
        return std::chrono::floor<vo::Duration>(std::chrono::steady_clock::now() - start_);
    }
    std::shared_ptr<vo::Executor> makeExecutor(const std::string&, Threading) override
    {
        return std::make_shared<Waiting>(tasks_);
    }

    bool runWithin(vo::Duration, std::function<void()> work) override
    {
        work();
        return true;
    }

    /// Runs what was posted, and what that posts.
    void run()
    {
        for (std::size_t i = 0; i < tasks_->size(); ++i) {
            const vo::Executor::Task task = std::move((*tasks_)[i]);
            task();
        }
        tasks_->clear();
    }

private:
    using Tasks = std::vector<vo::Executor::Task>;

    class Waiting : public vo::Executor {
    public:
        explicit Waiting(std::shared_ptr<Tasks> tasks) : tasks_(std::move(tasks)) {}
        TaskId post(Task task, vo::Duration delay) override
        {
            if (!closed_ && delay <= vo::Duration::zero())
                tasks_->push_back(std::move(task));
            return closed_ ? 0 : 1;
        }
        bool cancel(TaskId) override { return false; }
        bool isCurrent() const override { return true; }
        void close() override { closed_ = true; }

    private:
        const std::shared_ptr<Tasks> tasks_;
        bool closed_ = false;
    };

    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    const std::shared_ptr<Tasks> tasks_ = std::make_shared<Tasks>();
};

}  // namespace bench
