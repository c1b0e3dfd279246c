// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/lanes.h"

#include <algorithm>
#include <chrono>
#include <system_error>
#include <thread>
#include <utility>

namespace android::vus::hotplug {

namespace {

constexpr std::chrono::milliseconds kRetry(100);

// Detached, because nobody waits for one of them; drain() waits for all.
void start_detached(Lanes::Work work) {
    std::thread(std::move(work)).detach();
}

bool is_judgement(Lanes::Job job) {
    return job == Lanes::Job::kJudgement || job == Lanes::Job::kWeakJudgement;
}

}  // namespace

Lanes::Lanes(size_t most_threads, StartThread start_thread)
      : most_threads_(most_threads),
        start_thread_(start_thread ? std::move(start_thread) : start_detached) {}

void Lanes::add(const std::string& lane, Work work, Job job) {
    std::deque<Waiting> needless;  // what they hold may take its time to go
    const MutexLock lock(mutex_);
    const auto [found, fresh] = lanes_.try_emplace(lane);
    needless = take_needless(job, &found->second.waiting);
    found->second.waiting.push_back({job, std::move(work)});
    if (!fresh) return;
    pools_[pool_of(job)].lanes.push_back(lane);
    start_threads(pool_of(job));
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

void Lanes::start_threads(size_t pool) {
    Pool& threads = pools_[pool];
    while (!threads.lanes.empty() && threads.count < most_threads_) {
        const std::string lane = threads.lanes.front();
        try {
            start_thread_([this, pool, lane] { work_on_lanes(pool, lane); });
        } catch (const std::system_error&) {
            return;  // see retry()
        }
        threads.lanes.pop_front();
        begin_next(&lanes_[lane]);
        ++threads.count;
    }
}

void Lanes::begin_next(Lane* lane) {
    lane->at_work = true;
    lane->begun = std::move(lane->waiting.front().work);
    lane->waiting.pop_front();
}

void Lanes::work_on_lanes(size_t pool, const std::string& first_lane) {
    const MutexLock lock(mutex_);
    Pool& threads = pools_[pool];
    work_on(first_lane);
    while (!threads.lanes.empty()) {
        const std::string lane = std::move(threads.lanes.front());
        threads.lanes.pop_front();
        begin_next(&lanes_[lane]);
        work_on(lane);
    }
    --threads.count;
    // Under the lock: the object may be gone as soon as it is free.
    idle_.notify_all();
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

bool Lanes::wants_retry() const {
    const MutexLock lock(mutex_);
    return wants_threads();
}

void Lanes::retry() {
    const MutexLock lock(mutex_);
    for (size_t pool = 0; pool < pools_.size(); ++pool) start_threads(pool);
}

void Lanes::drain() {
    const MutexLock lock(mutex_);
    const auto is_busy = [](const Pool& pool) { return pool.count != 0; };
    while (!lanes_.empty() || std::any_of(pools_.begin(), pools_.end(), is_busy)) {
        if (wants_threads()) {
            for (size_t pool = 0; pool < pools_.size(); ++pool) start_threads(pool);
            idle_.wait_for(mutex_, kRetry);
        } else {
            idle_.wait(mutex_);
        }
    }
}

}  // namespace android::vus::hotplug
