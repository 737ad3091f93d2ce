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
Connection Signal<Args...>::connect(Callback callback)
{
    const auto receiver = std::make_shared<Receiver>(state_, std::move(callback));
    state_->add(receiver);
    return Connection(receiver);
}

template <class... Args>
void Signal<Args...>::operator()(const Args&... args) const
{
    const auto receivers = state_->all();
    for (const std::shared_ptr<Receiver>& receiver : *receivers)
        call(*receiver, args...);
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
void Signal<Args...>::State::add(std::shared_ptr<Receiver> receiver)
{
    const Lock<Mutex> lock(mutex);
    auto changed = std::make_shared<Receivers>(*receivers);
    changed->push_back(std::move(receiver));
    receivers = std::move(changed);
}

/// The caller keeps the receiver alive: what its function holds may come back here when it is
/// destroyed.
template <class... Args>
void Signal<Args...>::State::remove(const Receiver& receiver)
{
    const Lock<Mutex> lock(mutex);
    auto changed = std::make_shared<Receivers>();
    std::copy_if(receivers->begin(), receivers->end(), std::back_inserter(*changed),
                 [&receiver](const auto& other) { return other.get() != &receiver; });
    receivers = std::move(changed);
}

template <class... Args>
bool Signal<Args...>::Receiver::disconnect()
{
    const bool first = gate.close();
    if (const auto owner = first ? state.lock() : nullptr)
        owner->remove(*this);
    return first;
}

}  // namespace vo
