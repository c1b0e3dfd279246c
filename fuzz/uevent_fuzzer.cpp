// SPDX-License-Identifier: Apache-2.0

// Reads any bytes as a message of the kernel: an event is one of a subsystem that is heard, at a
// path of the message's own and with a number that a device can have, and nothing after the
// message's end changes it.

#include <algorithm>
#include <iterator>

#include "fuzz/fuzzing.h"
#include "tools/hotplug/uevents.h"

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    android::vus::StartFuzzing();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace android::vus;           // NOLINT(google-build-using-namespace)
    using namespace android::vus::hotplug;  // NOLINT(google-build-using-namespace)
    const std::string message(reinterpret_cast<const char*>(data), size);
    const auto event = parse_uevent(message);
    if (!event) return 0;
    Require(event->subsystem == kDriversSubsystem ||
            std::find(std::begin(kReportedSubsystems), std::end(kReportedSubsystems),
                      event->subsystem) != std::end(kReportedSubsystems));
    for (const std::string& text : {event->action, event->path}) {
        Require(!text.empty() && text.size() <= size && text.find('\0') == std::string::npos);
    }
    Require(event->path.compare(0, 5, "/sys/") == 0);
    Require(message.find("DEVPATH=" + event->path.substr(4)) != std::string::npos);
    Require(event->number >= 0 && event->number <= 999'999);
    Require(event->number == 0 || event->number % 1000 != 0);
    const auto longer = parse_uevent(message + std::string("\0ACTION=x\0DEVNUM=7", 18));
    Require(longer && longer->action == event->action && longer->path == event->path);
    return 0;
}
