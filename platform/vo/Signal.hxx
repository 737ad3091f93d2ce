#pragma once

#include <algorithm>
#include <iterator>

#include "platform/vo/LogException.h"

namespace vo {

template <class... Args>
Signal<Args...>::~Signal()
{
    const auto receivers = state_->all();
    for (const std::shared_ptr<Receiver>& receiver : *receivers)
        receiver->gate.close();
}

template <class... Args>
SignalLink Signal<Args...>::connect(Callback callback)
{
    const Lock<Mutex> lock(state_->mutex);
    auto changed = std::make_shared<Receivers>(*state_->receivers);
    const SignalLink link = ++state_->lastLink;
    changed->push_back(std::make_shared<Receiver>(link, std::move(callback)));
    state_->receivers = std::move(changed);
    return link;
}

template <class... Args>
bool Signal<Args...>::disconnect(SignalLink link)
{
    // A function may destroy the signal while this waits for it.
    const auto state = state_;
    return state->disconnect(link);
}

template <class... Args>
std::function<void()> Signal<Args...>::connectWithUndo(Callback callback)
{
    return [weak = std::weak_ptr<State>(state_), link = connect(std::move(callback))] {
        if (const auto state = weak.lock())
            state->disconnect(link);
    };
}

template <class... Args>
void Signal<Args...>::operator()(const Args&... args) const
{
    const auto state = state_;
    const auto receivers = state->all();
    for (const std::shared_ptr<Receiver>& receiver : *receivers) {
        call(*receiver, args...);
        if (receiver->gate.hasEnded())
            state->remove(receiver->link);
    }
}

template <class... Args>
void Signal<Args...>::call(Receiver& receiver, const Args&... args)
{
    const CallbackGate::Pass pass(receiver.gate);
    if (!pass)
        return;
    try {
        receiver.callback(args...);
    } catch (...) {
        logCurrentException("Signal", "receiver");
    }
}

template <class... Args>
auto Signal<Args...>::State::all() const -> std::shared_ptr<const Receivers>
{
    const Lock<Mutex> lock(mutex);
    return receivers;
}

template <class... Args>
bool Signal<Args...>::State::disconnect(SignalLink link)
{
    const auto listed = all();
    const auto found = std::find_if(listed->begin(), listed->end(), [link](const auto& receiver) {
        return receiver->link == link;
    });
    if (found == listed->end())
        return false;
    Receiver& receiver = **found;
    const bool first = receiver.gate.close();
    // Listed until it has ended, so that whoever else disconnects it meanwhile waits for it too.
    // One that disconnects itself is taken from the list after its last call in progress.
    if (!receiver.gate.isInside())
        remove(link);
    return first;
}

template <class... Args>
void Signal<Args...>::State::remove(SignalLink link)
{
    // The removed function is destroyed after the lock is released: what it holds may come back
    // here.
    std::shared_ptr<const Receivers> old;
    const Lock<Mutex> lock(mutex);
    auto changed = std::make_shared<Receivers>();
    std::copy_if(receivers->begin(), receivers->end(), std::back_inserter(*changed),
                 [link](const auto& receiver) { return receiver->link != link; });
    old = std::exchange(receivers, std::move(changed));
}

}  // namespace vo
