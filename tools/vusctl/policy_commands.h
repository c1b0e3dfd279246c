// SPDX-License-Identifier: Apache-2.0
//
// The commands that show and replace the policy. Each returns an exit status of vusctl.

#pragma once

#include "tools/vusctl/command.h"

namespace android::vus::ctl {

int show_status(Context& context, const Call& call);
int show_policy(Context& context, const Call& call);
int set_policy_file(Context& context, const Call& call);
int try_policy_file(Context& context, const Call& call);
int keep_tried_policy(Context& context, const Call& call);
int repair_policy_file(Context& context, const Call& call);

}  // namespace android::vus::ctl
