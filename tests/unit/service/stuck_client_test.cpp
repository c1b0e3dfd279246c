// SPDX-License-Identifier: Apache-2.0
//
// A client that never returns from its callback: admission goes on, and the others hear of it all.
// And clients whom nobody can be sent to.

#include <binder/IPCThreadState.h>

#include <atomic>
#include <thread>

#include "service_fixture.h"
#include "tests/support/no_threads.h"

namespace android::vus {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr int kDevices = 100;
constexpr int kThreads = 4;

class StuckClientTest : public ServiceTest {
  protected:
    void SetUp() override {
        ServiceTest::SetUp();
        LoadPolicy("<usbconfig mode='whitelist'/>");
        for (int i = 1; i <= kDevices; ++i) AttachUsbDevice(Entry(i), i, {8});
    }

    static std::string Entry(int device) { return "1-" + std::to_string(device); }
    static std::string Authorized(int device) {
        return ServiceTest::Authorized(Entry(device) + ":1.0");
    }

    void PlugAndUnplug(int device) {
        const DeviceInfo info = UsbDeviceInfo(1000 + device, {8});
        bool allowed = true;
        EXPECT_TRUE(service_->isDeviceAllowed(info, &allowed).isOk());
        EXPECT_FALSE(allowed);
        EXPECT_TRUE(service_->updateDeviceList(info, 0).isOk());
        ++answered_;
    }

    std::atomic<int> answered_{0};
};

TEST_F(StuckClientTest, AHundredDevicesInAndOutAreRefusedAndAnswered) {
    const sp<RecordingCallback> before = RegisterClient();
    const sp<RecordingCallback> stuck = RegisterClient();
    const sp<RecordingCallback> after = RegisterClient();
    Gate forever;
    std::atomic<bool> returned{false};
    stuck->on_added = [&](const DeviceInfo&) {
        forever.Wait();
        returned = true;
    };

    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([this, thread] {
            for (int i = 1 + thread; i <= kDevices; i += kThreads) PlugAndUnplug(i);
        });
    }
    for (std::thread& thread : threads) thread.join();

    EXPECT_EQ(answered_, kDevices);
    for (int i = 1; i <= kDevices; ++i) EXPECT_EQ(Authorized(i), "0") << i;
    EXPECT_THAT(before->Events(), SizeIs(2 * kDevices));
    EXPECT_THAT(after->Events(), SizeIs(2 * kDevices));
    EXPECT_THAT(stuck->Events(), SizeIs(1)) << "nobody else goes into it";
    EXPECT_TRUE(List().empty());
    const std::string passedOver =
            "the client of process 0 has not returned for 5 s: it is passed over";
    EXPECT_EQ(CountOf(passedOver), 1u);

    // It hears again of what comes when it is back.
    forever.Open();
    EXPECT_TRUE(WaitFor([&] { return Logged(HasSubstr("is back after")); }));
    EXPECT_TRUE(returned);
    EXPECT_TRUE(Logged(HasSubstr("it has missed " + std::to_string(2 * kDevices - 1) + " events")));
    stuck->on_added = nullptr;
    PlugAndUnplug(1);
    EXPECT_THAT(stuck->Events(), SizeIs(3));
}

// A reporter that is a client, too, and does not return from its own callback: it has no answer,
// but nobody else goes without.
TEST_F(StuckClientTest, AReporterThatIsStuckInItsOwnCallbackKeepsNobodyFromHearing) {
    constexpr pid_t kReporter = 4711;
    const int64_t self = IPCThreadState::self()->clearCallingIdentity();
    IPCThreadState::self()->restoreCallingIdentity(kReporter);
    const sp<RecordingCallback> reporter = RegisterClient();
    IPCThreadState::self()->restoreCallingIdentity(self);
    const sp<RecordingCallback> others[] = {RegisterClient(), RegisterClient()};
    Gate forever;
    reporter->on_added = [&](const DeviceInfo&) { forever.Wait(); };

    std::thread reported([this] {
        IPCThreadState::self()->restoreCallingIdentity(kReporter);
        bool allowed = true;
        service_->isDeviceAllowed(UsbDeviceInfo(1001, {8}), &allowed);
        ++answered_;
    });
    for (const auto& other : others) {
        EXPECT_TRUE(WaitFor([&] { return other->Events().size() == 1; }));
    }
    EXPECT_EQ(answered_, 0);
    EXPECT_EQ(Authorized(1), "0");
    PlugAndUnplug(2);
    for (const auto& other : others) EXPECT_THAT(other->Events(), SizeIs(3));
    forever.Open();
    reported.join();
    for (const auto& other : others) EXPECT_THAT(other->Events(), SizeIs(3));
    EXPECT_EQ(answered_, 2);
}

TEST_F(StuckClientTest, WithoutAThreadToTellClientsADeviceIsRefusedAndAnsweredAllTheSame) {
    const sp<RecordingCallback> client = RegisterClient();
    {
        const NoThreads none;
        PlugAndUnplug(1);
    }
    EXPECT_EQ(answered_, 1);
    EXPECT_EQ(Authorized(1), "0");
    EXPECT_THAT(client->Events(), IsEmpty());
    EXPECT_EQ(CountOf("no thread to call the client of process 0: it misses an event"), 2u);
    PlugAndUnplug(2);
    EXPECT_THAT(client->Events(), ElementsAre("added device 1002", "removed device 1002"));
}

}  // namespace
}  // namespace android::vus
