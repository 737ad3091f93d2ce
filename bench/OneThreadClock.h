#pragma once

#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "platform/vo/Clock.h"
#include "platform/vo/Executor.h"

namespace bench {

/// The real clock's time, and executors whose tasks wait until somebody has them run: what the
/// platform does without any hand-off between threads. For one thread; tasks with a delay are
/// dropped.
class OneThreadClock : public vo::Clock {
public:
    vo::TimePoint now() const override { return real_->now(); }
    vo::Duration uptime() const override { return real_->uptime(); }
    vo::Duration roughUptime() const override { return real_->roughUptime(); }
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
        while (!tasks_->empty()) {
            running_.swap(*tasks_);
            for (const vo::Executor::Task& task : running_)
                task();
            running_.clear();
        }
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

    const std::shared_ptr<vo::Clock> real_ = vo::makeRealClock();
    const std::shared_ptr<Tasks> tasks_ = std::make_shared<Tasks>();
    Tasks running_;
};

}  // namespace bench
