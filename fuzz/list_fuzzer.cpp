// SPDX-License-Identifier: Apache-2.0

// Reads any bytes as a list of devices: what is taken goes round, and what is wrong is said on one
// line that is fit for a terminal.

#include <sstream>
#include <string>
#include <vector>

#include "fuzz/fuzzing.h"
#include "tools/common/text.h"
#include "tools/workbench/list.h"

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    android::vus::StartFuzzing();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace android::vus;             // NOLINT(google-build-using-namespace)
    using namespace android::vus::workbench;  // NOLINT(google-build-using-namespace)
    std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
    std::vector<Device> devices;
    const std::string error = readDevices(in, "list", [&devices](Device device) {
        devices.push_back(std::move(device));
    });
    Require(printable(error) == error);
    std::stringstream again;
    for (const Device& device : devices) {
        const std::string text = describe(device);
        Require(printable(text) == text);
        writeDevice(again, device);
    }
    size_t at = 0;
    const std::string none = readDevices(again, "again", [&](const Device& device) {
        Require(at < devices.size() && device == devices[at]);
        ++at;
    });
    Require(none.empty() && at == devices.size());
    return 0;
}
