// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <android-base/unique_fd.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "android/vus/paths.h"
#include "tests/support/world.h"

namespace android::vus::ctl {

// The daemon's watcher: writes the answers, one after the other, when the policy was closed after
// writing.
class FakeWatcher {
  public:
    explicit FakeWatcher(std::vector<std::string> answers)
          : inotify_(inotify_init1(IN_CLOEXEC)), answers_(std::move(answers)) {
        inotify_add_watch(inotify_.get(), kConfigDir, IN_CLOSE_WRITE);
        thread_ = std::thread([this] { Answer(); });
    }
    ~FakeWatcher() { thread_.join(); }

  private:
    void Answer() {
        alignas(inotify_event) char buffer[sizeof(inotify_event) + NAME_MAX + 1];
        EXPECT_GT(read(inotify_.get(), buffer, sizeof(buffer)), 0);
        EXPECT_STREQ(reinterpret_cast<inotify_event*>(buffer)->name, kPolicyFileName);
        for (const std::string& answer : answers_) WriteFile(kStatusFile, answer);
    }

    const base::unique_fd inotify_;
    const std::vector<std::string> answers_;
    std::thread thread_;
};

}  // namespace android::vus::ctl
