// SPDX-License-Identifier: Apache-2.0

// Cycles over devices that do not answer. A FIFO without a writer stands in for an attribute whose
// lock the kernel does not get: whoever opens it waits until a signal comes.

#include <errno.h>
#include <signal.h>
#include <sys/stat.h>
#include <time.h>

#include <thread>

#include "android/vus/device_map.h"
#include "usb_test.h"

namespace android::vus {
namespace {

using ::testing::SizeIs;

constexpr const char* kLockedNumbers[] = {"bNumInterfaces", "bmAttributes", "configuration"};
constexpr const char* kLockedTexts[] = {"bMaxPower", "manufacturer", "product", "serial"};

class PatienceTest : public UsbTest {
  protected:
    void SetUp() override {
        UsbTest::SetUp();
        add_bus("usb1");
        add_device("1-1", {{"devnum", "5\n"}});
        add_interface("1-1:1.0", {{"bInterfaceClass", "08\n"}});
        add_device("1-2", {{"devnum", "6\n"}});
        add_interface("1-2:1.0");
    }
    static void make_fifo(const std::string& path) {
        RemoveFile(path);
        ASSERT_EQ(mkfifo(path.c_str(), 0600), 0) << path;
    }
    static void silence(const std::string& entry) {
        for (const char* attribute : kLockedNumbers) make_fifo(UsbPath(entry, attribute));
        for (const char* attribute : kLockedTexts) make_fifo(UsbPath(entry, attribute));
    }
    static std::string said_by_rebuild() {
        return stderr_of([] { UsbDevice::create_usb_device_map(); });
    }
};

TEST_F(PatienceTest, LockedAttributesAreGivenUpAndReadAsFailed) {
    silence("1-1");
    EXPECT_EQ(said_by_rebuild(),
              "/sys/bus/usb/devices/1-1/bNumInterfaces: Interrupted system call\n"
              "/sys/bus/usb/devices/1-1/bmAttributes: Interrupted system call\n"
              "/sys/bus/usb/devices/1-1/configuration: Interrupted system call\n");
    const DeviceRecords records = UsbDevice::get_deviceid_data(1005);
    ASSERT_THAT(records, SizeIs(1));
    EXPECT_STREQ(records[0].product, "");
    EXPECT_STREQ(records[0].manufacturer, "");
    EXPECT_EQ(records[0].idVendor, 0x1234u);
    EXPECT_EQ(records[0].idProduct, 0xabcdu);
    EXPECT_EQ(records[0].bInterfaceClass, 8u);
    EXPECT_EQ(records[0].category, kCategoryStorage);
}

TEST_F(PatienceTest, NothingOfOtherDevicesIsLost) {
    for (int port = 3; port <= 10; ++port) {
        const std::string entry = "1-" + std::to_string(port);
        add_device(entry, {{"devnum", std::to_string(port + 4) + "\n"}});
        add_interface(entry + ":1.0");
        if (port % 2 == 0) silence(entry);
    }
    said_by_rebuild();
    EXPECT_THAT(map_names(), SizeIs(10));
    for (const int id : {1005, 1006, 1007, 1009, 1011, 1013}) {
        const DeviceRecords records = UsbDevice::get_deviceid_data(id);
        ASSERT_THAT(records, SizeIs(1)) << id;
        EXPECT_STREQ(records[0].manufacturer, "Maker") << id;
        EXPECT_STREQ(records[0].product, "Product") << id;
    }
}

// An attribute without a lock is waited for, however often the timer comes meanwhile.
TEST_F(PatienceTest, AnAttributeWithoutALockIsNotLost) {
    silence("1-1");
    make_fifo(UsbPath("1-1", "idVendor"));
    std::thread answer([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(150));  // some thirty signals
        WriteFile(UsbPath("1-1", "idVendor"), "beef\n");
    });
    said_by_rebuild();
    answer.join();
    EXPECT_EQ(UsbDevice::get_deviceid_data(1005).at(0).idVendor, 0xbeefu);
}

// The lock is often held for a moment only.
TEST_F(PatienceTest, ADeviceThatAnswersInTimeIsNotGivenUp) {
    make_fifo(UsbPath("1-1", "product"));
    std::thread answer([] { WriteFile(UsbPath("1-1", "product"), "In time\n"); });
    usb::Patience patience(std::chrono::seconds(60));
    usb::SysfsEntry entry("1-1", &patience);
    char text[kDeviceTextSize];
    entry.read_string("product", text, sizeof(text), usb::Lock::kDevice);
    answer.join();
    EXPECT_STREQ(text, "In time");
    EXPECT_TRUE(entry.is_complete());
}

TEST_F(PatienceTest, ACycleLeavesTheThreadAsItWas) {
    silence("1-1");
    sigset_t before, after;
    ASSERT_EQ(pthread_sigmask(SIG_SETMASK, nullptr, &before), 0);
    said_by_rebuild();
    ASSERT_EQ(pthread_sigmask(SIG_SETMASK, nullptr, &after), 0);
    for (int signal = 1; signal < SIGRTMAX; ++signal) {
        EXPECT_EQ(sigismember(&before, signal), sigismember(&after, signal)) << signal;
    }
    // No timer is left that would end a wait.
    const timespec time = {0, 100'000'000};
    EXPECT_EQ(nanosleep(&time, nullptr), 0);
}

// The signal is let in only while a device's attributes are read: what the thread does in between,
// such as writing its log, is not ended.
TEST_F(PatienceTest, NothingButAttributesIsDisturbed) {
    usb::Patience patience(std::chrono::milliseconds(1));
    { const usb::Patience::Window window(&patience); }
    const timespec time = {0, 50'000'000};
    EXPECT_EQ(nanosleep(&time, nullptr), 0);
    {
        const usb::Patience::Window window(&patience);
        EXPECT_EQ(nanosleep(&time, nullptr), -1);
        EXPECT_EQ(errno, EINTR);
    }
    EXPECT_EQ(nanosleep(&time, nullptr), 0);
}

TEST_F(PatienceTest, AnEntryIsWaitedForOnce) {
    silence("1-1");
    usb::Patience patience(std::chrono::milliseconds(0));
    usb::SysfsEntry entry("1-1", &patience);
    char text[kDeviceTextSize];
    entry.read_string("product", text, sizeof(text), usb::Lock::kDevice);
    EXPECT_FALSE(entry.is_complete());
    // From here on nothing is even opened: a writer would wait for ever otherwise.
    WriteFile(UsbPath("1-1", "speed"), "480\n");
    EXPECT_EQ(stderr_of([&] {
                  EXPECT_EQ(entry.read_int("bmAttributes", 16, usb::Lock::kDevice), 0);
              }),
              "/sys/bus/usb/devices/1-1/bmAttributes: Interrupted system call\n");
    EXPECT_EQ(entry.read_int("speed", 10), 480);
}

}  // namespace
}  // namespace android::vus
