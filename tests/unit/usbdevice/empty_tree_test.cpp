// SPDX-License-Identifier: Apache-2.0

// A machine without USB: a cycle over nothing.

#include "usb_test.h"

namespace android::vus {
namespace {

using ::testing::IsEmpty;

class EmptyTreeTest : public UsbTest {
  protected:
    static void expect_no_nodes() {
        EXPECT_EQ(UsbDevice::bus_list, nullptr);
        EXPECT_THAT(devices(), IsEmpty());
        EXPECT_THAT(interfaces(), IsEmpty());
    }
};

TEST_F(EmptyTreeTest, ADirectoryOfDotsGivesNothingAndNoWord) {
    ASSERT_EQ(listing(kUsbDevicesDir).size(), 2u) << "\".\" and \"..\"";
    EXPECT_EQ(stderr_of([this] {
                  EXPECT_EQ(stdout_of([this] {
                                EXPECT_THAT(log_of([] { discover_and_connect(); }), IsEmpty());
                            }),
                            "");
              }),
              "");
    expect_no_nodes();
    EXPECT_THAT(map_names(), IsEmpty());
}

TEST_F(EmptyTreeTest, ATeardownOfNothingLeavesNothing) {
    for (int i = 0; i < 2; ++i) {
        UsbDevice::delete_all_nodes();
        UsbDevice::empty_list();
        expect_no_nodes();
        EXPECT_EQ(UsbDevice::device_list.prev, &UsbDevice::device_list);
        EXPECT_EQ(UsbDevice::interface_list.prev, &UsbDevice::interface_list);
    }
}

}  // namespace
}  // namespace android::vus
