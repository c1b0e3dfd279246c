// SPDX-License-Identifier: Apache-2.0
//
// The commands that tell what is wrong with a policy, what a change of it means, and what it leaves
// within reach. Each returns an exit status of vusctl, or kFindings.

#pragma once

#include "tools/vusctl/command.h"

namespace android::vus::ctl {

int check_policy_file(Context& context, const Call& call);
int diff_policies(Context& context, const Call& call);
int show_surface(Context& context, const Call& call);

}  // namespace android::vus::ctl
