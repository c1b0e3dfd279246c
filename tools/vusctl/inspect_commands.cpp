// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/inspect_commands.h"

#include <algorithm>

#include "tools/common/text.h"
#include "tools/vusctl/in_force.h"
#include "tools/vusctl/sources.h"
#include "tools/workbench/explain.h"
#include "tools/workbench/json.h"
#include "tools/workbench/tree.h"

namespace android::vus::ctl {

namespace {

using workbench::DeviceType;
using workbench::ListedDevice;

// The daemon's list; nothing if it cannot be had, which was said.
std::optional<std::vector<ListedDevice>> read_list(Context& context, int* status) {
    const sp<IVUsbService> daemon = context.service();
    *status = kNoService;
    if (daemon == nullptr) return std::nullopt;
    std::vector<DeviceInfo> records;
    const binder::Status answer = daemon->getDeviceList(&records);
    if (!answer.isOk()) {
        *status = context.failure(answer);
        return std::nullopt;
    }
    std::vector<ListedDevice> devices;
    for (const DeviceInfo& record : records) devices.push_back(listed_device(record));
    return devices;
}

std::optional<int32_t> id_of(Context& context, const Call& call) {
    const auto id = workbench::parseNumber(call.plain[0]);
    if (!id) context.usage_error("not an id: " + printable(call.plain[0]));
    return id;
}

bool is_wanted(const Call& call, DeviceType type) {
    const bool input = type == DeviceType::kInput;
    if (call.has("--usb") != call.has("--input")) return call.has("--input") == input;
    return true;
}

bool is_attached(const workbench::Device& wanted) {
    bool attached = false;
    workbench::readTree(workbench::kLiveTree, [&](const workbench::Device& device) {
        attached |= device.type == wanted.type && device.id == wanted.id;
    });
    return attached;
}

}  // namespace

ListedDevice listed_device(const DeviceInfo& info) {
    workbench::Device device;
    device.type = info.deviceType == 0 ? DeviceType::kUsb : DeviceType::kInput;
    device.claim = {info.deviceClass, info.interfaceClassList, info.vendorId, info.productId};
    // The daemon lists a USB device with nothing but HID only if it is its vendor's own.
    device.vendorHid = device.type == DeviceType::kUsb &&
                       !firstClassOtherThanHid(info.interfaceClassList).has_value();
    device.id = info.deviceId;
    device.name = info.deviceName;
    return {std::move(device), info.status == 1};
}

int explain_listed(Context& context, const Call& call) {
    const auto id = id_of(context, call);
    if (!id) return kUsage;
    int status = kDone;
    const auto listed = read_list(context, &status);
    if (!listed) return status;
    const auto policy = policy_in_force(context, &status);
    if (!policy) return status;
    const workbench::Explainer explainer(*policy);
    bool found = false;
    for (const auto& [device, allowed] : *listed) {
        if (device.id != id || !is_wanted(call, device.type)) continue;
        found = true;
        const workbench::Explanation explanation = explainer.explain(device);
        if (call.has("--json")) {
            Json::Value value = workbench::toJson(explanation);
            value["listed"] = allowed ? "allowed" : "refused";
            context.out << workbench::toJsonLine(value) << "\n";
            continue;
        }
        context.out << workbench::toText(explanation);
        if (explanation.judgement.allowed == allowed) continue;
        context.out << wrapped(std::string("but the list says ") +
                                       (allowed ? "allowed" : "refused") +
                                       ": an earlier verdict, which is kept until the device is "
                                       "plugged in again",
                               2, kScreenWidth);
    }
    if (found) return kDone;
    context.err << "vusctl: not listed: " << *id << "\n";
    return kRefused;
}

int verify_list(Context& context, const Call& call) {
    int status = kDone;
    const auto listed = read_list(context, &status);
    if (!listed) return status;
    const auto differences = workbench::verify(*listed, workbench::kLiveTree);
    for (const workbench::Mismatch& each : differences) {
        if (call.has("--json")) {
            Json::Value value(Json::objectValue);
            value["device"] = workbench::toJson(each.device);
            value["difference"] = each.what;
            context.out << workbench::toJsonLine(value) << "\n";
        } else {
            context.out << shortened(each.device.id ? std::to_string(*each.device.id) + " " +
                                                              workbench::describe(each.device)
                                                    : workbench::describe(each.device),
                                     kScreenWidth)
                        << "\n"
                        << wrapped(each.what, 2, kScreenWidth);
        }
    }
    if (!call.has("--json")) {
        context.out << listed->size() << " listed, " << differences.size() << " differences\n";
    }
    return differences.empty() ? kDone : kRefused;
}

int forget_device(Context& context, const Call& call) {
    const auto id = id_of(context, call);
    if (!id) return kUsage;
    int status = kDone;
    const auto listed = read_list(context, &status);
    if (!listed) return status;
    const DeviceType type = call.has("--input") ? DeviceType::kInput : DeviceType::kUsb;
    const auto found = std::find_if(listed->begin(), listed->end(), [&](const ListedDevice& each) {
        return each.device.id == id && each.device.type == type;
    });
    if (found == listed->end()) {
        context.err << "vusctl: not listed: " << *id << "\n";
        return kRefused;
    }
    if (is_attached(found->device)) {
        context.err << "vusctl: not forgotten: " << *id << " is attached; unplug it instead\n";
        return kRefused;
    }
    DeviceInfo info;
    info.deviceId = *id;
    info.deviceType = static_cast<int32_t>(type);
    info.deviceName = found->device.name;
    const sp<IVUsbService> daemon = context.service();
    if (daemon == nullptr) return kNoService;
    const binder::Status answer = daemon->updateDeviceList(info, 0);
    return answer.isOk() ? kDone : context.failure(answer);
}

}  // namespace android::vus::ctl
