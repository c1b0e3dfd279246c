// SPDX-License-Identifier: Apache-2.0
//
// Lanes: jobs one after the other within a lane, and beside those of every other lane.
//
// What is done with a device can take as long as the device, or the daemon, keeps us waiting, so
// each device has a lane of its own, and while that holds something a thread. Whoever makes others
// wait, and comes again and again, gets no more of this process for it: of what waits in a lane,
// that goes which later jobs make needless, and there are only so many threads. What comes beyond
// waits for one. So it does if the system starts no thread now; see retry(). A thread that has
// nothing left stays for the next job, because to start one costs more than most jobs; of several
// one stays.
//
// The object owns the threads and waits for them when it is destroyed. Thread-safe; jobs may add
// jobs.

#pragma once

#include <array>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "android/vus/mutex.h"

namespace android::vus::hotplug {

class Lanes {
  public:
    // What makes others needless that still wait, in the same lane.
    enum class Job {
        kOther,
        kJudgement,      // judgements right in front of it, which would see the same
        kWeakJudgement,  // the same, of weak ones
        kForgetting,     // judgements, and others of its kind
        kRemoval,        // likewise
        kSwitching,  // the same; has threads of its own, because it must not wait for the others
    };
    using Work = std::function<void()>;
    // Has a new thread do the work, or throws std::system_error.
    using StartThread = std::function<void(Work)>;

    static constexpr size_t kMostThreads = 256;  // for switching, and for everything else

    explicit Lanes(size_t most_threads = kMostThreads, StartThread start_thread = nullptr);
    ~Lanes();
    Lanes(const Lanes&) = delete;
    Lanes& operator=(const Lanes&) = delete;

    void add(const std::string& lane, Work work, Job job = Job::kOther);
    // Takes back what waits in a lane of which nothing is at work. False if something is, or if
    // there is more in it than judgements and removals.
    bool take_back(const std::string& lane);

    // Whether something waits for a thread that could not be started.
    bool wants_retry() const;
    void retry();
    // Waits until every job is done.
    void drain();

  private:
    struct Waiting {
        Job job;
        Work work;
    };
    struct Lane {
        std::deque<Waiting> waiting;
        bool at_work = false;
        Work begun = nullptr;  // until the thread that has it begins
    };
    struct Pool {
        size_t count = 0;               // of the threads
        size_t idle = 0;                // those that have stayed, and that nothing was given to
        std::deque<std::string> given;  // lanes, to those that have stayed
        std::deque<std::string> lanes;  // that wait for a thread
    };

    static size_t pool_of(Job job) { return job == Job::kSwitching ? 1 : 0; }
    static std::deque<Waiting> take_needless(Job job, std::deque<Waiting>* waiting);
    void find_threads(size_t pool) REQUIRES(mutex_);
    bool find_thread(size_t pool, const std::string& lane) REQUIRES(mutex_);
    std::optional<std::string> stay(size_t pool) REQUIRES(mutex_);
    static void begin_next(Lane* lane);
    void work_on_lanes(size_t pool, const std::string& first_lane);
    void work_on(const std::string& name) REQUIRES(mutex_);
    bool wants_threads() const REQUIRES(mutex_);
    bool is_busy() const REQUIRES(mutex_);

    const size_t most_threads_;
    const StartThread start_thread_;
    mutable Mutex mutex_;
    std::condition_variable_any idle_;
    // A lane is given to one that has stayed. Told with the mutex free, because who is told wants
    // it.
    std::array<std::condition_variable, 2> given_;
    std::map<std::string, Lane> lanes_ GUARDED_BY(mutex_);  // none of them is empty and idle
    std::array<Pool, 2> pools_ GUARDED_BY(mutex_);
    bool ending_ GUARDED_BY(mutex_) = false;
};

}  // namespace android::vus::hotplug
