// SPDX-License-Identifier: Apache-2.0
//
// The calls into the clients: one at a time into each, and no longer waited for than 5 s.

#include "android/vus/client_calls.h"

#include <binder/Binder.h>
#include <binder/IPCThreadState.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "service_fixture.h"
#include "tests/support/no_threads.h"

namespace android::vus {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr auto kLong = 60000ms;
constexpr auto kShort = 300ms;

ClientCalls::Client NewClient(pid_t process = 0) {
    return {new BBinder, process};
}

// As if the calling thread served a call of that process.
class ServingCallOf {
  public:
    explicit ServingCallOf(pid_t process) : token_(IPCThreadState::self()->clearCallingIdentity()) {
        IPCThreadState::self()->restoreCallingIdentity(process);
    }
    ~ServingCallOf() { IPCThreadState::self()->restoreCallingIdentity(token_); }

  private:
    const int64_t token_;
};

class ClientCallsTest : public ServiceTest {
  protected:
    // A helper says that its client is back after the call has returned: not in the next test.
    void TearDown() override {
        EXPECT_TRUE(WaitFor([&] { return Count(" is back after ") == Count(kPassedOver); }));
        ServiceTest::TearDown();
    }

    // Leaves a call behind in the client, which ends when the gate opens.
    void LeaveBehind(ClientCalls* calls, const ClientCalls::Client& client) {
        calls->call(client, [this] {
            gate_.Wait();
            ++returned_;
        });
    }
    void LetReturn(int calls = 1) {
        gate_.Open();
        ASSERT_TRUE(WaitFor([&] { return returned_ == calls; }));
    }
    std::vector<std::string> Lines() { return logs_.Lines(); }
    size_t Count(const std::string& text) {
        const std::vector<std::string> lines = Lines();
        return static_cast<size_t>(
                std::count_if(lines.begin(), lines.end(), [&](const std::string& line) {
                    return line.find(text) != std::string::npos;
                }));
    }

    static constexpr char kPassedOver[] = " s: it is passed over";

    Gate gate_;
    std::atomic<int> returned_{0};
};

TEST_F(ClientCallsTest, ACallIsWaitedFor) {
    ClientCalls calls(kLong);
    const auto client = NewClient();
    std::vector<int> order;
    for (int i = 0; i < 100; ++i) calls.call(client, [&, i] { order.push_back(i); });
    ASSERT_EQ(order.size(), 100u);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(ClientCallsTest, OneHelperServesOneCallAfterTheOther) {
    ClientCalls calls(kLong);
    std::vector<std::thread::id> threads;
    for (int i = 0; i < 10; ++i) {
        calls.call(NewClient(), [&] { threads.push_back(std::this_thread::get_id()); });
    }
    EXPECT_NE(threads.front(), std::this_thread::get_id());
    EXPECT_EQ(std::count(threads.begin(), threads.end(), threads.front()), 10);
}

TEST_F(ClientCallsTest, AClientThatDoesNotReturnIsPassedOverUntilItDoes) {
    ClientCalls calls(kShort);
    const auto client = NewClient(4711);
    LeaveBehind(&calls, client);
    EXPECT_THAT(Lines(), ElementsAre("W the client of process 4711 has not returned for 0 s: "
                                     "it is passed over"));
    const auto called = std::make_shared<std::atomic<int>>(0);
    for (int i = 0; i < 3; ++i) calls.call(client, [called] { ++*called; });
    EXPECT_EQ(*called, 0);

    LetReturn();
    ASSERT_TRUE(WaitFor([&] { return Lines().size() == 2; }));
    EXPECT_THAT(Lines()[1], StartsWith("I the client of process 4711 is back after "));
    EXPECT_THAT(Lines()[1], HasSubstr(" s: it has missed 3 events"));
    calls.call(client, [called] { ++*called; });
    EXPECT_TRUE(WaitFor([&] { return *called == 1; }));
}

TEST_F(ClientCallsTest, AClientThatIsPassedOverKeepsNobodyWaiting) {
    ClientCalls calls(1000ms);
    const auto stuck = NewClient();
    LeaveBehind(&calls, stuck);
    const auto start = std::chrono::steady_clock::now();
    std::atomic<int> heard{0};
    for (int i = 0; i < 1000; ++i) {
        calls.call(stuck, [] {});
        calls.call(NewClient(), [&] { ++heard; });
    }
    EXPECT_TRUE(WaitFor([&] { return heard == 1000; }));
    // Waiting again for every one of them would take a quarter of an hour.
    EXPECT_LT(std::chrono::steady_clock::now() - start, 30s);
    LetReturn();
}

TEST_F(ClientCallsTest, WhoeverWaitsForItsTurnGoesOnWhenTheCallIsLate) {
    ClientCalls calls(200ms);
    const auto client = NewClient();
    std::atomic<int> entered{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            calls.call(client, [&] {
                ++entered;
                gate_.Wait();
                ++returned_;
            });
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(Lines().size(), 1u) << "one line, whoever waited";
    LetReturn();
    EXPECT_EQ(entered, 1);
}

TEST_F(ClientCallsTest, CallsIntoOneClientComeOneAtATime) {
    ClientCalls calls(kLong);
    const auto client = NewClient();
    std::atomic<int> inside{0};
    int total = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 200; ++round) {
                calls.call(client, [&] {
                    EXPECT_EQ(++inside, 1);
                    ++total;
                    --inside;
                });
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(total, 8 * 200);
}

TEST_F(ClientCallsTest, CallsIntoSeveralClientsRunSideBySide) {
    ClientCalls calls(kLong);
    Gate first;
    Gate second;
    std::thread other([&] {
        calls.call(NewClient(), [&] {
            first.Open();
            second.Wait();
        });
    });
    calls.call(NewClient(), [&] {
        first.Wait();
        second.Open();
    });
    other.join();
}

TEST_F(ClientCallsTest, AClientMayBeCalledAgainFromItsOwnCallback) {
    ClientCalls calls(kLong);
    const auto client = NewClient();
    std::vector<std::thread::id> threads;
    calls.call(client, [&] {
        threads.push_back(std::this_thread::get_id());
        calls.call(client, [&] { threads.push_back(std::this_thread::get_id()); });
    });
    ASSERT_EQ(threads.size(), 2u);
    EXPECT_EQ(threads[0], threads[1]);
}

TEST_F(ClientCallsTest, TwoClientsThatCallEachOtherAreNotWaitedForForever) {
    ClientCalls calls(200ms);
    const auto one = NewClient();
    const auto two = NewClient();
    Gate bothInside;
    std::atomic<int> inside{0};
    const auto callOther = [&](const ClientCalls::Client& other) {
        if (++inside == 2) bothInside.Open();
        bothInside.Wait();
        calls.call(other, [] {});
        ++returned_;
    };
    std::thread thread([&] { calls.call(one, [&] { callOther(two); }); });
    calls.call(two, [&] { callOther(one); });
    thread.join();
    EXPECT_TRUE(WaitFor([&] { return returned_ == 2; }));
}

// Binder takes a call from the thread that serves a client to the thread of the client that waits.
TEST_F(ClientCallsTest, AClientThatIsTheCallerIsCalledOnItsOwnThread) {
    ClientCalls calls(kLong);
    const std::thread::id self = std::this_thread::get_id();
    const ServingCallOf caller(4711);
    std::thread::id thread;
    calls.call(NewClient(4711), [&] { thread = std::this_thread::get_id(); });
    EXPECT_EQ(thread, self);
    calls.call(NewClient(4712), [&] { thread = std::this_thread::get_id(); });
    EXPECT_NE(thread, self);
    calls.call(NewClient(), [&] { thread = std::this_thread::get_id(); });
    EXPECT_NE(thread, self);
}

TEST_F(ClientCallsTest, ACallerThatDoesNotReturnFromItsOwnCallbackKeepsNobodyElseWaiting) {
    ClientCalls calls(kShort);
    const auto client = NewClient(4711);
    Gate entered;
    std::thread served([&] {
        const ServingCallOf caller(4711);
        calls.call(client, [&] {
            entered.Open();
            gate_.Wait();
        });
    });
    entered.Wait();
    bool called = false;
    calls.call(client, [&] { called = true; });
    EXPECT_FALSE(called);
    // Whoever finds out first says so: the helper that watches, perhaps.
    EXPECT_TRUE(WaitFor([&] { return Lines().size() == 1; }));
    gate_.Open();
    served.join();
    EXPECT_THAT(Lines().back(), HasSubstr(" s: it has missed 1 events"));
}

TEST_F(ClientCallsTest, WhatACallerThatKeepsItselfWaitingLeavesUndoneIsDoneByAnother) {
    ClientCalls calls(kShort);
    Gate takenOver;
    const ServingCallOf caller(4711);
    // Not in time by itself: its callback waits for what comes after it.
    calls.call(
            NewClient(4711), [&] { takenOver.Wait(); }, [&] { takenOver.Open(); });
    EXPECT_THAT(Lines().front(),
                "W the client of process 4711 has not returned for 0 s: "
                "it is passed over");
    ClientCalls inTime(kLong);
    inTime.call(
            NewClient(4711), [] {}, [] { ADD_FAILURE() << "it has returned"; });
}

TEST_F(ClientCallsTest, ThereAreNeverMoreHelpersThanItsBound) {
    ClientCalls calls(1ms);
    for (size_t i = 0; i < ClientCalls::kMaxHelpers; ++i) LeaveBehind(&calls, NewClient());
    const auto called = std::make_shared<std::atomic<bool>>(false);
    calls.call(NewClient(7), [called] { *called = true; });
    EXPECT_FALSE(*called);
    EXPECT_EQ(Lines().back(), "W no thread to call the client of process 7: it misses an event");

    LetReturn(ClientCalls::kMaxHelpers);
    EXPECT_TRUE(WaitFor([&] {
        calls.call(NewClient(), [called] { *called = true; });
        return called->load();
    }));
}

TEST_F(ClientCallsTest, WithoutAThreadTheClientMissesTheEventAndTheCallerGoesOn) {
    ClientCalls calls(kLong);
    const auto client = NewClient(7);
    int called = 0;
    {
        const NoThreads none;
        calls.call(client, [&] { ++called; });
        calls.call(client, [&] { ++called; });
    }
    EXPECT_EQ(called, 0);
    const std::string line = "W no thread to call the client of process 7: it misses an event";
    EXPECT_THAT(Lines(), ElementsAre(line, line));
    calls.call(client, [&] { ++called; });
    EXPECT_EQ(called, 1) << "when there is one again, it is called again";
}

// It only goes without somebody who watches over the call.
TEST_F(ClientCallsTest, ACallerIsCalledWithoutAThread) {
    ClientCalls calls(kLong);
    const ServingCallOf caller(4711);
    bool called = false;
    {
        const NoThreads none;
        calls.call(NewClient(4711), [&] { called = true; });
    }
    EXPECT_TRUE(called);
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(ClientCallsTest, WhatACallHoldsIsReleasedBeforeTheCallerGoesOn) {
    ClientCalls calls(kLong);
    const auto held = std::make_shared<int>(1);
    calls.call(NewClient(), [held] {});
    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(ClientCallsTest, AHelperThatIsLeftBehindMayOutliveThem) {
    {
        ClientCalls calls(kShort);
        LeaveBehind(&calls, NewClient());
    }
    LetReturn();
}

}  // namespace
}  // namespace android::vus
