// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/learn.h"

#include <algorithm>
#include <variant>

#include <android-base/stringprintf.h>

#include "android/vus/judge.h"
#include "android/vus/policy.h"
#include "tools/common/text.h"
#include "tools/workbench/xml_comment.h"

namespace android::vus::workbench {

namespace {

using base::StringPrintf;

constexpr size_t kNamesShown = 3;
constexpr size_t kClaimsKept = 4;  // of the different devices behind one pair of ids

std::string what(const Device& device) {
    Device nameless = device;
    nameless.name.clear();
    return describe(nameless);
}

}  // namespace

void Learner::see(const Device& device) {
    ++devices_;
    if (screeningOf(device) == Screening::kLeftToInput) {
        ++left_to_input_;
        return;
    }
    const Claim& claim = device.claim;
    if (claim.vendorId < 0 || claim.productId < 0) {
        inexpressible_.push_back(describe(device));
        return;
    }
    Product& product = products_[{claim.vendorId, claim.productId}];
    ++product.devices;
    if (product.names.size() <= kNamesShown) {
        const std::string name = xmlCommentText(device.name.empty() ? what(device) : device.name);
        product.names.insert(name);
    }
    if (product.devices == 1) samples_.push_back(device);
    if (device.type == DeviceType::kUsb && product.usb_claims.size() < kClaimsKept) {
        product.usb_claims.insert(what(device));
    }
}

LearntPolicy Learner::learn() const {
    LearntPolicy learnt;
    learnt.text = write();
    learnt.complete = inexpressible_.empty() && confirm(learnt.text);
    warn(&learnt.warnings);
    return learnt;
}

std::string Learner::write() const {
    std::string text =
            "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<usbconfig mode=\"whitelist\">\n";
    int32_t vendor = -1;
    for (const auto& [ids, product] : products_) {
        if (ids.first != vendor) {
            if (vendor != -1) text += "    </vid>\n";
            vendor = ids.first;
            text += StringPrintf("    <vid vendorid=\"%d\">\n", vendor);
        }
        size_t shown = 0;
        for (const std::string& name : product.names) {
            if (shown++ == kNamesShown) {
                text += "        <!-- and others -->\n";
                break;
            }
            text += "        <!-- " + idPair(ids.first, ids.second) + " " + name + " -->\n";
        }
        text += StringPrintf("        <pid>%d</pid>\n", ids.second);
    }
    return text + (vendor == -1 ? "" : "    </vid>\n") + "</usbconfig>\n";
}

// Each device that was seen is admitted, and of each vendor one that was not is refused.
bool Learner::confirm(const std::string& text) const {
    const auto read = parsePolicy(text);
    const auto* const policy = std::get_if<Policy>(&read);
    if (policy == nullptr) return false;
    const PolicyRules rules(*policy);
    for (const Device& device : samples_) {
        if (!judge(device.claim, rules).allowed) return false;
    }
    for (const auto& [ids, product] : products_) {
        const Claim stranger = {0, {0xFF}, ids.first, ids.second + 1};
        const bool known = products_.count({stranger.vendorId, stranger.productId}) != 0;
        if (ids.second < INT32_MAX && judge(stranger, rules).allowed != known) return false;
    }
    return !judge({0x101, {}, -1, -1}, rules).allowed;
}

void Learner::warn(std::vector<std::string>* warnings) const {
    if (products_.empty()) warnings->push_back("no device: this policy refuses everything");
    for (const std::string& device : inexpressible_) {
        warnings->push_back("cannot be admitted: no rule has a negative number: " + device);
    }
    for (const auto& [ids, product] : products_) {
        const std::string pair = idPair(ids.first, ids.second);
        if (ids.first == 0 || ids == Ids{1, 1}) {
            warnings->push_back(pair +
                                " are the ids of devices that have none: every other such "
                                "device is admitted as well");
        }
        if (product.usb_claims.size() < 2) continue;
        std::string text = pair + " is claimed by different devices, which no rule can separate:";
        for (const std::string& description : product.usb_claims) text += " " + description + ";";
        text.back() = '.';
        warnings->push_back(text);
    }
    if (left_to_input_ > 0) {
        warnings->push_back(
                StringPrintf("%zu of %zu devices have nothing but HID interfaces and need no rule "
                             "on the USB "
                             "side: make sure that their input devices are in the list, too",
                             left_to_input_, devices_));
    }
    if (!products_.empty()) {
        warnings->push_back(
                "ids are a device's own claim: whatever claims one of these is "
                "admitted, with any interfaces");
    }
}

Json::Value toJson(const LearntPolicy& learnt) {
    Json::Value value(Json::objectValue);
    value["policy"] = learnt.text;
    value["complete"] = learnt.complete;
    Json::Value& warnings = value["warnings"] = Json::Value(Json::arrayValue);
    for (const std::string& warning : learnt.warnings) warnings.append(valid_utf8(warning));
    return value;
}

}  // namespace android::vus::workbench
