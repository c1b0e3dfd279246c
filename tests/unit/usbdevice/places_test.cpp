// SPDX-License-Identifier: Apache-2.0

// Where interfaces are below their buses' directories.

#include "android/vus/usbdevice_places.h"

#include <fcntl.h>

#include "usb_test.h"

namespace android::vus {
namespace {

using base::unique_fd;
using usb::Place;
using usb::Places;
using usb::way_below_bus;

TEST(WayBelowBusTest, FollowsThePorts) {
    EXPECT_EQ(way_below_bus("1-2:1.0"), "1-2/1-2:1.0");
    EXPECT_EQ(way_below_bus("1-2.4:1.0"), "1-2/1-2.4/1-2.4:1.0");
    EXPECT_EQ(way_below_bus("12-10.4.11:2.13"), "12-10/12-10.4/12-10.4.11/12-10.4.11:2.13");
}

TEST(WayBelowBusTest, ARootHubsInterfaceIsInTheBusItself) {
    EXPECT_EQ(way_below_bus("1-0:1.0"), "1-0:1.0");
    EXPECT_EQ(way_below_bus("12-0:1.0"), "12-0:1.0");
}

TEST(WayBelowBusTest, ThereIsNoneOfWhatIsNoInterface) {
    for (const char* entry : {"", "usb1", "1-2", "1-2.4", ":", "usb1:1.0", "1:1-0"}) {
        EXPECT_EQ(way_below_bus(entry), std::nullopt) << entry;
    }
}

class PlacesTest : public UsbTest {
  protected:
    void SetUp() override {
        UsbTest::SetUp();
        tree_.AddBus(1);
        tree_.AddDevice("1-2", Hub());
        tree_.AddDevice("1-2.4", SerialAdapter());
        devices_.reset(open(kUsbDevicesDir, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }

    static ino_t number_of(const Place& place) {
        struct stat status = {};
        return place.look(&status) ? status.st_ino : 0;
    }

    UsbTree tree_;
    unique_fd devices_;
};

TEST_F(PlacesTest, BothWaysLeadToTheSameDirectory) {
    Places places(devices_.get());
    for (const char* interface : {"1-0:1.0", "1-2:1.0", "1-2.4:1.0", "1-2.4:1.1"}) {
        const std::optional<Place> below_bus = places.by_bus(interface);
        ASSERT_TRUE(below_bus) << interface;
        EXPECT_NE(number_of(*below_bus), 0u) << interface;
        EXPECT_EQ(number_of(*below_bus), number_of(places.by_name(interface))) << interface;
    }
}

TEST_F(PlacesTest, AnEntryOfAnInterfaceIsSeenItselfNotWhatItLeadsTo) {
    link("/nowhere", UsbPath("1-2.4:1.0", "dangling"));
    struct stat status;
    Places places(devices_.get());
    EXPECT_TRUE(places.by_bus("1-2.4:1.0")->look_at("dangling", &status));
    EXPECT_TRUE(S_ISLNK(status.st_mode));
    EXPECT_TRUE(places.by_name("1-2.4:1.0").look_at("dangling", &status));
    EXPECT_FALSE(places.by_bus("1-2.4:1.0")->look_at("absent", &status));
}

TEST_F(PlacesTest, WithoutABusOrADescriptorThereIsNone) {
    Places places(devices_.get());
    EXPECT_FALSE(places.by_bus("7-1:1.0"));
    EXPECT_FALSE(places.by_bus("usb1"));
    EXPECT_FALSE(Places(-1).by_bus("1-2:1.0"));
}

}  // namespace
}  // namespace android::vus
