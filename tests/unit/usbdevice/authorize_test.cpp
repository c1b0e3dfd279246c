// SPDX-License-Identifier: Apache-2.0

// Whose interfaces are switched off: those of the device that was judged, and nobody else's.

#include "android/vus/device_map.h"
#include "tests/support/denied_call.h"
#include "usb_test.h"

namespace android::vus {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::SizeIs;

class AuthorizeTest : public UsbTest {
  protected:
    void SetUp() override {
        UsbTest::SetUp();
        tree_.AddBus(1);
        id_ = tree_.AddDevice("1-1", SerialAdapter());
        records_ = refresh_device_map(id_);
        ASSERT_THAT(records_, SizeIs(2));
    }
    static std::string authorized(const std::string& entry) {
        return ReadFile(UsbPath(entry, "authorized"));
    }
    // The judged device leaves, and another one comes to its port.
    int32_t swap() {
        tree_.Remove("1-1");
        return tree_.AddDevice("1-1", SerialAdapter());
    }
    std::string line_about(const std::string& interface, int32_t owner) const {
        return "E update_status not written: " + interface + " belongs to deviceId " +
               std::to_string(owner) + " by now, not to " + std::to_string(id_);
    }

    UsbTree tree_;
    int32_t id_ = 0;
    DeviceRecords records_;
};

TEST_F(AuthorizeTest, TheJudgedDeviceIsSwitchedOffByItsOwnRecords) {
    clear_map();
    authorize(id_, records_, 0);
    EXPECT_EQ(authorized("1-1:1.0"), "0\n");
    EXPECT_EQ(authorized("1-1:1.1"), "0\n");
}

TEST_F(AuthorizeTest, AnotherDeviceAtTheSamePortIsLeftAlone) {
    const int32_t owner = swap();
    ASSERT_NE(owner, id_);
    const std::vector<std::string> lines = log_of([this] { authorize(id_, records_, 0); });
    EXPECT_EQ(authorized("1-1:1.0"), "1\n");
    EXPECT_EQ(authorized("1-1:1.1"), "1\n");
    const std::string first = records_[0].name;
    EXPECT_THAT(lines,
                ElementsAre("I update_status path with deviceId 1002 status:0",
                            "I Found deviceId in native list : 1002\t interface path" + first,
                            "I update_status path is :" + UsbPath(first, "authorized"),
                            line_about(first, owner)))
            << "one line, and the end";
}

TEST_F(AuthorizeTest, TheMapsRecordsAreLookedAtTheSameWay) {
    const int32_t owner = swap();
    EXPECT_THAT(log_of([this] { UsbDevice::update_status(id_, 0); }),
                Contains(line_about(records_[0].name, owner)));
    EXPECT_EQ(authorized("1-1:1.0"), "1\n");
}

TEST_F(AuthorizeTest, ANumberThatCannotBeReadStopsNothing) {
    for (const char* number : {"", "\n", "none\n"}) {
        for (const usbinterface_custom& record : records_) {
            WriteFile(UsbPath(record.name, "authorized"), "1\n");
        }
        WriteFile(UsbPath("1-1", "devnum"), number);
        authorize(id_, records_, 0);
        EXPECT_EQ(authorized("1-1:1.0"), "0\n") << number;
        EXPECT_EQ(authorized("1-1:1.1"), "0\n") << number;
    }
    WriteFile(UsbPath("1-1:1.0", "authorized"), "1\n");
    RemoveFile(UsbPath("1-1", "devnum"));
    authorize(id_, records_, 0);
    EXPECT_EQ(authorized("1-1:1.0"), "0\n");
}

TEST_F(AuthorizeTest, ADeviceThatHasGoneIsAFailedOpen) {
    tree_.Remove("1-1");
    EXPECT_EQ(stderr_of([this] {
                  EXPECT_THAT(log_of([this] { authorize(id_, records_, 0); }),
                              Contains("E Error! Could not open file"));
              }),
              "Unable to open the file: No such file or directory\n");
}

TEST_F(AuthorizeTest, WithoutDescriptorsItIsTriedAgainAndThenSaid) {
    EXPECT_EQ(stderr_of([this] {
                  DeniedCall::run(SYS_openat, EMFILE, [this] { authorize(id_, records_, 0); });
              }),
              "Unable to open the file: Too many open files\n");
    EXPECT_EQ(authorized("1-1:1.0"), "1\n");
}

}  // namespace
}  // namespace android::vus
