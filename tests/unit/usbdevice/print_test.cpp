// SPDX-License-Identifier: Apache-2.0

// The printed tree, byte for byte, and the dump that is made of it.

#include "usb_test.h"

namespace android::vus {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class PrintTest : public UsbTest {
  protected:
    static std::string tree() {
        return written_by([](int fd) { UsbDevice::print_tree(fd); });
    }
    static std::string interface_list() {
        return written_by([](int fd) { UsbDevice::print_interfacelist(fd); });
    }
    // A hub with a keyboard: bus 1, devices 5 and 6.
    static void add_hub_with_keyboard() {
        add_bus("usb1");
        add_device("1-1.2", {{"devnum", "6\n"}, {"idVendor", "046d\n"}, {"idProduct", "c31c\n"}});
        add_interface("1-1.2:1.0", {{"bInterfaceClass", "03\n"}});
        link("../usbhid", UsbPath("1-1.2:1.0", "driver"));
        add_device("1-1", {{"devnum", "5\n"}, {"tx_lanes", "2\n"}});
        add_interface("1-1:1.0", {{"bInterfaceClass", "09\n"}});
        link("../hub", UsbPath("1-1:1.0", "driver"));
    }

    static constexpr char kStars[] = "************************\n";
};

TEST_F(PrintTest, AHubWithAKeyboardIsPrintedByteForByte) {
    add_hub_with_keyboard();
    discover_and_connect();
    std::string text;
    EXPECT_THAT(log_of([&] { text = tree(); }),
                ElementsAre("I print_tree entered", "I print_tree_dev_children entered",
                            "I ID 4660:43981", "I print_tree_dev_children entered",
                            "I ID 1133:49948", "I print_tree_dev_children entered"));
    EXPECT_EQ(text, std::string("   |__  Port : 1, DevNum : 5, If : 0, Class : 9, Driver : hub\n"
                                "  \n"
                                "       Vendor:Product ID 1234:abcd \n"
                                "/sys/bus/usb/devices/1-1  /dev/bus/usb/001/005\n"
                                "printing interfaces for device device:1-1 and "
                                "first_interface:1-1:1.0 \n"
                                "parent_portnum:0\n") +
                            kStars +
                            "   |__  Port : 2, DevNum : 6, If : 0, Class : 3, Driver : usbhid \n"
                            "       Vendor:Product ID 046d:c31c \n"
                            "/sys/bus/usb/devices/1-1.2  /dev/bus/usb/001/006\n"
                            "printing interfaces for device device:1-1.2 and "
                            "first_interface:1-1.2:1.0 \n"
                            "parent name :1-1\n"
                            "parent_portnum:1\n" +
                            kStars);
}

TEST_F(PrintTest, EachInterfaceHasItsBlockAndTheFirstOnesName) {
    add_bus("usb1");
    add_device("1-1");
    add_interface("1-1:1.1");
    add_interface("1-1:1.0");
    discover_and_connect();
    const std::string first = device("1-1")->first_interface->name;
    const std::string text = tree();
    size_t blocks = 0, names = 0;
    for (size_t at = 0; (at = text.find("   |__ ", at)) != std::string::npos; ++at) ++blocks;
    for (size_t at = 0;
         (at = text.find("first_interface:" + first + " \n", at)) != std::string::npos; ++at) {
        ++names;
    }
    EXPECT_EQ(blocks, 2u);
    EXPECT_EQ(names, 2u);
}

TEST_F(PrintTest, ADeviceWithoutInterfacesPrintsOnlyItsChildren) {
    add_bus("usb1");
    add_device("1-1.2");
    add_interface("1-1.2:1.0");
    add_device("1-1");
    discover_and_connect();
    const std::string text = tree();
    EXPECT_EQ(text.find("   |__  Port : 2, "), 0u) << text;
    EXPECT_EQ(text.find("devices/1-1  "), std::string::npos) << text;
}

TEST_F(PrintTest, BusesWithoutDevicesAndOrphansPrintNothing) {
    add_bus("usb1");
    add_device("3-1.4");
    add_interface("3-1.4:1.0");
    discover_and_connect();
    EXPECT_THAT(log_of([] { EXPECT_EQ(tree(), ""); }), ElementsAre("I print_tree entered"));
}

TEST_F(PrintTest, NothingIsPrintedAsNothing) {
    EXPECT_EQ(tree(), "");
    EXPECT_EQ(interface_list(), "");
    EXPECT_THAT(log_of([] {
                    EXPECT_EQ(written_by([](int fd) {
                                  UsbDevice::print_tree_dev_children(nullptr, fd);
                              }),
                              "");
                }),
                ElementsAre("I print_tree_dev_children entered"));
}

TEST_F(PrintTest, NumbersKeepTheirWidthAndRange) {
    add_bus("usb123");
    add_device("123-4", {{"devnum", "4567\n"}, {"idVendor", "0001\n"}, {"idProduct", "fffff\n"}});
    add_interface("123-4:1.0");
    discover_and_connect();
    const std::string text = tree();
    EXPECT_NE(text.find("ID 0001:fffff \n"), std::string::npos) << text;
    EXPECT_NE(text.find("/dev/bus/usb/123/4567\n"), std::string::npos) << text;
}

TEST_F(PrintTest, PathsShowNumbersBeyondTheKernelsAsNegative) {
    add_bus("usb1");
    add_device("1-1", {{"devnum", "-1\n"}});
    add_interface("1-1:1.0", {{"bInterfaceClass", "fffffffe\n"}});
    discover_and_connect();
    EXPECT_NE(tree().find("/dev/bus/usb/001/-01\n"), std::string::npos) << tree();
    EXPECT_NE(tree().find(", DevNum : 4294967295, "), std::string::npos) << tree();
    EXPECT_NE(interface_list().find(" and class:-2\n"), std::string::npos) << interface_list();
}

TEST_F(PrintTest, VerbosityGovernsTheBlock) {
    add_bus("usb1");
    add_device("1-1");
    add_interface("1-1:1.0");
    discover_and_connect();
    const std::string line = "   |__  Port : 1, DevNum : 2, If : 0, Class : 255, Driver :  \n";
    UsbDevice::print_verbosity = 0;
    EXPECT_EQ(tree(), line);
    UsbDevice::print_verbosity = 1;
    EXPECT_EQ(tree(), line + "       Vendor:Product ID 1234:abcd ");
    UsbDevice::print_verbosity = 2;
    EXPECT_GT(tree().size(), line.size() + 100);
}

TEST_F(PrintTest, TheIndentationCounterComesBackToZero) {
    add_hub_with_keyboard();
    discover_and_connect();
    tree();
    EXPECT_EQ(UsbDevice::tree_indent, 0);
}

TEST_F(PrintTest, LanesNeverShow) {
    add_bus("usb1");
    add_device("1-1", {{"rx_lanes", "71\n"}, {"tx_lanes", "72\n"}});
    add_interface("1-1:1.0");
    discover_and_connect();
    const std::string text = tree() + interface_list();
    EXPECT_EQ(text.find("71"), std::string::npos) << text;
    EXPECT_EQ(text.find("72"), std::string::npos) << text;
}

TEST_F(PrintTest, TheInterfaceListIsPrintedByteForByte) {
    add_interface("1-0:1.0", {{"bInterfaceClass", "09\n"}});
    add_device("2-1", {{"devnum", "5\n"}});
    add_interface("2-1:1.0", {{"bInterfaceClass", "08\n"}});
    discover_and_connect();
    const std::string orphan =
            "\nprint_interfacelist  usbinterface:/sys/bus/usb/devices/1-0:1.0/ and class:9";
    const std::string owned =
            "\nprint_interfacelist  usbinterface:/sys/bus/usb/devices/2-1:1.0/ and class:8"
            "\n\t parent vendorid : 4660, productid: 43981,parent path: 2-1,manufacturer: Maker"
            ",product: Product,deviceId:2005 devCategory: 4";
    const bool orphan_first = std::string(interfaces()[0]->name) == "1-0:1.0";
    EXPECT_EQ(interface_list(), orphan_first ? orphan + owned : owned + orphan);
}

TEST_F(PrintTest, TheInterfaceListClassifiesAgain) {
    add_device("1-1");
    add_interface("1-1:1.0");
    discover_and_connect();
    EXPECT_EQ(interface("1-1:1.0")->category, 0);
    MakeDir(UsbPath("1-1:1.0", "tty/ttyACM0"));
    EXPECT_NE(interface_list().find(" devCategory: 2"), std::string::npos);
    EXPECT_STREQ(interface("1-1:1.0")->category_path, "ttyACM0");
}

TEST_F(PrintTest, ADescriptorThatTakesNothingIsNoMatter) {
    add_hub_with_keyboard();
    const base::unique_fd read_only(open("/sys", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    EXPECT_EQ(stderr_of([&] { UsbDevice::dump_print_test(read_only.get()); }), "");
    EXPECT_EQ(map_names().size(), 2u);
}

TEST_F(PrintTest, ADumpIsTheTreeTheListAndTheMap) {
    put_record(77, "stale");
    add_bus("usb1");
    add_device("1-1");
    add_interface("1-1:1.0", {{"bInterfaceClass", "08\n"}});
    std::vector<std::string> lines;
    int dump_fd = -1;
    const std::string text = written_by([&](int fd) {
        dump_fd = fd;
        lines = log_of([fd] { UsbDevice::dump_print_test(fd); });
    });
    EXPECT_EQ(text, std::string("   |__  Port : 1, DevNum : 2, If : 0, Class : 8, Driver :  \n"
                                "       Vendor:Product ID 1234:abcd \n"
                                "/sys/bus/usb/devices/1-1  /dev/bus/usb/001/002\n"
                                "printing interfaces for device device:1-1 and "
                                "first_interface:1-1:1.0 \n"
                                "parent_portnum:0\n") +
                            kStars +
                            "\nprint_interfacelist  usbinterface:/sys/bus/usb/devices/1-1:1.0/ and "
                            "class:8"
                            "\n\t parent vendorid : 4660, productid: 43981,parent path: 1-1,"
                            "manufacturer: Maker,product: Product,deviceId:1002 devCategory: 4"
                            "\n\nDeviceIdMap size1\n"
                            " \n DeviceId : 1002, Interface name : 1-1:1.0, class : 8, Vendor ID : "
                            "4660, Product ID : 43981\n");
    EXPECT_THAT(lines, ElementsAre("I dump_print_test called " + std::to_string(dump_fd),
                                   "I print_tree entered", "I print_tree_dev_children entered",
                                   "I ID 4660:43981", "I print_tree_dev_children entered",
                                   "I deleting the list using deleteAllnode",
                                   "I ***Entered empty_list******", "I print_deviceid_map ",
                                   "I  DeviceId: 1002 Interface name:1-1:1.0 class:8 Vendor "
                                   "ID:4660 Product ID:43981"));
    EXPECT_THAT(map_names(), ElementsAre("1002:1-1:1.0"));
}

TEST_F(PrintTest, ADumpWithoutTheDirectoryIsSilentAndEmpty) {
    put_record(77, "stale");
    std::filesystem::remove_all("/sys/bus");
    EXPECT_EQ(stderr_of([] {
                  EXPECT_EQ(written_by([](int fd) { UsbDevice::dump_print_test(fd); }),
                            "\n\nDeviceIdMap size0\n");
              }),
              "");
    EXPECT_THAT(map_names(), IsEmpty());
}

}  // namespace
}  // namespace android::vus
