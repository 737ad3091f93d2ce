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
    {
        const Lock<Mutex> lock(mutex_);
        if (value_ == change.value) {
            change.told.setValue();
            return told;
        }
        value_ = change.value;
        notifications_.add(std::move(change));
    }
    notifications_.deliver([this](const Change& due) {
        changed_(due.value);
        due.told.setValue();
    });
    return told;
}

}  // namespace vo
