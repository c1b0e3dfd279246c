// SPDX-License-Identifier: Apache-2.0

#include "android/vus/util_log.h"

#include <string>

#include <android-base/logging.h>

#include "android/vus/plain_log.h"

namespace android::vus {

namespace {

void logListed(int32_t code, const char* list) {
    LOG(INFO) << "Found CLASS : " << static_cast<uint32_t>(code) << " in " << list;
}

}  // namespace

void logParseStep(const ParseStep& step) {
    switch (step.kind) {
        case ParseStep::Kind::kMode:
            LOG(INFO) << "attribute--" << step.text;
            break;
        case ParseStep::Kind::kNoRules:
            LOG(INFO) << "no element, blocking all device";
            break;
        case ParseStep::Kind::kNumber:
            logLine("isValidNumber s--" + std::string(step.text));
            break;
        case ParseStep::Kind::kRestrictedClass:
            logStep({Step::Kind::kRestrictedClass, step.code});
            break;
        case ParseStep::Kind::kClass:
            LOG(INFO) << "class val--" << step.code;
            break;
    }
}

void logStep(const Step& step) {
    switch (step.kind) {
        case Step::Kind::kInterface:
            LOG(INFO) << step.value;
            break;
        case Step::Kind::kRestrictedClass:
            logListed(step.value, "restricted class list");
            break;
        case Step::Kind::kListedClass:
            logListed(step.value, "admin config list");
            break;
        case Step::Kind::kUnlistedInterface:
            LOG(INFO) << "interface class check false breaking";
            break;
        case Step::Kind::kSourceBits:
            LOG(INFO) << "checkMultiClass key_val" << step.value;
            LOG(INFO) << "checkMultiClass--" << step.other;
            break;
        case Step::Kind::kSingleSource:
            LOG(INFO) << "Key found";
            break;
        case Step::Kind::kSeveralSources:
            LOG(INFO) << "Key not found";
            break;
        case Step::Kind::kSource:
            LOG(INFO) << "HID multiClass check";
            break;
        case Step::Kind::kUnlistedSource:
            LOG(INFO) << "HID multi class check false breaking";
            break;
        case Step::Kind::kListedVendor:
            LOG(INFO) << "Found VID : " << step.value
                      << " without any pid associated inside admin config list.";
            break;
        case Step::Kind::kListedProduct:
            LOG(INFO) << "Found VID_PID : " << step.value << "_" << step.other
                      << " combination inside admin config list";
            break;
    }
}

}  // namespace android::vus
