// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/daemon_commands.h"

#include <unistd.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <thread>
#include <vector>

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <binder/IInterface.h>
#include <utils/String16.h>
#include <utils/Vector.h>

#include "tools/common/death_notice.h"
#include "tools/common/text.h"
#include "tools/vusctl/render.h"
#include "tools/vusctl/watch.h"
#include "tools/workbench/device.h"
#include "tools/workbench/json.h"

namespace android::vus::ctl {

namespace {

// What the daemon made of a device that was judged just now.
struct Verdict {
    bool allowed;
    std::optional<DeviceInfo> record;  // as it is listed, if it is

    // The daemon keeps the first record of an id.
    bool is_earlier() const { return record && (record->status == 1) != allowed; }
};

Verdict verdict_on(IVUsbService& service, const DeviceInfo& info, bool allowed) {
    std::vector<DeviceInfo> devices;
    service.getDeviceList(&devices);
    const auto record =
            std::find_if(devices.begin(), devices.end(), [&info](const DeviceInfo& device) {
                return device.deviceId == info.deviceId && device.deviceType == info.deviceType;
            });
    return {allowed, record == devices.end() ? std::nullopt : std::optional(*record)};
}

void print_verdict(const Verdict& verdict, std::ostream& out) {
    out << (verdict.allowed ? "allowed" : "not allowed") << "\n";
    if (!verdict.record) {
        out << (verdict.allowed ? "not listed: the daemon allows everything\n"
                                : "not listed: an HID device is judged as an input device\n");
        return;
    }
    out << (verdict.is_earlier() ? "listed with an earlier verdict: " : "")
        << printable(verdict.record->reason) << "\n";
}

void print_verdict_in_json(const Verdict& verdict, std::ostream& out) {
    Json::Value value(Json::objectValue);
    value["allowed"] = verdict.allowed;
    value["listed"] = verdict.record.has_value();
    if (verdict.record) {
        value["reason"] = valid_utf8(verdict.record->reason);
        value["earlierVerdict"] = verdict.is_earlier();
    }
    out << workbench::toJsonLine(value) << "\n";
}

void warn_of_record(const DeviceInfo& info, std::ostream& err) {
    err << "vusctl: the real daemon now lists this device: vusctl forget " << info.deviceId
        << (info.deviceType == 0 ? "" : " --input") << " takes it out\n";
}

// What is read from `from`, to its end, line by line and printable.
void copy_printable(int from, int to) {
    std::string line;
    const auto put = [&line, to](const char* end) {
        base::WriteStringToFd(printable(line) + end, to);
        line.clear();
    };
    char buffer[4096];
    for (ssize_t length = 0;
         (length = TEMP_FAILURE_RETRY(read(from, buffer, sizeof(buffer)))) > 0;) {
        for (ssize_t at = 0; at < length; ++at) {
            if (buffer[at] == '\n') {
                put("\n");
            } else {
                line += buffer[at];
            }
        }
    }
    if (!line.empty()) put("");
}

status_t dump_printable(int out_fd, const std::function<status_t(int fd)>& dump) {
    base::unique_fd from, to;
    if (!base::Pipe(&from, &to)) return UNKNOWN_ERROR;
    // The daemon writes while it is in the call, and a pipe holds only so much.
    std::thread copier([&from, out_fd] { copy_printable(from.get(), out_fd); });
    const status_t status = dump(to.get());
    to.reset();
    copier.join();
    return status;
}

int reset(Context& context, int32_t milliseconds) {
    const sp<IVUsbService> daemon = context.service();
    if (daemon == nullptr) return kNoService;
    const binder::Status status = daemon->resetUsbDevices(milliseconds);
    return status.isOk() ? kDone : context.failure(status);
}

}  // namespace

int list_devices(Context& context, const Call& call) {
    const sp<IVUsbService> daemon = context.service();
    if (daemon == nullptr) return kNoService;
    std::vector<DeviceInfo> devices;
    const binder::Status status = daemon->getDeviceList(&devices);
    if (!status.isOk()) return context.failure(status);
    context.out << (call.has("--json") ? json_array(devices)
                                       : text_table(devices, context.terminal.width));
    return kDone;
}

int judge_device(Context& context, const Call& call) {
    if (call.options.empty()) return context.usage_error("judge takes a device's description");
    if (!call.has("--id")) {
        return context.usage_error(
                "judge needs an --id of its own: it acts on the real daemon, and "
                "the record of an id stays");
    }
    std::string error;
    const auto info = parse_device(call.device_words(), &error);
    if (!info) return context.usage_error(printable(error));
    const sp<IVUsbService> daemon = context.service();
    if (daemon == nullptr) return kNoService;
    bool allowed = false;
    const binder::Status status = daemon->isDeviceAllowed(*info, &allowed);
    if (!status.isOk()) return context.failure(status);
    const Verdict verdict = verdict_on(*daemon, *info, allowed);
    (call.has("--json") ? print_verdict_in_json : print_verdict)(verdict, context.out);
    context.out.flush();  // the verdict comes first
    if (verdict.record) warn_of_record(*info, context.err);
    return allowed ? kDone : kRefused;
}

int reset_ports(Context& context, const Call& /*call*/) {
    return reset(context, 0);
}

int undock(Context& context, const Call& call) {
    const auto time = workbench::parseNumber(call.plain[0]);
    if (!time || *time <= 0) {
        return context.usage_error("undock takes a number of milliseconds above 0");
    }
    return reset(context, *time);
}

int dump_daemon(Context& context, const Call& call) {
    const sp<IVUsbService> daemon = context.service();
    if (daemon == nullptr) return kNoService;
    Vector<String16> arguments;
    for (const std::string& word : call.plain) arguments.add(String16(word.c_str()));
    context.out.flush();
    const auto dump = [&](int fd) { return IInterface::asBinder(daemon)->dump(fd, arguments); };
    // A program gets the daemon's bytes, a terminal none that would rule it.
    const bool terminal = context.terminal.width > 0;
    const status_t status = terminal ? dump_printable(context.out_fd, dump) : dump(context.out_fd);
    return status == OK ? kDone : context.failed("the daemon did not write its dump");
}

int watch_devices(Context& context, const Call& call) {
    const sp<IVUsbService> daemon = context.service();
    if (daemon == nullptr) return kNoService;
    const sp<DeathNotice> death = new DeathNotice;
    IInterface::asBinder(daemon)->linkToDeath(death);
    const sp<IVUsbServiceCallback> printer = new EventPrinter(context.out, call.has("--json"));
    const binder::Status status = daemon->registerVusCallback(printer);
    if (!status.isOk()) return context.failure(status);
    context.wait(death->fd());
    if (death->taken()) {
        context.err << "vusctl: the daemon has ended\n";
        return kNoService;
    }
    daemon->unregisterVusCallback(printer);
    return kDone;
}

}  // namespace android::vus::ctl
