// SPDX-License-Identifier: Apache-2.0

#include "tools/common/text.h"
#include "tools/vusctl/sources.h"
#include "tools/vusctl/workbench_commands.h"
#include "tools/workbench/import.h"
#include "tools/workbench/json.h"
#include "tools/workbench/learn.h"

namespace android::vus::ctl {

int learn_policy(Context& context, const Call& call) {
    if (!names_devices(call)) {
        return context.usage_error("policy learn takes --list, --tree or --live");
    }
    workbench::Learner learner;
    const int status = read_devices(context, call, [&learner](const workbench::Device& device) {
        learner.see(device);
    });
    // Half a list would make a policy that refuses the other half.
    if (status != kDone) return status;
    const workbench::LearntPolicy learnt = learner.learn();
    if (call.has("--json")) {
        context.out << workbench::toJsonText(workbench::toJson(learnt));
        return learnt.complete ? kDone : kRefused;
    }
    for (const std::string& warning : learnt.warnings) {
        context.err << wrapped("warning: " + printable(warning), 0, 80);
    }
    context.out << learnt.text;
    return learnt.complete ? kDone : kRefused;
}

int import_policy(Context& context, const Call& call) {
    std::string text;
    if (!read_file(context, call.plain[0], &text)) return kFailed;
    const workbench::ImportedPolicy imported = workbench::importRules(text, call.has("--loose"));
    if (call.has("--json")) {
        context.out << workbench::toJsonText(workbench::toJson(imported));
        return imported.left_out.empty() ? kDone : kRefused;
    }
    for (const std::string& warning : imported.warnings) {
        context.err << wrapped("warning: " + warning, 0, 80);
    }
    for (const workbench::NotImported& rule : imported.left_out) {
        context.err << shortened(std::to_string(rule.line) + ": " + rule.text, 80) << "\n"
                    << wrapped("left out: " + rule.why, 2, 80);
    }
    context.err << imported.rules << " rules imported, " << imported.left_out.size()
                << " left out\n";
    context.out << imported.text;
    return imported.left_out.empty() ? kDone : kRefused;
}

}  // namespace android::vus::ctl
