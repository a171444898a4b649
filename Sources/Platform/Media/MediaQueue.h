#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

namespace panoveer {

// The bounded queue between a caller who hands media to an input of a writer and the thread that encodes it. Any
// thread, one on each side. Not for other layers.
//
//   idle --open--> taking --finish--> finished      stop() ends each of them
template<class Entry>
class MediaQueue {
public:
    // The queue takes entries while the weights of those in it are less than `capacity`.
    explicit MediaQueue(std::size_t capacity) : capacity_(capacity) {}

    void open() {
        std::lock_guard lock(mutex_);
        if (phase_ == Phase::idle)
            phase_ = Phase::taking;
    }
    bool hasRoom() const {
        std::lock_guard lock(mutex_);
        return hasRoomWhileLocked();
    }
    // Blocks. False when nothing is taken any more, or not yet.
    bool waitForRoom() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return hasRoomWhileLocked() || phase_ != Phase::taking; });
        return phase_ == Phase::taking;
    }
    // False when the entry was not taken.
    bool push(Entry entry, std::size_t weight = 1) {
        std::lock_guard lock(mutex_);
        if (phase_ != Phase::taking)
            return false;
        weight_ += weight;
        entries_.emplace_back(std::move(entry), weight);
        changed_.notify_all();
        return true;
    }
    void finish() {
        std::lock_guard lock(mutex_);
        if (phase_ == Phase::taking)
            phase_ = Phase::finished;
        changed_.notify_all();
    }
    void stop() noexcept {
        std::lock_guard lock(mutex_);
        phase_ = Phase::stopped;
        entries_.clear();
        changed_.notify_all();
    }
    bool isStopped() const {
        std::lock_guard lock(mutex_);
        return phase_ == Phase::stopped;
    }

    // Blocks. False once stopped; no entry when the last one was taken before.
    bool take(std::optional<Entry>& entry) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return !entries_.empty() || phase_ == Phase::finished || phase_ == Phase::stopped; });
        entry.reset();
        if (phase_ == Phase::stopped)
            return false;
        if (!entries_.empty()) {
            entry = std::move(entries_.front().first);
            weight_ -= entries_.front().second;
            entries_.pop_front();
            changed_.notify_all();
        }
        return true;
    }

private:
    enum class Phase { idle, taking, finished, stopped };

    bool hasRoomWhileLocked() const { return phase_ == Phase::taking && weight_ < capacity_; }

    const std::size_t capacity_;
    mutable std::mutex mutex_; // guards all that follows
    std::condition_variable changed_;
    Phase phase_ = Phase::idle;
    std::deque<std::pair<Entry, std::size_t>> entries_;
    std::size_t weight_ = 0;
};

} // namespace panoveer
