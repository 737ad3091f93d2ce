#pragma once

#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "platform/vo/Clock.h"
#include "platform/vo/DueQueue.h"
#include "platform/vo/Executor.h"

namespace bench {

/// The real clock's time, and executors whose tasks wait until somebody has them run: what the
/// platform does without any hand-off between threads. For one thread; tasks with a delay wait
/// until somebody asks for what is due.
class OneThreadClock : public vo::Clock {
public:
    vo::TimePoint now() const override { return real_->now(); }
    vo::Duration uptime() const override { return real_->uptime(); }
    vo::Duration roughUptime() const override { return real_->roughUptime(); }
    std::shared_ptr<vo::Executor> makeExecutor(const std::string&, Threading) override
    {
        return std::make_shared<Waiting>(tasks_, later_, *real_);
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

    /// Whether a task with a delay waits.
    bool isWaiting() const { return !later_->empty(); }
    /// Runs what has become due, and what that posts.
    void runDue()
    {
        while (later_->isDue([this] { return uptime(); }))
            tasks_->push_back(later_->pop());
        run();
    }

private:
    using Tasks = std::vector<vo::Executor::Task>;
    using Later = vo::DueQueue<vo::Executor::Task>;

    class Waiting : public vo::Executor {
    public:
        Waiting(std::shared_ptr<Tasks> tasks, std::shared_ptr<Later> later, vo::Clock& clock)
            : tasks_(std::move(tasks)), later_(std::move(later)), clock_(clock)
        {
        }
        TaskId post(Task task, vo::Duration delay) override
        {
            if (closed_)
                return 0;
            if (delay > vo::Duration::zero())
                return later_->pushLater(vo::dueAt(clock_.uptime(), delay), std::move(task));
            tasks_->push_back(std::move(task));
            return kPosted;
        }
        bool cancel(TaskId id) override { return later_->remove(id).has_value(); }
        bool isCurrent() const override { return true; }
        void close() override { closed_ = true; }

    private:
        static constexpr TaskId kPosted = ~TaskId{0};

        const std::shared_ptr<Tasks> tasks_;
        const std::shared_ptr<Later> later_;
        vo::Clock& clock_;
        bool closed_ = false;
    };

    const std::shared_ptr<vo::Clock> real_ = vo::makeRealClock();
    const std::shared_ptr<Tasks> tasks_ = std::make_shared<Tasks>();
    const std::shared_ptr<Later> later_ = std::make_shared<Later>();
    Tasks running_;
};

}  // namespace bench
