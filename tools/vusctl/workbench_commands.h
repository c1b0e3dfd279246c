// SPDX-License-Identifier: Apache-2.0
//
// The commands that tell what a policy does, without the daemon. Each returns an exit status of
// vusctl.

#pragma once

#include "tools/vusctl/command.h"

namespace android::vus::ctl {

int explain_policy(Context& context, const Call& call);
int test_policy(Context& context, const Call& call);
int learn_policy(Context& context, const Call& call);
int import_policy(Context& context, const Call& call);
int print_completion(Context& context, const Call& call);

}  // namespace android::vus::ctl
