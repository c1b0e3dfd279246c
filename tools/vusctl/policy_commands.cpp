// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/policy_commands.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <json/value.h>

#include "tools/common/text.h"
#include "tools/vusctl/in_force.h"
#include "tools/vusctl/inspect_commands.h"
#include "tools/vusctl/policy_repair.h"
#include "tools/vusctl/policy_tool.h"
#include "tools/vusctl/policy_trial.h"
#include "tools/vusctl/preview.h"
#include "tools/vusctl/sources.h"
#include "tools/workbench/json.h"

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

// What a command says to people, as an object for programs: its members, and as "message" what
// went to the error output, without the program's name.
class JsonAnswer {
  public:
    std::ostringstream out, err;

    // The first line of the output; of put_in_force() the daemon's answer.
    std::optional<std::string> first_line() const {
        std::istringstream lines(out.str());
        std::string line;
        if (!std::getline(lines, line)) return std::nullopt;
        return line;
    }

    void print(Json::Value members, std::ostream& to) const {
        constexpr std::string_view kName = "vusctl: ";
        std::string message = err.str();
        if (message.compare(0, kName.size(), kName) == 0) message.erase(0, kName.size());
        while (!message.empty() && message.back() == '\n') message.pop_back();
        if (!message.empty()) members["message"] = valid_utf8(message);
        to << workbench::toJsonText(members);
    }
};

// Runs what puts a policy in force, and tells programs what became of it.
int answer_in_json(Context& context,
                   const std::function<int(std::ostream& out, std::ostream& err)>& run) {
    JsonAnswer answer;
    const int status = run(answer.out, answer.err);
    Json::Value members(Json::objectValue);
    // A daemon that does not answer may load it yet.
    members["inForce"] = status == kFailed ? Json::Value() : Json::Value(status == kDone);
    if (const auto line = answer.first_line()) members["answer"] = valid_utf8(*line);
    answer.print(std::move(members), context.out);
    return status;
}

// Before the first policy there is nothing to compare.
bool is_in_question(OnDisk on_disk) {
    return on_disk == OnDisk::kNotInForce || on_disk == OnDisk::kRejected;
}

const char* word_for(OnDisk on_disk) {
    switch (on_disk) {
        case OnDisk::kInForce:
            return "in force";
        case OnDisk::kNotInForce:
            return "not in force";
        case OnDisk::kRejected:
            return "no policy";
        case OnDisk::kUnknown:
            return "unknown";
    }
    return "unknown";
}

int show_status_in_json(Context& context) {
    JsonAnswer answer;
    const int status = print_status(answer.out, answer.err);
    const OnDisk on_disk = compare_with_disk();
    Json::Value members(Json::objectValue);
    if (const auto line = answer.first_line()) members["status"] = valid_utf8(*line);
    members["onDisk"] = word_for(on_disk);
    answer.err << on_disk_text(on_disk);
    answer.print(std::move(members), context.out);
    return status == kDone && !is_in_question(on_disk) ? kDone : std::max(status, kRefused);
}

}  // namespace

int show_status(Context& context, const Call& call) {
    if (call.has("--json")) return show_status_in_json(context);
    const int status = print_status(context.out, context.err);
    if (status != kDone) return status;
    const OnDisk on_disk = compare_with_disk();
    if (!is_in_question(on_disk)) return kDone;
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
    if (call.has("--json")) {
        return answer_in_json(context, [&call](std::ostream& out, std::ostream& err) {
            const int status = set_policy(call.plain[0], out, err);
            if (status == kDone) end_trial();
            return status;
        });
    }
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
    const bool json = call.has("--json");
    const auto run = [&](std::ostream& out, std::ostream& err) {
        std::string content;
        const int status = read_good_policy(call.plain[0], &content, err);
        if (status != kDone) return status;
        const FoundService found = context.find();
        if (found.service == nullptr) {
            err << "vusctl: " << found.why_not << "\n";
            return kNoService;
        }
        if (context.terminal.answers != nullptr && !json) {
            print_preview(context, *found.service, std::get<Policy>(parsePolicy(content)));
        }
        return try_policy(content, *time, out, err);
    };
    return json ? answer_in_json(context, run) : run(context.out, context.err);
}

int keep_tried_policy(Context& context, const Call& call) {
    if (!call.has("--json")) return keep_policy(context.out, context.err);
    JsonAnswer answer;
    const int status = keep_policy(answer.out, answer.err);
    Json::Value members(Json::objectValue);
    members["kept"] = status == kDone;
    answer.print(std::move(members), context.out);
    return status;
}

int repair_policy_file(Context& context, const Call& /*call*/) {
    return repair_policy(context.out, context.err);
}

}  // namespace android::vus::ctl
