// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/client.h"

#include <algorithm>
#include <utility>

#include <android-base/stringprintf.h>
#include <binder/IInterface.h>
#include <utils/String16.h>
#include <utils/String8.h>
#include <utils/Vector.h>

#include "android/vus/paths.h"
#include "tools/common/death_notice.h"
#include "tools/common/text.h"
#include "tools/vusctl/policy_tool.h"
#include "tools/vusctl/render.h"
#include "tools/vusctl/watch.h"

namespace android::vus::ctl {

namespace {

constexpr char kIntroduction[] =
        "usage: vusctl COMMAND [ARGUMENT...]\n"
        "\n"
        "Asks the vus daemon, and changes its policy.\n"
        "\n";

constexpr char kNotes[] =
        "\n"
        "A device for judge: --usb (the default) or --input, --id N, --name TEXT, --class N,\n"
        "--interfaces N,N,..., --vid N, --pid N; numbers are decimal, or hexadecimal with 0x. It\n"
        "is judged as if it were attached: it enters the daemon's list.\n"
        "A FILE of - is the standard input.\n"
        "\n"
        "Exit status: 0 done, or allowed; 1 not allowed, or policy rejected; 2 wrong usage;\n"
        "3 the daemon is not running; 4 something else failed.\n";

bool asks_for_help(const Words& words) {
    return words[0] == "help" || words[0] == "-h" ||
           std::find(words.begin(), words.end(), "--help") != words.end();
}

// Whether the words are nothing but an optional --json.
bool only_json(const Words& words, bool* json) {
    *json = words == Words{"--json"};
    return *json || words.empty();
}

}  // namespace

struct Client::Command {
    const char* name;
    const char* arguments;
    const char* summary;
    int (Client::*run)(const Words& words);
};

const std::vector<Client::Command>& Client::commands() {
    static const std::vector<Command> table = {
            {"list", "[--json]", "the known devices, with verdict and reason", &Client::list},
            {"judge", "DEVICE", "ask whether a described device is allowed", &Client::judge},
            {"reset", "", "have every USB device enumerated, and judged, again", &Client::reset},
            {"undock", "MS", "undock virtually for that many milliseconds", &Client::undock},
            {"watch", "[--json]", "USB devices as they are added and removed", &Client::watch},
            {"dump", "[test]", "the daemon's own dump; test: the USB tree", &Client::dump},
            {"policy", "show|check FILE|set FILE", "print, check or replace the policy",
             &Client::policy},
            {"status", "", "what became of the last policy", &Client::status},
    };
    return table;
}

Client::Client(std::function<FoundService()> find, std::ostream& out, std::ostream& err, int out_fd,
               std::function<void(int fd)> wait)
      : find_(std::move(find)), out_(out), err_(err), out_fd_(out_fd), wait_(std::move(wait)) {}

void Client::print_usage(std::ostream& stream) {
    stream << kIntroduction;
    for (const Command& command : commands()) {
        const std::string call = std::string(command.name) + " " + command.arguments;
        stream << base::StringPrintf("  %-31s %s\n", call.c_str(), command.summary);
    }
    stream << kNotes;
}

int Client::Run(const Words& words) {
    if (words.empty()) {
        print_usage(err_);
        return kUsage;
    }
    if (asks_for_help(words)) {
        print_usage(out_);
        return kDone;
    }
    for (const Command& command : commands()) {
        if (words[0] == command.name) {
            return (this->*command.run)(Words(words.begin() + 1, words.end()));
        }
    }
    return usage_error("unknown command: " + words[0]);
}

int Client::usage_error(const std::string& message) {
    err_ << "vusctl: " << message << " (vusctl --help tells more)\n";
    return kUsage;
}

int Client::failure(const binder::Status& status) {
    err_ << "vusctl: the daemon did not answer: " << status.toString8().string() << "\n";
    return kFailed;
}

sp<IVUsbService> Client::service() {
    const FoundService found = find_();
    if (found.service == nullptr) err_ << "vusctl: " << found.why_not << "\n";
    return found.service;
}

int Client::list(const Words& words) {
    bool json = false;
    if (!only_json(words, &json)) return usage_error("list takes --json or nothing");
    const sp<IVUsbService> daemon = service();
    if (daemon == nullptr) return kNoService;
    std::vector<DeviceInfo> devices;
    const binder::Status status = daemon->getDeviceList(&devices);
    if (!status.isOk()) return failure(status);
    out_ << (json ? json_array(devices) : text_table(devices));
    return kDone;
}

int Client::judge(const Words& words) {
    if (words.empty()) return usage_error("judge takes a device's description");
    std::string error;
    const auto info = parse_device(words, &error);
    if (!info) return usage_error(error);
    const sp<IVUsbService> daemon = service();
    if (daemon == nullptr) return kNoService;
    bool allowed = false;
    const binder::Status status = daemon->isDeviceAllowed(*info, &allowed);
    if (!status.isOk()) return failure(status);
    return print_verdict(*daemon, *info, allowed);
}

int Client::print_verdict(IVUsbService& service, const DeviceInfo& info, bool allowed) {
    std::vector<DeviceInfo> devices;
    service.getDeviceList(&devices);
    const auto record =
            std::find_if(devices.begin(), devices.end(), [&info](const DeviceInfo& device) {
                return device.deviceId == info.deviceId && device.deviceType == info.deviceType;
            });
    out_ << (allowed ? "allowed" : "not allowed") << "\n";
    if (record == devices.end()) {
        out_ << (allowed ? "not listed: the daemon allows everything\n"
                         : "not listed: an HID device is judged as an input device\n");
    } else {
        // The daemon keeps the first record of an id.
        const bool earlier = (record->status == 1) != allowed;
        out_ << (earlier ? "listed with an earlier verdict: " : "") << printable(record->reason)
             << "\n";
    }
    return allowed ? kDone : kRefused;
}

int Client::reset(const Words& words) {
    if (!words.empty()) return usage_error("reset takes no argument");
    const sp<IVUsbService> daemon = service();
    if (daemon == nullptr) return kNoService;
    const binder::Status status = daemon->resetUsbDevices(0);
    return status.isOk() ? kDone : failure(status);
}

int Client::undock(const Words& words) {
    const auto time = words.size() == 1 ? parse_number(words[0]) : std::nullopt;
    if (!time || *time <= 0) return usage_error("undock takes a number of milliseconds above 0");
    const sp<IVUsbService> daemon = service();
    if (daemon == nullptr) return kNoService;
    const binder::Status status = daemon->resetUsbDevices(*time);
    return status.isOk() ? kDone : failure(status);
}

int Client::dump(const Words& words) {
    if (words.size() > 1) return usage_error("dump takes at most one argument");
    const sp<IVUsbService> daemon = service();
    if (daemon == nullptr) return kNoService;
    Vector<String16> arguments;
    for (const std::string& word : words) arguments.add(String16(word.c_str()));
    out_.flush();
    if (IInterface::asBinder(daemon)->dump(out_fd_, arguments) != OK) {
        err_ << "vusctl: the daemon did not write its dump\n";
        return kFailed;
    }
    return kDone;
}

int Client::watch(const Words& words) {
    bool json = false;
    if (!only_json(words, &json)) return usage_error("watch takes --json or nothing");
    const sp<IVUsbService> daemon = service();
    if (daemon == nullptr) return kNoService;
    const sp<DeathNotice> death = new DeathNotice;
    IInterface::asBinder(daemon)->linkToDeath(death);
    const sp<IVUsbServiceCallback> printer = new EventPrinter(out_, json);
    const binder::Status status = daemon->registerVusCallback(printer);
    if (!status.isOk()) return failure(status);
    wait_(death->fd());
    if (death->taken()) {
        err_ << "vusctl: the daemon has ended\n";
        return kNoService;
    }
    daemon->unregisterVusCallback(printer);
    return kDone;
}

int Client::policy(const Words& words) {
    const std::string verb = words.empty() ? "" : words[0];
    if (verb == "show" && words.size() == 1) return print_policy(out_, err_);
    if (verb == "check" && words.size() == 2) return check_policy(words[1], out_, err_);
    if (verb == "set" && words.size() == 2) {
        // Without the daemon nobody would read the new policy, answer, or roll it back.
        return service() == nullptr ? kNoService : set_policy(words[1], out_, err_);
    }
    return usage_error("policy takes: show, check FILE, or set FILE");
}

int Client::status(const Words& words) {
    if (!words.empty()) return usage_error("status takes no argument");
    return print_status(out_, err_);
}

}  // namespace android::vus::ctl
