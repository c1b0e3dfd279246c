// SPDX-License-Identifier: Apache-2.0
//
// PolicyWatch: tells when the daemon has put a policy in force.
//
// The daemon tells nobody. But it copies each policy that it puts in force to the backup, when that
// is done; so the close of the backup is its word. Whoever else may write there is an administrator
// who has everything asked about once more than needed.
//
// Where a board resets its controllers for a new policy, what is attached to them comes anew.
//
// Not thread-safe.

#pragma once

#include <android-base/unique_fd.h>

namespace android::vus::hotplug {

class PolicyWatch {
  public:
    PolicyWatch();

    // Watches the policy's directory, which may not have been there before, or be another one.
    void watch();
    // Readable when there is something to be taken.
    int fd() const { return fd_.get(); }
    // Whether a policy has been put in force since the last call, or may have been.
    bool taken();

  private:
    const base::unique_fd fd_;
};

// Whether there is a controller that the daemon resets after a new policy.
bool board_resets_controllers();

}  // namespace android::vus::hotplug
