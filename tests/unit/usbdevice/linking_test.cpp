// SPDX-License-Identifier: Apache-2.0

// Linking: who hangs on whom, which records that leaves in the map, and the end of it all.

#include <random>
#include <thread>

#include "android/vus/usbdevice_internal.h"
#include "usb_test.h"

namespace android::vus {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class LinkingTest : public UsbTest {};

TEST_F(LinkingTest, ATreeIsLinkedFromBusesToInterfaces) {
    for (const char* entry : {"1-1.2", "1-1"}) add_device(entry);
    for (const char* entry : {"1-0:1.0", "1-1:1.0", "1-1.2:1.0"}) add_interface(entry);
    add_bus("usb1");
    discover_and_connect();
    EXPECT_THAT(chain(bus("usb1")->first_child), ElementsAre("1-1"));
    EXPECT_EQ(bus("usb1")->first_interface, nullptr);
    const usbdevice* const hub = device("1-1");
    const usbdevice* const leaf = device("1-1.2");
    EXPECT_EQ(hub->parent, nullptr);
    EXPECT_EQ(hub->first_child, leaf);
    EXPECT_EQ(leaf->parent, hub);
    EXPECT_EQ(leaf->parent_portnum, 1u);
    EXPECT_EQ(leaf->portnum, 2u);
    EXPECT_THAT(chain(hub->first_interface), ElementsAre("1-1:1.0"));
    EXPECT_THAT(chain(leaf->first_interface), ElementsAre("1-1.2:1.0"));
    EXPECT_EQ(interface("1-1:1.0")->parent, hub);
    EXPECT_EQ(interface("1-0:1.0")->parent, nullptr);
    EXPECT_EQ(interface("1-0:1.0")->next, nullptr);
    EXPECT_THAT(map_names(), ::testing::UnorderedElementsAre("1002:1-1:1.0", "1002:1-1.2:1.0"));
}

TEST_F(LinkingTest, ChainsAreInListingOrder) {
    add_bus("usb1");
    add_device("1-1");
    for (const char* entry : {"1-1.3", "1-1.1", "1-1.2", "1-2"}) add_device(entry);
    for (const char* entry : {"1-1:1.2", "1-1:1.0", "1-1:1.1"}) add_interface(entry);
    std::vector<std::string> children, roots, own;
    for (const std::string& name : listing(kUsbDevicesDir)) {
        if (name.find(':') != std::string::npos) {
            own.push_back(name);
        } else if (name.find("1-1.") == 0) {
            children.push_back(name);
        } else if (name.find("1-") == 0) {
            roots.push_back(name);
        }
    }
    discover_and_connect();
    EXPECT_EQ(chain(device("1-1")->first_child), children);
    EXPECT_EQ(chain(bus("usb1")->first_child), roots);
    EXPECT_EQ(chain(device("1-1")->first_interface), own);
}

TEST_F(LinkingTest, ADeviceWithoutItsHubIsAnOrphanWithInterfaces) {
    add_bus("usb3");
    add_device("3-1.4", {{"devnum", "9\n"}});
    add_interface("3-1.4:1.0");
    discover_and_connect();
    const usbdevice* const orphan = device("3-1.4");
    EXPECT_EQ(orphan->parent, nullptr);
    EXPECT_EQ(orphan->next, nullptr);
    EXPECT_EQ(bus("usb3")->first_child, nullptr);
    EXPECT_THAT(chain(orphan->first_interface), ElementsAre("3-1.4:1.0"));
    EXPECT_THAT(map_names(), ElementsAre("3009:3-1.4:1.0"));
}

TEST_F(LinkingTest, AParentMatchesInBusPortAndName) {
    const struct {
        uint32_t busnum, portnum;
        const char* name;
        bool is_parent;
    } cases[] = {{1, 2, "1-2", true},  {2, 2, "1-2", false},   {1, 3, "1-2", false},
                 {1, 2, "1-3", false}, {1, 2, "1-2.4", false}, {1, 2, "1-", false}};
    stderr_of([] {
        UsbDevice::add_usb_device("1-2.4");
        UsbDevice::add_usb_device("1-7");
    });
    usbdevice* const child = devices()[0];
    usbdevice* const candidate = devices()[1];
    for (const auto& expected : cases) {
        child->parent = nullptr;
        candidate->first_child = nullptr;
        candidate->busnum = expected.busnum;
        candidate->portnum = expected.portnum;
        strcpy(candidate->name, expected.name);
        UsbDevice::assign_dev_to_parent(child);
        EXPECT_EQ(child->parent == candidate, expected.is_parent) << expected.name;
        EXPECT_EQ(candidate->first_child == child, expected.is_parent) << expected.name;
    }
}

TEST_F(LinkingTest, NearMissesAreNoParents) {
    for (const char* entry : {"2-1", "1-3", "1-2.1", "1-1.4"}) add_device(entry);
    discover_and_connect();
    EXPECT_EQ(device("1-1.4")->parent, nullptr);
    EXPECT_EQ(device("1-2.1")->parent, nullptr);
    EXPECT_EQ(device("2-1")->first_child, nullptr);
    EXPECT_EQ(device("1-3")->first_child, nullptr);
}

TEST_F(LinkingTest, ANameWithoutADotFindsNoHub) {
    add_device("1-1");
    add_device("1-1-2");
    discover_and_connect();
    EXPECT_EQ(device("1-1-2")->parent_portnum, 1u);
    EXPECT_EQ(device("1-1-2")->parent, nullptr);
    EXPECT_EQ(device("1-1")->first_child, nullptr);
}

TEST_F(LinkingTest, ADeviceHangsOnEveryBusOfItsNumberAndWalksEnd) {
    add_bus("usb1");
    add_bus("usb1x");
    for (const char* entry : {"1-1", "1-2", "1-3"}) {
        add_device(entry);
        add_interface(std::string(entry) + ":1.0");
    }
    discover_and_connect();
    EXPECT_THAT(chain(bus("usb1")->first_child),
                ::testing::UnorderedElementsAre("1-1", "1-2", "1-3"));
    EXPECT_EQ(chain(bus("usb1x")->first_child), chain(bus("usb1")->first_child));
}

TEST_F(LinkingTest, AnInterfaceOfConfigurationZeroIsTakenByItsBusOnce) {
    add_bus("usb1");
    for (const char* entry : {"1-1", "1-2", "1-3"}) add_device(entry);
    add_interface("1-0:0.0");
    add_interface("1-9:0.1");
    add_interface("1-9:1.0");
    add_interface("7-0:0.0");
    discover_and_connect();
    EXPECT_THAT(chain(bus("usb1")->first_interface),
                ::testing::UnorderedElementsAre("1-0:0.0", "1-9:0.1"));
    EXPECT_EQ(interface("1-0:0.0")->parent, nullptr);
    EXPECT_THAT(map_names(), IsEmpty());
}

TEST_F(LinkingTest, AnInterfaceIsAttachedOnce) {
    add_device("1-1");
    add_interface("1-1:1.0");
    add_interface("1-1:1.1");
    discover();
    usbdevice* const owner = device("1-1");
    for (int i = 0; i < 2; ++i) {
        UsbDevice::assign_interface_to_parent(owner, interface("1-1:1.0"));
        UsbDevice::assign_interface_to_parent(owner, interface("1-1:1.1"));
    }
    EXPECT_THAT(chain(owner->first_interface), ElementsAre("1-1:1.0", "1-1:1.1"));
}

TEST_F(LinkingTest, AnInterfaceStaysWithTheFirstDeviceThatTakesIt) {
    stderr_of([] {
        UsbDevice::add_usb_device("1-1");
        UsbDevice::add_usb_device("1-1");
        UsbDevice::add_usb_interface("1-1:1.0");
    });
    UsbDevice::connect_devices();
    EXPECT_EQ(interfaces()[0]->parent, devices()[0]);
    EXPECT_EQ(devices()[1]->first_interface, nullptr);
    EXPECT_EQ(map_names().size(), 1u);
}

TEST_F(LinkingTest, AnInterfaceNameWithoutAColonOrABusIsLeftAlone) {
    usbdevice owner = {};
    strcpy(owner.name, "1-1");
    for (const char* name : {"1-1", "", "x-1:0.0", ":0.0"}) {
        usbinterface loose = {};
        strcpy(loose.name, name);
        UsbDevice::assign_interface_to_parent(&owner, &loose);
        EXPECT_EQ(loose.parent, nullptr) << name;
        EXPECT_EQ(owner.first_interface, nullptr) << name;
    }
}

TEST_F(LinkingTest, RecordsHoldWhatIsNeededOfInterfaceAndDevice) {
    add_device("2-3", {{"devnum", "5\n"},
                       {"idVendor", "046d\n"},
                       {"idProduct", "c31c\n"},
                       {"manufacturer", std::string(63, 'm')},
                       {"product", std::string(64, 'p')}});
    add_interface("2-3:1.1", {{"bInterfaceClass", "08\n"},
                              {"bInterfaceNumber", "01\n"},
                              {"bInterfaceProtocol", "50\n"},
                              {"bInterfaceSubClass", "06\n"}});
    discover_and_connect();
    const std::vector<usbinterface_custom> records = UsbDevice::get_deviceid_data(2005);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].bInterfaceClass, 8u);
    EXPECT_EQ(records[0].bInterfaceNumber, 1u);
    EXPECT_EQ(records[0].bInterfaceProtocol, 0x50u);
    EXPECT_EQ(records[0].bInterfaceSubClass, 6u);
    EXPECT_STREQ(records[0].name, "2-3:1.1");
    EXPECT_EQ(records[0].busnum, 2);
    EXPECT_EQ(records[0].devnum, 5);
    EXPECT_EQ(records[0].idVendor, 0x046du);
    EXPECT_EQ(records[0].idProduct, 0xc31cu);
    EXPECT_EQ(records[0].manufacturer, std::string(63, 'm'));
    EXPECT_STREQ(records[0].product, "");
    EXPECT_EQ(records[0].category, 4);
    EXPECT_STREQ(records[0].category_path, "sdcard");
}

TEST_F(LinkingTest, LinkingAddsToTheMapAfterEqualKeys) {
    put_record(1002, "earlier");
    put_record(9, "other");
    add_device("1-1");
    add_interface("1-1:1.0");
    discover_and_connect();
    EXPECT_THAT(map_names(), ElementsAre("9:other", "1002:earlier", "1002:1-1:1.0"));
}

TEST_F(LinkingTest, LinkingTracesEachRecord) {
    add_device("1-1");
    add_interface("1-1:1.0", {{"bInterfaceClass", "08\n"}});
    discover();
    UsbDevice::verbose_log = true;
    EXPECT_THAT(log_of([] { UsbDevice::connect_devices(); }),
                ElementsAre("I path of dir:/sys/bus/usb/devices/1-1:1.0",
                            "I Other category default to none",
                            "I creating object and populating map  usbinterface:1-1:1.0 and class: "
                            "8",
                            "I creating object and populating \t parent vendorid : 4660, "
                            "productid: "
                            "43981,parent path: 1-1,manufacturer: Maker,product: Product,"
                            "deviceId:1002",
                            "I creating object and populating category_pathsdcard and category:4 "
                            "interface path:1-1:1.0"));
}

TEST_F(LinkingTest, NothingConnectsToNothing) {
    put_record(1, "kept");
    EXPECT_THAT(log_of([] { UsbDevice::connect_devices(); }), IsEmpty());
    EXPECT_THAT(map_names(), ElementsAre("1:kept"));
}

TEST_F(LinkingTest, TeardownEmptiesEveryListWithItsTwoLines) {
    add_bus("usb1");
    add_bus("usb2");
    add_device("1-1");
    add_interface("1-1:1.0");
    discover_and_connect();
    EXPECT_THAT(log_of([] {
                    UsbDevice::delete_all_nodes();
                    UsbDevice::empty_list();
                }),
                ElementsAre("I deleting the list using deleteAllnode",
                            "I ***Entered empty_list******"));
    EXPECT_EQ(UsbDevice::bus_list, nullptr);
    EXPECT_EQ(UsbDevice::device_list.next, &UsbDevice::device_list);
    EXPECT_EQ(UsbDevice::device_list.prev, &UsbDevice::device_list);
    EXPECT_EQ(UsbDevice::interface_list.next, &UsbDevice::interface_list);
    EXPECT_EQ(UsbDevice::interface_list.prev, &UsbDevice::interface_list);
    EXPECT_THAT(map_names(), ElementsAre("1002:1-1:1.0")) << "the map outlives the tree";
}

TEST_F(LinkingTest, EachThreadHasItsOwnLists) {
    add_bus("usb1");
    add_device("1-1");
    discover();
    std::thread([] {
        EXPECT_EQ(UsbDevice::bus_list, nullptr);
        EXPECT_THAT(devices(), IsEmpty());
        discover();
        EXPECT_EQ(devices().size(), 1u);
        UsbDevice::delete_all_nodes();
        UsbDevice::empty_list();
    }).join();
    EXPECT_THAT(names_of(devices()), ElementsAre("1-1"));
    EXPECT_THAT(chain(UsbDevice::bus_list), ElementsAre("usb1"));
}

// Linking by name must leave what trying every pair leaves, whatever the names are.
class ManyTreesTest : public LinkingTest {
  protected:
    static void make_nodes(const std::vector<std::string>& names) {
        UsbDevice::delete_all_nodes();
        UsbDevice::empty_list();
        stderr_of([&] {
            stdout_of([&] {
                for (const std::string& name : names) UsbDevice::inspect_bus_entry(name.c_str());
            });
        });
    }
    static void try_every_pair() {
        for (usbdevice* device : devices()) {
            if (device->parent_portnum != 0) {
                UsbDevice::assign_dev_to_parent(device);
            } else {
                for (usbbusnode* bus = UsbDevice::bus_list; bus != nullptr; bus = bus->next) {
                    if (bus->busnum != device->busnum) continue;
                    usb::append_to_chain(&bus->first_child, device);
                }
            }
            for (usbinterface* interface : interfaces()) {
                if (interface->parent == nullptr) {
                    UsbDevice::assign_interface_to_parent(device, interface);
                }
            }
        }
    }
    // Every link of every node, by name.
    static std::vector<std::string> links() {
        const auto name = [](const auto* node) { return node != nullptr ? node->name : "-"; };
        std::vector<std::string> links;
        for (usbbusnode* bus = UsbDevice::bus_list; bus != nullptr; bus = bus->next) {
            links.push_back(std::string(bus->name) + " child " + name(bus->first_child) +
                            " interface " + name(bus->first_interface));
        }
        for (const usbdevice* device : devices()) {
            links.push_back(std::string(device->name) + " parent " + name(device->parent) +
                            " next " + name(device->next) + " child " + name(device->first_child) +
                            " interface " + name(device->first_interface));
        }
        for (const usbinterface* interface : interfaces()) {
            links.push_back(std::string(interface->name) + " parent " + name(interface->parent) +
                            " next " + name(interface->next));
        }
        return links;
    }
};

TEST_F(ManyTreesTest, LinkingByNameIsTryingEveryPair) {
    const uint32_t seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto pick = [&random](const std::vector<const char*>& choices) {
        return std::string(choices[random() % choices.size()]);
    };
    const std::string long_name = "1-1" + std::string(260, '1');
    for (int round = 0; round < 100; ++round) {
        std::vector<std::string> names;
        for (int entry = 0; entry < 25; ++entry) {
            std::string name = pick({"1-", "2-", "1-", "10-"}) + pick({"1", "2", "3", "0"});
            while (random() % 2 == 0) name += pick({".1", ".2", "-1", ".1"});
            if (random() % 2 == 0) name += pick({":1.0", ":1.1", ":0.0", ":1.2", ":1.0"});
            if (random() % 10 == 0) name = pick({"usb1", "usb2", "usb1x"});
            if (random() % 50 == 0) name = long_name + pick({"2", "3", ":1.0"});
            names.push_back(name);
        }
        make_nodes(names);
        try_every_pair();
        const std::vector<std::string> expected = links();
        make_nodes(names);
        usb::link_nodes();
        ASSERT_EQ(links(), expected) << ::testing::PrintToString(names);
    }
}

}  // namespace
}  // namespace android::vus
