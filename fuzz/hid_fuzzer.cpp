// SPDX-License-Identifier: Apache-2.0

// Reads any bytes as a HID report descriptor, and as the descriptors that announce one: what is
// told of them is bounded, makes sense, and is the same the second time.

#include <set>
#include <vector>

#include "fuzz/fuzzing.h"
#include "tools/hotplug/hid_descriptor.h"

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    android::vus::StartFuzzing();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace android::vus;           // NOLINT(google-build-using-namespace)
    using namespace android::vus::hotplug;  // NOLINT(google-build-using-namespace)
    const std::vector<uint8_t> descriptor(data, data + size);
    for (const int32_t interface : {0, 1}) {
        const auto length = report_descriptor_length(descriptor, 1, interface);
        Require(!length || (*length != 0 && *length <= kMaxReportDescriptor));
    }
    const auto nature = parse_report_descriptor(descriptor);
    Require(!nature || (size != 0 && size <= kMaxReportDescriptor));
    if (!nature) return 0;
    std::set<uint32_t> usages;
    for (const HidApplication& application : nature->applications) {
        Require(usages.insert(application.usage).second);
    }
    // A field takes a byte at least.
    Require(usages.size() <= size);
    const auto again = parse_report_descriptor(descriptor);
    Require(again && again->is_input == nature->is_input &&
            again->applications.size() == nature->applications.size());
    // Padding changes nothing.
    std::vector<uint8_t> padded = {0x0C};
    padded.insert(padded.end(), descriptor.begin(), descriptor.end());
    const auto same = parse_report_descriptor(padded);
    if (padded.size() > kMaxReportDescriptor) return 0;
    Require(same && same->is_input == nature->is_input);
    return 0;
}
