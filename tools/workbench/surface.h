// SPDX-License-Identifier: Apache-2.0
//
// The surface of a policy: which drivers of a kernel some device can reach that the policy admits,
// whatever the device says of itself.
//
// A driver binds by its aliases, which name ids and classes; a policy admits by ids and by the
// classes of all interfaces together. A device that lies can have any ids and any interfaces, so a
// policy that admits a class admits with it every driver that asks for ids only.
//
// Exact for the devices that the USB rules judge. Linear in aliases and rules. Pure; any thread.

#pragma once

#include <stdint.h>

#include <functional>
#include <istream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/workbench/closed_form.h"

namespace android::vus::workbench {

// What a driver asks of a device. Nothing stands for anything; the fields that no policy looks at
// (device class, subclass, protocol, ...) are a lying device's to choose.
struct Alias {
    std::optional<int32_t> vendor;
    std::optional<int32_t> product;
    std::optional<int32_t> interfaceClass;
    std::string driver;
};

// The alias of a line of modules.alias; nothing if the line is of another bus or no alias at all.
// `*understood` is false if it is one of USB, but not as the kernel's tools write it.
std::optional<Alias> parseAlias(std::string_view line, bool* understood);

struct Aliases {
    std::vector<Alias> usb;
    size_t notUnderstood = 0;  // lines
};
Aliases readAliases(std::istream& in);

struct ReachableDriver {
    std::string driver;
    size_t aliases;    // that it has
    size_t reachable;  // of these
    Claim witness;     // a device that is admitted and that the driver binds
};

struct Surface {
    size_t drivers = 0;
    size_t aliases = 0;
    std::vector<ReachableDriver> reachable;  // by name
    // Drivers that bind a device with nothing but HID interfaces, by its ids or by that class. No
    // USB rule judges such a device, and it is not switched off, whatever the policy says.
    size_t unjudged = 0;

    // How much of the kernel is within reach: per cent of the drivers, rounded up, so that 0 means
    // none.
    int score() const;
};

Surface surfaceOf(const ClosedForm& form, const Aliases& aliases);

// A device that the policy admits and that the alias fits; nothing if there is none.
std::optional<Claim> admittedBy(const ClosedForm& form, const Alias& alias);

}  // namespace android::vus::workbench
