// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/lanes.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace android::vus::hotplug {

namespace {

constexpr std::chrono::milliseconds kRetry(100);
// That stay when there is nothing to do.
constexpr size_t kMostIdle = 1;

// Detached, because nobody waits for one of them; the destructor waits for all.
void start_detached(Lanes::Work work) {
    std::thread(std::move(work)).detach();
}

std::string take_first(std::deque<std::string>* names) {
    std::string name = std::move(names->front());
    names->pop_front();
    return name;
}

bool is_judgement(Lanes::Job job) {
    return job == Lanes::Job::kJudgement || job == Lanes::Job::kWeakJudgement;
}

}  // namespace

Lanes::Lanes(size_t most_threads, StartThread start_thread)
      : most_threads_(most_threads),
        start_thread_(start_thread ? std::move(start_thread) : start_detached) {}

Lanes::~Lanes() {
    drain();
    const MutexLock lock(mutex_);
    ending_ = true;
    for (std::condition_variable& given : given_) given.notify_all();
    const auto has_threads = [](const Pool& pool) { return pool.count != 0; };
    while (std::any_of(pools_.begin(), pools_.end(), has_threads)) idle_.wait(mutex_);
}

void Lanes::add(const std::string& lane, Work work, Job job) {
    std::deque<Waiting> needless;  // what they hold may take its time to go
    {
        const MutexLock lock(mutex_);
        const auto [found, fresh] = lanes_.try_emplace(lane);
        needless = take_needless(job, &found->second.waiting);
        found->second.waiting.push_back({job, std::move(work)});
        if (!fresh) return;
        pools_[pool_of(job)].lanes.push_back(lane);
        find_threads(pool_of(job));
    }
    given_[pool_of(job)].notify_one();
}

std::deque<Lanes::Waiting> Lanes::take_needless(Job job, std::deque<Waiting>* waiting) {
    std::deque<Waiting> needless;
    const auto take_last = [&] {
        needless.push_back(std::move(waiting->back()));
        waiting->pop_back();
    };
    if (job == Job::kWeakJudgement) {
        while (!waiting->empty() && waiting->back().job == job) take_last();
    } else if (job == Job::kJudgement) {
        while (!waiting->empty() && is_judgement(waiting->back().job)) take_last();
    } else if (job != Job::kOther) {
        const auto first =
                std::stable_partition(waiting->begin(), waiting->end(), [job](const Waiting& one) {
                    return one.job != job && !is_judgement(one.job);
                });
        needless.insert(needless.end(), std::move_iterator(first),
                        std::move_iterator(waiting->end()));
        waiting->erase(first, waiting->end());
    }
    return needless;
}

bool Lanes::take_back(const std::string& lane) {
    std::deque<Waiting> needless;
    const MutexLock lock(mutex_);
    const auto found = lanes_.find(lane);
    if (found == lanes_.end()) return true;
    if (found->second.at_work) return false;
    std::deque<Waiting>& waiting = found->second.waiting;
    if (!std::all_of(waiting.begin(), waiting.end(), [](const Waiting& one) {
            return one.job == Job::kRemoval || is_judgement(one.job);
        })) {
        return false;
    }
    needless = std::move(waiting);
    lanes_.erase(found);
    std::deque<std::string>& lanes = pools_[pool_of(Job::kOther)].lanes;
    lanes.erase(std::remove(lanes.begin(), lanes.end(), lane), lanes.end());
    idle_.notify_all();
    return true;
}

void Lanes::find_threads(size_t pool) {
    std::deque<std::string>& lanes = pools_[pool].lanes;
    while (!lanes.empty() && find_thread(pool, lanes.front())) {
        begin_next(&lanes_[lanes.front()]);
        lanes.pop_front();
    }
}

bool Lanes::find_thread(size_t pool, const std::string& lane) {
    Pool& threads = pools_[pool];
    if (threads.idle != 0) {
        --threads.idle;
        threads.given.push_back(lane);
        return true;
    }
    if (threads.count == most_threads_) return false;
    try {
        start_thread_([this, pool, lane] { work_on_lanes(pool, lane); });
    } catch (const std::system_error&) {
        return false;  // see retry()
    }
    ++threads.count;
    return true;
}

void Lanes::begin_next(Lane* lane) {
    lane->at_work = true;
    lane->begun = std::move(lane->waiting.front().work);
    lane->waiting.pop_front();
}

void Lanes::work_on_lanes(size_t pool, const std::string& first_lane) {
    const MutexLock lock(mutex_);
    Pool& threads = pools_[pool];
    std::optional<std::string> given = first_lane;
    while (given) {
        work_on(*given);
        while (!threads.lanes.empty()) {
            const std::string lane = take_first(&threads.lanes);
            begin_next(&lanes_[lane]);
            work_on(lane);
        }
        given = stay(pool);
    }
    --threads.count;
    // Under the lock: the object may be gone as soon as it is free.
    idle_.notify_all();
}

// Until it is given a lane. Nothing if it is not to stay.
std::optional<std::string> Lanes::stay(size_t pool) {
    Pool& threads = pools_[pool];
    if (threads.idle == kMostIdle) return std::nullopt;
    ++threads.idle;
    idle_.notify_all();
    std::unique_lock<std::mutex> held(mutex_, std::adopt_lock);
    while (threads.given.empty() && !ending_) given_[pool].wait(held);
    held.release();
    if (!threads.given.empty()) return take_first(&threads.given);
    --threads.idle;
    return std::nullopt;
}

void Lanes::work_on(const std::string& name) {
    const auto found = lanes_.find(name);
    Lane& lane = found->second;
    while (true) {
        Work work = std::move(lane.begun);
        mutex_.unlock();
        work();
        work = nullptr;  // what it holds may take its time to go
        mutex_.lock();
        if (lane.waiting.empty()) break;
        begin_next(&lane);
    }
    lanes_.erase(found);
}

bool Lanes::wants_threads() const {
    return std::any_of(pools_.begin(), pools_.end(), [this](const Pool& pool) {
        return !pool.lanes.empty() && pool.count < most_threads_;
    });
}

bool Lanes::is_busy() const {
    return !lanes_.empty() || std::any_of(pools_.begin(), pools_.end(),
                                          [](const Pool& pool) { return pool.count != pool.idle; });
}

bool Lanes::wants_retry() const {
    const MutexLock lock(mutex_);
    return wants_threads();
}

void Lanes::retry() {
    const MutexLock lock(mutex_);
    for (size_t pool = 0; pool < pools_.size(); ++pool) find_threads(pool);
}

void Lanes::drain() {
    const MutexLock lock(mutex_);
    while (is_busy()) {
        if (wants_threads()) {
            for (size_t pool = 0; pool < pools_.size(); ++pool) find_threads(pool);
            idle_.wait_for(mutex_, kRetry);
        } else {
            idle_.wait(mutex_);
        }
    }
}

}  // namespace android::vus::hotplug
