// SPDX-License-Identifier: Apache-2.0
//
// Prints the resident memory of a process that is the daemon in all but its binder threads: 1,000
// rules loaded, 30 devices judged. The files are prepared by a first process, which then becomes
// the one to be weighed, so that the preparation leaves nothing in its memory.

#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include <android-base/logging.h>

#include "android/vus/paths.h"
#include "android/vus/usbdevice.h"
#include "android/vus/util.h"
#include "android/vus/vu_service.h"
#include "bench/policies.h"
#include "tests/support/usb_tree.h"
#include "tests/support/world.h"

namespace android::vus {
namespace {

constexpr int32_t kRules = 1000;
constexpr int32_t kDevices = 30;

void Prepare() {
    EnterPrivateRoot();
    EmptyWorld();
    UsbTree::Office(kDevices);
    WriteFile(kPolicyFile, WhitelistPolicy(kRules));
}

std::vector<int32_t> DeviceIds() {
    std::vector<int32_t> ids;
    UsbDevice::create_usb_device_map();
    for (const auto& [id, record] : UsbDevice::deviceid_map) {
        if (ids.empty() || ids.back() != id) ids.push_back(id);
    }
    return ids;
}

bool Work() {
    base::SetLogger(
            [](base::LogId, base::LogSeverity, const char*, const char*, unsigned, const char*) {});
    Util::createMapFromConfig(kPolicyFile);
    const sp<VUsbService> service = new VUsbService;
    for (const int32_t id : DeviceIds()) {
        DeviceInfo info;
        info.deviceName = "/dev/bus/usb/001/" + std::to_string(id % 1000);
        info.deviceId = id;
        info.interfaceClassList = {8};
        bool allowed = false;
        service->isDeviceAllowed(info, &allowed);
    }
    std::vector<DeviceInfo> list;
    service->getDeviceList(&list);
    return Util::xml_parse_status && list.size() == kDevices;
}

void PrintMemory() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        for (const char* name : {"VmRSS:", "RssAnon:", "RssFile:"}) {
            if (line.compare(0, strlen(name), name) == 0) printf("%s\n", line.c_str());
        }
    }
}

int Run(int argc, char** argv) {
    if (argc == 1) {
        Prepare();
        execl("/proc/self/exe", argv[0], "weigh", nullptr);
        perror("execl");
        return 1;
    }
    if (!Work()) {
        fprintf(stderr, "the devices were not all judged\n");
        return 1;
    }
    PrintMemory();
    return 0;
}

}  // namespace
}  // namespace android::vus

int main(int argc, char** argv) {
    return android::vus::Run(argc, argv);
}
