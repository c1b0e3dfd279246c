// SPDX-License-Identifier: Apache-2.0
//
// The policy as a file: printed, and replaced if the daemon would accept it. Each returns an
// exit status of vusctl. A path of "-" is the standard input.

#pragma once

#include <chrono>
#include <ostream>
#include <string>

namespace android::vus::ctl {

// The daemon answers within milliseconds, unless it is in the middle of an undock.
inline constexpr std::chrono::seconds kAnswerLimit(10);

// The policy that is in force, byte by byte.
int print_policy(std::ostream& out, std::ostream& err);

// What became of the last policy.
int print_status(std::ostream& out, std::ostream& err);

// Reads a policy that the daemon would accept. With any other one: said why, and the exit status.
int read_good_policy(const std::string& path, std::string* content, std::ostream& err);

// Writes a policy that was found good over the one in force, in place, and waits for the daemon's
// answer. In place, because the daemon reloads when the policy is closed after writing, and a file
// that is renamed over it never is.
int put_in_force(const std::string& content, std::ostream& out, std::ostream& err,
                 std::chrono::milliseconds answer_limit = kAnswerLimit);

// Both, one after the other.
int set_policy(const std::string& path, std::ostream& out, std::ostream& err,
               std::chrono::milliseconds answer_limit = kAnswerLimit);

// Has the names in the policy's directory on the disk: what was renamed there is found after a
// power cut. False if nobody can tell.
bool sync_policy_directory();

}  // namespace android::vus::ctl
