// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <android-base/unique_fd.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "android/vus/paths.h"
#include "tests/support/world.h"

namespace android::vus::ctl {

// The daemon's watcher: writes the answers, one after the other, when the policy was closed after
// writing. A process, as the daemon is: what is tested starts processes itself, and one that is
// started beside another thread may find the allocator locked for ever.
class FakeWatcher {
  public:
    explicit FakeWatcher(std::vector<std::string> answers)
          : inotify_(inotify_init1(IN_CLOEXEC)), answers_(std::move(answers)) {
        inotify_add_watch(inotify_.get(), kConfigDir, IN_CLOSE_WRITE);
        process_ = fork();
        if (process_ != 0) return;
        alarm(60);
        Answer();
        _exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    ~FakeWatcher() {
        int status = -1;
        EXPECT_EQ(waitpid(process_, &status, 0), process_);
        EXPECT_EQ(status, 0) << "the policy was not written, or another file was";
    }

  private:
    void Answer() {
        alignas(inotify_event) char buffer[sizeof(inotify_event) + NAME_MAX + 1];
        EXPECT_GT(read(inotify_.get(), buffer, sizeof(buffer)), 0);
        EXPECT_STREQ(reinterpret_cast<inotify_event*>(buffer)->name, kPolicyFileName);
        for (const std::string& answer : answers_) WriteFile(kStatusFile, answer);
    }

    const base::unique_fd inotify_;
    const std::vector<std::string> answers_;
    pid_t process_;
};

}  // namespace android::vus::ctl
