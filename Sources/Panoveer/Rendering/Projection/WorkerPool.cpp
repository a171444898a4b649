#include "Panoveer/Rendering/Projection/WorkerPool.h"

#include "Platform/Core/Processors.h"

#include <algorithm>
#include <utility>

namespace panoveer {

WorkerPool::Job::Job(std::vector<Stage> stages) : stages_(std::move(stages)) {
    std::erase_if(stages_, [](const Stage& stage) { return stage.count <= 0; });
}

void WorkerPool::Job::wait() {
    std::unique_lock lock(mutex_);
    isDone_.wait(lock, [this] { return isFinishedWhileLocked(); });
    if (failure_)
        std::rethrow_exception(failure_);
}

void WorkerPool::Job::beginNextStageWhileLocked() {
    stage_ = failure_ ? stages_.size() : stage_ + 1;
    next_ = 0;
    if (!isFinishedWhileLocked())
        return;
    stages_.clear(); // and with it what the work holds on to
    stage_ = 0;
    isDone_.notify_all();
}

WorkerPool::WorkerPool(int threads) {
    const int count = threads > 0 ? threads : availableProcessors();
    for (int i = 0; i < count; ++i)
        threads_.emplace_back([this] { run(); });
}

WorkerPool::~WorkerPool() {
    {
        std::lock_guard lock(mutex_);
        isStopping_ = true;
    }
    hasWork_.notify_all();
}

std::shared_ptr<WorkerPool::Job> WorkerPool::start(std::vector<Stage> stages) {
    std::shared_ptr<Job> job(new Job(std::move(stages)));
    if (job->stages_.empty())
        return job;
    {
        std::lock_guard lock(mutex_);
        jobs_.push_back(job);
        ++generation_;
    }
    hasWork_.notify_all();
    return job;
}

WorkerPool::Progress WorkerPool::workOnce(Job& job) {
    std::unique_lock lock(job.mutex_);
    if (job.isFinishedWhileLocked() || job.failure_ || job.next_ == job.stages_[job.stage_].count)
        return Progress::none;
    const int index = job.next_++;
    ++job.running_;
    const auto& work = job.stages_[job.stage_].work;
    lock.unlock();
    std::exception_ptr failure;
    try {
        work(index);
    } catch (...) {
        failure = std::current_exception();
    }
    lock.lock();
    --job.running_;
    if (failure && !job.failure_)
        job.failure_ = failure;
    if (job.running_ > 0 || (!job.failure_ && job.next_ < job.stages_[job.stage_].count))
        return Progress::some;
    job.beginNextStageWhileLocked();
    return job.isFinishedWhileLocked() ? Progress::jobDone : Progress::stageDone;
}

void WorkerPool::run() {
    std::unique_lock lock(mutex_);
    for (;;) {
        const auto seen = generation_;
        auto progress = Progress::none;
        for (std::size_t i = 0; i < jobs_.size() && progress == Progress::none; ++i) {
            const auto job = jobs_[i];
            lock.unlock();
            progress = workOnce(*job);
            lock.lock();
            if (progress == Progress::jobDone)
                std::erase(jobs_, job);
        }
        if (progress == Progress::stageDone || progress == Progress::jobDone) {
            ++generation_;
            hasWork_.notify_all();
        }
        if (progress != Progress::none)
            continue;
        if (isStopping_ && jobs_.empty())
            return;
        hasWork_.wait(lock, [&] { return generation_ != seen || (isStopping_ && jobs_.empty()); });
    }
}

} // namespace panoveer
