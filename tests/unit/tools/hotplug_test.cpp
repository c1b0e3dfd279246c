// SPDX-License-Identifier: Apache-2.0
//
// The whole component, between events that come from the kernel and a daemon that can die: only
// the devices are made of files.

#include "tools/hotplug/hotplug.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <time.h>

#include <atomic>
#include <future>
#include <memory>
#include <optional>
#include <thread>

#include "android/vus/paths.h"
#include "tests/support/usb_tree.h"
#include "tests/support/world.h"
#include "tests/unit/tools/fake_service.h"
#include "tests/unit/tools/fake_switches.h"
#include "tests/unit/tools/uevents.h"

namespace android::vus::hotplug {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr char kController[] = "/devices/platform/soc/a800000.ssusb/xhci-hcd.1.auto/";

class HotplugTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { private_network_ = EnterPrivateNetwork(); }

    void SetUp() override {
        if (!private_network_) GTEST_SKIP() << "the kernel allows no network namespace";
        EmptyWorld();
        tree_.emplace();
        fake_->note_lists = false;
    }

    void TearDown() override { Stop(); }

    // A disk without its interface: what the kernel announces first.
    void AddDevice(const std::string& entry, int number) {
        tree_->AddDevice(entry, {0x0951, 0x1666, "", ""}, number);
    }

    void AddInterface(const std::string& entry, int number, int32_t code) {
        tree_->AddInterface(entry, number, {code});
    }

    void RemoveDevice(const std::string& entry) { tree_->Remove(entry); }

    static void Usb(const std::string& action, const std::string& path) {
        SendEvent(action, kController + path, "usb");
    }

    // Runs the loop until Stop(), and waits until it has looked around and hears events. A device
    // of the start's own tells: it is found present, and then announced.
    void Start(const Reporter::Manner& manner = {}) {
        AddDevice("1-99", 99);
        stop_ = base::unique_fd(eventfd(0, EFD_CLOEXEC));
        thread_ = std::thread([this, manner] {
            Hotplug hotplug([this] { return Find(); }, &switches_, manner);
            EXPECT_TRUE(hotplug.run(stop_.get()));
        });
        WaitUntil([this] { return searches_ > 0; });  // it listens before it looks for the daemon
        Usb("bind", "1-99");
        EXPECT_THAT(fake_->TakeAtLeast(2), ElementsAre("judge 1099", "judge 1099"));
        RemoveDevice("1-99");
        Usb("remove", "1-99");
        EXPECT_THAT(fake_->TakeAtLeast(1), ElementsAre("update 1099 0"));
    }

    void Stop() {
        if (!thread_.joinable()) return;
        eventfd_write(stop_.get(), 1);
        thread_.join();
    }

    template <typename Condition>
    void WaitUntil(Condition condition) {
        std::unique_lock<std::mutex> lock(mutex_);
        EXPECT_TRUE(searched_.wait_for(lock, std::chrono::seconds(10), condition));
    }

    FoundService Find() {
        const std::lock_guard<std::mutex> lock(mutex_);
        ++searches_;
        searched_.notify_all();
        return {remote_.service, remote_.service == nullptr ? "not there" : ""};
    }

    void DaemonIs(const RemoteService& remote) {
        const std::lock_guard<std::mutex> lock(mutex_);
        remote_ = remote;
    }

    static bool private_network_;
    std::optional<UsbTree> tree_;
    sp<FakeService> fake_ = new FakeService;
    FakeSwitches switches_;
    std::mutex mutex_;
    std::condition_variable searched_;
    int searches_ = 0;
    RemoteService remote_ = Remote(fake_);
    base::unique_fd stop_;
    std::thread thread_;
};

bool HotplugTest::private_network_ = false;

// The thread's processor time.
std::chrono::nanoseconds UsedBy(std::thread* thread) {
    clockid_t clock;
    timespec used = {};
    EXPECT_EQ(pthread_getcpuclockid(thread->native_handle(), &clock), 0);
    EXPECT_EQ(clock_gettime(clock, &used), 0);
    return std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
}

TEST_F(HotplugTest, WhatIsPresentIsJudgedOnce) {
    AddDevice("1-1", 2);
    AddInterface("1-1", 0, 8);
    AddDevice("1-2", 3);
    AddInterface("1-2", 0, 9);  // a hub
    tree_->Bind("1-2:1.0", "hub");
    AddDevice("1-2.4", 4);  // and a device behind it
    Hotplug hotplug([this] { return Find(); }, &switches_, {});
    std::string why_not;
    EXPECT_TRUE(hotplug.run_once(&why_not)) << why_not;
    EXPECT_THAT(fake_->Take(), UnorderedElementsAre("judge 1002", "judge 1004"));
}

TEST_F(HotplugTest, MissingDaemonEndsTheSingleRun) {
    DaemonIs({});
    Hotplug hotplug([this] { return Find(); }, &switches_, {});
    std::string why_not;
    EXPECT_FALSE(hotplug.run_once(&why_not));
    EXPECT_EQ(why_not, "not there");
}

TEST_F(HotplugTest, DeadDaemonEndsTheSingleRun) {
    remote_.binder->Die();
    Hotplug hotplug([this] { return Find(); }, &switches_, {});
    std::string why_not;
    EXPECT_FALSE(hotplug.run_once(&why_not));
    EXPECT_EQ(why_not, "the daemon has just ended");
}

TEST_F(HotplugTest, DeviceIsJudgedWhenTheKernelHasBoundIt) {
    Start();
    AddDevice("1-1", 2);
    Usb("add", "1-1");
    AddInterface("1-1", 0, 8);
    Usb("add", "1-1/1-1:1.0");
    Usb("bind", "1-1/1-1:1.0");
    EXPECT_THAT(fake_->Take(), IsEmpty());
    Usb("bind", "1-1");
    EXPECT_THAT(fake_->TakeAtLeast(1), ElementsAre("judge 1002"));
    RemoveDevice("1-1");
    Usb("remove", "1-1");
    EXPECT_THAT(fake_->TakeAtLeast(1), ElementsAre("update 1002 0"));
}

// Nothing is heard of it any more: it is looked at again by itself.
TEST_F(HotplugTest, DeviceThatCouldNotBeReadIsJudgedWhenItCanBe) {
    AddDevice("1-1", 2);
    const std::string code = UsbPath("1-1", "bDeviceClass");
    const std::string read = ReadFile(code);
    RemoveTree(code);
    MakeDir(code);  // which the kernel opens, and does not read
    Start();
    EXPECT_THAT(switches_.TakeAtLeast(1), ElementsAre("close 1-1"));
    RemoveTree(code);
    WriteFile(code, read);
    EXPECT_THAT(fake_->TakeAtLeast(1), ElementsAre("judge 1002"));
    EXPECT_THAT(switches_.TakeAtLeast(1), ElementsAre("open 1-1"));
}

// Without it a device is none that is known, and none that has gone.
TEST_F(HotplugTest, DeviceWhoseNumberCouldNotBeReadIsJudgedWhenItCanBe) {
    AddDevice("1-1", 2);
    const std::string devnum = UsbPath("1-1", "devnum");
    const std::string read = ReadFile(devnum);
    RemoveTree(devnum);
    MakeDir(devnum);
    Start();
    RemoveTree(devnum);
    WriteFile(devnum, read);
    EXPECT_THAT(fake_->TakeAtLeast(1), ElementsAre("judge 1002"));
    EXPECT_THAT(switches_.Take(), IsEmpty());
}

TEST_F(HotplugTest, InterfacesOfAnotherConfigurationAreJudged) {
    Start();
    AddDevice("1-1", 2);
    Usb("add", "1-1");
    Usb("bind", "1-1");
    EXPECT_THAT(fake_->TakeAtLeast(1), ElementsAre("judge 1002"));
    AddInterface("1-1", 0, 8);
    Usb("add", "1-1/1-1:1.0");
    EXPECT_THAT(fake_->TakeAtLeast(2), ElementsAre("update 1002 0", "judge 1002"));
}

TEST_F(HotplugTest, EverythingIsJudgedWhenTheDaemonComesBack) {
    Start();
    AddDevice("1-1", 2);
    Usb("bind", "1-1");
    EXPECT_THAT(fake_->TakeAtLeast(1), ElementsAre("judge 1002"));
    const sp<FakeService> next = new FakeService;
    next->note_lists = false;
    const RemoteService before = remote_;
    DaemonIs({});
    before.binder->Die();
    WaitUntil([this] { return searches_ > 2; });
    AddDevice("1-3", 5);  // while the daemon is away
    Usb("add", "1-3");
    Usb("bind", "1-3");
    DaemonIs(Remote(next));
    EXPECT_THAT(next->TakeAtLeast(2), UnorderedElementsAre("judge 1002", "judge 1005"));
    Usb("remove", "1-1");
    EXPECT_THAT(next->TakeAtLeast(1), ElementsAre("update 1002 0"));
}

TEST_F(HotplugTest, EverythingIsAskedAboutUnderAnotherPolicy) {
    MakeDir(kConfigDir);
    const auto allows = std::make_shared<std::atomic<bool>>(true);
    fake_->allow = [allows](const DeviceInfo&) { return allows->load(); };
    Start();
    AddDevice("1-1", 2);
    AddInterface("1-1", 0, 8);
    Usb("bind", "1-1");
    EXPECT_THAT(fake_->TakeAtLeast(1), ElementsAre("judge 1002"));
    *allows = false;
    WriteFile(kPolicyFile, "");  // not in force yet
    WriteFile(kPolicyBackupFile, "");
    EXPECT_THAT(fake_->TakeAtLeast(2), ElementsAre("update 1002 0", "judge 1002"));
    EXPECT_THAT(switches_.TakeAtLeast(1), ElementsAre("close 1-1"));
    // And opened by the next.
    *allows = true;
    WriteFile(kPolicyBackupFile, "");
    EXPECT_THAT(switches_.TakeAtLeast(1), ElementsAre("open 1-1"));
}

TEST_F(HotplugTest, WhatABoardHasResetIsAskedAboutOnce) {
    MakeDir(kConfigDir);
    MakeDir(std::string(kSocDir) + "a800000.ssusb");
    WriteFile(std::string(kSocDir) + kSuperSpeedModeFile, "host\n");
    Start();
    for (const auto& [entry, number] : {std::pair("1-1", 2), std::pair("1-2", 3)}) {
        AddDevice(entry, number);
        Usb("bind", entry);
        fake_->TakeAtLeast(1);
    }
    WriteFile(kPolicyBackupFile, "");
    RemoveDevice("1-1");
    Usb("remove", "1-1");
    EXPECT_THAT(fake_->TakeAtLeast(1), ElementsAre("update 1002 0"));
    AddDevice("1-1", 4);
    Usb("bind", "1-1");
    EXPECT_THAT(fake_->TakeAtLeast(1), ElementsAre("judge 1004"));
    EXPECT_THAT(fake_->TakeAtLeast(2), ElementsAre("update 1003 0", "judge 1003"));
}

TEST_F(HotplugTest, BurstOfEventsIsReportedInFull) {
    Start();
    constexpr int kDevices = 100;
    for (int device = 1; device <= kDevices; ++device) {
        const std::string entry = "1-" + std::to_string(device);
        AddDevice(entry, device);
        Usb("add", entry);
        Usb("bind", entry);
    }
    std::vector<std::string> expected;
    for (int device = 1; device <= kDevices; ++device) {
        expected.push_back("judge " + std::to_string(1000 + device));
    }
    EXPECT_THAT(fake_->TakeAtLeast(kDevices), testing::UnorderedElementsAreArray(expected));
}

// What a notice holds up is the loop, which then hears nothing.
TEST_F(HotplugTest, LostEventsAreMadeUpFor) {
    std::promise<void> stuck, go_on;
    fake_->allow = [](const DeviceInfo& info) { return info.deviceId != 1002; };
    Start({false, nullptr, [&](const std::string& line) {
               if (line != "closed 1-1: its interfaces have come back") return;
               stuck.set_value();
               go_on.get_future().wait();
           }});
    AddDevice("1-1", 2);
    AddInterface("1-1", 0, 8);
    Usb("bind", "1-1");
    EXPECT_THAT(fake_->TakeAtLeast(1), ElementsAre("judge 1002"));
    EXPECT_THAT(switches_.TakeAtLeast(1), ElementsAre("close 1-1"));
    Usb("add", "1-1/1-1:1.0");
    ASSERT_EQ(stuck.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    const std::string long_path = "1-1/" + std::string(700, 'x');
    for (int event = 0; event < 8000; ++event) Usb("change", long_path);
    RemoveDevice("1-1");
    Usb("remove", "1-1");
    AddDevice("1-2", 3);
    Usb("bind", "1-2");
    go_on.set_value();
    EXPECT_THAT(fake_->TakeAtLeast(2), UnorderedElementsAre("update 1002 0", "judge 1003"));
}

TEST_F(HotplugTest, RefusedInterfacesThatComeBackAreSwitchedOffAtOnce) {
    fake_->allow = [](const DeviceInfo&) { return false; };
    Start();
    AddDevice("1-1", 2);
    AddInterface("1-1", 0, 8);
    Usb("bind", "1-1");
    EXPECT_THAT(switches_.TakeAtLeast(1), ElementsAre("close 1-1"));
    Usb("add", "1-1/1-1:2.0");
    EXPECT_THAT(switches_.TakeAtLeast(1), ElementsAre("close 1-1"));
}

TEST_F(HotplugTest, DeviceIsSwitchedOffWhenNoAnswerComes) {
    Start();
    std::promise<void> answer;
    fake_->allow = [let = answer.get_future().share()](const DeviceInfo&) {
        let.wait();
        return true;
    };
    AddDevice("1-1", 2);
    Usb("bind", "1-1");
    EXPECT_THAT(switches_.TakeAtLeast(1), ElementsAre("close 1-1"));
    answer.set_value();
    EXPECT_THAT(switches_.TakeAtLeast(1), ElementsAre("open 1-1"));
}

TEST_F(HotplugTest, EventsOfOthersAreNotHeeded) {
    Start();
    AddDevice("1-1", 2);
    SendEvent("add", "/devices/virtual/net/1-1", "net");
    SendEvent("bind", std::string(kController) + "1-1", "usbmisc");
    Usb("change", "1-1");
    AddDevice("1-2", 3);
    Usb("bind", "1-2");
    EXPECT_THAT(fake_->TakeAtLeast(1), ElementsAre("judge 1003"));
}

TEST_F(HotplugTest, LoopSleepsWhileNothingHappens) {
    Start();
    AddDevice("1-1", 2);
    Usb("bind", "1-1");
    fake_->TakeAtLeast(1);
    // It may still be on its way to sleep.
    auto used = UsedBy(&thread_);
    for (int round = 0; round < 100; ++round) {
        std::this_thread::sleep_for(milliseconds(50));
        const auto before = std::exchange(used, UsedBy(&thread_));
        if (used == before) break;
    }
    const int searches = searches_;
    std::this_thread::sleep_for(milliseconds(300));
    EXPECT_EQ(UsedBy(&thread_), used) << "the loop has run meanwhile";
    EXPECT_EQ(searches_, searches);
}

}  // namespace
}  // namespace android::vus::hotplug
