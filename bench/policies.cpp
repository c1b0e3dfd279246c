// SPDX-License-Identifier: Apache-2.0

#include "bench/policies.h"

#include <stdio.h>
#include <stdlib.h>

#include "android/vus/paths.h"
#include "android/vus/util.h"
#include "tests/support/world.h"

namespace android::vus {

namespace {

constexpr const char* kClasses[] = {
        "USB_CLASS_AUDIO",   "USB_CLASS_COMM",     "USB_CLASS_STILL_IMAGE",
        "USB_CLASS_PRINTER", "USB_CLASS_CDC_DATA", "USB_CLASS_MASS_STORAGE",
};

std::string Products(int32_t vendor, int32_t count) {
    std::string rule = "  <vid vendorid=\"" + std::to_string(vendor) + "\">\n";
    for (int32_t product = 1; product <= count; ++product) {
        rule += "    <pid>" + std::to_string(product) + "</pid>\n";
    }
    return rule + "  </vid>\n";
}

std::string Whitelist(const std::string& rules) {
    return "<?xml version=\"1.0\"?>\n<usbconfig mode=\"whitelist\">\n" + rules + "</usbconfig>\n";
}

}  // namespace

std::string WhitelistPolicy(int32_t rules) {
    std::string text;
    for (const char* name : kClasses) {
        if (rules-- <= 0) break;
        text += std::string("  <class>") + name + "</class>\n";
    }
    for (int32_t vendor = kFirstVendor; rules > 0; ++vendor) {
        if (vendor % 4 == 0 || rules < 3) {
            text += "  <vid vendorid=\"" + std::to_string(vendor) + "\"/>\n";
            rules -= 1;
        } else {
            text += Products(vendor, 2);
            rules -= 3;
        }
    }
    return Whitelist(text);
}

std::string ProductPolicy(int32_t rules) {
    constexpr int32_t kProducts = 9;
    std::string text;
    for (int32_t vendor = kFirstVendor; rules > 0; ++vendor) {
        text += Products(vendor, kProducts);
        rules -= 1 + kProducts;
    }
    return Whitelist(text);
}

void LoadPolicy(const std::string& xml) {
    WriteFile(kPolicyFile, xml);
    Util::createMapFromConfig(kPolicyFile);
    if (Util::xml_parse_status) return;
    fprintf(stderr, "the policy was refused: %s\n", Util::statusMessage.c_str());
    exit(1);
}

}  // namespace android::vus
