// SPDX-License-Identifier: Apache-2.0

// Discovery: what becomes a node, and what is read into it and in which order.

#include "usb_test.h"

namespace android::vus {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class TopologyTest : public UsbTest {
  protected:
    // The messages about numbers of an entry that are missing, in this order.
    static std::string missing(const std::string& entry, const std::vector<std::string>& names) {
        std::string text;
        for (const std::string& name : names) {
            text += UsbPath(entry, name) + ": No such file or directory\n";
        }
        return text;
    }
    // The device that an entry parses to, which must be the only one.
    static usbdevice parse_device(const std::string& entry) {
        stderr_of([&] { UsbDevice::add_usb_device(entry.c_str()); });
        EXPECT_EQ(devices().size(), 1u) << entry;
        const usbdevice device = devices().empty() ? usbdevice{} : *devices().front();
        UsbDevice::delete_all_nodes();
        return device;
    }
};

TEST_F(TopologyTest, EntriesAreToldApartByTheirNames) {
    const std::string text = stderr_of([] {
        for (const char* entry : {"usb1", "usb12x", "1-1", "1-1:1.0", "7", ".", ".."}) {
            UsbDevice::inspect_bus_entry(entry);
        }
    });
    EXPECT_EQ(text.find("ignoring"), std::string::npos) << text;
    EXPECT_THAT(chain(UsbDevice::bus_list), ElementsAre("usb1", "usb12x"));
    EXPECT_EQ(bus("usb1")->busnum, 1u);
    EXPECT_EQ(bus("usb12x")->busnum, 12u);
    EXPECT_THAT(names_of(devices()), ElementsAre("1-1", "7"));
    ASSERT_EQ(interfaces().size(), 1u);
    EXPECT_STREQ(interfaces()[0]->name, "1-1:1.0");
}

TEST_F(TopologyTest, OtherEntriesAreIgnoredWithAMessage) {
    for (const std::string entry : {"usbfoo", "usb", "us", "u", "driver", ".cache", "...", "-1",
                                    "USB1", "", " 1-1", "ubs1", ":1.0", "\xff"}) {
        EXPECT_EQ(stderr_of([&] {
                      EXPECT_EQ(stdout_of([&] { UsbDevice::inspect_bus_entry(entry.c_str()); }),
                                "");
                  }),
                  "ignoring '" + entry + "'\n");
    }
    EXPECT_EQ(UsbDevice::bus_list, nullptr);
    EXPECT_THAT(devices(), IsEmpty());
    EXPECT_THAT(interfaces(), IsEmpty());
}

TEST_F(TopologyTest, ABusReadsItsAttributesInTheirBases) {
    add_bus("usb3", {{"devnum", "10\n"},
                     {"bDeviceClass", "11\n"},
                     {"idProduct", "12\n"},
                     {"idVendor", "1d6b\n"},
                     {"maxchild", "14\n"},
                     {"speed", "10000\n"},
                     {"rx_lanes", "16\n"},
                     {"tx_lanes", "17\n"}});
    EXPECT_EQ(stderr_of([] { UsbDevice::add_usb_bus("usb3"); }), "");
    const usbbusnode* const node = UsbDevice::bus_list;
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->busnum, 3u);
    EXPECT_EQ(node->devnum, 10u);
    EXPECT_EQ(node->bDeviceClass, 0x11u);
    EXPECT_EQ(node->idProduct, 0x12u);
    EXPECT_EQ(node->idVendor, 0x1d6bu);
    EXPECT_EQ(node->maxchild, 14u);
    EXPECT_STREQ(node->speed, "10000");
    EXPECT_EQ(node->rx_lanes, 16u);
    EXPECT_EQ(node->tx_lanes, 17u);
    EXPECT_STREQ(node->name, "usb3");
    EXPECT_STREQ(node->driver, "");
    EXPECT_EQ(node->next, nullptr);
    EXPECT_EQ(node->first_child, nullptr);
    EXPECT_EQ(node->first_interface, nullptr);
}

TEST_F(TopologyTest, TheSpeedOfABusIsBoundedByItsField) {
    add_bus("usb1", {{"speed", "1234567"}});
    add_bus("usb2", {{"speed", "12345678"}});
    add_bus("usb3", {{"speed", "1234567\n"}});
    add_bus("usb4", {{"speed", std::string(1000, '9')}, {"rx_lanes", "7\n"}});
    discover();
    EXPECT_STREQ(bus("usb1")->speed, "1234567");
    EXPECT_STREQ(bus("usb2")->speed, "");
    EXPECT_STREQ(bus("usb3")->speed, "");
    EXPECT_STREQ(bus("usb4")->speed, "");
    EXPECT_EQ(bus("usb4")->rx_lanes, 7u);
}

TEST_F(TopologyTest, ADeviceReadsItsAttributesInTheirBases) {
    add_device("1-1", {{"bDeviceClass", "10\n"},
                       {"bDeviceProtocol", "11\n"},
                       {"bDeviceSubClass", "12\n"},
                       {"bMaxPacketSize0", "64\n"},
                       {"bMaxPower", "500mA\n"},
                       {"bNumConfigurations", "14\n"},
                       {"bNumInterfaces", " 15\n"},
                       {"bcdDevice", "0316\n"},
                       {"bmAttributes", "e0\n"},
                       {"configuration", "18\n"},
                       {"devnum", "19\n"},
                       {"idProduct", "c31c\n"},
                       {"idVendor", "046d\n"},
                       {"maxchild", "22\n"},
                       {"manufacturer", "Maker\nof things\n"},
                       {"product", " Product \n"},
                       {"serial", "S/N\n"},
                       {"version", " 3.20\n"},
                       {"speed", "20000\n"},
                       {"rx_lanes", "28\n"},
                       {"tx_lanes", "29\n"},
                       {"bConfigurationValue", "1\n"}});
    link("../../bus/usb/drivers/usb", UsbPath("1-1", "driver"));
    EXPECT_EQ(stderr_of([] { UsbDevice::add_usb_device("1-1"); }), "");
    ASSERT_EQ(devices().size(), 1u);
    const usbdevice& node = *devices()[0];
    EXPECT_EQ(node.busnum, 1u);
    EXPECT_EQ(node.bDeviceClass, 0x10u);
    EXPECT_EQ(node.bDeviceProtocol, 0x11u);
    EXPECT_EQ(node.bDeviceSubClass, 0x12u);
    EXPECT_EQ(node.bMaxPacketSize0, 0x64u);
    EXPECT_STREQ(node.bMaxPower, "500mA");
    EXPECT_EQ(node.bNumConfigurations, 14u);
    EXPECT_EQ(node.bNumInterfaces, 0x15u);
    EXPECT_EQ(node.bcdDevice, 0x0316u);
    EXPECT_EQ(node.bmAttributes, 0xe0u);
    EXPECT_EQ(node.configuration, 18u);
    EXPECT_EQ(node.devnum, 19u);
    EXPECT_EQ(node.idProduct, 0xc31cu);
    EXPECT_EQ(node.idVendor, 0x046du);
    EXPECT_EQ(node.maxchild, 22u);
    EXPECT_STREQ(node.manufacturer, "Maker of things");
    EXPECT_STREQ(node.product, " Product ");
    EXPECT_STREQ(node.serial, "S/N");
    EXPECT_STREQ(node.version, " 3.20");
    EXPECT_STREQ(node.speed, "20000");
    EXPECT_EQ(node.rx_lanes, 28u);
    EXPECT_EQ(node.tx_lanes, 29u);
    EXPECT_STREQ(node.name, "1-1");
    EXPECT_STREQ(node.driver, "usb");
    EXPECT_EQ(node.bConfigurationValue, 0u) << "is read only for a name that does not fit";
    EXPECT_EQ(node.parent, nullptr);
}

TEST_F(TopologyTest, AnInterfaceReadsItsAttributesInTheirBases) {
    add_interface("1-1:1.2", {{"bAlternateSetting", " 10\n"},
                              {"bInterfaceClass", "0e\n"},
                              {"bInterfaceNumber", "12\n"},
                              {"bInterfaceProtocol", "13\n"},
                              {"bInterfaceSubClass", "14\n"},
                              {"bNumEndpoints", "15\n"}});
    link("/sys/bus/usb/drivers/usbhid", UsbPath("1-1:1.2", "driver"));
    EXPECT_EQ(stderr_of([] { UsbDevice::add_usb_interface("1-1:1.2"); }), "");
    ASSERT_EQ(interfaces().size(), 1u);
    const usbinterface& node = *interfaces()[0];
    EXPECT_EQ(node.configuration, 1u);
    EXPECT_EQ(node.ifnum, 2u);
    EXPECT_EQ(node.bAlternateSetting, 10u);
    EXPECT_EQ(node.bInterfaceClass, 0x0eu);
    EXPECT_EQ(node.bInterfaceNumber, 0x12u);
    EXPECT_EQ(node.bInterfaceProtocol, 0x13u);
    EXPECT_EQ(node.bInterfaceSubClass, 0x14u);
    EXPECT_EQ(node.bNumEndpoints, 0x15u);
    EXPECT_STREQ(node.name, "1-1:1.2");
    EXPECT_STREQ(node.driver, "usbhid");
    EXPECT_EQ(node.category, 0);
    EXPECT_STREQ(node.category_path, "");
    EXPECT_EQ(node.parent, nullptr);
}

TEST_F(TopologyTest, MissingNumbersAreReportedInReadingOrder) {
    const std::vector<std::string> bus_numbers = {"devnum",   "bDeviceClass", "idProduct",
                                                  "idVendor", "maxchild",     "rx_lanes",
                                                  "tx_lanes"};
    const std::vector<std::string> device_numbers =
            {"bDeviceClass",       "bDeviceProtocol", "bDeviceSubClass", "bMaxPacketSize0",
             "bNumConfigurations", "bNumInterfaces",  "bcdDevice",       "bmAttributes",
             "configuration",      "devnum",          "idProduct",       "idVendor",
             "maxchild",           "rx_lanes",        "tx_lanes"};
    const std::vector<std::string> interface_numbers = {"bAlternateSetting",  "bInterfaceClass",
                                                        "bInterfaceNumber",   "bInterfaceProtocol",
                                                        "bInterfaceSubClass", "bNumEndpoints"};
    // Both for a directory without attributes and for none at all: the messages are the same.
    for (const bool present : {true, false}) {
        for (const char* entry : {"usb1", "1-1", "1-1:1.0"}) {
            if (present) MakeDir(UsbPath(entry));
            if (!present) std::filesystem::remove_all(UsbPath(entry));
        }
        EXPECT_EQ(stderr_of([] { UsbDevice::add_usb_bus("usb1"); }), missing("usb1", bus_numbers));
        EXPECT_EQ(stderr_of([] { UsbDevice::add_usb_device("1-1"); }),
                  missing("1-1", device_numbers));
        EXPECT_EQ(stderr_of([] { UsbDevice::add_usb_interface("1-1:1.0"); }),
                  missing("1-1:1.0", interface_numbers));
    }
}

TEST_F(TopologyTest, ANodeWithoutAttributesIsAllZeroesAndEmptyTexts) {
    MakeDir(UsbPath("1-1"));
    const usbdevice node = parse_device("1-1");
    EXPECT_EQ(node.idVendor, 0u);
    EXPECT_EQ(node.devnum, 0u);
    EXPECT_STREQ(node.bMaxPower, "");
    EXPECT_STREQ(node.manufacturer, "");
    EXPECT_STREQ(node.serial, "");
    EXPECT_STREQ(node.driver, "");
}

TEST_F(TopologyTest, AnEntryThatIsAFileGivesANodeAndTheSystemsWords) {
    WriteFile(UsbPath("1-1:1.0"), "a file where a directory is expected");
    const std::string text = stderr_of([] { UsbDevice::add_usb_interface("1-1:1.0"); });
    EXPECT_EQ(text.substr(0, text.find('\n')),
              UsbPath("1-1:1.0", "bAlternateSetting") + ": Not a directory");
    EXPECT_EQ(interfaces().size(), 1u);
}

TEST_F(TopologyTest, APortChainKeepsItsLastTwoPorts) {
    const struct {
        const char* entry;
        uint32_t busnum, parent_port, port;
    } cases[] = {
            {"1-2", 1, 0, 2},
            {"1-2.4", 1, 2, 4},
            {"1-2.4.1", 1, 4, 1},
            {"12-15.14.13.12", 12, 13, 12},
            {"1", 1, 0, 0},
            {"1-", 1, 0, 0},
            {"1-x", 1, 0, 0},
            {"1-2.", 1, 0, 2},
            {"1-2.x", 1, 0, 2},
            {"1-2x4", 1, 2, 4},
            {"1--2", 1, 0, 0},
            {"1- 2", 1, 0, 0},
            {"1-2..4", 1, 0, 2},
            {"1-0", 1, 0, 0},
            {"1-4294967295", 1, 0, UINT32_MAX},
            {"4294967298-1", 2, 0, 1},
            {"1-99999999999999999999999", 1, 0, UINT32_MAX},
    };
    for (const auto& expected : cases) {
        const usbdevice node = parse_device(expected.entry);
        EXPECT_EQ(node.busnum, expected.busnum) << expected.entry;
        EXPECT_EQ(node.parent_portnum, expected.parent_port) << expected.entry;
        EXPECT_EQ(node.portnum, expected.port) << expected.entry;
    }
}

TEST_F(TopologyTest, EntriesThatDoNotParseGiveNoNodeAndNoWord) {
    EXPECT_EQ(stderr_of([this] {
                  EXPECT_THAT(log_of([] {
                                  UsbDevice::add_usb_device("x-1");
                                  UsbDevice::add_usb_device("");
                                  for (const char* entry :
                                       {"1-1:", "1-1:1", "1-1:1.", "1-1:x.0", "1-1:.0", "1-1:1.x",
                                        "1-1:-1.0", "1-1:1.-1", "1-1"}) {
                                      UsbDevice::add_usb_interface(entry);
                                  }
                              }),
                              IsEmpty());
              }),
              "");
    EXPECT_THAT(devices(), IsEmpty());
    EXPECT_THAT(interfaces(), IsEmpty());
}

TEST_F(TopologyTest, AnInterfacesNumbersFollowItsFirstColon) {
    const struct {
        const char* entry;
        uint32_t configuration, ifnum;
    } cases[] = {{"1-2:1.0", 1, 0},     {"1-2:10.11", 10, 11}, {"1-2:1x7", 1, 7},
                 {"1-2:3.4:5.6", 3, 4}, {"1-2:1.2x", 1, 2},    {"1:0.255", 0, 255}};
    for (const auto& expected : cases) {
        stderr_of([&] { UsbDevice::add_usb_interface(expected.entry); });
        ASSERT_EQ(interfaces().size(), 1u) << expected.entry;
        EXPECT_EQ(interfaces()[0]->configuration, expected.configuration) << expected.entry;
        EXPECT_EQ(interfaces()[0]->ifnum, expected.ifnum) << expected.entry;
        UsbDevice::delete_all_nodes();
    }
}

TEST_F(TopologyTest, ANameOf254CharactersFits) {
    const std::string bus_name = "usb1" + std::string(250, 'x');
    const std::string device_name = "1-1" + std::string(251, 'x');
    const std::string interface_name = "1-1:1.0" + std::string(247, 'x');
    add_device(device_name, {{"bConfigurationValue", "7\n"}});
    stderr_of([&] {
        EXPECT_EQ(stdout_of([&] {
                      UsbDevice::add_usb_bus(bus_name.c_str());
                      UsbDevice::add_usb_device(device_name.c_str());
                      UsbDevice::add_usb_interface(interface_name.c_str());
                  }),
                  "");
    });
    EXPECT_EQ(UsbDevice::bus_list->name, bus_name);
    EXPECT_EQ(devices()[0]->name, device_name);
    EXPECT_EQ(devices()[0]->bConfigurationValue, 0u);
    EXPECT_EQ(interfaces()[0]->name, interface_name);
}

TEST_F(TopologyTest, ALongerNameIsCutAndSaidSoExceptForADevice) {
    for (const size_t length : {255, 300}) {
        const std::string bus_name = "usb1" + std::string(length - 4, 'x');
        const std::string device_name = "1-1" + std::string(length - 3, 'x');
        const std::string interface_name = "1-1:1.0" + std::string(length - 7, 'x');
        const auto warning = [](const std::string& name) {
            return "warning: '" + name + "' truncated to '" + name.substr(0, 254) + "'\n";
        };
        stderr_of([&] {
            EXPECT_EQ(stdout_of([&] { UsbDevice::add_usb_bus(bus_name.c_str()); }),
                      warning(bus_name));
            EXPECT_EQ(stdout_of([&] { UsbDevice::add_usb_device(device_name.c_str()); }), "");
            EXPECT_EQ(stdout_of([&] { UsbDevice::add_usb_interface(interface_name.c_str()); }),
                      warning(interface_name));
        });
        EXPECT_EQ(UsbDevice::bus_list->name, bus_name.substr(0, 254));
        EXPECT_EQ(devices()[0]->name, device_name.substr(0, 254));
        EXPECT_EQ(interfaces()[0]->name, interface_name.substr(0, 254));
        UsbDevice::delete_all_nodes();
        UsbDevice::empty_list();
    }
}

TEST_F(TopologyTest, OnlyADeviceWhoseNameDoesNotFitReadsItsConfigurationFirst) {
    const std::string name = "1-1" + std::string(252, 'x');
    add_device(name, {{"bConfigurationValue", "10\n"}});
    UsbDevice::add_usb_device(name.c_str());
    ASSERT_EQ(devices().size(), 1u);
    EXPECT_EQ(devices()[0]->bConfigurationValue, 10u);
    EXPECT_EQ(devices()[0]->idVendor, 0x1234u) << "is read by the whole name";

    std::filesystem::remove_all(UsbPath(name));
    const std::string text = stderr_of([&] { UsbDevice::add_usb_device(name.c_str()); });
    EXPECT_EQ(text.find(missing(name, {"bConfigurationValue", "bDeviceClass"})), 0u) << text;
}

TEST_F(TopologyTest, ADriverIsTheLastComponentOfItsLink) {
    const std::string long_name(254, 'd');
    const struct {
        std::string target, driver;
    } cases[] = {
            {"../../../bus/usb/drivers/usb-storage", "usb-storage"},
            {"/driver", "driver"},
            {"nowhere", ""},
            {"drivers/", ""},
            {"x/" + long_name, long_name},
            {"x/" + long_name + "e", long_name},
            {std::string(4085, 'x') + "/12345678", "12345678"},  // 4094 characters
            {std::string(4086, 'x') + "/12345678", ""},          // 4095
    };
    for (const auto& [target, driver] : cases) {
        for (const char* entry : {"1-1", "1-1:1.0", "usb1"}) MakeDir(UsbPath(entry));
        for (const char* path : {"1-1/driver", "1-1:1.0/driver", "driver"}) {
            link(target, UsbPath(path));
        }
        stderr_of([] {
            UsbDevice::add_usb_bus("usb1");
            UsbDevice::add_usb_device("1-1");
            UsbDevice::add_usb_interface("1-1:1.0");
        });
        EXPECT_EQ(UsbDevice::bus_list->driver, driver) << target.size();
        EXPECT_EQ(devices()[0]->driver, driver) << target.size();
        EXPECT_EQ(interfaces()[0]->driver, driver) << target.size();
        UsbDevice::delete_all_nodes();
        UsbDevice::empty_list();
        std::filesystem::remove_all(kUsbDevicesDir);
    }
}

TEST_F(TopologyTest, TheDriverOfABusIsThatOfItsController) {
    MakeDir("/sys/devices/pci0/usb1");
    link("/sys/bus/pci/drivers/xhci_hcd", "/sys/devices/pci0/driver");
    link("/sys/bus/usb/drivers/usb", "/sys/devices/pci0/usb1/driver");
    link("../../../devices/pci0/usb1", UsbPath("usb1"));
    stderr_of([] { UsbDevice::add_usb_bus("usb1"); });
    EXPECT_STREQ(UsbDevice::bus_list->driver, "xhci_hcd");
}

TEST_F(TopologyTest, TheDriverOfAnEntryIsReadAlsoWhereItIsNoDirectory) {
    WriteFile(UsbPath("1-1"), "a file");
    stderr_of([] { UsbDevice::add_usb_device("1-1"); });
    EXPECT_STREQ(devices()[0]->driver, "");
}

TEST_F(TopologyTest, AnOverlongDriverPathIsLogged) {
    const std::string digits(4500, '1');
    const auto errors_of = [this](const std::function<void()>& action) {
        return log_of([&] { stderr_of([&] { stdout_of(action); }); });
    };
    const auto length_of = [](const std::string& entry, const char* link) {
        return std::to_string(UsbPath(entry, link).size());
    };
    const std::string bus_name = "usb" + digits;
    EXPECT_THAT(errors_of([&] { UsbDevice::add_usb_bus(bus_name.c_str()); }),
                ElementsAre("E Cannot read driver link for " + bus_name + ": " + bus_name +
                            length_of(bus_name, "../driver")));
    const std::string device_name = digits + "-1";
    EXPECT_THAT(errors_of([&] { UsbDevice::add_usb_device(device_name.c_str()); }),
                ElementsAre("E Can not read driver link for " + device_name + ": " + device_name +
                            length_of(device_name, "driver")));
    const std::string interface_name = digits + "-1:1.0";
    EXPECT_THAT(errors_of([&] { UsbDevice::add_usb_interface(interface_name.c_str()); }),
                IsEmpty());
    EXPECT_EQ(interfaces().size(), 1u);
    UsbDevice::verbose_log = true;
    EXPECT_THAT(errors_of([&] { UsbDevice::add_usb_interface(interface_name.c_str()); }),
                ElementsAre("I  add_usb_interface  enter" + interface_name,
                            "I Can not read driver link for d_name:" + interface_name +
                                    "for: " + length_of(interface_name, "driver")));
}

TEST_F(TopologyTest, TheLongestPathIsStillRead) {
    const auto entry_for = [](const char* link, size_t length) {
        return std::string(length - UsbPath("", "").size() - 1 - strlen(link), '1');
    };
    stderr_of([&] {
        const std::string fits = entry_for("driver", 4095);
        ASSERT_EQ(UsbPath(fits, "driver").size(), 4095u);
        EXPECT_THAT(log_of([&] { UsbDevice::add_usb_device(fits.c_str()); }), IsEmpty());
        const std::string cut = entry_for("driver", 4096);
        EXPECT_EQ(log_of([&] { UsbDevice::add_usb_device(cut.c_str()); }).size(), 1u);
    });
}

TEST_F(TopologyTest, TraceLinesAppearOnlyWhenAskedFor) {
    add_bus("usb1");
    add_device("1-1");
    add_interface("1-1:1.0");
    const auto add_all = [] {
        UsbDevice::add_usb_bus("usb1");
        UsbDevice::add_usb_device("1-1");
        UsbDevice::add_usb_interface("1-1:1.0");
    };
    EXPECT_THAT(log_of(add_all), IsEmpty());
    UsbDevice::verbose_log = true;
    EXPECT_THAT(log_of(add_all),
                ElementsAre("I calling append_busnode usb1", "I  add_usb_device  enter1-1",
                            "I  add_usb_interface  enter1-1:1.0"));
}

}  // namespace
}  // namespace android::vus
