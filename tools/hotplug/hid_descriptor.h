// SPDX-License-Identifier: Apache-2.0
//
// What the kernel would make of a HID device, told by the report descriptor that the device sends:
// a vendor's own device or input devices, and what these would be able to send.
//
// The rules are those of the kernel's HID core and of its generic driver (one input device for each
// application). Drivers that know a product may make something else of it, and a device may lie; so
// what is foreseen here is compared with what came of it. The text is the device's own: nothing in
// it is believed, and what is kept of it is bounded. Pure; any thread.

#pragma once

#include <stdint.h>

#include <optional>
#include <vector>

namespace android::vus::hotplug {

// No report descriptor is longer, for the kernel.
inline constexpr size_t kMaxReportDescriptor = 4096;

// What would be an input device.
struct HidApplication {
    uint32_t usage;   // of its collection: the page in the upper half
    int32_t sources;  // bits (see tools/common/input_sources.h); 0: a source of nothing
};

struct HidNature {
    // Whether the input subsystem would serve it; no applications are of interest otherwise.
    bool is_input = false;
    std::vector<HidApplication> applications;  // in their order, none twice
};

// The input side judges sources. What says that it is an input device, and is the source of
// nothing, has hidraw all the same: nobody else would be asked about it.
bool is_source_of_input(const HidNature& nature);

// Nothing for a descriptor that the kernel would not take: no HID driver serves such a device.
std::optional<HidNature> parse_report_descriptor(const std::vector<uint8_t>& descriptor);

// How long the kernel takes an interface's report descriptor to be, by the descriptors that the
// device gave when it came: the device's, and those of its configurations. Nothing if the kernel
// would not ask for any.
std::optional<size_t> report_descriptor_length(const std::vector<uint8_t>& descriptors,
                                               int32_t configuration, int32_t interface_number);

}  // namespace android::vus::hotplug
