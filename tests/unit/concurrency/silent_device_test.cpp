// SPDX-License-Identifier: Apache-2.0
//
// Devices that do not answer: the kernel keeps whoever reads what it reads under the device's lock,
// or writes to its "authorized", waiting for up to 20 s and more. Here a FIFO stands in for the
// attribute.
//
// No decision waits for another device. And whatever a decision does wait for, nothing else waits
// with it: no list, no removal, no input device, no load, no dump, no other decision.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include <android-base/unique_fd.h>

#include "android/vus/paths.h"
#include "android/vus/usbdevice.h"
#include "android/vus/util.h"
#include "tests/unit/concurrency/concurrency_fixture.h"

namespace android::vus {
namespace {

using base::unique_fd;

constexpr char kBlacklist[] =
        "<usbconfig mode=\"blacklist\"><class>USB_CLASS_MASS_STORAGE</class></usbconfig>";
constexpr char kDefault[] = "<usbconfig mode=\"default\"/>";
constexpr char kKeptName[] = "/sys/attribute";  // the FIFO's second name

// What the kernel reads under the device's lock.
constexpr const char* kLockedAttributes[] = {"bMaxPower",     "bNumInterfaces", "bmAttributes",
                                             "configuration", "manufacturer",   "product",
                                             "serial"};

class SilentDeviceTest : public ConcurrencyTest {
  protected:
    void SetUp() override {
        ConcurrencyTest::SetUp();
        silent_ = UsbInfo(tree_->AddDevice("1-1", SerialAdapter()), SerialAdapter());
        disk_ = UsbInfo(tree_->AddDevice("1-2", FlashDrive()), FlashDrive());
        LoadPolicy(kBlacklist);
    }

    // Puts a FIFO in an attribute's place.
    static void Silence(const std::string& attribute) {
        RemoveFile(attribute);
        ASSERT_EQ(mkfifo(attribute.c_str(), 0600), 0);
        ASSERT_EQ(link(attribute.c_str(), kKeptName), 0);
    }

    // Puts FIFOs in the places of all that is locked while the device does not answer.
    static void SilenceAll(const std::string& entry) {
        for (const char* attribute : kLockedAttributes) {
            const std::string path = UsbPath(entry, attribute);
            if (access(path.c_str(), F_OK) == 0) RemoveFile(path);  // not each has a serial number
            ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
        }
    }

    // Whether a reader is at the FIFO. From then on it waits for what is written to the result.
    static unique_fd WaitForReader() {
        unique_fd writer;
        Eventually([&] {
            writer.reset(open(kKeptName, O_WRONLY | O_NONBLOCK | O_CLOEXEC));
            return writer.ok();
        });
        return writer;
    }

    // Everything that has nothing to do with the silent device.
    void ExpectTheRestToGoOn() {
        ExpectToEnd("the list", [&] { Find(1); });
        ExpectToEnd("a removal", [&] { ReportRemoved(UsbInfo(1999, FlashDrive())); });
        ExpectToEnd("an input device", [&] { EXPECT_TRUE(Judge(InputInfo(7, 0x2000))); });
        ExpectToEnd("a load", [&] { LoadPolicy(kDefault); });
        ExpectToEnd("another load", [&] { LoadPolicy(kBlacklist); });
        ExpectToEnd("the map", [&] { UsbDevice::print_deviceid_map(-1); });
        ExpectToEnd("a dump", [&] { Dump(); });
    }

    void Dump() {
        const unique_fd null(open("/dev/null", O_WRONLY | O_CLOEXEC));
        service_->dump(null.get(), {});
    }

    DeviceInfo silent_;
    DeviceInfo disk_;
};

TEST_F(SilentDeviceTest, ARefusalWaitsForNoOtherDevice) {
    ASSERT_NO_FATAL_FAILURE(SilenceAll("1-1"));
    ExpectToEnd("beside one silent device", [&] { EXPECT_FALSE(Judge(disk_)); });
    EXPECT_EQ(Authorized("1-2", FlashDrive()), "0");

    AuthorizeAgain("1-2", FlashDrive());
    for (int port = 3; port <= 9; ++port) {
        const std::string entry = "1-" + std::to_string(port);
        tree_->AddDevice(entry, port % 2 == 0 ? Hub() : CompositeDock());
        ASSERT_NO_FATAL_FAILURE(SilenceAll(entry));
    }
    ExpectToEnd("beside eight, hubs and composites among them",
                [&] { EXPECT_FALSE(Judge(disk_)); });
    EXPECT_EQ(Authorized("1-2", FlashDrive()), "0");
}

// What a refusal needs is not locked: its name, its numbers, the classes.
TEST_F(SilentDeviceTest, ASilentDeviceIsItselfRefused) {
    ASSERT_NO_FATAL_FAILURE(SilenceAll("1-2"));
    ExpectToEnd("the silent device", [&] { EXPECT_FALSE(Judge(disk_)); });
    EXPECT_EQ(Authorized("1-2", FlashDrive()), "0");
    EXPECT_EQ(Find(disk_.deviceId)->category, kCategoryStorage);
}

TEST_F(SilentDeviceTest, ASilentHubHidesNothingOfWhatHangsOnIt) {
    tree_->AddDevice("1-3", Hub());
    const DeviceInfo behind = UsbInfo(tree_->AddDevice("1-3.2", FlashDrive()), FlashDrive());
    ASSERT_NO_FATAL_FAILURE(SilenceAll("1-3"));
    ExpectToEnd("a device behind the hub", [&] { EXPECT_FALSE(Judge(behind)); });
    EXPECT_EQ(Authorized("1-3.2", FlashDrive()), "0");
    EXPECT_STREQ(UsbDevice::get_deviceid_data(behind.deviceId).at(0).product, "Ultra Fit");
}

TEST_F(SilentDeviceTest, TheDumpWaitsLongerButNotForEver) {
    ASSERT_NO_FATAL_FAILURE(SilenceAll("1-1"));
    const unique_fd null(open("/dev/null", O_WRONLY | O_CLOEXEC));
    ExpectToEnd("a dump of the tree", [&] { UsbDevice::dump_print_test(null.get()); });
}

TEST_F(SilentDeviceTest, AReadThatHangsHoldsItsOwnDecisionOnly) {
    // Not a locked one, which would be given up: the kernel does not keep this one back, but a test
    // can.
    const std::string attribute = UsbPath("1-1", "maxchild");
    ASSERT_NO_FATAL_FAILURE(Silence(attribute));
    std::atomic<bool> judged{false};
    std::thread decision([&] {
        EXPECT_TRUE(Judge(silent_));
        judged = true;
    });
    unique_fd answer = WaitForReader();
    ASSERT_TRUE(answer.ok());

    ExpectTheRestToGoOn();
    // The kernel answers everybody else again: a new read gets a value at once.
    RemoveFile(attribute);
    WriteFile(attribute, "0\n");
    ExpectToEnd("another USB device", [&] { EXPECT_FALSE(Judge(disk_)); });
    EXPECT_EQ(Authorized("1-2", FlashDrive()), "0");

    EXPECT_FALSE(judged);
    answer.reset();
    decision.join();
    EXPECT_TRUE(Find(silent_.deviceId).has_value());
}

// What the slow decision read long ago must not replace what a quick one found since.
TEST_F(SilentDeviceTest, ASlowRebuildDoesNotTakeBackWhatANewerOneFound) {
    const std::string attribute = UsbPath("1-1", "version");
    ASSERT_NO_FATAL_FAILURE(Silence(attribute));
    std::thread decision([&] { Judge(silent_); });
    unique_fd answer = WaitForReader();
    ASSERT_TRUE(answer.ok());

    RemoveFile(attribute);
    const int32_t id = tree_->AddDevice("1-3", FlashDrive());
    EXPECT_FALSE(Judge(UsbInfo(id, FlashDrive())));
    ASSERT_EQ(UsbDevice::get_deviceid_data(id).size(), 1u);

    answer.reset();
    decision.join();
    EXPECT_EQ(UsbDevice::get_deviceid_data(id).size(), 1u);
}

TEST_F(SilentDeviceTest, AWriteThatHangsHoldsItsOwnDecisionOnly) {
    const std::string attribute = UsbPath("1-2:1.0", "authorized");
    ASSERT_NO_FATAL_FAILURE(Silence(attribute));
    // The line before the write; nobody reads the FIFO yet.
    const std::string line = "update_status path is :" + attribute;
    LogCapture log;
    std::atomic<bool> judged{false};
    std::thread decision([&] {
        EXPECT_FALSE(Judge(disk_));
        judged = true;
    });
    ASSERT_TRUE(Eventually([&] {
        const std::vector<std::string> messages = log.Messages();
        return std::find(messages.begin(), messages.end(), line) != messages.end();
    }));

    ExpectTheRestToGoOn();
    ExpectToEnd("another USB device", [&] { EXPECT_TRUE(Judge(silent_)); });

    EXPECT_FALSE(judged);
    const unique_fd reader(open(kKeptName, O_RDONLY | O_CLOEXEC));
    char value = '\0';
    EXPECT_EQ(read(reader.get(), &value, 1), 1);
    EXPECT_EQ(value, '0');
    decision.join();
}

}  // namespace
}  // namespace android::vus
