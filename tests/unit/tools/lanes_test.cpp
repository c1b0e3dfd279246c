// SPDX-License-Identifier: Apache-2.0
//
// Who keeps jobs waiting, again and again, gets no more threads and no more memory for it.

#include "tools/hotplug/lanes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace android::vus::hotplug {
namespace {

using Job = Lanes::Job;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr std::chrono::seconds kDeadline(10);

class LanesTest : public testing::Test {
  protected:
    // Adds a job that notes its name.
    void Add(Lanes* lanes, const std::string& lane, const std::string& name,
             Job job = Job::kOther) {
        lanes->add(
                lane,
                [this, name] {
                    const std::lock_guard<std::mutex> lock(mutex_);
                    done_.push_back(name);
                },
                job);
    }
    // Has the lane wait until Go().
    void Block(Lanes* lanes, const std::string& lane, Job job = Job::kOther) {
        std::promise<void> begun;
        lanes->add(
                lane,
                [&begun, go = go_] {
                    begun.set_value();
                    go.wait();
                },
                job);
        begun.get_future().wait();
    }
    std::vector<std::string> Done(Lanes* lanes) {
        let_.set_value();
        lanes->drain();
        const std::lock_guard<std::mutex> lock(mutex_);
        return std::exchange(done_, {});
    }

    std::promise<void> let_;
    const std::shared_future<void> go_ = let_.get_future().share();
    std::mutex mutex_;
    std::vector<std::string> done_;
};

TEST_F(LanesTest, DeviceThatComesAndGoesWhileItsLaneIsStuckLeavesTwoJobs) {
    Lanes lanes;
    Block(&lanes, "1005");
    for (int round = 0; round < 1000; ++round) {
        const std::string number = std::to_string(round);
        Add(&lanes, "1005", "forget " + number, Job::kForgetting);
        Add(&lanes, "1005", "remove " + number, Job::kRemoval);
        Add(&lanes, "1005", "judge " + number, Job::kJudgement);
    }
    EXPECT_THAT(Done(&lanes), ElementsAre("forget 999", "remove 999", "judge 999"));
}

TEST_F(LanesTest, WeakerJudgementDoesNotTakeTheStrongersPlace) {
    Lanes lanes;
    Block(&lanes, "1005");
    Add(&lanes, "1005", "weak 1", Job::kWeakJudgement);
    Add(&lanes, "1005", "judge 1", Job::kJudgement);
    Add(&lanes, "1005", "judge 2", Job::kJudgement);
    Add(&lanes, "1005", "weak 2", Job::kWeakJudgement);
    Add(&lanes, "1005", "weak 3", Job::kWeakJudgement);
    Add(&lanes, "1005", "other");
    Add(&lanes, "1005", "judge 3", Job::kJudgement);
    EXPECT_THAT(Done(&lanes), ElementsAre("judge 2", "weak 3", "other", "judge 3"));
}

TEST_F(LanesTest, ThreadsAreBoundedAndTheRestWaits) {
    std::atomic<int> threads{0};
    Lanes lanes(2, [&threads](Lanes::Work work) {
        ++threads;
        std::thread(std::move(work)).detach();
    });
    Block(&lanes, "1");
    Block(&lanes, "2");
    Add(&lanes, "3", "third");
    EXPECT_EQ(threads, 2);
    EXPECT_FALSE(lanes.wants_retry()) << "it waits for its turn";
    // Switches must not wait for what they are to be switched for.
    std::promise<void> switched;
    lanes.add(
            "1 switches", [&switched] { switched.set_value(); }, Job::kSwitching);
    EXPECT_EQ(switched.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_THAT(Done(&lanes), ElementsAre("third"));
}

TEST_F(LanesTest, ThreadThatCannotBeStartedIsTriedAgain) {
    std::atomic<bool> fails{true};
    Lanes lanes(2, [&fails](Lanes::Work work) {
        if (fails)
            throw std::system_error(
                    std::make_error_code(std::errc::resource_unavailable_try_again));
        std::thread(std::move(work)).detach();
    });
    Add(&lanes, "1", "first");
    Add(&lanes, "1", "second");
    EXPECT_TRUE(lanes.wants_retry());
    lanes.retry();
    EXPECT_TRUE(lanes.wants_retry());
    fails = false;
    lanes.retry();
    EXPECT_FALSE(lanes.wants_retry());
    EXPECT_THAT(Done(&lanes), ElementsAre("first", "second"));
}

TEST_F(LanesTest, ThreadStaysForTheNextJobAndOfSeveralOneStays) {
    std::atomic<int> started{0};
    struct Ended {
        std::promise<void> first;
        std::atomic<bool> is_told{false};
    };
    const auto ended = std::make_shared<Ended>();
    Lanes lanes(Lanes::kMostThreads, [&started, ended](Lanes::Work work) {
        ++started;
        std::thread([ended, work = std::move(work)] {
            work();
            if (!ended->is_told.exchange(true)) ended->first.set_value();
        }).detach();
    });
    for (const char* lane : {"1", "2", "3"}) {
        Add(&lanes, lane, "job");
        lanes.drain();
    }
    EXPECT_EQ(started, 1);
    // It has the first, so that no device waits for another.
    Block(&lanes, "1");
    std::promise<void> begun;
    lanes.add("2", [&begun] { begun.set_value(); });
    EXPECT_EQ(begun.get_future().wait_for(kDeadline), std::future_status::ready);
    EXPECT_EQ(started, 2);
    // The second stays, and the first has nothing left to stay for; or the other way round.
    EXPECT_THAT(Done(&lanes), SizeIs(3));
    EXPECT_EQ(ended->first.get_future().wait_for(kDeadline), std::future_status::ready);
}

TEST_F(LanesTest, WhatHasNotBegunIsTakenBack) {
    Lanes lanes(1);
    Block(&lanes, "1");
    EXPECT_TRUE(lanes.take_back("2")) << "there is nothing";
    Add(&lanes, "2", "judge", Job::kJudgement);
    EXPECT_TRUE(lanes.take_back("2"));
    Add(&lanes, "3", "other");
    EXPECT_FALSE(lanes.take_back("3"));
    EXPECT_FALSE(lanes.take_back("1")) << "it is at work";
    EXPECT_THAT(Done(&lanes), ElementsAre("other"));
}

TEST_F(LanesTest, WhatIsTakenBackHoldsNothing) {
    Lanes lanes(1);
    Block(&lanes, "1");
    auto held = std::make_shared<int>();
    lanes.add(
            "2", [held] {}, Job::kJudgement);
    EXPECT_EQ(held.use_count(), 2);
    lanes.add(
            "2", [] {}, Job::kRemoval);
    EXPECT_EQ(held.use_count(), 1);
    EXPECT_THAT(Done(&lanes), IsEmpty());
}

}  // namespace
}  // namespace android::vus::hotplug
