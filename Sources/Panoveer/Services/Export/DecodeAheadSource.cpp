#include "Panoveer/Services/Export/DecodeAheadSource.h"

#include "Platform/Core/Error.h"

#include <algorithm>
#include <utility>

namespace panoveer {

std::unique_ptr<SegmentFrameSource> DecodeAheadSource::open(const Open& open, std::stop_token stop, int pictureLimit) {
    if (stop.stop_requested())
        throw Cancelled();
    std::stop_source ending;
    auto source = [&] {
        const std::stop_callback forward(stop, [&] { ending.request_stop(); });
        return open(ending.get_token());
    }();
    if (!source)
        return nullptr;
    return std::unique_ptr<SegmentFrameSource>(
        new DecodeAheadSource(std::move(ending), std::move(source), std::move(stop), pictureLimit));
}

DecodeAheadSource::DecodeAheadSource(std::stop_source ending, std::unique_ptr<SegmentFrameSource> source,
                                     std::stop_token stop, int pictureLimit)
    : ending_(std::move(ending)),
      forwardStop_(stop, [ending = ending_]() mutable { ending.request_stop(); }),
      stop_(std::move(stop)),
      source_(std::move(source)),
      pictureLimit_(std::size_t(std::max(pictureLimit, 1))),
      thread_([this] { work(); }) {}

DecodeAheadSource::~DecodeAheadSource() { ending_.request_stop(); }

std::optional<SegmentFrame> DecodeAheadSource::next() {
    std::unique_lock lock(mutex_);
    if (!changed_.wait(lock, stop_, [&] { return !ready_.empty() || hasEnded_; }) || stop_.stop_requested())
        throw Cancelled();
    if (ready_.empty()) {
        if (failure_)
            std::rethrow_exception(failure_);
        return std::nullopt;
    }
    auto frame = std::move(ready_.front());
    ready_.pop_front();
    changed_.notify_all();
    return frame;
}

void DecodeAheadSource::work() {
    std::exception_ptr failure;
    try {
        const auto ending = ending_.get_token();
        while (auto frame = source_->next()) {
            std::unique_lock lock(mutex_);
            ready_.push_back(std::move(*frame));
            changed_.notify_all();
            if (!changed_.wait(lock, ending, [&] { return ready_.size() < pictureLimit_; }))
                break;
        }
    } catch (...) {
        failure = std::current_exception();
    }
    std::lock_guard lock(mutex_);
    failure_ = std::move(failure);
    hasEnded_ = true;
    changed_.notify_all();
}

} // namespace panoveer
