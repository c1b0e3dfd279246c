// SPDX-License-Identifier: Apache-2.0

// What a cycle takes over from the one before it, and what it reads again. The private root's /sys
// is no sysfs, so numbers of entries are believed here by order; the tree's builder makes a new
// link for each entry, as the kernel does.
//
// That an entry was not read shows in an attribute that was rewritten since: the old value is seen.

#include <thread>

#include "android/vus/device_map.h"
#include "tests/support/denied_call.h"
#include "usb_test.h"

namespace android::vus {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using usb::DeviceMap;
using usb::Keeping;

class CycleTest : public UsbTest {
  protected:
    void SetUp() override {
        UsbTest::SetUp();
        tree_.AddBus(1);
        judged_ = tree_.AddDevice("1-1", FlashDrive());
        other_ = tree_.AddDevice("1-2", SerialAdapter());
        map_.refresh(judged_);
    }
    static void rename_product(const std::string& entry) {
        WriteFile(UsbPath(entry, "product"), "Renamed\n");
    }
    static std::string product_of(int32_t id) {
        const DeviceRecords records = DeviceMap::records_of(id);
        return records.empty() ? "" : records[0].product;
    }
    static std::string function_of(int32_t id, const std::string& interface) {
        for (const usbinterface_custom& record : DeviceMap::records_of(id)) {
            if (record.name == interface) {
                return std::to_string(record.category) + " " + record.category_path;
            }
        }
        return "";
    }
    static void bind(const std::string& interface, const std::string& driver) {
        const std::string path = UsbPath(interface, "driver");
        RemoveFile(path);
        link("../drivers/" + driver, path);
    }

    UsbTree tree_;
    DeviceMap map_{Keeping::kAnywhere};
    int32_t judged_ = 0;
    int32_t other_ = 0;
};

TEST_F(CycleTest, AnEntryThatIsTheSameIsNotReadAgain) {
    rename_product("1-2");
    WriteFile(UsbPath("1-2:1.0", "bInterfaceProtocol"), "77\n");
    map_.refresh(judged_);
    EXPECT_EQ(product_of(other_), "Uno");
    EXPECT_EQ(DeviceMap::records_of(other_).at(1).bInterfaceProtocol, 1u);
    EXPECT_EQ(function_of(other_, "1-2:1.0"), "2 ttyACM0");
}

TEST_F(CycleTest, TheJudgedDeviceIsReadInFullWithItsInterfaces) {
    rename_product("1-2");
    WriteFile(UsbPath("1-2:1.0", "bInterfaceProtocol"), "77\n");
    RemoveTree(UsbPath("1-2:1.0", "tty"));
    const DeviceRecords records = map_.refresh(other_);
    ASSERT_THAT(records, SizeIs(2));
    EXPECT_STREQ(records[1].product, "Renamed");
    EXPECT_EQ(records[1].bInterfaceProtocol, 0x77u);
    EXPECT_EQ(records[1].category, kCategoryNone);
}

TEST_F(CycleTest, OnAnotherFileSystemThanSysfsEverythingIsRead) {
    DeviceMap map(Keeping::kOnSysfs);
    map.refresh(judged_);
    rename_product("1-2");
    map.refresh(judged_);
    EXPECT_EQ(product_of(other_), "Renamed");
}

TEST_F(CycleTest, AnEntryWithAnotherNumberIsRead) {
    tree_.Remove("1-2");
    const int32_t id = tree_.AddDevice("1-2", FlashDrive());
    map_.refresh(judged_);
    EXPECT_THAT(DeviceMap::records_of(other_), IsEmpty());
    EXPECT_EQ(product_of(id), "Ultra Fit");
}

// As after a change of the configuration: the device stays, its interface is another one.
TEST_F(CycleTest, AnInterfaceIsReadWhenItIsAnotherOneOfTheSameDevice) {
    const std::string directory = std::filesystem::canonical(UsbPath("1-2:1.0"));
    WriteFile(UsbPath("1-2:1.0", "bInterfaceClass"), "08\n");
    RemoveFile(UsbPath("1-2:1.0"));
    link(directory, UsbPath("1-2:1.0"));
    map_.refresh(judged_);
    EXPECT_EQ(function_of(other_, "1-2:1.0"), "4 sdcard");
    EXPECT_EQ(function_of(other_, "1-2:1.1"), "0 empty");
}

TEST_F(CycleTest, AnInterfaceIsReadWhenItsDriverCameWentOrWasBoundAnew) {
    RemoveTree(UsbPath("1-2:1.0", "tty"));
    MakeDir(UsbPath("1-2:1.0", "net/usb0"));
    map_.refresh(judged_);
    EXPECT_EQ(function_of(other_, "1-2:1.0"), "2 ttyACM0") << "the driver is the same";
    bind("1-2:1.0", "cdc_ether");
    map_.refresh(judged_);
    EXPECT_EQ(function_of(other_, "1-2:1.0"), "1 usb0");
    RemoveFile(UsbPath("1-2:1.0", "driver"));
    RemoveTree(UsbPath("1-2:1.0", "net"));
    map_.refresh(judged_);
    EXPECT_EQ(function_of(other_, "1-2:1.0"), "0 empty");
}

// The root hub's, behind a hub, and where no name of an interface leads to.
TEST_F(CycleTest, ADriverThatComesIsSeenWhereverTheInterfaceIs) {
    tree_.AddDevice("1-3", Hub());
    tree_.AddDevice("1-3.2", Hub());
    FakeDevice silent = SerialAdapter();
    for (FakeInterface& interface : silent.interfaces) interface.driver.clear();
    const int32_t behind_hubs = tree_.AddDevice("1-3.2.1", silent);
    const int32_t elsewhere = tree_.AddDevice("1-4", silent);
    std::filesystem::rename(std::filesystem::canonical(UsbPath("1-4:1.0")), "/sys/elsewhere");
    RemoveFile(UsbPath("1-4:1.0"));
    link("/sys/elsewhere", UsbPath("1-4:1.0"));
    // At its own place is another directory, in which nothing changes.
    const int32_t displaced = tree_.AddDevice("1-5", silent);
    std::filesystem::copy(std::filesystem::canonical(UsbPath("1-5:1.0")), "/sys/displaced",
                          std::filesystem::copy_options::recursive);
    RemoveFile(UsbPath("1-5:1.0"));
    link("/sys/displaced", UsbPath("1-5:1.0"));
    const int32_t without_bus = tree_.AddDevice("7-1", silent);
    map_.refresh(judged_);
    map_.refresh(judged_);
    const std::map<std::string, int32_t> devices = {{"1-3.2.1:1.0", behind_hubs},
                                                    {"1-4:1.0", elsewhere},
                                                    {"1-5:1.0", displaced},
                                                    {"7-1:1.0", without_bus}};
    for (const auto& [interface, id] : devices) {
        RemoveTree(UsbPath(interface, "tty"));
        MakeDir(UsbPath(interface, "net/usb0"));
        map_.refresh(judged_);
        EXPECT_EQ(function_of(id, interface), "2 ttyACM0") << interface << " has no driver yet";
        link("../drivers/cdc_ether", UsbPath(interface, "driver"));
        map_.refresh(judged_);
        EXPECT_EQ(function_of(id, interface), "1 usb0") << interface;
    }
}

TEST_F(CycleTest, AFunctionThatComesLateIsFound) {
    EXPECT_EQ(function_of(other_, "1-2:1.1"), "0 empty");
    MakeDir(UsbPath("1-2:1.1", "net"));
    map_.refresh(judged_);
    EXPECT_EQ(function_of(other_, "1-2:1.1"), "1 empty");
    MakeDir(UsbPath("1-2:1.1", "net/wlan0"));
    map_.refresh(judged_);
    EXPECT_EQ(function_of(other_, "1-2:1.1"), "1 wlan0");
}

TEST_F(CycleTest, AnHidDeviceThatTheInputSubsystemServesLateIsNoVendorsOwn) {
    const int32_t id = tree_.AddDevice("1-3", VendorHidDongle());
    map_.refresh(judged_);
    EXPECT_EQ(function_of(id, "1-3:1.0"), "8 empty");
    MakeDir(UsbPath("1-3:1.0", "0003:1050:0407.0002/input"));
    map_.refresh(judged_);
    EXPECT_EQ(function_of(id, "1-3:1.0"), "0 empty");
}

TEST_F(CycleTest, WhatMayYetBecomeAnotherIsLookedAtAgainAndItsAttributesAreNotRead) {
    const int32_t id = tree_.AddDevice("1-3", VendorHidDongle());
    map_.refresh(judged_);
    WriteFile(UsbPath("1-3:1.0", "bInterfaceProtocol"), "77\n");
    for (int cycle = 0; cycle < 2; ++cycle) {
        const std::vector<std::string> lines = log_of([this] { map_.refresh(judged_); });
        EXPECT_THAT(lines, Contains("I vendor HID device found"));
        EXPECT_NE(DeviceMap::records_of(id).at(0).bInterfaceProtocol, 0x77u);
    }
    bind("1-3:1.0", "another");
    map_.refresh(judged_);
    EXPECT_EQ(DeviceMap::records_of(id).at(0).bInterfaceProtocol, 0x77u);
}

TEST_F(CycleTest, WhatWasNotReadToTheEndIsReadAgain) {
    tree_.AddDevice("1-3", FlashDrive());
    RemoveFile(UsbPath("1-3", "speed"));
    MakeDir(UsbPath("1-3", "speed"));  // reading it fails
    rename_product("1-2");
    map_.refresh(judged_);
    rename_product("1-3");
    map_.refresh(judged_);
    EXPECT_EQ(product_of(tree_.IdOf("1-3")), "Renamed");
    EXPECT_EQ(product_of(other_), "Uno") << "the others are taken over all the same";
}

TEST_F(CycleTest, AMissingAttributeIsSaidWhenTheEntryIsFirstRead) {
    tree_.AddDevice("1-3", FlashDrive());
    RemoveFile(UsbPath("1-3", "rx_lanes"));
    const auto refresh = [this] { map_.refresh(judged_); };
    EXPECT_EQ(stderr_of(refresh), "/sys/bus/usb/devices/1-3/rx_lanes: No such file or directory\n");
    EXPECT_EQ(stderr_of(refresh), "");
}

TEST_F(CycleTest, TheLogAndTheMapAreAsIfEverythingHadBeenRead) {
    tree_.AddDevice("1-3", Hub());
    tree_.AddDevice("1-3.1", CompositeDock());
    tree_.AddDevice("1-3.2", Keyboard());
    tree_.AddDevice("1-4", VendorHidDongle());
    const auto refresh = [this] {
        map_.refresh(judged_);
        UsbDevice::print_deviceid_map(-1);
    };
    const std::vector<std::string> first = log_of(refresh);
    const std::vector<std::string> names = map_names();
    EXPECT_THAT(first, Contains("I vendor HID device found"));
    EXPECT_THAT(first, Contains(HasSubstr(" new path of dir:")));
    EXPECT_EQ(log_of(refresh), first);
    EXPECT_EQ(map_names(), names);
    UsbDevice::create_usb_device_map();
    EXPECT_EQ(map_names(), names);
}

TEST_F(CycleTest, TheDumpReadsEverything) {
    rename_product("1-2");
    const std::string text = written_by([this](int fd) { map_.rebuild_and_print(fd); });
    EXPECT_THAT(text, HasSubstr("product: Renamed"));
    EXPECT_EQ(product_of(other_), "Renamed");
}

TEST_F(CycleTest, WithTraceLinesEverythingIsRead) {
    rename_product("1-2");
    UsbDevice::verbose_log = true;
    map_.refresh(judged_);
    EXPECT_EQ(product_of(other_), "Renamed");
}

TEST_F(CycleTest, ManyCyclesSideBySideAgree) {
    for (int port = 3; port <= 8; ++port) {
        tree_.AddDevice("1-" + std::to_string(port), CompositeDock());
    }
    map_.refresh(judged_);
    const std::vector<std::string> names = map_names();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this, i] {
            for (int round = 0; round < 50; ++round) {
                const std::string entry = "1-" + std::to_string(3 + (i + round) % 6);
                EXPECT_THAT(map_.refresh(tree_.IdOf(entry)), SizeIs(7)) << entry;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(map_names(), names);
}

// Listings that fail: for a decision, for its map, and for those of others.
class BrokenListingTest : public CycleTest {};

TEST_F(BrokenListingTest, AListingThatBreaksOffTakesNoDeviceAway) {
    const std::vector<std::string> names = map_names();
    DeniedCall::run(SYS_getdents64, EIO, [&] {
        EXPECT_THAT(map_.refresh(judged_), SizeIs(1)) << "what is known of it";
        UsbDevice::create_usb_device_map();
    });
    EXPECT_EQ(map_names(), names);
    rename_product("1-2");
    map_.refresh(judged_);
    EXPECT_EQ(product_of(other_), "Uno") << "what is taken over is the last whole cycle's";
}

TEST_F(BrokenListingTest, WithoutDescriptorsADecisionKeepsWhatIsKnown) {
    const std::vector<std::string> names = map_names();
    EXPECT_THAT(stderr_of([&] {
                    DeniedCall::run(SYS_openat, EMFILE,
                                    [&] { EXPECT_THAT(map_.refresh(judged_), SizeIs(1)); });
                }),
                HasSubstr("/sys/bus/usb/devices: Too many open files\n"));
    EXPECT_EQ(map_names(), names);
}

TEST_F(BrokenListingTest, ADirectoryThatIsNotThereEmptiesTheMap) {
    std::filesystem::remove_all("/sys/bus");
    EXPECT_EQ(stderr_of([this] { EXPECT_THAT(map_.refresh(judged_), IsEmpty()); }),
              "/sys/bus/usb/devices: No such file or directory\n");
    EXPECT_THAT(map_names(), IsEmpty());
}

}  // namespace
}  // namespace android::vus
