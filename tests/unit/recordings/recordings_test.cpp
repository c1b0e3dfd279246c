// SPDX-License-Identifier: Apache-2.0
//
// The map, the topology and the dump over trees that real kernels made, as they are and spoilt.

#include <stdio.h>
#include <string.h>
#include <sys/mman.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <set>

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <gtest/gtest.h>

#include "android/vus/paths.h"
#include "android/vus/usbdevice.h"
#include "tests/support/tree_snapshot.h"
#include "tests/support/usb_tree.h"
#include "tests/support/world.h"
#include "tests/unit/recordings/expectation.h"

namespace android::vus {
namespace {

namespace fs = std::filesystem;

constexpr int kSpoiltVariants = 6;  // per tree

struct Tree {
    std::string name;
    std::string snapshot;
};

void PrintTo(const Tree& tree, std::ostream* out) {
    *out << tree.name;
}

void ReadTrees(const std::string& directory, std::vector<Tree>* trees) {
    std::error_code none;
    for (const auto& file : fs::directory_iterator(directory, none)) {
        if (file.path().extension() != ".txt") continue;
        std::ifstream stream(file.path());
        std::string name = file.path().stem();
        std::replace(name.begin(), name.end(), '-', '_');
        trees->push_back({name, {std::istreambuf_iterator<char>(stream), {}}});
    }
}

// Read before the program leaves the checkout for its private root.
std::vector<Tree> AllTrees() {
    std::vector<Tree> trees;
    ReadTrees(VUS_TEST_DATA, &trees);
    ReadTrees(VUS_RECORDED_TREES, &trees);
    std::sort(trees.begin(), trees.end(),
              [](const Tree& a, const Tree& b) { return a.name < b.name; });
    return trees;
}

std::vector<ExpectedRecord> ActualMap() {
    const std::lock_guard<std::mutex> lock(UsbDevice::map_mutex);
    std::vector<ExpectedRecord> records;
    for (const auto& [id, record] : UsbDevice::deviceid_map) {
        records.push_back(FromMap(id, record));
    }
    return records;
}

class RecordedTreeTest : public ::testing::TestWithParam<Tree> {
  protected:
    void SetUp() override {
        entries_ = ParseSnapshot(GetParam().snapshot);
        Restore();
    }
    void TearDown() override {
        UsbDevice::delete_all_nodes();
        UsbDevice::empty_list();
        UsbDevice::deviceid_map.clear();
    }

    void Restore() {
        EmptyWorld();
        MakeSnapshot(entries_);
    }

    static std::string DumpText() {
        const base::unique_fd file(memfd_create("dump", MFD_CLOEXEC));
        UsbDevice::dump_print_test(file.get());
        lseek(file.get(), 0, SEEK_SET);
        std::string text;
        base::ReadFdToString(file, &text);
        return text;
    }

    static bool ListsAreEmpty() {
        return UsbDevice::bus_list == nullptr &&
               UsbDevice::device_list.next == &UsbDevice::device_list &&
               UsbDevice::interface_list.next == &UsbDevice::interface_list;
    }

    static std::ptrdiff_t OpenDescriptors() {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    }

    LogCapture log_;  // the perror() lines stay: a spoilt tree gives some
    std::vector<SnapshotEntry> entries_;
};

TEST_P(RecordedTreeTest, MapHoldsEveryInterfaceOfEveryDevice) {
    const std::vector<ExpectedRecord> expected = ExpectedMap();
    ASSERT_FALSE(expected.empty());
    UsbDevice::create_usb_device_map();
    EXPECT_EQ(ActualMap(), expected);
    EXPECT_TRUE(ListsAreEmpty());
}

TEST_P(RecordedTreeTest, EveryDeviceHangsOnItsHubAndEveryInterfaceOnItsDevice) {
    const std::vector<std::string> listed = ListedEntries();
    const std::set<std::string> names(listed.begin(), listed.end());
    for (const std::string& name : listed) UsbDevice::inspect_bus_entry(name.c_str());
    UsbDevice::connect_devices();

    size_t devices = 0;
    for (listlinks* at = UsbDevice::device_list.next; at != &UsbDevice::device_list;
         at = at->next, ++devices) {
        const auto* device = reinterpret_cast<usbdevice*>(at);
        const std::string parent = device->parent != nullptr ? device->parent->name : "";
        EXPECT_EQ(parent, names.count(ParentOf(device->name)) != 0 ? ParentOf(device->name) : "")
                << device->name;
        EXPECT_EQ(device->driver, DriverOf(device->name)) << device->name;
    }
    size_t interfaces = 0;
    for (listlinks* at = UsbDevice::interface_list.next; at != &UsbDevice::interface_list;
         at = at->next, ++interfaces) {
        const auto* interface = reinterpret_cast<usbinterface*>(at);
        const std::string owner = DeviceOf(interface->name);
        const std::string parent = interface->parent != nullptr ? interface->parent->name : "";
        EXPECT_EQ(parent, names.count(owner) != 0 ? owner : "") << interface->name;
        EXPECT_EQ(interface->driver, DriverOf(interface->name)) << interface->name;
    }
    EXPECT_EQ(devices,
              static_cast<size_t>(std::count_if(names.begin(), names.end(), IsDeviceName)));
    EXPECT_EQ(interfaces,
              static_cast<size_t>(std::count_if(names.begin(), names.end(), IsInterfaceName)));
}

// Each interface of a device that hangs, over its hubs, on a bus is in the tree once.
TEST_P(RecordedTreeTest, DumpShowsTheTreeAndTheMap) {
    const std::vector<std::string> listed = ListedEntries();
    const std::set<std::string> names(listed.begin(), listed.end());
    const std::function<bool(const std::string&)> hangs_on_a_bus = [&](const std::string& device) {
        if (names.count(device) == 0) return false;
        const std::string parent = ParentOf(device);
        return parent.empty() ? names.count("usb" + device.substr(0, device.find('-'))) != 0
                              : hangs_on_a_bus(parent);
    };
    size_t in_tree = 0;
    std::string map_text;
    const std::vector<ExpectedRecord> expected = ExpectedMap();
    for (const ExpectedRecord& record : expected) {
        if (hangs_on_a_bus(DeviceOf(record.name))) ++in_tree;
        map_text += " \n DeviceId : " + std::to_string(record.id) +
                    ", Interface name : " + record.name +
                    ", class : " + std::to_string(record.code) +
                    ", Vendor ID : " + std::to_string(record.vendor) +
                    ", Product ID : " + std::to_string(record.product) + "\n";
    }

    const std::string text = DumpText();
    size_t branches = 0;
    for (size_t at = text.find("   |__ "); at != std::string::npos;
         at = text.find("   |__ ", at + 1)) {
        ++branches;
    }
    EXPECT_EQ(branches, in_tree);
    const std::string map_part =
            "\n\nDeviceIdMap size" + std::to_string(expected.size()) + "\n" + map_text;
    ASSERT_GE(text.size(), map_part.size());
    EXPECT_EQ(text.substr(text.size() - map_part.size()), map_part);
}

// Spoils trees at random: what a hostile device, a failing one, or one that is just going away
// could make of sysfs. Remembers the names of the entries that it touched.
class Spoiler {
  public:
    explicit Spoiler(uint32_t seed) : random_(seed), listed_(ListedEntries()) {}

    void Spoil() {
        const int count = Pick(1, 8);
        for (int i = 0; i < count; ++i) SpoilOne();
    }
    bool Touched(const std::string& entry) const { return touched_.count(entry) != 0; }

  private:
    int Pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random_); }

    // A new name among the devices, or an attribute of one, or the entry itself.
    void SpoilOne() {
        const std::string& entry =
                listed_[static_cast<size_t>(Pick(0, static_cast<int>(listed_.size()) - 1))];
        switch (Pick(0, 9)) {
            case 0:
                return AddNonsense();
            case 1:
                return SpoilEntry(entry);
            default:
                return SpoilAttribute(entry);
        }
    }

    void AddNonsense() {
        const std::string names[] = {"1-",
                                     "1-:1.0",
                                     "7",
                                     "7-9.",
                                     "99999999999999999999-1",
                                     "usb",
                                     "usb99999999999999999999",
                                     "1-1..2:x.y",
                                     "\xff\xfe",
                                     std::string(254, '1'),
                                     "9-" + std::string(253, '1')};
        const std::string& name =
                names[static_cast<size_t>(Pick(0, static_cast<int>(std::size(names)) - 1))];
        const std::string path = UsbPath(name);
        if (fs::exists(fs::symlink_status(path))) return;
        switch (Pick(0, 2)) {
            case 0:
                return MakeDir(path);
            case 1:
                return WriteFile(path, "a file");
            default:
                return fs::create_symlink(name, path);  // a link to itself
        }
    }

    void SpoilEntry(const std::string& entry) {
        touched_.insert(entry);
        const std::string path = UsbPath(entry);
        fs::remove_all(path);  // the link, not what it leads to
        switch (Pick(0, 3)) {
            case 0:
                return;
            case 1:
                return WriteFile(path, "a file");
            case 2:
                return fs::create_symlink("../nowhere", path);
            default:
                return fs::create_symlink(".", path);  // leads to all the others
        }
    }

    void SpoilAttribute(const std::string& entry) {
        touched_.insert(entry);
        std::error_code none;
        std::vector<fs::path> files;
        for (const auto& file : fs::directory_iterator(UsbPath(entry), none)) {
            // What is a device's own, or stands for a function: the entries below are others'.
            const std::string name = file.path().filename();
            if (std::find(listed_.begin(), listed_.end(), name) == listed_.end()) {
                files.push_back(file.path());
            }
        }
        if (files.empty()) return;
        const fs::path file =
                files[static_cast<size_t>(Pick(0, static_cast<int>(files.size()) - 1))];
        fs::remove_all(file);
        Replace(file);
    }

    void Replace(const fs::path& file) {
        switch (Pick(0, 8)) {
            case 0:
                return;
            case 1:
                return WriteFile(file, "");
            case 2:
                return WriteFile(file, std::string(1 << 16, 'f'));
            case 3:
                return WriteFile(file, std::string("\x00\xff\x1b[2J\x00", 7));
            case 4:
                return WriteFile(file, "1\n2\n\n3\n");
            case 5:
                return WriteFile(file, "-1\n");
            case 6:
                return WriteFile(file, std::string(static_cast<size_t>(Pick(62, 66)), 'x'));
            case 7:
                return MakeDir(file);
            default:
                return fs::create_symlink(file.filename(), file);
        }
    }

    std::mt19937 random_;
    const std::vector<std::string> listed_;
    std::set<std::string> touched_;
};

// Records by interface.
std::map<std::string, ExpectedRecord> ByName(const std::vector<ExpectedRecord>& records) {
    std::map<std::string, ExpectedRecord> by_name;
    for (const ExpectedRecord& record : records) by_name.emplace(record.name, record);
    return by_name;
}

TEST_P(RecordedTreeTest, WhatIsSpoiltHurtsNobodyElse) {
    UsbDevice::create_usb_device_map();
    const std::map<std::string, ExpectedRecord> whole = ByName(ActualMap());
    const auto descriptors = OpenDescriptors();
    for (int variant = 0; variant < kSpoiltVariants; ++variant) {
        Restore();
        const uint32_t seed =
                static_cast<uint32_t>(std::hash<std::string>()(GetParam().name) + variant);
        SCOPED_TRACE("seed " + std::to_string(seed));
        Spoiler spoiler(seed);
        spoiler.Spoil();
        DumpText();
        UsbDevice::create_usb_device_map();

        const std::map<std::string, ExpectedRecord> spoilt = ByName(ActualMap());
        for (const auto& [name, record] : whole) {
            if (spoiler.Touched(name) || spoiler.Touched(DeviceOf(name))) continue;
            const auto found = spoilt.find(name);
            ASSERT_NE(found, spoilt.end()) << name;
            EXPECT_EQ(found->second, record);
        }
        EXPECT_TRUE(ListsAreEmpty());
        EXPECT_EQ(OpenDescriptors(), descriptors);
    }
    Restore();
    UsbDevice::create_usb_device_map();
    EXPECT_EQ(ByName(ActualMap()), whole);
}

INSTANTIATE_TEST_SUITE_P(All, RecordedTreeTest, ::testing::ValuesIn(AllTrees()),
                         [](const auto& tree) { return tree.param.name; });

}  // namespace
}  // namespace android::vus
