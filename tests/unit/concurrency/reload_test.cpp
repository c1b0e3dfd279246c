// SPDX-License-Identifier: Apache-2.0
//
// Decisions, lists, removals and dumps on eight threads while the policy is loaded again and again.

#include <fcntl.h>

#include <algorithm>

#include <android-base/unique_fd.h>

#include "android/vus/paths.h"
#include "android/vus/util.h"
#include "tests/unit/concurrency/concurrency_fixture.h"

namespace android::vus {
namespace {

constexpr int kReloads = 200;

// Two policies that judge one disk differently and for different reasons, so that a verdict that
// took the mode from one and the rules from the other is none of the two that there are.
constexpr char kClassWhitelist[] =
        "<usbconfig mode=\"whitelist\"><class>USB_CLASS_MASS_STORAGE</class>"
        "<class>AINPUT_SOURCE_MOUSE</class></usbconfig>";
constexpr char kVendorBlacklist[] =
        "<usbconfig mode=\"blacklist\"><vid vendorid=\"1921\"/>"
        "<class>AINPUT_SOURCE_KEYBOARD</class><class>AINPUT_SOURCE_MOUSE</class></usbconfig>";

struct Outcome {
    bool allowed;
    std::string reason;
};

const Outcome kDiskOutcomes[] = {
        {true, "Whitelisted: Match by ClassName, CLASS : USB_CLASS_MASS_STORAGE "},
        {false, "Blacklisted: Match by VID, VID : 1921"},
};
// A keyboard that is also a mouse needs both sources listed.
constexpr int32_t kKeyboardAndMouse = 0x100 | 0x2000;
const Outcome kInputOutcomes[] = {
        {false, "No matching rule found to Whitelist the device"},
        {false,
         "Blacklisted: Match by ClassName, CLASS : AINPUT_SOURCE_KEYBOARD "
         "AINPUT_SOURCE_MOUSE "},
};

class ReloadTest : public ConcurrencyTest {
  protected:
    // Judges a device that nobody else reports, looks itself up, and reports itself removed.
    template <size_t kCount>
    void JudgeListRemove(const DeviceInfo& info, const Outcome (&outcomes)[kCount],
                         std::array<std::atomic<int>, kCount>* seen) {
        const bool allowed = Judge(info);
        const std::optional<DeviceInfo> record = Find(info.deviceId);
        ASSERT_TRUE(record.has_value());
        const auto outcome =
                std::find_if(std::begin(outcomes), std::end(outcomes),
                             [&](const Outcome& o) { return o.reason == record->reason; });
        ASSERT_NE(outcome, std::end(outcomes)) << record->reason;
        EXPECT_EQ(allowed, outcome->allowed);
        EXPECT_EQ(record->status, allowed ? 1 : 0);
        ++(*seen)[static_cast<size_t>(outcome - outcomes)];
        ReportRemoved(info);
        EXPECT_FALSE(Find(info.deviceId).has_value());
    }

    void DumpTest() {
        const base::unique_fd null(open("/dev/null", O_WRONLY | O_CLOEXEC));
        Vector<String16> arguments;
        arguments.add(String16("test"));
        EXPECT_EQ(service_->dump(null.get(), arguments), OK);
        EXPECT_EQ(service_->dump(null.get(), {}), OK);
    }

    void Reload() {
        for (int i = 0; i < kReloads; ++i) {
            LoadPolicy(i % 2 == 0 ? kVendorBlacklist : kClassWhitelist);
            // Lets a decision or two pass under each.
            const int before = judged_;
            Eventually([&] { return judged_ != before || done_ > 0; });
        }
    }

    std::atomic<int> judged_{0};
    std::atomic<int> done_{0};
};

TEST_F(ReloadTest, EveryVerdictIsWhollyThatOfOnePolicy) {
    constexpr int kFlashDrives = 4;
    std::vector<DeviceInfo> disks;
    for (int i = 1; i <= kFlashDrives; ++i) {
        disks.push_back(
                UsbInfo(tree_->AddDevice("1-" + std::to_string(i), FlashDrive()), FlashDrive()));
    }
    LoadPolicy(kClassWhitelist);
    std::atomic<bool> reloading{true};
    std::array<std::atomic<int>, 2> disks_seen{};
    std::array<std::atomic<int>, 2> inputs_seen{};

    std::vector<std::function<void()>> bodies;
    for (int i = 0; i < kFlashDrives; ++i) {
        bodies.push_back([&, i] {
            while (reloading) {
                JudgeListRemove(disks[i], kDiskOutcomes, &disks_seen);
                if (HasFatalFailure()) break;
                ++judged_;
            }
            ++done_;
        });
    }
    for (int32_t id : {1, 2}) {
        bodies.push_back([&, id] {
            while (reloading && !HasFatalFailure()) {
                JudgeListRemove(InputInfo(id, kKeyboardAndMouse), kInputOutcomes, &inputs_seen);
            }
        });
    }
    bodies.push_back([&] {
        while (reloading) DumpTest();
    });
    bodies.push_back([&] {
        Reload();
        reloading = false;
    });
    ASSERT_EQ(bodies.size(), 8u);
    RunTogether(bodies);

    // Both policies were in force while the threads judged.
    for (const auto* seen : {&disks_seen, &inputs_seen}) {
        EXPECT_GT((*seen)[0], 0);
        EXPECT_GT((*seen)[1], 0);
    }
}

// As many threads as the binder pool has. Judging input devices asks no sysfs, and one with many
// classes takes long: these threads hold the policy most of the time.
TEST_F(ReloadTest, DecisionsWithoutAPauseDoNotKeepALoadOut) {
    std::atomic<bool> reloading{true};
    std::vector<std::function<void()>> bodies;
    for (int32_t id = 1; id <= 15; ++id) {
        bodies.push_back([&, id] {
            DeviceInfo info = InputInfo(id, kKeyboardAndMouse);
            info.interfaceClassList.assign(255, 3);
            while (reloading) Judge(info);
        });
    }
    bodies.push_back([&] {
        for (int i = 0; i < 10; ++i) {
            ExpectToEnd("a load",
                        [&] { LoadPolicy(i % 2 == 0 ? kVendorBlacklist : kClassWhitelist); });
        }
        reloading = false;
    });
    RunTogether(bodies);
    EXPECT_EQ(Util::getMode(), "whitelist");
}

}  // namespace
}  // namespace android::vus
