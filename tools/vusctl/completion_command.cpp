// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/completion.h"
#include "tools/vusctl/manual.h"
#include "tools/vusctl/workbench_commands.h"

namespace android::vus::ctl {

int print_completion(Context& context, const Call& call) {
    const std::string& kind = call.plain[0];
    const auto text = kind == "man" ? manual_synopsis() : completion_for(kind);
    if (!text) return context.usage_error("completion takes bash, zsh, fish or man");
    context.out << *text;
    return kDone;
}

}  // namespace android::vus::ctl
