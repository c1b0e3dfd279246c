// SPDX-License-Identifier: Apache-2.0
//
// A reporter between a daemon and switches that are the test's own.

#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "tests/unit/tools/fake_service.h"
#include "tests/unit/tools/fake_switches.h"
#include "tools/hotplug/reporter.h"

namespace android::vus::hotplug {

inline constexpr char kHid[] = "0003:0627:0001.0001";
inline const Subject kStick = {"1-2", 1005};
inline const Subject kInputDevice = {"input5"};

inline Sighting Usb(int32_t id, std::vector<int32_t> classes) {
    Sighting seen;
    seen.info.emplace();
    seen.info->deviceId = id;
    seen.info->interfaceClassList = std::move(classes);
    seen.bare = seen.info->interfaceClassList.empty();
    return seen;
}

inline Sighting Input(int32_t id, const std::string& hid_device) {
    Sighting seen;
    seen.info.emplace();
    seen.info->deviceType = kInputType;
    seen.info->deviceId = id;
    seen.hid_device = hid_device;
    return seen;
}

class SwitchingTest : public testing::Test {
  protected:
    void SetUp() override {
        fake_->note_lists = false;
        fake_->allow = [this](const DeviceInfo&) { return allows_.load(); };
        reporter_ = std::make_unique<Reporter>(&switches_, Manner(/*fail_closed=*/false));
        reporter_->set_service(fake_);
    }

    void TearDown() override { reporter_.reset(); }

    Reporter::Manner Manner(bool fail_closed) {
        return {fail_closed, nullptr, [this](const std::string& line) {
                    const std::lock_guard<std::mutex> lock(mutex_);
                    notices_.push_back(line);
                }};
    }

    void Judge(const Subject& device, const Sighting& seen, Ask when = Ask::kAlways) {
        reporter_->judge(
                device, [seen] { return seen; }, when);
    }
    std::vector<std::string> Switched() {
        reporter_->drain();
        return switches_.Take();
    }
    std::vector<std::string> Calls() {
        reporter_->drain();
        return fake_->Take();
    }
    std::vector<std::string> Notices() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return std::exchange(notices_, {});
    }
    // A service that does not answer about devices until it is let. Of one device alone it may say
    // in `asked` that it is asked.
    std::promise<void> Stall(std::promise<void>* asked = nullptr) {
        std::promise<void> answer;
        fake_->allow = [this, asked, let = answer.get_future().share()](const DeviceInfo&) {
            if (asked != nullptr) asked->set_value();
            let.wait();
            return allows_.load();
        };
        return answer;
    }
    void Refuse(const Subject& device, const Sighting& seen) {
        allows_ = false;
        Judge(device, seen);
        reporter_->drain();
        fake_->Take();
        switches_.Take();
        Notices();
    }

    std::atomic<bool> allows_{true};
    const Reporter::Clock::time_point start_ = Reporter::Clock::now();
    sp<FakeService> fake_ = new FakeService;
    FakeSwitches switches_;
    std::mutex mutex_;
    std::vector<std::string> notices_;
    std::unique_ptr<Reporter> reporter_;
};

}  // namespace android::vus::hotplug
