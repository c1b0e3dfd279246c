// SPDX-License-Identifier: Apache-2.0

// Host reset, virtual undock and the dock's power: the order of every write, property and line.

#include <poll.h>
#include <pthread.h>
#include <sys/inotify.h>
#include <sys/mount.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <stdexcept>
#include <thread>

#include <cutils/properties.h>

#include "platform/property_store.h"
#include "tests/support/no_threads.h"
#include "usb_test.h"

namespace android::vus {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Tells, in order, which files of some directories were written (by their content then) or renamed
// into place (by their name).
class FileEvents {
  public:
    explicit FileEvents(const std::vector<std::string>& directories)
          : notify_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
        for (const std::string& directory : directories) {
            std::filesystem::create_directories(directory);
            const int watch = inotify_add_watch(notify_.get(), directory.c_str(),
                                                IN_CLOSE_WRITE | IN_MOVED_TO);
            directories_[watch] = directory;
        }
        thread_ = std::thread([this] { follow(); });
    }
    ~FileEvents() { take(); }

    // Ends the watch and returns what happened.
    std::vector<std::string> take() {
        done_ = true;
        if (thread_.joinable()) thread_.join();
        return events_;
    }

  private:
    void follow() {
        bool last_look = false;
        while (!last_look) {
            last_look = done_;
            pollfd ready = {notify_.get(), POLLIN, 0};
            poll(&ready, 1, 5);
            read_events();
        }
    }
    void read_events() {
        alignas(inotify_event) char buffer[8192];
        const ssize_t count = read(notify_.get(), buffer, sizeof(buffer));
        for (ssize_t at = 0; at < count;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
            at += static_cast<ssize_t>(sizeof(*event) + event->len);
            const std::string path = directories_[event->wd] + "/" + event->name;
            const bool is_property = (event->mask & IN_MOVED_TO) != 0;
            if (!is_property && event->name[0] == '.') continue;
            std::ifstream file(path);
            std::string content;
            std::getline(file, content);
            const std::string name = is_property ? event->name : path;
            const bool is_aside = !is_property && directories_[event->wd] == platform::kPropertyDir;
            if (!is_aside) events_.push_back(name + "=" + content);
        }
    }

    base::unique_fd notify_;
    std::map<int, std::string> directories_;
    std::atomic<bool> done_ = false;
    std::vector<std::string> events_;
    std::thread thread_;
};

class HostTest : public UsbTest {
  protected:
    static constexpr char kHighSpeed[] = "/sys/devices/platform/soc/c200000.hsusb/mode";
    static constexpr char kSuperSpeed[] = "/sys/devices/platform/soc/a800000.ssusb/mode";
    static constexpr char kDockController[] = "/sys/devices/platform/soc/a600000.ssusb/mode";
    // What is left of a logged value after its newline: the logger's next line.
    static constexpr char kNewline[] = "I ";
    static constexpr char kDevspec[] = "/soc@0/ssusb@a600000/dwc3@a600000\n";

    void SetUp() override {
        UsbTest::SetUp();
        memset(UsbDevice::power_val, 0, sizeof(UsbDevice::power_val));
        UsbDevice::exit_poll = false;
        UsbDevice::sysfs_observer_thread = {};
    }
    void TearDown() override {
        join_watcher();
        UsbTest::TearDown();
    }

    // The test owns the watcher that an undock leaves, because nobody else ever joins it.
    static void join_watcher() {
        if (UsbDevice::sysfs_observer_thread == pthread_t{}) return;
        UsbDevice::exit_poll = true;
        pthread_join(UsbDevice::sysfs_observer_thread, nullptr);
        UsbDevice::sysfs_observer_thread = {};
    }
    static std::string property(const char* name) {
        char value[PROPERTY_VALUE_MAX];
        property_get(name, value, "");
        return value;
    }
    static milliseconds time_of(const std::function<void()>& action) {
        const auto start = steady_clock::now();
        action();
        return std::chrono::duration_cast<milliseconds>(steady_clock::now() - start);
    }
    static void attach_displaylink(const std::string& devspec = kDevspec) {
        put_record(1004, "1-1:1.0");
        put_record(2003, "2-1:1.0", 0, 0x17e9);
        put_record(3003, "3-1:1.0", 0, 0x17e9);
        WriteFile(UsbPath("usb2", "devspec"), devspec);
        WriteFile(kDockController, "host\n");
    }
    static bool usb_host_is_free() {
        const bool free = UsbDevice::usb_host_mutex.try_lock();
        if (free) UsbDevice::usb_host_mutex.unlock();
        return free;
    }
};

TEST_F(HostTest, TheControllersAreTheHighAndTheSuperSpeedOne) {
    EXPECT_THAT(UsbDevice::host_mode_paths,
                ElementsAre("c200000.hsusb/mode", "a800000.ssusb/mode"));
    EXPECT_STREQ(UsbDevice::usb_online_path, "/sys/class/power_supply/usb/online");
    EXPECT_STREQ(UsbDevice::dc_online_path, "/sys/class/power_supply/dc/online");
}

TEST_F(HostTest, AResetTakesEachControllerOutOfHostModeAndBack) {
    for (const int value : {0, -5}) {
        WriteFile(kHighSpeed, "host\n");
        WriteFile(kSuperSpeed, "host");
        FileEvents events({"/sys/devices/platform/soc/c200000.hsusb",
                           "/sys/devices/platform/soc/a800000.ssusb"});
        const std::string high(kHighSpeed), super(kSuperSpeed);
        milliseconds time;
        EXPECT_THAT(log_of([&] { time = time_of([=] { UsbDevice::usb_host_reset(value); }); }),
                    ElementsAre("I usb_host_reset entered:",
                                "I usb_host_reset mode set to none for syspath: " + high,
                                "I usb_host_reset mode set to host for syspath: " + high,
                                "I usb_host_reset mode set to none for syspath: " + super,
                                "I usb_host_reset mode set to host for syspath: " + super));
        EXPECT_THAT(events.take(),
                    ElementsAre(high + "=none", high + "=host", super + "=none", super + "=host"));
        EXPECT_GE(time, milliseconds(400));
        EXPECT_TRUE(usb_host_is_free());
    }
}

TEST_F(HostTest, AControllerThatIsAbsentOrNotInHostModeIsLeftAlone) {
    WriteFile(kSuperSpeed, "none\n");
    EXPECT_THAT(log_of([] { UsbDevice::usb_host_reset(0); }),
                ElementsAre("I usb_host_reset entered:"));
    EXPECT_EQ(ReadFile(kSuperSpeed), "none\n");
    EXPECT_FALSE(std::filesystem::exists(kHighSpeed));
}

TEST_F(HostTest, HostModeIsItsFirstFourCharacters) {
    for (const char* value : {"hos\n", " host\n", "Host\n", "device\n"}) {
        WriteFile(kHighSpeed, value);
        UsbDevice::usb_host_reset(0);
        EXPECT_EQ(ReadFile(kHighSpeed), value);
    }
    WriteFile(kHighSpeed, "hostile");
    EXPECT_THAT(log_of([] { UsbDevice::usb_host_reset(0); }), ::testing::SizeIs(3));
}

TEST_F(HostTest, AnUnreadableModeIsLoggedAndSkipped) {
    WriteFile(kHighSpeed, "");
    WriteFile(kSuperSpeed, "host");
    EXPECT_THAT(log_of([] { UsbDevice::usb_host_reset(0); }),
                ElementsAre("I usb_host_reset entered:", "E Unable to read from sysfs path0",
                            "I usb_host_reset mode set to none for syspath: " +
                                    std::string(kSuperSpeed),
                            "I usb_host_reset mode set to host for syspath: " +
                                    std::string(kSuperSpeed)));
}

TEST_F(HostTest, AModeThatCannotBeWrittenDoesNotEndTheReset) {
    WriteFile(kHighSpeed, "host");
    WriteFile(kSuperSpeed, "host");
    ASSERT_EQ(mount(kHighSpeed, kHighSpeed, nullptr, MS_BIND, nullptr), 0) << strerror(errno);
    ASSERT_EQ(mount(nullptr, kHighSpeed, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0)
            << strerror(errno);
    const std::string high(kHighSpeed), super(kSuperSpeed);
    EXPECT_THAT(log_of([] { UsbDevice::usb_host_reset(0); }),
                ElementsAre("I usb_host_reset entered:",
                            "E Unable to open  sysfs path for writing" + high,
                            "I usb_host_reset mode set to none for syspath: " + high,
                            "I usb_host_reset mode set to host for syspath: " + high,
                            "E Unable to open  sysfs path for writing" + high,
                            "I usb_host_reset mode set to none for syspath: " + super,
                            "I usb_host_reset mode set to host for syspath: " + super));
    EXPECT_EQ(umount2(kHighSpeed, MNT_DETACH), 0);
}

TEST_F(HostTest, ResetsWaitForEachOther) {
    WriteFile(kHighSpeed, "host");
    std::thread first([] { UsbDevice::usb_host_reset(0); });
    wait_for_line("I usb_host_reset mode set to none for syspath: " + std::string(kHighSpeed));
    UsbDevice::usb_host_reset(0);
    first.join();
    // The second finds the controller in host mode again, after the whole of the first: let in
    // between, it would have found "none" and done nothing.
    std::vector<std::string> modes;
    for (const std::string& line : take_log()) {
        if (line.find("mode set to") != std::string::npos) modes.push_back(line.substr(2, 31));
    }
    EXPECT_THAT(modes,
                ElementsAre("usb_host_reset mode set to none", "usb_host_reset mode set to host",
                            "usb_host_reset mode set to none", "usb_host_reset mode set to host"));
}

TEST_F(HostTest, WithoutADisplayLinkTheControllerPathIsTheWordEmpty) {
    put_record(1004, "1-1:1.0");
    EXPECT_THAT(log_of([] { EXPECT_EQ(UsbDevice::get_displaylink_soc_path(), "empty"); }),
                IsEmpty());
}

TEST_F(HostTest, TheControllerIsThatOfTheFirstDisplayLink) {
    attach_displaylink();
    EXPECT_THAT(log_of([] { EXPECT_EQ(UsbDevice::get_displaylink_soc_path(), kDockController); }),
                ElementsAre("I get_displaylink_soc_path /sys/bus/usb/devices/usb2/devspec",
                            "I get_displaylink_soc_path devspec_val : "
                            "/soc@0/ssusb@a600000/dwc3@a600000",
                            kNewline));
}

TEST_F(HostTest, TheBusIsTheFirstDigitOfTheInterface) {
    put_record(12003, "12-1:1.0", 0, 6121);
    WriteFile(UsbPath("usb1", "devspec"), "/soc/a@1\n");
    WriteFile(UsbPath("usb12", "devspec"), "/soc/b@2\n");
    EXPECT_EQ(UsbDevice::get_displaylink_soc_path(), "/sys/devices/platform/soc/1.a/mode");
}

TEST_F(HostTest, ADisplayLinkOnTheFirstBusIsBelowItsRootHub) {
    put_record(1004, "1-1.2:1.0", 0, 6121);
    WriteFile(UsbPath("usb1", "devspec"), kDevspec);
    EXPECT_EQ(UsbDevice::get_displaylink_soc_path(), kDockController);
}

// The map is used as the last rebuild left it, which here was before the adapter came.
TEST_F(HostTest, ADisplayLinkThatTheMapDoesNotHoldIsNone) {
    add_bus("usb2", {{"devspec", kDevspec}});
    WriteFile(kDockController, "host\n");
    WriteFile(kUsbOnlineFile, "1\n");
    WriteFile(kDcOnlineFile, "1\n");
    UsbDevice::create_usb_device_map();
    add_device("2-1", {{"devnum", "3\n"}, {"idVendor", "17e9\n"}});
    add_interface("2-1:1.0");
    const std::vector<std::string> lines = log_of([] { UsbDevice::usb_host_reset(1); });
    EXPECT_THAT(lines, Contains("I virtual_undock_dock_event usbPath : empty"));
    EXPECT_EQ(property(kDockProperty), "1");
    EXPECT_EQ(ReadFile(kDockController), "host\n");
    EXPECT_THAT(map_names(), IsEmpty()) << "it is not rebuilt";

    UsbDevice::create_usb_device_map();
    EXPECT_EQ(UsbDevice::get_displaylink_soc_path(), kDockController);
}

TEST_F(HostTest, ADevspecThatNamesNoControllerGivesAnEmptyPath) {
    for (const char* devspec : {"(null)\n", "/\n", "/soc@0\n", "/soc@0/\n", "/soc@0/ssusb\n",
                                "/soc@0/ssusb@\n", "//", "\n", "soc@0/ssusb@1"}) {
        clear_map();
        attach_displaylink(devspec);
        EXPECT_EQ(UsbDevice::get_displaylink_soc_path(), "") << devspec;
    }
    WriteFile(UsbPath("usb2", "devspec"), "");
    EXPECT_THAT(log_of([] { EXPECT_EQ(UsbDevice::get_displaylink_soc_path(), ""); }),
                ElementsAre("I get_displaylink_soc_path /sys/bus/usb/devices/usb2/devspec",
                            "E Unable to read from sysfs path0"));
    std::filesystem::remove_all(UsbPath("usb2"));
    EXPECT_THAT(log_of([] { EXPECT_EQ(UsbDevice::get_displaylink_soc_path(), ""); }),
                Contains("E Unable to open sysfs path for reading/sys/bus/usb/devices/usb2/"
                         "devspec"));
}

TEST_F(HostTest, AnUndockWithPowerTakesTheControllerOutAndBack) {
    attach_displaylink();
    WriteFile(kUsbOnlineFile, "1\n");
    FileEvents events({"/sys/devices/platform/soc/a600000.ssusb", platform::kPropertyDir});
    milliseconds time;
    const std::string path(kDockController);
    EXPECT_THAT(log_of([&] { time = time_of([] { UsbDevice::usb_host_reset(150); }); }),
                ElementsAre("I usb_host_reset entered:",
                            "I get_displaylink_soc_path /sys/bus/usb/devices/usb2/devspec",
                            "I get_displaylink_soc_path devspec_val : "
                            "/soc@0/ssusb@a600000/dwc3@a600000",
                            kNewline, "I virtual_undock_dock_event usbPath : " + path,
                            "I virtual_undock_dock_event usbPath for display link device",
                            "I virtual_undock_dock_event mode set to none for syspath: " + path,
                            "I USB charging_state val 1", kNewline, "I power_supply_state val 1",
                            "I virtual_undock_dock_event mode set to host for syspath: " + path));
    EXPECT_GE(time, milliseconds(250));
    EXPECT_THAT(events.take(), ElementsAre(path + "=none", path + "=host"));
}

TEST_F(HostTest, DockPowerCountsAsPower) {
    attach_displaylink();
    WriteFile(kUsbOnlineFile, "0\n");
    WriteFile(kDcOnlineFile, " 1\n");
    const std::vector<std::string> lines = log_of([] { UsbDevice::usb_host_reset(1); });
    EXPECT_THAT(std::vector<std::string>(lines.begin() + 7, lines.end()),
                ElementsAre("I USB charging_state val 0", kNewline, "I power_supply_state val 0",
                            "I virtual_undock_dock_event check for dc charge state",
                            "I DC charging_state val  1", kNewline, "I DC power_supply_state val 1",
                            "I virtual_undock_dock_event mode set to host for syspath: " +
                                    std::string(kDockController)));
    EXPECT_EQ(ReadFile(kDockController), "host\n");
}

TEST_F(HostTest, WithoutPowerTheControllerStaysOff) {
    attach_displaylink();
    WriteFile(kUsbOnlineFile, "0\n");
    WriteFile(kDcOnlineFile, "10\n");
    EXPECT_EQ(log_of([] { UsbDevice::usb_host_reset(1); }).back(),
              "I device is undocked, not charging state");
    EXPECT_EQ(ReadFile(kDockController), "none\n");
    // Nothing here brings it back: it is not in host mode any more.
    WriteFile(kUsbOnlineFile, "1\n");
    EXPECT_EQ(log_of([] { UsbDevice::usb_host_reset(1); }).back(),
              "I virtual_undock_dock_event usbPath for display link device");
    EXPECT_EQ(ReadFile(kDockController), "none\n");
}

TEST_F(HostTest, WithoutAUsbSupplyTheControllerStaysOff) {
    attach_displaylink();
    WriteFile(kDcOnlineFile, "1\n");
    EXPECT_EQ(log_of([] { UsbDevice::usb_host_reset(1); }).back(),
              "I virtual_undock_dock_event mode set to none for syspath: " +
                      std::string(kDockController));
    EXPECT_EQ(ReadFile(kDockController), "none\n");
}

TEST_F(HostTest, AnUndockWithoutAControllerPathEndsAtOnce) {
    attach_displaylink("(null)\n");
    const milliseconds time = time_of([this] {
        const std::vector<std::string> lines = log_of([] { UsbDevice::usb_host_reset(10000); });
        ASSERT_EQ(lines.size(), 6u);
        EXPECT_EQ(lines[4], "I virtual_undock_dock_event usbPath : ");
        EXPECT_EQ(lines[5], "I virtual_undock_dock_event usbPath for display link device");
    });
    EXPECT_LT(time, milliseconds(5000));
    EXPECT_EQ(property(kUndockProperty), "");
}

TEST_F(HostTest, ASupplyThatIsNoNumberIsTheCallersExceptionAndTheMutexIsFree) {
    attach_displaylink();
    WriteFile(kUsbOnlineFile, "online\n");
    EXPECT_THROW(UsbDevice::usb_host_reset(1), std::invalid_argument);
    EXPECT_TRUE(usb_host_is_free());

    WriteFile(kDockController, "host\n");
    WriteFile(kUsbOnlineFile, "99999999999\n");
    EXPECT_THROW(UsbDevice::usb_host_reset(1), std::out_of_range);
    EXPECT_TRUE(usb_host_is_free());

    // No dock supply at all is no number either.
    WriteFile(kDockController, "host\n");
    WriteFile(kUsbOnlineFile, "0\n");
    EXPECT_THROW(UsbDevice::usb_host_reset(1), std::invalid_argument);
    EXPECT_TRUE(usb_host_is_free());

    WriteFile(kDockController, "host\n");
    WriteFile(kUsbOnlineFile, "1\n");
    EXPECT_NO_THROW(UsbDevice::usb_host_reset(1));
}

TEST_F(HostTest, WithoutDockPowerNothingIsAnnounced) {
    for (const char* value : {"0\n", "0", "01"}) {
        WriteFile(kDcOnlineFile, value);
        EXPECT_THAT(log_of([] { UsbDevice::usb_host_reset(1); }),
                    ElementsAre("I usb_host_reset entered:",
                                "I virtual_undock_dock_event usbPath : empty",
                                "I virtual_undock_dock_event usbPath empty for non-display link "
                                "device"));
    }
    EXPECT_FALSE(std::filesystem::exists(platform::kPropertyDir));
    EXPECT_EQ(UsbDevice::sysfs_observer_thread, pthread_t{});
}

TEST_F(HostTest, WithDockPowerUndockAndDockAreAnnouncedInOrder) {
    WriteFile(kDcOnlineFile, "1\n");
    const auto has_watched = [&] {
        std::filesystem::remove_all(platform::kPropertyDir);
        FileEvents events({platform::kPropertyDir});
        take_log();
        EXPECT_GE(time_of([] { UsbDevice::usb_host_reset(200); }), milliseconds(200));
        EXPECT_THAT(events.take(), ElementsAre(std::string(kUndockProperty) + "=1",
                                               std::string(kResetProperty) + "=1",
                                               std::string(kDockProperty) + "=1",
                                               std::string(kResetProperty) + "=1"));
        join_watcher();
        const std::vector<std::string> lines = take_log();
        EXPECT_THAT(lines, Contains("I registerFileObserverViaThread result--0"));
        EXPECT_EQ(lines.back(), "I readSysfsChangeEvent:exit poll due to virtual dock");
        const std::string polled =
                "I readSysfsChangeEvent:polling for power_val "
                "/sys/class/power_supply/dc/onlinepower_val:1";
        return std::find(lines.begin(), lines.end(), polled) != lines.end();
    };
    // On a machine that has other things to do the watcher may not begin in time, but not always.
    EXPECT_TRUE(Eventually(has_watched));
    EXPECT_STREQ(UsbDevice::power_val, "1\n");
}

TEST_F(HostTest, AnUnreadableDockSupplyCountsAsItsLastValue) {
    // Never read: not '0', and so announced.
    FileEvents events({platform::kPropertyDir});
    UsbDevice::usb_host_reset(1);
    EXPECT_EQ(events.take().size(), 4u);
    join_watcher();
    strcpy(UsbDevice::power_val, "0\n");
    EXPECT_THAT(log_of([] { UsbDevice::usb_host_reset(1); }), ::testing::SizeIs(4));
    EXPECT_EQ(UsbDevice::sysfs_observer_thread, pthread_t{});
    EXPECT_STREQ(UsbDevice::power_val, "0\n");
}

TEST_F(HostTest, AnUndockGoesOnWithoutAWatcher) {
    WriteFile(kDcOnlineFile, "1\n");
    FileEvents events({platform::kPropertyDir});
    const std::vector<std::string> lines = log_of([] {
        const NoThreads none;
        UsbDevice::usb_host_reset(1);
    });
    UsbDevice::sysfs_observer_thread = {};  // nothing to join, whatever a failure leaves there
    EXPECT_EQ(lines.back(), "I registerFileObserverViaThread result--" + std::to_string(EAGAIN));
    EXPECT_THAT(events.take(),
                ElementsAre(std::string(kUndockProperty) + "=1", std::string(kResetProperty) + "=1",
                            std::string(kDockProperty) + "=1", std::string(kResetProperty) + "=1"));
}

TEST_F(HostTest, LostDockPowerIsAnnouncedAtOnceAndOnceMoreAtTheEnd) {
    WriteFile(kDcOnlineFile, "1\n");
    FileEvents events({platform::kPropertyDir});
    std::thread undock([] { UsbDevice::usb_host_reset(900); });
    EXPECT_TRUE(Eventually([] { return !property(kUndockProperty).empty(); }));
    WriteFile(kDcOnlineFile, "0\n");
    EXPECT_TRUE(Eventually([] { return !property(kDockProperty).empty(); }));
    EXPECT_FALSE(usb_host_is_free()) << "announced while the undock still ran";
    undock.join();
    const std::string undocked = kUndockProperty, docked = kDockProperty, reset = kResetProperty;
    EXPECT_THAT(events.take(), ElementsAre(undocked + "=1", reset + "=1", docked + "=1",
                                           reset + "=1", docked + "=1", reset + "=1"));
    EXPECT_THAT(take_log(), Contains("I readSysfsChangeEvent: undocked power_val0"));
}

// What an undock leaves of its watcher: nothing, but for the last one's handle.
TEST_F(HostTest, ManyUndocksLeaveNoThreadsAndNoMemory) {
    const auto threads = [] { return listing("/proc/self/task").size(); };
    const size_t alone = threads();
    const auto mapped = [] {
        std::ifstream file("/proc/self/statm");
        size_t pages = 0;
        file >> pages;
        return pages * static_cast<size_t>(getpagesize());
    };
    const auto wait_for_watchers = [&] {
        Eventually([&] { return threads() <= alone; });
        return threads();
    };
    WriteFile(kDcOnlineFile, "1\n");
    // So that each watcher ends at once: what is counted is what it leaves. An undock that lasts is
    // the same but for the time.
    const auto undock = [&](int times) {
        for (int i = 0; i < times; ++i) {
            UsbDevice::exit_poll = true;
            UsbDevice::registersysfsObserverViaThread();
        }
    };
    undock(20);
    ASSERT_EQ(wait_for_watchers(), alone);
    const size_t before = mapped();
    undock(2000);
    EXPECT_EQ(wait_for_watchers(), alone);
    // A thread that nobody joins or detaches keeps its stack, of 8 MB as a rule; the heaps of a
    // few that run side by side may stay, of 64 MB each.
    EXPECT_LT(mapped(), before + (size_t{1} << 30));

    UsbDevice::usb_host_reset(1);
    UsbDevice::usb_host_reset(1);
    EXPECT_EQ(wait_for_watchers(), alone);
    EXPECT_NE(UsbDevice::sysfs_observer_thread, pthread_t{}) << "the last one can be joined";
}

// The watcher on a thread of the test's, which sees it end.
class WatcherTest : public HostTest {
  protected:
    std::vector<std::string> watch(const std::function<void()>& meanwhile = [] {}) {
        take_log();
        pthread_t thread;
        EXPECT_EQ(pthread_create(&thread, nullptr, UsbDevice::registersysfsObserver, nullptr), 0);
        meanwhile();
        void* result = &thread;
        EXPECT_EQ(pthread_join(thread, &result), 0);
        EXPECT_EQ(result, nullptr);
        return take_log();
    }
    static constexpr milliseconds kSlack{1000};  // for a machine that has other things to do

    static std::string polled(const std::string& value) {
        return "I readSysfsChangeEvent:polling for power_val " + std::string(kDcOnlineFile) +
               "power_val:" + value;
    }
};

TEST_F(WatcherTest, AnUndockThatIsOverEndsItWithoutAReading) {
    UsbDevice::exit_poll = true;
    WriteFile(kDcOnlineFile, "0\n");
    EXPECT_THAT(watch(), ElementsAre("I readSysfsChangeEvent:exit poll due to virtual dock"));
    EXPECT_STREQ(UsbDevice::power_val, "");
    EXPECT_EQ(property(kDockProperty), "");
}

TEST_F(WatcherTest, LostPowerAtTheFirstReadingIsAnnouncedAtOnce) {
    for (const std::string value : {"0", "05"}) {
        WriteFile(kDcOnlineFile, value);
        const auto is_at_once = [&] {
            std::filesystem::remove_all(platform::kPropertyDir);
            FileEvents events({platform::kPropertyDir});
            std::vector<std::string> lines;
            const milliseconds time = time_of([&] { lines = watch(); });
            EXPECT_THAT(lines, ElementsAre(polled(value),
                                           "I readSysfsChangeEvent: undocked power_val" + value));
            EXPECT_THAT(events.take(), ElementsAre(std::string(kDockProperty) + "=1",
                                                   std::string(kResetProperty) + "=1"));
            return time < milliseconds(400);
        };
        // The machine may have other things to do, but not always.
        EXPECT_TRUE(Eventually(is_at_once));
    }
}

TEST_F(WatcherTest, AValueIsLoggedWithItsNewline) {
    WriteFile(kDcOnlineFile, "0\n");
    EXPECT_THAT(watch(), ElementsAre(polled("0"), kNewline,
                                     "I readSysfsChangeEvent: undocked power_val0", kNewline));
}

TEST_F(WatcherTest, LastingPowerIsPolledUntilTheUndockIsOver) {
    WriteFile(kDcOnlineFile, "10\n");
    std::vector<std::string> lines;
    steady_clock::time_point over;
    const milliseconds time = time_of([&] {
        lines = watch([&] {
            wait_for_line(polled("10"), 2);
            UsbDevice::exit_poll = true;
            over = steady_clock::now();
            WriteFile(kDcOnlineFile, "0\n");  // too late to be read
        });
    });
    EXPECT_LT(steady_clock::now() - over, milliseconds(400) + kSlack);
    EXPECT_EQ(lines.back(), "I readSysfsChangeEvent:exit poll due to virtual dock");
    EXPECT_GE(time, milliseconds(800)) << "two readings and the sleeps after them";
    EXPECT_FALSE(std::filesystem::exists(platform::kPropertyDir));
}

TEST_F(WatcherTest, AnUnreadableSupplyKeepsItPollingByTheLastValue) {
    strcpy(UsbDevice::power_val, "1\n");
    EXPECT_THAT(watch([this] {
                    wait_for_line(polled("1"));
                    UsbDevice::exit_poll = true;
                }),
                ElementsAre("E Unable to open sysfs path for reading" + std::string(kDcOnlineFile),
                            polled("1"), kNewline,
                            "I readSysfsChangeEvent:exit poll due to virtual dock"));
    strcpy(UsbDevice::power_val, "0\n");
    UsbDevice::exit_poll = false;
    EXPECT_THAT(watch(), Contains("I readSysfsChangeEvent: undocked power_val0"));
}

TEST_F(WatcherTest, ItsStartIsLoggedUnderTheOtherWatchersName) {
    UsbDevice::exit_poll = true;
    take_log();
    UsbDevice::registersysfsObserverViaThread();
    join_watcher();
    const std::vector<std::string> lines = take_log();
    EXPECT_THAT(lines, ::testing::UnorderedElementsAre("I registerFileObserverViaThread result--0",
                                                       "I readSysfsChangeEvent:exit poll due to "
                                                       "virtual dock"));
}

}  // namespace
}  // namespace android::vus
