// SPDX-License-Identifier: Apache-2.0
//
// Which policy is in force, told by the daemon's files.
//
// The daemon copies each policy that it loaded to the backup, a line feed behind the last line
// included. So the backup is the policy in force, whatever lies on the disk: a file that was
// renamed over the policy is not read, and a file that was rejected is replaced by the backup. The
// one exception is a policy that was rejected at start: then the backup is older than what is in
// force.

#pragma once

#include <optional>
#include <string>

#include "android/vus/policy.h"
#include "tools/vusctl/context.h"

namespace android::vus::ctl {

enum class OnDisk {
    kInForce,     // the file on disk is the policy in force
    kNotInForce,  // it is another one
    kRejected,    // it is no policy: an older backup says nothing of what is in force
    kUnknown,     // there is no policy, or no backup to compare it with
};

OnDisk compare_with_disk();

// Whether the daemon's copy of what it loaded last is a copy of this text.
bool is_in_force(const std::string& content);

// What is to be said of it to people; empty for kInForce.
std::string on_disk_text(OnDisk on_disk);

// The policy in force. If it cannot be told, nothing: it was said why, and `status` is the exit
// status.
std::optional<Policy> policy_in_force(Context& context, int* status);

}  // namespace android::vus::ctl
