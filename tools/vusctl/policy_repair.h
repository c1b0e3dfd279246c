// SPDX-License-Identifier: Apache-2.0
//
// The last good policy put back where the one on disk does not load.
//
// The daemon restores its backup after a rejected rewrite and after a crash, but not when it
// starts: a policy that a kill or a power cut has torn would then allow everything. So this is run
// before each start on a Linux host. It needs no daemon, and may be killed at any moment: what it
// puts in the policy's place was written aside and is renamed there, and what stood there is kept
// beside it. It follows no link to write, and replaces nothing that loads.

#pragma once

#include <ostream>

namespace android::vus::ctl {

// Returns an exit status of vusctl: kDone if the policy loads now, or if there is neither a policy
// nor a backup; kRefused if the policy does not load and there is no good backup; kFailed if a file
// could not be written. Says what it did.
int repair_policy(std::ostream& out, std::ostream& err);

}  // namespace android::vus::ctl
