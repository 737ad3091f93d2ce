#include "platform/conditions/CheckerScript.h"

#include "platform/conditions/ConditionCheckerImpl.h"

namespace KR {

void ConditionChecker::Impl::beScripted()
{
    const vo::Lock lock(mutex_);
    isScripted_ = true;
}

void ConditionChecker::Impl::movePeriod()
{
    std::uint64_t run = kNoRun;
    {
        const vo::Lock lock(mutex_);
        if (!run_)
            return;
        run = run_->number;
        reportPeriod();
    }
    work(run);
}

void ConditionChecker::Impl::moveSettle(vo::Duration uptime, bool periodOver)
{
    std::uint64_t run = kNoRun;
    {
        const vo::Lock lock(mutex_);
        if (run_)
            run = run_->number;
    }
    settle(run, uptime, periodOver);
}

bool ConditionChecker::Impl::moveElapse(vo::Duration until)
{
    std::uint64_t run = kNoRun;
    vo::Duration due{};
    {
        const vo::Lock lock(mutex_);
        const auto next = run_ ? network_.nextDue() : std::nullopt;
        if (!next || *next > until)
            return false;
        run = run_->number;
        due = *next;
    }
    settle(run, due, false);
    return true;
}

bool CheckerScript::elapse(vo::Duration until)
{
    return checker_ && checker_->impl_->moveElapse(until);
}

void CheckerScript::take(ConditionChecker& checker)
{
    checker_ = &checker;
    checker.impl_->beScripted();
}

void CheckerScript::period()
{
    if (checker_)
        checker_->impl_->movePeriod();
}

void CheckerScript::settle(vo::Duration uptime, bool periodOver)
{
    if (checker_)
        checker_->impl_->moveSettle(uptime, periodOver);
}

}  // namespace KR
