#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace panoveer {

// Threads that work through jobs in the order in which they came; while the last pieces of one are under way, the next
// one begins. Safe from any thread.
class WorkerPool {
public:
    // A part of a job: `work(index)` for every index 0…count-1, from several threads at once. A stage begins when the
    // one before it is done.
    struct Stage {
        int count = 0;
        std::function<void(int index)> work;
    };

    class Job {
    public:
        // Blocks until all is done. Throws the first exception of any stage; what was not begun by then was left out.
        void wait();

    private:
        friend class WorkerPool;
        explicit Job(std::vector<Stage> stages);

        std::mutex mutex_; // guards what follows
        std::condition_variable isDone_;
        std::vector<Stage> stages_;
        std::size_t stage_ = 0;
        int next_ = 0;
        int running_ = 0;
        std::exception_ptr failure_;

        bool isFinishedWhileLocked() const { return stage_ == stages_.size(); }
        void beginNextStageWhileLocked();
    };

    // As many threads as there are available processors, for 0.
    explicit WorkerPool(int threads = 0);
    // Waits for the jobs that were started.
    ~WorkerPool();

    int threadCount() const { return int(threads_.size()); }
    std::shared_ptr<Job> start(std::vector<Stage> stages);

private:
    enum class Progress { none, some, stageDone, jobDone };
    static Progress workOnce(Job& job);
    void run();

    std::mutex mutex_; // guards what follows; a job's own mutex is taken after it
    std::condition_variable hasWork_;
    std::deque<std::shared_ptr<Job>> jobs_;
    std::uint64_t generation_ = 0; // counts the events that can bring new work
    bool isStopping_ = false;

    std::vector<std::jthread> threads_;
};

} // namespace panoveer
