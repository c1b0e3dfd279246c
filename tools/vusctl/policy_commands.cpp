// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/policy_commands.h"

#include <chrono>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "tools/common/text.h"
#include "tools/vusctl/in_force.h"
#include "tools/vusctl/inspect_commands.h"
#include "tools/vusctl/policy_repair.h"
#include "tools/vusctl/policy_tool.h"
#include "tools/vusctl/policy_trial.h"
#include "tools/vusctl/preview.h"
#include "tools/vusctl/sources.h"

namespace android::vus::ctl {

namespace {

void print_preview(Context& context, IVUsbService& daemon, const Policy& policy) {
    std::vector<DeviceInfo> records;
    if (!daemon.getDeviceList(&records).isOk()) {
        context.err << "what changes cannot be told: the daemon did not answer\n";
        return;
    }
    std::vector<workbench::ListedDevice> listed;
    for (const DeviceInfo& record : records) listed.push_back(listed_device(record));
    context.err << preview_of(policy, listed);
}

bool is_wanted(Context& context) {
    context.err << "Put it in force? [y/N] " << std::flush;
    std::string answer;
    std::getline(*context.terminal.answers, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

// How long a policy is on trial: long enough to try the keyboard, and never for ever.
std::optional<std::chrono::seconds> trial_time(const Call& call) {
    constexpr int32_t kDefault = 60, kLongest = 24 * 60 * 60;
    const auto text = call.value("--seconds");
    const auto number = text ? workbench::parseNumber(*text) : kDefault;
    if (!number || *number < 1 || *number > kLongest) return std::nullopt;
    return std::chrono::seconds(*number);
}

}  // namespace

int show_status(Context& context, const Call& /*call*/) {
    const int status = print_status(context.out, context.err);
    if (status != kDone) return status;
    const OnDisk on_disk = compare_with_disk();
    // Before the first policy there is nothing to compare.
    if (on_disk == OnDisk::kInForce || on_disk == OnDisk::kUnknown) return kDone;
    context.out << wrapped(on_disk_text(on_disk), 0, 80);
    return kRefused;
}

int show_policy(Context& context, const Call& /*call*/) {
    return print_policy(context.out, context.err);
}

// A script is never asked, and gets what it always got: the status text and nothing else. People
// at a terminal see what changes first.
int set_policy_file(Context& context, const Call& call) {
    // Without the daemon nobody would read the new policy, answer, or roll it back.
    const sp<IVUsbService> daemon = context.service();
    if (daemon == nullptr) return kNoService;
    std::string content;
    const int status = read_good_policy(call.plain[0], &content, context.err);
    if (status != kDone) return status;
    const bool people = context.terminal.answers != nullptr;
    if (people || call.has("--yes")) {
        print_preview(context, *daemon, std::get<Policy>(parsePolicy(content)));
    }
    if (people && !call.has("--yes") && !is_wanted(context)) {
        context.err << "vusctl: not set\n";
        return kRefused;
    }
    const int answer = put_in_force(content, context.out, context.err);
    if (answer == kDone) end_trial();
    return answer;
}

int try_policy_file(Context& context, const Call& call) {
    const auto time = trial_time(call);
    if (!time) return context.usage_error("--seconds takes a number from 1 to 86400");
    std::string content;
    const int status = read_good_policy(call.plain[0], &content, context.err);
    if (status != kDone) return status;
    const sp<IVUsbService> daemon = context.service();
    if (daemon == nullptr) return kNoService;
    if (context.terminal.answers != nullptr) {
        print_preview(context, *daemon, std::get<Policy>(parsePolicy(content)));
    }
    return try_policy(content, *time, context.out, context.err);
}

int keep_tried_policy(Context& context, const Call& /*call*/) {
    return keep_policy(context.out, context.err);
}

int repair_policy_file(Context& context, const Call& /*call*/) {
    return repair_policy(context.out, context.err);
}

}  // namespace android::vus::ctl
