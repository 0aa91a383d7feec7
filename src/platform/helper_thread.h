// One helper thread beside an adapter's caller: waits for a disk or reads bytes a second time while
// the caller goes on. For adapters only: the core knows one thread, and no job calls back into it.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace trevix {

// Jobs run one after another in the order given. The thread starts with the first job; where none
// is to be had, the caller's own runs the job. The destructor waits for all jobs.
class HelperThread {
 public:
    HelperThread() = default;
    HelperThread(const HelperThread&) = delete;
    HelperThread& operator=(const HelperThread&) = delete;
    ~HelperThread() {
        if (!thread_.joinable()) return;
        Put({});
        thread_.join();
    }

    // What the job gives, as soon as somebody asks for it. A job holds what it needs by value, or
    // its giver waits for it.
    template <typename Job>
    auto Run(Job job) -> std::future<decltype(job())> {
        auto task = std::make_shared<std::packaged_task<decltype(job())()>>(std::move(job));
        auto outcome = task->get_future();
        if (IsRunning()) {
            Put([task] { (*task)(); });
        } else {
            (*task)();
        }
        return outcome;
    }

 private:
    bool IsRunning() {
        if (thread_.joinable()) return true;
        try {
            thread_ = std::thread([this] { Serve(); });
        } catch (const std::system_error&) {
            return false;
        }
        return true;
    }

    // An empty job ends the thread.
    void Put(std::function<void()> job) {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            jobs_.push_back(std::move(job));
        }
        changed_.notify_one();
    }

    void Serve() {
        for (;;) {
            std::unique_lock<std::mutex> lock(mutex_);
            changed_.wait(lock, [this] { return !jobs_.empty(); });
            const std::function<void()> job = std::move(jobs_.front());
            jobs_.pop_front();
            lock.unlock();
            if (!job) return;
            job();
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> jobs_;
    std::thread thread_;
};

}  // namespace trevix
