// SPDX-License-Identifier: Apache-2.0

// What an interface became: network, tty, storage, vendor HID, or nothing of note.

#include "usb_test.h"

namespace android::vus {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class CategoryTest : public UsbTest {
  protected:
    static constexpr char kName[] = "1-1:1.0";

    void SetUp() override {
        UsbTest::SetUp();
        MakeDir(UsbPath(kName));
        strcpy(node_.name, kName);
    }

    static std::string below(const std::string& name) { return UsbPath(kName, name); }

    // Makes a sub-directory of the interface, and waits for no one: the kernel of the tests lists
    // the newest entry first, which expect_order() checks.
    static void add_dir(const std::string& name) { MakeDir(below(name)); }
    static void expect_order(const std::vector<std::string>& names) {
        std::vector<std::string> listed;
        for (const std::string& name : listing(UsbPath(kName))) {
            if (name != "." && name != "..") listed.push_back(name);
        }
        ASSERT_EQ(listed, names) << "the test depends on this order";
    }

    std::vector<std::string> classify() {
        return log_of([this] { UsbDevice::populate_category_device(&node_); });
    }
    void expect(int32_t category, const std::string& path) {
        EXPECT_EQ(node_.category, category);
        EXPECT_EQ(node_.category_path, path);
    }

    usbinterface node_ = {};
};

TEST_F(CategoryTest, AnInterfaceWithoutAFunctionIsNone) {
    WriteFile(below("bInterfaceClass"), "ff\n");
    MakeDir(below("power"));
    node_.category = 7;
    strcpy(node_.category_path, "before");
    EXPECT_THAT(classify(), IsEmpty());
    expect(0, "empty");
}

TEST_F(CategoryTest, AnInterfaceWithoutADirectoryIsNoneAndSaidSo) {
    std::filesystem::remove_all(UsbPath(kName));
    EXPECT_THAT(classify(), ElementsAre("I Cannot open directory ", "I " + UsbPath(kName)));
    expect(0, "empty");
}

TEST_F(CategoryTest, AFileIsNoInterfaceDirectory) {
    std::filesystem::remove_all(UsbPath(kName));
    WriteFile(UsbPath(kName), "a file where a directory is expected");
    EXPECT_THAT(classify(), ElementsAre("I Cannot open directory ", "I " + UsbPath(kName)));
    expect(0, "empty");
}

TEST_F(CategoryTest, StorageIsToldByItsClassAlone) {
    add_dir("net/usb0");
    add_dir("tty/ttyACM0");
    node_.bInterfaceClass = 8;
    EXPECT_THAT(classify(), IsEmpty());
    expect(4, "sdcard");
    std::filesystem::remove_all(UsbPath(kName));
    EXPECT_THAT(classify(), IsEmpty()) << "no directory is read";
    expect(4, "sdcard");
}

TEST_F(CategoryTest, ANetworkInterfaceHasItsName) {
    add_dir("net/usb0");
    EXPECT_THAT(classify(), ElementsAre("I  new path of dir:" + below("net")));
    expect(1, "usb0");
}

TEST_F(CategoryTest, ATtyHasItsName) {
    add_dir("tty/ttyACM0");
    EXPECT_THAT(classify(), IsEmpty());
    expect(2, "ttyACM0");
}

TEST_F(CategoryTest, TheFirstDirectoryOfSeveralIsTheName) {
    add_dir("tty/ttyACM1");
    add_dir("tty/ttyACM0");
    WriteFile(below("tty/uevent"), "");
    std::string first;
    for (const std::string& name : listing(below("tty"))) {
        if (first.empty() && name.find("ttyACM") == 0) first = name;
    }
    classify();
    expect(2, first);
}

TEST_F(CategoryTest, ANameIsBoundedByItsField) {
    add_dir("net/" + std::string(63, 'n'));
    classify();
    expect(1, std::string(63, 'n'));
    std::filesystem::remove_all(below("net"));
    add_dir("net/" + std::string(200, 'm'));
    classify();
    expect(1, std::string(63, 'm'));
}

TEST_F(CategoryTest, AFileNamedForAFunctionSetsTheCategoryOnly) {
    WriteFile(below("net"), "");
    EXPECT_THAT(classify(), IsEmpty());
    expect(1, "empty");
    std::filesystem::remove(below("net"));
    WriteFile(below("tty"), "");
    EXPECT_THAT(classify(), IsEmpty());
    expect(2, "empty");
}

TEST_F(CategoryTest, AFunctionDirectoryWithoutDirectoriesHasNoName) {
    add_dir("net");
    WriteFile(below("net/uevent"), "");
    link("/sys", below("net/link"));
    EXPECT_THAT(classify(), ElementsAre("I  new path of dir:" + below("net")));
    expect(1, "empty");
}

TEST_F(CategoryTest, ALinkIsNoDirectory) {
    MakeDir("/sys/elsewhere/usb0");
    link("/sys/elsewhere", below("net"));
    link("/sys/elsewhere", below("supplier:platform:regulator"));
    EXPECT_THAT(classify(), IsEmpty());
    expect(1, "empty");
}

TEST_F(CategoryTest, AVendorHidHasNoInput) {
    add_dir("0003:046D:C52B.0002/hidraw");
    EXPECT_THAT(classify(),
                ElementsAre("I  new path of subdir for HID:" + below("0003:046D:C52B.0002"),
                            "I vendor HID device found"));
    expect(8, "empty");
}

TEST_F(CategoryTest, AnEmptyHidDirectoryAndAnInputFileAreVendorHid) {
    add_dir("a:b");
    classify();
    expect(8, "empty");
    WriteFile(below("a:b/input"), "");
    classify();
    expect(8, "empty");
    std::filesystem::remove(below("a:b/input"));
    add_dir("a:b/input");
    classify();
    expect(0, "empty");
}

TEST_F(CategoryTest, AnOrdinaryHidIsNone) {
    add_dir("0003:046D:C31C.0001/input/input7");
    EXPECT_THAT(classify(),
                ElementsAre("I  new path of subdir for HID:" + below("0003:046D:C31C.0001")));
    expect(0, "empty");
}

TEST_F(CategoryTest, AFileWithAColonIsNoHid) {
    WriteFile(below("a:b"), "");
    EXPECT_THAT(classify(), IsEmpty());
    expect(0, "empty");
}

TEST_F(CategoryTest, AnOrdinaryHidDoesNotEndTheScan) {
    add_dir("tty");
    add_dir("0003:1:2.3/input");
    expect_order({"0003:1:2.3", "tty"});
    WriteFile(UsbPath(kName, "0003:1:2.3") + "/tty/ttyUSB0/uevent", "");
    // The path still leads into the HID directory, and so finds the tty there.
    classify();
    expect(2, "ttyUSB0");
}

TEST_F(CategoryTest, APathExtendedInVainIsNotRestored) {
    add_dir("tty/ttyACM0");
    add_dir("0003:1:2.3/input");
    expect_order({"0003:1:2.3", "tty"});
    EXPECT_THAT(classify(),
                ElementsAre("I  new path of subdir for HID:" + below("0003:1:2.3"),
                            "I Cannot open directory ", "I " + below("0003:1:2.3/tty")));
    expect(2, "empty");
}

TEST_F(CategoryTest, AHidDirectoryLookedUpInVainIsVendorHid) {
    add_dir("0003:1:2.3/input");
    add_dir("net");
    expect_order({"net", "0003:1:2.3"});
    EXPECT_THAT(classify(), ElementsAre("I  new path of dir:" + below("net"),
                                        "I  new path of subdir for HID:" + below("net/0003:1:2.3"),
                                        "I Cannot open subdir ", "I " + below("net/0003:1:2.3"),
                                        "I vendor HID device found"));
    expect(8, "empty");
}

TEST_F(CategoryTest, TheFirstResultInListingOrderDecides) {
    add_dir("0003:1:2.3");
    add_dir("tty/ttyACM0");
    expect_order({"tty", "0003:1:2.3"});
    classify();
    expect(2, "ttyACM0");
    std::filesystem::remove_all(below("0003:1:2.3"));
    add_dir("0003:1:2.3");
    expect_order({"0003:1:2.3", "tty"});
    classify();
    expect(8, "empty");
}

TEST_F(CategoryTest, ALaterFunctionReplacesTheCategoryOfAnEarlierOne) {
    add_dir("net");
    WriteFile(below("tty"), "");
    expect_order({"tty", "net"});
    classify();
    expect(1, "empty");
}

TEST_F(CategoryTest, ThePathIsCutAt255Characters) {
    const std::string long_name(254, 'i');
    MakeDir(UsbPath(long_name));
    strcpy(node_.name, long_name.c_str());
    EXPECT_THAT(classify(),
                ElementsAre("I Cannot open directory ", "I " + UsbPath(long_name).substr(0, 255)));
    expect(0, "empty");

    // The longest path that is whole, with no room left for a sub-directory.
    const std::string longest(255 - UsbPath("").size(), 'i');
    ASSERT_EQ(UsbPath(longest).size(), 255u);
    MakeDir(UsbPath(longest, "tty/ttyACM0"));
    strcpy(node_.name, longest.c_str());
    UsbDevice::verbose_log = true;
    EXPECT_THAT(classify(), ::testing::Contains("I  new path of dir in tty:" + UsbPath(longest)));
    // Cut back to the interface's own path, the scan takes the directory beside for the name.
    expect(2, "tty");
}

TEST_F(CategoryTest, TraceLinesTellTheWay) {
    add_dir("tty/ttyACM0");
    add_dir("0003:1:2.3/input");
    UsbDevice::verbose_log = true;
    EXPECT_THAT(classify(),
                ElementsAre("I path of dir:" + UsbPath(kName), "I Other category default to none",
                            "I Entered while with dir is :0003:1:2.3",
                            "I  new path of subdir for HID:" + below("0003:1:2.3"),
                            "I input device found", "I Entered while with dir is :tty",
                            "I  new path of dir in tty:" + below("0003:1:2.3/tty"),
                            "I Cannot open directory ", "I " + below("0003:1:2.3/tty")));
    std::filesystem::remove_all(below("0003:1:2.3"));
    EXPECT_THAT(classify(),
                ElementsAre("I path of dir:" + UsbPath(kName), "I Other category default to none",
                            "I Entered while with dir is :tty",
                            "I  new path of dir in tty:" + below("tty"),
                            "I updating the devcategory path for tty and return:ttyACM0"));
    std::filesystem::remove_all(below("tty"));
    add_dir("net/usb0");
    EXPECT_THAT(classify(),
                ElementsAre("I path of dir:" + UsbPath(kName), "I Other category default to none",
                            "I Entered while with dir is :net",
                            "I  new path of dir:" + below("net"),
                            "I updating the devcategory path for network and return:usb0"));
}

}  // namespace
}  // namespace android::vus
