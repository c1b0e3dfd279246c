// SPDX-License-Identifier: Apache-2.0

#include "small_world.h"

#include <algorithm>
#include <variant>

#include <gtest/gtest.h>

namespace android::vus::workbench {

namespace {

const std::vector<std::string> kModes = {"whitelist", "whitelist", "whitelist",
                                         "blacklist", "blacklist", "default"};
const std::vector<std::string> kListed = {"USB_CLASS_MASS_STORAGE", "USB_CLASS_AUDIO",
                                          "USB_CLASS_VIDEO", "AINPUT_SOURCE_KEYBOARD",
                                          "AINPUT_SOURCE_MOUSE"};
const std::vector<int32_t> kListedVendors = {1, 2, 3, 65535, kImpossibleId, 70000};
const std::vector<int32_t> kListedProducts = {1, 2, 65535, kImpossibleId};
const std::vector<int32_t> kInterfaceClasses = {1, 3, 4, 7, 8, 9, 14, 255};
const std::vector<int32_t> kSourceBits = {0, 0x100, 0x2000, 0x2100, 0x200 | 0x100, 0x200 | 0x2000};

std::vector<std::vector<int32_t>> interfaceSets() {
    std::vector<std::vector<int32_t>> sets;
    for (const int32_t one : kInterfaceClasses) {
        for (const int32_t other : kInterfaceClasses) {
            // Nothing but HID is not judged.
            if (one == 3 && other == 3) continue;
            if (one == other) sets.push_back({one});
            if (one < other) sets.push_back({one, other});
        }
    }
    return sets;
}

std::vector<Claim> allDevices() {
    std::vector<Claim> devices;
    for (const int32_t vendor : SmallWorld::vendors()) {
        for (const int32_t product : SmallWorld::products()) {
            for (const auto& interfaces : interfaceSets()) {
                devices.push_back({0, interfaces, vendor, product});
            }
            for (const int32_t bits : kSourceBits) devices.push_back({bits, {}, vendor, product});
        }
    }
    return devices;
}

std::string productOf(int32_t product) {
    return "<pid>" + std::to_string(product) + "</pid>";
}

}  // namespace

const std::vector<int32_t>& SmallWorld::vendors() {
    static const std::vector<int32_t> kVendors = {0, 1, 2, 3, 65535};
    return kVendors;
}

const std::vector<int32_t>& SmallWorld::products() {
    static const std::vector<int32_t> kProducts = {1, 2, 3, 65535};
    return kProducts;
}

const std::vector<Claim>& SmallWorld::devices() {
    static const std::vector<Claim> kDevices = allDevices();
    return kDevices;
}

std::string SmallWorld::nextRule() {
    if (below(3) == 0) return "<class>" + oneOf(kListed) + "</class>\n";
    const std::string vendor = "<vid vendorid=\"" + std::to_string(oneOf(kListedVendors)) + "\"";
    if (below(3) == 0) return vendor + "/>\n";
    std::string rule = vendor + ">\n" + productOf(oneOf(kListedProducts)) + "\n";
    if (below(2) == 0) rule += productOf(oneOf(kListedProducts)) + "\n";
    return rule + "</vid>\n";
}

std::string SmallWorld::nextText() {
    std::string text = "<usbconfig mode=\"" + oneOf(kModes) + "\">\n";
    for (size_t rules = below(7); rules > 0; --rules) text += nextRule();
    return text + "</usbconfig>\n";
}

std::string SmallWorld::nextCarefulText() {
    std::string text = "<usbconfig mode=\"whitelist\">\n";
    for (size_t rules = 1 + below(4); rules > 0; --rules) {
        text += "<vid vendorid=\"" + std::to_string(kListedVendors[below(4)]) + "\">\n" +
                productOf(kListedProducts[below(3)]) + "\n</vid>\n";
    }
    return text + "</usbconfig>\n";
}

Policy SmallWorld::nextPolicy() {
    return policyOf(nextText());
}

Policy SmallWorld::nextNeighbour(const Policy& policy) {
    Policy neighbour = policy;
    const Policy other = nextPolicy();
    if (!neighbour.vendors.empty() && below(2) == 0) {
        neighbour.vendors.erase(neighbour.vendors.begin() +
                                static_cast<long>(below(neighbour.vendors.size())));
    }
    if (!other.vendors.empty() && below(2) == 0) neighbour.vendors.push_back(other.vendors[0]);
    if (!other.classes.empty() && below(2) == 0) neighbour.classes.push_back(other.classes[0]);
    std::stable_sort(neighbour.vendors.begin(), neighbour.vendors.end(),
                     [](const VendorRule& a, const VendorRule& b) { return a.vendor < b.vendor; });
    return neighbour;
}

Policy policyOf(const std::string& text) {
    auto result = parsePolicy(text);
    if (auto* policy = std::get_if<Policy>(&result)) return std::move(*policy);
    ADD_FAILURE() << "no policy: " << std::get<PolicyFailure>(result).status << "\n" << text;
    return {};
}

std::vector<bool> verdictsOf(const Policy& policy) {
    const PolicyRules rules(policy);
    std::vector<bool> verdicts;
    verdicts.reserve(SmallWorld::devices().size());
    for (const Claim& device : SmallWorld::devices()) {
        verdicts.push_back(judge(device, rules).allowed);
    }
    return verdicts;
}

}  // namespace android::vus::workbench
