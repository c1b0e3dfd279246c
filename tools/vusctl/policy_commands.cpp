// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/policy_commands.h"

#include "tools/vusctl/policy_tool.h"

namespace android::vus::ctl {

int show_status(Context& context, const Call& /*call*/) {
    return print_status(context.out, context.err);
}

int show_policy(Context& context, const Call& /*call*/) {
    return print_policy(context.out, context.err);
}

int set_policy_file(Context& context, const Call& call) {
    // Without the daemon nobody would read the new policy, answer, or roll it back.
    if (context.service() == nullptr) return kNoService;
    return set_policy(call.plain[0], context.out, context.err);
}

}  // namespace android::vus::ctl
