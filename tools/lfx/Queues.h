// The two hand-over points of the pipeline. Both are bounded, so a fast stage waits for a
// slow one instead of filling memory, and both can be aborted to stop every stage at once.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>

namespace lfx {

// What both queues share: their items under one lock, and waking every waiter on a change.
template <class Items>
class QueueState {
public:
    // Drops the items; every waiting and later call returns at once with nothing.
    void Abort() {
        Change([&] {
            aborted_ = true;
            items_.clear();
        });
    }

protected:
    template <class Body>
    void Change(Body body) {
        std::lock_guard<std::mutex> lock(mutex_);
        body();
        changed_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    Items items_;
    bool aborted_ = false;
};

// First in, first out between one producer and several consumers.
template <class T>
class BoundedQueue : public QueueState<std::deque<T>> {
public:
    explicit BoundedQueue(size_t capacity) : capacity_(capacity) {}

    // Waits for room; false when the queue was aborted.
    bool Push(T value) {
        std::unique_lock<std::mutex> lock(this->mutex_);
        this->changed_.wait(lock,
                            [&] { return this->aborted_ || this->items_.size() < capacity_; });
        if (this->aborted_) return false;
        this->items_.push_back(std::move(value));
        this->changed_.notify_all();
        return true;
    }

    // Waits for an item; nothing once the queue is closed and empty, or aborted.
    std::optional<T> Pop() {
        std::unique_lock<std::mutex> lock(this->mutex_);
        this->changed_.wait(lock,
                            [&] { return this->aborted_ || closed_ || !this->items_.empty(); });
        if (this->aborted_ || this->items_.empty()) return std::nullopt;
        T value = std::move(this->items_.front());
        this->items_.pop_front();
        this->changed_.notify_all();
        return value;
    }

    // No more pushes will come.
    void Close() {
        this->Change([&] { closed_ = true; });
    }

private:
    size_t capacity_;
    bool closed_ = false;
};

// Puts items numbered 0, 1, 2, ... back in order when several workers finish them out of
// order. An item more than `capacity` ahead of the next one to leave waits for room; the
// worker holding the next one never waits, so the queue cannot lock up.
template <class T>
class OrderedQueue : public QueueState<std::map<int64_t, T>> {
public:
    explicit OrderedQueue(size_t capacity) : capacity_(capacity) {}

    bool Push(int64_t sequence, T value) {
        std::unique_lock<std::mutex> lock(this->mutex_);
        this->changed_.wait(lock, [&] {
            return this->aborted_ || sequence < next_ + static_cast<int64_t>(capacity_);
        });
        if (this->aborted_) return false;
        this->items_.emplace(sequence, std::move(value));
        this->changed_.notify_all();
        return true;
    }

    // The next item in order; nothing after the last one (see SetTotal), or when aborted.
    std::optional<T> Pop() {
        std::unique_lock<std::mutex> lock(this->mutex_);
        this->changed_.wait(lock, [&] {
            return this->aborted_ || next_ == total_ || this->items_.count(next_) != 0;
        });
        if (this->aborted_ || next_ == total_) return std::nullopt;
        auto found = this->items_.find(next_);
        T value = std::move(found->second);
        this->items_.erase(found);
        ++next_;
        this->changed_.notify_all();
        return value;
    }

    // How many items there are in all, once known.
    void SetTotal(int64_t total) {
        this->Change([&] { total_ = total; });
    }

private:
    size_t capacity_;
    int64_t next_ = 0;
    int64_t total_ = -1;
};

}  // namespace lfx
