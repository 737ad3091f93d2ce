#pragma once

namespace vo {

template <class T>
T Property<T>::get() const
{
    const Lock<Mutex> lock(mutex_);
    return value_;
}

template <class T>
Future<void> Property<T>::set(T value)
{
    Change change{std::move(value), {}};
    Future<void> told = change.told.future();
    bool changes = false;
    bool tell = false;
    {
        const Lock<Mutex> lock(mutex_);
        changes = !(value_ == change.value);
        if (changes) {
            value_ = change.value;
            untold_.push_back(change);
            tell = !std::exchange(telling_, true);
        }
    }
    if (!changes)
        change.told.setValue();
    while (tell) {
        const std::optional<Change> due = next();
        if (!due)
            break;
        changed_(due->value);
        due->told.setValue();
    }
    return told;
}

/// Takes the oldest change that the followers were not told of. None ends the telling: the next set
/// begins it anew.
template <class T>
auto Property<T>::next() -> std::optional<Change>
{
    const Lock<Mutex> lock(mutex_);
    if (untold_.empty()) {
        telling_ = false;
        return std::nullopt;
    }
    std::optional<Change> change = std::move(untold_.front());
    untold_.pop_front();
    return change;
}

}  // namespace vo
