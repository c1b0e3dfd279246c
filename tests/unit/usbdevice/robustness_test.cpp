// SPDX-License-Identifier: Apache-2.0

// What a tree may hold that no kernel would write, cycles that the kernel keeps waiting, and what
// must not leak.

#include <errno.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <random>
#include <thread>

#include "usb_test.h"

namespace android::vus {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class HostileTest : public UsbTest {
  protected:
    static size_t open_descriptors() { return listing("/proc/self/fd").size(); }
    // A rebuild whose complaints are of no interest.
    static void rebuild() {
        stderr_of([] { stdout_of([] { UsbDevice::create_usb_device_map(); }); });
    }
};

TEST_F(HostileTest, AttributesOfAnyContentGiveANode) {
    const std::string contents[] = {"",
                                    "\n",
                                    std::string(100000, '9'),
                                    std::string(100000, '\n'),
                                    std::string("\0\0\0", 3),
                                    "\xff\xfe\xfd",
                                    "%s%n%x",
                                    "-1",
                                    "zz\nzz\n"};
    for (const std::string& content : contents) {
        Attributes attributes;
        for (const auto& [name, value] : device_attributes()) attributes[name] = content;
        for (const auto& [name, value] : interface_attributes()) attributes[name] = content;
        for (const char* entry : {"usb1", "1-1", "1-1:1.0"}) add_entry(entry, attributes, {});
        rebuild();
        EXPECT_EQ(map_names().size(), 1u) << content.substr(0, 20);
        std::filesystem::remove_all(UsbPath("1-1:1.0"));
        rebuild();
        EXPECT_THAT(map_names(), IsEmpty());
    }
}

TEST_F(HostileTest, ATextIsPrintedAsATextWhateverItHolds) {
    add_bus("usb1");
    add_device("1-1", {{"manufacturer", "%s%n%x"}, {"product", "%d"}});
    add_interface("1-1:1.0");
    const std::string text = written_by([](int fd) { UsbDevice::dump_print_test(fd); });
    EXPECT_NE(text.find(",manufacturer: %s%n%x,product: %d,"), std::string::npos) << text;
}

TEST_F(HostileTest, FilesLinksAndLoopsInPlaceOfEntriesAreSurvived) {
    WriteFile(UsbPath("1-1"), "a file");
    WriteFile(UsbPath("1-1:1.0"), "a file");
    link("1-3", UsbPath("1-2"));
    link("1-2", UsbPath("1-3"));
    link("/nowhere", UsbPath("1-4"));
    link("..", UsbPath("1-5"));
    link(".", UsbPath("1-5:1.0"));
    link("usb9", UsbPath("usb9"));
    rebuild();
    EXPECT_THAT(map_names(), UnorderedElementsAre("1000:1-1:1.0", "1000:1-5:1.0"));
}

TEST_F(HostileTest, DirectoriesInPlaceOfAttributesAreSurvived) {
    for (const auto& [name, value] : device_attributes()) MakeDir(UsbPath("1-1", name));
    for (const auto& [name, value] : interface_attributes()) MakeDir(UsbPath("1-1:1.0", name));
    rebuild();
    EXPECT_THAT(map_names(), ElementsAre("1000:1-1:1.0"));
}

TEST_F(HostileTest, ALongChainOfHubsIsWalked) {
    add_bus("usb1");
    std::string name = "1-1";
    size_t hubs = 0;
    for (; name.size() <= 254; name += ".1", ++hubs) {
        add_device(name);
        if (name.size() + 4 <= 254) add_interface(name + ":1.0");
    }
    const std::string text = written_by([](int fd) { UsbDevice::dump_print_test(fd); });
    EXPECT_EQ(map_names().size(), hubs - 2);
    EXPECT_NE(text.find("parent name :1-1.1.1.1.1.1.1\n"), std::string::npos);
}

TEST_F(HostileTest, ManyDevicesAreAllFound) {
    add_bus("usb1");
    for (int port = 1; port <= 300; ++port) {
        const std::string name = "1-" + std::to_string(port);
        MakeDir(UsbPath(name));
        WriteFile(UsbPath(name, "devnum"), std::to_string(port + 1));
        MakeDir(UsbPath(name + ":1.0"));
    }
    rebuild();
    EXPECT_EQ(map_names().size(), 300u);
    EXPECT_EQ(map_names().back(), "1301:1-300:1.0");
}

TEST_F(HostileTest, EntriesThatComeAndGoDoNoHarm) {
    add_bus("usb1");
    add_device("1-1");
    add_interface("1-1:1.0");
    std::atomic<bool> done = false;
    std::thread plugger([&done] {
        while (!done) {
            add_device("1-2");
            add_interface("1-2:1.0");
            MakeDir(UsbPath("1-2:1.0", "tty/ttyACM0"));
            std::filesystem::remove_all(UsbPath("1-2"));
            std::filesystem::remove_all(UsbPath("1-2:1.0"));
        }
    });
    stderr_of([] {
        for (int i = 0; i < 200; ++i) {
            UsbDevice::create_usb_device_map();
            EXPECT_THAT(map_names(), Contains("1002:1-1:1.0"));
        }
    });
    done = true;
    plugger.join();
    rebuild();
    EXPECT_THAT(map_names(), ElementsAre("1002:1-1:1.0"));
}

TEST_F(HostileTest, RandomTreesAreSurvived) {
    const uint32_t seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto pick = [&random](std::vector<std::string> choices) {
        return choices[random() % choices.size()];
    };
    const std::vector<std::string> parts = {"1", "2", "10", "-", ".", ":", "usb", "0", "x", "1-1"};
    for (int round = 0; round < 200; ++round) {
        std::filesystem::remove_all(kUsbDevicesDir);
        std::filesystem::create_directories(kUsbDevicesDir);
        for (int entry = 0; entry < 12; ++entry) {
            std::string name;
            for (uint32_t part = 0; part <= random() % 6; ++part) name += pick(parts);
            if (name == "." || name == ".." || std::filesystem::exists(UsbPath(name))) continue;
            MakeDir(UsbPath(name));
            WriteFile(UsbPath(name, "devnum"), pick({"1\n", "2\n", "", "x"}));
            const std::string function = pick({"net", "tty", "a:b", "power"});
            MakeDir(UsbPath(name, function) + "/" + pick({"input", "usb0"}));
        }
        stderr_of([] { written_by([](int fd) { UsbDevice::dump_print_test(fd); }); });
        ASSERT_EQ(UsbDevice::bus_list, nullptr);
        ASSERT_THAT(devices(), IsEmpty());
    }
}

TEST_F(HostileTest, NoDescriptorLeaks) {
    add_bus("usb1");
    add_device("1-1");
    add_interface("1-1:1.0");
    MakeDir(UsbPath("1-1:1.0", "0003:1:2.3"));
    add_interface("1-1:1.1");
    MakeDir(UsbPath("1-1:1.1", "net"));
    MakeDir(UsbPath("1-1:1.1", "tty/ttyACM0"));
    MakeDir(UsbPath("1-2", "devnum"));
    WriteFile(UsbPath("1-3"), "a file");
    link("/dev/full", UsbPath("1-4"));
    rebuild();
    const size_t before = open_descriptors();
    const auto use_everything = [] {
        rebuild();
        written_by([](int fd) { UsbDevice::dump_print_test(fd); });
        UsbDevice::update_status(1002, 0);
        char value[16];
        UsbDevice::read_sysfs_val("/sys", value, sizeof(value));
        UsbDevice::read_sysfs_val("/sys/none", value, sizeof(value));
        UsbDevice::write_sysfs_val(UsbPath("1-3").c_str(), nullptr, 1);
        UsbDevice::read_sysfs_file_int("1-2", "devnum", 10);
        UsbDevice::read_sysfs_file_string("1-2", "devnum", value, sizeof(value));
    };
    for (int i = 0; i < 3; ++i) stderr_of(use_everything);
    EXPECT_EQ(open_descriptors(), before);
    std::filesystem::remove_all("/sys/bus");
    stderr_of(use_everything);
    EXPECT_EQ(open_descriptors(), before);
}

// A device that keeps a cycle waiting: one of its attributes is a FIFO, whose reader waits until it
// is released. It is one that the kernel answers without the device's lock, because waiting for
// that lock is given up.
class SlowDevice {
  public:
    explicit SlowDevice(const std::string& attribute) : path_(attribute) {
        std::filesystem::remove(path_);
        EXPECT_EQ(mkfifo(path_.c_str(), 0600), 0);
    }
    // Waits until a cycle is reading the attribute, and keeps it there.
    void wait_for_reader() {
        EXPECT_TRUE(Eventually([this] {
            writer_.reset(open(path_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
            return writer_.ok();
        }));
    }
    // Puts an attribute that answers in its place, for all who come later.
    void heal(const std::string& content) {
        std::filesystem::remove(path_);
        std::ofstream(path_) << content;
    }
    void release(const std::string& content) {
        EXPECT_EQ(write(writer_.get(), content.data(), content.size()),
                  static_cast<ssize_t>(content.size()));
        writer_.reset();
    }

  private:
    std::string path_;
    base::unique_fd writer_;
};

class OverlapTest : public UsbTest {
  protected:
    void SetUp() override {
        UsbTest::SetUp();
        add_bus("usb1");
        add_device("1-1");
        add_interface("1-1:1.0");
    }
    static void rebuild() { UsbDevice::create_usb_device_map(); }
};

TEST_F(OverlapTest, ARebuildThatStartedEarlierDoesNotReplaceALaterOne) {
    SlowDevice slow(UsbPath("1-1", "version"));
    std::thread earlier(rebuild);
    slow.wait_for_reader();
    slow.heal(" 2.00\n");
    add_device("1-2", {{"devnum", "3\n"}});
    add_interface("1-2:1.0");
    rebuild();
    const std::vector<std::string> later = map_names();
    EXPECT_THAT(later, UnorderedElementsAre("1002:1-1:1.0", "1003:1-2:1.0"));
    slow.release(" 2.00\n");
    earlier.join();
    EXPECT_EQ(map_names(), later);
}

TEST_F(OverlapTest, ALaterRebuildReplacesAnEarlierOneThatFinishedFirst) {
    SlowDevice slow(UsbPath("1-1", "idProduct"));
    std::thread later(rebuild);
    slow.wait_for_reader();
    slow.release("0001\n");
    later.join();
    ASSERT_EQ(UsbDevice::get_deviceid_data(1002).size(), 1u);
    EXPECT_EQ(UsbDevice::get_deviceid_data(1002)[0].idProduct, 1u);
    slow.heal("0002\n");
    rebuild();
    EXPECT_EQ(UsbDevice::get_deviceid_data(1002)[0].idProduct, 2u);
}

TEST_F(OverlapTest, AWaitingRebuildKeepsNobodyElseWaiting) {
    put_record(1009, "before");
    SlowDevice slow(UsbPath("1-1", "idVendor"));
    std::thread waiting(rebuild);
    slow.wait_for_reader();
    EXPECT_EQ(UsbDevice::get_deviceid_data(1009).size(), 1u) << "the map before the rebuild";
    EXPECT_FALSE(UsbDevice::check_vendor_hid(1009));
    UsbDevice::print_deviceid_map(-1);
    UsbDevice::update_status(7, 0);
    UsbDevice::update_deviceid_map(1009, false);
    EXPECT_THAT(UsbDevice::get_deviceid_data(1009), IsEmpty());
    EXPECT_EQ(UsbDevice::get_displaylink_soc_path(), "empty");
    slow.release("17e9\n");
    waiting.join();
    ASSERT_EQ(UsbDevice::get_deviceid_data(1002).size(), 1u);
    EXPECT_EQ(UsbDevice::get_deviceid_data(1002)[0].idVendor, 0x17e9u);
}

TEST_F(OverlapTest, AWaitingDumpKeepsNoRebuildWaiting) {
    SlowDevice slow(UsbPath("1-1:1.0", "bInterfaceClass"));
    std::string text;
    std::thread dump(
            [&text] { text = written_by([](int fd) { UsbDevice::dump_print_test(fd); }); });
    slow.wait_for_reader();
    slow.heal("03\n");
    rebuild();
    EXPECT_EQ(UsbDevice::get_deviceid_data(1002)[0].bInterfaceClass, 3u);
    slow.release("08\n");
    dump.join();
    // The dump shows the tree that it read itself, and the map that is in force.
    EXPECT_NE(text.find(", Class : 8, "), std::string::npos) << text;
    EXPECT_NE(text.find(", class : 3, "), std::string::npos) << text;
}

TEST_F(OverlapTest, AWaitingAuthorizationKeepsNobodyElseWaiting) {
    put_record(1002, "1-1:1.0");
    const std::string path = UsbPath("1-1:1.0", "authorized");
    std::filesystem::remove(path);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    std::atomic<bool> written = false;
    std::thread writer([&written] {
        UsbDevice::update_status(1002, 0);
        written = true;
    });
    wait_for_line("I update_status path is :" + path);
    UsbDevice::update_deviceid_map(1002, false);
    EXPECT_THAT(UsbDevice::get_deviceid_data(1002), IsEmpty());
    rebuild();
    EXPECT_THAT(map_names(), ElementsAre("1002:1-1:1.0"));
    EXPECT_FALSE(written);
    const base::unique_fd reader(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    writer.join();
    char value[4] = {};
    EXPECT_EQ(read(reader.get(), value, sizeof(value)), 1);
    EXPECT_STREQ(value, "0");
}

TEST_F(OverlapTest, ManyThreadsSeeWholeMapsOnly) {
    add_interface("1-1:1.1");
    for (int port = 2; port <= 6; ++port) {
        const std::string name = "1-" + std::to_string(port);
        add_device(name, {{"devnum", std::to_string(port + 1) + "\n"}});
        add_interface(name + ":1.0");
    }
    rebuild();
    const std::vector<std::string> whole = map_names();
    ASSERT_EQ(whole.size(), 7u);
    std::atomic<bool> done = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 30; ++round) rebuild();
        });
    }
    threads.emplace_back([] {
        for (int round = 0; round < 10; ++round) {
            written_by([](int fd) { UsbDevice::dump_print_test(fd); });
        }
    });
    std::thread reader([&] {
        while (!done) {
            EXPECT_EQ(map_names(), whole);
            EXPECT_EQ(UsbDevice::get_deviceid_data(1002).size(), 2u);
            EXPECT_FALSE(UsbDevice::check_vendor_hid(1003));
        }
    });
    for (std::thread& thread : threads) thread.join();
    done = true;
    reader.join();
    EXPECT_EQ(map_names(), whole);
}

}  // namespace
}  // namespace android::vus
