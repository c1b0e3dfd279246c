// SPDX-License-Identifier: Apache-2.0

// The device-id map: rebuilds, lookups, removals, printing, and the authorization writes.

#include <algorithm>

#include "usb_test.h"

namespace android::vus {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class MapTest : public UsbTest {
  protected:
    static std::vector<std::string> names_of(const std::vector<usbinterface_custom>& records) {
        std::vector<std::string> names;
        for (const usbinterface_custom& record : records) names.push_back(record.name);
        return names;
    }
    // The records that the map must hold for a device, in the order of the directory.
    static std::vector<std::string> listed(const std::string& prefix) {
        std::vector<std::string> names;
        for (const std::string& name : listing(kUsbDevicesDir)) {
            if (name.find(prefix) == 0) names.push_back(name);
        }
        return names;
    }
    static std::string authorized(const std::string& entry) {
        return ReadFile(UsbPath(entry, "authorized"));
    }
};

TEST_F(MapTest, ARebuildReplacesTheMapAndLogsEachStep) {
    put_record(77, "stale");
    add_bus("usb1");
    add_device("1-1", {{"devnum", "5\n"}, {"idVendor", "046d\n"}, {"idProduct", "c31c\n"}});
    add_interface("1-1:1.0", {{"bInterfaceClass", "08\n"}});
    EXPECT_EQ(stderr_of([this] {
                  EXPECT_THAT(log_of([] { UsbDevice::create_usb_device_map(); }),
                              ElementsAre("I create_usb_device_map called",
                                          "I deleting the list using deleteAllnode",
                                          "I ***Entered empty_list******", "I print_deviceid_map ",
                                          "I  DeviceId: 1005 Interface name:1-1:1.0 class:8 Vendor "
                                          "ID:1133 Product ID:49948",
                                          "I create_usb_device_map returned check loop"));
              }),
              "");
    EXPECT_THAT(map_names(), ElementsAre("1005:1-1:1.0"));
    EXPECT_EQ(UsbDevice::bus_list, nullptr);
    EXPECT_THAT(devices(), IsEmpty());
    EXPECT_THAT(interfaces(), IsEmpty());
}

TEST_F(MapTest, WithoutTheDirectoryARebuildSaysSoAndEmptiesTheMap) {
    put_record(77, "stale");
    std::filesystem::remove_all("/sys/bus");
    EXPECT_EQ(stderr_of([this] {
                  EXPECT_THAT(log_of([] { UsbDevice::create_usb_device_map(); }),
                              ElementsAre("I create_usb_device_map called",
                                          "I deleting the list using deleteAllnode",
                                          "I ***Entered empty_list******", "I print_deviceid_map ",
                                          "I create_usb_device_map returned check loop"));
              }),
              "/sys/bus/usb/devices: No such file or directory\n");
    EXPECT_THAT(map_names(), IsEmpty());
}

TEST_F(MapTest, AFileInPlaceOfTheDirectoryIsReportedAsSuch) {
    std::filesystem::remove_all(kUsbDevicesDir);
    WriteFile(kUsbDevicesDir, "");
    EXPECT_EQ(stderr_of([] { UsbDevice::create_usb_device_map(); }),
              "/sys/bus/usb/devices: Not a directory\n");
}

TEST_F(MapTest, AnEmptyDirectoryGivesAnEmptyMapAndNoWord) {
    EXPECT_EQ(stderr_of([] { UsbDevice::create_usb_device_map(); }), "");
    EXPECT_THAT(map_names(), IsEmpty());
}

TEST_F(MapTest, InterfacesWithoutADeviceStayOut) {
    add_bus("usb1");
    add_interface("1-0:1.0");
    add_interface("1-7:1.0");
    UsbDevice::create_usb_device_map();
    EXPECT_THAT(map_names(), IsEmpty());
}

TEST_F(MapTest, RecordsOfADeviceKeepTheDirectorysOrder) {
    add_device("2-1", {{"devnum", "5\n"}});
    for (const char* entry : {"2-1:1.1", "2-1:1.0", "2-1:1.2"}) add_interface(entry);
    UsbDevice::create_usb_device_map();
    EXPECT_EQ(names_of(UsbDevice::get_deviceid_data(2005)), listed("2-1:"));
}

TEST_F(MapTest, ACompositeDockIsWhatEachOfItsInterfacesBecame) {
    UsbTree tree;
    tree.AddBus(1);
    tree.AddDevice("1-2", Hub());
    const int32_t id = tree.AddDevice("1-2.4", CompositeDock());
    EXPECT_EQ(stderr_of([] { UsbDevice::create_usb_device_map(); }), "");
    std::map<std::string, std::string> functions;
    for (const usbinterface_custom& record : UsbDevice::get_deviceid_data(id)) {
        functions[record.name] = std::to_string(record.category) + " " + record.category_path;
    }
    const std::map<std::string, std::string> expected = {{"1-2.4:1.0", "1 usb0"},
                                                         {"1-2.4:1.1", "0 empty"},
                                                         {"1-2.4:1.2", "2 ttyACM0"},
                                                         {"1-2.4:1.3", "0 empty"},
                                                         {"1-2.4:1.4", "4 sdcard"},
                                                         {"1-2.4:1.5", "0 empty"},
                                                         {"1-2.4:1.6", "8 empty"}};
    EXPECT_EQ(functions, expected);
    EXPECT_TRUE(UsbDevice::check_vendor_hid(id));
    EXPECT_FALSE(UsbDevice::check_vendor_hid(tree.IdOf("1-2")));

    UsbDevice::update_status(id, 0);
    for (const auto& [name, function] : expected) EXPECT_EQ(authorized(name), "0\n") << name;
    EXPECT_EQ(authorized("1-2.4"), "1\n");
    EXPECT_EQ(authorized("1-2:1.0"), "1\n");
}

TEST_F(MapTest, DevicesOfOneIdShareIt) {
    // Bus 1, number 1002, and bus 2, number 2, are the same key.
    add_device("1-1", {{"devnum", "1002\n"}});
    add_device("2-1", {{"devnum", "2\n"}});
    add_interface("1-1:1.0");
    add_interface("2-1:1.0");
    UsbDevice::create_usb_device_map();
    EXPECT_EQ(UsbDevice::get_deviceid_data(2002).size(), 2u);
}

TEST_F(MapTest, AnIdBeyondTheNumbersOfTheKernelWrapsAround) {
    add_device("4294967-1", {{"devnum", "296\n"}});
    add_interface("4294967-1:1.0");
    UsbDevice::create_usb_device_map();
    EXPECT_THAT(map_names(), ElementsAre("0:4294967-1:1.0"));
    add_device("2147483-1", {{"devnum", "648\n"}});
    add_interface("2147483-1:1.0");
    UsbDevice::create_usb_device_map();
    EXPECT_THAT(map_names(), ElementsAre("-2147483648:2147483-1:1.0", "0:4294967-1:1.0"));
}

TEST_F(MapTest, RecordsAreFetchedByIdAndLogged) {
    put_record(1005, "b");
    put_record(1004, "other");
    put_record(1005, "a");
    EXPECT_THAT(log_of([] {
                    EXPECT_THAT(names_of(UsbDevice::get_deviceid_data(1005)),
                                ElementsAre("b", "a"));
                }),
                ElementsAre("I get_deviceid_data() with deviceId : 1005size--3",
                            "I Found deviceid  : 1005device : b",
                            "I Found deviceid  : 1005device : a"));
    EXPECT_THAT(log_of([] { EXPECT_THAT(UsbDevice::get_deviceid_data(7), IsEmpty()); }),
                ElementsAre("I get_deviceid_data() with deviceId : 7size--3"));
}

TEST_F(MapTest, AVendorHidIsFoundAndEndsTheSearch) {
    put_record(1005, "a", 1);
    put_record(1005, "b", 8);
    put_record(1005, "c", 8);
    put_record(1004, "other", 8);
    EXPECT_THAT(log_of([] { EXPECT_TRUE(UsbDevice::check_vendor_hid(1005)); }),
                ElementsAre("I check_vendor_hid 1005",
                            "I Found deviceId in native list : 1005\t interface patha device "
                            "category1",
                            "I Found deviceId in native list : 1005\t interface pathb device "
                            "category8"));
}

TEST_F(MapTest, ADeviceWithoutVendorHidIsNone) {
    EXPECT_THAT(log_of([] { EXPECT_FALSE(UsbDevice::check_vendor_hid(1005)); }),
                ElementsAre("I check_vendor_hid 1005"));
    put_record(1005, "a", 4);
    put_record(1006, "b", 8);
    EXPECT_FALSE(UsbDevice::check_vendor_hid(1005));
}

TEST_F(MapTest, ARemovalErasesADevicesRecordsAndNoOthers) {
    put_record(1005, "a");
    put_record(1005, "b");
    put_record(1006, "c");
    EXPECT_THAT(log_of([] { UsbDevice::update_deviceid_map(1005, true); }),
                ElementsAre("I update_deviceid_map deviceId:1005 flag:1"));
    EXPECT_EQ(map_names().size(), 3u);
    EXPECT_THAT(log_of([] { UsbDevice::update_deviceid_map(7, false); }),
                ElementsAre("I update_deviceid_map deviceId:7 flag:0"));
    EXPECT_EQ(map_names().size(), 3u);
    UsbDevice::update_deviceid_map(1005, false);
    EXPECT_THAT(map_names(), ElementsAre("1006:c"));
}

TEST_F(MapTest, TheMapIsPrintedByteForByte) {
    put_record(1005, "1-1:1.0", 0, 0x046d);
    put_record(-3, "x");
    std::vector<std::string> lines;
    EXPECT_EQ(written_by(
                      [&](int fd) { lines = log_of([fd] { UsbDevice::print_deviceid_map(fd); }); }),
              "\n\nDeviceIdMap size2\n"
              " \n DeviceId : -3, Interface name : x, class : 0, Vendor ID : 4660, Product ID : 0\n"
              " \n DeviceId : 1005, Interface name : 1-1:1.0, class : 0, Vendor ID : 1133, "
              "Product ID : 0\n");
    EXPECT_THAT(lines,
                ElementsAre("I print_deviceid_map ",
                            "I  DeviceId: -3 Interface name:x class:0 Vendor ID:4660 Product ID:0",
                            "I  DeviceId: 1005 Interface name:1-1:1.0 class:0 Vendor ID:1133 "
                            "Product ID:0"));
    EXPECT_EQ(log_of([] { UsbDevice::print_deviceid_map(-1); }), lines);
}

TEST_F(MapTest, AnEmptyMapIsPrintedWithItsSize) {
    EXPECT_EQ(written_by([](int fd) { UsbDevice::print_deviceid_map(fd); }),
              "\n\nDeviceIdMap size0\n");
}

TEST_F(MapTest, MinusOneWritesToNoDescriptorAndZeroIsOne) {
    put_record(1005, "a");
    const base::unique_fd saved(dup(STDIN_FILENO));
    const base::unique_fd file(memfd_create("stdin", MFD_CLOEXEC));
    dup2(file.get(), STDIN_FILENO);
    const auto size = [&file] { return lseek(file.get(), 0, SEEK_END); };
    EXPECT_EQ(stdout_of(
                      [] { EXPECT_EQ(stderr_of([] { UsbDevice::print_deviceid_map(-1); }), ""); }),
              "");
    EXPECT_EQ(size(), 0);
    UsbDevice::print_deviceid_map(STDIN_FILENO);
    EXPECT_GT(size(), 0);
    dup2(saved.get(), STDIN_FILENO);
}

TEST_F(MapTest, EveryInterfaceOfADeviceIsSwitchedOff) {
    add_device("1-1", {{"authorized", "1\n"}});
    add_interface("1-1:1.0");
    add_interface("1-1:1.1");
    put_record(1002, "1-1:1.0");
    put_record(1002, "1-1:1.1");
    put_record(1003, "1-2:1.0");
    EXPECT_EQ(stderr_of([this] {
                  EXPECT_THAT(log_of([] { UsbDevice::update_status(1002, 0); }),
                              ElementsAre("I update_status path with deviceId 1002 status:0",
                                          "I Found deviceId in native list : 1002\t interface "
                                          "path1-1:1.0",
                                          "I update_status path is :/sys/bus/usb/devices/1-1:1.0/"
                                          "authorized",
                                          "I Found deviceId in native list : 1002\t interface "
                                          "path1-1:1.1",
                                          "I update_status path is :/sys/bus/usb/devices/1-1:1.1/"
                                          "authorized"));
              }),
              "");
    EXPECT_EQ(authorized("1-1:1.0"), "0\n") << "one byte, without a newline, over the old one";
    EXPECT_EQ(authorized("1-1:1.1"), "0\n");
    EXPECT_EQ(authorized("1-1"), "1\n") << "the device itself is never touched";
}

TEST_F(MapTest, AnyOtherStatusSwitchesOn) {
    for (const int status : {1, 5, -1}) {
        add_interface("1-1:1.0", {{"authorized", "0"}});
        clear_map();
        put_record(1002, "1-1:1.0");
        EXPECT_EQ(log_of([=] { UsbDevice::update_status(1002, status); }).front(),
                  "I update_status path with deviceId 1002 status:" + std::to_string(status));
        EXPECT_EQ(authorized("1-1:1.0"), "1");
    }
}

TEST_F(MapTest, AMissingAttributeEndsTheWriting) {
    for (const char* entry : {"1-1:1.0", "1-1:1.1", "1-1:1.2"}) {
        add_interface(entry);
        put_record(1002, entry);
    }
    std::filesystem::remove(UsbPath("1-1:1.1", "authorized"));
    std::vector<std::string> lines;
    EXPECT_EQ(stderr_of([&] { lines = log_of([] { UsbDevice::update_status(1002, 0); }); }),
              "Unable to open the file: No such file or directory\n");
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), "E Error! Could not open file");
    EXPECT_EQ(lines.size(), 6u);
    EXPECT_EQ(authorized("1-1:1.0"), "0\n");
    EXPECT_FALSE(std::filesystem::exists(UsbPath("1-1:1.1", "authorized")));
    EXPECT_EQ(authorized("1-1:1.2"), "1\n");
}

TEST_F(MapTest, AFailedWriteEndsTheWriting) {
    add_interface("1-1:1.0");
    add_interface("1-1:1.1");
    std::filesystem::remove(UsbPath("1-1:1.0", "authorized"));
    link("/dev/full", UsbPath("1-1:1.0", "authorized"));
    put_record(1002, "1-1:1.0");
    put_record(1002, "1-1:1.1");
    std::vector<std::string> lines;
    EXPECT_EQ(stderr_of([&] { lines = log_of([] { UsbDevice::update_status(1002, 0); }); }),
              "Error writing to sysfs file: No space left on device\n");
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), "E Error! Could not open file");
    EXPECT_EQ(authorized("1-1:1.1"), "1\n");
}

TEST_F(MapTest, ARecordWithoutANameIsSkipped) {
    add_interface("1-1:1.1");
    put_record(1002, "");
    put_record(1002, "1-1:1.1");
    EXPECT_THAT(log_of([] { UsbDevice::update_status(1002, 0); }),
                ElementsAre("I update_status path with deviceId 1002 status:0",
                            "I Found deviceId in native list : 1002\t interface path",
                            "I update_status interface_name is NULL",
                            "I Found deviceId in native list : 1002\t interface path1-1:1.1",
                            "I update_status path is :/sys/bus/usb/devices/1-1:1.1/authorized"));
    EXPECT_EQ(authorized("1-1:1.1"), "0\n");
}

TEST_F(MapTest, AnUnknownDeviceIsSilentlyLeftAlone) {
    EXPECT_EQ(stderr_of([this] {
                  EXPECT_THAT(log_of([] { UsbDevice::update_status(9, 0); }),
                              ElementsAre("I update_status path with deviceId 9 status:0"));
              }),
              "");
}

}  // namespace
}  // namespace android::vus
