// SPDX-License-Identifier: Apache-2.0
//
// A policy on trial: in force for a time, and taken back unless it is kept.
//
// Three things make sure that it is taken back. A guard, a process of its own that the terminal's
// end does not reach, writes the last good policy when the time is over, when it is told to end, or
// when vusctl died before the trial began. The file on disk is the last good policy during the
// trial already: it was renamed over the tried one, which the daemon does not notice, so that a
// start of the daemon or of the machine ends the trial as well. And where the guard itself is
// killed, that start is what is left.
//
// The trial file, beside the policy, holds the tried policy and is locked by the guard. Whoever
// removes it, the guard or `policy keep`, decides.

#pragma once

#include <chrono>
#include <ostream>
#include <string>

namespace android::vus::ctl {

// Puts `content`, which was found good, in force for a time. Forks, and so is best called before
// any thread is started. Returns an exit status of vusctl.
int try_policy(const std::string& content, std::chrono::seconds time, std::ostream& out,
               std::ostream& err);

// Makes the policy on trial the policy on disk. It is in force: nothing is reset.
int keep_policy(std::ostream& out, std::ostream& err);

// Ends a trial, if there is one, for a policy that was put in force for good: nothing is taken
// back.
void end_trial();

}  // namespace android::vus::ctl
